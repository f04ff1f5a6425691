// Every message record that the frame codecs hold today, through the envelope in both
// encodings: random raw messages become frames and come back field for field.
#include <gtest/gtest.h>

#include <cstring>

#include "codec_test_util.h"
#include "idl/type_catalogue.h"
#include "tarlink.h"

namespace codec_test {
namespace {

using tlk::idl::Record;

constexpr int kRounds = 40;
constexpr size_t kMsglenOffset = offsetof(tlk_hdr, tlkh_msglen);

struct FrameType {
  unsigned type;
  const Record *rec;
};

std::vector<FrameType> frame_types() {
  std::vector<FrameType> out;
  for (unsigned t = 0; t <= 108; ++t) {
    if (const Record *r = tlk::idl::frame_record(t)) out.push_back({t, r});
  }
  return out;
}

class EveryFrameType : public ::testing::TestWithParam<FrameType> {
 protected:
  void SetUp() override { cookie_ = tarvik_cookie_create(); }
  void TearDown() override { tarvik_close(cookie_); }

  // A random raw message of the type; its header names the type, as the encoder expects.
  void make(std::vector<uint8_t> &rec, void *map, std::mt19937 &rng, Pool &pool) {
    const Record &r = *GetParam().rec;
    rec.assign(r.size, 0);
    fill_random(r, rec.data(), map, rng, pool);
    rec[offsetof(tlk_hdr, tlkh_type)] = static_cast<uint8_t>(GetParam().type);
  }

  // The decoded length is the received one: check it, then take it out of the comparison.
  void settle_length(std::vector<uint8_t> &want, void *got, size_t frame_len) {
    uint32_t got_len;
    std::memcpy(&got_len, static_cast<uint8_t *>(got) + kMsglenOffset, 4);
    EXPECT_EQ(got_len, frame_len);
    std::memset(want.data() + kMsglenOffset, 0, 4);
    std::memset(static_cast<uint8_t *>(got) + kMsglenOffset, 0, 4);
  }

  tarvik_cookie *cookie_ = nullptr;
};

std::string frame_type_name(const ::testing::TestParamInfo<FrameType> &info) {
  return std::string(info.param.rec->name) + "_" + std::to_string(info.param.type);
}

// IDR carries every field; TLV the fields of a random mask, which comes back with the message.
TEST_P(EveryFrameType, RoundTripInBothEncodings) {
  const Record &r = *GetParam().rec;
  for (bool tlv : {false, true}) {
    SCOPED_TRACE(tlv ? "tlv" : "idr");
    std::mt19937 rng(tlv ? GetParam().type * 17 + 5 : GetParam().type * 31 + 1);
    for (int round = 0; round < kRounds; ++round) {
      SCOPED_TRACE(round);
      Pool pool;
      std::vector<uint8_t> rec, map(r.map_size);
      const void *mask = tlv ? map.data() : nullptr;
      make(rec, tlv ? map.data() : nullptr, rng, pool);
      void *frame = nullptr;
      size_t len = 0;
      ASSERT_EQ(tarvik_msg_idl_encode(cookie_, rec.data(), mask, &frame, &len), 0);
      uint32_t head[3];
      std::memcpy(head, frame, sizeof head);
      EXPECT_EQ(head[0], tlv ? TLK_MAGIC_TLV : TLK_MAGIC_IDR);
      EXPECT_EQ(head[1] + 12, len);
      EXPECT_EQ(head[2], GetParam().type);

      void *msg = nullptr, *got_map = nullptr;
      ASSERT_EQ(tarvik_msg_idl_decode(cookie_, frame, len, &msg, &got_map), 0);
      ASSERT_EQ(got_map != nullptr, tlv);
      settle_length(rec, msg, len);
      EXPECT_EQ(compare(r, rec.data(), msg, mask), "");
      if (tlv) {
        EXPECT_EQ(compare_maps(r, rec.data(), map.data(), got_map), "");
      }
      tarvik_msg_idl_release(cookie_, msg, got_map);
      tarvik_msg_free(cookie_, frame);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Frames, EveryFrameType, ::testing::ValuesIn(frame_types()),
                         frame_type_name);

}  // namespace
}  // namespace codec_test
