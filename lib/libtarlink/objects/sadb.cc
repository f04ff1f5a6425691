// Security associations ("sa info", raw type 41), their statistics (raw type 50) and public-key
// requests ("pkcs info", raw type 42).  Variable parts go behind a fixed head, each padded to four
// bytes with zeros; key bytes pass through unread.
//
// "sa info", 96-byte fixed part:
//
//   24        32     36      40       48 49 50   52    54    56    60    64    68    72 73 74
//   | ...     | id  | spi   | value | .. |b0|b1|b2| h0  | h1  | h2  | w0  | w1  | w2  |b3|nl|k1l
//     76    78    80  81  82  83  84    86       96
//   | idl | k2l | s1| s2|st1|st2| 0   | 0   | ... | name | key1 | identity | key2 | sa1 | sa2 |
//                                                  str1 | str2
//
// A key section is a u16 kind, a u16 length in bits and the key: 4 + bits / 8 bytes.  An identity
// section is a u32 giving the length of what follows it.  A sockaddr section is as long as the
// sockaddr's first byte says.
#include "tarlink/sadb.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "wire.h"

namespace {

using tlk::request::Block;
using tlk::request::next_seq;
using tlk::request::raw_exchange;
using tlk::request::raw_send;
using tlk::wire::load_u16;
using tlk::wire::load_u32;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

constexpr uint16_t kSaWord = 0x2963, kStatsWord = 0x3263, kPkcsWord = 0x2A63;
constexpr uint16_t kSaFixed = 96, kStatsFixed = 32, kPkcsFixed = 68;
constexpr char kPkcsFunction[] = "tarvik_pkcsm_modify";
constexpr int kInvalidLine = 42, kNoMemoryLine = 51;

constexpr uint32_t pad4(uint32_t n) {
  return (n + 3) & ~3u;
}

void fill_head(uint8_t *m, uint16_t word, uint32_t op, uint32_t msglen, uint32_t seq,
               uint16_t fixed) {
  store_u16(m + tlk::wire::kVersionAt, word);
  m[tlk::wire::kOpAt] = static_cast<uint8_t>(op);
  store_u32(m + tlk::wire::kMsglenAt, msglen);
  store_u32(m + tlk::wire::kSeqAt, seq);
  store_u16(m + tlk::wire::kFixedlenAt, fixed);
}

// One variable section: where its bytes come from and how many there are.
struct Section {
  const void *data;
  uint32_t length;
};

Section key_section(const uint8_t *key) {
  if (key == nullptr) return {nullptr, 0};
  return {key, 4u + load_u16(key + 2) / 8u};
}
Section identity_section(const uint8_t *identity) {
  if (identity == nullptr) return {nullptr, 0};
  return {identity, load_u32(identity) + 4u};
}
Section sockaddr_section(const uint8_t *sa) {
  if (sa == nullptr) return {nullptr, 0};
  return {sa, sa[0]};
}
Section string_section(const char *s) {
  if (s == nullptr) return {nullptr, 0};
  return {s, static_cast<uint32_t>(strlen(s) + 1)};
}

// Copies the sections behind the fixed part in order, each padded to four; the bytes used, or 0
// with *fits false when they would pass the end of the block.
uint32_t pack(uint8_t *at, size_t room, const Section *sections, size_t count, bool *fits) {
  uint32_t used = 0;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t take = pad4(sections[i].length);
    if (used + take > room) {
      *fits = false;
      return 0;
    }
    if (sections[i].length != 0) memcpy(at + used, sections[i].data, sections[i].length);
    used += take;
  }
  *fits = true;
  return used;
}

// "tarvik_pkcsm_modify(<line>): <what> \n" on standard output; the line numbers are fixed parts
// of these texts.
void stdout_line(int line, const char *what) {
  char text[96];
  snprintf(text, sizeof text, "%s(%d): %s \n", kPkcsFunction, line, what);
  if (tlk::platform::ops().print_stdout != nullptr) tlk::platform::ops().print_stdout(text);
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_sadbm_get(tarvik_cookie *cookie, uint32_t op, const char *name,
                                uint32_t sa_id, uint16_t key_word0, uint32_t key_word1,
                                void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Block reply(cookie), request(cookie);
  if (!reply || !request) return ENOMEM;
  uint8_t *m = request.bytes();
  const Section s = string_section(name);
  bool fits = false;
  const uint32_t var = pack(m + kSaFixed, TLK_MSG_BUF_SIZE - kSaFixed, &s, 1, &fits);
  if (!fits) return EMSGSIZE;
  fill_head(m, kSaWord, op, kSaFixed + var, next_seq(cookie), kSaFixed);
  store_u32(m + 32, sa_id);
  store_u16(m + 56, key_word0);
  store_u32(m + 60, key_word1);
  m[73] = static_cast<uint8_t>(s.length);  // the length byte wraps; the name goes whole
  return raw_exchange(cookie, m, reply, msg_out).code();
}

TLK_EXPORT int tarvik_sadbm_get_by_name(tarvik_cookie *cookie, uint32_t op, const char *name,
                                        uint16_t key_word0, uint32_t key_word1, void **msg_out) {
  return tarvik_sadbm_get(cookie, op, name, 0, key_word0, key_word1, msg_out);
}

TLK_EXPORT int tarvik_sadbm_modify(tarvik_cookie *cookie, uint32_t op, const char *name,
                                   const sadb_sa_t *sa) {
  if (cookie == nullptr || sa == nullptr) return EINVAL;
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  // Keys, addresses and strings go with an add or a change only.
  const bool whole = op == TLK_OP_ADD || op == TLK_OP_CHANGE;
  const Section none{nullptr, 0};
  const Section sections[] = {
      string_section(name),
      whole ? key_section(sa->sa_key1) : none,
      whole ? identity_section(sa->sa_identity) : none,
      whole ? key_section(sa->sa_key2) : none,
      whole ? sockaddr_section(sa->sa_addr1) : none,
      whole ? sockaddr_section(sa->sa_addr2) : none,
      whole ? string_section(sa->sa_string1) : none,
      whole ? string_section(sa->sa_string2) : none,
  };
  bool fits = false;
  const uint32_t var = pack(m + kSaFixed, TLK_MSG_BUF_SIZE - kSaFixed, sections,
                            sizeof sections / sizeof sections[0], &fits);
  if (!fits) return EMSGSIZE;
  fill_head(m, kSaWord, op, kSaFixed + var, 0, kSaFixed);
  store_u32(m + 32, sa->sa_id);
  store_u32(m + 36, sa->sa_spi);
  store_u32(m + 40, sa->sa_value);
  m[48] = sa->sa_byte0;
  m[49] = sa->sa_byte1;
  m[50] = sa->sa_byte2;
  store_u16(m + 52, sa->sa_half0);
  store_u16(m + 54, sa->sa_half1);
  store_u16(m + 56, sa->sa_half2);
  store_u32(m + 60, sa->sa_word0);
  store_u32(m + 64, sa->sa_word1);
  store_u32(m + 68, sa->sa_word2);
  m[72] = sa->sa_byte3;
  m[73] = static_cast<uint8_t>(sections[0].length);
  store_u16(m + 74, static_cast<uint16_t>(sections[1].length));
  store_u16(m + 76, static_cast<uint16_t>(sections[2].length));
  store_u16(m + 78, static_cast<uint16_t>(sections[3].length));
  m[80] = static_cast<uint8_t>(sections[4].length);
  m[81] = static_cast<uint8_t>(sections[5].length);
  m[82] = static_cast<uint8_t>(sections[6].length);
  m[83] = static_cast<uint8_t>(sections[7].length);
  return raw_send(cookie, m).code();
}

TLK_EXPORT int tarvik_sadbstats_get(tarvik_cookie *cookie, uint32_t op, const void *key,
                                    uint16_t key_len, uint8_t stats_kind, void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr || key == nullptr || key_len == 0 || msg_out == nullptr) return EINVAL;
  if (kStatsFixed + pad4(key_len) > TLK_MSG_BUF_SIZE) return EMSGSIZE;
  Block reply(cookie), request(cookie);
  if (!reply || !request) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_head(m, kStatsWord, op, kStatsFixed + pad4(key_len), next_seq(cookie), kStatsFixed);
  m[24] = stats_kind;
  store_u16(m + 26, key_len);
  memcpy(m + kStatsFixed, key, key_len);
  return raw_exchange(cookie, m, reply, msg_out).code();
}

TLK_EXPORT int tarvik_pkcsm_modify(tarvik_cookie *cookie, uint32_t op, const pkcs_req_t *req) {
  if (cookie == nullptr || op != TLK_OP_ADD || req == nullptr || req->pkcs_name == nullptr) {
    stdout_line(kInvalidLine, "Invalid input parameters");
    return EINVAL;
  }
  Block request(cookie);
  if (!request) {
    stdout_line(kNoMemoryLine, "No memory");
    return ENOMEM;
  }
  uint8_t *m = request.bytes();
  Section sections[TARVIK_PKCS_PARTS + 1];
  for (size_t i = 0; i < TARVIK_PKCS_PARTS; ++i) {
    const pkcs_part_t &p = req->pkcs_part[i];
    sections[i] = p.data != nullptr ? Section{p.data, p.len} : Section{nullptr, 0};
    store_u16(m + 40 + 2 * i, static_cast<uint16_t>(sections[i].length));
  }
  sections[TARVIK_PKCS_PARTS] = string_section(req->pkcs_name);
  bool fits = false;
  const uint32_t var =
      pack(m + kPkcsFixed, TLK_MSG_BUF_SIZE - kPkcsFixed, sections, TARVIK_PKCS_PARTS + 1, &fits);
  if (!fits) return EMSGSIZE;
  fill_head(m, kPkcsWord, op, kPkcsFixed + var, 0, kPkcsFixed);
  store_u32(m + 24, req->pkcs_id);
  store_u32(m + 28, req->pkcs_kind);
  store_u16(m + 64, static_cast<uint16_t>(sections[TARVIK_PKCS_PARTS].length));
  store_u16(m + 66, 0);
  return raw_send(cookie, m).code();
}

}  // extern "C"
