// Device statistics and alarms against the simulated kernel: the raw requests as they go out,
// the replies, the clear and the asynchronous read (the product test of its registration is a
// table shared with the logical interface statistics, in ifl_test.cc).
#include <errno.h>

#include <functional>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

class IfdStatsTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
    ASSERT_TRUE(kernel.devices().set_counters(130, 1000, 2000, 0x5));
  }
};

// The four synchronous reads share one request layout (version 'c', type 15, a 72-byte fixed
// part) and one reply; they differ in the name behind it and in stat_flags.
TEST_F(IfdStatsTest, StatisticsRequestsAndReplies) {
  const struct {
    const char *what;
    size_t whole;      // of the request
    uint8_t name_len;  // byte 31: the name and its end byte, rounded up to a word
    uint16_t flags;    // stat_flags
    std::function<int(tarvik_cookie *, void **)> get;
  } rows[] = {
      {"by index", 72, 0, 0,
       [](auto *k, void **o) { return tarvik_ifdsm_get_by_index(k, 130, 7, TLK_OP_GET, o); }},
      {"by name", 76, 4, 0,
       [](auto *k, void **o) { return tarvik_ifdsm_get_by_name(k, "ge0", 7, TLK_OP_GET, o); }},
      {"voq", 72, 0, 256,
       [](auto *k, void **o) { return tarvik_ifdsm_voq_get_by_index(k, 130, 7, TLK_OP_GET, o); }},
      {"buffer", 72, 0, 9,
       [](auto *k, void **o) {
         return tarvik_ifdsm_buffer_stats_get_by_index(k, 130, 7, TLK_OP_GET, o, 9);
       }},
  };
  for (auto &row : rows) {
    SCOPED_TRACE(row.what);
    void *reply = nullptr;
    ASSERT_EQ(row.get(c, &reply), 0);
    const Bytes req = last_sent(kernel);
    ASSERT_EQ(req.size(), row.whole);
    EXPECT_EQ(get_u32(req.data(), 8), row.whole);
    EXPECT_EQ(req[4], 'c');
    EXPECT_EQ(req[5], 15);
    EXPECT_EQ(get_u32(req.data(), 12), c->seq);
    EXPECT_EQ(get_u16(req.data(), 20), 72);
    EXPECT_EQ(req[28], 7);
    EXPECT_EQ(req[31], row.name_len);
    EXPECT_EQ(get_u16(req.data(), 58), row.flags);
    EXPECT_EQ(get_u32(reply, 8), 88u);
    EXPECT_EQ(get_u64(reply, 72), 1000u);
    EXPECT_EQ(get_u64(reply, 80), 2000u);
    tarvik_msg_free(c, reply);
    // A reply that fails the sequence check is -2 and is freed, not left with the caller (the
    // fixture's leak check sees a block left behind).
    kernel.inject_wrong_seq(1);
    reply = reinterpret_cast<void *>(1);
    EXPECT_EQ(row.get(c, &reply), -2);
    EXPECT_EQ(reply, nullptr);
  }
}

// Unlike the device family's own reads, this family keeps 60 characters and says 61 when it cut.
TEST_F(IfdStatsTest, LongNameIsCutTo60WithLengthByte61) {
  const std::string name = "ge0" + std::string(70, 'x');
  void *reply = nullptr;
  (void)tarvik_ifdsm_get_by_name(c, name.c_str(), 1, TLK_OP_GET, &reply);
  tarvik_msg_free(c, reply);
  const Bytes req = last_sent(kernel);
  ASSERT_EQ(req.size(), 136u);
  EXPECT_EQ(req[31], 61);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&req[72])), name.substr(0, 60));
}

TEST_F(IfdStatsTest, ClearSendsOpSixAndReadsNothing) {
  ASSERT_EQ(tarvik_ifdsm_clear_by_index(c, 130, 2), 0);
  const Bytes req = last_sent(kernel);
  EXPECT_EQ(req.size(), 72u);
  EXPECT_EQ(req[6], TLK_OP_CLEAR);
  EXPECT_EQ(kernel.devices().find(130)->in_packets, 0u);
  EXPECT_EQ(kernel.replies(tarvik_getsockfd(c)), 0u);
  void *reply = nullptr;
  ASSERT_EQ(tarvik_ifdsm_get_by_index(c, 130, 2, TLK_OP_GET, &reply), 0);
  EXPECT_EQ(get_u64(reply, 72), 0u);
  tarvik_msg_free(c, reply);
}

TEST_F(IfdStatsTest, AlarmsByIndexAndByName) {
  for (bool by_name : {false, true}) {
    SCOPED_TRACE(by_name);
    void *reply = nullptr;
    ASSERT_EQ(by_name ? tarvik_ifdalm_get_by_if_name(c, "ge0", TLK_OP_GET, &reply)
                      : tarvik_ifdalm_get_by_if_index(c, 130, TLK_OP_GET, &reply),
              0);
    const Bytes req = last_sent(kernel);
    EXPECT_EQ(req[5], 20);
    EXPECT_EQ(get_u16(req.data(), 20), 48);
    EXPECT_EQ(get_u16(req.data(), 24), by_name ? 0 : 130);
    EXPECT_EQ(get_u16(req.data(), 36), by_name ? 4 : 0);
    EXPECT_EQ(req.size(), by_name ? 52u : 48u);
    EXPECT_EQ(get_u32(reply, 48), 0x5u);
    tarvik_msg_free(c, reply);
  }
  kernel.inject_wrong_seq(1);
  void *reply = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_ifdalm_get_by_if_index(c, 130, TLK_OP_GET, &reply), -2);
  EXPECT_EQ(reply, nullptr);
}

struct StatsEar {
  std::vector<Bytes> heard;
  static int handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    const auto *b = static_cast<const uint8_t *>(msg);
    static_cast<StatsEar *>(arg)->heard.emplace_back(b, b + get_u32(b, 8));
    tarvik_msg_free(cookie, msg);
    return 0;
  }
};

TEST_F(IfdStatsTest, AsynchronousReadComesBackAsANotification) {
  StatsEar ear;
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_ifdsm_async_kernel_register(c, &ear, StatsEar::handler), 0);
  const struct {
    uint16_t flag;
    const char *name;
    uint32_t op;
    int want;
  } refusals[] = {{64, "lo0", TLK_OP_GET, EOPNOTSUPP},
                  {32, "xe0", TLK_OP_GET, EOPNOTSUPP},
                  {64, "xe0", TLK_OP_CHANGE, EOPNOTSUPP},
                  {64, nullptr, TLK_OP_GET, EINVAL}};
  for (auto &r : refusals) {
    EXPECT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, r.flag, 140, r.name, 1, r.op, 5), r.want);
  }
  const uint32_t seq = c->seq;
  ASSERT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, 64, 130, "xe0", 1, TLK_OP_GET, 0xCAFE), 0);
  EXPECT_EQ(c->seq, seq);  // no sequence number drawn
  const Bytes req = last_sent(kernel);
  ASSERT_EQ(req.size(), 72u);  // no name goes in the message
  EXPECT_EQ(get_u16(req.data(), 58), 65);
  EXPECT_EQ(get_u32(req.data(), 12), 0u);
  EXPECT_EQ(get_u64(req.data(), 64), 0xCAFEu);
  drain(c);
  ASSERT_EQ(ear.heard.size(), 1u);
  EXPECT_EQ(ear.heard[0][5], 15);
  EXPECT_EQ(get_u64(ear.heard[0].data(), 64), 0xCAFEu);
  EXPECT_EQ(get_u64(ear.heard[0].data(), 72), 1000u);
}

}  // namespace
}  // namespace tlktest
