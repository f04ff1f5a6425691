/*
 * tarlink/ifl.h - logical interfaces ("iflogical").
 *
 * The logical units of a device, read one at a time by index, SNMP id, device and unit, or name
 * and unit; a getnext walks them in index order.  Notifications of changes:
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

#include "tarlink/base.h"

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

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IFL_H */
