// Bridge domains ("bridge-domain", bd_msg), interfaces in a domain ("ifbdmesg", ifbd_msg), and
// the plain reads of VLANs ("vlan"), mesh groups ("mesh-group") and analyzers ("analyzer").
//
// Domain reads and the add are one framed exchange each, read with the fixed read; the attribute
// change and the delete are writes that nothing answers.  An add carries the name, a second
// string and two byte strings behind the fixed record, each at the previous one's end rounded up
// to four:
//
//   variable area:  | name \0 | pad | descr \0 | pad | prefix1 | pad | prefix2 | pad |
//
// The attribute change turns the caller's stream into attachments.  A stream item is
//
//   +--------+--------+-----------------+-----+
//   | type16 | len16  | value ...       | pad |   len counts the 4-byte head; the next item
//   +--------+--------+-----------------+-----+   starts at len rounded up to 4
//
// and becomes a zeroed info item of a fixed size (by type) in the request's free space: the
// selector 0x8000000 + type at 0, the value at 8.  The attachment list is carved behind the first
// item.
#include "tarlink/bridge.h"

#include <errno.h>
#include <string.h>

#include <algorithm>
#include <iterator>

#include "cookie.h"
#include "objects/request.h"
#include "wire.h"

namespace {

using tlk::request::clear_outs;
using tlk::request::exchange;
using tlk::request::put_name;
using tlk::request::Read;
using tlk::request::Request;
using tlk::request::send;
using tlk::request::Seq;
using tlk::wire::round4;

constexpr size_t kNameChars = 127;   // a domain's name: the 128-byte rule
constexpr size_t kDescrChars = 383;  // the add's second string: the same rule, capped at 384
constexpr size_t kByteStringMax = 16;
constexpr size_t kIfbdKeyLen = 16;
constexpr uint8_t kInfoMarker = 1;  // at 76: the change carries attachments
constexpr size_t kVlanNameChars = 127;
constexpr size_t kAnalyzerNameChars = 128;

// The attribute items a stream may hold, by type: how many value bytes are copied and how much
// room the info item takes.  A size of 0 marks a type that stops the parse.
struct BdItem {
  uint8_t value_bytes;
  uint8_t item_size;
};
constexpr BdItem kBdItems[16] = {
    {0, 0},  {28, 36}, {2, 12}, {8, 16}, {4, 12}, {4, 12}, {0, 0},  {4, 12},
    {1, 12}, {4, 12},  {0, 0},  {2, 12}, {2, 12}, {2, 12}, {2, 12}, {4, 12},
};
constexpr size_t kItemHead = 4, kInfoValueAt = 8;

uint8_t *align_for_info(uint8_t *p) {
  constexpr uintptr_t a =
      alignof(tlk_msg_info) > alignof(void *) ? alignof(tlk_msg_info) : alignof(void *);
  return reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(p) + a - 1) & ~(a - 1));
}

int bd_read(tarvik_cookie *cookie, uint32_t sender_id, uint32_t op, uint32_t bd_index,
            uint32_t bd_tag, const char *name, void **out, void **mask) {
  clear_outs(out, mask);
  if (cookie == nullptr || out == nullptr) return EINVAL;
  Request<bd_msg> req(cookie, TLK_MSG_BRIDGE_DOMAIN, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req.header().tlkh_id = sender_id;
  req->bdm_index = static_cast<uint16_t>(bd_index);
  req->bdm_tag = static_cast<uint16_t>(bd_tag);
  if (name != nullptr)
    (void)put_name(req.variable_area(), name, kNameChars, &req->bdm_name, &req->bdm_name_len);
  return exchange(req, out, mask, Read::kFixed).code();
}

// Copies a byte string of `len` bytes (at most 16) to `at`; its length in bytes and in bits go in
// the record.  Gives the padded room used.
size_t put_bytes(uint8_t *at, const uint8_t *bytes, uint32_t len, uint8_t **field,
                 uint32_t *field_len, uint32_t *bits) {
  const uint32_t n = std::min<uint32_t>(len, kByteStringMax);
  memcpy(at, bytes, n);
  *field = at;
  *field_len = n;
  *bits = n * 8;
  return round4(n);
}

// The ifbd routine: the key's last byte is forced to 0 where the caller keeps it, then copied.
void put_ifbd_key(ifbd_msg &m, char *key) {
  key[kIfbdKeyLen - 1] = '\0';
  memcpy(m.ibm_key.ibk_name, key, kIfbdKeyLen);
}

void put_ifbd_config(ifbd_msg &m, const ifbd_config_t &c, bool with_macs) {
  m.ibm_bd_index = c.ifbdc_bd_index;
  m.ibm_index = c.ifbdc_index;
  m.ibm_inner_vlan = c.ifbdc_inner_vlan;
  m.ibm_outer_vlan = c.ifbdc_outer_vlan;
  m.ibm_vlan_id = c.ifbdc_vlan_id;
  m.ibm_isid = c.ifbdc_isid;
  m.ibm_stp_index = c.ifbdc_stp_index;
  m.ibm_tpid = c.ifbdc_tpid;
  memcpy(m.ibm_block, c.ifbdc_block, sizeof m.ibm_block);
  m.ibm_vmap_in = c.ifbdc_vmap_in;
  m.ibm_vmap_out = c.ifbdc_vmap_out;
  if (with_macs) {
    memcpy(m.ibm_mac, c.ifbdc_mac, sizeof m.ibm_mac);
    memcpy(m.ibm_peer_mac, c.ifbdc_peer_mac, sizeof m.ibm_peer_mac);
  }
}

int ifbd_write(tarvik_cookie *cookie, uint32_t op, char *key, const ifbd_config_t *config,
               uint32_t flags) {
  if (cookie == nullptr || key == nullptr) return EINVAL;
  if (op != TLK_OP_DELETE && config == nullptr) return EINVAL;
  Request<ifbd_msg> req(cookie, TLK_MSG_IFBDMESG, op, Seq::kDraw);
  if (!req) return ENOMEM;
  put_ifbd_key(*req, key);
  if (config != nullptr) put_ifbd_config(*req, *config, op == TLK_OP_ADD_GET);
  if (op == TLK_OP_ADD_GET) req->ibm_flags = flags;
  return send(req).code();
}

int vlan_get(tarvik_cookie *cookie, uint32_t index, uint32_t key, const char *name, uint32_t ifl,
             uint32_t op, void **out) {
  clear_outs(out);
  if (cookie == nullptr || out == nullptr || (op != TLK_OP_GET && op != TLK_OP_GETNEXT))
    return EINVAL;
  Request<vlan_msg> req(cookie, TLK_MSG_VLAN, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->vlm_index = index;
  req->vlm_key = static_cast<uint16_t>(key);
  req->vlm_l3_ifl = ifl;
  if (name != nullptr)
    (void)put_name(req.variable_area(), name, kVlanNameChars, &req->vlm_name, &req->vlm_name_len);
  return exchange(req, out, nullptr, Read::kFixed).code();
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_bd_get(tarvik_cookie *cookie, uint32_t sender_id, uint32_t op,
                             uint32_t bd_index, void **msg_out, void **mask_out) {
  return bd_read(cookie, sender_id, op, bd_index, TLK_BD_TAG_ANY, nullptr, msg_out, mask_out);
}

TLK_EXPORT int tarvik_bd_get_by_name(tarvik_cookie *cookie, uint32_t sender_id, uint32_t op,
                                     const char *name, uint32_t bd_tag, void **msg_out,
                                     void **mask_out) {
  if (name == nullptr) {
    clear_outs(msg_out, mask_out);
    return EINVAL;
  }
  return bd_read(cookie, sender_id, op, TLK_BD_INDEX_BY_NAME, bd_tag, name, msg_out, mask_out);
}

TLK_EXPORT int tarvik_bd_add(tarvik_cookie *cookie, uint32_t sender_id, const char *name,
                             uint32_t bd_tag, const bd_config_t *config, void **msg_out,
                             void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || name == nullptr) return EINVAL;
  static const bd_config_t kNone{};
  const bd_config_t &c = config != nullptr ? *config : kNone;
  Request<bd_msg> req(cookie, TLK_MSG_BRIDGE_DOMAIN, TLK_OP_ADD_GET, Seq::kDraw);
  if (!req) return ENOMEM;
  bd_msg &m = *req;
  req.header().tlkh_id = sender_id;
  m.bdm_tag = static_cast<uint16_t>(bd_tag);
  memcpy(m.bdm_block, c.bdc_block, sizeof m.bdm_block);
  m.bdm_vlan_id = c.bdc_vlan_id;
  m.bdm_mac_limit = c.bdc_mac_limit;
  m.bdm_mac_aging = c.bdc_mac_aging;
  m.bdm_rtb = c.bdc_rtb;
  m.bdm_mac_limit_action = c.bdc_mac_limit_action;
  m.bdm_irb_ifl = c.bdc_irb_ifl;
  m.bdm_vlan_token = c.bdc_vlan_token;
  m.bdm_ownership = c.bdc_ownership;
  m.bdm_vni = c.bdc_vni;
  m.bdm_pbb_a = c.bdc_pbb[0];
  m.bdm_pbb_b = c.bdc_pbb[1];
  m.bdm_l2_domain = c.bdc_l2_domain;
  m.bdm_pvlan_group = c.bdc_pvlan_group;
  // The description is read up to its end byte or its array's end, whichever comes first.
  char descr[kDescrChars + 1];
  const size_t dlen = strnlen(c.bdc_descr, sizeof c.bdc_descr);
  memcpy(descr, c.bdc_descr, std::min(dlen, kDescrChars));
  descr[std::min(dlen, kDescrChars)] = '\0';
  uint8_t *cursor = req.variable_area();
  cursor += round4(put_name(cursor, name, kNameChars, &m.bdm_name, &m.bdm_name_len));
  cursor += round4(put_name(cursor, descr, kDescrChars, &m.bdm_descr, &m.bdm_descr_len));
  cursor += put_bytes(cursor, c.bdc_prefix1, c.bdc_prefix1_len, &m.bdm_prefix1, &m.bdm_prefix1_len,
                      &m.bdm_prefix1_bits);
  (void)put_bytes(cursor, c.bdc_prefix2, c.bdc_prefix2_len, &m.bdm_prefix2, &m.bdm_prefix2_len,
                  &m.bdm_prefix2_bits);
  return exchange(req, msg_out, mask_out, Read::kFixed).code();
}

TLK_EXPORT int tarvik_bd_pointchange(tarvik_cookie *cookie, uint32_t bd_index, const void *stream,
                                     size_t length) {
  if (cookie == nullptr || stream == nullptr) return EINVAL;
  Request<bd_msg> req(cookie, TLK_MSG_BRIDGE_DOMAIN, TLK_OP_CHANGE, Seq::kDraw);
  if (!req) return ENOMEM;
  req->bdm_index = static_cast<uint16_t>(bd_index);
  req->bdm_info_marker = kInfoMarker;
  const auto *in = static_cast<const uint8_t *>(stream);
  uint8_t *cursor = req.variable_area();
  size_t at = 0, items = 0;
  while (at < length) {
    const size_t left = length - at;
    if (left < kItemHead) return EINVAL;
    const uint16_t type = tlk::wire::load_u16(in + at);
    const uint16_t len = tlk::wire::load_u16(in + at + 2);
    if (len < kItemHead || len > left || type == 0 || type >= std::size(kBdItems)) return EINVAL;
    const BdItem kind = kBdItems[type];
    if (kind.item_size == 0) return EINVAL;  // types 6 and 10
    cursor = align_for_info(cursor);
    if (cursor + kind.item_size + 128 * sizeof(void *) + alignof(void *) > req.block_end())
      return ENOMEM;
    memset(cursor, 0, kind.item_size);
    auto *item = reinterpret_cast<tlk_msg_info *>(cursor);
    item->tlkmi_type = TLK_BD_INFO_BASE + type;
    // The value is copied whole when the item holds it; a shorter item gives what it has.
    memcpy(cursor + kInfoValueAt, in + at + kItemHead,
           std::min<size_t>(kind.value_bytes, len - kItemHead));
    cursor = align_for_info(cursor + kind.item_size);
    void *free_at = cursor;
    if (const int err = tlkm_info_user_add(req.get(), item, &free_at); err != 0) return err;
    cursor = static_cast<uint8_t *>(free_at);
    at += std::min<size_t>(round4(len), left);
    ++items;
  }
  if (items == 0) return 0;
  return send(req).code();
}

TLK_EXPORT int tarvik_bd_delete(tarvik_cookie *cookie, uint32_t sender_id, uint32_t bd_index) {
  if (cookie == nullptr) return EINVAL;
  Request<bd_msg> req(cookie, TLK_MSG_BRIDGE_DOMAIN, TLK_OP_DELETE, Seq::kDraw);
  if (!req) return ENOMEM;
  req.header().tlkh_id = sender_id;
  req->bdm_index = static_cast<uint16_t>(bd_index);
  return send(req).code();
}

TLK_EXPORT int tarvik_ifbd_get(tarvik_cookie *cookie, uint32_t op, char *key, void **msg_out,
                               void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || key == nullptr || msg_out == nullptr) return EINVAL;
  Request<ifbd_msg> req(cookie, TLK_MSG_IFBDMESG, op, Seq::kDraw);
  if (!req) return ENOMEM;
  put_ifbd_key(*req, key);
  return exchange(req, msg_out, mask_out, Read::kFixed).code();
}

TLK_EXPORT int tarvik_ifbd_add(tarvik_cookie *cookie, char *key, uint32_t flags,
                               const ifbd_config_t *config) {
  return ifbd_write(cookie, TLK_OP_ADD_GET, key, config, flags);
}

TLK_EXPORT int tarvik_ifbd_change(tarvik_cookie *cookie, char *key, const ifbd_config_t *config) {
  return ifbd_write(cookie, TLK_OP_CHANGE, key, config, 0);
}

TLK_EXPORT int tarvik_ifbd_delete(tarvik_cookie *cookie, char *key) {
  return ifbd_write(cookie, TLK_OP_DELETE, key, nullptr, 0);
}

TLK_EXPORT int tarvik_vlanm_get_by_index(tarvik_cookie *cookie, uint32_t vlan_index, uint32_t op,
                                         void **msg_out) {
  return vlan_get(cookie, vlan_index, 0, nullptr, 0, op, msg_out);
}

TLK_EXPORT int tarvik_vlanm_get_by_name(tarvik_cookie *cookie, uint32_t vlan_key, const char *name,
                                        uint32_t op, void **msg_out) {
  if (name == nullptr) {
    clear_outs(msg_out);
    return EINVAL;
  }
  return vlan_get(cookie, 0, vlan_key, name, 0, op, msg_out);
}

TLK_EXPORT int tarvik_vlanm_get_by_l3ifl(tarvik_cookie *cookie, uint32_t ifl, uint32_t op,
                                         void **msg_out) {
  return vlan_get(cookie, 0, 0, nullptr, ifl, op, msg_out);
}

TLK_EXPORT int tarvik_mesh_group_op(tarvik_cookie *cookie, uint32_t op, uint32_t unused,
                                    uint32_t mesh_id, void **msg_out, void **mask_out,
                                    const char *name, size_t name_limit, uint32_t mesh_key,
                                    uint32_t af, uint32_t rtb_id, uint32_t flags) {
  (void)unused;
  const bool reads = tlk::request::op_expects_reply(op);
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || (reads && msg_out == nullptr)) return EINVAL;
  Request<mesh_group_msg> req(cookie, TLK_MSG_MESH_GROUP, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req.header().tlkh_id = mesh_id;
  req->mgm_id = mesh_id;
  req->mgm_key.mgi_index = static_cast<uint16_t>(mesh_key);
  req->mgm_af = static_cast<uint8_t>(af);
  req->mgm_rtb_id = static_cast<uint16_t>(rtb_id);
  req->mgm_flags = flags;
  // The copy is strlen + 1 capped at the caller's limit, its last byte the end byte.
  if (name != nullptr && name_limit != 0) {
    const size_t room = static_cast<size_t>(req.block_end() - req.variable_area());
    (void)put_name(req.variable_area(), name, std::min(name_limit, room) - 1, &req->mgm_name,
                   &req->mgm_name_len);
  }
  if (!reads) return send(req).code();
  return exchange(req, msg_out, mask_out, Read::kFixed).code();
}

TLK_EXPORT int tarvik_analyzer_get(tarvik_cookie *cookie, uint32_t op, void **msg_out,
                                   const char *name) {
  clear_outs(msg_out);
  if (cookie == nullptr || msg_out == nullptr || name == nullptr) return EINVAL;
  Request<analyzer_msg> req(cookie, TLK_MSG_ANALYZER, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req.header().tlkh_msglen = static_cast<uint32_t>((strlen(name) + 140) & ~size_t{3});
  (void)put_name(req.variable_area(), name, kAnalyzerNameChars, &req->anm_name, &req->anm_name_len);
  return exchange(req, msg_out, nullptr, Read::kFixed).code();
}

}  // extern "C"
