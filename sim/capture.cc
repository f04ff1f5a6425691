// Capture files: the writer and the bounds-checked reader of tarsim/capture.h.  This source knows
// no kernel, so that a fuzz target can build it alone.
#include "tarsim/capture.h"

#include <errno.h>
#include <stdarg.h>
#include <string.h>

namespace {

constexpr size_t kVersionAt = 4;
constexpr size_t kHeaderLengthAt = 6;
constexpr size_t kStartAt = 8;

constexpr size_t kDirectionAt = 0;
constexpr size_t kReservedAt = 1;  // 3 bytes
constexpr size_t kSessionAt = 4;
constexpr size_t kTimeAt = 8;
constexpr size_t kLengthAt = 16;

// Little-endian at any alignment, whatever the host.
uint16_t load_u16(const uint8_t *p) {
  return static_cast<uint16_t>(p[0] | p[1] << 8);
}
uint32_t load_u32(const uint8_t *p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}
uint64_t load_u64(const uint8_t *p) {
  return load_u32(p) | static_cast<uint64_t>(load_u32(p + 4)) << 32;
}
void store_u16(uint8_t *p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}
void store_u32(uint8_t *p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}
void store_u64(uint8_t *p, uint64_t v) {
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

__attribute__((format(printf, 2, 3))) int fail(tarsim_capture_reader *r, const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  vsnprintf(r->error, sizeof r->error, format, ap);
  va_end(ap);
  r->offset = r->size + 1;  // past the end: every later call fails too
  return -1;
}

}  // namespace

extern "C" {

int tarsim_capture_reader_init(tarsim_capture_reader *r, const void *data, size_t size) {
  if (r == nullptr) return -1;
  memset(r, 0, sizeof *r);
  r->data = static_cast<const uint8_t *>(data);
  r->size = size;
  if (data == nullptr && size != 0) return fail(r, "no data");
  if (size < 4 || memcmp(r->data, TARSIM_CAPTURE_MAGIC, 4) != 0)
    return fail(r, "not a capture file (no \"%s\" magic)", TARSIM_CAPTURE_MAGIC);
  if (size < TARSIM_CAPTURE_HEADER_SIZE)
    return fail(r, "truncated capture header (%zu of %d bytes)", size, TARSIM_CAPTURE_HEADER_SIZE);
  const uint16_t version = load_u16(r->data + kVersionAt);
  if (version != TARSIM_CAPTURE_VERSION)
    return fail(r, "capture version %u is not supported (this reader knows version %d)", version,
                TARSIM_CAPTURE_VERSION);
  const uint16_t header_length = load_u16(r->data + kHeaderLengthAt);
  if (header_length < TARSIM_CAPTURE_HEADER_SIZE)
    return fail(r, "capture header length %u is below %d", header_length,
                TARSIM_CAPTURE_HEADER_SIZE);
  if (header_length > size)
    return fail(r, "capture header length %u runs past the end of the file (%zu bytes)",
                header_length, size);
  r->start_ns = load_u64(r->data + kStartAt);
  r->offset = header_length;
  return 0;
}

int tarsim_capture_next(tarsim_capture_reader *r, tarsim_capture_message *out) {
  if (r == nullptr || out == nullptr) return -1;
  if (r->offset > r->size) return -1;  // failed before (or never initialised)
  if (r->offset == r->size) return 0;
  const size_t left = r->size - r->offset;
  const uint64_t n = r->count + 1;
  if (left < TARSIM_CAPTURE_RECORD_HEAD_SIZE)
    return fail(r, "message %llu at offset %zu: truncated record head (%zu of %d bytes)",
                static_cast<unsigned long long>(n), r->offset, left,
                TARSIM_CAPTURE_RECORD_HEAD_SIZE);
  const uint8_t *head = r->data + r->offset;
  const uint8_t direction = head[kDirectionAt];
  if (direction != TARSIM_CAPTURE_TO_KERNEL && direction != TARSIM_CAPTURE_FROM_KERNEL)
    return fail(r, "message %llu at offset %zu: unknown direction %u",
                static_cast<unsigned long long>(n), r->offset, direction);
  if (head[kReservedAt] != 0 || head[kReservedAt + 1] != 0 || head[kReservedAt + 2] != 0)
    return fail(r, "message %llu at offset %zu: reserved bytes are not zero",
                static_cast<unsigned long long>(n), r->offset);
  const uint32_t length = load_u32(head + kLengthAt);
  if (length > TARSIM_CAPTURE_MAX_LENGTH)
    return fail(r, "message %llu at offset %zu: length %u is above the limit of %u",
                static_cast<unsigned long long>(n), r->offset, length, TARSIM_CAPTURE_MAX_LENGTH);
  if (length > left - TARSIM_CAPTURE_RECORD_HEAD_SIZE)
    return fail(r, "message %llu at offset %zu: length %u runs past the end of the file",
                static_cast<unsigned long long>(n), r->offset, length);
  out->direction = direction;
  out->session = static_cast<int32_t>(load_u32(head + kSessionAt));
  out->time_ns = load_u64(head + kTimeAt);
  out->bytes = head + TARSIM_CAPTURE_RECORD_HEAD_SIZE;
  out->length = length;
  r->offset += TARSIM_CAPTURE_RECORD_HEAD_SIZE + length;
  r->count = n;
  return 1;
}

int tarsim_capture_writer_open(tarsim_capture_writer *w, const char *path, uint64_t start_ns) {
  if (w == nullptr || path == nullptr) return EINVAL;
  memset(w, 0, sizeof *w);
  w->start_ns = start_ns;
  w->file = fopen(path, "wb");
  if (w->file == nullptr) return errno != 0 ? errno : EIO;
  uint8_t header[TARSIM_CAPTURE_HEADER_SIZE];
  memcpy(header, TARSIM_CAPTURE_MAGIC, 4);
  store_u16(header + kVersionAt, TARSIM_CAPTURE_VERSION);
  store_u16(header + kHeaderLengthAt, TARSIM_CAPTURE_HEADER_SIZE);
  store_u64(header + kStartAt, start_ns);
  if (fwrite(header, sizeof header, 1, w->file) != 1) {
    const int err = errno != 0 ? errno : EIO;
    fclose(w->file);
    w->file = nullptr;
    return err;
  }
  return 0;
}

int tarsim_capture_write(tarsim_capture_writer *w, int direction, int32_t session, uint64_t when_ns,
                         const void *bytes, size_t length) {
  if (w == nullptr || w->file == nullptr) return EINVAL;
  if (w->error != 0) return w->error;
  if ((direction != TARSIM_CAPTURE_TO_KERNEL && direction != TARSIM_CAPTURE_FROM_KERNEL) ||
      length > TARSIM_CAPTURE_MAX_LENGTH || (bytes == nullptr && length != 0))
    return EINVAL;
  uint8_t head[TARSIM_CAPTURE_RECORD_HEAD_SIZE] = {};
  head[kDirectionAt] = static_cast<uint8_t>(direction);
  store_u32(head + kSessionAt, static_cast<uint32_t>(session));
  store_u64(head + kTimeAt, when_ns > w->start_ns ? when_ns - w->start_ns : 0);
  store_u32(head + kLengthAt, static_cast<uint32_t>(length));
  if (fwrite(head, sizeof head, 1, w->file) != 1 ||
      (length != 0 && fwrite(bytes, length, 1, w->file) != 1)) {
    w->error = errno != 0 ? errno : EIO;
    return w->error;
  }
  ++w->count;
  return 0;
}

int tarsim_capture_writer_close(tarsim_capture_writer *w) {
  if (w == nullptr || w->file == nullptr) return EINVAL;
  if (fflush(w->file) != 0 && w->error == 0) w->error = errno != 0 ? errno : EIO;
  if (fclose(w->file) != 0 && w->error == 0) w->error = errno != 0 ? errno : EIO;
  w->file = nullptr;
  return w->error;
}

}  // extern "C"
