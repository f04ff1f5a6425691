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

using Bytes = std::vector<uint8_t>;

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
Bytes cat(Bytes a, const Bytes &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
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

std::vector<Row> blob_rows() {
  std::vector<Row> rows;
  {
    cos_msg_class_to_ifl r{};
    r.ifl = 71;
    SET(r, table_type, "dscp");
    r.table_id = 4;
    r.cos_flags = 0x30;
    rows.push_back(
        {"cos classifier to ifl", 8, 6, ENC(cos_msg_class_to_ifl, r),
         fmt(" minor type=<%s>: ifl = %d, table type = %s, table id = %d, cos_flags 0x%x", cos(6),
             71, "dscp", 4, 0x30)});
  }
  {
    cos_msg_fixed_class r{};
    SET(r, action, "add");
    r.ifl = 9;
    r.queue = 3;
    rows.push_back({"cos fixed class", 8, 7, ENC(cos_msg_fixed_class, r),
                    fmt(" minor-type=<%s>: action=%s ifl=%u queue=%u ", cos(7), "add", 9, 3)});
  }
  {
    cos_msg_pm_to_ifl_bind r{};
    r.id = 12;
    SET(r, name, "pm-a");
    r.ifl_index = 300;
    r.flags = 0x5;
    rows.push_back({"cos policy map bind", 8, 38, ENC(cos_msg_pm_to_ifl_bind, r),
                    fmt(" Minor Type <%s>: ID[%u], Name[%s], IFL-Index[%u], Flags[0x%x]", cos(38),
                        12, "pm-a", 300, 5)});
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
         fmt(" minor type=<%s>: profile id = %d, name %s num entries = %d", cos(9), 1, "red-1", 2) +
             "\n\tDrop-prof-id\tPercent-full\tDrop-Prob" + fmt("\n\t%u\t\t%u\t\t%u", 1, 50, 10) +
             fmt("\n\t%u\t\t%u\t\t%u", 1, 90, 80)});
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
                    fmt(" minor type=<%s>: table id = %d, type = %s, num entries = %d, ", cos(34),
                        3, "dscp", 1) +
                        "\n\tCode-point\tTraffic-class\n\t-------------------------------" +
                        fmt("\n\t%u\t\t%s", 46, "voice")});
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
                    fmt(" minor type=<%s>: action=%s forw-classes=%u plp-copy=%s plp-copy-all=%s "
                        "tri-color=%s strict-prio-sched=%s rate-limit-burst=%d "
                        "cos_msg_global_flag = %x",
                        cos(4), "add", 4, "on", "off", "on", "off", -1, 0x11) +
                        "\n\tForw-class-id\tQueue\tRestricted Queue\tPolicing Priority\tSPU "
                        "Priority\n\t2\t\t3\t4\t\t\t5\t\t\t6"});
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
                    fmt(" minor type=<%s>: action=%s table-id=%u name %s type=%s entries=%u",
                        cos(14), "chg", 8, "rw", "exp", 1) +
                        "\n\t forw-class \t <loss-priority, rw_enable, rw_bits>" +
                        fmt("\n\t %u \t <%d, %#x, %#x>  ", 1, -1, 1, 0x28)});
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
                    fmt("minor type=<%s>: host_out_id %u fc %u queue %u rewrite_802dot1p %s "
                        "default_802dot1p %s default_802dot1p_val 0x%x",
                        cos(28), 1, 2, 3, "yes", "no", 5)});
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
        form == 0
            ? fmt(" minor type=<%s>: ifd %d, ifl %d, num queues %d stream %s sched-smap-id %u "
                  "shaping-rate %llu guaranteed-rate %llu delay-buf %llu remaining=(id:%d - "
                  "%llu,%llu,%llu)  excess-rate %u %llu ppsrs=%s ppsrs-rem=%s OH bytes=%d, "
                  "OH mode=%s OH rem_bytes=%d OH rem_mode=%s scale=%d scale-flags=0x%x "
                  "sched_mode=%d max_sched_levels=%d",
                  cos(8), 128, 70, 1, "in", 0, 0ull, 0ull, 0ull, 0, 0ull, 0ull, 0ull, 0, 9ull,
                  "(eh:40)", "", 0, "m", 0, "r", 0, 0, 0, 0)
            : fmt(" minor type=<%s>: ifd %d, ifl %d, num queues %d, stream %s parent-type %s "
                  "parent-index %d sched-smap-id %u shaping-rate %llu guaranteed-rate %llu "
                  "delay-buf %llu excess-type %u excess-rate %llu cos flags 0x%x",
                  cos(8), 128, 70, 1, "in", "logical interface", 0, 0, 0ull, 0ull, 0ull, 0, 9ull,
                  0);
    rows.push_back({form == 0 ? "cos inline policy, rates" : "cos inline policy, parent", 8, 8,
                    ENC(cos_sched_policy_msg_inline, r),
                    text +
                        "\npri  tx-rate  shaping-  shaping-  excess-  excess exc- avg  \n         "
                        "       rate    burst By    rate    type  pri  const\n--- --------- "
                        "--------- -------- --------- ------ ---- -----\n" +
                        fmt("%3u %9u %9llu %8u %9u %6u %4u %5u\n", 1, 2, 3ull, 4, 5, 6, 7, 8)});
  }
  rows.push_back(
      {"l2tp cos info", 7, 0,
       cat(cat(cat(be_words({1, 2, 3}), name64("ge-0/0/0")), be_words({5, 6, 7})),
           cat(cat(name64("gold"), be_words({8, 9, 10})), cat(name64("s1"), be_words({1, 0})))),
       fmt(", Ses %u/%u tnl grp %u, ifl %s.%u %u devindex %u, cos %s %u %u %u %s encap "
           "%d cell %d",
           1, 2, 3, "ge-0/0/0", 5, 6, 7, "gold", 8, 9, 10, "s1", 1, 0)});
  rows.push_back(
      {"cos l2tp nack, fixed words", 8, 2, be_words({10, 20, 30, 40}),
       fmt("ifl %u Tunnel group idx %u local tunnel id %u local session id %u", 10, 20, 30, 40)});
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
    rows.push_back(
        {"firewall tricolor", 15, 11, ENC(_dfw_tricolor, r),
         fmt("\nDFW minor type %d [TRICOLOR] name %s(%d) mode %d color %d CIR %llu CBS "
             "%llu EBS %llu PIR %llu PBS %llu flags %d",
             11, "tc1", 4, 1, 2, 1000000ull, 15000ull, 30000ull, 2000000ull, 45000ull, 8)});
  }
  {
    _dfw_client_session_info r{};
    uint16_t ids[3] = {7, 8, 900};
    r.client_ids = ids;
    r.num_client_ids = 3;
    rows.push_back({"firewall session info", 15, 12, ENC(_dfw_client_session_info, r),
                    fmt("\nDFW minor type %d [SESSION INFO] num-client-ids %hu [ ", 12,
                        static_cast<unsigned short>(3)) +
                        "7 8 900 "});
  }
  {
    _dfw_psa r{};
    SET(r.key, dsk_name, "psa1");
    r.app = 3;
    r.flags = 5;
    r.prefix_len = 24;
    r.subnet_len = 16;
    rows.push_back({"firewall psa without policer", 15, 15, ENC(_dfw_psa, r),
                    fmt("\nDFW minor type %d [PSA] name %s (app %d) ", 15, "psa1", 3) +
                        "policer NULL count destination " +
                        fmt("prefix_len %d subnet_len %d flags 0x%x", 24, 16, 5)});
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
                    fmt("\nDFW minor type %d [FILTER HEAD] filter index %d NAME: %s optimization "
                        "%d type %d semantic %d app-type %d af %d",
                        21, 17, "f-in", 1, 2, 3, 4, 2)});
  }
  rows.push_back({"firewall minor without a row", 15, 14, be_words({1}), "\nDFW minor type 14"});
  rows.push_back({"firewall damaged blob", 15, 10, kDamaged,
                  fmt(" minor-type: %d unable to IDL DECODE \n", 10)});
  rows.push_back(
      {"issu chassisd state", 16, 1, be_words({3}),
       fmt(" ISSU Chassisd state  Chassisd State <%s>", tarvik_format_chassisd_issu_state(3))});
  rows.push_back(
      {"issu chassisd state on delete", 16, 1, be_words({3}), " ISSU Chassisd state ", 3});
  rows.push_back({"issu daemon state", 16, 0, cat(be_words({2, 30}), name64("late")),
                  fmt(" ISSU Daemon state  <%s> wait %d errstr %s",
                      tarvik_format_daemon_issu_state(2), 30, "late")});
  {
    ancp_msg_global_cfg r{};
    r.instance = 6;
    rows.push_back({"ancp", 26, 0, ENC(ancp_msg_global_cfg, r), fmt(" instance: %d", 6)});
  }
  rows.push_back(
      {"ancp damaged", 26, 0, kDamaged, fmt(" minor-type: %d unable to IDL DECODE \n", 0)});
  {
    mcf_edge_src_mod_filter_data r{};
    r.chipid = 1;
    r.srcmod = 2;
    r.chosenineid = 3;
    rows.push_back({"multicast edge srcmod filter", 40, 1, ENC(mcf_edge_src_mod_filter_data, r),
                    " edge srcmod filter " + fmt("chipid=%d srcmod=%d chosenineid=%d ", 1, 2, 3)});
  }
  rows.push_back({"multicast damaged", 40, 0, kDamaged,
                  " mc_idx filter " + fmt(" minor-type: %s unable to IDL DECODE \n", "mc_idx")});
  {
    fpdl_definition_msg r{};
    r.fpdl_id = 9;
    SET(r, fpdl_name, "prog");
    SET(r, fpdl_data, "x=1");
    rows.push_back({"fpdl definition", 43, 0, ENC(fpdl_definition_msg, r),
                    fmt("fpdl id = %d fpdl name = %sfpdl data= %s\n", 9, "prog", "x=1")});
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
                    fmt("fpdl-instance id = %d fpdl-id = %dfpdl-num-args = %d\n ", 2, 9, 2) +
                        fmt("arg-name %s, arg-val %d\n", "port", 80) +
                        fmt("arg-name %s, arg-val %d\n", "proto", 6)});
  }
  {
    fpdl_fpb_bind_msg r{};
    r.instance_id = 2;
    r.bind_type = 1;
    r.bind_index = 300;
    r.bind_direction = 0;
    rows.push_back({"fpdl bind", 46, 0, ENC(fpdl_fpb_bind_msg, r),
                    fmt("fpdl-instance id = %d fpdl-bind-type = %d fpdl-bind-index = %d "
                        "fpdl-bind-direction = %d\n",
                        2, 1, 300, 0)});
  }
  rows.push_back(
      {"fpdl api damaged", 45, 1, kDamaged, fmt("\n minor-type: %u unable to IDL DECODE \n", 1u)});
  rows.push_back({"usp zone", 2, 2, cat(name64("trust"), be_words({4})),
                  fmt(" Type %s %s", "ZONE", "name trust, id 4")});
  rows.push_back(
      {"usp zone, short blob", 2, 2, be_words({4}), fmt(" Type %s %s", "ZONE", "No zone data.")});
  rows.push_back({"usp ssl profile", 2, 88, cat(be_words({7}), cat(name64("p1"), be_words({3}))),
                  fmt(" Type %s %s", "SSL_TERM_PROFILE", "key 7, profile p1, id 3")});
  rows.push_back(
      {"usp power mode", 2, 153, be_words({1}), fmt(" Type %s %s", "POWER_MODE_IPSEC", "Enabled")});
  rows.push_back(
      {"usp row without printer", 2, 1, be_words({1}), fmt(" Type %s %s", "TESTOBJ", "")});
  rows.push_back({"usp above the table", 2, 200, be_words({1}), fmt(" kernel id=%d", 5)});
  rows.push_back(
      {"ipsec sa", 6, 1, be_words({0x10, 0xabc}),
       fmt(" Type %s tunnel id %x spi %x", tarvik_gencfg_format_ipsectype(1), 0x10, 0xabc)});
  rows.push_back({"l2 token", 13, 0, be_words({0x99, 1, 12, 3}),
                  fmt(" token: 0x%x, type: %s, iflidx: %u, rtt: %d", 0x99,
                      tarvik_gencfg_format_l2token_type(1), 12, 3)});
  rows.push_back({"sdb", 54, 0, name64("ge-0/0/1"), fmt(" interface name %s", "ge-0/0/1")});
  rows.push_back({"ppm unknown minor", 69, 9, be_words({1}), "\nPPM minor type 9 [UNKNOWN ?!]"});
  rows.push_back({"ppm bfd", 69, 0, be_words({44, 12}),
                  fmt(" PPM minor type = %s, Key(discriminator) %u, NH-Index %u",
                      tarvik_format_ppm_type(0), 44, 12)});
  rows.push_back({"lldp", 72, 3, be_words({1}), "format_lldpd_gencfg_output minor 3 "});
  rows.push_back({"vbf", 73, 2, be_words({1}), " service "});
  rows.push_back({"oiu past the words", 74, 4, be_words({1}), "OIU type unkown"});
  rows.push_back({"slaac", 92, 1, be_words({1}), " Slaac-Snoopd minor-type 1 "});
  {
    medge_tariff_prof t{};
    uint32_t tariffs[2] = {5, 6};
    t.mtp_id = 1;
    t.mtp_gw_id = 2;
    t.mtp_num_tariff_entries = 2;
    t.mtp_tariffs = tariffs;
    t.mtp_tariffs_count = 2;
    rows.push_back({"medge tariff", 56, 0, ENC(medge_tariff_prof, t),
                    fmt("Tariff Prof: id=%d, gw_id=%d, num_tariff_entries=%d", 1, 2, 2)});
    medge_quota_prof q{};
    q.mqp_id = 3;
    q.mqp_tariff_prof_id = 1;
    q.mqp_gw_id = 2;
    q.mqp_time = 60;
    q.mqp_vol = 1000;
    rows.push_back({"medge quota", 56, 1, ENC(medge_quota_prof, q),
                    fmt(" Quota Prof: id=%d, tariff_prof_id=%d, gw_id: %d, time=%d, vol=%d", 3, 1,
                        2, 60, 1000)});
    medge_pfe_gw_mapping g{};
    g.mpgm_id = 4;
    g.mpgm_gw_id = 2;
    rows.push_back({"medge pfe mapping", 56, 2, ENC(medge_pfe_gw_mapping, g),
                    fmt(" PFE<->GW Mapping: id=%d,gw_id=%d", 4, 2)});
    rows.push_back(
        {"medge damaged", 56, 1, kDamaged, fmt(" minor-type: %d unable to IDL DECODE \n", 1)});
    rows.push_back({"medge minor without a record", 56, 9, be_words({1}), ""});
  }
  {
    gencfg_secy_params r{};
    r.gsp_minor_type = 0;
    r.gsp_ifd_index = 140;
    r.gsp_sci = 0x0011223344550001ull;
    r.gsp_cipher = 1;
    r.gsp_offset = 30;
    r.gsp_replay_protect = 1;
    r.gsp_replay_window = 64;
    rows.push_back({"macsec secy", 57, 0, ENC(gencfg_secy_params, r),
                    fmt("\n minor-type: %s\n ifd_index: %d\n", "secy_params", 140) +
                        fmt(" sci: 0x%llx\n cipher: %u\n offset: %u\n replay_protect: %u\n "
                            "replay_window: %u\n",
                            0x0011223344550001ull, 1, 30, 1, 64)});
    gencfg_global_disable g{};
    g.ggd_disable = 1;
    rows.push_back({"macsec global disable", 57, 4, ENC(gencfg_global_disable, g),
                    fmt("\n minor-type: %s\n ifd_index: %d\n", "global_disable", 0) +
                        fmt(" disable: %u\n", 1)});
    rows.push_back({"macsec damaged", 57, 3, kDamaged,
                    fmt(" minor-type: %s unable to IDL DECODE \n", "macsec_filter")});
  }
  {
    qdhcp_msg_bd_cfg r{};
    r.qmbc_minor_type = 0;
    r.qmbc_bd_index = 10;
    r.qmbc_config_flags = 0x5;
    r.qmbc_config_flags2 = 0x80;
    rows.push_back(
        {"dhcp relay domain", 59, 0, ENC(qdhcp_msg_bd_cfg, r),
         fmt(" minor-type: %d bd_index: %d\n config_flags: %x config_flags2:%x ", 0, 10, 5, 0x80) +
             "no-dhcp-snoop ip-source-guard "});
    rows.push_back(
        {"dhcp global v4 relay", 59, 3, be_words({1}), "\n minor-type: global_v4_relay \n"});
    rows.push_back({"dhcp global v6 relay", 59, 5, kDamaged, "\n minor-type: global_v6_relay \n"});
    rows.push_back(
        {"dhcp damaged", 59, 1, kDamaged, fmt(" minor-type: %d unable to IDL DECODE \n", 1)});
  }
  {
    analytics_msg_ifd_cfg i{};
    i.amic_ifd_idx = 140;
    i.amic_ts = 1;
    i.amic_qm = 2;
    i.amic_lth = 3;
    i.amic_ltl = 4;
    i.amic_dth = 5;
    i.amic_dtl = 6;
    rows.push_back({"analytics interface", 67, 0, ENC(analytics_msg_ifd_cfg, i),
                    fmt(" type=ifd_cfg: ifd_idx=%u ts=%u qm=%u lth=%u ltl=%u dth=%u dtl=%u", 140, 1,
                        2, 3, 4, 5, 6)});
    analytics_msg_global_cfg g{};
    g.amgc_ts = 1;
    g.amgc_tsint = 10;
    g.amgc_qs = 1;
    g.amgc_qsint = 100;
    g.amgc_lth = 7;
    g.amgc_ltl = 8;
    g.amgc_dth = 9;
    g.amgc_dtl = 10;
    rows.push_back({"analytics global", 67, 1, ENC(analytics_msg_global_cfg, g),
                    fmt(" type=gbl_cfg: ts=%u tsint=%usec qs=%u qsint=%umsec lth=%u ltl=%u dth=%u "
                        "dtl=%u",
                        1, 10, 1, 100, 7, 8, 9, 10)});
  }
  {
    agentd_msg_sensor_counter_cfg r{};
    r.amsc_id = 1ll << 40;
    r.amsc_flags = 0x3;
    rows.push_back({"sensor counter", 70, 2, ENC(agentd_msg_sensor_counter_cfg, r),
                    fmt(" type=counter_cfg: id=%lld, flags=0x%x", 1ll << 40, 3)});
  }
  {
    ep_interface i{};
    i.epi_minor_type = 0;
    i.epi_slot = 100;
    i.epi_num_interfaces = 48;
    rows.push_back(
        {"port extender interfaces", 76, 0, ENC(ep_interface, i),
         fmt("\nSPMD minor type:      %d\nslot:                 %d\nnumber of interfaces: %d", 0,
             100, 48)});
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
         fmt("\nSPMD minor type:      %d\nslot:                 %d\nmodel:                "
             "%s\nserial number:        %s\nalias:                %s\nstate:                "
             "%d\nsystem id:            %02x:%02x:%02x:%02x:%02x:%02x\nredundancy group id:  "
             "%d\nmcast replication:    %d\nstat port number:     %d\namd port number:      "
             "%d\ncpd port number:      %d\nep connectivity:      %d\ninband lb addr:       %s",
             1, 101, "qfx", "SN1", "sat1", 2, 0, 1, 2, 3, 4, 0xab, 1, 1, 10, 11, 12, 1,
             "192.0.2.1") +
             fmt("\nnumber of cascade interfaces configured:  %d", 2) +
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
                    fmt("\nRedundancy Group Name:    %s\nRedundancy Group ID:      %d\nSystem MAC "
                        "address:       %02x:%02x:%02x:%02x:%02x:%02x",
                        "rg-east", 7, 2, 0, 0, 0, 0, 0x10)});
  }
  {
    rpd_evpn_etree_leaf_gencfg r{};
    r.reel_version = 1;
    r.reel_lsys_id = 2;
    r.reel_label = 300000;
    rows.push_back({"evpn etree leaf", 83, 0, ENC(rpd_evpn_etree_leaf_gencfg, r),
                    fmt(" version %d lsys_id %d label %d", 1, 2, 300000)});
    rows.push_back(
        {"evpn damaged", 83, 0, kDamaged, fmt(" minor-type: %d unable to IDL DECODE \n", 0)});
  }
  {
    gencfg_mac_ip r{};
    r.gmi_af = 2;
    const uint8_t ip[4] = {198, 51, 100, 7};
    memcpy(r.gmi_ip, ip, 4);
    const uint8_t mac[6] = {0x00, 0x0a, 0xbc, 0x01, 0x02, 0x03};
    memcpy(r.gmi_mac, mac, 6);
    r.gmi_bd = 10;
    r.gmi_ifl_index = 81;
    rows.push_back({"mac ip v4", 90, 0, ENC(gencfg_mac_ip, r),
                    fmt("IP: %s, MAC: %x:%x:%x:%x:%x:%x BD %u IFL index %u", "198.51.100.7", 0, 0xa,
                        0xbc, 1, 2, 3, 10, 81)});
    gencfg_mac_ip v6 = r;
    v6.gmi_af = 28;
    const uint8_t ip6[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
    memcpy(v6.gmi_ip, ip6, 16);
    rows.push_back({"mac ip v6", 90, 0, ENC(gencfg_mac_ip, v6),
                    fmt("IP: %s, MAC: %x:%x:%x:%x:%x:%x BD %u IFL index %u", "2001:db8::1", 0, 0xa,
                        0xbc, 1, 2, 3, 10, 81)});
  }
  {
    phcd_msg_led_state r{};
    r.pmls_led_state = 2;
    rows.push_back({"phone-home led", 94, 0, ENC(phcd_msg_led_state, r),
                    fmt("\n phone-home led_state: %d", 2)});
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
        fmt(" minor type=<%s>: ifd=%u, parent-type=%s, parent-index=%u iflset=%u, type=%s, "
            "sched-smap-id=%u, shaper-spec-type=%u, shaping-rate=%llu, guaranteed_rate=%llu, "
            "delay_buffer=%llu, adjust-srs=(i:%u,%u) (o:%u,%u) (min:%llu), internal_node=%d, ",
            cos(3), 1, with_list ? "interface-set" : "unknown", 0, 0, "dyn", 0, 0, 1ull << 33, 0ull,
            0ull, 0, 0, 0, 0, 0ull, 0) +
        fmt("exc_bw_type=%u, exc_bw_rate=%llu, exc_bw_high_type=%s, exc_bw_high_rate=%u, "
            "exc_bw_low_type=%s, exc_bw_low_rate=%u, remaining=(%llu,%llu,%llu), flags=0x%x %s, "
            "ppsrs=%s,OH bytes=%d, OH mode=%s, OH rem_bytes=%d, OH rem_mode=%s, parent list "
            "count=%d, scale factor=%d",
            0, 0ull, "hi", 0, "lo", 0, 0ull, 0ull, 0ull, 0, "F",
            with_list ? "(gh:100,em-l:5,unknown:7)" : "", 0, "m", 0, "rm", 0, -1);
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
  EXPECT_EQ(text, head(8, 0) +
                      fmt(" minor type=<%s>: sched-map-id=%u, num-queues = %u", cos(0), 5, 2) +
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
  Bytes b = cat(name64("dmz"), be_words({0x01000000}));
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
