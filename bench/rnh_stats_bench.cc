// Next hop statistics through libtarlink and the simulated kernel: one tarvik_rnhsm_get per call
// (write, the wait for a readable socket, read, decode), with and without a gateway and a label
// block, against the bare socketpair round trip of the same request and reply sizes, measured in
// the same binary.  The kernel answers at once, so the wait is one select that returns readable.
#include <benchmark/benchmark.h>

#include <memory>

#include "floor.h"
#include "tarlink.h"
#include "tarsim.hpp"

namespace {

constexpr uint32_t kIdx = 1000;  // a seeded next hop with counters on every fresh kernel
constexpr uint8_t kGateway[16] = {16, 2, 0, 0, 192, 0, 2, 1};

struct Bench {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = tarvik_open(2);
  tagp_label8 labels[4] = {{16, 0}, {17, 0}, {18, 0}, {19, 0}};
  tagp block{};
  Bench() {
    block.tg_sel = 1;
    block.tg_labels = labels;
    block.tg_label_count = 4;
  }
  ~Bench() { tarvik_close(cookie); }

  int get(bool tail) {
    void *reply = nullptr, *mask = nullptr;
    const int err =
        tarvik_rnhsm_get(cookie, 0, TLK_OP_GET, 2, 2, kIdx, 0, 0, tail ? kGateway : nullptr,
                         tail ? &block : nullptr, nullptr, 0, 0, &reply, &mask);
    tarvik_msg_idl_release(cookie, reply, mask);
    return err;
  }
  // The sizes of one request and its reply as they crossed the socket.
  std::pair<size_t, size_t> sizes(bool tail) {
    kernel.clear_recorded();
    kernel.record(true);
    const int err = get(tail);
    kernel.record(false);
    size_t request = 0, reply = 0;
    for (const tarsim::Recorded &r : kernel.recorded())
      (r.to_kernel ? request : reply) = r.bytes.size();
    kernel.clear_recorded();
    return err == 0 ? std::pair{request, reply} : std::pair{size_t{0}, size_t{0}};
  }
};

// One kernel alive at a time: each benchmark makes its own and drops it at the end.
void run(benchmark::State &state, bool tail) {
  auto b = std::make_unique<Bench>();
  for (auto _ : state) {
    if (b->get(tail) != 0) {
      state.SkipWithError("rnhsm_get failed");
      break;
    }
  }
}

void floor_of(benchmark::State &state, bool tail) {
  std::pair<size_t, size_t> s;
  {
    Bench b;
    s = b.sizes(tail);
  }
  if (s.first == 0) {
    state.SkipWithError("no round trip to size the floor by");
    return;
  }
  tlkbench::bare_round_trip(state, s.first, s.second);
}

void BM_BareRoundTripNhStats(benchmark::State &state) {
  floor_of(state, false);
}
BENCHMARK(BM_BareRoundTripNhStats);

void BM_RnhsmGet(benchmark::State &state) {
  run(state, false);
}
BENCHMARK(BM_RnhsmGet);

void BM_BareRoundTripNhStatsWithTail(benchmark::State &state) {
  floor_of(state, true);
}
BENCHMARK(BM_BareRoundTripNhStatsWithTail);

void BM_RnhsmGetWithGatewayAndLabels(benchmark::State &state) {
  run(state, true);
}
BENCHMARK(BM_RnhsmGetWithGatewayAndLabels);

}  // namespace
