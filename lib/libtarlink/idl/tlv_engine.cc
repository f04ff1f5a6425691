// The TLV engine: one interpreter over the descriptor tables for every record type.
//
// An item on the wire:
//
//   host form                              network form
//   +--------+--------+---------+-----+    +----+----+---------+-----+
//   | tag u32| len u32| value   | pad |    |tag |len | value   | pad |
//   +--------+--------+---------+-----+    +----+----+---------+-----+
//    host byte order                        big-endian, len keeps the low 16 bits
//
// `len` counts the value only.  The pad (zero bytes, not counted) brings the next item to a
// multiple of 4 from the start of the record being encoded, so every encoded record is a
// multiple of 4 long and a nested record needs no pad of its own.
#include <cstring>

#include "idl/engine.h"
#include "idl/tlv_fields.h"
#include "tarlink.h"
#include "wire.h"

namespace tlk::idl {
using namespace internal;

const Record *internal::find_arm(const Choice &c, uint32_t selector) {
  uint32_t lo = 0, hi = c.narms;
  while (lo < hi) {
    uint32_t mid = (lo + hi) / 2;
    if (c.arms[mid].selector == selector) return c.arms[mid].rec;
    if (c.arms[mid].selector < selector)
      lo = mid + 1;
    else
      hi = mid;
  }
  return nullptr;
}

namespace {

inline unsigned head_size(const Record &r) {
  return r.net ? 4u : 8u;
}

void put_head(const Writer &w, uint64_t off, bool net, uint32_t tag, uint64_t vlen) {
  uint8_t h[8];
  if (net) {
    to_wire(h, 2, tag & 0xFFFFu, true);
    to_wire(h + 2, 2, vlen & 0xFFFFu, true);  // the length keeps the low 16 bits
    w.put(off, h, 4);
  } else {
    to_wire(h, 4, tag, false);
    to_wire(h + 4, 4, vlen & 0xFFFFFFFFu, false);
    w.put(off, h, 8);
  }
}

// Zero bytes up to the next multiple of 4, written only if they fit; returns the new offset.
uint64_t pad4(const Writer &w, uint64_t off) {
  uint64_t next = round4(off);
  if (next != off) w.zero(off, static_cast<uint32_t>(next - off));
  return next;
}

// A scalar item: head and value written together or not at all.
uint64_t scalar_item(const Writer &w, uint64_t off, const Record &r, uint32_t tag, unsigned width,
                     uint64_t v) {
  unsigned hs = head_size(r);
  if (w.fits(off, hs + width)) {
    put_head(w, off, r.net, tag, width);
    uint8_t tmp[8];
    to_wire(tmp, width, v, r.net);
    w.put(off + hs, tmp, width);
  }
  return pad4(w, off + hs + width);
}

// A nested record's item: the nested encoder writes behind the head if the head fits, and the
// head then carries whatever size it returned, even one that exceeds the room.
uint64_t nested_item(const Writer &w, uint64_t off, const Record &r, uint32_t tag,
                     const Record &sub, const void *subrec, const void *submap) {
  unsigned hs = head_size(r);
  uint32_t n;
  if (w.fits(off, hs)) {
    n = tlv_encode(sub, subrec, submap, w.buf + off + hs, static_cast<uint32_t>(w.len - off - hs));
    put_head(w, off, r.net, tag, n);
  } else {
    n = tlv_encode(sub, subrec, submap, nullptr, 0);
  }
  return pad4(w, off + hs + n);
}

// Head of a choice: marker, arm length, selector, in the record's byte order.
void put_choice_head(const Writer &w, bool net, uint32_t marker, uint32_t armlen, uint32_t sel) {
  if (!w.fits(0, 12)) return;
  uint8_t h[12];
  to_wire(h, 4, marker, net);
  to_wire(h + 4, 4, armlen, net);
  to_wire(h + 8, 4, sel, net);
  w.put(0, h, 12);
}

uint32_t encode_choice(const Record &r, const void *rec, const void *map, const Writer &w) {
  const Choice &c = *r.choice;
  uint32_t sel = u32_at(rec, c.sel_off);
  const Record *arm = find_arm(c, sel);
  const void *armrec = c.by_ptr ? ptr_at(rec, c.arm_off) : bytes(rec, c.arm_off);
  const void *armmap = map == nullptr ? nullptr : (c.by_ptr ? ptr_at(map, 0) : map);
  uint32_t n = 0;
  if (arm != nullptr && armrec != nullptr) {
    Writer aw = w.fits(0, 12) ? w.at(12) : Writer{nullptr, 0};
    n = tlv_encode(*arm, armrec, armmap, aw.buf, aw.len);
  }
  put_choice_head(w, r.net, c.tlv_marker, n, sel);
  return 12 + n;
}

// Host-form records are mostly runs of plain fields (scalars and byte arrays): every item
// starts on a multiple of 4, so such a run has a fixed image of heads, values and pads wherever
// it stands.  The generator compiles each run's image for its type (the record's TlvRuns; a flat
// record is one run, its FlatPlan), so a run is encoded as constant-sized stores, and decoded as
// one folded test of its heads and the copies when its image stands whole in the input.  Items
// heads are read as little-endian 8-byte words, so the compiled paths are for little-endian
// hosts; elsewhere every field takes the general path, with the same result.

}  // namespace

uint32_t tlv_encode(const Record &r, const void *rec, const void *map, uint8_t *buf,
                    uint32_t length) {
  if (r.hooks != nullptr) return r.hooks->tlv_encode(rec, map, buf, length);
  Writer w{buf, buf == nullptr ? 0 : length};
  if (r.choice != nullptr) return encode_choice(r, rec, map, w);
  if (kLittleEndian && r.flat != nullptr && map == nullptr && w.fits(0, r.flat->tlv_size)) {
    // Every field of a plain record: the template of heads and pads, then the values.
    r.flat->tlv_put(buf, bytes(rec));
    return r.flat->tlv_size;
  }
  const unsigned hs = head_size(r);
  // Without a map every field goes out, so runs and flat list elements are compiled images.
  const bool compiled = kLittleEndian && !r.net && map == nullptr && buf != nullptr;
  uint64_t off = 0;
  for (uint16_t i = 0; i < r.nfields; ++i) {
    const Field &f = r.fields[i];
    if (compiled && f.tlv_run != 0) {
      const TlvRun &run = r.tlv_runs[f.tlv_run - 1];
      if (w.fits(off, run.size)) {
        run.put(buf + off, bytes(rec));
        off += run.size;
        i = static_cast<uint16_t>(i + run.nfields - 1);
        continue;
      }
    }
    if (map != nullptr && !map_bit(map, f)) continue;
    const uint8_t *p = bytes(rec, f.offset);
    switch (f.kind) {
      case Kind::kScalar:
        off = scalar_item(w, off, r, f.tag, f.width, load(p, f.width));
        break;
      case Kind::kGrow64:  // 8 bytes on the wire, whatever its width in memory
        off = scalar_item(w, off, r, f.tag, 8, load(p, f.width));
        break;
      case Kind::kAf:
        off = scalar_item(w, off, r, f.tag, 1, tlk_encode_af(*p) & 0xFFu);
        break;
      case Kind::kBits:
        off = scalar_item(w, off, r, f.tag, bits_wire_width(f), bits_get(rec, f));
        break;
      case Kind::kBytes:
        if (w.fits(off, hs + f.aux)) {
          put_head(w, off, r.net, f.tag, f.aux);
          w.put(off + hs, p, f.aux);
        }
        off = pad4(w, off + hs + f.aux);
        break;
      case Kind::kBlob:
      case Kind::kScalarArray: {
        const uint8_t *data = static_cast<const uint8_t *>(ptr_at(rec, f.offset));
        uint32_t count = u32_at(rec, f.aux);
        unsigned ew = f.kind == Kind::kBlob ? 1u : f.width;
        uint64_t n = uint64_t{count} * ew;
        if (w.fits(off, hs + n)) {
          put_head(w, off, r.net, f.tag, n);
          if (ew == 1 || !r.net) {
            if (n != 0) copy_short(w.buf + off + hs, data, static_cast<size_t>(n));
          } else {
            for (uint32_t k = 0; k < count; ++k) {
              to_wire(w.buf + off + hs + uint64_t{k} * ew, ew, load(data + uint64_t{k} * ew, ew),
                      true);
            }
          }
        }
        off = pad4(w, off + hs + n);
        break;
      }
      case Kind::kNested:
        off = nested_item(w, off, r, f.tag, *f.sub, p,
                          map == nullptr ? nullptr : bytes(map, f.map_sub));
        break;
      case Kind::kRecArray:
        for (uint32_t k = 0; k < f.aux; ++k) {
          off = nested_item(
              w, off, r, f.tag, *f.sub, p + uint64_t{k} * f.sub->size,
              map == nullptr ? nullptr : bytes(map, f.map_sub) + uint64_t{k} * f.sub->map_size);
        }
        break;
      case Kind::kListInline:
      case Kind::kListPtr: {
        const uint8_t *arr = static_cast<const uint8_t *>(ptr_at(rec, f.offset));
        uint32_t count = u32_at(rec, f.aux);
        const uint8_t *emaps =
            map == nullptr ? nullptr : static_cast<const uint8_t *>(ptr_at(map, f.map_sub));
        const Record &sub = *f.sub;
        if (compiled && sub.flat != nullptr) {
          // Whole plain elements: head, then the element's compiled image.
          const FlatPlan &fp = *sub.flat;
          for (uint32_t k = 0; k < count; ++k) {
            const void *elem = f.kind == Kind::kListInline
                                   ? arr + uint64_t{k} * sub.size
                                   : ptr_at(arr, static_cast<uint32_t>(k * sizeof(void *)));
            if (elem == nullptr) continue;
            if (!w.fits(off, 8 + fp.tlv_size)) {
              off = nested_item(w, off, r, f.tag, sub, elem, nullptr);
              continue;
            }
            const uint64_t head = uint64_t{f.tag} | uint64_t{fp.tlv_size} << 32;
            std::memcpy(buf + off, &head, 8);
            fp.tlv_put(buf + off + 8, bytes(elem));
            off += 8 + fp.tlv_size;
          }
          break;
        }
        for (uint32_t k = 0; k < count; ++k) {
          // Element maps advance with the index, also over null entries.
          const void *emap = emaps == nullptr ? nullptr : emaps + uint64_t{k} * f.sub->map_size;
          const void *elem;
          if (f.kind == Kind::kListInline) {
            elem = arr + uint64_t{k} * f.sub->size;
          } else {
            elem = ptr_at(arr, static_cast<uint32_t>(k * sizeof(void *)));
            if (elem == nullptr) continue;
          }
          off = nested_item(w, off, r, f.tag, *f.sub, elem, emap);
        }
        break;
      }
    }
  }
  return static_cast<uint32_t>(off);
}

namespace {

// A plain record sent whole, in field order, without extras: every head is the expected one.
// Anything else (another order, repeats, unknown tags, other lengths) goes to the interpreter,
// which starts again from a cleared record.
bool decode_canonical(const Record &r, void *rec, void *map, const uint8_t *data) {
  if (!r.flat->tlv_get(bytes(rec), data)) return false;
  if (map != nullptr) {
    for (uint16_t i = 0; i < r.nfields; ++i) set_map_bit(map, r.fields[i]);
  }
  return true;
}

}  // namespace

// Shared by both engines: the choice rule of the decoders.
int32_t internal::decode_choice(const Record &r, void *rec, void *map, const uint8_t *data,
                                uint32_t length, AllocFn alloc, void *ctx, bool tlv) {
  const Choice &c = *r.choice;
  set_u32(rec, c.sel_off, 0xFFFFFFFFu);
  if (length < 12) return 0;
  uint32_t marker = static_cast<uint32_t>(from_wire(data, 4, r.net));
  uint32_t armlen = static_cast<uint32_t>(from_wire(data + 4, 4, r.net));
  uint32_t sel = static_cast<uint32_t>(from_wire(data + 8, 4, r.net));
  if (c.check_marker && marker != (tlv ? c.tlv_marker : c.idr_marker)) return -3;
  if (armlen > 0xFFFFFFF3u) return -1;
  if (armlen + 12 > length) return 0;
  set_u32(rec, c.sel_off, sel);
  const Record *arm = find_arm(c, sel);
  if (arm == nullptr) return static_cast<int32_t>(armlen + 12);  // skipped, arm left zero
  void *armrec;
  void *armmap = nullptr;
  if (c.by_ptr) {
    if (alloc == nullptr) return -2;
    armrec = alloc(arm->size, ctx);
    if (armrec == nullptr) return -2;
    // The arm's decoder clears its record and map first thing; a hand-written one may not.
    if (arm->hooks != nullptr) std::memset(armrec, 0, arm->size);
    set_ptr(rec, c.arm_off, armrec);
    if (tlv && map != nullptr) {
      armmap = alloc(arm->map_size, ctx);
      if (armmap == nullptr) return -2;
      if (arm->hooks != nullptr) std::memset(armmap, 0, arm->map_size);
      set_ptr(map, 0, armmap);
    }
  } else {
    armrec = bytes(rec, c.arm_off);
    armmap = tlv ? map : nullptr;
  }
  int32_t rc = tlv ? tlv_decode(*arm, armrec, armmap, data + 12, armlen, alloc, ctx)
                   : idr_decode(*arm, armrec, data + 12, armlen, alloc, ctx);
  if (rc == -4) rc = static_cast<int32_t>(armlen);  // an invalid choice below is forgiven
  if (rc < 0) return rc;
  if (static_cast<uint32_t>(rc) != armlen) return -1;
  return static_cast<int32_t>(armlen + 12);
}

int32_t tlv_decode(const Record &r, void *rec, void *map, const uint8_t *data, uint32_t length,
                   AllocFn alloc, void *ctx) {
  if (r.hooks == nullptr) {
    std::memset(rec, 0, r.size);
    if (map != nullptr) std::memset(map, 0, r.map_size);
  }
  return tlv_decode_cleared(r, rec, map, data, length, alloc, ctx);
}

int32_t internal::tlv_decode_cleared(const Record &r, void *rec, void *map, const uint8_t *data,
                                     uint32_t length, AllocFn alloc, void *ctx) {
  if (r.hooks != nullptr) return r.hooks->tlv_decode(rec, map, data, length, alloc, ctx);
  if (r.choice != nullptr) return decode_choice(r, rec, map, data, length, alloc, ctx, true);
  if (kLittleEndian && r.flat != nullptr && length == r.flat->tlv_size) {
    if (decode_canonical(r, rec, map, data)) return static_cast<int32_t>(length);
  }
  if (r.tlv_get != nullptr) return r.tlv_get(rec, map, data, length, alloc, ctx);
  return tlv_get_items(r, rec, map, data, length, 0, Ctx{alloc, ctx});
}

int32_t internal::tlv_get_repeated(bool net, const Field &f, void *rec, void *map,
                                   const uint8_t *data, uint32_t length, uint64_t off,
                                   uint64_t *end, const Ctx &cx) {
  const unsigned hs = net ? 4u : 8u;
  const uint8_t *v = data + off + hs;
  const uint32_t vlen = static_cast<uint32_t>(*end - off - hs);
  uint8_t *p = bytes(rec, f.offset);
  switch (f.kind) {
    case Kind::kScalarArray: {
      if (ptr_at(rec, f.offset) != nullptr) return -1;
      uint32_t count = vlen / f.width;
      set_u32(rec, f.aux, count);
      if (count != 0) {
        if (cx.alloc == nullptr) return -2;
        auto *m = static_cast<uint8_t *>(cx.alloc(count * f.width, cx.actx));
        if (m == nullptr) return -2;
        for (uint32_t k = 0; k < count; ++k) {
          store(m + k * f.width, f.width, from_wire(v + k * f.width, f.width, net));
        }
        set_ptr(rec, f.offset, m);
      }
      return 0;
    }
    case Kind::kRecArray: {
      uint32_t run = run_length(data, length, *end, net, f.tag);
      uint32_t n = run < f.aux ? run : f.aux;
      int32_t rc = decode_run(
          net, f, data, length, off, n, cx, false,
          [&](uint32_t k, void **e, void **em) -> int32_t {
            *e = p + uint64_t{k} * f.sub->size;
            *em = map == nullptr ? nullptr : bytes(map, f.map_sub) + uint64_t{k} * f.sub->map_size;
            bool called = false;
            tlv_release(*f.sub, *e, nullptr, probe, &called);
            return called ? -1 : 0;
          },
          end);
      if (rc < 0) return rc;
      // Items of the run beyond the array's length are stepped over.
      for (uint32_t k = n; k < run; ++k) {
        uint64_t vl = from_wire(data + *end + (net ? 2 : 4), net ? 2 : 4, net);
        if (*end + hs + vl > length) break;
        *end += hs + vl;
      }
      return 0;
    }
    case Kind::kListInline:
    case Kind::kListPtr: {
      if (ptr_at(rec, f.offset) != nullptr) return -1;
      const bool byptr = f.kind == Kind::kListPtr;
      uint32_t count = run_length(data, length, *end, net, f.tag);
      if (cx.alloc == nullptr) return -2;
      uint64_t esz = byptr ? sizeof(void *) : f.sub->size;
      uint64_t asz = esz * count;
      if (asz > 0xFFFFFFFFu) return -2;  // no allocation of that size can succeed
      auto *arr = static_cast<uint8_t *>(cx.alloc(static_cast<uint32_t>(asz), cx.actx));
      if (arr == nullptr) return -2;
      std::memset(arr, 0, static_cast<size_t>(asz));
      set_ptr(rec, f.offset, arr);
      set_u32(rec, f.aux, count);
      uint8_t *emaps = nullptr;
      bool cleared = true;  // the elements and their maps are all zero
      if (map != nullptr) {
        emaps = static_cast<uint8_t *>(ptr_at(map, f.map_sub));
        cleared = emaps == nullptr;
        if (emaps == nullptr) {
          uint64_t msz = uint64_t{f.sub->map_size} * count;
          if (msz > 0xFFFFFFFFu) return -2;
          emaps = static_cast<uint8_t *>(cx.alloc(static_cast<uint32_t>(msz), cx.actx));
          if (emaps == nullptr) return -2;
          std::memset(emaps, 0, static_cast<size_t>(msz));
          set_ptr(map, f.map_sub, emaps);
        }
      }
      // The array and fresh maps were cleared above, each pointed-to element as it is made.
      return decode_run(
          net, f, data, length, off, count, cx, cleared,
          [&](uint32_t k, void **e, void **em) -> int32_t {
            *em = emaps == nullptr ? nullptr : emaps + uint64_t{k} * f.sub->map_size;
            if (!byptr) {
              *e = arr + uint64_t{k} * f.sub->size;
              return 0;
            }
            void *m = cx.alloc(f.sub->size, cx.actx);
            if (m == nullptr) return -2;
            std::memset(m, 0, f.sub->size);
            set_ptr(arr, static_cast<uint32_t>(k * sizeof(void *)), m);
            *e = m;
            return 0;
          },
          end);
    }
    default:
      return -1;
  }
}

int32_t internal::tlv_get_items(const Record &r, void *rec, void *map, const uint8_t *data,
                                uint32_t length, uint64_t off, const Ctx &cx) {
  const unsigned hs = head_size(r);
  const bool compiled = kLittleEndian && !r.net;
  for (;;) {
    if (off + hs > length) return static_cast<int32_t>(off);
    uint32_t tag = static_cast<uint32_t>(from_wire(data + off, r.net ? 2 : 4, r.net));
    uint64_t vlen = from_wire(data + off + (r.net ? 2 : 4), r.net ? 2 : 4, r.net);
    uint64_t end = off + hs + vlen;
    // A truncated item is not an error here; the caller's exact-length check sees it.
    if (end > length) return static_cast<int32_t>(off);
    uint16_t idx = tag <= r.max_tag ? r.tag_index[tag] : 0;
    if (idx != 0 && compiled && r.fields[idx - 1].tlv_run != 0) {
      // A run's whole image in canonical form: its values at once.  With a map, only while
      // none of its fields was seen before (the first occurrence wins).
      const TlvRun &run = r.tlv_runs[r.fields[idx - 1].tlv_run - 1];
      bool fresh = off + run.size <= length;
      for (uint16_t k = 0; fresh && map != nullptr && k < run.nfields; ++k) {
        fresh = !map_bit(map, r.fields[idx - 1 + k]);
      }
      if (fresh && run.get(bytes(rec), data + off)) {
        for (uint16_t k = 0; map != nullptr && k < run.nfields; ++k) {
          set_map_bit(map, r.fields[idx - 1 + k]);
        }
        off += run.size;
        continue;
      }
    }
    if (idx != 0) {
      const Field &f = r.fields[idx - 1];
      // With a map the first occurrence wins; without one a later value overwrites.
      if (map == nullptr || !map_bit(map, f)) {
        int32_t rc = tlv_get_field(r.net, f, rec, map, data, length, off, &end, cx);
        if (rc < 0) return rc;
        if (map != nullptr) set_map_bit(map, f);
      }
    }
    uint64_t next = round4(end);
    if (next > length) return static_cast<int32_t>(end);  // the final pad is optional on input
    off = next;
  }
}

void tlv_release(const Record &r, void *rec, void *map, FreeFn release, void *ctx) {
  if (r.hooks != nullptr) {
    r.hooks->tlv_release(rec, map, release, ctx);
    return;
  }
  if (r.choice != nullptr) {
    const Choice &c = *r.choice;
    const Record *arm = find_arm(c, u32_at(rec, c.sel_off));
    if (arm == nullptr) return;
    if (!c.by_ptr) {
      tlv_release(*arm, bytes(rec, c.arm_off), map, release, ctx);
      return;
    }
    void *armrec = ptr_at(rec, c.arm_off);
    void *armmap = map == nullptr ? nullptr : ptr_at(map, 0);
    if (armrec != nullptr) {
      tlv_release(*arm, armrec, armmap, release, ctx);
      release(armrec, ctx);
    }
    if (armmap != nullptr) release(armmap, ctx);
    return;
  }
  for (uint16_t i = 0; i < r.nfields; ++i) {
    const Field &f = r.fields[i];
    switch (f.kind) {
      case Kind::kBlob:
      case Kind::kScalarArray: {
        void *p = ptr_at(rec, f.offset);
        if (p != nullptr) release(p, ctx);
        break;
      }
      case Kind::kNested:
        tlv_release(*f.sub, bytes(rec, f.offset), map == nullptr ? nullptr : bytes(map, f.map_sub),
                    release, ctx);
        break;
      case Kind::kRecArray:
        for (uint32_t k = 0; k < f.aux; ++k) {
          tlv_release(
              *f.sub, bytes(rec, f.offset) + uint64_t{k} * f.sub->size,
              map == nullptr ? nullptr : bytes(map, f.map_sub) + uint64_t{k} * f.sub->map_size,
              release, ctx);
        }
        break;
      case Kind::kListInline:
      case Kind::kListPtr: {
        auto *arr = static_cast<uint8_t *>(ptr_at(rec, f.offset));
        if (arr == nullptr) break;
        uint32_t count = u32_at(rec, f.aux);
        auto *emaps = map == nullptr ? nullptr : static_cast<uint8_t *>(ptr_at(map, f.map_sub));
        for (uint32_t k = 0; k < count; ++k) {
          void *emap = emaps == nullptr ? nullptr : emaps + uint64_t{k} * f.sub->map_size;
          if (f.kind == Kind::kListInline) {
            tlv_release(*f.sub, arr + uint64_t{k} * f.sub->size, emap, release, ctx);
          } else {
            void *e = ptr_at(arr, static_cast<uint32_t>(k * sizeof(void *)));
            if (e == nullptr) continue;
            tlv_release(*f.sub, e, emap, release, ctx);
            release(e, ctx);
          }
        }
        release(arr, ctx);
        if (emaps != nullptr) release(emaps, ctx);
        break;
      }
      default:
        break;
    }
  }
}

}  // namespace tlk::idl
