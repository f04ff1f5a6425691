// The peer a Linux user would pick for programming routes: netlink batches to the Linux kernel's
// own forwarding table, through libmnl, in a network namespace of the benchmark's own so that
// the host's table is never touched.  The two kernels differ (Linux builds its FIB trie and
// route cache entries; the simulated kernel keeps a trie in a user process), so the figures say
// what a daemon on each would see, not which code is faster.
#pragma once

#include <stdint.h>

#include <string>
#include <vector>

#include "prefix_mix.h"

struct mnl_socket;

namespace tlkbench {

class NetlinkPeer {
 public:
  NetlinkPeer() = default;
  NetlinkPeer(const NetlinkPeer &) = delete;
  NetlinkPeer &operator=(const NetlinkPeer &) = delete;
  ~NetlinkPeer();

  // Whether this process may make a network namespace (root or CAP_SYS_ADMIN); tested in a child
  // so that the caller's namespace is left alone.  `why` says what stood in the way.
  static bool available(std::string *why);

  // Moves the calling thread into a fresh network namespace, brings its loopback up and opens a
  // routing socket there.  False with `why` set when any step fails.
  bool open(std::string *why);

  // Adds (or deletes) the routes, one netlink message each, in batches of about 64 KiB, as
  // unicast routes out of the loopback.  Gives how many the kernel refused, or -1 when the socket
  // itself failed.
  long program(const std::vector<Prefix4> &routes, bool del);

 private:
  ::mnl_socket *nl_ = nullptr;
  unsigned lo_index_ = 0;
  uint32_t seq_ = 1;
  std::vector<char> buf_;
};

}  // namespace tlkbench
