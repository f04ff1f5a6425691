#include "harness.h"

#include <string.h>

namespace tlktest {
namespace {

OsCapture *g_capture = nullptr;

void capture_syslog(int priority, const char *text) {
  g_capture->syslog.push_back({priority, text});
}
void capture_stderr(const char *text) {
  g_capture->stderr_lines.emplace_back(text);
}
void capture_exit(int status) {
  g_capture->exits.push_back(status);
}

int g_blocks_to_failure = 0;
void *(*g_real_malloc)(unsigned, size_t) = nullptr;
void *failing_malloc(unsigned memid, size_t size) {
  if (memid != MEMID_TARVIK_MSG || --g_blocks_to_failure != 0) return g_real_malloc(memid, size);
  tarvik_malloc = g_real_malloc;
  return nullptr;
}

}  // namespace

Bytes cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes &p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

void put_u32(Bytes &b, size_t off, uint32_t v) {
  memcpy(&b[off], &v, 4);
}

uint32_t get_u32(const void *p, size_t off) {
  uint32_t v;
  memcpy(&v, static_cast<const uint8_t *>(p) + off, 4);
  return v;
}

uint16_t get_u16(const void *p, size_t off) {
  uint16_t v;
  memcpy(&v, static_cast<const uint8_t *>(p) + off, 2);
  return v;
}

uint64_t get_u64(const void *p, size_t off) {
  uint64_t v;
  memcpy(&v, static_cast<const uint8_t *>(p) + off, 8);
  return v;
}

Bytes frame_head(uint32_t magic, uint32_t payload_len, uint32_t type, size_t total) {
  Bytes f(total, 0);
  put_u32(f, 0, magic);
  put_u32(f, 4, payload_len);
  put_u32(f, 8, type);
  return f;
}

Bytes frame_of(tarvik_cookie *c, const void *msg, const void *mask) {
  void *frame = nullptr;
  size_t len = 0;
  EXPECT_EQ(tarvik_msg_idl_encode(c, msg, mask, &frame, &len), 0);
  if (frame == nullptr) return {};
  Bytes out(static_cast<uint8_t *>(frame), static_cast<uint8_t *>(frame) + len);
  tarvik_msg_free(c, frame);
  return out;
}

tlk_base_tlvmap header_mask() {
  tlk_base_tlvmap mask{};
  mask._w0 = 1;
  mask.tlkb_hdr._w0 = 0x7FF;  // bits 0..10; bit 11, the attachment list, clear
  return mask;
}

std::pair<uint32_t, uint32_t> sent_listen_mask(const tarsim::Kernel &kernel, int fd) {
  const auto b = kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_LISTEN);
  if (!b || b->size() != 8) return {0xdead, 0xdead};
  return {get_u32(b->data(), 0), get_u32(b->data(), 4)};
}

Bytes last_sent(const tarsim::Kernel &kernel) {
  const auto &rec = kernel.recorded();
  for (auto it = rec.rbegin(); it != rec.rend(); ++it) {
    if (it->to_kernel) return it->bytes;
  }
  return {};
}

size_t sent_count(const tarsim::Kernel &kernel) {
  size_t n = 0;
  for (const auto &r : kernel.recorded()) n += r.to_kernel;
  return n;
}

void drain(tarvik_cookie *session) {
  while (tarvik_async_event_process(session) == 0) {
  }
}

void fail_msg_block(int n) {
  if (tarvik_malloc != failing_malloc) g_real_malloc = tarvik_malloc;
  g_blocks_to_failure = n;
  tarvik_malloc = failing_malloc;
}

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
    if (tarvik_msg_idl_decode(c, it->bytes.data(), it->bytes.size(), &m, nullptr) != 0)
      return nullptr;
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

// The blocks that a failed connect abandons on purpose, the replies and lists that the standard
// name functions leave allocated, the device cache's node that a delete of the same generation
// keeps, and the subtype table that a session's teardown leaves (see lsan.supp beside the
// tests).  The library's own
// accounting still checks them in each test.
__attribute__((visibility("default"), used)) const char *__lsan_default_suppressions() {
  return "leak:tarvik_cookie_create\nleak:tarvik_set_defaults\nleak:if_nametoindex\n"
         "leak:if_indextoname\nleak:if_nameindex\nleak:tarvik_ifd_info_update\n"
         "leak:tarvik_async_subtype_handler_register\n";
}

}  // extern "C"
