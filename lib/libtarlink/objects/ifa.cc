// Addresses of a logical interface's family: reads by destination and/or local prefix, the write
// of an address, and the point change that replaces an address's attachments without a read.
//
// A prefix travels behind the fixed record, the destination's bytes first:
//
//   fixed ifa_msg (152 on the target) | dest: ((plen + 31) / 32) * 4 bytes | local: the same
//                                       first (plen + 7) / 8 copied, the rest zero
//
// Replies are small and read into one message block (tarvik_msg_read_idl).
#include <errno.h>
#include <string.h>

#include <algorithm>

#include "cookie.h"
#include "objects/request.h"
#include "wire.h"

namespace {

using tlk::request::clear_outs;
using tlk::request::exchange;
using tlk::request::Read;
using tlk::request::send;
using tlk::request::Seq;
using tlk::wire::load_u16;
using tlk::wire::round4;

using IfaRequest = tlk::request::Request<ifa_msg>;

constexpr uint32_t kMaxPlen = 0xFFFF;  // what the record's length field holds

// A prefix as the caller gives it: its length in bits and its bytes.
struct Prefix {
  const void *bytes = nullptr;
  uint32_t plen = 0;
};

// Packs `p` at *cursor and points `field` at it; a zero length leaves the field empty.  EINVAL for
// a length the record can't carry or bytes missing, EMSGSIZE past the block's end.
int put_prefix(const Prefix &p, prefix &field, uint8_t *&cursor, const uint8_t *end) {
  field = prefix{};
  if (p.plen == 0) return 0;
  if (p.plen > kMaxPlen || p.bytes == nullptr) return EINVAL;
  const size_t stored = ((size_t{p.plen} + 31) / 32) * 4;
  const size_t copied = (size_t{p.plen} + 7) / 8;
  if (stored > static_cast<size_t>(end - cursor)) return EMSGSIZE;
  memcpy(cursor, p.bytes, copied);
  memset(cursor + copied, 0, stored - copied);
  field.plen = static_cast<uint16_t>(p.plen);
  field.prefix = cursor;
  field.prefix_len = static_cast<uint32_t>(stored);
  cursor += stored;
  return 0;
}

// Fills the keys of an address request: interface, family, then the destination's bytes and the
// local prefix's behind the fixed record.
int put_keys(IfaRequest &req, uint32_t iflidx, uint32_t af, const Prefix &dest, const Prefix &local,
             uint8_t **cursor_out = nullptr) {
  req->ifam_iflidx.idx = iflidx;
  req->ifam_af = static_cast<uint8_t>(af);
  uint8_t *cursor = req.variable_area();
  int err = put_prefix(dest, req->ifam_dest, cursor, req.block_end());
  if (err == 0) err = put_prefix(local, req->ifam_local, cursor, req.block_end());
  if (cursor_out != nullptr) *cursor_out = cursor;
  return err;
}

int ifam_get(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af, const Prefix &dest,
             const Prefix &local, uint32_t op, void **out, void **mask) {
  clear_outs(out, mask);
  if (cookie == nullptr || out == nullptr) return EINVAL;
  IfaRequest req(cookie, TLK_MSG_IFADDR, op, Seq::kDraw);
  if (!req) return ENOMEM;
  const int err = put_keys(req, iflidx, af, dest, local);
  if (err != 0) return err;
  return exchange(req, out, mask, Read::kFixed).code();
}

// Where an attachment may start: 8-aligned, as its 64-bit fields and pointers need.
uint8_t *record_at(uint8_t *p) {
  return reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(p) + 7) & ~uintptr_t{7});
}

// Turns a run of input records (u16 type, u16 length with its 4 header bytes, data; the next at
// the length rounded up to 4) into inline attachments of `req`: the type in the first word, the
// data from the third, zero-filled to (length + 7) with the low two bits cleared.  Every type is
// treated alike.  The walk ends at a length of 0 or when the rounded lengths reach `total`.
int put_records(IfaRequest &req, const uint8_t *records, uint32_t total, uint8_t *cursor) {
  uint8_t *const end = req.block_end();
  cursor = record_at(cursor);
  void *slots = cursor;
  cursor += 128 * sizeof(void *);
  for (uint32_t off = 0; off + 4 <= total;) {
    const uint16_t type = load_u16(records + off);
    const uint16_t length = load_u16(records + off + 2);
    if (length == 0) break;
    if (length < 4 || off + length > total) return EINVAL;  // a record past the run's end
    const size_t data_len = length - 4u;
    cursor = record_at(cursor);
    auto *info = reinterpret_cast<tlk_msg_info *>(cursor);
    // The encoder reads a whole tlk_msg_info, so each attachment takes at least that much room.
    const size_t own = std::max((size_t{length} + 7) & ~size_t{3}, sizeof *info);
    if (own > static_cast<size_t>(end - cursor)) return EMSGSIZE;
    memset(info, 0, own);
    info->tlkmi_type = type;
    memcpy(&info->tlkmi_u, records + off + 4, std::min(data_len, sizeof info->tlkmi_u));
    cursor += own;
    const int err = tlkm_info_user_add(req.get(), info, &slots);
    if (err != 0) return err;
    off += static_cast<uint32_t>(round4(length));
  }
  return 0;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_ifam_get_by_index(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                        uint32_t op, void **out, void **mask) {
  return ifam_get(cookie, iflidx, af, {}, {}, op, out, mask);
}

TLK_EXPORT int tarvik_ifam_get_by_dest(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                       const void *dest, uint32_t length, uint32_t op, void **out,
                                       void **mask) {
  return ifam_get(cookie, iflidx, af, {dest, length}, {}, op, out, mask);
}

TLK_EXPORT int tarvik_ifam_get_by_local(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                        const void *local, uint32_t length, uint32_t op, void **out,
                                        void **mask) {
  return ifam_get(cookie, iflidx, af, {}, {local, length}, op, out, mask);
}

TLK_EXPORT int tarvik_ifam_get_by_local_dest(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                             const void *dest, uint32_t dest_length,
                                             const void *local, uint32_t local_length, uint32_t op,
                                             void **out, void **mask) {
  return ifam_get(cookie, iflidx, af, {dest, dest_length}, {local, local_length}, op, out, mask);
}

TLK_EXPORT int tarvik_ifam_update(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                  const void *dest, uint32_t dest_length, const void *local,
                                  uint32_t local_length, uint32_t op) {
  if (cookie == nullptr) return EINVAL;
  IfaRequest req(cookie, TLK_MSG_IFADDR, op, Seq::kDraw);
  if (!req) return ENOMEM;
  const int err = put_keys(req, iflidx, af, {dest, dest_length}, {local, local_length});
  if (err != 0) return err;
  return send(req).code();
}

TLK_EXPORT int tarvik_ifa_pointchange(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                      const void *address, uint32_t length, const void *records,
                                      uint32_t records_length) {
  if (cookie == nullptr || records == nullptr || records_length == 0) return EINVAL;
  // The sequence number is drawn only once the change is known to go out.
  IfaRequest req(cookie, TLK_MSG_IFADDR, TLK_OP_CHANGE, Seq::kZero);
  if (!req) return ENOMEM;
  if (length == 0) return EINVAL;
  req.header().tlkh_seq = tlk::request::next_seq(cookie);
  req->ifam_flags = TLK_IFA_POINTCHANGE;
  uint8_t *cursor = nullptr;
  int err = put_keys(req, iflidx, af, {}, {address, length}, &cursor);
  if (err == 0) {
    err = put_records(req, static_cast<const uint8_t *>(records), records_length, cursor);
  }
  if (err != 0) return err;
  return send(req).code();
}

}  // extern "C"
