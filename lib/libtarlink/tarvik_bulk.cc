// Bulk transfer: many messages per system call.
//
// The requests of a vector are encoded back to back into the session's send buffer; a batch is
// as many as fit, and goes to the kernel in one write.  The kernel may take only part of a
// batch and says how far it came through the bulk write information (option 25).  The replies
// of a batch come packed into as few reads as the receive buffer allows and are matched to the
// entries that expect one, in order:
//
//   entry:   0        1        2        3 ...            a reply slot holding its own address
//   wbuf:   [frame 0][frame 1][frame 2]...               marks an entry that expects a reply
//   rbuf:   [reply 0][reply 2]...        (entry 1 expects none)
//
// The steps keep the names that their diagnostics print: tarvik_write_bulk_iov,
// tarvik_write_sys, tarvik_read_and_decode_bulk_iov and tarvik_set_iov_err.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>

#include "cookie.h"
#include "platform/platform.h"

namespace {

constexpr uint32_t kNone = UINT32_MAX;

bool expects_reply(const tarvik_msg_iov_t &entry) {
  return entry.reply == static_cast<const void *>(&entry.reply);
}

uint32_t count_expected(const tarvik_msg_iov_t *iov, uint32_t from, uint32_t to) {
  uint32_t n = 0;
  for (uint32_t i = from; i <= to; ++i) n += expects_reply(iov[i]) ? 1 : 0;
  return n;
}

const void *mask_of(const uintptr_t *masks, uint32_t i) {
  return masks != nullptr ? reinterpret_cast<const void *>(masks[i]) : nullptr;
}

ssize_t write_sys(tarvik_cookie *cookie) {
  if (cookie->wbuf == nullptr || cookie->wbuf_cur < cookie->wbuf ||
      static_cast<size_t>(cookie->wbuf_cur - cookie->wbuf) > cookie->wbuf_sz) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: Invalid/Corrupted cookie\n", "tarvik_write_sys");
    errno = EINVAL;
    return -1;
  }
  return tlk::platform::ops().write(cookie->fd, cookie->wbuf,
                                    static_cast<size_t>(cookie->wbuf_cur - cookie->wbuf));
}

// Writes the batch start..last (encoded in wbuf).  Returns the index of the entry at which the
// kernel stopped, or kNone when it took everything.
uint32_t write_bulk_iov(tarvik_cookie *cookie, tarvik_msg_iov_t *iov, uint32_t count,
                        uint32_t start, uint32_t last) {
  static const char kFn[] = "tarvik_write_bulk_iov";
  if (cookie->wbuf == nullptr || cookie->rbuf_data == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: iobuf not initialized for bulk write!\n", kFn);
    return start;
  }
  const auto length = static_cast<ssize_t>(cookie->wbuf_cur - cookie->wbuf);
  const ssize_t wrote = write_sys(cookie);
  if (wrote == length) return kNone;
  if (wrote > length) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: wrote %d bytes, got %d!", kFn,
               static_cast<int>(length), static_cast<int>(wrote));
    return kNone;
  }
  tarvik_bulkw_info_t info{};
  uint32_t taken = 0;
  int value = 0;
  if (wrote < 0) {
    const int kept = errno;
    if (tarvik_get_bulkw_info(cookie, &info) != 0) {
      tarvik_err(cookie, TLK_LEVEL_ERROR,
                 "%s: get_bulkw_info failed (%d) when tarvik_write_sys returned errno(%d)", kFn,
                 errno, kept);
    } else {
      taken = info.count;
      value = info.err != 0 ? static_cast<int>(info.err) : kept;
    }
  } else if (last == start) {
    // A short write of a single message: the kernel took none of it.
  } else if (tarvik_get_bulkw_info(cookie, &info) != 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR,
               "%s: get_bulkw_info failed (%d) when tarvik_write_sys returned %d", kFn, errno,
               static_cast<int>(wrote));
  } else {
    taken = info.count;
    value = static_cast<int>(info.err);
  }
  tarvik_set_iov_err(cookie, iov, count, start + taken, 1, value);
  return start + taken;
}

// Reads the replies of start..last, `expected` of them.  False when the whole operation must
// stop after this batch.
bool read_and_decode_bulk_iov(tarvik_cookie *cookie, tarvik_msg_iov_t *iov, uintptr_t *masks,
                              uint32_t count, uint32_t start, uint32_t last, uint32_t expected) {
  static const char kFn[] = "tarvik_read_and_decode_bulk_iov";
  if (start > last || start >= count || last >= count) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: Invalid input: start = %d, end = %d, range = %d\n",
               kFn, static_cast<int>(start), static_cast<int>(last), static_cast<int>(count));
    return false;
  }
  if (cookie->wbuf == nullptr || cookie->rbuf_data == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: iobuf not initialized for bulk write!\n", kFn);
    return false;
  }
  const tlk_platform &os = tlk::platform::ops();
  uint32_t decoded = 0;
  uint32_t scan = start;
  for (;;) {
    // One block.  rbuf_end names its last byte; an empty or failed read leaves no byte at all.
    cookie->rbuf_cur = cookie->rbuf_data;
    const ssize_t got = os.read(cookie->fd, cookie->rbuf_data, cookie->rbuf_sz);
    int kept = 0;
    if (got < 1) {
      kept = errno != 0 ? errno : EINVAL;
      tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: read() errno %d, fd %d, rbuf_data %p, rbuf_sz %u\n",
                 kFn, kept, cookie->fd, static_cast<void *>(cookie->rbuf_data), cookie->rbuf_sz);
    }
    const size_t block = got > 0 ? static_cast<size_t>(got) : 0;
    cookie->rbuf_end = cookie->rbuf_data + block - (block > 0 ? 1 : 0);
    const uint8_t *const block_end = cookie->rbuf_data + block;  // one past the last byte

    bool first_expecting = true;
    uint32_t first_decoded = kNone;
    bool read_again = false;
    for (uint32_t i = scan; i <= last && !read_again; ++i) {
      if (!expects_reply(iov[i])) continue;
      if (first_expecting && got < 1) {
        tarvik_set_iov_err(cookie, iov, count, i, 0, kept);
        tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: read error, return failure on msg %d\n", kFn,
                   static_cast<int>(i));
        return false;
      }
      first_expecting = false;
      uint32_t frame_len = 0;
      void *mask = masks != nullptr ? reinterpret_cast<void *>(masks[i]) : nullptr;
      const int err = tarvik_bulkmsg_idl_decode(cookie, &frame_len, &iov[i].reply,
                                                masks != nullptr ? &mask : nullptr);
      if (err != 0) {
        tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: IDL decoding error(%d) for msg %d\n", kFn, err,
                   static_cast<int>(i));
      } else {
        if (masks != nullptr) masks[i] = reinterpret_cast<uintptr_t>(mask);
        if (first_decoded == kNone) first_decoded = i;
      }
      cookie->rbuf_cur += frame_len;
      ++decoded;
      if (cookie->rbuf_cur == block_end) {
        if (decoded >= expected) return true;
        scan = i + 1;
        read_again = true;
      } else if (i == last) {
        // The kernel sent more than was asked for.
        const uint32_t victim = first_decoded != kNone ? first_decoded : i;
        if (victim >= count) {
          tarvik_err(cookie, TLK_LEVEL_FATAL,
                     "%s: attempt to write to idx %d when size of iov is %d\n",
                     "tarvik_set_iov_err", static_cast<int>(victim), static_cast<int>(count));
        } else {
          iov[victim].read_err = EINVAL;
        }
        tarvik_err(cookie, TLK_LEVEL_ERROR,
                   "%s: %d bytes to read and %d of %d msgs were read while end of iov(%d-%d)\n",
                   kFn, static_cast<int>(block_end - cookie->rbuf_cur), static_cast<int>(decoded),
                   static_cast<int>(expected), static_cast<int>(start), static_cast<int>(last));
        return false;
      }
    }
    // Either the block is used up and more replies are due, or the walk ran out of entries with
    // bytes left: read on.  A batch that expects one reply too many never leaves this loop;
    // the vector is to be sized so that such a batch doesn't arise.
  }
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_set_sync_mode(tarvik_cookie *cookie, uint32_t mode) {
  static const char kFn[] = "tarvik_set_sync_mode";
  if (cookie == nullptr) return -1;
  if (mode >= 2) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Unsupported setting for sync mode %u", kFn, mode);
    return -1;
  }
  const tlk_platform &os = tlk::platform::ops();
  if (os.setsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_SYNC_MODE, &mode, sizeof mode) < 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Failed to set sync mode %s", kFn, strerror(errno));
    return -1;
  }
  cookie->sync_mode = mode;
  if (mode == 0) return 0;  // buffers that bulk mode made stay in place

  int send_size = 0, recv_size = 0;
  socklen_t len = sizeof send_size;
  if (os.getsockopt(cookie->fd, SOL_SOCKET, SO_SNDBUF, &send_size, &len) < 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Failed to get SO_SNDBUF %s", kFn, strerror(errno));
    return -1;
  }
  len = sizeof recv_size;
  if (os.getsockopt(cookie->fd, SOL_SOCKET, SO_RCVBUF, &recv_size, &len) < 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Failed to get SO_RCVBUF %s", kFn, strerror(errno));
    return -1;
  }
  // Enabling twice is refused, after the mode was stored and the kernel told.
  if (cookie->wbuf != nullptr || cookie->rbuf_data != nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: TLK_SYNC_BULK_ENABLE has already been set!", kFn);
    return -1;
  }
  cookie->wbuf = static_cast<uint8_t *>(tarvik_size_alloc(cookie, static_cast<size_t>(send_size)));
  if (cookie->wbuf == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Failed to allocate wbuf", kFn);
    return -1;
  }
  cookie->wbuf_cur = cookie->wbuf;
  cookie->rbuf_data =
      static_cast<uint8_t *>(tarvik_size_alloc(cookie, static_cast<size_t>(recv_size)));
  if (cookie->rbuf_data == nullptr) {
    // The send buffer stays: a retry then ends at the "already been set" check.
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Failed to allocate rbuf", kFn);
    return -1;
  }
  cookie->rbuf_cur = cookie->rbuf_end = cookie->rbuf_data;
  cookie->wbuf_sz = static_cast<uint32_t>(send_size);
  cookie->rbuf_sz = static_cast<uint32_t>(recv_size);
  return 0;
}

TLK_EXPORT int tarvik_set_bulk_buffer(tarvik_cookie *cookie, uint32_t size) {
  if (cookie == nullptr || (cookie->sync_mode & TLK_SYNC_BULK_ENABLE) == 0) return EINVAL;
  void *grown = tarvik_realloc(MEMID_TARVIK_MSG, cookie->wbuf, size);
  if (grown == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Failed to re-allocate wbuf %s",
               "tarvik_set_bulk_buffer", strerror(errno));
    return ENOMEM;
  }
  cookie->wbuf = static_cast<uint8_t *>(grown);
  cookie->wbuf_cur = cookie->wbuf;
  cookie->wbuf_sz = size;
  return 0;
}

TLK_EXPORT int tarvik_get_bulkw_info(tarvik_cookie *cookie, tarvik_bulkw_info_t *info) {
  if (cookie == nullptr || info == nullptr) return EINVAL;
  socklen_t len = sizeof *info;
  const int rc =
      tlk::platform::ops().getsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_BULKW_INFO, info, &len);
  if (rc != 0) {
    const int err = errno;
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to get bulk write info %s", strerror(err));
    errno = err;
  }
  return rc;
}

TLK_EXPORT int tarvik_set_io_min_elapse(tarvik_cookie *cookie, uint32_t value, int type) {
  if (cookie == nullptr) return -1;
  const tlk_platform &os = tlk::platform::ops();
  if (type == 0) {
    if (os.setsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_SYNC_ELAPSE, &value, sizeof value) < 0) {
      tarvik_err(cookie, TLK_LEVEL_ERROR, "failed to set sync snd min elapsed time %s",
                 strerror(errno));
      return -1;
    }
  } else if (type == 1) {
    if (os.setsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_ASYNC_ELAPSE, &value, sizeof value) < 0) {
      tarvik_err(cookie, TLK_LEVEL_ERROR, "failed to set asnyc rcv min elapsed time %s",
                 strerror(errno));
      return -1;
    }
  } else {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "Illegal socket type: %d", type);
  }
  return 0;
}

TLK_EXPORT void tarvik_set_iov_err(tarvik_cookie *cookie, tarvik_msg_iov_t *iov, uint32_t count,
                                   uint32_t index, int is_write, int value) {
  static const char kFn[] = "tarvik_set_iov_err";
  if (cookie == nullptr || iov == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: NULL ptr: iov=%p, cookie=%p\n", kFn,
               static_cast<void *>(iov), static_cast<void *>(cookie));
    return;
  }
  if (index >= count) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: attempt to write to idx %d when size of iov is %d\n",
               kFn, static_cast<int>(index), static_cast<int>(count));
    return;
  }
  int32_t &target = is_write != 0 ? iov[index].write_err : iov[index].read_err;
  if (value != 0) {
    target = value;
  } else if (errno != 0) {
    target = errno;
  } else {
    target = EINVAL;
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: errno is 0 when non-zero is expected!\n", kFn);
  }
}

TLK_EXPORT int tarvik_msg_writev_idl(tarvik_cookie *cookie, uint32_t count, tarvik_msg_iov_t *iov,
                                     uintptr_t *masks) {
  static const char kFn[] = "tarvik_msg_writev_idl";
  if (cookie == nullptr) return EINVAL;
  if (count == 0 || iov == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: Invalid input from caller: %d entries, iov=%p\n", kFn,
               static_cast<int>(count), static_cast<void *>(iov));
  }
  if (cookie->wbuf == nullptr || cookie->rbuf_data == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: iobuf not initialized for bulk write!\n", kFn);
    return 0;
  }
  cookie->wbuf_cur = cookie->wbuf;
  if (count == 0 || iov == nullptr) return 0;

  uint32_t start = 0, next = 0;
  for (;;) {
    // Fill the send buffer.  An entry's reply mark counts before its encode: an entry that
    // doesn't fit leaves its mark in this batch's expected number.
    uint32_t expected = 0, last = kNone;
    while (next < count) {
      if (expects_reply(iov[next])) ++expected;
      uint32_t len = 0;
      if (tarvik_bulkmsg_idl_encode(cookie, &len, iov[next].msg, mask_of(masks, next)) == 0) {
        cookie->wbuf_cur += len;
        last = next++;
        continue;
      }
      if (next == start) {
        tarvik_err(cookie, TLK_LEVEL_FATAL,
                   "%s: Cookie buffer(%u) not big enough for even one message(%u)\n", kFn,
                   cookie->wbuf_sz, len);
        // Past that line (a callback of the client's own) no batch can ever form: the entry is
        // marked and the operation ends rather than spin.
        iov[next].write_err = EMSGSIZE;
        cookie->wbuf_cur = cookie->wbuf;
        return 0;
      }
      break;
    }

    bool stop = false;
    const uint32_t failed = write_bulk_iov(cookie, iov, count, start, last);
    if (failed != kNone) {
      stop = true;
      if (failed == start) {
        cookie->wbuf_cur = cookie->wbuf;
        return 0;
      }
      // Entries from the failure on were not taken.  A kernel that claims more than the batch
      // held cannot stretch it.
      if (failed - 1 < last) last = failed - 1;
      expected = count_expected(iov, start, last);
    }
    if (expected > 0 &&
        !read_and_decode_bulk_iov(cookie, iov, masks, count, start, last, expected)) {
      stop = true;
    }
    cookie->wbuf_cur = cookie->wbuf;
    start = last + 1;
    if (stop || next >= count) return 0;
  }
}

}  // extern "C"
