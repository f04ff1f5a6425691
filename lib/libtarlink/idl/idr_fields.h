// The IDR engine's step for one field, in both directions, and the compiled codec of a composite
// record built from the same steps.
//
// The interpreter (idr_engine.cc) walks a record's field table and takes one step per field.  For
// each composite record the generator instantiates `idr_put_compiled` and `idr_get_compiled` over
// the record's constexpr field table instead: every step then sees a constant kind, offset and
// width and compiles to straight code, with no walk of the table and no dispatch on the kind.
// Both forms take the same steps, so they give the same bytes and the same results.
#pragma once

#include <utility>

#include "idl/engine.h"

namespace tlk::idl::internal {

constexpr uint64_t align_up(uint64_t v, unsigned a) {
  return (v + a - 1) & ~uint64_t{a - 1};
}

// u16 aligns to 2; u32, u64 and everything counted or composite to 4 (a u64 gets 4, not 8).
constexpr unsigned scalar_align(unsigned width) {
  return width >= 4 ? 4u : width;
}

// Decoding: the input, the position in it and the allocator.
struct IdrIn {
  const uint8_t *data;
  uint32_t length;
  uint64_t off;
  AllocFn alloc;
  void *ctx;
  [[nodiscard]] bool fits(uint64_t n) const { return off + n <= length; }
  // The bytes consumed once the fields are in: up to the tail pad, which is required on input.
  [[nodiscard]] int32_t end() const {
    const uint64_t e = align_up(off, 4);
    return e > length ? -1 : static_cast<int32_t>(e);
  }
};

// The decoder into a record that is already clear.
int32_t idr_decode_cleared(const Record &r, void *rec, const uint8_t *data, uint32_t length,
                           AllocFn alloc, void *ctx);

// The interpreter over fields [from, to) of a table: the encoder returns the position after them,
// the decoder 0 or its negative result.
uint64_t idr_put_fields(bool net, const Field *fields, const IdrRun *runs, uint16_t from,
                        uint16_t to, const uint8_t *rec, const Writer &w, uint64_t off);
int32_t idr_get_fields(bool net, const Field *fields, const IdrRun *runs, uint16_t from,
                       uint16_t to, uint8_t *rec, IdrIn &in);

inline uint64_t pad_to(const Writer &w, uint64_t off, unsigned a) {
  uint64_t next = align_up(off, a);
  if (next != off) w.zero(off, static_cast<uint32_t>(next - off));
  return next;
}

inline uint64_t put_scalar(const Writer &w, uint64_t off, unsigned width, uint64_t v, bool net) {
  off = pad_to(w, off, scalar_align(width));
  if (w.fits(off, width)) to_wire(w.buf + off, width, v, net);
  return off + width;
}

// A blob or scalar array: its count, then its elements.
TLK_CODEC_STEP uint64_t idr_put_counted(bool net, const Field &f, const uint8_t *rec,
                                        const Writer &w, uint64_t off) {
  off = pad_to(w, off, 4);
  const uint8_t *data = static_cast<const uint8_t *>(ptr_at(rec, f.offset));
  uint32_t count = u32_at(rec, f.aux);
  unsigned ew = f.kind == Kind::kBlob ? 1u : f.width;
  uint64_t n = uint64_t{count} * ew;
  // The count goes with the data: both or neither.
  if (w.fits(off, 4 + n)) {
    to_wire(w.buf + off, 4, count, net);
    if (ew == 1 || !net) {
      if (n != 0) copy_short(w.buf + off + 4, data, static_cast<size_t>(n));
    } else {
      for (uint32_t k = 0; k < count; ++k) {
        to_wire(w.buf + off + 4 + uint64_t{k} * ew, ew, load(data + uint64_t{k} * ew, ew), true);
      }
    }
  }
  return off + 4 + n;
}

// A list: its count, then its elements.
TLK_CODEC_STEP uint64_t idr_put_list(bool net, const Field &f, const uint8_t *rec, const Writer &w,
                                     uint64_t off) {
  off = pad_to(w, off, 4);
  const uint8_t *arr = static_cast<const uint8_t *>(ptr_at(rec, f.offset));
  uint32_t count = u32_at(rec, f.aux);
  if (w.fits(off, 4)) to_wire(w.buf + off, 4, count, net);  // a zero count still goes out
  off += 4;
  const Record &sub = *f.sub;
  for (uint32_t k = 0; k < count; ++k) {
    const void *elem;
    if (f.kind == Kind::kListInline) {
      elem = arr + uint64_t{k} * sub.size;
    } else {
      // Null entries are the caller's fault here (the count has gone out already); they
      // are passed over rather than followed.
      elem = ptr_at(arr, static_cast<uint32_t>(k * sizeof(void *)));
      if (elem == nullptr) continue;
    }
    if (sub.flat != nullptr && sub.hooks == nullptr && w.fits(off, sub.flat->idr_size)) {
      // A plain element in place: its compiled image.
      const FlatPlan &fp = *sub.flat;
      fp.idr_put(w.buf + off, bytes(elem));
      off += fp.idr_size;
      continue;
    }
    Writer sw = w.at(off);
    off += idr_encode(sub, elem, sw.buf, sw.len);
  }
  return off;
}

// Encodes field `f` of `rec` at `off`; returns the position after it.
TLK_CODEC_STEP uint64_t idr_put_field(bool net, const Field &f, const uint8_t *rec, const Writer &w,
                                      uint64_t off) {
  const uint8_t *p = rec + f.offset;
  switch (f.kind) {
    case Kind::kScalar:
      return put_scalar(w, off, f.width, load(p, f.width), net);
    case Kind::kGrow64:  // 8 bytes on the wire, whatever its width in memory
      return put_scalar(w, off, 8, load(p, f.width), net);
    case Kind::kAf:  // the host's number, unmapped
      return put_scalar(w, off, 1, *p, net);
    case Kind::kBits:
      return put_scalar(w, off, bits_wire_width(f), bits_get(rec, f), net);
    case Kind::kBytes:
      w.put(off, p, f.aux);
      return off + f.aux;
    case Kind::kBlob:
    case Kind::kScalarArray:
      return idr_put_counted(net, f, rec, w, off);
    case Kind::kNested: {
      off = pad_to(w, off, 4);
      Writer sw = w.at(off);
      return off + idr_encode(*f.sub, p, sw.buf, sw.len);
    }
    case Kind::kRecArray:
      off = pad_to(w, off, 4);
      for (uint32_t k = 0; k < f.aux; ++k) {
        Writer sw = w.at(off);
        off += idr_encode(*f.sub, p + uint64_t{k} * f.sub->size, sw.buf, sw.len);
      }
      return off;
    case Kind::kListInline:
    case Kind::kListPtr:
      return idr_put_list(net, f, rec, w, off);
  }
  return off;
}

// Decodes a nested record from the rest of the input; `cleared` if it lies in a record just
// cleared, which then needs no second clearing.
inline int32_t idr_get_nested(const Record &sub, void *subrec, bool cleared, IdrIn &in) {
  in.off = align_up(in.off, 4);
  if (in.off > in.length) return -1;
  const auto rest = static_cast<uint32_t>(in.length - in.off);
  int32_t rc = cleared ? idr_decode_cleared(sub, subrec, in.data + in.off, rest, in.alloc, in.ctx)
                       : idr_decode(sub, subrec, in.data + in.off, rest, in.alloc, in.ctx);
  if (rc < 0) return rc;
  in.off += static_cast<uint32_t>(rc);
  if (in.off > in.length) return -1;
  return 0;
}

// The count of a blob, scalar array or list, aligned to 4, into its count word: 0, or -1 where
// it is cut off.  The record is clear (every decoder clears before it fills), so its pointer is
// still null: no earlier allocation to lose.
TLK_CODEC_STEP int32_t idr_get_count(bool net, const Field &f, uint8_t *rec, IdrIn &in,
                                     uint32_t &count) {
  in.off = align_up(in.off, 4);
  if (!in.fits(4)) return -1;
  count = static_cast<uint32_t>(from_wire(in.data + in.off, 4, net));
  in.off += 4;
  set_u32(rec, f.aux, count);
  return 0;
}

TLK_CODEC_STEP int32_t idr_get_counted(bool net, const Field &f, uint8_t *rec, IdrIn &in) {
  uint32_t count;
  if (idr_get_count(net, f, rec, in, count) < 0) return -1;
  if (count == 0) return 0;
  unsigned ew = f.kind == Kind::kBlob ? 1u : f.width;
  uint64_t n = uint64_t{count} * ew;
  // Allocation comes before the bounds check: a wild count costs an allocation failure.
  if (in.alloc == nullptr || n > 0xFFFFFFFFu) return -2;
  auto *m = static_cast<uint8_t *>(in.alloc(static_cast<uint32_t>(n), in.ctx));
  if (m == nullptr) return -2;
  set_ptr(rec, f.offset, m);
  if (!in.fits(n)) return -1;
  if (ew == 1 || !net) {
    copy_short(m, in.data + in.off, static_cast<size_t>(n));
  } else {
    for (uint32_t k = 0; k < count; ++k) {
      store(m + uint64_t{k} * ew, ew, from_wire(in.data + in.off + uint64_t{k} * ew, ew, true));
    }
  }
  in.off += n;
  return 0;
}

TLK_CODEC_STEP int32_t idr_get_list(bool net, const Field &f, uint8_t *rec, IdrIn &in) {
  uint32_t count;
  if (idr_get_count(net, f, rec, in, count) < 0) return -1;
  if (count == 0) return 0;
  const bool byptr = f.kind == Kind::kListPtr;
  const Record &sub = *f.sub;
  uint64_t asz = uint64_t{count} * (byptr ? sizeof(void *) : sub.size);
  if (in.alloc == nullptr || asz > 0xFFFFFFFFu) return -2;
  auto *arr = static_cast<uint8_t *>(in.alloc(static_cast<uint32_t>(asz), in.ctx));
  if (arr == nullptr) return -2;
  // Inline arrays are not cleared: each element's decoder clears its element.
  if (byptr) std::memset(arr, 0, static_cast<size_t>(asz));
  set_ptr(rec, f.offset, arr);
  for (uint32_t k = 0; k < count; ++k) {
    void *e;
    if (byptr) {
      e = in.alloc(sub.size, in.ctx);
      if (e == nullptr) return -2;
      set_ptr(arr, static_cast<uint32_t>(k * sizeof(void *)), e);
    } else {
      e = arr + uint64_t{k} * sub.size;
    }
    if (sub.flat != nullptr && sub.hooks == nullptr && in.off % 4 == 0 &&
        in.fits(sub.flat->idr_size)) {
      // A plain element whose image is there whole: its compiled copy, which also clears
      // what no field covers.
      const FlatPlan &fp = *sub.flat;
      fp.idr_get(bytes(e), in.data + in.off);
      in.off += fp.idr_size;
      continue;
    }
    int32_t rc = idr_get_nested(sub, e, false, in);
    if (rc < 0) return rc;
  }
  return 0;
}

// Decodes field `f` into the cleared record `rec`; 0, or the decoder's negative result.
TLK_CODEC_STEP int32_t idr_get_field(bool net, const Field &f, uint8_t *rec, IdrIn &in) {
  uint8_t *p = rec + f.offset;
  switch (f.kind) {
    case Kind::kScalar:
    case Kind::kGrow64:
    case Kind::kAf:
    case Kind::kBits: {
      unsigned width = f.kind == Kind::kGrow64 ? 8u
                       : f.kind == Kind::kAf   ? 1u
                       : f.kind == Kind::kBits ? bits_wire_width(f)
                                               : f.width;
      in.off = align_up(in.off, scalar_align(width));
      if (!in.fits(width)) return -1;
      uint64_t v = from_wire(in.data + in.off, width, net);
      if (f.kind == Kind::kBits)
        bits_set(rec, f, v);
      else
        store(p, f.kind == Kind::kGrow64 ? f.width : width, v);
      in.off += width;
      return 0;
    }
    case Kind::kBytes:
      if (!in.fits(f.aux)) return -1;
      std::memcpy(p, in.data + in.off, f.aux);
      in.off += f.aux;
      return 0;
    case Kind::kBlob:
    case Kind::kScalarArray:
      return idr_get_counted(net, f, rec, in);
    case Kind::kNested:
      return idr_get_nested(*f.sub, p, true, in);
    case Kind::kRecArray:
      for (uint32_t k = 0; k < f.aux; ++k) {
        int32_t rc = idr_get_nested(*f.sub, p + uint64_t{k} * f.sub->size, true, in);
        if (rc < 0) return rc;
      }
      return 0;
    case Kind::kListInline:
    case Kind::kListPtr:
      return idr_get_list(net, f, rec, in);
  }
  return 0;
}

// ---- compiled composite records ----

// A run is its compiled image when it starts aligned and fits; otherwise (after an odd-sized
// blob, or in short input) the interpreter takes its fields one by one.
template <const auto &F, const IdrRun *Runs, bool Net, size_t I>
TLK_CODEC_STEP uint64_t idr_put_step(const uint8_t *rec, const Writer &w, uint64_t off) {
  constexpr Field f = F[I];
  if constexpr (f.idr_run != 0) {
    constexpr IdrRun run = Runs[f.idr_run - 1];
    if (w.buf != nullptr && off % 4 == 0 && off + run.size <= w.len) {
      run.put(w.buf + off, rec);
      return off + run.size;
    }
    return idr_put_fields(Net, F, Runs, I, static_cast<uint16_t>(I + run.nfields), rec, w, off);
  } else {
    return idr_put_field(Net, f, rec, w, off);
  }
}

template <const auto &F, const IdrRun *Runs, bool Net, size_t I>
TLK_CODEC_STEP int32_t idr_get_step(uint8_t *rec, IdrIn &in) {
  constexpr Field f = F[I];
  if constexpr (f.idr_run != 0) {
    constexpr IdrRun run = Runs[f.idr_run - 1];
    if (in.off % 4 == 0 && in.fits(run.size)) {
      run.get(rec, in.data + in.off);
      in.off += run.size;
      return 0;
    }
    return idr_get_fields(Net, F, Runs, I, static_cast<uint16_t>(I + run.nfields), rec, in);
  } else {
    return idr_get_field(Net, f, rec, in);
  }
}

template <const auto &F, const IdrRun *Runs, bool Net, size_t... J>
inline uint64_t idr_put_steps(const uint8_t *rec, const Writer &w, std::index_sequence<J...>) {
  constexpr const auto &steps = Steps<F, Runs, &Field::idr_run>::value;
  uint64_t off = 0;
  ((off = idr_put_step<F, Runs, Net, steps.at[J]>(rec, w, off)), ...);
  return off;
}

template <const auto &F, const IdrRun *Runs, bool Net, size_t... J>
inline int32_t idr_get_steps(uint8_t *rec, IdrIn &in, std::index_sequence<J...>) {
  constexpr const auto &steps = Steps<F, Runs, &Field::idr_run>::value;
  int32_t rc = 0;
  // Steps until one fails.
  (void)(((rc = idr_get_step<F, Runs, Net, steps.at[J]>(rec, in)) >= 0) && ...);
  return rc;
}

// The whole record, at any length (a null buffer sizes it), tail pad included.
template <const auto &F, const IdrRun *Runs, bool Net>
uint32_t idr_put_compiled(const void *rec, uint8_t *buf, uint32_t length) {
  const Writer w{buf, buf == nullptr ? 0 : length};
  const uint64_t off = idr_put_steps<F, Runs, Net>(
      bytes(rec), w, std::make_index_sequence<Steps<F, Runs, &Field::idr_run>::value.count>{});
  return static_cast<uint32_t>(pad_to(w, off, 4));
}

// The record from its image, into a cleared record.
template <const auto &F, const IdrRun *Runs, bool Net>
int32_t idr_get_compiled(void *rec, const uint8_t *data, uint32_t length, AllocFn alloc,
                         void *ctx) {
  IdrIn in{data, length, 0, alloc, ctx};
  const int32_t rc = idr_get_steps<F, Runs, Net>(
      bytes(rec), in, std::make_index_sequence<Steps<F, Runs, &Field::idr_run>::value.count>{});
  return rc < 0 ? rc : in.end();
}

}  // namespace tlk::idl::internal
