// How an object family plugs into the simulated kernel.
//
// The core (kernel.cc and its neighbours) knows no family.  Each family is one class in
// sim/families/<family>.cc, derived from Family and registered with a FamilySlot there; every
// Kernel makes one of each when it starts, handing it the Host below.  In its constructor a
// family seeds its store and claims, through the host, what it answers:
// - frames of its message types, decoded with the library's codecs;
// - raw requests of its types, when no responder of the test's own is set for (type, op);
// - system controls whose value it computes when read (by name or by number);
// - entries of the platform table that it provides.
// It then answers as the real kernel would and tells the host what to send and to whom; listen
// bits, subtypes, filters, sequence numbers, faults and waits are the host's.
//
// A family that has a C++ facet (include/tarsim/<family>.hpp) defines the facet's functions and
// the Kernel accessor in its own source, finding itself with its slot:
//
//   const FamilySlot<RouteFamily> kRoutes("routes");
//   Routes Kernel::routes() { return Routes(&kRoutes.in(*impl_)); }
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <iterator>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim::internal {

// The i-th value of a keyed store in key order, or null: how the facets number a family's
// objects for a test that walks them.
template <class Map>
const typename Map::mapped_type *nth(const Map &m, size_t i) {
  if (i >= m.size()) return nullptr;
  auto it = m.begin();
  std::advance(it, static_cast<std::ptrdiff_t>(i));
  return &it->second;
}

struct Session;
class Core;

// A framed request, decoded.
struct Frame {
  std::span<const uint8_t> bytes;  // the whole frame as written
  uint32_t type;                   // the frame's message type
  const void *record;              // the decoded record, which starts with its tlk_hdr
  bool tlv;                        // the encoding it came in, and the one to answer in

  const tlk_hdr &hdr() const { return *static_cast<const tlk_hdr *>(record); }
  template <class T>
  const T &as() const {
    return *static_cast<const T *>(record);
  }
};

using FrameAnswer = std::function<void(Session &, const Frame &)>;
using RawAnswer = std::function<void(Session &, const Request &)>;
// A read-only system control: its value, made when it is read.  A write is refused (EPERM).
using SysctlValue = std::function<Bytes()>;
using PlatformPatch = std::function<void(tlk_platform &)>;
// Told of each object that a family adds, changes or deletes: the family's message type, the op,
// and the object as the IDR notification frame of the change.
using ObjectWatcher = std::function<void(uint8_t type, uint8_t op, std::span<const uint8_t> frame)>;

// What the core offers a family.
class Host {
 public:
  // --- What the family answers (called from its constructor) -------------------------------
  // One family per message type and per control; a second claim is a programming error and
  // stops the process.
  virtual void answer_frames(uint32_t type, FrameAnswer answer) = 0;
  virtual void answer_raw(uint8_t type, RawAnswer answer) = 0;
  virtual void answer_sysctl(const std::string &name, SysctlValue value) = 0;
  virtual void answer_sysctl(const std::vector<int> &mib, SysctlValue value) = 0;
  // Changes the platform table that the kernel installs (product records and the like).
  virtual void patch_platform(PlatformPatch patch) = 0;

  // --- Services ---------------------------------------------------------------------------
  virtual Session *session(int fd) const = 0;
  virtual size_t open_sessions() const = 0;
  // Queues a reply to the session, the faults of the next reply applied.
  virtual bool reply(Session &s, std::span<const uint8_t> bytes) = 0;
  // The same, after storing `seq` in the raw message's tlkh_seq word.
  virtual bool reply_with_seq(Session &s, std::span<const uint8_t> bytes, uint32_t seq) = 0;
  // The kernel's refusal of a request whose key it doesn't hold: a raw "tlk-err" naming the
  // refused type, op and seq, `function` as the refuser and final_err ENOENT.
  virtual void refuse_not_found(Session &s, uint8_t type, uint8_t op, uint32_t seq,
                                const char *function) = 0;
  // Notifications: see Kernel's section.  `except_fd` is the writer, who has the reply.
  virtual bool has_listener(uint8_t type, int except_fd) const = 0;
  virtual size_t notify(uint8_t type, std::span<const uint8_t> bytes, int except_fd) = 0;
  // One notification on the session's own stream, whatever it listens to.
  virtual bool notify_session(Session &s, std::span<const uint8_t> bytes) = 0;
  // Object changes: a family that changes an object reports it here, whether or not anyone
  // listens for its notifications, and every watcher hears of it (the state log keeps them).
  virtual void watch_objects(ObjectWatcher watcher) = 0;
  virtual void object_changed(uint8_t type, uint8_t op, std::span<const uint8_t> frame) = 0;

 protected:
  ~Host() = default;
};

// One record as a frame in the given encoding (TLV without a map, or IDR).
Bytes encode_frame(uint8_t type, const void *record, bool tlv);

class Family {
 public:
  virtual ~Family() = default;
};

using FamilyMaker = std::unique_ptr<Family> (*)(Host &host);

// Adds a family to those every Kernel makes; its slot in each kernel.  Called at static
// initialisation, through FamilySlot.
size_t register_family(const char *name, FamilyMaker make);
// The families registered so far, in slot order.
struct RegisteredFamily {
  const char *name;
  FamilyMaker make;
};
const std::vector<RegisteredFamily> &registered_families();
// The family that `core` made for `slot`.
Family &family_in(Core &core, size_t slot);

// Registers F (constructed from a Host &) and finds it in a kernel.
template <class F>
class FamilySlot {
 public:
  explicit FamilySlot(const char *name) : slot_(register_family(name, &make)) {}
  F &in(Core &core) const { return static_cast<F &>(family_in(core, slot_)); }

 private:
  static std::unique_ptr<Family> make(Host &host) { return std::make_unique<F>(host); }
  size_t slot_;
};

}  // namespace tarsim::internal
