// The simulated kernel's device store: a default chassis, the answers to framed device requests,
// the list of all devices through the numeric system control, and "ifdev" change notifications.
#include <errno.h>
#include <string.h>

#include <algorithm>

#include "session.h"
#include "tarsim.hpp"
#include "wire.h"

namespace tarsim {
namespace {

constexpr uint8_t kIfdType = 5;
constexpr uint32_t kPointChange = 0x2000;
constexpr uint32_t kIffUp = 0x1;
constexpr uint8_t kAfInet = 2, kAfLink = 18;

// An IPv4 socket address: length 16, family, port 0, the address in network order.
Bytes inet_sockaddr(uint32_t addr) {
  Bytes sa(16, 0);
  sa[0] = 16;
  sa[1] = kAfInet;
  for (int i = 0; i < 4; ++i) sa[4 + i] = static_cast<uint8_t>(addr >> (24 - 8 * i));
  return sa;
}

// A link-level socket address: length 20, family 18, no info type, address length 6 at byte 10,
// the six bytes from 12, two bytes of pad.
Bytes link_sockaddr(const std::array<uint8_t, 6> &mac) {
  Bytes sa(20, 0);
  sa[0] = 20;
  sa[1] = kAfLink;
  sa[10] = 6;
  memcpy(&sa[12], mac.data(), 6);
  return sa;
}

Bytes encode_frame(tlk_msg &out, bool tlv) {
  const uint32_t need = tlv ? tlv_encode_tlk_msg_0(&out, nullptr, nullptr, 0)
                            : idr_encode_tlk_msg_0(&out, nullptr, 0);
  Bytes bytes(need);
  if (tlv) {
    (void)tlv_encode_tlk_msg_0(&out, nullptr, bytes.data(), need);
  } else {
    (void)idr_encode_tlk_msg_0(&out, bytes.data(), need);
  }
  return bytes;
}

std::string name_of(const ifdev_msg &req) {
  if (req.ifdm_name == nullptr || req.ifdm_name_len == 0) return {};
  const auto *p = reinterpret_cast<const char *>(req.ifdm_name);
  return std::string(p, strnlen(p, req.ifdm_name_len));
}

// The IPv4 address and the hardware address that a request carries, if any.
void take_addresses(Kernel::Device &d, const ifdev_msg &req) {
  if (req.ifdm_addr != nullptr && req.ifdm_addr_len != 0) {
    const uint8_t *sa = req.ifdm_addr[0].sai_addr;
    if (sa != nullptr && sa[1] == kAfInet && sa[0] >= 8) {
      d.inet = uint32_t{sa[4]} << 24 | uint32_t{sa[5]} << 16 | uint32_t{sa[6]} << 8 | sa[7];
    }
  }
  if (req.ifdm_haddr != nullptr && req.ifdm_haddr_len != 0) {
    const uint8_t *sa = req.ifdm_haddr[0].sai_addr;
    if (sa != nullptr && sa[1] == kAfLink && sa[0] >= 18 && sa[10] == 6)
      memcpy(d.mac.data(), sa + 12, 6);
  }
}

}  // namespace

void Kernel::seed_default_devices() {
  const struct {
    const char *name;
    uint16_t index;
    uint16_t media;
    uint32_t mtu;
    uint32_t inet;
    bool up;
  } seed[] = {
      {"mgmt0", 1, kMediaEthernet, 1514, 0xC0A80A01, true},
      {"lo0", 6, kMediaLoopback, 65535, 0x7F000001, true},
      {"ge0", 130, kMediaEthernet, 1514, 0x0A000001, true},
      {"ge1", 131, kMediaEthernet, 1514, 0x0A000101, true},
      {"ge2", 132, kMediaEthernet, 1514, 0, true},
      {"ge3", 133, kMediaEthernet, 1514, 0, false},
      {"xe0", 140, kMediaEthernet, 9192, 0x0A010001, true},
      {"xe1", 141, kMediaEthernet, 9192, 0, true},
      {"et0", 150, kMediaEthernet, 9192, 0, true},
      {"ae0", 160, kMediaAggregate, 1514, 0x0A020001, true},
      {"ae1", 161, kMediaAggregate, 1514, 0, false},
      {"sonet0", 170, kMediaSonet, 4474, 0, true},
  };
  for (const auto &s : seed) {
    Device d;
    d.index = s.index;
    d.snmp_id = 500u + s.index;
    d.name = s.name;
    d.flags = (s.up ? kIffUp : 0u) | 0x8000u;  // the kernel's "present" bit
    d.devflags = s.up ? 0x1 : 0x0;
    d.media = s.media;
    d.mtu = s.mtu;
    d.inet = s.inet;
    if (s.media != kMediaLoopback)
      d.mac = {0x02,  // a locally administered prefix
               0x54,
               0x4c,
               0x71,
               static_cast<uint8_t>(s.index >> 8),
               static_cast<uint8_t>(s.index)};
    add_device(d);
  }
}

void Kernel::add_device(const Device &d) {
  auto it = std::lower_bound(devices_.begin(), devices_.end(), d.index,
                             [](const Device &x, uint16_t index) { return x.index < index; });
  if (it != devices_.end() && it->index == d.index) {
    *it = d;
  } else {
    devices_.insert(it, d);  // kept in index order
  }
}

const Kernel::Device *Kernel::find_device(uint16_t index) const {
  auto it = std::lower_bound(devices_.begin(), devices_.end(), index,
                             [](const Device &x, uint16_t i) { return x.index < i; });
  return it != devices_.end() && it->index == index ? &*it : nullptr;
}

const Kernel::Device *Kernel::find_device(const std::string &name) const {
  for (const Device &d : devices_) {
    if (d.name == name) return &d;
  }
  return nullptr;
}

Bytes Kernel::device_frame(const Device &d, uint8_t op, uint32_t seq, bool tlv) const {
  ifdev_msg m{};
  m.ifdm_hdr.tlkh_version = TARVIK_VERSION_TABLE[kIfdType];
  m.ifdm_hdr.tlkh_type = kIfdType;
  m.ifdm_hdr.tlkh_op = op;
  m.ifdm_hdr.tlkh_seq = seq;
  m.ifdm_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_ifdev_msg_0);
  m.ifdm_index = d.index;
  m.ifdm_devflags = d.devflags;
  m.ifdm_flags = d.flags;
  m.ifdm_generation = d.generation;
  m.ifdm_snmp_id.idx = d.snmp_id;
  std::string name = d.name;
  name.push_back('\0');
  m.ifdm_name = reinterpret_cast<uint8_t *>(name.data());
  m.ifdm_name_len = static_cast<uint32_t>(name.size());
  ifmedia media{};
  media.ifm_f48 = d.media;  // the simulator keeps the media kind in the record's first field
  media.ifm_mtu = d.mtu;
  media.ifm_linkflags = (d.flags & kIffUp) != 0 ? 1 : 0;
  m.ifdm_media = &media;
  m.ifdm_media_len = 1;
  Bytes inet = inet_sockaddr(d.inet), link = link_sockaddr(d.mac);
  sockaddr_idl addr{}, haddr{};
  if (d.inet != 0) {
    addr.sai_addr = inet.data();
    m.ifdm_addr = &addr;
    m.ifdm_addr_len = 1;
  }
  if (d.mac != std::array<uint8_t, 6>{}) {
    haddr.sai_addr = link.data();
    m.ifdm_haddr = &haddr;
    m.ifdm_haddr_len = 1;
  }
  tlk_msg out{};
  out.tlkm_type = kIfdType;
  out.tlkm_msg = &m;
  return encode_frame(out, tlv);
}

void Kernel::device_changed(const Device &d, int except_fd) {
  const Bytes frame = device_frame(d, TLK_OP_CHANGE, 0, false);
  notify(kIfdType, frame, except_fd);
}

bool Kernel::change_device_flags(uint16_t index, uint32_t set, uint32_t clear) {
  auto it = std::find_if(devices_.begin(), devices_.end(),
                         [&](const Device &x) { return x.index == index; });
  if (it == devices_.end()) return false;
  it->flags = (it->flags & ~clear) | set;
  ++it->generation;
  device_changed(*it, -1);
  return true;
}

bool Kernel::set_link(const std::string &name, bool up) {
  const Device *d = find_device(name);
  if (d == nullptr) return false;
  return change_device_flags(d->index, up ? kIffUp : 0, up ? 0 : kIffUp);
}

Bytes Kernel::device_list() const {
  Bytes all;
  for (const Device &d : devices_) {
    Bytes f = device_frame(d, TLK_OP_GET, 0, false);
    all.insert(all.end(), f.begin(), f.end());
  }
  return all;
}

void Kernel::answer_device(Session &s, const tlk_msg &choice, bool request_tlv) {
  const auto &req = *static_cast<const ifdev_msg *>(choice.tlkm_msg);
  const tlk_hdr &h = req.ifdm_hdr;
  if (h.tlkh_op == TLK_OP_ADD) {
    // A new device; an index already taken is left as it is (an add has no reply).
    if (req.ifdm_index == 0 || find_device(req.ifdm_index) != nullptr) return;
    Device d;
    d.index = req.ifdm_index;
    d.snmp_id = 500u + req.ifdm_index;
    d.name = name_of(req);
    d.flags = req.ifdm_flags;
    if (req.ifdm_media != nullptr && req.ifdm_media_len != 0) {
      d.media = req.ifdm_media[0].ifm_f48;
      d.mtu = req.ifdm_media[0].ifm_mtu;
    }
    take_addresses(d, req);
    add_device(d);
    notify(kIfdType, device_frame(*find_device(d.index), TLK_OP_ADD, 0, false), s.lib_fd);
    return;
  }
  if (h.tlkh_op == TLK_OP_CHANGE) {
    auto it = std::find_if(devices_.begin(), devices_.end(),
                           [&](const Device &x) { return x.index == req.ifdm_index; });
    if (it == devices_.end()) return;  // nothing to change, and a change has no reply
    if (req.ifdm_change == kPointChange) {
      if ((req.ifdm_point_mask & 1) != 0) it->flags |= req.ifdm_point_flags;
    } else {
      it->flags = req.ifdm_flags;
      it->devflags = req.ifdm_devflags;
      if (req.ifdm_dinfotype == 1) take_addresses(*it, req);
    }
    ++it->generation;
    device_changed(*it, s.lib_fd);
    return;
  }
  if (h.tlkh_op != TLK_OP_GET && h.tlkh_op != TLK_OP_GETNEXT) return;
  const Device *found = nullptr;
  const std::string name = name_of(req);
  if (h.tlkh_op == TLK_OP_GETNEXT || req.ifdm_index != 0) {
    // By index: the store is in index order.
    auto it = std::upper_bound(devices_.begin(), devices_.end(), req.ifdm_index,
                               [](uint16_t index, const Device &x) { return index < x.index; });
    if (h.tlkh_op == TLK_OP_GET) {
      found = (it != devices_.begin() && std::prev(it)->index == req.ifdm_index) ? &*std::prev(it)
                                                                                 : nullptr;
    } else {
      found = it != devices_.end() ? &*it : nullptr;
    }
  }
  for (const Device &d : devices_) {
    if (h.tlkh_op == TLK_OP_GETNEXT || req.ifdm_index != 0) break;
    if (req.ifdm_snmp_id.idx != 0) {
      if (d.snmp_id == req.ifdm_snmp_id.idx) found = &d;
    } else if (!name.empty() && d.name == name) {
      found = &d;
    }
    if (found != nullptr) break;
  }
  if (found == nullptr) {
    answer_not_found(s, kIfdType, h.tlkh_op, h.tlkh_seq);
    return;
  }
  const bool tlv = device_tlv_ || request_tlv;
  deliver(s, device_frame(*found, h.tlkh_op, h.tlkh_seq, tlv), true);
}

}  // namespace tarsim

namespace tarsim {
namespace {

constexpr uint8_t kStatsType = 15, kAlarmType = 20;
constexpr size_t kStatsFixed = 72, kAlarmFixed = 48;

using internal::wire::u16_at;

std::string raw_name(std::span<const uint8_t> b, size_t off, size_t len) {
  if (len == 0 || off >= b.size()) return {};
  const auto *p = reinterpret_cast<const char *>(&b[off]);
  return std::string(p, strnlen(p, std::min(len, b.size() - off)));
}

}  // namespace

void Kernel::set_product_model(std::optional<uint16_t> model) {
  if (model) {
    product_ = std::array<uint16_t, 2>{0, *model};
  } else {
    product_.reset();
  }
}

bool Kernel::set_device_counters(uint16_t index, uint64_t in, uint64_t out, uint32_t alarms) {
  auto it = std::find_if(devices_.begin(), devices_.end(),
                         [&](const Device &x) { return x.index == index; });
  if (it == devices_.end()) return false;
  it->in_packets = in;
  it->out_packets = out;
  it->alarms = alarms;
  return true;
}

// Answers "ifdstats" and "ifdalarm"; false for any other raw request.
bool Kernel::answer_device_raw(Session &s, const Request &req) {
  if (req.type != kStatsType && req.type != kAlarmType) return false;
  const auto b = req.bytes;
  const bool stats = req.type == kStatsType;
  const size_t fixed = stats ? kStatsFixed : kAlarmFixed;
  if (b.size() < fixed) return true;  // too short to read: dropped
  const uint16_t index = u16_at(b, stats ? 26 : 24);
  const std::string name =
      stats ? raw_name(b, kStatsFixed, b[31]) : raw_name(b, kAlarmFixed, u16_at(b, 36));
  auto it = std::find_if(devices_.begin(), devices_.end(), [&](const Device &x) {
    return index != 0 ? x.index == index : (!name.empty() && x.name == name);
  });
  const bool clear = stats && req.op == TLK_OP_CLEAR;
  if (it == devices_.end()) {
    if (!clear) answer_not_found(s, req.type, req.op, req.seq);
    return true;
  }
  if (clear) {
    it->in_packets = it->out_packets = 0;
    return true;
  }
  Bytes reply(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(fixed));
  if (stats) {
    reply.resize(fixed + 16);
    memcpy(&reply[fixed], &it->in_packets, 8);
    memcpy(&reply[fixed + 8], &it->out_packets, 8);
  } else {
    reply.resize(fixed + 4);
    memcpy(&reply[fixed], &it->alarms, 4);
  }
  const uint32_t whole = static_cast<uint32_t>(reply.size());
  internal::wire::store_u32(&reply[internal::wire::kRawMsglen], whole);
  const uint16_t stat_flags = stats ? u16_at(b, 58) : 0;
  if ((stat_flags & (128 | 64)) != 0) {
    // An asynchronous read: the answer is a notification of the asking session's stream.
    notify_session(s.lib_fd, reply);
    if (auto_flush_) flush();
    return true;
  }
  reply_with_seq(s.lib_fd, reply, req.seq);
  return true;
}

}  // namespace tarsim
