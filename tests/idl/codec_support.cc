#include "codec_support.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "idl/engine.h"

namespace tlk::idl::gen {
extern const Record rec_sockaddr_idl_int;
}

namespace codec_test {

using namespace tlk::idl;
using namespace tlk::idl::internal;

const std::vector<const Record *> &all_records() {
  static const std::vector<const Record *> v = [] {
    std::vector<const Record *> out;
    for (size_t i = 0; i < gen::records_TARLINK_RECORDS_H_count; ++i)
      out.push_back(gen::records_TARLINK_RECORDS_H[i]);
    for (size_t i = 0; i < gen::records_TARLINK_TEST_RECORDS_H_count; ++i)
      out.push_back(gen::records_TARLINK_TEST_RECORDS_H[i]);
    return out;
  }();
  return v;
}

const Record *record_named(const std::string &name) {
  for (auto *r : all_records()) {
    if (name == r->name) return r;
  }
  return nullptr;
}

Heap::~Heap() {
  free_all();
}

void *Heap::alloc(uint32_t size, void *ctx) {
  auto *h = static_cast<Heap *>(ctx);
  if (h->calls_++ >= h->fail_from_) return nullptr;
  // Like an arena of bounded size: a wild count (IDR allocates before its bounds check) fails.
  if (size > (16u << 20)) return nullptr;
  // Poisoned, so that a decoder that relies on cleared memory shows itself.
  void *p = std::malloc(size == 0 ? 1 : size);
  std::memset(p, 0xCD, size);
  h->blocks_[p] = size;
  return p;
}

void Heap::release(void *p, void *ctx) {
  auto *h = static_cast<Heap *>(ctx);
  auto it = h->blocks_.find(p);
  if (it == h->blocks_.end()) {
    std::fprintf(stderr, "release of a block that is not live: %p\n", p);
    std::abort();
  }
  h->blocks_.erase(it);
  std::free(p);
}

void Heap::free_all() {
  for (auto &[p, n] : blocks_) std::free(p);
  blocks_.clear();
}

uint8_t *Pool::get(size_t n) {
  blocks_.push_back(std::make_unique<uint8_t[]>(n == 0 ? 1 : n));
  return blocks_.back().get();
}

namespace {

// Address families that come back unchanged through tlk_encode_af and tlk_decode_af (the maps
// themselves are checked against their table by the address family tests).
const std::vector<uint8_t> &stable_families() {
  static const std::vector<uint8_t> v = [] {
    std::vector<uint8_t> out;
    for (uint32_t af = 0; af <= 253; ++af) {
      if (tlk_decode_af(tlk_encode_af(af)) == af) out.push_back(static_cast<uint8_t>(af));
    }
    return out;
  }();
  return v;
}

uint32_t r32(std::mt19937 &rng) {
  return static_cast<uint32_t>(rng());
}

void fill_bytes(uint8_t *p, size_t n, std::mt19937 &rng) {
  for (size_t i = 0; i < n; ++i) p[i] = static_cast<uint8_t>(r32(rng));
}

uint64_t rand64(std::mt19937 &rng) {
  return (uint64_t{r32(rng)} << 32) | r32(rng);
}

bool bit_of(const void *map, const Field &f) {
  return (u32_at(map, f.map_word) >> f.bit) & 1u;
}

bool all_zero(const void *p, size_t n) {
  const auto *b = static_cast<const uint8_t *>(p);
  for (size_t i = 0; i < n; ++i) {
    if (b[i] != 0) return false;
  }
  return true;
}

size_t field_bytes(const Field &f) {
  switch (f.kind) {
    case Kind::kScalar:
      return f.width;
    case Kind::kGrow64:
      return f.width;
    case Kind::kAf:
      return 1;
    case Kind::kBytes:
      return f.aux;
    case Kind::kNested:
      return f.sub->size;
    case Kind::kRecArray:
      return size_t{f.sub->size} * f.aux;
    default:
      return 0;
  }
}

}  // namespace

void fill_random(const Record &r, void *rec, void *map, std::mt19937 &rng, Pool &pool, int depth) {
  std::memset(rec, 0, r.size);
  if (map != nullptr) std::memset(map, 0, r.map_size);
  if (r.hooks != nullptr) {
    // sockaddr_idl without a flat address: its choice travels as it stands.
    fill_random(gen::rec_sockaddr_idl_int, rec, map, rng, pool, depth);
    return;
  }
  if (r.choice != nullptr) {
    const Choice &c = *r.choice;
    uint32_t sel;
    const Record *arm = nullptr;
    if (c.narms == 0 || r32(rng) % 8 == 0) {
      do {
        sel = r32(rng) % 1000 + 1000;
      } while (find_arm(c, sel) != nullptr);
    } else {
      sel = c.arms[r32(rng) % c.narms].selector;
      arm = find_arm(c, sel);
    }
    set_u32(rec, c.sel_off, sel);
    if (arm == nullptr) return;
    if (c.by_ptr) {
      uint8_t *a = pool.get(arm->size);
      uint8_t *am = map == nullptr ? nullptr : pool.get(arm->map_size);
      fill_random(*arm, a, am, rng, pool, depth + 1);
      set_ptr(rec, c.arm_off, a);
      if (map != nullptr) set_ptr(map, 0, am);
    } else {
      fill_random(*arm, bytes(rec, c.arm_off), map, rng, pool, depth + 1);
    }
    return;
  }
  for (uint16_t i = 0; i < r.nfields; ++i) {
    const Field &f = r.fields[i];
    if (map != nullptr && r32(rng) % 4 != 0)
      set_u32(map, f.map_word, u32_at(map, f.map_word) | (1u << f.bit));
    uint8_t *p = bytes(rec, f.offset);
    void *submap = map == nullptr ? nullptr : bytes(map, f.map_sub);
    switch (f.kind) {
      case Kind::kScalar:
        fill_bytes(p, f.width, rng);
        break;
      case Kind::kGrow64:
        store(p, f.width, rand64(rng));
        break;
      case Kind::kAf:
        *p = stable_families()[r32(rng) % stable_families().size()];
        break;
      case Kind::kBits:
        bits_set(rec, f, r32(rng));
        break;
      case Kind::kBytes:
        fill_bytes(p, f.aux, rng);
        break;
      case Kind::kBlob:
      case Kind::kScalarArray: {
        uint32_t count = r32(rng) % (f.kind == Kind::kBlob ? 24 : 5);
        size_t n = size_t{count} * (f.kind == Kind::kBlob ? 1 : f.width);
        uint8_t *d = nullptr;
        if (count != 0) {
          d = pool.get(n);
          fill_bytes(d, n, rng);
        }
        set_ptr(rec, f.offset, d);
        set_u32(rec, f.aux, count);
        break;
      }
      case Kind::kNested:
        fill_random(*f.sub, p, submap, rng, pool, depth + 1);
        break;
      case Kind::kRecArray:
        for (uint32_t k = 0; k < f.aux; ++k) {
          fill_random(*f.sub, p + size_t{k} * f.sub->size,
                      map == nullptr ? nullptr : bytes(submap, 0) + size_t{k} * f.sub->map_size,
                      rng, pool, depth + 1);
        }
        break;
      case Kind::kListInline:
      case Kind::kListPtr: {
        uint32_t count = depth < 3 ? r32(rng) % 4 : 0;
        const bool byptr = f.kind == Kind::kListPtr;
        uint8_t *arr =
            count == 0 ? nullptr : pool.get(size_t{count} * (byptr ? sizeof(void *) : f.sub->size));
        uint8_t *emaps =
            (map == nullptr || count == 0) ? nullptr : pool.get(size_t{count} * f.sub->map_size);
        for (uint32_t k = 0; k < count; ++k) {
          void *em = emaps == nullptr ? nullptr : emaps + size_t{k} * f.sub->map_size;
          if (byptr) {
            uint8_t *e = pool.get(f.sub->size);
            fill_random(*f.sub, e, em, rng, pool, depth + 1);
            set_ptr(arr, static_cast<uint32_t>(k * sizeof(void *)), e);
          } else {
            fill_random(*f.sub, arr + size_t{k} * f.sub->size, em, rng, pool, depth + 1);
          }
        }
        set_ptr(rec, f.offset, arr);
        set_u32(rec, f.aux, count);
        if (map != nullptr) set_ptr(map, f.map_sub, emaps);
        break;
      }
    }
  }
}

std::string compare(const Record &r, const void *want, const void *got, const void *map,
                    const std::string &path) {
  const std::string here = path.empty() ? std::string(r.name) : path;
  if (r.hooks != nullptr) return compare(gen::rec_sockaddr_idl_int, want, got, map, here);
  if (r.choice != nullptr) {
    const Choice &c = *r.choice;
    uint32_t sw = u32_at(want, c.sel_off), sg = u32_at(got, c.sel_off);
    if (sw != sg)
      return here + ": selector " + std::to_string(sw) + " came back as " + std::to_string(sg);
    const Record *arm = find_arm(c, sw);
    if (c.by_ptr) {
      const void *aw = ptr_at(want, c.arm_off), *ag = ptr_at(got, c.arm_off);
      if (arm == nullptr)
        return ag == nullptr ? "" : here + ": arm of an unknown selector was decoded";
      if (ag == nullptr) return here + ": arm missing";
      return compare(*arm, aw, ag, map == nullptr ? nullptr : ptr_at(map, 0), here + ".arm");
    }
    if (arm == nullptr) {
      return all_zero(bytes(got, c.arm_off), r.size - c.arm_off)
                 ? ""
                 : here + ": unknown arm not left zero";
    }
    return compare(*arm, bytes(want, c.arm_off), bytes(got, c.arm_off), map,
                   here + "." + arm->name);
  }
  for (uint16_t i = 0; i < r.nfields; ++i) {
    const Field &f = r.fields[i];
    const std::string fp =
        here + ".field" + std::to_string(i) + "(tag " + std::to_string(f.tag) + ")";
    const bool present = map == nullptr || bit_of(map, f);
    const uint8_t *pw = bytes(want, f.offset), *pg = bytes(got, f.offset);
    const void *submap = map == nullptr ? nullptr : bytes(map, f.map_sub);
    if (!present) {
      bool zero;
      if (f.kind == Kind::kBits)
        zero = bits_get(got, f) == 0;
      else if (f.kind == Kind::kBlob || f.kind == Kind::kScalarArray ||
               f.kind == Kind::kListInline || f.kind == Kind::kListPtr)
        zero = ptr_at(got, f.offset) == nullptr && u32_at(got, f.aux) == 0;
      else
        zero = all_zero(pg, field_bytes(f));
      if (!zero) return fp + ": absent field is not zero";
      continue;
    }
    switch (f.kind) {
      case Kind::kScalar:
      case Kind::kGrow64:
      case Kind::kAf:
      case Kind::kBytes:
        if (std::memcmp(pw, pg, field_bytes(f)) != 0)
          return fp + ": " + hex(pw, field_bytes(f)) + " came back as " + hex(pg, field_bytes(f));
        break;
      case Kind::kBits:
        if (bits_get(want, f) != bits_get(got, f))
          return fp + ": bits " + std::to_string(bits_get(want, f)) + " came back as " +
                 std::to_string(bits_get(got, f));
        break;
      case Kind::kBlob:
      case Kind::kScalarArray: {
        uint32_t cw = u32_at(want, f.aux), cg = u32_at(got, f.aux);
        if (cw != cg)
          return fp + ": count " + std::to_string(cw) + " came back as " + std::to_string(cg);
        size_t n = size_t{cw} * (f.kind == Kind::kBlob ? 1 : f.width);
        const void *dw = ptr_at(want, f.offset), *dg = ptr_at(got, f.offset);
        if (cw == 0 && dg != nullptr) return fp + ": empty data has a pointer";
        if (cw != 0 && (dg == nullptr || std::memcmp(dw, dg, n) != 0)) return fp + ": data differs";
        break;
      }
      case Kind::kNested: {
        auto s = compare(*f.sub, pw, pg, submap, fp);
        if (!s.empty()) return s;
        break;
      }
      case Kind::kRecArray:
        for (uint32_t k = 0; k < f.aux; ++k) {
          auto s =
              compare(*f.sub, pw + size_t{k} * f.sub->size, pg + size_t{k} * f.sub->size,
                      map == nullptr ? nullptr : bytes(submap, 0) + size_t{k} * f.sub->map_size,
                      fp + "[" + std::to_string(k) + "]");
          if (!s.empty()) return s;
        }
        break;
      case Kind::kListInline:
      case Kind::kListPtr: {
        uint32_t cw = u32_at(want, f.aux), cg = u32_at(got, f.aux);
        if (cw != cg)
          return fp + ": list count " + std::to_string(cw) + " came back as " + std::to_string(cg);
        const uint8_t *aw = static_cast<const uint8_t *>(ptr_at(want, f.offset));
        const uint8_t *ag = static_cast<const uint8_t *>(ptr_at(got, f.offset));
        if (cw == 0) {
          if (ag != nullptr) return fp + ": empty list has a pointer";
          break;
        }
        if (ag == nullptr) return fp + ": list pointer missing";
        const uint8_t *emaps =
            map == nullptr ? nullptr : static_cast<const uint8_t *>(ptr_at(map, f.map_sub));
        for (uint32_t k = 0; k < cw; ++k) {
          const void *em = emaps == nullptr ? nullptr : emaps + size_t{k} * f.sub->map_size;
          const void *ew, *eg;
          if (f.kind == Kind::kListInline) {
            ew = aw + size_t{k} * f.sub->size;
            eg = ag + size_t{k} * f.sub->size;
          } else {
            ew = ptr_at(aw, static_cast<uint32_t>(k * sizeof(void *)));
            eg = ptr_at(ag, static_cast<uint32_t>(k * sizeof(void *)));
            if (eg == nullptr) return fp + ": list entry missing";
          }
          auto s = compare(*f.sub, ew, eg, em, fp + "[" + std::to_string(k) + "]");
          if (!s.empty()) return s;
        }
        break;
      }
    }
  }
  return "";
}

std::string compare_maps(const Record &r, const void *rec, const void *map, const void *got_map,
                         const std::string &path) {
  const std::string here = path.empty() ? std::string(r.name) : path;
  if (r.hooks != nullptr) return compare_maps(gen::rec_sockaddr_idl_int, rec, map, got_map, here);
  if (r.choice != nullptr) {
    const Choice &c = *r.choice;
    const Record *arm = find_arm(c, u32_at(rec, c.sel_off));
    if (c.by_ptr) {
      if (arm == nullptr) return "";
      const void *gm = ptr_at(got_map, 0);
      if (gm == nullptr) return here + ": arm map missing";
      return compare_maps(*arm, ptr_at(rec, c.arm_off), ptr_at(map, 0), gm, here + ".arm");
    }
    if (arm == nullptr)
      return all_zero(got_map, r.map_size) ? "" : here + ": map of an unknown arm is set";
    return compare_maps(*arm, bytes(rec, c.arm_off), map, got_map, here + "." + arm->name);
  }
  for (uint16_t i = 0; i < r.nfields; ++i) {
    const Field &f = r.fields[i];
    const std::string fp =
        here + ".field" + std::to_string(i) + "(tag " + std::to_string(f.tag) + ")";
    bool want = bit_of(map, f);
    const bool list = f.kind == Kind::kListInline || f.kind == Kind::kListPtr;
    // A list with no element sends nothing, so its bit cannot come back.
    if (list && u32_at(rec, f.aux) == 0) want = false;
    if (bit_of(got_map, f) != want) return fp + ": map bit " + (want ? "lost" : "invented");
    if (!want) continue;
    if (f.kind == Kind::kNested) {
      auto s = compare_maps(*f.sub, bytes(rec, f.offset), bytes(map, f.map_sub),
                            bytes(got_map, f.map_sub), fp);
      if (!s.empty()) return s;
    } else if (f.kind == Kind::kRecArray) {
      for (uint32_t k = 0; k < f.aux; ++k) {
        size_t mo = size_t{k} * f.sub->map_size;
        auto s = compare_maps(*f.sub, bytes(rec, f.offset) + size_t{k} * f.sub->size,
                              bytes(map, f.map_sub) + mo, bytes(got_map, f.map_sub) + mo, fp);
        if (!s.empty()) return s;
      }
    } else if (list) {
      const uint8_t *arr = static_cast<const uint8_t *>(ptr_at(rec, f.offset));
      const uint8_t *em = static_cast<const uint8_t *>(ptr_at(map, f.map_sub));
      const uint8_t *gm = static_cast<const uint8_t *>(ptr_at(got_map, f.map_sub));
      if (gm == nullptr) return fp + ": element maps missing";
      for (uint32_t k = 0; k < u32_at(rec, f.aux); ++k) {
        const void *e = f.kind == Kind::kListInline
                            ? arr + size_t{k} * f.sub->size
                            : ptr_at(arr, static_cast<uint32_t>(k * sizeof(void *)));
        size_t mo = size_t{k} * f.sub->map_size;
        auto s = compare_maps(*f.sub, e, em + mo, gm + mo, fp + "[" + std::to_string(k) + "]");
        if (!s.empty()) return s;
      }
    }
  }
  return "";
}

std::string hex(const uint8_t *p, size_t n) {
  std::string s;
  char b[4];
  for (size_t i = 0; i < n; ++i) {
    std::snprintf(b, sizeof b, "%02x", p[i]);
    if (i) s += ' ';
    s += b;
  }
  return s;
}

}  // namespace codec_test
