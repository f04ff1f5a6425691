/*
 * tarlink/tlk_stat.h - session statistics ("tarlink stats").
 *
 * The kernel's message counters for this process, or for a proxy identifier: added, deleted and
 * cleared fire and forget, and read as one raw reply.
 *
 * For example:
 *
 *   void *reply = NULL;
 *   if (tarvik_tlk_stat_get(c, 0, 0, &reply) == 0) {
 *     const tlk_hdr *h = reply;                   // the counters follow the header
 *     use(h, h->tlkh_msglen);
 *     tarvik_msg_free(c, reply);
 *   }
 */
#ifndef TARLINK_TLK_STAT_H
#define TARLINK_TLK_STAT_H

#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Session statistics ("tarlink stats", raw type 26)                                        */
/* ======================================================================================== */

/* Fire and forget: one write, no reply, sequence 0.  0 or the write's errno. */
TLK_EXPORT int tarvik_tlk_stat_add(tarvik_cookie *cookie);
TLK_EXPORT int tarvik_tlk_stat_delete(tarvik_cookie *cookie);
TLK_EXPORT int tarvik_tlk_stat_clear(tarvik_cookie *cookie);
TLK_EXPORT int tarvik_tlk_proxy_stat_add(tarvik_cookie *cookie, uint32_t proxy_id);
TLK_EXPORT int tarvik_tlk_proxy_stat_delete(tarvik_cookie *cookie, uint32_t proxy_id);
TLK_EXPORT int tarvik_tlk_proxy_stat_clear(tarvik_cookie *cookie, uint32_t proxy_id);
/* Reads the counters: *msg_out is a raw reply in a message block freed with tarvik_msg_free. */
TLK_EXPORT int tarvik_tlk_stat_get(tarvik_cookie *cookie, uint8_t sel_a, uint8_t sel_b,
                                   void **msg_out);
TLK_EXPORT int tarvik_tlk_proxy_stat_get(tarvik_cookie *cookie, uint32_t proxy_id, uint8_t sel_a,
                                         uint8_t sel_b, void **msg_out);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_TLK_STAT_H */
