// What tlkctl decode and its benchmark share: reading a capture file and printing its messages as
// trace lines.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "commands.h"
#include "tarsim/capture.h"

namespace tlkctl {
namespace {

uint32_t load_u32(const uint8_t *p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}

// `v` in decimal, zero-filled to `digits` at least.
void append_number(std::string &out, uint64_t v, int digits) {
  char buf[24];
  char *p = buf + sizeof buf;
  do {
    *--p = static_cast<char>('0' + v % 10);
    v /= 10;
    --digits;
  } while (v != 0 || digits > 0);
  out.append(p, static_cast<size_t>(buf + sizeof buf - p));
}

}  // namespace

// The length of the message at the start of `rest` in a record: a frame's head and payload, a
// raw message's tlkh_msglen.  0 when no whole message stands there (the rest is shown as one).
size_t message_length(const uint8_t *rest, size_t left) {
  if (left < 12) return 0;
  const uint32_t magic = load_u32(rest);
  uint64_t len;
  if (magic == TLK_MAGIC_TLV || magic == TLK_MAGIC_IDR) {
    len = uint64_t{load_u32(rest + 4)} + 12;
  } else {
    if (left < TLK_RAW_HDR_LEN) return 0;
    len = load_u32(rest + 8);
    if (len < TLK_RAW_HDR_LEN) return 0;
  }
  return len <= left ? static_cast<size_t>(len) : 0;
}

DecodeResult decode_capture(const uint8_t *data, size_t size, const DecodeOptions &options,
                            FILE *out) {
  DecodeResult result;
  tarsim_capture_reader reader;
  if (tarsim_capture_reader_init(&reader, data, size) != 0) {
    result.error = reader.error;
    return result;
  }
  tarsim_capture_message m;
  std::string line;
  int got;
  while ((got = tarsim_capture_next(&reader, &m)) == 1) {
    ++result.records;
    const char *dir = m.direction == TARSIM_CAPTURE_TO_KERNEL ? "->" : "<-";
    // A packed read holds several messages back to back; each gets its line.
    for (size_t off = 0; off < m.length || (off == 0 && m.length == 0);) {
      size_t len = message_length(m.bytes + off, m.length - off);
      if (len == 0) len = m.length - off;
      if (result.messages++ < options.max_lines) {
        // "seconds.micro [session N] -> line": written by hand, as printf would, because a
        // capture holds millions of lines.
        line.clear();
        append_number(line, m.time_ns / 1000000000u, 1);
        line += '.';
        append_number(line, m.time_ns % 1000000000u / 1000u, 6);
        line += " [session ";
        if (m.session < 0) line += '-';
        append_number(line, m.session < 0 ? 0 - static_cast<uint64_t>(m.session) : m.session, 1);
        line += "] ";
        line += dir;
        line += ' ';
        append_trace_line(line, m.bytes + off, len, options.full);
        line += '\n';
        fwrite(line.data(), 1, line.size(), out);
      }
      if (len == 0) break;  // an empty record
      off += len;
    }
  }
  if (got < 0) result.error = reader.error;
  return result;
}

bool read_whole_file(const char *path, std::vector<uint8_t> *bytes, std::string *error) {
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  struct stat st {};
  if (fd < 0 || fstat(fd, &st) != 0) {
    *error = strerror(errno);
    if (fd >= 0) close(fd);
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    *error = strerror(EISDIR);
    close(fd);
    return false;
  }
  bytes->clear();
  // One byte more than the file, so that the read that finds its end has room and the buffer
  // (hundreds of megabytes for a long capture) is not grown and copied just to learn that.
  bytes->resize(st.st_size > 0 ? static_cast<size_t>(st.st_size) + 1 : 0);
  size_t have = 0;
  for (;;) {
    if (have == bytes->size()) bytes->resize(have + 65536);  // a file that grew, or a pipe
    const ssize_t n = read(fd, bytes->data() + have, bytes->size() - have);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      *error = strerror(errno);
      close(fd);
      return false;
    }
    if (n == 0) break;
    have += static_cast<size_t>(n);
  }
  close(fd);
  bytes->resize(have);
  return true;
}

}  // namespace tlkctl
