// Programming a full-table-like million IPv4 routes (bench/prefix_mix.h) through the simulated
// kernel: in bulk through tarvik_msg_writev_idl (adds in windows of kWindow records, no replies,
// as the tlkctl demo does) against one tarvik_rtm_add per route; the library's encoding of the
// same records alone; the same million deleted in bulk; longest-prefix matches through
// tarvik_rtmatch_by_prefix over the programmed table against the bare round trip of the same
// request and reply sizes; and, where this process may make a network namespace, the same
// million added and deleted in the Linux kernel through netlink (bench/netlink_peer.h).
//
// The counter sim_s is the simulated kernel's own time per iteration (decoding, storing,
// notifying).  Every route names one of the kernel's two seeded unicast next hops, and every
// end-to-end run checks that the store holds (or no longer holds) the whole table.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "floor.h"
#include "library_share.h"
#include "prefix_mix.h"
#include "tarlink.h"
#include "tarsim.hpp"

#ifdef TARLINK_BENCH_NETLINK
#include "netlink_peer.h"
#endif

namespace {

// A million routes; the test script's smoke run (TARLINK_BENCH_SMOKE set) takes 20,000.
const bool kSmoke = getenv("TARLINK_BENCH_SMOKE") != nullptr;
const uint32_t kRoutes = kSmoke ? 20000 : 1000000;
const int64_t kMatches = kSmoke ? 2000 : 200000;
constexpr uint32_t kWindow = 4096;  // records per tarvik_msg_writev_idl call
constexpr uint16_t kTid = 5;
constexpr uint8_t kUser = 1;         // route type "user"
constexpr uint8_t kUcst = 2;         // next hop type "ucst"
constexpr uint32_t kNextHop = 1000;  // the kernel's seeded unicast next hops: 1000 and 1001

const std::vector<tlkbench::Prefix4> &table() {
  static const std::vector<tlkbench::Prefix4> t = tlkbench::prefix_mix(kRoutes);
  return t;
}

// A window of rt_msg records over the table, restamped for each slice of it.
struct Window {
  tarvik_cookie *cookie;
  std::vector<rt_msg> msgs;
  std::vector<tarvik_msg_iov_t> iov;
  Window(tarvik_cookie *c, uint8_t op) : cookie(c), msgs(kWindow), iov(kWindow) {
    for (rt_msg &m : msgs) {
      m = rt_msg{};
      m.rt_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_ROUTE];
      m.rt_hdr.tlkh_type = TLK_MSG_ROUTE;
      m.rt_hdr.tlkh_op = op;
      m.rt_hdr.tlkh_fixedlen = sizeof(rt_msg);
      m.tid = kTid;
      m.af = TLK_AF_INET;
      m.type = kUser;
      if (op != TLK_OP_DELETE) m.nh_type = kUcst;
    }
  }
  // Records for the routes first .. first + n - 1.
  void stamp(uint32_t first, uint32_t n) {
    const auto &routes = table();
    for (uint32_t i = 0; i < n; ++i) {
      rt_msg &m = msgs[i];
      const tlkbench::Prefix4 &p = routes[first + i];
      tarvik_seq_get_next(cookie, &m.rt_hdr.tlkh_seq);
      if (m.rt_hdr.tlkh_op != TLK_OP_DELETE) m.nhidx.idx = kNextHop + (first + i) % 2;
      m.plen = p.plen;
      m.prefix = const_cast<uint8_t *>(p.bytes);
      m.prefix_len = 4;
      iov[i] = tarvik_msg_iov_t{&m, nullptr, 0, 0};
    }
  }
};

struct Run {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = tarvik_open(3);
  explicit Run(bool bulk) {
    if (bulk) tarvik_set_sync_mode(cookie, 1);
    kernel.set_timing(true);
  }
  ~Run() { tarvik_close(cookie); }
  size_t stored() const { return kernel.routes().count(kTid, TLK_AF_INET); }
};

// Writes the whole table in bulk with `op`; false when a record was refused.
bool write_table(Run &run, Window &w) {
  for (uint32_t first = 0; first < kRoutes; first += kWindow) {
    const uint32_t n = std::min(kWindow, kRoutes - first);
    w.stamp(first, n);
    tarvik_msg_writev_idl(run.cookie, n, w.iov.data(), nullptr);
    for (uint32_t i = 0; i < n; ++i) {
      if (w.iov[i].write_err != 0) return false;
    }
  }
  return true;
}

void report(benchmark::State &state, uint64_t sim_ns, size_t stored) {
  state.SetItemsProcessed(static_cast<int64_t>(kRoutes) * state.iterations());
  state.counters["sim_s"] =
      benchmark::Counter(static_cast<double>(sim_ns) * 1e-9, benchmark::Counter::kAvgIterations);
  state.counters["stored"] = static_cast<double>(stored);
}

void BM_BulkAdd(benchmark::State &state) {
  Run run(true);
  Window w(run.cookie, TLK_OP_ADD);
  uint64_t sim_ns = 0;
  for (auto _ : state) {
    state.PauseTiming();
    run.kernel.routes().clear();
    const uint64_t start = run.kernel.busy_ns();
    state.ResumeTiming();
    if (!write_table(run, w)) {
      state.SkipWithError("a route was refused");
      return;
    }
    sim_ns += run.kernel.busy_ns() - start;
  }
  if (run.stored() != kRoutes) return state.SkipWithError("the store lacks routes");
  report(state, sim_ns, run.stored());
}

void BM_OneByOneAdd(benchmark::State &state) {
  Run run(false);
  const auto &routes = table();
  for (auto _ : state) {
    for (uint32_t i = 0; i < kRoutes; ++i) {
      const tlkbench::Prefix4 &p = routes[i];
      if (tarvik_rtm_add(run.cookie, kTid, TLK_AF_INET, kUser, 0, kUcst, 0, 0, 0, 0,
                         kNextHop + i % 2, 0, nullptr, p.bytes, p.plen, nullptr, nullptr) != 0) {
        state.SkipWithError("add failed");
        return;
      }
    }
  }
  if (run.stored() != kRoutes) return state.SkipWithError("the store lacks routes");
  report(state, run.kernel.busy_ns(), run.stored());
}

void BM_BulkDelete(benchmark::State &state) {
  Run run(true);
  Window adds(run.cookie, TLK_OP_ADD), deletes(run.cookie, TLK_OP_DELETE);
  uint64_t sim_ns = 0;
  for (auto _ : state) {
    state.PauseTiming();
    if (!write_table(run, adds) || run.stored() != kRoutes) {
      state.SkipWithError("the table could not be programmed");
      return;
    }
    const uint64_t start = run.kernel.busy_ns();
    state.ResumeTiming();
    if (!write_table(run, deletes)) {
      state.SkipWithError("a delete was refused");
      return;
    }
    sim_ns += run.kernel.busy_ns() - start;
  }
  if (run.stored() != 0) return state.SkipWithError("routes are left in the store");
  report(state, sim_ns, run.stored());
}

// The library's share without the kernel: the same records encoded back to back into a buffer
// of the bulk send size, as the bulk writer does.
void BM_EncodeOnly(benchmark::State &state) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  Window w(cookie, TLK_OP_ADD);
  std::vector<uint8_t> buffer(TLK_DEFAULT_SOCKBUF);
  for (auto _ : state) {
    size_t used = 0;
    for (uint32_t first = 0; first < kRoutes; first += kWindow) {
      const uint32_t n = std::min(kWindow, kRoutes - first);
      w.stamp(first, n);
      for (uint32_t i = 0; i < n; ++i) tlkbench::encode_next(cookie, &w.msgs[i], buffer, used);
    }
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(kRoutes) * state.iterations());
  tarvik_close(cookie);
}

// Destinations inside the table's prefixes, host bits drawn from a fixed seed.
std::vector<std::array<uint8_t, 4>> destinations(size_t count) {
  const auto &routes = table();
  std::mt19937 rng(7);
  std::vector<std::array<uint8_t, 4>> out(count);
  for (auto &d : out) {
    const tlkbench::Prefix4 &p = routes[rng() % routes.size()];
    const uint32_t net = uint32_t{p.bytes[0]} << 24 | uint32_t{p.bytes[1]} << 16 |
                         uint32_t{p.bytes[2]} << 8 | p.bytes[3];
    const uint32_t host = p.plen == 32 ? 0 : static_cast<uint32_t>(rng()) & (~0u >> p.plen);
    const uint32_t a = net | host;
    d = {uint8_t(a >> 24), uint8_t(a >> 16), uint8_t(a >> 8), uint8_t(a)};
  }
  return out;
}

void BM_Match(benchmark::State &state) {
  Run run(true);
  Window w(run.cookie, TLK_OP_ADD);
  if (!write_table(run, w) || run.stored() != kRoutes) {
    state.SkipWithError("the table could not be programmed");
    return;
  }
  // The kernel's own clock readings feed sim_s, which this benchmark does not report.
  run.kernel.set_timing(false);
  tarvik_cookie *reader = tarvik_open(4);
  const auto dests = destinations(4096);
  size_t i = 0;
  for (auto _ : state) {
    void *reply = nullptr;
    const auto &d = dests[i++ % dests.size()];
    if (tarvik_rtmatch_by_prefix(reader, kTid, TLK_AF_INET, 0, d.data(), 32, &reply, nullptr) !=
        0) {
      state.SkipWithError("a destination found no route");
      break;
    }
    tarvik_msg_idl_release(reader, reply, nullptr);
  }
  tarvik_close(reader);
}

// One request and one reply on a bare socketpair with the frame sizes of a match: an rtm_msg
// with a 32-bit destination, and the rt_msg of a route with a four-byte prefix.
void BM_BareRoundTrip(benchmark::State &state) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  uint8_t addr[4] = {10, 0, 0, 1};
  rtm_msg q{};
  q.rtm_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_RTMATCH];
  q.rtm_hdr.tlkh_type = TLK_MSG_RTMATCH;
  q.rtm_hdr.tlkh_op = TLK_OP_GET;
  q.rtm_hdr.tlkh_fixedlen = sizeof(rtm_msg);
  q.tid = kTid;
  q.af = TLK_AF_INET;
  q.prefix.plen = 32;
  q.prefix.prefix = addr;
  q.prefix.prefix_len = 4;
  Window w(cookie, TLK_OP_GET);
  w.stamp(0, 1);
  uint8_t frame[1024];
  size_t request = sizeof frame, reply = sizeof frame;
  (void)tarvik_msg_idl_encode_pa(cookie, &q, frame, &request);
  (void)tarvik_msg_idl_encode_pa(cookie, &w.msgs[0], frame, &reply);
  tarvik_close(cookie);
  state.counters["request_bytes"] = static_cast<double>(request);
  state.counters["reply_bytes"] = static_cast<double>(reply);
  tlkbench::bare_round_trip(state, request, reply);
}

#ifdef TARLINK_BENCH_NETLINK
// The same table in the Linux kernel, through netlink batches, in a fresh network namespace per
// run.  The two kernels differ: Linux builds its FIB trie and the route's kernel objects, the
// simulated kernel keeps a trie in this process; the figures say what a daemon on each would
// see, not which code is faster.
void BM_NetlinkAdd(benchmark::State &state) {
  tlkbench::NetlinkPeer peer;
  std::string why;
  if (!peer.open(&why)) return state.SkipWithError(why.c_str());
  for (auto _ : state) {
    if (peer.program(table(), false) != 0) return state.SkipWithError("routes were refused");
    state.PauseTiming();
    if (peer.program(table(), true) != 0) return state.SkipWithError("deletes were refused");
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<int64_t>(kRoutes) * state.iterations());
}

void BM_NetlinkDelete(benchmark::State &state) {
  tlkbench::NetlinkPeer peer;
  std::string why;
  if (!peer.open(&why)) return state.SkipWithError(why.c_str());
  for (auto _ : state) {
    state.PauseTiming();
    if (peer.program(table(), false) != 0) return state.SkipWithError("routes were refused");
    state.ResumeTiming();
    if (peer.program(table(), true) != 0) return state.SkipWithError("deletes were refused");
  }
  state.SetItemsProcessed(static_cast<int64_t>(kRoutes) * state.iterations());
}
#endif

}  // namespace

BENCHMARK(BM_BareRoundTrip);
BENCHMARK(BM_Match)->Iterations(kMatches);
BENCHMARK(BM_EncodeOnly)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_BulkAdd)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_OneByOneAdd)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_BulkDelete)->Unit(benchmark::kMillisecond)->Iterations(2);

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
#ifdef TARLINK_BENCH_NETLINK
  std::string why;
  if (tlkbench::NetlinkPeer::available(&why)) {
    benchmark::RegisterBenchmark("BM_NetlinkAdd", BM_NetlinkAdd)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
    benchmark::RegisterBenchmark("BM_NetlinkDelete", BM_NetlinkDelete)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(1);
  } else {
    fprintf(stderr, "netlink peer skipped: %s\n", why.c_str());
  }
#else
  fprintf(stderr, "netlink peer skipped: built without libmnl\n");
#endif
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
