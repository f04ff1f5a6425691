// Byte-level helpers of the simulated kernel: loads and stores at any alignment, the frame head
// and the fields of a raw header.  Every source under sim/ reads and writes message bytes
// through these and keeps no copy of its own.
//
// Multi-byte fields are in the host's order, which is the wire's (little-endian) on every host
// the simulator runs on.
//
// A frame (TLV or IDR) starts with a 12-byte head; its length counts the payload alone:
//
//    0           4           8           12
//    +-----------+-----------+-----------+---------------------
//    |   magic   |  length   |   type    | payload (length bytes)
//    +-----------+-----------+-----------+---------------------
//
// A raw message starts with the 24-byte header drawn in tarlink.h: a zero magic, the version
// letter at 4, type at 5, op at 6, msglen (the whole message) at 8, seq at 12, id at 16 and
// fixedlen (u16) at 20.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <span>

#include "tarlink.h"

namespace tarsim::internal::wire {

constexpr size_t kFrameHeadLen = 12;
constexpr size_t kFrameLength = 4;  // offset of a frame's payload length

constexpr size_t kRawVersion = 4;
constexpr size_t kRawType = 5;
constexpr size_t kRawOp = 6;
constexpr size_t kRawMsglen = 8;
constexpr size_t kRawSeq = 12;
constexpr size_t kRawFixedlen = 20;

inline uint16_t load_u16(const uint8_t *p) {
  uint16_t v;
  memcpy(&v, p, 2);
  return v;
}

inline uint32_t load_u32(const uint8_t *p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}

inline void store_u16(uint8_t *p, uint16_t v) {
  memcpy(p, &v, 2);
}
inline void store_u32(uint8_t *p, uint32_t v) {
  memcpy(p, &v, 4);
}

// The u16 at `off`, or 0 where the bytes end before it.
inline uint16_t u16_at(std::span<const uint8_t> b, size_t off) {
  return off + 2 <= b.size() ? load_u16(b.data() + off) : 0;
}

inline bool is_frame_magic(uint32_t first) {
  return first == TLK_MAGIC_TLV || first == TLK_MAGIC_IDR;
}

// Whether `b` starts with a frame head's magic (anything else is taken as a raw message).
inline bool is_frame(std::span<const uint8_t> b) {
  return b.size() >= 4 && is_frame_magic(load_u32(b.data()));
}

inline bool is_tlv(std::span<const uint8_t> b) {
  return b.size() >= 4 && load_u32(b.data()) == TLK_MAGIC_TLV;
}

// The length of the message at the start of `rest`, or 0 when no whole message stands there: a
// frame is its head and payload, a raw message its tlkh_msglen (at least a header).
inline size_t message_length(std::span<const uint8_t> rest) {
  if (rest.size() < kFrameHeadLen) return 0;
  uint64_t len;
  if (is_frame(rest)) {
    len = uint64_t{load_u32(rest.data() + kFrameLength)} + kFrameHeadLen;
  } else {
    if (rest.size() < TLK_RAW_HDR_LEN) return 0;
    len = load_u32(rest.data() + kRawMsglen);
    if (len < TLK_RAW_HDR_LEN) return 0;
  }
  return len <= rest.size() ? static_cast<size_t>(len) : 0;
}

}  // namespace tarsim::internal::wire
