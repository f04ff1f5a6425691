// The simulated kernel's core: the seam table, sessions on socketpairs, socket options, system
// controls, the dispatch of requests to responders and families, delivery, fault injection and
// the traffic record.  See tarsim/kernel.hpp for the contract.
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "core.h"
#include "tarsim/capture.h"
#include "wire.h"

namespace tarsim {
namespace internal {
namespace {

Core *g_core = nullptr;

constexpr int kSenderIdLen = 1;

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
    case TLK_SO_LISTEN:
      return 8;
    case TLK_SO_SENDER_ID:
      return kSenderIdLen;
    case TLK_SO_SUBTYPES:
      return 16;
    case TLK_SO_FILTERS:
      return 736;
    case TLK_SO_LR_ID:
      return 2;
    case TLK_SO_ASYNC_MODE:
    case TLK_SO_SLAVE_MODE:
    case TLK_SO_MASTER_MODE:
    case TLK_SO_LOCAL_SLAVE_MODE:
    case TLK_SO_SYNC_ELAPSE:
    case TLK_SO_ASYNC_ELAPSE:
    case TLK_SO_SYNC_MODE:
      return 4;
    default:
      return 0;
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

// A system control read: a value set through the Kernel (which a write replaces), else one that
// a family computes (which refuses a write), else ENOENT.
template <class Key>
int read_sysctl(std::map<Key, Bytes> &set, const std::map<Key, SysctlValue> &computed,
                const Key &key, void *oldp, size_t *oldlenp, const void *newp, size_t newlen) {
  auto it = set.find(key);
  if (it == set.end()) {
    auto value = computed.find(key);
    if (value == computed.end()) {
      errno = ENOENT;
      return -1;
    }
    if (newp != nullptr) {
      errno = EPERM;
      return -1;
    }
    return copy_out(value->second(), oldp, oldlenp);
  }
  if (copy_out(it->second, oldp, oldlenp) < 0) return -1;
  if (newp != nullptr) {
    const auto *bytes = static_cast<const uint8_t *>(newp);
    it->second.assign(bytes, bytes + newlen);
  }
  return 0;
}

// A family claimed what another one had: two families for one message type or control.
[[noreturn]] void double_claim(const char *what, const std::string &key) {
  fprintf(stderr, "tarsim: two families claim %s %s\n", what, key.c_str());
  abort();
}

// --- The seam table: every entry falls through to the previous table for descriptors that are
// --- not sessions of the active kernel.

int sim_socket(int domain, int type, int protocol) {
  if (g_core && domain == TLK_PF_ROUTE && type == TLK_SOCK_SEQPACKET && protocol == 0) {
    return g_core->open_session();
  }
  return g_core->previous.socket(domain, type, protocol);
}

ssize_t sim_read(int fd, void *buf, size_t len) {
  if (Session *s = g_core->find(fd)) return g_core->read_session(*s, buf, len);
  return g_core->previous.read(fd, buf, len);
}

ssize_t sim_write(int fd, const void *buf, size_t len) {
  if (Session *s = g_core->find(fd)) {
    g_core->charge_system_call(buf, len);
    if (!g_core->timing) return g_core->take_write(*s, static_cast<const uint8_t *>(buf), len);
    const uint64_t start = monotonic_ns();
    const ssize_t n = g_core->take_write(*s, static_cast<const uint8_t *>(buf), len);
    g_core->busy_ns += monotonic_ns() - start;
    return n;
  }
  return g_core->previous.write(fd, buf, len);
}

int sim_close(int fd) {
  if (g_core->find(fd)) {
    g_core->close_session(fd);
    return 0;
  }
  return g_core->previous.close(fd);
}

int sim_fcntl(int fd, int cmd, int arg) {
  if (g_core->find(fd)) {
    if (const int err = g_core->fcntl_fault(cmd)) {
      errno = err;
      return -1;
    }
  }
  return g_core->previous.fcntl(fd, cmd, arg);
}

int sim_getsockopt(int fd, int level, int name, void *value, socklen_t *len) {
  if (Session *s = g_core->find(fd)) return g_core->get_option(*s, level, name, value, len);
  return g_core->previous.getsockopt(fd, level, name, value, len);
}

int sim_setsockopt(int fd, int level, int name, const void *value, socklen_t len) {
  if (Session *s = g_core->find(fd)) return g_core->set_option(*s, level, name, value, len);
  return g_core->previous.setsockopt(fd, level, name, value, len);
}

int sim_sysctl(const int *name, unsigned namelen, void *oldp, size_t *oldlenp, const void *newp,
               size_t newlen) {
  return g_core->sysctl_by_mib(name, namelen, oldp, oldlenp, newp, newlen);
}

int sim_sysctlbyname(const char *name, void *oldp, size_t *oldlenp, const void *newp,
                     size_t newlen) {
  return g_core->sysctl_by_name(name, oldp, oldlenp, newp, newlen);
}

int sim_select(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds, timeval *timeout) {
  return g_core->select(nfds, readfds, writefds, exceptfds, timeout);
}

int sim_usleep(unsigned usec) {
  return g_core->usleep(usec);
}

}  // namespace

Core *Core::active() {
  return g_core;
}

Core::Core(Kernel &kernel)
    : api(kernel), previous(*tlk_platform_get()), version_reply(Kernel::default_version_reply()) {
  g_core = this;
  null_fd = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  frame_answers.resize(256);
  raw_answers.resize(256);
  for (const RegisteredFamily &f : registered_families()) families.push_back(f.make(*this));
  tlk_platform table = previous;
  table.socket = sim_socket;
  table.read = sim_read;
  table.write = sim_write;
  table.close = sim_close;
  table.fcntl = sim_fcntl;
  table.getsockopt = sim_getsockopt;
  table.setsockopt = sim_setsockopt;
  table.sysctl = sim_sysctl;
  table.sysctlbyname = sim_sysctlbyname;
  table.select = sim_select;
  table.usleep = sim_usleep;
  for (const PlatformPatch &patch : patches) patch(table);
  // A process connected to tarsimd keeps its sockets there; a kernel made meanwhile is a
  // bystander with its own stores.
  installed = !remote_link_active();
  if (installed) tlk_platform_set(&table);
}

Core::~Core() {
  if (null_fd >= 0) ::close(null_fd);
  for (auto &s : by_fd) {
    if (s) ::close(s->kernel_fd);  // the library's end stays the library's
  }
  if (installed) tlk_platform_set(&previous);
  g_core = nullptr;
}

// --- What the families claim --------------------------------------------------------------

void Core::answer_frames(uint32_t type, FrameAnswer answer) {
  if (type >= frame_answers.size() || frame_answers[type])
    double_claim("frames of type", std::to_string(type));
  frame_answers[type] = std::move(answer);
}

void Core::answer_raw(uint8_t type, RawAnswer answer) {
  if (raw_answers[type]) double_claim("raw requests of type", std::to_string(type));
  raw_answers[type] = std::move(answer);
}

void Core::answer_sysctl(const std::string &name, SysctlValue value) {
  if (!sysctl_name_values.emplace(name, std::move(value)).second) {
    double_claim("the system control", name);
  }
}

void Core::answer_sysctl(const std::vector<int> &mib, SysctlValue value) {
  if (!sysctl_mib_values.emplace(mib, std::move(value)).second) {
    std::string name;
    for (int part : mib) name += (name.empty() ? "" : ".") + std::to_string(part);
    double_claim("the system control", name);
  }
}

void Core::patch_platform(PlatformPatch patch) {
  patches.push_back(std::move(patch));
}

// --- Sessions -----------------------------------------------------------------------------

Session *Core::find(int fd) const {
  if (fd < 0 || static_cast<size_t>(fd) >= by_fd.size()) return nullptr;
  return by_fd[static_cast<size_t>(fd)].get();
}

size_t Core::open_sessions() const {
  size_t open = 0;
  for (const auto &p : by_fd) open += p ? 1 : 0;
  return open;
}

int Core::open_session() {
  if (faults.socket != 0) {
    errno = faults.socket;
    faults.socket = 0;
    return -1;
  }
  int sv[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sv) < 0) return -1;
  ::fcntl(sv[1], F_SETFL, O_NONBLOCK);
  auto s = std::make_unique<Session>();
  s->lib_fd = sv[0];
  s->kernel_fd = sv[1];
  const size_t idx = static_cast<size_t>(sv[0]);
  if (by_fd.size() <= idx) by_fd.resize(idx + 1);
  by_fd[idx] = std::move(s);
  return sv[0];
}

void Core::close_session(int fd) {
  Session *s = find(fd);
  if (s == nullptr) return;
  notify_forget(fd);
  ::close(s->lib_fd);
  ::close(s->kernel_fd);
  by_fd[static_cast<size_t>(fd)].reset();
}

std::optional<Bytes> Core::option(int fd, int level, int name) const {
  const Session *s = find(fd);
  if (s == nullptr) return std::nullopt;
  auto it = s->options.find({level, name});
  if (it == s->options.end()) return std::nullopt;
  return it->second;
}

std::optional<uint32_t> Core::option_u32(int fd, int level, int name) const {
  auto b = option(fd, level, name);
  if (!b || b->size() < 4) return std::nullopt;
  return wire::load_u32(b->data());
}

int Core::get_option(Session &s, int level, int name, void *value, socklen_t *len) {
  auto fault = faults.options.find({level, name});
  if (fault != faults.options.end()) {
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
    if (it == s.options.end()) return previous.getsockopt(s.lib_fd, level, name, value, len);
    out = it->second;
  } else if (level != TLK_SOL_ROUTE) {
    return previous.getsockopt(s.lib_fd, level, name, value, len);
  } else if (name == TLK_SO_VERSION) {
    out = version_reply;
  } else if (name == TLK_SO_ASYNC_SEQ) {
    out.resize(4);
    wire::store_u32(out.data(), s.async_seq);
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

int Core::set_option(Session &s, int level, int name, const void *value, socklen_t len) {
  auto fault = faults.options.find({level, name});
  if (fault != faults.options.end()) {
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
  if (level != TLK_SOL_ROUTE) return previous.setsockopt(s.lib_fd, level, name, value, len);
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

int Core::fcntl_fault(int cmd) {
  auto it = faults.fcntl.find(cmd);
  if (it == faults.fcntl.end()) return 0;
  const int err = it->second;
  faults.fcntl.erase(it);
  return err;
}

// --- System controls ----------------------------------------------------------------------

int Core::sysctl_by_name(const char *name, void *oldp, size_t *oldlenp, const void *newp,
                         size_t newlen) {
  if (name == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return read_sysctl(sysctl_names, sysctl_name_values, std::string(name), oldp, oldlenp, newp,
                     newlen);
}

int Core::sysctl_by_mib(const int *mib, unsigned len, void *oldp, size_t *oldlenp, const void *newp,
                        size_t newlen) {
  if (mib == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return read_sysctl(sysctl_mibs, sysctl_mib_values, std::vector<int>(mib, mib + len), oldp,
                     oldlenp, newp, newlen);
}

// --- Reads, writes and the dispatch ---------------------------------------------------------

ssize_t Core::read_session(Session &s, void *buf, size_t len) {
  ++s.reads;
  if (faults.read_errno != 0) {
    if (faults.read_errno_after == 0) {
      errno = faults.read_errno;
      faults.read_errno = 0;
      return -1;
    }
    --faults.read_errno_after;
  }
  return previous.read(s.lib_fd, buf, len);
}

void Core::charge_system_call(const void *buf, size_t len) {
  if (null_fd >= 0) (void)!::write(null_fd, buf, len);
}

void Core::note(int fd, bool to_kernel, std::span<const uint8_t> bytes) {
  if (recording) recorded.push_back({fd, to_kernel, now_ns(), Bytes(bytes.begin(), bytes.end())});
}

ssize_t Core::take_write(Session &s, const uint8_t *buf, size_t len) {
  ++s.writes;
  if (bulk_mode(s)) return take_bulk_write(s, buf, len);
  if (faults.write_errno != 0) {
    errno = faults.write_errno;
    faults.write_errno = 0;
    return -1;
  }
  if (faults.short_write) {
    // The kernel took part of the message and, as with any torn message, dropped it.
    const size_t took = std::min(*faults.short_write, len);
    faults.short_write.reset();
    return static_cast<ssize_t>(took);
  }
  if (buf == nullptr || len < 4) {
    errno = EINVAL;
    return -1;
  }
  if (!wire::is_frame_magic(wire::load_u32(buf)) && len < TLK_RAW_HDR_LEN) {
    errno = EINVAL;
    return -1;
  }
  take_message(s, {buf, len});
  return static_cast<ssize_t>(len);
}

void Core::take_message(Session &s, std::span<const uint8_t> msg) {
  note(s.lib_fd, true, msg);
  ++s.requests;
  if (wire::is_frame(msg)) {
    if (frame_handler) {
      frame_handler(api, s.lib_fd, msg.data(), msg.size());
    } else {
      answer_frame(s, msg);
    }
    return;
  }
  const Request req{s.lib_fd, msg, msg[wire::kRawType], msg[wire::kRawOp],
                    wire::load_u32(msg.data() + wire::kRawSeq)};
  auto it = responders.find(static_cast<uint16_t>(req.type << 8 | req.op));
  if (it != responders.end()) {
    if (it->second) it->second(api, req);
  } else if (const RawAnswer &answer = raw_answers[req.type]) {
    answer(s, req);
  }
  notify_after_write(req.session, msg);  // listeners hear changes (notify.cc)
}

namespace {

// A decode arena for one request: the codecs allocate through this callback.
struct Scratch {
  uint8_t *base = nullptr;
  size_t size = 0;
  size_t used = 0;
  static void *alloc(uint32_t size, void *ctx) {
    auto *s = static_cast<Scratch *>(ctx);
    const size_t rounded = (static_cast<size_t>(size) + 7) & ~size_t{7};
    if (s->used + rounded > s->size) return nullptr;
    void *p = s->base + s->used;
    s->used += rounded;
    return p;
  }
};

}  // namespace

void Core::answer_frame(Session &s, std::span<const uint8_t> frame) {
  const bool tlv = wire::is_tlv(frame);
  // Kept between requests and never refilled: the decoders clear what they allocate, and a
  // large blob should not cost a fresh zeroed buffer per request.
  static thread_local Bytes buffer;
  const size_t want = frame.size() * 4 + 4096;
  if (buffer.size() < want) buffer.resize(want);
  Scratch arena{buffer.data(), want, 0};
  tlk_msg choice{};
  const auto len = static_cast<uint32_t>(frame.size());
  const int32_t got =
      tlv ? tlv_decode_tlk_msg_0(&choice, nullptr, frame.data(), len, Scratch::alloc, &arena)
          : idr_decode_tlk_msg_0(&choice, frame.data(), len, Scratch::alloc, &arena);
  if (got <= 0 || choice.tlkm_msg == nullptr) {
    ++s.dropped;  // a frame the kernel cannot read is dropped, as a garbled message would be
    return;
  }
  if (choice.tlkm_type >= frame_answers.size()) return;
  const FrameAnswer &answer = frame_answers[choice.tlkm_type];
  if (answer) answer(s, Frame{frame, choice.tlkm_type, choice.tlkm_msg, tlv});
  // A type no family keeps draws nothing.
}

// --- Delivery -----------------------------------------------------------------------------

bool Core::deliver(Session &s, std::span<const uint8_t> bytes, bool apply_faults) {
  Bytes altered;
  if (apply_faults && (faults.reply_truncate || faults.reply_extra || faults.wrong_seq)) {
    altered.assign(bytes.begin(), bytes.end());
    if (faults.wrong_seq && altered.size() >= wire::kRawSeq + 4) {
      wire::store_u32(&altered[wire::kRawSeq],
                      wire::load_u32(&altered[wire::kRawSeq]) + *faults.wrong_seq);
    }
    if (faults.reply_extra) altered.resize(altered.size() + *faults.reply_extra, 0);
    if (faults.reply_truncate) altered.resize(std::min(altered.size(), *faults.reply_truncate));
    faults.wrong_seq.reset();
    faults.reply_extra.reset();
    faults.reply_truncate.reset();
    bytes = altered;
  }
  if (s.collect != nullptr) {
    // Inside a bulk write: the replies leave together, packed, when the write is done.
    s.collect->emplace_back(bytes.begin(), bytes.end());
    ++s.replies;
    note(s.lib_fd, false, bytes);
    return true;
  }
  if (s.release_at) {
    // Kept back until the session has waited enough (waits.cc).
    s.held.push_back({Bytes(bytes.begin(), bytes.end()), false});
    return true;
  }
  return send_message(s, bytes);
}

bool Core::send_message(Session &s, std::span<const uint8_t> bytes) {
  const ssize_t n = ::send(s.kernel_fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (n < 0) {
    ++s.dropped;
    return false;
  }
  ++s.replies;
  note(s.lib_fd, false, bytes);
  return true;
}

bool Core::reply(Session &s, std::span<const uint8_t> bytes) {
  return deliver(s, bytes, true);
}

bool Core::reply_with_seq(Session &s, std::span<const uint8_t> bytes, uint32_t seq) {
  scratch.assign(bytes.begin(), bytes.end());
  if (scratch.size() >= wire::kRawSeq + 4) wire::store_u32(&scratch[wire::kRawSeq], seq);
  return deliver(s, scratch, true);
}

void Core::refuse_not_found(Session &s, uint8_t type, uint8_t op, uint32_t seq,
                            const char *function) {
  TlkErr body{};
  strncpy(body.function, function, sizeof body.function - 1);
  body.line = 1;
  body.seq_no = seq;
  body.rtm_type = type;
  body.rtm_op = op;
  body.final_err = ENOENT;
  const Bytes refusal = raw_message(TLK_MSG_TLK_ERR, op, seq, &body, sizeof body, 0);
  deliver(s, refusal, true);
}

}  // namespace internal

// --- The Kernel's functions of the core -------------------------------------------------

using internal::Core;
using internal::Session;
namespace wire = internal::wire;

Bytes raw_message(uint8_t type, uint8_t op, uint32_t seq, const void *body, size_t body_length,
                  uint8_t version) {
  Bytes m(TLK_RAW_HDR_LEN + body_length, 0);
  m[wire::kRawVersion] =
      version ? version : (type < TLK_NUM_MSG_TYPES ? TARVIK_VERSION_TABLE[type] : 0);
  m[wire::kRawType] = type;
  m[wire::kRawOp] = op;
  wire::store_u32(&m[wire::kRawMsglen], static_cast<uint32_t>(m.size()));
  wire::store_u32(&m[wire::kRawSeq], seq);
  wire::store_u16(&m[wire::kRawFixedlen], TLK_RAW_HDR_LEN);
  if (body_length != 0) memcpy(&m[TLK_RAW_HDR_LEN], body, body_length);
  return m;
}

Kernel::Kernel() : impl_(new Core(*this)) {}

Kernel::~Kernel() {
  delete impl_;
}

Bytes Kernel::default_version_reply() {
  Bytes reply(2 + TLK_NUM_MSG_TYPES - 1);
  reply[0] = TLK_NUM_MSG_TYPES;
  reply[1] = TLK_INTERFACE_VERSION;
  for (unsigned t = 1; t < TLK_NUM_MSG_TYPES; ++t) reply[1 + t] = TARVIK_VERSION_TABLE[t];
  return reply;
}

void Kernel::set_version_reply(const void *reply, size_t length) {
  const auto *b = static_cast<const uint8_t *>(reply);
  impl_->version_reply.assign(b, b + length);
}

const Bytes &Kernel::version_reply() const {
  return impl_->version_reply;
}

void Kernel::set_sysctl(const char *name, const void *value, size_t length) {
  const auto *b = static_cast<const uint8_t *>(value);
  impl_->sysctl_names[name] = Bytes(b, b + length);
}

void Kernel::set_sysctl(const int *mib, size_t count, const void *value, size_t length) {
  const auto *b = static_cast<const uint8_t *>(value);
  impl_->sysctl_mibs[std::vector<int>(mib, mib + count)] = Bytes(b, b + length);
}

void Kernel::set_sysctl_u32(const char *name, uint32_t value) {
  set_sysctl(name, &value, sizeof value);
}

void Kernel::erase_sysctl(const char *name) {
  impl_->sysctl_names.erase(name);
}

std::vector<int> Kernel::sessions() const {
  std::vector<int> out;
  for (const auto &s : impl_->by_fd) {
    if (s) out.push_back(s->lib_fd);
  }
  return out;
}

bool Kernel::has_session(int fd) const {
  return impl_->find(fd) != nullptr;
}

std::optional<Bytes> Kernel::option(int fd, int level, int name) const {
  return impl_->option(fd, level, name);
}

std::optional<uint32_t> Kernel::option_u32(int fd, int level, int name) const {
  return impl_->option_u32(fd, level, name);
}

void Kernel::set_async_seq(int fd, uint32_t seq) {
  if (Session *s = impl_->find(fd)) s->async_seq = seq;
}

uint32_t Kernel::async_seq(int fd) const {
  const Session *s = impl_->find(fd);
  return s ? s->async_seq : 0;
}

uint64_t Kernel::requests(int fd) const {
  const Session *s = impl_->find(fd);
  return s ? s->requests : 0;
}

uint64_t Kernel::replies(int fd) const {
  const Session *s = impl_->find(fd);
  return s ? s->replies : 0;
}

void Kernel::on_raw(uint8_t type, uint8_t op, RawCallback call, void *context,
                    ReleaseCallback release) {
  impl_->responders[static_cast<uint16_t>(type << 8 | op)] =
      internal::Callback<RawCallback>(call, context, release);
}

void Kernel::reply_raw(uint8_t type, uint8_t op, const void *reply, size_t length) {
  const auto *b = static_cast<const uint8_t *>(reply);
  on_raw(
      type, op,
      [](void *c, Kernel &k, const Request &req) {
        const Bytes &answer = *static_cast<const Bytes *>(c);
        k.reply_with_seq(req.session, answer.data(), answer.size(), req.seq);
      },
      new Bytes(b, b + length), [](void *c) { delete static_cast<Bytes *>(c); });
}

void Kernel::no_reply(uint8_t type, uint8_t op) {
  on_raw(type, op, nullptr, nullptr, nullptr);
}

void Kernel::on_frame(FrameCallback call, void *context, ReleaseCallback release) {
  impl_->frame_handler = internal::Callback<FrameCallback>(call, context, release);
}

bool Kernel::send(int fd, const void *bytes, size_t length) {
  Session *s = impl_->find(fd);
  return s != nullptr && impl_->deliver(*s, {static_cast<const uint8_t *>(bytes), length}, true);
}

bool Kernel::reply_with_seq(int fd, const void *bytes, size_t length, uint32_t seq) {
  Session *s = impl_->find(fd);
  return s != nullptr &&
         impl_->reply_with_seq(*s, {static_cast<const uint8_t *>(bytes), length}, seq);
}

bool Kernel::push(int fd, const void *bytes, size_t length) {
  Session *s = impl_->find(fd);
  return s != nullptr && impl_->deliver(*s, {static_cast<const uint8_t *>(bytes), length}, false);
}

void Kernel::pump() {
  Bytes buf(1 << 20);
  for (auto &p : impl_->by_fd) {
    if (!p) continue;
    for (;;) {
      const ssize_t n = ::recv(p->kernel_fd, buf.data(), buf.size(), MSG_DONTWAIT);
      if (n <= 0) break;
      impl_->take_write(*p, buf.data(), static_cast<size_t>(n));
      if (!p) break;  // a responder may have closed it
    }
  }
}

void Kernel::set_timing(bool on) {
  impl_->timing = on;
}
bool Kernel::timing() const {
  return impl_->timing;
}
uint64_t Kernel::busy_ns() const {
  return impl_->busy_ns;
}

void Kernel::fail_socket(int err) {
  impl_->faults.socket = err;
}
void Kernel::fail_fcntl(int cmd, int err) {
  impl_->faults.fcntl[cmd] = err;
}
void Kernel::fail_option(int level, int name, int err) {
  impl_->faults.options[{level, name}] = err;
}
void Kernel::clear_option_failure(int level, int name) {
  impl_->faults.options.erase({level, name});
}
void Kernel::inject_write_errno(int err) {
  impl_->faults.write_errno = err;
}
void Kernel::inject_short_write(size_t count) {
  impl_->faults.short_write = count;
}
void Kernel::inject_read_errno(int err, unsigned after) {
  impl_->faults.read_errno = err;
  impl_->faults.read_errno_after = after;
}
void Kernel::inject_reply_truncate(size_t bytes) {
  impl_->faults.reply_truncate = bytes;
}
void Kernel::inject_reply_extra(size_t bytes) {
  impl_->faults.reply_extra = bytes;
}
void Kernel::inject_wrong_seq(uint32_t delta) {
  impl_->faults.wrong_seq = delta;
}
void Kernel::clear_faults() {
  impl_->faults = internal::Faults{};
}

void Kernel::record(bool on) {
  impl_->recording = on;
}
const std::vector<Recorded> &Kernel::recorded() const {
  return impl_->recorded;
}
void Kernel::clear_recorded() {
  impl_->recorded.clear();
}
int Kernel::save_record(const char *path) const {
  const std::vector<Recorded> &all = impl_->recorded;
  tarsim_capture_writer w;
  const int err =
      tarsim_capture_writer_open(&w, path, all.empty() ? internal::now_ns() : all.front().when_ns);
  if (err != 0) return err;
  for (const Recorded &r : all) {
    if (tarsim_capture_write(&w,
                             r.to_kernel ? TARSIM_CAPTURE_TO_KERNEL : TARSIM_CAPTURE_FROM_KERNEL,
                             r.session, r.when_ns, r.bytes.data(), r.bytes.size()) != 0)
      break;
  }
  return tarsim_capture_writer_close(&w);
}

}  // namespace tarsim
