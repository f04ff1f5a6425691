/*
 * tarlink/bulk.h - bulk transfer: many messages per system call.
 *
 * In bulk mode the requests of a vector are encoded back to back into the session's send buffer
 * and written in as few writes as the buffer allows; the kernel may take part of a write and
 * says how far it came, and the replies come packed into as few reads.  Each entry carries its
 * own outcome: a write error, a read error, and its decoded reply if it expected one.
 *
 * For example:
 *
 *   tarvik_set_sync_mode(c, TLK_SYNC_BULK_ENABLE);
 *   tarvik_msg_iov_t iov[2] = {{add_request, NULL, 0, 0}, {get_request, NULL, 0, 0}};
 *   iov[1].reply = &iov[1].reply;                 // this entry expects a reply
 *   tarvik_msg_writev_idl(c, 2, iov, NULL);
 *   if (iov[0].write_err != 0) report(iov[0].write_err);
 *   if (iov[1].read_err == 0) use(iov[1].reply), tarvik_msg_idl_release(c, iov[1].reply, NULL);
 */
#ifndef TARLINK_BULK_H
#define TARLINK_BULK_H

#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Bulk transfer: many messages per system call                                              */
/* ======================================================================================== */

/* One entry of a bulk vector.  `reply` holding its own address marks an entry that expects a
 * reply; afterwards it holds the decoded reply, which the caller owns (tarvik_msg_idl_release).
 * The caller zeroes both error words beforehand; the library never clears them. */
typedef struct tarvik_msg_iov {
  void *msg;         /* the request, a raw message */
  void *reply;       /* in: &reply to expect one; out: the decoded reply */
  int32_t write_err; /* why the message wasn't taken */
  int32_t read_err;  /* why its reply wasn't obtained */
} tarvik_msg_iov_t;

/* What the kernel says of the last bulk write (option 25). */
typedef struct tarvik_bulkw_info {
  uint32_t err;   /* error of the message at which the kernel stopped; 0 if none */
  uint32_t count; /* messages of the last write that the kernel took */
  uint32_t third; /* the kernel's own; not interpreted */
} tarvik_bulkw_info_t;

/* Turns bulk mode on (1) or off (0).  On: the send and receive buffers, as large as the socket's
 * buffers.  0, or -1 after a diagnostic (and for a NULL cookie). */
TLK_EXPORT int tarvik_set_sync_mode(tarvik_cookie *cookie, uint32_t mode);
/* Resizes the bulk send buffer.  0; EINVAL without bulk mode; ENOMEM. */
TLK_EXPORT int tarvik_set_bulk_buffer(tarvik_cookie *cookie, uint32_t size);
/* Reads the bulk write information.  0; EINVAL for a NULL pointer; else getsockopt's result. */
TLK_EXPORT int tarvik_get_bulkw_info(tarvik_cookie *cookie, tarvik_bulkw_info_t *info);
/* Paces the kernel's side: type 0 synchronous sends, type 1 asynchronous receives.  0 or -1. */
TLK_EXPORT int tarvik_set_io_min_elapse(tarvik_cookie *cookie, uint32_t value, int type);
/* Sends `count` requests in as few writes as the send buffer allows and reads their replies.
 * `masks` (may be NULL) holds one word per entry: 0 for IDR, else the address of the entry's TLV
 * mask; it receives the masks of TLV replies.  EINVAL for a NULL cookie, else 0: the outcome of
 * each entry is in the entry.  Size the vector so that its requests fit one write (the bulk
 * buffer, 512 KiB by default) whenever an entry expects a reply: a write cut short just before
 * an entry that expects one still counts that reply, and reads for it without end. */
TLK_EXPORT int tarvik_msg_writev_idl(tarvik_cookie *cookie, uint32_t count, tarvik_msg_iov_t *iov,
                                     uintptr_t *masks);
/* Stores an entry's write (is_write non-zero) or read error: `value`, or errno when it is 0. */
TLK_EXPORT void tarvik_set_iov_err(tarvik_cookie *cookie, tarvik_msg_iov_t *iov, uint32_t count,
                                   uint32_t index, int is_write, int value);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_BULK_H */
