// Logical interface operations: reads of one logical interface by its several keys, the list of
// all of them, the updates and the point change, and the interface sets kept as gencfg blobs.
//
// All reads are one request-reply exchange (objects/request.h): an ifl_msg request in IDR, and
// the reply read whole and decoded into one arena that the caller owns and gives back with
// tarvik_msg_idl_release.  The updates are writes that nothing answers: they draw no sequence
// number, and the kernel tells the other sessions instead.
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "wire.h"

namespace {

using tlk::request::exchange;
using tlk::request::put_name;
using tlk::request::Request;
using tlk::request::send;
using tlk::request::Seq;
using tlk::wire::round4;

constexpr size_t kNameMax = 59;        // characters kept of a device name; the end byte makes 60
constexpr uint32_t kPointChange = 16;  // iflm_change of a point change
constexpr uint16_t kIflsetMajor = 10, kIflsetMinor = 0;

struct IflKeys {
  uint32_t index = 0;
  uint32_t snmp_id = 0;
  uint16_t devidx = 0;
  uint32_t unit = 0;
  const char *name = nullptr;
};

// The common get: the request in a zeroed message block, the name (if any) behind the fixed
// record, then one exchange.
int iflm_get(tarvik_cookie *cookie, const IflKeys &keys, uint32_t op, void **out, void **mask) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  Request<ifl_msg> req(cookie, TLK_MSG_IFLOGICAL, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->iflm_index.idx = keys.index;
  req->iflm_snmp_id.idx = keys.snmp_id;
  req->iflm_devidx = keys.devidx;
  req->iflm_unit = keys.unit;
  if (keys.name != nullptr) {
    (void)put_name(req.variable_area(), keys.name, kNameMax, &req->iflm_name, &req->iflm_name_len);
  }
  return exchange(req, out, mask).code();
}

// What an update sends: the keys, the name and link address, and the flag words.
struct IflUpdate {
  IflKeys keys;
  const uint8_t *addr = nullptr;
  uint32_t flags = 0;
  uint32_t privflags = 0;
  uint32_t op = TLK_OP_CHANGE;
};

// Places a socket address (its first byte is its length) behind `cursor`: a sockaddr_idl, then
// the address, each rounded up to 4.  A null address or a zero length byte leaves the field and
// its count empty.  The sockaddr_idl starts 8-aligned, as records holding pointers must.
void put_link_address(ifl_msg *m, const uint8_t *addr, uint8_t *cursor) {
  m->iflm_addr = nullptr;
  m->iflm_addr_len = 0;
  if (addr == nullptr || addr[0] == 0) return;
  cursor = reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(cursor) + 7) & ~uintptr_t{7});
  auto *sa = reinterpret_cast<sockaddr_idl *>(cursor);
  memset(sa, 0, sizeof *sa);
  cursor += round4(sizeof *sa);
  memcpy(cursor, addr, addr[0]);
  sa->sai_addr = cursor;
  m->iflm_addr = sa;
  m->iflm_addr_len = 1;
}

// Fills the keys of an update or point change and puts the name (if any) behind the fixed
// record; gives the first free byte behind it.
uint8_t *put_keys(Request<ifl_msg> &req, const IflKeys &keys) {
  req->iflm_index.idx = keys.index;
  req->iflm_snmp_id.idx = keys.snmp_id;
  req->iflm_devidx = keys.devidx;
  req->iflm_unit = keys.unit;
  uint8_t *cursor = req.variable_area();
  if (keys.name != nullptr) {
    cursor += round4(put_name(cursor, keys.name, kNameMax, &req->iflm_name, &req->iflm_name_len));
  }
  return cursor;
}

// One write, no read, no sequence number.
int iflm_update(tarvik_cookie *cookie, const IflUpdate &u) {
  if (cookie == nullptr) return EINVAL;
  Request<ifl_msg> req(cookie, TLK_MSG_IFLOGICAL, u.op, Seq::kZero);
  if (!req) return ENOMEM;
  uint8_t *cursor = put_keys(req, u.keys);
  req->iflm_flags = u.flags;
  req->iflm_privflags = u.privflags;  // the low word of the growable field
  put_link_address(req.get(), u.addr, cursor);
  return send(req).code();
}

IflKeys keys_of(uint32_t index, uint32_t devidx, uint32_t unit, uint32_t snmp_id,
                const char *name) {
  IflKeys k;
  k.index = index;
  k.devidx = static_cast<uint16_t>(devidx);
  k.unit = unit;
  k.snmp_id = snmp_id;
  k.name = name;
  return k;
}

// The decoders' allocator form over the library's decode allocator.  An iflset_blob has no
// field that allocates, so this is never called; the decoder still takes one.
void *decode_alloc(uint32_t size, void *) {
  return tarvik_malloc_cb(size);
}

// Reads the set at (op 4) or after (op 5) `index` and decodes it into `record` if one is given.
int iflset_get(tarvik_cookie *cookie, uint32_t index, uint32_t op, iflset_blob *record) {
  // The key is the index in network order, so that the kernel's key order is index order.
  const uint8_t key[4] = {static_cast<uint8_t>(index >> 24), static_cast<uint8_t>(index >> 16),
                          static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index)};
  gencfg_t g{};
  g.major = kIflsetMajor;
  g.minor = kIflsetMinor;
  g.flags = TLK_GENCFG_KEY;
  g.key = const_cast<uint8_t *>(key);
  g.key_len = sizeof key;
  void *reply = nullptr;
  const int err = tarvik_gencfg_get(cookie, &g, op, &reply, nullptr);
  if (err == 0 && record != nullptr) {
    (void)tlv_decode_iflset_blob_0(record, nullptr, g.blob, g.blob_len, decode_alloc, nullptr);
  }
  tarvik_msg_idl_release(cookie, reply, nullptr);
  return err;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_iflm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                        void **out, void **mask) {
  IflKeys k;
  k.index = index;
  return iflm_get(cookie, k, op, out, mask);
}

TLK_EXPORT int tarvik_iflm_get_by_snmp_index(tarvik_cookie *cookie, uint32_t snmp_id, uint32_t op,
                                             void **out, void **mask) {
  IflKeys k;
  k.snmp_id = snmp_id;
  return iflm_get(cookie, k, op, out, mask);
}

TLK_EXPORT int tarvik_iflm_get_by_device(tarvik_cookie *cookie, uint32_t devidx, uint32_t unit,
                                         uint32_t op, void **out, void **mask) {
  IflKeys k;
  k.devidx = static_cast<uint16_t>(devidx);
  k.unit = unit;
  return iflm_get(cookie, k, op, out, mask);
}

TLK_EXPORT int tarvik_iflm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t unit,
                                       uint32_t op, void **out, void **mask) {
  if (out != nullptr) *out = nullptr;
  if (name == nullptr) return EINVAL;
  IflKeys k;
  k.name = name;
  k.unit = unit;
  return iflm_get(cookie, k, op, out, mask);
}

TLK_EXPORT int tarvik_iflm_get_all(tarvik_cookie *cookie, tarvik_msg_list_t **list_out) {
  return tarvik_ifxm_get_all(cookie, list_out, 2);
}

TLK_EXPORT int tarvik_iflm_update(tarvik_cookie *cookie, uint32_t index, uint32_t devidx,
                                  uint32_t unit, uint32_t snmp_id, const char *name,
                                  const void *addr, uint32_t op) {
  IflUpdate u;
  u.keys = keys_of(index, devidx, unit, snmp_id, name);
  u.addr = static_cast<const uint8_t *>(addr);
  u.op = op;
  return iflm_update(cookie, u);
}

TLK_EXPORT int tarvik_iflm_update_flags(tarvik_cookie *cookie, uint32_t index, uint32_t devidx,
                                        uint32_t unit, uint32_t snmp_id, const char *name,
                                        uint32_t flags, uint32_t op) {
  if (cookie == nullptr) return EINVAL;
  if (op != TLK_OP_CHANGE) return EOPNOTSUPP;
  IflUpdate u;
  u.keys = keys_of(index, devidx, unit, snmp_id, name);
  u.flags = flags;
  return iflm_update(cookie, u);
}

TLK_EXPORT int tarvik_iflm_update_privflags(tarvik_cookie *cookie, uint32_t index, uint32_t devidx,
                                            uint32_t unit, uint32_t snmp_id, const char *name,
                                            uint32_t flags, uint32_t privflags, uint32_t op) {
  if (cookie == nullptr) return EINVAL;
  if (op != TLK_OP_CHANGE) return EOPNOTSUPP;
  IflUpdate u;
  u.keys = keys_of(index, devidx, unit, snmp_id, name);
  u.flags = flags;
  u.privflags = privflags;
  return iflm_update(cookie, u);
}

TLK_EXPORT int tarvik_iflm_pointchange_tlv(tarvik_cookie *cookie, uint32_t index, uint32_t devidx,
                                           uint32_t unit, uint32_t snmp_id, const char *name,
                                           tlk_msg_info *attachment) {
  if (cookie == nullptr) return EINVAL;
  // Nothing answers a point change, so it draws no sequence number.
  Request<ifl_msg> req(cookie, TLK_MSG_IFLOGICAL, TLK_OP_CHANGE, Seq::kZero);
  if (!req) return ENOMEM;
  uint8_t *cursor = put_keys(req, keys_of(index, devidx, unit, snmp_id, name));
  req->iflm_change = kPointChange;
  if (attachment != nullptr) {
    // The caller's attachment itself joins the list (it isn't copied); the list's pointer slots
    // are carved from the block behind the name.
    void *slots =
        reinterpret_cast<void *>((reinterpret_cast<uintptr_t>(cursor) + 7) & ~uintptr_t{7});
    const int err = tlkm_info_user_add(req.get(), attachment, &slots);
    if (err != 0) return err;
  }
  return send(req).code();
}

TLK_EXPORT int tarvik_iflsetm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                           iflset_blob *record) {
  return iflset_get(cookie, index, op, record);
}

TLK_EXPORT int tarvik_iflsetm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                          iflset_blob *record) {
  if ((op != TLK_OP_GET && op != TLK_OP_GETNEXT) || name == nullptr || record == nullptr)
    return EINVAL;
  // The kernel looks sets up by index alone: walk them all from the start.
  iflset_blob cur{};
  int err = iflset_get(cookie, 0, TLK_OP_GETNEXT, &cur);
  if (err != 0) return err;
  for (;;) {
    const bool equal =
        strncmp(name, reinterpret_cast<const char *>(cur.iflset_name), sizeof cur.iflset_name) == 0;
    if (equal && op == TLK_OP_GET) {
      memcpy(record, &cur, sizeof cur);
      return 0;
    }
    const uint32_t at = cur.iflset_index;
    memset(&cur, 0, sizeof cur);
    // The end of the walk shows as the kernel's error for the end of the table.
    err = iflset_get(cookie, at, TLK_OP_GETNEXT, &cur);
    if (err != 0) return err;
    if (equal) {  // a getnext: the set behind the named one
      memcpy(record, &cur, sizeof cur);
      return 0;
    }
  }
}

}  // extern "C"
