// The value formatters and name tables: every table read whole and past both ends, the prefix
// forms of each family, and the socket address printer with name lookups through a test seam.
#include <errno.h>
#include <limits.h>
#include <netdb.h>
#include <string.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <vector>

#include "tarlink.h"
#include "tarlink_platform.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Name tables

// Values to probe past a table of `size` words: both edges, far values and the sign bit.
std::vector<long long> probes(int size) {
  std::vector<long long> v;
  for (int i = -3; i < size + 4; ++i) v.push_back(i);
  for (long long x : {255LL, 256LL, 0x7FFFLL, 0x8000LL, 0xFFFFLL, 0x10000LL,
                      static_cast<long long>(INT_MAX), static_cast<long long>(INT_MIN)}) {
    v.push_back(x);
  }
  return v;
}

struct DenseTable {
  const char *name;
  const char *(*signed_fn)(int);
  const char *(*unsigned_fn)(unsigned);
  std::vector<const char *> words;  // by index from 0
  const char *out_of_range;         // may be NULL
};

const DenseTable kDense[] = {
    {"route_type",
     tarvik_format_route_type,
     nullptr,
     {"", "user", "ignr", "dynm", "", "perm", "", "intf", "", "dest", "ifdn", "", "iddn", "clon",
      "ifcl"},
     "ifcl"},  // capped at 14: "unknown" at 15 is out of this function's reach
    {"nexthop_type",
     tarvik_format_nexthop_type,
     nullptr,
     {"dscd",    "rjct",    "ucst",    "ulst", "idxd",    "indr",    "hold",
      "rslv",    "locl",    "recv",    "mcrt", "bcst",    "mcst",    "mgrp",
      "mdsc",    "rtbl",    "deny",    "aggr", "crypto",  "iflist",  "sample",
      "flood",   "service", "mcrtc",   "comp", "unknown", "unknown", "unknown",
      "unknown", "unknown", "unknown", "le",   "unknown", "unknown", "unknown"},
     nullptr},
    {"cos_type",
     tarvik_format_cos_type,
     nullptr,
     {"Scheduler map definition",
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
      "COS port buffer montior enable/disable"},
     "Invalid message type"},
    {"ifstate_type",
     tarvik_format_ifstate_type,
     nullptr,
     {"IFD",
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
      "MACSEC"},
     "UNKNOWN"},
    {"chassisd_issu_state",
     tarvik_format_chassisd_issu_state,
     nullptr,
     {"IDLE", "DAEMON_ISSU_PREPARE", "DAEMON_ISSU_PREPARE_DONE", "FRU_ISSU", "FRU_ISSU_DONE",
      "DAEMON_SWITCHOVER_PREPARE", "DAEMON_SWITCHOVER_PREPARE_DONE", "ABORT"},
     "UNKNOWN"},
    {"daemon_issu_state",
     tarvik_format_daemon_issu_state,
     nullptr,
     {"IDLE", "PREPARE", "READY", "SWITCHOVER_PREPARE", "SWITCHOVER_READY", "ABORT"},
     "UNKNOWN"},
    {"mtype_rcv",
     tarvik_format_mtype_rcv,
     nullptr,
     {"None", "Slot only", "All", "Selective slots", "Always TRUE"},
     "Invalid"},
    {"ifstate_event",
     nullptr,
     tarvik_format_ifstate_event,
     {"Add", "Chg", "Del", "Free", "Enq", "Dequeue", "Enq after", "Enq head", "Event string",
      "Kernel-PMS"},
     "Max"},
    {"ifsclim_subtype", tarvik_format_ifsclim_subtype, nullptr, {"IFS EndOfChain"}, "Unknown"},
    {"context", nullptr, tarvik_format_context, {"Kern", "Intr", "Rtsk"}, "Invd"},
    {"ppm_type", tarvik_format_ppm_type, nullptr, {"BFD", "VRRP", "CFM"}, "Invalid"},
    {"lb_attr",
     nullptr,
     tarvik_format_lb_attr,
     {"None", "Flow label PUSH", "Entropy label", "Unknown", "Stitching point", "Unknown",
      "Unknown", "Unknown", "Flow label POP"},
     "Unknown"},
    {"gencfg ipsectype",
     tarvik_gencfg_format_ipsectype,
     nullptr,
     {"sa_cfg", "sa_pair", "nhtb", "trace", "mini-tun", "active-peer", "cold-sync"},
     "not_support"},
    {"gencfg l2token_type",
     tarvik_gencfg_format_l2token_type,
     nullptr,
     {"Unknown", "L2-learning", "ethoam", "mmrp"},
     "Invalid"},
    {"op",
     tarvik_format_op,
     nullptr,
     {"nop", "add", "change", "delete", "get", "getnext", "clear", "deleteall", "add_get",
      "chg_get"},
     "unknown"},
};

void expect_word(const char *got, const char *want, const std::string &where) {
  if (want == nullptr) {
    EXPECT_EQ(got, nullptr) << where;
  } else {
    ASSERT_NE(got, nullptr) << where;
    EXPECT_STREQ(got, want) << where;
  }
}

TEST(FormatTables, EveryDenseTableReadsItsWordsAndItsCatchAllOutOfRange) {
  for (const DenseTable &t : kDense) {
    const int size = static_cast<int>(t.words.size());
    for (long long v : probes(size)) {
      const std::string where = std::string(t.name) + "(" + std::to_string(v) + ")";
      if (t.signed_fn != nullptr) {
        const int value = static_cast<int>(v);
        const char *want =
            value >= 0 && value < size ? t.words[static_cast<size_t>(value)] : t.out_of_range;
        expect_word(t.signed_fn(value), want, where);
      } else {
        const unsigned value = static_cast<unsigned>(v);
        const char *want = value < static_cast<unsigned>(size) ? t.words[value] : t.out_of_range;
        expect_word(t.unsigned_fn(value), want, where);
      }
    }
  }
}

TEST(FormatTables, TheEdgesTheTracesDependOn) {
  EXPECT_STREQ(tarvik_format_op(10), "unknown");
  EXPECT_STREQ(tarvik_format_op(-1), "unknown");
  EXPECT_STREQ(tarvik_format_rtm_type(110), "unknown");
  EXPECT_STREQ(tarvik_format_rtm_type(-1), "unknown");
  EXPECT_STREQ(tarvik_format_rtm_type(91), "ksdb");
  EXPECT_STREQ(tarvik_format_rtm_type(109), "tlk-err");
  EXPECT_STREQ(tarvik_format_route_type(4), "");
  EXPECT_STREQ(tarvik_format_route_type(15), "ifcl");
  EXPECT_STREQ(tarvik_format_route_type(99), "ifcl");
  EXPECT_STREQ(tarvik_format_nexthop_type(31), "le");
  EXPECT_EQ(tarvik_format_nexthop_type(35), nullptr);
  EXPECT_EQ(tarvik_format_nexthop_type(-1), nullptr);
  // The unsigned ones take a negative number as a large one.
  EXPECT_STREQ(tarvik_format_ifstate_event(static_cast<unsigned>(-1)), "Max");
  EXPECT_STREQ(tarvik_format_context(static_cast<unsigned>(-1)), "Invd");
}

TEST(FormatTables, MessageTypesAreTheCatalogueNames) {
  for (int t = -2; t < 115; ++t) {
    const char *want = t >= 0 && t < 110 ? rtm_types[t] : "unknown";
    EXPECT_STREQ(tarvik_format_rtm_type(t), want) << t;
    EXPECT_STREQ(tarvik_format_rtm_type(t), tarvik_msg_type_name(static_cast<uint32_t>(t))) << t;
  }
}

struct Pair {
  int value;
  const char *word;
};

const Pair kFamilyNames[] = {
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

// The expected word of a sparse table, `otherwise` where it names nothing.
const char *sparse(const Pair *pairs, size_t n, int value, const char *otherwise) {
  for (size_t i = 0; i < n; ++i) {
    if (pairs[i].value == value) return pairs[i].word;
  }
  return otherwise;
}

TEST(FormatTables, AddressFamiliesByTheirLowByteWithGapsUnknown) {
  for (int low = 0; low < 256; ++low) {
    const char *want = sparse(kFamilyNames, std::size(kFamilyNames), low, "unknown");
    // Only the low 8 bits count, whatever lies above them.
    for (int high : {0, 0x100, 0x7A00, static_cast<int>(0xFFFFFF00u)}) {
      EXPECT_STREQ(tarvik_format_af(high | low), want) << std::hex << (high | low);
    }
  }
  EXPECT_STREQ(tarvik_format_af(0x102), "inet");
  for (int gap : {22, 33, 103, 142}) EXPECT_STREQ(tarvik_format_af(gap), "unknown") << gap;
}

const Pair kMajorTypes[] = {
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
};

TEST(FormatTables, GencfgMajorTypesWithBit15AsSdkAndEmptyRowsUnknown) {
  for (int type = -3; type < 0x8000; ++type) {
    const char *want = type >= 0 && type < 105
                           ? sparse(kMajorTypes, std::size(kMajorTypes), type, "Unknown")
                           : ((type & 0x8000) != 0 ? "SDK" : "Unknown");
    EXPECT_STREQ(tarvik_gencfg_format_majortype(type), want) << type;
  }
  for (int type : {0x8000, 0x8001, 0x8069, 0xFFFF, 0x18000, -1}) {
    EXPECT_STREQ(tarvik_gencfg_format_majortype(type), "SDK") << type;
  }
  EXPECT_STREQ(tarvik_gencfg_format_majortype(105), "Unknown");
  EXPECT_STREQ(tarvik_gencfg_format_majortype(78), "Unknown");
  EXPECT_STREQ(tarvik_gencfg_format_majortype(INT_MIN), "Unknown");  // bit 15 clear
  EXPECT_STREQ(tarvik_gencfg_format_majortype(1), "Proxy gencfg ");
}

const Pair kUspNames[] = {
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

TEST(FormatTables, UspSubtypesNamedOrNumberedAndNullFrom159) {
  for (int subtype = -3; subtype < 170; ++subtype) {
    const std::string numbered = "USP_" + std::to_string(subtype);
    const char *want = subtype >= 0 && subtype < 159
                           ? sparse(kUspNames, std::size(kUspNames), subtype, numbered.c_str())
                           : nullptr;
    expect_word(tarvik_gencfg_format_usptype(subtype), want, std::to_string(subtype));
  }
}

// Only the rows named in the printer list can have a printer; every other row, and anything
// outside the table, answers 0 and leaves the destination alone.
TEST(FormatTables, UspBlobinfoIsZeroWithoutAPrinter) {
  const std::vector<int> printer_rows = {2, 7, 26, 27, 88, 89, 91, 95, 102, 112, 153};
  for (int subtype = -3; subtype < 300; ++subtype) {
    if (std::find(printer_rows.begin(), printer_rows.end(), subtype) != printer_rows.end()) {
      continue;
    }
    char dst[257];
    memset(dst, '#', sizeof dst);
    EXPECT_EQ(tarvik_gencfg_format_usptype_blobinfo(subtype, nullptr, dst), 0) << subtype;
    EXPECT_EQ(dst[0], '#') << subtype;
  }
}

TEST(FormatTables, SenderIdentifiersWithTheFirstFourFixed) {
  const char *fixed[] = {"self", "kernel", "user", "unknown"};
  for (int id = -3; id < 300; ++id) {
    const std::string numbered = "sender-" + std::to_string(id);
    const char *want = id >= 0 && id < 4     ? fixed[id]
                       : id >= 4 && id < 147 ? numbered.c_str()
                                             : "unknown";
    EXPECT_STREQ(tarvik_format_msg_sender_id(id), want) << id;
  }
  EXPECT_STREQ(tarvik_format_msg_sender_id(200), "unknown");
  EXPECT_STREQ(tarvik_format_msg_sender_id(INT_MAX), "unknown");
}

TEST(FormatTables, ClientMaskWordsInOneStaticBuffer) {
  const struct {
    uint32_t mask;
    const char *text;
  } rows[] = {
      {0, "None"},
      {1, "DAEMON"},
      {2, "RE"},
      {3, "DAEMON/RE"},
      {4, "PFE"},
      {5, "DAEMON/PFE"},
      {8, "PIC"},
      {10, "RE/PIC"},
      {14, "RE/PFE/PIC"},
      {15, "ALL"},
      {16, ""},                   // higher bits are ignored ...
      {0xFFFFFFF0u, ""},          // ... all of them
      {31, "DAEMON/RE/PFE/PIC"},  // "ALL" only for exactly 15
      {0x80000001u, "DAEMON"},
  };
  for (const auto &r : rows)
    EXPECT_STREQ(tarvik_format_ifstate_client_mask(r.mask), r.text) << r.mask;
  // One buffer: the text of a call lasts until the next one.
  const char *first = tarvik_format_ifstate_client_mask(5);
  const std::string kept = first;
  const char *second = tarvik_format_ifstate_client_mask(15);
  EXPECT_EQ(first, second);
  EXPECT_EQ(kept, "DAEMON/PFE");
  EXPECT_STREQ(first, "ALL");
}

// ---------------------------------------------------------------------------------------------
// A platform table for the address formatters: a name service with one answer, a host name, an
// inet_ntop that can be told to refuse, and the standard error kept.

struct AddressSeam {
  AddressSeam() : previous(*tlk_platform_get()) {
    seam = this;
    tlk_platform table = previous;
    table.gethostbyaddr = [](const void *addr, socklen_t len, int family) -> hostent * {
      ++lookups;
      seam->asked.assign(static_cast<const uint8_t *>(addr),
                         static_cast<const uint8_t *>(addr) + len);
      seam->asked_family = family;
      if (seam->answer.empty()) return nullptr;
      ++found;
      seam->entry.h_name = seam->answer.data();
      return &seam->entry;
    };
    table.gethostname = [](char *name, size_t len) {
      ++hostname_calls;
      snprintf(name, len, "%s", seam->host_name.c_str());
      return 0;
    };
    table.inet_ntop = [](int family, const void *src, char *dst, socklen_t size) -> const char * {
      seam->ntop_families.push_back(family);
      if (seam->refuse_ntop) {
        errno = EAFNOSUPPORT;
        return nullptr;
      }
      // Inet6 and the library's own families go to the host's as inet6 or inet.
      return seam->previous.inet_ntop(family == 28 || family == 121 || family == 131 ? 28 : 2, src,
                                      dst, size);
    };
    table.print_stderr = [](const char *text) { seam->stderr_lines.push_back(text); };
    tlk_platform_set(&table);
  }
  ~AddressSeam() { tlk_platform_set(&previous); }

  tlk_platform previous;
  std::string answer;                            // what gethostbyaddr finds; "" for nothing
  std::string host_name = "me.lab.example.net";  // the same in every test of the process
  bool refuse_ntop = false;
  std::vector<uint8_t> asked;
  int asked_family = -1;
  std::vector<int> ntop_families;
  std::vector<std::string> stderr_lines;
  hostent entry{};
  static inline AddressSeam *seam = nullptr;
  // Process-wide, for the local domain that is read once per process.
  static inline int lookups = 0, found = 0, hostname_calls = 0;
};

// Room for every fixed field that a natural form reads.
std::vector<uint8_t> bytes(std::initializer_list<uint8_t> b) {
  std::vector<uint8_t> v(b);
  if (v.size() < 32) v.resize(32, 0);
  return v;
}

std::string prefix(const std::vector<uint8_t> &data, uint32_t bits, int family, int mode) {
  char dst[257];
  memset(dst, '#', sizeof dst);
  return tarvik_format_prefix(dst, sizeof dst, data.data(), bits, family, mode);
}

struct PrefixRow {
  int family;
  int mode;
  uint32_t bits;
  std::vector<uint8_t> data;
  const char *text;
};

TEST(FormatPrefix, EachFamilysFormAndTheFallbacks) {
  const uint8_t v6[] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  const uint8_t group6[] = {0xff, 0x0e, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  std::vector<uint8_t> pair6(v6, v6 + 16);
  pair6.insert(pair6.end(), group6, group6 + 16);
  std::vector<uint8_t> dhcp6 = bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55});
  std::copy(v6, v6 + 16, dhcp6.begin() + 6);
  dhcp6[22] = 0x00;
  dhcp6[23] = 0xc8;
  std::vector<uint8_t> long_fallback(40);
  for (size_t i = 0; i < long_fallback.size(); ++i) long_fallback[i] = static_cast<uint8_t>(i);

  const PrefixRow rows[] = {
      // inet and inet6 through inet_ntop, a longer prefix being a source and group pair.
      {2, 0, 32, bytes({10, 0, 0, 1}), "10.0.0.1"},
      {2, 0, 64, bytes({10, 0, 0, 1, 224, 1, 1, 1}), "10.0.0.1,224.1.1.1"},
      {2, 0, 24, bytes({10, 1, 2}), "10.1.2.0"},
      {2, 2, 24, bytes({10, 1, 2}), "0x0a0102/24"},
      {2, 1, 24, bytes({10, 1, 2}), "10.1.2/24"},
      {2, 7, 32, bytes({192, 168, 200, 255}), "192.168.200.255/32"},
      {28, 0, 128, bytes(std::initializer_list<uint8_t>{}), "::"},
      {28, 0, 256, pair6, "2001:db8::1,ff0e::1"},
      {28, 3, 16, bytes({0x20, 0x01}), "32.1/16"},
      {28, 2, 20, bytes({0x20, 0x01, 0x0d}), "0x20010d/20"},
      // mpls: a label at the offset its length tells, the S bit for 40 and 56.
      {39, 0, 20, bytes({0x00, 0x01, 0x00}), "16"},
      {39, 0, 24, bytes({0xff, 0xff, 0xf0}), "1048575"},
      {39, 0, 32, bytes({0x00, 0x00, 0x01, 0x00}), "256"},
      {39, 0, 36, bytes({0xaa, 0xaa, 0x00, 0x01, 0x00}), "16"},
      {39, 0, 40, bytes({0xaa, 0xaa, 0x12, 0x34, 0x51}), "74565(S=1)"},
      {39, 0, 40, bytes({0xaa, 0xaa, 0x12, 0x34, 0x50}), "74565(S=0)"},
      {39, 0, 52, bytes({0xaa, 0xaa, 0xaa, 0xaa, 0x00, 0x02, 0x00}), "32"},
      {39, 0, 56, bytes({0xaa, 0xaa, 0xaa, 0xaa, 0x00, 0x02, 0x01}), "32(S=1)"},
      {39, 0, 48, bytes({0x00, 0x03, 0x00, 0xff, 0xff, 0xff}), "48"},
      {39, 0, 16, bytes({0x00, 0x01}), "0.1/16"},  // too short for a label
      {39, 1, 20, bytes({0x00, 0x01, 0x00}), "0.1.0/20"},
      {39, 2, 20, bytes({0x00, 0x01, 0x00}), "0x000100/20"},
      // vpls: a number, or the bytes in hex; the mode is not looked at.
      {63, 0, 32, bytes({0x00, 0x00, 0x01, 0x02}), "258"},
      {63, 0, 48, bytes({0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0xf0}), "a.b.c.d.e.f0"},
      {63, 2, 44, bytes({0x0a, 0x0b, 0x0c, 0x0d, 0x0e, 0xf0}), "a.b.c.d.e.f0"},
      {127, 1, 24, bytes({0xab, 0xcd, 0xef}), "ab.cd.ef"},
      // ethernet-switching: the VLAN, then the group of the length's kind.
      {73, 0, 20, bytes({0x00, 0x64, 0xe0}), "100, 224.0.0.0"},
      {73, 0, 20, bytes({0x00, 0x64, 0xef}), "100, 224.0.0.0"},
      {73, 0, 48, bytes({0x00, 0x64, 0xc0, 0xa8, 0x01, 0x02}), "100, 192.168.1.2"},
      {73, 0, 64, bytes({0x00, 0x64, 0x01, 0x00, 0x5e, 0x00, 0x00, 0xfb}),
       "100, 01:00:5e:00:00:fb"},
      {73, 0, 16, bytes({0x01, 0x00}), "256, *"},
      {73, 2, 48, bytes({0x00, 0x64, 0xc0, 0xa8, 0x01, 0x02}), "100, 192.168.1.2"},
      // members, with the marker word at byte 4.
      {75, 0, 80, bytes({0, 0, 0, 7, 0, 1, 0, 0, 0, 42}), "7, 42"},
      {91, 2, 80, bytes({0, 1, 0, 0, 0, 1, 0xff, 0xff, 0x80, 0x00}), "65536, 32768"},
      {83, 0, 48, bytes({0, 0, 0, 5, 0, 3}), "5, 3"},
      {85, 0, 96, bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 10, 0, 0, 1, 0x00, 0x64}),
       "100/00:11:22:33:44:55/10.0.0.1"},
      {123, 0, 192, dhcp6, "200/00:11:22:33:44:55/2001:db8::1"},
      // fibre-channel: its bytes sign-extended, as they always printed.
      {89, 0, 48, bytes({0x00, 0x0a, 0x80, 0x01, 0x02, 0xff}), "10, ffffff80, 01:02:ffffffff"},
      {89, 0, 48, bytes({0x00, 0x0a, 0x7f, 0x01, 0x02, 0x03}), "10, 7f, 01:02:03"},
      {89, 1, 2, bytes({0x00, 0x0a}), "10, *"},
      {93, 0, 64, bytes({0, 0, 0, 1, 0, 0, 0, 2}), "1:2"},
      {95, 2, 96, bytes({0, 0, 0, 1, 0, 0, 0, 2, 0xff, 0xff, 0xff, 0xff}), "1:2:4294967295"},
      // Every other family, and numbers outside 2 to 141, print the bytes.
      {7, 0, 24, bytes({1, 2, 3}), "1.2.3/24"},
      {7, 2, 12, bytes({0xab, 0xcd}), "0xabcd/12"},
      {0, 0, 8, bytes({200}), "200/8"},
      {1, 0, 8, bytes({200}), "200/8"},
      {142, 0, 8, bytes({200}), "200/8"},
      {258, 0, 32, bytes({10, 0, 0, 1}), "10.0.0.1/32"},
      {-1, 2, 16, bytes({0xde, 0xad}), "0xdead/16"},
      {41, 0, 1, bytes({0x80}), "128/1"},
      {7, 1, 320, long_fallback,
       "0.1.2.3.4.5.6.7.8.9.10.11.12.13.14.15.16.17.18.19.20.21.22.23.24.25.26.27.28.29.30.31."
       "32.33.34.35.36.37.38.39/320"},
  };
  for (const PrefixRow &r : rows) {
    EXPECT_EQ(prefix(r.data, r.bits, r.family, r.mode), r.text)
        << "family " << r.family << " mode " << r.mode << " bits " << r.bits;
  }
}

TEST(FormatPrefix, NothingToPrintOrMembersWithoutTheirMarker) {
  char dst[32];
  memset(dst, '#', sizeof dst);
  const std::vector<uint8_t> data = bytes({10, 0, 0, 1});
  EXPECT_STREQ(tarvik_format_prefix(dst, sizeof dst, nullptr, 32, 2, 0), "");
  memset(dst, '#', sizeof dst);
  EXPECT_STREQ(tarvik_format_prefix(dst, sizeof dst, data.data(), 0, 2, 0), "");
  // Without the marker word the members families write nothing at all, not even the end byte.
  for (int family : {75, 91}) {
    for (int marker : {0, 2, 0xff}) {
      std::vector<uint8_t> m = bytes({0, 0, 0, 7, 0, static_cast<uint8_t>(marker), 0, 0, 0, 42});
      snprintf(dst, sizeof dst, "kept");
      EXPECT_EQ(tarvik_format_prefix(dst, sizeof dst, m.data(), 80, family, 0), dst);
      EXPECT_STREQ(dst, "kept") << family << " " << marker;
    }
  }
}

TEST(FormatPrefix, TextIsCutAtTheDestinationsSize) {
  const std::vector<uint8_t> data = bytes({10, 20, 30, 40, 50, 60, 70, 80});
  const struct {
    int family, mode;
    uint32_t bits;
  } rows[] = {{2, 0, 32}, {2, 0, 64}, {2, 1, 64}, {2, 2, 64}, {93, 0, 64}, {63, 0, 64}};
  for (const auto &r : rows) {
    char whole[257];
    tarvik_format_prefix(whole, sizeof whole, data.data(), r.bits, r.family, r.mode);
    for (size_t size = 1; size <= strlen(whole) + 1; ++size) {
      char dst[300];
      memset(dst, '#', sizeof dst);
      tarvik_format_prefix(dst, size, data.data(), r.bits, r.family, r.mode);
      EXPECT_EQ(std::string(dst), std::string(whole, size - 1)) << r.family << " size " << size;
      EXPECT_EQ(dst[size], '#') << "wrote past the size, family " << r.family;
    }
  }
  char untouched = '#';
  EXPECT_EQ(tarvik_format_prefix(&untouched, 0, data.data(), 32, 2, 0), &untouched);
  EXPECT_EQ(untouched, '#');
}

TEST(FormatPrefix, InetNtopHasTheFamilyAsGivenAndAFailureFallsBack) {
  AddressSeam seam;
  const std::vector<uint8_t> data = bytes({10, 0, 0, 1, 224, 1, 1, 1});
  // The library's own inet families reach inet_ntop with their own numbers.
  for (int family : {2, 28, 119, 121, 129, 131, 139, 141}) {
    seam.ntop_families.clear();
    prefix(data, 32, family, 0);
    ASSERT_EQ(seam.ntop_families.size(), 1u) << family;
    EXPECT_EQ(seam.ntop_families[0], family);
  }
  EXPECT_EQ(prefix(data, 32, 119, 0), "10.0.0.1");
  EXPECT_EQ(prefix(data, 64, 139, 0), "10.0.0.1,224.1.1.1");
  // In another mode inet_ntop is not asked.
  seam.ntop_families.clear();
  EXPECT_EQ(prefix(data, 32, 2, 1), "10.0.0.1/32");
  EXPECT_TRUE(seam.ntop_families.empty());

  // Refused: the fallback, with a line on the standard error for inet and inet6 only.
  seam.refuse_ntop = true;
  const std::string said = std::string("inet_ntop failed: ") + strerror(EAFNOSUPPORT);
  const struct {
    int family;
    uint32_t bits;
    const char *text;
    bool says;
  } rows[] = {{2, 32, "10.0.0.1/32", true},
              {2, 64, "10.0.0.1.224.1.1.1/64", true},
              {28, 16, "10.0/16", true},
              {119, 32, "10.0.0.1/32", false},
              {141, 24, "10.0.0/24", false}};
  for (const auto &r : rows) {
    seam.stderr_lines.clear();
    EXPECT_EQ(prefix(data, r.bits, r.family, 0), r.text) << r.family;
    if (r.says) {
      ASSERT_EQ(seam.stderr_lines.size(), 1u) << r.family;
      EXPECT_EQ(seam.stderr_lines[0], said);
    } else {
      EXPECT_TRUE(seam.stderr_lines.empty()) << r.family;
    }
  }
}

TEST(FormatPrefix, TheHostsInetNtopKnowsOnlyInetAndInet6) {
  const tlk_platform *host = tlk_platform_host();
  char text[64];
  const uint8_t v6[16] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2};
  ASSERT_NE(host->inet_ntop(28, v6, text, sizeof text), nullptr);
  EXPECT_STREQ(text, "2001:db8::2");
  ASSERT_NE(host->inet_ntop(2, v6, text, sizeof text), nullptr);
  EXPECT_STREQ(text, "32.1.13.184");
  errno = 0;
  EXPECT_EQ(host->inet_ntop(119, v6, text, sizeof text), nullptr);
  EXPECT_EQ(errno, EAFNOSUPPORT);
  EXPECT_EQ(host->gethostbyaddr(v6, 16, 121), nullptr);
}

// ---------------------------------------------------------------------------------------------
// Socket addresses

std::vector<uint8_t> inet_sockaddr(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  return {16, 2, 0x1f, 0x90, a, b, c, d, 0, 0, 0, 0, 0, 0, 0, 0};
}

std::string sockaddr(const std::vector<uint8_t> &sa, int numeric, size_t size = 257) {
  std::vector<char> dst(size + 1, '#');
  tarvik_format_sockaddr(dst.data(), size, sa.data(), sa.size(), numeric);
  EXPECT_EQ(dst[size], '#') << "wrote past the size";
  return dst.data();
}

TEST(FormatSockaddr, EachFamilysForm) {
  AddressSeam seam;  // no name is found
  std::vector<uint8_t> tnp = {8, 41, 0, 0, 0, 0, 0, 0};
  const uint32_t word = 0x2a;
  memcpy(tnp.data() + 4, &word, sizeof word);
  std::vector<uint8_t> v6 = {28, 28, 0, 0, 0, 0, 0, 0, 0x20, 0x01, 0x0d, 0xb8, 0, 0,
                             0,  0,  0, 0, 0, 0, 0, 0, 0,    1,    0,    0,    0, 0};
  const struct {
    std::vector<uint8_t> sa;
    int numeric;
    const char *text;
  } rows[] = {
      {inet_sockaddr(192, 0, 2, 1), 1, "192.0.2.1"},
      {inet_sockaddr(192, 0, 2, 1), 0, "192.0.2.1"},      // nothing found: the numbers
      {inet_sockaddr(192, 0, 2, 1), 0x100, "192.0.2.1"},  // only the low 8 bits of the flag
      {tnp, 0, "0x2a/8"},
      {v6, 0, "2001:db8::1"},
      {{6, 18, 1, 2, 3, 4}, 0, " af=18 0102 0304"},
      {{7, 18, 1, 2, 3, 4, 5}, 1, " af=18 0102 0304 05"},
      {{4, 7, 0xab, 0xcd, 0xee, 0xee}, 0, " af=7 abcd"},  // up to its own length byte
      {{12, 7, 0xab, 0xcd, 0xef}, 0, " af=7 abcd ef"},    // and never past the length given
      {{2, 99}, 0, " af=99"},
      {{0, 3}, 0, " af=3"},
      {{1}, 0, ""},                // no family byte
      {{3, 2, 1}, 1, " af=2 01"},  // too short for an inet address
      {{8, 28, 0, 0, 0, 0, 0, 0}, 0, " af=28 0000 0000 0000"},
  };
  for (const auto &r : rows) {
    EXPECT_EQ(sockaddr(r.sa, r.numeric), r.text) << r.text;
  }
  char dst[8] = "#######";
  EXPECT_STREQ(tarvik_format_sockaddr(dst, sizeof dst, nullptr, 16, 0), "");
  snprintf(dst, sizeof dst, "kept");
  const std::vector<uint8_t> inet = inet_sockaddr(1, 2, 3, 4);
  EXPECT_STREQ(tarvik_format_sockaddr(dst, sizeof dst, inet.data(), 0, 0), "");
}

TEST(FormatSockaddr, OtherFamiliesStopAtAWholeGroupThatFits) {
  std::vector<uint8_t> sa(40);
  sa[0] = 40;
  sa[1] = 200;
  for (size_t i = 2; i < sa.size(); ++i) sa[i] = static_cast<uint8_t>(0x10 + i);
  const std::string whole = sockaddr(sa, 0);
  ASSERT_EQ(whole.rfind(" af=200 1213 1415", 0), 0u) << whole;
  ASSERT_EQ(whole.size(), 7 + 19 * 5u);
  for (size_t size = 1; size < whole.size() + 2; ++size) {
    const std::string cut = sockaddr(sa, 0, size);
    // A prefix of the whole text that ends at a group, unless even " af=200" is cut.
    EXPECT_EQ(whole.rfind(cut, 0), 0u) << size;
    if (size > 7) {
      EXPECT_EQ((cut.size() - 7) % 5, 0u) << size << " '" << cut << "'";
      EXPECT_LT(cut.size(), size);
      EXPECT_GE(cut.size() + 5, std::min(size - 1, whole.size())) << size;
    }
  }
}

TEST(FormatSockaddr, InetNamesLoseTheLocalDomain) {
  AddressSeam seam;
  const std::vector<uint8_t> sa = inet_sockaddr(198, 51, 100, 7);
  const struct {
    const char *found;
    const char *text;
  } rows[] = {
      {"router1.lab.example.net", "router1"},
      {"Router1.LAB.Example.NET", "Router1"},  // regardless of case
      {"a.b.lab.example.net", "a.b"},          // at the first dot whose remainder matches
      {"lab.example.net", "lab.example.net"},  // no dot before the domain
      {"x.example.net", "x.example.net"},      // another domain
      {"x.lab.example.net.org", "x.lab.example.net.org"},
      {"plain", "plain"},
  };
  for (const auto &r : rows) {
    seam.answer = r.found;
    EXPECT_EQ(sockaddr(sa, 0), r.text) << r.found;
    EXPECT_EQ(seam.asked, std::vector<uint8_t>({198, 51, 100, 7}));
    EXPECT_EQ(seam.asked_family, 2);
  }
  // The numeric flag asks nobody.
  const int before = AddressSeam::lookups;
  EXPECT_EQ(sockaddr(sa, 1), "198.51.100.7");
  EXPECT_EQ(AddressSeam::lookups, before);
  // The host's name is asked for once per process at most.
  EXPECT_LE(AddressSeam::hostname_calls, 1);
}

TEST(FormatSockaddr, InetClearsTheFirst257BytesAndCopiesAtMost256) {
  AddressSeam seam;
  seam.answer = std::string(300, 'n');
  const std::vector<uint8_t> sa = inet_sockaddr(198, 51, 100, 7);
  char dst[400];
  memset(dst, '#', sizeof dst);
  tarvik_format_sockaddr(dst, sizeof dst, sa.data(), sa.size(), 0);
  EXPECT_EQ(std::string(dst), std::string(256, 'n'));
  EXPECT_EQ(dst[256], 0);
  EXPECT_EQ(dst[257], '#');
  // A short name leaves zeros behind it up to byte 256.
  seam.answer = "gw";
  memset(dst, '#', sizeof dst);
  tarvik_format_sockaddr(dst, sizeof dst, sa.data(), sa.size(), 0);
  EXPECT_STREQ(dst, "gw");
  for (size_t i = 2; i < 257; ++i) ASSERT_EQ(dst[i], 0) << i;
  EXPECT_EQ(dst[257], '#');
  // A smaller destination is cleared and filled as far as its size goes.
  seam.answer = std::string(300, 'n');
  EXPECT_EQ(sockaddr(sa, 0, 10), std::string(9, 'n'));
  seam.answer = "";
  EXPECT_EQ(sockaddr(sa, 0, 8), "198.51.");
}

// Needs a process in which no name was found before (listed under FRESH): the first name found
// reads the host's name, and later changes to it are not seen.
TEST(FormatSockaddr, LocalDomainIsReadOnceOnTheFirstNameFound) {
  if (AddressSeam::found > 0) GTEST_SKIP() << "a name was found earlier in this process";
  AddressSeam seam;
  const std::vector<uint8_t> sa = inet_sockaddr(198, 51, 100, 7);
  EXPECT_EQ(sockaddr(sa, 0), "198.51.100.7");  // nothing found: the host's name isn't needed
  EXPECT_EQ(AddressSeam::hostname_calls, 0);
  seam.answer = "r1.lab.example.net";
  EXPECT_EQ(sockaddr(sa, 0), "r1");
  EXPECT_EQ(AddressSeam::hostname_calls, 1);
  seam.host_name = "me.elsewhere.org";
  seam.answer = "r2.lab.example.net";
  EXPECT_EQ(sockaddr(sa, 0), "r2");
  seam.answer = "r3.elsewhere.org";
  EXPECT_EQ(sockaddr(sa, 0), "r3.elsewhere.org");
  EXPECT_EQ(AddressSeam::hostname_calls, 1);
}

}  // namespace
