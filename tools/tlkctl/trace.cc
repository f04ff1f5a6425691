// The trace line of one message, the one text that `tlkctl monitor` and `tlkctl decode` print
// for a message.  A frame is decoded through the library's envelope first, so that the line shows
// the record the daemon would get; anything else is read as a raw message and its header.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <vector>

#include "commands.h"

namespace tlkctl {
namespace {

void quiet(tarvik_cookie *, void *, int, const char *) {}

// A session of no socket, for the decoder's diagnostics (dropped: the line says what failed).
tarvik_cookie *decoder_session() {
  static tarvik_cookie *cookie = [] {
    tarvik_cookie *c = tarvik_cookie_create();
    tarvik_lib_error_register(c, nullptr, quiet);
    return c;
  }();
  return cookie;
}

uint32_t load_u32(const uint8_t *p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}

__attribute__((format(printf, 2, 3))) void append(std::string &out, const char *format, ...) {
  char buf[256];
  va_list ap;
  va_start(ap, format);
  const int n = vsnprintf(buf, sizeof buf, format, ap);
  va_end(ap);
  if (n > 0)
    out.append(buf, static_cast<size_t>(n) < sizeof buf ? static_cast<size_t>(n) : sizeof buf - 1);
}

constexpr size_t kRawArea = 16384;

// The message types that travel raw and whose trace text reads that raw layout, within the
// length the header gives.
bool raw_layout(uint8_t type) {
  // Class of service and security associations.
  for (uint8_t raw :
       {TLK_MSG_COS_INFO, TLK_MSG_COS_FABRIC, TLK_MSG_COS_CLASS, TLK_MSG_COS_RED, TLK_MSG_COS_REWRT,
        TLK_MSG_COS_POLICER, TLK_MSG_COS_SHAPER, TLK_MSG_SA_INFO, TLK_MSG_COS_FRAGMAP}) {
    if (type == raw) return true;
  }
  // Interface statistics and alarms, monitoring and service PIC configuration.
  for (uint8_t raw : {TLK_MSG_IFLSTATS, TLK_MSG_IFDALARM, TLK_MSG_MONITORING, TLK_MSG_ASP_CONFIG}) {
    if (type == raw) return true;
  }
  return type == TLK_MSG_TARLINK_STATS || type == TLK_MSG_TLK_ERR;
}  // the largest raw message the library reads in one go

// The library's own trace line of a record or raw message, numeric (no name look-ups), without
// its line feed.
void append_line(std::string &out, tarvik_cookie *c, const void *message) {
  char line[2048];
  if (tarvik_format_output(c, line, sizeof line, 1 | TARVIK_FORMAT_NUMERIC, message) != 0) {
    out += "(trace line too long)";
    return;
  }
  size_t n = strlen(line);
  while (n > 0 && line[n - 1] == '\n') --n;
  if (n == 0) {  // a type the formatter has no words for: its header
    const tlk_hdr &h = *static_cast<const tlk_hdr *>(message);
    append(out, "%s(%u) %s seq=%u len=%u", tarvik_msg_type_name(h.tlkh_type), h.tlkh_type,
           rtm_ops[h.tlkh_op < 10 ? h.tlkh_op : 10], h.tlkh_seq, h.tlkh_msglen);
    return;
  }
  out.append(line, n);
}

void append_full_header(std::string &out, const tlk_hdr &h) {
  append(out, "\n    version 0x%02x flags 0x%02x fixedlen %u aux1 %u aux2 %u attachments %u",
         h.tlkh_version, h.tlkh_flags, h.tlkh_fixedlen, h.tlkh_aux1, h.tlkh_aux2, h.tlkh_info_len);
}

// The bytes as they crossed the socket, 16 a line.
void append_hex(std::string &out, const uint8_t *bytes, size_t len) {
  static const char kDigits[] = "0123456789abcdef";
  for (size_t off = 0; off < len; off += 16) {
    append(out, "\n    %04zx ", off);
    for (size_t i = off; i < len && i < off + 16; ++i) {
      out += ' ';
      out += kDigits[bytes[i] >> 4];
      out += kDigits[bytes[i] & 15];
    }
  }
}

}  // namespace

std::string trace_line(const uint8_t *bytes, size_t len, bool full) {
  std::string out;
  append_trace_line(out, bytes, len, full);
  return out;
}

void append_trace_line(std::string &out, const uint8_t *bytes, size_t len, bool full) {
  out.reserve(out.size() + (full ? 128 + len * 4 : 96));
  const uint32_t magic = len >= 4 ? load_u32(bytes) : 0;
  if (len >= 12 && (magic == TLK_MAGIC_TLV || magic == TLK_MAGIC_IDR)) {
    const char *encoding = magic == TLK_MAGIC_TLV ? "TLV" : "IDR";
    // Most records fit this area; the decoder that allocates takes the rest.
    alignas(16) static thread_local uint8_t area[64 * 1024];
    tarvik_cookie *c = decoder_session();
    void *msg = nullptr, *mask = nullptr;
    bool own = false;
    int err = tarvik_msg_idl_decode_pa(c, bytes, len, &msg, &mask, area, sizeof area);
    if (err != 0 || msg == nullptr) {
      msg = mask = nullptr;
      err = tarvik_msg_idl_decode(c, bytes, len, &msg, &mask);
      own = err == 0 && msg != nullptr;
    }
    if (msg == nullptr) {
      append(out, "%s frame of type %s(%u), %zu bytes: not decodable (%s)", encoding,
             tarvik_msg_type_name(load_u32(bytes + 8)), load_u32(bytes + 8), len,
             strerror(err != 0 ? err : EINVAL));
    } else {
      append_line(out, c, msg);
      char count[24];
      const auto end = std::to_chars(count, count + sizeof count, len).ptr;
      out += ' ';
      out += encoding;
      out += '=';
      out.append(count, end);
      if (full) append_full_header(out, *static_cast<const tlk_hdr *>(msg));
    }
    if (own) tarvik_msg_idl_release(c, msg, mask);
  } else if (len < TLK_RAW_HDR_LEN) {
    append(out, "short message of %zu bytes", len);
  } else {
    // A raw message is formatted from a copy that ends where the bytes end: the formatter may
    // read as far as the length the header claims, and a captured header may claim anything.
    // Only the types whose text reads a raw layout get their body: for any other type the
    // formatter reads the in-memory record, whose pointers raw bytes do not hold, so only the
    // header is formatted.
    const size_t take = raw_layout(bytes[5]) ? len : TLK_RAW_HDR_LEN;
    static thread_local std::vector<uint8_t> copy;
    copy.assign(std::max<size_t>(len, kRawArea), 0);
    memcpy(copy.data(), bytes, take);
    const uint32_t claimed = load_u32(copy.data() + 8);
    if (claimed > take) {
      const uint32_t real = static_cast<uint32_t>(take);
      memcpy(copy.data() + 8, &real, 4);
    }
    append_line(out, decoder_session(), copy.data());
    if (full) {
      tlk_hdr h{};
      memcpy(&h, bytes, TLK_RAW_HDR_LEN);
      h.tlkh_info = nullptr;
      h.tlkh_info_len = 0;
      append_full_header(out, h);
    }
  }
  if (full) append_hex(out, bytes, len);
}

}  // namespace tlkctl
