// Protocol families of logical interfaces: reads by logical interface and address family or by
// device name and unit, the write of a family with its filter, and the raw family statistics.
//
// Requests go out in IDR.  These replies stay small: they are read into one message block
// (tarvik_msg_read_idl), not by the long read that devices and logical interfaces need.
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "wire.h"

namespace {

using tlk::request::Block;
using tlk::request::clear_outs;
using tlk::request::exchange;
using tlk::request::put_name;
using tlk::request::Read;
using tlk::request::send;
using tlk::request::Seq;
using tlk::wire::load_u32;
using tlk::wire::store_u32;

using IffRequest = tlk::request::Request<iff_msg>;

constexpr size_t kNameMax = 59;  // characters kept of a device name; the end byte makes 60

// The raw "iff vpls_stats" request:
//
//    0      4   5    6    8        12    16   20     32        38        41
//   +------+---+----+----+--------+-----+----+------+---------+---------+---------+--- 48
//   |  0   |'d'| 70 | op | len 48 | seq |  0 |fix 48| iflidx  |stat_type| stat_af | 0 ...
//   +------+---+----+----+--------+-----+----+------+---------+---------+---------+---
constexpr uint16_t kStatsFixed = 48;
constexpr size_t kStatsIflidxAt = 32;
constexpr size_t kStatsTypeAt = 38;
constexpr size_t kStatsAfAt = 41;

// The filter's variable data is named by the record's last two 32-bit words (the 8 bytes of tag
// 29): an address word and a byte count.
constexpr size_t kFilterAddrAt = 0;
constexpr size_t kFilterCountAt = 4;

int iffm_get(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af, const char *name, uint32_t unit,
             uint32_t op, void **out, void **mask) {
  clear_outs(out, mask);
  if (cookie == nullptr || out == nullptr) return EINVAL;
  IffRequest req(cookie, TLK_MSG_IFFAMILY, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->iffm_iflidx.idx = iflidx;
  req->iffm_af = static_cast<uint8_t>(af);
  req->iffm_unit = unit;
  if (name != nullptr) {
    (void)put_name(req.variable_area(), name, kNameMax, &req->iffm_name, &req->iffm_name_len);
  }
  return exchange(req, out, mask, Read::kFixed).code();
}

// Copies the caller's filter into the request and settles its variable data: with both the
// address word and the count non-zero the bytes go behind the fixed part and the request's copy
// points at them; otherwise the pair is cleared.
int put_filter(IffRequest &req, const iffilter &filter) {
  iffilter &f = req->iffm_filter;
  memcpy(&f, &filter, sizeof f);
  req->iffm_filter_len = TLK_IFF_FILTER_LEN;
  uint8_t *pair = f.iffl_f29;
  const uint32_t addr = load_u32(pair + kFilterAddrAt);
  const uint32_t count = load_u32(pair + kFilterCountAt);
  if (addr == 0 || count == 0) {
    store_u32(pair + kFilterAddrAt, 0);
    store_u32(pair + kFilterCountAt, 0);
    return 0;
  }
#if UINTPTR_MAX == 0xFFFFFFFFu
  uint8_t *copy = req.variable_area();
  if (count > static_cast<size_t>(req.block_end() - copy)) return EMSGSIZE;
  memcpy(copy, reinterpret_cast<const void *>(static_cast<uintptr_t>(addr)), count);
  store_u32(pair + kFilterAddrAt, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(copy)));
#endif
  // On a 64-bit host a 32-bit word names no memory of the caller's: the pair goes as given.
  return 0;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_iffm_get_by_index(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                        uint32_t op, void **out, void **mask) {
  return iffm_get(cookie, iflidx, af, nullptr, 0, op, out, mask);
}

TLK_EXPORT int tarvik_iffm_get_by_dev_name(tarvik_cookie *cookie, uint32_t af, const char *name,
                                           uint32_t unit, uint32_t op, void **out, void **mask) {
  if (name == nullptr) {
    clear_outs(out, mask);
    return EINVAL;
  }
  return iffm_get(cookie, 0, af, name, unit, op, out, mask);
}

TLK_EXPORT int tarvik_iffm_update(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                  uint64_t flags, uint32_t word, uint16_t short_value,
                                  const iffilter *filter, uint32_t op) {
  if (cookie == nullptr) return EINVAL;
  IffRequest req(cookie, TLK_MSG_IFFAMILY, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->iffm_iflidx.idx = iflidx;
  req->iffm_af = static_cast<uint8_t>(af);
  req->iffm_flags = flags;
  req->iffm_word = word;
  req->iffm_short = short_value;
  if (filter != nullptr) {
    const int err = put_filter(req, *filter);
    if (err != 0) return err;
  }
  return send(req).code();
}

TLK_EXPORT int tarvik_iffsm_get_by_index(tarvik_cookie *cookie, uint32_t iflidx, uint8_t af,
                                         uint8_t stat_type, uint32_t op, void **out) {
  if (cookie == nullptr || out == nullptr) return EINVAL;
  // The reply's block first: without it nothing has happened, and the caller's word stays.
  Block reply(cookie);
  if (!reply) return ENOMEM;
  Block request(cookie);
  if (!request) {
    *out = nullptr;
    return ENOMEM;
  }
  uint8_t *msg = request.bytes();
  (void)tlk::request::fill_raw_header(msg, TLK_MSG_IFF_VPLS_STATS, op,
                                      tlk::request::next_seq(cookie), kStatsFixed, 0);
  store_u32(msg + kStatsIflidxAt, iflidx);
  msg[kStatsTypeAt] = stat_type;
  msg[kStatsAfAt] = af;
  return tlk::request::raw_exchange(cookie, msg, reply, out).code();
}

}  // extern "C"
