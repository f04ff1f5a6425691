// IDR: the flat images of the worked examples (their decoding is the inverse the property tests
// check for every type), and the edge cases of the strict decoder.
#include <gtest/gtest.h>

#include <cstring>

#include "codec_test_util.h"

namespace codec_test {
namespace {

tlk_hdr sample_hdr() {
  tlk_hdr h{};
  h.tlkh_magic = 0x11223344;
  h.tlkh_version = 'c';
  h.tlkh_type = 102;
  h.tlkh_op = 1;
  h.tlkh_flags = 16;
  h.tlkh_msglen = 64;
  h.tlkh_seq = 7;
  h.tlkh_id = 0x99;
  h.tlkh_fixedlen = 0x0102;
  h.tlkh_aux1 = 0xA1;
  h.tlkh_aux2 = 0xA2;
  return h;
}

const Bytes kHdrBytes = cat({le32(0x11223344), Bytes{'c', 102, 1, 16}, le32(64), le32(7),
                             le32(0x99), le16(0x0102), Bytes{0xA1, 0xA2}, le32(0)});

// The worked examples: the 28-byte header, a small record and a prefix.
TEST(IdrExample, HeaderRpfInfoAndPrefix) {
  tlk_hdr h = sample_hdr();
  Bytes b = encode([&](uint8_t *p, uint32_t n) { return idr_encode_tlk_hdr_0(&h, p, n); });
  EXPECT_EQ(b, kHdrBytes);
  // tlk_base is the same bytes.
  tlk_base base{};
  base.tlkb_hdr = h;
  EXPECT_EQ(encode([&](uint8_t *p, uint32_t n) { return idr_encode_tlk_base_0(&base, p, n); }),
            kHdrBytes);
  rtb_rpf_info r{0xA, 0xB, 0x01020304};
  EXPECT_EQ(encode([&](uint8_t *p, uint32_t n) { return idr_encode_rtb_rpf_info_0(&r, p, n); }),
            (Bytes{0xA, 0xB, 0, 0, 4, 3, 2, 1}));
  uint8_t bytes[3] = {10, 20, 30};
  prefix p{};
  p.plen = 24;
  p.prefix = bytes;
  p.prefix_len = 3;
  b = encode([&](uint8_t *o, uint32_t n) { return idr_encode_prefix_0(&p, o, n); });
  EXPECT_EQ(b, (Bytes{24, 0, 0, 0, 3, 0, 0, 0, 10, 20, 30, 0}));
}

TEST(IdrDecode, HeaderLengthsAndAttachments) {
  Heap heap;
  tlk_hdr h{};
  EXPECT_EQ(idr_decode_tlk_hdr_0(&h, kHdrBytes.data(), 27, Heap::alloc, &heap), -1);
  EXPECT_EQ(idr_decode_tlk_hdr_0(&h, kHdrBytes.data(), 28, Heap::alloc, &heap), 28);
  EXPECT_EQ(h.tlkh_fixedlen, 0x0102);
  EXPECT_EQ(h.tlkh_info, nullptr);
  Bytes one = kHdrBytes;
  one[24] = 1;
  EXPECT_EQ(idr_decode_tlk_hdr_0(&h, one.data(), len32(one), nullptr, nullptr), -2);
  // An attachment with a selector that has no arm: 12 bytes, kept with its selector.
  Bytes with = cat({one, le32(0), le32(0), le32(5)});
  ASSERT_EQ(idr_decode_tlk_hdr_0(&h, with.data(), len32(with), Heap::alloc, &heap), 40);
  ASSERT_EQ(h.tlkh_info_len, 1u);
  ASSERT_NE(h.tlkh_info[0], nullptr);
  EXPECT_EQ(h.tlkh_info[0]->tlkmi_type, 5u);
  idr_release_tlk_hdr_0(&h, Heap::release, &heap);
  EXPECT_EQ(heap.live(), 0u);
}

// The marker pads three bytes before its u64, not seven; small records pad to four.
TEST(IdrLayout, Pads) {
  tlk_marker_msg m{};
  m.tlkmk_kind = 0x77;
  m.tlkmk_stamp = 0x1122334455667788ull;
  Bytes b = encode([&](uint8_t *p, uint32_t n) { return idr_encode_tlk_marker_msg_0(&m, p, n); });
  ASSERT_EQ(b.size(), 56u);
  EXPECT_EQ(b[44], 0x77);
  EXPECT_EQ(Bytes(b.begin() + 45, b.begin() + 48), (Bytes{0, 0, 0}));
  EXPECT_EQ(Bytes(b.begin() + 48, b.end()), le64(0x1122334455667788ull));

  // Small records pad to four.
  rtb_seq s{0x1234};
  b = encode([&](uint8_t *p, uint32_t n) { return idr_encode_rtb_seq_0(&s, p, n); });
  EXPECT_EQ(b, (Bytes{0x34, 0x12, 0, 0}));
  rtb_seq back{};
  EXPECT_EQ(idr_decode_rtb_seq_0(&back, b.data(), 2), -1);  // the tail pad is required
  EXPECT_EQ(idr_decode_rtb_seq_0(&back, b.data(), 4), 4);
  t_byte one{0x9C};
  Bytes out = {0xA5, 0xA5, 0xA5, 0xA5};
  EXPECT_EQ(idr_encode_t_byte_0(&one, out.data(), 3), 4u);
  EXPECT_EQ(out, (Bytes{0x9C, 0xA5, 0xA5, 0xA5}));

  // An empty blob: its length word alone, and a u8 behind any blob follows without pad.
  t_blob_u8 r{};
  r.after = 0x42;
  b = encode([&](uint8_t *p, uint32_t n) { return idr_encode_t_blob_u8_0(&r, p, n); });
  EXPECT_EQ(b, (Bytes{0, 0, 0, 0, 0x42, 0, 0, 0}));
  t_blob_u8 bb{};
  ASSERT_EQ(idr_decode_t_blob_u8_0(&bb, b.data(), len32(b), nullptr, nullptr), 8);
  EXPECT_EQ(bb.b, nullptr);
  EXPECT_EQ(bb.after, 0x42);
  uint8_t data[3] = {1, 2, 3};
  r.b = data;
  r.b_len = 3;
  b = encode([&](uint8_t *p, uint32_t n) { return idr_encode_t_blob_u8_0(&r, p, n); });
  EXPECT_EQ(b, (Bytes{3, 0, 0, 0, 1, 2, 3, 0x42}));
}

TEST(IdrDecode, AllocationComesBeforeTheBoundsCheck) {
  Bytes b = {0xE8, 0x03, 0, 0, 1, 2, 3};  // a blob of 1000 bytes with 3 behind it
  t_blob_u8 r{};
  Heap heap;
  EXPECT_EQ(idr_decode_t_blob_u8_0(&r, b.data(), len32(b), Heap::alloc, &heap), -1);
  EXPECT_EQ(heap.calls(), 1u);
  heap.free_all();
  Heap failing;
  failing.fail_from(0);
  EXPECT_EQ(idr_decode_t_blob_u8_0(&r, b.data(), len32(b), Heap::alloc, &failing), -2);
  EXPECT_EQ(idr_decode_t_blob_u8_0(&r, b.data(), len32(b), nullptr, nullptr), -2);
}

// Network records swap their numbers; address families are not mapped.
TEST(IdrForm, NumbersAndFamilies) {
  t_all_net r{};
  uint8_t d[2] = {0xAB, 0xCD};
  r.c = 0x01020304;
  r.data = d;
  r.data_len = 2;
  Bytes b = encode([&](uint8_t *p, uint32_t n) { return idr_encode_t_all_net_0(&r, p, n); });
  // a (1), pad, b (2), c (4) at offset 4.
  EXPECT_EQ(Bytes(b.begin() + 4, b.begin() + 8), (Bytes{1, 2, 3, 4}));

  // Address families travel unmapped.
  t_all f{};
  f.fam = 22;
  b = encode([&](uint8_t *p, uint32_t n) { return idr_encode_t_all_0(&f, p, n); });
  t_all back{};
  Heap heap;
  ASSERT_GT(idr_decode_t_all_0(&back, b.data(), len32(b), Heap::alloc, &heap), 0);
  EXPECT_EQ(back.fam, 22);

  // A list of none still writes its count word: the empty record keeps its fixed size.
  t_all e{};
  b = encode([&](uint8_t *p, uint32_t n) { return idr_encode_t_all_0(&e, p, n); });
  t_all none{};
  ASSERT_EQ(idr_decode_t_all_0(&none, b.data(), len32(b), nullptr, nullptr),
            static_cast<int32_t>(b.size()));
  EXPECT_EQ(none.plist, nullptr);
  EXPECT_GT(b.size(), 60u);
}

TEST(IdrFrame, MarkerIsTheIdrMagic) {
  Heap heap;
  tlk_msg m{};
  Bytes tlv_magic = cat({le32(0x5011), le32(28), le32(0), kHdrBytes});
  EXPECT_EQ(idr_decode_tlk_msg_0(&m, tlv_magic.data(), len32(tlv_magic), Heap::alloc, &heap), -3);
  Bytes frame = cat({le32(0x5022), le32(28), le32(0), kHdrBytes});
  ASSERT_EQ(idr_decode_tlk_msg_0(&m, frame.data(), len32(frame), Heap::alloc, &heap), 40);
  auto *base = static_cast<tlk_base *>(m.tlkm_msg);
  EXPECT_EQ(base->tlkb_hdr.tlkh_id, 0x99u);
  // A payload with one byte left over is garbled.
  Bytes extra = cat({le32(0x5022), le32(32), le32(0), kHdrBytes, le32(0)});
  EXPECT_EQ(idr_decode_tlk_msg_0(&m, extra.data(), len32(extra), Heap::alloc, &heap), -1);
}

}  // namespace
}  // namespace codec_test
