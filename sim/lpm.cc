// The route store's trie; see lpm.h.
#include "lpm.h"

#include <string.h>

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

}  // namespace

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

void Lpm::clear() {
  nodes_.clear();
  free_.clear();
  roots_.clear();
  occupied_.clear();
  size_ = 0;
}

void Lpm::set_root(uint32_t r, uint32_t node) {
  if (roots_.empty()) {
    roots_.assign(kRoots, kNil);
    occupied_.assign(kShort / 64, 0);
  }
  roots_[r] = node;
  if (r == kShort) return;
  const uint64_t b = uint64_t{1} << (r % 64);
  if (node == kNil)
    occupied_[r / 64] &= ~b;
  else
    occupied_[r / 64] |= b;
}

uint32_t Lpm::next_root(uint32_t t) const {
  if (occupied_.empty()) return kShort;
  for (uint32_t w = t / 64; w < occupied_.size(); ++w) {
    uint64_t bits = occupied_[w];
    if (w == t / 64) bits &= ~uint64_t{0} << (t % 64);
    if (bits != 0) return w * 64 + static_cast<uint32_t>(__builtin_ctzll(bits));
  }
  return kShort;
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
  const uint32_t r = root_of(k, bits);
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
      ++size_;
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
      ++size_;
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
    ++size_;
    return kNone;
  }
}

uint32_t Lpm::erase(const uint8_t *in, unsigned bits) {
  uint8_t k[16];
  bits = std::min(bits, kMaxBits);
  masked(k, in, bits);
  const uint32_t r = root_of(k, bits);
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
  // Any match under a long root is longer than every short prefix.
  if (bits >= kStride) {
    const uint32_t best = in_root(root(root_of(k, bits)));
    if (best != kNone) return best;
  }
  return in_root(root(kShort));
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

uint32_t Lpm::next(const uint8_t *in, unsigned bits) const {
  uint8_t k[16];
  bits = std::min(bits, kMaxBits);
  masked(k, in, bits);
  const uint32_t short_next = next_in(root(kShort), k, bits);
  // Under the long roots: the rest of the key's own root, then the roots after it.  A short key
  // comes before all of its root, as its 16 bits are those of its root's first prefixes.
  uint32_t long_next = kNil;
  uint32_t t = uint32_t{k[0]} << 8 | k[1];
  if (bits >= kStride) {
    long_next = next_in(root(t), k, bits);
    ++t;
  }
  while (long_next == kNil && t < kShort) {
    t = next_root(t);
    if (t == kShort) break;
    long_next = first_in(roots_[t]);
    ++t;
  }
  if (short_next == kNil || long_next == kNil) {
    const uint32_t n = short_next != kNil ? short_next : long_next;
    return n == kNil ? kNone : nodes_[n].value;
  }
  const Node &a = nodes_[short_next], &b = nodes_[long_next];
  const int order = memcmp(a.key, b.key, sizeof a.key);
  const bool short_first = order < 0 || (order == 0 && a.len_lo < b.len_lo);
  return short_first ? a.value : b.value;
}

void Lpm::walk_root(uint32_t n, void (*fn)(uint32_t value, void *arg), void *arg,
                    std::vector<uint32_t> &stack) const {
  if (n != kNil) stack.push_back(n);
  while (!stack.empty()) {
    const Node &nd = nodes_[stack.back()];
    stack.pop_back();
    if (nd.has) fn(nd.value, arg);
    if (nd.child[1] != kNil) stack.push_back(nd.child[1]);
    if (nd.child[0] != kNil) stack.push_back(nd.child[0]);
  }
}

void Lpm::walk(void (*fn)(uint32_t value, void *arg), void *arg) const {
  if (roots_.empty()) return;
  std::vector<uint32_t> stack;
  uint32_t t = next_root(0);
  // The short prefixes in order, each after the long roots that come before it.
  if (roots_[kShort] != kNil) stack.push_back(roots_[kShort]);
  while (!stack.empty()) {
    const Node &nd = nodes_[stack.back()];
    stack.pop_back();
    if (nd.has) {
      const uint32_t first16 = uint32_t{nd.key[0]} << 8 | nd.key[1];
      std::vector<uint32_t> inner;
      for (; t < first16; t = next_root(t + 1)) walk_root(roots_[t], fn, arg, inner);
      fn(nd.value, arg);
    }
    if (nd.child[1] != kNil) stack.push_back(nd.child[1]);
    if (nd.child[0] != kNil) stack.push_back(nd.child[0]);
  }
  for (; t < kShort; t = next_root(t + 1)) walk_root(roots_[t], fn, arg, stack);
}

}  // namespace tarsim::internal
