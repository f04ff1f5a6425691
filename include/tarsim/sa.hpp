// tarsim/sa.hpp - the simulated kernel's security associations and public-key service.
//
// Associations ("sa info", type 41) are kept by index (the u32 at 32), each as the whole message
// that added it.  A raw add (op 1) stores it, taking the next free index when the index is 0; a
// change (op 2) replaces the association of that index (or, with index 0, of that name); a
// delete (op 3) removes it; none of them is answered, and the core sends each, as written, to the
// other listening sessions.  A get (op 4) finds by index, or with index 0 by the name behind the
// fixed part, and when the key words (u16 at 56, u32 at 60) are not 0 they must match too; a
// getnext (op 5) answers with the next index.  The answer is the stored message with the
// request's op and seq; an unknown association draws the "tlk-err".  The store starts with
// "tunnel-a" (index 1, spi 0x1001, outbound, protocol 50, interface 71) and "tunnel-b" (index 2,
// spi 0x2002, inbound, protocol 51, interface 72).
//
// Statistics (type 50) are asked by a key whose first u32 is the index: the answer is the
// request's fixed part and key, tlkh_fixedlen set to cover them, then SaCounters.  The kind byte
// (24) is copied back.
//
// A public-key request (type 42, op 1) is answered on the asking session's notification stream
// with a "pk-crypto-sys reply" (type 45): a raw message whose body is PkcsReply.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

// An association as the kernel holds it.
struct SecurityAssociation {
  uint32_t id = 0;
  uint32_t spi = 0;
  uint32_t ifl = 0;       // sa_value
  uint8_t direction = 0;  // sa_byte0: 1 inbound, 2 outbound
  uint8_t protocol = 0;   // sa_byte1
  std::string name;
  Bytes message;  // the whole "sa info" message as stored (a reply's body)
};

// What a statistics reply carries behind its fixed part and key.
struct SaCounters {
  uint64_t packets;
  uint64_t bytes;
  uint32_t errors;
  uint32_t zero;
};
static_assert(sizeof(SaCounters) == 24, "the counters are a wire layout");

// The body of a "pk-crypto-sys reply": the request's identifier and kind, a status (0), and how
// many data bytes the request carried.
struct PkcsReply {
  uint32_t pkcs_id;
  uint32_t pkcs_kind;
  uint32_t status;
  uint32_t data_bytes;
};

// Kernel::security_associations().
class TARSIM_EXPORT SecurityAssociations {
 public:
  // Adds or replaces an association (the kernel's own change: listeners hear a raw add).
  void set(uint32_t id, const char *name, uint32_t spi, uint8_t direction, uint8_t protocol,
           uint32_t ifl);
  void set(uint32_t id, const std::string &name, uint32_t spi, uint8_t direction, uint8_t protocol,
           uint32_t ifl) {
    set(id, name.c_str(), spi, direction, protocol, ifl);
  }
  bool erase(uint32_t id);
  // The association of an index, or NULL.
  const SecurityAssociation *find(uint32_t id) const;
  std::vector<SecurityAssociation> list() const;  // in index order
  // Moves an association's counters on.
  void count(uint32_t id, uint64_t packets, uint64_t bytes, uint32_t errors);
  SaCounters counters(uint32_t id) const;
  // Public-key requests taken so far.
  uint64_t pkcs_requests() const;

 private:
  friend class Kernel;
  explicit SecurityAssociations(internal::Core *core) : core_(core) {}
  internal::Core *core_;
};

}  // namespace tarsim
