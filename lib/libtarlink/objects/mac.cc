// MAC tables (raw type 51) and MAC statistics (raw type 52) of bridge domains.
//
// Both requests are raw layouts built on the stack: a fixed part and, behind it, the domain's
// name of at most 60 characters and its end byte, padded to four.  A get reads the reply of any
// length; a clear (op clear) is a write that nothing answers.
//
//   MAC table, 64 bytes:
//     24   28  29  30   32      36        40 .. 52    54  55  56      60      64
//     | .. |sel|nl | .. | index | index/v2 | ..| v1  | ba| bb| word a| word b| name
//   MAC statistics, 360 bytes:
//     24   28      32        36  37  38  40 .. 48      52      56 .. 360
//     | .. | index | index/v | ..|sel|nl | .. | word a| word b| ..  | name
//
// v1 and v2 are the caller's values of a clear (v1 by name only).  The 32-bit words are the
// index on a get and the caller's values on a clear; their meaning is the kernel's.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "tarlink/bridge.h"
#include "wire.h"

namespace {

using tlk::request::next_seq;
using tlk::request::raw_send;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

constexpr uint16_t kTableWord = 0x3365, kStatsWord = 0x3465;  // version 'e', types 51 and 52
constexpr size_t kNameChars = 60;
constexpr size_t kNameRoom = 64;  // 60 characters, the end byte, padded

// Where a layout keeps its fields.
struct MacLayout {
  uint16_t word, fixed;
  size_t selector_at, name_len_at, index_at, value_at;
};
constexpr MacLayout kTable{kTableWord, TLK_MAC_TABLE_FIXED, 28, 29, 32, 36};
constexpr MacLayout kStats{kStatsWord, TLK_MAC_STATS_FIXED, 37, 38, 28, 32};

// A request on the stack, zeroed.
struct MacRequest {
  alignas(4) uint8_t bytes[TLK_MAC_STATS_FIXED + kNameRoom] = {};
};

// Fills the head, the selector, the index word and the name; the request's length.
uint32_t fill(uint8_t *m, const MacLayout &l, uint32_t op, uint32_t seq, uint32_t selector,
              uint32_t index, const char *name) {
  uint32_t name_len = 0;
  if (name != nullptr) {
    const size_t n = strnlen(name, kNameChars);
    memcpy(m + l.fixed, name, n);
    m[l.fixed + n] = '\0';
    name_len = static_cast<uint32_t>(n + 1);
  }
  const uint32_t msglen = l.fixed + tlk::wire::raw_var_len(name_len);
  store_u16(m + tlk::wire::kVersionAt, l.word);
  m[tlk::wire::kOpAt] = static_cast<uint8_t>(op);
  store_u32(m + tlk::wire::kMsglenAt, msglen);
  store_u32(m + tlk::wire::kSeqAt, seq);
  store_u16(m + tlk::wire::kFixedlenAt, l.fixed);
  m[l.selector_at] = static_cast<uint8_t>(selector);
  m[l.name_len_at] = static_cast<uint8_t>(name_len);
  store_u32(m + l.index_at, index);
  return msglen;
}

// "Error in <what> <err>\n" on standard output.
void say(const char *what, int err) {
  char text[64];
  snprintf(text, sizeof text, "Error in %s %d\n", what, err);
  if (tlk::platform::ops().print_stdout != nullptr) tlk::platform::ops().print_stdout(text);
}

// Writes the request and reads the reply, of any length, into a block that *out takes.
int get(tarvik_cookie *cookie, const uint8_t *m, void **out) {
  int err = raw_send(cookie, m).code();
  if (err != 0) {
    say("tarvik_write", err);
    return err;
  }
  size_t length = 0;
  err = tarvik_long_msg_read(cookie, out, &length);
  if (err != 0) {
    say("tarvik_long_msg_read", err);
    tarvik_msg_free(cookie, *out);  // a reply that failed the sequence check isn't the caller's
    *out = nullptr;
  }
  return err;
}

int table_get(tarvik_cookie *cookie, uint32_t selector, uint32_t index, const char *name,
              uint32_t byte_a, uint32_t byte_b, uint32_t word_a, uint32_t word_b, void **out) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  MacRequest r;
  uint8_t *m = r.bytes;
  (void)fill(m, kTable, TLK_OP_GET, next_seq(cookie), selector, index, name);
  store_u32(m + kTable.value_at, index);
  m[54] = static_cast<uint8_t>(byte_a);
  m[55] = static_cast<uint8_t>(byte_b);
  store_u32(m + 56, word_a);
  store_u32(m + 60, word_b);
  return get(cookie, m, out);
}

int table_clear(tarvik_cookie *cookie, uint32_t selector, uint32_t index, const char *name,
                uint32_t first, uint32_t second) {
  if (cookie == nullptr) return EINVAL;
  MacRequest r;
  uint8_t *m = r.bytes;
  (void)fill(m, kTable, TLK_OP_CLEAR, next_seq(cookie), selector, index, name);
  store_u32(m + kTable.value_at, second);
  if (name != nullptr) store_u16(m + 52, static_cast<uint16_t>(first));
  return raw_send(cookie, m).code();
}

int stats_get(tarvik_cookie *cookie, uint32_t selector, uint32_t index, const char *name,
              uint32_t word_a, uint32_t word_b, void **out) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  MacRequest r;
  uint8_t *m = r.bytes;
  (void)fill(m, kStats, TLK_OP_GET, next_seq(cookie), selector, index, name);
  store_u32(m + kStats.value_at, index);
  store_u32(m + 48, word_a);
  store_u32(m + 52, word_b);
  return get(cookie, m, out);
}

int stats_clear(tarvik_cookie *cookie, uint32_t selector, uint32_t index, const char *name,
                uint32_t value) {
  if (cookie == nullptr) return EINVAL;
  MacRequest r;
  uint8_t *m = r.bytes;
  (void)fill(m, kStats, TLK_OP_CLEAR, next_seq(cookie), selector, index, name);
  store_u32(m + kStats.value_at, value);
  return raw_send(cookie, m).code();
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_mac_db_get_by_index(tarvik_cookie *cookie, uint32_t mac_selector,
                                          uint32_t mac_index, uint32_t mac_byte_a,
                                          uint32_t mac_byte_b, uint32_t mac_word_a,
                                          uint32_t mac_word_b, void **msg_out) {
  return table_get(cookie, mac_selector, mac_index, nullptr, mac_byte_a, mac_byte_b, mac_word_a,
                   mac_word_b, msg_out);
}

TLK_EXPORT int tarvik_mac_db_get_by_name(tarvik_cookie *cookie, uint32_t mac_selector,
                                         const char *name, uint32_t mac_byte_a, uint32_t mac_byte_b,
                                         uint32_t mac_word_a, uint32_t mac_word_b, void **msg_out) {
  if (name == nullptr) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return table_get(cookie, mac_selector, 0, name, mac_byte_a, mac_byte_b, mac_word_a, mac_word_b,
                   msg_out);
}

TLK_EXPORT int tarvik_mac_db_clear_by_index(tarvik_cookie *cookie, uint32_t mac_selector,
                                            uint32_t mac_index, uint32_t value) {
  return table_clear(cookie, mac_selector, mac_index, nullptr, 0, value);
}

TLK_EXPORT int tarvik_mac_db_clear_by_name(tarvik_cookie *cookie, uint32_t mac_selector,
                                           const char *name, uint32_t first, uint32_t second) {
  if (name == nullptr) return EINVAL;
  return table_clear(cookie, mac_selector, 0, name, first, second);
}

TLK_EXPORT int tarvik_mac_stats_get_by_index(tarvik_cookie *cookie, uint32_t mac_selector,
                                             uint32_t mac_index, uint32_t mac_word_a,
                                             uint32_t mac_word_b, void **msg_out) {
  return stats_get(cookie, mac_selector, mac_index, nullptr, mac_word_a, mac_word_b, msg_out);
}

TLK_EXPORT int tarvik_mac_stats_get_by_name(tarvik_cookie *cookie, uint32_t mac_selector,
                                            const char *name, uint32_t mac_word_a,
                                            uint32_t mac_word_b, void **msg_out) {
  if (name == nullptr) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return stats_get(cookie, mac_selector, 0, name, mac_word_a, mac_word_b, msg_out);
}

TLK_EXPORT int tarvik_mac_stats_clear_by_index(tarvik_cookie *cookie, uint32_t mac_selector,
                                               uint32_t mac_index, uint32_t value) {
  return stats_clear(cookie, mac_selector, mac_index, nullptr, value);
}

TLK_EXPORT int tarvik_mac_stats_clear_by_name(tarvik_cookie *cookie, uint32_t mac_selector,
                                              const char *name, uint32_t value) {
  if (name == nullptr) return EINVAL;
  return stats_clear(cookie, mac_selector, 0, name, value);
}

}  // extern "C"
