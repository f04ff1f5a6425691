// The simulated kernel's notification streams: who hears what, sequence stamping, per-session
// queues and bulk packing.  See the Notifications section of tarsim.hpp for the contract.
#include <string.h>
#include <sys/socket.h>

#include <algorithm>

#include "tarsim.hpp"
#include "wire.h"

namespace tarsim {
namespace {

constexpr uint32_t kDefaultRecvBuf = TLK_DEFAULT_SOCKBUF;
// One read of packed notifications never exceeds this: the host's socketpair bounds one record by
// its send buffer, which an unprivileged process can't always raise to the session's size.
constexpr size_t kPackCap = 64 * 1024;
constexpr unsigned kOpaqueListenBit = 35;
constexpr uint8_t kOpaqueType = 79;
constexpr size_t kOpaqueSubtypeOffset = 24;

using internal::wire::is_frame;
using internal::wire::load_u32;

bool is_change(uint8_t op) {
  return op == TLK_OP_ADD || op == TLK_OP_CHANGE || op == TLK_OP_DELETE || op == TLK_OP_DELETEALL;
}

}  // namespace

std::pair<uint32_t, uint32_t> Kernel::listen_mask(int fd) const {
  auto st = notify_.find(fd);
  const uint64_t listen_stamp = st != notify_.end() ? st->second.listen_stamp : 0;
  const uint64_t filter_stamp = st != notify_.end() ? st->second.filter_stamp : 0;
  if (filter_stamp > listen_stamp) {
    // The filter record: the full mask, then the filter whose bytes 8 to 15 are the dropped bits.
    auto rec = option(fd, TLK_SOL_ROUTE, TLK_SO_FILTERS);
    if (rec && rec->size() >= 24) {
      const uint8_t *r = rec->data();
      return {load_u32(r) & ~load_u32(r + 16), load_u32(r + 4) & ~load_u32(r + 20)};
    }
  }
  auto mask = option(fd, TLK_SOL_ROUTE, TLK_SO_LISTEN);
  if (!mask || mask->size() < 8) return {0, 0};
  return {load_u32(mask->data()), load_u32(mask->data() + 4)};
}

void Kernel::notify_option_set(int fd, int level, int name) {
  if (level != TLK_SOL_ROUTE) return;
  if (name == TLK_SO_LISTEN) notify_[fd].listen_stamp = ++option_clock_;
  if (name == TLK_SO_FILTERS) notify_[fd].filter_stamp = ++option_clock_;
}

void Kernel::notify_forget(int fd) { notify_.erase(fd); }

bool Kernel::notify_session(int fd, std::span<const uint8_t> bytes) {
  if (!has_session(fd)) return false;
  Bytes m(bytes.begin(), bytes.end());
  uint32_t seq = async_seq(fd);
  if (!is_frame(m) && m.size() >= internal::wire::kRawSeq + 4)
    internal::wire::store_u32(&m[internal::wire::kRawSeq], seq);
  set_async_seq(fd, seq + 1);
  notify_[fd].queue.push_back(std::move(m));
  if (auto_flush_) flush();
  return true;
}

bool Kernel::has_listener(uint8_t type, int except_fd) const {
  uint32_t want_low = 0, want_high = 0;
  if (tlk_async_listen_bits(type, &want_low, &want_high) != 0) return false;
  for (const auto &entry : notify_) {
    const int fd = entry.first;
    if (fd == except_fd) continue;
    const auto [low, high] = listen_mask(fd);
    if ((low & want_low) != 0 || (high & want_high) != 0) return true;
  }
  return false;
}

size_t Kernel::notify(uint8_t type, std::span<const uint8_t> bytes, int except_fd) {
  uint32_t want_low = 0, want_high = 0;
  if (tlk_async_listen_bits(type, &want_low, &want_high) != 0) return 0;
  const bool opaque_raw = type == kOpaqueType && !is_frame(bytes) && bytes.size() > kOpaqueSubtypeOffset;
  size_t reached = 0;
  const bool auto_flush = auto_flush_;
  auto_flush_ = false;  // one flush for the whole broadcast
  for (int fd : sessions()) {
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
  auto_flush_ = auto_flush;
  if (auto_flush_ && reached > 0) flush();
  return reached;
}

void Kernel::notify_after_write(int fd, std::span<const uint8_t> bytes) {
  if (bytes.size() >= TLK_RAW_HDR_LEN && !is_frame(bytes) && is_change(bytes[internal::wire::kRawOp])) {
    const bool auto_flush = auto_flush_;
    auto_flush_ = false;
    notify(bytes[internal::wire::kRawType], bytes, fd);
    auto_flush_ = auto_flush;
  }
  if (auto_flush_) flush();
}

size_t Kernel::flush() {
  size_t sent = 0;
  Bytes packed;
  for (auto &[fd, st] : notify_) {
    if (st.queue.empty() || !has_session(fd)) continue;
    const uint32_t mode = option_u32(fd, TLK_SOL_ROUTE, TLK_SO_ASYNC_MODE).value_or(0);
    const bool pack = (mode & TLK_ASYNC_BULK) != 0 && (mode & TLK_ASYNC_ONE_MSG) == 0;
    const size_t limit =
        std::min<size_t>(option_u32(fd, SOL_SOCKET, SO_RCVBUF).value_or(kDefaultRecvBuf), kPackCap);
    size_t next = 0;
    while (next < st.queue.size()) {
      size_t end = next + 1;
      packed = st.queue[next];
      if (pack) {
        while (end < st.queue.size() && packed.size() + st.queue[end].size() <= limit) {
          packed.insert(packed.end(), st.queue[end].begin(), st.queue[end].end());
          ++end;
        }
      }
      if (!push(fd, packed)) break;  // the socket is full: the rest waits for the next flush
      sent += end - next;
      st.sent += end - next;
      ++st.reads;
      next = end;
    }
    st.queue.erase(st.queue.begin(), st.queue.begin() + static_cast<std::ptrdiff_t>(next));
  }
  return sent;
}

size_t Kernel::queued(int fd) const {
  auto st = notify_.find(fd);
  return st == notify_.end() ? 0 : st->second.queue.size();
}

void Kernel::skip_notify_seq(int fd, uint32_t count) { set_async_seq(fd, async_seq(fd) + count); }

uint64_t Kernel::notifications(int fd) const {
  auto st = notify_.find(fd);
  return st == notify_.end() ? 0 : st->second.sent;
}

uint64_t Kernel::notify_reads(int fd) const {
  auto st = notify_.find(fd);
  return st == notify_.end() ? 0 : st->second.reads;
}

}  // namespace tarsim
