// The process's side of tarsimd: a platform table that sends the library's routing sockets, their
// options and writes, system controls and waits to the daemon over one connection, while reads
// stay local on the session's descriptor, which the daemon passed over.  See remote_wire.h.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <mutex>
#include <string>
#include <vector>

#include "remote_wire.h"
#include "tarsim.h"
#include "tarsim/remote.hpp"

namespace tarsim {
namespace internal {

bool remote_link_active();

namespace {

using remote::Answer;
using remote::Call;

struct Link {
  int sock = -1;
  std::string path;
  tlk_platform previous{};
  std::mutex mu;             // one call at a time, whichever thread makes it
  std::vector<int> session;  // by local descriptor: the daemon's name of it + 1, 0 when none
  int read_errno = 0;        // a read fault handed over by the daemon
  uint32_t read_after = 0;
  bool lost = false;
};

Link *g_link = nullptr;

// The daemon went away: said once, and every later call fails the way a closed socket would.
int lose(Link &l) {
  if (!l.lost) {
    l.lost = true;
    fprintf(stderr, "tarsim: lost the simulated kernel at %s: the daemon has gone away\n",
            l.path.c_str());
  }
  return ECONNRESET;
}

bool send_all(int fd, iovec *iov, int count) {
  msghdr m{};
  m.msg_iov = iov;
  m.msg_iovlen = static_cast<size_t>(count);
  while (m.msg_iovlen > 0) {
    const ssize_t n = ::sendmsg(fd, &m, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    size_t left = static_cast<size_t>(n);
    while (m.msg_iovlen > 0 && left >= m.msg_iov->iov_len) {
      left -= m.msg_iov->iov_len;
      ++m.msg_iov;
      --m.msg_iovlen;
    }
    if (m.msg_iovlen > 0) {
      m.msg_iov->iov_base = static_cast<uint8_t *>(m.msg_iov->iov_base) + left;
      m.msg_iov->iov_len -= left;
    }
  }
  return true;
}

// Reads exactly `len` bytes; a descriptor passed along with them lands in *fd.
bool recv_all(int sock, void *buf, size_t len, int *fd) {
  auto *p = static_cast<uint8_t *>(buf);
  while (len > 0) {
    iovec iov{p, len};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr m{};
    m.msg_iov = &iov;
    m.msg_iovlen = 1;
    m.msg_control = control;
    m.msg_controllen = sizeof control;
    const ssize_t n = ::recvmsg(sock, &m, MSG_CMSG_CLOEXEC);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    for (cmsghdr *c = CMSG_FIRSTHDR(&m); c != nullptr; c = CMSG_NXTHDR(&m, c)) {
      if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
      int got;
      memcpy(&got, CMSG_DATA(c), sizeof got);
      if (fd != nullptr && *fd < 0) {
        *fd = got;
      } else {
        ::close(got);
      }
    }
    p += n;
    len -= static_cast<size_t>(n);
  }
  return true;
}

// One call and its answer.  Gives 0, or the errno of a lost daemon (*answer then says -1 too).
int call(Link &l, Call head, const void *body, size_t length, Answer *answer,
         std::vector<uint8_t> *out = nullptr, int *fd = nullptr, const void *body2 = nullptr,
         size_t length2 = 0) {
  std::lock_guard<std::mutex> lock(l.mu);
  *answer = Answer{};
  answer->result = -1;
  if (l.lost) return answer->err = ECONNRESET;
  head.length = static_cast<uint32_t>(length + length2);
  iovec iov[3] = {{&head, sizeof head},
                  {const_cast<void *>(body), length},
                  {const_cast<void *>(body2), length2}};
  if (!send_all(l.sock, iov, 3)) return answer->err = lose(l);
  if (!recv_all(l.sock, answer, sizeof *answer, fd)) return answer->err = lose(l);
  std::vector<uint8_t> scratch;
  std::vector<uint8_t> &bytes = out != nullptr ? *out : scratch;
  bytes.resize(answer->length);
  if (answer->length > 0 && !recv_all(l.sock, bytes.data(), answer->length, nullptr)) {
    *answer = Answer{};
    answer->result = -1;
    return answer->err = lose(l);
  }
  if (answer->read_errno != 0) {
    l.read_errno = answer->read_errno;
    l.read_after = answer->read_after;
  }
  return 0;
}

int session_of(int fd) {
  std::lock_guard<std::mutex> lock(g_link->mu);
  if (fd < 0 || static_cast<size_t>(fd) >= g_link->session.size()) return -1;
  return g_link->session[static_cast<size_t>(fd)] - 1;
}

// A call's result as a system call gives it: the result, with errno set when it is negative.
template <class T>
T result_of(const Answer &a) {
  if (a.result < 0) errno = a.err;
  return static_cast<T>(a.result);
}

int remote_socket(int domain, int type, int protocol) {
  if (domain != TLK_PF_ROUTE || type != TLK_SOCK_SEQPACKET || protocol != 0) {
    return g_link->previous.socket(domain, type, protocol);
  }
  Answer a;
  int fd = -1;
  if (call(*g_link, {remote::kOpen, -1, 0, 0, 0}, nullptr, 0, &a, nullptr, &fd) != 0 ||
      a.result < 0 || fd < 0) {
    if (fd >= 0) ::close(fd);
    errno = a.err != 0 ? a.err : EIO;
    return -1;
  }
  std::lock_guard<std::mutex> lock(g_link->mu);
  if (g_link->session.size() <= static_cast<size_t>(fd)) g_link->session.resize(fd + 1u);
  g_link->session[static_cast<size_t>(fd)] = a.result + 1;
  return fd;
}

ssize_t remote_read(int fd, void *buf, size_t len) {
  if (session_of(fd) < 0) return g_link->previous.read(fd, buf, len);
  {
    std::lock_guard<std::mutex> lock(g_link->mu);
    if (g_link->read_errno != 0) {
      if (g_link->read_after == 0) {
        errno = g_link->read_errno;
        g_link->read_errno = 0;
        return -1;
      }
      --g_link->read_after;
    }
  }
  const ssize_t n = g_link->previous.read(fd, buf, len);
  if (n == 0 && len > 0) {
    // The daemon closed its end: nothing more will ever come.
    std::lock_guard<std::mutex> lock(g_link->mu);
    errno = lose(*g_link);
    return -1;
  }
  return n;
}

ssize_t remote_write(int fd, const void *buf, size_t len) {
  const int s = session_of(fd);
  if (s < 0) return g_link->previous.write(fd, buf, len);
  Answer a;
  if (call(*g_link, {remote::kWrite, s, 0, 0, 0}, buf, len, &a) != 0) {
    errno = a.err;
    return -1;
  }
  return result_of<ssize_t>(a);
}

int remote_close(int fd) {
  const int s = session_of(fd);
  if (s < 0) return g_link->previous.close(fd);
  {
    std::lock_guard<std::mutex> lock(g_link->mu);
    g_link->session[static_cast<size_t>(fd)] = 0;
  }
  const int closed = g_link->previous.close(fd);
  Answer a;
  (void)call(*g_link, {remote::kClose, s, 0, 0, 0}, nullptr, 0, &a);
  return closed;
}

int remote_fcntl(int fd, int cmd, int arg) {
  const int s = session_of(fd);
  if (s >= 0) {
    Answer a;
    if (call(*g_link, {remote::kFcntl, s, cmd, 0, 0}, nullptr, 0, &a) != 0 || a.result < 0) {
      errno = a.err;
      return -1;
    }
  }
  return g_link->previous.fcntl(fd, cmd, arg);
}

int remote_getsockopt(int fd, int level, int name, void *value, socklen_t *len) {
  const int s = session_of(fd);
  if (s < 0) return g_link->previous.getsockopt(fd, level, name, value, len);
  const uint32_t room = len != nullptr ? *len : 0;
  Answer a;
  std::vector<uint8_t> out;
  if (call(*g_link, {remote::kGetOption, s, level, name, 0}, &room, sizeof room, &a, &out) != 0) {
    errno = a.err;
    return -1;
  }
  if (a.result < 0) return result_of<int>(a);
  if (value == nullptr || len == nullptr) {
    errno = EFAULT;
    return -1;
  }
  const size_t n = std::min<size_t>(*len, out.size());
  memcpy(value, out.data(), n);
  *len = static_cast<socklen_t>(n);
  return 0;
}

int remote_setsockopt(int fd, int level, int name, const void *value, socklen_t len) {
  const int s = session_of(fd);
  if (s < 0) return g_link->previous.setsockopt(fd, level, name, value, len);
  if (value == nullptr && len != 0) {
    errno = EFAULT;
    return -1;
  }
  Answer a;
  if (call(*g_link, {remote::kSetOption, s, level, name, 0}, value, len, &a) != 0) {
    errno = a.err;
    return -1;
  }
  return result_of<int>(a);
}

// Both system control forms: the control named by `key` (the MIB's numbers or the name with its
// end byte), asked of the daemon; what it gives back lands as sysctl(3) would put it.
int sysctl_call(uint32_t kind, int32_t key_word, const void *key, size_t key_len, void *oldp,
                size_t *oldlenp, const void *newp, size_t newlen) {
  if (key == nullptr || oldlenp == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (newp == nullptr) newlen = 0;
  const int32_t room =
      oldp == nullptr ? -1 : static_cast<int32_t>(std::min<size_t>(*oldlenp, 1u << 30));
  Answer a;
  std::vector<uint8_t> out;
  if (call(*g_link, {kind, -1, room, key_word, 0}, key, key_len, &a, &out, nullptr, newp, newlen) !=
      0) {
    errno = a.err;
    return -1;
  }
  if (a.result < 0 && a.err != ENOMEM) return result_of<int>(a);
  if (oldp != nullptr) memcpy(oldp, out.data(), std::min(out.size(), *oldlenp));
  *oldlenp = static_cast<size_t>(a.size);
  return result_of<int>(a);
}

int remote_sysctl(const int *name, unsigned namelen, void *oldp, size_t *oldlenp, const void *newp,
                  size_t newlen) {
  return sysctl_call(remote::kSysctlMib, static_cast<int32_t>(namelen), name, namelen * sizeof(int),
                     oldp, oldlenp, newp, newlen);
}

int remote_sysctlbyname(const char *name, void *oldp, size_t *oldlenp, const void *newp,
                        size_t newlen) {
  // The name's length is known from the name; the key word carries the new value's length.
  return sysctl_call(remote::kSysctlName, static_cast<int32_t>(newp != nullptr ? newlen : 0), name,
                     name != nullptr ? strlen(name) + 1 : 0, oldp, oldlenp, newp, newlen);
}

// The daemon counts a wait for each watched session and says whether any of them has replies
// kept back (the answer's result is then 1): the kernel is in charge of time, and the wait
// takes none.
bool held_after_wait(remote::WaitKind kind, const std::vector<int32_t> &sessions) {
  if (sessions.empty()) return false;
  Answer a;
  if (call(*g_link, {remote::kWait, -1, kind, 0, 0}, sessions.data(),
           sessions.size() * sizeof(int32_t), &a) != 0) {
    return false;
  }
  return a.result == 1;
}

int remote_select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                  timeval *timeout) {
  std::vector<int32_t> watched;
  if (readfds != nullptr) {
    for (int fd = 0; fd < nfds; ++fd) {
      const int s = FD_ISSET(fd, readfds) ? session_of(fd) : -1;
      if (s >= 0) watched.push_back(s);
    }
  }
  const auto kind = timeout == nullptr ? remote::kSelectForever : remote::kSelectTimed;
  if (held_after_wait(kind, watched)) {
    timeval now{};
    return g_link->previous.select(nfds, readfds, writefds, exceptfds, &now);
  }
  return g_link->previous.select(nfds, readfds, writefds, exceptfds, timeout);
}

int remote_usleep(unsigned usec) {
  std::vector<int32_t> mine;
  {
    std::lock_guard<std::mutex> lock(g_link->mu);
    for (int s : g_link->session) {
      if (s > 0) mine.push_back(s - 1);
    }
  }
  if (held_after_wait(remote::kSleep, mine)) return 0;
  return g_link->previous.usleep(usec);
}

int open_link(const char *path, int *sock) {
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  if (path == nullptr || strlen(path) >= sizeof addr.sun_path) return EINVAL;
  strcpy(addr.sun_path, path);
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return errno;
  if (::connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
    const int err = errno;
    ::close(fd);
    return err;
  }
  *sock = fd;
  return 0;
}

int fault(int kind, int arg, uint64_t x, uint64_t y) {
  if (g_link == nullptr) return ENOTCONN;
  if (kind < 0 || kind > remote::kFaultLast) return EINVAL;
  const remote::FaultArgs args{x, y};
  Answer a;
  if (const int err = call(*g_link, {remote::kFault, -1, kind, arg, 0}, &args, sizeof args, &a))
    return err;
  return a.result < 0 ? a.err : 0;
}

}  // namespace

bool remote_link_active() {
  return g_link != nullptr;
}

}  // namespace internal

using internal::g_link;

Remote::Remote(const char *path) : error_(tarsim_connect(path)) {}

Remote::~Remote() {
  if (error_ == 0) tarsim_disconnect();
}

int Remote::fault(int kind, int arg, uint64_t x, uint64_t y) {
  return internal::fault(kind, arg, x, y);
}

int Remote::stats(RemoteStats *out) {
  return tarsim_remote_stats(reinterpret_cast<tarsim_remote_stats_t *>(out));
}

}  // namespace tarsim

extern "C" {

int tarsim_connect(const char *path) {
  using namespace tarsim::internal;
  if (g_link != nullptr) return EBUSY;
  int sock = -1;
  if (const int err = open_link(path, &sock)) return err;
  auto *l = new Link;
  l->sock = sock;
  l->path = path;
  l->previous = *tlk_platform_get();
  g_link = l;
  tlk_platform table = l->previous;
  table.socket = remote_socket;
  table.read = remote_read;
  table.write = remote_write;
  table.close = remote_close;
  table.fcntl = remote_fcntl;
  table.getsockopt = remote_getsockopt;
  table.setsockopt = remote_setsockopt;
  table.sysctl = remote_sysctl;
  table.sysctlbyname = remote_sysctlbyname;
  table.select = remote_select;
  table.usleep = remote_usleep;
  tlk_platform_set(&table);
  return 0;
}

void tarsim_disconnect(void) {
  using namespace tarsim::internal;
  if (g_link == nullptr) return;
  tlk_platform_set(&g_link->previous);
  ::close(g_link->sock);  // the daemon closes whatever sessions are still open
  delete g_link;
  g_link = nullptr;
}

int tarsim_connected(void) {
  return tarsim::internal::g_link != nullptr && !tarsim::internal::g_link->lost;
}

int tarsim_remote_fault(int kind, int arg, uint64_t x, uint64_t y) {
  return tarsim::internal::fault(kind, arg, x, y);
}

int tarsim_remote_stats(tarsim_remote_stats_t *out) {
  using namespace tarsim::internal;
  if (out == nullptr) return EINVAL;
  if (g_link == nullptr) return ENOTCONN;
  std::vector<uint8_t> bytes;
  tarsim::remote::Answer a;
  if (const int err = call(*g_link, {tarsim::remote::kStats, -1, 0, 0, 0}, nullptr, 0, &a, &bytes))
    return err;
  if (a.result < 0 || bytes.size() != sizeof(tarsim::remote::Stats)) return EPROTO;
  tarsim::remote::Stats s;
  memcpy(&s, bytes.data(), sizeof s);
  out->sessions = s.sessions;
  out->connections = s.connections;
  out->calls = s.calls;
  out->heap_bytes = s.heap_bytes;
  return 0;
}

}  // extern "C"
