// Logical interfaces against the simulated kernel: the list, the updates and the point change as
// they go out and as other sessions hear them, the raw statistics requests byte by byte, the
// read answered as a notification and its registration, and the interface sets kept as gencfg
// blobs.  The reads every family repeats are rows of the family suite.
#include <errno.h>
#include <string.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

const ifl_msg &ifl(const void *m) {
  return *static_cast<const ifl_msg *>(m);
}
std::string text(const uint8_t *p) {
  return p ? std::string(reinterpret_cast<const char *>(p)) : "";
}

// Logical interface notifications heard by a session.
struct Heard {
  struct Entry {
    uint32_t index;
    uint32_t flags;
    uint8_t op;
  };
  std::vector<Entry> entries;
  static int handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    const ifl_msg &m = ifl(msg);
    static_cast<Heard *>(arg)->entries.push_back(
        {m.iflm_index.idx, m.iflm_flags, m.iflm_hdr.tlkh_op});
    tarvik_msg_idl_release(cookie, msg, nullptr);
    return 0;
  }
};

// Raw "iflstats" messages heard by a session, whole.
struct StatsEar {
  std::vector<Bytes> heard;
  static int handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    const auto *b = static_cast<const uint8_t *>(msg);
    static_cast<StatsEar *>(arg)->heard.emplace_back(b, b + get_u32(b, 8));
    tarvik_msg_free(cookie, msg);
    return 0;
  }
};

class LogicalIfTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
  }
  auto last_request() { return last_request_as<ifl_msg>(); }
  size_t requests() { return kernel.requests(tarvik_getsockfd(c)); }
  // A second session that listens for logical interface changes.
  tarvik_cookie *listener(Heard &heard) {
    tarvik_cookie *l = open_session(8);
    EXPECT_EQ(tarvik_set_async_info_nocontext(l, nullptr), 0);
    EXPECT_EQ(tarvik_iflm_async_register(l, &heard, Heard::handler), 0);
    return l;
  }
};

TEST_F(LogicalIfTest, GetAllListsEveryUnitAsItStands) {
  ASSERT_TRUE(kernel.ifls().change_flags(73, 0, 1));
  tarvik_msg_list_t *list = nullptr;
  ASSERT_EQ(tarvik_iflm_get_all(c, &list), 0);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->type, TLK_MSG_IFLOGICAL);
  ASSERT_EQ(list->count, kernel.ifls().list().size());
  for (int i = 0; i < list->count; ++i) {
    const ifl_msg &m = ifl(tarvik_msg_list_get_by_index(list, i));
    const tarsim::Ifl &want = kernel.ifls().list()[static_cast<size_t>(i)];
    EXPECT_EQ(m.iflm_index.idx, want.index);
    EXPECT_EQ(text(m.iflm_name), want.device);
    EXPECT_EQ(m.iflm_unit, want.unit);
    EXPECT_EQ(m.iflm_flags, want.flags);
    EXPECT_EQ(m.iflm_generation, want.generation);
  }
  tarvik_msg_list_free(c, list);
}

// Every device of the chassis has a unit, and a read carries every field the kernel keeps.
TEST_F(LogicalIfTest, TheSeedCoversTheChassisAndAReadCarriesEveryField) {
  for (uint32_t devidx : {6u, 130u, 131u, 132u, 133u, 140u, 141u}) {
    SCOPED_TRACE(devidx);
    void *m = nullptr;
    ASSERT_EQ(tarvik_iflm_get_by_device(c, devidx, 0, TLK_OP_GET, &m, nullptr), 0);
    EXPECT_EQ(ifl(m).iflm_devidx, devidx);
    tarvik_msg_idl_release(c, m, nullptr);
  }
  const struct {
    uint32_t index;
    uint32_t uidx;
    uint16_t tenant, subset_mask;
    uint64_t privflags;
    bool link;
  } rows[] = {{83, 82, 9, 0x8, 0x4, false}, {71, 0, 7, 0x3, 0x10, false}, {70, 0, 0, 0, 0, true}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.index);
    void *m = nullptr;
    ASSERT_EQ(tarvik_iflm_get_by_index(c, r.index, TLK_OP_GET, &m, nullptr), 0);
    const ifl_msg &u = ifl(m);
    EXPECT_EQ(u.iflm_uidx.idx, r.uidx);
    EXPECT_EQ(u.iflm_tenant, r.tenant);
    EXPECT_EQ(u.iflm_subset_mask, r.subset_mask);
    EXPECT_EQ(u.iflm_privflags, r.privflags);
    ASSERT_EQ(u.iflm_addr_len, r.link ? 1u : 0u);
    if (r.link) {
      EXPECT_EQ(u.iflm_addr[0].sai_addr[1], 18);    // a link-level address
      EXPECT_EQ(u.iflm_addr[0].sai_addr[17], 130);  // of the device
    }
    tarvik_msg_idl_release(c, m, nullptr);
  }
}

// The three updates are one write with no sequence number; what differs is the flag words.
TEST_F(LogicalIfTest, UpdatesAreWritesWithoutSequenceThatOtherSessionsHear) {
  Heard heard;
  tarvik_cookie *l = listener(heard);
  const Bytes link = {20, 18, 0, 0, 0, 0, 0, 0, 0, 0, 6, 0, 2, 0, 0, 0, 0, 0x42, 0, 0};
  const struct {
    const char *what;
    std::function<int()> call;
    uint8_t op;
    uint32_t flags;
    uint64_t privflags;
  } rows[] = {
      {"add", [&] { return tarvik_iflm_update(c, 90, 132, 5, 0, "ge2", link.data(), TLK_OP_ADD); },
       TLK_OP_ADD, 0, 0},
      {"flags",
       [&] { return tarvik_iflm_update_flags(c, 90, 132, 5, 0, "ge2", 0x8011, TLK_OP_CHANGE); },
       TLK_OP_CHANGE, 0x8011, 0},
      {"private flags",
       [&] {
         return tarvik_iflm_update_privflags(c, 90, 132, 5, 0, "ge2", 0x8001, 0x40, TLK_OP_CHANGE);
       },
       TLK_OP_CHANGE, 0x8001, 0x40},
      {"delete",
       [&] { return tarvik_iflm_update(c, 90, 0, 0, 0, nullptr, nullptr, TLK_OP_DELETE); },
       TLK_OP_DELETE, 0, 0},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    const uint32_t seq = c->seq;
    ASSERT_EQ(r.call(), 0);
    EXPECT_EQ(c->seq, seq);
    EXPECT_EQ(kernel.replies(tarvik_getsockfd(c)), 0u);  // nothing answers
    auto req = last_request();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->iflm_hdr.tlkh_seq, 0u);
    EXPECT_EQ(req->iflm_hdr.tlkh_op, r.op);
    EXPECT_EQ(req->iflm_hdr.tlkh_fixedlen, sizeof(ifl_msg));
    EXPECT_EQ(req->iflm_index.idx, 90u);
    EXPECT_EQ(req->iflm_flags, r.flags);
    EXPECT_EQ(req->iflm_privflags, r.privflags);
    const tarsim::Ifl *u = kernel.ifls().find(90);
    if (r.op == TLK_OP_DELETE) {
      EXPECT_EQ(u, nullptr);
    } else {
      ASSERT_NE(u, nullptr);
      EXPECT_EQ(u->device, "ge2");
      EXPECT_EQ(u->flags, r.flags);
      EXPECT_EQ(u->privflags, r.privflags);
      EXPECT_EQ(u->link_addr, link);
    }
  }
  drain(l);
  ASSERT_EQ(heard.entries.size(), 4u);
  const uint8_t ops[] = {TLK_OP_ADD, TLK_OP_CHANGE, TLK_OP_CHANGE, TLK_OP_DELETE};
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(heard.entries[i].index, 90u);
    EXPECT_EQ(heard.entries[i].op, ops[i]);
  }
  EXPECT_EQ(heard.entries[1].flags, 0x8011u);
  // The kernel's own changes reach the listener the same way.
  ASSERT_TRUE(kernel.ifls().change_flags(70, 0x10, 0));
  drain(l);
  ASSERT_EQ(heard.entries.size(), 5u);
  EXPECT_EQ(heard.entries[4].index, 70u);
  EXPECT_EQ(heard.entries[4].flags & 0x10u, 0x10u);
  tarvik_close(l);
}

TEST_F(LogicalIfTest, FlagUpdatesTakeOnlyAChange) {
  for (uint32_t op : {TLK_OP_NOP, TLK_OP_ADD, TLK_OP_DELETE, TLK_OP_GET, TLK_OP_CHG_GET}) {
    SCOPED_TRACE(op);
    const size_t before = requests();
    EXPECT_EQ(tarvik_iflm_update_flags(c, 70, 130, 0, 0, "ge0", 1, op), EOPNOTSUPP);
    EXPECT_EQ(tarvik_iflm_update_privflags(c, 70, 130, 0, 0, "ge0", 1, 1, op), EOPNOTSUPP);
    EXPECT_EQ(requests(), before);  // nothing was sent
  }
}

// The name is cut at 59 characters; an address whose length byte is 0 is no address.
TEST_F(LogicalIfTest, UpdateCutsTheNameAndPlacesTheAddress) {
  const std::string longname = "ge" + std::string(70, 'x');
  const Bytes empty = {0, 18, 0, 0};
  const Bytes inet = {16, 2, 0, 0, 10, 9, 9, 9, 0, 0, 0, 0, 0, 0, 0, 0};
  const struct {
    const char *name;
    const uint8_t *addr;
    std::string want_name;
    uint32_t want_name_len;
    Bytes want_addr;
  } rows[] = {
      {longname.c_str(), inet.data(), longname.substr(0, 59), 60, inet},
      {"ge3", empty.data(), "ge3", 4, {}},
      {"", nullptr, "", 1, {}},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.want_name);
    ASSERT_EQ(tarvik_iflm_update(c, 74, 133, 0, 0, r.name, r.addr, TLK_OP_CHANGE), 0);
    auto req = last_request();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->iflm_name_len, r.want_name_len);
    EXPECT_EQ(text(req->iflm_name), r.want_name);
    ASSERT_EQ(req->iflm_addr_len, r.want_addr.empty() ? 0u : 1u);
    if (!r.want_addr.empty()) {
      EXPECT_EQ(Bytes(req->iflm_addr[0].sai_addr, req->iflm_addr[0].sai_addr + r.want_addr[0]),
                r.want_addr);
    }
  }
}

TEST_F(LogicalIfTest, PointChangeCarriesTheCallersAttachment) {
  Heard heard;
  tarvik_cookie *l = listener(heard);
  tlk_msg_info info{};
  info.tlkmi_type = 4;
  info.tlkmi_u.if_pfe_options.ipo_value = 0x1234;
  const uint32_t seq = c->seq;
  ASSERT_EQ(tarvik_iflm_pointchange_tlv(c, 72, 131, 0, 0, "ge1", &info), 0);
  EXPECT_EQ(c->seq, seq);
  auto req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->iflm_hdr.tlkh_op, TLK_OP_CHANGE);
  EXPECT_EQ(req->iflm_hdr.tlkh_seq, 0u);
  EXPECT_EQ(req->iflm_change, 16u);
  ASSERT_EQ(req->iflm_hdr.tlkh_info_len, 1u);
  EXPECT_EQ(req->iflm_hdr.tlkh_info[0]->tlkmi_type, 4u);
  EXPECT_EQ(req->iflm_hdr.tlkh_info[0]->tlkmi_u.if_pfe_options.ipo_value, 0x1234u);
  EXPECT_EQ(kernel.ifls().find(72)->attachments, (std::vector<uint32_t>{4}));
  EXPECT_EQ(kernel.ifls().find(72)->flags, 0x8001u) << "a point change leaves the flags";
  drain(l);
  ASSERT_EQ(heard.entries.size(), 1u);
  EXPECT_EQ(heard.entries[0].index, 72u);
  tarvik_close(l);
}

// The "iflstats" request as the table lays it out, and the reply.
TEST_F(LogicalIfTest, StatisticsRequestBytes) {
  ASSERT_TRUE(kernel.ifls().set_counters(71, 1000, 2000));
  const std::string longname = "ge0" + std::string(70, 'x');
  const struct {
    const char *what;
    std::function<int(void **)> get;
    size_t whole;
    uint32_t unit, index;
    uint8_t name_len;
    std::string name;
  } rows[] = {
      {"by index", [&](void **o) { return tarvik_iflsm_get_by_index(c, 71, 7, TLK_OP_GET, o); }, 72,
       0, 71, 0, ""},
      {"by name",
       [&](void **o) { return tarvik_iflsm_get_by_name(c, "ge0", 100, 7, TLK_OP_GET, o); }, 76, 100,
       0, 4, "ge0"},
      {"by index and subtype",
       [&](void **o) { return tarvik_iflsm_get_by_index_and_subtype(c, 71, 3, 7, TLK_OP_GET, o); },
       72, 0, 71, 0, ""},
      {"by name and subtype",
       [&](void **o) {
         return tarvik_iflsm_get_by_name_and_subtype(c, "ge0", 100, 3, 7, TLK_OP_GET, o);
       },
       76, 100, 0, 4, "ge0"},
      {"cut name",
       [&](void **o) {
         return tarvik_iflsm_get_by_name(c, longname.c_str(), 100, 7, TLK_OP_GET, o);
       },
       136, 100, 0, 61, longname.substr(0, 60)},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    void *reply = nullptr;
    const int got = r.get(&reply);
    const Bytes req = last_sent(kernel);
    ASSERT_EQ(req.size(), r.whole);
    EXPECT_EQ(get_u32(req.data(), 0), 0u);
    EXPECT_EQ(req[4], 'd');
    EXPECT_EQ(req[5], 16);
    EXPECT_EQ(req[6], TLK_OP_GET);
    EXPECT_EQ(get_u32(req.data(), 8), r.whole);
    EXPECT_EQ(get_u32(req.data(), 12), c->seq);
    EXPECT_EQ(get_u32(req.data(), 16), 0u);
    EXPECT_EQ(get_u16(req.data(), 20), 72);
    EXPECT_EQ(get_u32(req.data(), 28), r.unit);
    EXPECT_EQ(get_u32(req.data(), 32), r.index);
    EXPECT_EQ(req[38], 7);
    EXPECT_EQ(req[41], r.name_len);
    EXPECT_EQ(get_u16(req.data(), 58), 0);
    EXPECT_EQ(get_u64(req.data(), 64), 0u);
    if (!r.name.empty()) {
      EXPECT_EQ(std::string(reinterpret_cast<const char *>(&req[72])), r.name);
    }
    ASSERT_EQ(got, 0);
    if (r.name_len == 61) {
      // No unit of that name: the kernel's refusal is the reply, which a raw read hands over.
      EXPECT_EQ(static_cast<const uint8_t *>(reply)[5], TLK_MSG_TLK_ERR);
      tarvik_msg_free(c, reply);
      continue;
    }
    EXPECT_EQ(get_u32(reply, 8), 88u);
    EXPECT_EQ(get_u64(reply, 72), 1000u);
    EXPECT_EQ(get_u64(reply, 80), 2000u);
    tarvik_msg_free(c, reply);
  }
}

// The subtype is dropped by the defaults: two subtypes send the same bytes but the sequence.
TEST_F(LogicalIfTest, SubtypesSendTheSameBytesButTheSequence) {
  const struct {
    const char *what;
    std::function<int(uint32_t, void **)> get;
  } rows[] = {
      {"by index",
       [&](uint32_t sub, void **o) {
         return __tarvik_iflsm_get_by_index_and_subtype(c, 80, sub, 2, TLK_OP_GET, o);
       }},
      {"by name",
       [&](uint32_t sub, void **o) {
         return __tarvik_iflsm_get_by_name_and_subtype(c, "xe0", 200, sub, 2, TLK_OP_GET, o);
       }},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    Bytes sent[2];
    uint32_t subtype = 1;
    for (Bytes &b : sent) {
      void *reply = nullptr;
      ASSERT_EQ(r.get(subtype, &reply), 0);
      tarvik_msg_free(c, reply);
      b = last_sent(kernel);
      subtype = 0xFFFF;
    }
    ASSERT_EQ(sent[0].size(), sent[1].size());
    EXPECT_EQ(get_u32(sent[1].data(), 12), get_u32(sent[0].data(), 12) + 1);
    put_u32(sent[0], 12, 0);
    put_u32(sent[1], 12, 0);
    EXPECT_EQ(sent[0], sent[1]);
  }
}

int g_replaced_calls = 0;
int replaced_get(tarvik_cookie *, uint32_t, uint8_t, uint32_t, void **out) {
  ++g_replaced_calls;
  *out = nullptr;
  return EIO;
}

TEST_F(LogicalIfTest, StatisticsEntriesAreReplaceable) {
  EXPECT_EQ(tarvik_iflsm_get_by_index, &__tarvik_iflsm_get_by_index);
  EXPECT_EQ(tarvik_iflsm_get_by_name, &__tarvik_iflsm_get_by_name);
  EXPECT_EQ(tarvik_iflsm_clear_by_index, &__tarvik_iflsm_clear_by_index);
  EXPECT_EQ(tarvik_iflsm_cleanup(0x5A5A), 0x5A5Au);
  const size_t before = requests();
  tarvik_iflsm_get_by_index = replaced_get;
  void *reply = reinterpret_cast<void *>(1);
  const int got = tarvik_iflsm_get_by_index(c, 70, 1, TLK_OP_GET, &reply);
  tarvik_iflsm_get_by_index = __tarvik_iflsm_get_by_index;
  EXPECT_EQ(got, EIO);
  EXPECT_EQ(g_replaced_calls, 1);
  EXPECT_EQ(requests(), before) << "the replacement sent nothing";
}

TEST_F(LogicalIfTest, ClearSendsOpSixAndReadsNothing) {
  ASSERT_TRUE(kernel.ifls().set_counters(80, 5, 6));
  const uint32_t seq = c->seq;
  ASSERT_EQ(tarvik_iflsm_clear_by_index(c, 80, 2), 0);
  const Bytes req = last_sent(kernel);
  ASSERT_EQ(req.size(), 72u);
  EXPECT_EQ(req[6], TLK_OP_CLEAR);
  EXPECT_EQ(get_u32(req.data(), 12), seq + 1);
  EXPECT_EQ(get_u32(req.data(), 32), 80u);
  EXPECT_EQ(kernel.replies(tarvik_getsockfd(c)), 0u);
  EXPECT_EQ(kernel.ifls().find(80)->in_packets, 0u);
  EXPECT_EQ(kernel.ifls().find(80)->out_packets, 0u);
}

TEST_F(LogicalIfTest, RegistrationDependsOnTheProduct) {
  const struct {
    std::optional<uint16_t> model;
    bool variant;
    int want;
  } rows[] = {
      // clang-format off
      {2, false, 0}, {9, false, 0}, {10, false, EOPNOTSUPP}, {36, false, 0}, {46, false, 0},
      {47, false, EOPNOTSUPP}, {111, false, 0}, {118, false, EOPNOTSUPP}, {169, false, 0},
      {218, false, EOPNOTSUPP},  // the device statistics take this one
      {10, true, 0}, {std::nullopt, false, EINVAL},
      // clang-format on
  };
  int h = 0;
  auto handler = [](tarvik_cookie *k, void *, void *msg, uintptr_t) {
    tarvik_msg_free(k, msg);
    return 0;
  };
  EXPECT_EQ(tarvik_iflsm_async_kernel_register(c, &h, handler), EINVAL);  // not asynchronous yet
  for (const auto &r : rows) {
    SCOPED_TRACE(r.model ? *r.model : -1);
    tarvik_cookie *a = open_session(9);
    ASSERT_EQ(tarvik_set_async_info_nocontext(a, nullptr), 0);
    kernel.devices().set_product_model(r.model);
    kernel.devices().set_varn(r.variant);
    EXPECT_EQ(tarvik_iflsm_async_kernel_register(a, &h, handler), r.want);
    EXPECT_EQ(tarvik_iflsm_async_kernel_register(a, &h, nullptr), EINVAL);
    tarvik_close(a);
  }
}

TEST_F(LogicalIfTest, KernelReplyRequestRefusals) {
  const struct {
    const char *name;
    uint32_t op;
    int want;
  } rows[] = {
      {"xle0", TLK_OP_GET, EOPNOTSUPP}, {"af0", TLK_OP_GET, EOPNOTSUPP},
      {"lo0", TLK_OP_GET, EOPNOTSUPP},  {"ge0", TLK_OP_CLEAR, EOPNOTSUPP},
      {nullptr, TLK_OP_GET, EINVAL},
  };
  const size_t before = requests();
  for (const auto &r : rows) {
    SCOPED_TRACE(r.name ? r.name : "null");
    EXPECT_EQ(async_tarvik_iflsm_get_by_index_kernel(c, 70, r.name, 1, r.op, 5), r.want);
  }
  EXPECT_EQ(requests(), before);
  // The device call takes xle, and so one request goes.
  EXPECT_EQ(async_tarvik_ifdsm_get_by_index_kernel(c, 64, 130, "xle0", 1, TLK_OP_GET, 5), 0);
  EXPECT_EQ(requests(), before + 1);
}

// On a statistics session the request goes with sequence 0 and the counter stays; the answer is
// a notification of sequence 0 that carries the caller's cookie back.
TEST_F(LogicalIfTest, KernelReplyRequestOnAStatisticsSession) {
  ASSERT_TRUE(kernel.ifls().set_counters(83, 31, 32));
  StatsEar ear;
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_iflsm_async_kernel_register(c, &ear, StatsEar::handler), 0);
  const struct {
    bool stats_session;
    bool draws;
  } rows[] = {{false, true}, {true, false}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.stats_session);
    tarvik_set_used_by_stats(c, r.stats_session ? 1 : 0);
    const uint32_t seq = c->seq;
    ASSERT_EQ(async_tarvik_iflsm_get_by_index_kernel(c, 83, "xe1", 4, TLK_OP_GET, 0xBEEF), 0);
    EXPECT_EQ(c->seq, r.draws ? seq + 1 : seq);
    const Bytes req = last_sent(kernel);
    ASSERT_EQ(req.size(), 72u);  // no name goes in the message
    EXPECT_EQ(get_u32(req.data(), 12), r.draws ? seq + 1 : 0u);
    EXPECT_EQ(get_u32(req.data(), 32), 83u);
    EXPECT_EQ(req[38], 4);
    EXPECT_EQ(get_u16(req.data(), 58), 1);
    EXPECT_EQ(get_u64(req.data(), 64), 0xBEEFu);
  }
  drain(c);
  ASSERT_EQ(ear.heard.size(), 2u);
  for (const Bytes &b : ear.heard) {
    EXPECT_EQ(b[5], 16);
    EXPECT_EQ(get_u32(b.data(), 12), 0u);
    EXPECT_EQ(get_u64(b.data(), 64), 0xBEEFu);
    EXPECT_EQ(get_u64(b.data(), 72), 31u);
  }
}

TEST_F(LogicalIfTest, InterfaceSetsByIndex) {
  iflset_blob set;
  memset(&set, 0xEE, sizeof set);
  ASSERT_EQ(tarvik_iflsetm_get_by_index(c, 2, TLK_OP_GET, &set), 0);
  EXPECT_EQ(set.iflset_index, 2u);
  EXPECT_EQ(text(set.iflset_name), "customers-b");
  EXPECT_EQ(text(set.iflset_ifname), "xe0");
  EXPECT_EQ(set.iflset_devidx, 140);
  EXPECT_EQ(set.iflset_dynamic, 1);
  // The request: a gencfg get of major 10, minor 0, the index in network order as the key.
  auto req = last_request_as<gencfg_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->major, 10);
  EXPECT_EQ(req->minor, 0);
  EXPECT_EQ(req->flags, TLK_GENCFG_KEY);
  EXPECT_EQ(Bytes(req->key, req->key + req->key_len), (Bytes{0, 0, 0, 2}));
  // A getnext from 0 is the first set; without a record the read still happens.
  ASSERT_EQ(tarvik_iflsetm_get_by_index(c, 0, TLK_OP_GETNEXT, &set), 0);
  EXPECT_EQ(set.iflset_index, 1u);
  EXPECT_EQ(tarvik_iflsetm_get_by_index(c, 7, TLK_OP_GET, nullptr), 0);
  EXPECT_EQ(tarvik_iflsetm_get_by_index(c, 3, TLK_OP_GET, &set), EOPNOTSUPP);  // no such set
}

TEST_F(LogicalIfTest, InterfaceSetsByNameWalkTheKernel) {
  const struct {
    const char *name;
    uint32_t op;
    int want;
    uint32_t index;
  } rows[] = {
      {"customers-a", TLK_OP_GET, 0, 1},        {"voice", TLK_OP_GET, 0, 7},
      {"customers-a", TLK_OP_GETNEXT, 0, 2},    {"customers-b", TLK_OP_GETNEXT, 0, 7},
      {"voice", TLK_OP_GETNEXT, EOPNOTSUPP, 0},  // the last: the kernel's end of the walk
      {"nosuch", TLK_OP_GET, EOPNOTSUPP, 0},    {"voice", TLK_OP_CLEAR, EINVAL, 0},
      {nullptr, TLK_OP_GET, EINVAL, 0},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(std::string(r.name ? r.name : "null") + " op " + std::to_string(r.op));
    iflset_blob set{};
    EXPECT_EQ(tarvik_iflsetm_get_by_name(c, r.name, r.op, &set), r.want);
    if (r.want == 0) {
      EXPECT_EQ(set.iflset_index, r.index);
    }
  }
  EXPECT_EQ(tarvik_iflsetm_get_by_name(c, "voice", TLK_OP_GET, nullptr), EINVAL);
}

}  // namespace
}  // namespace tlktest
