// gencfg peers and dependencies: the two arrays a gencfg_t points at, and the helpers that fill
// and read them.  No session is involved; failures give -1 and report at level 3 without a cookie.
//
// A peer mask is eight u32 words in host order, six slots a word, five bits apart:
//
//   word w:  bit 0     5     10    15    20    25    30 31
//            slot 6w   6w+1  6w+2  6w+3  6w+4  6w+5  -- --
//
// Sub-unit u of slot s sits at 1 + u bits above the slot's base, so a slot's sub-units run over
// the next slot's bit and sub-units: the overlap is how the mask has always been packed, and the
// reason masks are compared whole.  The sub-units 6 and 7 of the last slot of a word would fall
// on bits 32 and 33; a 32-bit shift that far gives nothing, so they have no bit at all.
//
// The dependency block (8192 bytes):
//
//   0                          72 * entry        +2                                      8192
//   +--------------------------+-----------------+-----------------------------------------+
//   | 72 gencfg_depinfo entries | u16 tail offset | key data: each key rounded up to four   |
//   +--------------------------+-----------------+-----------------------------------------+
//
// On the target an entry is 24 bytes, so the tail sits at 1728 and the key data holds 6462 bytes;
// a host with wider pointers has wider entries and less key room in the same block.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "platform/platform.h"
#include "tarlink.h"
#include "wire.h"

namespace {

using tlk::platform::ops;

constexpr size_t kPeerEntry = sizeof(gencfg_peerinfo);
constexpr size_t kMaskWords = 8;
constexpr size_t kDepEntries = sizeof(gencfg_depinfo) * TLK_GENCFG_DEPS_MAX;
constexpr size_t kDepTailAt = kDepEntries;
constexpr size_t kDepDataAt = kDepTailAt + sizeof(uint16_t);
constexpr size_t kDepDataMax = TLK_GENCFG_DEP_BLOCK_SIZE - kDepDataAt;
static_assert(sizeof(gencfg_peerinfo) == 40, "a peer entry is 40 bytes on every host");
static_assert(sizeof(void *) != 4 || kDepDataMax == 6462, "the target's key room");

void report(const char *format, ...) __attribute__((format(printf, 1, 2)));
void report(const char *format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  tarvik_err(nullptr, TLK_LEVEL_ERROR, "%s", text);
}

// ---- Mask bits ----

// A bit of the mask: word and bit number; bits past 31 name nothing.
struct MaskBit {
  size_t word;
  uint32_t bit;
};

MaskBit slot_bit(uint32_t slot) {
  return {slot / 6, (slot * 5) % 30};
}

MaskBit sub_unit_bit(uint32_t index) {
  return {index / TLK_GENCFG_PEER_SLOTS, 1 + index % 8 + ((index / 8) * 5) % 30};
}

uint32_t bit_value(const MaskBit &b) {
  return b.bit < 32 ? uint32_t{1} << b.bit : 0;
}

uint32_t load_word(const uint8_t *mask, size_t word) {
  uint32_t w;
  memcpy(&w, mask + word * sizeof w, sizeof w);
  return w;
}

void set_bit(uint8_t *mask, const MaskBit &b) {
  const uint32_t w = load_word(mask, b.word) | bit_value(b);
  memcpy(mask + b.word * sizeof w, &w, sizeof w);
}

bool has_bit(const uint8_t *mask, const MaskBit &b) {
  return (load_word(mask, b.word) & bit_value(b)) != 0;
}

uint8_t *mask_of(gencfg_peerinfo &p) {
  return p.index.idx.gencfg_type_peer_mask.peer_mask;
}
const uint8_t *mask_of(const gencfg_peerinfo &p) {
  return p.index.idx.gencfg_type_peer_mask.peer_mask;
}

// ---- Adding a peer ----

// Whether a peer of `major` goes into the mask: three majors always, major 4 when the system
// control says so (one u32 of value 1).
bool uses_mask(uint16_t major) {
  if (major == 15 || major == 73 || major == 85) return true;
  if (major != 4) return false;
  uint32_t value = 0;
  size_t length = sizeof value;
  if (ops().sysctlbyname(TLK_GENCFG_PEERMASK_SYSCTL, &value, &length, nullptr, 0) != 0) {
    return false;
  }
  return length == sizeof value && value == 1;
}

// A single-index entry at peer_count: a peer (index type 0) or an interface device (1).
void add_single(gencfg_t *r, const gencfg_peer_t &peer, uint32_t index_type) {
  gencfg_peerinfo &p = r->peers[r->peer_count];
  memset(&p, 0, sizeof p);
  p.peer_type = peer.peer_type;
  p.index.index_type = index_type;
  if (index_type == TLK_GENCFG_INDEX_IFD) {
    p.index.idx.gencfg_type_ifd.ifd_index = peer.index;
  } else {
    p.index.idx.gencfg_type_default.peer_index = peer.index;
  }
  ++r->peer_count;
}

int add_to_mask(gencfg_t *r, const gencfg_peer_t &peer) {
  gencfg_peerinfo *entry = nullptr;
  for (uint32_t i = 0; i < r->peer_count && entry == nullptr; ++i) {
    if (r->peers[i].index.index_type == TLK_GENCFG_INDEX_MASK) entry = &r->peers[i];
  }
  const bool fresh = entry == nullptr;
  if (fresh) {
    entry = &r->peers[r->peer_count];
    memset(mask_of(*entry), 0, kMaskWords * sizeof(uint32_t));
  }
  // Written before the range tests, and kept even when they fail.
  entry->peer_type = peer.peer_type;
  const uint32_t index = peer.index;
  if (index < TLK_GENCFG_PEER_INDEX_NONE) {
    uint8_t *mask = mask_of(*entry);
    if (peer.peer_type == TLK_GENCFG_PEER_BOTH && index < TLK_GENCFG_PEER_SUB_UNITS) {
      // The slot bit by the sub-unit's word rule, which names the same bit.
      set_bit(mask, {index / TLK_GENCFG_PEER_SLOTS, ((index / 8) * 5) % 30});
      set_bit(mask, sub_unit_bit(index));
    } else if (peer.peer_type == TLK_GENCFG_PEER_SLOT && index < TLK_GENCFG_PEER_SLOTS) {
      set_bit(mask, slot_bit(index));
    } else if (peer.peer_type == TLK_GENCFG_PEER_SUB_UNIT && index < TLK_GENCFG_PEER_SUB_UNITS) {
      set_bit(mask, sub_unit_bit(index));
    } else {
      report("Creation of gencfg peer mask failed \n");
      return -1;
    }
  }
  entry->index.index_type = TLK_GENCFG_INDEX_MASK;
  if (fresh) ++r->peer_count;
  return 0;
}

// The object type that a record's first entry admits after it, or -1 for an entry of no known
// form.
int admitted_object(uint32_t index_type) {
  switch (index_type) {
    case TLK_GENCFG_INDEX_DEFAULT:
    case TLK_GENCFG_INDEX_MASK:
      return TLK_GENCFG_OBJECT_PEER;
    case TLK_GENCFG_INDEX_IFD:
      return TLK_GENCFG_OBJECT_IFD;
    default:
      return -1;
  }
}

// The lowest set sub-unit of a mask, walked slot by slot: slot * 8 + unit, or -1.
int lowest_sub_unit(const uint8_t *mask) {
  for (uint32_t slot = 0; slot < TLK_GENCFG_PEER_SLOTS; ++slot) {
    for (uint32_t unit = 0; unit < 8; ++unit) {
      if (has_bit(mask, sub_unit_bit(slot * 8 + unit))) return static_cast<int>(slot * 8 + unit);
    }
  }
  return -1;
}

uint8_t *dep_tail_at(const gencfg_t *r) {
  return reinterpret_cast<uint8_t *>(r->deps) + kDepTailAt;
}

void take_dep_block(gencfg_t *r, void *block) {
  r->deps = static_cast<gencfg_depinfo *>(block);
  r->dep_count = 0;
  r->flags |= TLK_GENCFG_DEPS;
  tlk::wire::store_u16(dep_tail_at(r), 0);
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_gencfg_add_peerinfo_storage(gencfg_t *record, uint32_t count, void *buffer,
                                                  size_t size) {
  if (record == nullptr || buffer == nullptr) return -1;
  if (count > TLK_GENCFG_PEERS_MAX) {
    report("Number of peers exceeds %d\n", TLK_GENCFG_PEERS_MAX);
    return -1;
  }
  if (size_t{count} * kPeerEntry > size) {
    report("buffer space too small for number of peers %d\n", static_cast<int>(count));
    return -1;
  }
  record->peers = static_cast<gencfg_peerinfo *>(buffer);
  record->peer_count = 0;
  record->peer_max = static_cast<uint8_t>(count);
  return 0;
}

TLK_EXPORT int tarvik_gencfg_create_peerinfo(gencfg_t *record, uint32_t count) {
  if (record == nullptr) return -1;
  if (count > TLK_GENCFG_PEERS_MAX) {
    report("Number of peers exceeds %d\n", TLK_GENCFG_PEERS_MAX);
    return -1;
  }
  void *peers = tarvik_calloc(MEMID_TARVIK_MSG, count == 0 ? 1 : count, kPeerEntry);
  if (peers == nullptr) {
    report("Failed to allocate memory for gencfg_peerinfo_t\n");
    record->peers = nullptr;
    return -1;
  }
  record->peers = static_cast<gencfg_peerinfo *>(peers);
  record->peer_count = 0;
  record->peer_max = static_cast<uint8_t>(count);
  return 0;
}

TLK_EXPORT void tarvik_gencfg_delete_peerinfo(gencfg_t *record) {
  if (record == nullptr) return;
  if (record->peers != nullptr) tarvik_free(MEMID_TARVIK_MSG, record->peers);
  record->peers = nullptr;
  record->peer_count = 0;
}

TLK_EXPORT int tarvik_gencfg_add_peerinfo(gencfg_t *record, const gencfg_peer_t *peer) {
  if (record == nullptr || peer == nullptr) return -1;
  if (record->peer_count >= record->peer_max) {
    report("Number of gencfg peers exceeds %d\n", record->peer_max);
    return -1;
  }
  if (record->peers == nullptr) return -1;
  // A record holds peers or interface devices, never both: its first entry decides.
  if (record->peer_count != 0) {
    const uint32_t existing = record->peers[0].index.index_type;
    const int admitted = admitted_object(existing);
    if (admitted < 0 || static_cast<uint32_t>(admitted) != peer->object_type) {
      report("%s: Peer Index choice mismatch, Existing: %d New: %d\n", "tarvik_gencfg_add_peerinfo",
             static_cast<int>(existing), static_cast<int>(peer->object_type));
      return -1;
    }
  }
  if (peer->object_type == TLK_GENCFG_OBJECT_IFD) {
    add_single(record, *peer, TLK_GENCFG_INDEX_IFD);
    return 0;
  }
  if (peer->object_type != TLK_GENCFG_OBJECT_PEER) {
    report("OBJECT TYPE invalid\n");
    return -1;
  }
  if (!uses_mask(record->major)) {
    add_single(record, *peer, TLK_GENCFG_INDEX_DEFAULT);
    return 0;
  }
  return add_to_mask(record, *peer);
}

TLK_EXPORT uint8_t *tarvik_gencfg_get_peer_info(const struct gencfg_msg *msg) {
  if (msg == nullptr || msg->peers == nullptr) return nullptr;
  for (uint32_t i = 0; i < msg->peer_count; ++i) {
    if (msg->peers[i].index.index_type == TLK_GENCFG_INDEX_MASK) return mask_of(msg->peers[i]);
  }
  return nullptr;
}

TLK_EXPORT int tarvik_gencfg_is_peer_present_in_peerinfo(const gencfg_t *record, uint8_t peer_type,
                                                         uint32_t index) {
  if (record == nullptr || record->peers == nullptr) return 0;
  // Every entry the record has room for, not only those in use.
  const gencfg_peerinfo *entry = nullptr;
  for (uint32_t i = 0; i < record->peer_max && entry == nullptr; ++i) {
    if (record->peers[i].index.index_type == TLK_GENCFG_INDEX_MASK) entry = &record->peers[i];
  }
  if (entry == nullptr) return 0;
  if (peer_type == TLK_GENCFG_PEER_SLOT) {
    return index < TLK_GENCFG_PEER_SLOTS && has_bit(mask_of(*entry), slot_bit(index)) ? 1 : 0;
  }
  if (peer_type == TLK_GENCFG_PEER_SUB_UNIT) {
    return index < TLK_GENCFG_PEER_SUB_UNITS && has_bit(mask_of(*entry), sub_unit_bit(index)) ? 1
                                                                                              : 0;
  }
  return 0;
}

TLK_EXPORT int tarvik_gencfg_get_peer_index(const struct gencfg_msg *msg, uint32_t entry) {
  if (msg == nullptr || msg->peers == nullptr || entry >= msg->peer_count) return -1;
  const gencfg_peerinfo &p = msg->peers[entry];
  switch (p.index.index_type) {
    case TLK_GENCFG_INDEX_DEFAULT:
      return p.index.idx.gencfg_type_default.peer_index;
    case TLK_GENCFG_INDEX_IFD:
      return p.index.idx.gencfg_type_ifd.ifd_index;
    case TLK_GENCFG_INDEX_MASK:
      break;
    default:
      return -1;
  }
  if (p.peer_type == TLK_GENCFG_PEER_SLOT) {
    for (uint32_t slot = 0; slot < TLK_GENCFG_PEER_SLOTS; ++slot) {
      if (has_bit(mask_of(p), slot_bit(slot))) return static_cast<int>(slot);
    }
    return -1;
  }
  // Type 17 lands here too: its lowest sub-unit, not its slot.
  if (p.peer_type & TLK_GENCFG_PEER_SUB_UNIT) return lowest_sub_unit(mask_of(p));
  return -1;
}

TLK_EXPORT int tarvik_gencfg_get_peer_index_from_peer_mask(const uint8_t *mask, uint8_t peer_type,
                                                           uint32_t slot, uint32_t sub_unit) {
  if (mask == nullptr) return -1;
  if (peer_type == TLK_GENCFG_PEER_SLOT) {
    return has_bit(mask, slot_bit(slot)) ? static_cast<int>(slot) : -1;
  }
  if (peer_type & TLK_GENCFG_PEER_SUB_UNIT) {
    const MaskBit b{slot / 6, 1 + sub_unit + (slot * 5) % 30};
    return has_bit(mask, b) ? static_cast<int>(slot * 8 + sub_unit) : -1;
  }
  return -1;
}

TLK_EXPORT int tarvik_gencfg_peer_info_compare(const gencfg_peerinfo_t *a, uint32_t count_a,
                                               const gencfg_peerinfo_t *b, uint32_t count_b) {
  if (a == nullptr || b == nullptr) return 1;
  if (a[0].index.index_type != TLK_GENCFG_INDEX_MASK ||
      b[0].index.index_type != TLK_GENCFG_INDEX_MASK) {
    return 1;
  }
  if (count_a != count_b) return 1;
  // peer_type is not compared: only the words say who receives the blob.
  for (uint32_t i = 0; i < count_a; ++i) {
    if (memcmp(mask_of(a[i]), mask_of(b[i]), kMaskWords * sizeof(uint32_t)) != 0) return 1;
  }
  return 0;
}

TLK_EXPORT int tarvik_gencfg_add_depend_storage(gencfg_t *record, void *buffer, size_t size) {
  if (record == nullptr || buffer == nullptr || size < TLK_GENCFG_DEP_BLOCK_SIZE) return -1;
  memset(buffer, 0, TLK_GENCFG_DEP_BLOCK_SIZE);
  take_dep_block(record, buffer);
  return 0;
}

TLK_EXPORT int tarvik_gencfg_create_depend(gencfg_t *record) {
  if (record == nullptr) return -1;
  void *block = tarvik_calloc(MEMID_TARVIK_MSG, 1, TLK_GENCFG_DEP_BLOCK_SIZE);
  if (block == nullptr) {
    report("Failed to allocate memory for gencfg_depinfo_t\n");
    record->deps = nullptr;
    return -1;
  }
  take_dep_block(record, block);
  return 0;
}

// The flag stays: a later send of the record is refused until the caller clears it.
TLK_EXPORT int tarvik_gencfg_delete_depend(gencfg_t *record) {
  if (record == nullptr) return 0;
  if (record->deps != nullptr) tarvik_free(MEMID_TARVIK_MSG, record->deps);
  record->deps = nullptr;
  record->dep_count = 0;
  return 0;
}

TLK_EXPORT int tarvik_gencfg_add_depinfo(gencfg_t *record, uint8_t dep_type, uint16_t dep_major,
                                         uint16_t dep_minor, uint32_t key_len, const uint8_t *key,
                                         uint8_t dep_flags) {
  if (record == nullptr) return -1;
  if (dep_type > TLK_GENCFG_DEP_TYPE_MAX || key_len == 0 || key == nullptr) return -1;
  if (record->deps == nullptr || record->dep_count >= TLK_GENCFG_DEPS_MAX) return -1;
  const uint32_t tail = tlk::wire::load_u16(dep_tail_at(record));
  const uint32_t rounded = tlk::wire::raw_var_len(key_len);
  // The rounding keeps 17 bits, so a huge length can round small: the copy is bounded as well.
  if (tail + rounded > kDepDataMax || key_len > kDepDataMax - tail) return -1;
  uint8_t *at = reinterpret_cast<uint8_t *>(record->deps) + kDepDataAt + tail;
  gencfg_depinfo &d = record->deps[record->dep_count];
  memset(&d, 0, sizeof d);
  d.dep_flags = dep_flags;
  d.dep_type = dep_type;
  d.dep_major = dep_major;
  d.dep_minor = dep_minor;
  d.dep_key = at;
  d.dep_key_len = key_len;
  memcpy(at, key, key_len);
  tlk::wire::store_u16(dep_tail_at(record), static_cast<uint16_t>(tail + rounded));
  ++record->dep_count;
  return 0;
}

}  // extern "C"
