// tarsim/ifl.hpp - the simulated kernel's logical interfaces.
//
// The store starts with a unit on every port of the device store's chassis: lo0.0 (16), ge0.0
// (70), ge0.100 (71), ge1.0 (72), ge2.0 (73), ge3.0 (74), xe0.0 (80), xe0.200 (81), xe1.0 (82)
// and xe1.300 (83), a unit stacked on xe1.0 (uidx 82).  Some units carry a tenant, a subset mask,
// private flags or a link address.
//
// Framed "iflogical" requests (type 6) are answered in the encoding they came in:
// - get or getnext: by index (getnext: the next index), else by SNMP id, else by device name or
//   device index with the unit.  The reply carries every field the store holds.  A key the store
//   doesn't hold is refused with a raw "tlk-err" (TlkErr) whose final_err is ENOENT; a client's
//   framed read then gives EOPNOTSUPP, the answer for "a raw message in hand".
// - add (op 1): a new unit from the request (index 0 takes the next free index; an index already
//   taken is left as it is).
// - change (op 2), found by index, else by device index or name with the unit: the request's
//   flags and private flags (low word), its name if it has one, its link address if it has one.
//   With iflm_change 16 (a point change) only the attachments are taken: their types are kept.
// - delete (op 3), found as a change is.
// None of these draws a reply.  Each one that finds its unit moves the generation on and is sent
// as an IDR "iflogical" notification, of the request's op and sequence 0, to every other session
// that listens for the type; the writer doesn't hear its own change.
//
// The system control { 4, 17, 0, 0, 3, 2 } reads every unit as IDR frames back to back, as they
// stand at the time of the read.
//
// Raw "iflstats" (type 16): a get or getnext by index (u32 at 32) or by name (at 72, its length
// byte at 41) and unit (u32 at 28) is answered with the request's 72 bytes, the whole length made
// 88, and the unit's input and output packet counts as two u64 at 72 and 80; a clear (op 6)
// zeroes them, without a reply.  With 1 in the u16 at 58 the answer goes to the asking session as
// a notification with sequence 0 (outside the session's notification numbering), the caller's
// cookie at 64 kept.  Unknown units draw the "tlk-err".
//
// Interface sets are gencfg blobs (tarsim/gencfg.hpp) of major 10, minor 0, keyed by the set's
// index in network order; the gencfg store starts with three (see IflsetSeed).
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class IflFamily;
}

struct Ifl {
  uint32_t index = 0;
  uint32_t snmp_id = 0;
  uint16_t devidx = 0;
  uint32_t unit = 0;
  std::string device;  // the device part of the name, without the unit
  uint32_t flags = 0;
  uint32_t generation = 0;
  uint8_t lr = 0;            // logical router
  uint64_t privflags = 0;    // private flags
  uint32_t uidx = 0;         // underlying logical interface, 0 for none
  uint16_t subset_mask = 0;  // one bit per subset
  uint16_t tenant = 0;       // tenant identifier
  Bytes link_addr;           // one socket address (first byte its length), empty for none
  uint64_t in_packets = 0, out_packets = 0;  // what "iflstats" reads
  std::vector<uint32_t> attachments;         // types carried by the last point change
};

// The interface sets the gencfg store starts with: index, name, device name, device index,
// dynamic.
struct IflsetSeed {
  uint32_t index;
  const char *name;
  const char *ifname;
  uint16_t devidx;
  bool dynamic;
};
// The seeded sets, in index order.
TARSIM_EXPORT const std::vector<IflsetSeed> &iflset_seeds();

// The kernel's logical interfaces: Kernel::ifls().
class TARSIM_EXPORT Ifls {
 public:
  // Adds a logical interface, or replaces the one with its index; the kernel tells nobody.
  void add(const Ifl &ifl);
  // Forgets one, or all; the kernel tells nobody.  False for an unknown index.
  bool remove(uint32_t index);
  void clear();
  // Every logical interface, in index order.
  const std::vector<Ifl> &list() const;
  const Ifl *find(uint32_t index) const;

  // Changes made as the kernel makes them on its own: each moves the generation on and is sent
  // to every listening session as an "iflogical" notification of op add, change or delete.
  // False for an unknown index (or, for create, an index already taken or 0).
  bool create(const Ifl &ifl);
  bool change_flags(uint32_t index, uint32_t set, uint32_t clear);
  bool destroy(uint32_t index);
  // The counters that "iflstats" reads.  False for an unknown index.
  bool set_counters(uint32_t index, uint64_t in, uint64_t out);

  // One unit as the kernel sends it: a frame of an ifl_msg with `op` and `seq`.
  Bytes frame(const Ifl &ifl, uint8_t op, uint32_t seq, bool tlv) const;

 private:
  friend class Kernel;
  explicit Ifls(internal::IflFamily *family) : family_(family) {}
  internal::IflFamily *family_;
};

}  // namespace tarsim
