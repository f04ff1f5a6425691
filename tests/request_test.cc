// Request-reply operations end to end through the simulated kernel: logical interface reads
// (structured, IDR request, long read), session statistics (raw request and reply, and a request
// without reply).
#include <errno.h>
#include <string.h>

#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

class IflTest : public OneSessionTest {
 protected:
  static const ifl_msg &ifl(void *m) { return *static_cast<const ifl_msg *>(m); }
  static std::string name_of(void *m) {
    const ifl_msg &r = ifl(m);
    return r.iflm_name ? std::string(reinterpret_cast<const char *>(r.iflm_name)) : "";
  }
  // The last request the kernel saw, decoded.
  ifl_msg *last_request() {
    const auto &rec = kernel.recorded();
    for (auto it = rec.rbegin(); it != rec.rend(); ++it) {
      if (!it->to_kernel) continue;
      void *m = nullptr;
      if (tarvik_msg_idl_decode(c, it->bytes.data(), it->bytes.size(), &m, nullptr) != 0) return nullptr;
      return static_cast<ifl_msg *>(m);
    }
    return nullptr;
  }
};

// Reads by every key, walks, names, bad arguments and failures are rows of the family suite.
TEST_F(IflTest, AReadGivesTheWholeUnit) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_iflm_get_by_index(c, 71, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(ifl(m).iflm_index.idx, 71u);
  EXPECT_EQ(ifl(m).iflm_unit, 100u);
  EXPECT_EQ(ifl(m).iflm_devidx, 130u);
  EXPECT_EQ(name_of(m), "ge0");
  EXPECT_EQ(ifl(m).iflm_hdr.tlkh_type, TLK_MSG_IFLOGICAL);
  EXPECT_EQ(ifl(m).iflm_hdr.tlkh_seq, c->seq) << "the kernel copies the request's number";
  tarvik_msg_idl_release(c, m, nullptr);
}

TEST_F(IflTest, RequestsGoOutInIdrWithTheDocumentedHeader) {
  kernel.record(true);
  void *m = nullptr;
  const uint32_t before = c->seq;
  ASSERT_EQ(tarvik_iflm_get_by_index(c, 16, TLK_OP_GET, &m, nullptr), 0);
  tarvik_msg_idl_release(c, m, nullptr);
  uint32_t magic;
  memcpy(&magic, kernel.recorded().front().bytes.data(), 4);
  EXPECT_EQ(magic, TLK_MAGIC_IDR);
  ifl_msg *req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(TLK_VERSION_TYPE_WORD(req->iflm_hdr.tlkh_version, req->iflm_hdr.tlkh_type), 0x066Bu);
  EXPECT_EQ(req->iflm_hdr.tlkh_seq, before + 1);
  EXPECT_EQ(req->iflm_hdr.tlkh_fixedlen, tlv_rtti_sizeof_ifl_msg_0);
  EXPECT_EQ(req->iflm_index.idx, 16u);
  EXPECT_EQ(req->iflm_name, nullptr);
  tarvik_msg_idl_release(c, req, nullptr);
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
  EXPECT_EQ(name_of(m), "xe0");
  EXPECT_NE(mask, nullptr) << "a TLV reply comes with the map of what it held";
  tarvik_msg_idl_release(c, m, mask);
  tarvik_msg_free(c, req);
}

TEST_F(IflTest, SessionStatisticsGetClearAndSequence) {
  void *reply = nullptr;
  const uint32_t before = c->seq;
  ASSERT_EQ(tarvik_tlk_stat_get(c, 1, 2, &reply), 0);
  ASSERT_NE(reply, nullptr);
  const auto *bytes = static_cast<const uint8_t *>(reply);
  uint32_t seq, requests;
  memcpy(&seq, bytes + 12, 4);
  memcpy(&requests, bytes + 24, 4);
  EXPECT_EQ(seq, before + 1);
  EXPECT_EQ(requests, 1u);
  tarvik_msg_free(c, reply);

  kernel.record(true);
  EXPECT_EQ(tarvik_tlk_stat_clear(c), 0);
  EXPECT_EQ(tarvik_tlk_proxy_stat_add(c, 0xABCD), 0);
  ASSERT_EQ(kernel.recorded().size(), 2u);
  const Bytes &clear = kernel.recorded()[0].bytes;
  ASSERT_EQ(clear.size(), 36u);
  EXPECT_EQ(clear[6], TLK_OP_CLEAR);
  uint32_t clear_seq, proxy;
  memcpy(&clear_seq, &clear[12], 4);
  memcpy(&proxy, &kernel.recorded()[1].bytes[32], 4);
  EXPECT_EQ(clear_seq, 0u) << "nothing answers a clear: it takes no number";
  EXPECT_EQ(proxy, 0xABCDu);
  EXPECT_EQ(c->seq, before + 1);
  EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "and nothing came back";
  EXPECT_EQ(tarvik_tlk_stat_get(c, 0, 0, nullptr), EINVAL);
}

TEST_F(IflTest, StatisticsGetWithoutReplyFreesItsBuffer) {
  kernel.no_reply(26, TLK_OP_GET);
  void *reply = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_tlk_stat_get(c, 0, 0, &reply), EAGAIN);
  EXPECT_EQ(reply, nullptr);
}

class WaitTest : public OneSessionTest {
 protected:
  // One select on `fd` for reading, through the seam; what select returns.
  static int select_readable(int fd, timeval *timeout) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    return tlk_platform_get()->select(fd + 1, &readable, nullptr, nullptr, timeout);
  }
  // Writes a "tarlink stats" get; its seq.
  uint32_t write_stats_get() {
    const Bytes req = tarsim::raw_message(TLK_MSG_TARLINK_STATS, TLK_OP_GET, ++c->seq);
    EXPECT_EQ(tarvik_write(c, req.data(), req.size()), 0);
    return c->seq;
  }
  static double seconds_since(const timespec &start) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec - start.tv_sec) +
           static_cast<double>(now.tv_nsec - start.tv_nsec) / 1e9;
  }
  uint8_t buf[TLK_MSG_BUF_SIZE];
};

TEST_F(WaitTest, HeldReplyIsReadAfterTheNthSelectAndNotBefore) {
  for (unsigned hold : {1u, 3u, 5u}) {
    SCOPED_TRACE(hold);
    const uint64_t waited = kernel.waits(c->fd);
    ASSERT_TRUE(kernel.hold_replies(c->fd, hold));
    const uint32_t seq = write_stats_get();
    EXPECT_EQ(kernel.held(c->fd), 1u) << "the reply is queued before the write returns, but kept";
    std::vector<int> selects;
    int err = EAGAIN;
    size_t len = 0;
    while (selects.size() < 10) {
      len = sizeof buf;
      err = tarvik_msg_read(c, buf, &len);
      if (err != EAGAIN) break;
      timeval timeout{0, 100000};
      selects.push_back(select_readable(c->fd, &timeout));
    }
    ASSERT_EQ(err, 0);
    std::vector<int> want(hold, 0);
    want.back() = 1;  // the n-th wait releases the reply and sees the descriptor readable
    EXPECT_EQ(selects, want);
    EXPECT_EQ(kernel.waits(c->fd) - waited, hold);
    EXPECT_EQ(kernel.held(c->fd), 0u);
    tlk_hdr hdr;
    memcpy(&hdr, buf, TLK_RAW_HDR_LEN);
    EXPECT_EQ(hdr.tlkh_type, TLK_MSG_TARLINK_STATS);
    EXPECT_EQ(hdr.tlkh_seq, seq);
    EXPECT_EQ(len, TLK_RAW_HDR_LEN + 16u);
  }
  // Released, the session is answered at once again.
  write_stats_get();
  size_t len = sizeof buf;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
}

TEST_F(WaitTest, WaitsWhileHeldTakeNoTime) {
  ASSERT_TRUE(kernel.hold_replies(c->fd, 4));
  write_stats_get();
  timespec start{};
  clock_gettime(CLOCK_MONOTONIC, &start);
  timeval timeout{2, 0};
  EXPECT_EQ(select_readable(c->fd, &timeout), 0) << "not yet: a timeout passes at once";
  EXPECT_EQ(tlk_platform_get()->usleep(2000000), 0);
  EXPECT_EQ(select_readable(c->fd, nullptr), 1) << "no timeout: as many waits as it takes";
  EXPECT_LT(seconds_since(start), 1.0);
  EXPECT_EQ(kernel.waits(c->fd), 4u) << "1 select, 1 sleep, then 2 more in the blocking select";
  size_t len = sizeof buf;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
}

TEST_F(WaitTest, SelectCountsTheSessionsItWatchesAndUsleepCountsEverySession) {
  tarvik_cookie *other = open_session(8);
  ASSERT_NE(other, nullptr);
  timeval none{0, 0};
  EXPECT_EQ(select_readable(c->fd, &none), 0) << "nothing held, nothing queued: the host answers";
  EXPECT_EQ(kernel.waits(c->fd), 1u);
  EXPECT_EQ(kernel.waits(other->fd), 0u) << "a select counts only for the sessions it watches";
  EXPECT_EQ(tlk_platform_get()->usleep(1), 0);
  EXPECT_EQ(kernel.waits(c->fd), 2u);
  EXPECT_EQ(kernel.waits(other->fd), 1u);

  // A sleep releases a held session that no select watches.
  ASSERT_TRUE(kernel.hold_replies(other->fd, 1));
  const Bytes req = tarsim::raw_message(TLK_MSG_TARLINK_STATS, TLK_OP_GET, ++other->seq);
  ASSERT_EQ(tarvik_write(other, req.data(), req.size()), 0);
  size_t len = sizeof buf;
  EXPECT_EQ(tarvik_msg_read(other, buf, &len), EAGAIN);
  EXPECT_EQ(tlk_platform_get()->usleep(1), 0);
  EXPECT_EQ(tarvik_msg_read(other, buf, &len), 0);
  tarvik_close(other);
}

TEST_F(WaitTest, HoldOfNoWaitsReleasesAndUnknownSessionsAreRefused) {
  ASSERT_TRUE(kernel.hold_replies(c->fd, 100));
  const uint32_t seq = write_stats_get();
  ASSERT_TRUE(kernel.push(c->fd, tarsim::raw_message(TLK_MSG_TARLINK_STATS, TLK_OP_GET, seq)));
  EXPECT_EQ(kernel.held(c->fd), 2u) << "a push waits behind the reply";
  size_t len = sizeof buf;
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), EAGAIN);
  ASSERT_TRUE(kernel.hold_replies(c->fd, 0));
  EXPECT_EQ(kernel.held(c->fd), 0u);
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
  EXPECT_EQ(tarvik_msg_read(c, buf, &len), 0);
  EXPECT_FALSE(kernel.hold_replies(c->fd + 1000, 1));
  EXPECT_EQ(kernel.waits(c->fd + 1000), 0u);
}


}  // namespace
}  // namespace tlktest
