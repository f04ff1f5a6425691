/*
 * tarlink/ifstate.h - the interface state log ("ifstate", type 47, and "ifsclinfo", type 85).
 *
 * The kernel keeps a chain of object states, each record with a 64-bit sequence number, the kind
 * of object, client masks of pending adds, changes and deletes, and the object's own record.  A
 * client reads a record by sequence number (op TLK_OP_GET) or the one behind it (TLK_OP_GETNEXT),
 * carrying the number itself, or takes the records as notifications
 * (tarvik_ifsm_async_register, tarlink/async.h); the end of the chain comes as an "ifsclinfo".
 * The printers render records for traces; they read the system control
 * "hw.product.ifs_max_clients" into ifs_max_clients on each record, and are not reentrant.
 *
 * For example:
 *
 *   void *rec = NULL;
 *   uint64_t seq = 0;
 *   char line[1024];
 *   while (tarvik_ifsm_get(c, 0, seq, TLK_OP_GETNEXT, &rec) == 0) {
 *     tarvik_ifsm_print(rec, line, sizeof line, 2);
 *     fputs(line, stdout);
 *     memcpy(&seq, (const uint8_t *)rec + 32, 8);   // ifsm_seq
 *     tarvik_msg_free(c, rec);
 *   }
 */
#ifndef TARLINK_IFSTATE_H
#define TARLINK_IFSTATE_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Interface state log                                                                       */
/* ======================================================================================== */

/* The most clients the kernel's masks count, as last read by a printer (0 until then). */
extern TLK_EXPORT uint32_t ifs_max_clients;

/* Reads the record `seq` (op TLK_OP_GET) or the one after it (TLK_OP_GETNEXT) into *out, a raw
 * block freed with tarvik_msg_free: 0, EINVAL, ENOMEM, or the write's or read's result. */
TLK_EXPORT int tarvik_ifsm_get(tarvik_cookie *cookie, uint32_t unused, uint64_t seq, uint32_t op,
                               void **out);
/* Writes the record's line (kind, seq, masks, refs, pid, rt_sid) into `buffer`, and with
 * `detail` 2 the object record's lines; gives the bytes written. */
TLK_EXPORT int tarvik_ifsm_print(const void *message, char *buffer, size_t size, int detail);
/* Writes the object record `info` of kind `kind` at *position, moving it on and reducing *left;
 * kinds above 53 write nothing. */
TLK_EXPORT void tarvik_ifsm_info_print(int kind, const void *info, char **position, int *left);
/* Writes an "ifsclinfo" message's line: the last snprintf result. */
TLK_EXPORT int tarvik_ifsclim_print(const void *message, char *buffer, size_t size);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IFSTATE_H */
