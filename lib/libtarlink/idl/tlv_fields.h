// The TLV decoder's step for one item, and the compiled decoder of a composite record built from
// the same steps.
//
// The interpreter (tlv_engine.cc) reads each item's tag, looks the field up and takes its step.
// For each composite record the generator instantiates `tlv_get_compiled` over the record's
// constexpr field table: it expects the fields in record order and takes each one's step with a
// constant kind and offset when the next item carries that field's tag, passes over a field whose
// tag is not next (absent, or sent out of order), and hands whatever is left (items out of order,
// repeated or unknown) to the interpreter.  Each item is taken in input order by the same step
// either way, so both give the same record, map and result.
#pragma once

#include <cstring>
#include <utility>

#include "idl/engine.h"
#include "tarlink.h"
#include "wire.h"

namespace tlk::idl::internal {

using tlk::wire::round4;

inline bool map_bit(const void *map, const Field &f) {
  return (u32_at(map, f.map_word) >> f.bit) & 1u;
}
inline void set_map_bit(void *map, const Field &f) {
  set_u32(map, f.map_word, u32_at(map, f.map_word) | (1u << f.bit));
}

// Whether the `n` bytes at `p` are all zero.
inline bool all_zero(const uint8_t *p, uint32_t n) {
  uint64_t acc = 0;
  uint32_t i = 0;
  for (; i + 8 <= n; i += 8) {
    uint64_t v;
    std::memcpy(&v, p + i, 8);
    acc |= v;
  }
  for (; i < n; ++i) acc |= p[i];
  return acc == 0;
}

// Records the call only: the release probe of repeated nested records.
inline void probe(void *, void *ctx) {
  *static_cast<bool *>(ctx) = true;
}

// The decoder into a record and map that are already all zero.
int32_t tlv_decode_cleared(const Record &r, void *rec, void *map, const uint8_t *data,
                           uint32_t length, AllocFn alloc, void *ctx);

struct Ctx {
  AllocFn alloc;
  void *actx;
};

// Decodes one nested record from an item's value; the value must be consumed exactly.
// `cleared`: the record and its map are known to be all zero, so they are not cleared again.
inline int32_t decode_nested(const Record &sub, void *subrec, void *submap, const uint8_t *v,
                             uint32_t vlen, const Ctx &cx, bool cleared) {
  int32_t rc = cleared ? tlv_decode_cleared(sub, subrec, submap, v, vlen, cx.alloc, cx.actx)
                       : tlv_decode(sub, subrec, submap, v, vlen, cx.alloc, cx.actx);
  if (rc < 0) return rc;
  if (static_cast<uint32_t>(rc) != vlen) return -1;
  return 0;
}

// Counts the run of items with `tag` that starts at `p` (the unpadded end of the first item).
inline uint32_t run_length(const uint8_t *data, uint32_t length, uint64_t p, bool net,
                           uint32_t tag) {
  unsigned hs = net ? 4u : 8u;
  uint32_t n = 1;
  while (p + hs <= length) {
    uint32_t t = static_cast<uint32_t>(from_wire(data + p, net ? 2 : 4, net));
    if (t != tag) break;
    uint64_t vl = from_wire(data + p + (net ? 2 : 4), net ? 2 : 4, net);
    ++n;
    p += hs + vl;
  }
  return n;
}

// Decodes `count` items of the run that starts with the item at `off` into the elements that
// `elem(k)` gives (`cleared` if they and their maps are all zero).  Returns 0 and the end of the
// last item, or a negative code.
template <typename ElemFn>
int32_t decode_run(bool net, const Field &f, const uint8_t *data, uint32_t length, uint64_t off,
                   uint32_t count, const Ctx &cx, bool cleared, const ElemFn &elem, uint64_t *end) {
  const unsigned hs = net ? 4u : 8u;
  uint64_t p = off;
  for (uint32_t k = 0; k < count; ++k) {
    if (k > 0) {
      // Between elements: the next head must fit, carry the same tag, and its value fit.
      if (p + hs > length) return -1;
      if (from_wire(data + p, net ? 2 : 4, net) != f.tag) return -1;
    }
    uint64_t vlen = from_wire(data + p + (net ? 2 : 4), net ? 2 : 4, net);
    if (p + hs + vlen > length) return -1;
    void *e;
    void *emap;
    int32_t rc = elem(k, &e, &emap);
    if (rc < 0) return rc;
    if (e != nullptr) {
      rc = decode_nested(*f.sub, e, emap, data + p + hs, static_cast<uint32_t>(vlen), cx, cleared);
      if (rc < 0) return rc;
    }
    p += hs + vlen;
  }
  *end = p;
  return 0;
}

// Scalar arrays, record arrays and lists, out of line: their cost is the allocations and the
// elements (a run of items for the arrays and lists of records), not the dispatch.
int32_t tlv_get_repeated(bool net, const Field &f, void *rec, void *map, const uint8_t *data,
                         uint32_t length, uint64_t off, uint64_t *end, const Ctx &cx);

// Decodes the item at `off` of a known field, as both the interpreter and a compiled record do.
// `*end` is the end of the item, moved to the end of the run for lists and record arrays.
TLK_CODEC_STEP int32_t tlv_get_field(bool net, const Field &f, void *rec, void *map,
                                     const uint8_t *data, uint32_t length, uint64_t off,
                                     uint64_t *end, const Ctx &cx) {
  const unsigned hs = net ? 4u : 8u;
  const uint8_t *v = data + off + hs;
  const uint32_t vlen = static_cast<uint32_t>(*end - off - hs);
  uint8_t *p = bytes(rec, f.offset);
  switch (f.kind) {
    case Kind::kScalar:
      if (vlen < f.width) return -1;  // a longer value is accepted: its first bytes are read
      store(p, f.width, from_wire(v, f.width, net));
      return 0;
    case Kind::kGrow64:
      // Any length other than 1, 2, 4 or 8 leaves the field zero, without an error.
      // A field kept in a 32-bit platform word keeps the low half of a wider value.
      store(p, f.width,
            (vlen == 1 || vlen == 2 || vlen == 4 || vlen == 8) ? from_wire(v, vlen, net) : 0);
      return 0;
    case Kind::kAf:
      if (vlen < 1) return -1;
      *p = static_cast<uint8_t>(tlk_decode_af(v[0]));
      return 0;
    case Kind::kBits: {
      unsigned ww = bits_wire_width(f);
      if (vlen < ww) return -1;
      bits_set(rec, f, from_wire(v, ww, net));
      return 0;
    }
    case Kind::kBytes:
      std::memcpy(p, v, vlen < f.aux ? vlen : f.aux);
      return 0;
    case Kind::kBlob:
      if (ptr_at(rec, f.offset) != nullptr) return -1;
      set_u32(rec, f.aux, vlen);
      if (vlen != 0) {
        if (cx.alloc == nullptr) return -2;
        void *m = cx.alloc(vlen, cx.actx);
        if (m == nullptr) return -2;
        copy_short(static_cast<uint8_t *>(m), v, vlen);
        set_ptr(rec, f.offset, m);
      }
      return 0;
    case Kind::kNested: {
      // A repeated nested record is tolerated only if the earlier one holds no allocation.  A
      // record still all zero (the decoder cleared it) cannot hold one: no probe needed, and
      // no second clearing (its map, inside this one's, has not been written either).
      const bool first = all_zero(p, f.sub->size);
      if (!first) {
        bool called = false;
        tlv_release(*f.sub, p, nullptr, probe, &called);
        if (called) return -1;
      }
      return decode_nested(*f.sub, p, map == nullptr ? nullptr : bytes(map, f.map_sub), v, vlen, cx,
                           first);
    }
    case Kind::kScalarArray:
    case Kind::kRecArray:
    case Kind::kListInline:
    case Kind::kListPtr:
      return tlv_get_repeated(net, f, rec, map, data, length, off, end, cx);
  }
  return -1;
}

// The interpreter over the items from `off` to the end: bytes consumed, or a negative code.
int32_t tlv_get_items(const Record &r, void *rec, void *map, const uint8_t *data, uint32_t length,
                      uint64_t off, const Ctx &cx);

// ---- compiled composite records ----

// What a compiled step tells the walk.
enum TlvStep : int32_t {
  kTlvNext = 0,      // on to the next field
  kTlvHandOver = 1,  // the interpreter goes on from the current item
  kTlvDone = 2,      // the last item taken, without its pad: the result is the current position
};

struct TlvIn {
  const uint8_t *data;
  uint32_t length;
  uint64_t off;
  Ctx cx;
};

// Field `I`'s step: the next item, if it carries the field's tag, taken as the interpreter takes
// it.  A run of plain fields is its compiled image when that stands whole and fresh in the input.
template <const auto &F, const TlvRun *Runs, bool Net, size_t I>
TLK_CODEC_STEP int32_t tlv_get_step(uint8_t *rec, void *map, TlvIn &in) {
  constexpr unsigned hs = Net ? 4u : 8u;
  constexpr unsigned hw = Net ? 2u : 4u;
  constexpr Field f = F[I];
  if (in.off + hs > in.length) return kTlvHandOver;
  const uint8_t *head = in.data + in.off;
  if (from_wire(head, hw, Net) != f.tag) return kTlvNext;
  // The walk meets each field once, in order, so none of this step's map bits is set yet: no
  // first-occurrence test as in the interpreter.
  if constexpr (kLittleEndian && !Net && f.tlv_run != 0) {
    constexpr TlvRun run = Runs[f.tlv_run - 1];
    if (in.off + run.size <= in.length && run.get(rec, head)) {
      for (uint16_t k = 0; map != nullptr && k < run.nfields; ++k) set_map_bit(map, F[I + k]);
      in.off += run.size;
      return kTlvNext;
    }
  }
  uint64_t end = in.off + hs + from_wire(head + hw, hw, Net);
  if (end > in.length) return kTlvHandOver;  // a truncated item: the interpreter's answer
  const int32_t rc = tlv_get_field(Net, f, rec, map, in.data, in.length, in.off, &end, in.cx);
  if (rc < 0) return rc;
  if (map != nullptr) set_map_bit(map, f);
  const uint64_t next = round4(end);
  if (next > in.length) {  // the final pad is optional on input
    in.off = end;
    return kTlvDone;
  }
  in.off = next;
  return kTlvNext;
}

template <const auto &F, const TlvRun *Runs, bool Net, size_t... J>
inline int32_t tlv_get_steps(uint8_t *rec, void *map, TlvIn &in, std::index_sequence<J...>) {
  constexpr const auto &steps = Steps<F, Runs, &Field::tlv_run>::value;
  int32_t rc = kTlvNext;
  // Steps while each says next.
  (void)(((rc = tlv_get_step<F, Runs, Net, steps.at[J]>(rec, map, in)) == kTlvNext) && ...);
  return rc;
}

// The record `R` and its map from its items, into a cleared record and map.
template <const auto &F, const TlvRun *Runs, const Record &R, bool Net>
int32_t tlv_get_compiled(void *rec, void *map, const uint8_t *data, uint32_t length, AllocFn alloc,
                         void *ctx) {
  TlvIn in{data, length, 0, Ctx{alloc, ctx}};
  const int32_t rc = tlv_get_steps<F, Runs, Net>(
      bytes(rec), map, in,
      std::make_index_sequence<Steps<F, Runs, &Field::tlv_run>::value.count>{});
  if (rc < 0) return rc;
  if (rc == kTlvDone) return static_cast<int32_t>(in.off);
  // Nothing left (the interpreter's own first test), or the rest for the interpreter.
  if (in.off + (Net ? 4u : 8u) > length) return static_cast<int32_t>(in.off);
  return tlv_get_items(R, rec, map, data, length, in.off, in.cx);
}

}  // namespace tlk::idl::internal
