// Device statistics and alarms against the simulated kernel: the raw requests as they go out,
// the replies, the clear and the asynchronous read (the product test of its registration is a
// table shared with the logical interface statistics, in ifl_test.cc).
#include <errno.h>

#include <functional>
#include <string>
#include <tuple>
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
    // Length, version, type, sequence, fixed part, unit, name length and flags.
    EXPECT_EQ(std::tuple(get_u32(req.data(), 8), req[4], req[5], get_u32(req.data(), 12),
                         get_u16(req.data(), 20), req[28], req[31], get_u16(req.data(), 58)),
              std::tuple(row.whole, 'c', 15, c->seq, 72, 7, row.name_len, row.flags));
    EXPECT_EQ(std::tuple(get_u32(reply, 8), get_u64(reply, 72), get_u64(reply, 80)),
              std::tuple(88u, 1000u, 2000u));
    tarvik_msg_free(c, reply);
    // A reply that fails the sequence check is -2 and is freed, not left with the caller (the
    // fixture's leak check sees a block left behind).
    kernel.inject_wrong_seq(1);
    reply = reinterpret_cast<void *>(1);
    EXPECT_EQ(row.get(c, &reply), -2);
    EXPECT_EQ(reply, nullptr);
  }
}

TEST_F(IfdStatsTest, AlarmsLongNamesAndClears) {
  for (bool by_name : {false, true}) {
    SCOPED_TRACE(by_name);
    void *reply = nullptr;
    ASSERT_EQ(by_name ? tarvik_ifdalm_get_by_if_name(c, "ge0", TLK_OP_GET, &reply)
                      : tarvik_ifdalm_get_by_if_index(c, 130, TLK_OP_GET, &reply),
              0);
    const Bytes req = last_sent(kernel);
    ASSERT_EQ(req.size(), by_name ? 52u : 48u);
    // Type, fixed part, index and name length.
    EXPECT_EQ(std::tuple(req[5], get_u16(req.data(), 20), get_u16(req.data(), 24),
                         get_u16(req.data(), 36)),
              std::tuple(20, 48, by_name ? 0 : 130, by_name ? 4 : 0));
    EXPECT_EQ(get_u32(reply, 48), 0x5u);
    tarvik_msg_free(c, reply);
  }
  kernel.inject_wrong_seq(1);
  void *reply = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_ifdalm_get_by_if_index(c, 130, TLK_OP_GET, &reply), -2);
  EXPECT_EQ(reply, nullptr);
  // Unlike the device family's own reads, this family keeps 60 characters of a name and says 61
  // when it cut.
  const std::string name = "ge0" + std::string(70, 'x');
  reply = nullptr;
  (void)tarvik_ifdsm_get_by_name(c, name.c_str(), 1, TLK_OP_GET, &reply);
  tarvik_msg_free(c, reply);
  const Bytes req = last_sent(kernel);
  ASSERT_EQ(req.size(), 136u);
  EXPECT_EQ(req[31], 61);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&req[72])), name.substr(0, 60));
  // A clear goes out as op 6 for the device given and reads nothing back.
  ASSERT_EQ(tarvik_ifdsm_clear_by_index(c, 130, 2), 0);
  EXPECT_EQ(std::tuple(last_sent(kernel).size(), last_sent(kernel)[6]),
            std::tuple(72u, uint8_t{TLK_OP_CLEAR}));
  EXPECT_EQ(kernel.devices().find(130)->in_packets, 0u) << "the device named was cleared";
}

TEST_F(IfdStatsTest, AsynchronousReadComesBackAsANotification) {
  std::vector<Bytes> heard;
  auto hear = [](tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    const auto *b = static_cast<const uint8_t *>(msg);
    static_cast<std::vector<Bytes> *>(arg)->emplace_back(b, b + get_u32(b, 8));
    tarvik_msg_free(cookie, msg);
    return 0;
  };
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_ifdsm_async_kernel_register(c, &heard, hear), 0);
  // Refused before anything is sent: a name of a kind without them, a reply flag other than 64
  // or 128, an op other than a get, and no name.
  EXPECT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, 64, 140, "lo0", 1, TLK_OP_GET, 5),
            EOPNOTSUPP);
  EXPECT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, 32, 140, "xe0", 1, TLK_OP_GET, 5),
            EOPNOTSUPP);
  EXPECT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, 64, 140, "xe0", 1, TLK_OP_CHANGE, 5),
            EOPNOTSUPP);
  EXPECT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, 64, 140, nullptr, 1, TLK_OP_GET, 5), EINVAL);
  EXPECT_EQ(sent_count(kernel), 0u);
  const uint32_t seq = c->seq;
  ASSERT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, 64, 130, "xe0", 1, TLK_OP_GET, 0xCAFE), 0);
  EXPECT_EQ(c->seq, seq);  // no sequence number drawn
  const Bytes req = last_sent(kernel);
  ASSERT_EQ(req.size(), 72u);  // no name goes in the message
  // The flags with the asynchronous bit, no sequence number, the caller's context.
  EXPECT_EQ(std::tuple(get_u16(req.data(), 58), get_u32(req.data(), 12), get_u64(req.data(), 64)),
            std::tuple(65, 0u, 0xCAFEu));
  drain(c);
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(std::tuple(heard[0][5], get_u64(heard[0].data(), 64), get_u64(heard[0].data(), 72)),
            std::tuple(15, 0xCAFEu, 1000u));
}

}  // namespace
}  // namespace tlktest
