// Synchronous message I/O: one write per message, one read per message, and the sequence rule.
//
// Nothing here waits.  The socket is non-blocking, and the kernel queues a request's reply before
// the request's write returns, so a read straight after a write finds the reply, and an empty
// socket answers EAGAIN at once.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>

#include "cookie.h"
#include "platform/platform.h"
#include "wire.h"

namespace {

using tlk::wire::is_frame_magic;
using tlk::wire::word_at;

// The raw read step shared by the fixed and the long read.  `*length` is the size to read in,
// and what the message turned out to be out.
int raw_read(tarvik_cookie *cookie, uint8_t *buf, size_t *length) {
  const ssize_t count = tlk::platform::ops().read(cookie->fd, buf, *length);
  if (count < 0) {
    const int err = errno;
    if (err != EAGAIN)
      tarvik_err(cookie, TLK_LEVEL_FATAL, "read failed: (%d) %s", err, strerror(err));
    return err;
  }
  // Frames are not length-checked here: their length lives in the frame head.
  if (*length >= 4 && is_frame_magic(word_at(buf, *length, 0))) {
    *length = static_cast<size_t>(count);
    return 0;
  }
  const uint32_t msglen = word_at(buf, *length, tlk::wire::kMsglenAt / 4);
  const uint32_t got = static_cast<uint32_t>(count);
  if (msglen > got) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "msg read too short got (%d), expected %d\n",
               static_cast<int>(got), static_cast<int>(msglen));
    return EIO;
  }
  if (msglen < got) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, "msg read too long got (%d), expected %d\n",
               static_cast<int>(got), static_cast<int>(msglen));
  }
  *length = msglen;  // any excess is dropped
  return 0;
}

// Next message length, without consuming it.  False with errno EAGAIN when fewer than the 24
// bytes of a header are there, whatever the cause.
bool peek_length(int fd, uint32_t *length) {
  uint8_t head[TLK_MIN_MSG_LEN];
  errno = 0;
  const ssize_t count = tlk::platform::ops().recv(fd, head, sizeof head, MSG_PEEK);
  // The socket is expected never to report that a peek does not fit.
  TLK_ASSERT_AT(errno != EMSGSIZE, "errno != EMSGSIZE", "lib/libtarlink/tarvik_io", 713,
                "tarvik_peek_pkt_len");
  if (count < static_cast<ssize_t>(sizeof head)) {
    errno = EAGAIN;
    return false;
  }
  // A frame's length wraps in 32 bits here, as the peek has always reported it.
  *length = static_cast<uint32_t>(tlk::wire::message_length(head, sizeof head));
  return true;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_write(tarvik_cookie *cookie, const void *buffer, size_t length) {
  if (cookie == nullptr) return EINVAL;
  const ssize_t count = tlk::platform::ops().write(cookie->fd, buffer, length);
  if (count < 0) return errno;
  if (static_cast<size_t>(count) < length) {
    // The suffix is the reverse of English on purpose ("1 bytes", "2 byte"); logs are matched
    // against these words.
    tarvik_err(cookie, TLK_LEVEL_FATAL, "wrote %u byte%s to routing socket, got %d",
               static_cast<unsigned>(length), length == 1 ? "s" : "", static_cast<int>(count));
  }
  return 0;
}

TLK_EXPORT int tarvik_check_read_seq(tarvik_cookie *cookie, const void *msg) {
  if (cookie == nullptr || msg == nullptr) return EINVAL;
  const auto *bytes = static_cast<const uint8_t *>(msg);
  // The framed reply's own number is neither read nor compared at this level.
  if (is_frame_magic(word_at(bytes, TLK_MIN_MSG_LEN, 0))) return 0;
  const uint32_t got = word_at(bytes, TLK_MIN_MSG_LEN, tlk::wire::kSeqAt / 4);
  const bool async = cookie->async_info != nullptr;
  // A statistics reply with no place in the stream passes an asynchronous session.
  if (async && cookie->used_by_stats != 0 && got == 0) return 0;

  int result = 0;
  if (got != cookie->seq) {
    if (cookie->seq_error_cb != nullptr) {
      cookie->seq_error_cb(cookie, cookie->seq_error_arg, cookie->seq, got);
    } else {
      tarvik_err(cookie, async ? TLK_LEVEL_ERROR : TLK_LEVEL_FATAL, "%s seq mismatch: (%u != %u)\n",
                 async ? "async message" : "request/reply", cookie->seq, got);
    }
    result = -2;
  }
  // An asynchronous stream resynchronises itself, mismatch or not.
  if (async) cookie->seq = got + 1;
  return result;
}

TLK_EXPORT int tarvik_msg_read(tarvik_cookie *cookie, void *dest, size_t *length) {
  if (cookie == nullptr || dest == nullptr) return EINVAL;
  size_t len = TLK_READ_BUF_SIZE;
  const int err = raw_read(cookie, cookie->read_buffer, &len);
  if (err != 0) return err;
  if (len < TLK_MIN_MSG_LEN) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "msg read too small for header: %d\n",
               static_cast<int>(len));
    return EIO;
  }
  if (len > TLK_MSG_BUF_SIZE) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "msg read too large for tarlink message: %d\n",
               static_cast<int>(len));
    return EIO;
  }
  const int seq_result = tarvik_check_read_seq(cookie, cookie->read_buffer);
  if (length != nullptr) *length = len;
  memcpy(dest, cookie->read_buffer, len);  // delivered also after a sequence mismatch
  return seq_result;
}

TLK_EXPORT int tarvik_peek_pkt_len(int fd) {
  uint32_t length = 0;
  if (!peek_length(fd, &length)) return -1;
  return static_cast<int>(length);
}

TLK_EXPORT int tarvik_long_msg_read(tarvik_cookie *cookie, void **buffer, size_t *length) {
  if (buffer != nullptr) *buffer = nullptr;
  if (length != nullptr) *length = 0;
  if (cookie == nullptr || buffer == nullptr) return EINVAL;

  uint32_t peeked = 0;
  if (!peek_length(cookie->fd, &peeked)) return errno;
  if (peeked == 0 || peeked > 0x7FFFFFFDu) return EINVAL;

  auto *msg = static_cast<uint8_t *>(tarvik_size_alloc(cookie, peeked));
  if (msg == nullptr) return ENOMEM;
  size_t len = peeked;
  int err = raw_read(cookie, msg, &len);
  if (err == 0 && len < TLK_MIN_MSG_LEN) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "msg read too small for header: %d\n",
               static_cast<int>(len));
    err = EIO;
  }
  if (err != 0) {
    tarvik_msg_free(cookie, msg);
    return err;
  }
  const int seq_result = tarvik_check_read_seq(cookie, msg);
  *buffer = msg;
  if (length != nullptr) *length = len;
  return seq_result;
}

TLK_EXPORT int tarvik_seq_get_next(tarvik_cookie *cookie, uint32_t *seq) {
  if (cookie == nullptr || seq == nullptr) return EINVAL;
  *seq = ++cookie->seq;
  return 0;
}

}  // extern "C"
