// tlkctl raw TYPE OP [HEXBYTES]: one request of any type and op, and the kernel's answer as its
// trace line.  Without bytes, a type with a record goes as a frame (a zeroed record encoded by the
// library); any other type, and any request given bytes, as a raw message of the header and the
// bytes.  The answer is read back from the simulated kernel's record of what it sent.
#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

bool parse_number(const char *s, unsigned long max, unsigned long *out) {
  char *end = nullptr;
  *out = strtoul(s, &end, 0);
  return *s != 0 && *end == 0 && *out <= max;
}

bool parse_hex(const char *s, std::vector<uint8_t> &out) {
  std::string digits;
  for (; *s != 0; ++s) {
    if (isxdigit(static_cast<unsigned char>(*s))) {
      digits += *s;
    } else if (*s != ':' && *s != ' ' && *s != '-') {
      return false;
    }
  }
  if (digits.size() % 2 != 0) return false;
  for (size_t i = 0; i < digits.size(); i += 2)
    out.push_back(static_cast<uint8_t>(strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
  return true;
}

// Tries the type as a record: 0 when the library encoded and wrote it as a frame.
int write_as_frame(tarvik_cookie *c, uint8_t type, uint8_t op) {
  std::vector<uint8_t> block(TLK_MSG_BUF_SIZE, 0);
  auto *h = reinterpret_cast<tlk_hdr *>(block.data());
  h->tlkh_version = TARVIK_VERSION_TABLE[type];
  h->tlkh_type = type;
  h->tlkh_op = op;
  uint32_t seq = 0;
  (void)tarvik_seq_get_next(c, &seq);
  h->tlkh_seq = seq;
  // A type without a record encodes to a bare frame head that decodes to no record: such a type
  // goes raw.
  void *frame = nullptr;
  size_t len = 0;
  if (tarvik_msg_idl_encode(c, block.data(), nullptr, &frame, &len) != 0) return EINVAL;
  void *decoded = nullptr;
  const int err = tarvik_msg_idl_decode(c, frame, len, &decoded, nullptr);
  const bool has_record =
      err == 0 && decoded != nullptr && static_cast<const tlk_hdr *>(decoded)->tlkh_type == type;
  if (decoded != nullptr) tarvik_msg_idl_release(c, decoded, nullptr);
  tarvik_msg_free(c, frame);
  if (!has_record) return EINVAL;
  return tarvik_msg_write_idl(c, block.data(), nullptr);
}

int write_as_raw(tarvik_cookie *c, uint8_t type, uint8_t op, const std::vector<uint8_t> &body) {
  std::vector<uint8_t> m(TLK_RAW_HDR_LEN + ((body.size() + 3) & ~size_t{3}), 0);
  m[4] = TARVIK_VERSION_TABLE[type];
  m[5] = type;
  m[6] = op;
  const uint32_t len = static_cast<uint32_t>(m.size());
  memcpy(&m[8], &len, 4);
  uint32_t seq = 0;
  (void)tarvik_seq_get_next(c, &seq);
  memcpy(&m[12], &seq, 4);
  const uint16_t fixed = static_cast<uint16_t>(m.size());
  memcpy(&m[20], &fixed, 2);
  if (!body.empty()) memcpy(&m[TLK_RAW_HDR_LEN], body.data(), body.size());
  return tarvik_write(c, m.data(), m.size());
}

}  // namespace

int run_raw(int argc, char **argv) {
  unsigned long type = 0, op = 0;
  std::vector<uint8_t> body;
  if (argc < 3 || argc > 4 || !parse_number(argv[1], TLK_NUM_MSG_TYPES - 1, &type) ||
      !parse_number(argv[2], 255, &op) || (argc == 4 && !parse_hex(argv[3], body)))
    return usage_error("raw");
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  kernel.record(true);
  const auto t = static_cast<uint8_t>(type), o = static_cast<uint8_t>(op);
  int err = body.empty() ? write_as_frame(c, t, o) : EINVAL;
  const bool framed = err == 0;
  if (!framed) err = write_as_raw(c, t, o, body);
  if (err != 0) {
    fprintf(stderr, "tlkctl: write failed: %s\n", strerror(err));
    tarvik_close(c);
    return 1;
  }
  printf("sent %s as a %s\n", tarvik_msg_type_name(t), framed ? "frame" : "raw message");
  int answers = 0;
  for (const tarsim::Recorded &r : kernel.recorded()) {
    if (r.to_kernel) continue;
    printf("%s\n", trace_line(r.bytes.data(), r.bytes.size(), false).c_str());
    ++answers;
  }
  if (answers == 0) printf("no answer\n");
  tarvik_close(c);
  return 0;
}

}  // namespace tlkctl
