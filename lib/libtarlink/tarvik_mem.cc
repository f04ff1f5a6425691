// Replaceable allocators and the per-identifier memory accounting.
//
// Each allocation names the submodule that makes it by a memory identifier below 76.  With
// accounting on, a table of 77 entries counts allocations, failures, frees and outstanding blocks
// per identifier; every counter carries a check byte so that the table can be verified in a memory
// dump.  The table is one plain malloc block, never counted itself and never freed.
#include <stdlib.h>
#include <string.h>

#include "cookie.h"
#include "platform/platform.h"

namespace {

enum MemOp : unsigned { kAlloc = 0, kFail = 1, kFree = 2 };

constexpr unsigned kTableEntries = MEMID_TARVIK_MAX + 1;
constexpr char kMemFile[] = "lib/libtarlink/tarvik_mem";
constexpr char kMemRec[] = "tarvik_mem_rec";

static_assert(sizeof(tarvik_mem_cnt_t) == 20, "an entry is five words");

// XOR of the counter's four bytes, or 0xBE where that is zero: a valid check byte is never 0.
uint8_t check_byte(uint32_t counter) {
  const uint8_t x =
      static_cast<uint8_t>(counter ^ (counter >> 8) ^ (counter >> 16) ^ (counter >> 24));
  return x == 0 ? 0xBE : x;
}

void mem_rec(unsigned memid, unsigned op);

void mem_rec_init() {
  TLK_ASSERT_AT(!tarvik_mem_record.cnts_saved, "!tarvik_mem_record.cnts_saved", kMemFile, 137,
                kMemRec);
  auto *table = static_cast<tarvik_mem_cnt_t *>(malloc(kTableEntries * sizeof(tarvik_mem_cnt_t)));
  if (table == nullptr) return;  // nothing to count into; the next event tries again
  memset(table, 0, kTableEntries * sizeof(tarvik_mem_cnt_t));
  for (unsigned i = 0; i < MEMID_TARVIK_MAX; ++i) memset(table[i].chk, 0xBE, sizeof table[i].chk);
  tarvik_mem_record.cnts = table;
  tarvik_mem_record.submod_max = MEMID_TARVIK_MAX;
  tarvik_mem_record.cnts_saved = table;
  mem_rec(0, kAlloc);  // entry 0 shows the table's own allocation
}

void mem_rec(unsigned memid, unsigned op) {
  if (tarvik_mem_rec_enabled == 0) return;
  TLK_ASSERT_AT(op < 3, "0", kMemFile, 133, kMemRec);
  if (tarvik_mem_record.cnts == nullptr) {
    mem_rec_init();
    if (tarvik_mem_record.cnts == nullptr) return;
  }
  TLK_ASSERT_AT(tarvik_mem_record.cnts_saved == tarvik_mem_record.cnts,
                "tarvik_mem_record.cnts_saved == tarvik_mem_record.cnts", kMemFile, 152, kMemRec);
  TLK_ASSERT_AT(MEMID_TARVIK_MAX == tarvik_mem_record.submod_max,
                "MEMID_TARVIK_MAX == tarvik_mem_record.submod_max", kMemFile, 153, kMemRec);
  TLK_ASSERT_AT(tarvik_mem_record.submod_max > memid, "tarvik_mem_record.submod_max > memid",
                kMemFile, 154, kMemRec);
  if (tarvik_mem_rec_lock) tarvik_mem_rec_lock();
  tarvik_mem_cnt_t &e = tarvik_mem_record.cnts[memid];
  uint32_t *counter = (op == kAlloc) ? &e.allocs : (op == kFail) ? &e.fails : &e.frees;
  ++*counter;
  e.chk[op] = check_byte(*counter);
  if (op != kFail) {
    e.outstanding += (op == kAlloc) ? 1 : -1;
    e.chk[3] = check_byte(static_cast<uint32_t>(e.outstanding));
  }
  if (tarvik_mem_rec_unlock) tarvik_mem_rec_unlock();
}

void *default_malloc(unsigned memid, size_t size) {
  void *p = malloc(size);
  mem_rec(memid, p ? kAlloc : kFail);
  return p;
}

void default_free(unsigned memid, void *block) {
  if (block == nullptr) return;
  free(block);
  mem_rec(memid, kFree);
}

void *default_calloc(unsigned memid, size_t count, size_t size) {
  void *p = calloc(count, size);
  mem_rec(memid, p ? kAlloc : kFail);
  return p;
}

// A failed realloc of a live block still counts a free: the outstanding count then falls by one
// although the block lives on.  That is the documented accounting and stays so.
void *default_realloc(unsigned memid, void *block, size_t size) {
  void *p = realloc(block, size);
  mem_rec(memid, p ? kAlloc : kFail);
  if (block != nullptr) mem_rec(memid, kFree);
  return p;
}

constexpr char kItableExpr[] = "(MEMID_TARVIK_ITABLE_MIN<=memid)&&(MEMID_TARVIK_ITABLE_MAX>=memid)";

bool itable_memid_ok(uint16_t memid) {
  return memid >= MEMID_TARVIK_ITABLE_MIN && memid <= MEMID_TARVIK_ITABLE_MAX;
}

}  // namespace

extern "C" {

TLK_EXPORT void *(*tarvik_malloc)(unsigned, size_t) = default_malloc;
TLK_EXPORT void (*tarvik_free)(unsigned, void *) = default_free;
TLK_EXPORT void *(*tarvik_calloc)(unsigned, size_t, size_t) = default_calloc;
TLK_EXPORT void *(*tarvik_realloc)(unsigned, void *, size_t) = default_realloc;

TLK_EXPORT tarvik_mem_record_t tarvik_mem_record = {nullptr, 0, nullptr};
TLK_EXPORT int32_t tarvik_mem_rec_enabled = 0;
TLK_EXPORT void (*tarvik_mem_rec_lock)(void) = nullptr;
TLK_EXPORT void (*tarvik_mem_rec_unlock)(void) = nullptr;
extern TLK_EXPORT const uint16_t memid_tarvik_itable_borrower = 63;
extern TLK_EXPORT const uint16_t memid_tarvik_itable_donor = 64;

TLK_EXPORT void tarvik_mem_rec_enable(void (*lock)(void), void (*unlock)(void)) {
  tarvik_mem_rec_lock = lock;
  tarvik_mem_rec_unlock = unlock;
  tarvik_mem_rec_enabled = 1;
}

TLK_EXPORT void *tarvik_size_alloc(tarvik_cookie *cookie, size_t size) {
  if (cookie == nullptr) return nullptr;
  void *p = tarvik_malloc(MEMID_TARVIK_MSG, size);
  if (p != nullptr) memset(p, 0, size);
  return p;
}

TLK_EXPORT void *tarvik_msg_malloc(tarvik_cookie *cookie) {
  return tarvik_size_alloc(cookie, TLK_MSG_BUF_SIZE);
}

TLK_EXPORT void tarvik_msg_free(tarvik_cookie *cookie, void *block) {
  if (cookie == nullptr || block == nullptr) return;
  tarvik_free(MEMID_TARVIK_MSG, block);
}

TLK_EXPORT void *tarvik_malloc_cb(size_t size) {
  return tarvik_malloc(MEMID_TARVIK_DECODE, size);
}

TLK_EXPORT void tarvik_free_cb(void *block) {
  tarvik_free(MEMID_TARVIK_DECODE, block);
}

TLK_EXPORT void *tarvik_malloc_itable(const uint16_t *memid, size_t size) {
  const uint16_t id = memid ? *memid : 0;
  TLK_ASSERT_AT(itable_memid_ok(id), kItableExpr, kMemFile, 189, "tarvik_malloc_itable");
  return tarvik_malloc(id, size);
}

TLK_EXPORT void tarvik_free_itable(const uint16_t *memid, void *block) {
  const uint16_t id = memid ? *memid : 0;
  TLK_ASSERT_AT(itable_memid_ok(id), kItableExpr, kMemFile, 196, "tarvik_free_itable");
  tarvik_free(id, block);
}

}  // extern "C"
