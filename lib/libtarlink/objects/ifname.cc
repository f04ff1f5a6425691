// Name and index helpers: the standard if_* names over the router's logical interfaces, and the
// ifl_* conversions, send-interface binding and subset bits.
//
// Where the session comes from is the only real difference between them:
//   if_session          the if_* names; opened on first use (a failed open is retried on the
//                       next call) and never closed;
//   ifl_cache_session   ifl_getindexbyifname_cachesocket; closed after a failed read, so that
//                       the next call starts on a fresh socket;
//   a private session   every other ifl_* helper: opened and closed within the call.
// All of them are opened with sender id 3.
//
// These are exported under the C library's own names.  A program linked with libtarlink resolves
// them here (the library precedes the C library on the link line, and the shared library exports
// them); a program that doesn't link it keeps the C library's.
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "objects/request.h"
#include "platform/platform.h"
#include "tarlink.h"
#include "tarlink/ifname.h"

namespace {

constexpr uint32_t kSenderHelpers = 3;
constexpr size_t kIfNameLen = 60;   // a logical interface name may have 60 characters
constexpr size_t kNameBuffer = 60;  // what if_indextoname writes, end byte included
constexpr uint32_t kPointChange = 16;
constexpr uint32_t kSubsetSelector = 225;  // if_subset_iif_params
constexpr uint32_t kMaxSubset = 15;
// The router stack's send-interface options.
constexpr int kLevelIp = 0, kIpSendIf = 107;
constexpr int kLevelIpv6 = 41, kIpv6SendIf = 64;
constexpr uint8_t kAfInet = 2, kAfInet6 = 28;

tarvik_cookie *if_session = nullptr;
tarvik_cookie *ifl_cache_session = nullptr;

// A decoded ifl_msg reply, released with its session's release when the holder goes.
class IflReply {
 public:
  explicit IflReply(tarvik_cookie *session) : session_(session) {}
  ~IflReply() { release(); }
  IflReply(const IflReply &) = delete;
  IflReply &operator=(const IflReply &) = delete;
  void **out() { return &msg_; }
  void **mask() { return &mask_; }
  const ifl_msg *get() const { return static_cast<const ifl_msg *>(msg_); }
  void release() {
    tarvik_msg_idl_release(session_, msg_, mask_);
    msg_ = mask_ = nullptr;
  }

 private:
  tarvik_cookie *session_;
  void *msg_ = nullptr;
  void *mask_ = nullptr;
};

// A session of its own for one call, closed when the holder goes.
class PrivateSession {
 public:
  PrivateSession() : cookie_(tarvik_open(kSenderHelpers)) {}
  ~PrivateSession() { close(); }
  PrivateSession(const PrivateSession &) = delete;
  PrivateSession &operator=(const PrivateSession &) = delete;
  explicit operator bool() const { return cookie_ != nullptr; }
  tarvik_cookie *get() const { return cookie_; }
  // Lets go of the session without closing it.
  void abandon() { cookie_ = nullptr; }
  void close() {
    if (cookie_ != nullptr) tarvik_close(cookie_);
    cookie_ = nullptr;
  }

 private:
  tarvik_cookie *cookie_;
};

// The shared session of the if_* names, opened if it isn't yet.
tarvik_cookie *shared_session() {
  if (if_session == nullptr) if_session = tarvik_open(kSenderHelpers);
  return if_session;
}

// The device name in a reply, as a string (the record's length counts the end byte).
const char *device_of(const ifl_msg *m, char (&buf)[kIfNameLen + 1]) {
  size_t n = 0;
  if (m->iflm_name != nullptr) {
    n = strnlen(reinterpret_cast<const char *>(m->iflm_name), m->iflm_name_len);
    if (n > kIfNameLen) n = kIfNameLen;
    memcpy(buf, m->iflm_name, n);
  }
  buf[n] = 0;
  return buf;
}

// "device.unit" of a reply into `buffer`, cut to `size` with its end byte, as snprintf cuts.
void format_name(const ifl_msg *m, char *buffer, size_t size) {
  char dev[kIfNameLen + 1];
  char whole[kIfNameLen + 16];
  snprintf(whole, sizeof whole, "%s.%u", device_of(m, dev), m->iflm_unit);
  if (size == 0) return;
  const size_t n = strnlen(whole, size - 1);
  memcpy(buffer, whole, n);
  buffer[n] = 0;
}

// A logical interface name split at its last point: the device and the unit (0 without a point,
// and 0 for a unit that strtoul saturates).
struct SplitName {
  char device[kIfNameLen + 1];
  uint32_t unit;
};
SplitName split(const char *name) {
  SplitName s{};
  strncpy(s.device, name, kIfNameLen);
  char *point = strrchr(s.device, '.');
  if (point != nullptr) {
    *point = 0;
    const unsigned long u = strtoul(point + 1, nullptr, 10);
    s.unit = u == ULONG_MAX ? 0 : static_cast<uint32_t>(u);
  }
  return s;
}

// Reads "device.unit" on `session` into `reply`; the read's result.
int read_by_name(tarvik_cookie *session, const char *name, IflReply &reply) {
  const SplitName s = split(name);
  return tarvik_iflm_get_by_name(session, s.device, s.unit, TLK_OP_GET, reply.out(), reply.mask());
}

bool name_acceptable(const char *name, bool empty_ok) {
  if (name == nullptr) return false;
  const size_t n = strnlen(name, kIfNameLen + 1);
  return n <= kIfNameLen && (empty_ok || n > 0);
}

// A field of the logical interface "device.unit", read on a private session: -1 with errno at
// the failure.
template <typename Field>
int field_by_name(const char *name, Field field) {
  if (!name_acceptable(name, false)) {
    errno = EINVAL;
    return -1;
  }
  PrivateSession session;
  if (!session) return -1;
  IflReply reply(session.get());
  const int err = read_by_name(session.get(), name, reply);
  if (err != 0) {
    errno = err;
    return -1;
  }
  return static_cast<int>(field(*reply.get()));
}

// A field of the logical interface with this index (by_snmp: this SNMP id), on a private session.
template <typename Field>
int field_by_index(uint32_t key, bool by_snmp, Field field) {
  PrivateSession session;
  if (!session) return -1;
  IflReply reply(session.get());
  const int err =
      by_snmp
          ? tarvik_iflm_get_by_snmp_index(session.get(), key, TLK_OP_GET, reply.out(), reply.mask())
          : tarvik_iflm_get_by_index(session.get(), key, TLK_OP_GET, reply.out(), reply.mask());
  if (err != 0) {
    errno = err;
    return -1;
  }
  return static_cast<int>(field(*reply.get()));
}

int index_of(const ifl_msg &m) {
  return static_cast<int>(m.iflm_index.idx);
}

}  // namespace

extern "C" {

// ---- The standard names ----

// The reply is not released: the index is all that is taken from it, and the contract leaves
// the message allocated.
TLK_EXPORT unsigned int if_nametoindex(const char *name) TLK_IFNAME_NOTHROW {
  tarvik_cookie *session = name != nullptr ? shared_session() : nullptr;
  void *reply = nullptr;
  if (session == nullptr ||
      tarvik_iflm_get_by_name(session, name, 0, TLK_OP_GET, &reply, nullptr) != 0) {
    errno = ENXIO;
    return 0;
  }
  return static_cast<const ifl_msg *>(reply)->iflm_index.idx;
}

TLK_EXPORT char *if_indextoname(unsigned int index, char *buffer) TLK_IFNAME_NOTHROW {
  tarvik_cookie *session = buffer != nullptr ? shared_session() : nullptr;
  void *reply = nullptr;
  if (session == nullptr ||
      tarvik_iflm_get_by_index(session, index, TLK_OP_GET, &reply, nullptr) != 0) {
    errno = ENXIO;
    return nullptr;
  }
  format_name(static_cast<const ifl_msg *>(reply), buffer, kNameBuffer);
  return buffer;
}

// The list stays allocated: the names point into its messages.
TLK_EXPORT struct if_nameindex *if_nameindex(void) TLK_IFNAME_NOTHROW {
  tarvik_cookie *session = shared_session();
  tarvik_msg_list_t *list = nullptr;
  if (session == nullptr || tarvik_ifxm_get_all(session, &list, 2) != 0 || list == nullptr)
    return nullptr;
  const size_t count = list->count;
  auto *pairs = static_cast<struct if_nameindex *>(
      tarvik_malloc(MEMID_TARVIK_NAMEINDEX, (count + 1) * sizeof(struct if_nameindex)));
  if (pairs == nullptr) {
    tarvik_msg_list_free(session, list);
    return nullptr;
  }
  for (size_t i = 0; i < count; ++i) {
    const auto *m = static_cast<const ifl_msg *>(list->msgs[i]);
    pairs[i].if_index = m->iflm_index.idx;
    pairs[i].if_name = reinterpret_cast<char *>(m->iflm_name);
  }
  pairs[count].if_index = 0;
  pairs[count].if_name = nullptr;
  return pairs;
}

// ---- Conversions ----

TLK_EXPORT int ifl_get_device_name(const char *name, char *buffer, size_t size, int *unit) {
  if (strlen(name) > size) return -1;
  snprintf(buffer, size, "%s", name);
  char *point = strrchr(buffer, '.');
  if (point == nullptr) {
    if (unit != nullptr) *unit = -1;
    return 0;
  }
  *point = 0;
  if (unit != nullptr) *unit = static_cast<int>(strtoul(point + 1, nullptr, 10));
  return 0;
}

TLK_EXPORT int ifl_getindexbyifname(const char *name) {
  return field_by_name(name, index_of);
}

TLK_EXPORT int ifl_getindexbyifname_cachesocket(const char *name) {
  if (!name_acceptable(name, true)) {
    errno = EINVAL;
    return -1;
  }
  if (ifl_cache_session == nullptr) ifl_cache_session = tarvik_open(kSenderHelpers);
  if (ifl_cache_session == nullptr) return -1;
  IflReply reply(ifl_cache_session);
  const int err = read_by_name(ifl_cache_session, name, reply);
  if (err != 0) {
    // A broken session is dropped: the next call opens a fresh one.
    reply.release();
    tarvik_close(ifl_cache_session);
    ifl_cache_session = nullptr;
    errno = err;
    return -1;
  }
  return index_of(*reply.get());
}

TLK_EXPORT int ifl_gettenantidbyifname(const char *name) {
  return field_by_name(name, [](const ifl_msg &m) { return m.iflm_tenant; });
}

TLK_EXPORT int ifl_getindexbysnmpifindex(uint32_t snmp_id) {
  return field_by_index(snmp_id, true, index_of);
}

TLK_EXPORT int ifl_getnamebyifindex(uint32_t index, char *buffer, size_t size) {
  PrivateSession session;
  if (!session) return -1;
  IflReply reply(session.get());
  const int err =
      tarvik_iflm_get_by_index(session.get(), index, TLK_OP_GET, reply.out(), reply.mask());
  if (err != 0) {
    errno = err;
    return -1;
  }
  format_name(reply.get(), buffer, size);
  return 0;
}

TLK_EXPORT int ifl_getnamebysnmpifindex(uint32_t snmp_id, char *buffer, size_t size) {
  const int index = ifl_getindexbysnmpifindex(snmp_id);
  if (index == -1) return -1;
  return ifl_getnamebyifindex(static_cast<uint32_t>(index), buffer, size);
}

TLK_EXPORT int ifl_getlrindexbyifindex(uint32_t index) {
  return field_by_index(index, false, [](const ifl_msg &m) { return m.iflm_lr; });
}

TLK_EXPORT int ifl_getlrindexbyifname(const char *name) {
  const int index = ifl_getindexbyifname(name);
  if (index == -1) return -1;
  return ifl_getlrindexbyifindex(static_cast<uint32_t>(index));
}

TLK_EXPORT int ifl_get_underlying_device_byifindex(uint32_t index, char *buffer, size_t size) {
  PrivateSession session;
  if (!session) return -1;
  while (index != 0) {
    IflReply reply(session.get());
    const int err =
        tarvik_iflm_get_by_index(session.get(), index, TLK_OP_GET, reply.out(), reply.mask());
    if (err != 0) {
      errno = err;
      return -1;
    }
    // A read that succeeds without a message leaves the session open: the contract says so.
    if (reply.get() == nullptr) {
      session.abandon();
      return -1;
    }
    if (reply.get()->iflm_uidx.idx == 0) {
      char dev[kIfNameLen + 1];
      snprintf(buffer, size, "%s", device_of(reply.get(), dev));
      return 0;
    }
    index = reply.get()->iflm_uidx.idx;
  }
  return 0;
}

// ---- Send interface ----

TLK_EXPORT int ifl_setsendifbyifindex(int socket, uint32_t index) {
  const tlk_platform &ops = tlk::platform::ops();
  uint8_t addr[16] = {};
  socklen_t len = sizeof addr;
  if (ops.getsockname == nullptr || ops.getsockname(socket, addr, &len) != 0 || len == 0) {
    errno = EPROTONOSUPPORT;
    return -1;
  }
  if (ops.setsockopt_ip != nullptr && addr[1] == kAfInet6)
    return ops.setsockopt_ip(socket, kLevelIpv6, kIpv6SendIf, &index, sizeof index);
  if (ops.setsockopt_ip != nullptr && addr[1] == kAfInet)
    return ops.setsockopt_ip(socket, kLevelIp, kIpSendIf, &index, sizeof index);
  errno = EPROTONOSUPPORT;
  return -1;
}

TLK_EXPORT int ifl_setsendifbyifname(int socket, const char *name) {
  const int index = ifl_getindexbyifname(name);
  if (index == -1) return -1;
  return ifl_setsendifbyifindex(socket, static_cast<uint32_t>(index));
}

TLK_EXPORT int ifl_setsendifbysnmpifindex(int socket, uint32_t snmp_id) {
  const int index = ifl_getindexbysnmpifindex(snmp_id);
  if (index == -1) return -1;
  return ifl_setsendifbyifindex(socket, static_cast<uint32_t>(index));
}

// ---- Subset bits ----

TLK_EXPORT int ifl_set_subset_iif(uint32_t index, uint32_t subset, uint32_t state) {
  if (subset > kMaxSubset) return EINVAL;
  PrivateSession session;
  if (!session) return -1;
  // A point change that nothing answers: no sequence number.
  tlk::request::Request<ifl_msg> req(session.get(), TLK_MSG_IFLOGICAL, TLK_OP_CHANGE,
                                     tlk::request::Seq::kZero);
  if (!req) return ENOMEM;
  req->iflm_change = kPointChange;
  req->iflm_index.idx = index;
  // The pointer slots behind the fixed record, then the attachment, its two data bytes inline.
  auto *cursor = reinterpret_cast<uint8_t *>(
      (reinterpret_cast<uintptr_t>(req.variable_area()) + 7) & ~uintptr_t{7});
  auto *info = reinterpret_cast<tlk_msg_info *>(cursor);
  memset(info, 0, sizeof *info);
  info->tlkmi_type = kSubsetSelector;
  auto *data = reinterpret_cast<uint8_t *>(&info->tlkmi_u);
  data[0] = static_cast<uint8_t>(subset);
  data[1] = static_cast<uint8_t>(state);
  void *slots = cursor + ((sizeof *info + 7) & ~size_t{7});
  const int err = tlkm_info_user_add(req.get(), info, &slots);
  if (err != 0) return err;
  return tlk::request::send(req).code();
}

TLK_EXPORT int ifl_get_subset_iif(uint32_t index, uint32_t subset, int *state) {
  if (subset > kMaxSubset) return EINVAL;
  PrivateSession session;
  if (!session) return -1;
  IflReply reply(session.get());
  const int err = tarvik_iflm_get_by_index(session.get(), index, TLK_OP_GET, reply.out(), nullptr);
  if (err != 0) return err;
  *state = (reply.get()->iflm_subset_mask >> subset) & 1u ? 1 : 0;
  return 0;
}

}  // extern "C"
