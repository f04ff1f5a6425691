// Request-reply operations end to end through the simulated kernel: a logical interface read
// (its IDR request and a TLV request's answer), session statistics (raw request and reply, and a
// request without reply), and the simulated kernel's held replies and the waits that release them.
#include <errno.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

class IflTest : public OneSessionTest {
 protected:
  static const ifl_msg &ifl(void *m) { return *static_cast<const ifl_msg *>(m); }
};

// Reads by every key, walks, names, bad arguments and failures are rows of the family suite.
TEST_F(IflTest, AnIdrRequestIsAnsweredUnderItsNumber) {
  kernel.record(true);
  const uint32_t before = c->seq;
  void *m = nullptr;
  ASSERT_EQ(tarvik_iflm_get_by_index(c, 71, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(ifl(m).iflm_index.idx, 71u);
  EXPECT_EQ(ifl(m).iflm_hdr.tlkh_type, TLK_MSG_IFLOGICAL);
  EXPECT_EQ(ifl(m).iflm_hdr.tlkh_seq, c->seq) << "the kernel copies the request's number";
  tarvik_msg_idl_release(c, m, nullptr);

  EXPECT_EQ(get_u32(last_sent(kernel).data()), TLK_MAGIC_IDR);
  const auto req = last_request_as<ifl_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(TLK_VERSION_TYPE_WORD(req->iflm_hdr.tlkh_version, req->iflm_hdr.tlkh_type), 0x066Bu);
  EXPECT_EQ(req->iflm_hdr.tlkh_seq, before + 1);
  EXPECT_EQ(req->iflm_hdr.tlkh_fixedlen, tlv_rtti_sizeof_ifl_msg_0);
  EXPECT_EQ(req->iflm_index.idx, 71u);
  EXPECT_EQ(req->iflm_name, nullptr);
}

TEST_F(IflTest, TlvRequestIsAnsweredInTlvWithItsMap) {
  auto *req = static_cast<ifl_msg *>(tarvik_msg_malloc(c));
  req->iflm_hdr.tlkh_type = 6;
  req->iflm_hdr.tlkh_version = 'k';
  req->iflm_hdr.tlkh_op = TLK_OP_GET;
  req->iflm_hdr.tlkh_seq = ++c->seq;
  req->iflm_index.idx = 80;
  ifl_msg_tlvmap map{};  // the header and the fields up to the index
  map._w0 = 1;
  map.iflm_hdr._w0 = 0x7FF;
  map._w1 = 0x1F;
  map.iflm_index._w0 = 1;
  ASSERT_EQ(tarvik_msg_write_idl(c, req, &map), 0);
  void *m = nullptr, *mask = nullptr;
  ASSERT_EQ(tarvik_long_msg_read_idl(c, &m, &mask), 0);
  EXPECT_EQ(ifl(m).iflm_index.idx, 80u);
  EXPECT_NE(mask, nullptr) << "a TLV reply comes with the map of what it held";
  tarvik_msg_idl_release(c, m, mask);
  tarvik_msg_free(c, req);
}

TEST_F(IflTest, SessionStatisticsGetClearAndSequence) {
  void *reply = nullptr;
  const uint32_t before = c->seq;
  ASSERT_EQ(tarvik_tlk_stat_get(c, 1, 2, &reply), 0);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(get_u32(reply, 12), before + 1);
  EXPECT_EQ(get_u32(reply, 24), 1u) << "the session's request count";
  tarvik_msg_free(c, reply);

  kernel.record(true);
  EXPECT_EQ(tarvik_tlk_stat_clear(c), 0);
  EXPECT_EQ(tarvik_tlk_proxy_stat_add(c, 0xABCD), 0);
  ASSERT_EQ(kernel.recorded().size(), 2u);
  const Bytes &clear = kernel.recorded()[0].bytes;
  ASSERT_EQ(clear.size(), 36u);
  EXPECT_EQ(clear[6], TLK_OP_CLEAR);
  EXPECT_EQ(get_u32(clear.data(), 12), 0u) << "nothing answers a clear: it takes no number";
  EXPECT_EQ(get_u32(clear.data(), 16), static_cast<uint32_t>(getpid())) << "the sender";
  EXPECT_EQ(clear[23], 0) << "no selector on a clear";
  EXPECT_EQ(get_u32(kernel.recorded()[1].bytes.data(), 32), 0xABCDu);
  EXPECT_EQ(c->seq, before + 1);
  EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "and nothing came back";
  EXPECT_EQ(tarvik_tlk_stat_get(c, 0, 0, nullptr), EINVAL);
  // Unanswered, the get frees its buffer.
  kernel.no_reply(26, TLK_OP_GET);
  reply = &reply;
  EXPECT_EQ(tarvik_tlk_stat_get(c, 0, 0, &reply), EAGAIN);
  EXPECT_EQ(reply, nullptr);
}

// The waits of the hold table below.
enum class Wait { kSelect, kSelectTwoSeconds, kSelectWithoutTimeout, kSleepTwoSeconds };

// One wait through the seam: a select on `fd` for reading (what select returns), or a sleep.
int wait_on(int fd, Wait w) {
  if (w == Wait::kSleepTwoSeconds) return tlk_platform_get()->usleep(2000000);
  timeval ms100{0, 100000}, two_seconds{2, 0};
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  timeval *timeout = w == Wait::kSelect ? &ms100 : &two_seconds;
  if (w == Wait::kSelectWithoutTimeout) timeout = nullptr;
  return tlk_platform_get()->select(fd + 1, &readable, nullptr, nullptr, timeout);
}

class WaitTest : public OneSessionTest {
 protected:
  // Writes a "tarlink stats" get; its seq.
  uint32_t write_stats_get() {
    const Bytes req = tarsim::raw_message(TLK_MSG_TARLINK_STATS, TLK_OP_GET, ++c->seq);
    EXPECT_EQ(tarvik_write(c, req.data(), req.size()), 0);
    return c->seq;
  }
  uint8_t buf[TLK_MSG_BUF_SIZE];
};

// The waits a session makes while its reply is held, one row each: every wait before the last finds nothing to read, and the last releases the reply: a select
// then sees the descriptor readable.
struct HoldRow {
  const char *what;
  unsigned hold;
  std::vector<Wait> waits;
};
const HoldRow kHoldRows[] = {
    {"one select", 1, {Wait::kSelect}},
    {"three selects", 3, std::vector<Wait>(3, Wait::kSelect)},
    // A select without a timeout takes as many waits as it needs: the last two here.
    {"timeouts and sleeps",
     4,
     {Wait::kSelectTwoSeconds, Wait::kSleepTwoSeconds, Wait::kSelectWithoutTimeout}},
    {"a sleep releases a session no select watches", 1, {Wait::kSleepTwoSeconds}},
};

TEST_F(WaitTest, AHeldReplyIsReadAfterItsWaitsAndNotBefore) {
  for (const HoldRow &row : kHoldRows) {
    SCOPED_TRACE(row.what);
    const uint64_t waited = kernel.waits(c->fd);
    ASSERT_TRUE(kernel.hold_replies(c->fd, row.hold));
    const uint32_t seq = write_stats_get();
    EXPECT_EQ(kernel.held(c->fd), 1u) << "the reply is queued before the write returns, but kept";
    size_t len = sizeof buf;
    for (size_t i = 0; i < row.waits.size(); ++i) {
      EXPECT_EQ(tarvik_msg_read(c, buf, &len), EAGAIN) << "before wait " << i;
      const bool releasing_select =
          i + 1 == row.waits.size() && row.waits[i] != Wait::kSleepTwoSeconds;
      EXPECT_EQ(wait_on(c->fd, row.waits[i]), releasing_select ? 1 : 0) << "wait " << i;
    }
    EXPECT_EQ(kernel.waits(c->fd) - waited, row.hold);
    EXPECT_EQ(kernel.held(c->fd), 0u);
    len = sizeof buf;
    ASSERT_EQ(tarvik_msg_read(c, buf, &len), 0);
    EXPECT_EQ(get_u32(buf, 12), seq);
    EXPECT_EQ(buf[5], TLK_MSG_TARLINK_STATS);
    EXPECT_EQ(len, TLK_RAW_HDR_LEN + 16u);
  }
  // Released, the session is answered at once again.
  write_stats_get();
  size_t len = sizeof buf;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
}

}  // namespace
}  // namespace tlktest
