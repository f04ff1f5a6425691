// Codec cost against the floor of copying the same encoded bytes.
//
//   flat:   t_flat, 55 plain fields, 248 bytes in memory
//   nested: t_nested_msg, a tlk_hdr, a u32, a 64-byte blob and a list of two 4-field records
//
// Each benchmark reports bytes/s of the encoded form and "field" as time per field (inverted
// rate).  Decoders allocate from a bump arena reset per iteration, as a decoded message lives in
// one arena.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "tarlink_test_records.h"

namespace {

struct Arena {
  alignas(8) uint8_t mem[4096];
  uint32_t used = 0;
  static void *alloc(uint32_t size, void *ctx) {
    auto *a = static_cast<Arena *>(ctx);
    uint32_t n = (size + 7u) & ~7u;
    if (a->used + n > sizeof a->mem) return nullptr;
    void *p = a->mem + a->used;
    a->used += n;
    return p;
  }
};

t_flat make_flat() {
  t_flat f{};
  auto *p = reinterpret_cast<uint8_t *>(&f);
  for (size_t i = 0; i < sizeof f; ++i) p[i] = static_cast<uint8_t>(i * 7 + 1);
  return f;
}

struct Nested {
  uint8_t payload[64];
  t_sub subs[2];
  t_nested_msg msg{};
  Nested() {
    for (int i = 0; i < 64; ++i) payload[i] = static_cast<uint8_t>(i);
    subs[0] = {1, 2, 3, 4};
    subs[1] = {5, 6, 7, 8};
    msg.hdr.tlkh_type = 2;
    msg.hdr.tlkh_seq = 99;
    msg.hdr.tlkh_fixedlen = 96;
    msg.id = 7;
    msg.payload = payload;
    msg.payload_len = 64;
    msg.subs = subs;
    msg.nsubs = 2;
  }
};

constexpr double kFlatFields = 55;
constexpr double kNestedFields = 1 + 11 + 1 + 1 + 1 + 2 * 4;  // the header's 12th is its list

void report(benchmark::State &state, size_t bytes, double fields) {
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
  state.counters["field"] = benchmark::Counter(
      fields, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// ---- flat ----

void BM_Flat_Memcpy_IdrBytes(benchmark::State &state) {
  t_flat f = make_flat();
  std::vector<uint8_t> src(idr_encode_t_flat_0(&f, nullptr, 0)), dst(src.size());
  (void)idr_encode_t_flat_0(&f, src.data(), static_cast<uint32_t>(src.size()));
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), src.size());
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  report(state, src.size(), kFlatFields);
}

void BM_Flat_Memcpy_TlvBytes(benchmark::State &state) {
  t_flat f = make_flat();
  std::vector<uint8_t> src(tlv_encode_t_flat_0(&f, nullptr, nullptr, 0)), dst(src.size());
  (void)tlv_encode_t_flat_0(&f, nullptr, src.data(), static_cast<uint32_t>(src.size()));
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), src.size());
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  report(state, src.size(), kFlatFields);
}

void BM_Flat_IdrEncode(benchmark::State &state) {
  t_flat f = make_flat();
  std::vector<uint8_t> out(idr_encode_t_flat_0(&f, nullptr, 0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        idr_encode_t_flat_0(&f, out.data(), static_cast<uint32_t>(out.size())));
    benchmark::ClobberMemory();
  }
  report(state, out.size(), kFlatFields);
}

void BM_Flat_IdrDecode(benchmark::State &state) {
  t_flat f = make_flat(), back;
  std::vector<uint8_t> in(idr_encode_t_flat_0(&f, nullptr, 0));
  (void)idr_encode_t_flat_0(&f, in.data(), static_cast<uint32_t>(in.size()));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        idr_decode_t_flat_0(&back, in.data(), static_cast<uint32_t>(in.size())));
    benchmark::ClobberMemory();
  }
  if (std::memcmp(&back, &f, sizeof f) != 0) state.SkipWithError("decoded record differs");
  report(state, in.size(), kFlatFields);
}

void BM_Flat_TlvEncode(benchmark::State &state) {
  t_flat f = make_flat();
  std::vector<uint8_t> out(tlv_encode_t_flat_0(&f, nullptr, nullptr, 0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        tlv_encode_t_flat_0(&f, nullptr, out.data(), static_cast<uint32_t>(out.size())));
    benchmark::ClobberMemory();
  }
  report(state, out.size(), kFlatFields);
}

void BM_Flat_TlvDecode(benchmark::State &state) {
  t_flat f = make_flat(), back;
  std::vector<uint8_t> in(tlv_encode_t_flat_0(&f, nullptr, nullptr, 0));
  (void)tlv_encode_t_flat_0(&f, nullptr, in.data(), static_cast<uint32_t>(in.size()));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        tlv_decode_t_flat_0(&back, nullptr, in.data(), static_cast<uint32_t>(in.size())));
    benchmark::ClobberMemory();
  }
  if (std::memcmp(&back, &f, sizeof f) != 0) state.SkipWithError("decoded record differs");
  report(state, in.size(), kFlatFields);
}

// ---- nested ----

void BM_Nested_Memcpy_IdrBytes(benchmark::State &state) {
  Nested n;
  std::vector<uint8_t> src(idr_encode_t_nested_msg_0(&n.msg, nullptr, 0)), dst(src.size());
  (void)idr_encode_t_nested_msg_0(&n.msg, src.data(), static_cast<uint32_t>(src.size()));
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), src.size());
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  report(state, src.size(), kNestedFields);
}

void BM_Nested_Memcpy_TlvBytes(benchmark::State &state) {
  Nested n;
  std::vector<uint8_t> src(tlv_encode_t_nested_msg_0(&n.msg, nullptr, nullptr, 0)), dst(src.size());
  (void)tlv_encode_t_nested_msg_0(&n.msg, nullptr, src.data(), static_cast<uint32_t>(src.size()));
  for (auto _ : state) {
    std::memcpy(dst.data(), src.data(), src.size());
    benchmark::DoNotOptimize(dst.data());
    benchmark::ClobberMemory();
  }
  report(state, src.size(), kNestedFields);
}

void BM_Nested_IdrEncode(benchmark::State &state) {
  Nested n;
  std::vector<uint8_t> out(idr_encode_t_nested_msg_0(&n.msg, nullptr, 0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        idr_encode_t_nested_msg_0(&n.msg, out.data(), static_cast<uint32_t>(out.size())));
    benchmark::ClobberMemory();
  }
  report(state, out.size(), kNestedFields);
}

void BM_Nested_IdrDecode(benchmark::State &state) {
  Nested n;
  std::vector<uint8_t> in(idr_encode_t_nested_msg_0(&n.msg, nullptr, 0));
  (void)idr_encode_t_nested_msg_0(&n.msg, in.data(), static_cast<uint32_t>(in.size()));
  Arena arena;
  t_nested_msg back;
  for (auto _ : state) {
    arena.used = 0;
    benchmark::DoNotOptimize(idr_decode_t_nested_msg_0(
        &back, in.data(), static_cast<uint32_t>(in.size()), Arena::alloc, &arena));
    benchmark::ClobberMemory();
  }
  if (back.nsubs != 2 || back.subs[1].d != 8 || back.payload_len != 64)
    state.SkipWithError("decoded record differs");
  report(state, in.size(), kNestedFields);
}

void BM_Nested_TlvEncode(benchmark::State &state) {
  Nested n;
  std::vector<uint8_t> out(tlv_encode_t_nested_msg_0(&n.msg, nullptr, nullptr, 0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        tlv_encode_t_nested_msg_0(&n.msg, nullptr, out.data(), static_cast<uint32_t>(out.size())));
    benchmark::ClobberMemory();
  }
  report(state, out.size(), kNestedFields);
}

void BM_Nested_TlvDecode(benchmark::State &state) {
  Nested n;
  std::vector<uint8_t> in(tlv_encode_t_nested_msg_0(&n.msg, nullptr, nullptr, 0));
  (void)tlv_encode_t_nested_msg_0(&n.msg, nullptr, in.data(), static_cast<uint32_t>(in.size()));
  Arena arena;
  t_nested_msg back;
  for (auto _ : state) {
    arena.used = 0;
    benchmark::DoNotOptimize(tlv_decode_t_nested_msg_0(
        &back, nullptr, in.data(), static_cast<uint32_t>(in.size()), Arena::alloc, &arena));
    benchmark::ClobberMemory();
  }
  if (back.nsubs != 2 || back.subs[1].d != 8 || back.payload_len != 64)
    state.SkipWithError("decoded record differs");
  report(state, in.size(), kNestedFields);
}

BENCHMARK(BM_Flat_Memcpy_IdrBytes);
BENCHMARK(BM_Flat_IdrEncode);
BENCHMARK(BM_Flat_IdrDecode);
BENCHMARK(BM_Flat_Memcpy_TlvBytes);
BENCHMARK(BM_Flat_TlvEncode);
BENCHMARK(BM_Flat_TlvDecode);
BENCHMARK(BM_Nested_Memcpy_IdrBytes);
BENCHMARK(BM_Nested_IdrEncode);
BENCHMARK(BM_Nested_IdrDecode);
BENCHMARK(BM_Nested_Memcpy_TlvBytes);
BENCHMARK(BM_Nested_TlvEncode);
BENCHMARK(BM_Nested_TlvDecode);

}  // namespace
