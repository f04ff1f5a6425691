// tarsim/rt_stats.hpp - the simulated kernel's route statistics and route class statistics.
//
// Route statistics are fourteen 32-bit counters per route, keyed by (af, table, prefix, plen);
// a fresh kernel has one: af 2, table 0, 10.0.0.0/8, with counters 1 to 14.  A raw "rtstats"
// request (type 4, 52-byte fixed part, the prefix behind it) is answered with its fixed part and
// prefix, the byte at 44 set to 1 and the counters behind the prefix; a route without counters
// gets the same with the byte at 44 left 0 (no counters).
//
// Route classes are counters (packets, bytes) per (class index, logical interface index), with
// the interface's SNMP index, family and class name; a fresh kernel has "gold" (1) and "silver"
// (2) on interface 70 (SNMP 501) and "gold" (1) on interface 71 (SNMP 502), all family 2.  A raw
// "rt class stats" request (type 29, 48-byte fixed part, the name behind it) is answered so:
// - get (op 4): with a name (length byte at 37), the classes of that name; else with an
//   interface index (u16 at 28), the class at 24 on that interface; else every class of the
//   interface whose SNMP index is at 24.  A family at 36 other than 0 must match as well.  The
//   answer is the request's fixed part, the number of classes in the u32 at 32, and one
//   RtClassRecord per class.  No class matching draws the "tlk-err" refusal.
// - clear (op 6), no reply: zeroes the counters of the class at 24 on the interface at 28.
// hold_replies(n) keeps each answer of either type back for n waits of the asking session.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <initializer_list>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class RtStatsFamily;
}

// One route class as an answer carries it, 64 bytes.
struct RtClassRecord {
  uint32_t class_index;
  uint32_t ifl_snmp;
  uint16_t ifl_index;
  uint8_t af;
  uint8_t zero;
  char name[36];  // cut at 35 characters, zero-padded
  uint64_t packets;
  uint64_t bytes;
};
static_assert(sizeof(RtClassRecord) == 64, "the route class record is a wire layout");

// The kernel's route and route class counters: Kernel::rt_stats().
class TARSIM_EXPORT RtStats {
 public:
  static constexpr size_t kWords = 14;
  using Words = std::array<uint32_t, kWords>;

  // A route's counters: words[kWords].  The prefix is (plen + 7) / 8 bytes.
  void set_route(uint8_t af, uint16_t tid, const uint8_t *prefix, uint16_t plen,
                 const uint32_t *words);
  bool erase_route(uint8_t af, uint16_t tid, const uint8_t *prefix, uint16_t plen);
  // Copies the counters into words[kWords]; false for a route without counters.
  bool route(uint8_t af, uint16_t tid, const uint8_t *prefix, uint16_t plen, uint32_t *words) const;
  size_t routes() const;

  void set_route(uint8_t af, uint16_t tid, std::initializer_list<uint8_t> prefix, uint16_t plen,
                 const Words &words) {
    set_route(af, tid, prefix.begin(), plen, words.data());
  }

  // Sets a route class's record, creating it (the key is class index and interface index).
  void set_class(const RtClassRecord &record);
  // The record, or false.
  bool find_class(uint32_t class_index, uint16_t ifl_index, RtClassRecord *out) const;
  size_t classes() const;

  // Waits each answer is held back for (0: answered at once, the default).
  void hold_replies(unsigned waits);

 private:
  friend class Kernel;
  explicit RtStats(internal::RtStatsFamily *family) : family_(family) {}
  internal::RtStatsFamily *family_;
};

}  // namespace tarsim
