// The simulated kernel's object store, first part: the framed requests, decoded with the library's
// codecs, and logical interfaces, answered in the encoding the request came in.  The gencfg store
// is in gencfg.cc.
#include <errno.h>
#include <string.h>

#include <algorithm>

#include "session.h"
#include "tarsim.hpp"
#include "wire.h"

namespace tarsim {
namespace {

constexpr uint8_t kIfdType = 5;
constexpr uint8_t kIflType = 6;
constexpr uint8_t kMarkerType = 102;
constexpr uint8_t kGencfgType = TLK_GENCFG_TYPE;
constexpr uint8_t kErrType = 109;

// A decode arena for one request: the codecs allocate through this callback.
struct Scratch {
  uint8_t *base = nullptr;
  size_t size = 0;
  size_t used = 0;
  static void *alloc(uint32_t size, void *ctx) {
    auto *s = static_cast<Scratch *>(ctx);
    const size_t rounded = (static_cast<size_t>(size) + 7) & ~size_t{7};
    if (s->used + rounded > s->size) return nullptr;
    void *p = s->base + s->used;
    s->used += rounded;
    return p;
  }
};

}  // namespace

void Kernel::seed_default_objects() {
  // A small chassis: two gigabit ports with two units each, a ten-gigabit port, a loopback.
  const struct {
    const char *device;
    uint16_t devidx;
    uint32_t unit, index;
  } seed[] = {{"ge0", 130, 0, 70}, {"ge0", 130, 100, 71}, {"ge1", 131, 0, 72},
              {"xe0", 140, 0, 80}, {"xe0", 140, 200, 81}, {"lo0", 6, 0, 16}};
  for (const auto &s : seed) {
    Ifl ifl;
    ifl.device = s.device;
    ifl.devidx = s.devidx;
    ifl.unit = s.unit;
    ifl.index = s.index;
    ifl.snmp_id = 500 + s.index;
    ifl.flags = 0x8001;  // up, with the kernel's "present" bit
    ifl.generation = 1;
    add_ifl(ifl);
  }
  seed_default_devices();
}

void Kernel::add_ifl(const Ifl &ifl) {
  auto it = std::find_if(ifls_.begin(), ifls_.end(), [&](const Ifl &i) { return i.index == ifl.index; });
  if (it != ifls_.end()) {
    *it = ifl;
  } else {
    ifls_.push_back(ifl);
    std::sort(ifls_.begin(), ifls_.end(), [](const Ifl &a, const Ifl &b) { return a.index < b.index; });
  }
}

const Kernel::Ifl *Kernel::find_ifl(uint32_t index) const {
  for (const Ifl &i : ifls_) {
    if (i.index == index) return &i;
  }
  return nullptr;
}

// Looks a request's keys up: the index first, then the SNMP id, then the device name or index
// with the unit.  A getnext answers the logical interface that follows the key in index order.
const Kernel::Ifl *Kernel::lookup_ifl(const ifl_msg &req) const {
  const uint8_t op = req.iflm_hdr.tlkh_op;
  const Ifl *found = nullptr;
  if (req.iflm_index.idx != 0 || op == TLK_OP_GETNEXT) {
    if (op == TLK_OP_GETNEXT) {
      for (const Ifl &i : ifls_) {
        if (i.index > req.iflm_index.idx) return &i;
      }
      return nullptr;
    }
    return find_ifl(req.iflm_index.idx);
  }
  for (const Ifl &i : ifls_) {
    if (req.iflm_snmp_id.idx != 0) {
      if (i.snmp_id == req.iflm_snmp_id.idx) found = &i;
    } else if (req.iflm_name != nullptr && req.iflm_name_len != 0) {
      const std::string name(reinterpret_cast<const char *>(req.iflm_name),
                             strnlen(reinterpret_cast<const char *>(req.iflm_name), req.iflm_name_len));
      if (i.device == name && i.unit == req.iflm_unit) found = &i;
    } else if (i.devidx == req.iflm_devidx && i.unit == req.iflm_unit) {
      found = &i;
    }
    if (found) break;
  }
  return found;
}

Bytes encode_frame(uint8_t type, const void *record, bool tlv) {
  tlk_msg out{};
  out.tlkm_type = type;
  out.tlkm_msg = const_cast<void *>(record);  // the encoders only read through it
  const uint32_t need = tlv ? tlv_encode_tlk_msg_0(&out, nullptr, nullptr, 0) : idr_encode_tlk_msg_0(&out, nullptr, 0);
  Bytes bytes(need);
  if (tlv) {
    (void)tlv_encode_tlk_msg_0(&out, nullptr, bytes.data(), need);
  } else {
    (void)idr_encode_tlk_msg_0(&out, bytes.data(), need);
  }
  return bytes;
}

void Kernel::answer_not_found(Session &s, uint8_t type, uint8_t op, uint32_t seq, const char *function) {
  // The kernel's refusal: a raw "tlk-err" naming the refused message and the error.
  TlkErr body{};
  strncpy(body.function, function, sizeof body.function - 1);
  body.line = 1;
  body.seq_no = seq;
  body.rtm_type = type;
  body.rtm_op = op;
  body.final_err = ENOENT;
  const Bytes reply = raw_message(kErrType, op, seq, {reinterpret_cast<const uint8_t *>(&body), sizeof body});
  deliver(s, reply, true);
}

void Kernel::answer_frame(Session &s, std::span<const uint8_t> frame) {
  const bool tlv = internal::wire::is_tlv(frame);
  // Kept between requests and never refilled: the decoders clear what they allocate, and a
  // large blob should not cost a fresh zeroed buffer per request.
  static thread_local Bytes buffer;
  const size_t want = frame.size() * 4 + 4096;
  if (buffer.size() < want) buffer.resize(want);
  Scratch scratch{buffer.data(), want, 0};
  tlk_msg choice{};
  const auto len = static_cast<uint32_t>(frame.size());
  const int32_t got = tlv ? tlv_decode_tlk_msg_0(&choice, nullptr, frame.data(), len, Scratch::alloc, &scratch)
                          : idr_decode_tlk_msg_0(&choice, frame.data(), len, Scratch::alloc, &scratch);
  if (got <= 0 || choice.tlkm_msg == nullptr) {
    ++s.dropped;  // a frame the kernel cannot read is dropped, as a garbled message would be
    return;
  }
  const auto *hdr = static_cast<const tlk_hdr *>(choice.tlkm_msg);
  if (choice.tlkm_type == kMarkerType) {
    // A marker asked for comes back as it was sent: everything written before it is done.
    if (hdr->tlkh_op == TLK_OP_GET) deliver(s, frame, true);
    return;
  }
  if (choice.tlkm_type == kGencfgType) {
    answer_gencfg(s, *static_cast<const gencfg_msg *>(choice.tlkm_msg), tlv);
    return;
  }
  if (choice.tlkm_type == kIfdType) {
    answer_device(s, choice, tlv);
    return;
  }
  if (choice.tlkm_type != kIflType) return;  // other families come with their stores
  const auto &req = *static_cast<const ifl_msg *>(choice.tlkm_msg);
  if (hdr->tlkh_op != TLK_OP_GET && hdr->tlkh_op != TLK_OP_GETNEXT) return;
  const Ifl *ifl = lookup_ifl(req);
  if (ifl == nullptr) {
    answer_not_found(s, kIflType, hdr->tlkh_op, hdr->tlkh_seq);
    return;
  }
  ifl_msg reply{};
  reply.iflm_hdr = *hdr;
  reply.iflm_hdr.tlkh_info = nullptr;
  reply.iflm_hdr.tlkh_info_len = 0;
  reply.iflm_index.idx = ifl->index;
  reply.iflm_snmp_id.idx = ifl->snmp_id;
  reply.iflm_devidx = ifl->devidx;
  reply.iflm_unit = ifl->unit;
  reply.iflm_flags = ifl->flags;
  reply.iflm_generation = ifl->generation;
  reply.iflm_lr = ifl->lr;
  std::string name = ifl->device;
  name.push_back('\0');
  reply.iflm_name = reinterpret_cast<uint8_t *>(name.data());
  reply.iflm_name_len = static_cast<uint32_t>(name.size());
  deliver(s, encode_frame(kIflType, &reply, tlv), true);
}

}  // namespace tarsim
