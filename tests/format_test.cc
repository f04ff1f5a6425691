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
#include "support/harness.h"
#include "tarlink.h"
#include "tarlink_platform.h"

namespace {

// ---------------------------------------------------------------------------------------------
// Name tables

// One table's words at the numbers given (a null word: no text at all).  The unsigned tables are
// called with the number as it converts, so a negative number stands for a large one.
void expect_words(const char *(*name)(int), const std::vector<int> &numbers,
                  const std::vector<const char *> &words, TLK_CALLER_ARGS) {
  TLK_AT_CALLER;
  ASSERT_EQ(numbers.size(), words.size());
  for (size_t i = 0; i < numbers.size(); ++i)
    EXPECT_STREQ(name(numbers[i]), words[i]) << numbers[i];
}

// Each table at both ends, past both ends, at the words that differ from their neighbours, and
// the sparse ones at their gaps.
TEST(FormatTables, EachTableAtItsEndsGapsAndCatchAll) {
  // Capped: "unknown" is out of reach.
  expect_words(tarvik_format_route_type, {0, 1, 4, 13, 14, 15, 99, -1},
               {"", "user", "", "clon", "ifcl", "ifcl", "ifcl", "ifcl"});
  expect_words(tarvik_format_nexthop_type, {0, 24, 25, 31, 34, 35, -1},
               {"dscd", "comp", "unknown", "le", "unknown", nullptr, nullptr});
  expect_words(
      tarvik_format_cos_type, {0, 19, 30, 45, 46, -1},
      {"Scheduler map definition", "COS_IF_FC_TABLE_UPDATE", "Scheduler map fcset defintion",
       "COS port buffer montior enable/disable", "Invalid message type", "Invalid message type"});
  expect_words(tarvik_format_ifstate_type, {0, 30, 54, 55, -1},
               {"IFD", "L2TP tunnel CFG", "MACSEC", "UNKNOWN", "UNKNOWN"});
  expect_words(tarvik_format_chassisd_issu_state, {0, 7, 8}, {"IDLE", "ABORT", "UNKNOWN"});
  expect_words(tarvik_format_daemon_issu_state, {5, 6, -1}, {"ABORT", "UNKNOWN", "UNKNOWN"});
  expect_words(tarvik_format_mtype_rcv, {0, 4, 5}, {"None", "Always TRUE", "Invalid"});
  expect_words([](int t) { return tarvik_format_ifstate_event(static_cast<unsigned>(t)); },
               {0, 9, 10, -1}, {"Add", "Kernel-PMS", "Max", "Max"});
  expect_words(tarvik_format_ifsclim_subtype, {0, 1, -1}, {"IFS EndOfChain", "Unknown", "Unknown"});
  expect_words([](int t) { return tarvik_format_context(static_cast<unsigned>(t)); }, {2, 3, -1},
               {"Rtsk", "Invd", "Invd"});
  expect_words(tarvik_format_ppm_type, {0, 2, 3}, {"BFD", "CFM", "Invalid"});
  expect_words([](int t) { return tarvik_format_lb_attr(static_cast<unsigned>(t)); },
               {0, 3, 4, 8, 9},
               {"None", "Unknown", "Stitching point", "Flow label POP", "Unknown"});
  expect_words(tarvik_gencfg_format_ipsectype, {0, 6, 7, -1},
               {"sa_cfg", "cold-sync", "not_support", "not_support"});
  expect_words(tarvik_gencfg_format_l2token_type, {3, 4}, {"mmrp", "Invalid"});
  expect_words(tarvik_format_op, {0, 9, 10, -1}, {"nop", "chg_get", "unknown", "unknown"});
  expect_words(tarvik_format_rtm_type, {1, 26, 72, 91, 109, 110, -1},
               {"rttable", "tarlink stats", "gencfg", "ksdb", "tlk-err", "unknown", "unknown"});
  // Address families: only the low 8 bits count.
  expect_words(
      tarvik_format_af,
      {0, 0x102, static_cast<int>(0xFFFFFF1Cu), 12, 39, 107, 133, 141, 22, 33, 103, 142, 255},
      {"unspec", "inet", "inet6", "DECnet", "mpls", "multi-services-load-balancing",
       "aggregated inline-services", "evpn-mcsnoop-v6", "unknown", "unknown", "unknown", "unknown",
       "unknown"});
  // Gencfg major types: bit 15 is "SDK" whatever else is set, empty rows are "Unknown".
  expect_words(tarvik_gencfg_format_majortype,
               {0, 1, 96, 6, 78, 104, 105, 0x7FFF, INT_MIN, 0x8000, 0x8001, 0xFFFF, 0x18000, -1},
               {"Unknown", "Proxy gencfg ", "IPsec VPN", "Unknown", "Unknown", "Unknown", "Unknown",
                "Unknown", "Unknown", "SDK", "SDK", "SDK", "SDK", "SDK"});
  // USP subtypes: named, else numbered, and null from 159 on.
  expect_words(tarvik_gencfg_format_usptype, {0, 3, 95, 153, 158, 159, -1},
               {"UNUSED", "USP_3", "LSYS", "POWER_MODE_IPSEC", "USP_158", nullptr, nullptr});
  // Senders: the first four fixed, then numbered to the registry's end.
  expect_words(tarvik_format_msg_sender_id, {0, 1, 2, 3, 4, 146, 147, INT_MAX, -1},
               {"self", "kernel", "user", "unknown", "sender-4", "sender-146", "unknown", "unknown",
                "unknown"});
  // Client masks: higher bits are ignored, and "ALL" is only for exactly 15.
  expect_words([](int m) { return tarvik_format_ifstate_client_mask(static_cast<uint32_t>(m)); },
               {0, 5, 10, 15, 16, 31, static_cast<int>(0x80000001u)},
               {"None", "DAEMON/PFE", "RE/PIC", "ALL", "", "DAEMON/RE/PFE/PIC", "DAEMON"});
  // Both message type names agree everywhere.
  for (int t = -2; t < 115; ++t)
    EXPECT_STREQ(tarvik_format_rtm_type(t), tarvik_msg_type_name(static_cast<uint32_t>(t))) << t;
  // The client mask's text lives in one buffer until the next call.
  const char *first = tarvik_format_ifstate_client_mask(5);
  EXPECT_EQ(first, tarvik_format_ifstate_client_mask(15));
  EXPECT_STREQ(first, "ALL");
  // Only the USP rows named in the printer list can have a printer; every other row, and anything
  // outside the table, answers 0 and leaves the destination alone.
  for (int subtype : {-1, 0, 1, 3, 25, 90, 152, 158, 159, 300}) {
    char dst[257] = "#";
    EXPECT_EQ(tarvik_gencfg_format_usptype_blobinfo(subtype, nullptr, dst), 0) << subtype;
    EXPECT_STREQ(dst, "#") << subtype;
  }
}

// A platform table for the address formatters: a name service with one answer, a host name, an
// inet_ntop that can be told to refuse, and the standard error kept.

struct AddressSeam {
  AddressSeam() : previous(*tlk_platform_get()) {
    seam = this;
    tlk_platform table = previous;
    table.gethostbyaddr = [](const void *addr, socklen_t len, int family) -> hostent * {
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
  static inline int found = 0, hostname_calls = 0;
};

// Room for every fixed field that a natural form reads.
std::vector<uint8_t> bytes(std::initializer_list<uint8_t> b) {
  std::vector<uint8_t> v(b);
  if (v.size() < 32) v.resize(32, 0);
  return v;
}

std::string prefix(const std::vector<uint8_t> &data, uint32_t bits, int family, int mode) {
  // What a form that writes nothing leaves: "kept", and '#' to show a missing end byte.
  char dst[257];
  memset(dst, '#', sizeof dst - 1);
  dst[256] = 0;
  memcpy(dst, "kept", 5);
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
      {28, 0, 256, bytes({0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1,
                          0xff, 0x0e, 0,    0,    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}),
       "2001:db8::1,ff0e::1"},
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
      {123, 0, 192, bytes({0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x20, 0x01, 0x0d, 0xb8, 0,    0,
                           0,    0,    0,    0,    0,    0,    0,    0,    0,    1,    0x00, 0xc8}),
       "200/00:11:22:33:44:55/2001:db8::1"},
      // fibre-channel: its bytes sign-extended, as they always printed.
      {89, 0, 48, bytes({0x00, 0x0a, 0x80, 0x01, 0x02, 0xff}), "10, ffffff80, 01:02:ffffffff"},
      {89, 1, 2, bytes({0x00, 0x0a}), "10, *"},
      {93, 0, 64, bytes({0, 0, 0, 1, 0, 0, 0, 2}), "1:2"},
      {95, 2, 96, bytes({0, 0, 0, 1, 0, 0, 0, 2, 0xff, 0xff, 0xff, 0xff}), "1:2:4294967295"},
      // Every other family, and numbers outside 2 to 141, print the bytes.
      {0, 0, 8, bytes({200}), "200/8"},
      {142, 0, 8, bytes({200}), "200/8"},
      {258, 0, 32, bytes({10, 0, 0, 1}), "10.0.0.1/32"},
      {-1, 2, 16, bytes({0xde, 0xad}), "0xdead/16"},
      {41, 0, 1, bytes({0x80}), "128/1"},
      {2, 0, 0, bytes({10, 0, 0, 1}), ""},  // no bits: nothing to print
      // Without the marker word the members families write nothing at all, not even the end byte.
      {75, 0, 80, bytes({0, 0, 0, 7, 0, 0, 0, 0, 0, 42}), "kept"},
      {75, 0, 80, bytes({0, 0, 0, 7, 0, 0xff, 0, 0, 0, 42}), "kept"},
      {91, 0, 80, bytes({0, 0, 0, 7, 0, 2, 0, 0, 0, 42}), "kept"},
      {7, 1, 320, long_fallback,
       "0.1.2.3.4.5.6.7.8.9.10.11.12.13.14.15.16.17.18.19.20.21.22.23.24.25.26.27.28.29.30.31."
       "32.33.34.35.36.37.38.39/320"},
  };
  for (const PrefixRow &r : rows) {
    EXPECT_EQ(prefix(r.data, r.bits, r.family, r.mode), r.text)
        << "family " << r.family << " mode " << r.mode << " bits " << r.bits;
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
  char dst[8] = "kept";
  EXPECT_STREQ(tarvik_format_prefix(dst, sizeof dst, nullptr, 32, 2, 0), "");
}

TEST(FormatPrefix, InetNtopHasTheFamilyAsGivenAndAFailureFallsBack) {
  AddressSeam seam;
  const std::vector<uint8_t> data = bytes({10, 0, 0, 1, 224, 1, 1, 1});
  // The library's own inet families reach inet_ntop with their own numbers, once per address of
  // a pair; another mode skips it.
  for (int family : {2, 28, 121}) prefix(data, 32, family, 0);
  EXPECT_EQ(prefix(data, 64, 139, 0), "10.0.0.1,224.1.1.1");
  EXPECT_EQ(prefix(data, 32, 2, 1), "10.0.0.1/32");
  EXPECT_EQ(seam.ntop_families, std::vector<int>({2, 28, 121, 139, 139}));
  // Refused: the fallback, with a line on the standard error for inet and inet6 only.
  seam.refuse_ntop = true;
  const std::string said = std::string("inet_ntop failed: ") + strerror(EAFNOSUPPORT);
  EXPECT_EQ(prefix(data, 64, 2, 0), "10.0.0.1.224.1.1.1/64");
  EXPECT_EQ(prefix(data, 16, 28, 0), "10.0/16");
  EXPECT_EQ(seam.stderr_lines, std::vector<std::string>({said, said}));
  EXPECT_EQ(prefix(data, 24, 141, 0), "10.0.0/24");
  EXPECT_EQ(seam.stderr_lines.size(), 2u);
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
  seam.asked.clear();
  EXPECT_EQ(sockaddr(sa, 1), "198.51.100.7");
  EXPECT_TRUE(seam.asked.empty());
  // The host's name is asked for once per process at most.
  EXPECT_LE(AddressSeam::hostname_calls, 1);
}

TEST(FormatSockaddr, InetClearsTheFirst257BytesAndCopiesAtMost256) {
  AddressSeam seam;
  const std::vector<uint8_t> sa = inet_sockaddr(198, 51, 100, 7);
  // A long name is cut at 256 bytes, a short one has zeros behind it, up to byte 256 either way.
  for (const std::string &name : {std::string(300, 'n'), std::string("gw")}) {
    seam.answer = name;
    char dst[400];
    memset(dst, '#', sizeof dst);
    tarvik_format_sockaddr(dst, sizeof dst, sa.data(), sa.size(), 0);
    const std::string shown = name.substr(0, 256);
    EXPECT_EQ(std::string(dst, 258), shown + std::string(257 - shown.size(), '\0') + "#");
  }
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
  // Every format here is a literal, so the kept parse of its address serves too.
  for (auto *formatter : {tlk::format::fast_vsnprintf, tlk::format::literal_vsnprintf}) {
    for (size_t size = 0; size < 256; ++size) {
      char want[256], got[256];
      memset(want, 'W', sizeof want);
      memset(got, 'W', sizeof got);
      va_list a, b;
      va_copy(a, ap);
      va_copy(b, ap);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
      const int n_want = vsnprintf(want, size, format, a);
      const int n_got = formatter(got, size, format, b);
#pragma GCC diagnostic pop
      va_end(a);
      va_end(b);
      const char *which = formatter == tlk::format::fast_vsnprintf ? " fast" : " literal";
      ASSERT_EQ(n_got, n_want) << format << " size " << size << which;
      ASSERT_EQ(std::string(got, sizeof got), std::string(want, sizeof want))
          << format << " size " << size << which;
      if (static_cast<size_t>(n_want) + 2 < size) break;  // past the whole text
    }
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
