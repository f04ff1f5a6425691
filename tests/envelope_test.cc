// The envelope: frames in both encodings, growth of both directions, the decoder result table,
// attachments, and the framed read and write wrappers over a real socket.
#include <errno.h>
#include <string.h>

#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

class EnvelopeTest : public OneSessionTest {
 protected:
  // A type-0 message: the header alone, every field set.
  tlk_base *base_message() {
    auto *m = static_cast<tlk_base *>(tarvik_msg_malloc(c));
    tlk_hdr &h = m->tlkb_hdr;
    h.tlkh_version = 'b';
    h.tlkh_type = 0;
    h.tlkh_op = TLK_OP_GET;
    h.tlkh_flags = 2;
    h.tlkh_msglen = 24;
    h.tlkh_seq = 77;
    h.tlkh_id = 1234;
    h.tlkh_fixedlen = 24;
    h.tlkh_aux1 = 5;
    h.tlkh_aux2 = 6;
    return m;
  }
};

// What decodes into what, field by field, the frame round trips show for every type; here, what
// the envelope itself adds.
TEST_F(EnvelopeTest, EncodeSetsTheLastLengthAndAnIdrDecodeLeavesTheMask) {
  tlk_base *m = base_message();
  const tlk_base_tlvmap mask = header_mask();
  EXPECT_EQ(frame_of(c, m, &mask).size(), 152u);
  EXPECT_EQ(tarvik_msglen, 152u);
  const Bytes idr = frame_of(c, m);
  ASSERT_EQ(idr.size(), 40u);
  EXPECT_EQ(get_u32(idr.data()), TLK_MAGIC_IDR);
  void *msg = nullptr, *got_mask = reinterpret_cast<void *>(0x1);
  ASSERT_EQ(tarvik_msg_idl_decode(c, idr.data(), idr.size(), &msg, &got_mask), 0);
  EXPECT_EQ(got_mask, reinterpret_cast<void *>(0x1)) << "an IDR frame leaves the mask untouched";
  EXPECT_EQ(static_cast<tlk_base *>(msg)->tlkb_hdr.tlkh_flags, 2);
  tarvik_msg_idl_release(c, msg, nullptr);
  tarvik_msg_free(c, m);
}

// Inputs the decoder refuses, with its answer and, where it says something, its last line.
TEST_F(EnvelopeTest, RefusedInputs) {
  const Bytes raw = tarsim::raw_message(26, TLK_OP_GET, 1);
  const struct {
    const char *name;
    Bytes in;
    size_t len;
    int err;
    const char *line;  // "" for silence; nullptr where unchecked
  } rows[] = {
      // A zero first word is a raw message: nothing to say.
      {"raw message", raw, raw.size(), EOPNOTSUPP, ""},
      {"raw message, 5 bytes", raw, 5, EOPNOTSUPP, ""},
      {"3 bytes", {1, 0, 0, 0}, 3, EOPNOTSUPP, "tarvik: ERROR Failed to peek magic"},
      {"6 bytes", {1, 0, 0, 0, 9, 9}, 6, EOPNOTSUPP, "tarvik: ERROR Failed to peek message"},
      {"other magic", {7, 7, 7, 7, 0, 0, 0, 0, 0, 0, 0, 0}, 12, EOPNOTSUPP, nullptr},
      {"IDR length that wraps", frame_head(TLK_MAGIC_IDR, 0xFFFFFFF4, 0, 40), 40, EINVAL,
       "tarvik: DEBUG IDL IDR Decode Error -1(Garbled Message)"},
      {"TLV length beyond the data", frame_head(TLK_MAGIC_TLV, 0xFFFFFFF3, 0, 40), 40, EINVAL,
       "tarvik: DEBUG IDL TLV Decode Error 0(Invalid Buffer Size)"},
      // "redirect" travels raw: no record.
      {"type without a record", frame_head(TLK_MAGIC_IDR, 0, 3), 12, EINVAL, nullptr},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    log.lines.clear();
    void *msg = nullptr;
    EXPECT_EQ(tarvik_msg_idl_decode(c, row.in.data(), row.len, &msg, nullptr), row.err);
    EXPECT_EQ(msg, nullptr);
    if (row.line != nullptr) {
      EXPECT_EQ(log.lines.empty() ? "" : log.lines.back().text, row.line);
    }
  }
}

TEST_F(EnvelopeTest, HugeListCountFailsWithoutEndlessGrowth) {
  // An IDR header claiming 0x00FFFFFF attachments in a 40-byte frame: the arena grows once past
  // the failed request, then the bounds check refuses the list.
  Bytes f = frame_head(TLK_MAGIC_IDR, 28, 0, 40);
  put_u32(f, 12 + 24, 0x00FFFFFF);
  void *msg = nullptr;
  const int err = tarvik_msg_idl_decode(c, f.data(), f.size(), &msg, nullptr);
  EXPECT_TRUE(err == EINVAL || err == ENOMEM) << err;
  EXPECT_EQ(msg, nullptr);
  size_t growths = 0;
  for (const auto &l : log.lines) growths += l.text.find("Growing the buffer") != std::string::npos;
  EXPECT_LE(growths, 2u);
}

TEST_F(EnvelopeTest, EncodingATypeWithoutRecordGivesAnEmptyFrame) {
  const Bytes raw = tarsim::raw_message(3, TLK_OP_ADD, 9, Bytes(40, 0xEE));
  EXPECT_EQ(frame_of(c, raw.data()), frame_head(TLK_MAGIC_IDR, 0, 3));
}

// Records every size the library asks of the allocator for messages (identifier 75).
std::vector<size_t> *g_sizes = nullptr;
void *(*g_real_malloc)(unsigned, size_t) = nullptr;
void *recording_malloc(unsigned memid, size_t size) {
  if (memid == MEMID_TARVIK_MSG && g_sizes) g_sizes->push_back(size);
  return g_real_malloc(memid, size);
}

// The first arena of a decode, as the allocator sees it.
size_t first_arena(tarvik_cookie *c, const void *frame, size_t len, int *err) {
  std::vector<size_t> sizes;
  g_sizes = &sizes;
  g_real_malloc = tarvik_malloc;
  tarvik_malloc = recording_malloc;
  void *msg = nullptr;
  *err = tarvik_msg_idl_decode(c, frame, len, &msg, nullptr);
  tarvik_malloc = g_real_malloc;
  g_sizes = nullptr;
  tarvik_msg_idl_release(c, msg, nullptr);
  return sizes.empty() ? 0 : sizes.front();
}

TEST_F(EnvelopeTest, DecodeArenaStartsAtBlockSizeOrFramePlus1024) {
  // An ifl_msg whose name blob makes its IDR frame exactly 16384 bytes.
  auto *m = static_cast<ifl_msg *>(tarvik_msg_malloc(c));
  m->iflm_hdr.tlkh_type = 6;
  std::vector<uint8_t> name(20000, 'n');
  m->iflm_name = name.data();
  const size_t base = 12 + idr_encode_ifl_msg_0(m, nullptr, 0);
  m->iflm_name_len = static_cast<uint32_t>(16384 - base);
  void *frame = nullptr;
  size_t len = 0;
  ASSERT_EQ(tarvik_msg_idl_encode(c, m, nullptr, &frame, &len), 0);
  ASSERT_EQ(len, 16384u);
  int err = -1;
  EXPECT_EQ(first_arena(c, frame, len, &err), 16384u);
  EXPECT_EQ(err, 0);
  tarvik_msg_free(c, frame);
  tarvik_msg_free(c, m);

  // A frame one byte longer starts with its own size and 1024 more (the frame itself is
  // garbled: a type-0 header does not fill it, which is refused after the allocation).
  Bytes big = frame_head(TLK_MAGIC_IDR, 16385 - 12, 0, 16385);
  EXPECT_EQ(first_arena(c, big.data(), big.size(), &err), 17409u);
  EXPECT_EQ(err, EINVAL);
}

// The encoded buffer is not cleared before encoding: every byte of the frame, pads included, is
// the encoder's, so a block full of other bytes gives the same frame as a zeroed one.
uint8_t g_fill = 0;
void *filling_malloc(unsigned memid, size_t size) {
  void *p = g_real_malloc(memid, size);
  if (p != nullptr) memset(p, g_fill, size);
  return p;
}

Bytes encoded_over(tarvik_cookie *c, uint8_t fill, const void *raw, const void *mask) {
  g_fill = fill;
  g_real_malloc = tarvik_malloc;
  tarvik_malloc = filling_malloc;
  void *buf = nullptr;
  size_t len = 0;
  const int err = tarvik_msg_idl_encode(c, raw, mask, &buf, &len);
  tarvik_malloc = g_real_malloc;
  EXPECT_EQ(err, 0);
  Bytes out(static_cast<uint8_t *>(buf), static_cast<uint8_t *>(buf) + len);
  tarvik_msg_free(c, buf);
  return out;
}

TEST_F(EnvelopeTest, EveryByteOfAnEncodedFrameIsWrittenWhateverTheBlockHeld) {
  auto *g = static_cast<gencfg_msg *>(tarvik_msg_malloc(c));
  g->gencfg_hdr.tlkh_type = TLK_MSG_GENCFG;
  uint8_t blob[5] = {1, 2, 3, 4, 5}, key[3] = {'k', 'e', 'y'};
  g->blob = blob;
  g->blob_len = sizeof blob;
  g->key = key;
  g->key_len = sizeof key;
  g->lrid = 9;
  EXPECT_EQ(encoded_over(c, 0xA5, g, nullptr), encoded_over(c, 0, g, nullptr));
  tlk_base *m = base_message();
  const tlk_base_tlvmap mask = header_mask();
  EXPECT_EQ(encoded_over(c, 0xA5, m, &mask), encoded_over(c, 0, m, &mask));
  tarvik_msg_free(c, m);
  tarvik_msg_free(c, g);
}

TEST_F(EnvelopeTest, CallerAreaTooSmallIsLoggedAsAllocationFailure) {
  tlk_base *m = base_message();
  const tlk_base_tlvmap mask = header_mask();
  const Bytes frame = frame_of(c, m, &mask);
  alignas(8) uint8_t area[16];
  void *msg = nullptr;
  EXPECT_EQ(
      tarvik_msg_idl_decode_pa(c, frame.data(), frame.size(), &msg, nullptr, area, sizeof area),
      ENOMEM);
  EXPECT_EQ(log.lines.back().text, "tarvik: DEBUG IDL TLV Decode Error -2(Allocation Failure)");
  alignas(8) uint8_t big[4096];
  EXPECT_EQ(tarvik_msg_idl_decode_pa(c, frame.data(), frame.size(), &msg, nullptr, big, sizeof big),
            0);
  EXPECT_EQ(static_cast<void *>(big), msg) << "the record is the area's first block";
  tarvik_msg_free(c, m);
}

TEST_F(EnvelopeTest, EncodeIntoCallerBufferReportsFullSize) {
  tlk_base *m = base_message();
  uint8_t buf[64];
  size_t len = 10;
  EXPECT_EQ(tarvik_msg_idl_encode_pa(c, m, buf, &len), ENOMEM);
  EXPECT_EQ(len, 40u);
  len = sizeof buf;
  EXPECT_EQ(tarvik_msg_idl_encode_pa(c, m, buf, &len), 0);
  EXPECT_EQ(len, 40u);
  len = 0;
  EXPECT_EQ(tarvik_msg_idl_encode_pa(c, m, buf, &len), EINVAL);
  EXPECT_EQ(log.lines.back().text, "tarvik: ERROR Invalid parameters");
  uint32_t out = 0;
  EXPECT_EQ(tarvik_idl_peek_length(&out, buf, 8), &out);
  EXPECT_EQ(out, 40u);
  EXPECT_EQ(tarvik_idl_peek_length(&out, buf, 7), nullptr);
  EXPECT_EQ(tarvik_idl_peek_magic(&out, buf, 4), &out);
  EXPECT_EQ(out, TLK_MAGIC_IDR);
  EXPECT_EQ(tarvik_idl_peek_magic(&out, buf, 3), nullptr);
  tarvik_msg_free(c, m);
}

TEST_F(EnvelopeTest, AttachmentListHolds128AndRefusesThe129th) {
  auto *m = static_cast<uint8_t *>(tarvik_msg_malloc(c));
  auto *hdr = reinterpret_cast<tlk_hdr *>(m);
  void *cursor = m + 64;
  void *const start = cursor;
  alignas(8) static tlk_msg_info infos[129];
  for (int i = 0; i < 128; ++i) ASSERT_EQ(tlkm_info_user_add(m, &infos[i], &cursor), 0) << i;
  EXPECT_EQ(static_cast<uint8_t *>(cursor) - static_cast<uint8_t *>(start),
            static_cast<ptrdiff_t>(128 * sizeof(void *)));
  EXPECT_EQ(hdr->tlkh_info_len, 128u);
  EXPECT_EQ(tlkm_info_user_add(m, &infos[128], &cursor), ENOMEM);
  EXPECT_EQ(hdr->tlkh_info_len, 128u);
  EXPECT_EQ(hdr->tlkh_info[127], &infos[127]);
  void *null_cursor = nullptr;
  hdr->tlkh_info = nullptr;
  EXPECT_EQ(tlkm_info_user_add(m, &infos[0], &null_cursor), ENOMEM);
  EXPECT_EQ(tlkm_info_user_add(nullptr, &infos[0], &cursor), EINVAL);
  tarvik_msg_free(c, m);
}

TEST_F(EnvelopeTest, DeviceMessageAttachmentsKeepTheirOrderInBothEncodings) {
  // An ifdev_msg with four attachments: a known arm, a selector without an arm, an unknown
  // selector (whose arm bytes are not sent) and a shared arm.
  const uint32_t sels[] = {1, 5, 0x7000001, 344};
  alignas(8) static tlk_msg_info infos[4];
  memset(infos, 0, sizeof infos);
  for (int i = 0; i < 4; ++i) infos[i].tlkmi_type = sels[i];
  static uint32_t words[2] = {77, 78};
  infos[0].tlkmi_u.if_opcode.io_words = words;
  infos[0].tlkmi_u.if_opcode.io_count = 2;
  memset(&infos[2].tlkmi_u, 0xAB, 32);
  const uint8_t mac[6] = {0x02, 0x54, 0x4c, 0x71, 0x12, 0x34};
  memcpy(infos[3].tlkmi_u.ether_addr.octet, mac, 6);

  for (bool tlv : {true, false}) {
    auto *m = static_cast<ifdev_msg *>(tarvik_msg_malloc(c));
    m->ifdm_hdr.tlkh_version = 'b';
    m->ifdm_hdr.tlkh_type = 5;
    m->ifdm_hdr.tlkh_op = TLK_OP_ADD;
    m->ifdm_index = 141;
    m->ifdm_generation = 9;
    void *cursor = reinterpret_cast<uint8_t *>(m) + sizeof(ifdev_msg);
    for (auto &info : infos) ASSERT_EQ(tlkm_info_user_add(m, &info, &cursor), 0);
    ifdev_msg_tlvmap mask;
    memset(&mask, 0, sizeof mask);
    for (uint32_t *w : {&mask._w0, &mask._w1, &mask._w2, &mask._w3, &mask._w4, &mask._w5, &mask._w6,
                        &mask._w7, &mask._w8})
      *w = 0xFFFFFFFFu;
    mask.ifdm_hdr._w0 =
        0xFFFu;  // every header field and the attachment list; element maps null: full
    void *frame = nullptr;
    size_t len = 0;
    ASSERT_EQ(tarvik_msg_idl_encode(c, m, tlv ? &mask : nullptr, &frame, &len), 0);
    void *out = nullptr;
    ASSERT_EQ(tarvik_msg_idl_decode(c, frame, len, &out, nullptr), 0) << tlv;
    const auto *got = static_cast<const ifdev_msg *>(out);
    EXPECT_EQ(got->ifdm_index, 141);
    EXPECT_EQ(got->ifdm_generation, 9u);
    ASSERT_EQ(got->ifdm_hdr.tlkh_info_len, 4u) << tlv;
    for (int i = 0; i < 4; ++i)
      EXPECT_EQ(got->ifdm_hdr.tlkh_info[i]->tlkmi_type, sels[i]) << tlv << i;
    const auto &op = got->ifdm_hdr.tlkh_info[0]->tlkmi_u.if_opcode;
    ASSERT_EQ(op.io_count, 2u);
    EXPECT_EQ(op.io_words[0], 77u);
    EXPECT_EQ(op.io_words[1], 78u);
    EXPECT_EQ(memcmp(got->ifdm_hdr.tlkh_info[3]->tlkmi_u.ether_addr.octet, mac, 6), 0);
    const uint8_t zero[32] = {};
    EXPECT_EQ(memcmp(&got->ifdm_hdr.tlkh_info[2]->tlkmi_u, zero, sizeof zero), 0) << tlv;
    EXPECT_EQ(memcmp(&got->ifdm_hdr.tlkh_info[1]->tlkmi_u, zero, sizeof zero), 0) << tlv;
    tarvik_msg_idl_release(c, out, nullptr);
    tarvik_msg_free(c, frame);
    tarvik_msg_free(c, m);
  }
}

// --- The framed read and write wrappers, over the simulated kernel's socket ----------------

class WrapperTest : public EnvelopeTest {
 protected:
  void push(const Bytes &b) { ASSERT_TRUE(kernel.push(tarvik_getsockfd(c), b)); }
  Bytes garbled() {
    // A type-0 payload of 40 bytes whose header uses 28: the unconsumed rest is garbled.
    return frame_head(TLK_MAGIC_IDR, 40, 0, 52);
  }
};

TEST_F(WrapperTest, EmptySocketGives35WithoutDecoding) {
  void *msg = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_msg_read_idl(c, &msg, nullptr), EAGAIN);
  EXPECT_EQ(msg, nullptr);
  EXPECT_EQ(tarvik_long_msg_read_idl(c, &msg, nullptr), EAGAIN);
  EXPECT_TRUE(log.lines.empty());
}

// A raw message, a garbled frame and a raw message out of sequence, through each wrapper.
TEST_F(WrapperTest, EachWrapperMapsDecodeFailuresItsOwnWay) {
  alignas(8) static uint8_t area[8192];
  tarvik_seq_error_register(c, nullptr, [](tarvik_cookie *, void *, uint32_t, uint32_t) {});
  void *msg = nullptr;
  const Bytes raw = tarsim::raw_message(26, TLK_OP_GET, c->seq);
  const Bytes out_of_sequence = tarsim::raw_message(26, TLK_OP_GET, c->seq + 5);
  struct Case {
    const char *name;
    int (*read)(tarvik_cookie *, void **);
    int on_raw, on_garbled;
  };
  const Case cases[] = {
      {"fixed", [](tarvik_cookie *k, void **m) { return tarvik_msg_read_idl(k, m, nullptr); },
       EOPNOTSUPP, EINVAL},
      {"fixed_pa",
       [](tarvik_cookie *k, void **m) {
         return tarvik_msg_read_idl_pa(k, m, nullptr, area, sizeof area);
       },
       EOPNOTSUPP, EINVAL},
      {"long", [](tarvik_cookie *k, void **m) { return tarvik_long_msg_read_idl(k, m, nullptr); },
       EOPNOTSUPP, EINVAL},
      {"long_pa",
       [](tarvik_cookie *k, void **m) {
         return tarvik_long_msg_read_idl_pa(k, m, nullptr, area, sizeof area);
       },
       0, 0},
  };
  for (const Case &k : cases) {
    push(raw);
    EXPECT_EQ(k.read(c, &msg), k.on_raw) << k.name;
    EXPECT_EQ(msg, nullptr) << k.name;
    push(garbled());
    EXPECT_EQ(k.read(c, &msg), k.on_garbled) << k.name;
    EXPECT_EQ(msg, nullptr) << k.name;
    push(out_of_sequence);
    EXPECT_EQ(k.read(c, &msg), -2) << k.name << ": the mismatch stops the decode";
    EXPECT_EQ(msg, nullptr) << k.name;
  }
}

TEST_F(WrapperTest, WriteThenReadAFrameRoundTrips) {
  tlk_base *m = base_message();
  kernel.record(true);
  ASSERT_EQ(tarvik_msg_write_idl(c, m, nullptr), 0);
  ASSERT_EQ(kernel.recorded().size(), 1u);
  push(kernel.recorded()[0].bytes);
  void *msg = nullptr;
  ASSERT_EQ(tarvik_long_msg_read_idl(c, &msg, nullptr), 0);
  EXPECT_EQ(static_cast<tlk_base *>(msg)->tlkb_hdr.tlkh_seq, 77u);
  tarvik_msg_idl_release(c, msg, nullptr);
  tarvik_msg_free(c, m);
}

TEST_F(WrapperTest, EncodingFailureWritesNothing) {
  tlk_base *m = base_message();
  kernel.record(true);
  auto saved = tarvik_malloc;
  tarvik_malloc = [](unsigned, size_t) -> void * { return nullptr; };
  const int err = tarvik_msg_write_idl(c, m, nullptr);
  tarvik_malloc = saved;
  EXPECT_EQ(err, ENOMEM);
  EXPECT_TRUE(kernel.recorded().empty());
  EXPECT_EQ(log.lines.back().text, "tarvik: ERROR Allocation Failure for (16384) bytes");
  tarvik_msg_free(c, m);
}

}  // namespace
}  // namespace tlktest
