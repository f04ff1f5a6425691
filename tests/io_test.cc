// Synchronous message I/O: writes, the two reads, the peek and the sequence rule, all through a
// real socket of the simulated kernel.
#include <errno.h>
#include <string.h>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

constexpr uint8_t kStatsType = 26;  // "tarlink stats": a raw type

Bytes frame(uint32_t magic, size_t payload) {
  Bytes f(12 + payload, 0xAB);
  memcpy(&f[0], &magic, 4);
  const uint32_t len = static_cast<uint32_t>(payload);
  memcpy(&f[4], &len, 4);
  const uint32_t type = 6;
  memcpy(&f[8], &type, 4);
  return f;
}

void set_u32(Bytes &m, size_t off, uint32_t v) { memcpy(&m[off], &v, 4); }

class IoTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    c = open_session();
    ASSERT_NE(c, nullptr);
    fd = tarvik_getsockfd(c);
    buf = static_cast<uint8_t *>(tarvik_msg_malloc(c));
  }
  void TearDown() override {
    tarvik_msg_free(c, buf);
    tarvik_close(c);
    SimTest::TearDown();
  }
  // A raw message the kernel pushes, carrying the session's current sequence number.
  Bytes raw(size_t body = 0) { return tarsim::raw_message(kStatsType, TLK_OP_GET, c->seq, Bytes(body, 0x5A)); }

  tarvik_cookie *c = nullptr;
  int fd = -1;
  uint8_t *buf = nullptr;
};

TEST_F(IoTest, EmptySocketGivesEagainQuietly) {
  size_t len = 99;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), EAGAIN);
  void *out = reinterpret_cast<void *>(1);
  size_t out_len = 7;
  EXPECT_EQ(tarvik_long_msg_read(c, &out, &out_len), EAGAIN);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(out_len, 0u);
  errno = 0;
  EXPECT_EQ(tarvik_peek_pkt_len(fd), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(IoTest, RequestReplyRoundTripCopiesSequence) {
  uint32_t seq = 0;
  ASSERT_EQ(tarvik_seq_get_next(c, &seq), 0);
  EXPECT_EQ(seq, 2u) << "a session starts at 1 and pre-increments";
  const Bytes req = tarsim::raw_message(kStatsType, TLK_OP_GET, seq, Bytes(12, 0));
  ASSERT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  size_t len = 0;
  ASSERT_EQ(tarvik_msg_read(c, buf, &len), 0);
  ASSERT_EQ(len, 24u + 16u);
  uint32_t got_seq, requests;
  memcpy(&got_seq, buf + 12, 4);
  memcpy(&requests, buf + 24, 4);
  EXPECT_EQ(got_seq, seq);
  EXPECT_EQ(requests, 1u);
  EXPECT_EQ(c->seq, 2u) << "a request-reply session's counter is not advanced by the read";
}

TEST_F(IoTest, FixedReadAcceptsExactly16384Bytes) {
  Bytes m = raw(TLK_MSG_BUF_SIZE - 24);
  ASSERT_TRUE(kernel.push(fd, m));
  size_t len = 0;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
  EXPECT_EQ(len, 16384u);
  EXPECT_EQ(buf[16383], 0x5A);

  ASSERT_TRUE(kernel.push(fd, raw(TLK_MSG_BUF_SIZE - 23)));
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), EIO);
  EXPECT_EQ(log.lines.back().text, "tarvik: FATAL ERROR msg read too large for tarlink message: 16385\n");
}

TEST_F(IoTest, OverlongRawMessageIsCutToItsLength) {
  Bytes m = raw(100 - 24);
  set_u32(m, 8, 80);
  ASSERT_TRUE(kernel.push(fd, m));
  size_t len = 0;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
  EXPECT_EQ(len, 80u);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_WARNING);
  EXPECT_EQ(log.lines[0].text, "tarvik: WARNING msg read too long got (100), expected 80\n");

  ASSERT_TRUE(kernel.push(fd, m));
  void *out = nullptr;
  EXPECT_EQ(tarvik_long_msg_read(c, &out, &len), 0) << "the long read sizes by the header: 80";
  EXPECT_EQ(len, 80u);
  tarvik_msg_free(c, out);
}

TEST_F(IoTest, ShortRawMessageIsEio) {
  Bytes m = raw(16);
  set_u32(m, 8, 200);
  ASSERT_TRUE(kernel.push(fd, m));
  EXPECT_EQ(tarvik_msg_read(c, buf, nullptr), EIO);
  EXPECT_EQ(log.lines.back().level, TLK_LEVEL_FATAL);
  EXPECT_EQ(log.lines.back().text, "tarvik: FATAL ERROR msg read too short got (40), expected 200\n");
}

TEST_F(IoTest, TwentyByteMessageIsTooSmallAndInvisibleToPeek) {
  Bytes m = raw();
  m.resize(20);
  set_u32(m, 8, 20);
  ASSERT_TRUE(kernel.push(fd, m));
  errno = 0;
  EXPECT_EQ(tarvik_peek_pkt_len(fd), -1);
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(tarvik_msg_read(c, buf, nullptr), EIO);
  EXPECT_EQ(log.lines.back().text, "tarvik: FATAL ERROR msg read too small for header: 20\n");
  // The long read peeks first, and a 20-byte message looks like no message at all.
  ASSERT_TRUE(kernel.push(fd, m));
  void *out = nullptr;
  EXPECT_EQ(tarvik_long_msg_read(c, &out, nullptr), EAGAIN);
  EXPECT_EQ(out, nullptr);
}

TEST_F(IoTest, FramesAreNotLengthCheckedOrSequenceChecked) {
  for (uint32_t magic : {TLK_MAGIC_TLV, TLK_MAGIC_IDR}) {
    Bytes f = frame(magic, 40);
    set_u32(f, 12, 0xFFFFFFFF);  // would be a wild msglen/seq in a raw message
    ASSERT_TRUE(kernel.push(fd, f));
    EXPECT_EQ(tarvik_peek_pkt_len(fd), 52);
    size_t len = 0;
    EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
    EXPECT_EQ(len, 52u);
    ASSERT_TRUE(kernel.push(fd, f));
    void *out = nullptr;
    EXPECT_EQ(tarvik_long_msg_read(c, &out, &len), 0);
    EXPECT_EQ(len, 52u);
    EXPECT_EQ(memcmp(out, f.data(), f.size()), 0);
    tarvik_msg_free(c, out);
  }
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(c->seq, 1u);
}

TEST_F(IoTest, LongReadSizesByPeekAndTakesAnyLength) {
  const Bytes m = raw(100000);
  kernel.push(fd, m);
  EXPECT_EQ(tarvik_peek_pkt_len(fd), static_cast<int>(m.size()));
  void *out = nullptr;
  size_t len = 0;
  ASSERT_EQ(tarvik_long_msg_read(c, &out, &len), 0);
  EXPECT_EQ(len, m.size());
  EXPECT_EQ(memcmp(out, m.data(), m.size()), 0);
  tarvik_msg_free(c, out);
}

TEST_F(IoTest, LongReadRefusesZeroAndHugePeekedLengths) {
  for (uint32_t bad : {0u, 0x7FFFFFFEu, 0xFFFFFFFFu}) {
    Bytes m = raw();
    set_u32(m, 8, bad);
    ASSERT_TRUE(kernel.push(fd, m));
    void *out = reinterpret_cast<void *>(1);
    size_t len = 5;
    EXPECT_EQ(tarvik_long_msg_read(c, &out, &len), EINVAL) << bad;
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(len, 0u);
    ASSERT_EQ(tarvik_msg_read(c, buf, nullptr), EIO) << "drain " << bad;
  }
}

TEST_F(IoTest, LongReadOfTinyHeaderLengthNeverReadsPastItsBlock) {
  Bytes m = raw(8);
  set_u32(m, 8, 5);  // the header claims 5 bytes: the long read allocates exactly 5
  ASSERT_TRUE(kernel.push(fd, m));
  void *out = nullptr;
  EXPECT_EQ(tarvik_long_msg_read(c, &out, nullptr), EIO);
  EXPECT_EQ(out, nullptr);
  EXPECT_TRUE(log.contains("msg read too small for header"));
}

TEST_F(IoTest, ReadErrorOtherThanEagainIsFatal) {
  ASSERT_TRUE(kernel.push(fd, raw()));
  kernel.inject_read_errno(ECONNRESET);
  EXPECT_EQ(tarvik_msg_read(c, buf, nullptr), ECONNRESET);
  EXPECT_EQ(log.lines.back().text,
            std::string("tarvik: FATAL ERROR read failed: (104) ") + strerror(ECONNRESET));
  kernel.inject_read_errno(ECONNRESET);
  void *out = nullptr;
  EXPECT_EQ(tarvik_long_msg_read(c, &out, nullptr), ECONNRESET);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(tarvik_msg_read(c, buf, nullptr), 0) << "the message was still there";
}

TEST_F(IoTest, WriteErrorsAndShortWrites) {
  const Bytes req = raw();
  kernel.inject_write_errno(ENOBUFS);
  EXPECT_EQ(tarvik_write(c, req.data(), req.size()), ENOBUFS);
  EXPECT_TRUE(log.lines.empty()) << "a failed write is not diagnosed";

  kernel.inject_short_write(0);
  EXPECT_EQ(tarvik_write(c, req.data(), 1), 0);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_FATAL);
  EXPECT_EQ(log.lines[0].text, "tarvik: FATAL ERROR wrote 1 bytes to routing socket, got 0");

  kernel.inject_short_write(10);
  EXPECT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  EXPECT_EQ(log.lines.back().text, "tarvik: FATAL ERROR wrote 24 byte to routing socket, got 10");
  EXPECT_EQ(tarvik_write(nullptr, req.data(), req.size()), EINVAL);
}

TEST_F(IoTest, RequestReplyMismatchIsFatalButDelivers) {
  c->seq = 7;
  Bytes m = raw();
  set_u32(m, 12, 9);
  ASSERT_TRUE(kernel.push(fd, m));
  size_t len = 0;
  memset(buf, 0, 64);
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), -2);
  EXPECT_EQ(len, 24u);
  EXPECT_EQ(buf[5], kStatsType) << "the message is delivered";
  EXPECT_EQ(log.lines.back().level, TLK_LEVEL_FATAL);
  EXPECT_EQ(log.lines.back().text, "tarvik: FATAL ERROR request/reply seq mismatch: (7 != 9)\n");
  EXPECT_EQ(c->seq, 7u) << "a request-reply session is not repaired";
}

TEST_F(IoTest, MismatchWithCallbackIsSilent) {
  struct Seen {
    uint32_t expected = 0, got = 0;
    int calls = 0;
  } seen;
  tarvik_seq_error_register(c, &seen, [](tarvik_cookie *, void *arg, uint32_t e, uint32_t g) {
    auto *s = static_cast<Seen *>(arg);
    s->expected = e;
    s->got = g;
    ++s->calls;
  });
  Bytes m = raw();
  set_u32(m, 12, 1000);
  ASSERT_TRUE(kernel.push(fd, m));
  void *out = nullptr;
  EXPECT_EQ(tarvik_long_msg_read(c, &out, nullptr), -2);
  EXPECT_NE(out, nullptr);
  tarvik_msg_free(c, out);
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.expected, 1u);
  EXPECT_EQ(seen.got, 1000u);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(IoTest, AsyncSessionResynchronisesAndLetsStatsThrough) {
  c->async_info = static_cast<tarvik_async_info_t *>(
      tarvik_calloc(MEMID_TARVIK_ASYNC_CTX, 1, sizeof(tarvik_async_info_t)));
  c->seq = 50;
  Bytes m = raw();
  set_u32(m, 12, 50);
  EXPECT_EQ(tarvik_check_read_seq(c, m.data()), 0);
  EXPECT_EQ(c->seq, 51u);

  set_u32(m, 12, 60);
  EXPECT_EQ(tarvik_check_read_seq(c, m.data()), -2);
  EXPECT_EQ(c->seq, 61u) << "resynchronised after the mismatch";
  EXPECT_EQ(log.lines.back().level, TLK_LEVEL_ERROR);
  EXPECT_EQ(log.lines.back().text, "tarvik: ERROR async message seq mismatch: (51 != 60)\n");

  set_u32(m, 12, 0);
  tarvik_set_used_by_stats(c, 1);
  EXPECT_EQ(tarvik_check_read_seq(c, m.data()), 0);
  EXPECT_EQ(c->seq, 61u) << "a statistics reply leaves the counter alone";
  tarvik_set_used_by_stats(c, 0);
  EXPECT_EQ(tarvik_check_read_seq(c, m.data()), -2);
  EXPECT_EQ(c->seq, 1u);
}

TEST_F(IoTest, SequenceCounterWrapsAndChecksArguments) {
  c->seq = 0xFFFFFFFF;
  uint32_t seq = 5;
  EXPECT_EQ(tarvik_seq_get_next(c, &seq), 0);
  EXPECT_EQ(seq, 0u);
  EXPECT_EQ(tarvik_seq_get_next(nullptr, &seq), EINVAL);
  EXPECT_EQ(tarvik_seq_get_next(c, nullptr), EINVAL);
  EXPECT_EQ(tarvik_msg_read(nullptr, buf, nullptr), EINVAL);
  EXPECT_EQ(tarvik_msg_read(c, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tarvik_long_msg_read(c, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tarvik_check_read_seq(c, nullptr), EINVAL);
}

TEST_F(IoTest, SimulatorFaultsReachTheReader) {
  // A reply cut short by the kernel, one with bytes beyond its length, one with the wrong number.
  c->seq = 2;
  const Bytes req = tarsim::raw_message(kStatsType, TLK_OP_GET, 2, Bytes(12, 0));
  kernel.inject_reply_truncate(30);
  ASSERT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  EXPECT_EQ(tarvik_msg_read(c, buf, nullptr), EIO);
  kernel.inject_reply_extra(8);
  ASSERT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  size_t len = 0;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
  EXPECT_EQ(len, 40u);
  kernel.inject_wrong_seq(1);
  ASSERT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), -2);
  EXPECT_TRUE(log.contains("request/reply seq mismatch: (2 != 3)"));
}

TEST(PeekDeathTest, EmsgsizeFromThePeekStopsTheProcess) {
  tarsim::Kernel kernel;
  tlk_platform table = *tlk_platform_get();
  table.recv = [](int, void *, size_t, int) -> ssize_t {
    errno = EMSGSIZE;
    return -1;
  };
  tlk_platform_set(&table);
  EXPECT_DEATH(tarvik_peek_pkt_len(3),
               "Assertion failed: \\(errno != EMSGSIZE\\), function tarvik_peek_pkt_len, file "
               "lib/libtarlink/tarvik_io, line 713");
}

}  // namespace
}  // namespace tlktest
