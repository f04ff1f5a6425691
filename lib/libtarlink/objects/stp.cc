// Spanning tree state ("stp", stp_msg): one routine builds every request.
//
// The request is the 104-byte record with sender_id in tlkh_id.  An interface instance block,
// when given, is copied whole (16 bytes) at 64 and followed by its VLAN (u16 at 80) and a byte
// (82); the length word at 46 then says 20, the room the three take, else 0.  Only get, getnext,
// add_get and chg_get read a reply.  Every request but the change names no peer: it sends the
// fixed peer address 10.255.255.255.
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "tarlink/bridge.h"

namespace {

using tlk::request::clear_outs;
using tlk::request::exchange;
using tlk::request::Read;
using tlk::request::Request;
using tlk::request::send;
using tlk::request::Seq;

constexpr uint16_t kInstRoom = 20;  // the block, its VLAN and its byte

struct StpFields {
  uint32_t op = 0, kind = TLK_STP_KIND_IF, sender_id = 0, idx = 0;
  uint32_t state = 0, action = 0, epoch = 0, clear_epoch = 0, hw_learn = 0, flags = 0;
  uint32_t peer_ip = TLK_STP_NO_PEER;
  const stp_if_inst *inst = nullptr;
  uint32_t inst_vlan = 0, inst_byte = 0;
};

int stp_op(tarvik_cookie *cookie, const StpFields &f, void **out, void **mask) {
  const bool reads = tlk::request::op_expects_reply(f.op);
  clear_outs(out, mask);
  if (cookie == nullptr || (reads && out == nullptr)) return EINVAL;
  Request<stp_msg> req(cookie, TLK_MSG_STP, f.op, Seq::kDraw);
  if (!req) return ENOMEM;
  stp_msg &m = *req;
  req.header().tlkh_id = f.sender_id;
  m.stpm_idx = static_cast<uint16_t>(f.idx);
  m.stpm_state = static_cast<uint8_t>(f.state);
  m.stpm_action = static_cast<uint8_t>(f.action);
  m.stpm_epoch = static_cast<uint8_t>(f.epoch);
  m.stpm_kind = static_cast<uint8_t>(f.kind);
  m.stpm_clear_epoch = static_cast<uint8_t>(f.clear_epoch);
  m.stpm_hw_learn = static_cast<uint8_t>(f.hw_learn);
  m.stpm_flags = f.flags;
  m.stpm_peer_ip = f.peer_ip;
  if (f.inst != nullptr) {
    memcpy(&m.stpm_inst, f.inst, sizeof m.stpm_inst);
    m.stpm_inst_len = kInstRoom;
  }
  m.stpm_inst_vlan = static_cast<uint16_t>(f.inst_vlan);
  m.stpm_inst_byte = static_cast<uint8_t>(f.inst_byte);
  if (!reads) return send(req).code();
  return exchange(req, out, mask, Read::kFixed).code();
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_stp_add(tarvik_cookie *cookie, uint32_t sender_id, const stp_if_inst *inst,
                              uint32_t inst_vlan, uint32_t inst_byte, void **msg_out,
                              void **mask_out) {
  StpFields f;
  f.op = TLK_OP_ADD_GET, f.sender_id = sender_id;
  f.inst = inst, f.inst_vlan = inst_vlan, f.inst_byte = inst_byte;
  return stp_op(cookie, f, msg_out, mask_out);
}

TLK_EXPORT int tarvik_stp_change(tarvik_cookie *cookie, uint32_t sender_id, uint32_t idx,
                                 uint32_t state, uint32_t action, uint32_t epoch,
                                 uint32_t clear_epoch, uint32_t hw_learn, uint32_t flags,
                                 uint32_t peer_ip) {
  StpFields f;
  f.op = TLK_OP_CHANGE, f.sender_id = sender_id, f.idx = idx;
  f.state = state, f.action = action, f.epoch = epoch;
  f.clear_epoch = clear_epoch, f.hw_learn = hw_learn, f.flags = flags, f.peer_ip = peer_ip;
  return stp_op(cookie, f, nullptr, nullptr);
}

TLK_EXPORT int tarvik_stp_delete(tarvik_cookie *cookie, uint32_t sender_id, uint32_t idx) {
  StpFields f;
  f.op = TLK_OP_DELETE, f.sender_id = sender_id, f.idx = idx;
  return stp_op(cookie, f, nullptr, nullptr);
}

TLK_EXPORT int tarvik_stp_get(tarvik_cookie *cookie, uint32_t op, uint32_t kind, uint32_t sender_id,
                              const stp_if_inst *inst, uint32_t inst_vlan, void **msg_out,
                              void **mask_out) {
  StpFields f;
  f.op = op, f.kind = kind, f.sender_id = sender_id;
  f.inst = inst, f.inst_vlan = inst_vlan;
  return stp_op(cookie, f, msg_out, mask_out);
}

}  // extern "C"
