// tarsim/bridge.hpp - the simulated kernel's bridging objects.
//
// Six framed stores and one raw one, each answered in the encoding its request came in:
//   "bridge-domain" (89)  keyed by index (1, 2, ... given on add); a get with index 32768 finds
//                         by name, and by tag unless the tag is 65535.  Add_get (8) answers the
//                         new record; change (2) takes the attachments 0x8000001..0x800000F as
//                         attributes, whose values replies carry back as attachments.
//   "ifbdmesg" (90)       keyed by the 16-byte interface key (bytes order).  Add_get adds
//                         without an answer, as the library reads none.
//   "stp" (82)            keyed by the instance block's (interface, instance) and the VLAN at
//                         80; change and delete find the state by its index (given on add).
//                         Add_get answers the new record.
//   "vlan" (84)           keyed by index; a get without one finds by name (and by key unless
//                         0), then by layer 3 interface.
//   "mesh-group" (87)     keyed by id; a get with id 0 finds by name.
//   "analyzer" (88)       keyed by name (bytes order).
// Get (4) answers the object of exactly the key, getnext (5) the one after it in key order; an
// unknown key, and a getnext past the last object, draw the raw "tlk-err" (ENOENT).  Add,
// change and delete by a session change the store and are told to every other session that
// listens to the type (as an IDR frame with the writer's op); a change or delete of an unknown
// key changes nothing and draws no answer.
//
// MAC tables (raw type 51) and MAC statistics (raw type 52) are read by domain index, or by name
// when the index is 0.  Replies copy the request's tlkh_seq:
//   table  64-byte fixed part (the request's, the domain's index at 32, the entry count at 40),
//          then 16 bytes an entry: MAC (6), VLAN u16, interface u32, flags u32
//   stats  360-byte fixed part (the request's, the domain's index at 28), then from 64 the
//          counters as u64: learned, aged, moved, flooded, limit drops
// Op clear (6) empties a domain's table or zeroes its counters, with no answer.
//
// A fresh kernel holds domains 1 "vlan-100" (tag 1, VLAN 100) and 2 "vlan-200" (tag 2, VLAN
// 200); interfaces "ge-0/0/1.0" and "ge-0/0/2.0" in domain 1 and "xe-0/0/0.0" in domain 2;
// spanning tree states 1 (interface 71) and 2 (interface 72); VLANs 1 "v100" (tag 100,
// interface 71) and 2 "v200" (tag 200, interface 72); mesh groups 1 "__ves__" and 2 "core";
// analyzers "mirror-a" and "span-b"; three MAC entries (two in domain 1) and the counters of
// both domains.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tarsim/kernel.hpp"

namespace tarsim {

struct BridgeDomain {
  uint16_t index = 0;
  uint16_t tag = 0;
  char name[128] = {};
  char descr[384] = {};
  uint16_t vlan_id = 0;
  uint32_t mac_limit = 0;
  uint32_t mac_aging = 0;
  uint32_t rtb = 0;
  uint32_t sender = 0;  // tlkh_id of the add
  // Attribute values by stream item type (1..15), as many bytes as the type carries, and which
  // of them have been set (bit `type`).
  uint8_t attributes[16][28] = {};
  uint16_t attributes_set = 0;
  // The first up to four bytes of an attribute's value, as a little-endian number.
  uint32_t attribute(unsigned type) const {
    uint32_t v = 0;
    for (unsigned i = 0; i < 4 && type < 16; ++i) v |= uint32_t{attributes[type][i]} << (8 * i);
    return v;
  }
};

struct BridgeInterface {
  char key[16] = {};
  uint32_t bd_index = 0;
  uint32_t index = 0;
  uint16_t vlan_id = 0;
  uint32_t flags = 0;
  uint16_t inner_vlan = 0;
  uint16_t outer_vlan = 0;
  uint8_t mac[6] = {};
};

struct SpanningTree {
  uint16_t idx = 0;
  uint8_t kind = 0;
  uint32_t ifl = 0;       // the instance block's interface
  uint16_t instance = 0;  // the instance block's instance
  uint16_t vlan = 0;      // the VLAN at 80
  uint8_t inst_byte = 0;
  uint8_t state = 0, action = 0, epoch = 0, clear_epoch = 0, hw_learn = 0;
  uint32_t flags = 0;
  uint32_t peer_ip = 0;
  uint32_t sender = 0;
};

struct BridgeVlan {
  uint32_t index = 0;
  uint16_t key = 0;
  char name[128] = {};
  uint16_t tag = 0;
  uint32_t bd_index = 0;
  uint32_t l3_ifl = 0;
};

struct MeshGroup {
  uint32_t id = 0;
  uint16_t key = 0;
  char name[128] = {};
  uint8_t af = 0;
  uint16_t rtb_id = 0;
  uint32_t flags = 0;
};

struct Analyzer {
  uint32_t index = 0;
  char name[130] = {};
  uint32_t ratio = 0;
};

struct MacEntry {
  uint32_t bd_index = 0;
  char bd_name[64] = {};
  uint8_t mac[6] = {};
  uint16_t vlan = 0;
  uint32_t ifl = 0;
  uint32_t flags = 0;
};

struct MacCounters {
  uint32_t bd_index = 0;
  char bd_name[64] = {};
  uint64_t learned = 0, aged = 0, moved = 0, flooded = 0, limit_drops = 0;
};

// The kernel's bridging stores: Kernel::bridging().  Puts replace quietly (nobody is told);
// lists are in key order, at(i) is null past the end.
class TARSIM_EXPORT Bridging {
 public:
  void put_domain(const BridgeDomain &d);
  bool erase_domain(uint32_t index);
  size_t domain_count() const;
  const BridgeDomain *domain_at(size_t i) const;
  const BridgeDomain *domain(uint32_t index) const;

  void put_interface(const BridgeInterface &i);
  size_t interface_count() const;
  const BridgeInterface *interface_at(size_t i) const;
  const BridgeInterface *interface(const char *key) const;  // 16 bytes, the last one ignored

  void put_stp(const SpanningTree &s);
  size_t stp_count() const;
  const SpanningTree *stp_at(size_t i) const;
  const SpanningTree *stp(uint32_t idx) const;

  void put_vlan(const BridgeVlan &v);
  size_t vlan_count() const;
  const BridgeVlan *vlan_at(size_t i) const;

  void put_mesh_group(const MeshGroup &g);
  size_t mesh_group_count() const;
  const MeshGroup *mesh_group_at(size_t i) const;

  void put_analyzer(const Analyzer &a);
  size_t analyzer_count() const;
  const Analyzer *analyzer_at(size_t i) const;

  void put_mac(const MacEntry &e);
  size_t mac_count() const;
  const MacEntry *mac_at(size_t i) const;
  void put_mac_counters(const MacCounters &c);
  const MacCounters *mac_counters(uint32_t bd_index) const;

 private:
  friend class Kernel;
  explicit Bridging(internal::Core *core) : core_(core) {}
  internal::Core *core_;
};

}  // namespace tarsim
