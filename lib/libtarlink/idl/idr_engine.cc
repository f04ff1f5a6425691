// The IDR engine: the flat image of a record, every field in record order, no tags, no map.
//
// Each field is aligned (zero fill) from the record's own start: u16 to 2; u32, u64 and all
// counted or composite fields to 4 (a u64 gets 4, not 8); u8, address families and byte arrays
// not at all.  A blob or array is its u32 count and then the bytes, unpadded; a list is its count
// and then the records back to back; a choice is the 12-byte head and the arm.  Every record ends
// with zero bytes up to a multiple of 4.  Byte order is the record's wire form.
#include <cstring>

#include "idl/engine.h"
#include "idl/idr_fields.h"

namespace tlk::idl {
using namespace internal;

namespace {

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

// The width a host-form field has both in memory and on the wire (its bytes are then copied
// straight), or 0.
inline unsigned host_copy_width(const Field &f) {
  if (f.kind == Kind::kScalar || (f.kind == Kind::kGrow64 && f.width == 8)) return f.width;
  if (f.kind == Kind::kAf) return 1;
  return 0;
}

}  // namespace

uint64_t internal::idr_put_fields(bool net, const Field *fields, const IdrRun *runs, uint16_t from,
                                  uint16_t to, const uint8_t *rec, const Writer &w, uint64_t off) {
  // Host-form scalars are their memory bytes on the wire; with room for the widest and its pad
  // they are copied straight, without the size-only bookkeeping of the general step.  A run of
  // plain fields (only host-form records have them) is its compiled image when it starts
  // aligned and fits.
  const bool host_form = !net && w.buf != nullptr;
  for (uint16_t i = from; i < to; ++i) {
    const Field &f = fields[i];
    if (f.idr_run != 0 && w.buf != nullptr && off % 4 == 0) {
      const IdrRun &run = runs[f.idr_run - 1];
      if (off + run.size <= w.len) {
        run.put(w.buf + off, rec);
        off += run.size;
        i = static_cast<uint16_t>(i + run.nfields - 1);
        continue;
      }
    }
    if (host_form && off + 11 <= w.len) {
      if (const unsigned width = host_copy_width(f); width != 0) {
        const uint64_t at = align_up(off, scalar_align(width));
        if (at != off) std::memset(w.buf + off, 0, static_cast<size_t>(at - off));
        copy_small(w.buf + at, rec + f.offset, width);
        off = at + width;
        continue;
      }
    }
    off = idr_put_field(net, f, rec, w, off);
  }
  return off;
}

uint32_t idr_encode(const Record &r, const void *rec, uint8_t *buf, uint32_t length) {
  if (r.hooks != nullptr) return r.hooks->idr_encode(rec, buf, length);
  const Writer w{buf, buf == nullptr ? 0 : length};
  if (r.choice != nullptr) return encode_choice(r, rec, w);
  if (r.idr_put != nullptr) return r.idr_put(rec, buf, length);
  if (r.flat != nullptr) {
    // A fixed image: its size at any length, and when it fits, its compiled copies.
    const FlatPlan &fp = *r.flat;
    if (w.fits(0, fp.idr_size)) {
      fp.idr_put(buf, bytes(rec));
      return fp.idr_size;
    }
  }
  const uint64_t off = idr_put_fields(r.net, r.fields, r.idr_runs, 0, r.nfields, bytes(rec), w, 0);
  return static_cast<uint32_t>(pad_to(w, off, 4));
}

int32_t internal::idr_get_fields(bool net, const Field *fields, const IdrRun *runs, uint16_t from,
                                 uint16_t to, uint8_t *rec, IdrIn &in) {
  for (uint16_t i = from; i < to; ++i) {
    const Field &f = fields[i];
    if (f.idr_run != 0 && in.off % 4 == 0 && in.fits(runs[f.idr_run - 1].size)) {
      // The record is clear, so a run (flat nested records too) needs its copies only.
      const IdrRun &run = runs[f.idr_run - 1];
      run.get(rec, in.data + in.off);
      in.off += run.size;
      i = static_cast<uint16_t>(i + run.nfields - 1);
      continue;
    }
    if (!net && in.fits(11)) {  // as in the encoder: host-form scalars are copies
      if (const unsigned width = host_copy_width(f); width != 0) {
        in.off = align_up(in.off, scalar_align(width));
        copy_small(rec + f.offset, in.data + in.off, width);
        in.off += width;
        continue;
      }
    }
    if (int32_t rc = idr_get_field(net, f, rec, in); rc < 0) return rc;
  }
  return 0;
}

// The decoder proper, into a record that is already clear: the public entry clears it, and a
// nested record or record array inside a record cleared by its decoder needs no second
// clearing.  A flat record clears itself (its compiled copy zeroes what no field covers).
int32_t internal::idr_decode_cleared(const Record &r, void *rec, const uint8_t *data,
                                     uint32_t length, AllocFn alloc, void *ctx) {
  if (r.hooks != nullptr) return r.hooks->idr_decode(rec, data, length, alloc, ctx);
  if (r.choice != nullptr) return decode_choice(r, rec, nullptr, data, length, alloc, ctx, false);
  if (r.idr_get != nullptr) return r.idr_get(rec, data, length, alloc, ctx);
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
  IdrIn in{data, length, 0, alloc, ctx};
  const int32_t rc = idr_get_fields(r.net, r.fields, r.idr_runs, 0, r.nfields, bytes(rec), in);
  return rc < 0 ? rc : in.end();
}

int32_t idr_decode(const Record &r, void *rec, const uint8_t *data, uint32_t length, AllocFn alloc,
                   void *ctx) {
  if (r.hooks == nullptr && r.flat == nullptr) std::memset(rec, 0, r.size);
  return idr_decode_cleared(r, rec, data, length, alloc, ctx);
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
