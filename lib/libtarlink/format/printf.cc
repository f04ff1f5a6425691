// The formatter's vsnprintf: one pass over the format, digits converted by hand, and the C
// library's vsnprintf for any conversion outside the small set trace lines use.
#include "format/printf.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>

namespace tlk::format {
namespace {

// Output that keeps the bytes that fit, leaving room for the end byte, and counts the rest.
struct Sink {
  char *cur;
  char *lim;  // where the room for text ends (the end byte's place)
  size_t over = 0;

  void put(char c) {
    if (cur < lim)
      *cur++ = c;
    else
      ++over;
  }
  void put(const char *s, size_t len) {
    if (len == 0) return;
    const size_t room = static_cast<size_t>(lim - cur);
    if (len <= room) {
      memcpy(cur, s, len);
      cur += len;
    } else {
      memcpy(cur, s, room);
      cur = lim;
      over += len - room;
    }
  }
  void pad(char c, size_t count) {
    if (count == 0) return;
    const size_t room = static_cast<size_t>(lim - cur);
    if (count <= room) {
      memset(cur, c, count);
      cur += count;
    } else {
      memset(cur, c, room);
      cur = lim;
      over += count - room;
    }
  }
};

struct Conversion {
  bool left = false, zero = false, alt = false, space = false, plus = false;
  int width = 0;
  int prec = -1;  // none
};

// Writes `body` (digits, or the string) with its sign or prefix, padded to the width as printf
// pads: blanks on the left or right, or zeros between the prefix and the digits.
void emit(Sink &out, const Conversion &s, const char *prefix, size_t plen, const char *body,
          size_t blen, size_t zeros) {
  const size_t len = plen + zeros + blen;
  const size_t pad = s.width > 0 && static_cast<size_t>(s.width) > len ? s.width - len : 0;
  if (!s.left && !s.zero) out.pad(' ', pad);
  out.put(prefix, plen);
  if (!s.left && s.zero) out.pad('0', pad);
  out.pad('0', zeros);
  out.put(body, blen);
  if (s.left) out.pad(' ', pad);
}

void emit_integer(Sink &out, Conversion s, char conv, uint64_t v, bool negative) {
  char digits[24];
  char *end = digits + sizeof digits, *p = end;
  // One loop per base, so that each divides by a constant.
  if (conv == 'x' || conv == 'X') {
    const char *hex = conv == 'X' ? "0123456789ABCDEF" : "0123456789abcdef";
    for (uint64_t x = v; x != 0; x >>= 4) *--p = hex[x & 15];
  } else if (conv == 'o') {
    for (uint64_t x = v; x != 0; x >>= 3) *--p = static_cast<char>('0' + (x & 7));
  } else if (v <= UINT32_MAX) {
    for (uint32_t x = static_cast<uint32_t>(v); x != 0; x /= 10)
      *--p = static_cast<char>('0' + x % 10);
  } else {
    for (uint64_t x = v; x != 0; x /= 10) *--p = static_cast<char>('0' + x % 10);
  }
  if (s.prec < 0 && p == end) *--p = '0';  // a 0 with no precision prints one digit
  size_t blen = static_cast<size_t>(end - p);
  size_t zeros = s.prec > 0 && static_cast<size_t>(s.prec) > blen ? s.prec - blen : 0;
  char prefix[2];
  size_t plen = 0;
  if (conv == 'd' || conv == 'i') {
    if (negative)
      prefix[plen++] = '-';
    else if (s.plus)
      prefix[plen++] = '+';
    else if (s.space)
      prefix[plen++] = ' ';
  } else if (s.alt && conv == 'o') {
    if (zeros == 0 && (blen == 0 || *p != '0')) zeros = 1;
  } else if (s.alt && v != 0) {
    prefix[plen++] = '0';
    prefix[plen++] = conv;
  }
  if (s.prec >= 0 || s.left) s.zero = false;
  emit(out, s, prefix, plen, p, blen, zeros);
}

enum class Len { kNone, kHH, kH, kL, kLL, kZ, kJ, kT };

}  // namespace

int fast_vsnprintf(char *dst, size_t size, const char *format, va_list ap_in) {
  va_list ap;
  va_copy(ap, ap_in);
  Sink out{dst, size > 0 ? dst + size - 1 : dst};
  const char *f = format;
  for (;;) {
    // The words up to the next conversion: found first, then copied at once.
    const char *word = f;
    while (*f != 0 && *f != '%') ++f;
    out.put(word, static_cast<size_t>(f - word));
    if (*f == 0) break;
    ++f;
    Conversion s;
    for (;; ++f) {
      if (*f == '-')
        s.left = true;
      else if (*f == '0')
        s.zero = true;
      else if (*f == '#')
        s.alt = true;
      else if (*f == ' ')
        s.space = true;
      else if (*f == '+')
        s.plus = true;
      else
        break;
    }
    if (*f == '*') {
      s.width = va_arg(ap, int);
      if (s.width < 0) {
        s.left = true;
        s.width = s.width == INT32_MIN ? INT32_MAX : -s.width;
      }
      ++f;
    } else {
      while (*f >= '0' && *f <= '9') s.width = s.width * 10 + (*f++ - '0');
    }
    if (*f == '.') {
      ++f;
      s.prec = 0;
      if (*f == '*') {
        s.prec = va_arg(ap, int);
        if (s.prec < 0) s.prec = -1;
        ++f;
      } else {
        while (*f >= '0' && *f <= '9') s.prec = s.prec * 10 + (*f++ - '0');
      }
    }
    Len len = Len::kNone;
    if (f[0] == 'h') {
      len = f[1] == 'h' ? Len::kHH : Len::kH;
      f += f[1] == 'h' ? 2 : 1;
    } else if (f[0] == 'l') {
      len = f[1] == 'l' ? Len::kLL : Len::kL;
      f += f[1] == 'l' ? 2 : 1;
    } else if (f[0] == 'z' || f[0] == 'j' || f[0] == 't') {
      len = f[0] == 'z' ? Len::kZ : f[0] == 'j' ? Len::kJ : Len::kT;
      ++f;
    }
    const char conv = *f++;
    switch (conv) {
      case 'd':
      case 'i': {
        int64_t v;
        switch (len) {
          case Len::kHH:
            v = static_cast<signed char>(va_arg(ap, int));
            break;
          case Len::kH:
            v = static_cast<short>(va_arg(ap, int));
            break;
          case Len::kL:
            v = va_arg(ap, long);
            break;
          case Len::kLL:
            v = va_arg(ap, long long);
            break;
          case Len::kZ:
            v = static_cast<int64_t>(va_arg(ap, ssize_t));
            break;
          case Len::kJ:
            v = va_arg(ap, intmax_t);
            break;
          case Len::kT:
            v = va_arg(ap, ptrdiff_t);
            break;
          default:
            v = va_arg(ap, int);
            break;
        }
        const uint64_t mag = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
        emit_integer(out, s, conv, mag, v < 0);
        break;
      }
      case 'u':
      case 'x':
      case 'X':
      case 'o': {
        uint64_t v;
        switch (len) {
          case Len::kHH:
            v = static_cast<unsigned char>(va_arg(ap, unsigned));
            break;
          case Len::kH:
            v = static_cast<unsigned short>(va_arg(ap, unsigned));
            break;
          case Len::kL:
            v = va_arg(ap, unsigned long);
            break;
          case Len::kLL:
            v = va_arg(ap, unsigned long long);
            break;
          case Len::kZ:
            v = va_arg(ap, size_t);
            break;
          case Len::kJ:
            v = va_arg(ap, uintmax_t);
            break;
          case Len::kT:
            v = static_cast<uint64_t>(va_arg(ap, ptrdiff_t));
            break;
          default:
            v = va_arg(ap, unsigned);
            break;
        }
        emit_integer(out, s, conv, v, false);
        break;
      }
      case 'c': {
        if (len != Len::kNone || s.zero) goto fallback;
        const char c = static_cast<char>(va_arg(ap, int));
        emit(out, s, nullptr, 0, &c, 1, 0);
        break;
      }
      case 's': {
        if (len != Len::kNone) goto fallback;
        const char *str = va_arg(ap, const char *);
        if (str == nullptr || s.zero) goto fallback;  // "(null)", zero-padded text
        const size_t blen = s.prec >= 0 ? strnlen(str, static_cast<size_t>(s.prec)) : strlen(str);
        emit(out, s, nullptr, 0, str, blen, 0);
        break;
      }
      case '%':
        if (s.left || s.zero || s.alt || s.space || s.plus || s.width != 0 || s.prec >= 0 ||
            len != Len::kNone)
          goto fallback;
        out.put('%');
        break;
      default:
        goto fallback;
    }
  }
  va_end(ap);
  if (size > 0) *out.cur = 0;
  {
    const size_t n = static_cast<size_t>(out.cur - dst) + out.over;
    return n > INT32_MAX ? -1 : static_cast<int>(n);
  }

fallback:
  va_end(ap);
  va_list again;
  va_copy(again, ap_in);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int n = vsnprintf(dst, size, format, again);
#pragma GCC diagnostic pop
  va_end(again);
  return n;
}

}  // namespace tlk::format
