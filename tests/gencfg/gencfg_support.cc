#include "gencfg_support.h"

#include <random>

namespace tlktest {

Bytes text_blob(size_t n, uint32_t seed) {
  static const char *const kWords[] = {"route ", "next-hop ", "family ",  "inet ",  "filter ",
                                       "term ",  "accept ",   "discard ", "count ", "policer "};
  std::mt19937 rng(seed);
  std::string s;
  s.reserve(n + 32);
  for (unsigned line = 0; s.size() < n; ++line) {
    s += "entry " + std::to_string(line) + ": ";
    for (int w = 0; w < 6; ++w) s += kWords[rng() % 10];
    s += "\n";
  }
  s.resize(n);
  return Bytes(s.begin(), s.end());
}

Bytes random_blob(size_t n, uint32_t seed) {
  std::mt19937 rng(seed);
  Bytes b(n);
  for (auto &x : b) x = static_cast<uint8_t>(rng());
  return b;
}

Bytes inflate(const uint8_t *data, size_t len, size_t limit) {
  Bytes out(limit);
  uLongf out_len = limit;
  if (uncompress(out.data(), &out_len, data, len) != Z_OK) return {};
  out.resize(out_len);
  return out;
}

Bytes deflate(const Bytes &data) {
  Bytes out(compressBound(data.size()));
  uLongf out_len = out.size();
  if (compress(out.data(), &out_len, data.data(), data.size()) != Z_OK) return {};
  out.resize(out_len);
  return out;
}

gencfg_t GencfgTest::keyed(uint16_t major, uint16_t minor, const std::string &key) {
  keys_.push_back(key);
  gencfg_t r{};
  r.major = major;
  r.minor = minor;
  r.flags = TLK_GENCFG_KEY;
  r.key = reinterpret_cast<uint8_t *>(keys_.back().data());
  r.key_len = static_cast<uint16_t>(key.size());
  return r;
}

gencfg_t GencfgTest::numbered(uint16_t major, uint16_t minor, uint32_t kid) {
  gencfg_t r{};
  r.major = major;
  r.minor = minor;
  r.flags = TLK_GENCFG_KID;
  r.kid = kid;
  return r;
}

void GencfgTest::add_deps_and_peers(gencfg_t &r) {
  static uint8_t parent[] = {'p', 'a', 'r', 'e', 'n', 't'}, x[] = {'x'};
  deps_[0].dep_type = 1;
  deps_[0].dep_major = 11;
  deps_[0].dep_minor = 12;
  deps_[0].dep_key = parent;
  deps_[0].dep_key_len = sizeof parent;
  deps_[1].dep_type = 2;
  deps_[1].dep_key = x;
  deps_[1].dep_key_len = sizeof x;
  peers_[0].peer_type = 16;
  peers_[0].index.idx.gencfg_type_default.peer_index = 40;
  peers_[1].peer_type = 17;
  peers_[1].index.index_type = 2;
  peers_[1].index.idx.gencfg_type_peer_mask.peer_mask[5] = 0xA5;
  r.flags |= TLK_GENCFG_DEPS;
  r.deps = deps_;
  r.dep_count = 2;
  r.peers = peers_;
  r.peer_count = 2;
}

}  // namespace tlktest
