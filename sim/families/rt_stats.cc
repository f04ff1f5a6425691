// Route statistics (raw type 4) and route class statistics (raw type 29).  See
// tarsim/rt_stats.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/rt_stats.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr char kRefuser[] = "rt_class_stats_get";

// The route statistics request (the library's layout of type 4).
constexpr size_t kRouteFixed = 52;
constexpr size_t kAfAt = 24, kTidAt = 26, kPlenAt = 34, kFilledAt = 44;

// The route class statistics request (type 29).
constexpr size_t kClassFixed = 48;
constexpr size_t kIndexAt = 24, kIflAt = 28, kCountAt = 32, kClassAfAt = 36, kNameLenAt = 37;

// A route's key: family, table, plen and the prefix's bytes with the bits past plen cleared.
using RouteKey = std::tuple<uint8_t, uint16_t, uint16_t, Bytes>;

RouteKey route_key(uint8_t af, uint16_t tid, const uint8_t *prefix, uint16_t plen) {
  Bytes bytes(prefix, prefix + (plen + 7) / 8);
  if (plen % 8 != 0) bytes.back() &= static_cast<uint8_t>(0xFF00u >> (plen % 8));
  return {af, tid, plen, bytes};
}

}  // namespace

class RtStatsFamily final : public Family {
 public:
  explicit RtStatsFamily(Host &host) : host_(host) {
    const uint8_t ten[] = {10};
    RtStats::Words words{};
    for (size_t i = 0; i < words.size(); ++i) words[i] = static_cast<uint32_t>(i + 1);
    routes[route_key(2, 0, ten, 8)] = words;
    set_class(seed(1, 501, 70, "gold", 1000, 64000));
    set_class(seed(2, 501, 70, "silver", 20, 1280));
    set_class(seed(1, 502, 71, "gold", 7, 448));
    host.answer_raw(TLK_MSG_RTSTATS, [this](Session &s, const Request &r) { answer_route(s, r); });
    host.answer_raw(TLK_MSG_RT_CLASS_STATS,
                    [this](Session &s, const Request &r) { answer_class(s, r); });
  }

  void set_class(const RtClassRecord &r) {
    auto it = std::find_if(classes.begin(), classes.end(), [&](const RtClassRecord &c) {
      return c.class_index == r.class_index && c.ifl_index == r.ifl_index;
    });
    if (it == classes.end()) {
      classes.push_back(r);
    } else {
      *it = r;
    }
  }

  std::map<RouteKey, RtStats::Words> routes;
  std::vector<RtClassRecord> classes;
  unsigned hold_waits = 0;

 private:
  static RtClassRecord seed(uint32_t index, uint32_t snmp, uint16_t ifl, const char *name,
                            uint64_t packets, uint64_t bytes) {
    RtClassRecord r{};
    r.class_index = index;
    r.ifl_snmp = snmp;
    r.ifl_index = ifl;
    r.af = 2;
    strncpy(r.name, name, sizeof r.name - 1);
    r.packets = packets;
    r.bytes = bytes;
    return r;
  }
  void hold(Session &s) const {
    if (hold_waits != 0) s.release_at = s.waits + hold_waits;
  }
  void answer_route(Session &s, const Request &req);
  void answer_class(Session &s, const Request &req);
  Host &host_;
};

void RtStatsFamily::answer_route(Session &s, const Request &req) {
  const auto b = req.bytes;
  if (b.size() < kRouteFixed) return;  // too short to read: dropped
  const uint16_t plen = wire::u16_at(b, kPlenAt);
  const size_t stored = ((plen + 31u) / 32u) * 4u;
  if (b.size() < kRouteFixed + stored) return;
  Bytes reply(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(kRouteFixed + stored));
  auto it = routes.find(route_key(b[kAfAt], wire::u16_at(b, kTidAt), &b[kRouteFixed], plen));
  if (it != routes.end()) {
    reply[kFilledAt] = 1;
    const size_t at = reply.size();
    reply.resize(at + RtStats::kWords * 4);
    memcpy(&reply[at], it->second.data(), RtStats::kWords * 4);
  }
  wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
  hold(s);
  host_.reply_with_seq(s, reply, req.seq);
}

void RtStatsFamily::answer_class(Session &s, const Request &req) {
  const auto b = req.bytes;
  if (b.size() < kClassFixed) return;
  const uint32_t index = wire::load_u32(&b[kIndexAt]);
  const uint16_t ifl = wire::u16_at(b, kIflAt);
  const uint8_t af = b[kClassAfAt];
  if (req.op == TLK_OP_CLEAR) {
    for (RtClassRecord &c : classes) {
      if (c.class_index == index && c.ifl_index == ifl) c.packets = c.bytes = 0;
    }
    return;
  }
  if (req.op != TLK_OP_GET) return;
  std::string name;
  if (b[kNameLenAt] != 0 && b.size() >= kClassFixed + b[kNameLenAt]) {
    const char *at = reinterpret_cast<const char *>(&b[kClassFixed]);
    name.assign(at, strnlen(at, b[kNameLenAt]));
  }
  Bytes reply(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(kClassFixed));
  uint32_t count = 0;
  for (const RtClassRecord &c : classes) {
    if (af != 0 && c.af != af) continue;
    const bool match = !name.empty() ? name == c.name
                       : ifl != 0    ? c.class_index == index && c.ifl_index == ifl
                                     : c.ifl_snmp == index;
    if (!match) continue;
    const size_t at = reply.size();
    reply.resize(at + sizeof c);
    memcpy(&reply[at], &c, sizeof c);
    ++count;
  }
  hold(s);
  if (count == 0) {
    host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
    return;
  }
  wire::store_u32(&reply[kCountAt], count);
  wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
  host_.reply_with_seq(s, reply, req.seq);
}

namespace {
const FamilySlot<RtStatsFamily> kRtStats("rt_stats");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

RtStats Kernel::rt_stats() {
  return RtStats(&internal::kRtStats.in(*impl_));
}

void RtStats::set_route(uint8_t af, uint16_t tid, const uint8_t *prefix, uint16_t plen,
                        const uint32_t *words) {
  Words w{};
  std::copy(words, words + kWords, w.begin());
  family_->routes[internal::route_key(af, tid, prefix, plen)] = w;
}
bool RtStats::erase_route(uint8_t af, uint16_t tid, const uint8_t *prefix, uint16_t plen) {
  return family_->routes.erase(internal::route_key(af, tid, prefix, plen)) != 0;
}
bool RtStats::route(uint8_t af, uint16_t tid, const uint8_t *prefix, uint16_t plen,
                    uint32_t *words) const {
  auto it = family_->routes.find(internal::route_key(af, tid, prefix, plen));
  if (it == family_->routes.end()) return false;
  std::copy(it->second.begin(), it->second.end(), words);
  return true;
}
size_t RtStats::routes() const {
  return family_->routes.size();
}
void RtStats::set_class(const RtClassRecord &record) {
  family_->set_class(record);
}
bool RtStats::find_class(uint32_t class_index, uint16_t ifl_index, RtClassRecord *out) const {
  for (const RtClassRecord &c : family_->classes) {
    if (c.class_index == class_index && c.ifl_index == ifl_index) {
      *out = c;
      return true;
    }
  }
  return false;
}
size_t RtStats::classes() const {
  return family_->classes.size();
}
void RtStats::hold_replies(unsigned waits) {
  family_->hold_waits = waits;
}

}  // namespace tarsim
