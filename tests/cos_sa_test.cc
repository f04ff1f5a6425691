// Class-of-service and collector queries, security associations and public-key requests: the
// request layouts of every member, their refusals, name cuts, the packing of association
// sections and public-key requests, and the trace texts.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

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

void expect_fields(const Bytes &b, const std::vector<Field> &fields) {
  for (const Field &f : fields) EXPECT_EQ(field_at(b, f), f.value) << "at " << f.at;
}

const std::string kName60(60, 'n');

// Failures inside a helper name the line that called it.

class CosSaTest : public OneSessionTest {
 protected:
  static void *poison() { return reinterpret_cast<void *>(1); }
  // A request that went out: the call passed, its reply is given back, and what was written has
  // the head (version letter and type, both lengths, the session's next number) and `fields`.
  void expect_request(int err, uint16_t word, uint32_t size, const std::vector<Field> &fields,
                      TLK_CALLER_ARGS) {
    TLK_AT_CALLER;
    EXPECT_EQ(err, 0);
    tarvik_msg_free(c, out);
    out = nullptr;
    const Bytes sent = last_sent(kernel);
    EXPECT_EQ(sent.size(), size);
    expect_fields(sent, {{4, 2, word}, {8, 4, size}, {12, 4, ++seq}, {16, 4, 0}, {20, 2, size}});
    expect_fields(sent, fields);
  }
  // A call refused before anything is sent, its out pointer cleared or left alone.
  void expect_refused(int err, TLK_CALLER_ARGS) {
    TLK_AT_CALLER;
    EXPECT_EQ(err, EINVAL);
    if (out != poison()) {
      EXPECT_EQ(out, nullptr);
    }
    out = poison();
  }
  // An association write: nothing answers it, and behind its 96 fixed bytes comes the name.
  Bytes sa_sent(uint32_t op, const char *name, const sadb_sa_t &sa, uint32_t msglen,
                TLK_CALLER_ARGS) {
    TLK_AT_CALLER;
    const uint32_t before = c->seq;
    EXPECT_EQ(tarvik_sadbm_modify(c, op, name, &sa), 0);
    EXPECT_EQ(c->seq, before) << "nothing answers a change";
    const Bytes sent = last_sent(kernel);
    EXPECT_EQ(sent.size(), msglen);
    expect_fields(sent, {{4, 2, 0x2963}, {8, 4, msglen}, {12, 4, 0}, {20, 2, 96}});
    if (name != nullptr && sent.size() == msglen) {
      EXPECT_STREQ(reinterpret_cast<const char *>(sent.data() + 96), name);
    }
    return sent;
  }
  void *out = nullptr;
  uint32_t seq = 0;
};

TEST_F(CosSaTest, RequestsGoOutInTheirFixedLayout) {
  kernel.record(true);
  seq = c->seq;
  const char *n60 = kName60.c_str();
  expect_request(tarvik_cim_get(c, TLK_OP_GET, &out), 0x1F62, 28, {});
  expect_request(tarvik_cfm_get(c, TLK_OP_GET, &out), 0x2062, 40, {});
  expect_request(tarvik_ccm_get_object(c, 2, TLK_OP_GET, &out), 0x2262, 48,
                 {{36, 4, 2}, {42, 1, 1}});
  expect_request(tarvik_ccm_get_ifl(c, 71, 3, TLK_OP_GET, &out), 0x2262, 48,
                 {{32, 4, 71}, {38, 1, 3}, {42, 1, 0}});
  expect_request(tarvik_cpm_fab_chass_get(c, 1, 2, 3, 1, TLK_OP_GET, &out), 0x2363, 152,
                 {{32, 4, 0}, {40, 4, 1}, {44, 4, 2}, {48, 4, 3}, {52, 4, 1}});
  // The chassis policy (mode 2).
  expect_request(tarvik_cpm_fab_chass_get(c, 1, 2, 3, 2, TLK_OP_GET, &out), 0x2363, 152,
                 {{40, 4, 0xFFFFFFFF}, {44, 4, 0xFFFFFFFF}, {48, 4, 3}, {52, 4, 2}});
  expect_request(tarvik_cpom_get(c, 7, TLK_OP_GET, &out), 0x2662, 48, {{32, 4, 7}});
  expect_request(tarvik_csm_get(c, 3, TLK_OP_GET, &out), 0x2762, 48, {{32, 4, 3}});
  expect_request(tarvik_crwm_get_object(c, 5, TLK_OP_GET, &out), 0x2563, 56,
                 {{36, 4, 5}, {44, 1, 1}});
  expect_request(tarvik_crwm_get_ifl(c, 71, 2, 9, TLK_OP_GET, &out), 0x2563, 56,
                 {{32, 4, 71}, {38, 1, 2}, {40, 4, 9}, {44, 1, 0}});
  expect_request(tarvik_cglb_get(c, TLK_OP_GET, &out), 0x3762, 40, {});
  expect_request(tarvik_cfragm_get_object(c, 11, TLK_OP_GET, &out), 0x4762, 56,
                 {{32, 4, 0}, {36, 4, 11}, {44, 1, 1}});
  expect_request(tarvik_cfragm_get_ifl(c, 72, TLK_OP_GETNEXT, &out), 0x4762, 56,
                 {{6, 1, TLK_OP_GETNEXT}, {32, 4, 72}, {36, 4, 0}, {44, 1, 0}});
  expect_request(tarvik_cp_params_get(c, TLK_OP_GETNEXT, &out), 0x3A65, 1984,
                 {{6, 1, TLK_OP_GETNEXT}});
  expect_request(tarvik_cp_fspec_get(c, TLK_OP_GET, &out), 0x3C64, 40, {});
  // The names are cut at 59.
  expect_request(tarvik_iif_cp_map_get(c, TLK_OP_GET, n60, &out), 0x3B64, 168,
                 {{40, 1, 'n'}, {98, 1, 'n'}, {99, 1, 0}});
  expect_request(tarvik_iif_fspec_map_get(c, TLK_OP_GET, n60, "b", &out), 0x3D64, 416,
                 {{36, 1, 'n'}, {94, 1, 'n'}, {95, 1, 0}, {96, 2, 'b'}});
  expect_request(tarvik_cp_stats_get_by_index(c, 5, TLK_OP_GET, &out), 0x4264, 624, {{544, 4, 5}});
  expect_request(tarvik_cp_stats_get_by_name(c, n60, TLK_OP_GET, &out), 0x4264, 624,
                 {{560, 1, 'n'}, {618, 1, 'n'}, {619, 1, 0}});
  // No reply is read.
  expect_request(tarvik_cp_file_stats_get_by_name(c, "f", TLK_OP_GET), 0x4364, 288,
                 {{224, 2, 'f'}, {283, 1, 0}});
}

TEST_F(CosSaTest, RefusalsSendNothingAndClearTheOutPointer) {
  kernel.record(true);
  const uint8_t key[4] = {1, 0, 0, 0};
  out = poison();
  expect_refused(tarvik_cglb_get(c, TLK_OP_GETNEXT, &out));
  expect_refused(tarvik_cp_fspec_get(c, TLK_OP_GETNEXT, &out));
  expect_refused(tarvik_cp_params_get(c, TLK_OP_CLEAR, &out));
  expect_refused(tarvik_iif_cp_map_get(c, TLK_OP_ADD, "x", &out));
  expect_refused(tarvik_cp_stats_get_by_index(c, 0, TLK_OP_GET, &out));
  expect_refused(tarvik_cp_stats_get_by_index(c, 5, TLK_OP_GETNEXT, &out));
  expect_refused(tarvik_iif_fspec_map_get(c, TLK_OP_GET, nullptr, "b", &out));
  expect_refused(tarvik_cp_file_stats_get_by_name(c, "f", TLK_OP_GETNEXT));
  expect_refused(tarvik_sadbstats_get(c, TLK_OP_GET, nullptr, 4, 1, &out));
  expect_refused(tarvik_sadbstats_get(c, TLK_OP_GET, key, 0, 1, &out));
  expect_refused(tarvik_sadbm_modify(c, TLK_OP_ADD, "x", nullptr));
  EXPECT_EQ(sent_count(kernel), 0u);
}

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

TEST_F(CosSaTest, FabricPolicyStoresNullOnEveryFailure) {
  kernel.inject_write_errno(ENOBUFS);
  out = poison();
  EXPECT_EQ(tarvik_cpm_fab_chass_get(c, 1, 2, 3, 1, TLK_OP_GET, &out), ENOBUFS);
  EXPECT_EQ(out, nullptr);
  out = poison();
  fail_msg_block(2);  // the reply block
  EXPECT_EQ(tarvik_cpm_fab_chass_get(c, 1, 2, 3, 1, TLK_OP_GET, &out), ENOMEM);
  EXPECT_EQ(out, nullptr);
}

// A write error is reported on standard output, except ENOENT, after which the read is tried;
// a read gets the queue asked.
TEST_F(CosSaTest, OutputQueueStatisticsReportWriteErrorsAndReadTheQueueAsked) {
  Stdout printed;
  void *m = poison();
  kernel.inject_write_errno(ENOBUFS);
  EXPECT_EQ(tarvik_cvoqstats_get(c, 140, 2, &m), ENOBUFS);
  m = poison();
  kernel.inject_write_errno(ENOENT);
  EXPECT_EQ(tarvik_cvoqstats_get(c, 140, 2, &m), EAGAIN) << "the read was tried";
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(printed.lines,
            std::vector<std::string>{"Error = " + std::string(strerror(ENOBUFS)) + "\n"});
  ASSERT_EQ(tarvik_cvoqstats_get(c, 140, 2, &m), 0);
  EXPECT_EQ(static_cast<const rt_cos_voqstats_msg *>(m)->rcvm_ifd, 140u);
  EXPECT_EQ(static_cast<const rt_cos_voqstats_msg *>(m)->rcvm_queue, 2u);
  tarvik_msg_idl_release(c, m, nullptr);
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

// Association writes: the section lengths at 73..83 and the whole length; then a statistics
// request.
TEST_F(CosSaTest, AssociationSectionsFollowTheFixedPart) {
  kernel.record(true);
  sadb_sa_t bare{};
  bare.sa_id = 40;
  bare.sa_spi = 0x5151;
  sadb_sa_t sa = bare;
  sa.sa_key1 = kKey12.data();
  // A 12-bit key has section length 5 and takes 8.
  expect_fields(sa_sent(TLK_OP_ADD, "t", sa, 96 + 4 + 8), {{73, 1, 2}, {74, 2, 5}});
  // Every section, each padded.
  sa.sa_key1 = kKey128.data();
  sa.sa_identity = kIdentity;
  sa.sa_addr1 = kAddr;
  sa.sa_string1 = "abcde";
  expect_fields(
      sa_sent(TLK_OP_CHANGE, "tun", sa, 96 + 4 + 20 + 8 + 8 + 8),
      {{73, 1, 4}, {74, 2, 20}, {76, 2, 8}, {78, 2, 0}, {80, 1, 8}, {81, 1, 0}, {82, 1, 6}});
  // A delete sends its name and fixed fields only.
  expect_fields(sa_sent(TLK_OP_DELETE, "tunnel", sa, 96 + 8),
                {{73, 1, 7}, {74, 2, 0}, {76, 2, 0}, {80, 1, 0}, {82, 1, 0}, {36, 4, 0x5151}});
  expect_fields(sa_sent(TLK_OP_DELETE, nullptr, bare, 96), {{73, 1, 0}});
  // The sections lie in their order with zero padding.
  sadb_sa_t z{};
  z.sa_key1 = kKey12.data();
  z.sa_identity = kIdentity;
  z.sa_string2 = "z";
  const Bytes sent = sa_sent(TLK_OP_ADD, "ab", z, 96 + 24);
  ASSERT_EQ(sent.size(), 96u + 24u);
  const Bytes want = cat({Bytes{'a', 'b', 0, 0}, Bytes(kKey12.begin(), kKey12.end()), Bytes(3, 0),
                          Bytes(kIdentity, kIdentity + 8), Bytes{'z', 0, 0, 0}});
  EXPECT_EQ(Bytes(sent.begin() + 96, sent.end()), want);
  // A statistics request pads its key.
  const uint8_t key[5] = {2, 0, 0, 0, 9};
  ASSERT_EQ(tarvik_sadbstats_get(c, TLK_OP_GET, key, sizeof key, 3, &out), 0);
  tarvik_msg_free(c, out);
  expect_fields(last_sent(kernel),
                {{4, 2, 0x3263}, {8, 4, 40}, {20, 2, 32}, {24, 1, 3}, {26, 2, 5}, {36, 1, 9}});
}

// The answer comes as a notification: the request reads nothing (with no listener, a read would
// wait in vain).
TEST_F(CosSaTest, PublicKeyRequestReadsNoAnswerAndItsRefusalsPrint) {
  kernel.record(true);
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
  ASSERT_EQ(sent.size(), 68u + 12u);
  expect_fields(
      sent,
      {{4, 2, 0x2A63}, {12, 4, 0}, {20, 2, 68}, {40, 2, 3}, {42, 2, 0}, {50, 2, 4}, {64, 2, 3}});
  EXPECT_EQ(Bytes(sent.begin() + 68, sent.end()), (Bytes{1, 2, 3, 0, 4, 5, 6, 7, 'c', 'a', 0, 0}));
  // Its refusals print their lines.
  Stdout printed;
  EXPECT_EQ(tarvik_pkcsm_modify(c, TLK_OP_CHANGE, &req), EINVAL);
  fail_msg_block(1);
  EXPECT_EQ(tarvik_pkcsm_modify(c, TLK_OP_ADD, &req), ENOMEM);
  EXPECT_EQ(printed.lines,
            (std::vector<std::string>{"tarvik_pkcsm_modify(42): Invalid input parameters \n",
                                      "tarvik_pkcsm_modify(51): No memory \n"}));
}

// ---- Trace texts ----

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

const TraceRow kTraces[] = {
    {raw(TLK_MSG_COS_INFO, words({8})), "num FCs = 8"},
    {raw(TLK_MSG_COS_FABRIC, words({4, 0, 0, 0})), "entries=4"},
    {raw(TLK_MSG_COS_CLASS, cat({words({0, 0, 71, 2}), Bytes{1, 0, 1, 0}, words({8})})),
     "ifl=71 table=2 type=1 entries=8"},
    {raw(TLK_MSG_COS_RED, words({3, 5, 80})), "id=3, num entries=5, datasize=80"},
    {raw(TLK_MSG_COS_REWRT, words({0, 0, 71, 5, 1, 1, 8, 64})),
     "ifl=71, id=5, type=1, num=8, size=64"},
    {raw(TLK_MSG_COS_POLICER, words({0, 0, 7, 10000000, 15000, 0})),
     "ifl=7, bandwidth=10000000, burst=15000"},
    {raw(TLK_MSG_COS_SHAPER, words({0, 0, 3, 50000000, 0, 0})),
     "ifl=3, bandwidth=50000000, burst=0"},
    // Cut short by its length: what is missing reads as zero.
    {raw(TLK_MSG_COS_SHAPER, words({0, 0, 3})), "ifl=3, bandwidth=0, burst=0"},
    {raw(TLK_MSG_COS_FRAGMAP, words({0, 0, 72, 11, 4, 1, 48, 0})),
     "ifl=72, frag_map_id=11, entries=4, data-size 48"},
    {sa_message("tunnel-a", TARVIK_SA_OUTBOUND),
     "sadb name=tunnel-a direc=outbound spi=4660 proto=50 idx=6 iflidx=71"},
    {sa_message("b", TARVIK_SA_INBOUND),
     "sadb name=b direc=inbound spi=4660 proto=50 idx=6 iflidx=71"},
    {sa_message("c", 0), "sadb name=c direc=none spi=4660 proto=50 idx=6 iflidx=71"},
    {raw(TLK_MSG_SA_INFO, {}), "sadb name= direc=none spi=0 proto=0 idx=0 iflidx=0"},
};

TEST(CosSaTrace, EachLineIsTheTypesText) {
  for (const TraceRow &row : kTraces) {
    SCOPED_TRACE(row.text);
    Bytes m = row.message;
    m.resize(std::max<size_t>(m.size(), 512), 0xEE);  // bytes past the length must not be read
    char line[2048];
    ASSERT_EQ(tarvik_format_output(nullptr, line, sizeof line, 0, m.data()), 0);
    char cols[64];
    snprintf(cols, sizeof cols, "%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s", "self", "self", "P",
             rtm_types[m[5]], "get");
    EXPECT_EQ(line, cols + row.text + "\n");
  }
}

}  // namespace
}  // namespace tlktest
