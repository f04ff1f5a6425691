// Class-of-service objects and the collector PIC: policers and shapers by object index;
// classifiers, rewrite rules and fragmentation maps by object or by interface; the single tables;
// the collector's echoes.  One family per kind of object, all answering raw fixed-size requests.
// See tarsim/cos.hpp for the contract; the reply layouts are those of tarlink/cos.h.
#include <string.h>

#include <map>

#include "../core.h"
#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/cos.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr char kRefuser[] = "cos_object_get";
constexpr size_t kIflAt = 32, kObjectAt = 36, kUnitAt = 38;

// A zeroed raw message of `size` bytes, fixed part and all, of `type`.
Bytes fixed_message(uint8_t type, uint8_t op, size_t size) {
  Bytes m(size, 0);
  m[wire::kRawVersion] = TARVIK_VERSION_TABLE[type];
  m[wire::kRawType] = type;
  m[wire::kRawOp] = op;
  wire::store_u32(&m[wire::kRawMsglen], static_cast<uint32_t>(size));
  wire::store_u16(&m[wire::kRawFixedlen], static_cast<uint16_t>(size));
  return m;
}

template <class Body>
Bytes message_of(uint8_t type, uint8_t op, const Body &body) {
  Bytes m = fixed_message(type, op, sizeof body);
  memcpy(m.data() + TLK_RAW_HDR_LEN, reinterpret_cast<const uint8_t *>(&body) + TLK_RAW_HDR_LEN,
         sizeof body - TLK_RAW_HDR_LEN);
  return m;
}

uint32_t u32_in(std::span<const uint8_t> b, size_t off) {
  return off + 4 <= b.size() ? wire::load_u32(&b[off]) : 0;
}
uint8_t u8_in(std::span<const uint8_t> b, size_t off) {
  return off < b.size() ? b[off] : 0;
}

// Objects of one kind, kept by index: get finds, getnext takes the next index, and anything
// else is refused as the kernel does.  `Item` is CosRate or CosMap.
template <class Item>
class Keyed {
 public:
  std::map<uint32_t, Item> items;

  // The object a get (op 4) or getnext (op 5) of `key` names, or null.
  const Item *walk(uint8_t op, uint32_t key) const {
    if (op == TLK_OP_GET) {
      auto it = items.find(key);
      return it == items.end() ? nullptr : &it->second;
    }
    if (op == TLK_OP_GETNEXT) {
      auto it = items.upper_bound(key);
      return it == items.end() ? nullptr : &it->second;
    }
    return nullptr;
  }
};

}  // namespace

// Policers and shapers.
class RateFamily : public Family {
 public:
  RateFamily(Host &host, uint8_t type) : type_(type), host_(host) {
    host.answer_raw(type, [this](Session &s, const Request &r) { answer(s, r); });
  }
  Keyed<CosRate> store;
  const uint8_t type_;

  Bytes message(uint8_t op, const CosRate &r) const {
    tarvik_cos_policer_body body{};
    body.ifl = r.object;
    body.bandwidth = r.bandwidth;
    body.burst = r.burst;
    return message_of(type_, op, body);
  }
  void set(const CosRate &r) {
    store.items[r.object] = r;
    host_.notify(type_, message(TLK_OP_ADD, r), -1);
  }

 private:
  void answer(Session &s, const Request &req) {
    const CosRate *r = store.walk(req.op, u32_in(req.bytes, kIflAt));
    if (r == nullptr) return host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
    host_.reply_with_seq(s, message(req.op, *r), req.seq);
  }
  Host &host_;
};

class PolicerFamily final : public RateFamily {
 public:
  explicit PolicerFamily(Host &host) : RateFamily(host, TLK_MSG_COS_POLICER) {
    store.items[7] = {7, 10000000, 15000};
    store.items[9] = {9, 100000000, 125000};
  }
};

class ShaperFamily final : public RateFamily {
 public:
  explicit ShaperFamily(Host &host) : RateFamily(host, TLK_MSG_COS_SHAPER) {
    store.items[3] = {3, 50000000, 0};
    store.items[4] = {4, 200000000, 0};
  }
};

// Classifiers, rewrite rules and fragmentation maps: found by object when the request's selector
// byte is set, else by the interface (and unit) it is attached to.
class MapFamily : public Family {
 public:
  MapFamily(Host &host, uint8_t type, size_t selector_at, bool by_unit)
      : type_(type), host_(host), selector_at_(selector_at), by_unit_(by_unit) {
    host.answer_raw(type, [this](Session &s, const Request &r) { answer(s, r); });
  }
  Keyed<CosMap> store;
  const uint8_t type_;

  Bytes message(uint8_t op, const CosMap &m) const {
    switch (type_) {
      case TLK_MSG_COS_CLASS: {
        tarvik_cos_class_body b{};
        b.ifl = m.ifl;
        b.table = m.object;
        b.type = static_cast<uint8_t>(m.kind);
        b.selector = 1;
        b.entries = m.entries;
        return message_of(type_, op, b);
      }
      case TLK_MSG_COS_REWRT: {
        tarvik_cos_rewrite_body b{};
        b.ifl = m.ifl;
        b.id = m.object;
        b.type = m.kind;
        b.selector = 1;
        b.num = m.entries;
        b.size = m.size;
        return message_of(type_, op, b);
      }
      default: {
        tarvik_cos_fragmap_body b{};
        b.ifl = m.ifl;
        b.frag_map_id = m.object;
        b.entries = m.entries;
        b.is_object = 1;
        b.data_size = m.size;
        return message_of(type_, op, b);
      }
    }
  }
  void set(const CosMap &m) {
    store.items[m.object] = m;
    host_.notify(type_, message(TLK_OP_ADD, m), -1);
  }

 private:
  void answer(Session &s, const Request &req) {
    const auto b = req.bytes;
    const CosMap *found = nullptr;
    if (u8_in(b, selector_at_) != 0 || req.op == TLK_OP_GETNEXT) {
      found = store.walk(req.op, u32_in(b, kObjectAt));
    } else if (req.op == TLK_OP_GET) {
      const uint32_t ifl = u32_in(b, kIflAt);
      for (const auto &[object, m] : store.items) {
        if (m.ifl == ifl && (!by_unit_ || m.unit == u8_in(b, kUnitAt))) {
          found = &m;
          break;
        }
      }
    }
    if (found == nullptr) return host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
    host_.reply_with_seq(s, message(req.op, *found), req.seq);
  }
  Host &host_;
  const size_t selector_at_;
  const bool by_unit_;
};

class ClassifierFamily final : public MapFamily {
 public:
  explicit ClassifierFamily(Host &host) : MapFamily(host, TLK_MSG_COS_CLASS, 42, true) {
    store.items[2] = {2, 71, 0, 1, 8, 0};
    store.items[6] = {6, 72, 0, 2, 64, 0};
  }
};

class RewriteFamily final : public MapFamily {
 public:
  explicit RewriteFamily(Host &host) : MapFamily(host, TLK_MSG_COS_REWRT, 44, true) {
    store.items[5] = {5, 71, 0, 1, 8, 64};
    store.items[8] = {8, 73, 0, 2, 4, 32};
  }
};

class FragmapFamily final : public MapFamily {
 public:
  explicit FragmapFamily(Host &host) : MapFamily(host, TLK_MSG_COS_FRAGMAP, 44, false) {
    store.items[11] = {11, 72, 0, 0, 4, 48};
    store.items[12] = {12, 74, 0, 0, 2, 24};
  }
};

// The tables the kernel keeps one of: forwarding classes, fabric priorities, fabric and chassis
// policies, the forwarding class to queue map.
class CosTableFamily final : public Family {
 public:
  explicit CosTableFamily(Host &host) : host_(host) {
    host.answer_raw(TLK_MSG_COS_INFO, [this](Session &s, const Request &r) {
      tarvik_cos_info_body b{};
      b.num_fcs = forwarding_classes;
      answer(s, r, message_of(r.type, r.op, b));
    });
    host.answer_raw(TLK_MSG_COS_FABRIC, [this](Session &s, const Request &r) {
      tarvik_cos_fabric_body b{};
      b.entries = fabric_entries;
      answer(s, r, message_of(r.type, r.op, b));
    });
    // The policy and queue map replies are the request's own fixed part.
    for (uint8_t type : {TLK_MSG_COS_POLICY, TLK_MSG_COS_FC_Q}) {
      host.answer_raw(type, [this](Session &s, const Request &r) {
        answer(s, r, Bytes(r.bytes.begin(), r.bytes.end()));
      });
    }
  }
  uint32_t forwarding_classes = 8;
  uint32_t fabric_entries = 4;

  void notify_classes() {
    tarvik_cos_info_body b{};
    b.num_fcs = forwarding_classes;
    host_.notify(TLK_MSG_COS_INFO, message_of(TLK_MSG_COS_INFO, TLK_OP_CHANGE, b), -1);
  }

 private:
  void answer(Session &s, const Request &req, Bytes reply) {
    if (req.op != TLK_OP_GET && req.op != TLK_OP_GETNEXT) return;
    reply[wire::kRawOp] = req.op;
    host_.reply_with_seq(s, reply, req.seq);
  }
  Host &host_;
};

// The collector PIC: every get or getnext is answered with the request's fixed part; a file
// statistics request is answered on the asking session's notification stream.
class CollectorFamily final : public Family {
 public:
  explicit CollectorFamily(Host &host) : host_(host) {
    for (uint8_t type : {TLK_MSG_CPIC_PARAMS, TLK_MSG_CPIC_FILE_SPEC, TLK_MSG_CPIC_IIF_CP_MAP,
                         TLK_MSG_CPIC_IIF_FSPEC_MAP, TLK_MSG_CPIC_STATS}) {
      host.answer_raw(type, [this](Session &s, const Request &r) {
        ++requests;
        if (r.op != TLK_OP_GET && r.op != TLK_OP_GETNEXT) return;
        host_.reply_with_seq(s, r.bytes, r.seq);
      });
    }
    host.answer_raw(TLK_MSG_CPIC_FILE_STATS, [this](Session &s, const Request &r) {
      ++requests;
      host_.notify_session(s, r.bytes);
    });
  }
  uint64_t requests = 0;

 private:
  Host &host_;
};

// Virtual output queue statistics: a framed read by device and queue, answered with counters
// that grow by one packet of 100 bytes a read, so that two reads tell a live queue.
class VoqStatsFamily final : public Family {
 public:
  explicit VoqStatsFamily(Host &host) : host_(host) {
    host.answer_frames(TLK_MSG_VOQ_STATS, [this](Session &s, const Frame &f) {
      const auto &req = f.as<rt_cos_voqstats_msg>();
      const tlk_hdr &h = f.hdr();
      if (h.tlkh_op != TLK_OP_GET) return;
      ++reads;
      rt_cos_voqstats_msg m{};
      m.rcvm_hdr.tlkh_version = h.tlkh_version;
      m.rcvm_hdr.tlkh_type = TLK_MSG_VOQ_STATS;
      m.rcvm_hdr.tlkh_op = h.tlkh_op;
      m.rcvm_hdr.tlkh_seq = h.tlkh_seq;
      m.rcvm_ifd = req.rcvm_ifd;
      m.rcvm_queue = req.rcvm_queue;
      m.rcvm_stat_type = req.rcvm_stat_type;
      m.rcvm_packets = reads;
      m.rcvm_bytes = reads * 100;
      host_.reply(s, encode_frame(TLK_MSG_VOQ_STATS, &m, f.tlv));
    });
  }
  uint32_t reads = 0;

 private:
  Host &host_;
};

namespace {
const FamilySlot<VoqStatsFamily> kVoqStats("cos_voq_stats");
const FamilySlot<PolicerFamily> kPolicers("cos_policers");
const FamilySlot<ShaperFamily> kShapers("cos_shapers");
const FamilySlot<ClassifierFamily> kClassifiers("cos_classifiers");
const FamilySlot<RewriteFamily> kRewrites("cos_rewrites");
const FamilySlot<FragmapFamily> kFragmaps("cos_fragmaps");
const FamilySlot<CosTableFamily> kCosTables("cos_tables");
const FamilySlot<CollectorFamily> kCollector("collector");

RateFamily &rates_in(Core &core, Cos::Kind kind) {
  if (kind == Cos::kPolicer) return kPolicers.in(core);
  return kShapers.in(core);
}
MapFamily &maps_in(Core &core, Cos::MapKind kind) {
  if (kind == Cos::kClassifier) return kClassifiers.in(core);
  if (kind == Cos::kRewrite) return kRewrites.in(core);
  return kFragmaps.in(core);
}
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

Cos Kernel::cos() {
  return Cos(impl_);
}
const Cos Kernel::cos() const {
  return Cos(impl_);
}

void Cos::set_rate(Kind kind, const CosRate &rate) {
  internal::rates_in(*core_, kind).set(rate);
}
bool Cos::erase_rate(Kind kind, uint32_t object) {
  return internal::rates_in(*core_, kind).store.items.erase(object) != 0;
}
std::vector<CosRate> Cos::rates(Kind kind) const {
  std::vector<CosRate> out;
  for (const auto &[object, r] : internal::rates_in(*core_, kind).store.items) out.push_back(r);
  return out;
}
void Cos::set_map(MapKind kind, const CosMap &map) {
  internal::maps_in(*core_, kind).set(map);
}
bool Cos::erase_map(MapKind kind, uint32_t object) {
  return internal::maps_in(*core_, kind).store.items.erase(object) != 0;
}
std::vector<CosMap> Cos::maps(MapKind kind) const {
  std::vector<CosMap> out;
  for (const auto &[object, m] : internal::maps_in(*core_, kind).store.items) out.push_back(m);
  return out;
}
void Cos::set_forwarding_classes(uint32_t count) {
  auto &tables = internal::kCosTables.in(*core_);
  tables.forwarding_classes = count;
  tables.notify_classes();
}
uint32_t Cos::forwarding_classes() const {
  return internal::kCosTables.in(*core_).forwarding_classes;
}
uint64_t Cos::collector_requests() const {
  return internal::kCollector.in(*core_).requests;
}

}  // namespace tarsim
