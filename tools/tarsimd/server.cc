// tarsimd's service: one simulated kernel, many processes.  See server.h and
// sim/remote_wire.h.
#include "server.h"

#include <errno.h>
#include <malloc.h>
#include <stdio.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <limits>

#include "core.h"
#include "remote_wire.h"

namespace tarsimd {
namespace {

using tarsim::internal::Core;
using tarsim::internal::Session;
namespace remote = tarsim::remote;

// A listener's epoll tag; connections are tagged with their number, which starts at 1.
constexpr uint64_t kListenTag = 0;
constexpr int kMaxMib = 24;
constexpr uint32_t kMaxRoom = 16u << 20;

int32_t load_i32(const uint8_t *p) {
  int32_t v;
  memcpy(&v, p, sizeof v);
  return v;
}

}  // namespace

Server::Server(tarsim::Kernel &kernel, Log log) : kernel_(kernel), log_(log), buf_(1 << 18) {
  epoll_fd_ = ::epoll_create1(EPOLL_CLOEXEC);
}

Server::~Server() {
  while (!conns_.empty()) drop(conns_.begin()->first);
  if (listen_fd_ >= 0) ::close(listen_fd_);
  if (epoll_fd_ >= 0) ::close(epoll_fd_);
}

int Server::listen(const char *path) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path == nullptr || strlen(path) >= sizeof addr.sun_path) return ENAMETOOLONG;
  strcpy(addr.sun_path, path);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (fd < 0) return errno;
  ::unlink(path);
  if (::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 || ::listen(fd, 128) != 0) {
    const int err = errno;
    ::close(fd);
    return err;
  }
  listen_fd_ = fd;
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = kListenTag;
  ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &ev);
  return 0;
}

int Server::adopt(int fd, pid_t pid) {
  const int id = next_conn_++;
  Conn &c = conns_[id];
  c.fd = fd;
  c.pid = pid;
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = static_cast<uint64_t>(id);
  ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &ev);
  return id;
}

void Server::close_session(Conn &c, int session) {
  Core *core = Core::active();
  Session *s = core->find(session);
  if (log_ != nullptr && s != nullptr) {
    char line[160];
    snprintf(line, sizeof line, "tarsimd: session %d closed (pid %d, %llu requests, %llu replies)",
             session, static_cast<int>(c.pid), static_cast<unsigned long long>(s->requests),
             static_cast<unsigned long long>(s->replies));
    log_(line);
  }
  core->close_session(session);
  c.sessions.erase(session);
}

void Server::drop(int conn) {
  auto it = conns_.find(conn);
  if (it == conns_.end()) return;
  Conn &c = it->second;
  while (!c.sessions.empty()) close_session(c, *c.sessions.begin());
  ::epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, c.fd, nullptr);
  ::close(c.fd);
  conns_.erase(it);
}

bool Server::answer(Conn &c, int32_t result, int32_t err, const void *body, size_t length,
                    uint64_t size, int pass_fd) {
  Core *core = Core::active();
  remote::Answer a{};
  a.result = result;
  a.err = result < 0 ? err : 0;
  a.size = size;
  a.length = static_cast<uint32_t>(length);
  if (core->faults.read_errno != 0 && !c.sessions.empty()) {
    a.read_errno = core->faults.read_errno;
    a.read_after = core->faults.read_errno_after;
    core->faults.read_errno = 0;
    core->faults.read_errno_after = 0;
  }
  iovec iov[2] = {{&a, sizeof a}, {const_cast<void *>(body), length}};
  msghdr m{};
  m.msg_iov = iov;
  m.msg_iovlen = length > 0 ? 2 : 1;
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  if (pass_fd >= 0) {
    m.msg_control = control;
    m.msg_controllen = sizeof control;
    cmsghdr *cm = CMSG_FIRSTHDR(&m);
    cm->cmsg_level = SOL_SOCKET;
    cm->cmsg_type = SCM_RIGHTS;
    cm->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(cm), &pass_fd, sizeof pass_fd);
  }
  // A process waits for each answer, so its socket has room; one that has none is not
  // listening, and is dropped rather than waited for.
  const ssize_t n = ::sendmsg(c.fd, &m, MSG_DONTWAIT | MSG_NOSIGNAL);
  return n == static_cast<ssize_t>(sizeof a + length);
}

bool Server::serve(Conn &c, const uint8_t *bytes, size_t length) {
  Core *core = Core::active();
  remote::Call call;
  memcpy(&call, bytes, sizeof call);
  const uint8_t *body = bytes + sizeof call;
  const size_t n = length - sizeof call;
  ++calls_;
  Session *s = nullptr;
  const bool names_session = call.op != remote::kOpen && call.op != remote::kSysctlName &&
                             call.op != remote::kSysctlMib && call.op != remote::kWait &&
                             call.op != remote::kFault && call.op != remote::kStats;
  if (names_session) {
    if (c.sessions.count(call.session) == 0 || (s = core->find(call.session)) == nullptr) {
      return answer(c, -1, EBADF, nullptr, 0);
    }
  }
  errno = 0;
  switch (call.op) {
    case remote::kOpen: {
      const int id = core->open_session();
      if (id < 0) return answer(c, -1, errno, nullptr, 0);
      c.sessions.insert(id);
      if (log_ != nullptr) {
        char line[96];
        snprintf(line, sizeof line, "tarsimd: session %d opened (pid %d)", id,
                 static_cast<int>(c.pid));
        log_(line);
      }
      return answer(c, id, 0, nullptr, 0, 0, id);
    }
    case remote::kClose:
      close_session(c, call.session);
      return answer(c, 0, 0, nullptr, 0);
    case remote::kWrite: {
      static const uint8_t kNothing = 0;
      const ssize_t r = core->take_write(*s, n > 0 ? body : &kNothing, n);
      return answer(c, static_cast<int32_t>(r), errno, nullptr, 0);
    }
    case remote::kGetOption: {
      if (n != sizeof(uint32_t)) return answer(c, -1, EINVAL, nullptr, 0);
      const uint32_t room = std::min<uint32_t>(static_cast<uint32_t>(load_i32(body)), 1u << 16);
      tarsim::Bytes value(std::max<uint32_t>(room, 1));
      socklen_t len = room;
      const int r = core->get_option(*s, call.a, call.b, room > 0 ? value.data() : nullptr, &len);
      return answer(c, r, errno, value.data(), r == 0 ? std::min<size_t>(len, room) : 0);
    }
    case remote::kSetOption: {
      const int r =
          core->set_option(*s, call.a, call.b, n > 0 ? body : nullptr, static_cast<socklen_t>(n));
      return answer(c, r, errno, nullptr, 0);
    }
    case remote::kFcntl: {
      const int err = core->fcntl_fault(call.a);
      return answer(c, err != 0 ? -1 : 0, err, nullptr, 0);
    }
    case remote::kSysctlName:
    case remote::kSysctlMib: {
      if (call.a < -1 || static_cast<uint32_t>(std::max(call.a, 0)) > kMaxRoom || call.b < 0)
        return answer(c, -1, EINVAL, nullptr, 0);
      size_t head;
      if (call.op == remote::kSysctlName) {
        const void *end = memchr(body, 0, n);
        if (end == nullptr) return answer(c, -1, EINVAL, nullptr, 0);
        head = static_cast<size_t>(static_cast<const uint8_t *>(end) - body) + 1;
      } else {
        if (call.b > kMaxMib || n < static_cast<size_t>(call.b) * sizeof(int))
          return answer(c, -1, EINVAL, nullptr, 0);
        head = static_cast<size_t>(call.b) * sizeof(int);
      }
      const uint8_t *newp = n > head ? body + head : nullptr;
      tarsim::Bytes old(call.a > 0 ? static_cast<size_t>(call.a) : 1);
      size_t oldlen = call.a >= 0 ? static_cast<size_t>(call.a) : 0;
      void *oldp = call.a >= 0 ? old.data() : nullptr;
      int r;
      if (call.op == remote::kSysctlName) {
        r = core->sysctl_by_name(reinterpret_cast<const char *>(body), oldp, &oldlen, newp,
                                 n - head);
      } else {
        std::vector<int> mib(static_cast<size_t>(call.b));
        if (!mib.empty()) memcpy(mib.data(), body, head);
        r = core->sysctl_by_mib(mib.data(), static_cast<unsigned>(call.b), oldp, &oldlen, newp,
                                n - head);
      }
      const int err = errno;
      const size_t back = oldp != nullptr ? std::min(oldlen, old.size()) : 0;
      return answer(c, r, err, old.data(), (r == 0 || err == ENOMEM) ? back : 0, oldlen);
    }
    case remote::kWait: {
      // The counting of the in-process kernel's select and usleep (waits.cc), for the sessions
      // of this process that the wait watches.
      std::vector<Session *> watched;
      for (size_t off = 0; off + sizeof(int32_t) <= n; off += sizeof(int32_t)) {
        const int id = load_i32(body + off);
        Session *w = c.sessions.count(id) ? core->find(id) : nullptr;
        if (w != nullptr) watched.push_back(w);
      }
      bool held = false;
      for (Session *w : watched) held = held || w->release_at.has_value();
      uint64_t count = 1;
      if (held && call.a == remote::kSelectForever) {
        count = std::numeric_limits<uint64_t>::max();
        for (Session *w : watched) {
          if (w->release_at) count = std::min(count, *w->release_at - w->waits);
        }
      }
      for (Session *w : watched) core->count_waits(*w, count);
      return answer(c, held ? 1 : 0, 0, nullptr, 0);
    }
    case remote::kFault: {
      if (n != sizeof(remote::FaultArgs)) return answer(c, -1, EINVAL, nullptr, 0);
      remote::FaultArgs f;
      memcpy(&f, body, sizeof f);
      const int err = static_cast<int>(f.x);
      switch (call.a) {
        case remote::kFaultClear:
          kernel_.clear_faults();
          break;
        case remote::kFaultSocket:
          kernel_.fail_socket(call.b);
          break;
        case remote::kFaultFcntl:
          kernel_.fail_fcntl(call.b, err);
          break;
        case remote::kFaultOption:
          kernel_.fail_option(call.b, static_cast<int>(f.x), static_cast<int>(f.y));
          break;
        case remote::kFaultClearOption:
          kernel_.clear_option_failure(call.b, static_cast<int>(f.x));
          break;
        case remote::kFaultWriteErrno:
          kernel_.inject_write_errno(call.b);
          break;
        case remote::kFaultShortWrite:
          kernel_.inject_short_write(static_cast<size_t>(f.x));
          break;
        case remote::kFaultReadErrno:
          kernel_.inject_read_errno(call.b, static_cast<unsigned>(f.x));
          break;
        case remote::kFaultReplyTruncate:
          kernel_.inject_reply_truncate(static_cast<size_t>(f.x));
          break;
        case remote::kFaultReplyExtra:
          kernel_.inject_reply_extra(static_cast<size_t>(f.x));
          break;
        case remote::kFaultWrongSeq:
          kernel_.inject_wrong_seq(static_cast<uint32_t>(f.x));
          break;
        case remote::kFaultBulkStop:
          kernel_.inject_bulk_stop(static_cast<unsigned>(f.x), call.b);
          break;
        default:
          return answer(c, -1, EINVAL, nullptr, 0);
      }
      return answer(c, 0, 0, nullptr, 0);
    }
    case remote::kStats: {
      remote::Stats st{};
      st.sessions = core->open_sessions();
      st.connections = conns_.size();
      st.calls = calls_;
      st.heap_bytes = mallinfo2().uordblks;
      return answer(c, 0, 0, &st, sizeof st);
    }
    default:
      return false;
  }
}

bool Server::feed(int conn, const uint8_t *data, size_t length) {
  auto it = conns_.find(conn);
  if (it == conns_.end()) return false;
  Conn &c = it->second;
  // Whole calls are served straight from `data`; a partial one waits in c.in.
  size_t off = 0;
  bool ok = true;
  const auto take = [&](const uint8_t *p, size_t avail, size_t *used) {
    *used = 0;
    if (avail < sizeof(remote::Call)) return true;
    remote::Call call;
    memcpy(&call, p, sizeof call);
    if (call.op < remote::kOpen || call.op > remote::kLastOp || call.length > remote::kMaxBody)
      return false;  // not our conversation: the connection goes
    const size_t whole = sizeof call + call.length;
    if (avail < whole) return true;
    *used = whole;
    return serve(c, p, whole);
  };
  if (!c.in.empty()) {
    // Complete the waiting call first.
    c.in.insert(c.in.end(), data, data + length);
    size_t used;
    size_t start = 0;
    do {
      ok = take(c.in.data() + start, c.in.size() - start, &used);
      start += used;
    } while (ok && used > 0);
    if (ok) c.in.erase(c.in.begin(), c.in.begin() + static_cast<std::ptrdiff_t>(start));
  } else {
    size_t used;
    do {
      ok = take(data + off, length - off, &used);
      off += used;
    } while (ok && used > 0);
    if (ok && off < length) c.in.assign(data + off, data + length);
  }
  if (!ok) drop(conn);
  return ok;
}

bool Server::read_from(int conn) {
  auto it = conns_.find(conn);
  if (it == conns_.end()) return false;
  const ssize_t n = ::recv(it->second.fd, buf_.data(), buf_.size(), MSG_DONTWAIT);
  if (n < 0 && (errno == EAGAIN || errno == EINTR)) return true;
  if (n <= 0) {
    drop(conn);  // gone, perhaps in the middle of a call: only its own sessions pay
    return false;
  }
  return feed(conn, buf_.data(), static_cast<size_t>(n));
}

bool Server::flush() {
  Core *core = Core::active();
  bool waiting = false;
  for (auto &entry : core->notify_state) waiting = waiting || !entry.second.ends.empty();
  if (!waiting) return false;
  core->flush();
  for (auto &entry : core->notify_state) {
    if (!entry.second.ends.empty()) return true;
  }
  return false;
}

int Server::run(int stop_fd) {
  epoll_event stop{};
  stop.events = EPOLLIN;
  stop.data.u64 = std::numeric_limits<uint64_t>::max();
  ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, stop_fd, &stop);
  epoll_event events[64];
  bool waiting = false;
  for (;;) {
    // Notifications held back by a full listener are retried every millisecond.
    const int n = ::epoll_wait(epoll_fd_, events, 64, waiting ? 1 : -1);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return errno;
    for (int i = 0; i < n; ++i) {
      const uint64_t tag = events[i].data.u64;
      if (tag == stop.data.u64) return 0;
      if (tag == kListenTag) {
        const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) continue;
        ucred cred{};
        socklen_t len = sizeof cred;
        ::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &cred, &len);
        adopt(fd, cred.pid);
        continue;
      }
      read_from(static_cast<int>(tag));
    }
    waiting = flush();
  }
}

}  // namespace tarsimd
