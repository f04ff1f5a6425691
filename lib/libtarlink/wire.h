// Reading and writing the wire layouts by hand: words at byte offsets, the raw header's fields,
// a frame's head and the length rules that every message on the socket obeys.
//
// The wire is little-endian, and so is every host this library runs on (the target and the
// Linux hosts of the simulated kernel); the raw header is also written through tlk_hdr fields,
// so the loads and stores below use host order and the build refuses a big-endian host rather
// than have the two disagree.  All accesses go through memcpy: message bytes carry no alignment
// promise.
//
//   raw message                                           frame
//    0     4   5   6   7   8       12    16    20   22 23 24   0      4           8      12
//   +-----+---+---+---+---+-------+-----+-----+----+--+--+   +------+-----------+------+-------
//   |magic|ver|typ|op |flg|msglen | seq | id  |fixd|a1|a2|   |magic |payload len| type | payload
//   +-----+---+---+---+---+-------+-----+-----+----+--+--+   +------+-----------+------+-------
//   magic 0; msglen is the whole length                       whole length = payload len + 12
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "tarlink.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
              "the wire helpers read and write little-endian words in host order");

namespace tlk::wire {

// Byte offsets of the raw header's fields.
inline constexpr size_t kMagicAt = 0;
inline constexpr size_t kVersionAt = 4;
inline constexpr size_t kTypeAt = 5;
inline constexpr size_t kOpAt = 6;
inline constexpr size_t kFlagsAt = 7;
inline constexpr size_t kMsglenAt = 8;
inline constexpr size_t kSeqAt = 12;
inline constexpr size_t kIdAt = 16;
inline constexpr size_t kFixedlenAt = 20;
inline constexpr size_t kAux1At = 22;
inline constexpr size_t kAux2At = 23;

// A frame's head: magic, payload length, type.
inline constexpr size_t kFrameHeadLen = 12;
inline constexpr size_t kFramePayloadLenAt = 4;

inline uint16_t load_u16(const void *p) {
  uint16_t v;
  memcpy(&v, p, 2);
  return v;
}
inline uint32_t load_u32(const void *p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}
inline void store_u16(void *p, uint16_t v) {
  memcpy(p, &v, 2);
}
inline void store_u32(void *p, uint32_t v) {
  memcpy(p, &v, 4);
}

// Word `index` (0-based) of the `avail` bytes at `p`, or 0 where they are too short to hold it:
// no read outside the bytes the caller has.
inline uint32_t word_at(const void *p, size_t avail, size_t index) {
  if ((index + 1) * 4 > avail) return 0;
  return load_u32(static_cast<const uint8_t *>(p) + index * 4);
}

inline bool is_frame_magic(uint32_t word) {
  return word == TLK_MAGIC_TLV || word == TLK_MAGIC_IDR;
}

// Whole length of the frame whose head is at `p` (at least 8 bytes): the payload length plus
// the head, in 64 bits so that a huge claim stays huge instead of wrapping.
inline uint64_t frame_length(const void *p) {
  return uint64_t{load_u32(static_cast<const uint8_t *>(p) + kFramePayloadLenAt)} + kFrameHeadLen;
}

// Whole length of the message at `p` by its form (frame or raw), from the `avail` bytes there;
// words the bytes don't reach read as 0.
inline uint64_t message_length(const void *p, size_t avail) {
  if (is_frame_magic(word_at(p, avail, 0))) return uint64_t{word_at(p, avail, 1)} + kFrameHeadLen;
  return word_at(p, avail, kMsglenAt / 4);
}

// `n` rounded up to a multiple of 4.
template <typename T>
constexpr T round4(T n) {
  return (n + 3) & ~T{3};
}

// The padded length of a raw request's variable part: rounded up to 4 and kept to 17 bits, as
// raw requests have always been sized.
constexpr uint32_t raw_var_len(uint32_t n) {
  return (n + 3) & 0x1FFFCu;
}

}  // namespace tlk::wire
