// Protocol families of logical interfaces: a store keyed by logical interface index and address
// family, the answers to framed "iffamily" requests and to raw "iff vpls_stats" reads, and
// "iffamily" notifications of every change.  See tarsim/iff.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <tuple>

#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/iff.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr size_t kStatsFixed = 48;
constexpr size_t kStatsIflidxAt = 32;
constexpr size_t kStatsAfAt = 41;
constexpr char kRefuser[] = "iff_get";

bool key_less(const Iff &a, uint32_t iflidx, uint8_t af) {
  return std::tie(a.iflidx, a.af) < std::tie(iflidx, af);
}

std::string name_of(const iff_msg &req) {
  if (req.iffm_name == nullptr || req.iffm_name_len == 0) return {};
  const auto *p = reinterpret_cast<const char *>(req.iffm_name);
  return std::string(p, strnlen(p, req.iffm_name_len));
}

}  // namespace

class IffFamily final : public Family {
 public:
  explicit IffFamily(Host &host);

  Iff *find(uint32_t iflidx, uint8_t af);
  const Iff *find_name(const std::string &device, uint32_t unit, uint8_t af) const;
  // Stores `f` (new or replacing); true if it was new.
  bool put(const Iff &f);
  bool remove(uint32_t iflidx, uint8_t af, int except_fd);
  void changed(const Iff &f, uint8_t op, int except_fd);
  Bytes frame(const Iff &f, uint8_t op, uint32_t seq, bool tlv) const;

  std::vector<Iff> iffs;  // in key order

 private:
  void seed();
  void answer_frame(Session &s, const Frame &f);
  void answer_stats(Session &s, const Request &req);

  Host &host_;
};

IffFamily::IffFamily(Host &host) : host_(host) {
  seed();
  host.answer_frames(TLK_MSG_IFFAMILY, [this](Session &s, const Frame &f) { answer_frame(s, f); });
  host.answer_raw(TLK_MSG_IFF_VPLS_STATS,
                  [this](Session &s, const Request &r) { answer_stats(s, r); });
}

void IffFamily::seed() {
  const struct {
    const char *device;
    uint32_t unit, iflidx;
    uint8_t af;
    uint32_t donor;
  } seed[] = {
      {"ge0", 0, 70, kAfInet, 0},   {"ge0", 0, 70, kAfInet6, 0},   {"ge0", 100, 71, kAfInet, 0},
      {"ge1", 0, 72, kAfInet, 16},  {"xe0", 0, 80, kAfInet, 0},    {"xe0", 0, 80, kAfInet6, 0},
      {"xe0", 200, 81, kAfInet, 0}, {"lo0", 0, 16, kAfInet, 0},    {"lo0", 0, 16, kAfInet6, 0},
      {"ge2", 0, 73, kAfInet, 0},   {"ge3", 0, 74, kAfInet, 0},    {"xe1", 0, 82, kAfInet6, 0},
      {"xe1", 300, 83, kAfInet, 0}, {"xe1", 300, 83, kAfInet6, 0},
  };
  for (const auto &s : seed) {
    Iff f;
    f.iflidx = s.iflidx;
    f.af = s.af;
    f.device = s.device;
    f.unit = s.unit;
    f.donor = s.donor;
    f.flags = s.donor != 0 ? kIffUnnumbered : 0;
    put(f);
  }
}

Iff *IffFamily::find(uint32_t iflidx, uint8_t af) {
  auto it =
      std::lower_bound(iffs.begin(), iffs.end(), std::pair{iflidx, af},
                       [](const Iff &x, const auto &k) { return key_less(x, k.first, k.second); });
  return it != iffs.end() && it->iflidx == iflidx && it->af == af ? &*it : nullptr;
}

const Iff *IffFamily::find_name(const std::string &device, uint32_t unit, uint8_t af) const {
  for (const Iff &f : iffs) {
    if (f.device == device && f.unit == unit && f.af == af) return &f;
  }
  return nullptr;
}

bool IffFamily::put(const Iff &f) {
  auto it = std::lower_bound(iffs.begin(), iffs.end(), f, [](const Iff &x, const Iff &k) {
    return key_less(x, k.iflidx, k.af);
  });
  if (it != iffs.end() && it->iflidx == f.iflidx && it->af == f.af) {
    *it = f;
    return false;
  }
  iffs.insert(it, f);
  return true;
}

bool IffFamily::remove(uint32_t iflidx, uint8_t af, int except_fd) {
  Iff *f = find(iflidx, af);
  if (f == nullptr) return false;
  const Iff gone = *f;
  iffs.erase(iffs.begin() + (f - iffs.data()));
  changed(gone, TLK_OP_DELETE, except_fd);
  return true;
}

void IffFamily::changed(const Iff &f, uint8_t op, int except_fd) {
  if (!host_.has_listener(TLK_MSG_IFFAMILY, except_fd)) return;
  host_.notify(TLK_MSG_IFFAMILY, frame(f, op, 0, false), except_fd);
}

Bytes IffFamily::frame(const Iff &f, uint8_t op, uint32_t seq, bool tlv) const {
  iff_msg m{};
  m.iffm_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_IFFAMILY];
  m.iffm_hdr.tlkh_type = TLK_MSG_IFFAMILY;
  m.iffm_hdr.tlkh_op = op;
  m.iffm_hdr.tlkh_seq = seq;
  m.iffm_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_iff_msg_0);
  m.iffm_iflidx.idx = f.iflidx;
  m.iffm_af = f.af;
  m.iffm_unit = f.unit;
  m.iffm_flags = f.flags;
  m.iffm_word = f.word;
  m.iffm_short = f.short_value;
  m.iffm_generation = f.generation;
  m.iffm_filter_len = f.filter_len;
  std::string name = f.device;
  name.push_back('\0');
  m.iffm_name = reinterpret_cast<uint8_t *>(name.data());
  m.iffm_name_len = static_cast<uint32_t>(name.size());
  // An unnumbered family names its donor in an attachment.
  tlk_msg_info donor{};
  tlk_msg_info *list[1] = {&donor};
  if ((f.flags & kIffUnnumbered) != 0) {
    donor.tlkmi_type = kIffTlvUnnumInfo;
    donor.tlkmi_u.iff_tlv_unnum_info.itui_index = f.donor;
    m.iffm_hdr.tlkh_info = list;
    m.iffm_hdr.tlkh_info_len = 1;
  }
  return encode_frame(TLK_MSG_IFFAMILY, &m, tlv);
}

void IffFamily::answer_frame(Session &s, const Frame &f) {
  const auto &req = f.as<iff_msg>();
  const tlk_hdr &h = req.iffm_hdr;
  const uint32_t iflidx = req.iffm_iflidx.idx;
  const uint8_t af = req.iffm_af;
  switch (h.tlkh_op) {
    case TLK_OP_ADD: {
      if (find(iflidx, af) != nullptr) return;  // taken: left as it is (an add has no reply)
      Iff n;
      n.iflidx = iflidx;
      n.af = af;
      // The logical interface's name, from a family it already has.
      for (const Iff &other : iffs) {
        if (other.iflidx == iflidx) {
          n.device = other.device;
          n.unit = other.unit;
          break;
        }
      }
      n.flags = req.iffm_flags;
      n.word = req.iffm_word;
      n.short_value = req.iffm_short;
      n.filter_len = req.iffm_filter_len;
      (void)put(n);
      changed(n, TLK_OP_ADD, s.lib_fd);
      return;
    }
    case TLK_OP_CHANGE: {
      Iff *cur = find(iflidx, af);
      if (cur == nullptr) return;  // nothing to change, and a change has no reply
      cur->flags = req.iffm_flags;
      cur->word = req.iffm_word;
      cur->short_value = req.iffm_short;
      cur->filter_len = req.iffm_filter_len;
      if ((cur->flags & kIffUnnumbered) == 0) cur->donor = 0;
      ++cur->generation;
      changed(*cur, TLK_OP_CHANGE, s.lib_fd);
      return;
    }
    case TLK_OP_DELETE:
      (void)remove(iflidx, af, s.lib_fd);
      return;
    case TLK_OP_GET:
    case TLK_OP_GETNEXT:
      break;
    default:
      return;
  }
  const Iff *found = nullptr;
  const std::string name = name_of(req);
  if (h.tlkh_op == TLK_OP_GETNEXT) {
    auto it = std::upper_bound(iffs.begin(), iffs.end(), std::pair{iflidx, af},
                               [](const auto &k, const Iff &x) {
                                 return std::tie(k.first, k.second) < std::tie(x.iflidx, x.af);
                               });
    if (it != iffs.end()) found = &*it;
  } else if (iflidx == 0 && !name.empty()) {
    found = find_name(name, req.iffm_unit, af);
  } else {
    found = find(iflidx, af);
  }
  if (found == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_IFFAMILY, h.tlkh_op, h.tlkh_seq, kRefuser);
    return;
  }
  host_.reply(s, frame(*found, h.tlkh_op, h.tlkh_seq, f.tlv));
}

void IffFamily::answer_stats(Session &s, const Request &req) {
  const auto b = req.bytes;
  if (b.size() < kStatsFixed) return;  // too short to read: dropped
  const Iff *f = find(wire::load_u32(b.data() + kStatsIflidxAt), b[kStatsAfAt]);
  if (f == nullptr) {
    host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
    return;
  }
  Bytes reply(b.begin(), b.begin() + kStatsFixed);
  reply.resize(kStatsFixed + 16);
  memcpy(&reply[kStatsFixed], &f->vpls_packets, 8);
  memcpy(&reply[kStatsFixed + 8], &f->vpls_bytes, 8);
  wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
  host_.reply_with_seq(s, reply, req.seq);
}

namespace {
const FamilySlot<IffFamily> kIffs("iff");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

Iffs Kernel::iffs() {
  return Iffs(&internal::kIffs.in(*impl_));
}
const Iffs Kernel::iffs() const {
  return Iffs(&internal::kIffs.in(*impl_));
}

void Iffs::create(const Iff &f) {
  Iff n = f;
  if (const Iff *old = family_->find(f.iflidx, f.af)) n.generation = old->generation + 1;
  const bool added = family_->put(n);
  family_->changed(n, added ? TLK_OP_ADD : TLK_OP_CHANGE, -1);
}

bool Iffs::change_flags(uint32_t iflidx, uint8_t af, uint64_t set, uint64_t clear) {
  Iff *f = family_->find(iflidx, af);
  if (f == nullptr) return false;
  f->flags = (f->flags & ~clear) | set;
  ++f->generation;
  family_->changed(*f, TLK_OP_CHANGE, -1);
  return true;
}

bool Iffs::set_donor(uint32_t iflidx, uint8_t af, uint32_t donor) {
  Iff *f = family_->find(iflidx, af);
  if (f == nullptr) return false;
  f->donor = donor;
  f->flags = donor != 0 ? (f->flags | kIffUnnumbered) : (f->flags & ~kIffUnnumbered);
  ++f->generation;
  family_->changed(*f, TLK_OP_CHANGE, -1);
  return true;
}

bool Iffs::destroy(uint32_t iflidx, uint8_t af) {
  return family_->remove(iflidx, af, -1);
}

void Iffs::add(const Iff &f) {
  (void)family_->put(f);
}
void Iffs::clear() {
  family_->iffs.clear();
}
const std::vector<Iff> &Iffs::list() const {
  return family_->iffs;
}
const Iff *Iffs::find(uint32_t iflidx, uint8_t af) const {
  return family_->find(iflidx, af);
}
const Iff *Iffs::find_name(const char *device, uint32_t unit, uint8_t af) const {
  return device == nullptr ? nullptr : family_->find_name(device, unit, af);
}

Bytes Iffs::frame(const Iff &f, uint8_t op, uint32_t seq, bool tlv) const {
  return family_->frame(f, op, seq, tlv);
}

}  // namespace tarsim
