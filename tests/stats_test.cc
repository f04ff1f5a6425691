// Next hop statistics, route statistics and route class statistics against the simulated
// kernel: the waits for late answers (driven by the kernel's wait model, never by the clock),
// the tail of a next hop statistics request (gateway, label block, info), the entry that throws
// its answer away, the eleven-read limit of route statistics and the raw layouts of both.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;
using RtStatsWords = tarsim::RtStats::Words;

// Counts the seam's waits, passing them on to the table it replaced (the kernel's).
struct WaitSpy {
  WaitSpy() : previous(*tlk_platform_get()) {
    spy = this;
    tlk_platform table = previous;
    table.select = [](int n, fd_set *r, fd_set *w, fd_set *e, timeval *t) {
      ++spy->selects;
      if (t != nullptr) spy->last_timeout_us = t->tv_sec * 1000000 + t->tv_usec;
      return spy->previous.select(n, r, w, e, t);
    };
    table.usleep = [](unsigned usec) {
      ++spy->sleeps;
      spy->last_timeout_us = usec;
      return spy->previous.usleep(usec);
    };
    tlk_platform_set(&table);
  }
  ~WaitSpy() { tlk_platform_set(&previous); }
  tlk_platform previous;
  int selects = 0, sleeps = 0;
  long last_timeout_us = -1;
  static inline WaitSpy *spy = nullptr;
};

constexpr uint8_t kInet[16] = {16, 2, 0, 0, 192, 0, 2, 1};  // a socket address of length 16
constexpr uint8_t kEmptyAddr[16] = {0, 2};                  // length byte 0

class StatsTest : public OneSessionTest {
 protected:
  // tarvik_rnhsm_get for next hop `idx` of type `nh_type`, the rest given.
  int nh_get(uint32_t idx, uint32_t nh_type, const void *gateway = nullptr,
             const tagp *labels = nullptr) {
    return tarvik_rnhsm_get(c, 5, TLK_OP_GET, nh_type, 2, idx, 77, 9, gateway, labels, nullptr, 0,
                            0, &reply, &mask);
  }
  const rnhs_msg &got() const { return *static_cast<const rnhs_msg *>(reply); }
  void TearDown() override {
    tarvik_msg_idl_release(c, reply, mask);
    OneSessionTest::TearDown();
  }
  int fd() const { return kernel.sessions().front(); }
  // Lets the last reply go, for the next call.
  void release() {
    tarvik_msg_idl_release(c, reply, mask);
    reply = mask = nullptr;
  }

  void *reply = nullptr;
  void *mask = nullptr;
};

// ---- Next hop statistics ----

TEST_F(StatsTest, NextHopCountersComeBackWithTheRequestsOwnFields) {
  kernel.nh_stats().set(1000, 1234, 56789);
  ASSERT_EQ(nh_get(1000, 2, kInet), 0);
  EXPECT_EQ(got().packets, 1234u);
  EXPECT_EQ(got().bytes, 56789u);
  EXPECT_EQ(got().ifidx.idx, 77u);
  EXPECT_EQ(got().rnhs_kind, 5);
  ASSERT_EQ(got().gateway_count, 1u);
  EXPECT_EQ(0, memcmp(got().gateway[0].sai_addr, kInet, 8));
  tarvik_msg_idl_release(c, reply, mask);
  // An index without counters: a raw tlk-err where a frame was read, and null outputs.
  EXPECT_EQ(nh_get(4242, 2), EOPNOTSUPP);
  EXPECT_EQ(reply, nullptr);
  EXPECT_EQ(mask, nullptr);
}

struct TypeRow {
  uint32_t nh_type;
  int get;       // tarvik_rnhsm_get
  int by_index;  // tarvik_rnhsm_get_by_index
};

TEST_F(StatsTest, OnlyTheNextHopTypesWithStatisticsAreAsked) {
  const TypeRow rows[] = {{1, EOPNOTSUPP, EINVAL}, {2, 0, 0},       {3, 0, EINVAL},
                          {20, 0, EINVAL},         {24, 0, EINVAL}, {25, EOPNOTSUPP, EINVAL}};
  for (const TypeRow &row : rows) {
    SCOPED_TRACE(row.nh_type);
    const uint64_t before = kernel.nh_stats().requests();
    EXPECT_EQ(nh_get(1000, row.nh_type), row.get);
    EXPECT_EQ(kernel.nh_stats().requests(), before + (row.get == 0 ? 1 : 0));
    release();
    void *out = &out, *m = &m;
    EXPECT_EQ(tarvik_rnhsm_get_by_index(c, 1000, 0, row.nh_type, 2, nullptr, nullptr, 0, TLK_OP_GET,
                                        &out, &m),
              row.by_index);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(m, nullptr);
  }
}

// A failed write is reported unless it is for want of memory or unsupported; a read takes the
// answer and drops it with one line.
TEST_F(StatsTest, ByIndexReportsAFailedWriteOrDropsTheAnswerWithOneLine) {
  for (const int err : {EPIPE, ENOMEM, EOPNOTSUPP}) {
    SCOPED_TRACE(err);
    os.stderr_lines.clear();
    kernel.inject_write_errno(err);
    EXPECT_EQ(tarvik_rnhsm_get_by_index(c, 1000, 0, 2, 2, nullptr, nullptr, 0, TLK_OP_GET, nullptr,
                                        nullptr),
              err);
    const std::string want =
        "NH stats tarvik_write failed [" + std::to_string(err) + " - " + strerror(err) + "]\n";
    EXPECT_EQ(os.stderr_lines,
              err == EPIPE ? std::vector<std::string>{want} : std::vector<std::string>{});
  }
  EXPECT_EQ(kernel.nh_stats().requests(), 0u);
  // A read takes the answer and drops it with one line.
  os.stderr_lines.clear();
  void *out = &out, *m = &m;
  EXPECT_EQ(tarvik_rnhsm_get_by_index(c, 1000, 0, 2, 2, nullptr, kInet, 0, TLK_OP_GET, &out, &m),
            0);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(kernel.nh_stats().requests(), 1u);
  ASSERT_EQ(os.stderr_lines.size(), 1u);
  EXPECT_EQ(os.stderr_lines[0].rfind("NH stats tarvik_msg_read failed [0 - ", 0), 0u)
      << os.stderr_lines[0];
  // Nothing is left on the socket: the answer was taken.
  void *late = nullptr;
  EXPECT_EQ(tarvik_msg_read_idl(c, &late, nullptr), EAGAIN);
}

TEST_F(StatsTest, TheHalfSecondWaitsAreTheKernelsNotTheClocks) {
  kernel.nh_stats().hold_replies(3);
  const uint64_t waits = kernel.waits(fd());
  WaitSpy spy;
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(nh_get(1000, 2), 0);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(kernel.waits(fd()) - waits, 3u);
  EXPECT_EQ(spy.selects, 3);
  EXPECT_EQ(spy.sleeps, 0);
  EXPECT_EQ(spy.last_timeout_us, 500000);
  EXPECT_LT(elapsed, std::chrono::milliseconds(200));  // three waits of 500 ms, none in real time
  EXPECT_EQ(got().packets, 150u);                      // the seeded counters of index 1
}

TEST_F(StatsTest, ADescriptorBeyondAnFdSetSleepsInsteadOfSelecting) {
  // Fill every descriptor below 1024 so that the next session's socket lands above them.
  std::vector<int> fillers;
  const int base = open("/dev/null", O_RDONLY);
  ASSERT_GE(base, 0);
  fillers.push_back(base);
  for (int next = dup(base); next >= 0; next = dup(base)) {
    fillers.push_back(next);
    if (next >= 1023) break;
  }
  tarvik_cookie *high = open_session();
  for (int fd : fillers) close(fd);
  ASSERT_NE(high, nullptr);
  ASSERT_GE(tarvik_getsockfd(high), 1024);
  kernel.nh_stats().hold_replies(2);
  WaitSpy spy;
  void *out = nullptr, *m = nullptr;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(tarvik_rnhsm_get(high, 0, TLK_OP_GET, 2, 2, 1001, 0, 0, nullptr, nullptr, nullptr, 0, 0,
                             &out, &m),
            0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_EQ(spy.selects, 0);
  EXPECT_EQ(spy.sleeps, 2);
  EXPECT_EQ(spy.last_timeout_us, 500000);
  EXPECT_NE(out, nullptr);
  tarvik_msg_idl_release(high, out, m);
  tarvik_close(high);
}

TEST_F(StatsTest, AnEmptyGatewayTakesItsRoomAndLabelsNeedASelectorFromOneToFifteen) {
  ASSERT_EQ(nh_get(1000, 2, kEmptyAddr), 0);
  EXPECT_EQ(got().gateway_count, 0u);
  EXPECT_EQ(got().gateway, nullptr);
  release();
  // Labels that fill the block exactly behind the record fit without a gateway, and no longer
  // fit once an empty gateway has taken the element's room.
  const size_t fixed = (sizeof(rnhs_msg) + 7) & ~size_t{7};
  std::vector<tagp_label8> many((TLK_MSG_BUF_SIZE - fixed) / sizeof(tagp_label8));
  for (size_t i = 0; i < many.size(); ++i) many[i].tl8_label = static_cast<uint32_t>(i);
  tagp full{};
  full.tg_sel = 1;
  full.tg_labels = many.data();
  full.tg_label_count = static_cast<uint32_t>(many.size());
  EXPECT_EQ(nh_get(1000, 2, nullptr, &full), 0);
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(got().labels.tg_label_count, many.size());
  EXPECT_EQ(got().labels.tg_labels[many.size() - 1].tl8_label, many.size() - 1);
  release();
  const uint64_t before = kernel.nh_stats().requests();
  EXPECT_EQ(nh_get(1000, 2, kEmptyAddr, &full), EMSGSIZE);
  EXPECT_EQ(kernel.nh_stats().requests(), before);
  // A label block travels only with a selector from 1 to 15.
  tagp_label8 labels[2] = {{100, 1}, {200, 2}};
  tagp_label7 entries[1] = {{{1, 2, 3, 4, 5, 6, 7}}};
  for (const int sel : {0, 1, 15, 16, 255}) {
    SCOPED_TRACE(sel);
    const bool kept = sel >= 1 && sel <= 15;
    tagp block{};
    block.tg_w0 = 0xA0;
    block.tg_w3 = 0xA3;
    block.tg_sel = static_cast<uint8_t>(sel);
    block.tg_labels = labels;
    block.tg_label_count = 2;
    block.tg_entries = entries;
    block.tg_entry_count = 1;
    ASSERT_EQ(nh_get(1000, 2, kInet, &block), 0);
    const tagp &l = got().labels;
    EXPECT_EQ(l.tg_sel, kept ? sel : 0);
    EXPECT_EQ(l.tg_w3, kept ? 0xA3u : 0u);
    ASSERT_EQ(l.tg_label_count, kept ? 2u : 0u);
    ASSERT_EQ(l.tg_entry_count, kept ? 1u : 0u);
    if (kept) {
      EXPECT_EQ(l.tg_labels[1].tl8_label, 200u);
      EXPECT_EQ(l.tg_entries[0].tl7_bytes[6], 7);
    }
    EXPECT_EQ(got().gateway_count, 1u);  // the gateway is not disturbed either way
    release();
  }
}

TEST_F(StatsTest, ByNextHopTakesEverythingFromTheRecord) {
  uint8_t addr[16];
  memcpy(addr, kInet, sizeof addr);
  sockaddr_idl gw{};
  gw.sai_addr = addr;
  tagp_label8 label{3000, 0};
  tagp block{};
  block.tg_sel = 3;
  block.tg_labels = &label;
  block.tg_label_count = 1;
  rnh_msg nh{};
  nh.nh = 4;
  nh.af = 2;
  nh.idx.idx = 2;
  nh.ifidx.idx = 88;
  nh.rnh_f18 = &gw;
  nh.rnh_f18_count = 1;
  nh.rnh_f24 = &block;
  nh.rnh_f24_count = 1;
  nh.rnh_info.rnhi_type = 4;
  nh.rnh_info.rnhi_u.rnh_info_idxd.rnid_index = 55;
  nh.info_len = 8;
  kernel.nh_stats().set(2, 7, 700);
  ASSERT_EQ(tarvik_rnhsm_get_by_nexthop(c, 9, TLK_OP_GET, &nh, &reply, &mask), 0);
  EXPECT_EQ(got().nh_type, 4);
  EXPECT_EQ(got().ifidx.idx, 88u);
  ASSERT_EQ(got().gateway_count, 1u);
  ASSERT_EQ(got().labels.tg_label_count, 1u);
  EXPECT_EQ(got().labels.tg_labels[0].tl8_label, 3000u);
  EXPECT_EQ(got().rnh_info.rnhi_u.rnh_info_idxd.rnid_index, 55u);
  EXPECT_EQ(got().packets, 7u);
  release();
  // A label list of count 0 sends no labels, a next hop type without statistics is refused.
  nh.rnh_f24_count = 0;
  ASSERT_EQ(tarvik_rnhsm_get_by_nexthop(c, 0, TLK_OP_GET, &nh, &reply, &mask), 0);
  EXPECT_EQ(got().labels.tg_sel, 0);
  nh.nh = 22;
  tarvik_msg_idl_release(c, reply, mask);
  EXPECT_EQ(tarvik_rnhsm_get_by_nexthop(c, 0, TLK_OP_GET, &nh, &reply, &mask), EOPNOTSUPP);
  EXPECT_EQ(tarvik_rnhsm_get_by_nexthop(c, 0, TLK_OP_GET, nullptr, &reply, &mask), EINVAL);
}

// ---- Route statistics ----

struct SeqSpy {
  static void cb(tarvik_cookie *, void *arg, uint32_t expected, uint32_t got) {
    auto *s = static_cast<SeqSpy *>(arg);
    ++s->calls;
    s->expected = expected;
    s->got = got;
  }
  int calls = 0;
  uint32_t expected = 0, got = 0;
};

TEST_F(StatsTest, RouteCountersAreTheFourteenWordsBehindThePrefix) {
  kernel.record(true);
  const uint8_t ten[] = {10, 0, 0, 0};
  uint32_t words[TLK_RTSTATS_WORDS] = {};
  const timeval wait{1, 0};
  ASSERT_EQ(tarvik_rtstats_get(c, 2, 0, 7, 0x30, 8, ten, words, &wait), 0);
  for (uint32_t i = 0; i < TLK_RTSTATS_WORDS; ++i) EXPECT_EQ(words[i], i + 1);
  const Bytes sent = last_sent(kernel);
  ASSERT_EQ(sent.size(), 56u);  // 52 and one word of prefix
  EXPECT_EQ(get_u16(sent.data(), 4), 0x0465u);
  EXPECT_EQ(get_u16(sent.data(), 20), 52u);
  EXPECT_EQ(sent[28], 7);
  EXPECT_EQ(get_u16(sent.data(), 34), 8u);
  EXPECT_EQ(get_u32(sent.data(), 36), 0x30u);
  EXPECT_EQ(sent[52], 10);
  // 33 bits: five bytes from the caller, padded to two words.
  const uint8_t p[] = {10, 1, 2, 3, 0xFF, 0xEE, 0xDD};
  const RtStatsWords w = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 1, 2, 3, 4};
  kernel.rt_stats().set_route(2, 5, p, 33, w.data());
  ASSERT_EQ(tarvik_rtstats_get(c, 2, 5, 0, 0, 33, p, words, nullptr), 0);
  EXPECT_EQ(words[0], 9u);
  const Bytes long_sent = last_sent(kernel);
  EXPECT_EQ(Bytes(long_sent.begin() + 52, long_sent.end()), (Bytes{10, 1, 2, 3, 0xFF, 0, 0, 0}));
  // A route without counters is not found; a null prefix or output is refused.
  const uint8_t none[] = {192, 168, 0, 0};
  EXPECT_EQ(tarvik_rtstats_get(c, 2, 0, 0, 0, 16, none, words, nullptr), ENOENT);
  EXPECT_EQ(tarvik_rtstats_get(c, 2, 0, 0, 0, 16, nullptr, words, nullptr), EINVAL);
  EXPECT_EQ(tarvik_rtstats_get(c, 2, 0, 0, 0, 16, none, nullptr, nullptr), EINVAL);
}

struct HoldRow {
  unsigned hold;
  int result;
  int callbacks;
};

TEST_F(StatsTest, RouteStatisticsGiveUpAfterElevenReads) {
  const uint8_t ten[] = {10};
  SeqSpy seq;
  ASSERT_EQ(tarvik_seq_error_register(c, &seq, SeqSpy::cb), 0);
  for (const HoldRow row : {HoldRow{0, 0, 0}, HoldRow{11, 0, 0}, HoldRow{12, EAGAIN, 1}}) {
    SCOPED_TRACE(row.hold);
    seq = SeqSpy{};
    kernel.rt_stats().hold_replies(row.hold);
    WaitSpy spy;
    uint32_t words[TLK_RTSTATS_WORDS] = {};
    const timeval wait{2, 0};
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(tarvik_rtstats_get(c, 2, 0, 0, 0, 8, ten, words, &wait), row.result);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(500));
    // One select before each read: as many as the waits the hold asks, eleven at most.
    EXPECT_EQ(spy.selects, row.hold == 0 ? 1 : static_cast<int>(std::min(row.hold, 11u)));
    EXPECT_EQ(spy.last_timeout_us, 2000000);
    EXPECT_EQ(seq.calls, row.callbacks);
    if (row.callbacks != 0) {
      EXPECT_EQ(seq.got, seq.expected - 1);
    }
    EXPECT_EQ(words[13], row.result == 0 ? 14u : 0u);
    // Whatever is still held is let go and read, so the next row starts from an empty socket.
    kernel.rt_stats().hold_replies(0);
    ASSERT_TRUE(kernel.hold_replies(fd(), 0));
    void *m = nullptr;
    for (size_t len = 0; tarvik_long_msg_read(c, &m, &len) == 0;) tarvik_msg_free(c, m);
  }
}

// ---- Route class statistics ----

struct ClassRow {
  const char *what;
  int how;  // 0: by index, 1: by name, 2: the block of an interface
  uint32_t key;
  uint8_t af;
  bool refused;                    // the answer is the kernel's "tlk-err"
  std::vector<std::string> names;  // the classes in the answer, in order
};

TEST_F(StatsTest, RouteClassAnswersCarryTheClassesAsked) {
  const ClassRow rows[] = {
      {"by index", 0, 2, 2, false, {"silver"}},
      {"by name", 1, 0, 0, false, {"gold", "gold"}},
      {"block", 2, 501, 2, false, {"gold", "silver"}},
      {"other family", 2, 501, 24, true, {}},
      {"unknown index", 0, 9, 2, true, {}},
  };
  auto call = [&](const ClassRow &row, void **o) {
    return row.how == 0   ? tarvik_rtcsm_get_by_index(c, row.key, 70, row.af, 0, 0, o)
           : row.how == 1 ? tarvik_rtcsm_get_by_name(c, 0, "gold", row.af, 0, 0, o)
                          : tarvik_rtcsm_get_block_by_ifl_snmp_index(c, row.key, row.af, 0, 0, o);
  };
  for (const ClassRow &row : rows) {
    SCOPED_TRACE(row.what);
    void *out = &out;
    ASSERT_EQ(call(row, &out), 0);
    ASSERT_NE(out, nullptr);
    const auto *b = static_cast<const uint8_t *>(out);
    EXPECT_EQ(b[5], row.refused ? TLK_MSG_TLK_ERR : TLK_MSG_RT_CLASS_STATS);
    if (row.refused) {
      tarvik_msg_free(c, out);
      continue;
    }
    EXPECT_EQ(get_u16(b, 4), 0x1D64u);
    const uint32_t n = get_u32(b, 32);
    ASSERT_EQ(get_u32(b, 8), 48 + n * sizeof(tarsim::RtClassRecord));
    std::vector<std::string> names;
    for (uint32_t i = 0; i < n; ++i) {
      tarsim::RtClassRecord r;
      memcpy(&r, b + 48 + i * sizeof r, sizeof r);
      names.push_back(r.name);
    }
    EXPECT_EQ(names, row.names);
    tarvik_msg_free(c, out);
  }
}

TEST_F(StatsTest, RouteClassRequestsAreLaidOutAsTheKernelReadsThemAndAClearIsNotAnswered) {
  kernel.record(true);
  kernel.on_raw(TLK_MSG_RT_CLASS_STATS, TLK_OP_GET,
                [](tarsim::Kernel &k, const tarsim::Request &r) {
                  k.reply_with_seq(r.session, r.bytes, r.seq);
                });
  const std::string longname(70, 'n');
  void *out = nullptr;
  ASSERT_EQ(tarvik_rtcsm_get_by_name(c, 3, longname.c_str(), 2, 6, 0x81, &out), 0);
  tarvik_msg_free(c, out);
  const Bytes sent = last_sent(kernel);
  ASSERT_EQ(sent.size(), 48u + 64u);  // the name cut at 63 and its end byte
  EXPECT_EQ(sent[7], 0x81);
  EXPECT_EQ(get_u32(sent.data(), 24), 3u);
  EXPECT_EQ(sent[37], 64);
  EXPECT_EQ(sent[39], 6);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&sent[48])), longname.substr(0, 63));
  ASSERT_EQ(tarvik_rtcsm_get_block_by_ifl_snmp_index(c, 0x01020304, 2, 0, 0, &out), 0);
  tarvik_msg_free(c, out);
  const Bytes block = last_sent(kernel);
  ASSERT_EQ(block.size(), 48u);
  EXPECT_EQ(get_u32(block.data(), 24), 0x01020304u);
  // Clearing is fire and forget.
  EXPECT_EQ(tarvik_rtcsm_clear_by_index(c, 1, 70, 2, 0), 0);
  tarsim::RtClassRecord r{};
  ASSERT_TRUE(kernel.rt_stats().find_class(1, 70, &r));
  EXPECT_EQ(r.packets, 0u);
  ASSERT_TRUE(kernel.rt_stats().find_class(1, 71, &r));
  EXPECT_EQ(r.packets, 7u);  // the other interface's class keeps its counters
  EXPECT_EQ(last_sent(kernel)[6], TLK_OP_CLEAR);
  void *late = nullptr;
  size_t len = 0;
  EXPECT_EQ(tarvik_long_msg_read(c, &late, &len), EAGAIN);
  // A get needs its output; nothing is sent without it.
  const size_t count = sent_count(kernel);
  EXPECT_EQ(tarvik_rtcsm_get_by_index(c, 1, 70, 2, 0, 0, nullptr), EINVAL);
  EXPECT_EQ(sent_count(kernel), count);
}

}  // namespace
}  // namespace tlktest
