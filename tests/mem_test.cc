// Memory accounting and diagnostics.  Accounting, once on, stays on for the process; ctest runs
// each test in a process of its own, and the tests that need a fresh process say so.
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <syslog.h>

#include <algorithm>
#include <functional>
#include <string>

#include "harness.h"

namespace tlktest {
namespace {

const tarvik_mem_cnt_t &entry(unsigned memid) {
  return tarvik_mem_record.cnts[memid];
}

// Accounting on, with its table set up (the first counted event does that).
void enable() {
  if (!tarvik_mem_rec_enabled) tarvik_mem_rec_enable(nullptr, nullptr);
  tarvik_free(1, tarvik_malloc(1, 1));
}

constexpr size_t kImpossible = SIZE_MAX - 4095;  // no allocator can give this, on any target

TEST(MemAccounting, OffMeansPlainMallocAndNoTable) {
  if (tarvik_mem_rec_enabled) GTEST_SKIP() << "accounting already on in this process";
  void *p = tarvik_malloc(8, 10);
  ASSERT_NE(p, nullptr);
  tarvik_free(8, p);
  p = tarvik_realloc(75, nullptr, 10);
  tarvik_free(75, p);
  EXPECT_EQ(tarvik_mem_record.cnts, nullptr);
  EXPECT_EQ(tarvik_mem_record.cnts_saved, nullptr);
}

TEST(MemAccounting, FirstCountedAllocationSetsUpTheTable) {
  if (tarvik_mem_record.cnts != nullptr) GTEST_SKIP() << "table already set up in this process";
  enable();
  void *p = tarvik_malloc(8, 1);
  ASSERT_NE(tarvik_mem_record.cnts, nullptr);
  EXPECT_EQ(tarvik_mem_record.cnts, tarvik_mem_record.cnts_saved);
  EXPECT_EQ(tarvik_mem_record.submod_max, 76);
  EXPECT_EQ(entry(0).allocs, 1u);
  EXPECT_EQ(entry(0).outstanding, 1);
  EXPECT_EQ(entry(8).allocs, 1u);
  EXPECT_EQ(entry(8).outstanding, 1);
  EXPECT_EQ(entry(8).chk[0], 1);
  EXPECT_EQ(entry(8).chk[3], 1);
  EXPECT_EQ(entry(9).chk[0], 0xBE) << "untouched counters start checked as zero";
  EXPECT_EQ(memcmp(tarvik_mem_record.cnts[76].chk, "\0\0\0\0", 4), 0)
      << "the spare entry stays zero";
  tarvik_free(8, p);
  EXPECT_EQ(entry(8).frees, 1u);
  EXPECT_EQ(entry(8).outstanding, 0);
  EXPECT_EQ(entry(8).chk[2], 1);
  EXPECT_EQ(entry(8).chk[3], 0xBE);
}

TEST(MemAccounting, CheckByteOfZeroXorIs0xBE) {
  enable();
  tarvik_mem_record.cnts[20].allocs = 0x01010100;
  void *p = tarvik_malloc(20, 4);
  EXPECT_EQ(entry(20).allocs, 0x01010101u);
  EXPECT_EQ(entry(20).chk[0], 0xBE);
  tarvik_mem_record.cnts[20].allocs = 0x00000102;
  tarvik_free(20, tarvik_malloc(20, 4));
  EXPECT_EQ(entry(20).chk[0], 0x03 ^ 0x01);
  tarvik_free(20, p);
}

// What each call does to the counters of its identifier, one row each, in order on one block.
TEST(MemAccounting, EachCallMovesItsCounters) {
  enable();
  constexpr unsigned kId = 31;
  void *block = tarvik_malloc(kId, 8);
  const struct {
    const char *what;
    std::function<void()> call;
    int allocs, fails, frees, outstanding;
  } rows[] = {
      {"free of null", [] { tarvik_free(kId, nullptr); }, 0, 0, 0, 0},
      {"growing realloc",
       [&] {
         block = tarvik_realloc(kId, block, 4096);
         ASSERT_NE(block, nullptr);
       },
       1, 0, 1, 0},
      // The outstanding count falls although the block lives on.
      {"failed realloc of a live block",
       [&] { EXPECT_EQ(tarvik_realloc(kId, block, kImpossible), nullptr); }, 0, 1, 1, -1},
      {"failed malloc", [] { EXPECT_EQ(tarvik_malloc(kId, kImpossible), nullptr); }, 0, 1, 0, 0},
      {"failed calloc", [] { EXPECT_EQ(tarvik_calloc(kId, kImpossible, 4), nullptr); }, 0, 1, 0, 0},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    const tarvik_mem_cnt_t before = entry(kId);
    row.call();
    EXPECT_EQ(entry(kId).allocs, before.allocs + row.allocs);
    EXPECT_EQ(entry(kId).fails, before.fails + row.fails);
    EXPECT_EQ(entry(kId).frees, before.frees + row.frees);
    EXPECT_EQ(entry(kId).outstanding, before.outstanding + row.outstanding);
    if (row.allocs == 0 && row.fails == 0 && row.frees == 0) {
      EXPECT_EQ(memcmp(&before, &entry(kId), sizeof before), 0) << "not a check byte either";
    }
  }
  free(block);  // still ours after the failed realloc; given back behind the accounting's back
}

TEST(MemAccounting, LockFunctionsWrapEveryCounterChange) {
  static int locks, unlocks;
  locks = unlocks = 0;
  tarvik_mem_rec_enable([] { ++locks; }, [] { ++unlocks; });
  tarvik_free(33, tarvik_malloc(33, 1));
  EXPECT_GE(locks, 2);
  EXPECT_EQ(locks, unlocks);
  tarvik_mem_rec_enable(nullptr, nullptr);
}

TEST(MemHelpers, MessageBlocksDecoderAndItableAllocators) {
  enable();
  tarvik_cookie *c = tarvik_cookie_create();
  ASSERT_NE(c, nullptr);
  const int32_t msgs = entry(75).outstanding;
  auto *m = static_cast<uint8_t *>(tarvik_msg_malloc(c));
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(entry(75).outstanding, msgs + 1);
  EXPECT_EQ(std::count(m, m + TLK_MSG_BUF_SIZE, 0), TLK_MSG_BUF_SIZE) << "a zeroed block";
  tarvik_msg_free(c, m);
  tarvik_msg_free(nullptr, m);  // must not free twice
  tarvik_msg_free(c, nullptr);
  EXPECT_EQ(entry(75).outstanding, msgs);

  const int32_t decode = entry(58).outstanding;
  void *d = tarvik_malloc_cb(100);
  EXPECT_EQ(entry(58).outstanding, decode + 1);
  tarvik_free_cb(d);
  EXPECT_EQ(entry(58).outstanding, decode);
  tarvik_cookie_destroy(c);

  // The interface-table allocators take identifiers 62 to 65.
  for (uint16_t id :
       {uint16_t{62}, memid_tarvik_itable_borrower, memid_tarvik_itable_donor, uint16_t{65}}) {
    const int32_t before = entry(id).outstanding;
    void *p = tarvik_malloc_itable(&id, 16);
    EXPECT_EQ(entry(id).outstanding, before + 1) << id;
    tarvik_free_itable(&id, p);
    EXPECT_EQ(entry(id).outstanding, before) << id;
  }
  EXPECT_EQ(memid_tarvik_itable_borrower, 63);
  EXPECT_EQ(memid_tarvik_itable_donor, 64);
}

TEST(MemDeathTest, BadIdentifiersAndADamagedRootStop) {
  const uint16_t below = 61, above = 66;
  const char *words =
      "Assertion failed: "
      "\\(\\(MEMID_TARVIK_ITABLE_MIN<=memid\\)&&\\(MEMID_TARVIK_ITABLE_MAX>=memid\\)\\)";
  EXPECT_DEATH(tarvik_malloc_itable(&below, 4),
               std::string(words) +
                   ", function tarvik_malloc_itable, file lib/libtarlink/tarvik_mem, line 189");
  EXPECT_DEATH(tarvik_malloc_itable(&above, 4), words);
  EXPECT_DEATH(tarvik_free_itable(&above, nullptr),
               std::string(words) +
                   ", function tarvik_free_itable, file lib/libtarlink/tarvik_mem, line 196");
  // An identifier beyond the table, or a damaged root, stops the process too.
  enable();
  EXPECT_DEATH(tarvik_malloc(76, 1),
               "\\(tarvik_mem_record.submod_max > memid\\), function tarvik_mem_rec, file "
               "lib/libtarlink/tarvik_mem, line 154");
  EXPECT_DEATH(
      {
        tarvik_mem_record.cnts_saved = nullptr;
        tarvik_malloc(1, 1);
      },
      "tarvik_mem_record.cnts_saved == tarvik_mem_record.cnts\\), function tarvik_mem_rec, file "
      "lib/libtarlink/tarvik_mem, line 152");
  EXPECT_DEATH(
      {
        tarvik_mem_record.submod_max = 75;
        tarvik_malloc(1, 1);
      },
      "MEMID_TARVIK_MAX == tarvik_mem_record.submod_max\\), function tarvik_mem_rec, file "
      "lib/libtarlink/tarvik_mem, line 153");
}

// --- Diagnostics ---------------------------------------------------------------------------

// Without a cookie each level goes to the system log at its priority, level 4 then exits with
// status 1 whatever any cookie registered, and levels above 4 go to stderr bare.
TEST(Diagnostics, NoCookieGoesWhereItsLevelSays) {
  const struct {
    int level;
    const char *word;
    int priority;  // -1: stderr
    const char *text;
  } rows[] = {
      {TLK_LEVEL_DEBUG, "d", LOG_DEBUG, "tarvik: DEBUG 7d"},
      {TLK_LEVEL_INFO, "i", LOG_INFO, "tarvik: INFO 7i"},
      {TLK_LEVEL_WARNING, "w", LOG_WARNING, "tarvik: WARNING 7w"},
      {TLK_LEVEL_ERROR, "e\n", LOG_ERR, "tarvik: ERROR 7e\n"},  // the text as it stands
      {TLK_LEVEL_FATAL, " broken contract", LOG_CRIT, "tarvik: FATAL ERROR 7 broken contract"},
      {5, "odd", -1, "tarvik: 7odd"},
  };
  tarvik_cookie *c = tarvik_cookie_create();
  tarvik_lib_error_register(c, nullptr, [](tarvik_cookie *, void *, int, const char *) {});
  for (const auto &row : rows) {
    SCOPED_TRACE(row.level);
    OsCapture os;
    tarvik_err(nullptr, row.level, "%d%s", 7, row.word);
    if (row.priority < 0) {
      EXPECT_TRUE(os.syslog.empty());
      EXPECT_EQ(os.stderr_lines, std::vector<std::string>{row.text});
    } else {
      ASSERT_EQ(os.syslog.size(), 1u);
      EXPECT_EQ(os.syslog[0].priority, row.priority);
      EXPECT_EQ(os.syslog[0].text, row.text);
    }
    EXPECT_EQ(os.exits, row.level == TLK_LEVEL_FATAL ? std::vector<int>{1} : std::vector<int>{});
  }
  tarvik_cookie_destroy(c);
}

TEST(DiagnosticsDeathTest, LevelFourEndsTheProcessWithStatusOne) {
  // A session's default callback ends it the same way (AsyncDeathTest).
  EXPECT_EXIT(tarvik_err(nullptr, TLK_LEVEL_FATAL, "bye"), ::testing::ExitedWithCode(1), "");
}

// Through a session's callback: errno survives it, and lines are cut at 255 characters; a
// silenced session formats nothing, not even at level 4, and keeps errno.
TEST(Diagnostics, SessionCallbackAndSilence) {
  OsCapture os;
  ErrLog log;
  tarvik_cookie *c = tarvik_cookie_create();
  tarvik_lib_error_register(c, &log, [](tarvik_cookie *, void *arg, int level, const char *text) {
    errno = EBADF;
    ErrLog::callback(nullptr, arg, level, text);
  });
  errno = ETIMEDOUT;
  tarvik_err(c, TLK_LEVEL_WARNING, "%s", std::string(300, 'x').c_str());
  EXPECT_EQ(errno, ETIMEDOUT);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].text.size(), 255u);
  EXPECT_EQ(log.lines[0].text, "tarvik: WARNING " + std::string(255 - 16, 'x'));

  ASSERT_EQ(tarvik_lib_error_register(c, nullptr, nullptr), 0);
  errno = ENOSPC;
  tarvik_err(c, TLK_LEVEL_FATAL, "%s", "never formatted");
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(log.lines.size(), 1u);
  EXPECT_TRUE(os.syslog.empty());
  EXPECT_TRUE(os.exits.empty());
  tarvik_cookie_destroy(c);
}

}  // namespace
}  // namespace tlktest
