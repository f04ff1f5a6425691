// Next hops through libtarlink and the simulated kernel, per next hop:
// - 100,000 subunit next hops added and read back (add_get) one by one through
//   tarvik_rnhm_subunit_nhadd, and the same adds in bulk through tarvik_msg_writev_idl;
// - 100,000 next hops read by index in a row;
// against the bare socketpair round trip of a next hop's request and reply sizes, measured in
// the same binary.  Each benchmark has its kernel to itself.
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <vector>

#include "floor.h"
#include "tarlink.h"
#include "tarsim.hpp"

namespace {

// The test script's smoke run (TARLINK_BENCH_SMOKE set) takes a hundredth.
const uint32_t kObjects = getenv("TARLINK_BENCH_SMOKE") ? 1000 : 100000;
// Entries per tarvik_msg_writev_idl call.  An add-and-get of a next hop is about 730 bytes, so a
// vector must fit one bulk write (716 of them in the 512 KiB buffer): a batch closed by an entry
// that expects a reply counts that reply too and reads for it without end, by the bulk contract.
constexpr uint32_t kWindow = 512;
constexpr uint32_t kFirstIndex = 1000;
constexpr uint32_t kIfl = 70;  // ge0.0
constexpr uint8_t kAfInet = 2;

void per_object(benchmark::State &state) {
  state.counters["per_object"] = benchmark::Counter(
      kObjects, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

struct Run {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = nullptr;
  explicit Run(bool bulk) {
    kernel.nexthops().clear();
    cookie = tarvik_open(3);
    if (bulk) tarvik_set_sync_mode(cookie, 1);
  }
  ~Run() { tarvik_close(cookie); }
};

// The request a subunit add sends, as a raw record.
rnh_msg add_request(tarvik_cookie *cookie) {
  rnh_msg m{};
  m.rnh_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_NEXTHOP];
  m.rnh_hdr.tlkh_type = TLK_MSG_NEXTHOP;
  m.rnh_hdr.tlkh_op = TLK_OP_ADD_GET;
  m.rnh_hdr.tlkh_fixedlen = sizeof(rnh_msg);
  m.rnh_hdr.tlkh_msglen = sizeof(rnh_msg);
  tarvik_seq_get_next(cookie, &m.rnh_hdr.tlkh_seq);
  m.nh = tarsim::kNhUnicast;
  m.af = kAfInet;
  m.idx.idx = tlk_platform_get()->null_nh_idx;
  m.ifidx.idx = kIfl;
  return m;
}

// Encoded sizes of a next hop request and of its reply (the same record with its fields set).
size_t encoded_size(const rnh_msg &m) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  void *frame = nullptr;
  size_t length = 0;
  if (tarvik_msg_idl_encode(cookie, &m, nullptr, &frame, &length) != 0) length = 0;
  tarvik_msg_free(cookie, frame);
  tarvik_cookie_destroy(cookie);
  return length;
}

void BM_BareRoundTripRnh(benchmark::State &state) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  rnh_msg m = add_request(cookie);
  tarvik_cookie_destroy(cookie);
  const size_t request = encoded_size(m);
  m.idx.idx = kFirstIndex;
  tlkbench::bare_round_trip(state, request, encoded_size(m));
  state.counters["per_object"] = benchmark::Counter(
      1, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_BareRoundTripRnh);

void BM_RnhAddOneByOne(benchmark::State &state) {
  Run run(false);
  const uint32_t ifls[] = {kIfl};
  for (auto _ : state) {
    run.kernel.nexthops().clear();
    for (uint32_t i = 0; i < kObjects; ++i) {
      void *m = nullptr;
      if (tarvik_rnhm_subunit_nhadd(run.cookie, ifls, kAfInet, &m, nullptr) != 0) {
        state.SkipWithError("subunit_nhadd failed");
        return;
      }
      tarvik_msg_idl_release(run.cookie, m, nullptr);
    }
  }
  state.counters["stored"] = static_cast<double>(run.kernel.nexthops().list().size());
  per_object(state);
}
BENCHMARK(BM_RnhAddOneByOne)->Unit(benchmark::kMillisecond);

void BM_RnhAddBulk(benchmark::State &state) {
  Run run(true);
  std::vector<rnh_msg> msgs(kWindow);
  std::vector<tarvik_msg_iov_t> iov(kWindow);
  for (auto _ : state) {
    run.kernel.nexthops().clear();
    for (uint32_t first = 0; first < kObjects; first += kWindow) {
      const uint32_t n = std::min(kWindow, kObjects - first);
      for (uint32_t i = 0; i < n; ++i) {
        msgs[i] = add_request(run.cookie);
        iov[i] = tarvik_msg_iov_t{&msgs[i], nullptr, 0, 0};
        iov[i].reply = &iov[i].reply;  // a reply is wanted
      }
      tarvik_msg_writev_idl(run.cookie, n, iov.data(), nullptr);
      for (uint32_t i = 0; i < n; ++i) {
        const tarvik_msg_iov_t &e = iov[i];
        if (e.write_err != 0 || e.read_err != 0 || e.reply == &e.reply) {
          state.SkipWithError("a next hop was refused");
          return;
        }
        tarvik_msg_idl_release(run.cookie, e.reply, nullptr);
      }
    }
  }
  state.counters["stored"] = static_cast<double>(run.kernel.nexthops().list().size());
  per_object(state);
}
BENCHMARK(BM_RnhAddBulk)->Unit(benchmark::kMillisecond);

void BM_RnhmGetByIndexInARow(benchmark::State &state) {
  Run run(false);
  for (uint32_t i = 0; i < kObjects; ++i) {
    tarsim::Nexthop nh;
    nh.index = kFirstIndex + i;
    nh.ifl = kIfl;
    run.kernel.nexthops().add(nh);
  }
  for (auto _ : state) {
    for (uint32_t i = 0; i < kObjects; ++i) {
      void *m = nullptr;
      if (tarvik_rnhm_get_by_index(run.cookie, kFirstIndex + i, kAfInet, TLK_OP_GET, &m, nullptr) !=
          0) {
        state.SkipWithError("rnhm_get_by_index failed");
        return;
      }
      tarvik_msg_idl_release(run.cookie, m, nullptr);
    }
  }
  per_object(state);
}
BENCHMARK(BM_RnhmGetByIndexInARow)->Unit(benchmark::kMillisecond);

}  // namespace
