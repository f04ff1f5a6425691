// Families and addresses against the simulated kernel: how prefixes are packed, the address point
// change, the family write with its filter, the raw family statistics and their failures, the
// unnumbered borrower, and the changes that listeners hear.  The reads every family repeats are
// rows of the family suite.
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

const ifa_msg &ifa(const void *m) {
  return *static_cast<const ifa_msg *>(m);
}
const iff_msg &iff(const void *m) {
  return *static_cast<const iff_msg *>(m);
}
Bytes bytes_of(const prefix &p) {
  return p.prefix ? Bytes(p.prefix, p.prefix + p.prefix_len) : Bytes{};
}

class AddrTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
  }
};

// ---- Prefix packing ----------------------------------------------------------------------

struct PrefixRow {
  const char *what;
  uint32_t plen;
  Bytes given;
  uint16_t sent_plen;
  Bytes sent;  // the bytes the request carries
};

const PrefixRow kPrefixRows[] = {
    {"17 bits copy 3 bytes and send 4, the last zero",
     17,
     {0xAB, 0xCD, 0xEF, 0x77},
     17,
     {0xAB, 0xCD, 0xEF, 0x00}},
    {"0 bits send no prefix, whatever the pointer", 0, {1, 2, 3, 4}, 0, {}},
    {"32 bits send 4 bytes, all copied", 32, {10, 0, 0, 1, 9}, 32, {10, 0, 0, 1}},
    {"33 bits copy 5 and send 8", 33, {1, 2, 3, 4, 5, 6, 7, 8}, 33, {1, 2, 3, 4, 5, 0, 0, 0}},
    {"1 bit copies a whole byte", 1, {0xFF, 0xFF}, 1, {0xFF, 0, 0, 0}},
    {"128 bits send 16", 128, Bytes(16, 0x5A), 128, Bytes(16, 0x5A)},
};

TEST_F(AddrTest, PrefixesArePackedToWholeWordsBehindTheRecord) {
  for (const PrefixRow &r : kPrefixRows) {
    SCOPED_TRACE(r.what);
    for (bool local : {false, true}) {
      SCOPED_TRACE(local ? "local" : "destination");
      void *m = reinterpret_cast<void *>(1);
      const int err = local ? tarvik_ifam_get_by_local(c, 4242, TLK_AF_INET, r.given.data(), r.plen,
                                                       TLK_OP_GET, &m, nullptr)
                            : tarvik_ifam_get_by_dest(c, 4242, TLK_AF_INET, r.given.data(), r.plen,
                                                      TLK_OP_GET, &m, nullptr);
      EXPECT_EQ(err, EOPNOTSUPP) << "no such address: the kernel's refusal";
      EXPECT_EQ(m, nullptr);
      auto req = last_request_as<ifa_msg>();
      ASSERT_NE(req, nullptr);
      const prefix &sent = local ? req->ifam_local : req->ifam_dest;
      const prefix &other = local ? req->ifam_dest : req->ifam_local;
      EXPECT_EQ(sent.plen, r.sent_plen);
      EXPECT_EQ(bytes_of(sent), r.sent);
      EXPECT_EQ(other.plen, 0);
      EXPECT_EQ(other.prefix_len, 0u);
    }
  }
}

TEST_F(AddrTest, BothPrefixesGoDestinationFirst) {
  const Bytes dest = {0xD1, 0xD2, 0xD3, 0xD4}, local = {0x1A, 0x1B, 0x1C, 0x1D};
  void *m = nullptr;
  EXPECT_EQ(tarvik_ifam_get_by_local_dest(c, 4242, TLK_AF_INET, dest.data(), 32, local.data(), 32,
                                          TLK_OP_GET, &m, nullptr),
            EOPNOTSUPP);
  const Bytes wire = last_sent(kernel);
  const auto at = [&](const Bytes &needle) {
    return std::search(wire.begin(), wire.end(), needle.begin(), needle.end()) - wire.begin();
  };
  ASSERT_LT(at(dest), static_cast<ptrdiff_t>(wire.size()));
  ASSERT_LT(at(local), static_cast<ptrdiff_t>(wire.size()));
  EXPECT_LT(at(dest), at(local));
  auto req = last_request_as<ifa_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(bytes_of(req->ifam_dest), dest);
  EXPECT_EQ(bytes_of(req->ifam_local), local);
}

TEST_F(AddrTest, APrefixTheRecordCannotCarryIsRefusedUnsent) {
  const Bytes big(16, 1);
  void *m = reinterpret_cast<void *>(1);
  EXPECT_EQ(
      tarvik_ifam_get_by_dest(c, 70, TLK_AF_INET, big.data(), 0x10000, TLK_OP_GET, &m, nullptr),
      EINVAL);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(tarvik_ifam_get_by_local(c, 70, TLK_AF_INET, nullptr, 32, TLK_OP_GET, &m, nullptr),
            EINVAL)
      << "a length without bytes";
  EXPECT_EQ(sent_count(kernel), 0u);
}

// ---- Address writes and the point change -------------------------------------------------

TEST_F(AddrTest, AddressWritesChangeTheStoreWithoutAReply) {
  const uint8_t net[] = {10, 7, 0, 0}, host[] = {10, 7, 0, 9};
  const tarsim::Ifa key = [&] {
    tarsim::Ifa k;
    k.iflidx = 71;
    k.af = TLK_AF_INET;
    k.dest = tarsim::ifa_prefix(net, 16);
    k.local = tarsim::ifa_prefix(host, 32);
    return k;
  }();
  const struct {
    uint32_t op;
    bool present;
    uint32_t generation;
  } steps[] = {{TLK_OP_ADD, true, 1}, {TLK_OP_CHANGE, true, 2}, {TLK_OP_DELETE, false, 0}};
  for (const auto &s : steps) {
    SCOPED_TRACE(s.op);
    const uint32_t seq = c->seq;
    EXPECT_EQ(tarvik_ifam_update(c, 71, TLK_AF_INET, net, 16, host, 32, s.op), 0);
    EXPECT_EQ(c->seq, seq + 1) << "an update draws a sequence number";
    EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "nothing answers a write";
    const tarsim::Ifa *got = kernel.ifas().find(key);
    ASSERT_EQ(got != nullptr, s.present);
    if (got) {
      EXPECT_EQ(got->generation, s.generation);
    }
  }
}

struct PointRow {
  const char *what;
  uint32_t length;  // of the address
  Bytes records;    // the input run
  int64_t run_len;  // the records length given; -1 for the run's size
  bool null_records;
  int want;
  std::vector<uint32_t> selectors;  // attachments the kernel got; empty: nothing sent
};

Bytes record(uint16_t type, Bytes data) {
  Bytes r = {static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8),
             static_cast<uint8_t>(data.size() + 4), 0};
  r.insert(r.end(), data.begin(), data.end());
  while (r.size() % 4 != 0) r.push_back(0xEE);  // padding the walk skips
  return r;
}

const PointRow kPointRows[] = {
    {"an address length of 0 sends nothing", 0, record(189, {7}), -1, false, EINVAL, {}},
    {"no records", 32, {}, 4, true, EINVAL, {}},
    {"a records length of 0", 32, record(189, {7}), 0, false, EINVAL, {}},
    {"every type alike, 500 too",
     32,
     cat({record(189, {7}), record(500, {1, 2, 3, 4})}),
     -1,
     false,
     0,
     {189, 500}},
    {"the walk ends at a length of 0",
     32,
     cat({record(189, {7}), Bytes(4, 0), record(190, {1})}),
     -1,
     false,
     0,
     {189}},
    {"the walk ends at the records length",
     32,
     cat({record(189, {7}), record(190, {1})}),
     8,
     false,
     0,
     {189}},
};

TEST_F(AddrTest, APointChangeTurnsEachRecordIntoAnInlineAttachment) {
  const uint8_t host[] = {10, 0, 0, 1};
  const tarsim::Ifa key = kernel.ifas().of(70, TLK_AF_INET).at(0);
  for (const PointRow &r : kPointRows) {
    SCOPED_TRACE(r.what);
    kernel.clear_recorded();
    const uint32_t seq = c->seq;
    const auto run_len = static_cast<uint32_t>(r.run_len < 0 ? r.records.size() : r.run_len);
    const int err = tarvik_ifa_pointchange(c, 70, TLK_AF_INET, host, r.length,
                                           r.null_records ? nullptr : r.records.data(), run_len);
    EXPECT_EQ(err, r.want);
    if (r.want != 0) {
      EXPECT_EQ(sent_count(kernel), 0u);
      EXPECT_EQ(c->seq, seq) << "a refused change draws no number";
      continue;
    }
    EXPECT_EQ(c->seq, seq + 1);
    auto req = last_request_as<ifa_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->ifam_hdr.tlkh_op, TLK_OP_CHANGE);
    EXPECT_EQ(req->ifam_flags, TLK_IFA_POINTCHANGE);
    EXPECT_EQ(bytes_of(req->ifam_local), Bytes(host, host + 4));
    EXPECT_EQ(req->ifam_dest.plen, 0);
    ASSERT_EQ(req->ifam_hdr.tlkh_info_len, r.selectors.size());
    EXPECT_EQ(req->ifam_hdr.tlkh_info[0]->tlkmi_u.if_tos.it_value, 7) << "data from the third word";
    EXPECT_EQ(kernel.ifas().find(key)->attachments, r.selectors);
  }
}

// ---- Families ----------------------------------------------------------------------------

TEST_F(AddrTest, FamilyReadsCarryTheirKeys) {
  const std::string long_name(70, 'g');
  const struct {
    const char *what;
    std::function<int(void **)> call;
    uint32_t iflidx, af, unit;
    std::string name;
    uint32_t name_len;
  } rows[] = {
      {"by index",
       [&](void **o) {
         return tarvik_iffm_get_by_index(c, 80, TLK_AF_INET6, TLK_OP_GET, o, nullptr);
       },
       80, TLK_AF_INET6, 0, "", 0},
      {"by device name, cut at 59",
       [&](void **o) {
         return tarvik_iffm_get_by_dev_name(c, TLK_AF_INET, long_name.c_str(), 5, TLK_OP_GET, o,
                                            nullptr);
       },
       0, TLK_AF_INET, 5, long_name.substr(0, 59), 60},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    void *m = nullptr;
    (void)r.call(&m);
    tarvik_msg_idl_release(c, m, nullptr);
    auto req = last_request_as<iff_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->iffm_iflidx.idx, r.iflidx);
    EXPECT_EQ(req->iffm_af, r.af);
    EXPECT_EQ(req->iffm_unit, r.unit);
    EXPECT_EQ(req->iffm_name_len, r.name_len);
    if (r.name_len != 0) {
      EXPECT_EQ(reinterpret_cast<const char *>(req->iffm_name), r.name);
    }
  }
}

// Replies of families and addresses are read into one message block: a reply longer than the
// block is not taken, where the long read of devices would take it.
TEST_F(AddrTest, RepliesLongerThanAMessageBlockAreNotTaken) {
  const struct {
    const char *what;
    std::function<int(void **)> get;
  } rows[] = {
      {"family",
       [&](void **o) {
         return tarvik_iffm_get_by_index(c, 70, TLK_AF_INET, TLK_OP_GET, o, nullptr);
       }},
      {"address",
       [&](void **o) {
         return tarvik_ifam_get_by_index(c, 70, TLK_AF_INET, TLK_OP_GET, o, nullptr);
       }},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    void *m = nullptr;
    ASSERT_EQ(r.get(&m), 0) << "a reply of its own size is read";
    tarvik_msg_idl_release(c, m, nullptr);
    kernel.inject_reply_extra(TLK_MSG_BUF_SIZE);
    m = reinterpret_cast<void *>(1);
    EXPECT_EQ(r.get(&m), EIO) << "too long for the block";
    EXPECT_EQ(m, nullptr);
  }
}

// The donor read: ge1.0 inet (72) borrows from lo0.0 (16); only the low byte of the family counts.
TEST_F(AddrTest, TheUnnumberedBorrowerNamesItsDonor) {
  const struct {
    uint32_t index, af;
    int want;
    uint32_t donor;  // 99: left as it was
  } rows[] = {{72, TLK_AF_INET, 0, 16},
              {72, 0x100 | TLK_AF_INET, 0, 16},
              {70, TLK_AF_INET, EINVAL, 99},
              {4242, TLK_AF_INET, EOPNOTSUPP, 99}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.index);
    uint32_t donor = 99;
    EXPECT_EQ(tarvik_unnum_get_donor_ifl_idx(c, r.index, r.af, &donor), r.want);
    EXPECT_EQ(donor, r.donor);
  }
  void *a = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_ifam_get_by_index(c, 72, TLK_AF_INET, TLK_OP_GET, &a, nullptr), EOPNOTSUPP)
      << "no address of its own";
}

struct FilterRow {
  const char *what;
  bool with_data;  // the address word names real bytes (as far as a word can)
  uint32_t addr, count;
  bool cleared;
};

uint8_t g_filter_data[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

const FilterRow kFilterRows[] = {
    {"a pointer with a count of 0 goes out with both cleared", false, 0x1234, 0, true},
    {"a count without a pointer goes out with both cleared", false, 0, 16, true},
    {"neither", false, 0, 0, true},
    {"both keep their count", true, 0, 16, false},
};

TEST_F(AddrTest, AFamilyWriteCopiesTheFilterAndSettlesItsVariableData) {
  for (const FilterRow &r : kFilterRows) {
    SCOPED_TRACE(r.what);
    iffilter filter{};
    filter.iffl_f1 = 7;
    const uint32_t addr =
        r.with_data ? static_cast<uint32_t>(reinterpret_cast<uintptr_t>(g_filter_data)) : r.addr;
    memcpy(filter.iffl_f29, &addr, 4);
    memcpy(filter.iffl_f29 + 4, &r.count, 4);
    EXPECT_EQ(tarvik_iffm_update(c, 70, TLK_AF_INET, 0x11, 0x22, 0x33, &filter, TLK_OP_CHANGE), 0);
    auto req = last_request_as<iff_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->iffm_filter_len, TLK_IFF_FILTER_LEN);
    EXPECT_EQ(req->iffm_filter.iffl_f1, 7u);
    EXPECT_EQ(get_u32(req->iffm_filter.iffl_f29, 4), r.cleared ? 0u : r.count);
    if (r.cleared) {
      EXPECT_EQ(get_u32(req->iffm_filter.iffl_f29, 0), 0u);
    } else {
      EXPECT_NE(get_u32(req->iffm_filter.iffl_f29, 0), 0u);
    }
    const tarsim::Iff *f = kernel.iffs().find(70, TLK_AF_INET);
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(f->flags, 0x11u);
    EXPECT_EQ(f->word, 0x22u);
    EXPECT_EQ(f->short_value, 0x33u);
    EXPECT_EQ(f->filter_len, TLK_IFF_FILTER_LEN);
  }
  // Without a filter nothing of one travels.
  EXPECT_EQ(tarvik_iffm_update(c, 70, TLK_AF_INET, 0, 0, 0, nullptr, TLK_OP_CHANGE), 0);
  EXPECT_EQ(kernel.iffs().find(70, TLK_AF_INET)->filter_len, 0);
}

// ---- Family statistics -------------------------------------------------------------------

TEST_F(AddrTest, FamilyStatisticsAreARawFortyEightByteRead) {
  tarsim::Iff f = *kernel.iffs().find(80, TLK_AF_INET6);
  f.vpls_packets = 1234;
  f.vpls_bytes = 99999;
  kernel.iffs().add(f);
  void *out = nullptr;
  ASSERT_EQ(tarvik_iffsm_get_by_index(c, 80, TLK_AF_INET6, 9, TLK_OP_GET, &out), 0);
  const Bytes req = last_sent(kernel);
  ASSERT_EQ(req.size(), 48u);
  Bytes want(48, 0);
  want[4] = 'd';
  want[5] = TLK_MSG_IFF_VPLS_STATS;
  want[6] = TLK_OP_GET;
  put_u32(want, 8, 48);
  put_u32(want, 12, c->seq);
  want[20] = 48;
  put_u32(want, 32, 80);
  want[38] = 9;
  want[41] = TLK_AF_INET6;
  EXPECT_EQ(req, want);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(get_u32(out, 8), 64u);
  EXPECT_EQ(get_u64(out, 48), 1234u);
  EXPECT_EQ(get_u64(out, 56), 99999u);
  tarvik_msg_free(c, out);
}

TEST_F(AddrTest, FamilyStatisticsFailuresLeaveNullOut) {
  kernel.no_reply(TLK_MSG_IFF_VPLS_STATS, TLK_OP_GET);
  void *out = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_iffsm_get_by_index(c, 80, TLK_AF_INET6, 0, TLK_OP_GET, &out), EAGAIN);
  EXPECT_EQ(out, nullptr);
  out = reinterpret_cast<void *>(1);
  kernel.inject_write_errno(ENOBUFS);
  EXPECT_EQ(tarvik_iffsm_get_by_index(c, 80, TLK_AF_INET6, 0, TLK_OP_GET, &out), ENOBUFS);
  EXPECT_EQ(out, nullptr);
}

// Fails the n-th message block from now (1 is the next), passing the others through.
void *(*g_real_malloc)(unsigned, size_t) = nullptr;
int g_blocks_to_failure = 0;
void *failing_malloc(unsigned memid, size_t size) {
  if (memid == MEMID_TARVIK_MSG && --g_blocks_to_failure == 0) return nullptr;
  return g_real_malloc(memid, size);
}

TEST_F(AddrTest, FamilyStatisticsWithoutMemory) {
  const struct {
    const char *what;
    int fail_at;
    bool out_untouched;
  } rows[] = {
      {"no reply block: the caller's word stays", 1, true},
      {"no request block: out is null and the reply block is freed", 2, false},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    g_real_malloc = tarvik_malloc;
    g_blocks_to_failure = r.fail_at;
    tarvik_malloc = failing_malloc;
    void *out = reinterpret_cast<void *>(1);
    const int err = tarvik_iffsm_get_by_index(c, 80, TLK_AF_INET6, 0, TLK_OP_GET, &out);
    tarvik_malloc = g_real_malloc;
    EXPECT_EQ(err, ENOMEM);
    EXPECT_EQ(out, r.out_untouched ? reinterpret_cast<void *>(1) : nullptr);
    EXPECT_EQ(sent_count(kernel), 0u);
  }
}

// ---- Notifications -----------------------------------------------------------------------

// Family and address notifications heard by a session: type, op and index of each.
struct Heard {
  struct Entry {
    uint8_t type, op;
    uint32_t iflidx;
  };
  std::vector<Entry> entries;
  static int handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    const auto &h = *static_cast<const tlk_hdr *>(msg);
    const uint32_t idx =
        h.tlkh_type == TLK_MSG_IFADDR ? ifa(msg).ifam_iflidx.idx : iff(msg).iffm_iflidx.idx;
    static_cast<Heard *>(arg)->entries.push_back({h.tlkh_type, h.tlkh_op, idx});
    tarvik_msg_idl_release(cookie, msg, nullptr);
    return 0;
  }
};

TEST_F(AddrTest, ListenersHearFamilyAndAddressChanges) {
  Heard heard;
  tarvik_cookie *l = open_session(8);
  ASSERT_EQ(tarvik_set_async_info_nocontext(l, nullptr), 0);
  ASSERT_EQ(tarvik_iffm_async_register(l, 1, &heard, Heard::handler), 0);
  ASSERT_EQ(tarvik_ifam_async_register(l, 1, &heard, Heard::handler), 0);

  // The kernel gives the donor a new address; the borrower's family loses its donor.
  tarsim::Ifa a;
  a.iflidx = 16;
  a.af = TLK_AF_INET;
  a.local = tarsim::ifa_inet(0xC0000202, 32);
  kernel.ifas().create(a);
  ASSERT_TRUE(kernel.iffs().set_donor(72, TLK_AF_INET, 0));
  ASSERT_TRUE(kernel.ifas().destroy(a));
  // A session's own write: the others hear it.
  const uint8_t host[] = {10, 0, 100, 77};
  ASSERT_EQ(tarvik_ifam_update(c, 71, TLK_AF_INET, nullptr, 0, host, 32, TLK_OP_ADD), 0);
  ASSERT_EQ(tarvik_iffm_update(c, 71, TLK_AF_INET6, 0, 0, 0, nullptr, TLK_OP_ADD), 0);
  ASSERT_EQ(tarvik_iffm_update(c, 71, TLK_AF_INET6, 0, 0, 0, nullptr, TLK_OP_DELETE), 0);
  drain(l);

  const std::vector<std::tuple<uint8_t, uint8_t, uint32_t>> want = {
      {TLK_MSG_IFADDR, TLK_OP_ADD, 16},    {TLK_MSG_IFFAMILY, TLK_OP_CHANGE, 72},
      {TLK_MSG_IFADDR, TLK_OP_DELETE, 16}, {TLK_MSG_IFADDR, TLK_OP_ADD, 71},
      {TLK_MSG_IFFAMILY, TLK_OP_ADD, 71},  {TLK_MSG_IFFAMILY, TLK_OP_DELETE, 71},
  };
  std::vector<std::tuple<uint8_t, uint8_t, uint32_t>> got;
  for (const auto &e : heard.entries) got.emplace_back(e.type, e.op, e.iflidx);
  EXPECT_EQ(got, want);
  EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "the writer hears nothing";
  EXPECT_EQ(kernel.iffs().find(71, TLK_AF_INET6), nullptr) << "added and deleted";
  tarvik_close(l);
}

// The kernel's refusal is a raw "tlk-err" with the request's sequence number: a raw read takes it
// as the reply, and the caller reads the refusal in it.
TEST_F(AddrTest, AnUnknownFamilyStatisticsKeyIsAnsweredWithTheRefusal) {
  void *out = nullptr;
  ASSERT_EQ(tarvik_iffsm_get_by_index(c, 4242, TLK_AF_INET, 0, TLK_OP_GET, &out), 0);
  ASSERT_NE(out, nullptr);
  const auto *msg = static_cast<const uint8_t *>(out);
  EXPECT_EQ(msg[5], TLK_MSG_TLK_ERR);
  EXPECT_EQ(get_u32(msg, 12), c->seq);
  tarsim::TlkErr body;
  memcpy(&body, msg + TLK_RAW_HDR_LEN, sizeof body);
  EXPECT_EQ(body.rtm_type, TLK_MSG_IFF_VPLS_STATS);
  EXPECT_EQ(body.final_err, uint32_t{ENOENT});
  tarvik_msg_free(c, out);
}

}  // namespace
}  // namespace tlktest
