// Small helpers shared by the codec test files.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "codec_support.h"

namespace codec_test {

using Bytes = std::vector<uint8_t>;

// Runs an encoder once for the size and once into an exact buffer; both must agree.
template <typename Enc>
Bytes encode(Enc enc) {
  uint32_t n = enc(nullptr, 0);
  Bytes b(n);
  EXPECT_EQ(enc(b.data(), n), n);
  return b;
}

inline Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (auto &p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

// A host-form item: u32 tag, u32 length, value, pad to 4.
inline Bytes host_item(uint32_t tag, const Bytes &value, bool pad = true) {
  Bytes b(8);
  uint32_t len = static_cast<uint32_t>(value.size());
  std::memcpy(b.data(), &tag, 4);
  std::memcpy(b.data() + 4, &len, 4);
  b.insert(b.end(), value.begin(), value.end());
  while (pad && b.size() % 4 != 0) b.push_back(0);
  return b;
}

// A network-form item: u16 tag, u16 length, big-endian.
inline Bytes net_item(uint16_t tag, const Bytes &value) {
  Bytes b = {static_cast<uint8_t>(tag >> 8), static_cast<uint8_t>(tag),
             static_cast<uint8_t>(value.size() >> 8), static_cast<uint8_t>(value.size())};
  b.insert(b.end(), value.begin(), value.end());
  while (b.size() % 4 != 0) b.push_back(0);
  return b;
}

inline Bytes le32(uint32_t v) {
  return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8), static_cast<uint8_t>(v >> 16),
          static_cast<uint8_t>(v >> 24)};
}
inline Bytes le16(uint16_t v) {
  return {static_cast<uint8_t>(v), static_cast<uint8_t>(v >> 8)};
}
inline Bytes le64(uint64_t v) {
  Bytes b(8);
  std::memcpy(b.data(), &v, 8);
  return b;
}

inline uint32_t len32(const Bytes &b) {
  return static_cast<uint32_t>(b.size());
}

}  // namespace codec_test
