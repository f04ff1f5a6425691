// The simulated kernel's notification streams: who hears what, sequence stamping, per-session
// queues and bulk packing.  See the Notifications section of tarsim/kernel.hpp for the contract.
#include <string.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "core.h"
#include "wire.h"

namespace tarsim {
namespace internal {
namespace {

constexpr uint32_t kDefaultRecvBuf = TLK_DEFAULT_SOCKBUF;
// One read of packed notifications never exceeds this: the host's socketpair bounds one record by
// its send buffer, which an unprivileged process can't always raise to the session's size.
constexpr size_t kPackCap = 64 * 1024;
constexpr unsigned kOpaqueListenBit = 35;
constexpr size_t kOpaqueSubtypeOffset = 24;

// The listen bits of each message type, looked up once: a broadcast asks for them per change.
struct ListenBits {
  bool known = false;
  uint32_t low = 0;
  uint32_t high = 0;
};
const ListenBits &listen_bits(uint8_t type) {
  static const auto table = [] {
    std::array<ListenBits, 256> t{};
    for (unsigned i = 0; i < t.size(); ++i) {
      t[i].known = tlk_async_listen_bits(i, &t[i].low, &t[i].high) == 0;
    }
    return t;
  }();
  return table[type];
}

bool is_change(uint8_t op) {
  return op == TLK_OP_ADD || op == TLK_OP_CHANGE || op == TLK_OP_DELETE || op == TLK_OP_DELETEALL;
}

}  // namespace

std::pair<uint32_t, uint32_t> Core::listen_mask(int fd) const {
  auto st = notify_state.find(fd);
  if (st != notify_state.end() && st->second.mask_known) return st->second.mask;
  const std::pair<uint32_t, uint32_t> mask = read_listen_mask(fd);
  if (st != notify_state.end()) {
    st->second.mask = mask;
    st->second.mask_known = true;
  }
  return mask;
}

std::pair<uint32_t, uint32_t> Core::read_listen_mask(int fd) const {
  auto st = notify_state.find(fd);
  const uint64_t listen_stamp = st != notify_state.end() ? st->second.listen_stamp : 0;
  const uint64_t filter_stamp = st != notify_state.end() ? st->second.filter_stamp : 0;
  // The options are read in place: this runs for every session on every change.
  const Session *s = find(fd);
  if (s == nullptr) return {0, 0};
  if (filter_stamp > listen_stamp) {
    // The filter record: the full mask, then the filter whose bytes 8 to 15 are the dropped bits.
    auto rec = s->options.find({TLK_SOL_ROUTE, TLK_SO_FILTERS});
    if (rec != s->options.end() && rec->second.size() >= 24) {
      const uint8_t *r = rec->second.data();
      return {wire::load_u32(r) & ~wire::load_u32(r + 16),
              wire::load_u32(r + 4) & ~wire::load_u32(r + 20)};
    }
  }
  auto mask = s->options.find({TLK_SOL_ROUTE, TLK_SO_LISTEN});
  if (mask == s->options.end() || mask->second.size() < 8) return {0, 0};
  return {wire::load_u32(mask->second.data()), wire::load_u32(mask->second.data() + 4)};
}

void Core::notify_option_set(int fd, int level, int name) {
  if (level != TLK_SOL_ROUTE || (name != TLK_SO_LISTEN && name != TLK_SO_FILTERS)) return;
  NotifyState &st = notify_state[fd];
  (name == TLK_SO_LISTEN ? st.listen_stamp : st.filter_stamp) = ++option_clock;
  st.mask_known = false;
}

void Core::notify_forget(int fd) {
  notify_state.erase(fd);
}

bool Core::notify_session(int fd, std::span<const uint8_t> bytes) {
  Session *s = find(fd);
  if (s == nullptr) return false;
  // Appended to the session's queue in place, stamped there: no buffer of its own per message.
  NotifyState &st = notify_state[fd];
  const size_t at = st.queued.size();
  st.queued.insert(st.queued.end(), bytes.begin(), bytes.end());
  st.ends.push_back(st.queued.size());
  const uint32_t seq = s->async_seq;
  if (!wire::is_frame(bytes) && bytes.size() >= wire::kRawSeq + 4) {
    wire::store_u32(&st.queued[at + wire::kRawSeq], seq);
  }
  s->async_seq = seq + 1;
  if (auto_flush) flush();
  return true;
}

bool Core::notify_session(Session &s, std::span<const uint8_t> bytes) {
  return notify_session(s.lib_fd, bytes);
}

bool Core::has_listener(uint8_t type, int except_fd) const {
  // No session has asked for anything: the common case of a bulk load, asked once per change.
  if (notify_state.empty()) return false;
  const ListenBits &want = listen_bits(type);
  if (!want.known) return false;
  const uint32_t want_low = want.low, want_high = want.high;
  for (const auto &entry : notify_state) {
    const int fd = entry.first;
    if (fd == except_fd) continue;
    const auto [low, high] = listen_mask(fd);
    if ((low & want_low) != 0 || (high & want_high) != 0) return true;
  }
  return false;
}

size_t Core::notify(uint8_t type, std::span<const uint8_t> bytes, int except_fd) {
  const ListenBits &want = listen_bits(type);
  if (!want.known) return 0;
  const uint32_t want_low = want.low, want_high = want.high;
  const bool opaque_raw =
      type == TLK_MSG_ASYNC_OPAQUE && !wire::is_frame(bytes) && bytes.size() > kOpaqueSubtypeOffset;
  size_t reached = 0;
  const bool was_auto = auto_flush;
  auto_flush = false;  // one flush for the whole broadcast
  for (const auto &p : by_fd) {
    if (!p) continue;
    const int fd = p->lib_fd;
    if (fd == except_fd) continue;
    const auto [low, high] = listen_mask(fd);
    if ((low & want_low) == 0 && (high & want_high) == 0) continue;
    if (opaque_raw) {
      auto sub = option(fd, TLK_SOL_ROUTE, TLK_SO_SUBTYPES);
      if (sub && sub->size() >= 16 && (*sub)[0] == kOpaqueListenBit) {
        const unsigned bit = bytes[kOpaqueSubtypeOffset];
        if (bit >= 120 || ((*sub)[1 + bit / 8] & (1u << (bit % 8))) == 0) continue;
      }
    }
    notify_session(fd, bytes);
    ++reached;
  }
  auto_flush = was_auto;
  if (auto_flush && reached > 0) flush();
  return reached;
}

void Core::notify_after_write(int fd, std::span<const uint8_t> bytes) {
  if (bytes.size() >= TLK_RAW_HDR_LEN && !wire::is_frame(bytes) && is_change(bytes[wire::kRawOp])) {
    const bool was_auto = auto_flush;
    auto_flush = false;
    notify(bytes[wire::kRawType], bytes, fd);
    auto_flush = was_auto;
  }
  if (auto_flush) flush();
}

size_t Core::flush() {
  size_t sent = 0;
  for (auto &[fd, st] : notify_state) {
    Session *s = find(fd);
    if (st.ends.empty() || s == nullptr) continue;
    const uint32_t mode = option_u32(fd, TLK_SOL_ROUTE, TLK_SO_ASYNC_MODE).value_or(0);
    const bool pack = (mode & TLK_ASYNC_BULK) != 0 && (mode & TLK_ASYNC_ONE_MSG) == 0;
    const size_t limit =
        std::min<size_t>(option_u32(fd, SOL_SOCKET, SO_RCVBUF).value_or(kDefaultRecvBuf), kPackCap);
    // Messages next .. end - 1 go out as one record: the bytes from `from` to the end of the
    // last, which are already back to back in the queue.
    size_t next = 0, from = 0;
    while (next < st.ends.size()) {
      size_t end = next + 1;
      if (pack) {
        while (end < st.ends.size() && st.ends[end] - from <= limit) ++end;
      }
      if (!deliver(*s, {st.queued.data() + from, st.ends[end - 1] - from}, false))
        break;  // the socket is full: the rest waits for the next flush
      sent += end - next;
      st.sent += end - next;
      ++st.reads;
      from = st.ends[end - 1];
      next = end;
    }
    st.queued.erase(st.queued.begin(), st.queued.begin() + static_cast<std::ptrdiff_t>(from));
    st.ends.erase(st.ends.begin(), st.ends.begin() + static_cast<std::ptrdiff_t>(next));
    for (size_t &e : st.ends) e -= from;
  }
  return sent;
}

}  // namespace internal

// --- The Kernel's functions of the notifications ------------------------------------------

size_t Kernel::notify(uint8_t type, const void *bytes, size_t length, int except_fd) {
  return impl_->notify(type, {static_cast<const uint8_t *>(bytes), length}, except_fd);
}

bool Kernel::has_listener(uint8_t type, int except_fd) const {
  return impl_->has_listener(type, except_fd);
}

bool Kernel::notify_session(int fd, const void *bytes, size_t length) {
  return impl_->notify_session(fd, {static_cast<const uint8_t *>(bytes), length});
}

size_t Kernel::flush() {
  return impl_->flush();
}

void Kernel::set_auto_flush(bool on) {
  impl_->auto_flush = on;
}

size_t Kernel::queued(int fd) const {
  auto st = impl_->notify_state.find(fd);
  return st == impl_->notify_state.end() ? 0 : st->second.ends.size();
}

void Kernel::skip_notify_seq(int fd, uint32_t count) {
  set_async_seq(fd, async_seq(fd) + count);
}

uint64_t Kernel::notifications(int fd) const {
  auto st = impl_->notify_state.find(fd);
  return st == impl_->notify_state.end() ? 0 : st->second.sent;
}

uint64_t Kernel::notify_reads(int fd) const {
  auto st = impl_->notify_state.find(fd);
  return st == impl_->notify_state.end() ? 0 : st->second.reads;
}

std::pair<uint32_t, uint32_t> Kernel::listen_mask(int fd) const {
  return impl_->listen_mask(fd);
}

}  // namespace tarsim
