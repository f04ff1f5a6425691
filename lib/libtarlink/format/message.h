// The message formatter's writer and the per-type texts behind the common columns.
#ifndef TARLINK_FORMAT_MESSAGE_H
#define TARLINK_FORMAT_MESSAGE_H

#include <stdarg.h>
#include <stdint.h>
#include <string.h>

#include "tarlink/base.h"

struct gencfg_msg;

namespace tlk::format {

// A write position and the bytes left behind it, as tarvik_fill_format_buf moves them: the text
// of each add is cut to what is left, the count goes negative once something did not fit, and
// from then on the position is null and every add does nothing.
struct Out {
  char *pos;
  int left;
  // The formats come from the caller (tarvik_fill_format_buf), not from this library's literals.
  bool caller_formats = false;

  TLK_PRINTF(2, 3) void add(const char *format, ...);
  __attribute__((format(printf, 2, 0))) void vadd(const char *format, va_list ap);
  // add("%s", text) without the printf machinery, for the fixed words of a line.
  void put(const char *text);
  bool overflowed() const { return pos == nullptr; }
};

// Appends the text of message type `type` (1 to 109) that follows the common columns; types
// without a text of their own add nothing.
void append_type_text(Out &out, int type, int mode, const void *message);

// The text of a gencfg message: its head and, for the blob types known here, the decoded blob.
// USP blobs are swapped to host order in place as they print.
void append_gencfg_text(Out &out, const struct gencfg_msg &m);

}  // namespace tlk::format

#endif  // TARLINK_FORMAT_MESSAGE_H
