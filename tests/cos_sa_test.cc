// Class-of-service and collector queries, security associations and public-key requests: the
// request layouts of every member, their refusals, name cuts, the packing of association
// sections, statistics, the public-key answer as a notification, and the trace texts.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using Call = std::function<int(tarvik_cookie *, void **out)>;

// A field of a request: `width` bytes at `at` hold `value`.
struct Field {
  size_t at;
  int width;
  uint32_t value;
};

uint32_t field_at(const Bytes &b, const Field &f) {
  if (f.at + static_cast<size_t>(f.width) > b.size()) return 0xDEADBEEF;
  return f.width == 1 ? b[f.at] : f.width == 2 ? get_u16(b.data(), f.at) : get_u32(b.data(), f.at);
}

struct RequestRow {
  const char *name;
  Call call;
  uint16_t word;  // version letter and type
  uint32_t size;  // tlkh_msglen and tlkh_fixedlen
  std::vector<Field> fields;
};

const std::string kName60(60, 'n');

const RequestRow kRequests[] = {
    {"cos info",
     [](auto *c, void **o) { return tarvik_cim_get(c, TLK_OP_GET, o); },
     0x1F62,
     28,
     {}},
    {"cos fabric",
     [](auto *c, void **o) { return tarvik_cfm_get(c, TLK_OP_GET, o); },
     0x2062,
     40,
     {}},
    {"classifier by object",
     [](auto *c, void **o) { return tarvik_ccm_get_object(c, 2, TLK_OP_GET, o); },
     0x2262,
     48,
     {{36, 4, 2}, {42, 1, 1}}},
    {"classifier by interface",
     [](auto *c, void **o) { return tarvik_ccm_get_ifl(c, 71, 3, TLK_OP_GET, o); },
     0x2262,
     48,
     {{32, 4, 71}, {38, 1, 3}, {42, 1, 0}}},
    {"fabric policy",
     [](auto *c, void **o) { return tarvik_cpm_fab_chass_get(c, 1, 2, 3, 1, TLK_OP_GET, o); },
     0x2363,
     152,
     {{32, 4, 0}, {40, 4, 1}, {44, 4, 2}, {48, 4, 3}, {52, 4, 1}}},
    {"chassis policy (mode 2)",
     [](auto *c, void **o) { return tarvik_cpm_fab_chass_get(c, 1, 2, 3, 2, TLK_OP_GET, o); },
     0x2363,
     152,
     {{40, 4, 0xFFFFFFFF}, {44, 4, 0xFFFFFFFF}, {48, 4, 3}, {52, 4, 2}}},
    {"policer",
     [](auto *c, void **o) { return tarvik_cpom_get(c, 7, TLK_OP_GET, o); },
     0x2662,
     48,
     {{32, 4, 7}}},
    {"shaper",
     [](auto *c, void **o) { return tarvik_csm_get(c, 3, TLK_OP_GET, o); },
     0x2762,
     48,
     {{32, 4, 3}}},
    {"rewrite by object",
     [](auto *c, void **o) { return tarvik_crwm_get_object(c, 5, TLK_OP_GET, o); },
     0x2563,
     56,
     {{36, 4, 5}, {44, 1, 1}}},
    {"rewrite by interface",
     [](auto *c, void **o) { return tarvik_crwm_get_ifl(c, 71, 2, 9, TLK_OP_GET, o); },
     0x2563,
     56,
     {{32, 4, 71}, {38, 1, 2}, {40, 4, 9}, {44, 1, 0}}},
    {"class to queue map",
     [](auto *c, void **o) { return tarvik_cglb_get(c, TLK_OP_GET, o); },
     0x3762,
     40,
     {}},
    {"fragmentation map by object",
     [](auto *c, void **o) { return tarvik_cfragm_get_object(c, 11, TLK_OP_GET, o); },
     0x4762,
     56,
     {{32, 4, 0}, {36, 4, 11}, {44, 1, 1}}},
    {"fragmentation map by interface",
     [](auto *c, void **o) { return tarvik_cfragm_get_ifl(c, 72, TLK_OP_GETNEXT, o); },
     0x4762,
     56,
     {{6, 1, TLK_OP_GETNEXT}, {32, 4, 72}, {36, 4, 0}, {44, 1, 0}}},
    {"collector parameters",
     [](auto *c, void **o) { return tarvik_cp_params_get(c, TLK_OP_GETNEXT, o); },
     0x3A65,
     1984,
     {{6, 1, TLK_OP_GETNEXT}}},
    {"fspec (type 60)",
     [](auto *c, void **o) { return tarvik_cp_fspec_get(c, TLK_OP_GET, o); },
     0x3C64,
     40,
     {}},
    {"interface map (type 59), name cut at 59",
     [](auto *c, void **o) { return tarvik_iif_cp_map_get(c, TLK_OP_GET, kName60.c_str(), o); },
     0x3B64,
     168,
     {{40, 1, 'n'}, {98, 1, 'n'}, {99, 1, 0}}},
    {"interface fspec map",
     [](auto *c, void **o) {
       return tarvik_iif_fspec_map_get(c, TLK_OP_GET, kName60.c_str(), "b", o);
     },
     0x3D64,
     416,
     {{36, 1, 'n'}, {94, 1, 'n'}, {95, 1, 0}, {96, 2, 'b'}}},
    {"collector statistics by index",
     [](auto *c, void **o) { return tarvik_cp_stats_get_by_index(c, 5, TLK_OP_GET, o); },
     0x4264,
     624,
     {{544, 4, 5}}},
    {"collector statistics by name",
     [](auto *c, void **o) {
       return tarvik_cp_stats_get_by_name(c, kName60.c_str(), TLK_OP_GET, o);
     },
     0x4264,
     624,
     {{560, 1, 'n'}, {618, 1, 'n'}, {619, 1, 0}}},
    {"file statistics (no reply read)",
     [](auto *c, void **) { return tarvik_cp_file_stats_get_by_name(c, "f", TLK_OP_GET); },
     0x4364,
     288,
     {{224, 2, 'f'}, {283, 1, 0}}},
};

class CosRequests : public OneSessionTest, public ::testing::WithParamInterface<RequestRow> {};

TEST_P(CosRequests, GoOutInTheirFixedLayout) {
  const RequestRow &row = GetParam();
  kernel.record(true);
  void *reply = nullptr;
  const uint32_t before = c->seq;
  ASSERT_EQ(row.call(c, &reply), 0);
  tarvik_msg_free(c, reply);
  const Bytes sent = last_sent(kernel);
  ASSERT_EQ(sent.size(), row.size);
  EXPECT_EQ(get_u16(sent.data(), 4), row.word);
  EXPECT_EQ(get_u32(sent.data(), 8), row.size);
  EXPECT_EQ(get_u32(sent.data(), 12), before + 1) << "the session's next number";
  EXPECT_EQ(get_u32(sent.data(), 16), 0u);
  EXPECT_EQ(get_u16(sent.data(), 20), row.size);
  for (const Field &f : row.fields) EXPECT_EQ(field_at(sent, f), f.value) << "at " << f.at;
}

INSTANTIATE_TEST_SUITE_P(Members, CosRequests, ::testing::ValuesIn(kRequests),
                         [](const auto &row) { return "row" + std::to_string(row.index); });

// Calls refused before anything is sent.
struct RefusalRow {
  const char *name;
  Call call;
  int want;
};

const uint8_t kKey[4] = {1, 0, 0, 0};

const RefusalRow kRefusals[] = {
    {"queue map getnext", [](auto *c, void **o) { return tarvik_cglb_get(c, TLK_OP_GETNEXT, o); },
     EINVAL},
    {"fspec getnext", [](auto *c, void **o) { return tarvik_cp_fspec_get(c, TLK_OP_GETNEXT, o); },
     EINVAL},
    {"parameters clear", [](auto *c, void **o) { return tarvik_cp_params_get(c, TLK_OP_CLEAR, o); },
     EINVAL},
    {"interface map add",
     [](auto *c, void **o) { return tarvik_iif_cp_map_get(c, TLK_OP_ADD, "x", o); }, EINVAL},
    {"statistics index 0",
     [](auto *c, void **o) { return tarvik_cp_stats_get_by_index(c, 0, TLK_OP_GET, o); }, EINVAL},
    {"statistics by index getnext",
     [](auto *c, void **o) { return tarvik_cp_stats_get_by_index(c, 5, TLK_OP_GETNEXT, o); },
     EINVAL},
    {"fspec map without a name",
     [](auto *c, void **o) { return tarvik_iif_fspec_map_get(c, TLK_OP_GET, nullptr, "b", o); },
     EINVAL},
    {"file statistics getnext",
     [](auto *c, void **) { return tarvik_cp_file_stats_get_by_name(c, "f", TLK_OP_GETNEXT); },
     EINVAL},
    {"policer without an out pointer",
     [](auto *c, void **) { return tarvik_cpom_get(c, 7, TLK_OP_GET, nullptr); }, EINVAL},
    {"statistics without a key",
     [](auto *c, void **o) { return tarvik_sadbstats_get(c, TLK_OP_GET, nullptr, 4, 1, o); },
     EINVAL},
    {"statistics with key length 0",
     [](auto *c, void **o) { return tarvik_sadbstats_get(c, TLK_OP_GET, kKey, 0, 1, o); }, EINVAL},
    {"association without a record",
     [](auto *c, void **) { return tarvik_sadbm_modify(c, TLK_OP_ADD, "x", nullptr); }, EINVAL},
};

class CosRefusals : public OneSessionTest, public ::testing::WithParamInterface<RefusalRow> {};

TEST_P(CosRefusals, SendNothingAndClearTheOutPointer) {
  kernel.record(true);
  void *out = reinterpret_cast<void *>(1);
  EXPECT_EQ(GetParam().call(c, &out), GetParam().want);
  if (out != reinterpret_cast<void *>(1)) {
    EXPECT_EQ(out, nullptr);
  }
  EXPECT_EQ(sent_count(kernel), 0u);
}

INSTANTIATE_TEST_SUITE_P(Members, CosRefusals, ::testing::ValuesIn(kRefusals),
                         [](const auto &row) { return "row" + std::to_string(row.index); });

// What a few operations print on standard output, through the platform seam.
class Stdout {
 public:
  Stdout() : previous_(*tlk_platform_get()) {
    g_lines = &lines;
    tlk_platform table = previous_;
    table.print_stdout = [](const char *text) { g_lines->push_back(text); };
    tlk_platform_set(&table);
  }
  ~Stdout() {
    tlk_platform_set(&previous_);
    g_lines = nullptr;
  }
  std::vector<std::string> lines;

 private:
  static inline std::vector<std::string> *g_lines = nullptr;
  tlk_platform previous_;
};

using CosSaTest = OneSessionTest;

TEST_F(CosSaTest, FabricPolicyStoresNullOnEveryFailure) {
  kernel.inject_write_errno(ENOBUFS);
  void *out = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_cpm_fab_chass_get(c, 1, 2, 3, 1, TLK_OP_GET, &out), ENOBUFS);
  EXPECT_EQ(out, nullptr);
  out = reinterpret_cast<void *>(1);
  fail_msg_block(2);  // the reply block
  EXPECT_EQ(tarvik_cpm_fab_chass_get(c, 1, 2, 3, 1, TLK_OP_GET, &out), ENOMEM);
  EXPECT_EQ(out, nullptr);
}

TEST_F(CosSaTest, RepliesCarryTheKernelsObjects) {
  kernel.cos().set_rate(tarsim::Cos::kPolicer, {21, 64000, 8000});
  void *m = nullptr;
  ASSERT_EQ(tarvik_cpom_get(c, 21, TLK_OP_GET, &m), 0);
  const auto *p = static_cast<const tarvik_cos_policer_body *>(m);
  EXPECT_EQ(p->ifl, 21u);
  EXPECT_EQ(p->bandwidth, 64000u);
  EXPECT_EQ(p->burst, 8000u);
  tarvik_msg_free(c, m);
  kernel.cos().set_forwarding_classes(16);
  ASSERT_EQ(tarvik_cim_get(c, TLK_OP_GET, &m), 0);
  EXPECT_EQ(static_cast<const tarvik_cos_info_body *>(m)->num_fcs, 16u);
  tarvik_msg_free(c, m);
}

TEST_F(CosSaTest, OutputQueueStatisticsReportAWriteErrorOnStdout) {
  Stdout out;
  kernel.inject_write_errno(ENOBUFS);
  void *m = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_cvoqstats_get(c, 140, 2, &m), ENOBUFS);
  EXPECT_EQ(out.lines,
            std::vector<std::string>{"Error = " + std::string(strerror(ENOBUFS)) + "\n"});
}

TEST_F(CosSaTest, OutputQueueStatisticsTakeEnoentFromTheWriteAsNoError) {
  Stdout out;
  kernel.inject_write_errno(ENOENT);
  void *m = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_cvoqstats_get(c, 140, 2, &m), EAGAIN) << "the read was tried";
  EXPECT_EQ(m, nullptr);
  EXPECT_TRUE(out.lines.empty());
}

TEST_F(CosSaTest, OutputQueueStatisticsReadTheQueueAsked) {
  for (uint32_t read = 1; read <= 2; ++read) {
    void *m = nullptr;
    ASSERT_EQ(tarvik_cvoqstats_get(c, 140, 2, &m), 0);
    const auto &r = *static_cast<const rt_cos_voqstats_msg *>(m);
    EXPECT_EQ(r.rcvm_ifd, 140u);
    EXPECT_EQ(r.rcvm_queue, 2u);
    EXPECT_EQ(r.rcvm_packets, read) << "a second read sees the queue move";
    tarvik_msg_idl_release(c, m, nullptr);
  }
}

TEST_F(CosSaTest, PolicyAttachedAsksForTheInterfacesPolicyBlob) {
  uint32_t key[2] = {71, 0x40000000};
  uint8_t blob[4] = {1, 2, 3, 4};
  gencfg_t r{};
  r.major = 8;
  r.minor = 16;
  r.flags = TLK_GENCFG_KEY;
  r.key = reinterpret_cast<uint8_t *>(key);
  r.key_len = sizeof key;
  r.blob = blob;
  r.blob_len = sizeof blob;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  EXPECT_EQ(inf_ifl_is_cos_policy_attached(71, c), 1);
  EXPECT_EQ(inf_ifl_is_cos_policy_attached(72, c), 0);
}

// Notifications of the class-of-service and collector types, by the registrations' masks.
struct HeardTypes {
  std::vector<int> types;
  static int handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    static_cast<HeardTypes *>(arg)->types.push_back(static_cast<uint8_t *>(msg)[5]);
    tarvik_msg_free(cookie, msg);
    return 0;
  }
};

TEST_F(CosSaTest, KernelChangesReachCosListeners) {
  HeardTypes heard;
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_cos_async_register(c, &heard, HeardTypes::handler), 0);
  kernel.cos().set_rate(tarsim::Cos::kShaper, {30, 1000, 0});
  kernel.cos().set_map(tarsim::Cos::kFragmap, {31, 75, 0, 0, 1, 8});
  kernel.cos().set_forwarding_classes(4);
  drain(c);
  EXPECT_EQ(heard.types,
            (std::vector<int>{TLK_MSG_COS_SHAPER, TLK_MSG_COS_FRAGMAP, TLK_MSG_COS_INFO}));
}

TEST_F(CosSaTest, FileStatisticsComeAsANotification) {
  HeardTypes heard;
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_cp_pic_async_register(c, &heard, HeardTypes::handler), 0);
  ASSERT_EQ(tarvik_cp_file_stats_get_by_name(c, "flow.log", TLK_OP_GET), 0);
  EXPECT_EQ(kernel.cos().collector_requests(), 1u);
  drain(c);
  EXPECT_EQ(heard.types, std::vector<int>{TLK_MSG_CPIC_FILE_STATS});
}

// ---- Security associations ----

// A key block: kind 1, `bits` long, its bytes counting up.
Bytes key_block(uint16_t bits) {
  Bytes k(4 + bits / 8, 0);
  k[0] = 1;
  k[2] = static_cast<uint8_t>(bits);
  k[3] = static_cast<uint8_t>(bits >> 8);
  for (size_t i = 4; i < k.size(); ++i) k[i] = static_cast<uint8_t>(i);
  return k;
}

const Bytes kKey12 = key_block(12), kKey128 = key_block(128);
const uint8_t kIdentity[8] = {4, 0, 0, 0, 'i', 'd', '!', 0};
const uint8_t kAddr[8] = {8, 2, 0, 0, 10, 0, 0, 1};

// Association writes: the lengths at 73..83 and the whole length.
struct PackRow {
  const char *name;
  uint32_t op;
  const char *sa_name;
  const uint8_t *key1;
  const uint8_t *identity;
  const uint8_t *addr;
  const char *string1;
  std::vector<Field> lengths;
  uint32_t msglen;
};

const PackRow kPacks[] = {
    {"a 12-bit key has section length 5 and takes 8",
     TLK_OP_ADD,
     "t",
     kKey12.data(),
     nullptr,
     nullptr,
     nullptr,
     {{73, 1, 2}, {74, 2, 5}},
     96 + 4 + 8},
    {"every section, each padded",
     TLK_OP_CHANGE,
     "tun",
     kKey128.data(),
     kIdentity,
     kAddr,
     "abcde",
     {{73, 1, 4}, {74, 2, 20}, {76, 2, 8}, {78, 2, 0}, {80, 1, 8}, {81, 1, 0}, {82, 1, 6}},
     96 + 4 + 20 + 8 + 8 + 8},
    {"a delete sends its name and fixed fields only",
     TLK_OP_DELETE,
     "tunnel",
     kKey128.data(),
     kIdentity,
     kAddr,
     "abcde",
     {{73, 1, 7}, {74, 2, 0}, {76, 2, 0}, {80, 1, 0}, {82, 1, 0}, {36, 4, 0x5151}},
     96 + 8},
    {"no name", TLK_OP_DELETE, nullptr, nullptr, nullptr, nullptr, nullptr, {{73, 1, 0}}, 96},
};

class SaPacking : public OneSessionTest, public ::testing::WithParamInterface<PackRow> {};

TEST_P(SaPacking, SectionsFollowTheFixedPart) {
  const PackRow &row = GetParam();
  kernel.record(true);
  sadb_sa_t sa{};
  sa.sa_id = 40;
  sa.sa_spi = 0x5151;
  sa.sa_key1 = row.key1;
  sa.sa_identity = row.identity;
  sa.sa_addr1 = row.addr;
  sa.sa_string1 = row.string1;
  const uint32_t before = c->seq;
  ASSERT_EQ(tarvik_sadbm_modify(c, row.op, row.sa_name, &sa), 0);
  EXPECT_EQ(c->seq, before) << "nothing answers a change";
  const Bytes sent = last_sent(kernel);
  ASSERT_EQ(sent.size(), row.msglen);
  EXPECT_EQ(get_u16(sent.data(), 4), 0x2963);
  EXPECT_EQ(get_u32(sent.data(), 8), row.msglen);
  EXPECT_EQ(get_u32(sent.data(), 12), 0u);
  EXPECT_EQ(get_u16(sent.data(), 20), 96);
  for (const Field &f : row.lengths) EXPECT_EQ(field_at(sent, f), f.value) << "at " << f.at;
  if (row.sa_name != nullptr) {
    EXPECT_STREQ(reinterpret_cast<const char *>(sent.data() + 96), row.sa_name);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, SaPacking, ::testing::ValuesIn(kPacks),
                         [](const auto &row) { return "row" + std::to_string(row.index); });

TEST_F(CosSaTest, SectionsLieInTheirOrderWithZeroPadding) {
  kernel.record(true);
  sadb_sa_t sa{};
  sa.sa_key1 = kKey12.data();
  sa.sa_identity = kIdentity;
  sa.sa_string2 = "z";
  ASSERT_EQ(tarvik_sadbm_modify(c, TLK_OP_ADD, "ab", &sa), 0);
  const Bytes sent = last_sent(kernel);
  const Bytes want = cat({Bytes{'a', 'b', 0, 0}, Bytes(kKey12.begin(), kKey12.end()), Bytes(3, 0),
                          Bytes(kIdentity, kIdentity + 8), Bytes{'z', 0, 0, 0}});
  EXPECT_EQ(Bytes(sent.begin() + 96, sent.end()), want);
}

TEST_F(CosSaTest, AnAddReachesTheStoreAndOtherListeners) {
  tarvik_cookie *l = open_session(8);
  ASSERT_NE(l, nullptr);
  ASSERT_EQ(tarvik_set_async_info_nocontext(l, nullptr), 0);
  struct Heard {
    int count = 0;
    uint32_t spi = 0;
  } heard;
  ASSERT_EQ(tarvik_sadbm_async_register(l, &heard,
                                        [](tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
                                          auto *h = static_cast<Heard *>(arg);
                                          ++h->count;
                                          h->spi = get_u32(msg, 36);
                                          tarvik_msg_free(cookie, msg);
                                          return 0;
                                        }),
            0);
  sadb_sa_t sa{};
  sa.sa_spi = 0x7777;
  sa.sa_byte0 = TARVIK_SA_INBOUND;
  ASSERT_EQ(tarvik_sadbm_modify(c, TLK_OP_ADD, "fresh", &sa), 0);
  drain(l);
  EXPECT_EQ(heard.count, 1);
  EXPECT_EQ(heard.spi, 0x7777u);
  void *m = nullptr;
  ASSERT_EQ(tarvik_sadbm_get_by_name(c, TLK_OP_GET, "fresh", 0, 0, &m), 0);
  EXPECT_EQ(get_u32(m, 32), 3u) << "the next free index";
  tarvik_msg_free(c, m);
  ASSERT_EQ(tarvik_sadbm_modify(c, TLK_OP_DELETE, "fresh", &sa), 0);
  EXPECT_EQ(kernel.security_associations().find(3), nullptr);
  tarvik_close(l);
}

TEST_F(CosSaTest, StatisticsRequestPadsItsKeyAndReadsTheCounters) {
  kernel.record(true);
  kernel.security_associations().count(2, 10, 1500, 1);
  const uint8_t key[5] = {2, 0, 0, 0, 9};
  void *m = nullptr;
  ASSERT_EQ(tarvik_sadbstats_get(c, TLK_OP_GET, key, sizeof key, 3, &m), 0);
  const Bytes sent = last_sent(kernel);
  EXPECT_EQ(get_u16(sent.data(), 4), 0x3263);
  EXPECT_EQ(get_u32(sent.data(), 8), 40u);
  EXPECT_EQ(sent[24], 3);
  EXPECT_EQ(get_u16(sent.data(), 26), 5);
  EXPECT_EQ(sent[36], 9);
  const uint16_t at = get_u16(m, 20);
  EXPECT_EQ(get_u64(m, at), 10u);
  EXPECT_EQ(get_u64(m, at + 8), 1500u);
  tarvik_msg_free(c, m);
}

TEST_F(CosSaTest, PublicKeyRequestIsAnsweredAsANotification) {
  kernel.record(true);
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  struct Heard {
    uint32_t id = 0, bytes = 0;
    int type = 0;
  } heard;
  ASSERT_EQ(
      tarvik_pkcs_reply_async_register(c, &heard,
                                       [](tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
                                         auto *h = static_cast<Heard *>(arg);
                                         h->type = static_cast<uint8_t *>(msg)[5];
                                         h->id = get_u32(msg, 24);
                                         h->bytes = get_u32(msg, 36);
                                         tarvik_msg_free(cookie, msg);
                                         return 0;
                                       }),
      0);
  const uint8_t a[3] = {1, 2, 3}, b[4] = {4, 5, 6, 7};
  pkcs_req_t req{};
  req.pkcs_id = 0x42;
  req.pkcs_kind = 2;
  req.pkcs_part[0] = {a, sizeof a};
  req.pkcs_part[1] = {b, 0};  // a zero-length part takes no space
  req.pkcs_part[5] = {b, sizeof b};
  req.pkcs_name = "ca";
  ASSERT_EQ(tarvik_pkcsm_modify(c, TLK_OP_ADD, &req), 0);
  const Bytes sent = last_sent(kernel);
  EXPECT_EQ(get_u16(sent.data(), 4), 0x2A63);
  EXPECT_EQ(get_u32(sent.data(), 12), 0u);
  EXPECT_EQ(get_u16(sent.data(), 20), 68);
  EXPECT_EQ(get_u16(sent.data(), 40), 3);
  EXPECT_EQ(get_u16(sent.data(), 42), 0);
  EXPECT_EQ(get_u16(sent.data(), 50), 4);
  EXPECT_EQ(get_u16(sent.data(), 64), 3);
  EXPECT_EQ(Bytes(sent.begin() + 68, sent.end()), (Bytes{1, 2, 3, 0, 4, 5, 6, 7, 'c', 'a', 0, 0}));
  drain(c);
  EXPECT_EQ(heard.type, TLK_MSG_PK_CRYPTO_SYS_REPLY);
  EXPECT_EQ(heard.id, 0x42u);
  EXPECT_EQ(heard.bytes, 7u);
}

TEST_F(CosSaTest, PublicKeyRefusalsPrintTheirLines) {
  Stdout out;
  pkcs_req_t req{};
  req.pkcs_name = "ca";
  EXPECT_EQ(tarvik_pkcsm_modify(c, TLK_OP_CHANGE, &req), EINVAL);
  fail_msg_block(1);
  EXPECT_EQ(tarvik_pkcsm_modify(c, TLK_OP_ADD, &req), ENOMEM);
  EXPECT_EQ(out.lines,
            (std::vector<std::string>{"tarvik_pkcsm_modify(42): Invalid input parameters \n",
                                      "tarvik_pkcsm_modify(51): No memory \n"}));
}

// ---- Trace texts ----

std::string fmt(const char *format, ...) TLK_PRINTF(1, 2);
std::string fmt(const char *format, ...) {
  char buf[1024];
  va_list ap;
  va_start(ap, format);
  vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  return buf;
}

// A raw message of `type` and op get: the 24-byte header, then `body` from offset 24.
Bytes raw(uint8_t type, Bytes body) {
  Bytes m(TLK_RAW_HDR_LEN, 0);
  m[5] = type;
  m[6] = TLK_OP_GET;
  m.insert(m.end(), body.begin(), body.end());
  put_u32(m, 8, static_cast<uint32_t>(m.size()));
  return m;
}

Bytes words(std::initializer_list<uint32_t> ws) {
  Bytes b;
  for (uint32_t w : ws) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<uint8_t>(w >> (8 * i)));
  }
  return b;
}

Bytes sa_message(const char *name, uint8_t direction) {
  Bytes body(72, 0);  // offsets 24..95
  put_u32(body, 32 - 24, 6);
  put_u32(body, 36 - 24, 0x1234);
  put_u32(body, 40 - 24, 71);
  body[48 - 24] = direction;
  body[49 - 24] = 50;
  body[73 - 24] = static_cast<uint8_t>(strlen(name) + 1);
  body.insert(body.end(), name, name + strlen(name) + 1);
  body.resize((body.size() + 3) & ~size_t{3});
  return raw(TLK_MSG_SA_INFO, body);
}

struct TraceRow {
  Bytes message;
  std::string text;  // behind the common columns
};

#define SA_TEXT "sadb name=%s direc=%s spi=%d proto=%d idx=%d iflidx=%d"
const TraceRow kTraces[] = {
    {raw(TLK_MSG_COS_INFO, words({8})), fmt("num FCs = %u", 8u)},
    {raw(TLK_MSG_COS_FABRIC, words({4, 0, 0, 0})), fmt("entries=%u", 4u)},
    {raw(TLK_MSG_COS_CLASS, cat({words({0, 0, 71, 2}), Bytes{1, 0, 1, 0}, words({8})})),
     fmt("ifl=%u table=%u type=%u entries=%u", 71u, 2u, 1u, 8u)},
    {raw(TLK_MSG_COS_RED, words({3, 5, 80})),
     fmt("id=%u, num entries=%u, datasize=%u", 3u, 5u, 80u)},
    {raw(TLK_MSG_COS_REWRT, words({0, 0, 71, 5, 1, 1, 8, 64})),
     fmt("ifl=%u, id=%u, type=%u, num=%u, size=%u", 71u, 5u, 1u, 8u, 64u)},
    {raw(TLK_MSG_COS_POLICER, words({0, 0, 7, 10000000, 15000, 0})),
     fmt("ifl=%u, bandwidth=%u, burst=%u", 7u, 10000000u, 15000u)},
    {raw(TLK_MSG_COS_SHAPER, words({0, 0, 3, 50000000, 0, 0})),
     fmt("ifl=%u, bandwidth=%u, burst=%u", 3u, 50000000u, 0u)},
    // Cut short by its length: what is missing reads as zero.
    {raw(TLK_MSG_COS_SHAPER, words({0, 0, 3})), fmt("ifl=%u, bandwidth=%u, burst=%u", 3u, 0u, 0u)},
    {raw(TLK_MSG_COS_FRAGMAP, words({0, 0, 72, 11, 4, 1, 48, 0})),
     fmt("ifl=%u, frag_map_id=%u, entries=%u, data-size %u", 72u, 11u, 4u, 48u)},
    {sa_message("tunnel-a", TARVIK_SA_OUTBOUND),
     fmt(SA_TEXT, "tunnel-a", "outbound", 0x1234, 50, 6, 71)},
    {sa_message("b", TARVIK_SA_INBOUND), fmt(SA_TEXT, "b", "inbound", 0x1234, 50, 6, 71)},
    {sa_message("c", 0), fmt(SA_TEXT, "c", "none", 0x1234, 50, 6, 71)},
    {raw(TLK_MSG_SA_INFO, {}), fmt(SA_TEXT, "", "none", 0, 0, 0, 0)},
};
#undef SA_TEXT

class CosSaTrace : public ::testing::TestWithParam<TraceRow> {};

TEST_P(CosSaTrace, LineIsTheTypesText) {
  Bytes m = GetParam().message;
  m.resize(std::max<size_t>(m.size(), 512), 0xEE);  // bytes past the length must not be read
  char line[2048];
  ASSERT_EQ(tarvik_format_output(nullptr, line, sizeof line, 0, m.data()), 0);
  const std::string cols =
      fmt("%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s", "self", "self", "P", rtm_types[m[5]], "get");
  EXPECT_EQ(line, cols + GetParam().text + "\n");
}

INSTANTIATE_TEST_SUITE_P(Types, CosSaTrace, ::testing::ValuesIn(kTraces),
                         [](const auto &row) { return "row" + std::to_string(row.index); });

}  // namespace
}  // namespace tlktest
