// Routes: add (plain or acknowledged), delete by prefix or by a record in hand, get and getnext
// in their several forms, and route match with its next hop's forwarding interface.
//
// A route request is one message block: the 248-byte fixed rt_msg, then the packed prefix, then
// an optional gateway element and its address, then an optional encoded opaque block, each
// pointed at by the record (the encoder follows the pointers).  Routes are programmed by the
// million, so nothing on the add path allocates beyond that block and the encoder's buffer.
//
//   fixed rt_msg | prefix, whole words | sockaddr_idl | gateway bytes, /4 | rt_opaque_info TLV
//                ^ prefix              ^ gateway      ^ sai_addr          ^ opaque
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "wire.h"

namespace {

using tlk::request::clear_outs;
using tlk::request::exchange;
using tlk::request::next_seq;
using tlk::request::read_framed;
using tlk::request::Reply;
using tlk::request::Request;
using tlk::request::Seq;
using tlk::request::Status;
using tlk::request::write_framed;

using RouteRequest = Request<rt_msg>;

constexpr uint8_t kReqAck = 0x2;              // tlkh_flags: the kernel answers an add
constexpr uint8_t kOpaqueKind = 9;            // opaque_kind of an add that carries opaque data
constexpr uint16_t kOpaqueDflags = 0x7FFE;    // dflags of such an add, as the kernel expects
constexpr uint32_t kIfindexInfo = 0x2000018;  // next hop attachment: the forwarding interface
constexpr uint8_t kSubKindInfoList = 1;       // rnh_msg sub_kind: look in the attachments
constexpr size_t kGatewayElement = 36;        // a sockaddr_idl on the target
constexpr uint32_t kGatewayLenMask = 0x1FC;   // the gateway's length rounded up to 4

// The bytes a prefix of `plen` bits takes: whole 32-bit words, in a 14-bit length.
constexpr uint32_t packed_len(uint32_t plen) {
  return ((plen + 31) / 8) & 0x3FFC;
}

// Copies the first (plen + 7) / 8 bytes of `prefix` to `at` as they are (the block is zeroed, so
// the rest of the rounded length stays 0).  Returns the packed length.
uint32_t pack_prefix(uint8_t *at, const uint8_t *pfx, uint32_t plen) {
  const uint32_t copied = (plen + 7) / 8;
  if (copied != 0 && pfx != nullptr) memcpy(at, pfx, copied);
  return packed_len(plen);
}

uint8_t *element_at(uint8_t *p) {
  constexpr uintptr_t kAlign = alignof(sockaddr_idl) - 1;
  return reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(p) + kAlign) & ~kAlign);
}

// Places the gateway behind `at`: a sockaddr_idl element, then the address copied whole (its
// first byte is its length), rounded up to 4.  A zero length byte keeps the element's room but
// leaves the list empty.  Returns the next free byte.
uint8_t *put_gateway(rt_msg &m, uint8_t *at, const uint8_t *gateway) {
  at = element_at(at);
  auto *sa = reinterpret_cast<sockaddr_idl *>(at);
  at += sizeof(sockaddr_idl) > kGatewayElement ? sizeof(sockaddr_idl) : kGatewayElement;
  const uint32_t len = gateway[0];
  if (len == 0) return at;
  memcpy(at, gateway, len);
  sa->sai_addr = at;
  m.gateway = sa;
  m.gateway_count = 1;
  return at + ((len + 3) & kGatewayLenMask);
}

// Encodes the opaque information at `at`, sized by a first pass of the same encoder.
void put_opaque(rt_msg &m, uint8_t *at, const uint8_t *end, uint32_t selector, const void *data) {
  rt_opaque_info info{};
  info.roi_type = selector;
  info.roi_data = const_cast<void *>(data);
  const uint32_t size = tlv_encode_rt_opaque_info_0(&info, nullptr, nullptr, 0);
  m.opaque_kind = kOpaqueKind;
  m.dflags = kOpaqueDflags;
  if (size == 0 || size > static_cast<size_t>(end - at)) return;
  (void)tlv_encode_rt_opaque_info_0(&info, nullptr, at, size);
  m.opaque = at;
  m.opaque_len = size;
}

bool reads_reply(uint32_t op) {
  return (op & ~1u) == TLK_OP_GET;
}

// A route request of `op` in table `tid` for a prefix; with `always_prefix` false a plen of 0
// sends no prefix at all.  Returns the free position behind the prefix.
uint8_t *fill_route(RouteRequest &req, uint32_t tid, uint32_t af, uint32_t type, uint32_t flags,
                    const uint8_t *pfx, uint32_t plen, bool always_prefix) {
  rt_msg &m = *req;
  m.tid = static_cast<uint16_t>(tid);
  m.af = static_cast<uint8_t>(af);
  m.type = static_cast<uint8_t>(type);
  m.flags = flags;
  uint8_t *at = req.variable_area();
  plen &= 0xFFFF;
  if (plen == 0 && !always_prefix) return at;
  m.plen = static_cast<uint16_t>(plen);
  m.prefix = at;
  m.prefix_len = pack_prefix(at, pfx, plen);
  return at + m.prefix_len;
}

int read_reply(tarvik_cookie *cookie, void **out, void **mask, void *area, size_t area_size) {
  if (area != nullptr) return tarvik_long_msg_read_idl_pa(cookie, out, mask, area, area_size);
  return read_framed(cookie, out, mask).code();
}

int get_with_msg(tarvik_cookie *cookie, rt_msg *msg, uint32_t op, void **out, void **mask,
                 void *area, size_t area_size) {
  const bool reading = reads_reply(op);
  clear_outs(out, mask);
  if (cookie == nullptr || msg == nullptr || (reading && out == nullptr)) return EINVAL;
  msg->rt_hdr.tlkh_op = static_cast<uint8_t>(op);
  msg->rt_hdr.tlkh_seq = next_seq(cookie);
  int err = write_framed(cookie, msg).code();
  if (err == 0 && reading) err = read_reply(cookie, out, mask, area, area_size);
  if (err != 0) clear_outs(out, mask);
  return err;
}

constexpr uint32_t kLocalPrefix = 16;  // the prefix room of a match built on the stack

// A route match request for a prefix, packed at `at` behind the record.
void fill_match(rtm_msg &m, uint8_t *at, uint32_t tid, uint32_t af, uint32_t type,
                const uint8_t *pfx, uint32_t plen) {
  m.tid = static_cast<uint16_t>(tid);
  m.af = static_cast<uint8_t>(af);
  m.type = static_cast<uint8_t>(type);
  if (plen != 0) {
    m.prefix.plen = static_cast<uint16_t>(plen);
    m.prefix.prefix = at;
    m.prefix.prefix_len = pack_prefix(at, pfx, plen);
  }
  m.rtm_hdr.tlkh_msglen = sizeof(rtm_msg) + m.prefix.prefix_len;
}

// The next hop get of a route match, kept to what the match needs: the record by index.
int nexthop_get(tarvik_cookie *cookie, uint32_t nhidx, uint8_t af, void **out) {
  Request<rnh_msg> req(cookie, TLK_MSG_NEXTHOP, TLK_OP_GET, Seq::kDraw);
  if (!req) return ENOMEM;
  req->idx.idx = nhidx;
  req->af = af;
  return exchange(req, out, nullptr).code();
}

// The forwarding interface a next hop names: its ifidx, or else, for a next hop whose sub_kind
// says so, the first attachment carrying it.
uint32_t forwarding_ifindex(const rnh_msg &nh) {
  if (nh.ifidx.idx != 0 || nh.sub_kind != kSubKindInfoList) return nh.ifidx.idx;
  const tlk_hdr &h = nh.rnh_hdr;
  for (uint32_t i = 0; h.tlkh_info != nullptr && i < h.tlkh_info_len; ++i) {
    const tlk_msg_info *info = h.tlkh_info[i];
    if (info != nullptr && info->tlkmi_type == kIfindexInfo)
      return info->tlkmi_u.tlk_msg_info_u32.value;
  }
  return 0;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_rtm_add(tarvik_cookie *cookie, uint32_t tid, uint32_t af, uint32_t type,
                              uint32_t flags, uint32_t nh_type, uint32_t nhflags,
                              uint32_t nh_info_kind, uint32_t fwdnhidx, uint32_t ifslot,
                              uint32_t nhidx, uint32_t opaque_type, const void *opaque_in,
                              const uint8_t *pfx, uint32_t plen, const uint8_t *gateway,
                              uint32_t *ack_index_out) {
  if (cookie == nullptr) return EINVAL;
  const bool ack = ack_index_out != nullptr;
  RouteRequest req(cookie, TLK_MSG_ROUTE, ack ? TLK_OP_ADD_GET : TLK_OP_ADD, Seq::kDraw);
  if (!req) return ENOMEM;
  if (ack) req.header().tlkh_flags = kReqAck;
  rt_msg &m = *req;
  m.nh_type = static_cast<uint8_t>(nh_type);
  m.nhflags = nhflags;
  m.rnh_info.rnhi_type = nh_info_kind;
  m.fwdnhidx.idx = fwdnhidx;
  m.rtm_idx.idx = ifslot;
  m.nhidx.idx = nhidx;
  m.opaque_kind = 0;
  uint8_t *at = fill_route(req, tid, af, type, flags, pfx, plen, true);
  if (gateway != nullptr) at = put_gateway(m, at, gateway);
  if (opaque_type != 0) put_opaque(m, at, req.block_end(), opaque_type, opaque_in);

  const int err = write_framed(cookie, req.get()).code();
  req.free_now();
  if (err != 0 || !ack) return err;
  Reply reply(cookie);
  const int read = read_framed(cookie, reply.out(), nullptr).code();
  if (read != 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, " failed to get route add ack index\n");
    return read;
  }
  *ack_index_out = reply.as<rt_msg>()->ack_index;
  return 0;
}

TLK_EXPORT int tarvik_rtm_delete_prefix(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                        uint32_t type, uint32_t flags, const uint8_t *pfx,
                                        uint32_t plen, uint32_t ifslot) {
  if (cookie == nullptr) return EINVAL;
  RouteRequest req(cookie, TLK_MSG_ROUTE, TLK_OP_DELETE, Seq::kDraw);
  if (!req) return ENOMEM;
  req->rtm_idx.idx = ifslot;
  (void)fill_route(req, tid, af, type, flags, pfx, plen, true);
  return tlk::request::send(req).code();
}

TLK_EXPORT int tarvik_rtm_delete(tarvik_cookie *cookie, rt_msg *msg) {
  if (cookie == nullptr || msg == nullptr) return EINVAL;
  msg->rt_hdr.tlkh_op = TLK_OP_DELETE;
  return write_framed(cookie, msg).code();
}

TLK_EXPORT int tarvik_rtm_get(tarvik_cookie *cookie, uint32_t tid, uint32_t af, const uint8_t *pfx,
                              uint32_t plen, uint32_t type, uint32_t flags, uint32_t fwdnhidx,
                              uint32_t opaque_kind, uint32_t op, void **out, void **mask) {
  const bool reading = reads_reply(op);
  clear_outs(out, mask);
  if (cookie == nullptr || (reading && out == nullptr)) return EINVAL;
  RouteRequest req(cookie, TLK_MSG_ROUTE, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->fwdnhidx.idx = fwdnhidx;
  req->opaque_kind = static_cast<uint8_t>(opaque_kind);
  (void)fill_route(req, tid, af, type, flags, pfx, plen, false);
  if (reading) return exchange(req, out, mask).code();
  return tlk::request::send(req).code();
}

TLK_EXPORT int tarvik_rtm_get_by_prefix(tarvik_cookie *cookie, uint32_t af, const uint8_t *pfx,
                                        uint32_t plen, uint32_t op, void **out, void **mask) {
  return tarvik_rtm_get(cookie, 0, af, pfx, plen, 0, 0, 0, 0, op, out, mask);
}

TLK_EXPORT int tarvik_rtm_get_by_type(tarvik_cookie *cookie, uint32_t af, uint32_t type,
                                      uint32_t op, void **out, void **mask) {
  return tarvik_rtm_get(cookie, 0, af, nullptr, 0, type, 0, 0, 0, op, out, mask);
}

TLK_EXPORT int tarvik_rtm_get_with_msg(tarvik_cookie *cookie, rt_msg *msg, uint32_t op, void **out,
                                       void **mask) {
  return get_with_msg(cookie, msg, op, out, mask, nullptr, 0);
}

TLK_EXPORT int tarvik_rtm_get_with_msg_pa(tarvik_cookie *cookie, rt_msg *msg, uint32_t op,
                                          void **out, void **mask, void *area, size_t area_size) {
  return get_with_msg(cookie, msg, op, out, mask, area, area_size);
}

TLK_EXPORT int tarvik_rtmatch_by_prefix(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                        uint32_t type, const uint8_t *pfx, uint32_t plen,
                                        void **out, void **mask) {
  clear_outs(out, mask);
  if (cookie == nullptr || out == nullptr) return EINVAL;
  plen &= 0xFFFF;
  // A match of up to 128 bits is a request of fixed small size: a local record and its prefix,
  // zeroed by their own size, spare it the zero fill of a whole message block.  Longer prefixes
  // (a caller's odd plen) take the block.
  if (packed_len(plen) <= kLocalPrefix) {
    struct {
      rtm_msg m;
      uint8_t prefix[kLocalPrefix];
    } local;
    memset(&local, 0, sizeof local);
    tlk::request::fill_header(local.m.rtm_hdr, TLK_MSG_RTMATCH, TLK_OP_GET, sizeof(rtm_msg),
                              sizeof(rtm_msg), next_seq(cookie));
    fill_match(local.m, local.prefix, tid, af, type, pfx, plen);
    Status status = write_framed(cookie, &local.m);
    if (status.ok()) status = read_framed(cookie, out, mask);
    if (!status.ok()) clear_outs(out, mask);
    return status.code();
  }
  Request<rtm_msg> req(cookie, TLK_MSG_RTMATCH, TLK_OP_GET, Seq::kDraw);
  if (!req) return ENOMEM;
  fill_match(*req, req.variable_area(), tid, af, type, pfx, plen);
  return exchange(req, out, mask).code();
}

TLK_EXPORT int tarvik_rtmatch_fwding_nh_ifindex(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                                uint32_t type, const uint8_t *pfx, uint32_t plen,
                                                void **out, void **mask) {
  const int err = tarvik_rtmatch_by_prefix(cookie, tid, af, type, pfx, plen, out, mask);
  if (err != 0) return err;
  auto *route = static_cast<rt_msg *>(*out);
  if (route == nullptr || route->nhidx.idx == 0) return -1;
  Reply nh(cookie);
  if (nexthop_get(cookie, route->nhidx.idx, route->af, nh.out()) != 0 ||
      nh.as<rnh_msg>() == nullptr)
    return -1;
  route->rtm_idx.idx = forwarding_ifindex(*nh.as<rnh_msg>());
  return 0;
}

}  // extern "C"
