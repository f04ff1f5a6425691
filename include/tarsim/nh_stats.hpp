// tarsim/nh_stats.hpp - the simulated kernel's next hop statistics.
//
// Counters (packets, bytes) are kept per next hop index; a fresh kernel has two: index 1 with
// 150 packets and 9600 bytes, index 2 at zero.  They move only when a test moves them.
//
// A "nhopstats" frame (type 21, rnhs_msg) is answered with the request itself, as the kernel
// decoded it, and the counters of the next hop at idx in its packets and bytes fields; an index
// without counters draws the "tlk-err" refusal.  With hold_replies(n) set, each answer is kept
// back until the asking session has waited n more times (the wait model of tarsim/kernel.hpp),
// as the real kernel takes its time over these reads.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class NhStatsFamily;
}

struct NhCounters {
  uint64_t packets = 0;
  uint64_t bytes = 0;
};

// The kernel's next hop counters: Kernel::nh_stats().
class TARSIM_EXPORT NhStats {
 public:
  // Sets a next hop's counters, creating them.
  void set(uint32_t idx, uint64_t packets, uint64_t bytes);
  // Moves a next hop's counters on, creating them at zero first.
  void bump(uint32_t idx, uint64_t packets, uint64_t bytes);
  // Drops a next hop's counters; false if it had none.
  bool erase(uint32_t idx);
  bool has(uint32_t idx) const;
  // The counters, zero for an index without any.
  NhCounters get(uint32_t idx) const;
  size_t size() const;
  // Waits each answer is held back for (0: answered at once, the default).
  void hold_replies(unsigned waits);
  // Statistics requests taken so far.
  uint64_t requests() const;

 private:
  friend class Kernel;
  explicit NhStats(internal::NhStatsFamily *family) : family_(family) {}
  internal::NhStatsFamily *family_;
};

}  // namespace tarsim
