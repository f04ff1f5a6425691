// tlkctl decode FILE [--full]: a capture file (tarsim/capture.h) as trace lines, one per message.
#include <string.h>

#include "commands.h"

namespace tlkctl {

int run_decode(int argc, char **argv) {
  const char *path = nullptr;
  DecodeOptions options;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--full") == 0) {
      options.full = true;
    } else if (path == nullptr && argv[i][0] != '-') {
      path = argv[i];
    } else {
      return usage_error("decode");
    }
  }
  if (path == nullptr) return usage_error("decode");
  std::vector<uint8_t> bytes;
  std::string error;
  if (!read_whole_file(path, &bytes, &error)) {
    fprintf(stderr, "tlkctl decode: %s: %s\n", path, error.c_str());
    return 1;
  }
  static char buffer[1 << 20];
  setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
  const DecodeResult r = decode_capture(bytes.data(), bytes.size(), options, stdout);
  fflush(stdout);
  if (!r.error.empty()) {
    fprintf(stderr, "tlkctl decode: %s: %s\n", path, r.error.c_str());
    return 1;
  }
  return ferror(stdout) ? 1 : 0;
}

}  // namespace tlkctl
