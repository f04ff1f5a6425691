// Logical interfaces against the simulated kernel: the list, the updates and the point change as
// they go out, the raw statistics requests byte by byte, the read answered as a notification and
// its registration, the interface sets kept as gencfg blobs, and the refusals that send nothing.
// The reads every family repeats are rows of the family suite; the codecs have their own tests.
#include <errno.h>
#include <string.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

std::string text(const uint8_t *p) {
  return p ? std::string(reinterpret_cast<const char *>(p)) : "";
}

// Keeps the caller's cookie of each raw "iflstats" message a session hears.
int hear_cookie(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  static_cast<std::vector<uint64_t> *>(arg)->push_back(get_u64(msg, 64));
  tarvik_msg_free(cookie, msg);
  return 0;
}

// An "iflstats" request as it should go out: the 72-byte head, then the name.
struct Stats {
  uint8_t op;
  uint32_t seq, unit, index;
  std::string name = "";
  uint16_t kernel_reply = 0;
  uint64_t caller_cookie = 0;
  Bytes bytes() const {
    const auto name_len =
        static_cast<uint8_t>(name.empty() ? 0 : std::min<size_t>(name.size() + 1, 61));
    Bytes b(72 + (name_len + 3u) / 4 * 4, 0);
    const uint16_t fixed = 72;
    b[4] = 'd', b[5] = 16, b[6] = op, b[38] = 7, b[41] = name_len;
    put_u32(b, 8, static_cast<uint32_t>(b.size())), put_u32(b, 12, seq);
    put_u32(b, 28, unit), put_u32(b, 32, index);
    memcpy(&b[20], &fixed, 2), memcpy(&b[58], &kernel_reply, 2), memcpy(&b[64], &caller_cookie, 8);
    memcpy(&b[72], name.data(), std::min<size_t>(name.size(), 60));
    return b;
  }
};

class LogicalIfTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
  }
  Bytes sent(int err) {
    EXPECT_EQ(err, 0);
    return last_sent(kernel);
  }
  // Checks a statistics call that gave `err`: what it wrote, and the type of the raw reply it left
  // in `*reply` (0 if none), which is freed.
  void expect_stats(int err, void **reply, const Stats &want, int type) {
    EXPECT_EQ(err, 0);
    const auto *r = reply ? static_cast<const uint8_t *>(*reply) : nullptr;
    EXPECT_EQ(r ? r[5] : 0, type) << "sequence " << want.seq;
    if (r) tarvik_msg_free(c, *reply);
    EXPECT_EQ(last_sent(kernel), want.bytes()) << "sequence " << want.seq;
  }
};

TEST_F(LogicalIfTest, GetAllListsEveryUnit) {
  tarvik_msg_list_t *list = nullptr;
  ASSERT_EQ(tarvik_iflm_get_all(c, &list), 0);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->type, TLK_MSG_IFLOGICAL);
  EXPECT_EQ(list->count, kernel.ifls().list().size());
  tarvik_msg_list_free(c, list);
}

// The updates and the point change are single writes without a sequence number.  The name is cut
// at 59 characters; an address whose length byte is 0 is no address.
TEST_F(LogicalIfTest, UpdatesAndPointChangeAreWritesWithoutSequence) {
  const std::string longname = "ge" + std::string(70, 'x');
  const Bytes empty = {0, 18, 0, 0}, inet = {16, 2, 0, 0, 10, 9, 9, 9, 0, 0, 0, 0, 0, 0, 0, 0};
  tlk_msg_info info{};
  info.tlkmi_type = 4;
  const uint32_t seq = c->seq;
  const struct {
    uint8_t op;
    std::string name;
    uint32_t name_len, flags, privflags, change;
    const Bytes *addr;
    Bytes sent;
  } rows[] = {
      {TLK_OP_ADD, longname.substr(0, 59), 60, 0, 0, 0, &inet,
       sent(tarvik_iflm_update(c, 90, 132, 5, 590, longname.c_str(), inet.data(), TLK_OP_ADD))},
      {TLK_OP_CHANGE, "", 1, 0x8011, 0, 0, nullptr,
       sent(tarvik_iflm_update_flags(c, 90, 132, 5, 590, "", 0x8011, TLK_OP_CHANGE))},
      {TLK_OP_CHANGE, "ge2", 4, 0x8001, 0x40, 0, nullptr,
       sent(tarvik_iflm_update_privflags(c, 90, 132, 5, 590, "ge2", 0x8001, 0x40, TLK_OP_CHANGE))},
      {TLK_OP_CHANGE, "ge2", 4, 0, 0, 16, nullptr,
       sent(tarvik_iflm_pointchange_tlv(c, 90, 132, 5, 590, "ge2", &info))},
      {TLK_OP_DELETE, "", 0, 0, 0, 0, nullptr,
       sent(tarvik_iflm_update(c, 90, 132, 5, 590, nullptr, empty.data(), TLK_OP_DELETE))},
  };
  EXPECT_EQ(c->seq, seq);
  for (const auto &r : rows) {
    SCOPED_TRACE(&r - rows);
    void *m = nullptr;
    ASSERT_EQ(tarvik_msg_idl_decode(c, r.sent.data(), r.sent.size(), &m, nullptr), 0);
    const ifl_msg &req = *static_cast<const ifl_msg *>(m);
    const tlk_hdr &h = req.iflm_hdr;
    EXPECT_EQ(std::tuple(h.tlkh_type, h.tlkh_op, h.tlkh_seq, req.iflm_flags, req.iflm_privflags),
              std::tuple(TLK_MSG_IFLOGICAL, r.op, 0u, r.flags, uint64_t{r.privflags}));
    EXPECT_EQ(std::tuple(req.iflm_index.idx, req.iflm_devidx, req.iflm_unit, req.iflm_snmp_id.idx),
              std::tuple(90u, uint16_t{132}, 5u, 590u));
    EXPECT_EQ(std::tuple(text(req.iflm_name), req.iflm_name_len), std::tuple(r.name, r.name_len));
    const uint8_t *a = req.iflm_addr_len == 1 ? req.iflm_addr[0].sai_addr : nullptr;
    EXPECT_EQ(a ? Bytes(a, a + 16) : Bytes(), r.addr ? *r.addr : Bytes());
    const uint32_t attached = h.tlkh_info_len == 1 ? h.tlkh_info[0]->tlkmi_type : 0;
    EXPECT_EQ(std::tuple(req.iflm_change, h.tlkh_info_len, attached),
              std::tuple(r.change, r.change ? 1u : 0u, r.change ? 4u : 0u));
    tarvik_msg_idl_release(c, m, nullptr);
  }
}

// Refused calls send nothing and draw no sequence number; the device call takes xle.
TEST_F(LogicalIfTest, RefusalsSendNothing) {
  void *m = nullptr;
  iflset_blob set{};
  const uint32_t seq = c->seq;
  const size_t before = sent_count(kernel);
  const std::pair<int, int> rows[] = {
      {tarvik_iflm_get_by_name(c, nullptr, 0, TLK_OP_GET, &m, nullptr), EINVAL},
      {tarvik_iflm_update_flags(c, 70, 130, 0, 0, "ge0", 1, TLK_OP_ADD), EOPNOTSUPP},
      {tarvik_iflm_update_flags(c, 70, 130, 0, 0, "ge0", 1, TLK_OP_DELETE), EOPNOTSUPP},
      {tarvik_iflm_update_privflags(c, 70, 130, 0, 0, "ge0", 1, 1, TLK_OP_ADD), EOPNOTSUPP},
      {tarvik_iflsm_get_by_name(c, nullptr, 0, 1, TLK_OP_GET, &m), EINVAL},
      {async_tarvik_iflsm_get_by_index_kernel(c, 70, "xle0", 1, TLK_OP_GET, 5), EOPNOTSUPP},
      {async_tarvik_iflsm_get_by_index_kernel(c, 70, "af0", 1, TLK_OP_GET, 5), EOPNOTSUPP},
      {async_tarvik_iflsm_get_by_index_kernel(c, 70, "ge0", 1, TLK_OP_CLEAR, 5), EOPNOTSUPP},
      {async_tarvik_iflsm_get_by_index_kernel(c, 70, nullptr, 1, TLK_OP_GET, 5), EINVAL},
      {tarvik_iflsetm_get_by_name(c, "voice", TLK_OP_CLEAR, &set), EINVAL},
      {tarvik_iflsetm_get_by_name(c, nullptr, TLK_OP_GET, &set), EINVAL},
      {tarvik_iflsetm_get_by_name(c, "voice", TLK_OP_GET, nullptr), EINVAL},
      {tarvik_iflsm_async_kernel_register(c, nullptr, hear_cookie), EINVAL},  // not async
      {tarvik_ifdsm_async_kernel_register(c, nullptr, hear_cookie), EINVAL},
  };
  for (const auto &[got, want] : rows) EXPECT_EQ(got, want) << "row " << &got - &rows[0].first;
  EXPECT_EQ(c->seq, seq);
  EXPECT_EQ(sent_count(kernel), before);
  EXPECT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, 64, 130, "xle0", 1, TLK_OP_GET, 5), 0);
  EXPECT_EQ(sent_count(kernel), before + 1);
}

// The "iflstats" requests as they go out through the replaceable entries and their defaults, and
// the raw reply each read hands over.  The subtype is dropped: two subtypes send the same bytes
// but for the sequence number.
TEST_F(LogicalIfTest, StatisticsRequests) {
  const std::string longname = "ge0" + std::string(70, 'x');
  const uint32_t s = c->seq;
  void *r = nullptr;
  expect_stats(tarvik_iflsm_get_by_index(c, 71, 7, TLK_OP_GET, &r), &r, {TLK_OP_GET, s + 1, 0, 71},
               TLK_MSG_IFLSTATS);
  expect_stats(tarvik_iflsm_get_by_index_and_subtype(c, 71, 1, 7, TLK_OP_GET, &r), &r,
               {TLK_OP_GET, s + 2, 0, 71}, TLK_MSG_IFLSTATS);
  expect_stats(__tarvik_iflsm_get_by_index_and_subtype(c, 71, 0xFFFF, 7, TLK_OP_GET, &r), &r,
               {TLK_OP_GET, s + 3, 0, 71}, TLK_MSG_IFLSTATS);
  expect_stats(tarvik_iflsm_get_by_name(c, "ge0", 100, 7, TLK_OP_GET, &r), &r,
               {TLK_OP_GET, s + 4, 100, 0, "ge0"}, TLK_MSG_IFLSTATS);
  expect_stats(__tarvik_iflsm_get_by_name_and_subtype(c, "ge0", 100, 0xFFFF, 7, TLK_OP_GET, &r), &r,
               {TLK_OP_GET, s + 5, 100, 0, "ge0"}, TLK_MSG_IFLSTATS);
  // No unit has the cut name: the kernel's refusal is the reply, and a raw read hands it over.
  expect_stats(tarvik_iflsm_get_by_name(c, longname.c_str(), 100, 7, TLK_OP_GET, &r), &r,
               {TLK_OP_GET, s + 6, 100, 0, longname}, TLK_MSG_TLK_ERR);
  expect_stats(tarvik_iflsm_clear_by_index(c, 71, 7), nullptr, {TLK_OP_CLEAR, s + 7, 0, 71}, 0);
  EXPECT_EQ(tarvik_iflsm_cleanup(0x5A5A), 0x5A5Au);
}

// Which product models let a session take the kernel's statistics answers, for the logical
// interface and the device entries.
TEST_F(LogicalIfTest, RegistrationDependsOnTheProduct) {
  using Register = int (*)(tarvik_cookie *, void *, tarvik_async_handler_t);
  const Register ifl = tarvik_iflsm_async_kernel_register;
  const Register ifd = tarvik_ifdsm_async_kernel_register;
  const std::tuple<Register, std::optional<uint16_t>, bool, int> rows[] = {
      // clang-format off
      {ifl, 2, false, 0}, {ifl, 9, false, 0}, {ifl, 10, false, EOPNOTSUPP}, {ifl, 36, false, 0},
      {ifl, 46, false, 0}, {ifl, 47, false, EOPNOTSUPP}, {ifl, 111, false, 0},
      {ifl, 118, false, EOPNOTSUPP}, {ifl, 169, false, 0},
      {ifl, 218, false, EOPNOTSUPP},  // the device statistics take this one
      {ifl, 10, true, 0}, {ifl, std::nullopt, false, EINVAL},
      {ifd, 2, false, 0}, {ifd, 218, false, 0}, {ifd, 7, false, 0}, {ifd, 169, false, 0},
      {ifd, 1, false, EOPNOTSUPP}, {ifd, 1, true, 0}, {ifd, std::nullopt, false, EINVAL},
      // clang-format on
  };
  std::vector<uint64_t> ear;
  for (const auto &[entry, model, variant, want] : rows) {
    SCOPED_TRACE(std::string(entry == ifl ? "ifl " : "ifd ") + std::to_string(model.value_or(0)));
    tarvik_cookie *a = open_session(9);
    ASSERT_EQ(tarvik_set_async_info_nocontext(a, nullptr), 0);
    kernel.devices().set_product_model(model);
    kernel.devices().set_varn(variant);
    EXPECT_EQ(entry(a, &ear, hear_cookie), want);
    EXPECT_EQ(entry(a, &ear, nullptr), EINVAL);  // a handler is required
    tarvik_close(a);
  }
}

// On a statistics session the request goes with sequence 0 and the counter stays; the answers
// come as notifications to the registered handler, with the caller's cookie.
TEST_F(LogicalIfTest, KernelReplyRequestOnAStatisticsSession) {
  std::vector<uint64_t> ear;
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_iflsm_async_kernel_register(c, &ear, hear_cookie), 0);
  for (const bool stats_session : {false, true}) {
    SCOPED_TRACE(stats_session);
    tarvik_set_used_by_stats(c, stats_session ? 1 : 0);
    const uint32_t seq = c->seq, want = stats_session ? seq : seq + 1;
    ASSERT_EQ(async_tarvik_iflsm_get_by_index_kernel(c, 83, "xe1", 7, TLK_OP_GET, 0xBEEF), 0);
    EXPECT_EQ(c->seq, want);
    // No name goes in the message.
    EXPECT_EQ(last_sent(kernel),
              (Stats{TLK_OP_GET, stats_session ? 0 : want, 0, 83, "", 1, 0xBEEF}.bytes()));
  }
  drain(c);
  EXPECT_EQ(ear, (std::vector<uint64_t>{0xBEEF, 0xBEEF}));
}

// A set is a gencfg blob of major 10, minor 0 whose key is the index in network order; a set by
// name is a walk of the kernel's sets, whose end is the kernel's refusal.
TEST_F(LogicalIfTest, InterfaceSets) {
  iflset_blob set{};
  ASSERT_EQ(tarvik_iflsetm_get_by_index(c, 2, TLK_OP_GET, &set), 0);
  EXPECT_EQ(std::tuple(set.iflset_index, text(set.iflset_name)), std::tuple(2u, "customers-b"));
  auto req = last_request_as<gencfg_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(std::tuple(req->major, req->minor, req->flags), std::tuple(10, 0, TLK_GENCFG_KEY));
  EXPECT_EQ(Bytes(req->key, req->key + req->key_len), (Bytes{0, 0, 0, 2}));
  EXPECT_EQ(tarvik_iflsetm_get_by_index(c, 7, TLK_OP_GET, nullptr), 0);  // no record to fill
  const std::tuple<const char *, uint32_t, int, uint32_t> rows[] = {
      {"customers-a", TLK_OP_GET, 0, 1},        {"voice", TLK_OP_GET, 0, 7},
      {"customers-a", TLK_OP_GETNEXT, 0, 2},    {"customers-b", TLK_OP_GETNEXT, 0, 7},
      {"voice", TLK_OP_GETNEXT, EOPNOTSUPP, 0},  // the last set
      {"nosuch", TLK_OP_GET, EOPNOTSUPP, 0},
  };
  for (const auto &[name, op, want, index] : rows) {
    iflset_blob found{};
    EXPECT_EQ(tarvik_iflsetm_get_by_name(c, name, op, &found), want) << name << " op " << op;
    EXPECT_EQ(found.iflset_index, index) << name << " op " << op;  // untouched on a failure
  }
}

}  // namespace
}  // namespace tlktest
