// Logical interface statistics: raw "iflstats" (type 16) reads by index or by name, the clear, the
// read whose answer comes back as a notification, and the registration for those notifications,
// which only some products accept.
//
// The synchronous entries are replaceable: a client calls through the exported pointers
// tarvik_iflsm_*, which start out at the __tarvik_iflsm_* defaults below.
//
// "iflstats" request (72 bytes, then the name):
//
//    0      4   5   6       8              12        16    20        28     32      38    41
//   +------+---+---+---+---+--------------+---------+-----+---------+------+-------+-----+-----+--
//   |  0   |'d'|16 |op |   | whole length |   seq   |  0  | 72 (u16)| unit | index |type |nlen |
//   +------+---+---+---+---+--------------+---------+-----+---------+------+-------+-----+-----+--
//     42..46            58              64                  72
//   --+-----------------+---------------+-------------------+------------------+
//     | further lengths | kernel reply  | caller's cookie   | name, end byte   |
//     | (left 0)        | (u16)         | (u64)             |                  |
//   --+-----------------+---------------+-------------------+------------------+
//
// The whole length is 72 plus each variable field rounded up to 4: the name (its length byte at
// 41 says 61 when the name was cut at 60 characters) and the fields whose lengths stand at 42,
// 43, 44 and 46, which the library leaves empty.
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
using tlk::request::raw_exchange_long;
using tlk::request::raw_send;
using tlk::wire::round4;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

constexpr uint16_t kStatsFixed = 72;
constexpr size_t kRawNameMax = 60;      // characters kept of a name in the raw family
constexpr uint8_t kNameCutLength = 61;  // the length byte of a name that had to be cut
constexpr uint16_t kKernelReply = 1;    // at 58: answer with a notification

// The offsets of the request's own fields.
constexpr size_t kUnitAt = 28, kIndexAt = 32, kTypeAt = 38, kNameLenAt = 41, kKernelReplyAt = 58,
                 kCallerCookieAt = 64;
// Length bytes of the further variable fields; each counts into the whole length.
constexpr size_t kMoreLengthsAt[] = {42, 43, 44, 46};

struct StatsRequest {
  uint32_t op = TLK_OP_GET;
  uint32_t seq = 0;
  uint32_t index = 0;
  uint32_t unit = 0;
  const char *name = nullptr;
  uint8_t stat_type = 0;
  uint16_t kernel_reply = 0;
  uint32_t caller_cookie = 0;
};

// Builds an "iflstats" request in `msg` (zeroed, at least 72 + 64 bytes); its whole length is
// in the header.
void build_stats(uint8_t *msg, const StatsRequest &r) {
  store_u32(msg + kUnitAt, r.unit);
  store_u32(msg + kIndexAt, r.index);
  msg[kTypeAt] = r.stat_type;
  store_u16(msg + kKernelReplyAt, r.kernel_reply);
  store_u32(msg + kCallerCookieAt, r.caller_cookie);  // the high half stays 0
  uint32_t var = 0;
  if (r.name != nullptr) {
    const size_t full = strlen(r.name);
    const size_t n = full > kRawNameMax ? kRawNameMax : full;
    memcpy(msg + kStatsFixed, r.name, n);
    msg[kStatsFixed + n] = 0;
    msg[kNameLenAt] = static_cast<uint8_t>(full > kRawNameMax ? kNameCutLength : n + 1);
    var += round4(uint32_t{msg[kNameLenAt]});
  }
  for (size_t at : kMoreLengthsAt) var += round4(uint32_t{msg[at]});
  (void)fill_raw_header(msg, TLK_MSG_IFLSTATS, r.op, r.seq, kStatsFixed, var);
}

int stats_get(tarvik_cookie *cookie, StatsRequest r, void **out) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  Block msg(cookie);
  if (!msg) return ENOMEM;
  r.seq = next_seq(cookie);
  build_stats(msg.bytes(), r);
  return raw_exchange_long(msg, out).code();
}

// Whether the product takes asynchronous statistics of logical interfaces.
bool model_accepted(uint16_t model) {
  struct Range {
    uint16_t first, last;
  };
  static const Range kModels[] = {{2, 9},     {12, 12},   {14, 15},   {20, 20},   {36, 46},
                                  {75, 78},   {87, 87},   {91, 91},   {100, 101}, {107, 107},
                                  {109, 109}, {111, 117}, {119, 119}, {125, 126}, {169, 169}};
  for (const Range &r : kModels) {
    if (model >= r.first && model <= r.last) return true;
  }
  return ops().product_is_platform_varn(0, 0) != 0;
}

}  // namespace

extern "C" {

TLK_EXPORT int __tarvik_iflsm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint8_t stat_type,
                                           uint32_t op, void **out) {
  StatsRequest r;
  r.op = op;
  r.index = index;
  r.stat_type = stat_type;
  return stats_get(cookie, r, out);
}

TLK_EXPORT int __tarvik_iflsm_get_by_index_and_subtype(tarvik_cookie *cookie, uint32_t index,
                                                       uint32_t /*subtype*/, uint8_t stat_type,
                                                       uint32_t op, void **out) {
  return __tarvik_iflsm_get_by_index(cookie, index, stat_type, op, out);
}

TLK_EXPORT int __tarvik_iflsm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t unit,
                                          uint8_t stat_type, uint32_t op, void **out) {
  if (name == nullptr) {
    if (out != nullptr) *out = nullptr;
    return EINVAL;
  }
  StatsRequest r;
  r.op = op;
  r.unit = unit;
  r.name = name;
  r.stat_type = stat_type;
  return stats_get(cookie, r, out);
}

TLK_EXPORT int __tarvik_iflsm_get_by_name_and_subtype(tarvik_cookie *cookie, const char *name,
                                                      uint32_t unit, uint32_t /*subtype*/,
                                                      uint8_t stat_type, uint32_t op, void **out) {
  return __tarvik_iflsm_get_by_name(cookie, name, unit, stat_type, op, out);
}

TLK_EXPORT int __tarvik_iflsm_clear_by_index(tarvik_cookie *cookie, uint32_t index,
                                             uint8_t stat_type) {
  if (cookie == nullptr) return EINVAL;
  uint8_t msg[kStatsFixed] = {};  // no name, so the fixed part is all there is
  StatsRequest r;
  r.op = TLK_OP_CLEAR;
  r.seq = next_seq(cookie);
  r.index = index;
  r.stat_type = stat_type;
  build_stats(msg, r);
  return raw_send(cookie, msg).code();
}

TLK_EXPORT uintptr_t __tarvik_iflsm_cleanup(uintptr_t word) {
  return word;
}

TLK_EXPORT tarvik_iflsm_get_by_index_fn tarvik_iflsm_get_by_index = __tarvik_iflsm_get_by_index;
TLK_EXPORT tarvik_iflsm_get_by_index_and_subtype_fn tarvik_iflsm_get_by_index_and_subtype =
    __tarvik_iflsm_get_by_index_and_subtype;
TLK_EXPORT tarvik_iflsm_get_by_name_fn tarvik_iflsm_get_by_name = __tarvik_iflsm_get_by_name;
TLK_EXPORT tarvik_iflsm_get_by_name_and_subtype_fn tarvik_iflsm_get_by_name_and_subtype =
    __tarvik_iflsm_get_by_name_and_subtype;
TLK_EXPORT tarvik_iflsm_clear_by_index_fn tarvik_iflsm_clear_by_index =
    __tarvik_iflsm_clear_by_index;
TLK_EXPORT tarvik_iflsm_cleanup_fn tarvik_iflsm_cleanup = __tarvik_iflsm_cleanup;

TLK_EXPORT int async_tarvik_iflsm_get_by_index_kernel(tarvik_cookie *cookie, uint32_t index,
                                                      const char *name, uint8_t stat_type,
                                                      uint32_t op, uint32_t caller_cookie) {
  // Unlike the device read, "xle" and "af" are not among these.
  static const char *const kPrefixes[] = {"ae", "fe", "et", "ge", "xe", "sxe", "mge", "ot"};
  if (cookie == nullptr || name == nullptr) return EINVAL;
  if (op == TLK_OP_CLEAR) return EOPNOTSUPP;
  bool known = false;
  for (const char *p : kPrefixes) known = known || strncmp(name, p, strlen(p)) == 0;
  if (!known) return EOPNOTSUPP;
  uint8_t msg[kStatsFixed] = {};
  StatsRequest r;
  r.op = op;
  // A statistics session takes its answers as notifications of sequence 0; drawing a number
  // here would put the counter ahead of what the reads expect.
  r.seq = cookie->async_info != nullptr && cookie->used_by_stats != 0 ? 0 : next_seq(cookie);
  r.index = index;
  r.stat_type = stat_type;
  r.kernel_reply = kKernelReply;
  r.caller_cookie = caller_cookie;
  build_stats(msg, r);  // no name travels
  return raw_send(cookie, msg).code();
}

TLK_EXPORT int tarvik_iflsm_async_kernel_register(tarvik_cookie *cookie, void *arg,
                                                  tarvik_async_handler_t handler) {
  return tlk::request::register_for_model(cookie, TLK_MSG_IFLSTATS, arg, handler, model_accepted);
}

}  // extern "C"
