// tarsim/iff.hpp - the simulated kernel's protocol families of logical interfaces.
//
// A family is keyed by logical interface index and address family, and carries the device name
// and unit of its logical interface, so that it can be found by name without the logical
// interface store.  The store starts with inet (2) and inet6 (28) on the chassis's units: ge0.0
// (70, both), ge0.100 (71, inet), ge1.0 (72, inet), ge2.0 (73, inet), ge3.0 (74, inet), xe0.0
// (80, both), xe0.200 (81, inet), xe1.0 (82, inet6), xe1.300 (83, both) and lo0.0 (16, both).  ge1.0's inet is unnumbered: flag kIffUnnumbered, and attachment 183
// (iff_tlv_unnum_info) naming its donor, lo0.0 (16), in its first arm word; it has no address of
// its own.
//
// A framed family request ("iffamily", type 7) is answered from the store, in the encoding the
// request came in:
// - a get by index and family, or with index 0 and a device name by name, unit and family; a
//   getnext answers the family that follows (index, family) in key order; an unknown key draws
//   the kernel's refusal, a raw "tlk-err" with final_err ENOENT (a framed read gives EOPNOTSUPP);
// - an add (op 1) of a free key creates the family from the request (flags, the 32-bit and
//   16-bit values, the filter length), taking the device name and unit of another family of the
//   same logical interface if there is one; a change (op 2) of a known key replaces those; a
//   delete (op 3) removes it.  These draw no reply; each moves the generation on and is sent as an
//   "iffamily" notification (IDR) to every other listening session.
// A raw "iff vpls_stats" request (type 70; index at 32, family at 41) is answered with its own 48
// bytes followed by the family's packet and byte counts (two u64); an unknown family draws the
// "tlk-err".
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class IffFamily;
}

inline constexpr uint8_t kAfInet = 2;
inline constexpr uint8_t kAfInet6 = 28;
// The family flag of an unnumbered logical interface, and the attachment naming its donor.
inline constexpr uint64_t kIffUnnumbered = 0x20000000;
inline constexpr uint32_t kIffTlvUnnumInfo = 183;

struct Iff {
  uint32_t iflidx = 0;
  uint8_t af = 0;
  std::string device;  // the logical interface's device name, without the unit
  uint32_t unit = 0;
  uint64_t flags = 0;
  uint32_t word = 0;         // iffm_word
  uint16_t short_value = 0;  // iffm_short
  uint8_t filter_len = 0;    // iffm_filter_len of the last write (124 with a filter)
  uint32_t generation = 1;
  uint32_t donor = 0;  // with kIffUnnumbered: the donor's logical interface index, else 0
  uint64_t vpls_packets = 0, vpls_bytes = 0;
};

// The kernel's families: Kernel::iffs().
class TARSIM_EXPORT Iffs {
 public:
  // Adds a family, or replaces the one with its key, as the kernel would: the generation moves on
  // and every listening session hears an add (or a change).
  void create(const Iff &f);
  // Changes the flags of a family; false for an unknown key.  Listeners hear a change.
  bool change_flags(uint32_t iflidx, uint8_t af, uint64_t set, uint64_t clear);
  // Makes a family unnumbered, borrowing from `donor` (0: numbered again).  Listeners hear it.
  bool set_donor(uint32_t iflidx, uint8_t af, uint32_t donor);
  // Removes a family; listeners hear a delete.  False for an unknown key.
  bool destroy(uint32_t iflidx, uint8_t af);
  // Adds (or replaces) and empties quietly: the kernel tells nobody.
  void add(const Iff &f);
  void clear();
  // Every family, in key order (index, then address family).
  const std::vector<Iff> &list() const;
  const Iff *find(uint32_t iflidx, uint8_t af) const;
  const Iff *find_name(const char *device, uint32_t unit, uint8_t af) const;
  // One family as the kernel sends it: a frame of an iff_msg with `op` and `seq`.
  Bytes frame(const Iff &f, uint8_t op, uint32_t seq, bool tlv) const;

 private:
  friend class Kernel;
  explicit Iffs(internal::IffFamily *family) : family_(family) {}
  internal::IffFamily *family_;
};

}  // namespace tarsim
