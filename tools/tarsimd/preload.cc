// libtarsim_preload.so: runs an unchanged daemon binary (linked with the shared libtarlink)
// against a tarsimd.  Loaded with LD_PRELOAD, it connects before main: to TARSIM_SOCKET if set,
// else to the daemon's default path.  Without a daemon it says so on stderr and changes nothing.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "socket_path.h"
#include "tarsim.h"

namespace {

__attribute__((constructor)) void connect_to_tarsimd() {
  const char *env = getenv("TARSIM_SOCKET");
  const std::string path = env != nullptr && *env != '\0' ? env : tarsimd::default_socket_path();
  if (const int err = tarsim_connect(path.c_str())) {
    fprintf(stderr, "tarsim_preload: no simulated kernel at %s: %s\n", path.c_str(), strerror(err));
  }
}

__attribute__((destructor)) void disconnect_from_tarsimd() {
  tarsim_disconnect();
}

}  // namespace
