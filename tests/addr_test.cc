// Families and addresses against the simulated kernel: how prefixes are packed, the address and
// family writes and what listeners hear of them, the point change, the raw family statistics, and
// the unnumbered borrower.  The reads every family repeats are rows of the family suite.
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <tuple>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

Bytes bytes_of(const prefix &p) {
  return p.prefix ? Bytes(p.prefix, p.prefix + p.prefix_len) : Bytes{};
}
void *const kPoison = reinterpret_cast<void *>(1);

class AddrTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
  }
};

// A prefix goes out in whole words behind the record, its (bits + 7) / 8 bytes copied and the rest
// zero, the destination's before the local prefix's.
TEST_F(AddrTest, AddressReadsPackTheirPrefixesDestinationFirst) {
  const Bytes local = {0x1A, 0x1B, 0x1C, 0x1D};
  const struct {
    uint32_t plen;
    Bytes given, sent;
  } rows[] = {
      {17, {0xAB, 0xCD, 0xEF, 0x77}, {0xAB, 0xCD, 0xEF, 0x00}},
      {0, {1, 2, 3, 4}, {}},
      {33, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3, 4, 5, 0, 0, 0}},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.plen);
    void *m = nullptr;
    EXPECT_EQ(tarvik_ifam_get_by_local_dest(c, 4242, TLK_AF_INET, r.given.data(), r.plen,
                                            local.data(), 32, TLK_OP_GET, &m, nullptr),
              EOPNOTSUPP);
    auto req = last_request_as<ifa_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->ifam_dest.plen, r.plen);
    EXPECT_EQ(bytes_of(req->ifam_dest), r.sent);
    const Bytes wire = last_sent(kernel);
    const auto at = [&](const Bytes &b) {
      return std::search(wire.begin(), wire.end(), b.begin(), b.end());
    };
    EXPECT_LT(at(r.sent), at(local));
    EXPECT_NE(at(local), wire.end());
  }
  // A length the record can't carry, or one without bytes, is refused unsent.
  kernel.clear_recorded();
  const Bytes big(8192, 1);
  void *m = nullptr;
  EXPECT_EQ(
      tarvik_ifam_get_by_dest(c, 70, TLK_AF_INET, big.data(), 0x10000, TLK_OP_GET, &m, nullptr),
      EINVAL);
  EXPECT_EQ(tarvik_ifam_get_by_local(c, 70, TLK_AF_INET, nullptr, 32, TLK_OP_GET, &m, nullptr),
            EINVAL);
  EXPECT_EQ(sent_count(kernel), 0u);
}

// Address and family writes draw a number each and go unanswered; the store changes, and the other
// sessions hear them.
TEST_F(AddrTest, WritesGoUnansweredAndListenersHearThem) {
  using Heard = std::vector<std::pair<uint8_t, uint8_t>>;
  const tarvik_async_handler_t handler = [](tarvik_cookie *l, void *arg, void *msg, uintptr_t) {
    const auto &h = *static_cast<const tlk_hdr *>(msg);
    static_cast<Heard *>(arg)->emplace_back(h.tlkh_type, h.tlkh_op);
    tarvik_msg_idl_release(l, msg, nullptr);
    return 0;
  };
  Heard heard;
  tarvik_cookie *l = open_session(8);
  ASSERT_EQ(tarvik_set_async_info_nocontext(l, nullptr), 0);
  ASSERT_EQ(tarvik_iffm_async_register(l, 1, &heard, handler), 0);
  ASSERT_EQ(tarvik_ifam_async_register(l, 1, &heard, handler), 0);
  const uint8_t net[] = {10, 7, 0, 0}, host[] = {10, 7, 0, 9};
  const tarsim::Ifa key{.iflidx = 71,
                        .af = TLK_AF_INET,
                        .dest = tarsim::ifa_prefix(net, 16),
                        .local = tarsim::ifa_prefix(host, 32),
                        .attachments = {}};
  const uint32_t seq = c->seq;
  Heard want;
  for (uint32_t op : {TLK_OP_ADD, TLK_OP_CHANGE, TLK_OP_DELETE}) {
    EXPECT_EQ(tarvik_ifam_update(c, 71, TLK_AF_INET, net, 16, host, 32, op), 0);
    EXPECT_EQ(kernel.ifas().find(key) != nullptr, op != TLK_OP_DELETE) << op;
    want.emplace_back(TLK_MSG_IFADDR, op);
  }
  for (uint32_t op : {TLK_OP_ADD, TLK_OP_DELETE}) {
    EXPECT_EQ(tarvik_iffm_update(c, 71, TLK_AF_INET6, 0, 0, 0, nullptr, op), 0);
    want.emplace_back(TLK_MSG_IFFAMILY, op);
  }
  EXPECT_EQ(c->seq, seq + 5) << "a number for each write";
  EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "nothing answers the writer";
  drain(l);
  EXPECT_EQ(heard, want);
  tarvik_close(l);
}

// One input record: u16 type, u16 length with its 4 header bytes, data, padding the walk skips.
Bytes record(uint16_t type, const Bytes &data) {
  Bytes r = cat({{static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8),
                  static_cast<uint8_t>(data.size() + 4), 0},
                 data});
  r.resize((r.size() + 3) / 4 * 4, 0xEE);
  return r;
}

TEST_F(AddrTest, APointChangeTurnsEachRecordIntoAnInlineAttachment) {
  const uint8_t host[] = {10, 0, 0, 1};
  const Bytes one = record(189, {7});
  const uint32_t seq = c->seq;
  EXPECT_EQ(tarvik_ifa_pointchange(c, 70, TLK_AF_INET, host, 0, one.data(), 8), EINVAL);
  EXPECT_EQ(tarvik_ifa_pointchange(c, 70, TLK_AF_INET, host, 32, nullptr, 8), EINVAL);
  EXPECT_EQ(tarvik_ifa_pointchange(c, 70, TLK_AF_INET, host, 32, one.data(), 0), EINVAL);
  EXPECT_EQ(sent_count(kernel), 0u);
  EXPECT_EQ(c->seq, seq) << "a refused change draws no number";

  const tarsim::Ifa key = kernel.ifas().of(70, TLK_AF_INET).at(0);
  const struct {
    const char *what;
    Bytes records;
    uint32_t run_len;
    std::vector<uint32_t> selectors;
  } rows[] = {
      {"the walk ends at a length of 0", cat({one, Bytes(4, 0), record(190, {1})}), 20, {189}},
      {"every type alike", cat({one, record(500, {1, 2, 3, 4})}), 16, {189, 500}},
      {"the walk ends at the records length", cat({one, record(190, {1})}), 8, {189}},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(tarvik_ifa_pointchange(c, 70, TLK_AF_INET, host, 32, r.records.data(), r.run_len), 0);
    auto req = last_request_as<ifa_msg>();
    ASSERT_NE(req, nullptr);
    ASSERT_EQ(req->ifam_hdr.tlkh_info_len, r.selectors.size());
    EXPECT_EQ(req->ifam_hdr.tlkh_info[0]->tlkmi_u.if_tos.it_value, 7) << "data from the third word";
    EXPECT_EQ(kernel.ifas().find(key)->attachments, r.selectors);
  }
}

// A read by device name keys on the name and the unit, with index 0; replies of families and
// addresses are read into one message block, so a longer one is not taken.
TEST_F(AddrTest, FamilyAndAddressReadsSendTheirKeysAndTakeOneBlock) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_iffm_get_by_dev_name(c, TLK_AF_INET, "xe0", 200, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(static_cast<const iff_msg *>(m)->iffm_iflidx.idx, 81u);
  tarvik_msg_idl_release(c, m, nullptr);
  auto req = last_request_as<iff_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->iffm_unit, 200u);
  EXPECT_EQ(req->iffm_iflidx.idx, 0u);

  kernel.inject_reply_extra(TLK_MSG_BUF_SIZE);
  EXPECT_EQ(tarvik_iffm_get_by_index(c, 70, TLK_AF_INET, TLK_OP_GET, &m, nullptr), EIO);
  kernel.inject_reply_extra(TLK_MSG_BUF_SIZE);
  EXPECT_EQ(tarvik_ifam_get_by_index(c, 70, TLK_AF_INET, TLK_OP_GET, &m, nullptr), EIO);
  EXPECT_EQ(m, nullptr);
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

uint8_t g_filter_data[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

// The filter's last two words name its variable data, an address word and a count: with both the
// count goes out (and the bytes with it), with either missing both go out cleared.
TEST_F(AddrTest, AFamilyWriteCopiesTheFilterAndSettlesItsVariableData) {
  const struct {
    uint32_t addr, count;
    bool cleared;
  } rows[] = {{0x1234, 0, true},
              {0, 16, true},
              {static_cast<uint32_t>(reinterpret_cast<uintptr_t>(g_filter_data)), 16, false}};
  for (const auto &r : rows) {
    SCOPED_TRACE(testing::Message() << r.addr << " " << r.count);
    iffilter filter{};
    filter.iffl_f1 = 7;
    memcpy(filter.iffl_f29, &r.addr, 4);
    memcpy(filter.iffl_f29 + 4, &r.count, 4);
    EXPECT_EQ(
        tarvik_iffm_update(c, 70, TLK_AF_INET, 0x100000011, 0x22, 0x33, &filter, TLK_OP_CHANGE), 0);
    auto req = last_request_as<iff_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->iffm_filter_len, TLK_IFF_FILTER_LEN);
    EXPECT_EQ(req->iffm_filter.iffl_f1, 7u);
    EXPECT_EQ(get_u32(req->iffm_filter.iffl_f29, 4), r.cleared ? 0u : r.count);
    EXPECT_EQ(get_u32(req->iffm_filter.iffl_f29, 0) == 0, r.cleared);
  }
  const tarsim::Iff *f = kernel.iffs().find(70, TLK_AF_INET);
  ASSERT_NE(f, nullptr);
  EXPECT_EQ(std::tuple(f->flags, f->word, f->short_value),
            std::tuple(uint64_t{0x100000011}, 0x22u, uint16_t{0x33}));
  EXPECT_EQ(tarvik_iffm_update(c, 70, TLK_AF_INET, 0, 0, 0, nullptr, TLK_OP_CHANGE), 0);
  EXPECT_EQ(kernel.iffs().find(70, TLK_AF_INET)->filter_len, 0)
      << "without a filter nothing of one travels";
}

TEST_F(AddrTest, FamilyStatisticsAreARawReadThatTakesItsBlocksReplyFirst) {
  void *out = nullptr;
  const auto stats = [&](uint32_t index, uint8_t af, uint8_t type) {
    return tarvik_iffsm_get_by_index(c, index, af, type, TLK_OP_GET, &out);
  };
  ASSERT_EQ(stats(80, TLK_AF_INET6, 9), 0);
  // clang-format off
  Bytes want = {0, 0, 0, 0, 'd', TLK_MSG_IFF_VPLS_STATS, TLK_OP_GET, 0, 48, 0, 0, 0, 0, 0, 0, 0,
                0, 0, 0, 0, 48, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                80, 0, 0, 0, 0, 0, 9, 0, 0, TLK_AF_INET6, 0, 0, 0, 0, 0, 0};  // 16 bytes a line
  // clang-format on
  put_u32(want, 12, c->seq);
  EXPECT_EQ(last_sent(kernel), want);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(get_u32(out, 8), 64u) << "the reply, not the request";
  tarvik_msg_free(c, out);

  // An unknown key is answered by the kernel's raw refusal, which the read takes as the reply.
  ASSERT_EQ(stats(4242, TLK_AF_INET, 0), 0);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(static_cast<const uint8_t *>(out)[5], TLK_MSG_TLK_ERR);
  EXPECT_EQ(get_u32(out, TLK_RAW_HDR_LEN + offsetof(tarsim::TlkErr, final_err)), uint32_t{ENOENT});
  tarvik_msg_free(c, out);

  kernel.clear_recorded();
  out = kPoison;
  fail_msg_block(1);
  EXPECT_EQ(stats(80, TLK_AF_INET6, 0), ENOMEM);
  EXPECT_EQ(out, kPoison) << "no reply block: the caller's word stays";
  fail_msg_block(2);
  EXPECT_EQ(stats(80, TLK_AF_INET6, 0), ENOMEM);
  EXPECT_EQ(out, nullptr) << "no request block: the reply block is freed too";
  EXPECT_EQ(sent_count(kernel), 0u);
}

}  // namespace
}  // namespace tlktest
