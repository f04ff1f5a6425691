// The sparse table of 32-bit keys: a sorted array with binary search (see itable32.h).
#include "platform/itable32.h"

#include <errno.h>
#include <stdint.h>
#include <string.h>

struct itable32_entry {
  uint32_t key;
  void *value;
};

struct itable32 {
  itable32_alloc_fn alloc;
  itable32_free_fn release;
  const uint16_t *context;
  itable32_entry *entries;  // sorted by key, `capacity` slots of which `count` are used
  uint32_t count;
  uint32_t capacity;
};

namespace {

constexpr uint32_t kFirstCapacity = 4;

// The index of the first entry whose key is not below `key` (count if there is none).
uint32_t lower_bound(const itable32 *t, uint32_t key) {
  uint32_t lo = 0;
  uint32_t hi = t->count;
  while (lo < hi) {
    const uint32_t mid = lo + (hi - lo) / 2;
    if (t->entries[mid].key < key) {
      lo = mid + 1;
    } else {
      hi = mid;
    }
  }
  return lo;
}

// Moves the entries into a block of `capacity` slots.  False if there is no memory; the table is
// then unchanged.
bool resize(itable32 *t, uint32_t capacity) {
  // The block's size must fit a size_t, which on a 32-bit target bounds the entries.
  if (static_cast<uint64_t>(capacity) * sizeof(itable32_entry) > SIZE_MAX) return false;
  auto *fresh =
      static_cast<itable32_entry *>(t->alloc(t->context, capacity * sizeof(itable32_entry)));
  if (fresh == nullptr) return false;
  if (t->count != 0) memcpy(fresh, t->entries, t->count * sizeof *fresh);
  if (t->entries != nullptr) t->release(t->context, t->entries);
  t->entries = fresh;
  t->capacity = capacity;
  return true;
}

}  // namespace

extern "C" {

itable32_t *itable32_create_ext(itable32_alloc_fn alloc, itable32_free_fn release,
                                const uint16_t *context) {
  if (alloc == nullptr || release == nullptr) return nullptr;
  auto *t = static_cast<itable32 *>(alloc(context, sizeof(itable32)));
  if (t == nullptr) return nullptr;
  *t = itable32{alloc, release, context, nullptr, 0, 0};
  return t;
}

int itable32_insert(itable32_t *table, void *value, const uint32_t *key) {
  if (table == nullptr || key == nullptr || value == nullptr) return EINVAL;
  const uint32_t at = lower_bound(table, *key);
  if (at < table->count && table->entries[at].key == *key) return EEXIST;
  if (table->count == table->capacity) {
    const uint32_t grown = table->capacity == 0 ? kFirstCapacity : table->capacity * 2;
    if (grown <= table->capacity || !resize(table, grown)) return ENOMEM;
  }
  memmove(table->entries + at + 1, table->entries + at,
          (table->count - at) * sizeof *table->entries);
  table->entries[at] = itable32_entry{*key, value};
  ++table->count;
  return 0;
}

void *itable32_lookup(const itable32_t *table, const uint32_t *key) {
  if (table == nullptr || key == nullptr) return nullptr;
  const uint32_t at = lower_bound(table, *key);
  if (at < table->count && table->entries[at].key == *key) return table->entries[at].value;
  return nullptr;
}

int itable32_remove(itable32_t *table, const uint32_t *key) {
  if (table == nullptr || key == nullptr) return EINVAL;
  const uint32_t at = lower_bound(table, *key);
  if (at == table->count || table->entries[at].key != *key) return ENOENT;
  memmove(table->entries + at, table->entries + at + 1,
          (table->count - at - 1) * sizeof *table->entries);
  --table->count;
  if (table->count == 0) {
    table->release(table->context, table->entries);
    table->entries = nullptr;
    table->capacity = 0;
  } else if (table->capacity > kFirstCapacity && table->count <= table->capacity / 4) {
    (void)resize(table, table->capacity / 2);  // without memory the larger block simply stays
  }
  return 0;
}

void *itable32_getnext(const itable32_t *table, const uint32_t *key_in, uint32_t *key_out) {
  if (table == nullptr || key_out == nullptr) return nullptr;
  uint32_t at = 0;
  if (key_in != nullptr) {
    at = lower_bound(table, *key_in);
    if (at < table->count && table->entries[at].key == *key_in) ++at;
  }
  if (at >= table->count) return nullptr;
  *key_out = table->entries[at].key;
  return table->entries[at].value;
}

void itable32_destroy(itable32_t *table) {
  if (table == nullptr) return;
  if (table->entries != nullptr) table->release(table->context, table->entries);
  table->release(table->context, table);
}

}  // extern "C"
