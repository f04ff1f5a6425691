// Routes against the simulated kernel: how prefixes, gateways and opaque blocks are packed, the
// acknowledged add, the read rule of the gets, the forwarding interface of a match, what
// listeners hear, and the simulated kernel's longest match against a brute-force reference.
// The reads every family repeats are rows of the family suite.
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

void *const kPoison = reinterpret_cast<void *>(1);
constexpr uint16_t kTid = 7;  // a table of the tests' own, empty at the start

// The `n` bytes at `p`; none for a null pointer.
Bytes bytes(const uint8_t *p, size_t n) {
  return p ? Bytes(p, p + n) : Bytes{};
}

int add(tarvik_cookie *c, uint32_t af, const uint8_t *prefix, uint32_t plen,
        uint32_t *ack = nullptr, const uint8_t *gateway = nullptr, uint32_t opaque_type = 0,
        const void *opaque = nullptr, uint32_t nhidx = 0) {
  return tarvik_rtm_add(c, kTid, af, 1, 0x10, 2, 0x20, 4, 0, 71, nhidx, opaque_type, opaque, prefix,
                        plen, gateway, ack);
}

class RtmTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
  }
};

// Every length from 0 to 128 bits: whole words on the wire, the first (plen + 7) / 8 bytes as the
// caller gave them (no masking of the last byte's spare bits), the rest zero.  A get with length 0
// sends no prefix; an add always carries one, and a delete by prefix packs it as the add did.  A
// route match packs its destination the same way, up to 128 bits in a record of its own and
// beyond that (a caller's odd length) in a message block.
TEST_F(RtmTest, PrefixesArePackedInWholeWordsAtEveryLength) {
  uint8_t given[20];
  for (size_t i = 0; i < sizeof given; ++i) given[i] = static_cast<uint8_t>(0xF1 + i);
  for (uint32_t plen = 0; plen <= 160; ++plen) {
    SCOPED_TRACE(plen);
    Bytes want(given, given + (plen + 7) / 8);
    want.resize((plen + 31) / 32 * 4, 0);
    void *m = kPoison;
    (void)tarvik_rtmatch_by_prefix(c, kTid, TLK_AF_INET6, 0, given, plen, &m, nullptr);
    if (m != nullptr) tarvik_msg_idl_release(c, m, nullptr);
    auto match = last_request_as<rtm_msg>();
    ASSERT_NE(match, nullptr);
    EXPECT_EQ(match->prefix.plen, plen);
    EXPECT_EQ(bytes(match->prefix.prefix, match->prefix.prefix_len), want);
    if (plen > 128) continue;
    ASSERT_EQ(add(c, TLK_AF_INET6, given, plen), 0);
    auto req = last_request_as<rt_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->plen, plen);
    EXPECT_EQ(bytes(req->prefix, req->prefix_len), want);
    ASSERT_NE(kernel.routes().find(kTid, TLK_AF_INET6, given, static_cast<uint16_t>(plen)),
              nullptr);
    m = kPoison;
    (void)tarvik_rtm_get(c, kTid, TLK_AF_INET6, given, plen, 0, 0, 0, 0, TLK_OP_GET, &m, nullptr);
    if (m != nullptr) tarvik_msg_idl_release(c, m, nullptr);
    auto get = last_request_as<rt_msg>();
    ASSERT_NE(get, nullptr);
    EXPECT_EQ(bytes(get->prefix, get->prefix_len), want);
    ASSERT_EQ(tarvik_rtm_delete_prefix(c, kTid, TLK_AF_INET6, 1, 0, given, plen, 0), 0);
    auto del = last_request_as<rt_msg>();
    ASSERT_NE(del, nullptr);
    EXPECT_EQ(bytes(del->prefix, del->prefix_len), want);
    EXPECT_EQ(kernel.routes().count(kTid, TLK_AF_INET6), 0u);
  }
}

// What an add fills besides the prefix, and the gateway and opaque block behind it.
TEST_F(RtmTest, AnAddCarriesItsFieldsGatewayAndOpaqueBlock) {
  const uint8_t net[] = {10, 9, 0, 0};
  const uint8_t gw[16] = {16, TLK_AF_INET, 0, 0, 10, 9, 0, 1};
  const uint8_t no_gw[16] = {0, TLK_AF_INET, 0, 0, 10, 9, 0, 1};
  rt_cookie_info ck{};
  ck.rtci_cookie = 0x1122334455667788ull;
  rt_opaque_info info{};
  info.roi_type = 20;
  info.roi_data = &ck;
  Bytes cookie_tlv(tlv_encode_rt_opaque_info_0(&info, nullptr, nullptr, 0));
  ASSERT_GT(cookie_tlv.size(), 12u);
  (void)tlv_encode_rt_opaque_info_0(&info, nullptr, cookie_tlv.data(),
                                    static_cast<uint32_t>(cookie_tlv.size()));
  const uint64_t garbage = ~0ull;
  const struct {
    const char *what;
    const uint8_t *gateway;
    uint32_t opaque_type;
    const void *opaque;
    uint32_t gateways;
    Bytes opaque_sent;
  } rows[] = {
      {"plain", nullptr, 0, nullptr, 0, {}},
      {"gateway", gw, 0, nullptr, 1, {}},
      {"gateway of length 0", no_gw, 20, &ck, 0, cookie_tlv},
      {"opaque type 0 ignores its data", gw, 0, &garbage, 1, {}},
      {"opaque of a selector without a body",
       nullptr,
       7,
       &garbage,
       0,
       {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}},  // the head alone, in network order
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    ASSERT_EQ(add(c, TLK_AF_INET, net, 16, nullptr, r.gateway, r.opaque_type, r.opaque), 0);
    auto req = last_request_as<rt_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->rt_hdr.tlkh_op, TLK_OP_ADD);
    EXPECT_EQ(req->nhflags, 0x20u);
    EXPECT_EQ(req->rnh_info.rnhi_type, 4u);
    ASSERT_EQ(req->gateway_count, r.gateways);
    if (r.gateways == 1) {
      EXPECT_EQ(bytes(req->gateway[0].sai_addr, 16), bytes(gw, 16));
    }
    const bool opaque = r.opaque_type != 0;
    EXPECT_EQ(req->opaque_kind, opaque ? 9 : 0);
    EXPECT_EQ(req->dflags, opaque ? 0x7FFE : 0);
    EXPECT_EQ(bytes(req->opaque, req->opaque_len), r.opaque_sent);
  }
}

// The acknowledged add is op add_get with req_ack and reads the index back; a failed read is
// reported and returned with the caller's slot untouched; a failed write reads nothing.
TEST_F(RtmTest, TheAcknowledgedAddReadsTheIndexBack) {
  const uint8_t a[] = {10, 20, 0, 0}, d[] = {10, 22, 0, 0};
  uint32_t index = 0;
  ASSERT_EQ(add(c, TLK_AF_INET, a, 16, &index), 0);
  auto req = last_request_as<rt_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->rt_hdr.tlkh_op, TLK_OP_ADD_GET);
  EXPECT_EQ(req->rt_hdr.tlkh_flags, 2);
  const tarsim::Route *r = kernel.routes().find(kTid, TLK_AF_INET, a, 16);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(index, r->index);

  const struct {
    const char *what;
    void (*fault)(tarsim::Kernel &);
    int err;
    bool logged;
  } rows[] = {
      {"failed read", [](tarsim::Kernel &k) { k.inject_read_errno(EIO); }, EIO, true},
      {"failed write", [](tarsim::Kernel &k) { k.inject_write_errno(ENOBUFS); }, ENOBUFS, false},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    log.lines.clear();
    uint32_t kept = 0xABCD;
    row.fault(kernel);
    EXPECT_EQ(add(c, TLK_AF_INET, d, 16, &kept), row.err);
    EXPECT_EQ(kept, 0xABCDu);
    EXPECT_EQ(log.contains(" failed to get route add ack index\n"), row.logged);
    EXPECT_EQ(log.count(TLK_LEVEL_ERROR), row.logged ? 1u : 0u);
    drain(c);
  }
}

// The read rule of the gets: get and getnext need an out pointer and read one reply, any other op
// is written and nothing is read.  The forms without a table send table 0.
TEST_F(RtmTest, GetsReadOnlyForGetAndGetnext) {
  const uint8_t net[] = {10, 0, 0, 0};
  EXPECT_EQ(
      tarvik_rtm_get(c, 0, TLK_AF_INET, net, 24, 0, 0, 0, 0, TLK_OP_GETNEXT, nullptr, nullptr),
      EINVAL);
  void *m = kPoison;
  EXPECT_EQ(tarvik_rtm_get(c, 0, TLK_AF_INET, net, 24, 0, 0, 0, 0, TLK_OP_DELETE, &m, nullptr), 0);
  EXPECT_EQ(kernel.routes().find(0, TLK_AF_INET, net, 24), nullptr) << "the delete went out";
  EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "and nothing answered or was read";

  tarsim::Route user = tarsim::route_inet(0, 0xC6336400, 24);
  user.type = 1;
  kernel.routes().add(user);
  m = nullptr;
  ASSERT_EQ(tarvik_rtm_get_by_type(c, TLK_AF_INET, 1, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(static_cast<rt_msg *>(m)->type, 1);
  auto req = last_request_as<rt_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->tid, 0);
  EXPECT_EQ(req->prefix_len, 0u) << "no prefix";

  // The caller's record goes out again with the new op; the _pa form decodes into the caller's
  // area, and, reading as its long read does, takes the kernel's refusal at the end of the table
  // for 0 with nothing read.
  rt_msg *last = static_cast<rt_msg *>(m);
  alignas(8) uint8_t area[4096];
  void *again = nullptr;
  ASSERT_EQ(tarvik_rtm_get_with_msg_pa(c, last, TLK_OP_GET, &again, nullptr, area, sizeof area), 0);
  EXPECT_GE(static_cast<uint8_t *>(again), area);
  EXPECT_LT(static_cast<uint8_t *>(again), area + sizeof area);
  void *copy = nullptr;
  ASSERT_EQ(tarvik_rtm_get_with_msg(c, last, TLK_OP_GET, &copy, nullptr), 0);
  EXPECT_EQ(static_cast<rt_msg *>(copy)->type, 1);
  tarvik_msg_idl_release(c, copy, nullptr);
  void *past = kPoison;
  EXPECT_EQ(tarvik_rtm_get_with_msg_pa(c, last, TLK_OP_GETNEXT, &past, nullptr, area, sizeof area),
            0);
  EXPECT_EQ(past, nullptr);
  EXPECT_EQ(last->rt_hdr.tlkh_seq, c->seq) << "a fresh number in the caller's record";
  EXPECT_EQ(tarvik_rtm_get_with_msg(c, last, TLK_OP_GET, nullptr, nullptr), EINVAL);

  // The delete of a record in hand.
  ASSERT_EQ(tarvik_rtm_delete(c, last), 0);
  EXPECT_EQ(kernel.routes().find(0, TLK_AF_INET, user.prefix, 24), nullptr);
  tarvik_msg_idl_release(c, m, nullptr);
}

// A multicast group goes out in whole words, its byte length masked to 14 bits and its bit count
// cut to 16; a count of 0 sends no group.  The record is version 'c' of type 13.
TEST_F(RtmTest, AMulticastGroupGoesInWholeWordsWithItsLengthMasked) {
  const uint8_t group[16] = {0xff, 0x02, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x01, 0, 0x03};
  const struct {
    uint32_t bits;
    uint16_t plen;
    uint32_t len;
  } rows[] = {{0, 0, 0}, {33, 33, 8}, {128, 128, 16}, {0x20020, 32, 4}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.bits);
    void *m = kPoison;
    (void)tarvik_mgrm_get(c, 0, TLK_AF_INET6, group, r.bits, TLK_OP_GET, &m, nullptr);
    if (m != nullptr) tarvik_msg_idl_release(c, m, nullptr);
    auto req = last_request_as<mgr_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->group.plen, r.plen);
    EXPECT_EQ(bytes(req->group.prefix, req->group.prefix_len), bytes(group, r.len));
  }
}

// A route match whose route has no next hop gives -1 and leaves the reply with the caller.
TEST_F(RtmTest, TheForwardingInterfaceOfARouteWithoutNextHopIsMinusOne) {
  const uint8_t dst[] = {10, 1, 0, 9};
  void *m = nullptr;
  EXPECT_EQ(tarvik_rtmatch_fwding_nh_ifindex(c, 0, TLK_AF_INET, 0, dst, 32, &m, nullptr), -1);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(static_cast<rt_msg *>(m)->plen, 24);
  tarvik_msg_idl_release(c, m, nullptr);
  const uint8_t nowhere[] = {192, 0, 2, 200};
  EXPECT_EQ(tarvik_rtmatch_fwding_nh_ifindex(c, 0, TLK_AF_INET, 0, nowhere, 32, &m, nullptr),
            EOPNOTSUPP)
      << "a failed match is returned as it is";
  EXPECT_EQ(m, nullptr);
}

// The forwarding interface: the next hop's ifidx, else for a next hop of sub_kind 1 the first
// attachment 0x2000018.  The kernel's answers are played by the test: the matched route (next hop
// 42), then the next hop.
TEST_F(RtmTest, TheForwardingInterfaceComesFromTheNextHop) {
  const struct {
    const char *what;
    uint32_t ifidx;
    uint8_t sub_kind;
    std::vector<std::pair<uint32_t, uint32_t>> attachments;  // (selector, value)
    bool refused;
    int result;
    uint32_t want;
  } rows[] = {
      {"interface index", 83, 0, {}, false, 0, 83},
      {"index 0, sub_kind 1: the first such attachment",
       0,
       1,
       {{0x2000004, 5}, {0x2000018, 91}, {0x2000018, 92}},
       false,
       0,
       91},
      {"index 0, another sub_kind: no search", 0, 0, {{0x2000018, 91}}, false, 0, 0},
      {"the next hop refused", 0, 0, {}, true, -1, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    int frames = 0;
    kernel.on_frame([&](tarsim::Kernel &k, int fd, std::span<const uint8_t>) {
      if (frames++ == 0) {
        rt_msg r{};
        r.rt_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_ROUTE];
        r.rt_hdr.tlkh_type = TLK_MSG_ROUTE;
        r.rt_hdr.tlkh_op = TLK_OP_GET;
        r.af = TLK_AF_INET6;
        r.nhidx.idx = 42;
        k.send(fd, frame_of(c, &r));
        return;
      }
      if (row.refused) {
        k.send(fd, tarsim::raw_message(TLK_MSG_TLK_ERR, TLK_OP_GET, c->seq));
        return;
      }
      rnh_msg nh{};
      nh.rnh_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_NEXTHOP];
      nh.rnh_hdr.tlkh_type = TLK_MSG_NEXTHOP;
      nh.rnh_hdr.tlkh_op = TLK_OP_GET;
      nh.ifidx.idx = row.ifidx;
      nh.sub_kind = row.sub_kind;
      std::vector<tlk_msg_info> infos(row.attachments.size());
      std::vector<tlk_msg_info *> list;
      for (size_t i = 0; i < infos.size(); ++i) {
        infos[i].tlkmi_type = row.attachments[i].first;
        infos[i].tlkmi_u.tlk_msg_info_u32.value = row.attachments[i].second;
        list.push_back(&infos[i]);
      }
      nh.rnh_hdr.tlkh_info = list.empty() ? nullptr : list.data();
      nh.rnh_hdr.tlkh_info_len = static_cast<uint32_t>(list.size());
      k.send(fd, frame_of(c, &nh));
    });
    const uint8_t dst[16] = {0x20, 0x01, 0x0d, 0xb8};
    void *m = nullptr;
    EXPECT_EQ(tarvik_rtmatch_fwding_nh_ifindex(c, 0, TLK_AF_INET6, 0, dst, 128, &m, nullptr),
              row.result);
    ASSERT_NE(m, nullptr) << "the match reply stays with the caller";
    EXPECT_EQ(static_cast<rt_msg *>(m)->rtm_idx.idx, row.want);
    auto req = last_request_as<rnh_msg>();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->idx.idx, 42u);
    EXPECT_EQ(req->af, TLK_AF_INET6) << "the family of the match reply";
    tarvik_msg_idl_release(c, m, nullptr);
    kernel.on_frame(nullptr);
    drain(c);
  }
}

// Another session hears an add and a delete as routes, with their op and length.
TEST_F(RtmTest, ListenersHearAddsAndDeletes) {
  using Heard = std::vector<std::pair<uint8_t, uint16_t>>;
  const tarvik_async_handler_t handler = [](tarvik_cookie *l, void *arg, void *msg, uintptr_t) {
    const auto &r = *static_cast<const rt_msg *>(msg);
    static_cast<Heard *>(arg)->emplace_back(r.rt_hdr.tlkh_op, r.plen);
    tarvik_msg_idl_release(l, msg, nullptr);
    return 0;
  };
  Heard heard;
  tarvik_cookie *l = open_session(8);
  ASSERT_EQ(tarvik_set_async_info_nocontext(l, nullptr), 0);
  ASSERT_EQ(tarvik_rtm_async_register(l, &heard, handler), 0);
  const uint8_t net[] = {10, 30, 0, 0};
  ASSERT_EQ(add(c, TLK_AF_INET, net, 15), 0);
  ASSERT_EQ(tarvik_rtm_delete_prefix(c, kTid, TLK_AF_INET, 1, 0, net, 15, 0), 0);
  drain(l);
  EXPECT_EQ(heard, (Heard{{TLK_OP_ADD, 15}, {TLK_OP_DELETE, 15}}));
  tarvik_close(l);
}

struct RefRoute {
  uint16_t plen;
  uint8_t bytes[16];
};

bool covers(const RefRoute &r, const uint8_t *addr) {
  for (unsigned i = 0; i < r.plen; ++i) {
    const unsigned b = 7 - i % 8;
    if (((r.bytes[i / 8] ^ addr[i / 8]) >> b) & 1) return false;
  }
  return true;
}

// Random tables in both families: every match agrees with a brute-force search, before and after
// a third of the routes are deleted, and a getnext walk gives the table in prefix order.
TEST_F(RtmTest, MatchAgreesWithABruteForceSearchOverRandomTables) {
  kernel.record(false);
  std::mt19937 rng(20261123);
  for (const uint32_t af : {uint32_t{TLK_AF_INET}, uint32_t{TLK_AF_INET6}}) {
    SCOPED_TRACE(af);
    const unsigned max = af == TLK_AF_INET ? 32 : 128;
    std::vector<RefRoute> ref;
    // Prefixes from a few first bytes, so that they nest and collide often.
    auto random_bytes = [&](uint8_t *out) {
      for (int i = 0; i < 16; ++i) out[i] = static_cast<uint8_t>(rng());
      out[0] = static_cast<uint8_t>(10 + rng() % 3);
      out[1] = static_cast<uint8_t>(rng() % 4);
    };
    for (int i = 0; i < 3000; ++i) {
      RefRoute r{};
      r.plen = static_cast<uint16_t>(rng() % (max + 1));
      random_bytes(r.bytes);
      for (unsigned b = r.plen; b < 128; ++b)
        r.bytes[b / 8] &= static_cast<uint8_t>(~(0x80 >> (b % 8)));
      ASSERT_EQ(add(c, af, r.bytes, r.plen), 0);
      auto same = [&](const RefRoute &o) {
        return o.plen == r.plen && memcmp(o.bytes, r.bytes, 16) == 0;
      };
      if (std::none_of(ref.begin(), ref.end(), same)) ref.push_back(r);
    }
    ASSERT_EQ(kernel.routes().count(kTid, static_cast<uint8_t>(af)), ref.size());

    auto check_matches = [&] {
      for (int q = 0; q < 1000; ++q) {
        uint8_t dst[16];
        random_bytes(dst);
        const RefRoute *best = nullptr;
        for (const RefRoute &r : ref) {
          if (covers(r, dst) && (best == nullptr || r.plen > best->plen)) best = &r;
        }
        void *m = kPoison;
        const int err = tarvik_rtmatch_by_prefix(c, kTid, af, 0, dst, max, &m, nullptr);
        if (best == nullptr) {
          ASSERT_EQ(err, EOPNOTSUPP);
          continue;
        }
        ASSERT_EQ(err, 0);
        const rt_msg &got = *static_cast<rt_msg *>(m);
        EXPECT_EQ(got.plen, best->plen);
        EXPECT_EQ(bytes(got.prefix, (got.plen + 7) / 8), bytes(best->bytes, (best->plen + 7) / 8));
        tarvik_msg_idl_release(c, m, nullptr);
      }
    };
    check_matches();
    for (size_t i = 0; i < ref.size(); i += 3) {
      ASSERT_EQ(tarvik_rtm_delete_prefix(c, kTid, af, 1, 0, ref[i].bytes, ref[i].plen, 0), 0);
      ref[i].plen = 0xFFFF;
    }
    std::erase_if(ref, [](const RefRoute &r) { return r.plen == 0xFFFF; });
    ASSERT_EQ(kernel.routes().count(kTid, static_cast<uint8_t>(af)), ref.size());
    check_matches();

    // The walk: the default route, if any, by a get; the rest by getnext from nothing.
    std::sort(ref.begin(), ref.end(), [](const RefRoute &a, const RefRoute &b) {
      const int d = memcmp(a.bytes, b.bytes, 16);
      return d != 0 ? d < 0 : a.plen < b.plen;
    });
    size_t at = !ref.empty() && ref[0].plen == 0 ? 1 : 0;
    void *m = nullptr;
    int err = tarvik_rtm_get(c, kTid, af, nullptr, 0, 0, 0, 0, 0, TLK_OP_GETNEXT, &m, nullptr);
    while (err == 0) {
      ASSERT_LT(at, ref.size());
      const rt_msg &got = *static_cast<rt_msg *>(m);
      ASSERT_EQ(got.plen, ref[at].plen) << at;
      ASSERT_EQ(memcmp(got.prefix, ref[at].bytes, (got.plen + 7) / 8), 0) << at;
      ++at;
      void *next = nullptr;
      err = tarvik_rtm_get_with_msg(c, static_cast<rt_msg *>(m), TLK_OP_GETNEXT, &next, nullptr);
      tarvik_msg_idl_release(c, m, nullptr);
      m = next;
    }
    EXPECT_EQ(err, EOPNOTSUPP);
    EXPECT_EQ(at, ref.size());
  }
}

// A table big enough that the trie moves its roots and nodes into large pages (tens of thousands
// of routes) answers every match as before the move: the /24s, the /16s and the /8 under them.
TEST_F(RtmTest, MatchInATableGrownBigAgreesWithItsRoutes) {
  kernel.record(false);
  std::mt19937 rng(20261124);  // 32-bit draws
  auto draw = [&] { return static_cast<uint32_t>(rng()); };
  std::set<uint32_t> nets24, nets16 = {0x0A00, 0x0B07, 0x0C20};
  for (uint32_t n16 : nets16)
    ASSERT_TRUE(kernel.routes().create(tarsim::route_inet(kTid, n16 << 16, 16)));
  ASSERT_TRUE(kernel.routes().create(tarsim::route_inet(kTid, 0x0A000000, 8)));
  while (nets24.size() < 70000) {
    const uint32_t n24 = (10u + draw() % 4) << 16 | (draw() & 0xFFFF);
    if (nets24.insert(n24).second) {
      ASSERT_TRUE(kernel.routes().create(tarsim::route_inet(kTid, n24 << 8, 24)));
    }
  }
  for (int q = 0; q < 2000; ++q) {
    const uint32_t addr = (10u + draw() % 4) << 24 | (draw() & 0xFFFFFF);
    const uint16_t want = nets24.count(addr >> 8)    ? 24
                          : nets16.count(addr >> 16) ? 16
                          : (addr >> 24) == 10       ? 8
                                                     : 0;
    const uint8_t dst[4] = {static_cast<uint8_t>(addr >> 24), static_cast<uint8_t>(addr >> 16),
                            static_cast<uint8_t>(addr >> 8), static_cast<uint8_t>(addr)};
    void *m = nullptr;
    const int err = tarvik_rtmatch_by_prefix(c, kTid, TLK_AF_INET, 0, dst, 32, &m, nullptr);
    ASSERT_EQ(err, want == 0 ? EOPNOTSUPP : 0) << addr;
    if (err == 0) {
      EXPECT_EQ(static_cast<rt_msg *>(m)->plen, want) << addr;
    }
    tarvik_msg_idl_release(c, m, nullptr);
  }
}

}  // namespace
}  // namespace tlktest
