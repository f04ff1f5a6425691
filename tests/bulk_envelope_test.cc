// The envelope at the session's bulk buffers: in-place encoding at the write cursor, decoding at
// the read cursor, and the checks on both buffers.
#include <errno.h>
#include <string.h>

#include "harness.h"

namespace tlktest {
namespace {

class BulkEnvelopeTest : public OneSessionTest {
 protected:
  // A type-0 message whose IDR frame is 40 bytes.
  tlk_base *message(uint32_t seq) {
    auto *m = static_cast<tlk_base *>(tarvik_msg_malloc(c));
    m->tlkb_hdr.tlkh_version = 'b';
    m->tlkb_hdr.tlkh_op = TLK_OP_GET;
    m->tlkb_hdr.tlkh_seq = seq;
    m->tlkb_hdr.tlkh_fixedlen = 24;
    return m;
  }
  // Buffers of the given sizes, owned (and freed) by the session as bulk mode's own would be.
  void give_buffers(uint32_t wsize, uint32_t rsize) {
    c->wbuf = static_cast<uint8_t *>(tarvik_size_alloc(c, wsize));
    c->wbuf_cur = c->wbuf;
    c->wbuf_sz = wsize;
    c->rbuf_data = static_cast<uint8_t *>(tarvik_size_alloc(c, rsize));
    c->rbuf_cur = c->rbuf_data;
    c->rbuf_end = c->rbuf_data;
    c->rbuf_sz = rsize;
  }
  // Encodes `m` with the ordinary envelope and places the frame at `at` in the read buffer.
  uint32_t place_frame(const void *m, const void *mask, uint32_t at) {
    const Bytes frame = frame_of(c, m, mask);
    memcpy(c->rbuf_data + at, frame.data(), frame.size());
    return static_cast<uint32_t>(frame.size());
  }
};

// The same bytes as the ordinary envelope, in both encodings, wherever the cursor stands.
TEST_F(BulkEnvelopeTest, EncodesAtTheCursorWithoutMovingIt) {
  give_buffers(300, 64);
  tlk_base *m = message(9);
  const tlk_base_tlvmap mask = header_mask();
  for (const tlk_base_tlvmap *map : {static_cast<const tlk_base_tlvmap *>(nullptr), &mask}) {
    for (uint32_t at : {0u, 100u}) {
      c->wbuf_cur = c->wbuf + at;
      uint32_t len = 1234;
      ASSERT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, map), 0);
      EXPECT_EQ(c->wbuf_cur, c->wbuf + at);
      EXPECT_EQ(Bytes(c->wbuf + at, c->wbuf + at + len), frame_of(c, m, map)) << at;
    }
  }
  tarvik_msg_free(c, m);
}

TEST_F(BulkEnvelopeTest, AFrameThatExactlyFillsTheRoomFitsAndOneByteLessDoesNot) {
  give_buffers(100, 64);
  tlk_base *m = message(1);
  uint32_t len = 7;
  c->wbuf_cur = c->wbuf + 60;  // 40 bytes of room
  EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, nullptr), 0);
  EXPECT_EQ(len, 40u);
  c->wbuf_cur = c->wbuf + 61;
  EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, nullptr), ENOMEM);
  EXPECT_EQ(len, 0u);
  c->wbuf_cur = c->wbuf + 100;  // no room at all is still a sound buffer
  EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, nullptr), ENOMEM);
  EXPECT_TRUE(log.lines.empty()) << "a full buffer is the caller's cue to flush, not an error";
  tarvik_msg_free(c, m);
}

TEST_F(BulkEnvelopeTest, UnsoundSendBuffersAreRefusedAtLevel4) {
  tlk_base *m = message(1);
  uint32_t len = 5;
  EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, nullptr), EINVAL);  // no buffer at all
  give_buffers(64, 64);
  c->wbuf_cur = c->wbuf - 1;
  EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, nullptr), EINVAL);
  c->wbuf_cur = c->wbuf + 65;
  EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, nullptr), EINVAL);
  EXPECT_EQ(len, 0u);
  ASSERT_EQ(log.count(TLK_LEVEL_FATAL), 3u);
  EXPECT_EQ(
      log.lines[0].text,
      "tarvik: FATAL ERROR tarvik_bulkmsg_idl_encode: Invalid/Corrupted common send buffer\n");
  c->wbuf_cur = c->wbuf;
  EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, nullptr, nullptr), EINVAL);
  EXPECT_TRUE(log.contains("tarvik_bulkmsg_idl_encode: Invalid input from caller: cookie="));
  tarvik_msg_free(c, m);
}

TEST_F(BulkEnvelopeTest, DecodesFramesOneAfterAnotherAtTheReadCursor) {
  give_buffers(64, 4096);
  tlk_base *first = message(11), *second = message(12);
  const tlk_base_tlvmap mask = header_mask();
  const uint32_t len1 = place_frame(first, nullptr, 0);
  const uint32_t len2 = place_frame(second, &mask, len1);
  c->rbuf_end = c->rbuf_data + len1 + len2 - 1;

  uint32_t decoded = 0;
  void *msg = nullptr, *got_mask = nullptr;
  ASSERT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &msg, &got_mask), 0);
  EXPECT_EQ(decoded, len1);
  EXPECT_EQ(c->rbuf_cur, c->rbuf_data) << "the cursor is the caller's to move";
  const tlk_hdr &h1 = static_cast<tlk_base *>(msg)->tlkb_hdr;
  EXPECT_EQ(h1.tlkh_seq, 11u);
  EXPECT_EQ(h1.tlkh_msglen, len1 + len2) << "the length is what was available from the frame on";
  EXPECT_EQ(got_mask, nullptr) << "an IDR frame leaves the mask untouched";
  tarvik_msg_idl_release(c, msg, nullptr);

  c->rbuf_cur += decoded;
  msg = nullptr;
  ASSERT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &msg, &got_mask), 0);
  EXPECT_EQ(decoded, len2);
  EXPECT_EQ(static_cast<tlk_base *>(msg)->tlkb_hdr.tlkh_seq, 12u);
  ASSERT_NE(got_mask, nullptr);
  EXPECT_EQ(static_cast<tlk_base_tlvmap *>(got_mask)->tlkb_hdr._w0, 0x7FFu);
  tarvik_msg_idl_release(c, msg, got_mask);
  tarvik_msg_free(c, first);
  tarvik_msg_free(c, second);
}

TEST_F(BulkEnvelopeTest, AFailedDecodeLeavesTheSlotAsItWas) {
  give_buffers(64, 256);
  tlk_base *m = message(3);
  const uint32_t len = place_frame(m, nullptr, 0);
  const uint32_t short_payload = 20;  // the record needs 28 bytes
  memcpy(c->rbuf_data + 4, &short_payload, 4);
  c->rbuf_end = c->rbuf_data + len - 1;
  void *slot = &slot;  // the bulk writer's "expects a reply" marker
  uint32_t decoded = 99;
  EXPECT_NE(tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr), 0);
  EXPECT_EQ(slot, static_cast<void *>(&slot));
  EXPECT_EQ(decoded, 0u);

  // Raw bytes (a zero first word) are not a frame.
  memset(c->rbuf_data, 0, 64);
  c->rbuf_end = c->rbuf_data + 63;
  EXPECT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr), EOPNOTSUPP);
  EXPECT_EQ(slot, static_cast<void *>(&slot));
  tarvik_msg_free(c, m);
}

TEST_F(BulkEnvelopeTest, ShortAndUnsoundReceiveBuffersAreRefusedAtLevel4) {
  uint32_t decoded = 0;
  void *slot = nullptr;
  EXPECT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr), EINVAL);  // no buffer
  give_buffers(64, 256);
  c->rbuf_end = c->rbuf_cur;  // the end must lie beyond the cursor
  EXPECT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr), EINVAL);
  c->rbuf_end = c->rbuf_data + 256;  // past the last byte of the buffer
  EXPECT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr), EINVAL);
  EXPECT_EQ(log.count(TLK_LEVEL_FATAL), 3u);
  EXPECT_TRUE(log.contains("tarvik_bulkmsg_idl_decode: Invalid/Corrupted common receive buffer\n"));

  c->rbuf_end = c->rbuf_data + 22;  // 23 bytes
  EXPECT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr), EINVAL);
  EXPECT_EQ(log.lines.back().text,
            "tarvik: FATAL ERROR tarvik_bulkmsg_idl_decode: msg read too small for header: 23\n");
  EXPECT_EQ(slot, nullptr);
}

TEST_F(BulkEnvelopeTest, AFrameLongerThanTheBlockFailsAndKeepsTheSlot) {
  give_buffers(64, 256);
  tlk_base *m = message(4);
  const uint32_t len = place_frame(m, nullptr, 0);
  c->rbuf_end = c->rbuf_data + len - 2;  // the block ends one byte into the frame
  void *slot = &slot;
  uint32_t decoded = 0;
  const int err = tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr);
  EXPECT_EQ(err, EINVAL) << "the frame's own head claims more than the block holds";
  EXPECT_EQ(slot, static_cast<void *>(&slot));
  tarvik_msg_free(c, m);
}

}  // namespace
}  // namespace tlktest
