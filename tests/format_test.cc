// The value formatters and name tables: the words of each table that matter (its ends, its
// catch-all, its odd spellings and gaps), the prefix forms of each family, and the socket address
// printer with name lookups through a test seam.
#include <arpa/inet.h>
#include <errno.h>
#include <limits.h>
#include <netdb.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "format/printf.h"
#include "tarlink.h"
#include "tarlink_platform.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Name tables

void expect_word(const char *got, const char *want, const char *where) {
  if (want == nullptr) {
    EXPECT_EQ(got, nullptr) << where;
  } else {
    ASSERT_NE(got, nullptr) << where;
    EXPECT_STREQ(got, want) << where;
  }
}
#define EXPECT_WORD(call, want) expect_word(call, want, #call)

// Each dense table at both ends, past both ends, and at the words that differ from their
// neighbours; the unsigned ones take a negative number as a large one.
TEST(FormatTables, DenseTablesAtTheirEndsGapsAndCatchAll) {
  EXPECT_WORD(tarvik_format_route_type(0), "");
  EXPECT_WORD(tarvik_format_route_type(1), "user");
  EXPECT_WORD(tarvik_format_route_type(4), "");
  EXPECT_WORD(tarvik_format_route_type(13), "clon");
  EXPECT_WORD(tarvik_format_route_type(14), "ifcl");
  // Capped: "unknown" is out of reach.
  for (int t : {15, 99, -1}) EXPECT_STREQ(tarvik_format_route_type(t), "ifcl") << t;
  EXPECT_WORD(tarvik_format_nexthop_type(0), "dscd");
  EXPECT_WORD(tarvik_format_nexthop_type(24), "comp");
  EXPECT_WORD(tarvik_format_nexthop_type(25), "unknown");
  EXPECT_WORD(tarvik_format_nexthop_type(31), "le");
  EXPECT_WORD(tarvik_format_nexthop_type(34), "unknown");
  for (int t : {35, -1}) EXPECT_EQ(tarvik_format_nexthop_type(t), nullptr) << t;
  EXPECT_WORD(tarvik_format_cos_type(0), "Scheduler map definition");
  EXPECT_WORD(tarvik_format_cos_type(19), "COS_IF_FC_TABLE_UPDATE");
  EXPECT_WORD(tarvik_format_cos_type(30), "Scheduler map fcset defintion");
  EXPECT_WORD(tarvik_format_cos_type(45), "COS port buffer montior enable/disable");
  for (int t : {46, -1}) EXPECT_STREQ(tarvik_format_cos_type(t), "Invalid message type") << t;
  EXPECT_WORD(tarvik_format_ifstate_type(0), "IFD");
  EXPECT_WORD(tarvik_format_ifstate_type(30), "L2TP tunnel CFG");
  EXPECT_WORD(tarvik_format_ifstate_type(54), "MACSEC");
  for (int t : {55, -1}) EXPECT_STREQ(tarvik_format_ifstate_type(t), "UNKNOWN") << t;
  EXPECT_WORD(tarvik_format_chassisd_issu_state(0), "IDLE");
  EXPECT_WORD(tarvik_format_chassisd_issu_state(7), "ABORT");
  EXPECT_WORD(tarvik_format_chassisd_issu_state(8), "UNKNOWN");
  EXPECT_WORD(tarvik_format_daemon_issu_state(5), "ABORT");
  for (int t : {6, -1}) EXPECT_STREQ(tarvik_format_daemon_issu_state(t), "UNKNOWN") << t;
  EXPECT_WORD(tarvik_format_mtype_rcv(0), "None");
  EXPECT_WORD(tarvik_format_mtype_rcv(4), "Always TRUE");
  EXPECT_WORD(tarvik_format_mtype_rcv(5), "Invalid");
  EXPECT_WORD(tarvik_format_ifstate_event(0), "Add");
  EXPECT_WORD(tarvik_format_ifstate_event(9), "Kernel-PMS");
  for (unsigned t : {10u, UINT_MAX}) EXPECT_STREQ(tarvik_format_ifstate_event(t), "Max") << t;
  EXPECT_WORD(tarvik_format_ifsclim_subtype(0), "IFS EndOfChain");
  for (int t : {1, -1}) EXPECT_STREQ(tarvik_format_ifsclim_subtype(t), "Unknown") << t;
  EXPECT_WORD(tarvik_format_context(2), "Rtsk");
  for (unsigned t : {3u, UINT_MAX}) EXPECT_STREQ(tarvik_format_context(t), "Invd") << t;
  EXPECT_WORD(tarvik_format_ppm_type(0), "BFD");
  EXPECT_WORD(tarvik_format_ppm_type(2), "CFM");
  EXPECT_WORD(tarvik_format_ppm_type(3), "Invalid");
  EXPECT_WORD(tarvik_format_lb_attr(0), "None");
  EXPECT_WORD(tarvik_format_lb_attr(3), "Unknown");
  EXPECT_WORD(tarvik_format_lb_attr(4), "Stitching point");
  EXPECT_WORD(tarvik_format_lb_attr(8), "Flow label POP");
  EXPECT_WORD(tarvik_format_lb_attr(9), "Unknown");
  EXPECT_WORD(tarvik_gencfg_format_ipsectype(0), "sa_cfg");
  EXPECT_WORD(tarvik_gencfg_format_ipsectype(6), "cold-sync");
  for (int t : {7, -1}) EXPECT_STREQ(tarvik_gencfg_format_ipsectype(t), "not_support") << t;
  EXPECT_WORD(tarvik_gencfg_format_l2token_type(3), "mmrp");
  EXPECT_WORD(tarvik_gencfg_format_l2token_type(4), "Invalid");
  EXPECT_WORD(tarvik_format_op(0), "nop");
  EXPECT_WORD(tarvik_format_op(9), "chg_get");
  for (int t : {10, -1}) EXPECT_STREQ(tarvik_format_op(t), "unknown") << t;
}

TEST(FormatTables, MessageTypesAreTheCatalogueNames) {
  for (int t = -2; t < 115; ++t) {
    const char *want = t >= 0 && t < 110 ? rtm_types[t] : "unknown";
    EXPECT_STREQ(tarvik_format_rtm_type(t), want) << t;
    EXPECT_STREQ(tarvik_format_rtm_type(t), tarvik_msg_type_name(static_cast<uint32_t>(t))) << t;
  }
  EXPECT_STREQ(tarvik_format_rtm_type(91), "ksdb");
  EXPECT_STREQ(tarvik_format_rtm_type(109), "tlk-err");
}

TEST(FormatTables, SparseTablesWithTheirGaps) {
  // Address families: only the low 8 bits count.
  EXPECT_WORD(tarvik_format_af(0), "unspec");
  EXPECT_WORD(tarvik_format_af(0x102), "inet");
  EXPECT_WORD(tarvik_format_af(static_cast<int>(0xFFFFFF1Cu)), "inet6");
  EXPECT_WORD(tarvik_format_af(12), "DECnet");
  EXPECT_WORD(tarvik_format_af(39), "mpls");
  EXPECT_WORD(tarvik_format_af(107), "multi-services-load-balancing");
  EXPECT_WORD(tarvik_format_af(133), "aggregated inline-services");
  EXPECT_WORD(tarvik_format_af(141), "evpn-mcsnoop-v6");
  for (int gap : {22, 33, 103, 142, 255}) EXPECT_STREQ(tarvik_format_af(gap), "unknown") << gap;
  // Gencfg major types: bit 15 is "SDK" whatever else is set, empty rows are "Unknown".
  EXPECT_WORD(tarvik_gencfg_format_majortype(0), "Unknown");
  EXPECT_WORD(tarvik_gencfg_format_majortype(1), "Proxy gencfg ");
  EXPECT_WORD(tarvik_gencfg_format_majortype(96), "IPsec VPN");
  for (int type : {6, 78, 104, 105, 0x7FFF, INT_MIN}) {
    EXPECT_STREQ(tarvik_gencfg_format_majortype(type), "Unknown") << type;
  }
  for (int type : {0x8000, 0x8001, 0xFFFF, 0x18000, -1}) {
    EXPECT_STREQ(tarvik_gencfg_format_majortype(type), "SDK") << type;
  }
  // USP subtypes: named, else numbered, and null from 159 on.
  EXPECT_WORD(tarvik_gencfg_format_usptype(0), "UNUSED");
  EXPECT_WORD(tarvik_gencfg_format_usptype(3), "USP_3");
  EXPECT_WORD(tarvik_gencfg_format_usptype(95), "LSYS");
  EXPECT_WORD(tarvik_gencfg_format_usptype(153), "POWER_MODE_IPSEC");
  EXPECT_WORD(tarvik_gencfg_format_usptype(158), "USP_158");
  for (int t : {159, -1}) EXPECT_EQ(tarvik_gencfg_format_usptype(t), nullptr) << t;
}

// Only the rows named in the printer list can have a printer; every other row, and anything
// outside the table, answers 0 and leaves the destination alone.
TEST(FormatTables, UspBlobinfoIsZeroWithoutAPrinter) {
  for (int subtype : {-1, 0, 1, 3, 25, 90, 152, 158, 159, 300}) {
    char dst[257];
    memset(dst, '#', sizeof dst);
    EXPECT_EQ(tarvik_gencfg_format_usptype_blobinfo(subtype, nullptr, dst), 0) << subtype;
    EXPECT_EQ(dst[0], '#') << subtype;
  }
}

TEST(FormatTables, SenderIdentifiersWithTheFirstFourFixed) {
  EXPECT_WORD(tarvik_format_msg_sender_id(0), "self");
  EXPECT_WORD(tarvik_format_msg_sender_id(1), "kernel");
  EXPECT_WORD(tarvik_format_msg_sender_id(2), "user");
  EXPECT_WORD(tarvik_format_msg_sender_id(3), "unknown");
  EXPECT_WORD(tarvik_format_msg_sender_id(4), "sender-4");
  EXPECT_WORD(tarvik_format_msg_sender_id(146), "sender-146");
  for (int id : {147, 200, INT_MAX, -1}) {
    EXPECT_STREQ(tarvik_format_msg_sender_id(id), "unknown") << id;
  }
}

TEST(FormatTables, ClientMaskWordsInOneStaticBuffer) {
  const struct {
    uint32_t mask;
    const char *text;
  } rows[] = {
      {0, "None"},
      {5, "DAEMON/PFE"},
      {10, "RE/PIC"},
      {15, "ALL"},
      {16, ""},                   // higher bits are ignored ...
      {31, "DAEMON/RE/PFE/PIC"},  // ... and "ALL" is only for exactly 15
      {0x80000001u, "DAEMON"},
  };
  for (const auto &r : rows)
    EXPECT_STREQ(tarvik_format_ifstate_client_mask(r.mask), r.text) << r.mask;
  // One buffer: the text of a call lasts until the next one.
  const char *first = tarvik_format_ifstate_client_mask(5);
  EXPECT_EQ(first, tarvik_format_ifstate_client_mask(15));
  EXPECT_STREQ(first, "ALL");
}

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
      {2, 2, 24, bytes({10, 1, 2}), "0x0a0102/24"},
      {2, 1, 24, bytes({10, 1, 2}), "10.1.2/24"},
      {2, 7, 32, bytes({192, 168, 200, 255}), "192.168.200.255/32"},
      {28, 0, 128, bytes(std::initializer_list<uint8_t>{}), "::"},
      {28, 0, 256, pair6, "2001:db8::1,ff0e::1"},
      {28, 2, 20, bytes({0x20, 0x01, 0x0d}), "0x20010d/20"},
      // mpls: a label at the offset its length tells, the S bit for 40 and 56.
      {39, 0, 20, bytes({0x00, 0x01, 0x00}), "16"},
      {39, 0, 24, bytes({0xff, 0xff, 0xf0}), "1048575"},
      {39, 0, 32, bytes({0x00, 0x00, 0x01, 0x00}), "256"},
      {39, 0, 40, bytes({0xaa, 0xaa, 0x12, 0x34, 0x51}), "74565(S=1)"},
      {39, 0, 56, bytes({0xaa, 0xaa, 0xaa, 0xaa, 0x00, 0x02, 0x01}), "32(S=1)"},
      {39, 0, 48, bytes({0x00, 0x03, 0x00, 0xff, 0xff, 0xff}), "48"},
      {39, 0, 16, bytes({0x00, 0x01}), "0.1/16"},  // too short for a label
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
      // members, with the marker word at byte 4.
      {75, 0, 80, bytes({0, 0, 0, 7, 0, 1, 0, 0, 0, 42}), "7, 42"},
      {91, 2, 80, bytes({0, 1, 0, 0, 0, 1, 0xff, 0xff, 0x80, 0x00}), "65536, 32768"},
      {83, 0, 48, bytes({0, 0, 0, 5, 0, 3}), "5, 3"},
      {85, 0, 96, bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 10, 0, 0, 1, 0x00, 0x64}),
       "100/00:11:22:33:44:55/10.0.0.1"},
      {123, 0, 192, dhcp6, "200/00:11:22:33:44:55/2001:db8::1"},
      // fibre-channel: its bytes sign-extended, as they always printed.
      {89, 0, 48, bytes({0x00, 0x0a, 0x80, 0x01, 0x02, 0xff}), "10, ffffff80, 01:02:ffffffff"},
      {89, 1, 2, bytes({0x00, 0x0a}), "10, *"},
      {93, 0, 64, bytes({0, 0, 0, 1, 0, 0, 0, 2}), "1:2"},
      {95, 2, 96, bytes({0, 0, 0, 1, 0, 0, 0, 2, 0xff, 0xff, 0xff, 0xff}), "1:2:4294967295"},
      // Every other family, and numbers outside 2 to 141, print the bytes.
      {7, 0, 24, bytes({1, 2, 3}), "1.2.3/24"},
      {0, 0, 8, bytes({200}), "200/8"},
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
  for (int family : {2, 28, 121, 139}) {
    seam.ntop_families.clear();
    prefix(data, 32, family, 0);
    ASSERT_EQ(seam.ntop_families.size(), 1u) << family;
    EXPECT_EQ(seam.ntop_families[0], family);
  }
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
  } rows[] = {{2, 64, "10.0.0.1.224.1.1.1/64", true},
              {28, 16, "10.0/16", true},
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
  // Its dotted IPv4 is written by hand: the C library's text, and its ENOSPC, at every size.
  for (const int a : {0, 7, 10, 99, 100, 199, 255}) {
    const uint8_t v4[4] = {static_cast<uint8_t>(a), static_cast<uint8_t>(255 - a),
                           static_cast<uint8_t>(a / 3), 0};
    for (socklen_t size = 0; size <= 16; ++size) {
      char want[16] = {}, got[16] = {};
      errno = 0;
      const bool ok = inet_ntop(AF_INET, v4, want, size) != nullptr;
      const int want_errno = errno;
      errno = 0;
      ASSERT_EQ(host->inet_ntop(2, v4, got, size) != nullptr, ok) << a << " size " << size;
      if (ok)
        EXPECT_STREQ(got, want);
      else
        EXPECT_EQ(errno, want_errno);
    }
  }
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
      {{4, 7, 0xab, 0xcd, 0xee, 0xee}, 0, " af=7 abcd"},  // up to its own length byte
      {{12, 7, 0xab, 0xcd, 0xef}, 0, " af=7 abcd ef"},    // and never past the length given
      {{2, 99}, 0, " af=99"},
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

// ---------------------------------------------------------------------------------------------
// The formatter's own vsnprintf gives the C library's text and length at every buffer size.

// Deliberately no format attribute: some rows use forms the compiler warns of.
void same_as_libc(const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  char want[256], got[256], kept[256];
  for (size_t size = 0; size < sizeof want; ++size) {
    memset(want, 'W', sizeof want);
    memset(got, 'W', sizeof got);
    memset(kept, 'W', sizeof kept);
    va_list a, b, c;
    va_copy(a, ap);
    va_copy(b, ap);
    va_copy(c, ap);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int n_want = vsnprintf(want, size, format, a);
    const int n_got = tlk::format::fast_vsnprintf(got, size, format, b);
    // Every format here is a literal, so the kept parse of its address serves too.
    const int n_kept = tlk::format::literal_vsnprintf(kept, size, format, c);
#pragma GCC diagnostic pop
    va_end(a);
    va_end(b);
    va_end(c);
    ASSERT_EQ(n_got, n_want) << format << " size " << size;
    ASSERT_EQ(n_kept, n_want) << format << " size " << size;
    ASSERT_EQ(std::string(got, sizeof got), std::string(want, sizeof want))
        << format << " size " << size;
    ASSERT_EQ(std::string(kept, sizeof kept), std::string(want, sizeof want))
        << format << " size " << size;
    if (static_cast<size_t>(n_want) + 2 < size) break;  // past the whole text
  }
  va_end(ap);
}

TEST(FormatPrintf, EveryConversionTheFormatterUsesAndTheFallbacks) {
  same_as_libc("plain text, no conversion");
  same_as_libc("%d %d %d %i", 0, -1, INT_MIN, INT_MAX);
  same_as_libc("%u %x %X %o %#x %#X %#o %#o", 0u, 0xdeadbeefu, 0xabcu, 8u, 0u, 255u, 0u, 9u);
  same_as_libc("[%5d|%-5d|%05d|%+d|% d|%+05d|%-+6d|%.3d|%.0d|%8.3d|%08.3d]", 42, 42, -42, 7, 7, -3,
               9, 5, 0, -12, 12);
  same_as_libc("[%#010x|%#.5x|%-#8x|%02x:%02x|%016llx]", 0x1fu, 0xau, 0xbu, 1u, 0xabu,
               0x0123456789abcdefull);
  same_as_libc("%hhu %hhd %hu %hd %lu %ld %llu %lld %zu %zd %ju %td", 300u, 200, 70000u, 40000,
               ULONG_MAX, LONG_MIN, ULLONG_MAX, LLONG_MIN, SIZE_MAX, static_cast<ssize_t>(-5),
               static_cast<uintmax_t>(77), static_cast<ptrdiff_t>(-9));
  same_as_libc("%-10.10s|%10.10s|%-4.4s|%9.9s|%.0s|%s|%.3s|%-8s|", "sender-name-long", "ab", "PV",
               "something", "gone", "", "abcdef", "x");
  same_as_libc("%c%c|%3c|%-3c|100%%", 'o', 'k', 'r', 'l');
  same_as_libc("%*d|%-*d|%*d|%.*s|%.*d", 6, 1, 6, 2, -6, 3, 2, "abc", -1, 4);
  // Handed to the C library: null and zero-padded strings, pointers, floating point, %n's kin.
  same_as_libc("%s|%.3s|%05s|%p|%p|%5.2f|%e|%c%05c|%lc|%ls", static_cast<char *>(nullptr),
               static_cast<char *>(nullptr), "ab", static_cast<void *>(nullptr),
               reinterpret_cast<void *>(0x1234), 3.14159, 1e10, 'a', 'b', L'c',
               static_cast<wchar_t *>(nullptr));
}
