// tarsim/rtb.hpp - the simulated kernel's route tables and named table classes.
//
// Tables are kept by (tid, af).  A fresh kernel holds the default tables: tid 0 "default" in inet
// and in inet6, both with flags 8 and logical router "null".  Framed "rttable" requests (type 1):
// - get: by (tid, af), or with tid 65535 by af and name; getnext: the table after (tid, af).
//   A key the store doesn't hold is refused with the raw "tlk-err" (ENOENT).
// - add (op 1) of a new key: a table with the request's name (empty if none), logical router
//   name, lrid, flags, prflags and header flags.  An add of a key already held, and a change
//   (op 2), are changes: the name and logical router name if sent, prflags and lrid if not 0, the
//   index and the two update values if any of the three is not 0, and the services channel of an
//   attachment of selector 104 (its last word).
// - delete (op 3): by (tid, af).
// Classes are kept by index, with a name and an address family; a fresh kernel holds 1 "gold"
// and 2 "silver" (inet).  Framed "rt class" requests (type 28): add (index 0 takes the lowest
// free index; a name already held is left as it is), delete by name or by index, get and getnext
// by index, or by name when a name is sent (getnext: the next name in byte order).  Unknown keys
// draw the "tlk-err".
// Writes draw no reply; each one that changes the store is sent as an IDR notification of its
// type and op, sequence 0, to every other listening session.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class RtbFamily;
}

struct RouteTable {
  uint16_t tid = 0;
  uint8_t af = 0;
  std::string name;
  std::string lrname;  // logical router name
  uint8_t lrid = 0;
  uint16_t flags = 0;  // rtb_flags: 8 for a default table
  uint64_t prflags = 0;
  uint8_t hdr_flags = 0;  // tlkh_flags of the add
  uint32_t index = 0;     // rtb_index of the last update
  uint32_t arg_a = 0;     // rtb_arg_a and rtb_arg_b of the last update
  uint16_t arg_b = 0;
  uint32_t channel = 0;  // services channel, 0 for none
};

struct RouteClass {
  uint16_t idx = 0;
  uint8_t af = 0;
  std::string name;
};

// The kernel's route tables and classes: Kernel::route_tables().
class TARSIM_EXPORT RouteTables {
 public:
  // Adds or replaces quietly: the kernel tells nobody.
  void add(const RouteTable &t);
  void add_class(const RouteClass &k);
  // As the kernel does it: listeners hear an add (or a change) and a delete.  False for an
  // unknown key.
  void create(const RouteTable &t);
  bool destroy(uint16_t tid, uint8_t af);
  void create_class(const RouteClass &k);
  bool destroy_class(uint16_t idx);
  // Every table in (tid, af) order, every class in index order.
  const std::vector<RouteTable> &list() const;
  const std::vector<RouteClass> &classes() const;
  const RouteTable *find(uint16_t tid, uint8_t af) const;
  const RouteTable *find_name(uint8_t af, const char *name) const;
  const RouteTable *find_name(uint8_t af, const std::string &name) const {
    return find_name(af, name.c_str());
  }
  const RouteClass *find_class(uint16_t idx) const;
  const RouteClass *find_class_name(const char *name) const;

 private:
  friend class Kernel;
  explicit RouteTables(internal::RtbFamily *family) : family_(family) {}
  internal::RtbFamily *family_;
};

}  // namespace tarsim
