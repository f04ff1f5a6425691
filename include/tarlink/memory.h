/*
 * tarlink/memory.h - memory accounting and diagnostics.
 *
 * Every allocation of the library goes through four replaceable allocator pointers and names the
 * submodule that makes it (MEMID_TARVIK_*).  With accounting on, each identifier keeps counts of
 * allocations, failures, frees and blocks outstanding, which doubles as a leak check: a client
 * that closes its sessions finds every outstanding count back where it started.  Message blocks
 * come from tarvik_msg_malloc and go back with tarvik_msg_free, as do decoded messages.
 *
 * Diagnostics go through tarvik_err to the session's callback, "tarvik: " and the level word
 * first; the default callback writes to the system log and ends the process on TLK_LEVEL_FATAL.
 *
 * For example:
 *
 *   tarvik_mem_rec_enable(NULL, NULL);           // before the first allocation to count
 *   tarvik_cookie *c = tarvik_open_set_liberr(sender, NULL, on_diagnostic);
 *   void *block = tarvik_msg_malloc(c);           // TLK_MSG_BUF_SIZE zeroed bytes
 *   ...
 *   tarvik_msg_free(c, block);
 *   tarvik_close(c);
 *   // now tarvik_mem_record.cnts[MEMID_TARVIK_MSG].outstanding is as it was before the open
 */
#ifndef TARLINK_MEMORY_H
#define TARLINK_MEMORY_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Memory accounting                                                                         */
/* ======================================================================================== */

/* The four allocator pointers.  Replace them before the first use of the library, if at all. */
extern TLK_EXPORT void *(*tarvik_malloc)(unsigned memid, size_t size);
extern TLK_EXPORT void (*tarvik_free)(unsigned memid, void *block);
extern TLK_EXPORT void *(*tarvik_calloc)(unsigned memid, size_t count, size_t size);
extern TLK_EXPORT void *(*tarvik_realloc)(unsigned memid, void *block, size_t size);

/* One counter entry per memory identifier.  A check byte is the XOR of its counter's four bytes,
 * or 0xBE where that XOR is zero, so a valid check byte is never zero. */
typedef struct tarvik_mem_cnt {
  uint8_t chk[4];      /* check bytes: allocations, failures, frees, outstanding */
  uint32_t allocs;     /* successful allocations */
  uint32_t fails;      /* failed allocations */
  uint32_t frees;      /* frees */
  int32_t outstanding; /* allocations minus frees */
} tarvik_mem_cnt_t;

typedef struct tarvik_mem_record_t {
  tarvik_mem_cnt_t *cnts;       /* 77 entries; NULL until the first counted event */
  uint16_t submod_max;          /* MEMID_TARVIK_MAX once set */
  tarvik_mem_cnt_t *cnts_saved; /* second copy of cnts, to catch a damaged root */
} tarvik_mem_record_t;

extern TLK_EXPORT tarvik_mem_record_t tarvik_mem_record;       /* root of the accounting */
extern TLK_EXPORT int32_t tarvik_mem_rec_enabled;              /* non-zero: accounting is on */
extern TLK_EXPORT void (*tarvik_mem_rec_lock)(void);           /* called before a counter changes */
extern TLK_EXPORT void (*tarvik_mem_rec_unlock)(void);         /* called after */
extern TLK_EXPORT const uint16_t memid_tarvik_itable_borrower; /* 63 */
extern TLK_EXPORT const uint16_t memid_tarvik_itable_donor;    /* 64 */

/* Turns accounting on for good, with optional lock functions around each counter change. */
TLK_EXPORT void tarvik_mem_rec_enable(void (*lock)(void), void (*unlock)(void));

/* Zero-filled block of `size` bytes (identifier 75); NULL for a NULL cookie or no memory. */
TLK_EXPORT void *tarvik_size_alloc(tarvik_cookie *cookie, size_t size);
/* Zero-filled message block of TLK_MSG_BUF_SIZE bytes (identifier 75). */
TLK_EXPORT void *tarvik_msg_malloc(tarvik_cookie *cookie);
/* Gives back a message block or a decoded message; NULL cookie or block is a no-op. */
TLK_EXPORT void tarvik_msg_free(tarvik_cookie *cookie, void *block);
/* The allocator pair handed to the IDL decoders (identifier 58). */
TLK_EXPORT void *tarvik_malloc_cb(size_t size);
TLK_EXPORT void tarvik_free_cb(void *block);
/* The allocator pair handed to integer tables; the identifier must lie in 62 to 65. */
TLK_EXPORT void *tarvik_malloc_itable(const uint16_t *memid, size_t size);
TLK_EXPORT void tarvik_free_itable(const uint16_t *memid, void *block);

/* ======================================================================================== */
/* Diagnostics                                                                               */
/* ======================================================================================== */

/* Receives every diagnostic of a session: "tarvik: " and the level word, then the message,
 * cut at 255 characters. */
typedef void (*tarvik_lib_error_cb)(tarvik_cookie *cookie, void *arg, int level, const char *text);

/* Emits a diagnostic through the cookie's callback, or to the system log without a cookie. */
TLK_EXPORT void tarvik_err(tarvik_cookie *cookie, int level, const char *format, ...)
    TLK_PRINTF(3, 4);
/* The default callback: system log at priority 7, 6, 4, 3; level 4 logs at 2 and calls exit(1). */
TLK_EXPORT void tarvik_lib_error(tarvik_cookie *cookie, void *arg, int level, const char *text);
/* Sets the session's diagnostics callback (NULL silences the session).  22 for a NULL cookie. */
TLK_EXPORT int tarvik_lib_error_register(tarvik_cookie *cookie, void *arg, tarvik_lib_error_cb cb);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_MEMORY_H */
