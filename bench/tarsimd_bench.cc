// The simulated kernel as a daemon (tarsimd) against the same kernel in-process and against the
// bare socketpair floor, in one run: a raw request-reply round trip ("tarlink stats", type 26),
// and routes programmed in bulk, counted per object.  The daemon is a child process running the
// service on a socket of its own; it goes when the benchmark does.  Times are wall-clock: the
// daemon's share of the work is not on this process's CPU clock.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "floor.h"
#include "server.h"
#include "tarlink.h"
#include "tarsim.h"
#include "tarsim.hpp"

namespace {

constexpr uint8_t kType = 26;
constexpr uint32_t kBulk = 20000;
constexpr uint32_t kWindow = 4096;

// The daemon child, started on first use.
struct Daemon {
  std::string path = "/tmp/tarsimd-bench-" + std::to_string(getpid()) + ".sock";
  pid_t pid = -1;
  int stop = -1;  // closing it stops the child
  Daemon() {
    int p[2];
    if (pipe(p) != 0) return;
    pid = fork();
    if (pid == 0) {
      close(p[1]);
      tarsim::Kernel kernel;
      tarsimd::Server server(kernel, nullptr);
      if (server.listen(path.c_str()) != 0) _exit(1);
      _exit(server.run(p[0]));
    }
    close(p[0]);
    stop = p[1];
    for (int i = 0; i < 500 && access(path.c_str(), F_OK) != 0; ++i) usleep(10000);
  }
  ~Daemon() {
    close(stop);
    waitpid(pid, nullptr, 0);
    unlink(path.c_str());
  }
};

Daemon &daemon() {
  static Daemon d;
  return d;
}

void BM_BareSocketpairRoundTrip(benchmark::State &state) {
  tlkbench::bare_round_trip(state, 36, 40);
}
BENCHMARK(BM_BareSocketpairRoundTrip)->UseRealTime();

// The same sizes, the reply written by another process: a round trip that crosses to a peer and
// back, as every request to the daemon does.  Its extra over the floor above is the two wake-ups
// (the peer's on the request, ours on the reply), which on an idle virtual machine cost more than
// the system calls; it is given beside the floor so that the daemon's own share can be told.
void BM_BareSocketpairEchoProcessRoundTrip(benchmark::State &state) {
  int sv[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sv) != 0) return state.SkipWithError("socketpair");
  const pid_t echo = fork();
  if (echo == 0) {
    close(sv[0]);
    uint8_t buf[64];
    const uint8_t reply[40] = {2};
    while (read(sv[1], buf, sizeof buf) > 0)
      if (write(sv[1], reply, sizeof reply) < 0) break;
    _exit(0);
  }
  close(sv[1]);
  const uint8_t request[36] = {1};
  uint8_t buf[64];
  for (auto _ : state) {
    if (write(sv[0], request, sizeof request) < 0 || read(sv[0], buf, sizeof buf) <= 0) {
      state.SkipWithError("echo failed");
      break;
    }
  }
  close(sv[0]);
  waitpid(echo, nullptr, 0);
}
BENCHMARK(BM_BareSocketpairEchoProcessRoundTrip)->UseRealTime();

// tarvik_write + tarvik_msg_read of a tarlink stats get on the session in force.
void raw_round_trips(benchmark::State &state) {
  tarvik_cookie *c = tarvik_open(2);
  if (c == nullptr) {
    state.SkipWithError("open failed");
    return;
  }
  tarsim::Bytes request = tarsim::raw_message(kType, TLK_OP_GET, 0, std::vector<uint8_t>(12, 1));
  void *reply = tarvik_msg_malloc(c);
  size_t len = 0;
  for (auto _ : state) {
    uint32_t seq;
    tarvik_seq_get_next(c, &seq);
    memcpy(&request[12], &seq, 4);
    if (tarvik_write(c, request.data(), request.size()) != 0 ||
        tarvik_msg_read(c, reply, &len) != 0) {
      state.SkipWithError("round trip failed");
      break;
    }
  }
  tarvik_msg_free(c, reply);
  tarvik_close(c);
}

void BM_InProcessRawRoundTrip(benchmark::State &state) {
  tarsim::Kernel kernel;
  raw_round_trips(state);
}
BENCHMARK(BM_InProcessRawRoundTrip)->UseRealTime();

void BM_DaemonRawRoundTrip(benchmark::State &state) {
  tarsim::Remote remote(daemon().path);
  if (!remote) {
    state.SkipWithError("no daemon");
    return;
  }
  raw_round_trips(state);
}
BENCHMARK(BM_DaemonRawRoundTrip)->UseRealTime();

// kBulk /32 routes added, then deleted, in bulk windows; items are the objects programmed.
void bulk_routes(benchmark::State &state) {
  tarvik_cookie *c = tarvik_open(2);
  if (c == nullptr || tarvik_set_sync_mode(c, 1) != 0) {
    state.SkipWithError("bulk mode failed");
    tarvik_close(c);
    return;
  }
  std::vector<rt_msg> msgs(kWindow);
  std::vector<uint8_t> prefixes(size_t{kWindow} * 4);
  std::vector<tarvik_msg_iov_t> iov(kWindow);
  for (auto _ : state) {
    for (const int op : {TLK_OP_ADD, TLK_OP_DELETE}) {
      for (uint32_t first = 0; first < kBulk; first += kWindow) {
        const uint32_t n = std::min(kWindow, kBulk - first);
        for (uint32_t i = 0; i < n; ++i) {
          const uint32_t k = first + i;
          uint8_t *b = &prefixes[size_t{i} * 4];
          b[0] = 30;
          b[1] = static_cast<uint8_t>(k >> 16);
          b[2] = static_cast<uint8_t>(k >> 8);
          b[3] = static_cast<uint8_t>(k);
          rt_msg &m = msgs[i];
          m = rt_msg{};
          m.rt_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_ROUTE];
          m.rt_hdr.tlkh_type = TLK_MSG_ROUTE;
          m.rt_hdr.tlkh_op = static_cast<uint8_t>(op);
          m.rt_hdr.tlkh_fixedlen = sizeof(rt_msg);
          tarvik_seq_get_next(c, &m.rt_hdr.tlkh_seq);
          m.af = TLK_AF_INET;
          m.type = 1;
          m.nh_type = 2;
          m.nhidx.idx = 1000;
          m.plen = 32;
          m.prefix = b;
          m.prefix_len = 4;
          iov[i] = tarvik_msg_iov_t{&m, nullptr, 0, 0};
        }
        if (tarvik_msg_writev_idl(c, n, iov.data(), nullptr) != 0) {
          state.SkipWithError("bulk write failed");
          break;
        }
      }
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * 2 * kBulk);
  tarvik_close(c);
}

void BM_InProcessBulkRoutes(benchmark::State &state) {
  tarsim::Kernel kernel;
  bulk_routes(state);
}
BENCHMARK(BM_InProcessBulkRoutes)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_DaemonBulkRoutes(benchmark::State &state) {
  tarsim::Remote remote(daemon().path);
  if (!remote) {
    state.SkipWithError("no daemon");
    return;
  }
  bulk_routes(state);
}
BENCHMARK(BM_DaemonBulkRoutes)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
