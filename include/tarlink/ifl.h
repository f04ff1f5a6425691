/*
 * tarlink/ifl.h - logical interfaces ("iflogical").
 *
 * The logical units of a device, read one at a time by index, SNMP id, device and unit, or name
 * and unit; a getnext walks them in index order; all of them at once through the system control.
 * Updates and point changes are writes that nothing answers.  Their statistics ("iflstats") are
 * raw requests behind replaceable pointers.  Interface sets are gencfg blobs (major 10, minor 0,
 * keyed by the set's index), read here into an iflset_blob.  Notifications of changes:
 * tarvik_iflm_async_register (tarlink/async.h).
 *
 * For example:
 *
 *   void *got = NULL;
 *   for (uint32_t index = 0;
 *        tarvik_iflm_get_by_index(c, index, TLK_OP_GETNEXT, &got, NULL) == 0;) {
 *     const ifl_msg *u = got;
 *     index = u->iflm_index.idx;                  // the key of the next step
 *     use(u);
 *     tarvik_msg_idl_release(c, got, NULL);
 *   }
 */
#ifndef TARLINK_IFL_H
#define TARLINK_IFL_H

#include <stdint.h>

#include "tarlink/async.h"
#include "tarlink/base.h"
#include "tarlink/frame.h"
#include "tarlink/msg_list.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Logical interfaces                                                                        */
/* ======================================================================================== */

/* Reads one logical interface (op TLK_OP_GET) or the one after the key (TLK_OP_GETNEXT).  On
 * success *out is a decoded ifl_msg, released with tarvik_msg_idl_release; on failure NULL.  The
 * request goes out in IDR; `mask` receives the reply's presence map when it comes in TLV. */
TLK_EXPORT int tarvik_iflm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                        void **out, void **mask);
TLK_EXPORT int tarvik_iflm_get_by_snmp_index(tarvik_cookie *cookie, uint32_t snmp_id, uint32_t op,
                                             void **out, void **mask);
TLK_EXPORT int tarvik_iflm_get_by_device(tarvik_cookie *cookie, uint32_t devidx, uint32_t unit,
                                         uint32_t op, void **out, void **mask);
/* `name` is the device part alone (cut at 59 characters), `unit` the number behind the point. */
TLK_EXPORT int tarvik_iflm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t unit,
                                       uint32_t op, void **out, void **mask);
/* Every logical interface, through tarvik_ifxm_get_all with selector 2. */
TLK_EXPORT int tarvik_iflm_get_all(tarvik_cookie *cookie, struct tarvik_msg_list **list_out);

/* Writes a logical interface with `op` (add, change, delete), no sequence number and no reply:
 * the keys, the name (cut at 59 characters) and a link address (a socket address whose first byte
 * is its length; NULL or a zero length for none).  Flags and private flags go out as 0. */
TLK_EXPORT int tarvik_iflm_update(tarvik_cookie *cookie, uint32_t index, uint32_t devidx,
                                  uint32_t unit, uint32_t snmp_id, const char *name,
                                  const void *addr, uint32_t op);
/* The same with iflm_flags; `op` must be TLK_OP_CHANGE, else EOPNOTSUPP and nothing is sent. */
TLK_EXPORT int tarvik_iflm_update_flags(tarvik_cookie *cookie, uint32_t index, uint32_t devidx,
                                        uint32_t unit, uint32_t snmp_id, const char *name,
                                        uint32_t flags, uint32_t op);
/* The same with the flags and the private flags (the low word of iflm_privflags). */
TLK_EXPORT int tarvik_iflm_update_privflags(tarvik_cookie *cookie, uint32_t index, uint32_t devidx,
                                            uint32_t unit, uint32_t snmp_id, const char *name,
                                            uint32_t flags, uint32_t privflags, uint32_t op);
/* A change (iflm_change 16, no sequence number, no reply) carrying `attachment`, which is joined
 * to the message by pointer, not copied: the caller keeps it until the call returns. */
TLK_EXPORT int tarvik_iflm_pointchange_tlv(tarvik_cookie *cookie, uint32_t index, uint32_t devidx,
                                           uint32_t unit, uint32_t snmp_id, const char *name,
                                           struct tlk_msg_info *attachment);

/* ======================================================================================== */
/* Interface sets                                                                            */
/* ======================================================================================== */

/* Reads the set with `index` (TLK_OP_GET) or the one after it (TLK_OP_GETNEXT) and, when `record`
 * is not NULL, decodes it there.  The result is that of tarvik_gencfg_get. */
TLK_EXPORT int tarvik_iflsetm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                           struct iflset_blob *record);
/* Walks the sets for the one named `name`: TLK_OP_GET copies it into `record`, TLK_OP_GETNEXT the
 * set behind it (the kernel's end-of-walk error when it is the last).  EINVAL for another op or
 * a NULL name or record. */
TLK_EXPORT int tarvik_iflsetm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                          struct iflset_blob *record);

/* ======================================================================================== */
/* Logical interface statistics ("iflstats", raw)                                           */
/* ======================================================================================== */

/* The replaceable entries: call through the pointers below, which start at the __ defaults. */
typedef int (*tarvik_iflsm_get_by_index_fn)(tarvik_cookie *cookie, uint32_t index,
                                            uint8_t stat_type, uint32_t op, void **out);
typedef int (*tarvik_iflsm_get_by_index_and_subtype_fn)(tarvik_cookie *cookie, uint32_t index,
                                                        uint32_t subtype, uint8_t stat_type,
                                                        uint32_t op, void **out);
typedef int (*tarvik_iflsm_get_by_name_fn)(tarvik_cookie *cookie, const char *name, uint32_t unit,
                                           uint8_t stat_type, uint32_t op, void **out);
typedef int (*tarvik_iflsm_get_by_name_and_subtype_fn)(tarvik_cookie *cookie, const char *name,
                                                       uint32_t unit, uint32_t subtype,
                                                       uint8_t stat_type, uint32_t op, void **out);
typedef int (*tarvik_iflsm_clear_by_index_fn)(tarvik_cookie *cookie, uint32_t index,
                                              uint8_t stat_type);
typedef uintptr_t (*tarvik_iflsm_cleanup_fn)(uintptr_t word);

/* Process-wide and unlocked: set them before other threads or loops use them. */
extern TLK_EXPORT tarvik_iflsm_get_by_index_fn tarvik_iflsm_get_by_index;
extern TLK_EXPORT tarvik_iflsm_get_by_index_and_subtype_fn tarvik_iflsm_get_by_index_and_subtype;
extern TLK_EXPORT tarvik_iflsm_get_by_name_fn tarvik_iflsm_get_by_name;
extern TLK_EXPORT tarvik_iflsm_get_by_name_and_subtype_fn tarvik_iflsm_get_by_name_and_subtype;
extern TLK_EXPORT tarvik_iflsm_clear_by_index_fn tarvik_iflsm_clear_by_index;
extern TLK_EXPORT tarvik_iflsm_cleanup_fn tarvik_iflsm_cleanup;

/* Raw read by index: the reply, of any length, in *out (freed with tarvik_msg_free). */
TLK_EXPORT int __tarvik_iflsm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint8_t stat_type,
                                           uint32_t op, void **out);
/* The same; `subtype` is dropped. */
TLK_EXPORT int __tarvik_iflsm_get_by_index_and_subtype(tarvik_cookie *cookie, uint32_t index,
                                                       uint32_t subtype, uint8_t stat_type,
                                                       uint32_t op, void **out);
/* Raw read by device name (cut at 60 characters) and unit; EINVAL for a NULL name. */
TLK_EXPORT int __tarvik_iflsm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t unit,
                                          uint8_t stat_type, uint32_t op, void **out);
/* The same; `subtype` is dropped. */
TLK_EXPORT int __tarvik_iflsm_get_by_name_and_subtype(tarvik_cookie *cookie, const char *name,
                                                      uint32_t unit, uint32_t subtype,
                                                      uint8_t stat_type, uint32_t op, void **out);
/* Clears the counters (op 6, 72 bytes), no reply read. */
TLK_EXPORT int __tarvik_iflsm_clear_by_index(tarvik_cookie *cookie, uint32_t index,
                                             uint8_t stat_type);
/* Does nothing and gives back its argument. */
TLK_EXPORT uintptr_t __tarvik_iflsm_cleanup(uintptr_t word);

/* Asks for statistics whose answer comes as an "iflstats" notification carrying
 * `caller_cookie`: EINVAL for a NULL name, EOPNOTSUPP for op 6 or a name outside "ae", "fe",
 * "et", "ge", "xe", "sxe", "mge", "ot".  On a session with async info and used_by_stats the
 * request goes with sequence 0 and the counter stays. */
TLK_EXPORT int async_tarvik_iflsm_get_by_index_kernel(tarvik_cookie *cookie, uint32_t index,
                                                      const char *name, uint8_t stat_type,
                                                      uint32_t op, uint32_t caller_cookie);
/* Registers for those notifications (type 16, no listen bits) if the product takes them:
 * EOPNOTSUPP otherwise, EINVAL without a product record, handler or async info. */
TLK_EXPORT int tarvik_iflsm_async_kernel_register(tarvik_cookie *cookie, void *arg,
                                                  tarvik_async_handler_t handler);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IFL_H */
