// Event processing: the road of a notification from a readable socket to its handler.
//
// tarvik_async_event_process reads up to num_read_msg times, walks each read buffer message by
// message, tells frames from raw records by the first word, applies the sequence rule to raw
// records, decodes frames, runs the type's in-line work on decoded messages (async/inline_work),
// and calls the slot's handler synchronously.  There is no queue here; hooked event mode hands
// each message to the client's dispatch hook instead.  A bad message costs only itself: it is
// dropped with a diagnostic and the walk goes on.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <syslog.h>

#include "async/inline_work.h"
#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "wire.h"

extern "C" {
TLK_EXPORT int tarvik_async_io_debug = 0;
}

namespace {

using tlk::platform::ops;
using tlk::platform::program_name;

constexpr char kProcess[] = "tarvik_async_event_process";
constexpr char kProcessMsg[] = "tarvik_async_process_msg";

void debug_line(const char *format, ...) TLK_PRINTF(1, 2);
void debug_line(const char *format, ...) {
  char text[256];
  va_list args;
  va_start(args, format);
  vsnprintf(text, sizeof text, format, args);
  va_end(args);
  ops().syslog(LOG_DEBUG, text);
}

// A raw record comes back as EOPNOTSUPP and takes the raw path; any other non-zero
// result is a failed decode.
int decode_message(tarvik_cookie *cookie, const uint8_t *p, size_t len, void **message) {
  return tarvik_msg_idl_decode(cookie, p, len, message, nullptr);
}

void release_message(tarvik_cookie *cookie, void *message) {
  tarvik_msg_idl_release(cookie, message, nullptr);
}

struct Walk {
  uint32_t delivered = 0;  // messages delivered from this read
};

// One decoded message.  Returns 0 when delivered, else the errno value of its failure (the caller
// releases the message).
int dispatch_decoded(tarvik_cookie *cookie, void *&message) {
  tarvik_async_info_t *info = cookie->async_info;
  ++cookie->seq;
  const auto *hdr = static_cast<const uint8_t *>(message);
  const uint32_t type = hdr[tlk::wire::kTypeAt];
  if (type > TLK_ASYNC_MAX_TYPE) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, "received async message of unknown type: %d\n",
               static_cast<int>(type));
    return EOPNOTSUPP;
  }
  tarvik_async_reg_t *slot = info->reg[type];
  if (slot == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "received async message with no handler: %d\n",
               static_cast<int>(type));
    return ENOENT;
  }
  // The library's own work on this type first (tlk::async::inline_work); it may replace the
  // message.
  const tlk::async::InlineWork &work = tlk::async::inline_work(type);
  if (work.before != nullptr) {
    const int result = work.before(cookie, &message);
    if (result != 0) return result;
  }
  if (info->mode & TLK_ASYNC_HOOKED) {  // read afresh: a handler may have changed it
    if (tarvik_async_io_debug) debug_line("%s, Enqueueing tarlink message - idl\n\n", kProcessMsg);
    return cookie->event_hooks->dispatch(cookie, slot, message, 0, 1);
  }
  slot->handler(cookie, slot->arg, message, 0);
  if (work.after != nullptr) work.after(cookie);
  return 0;
}

// One raw record.  The handler gets a private copy, so the read buffer can be reused.
int dispatch_raw(tarvik_cookie *cookie, const uint8_t *p, size_t len) {
  tarvik_async_info_t *info = cookie->async_info;
  const uint32_t type = len > tlk::wire::kTypeAt ? p[tlk::wire::kTypeAt] : 0;
  if (type > TLK_ASYNC_MAX_TYPE) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, "received async message of unknown type: %d\n",
               static_cast<int>(type));
    return EOPNOTSUPP;
  }
  void *copy = tarvik_size_alloc(cookie, len);
  if (copy == nullptr) return ENOMEM;
  memcpy(copy, p, len);
  tarvik_async_reg_t *slot = info->reg[type];
  if (slot == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "received async message with no handler: %d\n",
               static_cast<int>(type));
    tarvik_msg_free(cookie, copy);
    return ENOENT;
  }
  if (info->mode & TLK_ASYNC_HOOKED) {
    if (tarvik_async_io_debug)
      debug_line("%s, Enqueueing tarlink message - non-idl\n\n", kProcessMsg);
    return cookie->event_hooks->dispatch(cookie, slot, copy, 0, 0);  // the copy stays with the hook
  }
  slot->handler(cookie, slot->arg, copy, 0);
  return 0;
}

// Exit with error `e`: errno is `e`; the normal end, EAGAIN after at least one read, is 0.
int leave(int e, uint32_t reads) {
  errno = e;
  return (e == EAGAIN && reads > 0) ? 0 : -1;
}

}  // namespace

extern "C" {

TLK_EXPORT void tarvik_async_set_io_debug(int value) {
  tarvik_async_io_debug = value;
}

TLK_EXPORT void tarvik_async_set_num_read_msg(tarvik_cookie *cookie, uint32_t count) {
  // The store takes no other check; a null session is ignored rather than written through.
  if (cookie != nullptr) cookie->num_read_msg = count;
}

TLK_EXPORT int tarvik_async_event_process(tarvik_cookie *cookie) {
  if (cookie == nullptr || cookie->async_info == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "async event callback with invalid cookie!\n");
    errno = EINVAL;
    return -1;
  }
  const bool one_msg = (cookie->async_info->mode & TLK_ASYNC_ONE_MSG) != 0;  // read once per call
  uint32_t reads = 0;
  uint32_t total = 0;
  int saved = 0;

  for (;;) {
    // The read buffer follows the socket's receive size and is kept between events.  It is never
    // grown here; tarvik_set_buffers resizes it.
    if (cookie->rbuf_data == nullptr) {
      if (cookie->rbuf_sz == 0) {
        int size = 0;
        socklen_t len = sizeof size;
        if (ops().getsockopt(cookie->fd, SOL_SOCKET, SO_RCVBUF, &size, &len) != 0) {
          tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Failed to get SO_RCVBUF %s", kProcess,
                     strerror(errno));
          errno = EINVAL;
          return -1;
        }
        cookie->rbuf_sz = static_cast<uint32_t>(size);
      }
      cookie->rbuf_data = static_cast<uint8_t *>(tarvik_size_alloc(cookie, cookie->rbuf_sz));
      if (cookie->rbuf_data == nullptr) {
        tarvik_err(cookie, TLK_LEVEL_ERROR, "tarvik_size_alloc failed!\n");
        errno = ENOMEM;
        return -1;
      }
    }

    const ssize_t n = ops().read(cookie->fd, cookie->rbuf_data, cookie->rbuf_sz);
    if (n < 0) {
      const int err = errno;
      // The buffer matches the socket's receive size: a message too large for it means that the
      // kernel and the library disagree, and nothing sensible can follow.
      TLK_ASSERT_AT(err != EMSGSIZE, "errno != EMSGSIZE", "lib/libtarlink/async/async_event",
                    __LINE__, kProcess);
      if (err != EAGAIN)
        tarvik_err(cookie, TLK_LEVEL_FATAL, "read failed: (%d) %s", err, strerror(err));
      if (err == 0) return 0;
      return leave(err, reads);  // a saved error of an earlier round is dropped here
    }
    if (n < TLK_MIN_MSG_LEN) {
      tarvik_err(cookie, TLK_LEVEL_FATAL, "msg read too small for header: %d\n",
                 static_cast<int>(n));
      return leave(EIO, reads);
    }
    if (tarvik_async_io_debug)
      debug_line("%s, %s read %d bytes\n", kProcess, program_name(), static_cast<int>(n));

    // Walk the read message by message.  Any failure below costs only its own message.
    const uint8_t *base = cookie->rbuf_data;
    const size_t got = static_cast<size_t>(n);
    size_t pos = 0;
    Walk walk;
    while (pos < got) {
      const uint8_t *p = base + pos;
      const size_t left = got - pos;
      // By the bytes actually read: words they don't reach count as 0.
      const uint64_t whole = tlk::wire::message_length(p, left);
      if (whole == 0 || whole > left) {
        // No attempt to find the next message: the rest of this read is dropped.
        tarvik_err(cookie, TLK_LEVEL_FATAL, "corrupted msg_len (%d) (%d bytes left)",
                   static_cast<int>(whole), static_cast<int>(left));
        saved = EINVAL;
        break;
      }
      const size_t len = static_cast<size_t>(whole);

      // The sequence rule reads a full header; a record shorter than one is checked as if padded
      // with zeros, so nothing past the read is touched.
      uint8_t padded[TLK_MIN_MSG_LEN] = {};
      const uint8_t *head = p;
      if (len < TLK_MIN_MSG_LEN) {
        memcpy(padded, p, len);
        head = padded;
      }
      (void)tarvik_check_read_seq(cookie, head);  // a gap only makes noise: -2 is delivered too

      void *message = nullptr;
      int result = decode_message(cookie, p, len, &message);
      if (result == 0) {
        result = dispatch_decoded(cookie, message);
      } else if (result == EOPNOTSUPP) {
        result = dispatch_raw(cookie, head, len);
      } else {
        tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to decode the msg: error (%d)\n", result);
      }
      if (result == 0) {
        ++walk.delivered;
      } else {
        if (message != nullptr) release_message(cookie, message);
        errno = result;
      }

      if (one_msg) {
        if (len != got) {
          tarvik_err(cookie, TLK_LEVEL_FATAL, "Incorrect message length. %d != %d",
                     static_cast<int>(len), static_cast<int>(got));
        }
        if (tarvik_async_io_debug)
          debug_line("%s, %s read one msg with bulk disabled.\n", kProcess, program_name());
        break;
      }
      pos += len;
    }

    if (tarvik_async_io_debug) {
      debug_line("%s, %s read and processed %d msgs\n", kProcess, program_name(),
                 static_cast<int>(walk.delivered));
    }
    ++reads;
    total += walk.delivered;
    if (reads < cookie->num_read_msg) continue;
    // The kernel may still hold messages: the loop calls again while the descriptor is readable.
    if (tarvik_async_io_debug) {
      debug_line("%s, %s read %d msgs with %d read calls before return to select\n", kProcess,
                 program_name(), static_cast<int>(total), static_cast<int>(reads));
    }
    if (saved != 0) return leave(saved, reads);
    return 0;
  }
}

TLK_EXPORT void tarvik_async_event_callback(evContext, void *cookie, int, int) {
  (void)tarvik_async_event_process(static_cast<tarvik_cookie *>(cookie));
}

TLK_EXPORT int tarvik_async_event_loop(tarvik_cookie *cookie) {
  if (cookie == nullptr || cookie->async_info == nullptr) return EINVAL;
  if (cookie->async_info->flags & TARVIK_ASYNC_NO_CONTEXT) return EINVAL;
  return ops().evMainLoop(cookie->async_info->context);
}

TLK_EXPORT int tarvik_async_event_loop_sighdl(tarvik_cookie *cookie) {
  if (cookie == nullptr || cookie->async_info == nullptr) return EINVAL;
  if (cookie->async_info->flags & TARVIK_ASYNC_NO_CONTEXT) return EINVAL;
  return ops().evMainLoopSyncSighdl(cookie->async_info->context);
}

TLK_EXPORT int tarvik_async_subtype_handler(tarvik_cookie *cookie, void *record, void *msg,
                                            uintptr_t word) {
  // Called by the event engine with its own record and message; a direct call without them has
  // nothing to dispatch.
  if (record == nullptr || msg == nullptr) return EINVAL;
  const auto *info = static_cast<const tarvik_async_subtype_info_t *>(record);
  const auto *bytes = static_cast<const uint8_t *>(msg);
  const uint32_t offset = info->offset;
  const uint32_t length = tlk::wire::load_u32(bytes + tlk::wire::kMsglenAt);
  if (static_cast<uint64_t>(length) < static_cast<uint64_t>(offset) + 1) {
    tarvik_err(cookie, TLK_LEVEL_ERROR,
               "received async message with length < needed for subtype msg_type = %d subtype "
               "offset=%d msglen=%d\n",
               bytes[tlk::wire::kTypeAt], static_cast<int>(offset), static_cast<int>(length));
    tarvik_msg_free(cookie, msg);
    return 0;
  }
  const uint8_t subtype = bytes[offset];
  if (subtype >= info->count) {
    tarvik_err(cookie, TLK_LEVEL_ERROR,
               "received async message with invalid subtype msg_type = %d subtype offset=%d "
               "msglen=%d subtype = %d\n",
               bytes[tlk::wire::kTypeAt], static_cast<int>(offset), static_cast<int>(length),
               subtype);
    tarvik_msg_free(cookie, msg);
    return 0;
  }
  const tarvik_async_reg_t &entry = info->table[subtype];
  if (entry.handler == nullptr) {
    tarvik_msg_free(cookie, msg);  // no word: an entry without a handler just drops its messages
    return 0;
  }
  return entry.handler(cookie, entry.arg, msg, word);
}

//   0    4   5   6   7   8          12     16     20  21   24  25  26     28         32
//   +----+---+---+---+---+----------+------+------+---+----+---+---+------+----------+-------..
//   | 0  |'b'|'O'|op | 0 | whole len| seq  |  0   |32 | 0  |typ| 0 |flags | length   | data, 0-padded
//   +----+---+---+---+---+----------+------+------+---+----+---+---+------+----------+-------..
// The whole length is (length + 35) with the low two bits cleared; the copy takes the low 16 bits
// of length.
TLK_EXPORT int tarvik_async_opaque_handle(tarvik_cookie *cookie, uint8_t op, const void *data,
                                          uint32_t length, void **reply_out, uint8_t opaque_type,
                                          uint16_t flags) {
  if (cookie == nullptr || reply_out == nullptr) return EINVAL;
  const uint32_t whole = (length + 35u) & ~3u;
  const uint32_t copied = length & 0xffffu;
  // The block leaves 16352 bytes for data; more would write past it.
  if (whole > TLK_MSG_BUF_SIZE || 32u + copied > TLK_MSG_BUF_SIZE) return EINVAL;
  tlk::request::Block request(cookie);
  if (!request) return ENOMEM;
  const bool wants_reply = (flags & 1u) != 0;
  tlk::request::Block reply(cookie, wants_reply);
  if (wants_reply && !reply) return ENOMEM;
  uint8_t *m = request.bytes();
  // The whole length comes out as computed above: an accepted length is at most 16349.
  (void)tlk::request::fill_raw_header(m, TLK_MSG_ASYNC_OPAQUE, op, tlk::request::next_seq(cookie),
                                      32, length);
  m[24] = opaque_type;
  tlk::wire::store_u16(m + 26, flags);
  tlk::wire::store_u32(m + 28, copied);
  if (data != nullptr && copied != 0) memcpy(m + 32, data, copied);
  return tlk::request::raw_exchange(cookie, m, reply, reply_out).code();
}

}  // extern "C"
