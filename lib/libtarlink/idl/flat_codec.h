// Compiled images of the plain records.  The generator instantiates these once per plain record
// type from that type's constexpr segment tables, so every copy has a constant offset and width
// and compiles to a load and a store, every head check to a load and a compare, with no table
// walked at run time.  The engines reach them through the record's FlatPlan.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>

#include "idl/descriptor.h"

namespace tlk::idl::flat {

// Writes are constant-sized stores only: one bulk copy of a template or one bulk clearing would
// compile to a string instruction, whose start-up costs more than the whole image at these sizes.

inline uint64_t load8(const uint8_t *p) {
  uint64_t v;
  std::memcpy(&v, p, 8);
  return v;
}

// TLV item `I`: its head, its value and the zero pad up to a multiple of 4.
template <const auto &S, const auto &H, size_t I>
inline void tlv_item_out(uint8_t *img, const uint8_t *rec) {
  constexpr Segment s = S[I];
  constexpr uint64_t head = H[I];
  constexpr uint32_t pad = (4 - s.len % 4) % 4;
  std::memcpy(img + s.wire_off - 8, &head, 8);
  std::memcpy(img + s.wire_off, rec + s.mem_off, s.len);
  if constexpr (pad != 0) std::memset(img + s.wire_off + s.len, 0, pad);
}

template <const auto &S, const auto &H, size_t... I>
inline void tlv_out(uint8_t *img, const uint8_t *rec, std::index_sequence<I...>) {
  (tlv_item_out<S, H, I>(img, rec), ...);
}

template <const auto &S, size_t... I>
inline void tlv_in(uint8_t *rec, const uint8_t *img, std::index_sequence<I...>) {
  (std::memcpy(rec + S[I].mem_off, img + S[I].wire_off, S[I].len), ...);
}

// Every TLV head (the 8 bytes before each value) as expected, folded into one test.
template <const auto &S, const auto &H, size_t... I>
inline bool heads_are(const uint8_t *img, std::index_sequence<I...>) {
  return ((load8(img + S[I].wire_off - 8) ^ H[I]) | ... | uint64_t{0}) == 0;
}

// The full TLV image: every item with its head and pad.
template <const auto &S, const auto &H>
void tlv_put(uint8_t *img, const uint8_t *rec) {
  static_assert(std::size(S) == std::size(H));
  tlv_out<S, H>(img, rec, std::make_index_sequence<std::size(S)>{});
}

// The values of a full TLV image, if every head is the expected one; false, with the record
// untouched, otherwise.
template <const auto &S, const auto &H>
bool tlv_get(uint8_t *rec, const uint8_t *img) {
  static_assert(std::size(S) == std::size(H));
  if (!heads_are<S, H>(img, std::make_index_sequence<std::size(S)>{})) return false;
  tlv_in<S>(rec, img, std::make_index_sequence<std::size(S)>{});
  return true;
}

// The bytes of `Size` that no copy of `P` (a Segments<N>) covers on the side `Off` names: on
// the wire (`&Segment::wire_off`), an IDR image's alignment and tail pads; in memory
// (`&Segment::mem_off`), the compiler's pads between a record's members and at its end.  Each gap
// holds its offset in both fields.  The whole of `Size` if the copies are not in that side's
// order.
template <const auto &P, uint32_t Size, uint32_t Segment::*Off>
constexpr auto gaps_of() {
  Segments<P.count + 1> g{};
  uint32_t at = 0;
  for (uint32_t i = 0; i < P.count; ++i) {
    const uint32_t from = P.seg[i].*Off;
    if (from < at) return Segments<P.count + 1>{{{0, 0, Size}}, 1};
    if (from > at) g.seg[g.count++] = {at, at, from - at};
    at = from + P.seg[i].len;
  }
  if (Size > at) g.seg[g.count++] = {at, at, Size - at};
  return g;
}

template <const auto &P, uint32_t Size, uint32_t Segment::*Off>
struct Gaps {
  static constexpr auto value = gaps_of<P, Size, Off>();
};

template <const auto &P, const auto &G, size_t... I, size_t... J>
inline void idr_out(uint8_t *img, const uint8_t *rec, std::index_sequence<I...>,
                    std::index_sequence<J...>) {
  (std::memset(img + G.seg[J].wire_off, 0, G.seg[J].len), ...);
  (std::memcpy(img + P.seg[I].wire_off, rec + P.seg[I].mem_off, P.seg[I].len), ...);
}

template <const auto &P, const auto &G, size_t... I, size_t... J>
inline void idr_in(uint8_t *rec, const uint8_t *img, std::index_sequence<I...>,
                   std::index_sequence<J...>) {
  (std::memset(rec + G.seg[J].mem_off, 0, G.seg[J].len), ...);
  (std::memcpy(rec + P.seg[I].mem_off, img + P.seg[I].wire_off, P.seg[I].len), ...);
}

// The IDR image, pads zero, from the merged copies `P`.
template <const auto &P, uint32_t Size>
void idr_put(uint8_t *img, const uint8_t *rec) {
  constexpr const auto &gaps = Gaps<P, Size, &Segment::wire_off>::value;
  idr_out<P, gaps>(img, rec, std::make_index_sequence<P.count>{},
                   std::make_index_sequence<gaps.count>{});
}

// The record of `RecSize` bytes from its IDR image, pads between members zeroed: the whole
// record of a flat type.  With `RecSize` 0, only the copies, into a record the caller cleared:
// a run inside a larger record.
template <const auto &P, uint32_t RecSize>
void idr_get(uint8_t *rec, const uint8_t *img) {
  if constexpr (RecSize == 0) {
    idr_in<P, P>(rec, img, std::make_index_sequence<P.count>{}, std::index_sequence<>{});
  } else {
    constexpr const auto &gaps = Gaps<P, RecSize, &Segment::mem_off>::value;
    idr_in<P, gaps>(rec, img, std::make_index_sequence<P.count>{},
                    std::make_index_sequence<gaps.count>{});
  }
}

}  // namespace tlk::idl::flat
