// The simulator's C face: a thin wrapper over tarsim::Kernel and its facets.
#include "tarsim.h"

#include <new>

#include "tarsim.hpp"

struct tarsim_kernel {
  tarsim::Kernel kernel;
};

namespace {

int result(bool ok) {
  return ok ? 0 : -1;
}

const uint8_t *bytes_of(const void *p) {
  return static_cast<const uint8_t *>(p);
}

// A byte key of the generic configuration store.
tarsim::GencfgKey gencfg_key(uint16_t major, uint16_t minor, const void *key, size_t length) {
  return tarsim::Gencfg::bytes_key(major, minor, {bytes_of(key), length});
}

}  // namespace

extern "C" {

tarsim_kernel *tarsim_start(void) {
  return new (std::nothrow) tarsim_kernel();
}

void tarsim_stop(tarsim_kernel *kernel) {
  delete kernel;
}

// --- Answers, deliveries and notifications --------------------------------------------------

int tarsim_reply_raw(tarsim_kernel *kernel, uint8_t type, uint8_t op, const void *reply,
                     size_t length) {
  if (kernel == nullptr || (reply == nullptr && length != 0)) return -1;
  kernel->kernel.reply_raw(type, op, reply, length);
  return 0;
}

int tarsim_no_reply(tarsim_kernel *kernel, uint8_t type, uint8_t op) {
  if (kernel == nullptr) return -1;
  kernel->kernel.no_reply(type, op);
  return 0;
}

int tarsim_send(tarsim_kernel *kernel, int fd, const void *bytes, size_t length) {
  if (kernel == nullptr || (bytes == nullptr && length != 0)) return -1;
  return result(kernel->kernel.send(fd, bytes, length));
}

int tarsim_push(tarsim_kernel *kernel, int fd, const void *bytes, size_t length) {
  if (kernel == nullptr || (bytes == nullptr && length != 0)) return -1;
  return result(kernel->kernel.push(fd, bytes, length));
}

int tarsim_notify(tarsim_kernel *kernel, uint8_t type, const void *bytes, size_t length) {
  if (kernel == nullptr || (bytes == nullptr && length != 0)) return -1;
  return static_cast<int>(kernel->kernel.notify(type, bytes, length, -1));
}

// --- System controls ----------------------------------------------------------------------

int tarsim_set_sysctl(tarsim_kernel *kernel, const char *name, const void *value, size_t length) {
  if (kernel == nullptr || name == nullptr || (value == nullptr && length != 0)) return -1;
  kernel->kernel.set_sysctl(name, value, length);
  return 0;
}

int tarsim_set_sysctl_u32(tarsim_kernel *kernel, const char *name, uint32_t value) {
  if (kernel == nullptr || name == nullptr) return -1;
  kernel->kernel.set_sysctl_u32(name, value);
  return 0;
}

int tarsim_set_sysctl_mib(tarsim_kernel *kernel, const int *mib, size_t count, const void *value,
                          size_t length) {
  if (kernel == nullptr || mib == nullptr || count == 0 || (value == nullptr && length != 0)) {
    return -1;
  }
  kernel->kernel.set_sysctl(mib, count, value, length);
  return 0;
}

int tarsim_erase_sysctl(tarsim_kernel *kernel, const char *name) {
  if (kernel == nullptr || name == nullptr) return -1;
  kernel->kernel.erase_sysctl(name);
  return 0;
}

// --- Devices ------------------------------------------------------------------------------

int tarsim_device_add(tarsim_kernel *kernel, uint16_t index, const char *name, uint32_t flags,
                      uint16_t media, uint32_t mtu) {
  if (kernel == nullptr || name == nullptr || index == 0) return -1;
  tarsim::Device d;
  d.index = index;
  d.snmp_id = 500u + index;
  d.name = name;
  d.flags = flags;
  d.media = media;
  d.mtu = mtu;
  kernel->kernel.devices().add(d);
  return 0;
}

int tarsim_device_set_link(tarsim_kernel *kernel, const char *name, int up) {
  if (kernel == nullptr || name == nullptr) return -1;
  return result(kernel->kernel.devices().set_link(name, up != 0));
}

int tarsim_device_change_flags(tarsim_kernel *kernel, uint16_t index, uint32_t set,
                               uint32_t clear) {
  if (kernel == nullptr) return -1;
  return result(kernel->kernel.devices().change_flags(index, set, clear));
}

int tarsim_device_set_counters(tarsim_kernel *kernel, uint16_t index, uint64_t in_packets,
                               uint64_t out_packets, uint32_t alarms) {
  if (kernel == nullptr) return -1;
  return result(kernel->kernel.devices().set_counters(index, in_packets, out_packets, alarms));
}

int tarsim_device_flags(tarsim_kernel *kernel, uint16_t index, uint32_t *flags) {
  if (kernel == nullptr || flags == nullptr) return -1;
  const tarsim::Device *d = kernel->kernel.devices().find(index);
  if (d == nullptr) return -1;
  *flags = d->flags;
  return 0;
}

int64_t tarsim_device_count(tarsim_kernel *kernel) {
  if (kernel == nullptr) return -1;
  return static_cast<int64_t>(kernel->kernel.devices().list().size());
}

// --- Logical interfaces -------------------------------------------------------------------

int tarsim_ifl_add(tarsim_kernel *kernel, uint32_t index, const char *device, uint16_t devidx,
                   uint32_t unit, uint32_t flags) {
  if (kernel == nullptr || device == nullptr || index == 0) return -1;
  tarsim::Ifl ifl;
  ifl.index = index;
  ifl.snmp_id = 500u + index;
  ifl.devidx = devidx;
  ifl.unit = unit;
  ifl.device = device;
  ifl.flags = flags;
  ifl.generation = 1;
  kernel->kernel.ifls().add(ifl);
  return 0;
}

int64_t tarsim_ifl_count(tarsim_kernel *kernel) {
  if (kernel == nullptr) return -1;
  return static_cast<int64_t>(kernel->kernel.ifls().list().size());
}

// --- Generic configuration ----------------------------------------------------------------

int tarsim_gencfg_store(tarsim_kernel *kernel, uint16_t major, uint16_t minor, const void *key,
                        size_t key_length, const void *blob, size_t blob_length) {
  if (kernel == nullptr || (key == nullptr && key_length != 0) ||
      (blob == nullptr && blob_length != 0)) {
    return -1;
  }
  tarsim::GencfgEntry e;
  e.id = gencfg_key(major, minor, key, key_length);
  e.flags = TLK_GENCFG_KEY;
  e.blob.assign(bytes_of(blob), bytes_of(blob) + blob_length);
  return static_cast<int>(kernel->kernel.gencfg().change(TLK_OP_ADD, e));
}

int tarsim_gencfg_delete(tarsim_kernel *kernel, uint16_t major, uint16_t minor, const void *key,
                         size_t key_length) {
  if (kernel == nullptr || (key == nullptr && key_length != 0)) return -1;
  const tarsim::GencfgEntry *stored =
      kernel->kernel.gencfg().find(gencfg_key(major, minor, key, key_length));
  if (stored == nullptr) return -1;
  const tarsim::GencfgEntry gone = *stored;
  return static_cast<int>(kernel->kernel.gencfg().change(TLK_OP_DELETE, gone));
}

int tarsim_gencfg_find(tarsim_kernel *kernel, uint16_t major, uint16_t minor, const void *key,
                       size_t key_length, const void **blob, size_t *length) {
  if (kernel == nullptr || (key == nullptr && key_length != 0)) return -1;
  const tarsim::GencfgEntry *stored =
      kernel->kernel.gencfg().find(gencfg_key(major, minor, key, key_length));
  if (stored == nullptr) return -1;
  if (blob != nullptr) *blob = stored->blob.data();
  if (length != nullptr) *length = stored->blob.size();
  return 0;
}

int64_t tarsim_gencfg_count(tarsim_kernel *kernel) {
  if (kernel == nullptr) return -1;
  return static_cast<int64_t>(kernel->kernel.gencfg().size());
}

// --- Faults -------------------------------------------------------------------------------

int tarsim_fail_socket(tarsim_kernel *kernel, int err) {
  if (kernel == nullptr || err <= 0) return -1;
  kernel->kernel.fail_socket(err);
  return 0;
}

int tarsim_fail_option(tarsim_kernel *kernel, int level, int name, int err) {
  if (kernel == nullptr || err <= 0) return -1;
  kernel->kernel.fail_option(level, name, err);
  return 0;
}

int tarsim_clear_option_failure(tarsim_kernel *kernel, int level, int name) {
  if (kernel == nullptr) return -1;
  kernel->kernel.clear_option_failure(level, name);
  return 0;
}

int tarsim_inject_write_errno(tarsim_kernel *kernel, int err) {
  if (kernel == nullptr || err <= 0) return -1;
  kernel->kernel.inject_write_errno(err);
  return 0;
}

int tarsim_inject_read_errno(tarsim_kernel *kernel, int err, unsigned after) {
  if (kernel == nullptr || err <= 0) return -1;
  kernel->kernel.inject_read_errno(err, after);
  return 0;
}

int tarsim_inject_short_write(tarsim_kernel *kernel, size_t count) {
  if (kernel == nullptr) return -1;
  kernel->kernel.inject_short_write(count);
  return 0;
}

int tarsim_inject_reply_truncate(tarsim_kernel *kernel, size_t bytes) {
  if (kernel == nullptr) return -1;
  kernel->kernel.inject_reply_truncate(bytes);
  return 0;
}

int tarsim_inject_reply_extra(tarsim_kernel *kernel, size_t bytes) {
  if (kernel == nullptr) return -1;
  kernel->kernel.inject_reply_extra(bytes);
  return 0;
}

int tarsim_inject_wrong_seq(tarsim_kernel *kernel, uint32_t delta) {
  if (kernel == nullptr) return -1;
  kernel->kernel.inject_wrong_seq(delta);
  return 0;
}

int tarsim_clear_faults(tarsim_kernel *kernel) {
  if (kernel == nullptr) return -1;
  kernel->kernel.clear_faults();
  return 0;
}

// --- Waits --------------------------------------------------------------------------------

int tarsim_hold_replies(tarsim_kernel *kernel, int fd, unsigned waits) {
  if (kernel == nullptr) return -1;
  return result(kernel->kernel.hold_replies(fd, waits));
}

int64_t tarsim_waits(tarsim_kernel *kernel, int fd) {
  if (kernel == nullptr || !kernel->kernel.has_session(fd)) return -1;
  return static_cast<int64_t>(kernel->kernel.waits(fd));
}

// --- Traffic record -----------------------------------------------------------------------

int tarsim_record(tarsim_kernel *kernel, int on) {
  if (kernel == nullptr) return -1;
  kernel->kernel.record(on != 0);
  return 0;
}

int64_t tarsim_recorded_count(tarsim_kernel *kernel) {
  if (kernel == nullptr) return -1;
  return static_cast<int64_t>(kernel->kernel.recorded().size());
}

int tarsim_recorded(tarsim_kernel *kernel, size_t index, int *session, int *to_kernel,
                    const void **bytes, size_t *length) {
  if (kernel == nullptr || index >= kernel->kernel.recorded().size()) return -1;
  const tarsim::Recorded &r = kernel->kernel.recorded()[index];
  if (session != nullptr) *session = r.session;
  if (to_kernel != nullptr) *to_kernel = r.to_kernel ? 1 : 0;
  if (bytes != nullptr) *bytes = r.bytes.data();
  if (length != nullptr) *length = r.bytes.size();
  return 0;
}

int tarsim_clear_recorded(tarsim_kernel *kernel) {
  if (kernel == nullptr) return -1;
  kernel->kernel.clear_recorded();
  return 0;
}

int tarsim_save_record(tarsim_kernel *kernel, const char *path) {
  if (kernel == nullptr || path == nullptr) return -1;
  return kernel->kernel.save_record(path);
}

}  // extern "C"
