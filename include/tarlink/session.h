/*
 * tarlink/session.h - sessions: open, tune, close.
 *
 * A session (a tarvik_cookie) is one routing socket and what the library keeps for it: the
 * sequence counter, the kernel's version reply, read buffers, bulk buffers and the asynchronous
 * record.  Opening connects the socket (non-blocking, close-on-exec), negotiates message versions
 * with the kernel, tells the kernel the sender and sets both socket buffers.  tarvik_close closes
 * the socket first and then releases all the session holds.  A session belongs to one thread at
 * a time; the library creates no thread and holds no lock.
 *
 * For example:
 *
 *   tarvik_cookie *c = tarvik_open_set_liberr(sender_id, NULL, on_diagnostic);
 *   if (c == NULL) return -1;                     // the failure was reported to on_diagnostic
 *   tarvik_seq_error_register(c, NULL, on_sequence_gap);
 *   int fd = tarvik_getsockfd(c);                 // for the caller's own event loop
 *   ...
 *   tarvik_close(c);
 */
#ifndef TARLINK_SESSION_H
#define TARLINK_SESSION_H

#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/memory.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Sessions                                                                                  */
/* ======================================================================================== */

/* Called on a sequence mismatch instead of the diagnostic: the cookie's value, then the
 * message's. */
typedef void (*tarvik_seq_error_cb)(tarvik_cookie *cookie, void *arg, uint32_t expected,
                                    uint32_t got);

/* A new, unconnected cookie, or NULL.  Makes no system call. */
TLK_EXPORT tarvik_cookie *tarvik_cookie_create(void);
/* The same as tarvik_cookie_create, for a caller that changes the cookie before connecting. */
TLK_EXPORT tarvik_cookie *tarvik_open_nc(void);
/* Connects: socket, flags, version negotiation, sender, buffers.  NULL after releasing the
 * cookie on failure; do not touch the cookie after a NULL return. */
TLK_EXPORT tarvik_cookie *tarvik_set_defaults(tarvik_cookie *cookie, uint32_t sender_id);
/* Creates and connects a session. */
TLK_EXPORT tarvik_cookie *tarvik_open(uint32_t sender_id);
/* Creates a session whose own callback also hears the failures of connecting. */
TLK_EXPORT tarvik_cookie *tarvik_open_set_liberr(uint32_t sender_id, void *arg,
                                                 tarvik_lib_error_cb cb);
/* Closes the socket first, then releases all that the session holds.  NULL is a no-op. */
TLK_EXPORT void tarvik_close(tarvik_cookie *cookie);
TLK_EXPORT void tarvik_cookie_destroy(tarvik_cookie *cookie);
/* Sets both socket buffers (and keeps the bulk read buffer in step).  0, 22, 12 or errno. */
TLK_EXPORT int tarvik_set_buffers(tarvik_cookie *cookie, int32_t send_size, int32_t recv_size);
/* Tells the kernel the sender identifier (low 8 bits).  0, or 22 for a NULL cookie. */
TLK_EXPORT int tarvik_set_sender_id(tarvik_cookie *cookie, uint32_t sender_id);
/* Sets the logical router identifier (low 16 bits).  0, or 22 for a NULL cookie. */
TLK_EXPORT int tarvik_set_lr_id(tarvik_cookie *cookie, uint32_t lr_id);
/* Passes a socket option through at level TLK_SOL_ROUTE. */
TLK_EXPORT int tarvik_setsockopt(tarvik_cookie *cookie, int option, const void *value,
                                 uint32_t length);
/* The session's descriptor, for the caller's event loop; 22 for a NULL cookie. */
TLK_EXPORT int tarvik_getsockfd(tarvik_cookie *cookie);
/* The kernel's version reply as kept by the session (borrowed), or NULL. */
TLK_EXPORT const uint8_t *tarvik_get_tarlink_version_info(tarvik_cookie *cookie);
/* Master, slave and local slave modes: 0, -1 after a diagnostic, 22 for a NULL cookie. */
TLK_EXPORT int tarvik_setup_master_mode(tarvik_cookie *cookie, uint32_t value);
TLK_EXPORT int tarvik_setup_slave_mode(tarvik_cookie *cookie, uint32_t value);
TLK_EXPORT int tarvik_setup_local_slave_mode(tarvik_cookie *cookie, uint32_t value);
/* Marks an asynchronous session that also carries statistics replies with sequence 0. */
TLK_EXPORT void tarvik_set_used_by_stats(tarvik_cookie *cookie, uint32_t flag);
/* Sets the sequence mismatch callback.  22 for a NULL cookie. */
TLK_EXPORT int tarvik_seq_error_register(tarvik_cookie *cookie, void *arg, tarvik_seq_error_cb cb);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_SESSION_H */
