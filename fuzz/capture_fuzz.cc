// Fuzzes `tlkctl decode`: any bytes as a capture file, read and printed as trace lines, and any
// bytes as one message's trace line (frame decode and formatter on garbage).  Every record the
// reader gives must lie inside the input, and a failed reader must stay failed with a one-line
// error.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "commands.h"
#include "tarsim/capture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static FILE *null = fopen("/dev/null", "w");
  (void)tlkctl::trace_line(data, size, size % 2 == 1);
  tarsim_capture_reader r;
  if (tarsim_capture_reader_init(&r, data, size) != 0) {
    if (r.error[0] == '\0' || std::strchr(r.error, '\n') != nullptr) std::abort();
    return 0;
  }
  tlkctl::DecodeOptions full;
  full.full = true;
  (void)tlkctl::decode_capture(data, size, full, null);
  tarsim_capture_message m;
  int got;
  uint64_t sum = 0;
  while ((got = tarsim_capture_next(&r, &m)) == 1) {
    if (m.bytes < data || m.bytes + m.length > data + size) std::abort();
    for (uint32_t i = 0; i < m.length; ++i) sum += m.bytes[i];  // touch every byte given
  }
  if (got < 0 && (r.error[0] == '\0' || tarsim_capture_next(&r, &m) != -1)) std::abort();
  return sum == 1 ? 1 : 0;  // keeps the loop; libFuzzer ignores the value
}
