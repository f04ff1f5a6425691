// Logical interfaces: a default chassis of units and the answers to framed gets and getnexts
// ("iflogical"), in the encoding the request came in.  See tarsim/ifl.hpp for the contract.
#include <string.h>

#include <algorithm>

#include "../family.h"
#include "../session.h"
#include "tarsim/ifl.hpp"

namespace tarsim {
namespace internal {

class IflFamily final : public Family {
 public:
  explicit IflFamily(Host &host);

  void add(const Ifl &ifl);
  const Ifl *find(uint32_t index) const;

  std::vector<Ifl> ifls;  // in index order

 private:
  const Ifl *lookup(const ifl_msg &req) const;
  void answer(Session &s, const Frame &f);

  Host &host_;
};

IflFamily::IflFamily(Host &host) : host_(host) {
  // A small chassis: two gigabit ports with two units each, a ten-gigabit port, a loopback.
  const struct {
    const char *device;
    uint16_t devidx;
    uint32_t unit, index;
  } seed[] = {{"ge0", 130, 0, 70}, {"ge0", 130, 100, 71}, {"ge1", 131, 0, 72},
              {"xe0", 140, 0, 80}, {"xe0", 140, 200, 81}, {"lo0", 6, 0, 16}};
  for (const auto &s : seed) {
    Ifl ifl;
    ifl.device = s.device;
    ifl.devidx = s.devidx;
    ifl.unit = s.unit;
    ifl.index = s.index;
    ifl.snmp_id = 500 + s.index;
    ifl.flags = 0x8001;  // up, with the kernel's "present" bit
    ifl.generation = 1;
    add(ifl);
  }
  host.answer_frames(TLK_MSG_IFLOGICAL, [this](Session &s, const Frame &f) { answer(s, f); });
}

void IflFamily::add(const Ifl &ifl) {
  auto it =
      std::find_if(ifls.begin(), ifls.end(), [&](const Ifl &i) { return i.index == ifl.index; });
  if (it != ifls.end()) {
    *it = ifl;
  } else {
    ifls.push_back(ifl);
    std::sort(ifls.begin(), ifls.end(),
              [](const Ifl &a, const Ifl &b) { return a.index < b.index; });
  }
}

const Ifl *IflFamily::find(uint32_t index) const {
  for (const Ifl &i : ifls) {
    if (i.index == index) return &i;
  }
  return nullptr;
}

// Looks a request's keys up: the index first, then the SNMP id, then the device name or index
// with the unit.  A getnext answers the logical interface that follows the key in index order.
const Ifl *IflFamily::lookup(const ifl_msg &req) const {
  const uint8_t op = req.iflm_hdr.tlkh_op;
  const Ifl *found = nullptr;
  if (req.iflm_index.idx != 0 || op == TLK_OP_GETNEXT) {
    if (op == TLK_OP_GETNEXT) {
      for (const Ifl &i : ifls) {
        if (i.index > req.iflm_index.idx) return &i;
      }
      return nullptr;
    }
    return find(req.iflm_index.idx);
  }
  for (const Ifl &i : ifls) {
    if (req.iflm_snmp_id.idx != 0) {
      if (i.snmp_id == req.iflm_snmp_id.idx) found = &i;
    } else if (req.iflm_name != nullptr && req.iflm_name_len != 0) {
      const std::string name(
          reinterpret_cast<const char *>(req.iflm_name),
          strnlen(reinterpret_cast<const char *>(req.iflm_name), req.iflm_name_len));
      if (i.device == name && i.unit == req.iflm_unit) found = &i;
    } else if (i.devidx == req.iflm_devidx && i.unit == req.iflm_unit) {
      found = &i;
    }
    if (found) break;
  }
  return found;
}

void IflFamily::answer(Session &s, const Frame &f) {
  const auto &req = f.as<ifl_msg>();
  const tlk_hdr &hdr = f.hdr();
  if (hdr.tlkh_op != TLK_OP_GET && hdr.tlkh_op != TLK_OP_GETNEXT) return;
  const Ifl *ifl = lookup(req);
  if (ifl == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_IFLOGICAL, hdr.tlkh_op, hdr.tlkh_seq, "ifl_get");
    return;
  }
  ifl_msg reply{};
  reply.iflm_hdr = hdr;
  reply.iflm_hdr.tlkh_info = nullptr;
  reply.iflm_hdr.tlkh_info_len = 0;
  reply.iflm_index.idx = ifl->index;
  reply.iflm_snmp_id.idx = ifl->snmp_id;
  reply.iflm_devidx = ifl->devidx;
  reply.iflm_unit = ifl->unit;
  reply.iflm_flags = ifl->flags;
  reply.iflm_generation = ifl->generation;
  reply.iflm_lr = ifl->lr;
  std::string name = ifl->device;
  name.push_back('\0');
  reply.iflm_name = reinterpret_cast<uint8_t *>(name.data());
  reply.iflm_name_len = static_cast<uint32_t>(name.size());
  host_.reply(s, encode_frame(TLK_MSG_IFLOGICAL, &reply, f.tlv));
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
void Ifls::clear() {
  family_->ifls.clear();
}
const std::vector<Ifl> &Ifls::list() const {
  return family_->ifls;
}
const Ifl *Ifls::find(uint32_t index) const {
  return family_->find(index);
}

}  // namespace tarsim
