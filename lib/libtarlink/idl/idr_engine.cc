// The IDR engine: the flat image of a record, every field in record order, no tags, no map.
//
// Each field is aligned (zero fill) from the record's own start: u16 to 2; u32, u64 and all
// counted or composite fields to 4 (a u64 gets 4, not 8); u8, address families and byte arrays
// not at all.  A blob or array is its u32 count and then the bytes, unpadded; a list is its count
// and then the records back to back; a choice is the 12-byte head and the arm.  Every record ends
// with zero bytes up to a multiple of 4.  Byte order is the record's wire form.
#include <cstring>

#include "idl/engine.h"

namespace tlk::idl {
using namespace internal;

namespace {

constexpr uint64_t align_up(uint64_t v, unsigned a) {
  return (v + a - 1) & ~uint64_t{a - 1};
}

uint64_t pad_to(const Writer &w, uint64_t off, unsigned a) {
  uint64_t next = align_up(off, a);
  if (next != off) w.zero(off, static_cast<uint32_t>(next - off));
  return next;
}

inline unsigned scalar_align(unsigned width) {
  return width >= 4 ? 4u : width;
}

uint64_t put_scalar(const Writer &w, uint64_t off, unsigned width, uint64_t v, bool net) {
  off = pad_to(w, off, scalar_align(width));
  if (w.fits(off, width)) to_wire(w.buf + off, width, v, net);
  return off + width;
}

uint32_t encode_choice(const Record &r, const void *rec, const Writer &w) {
  const Choice &c = *r.choice;
  uint32_t sel = u32_at(rec, c.sel_off);
  const Record *arm = find_arm(c, sel);
  const void *armrec = c.by_ptr ? ptr_at(rec, c.arm_off) : bytes(rec, c.arm_off);
  uint32_t n = 0;
  if (arm != nullptr && armrec != nullptr) {
    Writer aw = w.at(12);
    n = idr_encode(*arm, armrec, aw.buf, aw.len);
  }
  if (w.fits(0, 12)) {
    to_wire(w.buf, 4, c.idr_marker, r.net);
    to_wire(w.buf + 4, 4, n, r.net);
    to_wire(w.buf + 8, 4, sel, r.net);
  }
  return 12 + n;
}

}  // namespace

uint32_t idr_encode(const Record &r, const void *rec, uint8_t *buf, uint32_t length) {
  if (r.hooks != nullptr) return r.hooks->idr_encode(rec, buf, length);
  Writer w{buf, buf == nullptr ? 0 : length};
  if (r.choice != nullptr) return encode_choice(r, rec, w);
  if (r.flat != nullptr) {
    // A fixed image: its size at any length, and when it fits, its compiled copies.
    const FlatPlan &fp = *r.flat;
    if (w.fits(0, fp.idr_size)) {
      fp.idr_put(buf, bytes(rec));
      return fp.idr_size;
    }
  }
  uint64_t off = 0;
  // Host-form scalars are their memory bytes on the wire; with room for the widest and its pad
  // they are copied straight, without the size-only bookkeeping of the general path.  A run of
  // plain fields (only host-form records have them) is its compiled image when it starts
  // aligned and fits.
  const bool host_form = !r.net && buf != nullptr;
  for (uint16_t i = 0; i < r.nfields; ++i) {
    const Field &f = r.fields[i];
    const uint8_t *p = bytes(rec, f.offset);
    if (f.idr_run != 0 && buf != nullptr && off % 4 == 0) {
      const IdrRun &run = r.idr_runs[f.idr_run - 1];
      if (off + run.size <= length) {
        run.put(buf + off, bytes(rec));
        off += run.size;
        i = static_cast<uint16_t>(i + run.nfields - 1);
        continue;
      }
    }
    if (host_form && off + 11 <= length) {
      unsigned width = 0;
      if (f.kind == Kind::kScalar || (f.kind == Kind::kGrow64 && f.width == 8))
        width = f.width;
      else if (f.kind == Kind::kAf)
        width = 1;
      if (width != 0) {
        const unsigned a = width >= 4 ? 4u : width;
        const uint64_t at = align_up(off, a);
        if (at != off) std::memset(buf + off, 0, static_cast<size_t>(at - off));
        copy_small(buf + at, p, width);
        off = at + width;
        continue;
      }
    }
    switch (f.kind) {
      case Kind::kScalar:
        off = put_scalar(w, off, f.width, load(p, f.width), r.net);
        break;
      case Kind::kGrow64:  // 8 bytes on the wire, whatever its width in memory
        off = put_scalar(w, off, 8, load(p, f.width), r.net);
        break;
      case Kind::kAf:  // the host's number, unmapped
        off = put_scalar(w, off, 1, *p, r.net);
        break;
      case Kind::kBits:
        off = put_scalar(w, off, bits_wire_width(f), bits_get(rec, f), r.net);
        break;
      case Kind::kBytes:
        w.put(off, p, f.aux);
        off += f.aux;
        break;
      case Kind::kBlob:
      case Kind::kScalarArray: {
        off = pad_to(w, off, 4);
        const uint8_t *data = static_cast<const uint8_t *>(ptr_at(rec, f.offset));
        uint32_t count = u32_at(rec, f.aux);
        unsigned ew = f.kind == Kind::kBlob ? 1u : f.width;
        uint64_t n = uint64_t{count} * ew;
        // The count goes with the data: both or neither.
        if (w.fits(off, 4 + n)) {
          to_wire(w.buf + off, 4, count, r.net);
          if (ew == 1 || !r.net) {
            if (n != 0) copy_short(w.buf + off + 4, data, static_cast<size_t>(n));
          } else {
            for (uint32_t k = 0; k < count; ++k) {
              to_wire(w.buf + off + 4 + uint64_t{k} * ew, ew, load(data + uint64_t{k} * ew, ew),
                      true);
            }
          }
        }
        off += 4 + n;
        break;
      }
      case Kind::kNested: {
        off = pad_to(w, off, 4);
        Writer sw = w.at(off);
        off += idr_encode(*f.sub, p, sw.buf, sw.len);
        break;
      }
      case Kind::kRecArray:
        off = pad_to(w, off, 4);
        for (uint32_t k = 0; k < f.aux; ++k) {
          Writer sw = w.at(off);
          off += idr_encode(*f.sub, p + uint64_t{k} * f.sub->size, sw.buf, sw.len);
        }
        break;
      case Kind::kListInline:
      case Kind::kListPtr: {
        off = pad_to(w, off, 4);
        const uint8_t *arr = static_cast<const uint8_t *>(ptr_at(rec, f.offset));
        uint32_t count = u32_at(rec, f.aux);
        if (w.fits(off, 4)) to_wire(w.buf + off, 4, count, r.net);  // a zero count still goes out
        off += 4;
        for (uint32_t k = 0; k < count; ++k) {
          const void *elem;
          if (f.kind == Kind::kListInline) {
            elem = arr + uint64_t{k} * f.sub->size;
          } else {
            // Null entries are the caller's fault here (the count has gone out already); they
            // are passed over rather than followed.
            elem = ptr_at(arr, static_cast<uint32_t>(k * sizeof(void *)));
            if (elem == nullptr) continue;
          }
          const Record &sub = *f.sub;
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
        break;
      }
    }
  }
  return static_cast<uint32_t>(pad_to(w, off, 4));
}

namespace {

// The decoder proper, into a record that is already clear: the public entry clears it, and a
// nested record or record array inside a record cleared by its decoder needs no second
// clearing.  A flat record clears itself (its compiled copy zeroes what no field covers).
int32_t decode_cleared(const Record &r, void *rec, const uint8_t *data, uint32_t length,
                       AllocFn alloc, void *ctx) {
  if (r.hooks != nullptr) return r.hooks->idr_decode(rec, data, length, alloc, ctx);
  if (r.choice != nullptr) return decode_choice(r, rec, nullptr, data, length, alloc, ctx, false);
  if (r.flat != nullptr) {
    // Nothing variable: the image is there whole, or the record is garbled.
    const FlatPlan &fp = *r.flat;
    if (length < fp.idr_size) {
      std::memset(rec, 0, r.size);
      return -1;
    }
    fp.idr_get(bytes(rec), data);
    return static_cast<int32_t>(fp.idr_size);
  }
  uint64_t off = 0;
  auto fits = [&](uint64_t n) { return off + n <= length; };
  // Decodes a nested record from the rest of the data; `cleared` if it lies in this record.
  auto nested = [&](const Record &sub, void *subrec, bool cleared) -> int32_t {
    off = align_up(off, 4);
    if (off > length) return -1;
    const auto rest = static_cast<uint32_t>(length - off);
    int32_t rc = cleared ? decode_cleared(sub, subrec, data + off, rest, alloc, ctx)
                         : idr_decode(sub, subrec, data + off, rest, alloc, ctx);
    if (rc < 0) return rc;
    off += static_cast<uint32_t>(rc);
    if (off > length) return -1;
    return 0;
  };
  for (uint16_t i = 0; i < r.nfields; ++i) {
    const Field &f = r.fields[i];
    uint8_t *p = bytes(rec, f.offset);
    if (f.idr_run != 0 && off % 4 == 0 && off + r.idr_runs[f.idr_run - 1].size <= length) {
      // The record was zeroed above, so a run (flat nested records too) needs its copies only.
      const IdrRun &run = r.idr_runs[f.idr_run - 1];
      run.get(bytes(rec), data + off);
      off += run.size;
      i = static_cast<uint16_t>(i + run.nfields - 1);
      continue;
    }
    if (!r.net && off + 11 <= length) {  // as in the encoder: host-form scalars are copies
      unsigned width = 0;
      if (f.kind == Kind::kScalar || (f.kind == Kind::kGrow64 && f.width == 8))
        width = f.width;
      else if (f.kind == Kind::kAf)
        width = 1;
      if (width != 0) {
        off = align_up(off, width >= 4 ? 4u : width);
        copy_small(p, data + off, width);
        off += width;
        continue;
      }
    }
    switch (f.kind) {
      case Kind::kScalar:
      case Kind::kGrow64:
      case Kind::kAf:
      case Kind::kBits: {
        unsigned width = f.kind == Kind::kGrow64 ? 8u
                         : f.kind == Kind::kAf   ? 1u
                         : f.kind == Kind::kBits ? bits_wire_width(f)
                                                 : f.width;
        off = align_up(off, scalar_align(width));
        if (!fits(width)) return -1;
        uint64_t v = from_wire(data + off, width, r.net);
        if (f.kind == Kind::kBits)
          bits_set(rec, f, v);
        else
          store(p, f.kind == Kind::kGrow64 ? f.width : width, v);
        off += width;
        break;
      }
      case Kind::kBytes:
        if (!fits(f.aux)) return -1;
        std::memcpy(p, data + off, f.aux);
        off += f.aux;
        break;
      case Kind::kBlob:
      case Kind::kScalarArray: {
        off = align_up(off, 4);
        if (!fits(4)) return -1;
        if (ptr_at(rec, f.offset) != nullptr) return -1;
        uint32_t count = static_cast<uint32_t>(from_wire(data + off, 4, r.net));
        off += 4;
        set_u32(rec, f.aux, count);
        if (count == 0) break;
        unsigned ew = f.kind == Kind::kBlob ? 1u : f.width;
        uint64_t n = uint64_t{count} * ew;
        // Allocation comes before the bounds check: a wild count costs an allocation failure.
        if (alloc == nullptr || n > 0xFFFFFFFFu) return -2;
        auto *m = static_cast<uint8_t *>(alloc(static_cast<uint32_t>(n), ctx));
        if (m == nullptr) return -2;
        set_ptr(rec, f.offset, m);
        if (!fits(n)) return -1;
        if (ew == 1 || !r.net) {
          copy_short(m, data + off, static_cast<size_t>(n));
        } else {
          for (uint32_t k = 0; k < count; ++k) {
            store(m + uint64_t{k} * ew, ew, from_wire(data + off + uint64_t{k} * ew, ew, true));
          }
        }
        off += n;
        break;
      }
      case Kind::kNested: {
        int32_t rc = nested(*f.sub, p, true);
        if (rc < 0) return rc;
        break;
      }
      case Kind::kRecArray:
        for (uint32_t k = 0; k < f.aux; ++k) {
          int32_t rc = nested(*f.sub, p + uint64_t{k} * f.sub->size, true);
          if (rc < 0) return rc;
        }
        break;
      case Kind::kListInline:
      case Kind::kListPtr: {
        off = align_up(off, 4);
        if (!fits(4)) return -1;
        if (ptr_at(rec, f.offset) != nullptr) return -1;
        uint32_t count = static_cast<uint32_t>(from_wire(data + off, 4, r.net));
        off += 4;
        set_u32(rec, f.aux, count);
        if (count == 0) break;
        const bool byptr = f.kind == Kind::kListPtr;
        uint64_t asz = uint64_t{count} * (byptr ? sizeof(void *) : f.sub->size);
        if (alloc == nullptr || asz > 0xFFFFFFFFu) return -2;
        auto *arr = static_cast<uint8_t *>(alloc(static_cast<uint32_t>(asz), ctx));
        if (arr == nullptr) return -2;
        // Inline arrays are not cleared: each element's decoder clears its element.
        if (byptr) std::memset(arr, 0, static_cast<size_t>(asz));
        set_ptr(rec, f.offset, arr);
        for (uint32_t k = 0; k < count; ++k) {
          void *e;
          if (byptr) {
            e = alloc(f.sub->size, ctx);
            if (e == nullptr) return -2;
            set_ptr(arr, static_cast<uint32_t>(k * sizeof(void *)), e);
          } else {
            e = arr + uint64_t{k} * f.sub->size;
          }
          const Record &sub = *f.sub;
          if (sub.flat != nullptr && sub.hooks == nullptr && off % 4 == 0 &&
              off + sub.flat->idr_size <= length) {
            // A plain element whose image is there whole: its compiled copy, which also
            // clears what no field covers.
            const FlatPlan &fp = *sub.flat;
            fp.idr_get(bytes(e), data + off);
            off += fp.idr_size;
            continue;
          }
          int32_t rc = nested(sub, e, false);
          if (rc < 0) return rc;
        }
        break;
      }
    }
  }
  // The tail pad is required on input.
  uint64_t end = align_up(off, 4);
  if (end > length) return -1;
  return static_cast<int32_t>(end);
}

}  // namespace

int32_t idr_decode(const Record &r, void *rec, const uint8_t *data, uint32_t length, AllocFn alloc,
                   void *ctx) {
  if (r.hooks == nullptr && r.flat == nullptr) std::memset(rec, 0, r.size);
  return decode_cleared(r, rec, data, length, alloc, ctx);
}

void idr_release(const Record &r, void *rec, FreeFn release, void *ctx) {
  if (r.hooks != nullptr) {
    r.hooks->idr_release(rec, release, ctx);
    return;
  }
  // Without a map the walk is the TLV one.
  tlv_release(r, rec, nullptr, release, ctx);
}

}  // namespace tlk::idl
