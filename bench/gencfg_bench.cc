// gencfg add-and-get of one blob through libtarlink and the simulated kernel, plain and
// compressed, against two floors measured in the same run on the same bytes:
//   - the bare round trip: the same request and reply sizes written and read on one socketpair,
//     with no library and no kernel work;
//   - zlib's own time: compress and uncompress of the blob, nothing else.
// An add-and-get sends its blob as given, so the compressed variant compresses in the caller (as
// a daemon must for that op), and the library inflates the compressed reply.  Sizes: 64 B, 4 KiB,
// 256 KiB of configuration-like text.
#include <benchmark/benchmark.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zlib.h>

#include <random>
#include <string>
#include <vector>

#include "floor.h"
#include "tarlink.h"
#include "tarsim.hpp"

namespace {

std::vector<uint8_t> text(size_t n) {
  static const char *const kWords[] = {"interface ", "unit ",  "family ", "inet ", "address ",
                                       "filter ",    "input ", "term ",   "then ", "accept "};
  std::mt19937 rng(5);
  std::string s;
  for (unsigned line = 0; s.size() < n; ++line) {
    s += "set " + std::to_string(line) + " ";
    for (int w = 0; w < 5; ++w) s += kWords[rng() % 10];
    s += ";\n";
  }
  s.resize(n);
  return std::vector<uint8_t>(s.begin(), s.end());
}

std::vector<uint8_t> deflated(const std::vector<uint8_t> &in) {
  std::vector<uint8_t> out(compressBound(in.size()));
  uLongf len = out.size();
  compress(out.data(), &len, in.data(), in.size());
  out.resize(len);
  return out;
}

void sizes(benchmark::internal::Benchmark *b) {
  for (int64_t size : {64, 4096, 256 * 1024}) b->Arg(size);
  b->Unit(benchmark::kMicrosecond);
}

// The frame sizes an add-and-get puts on the wire, as measured through the kernel's record.
struct Frames {
  size_t request = 0, reply = 0;
};

struct Session {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = nullptr;
  char key[12] = "bench/blob";
  Session() {
    cookie = tarvik_open(2);
    tarvik_init_blob_compression(cookie, compress, uncompress);
  }
  ~Session() { tarvik_close(cookie); }
  gencfg_t record(const std::vector<uint8_t> &blob, bool compressed) {
    gencfg_t r{};
    r.major = 50;
    r.minor = 1;
    r.flags = TLK_GENCFG_KEY | (compressed ? TLK_GENCFG_COMPRESSED : 0);
    r.key = reinterpret_cast<uint8_t *>(key);
    r.key_len = static_cast<uint16_t>(strlen(key));
    r.blob = const_cast<uint8_t *>(blob.data());
    r.blob_len = static_cast<uint32_t>(blob.size());
    return r;
  }
  Frames frames(const std::vector<uint8_t> &blob, bool compressed) {
    kernel.record(true);
    gencfg_t r = record(blob, compressed);
    void *m = nullptr;
    if (tarvik_gencfg_add_and_get(cookie, &r, &m, nullptr) == 0) tarvik_msg_free(cookie, m);
    Frames f;
    for (const auto &rec : kernel.recorded())
      (rec.to_kernel ? f.request : f.reply) = rec.bytes.size();
    kernel.record(false);
    kernel.clear_recorded();
    return f;
  }
};

void BM_GencfgAddAndGet(benchmark::State &state, bool compressed) {
  const std::vector<uint8_t> blob = text(static_cast<size_t>(state.range(0)));
  Session s;
  const Frames f = s.frames(compressed ? deflated(blob) : blob, compressed);
  std::vector<uint8_t> packed(compressBound(blob.size()));
  for (auto _ : state) {
    gencfg_t r;
    if (compressed) {
      uLongf len = packed.size();
      compress(packed.data(), &len, blob.data(), blob.size());
      r = s.record(blob, true);
      r.blob = packed.data();
      r.blob_len = static_cast<uint32_t>(len);
    } else {
      r = s.record(blob, false);
    }
    void *m = nullptr;
    if (tarvik_gencfg_add_and_get(s.cookie, &r, &m, nullptr) != 0) {
      state.SkipWithError("add-and-get failed");
      break;
    }
    const auto *reply = static_cast<const gencfg_msg *>(m);
    benchmark::DoNotOptimize(reply->blob[reply->blob_len - 1]);
    tarvik_msg_free(s.cookie, m);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
  state.counters["request_frame"] = static_cast<double>(f.request);
  state.counters["reply_frame"] = static_cast<double>(f.reply);
}
BENCHMARK_CAPTURE(BM_GencfgAddAndGet, plain, false)->Apply(sizes);
BENCHMARK_CAPTURE(BM_GencfgAddAndGet, zlib, true)->Apply(sizes);

// The floor: a write and a read of the request's frame size, then of the reply's, on one
// socketpair, four system calls and no library work.  The frame sizes are those the library put
// on the wire for the same blob.
void BM_BareRoundTrip(benchmark::State &state, bool compressed) {
  const std::vector<uint8_t> blob = text(static_cast<size_t>(state.range(0)));
  Frames f;
  {
    Session s;
    f = s.frames(compressed ? deflated(blob) : blob, compressed);
  }
  tlkbench::bare_round_trip(state, f.request, f.reply);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK_CAPTURE(BM_BareRoundTrip, plain, false)->Apply(sizes);
BENCHMARK_CAPTURE(BM_BareRoundTrip, zlib, true)->Apply(sizes);

// zlib's own work on the same bytes: one compress and one uncompress.
void BM_ZlibOnly(benchmark::State &state) {
  const std::vector<uint8_t> blob = text(static_cast<size_t>(state.range(0)));
  std::vector<uint8_t> packed(compressBound(blob.size())), out(blob.size());
  for (auto _ : state) {
    uLongf len = packed.size();
    compress(packed.data(), &len, blob.data(), blob.size());
    uLongf out_len = out.size();
    uncompress(out.data(), &out_len, packed.data(), len);
    benchmark::DoNotOptimize(out[out_len - 1]);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_ZlibOnly)->Apply(sizes);

}  // namespace
