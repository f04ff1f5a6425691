// The name tables of the trace formatters: one integer in, a constant word out, whatever the
// integer.  Every function is one bounds check and one load.
#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string_view>

#include "format/names.h"
#include "format/usp_rows.h"
#include "tarlink/format.h"

namespace tlk::format {
namespace {

// The table's last entry is its word for every value out of range.
template <size_t N>
constexpr const char *pick(const char *const (&table)[N], int value) {
  return table[value >= 0 && static_cast<size_t>(value) < N - 1 ? static_cast<size_t>(value)
                                                                : N - 1];
}
template <size_t N>
constexpr const char *pick(const char *const (&table)[N], unsigned value) {
  return table[value < N - 1 ? value : N - 1];
}

// A sparse table written as (number, word) pairs and read as an array; numbers without a word
// read as NULL.
struct Named {
  int value;
  const char *word;
};
template <size_t N, size_t M>
constexpr std::array<const char *, N> spread(const Named (&pairs)[M]) {
  std::array<const char *, N> table{};
  for (const Named &p : pairs) table[static_cast<size_t>(p.value)] = p.word;
  return table;
}

// Words for rows whose names the product supplies: a prefix and the row number.
template <size_t kRows, size_t kWidth>
struct NumberedWords {
  std::array<std::array<char, kWidth>, kRows> text{};
  constexpr explicit NumberedWords(std::string_view prefix) {
    for (size_t row = 0; row < kRows; ++row) {
      size_t n = 0;
      for (char c : prefix) text[row][n++] = c;
      char digits[8] = {};
      size_t d = 0;
      size_t v = row;
      do {
        digits[d++] = static_cast<char>('0' + v % 10);
        v /= 10;
      } while (v != 0);
      while (d > 0) text[row][n++] = digits[--d];
    }
  }
  constexpr const char *operator[](size_t row) const { return text[row].data(); }
};

// Address families: the system's up to 32, the library's own on odd numbers above.
constexpr Named kFamilyPairs[] = {
    {0, "unspec"},
    {1, "unix"},
    {2, "inet"},
    {3, "imp"},
    {4, "pup"},
    {5, "chaos"},
    {6, "netbios"},
    {7, "iso"},
    {8, "ecma"},
    {9, "datakit"},
    {10, "ccitt"},
    {11, "sna"},
    {12, "DECnet"},
    {13, "DLI"},
    {14, "LAT"},
    {15, "hylink"},
    {16, "apltlk"},
    {17, "route"},
    {18, "link"},
    {19, "xtp"},
    {20, "coip"},
    {21, "cnt"},
    {23, "ipx"},
    {24, "sip"},
    {25, "pip"},
    {26, "isdn"},
    {27, "key"},
    {28, "inet6"},
    {29, "natm"},
    {30, "atm"},
    {31, "hdrcmpl"},
    {32, "netgraph"},
    {39, "mpls"},
    {41, "tnp"},
    {43, "cyclotron"},
    {45, "ccc"},
    {47, "raw-if"},
    {49, "mlppp"},
    {51, "mlfr"},
    {53, "aenet"},
    {55, "apos"},
    {57, "tcc"},
    {59, "auth"},
    {61, "mlfr-uni-nni"},
    {63, "vpls"},
    {65, "any"},
    {67, "rlsq"},
    {69, "comp-dev"},
    {71, "msvc"},
    {73, "ethernet-switching"},
    {75, "vmembers"},
    {77, "device-route"},
    {79, "ethernet-io"},
    {81, "container"},
    {83, "MSTI"},
    {85, "dhcp-snooping"},
    {87, "rms"},
    {89, "fibre-channel"},
    {91, "fc-fmembers"},
    {93, "fabric-multicast"},
    {95, "fabric-replication"},
    {97, "dc-fabric"},
    {99, "relay"},
    {101, "pppoe"},
    {107, "multi-services-load-balancing"},
    {109, "inetvpn"},
    {111, "gtp-u"},
    {113, "steering"},
    {115, "quorinlocal"},
    {117, "inet6vpn"},
    {119, "mcsnoop-inet"},
    {121, "mcsnoop-inet6"},
    {123, "dhcpv6-snooping"},
    {125, "ppp"},
    {127, "satellite-vpls"},
    {129, "satellite-inet"},
    {131, "satellite-inet6"},
    {133, "aggregated inline-services"},
    {135, "svcs-inet"},
    {137, "svcs-inet6"},
    {139, "evpn-mcsnoop"},
    {141, "evpn-mcsnoop-v6"},
};
constexpr auto kFamilies = spread<142>(kFamilyPairs);

// The words as the forwarding plane's owners wrote them, misspellings included.
constexpr const char *kCosTypes[] = {
    "Scheduler map definition",
    "l2tp session tcp binding",
    "l2tp nack",
    "Ifset tcp binding",
    "Global message",
    "classifier table update",
    "classifier to ifl",
    "fixed classification",
    "policy inline",
    "RED policy",
    "test message",
    "fabric table update",
    "fragmap table update",
    "fragmap table to ifl",
    "rewrite table update",
    "rewrite to ifl",
    "ifl tcp",
    "translation table",
    "translation table bind",
    "COS_IF_FC_TABLE_UPDATE",
    "COS_IF_FC_TO_IFL",
    "fc-set bound to IFD",
    "fc-set messages",
    "congestion bound to IFD",
    "congestion profile",
    "VC name to ID map",
    "VC group name to ID map",
    "APPQOS POLICER definition",
    "Host outbound FC",
    "ifd rewrite value",
    "Scheduler map fcset defintion",
    "Schedmap fcset bind to ifd",
    "Global shared buffer",
    "frag map in use",
    "traffic-class-map table",
    "traffic-class-map to ifd",
    "ifl ownership request",
    "Policy-map table",
    "Policy-map bind to ifl",
    "COS FC in use",
    "COS IFD in use",
    "COS RT instance in use",
    "(PFE) Add stack binding object",
    "(PFE) IFL update AE parent",
    "(PFE) IFLset update AE parent",
    "COS port buffer montior enable/disable",
    "Invalid message type",
};

constexpr const char *kIfstateTypes[] = {
    "IFD",
    "IFL",
    "IFF",
    "IFA",
    "RTTABLE",
    "ROUTE",
    "NEXTHOP",
    "FIREWALL",
    "NAME TABLE",
    "COS_FABRIC",
    "COS_POLICY",
    "COS_RED",
    "COS_REWRT_TABLE",
    "COS_REWRT_IFLMAP",
    "COS_CLASS_TABLE",
    "COS_CLASS_IFLMAP",
    "COS_POLICER",
    "COS_SHAPER",
    "SAMPLE",
    "MONITOR",
    "RTCOS",
    "SYSCONF",
    "IFVP",
    "SADB",
    "IFVC",
    "ALARM",
    "COMMIT",
    "COMMIT_PROP",
    "ASP_CFG",
    "COS_FC_QUEUE",
    "L2TP tunnel CFG",
    "L2TP session CFG",
    "L2TP tunnel group",
    "Collector PIC CFG",
    "PIC",
    "KSYNC",
    "L2TP global config",
    "COS_FRAGMAP_TABLE",
    "COS_FRAGMAP_IFLMAP",
    "Generic config",
    "Aggregator config",
    "STP",
    "VLAN",
    "LFM",
    "Mesh group",
    "ANALYZER",
    "Bridge Domain",
    "IFBD",
    "KSDB",
    "Fabric Multicast Group",
    "Fibre Channel Fabric",
    "DDOS",
    "NOTIFY",
    "MARKER",
    "MACSEC",
    "UNKNOWN",
};

constexpr const char *kChassisdIssuStates[] = {
    "IDLE",          "DAEMON_ISSU_PREPARE",       "DAEMON_ISSU_PREPARE_DONE",       "FRU_ISSU",
    "FRU_ISSU_DONE", "DAEMON_SWITCHOVER_PREPARE", "DAEMON_SWITCHOVER_PREPARE_DONE", "ABORT",
    "UNKNOWN",
};
constexpr const char *kDaemonIssuStates[] = {
    "IDLE", "PREPARE", "READY", "SWITCHOVER_PREPARE", "SWITCHOVER_READY", "ABORT", "UNKNOWN",
};
constexpr const char *kMtypeRcv[] = {
    "None", "Slot only", "All", "Selective slots", "Always TRUE", "Invalid",
};
constexpr const char *kIfstateEvents[] = {
    "Add",       "Chg",      "Del",          "Free",       "Enq", "Dequeue",
    "Enq after", "Enq head", "Event string", "Kernel-PMS", "Max",
};
constexpr const char *kIfsclimSubtypes[] = {"IFS EndOfChain", "Unknown"};
constexpr const char *kContexts[] = {"Kern", "Intr", "Rtsk", "Invd"};
constexpr const char *kPpmTypes[] = {"BFD", "VRRP", "CFM", "Invalid"};
constexpr const char *kLbAttrs[] = {
    "None",    "Flow label PUSH", "Entropy label", "Unknown",        "Stitching point",
    "Unknown", "Unknown",         "Unknown",       "Flow label POP", "Unknown",
};
constexpr const char *kIpsecTypes[] = {
    "sa_cfg", "sa_pair", "nhtb", "trace", "mini-tun", "active-peer", "cold-sync", "not_support",
};
constexpr const char *kL2tokenTypes[] = {"Unknown", "L2-learning", "ethoam", "mmrp", "Invalid"};

// Major blob types.  The rows that carry the name of one of the system's daemons or products
// (6, 14, 21, 28, 30, 37, 41, 42, 49, 50, 52, 59, 64, 66, 68, 70, 72, 75 to 77, 82, 83, 92, 93)
// are the product's to name; here they are empty and print as "Unknown", as do the unassigned
// ones.  The trailing blank of entry 1 is part of the word.
constexpr Named kMajorTypePairs[] = {
    {0, "Unknown"},
    {1, "Proxy gencfg "},
    {2, "USP Blob"},
    {3, "ASP L3 Blob"},
    {4, "Generic Blob2"},
    {5, "L2 forwarding blob"},
    {7, "L2TP CoS info"},
    {8, "COS BLOB"},
    {9, "RPM Blob"},
    {10, "IFLSET Blob"},
    {11, "L2TP Policer info"},
    {13, "L2 token"},
    {15, "Firewall"},
    {16, "ISSU"},
    {17, "STATS"},
    {18, "SSD"},
    {19, "PUBLIC"},
    {20, "CH Info"},
    {22, "Sflow"},
    {23, "SVCS GEN-NUM"},
    {24, "Lawful Intercept"},
    {25, "GRES TP Barrier"},
    {26, "Access Node Ctl Proto"},
    {27, "CFM Blob"},
    {29, "RSVD IDX blob"},
    {31, "ASP PFE blob"},
    {32, "Resync blob"},
    {33, "R2CP blob"},
    {34, "CLKSYNC blob"},
    {35, "VC blob"},
    {36, "Inline Svcs blob"},
    {38, "Kernel blob"},
    {39, "L2TP general blob"},
    {40, "Multicast filter blob"},
    {43, "FPDL blob"},
    {44, "FPDL FPB blob"},
    {45, "FPDL FPB API blob"},
    {46, "FPDL FPB bind blob"},
    {47, "AE Mode blob"},
    {48, "MC Mode blob"},
    {51, "AE bias blob"},
    {53, "Vnode blob"},
    {54, "SDB blob"},
    {55, "BFD Rules blob"},
    {56, "MEDGE Blob"},
    {57, "MACSEC blob"},
    {58, "Storm Control blob"},
    {60, "Access Control blob"},
    {61, "Rtg blob"},
    {62, "UUF blob"},
    {63, "FIP blob"},
    {65, "DCF OIR blob"},
    {67, "Analytics blob"},
    {69, "PPM Rules blob"},
    {71, "SGID-SID mapping blob"},
    {73, "VBF blob"},
    {74, "OIU blob"},
    {79, "IFL-based subscriber blob"},
    {80, "Satellite global info"},
    {81, "Tunnel Anchor blob"},
    {85, "SVCPIC Subscriber blob"},
    {86, "GMP blob"},
    {87, "Blob for UDP Filter"},
    {89, "Blob for URL Filtering"},
    {90, "MAC+IP blob"},
    {91, "Blob for ISIS"},
    {94, "Blob for phone-home LED control"},
    {95, "LFM Blob"},
    {96, "IPsec VPN"},
    {105, "SDK"},
};
constexpr auto kMajorTypes = spread<106>(kMajorTypePairs);
constexpr int kMajorTypeSdk = 105;

// Sender identifiers: the first four rows are the library's; the rest of the registry belongs to
// the product, and until it names them each prints as "sender-N".
constexpr int kSenders = 147;
constexpr int kSenderUnknown = 3;
constexpr NumberedWords<kSenders, 12> kSenderWords("sender-");
constexpr auto kSenderTable = [] {
  std::array<const char *, kSenders> table{};
  for (size_t i = 0; i < table.size(); ++i) table[i] = kSenderWords[i];
  table[0] = "self";
  table[1] = "kernel";
  table[2] = "user";
  table[3] = "unknown";
  return table;
}();

constexpr std::string_view kClientWords[] = {"DAEMON", "RE", "PFE", "PIC"};
constexpr uint32_t kAllClients = 15;
// The one static buffer of the name functions: a returned mask lasts until the next call.
char g_client_mask[100];

// USP subtype rows: the rows the library knows by name, the others "USP_N" until the product
// names them (upper case, as the security services' object kinds are).  Printers are the
// message formatter's; a row without one has none.
constexpr NumberedWords<kUspRows, 8> kUspWords("USP_");
constexpr Named kUspNamedPairs[] = {
    {0, "UNUSED"},
    {1, "TESTOBJ"},
    {2, "ZONE"},
    {7, "IDS"},
    {26, "IFL_EXT"},
    {27, "IFL_EXT_ALL"},
    {88, "SSL_TERM_PROFILE"},
    {89, "SSL_INIT_PROFILE"},
    {91, "SSL_CERT"},
    {95, "LSYS"},
    {102, "SSL_PROXY_PROFILE"},
    {112, "IPSEC_PERF_ACCELERATION"},
    {153, "POWER_MODE_IPSEC"},
};
constexpr std::array<UspRow, kUspRows> kUspTable = [] {
  std::array<UspRow, kUspRows> rows{};
  for (size_t i = 0; i < rows.size(); ++i) rows[i].name = kUspWords[i];
  for (const Named &p : kUspNamedPairs) rows[static_cast<size_t>(p.value)].name = p.word;
  rows[kUspRows - 1].name = nullptr;  // the catch-all row has no name
  rows[2].printer = usp_print_zone;
  rows[7].printer = usp_print_ids;
  rows[26].printer = usp_print_ifl_ext;
  rows[27].printer = usp_print_ifl_ext_all;
  rows[88].printer = usp_print_ssl_profile;
  rows[89].printer = usp_print_ssl_profile;
  rows[91].printer = usp_print_ssl_cert;
  rows[95].printer = usp_print_lsys;
  rows[102].printer = usp_print_ssl_profile;
  rows[112].printer = usp_print_ipsec_perf;
  rows[153].printer = usp_print_power_mode;
  return rows;
}();

}  // namespace

// Index 15 is out of reach of tarvik_format_route_type, which caps at 14: the message formatter
// reads the table itself and caps at 15.  The two differ on purpose.
const char *const kRouteTypeWords[kRouteTypeRows] = {
    "", "user", "ignr", "dynm", "",     "perm", "",     "intf",
    "", "dest", "ifdn", "",     "iddn", "clon", "ifcl", "unknown",
};

// The last entry, for any value out of range, is NULL on purpose: callers print it through a
// checked path or not at all.
const char *const kNexthopTypeWords[kNexthopTypeRows] = {
    "dscd",    "rjct",    "ucst",    "ulst",    "idxd",    "indr",    "hold",    "rslv",
    "locl",    "recv",    "mcrt",    "bcst",    "mcst",    "mgrp",    "mdsc",    "rtbl",
    "deny",    "aggr",    "crypto",  "iflist",  "sample",  "flood",   "service", "mcrtc",
    "comp",    "unknown", "unknown", "unknown", "unknown", "unknown", "unknown", "le",
    "unknown", "unknown", "unknown", nullptr,
};

const UspRow &usp_row(int subtype) {
  return kUspTable[subtype >= 0 && subtype < kUspRows - 1 ? subtype : kUspRows - 1];
}

}  // namespace tlk::format

using tlk::format::pick;

extern "C" {

TLK_EXPORT const char *tarvik_format_af(int af) {
  const uint8_t family = static_cast<uint8_t>(af);  // only the low 8 bits count
  using tlk::format::kFamilies;
  return family < kFamilies.size() && kFamilies[family] != nullptr ? kFamilies[family] : "unknown";
}

TLK_EXPORT const char *tarvik_format_op(int op) {
  return rtm_ops[op >= 0 && op < 10 ? op : 10];
}

TLK_EXPORT const char *tarvik_format_rtm_type(int type) {
  return rtm_types[type >= 0 && type < TLK_NUM_MSG_TYPES ? type : TLK_NUM_MSG_TYPES];
}

TLK_EXPORT const char *tarvik_format_route_type(int type) {
  return tlk::format::kRouteTypeWords[type >= 0 && type < 14 ? type : 14];
}

TLK_EXPORT const char *tarvik_format_nexthop_type(int type) {
  return pick(tlk::format::kNexthopTypeWords, type);
}

TLK_EXPORT const char *tarvik_format_cos_type(int type) {
  return pick(tlk::format::kCosTypes, type);
}

TLK_EXPORT const char *tarvik_format_ifstate_type(int type) {
  return pick(tlk::format::kIfstateTypes, type);
}

TLK_EXPORT const char *tarvik_format_chassisd_issu_state(int state) {
  return pick(tlk::format::kChassisdIssuStates, state);
}

TLK_EXPORT const char *tarvik_format_daemon_issu_state(int state) {
  return pick(tlk::format::kDaemonIssuStates, state);
}

TLK_EXPORT const char *tarvik_format_mtype_rcv(int mtype) {
  return pick(tlk::format::kMtypeRcv, mtype);
}

TLK_EXPORT const char *tarvik_format_ifstate_event(unsigned event) {
  return pick(tlk::format::kIfstateEvents, event);
}

TLK_EXPORT const char *tarvik_format_ifsclim_subtype(int subtype) {
  return tlk::format::kIfsclimSubtypes[subtype == 0 ? 0 : 1];
}

TLK_EXPORT const char *tarvik_format_context(unsigned context) {
  return pick(tlk::format::kContexts, context);
}

TLK_EXPORT const char *tarvik_format_ppm_type(int type) {
  return pick(tlk::format::kPpmTypes, type);
}

TLK_EXPORT const char *tarvik_format_lb_attr(unsigned attr) {
  return pick(tlk::format::kLbAttrs, attr);
}

TLK_EXPORT const char *tarvik_format_msg_sender_id(int sender) {
  using tlk::format::kSenderTable;
  return kSenderTable[sender >= 0 && sender < tlk::format::kSenders ? sender
                                                                    : tlk::format::kSenderUnknown];
}

TLK_EXPORT const char *tarvik_format_ifstate_client_mask(uint32_t mask) {
  using tlk::format::g_client_mask;
  size_t n = 0;
  auto put = [&n](std::string_view word) {
    n += word.copy(g_client_mask + n, sizeof g_client_mask - 1 - n);
  };
  if (mask == 0) {
    put("None");
  } else if (mask == tlk::format::kAllClients) {
    put("ALL");
  } else {
    for (size_t bit = 0; bit < std::size(tlk::format::kClientWords); ++bit) {
      if ((mask & (1u << bit)) == 0) continue;
      if (n > 0) put("/");
      put(tlk::format::kClientWords[bit]);
    }
  }
  g_client_mask[n] = 0;
  return g_client_mask;
}

TLK_EXPORT const char *tarvik_gencfg_format_ipsectype(int type) {
  return pick(tlk::format::kIpsecTypes, type);
}

TLK_EXPORT const char *tarvik_gencfg_format_l2token_type(int type) {
  return pick(tlk::format::kL2tokenTypes, type);
}

TLK_EXPORT const char *tarvik_gencfg_format_majortype(int type) {
  using tlk::format::kMajorTypes;
  const int row = (type & 0x8000) != 0                             ? tlk::format::kMajorTypeSdk
                  : type >= 0 && type < tlk::format::kMajorTypeSdk ? type
                                                                   : 0;
  const char *word = kMajorTypes[static_cast<size_t>(row)];
  return word != nullptr ? word : "Unknown";
}

TLK_EXPORT const char *tarvik_gencfg_format_usptype(int subtype) {
  return tlk::format::usp_row(subtype).name;
}

TLK_EXPORT int tarvik_gencfg_format_usptype_blobinfo(int subtype, struct gencfg_msg *msg,
                                                     char *dst) {
  // Outside the table the catch-all row answers, which has no printer.
  const tlk::format::UspRow &row = tlk::format::usp_row(subtype);
  if (row.printer == nullptr) return 0;
  row.printer(dst, msg);
  return 1;
}

}  // extern "C"
