// Demo step: the same objects programmed in bulk and one by one, with the rates side by side.
#include <string.h>
#include <time.h>

#include <algorithm>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

constexpr uint32_t kObjects = 100000;
constexpr uint32_t kWindow = 4096;  // entries per tarvik_msg_writev_idl call
uint8_t g_blob[16] = {0xB1, 0x0B};

double seconds_now() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// A gencfg add of a 16-byte blob under numeric key `kid` of blob type (9, minor).
void fill(gencfg_msg &m, tarvik_cookie *c, uint16_t minor, uint32_t kid) {
  m = gencfg_msg{};
  m.gencfg_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_GENCFG_TYPE];
  m.gencfg_hdr.tlkh_type = TLK_GENCFG_TYPE;
  m.gencfg_hdr.tlkh_op = TLK_OP_ADD;
  m.gencfg_hdr.tlkh_fixedlen = sizeof(gencfg_msg);
  tarvik_seq_get_next(c, &m.gencfg_hdr.tlkh_seq);
  m.major = 9;
  m.minor = minor;
  m.flags = TLK_GENCFG_KID;
  m.kid = kid;
  m.blob = g_blob;
  m.blob_len = sizeof g_blob;
}

struct Outcome {
  double seconds = 0;
  uint64_t writes = 0;
  uint32_t refused = 0;
};

Outcome in_bulk(tarsim::Kernel &kernel, tarvik_cookie *c) {
  Outcome out;
  std::vector<gencfg_msg> msgs(kWindow);
  std::vector<tarvik_msg_iov_t> iov(kWindow);
  const uint64_t writes = kernel.writes(tarvik_getsockfd(c));
  const double start = seconds_now();
  for (uint32_t first = 0; first < kObjects; first += kWindow) {
    const uint32_t n = std::min(kWindow, kObjects - first);
    for (uint32_t i = 0; i < n; ++i) {
      fill(msgs[i], c, 1, first + i);
      iov[i] = tarvik_msg_iov_t{&msgs[i], nullptr, 0, 0};  // no reply wanted
    }
    tarvik_msg_writev_idl(c, n, iov.data(), nullptr);
    for (uint32_t i = 0; i < n; ++i) out.refused += iov[i].write_err != 0;
  }
  out.seconds = seconds_now() - start;
  out.writes = kernel.writes(tarvik_getsockfd(c)) - writes;
  return out;
}

Outcome one_by_one(tarsim::Kernel &kernel, tarvik_cookie *c) {
  Outcome out;
  gencfg_msg m;
  const uint64_t writes = kernel.writes(tarvik_getsockfd(c));
  const double start = seconds_now();
  for (uint32_t kid = 0; kid < kObjects; ++kid) {
    fill(m, c, 2, kid);
    out.refused += tarvik_msg_write_idl(c, &m, nullptr) != 0;
  }
  out.seconds = seconds_now() - start;
  out.writes = kernel.writes(tarvik_getsockfd(c)) - writes;
  return out;
}

}  // namespace

int demo_bulk(tarsim::Kernel &kernel, tarvik_cookie *) {
  tarvik_cookie *c = tarvik_open(2);
  if (c == nullptr || tarvik_set_sync_mode(c, 1) != 0) {
    printf("  bulk mode could not be turned on\n");
    tarvik_close(c);
    return 1;
  }
  printf(
      "  %u gencfg blobs of %zu bytes each way; the bulk send buffer is the socket's, %d bytes\n",
      kObjects, sizeof g_blob, TLK_DEFAULT_SOCKBUF);
  const size_t stored = kernel.gencfg().store().size();
  const Outcome bulk = in_bulk(kernel, c);
  const Outcome single = one_by_one(kernel, c);
  tarvik_close(c);
  const double bulk_rate = kObjects / bulk.seconds, single_rate = kObjects / single.seconds;
  printf("  %-12s %10s %12s %14s %8s\n", "", "writes", "seconds", "objects/s", "refused");
  printf("  %-12s %10llu %12.3f %14.0f %8u\n", "in bulk",
         static_cast<unsigned long long>(bulk.writes), bulk.seconds, bulk_rate, bulk.refused);
  printf("  %-12s %10llu %12.3f %14.0f %8u\n", "one by one",
         static_cast<unsigned long long>(single.writes), single.seconds, single_rate,
         single.refused);
  printf("  bulk is %.1fx the one-by-one rate; the kernel now holds %zu more blobs\n",
         bulk_rate / single_rate, kernel.gencfg().store().size() - stored);
  return (bulk.refused == 0 && single.refused == 0 &&
          kernel.gencfg().store().size() - stored == 2 * kObjects)
             ? 0
             : 1;
}

}  // namespace tlkctl
