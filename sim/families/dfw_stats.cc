// Firewall counters ("dfwstats", raw type 22) and the firewall log (raw type 23): the stores, the
// runs of reply messages with their "more follows" byte, asynchronous answers on the asking
// session's stream, and the clears.  See tarsim/dfw_stats.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <deque>
#include <map>
#include <string>
#include <tuple>

#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/dfw_stats.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr size_t kStatsFixed = 64, kLogFixed = 52;
constexpr size_t kCtAt = 24, kAfAt = 25, kFilterAt = 28, kMoreAt = 32, kLen1At = 34, kLen2At = 44,
                 kAsyncAt = 46;
constexpr size_t kLogAfAt = 24, kLogSelectorAt = 25, kLogSecAt = 28, kLogUsecAt = 32,
                 kLogIfindexAt = 36, kLogFilterAt = 40, kLogMoreAt = 47;
constexpr uint8_t kAnyType = 5, kByName = 4;
constexpr size_t kMaxRun = 16;  // messages a client's list takes from one run
constexpr size_t kMessageMax = 16384;
constexpr char kRefuser[] = "dfw_stats_get";

using Key = std::tuple<uint32_t, uint8_t, std::string, uint8_t>;  // filter, af, name, type

bool af_matches(uint8_t want, uint8_t af) {
  return want == 0 || want == af;
}

// The name at `off` of at most `len` bytes, as far as the message holds it.
std::string name_at(std::span<const uint8_t> b, size_t off, size_t len) {
  if (len == 0 || off >= b.size()) return {};
  const auto *p = reinterpret_cast<const char *>(&b[off]);
  return std::string(p, strnlen(p, std::min(len, b.size() - off)));
}

CounterRecord record_of(const DfwCounter &c) {
  CounterRecord r{};
  strncpy(r.name, c.name.c_str(), sizeof r.name - 1);
  r.type = c.type;
  r.af = c.af;
  r.filter = c.filter;
  r.packets = c.packets;
  r.bytes = c.bytes;
  return r;
}

LogRecord record_of(const DfwLogEntry &e) {
  return LogRecord{e.sec,      e.usec, e.filter, e.ifindex, e.af,    e.action,
                   e.protocol, 0,      e.src,    e.dst,     e.length};
}

}  // namespace

class DfwStatsFamily final : public Family {
 public:
  explicit DfwStatsFamily(Host &host);

  std::map<Key, DfwCounter> counters;
  std::deque<DfwLogEntry> log;
  size_t per_message = 0;
  size_t log_per_message = 0;

  void bump(uint32_t filter, uint8_t af, const std::string &name, uint8_t type, uint64_t packets,
            uint64_t bytes) {
    DfwCounter &c = counters[Key{filter, af, name, type}];
    c.filter = filter;
    c.af = af;
    c.name = name;
    c.type = type;
    c.packets += packets;
    c.bytes += bytes;
  }
  void add_log(const DfwLogEntry &e) {
    log.push_back(e);
    if (log.size() > DfwCounters::kLogCapacity) log.pop_front();
  }

 private:
  void seed();
  void answer_stats(Session &s, const Request &req);
  void answer_log(Session &s, const Request &req);
  void clear_counters(std::span<const uint8_t> b, const std::string &name);
  // Sends `records` (each `size` bytes) as a run behind copies of `head`, `per` at most in each.
  void send_run(Session &s, const Request &req, Bytes head, const Bytes &records, size_t size,
                size_t per, size_t more_at, bool counters_len, bool async);

  Host &host_;
};

DfwStatsFamily::DfwStatsFamily(Host &host) : host_(host) {
  seed();
  host.answer_raw(TLK_MSG_DFWSTATS, [this](Session &s, const Request &r) { answer_stats(s, r); });
  host.answer_raw(TLK_MSG_FIREWALL_LOG, [this](Session &s, const Request &r) { answer_log(s, r); });
}

void DfwStatsFamily::seed() {
  bump(1, 2, "icmp-in", 0, 12, 1008);
  bump(1, 2, "ssh-accept", 0, 340, 28210);
  bump(1, 2, "discard-rest", 1, 7, 420);
  bump(2, 2, "web-hits", 0, 9000, 5400000);
  bump(2, 2, "policer-web", 2, 31, 46500);
  // The counters of the filters that the program store starts with (tarsim/dfw.hpp).
  bump(10, 2, "ssh-from-mgmt", 0, 1250, 104000);
  bump(10, 2, "discard-re", 1, 96, 5760);
  bump(20, 2, "all-packets", 0, 4800000, 3120000000);
  add_log({1700000000, 0, 1, 130, 2, 1, 6, 0x0A000001, 0x0A000002, 60});
  add_log({1700000005, 500, 1, 131, 2, 0, 1, 0x0A000003, 0x0A000001, 84});
}

void DfwStatsFamily::send_run(Session &s, const Request &req, Bytes head, const Bytes &records,
                              size_t size, size_t per, size_t more_at, bool counters_len,
                              bool async) {
  const size_t fixed = head.size();
  const size_t count = records.size() / size;
  if (per == 0) per = (kMessageMax - fixed) / size;
  per = std::max(per, (count + kMaxRun - 1) / kMaxRun);
  size_t at = 0;
  do {
    const size_t n = std::min(per, count - at);
    Bytes m = head;
    m.insert(m.end(), records.begin() + static_cast<std::ptrdiff_t>(at * size),
             records.begin() + static_cast<std::ptrdiff_t>((at + n) * size));
    at += n;
    m[more_at] = at < count ? 1 : 0;
    wire::store_u32(&m[wire::kRawMsglen], static_cast<uint32_t>(m.size()));
    wire::store_u16(&m[wire::kRawFixedlen], static_cast<uint16_t>(fixed));
    if (counters_len) wire::store_u16(&m[kLen1At], static_cast<uint16_t>(n * size));
    if (async) {
      host_.notify_session(s, m);
    } else {
      host_.reply_with_seq(s, m, req.seq);
    }
  } while (at < count);
}

void DfwStatsFamily::clear_counters(std::span<const uint8_t> b, const std::string &name) {
  const uint8_t ct = b[kCtAt], af = b[kAfAt];
  const uint32_t filter = wire::load_u32(&b[kFilterAt]);
  for (auto &[key, c] : counters) {
    if (!af_matches(af, c.af)) continue;
    bool hit;
    if (ct == kAnyType) {
      hit = (filter == 0 || c.filter == filter) && (name.empty() || c.name == name);
    } else if (ct == kByName) {
      hit = c.name == name;
    } else {
      hit = c.type == ct;
    }
    if (hit) c.packets = c.bytes = 0;
  }
}

void DfwStatsFamily::answer_stats(Session &s, const Request &req) {
  const auto b = req.bytes;
  if (b.size() < kStatsFixed) return;  // too short to read: dropped
  const size_t len1 = wire::u16_at(b, kLen1At), len2 = wire::u16_at(b, kLen2At);
  std::string name = name_at(b, kStatsFixed, len1);
  if (name.empty()) name = name_at(b, kStatsFixed + ((len1 + 3) & ~size_t{3}), len2);
  if (req.op == TLK_OP_CLEAR) return clear_counters(b, name);
  if (req.op != TLK_OP_GET && req.op != TLK_OP_GETNEXT) return;

  const uint8_t ct = b[kCtAt], af = b[kAfAt];
  uint32_t filter = wire::load_u32(&b[kFilterAt]);
  if (req.op == TLK_OP_GETNEXT) {
    auto it = std::find_if(counters.lower_bound(Key{filter + 1, 0, "", 0}), counters.end(),
                           [&](const auto &e) { return af_matches(af, e.second.af); });
    filter = it == counters.end() ? 0 : it->second.filter;
  }
  // Only the filter's own keys are walked; with a family and a name, only that name's.
  const bool one_name = af != 0 && !name.empty();
  Bytes records;
  bool filter_known = false, name_known = name.empty();
  for (auto it = counters.lower_bound(one_name ? Key{filter, af, name, 0} : Key{filter, 0, "", 0});
       it != counters.end() && filter != 0; ++it) {
    const DfwCounter &c = it->second;
    if (c.filter != filter || (one_name && (c.af != af || c.name != name))) break;
    if (!af_matches(af, c.af)) continue;
    filter_known = true;
    if (!name.empty() && c.name != name) continue;
    name_known = true;
    if (ct != kAnyType && c.type != ct) continue;
    const CounterRecord r = record_of(c);
    const auto *p = reinterpret_cast<const uint8_t *>(&r);
    records.insert(records.end(), p, p + sizeof r);
  }
  if (!filter_known || !name_known) {
    host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
    return;
  }
  Bytes head(b.begin(), b.begin() + kStatsFixed);
  wire::store_u32(&head[kFilterAt], filter);
  wire::store_u16(&head[kLen2At], 0);  // the names are not sent back
  send_run(s, req, std::move(head), records, sizeof(CounterRecord), per_message, kMoreAt, true,
           wire::u16_at(b, kAsyncAt) == 1);
}

void DfwStatsFamily::answer_log(Session &s, const Request &req) {
  const auto b = req.bytes;
  if (b.size() < kLogFixed) return;
  const uint8_t af = b[kLogAfAt], selector = b[kLogSelectorAt];
  if (req.op == TLK_OP_CLEAR) {
    std::erase_if(log, [&](const DfwLogEntry &e) { return af_matches(af, e.af); });
    return;
  }
  if (req.op != TLK_OP_GET && req.op != TLK_OP_GETNEXT) return;
  const uint64_t sec = wire::load_u32(&b[kLogSecAt]), usec = wire::load_u32(&b[kLogUsecAt]);
  const uint64_t when = sec * 1000000 + usec;
  const uint32_t filter = wire::load_u32(&b[kLogFilterAt]);
  const uint32_t ifindex = wire::load_u32(&b[kLogIfindexAt]);
  Bytes records;
  for (const DfwLogEntry &e : log) {
    if (!af_matches(af, e.af) || (filter != 0 && e.filter != filter) ||
        (ifindex != 0 && e.ifindex != ifindex))
      continue;
    if (when != 0) {
      const uint64_t at = uint64_t{e.sec} * 1000000 + e.usec;
      if (selector == 0 ? at < when : at >= when) continue;
    }
    const LogRecord r = record_of(e);
    const auto *p = reinterpret_cast<const uint8_t *>(&r);
    records.insert(records.end(), p, p + sizeof r);
  }
  send_run(s, req, Bytes(b.begin(), b.begin() + kLogFixed), records, sizeof(LogRecord),
           log_per_message, kLogMoreAt, false, false);
}

namespace {
const FamilySlot<DfwStatsFamily> kDfwStats("dfw_stats");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

DfwCounters Kernel::dfw_counters() {
  return DfwCounters(&internal::kDfwStats.in(*impl_));
}
const DfwCounters Kernel::dfw_counters() const {
  return DfwCounters(&internal::kDfwStats.in(*impl_));
}

void DfwCounters::bump(uint32_t filter, uint8_t af, const char *name, uint8_t type,
                       uint64_t packets, uint64_t bytes) {
  family_->bump(filter, af, name == nullptr ? "" : name, type, packets, bytes);
}

const DfwCounter *DfwCounters::find(uint32_t filter, uint8_t af, const char *name,
                                    uint8_t type) const {
  auto it = family_->counters.find(internal::Key{filter, af, name == nullptr ? "" : name, type});
  return it == family_->counters.end() ? nullptr : &it->second;
}

std::vector<DfwCounter> DfwCounters::list() const {
  std::vector<DfwCounter> out;
  for (const auto &[key, c] : family_->counters) out.push_back(c);
  return out;
}

size_t DfwCounters::erase_filter(uint32_t filter) {
  return std::erase_if(family_->counters, [&](const auto &e) { return e.second.filter == filter; });
}

void DfwCounters::clear() {
  family_->counters.clear();
}
void DfwCounters::set_per_message(size_t n) {
  family_->per_message = n;
}
void DfwCounters::log(const DfwLogEntry &e) {
  family_->add_log(e);
}
std::vector<DfwLogEntry> DfwCounters::log_entries() const {
  return {family_->log.begin(), family_->log.end()};
}
void DfwCounters::clear_log() {
  family_->log.clear();
}
void DfwCounters::set_log_per_message(size_t n) {
  family_->log_per_message = n;
}

}  // namespace tarsim
