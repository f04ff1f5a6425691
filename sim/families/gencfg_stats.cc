// Generic configuration statistics: small values kept beside the blobs, addressed by what a raw
// "gencfg-stats" request names.  See tarsim/gencfg.hpp for the contract.
#include <string.h>

#include <algorithm>

#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/gencfg.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr char kRefuser[] = "gencfg_stats_get";

// The request's fields (the library's layout of type 86).
constexpr size_t kFixed = TLK_GENCFG_STATS_FIXED;
constexpr size_t kMajorAt = 24, kMinorAt = 26, kKeyLenAt = 28, kKeyOffAt = 30, kIdAt = 32,
                 kKindAt = 34, kValueLenAt = 42, kValueOffAt = 44, kFlagsAt = 48, kKidAt = 52,
                 kPeerCountAt = 56, kPeerOffAt = 58;
constexpr size_t kPeerEntry = sizeof(gencfg_peerinfo);

constexpr size_t round4(size_t n) {
  return (n + 3) & ~size_t{3};
}

// The bytes [off, off + n) of the request, or false when they are not all there.
bool span_of(std::span<const uint8_t> b, size_t off, size_t n, Bytes &out) {
  if (off > b.size() || n > b.size() - off) return false;
  out.assign(b.begin() + static_cast<std::ptrdiff_t>(off),
             b.begin() + static_cast<std::ptrdiff_t>(off + n));
  return true;
}

struct Parsed {
  GencfgStatKey key;
  Bytes value;
  uint16_t stats_id = 0;
};

bool parse(std::span<const uint8_t> b, Parsed &p) {
  if (b.size() < kFixed) return false;
  const uint32_t flags = wire::load_u32(b.data() + kFlagsAt);
  p.key.major = wire::load_u16(b.data() + kMajorAt);
  p.key.minor = wire::load_u16(b.data() + kMinorAt);
  p.key.stats_kind = b[kKindAt];
  p.stats_id = wire::load_u16(b.data() + kIdAt);
  if (flags & TLK_GENCFG_KEY) {
    p.key.kind = 2;
    if (!span_of(b, wire::load_u16(b.data() + kKeyOffAt), wire::load_u16(b.data() + kKeyLenAt),
                 p.key.key)) {
      return false;
    }
  } else if (flags & TLK_GENCFG_KID) {
    p.key.kind = 1;
    p.key.kid = wire::load_u32(b.data() + kKidAt);
  }
  if (!span_of(b, wire::load_u16(b.data() + kPeerOffAt), b[kPeerCountAt] * kPeerEntry,
               p.key.peers)) {
    return false;
  }
  return span_of(b, wire::load_u16(b.data() + kValueOffAt), wire::load_u16(b.data() + kValueLenAt),
                 p.value);
}

// The answer to a get: the request up to its value, then the stored value rounded up to four.
Bytes answer_of(std::span<const uint8_t> req, const GencfgStat &stat) {
  const size_t value_len = wire::load_u16(req.data() + kValueLenAt);
  const size_t value_at = wire::load_u16(req.data() + kValueOffAt);
  const size_t keep = value_len != 0 && value_at >= kFixed ? value_at : req.size();
  Bytes reply(req.begin(), req.begin() + static_cast<std::ptrdiff_t>(keep));
  const size_t at = reply.size();
  reply.resize(at + round4(stat.value.size()), 0);
  if (!stat.value.empty()) memcpy(&reply[at], stat.value.data(), stat.value.size());
  wire::store_u16(&reply[kValueLenAt], static_cast<uint16_t>(stat.value.size()));
  wire::store_u16(&reply[kValueOffAt], stat.value.empty() ? 0 : static_cast<uint16_t>(at));
  wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
  return reply;
}

}  // namespace

class GencfgStatsFamily final : public Family {
 public:
  explicit GencfgStatsFamily(Host &host) : host_(host) {
    host.answer_raw(TLK_MSG_GENCFG_STATS, [this](Session &s, const Request &r) { answer(s, r); });
  }

  std::map<GencfgStatKey, GencfgStat> store;

 private:
  void answer(Session &s, const Request &req);
  Host &host_;
};

void GencfgStatsFamily::answer(Session &s, const Request &req) {
  Parsed p;
  if (!parse(req.bytes, p)) return;  // too short for its own offsets: dropped
  auto it = store.find(p.key);
  switch (req.op) {
    case TLK_OP_ADD:
      store[p.key] = GencfgStat{p.value, p.stats_id};
      return;
    case TLK_OP_GET:
      if (it == store.end()) {
        host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
      } else {
        host_.reply_with_seq(s, answer_of(req.bytes, it->second), req.seq);
      }
      return;
    case TLK_OP_CLEAR:
      if (it != store.end()) std::fill(it->second.value.begin(), it->second.value.end(), 0);
      return;
    case TLK_OP_DELETE:
      if (it != store.end()) store.erase(it);
      return;
    default:
      return;
  }
}

namespace {
const FamilySlot<GencfgStatsFamily> kGencfgStats("gencfg_stats");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

GencfgStats Kernel::gencfg_stats() {
  return GencfgStats(&internal::kGencfgStats.in(*impl_));
}
const GencfgStats Kernel::gencfg_stats() const {
  return GencfgStats(&internal::kGencfgStats.in(*impl_));
}

const GencfgStat *GencfgStats::find(const GencfgStatKey &key) const {
  auto it = family_->store.find(key);
  return it == family_->store.end() ? nullptr : &it->second;
}
const std::map<GencfgStatKey, GencfgStat> &GencfgStats::store() const {
  return family_->store;
}
size_t GencfgStats::size() const {
  return family_->store.size();
}
void GencfgStats::set(const GencfgStatKey &key, const GencfgStat &stat) {
  family_->store[key] = stat;
}
void GencfgStats::clear() {
  family_->store.clear();
}

}  // namespace tarsim
