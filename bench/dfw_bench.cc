// Firewall counter reads through libtarlink and the simulated kernel, for a filter of 1,000
// counters: each counter read by name in a row, and the whole filter read as one list and copied
// flat; both reported per counter, against the bare socketpair round trip of one counter's
// request and reply measured in the same binary.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "floor.h"
#include "tarlink.h"
#include "tarsim.hpp"

namespace {

constexpr uint32_t kFilter = 10;
constexpr uint32_t kCounters = 1000;
constexpr uint8_t kAf = 2;

struct Filter {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = nullptr;
  std::vector<std::string> names;
  Filter() {
    kernel.dfw_counters().erase_filter(kFilter);  // the filter holds exactly these counters
    for (uint32_t i = 0; i < kCounters; ++i) {
      names.push_back("term-" + std::to_string(1000 + i) + "-count");
      kernel.dfw_counters().bump(kFilter, kAf, names.back(), 0, i, 64u * i);
    }
    cookie = tarvik_open(2);
  }
  ~Filter() { tarvik_close(cookie); }
};

Filter &filter() {
  static Filter f;
  return f;
}

void per_counter(benchmark::State &state, uint32_t n) {
  state.counters["per_counter"] = benchmark::Counter(
      n, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The floor: a request with a counter's name (80 bytes) and a reply with one counter (120).
void BM_BareSocketpairRoundTrip(benchmark::State &state) {
  tlkbench::bare_round_trip(state, 80, 64 + sizeof(tarsim::CounterRecord));
  per_counter(state, 1);
}
BENCHMARK(BM_BareSocketpairRoundTrip);

void BM_DfwCountersOneByOne(benchmark::State &state) {
  Filter &f = filter();
  for (auto _ : state) {
    for (const std::string &name : f.names) {
      tarvik_msg_list_t *list = nullptr;
      if (tarvik_dfwsm_get_by_filter_index_counter_name(f.cookie, kFilter, name.c_str(), kAf, 5,
                                                        &list, 0, 0, nullptr) != 0 ||
          tarvik_dfwsm_list_to_counter_len(list) != sizeof(tarsim::CounterRecord)) {
        state.SkipWithError("counter read failed");
        tarvik_msg_list_free(f.cookie, list);
        return;
      }
      tarvik_msg_list_free(f.cookie, list);
    }
  }
  per_counter(state, kCounters);
}
BENCHMARK(BM_DfwCountersOneByOne)->Unit(benchmark::kMillisecond);

void BM_DfwCountersAsOneList(benchmark::State &state) {
  Filter &f = filter();
  for (auto _ : state) {
    tarvik_msg_list_t *list = nullptr;
    void *data = nullptr;
    uint32_t len = 0;
    if (tarvik_dfwsm_get_by_index(f.cookie, kFilter, kAf, TLK_OP_GET, 0, 5, 0, &list) != 0 ||
        tarvik_dfwsm_list_get_counters(f.cookie, list, &data, &len) != 0 ||
        len != kCounters * sizeof(tarsim::CounterRecord)) {
      state.SkipWithError("list read failed");
      tarvik_msg_list_free(f.cookie, list);
      break;
    }
    benchmark::DoNotOptimize(data);
    tarvik_msg_free(f.cookie, data);
    tarvik_msg_list_free(f.cookie, list);
  }
  per_counter(state, kCounters);
}
BENCHMARK(BM_DfwCountersAsOneList)->Unit(benchmark::kMicrosecond);

}  // namespace
