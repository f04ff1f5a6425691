// The envelope at the session's bulk buffers: in-place encoding at the write cursor, decoding at
// the read cursor, and the checks on both buffers.
#include <errno.h>
#include <string.h>

#include <algorithm>

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

// The write cursor against the room behind it: an exact fit passes, a full buffer is the
// caller's cue to flush (silent), a cursor outside the buffer is refused at level 4.
TEST_F(BulkEnvelopeTest, SendBufferRoomAndSoundness) {
  tlk_base *m = message(1);
  uint32_t len = 5;
  EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, nullptr), EINVAL);  // no buffer at all
  give_buffers(100, 64);
  const struct {
    ptrdiff_t at;
    int err;
    uint32_t len;
    size_t fatal_lines;  // so far
  } rows[] = {
      {60, 0, 40, 1},                           // 40 bytes of room
      {61, ENOMEM, 0, 1}, {100, ENOMEM, 0, 1},  // no room at all is still a sound buffer
      {-1, EINVAL, 0, 2}, {101, EINVAL, 0, 3},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.at);
    c->wbuf_cur = c->wbuf + row.at;
    len = 7;
    EXPECT_EQ(tarvik_bulkmsg_idl_encode(c, &len, m, nullptr), row.err);
    EXPECT_EQ(len, row.len);
    EXPECT_EQ(log.lines.size(), row.fatal_lines);
    EXPECT_EQ(log.count(TLK_LEVEL_FATAL), row.fatal_lines);
  }
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
  const Bytes both = cat({frame_of(c, first), frame_of(c, second, &mask)});
  const uint32_t len1 = 40, len2 = static_cast<uint32_t>(both.size()) - len1;
  memcpy(c->rbuf_data, both.data(), both.size());
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

// Refused reads leave the bulk writer's "expects a reply" mark in the slot and decode nothing;
// an unsound receive buffer is refused at level 4.
TEST_F(BulkEnvelopeTest, RefusedReadsKeepTheSlot) {
  uint32_t decoded = 0;
  void *slot = &slot;
  EXPECT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr), EINVAL);  // no buffer
  give_buffers(64, 256);
  tlk_base *m = message(3);
  const Bytes frame = frame_of(c, m);
  const uint32_t len = static_cast<uint32_t>(frame.size());
  const std::string fatal = "tarvik: FATAL ERROR tarvik_bulkmsg_idl_decode: ";
  const std::string unsound = "Invalid/Corrupted common receive buffer\n";
  const struct {
    const char *name;
    Bytes head;    // written over the frame's first bytes
    uint32_t end;  // offset of the block's last byte
    int err;
    std::string line;  // after `fatal`; empty: none checked
  } rows[] = {
      // An unsound buffer: the end must lie beyond the cursor and within the buffer.
      {"the end at the cursor", {}, 0, EINVAL, unsound},
      {"the end past the buffer", {}, 256, EINVAL, unsound},
      {"23 bytes", {}, 22, EINVAL, "msg read too small for header: 23\n"},
      // The frame's own head claims more than the block holds.
      {"the block ends one byte into the frame", {}, len - 2, EINVAL, ""},
      {"a payload short of the record's 28", frame_head(TLK_MAGIC_IDR, 20, 0), len - 1, EINVAL, ""},
      {"raw bytes: a zero first word", Bytes(64, 0), 63, EOPNOTSUPP, ""},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    memcpy(c->rbuf_data, frame.data(), len);
    std::copy(row.head.begin(), row.head.end(), c->rbuf_data);
    c->rbuf_end = c->rbuf_data + row.end;
    decoded = 99;
    EXPECT_EQ(tarvik_bulkmsg_idl_decode(c, &decoded, &slot, nullptr), row.err);
    EXPECT_EQ(slot, static_cast<void *>(&slot));
    if (row.line != unsound) {
      EXPECT_EQ(decoded, 0u);
    }
    if (!row.line.empty()) {
      EXPECT_EQ(log.lines.back().text, fatal + row.line);
    }
  }
  EXPECT_EQ(log.count(TLK_LEVEL_FATAL), 4u);
  tarvik_msg_free(c, m);
}

}  // namespace
}  // namespace tlktest
