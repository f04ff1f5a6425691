// A vsnprintf for the formatter's own formats, several times faster than the C library's on the
// short integer and string conversions a trace line is made of.  Same contract as vsnprintf:
// the text cut to `size` with its end byte, the full length as the result.
#ifndef TARLINK_FORMAT_PRINTF_H
#define TARLINK_FORMAT_PRINTF_H

#include <stdarg.h>
#include <stddef.h>

namespace tlk::format {

// Handles the flags "-0# +", widths and precisions (also "*"), the lengths hh, h, l, ll, z, j,
// t and the conversions d, i, u, x, X, o, c, s and %; any other conversion (floating point, %p,
// %n, a null %s) hands the whole call to the C library, so the text is the same either way.
__attribute__((format(printf, 3, 0))) int fast_vsnprintf(char *dst, size_t size, const char *format,
                                                         va_list ap);

// The same for a format that lives, unchanged, as long as the process: a string literal.  Its
// parse is kept, found again by the format's address, so each call only converts.
__attribute__((format(printf, 3, 0))) int literal_vsnprintf(char *dst, size_t size,
                                                            const char *format, va_list ap);

}  // namespace tlk::format

#endif  // TARLINK_FORMAT_PRINTF_H
