// Helpers of the asynchronous tests: a recording handler, the three kinds of context, and one turn
// of a loop.
#pragma once

#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {

// What a handler saw: one entry per message, copied before the message is freed.
struct Heard {
  uint8_t type;
  uint8_t op;
  uint32_t seq;
  uint32_t msglen;
  tarsim::Bytes bytes;
};

struct Recorder {
  std::vector<Heard> heard;
  evContext break_ctx{};   // when set, every message breaks this loop
  size_t break_after = 0;  // ... once this many were heard (0: never)
  // The handler: records, then frees the message as a handler must.
  static int handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t word);
  std::vector<uint8_t> types() const;
};

enum class Kind { Own, Shared, NoContext };
std::string kind_name(Kind k);

// Makes a session asynchronous in the given kind.  For Shared, `shared` must be a live context.
int make_async(tarvik_cookie *cookie, Kind kind, evContext shared);

// Lets the session process what is queued: for the loop kinds, one turn of the loop (the session's
// callback runs, then a marker watch breaks the loop); for NoContext, one call of
// tarvik_async_event_process.  Returns that call's result for NoContext, 0 otherwise.
int drive(tarvik_cookie *cookie, Kind kind);

// The blocks that the teardown leaves allocated on purpose (a slot at type 110, the entry table
// of a subtype slot), kept reachable here so that the sanitizer's leak check sees them as kept,
// while the library's own accounting counts them through SimTest::expect_abandoned.
void keep_abandoned(tarvik_cookie *cookie);

// A raw notification of `type`, `op`, sequence 0 (the kernel stamps its own), `body` bytes.
tarsim::Bytes raw_note(uint8_t type, uint8_t op = TLK_OP_ADD, size_t body = 8, uint8_t fill = 0x11);

// One open session, `c` on socket `fd`, and a context `shared` of the caller's (made by
// join_shared), destroyed after the session is closed and before the leak check.
class AsyncTest : public SimTest {
 protected:
  void SetUp() override;
  void TearDown() override;
  // Makes the session asynchronous without a context, or in `shared`.
  void nocontext() { ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0); }
  void join_shared();
  // Closes the session now and accepts the `n` registration blocks its teardown leaves behind.
  void close_abandoning(int32_t n);
  // A raw message carrying the sequence number the session expects `ahead` messages on.
  Bytes raw(uint8_t type, size_t body = 8, uint32_t ahead = 0, uint8_t op = TLK_OP_ADD) {
    return tarsim::raw_message(type, op, c->seq + ahead, Bytes(body, type));
  }
  tarvik_cookie *c = nullptr;
  int fd = -1;
  evContext shared{};
  Recorder r;
};

}  // namespace tlktest
