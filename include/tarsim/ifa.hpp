// tarsim/ifa.hpp - the simulated kernel's addresses of logical interfaces' families.
//
// An address is keyed by logical interface index, address family, destination prefix and local
// prefix, in that order; a prefix orders by its length, then its bytes, and an absent prefix
// (length 0) comes first.  The store starts with one address per seeded family of
// tarsim/iff.hpp but ge1.0's (unnumbered): 10.0.0.1 in 10.0.0.0/24 on ge0.0 (70),
// 2001:db8::1 in 2001:db8::/64 on ge0.0, 10.0.100.1/24 on ge0.100 (71), 10.1.0.1/24 and
// 2001:db8:1::1/64 on xe0.0 (80), 10.1.200.1/24 on xe0.200 (81), 10.0.2.1/24 on ge2.0 (73),
// 10.0.3.1/24 on ge3.0 (74), 2001:db8:2::1/64 on xe1.0 (82), 10.2.44.1/24 and
// 2001:db8:2:12c::1/64 on xe1.300 (83), and on lo0.0 (16) the local
// addresses 127.0.0.1/32, 192.0.2.1/32 (the donor of ge1.0) and ::1/128 without destinations.
//
// A framed address request ("ifaddr", type 8) is answered from the store, in the encoding the
// request came in:
// - a get finds the first address of (index, family) whose destination and local prefix match
//   those the request carries (a prefix it doesn't carry matches any); a getnext answers the
//   address that follows the request's whole key; an unknown key draws the kernel's refusal, a
//   raw "tlk-err" with final_err ENOENT (a framed read gives EOPNOTSUPP);
// - an add (op 1) of a free key creates the address; a change (op 2) of a known key moves its
//   generation on; a delete (op 3) removes it; a change with flags 0x1000 (a point change) finds
//   the address by index, family and local prefix and records the selectors of the attachments
//   it carries.  These draw no reply; each is sent as an "ifaddr" notification (IDR) to every
//   other listening session.
#pragma once

#include <stdint.h>

#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class IfaFamily;
}

// A prefix: its length in bits and its (plen + 7) / 8 bytes, the bits past the length zero.
struct IfaPrefix {
  uint16_t plen = 0;
  Bytes bytes;
};

struct Ifa {
  uint32_t iflidx = 0;
  uint8_t af = 0;
  IfaPrefix dest;
  IfaPrefix local;
  uint16_t flags = 0;
  uint32_t generation = 1;
  std::vector<uint32_t> attachments;  // selectors of the last point change's attachments
};

// A prefix of `plen` bits from `bytes` (at least (plen + 7) / 8 of them), trailing bits cleared.
TARSIM_EXPORT IfaPrefix ifa_prefix(const void *bytes, uint16_t plen);
// An IPv4 prefix from a host-order address.
TARSIM_EXPORT IfaPrefix ifa_inet(uint32_t addr, uint16_t plen);

// The kernel's addresses: Kernel::ifas().
class TARSIM_EXPORT Ifas {
 public:
  // Adds an address (or replaces the one with its key) as the kernel would: the generation moves
  // on and every listening session hears an add.
  void create(const Ifa &a);
  // Removes an address by its whole key; listeners hear a delete.  False for an unknown key.
  bool destroy(const Ifa &key);
  // Adds (or replaces) and empties quietly: the kernel tells nobody.
  void add(const Ifa &a);
  void clear();
  // Every address, in key order.
  const std::vector<Ifa> &list() const;
  // The address with the whole key of `key`, or null.
  const Ifa *find(const Ifa &key) const;
  // The addresses of one logical interface's family, in key order.
  std::vector<Ifa> of(uint32_t iflidx, uint8_t af) const;
  // One address as the kernel sends it: a frame of an ifa_msg with `op` and `seq`.
  Bytes frame(const Ifa &a, uint8_t op, uint32_t seq, bool tlv) const;

 private:
  friend class Kernel;
  explicit Ifas(internal::IfaFamily *family) : family_(family) {}
  internal::IfaFamily *family_;
};

}  // namespace tarsim
