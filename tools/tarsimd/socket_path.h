// Where tarsimd listens unless told otherwise: $XDG_RUNTIME_DIR/tarsimd.sock, or
// /tmp/tarsimd-<uid>.sock where the session has no runtime directory.  The daemon, tlkctl and
// the preload library agree on it through this header.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <string>

namespace tarsimd {

inline std::string default_socket_path() {
  const char *dir = getenv("XDG_RUNTIME_DIR");
  if (dir != nullptr && *dir == '/') return std::string(dir) + "/tarsimd.sock";
  return "/tmp/tarsimd-" + std::to_string(getuid()) + ".sock";
}

}  // namespace tarsimd
