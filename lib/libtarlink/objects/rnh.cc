// Next hop operations: reads by index, the special next hops a daemon creates (service, L2TP
// service, interface and subunit next hops), reserved next hop indexes and composite reads.
// The trace helpers that render an indirect next hop's opaque area are in rnh_opaque.cc.
//
// Reads are one request-reply exchange (objects/request.h).  The special next hop families share
// a reply loop: an op that reads takes one reply; a getnext (op 5) whose reply is not of the
// family's own kind steps over it with a new getnext from the reply's index, so that a walk sees
// only the family's next hops.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "tarlink_platform.h"
#include "wire.h"

namespace {

using tlk::request::exchange;
using tlk::request::fill_header;
using tlk::request::next_seq;
using tlk::request::op_expects_reply;
using tlk::request::read_framed;
using tlk::request::Request;
using tlk::request::Seq;
using tlk::request::Status;
using tlk::request::write_framed;

constexpr uint8_t kNhUnicast = 2;    // next hop type "ucst"
constexpr uint8_t kNhService = 22;   // next hop type "service"
constexpr uint32_t kSelService = 5;  // rnh_info selectors
constexpr uint32_t kSelIflnh = 17;
constexpr uint32_t kSelGeneric = 0;
constexpr unsigned long kRetrieveComposite = 1024;  // retrieve_mask: the composite's children

// The service block, the body of a service next hop (selector 5):
//
//    0 owner word (kind in bits 31-28, id in 27-0)     4 logical interface indexes, u32 each
//  136 count   137 service_kind   138 service_flags
//  140 name[64]                                      208 token[12] (L2TP: tunnel u16, session u16)
//  220 arg1    224 arg2    228 has_extension         232 extension name[72]
//  304 extension byte 72   305 extension byte 73     384 arg3               388 end
constexpr size_t kBlockLen = 388, kIflsAt = 4, kCountAt = 136, kKindAt = 137, kFlagsAt = 138,
                 kNameAt = 140, kNameLen = 64, kTokenAt = 208, kTokenLen = 12, kTunnelAt = 208,
                 kSessionAt = 210, kArg1At = 220, kArg2At = 224, kHasExtAt = 228, kExtAt = 232,
                 kExtNameLen = 72, kExtByte72At = 304, kExtByte73At = 305, kArg3At = 384;
constexpr uint8_t kKindL2tp = 3, kKindOneIfl = 5;
constexpr uint32_t kMaxIfls = 256;

uint32_t null_nh() {
  return tlk_platform_get()->null_nh_idx;
}
uint32_t null_ifl() {
  return tlk_platform_get()->null_ifl_idx;
}

// Clears every output of a failed special next hop operation, releasing a reply if one is held.
void fail_outs(tarvik_cookie *cookie, void *held, void **out, void **mask) {
  if (held != nullptr) tarvik_msg_idl_release(cookie, held, nullptr);
  if (out != nullptr) *out = nullptr;
  if (mask != nullptr) *mask = nullptr;
}

// Points the request's generic info arm at `body` (placed behind the fixed record) and sets the
// three lengths: the arm's, its own length word and the record's info_len.
void put_generic_info(rnh_msg &m, uint32_t selector, uint8_t *body, uint32_t len) {
  m.rnh_info.rnhi_type = selector;
  m.rnh_info.rnhi_u.rnh_info_generic.rnig_data = body;
  m.rnh_info.rnhi_u.rnh_info_generic.rnig_data_len = len;
  m.rnh_info.rnhi_u.rnh_info_generic.rnig_len = len;
  m.info_len = len;
}

// What decides that a walk has reached a next hop of the family.
enum class Stop { kService, kIflnh, kUnicast };

bool walk_stops(const rnh_msg &reply, Stop stop) {
  switch (stop) {
    case Stop::kService:
      return reply.nh == kNhService;
    case Stop::kIflnh:
      return reply.rnh_info.rnhi_type == kSelIflnh;
    case Stop::kUnicast:
      return reply.nh == kNhUnicast;
  }
  return true;
}

// The reply loop of the service, L2TP and subunit families, the request already written.  On
// success *out holds the reply and *mask is not touched.
int reply_loop(tarvik_cookie *cookie, uint32_t op, Stop stop, void **out, void **mask) {
  if (!op_expects_reply(op)) return 0;
  for (;;) {
    void *reply = nullptr;
    Status status = read_framed(cookie, &reply, nullptr);
    if (!status.ok()) {
      fail_outs(cookie, reply, out, mask);
      return status.code();
    }
    const auto *r = static_cast<const rnh_msg *>(reply);
    if (op != TLK_OP_GETNEXT || walk_stops(*r, stop)) {
      *out = reply;
      return 0;
    }
    // Not the family's: ask for the one after it.
    Request<rnh_msg> next(cookie, TLK_MSG_NEXTHOP, TLK_OP_GETNEXT, Seq::kDraw);
    if (!next) {
      fail_outs(cookie, reply, out, mask);
      return ENOMEM;
    }
    next->idx.idx = r->idx.idx;
    tarvik_msg_idl_release(cookie, reply, nullptr);
    status = write_framed(cookie, next.get());
    if (!status.ok()) {
      fail_outs(cookie, nullptr, out, mask);
      return status.code();
    }
  }
}

// What a service request carries.
struct Service {
  uint32_t op = TLK_OP_GET;
  uint32_t idx = 0;
  uint8_t af = 0;
  const uint32_t *ifls = nullptr;
  uint32_t count = 0;
  uint32_t owner_kind = 0, owner_id = 0;
  const char *name = nullptr;
  uint8_t kind = 0, flags = 0;
  const uint8_t *token = nullptr;
  uint32_t arg1 = 0, arg2 = 0, arg3 = 0;
  uint8_t has_extension = 0;
  const uint8_t *extension = nullptr;
  // The L2TP form: the ids at 208 and 210 instead of the token.
  bool l2tp = false;
  uint16_t tunnel = 0, session = 0;
};

void fill_block(uint8_t *b, const Service &s) {
  tlk::wire::store_u32(b, (s.owner_kind << 28) | (s.owner_id & 0x0FFFFFFFu));
  // A list longer than the 33 places before the count runs on over the block's later fields,
  // which are written after it; the message block behind it has room for all 256.
  for (uint32_t i = 0; s.ifls != nullptr && i < s.count; ++i) {
    tlk::wire::store_u32(b + kIflsAt + 4 * i, s.ifls[i]);
  }
  b[kCountAt] = static_cast<uint8_t>(s.count);
  b[kKindAt] = s.kind;
  b[kFlagsAt] = s.flags;
  if (s.name != nullptr) {
    const size_t n = strnlen(s.name, kNameLen - 1);
    memcpy(b + kNameAt, s.name, n);
    b[kNameAt + n] = 0;
  }
  if (s.l2tp) {
    tlk::wire::store_u16(b + kTunnelAt, s.tunnel);
    tlk::wire::store_u16(b + kSessionAt, s.session);
  } else if (s.token != nullptr) {
    memcpy(b + kTokenAt, s.token, kTokenLen);
  }
  tlk::wire::store_u32(b + kArg1At, s.arg1);
  tlk::wire::store_u32(b + kArg2At, s.arg2);
  b[kHasExtAt] = s.has_extension;
  if (s.extension != nullptr) {
    // The name as long as it is, within its area, with no end byte added; then the two bytes
    // that follow the area in the caller's extension.
    const size_t n = strnlen(reinterpret_cast<const char *>(s.extension), kExtNameLen);
    memcpy(b + kExtAt, s.extension, n);
    b[kExtByte72At] = s.extension[kExtNameLen];
    b[kExtByte73At] = s.extension[kExtNameLen + 1];
  }
  tlk::wire::store_u32(b + kArg3At, s.arg3);
}

// The one routine of the service family (and, with s.l2tp, of the L2TP form).  Every check comes
// before any buffer is taken.
int service_request(tarvik_cookie *cookie, const Service &s, void **out, void **mask) {
  if (cookie == nullptr || (op_expects_reply(s.op) && out == nullptr)) return EINVAL;
  if (!s.l2tp) {
    if (s.ifls != nullptr && s.count == 0) return EINVAL;
    if (s.kind == kKindOneIfl && s.count != 1) return EINVAL;
    if (s.count > kMaxIfls) return EINVAL;
    for (uint32_t i = 0; s.ifls != nullptr && i < s.count; ++i) {
      if (s.ifls[i] == null_ifl()) return EINVAL;
    }
  }
  if (out != nullptr) *out = nullptr;
  Request<rnh_msg> req(cookie, TLK_MSG_NEXTHOP, s.op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->nh = kNhService;
  req->idx.idx = s.idx;
  req->ifidx.idx = null_ifl();
  req->af = s.af;
  uint8_t *block = req.variable_area();
  fill_block(block, s);
  put_generic_info(*req, kSelService, block, kBlockLen);
  const Status status = write_framed(cookie, req.get());
  req.free_now();
  if (!status.ok()) {
    fail_outs(cookie, nullptr, out, mask);
    return status.code();
  }
  return reply_loop(cookie, s.op, Stop::kService, out, mask);
}

// What an interface next hop request carries.
struct Iflnh {
  uint32_t op = TLK_OP_GET;
  uint32_t idx = 0, ifidx = 0;
  uint8_t af = 0;
  uint16_t tid = 0;
  uint32_t count = 0;
  const uint8_t *addr_kind = nullptr;
  uint32_t uflags = 0;
  uint32_t *idx_out = nullptr;
};

bool adds(uint32_t op) {
  return op == TLK_OP_ADD || op == TLK_OP_CHANGE || op == TLK_OP_ADD_GET || op == TLK_OP_CHG_GET;
}

// The caller's address kind as the kernel numbers it: 0 and 4 are both 0; -1 for a kind that has
// no number.
int map_addr_kind(uint8_t kind) {
  switch (kind) {
    case 0:
    case 4:
      return 0;
    case 1:
    case 2:
    case 3:
      return kind;
    default:
      return -1;
  }
}

int iflnh_request(tarvik_cookie *cookie, const Iflnh &a, void **out, void **mask) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr) return EINVAL;
  uint8_t body[2] = {1, 0};
  if (adds(a.op)) {
    if (a.count != 1) return EOPNOTSUPP;
    if (a.addr_kind == nullptr) return EINVAL;
    const int kind = map_addr_kind(*a.addr_kind);
    if (kind < 0) return EOPNOTSUPP;
    body[1] = static_cast<uint8_t>(kind);
  }
  Request<rnh_msg> req(cookie, TLK_MSG_NEXTHOP, a.op, Seq::kZero);
  if (!req) return ENOMEM;
  int err = tarvik_seq_get_next(cookie, &req->rnh_hdr.tlkh_seq);
  if (err != 0) return err;
  req->nh = kNhUnicast;
  req->idx.idx = a.idx;
  req->ifidx.idx = a.ifidx;
  req->af = a.af;
  req->tid = a.tid;
  req->uflags = a.uflags;
  uint8_t *at = req.variable_area();
  memcpy(at, body, sizeof body);
  put_generic_info(*req, kSelIflnh, adds(a.op) ? at : nullptr, adds(a.op) ? sizeof body : 0);
  req->info_len = sizeof body;
  Status status = write_framed(cookie, req.get());
  req.free_now();
  if (!status.ok() || !op_expects_reply(a.op)) {
    fail_outs(cookie, nullptr, out, mask);
    return status.code();
  }
  for (;;) {
    void *reply = nullptr, *reply_mask = nullptr;
    status = read_framed(cookie, &reply, &reply_mask);
    if (!status.ok()) {
      fail_outs(cookie, reply, out, mask);
      return status.code();
    }
    const auto *r = static_cast<const rnh_msg *>(reply);
    if (a.idx_out != nullptr) *a.idx_out = r->idx.idx;
    if (a.op != TLK_OP_GETNEXT || walk_stops(*r, Stop::kIflnh)) {
      if (out != nullptr && mask != nullptr) {
        *out = reply;
        *mask = reply_mask;
      } else {
        tarvik_msg_idl_release(cookie, reply, reply_mask);
      }
      return 0;
    }
    // The stepping request is made from the reply, then let go together with it, and the write
    // that follows has no message: the walk ends here with the write layer's answer to that.
    Request<rnh_msg> next(cookie, TLK_MSG_NEXTHOP, TLK_OP_GETNEXT, Seq::kZero);
    if (!next) {
      fail_outs(cookie, reply, out, mask);
      return ENOMEM;
    }
    next->rnh_hdr.tlkh_version = r->rnh_hdr.tlkh_version;
    next->rnh_hdr.tlkh_type = r->rnh_hdr.tlkh_type;
    next->nh = r->nh;
    next->sub_kind = r->sub_kind;
    next->idx = r->idx;
    next->ifidx = r->ifidx;
    next->af = r->af;
    next->rnh_info.rnhi_type = r->rnh_info.rnhi_type;
    next->flags = r->flags;
    err = tarvik_seq_get_next(cookie, &next->rnh_hdr.tlkh_seq);
    tarvik_msg_idl_release(cookie, reply, reply_mask);
    next.free_now();
    if (err != 0) {
      fail_outs(cookie, nullptr, out, mask);
      return err;
    }
    status = write_framed(cookie, nullptr);
    if (!status.ok()) {
      fail_outs(cookie, nullptr, out, mask);
      return status.code();
    }
  }
}

int subunit_request(tarvik_cookie *cookie, uint32_t op, uint32_t idx, const uint32_t *ifls,
                    uint8_t af, void **out, void **mask) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || (op_expects_reply(op) && out == nullptr)) return EINVAL;
  if (op == TLK_OP_ADD_GET && ifls == nullptr) return EINVAL;
  Request<rnh_msg> req(cookie, TLK_MSG_NEXTHOP, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->nh = kNhUnicast;
  req->rnh_info.rnhi_type = kSelGeneric;
  req->idx.idx = idx;
  req->af = af;
  req->ifidx.idx = ifls != nullptr ? ifls[0] : null_ifl();
  const Status status = write_framed(cookie, req.get());
  req.free_now();
  if (!status.ok()) {
    fail_outs(cookie, nullptr, out, mask);
    return status.code();
  }
  return reply_loop(cookie, op, Stop::kUnicast, out, mask);
}

// ---- Reserved indexes: raw "residx" ----
//
//    0 index        4 'b'  5 100  6 op  7 0      8 msglen 32     12 seq     16 0
//   20 fixedlen 0   24 1   25 reserve count      28 reserve word (u16)       32 end
//
// The index goes where tlkh_fixedlen points, and that is left 0: the message's first word.
constexpr size_t kResidxLen = 32, kResidxOneAt = 24, kResidxCountAt = 25, kResidxWordAt = 28;

// One failure line on the standard error stream: `what` names the step, then "error = <errno>".
void nhack(int err, const char *what) {
  char line[96];
  snprintf(line, sizeof line, "NHACK: %s fail. error = %d\n", what, err);
  tlk_platform_get()->print_stderr(line);
}

int residx_request(tarvik_cookie *cookie, uint32_t op, void **out, uint32_t idx, uint8_t count,
                   uint16_t word) {
  if (op != TLK_OP_GET && op != TLK_OP_GETNEXT && op != TLK_OP_DELETEALL) return EOPNOTSUPP;
  const bool reads = op != TLK_OP_DELETEALL;
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || (reads && out == nullptr)) return EINVAL;
  tlk::request::Block read_buf(cookie, reads);
  if (reads && !read_buf) {
    nhack(ENOMEM, "malloc for read buf");
    return ENOMEM;
  }
  tlk::request::Block write_buf(cookie);
  if (!write_buf) {
    nhack(ENOMEM, "malloc for write buf");
    return ENOMEM;
  }
  uint8_t *m = write_buf.bytes();
  const uint16_t fixedlen = 0;
  tlk::wire::store_u32(m + fixedlen, idx);
  m[tlk::wire::kVersionAt] = TARVIK_VERSION_TABLE[TLK_MSG_RESIDX];
  m[tlk::wire::kTypeAt] = TLK_MSG_RESIDX;
  m[tlk::wire::kOpAt] = static_cast<uint8_t>(op);
  tlk::wire::store_u32(m + tlk::wire::kMsglenAt, kResidxLen);
  tlk::wire::store_u32(m + tlk::wire::kSeqAt, next_seq(cookie));
  m[kResidxOneAt] = 1;
  m[kResidxCountAt] = count;
  tlk::wire::store_u16(m + kResidxWordAt, word);
  int err = tarvik_write(cookie, m, kResidxLen);
  write_buf.free_now();
  if (err != 0) {
    nhack(err, "tarvik_write()");
    return err;
  }
  if (!reads) return 0;
  err = tarvik_msg_read(cookie, read_buf.bytes(), nullptr);
  if (err != 0) {
    nhack(err, "tarvik_msg_read()");
    return err;
  }
  *out = read_buf.release();
  return 0;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_rnhm_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af,
                                        uint32_t op, void **msg_out, void **mask_out) {
  if (cookie == nullptr || msg_out == nullptr) {
    fail_outs(cookie, nullptr, msg_out, mask_out);
    return EINVAL;
  }
  // A fixed record on the stack: nothing behind it is sent.
  rnh_msg req{};
  fill_header(req.rnh_hdr, TLK_MSG_NEXTHOP, op, sizeof req, sizeof req, next_seq(cookie));
  req.idx.idx = idx;
  req.af = static_cast<uint8_t>(af);
  if (cookie->comp_nh_retrieval != 0) req.retrieve_mask = kRetrieveComposite;
  Status status = write_framed(cookie, &req);
  if (status.ok()) status = read_framed(cookie, msg_out, nullptr);
  if (!status.ok()) fail_outs(cookie, nullptr, msg_out, mask_out);
  return status.code();
}

TLK_EXPORT int tarvik_rnh_enable_comp_nh_retrieval(tarvik_cookie *cookie, uint32_t enable) {
  if (cookie == nullptr) return EINVAL;
  cookie->comp_nh_retrieval = enable;
  return 0;
}

TLK_EXPORT int tarvik_rnhm_service_add(tarvik_cookie *cookie, const uint32_t *ifls, uint32_t count,
                                       uint32_t af, uint32_t owner_kind, const char *name,
                                       uint32_t owner_id, uint32_t service_kind,
                                       uint32_t service_flags, const uint8_t *token, void **msg_out,
                                       void **mask_out, uint32_t service_arg1,
                                       uint32_t service_arg2, uint32_t service_has_extension,
                                       const uint8_t *extension, uint32_t service_arg3) {
  Service s;
  s.op = TLK_OP_ADD_GET;
  s.idx = null_nh();
  s.af = static_cast<uint8_t>(af);
  s.ifls = ifls;
  s.count = count;
  s.owner_kind = owner_kind;
  s.owner_id = owner_id;
  s.name = name;
  s.kind = static_cast<uint8_t>(service_kind);
  s.flags = static_cast<uint8_t>(service_flags);
  s.token = token;
  s.arg1 = service_arg1;
  s.arg2 = service_arg2;
  s.has_extension = static_cast<uint8_t>(service_has_extension);
  s.extension = extension;
  s.arg3 = service_arg3;
  return service_request(cookie, s, msg_out, mask_out);
}

TLK_EXPORT int tarvik_rnhm_service_get_by_owner(tarvik_cookie *cookie, uint32_t idx, uint32_t af,
                                                uint32_t owner_kind, uint32_t service_kind,
                                                void **msg_out, void **mask_out) {
  Service s;
  s.op = TLK_OP_GETNEXT;
  s.idx = idx;
  s.af = static_cast<uint8_t>(af);
  s.owner_kind = owner_kind;
  s.kind = static_cast<uint8_t>(service_kind);
  return service_request(cookie, s, msg_out, mask_out);
}

TLK_EXPORT int tarvik_rnhm_service_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af,
                                                uint32_t op, void **msg_out, void **mask_out) {
  Service s;
  s.op = op;
  s.idx = idx;
  s.af = static_cast<uint8_t>(af);
  return service_request(cookie, s, msg_out, mask_out);
}

TLK_EXPORT int tarvik_rnhm_service_delete_by_index(tarvik_cookie *cookie, uint32_t idx,
                                                   uint32_t af) {
  Service s;
  s.op = TLK_OP_DELETE;
  s.idx = idx;
  s.af = static_cast<uint8_t>(af);
  return service_request(cookie, s, nullptr, nullptr);
}

TLK_EXPORT int tarvik_rnhm_l2tp_service_add(tarvik_cookie *cookie, const uint32_t *ifls,
                                            uint32_t af, uint32_t owner_kind, const char *base_name,
                                            uint32_t owner_id, uint32_t service_flags,
                                            uint32_t tunnel_id, uint32_t session_id, void **msg_out,
                                            void **mask_out) {
  // The name in two steps, as the kernel's peers expect it: the base cut to 31 characters, then
  // the owner, tunnel and session behind it, cut to 63.
  char base[32], name[64];
  snprintf(base, sizeof base, "%s", base_name != nullptr ? base_name : "");
  snprintf(name, sizeof name, "%s-%d-%d-%d", base, static_cast<int>(owner_id),
           static_cast<int>(tunnel_id), static_cast<int>(session_id));
  Service s;
  s.op = TLK_OP_ADD_GET;
  s.idx = null_nh();
  s.af = static_cast<uint8_t>(af);
  s.ifls = ifls;
  s.count = 1;
  s.owner_kind = owner_kind;
  s.owner_id = owner_id;
  s.name = name;
  s.kind = kKindL2tp;
  s.flags = static_cast<uint8_t>(service_flags);
  s.l2tp = true;
  s.tunnel = static_cast<uint16_t>(tunnel_id);
  s.session = static_cast<uint16_t>(session_id);
  // Only the list's first index is sent, whatever follows it.
  uint32_t first = 0;
  if (ifls != nullptr) {
    first = ifls[0];
    s.ifls = &first;
  }
  return service_request(cookie, s, msg_out, mask_out);
}

TLK_EXPORT int tarvik_rnhm_l2tp_service_get_by_index(tarvik_cookie *cookie, uint32_t idx,
                                                     uint32_t af, uint32_t op, void **msg_out,
                                                     void **mask_out) {
  Service s;
  s.op = op;
  s.idx = idx;
  s.af = static_cast<uint8_t>(af);
  s.kind = kKindL2tp;
  s.count = 1;
  s.l2tp = true;
  return service_request(cookie, s, msg_out, mask_out);
}

TLK_EXPORT int tarvik_rnhm_l2tp_service_delete_by_index(tarvik_cookie *cookie, uint32_t idx,
                                                        uint32_t af) {
  Service s;
  s.op = TLK_OP_DELETE;
  s.idx = idx;
  s.af = static_cast<uint8_t>(af);
  s.kind = kKindL2tp;
  s.count = 1;
  s.l2tp = true;
  return service_request(cookie, s, nullptr, nullptr);
}

TLK_EXPORT int tarvik_rnhm_iflnh_add(tarvik_cookie *cookie, uint32_t ifidx, uint32_t af,
                                     uint32_t tid, uint32_t count, const uint8_t *addr_kind,
                                     uint32_t *idx_out, uint32_t uflags) {
  Iflnh a;
  a.op = TLK_OP_ADD_GET;
  a.idx = null_nh();
  a.ifidx = ifidx;
  a.af = static_cast<uint8_t>(af);
  a.tid = static_cast<uint16_t>(tid);
  a.count = count;
  a.addr_kind = addr_kind;
  a.uflags = uflags;
  a.idx_out = idx_out;
  return iflnh_request(cookie, a, nullptr, nullptr);
}

TLK_EXPORT int tarvik_rnhm_iflnh_get_by_index(tarvik_cookie *cookie, uint32_t op, uint32_t idx,
                                              uint32_t af, void **msg_out, void **mask_out) {
  if (op_expects_reply(op) && msg_out == nullptr) {
    fail_outs(cookie, nullptr, msg_out, mask_out);
    return EINVAL;
  }
  Iflnh a;
  a.op = op;
  a.idx = idx;
  a.af = static_cast<uint8_t>(af);
  return iflnh_request(cookie, a, msg_out, mask_out);
}

TLK_EXPORT int tarvik_rnhm_iflnh_delete_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af) {
  Iflnh a;
  a.op = TLK_OP_DELETE;
  a.idx = idx;
  a.af = static_cast<uint8_t>(af);
  return iflnh_request(cookie, a, nullptr, nullptr);
}

TLK_EXPORT int tarvik_rnhm_subunit_nhadd(tarvik_cookie *cookie, const uint32_t *ifls, uint32_t af,
                                         void **msg_out, void **mask_out) {
  return subunit_request(cookie, TLK_OP_ADD_GET, null_nh(), ifls, static_cast<uint8_t>(af), msg_out,
                         mask_out);
}

TLK_EXPORT int tarvik_rnhm_subunit_nhdelete_by_index(tarvik_cookie *cookie, uint32_t idx,
                                                     uint32_t af) {
  return subunit_request(cookie, TLK_OP_DELETE, idx, nullptr, static_cast<uint8_t>(af), nullptr,
                         nullptr);
}

TLK_EXPORT int tarvik_nhidx_get(tarvik_cookie *cookie, void **msg_out, uint32_t reserve_count,
                                uint32_t reserve_word) {
  return residx_request(cookie, TLK_OP_GET, msg_out, null_nh(), static_cast<uint8_t>(reserve_count),
                        static_cast<uint16_t>(reserve_word));
}

TLK_EXPORT int tarvik_nhidx_getnext(tarvik_cookie *cookie, void **msg_out, uint32_t idx) {
  return residx_request(cookie, TLK_OP_GETNEXT, msg_out, idx, 0, 1);
}

TLK_EXPORT int tarvik_nhidx_delete_all(tarvik_cookie *cookie) {
  return residx_request(cookie, TLK_OP_DELETEALL, nullptr, null_nh(), 0, 0);
}

TLK_EXPORT int tarvik_rnh_comp_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t op,
                                            void **msg_out, void **mask_out) {
  if (cookie == nullptr || msg_out == nullptr || (op != TLK_OP_GET && op != TLK_OP_GETNEXT)) {
    fail_outs(cookie, nullptr, msg_out, mask_out);
    return EINVAL;
  }
  Request<rnhc_msg> req(cookie, TLK_MSG_NH_COMP, op, Seq::kDraw);
  if (!req) {
    fail_outs(cookie, nullptr, msg_out, mask_out);
    return ENOMEM;
  }
  req->idx.idx = idx;
  return exchange(req, msg_out, mask_out).code();
}

}  // extern "C"
