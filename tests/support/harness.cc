#include "harness.h"

namespace tlktest {
namespace {

OsCapture *g_capture = nullptr;

void capture_syslog(int priority, const char *text) { g_capture->syslog.push_back({priority, text}); }
void capture_stderr(const char *text) { g_capture->stderr_lines.emplace_back(text); }
void capture_exit(int status) { g_capture->exits.push_back(status); }

}  // namespace

OsCapture::OsCapture() : previous_(*tlk_platform_get()) {
  g_capture = this;
  tlk_platform table = previous_;
  table.syslog = capture_syslog;
  table.print_stderr = capture_stderr;
  table.exit = capture_exit;
  tlk_platform_set(&table);
}

OsCapture::~OsCapture() {
  tlk_platform_set(&previous_);
  g_capture = nullptr;
}

void ErrLog::callback(tarvik_cookie *, void *arg, int level, const char *text) {
  static_cast<ErrLog *>(arg)->lines.push_back({level, text});
}

size_t ErrLog::count(int level) const {
  size_t n = 0;
  for (const auto &l : lines) n += (l.level == level);
  return n;
}

bool ErrLog::contains(const std::string &needle) const {
  for (const auto &l : lines) {
    if (l.text.find(needle) != std::string::npos) return true;
  }
  return false;
}

std::array<int32_t, MEMID_TARVIK_MAX> outstanding() {
  std::array<int32_t, MEMID_TARVIK_MAX> out{};
  if (tarvik_mem_record.cnts == nullptr) return out;
  for (unsigned i = 0; i < MEMID_TARVIK_MAX; ++i) out[i] = tarvik_mem_record.cnts[i].outstanding;
  return out;
}

void SimTest::SetUp() {
  if (!tarvik_mem_rec_enabled) tarvik_mem_rec_enable(nullptr, nullptr);
  // The first counted event sets up the table, which counts itself under identifier 0.
  tarvik_free(1, tarvik_malloc(1, 1));
  start_ = outstanding();
}

void *OneSessionTest::last_framed_request() {
  const auto &rec = kernel.recorded();
  for (auto it = rec.rbegin(); it != rec.rend(); ++it) {
    if (!it->to_kernel) continue;
    void *m = nullptr;
    if (tarvik_msg_idl_decode(c, it->bytes.data(), it->bytes.size(), &m, nullptr) != 0) return nullptr;
    return m;
  }
  return nullptr;
}

void SimTest::TearDown() {
  const auto end = outstanding();
  for (unsigned i = 0; i < MEMID_TARVIK_MAX; ++i) {
    EXPECT_EQ(end[i], start_[i]) << "memory identifier " << i << " left blocks outstanding";
  }
}

void SimTest::expect_abandoned(unsigned memid, int32_t n) {
  EXPECT_EQ(outstanding()[memid] - start_[memid], n) << "memory identifier " << memid;
  start_[memid] += n;
}

tarvik_cookie *SimTest::open_session(uint32_t sender) {
  tarvik_cookie *c = tarvik_open_set_liberr(sender, &log, ErrLog::callback);
  EXPECT_NE(c, nullptr);
  return c;
}

}  // namespace tlktest


extern "C" {

// Tests provoke allocation failures on purpose: the allocator must answer null, not abort.
__attribute__((visibility("default"), used)) const char *__asan_default_options() {
  return "allocator_may_return_null=1";
}

// The blocks that a failed connect abandons on purpose (see lsan.supp beside the tests).  The
// library's own accounting still checks them in each test.
__attribute__((visibility("default"), used)) const char *__lsan_default_suppressions() {
  return "leak:tarvik_cookie_create\nleak:tarvik_set_defaults\n";
}

}  // extern "C"
