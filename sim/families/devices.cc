// Devices: the kernel's physical devices, a default chassis, the answers to framed device
// requests ("ifdev"), the statistics and alarm reads ("ifdstats", "ifdalarm"), the list of all
// devices through the numeric system control, "ifdev" change notifications and the product
// record that the platform reports.  See tarsim/devices.hpp for the contract.
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <optional>

#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/devices.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint32_t kPointChange = 0x2000;
constexpr uint32_t kIffUp = 0x1;
constexpr uint32_t kIffPresent = 0x8000;  // the kernel's "present" bit
constexpr uint8_t kAfInet = 2, kAfLink = 18;
// { CTL_NET, PF_ROUTE, 0, 0, NET_RT_IFLIST, 1 }: every device.
const std::vector<int> kDeviceListMib = {4, 17, 0, 0, 3, 1};
constexpr size_t kStatsFixed = 72, kAlarmFixed = 48;
// The refusal of an unknown device names the function the logical interfaces name.
constexpr char kRefuser[] = "ifl_get";

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

std::string name_of(const ifdev_msg &req) {
  if (req.ifdm_name == nullptr || req.ifdm_name_len == 0) return {};
  const auto *p = reinterpret_cast<const char *>(req.ifdm_name);
  return std::string(p, strnlen(p, req.ifdm_name_len));
}

// The IPv4 address and the hardware address that a request carries, if any.
void take_addresses(Device &d, const ifdev_msg &req) {
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

std::string raw_name(std::span<const uint8_t> b, size_t off, size_t len) {
  if (len == 0 || off >= b.size()) return {};
  const auto *p = reinterpret_cast<const char *>(&b[off]);
  return std::string(p, strnlen(p, std::min(len, b.size() - off)));
}

}  // namespace

class DeviceFamily final : public Family {
 public:
  explicit DeviceFamily(Host &host);
  ~DeviceFamily() override;

  void add(const Device &d);
  Device *find(uint16_t index);
  const Device *find(const std::string &name) const;
  Bytes frame(const Device &d, uint8_t op, uint32_t seq, bool tlv) const;
  bool change_flags(uint16_t index, uint32_t set, uint32_t clear);
  Bytes device_list() const;

  std::vector<Device> devices;  // in index order
  bool replies_tlv = false;
  std::optional<std::array<uint16_t, 2>> product = std::array<uint16_t, 2>{0, 2};
  bool varn = false;

 private:
  void seed();
  void answer_frame(Session &s, const Frame &f);
  void answer_raw(Session &s, const Request &req);
  void changed(const Device &d, int except_fd, uint8_t op = TLK_OP_CHANGE);

  Host &host_;
};

namespace {

// The platform's product entries read the active kernel's devices.
DeviceFamily *g_devices = nullptr;

const void *product_info_data() {
  return g_devices && g_devices->product ? g_devices->product->data() : nullptr;
}

int product_is_platform_varn(int, int) {
  return g_devices && g_devices->varn ? 1 : 0;
}

}  // namespace

DeviceFamily::DeviceFamily(Host &host) : host_(host) {
  g_devices = this;
  seed();
  host.answer_frames(TLK_MSG_IFDEV, [this](Session &s, const Frame &f) { answer_frame(s, f); });
  host.answer_raw(TLK_MSG_IFDSTATS, [this](Session &s, const Request &r) { answer_raw(s, r); });
  host.answer_raw(TLK_MSG_IFDALARM, [this](Session &s, const Request &r) { answer_raw(s, r); });
  host.answer_sysctl(kDeviceListMib, [this] { return device_list(); });
  host.patch_platform([](tlk_platform &table) {
    table.product_info_data = product_info_data;
    table.product_is_platform_varn = product_is_platform_varn;
  });
}

DeviceFamily::~DeviceFamily() {
  if (g_devices == this) g_devices = nullptr;
}

void DeviceFamily::seed() {
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
    d.flags = (s.up ? kIffUp : 0u) | kIffPresent;
    d.devflags = s.up ? 0x1 : 0x0;
    d.media = s.media;
    d.mtu = s.mtu;
    d.inet = s.inet;
    if (s.media != kMediaLoopback)
      d.mac = {0x02,  // a locally administered prefix
               0x54, 0x4c, 0x71, static_cast<uint8_t>(s.index >> 8), static_cast<uint8_t>(s.index)};
    add(d);
  }
}

void DeviceFamily::add(const Device &d) {
  auto it = std::lower_bound(devices.begin(), devices.end(), d.index,
                             [](const Device &x, uint16_t index) { return x.index < index; });
  if (it != devices.end() && it->index == d.index) {
    *it = d;
  } else {
    devices.insert(it, d);  // kept in index order
  }
}

Device *DeviceFamily::find(uint16_t index) {
  auto it = std::lower_bound(devices.begin(), devices.end(), index,
                             [](const Device &x, uint16_t i) { return x.index < i; });
  return it != devices.end() && it->index == index ? &*it : nullptr;
}

const Device *DeviceFamily::find(const std::string &name) const {
  for (const Device &d : devices) {
    if (d.name == name) return &d;
  }
  return nullptr;
}

Bytes DeviceFamily::frame(const Device &d, uint8_t op, uint32_t seq, bool tlv) const {
  ifdev_msg m{};
  m.ifdm_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_IFDEV];
  m.ifdm_hdr.tlkh_type = TLK_MSG_IFDEV;
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
  return encode_frame(TLK_MSG_IFDEV, &m, tlv);
}

// Listeners hear the change, and the watchers of objects (the state log) too.
void DeviceFamily::changed(const Device &d, int except_fd, uint8_t op) {
  const Bytes f = frame(d, op, 0, false);
  host_.object_changed(TLK_MSG_IFDEV, op, f);
  host_.notify(TLK_MSG_IFDEV, f, except_fd);
}

bool DeviceFamily::change_flags(uint16_t index, uint32_t set, uint32_t clear) {
  Device *d = find(index);
  if (d == nullptr) return false;
  d->flags = (d->flags & ~clear) | set;
  ++d->generation;
  changed(*d, -1);
  return true;
}

Bytes DeviceFamily::device_list() const {
  // The device list, as it stands at the time of the read.
  Bytes all;
  for (const Device &d : devices) {
    Bytes f = frame(d, TLK_OP_GET, 0, false);
    all.insert(all.end(), f.begin(), f.end());
  }
  return all;
}

void DeviceFamily::answer_frame(Session &s, const Frame &f) {
  const auto &req = f.as<ifdev_msg>();
  const tlk_hdr &h = req.ifdm_hdr;
  if (h.tlkh_op == TLK_OP_ADD) {
    // A new device; an index already taken is left as it is (an add has no reply).
    if (req.ifdm_index == 0 || find(req.ifdm_index) != nullptr) return;
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
    add(d);
    changed(*find(d.index), s.lib_fd, TLK_OP_ADD);
    return;
  }
  if (h.tlkh_op == TLK_OP_CHANGE) {
    Device *d = find(req.ifdm_index);
    if (d == nullptr) return;  // nothing to change, and a change has no reply
    if (req.ifdm_change == kPointChange) {
      if ((req.ifdm_point_mask & 1) != 0) d->flags |= req.ifdm_point_flags;
    } else {
      d->flags = req.ifdm_flags;
      d->devflags = req.ifdm_devflags;
      if (req.ifdm_dinfotype == 1) take_addresses(*d, req);
    }
    ++d->generation;
    changed(*d, s.lib_fd);
    return;
  }
  if (h.tlkh_op != TLK_OP_GET && h.tlkh_op != TLK_OP_GETNEXT) return;
  const Device *found = nullptr;
  const std::string name = name_of(req);
  if (h.tlkh_op == TLK_OP_GETNEXT || req.ifdm_index != 0) {
    // By index: the store is in index order.
    auto it = std::upper_bound(devices.begin(), devices.end(), req.ifdm_index,
                               [](uint16_t index, const Device &x) { return index < x.index; });
    if (h.tlkh_op == TLK_OP_GET) {
      found = (it != devices.begin() && std::prev(it)->index == req.ifdm_index) ? &*std::prev(it)
                                                                                : nullptr;
    } else {
      found = it != devices.end() ? &*it : nullptr;
    }
  }
  for (const Device &d : devices) {
    if (h.tlkh_op == TLK_OP_GETNEXT || req.ifdm_index != 0) break;
    if (req.ifdm_snmp_id.idx != 0) {
      if (d.snmp_id == req.ifdm_snmp_id.idx) found = &d;
    } else if (!name.empty() && d.name == name) {
      found = &d;
    }
    if (found != nullptr) break;
  }
  if (found == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_IFDEV, h.tlkh_op, h.tlkh_seq, kRefuser);
    return;
  }
  host_.reply(s, frame(*found, h.tlkh_op, h.tlkh_seq, replies_tlv || f.tlv));
}

// Answers "ifdstats" and "ifdalarm".
void DeviceFamily::answer_raw(Session &s, const Request &req) {
  const auto b = req.bytes;
  const bool stats = req.type == TLK_MSG_IFDSTATS;
  const size_t fixed = stats ? kStatsFixed : kAlarmFixed;
  if (b.size() < fixed) return;  // too short to read: dropped
  const uint16_t index = wire::u16_at(b, stats ? 26 : 24);
  const std::string name =
      stats ? raw_name(b, kStatsFixed, b[31]) : raw_name(b, kAlarmFixed, wire::u16_at(b, 36));
  auto it = std::find_if(devices.begin(), devices.end(), [&](const Device &x) {
    return index != 0 ? x.index == index : (!name.empty() && x.name == name);
  });
  const bool clear = stats && req.op == TLK_OP_CLEAR;
  if (it == devices.end()) {
    if (!clear) host_.refuse_not_found(s, req.type, req.op, req.seq, kRefuser);
    return;
  }
  if (clear) {
    it->in_packets = it->out_packets = 0;
    return;
  }
  Bytes reply(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(fixed));
  if (stats) {
    reply.resize(fixed + 16);
    memcpy(&reply[fixed], &it->in_packets, 8);
    memcpy(&reply[fixed + 8], &it->out_packets, 8);
  } else {
    reply.resize(fixed + 4);
    wire::store_u32(&reply[fixed], it->alarms);
  }
  wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
  const uint16_t stat_flags = stats ? wire::u16_at(b, 58) : 0;
  if ((stat_flags & (128 | 64)) != 0) {
    // An asynchronous read: the answer is a notification of the asking session's stream.
    host_.notify_session(s, reply);
    return;
  }
  host_.reply_with_seq(s, reply, req.seq);
}

namespace {
const FamilySlot<DeviceFamily> kDevices("devices");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

Devices Kernel::devices() {
  return Devices(&internal::kDevices.in(*impl_));
}
const Devices Kernel::devices() const {
  return Devices(&internal::kDevices.in(*impl_));
}

void Devices::add(const Device &d) {
  family_->add(d);
}
void Devices::clear() {
  family_->devices.clear();
}
const std::vector<Device> &Devices::list() const {
  return family_->devices;
}
const Device *Devices::find(uint16_t index) const {
  return family_->find(index);
}
const Device *Devices::find_name(const char *name) const {
  return name == nullptr ? nullptr : family_->find(std::string(name));
}

bool Devices::change_flags(uint16_t index, uint32_t set, uint32_t clear) {
  return family_->change_flags(index, set, clear);
}

bool Devices::set_link(const char *name, bool up) {
  const Device *d = find_name(name);
  if (d == nullptr) return false;
  return family_->change_flags(d->index, up ? internal::kIffUp : 0, up ? 0 : internal::kIffUp);
}

bool Devices::set_counters(uint16_t index, uint64_t in, uint64_t out, uint32_t alarms) {
  Device *d = family_->find(index);
  if (d == nullptr) return false;
  d->in_packets = in;
  d->out_packets = out;
  d->alarms = alarms;
  return true;
}

void Devices::set_product_model(uint16_t model) {
  family_->product = std::array<uint16_t, 2>{0, model};
}
void Devices::clear_product_model() {
  family_->product.reset();
}
void Devices::set_varn(bool on) {
  family_->varn = on;
}
bool Devices::varn() const {
  return family_->varn;
}
void Devices::set_replies_tlv(bool on) {
  family_->replies_tlv = on;
}

Bytes Devices::frame(const Device &d, uint8_t op, uint32_t seq, bool tlv) const {
  return family_->frame(d, op, seq, tlv);
}

}  // namespace tarsim
