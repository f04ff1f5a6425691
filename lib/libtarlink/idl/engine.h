// The two codec engines.  Every generated tlv_* / idr_* function is a one-line call into these
// with its type's descriptor.
#pragma once

#include <cstdint>
#include <cstring>
#include <iterator>

#include "idl/descriptor.h"

namespace tlk::idl {

// TLV: sparse items under a presence map.  Encoders return the full size needed and write
// nothing at or past `length`; decoders return bytes consumed, 0, -1, -2 or -3.
[[nodiscard]] uint32_t tlv_encode(const Record &r, const void *rec, const void *map, uint8_t *buf,
                                  uint32_t length);
[[nodiscard]] int32_t tlv_decode(const Record &r, void *rec, void *map, const uint8_t *data,
                                 uint32_t length, AllocFn alloc, void *ctx);
void tlv_release(const Record &r, void *rec, void *map, FreeFn release, void *ctx);

// IDR: the flat image of the record, every field, no tags.
[[nodiscard]] uint32_t idr_encode(const Record &r, const void *rec, uint8_t *buf, uint32_t length);
[[nodiscard]] int32_t idr_decode(const Record &r, void *rec, const uint8_t *data, uint32_t length,
                                 AllocFn alloc, void *ctx);
void idr_release(const Record &r, void *rec, FreeFn release, void *ctx);

namespace internal {

// The field steps of both engines are forced inline where the build optimizes for speed: that is
// what makes a compiled record's kinds and offsets constants.  An unoptimized build gains nothing
// from it, and a sanitized one (the sanitizer and fuzzing builds) looks for memory faults, not
// speed, while its instrumentation of every step inlined into every record would take the
// compiler minutes.
#if defined(__SANITIZE_ADDRESS__)
#define TLK_CODEC_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TLK_CODEC_SANITIZED 1
#endif
#endif
#if defined(__OPTIMIZE__) && !defined(TLK_CODEC_SANITIZED)
#define TLK_CODEC_STEP [[gnu::always_inline]] inline
#else
#define TLK_CODEC_STEP inline
#endif

// The steps of a compiled record's field table `F`: each run of plain fields (`Run` names the
// field's run number + 1, `Runs` the runs) as one step, at its first field; each other field as
// one.
template <const auto &F, const auto *Runs, uint8_t Field::*Run>
struct Steps {
  static constexpr size_t kFields = std::size(F);
  struct List {
    uint16_t at[kFields];
    size_t count;
  };
  static constexpr List value = [] {
    List s{};
    for (size_t i = 0; i < kFields;) {
      s.at[s.count++] = static_cast<uint16_t>(i);
      i += F[i].*Run != 0 ? Runs[F[i].*Run - 1].nfields : 1;
    }
    return s;
  }();
};

// Bounded output: every store checks that it ends within `len`, so sizing (buf null, len 0)
// and encoding run through the same code.
struct Writer {
  uint8_t *buf;
  uint32_t len;
  [[nodiscard]] bool fits(uint64_t off, uint64_t n) const {
    return buf != nullptr && off + n <= len;
  }
  void put(uint64_t off, const void *src, uint32_t n) const {
    if (fits(off, n) && n != 0) std::memcpy(buf + off, src, n);
  }
  void zero(uint64_t off, uint32_t n) const {
    if (fits(off, n) && n != 0) std::memset(buf + off, 0, n);
  }
  // The writer for a nested encoding that starts at `off`: the rest of the buffer if `off`
  // lies within it, else a size-only writer.
  [[nodiscard]] Writer at(uint64_t off) const {
    if (buf == nullptr || off > len) return Writer{nullptr, 0};
    return Writer{buf + off, static_cast<uint32_t>(len - off)};
  }
};

inline uint16_t bswap16(uint16_t v) {
  return static_cast<uint16_t>((v >> 8) | (v << 8));
}
inline uint32_t bswap32(uint32_t v) {
  return __builtin_bswap32(v);
}
inline uint64_t bswap64(uint64_t v) {
  return __builtin_bswap64(v);
}

// Reads a scalar of `width` bytes from memory (host order).
inline uint64_t load(const void *p, unsigned width) {
  switch (width) {
    case 1:
      return *static_cast<const uint8_t *>(p);
    case 2: {
      uint16_t v;
      std::memcpy(&v, p, 2);
      return v;
    }
    case 4: {
      uint32_t v;
      std::memcpy(&v, p, 4);
      return v;
    }
    default: {
      uint64_t v;
      std::memcpy(&v, p, 8);
      return v;
    }
  }
}
inline void store(void *p, unsigned width, uint64_t v) {
  switch (width) {
    case 1:
      *static_cast<uint8_t *>(p) = static_cast<uint8_t>(v);
      break;
    case 2: {
      auto x = static_cast<uint16_t>(v);
      std::memcpy(p, &x, 2);
      break;
    }
    case 4: {
      auto x = static_cast<uint32_t>(v);
      std::memcpy(p, &x, 4);
      break;
    }
    default:
      std::memcpy(p, &v, 8);
      break;
  }
}
// Wire image of a scalar: host order, or big-endian for network-form records.
inline void to_wire(uint8_t *out, unsigned width, uint64_t v, bool net) {
  switch (width) {
    case 1:
      out[0] = static_cast<uint8_t>(v);
      break;
    case 2: {
      auto x = static_cast<uint16_t>(v);
      if (net) x = bswap16(x);
      std::memcpy(out, &x, 2);
      break;
    }
    case 4: {
      auto x = static_cast<uint32_t>(v);
      if (net) x = bswap32(x);
      std::memcpy(out, &x, 4);
      break;
    }
    default: {
      uint64_t x = net ? bswap64(v) : v;
      std::memcpy(out, &x, 8);
      break;
    }
  }
}
inline uint64_t from_wire(const uint8_t *in, unsigned width, bool net) {
  switch (width) {
    case 1:
      return in[0];
    case 2: {
      uint16_t x;
      std::memcpy(&x, in, 2);
      return net ? bswap16(x) : x;
    }
    case 4: {
      uint32_t x;
      std::memcpy(&x, in, 4);
      return net ? bswap32(x) : x;
    }
    default: {
      uint64_t x;
      std::memcpy(&x, in, 8);
      return net ? bswap64(x) : x;
    }
  }
}

inline void *ptr_at(void *rec, uint32_t off) {
  void *p;
  std::memcpy(&p, static_cast<uint8_t *>(rec) + off, sizeof p);
  return p;
}
inline const void *ptr_at(const void *rec, uint32_t off) {
  const void *p;
  std::memcpy(&p, static_cast<const uint8_t *>(rec) + off, sizeof p);
  return p;
}
inline void set_ptr(void *rec, uint32_t off, const void *p) {
  std::memcpy(static_cast<uint8_t *>(rec) + off, &p, sizeof p);
}
inline uint32_t u32_at(const void *rec, uint32_t off) {
  uint32_t v;
  std::memcpy(&v, static_cast<const uint8_t *>(rec) + off, 4);
  return v;
}
inline void set_u32(void *rec, uint32_t off, uint32_t v) {
  std::memcpy(static_cast<uint8_t *>(rec) + off, &v, 4);
}
inline uint8_t *bytes(void *p, uint32_t off = 0) {
  return static_cast<uint8_t *>(p) + off;
}
inline const uint8_t *bytes(const void *p, uint32_t off = 0) {
  return static_cast<const uint8_t *>(p) + off;
}

// The arm of a choice for a selector, or null.  Arms are sorted by selector.
const Record *find_arm(const Choice &c, uint32_t selector);

// The choice rule of both decoders (selector all ones first, 0 for a short head, -1 for a
// wrapping arm length, unknown selectors skipped, the arm consumed exactly).
int32_t decode_choice(const Record &r, void *rec, void *map, const uint8_t *data, uint32_t length,
                      AllocFn alloc, void *ctx, bool tlv);

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
constexpr bool kLittleEndian = true;
#else
constexpr bool kLittleEndian = false;
#endif

// A copy whose common small sizes compile to single moves.
inline void copy_small(void *dst, const void *src, uint32_t len) {
  switch (len) {
    case 1:
      std::memcpy(dst, src, 1);
      break;
    case 2:
      std::memcpy(dst, src, 2);
      break;
    case 4:
      std::memcpy(dst, src, 4);
      break;
    case 8:
      std::memcpy(dst, src, 8);
      break;
    default:
      std::memcpy(dst, src, len);
      break;
  }
}

// A copy of up to 64 bytes (blobs, counted arrays) as a few overlapping moves rather than a
// call into the C library, whose dispatch costs more than the copy at these sizes.
inline void copy_short(uint8_t *dst, const uint8_t *src, size_t n) {
  auto move = [&](size_t at, auto word) {
    std::memcpy(&word, src + at, sizeof word);
    std::memcpy(dst + at, &word, sizeof word);
  };
  struct Block {
    uint64_t w[2];
  };
  if (n > 64) {
    std::memcpy(dst, src, n);
  } else if (n >= 16) {
    move(0, Block{});
    if (n > 32) move(16, Block{});
    if (n > 48) move(32, Block{});
    move(n - 16, Block{});
  } else if (n >= 8) {
    move(0, uint64_t{});
    move(n - 8, uint64_t{});
  } else if (n >= 4) {
    move(0, uint32_t{});
    move(n - 4, uint32_t{});
  } else {
    for (size_t i = 0; i < n; ++i) dst[i] = src[i];
  }
}

// Value of a bit-field member, shifted down.
inline uint32_t bits_get(const void *rec, const Field &f) {
  uint64_t word = load(bytes(rec, f.offset), f.width);
  uint64_t mask = f.bit_width >= 32 ? 0xFFFFFFFFull : ((1ull << f.bit_width) - 1);
  return static_cast<uint32_t>((word >> f.bit_off) & mask);
}
// Replaces the member's bits of the storage word, leaving the others.
inline void bits_set(void *rec, const Field &f, uint64_t value) {
  uint64_t word = load(bytes(rec, f.offset), f.width);
  uint64_t mask = (f.bit_width >= 32 ? 0xFFFFFFFFull : ((1ull << f.bit_width) - 1)) << f.bit_off;
  word = (word & ~mask) | ((value << f.bit_off) & mask);
  store(bytes(rec, f.offset), f.width, word);
}
inline unsigned bits_wire_width(const Field &f) {
  return f.bit_width <= 8 ? 1u : 4u;
}

}  // namespace internal
}  // namespace tlk::idl
