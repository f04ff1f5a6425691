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

// Designated initializers leave every other field zero, which the GCC in use still warns of.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

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

// The bytes of a record through its own encoder; the record may be written in place.
template <typename R, typename M>
Bytes encode(uint32_t (*enc)(const R *, const M *, uint8_t *, uint32_t), const R &r) {
  Bytes b(8192);
  const uint32_t n = enc(&r, nullptr, b.data(), static_cast<uint32_t>(b.size()));
  EXPECT_GT(n, 0u);
  b.resize(n);
  return b;
}
#define ENC(rec, ...) encode(tlv_encode_##rec##_0, __VA_ARGS__)

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
    const tlk_hdr h{.tlkh_type = TLK_MSG_GENCFG, .tlkh_op = op, .tlkh_seq = 77, .tlkh_id = 1};
    const gencfg_msg m{.gencfg_hdr = h,
                       .major = major,
                       .minor = minor,
                       .kid = 5,
                       .blob = blob == nullptr ? nullptr : blob->data(),
                       .blob_len = blob == nullptr ? 0 : static_cast<uint32_t>(blob->size()),
                       .lrid = 2};
    const auto start = outstanding();
    std::vector<char> buf(size + 1, '#');
    rc = tarvik_format_output(c, buf.data(), size, 0, &m);
    EXPECT_EQ(buf[size], '#');
    EXPECT_EQ(outstanding(), start) << "major " << major << " minor " << minor;
    return std::string(buf.data(), strnlen(buf.data(), size));
  }
  static std::string head(uint16_t major, uint16_t minor, uint8_t op = 1) {
    return fmt("%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s", "kernel", "self", "P", "gencfg",
               rtm_ops[op]) +
           fmt("major type=\"%s\" minor type=%u seq %d kid=%d lrid=%d",
               tarvik_gencfg_format_majortype(major), minor, 77, 5, 2);
  }
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
  cos_msg_class_to_ifl to_ifl{.ifl = 71, .table_id = 4, .cos_flags = 0x30};
  SET(to_ifl, table_type, "dscp");
  rows.push_back({"cos classifier to ifl", 8, 6, ENC(cos_msg_class_to_ifl, to_ifl),
                  minor(6) + " ifl = 71, table type = dscp, table id = 4, cos_flags 0x30"});
  cos_msg_fixed_class fixed{.ifl = 9, .queue = 3};
  SET(fixed, action, "add");
  rows.push_back({"cos fixed class", 8, 7, ENC(cos_msg_fixed_class, fixed),
                  fmt(" minor-type=<%s>: action=add ifl=9 queue=3 ", cos(7))});
  cos_msg_pm_to_ifl_bind bind{.id = 12, .ifl_index = 300, .flags = 0x5};
  SET(bind, name, "pm-a");
  rows.push_back(
      {"cos policy map bind", 8, 38, ENC(cos_msg_pm_to_ifl_bind, bind),
       fmt(" Minor Type <%s>: ID[12], Name[pm-a], IFL-Index[300], Flags[0x5]", cos(38))});
  red_drop_profile drops[2] = {{1, 50, 10}, {1, 90, 80}};
  cos_red_drop_profile_msg drop{.profile_id = 1, .entries = drops, .num_entries = 2};
  SET(drop, name, "red-1");
  rows.push_back(
      {"cos drop profile with rows", 8, 9, ENC(cos_red_drop_profile_msg, drop),
       minor(9) + " profile id = 1, name red-1 num entries = 2"
                  "\n\tDrop-prof-id\tPercent-full\tDrop-Prob\n\t1\t\t50\t\t10\n\t1\t\t90\t\t80"});
  tcm_table_entry classes[1] = {{.tcm_code_point = 46}};
  SET(classes[0], tcm_class, "voice");
  cos_msg_tcm_table_msg tcm{.table_id = 3, .entries = classes, .num_entries = 1};
  SET(tcm, type, "dscp");
  rows.push_back({"cos traffic class map", 8, 34, ENC(cos_msg_tcm_table_msg, tcm),
                  minor(34) + " table id = 3, type = dscp, num entries = 1, \n\tCode-point\t"
                              "Traffic-class\n\t-------------------------------\n\t46\t\tvoice"});
  cos_msg_fc_to_queue_map queues[1] = {{2, 3, 4, 5, 6}};
  cos_msg_global_table global{
      .forw_classes = 4, .rate_limit_burst = -1, .flags = 0x11, .rows = queues, .num_rows = 1};
  SET(global, action, "add");
  SET(global, plp_copy, "on");
  SET(global, plp_copy_all, "off");
  SET(global, tri_color, "on");
  SET(global, strict_prio, "off");
  rows.push_back({"cos global table", 8, 4, ENC(cos_msg_global_table, global),
                  minor(4) + " action=add forw-classes=4 plp-copy=on plp-copy-all=off "
                             "tri-color=on strict-prio-sched=off rate-limit-burst=-1 "
                             "cos_msg_global_flag = 11\n\tForw-class-id\tQueue\tRestricted "
                             "Queue\tPolicing Priority\tSPU Priority\n\t2\t\t3\t4\t\t\t5\t\t\t6"});
  cos_rewrite_value_msg values[1] = {{1, -1, 1, 0x28}};
  cos_msg_rewrite_table rewrite{.table_id = 8, .entries = values, .num_entries = 1};
  SET(rewrite, action, "chg");
  SET(rewrite, name, "rw");
  SET(rewrite, type, "exp");
  rows.push_back({"cos rewrite table", 8, 14, ENC(cos_msg_rewrite_table, rewrite),
                  minor(14) + " action=chg table-id=8 name rw type=exp entries=1\n\t forw-class "
                              "\t <loss-priority, rw_enable, rw_bits>\n\t 1 \t <-1, 0x1, 0x28>  "});
  cos_msg_global_host_out_fc_table host_out{
      .host_out_id = 1, .fc = 2, .queue = 3, .default_802dot1p_val = 5};
  SET(host_out, rewrite_802dot1p, "yes");
  SET(host_out, default_802dot1p, "no");
  rows.push_back({"cos host outbound", 8, 28, ENC(cos_msg_global_host_out_fc_table, host_out),
                  fmt("minor type=<%s>: host_out_id 1 fc 2 queue 3 rewrite_802dot1p yes "
                      "default_802dot1p no default_802dot1p_val 0x5",
                      cos(28))});
  for (uint32_t form : {0u, 1u}) {
    sched_policy q[1] = {{1, 2, 3, 4, 5, 6, 7, 8}};
    cos_pps_rate_s rate[1] = {{3, 40}};
    cos_sched_policy_msg_inline r{
        .form = form, .ifd = 128, .ifl = 70, .num_queues = 1, .parent_type = 1, .excess_rate = 9};
    r.ppsrs = rate;
    r.ppsrs_count = 1;
    r.queues = q;
    r.queue_rows = 1;
    SET(r, stream, "in");
    SET(r, oh_mode, "m");
    SET(r, oh_rem_mode, "r");
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
  // Damaged, the scheduler map (a record of its own identifier) prints only its name.
  rows.push_back({"cos scheduler map damaged", 8, 0, kDamaged, fmt(" minor type=<%s>", cos(0))});
  // The rate list: each entry by kind, an unknown kind by that word, a null list as nothing.
  for (bool with_list : {true, false}) {
    cos_pps_rate_s rates[3] = {{0, 100}, {8, 5}, {9, 7}};
    cos_iflset_tc_profile_map r{.ifd = 1,
                                .parent_type = with_list ? 3u : 12u,
                                .shaping_rate = 1ull << 33,
                                .scale_factor = -1};
    r.ppsrs = with_list ? rates : nullptr;
    r.ppsrs_count = with_list ? 3u : 0u;
    SET(r, iflset_type, "dyn");
    SET(r, exc_bw_high_type, "hi");
    SET(r, exc_bw_low_type, "lo");
    SET(r, flags_text, "F");
    SET(r, oh_mode, "m");
    SET(r, oh_rem_mode, "rm");
    rows.push_back(
        {"cos iflset profile", 8, 3, ENC(cos_iflset_tc_profile_map, r),
         minor(3) +
             fmt(" ifd=1, parent-type=%s, parent-index=0 iflset=0, type=dyn, sched-smap-id=0, "
                 "shaper-spec-type=0, shaping-rate=8589934592, guaranteed_rate=0, "
                 "delay_buffer=0, adjust-srs=(i:0,0) (o:0,0) (min:0), internal_node=0, "
                 "exc_bw_type=0, exc_bw_rate=0, exc_bw_high_type=hi, exc_bw_high_rate=0, "
                 "exc_bw_low_type=lo, exc_bw_low_rate=0, remaining=(0,0,0), flags=0x0 F, "
                 "ppsrs=%s,OH bytes=0, OH mode=m, OH rem_bytes=0, OH rem_mode=rm, parent list "
                 "count=0, scale factor=-1",
                 with_list ? "interface-set" : "unknown",
                 with_list ? "(gh:100,em-l:5,unknown:7)" : "")});
  }
  // In the order of the text: key, mode, color, CIR, CBS, EBS, PIR, PBS, flags.
  _dfw_tricolor tricolor{{nullptr, 0, 4}, 1, 2, 1000000, 15000, 30000, 2000000, 45000, 8};
  SET(tricolor.key, dtk_name, "tc1");
  rows.push_back({"firewall tricolor", 15, 11, ENC(_dfw_tricolor, tricolor),
                  "\nDFW minor type 11 [TRICOLOR] name tc1(4) mode 1 color 2 CIR 1000000 CBS "
                  "15000 EBS 30000 PIR 2000000 PBS 45000 flags 8"});
  uint16_t client_ids[3] = {7, 8, 900};
  rows.push_back({"firewall session info", 15, 12, ENC(_dfw_client_session_info, {client_ids, 3}),
                  "\nDFW minor type 12 [SESSION INFO] num-client-ids 3 [ 7 8 900 "});
  _dfw_psa psa{.app = 3, .prefix_len = 24, .subnet_len = 16, .flags = 5};
  SET(psa.key, dsk_name, "psa1");
  rows.push_back({"firewall psa without policer", 15, 15, ENC(_dfw_psa, psa),
                  "\nDFW minor type 15 [PSA] name psa1 (app 3) policer NULL count destination "
                  "prefix_len 24 subnet_len 16 flags 0x5"});
  _dfw_filter_head filter{
      .dfh_family_code = 3, .dfh_kind = 2, .dfh_family = 4, .dfh_af = 2, .dfh_flags = 1};
  filter.dfh_index.dfh_key_index = 17;
  SET(filter, dfh_name, "f-in");
  rows.push_back({"firewall filter head", 15, 21, ENC(_dfw_filter_head, filter),
                  "\nDFW minor type 21 [FILTER HEAD] filter index 17 NAME: f-in optimization 1 "
                  "type 2 semantic 3 app-type 4 af 2"});
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
  rows.push_back({"ancp", 26, 0, ENC(ancp_msg_global_cfg, {6, 0}), " instance: 6"});
  rows.push_back({"ancp damaged", 26, 0, kDamaged, undecodable(0)});
  rows.push_back({"multicast edge srcmod filter", 40, 1,
                  ENC(mcf_edge_src_mod_filter_data, {1, 2, 3}),
                  " edge srcmod filter chipid=1 srcmod=2 chosenineid=3 "});
  rows.push_back({"multicast damaged", 40, 0, kDamaged,
                  " mc_idx filter  minor-type: mc_idx unable to IDL DECODE \n"});
  fpdl_definition_msg fpdl{.fpdl_id = 9};
  SET(fpdl, fpdl_name, "prog");
  SET(fpdl, fpdl_data, "x=1");
  rows.push_back({"fpdl definition", 43, 0, ENC(fpdl_definition_msg, fpdl),
                  "fpdl id = 9 fpdl name = progfpdl data= x=1\n"});
  fpdl_fpb_args args[2] = {{.arg_val = 80}, {.arg_val = 6}};
  SET(args[0], arg_name, "port");
  SET(args[1], arg_name, "proto");
  rows.push_back({"fpdl fpb with arguments", 44, 0,
                  ENC(fpdl_fpb_msg, {.instance_id = 2, .fpdl_id = 9, .args = args, .num_args = 2}),
                  "fpdl-instance id = 2 fpdl-id = 9fpdl-num-args = 2\n arg-name port, arg-val "
                  "80\narg-name proto, arg-val 6\n"});
  rows.push_back({"fpdl bind", 46, 0, ENC(fpdl_fpb_bind_msg, {2, 1, 300, 0}),
                  "fpdl-instance id = 2 fpdl-bind-type = 1 fpdl-bind-index = 300 "
                  "fpdl-bind-direction = 0\n"});
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
  uint32_t tariffs[2] = {5, 6};
  rows.push_back({"medge tariff", 56, 0, ENC(medge_tariff_prof, {1, 2, 2, tariffs, 2}),
                  "Tariff Prof: id=1, gw_id=2, num_tariff_entries=2"});
  rows.push_back({"medge quota", 56, 1, ENC(medge_quota_prof, {3, 1, 2, 60, 1000}),
                  " Quota Prof: id=3, tariff_prof_id=1, gw_id: 2, time=60, vol=1000"});
  rows.push_back({"medge pfe mapping", 56, 2, ENC(medge_pfe_gw_mapping, {4, 2, 0}),
                  " PFE<->GW Mapping: id=4,gw_id=2"});
  rows.push_back({"medge damaged", 56, 1, kDamaged, undecodable(1)});
  rows.push_back({"medge minor without a record", 56, 9, be_words({1}), ""});
  rows.push_back({"macsec secy", 57, 0,
                  ENC(gencfg_secy_params, {0, 140, 0x0011223344550001ull, 1, 30, 1, 64}),
                  "\n minor-type: secy_params\n ifd_index: 140\n sci: 0x11223344550001\n "
                  "cipher: 1\n offset: 30\n replay_protect: 1\n replay_window: 64\n"});
  rows.push_back({"macsec global disable", 57, 4, ENC(gencfg_global_disable, {0, 1}),
                  "\n minor-type: global_disable\n ifd_index: 0\n disable: 1\n"});
  rows.push_back(
      {"macsec damaged", 57, 3, kDamaged, " minor-type: macsec_filter unable to IDL DECODE \n"});
  rows.push_back({"dhcp relay domain", 59, 0, ENC(qdhcp_msg_bd_cfg, {0, 10, 0x5, 0x80, {}}),
                  " minor-type: 0 bd_index: 10\n config_flags: 5 config_flags2:80 "
                  "no-dhcp-snoop ip-source-guard "});
  rows.push_back(
      {"dhcp global v4 relay", 59, 3, be_words({1}), "\n minor-type: global_v4_relay \n"});
  rows.push_back({"dhcp global v6 relay", 59, 5, kDamaged, "\n minor-type: global_v6_relay \n"});
  rows.push_back({"dhcp damaged", 59, 1, kDamaged, undecodable(1)});
  rows.push_back({"analytics interface", 67, 0, ENC(analytics_msg_ifd_cfg, {140, 1, 2, 3, 4, 5, 6}),
                  " type=ifd_cfg: ifd_idx=140 ts=1 qm=2 lth=3 ltl=4 dth=5 dtl=6"});
  rows.push_back({"analytics global", 67, 1,
                  ENC(analytics_msg_global_cfg, {1, 10, 1, 100, 7, 8, 9, 10}),
                  " type=gbl_cfg: ts=1 tsint=10sec qs=1 qsint=100msec lth=7 ltl=8 dth=9 dtl=10"});
  rows.push_back({"sensor counter", 70, 2, ENC(agentd_msg_sensor_counter_cfg, {1ull << 40, 0x3}),
                  " type=counter_cfg: id=1099511627776, flags=0x3"});
  rows.push_back(
      {"port extender interfaces", 76, 0, ENC(ep_interface, {0, 100, 48, nullptr, 0}),
       "\nSPMD minor type:      0\nslot:                 100\nnumber of interfaces: 48"});
  ep_device_cascade cascades[2] = {{140, 1}, {141, 2}};
  // The fields in the order of the text; the three strings are set after.
  ep_device device{1, 101, nullptr, 0,  nullptr, 0, nullptr,    0,        2, {0, 1, 2, 3, 4, 0xab},
                   1, 1,   10,      11, 12,      1, 0xC0000201, cascades, 2};
  SET(device, epd_model, "qfx");
  SET(device, epd_serial, "SN1");
  SET(device, epd_alias, "sat1");
  rows.push_back(
      {"port extender device", 76, 1, ENC(ep_device, device),
       "\nSPMD minor type:      1\nslot:                 101\nmodel:                qfx"
       "\nserial number:        SN1\nalias:                sat1\nstate:                2"
       "\nsystem id:            00:01:02:03:04:ab\nredundancy group id:  1"
       "\nmcast replication:    1\nstat port number:     10\namd port number:      11"
       "\ncpd port number:      12\nep connectivity:      1\ninband lb addr:       192.0.2.1"
       "\nnumber of cascade interfaces configured:  2"
       "\n  cascade ifd 140 port 1\n  cascade ifd 141 port 2"});
  rows.push_back({"port extender unknown", 76, 5, be_words({1}), "\nSPMD minor type = [UNKNOWN]"});
  satellite_global_info satellite{.sgi_rg_id = 7, .sgi_system_mac = {0x02, 0, 0, 0, 0, 0x10}};
  SET(satellite, sgi_rg_name, "rg-east");
  rows.push_back({"satellite", 80, 0, ENC(satellite_global_info, satellite),
                  "\nRedundancy Group Name:    rg-east\nRedundancy Group ID:      7\nSystem MAC "
                  "address:       02:00:00:00:00:10"});
  rows.push_back({"evpn etree leaf", 83, 0, ENC(rpd_evpn_etree_leaf_gencfg, {1, 2, 300000}),
                  " version 1 lsys_id 2 label 300000"});
  rows.push_back({"evpn damaged", 83, 0, kDamaged, undecodable(0)});
  rows.push_back(
      {"mac ip v4", 90, 0,
       ENC(gencfg_mac_ip, {2, {198, 51, 100, 7}, {0x00, 0x0a, 0xbc, 0x01, 0x02, 0x03}, 10, 81}),
       "IP: 198.51.100.7, MAC: 0:a:bc:1:2:3 BD 10 IFL index 81"});
  const gencfg_mac_ip mac_ip6{28,
                              {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
                              {0x00, 0x0a, 0xbc, 0x01, 0x02, 0x03},
                              10,
                              81};
  rows.push_back({"mac ip v6", 90, 0, ENC(gencfg_mac_ip, mac_ip6),
                  "IP: 2001:db8::1, MAC: 0:a:bc:1:2:3 BD 10 IFL index 81"});
  rows.push_back(
      {"phone-home led", 94, 0, ENC(phcd_msg_led_state, {2}), "\n phone-home led_state: 2"});
  rows.push_back({"phone-home other minor", 94, 1, ENC(phcd_msg_led_state, {2}), ""});
  rows.push_back(
      {"phone-home damaged", 94, 0, kDamaged, "\n phone-home minor-type 0 unable to IDL DECODE"});
  rows.push_back({"major above the arms", 95, 0, be_words({1}), ""});
  rows.push_back({"major without an arm", 3, 0, be_words({1}), ""});
  // An empty blob stands for a null one: the head alone.
  for (int major : {8, 15, 2})
    rows.push_back({"null blob", static_cast<uint16_t>(major), 1, {}, ""});
  return rows;
}

TEST_F(FormatBlob, EachBlobTypePrintsItsRecord) {
  for (Row &r : blob_rows()) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(line(r.major, r.minor, r.blob.empty() ? nullptr : &r.blob, r.op),
              head(r.major, r.minor, r.op) + r.text + "\n");
    EXPECT_EQ(rc, 0);
  }
}

// The scheduler map is larger than the local area: it comes from its own identifier, which
// sees one allocation and one free, and the decoder's identifier stays balanced too.
TEST_F(FormatBlob, LargeRecordComesFromItsOwnIdentifier) {
  const cos_scheduler_map_def r{
      .smap_id = 5, .num_queues = 2, .queues = {{0, 11, 1, 1000}, {1, 12, 2, 2000}}};
  Bytes b = ENC(cos_scheduler_map_def, r);
  auto allocs = [] {
    std::vector<uint32_t> a;
    for (unsigned i = 0; i < MEMID_TARVIK_MAX; ++i) a.push_back(tarvik_mem_record.cnts[i].allocs);
    return a;
  };
  const std::vector<uint32_t> before = allocs();
  EXPECT_EQ(line(8, 0, &b), head(8, 0) + minor(0) + " sched-map-id=5, num-queues = 2" +
                                "\nqueue schedulers:" +
                                "\n  queue 0 sched 11 priority 1 tx-rate 1000"
                                "\n  queue 1 sched 12 priority 2 tx-rate 2000\n");
  const std::vector<uint32_t> after = allocs();
  std::vector<unsigned> grew;
  for (unsigned i = 1; i <= 72; ++i)
    if (i != MEMID_TARVIK_DECODE && after[i] != before[i]) grew.push_back(i);
  ASSERT_EQ(grew.size(), 1u);
  EXPECT_EQ(after[grew[0]] - before[grew[0]], 1u);
}

// A list that no longer fits ends in the truncation line, and the line still ends whole.
TEST_F(FormatBlob, LongListIsTruncated) {
  std::vector<tcm_table_entry> e(60);
  for (uint32_t i = 0; i < e.size(); ++i) {
    e[i].tcm_code_point = i;
    SET(e[i], tcm_class, "best-effort");
  }
  cos_msg_tcm_table_msg r{.table_id = 1, .entries = e.data(), .num_entries = 60};
  SET(r, type, "exp");
  Bytes b = ENC(cos_msg_tcm_table_msg, r);
  for (size_t size : {400u, 700u}) {
    const std::string text = line(8, 34, &b, 1, size);
    EXPECT_EQ(rc, 0) << size;
    EXPECT_EQ(text.substr(text.rfind("\n  <")), "\n  <truncated...no buffer space>\n") << size;
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
