// The library's own event loop (the host default behind the seam): callbacks per ready
// descriptor, sharing, deselection from callbacks, breaking, and synchronous signal handling.
#include <errno.h>
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <vector>

#include "tarlink.h"
#include "tarlink_platform.h"

namespace {

struct Pipe {
  int rd = -1, wr = -1;
  Pipe() {
    int p[2];
    if (::pipe(p) == 0) {
      rd = p[0];
      wr = p[1];
    }
  }
  ~Pipe() {
    ::close(rd);
    ::close(wr);
  }
  void poke() { (void)!::write(wr, "x", 1); }
};

struct Seen {
  std::vector<std::pair<int, int>> calls;  // descriptor and mask
  int break_after = 0;
};

void record_cb(evContext ctx, void *uap, int fd, int mask) {
  auto *s = static_cast<Seen *>(uap);
  s->calls.emplace_back(fd, mask);
  if (s->break_after && static_cast<int>(s->calls.size()) >= s->break_after) tlk_ev_break(ctx);
}

class EvTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(tlk_ev_create(&ctx), 0); }
  void TearDown() override { EXPECT_EQ(tlk_ev_destroy(ctx), 0); }
  evContext ctx{};
};

TEST_F(EvTest, CallsBackOnlyForReadyDescriptorsInSelectionOrder) {
  Pipe a, b, c, d;
  Seen seen, elsewhere;
  evFileID ia{}, ib{}, ic{}, id{};
  ASSERT_EQ(tlk_ev_select_fd(ctx, a.rd, TLK_EV_READ, record_cb, &seen, &ia), 0);
  ASSERT_EQ(tlk_ev_select_fd(ctx, b.rd, TLK_EV_READ, record_cb, &seen, &ib), 0);
  ASSERT_EQ(tlk_ev_select_fd(ctx, c.rd, TLK_EV_READ, record_cb, &seen, &ic), 0);
  // A second context is independent: its ready descriptor waits for its own loop.
  evContext other{};
  ASSERT_EQ(tlk_ev_create(&other), 0);
  ASSERT_EQ(tlk_ev_select_fd(other, d.rd, TLK_EV_READ, record_cb, &elsewhere, &id), 0);
  c.poke();
  a.poke();
  d.poke();
  seen.break_after = 2;
  EXPECT_EQ(tlk_ev_main_loop(ctx), 0);
  EXPECT_EQ(seen.calls,
            (std::vector<std::pair<int, int>>{{a.rd, TLK_EV_READ}, {c.rd, TLK_EV_READ}}));
  EXPECT_TRUE(elsewhere.calls.empty());
  elsewhere.break_after = 1;
  EXPECT_EQ(tlk_ev_main_loop(other), 0);
  EXPECT_EQ(elsewhere.calls.size(), 1u);
  EXPECT_EQ(tlk_ev_deselect_fd(other, id), 0);
  EXPECT_EQ(tlk_ev_destroy(other), 0);
  // A break before a run stops the next run at once, though a and c are still readable.
  ASSERT_EQ(tlk_ev_break(ctx), 0);
  EXPECT_EQ(tlk_ev_main_loop(ctx), 0);
  EXPECT_EQ(seen.calls.size(), 2u);
  EXPECT_EQ(tlk_ev_deselect_fd(ctx, ia), 0);
  EXPECT_EQ(tlk_ev_deselect_fd(ctx, ib), 0);
  EXPECT_EQ(tlk_ev_deselect_fd(ctx, ic), 0);
  EXPECT_EQ(tlk_ev_main_loop(ctx), 0);  // nothing watched: returns at once
}

struct SelfRemover {
  evFileID self{};
  evFileID other{};
  int calls = 0;
  int destroy_result = 0, destroy_err = 0;
};

// Tries to destroy the running loop's context, then removes both watches.
void remove_both_cb(evContext ctx, void *uap, int, int) {
  auto *s = static_cast<SelfRemover *>(uap);
  ++s->calls;
  s->destroy_result = tlk_ev_destroy(ctx);
  s->destroy_err = errno;
  EXPECT_EQ(tlk_ev_deselect_fd(ctx, s->self), 0);
  EXPECT_EQ(tlk_ev_deselect_fd(ctx, s->other), 0);
}

TEST_F(EvTest, DeselectFromCallbackStopsFurtherCallsAndEndsAnEmptyLoop) {
  Pipe a, b;
  SelfRemover first, second;
  ASSERT_EQ(tlk_ev_select_fd(ctx, a.rd, TLK_EV_READ, remove_both_cb, &first, &first.self), 0);
  ASSERT_EQ(tlk_ev_select_fd(ctx, b.rd, TLK_EV_READ, remove_both_cb, &second, &second.self), 0);
  first.other = second.self;
  a.poke();
  b.poke();
  // The first callback removes both watches: the second never runs, and with nothing left to
  // watch the loop ends by itself.
  EXPECT_EQ(tlk_ev_main_loop(ctx), 0);
  EXPECT_EQ(first.calls, 1);
  EXPECT_EQ(second.calls, 0);
  EXPECT_EQ(first.destroy_result, -1) << "destroyed from inside its own loop";
  EXPECT_EQ(first.destroy_err, EBUSY);
  errno = 0;
  EXPECT_EQ(tlk_ev_deselect_fd(ctx, first.self), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(EvTest, RefusesBadArguments) {
  evFileID id{};
  EXPECT_EQ(tlk_ev_select_fd(ctx, -1, TLK_EV_READ, record_cb, nullptr, &id), -1);
  EXPECT_EQ(tlk_ev_select_fd(ctx, 0, 0, record_cb, nullptr, &id), -1);
  EXPECT_EQ(tlk_ev_select_fd(ctx, 0, TLK_EV_READ, nullptr, nullptr, &id), -1);
  EXPECT_EQ(tlk_ev_select_fd(evContext{}, 0, TLK_EV_READ, record_cb, nullptr, &id), -1);
  EXPECT_EQ(tlk_ev_main_loop(evContext{}), -1);
  EXPECT_EQ(tlk_ev_deselect_fd(ctx, evFileID{}), -1);
  EXPECT_EQ(tlk_ev_create(nullptr), -1);
}

// Synchronous signal handling: a signal raised inside a callback is held back until the callback
// returns, then its handler runs before the next callback.
volatile sig_atomic_t g_handled = 0;
evContext g_sig_ctx{};
void on_usr1(int) {
  g_handled = 1;
  tlk_ev_break(g_sig_ctx);
}

struct SigProbe {
  int calls = 0;
  int handled_during_callback = -1;
};

void raise_cb(evContext, void *uap, int, int) {
  auto *p = static_cast<SigProbe *>(uap);
  ++p->calls;
  ::raise(SIGUSR1);
  p->handled_during_callback = g_handled;
}

// The synchronous loop holds a signal raised in a callback until the callback returns; the plain
// loop lets it in at once.
TEST_F(EvTest, SignalsRunBetweenCallbacksOnlyInTheSighdlLoop) {
  const struct {
    const char *name;
    int (*loop)(evContext);
    int handled_during_callback;
  } loops[] = {{"sighdl", tlk_platform_get()->evMainLoopSyncSighdl, 0},
               {"plain", tlk_ev_main_loop, 1}};
  struct sigaction sa = {}, old = {};
  sa.sa_handler = on_usr1;
  sigemptyset(&sa.sa_mask);
  ASSERT_EQ(sigaction(SIGUSR1, &sa, &old), 0);
  for (const auto &l : loops) {
    SCOPED_TRACE(l.name);
    g_handled = 0;
    g_sig_ctx = ctx;
    Pipe a;
    SigProbe probe;
    evFileID id{};
    ASSERT_EQ(tlk_ev_select_fd(ctx, a.rd, TLK_EV_READ, raise_cb, &probe, &id), 0);
    a.poke();  // stays readable: only the handler's break ends the loop
    EXPECT_EQ(l.loop(ctx), 0);
    EXPECT_EQ(probe.calls, 1);
    EXPECT_EQ(probe.handled_during_callback, l.handled_during_callback);
    EXPECT_EQ(g_handled, 1);
    // Outside the loop the signal mask is as it was.
    sigset_t now;
    sigprocmask(SIG_BLOCK, nullptr, &now);
    EXPECT_FALSE(sigismember(&now, SIGUSR1));
    EXPECT_EQ(tlk_ev_deselect_fd(ctx, id), 0);
  }
  sigaction(SIGUSR1, &old, nullptr);
}

}  // namespace
