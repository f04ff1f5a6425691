// Firewall counters ("dfwstats", type 22) and the firewall log (type 23): raw requests whose
// answer is a run of raw messages, each saying whether more follow, gathered into a message list.
//
// "dfwstats" request and reply (64 bytes, then the names on a request, the counters on a reply):
//
//    0      4   5   6   7   8          12     16    20        24  25  26  28
//   +------+---+---+---+---+----------+------+-----+---------+---+---+---+--------+
//   |  0   |'e'|22 |op | 0 | msglen   | seq  |  0  | 64 (u16)|ct |af | 0 | filter |
//   +------+---+---+---+---+----------+------+-----+---------+---+---+---+--------+
//    32   33  34         36          40          44         46        48         50   56
//   +----+---+----------+-----------+-----------+----------+---------+----------+----+----------+
//   |more| 0 | len1/data| stats_arg_a| stats_arg_b| len2    | async   | flags    | 0  | user_data|
//   +----+---+----------+-----------+-----------+----------+---------+----------+----+----------+
//    64
//   +--------------------------+-----------------------------+
//   | name 1, end byte, pad to4| name 2, end byte, pad to 4  |     (a reply: counters data)
//   +--------------------------+-----------------------------+
//
// `more` is set on every reply but the last of a run; at 34 a request carries the first name's
// length with its end byte, a reply the length of the counters data behind its fixed part.
//
// Log request (52 bytes): af at 24, selector at 25, the time as two words at 28 and 32, ifindex
// at 36, filter at 40.  A reply's byte 47 is its `more`.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "wire.h"

namespace {

using tlk::platform::ops;
using tlk::request::fill_raw_header;
using tlk::request::next_seq;
using tlk::wire::load_u16;
using tlk::wire::load_u32;
using tlk::wire::round4;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

constexpr uint16_t kStatsFixed = 64;
constexpr size_t kCtAt = 24, kAfAt = 25, kFilterAt = 28, kMoreAt = 32, kLen1At = 34, kArgAAt = 36,
                 kArgBAt = 40, kLen2At = 44, kAsyncAt = 46, kFlagsAt = 48, kUserDataAt = 56;
constexpr size_t kNameMax = 128;  // characters kept of a name
constexpr uint8_t kByIndex = 5, kByName = 4;

constexpr uint16_t kLogFixed = 52;
constexpr size_t kLogAfAt = 24, kLogSelectorAt = 25, kLogSecAt = 28, kLogUsecAt = 32,
                 kLogIfindexAt = 36, kLogFilterAt = 40, kLogMoreAt = 47;

// A list built by adding holds at most this many messages (its table never grows past its first
// allocation), so a run that would need more is refused rather than overrun it.
constexpr uint16_t kListMax = 16;

// Copies `name` to `at`, cut at 128 characters and always terminated; the bytes used with the
// end byte (129 for a name that was cut).
uint16_t put_name(uint8_t *at, const char *name) {
  const size_t n = strnlen(name, kNameMax);
  memcpy(at, name, n);
  at[n] = 0;
  return static_cast<uint16_t>(n + 1);
}

struct StatsRequest {
  uint32_t op = TLK_OP_GET;
  uint32_t seq = 0;
  uint32_t filter = 0;
  uint8_t af = 0;
  uint8_t counter_type = 0;
  const char *name1 = nullptr;
  const char *name2 = nullptr;
  uint32_t arg_a = 0, arg_b = 0;
  uint16_t flags = 0;
  bool async = false;
  uint32_t user_data = 0;
};

// Room for the fixed part and two cut names with their padding.
constexpr size_t kStatsRequestMax = kStatsFixed + 2 * round4(kNameMax + 1);

// Lays the request out in `msg` (zeroed, kStatsRequestMax bytes) and gives its whole length.
uint32_t build_stats(uint8_t *msg, const StatsRequest &r) {
  msg[kCtAt] = r.counter_type;
  msg[kAfAt] = r.af;
  store_u32(msg + kFilterAt, r.filter);
  store_u32(msg + kArgAAt, r.arg_a);
  store_u32(msg + kArgBAt, r.arg_b);
  store_u16(msg + kAsyncAt, r.async ? 1 : 0);
  store_u16(msg + kFlagsAt, r.flags & 1u);
  store_u32(msg + kUserDataAt, r.user_data);  // the high word stays 0
  uint32_t var = 0;
  if (r.name1 != nullptr) {
    const uint16_t len = put_name(msg + kStatsFixed, r.name1);
    store_u16(msg + kLen1At, len);
    var = round4<uint32_t>(len);
  }
  if (r.name2 != nullptr) {
    const uint16_t len = put_name(msg + kStatsFixed + var, r.name2);
    store_u16(msg + kLen2At, len);
    var += len;
  }
  return fill_raw_header(msg, TLK_MSG_DFWSTATS, r.op, r.seq, kStatsFixed, var);
}

int write_stats(tarvik_cookie *cookie, const StatsRequest &r) {
  uint8_t msg[kStatsRequestMax] = {};
  const uint32_t len = build_stats(msg, r);
  return tarvik_write(cookie, msg, len);
}

// Reads messages into `list` while the one just read says more follow (its byte at `more_at` is
// 1); each message joins the list as it arrives.  On a failure the message in hand is freed (the
// list keeps what it took).  `user_data`, if given, takes each message's echoed word.
int read_run(tarvik_cookie *cookie, tarvik_msg_list_t *list, size_t more_at, uint64_t *user_data) {
  for (;;) {
    void *msg = nullptr;
    size_t len = 0;
    int err = tarvik_long_msg_read(cookie, &msg, &len);
    if (err == 0 && list->count >= kListMax) err = EMSGSIZE;
    if (err == 0) err = tarvik_msg_list_add(cookie, list, msg);
    if (err != 0) {
      tarvik_msg_free(cookie, msg);
      return err;
    }
    const auto *b = static_cast<const uint8_t *>(msg);
    if (user_data != nullptr && len >= kUserDataAt + 8) memcpy(user_data, b + kUserDataAt, 8);
    if (len <= more_at || b[more_at] != 1) return 0;
  }
}

// A fresh list filled by read_run, handed out through *list_out; NULL there on failure.
int read_list(tarvik_cookie *cookie, tarvik_msg_list_t *list, size_t more_at,
              tarvik_msg_list_t **list_out, uint64_t *user_data) {
  const int err = read_run(cookie, list, more_at, user_data);
  if (err != 0) {
    tarvik_msg_list_free(cookie, list);
    return err;
  }
  *list_out = list;
  return 0;
}

// The synchronous routine: with `async` the request goes out marked so and nothing is read.
int counters_request(tarvik_cookie *cookie, StatsRequest r, tarvik_msg_list_t **list_out,
                     uint32_t *seq_out) {
  if (list_out != nullptr) *list_out = nullptr;
  if (cookie == nullptr || (!r.async && list_out == nullptr)) return EINVAL;
  // A statistics session takes asynchronous answers outside its numbering: sequence 0.
  r.seq = r.async && cookie->used_by_stats != 0 ? 0 : next_seq(cookie);
  if (seq_out != nullptr) *seq_out = r.seq;
  tarvik_msg_list_t *list = nullptr;
  if (!r.async) {
    list = tarvik_msg_list_alloc(cookie);
    if (list == nullptr) return ENOMEM;
  }
  const int err = write_stats(cookie, r);
  if (err != 0 || r.async) {
    tarvik_msg_list_free(cookie, list);
    return err;
  }
  return read_list(cookie, list, kMoreAt, list_out, nullptr);
}

// The `_async` entries: sequence 0, the caller's word echoed, nothing read.
int counters_async(tarvik_cookie *cookie, StatsRequest r, uint32_t *seq_out) {
  if (seq_out != nullptr) *seq_out = 0;
  if (cookie == nullptr) return EINVAL;
  r.seq = 0;
  r.async = true;
  return write_stats(cookie, r);
}

int counters_clear(tarvik_cookie *cookie, uint8_t af, uint32_t filter, uint8_t counter_type,
                   const char *name) {
  if (cookie == nullptr) return EINVAL;
  StatsRequest r;
  r.op = TLK_OP_CLEAR;
  r.seq = next_seq(cookie);
  r.af = af;
  r.filter = filter;
  r.counter_type = counter_type;
  r.name1 = name;
  return write_stats(cookie, r);
}

// The one log routine: a read of the run, or with op clear a request alone.
int log_request(tarvik_cookie *cookie, uint8_t af, uint32_t op, uint8_t selector,
                const struct timeval *time, uint32_t filter, uint32_t ifindex,
                tarvik_msg_list_t **list_out) {
  if (list_out != nullptr) *list_out = nullptr;
  if (cookie == nullptr) return EINVAL;
  if (list_out == nullptr && op != TLK_OP_CLEAR) return EINVAL;
  tarvik_msg_list_t *list = tarvik_msg_list_alloc(cookie);
  if (list == nullptr) return ENOMEM;
  uint8_t msg[kLogFixed] = {};
  msg[kLogAfAt] = af;
  msg[kLogSelectorAt] = selector;
  if (time != nullptr) {
    store_u32(msg + kLogSecAt, static_cast<uint32_t>(time->tv_sec));
    store_u32(msg + kLogUsecAt, static_cast<uint32_t>(time->tv_usec));
  }
  store_u32(msg + kLogIfindexAt, ifindex);
  store_u32(msg + kLogFilterAt, filter);
  const uint32_t len =
      fill_raw_header(msg, TLK_MSG_FIREWALL_LOG, op, next_seq(cookie), kLogFixed, 0);
  const int err = tarvik_write(cookie, msg, len);
  if (err != 0 || op == TLK_OP_CLEAR) {
    tarvik_msg_list_free(cookie, list);
    return err;
  }
  return read_list(cookie, list, kLogMoreAt, list_out, nullptr);
}

// Whether the message is long enough to hold the fields of the fixed part; a shorter one is read
// as if they were all 0.
bool whole_fixed_part(const uint8_t *m) {
  return load_u32(m + tlk::wire::kMsglenAt) >= kStatsFixed;
}

// The length of the counters data that a message claims.
uint16_t claimed_data(const uint8_t *m) {
  return whole_fixed_part(m) ? load_u16(m + kLen1At) : 0;
}

// The counters data of one message: the claimed length from its fixed part on, as much of it as
// the message holds.
size_t data_in(const uint8_t *m, size_t *from) {
  const uint32_t whole = load_u32(m + tlk::wire::kMsglenAt);
  const uint16_t fixed = load_u16(m + tlk::wire::kFixedlenAt);
  const uint16_t data = claimed_data(m);
  *from = fixed;
  if (whole <= fixed) return 0;
  return data < whole - fixed ? data : whole - fixed;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_dfwsm_get_by_index(tarvik_cookie *cookie, uint32_t filter, uint8_t af,
                                         uint32_t op, uint32_t stats_arg_a, uint8_t counter_type,
                                         uint16_t stats_flag, tarvik_msg_list_t **list_out) {
  StatsRequest r;
  r.op = op;
  r.filter = filter;
  r.af = af;
  r.arg_a = stats_arg_a;
  r.counter_type = counter_type;
  r.flags = stats_flag;
  return counters_request(cookie, r, list_out, nullptr);
}

TLK_EXPORT int tarvik_dfwsm_get_by_filter_index_counter_name(
    tarvik_cookie *cookie, uint32_t filter, const char *name, uint8_t af, uint8_t counter_type,
    tarvik_msg_list_t **list_out, int async, uint16_t stats_flag, uint32_t *seq_out) {
  StatsRequest r;
  r.filter = filter;
  r.name1 = name;
  r.af = af;
  r.counter_type = counter_type;
  r.async = async != 0;
  r.flags = stats_flag;
  return counters_request(cookie, r, list_out, seq_out);
}

TLK_EXPORT int tarvik_dfwsm_get_psa_by_index(tarvik_cookie *cookie, uint32_t filter, uint8_t af,
                                             uint32_t op, const char *name2, uint32_t stats_arg_a,
                                             uint32_t stats_arg_b, uint8_t counter_type,
                                             tarvik_msg_list_t **list_out) {
  StatsRequest r;
  r.op = op;
  r.filter = filter;
  r.af = af;
  r.name2 = name2;
  r.arg_a = stats_arg_a;
  r.arg_b = stats_arg_b;
  r.counter_type = counter_type;
  return counters_request(cookie, r, list_out, nullptr);
}

TLK_EXPORT int tarvik_dfwsm_get_by_index_async(tarvik_cookie *cookie, uint32_t filter, uint8_t af,
                                               uint32_t op, uint32_t stats_arg_a,
                                               uint8_t counter_type, uint16_t stats_flag,
                                               uint32_t *seq_out, uint32_t user_data) {
  StatsRequest r;
  r.op = op;
  r.filter = filter;
  r.af = af;
  r.arg_a = stats_arg_a;
  r.counter_type = counter_type;
  r.flags = stats_flag;
  r.user_data = user_data;
  return counters_async(cookie, r, seq_out);
}

TLK_EXPORT int tarvik_dfwsm_get_by_filter_index_counter_name_async(
    tarvik_cookie *cookie, uint32_t filter, const char *name, uint8_t af, uint8_t counter_type,
    uint32_t *seq_out, uint16_t stats_flag, uint32_t user_data) {
  StatsRequest r;
  r.filter = filter;
  r.name1 = name;
  r.af = af;
  r.counter_type = counter_type;
  r.flags = stats_flag;
  r.user_data = user_data;
  return counters_async(cookie, r, seq_out);
}

TLK_EXPORT int tarvik_dfwsm_get_async_cb(tarvik_cookie *cookie, void *msg,
                                         tarvik_msg_list_t **list_out, uint32_t *seq_out,
                                         uint16_t *flags_out, uint32_t *user_data_out) {
  if (list_out != nullptr) *list_out = nullptr;
  if (cookie == nullptr || msg == nullptr || list_out == nullptr) return EINVAL;
  tarvik_msg_list_t *list = tarvik_msg_list_alloc(cookie);
  if (list == nullptr || tarvik_msg_list_add(cookie, list, msg) != 0) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, "Malloc failure for tarvik_msg_list_t");
    tarvik_msg_list_free(cookie, list);
    tarvik_msg_free(cookie, msg);
    return 0;
  }
  const auto *b = static_cast<const uint8_t *>(msg);
  const bool whole = whole_fixed_part(b);
  uint64_t kernel_user_data = 0;
  if (whole) memcpy(&kernel_user_data, b + kUserDataAt, 8);
  const auto user_data = static_cast<uint32_t>(kernel_user_data);
  if (seq_out != nullptr) *seq_out = load_u32(b + tlk::wire::kSeqAt);
  if (user_data_out != nullptr) *user_data_out = user_data;
  if (flags_out != nullptr) *flags_out = whole ? load_u16(b + kFlagsAt) : 0;
  char line[256];
  snprintf(line, sizeof line, "%s: tarvik_dfwsm_get_async_cb:u_data:%lx k_usr_d:%llx \n", __func__,
           static_cast<unsigned long>(user_data),
           static_cast<unsigned long long>(kernel_user_data));
  ops().syslog(7, line);
  if (whole && b[kMoreAt] == 1) {
    const int err = read_run(cookie, list, kMoreAt, nullptr);
    if (err != 0) {
      tarvik_err(cookie, TLK_LEVEL_FATAL, "tarvik_long_msg_read failed error [%s]\n",
                 strerror(err));
      tarvik_msg_list_free(cookie, list);  // the first message goes with it
      return err;
    }
  }
  *list_out = list;
  return 0;
}

TLK_EXPORT int tarvik_get_dfwsm_list(tarvik_cookie *cookie, tarvik_msg_list_t **list_out,
                                     uint64_t *user_data_out) {
  if (list_out != nullptr) *list_out = nullptr;
  if (cookie == nullptr || list_out == nullptr) return EINVAL;
  tarvik_msg_list_t *list = tarvik_msg_list_alloc(cookie);
  if (list == nullptr) return ENOMEM;
  return read_list(cookie, list, kMoreAt, list_out, user_data_out);
}

TLK_EXPORT int tarvik_dfwsm_clear_all(tarvik_cookie *cookie, uint8_t af) {
  return counters_clear(cookie, af, 0, kByIndex, nullptr);
}

TLK_EXPORT int tarvik_dfwsm_clear_by_index(tarvik_cookie *cookie, uint8_t af, uint32_t filter,
                                           const char *name) {
  return counters_clear(cookie, af, filter, kByIndex, name);
}

TLK_EXPORT int tarvik_dfwsm_clear_by_counter_type(tarvik_cookie *cookie, uint8_t af,
                                                  const char *name, uint8_t counter_type) {
  return counters_clear(cookie, af, 0, counter_type, counter_type == kByName ? name : nullptr);
}

TLK_EXPORT uint32_t tarvik_dfwsm_list_to_counter_len(const tarvik_msg_list_t *list) {
  if (list == nullptr || list->type != TLK_MSG_DFWSTATS) return 0;
  uint32_t sum = 0;
  for (int i = 0; i < list->count; ++i) {
    const auto *m = static_cast<const uint8_t *>(tarvik_msg_list_get_by_index(list, i));
    if (m != nullptr) sum += claimed_data(m);
  }
  return sum;
}

TLK_EXPORT int tarvik_dfwsm_list_get_counters(tarvik_cookie *cookie, const tarvik_msg_list_t *list,
                                              void **buffer_out, uint32_t *len_out) {
  if (buffer_out != nullptr) *buffer_out = nullptr;
  if (len_out != nullptr) *len_out = 0;
  if (list == nullptr || buffer_out == nullptr) return EINVAL;
  const uint32_t sum = tarvik_dfwsm_list_to_counter_len(list);
  if (sum == 0) return 0;
  auto *out = static_cast<uint8_t *>(tarvik_size_alloc(cookie, sum));
  if (out == nullptr) return ENOMEM;
  // A message that claims more data than it carries gives what it has; the rest stays zero.
  memset(out, 0, sum);
  uint32_t at = 0;
  for (int i = 0; i < list->count; ++i) {
    const auto *m = static_cast<const uint8_t *>(tarvik_msg_list_get_by_index(list, i));
    if (m == nullptr) continue;
    size_t from = 0;
    const size_t n = data_in(m, &from);
    memcpy(out + at, m + from, n);
    at += claimed_data(m);
  }
  *buffer_out = out;
  if (len_out != nullptr) *len_out = sum;
  return 0;
}

TLK_EXPORT int tarvik_dfwlm_get_by_time(tarvik_cookie *cookie, uint8_t af, uint32_t op,
                                        uint8_t selector, const struct timeval *time,
                                        tarvik_msg_list_t **list_out) {
  if (time == nullptr) {
    if (list_out != nullptr) *list_out = nullptr;
    return EINVAL;
  }
  return log_request(cookie, af, op, selector, time, 0, 0, list_out);
}

TLK_EXPORT int tarvik_dfwlm_get_by_filter_index(tarvik_cookie *cookie, uint8_t af, uint32_t op,
                                                uint32_t filter, tarvik_msg_list_t **list_out) {
  return log_request(cookie, af, op, 0, nullptr, filter, 0, list_out);
}

TLK_EXPORT int tarvik_dfwlm_get_by_if_index(tarvik_cookie *cookie, uint8_t af, uint32_t op,
                                            uint32_t ifindex, tarvik_msg_list_t **list_out) {
  return log_request(cookie, af, op, 0, nullptr, 0, ifindex, list_out);
}

TLK_EXPORT int tarvik_dfwlm_get_all(tarvik_cookie *cookie, uint8_t af,
                                    tarvik_msg_list_t **list_out) {
  return log_request(cookie, af, TLK_OP_GET, 0, nullptr, 0, 0, list_out);
}

TLK_EXPORT int tarvik_dfwlm_clear_all(tarvik_cookie *cookie, uint8_t af) {
  return log_request(cookie, af, TLK_OP_CLEAR, 0, nullptr, 0, 0, nullptr);
}

}  // extern "C"
