// A path-compressed binary trie of prefixes up to 128 bits, for the simulated kernel's route
// store: insert, erase, exact find, longest-prefix match, and the successor of a key in prefix
// order.  A prefix is its bytes, most significant bit first, and its length in bits; bits past
// the length are ignored.  Each prefix holds a 32-bit value (the store's slot of the route).
//
// Prefix order is that of (bytes with the bits past the length cleared, then length): a prefix
// comes before every longer prefix within it, and a trie's pre-order walk (0 side first) is that
// order.  Nodes sit in one vector and name their children by position, 32 bytes each.
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

  uint32_t make(const uint8_t *key, unsigned bits, bool has, uint32_t value);
  void release(uint32_t n);
  uint32_t next_in(uint32_t n, const uint8_t *key, unsigned bits) const;
  uint32_t first_in(uint32_t n) const;

  std::vector<Node> nodes_;
  std::vector<uint32_t> free_;
  uint32_t root_ = kNil;
  size_t size_ = 0;
};

}  // namespace tarsim::internal
