// tarsim/cos.hpp - the simulated kernel's class-of-service objects and collector PIC.
//
// Policers (type 38) and shapers (type 39) are kept by object index; a get (op 4) of the object
// at offset 32 answers with its fixed part (tarvik_cos_policer_body in tarlink/cos.h), a getnext
// (op 5) with the next object in index order, and an unknown object draws the "tlk-err".  They
// start as policers 7 (10 Mbit/s, burst 15000) and 9 (100 Mbit/s, burst 125000), shapers 3 and 4.
//
// Classifiers (type 34), rewrite rules (type 37) and fragmentation maps (type 71) are kept by
// object index too, each tied to a logical interface; a request with its selector byte set (42
// for classifiers, 44 for the others) finds by the object at 36, else by the interface at 32
// (and, for classifiers and rewrites, the unit at 38).  Getnext walks the object indexes.  They
// start as classifier 2 on interface 71 unit 0, rewrite 5 on interface 71 unit 0 kind 1, and
// fragmentation map 11 on interface 72.
//
// The single tables, "cos info" (31: the number of forwarding classes, 8 at start), "cos fabric"
// (32: 4 entries), "cos policy" (35) and "cos_fc_q" (55), answer any get with their fixed part.
// The collector types answer a get or getnext with the request's own fixed part (the kernel's
// layouts of these are not modelled), and a "cpic file_stats" request (67) with a notification of
// that type on the asking session's stream.
//
// A change made through this facet is sent, as a raw add of the object's fixed part, to every
// session listening for its type.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

// A policer or shaper.
struct CosRate {
  uint32_t object = 0;
  uint32_t bandwidth = 0;
  uint32_t burst = 0;
};

// A classifier, rewrite rule or fragmentation map: its object index, the interface it is
// attached to, and the counts the trace line shows.
struct CosMap {
  uint32_t object = 0;
  uint32_t ifl = 0;
  uint8_t unit = 0;
  uint32_t kind = 0;     // classifier type or rewrite kind
  uint32_t entries = 0;  // entries of the map
  uint32_t size = 0;     // bytes of entry data
};

// Kernel::cos().
class TARSIM_EXPORT Cos {
 public:
  enum Kind { kPolicer, kShaper };
  enum MapKind { kClassifier, kRewrite, kFragmap };

  // Adds or replaces a policer or shaper; removes one (false if absent).
  void set_rate(Kind kind, const CosRate &rate);
  bool erase_rate(Kind kind, uint32_t object);
  std::vector<CosRate> rates(Kind kind) const;  // in index order

  void set_map(MapKind kind, const CosMap &map);
  bool erase_map(MapKind kind, uint32_t object);
  std::vector<CosMap> maps(MapKind kind) const;  // in index order

  void set_forwarding_classes(uint32_t count);
  uint32_t forwarding_classes() const;

  // Collector requests taken so far, of any collector type.
  uint64_t collector_requests() const;

 private:
  friend class Kernel;
  explicit Cos(internal::Core *core) : core_(core) {}
  internal::Core *core_;  // each kind of object is a family of its own
};

}  // namespace tarsim
