// Descriptor tables of the record types: what the generator emits for every schema record, and
// what the TLV and IDR engines interpret.  One Record per type, one Field per field in record
// order, one Choice per choice record.  All offsets are byte offsets into the in-memory record
// (or into its presence map) as the compiler laid them out for this target, so the same tables
// serve the 64-bit host build and the 32-bit target build.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tlk::idl {

// What a field is.  The TLV and IDR forms of each kind are told in tlv_engine.cc and
// idr_engine.cc.
enum class Kind : uint8_t {
  kScalar,  // u8/u16/u32/u64 (signed or not) at `offset`, `width` bytes
  kGrow64,  // `width`-byte unsigned at `offset` (8, or the platform word), 8 bytes on the wire;
            // TLV decode accepts a 1, 2, 4 or 8-byte value and widens it
  kAf,      // u8 address family; TLV maps it through tlk_encode_af/tlk_decode_af
  kBits,    // bit-field member: `bit_width` bits at `bit_off` of the storage word at `offset`
            // (`width` is the storage word's size); travels as u8 if bit_width <= 8, else u32
  kBytes,   // fixed byte array of `aux` bytes at `offset`; never swapped
  kBlob,    // counted bytes: pointer at `offset`, u32 length at `aux`
  kScalarArray,  // counted scalars: pointer at `offset`, u32 count at `aux`, `width` bytes each
  kRecArray,     // `aux` records of type `sub` inline at `offset`
  kListInline,   // pointer at `offset` to an array of records `sub`, u32 count at `aux`
  kListPtr,      // pointer at `offset` to an array of pointers to records `sub`, count at `aux`
  kNested,       // record `sub` inline at `offset` (a choice record when the field is a choice)
};

struct Record;

// Allocation and release callbacks of the generated functions.
using AllocFn = void *(*)(uint32_t size, void *context);
using FreeFn = void (*)(void *pointer, void *context);

struct Field {
  uint32_t tag;       // TLV tag, unique inside the record
  uint32_t offset;    // see Kind
  uint32_t aux;       // see Kind: count word offset, byte array size or record array length
  uint32_t map_word;  // byte offset in the presence map of the 32-bit word that holds the bit
  uint32_t map_sub;   // nested / record array: offset of the inline element map(s);
                      // lists: offset of the pointer to the element map array
  const Record *sub;  // element or nested record type, null for scalar kinds
  Kind kind;
  uint8_t width;      // scalar width, element width of a scalar array, storage width of a bit-field
  uint8_t bit;        // index of the field's bit in the map word (0..31)
  uint8_t bit_off;    // kBits: position of the member inside its storage word
  uint8_t bit_width;  // kBits: width of the member (1..32)
  uint8_t idr_run;    // the record's IDR run that starts at this field, + 1; 0 where none does
  uint8_t tlv_run;    // the same for its TLV runs
};

// One selector and the record its arm holds.  Several selectors may name the same record.
struct Arm {
  uint32_t selector;
  const Record *rec;
};

// A choice record: u32 selector, then the arm.  On the wire, a 12-byte head (marker, arm
// length, selector) in the record's byte order, then the arm's encoded record.
struct Choice {
  uint32_t sel_off;     // offset of the u32 selector
  uint32_t arm_off;     // offset of the arm union, or of the arm pointer when by_ptr
  uint32_t tlv_marker;  // first head word written in TLV (0 except on frame choices)
  uint32_t idr_marker;  // first head word written in IDR
  uint32_t narms;
  const Arm *arms;    // sorted by selector
  bool by_ptr;        // arm is a pointer to a separately allocated record (frame choices);
                      // the map then holds one pointer to the arm's map
  bool check_marker;  // decoders demand the marker (-3 otherwise)
};

// Hand-written codec of a record type (sockaddr_idl): the engines hand such records over to
// these functions wherever they meet them (list elements, nested fields).
struct Hooks {
  uint32_t (*tlv_encode)(const void *rec, const void *map, uint8_t *buf, uint32_t length);
  int32_t (*tlv_decode)(void *rec, void *map, const uint8_t *data, uint32_t length,
                        void *(*alloc)(uint32_t, void *), void *ctx);
  void (*tlv_release)(void *rec, void *map, void (*release)(void *, void *), void *ctx);
  uint32_t (*idr_encode)(const void *rec, uint8_t *buf, uint32_t length);
  int32_t (*idr_decode)(void *rec, const uint8_t *data, uint32_t length,
                        void *(*alloc)(uint32_t, void *), void *ctx);
  void (*idr_release)(void *rec, void (*release)(void *, void *), void *ctx);
};

// Precomputed plan of a host-form record of plain fields only (scalars and byte arrays): its IDR
// image is a fixed set of copies, its full TLV image fixed heads with the values copied in, both
// compiled for the type.  The engines take this path when the whole image fits (encoding) or is
// exactly present in canonical form (decoding), and the generic interpreter otherwise.
struct Segment {
  uint32_t mem_off;   // in the record
  uint32_t wire_off;  // in the encoded image
  uint32_t len;
};

template <size_t N>
struct Segments {
  Segment seg[N];
  uint32_t count;
};

// Joins copies that are adjacent both in memory and on the wire, at compile time.
template <size_t N>
constexpr Segments<N> merge_segments(const Segment (&in)[N]) {
  Segments<N> out{};
  for (size_t i = 0; i < N; ++i) {
    if (out.count > 0) {
      Segment &last = out.seg[out.count - 1];
      if (last.mem_off + last.len == in[i].mem_off && last.wire_off + last.len == in[i].wire_off) {
        last.len += in[i].len;
        continue;
      }
    }
    out.seg[out.count++] = in[i];
  }
  return out;
}

struct FlatPlan {
  uint32_t idr_size;  // the IDR image, tail pad included
  uint32_t tlv_size;  // the TLV image with every field present
  // The copies compiled for this type (idl/flat_codec.h), host byte order only: the IDR image
  // whole, pads zeroed; the whole record from it, the pads between members zeroed; the full TLV
  // image; the values of a full TLV image whose heads all match (false, record untouched,
  // otherwise).
  void (*idr_put)(uint8_t *image, const uint8_t *rec);
  void (*idr_get)(uint8_t *rec, const uint8_t *image);
  void (*tlv_put)(uint8_t *image, const uint8_t *rec);
  bool (*tlv_get)(uint8_t *rec, const uint8_t *image);
};

// A run of two or more plain fields in a host-form record that is not flat as a whole.  From a
// 4-byte aligned start its image is fixed (every pad inside falls in the same place), so it is
// compiled like a flat record's: the IDR run of scalars, address families, byte arrays and flat
// nested records; the TLV run of scalars and byte arrays, every item present in field order.
struct IdrRun {
  uint16_t nfields;
  uint32_t size;  // its image, inner pads included
  void (*put)(uint8_t *image, const uint8_t *rec);
  void (*get)(uint8_t *rec, const uint8_t *image);  // into a cleared record
};

struct TlvRun {
  uint16_t nfields;
  uint32_t size;  // its image, pads included
  void (*put)(uint8_t *image, const uint8_t *rec);
  bool (*get)(uint8_t *rec, const uint8_t *image);  // false, record untouched, on another head
};

struct Record {
  const char *name;
  uint32_t size;      // in-memory size on this target
  uint32_t map_size;  // presence map size on this target
  bool net;           // network wire form: 4-byte item heads, big-endian numbers
  bool has_idr;       // false for the TLV-only types
  uint16_t nfields;
  const Field *fields;
  uint32_t max_tag;           // highest tag of the record
  const uint16_t *tag_index;  // [max_tag + 1]: field index + 1 for each tag, 0 if unknown
  const Choice *choice;       // non-null for a choice record (then nfields is 0)
  const Hooks *hooks;         // non-null for a hand-written type
  const FlatPlan *flat;       // non-null for a host-form record of plain fields
  const IdrRun *idr_runs;     // by Field::idr_run - 1
  const TlvRun *tlv_runs;     // by Field::tlv_run - 1
  // The IDR codec compiled for a composite record (idl/idr_fields.h), null for the other kinds:
  // the whole record at any length (a null buffer sizes it), and the record from its image into
  // a cleared record.
  uint32_t (*idr_put)(const void *rec, uint8_t *buf, uint32_t length);
  int32_t (*idr_get)(void *rec, const uint8_t *data, uint32_t length, AllocFn alloc, void *ctx);
  // The TLV decoder compiled for a composite record (idl/tlv_fields.h), null for the other kinds:
  // the record and its map (may be null) from its items, into a cleared record and map.
  int32_t (*tlv_get)(void *rec, void *map, const uint8_t *data, uint32_t length, AllocFn alloc,
                     void *ctx);
};

}  // namespace tlk::idl
