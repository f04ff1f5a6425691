// tarsim/ifl.hpp - the simulated kernel's logical interfaces.
//
// The store starts with a small chassis: ge0 units 0 and 100, ge1 unit 0, xe0 units 0 and 200,
// lo0 unit 0.  A framed get or getnext of a logical interface ("iflogical", type 6) is answered
// from it in the encoding the request came in: by index (getnext: the next index), else by SNMP
// id, else by device name or device index with the unit.  A key the store doesn't hold is refused
// with a raw "tlk-err" (TlkErr) whose final_err is ENOENT; a client's framed read then gives
// EOPNOTSUPP, the answer for "a raw message in hand".
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
  uint8_t lr = 0;
};

// The kernel's logical interfaces: Kernel::ifls().
class TARSIM_EXPORT Ifls {
 public:
  // Adds a logical interface, or replaces the one with its index.
  void add(const Ifl &ifl);
  void clear();
  // Every logical interface, in index order.
  const std::vector<Ifl> &list() const;
  const Ifl *find(uint32_t index) const;

 private:
  friend class Kernel;
  explicit Ifls(internal::IflFamily *family) : family_(family) {}
  internal::IflFamily *family_;
};

}  // namespace tarsim
