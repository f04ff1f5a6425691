// The route store's trie; see lpm.h.
#include "lpm.h"

#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>

namespace tarsim::internal {
namespace {

unsigned bit(const uint8_t *key, unsigned i) {
  return (key[i >> 3] >> (7 - (i & 7))) & 1u;
}

// The number of leading bits that a and b share, at most `limit`.
unsigned common(const uint8_t *a, const uint8_t *b, unsigned limit) {
  for (unsigned i = 0; i < limit; i += 8) {
    const unsigned diff = static_cast<unsigned>(a[i >> 3] ^ b[i >> 3]);
    if (diff != 0) {
      const unsigned lead = static_cast<unsigned>(__builtin_clz(diff)) - 24;
      return std::min(limit, i + lead);
    }
  }
  return limit;
}

// The key's first `bits` bits, the rest cleared.
void masked(uint8_t out[16], const uint8_t *key, unsigned bits) {
  memset(out, 0, 16);
  const unsigned whole = bits / 8;
  memcpy(out, key, whole + (bits % 8 != 0 ? 1 : 0));
  if (bits % 8 != 0) out[whole] &= static_cast<uint8_t>(0xFF << (8 - bits % 8));
}

constexpr size_t kLargePage = size_t{2} << 20;

size_t whole_large_pages(size_t bytes) {
  return (bytes + kLargePage - 1) / kLargePage * kLargePage;
}

// A table this big moves its roots into large pages; smaller ones keep their sparse, lazily
// touched small pages (a large page of roots costs 2 MiB however few routes it holds).
constexpr size_t kLargeTable = 65536;

}  // namespace

void *large_pages_alloc(size_t bytes) {
  const size_t len = whole_large_pages(bytes);
  // One large page more than asked, then the ends cut off, for a start on a 2 MiB boundary.
  void *raw =
      mmap(nullptr, len + kLargePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const uintptr_t base = reinterpret_cast<uintptr_t>(raw);
  const uintptr_t start = (base + kLargePage - 1) / kLargePage * kLargePage;
  if (start > base) munmap(raw, start - base);
  const size_t tail = kLargePage - (start - base);
  if (tail > 0) munmap(reinterpret_cast<void *>(start + len), tail);
  void *p = reinterpret_cast<void *>(start);
  madvise(p, len, MADV_HUGEPAGE);  // a hint: without it the pages are small, and still right
  return p;
}

void large_pages_free(void *p, size_t bytes) {
  if (p != nullptr) munmap(p, whole_large_pages(bytes));
}

void Lpm::free_roots(Tier &t) {
  if (t.large)
    large_pages_free(t.roots, (size_t{1} << t.stride) * sizeof(uint32_t));
  else
    free(t.roots);
  t.roots = nullptr;
  t.large = false;
}

void Lpm::enlarge_roots() {
  for (Tier &t : tiers_) {
    const size_t bytes = (size_t{1} << t.stride) * sizeof(uint32_t);
    if (t.roots == nullptr || t.large || bytes < kLargePage) continue;
    auto *moved = static_cast<uint32_t *>(large_pages_alloc(bytes));
    if (moved == nullptr) continue;  // stays in small pages
    memcpy(moved, t.roots, bytes);
    free(t.roots);
    t.roots = moved;
    t.large = true;
  }
}

uint32_t Lpm::make(const uint8_t *key, unsigned bits, bool has, uint32_t value) {
  Node n{};
  masked(n.key, key, bits);
  n.len_lo = static_cast<uint8_t>(bits);
  n.has = has ? 1 : 0;
  n.child[0] = n.child[1] = kNil;
  n.value = value;
  if (!free_.empty()) {
    const uint32_t at = free_.back();
    free_.pop_back();
    nodes_[at] = n;
    return at;
  }
  nodes_.push_back(n);
  return static_cast<uint32_t>(nodes_.size() - 1);
}

void Lpm::release(uint32_t n) {
  free_.push_back(n);
}

Lpm::~Lpm() {
  for (Tier &t : tiers_) free_roots(t);
}

void Lpm::clear() {
  nodes_.clear();
  free_.clear();
  for (Tier &t : tiers_) {
    free_roots(t);
    t.occupied.clear();
  }
  size_ = 0;
}

unsigned Lpm::tier_of(unsigned bits) {
  return bits >= 20 ? 0 : bits >= 16 ? 1 : 2;
}

Lpm::RootRef Lpm::root_of(const uint8_t *key, unsigned bits) const {
  const unsigned t = tier_of(bits);
  const unsigned stride = tiers_[t].stride;
  if (stride == 0) return {t, 0};
  const uint32_t first24 = uint32_t{key[0]} << 16 | uint32_t{key[1]} << 8 | key[2];
  return {t, first24 >> (24 - stride)};
}

uint32_t Lpm::root(RootRef r) const {
  const uint32_t *roots = tiers_[r.tier].roots;
  return roots == nullptr ? kNil : roots[r.index] - 1;
}

void Lpm::set_root(RootRef r, uint32_t node) {
  Tier &t = tiers_[r.tier];
  if (t.roots == nullptr) {
    // Zero pages from the system: a table that never uses most roots never touches them.
    const size_t n = size_t{1} << t.stride;
    const bool large = size_ >= kLargeTable && n * sizeof(uint32_t) >= kLargePage;
    t.roots = large ? static_cast<uint32_t *>(large_pages_alloc(n * sizeof(uint32_t))) : nullptr;
    t.large = t.roots != nullptr;
    if (t.roots == nullptr) t.roots = static_cast<uint32_t *>(calloc(n, sizeof(uint32_t)));
    if (t.roots == nullptr) abort();
    t.occupied.assign((n + 63) / 64, 0);
  }
  t.roots[r.index] = node + 1;
  const uint64_t b = uint64_t{1} << (r.index % 64);
  if (node == kNil)
    t.occupied[r.index / 64] &= ~b;
  else
    t.occupied[r.index / 64] |= b;
}

uint32_t Lpm::next_root(unsigned tier, uint32_t index) const {
  const Tier &t = tiers_[tier];
  for (uint32_t w = index / 64; w < t.occupied.size(); ++w) {
    uint64_t bits = t.occupied[w];
    if (w == index / 64) bits &= ~uint64_t{0} << (index % 64);
    if (bits != 0) return w * 64 + static_cast<uint32_t>(__builtin_ctzll(bits));
  }
  return UINT32_MAX;
}

bool Lpm::insert(const uint8_t *in, unsigned bits, uint32_t value) {
  return put(in, bits, value, true) == kNone;
}

uint32_t Lpm::emplace(const uint8_t *in, unsigned bits, uint32_t value) {
  return put(in, bits, value, false);
}

uint32_t Lpm::put(const uint8_t *in, unsigned bits, uint32_t value, bool replace) {
  uint8_t k[16];
  bits = std::min(bits, kMaxBits);
  masked(k, in, bits);
  const RootRef r = root_of(k, bits);
  uint32_t parent = kNil;
  unsigned side = 0;
  auto link = [&](uint32_t to) {
    if (parent == kNil)
      set_root(r, to);
    else
      nodes_[parent].child[side] = to;
  };
  uint32_t n = root(r);
  for (;;) {
    if (n == kNil) {
      link(make(k, bits, true, value));
      if (++size_ == kLargeTable) enlarge_roots();
      return kNone;
    }
    const unsigned nl = nodes_[n].len_lo;
    const unsigned c = common(nodes_[n].key, k, std::min(nl, bits));
    if (c == nl && c == bits) {
      Node &nd = nodes_[n];
      if (nd.has != 0) {
        const uint32_t old = nd.value;
        if (replace) nd.value = value;
        return old;
      }
      nd.has = 1;
      nd.value = value;
      if (++size_ == kLargeTable) enlarge_roots();
      return kNone;
    }
    if (c == nl) {  // the node's prefix covers the key: go down
      parent = n;
      side = bit(k, nl);
      n = nodes_[n].child[side];
      continue;
    }
    if (c == bits) {  // the key covers the node: it goes above
      const uint32_t m = make(k, bits, true, value);
      nodes_[m].child[bit(nodes_[n].key, bits)] = n;
      link(m);
    } else {  // they part at bit c: a branching node above both
      const uint32_t g = make(k, c, false, 0);
      const uint32_t leaf = make(k, bits, true, value);
      nodes_[g].child[bit(k, c)] = leaf;
      nodes_[g].child[bit(nodes_[n].key, c)] = n;
      link(g);
    }
    if (++size_ == kLargeTable) enlarge_roots();
    return kNone;
  }
}

uint32_t Lpm::erase(const uint8_t *in, unsigned bits) {
  uint8_t k[16];
  bits = std::min(bits, kMaxBits);
  masked(k, in, bits);
  const RootRef r = root_of(k, bits);
  uint32_t gp = kNil, p = kNil, n = root(r);
  unsigned gpside = 0, pside = 0;
  while (n != kNil) {
    const unsigned nl = nodes_[n].len_lo;
    if (nl > bits || common(nodes_[n].key, k, nl) < nl) return kNone;
    if (nl == bits) break;
    gp = p;
    gpside = pside;
    p = n;
    pside = bit(k, nl);
    n = nodes_[n].child[pside];
  }
  if (n == kNil || nodes_[n].has == 0) return kNone;
  auto link = [&](uint32_t parent, unsigned side, uint32_t to) {
    if (parent == kNil)
      set_root(r, to);
    else
      nodes_[parent].child[side] = to;
  };
  Node &nd = nodes_[n];
  const uint32_t value = nd.value;
  nd.has = 0;
  --size_;
  const uint32_t c0 = nd.child[0], c1 = nd.child[1];
  if (c0 != kNil && c1 != kNil) return value;  // it stays as a branching node
  if (c0 != kNil || c1 != kNil) {
    link(p, pside, c0 != kNil ? c0 : c1);
    release(n);
    return value;
  }
  link(p, pside, kNil);
  release(n);
  // A branching parent left with one child gives way to it.
  if (p != kNil && nodes_[p].has == 0) {
    const uint32_t only = nodes_[p].child[0] != kNil ? nodes_[p].child[0] : nodes_[p].child[1];
    link(gp, gpside, only);
    release(p);
  }
  return value;
}

uint32_t Lpm::find(const uint8_t *in, unsigned bits) const {
  uint8_t k[16];
  bits = std::min(bits, kMaxBits);
  masked(k, in, bits);
  for (uint32_t n = root(root_of(k, bits)); n != kNil;) {
    const Node &nd = nodes_[n];
    const unsigned nl = nd.len_lo;
    if (nl > bits || common(nd.key, k, nl) < nl) return kNone;
    if (nl == bits) return nd.has ? nd.value : kNone;
    n = nd.child[bit(k, nl)];
  }
  return kNone;
}

uint32_t Lpm::longest_match(const uint8_t *in, unsigned bits) const {
  uint8_t k[16];
  bits = std::min(bits, kMaxBits);
  masked(k, in, bits);
  auto in_root = [&](uint32_t n) {
    uint32_t best = kNone;
    while (n != kNil) {
      const Node &nd = nodes_[n];
      const unsigned nl = nd.len_lo;
      if (nl > bits || common(nd.key, k, nl) < nl) break;
      if (nd.has) best = nd.value;
      if (nl == bits) break;
      n = nd.child[bit(k, nl)];
    }
    return best;
  };
  // A match in a tier of longer prefixes is longer than any in the tiers after it.
  for (unsigned t = tier_of(bits); t < kTiers; ++t) {
    const uint32_t best = in_root(root(root_of(k, tiers_[t].stride)));
    if (best != kNone) return best;
  }
  return kNone;
}

uint32_t Lpm::first_in(uint32_t n) const {
  while (n != kNil) {
    const Node &nd = nodes_[n];
    if (nd.has) return n;
    // A branching node has both children; the 0 side holds the first prefix.
    n = nd.child[0] != kNil ? nd.child[0] : nd.child[1];
  }
  return kNil;
}

uint32_t Lpm::next_in(uint32_t n, const uint8_t *k, unsigned bits) const {
  if (n == kNil) return kNil;
  const Node &nd = nodes_[n];
  const unsigned nl = nd.len_lo;
  const unsigned c = common(nd.key, k, std::min(nl, bits));
  if (c < nl && c < bits) {  // they part at bit c: the whole subtree lies on one side
    return bit(nd.key, c) > bit(k, c) ? first_in(n) : kNil;
  }
  if (c == bits && bits < nl) return first_in(n);  // the key covers the whole subtree
  // The node's prefix covers the key (or is it): the node itself comes before the key.
  if (nl == bits) {
    const uint32_t r = first_in(nd.child[0]);
    return r != kNil ? r : first_in(nd.child[1]);
  }
  const unsigned b = bit(k, nl);
  const uint32_t r = next_in(nd.child[b], k, bits);
  if (r != kNil || b == 1) return r;
  return first_in(nd.child[1]);
}

uint32_t Lpm::next_node(const uint8_t *k, unsigned bits) const {
  // Each tier's first prefix after the key, the least of them wins.  Within a tier: the rest of
  // the key's own root, when the key is long enough to have one, then the roots after it; a key
  // shorter than the stride precedes the whole of the root of its first bits.
  uint32_t best = kNil;
  for (unsigned t = 0; t < kTiers; ++t) {
    const Tier &tier = tiers_[t];
    uint32_t n = kNil;
    const RootRef own = root_of(k, tier.stride);
    uint32_t from = own.index;
    if (bits >= tier.stride) {
      n = next_in(root(own), k, bits);
      ++from;
    }
    while (n == kNil) {
      if (tier.stride == 0) break;
      from = next_root(t, from);
      if (from == UINT32_MAX) break;
      n = first_in(root({t, from}));
      ++from;
    }
    if (n == kNil) continue;
    if (best == kNil) {
      best = n;
      continue;
    }
    const Node &a = nodes_[n], &b = nodes_[best];
    const int order = memcmp(a.key, b.key, sizeof a.key);
    if (order < 0 || (order == 0 && a.len_lo < b.len_lo)) best = n;
  }
  return best;
}

uint32_t Lpm::next(const uint8_t *in, unsigned bits) const {
  uint8_t k[16];
  bits = std::min(bits, kMaxBits);
  masked(k, in, bits);
  const uint32_t n = next_node(k, bits);
  return n == kNil ? kNone : nodes_[n].value;
}

void Lpm::walk(void (*fn)(uint32_t value, void *arg), void *arg) const {
  // Successor by successor: the default route, if any, comes first.
  const uint8_t zero[16] = {};
  const uint32_t first = find(zero, 0);
  if (first != kNone) fn(first, arg);
  for (uint32_t n = next_node(zero, 0); n != kNil;) {
    const Node &nd = nodes_[n];
    fn(nd.value, arg);
    n = next_node(nd.key, nd.len_lo);
  }
}

}  // namespace tarsim::internal
