// TLV: the worked examples byte for byte (their decoding is the inverse the property tests check
// for every type), and the edge cases of the decoding rules.
#include <gtest/gtest.h>

#include <cstring>

#include "codec_test_util.h"

namespace codec_test {
namespace {

TEST(TlvExample, HostAndNetworkForms) {
  rtb_seq r{};
  r.rtbs_seq = 0x1234;
  Bytes b = encode([&](uint8_t *p, uint32_t n) { return tlv_encode_rtb_seq_0(&r, nullptr, p, n); });
  EXPECT_EQ(b, (Bytes{1, 0, 0, 0, 2, 0, 0, 0, 0x34, 0x12, 0, 0}));
  // The network form: big-endian tags and lengths.
  acc_cntl_msg_ifl_status a{};
  a.acis_ifl_index = 0x01020304;
  a.acis_status = 5;
  a.acis_admin = 6;
  a.acis_oper = 7;
  b = encode([&](uint8_t *p, uint32_t n) {
    return tlv_encode_acc_cntl_msg_ifl_status_0(&a, nullptr, p, n);
  });
  EXPECT_EQ(b, (Bytes{0, 1, 0, 4, 1, 2, 3, 4, 0, 2, 0, 1, 5, 0, 0, 0,
                      0, 3, 0, 1, 6, 0, 0, 0, 0, 4, 0, 1, 7, 0, 0, 0}));
}

// Type 0 with every header bit but the attachment bit: 152 bytes as a TLV frame, 40 as IDR.
TEST(TlvExample, TypeZeroFrame) {
  tlk_base base{};
  base.tlkb_hdr.tlkh_version = 'b';
  base.tlkb_hdr.tlkh_op = 4;
  base.tlkb_hdr.tlkh_seq = 0x01020304;
  base.tlkb_hdr.tlkh_fixedlen = 32;
  tlk_base_tlvmap bmap{};
  bmap._w0 = 1;
  bmap.tlkb_hdr._w0 = 0x7FF;  // bits 0..10; bit 11 (attachments) clear
  tlk_msg msg{};
  msg.tlkm_type = 0;
  msg.tlkm_msg = &base;
  tlk_msg_tlvmap mmap{};
  mmap.tlkm_msg = &bmap;
  Bytes tlv =
      encode([&](uint8_t *p, uint32_t n) { return tlv_encode_tlk_msg_0(&msg, &mmap, p, n); });
  ASSERT_EQ(tlv.size(), 152u);
  EXPECT_EQ(Bytes(tlv.begin(), tlv.begin() + 20),
            cat({le32(0x5011), le32(140), le32(0), le32(1), le32(132)}));
  // The header's items in field order, each padded to 4; tags 12 before 10 for aux1/aux2.
  Bytes hdr =
      cat({host_item(1, le32(0)), host_item(2, {'b'}), host_item(3, {0}), host_item(4, {4}),
           host_item(5, {0}), host_item(6, le32(0)), host_item(7, le32(0x01020304)),
           host_item(8, le32(0)), host_item(9, le16(32)), host_item(12, {0}), host_item(10, {0})});
  EXPECT_EQ(Bytes(tlv.begin() + 20, tlv.end()), hdr);

  Bytes idr = encode([&](uint8_t *p, uint32_t n) { return idr_encode_tlk_msg_0(&msg, p, n); });
  ASSERT_EQ(idr.size(), 40u);
  EXPECT_EQ(Bytes(idr.begin(), idr.begin() + 12), cat({le32(0x5022), le32(28), le32(0)}));
}

// The decoding rules on one small record (u8 type, u8 flags, u32 index), with and without a
// map.  The record and the map start full of 0x5A: whatever the decoder doesn't set must be zero.
TEST(TlvDecode, RulesOnASmallRecord) {
  const struct {
    const char *name;
    Bytes in;
    bool with_map;
    int32_t rc;
    uint8_t type, flags;
    uint32_t index, bits;  // checked when rc >= 0
  } rows[] = {
      {"empty input clears", {}, true, 0, 0, 0, 0, 0},
      {"unknown tags are skipped",
       cat({host_item(0, le32(1)), host_item(99, {1, 2, 3}), host_item(3, le32(0xAABBCCDD)),
            host_item(4000, {})}),
       true, 44, 0, 0, 0xAABBCCDD, 1u << 2},
      // A full-size record in another item order, or with a repeated item in place of one,
      // decodes by the general rules.
      {"reverse order",
       cat({host_item(3, le32(0x01020304)), host_item(2, {0xB}), host_item(1, {0xA})}), true, 36,
       0xA, 0xB, 0x01020304, 7},
      {"repeated u8, map: first wins",
       cat({host_item(1, {0xA}), host_item(1, {0xC}), host_item(3, le32(5))}), true, 36, 0xA, 0, 5,
       5},
      {"repeated u8, no map: last wins",
       cat({host_item(1, {0xA}), host_item(1, {0xC}), host_item(3, le32(5))}), false, 36, 0xC, 0, 5,
       0},
      {"repeated u32, map: first wins", cat({host_item(3, le32(1)), host_item(3, le32(2))}), true,
       24, 0, 0, 1, 4},
      {"repeated u32, no map: last wins", cat({host_item(3, le32(1)), host_item(3, le32(2))}),
       false, 24, 0, 0, 2, 0},
      // A scalar item shorter than its field is garbled; a longer one gives its first bytes.
      {"u32 in 3 bytes", host_item(3, {1, 2, 3}), false, -1, 0, 0, 0, 0},
      {"u32 in 8 bytes", host_item(3, {1, 2, 3, 4, 5, 6, 7, 8}), false, 16, 0, 0, 0x04030201, 0},
      {"u8 in 0 bytes", host_item(1, {}), false, -1, 0, 0, 0, 0},
      // Trailing bytes shorter than an item head end the loop before them.
      {"trailing bytes", cat({host_item(3, le32(7)), Bytes{1, 2, 3, 4, 5}}), true, 12, 0, 0, 7, 4},
      // A last item without its pad decodes to its end, which is the input's.
      {"last item without pad", host_item(1, {0xA}, false), true, 9, 0xA, 0, 0, 1},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    rtb_rpf_info r;
    rtb_rpf_info_tlvmap m;
    std::memset(&r, 0x5A, sizeof r);
    std::memset(&m, 0x5A, sizeof m);
    ASSERT_EQ(tlv_decode_rtb_rpf_info_0(&r, row.with_map ? &m : nullptr,
                                        row.in.empty() ? nullptr : row.in.data(), len32(row.in)),
              row.rc);
    if (row.rc < 0) continue;
    EXPECT_EQ(r.rtbr_type, row.type);
    EXPECT_EQ(r.rtbr_flags, row.flags);
    EXPECT_EQ(r.rtbr_index, row.index);
    if (row.with_map) {
      EXPECT_EQ(m._w0, row.bits);
    }
  }
}

TEST(TlvDecode, TrailingBytesInANestedRecordAreAMismatch) {
  Bytes nested = cat({host_item(1, cat({host_item(7, le32(9)), Bytes{0, 0, 0, 0}}))});
  tlk_base base{};
  EXPECT_EQ(tlv_decode_tlk_base_0(&base, nullptr, nested.data(), len32(nested), nullptr, nullptr),
            -1);
}

TEST(TlvDecode, DuplicateBlobGarbledWithoutMapIgnoredWithMap) {
  Bytes b = cat({host_item(1, le16(8)), host_item(2, {10}), host_item(2, {20})});
  Heap heap;
  prefix p{};
  EXPECT_EQ(tlv_decode_prefix_0(&p, nullptr, b.data(), len32(b), Heap::alloc, &heap), -1);
  heap.free_all();
  prefix_tlvmap m{};
  ASSERT_EQ(tlv_decode_prefix_0(&p, &m, b.data(), len32(b), Heap::alloc, &heap),
            static_cast<int32_t>(b.size()));
  ASSERT_EQ(p.prefix_len, 1u);
  EXPECT_EQ(p.prefix[0], 10);
  tlv_release_prefix_0(&p, &m, Heap::release, &heap);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(TlvDecode, GrowableWidensAndToleratesOddLengths) {
  Heap heap;
  struct Case {
    Bytes value;
    uint64_t want;
  } cases[] = {{{0x11}, 0x11},       {{0x11, 0x22}, 0x2211},
               {{1, 2, 3}, 0},       {{1, 2, 3, 4}, 0x04030201},
               {{1, 2, 3, 4, 5}, 0}, {{1, 2, 3, 4, 5, 6, 7, 8}, 0x0807060504030201ull}};
  for (auto &c : cases) {
    Bytes b = host_item(40, c.value);
    t_all r{};
    EXPECT_EQ(tlv_decode_t_all_0(&r, nullptr, b.data(), len32(b), Heap::alloc, &heap),
              static_cast<int32_t>(b.size()));
    EXPECT_EQ(r.gr, c.want) << hex(c.value.data(), c.value.size());
    Bytes n = net_item(40, c.value);
    t_all_net rn{};
    EXPECT_EQ(tlv_decode_t_all_net_0(&rn, nullptr, n.data(), len32(n), Heap::alloc, &heap),
              static_cast<int32_t>(n.size()));
    uint64_t want_net = 0;
    if (c.want != 0 || c.value.size() == 1) {
      for (uint8_t v : c.value) want_net = (want_net << 8) | v;
    }
    EXPECT_EQ(rn.gr, want_net);
  }
}

TEST(TlvDecode, InterruptedListRun) {
  Bytes p1 = host_item(19, cat({host_item(1, {1}), host_item(2, {2})}));
  Bytes p2 = host_item(19, cat({host_item(1, {3})}));
  Bytes p3 = host_item(19, cat({host_item(2, {4})}));
  Bytes b = cat({p1, p2, host_item(1, {9}), p3});
  Heap heap;
  t_all r{};
  EXPECT_EQ(tlv_decode_t_all_0(&r, nullptr, b.data(), len32(b), Heap::alloc, &heap), -1);
  heap.free_all();
  t_all_tlvmap m{};
  ASSERT_EQ(tlv_decode_t_all_0(&r, &m, b.data(), len32(b), Heap::alloc, &heap),
            static_cast<int32_t>(b.size()));
  ASSERT_EQ(r.plist_cnt, 2u);
  EXPECT_EQ(r.plist[0].x, 1);
  EXPECT_EQ(r.plist[0].y, 2);
  EXPECT_EQ(r.plist[1].x, 3);
  EXPECT_EQ(r.a, 9);
  ASSERT_NE(m.plist, nullptr);
  EXPECT_EQ(m.plist[0]._w0, 3u);
  EXPECT_EQ(m.plist[1]._w0, 1u);
  tlv_release_t_all_0(&r, &m, Heap::release, &heap);
  EXPECT_EQ(heap.live(), 0u);
}

TEST(TlvDecode, BrokenListIsGarbled) {
  // The second element's value claims more than there is.
  Bytes b = cat({host_item(19, cat({host_item(1, {1})})), le32(19), le32(200)});
  Heap heap;
  t_all r{};
  EXPECT_EQ(tlv_decode_t_all_0(&r, nullptr, b.data(), len32(b), Heap::alloc, &heap), -1);
}

TEST(TlvEncode, NetworkLengthKeepsLow16Bits) {
  std::vector<uint8_t> big(70000, 0xEE);
  t_all_net r{};
  r.inner.s = big.data();
  r.inner.s_len = 70000;
  t_all_net_tlvmap m{};
  m._w3 = 1;        // inner: its own word, behind pairs, plist and pptrs, which each end a word
  m.inner._w0 = 3;  // and both of inner's fields
  uint32_t n = tlv_encode_t_all_net_0(&r, &m, nullptr, 0);
  std::vector<uint8_t> b(n);
  ASSERT_EQ(tlv_encode_t_all_net_0(&r, &m, b.data(), n), n);
  // inner: head 4, then v's item (8) and s's item (4 + 70000).
  uint32_t inner_size = 8 + 4 + 70000;
  ASSERT_EQ(n, 4 + inner_size);
  EXPECT_EQ(b[0], 0);
  EXPECT_EQ(b[1], 21);
  EXPECT_EQ((b[2] << 8) | b[3], static_cast<int>(inner_size & 0xFFFF));
  EXPECT_EQ((b[4 + 8 + 2] << 8) | b[4 + 8 + 3], 70000 & 0xFFFF);
}

TEST(TlvEncode, AllBitsClearIsEmptyAndAShortBufferStopsAtAnItem) {
  rtb_rpf_info r{1, 2, 3};
  rtb_rpf_info_tlvmap m{};
  EXPECT_EQ(tlv_encode_rtb_rpf_info_0(&r, &m, nullptr, 0), 0u);
  acc_cntl_msg_ifl_status a{};
  acc_cntl_msg_ifl_status_tlvmap am{};
  EXPECT_EQ(tlv_encode_acc_cntl_msg_ifl_status_0(&a, &am, nullptr, 0), 0u);

  // One byte short: the size still comes back, and the last item is left unwritten.
  r.rtbr_index = 0x01020304;
  Bytes full =
      encode([&](uint8_t *p, uint32_t n) { return tlv_encode_rtb_rpf_info_0(&r, nullptr, p, n); });
  ASSERT_EQ(full.size(), 36u);
  Bytes b(full.size(), 0xA5);
  EXPECT_EQ(tlv_encode_rtb_rpf_info_0(&r, nullptr, b.data(), 35), 36u);
  EXPECT_TRUE(std::equal(full.begin(), full.begin() + 24, b.begin()));
  for (size_t i = 24; i < b.size(); ++i) EXPECT_EQ(b[i], 0xA5) << i;
}

// The codec applies the family maps both ways (the maps themselves have their own tables).
TEST(TlvAddressFamily, MappedBothWays) {
  Heap heap;
  t_all r{};
  r.fam = 37;
  t_all_tlvmap m{};
  m._w0 = 1u << 9;
  Bytes b = encode([&](uint8_t *p, uint32_t n) { return tlv_encode_t_all_0(&r, &m, p, n); });
  EXPECT_EQ(b, host_item(10, {150}));
  t_all back{};
  ASSERT_GT(tlv_decode_t_all_0(&back, nullptr, b.data(), len32(b), Heap::alloc, &heap), 0);
  EXPECT_EQ(back.fam, 37);
}

TEST(TlvList, NullPointerEntriesSkippedTheirMapsSteppedOver) {
  t_inner e0{}, e2{};
  e0.v = 100;
  e2.v = 300;
  t_inner *ptrs[3] = {&e0, nullptr, &e2};
  t_inner_tlvmap emaps[3] = {};
  emaps[0]._w0 = 1;
  emaps[1]._w0 = 0;
  emaps[2]._w0 = 0;  // e2 travels empty: its map says no field
  t_all r{};
  r.pptrs = ptrs;
  r.pptrs_cnt = 3;
  t_all_tlvmap m{};
  m._w2 = 1;  // pptrs
  m.pptrs = emaps;
  Bytes b = encode([&](uint8_t *p, uint32_t n) { return tlv_encode_t_all_0(&r, &m, p, n); });
  EXPECT_EQ(b, cat({host_item(20, host_item(1, le32(100))), host_item(20, {})}));
  Heap heap;
  t_all back{};
  t_all_tlvmap bm{};
  ASSERT_EQ(tlv_decode_t_all_0(&back, &bm, b.data(), len32(b), Heap::alloc, &heap),
            static_cast<int32_t>(b.size()));
  ASSERT_EQ(back.pptrs_cnt, 2u);
  EXPECT_EQ(back.pptrs[0]->v, 100u);
  EXPECT_EQ(back.pptrs[1]->v, 0u);
  EXPECT_EQ(bm.pptrs[0]._w0, 1u);
  EXPECT_EQ(bm.pptrs[1]._w0, 0u);
  tlv_release_t_all_0(&back, &bm, Heap::release, &heap);
  EXPECT_EQ(heap.live(), 0u);

  // An empty list sends nothing, an empty blob an item.
  t_all e{};
  t_all_tlvmap em{};
  em._w1 = 1;         // plist, no elements
  em._w0 = 1u << 14;  // data, length 0
  b = encode([&](uint8_t *p, uint32_t n) { return tlv_encode_t_all_0(&e, &em, p, n); });
  EXPECT_EQ(b, host_item(15, {}));
}

TEST(TlvNested, RepeatedNestedToleratedOnlyWithoutAllocation) {
  Heap heap;
  Bytes plain = cat({host_item(21, host_item(1, le32(1))), host_item(21, host_item(1, le32(2)))});
  t_all r{};
  ASSERT_EQ(tlv_decode_t_all_0(&r, nullptr, plain.data(), len32(plain), Heap::alloc, &heap),
            static_cast<int32_t>(plain.size()));
  EXPECT_EQ(r.inner.v, 2u);
  Bytes with_blob =
      cat({host_item(21, host_item(2, {1, 2})), host_item(21, host_item(1, le32(2)))});
  EXPECT_EQ(tlv_decode_t_all_0(&r, nullptr, with_blob.data(), len32(with_blob), Heap::alloc, &heap),
            -1);
}

TEST(TlvResult, AllocationFailures) {
  Bytes b = cat({host_item(1, le16(24)), host_item(2, {1, 2, 3})});
  prefix p{};
  EXPECT_EQ(tlv_decode_prefix_0(&p, nullptr, b.data(), len32(b), nullptr, nullptr), -2);
  Heap heap;
  heap.fail_from(0);
  EXPECT_EQ(tlv_decode_prefix_0(&p, nullptr, b.data(), len32(b), Heap::alloc, &heap), -2);
  // An empty blob needs no allocator.
  Bytes empty = host_item(2, {});
  EXPECT_EQ(tlv_decode_prefix_0(&p, nullptr, empty.data(), len32(empty), nullptr, nullptr), 8);
}

TEST(TlvChoice, HeadRules) {
  Heap heap;
  t_choice c{};
  // Under 12 bytes: 0, selector all ones.
  Bytes shorter = {0, 0, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(tlv_decode_t_choice_0(&c, nullptr, shorter.data(), len32(shorter), Heap::alloc, &heap),
            0);
  EXPECT_EQ(c.sel, 0xFFFFFFFFu);
  // An arm length that would wrap.
  Bytes wrap = cat({le32(0), le32(0xFFFFFFF4u), le32(1)});
  EXPECT_EQ(tlv_decode_t_choice_0(&c, nullptr, wrap.data(), len32(wrap), Heap::alloc, &heap), -1);
  Bytes claim = cat({le32(0), le32(0xFFFFFFF3u), le32(1)});
  EXPECT_EQ(tlv_decode_t_choice_0(&c, nullptr, claim.data(), len32(claim), Heap::alloc, &heap), 0);
  // An unknown selector: skipped whole, arm left zero.
  Bytes unknown = cat({le32(0), le32(4), le32(55), Bytes{9, 9, 9, 9}});
  EXPECT_EQ(tlv_decode_t_choice_0(&c, nullptr, unknown.data(), len32(unknown), Heap::alloc, &heap),
            16);
  EXPECT_EQ(c.sel, 55u);
  EXPECT_EQ(c.t_choice_u.t_inner.v, 0u);
  // A known arm that doesn't consume its length.
  Bytes loose = cat({le32(0), le32(16), le32(1), host_item(1, {7}), Bytes{1, 2, 3, 4}});
  EXPECT_EQ(tlv_decode_t_choice_0(&c, nullptr, loose.data(), len32(loose), Heap::alloc, &heap), -1);
  // Shared arm: selectors 2 and 7 both hold t_inner.
  Bytes seven = cat({le32(0), le32(12), le32(7), host_item(1, le32(77))});
  EXPECT_EQ(tlv_decode_t_choice_0(&c, nullptr, seven.data(), len32(seven), Heap::alloc, &heap), 24);
  EXPECT_EQ(c.t_choice_u.t_inner.v, 77u);
  // Encoding an unknown selector gives the bare head.
  c.sel = 55;
  Bytes head =
      encode([&](uint8_t *p, uint32_t n) { return tlv_encode_t_choice_0(&c, nullptr, p, n); });
  EXPECT_EQ(head, cat({le32(0), le32(0), le32(55)}));
}

TEST(TlvFrame, MagicTypeAndAllocation) {
  Heap heap;
  tlk_msg m{};
  Bytes bad_magic = cat({le32(0x5022), le32(0), le32(0)});
  EXPECT_EQ(tlv_decode_tlk_msg_0(&m, nullptr, bad_magic.data(), 12, Heap::alloc, &heap), -3);
  Bytes no_record = cat({le32(0x5011), le32(4), le32(50), le32(0)});
  EXPECT_EQ(tlv_decode_tlk_msg_0(&m, nullptr, no_record.data(), 16, Heap::alloc, &heap), 16);
  EXPECT_EQ(m.tlkm_type, 50u);
  EXPECT_EQ(m.tlkm_msg, nullptr);
  Bytes type0 = cat({le32(0x5011), le32(0), le32(0)});
  EXPECT_EQ(tlv_decode_tlk_msg_0(&m, nullptr, type0.data(), 12, nullptr, nullptr), -2);
  heap.fail_from(heap.calls());
  EXPECT_EQ(tlv_decode_tlk_msg_0(&m, nullptr, type0.data(), 12, Heap::alloc, &heap), -2);
  // A null record pointer goes out as the head alone.
  tlk_msg empty{};
  empty.tlkm_type = 102;
  Bytes head =
      encode([&](uint8_t *p, uint32_t n) { return tlv_encode_tlk_msg_0(&empty, nullptr, p, n); });
  EXPECT_EQ(head, cat({le32(0x5011), le32(0), le32(102)}));
}

}  // namespace
}  // namespace codec_test
