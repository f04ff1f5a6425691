// Trace lines per second for five message kinds (a route, a next hop, a device, a gencfg message
// without a blob and one carrying a class-of-service blob, which the printer decodes), each
// against a line of the same length built by one snprintf call into a buffer of the same size.
#include <benchmark/benchmark.h>
#include <string.h>

#include <string>
#include <vector>

#include "tarlink.h"

namespace {

constexpr size_t kLine = 2048;
constexpr int kNumeric = 4;  // no name lookups in a benchmark

uint8_t *bytes(const char *s) {
  return reinterpret_cast<uint8_t *>(const_cast<char *>(s));
}

void head(tlk_hdr &h, int type, int op, int flags) {
  h.tlkh_type = static_cast<uint8_t>(type);
  h.tlkh_op = static_cast<uint8_t>(op);
  h.tlkh_flags = static_cast<uint8_t>(flags);
  h.tlkh_id = 1;
}

struct Messages {
  uint8_t pfx[4] = {10, 20, 30, 0};
  uint8_t sa[16] = {16, 2, 0, 0, 192, 0, 2, 7};
  sockaddr_idl gw{};
  ifmedia media{};
  rt_msg rt{};
  rnh_msg rnh{};
  ifdev_msg ifd{};
  gencfg_msg gencfg{};
  gencfg_msg cos{};
  uint8_t cos_blob[256] = {};

  Messages() {
    head(rt.rt_hdr, TLK_MSG_ROUTE, TLK_OP_ADD, 2);
    rt.af = 2;
    rt.prefix = pfx;
    rt.prefix_len = 4;
    rt.plen = 24;
    rt.tid = 5;
    rt.type = 1;
    rt.nh_type = 2;
    rt.nhidx.idx = 1048574;
    rt.flags = 0x10;

    gw.sai_addr = sa;
    head(rnh.rnh_hdr, TLK_MSG_NEXTHOP, TLK_OP_ADD, 0);
    rnh.af = 2;
    rnh.rnh_f18 = &gw;
    rnh.rnh_f18_count = 1;
    rnh.nh = 2;
    rnh.idx.idx = 1048580;
    rnh.ifidx.idx = 77;

    head(ifd.ifdm_hdr, TLK_MSG_IFDEV, TLK_OP_CHANGE, 0);
    ifd.ifdm_name = bytes("ge-0/0/1");
    ifd.ifdm_name_len = 8;
    ifd.ifdm_index = 140;
    media.ifm_mtu = 1514;
    ifd.ifdm_media = &media;
    ifd.ifdm_media_len = 1;

    head(gencfg.gencfg_hdr, TLK_MSG_GENCFG, TLK_OP_ADD, 0);
    gencfg.major = 2;

    // A classifier bound to a logical interface, as the class-of-service daemon stores it.
    cos_msg_class_to_ifl bind{};
    bind.ifl = 71;
    bind.table_type = bytes("dscp");
    bind.table_type_len = 5;
    bind.table_id = 4;
    bind.cos_flags = 0x30;
    head(cos.gencfg_hdr, TLK_MSG_GENCFG, TLK_OP_ADD, 0);
    cos.major = 8;
    cos.minor = 6;
    cos.blob = cos_blob;
    cos.blob_len = tlv_encode_cos_msg_class_to_ifl_0(&bind, nullptr, cos_blob, sizeof cos_blob);
  }
};

Messages &messages() {
  static Messages m;
  return m;
}

const void *pick(int kind) {
  Messages &m = messages();
  switch (kind) {
    case 0:
      return &m.rt;
    case 1:
      return &m.rnh;
    case 2:
      return &m.ifd;
    case 3:
      return &m.gencfg;
    default:
      return &m.cos;
  }
}

void BM_format(benchmark::State &state) {
  const void *msg = pick(static_cast<int>(state.range(0)));
  std::vector<char> buf(kLine);
  for (auto _ : state) {
    benchmark::DoNotOptimize(tarvik_format_output(nullptr, buf.data(), buf.size(), kNumeric, msg));
    benchmark::ClobberMemory();
  }
  state.counters["lines/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["bytes"] = static_cast<double>(strlen(buf.data()));
}

// The floor: one snprintf of the same line into the same zeroed buffer, from the same formats
// with the values ready (names and the prefix already text), so that only the formatter's own
// work (columns, table look-ups, the prefix, the writes) is left out.
int one_snprintf(int kind, char *buf, size_t size) {
  memset(buf, 0, size);
  switch (kind) {
    case 0:
      return snprintf(buf, size,
                      "%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s"
                      "%s %s tid=%d plen=%d type=%s flags=0x%x nh=%s nhflags=0x%x nhidx=%d "
                      "rt_nhiflist = %d altfwdnhidx=%d filtidx=%d lr_id = %d featureid=%d %s %s "
                      "rt_mcast_nhiflist=%d dflags 0x%x\n",
                      "kernel", "self", "PV", "route", "add", "inet", "10.20.30.0", 5, 24, "user",
                      0x10, "ucst", 0, 1048574, 0, 0, 0, 0, 0, " req_ack", "", 0, 0);
    case 1:
      return snprintf(buf, size,
                      "%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s"
                      "%s addr=%s nh=%s flags=0x%x uflags=0x%x idx=%u ifidx=%u filteridx=%d "
                      "tid=%u lr_id=%d %s %s\n",
                      "kernel", "self", "P", "nexthop", "add", "inet", "192.0.2.7", "ucst", 0, 0,
                      1048580, 77, 0, 0, 0, "", "");
    case 2:
      return snprintf(buf, size,
                      "%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s"
                      "%s mtu=%d dflags=0x%x flags=0x%x sflags=0x%x idx=%d, gen=%d, i2c-id=%d, "
                      "ifm-hw-qs=%d, ifm-use-max-qs=%d, ifm-flags=%d, linkflags %x, priv_flags %x  "
                      "snmpid=%u, hier-levels=%d, l2-count=%d, l3-count=%d\n",
                      "kernel", "self", "P", "ifdev", "change", "ge-0/0/1", 1514, 0, 0, 0, 140, 0,
                      0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
    case 3:
      return snprintf(buf, size,
                      "%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s"
                      "major type=\"%s\" minor type=%u seq %d kid=%d lrid=%d\n",
                      "kernel", "self", "P", "gencfg", "add", "USP Blob", 0, 0, 0, 0);
    default:
      return snprintf(
          buf, size,
          "%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s"
          "major type=\"%s\" minor type=%u seq %d kid=%d lrid=%d"
          " minor type=<%s>: ifl = %d, table type = %s, table id = %d, cos_flags 0x%x\n",
          "kernel", "self", "P", "gencfg", "add", "COS BLOB", 6, 0, 0, 0, "classifier to ifl", 71,
          "dscp", 4, 0x30);
  }
}

void BM_snprintf(benchmark::State &state) {
  const int kind = static_cast<int>(state.range(0));
  std::vector<char> buf(kLine), ours(kLine);
  tarvik_format_output(nullptr, ours.data(), ours.size(), kNumeric, pick(kind));
  one_snprintf(kind, buf.data(), buf.size());
  if (strcmp(buf.data(), ours.data()) != 0) {
    state.SkipWithError("the floor's line differs from the formatter's");
    return;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(one_snprintf(kind, buf.data(), buf.size()));
    benchmark::ClobberMemory();
  }
  state.counters["lines/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["bytes"] = static_cast<double>(strlen(buf.data()));
}

// Kinds: 0 route, 1 next hop, 2 device, 3 gencfg, 4 gencfg with a CoS blob.
BENCHMARK(BM_format)->ArgName("route_nh_ifd_gencfg_cos")->DenseRange(0, 4);
BENCHMARK(BM_snprintf)->ArgName("route_nh_ifd_gencfg_cos")->DenseRange(0, 4);

}  // namespace
