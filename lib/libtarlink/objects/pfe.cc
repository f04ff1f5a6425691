// Forwarding engine queries: "pfe info", "pfe stats" and the "pfe dwn map" request.  Raw
// messages of 36 and 40 bytes with the caller's data behind them; layouts in tarlink/pfe.h.
#include <errno.h>
#include <string.h>

#include "objects/request.h"
#include "tarlink/pfe.h"
#include "wire.h"

namespace {

using tlk::request::Block;
using tlk::request::fill_raw_header;
using tlk::request::next_seq;
using tlk::request::op_expects_reply;
using tlk::request::raw_exchange;
using tlk::request::raw_exchange_long;
using tlk::request::raw_send;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

constexpr uint16_t kPfeFixed = 36, kDwnMapFixed = 40;
constexpr uint32_t kMaxMsg = TLK_MSG_BUF_SIZE - 1;  // a request ends before the block's last byte

int pfeinfo_get(tarvik_cookie *cookie, uint32_t pfe_index, uint32_t pfe_id, uint8_t vks,
                uint32_t op, void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_raw_header(m, TLK_MSG_PFE_INFO, op, next_seq(cookie), kPfeFixed, 0);
  m[tlk::wire::kAux2At] = vks;
  store_u32(m + 24, pfe_index);
  store_u32(m + 32, pfe_id);
  return raw_exchange_long(request, msg_out).code();
}

// The statistics form: four bytes from the header's last byte on, the user data's length at 28
// and the data at 36.  `who` names the entry in the diagnostic.
int pfestat(tarvik_cookie *cookie, const char *who, uint8_t pfe_a, uint8_t pfe_b, uint32_t op,
            uint8_t pfe_kind, uint8_t pfe_sub, void **msg_out, const void *data, uint32_t len) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr) return EINVAL;
  if (op_expects_reply(op) && msg_out == nullptr) return EINVAL;
  if (len != 0 && data == nullptr) return EINVAL;
  if (kPfeFixed + uint64_t{len} > kMaxMsg) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "invalid user data length %d, %s", static_cast<int>(len),
               who);
    return EMSGSIZE;
  }
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_raw_header(m, TLK_MSG_PFE_STATS, op, next_seq(cookie), kPfeFixed, len);
  m[23] = pfe_kind;
  m[24] = pfe_sub;
  m[25] = pfe_a;
  m[26] = pfe_b;
  store_u16(m + 28, static_cast<uint16_t>(len));
  if (len != 0) memcpy(m + kPfeFixed, data, len);
  if (!op_expects_reply(op)) return raw_send(cookie, m).code();
  Block reply(cookie);
  if (!reply) return ENOMEM;
  return raw_exchange(cookie, m, reply, msg_out).code();
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_pfeinfo_get_by_index(tarvik_cookie *cookie, uint32_t pfe_index,
                                           uint32_t pfe_id, uint32_t op, void **msg_out) {
  return pfeinfo_get(cookie, pfe_index, pfe_id, 0, op, msg_out);
}

TLK_EXPORT int tarvik_pfeinfo_get_by_index_vks(tarvik_cookie *cookie, uint32_t pfe_index,
                                               uint32_t pfe_id, uint8_t vks, uint32_t op,
                                               void **msg_out) {
  return pfeinfo_get(cookie, pfe_index, pfe_id, vks, op, msg_out);
}

TLK_EXPORT int tarvik_pfestat_get_by_index(tarvik_cookie *cookie, uint8_t pfe_a, uint8_t pfe_b,
                                           uint32_t op, uint8_t pfe_kind, uint8_t pfe_sub,
                                           void **msg_out, const void *data, uint32_t len) {
  return pfestat(cookie, "tarvik_pfestat_get", pfe_a, pfe_b, op, pfe_kind, pfe_sub, msg_out, data,
                 len);
}

TLK_EXPORT int tarvik_pfestat_clear(tarvik_cookie *cookie, uint8_t pfe_a, uint8_t pfe_b,
                                    uint32_t op, uint8_t pfe_kind, uint8_t pfe_sub, void **msg_out,
                                    const void *data, uint32_t len) {
  return pfestat(cookie, "tarvik_pfestat_clear", pfe_a, pfe_b, op, pfe_kind, pfe_sub, msg_out, data,
                 len);
}

// Nothing is read: the kernel answers with a "pfe dwn map" notification.
TLK_EXPORT int tarvik_pfe_dwn_map_send_req(tarvik_cookie *cookie, uint32_t pfe_map_id,
                                           const uint8_t key[8], uint32_t len, const void *data) {
  if (cookie == nullptr || key == nullptr || (len != 0 && data == nullptr)) return EINVAL;
  if (tlk::wire::round4(uint64_t{len}) >= TLK_MSG_BUF_SIZE - kDwnMapFixed + 1) return EMSGSIZE;
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_raw_header(m, TLK_MSG_PFE_DWN_MAP, TLK_OP_GET, next_seq(cookie), kDwnMapFixed, len);
  store_u32(m + 24, pfe_map_id);
  store_u16(m + 28, static_cast<uint16_t>(len));
  memcpy(m + 32, key, 8);
  if (len != 0) memcpy(m + kDwnMapFixed, data, len);
  return raw_send(cookie, m).code();
}

}  // extern "C"
