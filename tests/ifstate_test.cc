// The interface state log: the chain read by sequence number, the records that device and
// logical interface changes append, notifications and the end of the chain, and the printers
// against whole lines made from their formats.
#include <errno.h>
#include <stdio.h>

#include <algorithm>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

constexpr size_t kFixed = 80;

// A host-order field of a record: `width` bytes of `v` at `off`, or the text `s` when given.
struct Field {
  size_t off;
  unsigned width;
  uint64_t v;
  const char *s = nullptr;
};
void set(Bytes &b, std::initializer_list<Field> fields) {
  for (const Field &f : fields) {
    const uint16_t v16 = static_cast<uint16_t>(f.v);
    const uint32_t v32 = static_cast<uint32_t>(f.v);
    if (f.s) memcpy(&b[f.off], f.s, strlen(f.s));
    if (f.width == 1) b[f.off] = static_cast<uint8_t>(f.v);
    if (f.width == 2) memcpy(&b[f.off], &v16, 2);
    if (f.width == 4) memcpy(&b[f.off], &v32, 4);
    if (f.width == 8) memcpy(&b[f.off], &f.v, 8);
  }
}
Bytes fields(size_t n, std::initializer_list<Field> fs, std::initializer_list<Field> more = {}) {
  Bytes b(n, 0);
  set(b, fs);
  set(b, more);
  return b;
}

// A chain record as the kernel sends it: the fixed part and the object record.
Bytes record(uint8_t kind, uint64_t seq, const Bytes &info, uint64_t add = 0, uint64_t chg = 0,
             uint64_t del = 0, uint16_t refs = 0, int32_t pid = 0, uint8_t rt_sid = 0) {
  Bytes m = tarsim::raw_message(TLK_MSG_IFSTATE, TLK_OP_GET, 0, Bytes(kFixed - 24, 0));
  set(m, {{20, 1, kFixed}, {24, 1, kind}, {32, 8, seq}, {40, 8, add}, {48, 8, chg}});
  set(m, {{56, 8, del}, {64, 2, refs}, {66, 1, rt_sid}, {68, 4, static_cast<uint32_t>(pid)}});
  set(m, {{72, 2, info.size()}});
  m.insert(m.end(), info.begin(), info.end());
  return m;
}

// A device record: generation 4, index 130, "ge0", SNMP id 630, device flags 0x8000, flags 0x3.
Bytes ifd_info() {
  return fields(
      80, {{0, 4, 4}, {4, 2, 130}, {6, 0, 0, "ge0"}, {68, 4, 630}, {72, 2, 0x8000}, {76, 4, 0x3}});
}
const std::string kIfdLine =
    "\tifd idx 130 name ge0 gen 4 snmp-id = 630 devflags = 0x8000 flags = 0x3\n";

std::string print(const Bytes &m, int detail) {
  std::vector<char> buf(1024, '#');
  tarvik_ifsm_print(m.data(), buf.data(), buf.size(), detail);
  return std::string(buf.data());
}

class IfstatePrint : public SimTest {};

// The whole line for a buffer that holds it; for a smaller one, what fits and the full size.
TEST_F(IfstatePrint, TheRecordLineFollowsClientsRefsAndDetail) {
  const struct {
    const char *what;
    Bytes msg;
    uint32_t max_clients;
    int detail;
    std::string want;
    size_t size = 1024;
  } rows[] = {
      {"no clients: no masks", record(0, 7, ifd_info(), 0xf, 0, 0, 0, 12, 3), 0, 1,
       "IFD seq 7 pid 12 rt_sid 3\n"},
      {"63 clients: one word each", record(0, 7, ifd_info(), 0x5, 0, 0x1, 0, 12, 3), 63, 1,
       "IFD seq 7 add 0x5 del 0x1 pid 12 rt_sid 3\n"},
      {"refs run into pid", record(2, 9, {}, 0, 0, 0, 4, -1), 0, 0,
       "IFF seq 9 refs 4pid -1 rt_sid 0\n"},
      {"detail 2 adds the object", record(0, 10, ifd_info()), 0, 2,
       "IFD seq 10 pid 0 rt_sid 0\n" + kIfdLine},
      {"kind 54 has no detail", record(54, 11, ifd_info()), 0, 2, "MACSEC seq 11 pid 0 rt_sid 0\n"},
      {"an unknown kind", record(99, 12, ifd_info()), 0, 2, "UNKNOWN seq 12 pid 0 rt_sid 0\n"},
      {"the first line cut at the buffer's end", record(0, 123456, ifd_info()), 0, 2,
       "IFD seq 123456 pid 0 rt_sid 0\n" + kIfdLine, 10},
      {"the first word, cut to 32 bits", record(1, 8, {}, 0, 0x100000002ull), 63, 0,
       "IFL seq 8 chg 0x2 pid 0 rt_sid 0\n"},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    kernel.state_log().set_max_clients(r.max_clients);
    std::vector<char> buf(r.size, '#');
    EXPECT_EQ(tarvik_ifsm_print(r.msg.data(), buf.data(), buf.size(), r.detail),
              static_cast<int>(std::min(r.want.size(), r.size)));
    EXPECT_EQ(std::string(buf.data()), r.want.substr(0, r.size - 1));
    EXPECT_EQ(ifs_max_clients, r.max_clients);
  }
  // A failed read of the control keeps the value of the last successful one (the last row's).
  tlk_platform p = *tlk_platform_get();
  const tlk_platform saved = p;
  p.sysctlbyname = [](const char *, void *, size_t *, const void *, size_t) {
    errno = ENOENT;
    return -1;
  };
  tlk_platform_set(&p);
  EXPECT_EQ(print(record(3, 13, {}, 1), 0), "IFA seq 13 add 0x1 pid 0 rt_sid 0\n");
  EXPECT_EQ(ifs_max_clients, 63u);
  tlk_platform_set(&saved);
  // The trace formatter hands the record to the same printer.
  kernel.state_log().set_max_clients(0);
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  char line[1024];
  ASSERT_EQ(tarvik_format_output(c, line, sizeof line, 2, record(0, 5, ifd_info()).data()), 0);
  EXPECT_NE(std::string(line).find("ifstate"), std::string::npos);
  EXPECT_NE(std::string(line).find("IFD seq 5 pid 0 rt_sid 0\n\tifd idx 130 name ge0"),
            std::string::npos)
      << line;
  tarvik_close(c);
}

// Each kind's record in its format; a buffer too small takes what fits, the position goes to its
// end and nothing is left.
TEST_F(IfstatePrint, ObjectRecordsPrintInTheirFormats) {
  const Bytes marker = fields(12, {{0, 4, 5}, {4, 4, 6}, {8, 4, 0x10}});
  const struct {
    int kind;
    Bytes info;
    std::string want;
    size_t size = 1024;
  } rows[] = {
      {0, ifd_info(), kIfdLine},
      {0, ifd_info(), kIfdLine, 40},
      {1,
       fields(80, {{0, 4, 0x8001}, {4, 4, 2}, {8, 4, 71}, {12, 2, 130}},
              {{16, 4, 100}, {20, 0, 0, "ge0"}}),
       "\tifl idx 71 devidx 130 unit 100 name ge0 gen 2 flags 0x8001\n"},
      {2, fields(24, {{0, 4, 5}, {4, 4, 71}, {8, 2, 130}, {12, 4, 100}, {16, 2, 0x40}, {20, 1, 2}}),
       "\tiff iflidx 71 devidx 130 unit 100 af 2 table 0 gen 5 flags 0x40\n"},
      {3,
       fields(64, {{0, 4, 6}, {4, 4, 71}, {8, 2, 130}, {12, 4, 100}, {16, 2, 1}, {18, 1, 10}},
              {{21, 1, 1}, {38, 1, 10}, {58, 2, 32}, {60, 2, 8}, {62, 1, 2}}),
       "\tifa iflidx 71 devidx 130 unit 100 af 2 gen 6 flags 0x1\n"
       "\tlocal prefix 10.0.0.1 dest prefix 10.0.0.0\n"},
      {53, marker, "\tMarker seq 5 alias_seqno 6 flags = 0x10 \n"},
      {51, fields(12, {{0, 4, 3}, {4, 4, 0x11}, {8, 4, 0x22}}), "\t\t proto 0x11, states 0x22\n"},
      {41, fields(20, {{0, 4, 4}, {4, 4, 9}, {8, 4, 1}}),
       "\t STP index 4 STP state Invalid\nTC genertion 1 STP epoch 0 HW learning Disabled\n"},
      {10, marker, ""},  // kinds without detail
      {54, marker, ""},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(testing::Message() << r.kind << " in " << r.size);
    std::vector<char> buf(r.size, 0);
    char *pos = buf.data();
    int left = static_cast<int>(r.size);
    tarvik_ifsm_info_print(r.kind, r.info.data(), &pos, &left);
    const size_t used = std::min(r.want.size(), r.size);
    EXPECT_EQ(std::string(buf.data()), r.want.substr(0, r.size - 1));
    EXPECT_EQ(pos - buf.data(), static_cast<ptrdiff_t>(used));
    EXPECT_EQ(left, static_cast<int>(r.size - used));
  }
}

TEST_F(IfstatePrint, ClientInfoNamesTheSubtypeAndTheClient) {
  const auto clinfo = [](uint8_t subtype, const char *client) {
    const size_t n = client ? strlen(client) + 1 : 0;
    Bytes m = tarsim::raw_message(TLK_MSG_IFSCLINFO, 0, 0, Bytes(8 + ((n + 3) & ~size_t{3}), 0));
    set(m, {{20, 1, 32}, {24, 1, subtype}, {28, 4, n}});
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
  const Bytes info = ifd_info();
  for (int kind : {4, 5, 6}) kernel.state_log().append(static_cast<uint8_t>(kind), info);
  std::vector<std::pair<uint64_t, uint8_t>> seen;  // sequence and kind
  void *m = nullptr;
  // The kernel's refusal at the end of the chain is a reply of another type.
  for (uint64_t seq = 0; tarvik_ifsm_get(c, 0, seq, TLK_OP_GETNEXT, &m) == 0 && seen.size() < 9;) {
    const bool record = static_cast<const uint8_t *>(m)[5] == TLK_MSG_IFSTATE;
    seq = get_u64(m, 32);
    if (record) seen.emplace_back(seq, static_cast<const uint8_t *>(m)[24]);
    tarvik_msg_free(c, m);
    if (!record) break;
  }
  EXPECT_EQ(seen, (std::vector<std::pair<uint64_t, uint8_t>>{{1, 4}, {2, 5}, {3, 6}}));
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

int g_records = 0, g_ends = 0;
template <int *N>
int count(tarvik_cookie *c, void *, void *msg, uintptr_t) {
  ++*N;
  tarvik_msg_free(c, msg);
  return 0;
}

TEST_F(IfstateChain, ListenersHearEachRecordAndTheEndOfTheChain) {
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_ifsm_async_register(c, nullptr, count<&g_records>), 0);
  ASSERT_EQ(tarvik_ifstate_eochain_register(c, nullptr, count<&g_ends>), 0);
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

}  // namespace
}  // namespace tlktest
