// A path-compressed binary trie of prefixes up to 128 bits, for the simulated kernel's route
// store: insert, erase, exact find, longest-prefix match, and the successor of a key in prefix
// order.  A prefix is its bytes, most significant bit first, and its length in bits; bits past
// the length are ignored.  Each prefix holds a 32-bit value (the store's slot of the route).
//
// Prefix order is that of (bytes with the bits past the length cleared, then length): a prefix
// comes before every longer prefix within it, and a trie's pre-order walk (0 side first) is that
// order.  Nodes sit in one vector and name their children by position, 32 bytes each.
//
// A table of a million routes is deeper than the caches hold, and every level of a binary walk
// is a miss.  So the prefixes of 16 bits or more hang from 65,536 roots, one per value of their
// first 16 bits, and the shorter ones from a root of their own: a walk starts some 16 levels
// down.  Prefix order across roots: the whole of root t follows a short prefix whose first 16
// bits (the rest being zero) are at most t, and precedes it otherwise.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace tarsim::internal {

class Lpm {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;
  static constexpr unsigned kMaxBits = 128;

  // Stores `value` under the prefix; false if the prefix was there (its value is replaced).
  bool insert(const uint8_t *key, unsigned bits, uint32_t value);
  // Stores `value` under the prefix if it is not there and gives kNone; else gives the value
  // there, unchanged.  One walk where find and insert would take two.
  uint32_t emplace(const uint8_t *key, unsigned bits, uint32_t value);
  // Removes the prefix; its value, or kNone if it was not there.
  uint32_t erase(const uint8_t *key, unsigned bits);
  // The value of exactly this prefix, or kNone.
  uint32_t find(const uint8_t *key, unsigned bits) const;
  // The value of the longest stored prefix that covers the first `bits` bits of `key`, or kNone.
  uint32_t longest_match(const uint8_t *key, unsigned bits) const;
  // The value of the first prefix after (key, bits) in prefix order, or kNone.
  uint32_t next(const uint8_t *key, unsigned bits) const;
  // Calls fn(value, arg) for every prefix in prefix order.
  void walk(void (*fn)(uint32_t value, void *arg), void *arg) const;
  size_t size() const { return size_; }
  void clear();

 private:
  static constexpr uint32_t kNil = UINT32_MAX;
  struct Node {
    uint8_t key[16];  // bits past len are 0
    uint8_t len_lo;   // length 0..128 in len_lo (128 fits a byte)
    uint8_t has;      // whether a prefix ends here (else a branching node)
    uint32_t child[2];
    uint32_t value;
  };

  static constexpr unsigned kStride = 16;            // bits that pick a root
  static constexpr uint32_t kShort = 1u << kStride;  // the root of shorter prefixes
  static constexpr uint32_t kRoots = kShort + 1;

  uint32_t put(const uint8_t *key, unsigned bits, uint32_t value, bool replace);
  uint32_t make(const uint8_t *key, unsigned bits, bool has, uint32_t value);
  void release(uint32_t n);
  // The root a masked key of `bits` bits hangs from.
  static uint32_t root_of(const uint8_t *key, unsigned bits) {
    return bits >= kStride ? uint32_t{key[0]} << 8 | key[1] : kShort;
  }
  uint32_t root(uint32_t r) const { return roots_.empty() ? kNil : roots_[r]; }
  void set_root(uint32_t r, uint32_t node);
  // The first long root at or after `t` that holds anything, or kShort.
  uint32_t next_root(uint32_t t) const;
  // Node positions, not values.
  uint32_t next_in(uint32_t n, const uint8_t *key, unsigned bits) const;
  uint32_t first_in(uint32_t n) const;
  void walk_root(uint32_t n, void (*fn)(uint32_t value, void *arg), void *arg,
                 std::vector<uint32_t> &stack) const;

  std::vector<Node> nodes_;
  std::vector<uint32_t> free_;
  std::vector<uint32_t> roots_;     // kRoots entries once anything is stored
  std::vector<uint64_t> occupied_;  // one bit per long root that holds anything
  size_t size_ = 0;
};

}  // namespace tarsim::internal
