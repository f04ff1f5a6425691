// tarsim/remote.hpp - this process's routing sockets as sessions of a tarsimd elsewhere.
//
// The C++ form of tarsim_connect (tarsim.h): a Remote connects on construction and gives the
// platform back when it goes.  While it lives, every routing socket that libtarlink opens is a
// session of the daemon's kernel, shared with the other processes connected to it.
//
//   tarsim::Remote remote(path);
//   if (!remote) fprintf(stderr, "no tarsimd at %s: %s\n", path, strerror(remote.error()));
//   tarvik_cookie *c = tarvik_open(2);   // a session of the daemon
#pragma once

#include <stdint.h>

#include <string>

#include "tarsim.h"
#include "tarsim/kernel.hpp"

namespace tarsim {

// What the daemon holds now (tarsim_remote_stats_t).
struct RemoteStats {
  uint64_t sessions;
  uint64_t connections;
  uint64_t calls;
  uint64_t heap_bytes;
};

class TARSIM_EXPORT Remote {
 public:
  explicit Remote(const char *path);
  explicit Remote(const std::string &path) : Remote(path.c_str()) {}
  ~Remote();
  Remote(const Remote &) = delete;
  Remote &operator=(const Remote &) = delete;

  explicit operator bool() const { return error_ == 0; }
  int error() const { return error_; }  // 0, or the errno of the failed connection

  // A fault armed in the daemon: TARSIM_FAULT_* of tarsim.h with its arguments.  0 or an errno.
  static int fault(int kind, int arg = 0, uint64_t x = 0, uint64_t y = 0);
  static int stats(RemoteStats *out);

 private:
  int error_;
};

}  // namespace tarsim
