// Notifications per second: the simulated kernel queues N notifications of a typical record, and
// tarvik_async_event_process delivers them to a handler that frees each one.  Measured with bulk
// packing on (many notifications per read) and off (one per read), against the floor of the same
// run: the per-message work alone on the same bytes, with no socket and no kernel.
//
// Two forms: framed marker messages (IDR, decoded into an arena each), and raw route
// records (one allocation and one copy each).  Argument "framed" chooses.
#include <benchmark/benchmark.h>
#include <errno.h>
#include <string.h>

#include <vector>

#include "tarlink.h"
#include "tarsim.hpp"

namespace {

constexpr uint8_t kRouteType = 2;
constexpr uint8_t kMarkerType = 102;
constexpr size_t kBody = 72;  // a route record of typical size: 96 bytes with the header

struct Counter {
  size_t heard = 0;
};

int count_and_free(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  ++static_cast<Counter *>(arg)->heard;
  tarvik_msg_free(cookie, msg);
  return 0;
}

// Encoding needs a session but no kernel traffic: the caller's session is used.
std::vector<uint8_t> framed_marker(tarvik_cookie *c) {
  tlk_marker_msg m;
  memset(&m, 0, sizeof m);
  m.tlkmk_hdr.tlkh_version = TARVIK_VERSION_TABLE[kMarkerType];
  m.tlkmk_hdr.tlkh_type = kMarkerType;
  m.tlkmk_hdr.tlkh_op = TLK_OP_ADD;
  m.tlkmk_hdr.tlkh_msglen = sizeof m;
  m.tlkmk_hdr.tlkh_fixedlen = sizeof m;
  m.tlkmk_cookie = 0xC0FFEE;
  m.tlkmk_seq = 77;
  void *buf = nullptr;
  size_t len = 0;
  std::vector<uint8_t> out;
  if (tarvik_msg_idl_encode(c, &m, nullptr, &buf, &len) == 0) {
    out.assign(static_cast<uint8_t *>(buf), static_cast<uint8_t *>(buf) + len);
    tarvik_msg_free(c, buf);
  }
  return out;
}

std::vector<uint8_t> note_of(tarvik_cookie *c, bool framed) {
  return framed ? framed_marker(c)
                : tarsim::raw_message(kRouteType, TLK_OP_ADD, 0, std::vector<uint8_t>(kBody, 7));
}

struct Listener {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = nullptr;
  Counter counter;
  std::vector<uint8_t> note;
  uint8_t type;
  Listener(bool bulk, bool framed) : type(framed ? kMarkerType : kRouteType) {
    cookie = tarvik_open(2);
    note = note_of(cookie, framed);
    tarvik_set_async_info_nocontext(cookie, nullptr);
    if (bulk) tarvik_set_async_mode(cookie, TLK_ASYNC_BULK);
    tarvik_async_set_num_read_msg(cookie, 64);
    if (framed) {
      tarvik_marker_async_register(cookie, &counter, count_and_free);
    } else {
      tarvik_rtm_async_register(cookie, &counter, count_and_free);
    }
    kernel.set_auto_flush(false);
    kernel.set_async_seq(tarvik_getsockfd(cookie), 1);
  }
  ~Listener() { tarvik_close(cookie); }
  void queue(size_t n) {
    for (size_t i = 0; i < n; ++i) kernel.notify(type, note);
  }
  // Sends and processes until every queued notification has been handled.
  bool deliver(size_t n) {
    const size_t target = counter.heard + n;
    while (counter.heard < target) {
      kernel.flush();
      if (tarvik_async_event_process(cookie) < 0 && errno != EAGAIN) return false;
    }
    return true;
  }
};

// Delivery alone: the kernel's queueing is outside the timing.
void BM_AsyncDeliver(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  Listener l(state.range(1) != 0, state.range(2) != 0);
  for (auto _ : state) {
    state.PauseTiming();
    l.queue(n);
    state.ResumeTiming();
    if (!l.deliver(n)) {
      state.SkipWithError("event processing failed");
      break;
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
  state.counters["reads_per_1000"] = benchmark::Counter(
      1000.0 * static_cast<double>(l.kernel.notify_reads(tarvik_getsockfd(l.cookie))) /
      static_cast<double>(l.kernel.notifications(tarvik_getsockfd(l.cookie))));
}
BENCHMARK(BM_AsyncDeliver)
    ->ArgNames({"n", "bulk", "framed"})
    ->Args({1000, 1, 1})
    ->Args({1000, 0, 1})
    ->Args({1000, 1, 0})
    ->Args({1000, 0, 0});

// End to end: the kernel queues, stamps and sends, the library reads, walks and delivers.
void BM_AsyncEndToEnd(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  Listener l(state.range(1) != 0, state.range(2) != 0);
  for (auto _ : state) {
    l.queue(n);
    if (!l.deliver(n)) {
      state.SkipWithError("event processing failed");
      break;
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
}
BENCHMARK(BM_AsyncEndToEnd)
    ->ArgNames({"n", "bulk", "framed"})
    ->Args({1000, 1, 1})
    ->Args({1000, 0, 1})
    ->Args({1000, 1, 0})
    ->Args({1000, 0, 0});

// The floor: what the engine does per message once the bytes are in its buffer, on the same
// packed bytes, with no system call: for frames the decode into an arena and its release; for raw
// records the length from the header, a private copy, and its free.
void BM_DecodeOnly(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const bool framed = state.range(1) != 0;
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = tarvik_open(2);
  const std::vector<uint8_t> note = note_of(cookie, framed);
  std::vector<uint8_t> packed;
  for (size_t i = 0; i < n; ++i) packed.insert(packed.end(), note.begin(), note.end());
  const size_t len = note.size();
  Counter counter;
  for (auto _ : state) {
    for (size_t pos = 0; pos < packed.size(); pos += len) {
      void *msg = nullptr;
      if (framed) {
        if (tarvik_msg_idl_decode(cookie, &packed[pos], len, &msg, nullptr) != 0) {
          state.SkipWithError("decode failed");
          return;
        }
      } else {
        msg = tarvik_size_alloc(cookie, len);
        memcpy(msg, &packed[pos], len);
      }
      count_and_free(cookie, &counter, msg, 0);
    }
  }
  benchmark::DoNotOptimize(counter.heard);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(n));
  state.counters["bytes_per_msg"] = static_cast<double>(len);
  tarvik_close(cookie);
}
BENCHMARK(BM_DecodeOnly)->ArgNames({"n", "framed"})->Args({1000, 1})->Args({1000, 0});

}  // namespace
