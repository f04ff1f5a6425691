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
// is a miss.  So the trie is cut into tiers by prefix length: prefixes of 20 bits or more hang
// from 2^20 roots, one per value of their first 20 bits; those of 16 to 19 bits from 2^16 roots
// by their first 16; the shorter ones from one root.  A walk starts 16 or 20 levels down, and a
// full table's /24s share a root with about one other prefix.  Prefix order across tiers: a
// prefix shorter than a tier's stride s precedes the whole of every root of that tier whose
// index is at least the prefix's first s bits (the rest being zero), and follows the others.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <vector>

namespace tarsim::internal {

// Memory in 2 MiB pages where the system gives them (null if it gives none), for the trie's big
// arrays: a lookup in a table of a million routes touches a few spots in tens of megabytes, and
// with 4 KiB pages each is a miss of the address translation as well as of the cache.  `bytes`
// is rounded up to whole large pages; release with the same count.  The memory reads as zero.
void *large_pages_alloc(size_t bytes);
void large_pages_free(void *p, size_t bytes);

// The node vector's allocator: blocks of 2 MiB and more in large pages, the rest from malloc.
template <typename T>
struct LargePageAllocator {
  using value_type = T;
  static constexpr size_t kLarge = size_t{2} << 20;
  LargePageAllocator() = default;
  template <typename U>
  LargePageAllocator(const LargePageAllocator<U> &) {}
  T *allocate(size_t n) {
    void *p = n * sizeof(T) >= kLarge ? large_pages_alloc(n * sizeof(T)) : malloc(n * sizeof(T));
    if (p == nullptr) abort();
    return static_cast<T *>(p);
  }
  void deallocate(T *p, size_t n) {
    if (n * sizeof(T) >= kLarge)
      large_pages_free(p, n * sizeof(T));
    else
      free(p);
  }
  friend bool operator==(const LargePageAllocator &, const LargePageAllocator &) { return true; }
};

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

  Lpm() = default;
  Lpm(const Lpm &) = delete;
  Lpm &operator=(const Lpm &) = delete;
  ~Lpm();

 private:
  static constexpr uint32_t kNil = UINT32_MAX;
  struct Node {
    uint8_t key[16];  // bits past len are 0
    uint8_t len_lo;   // length 0..128 in len_lo (128 fits a byte)
    uint8_t has;      // whether a prefix ends here (else a branching node)
    uint32_t child[2];
    uint32_t value;
  };

  struct Tier {
    unsigned stride;  // bits that pick a root; a tier holds prefixes of at least that
    uint32_t *roots;  // 2^stride entries, node + 1 (0 for none), allocated on first use
    bool large;       // roots in large pages (a big table), else calloc'ed
    std::vector<uint64_t> occupied;  // one bit per root that holds anything
  };
  static constexpr unsigned kTiers = 3;
  struct RootRef {
    unsigned tier;
    uint32_t index;
  };

  uint32_t put(const uint8_t *key, unsigned bits, uint32_t value, bool replace);
  uint32_t make(const uint8_t *key, unsigned bits, bool has, uint32_t value);
  void release(uint32_t n);
  static unsigned tier_of(unsigned bits);
  RootRef root_of(const uint8_t *key, unsigned bits) const;
  uint32_t root(RootRef r) const;
  void set_root(RootRef r, uint32_t node);
  // The first root of tier `t` at or after `index` that holds anything, or UINT32_MAX.
  uint32_t next_root(unsigned t, uint32_t index) const;
  // Node positions, not values.
  uint32_t next_in(uint32_t n, const uint8_t *key, unsigned bits) const;
  uint32_t first_in(uint32_t n) const;
  uint32_t next_node(const uint8_t *key, unsigned bits) const;

  std::vector<uint32_t> free_;
  // Moves the roots of a table that has grown big into large pages.
  void enlarge_roots();
  void free_roots(Tier &t);

  std::vector<Node, LargePageAllocator<Node>> nodes_;
  Tier tiers_[kTiers] = {
      {20, nullptr, false, {}}, {16, nullptr, false, {}}, {0, nullptr, false, {}}};
  size_t size_ = 0;
};

}  // namespace tarsim::internal
