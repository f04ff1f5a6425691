// A full-table-like set of distinct IPv4 prefixes: mostly /24, then /22-/23, /16-/21 and a few
// /25-/32, in the proportions of a public routing table, from a fixed seed so that every run
// programs the same table.
#pragma once

#include <stdint.h>

#include <random>
#include <unordered_set>
#include <vector>

namespace tlkbench {

struct Prefix4 {
  uint8_t bytes[4];  // network order, host bits zero
  uint8_t plen;
};

inline std::vector<Prefix4> prefix_mix(uint32_t count, uint32_t seed = 20261123) {
  std::mt19937 rng(seed);
  std::uniform_int_distribution<uint32_t> pick(0, 999);
  auto length = [&]() -> uint8_t {
    const uint32_t p = pick(rng);
    if (p < 600) return 24;                                  // 60 %
    if (p < 800) return static_cast<uint8_t>(22 + (p & 1));  // 20 %
    if (p < 950) return static_cast<uint8_t>(16 + (p % 6));  // 15 %
    return static_cast<uint8_t>(25 + (p % 8));               // 5 %
  };
  std::vector<Prefix4> out;
  out.reserve(count);
  std::unordered_set<uint64_t> seen;
  seen.reserve(count * 2);
  while (out.size() < count) {
    const uint8_t plen = length();
    // Unicast space 1.0.0.0 - 223.255.255.255, host bits cleared.
    uint32_t addr = 0x01000000u + static_cast<uint32_t>(rng() % 0xDF000000u);
    addr &= plen == 0 ? 0 : ~0u << (32 - plen);
    if (!seen.insert(uint64_t{addr} << 8 | plen).second) continue;
    out.push_back(Prefix4{
        {uint8_t(addr >> 24), uint8_t(addr >> 16), uint8_t(addr >> 8), uint8_t(addr)}, plen});
  }
  return out;
}

}  // namespace tlkbench
