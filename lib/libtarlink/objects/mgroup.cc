// Multicast groups ("mgroup", type 13): a get or getnext of one group of a route table.
//
// The request is a small mgr_msg built on the stack rather than in a message block: it carries
// no variable data of its own, only the caller's group bytes, which the encoder reads through
// the record's pointer.  A group of `bits` bits travels as whole 32-bit words:
//
//   bits   1..32 -> 4 bytes,  33..64 -> 8 bytes, ...  ((bits + 31) / 8) & 0x3FFC
#include <errno.h>

#include "cookie.h"
#include "objects/request.h"

namespace {

constexpr uint8_t kVersion = 'c';

// The bytes a group of `bits` bits takes on the wire, in a 14-bit length.
constexpr uint32_t group_len(uint32_t bits) {
  return ((bits + 31) / 8) & 0x3FFC;
}

bool reads_reply(uint32_t op) {
  return (op & ~1u) == TLK_OP_GET;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_mgrm_get(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                               const uint8_t *group, uint32_t group_bits, uint32_t op, void **out,
                               void **mask) {
  const bool reading = reads_reply(op);
  tlk::request::clear_outs(out, mask);
  if (cookie == nullptr || (reading && out == nullptr)) return EINVAL;

  mgr_msg req{};
  tlk::request::fill_header(req.mgr_hdr, TLK_MSG_MGROUP, op, sizeof req, sizeof req,
                            tlk::request::next_seq(cookie));
  req.mgr_hdr.tlkh_version = kVersion;
  req.tid = static_cast<uint16_t>(tid);
  req.af = static_cast<uint8_t>(af);
  // No bits, no group: the field stays empty (the start of a walk, or a table-wide request).
  if (group_bits != 0) {
    req.group.plen = static_cast<uint16_t>(group_bits);
    req.group.prefix = const_cast<uint8_t *>(group);
    req.group.prefix_len = group_len(group_bits);
  }
  tlk::request::Status status = tlk::request::write_framed(cookie, &req);
  if (status.ok() && reading) {
    status = tlk::request::read_framed(cookie, out, mask, tlk::request::Read::kFixed);
  }
  if (!status.ok()) tlk::request::clear_outs(out, mask);
  return status.code();
}

}  // extern "C"
