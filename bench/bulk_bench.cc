// Programming a million small objects (gencfg blobs of 16 bytes under numeric keys) through
// tarvik_msg_writev_idl against one tarvik_msg_write_idl per object, without and with replies
// (add, add-and-get), in the same run; the library's encoding of the same objects alone; and the
// floor of one bare round trip.  The counter sim_s is the simulated kernel's own time per
// iteration (decoding, storing, answering).  Memory stays fixed: the vector is a window of
// kWindow entries, restamped for each slice of the million.
#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "floor.h"
#include "library_share.h"
#include "tarlink.h"
#include "tarsim.hpp"

namespace {

// A million objects; the test script's smoke run (TARLINK_BENCH_SMOKE set) takes a hundredth.
const uint32_t kObjects = getenv("TARLINK_BENCH_SMOKE") ? 10000 : 1000000;
constexpr uint32_t kWindow = 4096;  // entries per tarvik_msg_writev_idl call
uint8_t g_blob[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};

// A window of raw gencfg_msg requests.
struct Objects {
  tarvik_cookie *cookie;
  std::vector<gencfg_msg> msgs;
  std::vector<tarvik_msg_iov_t> iov;
  Objects(tarvik_cookie *c, uint8_t op) : cookie(c), msgs(kWindow), iov(kWindow) {
    for (gencfg_msg &m : msgs) {
      m = gencfg_msg{};
      m.gencfg_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_GENCFG_TYPE];
      m.gencfg_hdr.tlkh_type = TLK_GENCFG_TYPE;
      m.gencfg_hdr.tlkh_op = op;
      m.gencfg_hdr.tlkh_fixedlen = sizeof(gencfg_msg);
      m.major = 7;
      m.minor = 1;
      m.flags = TLK_GENCFG_KID;
      m.blob = g_blob;
      m.blob_len = sizeof g_blob;
    }
  }
  // Entries for the objects first .. first + n - 1.
  void stamp(uint32_t first, uint32_t n, bool replies) {
    for (uint32_t i = 0; i < n; ++i) {
      gencfg_msg &m = msgs[i];
      tarvik_seq_get_next(cookie, &m.gencfg_hdr.tlkh_seq);
      m.kid = first + i;
      iov[i] = tarvik_msg_iov_t{&m, nullptr, 0, 0};
      if (replies) iov[i].reply = &iov[i].reply;
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
  void report(benchmark::State &state) {
    state.SetItemsProcessed(static_cast<int64_t>(kObjects) * state.iterations());
    state.counters["sim_s"] = benchmark::Counter(static_cast<double>(kernel.busy_ns()) * 1e-9,
                                                 benchmark::Counter::kAvgIterations);
    state.counters["stored"] = static_cast<double>(kernel.gencfg().store().size());
  }
};

void run_bulk(benchmark::State &state, uint8_t op, bool replies) {
  Run run(true);
  Objects objs(run.cookie, op);
  for (auto _ : state) {
    for (uint32_t first = 0; first < kObjects; first += kWindow) {
      const uint32_t n = std::min(kWindow, kObjects - first);
      objs.stamp(first, n, replies);
      tarvik_msg_writev_idl(run.cookie, n, objs.iov.data(), nullptr);
      for (uint32_t i = 0; i < n; ++i) {
        const tarvik_msg_iov_t &e = objs.iov[i];
        if (e.write_err != 0 || e.read_err != 0 || (replies && e.reply == &e.reply)) {
          state.SkipWithError("an object was refused");
          return;
        }
        if (replies) tarvik_msg_idl_release(run.cookie, e.reply, nullptr);
      }
    }
  }
  run.report(state);
}

void run_one_by_one(benchmark::State &state, uint8_t op, bool replies) {
  Run run(false);
  Objects objs(run.cookie, op);
  for (auto _ : state) {
    for (uint32_t first = 0; first < kObjects; first += kWindow) {
      const uint32_t n = std::min(kWindow, kObjects - first);
      objs.stamp(first, n, false);
      for (uint32_t i = 0; i < n; ++i) {
        if (tarvik_msg_write_idl(run.cookie, &objs.msgs[i], nullptr) != 0) {
          state.SkipWithError("write failed");
          return;
        }
        if (!replies) continue;
        void *reply = nullptr;
        if (tarvik_msg_read_idl(run.cookie, &reply, nullptr) != 0) {
          state.SkipWithError("read failed");
          return;
        }
        tarvik_msg_idl_release(run.cookie, reply, nullptr);
      }
    }
  }
  run.report(state);
}

void BM_BulkAdd(benchmark::State &state) {
  run_bulk(state, TLK_OP_ADD, false);
}
void BM_OneByOneAdd(benchmark::State &state) {
  run_one_by_one(state, TLK_OP_ADD, false);
}
void BM_BulkAddGet(benchmark::State &state) {
  run_bulk(state, TLK_OP_ADD_GET, true);
}
void BM_OneByOneAddGet(benchmark::State &state) {
  run_one_by_one(state, TLK_OP_ADD_GET, true);
}

// The million objects stamped window by window and encoded back to back by `encode_next` into a
// buffer of the bulk send size, with no kernel.
template <typename Encode>
void encode_all(benchmark::State &state, Encode encode_next) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  Objects objs(cookie, TLK_OP_ADD);
  std::vector<uint8_t> buffer(TLK_DEFAULT_SOCKBUF);
  for (auto _ : state) {
    size_t used = 0;
    for (uint32_t first = 0; first < kObjects; first += kWindow) {
      const uint32_t n = std::min(kWindow, kObjects - first);
      objs.stamp(first, n, false);
      for (uint32_t i = 0; i < n; ++i) encode_next(cookie, objs.msgs[i], buffer, used);
    }
    benchmark::DoNotOptimize(buffer.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(kObjects) * state.iterations());
  tarvik_close(cookie);
}

// The library's share without the kernel: each object's frame, as the bulk writer builds it.
void BM_EncodeOnly(benchmark::State &state) {
  encode_all(state, [](tarvik_cookie *cookie, const gencfg_msg &m, std::vector<uint8_t> &buffer,
                       size_t &used) { tlkbench::encode_next(cookie, &m, buffer, used); });
}

// The floor of EncodeOnly: the record's own IDR encoder alone, without the envelope (frame head,
// version, checks).
void BM_RecordIdrEncode(benchmark::State &state) {
  encode_all(
      state, [](tarvik_cookie *, const gencfg_msg &m, std::vector<uint8_t> &buffer, size_t &used) {
        const auto room = static_cast<uint32_t>(buffer.size() - used);
        uint32_t len = idr_encode_gencfg_msg_0(&m, buffer.data() + used, room);
        if (len > room) {
          used = 0;
          len = idr_encode_gencfg_msg_0(&m, buffer.data(), static_cast<uint32_t>(buffer.size()));
        }
        used += len;
      });
}

// One request-reply on a bare socketpair with the frame sizes of an add-and-get.
void BM_BareRoundTrip(benchmark::State &state) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  Objects objs(cookie, TLK_OP_ADD_GET);
  uint8_t frame[512];
  size_t len = sizeof frame;
  (void)tarvik_msg_idl_encode_pa(cookie, &objs.msgs[0], frame, &len);
  tarvik_close(cookie);
  tlkbench::bare_round_trip(state, len, len);
}

}  // namespace

BENCHMARK(BM_BareRoundTrip);
BENCHMARK(BM_RecordIdrEncode)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_EncodeOnly)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_BulkAdd)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_OneByOneAdd)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(BM_BulkAddGet)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK(BM_OneByOneAddGet)->Unit(benchmark::kMillisecond)->Iterations(1);
