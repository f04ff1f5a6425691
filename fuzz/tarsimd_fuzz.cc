// Fuzzes tarsimd's reading of its connections: any bytes, in pieces of any size, from one
// process.  The daemon must neither crash nor leak a session: whatever the bytes did, once the
// connection is gone every session it opened is closed.
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include "core.h"
#include "server.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static tarsim::Kernel *kernel = new tarsim::Kernel;
  static tarsimd::Server *server = new tarsimd::Server(*kernel, nullptr);
  kernel->clear_faults();
  int sv[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv) != 0) return 0;
  const int conn = server->adopt(sv[0], 0);
  // The first byte cuts the rest into pieces, as a stream may deliver them.
  const size_t piece = size > 0 ? 1 + data[0] % 64 * 8 : 1;
  size_t off = size > 0 ? 1 : 0;
  bool open = true;
  while (open && off < size) {
    const size_t n = size - off < piece ? size - off : piece;
    open = server->feed(conn, data + off, n);
    off += n;
    uint8_t sink[4096];
    while (recv(sv[1], sink, sizeof sink, MSG_DONTWAIT) > 0) {
    }
  }
  server->drop(conn);
  close(sv[1]);
  if (tarsim::internal::Core::active()->open_sessions() != 0 || server->connections() != 0) abort();
  return 0;
}
