// tarsim/devices.hpp - the simulated kernel's physical devices.
//
// Devices start as a small chassis: mgmt0 (1), lo0 (6), ge0 to ge3 (130 to 133), xe0 and xe1
// (140, 141), et0 (150), ae0 and ae1 (160, 161), sonet0 (170), each with a media record, a
// hardware address (not lo0) and, on some, an IPv4 address.  A framed device request ("ifdev",
// type 5) is answered from this store:
// - a get or getnext by index (getnext: the next index), by SNMP id or by name; an unknown key
//   draws the kernel's refusal, a raw "tlk-err" (TlkErr) with final_err ENOENT, which a client's
//   framed read reports as EOPNOTSUPP;
// - an add (op 1) of a free index creates the device from the request (name, flags, media kind
//   and MTU, addresses);
// - a change (op 2) takes the request's flags and device flags (and with ifdm_dinfotype 1 the
//   addresses it carries), or with ifdm_change 0x2000 and bit 0 of ifdm_point_mask ORs
//   ifdm_point_flags into the flags.
// Adds and changes draw no reply: they move the device's generation on and are sent as "ifdev"
// notifications (IDR) to every other listening session.  The system control
// { 4, 17, 0, 0, 3, 1 } reads every device as IDR frames back to back (unless set_sysctl
// installed a value of its own).  The media kind travels in the media record's first field.
//
// Raw device requests: "ifdstats" (type 15) get or getnext by index (offset 26) or by name
// (offset 72) is answered with the request's 72 bytes, the whole length made 88, and the
// device's input and output packet counts as two u64; a clear (op 6) zeroes them, without a
// reply.  With reply flag 128 or 64 in stat_flags (offset 58) the answer comes as a
// notification to the asking session instead, stat_flags and caller's cookie kept.
// "ifdalarm" (type 20) get by index (offset 24) or name (offset 48) is answered with the
// request's 48 bytes and the device's alarm word.  Unknown devices draw the "tlk-err".
#pragma once

#include <stdint.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class DeviceFamily;
}

enum MediaKind : uint16_t {
  kMediaEthernet = 1,
  kMediaSonet = 2,
  kMediaAggregate = 3,
  kMediaLoopback = 4
};

struct Device {
  uint16_t index = 0;
  uint32_t snmp_id = 0;
  std::string name;
  uint32_t flags = 0;  // IFF_UP (0x1) and friends
  uint16_t devflags = 0;
  uint32_t generation = 1;
  uint16_t media = kMediaEthernet;
  uint32_t mtu = 1514;
  std::array<uint8_t, 6> mac{};  // all zero: no hardware address
  uint32_t inet = 0;             // IPv4 address in host order, 0 for none
  uint64_t in_packets = 0, out_packets = 0;
  uint32_t alarms = 0;
};

// The kernel's devices: Kernel::devices().
class TARSIM_EXPORT Devices {
 public:
  // Adds a device, or replaces the one with its index; the kernel tells nobody.
  void add(const Device &d);
  void clear();
  // Every device, in index order.
  const std::vector<Device> &list() const;
  const Device *find(uint16_t index) const;
  const Device *find_name(const char *name) const;
  const Device *find(const std::string &name) const { return find_name(name.c_str()); }

  // Changes a device as the kernel would on its own (a link going down, a flag set by another
  // agent): the flags change, the generation moves on, and every listening session hears it.
  // False for an unknown device.
  bool change_flags(uint16_t index, uint32_t set, uint32_t clear);
  bool set_link(const char *name, bool up);
  bool set_link(const std::string &name, bool up) { return set_link(name.c_str(), up); }
  // The counters that "ifdstats" and "ifdalarm" read.  False for an unknown device.
  bool set_counters(uint16_t index, uint64_t in, uint64_t out, uint32_t alarms);

  // The product record the platform reports (model number in its second u16), or none; the
  // default is model 2.  And whether the platform is of the variant family.
  void set_product_model(uint16_t model);
  void clear_product_model();
  void set_product_model(std::optional<uint16_t> model) {
    if (model) {
      set_product_model(*model);
    } else {
      clear_product_model();
    }
  }
  void set_varn(bool on);
  bool varn() const;

  // Device replies go out in TLV with every field present, whatever the request's encoding.
  void set_replies_tlv(bool on);
  // One device as the kernel sends it: a frame of an ifdev_msg with `op` and `seq`.
  Bytes frame(const Device &d, uint8_t op, uint32_t seq, bool tlv) const;

 private:
  friend class Kernel;
  explicit Devices(internal::DeviceFamily *family) : family_(family) {}
  internal::DeviceFamily *family_;
};

}  // namespace tarsim
