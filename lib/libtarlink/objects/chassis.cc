// Chassis objects carried as records: PICs, the kernel synchronisation state, markers, sampling
// instances, system statistics and interface accounting, packet injection, and the fabric's
// "fc fabric" and "fabric mc group" objects.  All are written in IDR through the request helper;
// the gets read one framed reply.
#include <errno.h>
#include <string.h>

#include "objects/request.h"
#include "platform/platform.h"
#include "tarlink/chassis.h"

namespace {

using tlk::request::clear_outs;
using tlk::request::exchange;
using tlk::request::Read;
using tlk::request::Request;
using tlk::request::send;
using tlk::request::Seq;

constexpr uint32_t kMarkerFlags = 16;  // markers always travel with this header flag
constexpr uint32_t kSampleFixedField = 32768;
constexpr size_t kSampleNameChars = 64, kFabricNameChars = 128;
constexpr uint8_t kSysstatsAsk = 0x1, kAccountingAsk = 4;
constexpr uint32_t kPicAttrAppMode = 1, kPicAttrPresence = 2, kPicAttrBounce = 4;
constexpr uint32_t kPicInfoBase = 0x1000000;
constexpr uint8_t kPicTlvOther = 5, kPicTlvMsp = 3;
constexpr size_t kMspCopy = 28;

bool get_or_next(uint32_t op) {
  return op == TLK_OP_GET || op == TLK_OP_GETNEXT;
}

uint16_t pic_key(uint32_t slot, uint32_t port) {
  return static_cast<uint16_t>(port | slot * 8);
}

// Attachments of a PIC request live in its own block, behind the record: the slot table first
// (tlkm_info_user_add places it), then the items, each aligned for its record.
class PicInfo {
 public:
  explicit PicInfo(Request<pic_msg> &req) : req_(req), cursor_(req.variable_area()) {}

  // A new item of `code`, attached; null if the block is full.
  tlk_msg_info *add(uint32_t code) {
    void *slots = cursor_;
    if (req_->picm_hdr.tlkh_info == nullptr) {
      if (tlkm_info_user_add(req_.get(), &scratch_, &cursor_) != 0) return nullptr;
      req_->picm_hdr.tlkh_info_len = 0;  // the scratch entry only placed the table
      (void)slots;
    }
    auto at = reinterpret_cast<uintptr_t>(cursor_);
    at = (at + alignof(tlk_msg_info) - 1) & ~(uintptr_t{alignof(tlk_msg_info)} - 1);
    auto *info = reinterpret_cast<tlk_msg_info *>(at);
    if (reinterpret_cast<uint8_t *>(info + 1) > req_.block_end()) return nullptr;
    memset(info, 0, sizeof *info);
    info->tlkmi_type = kPicInfoBase | code;
    cursor_ = info + 1;
    req_->picm_hdr.tlkh_info[req_->picm_hdr.tlkh_info_len++] = info;
    req_->picm_info_marker = 1;
    return info;
  }

 private:
  Request<pic_msg> &req_;
  void *cursor_;
  tlk_msg_info scratch_{};
};

}  // namespace

extern "C" {

// ---- PICs ----

TLK_EXPORT int tarvik_pic_add_with_tlvs(tarvik_cookie *cookie, uint32_t pic_slot, uint32_t pic_port,
                                        uint16_t pic_type, uint16_t pic_id, uint32_t pic_flags,
                                        uint8_t pic_byte, const uint8_t *tlvs, uint32_t tlv_len) {
  if (cookie == nullptr || (tlv_len != 0 && tlvs == nullptr)) return EINVAL;
  Request<pic_msg> req(cookie, TLK_MSG_PIC, TLK_OP_ADD, Seq::kDraw);
  if (!req) return ENOMEM;
  req->picm_idx = pic_key(pic_slot, pic_port);
  req->picm_type = pic_type;
  req->picm_id = pic_id;
  req->picm_flags = pic_flags;
  req->picm_byte = pic_byte;
  PicInfo info(req);
  // The stream: items of a type byte, a length byte and the value.  A "other options" item gives
  // its first byte; an item of fixed MSP fields gives a copy of its first 28 bytes.
  for (uint32_t at = 0; at + 2 <= tlv_len;) {
    const uint8_t type = tlvs[at], len = tlvs[at + 1];
    if (at + 2 + len > tlv_len) return EINVAL;
    const uint8_t *value = tlvs + at + 2;
    if (type == kPicTlvOther && len >= 1) {
      tlk_msg_info *i = info.add(kPicTlvOther);
      if (i == nullptr) return ENOMEM;
      i->tlkmi_u.pictlv_other_options.poo_value = value[0];
    } else if (type == kPicTlvMsp) {
      tlk_msg_info *i = info.add(kPicTlvMsp);
      if (i == nullptr) return ENOMEM;
      memcpy(i->tlkmi_u.pictlv_msp_options.pmo_fixed, value, len < kMspCopy ? len : kMspCopy);
    }
    at += 2u + len;
  }
  return send(req).code();
}

TLK_EXPORT int tarvik_pic_delete(tarvik_cookie *cookie, uint32_t pic_slot, uint32_t pic_port) {
  if (cookie == nullptr) return EINVAL;
  Request<pic_msg> req(cookie, TLK_MSG_PIC, TLK_OP_DELETE, Seq::kDraw);
  if (!req) return ENOMEM;
  req->picm_idx = pic_key(pic_slot, pic_port);
  return send(req).code();
}

TLK_EXPORT int tarvik_pic_get(tarvik_cookie *cookie, uint32_t pic_slot, uint32_t pic_port,
                              uint32_t op, void **msg_out, void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  if (op == TLK_OP_ADD_GET || op == TLK_OP_CHG_GET) return EOPNOTSUPP;
  if (!get_or_next(op)) return EINVAL;
  Request<pic_msg> req(cookie, TLK_MSG_PIC, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->picm_idx = pic_key(pic_slot, pic_port);
  return exchange(req, msg_out, mask_out).code();
}

TLK_EXPORT int tarvik_pic_change(tarvik_cookie *cookie, uint32_t pic_slot, uint32_t pic_port,
                                 uint32_t pic_attr, uint8_t value) {
  if (cookie == nullptr) return EINVAL;
  if (pic_attr != kPicAttrAppMode && pic_attr != kPicAttrPresence && pic_attr != kPicAttrBounce)
    return EINVAL;
  Request<pic_msg> req(cookie, TLK_MSG_PIC, TLK_OP_CHANGE, Seq::kDraw);
  if (!req) return ENOMEM;
  req->picm_idx = pic_key(pic_slot, pic_port);
  tlk_msg_info *i = PicInfo(req).add(pic_attr);
  if (i == nullptr) return ENOMEM;
  if (pic_attr == kPicAttrAppMode) i->tlkmi_u.pictlv_app_mode.pam_value = value;
  if (pic_attr == kPicAttrPresence) i->tlkmi_u.pictlv_presence.pp_value = value;
  if (pic_attr == kPicAttrBounce) i->tlkmi_u.pictlv_pic_bounce.ppb_value = 0;
  return send(req).code();
}

// ---- Kernel synchronisation ----

TLK_EXPORT int tarvik_ksync_get(tarvik_cookie *cookie, void **msg_out, void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Request<ksync_msg> req(cookie, TLK_MSG_KSYNC, TLK_OP_GET, Seq::kDraw);
  if (!req) return ENOMEM;
  return exchange(req, msg_out, mask_out, Read::kFixed).code();
}

TLK_EXPORT int tarvik_ksync_change(tarvik_cookie *cookie, uint32_t ksync_a, uint32_t ksync_b,
                                   uint32_t ksync_c, uint32_t ksync_flags) {
  if (cookie == nullptr) return EINVAL;
  // Bit 0 resets the state: it carries no values.
  if ((ksync_flags & 1) != 0 && (ksync_a != 0 || ksync_b != 0 || ksync_c != 0)) return EINVAL;
  Request<ksync_msg> req(cookie, TLK_MSG_KSYNC, TLK_OP_CHANGE, Seq::kDraw);
  if (!req) return ENOMEM;
  req->ksync_flags = ksync_flags;
  req->ksync_a = ksync_a;
  req->ksync_b = ksync_b;
  req->ksync_c = ksync_c;
  return send(req).code();
}

// ---- Markers ----

TLK_EXPORT int tarvik_marker_get(tarvik_cookie *cookie, void **msg_out, void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Request<tlk_marker_msg> req(cookie, TLK_MSG_MARKER, TLK_OP_GET, Seq::kDraw);
  if (!req) return ENOMEM;
  req.header().tlkh_flags = kMarkerFlags;
  return exchange(req, msg_out, mask_out).code();
}

TLK_EXPORT int tarvik_marker_add(tarvik_cookie *cookie, uint32_t marker_a, uint32_t marker_b,
                                 uint32_t marker_c, uint32_t marker_d, uint8_t marker_e) {
  if (cookie == nullptr) return EINVAL;
  Request<tlk_marker_msg> req(cookie, TLK_MSG_MARKER, TLK_OP_ADD, Seq::kDraw);
  if (!req) return ENOMEM;
  req.header().tlkh_flags = kMarkerFlags;
  req->tlkmk_alias_seq = marker_a;
  req->tlkmk_flags = marker_b;
  req->tlkmk_cookie = marker_c;
  req->tlkmk_seq = marker_d;
  req->tlkmk_kind = marker_e;
  return send(req).code();
}

// ---- Sampling instances ----

namespace {
void fill_sample(sample_msg &m, uint32_t a, uint32_t b, uint32_t c) {
  m.sample_a = a;
  m.sample_b = b;
  m.sample_c = c;
}

int sample_change(tarvik_cookie *cookie, uint32_t op, uint32_t a, uint32_t b, uint32_t c,
                  const char *name) {
  if (cookie == nullptr || name == nullptr) return EINVAL;
  Request<sample_msg> req(cookie, TLK_MSG_SAMPLING, op, Seq::kDraw);
  if (!req) return ENOMEM;
  fill_sample(*req, a, b, c);
  // strncpy's rule: a name of 64 characters fills the field without an end byte.
  memcpy(req->smm_inst_name, name, strnlen(name, kSampleNameChars));
  req->smm_flags = kSampleFixedField;
  return send(req).code();
}
}  // namespace

TLK_EXPORT int tarvik_sample_get(tarvik_cookie *cookie, uint32_t op, uint32_t sample_a,
                                 uint32_t sample_b, uint32_t sample_c, void **msg_out,
                                 void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Request<sample_msg> req(cookie, TLK_MSG_SAMPLING, op, Seq::kDraw);
  if (!req) return ENOMEM;
  fill_sample(*req, sample_a, sample_b, sample_c);
  return exchange(req, msg_out, mask_out).code();
}

TLK_EXPORT int tarvik_sample_add(tarvik_cookie *cookie, uint32_t sample_a, uint32_t sample_b,
                                 uint32_t sample_c, const char *name) {
  return sample_change(cookie, TLK_OP_ADD, sample_a, sample_b, sample_c, name);
}

TLK_EXPORT int tarvik_sample_delete(tarvik_cookie *cookie, uint32_t sample_a, uint32_t sample_b,
                                    uint32_t sample_c, const char *name) {
  return sample_change(cookie, TLK_OP_DELETE, sample_a, sample_b, sample_c, name);
}

// ---- System statistics and interface accounting ----

// The setting is read before anything else: a system without statistics refuses even a caller
// without a session.
TLK_EXPORT int tarvik_get_systemstats(tarvik_cookie *cookie, uint32_t op, void **msg_out,
                                      void **mask_out) {
  clear_outs(msg_out, mask_out);
  int enabled = 0;
  size_t length = sizeof enabled;
  if (tlk::platform::ops().sysctlbyname("net.sysstats_enable", &enabled, &length, nullptr, 0) != 0)
    return EINVAL;
  if (enabled == 0) return EOPNOTSUPP;
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Request<sysstats_msg> req(cookie, TLK_MSG_SYSSTATS, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->ssm_request |= kSysstatsAsk;
  return exchange(req, msg_out, mask_out).code();
}

TLK_EXPORT int tarvik_ifl_get_accounting(tarvik_cookie *cookie, uint32_t op, void **msg_out,
                                         void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || msg_out == nullptr) return EINVAL;
  Request<sysstats_msg> req(cookie, TLK_MSG_SYSSTATS, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->ssm_request = kAccountingAsk;
  return exchange(req, msg_out, mask_out).code();
}

// ---- Packet injection ----

// The packet and its metadata are copied into blocks of their own (memory id 71) for the write,
// and freed after it.
TLK_EXPORT int tarvik_pktinject_add(tarvik_cookie *cookie, uint32_t id,
                                    const struct tarvik_pktinject *pkt) {
  if (cookie == nullptr || pkt == nullptr) return EINVAL;
  if ((pkt->packet_len != 0 && pkt->packet == nullptr) ||
      (pkt->meta_len != 0 && pkt->meta == nullptr))
    return EINVAL;
  constexpr int kMemId = 71;
  uint8_t *packet = pkt->packet_len != 0
                        ? static_cast<uint8_t *>(tarvik_malloc(kMemId, pkt->packet_len))
                        : nullptr;
  uint8_t *meta =
      pkt->meta_len != 0 ? static_cast<uint8_t *>(tarvik_malloc(kMemId, pkt->meta_len)) : nullptr;
  int err = 0;
  if ((pkt->packet_len != 0 && packet == nullptr) || (pkt->meta_len != 0 && meta == nullptr)) {
    err = ENOMEM;
  } else {
    if (packet != nullptr) memcpy(packet, pkt->packet, pkt->packet_len);
    if (meta != nullptr) memcpy(meta, pkt->meta, pkt->meta_len);
    pktinject_msg m{};
    tlk::request::fill_header(m.pim_hdr, TLK_MSG_PKT_INJECT, TLK_OP_ADD, sizeof m, sizeof m, 0);
    m.pim_hdr.tlkh_id = id;
    m.pim_packet = packet;
    m.pim_packet_len = pkt->packet_len;
    m.pim_meta = meta;
    m.pim_meta_len = pkt->meta_len;
    err = tlk::request::write_framed(cookie, &m).code();
  }
  if (packet != nullptr) tarvik_free(kMemId, packet);
  if (meta != nullptr) tarvik_free(kMemId, meta);
  return err;
}

// ---- Fabric ----

TLK_EXPORT int tarvik_fc_fabric_get_by_index(tarvik_cookie *cookie, uint16_t fabric_index,
                                             uint32_t op, void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr || msg_out == nullptr || !get_or_next(op)) return EINVAL;
  Request<fc_fabric_msg> req(cookie, TLK_MSG_FC_FABRIC, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->fcm_fabric_index = fabric_index;
  return exchange(req, msg_out, nullptr).code();
}

TLK_EXPORT int tarvik_fc_fabric_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                            void **msg_out) {
  if (msg_out != nullptr) *msg_out = nullptr;
  if (cookie == nullptr || msg_out == nullptr || name == nullptr || !get_or_next(op)) return EINVAL;
  Request<fc_fabric_msg> req(cookie, TLK_MSG_FC_FABRIC, op, Seq::kDraw);
  if (!req) return ENOMEM;
  (void)tlk::request::put_name(req.variable_area(), name, kFabricNameChars, &req->fcm_name,
                               &req->fcm_name_len);
  return exchange(req, msg_out, nullptr).code();
}

TLK_EXPORT int tarvik_fmgrpm_get_by_index(tarvik_cookie *cookie, uint32_t group_index, uint32_t op,
                                          void **msg_out, void **mask_out) {
  clear_outs(msg_out, mask_out);
  if (cookie == nullptr || msg_out == nullptr || !get_or_next(op)) return EINVAL;
  Request<fmgrp_msg> req(cookie, TLK_MSG_FABRIC_MC_GROUP, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->fgm_group_index = group_index;
  return exchange(req, msg_out, mask_out, Read::kLong).code();
}

}  // extern "C"
