// Helpers of the codec tests: a counting allocator, random records built from the descriptor
// tables, and a field-by-field comparison that respects presence maps.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "idl/descriptor.h"
#include "tarlink_test_records.h"

namespace tlk::idl::gen {
extern const Record *const records_TARLINK_RECORDS_H[];
extern const size_t records_TARLINK_RECORDS_H_count;
extern const Record *const records_TARLINK_TEST_RECORDS_H[];
extern const size_t records_TARLINK_TEST_RECORDS_H_count;
}  // namespace tlk::idl::gen

namespace codec_test {

using tlk::idl::Record;

// Every record type the tests walk, with its name.
const std::vector<const Record *> &all_records();
const Record *record_named(const std::string &name);

// Allocation callback that records every block; can be told to fail from the n-th call on.
class Heap {
 public:
  ~Heap();
  static void *alloc(uint32_t size, void *ctx);
  static void release(void *p, void *ctx);
  size_t live() const { return blocks_.size(); }
  size_t calls() const { return calls_; }
  void fail_from(size_t n) { fail_from_ = n; }
  void free_all();

 private:
  std::map<void *, uint32_t> blocks_;
  size_t calls_ = 0;
  size_t fail_from_ = SIZE_MAX;
};

// Memory of generated records: everything the random filler points at.
class Pool {
 public:
  uint8_t *get(size_t n);

 private:
  std::vector<std::unique_ptr<uint8_t[]>> blocks_;
};

// Fills `rec` (and `map`, if non-null, with random bits) with random values that survive a
// round trip: address families from the set that the TLV maps give back unchanged, choice
// selectors among the arms (or one unknown), no null list entries.
void fill_random(const Record &r, void *rec, void *map, std::mt19937 &rng, Pool &pool,
                 int depth = 0);

// Compares `got` with `want` field by field.  With `map`, fields whose bit is clear must be zero
// in `got`.  Returns "" or a description of the first difference.
std::string compare(const Record &r, const void *want, const void *got, const void *map,
                    const std::string &path = "");

// The map that a TLV decoder must give back for `rec` encoded under `map`: the same bits except
// those of lists that had no element to send.  Compares it with `got_map`.
std::string compare_maps(const Record &r, const void *rec, const void *map, const void *got_map,
                         const std::string &path = "");

std::string hex(const uint8_t *p, size_t n);

}  // namespace codec_test
