// Next hop statistics ("nhopstats", type 21): a next hop's traffic counters, read with rnhs_msg.
//
// The request block, behind the fixed record (224 bytes on the target):
//
//    0            224               260                      free position
//    +------------+-----------------+------------------------+--------------+--------------+
//    | rnhs_msg   | gateway element | gateway address bytes  | 8-byte labels| 7-byte labels|
//    |            | (sockaddr_idl)  | (first byte: length)   |              |              |
//    +------------+-----------------+------------------------+--------------+--------------+
//
// A gateway whose length byte is 0 is left out of the record, but its element's room is taken
// all the same; no gateway at all takes none.  The label block (tagp) goes whole into the record
// when its selector lies in 1 to 15, and is ignored altogether otherwise.
//
// The kernel answers these requests late: after the write the operations wait for the socket to
// turn readable (select for half a second, or a plain sleep for a descriptor that doesn't fit an
// fd_set) and read, over and over, for as long as the read finds nothing.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "tarlink/rnh_stats.h"
#include "wire.h"

namespace {

using tlk::request::Read;
using tlk::request::Request;
using tlk::request::Seq;
using tlk::request::Status;

constexpr unsigned kWaitUsec = 500000;
constexpr uint32_t kStatsTypes = 0x110001C;  // 2 ucst, 3 ulst, 4 idxd, 20 sample, 24 comp
constexpr uint32_t kLargestType = 24;
constexpr uint32_t kUnicast = 2;
constexpr size_t kInfoBody = 16;  // bytes of the next hop's info body that travel
constexpr uint8_t kLabelSelMax = 15;

// Where a record may start: 8-aligned, as records with 64-bit fields or pointers need.
uint8_t *record_at(uint8_t *p) {
  return reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(p) + 7) & ~uintptr_t{7});
}

struct StatsArgs {
  uint32_t kind, op, nh_type, af, idx, ifidx, filteridx;
  const uint8_t *gateway;
  const tagp *labels;
  const void *info_body;
  uint32_t info_len, info_type;
};

// Fills the request's record and its tail.  False when the tail doesn't fit the block.
bool fill(Request<rnhs_msg> &req, const StatsArgs &a) {
  rnhs_msg &m = *req;
  m.rnhs_kind = static_cast<uint8_t>(a.kind);
  m.nh_type = static_cast<uint8_t>(a.nh_type);
  m.af = static_cast<uint8_t>(a.af);
  m.idx.idx = a.idx;
  m.ifidx.idx = a.ifidx;
  m.filteridx = a.filteridx;

  uint8_t *cursor = req.variable_area();
  uint8_t *const end = req.block_end();
  if (a.gateway != nullptr) {
    cursor = record_at(cursor);
    auto *element = reinterpret_cast<sockaddr_idl *>(cursor);
    cursor += tlk::wire::round4(sizeof(sockaddr_idl));
    const uint8_t len = a.gateway[0];
    if (len != 0) {
      if (static_cast<size_t>(end - cursor) < len) return false;
      memset(element, 0, sizeof *element);
      memcpy(cursor, a.gateway, len);
      element->sai_addr = cursor;
      cursor += (len + 3u) & 0x1FCu;
      m.gateway = element;
      m.gateway_count = 1;
    }
  }

  if (a.labels != nullptr && a.labels->tg_sel >= 1 && a.labels->tg_sel <= kLabelSelMax) {
    m.labels = *a.labels;
    const size_t n8 = a.labels->tg_labels ? size_t{a.labels->tg_label_count} : 0;
    const size_t n7 = a.labels->tg_entries ? size_t{a.labels->tg_entry_count} : 0;
    cursor = record_at(cursor);
    if (cursor > end ||
        static_cast<size_t>(end - cursor) < n8 * sizeof(tagp_label8) + n7 * sizeof(tagp_label7)) {
      return false;
    }
    m.labels.tg_labels = nullptr;
    m.labels.tg_entries = nullptr;
    m.labels.tg_label_count = static_cast<uint32_t>(n8);
    m.labels.tg_entry_count = static_cast<uint32_t>(n7);
    if (n8 != 0) {
      memcpy(cursor, a.labels->tg_labels, n8 * sizeof(tagp_label8));
      m.labels.tg_labels = reinterpret_cast<tagp_label8 *>(cursor);
      cursor += n8 * sizeof(tagp_label8);
    }
    if (n7 != 0) {
      memcpy(cursor, a.labels->tg_entries, n7 * sizeof(tagp_label7));
      m.labels.tg_entries = reinterpret_cast<tagp_label7 *>(cursor);
    }
  }

  if (a.info_body != nullptr) {
    static_assert(sizeof m.rnh_info.rnhi_u >= kInfoBody, "the info body fits the record");
    memcpy(&m.rnh_info.rnhi_u, a.info_body, kInfoBody);
    m.rnh_info.rnhi_type = a.info_type;
    m.info_len = a.info_len;
  }
  return true;
}

// One wait for the kernel's answer.  select's own result doesn't matter: the read that follows
// tells whether anything came.
void wait_once(tarvik_cookie *cookie) {
  const tlk_platform &os = tlk::platform::ops();
  const int fd = cookie->fd;
  if (fd >= 0 && fd < FD_SETSIZE) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(fd, &set);
    timeval timeout{0, kWaitUsec};
    (void)os.select(fd + 1, &set, nullptr, nullptr, &timeout);
  } else {
    (void)os.usleep(kWaitUsec);
  }
}

// Waits and reads until the read finds something other than nothing.  No limit: the kernel is
// trusted to answer.
Status wait_and_read(tarvik_cookie *cookie, void **out, void **mask, Read read) {
  for (;;) {
    wait_once(cookie);
    const Status status = tlk::request::read_framed(cookie, out, mask, read);
    if (status.code() != EAGAIN) return status;
  }
}

void report(const char *what, int code) {
  char line[256];
  snprintf(line, sizeof line, "NH stats %s failed [%d - %s]\n", what, code, strerror(code));
  tlk::platform::ops().print_stderr(line);
}

int stats_get(tarvik_cookie *cookie, const StatsArgs &a, void **msg_out, void **mask_out) {
  Request<rnhs_msg> req(cookie, TLK_MSG_NHOPSTATS, a.op, Seq::kDraw);
  if (!req) return ENOMEM;
  if (!fill(req, a)) return EMSGSIZE;
  Status status = tlk::request::write_framed(cookie, req.get());
  if (status.ok()) status = wait_and_read(cookie, msg_out, mask_out, Read::kLong);
  if (!status.ok()) tlk::request::clear_outs(msg_out, mask_out);
  return status.code();
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_rnhsm_get(tarvik_cookie *cookie, uint32_t kind, uint32_t op, uint32_t nh_type,
                                uint32_t af, uint32_t idx, uint32_t ifidx, uint32_t filteridx,
                                const void *gateway, const tagp *labels, const void *info_body,
                                uint32_t info_len, uint32_t info_type, void **msg_out,
                                void **mask_out) {
  tlk::request::clear_outs(msg_out, mask_out);
  if (cookie == nullptr || msg_out == nullptr || mask_out == nullptr) return EINVAL;
  if (nh_type > kLargestType || ((kStatsTypes >> nh_type) & 1u) == 0) return EOPNOTSUPP;
  const StatsArgs a{kind,   op,        nh_type,   af,
                    idx,    ifidx,     filteridx, static_cast<const uint8_t *>(gateway),
                    labels, info_body, info_len,  info_type};
  return stats_get(cookie, a, msg_out, mask_out);
}

// The same request, answered and then thrown away: the reply never reaches the caller, and the
// end of the wait is reported on the error stream whatever it was.
TLK_EXPORT int tarvik_rnhsm_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t ifidx,
                                         uint32_t nh_type, uint32_t af, const tagp *labels,
                                         const void *gateway, uint32_t kind, uint32_t op,
                                         void **msg_out, void **mask_out) {
  tlk::request::clear_outs(msg_out, mask_out);
  if (cookie == nullptr || nh_type != kUnicast) return EINVAL;
  const StatsArgs a{kind,   op,      nh_type, af,
                    idx,    ifidx,   0,       static_cast<const uint8_t *>(gateway),
                    labels, nullptr, 0,       0};
  Request<rnhs_msg> req(cookie, TLK_MSG_NHOPSTATS, op, Seq::kDraw);
  if (!req) return ENOMEM;
  if (!fill(req, a)) return EMSGSIZE;
  const Status written = tlk::request::write_framed(cookie, req.get());
  req.free_now();
  if (!written.ok()) {
    if (written.code() != ENOMEM && written.code() != EOPNOTSUPP)
      report("tarvik_write", written.code());
    return written.code();
  }
  void *reply = nullptr;
  void *mask = nullptr;
  const Status read = wait_and_read(cookie, &reply, &mask, Read::kFixed);
  report("tarvik_msg_read", read.code());
  tarvik_msg_idl_release(cookie, reply, mask);
  return read.code();
}

TLK_EXPORT int tarvik_rnhsm_get_by_nexthop(tarvik_cookie *cookie, uint32_t kind, uint32_t op,
                                           const rnh_msg *nh, void **msg_out, void **mask_out) {
  tlk::request::clear_outs(msg_out, mask_out);
  if (nh == nullptr) return EINVAL;
  const uint8_t *gateway = nullptr;
  if (nh->rnh_f18 != nullptr && nh->rnh_f18_count != 0) gateway = nh->rnh_f18[0].sai_addr;
  const tagp *labels = nh->rnh_f24_count != 0 ? nh->rnh_f24 : nullptr;
  return tarvik_rnhsm_get(cookie, kind, op, nh->nh, nh->af, nh->idx.idx, nh->ifidx.idx,
                          static_cast<uint32_t>(nh->filteridx), gateway, labels,
                          &nh->rnh_info.rnhi_u, nh->info_len, nh->rnh_info.rnhi_type, msg_out,
                          mask_out);
}

}  // extern "C"
