// Logical interfaces: a unit on every port of the default chassis, the answers to framed
// "iflogical" requests (reads, adds, changes, point changes, deletes) in the encoding the request
// came in, the list of every unit through the numeric system control, raw "iflstats" reads, and
// the notifications of each change.  See tarsim/ifl.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <array>

#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/ifl.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint32_t kPointChange = 16;    // iflm_change of a point change
constexpr uint32_t kUpPresent = 0x8001;  // up, with the kernel's "present" bit
constexpr uint8_t kAfLink = 18;
// { CTL_NET, PF_ROUTE, 0, 0, NET_RT_IFLIST, 2 }: every logical interface.
const std::vector<int> kIflListMib = {4, 17, 0, 0, 3, 2};
constexpr char kRefuser[] = "ifl_get";

// The raw "iflstats" layout: a 72-byte fixed part, then the name.
constexpr size_t kStatsFixed = 72, kUnitAt = 28, kIndexAt = 32, kNameLenAt = 41,
                 kKernelReplyAt = 58;
constexpr uint16_t kKernelReply = 1;

// A link-level socket address: length 20, family 18, address length 6 at byte 10, the six bytes
// from 12.
Bytes link_sockaddr(const std::array<uint8_t, 6> &mac) {
  Bytes sa(20, 0);
  sa[0] = 20;
  sa[1] = kAfLink;
  sa[10] = 6;
  memcpy(&sa[12], mac.data(), 6);
  return sa;
}

std::string name_of(const ifl_msg &req) {
  if (req.iflm_name == nullptr || req.iflm_name_len == 0) return {};
  const auto *p = reinterpret_cast<const char *>(req.iflm_name);
  return std::string(p, strnlen(p, req.iflm_name_len));
}

// The one socket address a request carries, or nothing.
Bytes addr_of(const ifl_msg &req) {
  if (req.iflm_addr == nullptr || req.iflm_addr_len == 0) return {};
  const uint8_t *sa = req.iflm_addr[0].sai_addr;
  if (sa == nullptr || sa[0] == 0) return {};
  return Bytes(sa, sa + sa[0]);
}

std::string raw_name(std::span<const uint8_t> b, size_t off, size_t len) {
  if (len == 0 || off >= b.size()) return {};
  const auto *p = reinterpret_cast<const char *>(&b[off]);
  return std::string(p, strnlen(p, std::min(len, b.size() - off)));
}

}  // namespace

class IflFamily final : public Family {
 public:
  explicit IflFamily(Host &host);

  void add(const Ifl &ifl);
  bool remove(uint32_t index);
  Ifl *find(uint32_t index);
  Bytes frame(const Ifl &ifl, uint8_t op, uint32_t seq, bool tlv) const;
  Bytes ifl_list() const;
  // Tells every listener but `except_fd` of a change to `ifl`.
  void changed(const Ifl &ifl, uint8_t op, int except_fd);

  std::vector<Ifl> ifls;  // in index order

 private:
  Ifl *lookup(const ifl_msg &req, bool next);
  void answer(Session &s, const Frame &f);
  void write(Session &s, const ifl_msg &req);
  void answer_stats(Session &s, const Request &req);

  Host &host_;
};

IflFamily::IflFamily(Host &host) : host_(host) {
  // A unit on every port of the chassis, two on ge0, xe0 and xe1; xe1.300 rides on xe1.0.
  const struct {
    const char *device;
    uint16_t devidx;
    uint32_t unit, index;
    uint32_t uidx;
    uint16_t tenant, subset_mask;
    uint64_t privflags;
    bool link;
  } seed[] = {
      {"ge0", 130, 0, 70, 0, 0, 0, 0, true},         {"ge0", 130, 100, 71, 0, 7, 0x3, 0x10, false},
      {"ge1", 131, 0, 72, 0, 0, 0, 0, true},         {"ge2", 132, 0, 73, 0, 3, 0x1, 0, false},
      {"ge3", 133, 0, 74, 0, 0, 0, 0, false},        {"xe0", 140, 0, 80, 0, 0, 0, 0, true},
      {"xe0", 140, 200, 81, 0, 7, 0x3, 0x10, false}, {"lo0", 6, 0, 16, 0, 0, 0, 0, false},
      {"xe1", 141, 0, 82, 0, 0, 0, 0, true},         {"xe1", 141, 300, 83, 82, 9, 0x8, 0x4, false},
  };
  for (const auto &s : seed) {
    Ifl ifl;
    ifl.device = s.device;
    ifl.devidx = s.devidx;
    ifl.unit = s.unit;
    ifl.index = s.index;
    ifl.snmp_id = 500 + s.index;
    ifl.flags = kUpPresent;
    ifl.generation = 1;
    ifl.uidx = s.uidx;
    ifl.tenant = s.tenant;
    ifl.subset_mask = s.subset_mask;
    ifl.privflags = s.privflags;
    if (s.link) {
      ifl.link_addr = link_sockaddr({0x02, 0x54, 0x4c, 0x71, static_cast<uint8_t>(s.devidx >> 8),
                                     static_cast<uint8_t>(s.devidx)});
    }
    add(ifl);
  }
  host.answer_frames(TLK_MSG_IFLOGICAL, [this](Session &s, const Frame &f) { answer(s, f); });
  host.answer_raw(TLK_MSG_IFLSTATS, [this](Session &s, const Request &r) { answer_stats(s, r); });
  host.answer_sysctl(kIflListMib, [this] { return ifl_list(); });
}

void IflFamily::add(const Ifl &ifl) {
  auto it = std::lower_bound(ifls.begin(), ifls.end(), ifl.index,
                             [](const Ifl &x, uint32_t index) { return x.index < index; });
  if (it != ifls.end() && it->index == ifl.index) {
    *it = ifl;
  } else {
    ifls.insert(it, ifl);  // kept in index order
  }
}

bool IflFamily::remove(uint32_t index) {
  auto it = std::find_if(ifls.begin(), ifls.end(), [&](const Ifl &i) { return i.index == index; });
  if (it == ifls.end()) return false;
  ifls.erase(it);
  return true;
}

Ifl *IflFamily::find(uint32_t index) {
  for (Ifl &i : ifls) {
    if (i.index == index) return &i;
  }
  return nullptr;
}

// Looks a request's keys up: the index first, then the SNMP id, then the device name or index
// with the unit.  With `next`, the logical interface that follows the index in index order.
Ifl *IflFamily::lookup(const ifl_msg &req, bool next) {
  if (next) {
    for (Ifl &i : ifls) {
      if (i.index > req.iflm_index.idx) return &i;
    }
    return nullptr;
  }
  if (req.iflm_index.idx != 0) return find(req.iflm_index.idx);
  const std::string name = name_of(req);
  for (Ifl &i : ifls) {
    if (req.iflm_snmp_id.idx != 0) {
      if (i.snmp_id == req.iflm_snmp_id.idx) return &i;
    } else if (!name.empty()) {
      if (i.device == name && i.unit == req.iflm_unit) return &i;
    } else if (i.devidx == req.iflm_devidx && i.unit == req.iflm_unit) {
      return &i;
    }
  }
  return nullptr;
}

Bytes IflFamily::frame(const Ifl &ifl, uint8_t op, uint32_t seq, bool tlv) const {
  ifl_msg m{};
  m.iflm_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_IFLOGICAL];
  m.iflm_hdr.tlkh_type = TLK_MSG_IFLOGICAL;
  m.iflm_hdr.tlkh_op = op;
  m.iflm_hdr.tlkh_seq = seq;
  m.iflm_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_ifl_msg_0);
  m.iflm_index.idx = ifl.index;
  m.iflm_snmp_id.idx = ifl.snmp_id;
  m.iflm_devidx = ifl.devidx;
  m.iflm_unit = ifl.unit;
  m.iflm_flags = ifl.flags;
  m.iflm_generation = ifl.generation;
  m.iflm_lr = ifl.lr;
  m.iflm_privflags = ifl.privflags;
  m.iflm_uidx.idx = ifl.uidx;
  m.iflm_subset_mask = ifl.subset_mask;
  m.iflm_tenant = ifl.tenant;
  std::string name = ifl.device;
  name.push_back('\0');
  m.iflm_name = reinterpret_cast<uint8_t *>(name.data());
  m.iflm_name_len = static_cast<uint32_t>(name.size());
  Bytes link = ifl.link_addr;
  sockaddr_idl addr{};
  if (!link.empty()) {
    addr.sai_addr = link.data();
    m.iflm_addr = &addr;
    m.iflm_addr_len = 1;
  }
  return encode_frame(TLK_MSG_IFLOGICAL, &m, tlv);
}

Bytes IflFamily::ifl_list() const {
  // The list as it stands at the time of the read.
  Bytes all;
  for (const Ifl &i : ifls) {
    Bytes f = frame(i, TLK_OP_GET, 0, false);
    all.insert(all.end(), f.begin(), f.end());
  }
  return all;
}

// Listeners hear the change, and the watchers of objects (the state log) too.
void IflFamily::changed(const Ifl &ifl, uint8_t op, int except_fd) {
  const Bytes f = frame(ifl, op, 0, false);
  host_.object_changed(TLK_MSG_IFLOGICAL, op, f);
  if (!host_.has_listener(TLK_MSG_IFLOGICAL, except_fd)) return;
  host_.notify(TLK_MSG_IFLOGICAL, f, except_fd);
}

// Adds, changes and deletes: no reply, whatever happens; the other sessions hear what changed.
void IflFamily::write(Session &s, const ifl_msg &req) {
  const uint8_t op = req.iflm_hdr.tlkh_op;
  if (op == TLK_OP_ADD) {
    Ifl ifl;
    ifl.index = req.iflm_index.idx;
    if (ifl.index == 0) ifl.index = ifls.empty() ? 1 : ifls.back().index + 1;
    if (find(ifl.index) != nullptr) return;
    ifl.snmp_id = req.iflm_snmp_id.idx != 0 ? req.iflm_snmp_id.idx : 500 + ifl.index;
    ifl.devidx = req.iflm_devidx;
    ifl.unit = req.iflm_unit;
    ifl.device = name_of(req);
    ifl.flags = req.iflm_flags;
    ifl.privflags = req.iflm_privflags;
    ifl.link_addr = addr_of(req);
    ifl.generation = 1;
    add(ifl);
    changed(*find(ifl.index), TLK_OP_ADD, s.lib_fd);
    return;
  }
  Ifl *ifl = lookup(req, false);
  if (ifl == nullptr) return;  // nothing to change, and nothing answers
  if (op == TLK_OP_DELETE) {
    const Ifl gone = *ifl;
    remove(gone.index);
    changed(gone, TLK_OP_DELETE, s.lib_fd);
    return;
  }
  if (op != TLK_OP_CHANGE) return;
  if (req.iflm_change == kPointChange) {
    ifl->attachments.clear();
    for (uint32_t i = 0; req.iflm_hdr.tlkh_info != nullptr && i < req.iflm_hdr.tlkh_info_len; ++i)
      ifl->attachments.push_back(req.iflm_hdr.tlkh_info[i]->tlkmi_type);
  } else {
    ifl->flags = req.iflm_flags;
    ifl->privflags = (ifl->privflags & ~uint64_t{0xFFFFFFFF}) | (req.iflm_privflags & 0xFFFFFFFF);
    const std::string name = name_of(req);
    if (!name.empty()) ifl->device = name;
    Bytes addr = addr_of(req);
    if (!addr.empty()) ifl->link_addr = std::move(addr);
  }
  ++ifl->generation;
  changed(*ifl, TLK_OP_CHANGE, s.lib_fd);
}

void IflFamily::answer(Session &s, const Frame &f) {
  const auto &req = f.as<ifl_msg>();
  const tlk_hdr &hdr = f.hdr();
  if (hdr.tlkh_op == TLK_OP_ADD || hdr.tlkh_op == TLK_OP_CHANGE || hdr.tlkh_op == TLK_OP_DELETE) {
    write(s, req);
    return;
  }
  if (hdr.tlkh_op != TLK_OP_GET && hdr.tlkh_op != TLK_OP_GETNEXT) return;
  const Ifl *ifl = lookup(req, hdr.tlkh_op == TLK_OP_GETNEXT);
  if (ifl == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_IFLOGICAL, hdr.tlkh_op, hdr.tlkh_seq, kRefuser);
    return;
  }
  host_.reply(s, frame(*ifl, hdr.tlkh_op, hdr.tlkh_seq, f.tlv));
}

void IflFamily::answer_stats(Session &s, const Request &req) {
  const auto b = req.bytes;
  if (b.size() < kStatsFixed) return;  // too short to read: dropped
  const uint32_t index = wire::load_u32(&b[kIndexAt]);
  const uint32_t unit = wire::load_u32(&b[kUnitAt]);
  const std::string name = raw_name(b, kStatsFixed, b[kNameLenAt]);
  auto it = std::find_if(ifls.begin(), ifls.end(), [&](const Ifl &x) {
    return index != 0 ? x.index == index : (!name.empty() && x.device == name && x.unit == unit);
  });
  const bool clear = req.op == TLK_OP_CLEAR;
  if (it == ifls.end()) {
    if (!clear) host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
    return;
  }
  if (clear) {
    it->in_packets = it->out_packets = 0;
    return;
  }
  Bytes reply(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(kStatsFixed));
  reply.resize(kStatsFixed + 16);
  memcpy(&reply[kStatsFixed], &it->in_packets, 8);
  memcpy(&reply[kStatsFixed + 8], &it->out_packets, 8);
  wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
  if (wire::u16_at(b, kKernelReplyAt) == kKernelReply) {
    // The kernel-reply form: sequence 0 and the caller's cookie, on the asking session alone and
    // outside its notification numbering, which a statistics session must not see move.
    host_.reply_with_seq(s, reply, 0);
    return;
  }
  host_.reply_with_seq(s, reply, req.seq);
}

namespace {
const FamilySlot<IflFamily> kIfls("ifl");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

Ifls Kernel::ifls() {
  return Ifls(&internal::kIfls.in(*impl_));
}
const Ifls Kernel::ifls() const {
  return Ifls(&internal::kIfls.in(*impl_));
}

void Ifls::add(const Ifl &ifl) {
  family_->add(ifl);
}
bool Ifls::remove(uint32_t index) {
  return family_->remove(index);
}
void Ifls::clear() {
  family_->ifls.clear();
}
const std::vector<Ifl> &Ifls::list() const {
  return family_->ifls;
}
const Ifl *Ifls::find(uint32_t index) const {
  return family_->find(index);
}

bool Ifls::create(const Ifl &ifl) {
  if (ifl.index == 0 || family_->find(ifl.index) != nullptr) return false;
  family_->add(ifl);
  family_->changed(*family_->find(ifl.index), TLK_OP_ADD, -1);
  return true;
}

bool Ifls::change_flags(uint32_t index, uint32_t set, uint32_t clear) {
  Ifl *ifl = family_->find(index);
  if (ifl == nullptr) return false;
  ifl->flags = (ifl->flags & ~clear) | set;
  ++ifl->generation;
  family_->changed(*ifl, TLK_OP_CHANGE, -1);
  return true;
}

bool Ifls::destroy(uint32_t index) {
  const Ifl *ifl = family_->find(index);
  if (ifl == nullptr) return false;
  const Ifl gone = *ifl;
  family_->remove(index);
  family_->changed(gone, TLK_OP_DELETE, -1);
  return true;
}

bool Ifls::set_counters(uint32_t index, uint64_t in, uint64_t out) {
  Ifl *ifl = family_->find(index);
  if (ifl == nullptr) return false;
  ifl->in_packets = in;
  ifl->out_packets = out;
  return true;
}

Bytes Ifls::frame(const Ifl &ifl, uint8_t op, uint32_t seq, bool tlv) const {
  return family_->frame(ifl, op, seq, tlv);
}

const std::vector<IflsetSeed> &iflset_seeds() {
  static const std::vector<IflsetSeed> kSeeds = {
      {1, "customers-a", "ge0", 130, false},
      {2, "customers-b", "xe0", 140, true},
      {7, "voice", "ge1", 131, false},
  };
  return kSeeds;
}

}  // namespace tarsim
