// The trace line of a message: the common columns (sender, creator, flags, type, op), the text
// of its type, and the statistics rows that stand in for the columns in type 26.  Everything
// goes into the caller's buffer through one writer that never writes past its size and tells
// an overflow by a null position, so a run of appends needs one test at its end.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "format/message.h"
#include "format/printf.h"
#include "tarlink.h"
#include "wire.h"

namespace tlk::format {

void Out::vadd(const char *format, va_list ap) {
  if (pos == nullptr) return;
  const size_t room = left > 0 ? static_cast<size_t>(left) : 0;
  const int n = caller_formats ? fast_vsnprintf(pos, room, format, ap)
                               : literal_vsnprintf(pos, room, format, ap);
  left -= n;
  if (left >= 0)
    pos += n;
  else
    pos = nullptr;
}

void Out::put(const char *text) {
  if (pos == nullptr) return;
  const size_t n = strlen(text);
  if (left > 0) {
    const size_t room = static_cast<size_t>(left) - 1;
    const size_t k = n < room ? n : room;
    memcpy(pos, text, k);
    pos[k] = 0;
  }
  left -= static_cast<int>(n);
  if (left >= 0)
    pos += n;
  else
    pos = nullptr;
}

void Out::add(const char *format, ...) {
  va_list ap;
  va_start(ap, format);
  vadd(format, ap);
  va_end(ap);
}

namespace {

constexpr int kTypeCap = 110;  // rtm_types' catch-all
constexpr int kOpCap = 10;     // rtm_ops' catch-all
constexpr int kStatsType = 26;
constexpr int kLastTypeWithText = 109;
constexpr size_t kPrintBuf = 2048;
constexpr int kFullBuf = 2048;

constexpr const char kBriefTooSmall[] = "output brief buffer too small for format!\n";
constexpr const char kFullTooSmall[] = "output full buffer too small for format!\n";

// The statistics message: a raw block whose body lies at tlkh_fixedlen.
//
//    23      24       26          fixedlen + 48, nine blocks of 40 bytes
//    +-------+--------+--- ... ---+------------------------------------------+
//    | kind  | type / | body len  | op 1: snd pkts  snd bytes  ...  | op 2 ...
//    |       | title  | (u16)     | (u64)           (u64)          |
//    +-------+--------+--- ... ---+------------------------------------------+
//
// Byte 24 is both the title request (1) and the type the counters are for, as the kernel
// sends them.  Within a block: packets and bytes sent (u64), the largest sent (u32), packets and
// bytes received (u64) and the largest received (u32), packed.
constexpr size_t kStatKindAt = 23;
constexpr size_t kStatTypeAt = 24;
constexpr size_t kStatBodyLenAt = 26;
constexpr size_t kStatOpsAt = 48;
constexpr size_t kStatBlock = 40;
constexpr int kStatOps = 9;

const char *const kStatKinds[] = {"Total ops", "Failed ops", "Vetoed ops", "Locked ops",
                                  "Unknown ops"};

uint64_t u64_at(const uint8_t *p) {
  uint64_t v;
  memcpy(&v, p, sizeof v);
  return v;
}
uint32_t u32_at(const uint8_t *p) {
  uint32_t v;
  memcpy(&v, p, sizeof v);
  return v;
}

struct StatBody {
  const uint8_t *msg;
  const uint8_t *body;  // null when the message says it has none
  const uint8_t *block(int op) const {
    return body + kStatOpsAt + kStatBlock * static_cast<size_t>(op);
  }
  uint64_t sum() const {
    uint64_t s = 0;
    for (int i = 0; i < kStatOps; ++i) s += u64_at(block(i)) + u64_at(block(i) + 8);
    return s;
  }
};

// The body, if the message has one that its length covers: counters beyond the message are
// not read, and such a message prints as one without a body.
StatBody stat_body(const void *message) {
  const auto *m = static_cast<const uint8_t *>(message);
  const size_t msglen = wire::load_u32(m + wire::kMsglenAt);
  if (msglen < kStatBodyLenAt + 2 || wire::load_u16(m + kStatBodyLenAt) == 0) return {m, nullptr};
  const size_t at = wire::load_u16(m + wire::kFixedlenAt);
  if (at + kStatOpsAt + kStatBlock * kStatOps > msglen) return {m, nullptr};
  return {m, m + at};
}

const char *stat_kind(uint8_t kind) {
  return kStatKinds[kind < 4 ? kind : 4];
}

// The statistics row of type 26 in place of the common columns.  Tells each overflow itself.
int stats_row(tarvik_cookie *cookie, Out &out, const void *message) {
  const StatBody s = stat_body(message);
  if (s.body == nullptr) return 0;
  if (s.msg[kStatTypeAt] == 1) {
    out.add("\n%-10.10s:: ", stat_kind(s.msg[kStatKindAt]));
    for (int op = 1; op <= kStatOps; ++op) out.add(" %9.9s", rtm_ops[op]);
    out.add("\n");
  }
  if (s.sum() == 0) return 0;
  out.add("%10.10s:  ", tarvik_format_rtm_type(s.msg[kStatTypeAt]));
  for (int i = 0; i < kStatOps; ++i) {
    out.add(" %4llu/%-4llu", static_cast<unsigned long long>(u64_at(s.block(i))),
            static_cast<unsigned long long>(u64_at(s.block(i) + 8)));
    if (out.left < 0) {
      tarvik_err(cookie, TLK_LEVEL_WARNING, kBriefTooSmall);
      return -1;
    }
  }
  return 0;
}

// The flag column, built from the header's flag bits; the column shows its first four letters.
void flag_letters(uint8_t flags, char (&dst)[8]) {
  size_t n = 0;
  auto put = [&](const char *s) {
    while (*s != 0) dst[n++] = *s++;
  };
  if (flags & 16)
    put("ANY");
  else if (flags & 1)
    put("L");
  else if (flags & 4)
    put("CL");
  else
    put("P");
  if (flags & 128)
    put("I");
  else if (flags & 2)
    put("V");
  else if (flags & 32)
    put("E");
  if (flags & 64) put("H");
  dst[n] = 0;
}

}  // namespace
}  // namespace tlk::format

using tlk::format::Out;

extern "C" {

TLK_EXPORT char *tarvik_fill_format_buf(char *pos, int *left, const char *format, ...) {
  if (pos == nullptr || left == nullptr) return pos;
  Out out{pos, *left, true};
  va_list ap;
  va_start(ap, format);
  out.vadd(format, ap);
  va_end(ap);
  *left = out.left;
  return out.pos;
}

TLK_EXPORT const char *tarvik_brief_output_header(void) {
  static const char kTitle[] = "sender   creator  flag    type       op ";
  return kTitle;
}

TLK_EXPORT int tarvik_format_output(tarvik_cookie *cookie, char *buf, size_t size, int mode,
                                    const void *message) {
  using namespace tlk::format;
  if (buf == nullptr || message == nullptr) return -1;
  memset(buf, 0, size);
  const int room = size > static_cast<size_t>(INT32_MAX) ? INT32_MAX : static_cast<int>(size);
  Out out{buf, room};
  const tlk_hdr *h = static_cast<const tlk_hdr *>(message);
  if (h->tlkh_type == kStatsType) return stats_row(cookie, out, message);

  char flags[8];
  flag_letters(h->tlkh_flags, flags);
  const int type = h->tlkh_type < kTypeCap ? h->tlkh_type : kTypeCap;
  const int op = h->tlkh_op < kOpCap ? h->tlkh_op : kOpCap;
  out.add("%-10.10s %-10.10s %-4.4s %-10.10s %-8.8s",
          tarvik_format_msg_sender_id(static_cast<int>(h->tlkh_id)),
          tarvik_format_msg_sender_id(h->tlkh_aux1), flags, rtm_types[type], rtm_ops[op]);
  if (out.overflowed()) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, kBriefTooSmall);
    return -1;
  }
  if (type >= 1 && type <= kLastTypeWithText) append_type_text(out, type, mode, message);
  out.put("\n");
  if (out.overflowed()) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, kBriefTooSmall);
    return -1;
  }
  return 0;
}

TLK_EXPORT int tarvik_format_brief_output(tarvik_cookie *cookie, char *buf, const void *message) {
  return tarvik_format_output(cookie, buf, 128, 1, message);
}

TLK_EXPORT void tarvik_print_msg_to_file(tarvik_cookie *cookie, FILE *stream, int mode,
                                         const void *message) {
  if (stream == nullptr || message == nullptr) return;
  char text[tlk::format::kPrintBuf];
  const int rc = tarvik_format_output(cookie, text, sizeof text, mode, message);
  if (rc != 0) {
    fprintf(stream, "tarvik_format_output error: %s\n", strerror(rc));
  } else {
    // The text is the format itself: a "%" in a name is taken as a conversion.  Kept so, as
    // traces have always been written this way.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    fprintf(stream, text);
#pragma GCC diagnostic pop
  }
  fflush(stream);
}

TLK_EXPORT int tarvik_tlkm_format_full_output(tarvik_cookie *cookie, char *buf,
                                              const void *message) {
  using namespace tlk::format;
  if (buf == nullptr || message == nullptr) return -1;
  const StatBody s = stat_body(message);
  if (s.body == nullptr) return 0;
  Out out{buf, kFullBuf};
  if (s.msg[kStatTypeAt] == 1) {
    out.add("\n%-10.10s:: ", stat_kind(s.msg[kStatKindAt]));
    out.add("%9.9s %9.9s %9.9s %9.9s %9.9s %9.9s", "sndpkts", "sndbytes", "sndmaxpkt", "rcvpkts",
            "rcvbytes", "rcvmaxpkt");
    out.add("\n");
  }
  if (s.sum() != 0) {
    out.add("\n%10.10s:: \n", tarvik_format_rtm_type(s.msg[kStatTypeAt]));
    for (int i = 0; i < kStatOps; ++i) {
      const uint8_t *b = s.block(i);
      const unsigned long long snd = u64_at(b), sndb = u64_at(b + 8), rcv = u64_at(b + 20),
                               rcvb = u64_at(b + 28);
      const unsigned long sndmax = u32_at(b + 16), rcvmax = u32_at(b + 36);
      if (snd == 0 && sndb == 0 && sndmax == 0 && rcv == 0 && rcvb == 0 && rcvmax == 0) continue;
      out.add("%10.10s %9llu %9llu %9lu %9llu %9llu %9lu\n", rtm_ops[i + 1], snd, sndb, sndmax, rcv,
              rcvb, rcvmax);
    }
  }
  if (out.overflowed()) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, kFullTooSmall);
    return -1;
  }
  return 0;
}

TLK_EXPORT int tarvik_ifdm_format_full_output(tarvik_cookie *cookie, char *buf, int mode,
                                              const struct ifdev_msg *m) {
  using namespace tlk::format;
  if (buf == nullptr || m == nullptr) return -1;
  const int numeric = (mode & 4) != 0 ? 1 : 0;
  char addr[3][257];
  const sockaddr_idl *lists[3] = {m->ifdm_addr_len ? m->ifdm_addr : nullptr,
                                  m->ifdm_haddr_len ? m->ifdm_haddr : nullptr,
                                  m->ifdm_altaddr_len ? m->ifdm_altaddr : nullptr};
  for (int i = 0; i < 3; ++i) {
    const uint8_t *sa = lists[i] != nullptr ? lists[i]->sai_addr : nullptr;
    tarvik_format_sockaddr(addr[i], sizeof addr[i], sa, sa != nullptr ? sa[0] : 0, numeric);
  }
  char name[257];
  const size_t n = m->ifdm_name != nullptr
                       ? strnlen(reinterpret_cast<const char *>(m->ifdm_name),
                                 m->ifdm_name_len < 256 ? m->ifdm_name_len : 256)
                       : 0;
  memcpy(name, m->ifdm_name != nullptr ? m->ifdm_name : reinterpret_cast<const uint8_t *>(""), n);
  name[n] = 0;
  const tlk_hdr &h = m->ifdm_hdr;
  const int type = h.tlkh_type < kTypeCap ? h.tlkh_type : kTypeCap;
  Out out{buf, kFullBuf};
  out.add(
      "%s\nifdm_msglen:\t\t0x%x\nifdm_version:\t\t0x%x\nifdm_type:\t\t0x%x\nifdm_seq:\t\t0x%x\n"
      "ifdm_op:\t\t0x%x\nifdm_id:\t\t0x%x\nifdm_index:\t\t0x%x\nifdm_devflags:\t\t0x%x\n"
      "ifdm_flags:\t\t0x%x\nifdm_generation:\t0x%x\niifdm_snmp_id:\t\t0x%x\n"
      "ifdm_dinfotype:\t\t0x%x\nname: %s\naddr: %s\nhaddr: %s\naltaddr: %s\n"
      "ifdm_media_present:\t\t0x%x\ntlkh_info_len:\t\t0x%x\n",
      rtm_types[type], h.tlkh_msglen, h.tlkh_version, h.tlkh_type, h.tlkh_seq, h.tlkh_op, h.tlkh_id,
      m->ifdm_index, m->ifdm_devflags, m->ifdm_flags, m->ifdm_generation, m->ifdm_snmp_id.idx,
      m->ifdm_dinfotype, name, addr[0], addr[1], addr[2],
      m->ifdm_media != nullptr && m->ifdm_media_len != 0 ? 1u : 0u, h.tlkh_info_len);
  if (out.overflowed()) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, kFullTooSmall);
    return -1;
  }
  return 0;
}

}  // extern "C"
