// Multicast groups: the store, and the answers to framed "mgroup" requests.  See
// tarsim/mgroup.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <vector>

#include "../family.h"
#include "../session.h"
#include "tarsim/mgroup.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint8_t kInet = 2, kInet6 = 28;
constexpr uint16_t kMaxBits = 128;
constexpr char kRefuser[] = "mgr_get";

// The group's bytes as the store keeps them: at most `bits` bits of `bytes` (of which `len` are
// given), the rest cleared.
MulticastGroup keyed(uint16_t tid, uint8_t af, const uint8_t *bytes, size_t len, uint16_t bits) {
  MulticastGroup g;
  g.tid = tid;
  g.af = af;
  g.bits = std::min(bits, kMaxBits);
  const size_t whole = g.bits / 8u, partial = g.bits % 8u;
  const size_t n = std::min<size_t>(len, (g.bits + 7u) / 8);
  if (bytes != nullptr && n != 0) memcpy(g.group, bytes, n);
  if (partial != 0 && whole < sizeof g.group)
    g.group[whole] &= static_cast<uint8_t>(0xFF << (8 - partial));
  return g;
}

// (table, family, group bytes, length) order.
int compare(const MulticastGroup &a, const MulticastGroup &b) {
  if (a.tid != b.tid) return a.tid < b.tid ? -1 : 1;
  if (a.af != b.af) return a.af < b.af ? -1 : 1;
  if (const int c = memcmp(a.group, b.group, sizeof a.group); c != 0) return c;
  return a.bits == b.bits ? 0 : (a.bits < b.bits ? -1 : 1);
}

bool before(const MulticastGroup &a, const MulticastGroup &b) {
  return compare(a, b) < 0;
}

bool same(const MulticastGroup &a, const MulticastGroup &b) {
  return compare(a, b) == 0;
}

}  // namespace

class MgroupFamily final : public Family {
 public:
  explicit MgroupFamily(Host &host);

  void add(const MulticastGroup &g);
  std::vector<MulticastGroup>::iterator find(const MulticastGroup &key);

  std::vector<MulticastGroup> groups;  // in (tid, af, group) order

 private:
  void answer(Session &s, const Frame &f);
  Bytes frame_of(const MulticastGroup &g, uint8_t op, uint32_t seq, bool tlv) const;

  Host &host_;
};

MgroupFamily::MgroupFamily(Host &host) : host_(host) {
  const uint8_t v4[] = {224, 1, 1, 1};
  const uint8_t v6[] = {0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0, 0x03};
  add(keyed(0, kInet, v4, sizeof v4, 32));
  add(keyed(0, kInet6, v6, sizeof v6, 128));
  host.answer_frames(TLK_MSG_MGROUP, [this](Session &s, const Frame &f) { answer(s, f); });
}

void MgroupFamily::add(const MulticastGroup &g) {
  const MulticastGroup k = keyed(g.tid, g.af, g.group, sizeof g.group, g.bits);
  MulticastGroup stored = g;
  memcpy(stored.group, k.group, sizeof stored.group);
  stored.bits = k.bits;
  auto it = std::lower_bound(groups.begin(), groups.end(), stored, before);
  if (it != groups.end() && same(*it, stored)) {
    *it = stored;
  } else {
    groups.insert(it, stored);
  }
}

std::vector<MulticastGroup>::iterator MgroupFamily::find(const MulticastGroup &key) {
  auto it = std::lower_bound(groups.begin(), groups.end(), key, before);
  return it != groups.end() && same(*it, key) ? it : groups.end();
}

Bytes MgroupFamily::frame_of(const MulticastGroup &g, uint8_t op, uint32_t seq, bool tlv) const {
  mgr_msg m{};
  m.mgr_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_MGROUP];
  m.mgr_hdr.tlkh_type = TLK_MSG_MGROUP;
  m.mgr_hdr.tlkh_op = op;
  m.mgr_hdr.tlkh_seq = seq;
  m.mgr_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_mgr_msg_0);
  m.tid = g.tid;
  m.af = g.af;
  uint8_t bytes[sizeof g.group];
  memcpy(bytes, g.group, sizeof bytes);
  m.group.plen = g.bits;
  m.group.prefix = bytes;
  m.group.prefix_len = ((g.bits + 31u) / 8) & 0x3FFC;  // whole words, as requests carry them
  m.mgr_nhidx.idx = g.nhidx;
  return encode_frame(TLK_MSG_MGROUP, &m, tlv);
}

void MgroupFamily::answer(Session &s, const Frame &f) {
  const auto &req = f.as<mgr_msg>();
  const tlk_hdr &hdr = f.hdr();
  if (hdr.tlkh_op != TLK_OP_GET && hdr.tlkh_op != TLK_OP_GETNEXT) return;
  const MulticastGroup key =
      keyed(req.tid, req.af, req.group.prefix, req.group.prefix_len, req.group.plen);
  const MulticastGroup *found = nullptr;
  if (hdr.tlkh_op == TLK_OP_GETNEXT) {
    auto it = std::upper_bound(groups.begin(), groups.end(), key, before);
    if (it != groups.end()) found = &*it;
  } else if (auto it = find(key); it != groups.end()) {
    found = &*it;
  }
  if (found == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_MGROUP, hdr.tlkh_op, hdr.tlkh_seq, kRefuser);
    return;
  }
  host_.reply(s, frame_of(*found, hdr.tlkh_op, hdr.tlkh_seq, f.tlv));
}

namespace {
const FamilySlot<MgroupFamily> kMgroup("mgroup");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

MulticastGroups Kernel::multicast_groups() {
  return MulticastGroups(&internal::kMgroup.in(*impl_));
}
const MulticastGroups Kernel::multicast_groups() const {
  return MulticastGroups(&internal::kMgroup.in(*impl_));
}

void MulticastGroups::add(const MulticastGroup &g) {
  family_->add(g);
}
bool MulticastGroups::remove(uint16_t tid, uint8_t af, const uint8_t *group, uint16_t bits) {
  const MulticastGroup key = internal::keyed(tid, af, group, 16, bits);
  auto it = family_->find(key);
  if (it == family_->groups.end()) return false;
  family_->groups.erase(it);
  return true;
}
void MulticastGroups::clear() {
  family_->groups.clear();
}
size_t MulticastGroups::size() const {
  return family_->groups.size();
}
const MulticastGroup *MulticastGroups::at(size_t i) const {
  return i < family_->groups.size() ? &family_->groups[i] : nullptr;
}
const MulticastGroup *MulticastGroups::find(uint16_t tid, uint8_t af, const uint8_t *group,
                                            uint16_t bits) const {
  auto it = family_->find(internal::keyed(tid, af, group, 16, bits));
  return it != family_->groups.end() ? &*it : nullptr;
}

}  // namespace tarsim
