/*
 * tarlink/rtb.h - route tables ("rttable") and named table classes ("rt class").
 *
 * A route table is keyed by its table id and address family and carries a name and a logical
 * router name; table id 65535 in a read means "find by name".  A table class (ntbl) maps a name
 * to a small index.  Reads are one request-reply exchange each and give a decoded rtb_msg or
 * ntbl_msg, released with tarvik_msg_idl_release; adds, updates and deletes are writes that
 * nothing answers.  Names are cut silently: a table name keeps at most 127 characters, a class
 * name 253, and the record's length counts the end byte.  Notifications of changes:
 * tarvik_rtbm_async_register and tarvik_rtclass_async_register (tarlink/async.h).
 *
 * For example:
 *
 *   if (tarvik_rtbm_add(c, "blue", 12, TLK_AF_INET, 0) == 0) {
 *     void *got = NULL;
 *     if (tarvik_rtbm_get_by_name(c, TLK_AF_INET, "blue", &got, NULL) == 0) {
 *       const rtb_msg *t = got;
 *       printf("%s is table %u\n", (const char *)t->rtb_name, t->tid);
 *       tarvik_msg_idl_release(c, got, NULL);
 *     }
 *   }
 */
#ifndef TARLINK_RTB_H
#define TARLINK_RTB_H

#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* rtb_flags of the default table. */
#define TLK_RTB_DEFAULT 8
/* The table id that makes a read look the table up by name. */
#define TLK_RTB_TID_BY_NAME 65535

/* ======================================================================================== */
/* Route tables                                                                              */
/* ======================================================================================== */

/* Reads the table `name` (at most 127 characters) of family `af`.  EINVAL without cookie, out or name. */
TLK_EXPORT int tarvik_rtbm_get_by_name(tarvik_cookie *cookie, uint32_t af, const char *name,
                                       void **out, void **mask);
/* Reads the table (`tid`, `af`) with TLK_OP_GET, or the one after it with TLK_OP_GETNEXT. */
TLK_EXPORT int tarvik_rtbm_get_by_index(tarvik_cookie *cookie, uint32_t af, uint32_t tid,
                                        uint32_t op, void **out, void **mask);
/* Adds a table with logical router "null" and prflags 1; a NULL name is "default" (flags 8). */
TLK_EXPORT int tarvik_rtbm_add(tarvik_cookie *cookie, const char *name, uint32_t tid, uint32_t af,
                               uint32_t hdr_flags);
/* The same with the caller's protocol flags. */
TLK_EXPORT int tarvik_rtbm_add_prflag(tarvik_cookie *cookie, const char *name, uint32_t tid,
                                      uint32_t af, uint32_t hdr_flags, uint32_t prflags);
/* The same with a logical router's name (NULL sends none) and id; hdr_flags go in tlkh_flags. */
TLK_EXPORT int tarvik_rtbm_add_lr(tarvik_cookie *cookie, const char *name, uint32_t tid,
                                  uint32_t af, const char *lrname, uint32_t lrid,
                                  uint32_t hdr_flags, uint32_t prflags);
/* Writes a table's index and two update values with the caller's op; a name if not NULL. */
TLK_EXPORT int tarvik_rtbm_update(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                  uint32_t rtb_index, const char *name, uint32_t rtb_arg_a,
                                  uint32_t rtb_arg_b, uint32_t op);
/* The same as an add with protocol flags and an attachment (selector 104) naming a services channel. */
TLK_EXPORT int tarvik_rtbm_update_svcs_chan(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                            uint32_t rtb_index, const char *name,
                                            uint32_t rtb_arg_a, uint32_t rtb_arg_b,
                                            uint32_t channel, uint32_t prflags);

/* ======================================================================================== */
/* Table classes                                                                             */
/* ======================================================================================== */

/* Adds a class; the kernel gives it an index.  EINVAL for a NULL name (as in every named entry). */
TLK_EXPORT int tarvik_ntblm_add(tarvik_cookie *cookie, const char *name, uint32_t af);
/* Adds (or renames) the class at `idx`. */
TLK_EXPORT int tarvik_ntblm_add_by_index(tarvik_cookie *cookie, const char *name, uint32_t idx,
                                         uint32_t af);
/* Deletes the class of that name. */
TLK_EXPORT int tarvik_ntblm_delete_by_name(tarvik_cookie *cookie, const char *name, uint32_t af);
/* Deletes the class at `idx`. */
TLK_EXPORT int tarvik_ntblm_delete_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af);
/* Sends `op` for the class at `idx`; every op but add and delete reads one ntbl_msg into *out,
 * which isn't tested first (without it the request goes and the read gives EINVAL). */
TLK_EXPORT int tarvik_ntblm_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af,
                                         uint32_t op, void **out, void **mask);
/* The same by name (TLK_OP_GETNEXT: the class after it in name order). */
TLK_EXPORT int tarvik_ntblm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t af,
                                        uint32_t op, void **out, void **mask);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_RTB_H */
