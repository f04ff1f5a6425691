// The smaller object families' own rules: argument refusals that send nothing, size limits, the
// statistics setting, PIC attachments, the reply sizes of monitoring statistics, the down map's
// late answer, the raw layouts as they leave the library, and the trace lines of the monitoring,
// service PIC, interface statistics and device alarm replies.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/harness.h"

namespace tlktest {
namespace {

// The common columns of a trace line.
std::string columns(const char *type, const char *op) {
  char buf[64];
  snprintf(buf, sizeof buf, "%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s", "self", "self", "P", type,
           op);
  return buf;
}

// A field of a request: `width` bytes at `at` hold `value`.
struct Field {
  size_t at;
  int width;
  uint32_t value;
};

void expect_fields(const Bytes &b, const std::vector<Field> &fields) {
  for (const Field &f : fields) {
    ASSERT_LE(f.at + static_cast<size_t>(f.width), b.size());
    const uint32_t got = f.width == 1   ? b[f.at]
                         : f.width == 2 ? get_u16(b.data(), f.at)
                                        : get_u32(b.data(), f.at);
    EXPECT_EQ(got, f.value) << "at " << f.at;
  }
}

class Others : public OneSessionTest {
 protected:
  // A request that went out: the call passed, its reply (if any) is let go, and what was written
  // has `size` bytes and `fields`.
  void expect_sent(int err, size_t size, const std::vector<Field> &fields, TLK_CALLER_ARGS) {
    TLK_AT_CALLER;
    EXPECT_EQ(err, 0);
    tarvik_msg_free(c, reply);
    reply = nullptr;
    const Bytes b = last_sent(kernel);
    ASSERT_EQ(b.size(), size);
    expect_fields(b, fields);
  }
  void *reply = nullptr;
};

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
  EXPECT_EQ(tarvik_pfestat_clear(c, 1, 2, TLK_OP_CLEAR, 3, 4, &m, data, 16348), EMSGSIZE);
  EXPECT_EQ(sent_count(kernel), 0u);
  // User data over its largest size is diagnosed with the entry's name.
  EXPECT_TRUE(log.contains("invalid user data length 16348, tarvik_pfestat_clear"));
  EXPECT_EQ(log.count(TLK_LEVEL_ERROR), 2u);
}

// ---- System statistics ----

TEST_F(Others, SystemStatisticsFollowTheSettingBeforeTheSession) {
  kernel.chassis().set_sysstats_enabled(false);
  void *m = nullptr;
  EXPECT_EQ(tarvik_get_systemstats(nullptr, TLK_OP_GET, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(tarvik_get_systemstats(c, TLK_OP_GET, &m, nullptr), EOPNOTSUPP);
  kernel.chassis().set_sysstats_enabled(true);
  ASSERT_EQ(tarvik_get_systemstats(c, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(static_cast<const sysstats_msg *>(m)->ssm_request & 1, 1);
  tarvik_msg_idl_release(c, m, nullptr);
  kernel.erase_sysctl("net.sysstats_enable");
  kernel.set_sysctl_u32("net.sysstats_enable", 0);
  EXPECT_EQ(tarvik_get_systemstats(c, TLK_OP_GET, &m, nullptr), EOPNOTSUPP)
      << "a value set on the kernel takes the family's place";
  // Interface accounting asks with request 4.
  ASSERT_EQ(tarvik_ifl_get_accounting(c, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(static_cast<const sysstats_msg *>(m)->ssm_request, 4);
  tarvik_msg_idl_release(c, m, nullptr);
}

// ---- PICs ----

// An add turns its stream into attachments; a change attaches one item per attribute; a delete
// removes.
TEST_F(Others, PicAddChangeAndDelete) {
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
  const struct {
    uint32_t attr;
    uint8_t value;
    uint32_t code;
  } rows[] = {{1, 3, 0x1000001}, {2, 1, 0x1000002}, {4, 9, 0x1000004}};
  for (const auto &r : rows) {
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
  // A delete removes it: a get meets the kernel's refusal.
  ASSERT_EQ(tarvik_pic_delete(c, 1, 2), 0);
  void *m = nullptr;
  EXPECT_EQ(tarvik_pic_get(c, 1, 2, TLK_OP_GET, &m, nullptr), EOPNOTSUPP);
}

// ---- Kernel synchronisation, markers, sampling, injection ----

TEST_F(Others, KsyncChangeAndMarkerAreReadBack) {
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
  // Marker fields go where their arguments say, and a marker asked for comes back.
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
  ASSERT_EQ(tarvik_marker_get(c, &m, nullptr), 0);
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

TEST_F(Others, InjectionAndDdosRequestsCarryTheirData) {
  const uint8_t packet[60] = {0x45}, meta[8] = {1};
  const tarvik_pktinject p{packet, sizeof packet, meta, sizeof meta};
  kernel.record(true);
  ASSERT_EQ(tarvik_pktinject_add(c, 77, &p), 0);
  EXPECT_EQ(kernel.chassis().last_injected_len(), 60u);
  auto req = last_request_as<pktinject_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->pim_hdr.tlkh_id, 77u);
  EXPECT_EQ(req->pim_meta_len, 8u);
  // DDoS requests carry their data, and protocol records their FPC entries.
  const uint32_t words[3] = {1, 2, 3};
  void *m = nullptr;
  ASSERT_EQ(tarvik_ddos_request(c, words, 3, TLK_OP_GET, 1, 2, 1, 4, &m, nullptr), 0);
  const auto &d = *static_cast<const ddos_msg *>(m);
  EXPECT_EQ(d.ddos_kind, 2);
  EXPECT_EQ(d.ddos_flags, 4);
  tarvik_msg_idl_release(c, m, nullptr);
  auto ddos = last_request_as<ddos_msg>();
  ASSERT_NE(ddos, nullptr);
  ASSERT_EQ(ddos->ddm_data_count, 3u);
  EXPECT_EQ(ddos->ddm_data[2], 3u);
  // Protocol records carry their FPC entries.
  ddos_protocol_fpc_params fpcs[2] = {};
  fpcs[1].ddfp_fpc = 9;
  ddos_protocol_params protocols[2] = {};
  protocols[0].ddpp_proto = 11;
  protocols[1].ddpp_proto = 12;
  protocols[1].ddpp_fpcs = fpcs;
  protocols[1].ddpp_fpcs_count = 2;
  ASSERT_EQ(tarvik_ddos_request(c, protocols, 2, TLK_OP_CHANGE, 8, 0, 0, 0, nullptr, nullptr), 0);
  ddos = last_request_as<ddos_msg>();
  ASSERT_NE(ddos, nullptr);
  ASSERT_EQ(ddos->ddm_protocols_count, 2u);
  EXPECT_EQ(ddos->ddm_protocols[0].ddpp_fpcs_count, 0u);
  ASSERT_EQ(ddos->ddm_protocols[1].ddpp_fpcs_count, 2u);
  EXPECT_EQ(ddos->ddm_protocols[1].ddpp_fpcs[1].ddfp_fpc, 9u);
}

// ---- Raw layouts ----

TEST_F(Others, RawRequestsGoOutInTheirLayout) {
  kernel.record(true);
  // The largest user data: 36 bytes and the data padded to 4.
  static uint8_t data[16347];
  data[0] = 0xAB;
  expect_sent(tarvik_pfestat_get_by_index(c, 1, 2, TLK_OP_GET, 3, 4, &reply, data, 16347), 16384,
              {{23, 1, 3}, {24, 1, 4}, {25, 1, 1}, {26, 1, 2}, {28, 2, 16347}, {36, 1, 0xAB}});
  // The qsr key's third word sign-extended at 56, the first value all ones, the second 5.
  const tarvik_qsr_key key{7, 8, -2};
  const uint64_t v2 = 5;
  expect_sent(tarvik_qsrm_op(c, TLK_OP_GET, 1, 2, 3, &key, nullptr, &v2, &reply), 96,
              {{24, 4, 1}, {36, 4, 2}, {40, 4, 3}, {48, 4, 7}, {52, 4, 8}, {56, 4, 0xFFFFFFFE}});
  expect_fields(last_sent(kernel),
                {{60, 4, ~0u}, {64, 4, ~0u}, {68, 4, ~0u}, {72, 4, 5}, {76, 4, 0}});
  // The asp owner and kind follow the entry.
  expect_sent(tarvik_asp_cfg_add(c, 3, 9, 1, 2, 5, 6), 48,
              {{6, 1, TLK_OP_ADD}, {46, 2, 3}, {40, 2, 9}, {24, 4, 6}, {32, 4, 5}});
  expect_sent(tarvik_asp_cfg_change(c, 9, 1, 2, 5, 6), 48,
              {{6, 1, TLK_OP_CHANGE}, {46, 2, 128}, {40, 2, 9}, {24, 4, 6}, {32, 4, 5}});
  expect_sent(tarvik_asp_cfg_delete(c, 1, 2, 5, 6), 48,
              {{6, 1, TLK_OP_DELETE}, {46, 2, 128}, {40, 2, 0}, {24, 4, 6}, {32, 4, 5}});
  // The L2TP LAC form packs its values.
  const uint8_t local[16] = {10, 0, 0, 1}, remote[16] = {10, 0, 0, 2}, l2tp[3] = {0xA, 0xB, 0xC};
  const uint32_t ifl = 71;
  tarvik_l2tp_cfg cfg{};
  cfg.session = 4;
  cfg.af = 2;
  cfg.local = local;
  cfg.remote = remote;
  cfg.data = l2tp;
  cfg.data_len = 3;
  cfg.ifl = &ifl;
  expect_sent(tarvik_l2tp_lac_session_cfg_add(c, &cfg, 1701, 1702, 1, 2, 3), 88 + 32 + 4,
              {{24, 1, TARVIK_L2TP_LAC_SESSION},
               {76, 4, 71},
               {80, 4, 1701u | 1702u << 16},
               {84, 4, (1u | 2u << 8) | 3u << 16},
               {91, 1, 1},
               {107, 1, 2},
               {120, 1, 0xA}});
  // PFE info carries its keys and its vks byte.
  expect_sent(tarvik_pfeinfo_get_by_index_vks(c, 3, 4, 1, TLK_OP_GET, &reply), 36,
              {{23, 1, 1}, {24, 4, 3}, {32, 4, 4}});
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

// ---- Trace lines ----

std::string line_of(tarvik_cookie *c, const void *msg) {
  char buf[2048];
  EXPECT_EQ(tarvik_format_output(c, buf, sizeof buf, 1, msg), 0);
  return buf;
}

TEST_F(Others, ReplyTraceLines) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_mon_get(c, TLK_OP_GET, &m, "ge0", 17, 0, 0), 0);
  EXPECT_EQ(line_of(c, m), columns("monitoring", "get") +
                               "ge0.0, af=0, at=0, it=0, agg int=0, serv 17, aggr 0x0\n");
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
                               "ge0.100, af=2, at=60, it=15, agg int=5, serv 17, aggr 0x1f dst "
                               "(192.0.2.1:2055) src (198.51.100.7:9995) group (grp)\n");
  tarvik_msg_free(c, m);
  // The service PIC configuration, interface statistics and device alarm replies.
  ASSERT_EQ(tarvik_asp_cfg_get(c, 3, 0, 42, 7, TLK_OP_GET, &m), 0);
  EXPECT_EQ(line_of(c, m), columns("asp config", "get") + "picidx=3, cfgtype=0, cfgidx=7\n");
  tarvik_msg_free(c, m);
  ASSERT_TRUE(kernel.ifls().set_counters(71, 12, 34));
  ASSERT_EQ(__tarvik_iflsm_get_by_index(c, 71, 0, TLK_OP_GET, &m), 0);
  EXPECT_EQ(line_of(c, m), columns("iflstats", "get") + "iflidx=71, txpkts=34 rxpkts=12\n");
  tarvik_msg_free(c, m);
  ASSERT_TRUE(kernel.devices().set_counters(130, 12, 34, 0x5a));
  ASSERT_EQ(tarvik_ifdalm_get_by_if_index(c, 130, TLK_OP_GET, &m), 0);
  EXPECT_EQ(line_of(c, m),
            columns("ifdalarm", "get") + "name= idx=130 alarms=0x5a mask=0x0 type=0\n");
  tarvik_msg_free(c, m);
}

}  // namespace
}  // namespace tlktest
