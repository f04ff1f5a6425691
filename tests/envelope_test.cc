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
  // A type-0 message: the header alone.
  tlk_base *base_message() {
    auto *m = static_cast<tlk_base *>(tarvik_msg_malloc(c));
    tlk_hdr &h = m->tlkb_hdr;
    h.tlkh_version = 'b';
    h.tlkh_type = 0;
    h.tlkh_op = TLK_OP_GET;
    h.tlkh_flags = 2;
    h.tlkh_seq = 77;
    return m;
  }
};

// What decodes into what, field by field, the frame round trips show for every type; here, what
// the envelope itself adds.
TEST_F(EnvelopeTest, HeaderOnlyFrames) {
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

  // The caller-area variants: too small an area or buffer is ENOMEM, and an encode says the size
  // it needed.
  const Bytes frame = frame_of(c, m, &mask);
  alignas(8) uint8_t area[4096];
  EXPECT_EQ(tarvik_msg_idl_decode_pa(c, frame.data(), frame.size(), &msg, nullptr, area, 16),
            ENOMEM);
  EXPECT_EQ(log.lines.back().text, "tarvik: DEBUG IDL TLV Decode Error -2(Allocation Failure)");
  EXPECT_EQ(
      tarvik_msg_idl_decode_pa(c, frame.data(), frame.size(), &msg, nullptr, area, sizeof area), 0);
  EXPECT_EQ(static_cast<void *>(area), msg) << "the record is the area's first block";

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
  // A type without a record encodes to a bare head, whatever its body.
  const Bytes raw = tarsim::raw_message(3, TLK_OP_ADD, 9, Bytes(40, 0xEE));
  EXPECT_EQ(frame_of(c, raw.data()), frame_head(TLK_MAGIC_IDR, 0, 3));
}

// Inputs the decoder refuses, with its answer and, where it says something, its last line.
TEST_F(EnvelopeTest, RefusedInputs) {
  const Bytes raw = tarsim::raw_message(26, TLK_OP_GET, 1);
  // An IDR header claiming 0x00FFFFFF attachments in a 40-byte frame: the list's room cannot be
  // had, and the decode gives up rather than growing the arena on and on.
  Bytes huge_list = frame_head(TLK_MAGIC_IDR, 28, 0, 40);
  put_u32(huge_list, 12 + 24, 0x00FFFFFF);
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
      {"huge attachment count", huge_list, 40, ENOMEM, "tarvik: ERROR Allocation Failure"},
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
    size_t growths = 0;
    for (const auto &l : log.lines)
      growths += l.text.find("Growing the buffer") != std::string::npos;
    EXPECT_LE(growths, 2u) << "no endless growth";
  }
}

// An allocator that records the sizes asked for messages (identifier 75) and fills every block
// with g_fill, installed for one call.
std::vector<size_t> g_sizes;
uint8_t g_fill = 0;
void *(*g_real_malloc)(unsigned, size_t) = nullptr;
void *hooked_malloc(unsigned memid, size_t size) {
  if (memid == MEMID_TARVIK_MSG) g_sizes.push_back(size);
  void *p = g_real_malloc(memid, size);
  if (p != nullptr) memset(p, g_fill, size);
  return p;
}
template <typename F>
void hooked(uint8_t fill, F call) {
  g_sizes.clear();
  g_fill = fill;
  g_real_malloc = tarvik_malloc;
  tarvik_malloc = hooked_malloc;
  call();
  tarvik_malloc = g_real_malloc;
}

TEST_F(EnvelopeTest, DecodeArenaStartsAtBlockSizeOrFramePlus1024) {
  // The decode's result and its first arena, as the allocator sees it.
  const auto first_arena = [&](const Bytes &frame) {
    void *msg = nullptr;
    int err = -1;
    hooked(0, [&] { err = tarvik_msg_idl_decode(c, frame.data(), frame.size(), &msg, nullptr); });
    tarvik_msg_idl_release(c, msg, nullptr);
    return std::pair{err, g_sizes.empty() ? 0 : g_sizes.front()};
  };
  // An ifl_msg whose name blob makes its IDR frame exactly 16384 bytes.
  auto *m = static_cast<ifl_msg *>(tarvik_msg_malloc(c));
  m->iflm_hdr.tlkh_type = 6;
  std::vector<uint8_t> name(20000, 'n');
  m->iflm_name = name.data();
  m->iflm_name_len = static_cast<uint32_t>(16384 - 12 - idr_encode_ifl_msg_0(m, nullptr, 0));
  const Bytes frame = frame_of(c, m);
  ASSERT_EQ(frame.size(), 16384u);
  EXPECT_EQ(first_arena(frame), std::pair(0, size_t{16384}));
  tarvik_msg_free(c, m);
  // A frame one byte longer starts with its own size and 1024 more (the frame itself is
  // garbled: a type-0 header does not fill it, which is refused after the allocation).
  EXPECT_EQ(first_arena(frame_head(TLK_MAGIC_IDR, 16385 - 12, 0, 16385)),
            std::pair(EINVAL, size_t{17409}));
}

// The encoded buffer is not cleared before encoding: every byte of the frame, pads included, is
// the encoder's, so a block full of other bytes gives the same frame as a zeroed one.
TEST_F(EnvelopeTest, EveryByteOfAnEncodedFrameIsWrittenWhateverTheBlockHeld) {
  const auto encoded_over = [&](uint8_t fill, const void *raw, const void *mask) {
    Bytes out;
    hooked(fill, [&] { out = frame_of(c, raw, mask); });
    return out;
  };
  auto *g = static_cast<gencfg_msg *>(tarvik_msg_malloc(c));
  g->gencfg_hdr.tlkh_type = TLK_MSG_GENCFG;
  uint8_t blob[5] = {1, 2, 3, 4, 5}, key[3] = {'k', 'e', 'y'};
  g->blob = blob;
  g->blob_len = sizeof blob;
  g->key = key;
  g->key_len = sizeof key;
  g->lrid = 9;
  EXPECT_EQ(encoded_over(0xA5, g, nullptr), encoded_over(0, g, nullptr));
  tlk_base *m = base_message();
  const tlk_base_tlvmap mask = header_mask();
  EXPECT_EQ(encoded_over(0xA5, m, &mask), encoded_over(0, m, &mask));
  tarvik_msg_free(c, m);
  tarvik_msg_free(c, g);
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
  // Every word and header field set, the attachment list included; element maps null: full.
  ifdev_msg_tlvmap mask;
  memset(&mask, 0, sizeof mask);
  for (uint32_t *w : {&mask._w0, &mask._w1, &mask._w2, &mask._w3, &mask._w4, &mask._w5, &mask._w6,
                      &mask._w7, &mask._w8})
    *w = 0xFFFFFFFFu;
  mask.ifdm_hdr._w0 = 0xFFFu;
  for (bool tlv : {true, false}) {
    SCOPED_TRACE(tlv ? "TLV" : "IDR");
    auto *m = static_cast<ifdev_msg *>(tarvik_msg_malloc(c));
    m->ifdm_hdr.tlkh_type = 5;
    m->ifdm_index = 141;
    void *cursor = reinterpret_cast<uint8_t *>(m) + sizeof(ifdev_msg);
    for (auto &info : infos) ASSERT_EQ(tlkm_info_user_add(m, &info, &cursor), 0);
    const Bytes frame = frame_of(c, m, tlv ? &mask : nullptr);
    void *out = nullptr;
    ASSERT_EQ(tarvik_msg_idl_decode(c, frame.data(), frame.size(), &out, nullptr), 0);
    const tlk_hdr &got = static_cast<const ifdev_msg *>(out)->ifdm_hdr;
    EXPECT_EQ(static_cast<const ifdev_msg *>(out)->ifdm_index, 141);
    ASSERT_EQ(got.tlkh_info_len, 4u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(got.tlkh_info[i]->tlkmi_type, sels[i]) << i;
    const auto &op = got.tlkh_info[0]->tlkmi_u.if_opcode;
    ASSERT_EQ(op.io_count, 2u);
    EXPECT_EQ(op.io_words[1], 78u);
    const uint8_t zero[32] = {};
    EXPECT_EQ(memcmp(&got.tlkh_info[1]->tlkmi_u, zero, sizeof zero), 0);
    EXPECT_EQ(memcmp(&got.tlkh_info[2]->tlkmi_u, zero, sizeof zero), 0);
    tarvik_msg_idl_release(c, out, nullptr);
    tarvik_msg_free(c, m);
  }
}

// --- The framed read and write wrappers, over the simulated kernel's socket ----------------

using WrapperTest = EnvelopeTest;

// A raw message, a garbled frame and a raw message out of sequence, through each wrapper.
TEST_F(WrapperTest, EachWrapperMapsDecodeFailuresItsOwnWay) {
  alignas(8) static uint8_t area[8192];
  tarvik_seq_error_register(c, nullptr, [](tarvik_cookie *, void *, uint32_t, uint32_t) {});
  void *msg = nullptr;
  const int fd = tarvik_getsockfd(c);
  const Bytes raw = tarsim::raw_message(26, TLK_OP_GET, c->seq);
  // A type-0 payload of 40 bytes whose header uses 28: the unconsumed rest is garbled.
  const Bytes garbled = frame_head(TLK_MAGIC_IDR, 40, 0, 52);
  const Bytes out_of_sequence = tarsim::raw_message(26, TLK_OP_GET, c->seq + 5);
  const struct {
    const char *name;
    bool whole, area;  // the long read; the caller-area variant
    int on_raw, on_garbled;
  } cases[] = {
      {"fixed", false, false, EOPNOTSUPP, EINVAL},
      {"fixed_pa", false, true, EOPNOTSUPP, EINVAL},
      {"long", true, false, EOPNOTSUPP, EINVAL},
      {"long_pa", true, true, 0, 0},
  };
  for (const auto &k : cases) {
    const auto read = [&] {
      if (k.area) {
        return k.whole ? tarvik_long_msg_read_idl_pa(c, &msg, nullptr, area, sizeof area)
                       : tarvik_msg_read_idl_pa(c, &msg, nullptr, area, sizeof area);
      }
      return k.whole ? tarvik_long_msg_read_idl(c, &msg, nullptr)
                     : tarvik_msg_read_idl(c, &msg, nullptr);
    };
    SCOPED_TRACE(k.name);
    for (const auto &[in, err] :
         {std::pair{raw, k.on_raw}, {garbled, k.on_garbled}, {out_of_sequence, -2}}) {
      ASSERT_TRUE(kernel.push(fd, in));
      EXPECT_EQ(read(), err) << "-2: the sequence mismatch stops the decode";
      EXPECT_EQ(msg, nullptr);
    }
  }
}

// An empty socket is EAGAIN without a decode; an encoding failure writes nothing; a written
// frame reads back.
TEST_F(WrapperTest, WriteAndReadThroughTheSocket) {
  void *msg = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_msg_read_idl(c, &msg, nullptr), EAGAIN);
  EXPECT_EQ(msg, nullptr);
  EXPECT_EQ(tarvik_long_msg_read_idl(c, &msg, nullptr), EAGAIN);
  EXPECT_TRUE(log.lines.empty());

  tlk_base *m = base_message();
  kernel.record(true);
  auto saved = tarvik_malloc;
  tarvik_malloc = [](unsigned, size_t) -> void * { return nullptr; };
  const int err = tarvik_msg_write_idl(c, m, nullptr);
  tarvik_malloc = saved;
  EXPECT_EQ(err, ENOMEM);
  EXPECT_TRUE(kernel.recorded().empty());
  EXPECT_EQ(log.lines.back().text, "tarvik: ERROR Allocation Failure for (16384) bytes");

  ASSERT_EQ(tarvik_msg_write_idl(c, m, nullptr), 0);
  ASSERT_EQ(kernel.recorded().size(), 1u);
  ASSERT_TRUE(kernel.push(tarvik_getsockfd(c), kernel.recorded()[0].bytes));
  ASSERT_EQ(tarvik_long_msg_read_idl(c, &msg, nullptr), 0);
  EXPECT_EQ(static_cast<tlk_base *>(msg)->tlkb_hdr.tlkh_seq, 77u);
  tarvik_msg_idl_release(c, msg, nullptr);
  tarvik_msg_free(c, m);
}

}  // namespace
}  // namespace tlktest
