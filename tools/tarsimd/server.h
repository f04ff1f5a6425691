// tarsimd's service: the calls of the processes connected to it, served against one simulated
// kernel (sim/remote_wire.h is the conversation).  Each connection owns the sessions it opened;
// a connection that breaks, or says what cannot be understood, costs only itself: its sessions
// close and the others go on.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <map>
#include <set>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsimd {

class Server {
 public:
  // `log` receives one line (without newline) per session opened and closed; null: quiet.
  using Log = void (*)(const char *line);
  Server(tarsim::Kernel &kernel, Log log);
  ~Server();
  Server(const Server &) = delete;
  Server &operator=(const Server &) = delete;

  // Listens on a Unix stream socket at `path` (an old socket file there is replaced): 0 or errno.
  int listen(const char *path);
  // Serves until `stop_fd` turns readable (a signalfd, say): 0, or the errno of a failed wait.
  int run(int stop_fd);

  // Takes a connected stream as a new connection: its number.
  int adopt(int fd, pid_t pid);
  // Serves what arrived from connection `conn`: false once the connection is dropped.
  bool feed(int conn, const uint8_t *data, size_t length);
  // Drops a connection and closes its sessions.
  void drop(int conn);
  size_t connections() const { return conns_.size(); }
  uint64_t calls() const { return calls_; }
  // Sends notifications that waited for room on a listener's socket; whether any still wait.
  bool flush();

 private:
  struct Conn {
    int fd = -1;
    pid_t pid = 0;
    std::vector<uint8_t> in;  // bytes of a call not yet whole
    std::set<int> sessions;
  };
  bool serve(Conn &c, const uint8_t *call, size_t length);
  bool answer(Conn &c, int32_t result, int32_t err, const void *body, size_t length,
              uint64_t size = 0, int pass_fd = -1);
  void close_session(Conn &c, int session);
  bool read_from(int conn);

  tarsim::Kernel &kernel_;
  Log log_;
  int listen_fd_ = -1;
  int epoll_fd_ = -1;
  int next_conn_ = 1;
  uint64_t calls_ = 0;
  std::map<int, Conn> conns_;
  std::vector<uint8_t> buf_;
};

}  // namespace tarsimd
