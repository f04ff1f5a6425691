// Codec cost against the floor of copying the same encoded bytes.
//
//   flat:   t_flat, 55 plain fields, 248 bytes in memory
//   nested: t_nested_msg, a tlk_hdr, a u32, a 64-byte blob and a list of two 4-field records
//
// The peer: the same two messages through protobuf (bench/codec_peer.proto), serialized into a
// buffer of the right size and parsed back into a reused message, when protobuf was found at
// configure time.
//
// Each benchmark reports bytes/s of the encoded form and "field" as time per field (inverted
// rate).  Decoders allocate from a bump arena reset per iteration, as a decoded message lives in
// one arena.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "tarlink_test_records.h"

#ifdef TARLINK_BENCH_PROTOBUF
#include "codec_peer.pb.h"
#endif

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

// ---- the protobuf peer ----

#ifdef TARLINK_BENCH_PROTOBUF

tlkbench::Flat peer_flat(const t_flat &f) {
  tlkbench::Flat p;
  p.set_f32_0(f.f32_0);
  p.set_f32_1(f.f32_1);
  p.set_f32_2(f.f32_2);
  p.set_f32_3(f.f32_3);
  p.set_f32_4(f.f32_4);
  p.set_f32_5(f.f32_5);
  p.set_f32_6(f.f32_6);
  p.set_f32_7(f.f32_7);
  p.set_f32_8(f.f32_8);
  p.set_f32_9(f.f32_9);
  p.set_f32_10(f.f32_10);
  p.set_f32_11(f.f32_11);
  p.set_f32_12(f.f32_12);
  p.set_f32_13(f.f32_13);
  p.set_f32_14(f.f32_14);
  p.set_f32_15(f.f32_15);
  p.set_f32_16(f.f32_16);
  p.set_f32_17(f.f32_17);
  p.set_f32_18(f.f32_18);
  p.set_f32_19(f.f32_19);
  p.set_f32_20(f.f32_20);
  p.set_f32_21(f.f32_21);
  p.set_f32_22(f.f32_22);
  p.set_f32_23(f.f32_23);
  p.set_f32_24(f.f32_24);
  p.set_f32_25(f.f32_25);
  p.set_f32_26(f.f32_26);
  p.set_f32_27(f.f32_27);
  p.set_f32_28(f.f32_28);
  p.set_f32_29(f.f32_29);
  p.set_f64_0(f.f64_0);
  p.set_f64_1(f.f64_1);
  p.set_f64_2(f.f64_2);
  p.set_f64_3(f.f64_3);
  p.set_f64_4(f.f64_4);
  p.set_f64_5(f.f64_5);
  p.set_f64_6(f.f64_6);
  p.set_f64_7(f.f64_7);
  p.set_f16_0(f.f16_0);
  p.set_f16_1(f.f16_1);
  p.set_f16_2(f.f16_2);
  p.set_f16_3(f.f16_3);
  p.set_f16_4(f.f16_4);
  p.set_f16_5(f.f16_5);
  p.set_f16_6(f.f16_6);
  p.set_f16_7(f.f16_7);
  p.set_f16_8(f.f16_8);
  p.set_f16_9(f.f16_9);
  p.set_f16_10(f.f16_10);
  p.set_f16_11(f.f16_11);
  p.set_f16_12(f.f16_12);
  p.set_f16_13(f.f16_13);
  p.set_f16_14(f.f16_14);
  p.set_f16_15(f.f16_15);
  p.set_fbytes(f.fbytes, sizeof f.fbytes);
  return p;
}

tlkbench::Nested peer_nested(const Nested &n) {
  tlkbench::Nested p;
  tlkbench::Hdr *h = p.mutable_hdr();
  h->set_type(n.msg.hdr.tlkh_type);
  h->set_seq(n.msg.hdr.tlkh_seq);
  h->set_fixedlen(n.msg.hdr.tlkh_fixedlen);
  p.set_id(n.msg.id);
  p.set_payload(n.payload, sizeof n.payload);
  for (const t_sub &s : n.subs) {
    tlkbench::Sub *e = p.add_subs();
    e->set_a(s.a);
    e->set_b(s.b);
    e->set_c(s.c);
    e->set_d(s.d);
  }
  return p;
}

template <typename Msg>
void peer_encode(benchmark::State &state, const Msg &m, double fields) {
  std::vector<uint8_t> out(m.ByteSizeLong());
  for (auto _ : state) {
    benchmark::DoNotOptimize(m.SerializeToArray(out.data(), static_cast<int>(out.size())));
    benchmark::ClobberMemory();
  }
  report(state, out.size(), fields);
}

template <typename Msg>
void peer_decode(benchmark::State &state, const Msg &m, double fields) {
  std::vector<uint8_t> in(m.ByteSizeLong());
  (void)m.SerializeToArray(in.data(), static_cast<int>(in.size()));
  Msg back;
  bool ok = true;
  for (auto _ : state) {
    ok &= back.ParseFromArray(in.data(), static_cast<int>(in.size()));
    benchmark::ClobberMemory();
  }
  if (!ok || back.SerializeAsString() != m.SerializeAsString())
    state.SkipWithError("parsed message differs");
  report(state, in.size(), fields);
}

void BM_Flat_ProtobufEncode(benchmark::State &state) {
  peer_encode(state, peer_flat(make_flat()), kFlatFields);
}
void BM_Flat_ProtobufDecode(benchmark::State &state) {
  peer_decode(state, peer_flat(make_flat()), kFlatFields);
}
void BM_Nested_ProtobufEncode(benchmark::State &state) {
  Nested n;
  peer_encode(state, peer_nested(n), kNestedFields);
}
void BM_Nested_ProtobufDecode(benchmark::State &state) {
  Nested n;
  peer_decode(state, peer_nested(n), kNestedFields);
}

BENCHMARK(BM_Flat_ProtobufEncode);
BENCHMARK(BM_Flat_ProtobufDecode);
BENCHMARK(BM_Nested_ProtobufEncode);
BENCHMARK(BM_Nested_ProtobufDecode);

#endif  // TARLINK_BENCH_PROTOBUF

}  // namespace
