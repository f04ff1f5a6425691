// Random records of every schema type: encode, decode, compare; every buffer length writes
// nothing past the length and returns the same size; the decoders' allocations all come back.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>

#include "codec_test_util.h"
#include "idl/engine.h"

namespace codec_test {
namespace {

using tlk::idl::Record;

constexpr int kRounds = 60;

class EveryType : public ::testing::TestWithParam<const Record *> {};

std::string type_name(const ::testing::TestParamInfo<const Record *> &info) { return info.param->name; }

// sockaddr_idl comes back with a rebuilt flat address, which its encoder would take apart
// afresh; the random choice is re-encoded as it stands instead.
void *without_flat_address(const Record &r, std::vector<uint8_t> &rec, std::vector<uint8_t> &copy) {
  copy = rec;
  if (r.hooks != nullptr) {
    void *none = nullptr;
    std::memcpy(copy.data() + offsetof(sockaddr_idl, sai_addr), &none, sizeof none);
  }
  return copy.data();
}
uint32_t reencode_idr(const Record &r, std::vector<uint8_t> &rec, uint8_t *p, uint32_t n) {
  std::vector<uint8_t> copy;
  return tlk::idl::idr_encode(r, without_flat_address(r, rec, copy), p, n);
}
uint32_t reencode_tlv(const Record &r, std::vector<uint8_t> &rec, const void *map, uint8_t *p, uint32_t n) {
  std::vector<uint8_t> copy;
  return tlk::idl::tlv_encode(r, without_flat_address(r, rec, copy), map, p, n);
}

// Whether a record holds sockaddr_idl anywhere: such records come back with rebuilt flat
// addresses, which re-encode from the flat form rather than from the random choice.
bool holds_flat_addresses(const Record &r) {
  if (r.hooks != nullptr) return true;
  if (r.choice != nullptr) {
    for (uint32_t i = 0; i < r.choice->narms; ++i) {
      if (r.choice->arms[i].rec != &r && holds_flat_addresses(*r.choice->arms[i].rec)) return true;
    }
    return false;
  }
  for (uint16_t i = 0; i < r.nfields; ++i) {
    if (r.fields[i].sub != nullptr && holds_flat_addresses(*r.fields[i].sub)) return true;
  }
  return false;
}

// Encodes at every length from 0 to the full size into a guarded buffer.
template <typename Enc>
void check_every_length(const Bytes &full, Enc enc, const std::string &what) {
  const uint32_t size = len32(full);
  Bytes buf(size + 16);
  for (uint32_t len = 0; len <= size; ++len) {
    std::fill(buf.begin(), buf.end(), 0xA5);
    ASSERT_EQ(enc(buf.data(), len), size) << what << " at length " << len;
    for (uint32_t i = len; i < buf.size(); ++i) ASSERT_EQ(buf[i], 0xA5) << what << ": byte " << i << " written at length " << len;
    for (uint32_t i = 0; i < len; ++i) {
      ASSERT_TRUE(buf[i] == full[i] || buf[i] == 0xA5) << what << ": byte " << i << " differs at length " << len;
    }
  }
}

TEST_P(EveryType, IdrRoundTrip) {
  const Record &r = *GetParam();
  if (!r.has_idr) GTEST_SKIP() << "TLV only";
  std::mt19937 rng(1234);
  for (int round = 0; round < kRounds; ++round) {
    Pool pool;
    std::vector<uint8_t> rec(r.size), back(r.size);
    fill_random(r, rec.data(), nullptr, rng, pool);
    Bytes full = encode([&](uint8_t *p, uint32_t n) { return tlk::idl::idr_encode(r, rec.data(), p, n); });
    ASSERT_EQ(full.size() % 4, 0u);
    Heap heap;
    ASSERT_EQ(tlk::idl::idr_decode(r, back.data(), full.data(), len32(full), Heap::alloc, &heap),
              static_cast<int32_t>(full.size()))
        << "round " << round;
    ASSERT_EQ(compare(r, rec.data(), back.data(), nullptr), "") << "round " << round;
    // Re-encoding the decoded record gives the same bytes.
    if (r.hooks != nullptr || !holds_flat_addresses(r)) {
      Bytes again = encode([&](uint8_t *p, uint32_t n) { return reencode_idr(r, back, p, n); });
      ASSERT_EQ(again, full);
    }
    // A shorter input never passes for the whole: refused, or consumed short (a choice that
    // lacks its head counts 0), which the frame's exact-length check then refuses.
    if (!full.empty() && r.choice == nullptr && r.hooks == nullptr) {
      std::vector<uint8_t> tmp(r.size);
      Heap h2;
      int32_t rc = tlk::idl::idr_decode(r, tmp.data(), full.data(), len32(full) - 1, Heap::alloc, &h2);
      ASSERT_LT(rc, static_cast<int32_t>(full.size()) - 1) << "round " << round;
    }
    tlk::idl::idr_release(r, back.data(), Heap::release, &heap);
    ASSERT_EQ(heap.live(), 0u);
    if (round < 8) {
      check_every_length(full, [&](uint8_t *p, uint32_t n) { return tlk::idl::idr_encode(r, rec.data(), p, n); }, "idr");
    }
  }
}

TEST_P(EveryType, TlvRoundTripWithoutMap) {
  const Record &r = *GetParam();
  std::mt19937 rng(99);
  for (int round = 0; round < kRounds; ++round) {
    Pool pool;
    std::vector<uint8_t> rec(r.size), back(r.size);
    fill_random(r, rec.data(), nullptr, rng, pool);
    Bytes full = encode([&](uint8_t *p, uint32_t n) { return tlk::idl::tlv_encode(r, rec.data(), nullptr, p, n); });
    ASSERT_EQ(full.size() % 4, 0u);
    Heap heap;
    ASSERT_EQ(tlk::idl::tlv_decode(r, back.data(), nullptr, full.data(), len32(full), Heap::alloc, &heap),
              static_cast<int32_t>(full.size()));
    ASSERT_EQ(compare(r, rec.data(), back.data(), nullptr), "") << "round " << round;
    tlk::idl::tlv_release(r, back.data(), nullptr, Heap::release, &heap);
    ASSERT_EQ(heap.live(), 0u);
    if (round < 8) {
      check_every_length(full, [&](uint8_t *p, uint32_t n) { return tlk::idl::tlv_encode(r, rec.data(), nullptr, p, n); },
                         "tlv");
    }
  }
}

TEST_P(EveryType, TlvRoundTripWithRandomMap) {
  const Record &r = *GetParam();
  std::mt19937 rng(7);
  for (int round = 0; round < kRounds; ++round) {
    Pool pool;
    std::vector<uint8_t> rec(r.size), back(r.size), map(r.map_size), got_map(r.map_size);
    fill_random(r, rec.data(), map.data(), rng, pool);
    Bytes full =
        encode([&](uint8_t *p, uint32_t n) { return tlk::idl::tlv_encode(r, rec.data(), map.data(), p, n); });
    Heap heap;
    ASSERT_EQ(tlk::idl::tlv_decode(r, back.data(), got_map.data(), full.data(), len32(full), Heap::alloc, &heap),
              static_cast<int32_t>(full.size()));
    ASSERT_EQ(compare(r, rec.data(), back.data(), map.data()), "") << "round " << round;
    ASSERT_EQ(compare_maps(r, rec.data(), map.data(), got_map.data()), "") << "round " << round;
    // The decoded record under the decoded map encodes to the same bytes.
    if (r.hooks != nullptr || !holds_flat_addresses(r)) {
      Bytes again = encode([&](uint8_t *p, uint32_t n) { return reencode_tlv(r, back, got_map.data(), p, n); });
      ASSERT_EQ(again, full);
    }
    tlk::idl::tlv_release(r, back.data(), got_map.data(), Heap::release, &heap);
    ASSERT_EQ(heap.live(), 0u);
    if (round < 8) {
      check_every_length(
          full, [&](uint8_t *p, uint32_t n) { return tlk::idl::tlv_encode(r, rec.data(), map.data(), p, n); }, "tlv+map");
    }
  }
}

// Every allocation of a decode, made to fail in turn, gives -2 and never anything worse.
TEST_P(EveryType, EachAllocationFailureIsMinusTwo) {
  const Record &r = *GetParam();
  std::mt19937 rng(5);
  Pool pool;
  std::vector<uint8_t> rec(r.size), back(r.size), map(r.map_size), got(r.map_size);
  fill_random(r, rec.data(), map.data(), rng, pool);
  Bytes full = encode([&](uint8_t *p, uint32_t n) { return tlk::idl::tlv_encode(r, rec.data(), map.data(), p, n); });
  Heap count;
  ASSERT_GE(tlk::idl::tlv_decode(r, back.data(), got.data(), full.data(), len32(full), Heap::alloc, &count), 0);
  tlk::idl::tlv_release(r, back.data(), got.data(), Heap::release, &count);
  for (size_t k = 0; k < count.calls(); ++k) {
    Heap heap;
    heap.fail_from(k);
    EXPECT_EQ(tlk::idl::tlv_decode(r, back.data(), got.data(), full.data(), len32(full), Heap::alloc, &heap), -2)
        << "failing allocation " << k;
  }
}

// Truncating a valid encoding anywhere never reads past the end (ASan watches) and gives a
// defined result.
TEST_P(EveryType, TruncatedInputs) {
  const Record &r = *GetParam();
  std::mt19937 rng(11);
  Pool pool;
  std::vector<uint8_t> rec(r.size), back(r.size);
  fill_random(r, rec.data(), nullptr, rng, pool);
  for (int form = 0; form < 2; ++form) {
    if (form == 1 && !r.has_idr) break;
    Bytes full = form == 0 ? encode([&](uint8_t *p, uint32_t n) { return tlk::idl::tlv_encode(r, rec.data(), nullptr, p, n); })
                           : encode([&](uint8_t *p, uint32_t n) { return tlk::idl::idr_encode(r, rec.data(), p, n); });
    for (uint32_t len = 0; len < full.size(); ++len) {
      Bytes cut(full.begin(), full.begin() + len);  // exact-size copy: any over-read is caught
      Heap heap;
      int32_t rc = form == 0 ? tlk::idl::tlv_decode(r, back.data(), nullptr, cut.data(), len, Heap::alloc, &heap)
                             : tlk::idl::idr_decode(r, back.data(), cut.data(), len, Heap::alloc, &heap);
      ASSERT_LE(rc, static_cast<int32_t>(len));
      ASSERT_GE(rc, -3);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Schema, EveryType, ::testing::ValuesIn(all_records()), type_name);

}  // namespace
}  // namespace codec_test
