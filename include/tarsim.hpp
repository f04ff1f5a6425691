// tarsim.hpp - an in-process simulated kernel for libtarlink.
//
// The core, tarsim::Kernel (tarsim/kernel.hpp): sessions on socketpairs, socket options, system
// controls, responders, delivery, notifications, bulk mode, faults, waits and the traffic record.
// Then one facet per object family, each reached through the kernel:
//   kernel.devices()   tarsim/devices.hpp   physical devices, counters, the product record
//   kernel.ifls()      tarsim/ifl.hpp       logical interfaces
//   kernel.gencfg()    tarsim/gencfg.hpp    generic configuration blobs
// The C face is tarsim.h.
#pragma once

#include "tarsim/kernel.hpp"
// The facets.
#include "tarsim/devices.hpp"
#include "tarsim/gencfg.hpp"
#include "tarsim/ifl.hpp"

// Old names, kept until the callers move to the facets.
namespace tarsim {
inline void Kernel::add_device(const Device &d) {
  devices().add(d);
}
inline void Kernel::clear_devices() {
  devices().clear();
}
inline const Device *Kernel::find_device(uint16_t index) const {
  return devices().find(index);
}
inline const Device *Kernel::find_device(const std::string &name) const {
  return devices().find(name);
}
inline bool Kernel::change_device_flags(uint16_t index, uint32_t set, uint32_t clear) {
  return devices().change_flags(index, set, clear);
}
inline bool Kernel::set_link(const std::string &name, bool up) {
  return devices().set_link(name, up);
}
inline bool Kernel::set_device_counters(uint16_t index, uint64_t in, uint64_t out,
                                        uint32_t alarms) {
  return devices().set_counters(index, in, out, alarms);
}
inline void Kernel::set_product_model(std::optional<uint16_t> model) {
  devices().set_product_model(model);
}
inline void Kernel::set_platform_varn(bool on) {
  devices().set_varn(on);
}
inline void Kernel::set_device_replies_tlv(bool on) {
  devices().set_replies_tlv(on);
}
inline Bytes Kernel::device_frame(const Device &d, uint8_t op, uint32_t seq, bool tlv) const {
  return devices().frame(d, op, seq, tlv);
}
inline void Kernel::add_ifl(const Ifl &ifl) {
  ifls().add(ifl);
}
inline void Kernel::clear_ifls() {
  ifls().clear();
}
inline const Ifl *Kernel::find_ifl(uint32_t index) const {
  return ifls().find(index);
}
inline GencfgKey Kernel::gencfg_bytes_key(uint16_t major, uint16_t minor,
                                          std::span<const uint8_t> key) {
  return Gencfg::bytes_key(major, minor, key);
}
inline GencfgKey Kernel::gencfg_numeric_key(uint16_t major, uint16_t minor, uint32_t kid) {
  return Gencfg::numeric_key(major, minor, kid);
}
inline const GencfgEntry *Kernel::find_gencfg(const GencfgKey &key) const {
  return gencfg().find(key);
}
inline const std::map<GencfgKey, GencfgEntry> &Kernel::gencfg_store() const {
  return gencfg().store();
}
inline void Kernel::clear_gencfg() {
  gencfg().clear();
}
inline size_t Kernel::gencfg_change(uint8_t op, const GencfgEntry &entry) {
  return gencfg().change(op, entry);
}
}  // namespace tarsim
