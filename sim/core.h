// The simulated kernel's own state, behind tarsim::Kernel: the core that knows sessions, the
// seam, options, system controls, delivery, notifications, bulk mode, faults, waits and the
// record, and dispatches requests to the families by type.  Kernel's functions work on it
// directly; families see it only as a Host (family.h).
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "family.h"
#include "session.h"
#include "tarsim/kernel.hpp"

namespace tarsim::internal {

// A callback of the API's plain form, owning its context: released when replaced or dropped.
template <class Fn>
class Callback {
 public:
  Callback() = default;
  Callback(Fn call, void *context, ReleaseCallback release)
      : call_(call), context_(context), release_(release) {}
  Callback(Callback &&o) noexcept : call_(o.call_), context_(o.context_), release_(o.release_) {
    o.call_ = nullptr;
    o.release_ = nullptr;
  }
  Callback &operator=(Callback &&o) noexcept {
    if (this != &o) {
      reset();
      call_ = o.call_;
      context_ = o.context_;
      release_ = o.release_;
      o.call_ = nullptr;
      o.release_ = nullptr;
    }
    return *this;
  }
  Callback(const Callback &) = delete;
  Callback &operator=(const Callback &) = delete;
  ~Callback() { reset(); }

  explicit operator bool() const { return call_ != nullptr; }
  template <class... Args>
  void operator()(Args &&...args) const {
    call_(context_, std::forward<Args>(args)...);
  }

 private:
  void reset() {
    if (release_ != nullptr) release_(context_);
    call_ = nullptr;
    context_ = nullptr;
    release_ = nullptr;
  }
  Fn call_ = nullptr;
  void *context_ = nullptr;
  ReleaseCallback release_ = nullptr;
};

// Faults armed by the Kernel's inject_* and fail_* calls.
struct Faults {
  std::map<std::pair<int, int>, int> options;  // (level, name) -> errno, until cleared
  std::map<int, int> fcntl;                    // cmd -> errno, once
  int socket = 0;
  int write_errno = 0;
  std::optional<size_t> short_write;
  int read_errno = 0;
  unsigned read_errno_after = 0;
  std::optional<size_t> reply_truncate;
  std::optional<size_t> reply_extra;
  std::optional<uint32_t> wrong_seq;
  struct BulkStop {
    unsigned after;
    int err;
    bool report_err;
  };
  std::optional<BulkStop> bulk_stop;
  int bulk_reply = 0;  // +1: one reply too many, -1: one too few
};

// A session's notification stream (notify.cc).
struct NotifyState {
  Bytes queued;               // notifications waiting for flush, back to back
  std::vector<size_t> ends;   // where each of them ends in `queued`
  uint64_t listen_stamp = 0;  // when option 1 was last set (0: never)
  uint64_t filter_stamp = 0;  // when option 10 was last set
  // The listen mask as options 1 and 10 give it, kept from the first broadcast after either
  // was last set: every change asks for it.
  mutable bool mask_known = false;
  mutable std::pair<uint32_t, uint32_t> mask{0, 0};
  uint64_t sent = 0;
  uint64_t reads = 0;
};

// Whether this process's routing sockets go to a tarsimd (remote.cc).
bool remote_link_active();

class Core final : public Host {
 public:
  explicit Core(Kernel &kernel);
  ~Core();
  Core(const Core &) = delete;
  Core &operator=(const Core &) = delete;

  // The active kernel's core, for the seam's entries; null when none.
  static Core *active();

  // --- Host -------------------------------------------------------------------------------
  void answer_frames(uint32_t type, FrameAnswer answer) override;
  void answer_raw(uint8_t type, RawAnswer answer) override;
  void answer_sysctl(const std::string &name, SysctlValue value) override;
  void answer_sysctl(const std::vector<int> &mib, SysctlValue value) override;
  void patch_platform(PlatformPatch patch) override;
  Session *session(int fd) const override { return find(fd); }
  size_t open_sessions() const override;
  bool reply(Session &s, std::span<const uint8_t> bytes) override;
  bool reply_with_seq(Session &s, std::span<const uint8_t> bytes, uint32_t seq) override;
  void refuse_not_found(Session &s, uint8_t type, uint8_t op, uint32_t seq,
                        const char *function) override;
  bool has_listener(uint8_t type, int except_fd) const override;
  size_t notify(uint8_t type, std::span<const uint8_t> bytes, int except_fd) override;
  bool notify_session(Session &s, std::span<const uint8_t> bytes) override;
  void watch_objects(ObjectWatcher watcher) override {
    object_watchers.push_back(std::move(watcher));
  }
  void object_changed(uint8_t type, uint8_t op, std::span<const uint8_t> frame) override {
    for (const ObjectWatcher &w : object_watchers) w(type, op, frame);
  }

  // --- Sessions and the seam (kernel.cc) --------------------------------------------------
  Session *find(int fd) const;
  int open_session();
  void close_session(int fd);
  ssize_t read_session(Session &s, void *buf, size_t len);
  ssize_t take_write(Session &s, const uint8_t *buf, size_t len);
  void take_message(Session &s, std::span<const uint8_t> msg);
  void answer_frame(Session &s, std::span<const uint8_t> frame);
  int get_option(Session &s, int level, int name, void *value, socklen_t *len);
  int set_option(Session &s, int level, int name, const void *value, socklen_t len);
  std::optional<Bytes> option(int fd, int level, int name) const;
  std::optional<uint32_t> option_u32(int fd, int level, int name) const;
  int fcntl_fault(int cmd);
  int sysctl_by_name(const char *name, void *oldp, size_t *oldlenp, const void *newp,
                     size_t newlen);
  int sysctl_by_mib(const int *mib, unsigned len, void *oldp, size_t *oldlenp, const void *newp,
                    size_t newlen);
  void charge_system_call(const void *buf, size_t len);
  // Queues bytes to the session: into the bulk write's collection, kept back for waits, or
  // onto the socket.
  bool deliver(Session &s, std::span<const uint8_t> bytes, bool apply_faults);
  // Onto the socket now: one message.
  bool send_message(Session &s, std::span<const uint8_t> bytes);
  void note(int fd, bool to_kernel, std::span<const uint8_t> bytes);

  // --- Waits (waits.cc) -------------------------------------------------------------------
  bool hold(Session &s, unsigned waits);
  void count_waits(Session &s, uint64_t n);
  void release_held(Session &s);
  int select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds, timeval *timeout);
  int usleep(unsigned usec);

  // --- Notifications (notify.cc) ----------------------------------------------------------
  std::pair<uint32_t, uint32_t> listen_mask(int fd) const;       // kept per session
  std::pair<uint32_t, uint32_t> read_listen_mask(int fd) const;  // from the options
  bool notify_session(int fd, std::span<const uint8_t> bytes);
  size_t flush();
  void notify_after_write(int fd, std::span<const uint8_t> bytes);
  void notify_option_set(int fd, int level, int name);
  void notify_forget(int fd);

  // --- Bulk mode (bulk.cc) ----------------------------------------------------------------
  bool bulk_mode(const Session &s) const;
  ssize_t take_bulk_write(Session &s, const uint8_t *buf, size_t len);
  void send_packed(Session &s, std::vector<Bytes> &replies);
  bool send_block(Session &s, std::span<const uint8_t> block);

  Kernel &api;
  tlk_platform previous{};
  bool installed = false;  // whether the seam is ours
  int null_fd = -1;        // where each write's system call goes
  Bytes version_reply;
  std::map<std::string, Bytes> sysctl_names;
  std::map<std::vector<int>, Bytes> sysctl_mibs;
  std::vector<std::unique_ptr<Session>> by_fd;
  std::map<uint16_t, Callback<RawCallback>> responders;  // by type << 8 | op
  Callback<FrameCallback> frame_handler;
  Faults faults;
  bool timing = false;
  uint64_t busy_ns = 0;
  std::map<int, NotifyState> notify_state;
  uint64_t option_clock = 0;
  bool auto_flush = true;
  bool recording = false;
  std::vector<Recorded> recorded;
  Bytes scratch;

  // What the families answer, and the families themselves (made last, gone first).
  std::vector<FrameAnswer> frame_answers;  // by type
  std::vector<RawAnswer> raw_answers;      // by type
  std::map<std::string, SysctlValue> sysctl_name_values;
  std::map<std::vector<int>, SysctlValue> sysctl_mib_values;
  std::vector<PlatformPatch> patches;
  std::vector<ObjectWatcher> object_watchers;
  std::vector<std::unique_ptr<Family>> families;
};

}  // namespace tarsim::internal
