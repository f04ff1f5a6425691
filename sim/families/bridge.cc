// Bridging objects: bridge domains, interfaces in a domain, spanning tree, VLANs, mesh groups,
// analyzers (framed), and MAC tables with their counters (raw).  One family class per object
// kind, each with its store.  See tarsim/bridge.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/bridge.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint16_t kBdByName = 32768, kAnyTag = 65535;
constexpr uint32_t kBdInfoBase = 0x8000000;
constexpr uint16_t kStpInstRoom = 20;
// Value bytes of the bridge domain attributes, by item type; 0 for a type without an attribute.
constexpr uint8_t kBdValueBytes[16] = {0, 28, 2, 8, 4, 4, 0, 4, 1, 4, 0, 2, 2, 2, 2, 4};
constexpr uint8_t kMacTableType = 51, kMacStatsType = 52;
constexpr size_t kMacTableFixed = 64, kMacStatsFixed = 360, kMacEntryBytes = 16;
constexpr size_t kMacCountAt = 40, kMacCountersAt = 64;

std::string text_of(const uint8_t *p, uint32_t len) {
  if (p == nullptr || len == 0) return {};
  const auto *s = reinterpret_cast<const char *>(p);
  return std::string(s, strnlen(s, len));
}

template <size_t N>
void set_text(char (&dst)[N], const std::string &s) {
  const size_t n = std::min(s.size(), N - 1);
  memcpy(dst, s.data(), n);
  dst[n] = '\0';
}

// A name as a record carries it: its bytes and the end byte.
struct Name {
  explicit Name(const char *s) : text(s) { text.push_back('\0'); }
  uint8_t *data() { return reinterpret_cast<uint8_t *>(text.data()); }
  uint32_t size() const { return static_cast<uint32_t>(text.size()); }
  std::string text;
};

void fill_head(tlk_hdr &h, uint8_t type, uint8_t op, uint32_t seq, uint32_t fixed) {
  h.tlkh_version = TARVIK_VERSION_TABLE[type];
  h.tlkh_type = type;
  h.tlkh_op = op;
  h.tlkh_seq = seq;
  h.tlkh_fixedlen = static_cast<uint16_t>(fixed);
}

bool is_read(uint8_t op) {
  return op == TLK_OP_GET || op == TLK_OP_GETNEXT;
}

// The lowest key from 1 that a store does not hold.
template <class Map>
typename Map::key_type lowest_free(const Map &m) {
  typename Map::key_type k = 1;
  while (m.count(k) != 0) ++k;
  return k;
}

// The object a read asks for: the key's own (get) or the one after it (getnext); null if none.
template <class Map>
const typename Map::mapped_type *read_from(const Map &m, uint8_t op,
                                           const typename Map::key_type &key) {
  auto it = op == TLK_OP_GETNEXT ? m.upper_bound(key) : m.find(key);
  return it != m.end() ? &it->second : nullptr;
}

// What every framed family shares: answering a read, and telling listeners of a change.
class Framed : public Family {
 protected:
  Framed(Host &host, uint8_t type, const char *refuser)
      : host_(host), type_(type), refuser_(refuser) {}

  template <class T, class FrameOf>
  void answer_read(Session &s, const Frame &f, const T *found, FrameOf frame_of) {
    const tlk_hdr &h = f.hdr();
    if (found == nullptr) {
      host_.refuse_not_found(s, type_, h.tlkh_op, h.tlkh_seq, refuser_);
      return;
    }
    host_.reply(s, frame_of(*found, h.tlkh_op, h.tlkh_seq, f.tlv));
  }
  void tell(const Bytes &frame, int except_fd) {
    if (host_.has_listener(type_, except_fd)) (void)host_.notify(type_, frame, except_fd);
  }

  Host &host_;
  uint8_t type_;
  const char *refuser_;
};

}  // namespace

// --- Bridge domains ------------------------------------------------------------------------

class BdFamily final : public Framed {
 public:
  explicit BdFamily(Host &host) : Framed(host, TLK_MSG_BRIDGE_DOMAIN, "bd_get") {
    put(seed(1, 1, "vlan-100", 100));
    put(seed(2, 2, "vlan-200", 200));
    host.answer_frames(TLK_MSG_BRIDGE_DOMAIN, [this](Session &s, const Frame &f) { answer(s, f); });
  }
  void put(const BridgeDomain &d) { store[d.index] = d; }

  std::map<uint16_t, BridgeDomain> store;

 private:
  static BridgeDomain seed(uint16_t index, uint16_t tag, const char *name, uint16_t vlan) {
    BridgeDomain d;
    d.index = index;
    d.tag = tag;
    set_text(d.name, name);
    d.vlan_id = vlan;
    d.mac_limit = 1024;
    return d;
  }

  const BridgeDomain *by_name(const std::string &name, uint16_t tag) const {
    for (const auto &[index, d] : store) {
      if (name == d.name && (tag == kAnyTag || tag == d.tag)) return &d;
    }
    return nullptr;
  }

  static Bytes frame_of(const BridgeDomain &d, uint8_t op, uint32_t seq, bool tlv) {
    bd_msg m{};
    fill_head(m.bdm_hdr, TLK_MSG_BRIDGE_DOMAIN, op, seq, tlv_rtti_sizeof_bd_msg_0);
    m.bdm_hdr.tlkh_id = d.sender;
    m.bdm_index = d.index;
    m.bdm_tag = d.tag;
    Name name(d.name), descr(d.descr);
    m.bdm_name = name.data();
    m.bdm_name_len = name.size();
    m.bdm_descr = descr.data();
    m.bdm_descr_len = descr.size();
    m.bdm_vlan_id = d.vlan_id;
    m.bdm_mac_limit = d.mac_limit;
    m.bdm_mac_aging = d.mac_aging;
    m.bdm_rtb = d.rtb;
    // The attributes travel back as the attachments they came in.
    std::vector<tlk_msg_info> items;
    for (unsigned type = 1; type < 16; ++type) {
      if ((d.attributes_set & (1u << type)) == 0) continue;
      tlk_msg_info &item = items.emplace_back();
      memset(&item, 0, sizeof item);
      item.tlkmi_type = kBdInfoBase + type;
      memcpy(&item.tlkmi_u, d.attributes[type], kBdValueBytes[type]);
    }
    std::vector<tlk_msg_info *> list;
    for (tlk_msg_info &item : items) list.push_back(&item);
    if (!list.empty()) {
      m.bdm_hdr.tlkh_info = list.data();
      m.bdm_hdr.tlkh_info_len = static_cast<uint32_t>(list.size());
      m.bdm_info_marker = 1;
    }
    return encode_frame(TLK_MSG_BRIDGE_DOMAIN, &m, tlv);
  }

  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<bd_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    if (is_read(op)) {
      const BridgeDomain *found = nullptr;
      if (req.bdm_index == kBdByName) {
        found = by_name(text_of(req.bdm_name, req.bdm_name_len), req.bdm_tag);
        if (found != nullptr && op == TLK_OP_GETNEXT) found = read_from(store, op, found->index);
      } else {
        found = read_from(store, op, req.bdm_index);
      }
      answer_read(s, f, found, frame_of);
      return;
    }
    BridgeDomain *d = nullptr;
    if (op == TLK_OP_ADD || op == TLK_OP_ADD_GET) {
      const std::string name = text_of(req.bdm_name, req.bdm_name_len);
      if (const BridgeDomain *old = by_name(name, kAnyTag); old != nullptr) {
        d = &store[old->index];  // already there: the add answers it as it stands
      } else {
        BridgeDomain fresh;
        fresh.index = lowest_free(store);
        fresh.tag = req.bdm_tag;
        set_text(fresh.name, name);
        set_text(fresh.descr, text_of(req.bdm_descr, req.bdm_descr_len));
        fresh.vlan_id = req.bdm_vlan_id;
        fresh.mac_limit = req.bdm_mac_limit;
        fresh.mac_aging = req.bdm_mac_aging;
        fresh.rtb = req.bdm_rtb;
        fresh.sender = req.bdm_hdr.tlkh_id;
        d = &(store[fresh.index] = fresh);
        tell(frame_of(*d, TLK_OP_ADD, 0, false), s.lib_fd);
      }
    } else if (op == TLK_OP_CHANGE || op == TLK_OP_CHG_GET) {
      auto it = store.find(req.bdm_index);
      if (it == store.end()) return;
      d = &it->second;
      apply_attributes(*d, req.bdm_hdr);
      tell(frame_of(*d, TLK_OP_CHANGE, 0, false), s.lib_fd);
    } else if (op == TLK_OP_DELETE) {
      auto it = store.find(req.bdm_index);
      if (it == store.end()) return;
      const Bytes gone = frame_of(it->second, TLK_OP_DELETE, 0, false);
      store.erase(it);
      tell(gone, s.lib_fd);
      return;
    }
    if (d != nullptr && (op == TLK_OP_ADD_GET || op == TLK_OP_CHG_GET))
      host_.reply(s, frame_of(*d, op, f.hdr().tlkh_seq, f.tlv));
  }

  static void apply_attributes(BridgeDomain &d, const tlk_hdr &h) {
    for (uint32_t i = 0; h.tlkh_info != nullptr && i < h.tlkh_info_len; ++i) {
      const tlk_msg_info *item = h.tlkh_info[i];
      if (item == nullptr || item->tlkmi_type <= kBdInfoBase ||
          item->tlkmi_type >= kBdInfoBase + 16)
        continue;
      const unsigned type = item->tlkmi_type - kBdInfoBase;
      if (kBdValueBytes[type] == 0) continue;
      memcpy(d.attributes[type], &item->tlkmi_u, kBdValueBytes[type]);
      d.attributes_set = static_cast<uint16_t>(d.attributes_set | (1u << type));
    }
  }
};

// --- Interfaces in a domain ----------------------------------------------------------------

class IfbdFamily final : public Framed {
 public:
  explicit IfbdFamily(Host &host) : Framed(host, TLK_MSG_IFBDMESG, "ifbd_get") {
    put(seed("ge-0/0/1.0", 1, 100, 71));
    put(seed("ge-0/0/2.0", 1, 100, 72));
    put(seed("xe-0/0/0.0", 2, 200, 73));
    host.answer_frames(TLK_MSG_IFBDMESG, [this](Session &s, const Frame &f) { answer(s, f); });
  }
  static std::string key_of(const char *key) {
    std::string k(key, 16);
    k[15] = '\0';
    return k;
  }
  void put(const BridgeInterface &i) {
    BridgeInterface stored = i;
    stored.key[15] = '\0';
    store[key_of(stored.key)] = stored;
  }

  std::map<std::string, BridgeInterface> store;

 private:
  static BridgeInterface seed(const char *name, uint32_t bd, uint16_t vlan, uint32_t index) {
    BridgeInterface i;
    strncpy(i.key, name, sizeof i.key - 1);
    i.bd_index = bd;
    i.vlan_id = vlan;
    i.index = index;
    return i;
  }

  static Bytes frame_of(const BridgeInterface &i, uint8_t op, uint32_t seq, bool tlv) {
    ifbd_msg m{};
    fill_head(m.ibm_hdr, TLK_MSG_IFBDMESG, op, seq, tlv_rtti_sizeof_ifbd_msg_0);
    memcpy(m.ibm_key.ibk_name, i.key, sizeof m.ibm_key.ibk_name);
    m.ibm_bd_index = i.bd_index;
    m.ibm_index = i.index;
    m.ibm_vlan_id = i.vlan_id;
    m.ibm_flags = i.flags;
    m.ibm_inner_vlan = i.inner_vlan;
    m.ibm_outer_vlan = i.outer_vlan;
    memcpy(m.ibm_mac, i.mac, sizeof m.ibm_mac);
    return encode_frame(TLK_MSG_IFBDMESG, &m, tlv);
  }

  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<ifbd_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    const std::string key = key_of(reinterpret_cast<const char *>(req.ibm_key.ibk_name));
    if (is_read(op)) {
      answer_read(s, f, read_from(store, op, key), frame_of);
      return;
    }
    auto it = store.find(key);
    if (op == TLK_OP_DELETE) {
      if (it == store.end()) return;
      const Bytes gone = frame_of(it->second, TLK_OP_DELETE, 0, false);
      store.erase(it);
      tell(gone, s.lib_fd);
      return;
    }
    const bool add = op == TLK_OP_ADD || op == TLK_OP_ADD_GET;
    if (!add && op != TLK_OP_CHANGE) return;
    if (!add && it == store.end()) return;
    BridgeInterface &i = store[key];
    memcpy(i.key, key.data(), sizeof i.key);
    i.bd_index = req.ibm_bd_index;
    i.index = req.ibm_index;
    i.vlan_id = req.ibm_vlan_id;
    i.inner_vlan = req.ibm_inner_vlan;
    i.outer_vlan = req.ibm_outer_vlan;
    if (add) {
      i.flags = req.ibm_flags;
      memcpy(i.mac, req.ibm_mac, sizeof i.mac);
    }
    tell(frame_of(i, add ? TLK_OP_ADD : TLK_OP_CHANGE, 0, false), s.lib_fd);
  }
};

// --- Spanning tree -------------------------------------------------------------------------

using StpKey = std::tuple<uint32_t, uint16_t, uint16_t>;  // interface, instance, VLAN

class StpFamily final : public Framed {
 public:
  explicit StpFamily(Host &host) : Framed(host, TLK_MSG_STP, "stp_get") {
    put(seed(1, 71, 100));
    put(seed(2, 72, 200));
    host.answer_frames(TLK_MSG_STP, [this](Session &s, const Frame &f) { answer(s, f); });
  }
  static StpKey key_of(const SpanningTree &t) { return {t.ifl, t.instance, t.vlan}; }
  void put(const SpanningTree &t) {
    if (auto *old = by_idx(t.idx)) store.erase(key_of(*old));
    store[key_of(t)] = t;
  }
  SpanningTree *by_idx(uint32_t idx) {
    for (auto &[key, t] : store) {
      if (t.idx == idx) return &t;
    }
    return nullptr;
  }

  std::map<StpKey, SpanningTree> store;

 private:
  static SpanningTree seed(uint16_t idx, uint32_t ifl, uint16_t vlan) {
    SpanningTree t;
    t.idx = idx;
    t.kind = TLK_STP_KIND_IF;
    t.ifl = ifl;
    t.vlan = vlan;
    t.state = 3;
    t.peer_ip = TLK_STP_NO_PEER;
    return t;
  }

  static Bytes frame_of(const SpanningTree &t, uint8_t op, uint32_t seq, bool tlv) {
    stp_msg m{};
    fill_head(m.stpm_hdr, TLK_MSG_STP, op, seq, tlv_rtti_sizeof_stp_msg_0);
    m.stpm_hdr.tlkh_id = t.sender;
    m.stpm_idx = t.idx;
    m.stpm_kind = t.kind;
    m.stpm_state = t.state;
    m.stpm_action = t.action;
    m.stpm_epoch = t.epoch;
    m.stpm_clear_epoch = t.clear_epoch;
    m.stpm_hw_learn = t.hw_learn;
    m.stpm_flags = t.flags;
    m.stpm_peer_ip = t.peer_ip;
    m.stpm_inst_len = kStpInstRoom;
    m.stpm_inst.sii_ifl_index = t.ifl;
    m.stpm_inst.sii_instance = t.instance;
    m.stpm_inst_vlan = t.vlan;
    m.stpm_inst_byte = t.inst_byte;
    return encode_frame(TLK_MSG_STP, &m, tlv);
  }

  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<stp_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    const StpKey key{req.stpm_inst.sii_ifl_index, req.stpm_inst.sii_instance, req.stpm_inst_vlan};
    if (is_read(op)) {
      answer_read(s, f, read_from(store, op, key), frame_of);
      return;
    }
    SpanningTree *t = nullptr;
    if (op == TLK_OP_ADD || op == TLK_OP_ADD_GET) {
      auto it = store.find(key);
      if (it == store.end()) {
        SpanningTree fresh;
        fresh.idx = 1;
        while (by_idx(fresh.idx) != nullptr) ++fresh.idx;
        fresh.kind = req.stpm_kind;
        fresh.ifl = req.stpm_inst.sii_ifl_index;
        fresh.instance = req.stpm_inst.sii_instance;
        fresh.vlan = req.stpm_inst_vlan;
        fresh.inst_byte = req.stpm_inst_byte;
        fresh.peer_ip = req.stpm_peer_ip;
        fresh.sender = req.stpm_hdr.tlkh_id;
        it = store.emplace(key, fresh).first;
        tell(frame_of(it->second, TLK_OP_ADD, 0, false), s.lib_fd);
      }
      t = &it->second;
    } else if (op == TLK_OP_CHANGE || op == TLK_OP_CHG_GET) {
      t = by_idx(req.stpm_idx);
      if (t == nullptr) return;
      t->state = req.stpm_state;
      t->action = req.stpm_action;
      t->epoch = req.stpm_epoch;
      t->clear_epoch = req.stpm_clear_epoch;
      t->hw_learn = req.stpm_hw_learn;
      t->flags = req.stpm_flags;
      t->peer_ip = req.stpm_peer_ip;
      tell(frame_of(*t, TLK_OP_CHANGE, 0, false), s.lib_fd);
    } else if (op == TLK_OP_DELETE) {
      SpanningTree *gone = by_idx(req.stpm_idx);
      if (gone == nullptr) return;
      const Bytes frame = frame_of(*gone, TLK_OP_DELETE, 0, false);
      store.erase(key_of(*gone));
      tell(frame, s.lib_fd);
      return;
    }
    if (t != nullptr && (op == TLK_OP_ADD_GET || op == TLK_OP_CHG_GET))
      host_.reply(s, frame_of(*t, op, f.hdr().tlkh_seq, f.tlv));
  }
};

// --- VLANs ---------------------------------------------------------------------------------

class VlanFamily final : public Framed {
 public:
  explicit VlanFamily(Host &host) : Framed(host, TLK_MSG_VLAN, "vlan_get") {
    put(seed(1, "v100", 100, 1, 71));
    put(seed(2, "v200", 200, 2, 72));
    host.answer_frames(TLK_MSG_VLAN, [this](Session &s, const Frame &f) { answer(s, f); });
  }
  void put(const BridgeVlan &v) { store[v.index] = v; }

  std::map<uint32_t, BridgeVlan> store;

 private:
  static BridgeVlan seed(uint32_t index, const char *name, uint16_t tag, uint32_t bd,
                         uint32_t ifl) {
    BridgeVlan v;
    v.index = index;
    set_text(v.name, name);
    v.tag = tag;
    v.bd_index = bd;
    v.l3_ifl = ifl;
    return v;
  }

  static Bytes frame_of(const BridgeVlan &v, uint8_t op, uint32_t seq, bool tlv) {
    vlan_msg m{};
    fill_head(m.vlm_hdr, TLK_MSG_VLAN, op, seq, tlv_rtti_sizeof_vlan_msg_0);
    m.vlm_index = v.index;
    m.vlm_key = v.key;
    Name name(v.name);
    m.vlm_name = name.data();
    m.vlm_name_len = name.size();
    m.vlm_tag = v.tag;
    m.vlm_bd_index = v.bd_index;
    m.vlm_l3_ifl = v.l3_ifl;
    return encode_frame(TLK_MSG_VLAN, &m, tlv);
  }

  // The index a request names: its own, or that of the VLAN its name or interface finds; 0 for
  // a request that names none, and nullopt for one that names an unknown VLAN.
  std::optional<uint32_t> index_of(const vlan_msg &req) const {
    if (req.vlm_index != 0) return req.vlm_index;
    const std::string name = text_of(req.vlm_name, req.vlm_name_len);
    if (req.vlm_name == nullptr && req.vlm_l3_ifl == 0) return 0u;
    for (const auto &[index, v] : store) {
      if (req.vlm_name != nullptr ? name == v.name && (req.vlm_key == 0 || req.vlm_key == v.key)
                                  : req.vlm_l3_ifl == v.l3_ifl)
        return index;
    }
    return std::nullopt;
  }

  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<vlan_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    const std::optional<uint32_t> index = index_of(req);
    if (is_read(op)) {
      answer_read(s, f, index ? read_from(store, op, *index) : nullptr, frame_of);
      return;
    }
    if (op == TLK_OP_ADD) {
      BridgeVlan v;
      v.index = req.vlm_index != 0 ? req.vlm_index : lowest_free(store);
      v.key = req.vlm_key;
      set_text(v.name, text_of(req.vlm_name, req.vlm_name_len));
      v.tag = req.vlm_tag;
      v.bd_index = req.vlm_bd_index;
      v.l3_ifl = req.vlm_l3_ifl;
      put(v);
      tell(frame_of(v, TLK_OP_ADD, 0, false), s.lib_fd);
      return;
    }
    auto it = index ? store.find(*index) : store.end();
    if (it == store.end()) return;
    if (op == TLK_OP_CHANGE) {
      it->second.tag = req.vlm_tag;
      it->second.bd_index = req.vlm_bd_index;
      tell(frame_of(it->second, TLK_OP_CHANGE, 0, false), s.lib_fd);
    } else if (op == TLK_OP_DELETE) {
      const Bytes gone = frame_of(it->second, TLK_OP_DELETE, 0, false);
      store.erase(it);
      tell(gone, s.lib_fd);
    }
  }
};

// --- Mesh groups ---------------------------------------------------------------------------

class MeshGroupFamily final : public Framed {
 public:
  explicit MeshGroupFamily(Host &host) : Framed(host, TLK_MSG_MESH_GROUP, "mesh_group_get") {
    put(seed(1, "__ves__"));
    put(seed(2, "core"));
    host.answer_frames(TLK_MSG_MESH_GROUP, [this](Session &s, const Frame &f) { answer(s, f); });
  }
  void put(const MeshGroup &g) { store[g.id] = g; }

  std::map<uint32_t, MeshGroup> store;

 private:
  static MeshGroup seed(uint32_t id, const char *name) {
    MeshGroup g;
    g.id = id;
    set_text(g.name, name);
    g.af = TLK_AF_INET;
    return g;
  }

  static Bytes frame_of(const MeshGroup &g, uint8_t op, uint32_t seq, bool tlv) {
    mesh_group_msg m{};
    fill_head(m.mgm_hdr, TLK_MSG_MESH_GROUP, op, seq, tlv_rtti_sizeof_mesh_group_msg_0);
    m.mgm_hdr.tlkh_id = g.id;
    m.mgm_id = g.id;
    m.mgm_key.mgi_index = g.key;
    Name name(g.name);
    m.mgm_name = name.data();
    m.mgm_name_len = name.size();
    m.mgm_af = g.af;
    m.mgm_rtb_id = g.rtb_id;
    m.mgm_flags = g.flags;
    return encode_frame(TLK_MSG_MESH_GROUP, &m, tlv);
  }

  std::optional<uint32_t> id_of(const mesh_group_msg &req) const {
    if (req.mgm_id != 0 || req.mgm_name == nullptr) return req.mgm_id;
    const std::string name = text_of(req.mgm_name, req.mgm_name_len);
    for (const auto &[id, g] : store) {
      if (name == g.name) return id;
    }
    return std::nullopt;
  }

  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<mesh_group_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    const std::optional<uint32_t> id = id_of(req);
    if (is_read(op)) {
      answer_read(s, f, id ? read_from(store, op, *id) : nullptr, frame_of);
      return;
    }
    const MeshGroup *done = nullptr;
    if (op == TLK_OP_ADD || op == TLK_OP_ADD_GET) {
      auto it = id && *id != 0 ? store.find(*id) : store.end();
      if (it == store.end()) {
        MeshGroup g;
        g.id = req.mgm_id != 0 ? req.mgm_id : lowest_free(store);
        g.key = req.mgm_key.mgi_index;
        set_text(g.name, text_of(req.mgm_name, req.mgm_name_len));
        g.af = req.mgm_af;
        g.rtb_id = req.mgm_rtb_id;
        g.flags = req.mgm_flags;
        it = store.emplace(g.id, g).first;
        tell(frame_of(g, TLK_OP_ADD, 0, false), s.lib_fd);
      }
      done = &it->second;
    } else {
      auto it = id ? store.find(*id) : store.end();
      if (it == store.end()) return;
      if (op == TLK_OP_CHANGE || op == TLK_OP_CHG_GET) {
        it->second.flags = req.mgm_flags;
        it->second.rtb_id = req.mgm_rtb_id;
        tell(frame_of(it->second, TLK_OP_CHANGE, 0, false), s.lib_fd);
        done = &it->second;
      } else if (op == TLK_OP_DELETE) {
        const Bytes gone = frame_of(it->second, TLK_OP_DELETE, 0, false);
        store.erase(it);
        tell(gone, s.lib_fd);
        return;
      }
    }
    if (done != nullptr && (op == TLK_OP_ADD_GET || op == TLK_OP_CHG_GET))
      host_.reply(s, frame_of(*done, op, f.hdr().tlkh_seq, f.tlv));
  }
};

// --- Analyzers -----------------------------------------------------------------------------

class AnalyzerFamily final : public Framed {
 public:
  explicit AnalyzerFamily(Host &host) : Framed(host, TLK_MSG_ANALYZER, "analyzer_get") {
    put(seed(1, "mirror-a", 1));
    put(seed(2, "span-b", 10));
    host.answer_frames(TLK_MSG_ANALYZER, [this](Session &s, const Frame &f) { answer(s, f); });
  }
  void put(const Analyzer &a) { store[a.name] = a; }

  std::map<std::string, Analyzer> store;

 private:
  static Analyzer seed(uint32_t index, const char *name, uint32_t ratio) {
    Analyzer a;
    a.index = index;
    set_text(a.name, name);
    a.ratio = ratio;
    return a;
  }

  static Bytes frame_of(const Analyzer &a, uint8_t op, uint32_t seq, bool tlv) {
    analyzer_msg m{};
    fill_head(m.anm_hdr, TLK_MSG_ANALYZER, op, seq, tlv_rtti_sizeof_analyzer_msg_0);
    m.anm_index = a.index;
    Name name(a.name);
    m.anm_name = name.data();
    m.anm_name_len = name.size();
    m.anm_ratio = a.ratio;
    return encode_frame(TLK_MSG_ANALYZER, &m, tlv);
  }

  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<analyzer_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    const std::string name = text_of(req.anm_name, req.anm_name_len);
    if (is_read(op)) {
      answer_read(s, f, read_from(store, op, name), frame_of);
      return;
    }
    auto it = store.find(name);
    if (op == TLK_OP_ADD) {
      if (it != store.end()) return;
      Analyzer a;
      a.index = 1;
      for (const auto &[n, x] : store) a.index = std::max(a.index, x.index + 1);
      set_text(a.name, name);
      a.ratio = req.anm_ratio;
      put(a);
      tell(frame_of(a, TLK_OP_ADD, 0, false), s.lib_fd);
    } else if (op == TLK_OP_CHANGE && it != store.end()) {
      it->second.ratio = req.anm_ratio;
      tell(frame_of(it->second, TLK_OP_CHANGE, 0, false), s.lib_fd);
    } else if (op == TLK_OP_DELETE && it != store.end()) {
      const Bytes gone = frame_of(it->second, TLK_OP_DELETE, 0, false);
      store.erase(it);
      tell(gone, s.lib_fd);
    }
  }
};

// --- MAC tables and MAC statistics (raw) ---------------------------------------------------

class MacFamily final : public Family {
 public:
  explicit MacFamily(Host &host) : host_(host) {
    put(entry(1, "vlan-100", 0x10, 100, 71));
    put(entry(1, "vlan-100", 0x11, 100, 72));
    put(entry(2, "vlan-200", 0x20, 200, 73));
    counters[1].learned = 2;
    counters[2].learned = 1;
    counters[1].flooded = 17;
    host.answer_raw(kMacTableType, [this](Session &s, const Request &r) { answer(s, r, true); });
    host.answer_raw(kMacStatsType, [this](Session &s, const Request &r) { answer(s, r, false); });
  }

  // An entry, and its domain's counters if the store has none yet.
  void put(const MacEntry &e) {
    entries.push_back(e);
    MacCounters &c = counters[e.bd_index];
    c.bd_index = e.bd_index;
    memcpy(c.bd_name, e.bd_name, sizeof c.bd_name);
  }

  std::vector<MacEntry> entries;             // in the order put
  std::map<uint32_t, MacCounters> counters;  // one per known domain

 private:
  static MacEntry entry(uint32_t bd, const char *name, uint8_t last, uint16_t vlan, uint32_t ifl) {
    MacEntry e;
    e.bd_index = bd;
    set_text(e.bd_name, name);
    const uint8_t mac[6] = {0x02, 0x00, 0x5e, 0x00, 0x01, last};
    memcpy(e.mac, mac, sizeof mac);
    e.vlan = vlan;
    e.ifl = ifl;
    return e;
  }

  // The domain a request names: its index, or by name when the index is 0.
  MacCounters *domain_of(std::span<const uint8_t> b, size_t fixed, size_t index_at,
                         size_t name_len_at) {
    const uint32_t index = wire::load_u32(&b[index_at]);
    if (index != 0) {
      auto it = counters.find(index);
      return it != counters.end() ? &it->second : nullptr;
    }
    const size_t room = b.size() - fixed;
    const size_t len = std::min<size_t>(b[name_len_at], room);
    const std::string name = text_of(b.data() + fixed, static_cast<uint32_t>(len));
    for (auto &[i, c] : counters) {
      if (len != 0 && name == c.bd_name) return &c;
    }
    return nullptr;
  }

  void answer(Session &s, const Request &r, bool table) {
    const size_t fixed = table ? kMacTableFixed : kMacStatsFixed;
    const size_t index_at = table ? 32 : 28, name_len_at = table ? 29 : 38;
    const uint8_t type = table ? kMacTableType : kMacStatsType;
    if (r.bytes.size() < fixed || (r.op != TLK_OP_GET && r.op != TLK_OP_CLEAR)) return;
    MacCounters *d = domain_of(r.bytes, fixed, index_at, name_len_at);
    if (d == nullptr) {
      if (r.op == TLK_OP_GET) host_.refuse_not_found(s, type, r.op, r.seq, "mac_get");
      return;
    }
    if (r.op == TLK_OP_CLEAR) {
      if (table) {
        std::erase_if(entries, [&](const MacEntry &e) { return e.bd_index == d->bd_index; });
      } else {
        const MacCounters kept = *d;
        *d = MacCounters{};
        d->bd_index = kept.bd_index;
        memcpy(d->bd_name, kept.bd_name, sizeof d->bd_name);
      }
      return;
    }
    Bytes reply(r.bytes.begin(), r.bytes.begin() + static_cast<std::ptrdiff_t>(fixed));
    wire::store_u32(&reply[index_at], d->bd_index);
    if (table) {
      uint32_t count = 0;
      for (const MacEntry &e : entries) {
        if (e.bd_index != d->bd_index) continue;
        uint8_t item[kMacEntryBytes] = {};
        memcpy(item, e.mac, 6);
        wire::store_u16(&item[6], e.vlan);
        wire::store_u32(&item[8], e.ifl);
        wire::store_u32(&item[12], e.flags);
        reply.insert(reply.end(), item, item + sizeof item);
        ++count;
      }
      wire::store_u32(&reply[kMacCountAt], count);
    } else {
      const uint64_t values[] = {d->learned, d->aged, d->moved, d->flooded, d->limit_drops};
      for (size_t i = 0; i < std::size(values); ++i) {
        wire::store_u32(&reply[kMacCountersAt + 8 * i], static_cast<uint32_t>(values[i]));
        wire::store_u32(&reply[kMacCountersAt + 8 * i + 4], static_cast<uint32_t>(values[i] >> 32));
      }
    }
    wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
    wire::store_u16(&reply[wire::kRawFixedlen], static_cast<uint16_t>(fixed));
    host_.reply_with_seq(s, reply, r.seq);
  }

  Host &host_;
};

namespace {
const FamilySlot<BdFamily> kBd("bridge-domains");
const FamilySlot<IfbdFamily> kIfbd("bridge-interfaces");
const FamilySlot<StpFamily> kStp("spanning-tree");
const FamilySlot<VlanFamily> kVlan("vlans");
const FamilySlot<MeshGroupFamily> kMesh("mesh-groups");
const FamilySlot<AnalyzerFamily> kAnalyzer("analyzers");
const FamilySlot<MacFamily> kMac("mac-tables");

template <class Map, class Key>
const typename Map::mapped_type *at_key(const Map &m, const Key &k) {
  auto it = m.find(k);
  return it != m.end() ? &it->second : nullptr;
}
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

Bridging Kernel::bridging() {
  return Bridging(impl_);
}
const Bridging Kernel::bridging() const {
  return Bridging(impl_);
}

using internal::at_key;
using internal::kAnalyzer;
using internal::kBd;
using internal::kIfbd;
using internal::kMac;
using internal::kMesh;
using internal::kStp;
using internal::kVlan;
using internal::nth;

void Bridging::put_domain(const BridgeDomain &d) {
  kBd.in(*core_).put(d);
}
bool Bridging::erase_domain(uint32_t index) {
  return kBd.in(*core_).store.erase(static_cast<uint16_t>(index)) != 0;
}
size_t Bridging::domain_count() const {
  return kBd.in(*core_).store.size();
}
const BridgeDomain *Bridging::domain_at(size_t i) const {
  return nth(kBd.in(*core_).store, i);
}
const BridgeDomain *Bridging::domain(uint32_t index) const {
  return at_key(kBd.in(*core_).store, static_cast<uint16_t>(index));
}

void Bridging::put_interface(const BridgeInterface &i) {
  kIfbd.in(*core_).put(i);
}
size_t Bridging::interface_count() const {
  return kIfbd.in(*core_).store.size();
}
const BridgeInterface *Bridging::interface_at(size_t i) const {
  return nth(kIfbd.in(*core_).store, i);
}
const BridgeInterface *Bridging::interface(const char *key) const {
  return at_key(kIfbd.in(*core_).store, internal::IfbdFamily::key_of(key));
}

void Bridging::put_stp(const SpanningTree &s) {
  kStp.in(*core_).put(s);
}
size_t Bridging::stp_count() const {
  return kStp.in(*core_).store.size();
}
const SpanningTree *Bridging::stp_at(size_t i) const {
  return nth(kStp.in(*core_).store, i);
}
const SpanningTree *Bridging::stp(uint32_t idx) const {
  return kStp.in(*core_).by_idx(idx);
}

void Bridging::put_vlan(const BridgeVlan &v) {
  kVlan.in(*core_).put(v);
}
size_t Bridging::vlan_count() const {
  return kVlan.in(*core_).store.size();
}
const BridgeVlan *Bridging::vlan_at(size_t i) const {
  return nth(kVlan.in(*core_).store, i);
}

void Bridging::put_mesh_group(const MeshGroup &g) {
  kMesh.in(*core_).put(g);
}
size_t Bridging::mesh_group_count() const {
  return kMesh.in(*core_).store.size();
}
const MeshGroup *Bridging::mesh_group_at(size_t i) const {
  return nth(kMesh.in(*core_).store, i);
}

void Bridging::put_analyzer(const Analyzer &a) {
  kAnalyzer.in(*core_).put(a);
}
size_t Bridging::analyzer_count() const {
  return kAnalyzer.in(*core_).store.size();
}
const Analyzer *Bridging::analyzer_at(size_t i) const {
  return nth(kAnalyzer.in(*core_).store, i);
}

void Bridging::put_mac(const MacEntry &e) {
  kMac.in(*core_).put(e);
}
size_t Bridging::mac_count() const {
  return kMac.in(*core_).entries.size();
}
const MacEntry *Bridging::mac_at(size_t i) const {
  const auto &entries = kMac.in(*core_).entries;
  return i < entries.size() ? &entries[i] : nullptr;
}
void Bridging::put_mac_counters(const MacCounters &c) {
  kMac.in(*core_).counters[c.bd_index] = c;
}
const MacCounters *Bridging::mac_counters(uint32_t bd_index) const {
  return at_key(kMac.in(*core_).counters, bd_index);
}

}  // namespace tarsim
