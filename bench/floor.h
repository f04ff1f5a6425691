// The floor that request-reply figures are measured against: one request and one reply of the
// given sizes written and read on a bare socketpair, four system calls and no library work.
#pragma once

#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace tlkbench {

inline void bare_round_trip(benchmark::State &state, size_t request, size_t reply) {
  int sv[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sv) != 0) {
    state.SkipWithError("socketpair failed");
    return;
  }
  // Large frames (blobs of hundreds of kilobytes) need buffers beyond the host's default.
  const int size = 4 << 20;
  for (int fd : sv) {
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &size, sizeof size);
    setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  }
  const size_t largest = request > reply ? request : reply;
  std::vector<uint8_t> req(request, 1), rep(reply, 2), buf(largest > 16384 ? largest : 16384);
  for (auto _ : state) {
    if (write(sv[0], req.data(), req.size()) < 0) break;
    if (read(sv[1], buf.data(), buf.size()) < 0) break;
    if (write(sv[1], rep.data(), rep.size()) < 0) break;
    benchmark::DoNotOptimize(read(sv[0], buf.data(), buf.size()));
  }
  close(sv[0]);
  close(sv[1]);
}

}  // namespace tlkbench
