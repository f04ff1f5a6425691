// The simulated kernel: sessions on socketpairs, socket options, system controls, responders and
// fault injection.  See tarsim.hpp for the contract.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "session.h"
#include "tarsim.hpp"
#include "wire.h"

namespace tarsim {

namespace wire = internal::wire;

namespace {

Kernel *g_kernel = nullptr;

constexpr int kSenderIdLen = 1;

using wire::load_u32;
using wire::store_u32;

uint64_t now_ns() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

uint64_t monotonic_ns() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

// The length a set of each kernel option must have; 0 where the kernel takes no set.
socklen_t option_set_length(int name) {
  switch (name) {
    case TLK_SO_LISTEN: return 8;
    case TLK_SO_SENDER_ID: return kSenderIdLen;
    case TLK_SO_SUBTYPES: return 16;
    case TLK_SO_FILTERS: return 736;
    case TLK_SO_LR_ID: return 2;
    case TLK_SO_ASYNC_MODE:
    case TLK_SO_SLAVE_MODE:
    case TLK_SO_MASTER_MODE:
    case TLK_SO_LOCAL_SLAVE_MODE:
    case TLK_SO_SYNC_ELAPSE:
    case TLK_SO_ASYNC_ELAPSE:
    case TLK_SO_SYNC_MODE: return 4;
    default: return 0;
  }
}

bool is_buffer_option(int level, int name) {
  return level == SOL_SOCKET && (name == SO_SNDBUF || name == SO_RCVBUF);
}

// Linux caps socket buffers at its sysctl maxima unless the caller may force them.  The kernel
// end's send buffer bounds what can be queued to a session, so it follows the session's receive
// size; the force variants need CAP_NET_ADMIN, and without it the capped size is what we get.
void apply_host_buffer(int fd, int name, int size) {
  const int force = (name == SO_SNDBUF) ? SO_SNDBUFFORCE : SO_RCVBUFFORCE;
  if (::setsockopt(fd, SOL_SOCKET, force, &size, sizeof size) < 0) {
    (void)::setsockopt(fd, SOL_SOCKET, name, &size, sizeof size);
  }
}

// --- The seam table: every entry falls through to the previous table for descriptors that are
// --- not sessions of the active kernel.

int sim_socket(int domain, int type, int protocol) {
  if (g_kernel && domain == TLK_PF_ROUTE && type == TLK_SOCK_SEQPACKET && protocol == 0) {
    return g_kernel->open_session();
  }
  return g_kernel->previous().socket(domain, type, protocol);
}

ssize_t sim_read(int fd, void *buf, size_t len) {
  if (Kernel::Session *s = g_kernel->find(fd)) return g_kernel->read_session(*s, buf, len);
  return g_kernel->previous().read(fd, buf, len);
}

ssize_t sim_write(int fd, const void *buf, size_t len) {
  if (Kernel::Session *s = g_kernel->find(fd)) {
    g_kernel->charge_system_call(buf, len);
    if (!g_kernel->timing()) return g_kernel->take_write(*s, static_cast<const uint8_t *>(buf), len);
    const uint64_t start = monotonic_ns();
    const ssize_t n = g_kernel->take_write(*s, static_cast<const uint8_t *>(buf), len);
    g_kernel->add_busy_ns(monotonic_ns() - start);
    return n;
  }
  return g_kernel->previous().write(fd, buf, len);
}

int sim_close(int fd) {
  if (g_kernel->find(fd)) {
    g_kernel->close_session(fd);
    return 0;
  }
  return g_kernel->previous().close(fd);
}

int sim_fcntl(int fd, int cmd, int arg) {
  if (g_kernel->find(fd)) {
    if (const int err = g_kernel->fcntl_fault(cmd)) {
      errno = err;
      return -1;
    }
  }
  return g_kernel->previous().fcntl(fd, cmd, arg);
}

int sim_getsockopt(int fd, int level, int name, void *value, socklen_t *len) {
  if (Kernel::Session *s = g_kernel->find(fd)) return g_kernel->get_option(*s, level, name, value, len);
  return g_kernel->previous().getsockopt(fd, level, name, value, len);
}

int sim_setsockopt(int fd, int level, int name, const void *value, socklen_t len) {
  if (Kernel::Session *s = g_kernel->find(fd)) return g_kernel->set_option(*s, level, name, value, len);
  return g_kernel->previous().setsockopt(fd, level, name, value, len);
}

int sim_sysctl(const int *name, unsigned namelen, void *oldp, size_t *oldlenp, const void *newp,
               size_t newlen) {
  return g_kernel->sysctl_by_mib(name, namelen, oldp, oldlenp, newp, newlen);
}

int sim_sysctlbyname(const char *name, void *oldp, size_t *oldlenp, const void *newp, size_t newlen) {
  return g_kernel->sysctl_by_name(name, oldp, oldlenp, newp, newlen);
}

const void *sim_product_info_data() {
  return g_kernel->product_record();
}
int sim_product_is_platform_varn(int, int) {
  return g_kernel->platform_varn() ? 1 : 0;
}

// Copies a value out by the usual rules: size only with no buffer, ENOMEM when it doesn't fit.
int copy_out(const Bytes &value, void *oldp, size_t *oldlenp) {
  if (oldlenp == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (oldp == nullptr) {
    *oldlenp = value.size();
    return 0;
  }
  const size_t n = std::min(*oldlenp, value.size());
  memcpy(oldp, value.data(), n);
  *oldlenp = n;
  if (n < value.size()) {
    errno = ENOMEM;
    return -1;
  }
  return 0;
}

}  // namespace

Bytes raw_message(uint8_t type, uint8_t op, uint32_t seq, std::span<const uint8_t> body,
                  uint8_t version) {
  Bytes m(TLK_RAW_HDR_LEN + body.size(), 0);
  m[wire::kRawVersion] = version ? version : (type < TLK_NUM_MSG_TYPES ? TARVIK_VERSION_TABLE[type] : 0);
  m[wire::kRawType] = type;
  m[wire::kRawOp] = op;
  store_u32(&m[wire::kRawMsglen], static_cast<uint32_t>(m.size()));
  store_u32(&m[wire::kRawSeq], seq);
  wire::store_u16(&m[wire::kRawFixedlen], TLK_RAW_HDR_LEN);
  std::copy(body.begin(), body.end(), m.begin() + TLK_RAW_HDR_LEN);
  return m;
}

Kernel::Kernel() : previous_(*tlk_platform_get()), version_reply_(default_version_reply()) {
  g_kernel = this;
  null_fd_ = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  seed_default_objects();
  tlk_platform table = previous_;
  table.socket = sim_socket;
  table.read = sim_read;
  table.write = sim_write;
  table.close = sim_close;
  table.fcntl = sim_fcntl;
  table.getsockopt = sim_getsockopt;
  table.setsockopt = sim_setsockopt;
  table.sysctl = sim_sysctl;
  table.sysctlbyname = sim_sysctlbyname;
  table.product_info_data = sim_product_info_data;
  table.product_is_platform_varn = sim_product_is_platform_varn;
  tlk_platform_set(&table);
}

void Kernel::charge_system_call(const void *buf, size_t len) {
  if (null_fd_ >= 0) (void)!::write(null_fd_, buf, len);
}

Kernel::~Kernel() {
  if (null_fd_ >= 0) ::close(null_fd_);
  for (auto &s : by_fd_) {
    if (s) ::close(s->kernel_fd);  // the library's end stays the library's
  }
  tlk_platform_set(&previous_);
  g_kernel = nullptr;
}

Bytes Kernel::default_version_reply() {
  Bytes reply(2 + TLK_NUM_MSG_TYPES - 1);
  reply[0] = TLK_NUM_MSG_TYPES;
  reply[1] = TLK_INTERFACE_VERSION;
  for (unsigned t = 1; t < TLK_NUM_MSG_TYPES; ++t) reply[1 + t] = TARVIK_VERSION_TABLE[t];
  return reply;
}

void Kernel::set_version_reply(Bytes reply) { version_reply_ = std::move(reply); }

void Kernel::set_sysctl(const std::string &name, Bytes value) { sysctl_names_[name] = std::move(value); }

void Kernel::set_sysctl_u32(const std::string &name, uint32_t value) {
  Bytes b(4);
  store_u32(b.data(), value);
  set_sysctl(name, std::move(b));
}

void Kernel::set_sysctl(const std::vector<int> &mib, Bytes value) { sysctl_mibs_[mib] = std::move(value); }

void Kernel::erase_sysctl(const std::string &name) { sysctl_names_.erase(name); }

int Kernel::sysctl_by_name(const char *name, void *oldp, size_t *oldlenp, const void *newp,
                           size_t newlen) {
  if (name == nullptr) {
    errno = EINVAL;
    return -1;
  }
  auto it = sysctl_names_.find(name);
  if (it == sysctl_names_.end()) {
    errno = ENOENT;
    return -1;
  }
  if (copy_out(it->second, oldp, oldlenp) < 0) return -1;
  if (newp != nullptr) it->second.assign(static_cast<const uint8_t *>(newp), static_cast<const uint8_t *>(newp) + newlen);
  return 0;
}

int Kernel::sysctl_by_mib(const int *mib, unsigned len, void *oldp, size_t *oldlenp,
                          const void *newp, size_t newlen) {
  if (mib == nullptr) {
    errno = EINVAL;
    return -1;
  }
  auto it = sysctl_mibs_.find(std::vector<int>(mib, mib + len));
  if (it == sysctl_mibs_.end() &&
      std::vector<int>(mib, mib + len) == std::vector<int>{4, 17, 0, 0, 3, 1}) {
    // The device list, as it stands at the time of the call.
    if (newp != nullptr) {
      errno = EPERM;
      return -1;
    }
    return copy_out(device_list(), oldp, oldlenp);
  }
  if (it == sysctl_mibs_.end()) {
    errno = ENOENT;
    return -1;
  }
  if (copy_out(it->second, oldp, oldlenp) < 0) return -1;
  if (newp != nullptr) it->second.assign(static_cast<const uint8_t *>(newp), static_cast<const uint8_t *>(newp) + newlen);
  return 0;
}

Kernel::Session *Kernel::find(int fd) const {
  if (fd < 0 || static_cast<size_t>(fd) >= by_fd_.size()) return nullptr;
  return by_fd_[static_cast<size_t>(fd)].get();
}

std::vector<int> Kernel::sessions() const {
  std::vector<int> out;
  for (const auto &s : by_fd_) {
    if (s) out.push_back(s->lib_fd);
  }
  return out;
}

bool Kernel::has_session(int fd) const { return find(fd) != nullptr; }

int Kernel::open_session() {
  if (socket_fault_ != 0) {
    errno = socket_fault_;
    socket_fault_ = 0;
    return -1;
  }
  int sv[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sv) < 0) return -1;
  ::fcntl(sv[1], F_SETFL, O_NONBLOCK);
  auto s = std::make_unique<Session>();
  s->lib_fd = sv[0];
  s->kernel_fd = sv[1];
  const size_t idx = static_cast<size_t>(sv[0]);
  if (by_fd_.size() <= idx) by_fd_.resize(idx + 1);
  by_fd_[idx] = std::move(s);
  return sv[0];
}

void Kernel::close_session(int fd) {
  Session *s = find(fd);
  if (s == nullptr) return;
  notify_forget(fd);
  ::close(s->lib_fd);
  ::close(s->kernel_fd);
  by_fd_[static_cast<size_t>(fd)].reset();
}

std::optional<Bytes> Kernel::option(int fd, int level, int name) const {
  const Session *s = find(fd);
  if (s == nullptr) return std::nullopt;
  auto it = s->options.find({level, name});
  if (it == s->options.end()) return std::nullopt;
  return it->second;
}

std::optional<uint32_t> Kernel::option_u32(int fd, int level, int name) const {
  auto b = option(fd, level, name);
  if (!b || b->size() < 4) return std::nullopt;
  return load_u32(b->data());
}

void Kernel::set_async_seq(int fd, uint32_t seq) {
  if (Session *s = find(fd)) s->async_seq = seq;
}

uint32_t Kernel::async_seq(int fd) const {
  const Session *s = find(fd);
  return s ? s->async_seq : 0;
}

uint64_t Kernel::requests(int fd) const {
  const Session *s = find(fd);
  return s ? s->requests : 0;
}

uint64_t Kernel::replies(int fd) const {
  const Session *s = find(fd);
  return s ? s->replies : 0;
}

int Kernel::get_option(Session &s, int level, int name, void *value, socklen_t *len) {
  auto fault = option_faults_.find({level, name});
  if (fault != option_faults_.end()) {
    errno = fault->second;
    return -1;
  }
  if (value == nullptr || len == nullptr) {
    errno = EFAULT;
    return -1;
  }
  Bytes out;
  if (is_buffer_option(level, name)) {
    // Read back what was set, as on the router (Linux would report double).
    auto it = s.options.find({level, name});
    if (it == s.options.end()) return previous_.getsockopt(s.lib_fd, level, name, value, len);
    out = it->second;
  } else if (level != TLK_SOL_ROUTE) {
    return previous_.getsockopt(s.lib_fd, level, name, value, len);
  } else if (name == TLK_SO_VERSION) {
    out = version_reply_;
  } else if (name == TLK_SO_ASYNC_SEQ) {
    out.resize(4);
    store_u32(out.data(), s.async_seq);
  } else if (name == TLK_SO_SUBTYPES) {
    auto it = s.options.find({level, name});
    out = (it != s.options.end()) ? it->second : Bytes(16, 0);
  } else if (name == TLK_SO_BULKW_INFO) {
    out.resize(sizeof s.bulk_info);
    memcpy(out.data(), s.bulk_info, sizeof s.bulk_info);
  } else {
    errno = ENOPROTOOPT;
    return -1;
  }
  const size_t n = std::min<size_t>(*len, out.size());
  memcpy(value, out.data(), n);
  *len = static_cast<socklen_t>(n);
  return 0;
}

int Kernel::set_option(Session &s, int level, int name, const void *value, socklen_t len) {
  auto fault = option_faults_.find({level, name});
  if (fault != option_faults_.end()) {
    errno = fault->second;
    return -1;
  }
  if (value == nullptr && len != 0) {
    errno = EFAULT;
    return -1;
  }
  const auto *bytes = static_cast<const uint8_t *>(value);
  if (is_buffer_option(level, name)) {
    if (len != sizeof(int)) {
      errno = EINVAL;
      return -1;
    }
    int size;
    memcpy(&size, value, sizeof size);
    apply_host_buffer(s.lib_fd, name, size);
    if (name == SO_RCVBUF) apply_host_buffer(s.kernel_fd, SO_SNDBUF, size);
    s.options[{level, name}] = Bytes(bytes, bytes + len);
    return 0;
  }
  if (level != TLK_SOL_ROUTE) return previous_.setsockopt(s.lib_fd, level, name, value, len);
  const socklen_t want = option_set_length(name);
  if (want == 0) {
    errno = ENOPROTOOPT;
    return -1;
  }
  if (len != want) {
    errno = EINVAL;
    return -1;
  }
  s.options[{level, name}] = Bytes(bytes, bytes + len);
  notify_option_set(s.lib_fd, level, name);
  return 0;
}

int Kernel::fcntl_fault(int cmd) {
  auto it = fcntl_faults_.find(cmd);
  if (it == fcntl_faults_.end()) return 0;
  const int err = it->second;
  fcntl_faults_.erase(it);
  return err;
}

ssize_t Kernel::read_session(Session &s, void *buf, size_t len) {
  ++s.reads;
  if (read_errno_ != 0) {
    if (read_errno_after_ == 0) {
      errno = read_errno_;
      read_errno_ = 0;
      return -1;
    }
    --read_errno_after_;
  }
  return previous_.read(s.lib_fd, buf, len);
}

void Kernel::note(int fd, bool to_kernel, std::span<const uint8_t> bytes) {
  if (recording_) recorded_.push_back({fd, to_kernel, now_ns(), Bytes(bytes.begin(), bytes.end())});
}

ssize_t Kernel::take_write(Session &s, const uint8_t *buf, size_t len) {
  ++s.writes;
  if (bulk_mode(s)) return take_bulk_write(s, buf, len);
  if (write_errno_ != 0) {
    errno = write_errno_;
    write_errno_ = 0;
    return -1;
  }
  if (short_write_) {
    // The kernel took part of the message and, as with any torn message, dropped it.
    const size_t took = std::min(*short_write_, len);
    short_write_.reset();
    return static_cast<ssize_t>(took);
  }
  if (buf == nullptr || len < 4) {
    errno = EINVAL;
    return -1;
  }
  if (!wire::is_frame_magic(load_u32(buf)) && len < TLK_RAW_HDR_LEN) {
    errno = EINVAL;
    return -1;
  }
  take_message(s, {buf, len});
  return static_cast<ssize_t>(len);
}

void Kernel::take_message(Session &s, std::span<const uint8_t> msg) {
  note(s.lib_fd, true, msg);
  ++s.requests;
  if (wire::is_frame(msg)) {
    if (frame_handler_) {
      frame_handler_(*this, s.lib_fd, msg);
    } else {
      answer_frame(s, msg);
    }
    return;
  }
  const Request req{s.lib_fd, msg, msg[wire::kRawType], msg[wire::kRawOp],
                    load_u32(msg.data() + wire::kRawSeq)};
  auto it = responders_.find(static_cast<uint16_t>(req.type << 8 | req.op));
  if (it != responders_.end()) {
    if (it->second) it->second(*this, req);
  } else {
    answer_builtin(s, req);
  }
  notify_after_write(req.session, msg);  // listeners hear changes (sim/notify.cc)
}

void Kernel::answer_builtin(Session &s, const Request &req) {
  constexpr uint8_t kTarlinkStats = 26;
  if (answer_device_raw(s, req)) return;
  if (req.type != kTarlinkStats || req.op != TLK_OP_GET) return;
  uint32_t open = 0;
  for (const auto &p : by_fd_) open += p ? 1 : 0;
  const uint32_t counters[4] = {static_cast<uint32_t>(s.requests), static_cast<uint32_t>(s.replies),
                                open, static_cast<uint32_t>(s.dropped)};
  const Bytes reply = raw_message(req.type, req.op, req.seq,
                                  {reinterpret_cast<const uint8_t *>(counters), sizeof counters});
  deliver(s, reply, true);
}

void Kernel::on_raw(uint8_t type, uint8_t op, Responder responder) {
  responders_[static_cast<uint16_t>(type << 8 | op)] = std::move(responder);
}

void Kernel::reply_raw(uint8_t type, uint8_t op, Bytes reply) {
  reply_raw_many(type, op, {std::move(reply)});
}

void Kernel::reply_raw_many(uint8_t type, uint8_t op, std::vector<Bytes> replies) {
  on_raw(type, op, [replies = std::move(replies)](Kernel &k, const Request &req) {
    for (const Bytes &r : replies) k.reply_with_seq(req.session, r, req.seq);
  });
}

void Kernel::no_reply(uint8_t type, uint8_t op) { on_raw(type, op, Responder()); }

void Kernel::on_frame(FrameHandler handler) { frame_handler_ = std::move(handler); }

bool Kernel::send(int fd, std::span<const uint8_t> bytes) {
  Session *s = find(fd);
  return s != nullptr && deliver(*s, bytes, true);
}

bool Kernel::reply_with_seq(int fd, std::span<const uint8_t> bytes, uint32_t seq) {
  Session *s = find(fd);
  if (s == nullptr) return false;
  scratch_.assign(bytes.begin(), bytes.end());
  if (scratch_.size() >= wire::kRawSeq + 4) store_u32(&scratch_[wire::kRawSeq], seq);
  return deliver(*s, scratch_, true);
}

bool Kernel::push(int fd, std::span<const uint8_t> bytes) {
  Session *s = find(fd);
  return s != nullptr && deliver(*s, bytes, false);
}

bool Kernel::deliver(Session &s, std::span<const uint8_t> bytes, bool apply_faults) {
  Bytes altered;
  if (apply_faults && (reply_truncate_ || reply_extra_ || wrong_seq_)) {
    altered.assign(bytes.begin(), bytes.end());
    if (wrong_seq_ && altered.size() >= wire::kRawSeq + 4)
      store_u32(&altered[wire::kRawSeq], load_u32(&altered[wire::kRawSeq]) + *wrong_seq_);
    if (reply_extra_) altered.resize(altered.size() + *reply_extra_, 0);
    if (reply_truncate_) altered.resize(std::min(altered.size(), *reply_truncate_));
    wrong_seq_.reset();
    reply_extra_.reset();
    reply_truncate_.reset();
    bytes = altered;
  }
  if (s.collect != nullptr) {
    // Inside a bulk write: the replies leave together, packed, when the write is done.
    s.collect->emplace_back(bytes.begin(), bytes.end());
    ++s.replies;
    note(s.lib_fd, false, bytes);
    return true;
  }
  const ssize_t n = ::send(s.kernel_fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (n < 0) {
    ++s.dropped;
    return false;
  }
  ++s.replies;
  note(s.lib_fd, false, bytes);
  return true;
}

void Kernel::pump() {
  Bytes buf(1 << 20);
  for (auto &p : by_fd_) {
    if (!p) continue;
    for (;;) {
      const ssize_t n = ::recv(p->kernel_fd, buf.data(), buf.size(), MSG_DONTWAIT);
      if (n <= 0) break;
      take_write(*p, buf.data(), static_cast<size_t>(n));
      if (!p) break;  // a responder may have closed it
    }
  }
}

void Kernel::fail_socket(int err) { socket_fault_ = err; }
void Kernel::fail_fcntl(int cmd, int err) { fcntl_faults_[cmd] = err; }
void Kernel::fail_option(int level, int name, int err) { option_faults_[{level, name}] = err; }
void Kernel::clear_option_failure(int level, int name) { option_faults_.erase({level, name}); }
void Kernel::inject_write_errno(int err) { write_errno_ = err; }
void Kernel::inject_short_write(size_t count) { short_write_ = count; }
void Kernel::inject_read_errno(int err, unsigned after) {
  read_errno_ = err;
  read_errno_after_ = after;
}
void Kernel::inject_reply_truncate(size_t bytes) { reply_truncate_ = bytes; }
void Kernel::inject_reply_extra(size_t bytes) { reply_extra_ = bytes; }
void Kernel::inject_wrong_seq(uint32_t delta) { wrong_seq_ = delta; }

void Kernel::clear_faults() {
  option_faults_.clear();
  fcntl_faults_.clear();
  socket_fault_ = 0;
  write_errno_ = 0;
  short_write_.reset();
  read_errno_ = 0;
  read_errno_after_ = 0;
  reply_truncate_.reset();
  reply_extra_.reset();
  wrong_seq_.reset();
  bulk_stop_.reset();
  bulk_reply_fault_ = 0;
}

}  // namespace tarsim
