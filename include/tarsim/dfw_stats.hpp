// tarsim/dfw_stats.hpp - the simulated kernel's firewall counters and firewall log.
//
// Counters are keyed by (filter index, address family, counter name, counter type) and kept in
// that order; they start as two filters: filter 1 (family 2) with "icmp-in" and "ssh-accept"
// (type 0) and "discard-rest" (type 1), filter 2 (family 2) with "web-hits" (type 0) and
// "policer-web" (type 2); and the filters of the program store (tarsim/dfw.hpp): 10 with
// "ssh-from-mgmt" (type 0) and "discard-re" (type 1), 20 with "all-packets" (type 0).  They move
// only when a test moves them (bump).
//
// A "dfwstats" request (type 22, 64-byte fixed part) is answered so:
// - get (op 4): the counters of the filter at offset 28 in the family at 25 (0: any family) whose
//   type is the byte at 24 (5: any type) and, when the request carries a name (the first, else
//   the second), whose name it is.  getnext (op 5): the same for the next filter that has
//   counters.  A filter without counters, or a name that matches none, draws the "tlk-err".
// - The answer is a run of messages, each the request's fixed part with the counters data behind
//   it (CounterRecord, per_message() at most in each), its length in the u16 at 34 and the byte
//   at 32 set to 1 on every message but the last.  No counter matching gives one empty message.
//   A run never has more than 16 messages: with more counters than that holds, each message
//   takes more.
// - Replies carry the request's seq; a request with the u16 at 46 set (asynchronous) is answered
//   as notifications on the asking session's own stream instead, whatever it listens to.
// - clear (op 6), no reply: type 5 zeroes the counters of the filter at 28 (every filter when 0),
//   only the one named when a name is given; type 4 zeroes every counter of that name; any other
//   type zeroes the counters of that type.  All within the family at 25 (0: any).
//
// A "firewall log" request (type 23, 52-byte fixed part) reads the log, oldest first: entries of
// the family at 24 (0: any) and, when given, of the filter at 40 and the interface at 36; with a
// time at 28/32, selector 0 keeps entries at or after it and selector 1 those before it.  The
// answer is a run like the counters' (LogRecord entries, more-follows byte at 47).  A clear
// (op 6) empties the log of the family without a reply.  The log keeps kLogCapacity entries,
// dropping the oldest; it starts with two entries of filter 1.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <string>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class DfwStatsFamily;
}

struct DfwCounter {
  uint32_t filter = 0;
  uint8_t af = 2;
  std::string name;
  uint8_t type = 0;
  uint64_t packets = 0, bytes = 0;
};

// One counter as a reply carries it, 56 bytes: the name (cut at 31 characters, zero-padded), the
// type, the family, two zero bytes, the filter index, packets and bytes.
struct CounterRecord {
  char name[32];
  uint8_t type;
  uint8_t af;
  uint16_t zero;
  uint32_t filter;
  uint64_t packets;
  uint64_t bytes;
};
static_assert(sizeof(CounterRecord) == 56, "the counter record is a wire layout");

struct DfwLogEntry {
  uint32_t sec = 0, usec = 0;
  uint32_t filter = 0, ifindex = 0;
  uint8_t af = 2, action = 0, protocol = 0;
  uint32_t src = 0, dst = 0, length = 0;  // addresses in host order
};

// One log entry as a reply carries it, 32 bytes.
struct LogRecord {
  uint32_t sec, usec, filter, ifindex;
  uint8_t af, action, protocol, zero;
  uint32_t src, dst, length;
};
static_assert(sizeof(LogRecord) == 32, "the log record is a wire layout");

// The kernel's firewall counters and log: Kernel::dfw_counters().
class TARSIM_EXPORT DfwCounters {
 public:
  static constexpr size_t kLogCapacity = 1024;

  // Moves a counter on, creating it at zero first.
  void bump(uint32_t filter, uint8_t af, const char *name, uint8_t type, uint64_t packets,
            uint64_t bytes);
  void bump(uint32_t filter, uint8_t af, const std::string &name, uint8_t type, uint64_t packets,
            uint64_t bytes) {
    bump(filter, af, name.c_str(), type, packets, bytes);
  }
  // The counter, or NULL.
  const DfwCounter *find(uint32_t filter, uint8_t af, const char *name, uint8_t type) const;
  // Every counter in key order.
  std::vector<DfwCounter> list() const;
  // Drops every counter of a filter; how many went.
  size_t erase_filter(uint32_t filter);
  void clear();
  // Counters in each reply message (0: as many as fit a 16384-byte message, the default).
  void set_per_message(size_t n);

  // Appends a log entry as the kernel would on a logged packet.
  void log(const DfwLogEntry &e);
  std::vector<DfwLogEntry> log_entries() const;
  void clear_log();
  // Log entries in each reply message (0: as many as fit, the default).
  void set_log_per_message(size_t n);

 private:
  friend class Kernel;
  explicit DfwCounters(internal::DfwStatsFamily *family) : family_(family) {}
  internal::DfwStatsFamily *family_;
};

}  // namespace tarsim
