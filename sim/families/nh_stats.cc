// Next hop statistics: counters per next hop index, read with "nhopstats" frames (type 21).
// See tarsim/nh_stats.hpp for the contract.
#include <map>

#include "../family.h"
#include "../session.h"
#include "nexthops.h"
#include "tarsim/nh_stats.hpp"

namespace tarsim {
namespace internal {

class NhStatsFamily final : public Family {
 public:
  explicit NhStatsFamily(Host &host) : host_(host) {
    // The seeded unicast next hops 1000 and 1001 have carried some traffic and none.
    counters[1000] = NhCounters{150, 9600};
    counters[1001] = NhCounters{};
    host.answer_frames(TLK_MSG_NHOPSTATS, [this](Session &s, const Frame &f) { answer(s, f); });
  }

  std::map<uint32_t, NhCounters> counters;
  unsigned hold_waits = 0;
  uint64_t requests = 0;

 private:
  void answer(Session &s, const Frame &f);
  Host &host_;
};

void NhStatsFamily::answer(Session &s, const Frame &f) {
  ++requests;
  const rnhs_msg &req = f.as<rnhs_msg>();
  const tlk_hdr &hdr = f.hdr();
  auto it = counters.find(req.idx.idx);
  // The kernel takes its time: the answer waits for the session's next waits.
  if (hold_waits != 0) s.release_at = s.waits + hold_waits;
  // A next hop of the store that no counter has moved for reads as zeros; an index that is
  // neither counted nor held is the kernel's refusal.
  if (it == counters.end() && !nexthop_exists(host_, req.idx.idx)) {
    host_.refuse_not_found(s, TLK_MSG_NHOPSTATS, hdr.tlkh_op, hdr.tlkh_seq, "rnhs_get");
    return;
  }
  const NhCounters moved = it != counters.end() ? it->second : NhCounters{};
  rnhs_msg reply = req;  // its pointers still point into the decoded request, which lives on
  reply.packets = moved.packets;
  reply.bytes = moved.bytes;
  host_.reply(s, encode_frame(TLK_MSG_NHOPSTATS, &reply, f.tlv));
}

namespace {
const FamilySlot<NhStatsFamily> kNhStats("nh_stats");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

NhStats Kernel::nh_stats() {
  return NhStats(&internal::kNhStats.in(*impl_));
}

void NhStats::set(uint32_t idx, uint64_t packets, uint64_t bytes) {
  family_->counters[idx] = NhCounters{packets, bytes};
}
void NhStats::bump(uint32_t idx, uint64_t packets, uint64_t bytes) {
  NhCounters &c = family_->counters[idx];
  c.packets += packets;
  c.bytes += bytes;
}
bool NhStats::erase(uint32_t idx) {
  return family_->counters.erase(idx) != 0;
}
bool NhStats::has(uint32_t idx) const {
  return family_->counters.count(idx) != 0;
}
NhCounters NhStats::get(uint32_t idx) const {
  auto it = family_->counters.find(idx);
  return it == family_->counters.end() ? NhCounters{} : it->second;
}
size_t NhStats::size() const {
  return family_->counters.size();
}
void NhStats::hold_replies(unsigned waits) {
  family_->hold_waits = waits;
}
uint64_t NhStats::requests() const {
  return family_->requests;
}

}  // namespace tarsim
