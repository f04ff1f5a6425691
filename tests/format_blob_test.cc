// The gencfg blob printer behind the message formatter: one row per blob type with a record
// encoded by its own TLV encoder and the whole expected line, damaged blobs, the truncation of a
// long list, the rate list, the USP rows, and every memory identifier balanced after each print.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "support/harness.h"
#include "tarlink.h"

namespace tlktest {
namespace {

std::string fmt(const char *format, ...) TLK_PRINTF(1, 2);
std::string fmt(const char *format, ...) {
  char buf[4096];
  va_list ap;
  va_start(ap, format);
  vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  return buf;
}

// The bytes of a record through its own encoder.
template <typename R, typename Enc>
Bytes encode(Enc enc, const R &r) {
  Bytes b(8192);
  const uint32_t n = enc(&r, nullptr, b.data(), static_cast<uint32_t>(b.size()));
  EXPECT_GT(n, 0u);
  b.resize(n);
  return b;
}
#define ENC(rec, r) encode(tlv_encode_##rec##_0, r)

uint8_t *str(const char *s, uint32_t *len) {
  *len = static_cast<uint32_t>(strlen(s) + 1);
  return reinterpret_cast<uint8_t *>(const_cast<char *>(s));
}
#define SET(r, f, s) r.f = str(s, &r.f##_len)

// A net-form item whose length runs past the blob's end.
const Bytes kDamaged = {0x00, 0x01, 0x00, 0x20, 0x01, 0x02};

Bytes be_words(std::initializer_list<uint32_t> words) {
  Bytes b;
  for (uint32_t w : words)
    for (int s = 24; s >= 0; s -= 8) b.push_back(static_cast<uint8_t>(w >> s));
  return b;
}
Bytes name64(const char *name) {
  Bytes b(64, 0);
  memcpy(b.data(), name, strlen(name));
  return b;
}

struct Row {
  const char *what;
  uint16_t major, minor;
  Bytes blob;
  std::string text;  // what follows the head
  uint8_t op = 1;
};

class FormatBlob : public OneSessionTest {
 protected:
  // The trace line of a gencfg message, and the accounting it leaves: every identifier's
  // outstanding count must be back where it was.
  std::string line(uint16_t major, uint16_t minor, Bytes *blob, uint8_t op = 1,
                   size_t size = 2048) {
    gencfg_msg m{};
    m.gencfg_hdr.tlkh_type = TLK_MSG_GENCFG;
    m.gencfg_hdr.tlkh_op = op;
    m.gencfg_hdr.tlkh_id = 1;
    m.gencfg_hdr.tlkh_seq = 77;
    m.major = major;
    m.minor = minor;
    m.kid = 5;
    m.lrid = 2;
    if (blob != nullptr) {
      m.blob = blob->data();
      m.blob_len = static_cast<uint32_t>(blob->size());
    }
    before = allocs();
    const auto start = outstanding();
    std::vector<char> buf(size + 1, '#');
    rc = tarvik_format_output(c, buf.data(), size, 0, &m);
    EXPECT_EQ(buf[size], '#');
    EXPECT_EQ(outstanding(), start) << "major " << major << " minor " << minor;
    return std::string(buf.data(), strnlen(buf.data(), size));
  }
  static std::vector<uint32_t> allocs() {
    std::vector<uint32_t> a;
    for (unsigned i = 0; i < MEMID_TARVIK_MAX; ++i) a.push_back(tarvik_mem_record.cnts[i].allocs);
    return a;
  }
  static std::string head(uint16_t major, uint16_t minor, uint8_t op = 1) {
    return fmt("%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s", "kernel", "self", "P", "gencfg",
               rtm_ops[op]) +
           fmt("major type=\"%s\" minor type=%u seq %d kid=%d lrid=%d",
               tarvik_gencfg_format_majortype(major), minor, 77, 5, 2);
  }
  std::vector<uint32_t> before;
  int rc = 0;
};

const char *cos(int minor) {
  return tarvik_format_cos_type(minor);
}
// The opening of most class-of-service texts, and the line of an undecodable record.
std::string minor(int m) {
  return fmt(" minor type=<%s>:", cos(m));
}
std::string undecodable(int m) {
  return fmt(" minor-type: %d unable to IDL DECODE \n", m);
}

std::vector<Row> blob_rows() {
  std::vector<Row> rows;
  {
    cos_msg_class_to_ifl r{};
    r.ifl = 71;
    SET(r, table_type, "dscp");
    r.table_id = 4;
    r.cos_flags = 0x30;
    rows.push_back({"cos classifier to ifl", 8, 6, ENC(cos_msg_class_to_ifl, r),
                    minor(6) + " ifl = 71, table type = dscp, table id = 4, cos_flags 0x30"});
  }
  {
    cos_msg_fixed_class r{};
    SET(r, action, "add");
    r.ifl = 9;
    r.queue = 3;
    rows.push_back({"cos fixed class", 8, 7, ENC(cos_msg_fixed_class, r),
                    fmt(" minor-type=<%s>: action=add ifl=9 queue=3 ", cos(7))});
  }
  {
    cos_msg_pm_to_ifl_bind r{};
    r.id = 12;
    SET(r, name, "pm-a");
    r.ifl_index = 300;
    r.flags = 0x5;
    rows.push_back(
        {"cos policy map bind", 8, 38, ENC(cos_msg_pm_to_ifl_bind, r),
         fmt(" Minor Type <%s>: ID[12], Name[pm-a], IFL-Index[300], Flags[0x5]", cos(38))});
  }
  {
    cos_red_drop_profile_msg r{};
    red_drop_profile e[2] = {{1, 50, 10}, {1, 90, 80}};
    r.profile_id = 1;
    SET(r, name, "red-1");
    r.entries = e;
    r.num_entries = 2;
    rows.push_back(
        {"cos drop profile with rows", 8, 9, ENC(cos_red_drop_profile_msg, r),
         minor(9) + " profile id = 1, name red-1 num entries = 2"
                    "\n\tDrop-prof-id\tPercent-full\tDrop-Prob\n\t1\t\t50\t\t10\n\t1\t\t90\t\t80"});
  }
  {
    cos_msg_tcm_table_msg r{};
    tcm_table_entry e[1] = {};
    e[0].tcm_code_point = 46;
    SET(e[0], tcm_class, "voice");
    r.table_id = 3;
    SET(r, type, "dscp");
    r.entries = e;
    r.num_entries = 1;
    rows.push_back({"cos traffic class map", 8, 34, ENC(cos_msg_tcm_table_msg, r),
                    minor(34) + " table id = 3, type = dscp, num entries = 1, \n\tCode-point\t"
                                "Traffic-class\n\t-------------------------------\n\t46\t\tvoice"});
  }
  {
    cos_msg_global_table r{};
    cos_msg_fc_to_queue_map q[1] = {{2, 3, 4, 5, 6}};
    SET(r, action, "add");
    r.forw_classes = 4;
    SET(r, plp_copy, "on");
    SET(r, plp_copy_all, "off");
    SET(r, tri_color, "on");
    SET(r, strict_prio, "off");
    r.rate_limit_burst = -1;
    r.flags = 0x11;
    r.rows = q;
    r.num_rows = 1;
    rows.push_back({"cos global table", 8, 4, ENC(cos_msg_global_table, r),
                    minor(4) +
                        " action=add forw-classes=4 plp-copy=on plp-copy-all=off "
                        "tri-color=on strict-prio-sched=off rate-limit-burst=-1 "
                        "cos_msg_global_flag = 11\n\tForw-class-id\tQueue\tRestricted "
                        "Queue\tPolicing Priority\tSPU Priority\n\t2\t\t3\t4\t\t\t5\t\t\t6"});
  }
  {
    cos_msg_rewrite_table r{};
    cos_rewrite_value_msg e[1] = {{1, -1, 1, 0x28}};
    SET(r, action, "chg");
    r.table_id = 8;
    SET(r, name, "rw");
    SET(r, type, "exp");
    r.entries = e;
    r.num_entries = 1;
    rows.push_back({"cos rewrite table", 8, 14, ENC(cos_msg_rewrite_table, r),
                    minor(14) +
                        " action=chg table-id=8 name rw type=exp entries=1\n\t forw-class "
                        "\t <loss-priority, rw_enable, rw_bits>\n\t 1 \t <-1, 0x1, 0x28>  "});
  }
  {
    cos_msg_global_host_out_fc_table r{};
    r.host_out_id = 1;
    r.fc = 2;
    r.queue = 3;
    SET(r, rewrite_802dot1p, "yes");
    SET(r, default_802dot1p, "no");
    r.default_802dot1p_val = 5;
    rows.push_back({"cos host outbound", 8, 28, ENC(cos_msg_global_host_out_fc_table, r),
                    fmt("minor type=<%s>: host_out_id 1 fc 2 queue 3 rewrite_802dot1p yes "
                        "default_802dot1p no default_802dot1p_val 0x5",
                        cos(28))});
  }
  for (uint32_t form : {0u, 1u}) {
    cos_sched_policy_msg_inline r{};
    sched_policy q[1] = {{1, 2, 3, 4, 5, 6, 7, 8}};
    cos_pps_rate_s rate[1] = {{3, 40}};
    r.form = form;
    r.ifd = 128;
    r.ifl = 70;
    r.num_queues = 1;
    SET(r, stream, "in");
    SET(r, oh_mode, "m");
    SET(r, oh_rem_mode, "r");
    r.parent_type = 1;
    r.excess_rate = 9;
    r.ppsrs = rate;
    r.ppsrs_count = 1;
    r.queues = q;
    r.queue_rows = 1;
    const std::string text =
        form == 0 ? " ifd 128, ifl 70, num queues 1 stream in sched-smap-id 0 shaping-rate 0 "
                    "guaranteed-rate 0 delay-buf 0 remaining=(id:0 - 0,0,0)  excess-rate 0 9 "
                    "ppsrs=(eh:40) ppsrs-rem= OH bytes=0, OH mode=m OH rem_bytes=0 OH rem_mode=r "
                    "scale=0 scale-flags=0x0 sched_mode=0 max_sched_levels=0"
                  : " ifd 128, ifl 70, num queues 1, stream in parent-type logical interface "
                    "parent-index 0 sched-smap-id 0 shaping-rate 0 guaranteed-rate 0 delay-buf 0 "
                    "excess-type 0 excess-rate 9 cos flags 0x0";
    rows.push_back({form == 0 ? "cos inline policy, rates" : "cos inline policy, parent", 8, 8,
                    ENC(cos_sched_policy_msg_inline, r),
                    minor(8) + text +
                        "\npri  tx-rate  shaping-  shaping-  excess-  excess exc- avg  \n         "
                        "       rate    burst By    rate    type  pri  const\n--- --------- "
                        "--------- -------- --------- ------ ---- -----\n" +
                        fmt("%3u %9u %9llu %8u %9u %6u %4u %5u\n", 1, 2, 3ull, 4, 5, 6, 7, 8)});
  }
  rows.push_back(
      {"l2tp cos info", 7, 0,
       cat({be_words({1, 2, 3}), name64("ge-0/0/0"), be_words({5, 6, 7}), name64("gold"),
            be_words({8, 9, 10}), name64("s1"), be_words({1, 0})}),
       ", Ses 1/2 tnl grp 3, ifl ge-0/0/0.5 6 devindex 7, cos gold 8 9 10 s1 encap 1 cell 0"});
  rows.push_back({"cos l2tp nack, fixed words", 8, 2, be_words({10, 20, 30, 40}),
                  "ifl 10 Tunnel group idx 20 local tunnel id 30 local session id 40"});
  rows.push_back(
      {"cos minor without a printer", 8, 39, be_words({1}), fmt(" minor type=<%s>", cos(39))});
  rows.push_back(
      {"cos minor past the names", 8, 50, be_words({1}), " minor type=<Invalid message type>"});
  rows.push_back({"cos damaged blob", 8, 6, kDamaged, fmt(" minor type=<%s>", cos(6))});
  {
    _dfw_tricolor r{};
    SET(r.key, dtk_name, "tc1");
    r.key.dtk_index = 4;
    r.mode = 1;
    r.color = 2;
    r.cir = 1000000;
    r.cbs = 15000;
    r.ebs = 30000;
    r.pir = 2000000;
    r.pbs = 45000;
    r.flags = 8;
    rows.push_back({"firewall tricolor", 15, 11, ENC(_dfw_tricolor, r),
                    "\nDFW minor type 11 [TRICOLOR] name tc1(4) mode 1 color 2 CIR 1000000 CBS "
                    "15000 EBS 30000 PIR 2000000 PBS 45000 flags 8"});
  }
  {
    uint16_t ids[3] = {7, 8, 900};
    const _dfw_client_session_info r{ids, 3};
    rows.push_back({"firewall session info", 15, 12, ENC(_dfw_client_session_info, r),
                    "\nDFW minor type 12 [SESSION INFO] num-client-ids 3 [ 7 8 900 "});
  }
  {
    _dfw_psa r{};
    SET(r.key, dsk_name, "psa1");
    r.app = 3;
    r.flags = 5;
    r.prefix_len = 24;
    r.subnet_len = 16;
    rows.push_back({"firewall psa without policer", 15, 15, ENC(_dfw_psa, r),
                    "\nDFW minor type 15 [PSA] name psa1 (app 3) policer NULL count destination "
                    "prefix_len 24 subnet_len 16 flags 0x5"});
  }
  {
    _dfw_filter_head r{};
    r.dfh_index.dfh_key_index = 17;
    SET(r, dfh_name, "f-in");
    r.dfh_flags = 1;
    r.dfh_kind = 2;
    r.dfh_family_code = 3;
    r.dfh_family = 4;
    r.dfh_af = 2;
    rows.push_back({"firewall filter head", 15, 21, ENC(_dfw_filter_head, r),
                    "\nDFW minor type 21 [FILTER HEAD] filter index 17 NAME: f-in optimization 1 "
                    "type 2 semantic 3 app-type 4 af 2"});
  }
  rows.push_back({"firewall minor without a row", 15, 14, be_words({1}), "\nDFW minor type 14"});
  rows.push_back({"firewall damaged blob", 15, 10, kDamaged, undecodable(10)});
  rows.push_back(
      {"issu chassisd state", 16, 1, be_words({3}),
       fmt(" ISSU Chassisd state  Chassisd State <%s>", tarvik_format_chassisd_issu_state(3))});
  rows.push_back(
      {"issu chassisd state on delete", 16, 1, be_words({3}), " ISSU Chassisd state ", 3});
  rows.push_back(
      {"issu daemon state", 16, 0, cat({be_words({2, 30}), name64("late")}),
       fmt(" ISSU Daemon state  <%s> wait 30 errstr late", tarvik_format_daemon_issu_state(2))});
  {
    const ancp_msg_global_cfg r{6, 0};
    rows.push_back({"ancp", 26, 0, ENC(ancp_msg_global_cfg, r), " instance: 6"});
  }
  rows.push_back({"ancp damaged", 26, 0, kDamaged, undecodable(0)});
  {
    const mcf_edge_src_mod_filter_data r{1, 2, 3};
    rows.push_back({"multicast edge srcmod filter", 40, 1, ENC(mcf_edge_src_mod_filter_data, r),
                    " edge srcmod filter chipid=1 srcmod=2 chosenineid=3 "});
  }
  rows.push_back({"multicast damaged", 40, 0, kDamaged,
                  " mc_idx filter  minor-type: mc_idx unable to IDL DECODE \n"});
  {
    fpdl_definition_msg r{};
    r.fpdl_id = 9;
    SET(r, fpdl_name, "prog");
    SET(r, fpdl_data, "x=1");
    rows.push_back({"fpdl definition", 43, 0, ENC(fpdl_definition_msg, r),
                    "fpdl id = 9 fpdl name = progfpdl data= x=1\n"});
  }
  {
    fpdl_fpb_msg r{};
    fpdl_fpb_args a[2] = {};
    SET(a[0], arg_name, "port");
    a[0].arg_val = 80;
    SET(a[1], arg_name, "proto");
    a[1].arg_val = 6;
    r.instance_id = 2;
    r.fpdl_id = 9;
    r.args = a;
    r.num_args = 2;
    rows.push_back({"fpdl fpb with arguments", 44, 0, ENC(fpdl_fpb_msg, r),
                    "fpdl-instance id = 2 fpdl-id = 9fpdl-num-args = 2\n arg-name port, arg-val "
                    "80\narg-name proto, arg-val 6\n"});
  }
  {
    const fpdl_fpb_bind_msg r{2, 1, 300, 0};
    rows.push_back({"fpdl bind", 46, 0, ENC(fpdl_fpb_bind_msg, r),
                    "fpdl-instance id = 2 fpdl-bind-type = 1 fpdl-bind-index = 300 "
                    "fpdl-bind-direction = 0\n"});
  }
  rows.push_back({"fpdl api damaged", 45, 1, kDamaged, "\n minor-type: 1 unable to IDL DECODE \n"});
  rows.push_back(
      {"usp zone", 2, 2, cat({name64("trust"), be_words({4})}), " Type ZONE name trust, id 4"});
  rows.push_back({"usp zone, short blob", 2, 2, be_words({4}), " Type ZONE No zone data."});
  rows.push_back({"usp ssl profile", 2, 88, cat({be_words({7}), name64("p1"), be_words({3})}),
                  " Type SSL_TERM_PROFILE key 7, profile p1, id 3"});
  rows.push_back({"usp power mode", 2, 153, be_words({1}), " Type POWER_MODE_IPSEC Enabled"});
  rows.push_back({"usp row without printer", 2, 1, be_words({1}), " Type TESTOBJ "});
  rows.push_back({"usp above the table", 2, 200, be_words({1}), " kernel id=5"});
  rows.push_back({"ipsec sa", 6, 1, be_words({0x10, 0xabc}),
                  fmt(" Type %s tunnel id 10 spi abc", tarvik_gencfg_format_ipsectype(1))});
  rows.push_back(
      {"l2 token", 13, 0, be_words({0x99, 1, 12, 3}),
       fmt(" token: 0x99, type: %s, iflidx: 12, rtt: 3", tarvik_gencfg_format_l2token_type(1))});
  rows.push_back({"sdb", 54, 0, name64("ge-0/0/1"), " interface name ge-0/0/1"});
  rows.push_back({"ppm unknown minor", 69, 9, be_words({1}), "\nPPM minor type 9 [UNKNOWN ?!]"});
  rows.push_back(
      {"ppm bfd", 69, 0, be_words({44, 12}),
       fmt(" PPM minor type = %s, Key(discriminator) 44, NH-Index 12", tarvik_format_ppm_type(0))});
  rows.push_back({"lldp", 72, 3, be_words({1}), "format_lldpd_gencfg_output minor 3 "});
  rows.push_back({"vbf", 73, 2, be_words({1}), " service "});
  rows.push_back({"oiu past the words", 74, 4, be_words({1}), "OIU type unkown"});
  rows.push_back({"slaac", 92, 1, be_words({1}), " Slaac-Snoopd minor-type 1 "});
  {
    uint32_t tariffs[2] = {5, 6};
    const medge_tariff_prof t{1, 2, 2, tariffs, 2};
    rows.push_back({"medge tariff", 56, 0, ENC(medge_tariff_prof, t),
                    "Tariff Prof: id=1, gw_id=2, num_tariff_entries=2"});
    const medge_quota_prof q{3, 1, 2, 60, 1000};
    rows.push_back({"medge quota", 56, 1, ENC(medge_quota_prof, q),
                    " Quota Prof: id=3, tariff_prof_id=1, gw_id: 2, time=60, vol=1000"});
    const medge_pfe_gw_mapping g{4, 2, 0};
    rows.push_back({"medge pfe mapping", 56, 2, ENC(medge_pfe_gw_mapping, g),
                    " PFE<->GW Mapping: id=4,gw_id=2"});
    rows.push_back({"medge damaged", 56, 1, kDamaged, undecodable(1)});
    rows.push_back({"medge minor without a record", 56, 9, be_words({1}), ""});
  }
  {
    const gencfg_secy_params r{0, 140, 0x0011223344550001ull, 1, 30, 1, 64};
    rows.push_back({"macsec secy", 57, 0, ENC(gencfg_secy_params, r),
                    "\n minor-type: secy_params\n ifd_index: 140\n sci: 0x11223344550001\n "
                    "cipher: 1\n offset: 30\n replay_protect: 1\n replay_window: 64\n"});
    const gencfg_global_disable g{0, 1};
    rows.push_back({"macsec global disable", 57, 4, ENC(gencfg_global_disable, g),
                    "\n minor-type: global_disable\n ifd_index: 0\n disable: 1\n"});
    rows.push_back(
        {"macsec damaged", 57, 3, kDamaged, " minor-type: macsec_filter unable to IDL DECODE \n"});
  }
  {
    const qdhcp_msg_bd_cfg r{0, 10, 0x5, 0x80, {}};
    rows.push_back({"dhcp relay domain", 59, 0, ENC(qdhcp_msg_bd_cfg, r),
                    " minor-type: 0 bd_index: 10\n config_flags: 5 config_flags2:80 "
                    "no-dhcp-snoop ip-source-guard "});
    rows.push_back(
        {"dhcp global v4 relay", 59, 3, be_words({1}), "\n minor-type: global_v4_relay \n"});
    rows.push_back({"dhcp global v6 relay", 59, 5, kDamaged, "\n minor-type: global_v6_relay \n"});
    rows.push_back({"dhcp damaged", 59, 1, kDamaged, undecodable(1)});
  }
  {
    const analytics_msg_ifd_cfg i{140, 1, 2, 3, 4, 5, 6};
    rows.push_back({"analytics interface", 67, 0, ENC(analytics_msg_ifd_cfg, i),
                    " type=ifd_cfg: ifd_idx=140 ts=1 qm=2 lth=3 ltl=4 dth=5 dtl=6"});
    const analytics_msg_global_cfg g{1, 10, 1, 100, 7, 8, 9, 10};
    rows.push_back({"analytics global", 67, 1, ENC(analytics_msg_global_cfg, g),
                    " type=gbl_cfg: ts=1 tsint=10sec qs=1 qsint=100msec lth=7 ltl=8 dth=9 dtl=10"});
  }
  {
    const agentd_msg_sensor_counter_cfg r{1ull << 40, 0x3};
    rows.push_back({"sensor counter", 70, 2, ENC(agentd_msg_sensor_counter_cfg, r),
                    " type=counter_cfg: id=1099511627776, flags=0x3"});
  }
  {
    const ep_interface i{0, 100, 48, nullptr, 0};
    rows.push_back(
        {"port extender interfaces", 76, 0, ENC(ep_interface, i),
         "\nSPMD minor type:      0\nslot:                 100\nnumber of interfaces: 48"});
    ep_device d{};
    ep_device_cascade cascades[2] = {{140, 1}, {141, 2}};
    d.epd_minor_type = 1;
    d.epd_slot = 101;
    SET(d, epd_model, "qfx");
    SET(d, epd_serial, "SN1");
    SET(d, epd_alias, "sat1");
    d.epd_state = 2;
    const uint8_t id[6] = {0, 1, 2, 3, 4, 0xab};
    memcpy(d.epd_system_id, id, 6);
    d.epd_rgid = 1;
    d.epd_mcast_replication = 1;
    d.epd_stat_port = 10;
    d.epd_amd_port = 11;
    d.epd_cpd_port = 12;
    d.epd_connectivity = 1;
    d.epd_inband_lb_addr = 0xC0000201;
    d.epd_cascades = cascades;
    d.epd_cascades_count = 2;
    rows.push_back(
        {"port extender device", 76, 1, ENC(ep_device, d),
         "\nSPMD minor type:      1\nslot:                 101\nmodel:                qfx"
         "\nserial number:        SN1\nalias:                sat1\nstate:                2"
         "\nsystem id:            00:01:02:03:04:ab\nredundancy group id:  1"
         "\nmcast replication:    1\nstat port number:     10\namd port number:      11"
         "\ncpd port number:      12\nep connectivity:      1\ninband lb addr:       192.0.2.1"
         "\nnumber of cascade interfaces configured:  2"
         "\n  cascade ifd 140 port 1\n  cascade ifd 141 port 2"});
    rows.push_back(
        {"port extender unknown", 76, 5, be_words({1}), "\nSPMD minor type = [UNKNOWN]"});
  }
  {
    satellite_global_info r{};
    SET(r, sgi_rg_name, "rg-east");
    r.sgi_rg_id = 7;
    const uint8_t mac[6] = {0x02, 0, 0, 0, 0, 0x10};
    memcpy(r.sgi_system_mac, mac, 6);
    rows.push_back({"satellite", 80, 0, ENC(satellite_global_info, r),
                    "\nRedundancy Group Name:    rg-east\nRedundancy Group ID:      7\nSystem MAC "
                    "address:       02:00:00:00:00:10"});
  }
  {
    const rpd_evpn_etree_leaf_gencfg r{1, 2, 300000};
    rows.push_back({"evpn etree leaf", 83, 0, ENC(rpd_evpn_etree_leaf_gencfg, r),
                    " version 1 lsys_id 2 label 300000"});
    rows.push_back({"evpn damaged", 83, 0, kDamaged, undecodable(0)});
  }
  {
    const gencfg_mac_ip r{2, {198, 51, 100, 7}, {0x00, 0x0a, 0xbc, 0x01, 0x02, 0x03}, 10, 81};
    rows.push_back({"mac ip v4", 90, 0, ENC(gencfg_mac_ip, r),
                    "IP: 198.51.100.7, MAC: 0:a:bc:1:2:3 BD 10 IFL index 81"});
    const gencfg_mac_ip v6{28,
                           {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                           {0x00, 0x0a, 0xbc, 0x01, 0x02, 0x03},
                           10,
                           81};
    rows.push_back({"mac ip v6", 90, 0, ENC(gencfg_mac_ip, v6),
                    "IP: 2001:db8::1, MAC: 0:a:bc:1:2:3 BD 10 IFL index 81"});
  }
  {
    const phcd_msg_led_state r{2};
    rows.push_back(
        {"phone-home led", 94, 0, ENC(phcd_msg_led_state, r), "\n phone-home led_state: 2"});
    rows.push_back({"phone-home other minor", 94, 1, ENC(phcd_msg_led_state, r), ""});
    rows.push_back(
        {"phone-home damaged", 94, 0, kDamaged, "\n phone-home minor-type 0 unable to IDL DECODE"});
  }
  rows.push_back({"major above the arms", 95, 0, be_words({1}), ""});
  rows.push_back({"major without an arm", 3, 0, be_words({1}), ""});
  return rows;
}

TEST_F(FormatBlob, EachBlobTypePrintsItsRecord) {
  for (Row &r : blob_rows()) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(line(r.major, r.minor, &r.blob, r.op), head(r.major, r.minor, r.op) + r.text + "\n");
    EXPECT_EQ(rc, 0);
  }
}

TEST_F(FormatBlob, NullBlobPrintsTheHeadOnly) {
  for (int major : {8, 15, 2})
    EXPECT_EQ(line(static_cast<uint16_t>(major), 1, nullptr),
              head(static_cast<uint16_t>(major), 1) + "\n");
}

// The rate list: each entry by kind, an unknown kind by that word, a null list as nothing.
TEST_F(FormatBlob, IflsetProfileCarriesItsRateList) {
  cos_pps_rate_s rates[3] = {{0, 100}, {8, 5}, {9, 7}};
  for (bool with_list : {true, false}) {
    cos_iflset_tc_profile_map r{};
    r.ifd = 1;
    r.parent_type = with_list ? 3 : 12;
    SET(r, iflset_type, "dyn");
    r.shaping_rate = 1ull << 33;
    SET(r, exc_bw_high_type, "hi");
    SET(r, exc_bw_low_type, "lo");
    SET(r, flags_text, "F");
    SET(r, oh_mode, "m");
    SET(r, oh_rem_mode, "rm");
    r.ppsrs = with_list ? rates : nullptr;
    r.ppsrs_count = with_list ? 3 : 0;
    r.scale_factor = -1;
    Bytes b = ENC(cos_iflset_tc_profile_map, r);
    const std::string want =
        minor(3) +
        fmt(" ifd=1, parent-type=%s, parent-index=0 iflset=0, type=dyn, sched-smap-id=0, "
            "shaper-spec-type=0, shaping-rate=8589934592, guaranteed_rate=0, delay_buffer=0, "
            "adjust-srs=(i:0,0) (o:0,0) (min:0), internal_node=0, exc_bw_type=0, exc_bw_rate=0, "
            "exc_bw_high_type=hi, exc_bw_high_rate=0, exc_bw_low_type=lo, exc_bw_low_rate=0, "
            "remaining=(0,0,0), flags=0x0 F, ppsrs=%s,OH bytes=0, OH mode=m, OH rem_bytes=0, "
            "OH rem_mode=rm, parent list count=0, scale factor=-1",
            with_list ? "interface-set" : "unknown", with_list ? "(gh:100,em-l:5,unknown:7)" : "");
    EXPECT_EQ(line(8, 3, &b), head(8, 3) + want + "\n") << with_list;
  }
}

// The scheduler map is larger than the local area: it comes from its own identifier, which
// sees one allocation and one free, and the decoder's identifier stays balanced too.
TEST_F(FormatBlob, LargeRecordComesFromItsOwnIdentifier) {
  cos_scheduler_map_def r{};
  r.smap_id = 5;
  r.num_queues = 2;
  r.queues[0] = {0, 11, 1, 1000};
  r.queues[1] = {1, 12, 2, 2000};
  Bytes b = ENC(cos_scheduler_map_def, r);
  const std::string text = line(8, 0, &b);
  EXPECT_EQ(text, head(8, 0) + minor(0) + " sched-map-id=5, num-queues = 2" +
                      "\nqueue schedulers:" +
                      "\n  queue 0 sched 11 priority 1 tx-rate 1000"
                      "\n  queue 1 sched 12 priority 2 tx-rate 2000\n");
  const std::vector<uint32_t> after = allocs();
  std::vector<unsigned> grew;
  for (unsigned i = 1; i <= 72; ++i)
    if (i != MEMID_TARVIK_DECODE && after[i] != before[i]) grew.push_back(i);
  ASSERT_EQ(grew.size(), 1u);
  EXPECT_EQ(after[grew[0]] - before[grew[0]], 1u);
  // Damaged, the same record is allocated, freed, and only its name is printed.
  Bytes bad = kDamaged;
  EXPECT_EQ(line(8, 0, &bad), head(8, 0) + fmt(" minor type=<%s>", cos(0)) + "\n");
}

// A list that no longer fits ends in the truncation line, and the line still ends whole.
TEST_F(FormatBlob, LongListIsTruncated) {
  cos_msg_tcm_table_msg r{};
  std::vector<tcm_table_entry> e(60);
  for (uint32_t i = 0; i < e.size(); ++i) {
    e[i].tcm_code_point = i;
    SET(e[i], tcm_class, "best-effort");
  }
  r.table_id = 1;
  SET(r, type, "exp");
  r.entries = e.data();
  r.num_entries = static_cast<uint32_t>(e.size());
  Bytes b = ENC(cos_msg_tcm_table_msg, r);
  for (size_t size : {400u, 700u}) {
    const std::string text = line(8, 34, &b, 1, size);
    EXPECT_EQ(rc, 0) << size;
    const std::string tail = "\n  <truncated...no buffer space>\n";
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail) << size;
    EXPECT_NE(text.find(fmt("\n\t%u\t\t%s", 0, "best-effort")), std::string::npos);
    EXPECT_EQ(text.find(fmt("\n\t%u\t\t%s", 59, "best-effort")), std::string::npos);
  }
}

// USP blobs are swapped in place: the first print reads them, a second one reads them swapped.
TEST_F(FormatBlob, UspBlobIsSwappedInPlace) {
  Bytes b = cat({name64("dmz"), be_words({0x01000000})});
  EXPECT_EQ(line(2, 95, &b), head(2, 95) + " Type LSYS name dmz, id 16777216\n");
  EXPECT_EQ(line(2, 95, &b), head(2, 95) + " Type LSYS name dmz, id 1\n");
  char dst[257] = {};
  EXPECT_EQ(tarvik_gencfg_format_usptype_blobinfo(3, nullptr, dst), 0);
  EXPECT_EQ(tarvik_gencfg_format_usptype_blobinfo(2, nullptr, dst), 1);
  EXPECT_STREQ(dst, "No zone data.");
}

// Whatever the blob's bytes, every arm ends its line and gives back all it allocated.
TEST_F(FormatBlob, AnyBytesEndTheLineAndLeaveMemoryBalanced) {
  uint32_t seed = 1;
  auto next = [&seed] {
    seed = seed * 1103515245u + 12345u;
    return static_cast<uint8_t>(seed >> 16);
  };
  for (uint16_t major = 0; major <= 96; ++major) {
    for (uint16_t minor = 0; minor <= 40; ++minor) {
      Bytes b(static_cast<size_t>(next()) % 96);
      for (uint8_t &x : b) x = next();
      const std::string text = line(major, minor, &b);
      ASSERT_EQ(rc, 0) << major << "/" << minor;
      EXPECT_EQ(text.compare(0, head(major, minor).size(), head(major, minor)), 0);
      EXPECT_EQ(text.back(), '\n');
    }
  }
}

}  // namespace
}  // namespace tlktest
