// Logical interface operations: reads of one logical interface by its several keys.
//
// All reads are one request-reply exchange: an ifl_msg request in IDR (every request of the
// library goes out in IDR), and the reply read whole and decoded into one arena that the caller
// owns and gives back with tarvik_msg_idl_release.
#include <errno.h>
#include <string.h>

#include "cookie.h"

namespace {

constexpr size_t kNameMax = 59;  // characters kept of a device name; the end byte makes 60

struct IflKeys {
  uint32_t index = 0;
  uint32_t snmp_id = 0;
  uint16_t devidx = 0;
  uint32_t unit = 0;
  const char *name = nullptr;
};

// The common get: builds the request in a zeroed message block, sends it, reads the reply.
int iflm_get(tarvik_cookie *cookie, const IflKeys &keys, uint32_t op, void **out, void **mask) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  auto *req = static_cast<ifl_msg *>(tarvik_msg_malloc(cookie));
  if (req == nullptr) return ENOMEM;
  // The fixed record is this build's ifl_msg; the variable data starts behind it.
  const uint16_t fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_ifl_msg_0);
  tlk_hdr &h = req->iflm_hdr;
  h.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_IFLOGICAL];
  h.tlkh_type = TLK_MSG_IFLOGICAL;
  h.tlkh_op = static_cast<uint8_t>(op);
  h.tlkh_fixedlen = fixedlen;
  h.tlkh_id = 0;
  h.tlkh_seq = ++cookie->seq;
  req->iflm_index.idx = keys.index;
  req->iflm_snmp_id.idx = keys.snmp_id;
  req->iflm_devidx = keys.devidx;
  req->iflm_unit = keys.unit;
  if (keys.name != nullptr) {
    // Cut silently at 59 characters; the length counts the end byte.
    char *name = reinterpret_cast<char *>(req) + fixedlen;
    const size_t n = strnlen(keys.name, kNameMax);
    memcpy(name, keys.name, n);
    name[n] = '\0';
    req->iflm_name = reinterpret_cast<uint8_t *>(name);
    req->iflm_name_len = static_cast<uint32_t>(n + 1);
  }
  h.tlkh_msglen = fixedlen;
  int err = tarvik_msg_write_idl(cookie, req, nullptr);
  if (err == 0) err = tarvik_long_msg_read_idl(cookie, out, mask);
  tarvik_msg_free(cookie, req);
  if (err != 0) {
    *out = nullptr;
    if (mask != nullptr) *mask = nullptr;
  }
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

}  // extern "C"
