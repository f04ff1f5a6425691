// Next hops, what is particular to them: the service family's checks (all before any buffer),
// the service block as the kernel receives it, the getnext walks that step over other kinds, the
// interface next hop's address kinds and its walk that ends at its first step, the raw
// "residx" layout and its "NHACK" lines, composite reads, and the EVPN trace texts.
#include <errno.h>
#include <string.h>

#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

constexpr uint8_t kAf = 2;
void *const kPoison = reinterpret_cast<void *>(1);

const rnh_msg &rnh(const void *m) {
  return *static_cast<const rnh_msg *>(m);
}

class RnhTest : public OneSessionTest {
 protected:
  // A service add with everything but the list and its kind at a default.
  int service_add(const uint32_t *ifls, uint32_t count, uint32_t kind, void **out) {
    return tarvik_rnhm_service_add(c, ifls, count, kAf, 2, "svc", 9, kind, 0, nullptr, out, nullptr,
                                   0, 0, 0, nullptr, 0);
  }
};

// ---- Service next hops ----

struct ServiceCheck {
  const char *what;
  std::vector<uint32_t> ifls;  // none: a null list
  uint32_t count;
  uint32_t kind;
  bool no_out;
};

const ServiceCheck kServiceChecks[] = {
    {"no reply pointer on an add_get", {70}, 1, 1, true},
    {"a list with count 0", {70}, 0, 1, false},
    {"kind 5 with two interfaces", {70, 72}, 2, 5, false},
    {"kind 5 without any list", {}, 0, 5, false},
    {"257 interfaces", std::vector<uint32_t>(257, 70), 257, 1, false},
    {"the none interface as the only entry", {0}, 1, 1, false},
    {"the none interface after a good one", {70, 0}, 2, 1, false},
};

TEST_F(RnhTest, ServiceChecksRefuseBeforeAnyBufferAndTheOwnerWalkStepsOverOthers) {
  ASSERT_EQ(tlk_platform_get()->null_ifl_idx, 0u) << "the rows name the host's none index";
  kernel.record(true);
  for (const ServiceCheck &row : kServiceChecks) {
    SCOPED_TRACE(row.what);
    const uint32_t before = tarvik_mem_record.cnts[MEMID_TARVIK_MSG].allocs;
    void *out = nullptr;
    EXPECT_EQ(service_add(row.ifls.empty() ? nullptr : row.ifls.data(), row.count, row.kind,
                          row.no_out ? nullptr : &out),
              EINVAL);
    EXPECT_EQ(tarvik_mem_record.cnts[MEMID_TARVIK_MSG].allocs, before) << "no block was taken";
    EXPECT_EQ(out, nullptr);
  }
  // The owner walk with kind 5 has no list at all, and is refused for it.
  void *out = nullptr;
  EXPECT_EQ(tarvik_rnhm_service_get_by_owner(c, 0, kAf, 2, 5, &out, nullptr), EINVAL);
  EXPECT_TRUE(kernel.recorded().empty());
  // The owner walk steps over other next hops; a get by index does not.
  ASSERT_EQ(tarvik_rnhm_service_get_by_owner(c, 0, kAf, 2, 1, &out, nullptr), 0);
  EXPECT_EQ(rnh(out).idx.idx, 1002u) << "1000 and 1001 are unicast";
  tarvik_msg_idl_release(c, out, nullptr);
  EXPECT_EQ(sent_count(kernel), 3u) << "the getnext, then one step over each unicast next hop";

  void *mask = kPoison;
  out = kPoison;
  EXPECT_EQ(tarvik_rnhm_service_get_by_owner(c, 1002, kAf, 2, 1, &out, &mask), EOPNOTSUPP)
      << "past the last service next hop the walk meets the kernel's refusal";
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(mask, nullptr);
  ASSERT_EQ(tarvik_rnhm_service_get_by_index(c, 1000, kAf, TLK_OP_GET, &out, nullptr), 0);
  EXPECT_EQ(rnh(out).nh, tarsim::kNhUnicast) << "only a getnext steps over other kinds";
  tarvik_msg_idl_release(c, out, nullptr);
  ASSERT_EQ(tarvik_rnhm_service_delete_by_index(c, 1002, kAf), 0);
  EXPECT_EQ(kernel.nexthops().find(1002), nullptr);
  // 256 interfaces are the most that pass.
  const std::vector<uint32_t> ifls(256, 72);
  ASSERT_EQ(service_add(ifls.data(), 256, 1, &out), 0);
  tarvik_msg_idl_release(c, out, nullptr);
}

// A service add's block as the kernel receives it, the plain form's and the L2TP form's.
TEST_F(RnhTest, AServiceAddSendsTheBlockAtItsOffsets) {
  const uint32_t ifls[] = {70, 72};
  const uint8_t token[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  uint8_t ext[74] = {};
  memset(ext, 'x', 72);  // a full name area: no end byte within it
  ext[72] = 0xA1;
  ext[73] = 0xB2;
  const std::string long_name(80, 'n');
  void *out = kPoison, *mask = kPoison;
  ASSERT_EQ(tarvik_rnhm_service_add(c, ifls, 2, kAf, 3, long_name.c_str(), 0x1234567, 1, 0x44,
                                    token, &out, &mask, 11, 22, 1, ext, 33),
            0);
  EXPECT_EQ(mask, kPoison) << "the mask is written only on failure";
  const tarsim::Nexthop *nh = kernel.nexthops().find(rnh(out).idx.idx);
  ASSERT_NE(nh, nullptr);
  EXPECT_EQ(nh->ifl, 0u) << "the next hop's own interface is the none index";
  const Bytes &b = nh->body;
  ASSERT_EQ(b.size(), 388u);
  EXPECT_EQ(get_u32(b.data(), 0), (3u << 28) | 0x1234567u);
  EXPECT_EQ(get_u32(b.data(), 8), 72u);
  EXPECT_EQ(b[136], 2);
  EXPECT_EQ(b[138], 0x44);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&b[140])), std::string(63, 'n'));
  EXPECT_EQ(Bytes(b.begin() + 208, b.begin() + 220), Bytes(token, token + 12));
  EXPECT_EQ(get_u32(b.data(), 224), 22u);
  EXPECT_EQ(b[228], 1);
  EXPECT_EQ(Bytes(b.begin() + 232, b.begin() + 306), Bytes(ext, ext + 74));
  EXPECT_EQ(get_u32(b.data(), 384), 33u);
  tarvik_msg_idl_release(c, out, nullptr);

  // An L2TP name is made in two steps and the ids take the token.
  const uint32_t l2tp_ifls[] = {80, 72};
  const std::string base(40, 'b');
  ASSERT_EQ(tarvik_rnhm_l2tp_service_add(c, l2tp_ifls, kAf, 1, base.c_str(), 7, 0x5, 0x1234, 0xBEEF,
                                         &out, nullptr),
            0);
  nh = kernel.nexthops().find(rnh(out).idx.idx);
  ASSERT_NE(nh, nullptr);
  const Bytes &l = nh->body;
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(&l[140])),
            std::string(31, 'b') + "-7-4660-48879");
  EXPECT_EQ(l[136], 1) << "one interface, whatever the list holds";
  EXPECT_EQ(get_u32(l.data(), 8), 0u);
  EXPECT_EQ(l[137], 3);
  EXPECT_EQ(get_u16(l.data(), 210), 0xBEEF);
  tarvik_msg_idl_release(c, out, nullptr);
}

// ---- Interface next hops ----

struct AddrKind {
  uint8_t kind;
  uint32_t count;
  int want;
  uint8_t sent;  // the second body byte, on success
};

const AddrKind kAddrKinds[] = {
    {0, 1, 0, 0},          {3, 1, 0, 3},          {4, 1, 0, 0},
    {5, 1, EOPNOTSUPP, 0}, {1, 2, EOPNOTSUPP, 0}, {1, 0, EOPNOTSUPP, 0},
};

TEST_F(RnhTest, AnInterfaceNextHopMapsItsAddressKindAndItsWalkEndsAtItsFirstStep) {
  for (const AddrKind &row : kAddrKinds) {
    SCOPED_TRACE(testing::Message() << "kind " << int{row.kind} << " count " << row.count);
    uint32_t idx = 0;
    const size_t before = kernel.nexthops().list().size();
    ASSERT_EQ(tarvik_rnhm_iflnh_add(c, 82, kAf, 5, row.count, &row.kind, &idx, 0x77), row.want);
    if (row.want != 0) {
      EXPECT_EQ(kernel.nexthops().list().size(), before) << "nothing was added";
      continue;
    }
    const tarsim::Nexthop *nh = kernel.nexthops().find(idx);
    ASSERT_NE(nh, nullptr) << "idx_out names the new next hop";
    EXPECT_EQ(nh->selector, 17u);
    EXPECT_EQ(nh->body, (Bytes{1, row.sent}));
    EXPECT_EQ(nh->uflags, 0x77u);
  }

  // A walk ends at its first step; a reply needs both out pointers.
  kernel.record(true);
  void *out = kPoison, *mask = kPoison;
  EXPECT_EQ(tarvik_rnhm_iflnh_get_by_index(c, TLK_OP_GETNEXT, 0, kAf, &out, &mask), EINVAL)
      << "1000 is not an interface next hop, and the step writes no message";
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(mask, nullptr);
  EXPECT_EQ(sent_count(kernel), 1u) << "only the first getnext reached the kernel";
  const uint8_t kind = 1;
  uint32_t idx = 0;
  ASSERT_EQ(tarvik_rnhm_iflnh_add(c, 82, kAf, 0, 1, &kind, &idx, 0), 0);
  ASSERT_EQ(tarvik_rnhm_iflnh_get_by_index(c, TLK_OP_GET, idx, kAf, &out, &mask), 0);
  EXPECT_EQ(rnh(out).idx.idx, idx);
  tarvik_msg_idl_release(c, out, mask);
  out = kPoison;
  EXPECT_EQ(tarvik_rnhm_iflnh_get_by_index(c, TLK_OP_GET, idx, kAf, &out, nullptr), 0);
  EXPECT_EQ(out, nullptr) << "without a mask pointer the reply is let go";
  // A getnext from just before it lands on it at once.
  out = kPoison;
  mask = kPoison;
  ASSERT_EQ(tarvik_rnhm_iflnh_get_by_index(c, TLK_OP_GETNEXT, idx - 1, kAf, &out, &mask), 0);
  EXPECT_EQ(rnh(out).idx.idx, idx);
  tarvik_msg_idl_release(c, out, mask);
  ASSERT_EQ(tarvik_rnhm_iflnh_delete_by_index(c, idx, kAf), 0);
  EXPECT_EQ(kernel.nexthops().find(idx), nullptr);
}

// ---- Reserved indexes ----

TEST_F(RnhTest, AReservedIndexRequestIsThirtyTwoBytesAndEveryFailureIsPrinted) {
  kernel.record(true);
  void *out = nullptr;
  ASSERT_EQ(tarvik_nhidx_get(c, &out, 3, 0x1234), 0);
  Bytes want = {
      0, 0, 0, 0, 'b', TLK_MSG_RESIDX, TLK_OP_GET, 0, 32, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
      0, 1, 3, 0, 0,   0x34,           0x12,       0, 0};
  put_u32(want, 12, c->seq);
  EXPECT_EQ(last_sent(kernel), want);
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(get_u32(out, 0), 500000u) << "the raw reply names the first reserved index";
  tarvik_msg_free(c, out);

  ASSERT_EQ(tarvik_nhidx_getnext(c, &out, 500000), 0);
  EXPECT_EQ(get_u32(last_sent(kernel).data(), 0), 500000u);
  EXPECT_EQ(get_u32(out, 0), 500001u);
  tarvik_msg_free(c, out);

  ASSERT_EQ(tarvik_nhidx_delete_all(c), 0);
  EXPECT_EQ(last_sent(kernel)[6], TLK_OP_DELETEALL);
  EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "nothing answers a delete-all";

  // Every failure is printed and returned.
  struct Nhack {
    const char *what;
    int block_to_fail;  // 0: none
    int write_errno;
    bool silent;  // the kernel doesn't answer
    int want;
    std::string line;
  } rows[] = {
      {"read buffer", 1, 0, false, ENOMEM,
       "NHACK: malloc for read buf fail. error = " + std::to_string(ENOMEM) + "\n"},
      {"write buffer", 2, 0, false, ENOMEM,
       "NHACK: malloc for write buf fail. error = " + std::to_string(ENOMEM) + "\n"},
      {"write", 0, ENOBUFS, false, ENOBUFS,
       "NHACK: tarvik_write() fail. error = " + std::to_string(ENOBUFS) + "\n"},
      {"read", 0, 0, true, EAGAIN,
       "NHACK: tarvik_msg_read() fail. error = " + std::to_string(EAGAIN) + "\n"},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    os.stderr_lines.clear();
    if (row.block_to_fail != 0) fail_msg_block(row.block_to_fail);
    if (row.write_errno != 0) kernel.inject_write_errno(row.write_errno);
    if (row.silent) kernel.on_raw(TLK_MSG_RESIDX, TLK_OP_GET, nullptr);
    out = kPoison;
    EXPECT_EQ(tarvik_nhidx_get(c, &out, 1, 0), row.want);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(os.stderr_lines, std::vector<std::string>{row.line});
  }
  EXPECT_EQ(tarvik_nhidx_get(c, nullptr, 1, 0), EINVAL);
  EXPECT_EQ(tarvik_nhidx_getnext(c, nullptr, 0), EINVAL);
}

// ---- Composites ----

TEST_F(RnhTest, ACompositeReadTakesGetOrGetnextOnlyAndTheSessionFlagAsksForChildren) {
  kernel.record(true);
  for (uint32_t op : {0u, 3u, 6u, 9u}) {
    SCOPED_TRACE(op);
    void *out = kPoison, *mask = kPoison;
    EXPECT_EQ(tarvik_rnh_comp_get_by_index(c, 1003, op, &out, &mask), EINVAL);
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(mask, nullptr);
  }
  EXPECT_TRUE(kernel.recorded().empty());
  // The session flag asks a next hop read for the children, and off again stops asking.
  for (uint32_t enable : {0u, 1u, 0u}) {
    SCOPED_TRACE(enable);
    ASSERT_EQ(tarvik_rnh_enable_comp_nh_retrieval(c, enable), 0);
    void *out = nullptr;
    ASSERT_EQ(tarvik_rnhm_get_by_index(c, 1003, kAf, TLK_OP_GET, &out, nullptr), 0);
    EXPECT_EQ(last_request_as<rnh_msg>()->retrieve_mask, enable ? 1024u : 0u);
    tarvik_msg_idl_release(c, out, nullptr);
  }
}

// A subunit next hop takes the first interface.
TEST_F(RnhTest, ASubunitNextHopTakesTheFirstInterface) {
  const uint32_t ifls[] = {83, 70};
  void *out = nullptr;
  ASSERT_EQ(tarvik_rnhm_subunit_nhadd(c, ifls, kAf, &out, nullptr), 0);
  const uint32_t idx = rnh(out).idx.idx;
  EXPECT_EQ(rnh(out).ifidx.idx, 83u);
  tarvik_msg_idl_release(c, out, nullptr);
  ASSERT_EQ(tarvik_rnhm_subunit_nhdelete_by_index(c, idx, kAf), 0);
  EXPECT_EQ(kernel.nexthops().find(idx), nullptr);
}

// ---- EVPN trace texts ----

// An item of the opaque area: head (type, length), then the EVPN body.
Bytes evpn_item(uint16_t type, uint16_t length, uint32_t rtb, uint16_t kind, uint8_t tag_kind,
                uint32_t tag) {
  Bytes b(4 + 29, 0);
  memcpy(&b[0], &type, 2);  // little-endian host, as the target
  memcpy(&b[2], &length, 2);
  memcpy(&b[4], &rtb, 4);
  memcpy(&b[8], &kind, 2);
  const uint8_t peer[4] = {10, 0, 0, 1};
  memcpy(&b[12], peer, 4);
  for (int i = 0; i < 10; ++i) b[16 + i] = static_cast<uint8_t>(0x11 * i);
  b[28] = tag_kind;
  memcpy(&b[29], &tag, 4);
  b.resize((length + 3u) & ~3u, 0);
  return b;
}

const char kEsi[] = "00:11:22:33:44:55:66:77:88:99";

struct Opaque {
  const char *what;
  Bytes area;
  uint32_t nh_type;
  std::string want;  // empty: the buffer is left alone
};

TEST(RnhEvpn, TheOpaqueAreaDecoderKeepsTheLastEvpnItem) {
  const Bytes one = evpn_item(10, 33, 7, 11, 2, 66051);
  const std::string one_line = std::string("rpd-tlv: indr for BUM traffic, rtb-id 7, esi ") + kEsi +
                               ", isid 66051, peer-id 10.0.0.1 ";
  const Opaque rows[] = {
      {"one item", one, 3, one_line},
      {"type 5, label kind 10", evpn_item(10, 33, 7, 10, 2, 66051), 5,
       std::string("rpd-tlv: indr for Control Plane learned MAC, rtb-id 7, esi ") + kEsi +
           ", isid 66051, peer-id 10.0.0.1 "},
      {"another next hop type", one, 2, ""},
      {"two items, the last one wins", cat({one, evpn_item(12, 40, 9, 12, 1, 5)}), 3,
       std::string("rpd-tlv: indr for BUM Traffic with SH Label, rtb-id 9, esi ") + kEsi +
           ", vlan 5, peer-id 10.0.0.1 "},
      {"an item of another type is skipped", cat({one, evpn_item(9, 36, 1, 10, 2, 1)}), 3,
       one_line},
      {"a length of 34 strides 36", cat({evpn_item(13, 34, 1, 10, 2, 1), one}), 3, one_line},
      {"an unknown label kind", evpn_item(11, 33, 1, 99, 0, 2), 3,
       std::string("rpd-tlv: Error: indr for Unknown TLV type =99, rtb-id 1, esi ") + kEsi +
           ", vlan 2, peer-id 10.0.0.1 "},
      {"an item cut short", Bytes(one.begin(), one.begin() + 20), 3, ""},
      {"a head alone", Bytes(one.begin(), one.begin() + 3), 3, ""},
      {"a zero length does not loop", Bytes{10, 0, 0, 0, 1, 2, 3, 4}, 3, ""},
      {"an empty area", Bytes{}, 3, ""},
  };
  for (const Opaque &row : rows) {
    SCOPED_TRACE(row.what);
    // The area alone in its own block, so that a read past it is a read past the block.
    std::vector<uint8_t> area(row.area);
    std::vector<char> buffer(2048, '#');
    buffer[0] = 0;
    rnh_decode_opaque_tlv(area.empty() ? nullptr : area.data(), static_cast<uint32_t>(area.size()),
                          buffer.data(), row.nh_type);
    EXPECT_EQ(std::string(buffer.data()), row.want);
  }
}

// A composite's trace line: the head, then one text per item it carries, in their order; an item
// the formatter has no words for adds nothing.
TEST(RnhTrace, CompositeItemsAfterTheHead) {
  rnhc_msg m{};
  m.rnhc_hdr.tlkh_type = TLK_MSG_NH_COMP;
  m.rnhc_hdr.tlkh_op = TLK_OP_ADD;
  m.idx.idx = 1048600;
  m.af = TLK_AF_INET;
  uint32_t dlnh[2] = {7, 8}, comp[3] = {1001, 1002, 1003}, derv[1] = {55};
  tlk_msg_info items[10] = {};
  tlk_msg_info *list[10] = {};
  m.rnhc_hdr.tlkh_info = list;
  // The next item, of type `type`, appended to the list.
  auto add = [&](uint32_t type) -> decltype(items[0].tlkmi_u) & {
    tlk_msg_info &item = items[m.rnhc_hdr.tlkh_info_len];
    list[m.rnhc_hdr.tlkh_info_len++] = &item;
    item.tlkmi_type = type;
    return item.tlkmi_u;
  };
  add(0x4000002).nh_comp_func.ncf_value = 4;
  add(0x400001b).nh_comp_tunnel_params_idl = {1, 2, 3, 4, 5, 6, 0x0a000001, 0x0a000002, 9, 10};
  add(0x400001d).nh_comp_dlnh_params_idl = {0x30, dlnh, 2};
  add(0x4000001).nh_comp_nh_list_idl = {0, comp, 3};
  add(0x4000003).nh_comp_derived_nh_list_idl = {0, derv, 1};
  add(0x4000005).nh_comp_filter_idx.ncfi_value = 12;
  add(0x4000011).tlk_msg_info_u32.value = 77;
  add(0x400000a);  // linked next hop: no words
  // The label block: operation 3 at offset 5 with flags 0x12, ids 7 and 6, MTU 1500, two labels
  // (the second with all-zero flags) and one policer.
  tagp_label8 labels[2] = {{300016, 0x21030201}, {17, 0}};
  tagp_label7 policer[1] = {};
  add(0x4000007).tagp = {0x120503, 7, 6, 1500, labels, 2, 0, policer, 1};
  add(0x4000008).msg_tagp.mt_value = 299776;
  char line[2048];
  ASSERT_EQ(tarvik_format_output(nullptr, line, sizeof line, 0, &m), 0);
  const std::string text = line;
  const size_t at = text.find("subnh=0 ");
  ASSERT_NE(at, std::string::npos) << text;
  EXPECT_EQ(text.substr(at + 8),
            "fn=4 "
            "tuntype 1 encapid 2  decapid 3 tunid 4  flags 0x5 anchor_id 6 "
            "srcip 0xa000001 destip 0xa000002 grekey 9 antispoof 0xa "
            "dlnh_flags 0x30 dlnh_list_len 2 dlnh-list=7,8, "
            "comp=1001,1002,1003, derv=55, filter 12 sgid=77 "
            "opcode=3, offset=5, flags=0x12, selfid=7, parentid=6, mtu=1500, label_count=2, "
            "policer_count=1 "
            "label_proto=1, label_cos_action=2, label_cos_value=3, label=300016, "
            "label_ttl_action=1, lb_attr=Entropy label "
            "label_proto=0, label_cos_action=0, label_cos_value=0, label=17, "
            "label_ttl_action=0, lb_attr=None "
            "comp label: 299776 \n");
}

}  // namespace
}  // namespace tlktest
