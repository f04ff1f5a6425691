// Addresses of logical interfaces' families: a store keyed by logical interface, address family,
// destination and local prefix, the answers to framed "ifaddr" requests, and "ifaddr"
// notifications of every change.  See tarsim/ifa.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <tuple>

#include "../family.h"
#include "../session.h"
#include "tarsim/ifa.hpp"
#include "tarsim/iff.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint16_t kPointChange = 0x1000;  // ifam_flags of a point change
constexpr char kRefuser[] = "ifa_get";

auto key_of(const Ifa &a) {
  return std::tie(a.iflidx, a.af, a.dest.plen, a.dest.bytes, a.local.plen, a.local.bytes);
}

bool key_less(const Ifa &a, const Ifa &b) {
  return key_of(a) < key_of(b);
}

bool same_key(const Ifa &a, const Ifa &b) {
  return key_of(a) == key_of(b);
}

bool same_prefix(const IfaPrefix &a, const IfaPrefix &b) {
  return a.plen == b.plen && a.bytes == b.bytes;
}

// A prefix as a request carries it; bytes that the request lacks count as zero.
IfaPrefix from_wire(const prefix &p) {
  Bytes bytes((size_t{p.plen} + 7) / 8, 0);
  if (p.prefix != nullptr)
    memcpy(bytes.data(), p.prefix, std::min<size_t>(bytes.size(), p.prefix_len));
  return ifa_prefix(bytes.data(), p.plen);
}

// The key a request carries: an absent prefix has length 0.
Ifa key_from(const ifa_msg &req) {
  Ifa k;
  k.iflidx = req.ifam_iflidx.idx;
  k.af = req.ifam_af;
  k.dest = from_wire(req.ifam_dest);
  k.local = from_wire(req.ifam_local);
  return k;
}

Ifa address(uint32_t iflidx, uint8_t af, IfaPrefix dest, IfaPrefix local) {
  Ifa a;
  a.iflidx = iflidx;
  a.af = af;
  a.dest = std::move(dest);
  a.local = std::move(local);
  return a;
}

IfaPrefix inet6(std::initializer_list<uint8_t> bytes, uint16_t plen) {
  Bytes b(bytes);
  b.resize(16, 0);
  return ifa_prefix(b.data(), plen);
}

}  // namespace

class IfaFamily final : public Family {
 public:
  explicit IfaFamily(Host &host);

  Ifa *find(const Ifa &key);
  // Stores `a` (new or replacing); true if it was new.
  bool put(const Ifa &a);
  bool remove(const Ifa &key, int except_fd);
  void changed(const Ifa &a, uint8_t op, int except_fd);
  Bytes frame(const Ifa &a, uint8_t op, uint32_t seq, bool tlv) const;

  std::vector<Ifa> ifas;  // in key order

 private:
  void seed();
  void answer_frame(Session &s, const Frame &f);
  void update(Session &s, const ifa_msg &req);

  Host &host_;
};

IfaFamily::IfaFamily(Host &host) : host_(host) {
  seed();
  host.answer_frames(TLK_MSG_IFADDR, [this](Session &s, const Frame &f) { answer_frame(s, f); });
}

void IfaFamily::seed() {
  put(address(70, kAfInet, ifa_inet(0x0A000000, 24), ifa_inet(0x0A000001, 32)));
  put(address(70, kAfInet6, inet6({0x20, 0x01, 0x0d, 0xb8}, 64),
              inet6({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 128)));
  put(address(71, kAfInet, ifa_inet(0x0A006400, 24), ifa_inet(0x0A006401, 32)));
  put(address(80, kAfInet, ifa_inet(0x0A010000, 24), ifa_inet(0x0A010001, 32)));
  put(address(80, kAfInet6, inet6({0x20, 0x01, 0x0d, 0xb8, 0, 1}, 64),
              inet6({0x20, 0x01, 0x0d, 0xb8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 128)));
  put(address(81, kAfInet, ifa_inet(0x0A01C800, 24), ifa_inet(0x0A01C801, 32)));
  put(address(73, kAfInet, ifa_inet(0x0A000200, 24), ifa_inet(0x0A000201, 32)));
  put(address(74, kAfInet, ifa_inet(0x0A000300, 24), ifa_inet(0x0A000301, 32)));
  put(address(82, kAfInet6, inet6({0x20, 0x01, 0x0d, 0xb8, 0, 2}, 64),
              inet6({0x20, 0x01, 0x0d, 0xb8, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 128)));
  put(address(83, kAfInet, ifa_inet(0x0A022C00, 24), ifa_inet(0x0A022C01, 32)));
  put(address(83, kAfInet6, inet6({0x20, 0x01, 0x0d, 0xb8, 0, 2, 0x01, 0x2c}, 64),
              inet6({0x20, 0x01, 0x0d, 0xb8, 0, 2, 0x01, 0x2c, 0, 0, 0, 0, 0, 0, 0, 1}, 128)));
  // The loopback's host addresses, one of them the donor of the unnumbered ge1.0.
  put(address(16, kAfInet, {}, ifa_inet(0x7F000001, 32)));
  put(address(16, kAfInet, {}, ifa_inet(0xC0000201, 32)));
  put(address(16, kAfInet6, {}, inet6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 128)));
}

Ifa *IfaFamily::find(const Ifa &key) {
  auto it = std::lower_bound(ifas.begin(), ifas.end(), key, key_less);
  return it != ifas.end() && same_key(*it, key) ? &*it : nullptr;
}

bool IfaFamily::put(const Ifa &a) {
  auto it = std::lower_bound(ifas.begin(), ifas.end(), a, key_less);
  if (it != ifas.end() && same_key(*it, a)) {
    *it = a;
    return false;
  }
  ifas.insert(it, a);
  return true;
}

bool IfaFamily::remove(const Ifa &key, int except_fd) {
  Ifa *a = find(key);
  if (a == nullptr) return false;
  const Ifa gone = *a;
  ifas.erase(ifas.begin() + (a - ifas.data()));
  changed(gone, TLK_OP_DELETE, except_fd);
  return true;
}

void IfaFamily::changed(const Ifa &a, uint8_t op, int except_fd) {
  if (!host_.has_listener(TLK_MSG_IFADDR, except_fd)) return;
  host_.notify(TLK_MSG_IFADDR, frame(a, op, 0, false), except_fd);
}

Bytes IfaFamily::frame(const Ifa &a, uint8_t op, uint32_t seq, bool tlv) const {
  ifa_msg m{};
  m.ifam_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_IFADDR];
  m.ifam_hdr.tlkh_type = TLK_MSG_IFADDR;
  m.ifam_hdr.tlkh_op = op;
  m.ifam_hdr.tlkh_seq = seq;
  m.ifam_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_ifa_msg_0);
  m.ifam_iflidx.idx = a.iflidx;
  m.ifam_af = a.af;
  m.ifam_flags = a.flags;
  m.ifam_generation = a.generation;
  // Each prefix as a request carries it: its bytes padded to a multiple of 4.
  Bytes dest = a.dest.bytes, local = a.local.bytes;
  auto fill = [](prefix &field, const IfaPrefix &p, Bytes &bytes) {
    if (p.plen == 0) return;
    bytes.resize(((size_t{p.plen} + 31) / 32) * 4, 0);
    field.plen = p.plen;
    field.prefix = bytes.data();
    field.prefix_len = static_cast<uint32_t>(bytes.size());
  };
  fill(m.ifam_dest, a.dest, dest);
  fill(m.ifam_local, a.local, local);
  return encode_frame(TLK_MSG_IFADDR, &m, tlv);
}

void IfaFamily::update(Session &s, const ifa_msg &req) {
  const tlk_hdr &h = req.ifam_hdr;
  const Ifa key = key_from(req);
  if (h.tlkh_op == TLK_OP_ADD) {
    if (find(key) != nullptr) return;  // taken: left as it is (an add has no reply)
    Ifa n = key;
    n.flags = req.ifam_flags;
    (void)put(n);
    changed(n, TLK_OP_ADD, s.lib_fd);
  } else if (h.tlkh_op == TLK_OP_CHANGE && (req.ifam_flags & kPointChange) != 0) {
    // A point change names the address by its local prefix alone.
    auto it = std::find_if(ifas.begin(), ifas.end(), [&](const Ifa &a) {
      return a.iflidx == key.iflidx && a.af == key.af && same_prefix(a.local, key.local);
    });
    if (it == ifas.end()) return;
    it->attachments.clear();
    for (uint32_t i = 0; h.tlkh_info != nullptr && i < h.tlkh_info_len; ++i) {
      if (h.tlkh_info[i] != nullptr) it->attachments.push_back(h.tlkh_info[i]->tlkmi_type);
    }
    ++it->generation;
    changed(*it, TLK_OP_CHANGE, s.lib_fd);
  } else if (h.tlkh_op == TLK_OP_CHANGE) {
    Ifa *cur = find(key);
    if (cur == nullptr) return;  // nothing to change, and a change has no reply
    cur->flags = req.ifam_flags;
    ++cur->generation;
    changed(*cur, TLK_OP_CHANGE, s.lib_fd);
  } else if (h.tlkh_op == TLK_OP_DELETE) {
    (void)remove(key, s.lib_fd);
  }
}

void IfaFamily::answer_frame(Session &s, const Frame &f) {
  const auto &req = f.as<ifa_msg>();
  const tlk_hdr &h = req.ifam_hdr;
  if (h.tlkh_op != TLK_OP_GET && h.tlkh_op != TLK_OP_GETNEXT) {
    update(s, req);
    return;
  }
  const Ifa key = key_from(req);
  const Ifa *found = nullptr;
  if (h.tlkh_op == TLK_OP_GETNEXT) {
    auto it = std::upper_bound(ifas.begin(), ifas.end(), key, key_less);
    if (it != ifas.end()) found = &*it;
  } else {
    // The addresses of (index, family) lie together, from the one with the smallest prefixes.
    Ifa first;
    first.iflidx = key.iflidx;
    first.af = key.af;
    for (auto it = std::lower_bound(ifas.begin(), ifas.end(), first, key_less);
         it != ifas.end() && it->iflidx == key.iflidx && it->af == key.af; ++it) {
      const Ifa &a = *it;
      if (key.dest.plen != 0 && !same_prefix(a.dest, key.dest)) continue;
      if (key.local.plen != 0 && !same_prefix(a.local, key.local)) continue;
      found = &a;
      break;
    }
  }
  if (found == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_IFADDR, h.tlkh_op, h.tlkh_seq, kRefuser);
    return;
  }
  host_.reply(s, frame(*found, h.tlkh_op, h.tlkh_seq, f.tlv));
}

namespace {
const FamilySlot<IfaFamily> kIfas("ifa");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

IfaPrefix ifa_prefix(const void *bytes, uint16_t plen) {
  IfaPrefix p;
  p.plen = plen;
  p.bytes.assign(static_cast<const uint8_t *>(bytes),
                 static_cast<const uint8_t *>(bytes) + (size_t{plen} + 7) / 8);
  if (plen % 8 != 0) p.bytes.back() &= static_cast<uint8_t>(0xFF << (8 - plen % 8));
  return p;
}

IfaPrefix ifa_inet(uint32_t addr, uint16_t plen) {
  const uint8_t b[4] = {static_cast<uint8_t>(addr >> 24), static_cast<uint8_t>(addr >> 16),
                        static_cast<uint8_t>(addr >> 8), static_cast<uint8_t>(addr)};
  return ifa_prefix(b, std::min<uint16_t>(plen, 32));
}

Ifas Kernel::ifas() {
  return Ifas(&internal::kIfas.in(*impl_));
}
const Ifas Kernel::ifas() const {
  return Ifas(&internal::kIfas.in(*impl_));
}

void Ifas::create(const Ifa &a) {
  Ifa n = a;
  if (const Ifa *old = family_->find(a)) n.generation = old->generation + 1;
  (void)family_->put(n);
  family_->changed(n, TLK_OP_ADD, -1);
}

bool Ifas::destroy(const Ifa &key) {
  return family_->remove(key, -1);
}

void Ifas::add(const Ifa &a) {
  (void)family_->put(a);
}
void Ifas::clear() {
  family_->ifas.clear();
}
const std::vector<Ifa> &Ifas::list() const {
  return family_->ifas;
}
const Ifa *Ifas::find(const Ifa &key) const {
  return family_->find(key);
}
std::vector<Ifa> Ifas::of(uint32_t iflidx, uint8_t af) const {
  std::vector<Ifa> out;
  for (const Ifa &a : family_->ifas) {
    if (a.iflidx == iflidx && a.af == af) out.push_back(a);
  }
  return out;
}

Bytes Ifas::frame(const Ifa &a, uint8_t op, uint32_t seq, bool tlv) const {
  return family_->frame(a, op, seq, tlv);
}

}  // namespace tarsim
