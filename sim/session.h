// The kernel's record of one session, shared by the simulator's sources.
#pragma once

#include <map>
#include <utility>

#include "tarsim.hpp"

namespace tarsim {

struct Kernel::Session {
  int lib_fd = -1;     // the library's end
  int kernel_fd = -1;  // ours
  std::map<std::pair<int, int>, Bytes> options;
  uint32_t async_seq = 1;
  uint64_t requests = 0;
  uint64_t replies = 0;
  uint64_t dropped = 0;
};

// One message as a frame in the given encoding (TLV without a map, or IDR).
Bytes encode_frame(uint8_t type, const void *record, bool tlv);

}  // namespace tarsim
