// The library's share of a bulk write alone: records encoded back to back into a buffer the size
// of one bulk write, starting again at its front whenever the next one does not fit, as after a
// flush, with no kernel and no system call.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "tarlink.h"

namespace tlkbench {

// Encodes `record` at `used` in `buffer` (or at its front when it no longer fits) and moves
// `used` past it.
inline void encode_next(tarvik_cookie *cookie, const void *record, std::vector<uint8_t> &buffer,
                        size_t &used) {
  size_t len = buffer.size() - used;
  if (tarvik_msg_idl_encode_pa(cookie, record, buffer.data() + used, &len) != 0) {
    used = 0;
    len = buffer.size();
    (void)tarvik_msg_idl_encode_pa(cookie, record, buffer.data(), &len);
  }
  used += len;
}

}  // namespace tlkbench
