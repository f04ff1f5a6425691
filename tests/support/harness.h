// Test harness: a simulated kernel per test, captured diagnostics and process ends, and a leak
// check on the library's own memory accounting.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "cookie.h"
#include "tarlink.h"
#include "tarlink_platform.h"
#include "tarsim.hpp"

// A check helper's last parameters: the place of its call, taken where it is called (the
// compilers' builtins as default arguments), so that TLK_AT_CALLER makes its failures name the
// calling line.
#define TLK_CALLER_ARGS \
  const char *caller_file = __builtin_FILE(), int caller_line = __builtin_LINE()
#define TLK_AT_CALLER ::testing::ScopedTrace caller_trace(caller_file, caller_line, "")

namespace tlktest {

using tarsim::Bytes;

// --- Byte builders --------------------------------------------------------------------------

// The parts one after another.
Bytes cat(std::initializer_list<Bytes> parts);
// A host-order u32 stored at / loaded from a byte offset.
void put_u32(Bytes &b, size_t off, uint32_t v);
uint32_t get_u32(const void *p, size_t off = 0);
// Host-order u16 and u64 loaded from a byte offset.
uint16_t get_u16(const void *p, size_t off = 0);
uint64_t get_u64(const void *p, size_t off = 0);
// A frame's 12-byte head (magic, payload length, type), zero-filled to `total` bytes.
Bytes frame_head(uint32_t magic, uint32_t payload_len, uint32_t type, size_t total = 12);
// `msg` as the session's envelope frames it: TLV under `mask`, IDR without one.
Bytes frame_of(tarvik_cookie *c, const void *msg, const void *mask = nullptr);
// A type-0 (or any header-only) map with every header field but the attachment list.
tlk_base_tlvmap header_mask();
// The two words of the last listen mask (option 1) the session sent; {0xdead, 0xdead} if none.
std::pair<uint32_t, uint32_t> sent_listen_mask(const tarsim::Kernel &kernel, int fd);
// The bytes of the last message a session wrote to the kernel (empty if none), and how many
// were written.  Both need kernel.record.
Bytes last_sent(const tarsim::Kernel &kernel);
size_t sent_count(const tarsim::Kernel &kernel);
// Runs a session's event processing until its socket is empty.
void drain(tarvik_cookie *session);
// Fails the n-th message block (identifier 75) the library asks for from now, 1 being the next,
// then steps aside.
void fail_msg_block(int n);

// Captures what the library sends to the system log, to stderr and to exit, through the seam.
// While installed, a level 4 line does not end the process: the exit is recorded and the library
// goes on as a process that survived it.
class OsCapture {
 public:
  struct Line {
    int priority;
    std::string text;
  };
  OsCapture();
  ~OsCapture();
  OsCapture(const OsCapture &) = delete;
  OsCapture &operator=(const OsCapture &) = delete;

  std::vector<Line> syslog;
  std::vector<std::string> stderr_lines;
  std::vector<int> exits;

 private:
  tlk_platform previous_;
};

// Lines that reach a session's diagnostics callback.
struct ErrLog {
  struct Line {
    int level;
    std::string text;
  };
  std::vector<Line> lines;
  static void callback(tarvik_cookie *cookie, void *arg, int level, const char *text);
  size_t count(int level) const;
  bool contains(const std::string &needle) const;
};

// Outstanding block counts per memory identifier, for the leak check.
std::array<int32_t, MEMID_TARVIK_MAX> outstanding();

// The base fixture: accounting on, a fresh simulated kernel, captured OS output, and at the end
// every outstanding count back where it started.
class SimTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // A connected session whose diagnostics go to `log`.
  tarvik_cookie *open_session(uint32_t sender = 7);
  // Checks that `n` blocks of `memid` are outstanding since the start, and accepts them: for the
  // paths that deliberately leave blocks behind.
  void expect_abandoned(unsigned memid, int32_t n);

  tarsim::Kernel kernel;
  OsCapture os;
  ErrLog log;

 private:
  std::array<int32_t, MEMID_TARVIK_MAX> start_{};
};

// A SimTest with one connected session, `c`, closed before the leak check.
class OneSessionTest : public SimTest {
 protected:
  void SetUp() override {
    SimTest::SetUp();
    c = open_session();
    ASSERT_NE(c, nullptr);
  }
  void TearDown() override {
    tarvik_close(c);
    SimTest::TearDown();
  }
  // The last framed request the kernel recorded, decoded (released by the caller with
  // tarvik_msg_idl_release); NULL if there is none or it doesn't decode.  Needs kernel.record.
  void *last_framed_request();
  // The same as a T, released when it goes out of scope.
  template <class T>
  std::unique_ptr<T, std::function<void(T *)>> last_request_as() {
    tarvik_cookie *cookie = c;
    return {static_cast<T *>(last_framed_request()),
            [cookie](T *m) { tarvik_msg_idl_release(cookie, m, nullptr); }};
  }
  tarvik_cookie *c = nullptr;
};

}  // namespace tlktest
