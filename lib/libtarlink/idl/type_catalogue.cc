// Names and expected versions of the message types, indexed by type number.
#include <string_view>

#include "idl/type_catalogue.h"
#include "tarlink.h"

namespace tlk::idl {
namespace gen {
extern const Record rec_tlk_msg;
}  // namespace gen

const TypeRecord kTypeRecords[45] = {
    {TLK_MSG_NOP, "tlk_base"},
    {TLK_MSG_RTTABLE, "rtb_msg"},
    {TLK_MSG_ROUTE, "rt_msg"},
    {TLK_MSG_IFDEV, "ifdev_msg"},
    {TLK_MSG_IFLOGICAL, "ifl_msg"},
    {TLK_MSG_IFFAMILY, "iff_msg"},
    {TLK_MSG_IFADDR, "ifa_msg"},
    {TLK_MSG_NEXTHOP, "rnh_msg"},
    {TLK_MSG_RESOLVE, "res_msg_evo"},
    {TLK_MSG_RTMATCH, "rtm_msg"},
    {TLK_MSG_MGROUP, "mgr_msg"},
    {TLK_MSG_FIREWALL, "dfw_msg"},
    {TLK_MSG_IFDEST, "ifdest_msg"},
    {TLK_MSG_IFMISMATCH, "res_msg_evo"},
    {TLK_MSG_NHOPSTATS, "rnhs_msg"},
    {TLK_MSG_IFVC, "ifvc_msg"},
    {TLK_MSG_RT_CLASS, "ntbl_msg"},
    {TLK_MSG_COS_FQSTATS, "rt_cos_fqstats_msg"},
    {TLK_MSG_SAMPLING, "sample_msg"},
    {TLK_MSG_IFVP, "ifvp_msg"},
    {TLK_MSG_SYSCONF, "tlk_sysconf_msg"},
    {TLK_MSG_COMMIT, "tlk_commit_msg"},
    {TLK_MSG_PIC, "pic_msg"},
    {TLK_MSG_KSYNC, "ksync_msg"},
    {TLK_MSG_GENCFG, "gencfg_msg"},
    {TLK_MSG_PFE_DWN_MAP, "pfe_dwn_map_msg_idl"},
    {TLK_MSG_STP, "stp_msg"},
    {TLK_MSG_NH_COMP, "rnhc_msg"},
    {TLK_MSG_VLAN, "vlan_msg"},
    {TLK_MSG_MESH_GROUP, "mesh_group_msg"},
    {TLK_MSG_ANALYZER, "analyzer_msg"},
    {TLK_MSG_BRIDGE_DOMAIN, "bd_msg"},
    {TLK_MSG_IFBDMESG, "ifbd_msg"},
    {TLK_MSG_FABRIC_MC_GROUP, "fmgrp_msg"},
    {TLK_MSG_FC_FABRIC, "fc_fabric_msg"},
    {TLK_MSG_VOQ_STATS, "rt_cos_voqstats_msg"},
    {TLK_MSG_PKT_INJECT, "pktinject_msg"},
    {TLK_MSG_DDOS, "ddos_msg"},
    {TLK_MSG_NOTIFY_MSG, "notify_msg"},
    {TLK_MSG_SYSSTATS, "sysstats_msg"},
    {TLK_MSG_MARKER, "tlk_marker_msg"},
    {TLK_MSG_LIBCOS_FCINFO, "rt_cos_fc_info"},
    {TLK_MSG_LIBCOS_MISC_INFO, "rt_cos_misc_info"},
    {TLK_MSG_LIBCOS_INTF_INFO, "rt_cos_interface_info"},
    {TLK_MSG_RR_ASPATH, "rr_aspath_msg"},
};

const char *catalogue_record(uint32_t type) {
  for (const TypeRecord &row : kTypeRecords) {
    if (row.type == type) return row.record;
  }
  return nullptr;
}

const Record *frame_record(uint32_t type) {
  const Choice &frame = *gen::rec_tlk_msg.choice;
  for (uint32_t i = 0; i < frame.narms; ++i) {
    if (frame.arms[i].selector == type) return frame.arms[i].rec;
  }
  return nullptr;
}

}  // namespace tlk::idl

namespace {

// The version letters in runs, as they are easiest to check against the catalogue: a zero byte
// marks a type that the library keeps no version for.
constexpr std::string_view kTypes0To8 = "bbhhejkfe";
constexpr std::string_view kTypes10To90 =
    "mcccdcdcceeeeecdcqcdbbbcbcbcbbccceccdcccceefcbideddddddddddddbieeeeecbcbbcbbibbbc";
constexpr std::string_view kTypes93To103 = "bbbbcbcbbcc";
static_assert(kTypes0To8.size() == 9 && kTypes10To90.size() == 81 && kTypes93To103.size() == 11);

struct VersionTable {
  uint8_t v[TLK_NUM_MSG_TYPES] = {};
  constexpr VersionTable() {
    for (size_t i = 0; i < kTypes0To8.size(); ++i) v[i] = static_cast<uint8_t>(kTypes0To8[i]);
    for (size_t i = 0; i < kTypes10To90.size(); ++i)
      v[10 + i] = static_cast<uint8_t>(kTypes10To90[i]);
    for (size_t i = 0; i < kTypes93To103.size(); ++i)
      v[93 + i] = static_cast<uint8_t>(kTypes93To103[i]);
  }
};
constexpr VersionTable kVersions;
static_assert(kVersions.v[TLK_MSG_ROUTE] == 'h' && kVersions.v[TLK_MSG_IFDEV] == 'j' &&
              kVersions.v[TLK_MSG_IFLOGICAL] == 'k' && kVersions.v[TLK_MSG_NEXTHOP] == 'm' &&
              kVersions.v[TLK_MSG_GENCFG] == 'i' && kVersions.v[TLK_MSG_TLK_ERR] == 0);

}  // namespace

extern "C" {

#define V(t) kVersions.v[t]
extern TLK_EXPORT const uint8_t TARVIK_VERSION_TABLE[TLK_NUM_MSG_TYPES] = {
    V(0),  V(1),   V(2),   V(3),   V(4),   V(5),   V(6),   V(7),   V(8),   V(9),   V(10),
    V(11), V(12),  V(13),  V(14),  V(15),  V(16),  V(17),  V(18),  V(19),  V(20),  V(21),
    V(22), V(23),  V(24),  V(25),  V(26),  V(27),  V(28),  V(29),  V(30),  V(31),  V(32),
    V(33), V(34),  V(35),  V(36),  V(37),  V(38),  V(39),  V(40),  V(41),  V(42),  V(43),
    V(44), V(45),  V(46),  V(47),  V(48),  V(49),  V(50),  V(51),  V(52),  V(53),  V(54),
    V(55), V(56),  V(57),  V(58),  V(59),  V(60),  V(61),  V(62),  V(63),  V(64),  V(65),
    V(66), V(67),  V(68),  V(69),  V(70),  V(71),  V(72),  V(73),  V(74),  V(75),  V(76),
    V(77), V(78),  V(79),  V(80),  V(81),  V(82),  V(83),  V(84),  V(85),  V(86),  V(87),
    V(88), V(89),  V(90),  V(91),  V(92),  V(93),  V(94),  V(95),  V(96),  V(97),  V(98),
    V(99), V(100), V(101), V(102), V(103), V(104), V(105), V(106), V(107), V(108), V(109),
};
#undef V

extern TLK_EXPORT const char *const rtm_types[TLK_NUM_MSG_TYPES + 1] = {
    "nop",
    "rttable",
    "route",
    "redirect",
    "rtstats",
    "ifdev",
    "iflogical",
    "iffamily",
    "ifaddr",
    "ifstats",
    "nexthop",
    "resolve",
    "rtmatch",
    "mgroup",
    "firewall",
    "ifdstats",
    "iflstats",
    "ifdadd",
    "ifdest",
    "ifmismatch",
    "ifdalarm",
    "nhopstats",
    "dfwstats",
    "firewall log",
    "pfe info",
    "pfe stats",
    "tarlink stats",
    "ifvc",
    "rt class",
    "rt class stats",
    "iftable",
    "cos info",
    "cos fabric",
    "cos fqstats",
    "cos class",
    "cos policy",
    "cos red",
    "cos rewrt",
    "cos policer",
    "cos shaper",
    "sampling",
    "sa info",
    "pkcs info",
    "monitoring",
    "mon stats",
    "pk-crypto-sys reply",
    "ifvp",
    "ifstate",
    "sysconf",
    "commit",
    "mac_db",
    "mac_stats",
    "sadb_stats",
    "asp config",
    "asp ipsec",
    "cos_fc_q",
    "l2tp config",
    "l2tp async",
    "cpic params",
    "cpic file spec",
    "cpic iif_cp_map",
    "cpic iif_fspec_map",
    "cpic dst_unavail",
    "cpic file_fail",
    "cpic ovload",
    "cpic mem_ovload",
    "cpic stats",
    "cpic file_stats",
    "pic",
    "ksync",
    "iff vpls_stats",
    "cos fragmap",
    "gencfg",
    "flow_aggr_hist",
    "flow_aggr_inst",
    "flow_aggr_flt",
    "flow_aggr_flt_fst",
    "flow_aggr_cfg",
    "flow_aggr_stats",
    "async opaque",
    "qsr",
    "pfe dwn map",
    "stp",
    "NH-comp",
    "vlan",
    "ifsclinfo",
    "gencfg-stats",
    "mesh-group",
    "analyzer",
    "bridge-domain",
    "ifbdmesg",
    "ksdb",
    "bulkstats",
    "fabric mc group",
    "fc fabric",
    "voq stats",
    "pkt inject",
    "ddos",
    "notify msg",
    "kuack messages",
    "residx",
    "sysstats",
    "marker",
    "macsec",
    "mac-pinning",
    "libcos-fcinfo",
    "libcos-misc-info",
    "libcos-intf-info",
    "rr-aspath",
    "tlk-err",
    "unknown",
};

extern TLK_EXPORT const char *const rtm_ops[11] = {
    "nop",   "add",       "change",  "delete",  "get",     "getnext",
    "clear", "deleteall", "add_get", "chg_get", "unknown",
};

extern TLK_EXPORT const char *const rtm_ops_brief[11] = {
    "nop", "add", "chg", "del", "get", "get_nxt", "clr", "del_all", "add_get", "chg_get", "ukn",
};

TLK_EXPORT const char *tarvik_msg_type_name(uint32_t type) {
  return rtm_types[type < TLK_NUM_MSG_TYPES ? type : TLK_NUM_MSG_TYPES];
}

}  // extern "C"
