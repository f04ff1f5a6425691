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

gencfg_msg *GencfgTest::last_request() {
  return static_cast<gencfg_msg *>(last_framed_request());
}

size_t GencfgTest::requests_seen() const {
  size_t n = 0;
  for (const auto &r : kernel.recorded()) n += r.to_kernel;
  return n;
}

}  // namespace tlktest
