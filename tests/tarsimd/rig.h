// What the tarsimd tests share: a daemon started from the built binary on a socket of its own,
// and the few client steps they repeat (a route added and read back, a listener counting
// device notifications).
#pragma once

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tarlink.h"
#include "tarsim.hpp"

namespace tarsimd_rig {

inline std::string unique_path(const char *what) {
  return "/tmp/tarsimd-test-" + std::to_string(getpid()) + "-" + what;
}

// A tarsimd child: started with `args`, its stderr in a file, stopped with SIGTERM.
class Daemon {
 public:
  explicit Daemon(std::vector<std::string> args = {}) : socket_(unique_path("sock")) {
    log_ = socket_ + ".log";
    pid_ = fork();
    if (pid_ == 0) {
      FILE *f = freopen(log_.c_str(), "w", stderr);
      (void)f;
      std::vector<std::string> all = {TARSIMD_PATH, "--socket", socket_};
      all.insert(all.end(), args.begin(), args.end());
      std::vector<char *> argv;
      for (auto &a : all) argv.push_back(a.data());
      argv.push_back(nullptr);
      execv(argv[0], argv.data());
      _exit(127);
    }
    // Ready once the socket answers.
    for (int i = 0; i < 500 && !listening(); ++i) usleep(10000);
  }
  ~Daemon() {
    stop();
    unlink(log_.c_str());
  }
  bool listening() const {
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    snprintf(a.sun_path, sizeof a.sun_path, "%s", socket_.c_str());
    const bool ok = connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0;
    close(fd);
    return ok;
  }
  // SIGTERM and the exit status (-1 when it ended by a signal).
  int stop(int sig = SIGTERM) {
    if (pid_ <= 0) return status_;
    kill(pid_, sig);
    int st = 0;
    waitpid(pid_, &st, 0);
    pid_ = -1;
    status_ = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return status_;
  }
  std::string log() const {
    std::string out;
    if (FILE *f = fopen(log_.c_str(), "r")) {
      char buf[4096];
      size_t n;
      while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
      fclose(f);
    }
    return out;
  }
  const std::string &path() const { return socket_; }
  const char *c_path() const { return socket_.c_str(); }

 private:
  std::string socket_;
  std::string log_;
  pid_t pid_ = -1;
  int status_ = -1;
};

inline void quiet(tarvik_cookie *, void *, int, const char *) {}

inline tarvik_cookie *open_session(uint8_t sender = 2) {
  return tarvik_open_set_liberr(sender, nullptr, quiet);
}

// 10.<n>.0.0/16 via next hop 1000 in table 0.
inline int add_route(tarvik_cookie *c, uint8_t n) {
  const uint8_t net[4] = {10, n, 0, 0};
  uint32_t index = 0;
  return tarvik_rtm_add(c, 0, TLK_AF_INET, 1, 0, 2, 0, 0, 0, 0, 1000, 0, nullptr, net, 16, nullptr,
                        &index);
}

// Reads 10.<n>.0.0/16 back: 0 when the kernel answers with exactly that route, else the error
// (EPROTO for an answer about another route).
inline int get_route(tarvik_cookie *c, uint8_t n) {
  const uint8_t net[4] = {10, n, 0, 0};
  void *m = nullptr;
  const int err = tarvik_rtm_get(c, 0, TLK_AF_INET, net, 16, 0, 0, 0, 0, TLK_OP_GET, &m, nullptr);
  if (err != 0) return err;
  const auto &r = *static_cast<const rt_msg *>(m);
  const bool same = r.plen == 16 && r.prefix != nullptr && r.prefix[1] == n;
  tarvik_msg_idl_release(c, m, nullptr);
  return same ? 0 : EPROTO;
}

// A raw device change (type 5), which every session listening for devices hears.
inline int write_change(tarvik_cookie *c, uint8_t tag) {
  uint32_t seq = 0;
  tarvik_seq_get_next(c, &seq);
  const tarsim::Bytes m = tarsim::raw_message(5, TLK_OP_CHANGE, seq, std::vector<uint8_t>(8, tag));
  return tarvik_write(c, m.data(), m.size());
}

// A session that counts the device notifications it hears.
struct Listener {
  tarvik_cookie *c = nullptr;
  int fd = -1;
  unsigned heard = 0;
  static int count(tarvik_cookie *c, void *arg, void *msg, uintptr_t) {
    ++static_cast<Listener *>(arg)->heard;
    tarvik_msg_free(c, msg);
    return 0;
  }
  bool start() {
    c = open_session(9);
    return c != nullptr && tarvik_set_async_info_nocontext(c, &fd) == 0 &&
           tarvik_ifdm_async_register(c, this, count) == 0;
  }
  // Processes what arrives until `want` are heard or `ms` pass without anything new.
  unsigned wait_for(unsigned want, int ms = 2000) {
    while (heard < want) {
      pollfd p{fd, POLLIN, 0};
      if (poll(&p, 1, ms) <= 0) break;
      if (tarvik_async_event_process(c) != 0 && (p.revents & (POLLHUP | POLLERR))) break;
    }
    return heard;
  }
  ~Listener() { tarvik_close(c); }
};

}  // namespace tarsimd_rig
