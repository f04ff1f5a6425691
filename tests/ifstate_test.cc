// The interface state log: the chain read by sequence number, the records that device and
// logical interface changes append, notifications and the end of the chain, and the printers
// against whole lines made from their formats.
#include <errno.h>
#include <stdio.h>

#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

constexpr size_t kFixed = 80;

// A chain record as the kernel sends it: the fixed part and the object record.
Bytes record(uint8_t kind, uint64_t seq, const Bytes &info, uint64_t add = 0, uint64_t chg = 0,
             uint64_t del = 0, uint16_t refs = 0, int32_t pid = 0, uint8_t rt_sid = 0) {
  Bytes body(kFixed - 24 + info.size(), 0);
  Bytes m = tarsim::raw_message(TLK_MSG_IFSTATE, TLK_OP_GET, 0, body);
  m[20] = kFixed;
  m[24] = kind;
  memcpy(&m[32], &seq, 8);
  memcpy(&m[40], &add, 8);
  memcpy(&m[48], &chg, 8);
  memcpy(&m[56], &del, 8);
  memcpy(&m[64], &refs, 2);
  m[66] = rt_sid;
  memcpy(&m[68], &pid, 4);
  const uint16_t len = static_cast<uint16_t>(info.size());
  memcpy(&m[72], &len, 2);
  std::copy(info.begin(), info.end(), m.begin() + kFixed);
  return m;
}

template <typename T>
void put(Bytes &b, size_t off, T v) {
  memcpy(&b[off], &v, sizeof v);
}
void put_str(Bytes &b, size_t off, const char *s) {
  memcpy(&b[off], s, strlen(s));
}

std::string print(const Bytes &m, int detail, size_t size = 1024) {
  std::vector<char> buf(size, '#');
  tarvik_ifsm_print(m.data(), buf.data(), buf.size(), detail);
  return std::string(buf.data());
}

// A device record: generation 4, index 130, "ge0", SNMP id 630, device flags 0x8000, flags 0x3.
Bytes ifd_info() {
  Bytes r(80, 0);
  put<uint32_t>(r, 0, 4);
  put<uint16_t>(r, 4, 130);
  put_str(r, 6, "ge0");
  put<uint32_t>(r, 68, 630);
  put<uint16_t>(r, 72, 0x8000);
  put<uint32_t>(r, 76, 0x3);
  return r;
}

class IfstatePrint : public SimTest {};

TEST_F(IfstatePrint, TheRecordLineFollowsClientsRefsAndDetail) {
  const std::string ifd_line =
      "\tifd idx 130 name ge0 gen 4 snmp-id = 630 devflags = 0x8000 flags = 0x3\n";
  const struct {
    const char *what;
    Bytes msg;
    int max_clients;  // -1: the control is missing
    int detail;
    std::string want;
  } rows[] = {
      {"no clients: no masks", record(0, 7, ifd_info(), 0xf, 0, 0, 0, 12, 3), 0, 1,
       "IFD seq 7 pid 12 rt_sid 3\n"},
      {"63 clients: one word each", record(0, 7, ifd_info(), 0x5, 0, 0x1, 0, 12, 3), 63, 1,
       "IFD seq 7 add 0x5 del 0x1 pid 12 rt_sid 3\n"},
      {"the first word, cut to 32 bits", record(1, 8, {}, 0, 0x100000002ull), 63, 0,
       "IFL seq 8 chg 0x2 pid 0 rt_sid 0\n"},
      {"refs run into pid", record(2, 9, {}, 0, 0, 0, 4, -1), 0, 0,
       "IFF seq 9 refs 4pid -1 rt_sid 0\n"},
      {"detail 2 adds the object", record(0, 10, ifd_info()), 0, 2,
       "IFD seq 10 pid 0 rt_sid 0\n" + ifd_line},
      {"detail 1 does not", record(0, 10, ifd_info()), 0, 1, "IFD seq 10 pid 0 rt_sid 0\n"},
      {"kind 54 has no detail", record(54, 11, ifd_info()), 0, 2, "MACSEC seq 11 pid 0 rt_sid 0\n"},
      {"an unknown kind", record(99, 12, ifd_info()), 0, 2, "UNKNOWN seq 12 pid 0 rt_sid 0\n"},
      {"a missing control keeps the last value", record(3, 13, {}, 1), -1, 0,
       "IFA seq 13 add 0x1 pid 0 rt_sid 0\n"},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    if (r.max_clients >= 0)
      kernel.state_log().set_max_clients(static_cast<uint32_t>(r.max_clients));
    if (r.max_clients < 0) {
      // Make the read fail: the printer keeps the value of its last successful read (63 here).
      kernel.state_log().set_max_clients(63);
      (void)print(record(0, 0, {}), 0);
      tlk_platform p = *tlk_platform_get();
      const tlk_platform saved = p;
      p.sysctlbyname = [](const char *, void *, size_t *, const void *, size_t) {
        errno = ENOENT;
        return -1;
      };
      tlk_platform_set(&p);
      EXPECT_EQ(print(r.msg, r.detail), r.want);
      EXPECT_EQ(ifs_max_clients, 63u);
      tlk_platform_set(&saved);
      continue;
    }
    EXPECT_EQ(print(r.msg, r.detail), r.want);
    EXPECT_EQ(ifs_max_clients, static_cast<uint32_t>(r.max_clients));
  }
}

TEST_F(IfstatePrint, ABufferTooSmallForTheFirstLineEndsAtItsEnd) {
  kernel.state_log().set_max_clients(0);
  const Bytes m = record(0, 123456, ifd_info());
  std::vector<char> buf(10, '#');
  EXPECT_EQ(tarvik_ifsm_print(m.data(), buf.data(), buf.size(), 2), 10);
  EXPECT_STREQ(buf.data(), "IFD seq 1");
  // Cut inside the detail: the position goes to the end, nothing is left.
  char small[40];
  char *pos = small;
  int left = sizeof small;
  const Bytes info = ifd_info();
  tarvik_ifsm_info_print(0, info.data(), &pos, &left);
  EXPECT_EQ(left, 0);
  EXPECT_EQ(pos, small + sizeof small);
  EXPECT_EQ(
      std::string(small),
      std::string("\tifd idx 130 name ge0 gen 4 snmp-id = 630 devflags = 0x8000 flags = 0x3\n")
          .substr(0, 39));
}

TEST_F(IfstatePrint, ObjectRecordsPrintInTheirFormats) {
  Bytes ifl(80, 0), iff(24, 0), ifa(64, 0), marker(12, 0), ddos(12, 0), stp(20, 0);
  put<uint32_t>(ifl, 0, 0x8001);
  put<uint32_t>(ifl, 4, 2);
  put<uint32_t>(ifl, 8, 71);
  put<uint16_t>(ifl, 12, 130);
  put<uint32_t>(ifl, 16, 100);
  put_str(ifl, 20, "ge0");
  put<uint32_t>(iff, 0, 5);
  put<uint32_t>(iff, 4, 71);
  put<uint16_t>(iff, 8, 130);
  put<uint32_t>(iff, 12, 100);
  put<uint16_t>(iff, 16, 0x40);
  put<uint16_t>(iff, 18, 0);
  iff[20] = 2;
  put<uint32_t>(ifa, 0, 6);
  put<uint32_t>(ifa, 4, 71);
  put<uint16_t>(ifa, 8, 130);
  put<uint32_t>(ifa, 12, 100);
  put<uint16_t>(ifa, 16, 1);
  ifa[18] = 10, ifa[19] = 0, ifa[20] = 0, ifa[21] = 1;
  ifa[38] = 10;
  put<uint16_t>(ifa, 58, 32);
  put<uint16_t>(ifa, 60, 8);
  ifa[62] = 2;
  put<uint32_t>(marker, 0, 5), put<uint32_t>(marker, 4, 6), put<uint32_t>(marker, 8, 0x10);
  put<uint32_t>(ddos, 0, 3), put<uint32_t>(ddos, 4, 0x11), put<uint32_t>(ddos, 8, 0x22);
  put<uint32_t>(stp, 0, 4), put<uint32_t>(stp, 4, 9), put<uint32_t>(stp, 8, 1);
  const struct {
    int kind;
    Bytes info;
    std::string want;
  } rows[] = {
      {1, ifl, "\tifl idx 71 devidx 130 unit 100 name ge0 gen 2 flags 0x8001\n"},
      {2, iff, "\tiff iflidx 71 devidx 130 unit 100 af 2 table 0 gen 5 flags 0x40\n"},
      {3, ifa,
       "\tifa iflidx 71 devidx 130 unit 100 af 2 gen 6 flags 0x1\n"
       "\tlocal prefix 10.0.0.1 dest prefix 10.0.0.0\n"},
      {53, marker, "\tMarker seq 5 alias_seqno 6 flags = 0x10 \n"},
      {51, ddos, "\t\t proto 0x11, states 0x22\n"},
      {41, stp,
       "\t STP index 4 STP state Invalid\nTC genertion 1 STP epoch 0 HW learning Disabled\n"},
      {10, marker, ""},  // kinds without detail
      {54, marker, ""},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.kind);
    char buf[512] = "";
    char *pos = buf;
    int left = sizeof buf;
    tarvik_ifsm_info_print(r.kind, r.info.data(), &pos, &left);
    EXPECT_EQ(std::string(buf), r.want);
    EXPECT_EQ(pos - buf, static_cast<ptrdiff_t>(r.want.size()));
    EXPECT_EQ(left, static_cast<int>(sizeof buf - r.want.size()));
  }
}

TEST_F(IfstatePrint, ClientInfoNamesTheSubtypeAndTheClient) {
  const auto clinfo = [](uint8_t subtype, const char *client) {
    const size_t n = client ? strlen(client) + 1 : 0;
    Bytes body(8 + ((n + 3) & ~size_t{3}), 0);
    Bytes m = tarsim::raw_message(TLK_MSG_IFSCLINFO, 0, 0, body);
    m[20] = 32;
    m[24] = subtype;
    put<uint32_t>(m, 28, static_cast<uint32_t>(n));
    if (client) memcpy(&m[32], client, n);
    return m;
  };
  const struct {
    Bytes msg;
    size_t size;
    int want;
    const char *text;
  } rows[] = {
      {clinfo(0, nullptr), 64, 1, "IFS EndOfChain \n"},
      {clinfo(0, "rpd"), 64, 1, "IFS EndOfChain client rpd\n"},
      {clinfo(4, "dcd"), 64, 1, "Unknown client dcd\n"},
      {clinfo(0, "rpd"), 8, 15, "IFS End"},  // the first write alone fills the buffer
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.text);
    std::vector<char> buf(r.size, '#');
    EXPECT_EQ(tarvik_ifsclim_print(r.msg.data(), buf.data(), buf.size()), r.want);
    EXPECT_STREQ(buf.data(), r.text);
  }
}

class IfstateChain : public OneSessionTest {};

TEST_F(IfstateChain, GetAndGetnextWalkTheChainBySequence) {
  auto chain = kernel.state_log();
  const Bytes info = ifd_info();
  for (int kind : {4, 5, 6}) chain.append(static_cast<uint8_t>(kind), info);
  std::vector<uint64_t> seen;
  std::vector<uint8_t> kinds;
  uint64_t seq = 0;
  void *m = nullptr;
  while (tarvik_ifsm_get(c, 0, seq, TLK_OP_GETNEXT, &m) == 0) {
    const auto *b = static_cast<const uint8_t *>(m);
    if (b[5] != TLK_MSG_IFSTATE) {  // the kernel's refusal at the end of the chain
      tarvik_msg_free(c, m);
      break;
    }
    seq = get_u64(b, 32);
    seen.push_back(seq);
    kinds.push_back(b[24]);
    tarvik_msg_free(c, m);
    ASSERT_LT(seen.size(), 100u);
  }
  EXPECT_EQ(seen, (std::vector<uint64_t>{1, 2, 3}));
  EXPECT_EQ(kinds, (std::vector<uint8_t>{4, 5, 6}));
  ASSERT_EQ(tarvik_ifsm_get(c, 0, 2, TLK_OP_GET, &m), 0);
  EXPECT_EQ(get_u64(m, 32), 2u);
  EXPECT_EQ(static_cast<const uint8_t *>(m)[24], 5);
  EXPECT_EQ(get_u16(m, 72), info.size());
  tarvik_msg_free(c, m);
  m = &m;
  EXPECT_EQ(tarvik_ifsm_get(nullptr, 0, 2, TLK_OP_GET, &m), EINVAL);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(tarvik_ifsm_get(c, 0, 2, TLK_OP_GET, nullptr), EINVAL);
}

TEST_F(IfstateChain, DeviceAndUnitChangesJoinTheChain) {
  auto chain = kernel.state_log();
  const size_t before = chain.size();
  ASSERT_TRUE(kernel.ifls().change_flags(71, 0x1, 0));
  ASSERT_TRUE(kernel.devices().set_link("ge1", false));
  ASSERT_TRUE(kernel.ifls().destroy(83));
  ASSERT_EQ(chain.size(), before + 3);
  kernel.state_log().set_max_clients(63);
  const Bytes unit = chain.message(before), dev = chain.message(before + 1),
              gone = chain.message(before + 2);
  const tarsim::Ifl *ge0_100 = kernel.ifls().find(71);
  ASSERT_NE(ge0_100, nullptr);
  char flags[64];
  snprintf(flags, sizeof flags, "0x%x", ge0_100->flags);
  EXPECT_EQ(print(unit, 2), "IFL seq " + std::to_string(get_u64(unit.data(), 32)) +
                                " chg 0xf refs 1pid 0 rt_sid 0\n\tifl idx 71 devidx 130 unit 100 "
                                "name ge0 gen " +
                                std::to_string(ge0_100->generation) + " flags " + flags + "\n");
  EXPECT_EQ(dev[24], 0);
  EXPECT_EQ(get_u16(dev.data(), 80 + 4), 131) << "the device's index";
  EXPECT_EQ(print(gone, 0).substr(0, 4), "IFL ");
  EXPECT_NE(print(gone, 0).find("del 0xf "), std::string::npos);
}

int g_records = 0, g_ends = 0;
int on_record(tarvik_cookie *c, void *, void *msg, uintptr_t) {
  ++g_records;
  tarvik_msg_free(c, msg);
  return 0;
}
int on_end(tarvik_cookie *c, void *, void *msg, uintptr_t) {
  ++g_ends;
  tarvik_msg_free(c, msg);
  return 0;
}

TEST_F(IfstateChain, ListenersHearEachRecordAndTheEndOfTheChain) {
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_ifsm_async_register(c, nullptr, on_record), 0);
  ASSERT_EQ(tarvik_ifstate_eochain_register(c, nullptr, on_end), 0);
  g_records = g_ends = 0;
  kernel.state_log().append(7, ifd_info());
  ASSERT_TRUE(kernel.ifls().change_flags(72, 0x1, 0));
  EXPECT_EQ(kernel.state_log().end_of_chain("rpd"), 1u);
  drain(c);
  EXPECT_EQ(g_records, 2);
  EXPECT_EQ(g_ends, 1);
  // The teardown of a session leaves a subtype table behind: one block, by contract.
  tarvik_close(c);
  c = nullptr;
  expect_abandoned(MEMID_TARVIK_ASYNC_REG, 1);
}

TEST_F(IfstateChain, TheTraceLineCarriesTheRecord) {
  kernel.state_log().set_max_clients(0);
  const Bytes m = record(0, 5, ifd_info());
  char buf[1024];
  ASSERT_EQ(tarvik_format_output(c, buf, sizeof buf, 2, m.data()), 0);
  const std::string line = buf;
  EXPECT_NE(line.find("ifstate"), std::string::npos);
  EXPECT_NE(line.find("IFD seq 5 pid 0 rt_sid 0\n\tifd idx 130 name ge0"), std::string::npos)
      << line;
}

}  // namespace
}  // namespace tlktest
