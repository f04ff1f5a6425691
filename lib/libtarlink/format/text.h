// A bounded writer over a caller's buffer: text is appended with printf formats and cut at the
// buffer's size, which always keeps its end byte.  Nothing is written before the first append,
// so a formatter may decide to leave the buffer as it was.
#ifndef TARLINK_FORMAT_TEXT_H
#define TARLINK_FORMAT_TEXT_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "format/printf.h"
#include "tarlink/base.h"

namespace tlk::format {

class Text {
 public:
  Text(char *dst, size_t size) : dst_(dst), size_(dst != nullptr ? size : 0) {}

  // Makes the text empty.
  void clear() {
    used_ = 0;
    if (size_ > 0) dst_[0] = 0;
  }
  TLK_PRINTF(2, 3) void add(const char *format, ...) {
    if (size_ == 0) return;
    va_list ap;
    va_start(ap, format);
    const int n = literal_vsnprintf(dst_ + used_, size_ - used_, format, ap);
    va_end(ap);
    if (n > 0)
      used_ += static_cast<size_t>(n) < size_ - used_ ? static_cast<size_t>(n) : size_ - used_ - 1;
  }
  // Bytes still free, the end byte not counted.
  size_t room() const { return size_ > 0 ? size_ - used_ - 1 : 0; }
  bool full() const { return room() == 0; }

 private:
  char *dst_;
  size_t size_;
  size_t used_ = 0;
};

// Big-endian fields: the first byte is the highest.
inline uint32_t be16(const uint8_t *p) {
  return static_cast<uint32_t>(p[0]) << 8 | p[1];
}
inline uint32_t be32(const uint8_t *p) {
  return static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
         static_cast<uint32_t>(p[2]) << 8 | p[3];
}

}  // namespace tlk::format

#endif  // TARLINK_FORMAT_TEXT_H
