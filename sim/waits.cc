// The simulated kernel's wait model: the seam's select and usleep come here.  The kernel counts
// the waits of each session and can keep a session's queue back until it has waited a number of
// times, as a real kernel takes its time over a statistics read.  See the Waits section of
// tarsim/kernel.hpp for the contract.
#include <sys/select.h>

#include <algorithm>
#include <limits>

#include "core.h"

namespace tarsim {
namespace internal {

bool Core::hold(Session &s, unsigned waits) {
  if (waits == 0) {
    release_held(s);
  } else {
    s.release_at = s.waits + waits;
  }
  return true;
}

void Core::count_waits(Session &s, uint64_t n) {
  s.waits += n;
  if (s.release_at && s.waits >= *s.release_at) release_held(s);
}

void Core::release_held(Session &s) {
  s.release_at.reset();
  std::vector<Session::Held> held = std::move(s.held);
  s.held.clear();
  for (const Session::Held &h : held) {
    if (h.block) {
      send_block(s, h.bytes);
    } else {
      send_message(s, h.bytes);  // a full socket drops it, as it would have at once
    }
  }
}

int Core::select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds, timeval *timeout) {
  std::vector<Session *> watched;
  if (readfds != nullptr) {
    for (const auto &p : by_fd) {
      if (p && p->lib_fd < nfds && FD_ISSET(p->lib_fd, readfds)) watched.push_back(p.get());
    }
  }
  bool held = false;
  for (Session *s : watched) held = held || s->release_at.has_value();
  if (!held) {
    for (Session *s : watched) count_waits(*s, 1);
    return previous.select(nfds, readfds, writefds, exceptfds, timeout);
  }
  // Held replies put the kernel in charge of time.  A select with a timeout is one wait; one
  // without waits as long as it takes, that is until the first watched session is released.
  uint64_t n = 1;
  if (timeout == nullptr) {
    n = std::numeric_limits<uint64_t>::max();
    for (Session *s : watched) {
      if (s->release_at) n = std::min(n, *s->release_at - s->waits);
    }
  }
  for (Session *s : watched) count_waits(*s, n);
  timeval now{};  // what is readable now: released replies, or nothing as the timeout passes
  return previous.select(nfds, readfds, writefds, exceptfds, &now);
}

int Core::usleep(unsigned usec) {
  bool held = false;
  for (const auto &p : by_fd) {
    if (!p) continue;
    held = held || p->release_at.has_value();
    count_waits(*p, 1);
  }
  if (held) return 0;  // the kernel is in charge of time: a sleep takes none
  return previous.usleep(usec);
}

}  // namespace internal

// --- The Kernel's functions of the waits --------------------------------------------------

bool Kernel::hold_replies(int fd, unsigned waits) {
  internal::Session *s = impl_->find(fd);
  return s != nullptr && impl_->hold(*s, waits);
}

uint64_t Kernel::waits(int fd) const {
  const internal::Session *s = impl_->find(fd);
  return s ? s->waits : 0;
}

size_t Kernel::held(int fd) const {
  const internal::Session *s = impl_->find(fd);
  return s ? s->held.size() : 0;
}

}  // namespace tarsim
