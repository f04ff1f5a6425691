// Denial-of-service protection ("ddos"): one request carries an object (`ddos_obj`), a kind, a
// protocol group and flags as four bytes from offset 40, and what the object needs:
//
//   change, delete (ops 2, 3)  object 1 alone; 2 the group's eight words (ddm_group_params);
//                              3 the five global words (ddm_global); 8 `count` protocol records
//                              behind the fixed part, each with its per-FPC entries behind them
//   clear (op 6)               object 6, the data's two u16 values as one word behind the record
//   any other op               group 1 to 4 or 8, the data words behind the record (none for a
//                              group other than 1 that passes no data)
//
// Gets and getnexts read the framed reply.
#include <errno.h>
#include <string.h>

#include "objects/request.h"
#include "tarlink/services.h"

namespace {

using tlk::request::clear_outs;
using tlk::request::Read;
using tlk::request::Request;
using tlk::request::Seq;

constexpr uint8_t kObjGeneral = 1, kObjGroup = 2, kObjGlobal = 3, kObjClear = 6, kObjProtocols = 8;

bool valid_group(uint8_t group) {
  return (group >= 1 && group <= 4) || group == 8;
}

template <typename T>
T *take(uint8_t *&cursor, uint8_t *end, size_t count) {
  auto at = reinterpret_cast<uintptr_t>(cursor);
  at = (at + alignof(T) - 1) & ~(uintptr_t{alignof(T)} - 1);
  auto *p = reinterpret_cast<T *>(at);
  if (count > static_cast<size_t>(end - reinterpret_cast<uint8_t *>(p)) / sizeof(T)) return nullptr;
  cursor = reinterpret_cast<uint8_t *>(p + count);
  return p;
}

// Copies `count` protocol records and their FPC entries into the request's variable area.
bool put_protocols(Request<ddos_msg> &req, const ddos_protocol_params *src, uint32_t count) {
  uint8_t *cursor = req.variable_area();
  auto *records = take<ddos_protocol_params>(cursor, req.block_end(), count);
  if (records == nullptr) return false;
  memcpy(records, src, count * sizeof *records);
  for (uint32_t i = 0; i < count; ++i) {
    ddos_protocol_params &r = records[i];
    if (r.ddpp_fpcs == nullptr || r.ddpp_fpcs_count == 0) {
      r.ddpp_fpcs = nullptr;
      r.ddpp_fpcs_count = 0;
      continue;
    }
    auto *fpcs = take<ddos_protocol_fpc_params>(cursor, req.block_end(), r.ddpp_fpcs_count);
    if (fpcs == nullptr) return false;
    memcpy(fpcs, r.ddpp_fpcs, r.ddpp_fpcs_count * sizeof *fpcs);
    r.ddpp_fpcs = fpcs;
  }
  req->ddm_protocols = records;
  req->ddm_protocols_count = count;
  return true;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_ddos_request(tarvik_cookie *cookie, const void *data, uint32_t count,
                                   uint32_t op, uint8_t ddos_obj, uint8_t ddos_kind,
                                   uint8_t ddos_group, uint8_t ddos_flags, void **msg_out,
                                   void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr) return EINVAL;
  const bool reads = op == TLK_OP_GET || op == TLK_OP_GETNEXT;
  if (reads && msg_out == nullptr) return EINVAL;
  const bool change = op == TLK_OP_CHANGE || op == TLK_OP_DELETE;
  if (change && ddos_obj != kObjGeneral && ddos_obj != kObjGroup && ddos_obj != kObjGlobal &&
      ddos_obj != kObjProtocols)
    return EINVAL;
  if (change && ddos_obj != kObjGeneral && data == nullptr) return EINVAL;
  if (op == TLK_OP_CLEAR && (ddos_obj != kObjClear || data == nullptr)) return EINVAL;
  if (!change && op != TLK_OP_CLEAR && !valid_group(ddos_group)) return EINVAL;

  Request<ddos_msg> req(cookie, TLK_MSG_DDOS, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->ddos_obj = ddos_obj;
  req->ddos_kind = ddos_kind;
  req->ddos_group = ddos_group;
  req->ddos_flags = ddos_flags;
  if (change) {
    if (ddos_obj == kObjGroup) {
      memcpy(&req->ddm_group_params, data, sizeof req->ddm_group_params);
    } else if (ddos_obj == kObjGlobal) {
      memcpy(&req->ddm_global, data, sizeof req->ddm_global);
    } else if (ddos_obj == kObjProtocols &&
               !put_protocols(req, static_cast<const ddos_protocol_params *>(data), count)) {
      return ENOMEM;
    }
  } else if (op == TLK_OP_CLEAR) {
    auto *word = reinterpret_cast<uint32_t *>(req.variable_area());
    memcpy(word, data, sizeof *word);  // the two u16 values as they lie
    req->ddm_data = word;
    req->ddm_data_count = 1;
  } else if (data != nullptr || ddos_group == 1) {
    if (count != 0 && data == nullptr) return EINVAL;
    if (count > (TLK_MSG_BUF_SIZE - sizeof(ddos_msg)) / sizeof(uint32_t)) return EMSGSIZE;
    auto *words = reinterpret_cast<uint32_t *>(req.variable_area());
    if (count != 0) memcpy(words, data, count * sizeof *words);
    req->ddm_data = words;
    req->ddm_data_count = count;
  }
  tlk::request::Status status = tlk::request::write_framed(cookie, req.get());
  req.free_now();
  if (status.ok() && reads)
    status = tlk::request::read_framed(cookie, msg_out, mask_out, Read::kFixed);
  if (!status.ok()) clear_outs(msg_out, mask_out);
  return status.code();
}

}  // extern "C"
