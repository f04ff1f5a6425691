// Bulk transfer through the simulated kernel: batching, partial acceptance, reply matching, and
// the session settings that turn it on.
#include <errno.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

constexpr uint8_t kMarker = 102;

class BulkTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    ASSERT_EQ(tarvik_set_sync_mode(c, 1), 0);
    fd = tarvik_getsockfd(c);
  }
  void TearDown() override {
    for (void *m : messages_) tarvik_msg_free(c, m);
    OneSessionTest::TearDown();
  }

  // A marker request: with op get the kernel sends it back, with op add it says nothing.
  void *marker(uint32_t seq, bool expects_reply) {
    auto *m = static_cast<tlk_marker_msg *>(tarvik_msg_malloc(c));
    m->tlkmk_hdr.tlkh_version = TARVIK_VERSION_TABLE[kMarker];
    m->tlkmk_hdr.tlkh_type = kMarker;
    m->tlkmk_hdr.tlkh_op = expects_reply ? TLK_OP_GET : TLK_OP_ADD;
    m->tlkmk_hdr.tlkh_seq = seq;
    m->tlkmk_hdr.tlkh_fixedlen = sizeof(tlk_marker_msg);
    m->tlkmk_cookie = seq * 7;
    messages_.push_back(m);
    return m;
  }
  uint32_t frame_size() { return static_cast<uint32_t>(frame_of(c, marker(0, false)).size()); }
  // A vector of markers; `replies` says which entries expect one.
  std::vector<tarvik_msg_iov_t> vector_of(const std::vector<bool> &replies) {
    std::vector<tarvik_msg_iov_t> iov(replies.size());
    for (size_t i = 0; i < iov.size(); ++i) {
      iov[i].msg = marker(static_cast<uint32_t>(100 + i), replies[i]);
      iov[i].reply = replies[i] ? &iov[i].reply : nullptr;
    }
    return iov;
  }
  static bool waiting(const tarvik_msg_iov_t &e) { return e.reply == &e.reply; }
  uint32_t seq_of_reply(const tarvik_msg_iov_t &e) {
    return static_cast<const tlk_marker_msg *>(e.reply)->tlkmk_hdr.tlkh_seq;
  }
  void release_replies(std::vector<tarvik_msg_iov_t> &iov) {
    for (auto &e : iov) {
      if (e.reply != nullptr && !waiting(e)) tarvik_msg_idl_release(c, e.reply, nullptr);
      e.reply = nullptr;
    }
  }

  int fd = -1;

 private:
  std::vector<void *> messages_;
};

TEST_F(BulkTest, SyncModeMakesBuffersAsLargeAsTheSocketsAndRefusesASecondTime) {
  EXPECT_EQ(kernel.option_u32(fd, TLK_SOL_ROUTE, TLK_SO_SYNC_MODE), 1u);
  EXPECT_EQ(c->wbuf_sz, uint32_t{TLK_DEFAULT_SOCKBUF});
  EXPECT_EQ(c->rbuf_sz, uint32_t{TLK_DEFAULT_SOCKBUF});

  EXPECT_EQ(tarvik_set_sync_mode(c, 1), -1);
  EXPECT_EQ(log.lines.back().text,
            "tarvik: ERROR tarvik_set_sync_mode: TLK_SYNC_BULK_ENABLE has already been set!");
  EXPECT_EQ(tarvik_set_sync_mode(c, 2), -1);
  EXPECT_EQ(log.lines.back().text,
            "tarvik: ERROR tarvik_set_sync_mode: Unsupported setting for sync mode 2");

  tarvik_msg_iov_t one{};
  EXPECT_EQ(tarvik_msg_writev_idl(c, 0, &one, nullptr), 0);
  EXPECT_TRUE(log.contains("tarvik_msg_writev_idl: Invalid input from caller: 0 entries"));
  uint8_t *kept = c->wbuf;
  EXPECT_EQ(tarvik_set_sync_mode(c, 0), 0);
  EXPECT_EQ(c->wbuf, kept) << "turning bulk mode off keeps its buffers";
  EXPECT_EQ(tarvik_set_bulk_buffer(c, 4096), EINVAL) << "resizing needs bulk mode";

  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_SYNC_MODE, EPERM);
  EXPECT_EQ(tarvik_set_sync_mode(c, 1), -1);
  EXPECT_TRUE(log.contains("tarvik_set_sync_mode: Failed to set sync mode "));
}

// The read buffer follows the socket's receive size; the send buffer is the client's.
TEST_F(BulkTest, BuffersPacingAndTheBulkWriteInformation) {
  ASSERT_EQ(tarvik_set_buffers(c, 65536, 131072), 0);
  EXPECT_EQ(c->rbuf_sz, 131072u);
  ASSERT_EQ(tarvik_set_buffers(c, 65536, 600000), 0);
  EXPECT_EQ(c->rbuf_sz, 600000u);
  EXPECT_EQ(c->wbuf_sz, uint32_t{TLK_DEFAULT_SOCKBUF});
  ASSERT_EQ(tarvik_set_bulk_buffer(c, 1000), 0);
  EXPECT_EQ(c->wbuf_sz, 1000u);

  // A failed resize keeps the old read buffer; the socket options stay changed.
  uint8_t *old = c->rbuf_data;
  auto saved = tarvik_realloc;
  tarvik_realloc = [](unsigned, void *, size_t) -> void * {
    errno = ENOMEM;
    return nullptr;
  };
  EXPECT_EQ(tarvik_set_buffers(c, 65536, 262144), ENOMEM);
  tarvik_realloc = saved;
  EXPECT_EQ(c->rbuf_data, old);
  EXPECT_EQ(c->rbuf_sz, 600000u);
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_RCVBUF), 262144u);
  EXPECT_EQ(log.lines.back().text,
            std::string("tarvik: ERROR tarvik_set_buffers: Failed to re-allocate rbuf ") +
                strerror(ENOMEM));

  EXPECT_EQ(tarvik_set_io_min_elapse(c, 250, 0), 0);
  EXPECT_EQ(kernel.option_u32(fd, TLK_SOL_ROUTE, TLK_SO_SYNC_ELAPSE), 250u);
  EXPECT_EQ(tarvik_set_io_min_elapse(c, 9, 1), 0);
  EXPECT_EQ(kernel.option_u32(fd, TLK_SOL_ROUTE, TLK_SO_ASYNC_ELAPSE), 9u);
  EXPECT_EQ(tarvik_set_io_min_elapse(c, 9, 2), 0);
  EXPECT_EQ(log.lines.back().text, "tarvik: FATAL ERROR Illegal socket type: 2");
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_ASYNC_ELAPSE, EPERM);
  EXPECT_EQ(tarvik_set_io_min_elapse(c, 9, 1), -1);
  EXPECT_TRUE(log.contains("failed to set asnyc rcv min elapsed time "));

  tarvik_bulkw_info_t info{};
  EXPECT_EQ(tarvik_get_bulkw_info(c, nullptr), EINVAL);
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_BULKW_INFO, EIO);
  EXPECT_NE(tarvik_get_bulkw_info(c, &info), 0);
  EXPECT_EQ(log.lines.back().text,
            std::string("tarvik: ERROR Failed to get bulk write info ") + strerror(EIO));
}

// Vectors without faults: how many writes and reads each takes, and every entry expecting a
// reply gets its own while the others stay null.
TEST_F(BulkTest, BatchesFollowTheSendBufferAndEveryReplyIsMatched) {
  const uint32_t frame = frame_size();
  const uint32_t kSock = TLK_DEFAULT_SOCKBUF;  // what bulk mode gave the send buffer
  const auto none = [](uint32_t n) { return std::vector<bool>(n, false); };
  const struct {
    const char *name;
    uint32_t buffer;
    std::vector<bool> replies;
    int64_t writes, reads;  // -1: unchecked
  } cases[] = {
      {"fits: one write, the three replies in one block",
       kSock,
       {true, false, true, true, false},
       1,
       1},
      {"nothing expects a reply: no read", kSock, none(20), 1, 0},
      {"three batches of four", 4 * frame, none(12), 3, 0},
      {"the second frame fills the buffer exactly and stays", 2 * frame, none(3), 2, 0},
      {"one byte to spare", 2 * frame + 1, none(3), 2, 0},
      {"one byte short: one frame per batch", 2 * frame - 1, none(3), 3, 0},
      // The entry that opens each batch expects no reply: one that did would leave its mark in
      // the batch before, which would then wait for a reply that never comes.
      {"replies of several batches",
       3 * frame,
       {false, true, true, false, true, true, false, true, true},
       3,
       -1},
      // Thousands of replies: the kernel packs them into blocks of up to the receive size, which
      // this host may or may not let one datagram carry; either way every reply reaches its
      // entry.
      {"a full send buffer", kSock, std::vector<bool>(kSock / frame, true), 1, -1},
  };
  for (const auto &k : cases) {
    SCOPED_TRACE(k.name);
    ASSERT_EQ(tarvik_set_bulk_buffer(c, k.buffer), 0);
    auto iov = vector_of(k.replies);
    const uint32_t n = static_cast<uint32_t>(iov.size());
    const uint64_t writes = kernel.writes(fd), reads = kernel.reads(fd);
    const uint64_t taken = kernel.requests(fd);
    ASSERT_EQ(tarvik_msg_writev_idl(c, n, iov.data(), nullptr), 0);
    EXPECT_EQ(kernel.writes(fd) - writes, static_cast<uint64_t>(k.writes));
    if (k.reads >= 0) {
      EXPECT_EQ(kernel.reads(fd) - reads, static_cast<uint64_t>(k.reads));
    }
    EXPECT_EQ(kernel.requests(fd) - taken, n);
    for (uint32_t i = 0; i < n; ++i) {
      SCOPED_TRACE(i);
      if (k.replies[i]) {
        ASSERT_FALSE(waiting(iov[i]));
        ASSERT_EQ(seq_of_reply(iov[i]), 100 + i);
      } else {
        EXPECT_EQ(iov[i].reply, nullptr);
      }
      EXPECT_EQ(iov[i].write_err + iov[i].read_err, 0);
    }
    release_replies(iov);
  }
}

TEST_F(BulkTest, MasksChooseTlvPerEntryAndReceiveTheRepliesMasks) {
  auto iov = vector_of({true, true});
  tlk_marker_msg_tlvmap mask{};
  mask._w0 = 0x1;  // the header ...
  mask.tlkmk_hdr._w0 = 0x7FF;
  mask._w1 = 0x1F;  // ... and the fields behind it
  std::vector<uintptr_t> masks = {reinterpret_cast<uintptr_t>(&mask), 0};
  ASSERT_EQ(tarvik_msg_writev_idl(c, 2, iov.data(), masks.data()), 0);
  ASSERT_FALSE(waiting(iov[0]));
  ASSERT_FALSE(waiting(iov[1]));
  ASSERT_NE(masks[0], reinterpret_cast<uintptr_t>(&mask)) << "the TLV reply brings its own mask";
  EXPECT_EQ(reinterpret_cast<const tlk_marker_msg_tlvmap *>(masks[0])->_w1, 0x1Fu);
  EXPECT_EQ(masks[1], 0u) << "an IDR reply leaves its word alone";
  EXPECT_EQ(static_cast<const tlk_marker_msg *>(iov[0].reply)->tlkmk_cookie, 700u);
  release_replies(iov);
}

// Faults of the kernel and the socket in the middle of a vector, and what each entry holds after
// the call: its own reply (R), still the waiting mark (W), or no reply as none was asked (-).
// One entry, `at`, carries an error.
constexpr int kNonZero = -1;
struct Fault {
  const char *name;
  void (*inject)(tarsim::Kernel &, uint32_t frame_size);
  const char *states;
  uint32_t at;
  int write_err;  // kNonZero: any error
  int read_err;
  bool no_read;      // the call must not read at all
  const char *line;  // a diagnostic it must give ({frame} is the frame size), or nullptr
};

using K = tarsim::Kernel;
const Fault kFaults[] = {
    // Option 25 gave error 0: the write's errno stands.  Entries after the failure are untouched.
    {"KernelTakesThreeOfSix", [](K &k, uint32_t) { k.inject_bulk_stop(3, ENOBUFS, false); },
     "RRRWWW", 3, ENOBUFS, 0, false, nullptr},
    // The kernel's own error wins.
    {"KernelRefusesTheSecond", [](K &k, uint32_t) { k.inject_bulk_stop(1, EEXIST); }, "RWW", 1,
     EEXIST, 0, false, nullptr},
    {"KernelTakesNothing", [](K &k, uint32_t) { k.inject_bulk_stop(0, EPERM); }, "WWW", 0, EPERM, 0,
     true, nullptr},
    // A short write of one message leaves errno 0: the entry gets 22.
    {"ShortWriteOfOne", [](K &k, uint32_t) { k.inject_short_write(5); }, "W", 0, EINVAL, 0, false,
     "tarvik_set_iov_err: errno is 0 when non-zero is expected!\n"},
    // The first message and a torn piece: the kernel says how far it came.
    {"ShortWriteOfABatch", [](K &k, uint32_t frame) { k.inject_short_write(frame + 3); }, "RWW", 1,
     kNonZero, 0, false, nullptr},
    // A reply too many marks the first entry of the block.
    {"OneReplyTooMany", [](K &k, uint32_t) { k.inject_bulk_reply_extra(); }, "R-R", 0, 0, EINVAL,
     false,
     "tarvik: ERROR tarvik_read_and_decode_bulk_iov: {frame} bytes to read and 2 of 2 msgs were "
     "read while end of iov(0-2)\n"},
    {"AReplyMissing", [](K &k, uint32_t) { k.inject_bulk_reply_missing(); }, "RRW", 2, 0, EAGAIN,
     false, "tarvik_read_and_decode_bulk_iov: read error, return failure on msg 2\n"},
};

class BulkFaultTest : public BulkTest, public ::testing::WithParamInterface<Fault> {};

TEST_P(BulkFaultTest, EachEntryShowsWhatBecameOfIt) {
  const Fault &f = GetParam();
  const std::string states = f.states;
  std::vector<bool> replies;
  for (char st : states) replies.push_back(st != '-');
  auto iov = vector_of(replies);
  const uint32_t frame = frame_size();
  f.inject(kernel, frame);
  const uint64_t reads = kernel.reads(fd);
  errno = 0;
  ASSERT_EQ(tarvik_msg_writev_idl(c, static_cast<uint32_t>(iov.size()), iov.data(), nullptr), 0);
  if (f.no_read) {
    EXPECT_EQ(kernel.reads(fd), reads);
  }
  for (uint32_t i = 0; i < iov.size(); ++i) {
    SCOPED_TRACE(i);
    if (states[i] == 'R') {
      ASSERT_FALSE(waiting(iov[i]));
      EXPECT_EQ(seq_of_reply(iov[i]), 100 + i);
    } else {
      EXPECT_EQ(waiting(iov[i]), states[i] == 'W');
      EXPECT_EQ(iov[i].reply != nullptr, states[i] == 'W');
    }
    if (i == f.at && f.write_err == kNonZero) {
      EXPECT_NE(iov[i].write_err, 0);
    } else {
      EXPECT_EQ(iov[i].write_err, i == f.at ? f.write_err : 0);
    }
    EXPECT_EQ(iov[i].read_err, i == f.at ? f.read_err : 0);
  }
  if (f.line != nullptr) {
    std::string line = f.line;
    if (const size_t at = line.find("{frame}"); at != std::string::npos)
      line.replace(at, 7, std::to_string(frame));
    EXPECT_TRUE(log.contains(line)) << line;
  }
  release_replies(iov);
}

INSTANTIATE_TEST_SUITE_P(Faults, BulkFaultTest, ::testing::ValuesIn(kFaults),
                         [](const auto &p) { return std::string(p.param.name); });

// A batch closed by an entry that expects a reply counts that reply too: after the batch's own
// replies it reads on and on.  Only the process's end stops it; here the client's callback ends
// it after a hundred empty reads.
TEST_F(BulkTest, AnOverCountedBatchReadsUntilSomethingEndsIt) {
  ASSERT_EQ(tarvik_set_bulk_buffer(c, 2 * frame_size()), 0);
  auto iov = vector_of({true, true, true});
  EXPECT_EXIT(
      {
        static int empty_reads = 0;
        tarvik_lib_error_register(c, nullptr, [](tarvik_cookie *, void *, int, const char *text) {
          if (strstr(text, "read() errno") != nullptr && ++empty_reads == 100) _exit(42);
        });
        tarvik_msg_writev_idl(c, 3, iov.data(), nullptr);
        _exit(0);
      },
      ::testing::ExitedWithCode(42), "");
}

}  // namespace
}  // namespace tlktest
