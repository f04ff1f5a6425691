// Route statistics ("rtstats", raw type 4) and route class statistics ("rt class stats", raw
// type 29): raw fixed layouts written as they stand.
//
// A route statistics request, 52 bytes and the prefix:
//
//    0        24  25  26    28   29   30      34     36      40      44    46         52
//    +--------+---+---+-----+----+----+-------+------+-------+-------+-----+----------+------+
//    | header |af | 0 | tid |type| 1  |  0    | plen | flags |  0    |  0  |    0     |prefix|
//    +--------+---+---+-----+----+----+-------+------+-------+-------+-----+----------+------+
//
// The kernel answers it late, so the operation waits for it: up to eleven rounds of select with
// the caller's time-out and a read.  The reply repeats the layout with the byte at 44 set when it
// holds counters; the fourteen counter words follow the reply's prefix.
//
// A route class statistics request, 48 bytes and the name:
//
//    0        24                28         32     36  37   38  39    40        48
//    +--------+-----------------+----------+------+---+----+---+-----+---------+------+
//    | header | class index or  | ifl index|  0   |af |name| 0 |class|   0     | name |
//    |        | ifl snmp index  |  (u16)   |      |   |len |   |kind |         |      |
//    +--------+-----------------+----------+------+---+----+---+-----+---------+------+
#include <errno.h>
#include <string.h>
#include <sys/select.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "tarlink/rt_stats.h"
#include "wire.h"

namespace {

namespace wire = tlk::wire;
using tlk::request::Block;
using tlk::request::next_seq;
using tlk::request::Status;

// ---- Route statistics ----

constexpr uint16_t kRtStatsFixed = 52;
constexpr size_t kAfAt = 24, kTidAt = 26, kTypeAt = 28, kOneAt = 29, kPlenAt = 34, kFlagsAt = 36,
                 kFilledAt = 44;
constexpr int kRetries = 10;  // EAGAINs tolerated before the last one gives up: eleven reads

// The prefix's stored length: plen rounded up to whole 32-bit words, in bytes.
constexpr uint32_t prefix_bytes(uint32_t plen) {
  return ((plen + 31) / 8) & 0x3FFC;
}

// One wait for the socket to turn readable, with a fresh copy of the caller's time-out.  A
// descriptor beyond an fd_set can't be selected on: it sleeps the time-out instead.
int wait_readable(tarvik_cookie *cookie, const timeval *timeout) {
  const tlk_platform &os = tlk::platform::ops();
  const int fd = cookie->fd;
  if (fd < 0 || fd >= FD_SETSIZE) {
    const unsigned usec =
        timeout ? static_cast<unsigned>(timeout->tv_sec * 1000000 + timeout->tv_usec) : 0;
    (void)os.usleep(usec);
    return 0;
  }
  fd_set set;
  FD_ZERO(&set);
  FD_SET(fd, &set);
  timeval copy{};
  if (timeout != nullptr) copy = *timeout;
  errno = 0;
  if (os.select(fd + 1, &set, nullptr, nullptr, timeout ? &copy : nullptr) < 0) {
    return errno != 0 ? errno : EIO;
  }
  return 0;
}

// Checks the reply and copies its counters out: ENOENT for a reply of the wrong length or one
// marked empty.
int take_counters(const uint8_t *reply, size_t length, uint32_t *stats_out) {
  if (length == 0 || length < kRtStatsFixed) return ENOENT;
  if (wire::load_u32(reply + wire::kMsglenAt) != length || reply[kFilledAt] == 0) return ENOENT;
  const size_t at = wire::load_u16(reply + wire::kFixedlenAt) +
                    (static_cast<size_t>(wire::load_u16(reply + kPlenAt)) + 31) / 32 * 4;
  if (at > length || length - at < TLK_RTSTATS_WORDS * sizeof(uint32_t)) return ENOENT;
  for (size_t i = 0; i < TLK_RTSTATS_WORDS; ++i) stats_out[i] = wire::load_u32(reply + at + 4 * i);
  return 0;
}

// ---- Route class statistics ----

constexpr uint16_t kClassFixed = 48;
constexpr size_t kClassIndexAt = 24, kIflIndexAt = 28, kClassAfAt = 36, kNameLenAt = 37,
                 kClassKindAt = 39;
constexpr size_t kClassNameMax = 63;

struct ClassArgs {
  uint32_t op, flags, index, ifl_index, af, class_kind;
  const char *name;
};

int class_request(tarvik_cookie *cookie, const ClassArgs &a, void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  // A get needs somewhere to put its reply; any other op goes on without one, except getnext.
  if (msg_out == nullptr) {
    if (a.op == TLK_OP_GET || cookie == nullptr || a.op == TLK_OP_GETNEXT) return EINVAL;
  } else if (cookie == nullptr) {
    return EINVAL;
  }
  Block req(cookie);
  if (!req) return ENOMEM;
  uint8_t *m = req.bytes();
  uint32_t name_len = 0;
  if (a.name != nullptr) {
    const size_t n = strnlen(a.name, kClassNameMax);
    memcpy(m + kClassFixed, a.name, n);
    m[kClassFixed + n] = 0;
    name_len = static_cast<uint32_t>(n + 1);
  }
  const uint32_t seq = next_seq(cookie);
  // The name's section, then two further sections that this request leaves empty.
  (void)tlk::request::fill_raw_header(m, TLK_MSG_RT_CLASS_STATS, a.op, seq, kClassFixed, name_len);
  m[wire::kFlagsAt] = static_cast<uint8_t>(a.flags);
  wire::store_u32(m + kClassIndexAt, a.index);
  wire::store_u16(m + kIflIndexAt, static_cast<uint16_t>(a.ifl_index));
  m[kClassAfAt] = static_cast<uint8_t>(a.af);
  m[kNameLenAt] = static_cast<uint8_t>(name_len);
  m[kClassKindAt] = static_cast<uint8_t>(a.class_kind);
  if (a.op != TLK_OP_GET || msg_out == nullptr) {
    return tlk::request::raw_send(cookie, m).code();
  }
  return tlk::request::raw_exchange_long(req, msg_out).code();
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_rtstats_get(tarvik_cookie *cookie, uint32_t af, uint32_t tid, uint32_t type,
                                  uint32_t flags, uint32_t plen, const void *addr,
                                  uint32_t *stats_out, const struct timeval *timeout) {
  if (cookie == nullptr || addr == nullptr || stats_out == nullptr) return EINVAL;
  Block req(cookie);
  if (!req) return ENOMEM;
  uint8_t *m = req.bytes();
  const uint32_t rounded = prefix_bytes(plen);
  if (plen != 0 && rounded != 0) {
    memset(m + kRtStatsFixed + rounded - 4, 0, 4);
    memcpy(m + kRtStatsFixed, addr, plen / 8 + ((plen & 7) != 0 ? 1 : 0));
  }
  (void)tlk::request::fill_raw_header(m, TLK_MSG_RTSTATS, TLK_OP_GET, next_seq(cookie),
                                      kRtStatsFixed, rounded);
  m[kAfAt] = static_cast<uint8_t>(af);
  wire::store_u16(m + kTidAt, static_cast<uint16_t>(tid));
  m[kTypeAt] = static_cast<uint8_t>(type);
  m[kOneAt] = 1;
  wire::store_u16(m + kPlenAt, static_cast<uint16_t>(plen));
  wire::store_u32(m + kFlagsAt, flags);

  const Status written = tlk::request::raw_send(cookie, m);
  req.free_now();
  if (!written.ok()) return written.code();

  for (int retries = kRetries;; --retries) {
    const int waited = wait_readable(cookie, timeout);
    if (waited != 0) return waited;
    void *reply = nullptr;
    size_t length = 0;
    const int err = tarvik_long_msg_read(cookie, &reply, &length);
    if (err == EAGAIN) {
      tarvik_msg_free(cookie, reply);
      if (retries == 0) {
        if (cookie->seq_error_cb != nullptr) {
          cookie->seq_error_cb(cookie, cookie->seq_error_arg, cookie->seq, cookie->seq - 1);
        }
        return EAGAIN;
      }
      continue;
    }
    if (err != 0) {
      tarvik_msg_free(cookie, reply);
      return err;
    }
    const int taken = take_counters(static_cast<const uint8_t *>(reply), length, stats_out);
    tarvik_msg_free(cookie, reply);
    return taken;
  }
}

TLK_EXPORT int tarvik_rtcsm_get_by_index(tarvik_cookie *cookie, uint32_t class_index,
                                         uint32_t ifl_index, uint32_t af, uint32_t class_kind,
                                         uint32_t flags, void **msg_out) {
  return class_request(cookie, {TLK_OP_GET, flags, class_index, ifl_index, af, class_kind, nullptr},
                       msg_out);
}

TLK_EXPORT int tarvik_rtcsm_get_by_name(tarvik_cookie *cookie, uint32_t class_index,
                                        const char *name, uint32_t af, uint32_t class_kind,
                                        uint32_t flags, void **msg_out) {
  return class_request(cookie, {TLK_OP_GET, flags, class_index, 0, af, class_kind, name}, msg_out);
}

TLK_EXPORT int tarvik_rtcsm_get_block_by_ifl_snmp_index(tarvik_cookie *cookie,
                                                        uint32_t ifl_snmp_index, uint32_t af,
                                                        uint32_t class_kind, uint32_t flags,
                                                        void **msg_out) {
  return class_request(cookie, {TLK_OP_GET, flags, ifl_snmp_index, 0, af, class_kind, nullptr},
                       msg_out);
}

TLK_EXPORT int tarvik_rtcsm_clear_by_index(tarvik_cookie *cookie, uint32_t class_index,
                                           uint32_t ifl_index, uint32_t af, uint32_t class_kind) {
  return class_request(cookie, {TLK_OP_CLEAR, 0, class_index, ifl_index, af, class_kind, nullptr},
                       nullptr);
}

}  // extern "C"
