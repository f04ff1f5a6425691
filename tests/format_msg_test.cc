// The message formatter: the trace line of each message kind in brief and full modes, the flag
// and name columns, the statistics rows and full forms, every buffer length of a long line, and
// the print to a stream.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/harness.h"
#include "tarlink.h"

namespace tlktest {
namespace {

constexpr const char kBriefTooSmall[] = "output brief buffer too small for format!";

std::string fmt(const char *format, ...) TLK_PRINTF(1, 2);
std::string fmt(const char *format, ...) {
  char buf[4096];
  va_list ap;
  va_start(ap, format);
  vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  return buf;
}

// The common columns as the line's format lays them out.
std::string columns(const char *sender, const char *creator, const char *flags, const char *type,
                    const char *op) {
  return fmt("%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s", sender, creator, flags, type, op);
}

uint8_t *bytes(const char *s) {
  return reinterpret_cast<uint8_t *>(const_cast<char *>(s));
}

tlk_hdr hdr(int type, int op, int flags = 0, uint32_t sender = 1, uint8_t creator = 0,
            uint32_t seq = 0) {
  tlk_hdr h{};
  h.tlkh_type = static_cast<uint8_t>(type);
  h.tlkh_op = static_cast<uint8_t>(op);
  h.tlkh_flags = static_cast<uint8_t>(flags);
  h.tlkh_id = sender;
  h.tlkh_aux1 = creator;
  h.tlkh_seq = seq;
  return h;
}

// A message's attachments: each one added to the header's list, its body handed back to fill.
struct InfoList {
  tlk_msg_info items[9] = {};
  tlk_msg_info *ptrs[9] = {};
  auto &add(tlk_hdr &h, uint32_t selector) {
    ptrs[h.tlkh_info_len] = &items[h.tlkh_info_len];
    items[h.tlkh_info_len].tlkmi_type = selector;
    h.tlkh_info = ptrs;
    return items[h.tlkh_info_len++].tlkmi_u;
  }
};

class FormatMsg : public OneSessionTest {
 protected:
  std::string out(const void *msg, int mode = 0, size_t size = 2048) {
    std::vector<char> buf(size + 1, '#');
    rc = tarvik_format_output(c, buf.data(), size, mode, msg);
    EXPECT_EQ(buf[size], '#') << "written past the size";
    return std::string(buf.data(), strnlen(buf.data(), size));
  }
  size_t too_small() const {
    size_t n = 0;
    for (const auto &l : log.lines)
      n += l.level == TLK_LEVEL_WARNING && l.text.find(kBriefTooSmall) != std::string::npos;
    return n;
  }
  int rc = 0;
};

// ---------------------------------------------------------------------------------------------
// The line writer

TEST(FillFormatBuf, MovesOnCutsAndNullsAsTold) {
  char buf[8];
  memset(buf, '#', sizeof buf);
  int left = 6;
  char *p = tarvik_fill_format_buf(buf, &left, "%s", "abc");
  EXPECT_EQ(p, buf + 3);
  EXPECT_EQ(left, 3);
  p = tarvik_fill_format_buf(p, &left, "%d", 123);  // an exact fit: all of it counted
  EXPECT_EQ(p, buf + 6);
  EXPECT_EQ(left, 0);
  EXPECT_STREQ(buf, "abc12");  // the end byte took the last place
  p = tarvik_fill_format_buf(p, &left, "x");
  EXPECT_EQ(p, nullptr);
  EXPECT_EQ(left, -1);
  EXPECT_EQ(buf[6], '#');
  left = 5;
  EXPECT_EQ(tarvik_fill_format_buf(nullptr, &left, "abc"), nullptr);
  EXPECT_EQ(left, 5);
  left = 2;
  EXPECT_EQ(tarvik_fill_format_buf(buf, &left, "%s", "long"), nullptr);
  EXPECT_EQ(left, -2);
  EXPECT_STREQ(buf, "l");
}

TEST(BriefHeader, IsTheColumnTitle) {
  EXPECT_STREQ(tarvik_brief_output_header(), "sender   creator  flag    type       op ");
}

// ---------------------------------------------------------------------------------------------
// Columns

TEST_F(FormatMsg, FlagLettersAndNames) {
  struct Row {
    int flags;
    uint32_t sender;
    uint8_t creator;
    int type, op;
    const char *want;
  };
  const Row rows[] = {
      {0, 0, 1, 3, 1, "self       kernel     P    redirect   add     \n"},
      {1, 2, 3, 3, 2, "user       unknown    L    redirect   change  \n"},
      {5, 1, 0, 3, 3, "kernel     self       L    redirect   delete  \n"},
      {0x14, 1, 0, 3, 4, "kernel     self       ANY  redirect   get     \n"},
      {0x02, 1, 0, 3, 5, "kernel     self       PV   redirect   getnext \n"},
      {0x24, 1, 0, 3, 7, "kernel     self       CLE  redirect   deleteal\n"},
      {0x62, 1, 0, 3, 9, "kernel     self       PVH  redirect   chg_get \n"},
      {0xD0, 1, 0, 3, 10, "kernel     self       ANYI redirect   unknown \n"},
      {0, 200, 147, 3, 99, "unknown    unknown    P    redirect   unknown \n"},
      {0, 1, 0, 110, 1, "kernel     self       P    unknown    add     \n"},
      // The state log's record line, with its own newline, ahead of the line's.
      {0, 1, 0, 47, 1,
       "kernel     self       P    ifstate    add     IFD seq 0 pid 0 rt_sid 0\n\n"},
  };
  for (const Row &r : rows) {
    SCOPED_TRACE(r.want);
    gencfg_msg m{};  // large enough for any header-only type
    m.gencfg_hdr = hdr(r.type, r.op, r.flags, r.sender, r.creator);
    EXPECT_EQ(out(&m), r.want);
    EXPECT_EQ(rc, 0);
  }
}

// ---------------------------------------------------------------------------------------------
// Each kind's text

// The records of the rows, filled once.  Designated initializers leave every other field zero,
// which the GCC in use still warns of.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
struct Records {
  uint8_t v4[4] = {10, 1, 0, 0};
  uint8_t host[4] = {10, 0, 0, 1};
  uint8_t sa[16] = {16, 2, 0, 0, 192, 0, 2, 7};
  sockaddr_idl gw{.sai_addr = sa};
  ifmedia media{.ifm_mtu = 1514,
                .ifm_linkflags = 0x3,
                .ifm_i2c_id = 12,
                .ifm_hier_levels = 2,
                .ifm_l2_count = 100,
                .ifm_l3_count = 200,
                .ifm_priv_flags = 0x5,
                .ifm_cos = {.ifdc_queues = 8, .ifdc_flags = 1}};
  InfoList i2c;
  rtb_msg rtb{.rtb_hdr = hdr(1, 1),
              .tid = 5,
              .af = 2,
              .prflags = 0x81,
              .lrid = 3,
              .rtb_name = bytes("red.inet.0"),
              .rtb_name_len = 10,
              .lrname = bytes("default"),
              .lrname_len = 7,
              .tenant = 4};
  rt_msg rt{.rt_hdr = hdr(2, 1, 0x02, 1, 2),
            .tid = 5,
            .af = 2,
            .type = 1,
            .nh_type = 2,
            .nhflags = 0x4,
            .lr_id = 2,
            .nhidx = {1048574},
            .rt_mcast_nhiflist = {11},
            .flags = 0x10,
            .filtidx = 3,
            .prefix = v4,
            .prefix_len = 4,
            .plen = 16,
            .altfwdnhidx = {6},
            .dflags = 0x20,
            .featureid = 8};
  ifdev_msg ifd{.ifdm_hdr = hdr(5, 2),
                .ifdm_index = 140,
                .ifdm_devflags = 0x8001,
                .ifdm_flags = 0x4000,
                .ifdm_generation = 17,
                .ifdm_snmp_id = {513},
                .ifdm_name = bytes("ge-0/0/1"),
                .ifdm_name_len = 8,
                .ifdm_media = &media,
                .ifdm_media_len = 1,
                .ifdm_sflags = 0x2};
  ifl_msg ifl{.iflm_hdr = hdr(6, 1),
              .iflm_unit = 100,
              .iflm_index = {77},
              .iflm_flags = 0x180000,  // both bits: L2 wins
              .iflm_snmp_id = {600},
              .iflm_generation = 3,
              .iflm_name = bytes("ge-0/0/1"),
              .iflm_name_len = 8,
              .iflm_lr = 1,
              .iflm_privflags = 0x40,
              .iflm_uidx = {9},
              .iflm_iflsetidx = {2},
              .iflm_pifd = 140,
              .iflm_tenant = 7};
  iff_msg iff{.iffm_hdr = hdr(7, 1),
              .iffm_unit = 5,
              .iffm_iflidx = {77},
              .iffm_flags = 0x100000000ULL,
              .iffm_generation = 4,
              .iffm_af = 28};
  ifa_msg ifa{.ifam_hdr = hdr(8, 3),
              .ifam_iflidx = {77},
              .ifam_generation = 6,
              .ifam_af = 2,
              .ifam_flags = 0x11,
              .ifam_dest = {16, 4, v4},
              .ifam_local = {32, 4, host}};
  rnh_msg rnh{.rnh_hdr = hdr(10, 1, 0x02),
              .idx = {1048580},
              .ifidx = {77},
              .af = 2,
              .nh = 2,
              .flags = 0x8,
              .rnh_f18 = &gw,
              .rnh_f18_count = 1,
              .tid = 5,
              .filteridx = 4,
              .uflags = 0x1};
  mgr_msg mgr{.mgr_hdr = hdr(13, 1), .tid = 5, .af = 2, .group = {32, 4, host}, .mgr_nhidx = {12}};
  dfw_msg dfw{.dfw_hdr = hdr(14, 1), .af = 2, .dfw_total = 4096, .filter = 33};
  ntbl_msg ntbl{.ntbl_hdr = hdr(28, 1), .idx = 6, .ntbl_name = bytes("gold"), .ntbl_name_len = 4};
  rnhc_msg rnhc{.rnhc_hdr = hdr(83, 1), .af = 2, .nh = 24, .idx = {1048600}, .child_count = 3};
  tlk_marker_msg mk{.tlkmk_hdr = hdr(102, 1),
                    .tlkmk_cookie = 0xabc,
                    .tlkmk_seq = 0x10,
                    .tlkmk_alias_seq = 0x11,
                    .tlkmk_flags = 0x3};

  Records() { i2c.add(ifd.ifdm_hdr, 378).tlk_msg_info_u32 = {0x21}; }
};

// The interface and next hop records again, each with a list of attachments filled.
#define ESI \
  { 0, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99 }
struct Attached : Records {
  InfoList dev, log, fam, bad_fam, addr, nh, route;
  rttable_tlvs options[2] = {{.rtbt_type = 3}, {.rtbt_type = 30}};  // another option: no text
  uint8_t filters[64] = {}, garbled[3] = {1, 2, 3};
  uint32_t kids[2] = {5, 6}, kid_ifls[1] = {77}, rpf_ifls[2] = {81, 82};
  tagp_label8 labels[1] = {{16, 0x80000046}};  // protocol 0x46, "Flow label POP"
  tagp block{0x10001, 2, 0, 9000, labels, 1, 0, nullptr, 0};
  iff_msg iff_bad = iff;

  Attached() {
    ifd.ifdm_hdr.tlkh_info_len = 0;
    dev.add(ifd.ifdm_hdr, 378).tlk_msg_info_u32 = {0x21};
    dev.add(ifd.ifdm_hdr, 245).dfw_apply_info = {5, 0, 2, nullptr, 0};
    dev.add(ifd.ifdm_hdr, 326).if_pfe_ps_options = {0, 141, 0, 0};
    dev.add(ifd.ifdm_hdr, 385);  // an all-zero segment: no text
    dev.add(ifd.ifdm_hdr, 385).if_ether_esi_info = {ESI, {2, 0, 0, 0, 0, 1}, 1, 2, 1, -100};
    log.add(ifl.iflm_hdr, 189).if_tos = {0x1c};
    log.add(ifl.iflm_hdr, 298).if_ae_intf_options = {0, 140, 3, 10};
    log.add(ifl.iflm_hdr, 251).ifl_oam_lfm_flags_struct = {0, 5, 0};
    log.add(ifl.iflm_hdr, 389).if_ifl_esi_info = {ESI, 2, 1, 0, 5};
    log.add(ifl.iflm_hdr, 390).if_ifl_esi_df_info = {{}, 1, 16};
    log.add(ifl.iflm_hdr, 420).if_tos = {2};
    log.add(ifl.iflm_hdr, 425).if_ifl_esi_evi_info = {{}, 100, 5000};
    log.add(ifl.iflm_hdr, 430).if_ifl_esi_info = {{}, 1, 0, 0, 0};
    // A route of unknown types: "unknown" for the route, no word and no flags or filter for the
    // next hop; with a group id and an oam id.
    rt.rt_hdr.tlkh_flags = 0;
    rt.type = 99;
    rt.nh_type = 40;
    rt.rt_nhiflist.idx = 21;
    route.add(rt.rt_hdr, 0x500000a).tlk_msg_info_u32 = {77};
    route.add(rt.rt_hdr, 0x5000008).tlk_msg_info_u32 = {9};
    // The route table's RPF option.
    options[1].rtbt_u.rtb_rpf_info = {1, 2, 300};
    rtb.rtb_tlvs = options;
    rtb.rtb_tlvs_count = 2;
    // The filter block as the library's own encoder writes it.
    const dfw_iff_apply_info_blob blob{77, TLK_AF_INET, 3, 4, 0};
    const uint32_t len = tlv_encode_dfw_iff_apply_info_blob_0(&blob, nullptr, filters, 64);
    fam.add(iff.iffm_hdr, 245).dfw_apply_info = {0, 0, 0, filters, len <= 64 ? len : 0};
    fam.add(iff.iffm_hdr, 190).ifftlv_nh_info = {1048577, 0, 0};
    fam.add(iff.iffm_hdr, 386).ifftlv_viff_esi_info = {ESI, 1, 2, 17};
    fam.add(iff.iffm_hdr, 426).ifftlv_viff_mcnh_info = {77, 2, 1048590, 1048591};
    fam.add(iff.iffm_hdr, 224).iff_tlv_bd_index = {3};
    bad_fam.add(iff_bad.iffm_hdr, 245).dfw_apply_info = {0, 0, 0, garbled, sizeof garbled};
    addr.add(ifa.ifam_hdr, 403).if_subnet_pref_src_ip_msg = {1, {10, 0, 0, 1}, {0, 10, 11, 12}};
    addr.add(ifa.ifam_hdr, 402).if_subnet_pref_src_mac_msg = {-2, {0, 0, 0, 0, 0, 0xff}};
    addr.add(ifa.ifam_hdr, 401).if_subnet_proxy_msg = {0, {0x12}};
    // An interface list next hop with an RPF list of two interfaces and a label block.
    rnh.nh = 19;
    rnh.rnh_info.rnhi_type = 16;
    rnh.rnh_info.rnhi_u.mcast_rpf_element_list = {rpf_ifls, 2};
    rnh.info_len = 12;
    nh.add(rnh.rnh_hdr, 0x2000003).af_fixup = {TLK_AF_INET6, 0};
    nh.add(rnh.rnh_hdr, 0x2000004).tlk_msg_info_u32 = {0xFFFFFFFF};
    nh.add(rnh.rnh_hdr, 0x2000005).rnhtlv_adders = {0xdeadbeef};
    nh.add(rnh.rnh_hdr, 0x2000008).rnhtlv_cont_cnh_indices = {0, kids, 2};
    nh.add(rnh.rnh_hdr, 0x2000009).rnhtlv_cont_cifl_indices = {0, kid_ifls, 1};
    nh.add(rnh.rnh_hdr, 0x2000014).rnhtlv_oam_session_id = {9};
    nh.add(rnh.rnh_hdr, 0x2000019).rnhtlv_version_id = {3};
    nh.add(rnh.rnh_hdr, 0x200001c).rnhtlv_stats_id_group_id = {77};
    nh.add(rnh.rnh_hdr, 8);  // an interface attachment with a next hop's low bits: no text
    rnh.rnh_f24 = &block;
    rnh.rnh_f24_count = 1;
  }
};
#undef ESI

// The records of the object families whose texts are plain field lists.
struct MoreRecords {
  uint8_t v4[4] = {10, 1, 0, 0};
  uint8_t v6[16] = {0x20, 0x01, 0x0d, 0xb8};
  notify_nh_vid_content vids[2] = {{40, 3}, {41, 4}};
  notify_nh_keyid_content keys[1] = {{42, 900}};
  uint8_t arp[42] = {};
  uint8_t ipv4_frame[20] = {};
  alignas(8) uint8_t clinfo[64] = {};  // a raw client list message
  ifdest_msg idm{.idm_hdr = hdr(18, 1),
                 .idm_ifd_name = bytes("so-1/0/0"),
                 .idm_ifd_name_len = 8,
                 .idm_unit = 3,
                 .idm_af = 2,
                 .idm_prefix = {16, 4, v4}};
  res_msg_evo rme{.rme_hdr = hdr(19, 4),
                  .rme_ifidx = 66,
                  .rme_plen = 0x40,
                  .rme_af = 28,
                  .rme_prefix = {32, 16, v6}};
  ifvc_msg ivm{.ivm_hdr = hdr(27, 2),
               .ivm_ifd = bytes("at-0/1/0"),
               .ivm_ifd_len = 8,
               .ivm_vpci = 0x1f,
               .ivm_ifl_index = 81,
               .ivm_flags = 0x6,
               .ivm_flap_cnt = 2};
  sample_msg smm{.smm_hdr = hdr(40, 1),
                 .smm_rate = 1000,
                 .smm_run_len = 3,
                 .smm_max_pps = 500,
                 .smm_flags = 0x30,
                 .smm_nh_index = 1048590,
                 .smm_inst_name = "sampler",
                 .smm_proto = 2,
                 .smm_class = 1,
                 .smm_ifd_index = 140,
                 .smm_op_bd_id = 8,
                 .smm_inst_id = 9,
                 .smm_num_ingr_ifl = 4,
                 .smm_num_egr_ifl = 5,
                 .smm_num_ingr_vlan = 6,
                 .smm_num_egr_vlan = 7};
  ifvp_msg ivp{.ivp_hdr = hdr(46, 1), .ivp_ifdev_index = 140, .ivp_vpi = 12, .ivp_flags = 1};
  tlk_commit_msg tcm{.tcm_hdr = hdr(49, 1),
                     .tcm_peer_type = 2,
                     .tcm_peer_index = 3,
                     .tcm_peer_slot = 4,
                     .tcm_cp_seq_num = 0x55,
                     .tcm_commit_flags = 0x1};
  pic_msg picm{.picm_hdr = hdr(68, 2),
               .picm_idx = 0x21,
               .picm_flags = 0x100,
               .picm_id = 0x7,
               .picm_seq = 12};
  ksync_msg ksm{.ksm_hdr = hdr(69, 1, 0, 1, 0, 31),
                .ksync_flags = 0x2,
                .ksm_seqno = 0x99,
                .ksm_cp_cookie = 0xbeef};
  stp_msg stp_no_if{.stpm_hdr = hdr(82, 2),
                    .stpm_idx = 5,
                    .stpm_state = 3,
                    .stpm_action = 1,
                    .stpm_epoch = 9,
                    .stpm_clear_epoch = 8,
                    .stpm_hw_learn = 1,
                    .stpm_tc_generation = 4,
                    .stpm_peer_ip = 0xFFFFFF0A};
  stp_msg stp = stp_no_if;
  vlan_msg vlm{
      .vlm_hdr = hdr(84, 4), .vlm_index = 10, .vlm_tag = 100, .vlm_inst = 1, .vlm_hw_token = 4000};
  mesh_group_msg mgm{.mgm_hdr = hdr(87, 1),
                     .mgm_key = {.mgi_index = 3},
                     .mgm_name = bytes("__all_ces__"),
                     .mgm_name_len = 11,
                     .mgm_af = 2,
                     .mgm_rtb_id = 6,
                     .mgm_flags = 1};
  analyzer_msg anm{.anm_hdr = hdr(88, 1),
                   .anm_index = 1,
                   .anm_op_nh = 1048600,
                   .anm_op_vlan_id = 6,
                   .anm_num_ingr_ifl = 2,
                   .anm_num_egr_ifl = 3,
                   .anm_num_ingr_vlan = 4,
                   .anm_num_egr_vlan = 5};
  bd_msg bdm{.bdm_hdr = hdr(89, 1),
             .bdm_index = 10,
             .bdm_name = bytes("bd10"),
             .bdm_name_len = 4,
             .bdm_vlan_id = 10,
             .bdm_flags = 2,
             .bdm_rtb = 7,
             .bdm_cfg_flags = 3,
             .bdm_irb_ifl = 90,
             .bdm_vlan_token = 0x1234};
  ifbd_msg ibm{.ibm_hdr = hdr(90, 1),
               .ibm_vlan_id = 100,
               .ibm_index_type = 1,
               .ibm_bd_index = 10,
               .ibm_index = 81,
               .ibm_isid = 5000,
               .ibm_stp_index = 2};
  fc_fabric_msg fcm{.fcm_hdr = hdr(94, 1),
                    .fcm_flags = 4,
                    .fcm_fabric_index = 2,
                    .fcm_inst = 1,
                    .fcm_tag = 3,
                    .fcm_name = bytes("fab1"),
                    .fcm_name_len = 4};
  pktinject_msg pim_arp{.pim_hdr = hdr(96, 1, 0, 1, 0, 17),
                        .pim_ifl = 77,
                        .pim_packet = arp,
                        .pim_packet_len = sizeof arp,
                        .pim_meta = v4,
                        .pim_meta_len = 4};
  pktinject_msg pim_ip{.pim_hdr = hdr(96, 1, 0, 1, 0, 17),
                       .pim_ifl = 77,
                       .pim_packet = ipv4_frame,
                       .pim_packet_len = sizeof ipv4_frame};
  notify_msg ntm{
      .ntm_hdr = hdr(98, 1), .ntm_entries = 3, .ntm_vid = {vids, 2}, .ntm_keyid = {keys, 1}};

  MoreRecords() {
    const uint8_t dst[4] = {192, 0, 2, 9};
    memcpy(&ivm.ivm_ipdst, dst, 4);
    stp.stpm_inst_len = 20;
    stp.stpm_inst.sii_ifl_index = 77;
    stp.stpm_inst.sii_instance = 2;
    // An ARP request: the frame's ethertype, then sender and target MAC and IP.
    const uint8_t arp_body[] = {
        0x08, 0x06, 0,    1,    8,    0,    6,  4, 0, 1,   // ethertype, ARP head
        0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 10, 0, 0, 1,   // sender
        0,    0,    0,    0,    0,    0,    10, 0, 0, 2};  // target
    memcpy(arp + 12, arp_body, sizeof arp_body);
    ipv4_frame[12] = 0x08;
    clinfo[5] = TLK_MSG_IFSCLINFO;
    clinfo[6] = TLK_OP_ADD;
    clinfo[24] = 1;                 // the subtype
    const uint32_t client_len = 4;  // a client name follows ...
    const uint16_t client_at = 40;  // ... at this offset
    memcpy(&clinfo[28], &client_len, 4);
    memcpy(&clinfo[20], &client_at, 2);
    memcpy(&clinfo[40], "rpd", 4);
  }
};
#pragma GCC diagnostic pop

TEST_F(FormatMsg, EachKindInBriefAndFullModes) {
  Records r;
  MoreRecords o;
  Attached a;
  // The codec's own verdict on the garbled filter block, which the line reports.
  dfw_iff_apply_info_blob scratch{};
  const int garbled_verdict = tlv_decode_dfw_iff_apply_info_blob_0(&scratch, nullptr, a.garbled, 3);
  ASSERT_LT(garbled_verdict, 1) << "three bytes are no filter block";
  const std::string stp =
      "STP idx=5, state=3, action=1, epoch=9, latest clear epoch=8 HW-lrn=1tc-generation=4stp-"
      "peer-ip=4294967050";
  struct Row {
    const char *name;
    const void *msg;
    std::string want;  // without the common columns
  };
  const std::vector<Row> rows = {
      {"nexthop", &r.rnh,
       "inet addr=192.0.2.7 nh=ucst flags=0x8 uflags=0x1 idx=1048580 ifidx=77 filteridx=4 tid=5 "
       "lr_id=0  req_ack "},
      {"mgroup", &r.mgr, "af 2 tid 5 group 10.0.0.1 nhidx 12"},
      {"firewall", &r.dfw, "name= af=2 idx=33 fulllen=4096"},
      {"rt class", &r.ntbl, "name=gold table_id=0 class_id=6 flags=0"},
      {"NH-comp", &r.rnhc, "nh=comp idx=1048600 refcnt=0, af=inet, tid=0 hw_token=0 subnh=3 "},
      {"marker", &r.mk, "cookie=0xabc seq-no=0x10 alias_seq-no=0x11 flags=0x3 "},
      {"ifdest", &o.idm, "so-1/0/0.3, af 2, inet, pfx 10.1.0.0/16"},
      {"ifmismatch", &o.rme, "inet6 ifidx=66 plen=0x40 prefix=2001:db8::"},
      {"ifvc", &o.ivm,
       "ifd=at-0/1/0 vpci=0x1f ipdst=192.0.2.9 ifl_index=81, flags=0x6, flap-cnt=2"},
      {"sampling", &o.smm,
       "proto=2, rate=1000, max-pps=500, NH-index=1048590, class=1, run-len=3, num_ingr_ifl 4, "
       "num_egr_ifl 5, num_ingr_vlan 6, num_egr_vlan 7, ifd-index=140, op_bd_id 8, inst_id=9, "
       "inst_name=sampler, flags=0x30"},
      {"ifvp", &o.ivp, "ifdev index 140, vpi 12, flags 1"},
      {"commit", &o.tcm, "peer_type=2 peer_index=3 peer_slot=4 cp_seq_num=0x55 commit_flags=0x1"},
      {"pic", &o.picm, "pic idx 0x21 id 0x7 flags 0x100 seq 12 "},
      {"ksync", &o.ksm, "seqno 0x99 cp cookie 0xbeef flags 0x2 seq 31 "},
      {"stp", &o.stp, "if 77 instance 2 " + stp},
      {"stp", &o.stp_no_if, stp},
      {"vlan", &o.vlm, "Vlan Inst=1 Index=10, Tag=100, HW Token=4000"},
      {"mesh-group", &o.mgm, "Meshgroup __all_ces__ af=2 rtb_id=6 index=3 flags=1\n"},
      {"analyzer", &o.anm,
       "an_index=1 op_nh=1048600 num_ingr_ifl=2 num_egr_ifl=3 num_ingr_vlan=4 num_egr_vlan=5 "
       "op_vlan_id=6"},
      {"bridge-domain", &o.bdm,
       "Bridge Domain bd10, index 10, flags 2, cfg flags 3, rtb 7, vlan 10 IRB IFL 90, vlan token "
       "0x1234\n"},
      {"ifbdmesg", &o.ibm,
       "index 81 index-type 1Bridge Domain 10 VLAN ID 100ISID 5000STP Index 2 \n"},
      {"fc fabric", &o.fcm, "Fabric fab1 Inst=1 Index=2, Tag=3, Flag=4"},
      {"pkt inject", &o.pim_arp,
       "proto=2054 id=77 seq-no=17 plen=42 dlen=4 l2=14 l3=28 sip=10.0.0.1 "
       "smac=00:11:22:33:44:55 tip=10.0.0.2 tmac=00:00:00:00:00:00"},
      {"pkt inject", &o.pim_ip, "proto=2048 id=77 seq-no=17 plen=20 dlen=0"},
      {"ifsclinfo", o.clinfo, "Unknown client rpd\n"},  // the printer's text, then the line's end
      {"notify msg", &o.ntm,
       "nh entries = 3\nnh_idx = 40 version-id = 3\nnh_idx = 41 version-id = 4\n"
       "nh_idx = 42 oam id = 900\n"},
      // The route, table, interface and next hop kinds with their attachments.
      {"route", &a.rt,
       "inet 10.1.0.0 tid=5 plen=16 type=unknown flags=0x10 nh=(null) nhflags=0x0 nhidx=1048574 "
       "rt_nhiflist = 21 altfwdnhidx=6 filtidx=0 lr_id = 2 featureid=8  rpf:len=0 idx=21 "
       "rt_mcast_nhiflist=11 dflags 0x20 sgid = 77\n oam-id 9\n"},
      {"rttable", &a.rtb,
       "inet name=red.inet.0 tid=5 lrname=default lrid=3 tenant=4 prflags 0x81 i-ftf [0,0] o-ftf "
       "[0,0] impl-i-ftf [none] RPF:[rpf_chk 1 mode 2 fltrid 300]"},
      {"ifdev", &a.ifd,
       "ge-0/0/1 mtu=1514 dflags=0x8001 flags=0x4000 sflags=0x2 idx=140, gen=17, i2c-id=12, "
       "ifm-hw-qs=8, ifm-use-max-qs=0, ifm-flags=1, linkflags 3, priv_flags 5  snmpid=513, "
       "hier-levels=2, l2-count=100, l3-count=200 fpc_i2c_id_type 0x21 dfw_info[ :5 - prec 2] "
       "anchor-point 141 ESI 00:11:22:33:44:55:66:77:88:99 mode:1 source_bmac:02:00:00:00:00:01 "
       "df-type: 2 pref:-100 no-preempt"},
      {"iflogical", &a.ifl,
       "ge-0/0/1.100 flags=0x180000 idx=77, gen=3 lr=1, pifd=140, uidx=9, privf=0x40 "
       "snmpid=600, iflsetidx=2, ifl_type=L2 tenant=7 copy_tos=0x1c  AE_intf_info[ link 140.3 "
       "weight 10 ] oam_flags=0x5  esi 00:11:22:33:44:55:66:77:88:99 mode:2 df-type: 1 pref:5  "
       "esi 00:00:00:00:00:00:00:00:00:00 esi-df-role=1 esi-sh-label=16  copy_tos_transit=0x2  "
       "esi=00:00:00:00:00:00:00:00:00:00 peer evi=100 and minimum isid = 5000  virtual esi "
       "00:00:00:00:00:00:00:00:00:00 mode:1"},
      {"iffamily", &a.iff,
       "inet6 mtu=0 flags=0x100000000 iflidx=77 subunit=5, gen=4 tbl=0 , iff_type=default  "
       "iffi_in 3 iffi_out 4 iffi_iq 0  iffi_iqpf 0 implicit-in [ ] implicit-prec-in [] "
       "implicit-out [ ] implicit-prec-out [] cli-chain-in [ ] cli-chain-prec-in [] "
       "cli-chain-out [ ] cli-chian-prec-out []iff nh idx = 1048577 "
       "esi=00:11:22:33:44:55:66:77:88:99 mode=1 df-role=2 sh-label=17 ifl_idx=77 mcnh_type=2 "
       "im nh_idx=1048590 sh nh_idx=1048591 mg-id 3 "},
      {"iffamily", &a.iff_bad,
       "inet6 mtu=0 flags=0x100000000 iflidx=77 subunit=5, gen=4 tbl=0 , iff_type=default " +
           fmt("Error %d decoding iffi_apply_info_blob.\n", garbled_verdict)},
      {"ifaddr", &a.ifa,
       "inet local=10.0.0.1 dest=10.1.0.0 idx=77, gen=6, flag=0x11"
       " SUBNET_PREF_SRC_IP TLV, status: 1, IP: 10.0.0.1, MAC: 0:a:b:c:0:0 SUBNET_PREF_SRC_MAC "
       "TLV, status: -2, MAC: 0:0:0:0:0:ff SUBNET_PROXY TLV, status: 0, MAC: 12:0:0:0:0:0"},
      {"nexthop", &a.rnh,
       "inet addr=192.0.2.7 nh=iflist flags=0x8 uflags=0x1 idx=1048580 ifidx=77 filteridx=4 "
       "tid=5 lr_id=0  req_ack  RPF info  type=16 len=12 num-elems=2\n{ifidx=81 ilbl=0 olbl=0 "
       "wt=0 flags=0x0 session id=0 type=0 gen_num=0 status=0 ref=0 minrate=0}\n{ifidx=82 "
       "ilbl=0 olbl=0 wt=0 flags=0x0 session id=0 type=0 gen_num=0 status=0 ref=0 minrate=0}\n "
       "af_fixup=inet6 iflidx_fixup = -1 nh_adders=0x00000000deadbeefchild_nh=5,6,child_ifl=77, "
       "oam-id = 9 nh-version id = 3\n sgid = 77\nMPLS Data: opcode=1, flags=0x1, selfid=2, "
       "parentid=0, mtu=9000, lbl_count=1, policer_count=0 label[0]: label=16, proto=70, "
       "lb_attr=Flow label POP "},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    const tlk_hdr *h = static_cast<const tlk_hdr *>(row.msg);
    const char *flags = (h->tlkh_flags & 2) ? "PV" : "P";
    const std::string cols =
        columns(tarvik_format_msg_sender_id(static_cast<int>(h->tlkh_id)),
                tarvik_format_msg_sender_id(h->tlkh_aux1), flags, row.name, rtm_ops[h->tlkh_op]);
    // Numeric addresses: the nexthop's address is the one that would be looked up.
    EXPECT_EQ(out(row.msg, 4), cols + row.want + "\n");
    EXPECT_EQ(rc, 0);
    // The brief form: the same line in 128 bytes, or -1 and the diagnostic when it is longer.
    if (row.msg == &r.rnh || row.msg == &a.rnh) continue;  // brief mode would look it up by name
    char brief[128];
    const size_t before = too_small();
    const std::string line = cols + row.want + "\n";
    EXPECT_EQ(tarvik_format_brief_output(c, brief, row.msg), line.size() < 128 ? 0 : -1);
    EXPECT_EQ(std::string(brief), line.substr(0, 127));
    EXPECT_EQ(too_small(), before + (line.size() < 128 ? 0 : 1));
  }
}

// A raw route without a prefix in its record: its prefix bytes stand behind the fixed part.
TEST_F(FormatMsg, RawRoutePrefixAndAZeroOamId) {
  Records r;
  struct {
    rt_msg m;
    uint8_t pfx[4];
  } raw{};
  raw.m = r.rt;
  raw.m.prefix = nullptr;
  raw.m.prefix_len = 0;
  raw.m.rt_hdr.tlkh_fixedlen = static_cast<uint16_t>(offsetof(decltype(raw), pfx));
  raw.m.rt_hdr.tlkh_msglen = sizeof raw;
  raw.pfx[0] = 172;
  raw.pfx[1] = 16;
  EXPECT_EQ(out(&raw.m), columns("kernel", "user", "PV", "route", "add") +
                             "inet 172.16.0.0 tid=5 plen=16 type=user flags=0x10 nh=ucst "
                             "nhflags=0x4 nhidx=1048574 rt_nhiflist = 0 altfwdnhidx=6 filtidx=3 "
                             "lr_id = 2 featureid=8  req_ack  rt_mcast_nhiflist=11 dflags 0x20\n");
  // A zero oam-id adds nothing.
  Attached a;
  a.route.items[1].tlkmi_u.tlk_msg_info_u32 = {0};
  const std::string line = out(&a.rt);
  EXPECT_EQ(line.substr(line.rfind(" dflags")), " dflags 0x20 sgid = 77\n\n");
}

// ---------------------------------------------------------------------------------------------
// Buffer sizes

TEST_F(FormatMsg, EveryBufferLengthOfALongRoute) {
  Records r;
  InfoList sgid;
  sgid.add(r.rt.rt_hdr, 0x500000a).tlk_msg_info_u32 = {4000000000u};
  const std::string full = out(&r.rt, 0);
  ASSERT_EQ(rc, 0);
  ASSERT_GT(full.size(), 200u);
  for (size_t size = 0; size <= full.size() + 2; ++size) {
    SCOPED_TRACE(size);
    const size_t before = too_small();
    // An exact fit counts as a fit, with the end byte in the last place.
    const bool fits = size >= full.size();
    EXPECT_EQ(out(&r.rt, 0, size),
              size > full.size() ? full : full.substr(0, size == 0 ? 0 : size - 1));
    EXPECT_EQ(rc, fits ? 0 : -1);
    EXPECT_EQ(too_small(), before + (fits ? 0 : 1));
  }
}

// ---------------------------------------------------------------------------------------------
// Statistics (type 26)

// A raw statistics message: header bytes, the body at 32, nine blocks from body + 48.
struct StatMsg {
  std::vector<uint8_t> b = std::vector<uint8_t>(32 + 48 + 9 * 40, 0);
  StatMsg(uint8_t kind, uint8_t type_or_title) {
    b[5] = 26;
    const uint32_t len = static_cast<uint32_t>(b.size());
    memcpy(&b[8], &len, 4);
    b[20] = 32;  // tlkh_fixedlen
    b[23] = kind;
    b[24] = type_or_title;
    b[26] = 1;  // a body follows
  }
  void set(int op, size_t at, uint64_t v, size_t width = 8) {
    memcpy(&b[32 + 48 + 40 * static_cast<size_t>(op) + at], &v, width);
  }
};

TEST_F(FormatMsg, StatisticsRows) {
  struct Row {
    const char *name;
    uint8_t kind, byte24;
    bool counters;
    std::string want;
  };
  std::string title = "\nFailed ops:: ";
  for (int op = 1; op <= 9; ++op) title += fmt(" %9.9s", rtm_ops[op]);
  title += "\n";
  auto counted = [](const char *type) {
    std::string t = fmt("%10.10s:  ", type);
    for (int op = 0; op < 9; ++op) t += fmt(" %4llu/%-4llu", op + 1ULL, op == 4 ? 123456ULL : 0ULL);
    return t;
  };
  const Row rows[] = {
      {"zero counters, no title", 0, 2, false, ""},
      {"zero counters, a title", 1, 1, false, title},
      {"a row", 0, 2, true, counted("route")},
      {"a title and a row", 1, 1, true, title + counted("rttable")},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    StatMsg m(row.kind, row.byte24);
    if (row.counters) {
      for (int op = 0; op < 9; ++op) m.set(op, 0, static_cast<uint64_t>(op + 1));
      m.set(4, 8, 123456);
    }
    EXPECT_EQ(out(m.b.data()), row.want);
    EXPECT_EQ(rc, 0);
  }
  // The kinds' words: the last one, and the catch-all past it.
  EXPECT_EQ(out(StatMsg(3, 1).b.data()).substr(0, 14), "\nLocked ops:: ");
  EXPECT_EQ(out(StatMsg(200, 1).b.data()).substr(0, 14), "\nUnknown op:: ");  // cut at ten
  // A row that does not fit.
  StatMsg big(0, 2);
  for (int op = 0; op < 9; ++op) big.set(op, 0, 1);
  const size_t before = too_small();
  EXPECT_EQ(out(big.b.data(), 0, 40).size(), 39u);
  EXPECT_EQ(rc, -1);
  EXPECT_EQ(too_small(), before + 1);
  // Counters beyond the message's length are not read.
  const uint32_t short_len = static_cast<uint32_t>(big.b.size() - 1);
  memcpy(&big.b[8], &short_len, 4);
  EXPECT_EQ(out(big.b.data()), "");
  EXPECT_EQ(rc, 0);
}

TEST_F(FormatMsg, StatisticsFullForm) {
  StatMsg m(0, 1);
  m.set(0, 0, 5);
  m.set(0, 8, 500);
  m.set(0, 16, 120, 4);
  m.set(0, 20, 6);
  m.set(0, 28, 600);
  m.set(0, 36, 130, 4);
  m.set(3, 36, 7, 4);  // only a largest received: still a row
  std::vector<char> buf(2048, '#');
  ASSERT_EQ(tarvik_tlkm_format_full_output(c, buf.data(), m.b.data()), 0);
  const std::string want =
      fmt("\n%-10.10s:: %9.9s %9.9s %9.9s %9.9s %9.9s %9.9s\n", "Total ops", "sndpkts", "sndbytes",
          "sndmaxpkt", "rcvpkts", "rcvbytes", "rcvmaxpkt") +
      fmt("\n%10.10s:: \n", "rttable") +
      fmt("%10.10s %9llu %9llu %9lu %9llu %9llu %9lu\n", "add", 5ULL, 500ULL, 120UL, 6ULL, 600ULL,
          130UL) +
      fmt("%10.10s %9llu %9llu %9lu %9llu %9llu %9lu\n", "get", 0ULL, 0ULL, 0UL, 0ULL, 0ULL, 7UL);
  EXPECT_EQ(std::string(buf.data()), want);
  // With the 18 counters at zero only the title; with no body nothing at all.
  StatMsg zero(0, 1);
  ASSERT_EQ(tarvik_tlkm_format_full_output(c, buf.data(), zero.b.data()), 0);
  EXPECT_EQ(std::string(buf.data()), want.substr(0, want.find("\n\n") + 1));
  zero.b[26] = 0;
  buf[0] = 'x';
  EXPECT_EQ(tarvik_tlkm_format_full_output(c, buf.data(), zero.b.data()), 0);
  EXPECT_EQ(buf[0], 'x');
}

// ---------------------------------------------------------------------------------------------
// The device's full form

TEST_F(FormatMsg, DeviceFullFormAndThePrintToAStream) {
  Records r;
  r.ifd.ifdm_hdr.tlkh_msglen = 0x120;
  r.ifd.ifdm_hdr.tlkh_version = 3;
  r.ifd.ifdm_hdr.tlkh_seq = 0x42;
  r.ifd.ifdm_hdr.tlkh_id = 9;
  uint8_t hw[16] = {8, 18, 0, 0, 0xaa, 0xbb};
  sockaddr_idl addr{{}, r.sa}, haddr{{}, hw};
  r.ifd.ifdm_addr = &addr;
  r.ifd.ifdm_addr_len = 1;
  r.ifd.ifdm_haddr = &haddr;
  r.ifd.ifdm_haddr_len = 1;
  std::vector<char> buf(2048, '#');
  ASSERT_EQ(tarvik_ifdm_format_full_output(c, buf.data(), 4, &r.ifd), 0);
  const std::string want =
      "ifdev\nifdm_msglen:\t\t0x120\nifdm_version:\t\t0x3\nifdm_type:\t\t0x5\nifdm_seq:\t\t0x42\n"
      "ifdm_op:\t\t0x2\nifdm_id:\t\t0x9\nifdm_index:\t\t0x8c\nifdm_devflags:\t\t0x8001\n"
      "ifdm_flags:\t\t0x4000\nifdm_generation:\t0x11\niifdm_snmp_id:\t\t0x201\n"
      "ifdm_dinfotype:\t\t0x0\nname: ge-0/0/1\naddr: 192.0.2.7\nhaddr:  af=18 0000 aabb 0000\n"
      "altaddr: \nifdm_media_present:\t\t0x1\ntlkh_info_len:\t\t0x1\n";
  EXPECT_EQ(std::string(buf.data()), want);
  // To a stream, the text taken as a format.
  r.ntbl.ntbl_name = bytes("50%%off");
  r.ntbl.ntbl_name_len = 7;
  FILE *f = tmpfile();
  ASSERT_NE(f, nullptr);
  tarvik_print_msg_to_file(c, f, 0, &r.ntbl);
  tarvik_print_msg_to_file(c, nullptr, 0, &r.ntbl);  // nothing to do
  tarvik_print_msg_to_file(c, f, 0, nullptr);
  rewind(f);
  char got[512] = {};
  ASSERT_NE(fgets(got, sizeof got, f), nullptr);
  EXPECT_EQ(std::string(got), columns("kernel", "self", "P", "rt class", "add") +
                                  "name=50%off table_id=0 class_id=6 flags=0\n");
  EXPECT_EQ(fgets(got, sizeof got, f), nullptr);
  fclose(f);
}

}  // namespace
// The kernel's refusal, as the simulated kernel lays it out, whole, with an empty function name,
// and cut short by its length (what is missing reads as zero).
TEST_F(FormatMsg, KernelRefusal) {
  struct {
    uint8_t head[TLK_RAW_HDR_LEN];
    tarsim::TlkErr body;
  } m{};
  m.head[5] = TLK_MSG_TLK_ERR;
  m.head[6] = TLK_OP_GET;
  const uint32_t whole = sizeof m;
  memcpy(&m.head[8], &whole, 4);
  m.body.line = 77;
  m.body.seq_no = 9;
  m.body.rtm_type = TLK_MSG_IFLOGICAL;
  m.body.rtm_op = TLK_OP_GET;
  m.body.sender_id = 2;
  m.body.mproc_err = 3;
  m.body.final_err = ENOENT;
#define REFUSAL                                                                    \
  "function=%s line=%u seq_no=%u rtm_type=%s rtm_op=%s sender_id=%s mproc_err=%u " \
  "final_err=%u:%s"
  const std::string cols = columns("self", "self", "P", "tlk-err", "get");
  for (const char *function : {"ifl_get", ""}) {
    strcpy(m.body.function, function);
    EXPECT_EQ(out(&m), cols +
                           fmt(REFUSAL, *function != 0 ? function : "unknown", 77u, 9u, "iflogical",
                               "get", "user", 3u, ENOENT, strerror(ENOENT)) +
                           "\n");
  }
  const uint32_t header_only = TLK_RAW_HDR_LEN;
  memcpy(&m.head[8], &header_only, 4);
  EXPECT_EQ(
      out(&m),
      cols + fmt(REFUSAL, "unknown", 0u, 0u, "nop", "nop", "self", 0u, 0u, strerror(0)) + "\n");
#undef REFUSAL
}

}  // namespace tlktest
