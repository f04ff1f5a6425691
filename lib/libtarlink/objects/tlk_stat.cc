// Session statistics ("tarlink stats", raw type 26): the kernel's per-process message counters.
//
// A fixed 36-byte raw record, built on the stack:
//
//    0          24   25        26      28          32          36
//    +----------+----+---------+-------+-----------+-----------+
//    | header   |sel2| (0)     |varlen |   (0)     | proxy id  |
//    +----------+----+---------+-------+-----------+-----------+
//
// The header carries the process id in tlkh_id and the first selector in tlkh_aux2 (offset 23).
// Add, delete and clear are fire and forget and leave tlkh_seq 0: nothing answers them, so they
// take no part in the sequence check.  A get draws the next number and reads one reply.
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "wire.h"

namespace {

using tlk::request::Block;
using tlk::request::next_seq;
using tlk::request::raw_exchange;
using tlk::request::raw_send;

constexpr uint16_t kStatLen = 36;

void build(uint8_t (&req)[kStatLen], uint32_t op, uint32_t seq, uint32_t proxy_id, uint8_t sel_a,
           uint8_t sel_b) {
  namespace wire = tlk::wire;
  memset(req, 0, sizeof req);
  // The variable field is empty: the whole length is the fixed one.
  (void)tlk::request::fill_raw_header(req, TLK_MSG_TARLINK_STATS, op, seq, kStatLen, 0);
  wire::store_u32(&req[wire::kIdAt], static_cast<uint32_t>(tlk::platform::ops().getpid()));
  req[wire::kAux2At] = sel_a;
  req[24] = sel_b;
  wire::store_u32(&req[32], proxy_id);
}

// Fire and forget: one write, no reply.
int stat_set(tarvik_cookie *cookie, uint32_t op, uint32_t proxy_id) {
  if (cookie == nullptr) return EINVAL;
  uint8_t req[kStatLen];
  build(req, op, 0, proxy_id, 0, 0);
  return raw_send(cookie, req).code();
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_tlk_proxy_stat_add(tarvik_cookie *cookie, uint32_t proxy_id) {
  return stat_set(cookie, TLK_OP_ADD, proxy_id);
}
TLK_EXPORT int tarvik_tlk_proxy_stat_delete(tarvik_cookie *cookie, uint32_t proxy_id) {
  return stat_set(cookie, TLK_OP_DELETE, proxy_id);
}
TLK_EXPORT int tarvik_tlk_proxy_stat_clear(tarvik_cookie *cookie, uint32_t proxy_id) {
  return stat_set(cookie, TLK_OP_CLEAR, proxy_id);
}
TLK_EXPORT int tarvik_tlk_stat_add(tarvik_cookie *cookie) {
  return stat_set(cookie, TLK_OP_ADD, 0);
}
TLK_EXPORT int tarvik_tlk_stat_delete(tarvik_cookie *cookie) {
  return stat_set(cookie, TLK_OP_DELETE, 0);
}
TLK_EXPORT int tarvik_tlk_stat_clear(tarvik_cookie *cookie) {
  return stat_set(cookie, TLK_OP_CLEAR, 0);
}

// The request on the stack, the reply read into a fresh message block that the caller
// frees with tarvik_msg_free.  The next message on the socket is taken as the answer.
TLK_EXPORT int tarvik_tlk_proxy_stat_get(tarvik_cookie *cookie, uint32_t proxy_id, uint8_t sel_a,
                                         uint8_t sel_b, void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Block reply(cookie);
  if (!reply) return ENOMEM;
  uint8_t req[kStatLen];
  build(req, TLK_OP_GET, next_seq(cookie), proxy_id, sel_a, sel_b);
  return raw_exchange(cookie, req, reply, msg_out).code();
}

TLK_EXPORT int tarvik_tlk_stat_get(tarvik_cookie *cookie, uint8_t sel_a, uint8_t sel_b,
                                   void **msg_out) {
  return tarvik_tlk_proxy_stat_get(cookie, 0, sel_a, sel_b, msg_out);
}

}  // extern "C"
