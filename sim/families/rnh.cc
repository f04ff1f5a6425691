// Next hops: a store keyed by index with a few seeded next hops, the answers to framed "nexthop"
// and "NH-comp" requests, raw "residx" requests for reserved indexes, and the notifications of
// each change.  See tarsim/rnh.hpp for the contract.
#include <string.h>

#include <algorithm>

#include "../core.h"
#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "nexthops.h"
#include "tarlink_platform.h"
#include "tarsim/rnh.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint32_t kFirstIndex = 1000;       // indexes the kernel assigns start here
constexpr uint32_t kFirstReserved = 500000;  // and reserved ones here
constexpr unsigned long kRetrieveComposite = 1024;
constexpr uint32_t kSelIdxList = 10;
constexpr char kRefuser[] = "nh_get";

// The residx layout: the index in the first word, the reserve count at 25; 32 bytes.
constexpr size_t kResidxLen = 32, kResidxCountAt = 25;

// Selectors whose arm is the generic one: a body of opaque bytes.
bool generic_selector(uint32_t sel) {
  return sel == 0 || sel == 5 || sel == 7 || sel == 8 || sel == 9 || sel == 17;
}

uint32_t null_nh() {
  return tlk_platform_get()->null_nh_idx;
}

// The service block a seeded service next hop carries: owner word, one interface, count 1,
// service kind 1, its name at 140.
Bytes service_block(uint32_t ifl, const char *name) {
  Bytes b(388, 0);
  wire::store_u32(&b[0], (2u << 28) | 7u);
  wire::store_u32(&b[4], ifl);
  b[136] = 1;
  b[137] = 1;
  memcpy(&b[140], name, strlen(name));
  return b;
}

}  // namespace

class RnhFamily final : public Family {
 public:
  explicit RnhFamily(Host &host);

  void add(const Nexthop &nh);
  bool remove(uint32_t index);
  Nexthop *find(uint32_t index);
  uint32_t next_free() const;
  Bytes frame(const Nexthop &nh, uint8_t op, uint32_t seq, bool tlv, bool children) const;
  void changed(const Nexthop &nh, uint8_t op, int except_fd);

  std::vector<Nexthop> nhs;  // in index order
  std::vector<uint32_t> reserved;

 private:
  void answer(Session &s, const Frame &f);
  void answer_comp(Session &s, const Frame &f);
  void answer_residx(Session &s, const Request &r);
  const Nexthop *lookup(uint32_t idx, bool next, bool composites_only) const;

  Host &host_;
};

RnhFamily::RnhFamily(Host &host) : host_(host) {
  Nexthop a;
  a.index = kFirstIndex;
  a.ifl = 70;
  add(a);
  a.index = kFirstIndex + 1;
  a.ifl = 80;
  add(a);
  Nexthop svc;
  svc.index = kFirstIndex + 2;
  svc.type = kNhService;
  svc.ifl = 72;
  svc.selector = 5;
  svc.body = service_block(72, "nat-pool");
  add(svc);
  Nexthop comp;
  comp.index = kFirstIndex + 3;
  comp.type = kNhComposite;
  comp.children = {kFirstIndex, kFirstIndex + 1};
  add(comp);
  comp.index = kFirstIndex + 4;
  comp.children = {kFirstIndex + 1, kFirstIndex + 2};
  add(comp);
  host.answer_frames(TLK_MSG_NEXTHOP, [this](Session &s, const Frame &f) { answer(s, f); });
  host.answer_frames(TLK_MSG_NH_COMP, [this](Session &s, const Frame &f) { answer_comp(s, f); });
  host.answer_raw(TLK_MSG_RESIDX, [this](Session &s, const Request &r) { answer_residx(s, r); });
}

void RnhFamily::add(const Nexthop &nh) {
  auto it = std::lower_bound(nhs.begin(), nhs.end(), nh.index,
                             [](const Nexthop &x, uint32_t index) { return x.index < index; });
  if (it != nhs.end() && it->index == nh.index) {
    *it = nh;
  } else {
    nhs.insert(it, nh);
  }
}

bool RnhFamily::remove(uint32_t index) {
  auto it =
      std::find_if(nhs.begin(), nhs.end(), [&](const Nexthop &n) { return n.index == index; });
  if (it == nhs.end()) return false;
  nhs.erase(it);
  return true;
}

Nexthop *RnhFamily::find(uint32_t index) {
  auto it = std::lower_bound(nhs.begin(), nhs.end(), index,
                             [](const Nexthop &x, uint32_t i) { return x.index < i; });
  return it != nhs.end() && it->index == index ? &*it : nullptr;
}

uint32_t RnhFamily::next_free() const {
  return nhs.empty() || nhs.back().index < kFirstIndex ? kFirstIndex : nhs.back().index + 1;
}

// The next hop at `idx`, or with `next` the first after it; only composites with
// `composites_only` (a getnext steps over the others).
const Nexthop *RnhFamily::lookup(uint32_t idx, bool next, bool composites_only) const {
  auto it = std::lower_bound(nhs.begin(), nhs.end(), idx,
                             [](const Nexthop &x, uint32_t i) { return x.index < i; });
  if (!next) {
    if (it == nhs.end() || it->index != idx) return nullptr;
    return !composites_only || it->type == kNhComposite ? &*it : nullptr;
  }
  for (; it != nhs.end(); ++it) {
    if (it->index == idx) continue;
    if (!composites_only || it->type == kNhComposite) return &*it;
  }
  return nullptr;
}

Bytes RnhFamily::frame(const Nexthop &nh, uint8_t op, uint32_t seq, bool tlv, bool children) const {
  rnh_msg m{};
  m.rnh_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_NEXTHOP];
  m.rnh_hdr.tlkh_type = TLK_MSG_NEXTHOP;
  m.rnh_hdr.tlkh_op = op;
  m.rnh_hdr.tlkh_seq = seq;
  m.rnh_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_rnh_msg_0);
  m.idx.idx = nh.index;
  m.ifidx.idx = nh.ifl;
  m.af = nh.af;
  m.nh = nh.type;
  m.flags = nh.flags;
  m.tid = nh.tid;
  m.uflags = nh.uflags;
  m.sub_kind = nh.sub_kind;
  Bytes body = nh.body;
  std::vector<uint32_t> kids = nh.children;
  if (children && !kids.empty()) {
    m.rnh_info.rnhi_type = kSelIdxList;
    m.rnh_info.rnhi_u.nh_idx_list_info.nili_idx = kids.data();
    m.rnh_info.rnhi_u.nh_idx_list_info.nili_count = static_cast<uint32_t>(kids.size());
  } else {
    m.rnh_info.rnhi_type = nh.selector;
    if (generic_selector(nh.selector) && !body.empty()) {
      auto &g = m.rnh_info.rnhi_u.rnh_info_generic;
      g.rnig_data = body.data();
      g.rnig_data_len = static_cast<uint32_t>(body.size());
      g.rnig_len = g.rnig_data_len;
      m.info_len = g.rnig_data_len;
    }
  }
  return encode_frame(TLK_MSG_NEXTHOP, &m, tlv);
}

void RnhFamily::changed(const Nexthop &nh, uint8_t op, int except_fd) {
  if (!host_.has_listener(TLK_MSG_NEXTHOP, except_fd)) return;
  host_.notify(TLK_MSG_NEXTHOP, frame(nh, op, 0, false, false), except_fd);
}

namespace {

// A next hop as a request describes it.
Nexthop from_request(const rnh_msg &req) {
  Nexthop nh;
  nh.index = req.idx.idx;
  nh.type = req.nh;
  nh.af = req.af;
  nh.ifl = req.ifidx.idx;
  nh.flags = req.flags;
  nh.tid = req.tid;
  nh.uflags = static_cast<uint32_t>(req.uflags);
  nh.sub_kind = req.sub_kind;
  nh.selector = req.rnh_info.rnhi_type;
  if (generic_selector(nh.selector)) {
    const auto &g = req.rnh_info.rnhi_u.rnh_info_generic;
    if (g.rnig_data != nullptr) nh.body.assign(g.rnig_data, g.rnig_data + g.rnig_data_len);
  }
  return nh;
}

}  // namespace

void RnhFamily::answer(Session &s, const Frame &f) {
  const auto &req = f.as<rnh_msg>();
  const tlk_hdr &hdr = f.hdr();
  const uint8_t op = hdr.tlkh_op;
  const bool children = (req.retrieve_mask & kRetrieveComposite) != 0;
  switch (op) {
    case TLK_OP_ADD:
    case TLK_OP_ADD_GET: {
      Nexthop nh = from_request(req);
      if (nh.index == null_nh()) nh.index = next_free();
      add(nh);
      const Nexthop &stored = *find(nh.index);
      if (op == TLK_OP_ADD_GET) host_.reply(s, frame(stored, op, hdr.tlkh_seq, f.tlv, false));
      changed(stored, TLK_OP_ADD, s.lib_fd);
      return;
    }
    case TLK_OP_CHANGE:
    case TLK_OP_CHG_GET:
    case TLK_OP_DELETE: {
      Nexthop *nh = find(req.idx.idx);
      if (nh == nullptr) {
        if (op == TLK_OP_CHG_GET) {
          host_.refuse_not_found(s, TLK_MSG_NEXTHOP, op, hdr.tlkh_seq, kRefuser);
        }
        return;
      }
      if (op == TLK_OP_DELETE) {
        const Nexthop gone = *nh;
        remove(gone.index);
        changed(gone, TLK_OP_DELETE, s.lib_fd);
        return;
      }
      Nexthop updated = from_request(req);
      updated.children = nh->children;
      *nh = updated;
      if (op == TLK_OP_CHG_GET) host_.reply(s, frame(*nh, op, hdr.tlkh_seq, f.tlv, false));
      changed(*nh, TLK_OP_CHANGE, s.lib_fd);
      return;
    }
    case TLK_OP_GET:
    case TLK_OP_GETNEXT: {
      const Nexthop *nh = lookup(req.idx.idx, op == TLK_OP_GETNEXT, false);
      if (nh == nullptr) {
        host_.refuse_not_found(s, TLK_MSG_NEXTHOP, op, hdr.tlkh_seq, kRefuser);
        return;
      }
      host_.reply(s, frame(*nh, op, hdr.tlkh_seq, f.tlv, children));
      return;
    }
    default:
      return;
  }
}

void RnhFamily::answer_comp(Session &s, const Frame &f) {
  const auto &req = f.as<rnhc_msg>();
  const tlk_hdr &hdr = f.hdr();
  if (hdr.tlkh_op != TLK_OP_GET && hdr.tlkh_op != TLK_OP_GETNEXT) return;
  const Nexthop *nh = lookup(req.idx.idx, hdr.tlkh_op == TLK_OP_GETNEXT, true);
  if (nh == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_NH_COMP, hdr.tlkh_op, hdr.tlkh_seq, kRefuser);
    return;
  }
  rnhc_msg m{};
  m.rnhc_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_NH_COMP];
  m.rnhc_hdr.tlkh_type = TLK_MSG_NH_COMP;
  m.rnhc_hdr.tlkh_op = hdr.tlkh_op;
  m.rnhc_hdr.tlkh_seq = hdr.tlkh_seq;
  m.rnhc_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_rnhc_msg_0);
  m.idx.idx = nh->index;
  m.af = nh->af;
  m.nh = nh->type;
  std::vector<uint32_t> kids = nh->children;
  m.children = kids.data();
  m.child_count = static_cast<uint32_t>(kids.size());
  host_.reply(s, encode_frame(TLK_MSG_NH_COMP, &m, f.tlv));
}

void RnhFamily::answer_residx(Session &s, const Request &r) {
  const auto b = r.bytes;
  if (b.size() < kResidxLen) return;  // too short to read: dropped
  if (r.op == TLK_OP_DELETEALL) {
    reserved.clear();
    return;
  }
  Bytes reply(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(kResidxLen));
  if (r.op == TLK_OP_GET) {
    const unsigned count = std::max<unsigned>(1, b[kResidxCountAt]);
    const uint32_t first = reserved.empty() ? kFirstReserved : reserved.back() + 1;
    for (unsigned i = 0; i < count; ++i) reserved.push_back(first + i);
    wire::store_u32(reply.data(), first);
  } else if (r.op == TLK_OP_GETNEXT) {
    const uint32_t after = wire::load_u32(b.data());
    auto it = std::upper_bound(reserved.begin(), reserved.end(), after);
    if (it == reserved.end()) {
      host_.refuse_not_found(s, r.type, r.op, r.seq, kRefuser);
      return;
    }
    wire::store_u32(reply.data(), *it);
  } else {
    return;
  }
  host_.reply_with_seq(s, reply, r.seq);
}

namespace {
const FamilySlot<RnhFamily> kRnh("rnh");
}  // namespace

bool nexthop_exists(Host &host, uint32_t idx) {
  return kRnh.in(static_cast<Core &>(host)).find(idx) != nullptr;
}

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

Nexthops Kernel::nexthops() {
  return Nexthops(&internal::kRnh.in(*impl_));
}
const Nexthops Kernel::nexthops() const {
  return Nexthops(&internal::kRnh.in(*impl_));
}

void Nexthops::add(const Nexthop &nh) {
  family_->add(nh);
}
bool Nexthops::remove(uint32_t index) {
  return family_->remove(index);
}
void Nexthops::clear() {
  family_->nhs.clear();
}
const std::vector<Nexthop> &Nexthops::list() const {
  return family_->nhs;
}
const Nexthop *Nexthops::find(uint32_t index) const {
  return family_->find(index);
}

bool Nexthops::create(const Nexthop &nh) {
  if (nh.index == 0 || family_->find(nh.index) != nullptr) return false;
  family_->add(nh);
  family_->changed(*family_->find(nh.index), TLK_OP_ADD, -1);
  return true;
}

bool Nexthops::destroy(uint32_t index) {
  const Nexthop *nh = family_->find(index);
  if (nh == nullptr) return false;
  const Nexthop gone = *nh;
  family_->remove(index);
  family_->changed(gone, TLK_OP_DELETE, -1);
  return true;
}

uint32_t Nexthops::make_composite(const uint32_t *children, size_t count, uint8_t af) {
  if (children == nullptr || count == 0) return 0;
  for (size_t i = 0; i < count; ++i) {
    if (family_->find(children[i]) == nullptr) return 0;
  }
  Nexthop comp;
  comp.index = family_->next_free();
  comp.type = kNhComposite;
  comp.af = af;
  comp.children.assign(children, children + count);
  return create(comp) ? comp.index : 0;
}

const std::vector<uint32_t> &Nexthops::reserved() const {
  return family_->reserved;
}

}  // namespace tarsim
