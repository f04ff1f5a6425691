// Route tables ("rttable", rtb_msg) and named table classes ("rt class", ntbl_msg).
//
// Table reads are one exchange each, read with the fixed read (a table fits one block).  Adds and
// updates are writes that nothing answers.  The class operations share one routine, which reads a
// reply for every op but add and delete.
//
// Both kinds of name follow one rule: the copy length is strlen + 1, capped (128 for a table, 254
// for a class); one byte less is copied, then the end byte; the record's length counts it.  A
// second name stands at the first one's copy length rounded up to four:
//
//   variable area:  | name ... \0 | pad to 4 | lrname ... \0 |
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "wire.h"

namespace {

using tlk::request::exchange;
using tlk::request::put_name;
using tlk::request::Read;
using tlk::request::Request;
using tlk::request::send;
using tlk::request::Seq;
using tlk::wire::round4;

constexpr size_t kTableNameCap = 128;  // copy length cap, end byte counted
constexpr size_t kClassNameCap = 254;
constexpr uint16_t kTidByName = 65535;
constexpr uint16_t kDefaultTable = 8;  // rtb_flags of the default table
constexpr char kDefaultName[] = "default";
constexpr char kNoLogicalRouter[] = "null";

// The services channel item: selector 104 with 11 in its reserved word, its arm zero but for the
// last three words (2, 10, the channel).  Head and body take 16 + 132 bytes of the request.
constexpr uint32_t kSvcsChanType = 104, kSvcsChanLength = 11;
constexpr uint32_t kSvcsChanKind = 2, kSvcsChanClass = 10;
constexpr size_t kSvcsChanBytes = 16 + 132;

// Copies `name` by the name rule with copy length cap `cap`; gives the copy length.
size_t put_capped(uint8_t *at, const char *name, size_t cap, uint8_t **field, uint32_t *length) {
  return put_name(at, name, cap - 1, field, length);
}

uint8_t *align8(uint8_t *p) {
  return reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(p) + 7) & ~uintptr_t{7});
}

int rtbm_get(tarvik_cookie *cookie, uint32_t af, uint32_t tid, const char *name, uint32_t op,
             void **out, void **mask) {
  tlk::request::clear_outs(out, mask);
  if (cookie == nullptr || out == nullptr) return EINVAL;
  Request<rtb_msg> req(cookie, TLK_MSG_RTTABLE, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->tid = static_cast<uint16_t>(tid);
  req->af = static_cast<uint8_t>(af);
  if (name != nullptr) {
    (void)put_capped(req.variable_area(), name, kTableNameCap, &req->rtb_name, &req->rtb_name_len);
  }
  return exchange(req, out, mask, Read::kFixed).code();
}

// The fields that a table update sends.
struct RtbUpdate {
  uint32_t tid = 0, af = 0, index = 0, arg_a = 0, arg_b = 0, op = TLK_OP_CHANGE;
  const char *name = nullptr;
  bool svcs_chan = false;
  uint32_t channel = 0;
  uint64_t prflags = 0;
};

int rtbm_update(tarvik_cookie *cookie, const RtbUpdate &u) {
  if (cookie == nullptr) return EINVAL;
  Request<rtb_msg> req(cookie, TLK_MSG_RTTABLE, u.op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->tid = static_cast<uint16_t>(u.tid);
  req->af = static_cast<uint8_t>(u.af);
  req->rtb_index.idx = u.index;
  req->rtb_arg_a.idx = u.arg_a;
  req->rtb_arg_b = static_cast<uint16_t>(u.arg_b);
  req->prflags = u.prflags;
  uint8_t *cursor = req.variable_area();
  if (u.svcs_chan) {
    // The item stands right behind the fixed record; only its first 148 bytes are ours to fill,
    // and they are all the encoder reads of this arm.
    auto *item = reinterpret_cast<tlk_msg_info *>(cursor);
    item->tlkmi_type = kSvcsChanType;
    item->tlkmi_resv = kSvcsChanLength;
    item->tlkmi_u.iftlv_type_id_idx_seq.itiis_type = kSvcsChanKind;
    item->tlkmi_u.iftlv_type_id_idx_seq.itiis_id = kSvcsChanClass;
    item->tlkmi_u.iftlv_type_id_idx_seq.itiis_idx = u.channel;
    void *list = align8(cursor + kSvcsChanBytes);
    const int err = tlkm_info_user_add(req.get(), item, &list);
    if (err != 0) return err;
    cursor = static_cast<uint8_t *>(list);
  }
  if (u.name != nullptr) {
    (void)put_capped(cursor, u.name, kTableNameCap, &req->rtb_name, &req->rtb_name_len);
  }
  return send(req).code();
}

// The class routine: every class operation but the delete by index, which sends no name.
int ntblm_op(tarvik_cookie *cookie, const char *name, uint32_t idx, uint32_t af, uint32_t op,
             void **out, void **mask) {
  tlk::request::clear_outs(out, mask);
  if (cookie == nullptr) return EINVAL;
  Request<ntbl_msg> req(cookie, TLK_MSG_RT_CLASS, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->idx = static_cast<uint16_t>(idx);
  req->af = static_cast<uint8_t>(af);
  if (name != nullptr) {
    (void)put_capped(req.variable_area(), name, kClassNameCap, &req->ntbl_name,
                     &req->ntbl_name_len);
  }
  // Add (1) and delete (3) are the ops that read nothing: with bit 1 set, both are 3.
  if ((op | 2u) == 3u) return send(req).code();
  // The out pointer isn't tested before the write: without one, the read refuses.
  return exchange(req, out, mask, Read::kFixed).code();
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_rtbm_get_by_name(tarvik_cookie *cookie, uint32_t af, const char *name,
                                       void **out, void **mask) {
  if (name == nullptr) {
    tlk::request::clear_outs(out, mask);
    return EINVAL;
  }
  return rtbm_get(cookie, af, kTidByName, name, TLK_OP_GET, out, mask);
}

TLK_EXPORT int tarvik_rtbm_get_by_index(tarvik_cookie *cookie, uint32_t af, uint32_t tid,
                                        uint32_t op, void **out, void **mask) {
  return rtbm_get(cookie, af, tid, nullptr, op, out, mask);
}

TLK_EXPORT int tarvik_rtbm_add_lr(tarvik_cookie *cookie, const char *name, uint32_t tid,
                                  uint32_t af, const char *lrname, uint32_t lrid,
                                  uint32_t hdr_flags, uint32_t prflags) {
  if (cookie == nullptr) return EINVAL;
  Request<rtb_msg> req(cookie, TLK_MSG_RTTABLE, TLK_OP_ADD, Seq::kDraw);
  if (!req) return ENOMEM;
  req.header().tlkh_flags = static_cast<uint8_t>(hdr_flags);
  req->tid = static_cast<uint16_t>(tid);
  req->af = static_cast<uint8_t>(af);
  req->lrid = static_cast<uint8_t>(lrid);
  req->prflags = prflags;
  if (name == nullptr) {
    req->rtb_flags = kDefaultTable;
    name = kDefaultName;
  }
  uint8_t *cursor = req.variable_area();
  cursor += round4(put_capped(cursor, name, kTableNameCap, &req->rtb_name, &req->rtb_name_len));
  if (lrname != nullptr) {
    (void)put_capped(cursor, lrname, kTableNameCap, &req->lrname, &req->lrname_len);
  }
  return send(req).code();
}

TLK_EXPORT int tarvik_rtbm_add_prflag(tarvik_cookie *cookie, const char *name, uint32_t tid,
                                      uint32_t af, uint32_t hdr_flags, uint32_t prflags) {
  return tarvik_rtbm_add_lr(cookie, name, tid, af, kNoLogicalRouter, 0, hdr_flags, prflags);
}

TLK_EXPORT int tarvik_rtbm_add(tarvik_cookie *cookie, const char *name, uint32_t tid, uint32_t af,
                               uint32_t hdr_flags) {
  return tarvik_rtbm_add_lr(cookie, name, tid, af, kNoLogicalRouter, 0, hdr_flags, 1);
}

TLK_EXPORT int tarvik_rtbm_update(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                  uint32_t rtb_index, const char *name, uint32_t rtb_arg_a,
                                  uint32_t rtb_arg_b, uint32_t op) {
  RtbUpdate u;
  u.tid = tid, u.af = af, u.index = rtb_index, u.name = name;
  u.arg_a = rtb_arg_a, u.arg_b = rtb_arg_b, u.op = op;
  return rtbm_update(cookie, u);
}

TLK_EXPORT int tarvik_rtbm_update_svcs_chan(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                            uint32_t rtb_index, const char *name,
                                            uint32_t rtb_arg_a, uint32_t rtb_arg_b,
                                            uint32_t channel, uint32_t prflags) {
  RtbUpdate u;
  u.tid = tid, u.af = af, u.index = rtb_index, u.name = name;
  u.arg_a = rtb_arg_a, u.arg_b = rtb_arg_b, u.op = TLK_OP_ADD;
  u.svcs_chan = true, u.channel = channel, u.prflags = prflags;
  return rtbm_update(cookie, u);
}

TLK_EXPORT int tarvik_ntblm_add(tarvik_cookie *cookie, const char *name, uint32_t af) {
  if (name == nullptr) return EINVAL;
  return ntblm_op(cookie, name, 0, af, TLK_OP_ADD, nullptr, nullptr);
}

TLK_EXPORT int tarvik_ntblm_add_by_index(tarvik_cookie *cookie, const char *name, uint32_t idx,
                                         uint32_t af) {
  if (name == nullptr) return EINVAL;
  return ntblm_op(cookie, name, idx, af, TLK_OP_ADD, nullptr, nullptr);
}

TLK_EXPORT int tarvik_ntblm_delete_by_name(tarvik_cookie *cookie, const char *name, uint32_t af) {
  if (name == nullptr) return EINVAL;
  return ntblm_op(cookie, name, 0, af, TLK_OP_DELETE, nullptr, nullptr);
}

TLK_EXPORT int tarvik_ntblm_delete_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af) {
  return ntblm_op(cookie, nullptr, idx, af, TLK_OP_DELETE, nullptr, nullptr);
}

TLK_EXPORT int tarvik_ntblm_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af,
                                         uint32_t op, void **out, void **mask) {
  return ntblm_op(cookie, nullptr, idx, af, op, out, mask);
}

TLK_EXPORT int tarvik_ntblm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t af,
                                        uint32_t op, void **out, void **mask) {
  if (name == nullptr) {
    tlk::request::clear_outs(out, mask);
    return EINVAL;
  }
  return ntblm_op(cookie, name, 0, af, op, out, mask);
}

}  // extern "C"
