// The kernel's record of one session, shared by the simulator's sources.
#pragma once

#include <stdint.h>

#include <map>
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
};

}  // namespace tarsim::internal
