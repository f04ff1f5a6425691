// PICs, sampling instances, the synchronisation state, system statistics, fabrics, fabric
// multicast groups, packet injection and denial-of-service objects: one family per kind, each
// answering the framed requests of its type.  See tarsim/chassis.hpp for the contract.
#include <string.h>

#include <map>
#include <string>
#include <tuple>

#include "../core.h"
#include "../family.h"
#include "../session.h"
#include "tarsim/chassis.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint32_t kPicInfoBase = 0x1000000;
constexpr uint8_t kAccounting = 4;

template <class R>
void header(R &m, tlk_hdr &h, uint8_t type, uint8_t op, uint32_t seq) {
  h.tlkh_version = static_cast<uint8_t>(TARVIK_VERSION_TABLE[type]);
  h.tlkh_type = type;
  h.tlkh_op = op;
  h.tlkh_seq = seq;
  h.tlkh_fixedlen = static_cast<uint16_t>(sizeof m);
  h.tlkh_msglen = sizeof m;
}

// A get finds `key`, a getnext the first key after it.
template <class Map, class Key>
const typename Map::mapped_type *walk(const Map &items, uint8_t op, const Key &key) {
  auto it = op == TLK_OP_GETNEXT ? items.upper_bound(key) : items.find(key);
  return it == items.end() ? nullptr : &it->second;
}

bool reads(uint8_t op) {
  return op == TLK_OP_GET || op == TLK_OP_GETNEXT;
}

}  // namespace

class PicFamily final : public Family {
 public:
  explicit PicFamily(Host &host) : host_(host) {
    for (uint16_t key : {uint16_t{8}, uint16_t{10}, uint16_t{17}}) {
      Pic p;
      p.key = key;
      p.type = static_cast<uint16_t>(0x100 + key);
      p.id = static_cast<uint16_t>(key + 1);
      pics[key] = p;
    }
    host.answer_frames(TLK_MSG_PIC, [this](Session &s, const Frame &f) { answer(s, f); });
  }

  std::map<uint16_t, Pic> pics;

  Bytes frame(const Pic &p, uint8_t op, uint32_t seq, bool tlv) const {
    pic_msg m{};
    header(m, m.picm_hdr, TLK_MSG_PIC, op, seq);
    m.picm_idx = p.key;
    m.picm_type = p.type;
    m.picm_id = p.id;
    m.picm_flags = p.flags;
    m.picm_byte = p.byte;
    return encode_frame(TLK_MSG_PIC, &m, tlv);
  }
  void changed(const Pic &p, uint8_t op, int except_fd) {
    host_.notify(TLK_MSG_PIC, frame(p, op, 0, false), except_fd);
  }

 private:
  // Applies the attachments of a request to the stored PIC.
  static void apply(Pic &p, const tlk_hdr &h) {
    for (uint32_t i = 0; h.tlkh_info != nullptr && i < h.tlkh_info_len; ++i) {
      const tlk_msg_info *a = h.tlkh_info[i];
      if (a == nullptr) continue;
      switch (a->tlkmi_type) {
        case kPicInfoBase | 1:
          p.app_mode = a->tlkmi_u.pictlv_app_mode.pam_value;
          break;
        case kPicInfoBase | 2:
          p.presence = static_cast<uint8_t>(a->tlkmi_u.pictlv_presence.pp_value);
          break;
        case kPicInfoBase | 3:
          memcpy(p.msp, a->tlkmi_u.pictlv_msp_options.pmo_fixed, sizeof p.msp);
          p.has_msp = true;
          break;
        case kPicInfoBase | 4:
          ++p.bounces;
          break;
        case kPicInfoBase | 5:
          p.other = a->tlkmi_u.pictlv_other_options.poo_value;
          break;
        default:
          break;
      }
    }
  }

  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<pic_msg>();
    const tlk_hdr &h = f.hdr();
    const uint8_t op = h.tlkh_op;
    if (op == TLK_OP_ADD) {
      Pic p;
      p.key = req.picm_idx;
      p.type = req.picm_type;
      p.id = req.picm_id;
      p.flags = req.picm_flags;
      p.byte = req.picm_byte;
      apply(p, h);
      pics[p.key] = p;
      return changed(p, op, s.lib_fd);
    }
    auto it = pics.find(req.picm_idx);
    if (op == TLK_OP_CHANGE || op == TLK_OP_DELETE) {
      if (it == pics.end())
        return host_.refuse_not_found(s, TLK_MSG_PIC, op, h.tlkh_seq, "pic_cfg");
      const Pic p = it->second;
      if (op == TLK_OP_DELETE) {
        pics.erase(it);
      } else {
        apply(it->second, h);
      }
      return changed(p, op, s.lib_fd);
    }
    if (!reads(op)) return;
    const Pic *p = walk(pics, op, req.picm_idx);
    if (p == nullptr) return host_.refuse_not_found(s, TLK_MSG_PIC, op, h.tlkh_seq, "pic_get");
    host_.reply(s, frame(*p, op, h.tlkh_seq, f.tlv));
  }

  Host &host_;
};

class SampleFamily final : public Family {
 public:
  using Key = std::tuple<uint32_t, uint32_t, uint32_t>;
  explicit SampleFamily(Host &host) : host_(host) {
    for (uint32_t a : {1u, 2u}) {
      Sample s;
      s.a = a;
      snprintf(s.name, sizeof s.name, "sample-%u", a);
      samples[{a, 0, 0}] = s;
    }
    host.answer_frames(TLK_MSG_SAMPLING, [this](Session &s, const Frame &f) { answer(s, f); });
  }

  std::map<Key, Sample> samples;

 private:
  Bytes frame(const Sample &x, uint8_t op, uint32_t seq, bool tlv) const {
    sample_msg m{};
    header(m, m.smm_hdr, TLK_MSG_SAMPLING, op, seq);
    m.sample_a = x.a;
    m.sample_b = x.b;
    m.sample_c = x.c;
    m.smm_flags = x.flags;
    memcpy(m.smm_inst_name, x.name, sizeof m.smm_inst_name);
    return encode_frame(TLK_MSG_SAMPLING, &m, tlv);
  }

  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<sample_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    const Key key{req.sample_a, req.sample_b, req.sample_c};
    if (op == TLK_OP_ADD) {
      Sample x;
      x.a = req.sample_a;
      x.b = req.sample_b;
      x.c = req.sample_c;
      x.flags = req.smm_flags;
      memcpy(x.name, req.smm_inst_name, sizeof req.smm_inst_name);
      samples[key] = x;
      host_.notify(TLK_MSG_SAMPLING, frame(x, op, 0, false), s.lib_fd);
      return;
    }
    if (op == TLK_OP_DELETE) {
      auto it = samples.find(key);
      if (it == samples.end())
        return host_.refuse_not_found(s, TLK_MSG_SAMPLING, op, f.hdr().tlkh_seq, "sample_cfg");
      host_.notify(TLK_MSG_SAMPLING, frame(it->second, op, 0, false), s.lib_fd);
      samples.erase(it);
      return;
    }
    if (!reads(op)) return;
    const Sample *x = walk(samples, op, key);
    if (x == nullptr)
      return host_.refuse_not_found(s, TLK_MSG_SAMPLING, op, f.hdr().tlkh_seq, "sample_get");
    host_.reply(s, frame(*x, op, f.hdr().tlkh_seq, f.tlv));
  }

  Host &host_;
};

class KsyncFamily final : public Family {
 public:
  explicit KsyncFamily(Host &host) : host_(host) {
    host.answer_frames(TLK_MSG_KSYNC, [this](Session &s, const Frame &f) { answer(s, f); });
  }
  KsyncState state{};

 private:
  Bytes frame(uint8_t op, uint32_t seq, bool tlv) const {
    ksync_msg m{};
    header(m, m.ksm_hdr, TLK_MSG_KSYNC, op, seq);
    m.ksync_flags = state.flags;
    m.ksync_a = state.a;
    m.ksync_b = state.b;
    m.ksync_c = state.c;
    m.ksm_seqno = seqno_;
    return encode_frame(TLK_MSG_KSYNC, &m, tlv);
  }
  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<ksync_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    if (op == TLK_OP_GET) return (void)host_.reply(s, frame(op, f.hdr().tlkh_seq, f.tlv));
    if (op != TLK_OP_CHANGE) return;
    if ((req.ksync_flags & 1) != 0) state = {};
    state.a = req.ksync_a;
    state.b = req.ksync_b;
    state.c = req.ksync_c;
    state.flags = req.ksync_flags;
    ++seqno_;
    host_.notify(TLK_MSG_KSYNC, frame(op, 0, false), s.lib_fd);
  }
  uint32_t seqno_ = 1;
  Host &host_;
};

class SysstatsFamily final : public Family {
 public:
  explicit SysstatsFamily(Host &host) : host_(host) {
    host.answer_frames(TLK_MSG_SYSSTATS, [this](Session &s, const Frame &f) { answer(s, f); });
    host.answer_sysctl(std::string("net.sysstats_enable"), [this] {
      const int32_t v = enabled ? 1 : 0;
      Bytes b(sizeof v);
      memcpy(b.data(), &v, sizeof v);
      return b;
    });
  }
  bool enabled = true;

 private:
  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<sysstats_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    if (!reads(op)) return;
    sysstats_msg m{};
    header(m, m.ssm_hdr, TLK_MSG_SYSSTATS, op, f.hdr().tlkh_seq);
    m.ssm_request = req.ssm_request;
    uint32_t words[2] = {1000, 2000};
    global_ifl_account account{};
    if (req.ssm_request == kAccounting) {
      account.gia_flags = 1;
      account.gia_entries = words;
      account.gia_count = 2;
      m.ssm_accounts = &account;
      m.ssm_accounts_count = 1;
    } else {
      m.ssm_uptime = 86400;
      m.ssm_mem_total = 4ull << 30;
      m.ssm_mem_free = 1ull << 30;
      m.ssm_rx_packets = 123456;
      m.ssm_tx_packets = 654321;
    }
    host_.reply(s, encode_frame(TLK_MSG_SYSSTATS, &m, f.tlv));
  }
  Host &host_;
};

class FabricFamily final : public Family {
 public:
  explicit FabricFamily(Host &host) : host_(host) {
    fabrics[1] = "fabric-a";
    fabrics[2] = "fabric-b";
    host.answer_frames(TLK_MSG_FC_FABRIC, [this](Session &s, const Frame &f) { answer(s, f); });
  }
  std::map<uint16_t, std::string> fabrics;

 private:
  void answer(Session &s, const Frame &f) {
    const auto &req = f.as<fc_fabric_msg>();
    const uint8_t op = f.hdr().tlkh_op;
    if (!reads(op)) return;
    auto it = fabrics.end();
    if (req.fcm_fabric_index == 0 && req.fcm_name != nullptr && op == TLK_OP_GET) {
      const std::string name(
          reinterpret_cast<const char *>(req.fcm_name),
          strnlen(reinterpret_cast<const char *>(req.fcm_name), req.fcm_name_len));
      for (it = fabrics.begin(); it != fabrics.end() && it->second != name; ++it) {
      }
    } else {
      it = op == TLK_OP_GETNEXT ? fabrics.upper_bound(req.fcm_fabric_index)
                                : fabrics.find(req.fcm_fabric_index);
    }
    if (it == fabrics.end())
      return host_.refuse_not_found(s, TLK_MSG_FC_FABRIC, op, f.hdr().tlkh_seq, "fc_fabric_get");
    fc_fabric_msg m{};
    header(m, m.fcm_hdr, TLK_MSG_FC_FABRIC, op, f.hdr().tlkh_seq);
    m.fcm_fabric_index = it->first;
    m.fcm_inst = 1;
    std::string name = it->second;
    m.fcm_name = reinterpret_cast<uint8_t *>(name.data());
    m.fcm_name_len = static_cast<uint32_t>(name.size() + 1);
    host_.reply(s, encode_frame(TLK_MSG_FC_FABRIC, &m, f.tlv));
  }
  Host &host_;
};

class FabricGroupFamily final : public Family {
 public:
  explicit FabricGroupFamily(Host &host) : host_(host) {
    groups[10] = 1;
    groups[20] = 2;
    host.answer_frames(TLK_MSG_FABRIC_MC_GROUP,
                       [this](Session &s, const Frame &f) { answer(s, f); });
  }
  std::map<uint32_t, uint16_t> groups;  // group index -> fabric index

 private:
  void answer(Session &s, const Frame &f) {
    const uint8_t op = f.hdr().tlkh_op;
    if (!reads(op)) return;
    const uint32_t key = f.as<fmgrp_msg>().fgm_group_index;
    auto it = op == TLK_OP_GETNEXT ? groups.upper_bound(key) : groups.find(key);
    if (it == groups.end())
      return host_.refuse_not_found(s, TLK_MSG_FABRIC_MC_GROUP, op, f.hdr().tlkh_seq, "fmgrp_get");
    fmgrp_msg m{};
    header(m, m.fgm_hdr, TLK_MSG_FABRIC_MC_GROUP, op, f.hdr().tlkh_seq);
    m.fgm_group_index = it->first;
    m.fgm_fabric_index = it->second;
    host_.reply(s, encode_frame(TLK_MSG_FABRIC_MC_GROUP, &m, f.tlv));
  }
  Host &host_;
};

class PktinjectFamily final : public Family {
 public:
  explicit PktinjectFamily(Host &host) {
    host.answer_frames(TLK_MSG_PKT_INJECT, [this](Session &, const Frame &f) {
      ++count;
      last_len = f.as<pktinject_msg>().pim_packet_len;
    });
  }
  size_t count = 0;
  uint32_t last_len = 0;
};

class DdosFamily final : public Family {
 public:
  explicit DdosFamily(Host &host) : host_(host) {
    host.answer_frames(TLK_MSG_DDOS, [this](Session &s, const Frame &f) {
      const auto &req = f.as<ddos_msg>();
      const uint8_t op = f.hdr().tlkh_op;
      if (!reads(op)) return;
      ddos_msg m{};
      header(m, m.ddm_hdr, TLK_MSG_DDOS, op, f.hdr().tlkh_seq);
      m.ddos_obj = req.ddos_obj;
      m.ddos_kind = req.ddos_kind;
      m.ddos_group = req.ddos_group;
      m.ddos_flags = req.ddos_flags;
      m.ddm_index = 1;
      host_.reply(s, encode_frame(TLK_MSG_DDOS, &m, f.tlv));
    });
  }

 private:
  Host &host_;
};

namespace {
const FamilySlot<PicFamily> kPics("pics");
const FamilySlot<SampleFamily> kSamples("samples");
const FamilySlot<KsyncFamily> kKsync("ksync");
const FamilySlot<SysstatsFamily> kSysstats("sysstats");
const FamilySlot<FabricFamily> kFabrics("fc fabrics");
const FamilySlot<FabricGroupFamily> kFabricGroups("fabric groups");
const FamilySlot<PktinjectFamily> kPktinject("pkt inject");
const FamilySlot<DdosFamily> kDdos("ddos");

}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

Chassis Kernel::chassis() {
  return Chassis(impl_);
}
const Chassis Kernel::chassis() const {
  return Chassis(impl_);
}

size_t Chassis::pic_count() const {
  return internal::kPics.in(*core_).pics.size();
}
const Pic *Chassis::pic_at(size_t i) const {
  return internal::nth(internal::kPics.in(*core_).pics, i);
}
const Pic *Chassis::pic(uint16_t key) const {
  const auto &pics = internal::kPics.in(*core_).pics;
  auto it = pics.find(key);
  return it == pics.end() ? nullptr : &it->second;
}
void Chassis::add_pic(const Pic &pic) {
  auto &f = internal::kPics.in(*core_);
  f.pics[pic.key] = pic;
  f.changed(pic, TLK_OP_ADD, -1);
}
size_t Chassis::sample_count() const {
  return internal::kSamples.in(*core_).samples.size();
}
const Sample *Chassis::sample_at(size_t i) const {
  return internal::nth(internal::kSamples.in(*core_).samples, i);
}
KsyncState Chassis::ksync() const {
  return internal::kKsync.in(*core_).state;
}
void Chassis::set_sysstats_enabled(bool enabled) {
  internal::kSysstats.in(*core_).enabled = enabled;
}
size_t Chassis::injected() const {
  return internal::kPktinject.in(*core_).count;
}
uint32_t Chassis::last_injected_len() const {
  return internal::kPktinject.in(*core_).last_len;
}

}  // namespace tarsim
