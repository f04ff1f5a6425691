// Firewall counters and the firewall log against the simulated kernel: the requests as they go
// out, runs of replies gathered by the "more follows" rule (whole, cut short, out of sequence,
// too long), the flat copy of the counters, the asynchronous form through event processing, and
// the log reads and clears.
#include <errno.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;
using tarsim::CounterRecord;
using Names = std::vector<std::string>;
using ListGet = std::function<int(tarvik_cookie *, tarvik_msg_list_t **)>;

#define CALL(expr) [&](tarvik_cookie *k, tarvik_msg_list_t **l) { return (void)l, (expr); }

// The counters in a list's flat copy, in order, as "name packets"; the list is freed.
Names names_in(tarvik_cookie *c, tarvik_msg_list_t *list) {
  void *data = nullptr;
  uint32_t len = 0;
  EXPECT_EQ(tarvik_dfwsm_list_get_counters(c, list, &data, &len), 0);
  EXPECT_EQ(len, tarvik_dfwsm_list_to_counter_len(list));
  Names names;
  for (uint32_t at = 0; at + sizeof(CounterRecord) <= len; at += sizeof(CounterRecord))
    names.push_back(static_cast<const char *>(data) + at +
                    (" " + std::to_string(get_u64(data, at + 40))));
  tarvik_msg_free(c, data);
  tarvik_msg_list_free(c, list);
  return names;
}

// A raw "dfwstats" reply: the fixed part, `more`, and `data_len` bytes of 0xAB.
Bytes stats_reply(uint8_t more, uint16_t data_len) {
  Bytes m(64 + data_len, 0xAB);
  std::fill(m.begin(), m.begin() + 64, 0);
  m[4] = 'e';
  m[5] = TLK_MSG_DFWSTATS;
  put_u32(m, 8, static_cast<uint32_t>(m.size()));
  m[20] = 64;
  m[32] = more;
  m[34] = static_cast<uint8_t>(data_len);
  m[35] = static_cast<uint8_t>(data_len >> 8);
  return m;
}

class DfwStatsTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
  }
};

// Every request layout: what goes where in the 64-byte fixed part and behind it.
TEST_F(DfwStatsTest, RequestsGoOutAsLaidDown) {
  const std::string long_name(200, 'n');
  const struct {
    const char *what;
    ListGet call;
    size_t size;
    uint8_t op, ct;
    uint32_t filter;
    uint16_t len1, len2, flags;
    std::string name;  // at 64
  } rows[] = {
      // clang-format off
      {"by index", CALL(tarvik_dfwsm_get_by_index(k, 1, 2, 4, 7, 5, 3, l)), 64, 4, 5, 1, 0, 0, 1, ""},
      {"by name", CALL(tarvik_dfwsm_get_by_filter_index_counter_name(k, 1, "ssh-accept", 2, 5, l, 0, 0, nullptr)),
       76, 4, 5, 1, 11, 0, 0, "ssh-accept"},
      {"long name cut at 128", CALL(tarvik_dfwsm_get_by_filter_index_counter_name(k, 1, long_name.c_str(), 2, 5, l, 0, 0, nullptr)),
       196, 4, 5, 1, 129, 0, 0, std::string(128, 'n')},
      {"second name", CALL(tarvik_dfwsm_get_psa_by_index(k, 2, 2, 4, "web-hits", 3, 4, 5, l)), 76, 4, 5, 2, 0, 9, 0, "web-hits"},
      {"clear all", CALL(tarvik_dfwsm_clear_all(k, 2)), 64, 6, 5, 0, 0, 0, 0, ""},
      {"clear filter and name", CALL(tarvik_dfwsm_clear_by_index(k, 2, 1, "icmp-in")), 72, 6, 5, 1, 8, 0, 0, "icmp-in"},
      {"clear by name", CALL(tarvik_dfwsm_clear_by_counter_type(k, 2, "icmp-in", 4)), 72, 6, 4, 0, 8, 0, 0, "icmp-in"},
      {"clear by another type: no name", CALL(tarvik_dfwsm_clear_by_counter_type(k, 2, "icmp-in", 3)), 64, 6, 3, 0, 0, 0, 0, ""},
      // clang-format on
  };
  for (auto &row : rows) {
    SCOPED_TRACE(row.what);
    tarvik_msg_list_t *list = nullptr;
    ASSERT_EQ(row.call(c, &list), 0);
    tarvik_msg_list_free(c, list);
    const Bytes req = last_sent(kernel);
    ASSERT_EQ(req.size(), row.size);
    EXPECT_EQ(get_u32(req.data(), 8), row.size);
    EXPECT_EQ(get_u16(req.data(), 4), 0x1665);
    EXPECT_EQ(req[6], row.op);
    EXPECT_EQ(get_u32(req.data(), 12), c->seq);
    EXPECT_EQ(get_u16(req.data(), 20), 64);
    EXPECT_EQ(get_u16(req.data(), 24), row.ct | 2 << 8);
    EXPECT_EQ(get_u32(req.data(), 28), row.filter);
    EXPECT_EQ(get_u16(req.data(), 34), row.len1);
    EXPECT_EQ(get_u16(req.data(), 44), row.len2);
    EXPECT_EQ(get_u32(req.data(), 46), row.flags << 16);  // 46: not asynchronous
    EXPECT_EQ(std::string(req.begin() + 64, req.end()).c_str(), row.name);
  }
}

// Reads of the seeded counters: which counters each selection gives, in key order; clears.
TEST_F(DfwStatsTest, ReadsSelectCountersAndMoveWithTheKernel) {
  kernel.dfw_counters().bump(1, 2, "icmp-in", 0, 3, 300);
  const struct {
    const char *what;
    ListGet get;
    Names names;  // none: the kernel's refusal, one message without counters
  } rows[] = {
      // clang-format off
      {"every type", CALL(tarvik_dfwsm_get_by_index(k, 1, 2, 4, 0, 5, 0, l)), {"discard-rest 7", "icmp-in 15", "ssh-accept 340"}},
      {"type 0", CALL(tarvik_dfwsm_get_by_index(k, 1, 2, 4, 0, 0, 0, l)), {"icmp-in 15", "ssh-accept 340"}},
      {"getnext", CALL(tarvik_dfwsm_get_by_index(k, 1, 2, 5, 0, 5, 0, l)), {"policer-web 31", "web-hits 9000"}},
      {"by name", CALL(tarvik_dfwsm_get_by_filter_index_counter_name(k, 2, "web-hits", 2, 5, l, 0, 0, nullptr)), {"web-hits 9000"}},
      {"by second name", CALL(tarvik_dfwsm_get_psa_by_index(k, 1, 2, 4, "icmp-in", 0, 0, 5, l)), {"icmp-in 15"}},
      {"unknown filter", CALL(tarvik_dfwsm_get_by_index(k, 9, 2, 4, 0, 5, 0, l)), {}},
      {"unknown name", CALL(tarvik_dfwsm_get_by_filter_index_counter_name(k, 2, "nope", 2, 5, l, 0, 0, nullptr)), {}},
      // clang-format on
  };
  for (auto &row : rows) {
    SCOPED_TRACE(row.what);
    tarvik_msg_list_t *list = nullptr;
    ASSERT_EQ(row.get(c, &list), 0);
    EXPECT_EQ(list->count, 1);
    EXPECT_EQ(list->type, row.names.empty() ? TLK_MSG_TLK_ERR : TLK_MSG_DFWSTATS);
    EXPECT_EQ(names_in(c, list), row.names);
  }
  // Clears zero what they select and nothing else, and draw no reply.
  const uint64_t replies = kernel.replies(tarvik_getsockfd(c));
  ASSERT_EQ(tarvik_dfwsm_clear_by_index(c, 2, 1, "icmp-in"), 0);
  EXPECT_EQ(kernel.dfw_counters().find(1, 2, "icmp-in", 0)->packets, 0u);
  EXPECT_EQ(kernel.dfw_counters().find(1, 2, "ssh-accept", 0)->packets, 340u);
  ASSERT_EQ(tarvik_dfwsm_clear_by_counter_type(c, 2, nullptr, 2), 0);
  EXPECT_EQ(kernel.dfw_counters().find(2, 2, "policer-web", 2)->packets, 0u);
  EXPECT_EQ(kernel.dfw_counters().find(2, 2, "web-hits", 0)->packets, 9000u);
  ASSERT_EQ(tarvik_dfwsm_clear_all(c, 2), 0);
  EXPECT_EQ(kernel.dfw_counters().find(2, 2, "web-hits", 0)->bytes, 0u);
  EXPECT_EQ(kernel.replies(tarvik_getsockfd(c)), replies);
}

// Runs of several messages: whole, cut short, out of sequence, and longer than a list holds.
TEST_F(DfwStatsTest, RunsFollowTheMoreFollowsByte) {
  for (int i = 0; i < 1000; ++i) kernel.dfw_counters().bump(3, 2, "c" + std::to_string(i), 0, 1, 1);
  const struct {
    const char *what;
    size_t per;
    uint32_t filter;
    int messages;
    size_t counters;
  } rows[] = {
      {"two per message", 2, 1, 2, 3},
      {"one per message", 1, 1, 3, 3},
      {"a thousand, as many as fit", 0, 3, 4, 1000},
      {"a thousand, one each: the kernel packs them in 16", 1, 3, 16, 1000},
  };
  for (auto &row : rows) {
    SCOPED_TRACE(row.what);
    kernel.dfw_counters().set_per_message(row.per);
    tarvik_msg_list_t *list = nullptr;
    ASSERT_EQ(tarvik_dfwsm_get_by_index(c, row.filter, 2, 4, 0, 5, 0, &list), 0);
    ASSERT_EQ(list->count, row.messages);
    for (int i = 0; i < list->count; ++i) {
      EXPECT_EQ(static_cast<const uint8_t *>(tarvik_msg_list_get_by_index(list, i))[32],
                i + 1 < list->count ? 1 : 0);
    }
    const Names names = names_in(c, list);
    ASSERT_EQ(names.size(), row.counters);
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
  }
  const struct {
    const char *what;
    std::vector<Bytes> replies;
    size_t wrong_seq_at;  // the message whose seq is off
    int want;
  } bad[] = {
      {"cut short", {stats_reply(1, 8)}, 9, EAGAIN},
      {"second message out of sequence", {stats_reply(1, 8), stats_reply(0, 8)}, 1, -2},
      {"seventeen messages", std::vector<Bytes>(17, stats_reply(1, 4)), 99, EMSGSIZE},
  };
  tarvik_seq_error_register(c, nullptr, [](tarvik_cookie *, void *, uint32_t, uint32_t) {});
  for (auto &row : bad) {
    SCOPED_TRACE(row.what);
    kernel.on_raw(TLK_MSG_DFWSTATS, TLK_OP_GET,
                  [&row](tarsim::Kernel &k, const tarsim::Request &r) {
                    for (size_t i = 0; i < row.replies.size(); ++i)
                      k.reply_with_seq(r.session, row.replies[i], r.seq + (i == row.wrong_seq_at));
                  });
    auto *list = reinterpret_cast<tarvik_msg_list_t *>(1);
    EXPECT_EQ(tarvik_dfwsm_get_by_index(c, 1, 2, 4, 0, 5, 0, &list), row.want);
    EXPECT_EQ(list, nullptr);
    void *rest = nullptr;  // what a failed run leaves on the socket
    while (tarvik_long_msg_read(c, &rest, nullptr) != EAGAIN) tarvik_msg_free(c, rest);
  }
  EXPECT_EQ(tarvik_dfwsm_list_to_counter_len(nullptr), 0u);
}

// A caller that sent its own request reads the run, and the 64-bit word it put at 56 comes back.
TEST_F(DfwStatsTest, ListOfARequestSentByTheCaller) {
  Bytes req = stats_reply(0, 0);
  uint32_t seq = 0;
  ASSERT_EQ(tarvik_seq_get_next(c, &seq), 0);
  put_u32(req, 4, 0x00041665);  // version, type, op get
  put_u32(req, 12, seq);
  put_u32(req, 24, 0x0205);  // counter type 5, family 2
  put_u32(req, 28, 2);
  put_u32(req, 56, 0x55667788);
  put_u32(req, 60, 0x11223344);
  ASSERT_EQ(tarvik_write(c, req.data(), req.size()), 0);
  tarvik_msg_list_t *list = nullptr;
  uint64_t user_data = 0;
  ASSERT_EQ(tarvik_get_dfwsm_list(c, &list, &user_data), 0);
  EXPECT_EQ(user_data, 0x1122334455667788u);
  EXPECT_EQ(names_in(c, list), (Names{"policer-web 31", "web-hits 9000"}));
  EXPECT_EQ(tarvik_get_dfwsm_list(c, &list, nullptr), EAGAIN);  // nothing more on the socket
  EXPECT_EQ(list, nullptr);
}

// What the "dfwstats" handler saw of the asynchronous answers.
struct AsyncEar {
  int result = -1;
  Names names;
  uint32_t seq = 0, user_data = 0;
  uint16_t flags = 0;
  int messages = 0;
  static int handler(tarvik_cookie *k, void *arg, void *msg, uintptr_t) {
    auto *ear = static_cast<AsyncEar *>(arg);
    tarvik_msg_list_t *list = nullptr;
    ear->result = tarvik_dfwsm_get_async_cb(k, msg, &list, &ear->seq, &ear->flags, &ear->user_data);
    if (list == nullptr) return 0;
    ear->messages = list->count;
    for (auto &n : names_in(k, list)) ear->names.push_back(n);
    return 0;
  }
};

// The asynchronous form: the request, the answer through event processing, a run cut short.
TEST_F(DfwStatsTest, AsynchronousCountersThroughEventProcessing) {
  AsyncEar ear;
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_dfwstatsm_async_register(c, &ear, AsyncEar::handler), 0);
  kernel.dfw_counters().set_per_message(2);
  const uint32_t before = c->seq;
  uint32_t seq_out = 99;
  ASSERT_EQ(tarvik_dfwsm_get_by_index_async(c, 1, 2, 4, 0, 5, 1, &seq_out, 0xBEEF), 0);
  const Bytes req = last_sent(kernel);
  EXPECT_EQ(seq_out, 0u);
  EXPECT_EQ(get_u32(req.data(), 12), 0u);
  EXPECT_EQ(get_u16(req.data(), 46), 1);
  EXPECT_EQ(get_u64(req.data(), 56), 0xBEEFu);
  EXPECT_EQ(c->seq, before);
  drain(c);
  EXPECT_EQ(ear.result, 0);
  EXPECT_EQ(ear.messages, 2);
  EXPECT_EQ(ear.names, (Names{"discard-rest 7", "icmp-in 12", "ssh-accept 340"}));
  EXPECT_EQ(ear.seq + 2, kernel.async_seq(tarvik_getsockfd(c)));  // the first of the two
  EXPECT_EQ(ear.user_data, 0xBEEFu);
  EXPECT_EQ(ear.flags, 1);
  EXPECT_TRUE(std::any_of(os.syslog.begin(), os.syslog.end(), [](const auto &l) {
    return l.priority == 7 && l.text ==
                                  "tarvik_dfwsm_get_async_cb: tarvik_dfwsm_get_async_cb:"
                                  "u_data:beef k_usr_d:beef \n";
  }));
  // The synchronous routine's asynchronous form on a statistics session: sequence 0, no list.
  tarvik_set_used_by_stats(c, 1);
  ear = AsyncEar{};
  auto *list = reinterpret_cast<tarvik_msg_list_t *>(1);
  ASSERT_EQ(
      tarvik_dfwsm_get_by_filter_index_counter_name(c, 2, "web-hits", 2, 5, &list, 1, 0, &seq_out),
      0);
  EXPECT_EQ(list, nullptr);
  EXPECT_EQ(seq_out, 0u);
  EXPECT_EQ(get_u16(last_sent(kernel).data(), 46), 1);
  ASSERT_EQ(tarvik_dfwsm_get_by_filter_index_counter_name_async(c, 2, "policer-web", 2, 5, &seq_out,
                                                                0, 7),
            0);
  drain(c);
  EXPECT_EQ(ear.names, (Names{"web-hits 9000", "policer-web 31"}));
  EXPECT_EQ(ear.user_data, 7u);
  // A run that stops after a message saying more follow: the reader gives the read's error.
  kernel.on_raw(TLK_MSG_DFWSTATS, TLK_OP_GET, [](tarsim::Kernel &k, const tarsim::Request &r) {
    k.notify_session(r.session, stats_reply(1, 8));
  });
  ear = AsyncEar{};
  ASSERT_EQ(tarvik_dfwsm_get_by_index_async(c, 1, 2, 4, 0, 5, 0, nullptr, 1), 0);
  drain(c);
  EXPECT_EQ(ear.result, EAGAIN);
  EXPECT_EQ(ear.messages, 0);
  EXPECT_TRUE(log.contains("tarvik_long_msg_read failed error ["));
  // A message too short for the fixed part: its fields read as 0, nothing more is read.
  ear = AsyncEar{};
  kernel.notify_session(tarvik_getsockfd(c), tarsim::raw_message(TLK_MSG_DFWSTATS, 4, 0));
  drain(c);
  EXPECT_EQ(ear.result, 0);
  EXPECT_EQ(ear.messages, 1);
  EXPECT_TRUE(ear.names.empty());
}

// The firewall log: the request, selections of the seeded entries, a run, the clear.
TEST_F(DfwStatsTest, LogReadsAndClear) {
  const timeval at{1700000005, 500};
  const struct {
    const char *what;
    ListGet get;
    size_t entries;
    int want = 0;
  } rows[] = {
      // clang-format off
      {"all", CALL(tarvik_dfwlm_get_all(k, 2, l)), 2},
      {"filter 1", CALL(tarvik_dfwlm_get_by_filter_index(k, 2, 4, 1, l)), 2},
      {"filter 9", CALL(tarvik_dfwlm_get_by_filter_index(k, 2, 4, 9, l)), 0},
      {"interface 131", CALL(tarvik_dfwlm_get_by_if_index(k, 2, 4, 131, l)), 1},
      {"from a time", CALL(tarvik_dfwlm_get_by_time(k, 2, 4, 0, &at, l)), 1},
      {"before a time", CALL(tarvik_dfwlm_get_by_time(k, 2, 4, 1, &at, l)), 1},
      {"no time", CALL(tarvik_dfwlm_get_by_time(k, 2, 4, 0, nullptr, l)), 0, EINVAL},
      {"no list", CALL(tarvik_dfwlm_get_by_filter_index(k, 2, 4, 1, nullptr)), 0, EINVAL},
      // clang-format on
  };
  for (auto &row : rows) {
    SCOPED_TRACE(row.what);
    tarvik_msg_list_t *list = reinterpret_cast<tarvik_msg_list_t *>(1);
    ASSERT_EQ(row.get(c, &list), row.want);
    if (row.want != 0) continue;
    ASSERT_EQ(list->count, 1);
    EXPECT_EQ(list->type, TLK_MSG_FIREWALL_LOG);
    EXPECT_EQ(get_u32(tarvik_msg_list_get_by_index(list, 0), 8), 52 + 32 * row.entries);
    tarvik_msg_list_free(c, list);
  }
  const Bytes req = last_sent(kernel);  // the "before a time" request
  ASSERT_EQ(req.size(), 52u);
  EXPECT_EQ(get_u32(req.data(), 4), 0x00041765u);
  EXPECT_EQ(get_u16(req.data(), 20), 52);
  EXPECT_EQ(get_u32(req.data(), 24), 0x0102u);  // family, selector
  EXPECT_EQ(get_u64(req.data(), 28), 1700000005u | uint64_t{500} << 32);
  for (uint32_t i = 0; i < 3; ++i) kernel.dfw_counters().log({1700000100 + i, 0, 2, 140, 2});
  kernel.dfw_counters().set_log_per_message(2);
  tarvik_msg_list_t *list = nullptr;
  ASSERT_EQ(tarvik_dfwlm_get_all(c, 2, &list), 0);
  ASSERT_EQ(list->count, 3);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(static_cast<const uint8_t *>(tarvik_msg_list_get_by_index(list, i))[47],
              i < 2 ? 1 : 0);
  tarvik_msg_list_free(c, list);
  ASSERT_EQ(tarvik_dfwlm_get_by_filter_index(c, 2, TLK_OP_CLEAR, 1, nullptr), 0);  // op 6: no list
  EXPECT_TRUE(kernel.dfw_counters().log_entries().empty());
  ASSERT_EQ(tarvik_dfwlm_clear_all(c, 2), 0);
  EXPECT_EQ(last_sent(kernel)[6], TLK_OP_CLEAR);
}

}  // namespace
}  // namespace tlktest
