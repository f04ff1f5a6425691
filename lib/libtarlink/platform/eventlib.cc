// The library's own event loop on poll(2).  See eventlib.h.
//
// A context is a list of watched descriptors.  Each turn of the loop polls all of them, then calls
// the callback of every one that is ready, in the order they were selected.  Callbacks may select
// and deselect freely: a deselected entry is only marked while callbacks run and is removed at the
// start of the next turn, so the turn in progress never touches freed memory, and an entry
// deselected during the turn gets no further call in it.
#include "platform/eventlib.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>

#include <csignal>
#include <memory>
#include <new>
#include <vector>

namespace tlk::evlib {
namespace {

struct Watch {
  int fd;
  int eventmask;
  evFileFunc func;
  void *uap;
  bool dead = false;
};

struct Context {
  std::vector<std::unique_ptr<Watch>> watches;
  volatile std::sig_atomic_t stop = 0;  // set by brk, possibly from a signal handler
  int running = 0;                      // nesting depth of main loops on this context
};

Context *ctx_of(evContext ctx) {
  return static_cast<Context *>(ctx.opaque);
}

short poll_events(int eventmask) {
  short ev = 0;
  if (eventmask & TLK_EV_READ) ev = static_cast<short>(ev | POLLIN);
  if (eventmask & TLK_EV_WRITE) ev = static_cast<short>(ev | POLLOUT);
  if (eventmask & TLK_EV_EXCEPT) ev = static_cast<short>(ev | POLLPRI);
  return ev;
}

// What a callback is told it saw.  A hung-up or failed descriptor counts as readable (a read then
// reports what happened), as select(2) would report it.
int seen_events(short revents, int eventmask) {
  int seen = 0;
  if (revents & (POLLIN | POLLHUP | POLLERR)) seen |= TLK_EV_READ;
  if (revents & POLLOUT) seen |= TLK_EV_WRITE;
  if (revents & POLLPRI) seen |= TLK_EV_EXCEPT;
  return seen & eventmask;
}

void sweep(Context &c) {
  std::erase_if(c.watches, [](const std::unique_ptr<Watch> &w) { return w->dead; });
}

// One loop; `wait_mask` is the signal mask of the caller, let through only between turns and in
// the wait, or null for the plain loop.
int run(evContext ctx, const sigset_t *wait_mask) {
  Context *c = ctx_of(ctx);
  if (c == nullptr) {
    errno = EINVAL;
    return -1;
  }
  ++c->running;
  std::vector<pollfd> fds;
  std::vector<Watch *> turn;
  int result = 0;
  for (;;) {
    if (wait_mask != nullptr) {
      // A window for the signals that arrived during the callbacks: ppoll alone would not deliver
      // them while some descriptor is ready, since it returns before it waits.
      sigset_t held;
      sigprocmask(SIG_SETMASK, wait_mask, &held);
      sigprocmask(SIG_SETMASK, &held, nullptr);
    }
    if (c->stop) {
      c->stop = 0;
      break;
    }
    sweep(*c);
    if (c->watches.empty()) break;  // nothing could ever wake us
    fds.clear();
    turn.clear();
    for (const auto &w : c->watches) {
      fds.push_back({w->fd, poll_events(w->eventmask), 0});
      turn.push_back(w.get());
    }
    const int n = wait_mask ? ::ppoll(fds.data(), fds.size(), nullptr, wait_mask)
                            : ::poll(fds.data(), fds.size(), -1);
    if (n < 0) {
      if (errno == EINTR) continue;  // a handler ran; it may have asked us to stop
      result = -1;
      break;
    }
    for (size_t i = 0; i < fds.size() && !c->stop; ++i) {
      Watch *w = turn[i];
      if (w->dead) continue;
      if (fds[i].revents & POLLNVAL) {
        w->dead = true;  // closed under us: never spin on it
        continue;
      }
      const int seen = seen_events(fds[i].revents, w->eventmask);
      if (seen != 0) w->func(ctx, w->uap, w->fd, seen);
    }
  }
  --c->running;
  if (c->running == 0) sweep(*c);
  return result;
}

}  // namespace

int create(evContext *ctx) {
  if (ctx == nullptr) {
    errno = EINVAL;
    return -1;
  }
  auto *c = new (std::nothrow) Context();
  if (c == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  ctx->opaque = c;
  return 0;
}

int select_fd(evContext ctx, int fd, int eventmask, evFileFunc func, void *uap, evFileID *id) {
  Context *c = ctx_of(ctx);
  if (c == nullptr || fd < 0 || func == nullptr ||
      (eventmask & ~(TLK_EV_READ | TLK_EV_WRITE | TLK_EV_EXCEPT)) || eventmask == 0) {
    errno = EINVAL;
    return -1;
  }
  auto w = std::unique_ptr<Watch>(new (std::nothrow) Watch{fd, eventmask, func, uap});
  if (!w) {
    errno = ENOMEM;
    return -1;
  }
  if (id != nullptr) id->opaque = w.get();
  c->watches.push_back(std::move(w));
  return 0;
}

int deselect_fd(evContext ctx, evFileID id) {
  Context *c = ctx_of(ctx);
  if (c == nullptr || id.opaque == nullptr) {
    errno = EINVAL;
    return -1;
  }
  for (const auto &w : c->watches) {
    if (w.get() == id.opaque && !w->dead) {
      w->dead = true;
      if (c->running == 0) sweep(*c);
      return 0;
    }
  }
  errno = ENOENT;
  return -1;
}

int main_loop(evContext ctx) {
  return run(ctx, nullptr);
}

// Signals are held back while callbacks run and let through only inside the wait, so a handler
// runs between two callbacks, never in the middle of one.  The faults that a program raises on
// itself (a bad access, a trap) stay deliverable: holding them back would hang the process.
int main_loop_sync_sighdl(evContext ctx) {
  sigset_t all, outside;
  sigfillset(&all);
  for (int sig : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) sigdelset(&all, sig);
  if (sigprocmask(SIG_BLOCK, &all, &outside) < 0) return -1;
  const int result = run(ctx, &outside);
  const int saved = errno;
  sigprocmask(SIG_SETMASK, &outside, nullptr);
  errno = saved;
  return result;
}

int destroy(evContext ctx) {
  Context *c = ctx_of(ctx);
  if (c == nullptr || c->running != 0) {
    errno = c == nullptr ? EINVAL : EBUSY;
    return -1;
  }
  delete c;
  return 0;
}

int brk(evContext ctx) {
  Context *c = ctx_of(ctx);
  if (c == nullptr) {
    errno = EINVAL;
    return -1;
  }
  c->stop = 1;
  return 0;
}

}  // namespace tlk::evlib

extern "C" {

TLK_EXPORT int tlk_ev_create(evContext *ctx) {
  return tlk_platform_get()->evCreate(ctx);
}
TLK_EXPORT int tlk_ev_destroy(evContext ctx) {
  return tlk_platform_get()->evDestroy(ctx);
}
TLK_EXPORT int tlk_ev_select_fd(evContext ctx, int fd, int eventmask, evFileFunc func, void *uap,
                                evFileID *id) {
  return tlk_platform_get()->evSelectFD(ctx, fd, eventmask, func, uap, id);
}
TLK_EXPORT int tlk_ev_deselect_fd(evContext ctx, evFileID id) {
  return tlk_platform_get()->evDeselectFD(ctx, id);
}
TLK_EXPORT int tlk_ev_main_loop(evContext ctx) {
  return tlk_platform_get()->evMainLoop(ctx);
}
TLK_EXPORT int tlk_ev_break(evContext ctx) {
  return tlk_platform_get()->evBreak(ctx);
}

}  // extern "C"
