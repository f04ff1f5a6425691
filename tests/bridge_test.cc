// Bridging quirks: the bridge domain's attribute stream and its attachments, the fixed values
// that requests carry, which ops read a reply, name limits, the interface key's last byte, and
// the raw MAC tables and counters.
#include <errno.h>
#include <string.h>

#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

// Failures inside a helper name the line that called it.

using Stream = std::vector<uint8_t>;

// One stream item: u16 type, u16 length (the head counted), the value, padding to four.
Stream item(uint16_t type, std::vector<uint8_t> value, int length = -1) {
  const uint16_t len =
      length < 0 ? static_cast<uint16_t>(4 + value.size()) : static_cast<uint16_t>(length);
  Stream s = {static_cast<uint8_t>(type), static_cast<uint8_t>(type >> 8),
              static_cast<uint8_t>(len), static_cast<uint8_t>(len >> 8)};
  for (uint8_t b : value) s.push_back(b);
  while (s.size() % 4 != 0) s.push_back(0);
  return s;
}
std::vector<uint8_t> bytes_of(size_t n, uint8_t first) {
  std::vector<uint8_t> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = static_cast<uint8_t>(first + i);
  return v;
}

struct StreamRow {
  const char *name;
  Stream stream;
  int want;
  // The attachment selectors the change carried, in order; empty when nothing may be sent.
  std::vector<uint32_t> selectors;
  // (item type, first up to four value bytes as a number) that domain 1 holds afterwards.
  std::vector<std::pair<unsigned, uint32_t>> attributes;
};

const StreamRow kStreams[] = {
    {"sequence number", item(2, {42, 0}), 0, {0x8000002}, {{2, 42}}},
    {"filter index, 28 bytes", item(1, bytes_of(28, 1)), 0, {0x8000001}, {{1, 0x04030201}}},
    {"config flags, 8 bytes", item(3, bytes_of(8, 0x10)), 0, {0x8000003}, {{3, 0x13121110}}},
    {"ownership, 1 byte", item(8, {7}), 0, {0x8000008}, {{8, 7}}},
    {"mac aging and shared vlan",
     cat({item(15, {0x2c, 1, 0, 0}), item(11, {0x34, 0x12})}),
     0,
     {0x800000F, 0x800000B},
     {{15, 300}, {11, 0x1234}}},
    {"a value longer than its type copies the type's bytes",
     item(5, bytes_of(8, 1)),
     0,
     {0x8000005},
     {{5, 0x04030201}}},
    {"length 3", item(2, {}, 3), EINVAL, {}, {}},
    {"length past the stream's end", item(2, {1, 0}, 40), EINVAL, {}, {}},
    {"type 0", item(0, {1, 0, 0, 0}), EINVAL, {}, {}},
    {"type 16", item(16, {1, 0, 0, 0}), EINVAL, {}, {}},
    {"items 1 and 2, then a bad 6",
     cat({item(1, bytes_of(28, 1)), item(2, {5, 0}), item(6, {1, 0, 0, 0})}),
     EINVAL,
     {},
     {}},
    {"type 10 after a good item",
     cat({item(4, {1, 0, 0, 0}), item(10, {1, 0, 0, 0})}),
     EINVAL,
     {},
     {}},
    {"a stream shorter than a head", Stream{2, 0}, EINVAL, {}, {}},
    {"an empty stream", Stream{}, 0, {}, {}},
};

class BdStream : public OneSessionTest, public ::testing::WithParamInterface<StreamRow> {};

TEST_P(BdStream, TurnsItemsIntoAttachmentsOrSendsNothing) {
  const StreamRow &row = GetParam();
  kernel.record(true);
  const uint8_t none = 0;
  const void *data = row.stream.empty() ? &none : row.stream.data();
  EXPECT_EQ(tarvik_bd_pointchange(c, 1, data, row.stream.size()), row.want);
  if (row.selectors.empty()) {
    EXPECT_EQ(sent_count(kernel), 0u);
    EXPECT_EQ(kernel.bridging().domain(1)->attributes_set, 0u);
    return;
  }
  ASSERT_EQ(sent_count(kernel), 1u);
  auto req = last_request_as<bd_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->bdm_hdr.tlkh_op, TLK_OP_CHANGE);
  EXPECT_EQ(req->bdm_index, 1u);
  EXPECT_EQ(req->bdm_info_marker, 1u);
  std::vector<uint32_t> selectors;
  for (uint32_t i = 0; i < req->bdm_hdr.tlkh_info_len; ++i)
    selectors.push_back(req->bdm_hdr.tlkh_info[i]->tlkmi_type);
  EXPECT_EQ(selectors, row.selectors);
  const tarsim::BridgeDomain *d = kernel.bridging().domain(1);
  ASSERT_NE(d, nullptr);
  for (const auto &[type, value] : row.attributes) {
    SCOPED_TRACE(type);
    EXPECT_EQ(d->attribute(type), value);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, BdStream, ::testing::ValuesIn(kStreams), [](const auto &row) {
  std::string name = row.param.name;
  for (char &ch : name) ch = isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
  return name;
});

class BridgeTest : public OneSessionTest {
 protected:
  static void *poison() { return reinterpret_cast<void *>(1); }
  // The request a call sent, decoded, after the call passed and its reply (if any) went back.
  template <class T>
  auto request_of(int err, TLK_CALLER_ARGS) {
    TLK_AT_CALLER;
    EXPECT_EQ(err, 0);
    if (out != nullptr) tarvik_msg_idl_release(c, out, nullptr);
    out = nullptr;
    return last_request_as<T>();
  }
  // A call's answer, how many messages it wrote, and whether it read a reply (else its out
  // pointer is cleared or left alone); either way nothing is left on the socket.
  void expect_read(int err, int want, size_t sent, bool reads, TLK_CALLER_ARGS) {
    TLK_AT_CALLER;
    EXPECT_EQ(err, want);
    EXPECT_EQ(sent_count(kernel), sent_before + sent);
    sent_before = sent_count(kernel);
    if (reads) {
      EXPECT_NE(out, nullptr);
      EXPECT_NE(out, poison());
      if (out != nullptr && out != poison()) tarvik_msg_idl_release(c, out, nullptr);
    } else if (out != poison()) {
      EXPECT_EQ(out, nullptr);
    }
    out = poison();
    EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "nothing is left on the socket";
  }
  // A raw request's length and its single bytes and u32 words at their offsets.
  void expect_raw(int err, uint32_t msglen, std::vector<std::pair<size_t, uint32_t>> bytes,
                  std::vector<std::pair<size_t, uint32_t>> words, TLK_CALLER_ARGS) {
    TLK_AT_CALLER;
    EXPECT_EQ(err, 0);
    tarvik_msg_free(c, out);
    out = nullptr;
    const Bytes sent = last_sent(kernel);
    ASSERT_EQ(sent.size(), msglen);
    EXPECT_EQ(get_u32(sent.data(), 8), msglen);
    for (const auto &[off, v] : bytes) EXPECT_EQ(sent.at(off), v) << "byte " << off;
    for (const auto &[off, v] : words) EXPECT_EQ(get_u32(sent.data(), off), v) << "word " << off;
  }
  void *out = nullptr;
  size_t sent_before = 0;
};

// Attributes set by a change come back with the domain as attachments; the filter index travels
// whole.
TEST_F(BridgeTest, ARepliedDomainCarriesItsAttributes) {
  const Stream s = item(9, {0x78, 0x56, 0x34, 0x12});
  ASSERT_EQ(tarvik_bd_pointchange(c, 1, s.data(), s.size()), 0);
  void *m = nullptr;
  ASSERT_EQ(tarvik_bd_get(c, 0, TLK_OP_GET, 1, &m, nullptr), 0);
  const tlk_hdr &h = static_cast<const bd_msg *>(m)->bdm_hdr;
  ASSERT_EQ(h.tlkh_info_len, 1u);
  EXPECT_EQ(h.tlkh_info[0]->tlkmi_type, 0x8000009u);
  EXPECT_EQ(h.tlkh_info[0]->tlkmi_u.bdtlv_rgid.br_value, 0x12345678u);
  tarvik_msg_idl_release(c, m, nullptr);
  ASSERT_EQ(tarvik_bd_pointchange(c, 2, item(1, bytes_of(28, 1)).data(), 32), 0);
  EXPECT_EQ(memcmp(kernel.bridging().domain(2)->attributes[1], bytes_of(28, 1).data(), 28), 0);
}

TEST_F(BridgeTest, MoreItemsThanTheAttachmentListHoldsSendNothing) {
  kernel.record(true);
  Stream s;
  for (int i = 0; i < 129; ++i) s = cat({s, item(2, {1, 0})});
  EXPECT_EQ(tarvik_bd_pointchange(c, 1, s.data(), s.size()), ENOMEM);
  EXPECT_EQ(sent_count(kernel), 0u);
  s.resize(s.size() - 8);
  EXPECT_EQ(tarvik_bd_pointchange(c, 1, s.data(), s.size()), 0);
  auto req = last_request_as<bd_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->bdm_hdr.tlkh_info_len, 128u);
}

// What each request carries beside its keys.
TEST_F(BridgeTest, RequestsCarryTheirFixedValues) {
  kernel.record(true);
  // A get by index sends tag 65535 and the sender.
  auto bd = request_of<bd_msg>(tarvik_bd_get(c, 33, TLK_OP_GET, 2, &out, nullptr));
  ASSERT_NE(bd, nullptr);
  EXPECT_EQ(bd->bdm_tag, 65535u);
  EXPECT_EQ(bd->bdm_index, 2u);
  EXPECT_EQ(bd->bdm_hdr.tlkh_id, 33u);
  EXPECT_EQ(bd->bdm_hdr.tlkh_aux2, 0u);
  // A get by name sends index 32768.
  bd = request_of<bd_msg>(tarvik_bd_get_by_name(c, 0, TLK_OP_GET, "vlan-200", 2, &out, nullptr));
  ASSERT_NE(bd, nullptr);
  EXPECT_EQ(bd->bdm_index, 32768u);
  EXPECT_EQ(bd->bdm_tag, 2u);
  // An add cuts its strings and counts the byte strings in bits.
  bd_config_t cfg{};
  memset(cfg.bdc_descr, 'd', sizeof cfg.bdc_descr);  // no end byte: 383 go
  cfg.bdc_prefix1_len = 5;
  memset(cfg.bdc_prefix1, 0xAB, sizeof cfg.bdc_prefix1);
  cfg.bdc_prefix2_len = 40;
  cfg.bdc_vni = 5000;
  cfg.bdc_pbb[1] = 9;
  const std::string name(200, 'n');
  bd = request_of<bd_msg>(tarvik_bd_add(c, 4, name.c_str(), 3, &cfg, &out, nullptr));
  ASSERT_NE(bd, nullptr);
  EXPECT_EQ(bd->bdm_hdr.tlkh_op, TLK_OP_ADD_GET);
  EXPECT_EQ(bd->bdm_index, 0u);
  EXPECT_EQ(bd->bdm_name_len, 128u);
  EXPECT_EQ(bd->bdm_descr_len, 384u);
  EXPECT_EQ(bd->bdm_prefix1_len, 5u);
  EXPECT_EQ(bd->bdm_prefix1_bits, 40u);
  EXPECT_EQ(bd->bdm_prefix2_len, 16u);
  EXPECT_EQ(bd->bdm_prefix2_bits, 128u);
  EXPECT_EQ(bd->bdm_vni, 5000u);
  EXPECT_EQ(bd->bdm_pbb_b, 9u);
  // The interface add sends its flags and both MAC fields; the change leaves them out.
  char key[16] = "ge-1/0/0.0";
  ifbd_config_t add{};
  add.ifbdc_bd_index = 2;
  add.ifbdc_mac[0] = 0x02;
  add.ifbdc_peer_mac[5] = 0x99;
  auto ifbd = request_of<ifbd_msg>(tarvik_ifbd_add(c, key, 0x40, &add));
  ASSERT_NE(ifbd, nullptr);
  EXPECT_EQ(ifbd->ibm_hdr.tlkh_op, TLK_OP_ADD_GET);
  EXPECT_EQ(ifbd->ibm_flags, 0x40u);
  EXPECT_EQ(ifbd->ibm_bd_index, 2u);
  EXPECT_EQ(ifbd->ibm_mac[0], 0x02u);
  EXPECT_EQ(ifbd->ibm_peer_mac[5], 0x99u);
  char key2[16] = "ge-0/0/1.0";
  ifbd_config_t chg{};
  chg.ifbdc_mac[0] = 0x02;
  chg.ifbdc_tpid = 0x8100;
  ifbd = request_of<ifbd_msg>(tarvik_ifbd_change(c, key2, &chg));
  ASSERT_NE(ifbd, nullptr);
  EXPECT_EQ(ifbd->ibm_hdr.tlkh_op, TLK_OP_CHANGE);
  EXPECT_EQ(ifbd->ibm_mac[0], 0u);
  EXPECT_EQ(ifbd->ibm_tpid, 0x8100u);
  // A spanning tree add sends the fixed peer, kind 1 and the instance's room; a get without an
  // instance sends no room; a change passes its own peer and values.
  stp_if_inst inst{};
  inst.sii_ifl_index = 80;
  auto stp = request_of<stp_msg>(tarvik_stp_add(c, 5, &inst, 300, 7, &out, nullptr));
  ASSERT_NE(stp, nullptr);
  EXPECT_EQ(stp->stpm_peer_ip, 0xFFFFFF0Au);
  EXPECT_EQ(stp->stpm_kind, 1u);
  EXPECT_EQ(stp->stpm_inst_len, 20u);
  EXPECT_EQ(stp->stpm_inst.sii_ifl_index, 80u);
  EXPECT_EQ(stp->stpm_inst_vlan, 300u);
  EXPECT_EQ(stp->stpm_inst_byte, 7u);
  EXPECT_EQ(stp->stpm_hdr.tlkh_id, 5u);
  stp = request_of<stp_msg>(tarvik_stp_get(c, TLK_OP_GETNEXT, 2, 0, nullptr, 0, &out, nullptr));
  ASSERT_NE(stp, nullptr);
  EXPECT_EQ(stp->stpm_inst_len, 0u);
  EXPECT_EQ(stp->stpm_kind, 2u);
  EXPECT_EQ(stp->stpm_peer_ip, 0xFFFFFF0Au);
  stp = request_of<stp_msg>(tarvik_stp_change(c, 1, 1, 4, 5, 6, 7, 8, 0x1234, 0x0100000A));
  ASSERT_NE(stp, nullptr);
  EXPECT_EQ(stp->stpm_peer_ip, 0x0100000Au);
  EXPECT_EQ(stp->stpm_kind, 1u);
  EXPECT_EQ(stp->stpm_clear_epoch, 7u);
  EXPECT_EQ(stp->stpm_hw_learn, 8u);
  EXPECT_EQ(stp->stpm_flags, 0x1234u);
  // A mesh group's name is cut to its limit, its id in the header too; a limit of 0 sends no name.
  auto mesh = request_of<mesh_group_msg>(tarvik_mesh_group_op(
      c, TLK_OP_ADD, 0, 9, nullptr, nullptr, "abcdef", 4, 3, TLK_AF_INET, 12, 0x5));
  ASSERT_NE(mesh, nullptr);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(mesh->mgm_name)), "abc");
  EXPECT_EQ(mesh->mgm_name_len, 4u);
  EXPECT_EQ(mesh->mgm_hdr.tlkh_id, 9u);
  EXPECT_EQ(mesh->mgm_id, 9u);
  EXPECT_EQ(mesh->mgm_key.mgi_index, 3u);
  EXPECT_EQ(mesh->mgm_rtb_id, 12u);
  mesh = request_of<mesh_group_msg>(
      tarvik_mesh_group_op(c, TLK_OP_DELETE, 0, 2, nullptr, nullptr, "core", 0, 0, 0, 0, 0));
  ASSERT_NE(mesh, nullptr);
  EXPECT_EQ(mesh->mgm_name_len, 0u);
}

// Which calls read a reply, and which refuse before they send.
TEST_F(BridgeTest, WhichCallsReadAReply) {
  kernel.record(true);
  stp_if_inst inst{};
  inst.sii_ifl_index = 90;
  char key[16] = "ae0.0";
  ifbd_config_t cfg{};
  out = poison();
  expect_read(tarvik_stp_add(c, 0, &inst, 1, 0, &out, nullptr), 0, 1, true);
  // A get with op add only writes.
  expect_read(tarvik_stp_get(c, TLK_OP_ADD, 1, 0, nullptr, 0, &out, nullptr), 0, 1, false);
  expect_read(tarvik_vlanm_get_by_index(c, 1, TLK_OP_ADD, &out), EINVAL, 0, false);
  expect_read(tarvik_mesh_group_op(c, TLK_OP_CHG_GET, 0, 2, &out, nullptr, nullptr, 0, 0, 0, 0, 7),
              0, 1, true);
  expect_read(
      tarvik_mesh_group_op(c, TLK_OP_GETNEXT, 0, 1, nullptr, nullptr, nullptr, 0, 0, 0, 0, 0),
      EINVAL, 0, false);
  expect_read(tarvik_bd_add(c, 0, nullptr, 0, nullptr, &out, nullptr), EINVAL, 0, false);
  // An add with no configuration adds.
  expect_read(tarvik_bd_add(c, 0, "plain", 4, nullptr, &out, nullptr), 0, 1, true);
  expect_read(tarvik_bd_delete(c, 0, 2), 0, 1, false);
  expect_read(tarvik_ifbd_add(c, key, 0, &cfg), 0, 1, false);
  expect_read(tarvik_ifbd_change(c, key, nullptr), EINVAL, 0, false);
}

TEST_F(BridgeTest, AnInterfaceGetZeroesTheLastByteOfTheCallersKey) {
  char key[16];
  memcpy(key, "ge-0/0/1.0\0\0\0\0\0X", 16);
  void *m = nullptr;
  ASSERT_EQ(tarvik_ifbd_get(c, TLK_OP_GET, key, &m, nullptr), 0);
  EXPECT_EQ(key[15], '\0');
  EXPECT_EQ(static_cast<const ifbd_msg *>(m)->ibm_bd_index, 1u);
  tarvik_msg_idl_release(c, m, nullptr);
}

TEST_F(BridgeTest, AnAddedDomainGetsTheLowestFreeIndexAndListenersHearIt) {
  tarvik_cookie *l = open_session(9);
  ASSERT_NE(l, nullptr);
  std::vector<std::pair<uint32_t, uint32_t>> heard;  // type, op
  auto hear = [](tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    const auto *h = static_cast<tlk_hdr *>(msg);
    static_cast<decltype(heard) *>(arg)->push_back({h->tlkh_type, h->tlkh_op});
    tarvik_msg_idl_release(cookie, msg, nullptr);
    return 0;
  };
  ASSERT_EQ(tarvik_create_async_context(l), 0);
  ASSERT_EQ(tarvik_bd_async_register(l, &heard, hear), 0);
  ASSERT_EQ(tarvik_stp_async_register(l, &heard, hear), 0);
  void *m = nullptr;
  ASSERT_EQ(tarvik_bd_add(c, 0, "lab", 9, nullptr, &m, nullptr), 0);
  EXPECT_EQ(static_cast<const bd_msg *>(m)->bdm_index, 3u);
  tarvik_msg_idl_release(c, m, nullptr);
  ASSERT_EQ(tarvik_stp_change(c, 0, 2, 1, 0, 0, 0, 0, 0, 0), 0);
  ASSERT_EQ(tarvik_bd_delete(c, 0, 3), 0);
  EXPECT_EQ(kernel.bridging().domain(3), nullptr);
  EXPECT_EQ(kernel.bridging().stp(2)->state, 1u);
  drain(l);
  EXPECT_EQ(heard,
            (std::vector<std::pair<uint32_t, uint32_t>>{{TLK_MSG_BRIDGE_DOMAIN, TLK_OP_ADD},
                                                        {TLK_MSG_STP, TLK_OP_CHANGE},
                                                        {TLK_MSG_BRIDGE_DOMAIN, TLK_OP_DELETE}}));
  tarvik_close(l);
}

// ---- MAC tables and counters: raw layouts ----

TEST_F(BridgeTest, MacRequestBytes) {
  kernel.record(true);
  // Tables by index and by a long name.
  expect_raw(tarvik_mac_db_get_by_index(c, 3, 1, 0x11, 0x22, 0xA, 0xB, &out), 64,
             {{4, 'e'}, {5, 51}, {6, TLK_OP_GET}, {28, 3}, {29, 0}, {54, 0x11}, {55, 0x22}},
             {{32, 1}, {36, 1}, {56, 0xA}, {60, 0xB}});
  expect_raw(tarvik_mac_db_get_by_name(c, 0, std::string(70, 'x').c_str(), 0, 0, 0, 0, &out),
             64 + 64, {{29, 61}, {64 + 59, 'x'}, {64 + 60, 0}}, {{32, 0}});
  // Statistics by index and by name.
  expect_raw(tarvik_mac_stats_get_by_index(c, 2, 2, 0xC, 0xD, &out), 360,
             {{4, 'e'}, {5, 52}, {37, 2}, {38, 0}}, {{28, 2}, {32, 2}, {48, 0xC}, {52, 0xD}});
  expect_raw(tarvik_mac_stats_get_by_name(c, 0, "vlan-100", 0, 0, &out), 360 + 12,
             {{38, 9}, {360, 'v'}}, {{28, 0}});
}

// A table lists the domain's entries, the counters come from the kernel, and an unknown domain
// gets the kernel's refusal.
TEST_F(BridgeTest, AMacTableReplyListsTheDomainsEntries) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_mac_db_get_by_name(c, 0, "vlan-100", 0, 0, 0, 0, &m), 0);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(static_cast<const uint8_t *>(m)[5], 51u);
  EXPECT_EQ(get_u32(m, 32), 1u);
  ASSERT_EQ(get_u32(m, 40), 2u);
  EXPECT_EQ(static_cast<const uint8_t *>(m)[64 + 5], 0x10u);
  EXPECT_EQ(get_u32(m, 64 + 8), 71u);
  tarvik_msg_free(c, m);
  ASSERT_EQ(tarvik_mac_stats_get_by_index(c, 0, 1, 0, 0, &m), 0);
  EXPECT_EQ(get_u64(m, 64), 2u) << "learned";
  EXPECT_EQ(get_u64(m, 64 + 24), 17u) << "flooded";
  tarvik_msg_free(c, m);
  ASSERT_EQ(tarvik_mac_db_get_by_index(c, 0, 42, 0, 0, 0, 0, &m), 0);
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(static_cast<const uint8_t *>(m)[5], TLK_MSG_TLK_ERR);
  tarvik_msg_free(c, m);
}

TEST_F(BridgeTest, ClearsWriteOnlyAndEmptyTheStores) {
  kernel.record(true);
  ASSERT_EQ(tarvik_mac_db_clear_by_name(c, 4, "vlan-100", 0x77, 0x88), 0);
  const Bytes sent = last_sent(kernel);
  ASSERT_EQ(sent.size(), 64u + 12u);
  EXPECT_EQ(sent[6], TLK_OP_CLEAR);
  EXPECT_EQ(get_u16(sent.data(), 52), 0x77u);
  EXPECT_EQ(get_u32(sent.data(), 36), 0x88u);
  EXPECT_EQ(kernel.bridging().mac_count(), 1u) << "only domain 2's entry is left";
  ASSERT_EQ(tarvik_mac_stats_clear_by_index(c, 0, 1, 5), 0);
  EXPECT_EQ(get_u32(last_sent(kernel).data(), 32), 5u);
  EXPECT_EQ(kernel.bridging().mac_counters(1)->flooded, 0u);
  EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "nothing answers a clear";
}

class MacStdout : public BridgeTest {
 protected:
  void SetUp() override {
    BridgeTest::SetUp();
    previous_ = *tlk_platform_get();
    g_lines = &lines;
    tlk_platform table = previous_;
    table.print_stdout = [](const char *text) { g_lines->push_back(text); };
    tlk_platform_set(&table);
  }
  void TearDown() override {
    tlk_platform_set(&previous_);
    g_lines = nullptr;
    BridgeTest::TearDown();
  }
  std::vector<std::string> lines;

 private:
  static inline std::vector<std::string> *g_lines = nullptr;
  tlk_platform previous_{};
};

TEST_F(MacStdout, AFailedGetSaysWhichStepFailed) {
  void *m = reinterpret_cast<void *>(1);
  kernel.inject_write_errno(ENOBUFS);
  EXPECT_EQ(tarvik_mac_db_get_by_index(c, 0, 1, 0, 0, 0, 0, &m), ENOBUFS);
  EXPECT_EQ(m, nullptr);
  kernel.no_reply(52, TLK_OP_GET);
  m = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_mac_stats_get_by_index(c, 0, 1, 0, 0, &m), EAGAIN);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "Error in tarvik_write " + std::to_string(ENOBUFS) + "\n",
                       "Error in tarvik_long_msg_read " + std::to_string(EAGAIN) + "\n"}));
}

}  // namespace
}  // namespace tlktest
