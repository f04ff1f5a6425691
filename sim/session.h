// The kernel's record of one session, shared by the simulator's sources.
#pragma once

#include <stdint.h>

#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim::internal {

struct Session {
  int lib_fd = -1;     // the library's end
  int kernel_fd = -1;  // ours
  std::map<std::pair<int, int>, Bytes> options;
  uint32_t async_seq = 1;
  uint64_t requests = 0;
  uint64_t replies = 0;
  uint64_t dropped = 0;
  uint64_t writes = 0;                    // write calls, one per bulk batch
  uint64_t reads = 0;                     // read calls the library made
  uint64_t reply_blocks = 0;              // packed blocks sent in bulk mode
  uint32_t bulk_info[3] = {};             // option 25: error, messages taken, third word
  std::vector<Bytes> *collect = nullptr;  // replies held back during a bulk write

  // Waits (waits.cc): the selects and sleeps counted for the session, and what is kept back
  // until the count reaches `release_at`.
  struct Held {
    Bytes bytes;
    bool block;  // a packed bulk block, else one message
  };
  uint64_t waits = 0;
  std::optional<uint64_t> release_at;
  std::vector<Held> held;
};

}  // namespace tarsim::internal
