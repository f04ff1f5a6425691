// Security associations ("sa info", type 41), their statistics (type 50) and the public-key
// service ("pkcs info", type 42, answered as "pk-crypto-sys reply", type 45).  See tarsim/sa.hpp
// for the contract.
#include <string.h>

#include <map>

#include "../core.h"
#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/sa.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr char kRefuser[] = "sadb_sa_get";
constexpr size_t kSaFixed = 96, kIdAt = 32, kSpiAt = 36, kValueAt = 40, kDirAt = 48, kProtoAt = 49,
                 kKey0At = 56, kKey1At = 60, kNameLenAt = 73;
constexpr uint8_t kStatsType = 50;  // the statistics message's working number
constexpr size_t kStatsFixed = 32, kKindAt = 24, kKeyLenAt = 26;
constexpr size_t kPkcsFixed = 68, kPkcsIdAt = 24, kPkcsKindAt = 28, kPkcsLensAt = 40,
                 kPkcsParts = 12;

// The name behind the fixed part, as far as the message holds it.
std::string name_in(std::span<const uint8_t> b) {
  if (b.size() <= kSaFixed || b[kNameLenAt] == 0) return {};
  const auto *p = reinterpret_cast<const char *>(&b[kSaFixed]);
  return std::string(p, strnlen(p, std::min<size_t>(b[kNameLenAt], b.size() - kSaFixed)));
}

uint32_t u32_in(std::span<const uint8_t> b, size_t off) {
  return off + 4 <= b.size() ? wire::load_u32(&b[off]) : 0;
}

SecurityAssociation from_message(std::span<const uint8_t> b) {
  SecurityAssociation sa;
  sa.id = u32_in(b, kIdAt);
  sa.spi = u32_in(b, kSpiAt);
  sa.ifl = u32_in(b, kValueAt);
  sa.direction = b.size() > kDirAt ? b[kDirAt] : 0;
  sa.protocol = b.size() > kProtoAt ? b[kProtoAt] : 0;
  sa.name = name_in(b);
  sa.message.assign(b.begin(), b.end());
  return sa;
}

// An association's message as the kernel would build it: the fixed part and the name.
Bytes message_of(uint32_t id, const std::string &name, uint32_t spi, uint8_t direction,
                 uint8_t protocol, uint32_t ifl) {
  const size_t name_len = name.size() + 1, padded = (name_len + 3) & ~size_t{3};
  Bytes m(kSaFixed + padded, 0);
  m[wire::kRawVersion] = TARVIK_VERSION_TABLE[TLK_MSG_SA_INFO];
  m[wire::kRawType] = TLK_MSG_SA_INFO;
  m[wire::kRawOp] = TLK_OP_ADD;
  wire::store_u32(&m[wire::kRawMsglen], static_cast<uint32_t>(m.size()));
  wire::store_u16(&m[wire::kRawFixedlen], kSaFixed);
  wire::store_u32(&m[kIdAt], id);
  wire::store_u32(&m[kSpiAt], spi);
  wire::store_u32(&m[kValueAt], ifl);
  m[kDirAt] = direction;
  m[kProtoAt] = protocol;
  m[kNameLenAt] = static_cast<uint8_t>(name_len);
  memcpy(&m[kSaFixed], name.c_str(), name_len);
  return m;
}

}  // namespace

class SaFamily final : public Family {
 public:
  explicit SaFamily(Host &host) : host_(host) {
    put(from_message(message_of(1, "tunnel-a", 0x1001, 2, 50, 71)));
    put(from_message(message_of(2, "tunnel-b", 0x2002, 1, 51, 72)));
    host.answer_raw(TLK_MSG_SA_INFO, [this](Session &s, const Request &r) { answer(s, r); });
    host.answer_raw(kStatsType, [this](Session &s, const Request &r) { answer_stats(s, r); });
    host.answer_raw(TLK_MSG_PKCS_INFO, [this](Session &s, const Request &r) { answer_pkcs(s, r); });
  }

  std::map<uint32_t, SecurityAssociation> store;
  std::map<uint32_t, SaCounters> counters;
  uint64_t pkcs_requests = 0;

  void put(SecurityAssociation sa) { store[sa.id] = std::move(sa); }
  void set(const SecurityAssociation &sa) {
    put(sa);
    host_.notify(TLK_MSG_SA_INFO, sa.message, -1);
  }

 private:
  uint32_t next_free() const {
    uint32_t id = 1;
    while (store.count(id) != 0) ++id;
    return id;
  }
  std::map<uint32_t, SecurityAssociation>::iterator by_name(const std::string &name) {
    for (auto it = store.begin(); it != store.end(); ++it) {
      if (it->second.name == name) return it;
    }
    return store.end();
  }

  void answer(Session &s, const Request &req) {
    const auto b = req.bytes;
    if (b.size() < kSaFixed) return;
    const uint32_t id = u32_in(b, kIdAt);
    switch (req.op) {
      case TLK_OP_ADD: {
        SecurityAssociation sa = from_message(b);
        if (sa.id == 0) {
          sa.id = next_free();
          wire::store_u32(&sa.message[kIdAt], sa.id);
        }
        put(std::move(sa));
        return;
      }
      case TLK_OP_CHANGE: {
        auto it = id != 0 ? store.find(id) : by_name(name_in(b));
        if (it == store.end()) return;
        SecurityAssociation sa = from_message(b);
        sa.id = it->first;
        wire::store_u32(&sa.message[kIdAt], sa.id);
        it->second = std::move(sa);
        return;
      }
      case TLK_OP_DELETE: {
        auto it = id != 0 ? store.find(id) : by_name(name_in(b));
        if (it != store.end()) store.erase(it);
        return;
      }
      case TLK_OP_GET:
      case TLK_OP_GETNEXT:
        break;
      default:
        return;
    }
    const SecurityAssociation *found = nullptr;
    if (req.op == TLK_OP_GETNEXT) {
      auto it = store.upper_bound(id);
      if (it != store.end()) found = &it->second;
    } else {
      auto it = id != 0 ? store.find(id) : by_name(name_in(b));
      if (it != store.end()) found = &it->second;
      const uint16_t key0 = wire::u16_at(b, kKey0At);
      const uint32_t key1 = u32_in(b, kKey1At);
      if (found != nullptr && ((key0 != 0 && wire::u16_at(found->message, kKey0At) != key0) ||
                               (key1 != 0 && u32_in(found->message, kKey1At) != key1)))
        found = nullptr;
    }
    if (found == nullptr) return host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
    Bytes reply = found->message;
    reply[wire::kRawOp] = req.op;
    host_.reply_with_seq(s, reply, req.seq);
  }

  void answer_stats(Session &s, const Request &req) {
    const auto b = req.bytes;
    if (b.size() < kStatsFixed || (req.op != TLK_OP_GET && req.op != TLK_OP_GETNEXT)) return;
    const size_t key_len = wire::u16_at(b, kKeyLenAt);
    const uint32_t id = key_len >= 4 ? u32_in(b, kStatsFixed) : 0;
    if (store.count(id) == 0)
      return host_.refuse_not_found(s, req.type, req.op, req.seq, "sadb_stats_get");
    const size_t head = std::min(b.size(), kStatsFixed + ((key_len + 3) & ~size_t{3}));
    Bytes reply(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(head));
    const SaCounters c = counters[id];
    const auto *p = reinterpret_cast<const uint8_t *>(&c);
    reply.insert(reply.end(), p, p + sizeof c);
    wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
    wire::store_u16(&reply[wire::kRawFixedlen], static_cast<uint16_t>(head));
    reply[kKindAt] = b[kKindAt];
    host_.reply_with_seq(s, reply, req.seq);
  }

  void answer_pkcs(Session &s, const Request &req) {
    const auto b = req.bytes;
    if (b.size() < kPkcsFixed || req.op != TLK_OP_ADD) return;
    ++pkcs_requests;
    PkcsReply r{u32_in(b, kPkcsIdAt), u32_in(b, kPkcsKindAt), 0, 0};
    for (size_t i = 0; i < kPkcsParts; ++i) r.data_bytes += wire::u16_at(b, kPkcsLensAt + 2 * i);
    host_.notify_session(s,
                         raw_message(TLK_MSG_PK_CRYPTO_SYS_REPLY, TLK_OP_ADD, 0, &r, sizeof r, 0));
  }

  Host &host_;
};

namespace {
const FamilySlot<SaFamily> kSas("security_associations");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

SecurityAssociations Kernel::security_associations() {
  return SecurityAssociations(impl_);
}
const SecurityAssociations Kernel::security_associations() const {
  return SecurityAssociations(impl_);
}

void SecurityAssociations::set(uint32_t id, const char *name, uint32_t spi, uint8_t direction,
                               uint8_t protocol, uint32_t ifl) {
  internal::kSas.in(*core_).set(internal::from_message(
      internal::message_of(id, name == nullptr ? "" : name, spi, direction, protocol, ifl)));
}
bool SecurityAssociations::erase(uint32_t id) {
  return internal::kSas.in(*core_).store.erase(id) != 0;
}
const SecurityAssociation *SecurityAssociations::find(uint32_t id) const {
  const auto &store = internal::kSas.in(*core_).store;
  auto it = store.find(id);
  return it == store.end() ? nullptr : &it->second;
}
std::vector<SecurityAssociation> SecurityAssociations::list() const {
  std::vector<SecurityAssociation> out;
  for (const auto &[id, sa] : internal::kSas.in(*core_).store) out.push_back(sa);
  return out;
}
void SecurityAssociations::count(uint32_t id, uint64_t packets, uint64_t bytes, uint32_t errors) {
  SaCounters &c = internal::kSas.in(*core_).counters[id];
  c.packets += packets;
  c.bytes += bytes;
  c.errors += errors;
}
SaCounters SecurityAssociations::counters(uint32_t id) const {
  auto &counters = internal::kSas.in(*core_).counters;
  auto it = counters.find(id);
  return it == counters.end() ? SaCounters{} : it->second;
}
uint64_t SecurityAssociations::pkcs_requests() const {
  return internal::kSas.in(*core_).pkcs_requests;
}

}  // namespace tarsim
