// Random records of every schema type: encode, decode, compare; every buffer length writes
// nothing past the length and returns the same size; the decoders' allocations all come back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "codec_test_util.h"
#include "idl/engine.h"

namespace codec_test {
namespace {

using tlk::idl::Record;

// Under the sanitizers each round costs ten times as much; they look for memory faults, which
// a few rounds of every type show as well as sixty, and the plain build runs them all.
#if defined(__SANITIZE_ADDRESS__)
#define TLK_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TLK_SANITIZED 1
#endif
#endif
#ifdef TLK_SANITIZED
constexpr int kRounds = 12, kEveryLengthRounds = 2, kCompiledRounds = 1;
#else
constexpr int kRounds = 60, kEveryLengthRounds = 8, kCompiledRounds = 3;
#endif

class EveryType : public ::testing::TestWithParam<const Record *> {};

std::string type_name(const ::testing::TestParamInfo<const Record *> &info) {
  return info.param->name;
}

// The three ways a record travels: IDR, TLV with every field, TLV under a presence map.
enum class Form { kIdr, kTlv, kTlvMap };
const char *form_name(Form f) {
  return f == Form::kIdr ? "idr" : f == Form::kTlv ? "tlv" : "tlv+map";
}

struct Codec {
  const Record &r;
  Form form;
  template <typename P>
  P map_or_null(P map) const {
    return form == Form::kTlvMap ? map : nullptr;
  }
  uint32_t encode(const void *rec, const void *map, uint8_t *p, uint32_t n) const {
    if (form == Form::kIdr) return tlk::idl::idr_encode(r, rec, p, n);
    return tlk::idl::tlv_encode(r, rec, map_or_null(map), p, n);
  }
  int32_t decode(void *rec, void *map, const uint8_t *p, uint32_t n, Heap &heap) const {
    if (form == Form::kIdr) return tlk::idl::idr_decode(r, rec, p, n, Heap::alloc, &heap);
    return tlk::idl::tlv_decode(r, rec, map, p, n, Heap::alloc, &heap);
  }
  void release(void *rec, void *map, Heap &heap) const {
    if (form == Form::kIdr) return tlk::idl::idr_release(r, rec, Heap::release, &heap);
    tlk::idl::tlv_release(r, rec, map, Heap::release, &heap);
  }
  // sockaddr_idl comes back with a rebuilt flat address, which its encoder would take apart
  // afresh; the random choice is re-encoded as it stands instead.
  uint32_t reencode(std::vector<uint8_t> rec, const void *map, uint8_t *p, uint32_t n) const {
    if (r.hooks != nullptr) {
      void *none = nullptr;
      std::memcpy(rec.data() + offsetof(sockaddr_idl, sai_addr), &none, sizeof none);
    }
    return encode(rec.data(), map, p, n);
  }
};

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
void check_every_length(const Bytes &full, Enc enc) {
  const uint32_t size = len32(full);
  Bytes buf(size + 16);
  for (uint32_t len = 0; len <= size; ++len) {
    std::fill(buf.begin(), buf.end(), 0xA5);
    ASSERT_EQ(enc(buf.data(), len), size) << "at length " << len;
    for (uint32_t i = len; i < buf.size(); ++i)
      ASSERT_EQ(buf[i], 0xA5) << "byte " << i << " written at length " << len;
    for (uint32_t i = 0; i < len; ++i) {
      ASSERT_TRUE(buf[i] == full[i] || buf[i] == 0xA5)
          << "byte " << i << " differs at length " << len;
    }
  }
}

// Random records in each form: decoded whole and equal, re-encoded to the same bytes, released
// whole; and encoded at every buffer length.
TEST_P(EveryType, RoundTripInEachForm) {
  const Record &r = *GetParam();
  for (Form form : {Form::kIdr, Form::kTlv, Form::kTlvMap}) {
    if (form == Form::kIdr && !r.has_idr) continue;
    SCOPED_TRACE(form_name(form));
    const Codec codec{r, form};
    std::mt19937 rng(form == Form::kIdr ? 1234 : form == Form::kTlv ? 99 : 7);
    for (int round = 0; round < kRounds; ++round) {
      SCOPED_TRACE(round);
      Pool pool;
      // The decoder clears what it decodes into: `back` starts poisoned.
      std::vector<uint8_t> rec(r.size), back(r.size, 0xCD), map(r.map_size),
          got_map(r.map_size, 0xCD);
      fill_random(r, rec.data(), codec.map_or_null(map.data()), rng, pool);
      const void *sent_map = codec.map_or_null(map.data());
      Bytes full =
          encode([&](uint8_t *p, uint32_t n) { return codec.encode(rec.data(), sent_map, p, n); });
      ASSERT_EQ(full.size() % 4, 0u);
      Heap heap;
      ASSERT_EQ(codec.decode(back.data(), codec.map_or_null(got_map.data()), full.data(),
                             len32(full), heap),
                static_cast<int32_t>(full.size()));
      ASSERT_EQ(compare(r, rec.data(), back.data(), sent_map), "");
      if (r.flat != nullptr) {
        // A plain record holds no pointers: decoded into a poisoned record, it is the same bytes,
        // pads included, as decoded into a cleared one.
        std::vector<uint8_t> clear(r.size);
        Heap h0;
        ASSERT_GE(codec.decode(clear.data(), nullptr, full.data(), len32(full), h0), 0);
        ASSERT_EQ(clear, back);
      }
      if (form == Form::kTlvMap) {
        ASSERT_EQ(compare_maps(r, rec.data(), map.data(), got_map.data()), "");
      }
      // The decoded record (under the decoded map) encodes to the same bytes.
      if (form != Form::kTlv && (r.hooks != nullptr || !holds_flat_addresses(r))) {
        const void *back_map = codec.map_or_null(got_map.data());
        ASSERT_EQ(
            encode([&](uint8_t *p, uint32_t n) { return codec.reencode(back, back_map, p, n); }),
            full);
      }
      // A shorter IDR input never passes for the whole: refused, or consumed short (a choice
      // that lacks its head counts 0), which the frame's exact-length check then refuses.
      if (form == Form::kIdr && !full.empty() && r.choice == nullptr && r.hooks == nullptr) {
        std::vector<uint8_t> tmp(r.size);
        Heap h2;
        ASSERT_LT(codec.decode(tmp.data(), nullptr, full.data(), len32(full) - 1, h2),
                  static_cast<int32_t>(full.size()) - 1);
      }
      codec.release(back.data(), codec.map_or_null(got_map.data()), heap);
      ASSERT_EQ(heap.live(), 0u);
      if (round < kEveryLengthRounds)
        check_every_length(
            full, [&](uint8_t *p, uint32_t n) { return codec.encode(rec.data(), sent_map, p, n); });
    }
  }
}

// Every allocation of a decode, made to fail in turn, gives -2 and never anything worse.
TEST_P(EveryType, EachAllocationFailureIsMinusTwo) {
  const Record &r = *GetParam();
  const Codec codec{r, Form::kTlvMap};
  std::mt19937 rng(5);
  Pool pool;
  std::vector<uint8_t> rec(r.size), back(r.size), map(r.map_size), got(r.map_size);
  fill_random(r, rec.data(), map.data(), rng, pool);
  Bytes full =
      encode([&](uint8_t *p, uint32_t n) { return codec.encode(rec.data(), map.data(), p, n); });
  Heap count;
  ASSERT_GE(codec.decode(back.data(), got.data(), full.data(), len32(full), count), 0);
  codec.release(back.data(), got.data(), count);
  for (size_t k = 0; k < count.calls(); ++k) {
    Heap heap;
    heap.fail_from(k);
    EXPECT_EQ(codec.decode(back.data(), got.data(), full.data(), len32(full), heap), -2)
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
  for (Form form : {Form::kTlv, Form::kIdr}) {
    if (form == Form::kIdr && !r.has_idr) break;
    const Codec codec{r, form};
    Bytes full =
        encode([&](uint8_t *p, uint32_t n) { return codec.encode(rec.data(), nullptr, p, n); });
    for (uint32_t len = 0; len < full.size(); ++len) {
      Bytes cut(full.begin(), full.begin() + len);  // exact-size copy: any over-read is caught
      Heap heap;
      const int32_t rc = codec.decode(back.data(), nullptr, cut.data(), len, heap);
      ASSERT_LE(rc, static_cast<int32_t>(len));
      ASSERT_GE(rc, -3);
    }
  }
}

// A composite record's compiled codecs take the interpreter's steps: the same size and bytes at
// every buffer length; the same result, record and map from every cut of the image and from
// images with a byte changed (which also sends items out of order, repeated or unknown).
class CompositeType : public ::testing::TestWithParam<const Record *> {};

std::vector<const Record *> composite_records() {
  std::vector<const Record *> out;
  for (const Record *r : all_records())
    if (r->idr_put != nullptr || r->tlv_get != nullptr) out.push_back(r);
  return out;
}

TEST_P(CompositeType, CompiledCodecsAreTheInterpreter) {
  const Record &r = *GetParam();
  Record interp = r;
  interp.idr_put = nullptr;
  interp.idr_get = nullptr;
  interp.tlv_get = nullptr;
  std::mt19937 rng(21);
  for (Form form : {Form::kIdr, Form::kTlv, Form::kTlvMap}) {
    if (form == Form::kIdr ? r.idr_put == nullptr : r.tlv_get == nullptr) continue;
    SCOPED_TRACE(form_name(form));
    const Codec compiled{r, form}, interpreted{interp, form};
    auto same_decode = [&](const Bytes &in, uint32_t len) {
      const Bytes cut(in.begin(), in.begin() + len);  // exact size: any over-read is caught
      std::vector<uint8_t> a(r.size, 0xCD), b(r.size, 0xCD), ma(r.map_size, 0xCD),
          mb(r.map_size, 0xCD);
      Heap ha, hb;
      const int32_t rc =
          compiled.decode(a.data(), compiled.map_or_null(ma.data()), cut.data(), len, ha);
      ASSERT_EQ(rc,
                interpreted.decode(b.data(), compiled.map_or_null(mb.data()), cut.data(), len, hb))
          << "at length " << len << ": " << hex(cut.data(), cut.size());
      if (rc >= 0) {
        ASSERT_EQ(compare(r, a.data(), b.data(), nullptr), "") << "at length " << len;
        // The maps hold pointers to element maps: compared through what they send.
        const void *pa = compiled.map_or_null(ma.data()), *pb = compiled.map_or_null(mb.data());
        ASSERT_EQ(
            encode([&](uint8_t *p, uint32_t n) { return interpreted.encode(a.data(), pa, p, n); }),
            encode([&](uint8_t *p, uint32_t n) { return interpreted.encode(b.data(), pb, p, n); }))
            << "at length " << len;
      }
    };
    for (int round = 0; round < kCompiledRounds; ++round) {
      SCOPED_TRACE(round);
      Pool pool;
      std::vector<uint8_t> rec(r.size), map(r.map_size);
      fill_random(r, rec.data(), compiled.map_or_null(map.data()), rng, pool);
      Bytes full = encode(
          [&](uint8_t *p, uint32_t n) { return interpreted.encode(rec.data(), map.data(), p, n); });
      const auto size = len32(full);
      Bytes got(size + 8), want(size + 8);
      // Every length of a small image; about 64 cuts at random strides of a large one, and the
      // whole.
      for (uint32_t len = 0; len <= size;
           len = len == size
                     ? size + 1
                     : std::min(size, len + 1 + static_cast<uint32_t>(rng() % (size / 32 + 1)))) {
        if (form == Form::kIdr) {
          std::fill(got.begin(), got.end(), 0xA5);
          std::fill(want.begin(), want.end(), 0xA5);
          ASSERT_EQ(compiled.encode(rec.data(), nullptr, got.data(), len), size);
          ASSERT_EQ(interpreted.encode(rec.data(), nullptr, want.data(), len), size);
          ASSERT_EQ(got, want) << "at length " << len;
        }
        ASSERT_NO_FATAL_FAILURE(same_decode(full, len));
      }
      for (int k = 0; k < 8 && size != 0; ++k) {
        full[rng() % size] = static_cast<uint8_t>(rng());
        ASSERT_NO_FATAL_FAILURE(same_decode(full, size));
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Schema, EveryType, ::testing::ValuesIn(all_records()), type_name);
INSTANTIATE_TEST_SUITE_P(Schema, CompositeType, ::testing::ValuesIn(composite_records()),
                         type_name);

}  // namespace
}  // namespace codec_test
