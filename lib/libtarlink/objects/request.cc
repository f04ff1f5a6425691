// The request-reply helper (objects/request.h).
#include "objects/request.h"

#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "platform/platform.h"
#include "wire.h"

namespace tlk::request {

uint32_t next_seq(tarvik_cookie *cookie) {
  return ++cookie->seq;
}

void fill_header(tlk_hdr &h, tlk_msg_type type, uint32_t op, uint16_t fixedlen, uint32_t msglen,
                 uint32_t seq) {
  h.tlkh_version = TARVIK_VERSION_TABLE[type];
  h.tlkh_type = static_cast<uint8_t>(type);
  h.tlkh_op = static_cast<uint8_t>(op);
  h.tlkh_fixedlen = fixedlen;
  h.tlkh_msglen = msglen;
  h.tlkh_seq = seq;
  h.tlkh_id = 0;
}

uint32_t fill_raw_header(uint8_t *msg, tlk_msg_type type, uint32_t op, uint32_t seq,
                         uint16_t fixedlen, uint32_t var_len) {
  namespace wire = tlk::wire;
  const uint32_t msglen = fixedlen + wire::raw_var_len(var_len);
  msg[wire::kVersionAt] = TARVIK_VERSION_TABLE[type];
  msg[wire::kTypeAt] = static_cast<uint8_t>(type);
  msg[wire::kOpAt] = static_cast<uint8_t>(op);
  wire::store_u32(msg + wire::kMsglenAt, msglen);
  wire::store_u32(msg + wire::kSeqAt, seq);
  wire::store_u16(msg + wire::kFixedlenAt, fixedlen);
  return msglen;
}

size_t put_name(uint8_t *at, const char *name, size_t max_chars, uint8_t **field,
                uint32_t *length) {
  const size_t n = strnlen(name, max_chars);
  memcpy(at, name, n);
  at[n] = 0;
  *field = at;
  *length = static_cast<uint32_t>(n + 1);
  return n + 1;
}

int register_for_model(tarvik_cookie *cookie, uint8_t type, void *arg,
                       tarvik_async_handler_t handler, bool (*accepted)(uint16_t model)) {
  const auto *product = static_cast<const uint8_t *>(tlk::platform::ops().product_info_data());
  if (product == nullptr || cookie == nullptr || handler == nullptr ||
      cookie->async_info == nullptr)
    return EINVAL;
  if (!accepted(wire::load_u16(product + 2))) return EOPNOTSUPP;
  return tarvik_setup_async_registration(cookie, type, 0, 0, arg, handler);
}

void clear_outs(void **out, void **mask) {
  if (out != nullptr) *out = nullptr;
  if (mask != nullptr) *mask = nullptr;
}

Block::Block(tarvik_cookie *cookie, bool allocate)
    : cookie_(cookie), block_(allocate ? tarvik_msg_malloc(cookie) : nullptr) {}

void *Block::release() {
  void *block = block_;
  block_ = nullptr;
  return block;
}

void Block::free_now() {
  tarvik_msg_free(cookie_, block_);
  block_ = nullptr;
}

Status write_framed(tarvik_cookie *cookie, const void *msg) {
  // Every request of the library goes out in IDR: no presence map.
  return tarvik_msg_write_idl(cookie, msg, nullptr);
}

Status read_framed(tarvik_cookie *cookie, void **out, void **mask, Read read) {
  return read == Read::kLong ? tarvik_long_msg_read_idl(cookie, out, mask)
                             : tarvik_msg_read_idl(cookie, out, mask);
}

Status raw_send(tarvik_cookie *cookie, const void *msg) {
  const uint32_t msglen =
      tlk::wire::load_u32(static_cast<const uint8_t *>(msg) + tlk::wire::kMsglenAt);
  return tarvik_write(cookie, msg, msglen);
}

Status raw_exchange(tarvik_cookie *cookie, const void *request, Block &reply, void **out) {
  Status status = raw_send(cookie, request);
  if (status.ok() && reply) status = tarvik_msg_read(cookie, reply.bytes(), nullptr);
  if (!status.ok()) {
    reply.free_now();
    *out = nullptr;
    return status;
  }
  *out = reply.release();
  return status;
}

Status raw_exchange_long(Block &request, void **out) {
  tarvik_cookie *cookie = request.cookie();
  Status status = raw_send(cookie, request.bytes());
  request.free_now();
  if (!status.ok()) {
    *out = nullptr;
    return status;
  }
  size_t length = 0;
  status = tarvik_long_msg_read(cookie, out, &length);
  if (!status.ok()) {
    // A reply that failed only the sequence check comes back from the read: it isn't the
    // caller's, so it goes here.
    tarvik_msg_free(cookie, *out);
    *out = nullptr;
  }
  return status;
}

}  // namespace tlk::request
