// tlkctl decode of a capture of a million route notifications, through the same code as the
// command (read the file, one trace line per message, written to /dev/null), against reading the
// same file's bytes alone, in the same run.  Messages per second in the "items" column.
#include <benchmark/benchmark.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"
#include "tarsim/capture.h"

namespace {

// A million messages; the test script's smoke run (TARLINK_BENCH_SMOKE set) takes a hundredth.
const uint32_t kMessages = getenv("TARLINK_BENCH_SMOKE") ? 10000 : 1000000;
constexpr uint32_t kDistinct = 256;  // route notifications heard, then repeated in the capture

int count_route(tarvik_cookie *c, void *arg, void *msg, uintptr_t) {
  ++*static_cast<unsigned *>(arg);
  tarvik_msg_free(c, msg);
  return 0;
}

// Route adds by one session, heard by another: the notifications' bytes as the kernel sent them.
std::vector<tarsim::Bytes> route_notifications() {
  std::vector<tarsim::Bytes> out;
  tarsim::Kernel kernel;
  tarvik_cookie *listener = tarvik_open(9);
  tarvik_cookie *writer = tarvik_open(10);
  unsigned heard = 0;
  if (listener == nullptr || writer == nullptr || tarvik_create_async_context(listener) != 0 ||
      tarvik_rtm_async_register(listener, &heard, count_route) != 0) {
    tarvik_close(listener);
    tarvik_close(writer);
    return out;
  }
  kernel.record(true);
  for (uint32_t i = 0; i < kDistinct; ++i) {
    const uint8_t net[4] = {10, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i), 0};
    tarvik_rtm_add(writer, 0, TLK_AF_INET, 1, 0, 2, 0, 0, 0, 0, 0, 0, nullptr, net, 24, nullptr,
                   nullptr);
  }
  const int fd = tarvik_getsockfd(listener);
  for (const tarsim::Recorded &r : kernel.recorded())
    if (r.session == fd && !r.to_kernel) out.push_back(r.bytes);
  tarvik_close(writer);
  tarvik_close(listener);
  return out;
}

struct Capture {
  std::string path;
  size_t bytes = 0;
  std::string error;
  Capture() {
    char tmpl[] = "/tmp/bench-decode-XXXXXX";
    const int fd = mkstemp(tmpl);
    if (fd < 0) {
      error = "no temporary file";
      return;
    }
    close(fd);
    path = tmpl;
    const std::vector<tarsim::Bytes> notes = route_notifications();
    if (notes.size() != kDistinct) {
      error = "heard " + std::to_string(notes.size()) + " route notifications, not " +
              std::to_string(kDistinct);
      return;
    }
    tarsim_capture_writer w;
    const uint64_t start = 1'700'000'000'000'000'000ull;
    if (tarsim_capture_writer_open(&w, path.c_str(), start) != 0) {
      error = "cannot write the capture";
      return;
    }
    for (uint32_t i = 0; i < kMessages; ++i) {
      const tarsim::Bytes &b = notes[i % kDistinct];
      tarsim_capture_write(&w, TARSIM_CAPTURE_FROM_KERNEL, 5, start + i * 1000ull, b.data(),
                           b.size());
    }
    if (tarsim_capture_writer_close(&w) != 0) error = "writing the capture failed";
    std::vector<uint8_t> all;
    std::string e;
    if (error.empty() && tlkctl::read_whole_file(path.c_str(), &all, &e)) bytes = all.size();
  }
  ~Capture() {
    if (!path.empty()) unlink(path.c_str());
  }
};

Capture &capture() {
  static Capture c;
  return c;
}

// The floor: the file's bytes read into memory, nothing else.
void BM_ReadFileOnly(benchmark::State &state) {
  Capture &c = capture();
  if (!c.error.empty()) return state.SkipWithError(c.error.c_str());
  std::vector<uint8_t> bytes;
  std::string error;
  for (auto _ : state) {
    if (!tlkctl::read_whole_file(c.path.c_str(), &bytes, &error))
      return state.SkipWithError(error.c_str());
    benchmark::DoNotOptimize(bytes.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kMessages);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * c.bytes));
}

// What `tlkctl decode FILE >/dev/null` does: read, check every record, a trace line per message
// through the library's frame decoder, written to a fully buffered /dev/null.
void BM_Decode(benchmark::State &state) {
  Capture &c = capture();
  if (!c.error.empty()) return state.SkipWithError(c.error.c_str());
  FILE *null = fopen("/dev/null", "w");
  if (null == nullptr) return state.SkipWithError("no /dev/null");
  static char buffer[1 << 20];
  setvbuf(null, buffer, _IOFBF, sizeof buffer);
  std::vector<uint8_t> bytes;
  std::string error;
  for (auto _ : state) {
    if (!tlkctl::read_whole_file(c.path.c_str(), &bytes, &error)) {
      state.SkipWithError(error.c_str());
      break;
    }
    const tlkctl::DecodeResult r =
        tlkctl::decode_capture(bytes.data(), bytes.size(), tlkctl::DecodeOptions{}, null);
    if (!r.error.empty() || r.messages != kMessages) {
      state.SkipWithError("the capture did not decode whole");
      break;
    }
  }
  fclose(null);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kMessages);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * c.bytes));
}

}  // namespace

BENCHMARK(BM_ReadFileOnly)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_Decode)->Unit(benchmark::kMillisecond)->Iterations(2);
BENCHMARK_MAIN();
