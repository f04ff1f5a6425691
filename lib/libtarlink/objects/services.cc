// Service PIC configuration and monitoring: "asp config", "l2tp config", "qsr", "monitoring" and
// "mon stats".  All are raw messages of fixed size (variable data behind them where a layout has
// any), written in one piece; the reading ops take the reply into a second zeroed block with
// tarvik_msg_read.  Layouts are in tarlink/services.h.
#include <errno.h>
#include <string.h>

#include "objects/request.h"
#include "tarlink/services.h"
#include "wire.h"

namespace {

using tlk::request::Block;
using tlk::request::fill_raw_header;
using tlk::request::next_seq;
using tlk::request::op_expects_reply;
using tlk::request::raw_exchange;
using tlk::request::raw_send;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

constexpr uint16_t kAspFixed = 48, kL2tpFixed = 88, kQsrFixed = 96, kMonFixed = 280,
                   kMonStatsFixed = 44;
constexpr uint16_t kAspOwnerKernel = 128;  // the owner every non-add request names
constexpr size_t kL2tpAddrLen = 16, kMonNameChars = 60;

void store_u64(uint8_t *p, uint64_t v) {
  store_u32(p, static_cast<uint32_t>(v));
  store_u32(p + 4, static_cast<uint32_t>(v >> 32));
}

// Sends a raw request; with a reading op reads the reply into a second block.  `out` may be null
// for the other ops, which are only sent.
int send_or_read(tarvik_cookie *cookie, Block &request, uint32_t op, void **out) {
  if (!op_expects_reply(op)) return raw_send(cookie, request.bytes()).code();
  Block reply(cookie);
  if (!reply) return ENOMEM;
  return raw_exchange(cookie, request.bytes(), reply, out).code();
}

// ---- asp ----

int asp_request(tarvik_cookie *cookie, uint32_t op, uint16_t owner, uint16_t kind, uint16_t a,
                uint16_t b, uint32_t key, uint32_t id, void **out) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr) return EINVAL;
  if (op_expects_reply(op) && (key == 0 || out == nullptr)) return EINVAL;
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_raw_header(m, TLK_MSG_ASP_CONFIG, op, next_seq(cookie), kAspFixed, 0);
  store_u32(m + 24, id);
  store_u32(m + 32, key);
  store_u16(m + 40, kind);
  store_u16(m + 42, a);
  store_u16(m + 44, b);
  store_u16(m + 46, owner);
  return send_or_read(cookie, request, op, out);
}

// ---- l2tp ----

int l2tp_request(tarvik_cookie *cookie, uint8_t kind, uint32_t op, const tarvik_l2tp_cfg *cfg,
                 const uint16_t *lac, void **out) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || cfg == nullptr) return EINVAL;
  const bool session = kind == TARVIK_L2TP_SESSION || kind == TARVIK_L2TP_LAC_SESSION ||
                       kind == TARVIK_L2TP_LNS_SESSION;
  if (op == TLK_OP_ADD && (cfg->local == nullptr || cfg->remote == nullptr)) return EINVAL;
  if (session && cfg->local == nullptr) return EINVAL;
  if (op_expects_reply(op) && (cfg->key == 0 || out == nullptr)) return EINVAL;
  if (cfg->data_len != 0 && cfg->data == nullptr) return EINVAL;
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  const uint32_t var = 2 * kL2tpAddrLen + cfg->data_len;
  fill_raw_header(m, TLK_MSG_L2TP_CONFIG, op, next_seq(cookie), kL2tpFixed, var);
  m[24] = kind;
  m[40] = cfg->af;
  store_u16(m + 42, cfg->group);
  m[44] = cfg->data_len;
  store_u16(m + 46, cfg->tunnel);
  store_u16(m + 48, cfg->peer);
  store_u16(m + 50, cfg->session);
  store_u32(m + 52, cfg->value);
  store_u32(m + 56, cfg->key);
  if (cfg->ifl != nullptr) store_u32(m + 76, *cfg->ifl);
  for (int i = 0; lac != nullptr && i < 4; ++i) store_u16(m + 80 + 2 * i, lac[i]);
  if (cfg->local != nullptr) memcpy(m + kL2tpFixed, cfg->local, kL2tpAddrLen);
  if (cfg->remote != nullptr) memcpy(m + kL2tpFixed + kL2tpAddrLen, cfg->remote, kL2tpAddrLen);
  if (cfg->data_len != 0) memcpy(m + kL2tpFixed + 2 * kL2tpAddrLen, cfg->data, cfg->data_len);
  return send_or_read(cookie, request, op, out);
}

// The LAC and LNS forms carry four u16 values at 80: the two ports, the two bytes packed into
// one word (first byte low), and the third byte.
int l2tp_lac(tarvik_cookie *cookie, uint8_t kind, uint32_t op, const tarvik_l2tp_cfg *cfg,
             uint16_t x, uint16_t y, uint8_t p, uint8_t q, uint8_t r) {
  const uint16_t words[4] = {x, y, static_cast<uint16_t>(p | (q << 8)), r};
  return l2tp_request(cookie, kind, op, cfg, words, nullptr);
}

// The reply size a statistics mask asks for: 44, or 68 with bit value 1, and a section more for
// each further bit.
uint32_t monstats_reply_size(uint32_t mon_mask) {
  uint32_t size = (mon_mask & 1) != 0 ? 68 : kMonStatsFixed;
  if ((mon_mask & 2) != 0) size += 40;
  if ((mon_mask & 4) != 0) size += 48;
  if ((mon_mask & 8) != 0) size += 48;
  if ((mon_mask & 16) != 0) size += 24;
  return size;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_asp_cfg_add(tarvik_cookie *cookie, uint16_t asp_owner, uint16_t asp_kind,
                                  uint16_t asp_a, uint16_t asp_b, uint32_t asp_key,
                                  uint32_t asp_id) {
  return asp_request(cookie, TLK_OP_ADD, asp_owner, asp_kind, asp_a, asp_b, asp_key, asp_id,
                     nullptr);
}

TLK_EXPORT int tarvik_asp_cfg_change(tarvik_cookie *cookie, uint16_t asp_kind, uint16_t asp_a,
                                     uint16_t asp_b, uint32_t asp_key, uint32_t asp_id) {
  return asp_request(cookie, TLK_OP_CHANGE, kAspOwnerKernel, asp_kind, asp_a, asp_b, asp_key,
                     asp_id, nullptr);
}

TLK_EXPORT int tarvik_asp_cfg_delete(tarvik_cookie *cookie, uint16_t asp_a, uint16_t asp_b,
                                     uint32_t asp_key, uint32_t asp_id) {
  return asp_request(cookie, TLK_OP_DELETE, kAspOwnerKernel, 0, asp_a, asp_b, asp_key, asp_id,
                     nullptr);
}

TLK_EXPORT int tarvik_asp_cfg_get(tarvik_cookie *cookie, uint16_t asp_a, uint16_t asp_b,
                                  uint32_t asp_key, uint32_t asp_id, uint32_t op, void **msg_out) {
  return asp_request(cookie, op, kAspOwnerKernel, 0, asp_a, asp_b, asp_key, asp_id, msg_out);
}

#define L2TP_ENTRIES(name, kind)                                                                  \
  TLK_EXPORT int tarvik_l2tp_##name##_add(tarvik_cookie *cookie, const tarvik_l2tp_cfg *cfg) {    \
    return l2tp_request(cookie, kind, TLK_OP_ADD, cfg, nullptr, nullptr);                         \
  }                                                                                               \
  TLK_EXPORT int tarvik_l2tp_##name##_change(tarvik_cookie *cookie, const tarvik_l2tp_cfg *cfg) { \
    return l2tp_request(cookie, kind, TLK_OP_CHANGE, cfg, nullptr, nullptr);                      \
  }                                                                                               \
  TLK_EXPORT int tarvik_l2tp_##name##_delete(tarvik_cookie *cookie, const tarvik_l2tp_cfg *cfg) { \
    return l2tp_request(cookie, kind, TLK_OP_DELETE, cfg, nullptr, nullptr);                      \
  }                                                                                               \
  TLK_EXPORT int tarvik_l2tp_##name##_get(tarvik_cookie *cookie, const tarvik_l2tp_cfg *cfg,      \
                                          uint32_t op, void **msg_out) {                          \
    return l2tp_request(cookie, kind, op, cfg, nullptr, msg_out);                                 \
  }

L2TP_ENTRIES(tunnel_cfg, TARVIK_L2TP_TUNNEL)
L2TP_ENTRIES(session_cfg, TARVIK_L2TP_SESSION)
L2TP_ENTRIES(tunnel_group, TARVIK_L2TP_TUNNEL_GROUP)
L2TP_ENTRIES(global, TARVIK_L2TP_GLOBAL)
#undef L2TP_ENTRIES

TLK_EXPORT int tarvik_l2tp_lac_session_cfg_add(tarvik_cookie *cookie, const tarvik_l2tp_cfg *cfg,
                                               uint16_t x, uint16_t y, uint8_t p, uint8_t q,
                                               uint8_t r) {
  return l2tp_lac(cookie, TARVIK_L2TP_LAC_SESSION, TLK_OP_ADD, cfg, x, y, p, q, r);
}

TLK_EXPORT int tarvik_l2tp_lac_session_cfg_delete(tarvik_cookie *cookie, const tarvik_l2tp_cfg *cfg,
                                                  uint16_t x, uint16_t y, uint8_t p, uint8_t q,
                                                  uint8_t r) {
  return l2tp_lac(cookie, TARVIK_L2TP_LAC_SESSION, TLK_OP_DELETE, cfg, x, y, p, q, r);
}

TLK_EXPORT int tarvik_l2tp_lns_session_cfg_add(tarvik_cookie *cookie, const tarvik_l2tp_cfg *cfg,
                                               uint16_t x, uint16_t y, uint8_t p, uint8_t q,
                                               uint8_t r) {
  return l2tp_lac(cookie, TARVIK_L2TP_LNS_SESSION, TLK_OP_ADD, cfg, x, y, p, q, r);
}

TLK_EXPORT int tarvik_l2tp_lns_session_cfg_delete(tarvik_cookie *cookie, const tarvik_l2tp_cfg *cfg,
                                                  uint16_t x, uint16_t y, uint8_t p, uint8_t q,
                                                  uint8_t r) {
  return l2tp_lac(cookie, TARVIK_L2TP_LNS_SESSION, TLK_OP_DELETE, cfg, x, y, p, q, r);
}

// The key's third word is signed and goes out widened to 64 bits; absent values go as all ones.
TLK_EXPORT int tarvik_qsrm_op(tarvik_cookie *cookie, uint32_t op, uint32_t qsr_a, uint32_t qsr_b,
                              uint32_t qsr_c, const struct tarvik_qsr_key *qsr_key,
                              const uint64_t *qsr_v1, const uint64_t *qsr_v2, void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr) return EINVAL;
  if (op_expects_reply(op) && msg_out == nullptr) return EINVAL;
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_raw_header(m, TLK_MSG_QSR, op, next_seq(cookie), kQsrFixed, 0);
  store_u32(m + 24, qsr_a);
  store_u32(m + 36, qsr_b);
  store_u32(m + 40, qsr_c);
  if (qsr_key != nullptr) {
    store_u32(m + 48, qsr_key->first);
    store_u32(m + 52, qsr_key->second);
    store_u64(m + 56, static_cast<uint64_t>(static_cast<int64_t>(qsr_key->third)));
  }
  store_u64(m + 64, qsr_v1 != nullptr ? *qsr_v1 : ~uint64_t{0});
  store_u64(m + 72, qsr_v2 != nullptr ? *qsr_v2 : ~uint64_t{0});
  return send_or_read(cookie, request, op, msg_out);
}

TLK_EXPORT int tarvik_mon_get(tarvik_cookie *cookie, uint32_t op, void **msg_out, const char *name,
                              uint32_t mon_a, uint8_t mon_b, uint32_t mon_c) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr || msg_out == nullptr || name == nullptr) return EINVAL;
  Block request(cookie), reply(cookie);
  if (!request || !reply) return ENOMEM;
  uint8_t *m = request.bytes();
  const size_t chars = strnlen(name, kMonNameChars);
  const uint16_t name_len = static_cast<uint16_t>(chars + 1);
  // A request's own section counts (the group name at 90) are 0: only the name follows.
  fill_raw_header(m, TLK_MSG_MONITORING, op, next_seq(cookie), kMonFixed, name_len);
  m[tlk::wire::kAux2At] = mon_b;
  store_u32(m + 32, mon_a);
  store_u32(m + 76, mon_c);
  store_u16(m + 88, name_len);
  memcpy(m + kMonFixed, name, chars);
  return raw_exchange(cookie, m, reply, msg_out).code();
}

TLK_EXPORT int tarvik_monstats_get_by_index(tarvik_cookie *cookie, uint32_t mon_index,
                                            uint32_t mon_mask, uint32_t op, void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Block request(cookie), reply(cookie);
  if (!request || !reply) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_raw_header(m, TLK_MSG_MON_STATS, op, next_seq(cookie), kMonStatsFixed, 0);
  store_u32(m + 24, mon_index);
  store_u32(m + 28, mon_mask);
  // The reply block is announced at the size the mask asks for; the read fills it.
  store_u32(reply.bytes() + tlk::wire::kMsglenAt, monstats_reply_size(mon_mask));
  return raw_exchange(cookie, m, reply, msg_out).code();
}

}  // extern "C"
