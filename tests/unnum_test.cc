// Unnumbered address donors: the integer table under them, borrower interest and its results,
// and the reports that "ifaddr" notifications make through event processing, in plain and hooked
// event mode, against the simulated kernel.
#include <errno.h>
#include <string.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "harness.h"
#include "platform/itable32.h"

namespace tlktest {
namespace {

// ---- The integer table ------------------------------------------------------------------------

using Itable = SimTest;

TEST_F(Itable, MatchesAnOrderedMapOverRandomKeysAndReturnsEveryBlock) {
  const int32_t before = outstanding()[memid_tarvik_itable_borrower];
  itable32_t *t =
      itable32_create_ext(tarvik_malloc_itable, tarvik_free_itable, &memid_tarvik_itable_borrower);
  ASSERT_NE(t, nullptr);
  std::map<uint32_t, uintptr_t> ref;
  std::mt19937 rng(20261123);
  // Keys from a small range collide often; the extremes and the full range keep the ends honest.
  auto draw_key = [&rng]() -> uint32_t {
    switch (rng() % 8) {
      case 0:
        return 0;
      case 1:
        return 0xffffffffu;
      case 2:
        return static_cast<uint32_t>(rng());
      default:
        return static_cast<uint32_t>(rng() % 700);
    }
  };
  for (int i = 0; i < 20000; ++i) {
    const uint32_t key = draw_key();
    const bool present = ref.count(key) != 0;
    switch (rng() % 5) {
      case 0:
      case 1: {
        const uintptr_t value = (static_cast<uintptr_t>(i) << 4) | 8;
        ASSERT_EQ(itable32_insert(t, reinterpret_cast<void *>(value), &key), present ? EEXIST : 0);
        if (!present) ref[key] = value;
        break;
      }
      case 2:
        ASSERT_EQ(itable32_remove(t, &key), present ? 0 : ENOENT);
        ref.erase(key);
        break;
      case 3:
        ASSERT_EQ(reinterpret_cast<uintptr_t>(itable32_lookup(t, &key)), present ? ref[key] : 0u);
        break;
      default: {
        // The step from any key gives what the map's upper bound gives.
        uint32_t out = 0xabcdabcd;
        void *v = itable32_getnext(t, &key, &out);
        const auto it = ref.upper_bound(key);
        if (it == ref.end()) {
          ASSERT_EQ(v, nullptr);
          ASSERT_EQ(out, 0xabcdabcdu);
        } else {
          ASSERT_EQ(reinterpret_cast<uintptr_t>(v), it->second);
          ASSERT_EQ(out, it->first);
        }
      }
    }
  }
  ASSERT_GT(ref.size(), 100u);
  // The whole walk, from the start, in key order.
  std::vector<std::pair<uint32_t, uintptr_t>> walked;
  const uint32_t *from = nullptr;
  uint32_t key = 0;
  while (void *v = itable32_getnext(t, from, &key)) {
    walked.emplace_back(key, reinterpret_cast<uintptr_t>(v));
    from = &key;
  }
  EXPECT_EQ(walked, (std::vector<std::pair<uint32_t, uintptr_t>>(ref.begin(), ref.end())));
  EXPECT_GT(outstanding()[memid_tarvik_itable_borrower], before);
  itable32_destroy(t);
  EXPECT_EQ(outstanding()[memid_tarvik_itable_borrower], before);
}

// An allocator pair that fails once a budget of allocations is spent.
struct Budget {
  static inline int left = 0;
  static inline int live = 0;
  static void *alloc(const uint16_t *, size_t size) {
    if (left-- <= 0) return nullptr;
    ++live;
    return malloc(size);
  }
  static void release(const uint16_t *, void *block) {
    --live;
    free(block);
  }
};

TEST(ItableEdges, RefusalsLeaveTheTableAsItWas) {
  static const uint16_t id = 62;
  Budget::live = 0;
  Budget::left = 0;
  EXPECT_EQ(itable32_create_ext(Budget::alloc, Budget::release, &id), nullptr);
  EXPECT_EQ(itable32_create_ext(nullptr, Budget::release, &id), nullptr);
  Budget::left = 2;  // the table and its first block of entries
  itable32_t *t = itable32_create_ext(Budget::alloc, Budget::release, &id);
  ASSERT_NE(t, nullptr);
  int values[8] = {};
  for (uint32_t k = 0; k < 4; ++k) ASSERT_EQ(itable32_insert(t, &values[k], &k), 0);
  const uint32_t fifth = 4;
  EXPECT_EQ(itable32_insert(t, &values[4], &fifth), ENOMEM);  // growing needs a block
  EXPECT_EQ(itable32_lookup(t, &fifth), nullptr);
  for (uint32_t k = 0; k < 4; ++k) EXPECT_EQ(itable32_lookup(t, &k), &values[k]);
  EXPECT_EQ(itable32_insert(t, nullptr, &fifth), EINVAL);  // NULL means "none"
  EXPECT_EQ(itable32_insert(t, &values[0], nullptr), EINVAL);
  EXPECT_EQ(itable32_remove(t, nullptr), EINVAL);
  EXPECT_EQ(itable32_lookup(nullptr, &fifth), nullptr);
  uint32_t out = 0;
  EXPECT_EQ(itable32_getnext(nullptr, nullptr, &out), nullptr);
  for (uint32_t k = 0; k < 4; ++k) EXPECT_EQ(itable32_remove(t, &k), 0);
  EXPECT_EQ(itable32_getnext(t, nullptr, &out), nullptr);
  EXPECT_EQ(Budget::live, 1) << "an empty table keeps no block of entries";
  itable32_destroy(t);
  itable32_destroy(nullptr);
  EXPECT_EQ(Budget::live, 0);
}

// ---- Donors, borrowers and reports ------------------------------------------------------------

constexpr uint32_t kInet = 2;
constexpr uint32_t kInet6 = 28;

// What happened, in order: the "ifaddr" handler, the hook and each report.
struct Events {
  std::vector<std::string> seen;
  struct Report {
    std::string borrower;
    uint32_t op, af;
    Bytes addr;
    uint16_t plen, flags;
  };
  std::vector<Report> reports;
  std::vector<void *> held;  // messages the hook took
  static inline Events *current = nullptr;

  static int handler(tarvik_cookie *cookie, void *, void *msg, uintptr_t) {
    const auto *m = static_cast<const ifa_msg *>(msg);
    current->seen.push_back("handler " + std::to_string(m->ifam_hdr.tlkh_op));
    tarvik_msg_free(cookie, msg);
    return 0;
  }
  static int report(void *value, uint32_t op, uint32_t af, uint8_t *addr, uint16_t plen,
                    uint16_t flags) {
    const std::string name = static_cast<const char *>(value);
    current->seen.push_back("report " + name + " " + std::to_string(op));
    current->reports.push_back({name, op, af, Bytes(addr, addr + 4), plen, flags});
    return 0;
  }
  static int hook(tarvik_cookie *, tarvik_async_reg_t *, void *msg, uintptr_t, int) {
    current->seen.push_back("hook " +
                            std::to_string(static_cast<const ifa_msg *>(msg)->ifam_hdr.tlkh_op));
    current->held.push_back(msg);
    return 0;
  }
  static void drain(tarvik_cookie *cookie) {
    for (void *m : current->held) tarvik_msg_free(cookie, m);
    current->held.clear();
  }
};

// Borrower words: the report function prints them.
char kB10[] = "b10";
char kB20[] = "b20";
char kB30[] = "b30";

// An "ifaddr" record of `donor`: destination 10.1.2.0/24, local 10.1.2.9/32.
struct IfaRecord {
  ifa_msg m{};
  uint8_t dest[4] = {10, 1, 2, 0};
  uint8_t local[4] = {10, 1, 2, 9};
  IfaRecord(uint8_t op, uint32_t donor, uint8_t af, uint16_t flags = 0x1000) {
    m.ifam_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_IFADDR];
    m.ifam_hdr.tlkh_type = TLK_MSG_IFADDR;
    m.ifam_hdr.tlkh_op = op;
    m.ifam_hdr.tlkh_msglen = sizeof m;
    m.ifam_hdr.tlkh_fixedlen = sizeof m;
    m.ifam_iflidx.idx = donor;
    m.ifam_af = af;
    m.ifam_flags = flags;
    m.ifam_dest.plen = 24;
    m.ifam_local.plen = 32;
  }
  // The record with its prefixes pointing at this object's bytes (records are copied about).
  ifa_msg msg() const {
    ifa_msg out = m;
    out.ifam_dest.prefix_len = sizeof dest;
    out.ifam_dest.prefix = const_cast<uint8_t *>(dest);
    out.ifam_local.prefix_len = sizeof local;
    out.ifam_local.prefix = const_cast<uint8_t *>(local);
    return out;
  }
};

class Unnum : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    fd = tarvik_getsockfd(c);
    Events::current = &ev;
    ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
    ASSERT_EQ(tarvik_ifam_async_register(c, 1, nullptr, Events::handler), 0);
    ASSERT_EQ(tarvik_unnum_ifa_register_callback(c, Events::report), 0);
  }
  void TearDown() override {
    if (c != nullptr) close_now();
    OneSessionTest::TearDown();
  }
  // Closes the session.  Its teardown leaves the donor records allocated, one per donor and
  // family ever registered, and they are accepted here.
  void close_now() {
    const int32_t records = keep_donor_records();
    tarvik_close(c);
    c = nullptr;
    expect_abandoned(MEMID_TARVIK_UNNUM_DONOR, records);
  }

  // The donor records, kept reachable for the sanitizer's leak check while the library's own
  // accounting counts them; returns how many there are.
  int32_t keep_donor_records() {
    static auto *kept = new std::vector<void *>;
    int32_t n = 0;
    if (c == nullptr || c->unnum_info == nullptr) return 0;
    for (itable32 *donors : c->unnum_info->donors) {
      const uint32_t *from = nullptr;
      uint32_t key = 0;
      while (void *record = itable32_getnext(donors, from, &key)) {
        kept->push_back(record);
        ++n;
        from = &key;
      }
    }
    return n;
  }

  void hooked() {
    ASSERT_EQ(tlk_async_set_event_hooks(c, &hooks), 0);
    ASSERT_EQ(tarvik_set_async_mode(c, TLK_ASYNC_BULK | TLK_ASYNC_HOOKED), 0);
  }
  // Pushes the frames as one read and processes it.
  void deliver(const std::vector<IfaRecord> &records) {
    std::vector<Bytes> frames;
    for (const IfaRecord &r : records) {
      const ifa_msg m = r.msg();
      frames.push_back(frame_of(c, &m));
    }
    Bytes all;
    for (const Bytes &f : frames) all.insert(all.end(), f.begin(), f.end());
    ASSERT_TRUE(kernel.push(fd, all));
    EXPECT_EQ(tarvik_async_event_process(c), 0);
  }
  int interest(uint32_t borrower, uint32_t donor, uint32_t af, int add, void *value) {
    return tarvik_unnum_ifa_register_interest(c, borrower, donor, af, add, value);
  }
  // Whether an event of `donor` in `af` would be reported now (the pending event is reported
  // and cleared at once, so that the probe leaves no trace but its reports).
  bool heard(uint32_t donor, uint32_t af) {
    const IfaRecord r(TLK_OP_CHANGE, donor, static_cast<uint8_t>(af));
    const ifa_msg m = r.msg();
    const bool saved = tarvik_unnum_ifa_save_msg(c, &m) == 0;
    tarvik_unnum_ifa_report(c);
    return saved;
  }

  int fd = -1;
  Events ev;
  tarvik_event_hooks_t hooks{Events::hook, Events::drain, nullptr, -1};
};

// Interest results, call by call, and then which donors an event would reach.
struct Call {
  uint32_t borrower, donor, af;
  int add;
  char *value;
  int want;
};
struct Probe {
  uint32_t donor, af;
  bool heard;
};
struct InterestCase {
  const char *name;
  std::vector<Call> calls;
  std::vector<Probe> probes;
};

const InterestCase kInterestCases[] = {
    {"SameBorrowerTwiceIsRefusedAndCountsOnce",
     {{10, 5, kInet, 1, kB10, 0},
      {10, 5, kInet, 1, kB20, EEXIST},
      {10, 5, kInet, 0, nullptr, 0},
      {10, 5, kInet, 0, nullptr, ENOENT}},
     // One removal leaves nobody: the count was 1.
     {{5, kInet, false}}},
    {"UnknownBorrowerDonorOrFamilyRemovalIsENOENT",
     {{10, 5, kInet, 0, nullptr, ENOENT},
      {10, 5, kInet, 1, kB10, 0},
      {11, 5, kInet, 0, nullptr, ENOENT},
      {10, 6, kInet, 0, nullptr, ENOENT},
      {10, 5, kInet6, 0, nullptr, ENOENT}},
     {{5, kInet, true}, {6, kInet, false}, {5, kInet6, false}}},
    {"FamilyOtherThanInetAndInet6IsEINVAL",
     {{10, 5, 17, 1, kB10, EINVAL}, {10, 5, 17, 0, nullptr, EINVAL}, {10, 5, 0, 1, kB10, EINVAL}},
     {{5, 17, false}, {5, kInet, false}}},
    {"FamiliesKeepTheirOwnDonors",
     {{10, 5, kInet, 1, kB10, 0}, {10, 5, kInet6, 1, kB10, 0}, {10, 5, kInet, 0, nullptr, 0}},
     {{5, kInet, false}, {5, kInet6, true}}},
    {"ANullWordCannotBeStored",
     {{10, 5, kInet, 1, nullptr, EINVAL}, {10, 5, kInet, 1, kB10, 0}, {20, 5, kInet, 1, kB20, 0}},
     {{5, kInet, true}}},
    {"ADonorWithoutBorrowersKeepsItsRecordAndTakesNewOnes",
     {{10, 5, kInet, 1, kB10, 0},
      {10, 5, kInet, 0, nullptr, 0},
      {20, 5, kInet, 1, kB20, 0},
      {20, 5, kInet, 0, nullptr, 0},
      {20, 5, kInet, 1, kB20, 0}},
     {{5, kInet, true}}},
};

void PrintTo(const InterestCase &k, std::ostream *os) {
  *os << k.name;
}

class InterestTable : public Unnum, public ::testing::WithParamInterface<InterestCase> {};

TEST_P(InterestTable, ResultsAndWhoIsHeard) {
  const InterestCase &k = GetParam();
  for (size_t i = 0; i < k.calls.size(); ++i) {
    const Call &call = k.calls[i];
    EXPECT_EQ(interest(call.borrower, call.donor, call.af, call.add, call.value), call.want)
        << "call " << i;
  }
  for (const Probe &p : k.probes) {
    EXPECT_EQ(heard(p.donor, p.af), p.heard) << "donor " << p.donor << " af " << p.af;
  }
  EXPECT_TRUE(log.lines.empty());
}

INSTANTIATE_TEST_SUITE_P(Cases, InterestTable, ::testing::ValuesIn(kInterestCases),
                         [](const auto &p) { return std::string(p.param.name); });

// Notifications through event processing: what the handler, the hook and the reports see, in
// order, as one line.  Borrowers b20 and b10 of donor 5 in AF_INET are registered in every case;
// "owner" marks the hook's owner calling tarvik_unnum_ifa_report after the read.
struct Note {
  uint8_t op;
  uint32_t donor;
  uint8_t af;
};
struct EventCase {
  const char *name;
  bool hooked;
  std::vector<Note> notes;
  const char *want;
  size_t warnings;  // "Async event arrived while processing pending ..."
};

constexpr uint8_t kAdd = TLK_OP_ADD, kChg = TLK_OP_CHANGE, kDel = TLK_OP_DELETE;

const EventCase kEventCases[] = {
    {"PlainAddIsReportedAfterTheHandler",
     false,
     {{kAdd, 5, kInet}},
     "handler 1, report b10 1, report b20 1",
     0},
    {"PlainChangeIsReportedAfterTheHandler",
     false,
     {{kChg, 5, kInet}},
     "handler 2, report b10 2, report b20 2",
     0},
    {"PlainDeleteIsReportedBeforeTheHandler",
     false,
     {{kDel, 5, kInet}},
     "report b10 3, report b20 3, handler 3",
     0},
    {"PlainEventsOfOneReadEachGetTheirReport",
     false,
     {{kAdd, 5, kInet}, {kDel, 5, kInet}, {kChg, 5, kInet}},
     "handler 1, report b10 1, report b20 1, report b10 3, report b20 3, handler 3, handler 2, "
     "report b10 2, report b20 2",
     0},
    {"OtherDonorsAndFamiliesPassUntouched",
     false,
     {{kAdd, 6, kInet}, {kDel, 5, kInet6}, {kAdd, 5, 17}},
     "handler 1, handler 3, handler 1",
     0},
    {"HookedDeleteIsReportedBeforeTheHook",
     true,
     {{kDel, 5, kInet}},
     "report b10 3, report b20 3, hook 3, owner",
     0},
    {"HookedAddStaysPendingUntilTheOwnerReports",
     true,
     {{kAdd, 5, kInet}},
     "hook 1, owner, report b10 1, report b20 1",
     0},
    {"HookedEventsWhilePendingWarnAndGetNoReport",
     true,
     {{kChg, 5, kInet}, {kAdd, 5, kInet}, {kDel, 5, kInet}},
     "hook 2, hook 1, hook 3, owner, report b10 2, report b20 2",
     2},
    {"HookedPendingIgnoresOtherFamilies",
     true,
     {{kChg, 5, kInet}, {kAdd, 5, 17}},
     "hook 2, hook 1, owner, report b10 2, report b20 2",
     0},
    {"HookedDeleteFirstLeavesNothingPending",
     true,
     {{kDel, 5, kInet}, {kAdd, 5, kInet}},
     "report b10 3, report b20 3, hook 3, hook 1, owner, report b10 1, report b20 1",
     0},
};

void PrintTo(const EventCase &k, std::ostream *os) {
  *os << k.name;
}

class EventTable : public Unnum, public ::testing::WithParamInterface<EventCase> {};

TEST_P(EventTable, OrderOfHandlerHookAndReports) {
  const EventCase &k = GetParam();
  if (k.hooked) hooked();
  ASSERT_EQ(interest(20, 5, kInet, 1, kB20), 0);
  ASSERT_EQ(interest(10, 5, kInet, 1, kB10), 0);
  std::vector<IfaRecord> records;
  for (const Note &n : k.notes) records.emplace_back(n.op, n.donor, n.af);
  deliver(records);
  if (k.hooked) {
    ev.seen.push_back("owner");
    tarvik_unnum_ifa_report(c);
  }
  std::string line;
  for (const std::string &s : ev.seen) line += (line.empty() ? "" : ", ") + s;
  EXPECT_EQ(line, k.want);
  EXPECT_EQ(log.count(TLK_LEVEL_WARNING), k.warnings);
  for (const auto &l : log.lines) {
    EXPECT_EQ(
        l.text,
        "tarvik: WARNING Async event arrived while processing pending for a previous event\n");
  }
}

INSTANTIATE_TEST_SUITE_P(Cases, EventTable, ::testing::ValuesIn(kEventCases),
                         [](const auto &p) { return std::string(p.param.name); });

TEST_F(Unnum, AReportCarriesTheSavedEvent) {
  ASSERT_EQ(interest(10, 77, kInet6, 1, kB10), 0);
  IfaRecord r(TLK_OP_CHANGE, 77, kInet6, 0x1234);
  r.m.ifam_dest.plen = 0x71;  // the destination's length, the local prefix's bytes
  deliver({r});
  ASSERT_EQ(ev.reports.size(), 1u);
  const Events::Report &got = ev.reports[0];
  EXPECT_EQ(got.borrower, "b10");
  EXPECT_EQ(got.op, TLK_OP_CHANGE);
  EXPECT_EQ(got.af, kInet6);
  EXPECT_EQ(got.addr, (Bytes{10, 1, 2, 9}));
  EXPECT_EQ(got.plen, 0x71);
  EXPECT_EQ(got.flags, 0x1234);
}

TEST_F(Unnum, BorrowersRemovedBetweenSaveAndReportAreSilentAndTheCopyStays) {
  hooked();
  ASSERT_EQ(interest(10, 5, kInet, 1, kB10), 0);
  deliver({IfaRecord(TLK_OP_ADD, 5, kInet)});
  ASSERT_EQ(interest(10, 5, kInet, 0, nullptr), 0);
  tarvik_unnum_ifa_report(c);
  EXPECT_EQ(ev.seen, (std::vector<std::string>{"hook 1"}));
  static auto *kept = new std::vector<void *>;  // for the sanitizer's leak check
  kept->push_back(c->unnum_info->pending_addr);
  // Nothing is pending any more: the next event of another donor's borrower is saved again.
  ASSERT_EQ(interest(30, 6, kInet, 1, kB30), 0);
  deliver({IfaRecord(TLK_OP_DELETE, 6, kInet)});
  EXPECT_EQ(ev.seen, (std::vector<std::string>{"hook 1", "report b30 3", "hook 3"}));
  close_now();
  // The saved copy of the prefix is deliberately not freed when the donor has nobody left.
  expect_abandoned(MEMID_TARVIK_MSG, 1);
}

TEST_F(Unnum, ASecondCallbackReplacesTheFirst) {
  ASSERT_EQ(interest(10, 5, kInet, 1, kB10), 0);
  static int others = 0;
  others = 0;
  ASSERT_EQ(tarvik_unnum_ifa_register_callback(
                c,
                [](void *, uint32_t, uint32_t, uint8_t *, uint16_t, uint16_t) {
                  ++others;
                  return 0;
                }),
            0);
  deliver({IfaRecord(TLK_OP_ADD, 5, kInet)});
  EXPECT_EQ(others, 1);
  EXPECT_EQ(ev.seen, (std::vector<std::string>{"handler 1"}));
}

TEST_F(Unnum, ThePrivateSessionOpensOnTheFirstInterestAndClosesWithTheState) {
  EXPECT_EQ(kernel.sessions().size(), 1u);
  ASSERT_EQ(interest(10, 5, kInet, 0, nullptr), ENOENT);  // even a removal opens it
  EXPECT_EQ(kernel.sessions().size(), 2u);
  ASSERT_EQ(interest(10, 5, kInet, 1, kB10), 0);
  EXPECT_EQ(kernel.sessions().size(), 2u);
  EXPECT_GT(outstanding()[MEMID_TARVIK_UNNUM_INFO], 0);
  const int32_t records = keep_donor_records();
  EXPECT_EQ(records, 1);
  tarvik_unnum_ifa_cleanup(c);
  EXPECT_EQ(c->unnum_info, nullptr);
  EXPECT_EQ(kernel.sessions().size(), 1u);
  // Without the state, interest is refused and events pass as they are.
  EXPECT_EQ(interest(10, 5, kInet, 1, kB10), EINVAL);
  deliver({IfaRecord(TLK_OP_DELETE, 5, kInet)});
  EXPECT_EQ(ev.seen, (std::vector<std::string>{"handler 3"}));
  expect_abandoned(MEMID_TARVIK_UNNUM_DONOR, records);
}

TEST_F(Unnum, APrivateSessionThatCannotOpenGivesMinusOne) {
  kernel.fail_socket(EMFILE);
  EXPECT_EQ(interest(10, 5, kInet, 1, kB10), -1);
  EXPECT_EQ(kernel.sessions().size(), 1u);
  EXPECT_EQ(interest(10, 5, kInet, 1, kB10), 0);  // the next call opens it
  EXPECT_EQ(kernel.sessions().size(), 2u);
  close_now();
  // A failed connect frees its record alone and leaves the read buffer behind.
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
}

using UnnumPlain = OneSessionTest;

TEST_F(UnnumPlain, WithoutAnAsynchronousSessionNothingIsKept) {
  const IfaRecord r(TLK_OP_ADD, 5, kInet);
  const ifa_msg m = r.msg();
  EXPECT_EQ(tarvik_unnum_ifa_register_callback(c, Events::report), EINVAL);
  EXPECT_EQ(tarvik_unnum_ifa_register_interest(c, 10, 5, kInet, 1, kB10), EINVAL);
  EXPECT_EQ(tarvik_unnum_ifa_save_msg(c, &m), -1);
  tarvik_unnum_ifa_report(c);
  tarvik_unnum_ifa_cleanup(c);
  EXPECT_EQ(c->unnum_info, nullptr);
  // On an asynchronous session the state exists from the callback on, before any interest.
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_unnum_ifa_register_callback(c, nullptr), 0);
  EXPECT_EQ(tarvik_unnum_ifa_save_msg(c, &m), -1);  // nobody is interested
  EXPECT_EQ(tarvik_unnum_ifa_save_msg(c, nullptr), -1);
  EXPECT_EQ(kernel.sessions().size(), 1u);
}

}  // namespace
}  // namespace tlktest
