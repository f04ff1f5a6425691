// gencfg statistics: a small value beside a blob, read and written with raw "gencfg-stats"
// messages (type 86, 'V'), one allocation of exactly the message's length.
//
//    0    4   5   6   7    8        12      20       24    26    28     30      32      34
//   +----+---+---+---+----+--------+-------+--------+-----+-----+------+-------+-------+----+--
//   |    |'i'|'V'|op |flg | msglen |  seq  | 68 u16 |major|minor|keylen|key off|stat id|kind|
//   +----+---+---+---+----+--------+-------+--------+-----+-----+------+-------+-------+----+--
//     42       44         48      52    56       58          64          68
//   --+--------+----------+-------+-----+--------+-----------+-----------+-------+-----+-------+
//     |val len |val offset| flags | kid |peer cnt|peer off 68|peer byte  | peers | key | value |
//   --+--------+----------+-------+-----+--------+-----------+-----------+-------+-----+-------+
//
// flg is 16 when the caller passed a statistics id (which then stands at 32 in place of the
// record's sub_id).  The peers are 40 bytes each; the key and the value are each rounded up to
// four, their padding zero.  Only a get (op 4) is answered; its raw reply is the caller's.
#include <errno.h>
#include <string.h>

#include "objects/request.h"
#include "wire.h"

namespace {

using tlk::request::fill_raw_header;
using tlk::request::next_seq;
using tlk::request::raw_send;
using tlk::wire::round4;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

constexpr uint16_t kFixed = TLK_GENCFG_STATS_FIXED;
constexpr size_t kMajorAt = 24, kMinorAt = 26, kKeyLenAt = 28, kKeyOffAt = 30, kIdAt = 32,
                 kKindAt = 34, kValueLenAt = 42, kValueOffAt = 44, kFlagsAt = 48, kKidAt = 52,
                 kPeerCountAt = 56, kPeerOffAt = 58, kPeerByteAt = 64;

// Ops that write (add, delete, clear): bits 1, 3 and 6.  A get is allowed apart, with a reply.
constexpr uint32_t kWriteOps = (1u << TLK_OP_ADD) | (1u << TLK_OP_DELETE) | (1u << TLK_OP_CLEAR);

struct StatsCall {
  uint32_t op;
  uint8_t kind;
  void **msg_out = nullptr;
  const uint16_t *stats_id = nullptr;
  const uint8_t *peer_byte = nullptr;
  const void *value = nullptr;
  uint32_t value_len = 0;
};

bool op_allowed(const StatsCall &call) {
  if (call.op == TLK_OP_GET) return call.msg_out != nullptr;
  return call.op < 32 && (kWriteOps & (1u << call.op)) != 0;
}

// The parts behind the fixed header: peers, key, value; each part's length as it is sent.
struct Parts {
  uint32_t peers = 0, key = 0, value = 0;
  uint32_t total() const { return peers + key + value; }
};

Parts parts_of(const gencfg_t &r, const StatsCall &call) {
  Parts p;
  p.peers = uint32_t{r.peer_count} * sizeof(gencfg_peerinfo);
  if (r.flags & TLK_GENCFG_KEY) p.key = round4(uint32_t{r.key_len});
  if (call.value != nullptr && call.value_len != 0) p.value = round4(call.value_len);
  return p;
}

// Copies `n` bytes to a rounded area of `rounded` bytes, its last word cleared first.
void put_padded(uint8_t *at, const void *src, uint32_t n, uint32_t rounded) {
  memset(at + rounded - 4, 0, 4);
  memcpy(at, src, n);
}

void fill(uint8_t *msg, const gencfg_t &r, const StatsCall &call, const Parts &parts,
          uint32_t seq) {
  (void)fill_raw_header(msg, TLK_MSG_GENCFG_STATS, call.op, seq, kFixed, parts.total());
  if (call.stats_id != nullptr) msg[tlk::wire::kFlagsAt] = TLK_GENCFG_STATS_HAS_ID;
  store_u16(msg + kMajorAt, r.major);
  store_u16(msg + kMinorAt, r.minor);
  store_u16(msg + kIdAt, call.stats_id != nullptr ? *call.stats_id : r.sub_id);
  msg[kKindAt] = call.kind;
  store_u32(msg + kFlagsAt, r.flags);
  if (r.flags & TLK_GENCFG_KID) store_u32(msg + kKidAt, r.kid);
  msg[kPeerCountAt] = r.peer_count;
  store_u16(msg + kPeerOffAt, kFixed);
  msg[kPeerByteAt] = call.peer_byte != nullptr ? *call.peer_byte : TLK_GENCFG_STATS_NO_PEER_BYTE;

  uint32_t at = kFixed;
  if (parts.peers != 0) memcpy(msg + at, r.peers, parts.peers);
  at += parts.peers;
  if (parts.key != 0) {
    store_u16(msg + kKeyLenAt, r.key_len);
    store_u16(msg + kKeyOffAt, static_cast<uint16_t>(at));
    put_padded(msg + at, r.key, r.key_len, parts.key);
    at += parts.key;
  }
  if (parts.value != 0) {
    store_u16(msg + kValueLenAt, static_cast<uint16_t>(call.value_len));
    store_u16(msg + kValueOffAt, static_cast<uint16_t>(at));
    put_padded(msg + at, call.value, call.value_len, parts.value);
  }
}

int stats_op(tarvik_cookie *cookie, const gencfg_t *record, const StatsCall &call) {
  if (call.msg_out != nullptr) *call.msg_out = nullptr;
  if (cookie == nullptr || record == nullptr) return EINVAL;
  if ((record->flags & TLK_GENCFG_KEY) && (record->key == nullptr || record->key_len == 0)) {
    return EINVAL;
  }
  if (!op_allowed(call)) return EINVAL;
  if (record->peer_count != 0 && record->peers == nullptr) return EINVAL;

  const Parts parts = parts_of(*record, call);
  const uint32_t length = kFixed + parts.total();
  auto *msg = static_cast<uint8_t *>(tarvik_size_alloc(cookie, length));
  if (msg == nullptr) return ENOMEM;
  memset(msg, 0, length);
  fill(msg, *record, call, parts, next_seq(cookie));

  int result = raw_send(cookie, msg).code();
  void *reply = nullptr;
  if (result == 0 && call.op == TLK_OP_GET) {
    size_t reply_len = 0;
    result = tarvik_long_msg_read(cookie, &reply, &reply_len);
  }
  tarvik_msg_free(cookie, msg);
  if (result != 0) {
    tarvik_msg_free(cookie, reply);  // a reply that failed the sequence check, if any
    return result;
  }
  if (call.msg_out != nullptr) *call.msg_out = reply;
  return 0;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_gencfg_stats_get(tarvik_cookie *cookie, const gencfg_t *record, void *unused,
                                       uint32_t op, uint8_t stats_kind, void **msg_out,
                                       const uint16_t *stats_id, const uint8_t *peer_byte) {
  (void)unused;
  StatsCall call{op, stats_kind};
  call.msg_out = msg_out;
  call.stats_id = stats_id;
  call.peer_byte = peer_byte;
  return stats_op(cookie, record, call);
}

TLK_EXPORT int tarvik_gencfg_stats_set(tarvik_cookie *cookie, const gencfg_t *record, void *unused,
                                       uint32_t op, uint8_t stats_kind, const void *value,
                                       uint32_t value_len) {
  (void)unused;
  StatsCall call{op, stats_kind};
  call.value = value;
  call.value_len = value_len;
  return stats_op(cookie, record, call);
}

TLK_EXPORT int tarvik_gencfg_stats_clear(tarvik_cookie *cookie, const gencfg_t *record,
                                         void *unused, uint8_t stats_kind) {
  (void)unused;
  return stats_op(cookie, record, StatsCall{TLK_OP_CLEAR, stats_kind});
}

TLK_EXPORT int tarvik_gencfg_stats_delete(tarvik_cookie *cookie, const gencfg_t *record,
                                          void *unused, uint8_t stats_kind) {
  (void)unused;
  return stats_op(cookie, record, StatsCall{TLK_OP_DELETE, stats_kind});
}

}  // extern "C"
