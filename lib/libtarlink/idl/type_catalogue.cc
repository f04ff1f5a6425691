// Names and expected versions of the message types, indexed by type number.
#include <string_view>

#include "idl/type_catalogue.h"
#include "tarlink.h"

namespace tlk::idl {
namespace gen {
extern const Record rec_tlk_msg;
}  // namespace gen

const TypeRecord kTypeRecords[45] = {
    {0, "tlk_base"},         {1, "rtb_msg"},          {2, "rt_msg"},
    {5, "ifdev_msg"},        {6, "ifl_msg"},          {7, "iff_msg"},
    {8, "ifa_msg"},          {10, "rnh_msg"},         {11, "res_msg_evo"},
    {12, "rtm_msg"},         {13, "mgr_msg"},         {14, "dfw_msg"},
    {18, "ifdest_msg"},      {19, "res_msg_evo"},     {21, "rnhs_msg"},
    {27, "ifvc_msg"},        {28, "ntbl_msg"},        {33, "rt_cos_fqstats_msg"},
    {40, "sample_msg"},      {46, "ifvp_msg"},        {48, "tlk_sysconf_msg"},
    {49, "tlk_commit_msg"},  {68, "pic_msg"},         {69, "ksync_msg"},
    {72, "gencfg_msg"},      {81, "pfe_dwn_map_msg_idl"}, {82, "stp_msg"},
    {83, "rnhc_msg"},        {84, "vlan_msg"},        {87, "mesh_group_msg"},
    {88, "analyzer_msg"},    {89, "bd_msg"},          {90, "ifbd_msg"},
    {93, "fmgrp_msg"},       {94, "fc_fabric_msg"},   {95, "rt_cos_voqstats_msg"},
    {96, "pktinject_msg"},   {97, "ddos_msg"},        {98, "notify_msg"},
    {101, "sysstats_msg"},   {102, "tlk_marker_msg"}, {105, "rt_cos_fc_info"},
    {106, "rt_cos_misc_info"}, {107, "rt_cos_interface_info"}, {108, "rr_aspath_msg"},
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
    for (size_t i = 0; i < kTypes10To90.size(); ++i) v[10 + i] = static_cast<uint8_t>(kTypes10To90[i]);
    for (size_t i = 0; i < kTypes93To103.size(); ++i) v[93 + i] = static_cast<uint8_t>(kTypes93To103[i]);
  }
};
constexpr VersionTable kVersions;
static_assert(kVersions.v[2] == 'h' && kVersions.v[5] == 'j' && kVersions.v[6] == 'k' &&
              kVersions.v[10] == 'm' && kVersions.v[72] == 'i' && kVersions.v[109] == 0);

}  // namespace

extern "C" {

#define V(t) kVersions.v[t]
extern TLK_EXPORT const uint8_t TARVIK_VERSION_TABLE[TLK_NUM_MSG_TYPES] = {
    V(0),   V(1),   V(2),   V(3),   V(4),   V(5),   V(6),   V(7),   V(8),   V(9),
    V(10),  V(11),  V(12),  V(13),  V(14),  V(15),  V(16),  V(17),  V(18),  V(19),
    V(20),  V(21),  V(22),  V(23),  V(24),  V(25),  V(26),  V(27),  V(28),  V(29),
    V(30),  V(31),  V(32),  V(33),  V(34),  V(35),  V(36),  V(37),  V(38),  V(39),
    V(40),  V(41),  V(42),  V(43),  V(44),  V(45),  V(46),  V(47),  V(48),  V(49),
    V(50),  V(51),  V(52),  V(53),  V(54),  V(55),  V(56),  V(57),  V(58),  V(59),
    V(60),  V(61),  V(62),  V(63),  V(64),  V(65),  V(66),  V(67),  V(68),  V(69),
    V(70),  V(71),  V(72),  V(73),  V(74),  V(75),  V(76),  V(77),  V(78),  V(79),
    V(80),  V(81),  V(82),  V(83),  V(84),  V(85),  V(86),  V(87),  V(88),  V(89),
    V(90),  V(91),  V(92),  V(93),  V(94),  V(95),  V(96),  V(97),  V(98),  V(99),
    V(100), V(101), V(102), V(103), V(104), V(105), V(106), V(107), V(108), V(109),
};
#undef V

extern TLK_EXPORT const char *const rtm_types[TLK_NUM_MSG_TYPES + 1] = {
    "nop", "rttable", "route", "redirect", "rtstats", "ifdev", "iflogical", "iffamily", "ifaddr",
    "ifstats", "nexthop", "resolve", "rtmatch", "mgroup", "firewall", "ifdstats", "iflstats",
    "ifdadd", "ifdest", "ifmismatch", "ifdalarm", "nhopstats", "dfwstats", "firewall log",
    "pfe info", "pfe stats", "tarlink stats", "ifvc", "rt class", "rt class stats", "iftable",
    "cos info", "cos fabric", "cos fqstats", "cos class", "cos policy", "cos red", "cos rewrt",
    "cos policer", "cos shaper", "sampling", "sa info", "pkcs info", "monitoring", "mon stats",
    "pk-crypto-sys reply", "ifvp", "ifstate", "sysconf", "commit", "mac_db", "mac_stats",
    "sadb_stats", "asp config", "asp ipsec", "cos_fc_q", "l2tp config", "l2tp async",
    "cpic params", "cpic file spec", "cpic iif_cp_map", "cpic iif_fspec_map", "cpic dst_unavail",
    "cpic file_fail", "cpic ovload", "cpic mem_ovload", "cpic stats", "cpic file_stats", "pic",
    "ksync", "iff vpls_stats", "cos fragmap", "gencfg", "flow_aggr_hist", "flow_aggr_inst",
    "flow_aggr_flt", "flow_aggr_flt_fst", "flow_aggr_cfg", "flow_aggr_stats", "async opaque",
    "qsr", "pfe dwn map", "stp", "NH-comp", "vlan", "ifsclinfo", "gencfg-stats", "mesh-group",
    "analyzer", "bridge-domain", "ifbdmesg", "ksdb", "bulkstats", "fabric mc group", "fc fabric",
    "voq stats", "pkt inject", "ddos", "notify msg", "kuack messages", "residx", "sysstats",
    "marker", "macsec", "mac-pinning", "libcos-fcinfo", "libcos-misc-info", "libcos-intf-info",
    "rr-aspath", "tlk-err", "unknown",
};

extern TLK_EXPORT const char *const rtm_ops[11] = {
    "nop", "add", "change", "delete", "get", "getnext", "clear", "deleteall", "add_get", "chg_get",
    "unknown",
};

extern TLK_EXPORT const char *const rtm_ops_brief[11] = {
    "nop", "add", "chg", "del", "get", "get_nxt", "clr", "del_all", "add_get", "chg_get", "ukn",
};

TLK_EXPORT const char *tarvik_msg_type_name(uint32_t type) {
  return rtm_types[type < TLK_NUM_MSG_TYPES ? type : TLK_NUM_MSG_TYPES];
}

}  // extern "C"
