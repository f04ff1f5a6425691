// The formatter's vsnprintf: one pass over the format, digits converted by hand, and the C
// library's vsnprintf for any conversion outside the small set trace lines use.
#include "format/printf.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/types.h>

#include <vector>

#include "kept_table.h"

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
  if (s.width == 0 && zeros == 0) {  // most of a trace line's numbers: no padding at all
    out.put(prefix, plen);
    out.put(p, blen);
    return;
  }
  if (s.prec >= 0 || s.left) s.zero = false;
  emit(out, s, prefix, plen, p, blen, zeros);
}

enum class Len : uint8_t { kNone, kHH, kH, kL, kLL, kZ, kJ, kT };

// One conversion of a format: its flags, width and precision ("*" read from the arguments) and
// its length and letter.
struct Directive {
  Conversion c;
  bool star_width = false, star_prec = false;
  Len len = Len::kNone;
  char conv = 0;
};

// Reads the conversion after a '%' at `f`; returns where the format goes on.
const char *parse_directive(const char *f, Directive *out) {
  Directive s;
  for (;; ++f) {
    if (*f == '-')
      s.c.left = true;
    else if (*f == '0')
      s.c.zero = true;
    else if (*f == '#')
      s.c.alt = true;
    else if (*f == ' ')
      s.c.space = true;
    else if (*f == '+')
      s.c.plus = true;
    else
      break;
  }
  if (*f == '*') {
    s.star_width = true;
    ++f;
  } else {
    while (*f >= '0' && *f <= '9' && s.c.width < 100000000)
      s.c.width = s.c.width * 10 + (*f++ - '0');
  }
  if (*f == '.') {
    ++f;
    s.c.prec = 0;
    if (*f == '*') {
      s.star_prec = true;
      ++f;
    } else {
      while (*f >= '0' && *f <= '9' && s.c.prec < 100000000)
        s.c.prec = s.c.prec * 10 + (*f++ - '0');
    }
  }
  if (f[0] == 'h') {
    s.len = f[1] == 'h' ? Len::kHH : Len::kH;
    f += f[1] == 'h' ? 2 : 1;
  } else if (f[0] == 'l') {
    s.len = f[1] == 'l' ? Len::kLL : Len::kL;
    f += f[1] == 'l' ? 2 : 1;
  } else if (f[0] == 'z' || f[0] == 'j' || f[0] == 't') {
    s.len = f[0] == 'z' ? Len::kZ : f[0] == 'j' ? Len::kJ : Len::kT;
    ++f;
  }
  s.conv = *f;
  if (*f != 0) ++f;
  *out = s;
  return f;
}

// Whether the conversion is one this printf writes itself, judged from the format alone (a null
// or zero-padded %s is found only when it is converted).
bool handled(const Directive &s) {
  switch (s.conv) {
    case 'd':
    case 'i':
    case 'u':
    case 'x':
    case 'X':
    case 'o':
      return true;
    case 'c':
      return s.len == Len::kNone && !s.c.zero;
    case 's':
      return s.len == Len::kNone;
    case '%':
      return !s.c.left && !s.c.zero && !s.c.alt && !s.c.space && !s.c.plus && s.c.width == 0 &&
             s.c.prec < 0 && !s.star_width && !s.star_prec && s.len == Len::kNone;
    default:
      return false;
  }
}

// Converts one argument.  False when the C library must write the whole text instead.
bool convert(Sink &out, Directive s, va_list *ap) {
  if (s.star_width) {
    s.c.width = va_arg(*ap, int);
    if (s.c.width < 0) {
      s.c.left = true;
      s.c.width = s.c.width == INT32_MIN ? INT32_MAX : -s.c.width;
    }
  }
  if (s.star_prec) {
    s.c.prec = va_arg(*ap, int);
    if (s.c.prec < 0) s.c.prec = -1;
  }
  switch (s.conv) {
    case 'd':
    case 'i': {
      int64_t v;
      switch (s.len) {
        case Len::kHH:
          v = static_cast<signed char>(va_arg(*ap, int));
          break;
        case Len::kH:
          v = static_cast<short>(va_arg(*ap, int));
          break;
        case Len::kL:
          v = va_arg(*ap, long);
          break;
        case Len::kLL:
          v = va_arg(*ap, long long);
          break;
        case Len::kZ:
          v = static_cast<int64_t>(va_arg(*ap, ssize_t));
          break;
        case Len::kJ:
          v = va_arg(*ap, intmax_t);
          break;
        case Len::kT:
          v = va_arg(*ap, ptrdiff_t);
          break;
        default:
          v = va_arg(*ap, int);
          break;
      }
      const uint64_t mag = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
      emit_integer(out, s.c, s.conv, mag, v < 0);
      return true;
    }
    case 'u':
    case 'x':
    case 'X':
    case 'o': {
      uint64_t v;
      switch (s.len) {
        case Len::kHH:
          v = static_cast<unsigned char>(va_arg(*ap, unsigned));
          break;
        case Len::kH:
          v = static_cast<unsigned short>(va_arg(*ap, unsigned));
          break;
        case Len::kL:
          v = va_arg(*ap, unsigned long);
          break;
        case Len::kLL:
          v = va_arg(*ap, unsigned long long);
          break;
        case Len::kZ:
          v = va_arg(*ap, size_t);
          break;
        case Len::kJ:
          v = va_arg(*ap, uintmax_t);
          break;
        case Len::kT:
          v = static_cast<uint64_t>(va_arg(*ap, ptrdiff_t));
          break;
        default:
          v = va_arg(*ap, unsigned);
          break;
      }
      emit_integer(out, s.c, s.conv, v, false);
      return true;
    }
    case 'c': {
      if (!handled(s)) return false;
      const char c = static_cast<char>(va_arg(*ap, int));
      emit(out, s.c, nullptr, 0, &c, 1, 0);
      return true;
    }
    case 's': {
      if (!handled(s)) return false;
      const char *str = va_arg(*ap, const char *);
      if (str == nullptr || s.c.zero) return false;  // "(null)", zero-padded text
      const size_t blen = s.c.prec >= 0 ? strnlen(str, static_cast<size_t>(s.c.prec)) : strlen(str);
      if (s.c.width == 0)
        out.put(str, blen);
      else
        emit(out, s.c, nullptr, 0, str, blen, 0);
      return true;
    }
    case '%':
      if (!handled(s)) return false;
      out.put('%');
      return true;
    default:
      return false;
  }
}

int finish(Sink &out, char *dst, size_t size) {
  if (size > 0) *out.cur = 0;
  const size_t n = static_cast<size_t>(out.cur - dst) + out.over;
  return n > INT32_MAX ? -1 : static_cast<int>(n);
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int libc_vsnprintf(char *dst, size_t size, const char *format, va_list ap_in) {
  va_list again;
  va_copy(again, ap_in);
  const int n = vsnprintf(dst, size, format, again);
  va_end(again);
  return n;
}
#pragma GCC diagnostic pop

// A literal format's parse, kept: the words between the conversions as offsets into the format,
// and each conversion ready to run.  A trace line's format has a dozen or more conversions, and
// reading them afresh each time cost as much as writing the digits.
struct Step {
  uint32_t words_at, words_len;  // the words before the conversion
  Directive directive;
};
struct Program {
  bool usable;  // false: a conversion the C library writes, so the plain path takes it
  uint32_t tail_at, tail_len;
  std::vector<Step> steps;
};

Program *compile(const char *format) {
  auto *p = new Program{true, 0, 0, {}};
  const char *f = format;
  for (;;) {
    const char *words = f;
    while (*f != 0 && *f != '%') ++f;
    const auto at = static_cast<uint32_t>(words - format);
    const auto len = static_cast<uint32_t>(f - words);
    if (*f == 0) {
      p->tail_at = at;
      p->tail_len = len;
      return p;
    }
    Step step{at, len, {}};
    f = parse_directive(f + 1, &step.directive);
    if (!handled(step.directive)) {
      p->usable = false;
      p->steps.clear();
      return p;
    }
    p->steps.push_back(step);
  }
}

// Programs by the format's address.  A format whose probe finds no free slot is parsed each time.
KeptTable<char, Program, 1024, 16> g_programs;

const Program *program_of(const char *format) {
  return g_programs.find(format, compile);
}

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
    Directive directive;
    f = parse_directive(f + 1, &directive);
    if (!convert(out, directive, &ap)) {
      va_end(ap);
      return libc_vsnprintf(dst, size, format, ap_in);
    }
  }
  va_end(ap);
  return finish(out, dst, size);
}

int literal_vsnprintf(char *dst, size_t size, const char *format, va_list ap_in) {
  const Program *p = program_of(format);
  if (p == nullptr || !p->usable) return fast_vsnprintf(dst, size, format, ap_in);
  va_list ap;
  va_copy(ap, ap_in);
  Sink out{dst, size > 0 ? dst + size - 1 : dst};
  for (const Step &step : p->steps) {
    out.put(format + step.words_at, step.words_len);
    if (!convert(out, step.directive, &ap)) {
      va_end(ap);
      return libc_vsnprintf(dst, size, format, ap_in);
    }
  }
  out.put(format + p->tail_at, p->tail_len);
  va_end(ap);
  return finish(out, dst, size);
}

}  // namespace tlk::format
