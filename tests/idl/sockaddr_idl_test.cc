// sockaddr_idl: ordinary families travel whole, link-level addresses are taken apart by info
// type and rebuilt on decoding.
#include <gtest/gtest.h>

#include <random>

#include "codec_test_util.h"

namespace codec_test {
namespace {

Bytes tlv_bytes(const sockaddr_idl &s) {
  return encode(
      [&](uint8_t *p, uint32_t n) { return tlv_encode_sockaddr_idl_0(&s, nullptr, p, n); });
}
Bytes idr_bytes(const sockaddr_idl &s) {
  return encode([&](uint8_t *p, uint32_t n) { return idr_encode_sockaddr_idl_0(&s, p, n); });
}

// Decodes `flat` in both forms and returns the rebuilt flat address (the two must agree); the
// TLV-decoded record goes to `dec`, its memory kept in `heap`.
Bytes round_trip(const Bytes &flat, sockaddr_idl &dec, Heap &heap) {
  sockaddr_idl s{};
  s.sai_addr = const_cast<uint8_t *>(flat.data());
  const Bytes t = tlv_bytes(s), i = idr_bytes(s);
  sockaddr_idl b{};
  EXPECT_EQ(tlv_decode_sockaddr_idl_0(&dec, nullptr, t.data(), len32(t), Heap::alloc, &heap),
            static_cast<int32_t>(t.size()));
  const size_t kept = heap.live();
  EXPECT_EQ(idr_decode_sockaddr_idl_0(&b, i.data(), len32(i), Heap::alloc, &heap),
            static_cast<int32_t>(i.size()));
  if (dec.sai_addr == nullptr || b.sai_addr == nullptr) {
    ADD_FAILURE() << "no flat address";
    return {};
  }
  EXPECT_EQ(Bytes(b.sai_addr, b.sai_addr + b.sai_addr[0]),
            Bytes(dec.sai_addr, dec.sai_addr + dec.sai_addr[0]));
  idr_release_sockaddr_idl_0(&b, Heap::release, &heap);
  EXPECT_EQ(heap.live(), kept) << "the release gives back the rebuilt address";
  return Bytes(dec.sai_addr, dec.sai_addr + dec.sai_addr[0]);
}

Bytes link_addr(uint8_t info_type, uint32_t data_len, uint32_t trailer, uint8_t alen, uint8_t slen,
                uint32_t seed) {
  std::mt19937 rng(seed);
  Bytes a(12 + data_len + trailer);
  for (auto &x : a) x = static_cast<uint8_t>(rng());
  a[0] = static_cast<uint8_t>(a.size());
  a[1] = 18;
  a[2] = info_type;
  a[3] = 0;  // not kept by the wire form
  a[8] = 6;
  a[10] = alen;
  a[11] = slen;
  return a;
}

// Ordinary families travel whole.
TEST(SockaddrIdl, OrdinaryFamiliesAndTheRecordAsItStands) {
  Bytes in = {16, 2, 0x1F, 0x90, 10, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0};
  sockaddr_idl s{};
  s.sai_addr = in.data();
  Bytes t = tlv_bytes(s);
  EXPECT_EQ(t, cat({le32(0), le32(24), le32(0), host_item(1, in)}));
  Bytes i = idr_bytes(s);
  EXPECT_EQ(i, cat({le32(0), le32(20), le32(0), le32(16), in}));
  Heap heap;
  sockaddr_idl back{};
  ASSERT_EQ(idr_decode_sockaddr_idl_0(&back, i.data(), len32(i), Heap::alloc, &heap), 32);
  ASSERT_NE(back.sai_addr, nullptr);
  EXPECT_EQ(Bytes(back.sai_addr, back.sai_addr + 16), in);
  idr_release_sockaddr_idl_0(&back, Heap::release, &heap);
  EXPECT_EQ(heap.live(), 0u);

  // Without a flat address the record is encoded as it stands.
  uint8_t blob[4] = {4, 2, 0, 0};
  sockaddr_idl g{};
  g.sai_int.sai_type = 0;
  g.sai_int.sai_u.idl_sockaddr_gen.isg_addr = blob;
  g.sai_int.sai_u.idl_sockaddr_gen.isg_len = 4;
  EXPECT_EQ(tlv_bytes(g), cat({le32(0), le32(12), le32(0), host_item(1, {4, 2, 0, 0})}));
}

// Every info type with a fixed trailer: taken apart, and rebuilt to the same bytes.
TEST(SockaddrIdl, FixedTrailersRoundTrip) {
  struct Case {
    uint8_t type;
    uint32_t trailer;
  } cases[] = {{0, 0},   {1, 4},   {2, 16},   {3, 6},  {4, 4},   {5, 0},   {8, 40},
               {9, 146}, {10, 88}, {11, 160}, {12, 8}, {14, 40}, {15, 180}};
  for (auto &c : cases) {
    Bytes a = link_addr(c.type, 8, c.trailer, 6, 8, c.type);
    sockaddr_idl dec{};
    Heap keep;
    Bytes back = round_trip(a, dec, keep);
    Bytes want = a;
    if (c.trailer == 0) want[2] = 0;  // an info type without trailer is not kept
    EXPECT_EQ(back, want) << "info type " << int{c.type};
    const idl_sockaddr_dl &dl = dec.sai_int.sai_u.idl_sockaddr_dl;
    EXPECT_EQ(dec.sai_int.sai_type, 1u);
    EXPECT_EQ(dl.isd_data_len, 8u) << "info type " << int{c.type};
    EXPECT_EQ(dl.isd_info_len, c.trailer ? 1u : 0u);
    // Type 1 travels with the selector length lowered by 4.
    EXPECT_EQ(dl.isd_bytes[3], c.type == 1 ? 4 : 8);
  }
  // The rebuild needs an allocator.
  sockaddr_idl s{}, back{};
  const Bytes a = link_addr(0, 4, 0, 4, 0, 1);
  s.sai_addr = const_cast<uint8_t *>(a.data());
  const Bytes i = idr_bytes(s);
  EXPECT_EQ(idr_decode_sockaddr_idl_0(&back, i.data(), len32(i), nullptr, nullptr), -2);
}

TEST(SockaddrIdl, AtmReplicationTrailer) {
  Bytes a = link_addr(18, 0, 184, 0, 0, 77);
  sockaddr_idl dec{};
  Heap keep;
  EXPECT_EQ(round_trip(a, dec, keep), a);
  const idl_sockaddr_dl &dl = dec.sai_int.sai_u.idl_sockaddr_dl;
  ASSERT_EQ(dl.isd_info_len, 4u);
  EXPECT_EQ(dl.isd_info[0].sdl_type, 11u);
  for (int k = 1; k < 4; ++k) {
    EXPECT_EQ(dl.isd_info[k].sdl_type, 18u);
    EXPECT_EQ(Bytes(dl.isd_info[k].sdl_u.atm_mpt_repl_info.amr_bytes,
                    dl.isd_info[k].sdl_u.atm_mpt_repl_info.amr_bytes + 8),
              Bytes(a.begin() + 172 + 8 * (k - 1), a.begin() + 180 + 8 * (k - 1)));
  }
}

TEST(SockaddrIdl, VlanTagMapAtTheHeadOfTheData) {
  // 20 fixed bytes, 6 address bytes, two 8-byte map entries, 2 bytes more.
  Bytes a = link_addr(6, 20 + 6 + 16 + 2, 0, 26, 0, 6);
  sockaddr_idl dec{};
  Heap keep;
  Bytes back = round_trip(a, dec, keep);
  ASSERT_EQ(back.size(), 64u);  // a tag map address is never shorter than 64
  EXPECT_EQ(back[0], 64);
  EXPECT_EQ(Bytes(back.begin() + 1, back.begin() + a.size()), Bytes(a.begin() + 1, a.end()));
  for (size_t i = a.size(); i < 64; ++i) EXPECT_EQ(back[i], 0);
  const idl_sockaddr_dl &dl = dec.sai_int.sai_u.idl_sockaddr_dl;
  ASSERT_EQ(dl.isd_info_len, 1u);
  const vlan_tag_map_idl &vm = dl.isd_info[0].sdl_u.vlan_tag_map_idl;
  EXPECT_EQ(dl.isd_bytes[2], 6);  // lowered by 20
  EXPECT_EQ(vm.vtm_pair_a_cnt, 2u);
  EXPECT_EQ(vm.vtm_pair_b_cnt, 2u);
  EXPECT_EQ(vm.vtm_map_cnt, 2u);
  EXPECT_EQ(dl.isd_data_len, 8u);
  uint16_t w0;
  std::memcpy(&w0, a.data() + 16, 2);
  EXPECT_EQ(vm.vtm_word0, w0);
}

TEST(SockaddrIdl, The64ByteSpecialCase) {
  Bytes a = link_addr(0, 8, 0, 6, 0, 3);
  a[8] = 135;
  sockaddr_idl dec{};
  Heap keep;
  Bytes back = round_trip(a, dec, keep);
  ASSERT_EQ(back.size(), 64u);
  EXPECT_EQ(back[10], 20);
  EXPECT_EQ(Bytes(back.begin() + 12, back.begin() + 20), Bytes(a.begin() + 12, a.end()));
  // Any other byte 8 keeps the size.
  a[8] = 134;
  EXPECT_EQ(round_trip(a, dec, keep).size(), a.size());
}

}  // namespace
}  // namespace codec_test
