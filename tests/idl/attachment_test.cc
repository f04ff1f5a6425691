// Attachments (tlk_msg_info): the selector table by family, shared and anonymous arms, every arm
// through both encodings, selectors without an arm and unknown selectors; and the platform-word
// growable fields of the interface records.
#include <cstddef>
#include <map>
#include <vector>

#include "codec_test_util.h"

namespace codec_test {
namespace {

using tlk::idl::Arm;
using tlk::idl::Choice;

const Choice &info_choice() {
  return *record_named("tlk_msg_info")->choice;
}

const Record *arm_of(uint32_t selector) {
  const Choice &c = info_choice();
  for (uint32_t i = 0; i < c.narms; ++i) {
    if (c.arms[i].selector == selector) return c.arms[i].rec;
  }
  return nullptr;
}

uint8_t *arm_bytes(tlk_msg_info &m) {
  return reinterpret_cast<uint8_t *>(&m) + info_choice().arm_off;
}

Bytes tlv_of(const tlk_msg_info &m, const tlk_msg_info_tlvmap *map = nullptr) {
  return encode([&](uint8_t *b, uint32_t n) { return tlv_encode_tlk_msg_info_0(&m, map, b, n); });
}
Bytes idr_of(const tlk_msg_info &m) {
  return encode([&](uint8_t *b, uint32_t n) { return idr_encode_tlk_msg_info_0(&m, b, n); });
}
// The 12-byte head of an attachment: zero, arm length, selector.
Bytes head(uint32_t selector, uint32_t arm_len = 0) {
  return cat({le32(0), le32(arm_len), le32(selector)});
}

TEST(Attachment, SelectorsWithAnArmByFamily) {
  std::map<uint32_t, int> per_family;
  const Choice &c = info_choice();
  for (uint32_t i = 0; i < c.narms; ++i) {
    const uint32_t sel = c.arms[i].selector;
    ++per_family[sel >> 24];
    if ((sel >> 24) == 0) {
      EXPECT_TRUE(sel >= 1 && sel <= 450) << sel;
    }
  }
  EXPECT_EQ(c.narms, 337u);
  const std::map<uint32_t, int> want = {{0, 236}, {1, 5}, {2, 42}, {4, 25}, {5, 15}, {8, 14}};
  EXPECT_EQ(per_family, want);
}

TEST(Attachment, SharedAndAnonymousArms) {
  const struct {
    const char *record;
    std::vector<uint32_t> selectors;
  } arms[] = {
      {"if_opcode", {1, 2, 309}},
      {"ether_addr", {344, 422, 423}},
      {"if_pfe_fc_options", {310}},
      {"tlk_msg_info_u32", {94, 279, 406, 0x2000004, 0x4000011, 0x5000005}},
      {"tlk_msg_info_u16", {208}},
      {"opaque_data", {0x2000001, 0x2000022}},
      {"af_fixup", {0x5000001, 0x2000003}},
      {"pictlv_other_options", {0x1000005}},
      {"bdtlv_mac_aging_time", {0x800000f}},
  };
  for (const auto &arm : arms) {
    for (uint32_t sel : arm.selectors) {
      ASSERT_NE(arm_of(sel), nullptr) << std::hex << sel;
      EXPECT_STREQ(arm_of(sel)->name, arm.record) << std::hex << sel;
    }
  }
  for (uint32_t sel :
       {5u, 451u, 0x1000006u, 0x200001bu, 0x4000006u, 0x500000eu, 0x8000006u, 0x7000001u})
    EXPECT_EQ(arm_of(sel), nullptr) << std::hex << sel;
}

TEST(Attachment, EveryArmRoundTripsInBothEncodings) {
  std::mt19937 rng(20261123);
  const Choice &c = info_choice();
  for (uint32_t i = 0; i < c.narms; ++i) {
    const Arm &a = c.arms[i];
    for (int round = 0; round < 3; ++round) {
      Pool pool;
      tlk_msg_info want{};
      tlk_msg_info_tlvmap map{};
      want.tlkmi_type = a.selector;
      fill_random(*a.rec, arm_bytes(want), &map, rng, pool);
      const std::string where = std::string(a.rec->name) + " at " + std::to_string(a.selector);

      Bytes tlv = tlv_of(want, &map);
      EXPECT_EQ(Bytes(tlv.begin(), tlv.begin() + 12), head(a.selector, len32(tlv) - 12)) << where;
      Heap heap;
      tlk_msg_info got;
      tlk_msg_info_tlvmap got_map;
      ASSERT_EQ(
          tlv_decode_tlk_msg_info_0(&got, &got_map, tlv.data(), len32(tlv), Heap::alloc, &heap),
          static_cast<int32_t>(tlv.size()))
          << where;
      EXPECT_EQ(compare(*record_named("tlk_msg_info"), &want, &got, &map, ""), "") << where;

      // IDR carries every field: compare against the record with the absent fields cleared.
      tlk_msg_info full{};
      full.tlkmi_type = a.selector;
      fill_random(*a.rec, arm_bytes(full), nullptr, rng, pool);
      Bytes idr = idr_of(full);
      ASSERT_EQ(idr_decode_tlk_msg_info_0(&got, idr.data(), len32(idr), Heap::alloc, &heap),
                static_cast<int32_t>(idr.size()))
          << where;
      EXPECT_EQ(compare(*record_named("tlk_msg_info"), &full, &got, nullptr, ""), "") << where;
    }
  }
}

// A selector without an arm costs the bare head; an unknown one's body is skipped whole.
TEST(Attachment, SelectorsWithoutAnArm) {
  for (uint32_t sel : {5u, 451u, 0x1000006u, 0x2000021u, 0x7000001u, 0xFFFFFFFEu}) {
    tlk_msg_info m{};
    m.tlkmi_type = sel;
    std::memset(arm_bytes(m), 0xAB, 16);  // whatever lies in the arm is not sent
    const Bytes want = head(sel);
    EXPECT_EQ(tlv_of(m), want) << sel;
    EXPECT_EQ(idr_of(m), want) << sel;

    tlk_msg_info got;
    std::memset(&got, 0x5A, sizeof got);
    Heap heap;
    EXPECT_EQ(tlv_decode_tlk_msg_info_0(&got, nullptr, want.data(), 12, Heap::alloc, &heap), 12)
        << sel;
    EXPECT_EQ(got.tlkmi_type, sel);
    tlk_msg_info zero{};
    EXPECT_EQ(std::memcmp(arm_bytes(got), arm_bytes(zero), sizeof got - info_choice().arm_off), 0)
        << sel;
    EXPECT_EQ(idr_decode_tlk_msg_info_0(&got, want.data(), 12, Heap::alloc, &heap), 12) << sel;
    EXPECT_EQ(got.tlkmi_type, sel);
  }

  // A newer peer's attachment: 12 bytes of body that this library cannot read, skipped whole.
  const Bytes item = cat({head(0x7000001, 12), le32(0x11111111), le32(0x22222222), le32(3)});
  tlk_msg_info got;
  tlk_msg_info_tlvmap map;
  Heap heap;
  EXPECT_EQ(tlv_decode_tlk_msg_info_0(&got, &map, item.data(), len32(item), Heap::alloc, &heap),
            24);
  EXPECT_EQ(got.tlkmi_type, 0x7000001u);
  EXPECT_EQ(heap.calls(), 0u);
  EXPECT_EQ(idr_decode_tlk_msg_info_0(&got, item.data(), len32(item), Heap::alloc, &heap), 24);
  EXPECT_EQ(got.tlkmi_type, 0x7000001u);
  // A body that claims more than there is: too short for the claimed length.
  EXPECT_EQ(tlv_decode_tlk_msg_info_0(&got, &map, item.data(), 20, Heap::alloc, &heap), 0);
}

TEST(Attachment, AnonymousArmIsOneItemOrNothing) {
  const struct {
    uint32_t selector;
    uint32_t value;
    Bytes item;  // the arm's TLV item
  } rows[] = {
      {94, 0xA1B2C3D4u, host_item(1, le32(0xA1B2C3D4u))},
      {0x2000018, 7u, host_item(1, le32(7))},
      {208, 0xBEEFu, host_item(1, le16(0xBEEF))},
  };
  for (auto &row : rows) {
    tlk_msg_info m{};
    m.tlkmi_type = row.selector;
    if (row.selector == 208)
      m.tlkmi_u.tlk_msg_info_u16.value = static_cast<uint16_t>(row.value);
    else
      m.tlkmi_u.tlk_msg_info_u32.value = row.value;
    const Bytes full = cat({head(row.selector, len32(row.item)), row.item});
    EXPECT_EQ(tlv_of(m), full);
    tlk_msg_info_tlvmap map{};
    map.tlkmi_u.tlk_msg_info_u32._w0 = 1;  // bit 0 set: sent
    EXPECT_EQ(tlv_of(m, &map), full);
    map.tlkmi_u.tlk_msg_info_u32._w0 = 0;  // bit 0 clear: the arm is empty
    EXPECT_EQ(tlv_of(m, &map), head(row.selector));
    // IDR: just the field, padded to 4.
    Bytes idr = idr_of(m);
    ASSERT_EQ(idr.size(), 16u);
    uint32_t v = 0;
    std::memcpy(&v, idr.data() + 12, row.selector == 208 ? 2 : 4);
    EXPECT_EQ(v, row.value);
  }
}

// Growable fields kept in the platform word: always 8 bytes on the wire; a wider value keeps its
// low half on the 32-bit target.
TEST(Attachment, PlatformWordGrowableTravelsAsEightBytes) {
  iffilter f{};
  f.iffl_f2 = 0x55667788u;
  iffilter_tlvmap map{};
  map._w0 = 1u << 1;  // the field of tag 2 alone
  EXPECT_EQ(encode([&](uint8_t *b, uint32_t n) { return tlv_encode_iffilter_0(&f, &map, b, n); }),
            host_item(2, le64(0x55667788u)));

  const Bytes wide = host_item(2, le64(0x1122334455667788ull));
  iffilter got;
  ASSERT_EQ(tlv_decode_iffilter_0(&got, nullptr, wide.data(), len32(wide)),
            static_cast<int32_t>(wide.size()));
  const unsigned long expect =
      sizeof(unsigned long) == 8 ? static_cast<unsigned long>(0x1122334455667788ull) : 0x55667788ul;
  EXPECT_EQ(got.iffl_f2, expect);
  for (uint32_t len : {1u, 2u, 4u}) {
    const Bytes narrow = host_item(2, Bytes(len, 0x9C));
    ASSERT_GT(tlv_decode_iffilter_0(&got, nullptr, narrow.data(), len32(narrow)), 0);
    unsigned long want = 0;
    for (uint32_t k = 0; k < len; ++k) want = (want << 8) | 0x9C;
    EXPECT_EQ(got.iffl_f2, want) << len;
  }

  // IDR: u32 first field, then the growable as 8 bytes.
  Bytes idr = encode([&](uint8_t *b, uint32_t n) { return idr_encode_iffilter_0(&f, b, n); });
  uint64_t wire = 0;
  std::memcpy(&wire, idr.data() + 4, 8);
  EXPECT_EQ(wire, 0x55667788u);
  EXPECT_EQ(idr.size(), 4u + 28u * 8u + 8u);
}

}  // namespace
}  // namespace codec_test
