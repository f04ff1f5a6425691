// The envelope at the session's bulk buffers: encode in place at the write cursor, decode the
// frame at the read cursor.  Neither moves a cursor: the bulk writer owns them.
//
//   wbuf          wbuf_cur                 wbuf + wbuf_sz
//    |  frames ... |  room for the next one  |
//
//   rbuf_data     rbuf_cur          rbuf_end (last valid byte)      rbuf_data + rbuf_sz
//    |  decoded    |  frame  frame ...   |                                 |
#include <errno.h>

#include "cookie.h"
#include "idl/envelope.h"

namespace {

bool send_buffer_sound(const tarvik_cookie *c) {
  return c->wbuf != nullptr && c->wbuf_cur >= c->wbuf &&
         static_cast<size_t>(c->wbuf_cur - c->wbuf) <= c->wbuf_sz;
}

// rbuf_end names the last valid byte, so it must lie inside the buffer: an end at rbuf_data +
// rbuf_sz would let the decoder read one byte past the block.
bool receive_buffer_sound(const tarvik_cookie *c) {
  const uint8_t *base = c->rbuf_data;
  return base != nullptr && c->rbuf_cur >= base &&
         static_cast<size_t>(c->rbuf_cur - base) <= c->rbuf_sz && c->rbuf_end >= base &&
         c->rbuf_end > c->rbuf_cur && static_cast<size_t>(c->rbuf_end - base) < c->rbuf_sz;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_bulkmsg_idl_encode(tarvik_cookie *cookie, uint32_t *out_length,
                                         const void *rawmsg, const void *mask) {
  static const char kFn[] = "tarvik_bulkmsg_idl_encode";
  if (cookie == nullptr || rawmsg == nullptr || out_length == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: Invalid input from caller: cookie=%p, rawmsg=%p\n",
               kFn, static_cast<void *>(cookie), rawmsg);
    if (out_length != nullptr) *out_length = 0;
    return EINVAL;
  }
  if (!send_buffer_sound(cookie)) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: Invalid/Corrupted common send buffer\n", kFn);
    *out_length = 0;
    return EINVAL;
  }
  *out_length = 0;
  const auto room = static_cast<uint32_t>(cookie->wbuf + cookie->wbuf_sz - cookie->wbuf_cur);
  const uint32_t need = tlk::idl::encode_frame(rawmsg, mask, cookie->wbuf_cur, room);
  if (need > room) return ENOMEM;  // silent: the caller flushes what it has and tries again
  *out_length = need;
  return 0;
}

TLK_EXPORT int tarvik_bulkmsg_idl_decode(tarvik_cookie *cookie, uint32_t *out_decoded_length,
                                         void **in_out_msg, void **out_mask) {
  static const char kFn[] = "tarvik_bulkmsg_idl_decode";
  void *const kept = in_out_msg != nullptr ? *in_out_msg : nullptr;
  if (cookie == nullptr || out_decoded_length == nullptr || in_out_msg == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_FATAL,
               "%s: Invalid input from caller: cookie=%p, len_decoded=%p\n", kFn,
               static_cast<void *>(cookie), static_cast<void *>(out_decoded_length));
    return EINVAL;
  }
  if (!receive_buffer_sound(cookie)) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: Invalid/Corrupted common receive buffer\n", kFn);
    return EINVAL;
  }
  // rbuf_end is the last valid byte, so the count is one more than the distance.
  const auto available = static_cast<uint32_t>(cookie->rbuf_end - cookie->rbuf_cur + 1);
  *out_decoded_length = 0;
  if (available < 24) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s: msg read too small for header: %d\n", kFn,
               static_cast<int>(available));
    return EINVAL;
  }
  // The decoder is given the rest of the block: a message decoded here carries, in its
  // tlkh_msglen, the bytes available from this frame on rather than the frame's own size.
  uint32_t frame = 0;
  const int err = tlk::idl::decode_with_growth(cookie, cookie->rbuf_cur, available, in_out_msg,
                                               out_mask, &frame, /*tight=*/true);
  if (err != 0) {
    *in_out_msg = kept;
    return err;
  }
  if (frame > available) {
    tarvik_err(cookie, TLK_LEVEL_ERROR,
               "%s: len(%d) in IDL-ized msg hdr exceeded boundary of read data(%d)\n", kFn,
               static_cast<int>(frame), static_cast<int>(available));
    tarvik_msg_idl_release(cookie, *in_out_msg, nullptr);
    *in_out_msg = kept;
    return EIO;
  }
  *out_decoded_length = frame;
  return 0;
}

}  // extern "C"
