// Synchronous message I/O: writes, the two reads, the peek and the sequence rule, all through a
// real socket of the simulated kernel.
#include <errno.h>
#include <string.h>

#include <utility>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

constexpr uint8_t kStatsType = 26;  // "tarlink stats": a raw type

class IoTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    fd = tarvik_getsockfd(c);
    buf = static_cast<uint8_t *>(tarvik_msg_malloc(c));
  }
  void TearDown() override {
    tarvik_msg_free(c, buf);
    OneSessionTest::TearDown();
  }
  // A raw message the kernel pushes, carrying the session's current sequence number.
  Bytes raw(size_t body = 0) {
    return tarsim::raw_message(kStatsType, TLK_OP_GET, c->seq, Bytes(body, 0x5A));
  }

  int fd = -1;
  uint8_t *buf = nullptr;
};

TEST_F(IoTest, RequestReplyRoundTripAndTheSequenceCounter) {
  uint32_t seq = 0;
  ASSERT_EQ(tarvik_seq_get_next(c, &seq), 0);
  EXPECT_EQ(seq, 2u) << "a session starts at 1 and pre-increments";
  const Bytes req = tarsim::raw_message(kStatsType, TLK_OP_GET, seq, Bytes(12, 0));
  ASSERT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  size_t len = 0;
  ASSERT_EQ(tarvik_msg_read(c, buf, &len), 0);
  ASSERT_EQ(len, 24u + 16u);
  EXPECT_EQ(get_u32(buf, 12), seq);
  EXPECT_EQ(get_u32(buf, 24), 1u) << "the session's request count";
  EXPECT_EQ(c->seq, 2u) << "a request-reply session's counter is not advanced by the read";
  // The counter wraps; missing arguments are refused.
  c->seq = 0xFFFFFFFF;
  seq = 5;
  EXPECT_EQ(tarvik_seq_get_next(c, &seq), 0);
  EXPECT_EQ(seq, 0u);
  EXPECT_EQ(tarvik_seq_get_next(c, nullptr), EINVAL);
  EXPECT_EQ(tarvik_msg_read(c, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tarvik_long_msg_read(c, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tarvik_check_read_seq(c, nullptr), EINVAL);
}

// Raw messages of every length class through both reads.  Each row's message is pushed twice: the
// fixed read takes one, the long read (which sizes by the peek) the other.
struct RawCase {
  const char *name;
  size_t size;      // bytes on the socket
  uint32_t msglen;  // what the header claims
  int peek;         // what tarvik_peek_pkt_len says (-1 with EAGAIN under 24 bytes)
  int fixed;        // result and length of the fixed read, and its last diagnostic
  size_t fixed_len;
  const char *fixed_line;
  int long_rc;  // the same for the long read ("" where it adds no line)
  size_t long_len;
  const char *long_line;
};

const RawCase kRawCases[] = {
    {"Exactly16384", 16384, 16384, 16384, 0, 16384, "", 0, 16384, ""},
    {"Over16384", 16385, 16385, 16385, EIO, 0,
     "tarvik: FATAL ERROR msg read too large for tarlink message: 16385\n", 0, 16385, ""},
    // The fixed read takes 16385 bytes of it, which its header calls short.
    {"HundredThousand", 100000, 100000, 100000, EIO, 0,
     "tarvik: FATAL ERROR msg read too short got (16385), expected 100000\n", 0, 100000, ""},
    // Longer than its header says: cut to the header's length.  The long read asks for just that.
    {"LongerThanItsLength", 100, 80, 80, 0, 80,
     "tarvik: WARNING msg read too long got (100), expected 80\n", 0, 80, ""},
    {"ShorterThanItsLength", 40, 200, 200, EIO, 0,
     "tarvik: FATAL ERROR msg read too short got (40), expected 200\n", EIO, 0,
     "tarvik: FATAL ERROR msg read too short got (40), expected 200\n"},
    // Under a header: invisible to the peek, so the long read sees no message at all.
    {"TwentyBytes", 20, 20, -1, EIO, 0, "tarvik: FATAL ERROR msg read too small for header: 20\n",
     EAGAIN, 0, ""},
    // The long read allocates exactly the 5 claimed bytes and never reads past them: the length
    // word it cannot hold counts as 0.
    {"HeaderClaimsFive", 32, 5, 5, EIO, 0, "tarvik: FATAL ERROR msg read too small for header: 5\n",
     EIO, 0, "tarvik: FATAL ERROR msg read too small for header: 0\n"},
    // Lengths the long read refuses before allocating.
    {"HeaderClaimsZero", 24, 0, 0, EIO, 0, "tarvik: FATAL ERROR msg read too small for header: 0\n",
     EINVAL, 0, ""},
    {"HeaderClaims0x7FFFFFFE", 24, 0x7FFFFFFE, 0x7FFFFFFE, EIO, 0,
     "tarvik: FATAL ERROR msg read too short got (24), expected 2147483646\n", EINVAL, 0, ""},
    {"HeaderClaimsAllOnes", 24, 0xFFFFFFFF, -1, EIO, 0,
     "tarvik: FATAL ERROR msg read too short got (24), expected -1\n", EINVAL, 0, ""},
};

class RawReadTest : public IoTest, public ::testing::WithParamInterface<RawCase> {};

TEST_P(RawReadTest, BothReadsJudgeTheLength) {
  const RawCase &k = GetParam();
  Bytes m = raw(k.size < 24 ? 0 : k.size - 24);
  m.resize(k.size);
  put_u32(m, 8, k.msglen);
  ASSERT_TRUE(kernel.push(fd, m));
  ASSERT_TRUE(kernel.push(fd, m));
  errno = 0;
  EXPECT_EQ(tarvik_peek_pkt_len(fd), k.peek);
  if (k.size < 24) {
    EXPECT_EQ(errno, EAGAIN);
  }

  size_t len = 0;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), k.fixed);
  if (k.fixed == 0) {
    EXPECT_EQ(len, k.fixed_len);
    EXPECT_EQ(memcmp(buf, m.data(), len), 0);
  }
  EXPECT_EQ(log.lines.empty() ? "" : log.lines.back().text, k.fixed_line);

  const size_t lines = log.lines.size();
  void *out = reinterpret_cast<void *>(1);
  len = 7;
  EXPECT_EQ(tarvik_long_msg_read(c, &out, &len), k.long_rc);
  EXPECT_EQ(len, k.long_len);
  if (k.long_rc == 0) {
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(memcmp(out, m.data(), len), 0);
    tarvik_msg_free(c, out);
  } else {
    EXPECT_EQ(out, nullptr);
  }
  EXPECT_EQ(log.lines.size() == lines ? "" : log.lines.back().text, k.long_line);
}

INSTANTIATE_TEST_SUITE_P(Lengths, RawReadTest, ::testing::ValuesIn(kRawCases),
                         [](const auto &p) { return std::string(p.param.name); });

TEST_F(IoTest, FramesAreNotLengthCheckedOrSequenceChecked) {
  for (uint32_t magic : {TLK_MAGIC_TLV, TLK_MAGIC_IDR}) {
    Bytes f = frame_head(magic, 40, 6, 52);
    put_u32(f, 12, 0xFFFFFFFF);  // would be a wild msglen/seq in a raw message
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

// An empty socket is EAGAIN, quietly; any other read error is fatal.
TEST_F(IoTest, SocketErrors) {
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

  ASSERT_TRUE(kernel.push(fd, raw()));
  kernel.inject_read_errno(ECONNRESET);
  EXPECT_EQ(tarvik_msg_read(c, buf, nullptr), ECONNRESET);
  EXPECT_EQ(log.lines.back().text,
            std::string("tarvik: FATAL ERROR read failed: (104) ") + strerror(ECONNRESET));
  kernel.inject_read_errno(ECONNRESET);
  out = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_long_msg_read(c, &out, nullptr), ECONNRESET);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(tarvik_msg_read(c, buf, nullptr), 0) << "the message was still there";

  // A failed write is not diagnosed; a short one is.
  log.lines.clear();
  const Bytes req = raw();
  kernel.inject_write_errno(ENOBUFS);
  EXPECT_EQ(tarvik_write(c, req.data(), req.size()), ENOBUFS);
  EXPECT_TRUE(log.lines.empty());

  kernel.inject_short_write(0);
  EXPECT_EQ(tarvik_write(c, req.data(), 1), 0);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_FATAL);
  EXPECT_EQ(log.lines[0].text, "tarvik: FATAL ERROR wrote 1 bytes to routing socket, got 0");

  kernel.inject_short_write(10);
  EXPECT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  EXPECT_EQ(log.lines.back().text, "tarvik: FATAL ERROR wrote 24 byte to routing socket, got 10");
}

// A sequence mismatch: without a callback a level 4 line, the message still delivered and the
// counter of a request-reply session not repaired; with one, the callback alone hears of it.
TEST_F(IoTest, SequenceMismatch) {
  c->seq = 7;
  Bytes m = raw();
  put_u32(m, 12, 9);
  ASSERT_TRUE(kernel.push(fd, m));
  size_t len = 0;
  memset(buf, 0, 64);
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), -2);
  EXPECT_EQ(len, 24u);
  EXPECT_EQ(buf[5], kStatsType) << "the message is delivered";
  EXPECT_EQ(log.lines.back().level, TLK_LEVEL_FATAL);
  EXPECT_EQ(log.lines.back().text, "tarvik: FATAL ERROR request/reply seq mismatch: (7 != 9)\n");
  EXPECT_EQ(c->seq, 7u) << "a request-reply session is not repaired";

  log.lines.clear();
  std::vector<std::pair<uint32_t, uint32_t>> seen;  // expected, got
  tarvik_seq_error_register(c, &seen, [](tarvik_cookie *, void *arg, uint32_t e, uint32_t g) {
    static_cast<std::vector<std::pair<uint32_t, uint32_t>> *>(arg)->emplace_back(e, g);
  });
  put_u32(m, 12, 1000);
  ASSERT_TRUE(kernel.push(fd, m));
  void *out = nullptr;
  EXPECT_EQ(tarvik_long_msg_read(c, &out, nullptr), -2);
  EXPECT_NE(out, nullptr);
  tarvik_msg_free(c, out);
  EXPECT_EQ(seen, (std::vector<std::pair<uint32_t, uint32_t>>{{7, 1000}}));
  EXPECT_TRUE(log.lines.empty());
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
