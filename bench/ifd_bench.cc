// Device reads through libtarlink and the simulated kernel, over a chassis of 10,000 devices:
// the whole list through the system control, and 10,000 reads by index in a row; both reported
// as time per device, against the bare socketpair round trip measured in the same binary.
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "tarlink.h"
#include "tarsim.hpp"

namespace {

constexpr uint16_t kDevices = 10000;

struct Chassis {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = nullptr;
  Chassis() {
    kernel.devices().clear();
    for (uint16_t i = 1; i <= kDevices; ++i) {
      tarsim::Device d;
      d.index = i;
      d.snmp_id = 100000u + i;
      d.name = "ge-" + std::to_string(i / 480) + "/" + std::to_string(i / 48 % 10) + "/" +
               std::to_string(i % 48);
      d.flags = 0x8001;
      d.mac = {0x02, 0x54, 0x4c, 0x00, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
      d.inet = 0x0A000000u + i;
      kernel.devices().add(d);
    }
    cookie = tarvik_open(2);
  }
  ~Chassis() { tarvik_close(cookie); }
  size_t frame_size() const {
    return kernel.devices().frame(kernel.devices().list()[0], TLK_OP_GET, 1, false).size();
  }
};

Chassis &chassis() {
  static Chassis c;
  return c;
}

// The floor: one request and one device-sized reply over a bare socketpair, no library.
void BM_BareSocketpairRoundTrip(benchmark::State &state) {
  int sv[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sv) != 0) {
    state.SkipWithError("socketpair failed");
    return;
  }
  std::vector<uint8_t> req(220, 1), reply(chassis().frame_size(), 2), buf(16384);
  for (auto _ : state) {
    if (write(sv[0], req.data(), req.size()) < 0) break;
    if (read(sv[1], buf.data(), buf.size()) < 0) break;
    if (write(sv[1], reply.data(), reply.size()) < 0) break;
    benchmark::DoNotOptimize(read(sv[0], buf.data(), buf.size()));
  }
  close(sv[0]);
  close(sv[1]);
  state.counters["per_device"] = benchmark::Counter(
      1, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_BareSocketpairRoundTrip);

void BM_IfdGetAll(benchmark::State &state) {
  Chassis &c = chassis();
  for (auto _ : state) {
    tarvik_msg_list_t *list = nullptr;
    if (tarvik_ifdm_get_all(c.cookie, &list) != 0 || list->count != kDevices) {
      state.SkipWithError("get_all failed");
      break;
    }
    tarvik_msg_list_free(c.cookie, list);
  }
  state.counters["per_device"] = benchmark::Counter(
      kDevices, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_IfdGetAll)->Unit(benchmark::kMillisecond);

void BM_IfdGetByIndexInARow(benchmark::State &state) {
  Chassis &c = chassis();
  for (auto _ : state) {
    for (uint32_t i = 1; i <= kDevices; ++i) {
      void *m = nullptr;
      if (tarvik_ifdm_get_by_index(c.cookie, i, TLK_OP_GET, &m, nullptr) != 0) {
        state.SkipWithError("get_by_index failed");
        return;
      }
      tarvik_msg_idl_release(c.cookie, m, nullptr);
    }
  }
  state.counters["per_device"] = benchmark::Counter(
      kDevices, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_IfdGetByIndexInARow)->Unit(benchmark::kMillisecond);

}  // namespace
