// Logical interface operations: reads of one logical interface by its several keys.
//
// All reads are one request-reply exchange (objects/request.h): an ifl_msg request in IDR, and
// the reply read whole and decoded into one arena that the caller owns and gives back with
// tarvik_msg_idl_release.
#include <errno.h>

#include "cookie.h"
#include "objects/request.h"

namespace {

using tlk::request::exchange;
using tlk::request::put_name;
using tlk::request::Request;
using tlk::request::Seq;

constexpr size_t kNameMax = 59;  // characters kept of a device name; the end byte makes 60

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
