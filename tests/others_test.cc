// The smaller object families' own rules: argument refusals that send nothing, size limits, the
// statistics setting, PIC attachments, the reply sizes of monitoring statistics, the down map's
// late answer, the raw layouts as they leave the library, and the trace lines of the monitoring,
// service PIC, interface statistics and device alarm replies.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/harness.h"

namespace tlktest {
namespace {

std::string fmt(const char *format, ...) TLK_PRINTF(1, 2);
std::string fmt(const char *format, ...) {
  char buf[2048];
  va_list ap;
  va_start(ap, format);
  vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  return buf;
}

std::string columns(const char *type, const char *op) {
  return fmt("%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s", "self", "self", "P", type, op);
}

uint32_t u32_at(const std::vector<uint8_t> &b, size_t off) {
  uint32_t v = 0;
  memcpy(&v, &b.at(off), 4);
  return v;
}

// Each u32 word at its offset.
void expect_words(const std::vector<uint8_t> &b, std::vector<std::pair<size_t, uint32_t>> words) {
  for (const auto &[off, v] : words) EXPECT_EQ(u32_at(b, off), v) << "at " << off;
}

using Others = OneSessionTest;

// ---- Refusals that send nothing ----

TEST_F(Others, RefusedArgumentsSendNothing) {
  kernel.record(true);
  void *m = nullptr;
  const uint8_t local[16] = {10};
  tarvik_l2tp_cfg no_remote{}, none{};
  no_remote.local = local;
  const uint16_t v[2] = {1, 2};
  const uint8_t key[8] = {};
  static uint8_t data[16348];
  EXPECT_EQ(tarvik_ksync_change(c, 1, 0, 0, 1), EINVAL) << "a reset with a value";
  EXPECT_EQ(tarvik_ksync_change(c, 0, 0, 9, 3), EINVAL) << "a reset with a third value";
  EXPECT_EQ(tarvik_pic_change(c, 1, 0, 3, 1), EINVAL);
  EXPECT_EQ(tarvik_pic_change(c, 1, 0, 0, 1), EINVAL);
  EXPECT_EQ(tarvik_pic_get(c, 1, 0, TLK_OP_ADD_GET, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(tarvik_pic_get(c, 1, 0, TLK_OP_CHG_GET, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(tarvik_pic_get(c, 1, 0, TLK_OP_CLEAR, &m, nullptr), EINVAL);
  EXPECT_EQ(tarvik_asp_cfg_get(c, 1, 2, 0, 7, TLK_OP_GET, &m), EINVAL) << "without a key";
  EXPECT_EQ(tarvik_asp_cfg_get(c, 1, 2, 5, 7, TLK_OP_CHG_GET, nullptr), EINVAL);
  EXPECT_EQ(tarvik_l2tp_tunnel_cfg_add(c, &no_remote), EINVAL);
  EXPECT_EQ(tarvik_l2tp_session_cfg_change(c, &none), EINVAL) << "without local";
  EXPECT_EQ(tarvik_l2tp_global_get(c, &none, TLK_OP_GET, &m), EINVAL) << "without a key";
  EXPECT_EQ(tarvik_fc_fabric_get_by_index(c, 1, TLK_OP_ADD, &m), EINVAL);
  EXPECT_EQ(tarvik_fmgrpm_get_by_index(c, 10, TLK_OP_CHG_GET, &m, nullptr), EINVAL);
  EXPECT_EQ(tarvik_ddos_request(c, nullptr, 0, TLK_OP_CHANGE, 4, 0, 1, 0, nullptr, nullptr),
            EINVAL);
  EXPECT_EQ(tarvik_ddos_request(c, v, 1, TLK_OP_CLEAR, 1, 0, 1, 0, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tarvik_ddos_request(c, nullptr, 0, TLK_OP_GET, 1, 0, 5, 0, &m, nullptr), EINVAL);
  EXPECT_EQ(tarvik_pfe_dwn_map_send_req(c, 1, key, 16345, data), EMSGSIZE);
  EXPECT_EQ(tarvik_pfestat_get_by_index(c, 1, 2, TLK_OP_GET, 3, 4, &m, data, 16348), EMSGSIZE);
  EXPECT_EQ(sent_count(kernel), 0u);
}

// User data of 16347 bytes passes, padded to 4; one byte more is refused and diagnosed with the
// entry's name.
TEST_F(Others, PfeUserDataPassesUpToItsLargestSize) {
  kernel.record(true);
  static uint8_t data[16348];
  data[0] = 0xAB;
  void *m = nullptr;
  EXPECT_EQ(tarvik_pfestat_clear(c, 1, 2, TLK_OP_CLEAR, 3, 4, &m, data, 16348), EMSGSIZE);
  EXPECT_TRUE(log.contains("invalid user data length 16348, tarvik_pfestat_clear"));
  EXPECT_EQ(log.count(TLK_LEVEL_ERROR), 1u);
  ASSERT_EQ(tarvik_pfestat_get_by_index(c, 1, 2, TLK_OP_GET, 3, 4, &m, data, 16347), 0);
  tarvik_msg_free(c, m);
  const auto b = last_sent(kernel);
  ASSERT_EQ(b.size(), 16384u) << "36 bytes and the data padded to 4";
  EXPECT_EQ(std::vector<uint8_t>(b.begin() + 23, b.begin() + 27),
            (std::vector<uint8_t>{3, 4, 1, 2}));
  EXPECT_EQ(b[28] | b[29] << 8, 16347);
  EXPECT_EQ(b[36], 0xAB);
}

// ---- System statistics ----

TEST_F(Others, SystemStatisticsFollowTheSettingBeforeTheSession) {
  kernel.chassis().set_sysstats_enabled(false);
  void *m = nullptr;
  EXPECT_EQ(tarvik_get_systemstats(nullptr, TLK_OP_GET, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(tarvik_get_systemstats(c, TLK_OP_GET, &m, nullptr), EOPNOTSUPP);
  kernel.chassis().set_sysstats_enabled(true);
  EXPECT_EQ(tarvik_get_systemstats(nullptr, TLK_OP_GET, &m, nullptr), EINVAL);
  ASSERT_EQ(tarvik_get_systemstats(c, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(static_cast<const sysstats_msg *>(m)->ssm_request & 1, 1);
  EXPECT_EQ(static_cast<const sysstats_msg *>(m)->ssm_rx_packets, 123456u);
  tarvik_msg_idl_release(c, m, nullptr);
  kernel.erase_sysctl("net.sysstats_enable");
  kernel.set_sysctl_u32("net.sysstats_enable", 0);
  EXPECT_EQ(tarvik_get_systemstats(c, TLK_OP_GET, &m, nullptr), EOPNOTSUPP)
      << "a value set on the kernel takes the family's place";
}

TEST_F(Others, InterfaceAccountingAsksWithRequestFour) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_ifl_get_accounting(c, TLK_OP_GET, &m, nullptr), 0);
  const auto &s = *static_cast<const sysstats_msg *>(m);
  EXPECT_EQ(s.ssm_request, 4);
  ASSERT_EQ(s.ssm_accounts_count, 1u);
  ASSERT_EQ(s.ssm_accounts[0].gia_count, 2u);
  EXPECT_EQ(s.ssm_accounts[0].gia_entries[1], 2000u);
  tarvik_msg_idl_release(c, m, nullptr);
}

// ---- PICs ----

struct PicChange {
  uint32_t attr;
  uint8_t value;
  uint32_t code;
};

// An add turns its stream into attachments; a change attaches one item per attribute.
TEST_F(Others, PicAddAndChangeAttachTheirItems) {
  std::vector<uint8_t> tlvs = {5, 1, 0x42, 9, 2, 1, 1, 3, 30};
  for (uint8_t i = 0; i < 30; ++i) tlvs.push_back(static_cast<uint8_t>(100 + i));
  kernel.record(true);
  ASSERT_EQ(tarvik_pic_add_with_tlvs(c, 2, 3, 0x55, 7, 0x10, 0x99, tlvs.data(),
                                     static_cast<uint32_t>(tlvs.size())),
            0);
  auto req = last_request_as<pic_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->picm_idx, 3 | 2 * 8);
  EXPECT_EQ(req->picm_info_marker, 1);
  ASSERT_EQ(req->picm_hdr.tlkh_info_len, 2u) << "the item of type 9 is not carried";
  EXPECT_EQ(req->picm_hdr.tlkh_info[0]->tlkmi_type, 0x1000005u);
  EXPECT_EQ(req->picm_hdr.tlkh_info[1]->tlkmi_type, 0x1000003u);
  const tarsim::Pic *p = kernel.chassis().pic(19);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->type, 0x55);
  EXPECT_EQ(p->id, 7);
  EXPECT_EQ(p->flags, 0x10u);
  EXPECT_EQ(p->byte, 0x99);
  EXPECT_EQ(p->other, 0x42);
  ASSERT_TRUE(p->has_msp);
  EXPECT_EQ(p->msp[0], 100);
  EXPECT_EQ(p->msp[27], 127) << "28 bytes of the 30 are copied";
  const PicChange rows[] = {{1, 3, 0x1000001}, {2, 1, 0x1000002}, {4, 9, 0x1000004}};
  for (const PicChange &r : rows) {
    SCOPED_TRACE(r.attr);
    ASSERT_EQ(tarvik_pic_change(c, 1, 0, r.attr, r.value), 0);
    req = last_request_as<pic_msg>();
    ASSERT_NE(req, nullptr);
    ASSERT_EQ(req->picm_hdr.tlkh_info_len, 1u);
    EXPECT_EQ(req->picm_hdr.tlkh_info[0]->tlkmi_type, r.code);
    EXPECT_EQ(req->picm_info_marker, 1);
  }
  p = kernel.chassis().pic(8);
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(p->app_mode, 3);
  EXPECT_EQ(p->presence, 1);
  EXPECT_EQ(p->bounces, 1u);
}

TEST_F(Others, PicDeleteRemovesAndListenersHearIt) {
  tarvik_cookie *listener = open_session(9);
  ASSERT_NE(listener, nullptr);
  ASSERT_EQ(tarvik_create_async_context(listener), 0);
  ASSERT_EQ(tarvik_picm_async_register(
                listener, nullptr, [](tarvik_cookie *, void *, void *, uintptr_t) { return 0; }),
            0);
  ASSERT_EQ(tarvik_pic_delete(c, 1, 2), 0);
  EXPECT_EQ(kernel.chassis().pic(10), nullptr);
  EXPECT_GT(tarvik_peek_pkt_len(tarvik_getsockfd(listener)), 0) << "a notification is queued";
  void *m = nullptr;
  EXPECT_EQ(tarvik_pic_get(c, 1, 2, TLK_OP_GET, &m, nullptr), EOPNOTSUPP) << "the kernel's refusal";
  tarvik_close(listener);
}

// ---- Kernel synchronisation, markers, sampling, injection ----

TEST_F(Others, KsyncChangeIsReadBack) {
  ASSERT_EQ(tarvik_ksync_change(c, 4, 5, 6, 2), 0);
  void *m = nullptr;
  ASSERT_EQ(tarvik_ksync_get(c, &m, nullptr), 0);
  const auto &k = *static_cast<const ksync_msg *>(m);
  EXPECT_EQ(k.ksync_a, 4u);
  EXPECT_EQ(k.ksync_c, 6u);
  EXPECT_EQ(k.ksync_flags, 2u);
  tarvik_msg_idl_release(c, m, nullptr);
  ASSERT_EQ(tarvik_ksync_change(c, 0, 0, 0, 1), 0) << "a reset without values passes";
  EXPECT_EQ(kernel.chassis().ksync().a, 0u);
}

TEST_F(Others, MarkerFieldsGoWhereTheirArgumentsSay) {
  kernel.record(true);
  ASSERT_EQ(tarvik_marker_add(c, 1, 2, 3, 4, 5), 0);
  auto req = last_request_as<tlk_marker_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->tlkmk_hdr.tlkh_flags, 16);
  EXPECT_EQ(req->tlkmk_alias_seq, 1u);
  EXPECT_EQ(req->tlkmk_flags, 2u);
  EXPECT_EQ(req->tlkmk_cookie, 3u);
  EXPECT_EQ(req->tlkmk_seq, 4u);
  EXPECT_EQ(req->tlkmk_kind, 5);
  void *m = nullptr;
  ASSERT_EQ(tarvik_marker_get(c, &m, nullptr), 0) << "a marker asked for comes back";
  EXPECT_EQ(static_cast<const tlk_marker_msg *>(m)->tlkmk_hdr.tlkh_flags, 16);
  tarvik_msg_idl_release(c, m, nullptr);
}

TEST_F(Others, SampleAddAndDeleteChangeTheStore) {
  const std::string name(70, 'n');
  ASSERT_EQ(tarvik_sample_add(c, 5, 6, 7, name.c_str()), 0);
  void *m = nullptr;
  ASSERT_EQ(tarvik_sample_get(c, TLK_OP_GET, 5, 6, 7, &m, nullptr), 0);
  const auto &s = *static_cast<const sample_msg *>(m);
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(s.smm_inst_name), 64), name.substr(0, 64));
  EXPECT_EQ(s.smm_flags, 32768u);
  tarvik_msg_idl_release(c, m, nullptr);
  ASSERT_EQ(tarvik_sample_delete(c, 5, 6, 7, "x"), 0);
  EXPECT_EQ(tarvik_sample_get(c, TLK_OP_GET, 5, 6, 7, &m, nullptr), EOPNOTSUPP);
}

TEST_F(Others, InjectedPacketReachesTheKernel) {
  const uint8_t packet[60] = {0x45}, meta[8] = {1};
  const tarvik_pktinject p{packet, sizeof packet, meta, sizeof meta};
  kernel.record(true);
  ASSERT_EQ(tarvik_pktinject_add(c, 77, &p), 0);
  EXPECT_EQ(kernel.chassis().injected(), 1u);
  EXPECT_EQ(kernel.chassis().last_injected_len(), 60u);
  auto req = last_request_as<pktinject_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->pim_hdr.tlkh_id, 77u);
  EXPECT_EQ(req->pim_meta_len, 8u);
}

TEST_F(Others, DdosRequestsCarryTheirData) {
  const uint32_t words[3] = {1, 2, 3};
  void *m = nullptr;
  kernel.record(true);
  ASSERT_EQ(tarvik_ddos_request(c, words, 3, TLK_OP_GET, 1, 2, 1, 4, &m, nullptr), 0);
  const auto &d = *static_cast<const ddos_msg *>(m);
  EXPECT_EQ(d.ddos_kind, 2);
  EXPECT_EQ(d.ddos_flags, 4);
  tarvik_msg_idl_release(c, m, nullptr);
  auto req = last_request_as<ddos_msg>();
  ASSERT_NE(req, nullptr);
  ASSERT_EQ(req->ddm_data_count, 3u);
  EXPECT_EQ(req->ddm_data[2], 3u);
  // Protocol records carry their FPC entries.
  ddos_protocol_fpc_params fpcs[2] = {};
  fpcs[1].ddfp_fpc = 9;
  ddos_protocol_params protocols[2] = {};
  protocols[0].ddpp_proto = 11;
  protocols[1].ddpp_proto = 12;
  protocols[1].ddpp_fpcs = fpcs;
  protocols[1].ddpp_fpcs_count = 2;
  ASSERT_EQ(tarvik_ddos_request(c, protocols, 2, TLK_OP_CHANGE, 8, 0, 0, 0, nullptr, nullptr), 0);
  req = last_request_as<ddos_msg>();
  ASSERT_NE(req, nullptr);
  ASSERT_EQ(req->ddm_protocols_count, 2u);
  EXPECT_EQ(req->ddm_protocols[0].ddpp_fpcs_count, 0u);
  ASSERT_EQ(req->ddm_protocols[1].ddpp_fpcs_count, 2u);
  EXPECT_EQ(req->ddm_protocols[1].ddpp_fpcs[1].ddfp_fpc, 9u);
}

// ---- Raw layouts ----

TEST_F(Others, QsrKeyWidensItsThirdWordAndValuesDefaultToAllOnes) {
  kernel.record(true);
  const tarvik_qsr_key key{7, 8, -2};
  const uint64_t v2 = 5;
  void *m = nullptr;
  ASSERT_EQ(tarvik_qsrm_op(c, TLK_OP_GET, 1, 2, 3, &key, nullptr, &v2, &m), 0);
  tarvik_msg_free(c, m);
  const auto b = last_sent(kernel);
  ASSERT_EQ(b.size(), 96u);
  // The key's third word sign-extended at 56, the first value all ones, the second 5.
  expect_words(b, {{24, 1},
                   {36, 2},
                   {40, 3},
                   {48, 7},
                   {52, 8},
                   {56, 0xFFFFFFFE},
                   {60, 0xFFFFFFFF},
                   {64, 0xFFFFFFFF},
                   {68, 0xFFFFFFFF},
                   {72, 5},
                   {76, 0}});
}

TEST_F(Others, AspOwnerAndKindFollowTheEntry) {
  kernel.record(true);
  struct Row {
    int (*call)(tarvik_cookie *);
    uint8_t op;
    uint16_t owner, kind;
  } rows[] = {
      {[](auto *s) { return tarvik_asp_cfg_add(s, 3, 9, 1, 2, 5, 6); }, TLK_OP_ADD, 3, 9},
      {[](auto *s) { return tarvik_asp_cfg_change(s, 9, 1, 2, 5, 6); }, TLK_OP_CHANGE, 128, 9},
      {[](auto *s) { return tarvik_asp_cfg_delete(s, 1, 2, 5, 6); }, TLK_OP_DELETE, 128, 0},
  };
  for (const Row &r : rows) {
    ASSERT_EQ(r.call(c), 0);
    const auto b = last_sent(kernel);
    ASSERT_EQ(b.size(), 48u);
    EXPECT_EQ(b[6], r.op);
    EXPECT_EQ(b[46] | b[47] << 8, r.owner);
    EXPECT_EQ(b[40] | b[41] << 8, r.kind);
    expect_words(b, {{24, 6}, {32, 5}});
  }
}

TEST_F(Others, L2tpLacFormPacksItsValues) {
  kernel.record(true);
  const uint8_t local[16] = {10, 0, 0, 1}, remote[16] = {10, 0, 0, 2};
  const uint8_t data[3] = {0xA, 0xB, 0xC};
  const uint32_t ifl = 71;
  tarvik_l2tp_cfg cfg{};
  cfg.session = 4;
  cfg.af = 2;
  cfg.local = local;
  cfg.remote = remote;
  cfg.data = data;
  cfg.data_len = 3;
  cfg.ifl = &ifl;
  ASSERT_EQ(tarvik_l2tp_lac_session_cfg_add(c, &cfg, 1701, 1702, 1, 2, 3), 0);
  const auto b = last_sent(kernel);
  ASSERT_EQ(b.size(), 88u + 32 + 4);
  EXPECT_EQ(b[24], TARVIK_L2TP_LAC_SESSION);
  expect_words(b, {{76, 71}, {80, 1701u | 1702u << 16}, {84, (1u | 2u << 8) | 3u << 16}});
  EXPECT_EQ(b[88 + 3], 1);
  EXPECT_EQ(b[104 + 3], 2);
  EXPECT_EQ(b[120], 0xA);
}

TEST_F(Others, MonitoringStatisticsReplySizeFollowsTheMask) {
  const struct {
    uint32_t mask;
    size_t size;
  } rows[] = {{0, 44}, {1, 68}, {2, 84}, {3, 108}, {4, 92}, {12, 140}, {16, 68}, {31, 228}};
  for (const auto &r : rows) {
    SCOPED_TRACE(r.mask);
    void *m = nullptr;
    ASSERT_EQ(tarvik_monstats_get_by_index(c, 1, r.mask, TLK_OP_GET, &m), 0);
    EXPECT_EQ(static_cast<const tlk_hdr *>(m)->tlkh_msglen, r.size);
    tarvik_msg_free(c, m);
  }
}

TEST_F(Others, DownMapIsAnsweredByANotification) {
  const uint8_t key[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  static uint8_t data[16344];
  ASSERT_EQ(tarvik_pfe_dwn_map_send_req(c, 9, key, sizeof data, data), 0);
  void *m = nullptr;
  size_t len = 0;
  // The answer is a notification, not a reply: it doesn't carry the request's number.
  ASSERT_EQ(tarvik_long_msg_read(c, &m, &len), -2);
  ASSERT_NE(m, nullptr);
  const auto *b = static_cast<const uint8_t *>(m);
  EXPECT_EQ(b[5], TLK_MSG_PFE_DWN_MAP);
  EXPECT_EQ(b[6], TLK_OP_GET);
  EXPECT_EQ(memcmp(b + 32, key, 8), 0);
  tarvik_msg_free(c, m);
}

TEST_F(Others, PfeInfoCarriesItsKeysAndVksByte) {
  kernel.record(true);
  void *m = nullptr;
  ASSERT_EQ(tarvik_pfeinfo_get_by_index_vks(c, 3, 4, 1, TLK_OP_GET, &m), 0);
  tarvik_msg_free(c, m);
  const auto b = last_sent(kernel);
  ASSERT_EQ(b.size(), 36u);
  EXPECT_EQ(b[23], 1);
  expect_words(b, {{24, 3}, {32, 4}});
}

// ---- Trace lines ----

std::string line_of(tarvik_cookie *c, const void *msg) {
  char buf[2048];
  EXPECT_EQ(tarvik_format_output(c, buf, sizeof buf, 1, msg), 0);
  return buf;
}

TEST_F(Others, MonitoringReplyTraceLine) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_mon_get(c, TLK_OP_GET, &m, "ge0", 17, 0, 0), 0);
  EXPECT_EQ(line_of(c, m), columns("monitoring", "get") +
                               fmt("%s.%d, af=%d, at=%u, it=%d, agg int=%d, serv %d, aggr 0x%x",
                                   "ge0", 0, 0, 0u, 0, 0, 17, 0u) +
                               "\n");
  // The kernel's own fields, as a reply with both addresses and a group carries them.
  auto *body = static_cast<tarvik_mon_body *>(m);
  body->unit = 100;
  body->af = TLK_AF_INET;
  body->set = TARVIK_MON_DST | TARVIK_MON_SRC;
  body->active = 60;
  body->inactive = 15;
  body->agg_int = 5;
  body->aggr = 0x1f;
  const uint8_t dst[4] = {192, 0, 2, 1}, src[4] = {198, 51, 100, 7};
  memcpy(body->dst, dst, 4);
  memcpy(body->src, src, 4);
  body->dst_port = 2055;
  body->src_port = 9995;
  auto *bytes = static_cast<uint8_t *>(m);
  body->group_len = 4;
  memcpy(bytes + 280 + 4, "grp", 4);
  const uint32_t msglen = 280 + 4 + 4;
  memcpy(bytes + 8, &msglen, 4);
  EXPECT_EQ(line_of(c, m), columns("monitoring", "get") +
                               fmt("%s.%d, af=%d, at=%u, it=%d, agg int=%d, serv %d, aggr 0x%x",
                                   "ge0", 100, 2, 60u, 15, 5, 17, 0x1fu) +
                               fmt(" dst (%s:%u)", "192.0.2.1", 2055u) +
                               fmt(" src (%s:%u) group (%s)", "198.51.100.7", 9995u, "grp") + "\n");
  tarvik_msg_free(c, m);
}

TEST_F(Others, ReplyTraceLines) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_asp_cfg_get(c, 3, 0, 42, 7, TLK_OP_GET, &m), 0);
  EXPECT_EQ(line_of(c, m), columns("asp config", "get") + "picidx=3, cfgtype=0, cfgidx=7\n");
  tarvik_msg_free(c, m);
  ASSERT_EQ(__tarvik_iflsm_get_by_index(c, 71, 0, TLK_OP_GET, &m), 0);
  const auto *s = static_cast<const tarvik_iflstats_body *>(m);
  EXPECT_EQ(line_of(c, m),
            columns("iflstats", "get") +
                fmt("iflidx=%u, txpkts=%u rxpkts=%u", 71u, static_cast<unsigned>(s->tx_packets),
                    static_cast<unsigned>(s->rx_packets)) +
                "\n");
  tarvik_msg_free(c, m);
  ASSERT_EQ(tarvik_ifdalm_get_by_if_index(c, 130, TLK_OP_GET, &m), 0);
  const auto *a = static_cast<const tarvik_ifdalarm_body *>(m);
  EXPECT_EQ(line_of(c, m),
            columns("ifdalarm", "get") +
                fmt("name=%s idx=%d alarms=0x%x mask=0x%x type=%d", "", 130, a->alarms, 0u, 0) +
                "\n");
  tarvik_msg_free(c, m);
}

}  // namespace
}  // namespace tlktest
