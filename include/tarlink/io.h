/*
 * tarlink/io.h - synchronous message I/O.
 *
 * One write per message and one read per message on the session's non-blocking socket.  Nothing
 * waits: the kernel queues a request's reply before the request's write returns, so a read
 * straight after the write finds it, and an empty socket answers EAGAIN at once.  Raw replies
 * must carry the sequence number of the session's counter (the sequence rule); a mismatch is -2.
 *
 * For example:
 *
 *   tarvik_seq_get_next(c, &request.hdr.tlkh_seq);   // a raw request laid out by hand
 *   int err = tarvik_write(c, request.bytes, request.hdr.tlkh_msglen);
 *   void *reply = NULL;
 *   size_t length = 0;
 *   if (err == 0) err = tarvik_long_msg_read(c, &reply, &length);
 *   if (err == 0) {
 *     handle(reply, length);
 *     tarvik_msg_free(c, reply);
 *   }
 */
#ifndef TARLINK_IO_H
#define TARLINK_IO_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Synchronous message I/O                                                                   */
/* ======================================================================================== */

/* Sends the buffer in one write.  0, or the write's errno. */
TLK_EXPORT int tarvik_write(tarvik_cookie *cookie, const void *buffer, size_t length);
/* Reads one message of up to TLK_MSG_BUF_SIZE bytes into `dest`.  0, errno, EIO or -2. */
TLK_EXPORT int tarvik_msg_read(tarvik_cookie *cookie, void *dest, size_t *length);
/* Reads one message of any length into a new block, freed with tarvik_msg_free. */
TLK_EXPORT int tarvik_long_msg_read(tarvik_cookie *cookie, void **buffer, size_t *length);
/* Whole length of the next message on `fd`, or -1 with errno set (EAGAIN when none). */
TLK_EXPORT int tarvik_peek_pkt_len(int fd);
/* Applies the sequence rule to a message read by another path: 0 or -2. */
TLK_EXPORT int tarvik_check_read_seq(tarvik_cookie *cookie, const void *msg);
/* Advances the session's counter and stores the new value.  22 if either pointer is NULL. */
TLK_EXPORT int tarvik_seq_get_next(tarvik_cookie *cookie, uint32_t *seq);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IO_H */
