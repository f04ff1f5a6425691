// tarsim/mgroup.hpp - the simulated kernel's multicast groups.
//
// One store per (table, address family), keyed by the group prefix: up to 128 bits, whose bytes
// (the bits past the length cleared) order the groups, then the length.  A group keeps the next
// hop index the kernel answers with it.  A fresh kernel holds two groups in table 0:
// 224.1.1.1/32 (inet) and ff02::1:3/128 (inet6).
//
// Framed "mgroup" requests (type 13) are answered in the encoding they came in:
//   get (4)      the group of exactly the request's table, family and group
//   getnext (5)  the group after it in (table, family, group) order; a request without a group
//                comes before every group of its table and family
// A get of a group the store doesn't hold, and a getnext past the last group, are refused with
// the raw "tlk-err" (ENOENT).  Other ops draw no answer and change nothing.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class MgroupFamily;
}

struct MulticastGroup {
  uint16_t tid = 0;
  uint8_t af = 0;
  uint16_t bits = 0;       // the group prefix's length
  uint8_t group[16] = {};  // (bits + 7) / 8 bytes count, the bits past `bits` 0
  uint32_t nhidx = 0;      // the next hop index answered with the group
};

// The kernel's multicast groups: Kernel::multicast_groups().
class TARSIM_EXPORT MulticastGroups {
 public:
  // Adds or replaces quietly: the kernel tells nobody.  The bits past `bits` are cleared.
  void add(const MulticastGroup &g);
  // Removes a group; false if the store doesn't hold it.
  bool remove(uint16_t tid, uint8_t af, const uint8_t *group, uint16_t bits);
  void clear();
  // The groups in (table, family, group) order: how many, and the i-th (null past the end).
  size_t size() const;
  const MulticastGroup *at(size_t i) const;
  // The group of exactly this key, or null.
  const MulticastGroup *find(uint16_t tid, uint8_t af, const uint8_t *group, uint16_t bits) const;

 private:
  friend class Kernel;
  explicit MulticastGroups(internal::MgroupFamily *family) : family_(family) {}
  internal::MgroupFamily *family_;
};

}  // namespace tarsim
