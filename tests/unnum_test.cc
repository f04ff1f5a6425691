// Unnumbered address donors: the integer table under them, borrower interest and its results,
// and the reports that "ifaddr" notifications make through event processing, in plain and hooked
// event mode, against the simulated kernel.
#include <errno.h>
#include <stdio.h>

#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "harness.h"
#include "platform/itable32.h"

namespace tlktest {
namespace {

// ---- The integer table ------------------------------------------------------------------------

// An allocator pair that refuses every fifth call and counts the blocks it has out.
struct Flaky {
  static inline int calls = 0, live = 0, refused = 0;
  static void *alloc(const uint16_t *, size_t size) {
    return ++calls % 5 != 0 ? (++live, malloc(size)) : (++refused, nullptr);
  }
  static void release(const uint16_t *, void *block) { --live, free(block); }
};

TEST(Itable, MatchesAnOrderedMapThroughGrowthShrinkingAndRefusedBlocks) {
  Flaky::calls = 4;  // the next call is refused
  EXPECT_EQ(itable32_create_ext(Flaky::alloc, Flaky::release, nullptr), nullptr);
  itable32_t *t = itable32_create_ext(Flaky::alloc, Flaky::release, nullptr);
  ASSERT_NE(t, nullptr);
  std::map<uint32_t, void *> ref;
  uint32_t seed = 20261123;
  auto rnd = [&seed] { return seed ^= seed << 13, seed ^= seed >> 17, seed ^= seed << 5; };
  int enomem = 0;
  for (uint32_t i = 0; i < 20000; ++i) {
    // Small keys collide often; the extremes and the full range keep the ends honest.
    const uint32_t r = rnd(), op = rnd() % 6;
    const uint32_t key = r % 8 == 0 ? 0 : r % 8 == 1 ? ~0u : r % 8 == 2 ? rnd() : r % 700;
    const bool present = ref.count(key) != 0;
    if (op < ((i / 4000) % 2 == 0 ? 3u : 1u)) {  // phases that grow the table and empty it
      void *value = reinterpret_cast<void *>(uintptr_t{i} << 4 | 8);
      const int refused = Flaky::refused, got = itable32_insert(t, value, &key);
      ASSERT_EQ(got, present ? EEXIST : Flaky::refused > refused ? ENOMEM : 0);
      enomem += got == ENOMEM;
      if (got == 0) ref[key] = value;
    } else if (op < 4) {
      ASSERT_EQ(itable32_remove(t, &key), present ? 0 : ENOENT);
      ref.erase(key);
    } else if (op == 4) {
      ASSERT_EQ(itable32_lookup(t, &key), present ? ref[key] : nullptr);
    } else {  // a step from the start or from any key gives the map's first entry or upper bound
      uint32_t out = 0xabcdabcd;
      const uint32_t *from = r % 8 == 3 ? nullptr : &key;
      const auto it = from == nullptr ? ref.begin() : ref.upper_bound(key);
      ASSERT_EQ(itable32_getnext(t, from, &out), it == ref.end() ? nullptr : it->second);
      ASSERT_EQ(out, it == ref.end() ? 0xabcdabcdu : it->first);
    }
  }
  EXPECT_GT(enomem, 0);
  itable32_destroy(t);
  EXPECT_EQ(Flaky::live, 0);
}

// ---- Donors, borrowers and reports ------------------------------------------------------------

uint8_t kDest[] = {10, 1, 2, 0}, kLocal[] = {10, 1, 2, 9};

// An "ifaddr" record of `donor`: destination 10.1.2.0/24, local 10.1.2.9/32, flags 0x1000.
ifa_msg ifa(uint8_t op, uint32_t donor, uint32_t af) {
  ifa_msg m{};
  m.ifam_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_IFADDR];
  m.ifam_hdr.tlkh_type = TLK_MSG_IFADDR;
  m.ifam_hdr.tlkh_op = op;
  m.ifam_iflidx.idx = donor;
  m.ifam_af = static_cast<uint8_t>(af);
  m.ifam_flags = 0x1000;
  m.ifam_dest = {24, sizeof kDest, kDest};
  m.ifam_local = {32, sizeof kLocal, kLocal};
  return m;
}

// A session with an "ifaddr" handler and a report function; each borrower's word is its index.
class Unnum : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    seen.clear();
    ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
    ASSERT_EQ(tarvik_ifam_async_register(c, 1, nullptr, handler), 0);
    ASSERT_EQ(tarvik_unnum_ifa_register_callback(c, report), 0);
  }
  void TearDown() override {
    if (c != nullptr) close_now();
    OneSessionTest::TearDown();
  }

  // What happened, in order, as one line: the handler, the hook and each report; and the
  // family, address, length and flags of the last report.
  static inline std::string seen;
  static inline std::tuple<uint32_t, Bytes, uint16_t, uint16_t> last;
  static void say(const std::string &what) { seen += (seen.empty() ? "" : ", ") + what; }
  static int note(tarvik_cookie *cookie, const char *who, void *msg) {
    say(who + std::to_string(static_cast<const ifa_msg *>(msg)->ifam_hdr.tlkh_op));
    tarvik_msg_free(cookie, msg);
    return 0;
  }
  static int handler(tarvik_cookie *s, void *, void *m, uintptr_t) {
    return note(s, "handler ", m);
  }
  static int hook(tarvik_cookie *s, tarvik_async_reg_t *, void *m, uintptr_t, int) {
    return note(s, "hook ", m);
  }
  static int report(void *word, uint32_t op, uint32_t af, uint8_t *addr, uint16_t len, uint16_t f) {
    say("report b" + std::to_string(reinterpret_cast<uintptr_t>(word)) + " " + std::to_string(op));
    last = {af, Bytes(addr, addr + 4), len, f};
    return 0;
  }

  // Closes the session, whose teardown leaves the donor records allocated (one per donor and
  // family ever registered); keeps them reachable for the sanitizer's leak check, accepts them
  // and returns how many there were.
  int32_t close_now() {
    static auto *kept = new std::vector<void *>;
    int32_t n = 0;
    for (itable32_t *donors : c->unnum_info->donors) {
      uint32_t key = 0;
      for (const uint32_t *from = nullptr; void *r = itable32_getnext(donors, from, &key);
           from = &key, ++n)
        kept->push_back(r);
    }
    tarvik_close(c);
    c = nullptr;
    expect_abandoned(MEMID_TARVIK_UNNUM_DONOR, n);
    return n;
  }
  // Runs space-separated steps and returns what the handler, the hook and the reports saw, as
  // one line.  "+B/D/F=R" registers borrower B for donor D in family F and expects the result R;
  // "nB/D/F=R" does so with a null word; "-B/D/F=R" removes B.  "aD/F", "cD/F" and "dD/F" are an
  // add, a change and a delete of donor D's address in family F, and a run of them is one read.
  // "o" is the hook's owner reporting after the read.
  std::string run(const std::string &script) {
    static const std::map<std::string, int> codes{
        {"0", 0}, {"-1", -1}, {"EEXIST", EEXIST}, {"ENOENT", ENOENT}, {"EINVAL", EINVAL}};
    static auto *kept = new std::vector<void *>;  // abandoned copies, for the leak check
    Bytes read;
    std::istringstream in(script + " .");  // the full stop ends the last read
    for (std::string step; in >> step;) {
      char kind = 0, result[8] = "";
      uint32_t x = 0, y = 0, z = 0;
      const int n = sscanf(step.c_str(), "%c%u/%u/%u=%7s", &kind, &x, &y, &z, result);
      EXPECT_TRUE(n == 3 || n == 5 || step == "o" || step == ".") << step;
      if (n == 3) {  // a, c and d are operations 1, 2 and 3
        const ifa_msg m = ifa(static_cast<uint8_t>(std::string("acd").find(kind) + 1), x, y);
        read = cat({read, frame_of(c, &m)});
        continue;
      }
      if (!read.empty()) {
        EXPECT_TRUE(kernel.push(tarvik_getsockfd(c), std::exchange(read, {})));
        EXPECT_EQ(tarvik_async_event_process(c), 0);
      }
      if (kind == 'o') {
        say("owner");
        if (c->unnum_info->pending) kept->push_back(c->unnum_info->pending_addr);
        tarvik_unnum_ifa_report(c);
      } else if (n == 5) {
        void *word = kind == 'n' ? nullptr : reinterpret_cast<void *>(uintptr_t{x});
        EXPECT_EQ(tarvik_unnum_ifa_register_interest(c, x, y, z, kind != '-', word),
                  codes.at(result))
            << step;
      }
    }
    return seen;
  }
};

// Each case runs its steps on a fresh asynchronous session, hooked or plain, and expects their
// line, the donor records left at close, the "Async event arrived while processing pending ..."
// warnings and the copies of an address abandoned by a report that found nobody.
struct Case {
  const char *name;
  bool hooked;
  const char *steps, *want;
  int32_t records;
  size_t warnings = 0;
  int32_t copies = 0;
};

// Interest results, and which events they make heard.
const Case kInterestCases[] = {
    {"SameBorrowerTwiceIsRefusedCountsOnceAndALeftDonorTakesNewOnes", false,
     "+10/5/2=0 +10/5/2=EEXIST c5/2 -10/5/2=0 -10/5/2=ENOENT c5/2 +20/5/2=0 c5/2",
     "handler 2, report b10 2, handler 2, handler 2, report b20 2", 1},
    {"UnknownBorrowerDonorOrFamilyRemovalIsENOENT", false,
     "-10/5/2=ENOENT +10/5/2=0 -11/5/2=ENOENT -10/6/2=ENOENT -10/5/28=ENOENT c5/2 c6/2 c5/28",
     "handler 2, report b10 2, handler 2, handler 2", 1},
    {"FamilyOtherThanInetAndInet6IsEINVAL", false,
     "+10/5/17=EINVAL -10/5/17=EINVAL +10/5/0=EINVAL c5/17 c5/2", "handler 2, handler 2", 0},
    {"FamiliesKeepTheirOwnDonors", false, "+10/5/2=0 +10/5/28=0 -10/5/2=0 c5/2 c5/28",
     "handler 2, handler 2, report b10 2", 2},
    {"ANullWordIsRefusedAndLeavesNoRecord", false,
     "n10/5/2=EINVAL +10/6/2=0 n20/6/2=EINVAL c5/2 c6/2", "handler 2, handler 2, report b10 2", 1},
};

// Notifications through event processing, with borrowers 20 and 10 of donor 5 in AF_INET.
const Case kEventCases[] = {
    {"PlainDeleteIsReportedBeforeTheHandlerAddAndChangeAfterOthersPassUntouched", false,
     "+20/5/2=0 +10/5/2=0 a5/2 d5/2 c5/2 a6/2 d5/28 a5/17",
     "handler 1, report b10 1, report b20 1, report b10 3, report b20 3, handler 3, handler 2, "
     "report b10 2, report b20 2, handler 1, handler 3, handler 1",
     1},
    {"HookedDeleteIsReportedBeforeTheHookAndAnAddWaitsForTheOwner", true,
     "+20/5/2=0 +10/5/2=0 d5/2 a5/2 o",
     "report b10 3, report b20 3, hook 3, hook 1, owner, report b10 1, report b20 1", 1},
    {"HookedEventsWhilePendingWarnAndGetNoReportOtherFamiliesNeither", true,
     "+20/5/2=0 +10/5/2=0 c5/2 a5/17 a5/2 d5/2 o",
     "hook 2, hook 1, hook 1, hook 3, owner, report b10 2, report b20 2", 1, 2},
    {"HookedBorrowersRemovedBeforeTheReportAreSilentAndNothingStaysPending", true,
     "+10/5/2=0 a5/2 -10/5/2=0 o +30/6/2=0 d6/2", "hook 1, owner, report b30 3, hook 3", 2, 0, 1},
};

const std::string kPendingWarning =
    "tarvik: WARNING Async event arrived while processing pending for a previous event\n";

class UnnumSteps : public Unnum, public ::testing::WithParamInterface<Case> {};

TEST_P(UnnumSteps, LineWarningsAndWhatIsLeft) {
  const Case &k = GetParam();
  static tarvik_event_hooks_t hooks{hook, nullptr, nullptr, -1};
  if (k.hooked) {
    ASSERT_EQ(tlk_async_set_event_hooks(c, &hooks), 0);
    ASSERT_EQ(tarvik_set_async_mode(c, TLK_ASYNC_BULK | TLK_ASYNC_HOOKED), 0);
  }
  EXPECT_EQ(run(k.steps), k.want);
  EXPECT_EQ(log.count(TLK_LEVEL_WARNING), k.warnings);
  for (const auto &l : log.lines) EXPECT_EQ(l.text, kPendingWarning);
  EXPECT_EQ(close_now(), k.records);
  expect_abandoned(MEMID_TARVIK_MSG, k.copies);
}

const auto kCaseName = [](const auto &p) { return std::string(p.param.name); };
INSTANTIATE_TEST_SUITE_P(Interest, UnnumSteps, ::testing::ValuesIn(kInterestCases), kCaseName);
INSTANTIATE_TEST_SUITE_P(Events, UnnumSteps, ::testing::ValuesIn(kEventCases), kCaseName);

TEST_F(Unnum, AReportCarriesTheSavedEventAndASecondCallbackReplacesTheFirst) {
  EXPECT_EQ(run("+10/77/28=0 c77/28"), "handler 2, report b10 2");
  // The destination's length, the local prefix's bytes.
  EXPECT_EQ(last, std::make_tuple(28u, Bytes{10, 1, 2, 9}, uint16_t{24}, uint16_t{0x1000}));
  ASSERT_EQ(tarvik_unnum_ifa_register_callback(
                c, [](void *, uint32_t, uint32_t, uint8_t *, uint16_t, uint16_t) { return 0; }),
            0);
  EXPECT_EQ(run("a77/28"), "handler 2, report b10 2, handler 1");
}

TEST_F(Unnum, APrivateSessionThatCannotOpenGivesMinusOneAndAnyLaterInterestOpensIt) {
  kernel.fail_socket(EMFILE);
  EXPECT_EQ(run("+10/5/2=-1 -10/5/2=ENOENT c5/2"), "handler 2");
  EXPECT_EQ(kernel.sessions().size(), 2u);
  close_now();
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);  // what the failed connect leaves
}

using UnnumPlain = OneSessionTest;

TEST_F(UnnumPlain, WithoutAnAsynchronousSessionNothingIsKept) {
  EXPECT_EQ(tarvik_unnum_ifa_register_callback(c, nullptr), EINVAL);
  EXPECT_EQ(tarvik_unnum_ifa_register_interest(c, 10, 5, 2, 1, &c), EINVAL);
  EXPECT_EQ(c->unnum_info, nullptr);
}

}  // namespace
}  // namespace tlktest
