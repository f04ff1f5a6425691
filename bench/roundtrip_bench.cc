// One raw request-reply round trip through libtarlink and the simulated kernel, against the bare
// floor: write and read on one socketpair end, read and write back on the other, no library.
#include <benchmark/benchmark.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include "floor.h"
#include "tarlink.h"
#include "tarsim.hpp"

namespace {

constexpr uint8_t kType = 26;  // "tarlink stats", a raw type
constexpr size_t kRequestBody = 12;
constexpr size_t kReplyBody = 16;

// The floor: four system calls, the same message sizes as the library's round trip below.
void BM_BareSocketpairRoundTrip(benchmark::State &state) {
  tlkbench::bare_round_trip(state, 24 + kRequestBody, 24 + kReplyBody);
}
BENCHMARK(BM_BareSocketpairRoundTrip);

struct Session {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = nullptr;
  std::vector<uint8_t> request;
  Session() {
    kernel.reply_raw(
        kType, TLK_OP_GET,
        tarsim::raw_message(kType, TLK_OP_GET, 0, std::vector<uint8_t>(kReplyBody, 2)));
    cookie = tarvik_open(2);
    request = tarsim::raw_message(kType, TLK_OP_GET, 0, std::vector<uint8_t>(kRequestBody, 1));
  }
  ~Session() { tarvik_close(cookie); }
  // Stamps the next sequence number into the request, as a request operation does.
  void stamp() {
    uint32_t seq;
    tarvik_seq_get_next(cookie, &seq);
    memcpy(&request[12], &seq, 4);
  }
};

// tarvik_write + tarvik_msg_read: the fixed read of a reply known to fit 16384 bytes.
void BM_LibraryRawRoundTrip(benchmark::State &state) {
  Session s;
  void *reply = tarvik_msg_malloc(s.cookie);
  size_t len = 0;
  for (auto _ : state) {
    s.stamp();
    if (tarvik_write(s.cookie, s.request.data(), s.request.size()) != 0) break;
    if (tarvik_msg_read(s.cookie, reply, &len) != 0) {
      state.SkipWithError("read failed");
      break;
    }
  }
  tarvik_msg_free(s.cookie, reply);
}
BENCHMARK(BM_LibraryRawRoundTrip);

// tarvik_write + tarvik_long_msg_read: peek, allocate exactly, read, free.
void BM_LibraryRawRoundTripLongRead(benchmark::State &state) {
  Session s;
  for (auto _ : state) {
    s.stamp();
    if (tarvik_write(s.cookie, s.request.data(), s.request.size()) != 0) break;
    void *reply = nullptr;
    if (tarvik_long_msg_read(s.cookie, &reply, nullptr) != 0) {
      state.SkipWithError("read failed");
      break;
    }
    tarvik_msg_free(s.cookie, reply);
  }
}
BENCHMARK(BM_LibraryRawRoundTripLongRead);

// A structured get: ifl_msg request in IDR, reply read whole and decoded into one arena.
void BM_IflmGetByIndex(benchmark::State &state) {
  Session s;
  for (auto _ : state) {
    void *msg = nullptr;
    if (tarvik_iflm_get_by_index(s.cookie, 71, TLK_OP_GET, &msg, nullptr) != 0) {
      state.SkipWithError("get failed");
      break;
    }
    tarvik_msg_idl_release(s.cookie, msg, nullptr);
  }
}
BENCHMARK(BM_IflmGetByIndex);

// The library's codec share of that get: encode the request frame and decode a reply frame of
// the same message, no I/O.
void BM_IflmEncodeDecodeOnly(benchmark::State &state) {
  Session s;
  auto *req = static_cast<ifl_msg *>(tarvik_msg_malloc(s.cookie));
  req->iflm_hdr.tlkh_type = 6;
  req->iflm_hdr.tlkh_version = 'k';
  req->iflm_index.idx = 71;
  static char name[] = "ge0";
  req->iflm_name = reinterpret_cast<uint8_t *>(name);
  req->iflm_name_len = sizeof name;
  for (auto _ : state) {
    void *frame = nullptr, *msg = nullptr;
    size_t len = 0;
    if (tarvik_msg_idl_encode(s.cookie, req, nullptr, &frame, &len) != 0) break;
    if (tarvik_msg_idl_decode(s.cookie, frame, len, &msg, nullptr) != 0) break;
    tarvik_msg_idl_release(s.cookie, msg, nullptr);
    tarvik_msg_free(s.cookie, frame);
  }
  tarvik_msg_free(s.cookie, req);
}
BENCHMARK(BM_IflmEncodeDecodeOnly);

}  // namespace
