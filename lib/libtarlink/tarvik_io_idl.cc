// Framed read and write: the raw I/O joined to the envelope.
//
// The four read wrappers map decoder results differently, on purpose and visibly to callers:
//
//   wrapper                       read failed   decode < 0    decode > 0
//   tarvik_msg_read_idl           read result   EINVAL        as it is
//   tarvik_msg_read_idl_pa        read result   EINVAL        as it is
//   tarvik_long_msg_read_idl      read result   as it is      as it is
//   tarvik_long_msg_read_idl_pa   read result   EINVAL        0
//
// A sequence mismatch (-2) on the read counts as a failed read in all four.
#include <errno.h>

#include "cookie.h"
#include "idl/envelope.h"

namespace {

enum class NegativeMap { kEinval, kAsIs };
enum class PositiveMap { kAsIs, kZero };

int map_decode(int result, NegativeMap neg, PositiveMap pos) {
  if (result < 0) return neg == NegativeMap::kEinval ? EINVAL : result;
  if (result > 0) return pos == PositiveMap::kZero ? 0 : result;
  return 0;
}

int decode(tarvik_cookie *cookie, const void *data, size_t length, void **msg, void **mask,
           void *area, size_t area_size) {
  if (area == nullptr) return tarvik_msg_idl_decode(cookie, data, length, msg, mask);
  const uint32_t size = area_size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(area_size);
  return tlk::idl::decode_into_arena(cookie, data, length, msg, mask, static_cast<uint8_t *>(area),
                                     size, false);
}

void clear_outs(void **msg, void **mask) {
  if (msg != nullptr) *msg = nullptr;
  if (mask != nullptr) *mask = nullptr;
}

// The fixed read: into a fresh message block, decoded, the block freed.
int fixed_read_idl(tarvik_cookie *cookie, void **msg, void **mask, void *area, size_t area_size) {
  clear_outs(msg, mask);
  if (cookie == nullptr || msg == nullptr) return EINVAL;
  void *buf = tarvik_msg_malloc(cookie);
  if (buf == nullptr) return ENOMEM;
  size_t len = 0;
  int result = tarvik_msg_read(cookie, buf, &len);
  if (result == 0) {
    result = map_decode(decode(cookie, buf, len, msg, mask, area, area_size), NegativeMap::kEinval,
                        PositiveMap::kAsIs);
  }
  tarvik_msg_free(cookie, buf);
  return result;
}

int long_read_idl(tarvik_cookie *cookie, void **msg, void **mask, void *area, size_t area_size,
                  NegativeMap neg, PositiveMap pos) {
  clear_outs(msg, mask);
  if (cookie == nullptr || msg == nullptr) return EINVAL;
  void *buf = nullptr;
  size_t len = 0;
  int result = tarvik_long_msg_read(cookie, &buf, &len);
  if (result == 0)
    result = map_decode(decode(cookie, buf, len, msg, mask, area, area_size), neg, pos);
  tarvik_msg_free(cookie, buf);  // also after a sequence mismatch: the message isn't decoded
  return result;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_msg_write_idl(tarvik_cookie *cookie, const void *rawmsg, const void *mask) {
  void *frame = nullptr;
  size_t length = 0;
  const int err = tarvik_msg_idl_encode(cookie, rawmsg, mask, &frame, &length);
  if (err != 0) return err;
  const int result = tarvik_write(cookie, frame, length);
  tarvik_msg_free(cookie, frame);
  return result;
}

TLK_EXPORT int tarvik_msg_read_idl(tarvik_cookie *cookie, void **msg, void **mask) {
  return fixed_read_idl(cookie, msg, mask, nullptr, 0);
}

TLK_EXPORT int tarvik_msg_read_idl_pa(tarvik_cookie *cookie, void **msg, void **mask, void *area,
                                      size_t area_size) {
  if (area == nullptr) {
    clear_outs(msg, mask);
    return EINVAL;
  }
  return fixed_read_idl(cookie, msg, mask, area, area_size);
}

TLK_EXPORT int tarvik_long_msg_read_idl(tarvik_cookie *cookie, void **msg, void **mask) {
  return long_read_idl(cookie, msg, mask, nullptr, 0, NegativeMap::kAsIs, PositiveMap::kAsIs);
}

TLK_EXPORT int tarvik_long_msg_read_idl_pa(tarvik_cookie *cookie, void **msg, void **mask,
                                           void *area, size_t area_size) {
  if (area == nullptr) {
    clear_outs(msg, mask);
    return EINVAL;
  }
  return long_read_idl(cookie, msg, mask, area, area_size, NegativeMap::kEinval,
                       PositiveMap::kZero);
}

}  // extern "C"
