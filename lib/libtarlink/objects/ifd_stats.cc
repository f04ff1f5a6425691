// Device statistics and alarms: raw "ifdstats" (type 15) and "ifdalarm" (type 20) requests, read
// synchronously, cleared, or answered as a notification; and the registration for those
// notifications, which only some products accept.
//
// "ifdstats" request (72 bytes, then the name):
//
//    0      4   5   6       8              12        16    20        26    28    31
//   +------+---+---+---+---+--------------+---------+-----+---------+-----+-----+-----+--
//   |  0   |'c'|15 |op |   | whole length |   seq   |  0  | 72 (u16)| idx |type |nlen |
//   +------+---+---+---+---+--------------+---------+-----+---------+-----+-----+-----+--
//     58          64                  72
//   --+-----------+-------------------+------------------+
//     |stat_flags | caller's cookie   | name, end byte   |
//   --+-----------+-------------------+------------------+
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "wire.h"

namespace {

using tlk::platform::ops;
using tlk::request::Block;
using tlk::request::fill_raw_header;
using tlk::request::next_seq;
using tlk::request::raw_exchange;
using tlk::request::raw_exchange_long;
using tlk::request::raw_send;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

constexpr uint16_t kStatsFixed = 72, kAlarmFixed = 48;
constexpr size_t kRawNameMax = 60;      // characters kept of a name in the raw family
constexpr uint8_t kNameCutLength = 61;  // the length byte of a name that had to be cut
constexpr uint16_t kVoqFlags = 256;

// Copies a name behind a fixed part, cut at 60 characters; the length with its end byte, or 61
// when it was cut.
size_t put_raw_name(uint8_t *at, const char *name, uint16_t *length_field) {
  const size_t full = strlen(name);
  const size_t n = full > kRawNameMax ? kRawNameMax : full;
  memcpy(at, name, n);
  at[n] = 0;
  *length_field = static_cast<uint16_t>(full > kRawNameMax ? kNameCutLength : n + 1);
  return n + 1;
}

// Builds an "ifdstats" request in `msg` (zeroed, at least 72 + 64 bytes); its whole length is
// in the header.
void build_stats(uint8_t *msg, uint32_t op, uint32_t seq, uint32_t index, const char *name,
                 uint8_t stat_type, uint16_t stat_flags, uint32_t caller_cookie) {
  store_u16(msg + 26, static_cast<uint16_t>(index));
  msg[28] = stat_type;
  store_u16(msg + 58, stat_flags);
  store_u32(msg + 64, caller_cookie);  // the high half stays 0
  uint32_t name_bytes = 0;
  if (name != nullptr) {
    uint16_t len = 0;
    name_bytes = static_cast<uint32_t>(put_raw_name(msg + kStatsFixed, name, &len));
    msg[31] = static_cast<uint8_t>(len);
  }
  (void)fill_raw_header(msg, TLK_MSG_IFDSTATS, op, seq, kStatsFixed, name_bytes);
}

int stats_get(tarvik_cookie *cookie, uint32_t index, const char *name, uint8_t stat_type,
              uint32_t op, uint16_t stat_flags, void **out) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  Block msg(cookie);
  if (!msg) return ENOMEM;
  build_stats(msg.bytes(), op, next_seq(cookie), index, name, stat_type, stat_flags, 0);
  return raw_exchange_long(msg, out).code();
}

// The alarm request is 48 bytes, then the name; the reply replaces the request in its block.
int alarm_get(tarvik_cookie *cookie, uint32_t index, const char *name, uint32_t op, void **out) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  Block msg(cookie);
  if (!msg) return ENOMEM;
  uint8_t *m = msg.bytes();
  const uint32_t seq = next_seq(cookie);
  store_u16(m + 24, static_cast<uint16_t>(index));
  uint16_t len = 0;
  if (name != nullptr) {
    (void)put_raw_name(m + kAlarmFixed, name, &len);
    store_u16(m + 36, len);  // the second variable word, at 38, stays 0
  }
  (void)fill_raw_header(m, TLK_MSG_IFDALARM, op, seq, kAlarmFixed, len);
  return raw_exchange(cookie, m, msg, out).code();
}

// Whether the product takes asynchronous statistics.
constexpr uint16_t kModels[] = {2,   3,   4,   5,   6,   9,   12,  14,  15,  20,
                                21,  33,  48,  88,  89,  120, 121, 122, 123, 128,
                                137, 138, 152, 161, 170, 215, 216, 217, 218};
constexpr uint16_t kVariantModels[] = {7, 8, 169};

bool model_accepted(uint16_t model) {
  for (uint16_t m : kModels) {
    if (m == model) return true;
  }
  if (ops().product_is_platform_varn(0, 0) != 0) return true;
  for (uint16_t m : kVariantModels) {
    if (m == model) return true;
  }
  return false;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_ifdsm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint8_t stat_type,
                                         uint32_t op, void **out) {
  return stats_get(cookie, index, nullptr, stat_type, op, 0, out);
}

TLK_EXPORT int tarvik_ifdsm_get_by_name(tarvik_cookie *cookie, const char *name, uint8_t stat_type,
                                        uint32_t op, void **out) {
  if (name == nullptr) {
    if (out != nullptr) *out = nullptr;
    return EINVAL;
  }
  return stats_get(cookie, 0, name, stat_type, op, 0, out);
}

TLK_EXPORT int tarvik_ifdsm_buffer_stats_get_by_index(tarvik_cookie *cookie, uint32_t index,
                                                      uint8_t stat_type, uint32_t op, void **out,
                                                      uint16_t stat_flags) {
  return stats_get(cookie, index, nullptr, stat_type, op, stat_flags, out);
}

TLK_EXPORT int tarvik_ifdsm_voq_get_by_index(tarvik_cookie *cookie, uint32_t index,
                                             uint8_t stat_type, uint32_t op, void **out) {
  return stats_get(cookie, index, nullptr, stat_type, op, kVoqFlags, out);
}

TLK_EXPORT int tarvik_ifdsm_clear_by_index(tarvik_cookie *cookie, uint32_t index,
                                           uint8_t stat_type) {
  if (cookie == nullptr) return EINVAL;
  uint8_t msg[kStatsFixed + 64] = {};
  build_stats(msg, TLK_OP_CLEAR, next_seq(cookie), index, nullptr, stat_type, 0, 0);
  return raw_send(cookie, msg).code();
}

TLK_EXPORT int tarvik_ifdalm_get_by_if_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                             void **out) {
  return alarm_get(cookie, index, nullptr, op, out);
}

TLK_EXPORT int tarvik_ifdalm_get_by_if_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                            void **out) {
  if (name == nullptr) {
    if (out != nullptr) *out = nullptr;
    return EINVAL;
  }
  return alarm_get(cookie, 0, name, op, out);
}

TLK_EXPORT int async_tarvik_ifdsm_get_by_index_kernel(tarvik_cookie *cookie, uint16_t reply_flag,
                                                      uint32_t index, const char *name,
                                                      uint8_t stat_type, uint32_t op,
                                                      uint32_t caller_cookie) {
  static const char *const kPrefixes[] = {"xle", "ae", "af",  "et",  "fe",
                                          "ge",  "xe", "sxe", "mge", "ot"};
  if (cookie == nullptr || name == nullptr) return EINVAL;
  if (op != TLK_OP_GET && op != TLK_OP_GETNEXT) return EOPNOTSUPP;
  bool known = false;
  for (const char *p : kPrefixes) known = known || strncmp(name, p, strlen(p)) == 0;
  if (!known) return EOPNOTSUPP;
  if (reply_flag != 128 && reply_flag != 64) return EOPNOTSUPP;
  Block msg(cookie);
  if (!msg) return ENOMEM;
  // No name travels and no sequence number is drawn: the reply is a notification.
  build_stats(msg.bytes(), op, 0, index, nullptr, stat_type, static_cast<uint16_t>(reply_flag | 1),
              caller_cookie);
  return raw_send(cookie, msg.bytes()).code();
}

TLK_EXPORT int tarvik_ifdsm_async_kernel_register(tarvik_cookie *cookie, void *arg,
                                                  tarvik_async_handler_t handler) {
  return tlk::request::register_for_model(cookie, TLK_MSG_IFDSTATS, arg, handler, model_accepted);
}

}  // extern "C"
