// Bulk mode of the simulated kernel: a write holds many messages, taken one by one; their
// replies leave packed into as few blocks as the session's receive size allows, and option 25
// tells how far the write came.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>

#include <algorithm>

#include "core.h"
#include "wire.h"

namespace tarsim {
namespace internal {

using wire::load_u32;
using wire::message_length;

bool Core::bulk_mode(const Session &s) const {
  auto it = s.options.find({TLK_SOL_ROUTE, TLK_SO_SYNC_MODE});
  return it != s.options.end() && it->second.size() >= 4 &&
         (load_u32(it->second.data()) & TLK_SYNC_BULK_ENABLE);
}

ssize_t Core::take_bulk_write(Session &s, const uint8_t *buf, size_t len) {
  if (faults.write_errno != 0) {
    const int err = faults.write_errno;
    faults.write_errno = 0;
    s.bulk_info[0] = static_cast<uint32_t>(err);
    s.bulk_info[1] = 0;
    errno = err;
    return -1;
  }
  if (buf == nullptr) {
    errno = EFAULT;
    return -1;
  }
  // A short write takes the messages that lie wholly within the bytes it took.
  size_t limit = len;
  std::optional<size_t> short_count;
  if (faults.short_write) {
    short_count = std::min(*faults.short_write, len);
    limit = *short_count;
    faults.short_write.reset();
  }
  std::optional<Faults::BulkStop> stop = faults.bulk_stop;
  faults.bulk_stop.reset();

  std::vector<Bytes> replies;
  s.collect = &replies;
  uint32_t taken = 0;
  int failed = 0;
  size_t off = 0;
  while (off < limit) {
    if (stop && taken == stop->after) {
      failed = stop->err;
      break;
    }
    const size_t n = message_length({buf + off, limit - off});
    if (n == 0) {
      if (!short_count) failed = EINVAL;  // a torn or garbled message ends the batch
      break;
    }
    take_message(s, {buf + off, n});
    off += n;
    ++taken;
  }
  s.collect = nullptr;

  if (!replies.empty() && faults.bulk_reply > 0) replies.push_back(replies.back());
  if (!replies.empty() && faults.bulk_reply < 0) replies.pop_back();
  faults.bulk_reply = 0;
  send_packed(s, replies);

  s.bulk_info[0] = failed != 0 && (!stop || stop->report_err) ? static_cast<uint32_t>(failed) : 0;
  s.bulk_info[1] = taken;
  s.bulk_info[2] = 0;
  if (failed != 0) {
    errno = failed;
    return -1;
  }
  return static_cast<ssize_t>(short_count ? *short_count : len);
}

namespace {

// A block leaves now, or waits with the rest of a held session's queue (waits.cc).
void send_or_hold(Core &core, Session &s, std::span<const uint8_t> block) {
  if (s.release_at) {
    s.held.push_back({Bytes(block.begin(), block.end()), true});
  } else {
    core.send_block(s, block);
  }
}

}  // namespace

void Core::send_packed(Session &s, std::vector<Bytes> &replies) {
  size_t capacity = TLK_DEFAULT_SOCKBUF;
  auto it = s.options.find({SOL_SOCKET, SO_RCVBUF});
  if (it != s.options.end() && it->second.size() >= sizeof(int)) {
    int size;
    memcpy(&size, it->second.data(), sizeof size);
    if (size > 0) capacity = static_cast<size_t>(size);
  }
  Bytes block;
  block.reserve(capacity);
  for (const Bytes &r : replies) {
    if (!block.empty() && block.size() + r.size() > capacity) {
      send_or_hold(*this, s, block);
      block.clear();
    }
    block.insert(block.end(), r.begin(), r.end());
  }
  if (!block.empty()) send_or_hold(*this, s, block);
}

// Sends one packed block.  A block larger than this host's socket can carry goes in two halves,
// split at a frame boundary.
bool Core::send_block(Session &s, std::span<const uint8_t> block) {
  const ssize_t n = ::send(s.kernel_fd, block.data(), block.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  if (n >= 0) {
    ++s.reply_blocks;
    return true;
  }
  if (errno == EMSGSIZE) {
    size_t mid = 0;
    for (size_t off = 0; off < block.size();) {
      const size_t len = message_length(block.subspan(off));
      if (len == 0) break;
      if (off + len > block.size() / 2 && mid != 0) break;
      off += len;
      mid = off;
    }
    if (mid != 0 && mid < block.size()) {
      return send_block(s, block.first(mid)) && send_block(s, block.subspan(mid));
    }
  }
  ++s.dropped;
  return false;
}

}  // namespace internal

// --- The Kernel's functions of bulk mode ------------------------------------------------

using internal::Session;

uint64_t Kernel::writes(int fd) const {
  const Session *s = impl_->find(fd);
  return s ? s->writes : 0;
}

uint64_t Kernel::reads(int fd) const {
  const Session *s = impl_->find(fd);
  return s ? s->reads : 0;
}

uint64_t Kernel::reply_blocks(int fd) const {
  const Session *s = impl_->find(fd);
  return s ? s->reply_blocks : 0;
}

void Kernel::inject_bulk_stop(unsigned after, int err, bool report_err) {
  impl_->faults.bulk_stop = internal::Faults::BulkStop{after, err, report_err};
}
void Kernel::inject_bulk_reply_extra() {
  impl_->faults.bulk_reply = 1;
}
void Kernel::inject_bulk_reply_missing() {
  impl_->faults.bulk_reply = -1;
}

}  // namespace tarsim
