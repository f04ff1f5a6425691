// tarsim/rnh.hpp - the simulated kernel's next hops.
//
// The store is keyed by next hop index and starts with: 1000, a unicast next hop on ge0.0 (70);
// 1001, a unicast next hop on xe0.0 (80); 1002, a service next hop ("nat-pool", service kind 1,
// owner kind 2, id 7) on ge1.0 (72); 1003, a composite of 1000 and 1001; 1004, a composite of
// 1001 and 1002.  All are IPv4 (af 2).
//
// Framed "nexthop" requests (type 10) are answered in the encoding they came in:
// - get (op 4) by index, getnext (op 5) the next index.  The reply carries what the store holds:
//   type, family, interface, flags, table, user flags, sub kind and the info (its selector and,
//   for the generic selectors, the body).  A composite read with retrieve_mask 1024 carries its
//   children instead (selector 10).
// - add (op 1) and add_get (op 8): a new next hop from the request; null_nh_idx takes the next
//   free index from 1000 up, any other index is taken as given (replacing what was there).  An
//   add_get is answered with the stored next hop, as a get would be.
// - change (op 2) and chg_get (op 9) of a known index: the request's fields replace the stored
//   ones; chg_get is answered.
// - delete (op 3) of a known index.
// Unknown indexes are refused with the raw "tlk-err" (final_err ENOENT).  Each add, change and
// delete is sent as an IDR "nexthop" notification of its op and sequence 0 to every other session
// that listens for the type.
//
// Framed "NH-comp" requests (type 83): get and getnext among the composites only, answered with an
// rnhc_msg of the index, family, type and children.
//
// Raw "residx" requests (type 100, 32 bytes, the index in the first word): get (op 4) reserves
// max(1, count byte at 25) indexes from 500000 up and answers with the request, the first of them
// in the first word; getnext (op 5) answers with the reserved index after the given one (the
// "tlk-err" when there is none); deleteall (op 7) forgets them all, without a reply.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <span>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class RnhFamily;
}

// Next hop types the store uses (the kernel's numbers).
constexpr uint8_t kNhUnicast = 2;
constexpr uint8_t kNhService = 22;
constexpr uint8_t kNhComposite = 24;

struct Nexthop {
  uint32_t index = 0;
  uint8_t type = kNhUnicast;  // next hop type
  uint8_t af = 2;
  uint32_t ifl = 0;  // logical interface index
  uint64_t flags = 0;
  uint16_t tid = 0;     // route table
  uint32_t uflags = 0;  // user flags
  uint8_t sub_kind = 0;
  uint32_t selector = 0;           // rnh_info selector
  Bytes body;                      // the body of a generic selector (the service block, ...)
  std::vector<uint32_t> children;  // a composite's members
};

// The kernel's next hops: Kernel::nexthops().
class TARSIM_EXPORT Nexthops {
 public:
  // Adds a next hop, or replaces the one with its index; the kernel tells nobody.
  void add(const Nexthop &nh);
  // Forgets one, or all; the kernel tells nobody.  False for an unknown index.
  bool remove(uint32_t index);
  void clear();
  // Every next hop, in index order.
  const std::vector<Nexthop> &list() const;
  const Nexthop *find(uint32_t index) const;

  // Changes made as the kernel makes them on its own, each sent to the listening sessions as a
  // "nexthop" notification.  False for an index taken or 0 (create) or unknown (destroy).
  bool create(const Nexthop &nh);
  bool destroy(uint32_t index);
  // Makes a composite of the given children (every one must exist) at the next free index and
  // notifies it as created; 0 if a child is unknown or none is given.
  uint32_t make_composite(const uint32_t *children, size_t count, uint8_t af);
  uint32_t make_composite(std::span<const uint32_t> children, uint8_t af = 2) {
    return make_composite(children.data(), children.size(), af);
  }

  // The reserved indexes, in order.
  const std::vector<uint32_t> &reserved() const;

 private:
  friend class Kernel;
  explicit Nexthops(internal::RnhFamily *family) : family_(family) {}
  internal::RnhFamily *family_;
};

}  // namespace tarsim
