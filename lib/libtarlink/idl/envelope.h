// Internal face of the envelope, shared with the bulk path.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tarlink.h"

namespace tlk::idl {

// The allocation context of a decode: bump allocation from one block.
struct Arena {
  uint8_t *base;
  uint32_t size;
  uint32_t used;
  uint64_t wanted = 0;  // the end of the largest request that did not fit
};

// Encodes the frame for `raw` into `buf` (null with length 0 for the size alone): TLV under
// `mask`, IDR without.  Returns the frame's full size, which exceeds `length` when it did not fit.
uint32_t encode_frame(const void *raw, const void *mask, uint8_t *buf, uint32_t length);

// Decodes a frame into the given block, with no growth.  With `retrying` an arena shortage
// returns ENOMEM without a word, so that the caller can grow and try again.
// `wanted`, if given, receives how large the arena would have had to be for the request that
// failed first (0 if none failed).
int decode_into_arena(tarvik_cookie *cookie, const void *data, size_t length, void **out_msg,
                      void **out_mask, uint8_t *arena_base, uint32_t arena_size, bool retrying,
                      uint64_t *wanted = nullptr);

// Decodes a frame into a new arena of its own, growing it until the decoder has room; reports
// the frame's own length through `frame_length`.  The first arena is the message block's size
// (or the frame's and 1024 more), or with `tight` four times the frame (at least 512 bytes).
int decode_with_growth(tarvik_cookie *cookie, const void *data, size_t length, void **out_msg,
                       void **out_mask, uint32_t *frame_length, bool tight = false);

}  // namespace tlk::idl
