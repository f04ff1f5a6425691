/*
 * tarlink/rnh_stats.h - next hop statistics ("nhopstats", type 21).
 *
 * A next hop's traffic counters, asked for with an rnhs_msg and answered late by the kernel: the
 * operations wait for the answer (half a second at a time, select, or usleep for a descriptor of
 * 1024 and above) for as long as the read finds nothing, with no limit.  Only next hop types
 * 2, 3, 4, 20 and 24 have statistics.
 *
 * For example:
 *
 *   void *reply = NULL, *mask = NULL;
 *   if (tarvik_rnhsm_get_by_nexthop(c, 0, TLK_OP_GET, nh, &reply, &mask) == 0) {
 *     const struct rnhs_msg *s = reply;
 *     use(s->packets, s->bytes);
 *     tarvik_msg_idl_release(c, reply, mask);
 *   }
 */
#ifndef TARLINK_RNH_STATS_H
#define TARLINK_RNH_STATS_H

#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Next hop statistics (type 21)                                                            */
/* ======================================================================================== */

/* Reads a next hop's counters into *msg_out (an rnhs_msg, released with
 * tarvik_msg_idl_release).  gateway: a socket address whose first byte is its length, or NULL;
 * labels: a label block, used when its selector is 1 to 15; info_body: 16 bytes of the next
 * hop's info body, with its length word and selector, or NULL.  EOPNOTSUPP for a next hop type
 * without statistics, EINVAL without cookie or outputs, EMSGSIZE when the tail overflows the
 * request block. */
TLK_EXPORT int tarvik_rnhsm_get(tarvik_cookie *cookie, uint32_t kind, uint32_t op, uint32_t nh_type,
                                uint32_t af, uint32_t idx, uint32_t ifidx, uint32_t filteridx,
                                const void *gateway, const struct tagp *labels,
                                const void *info_body, uint32_t info_len, uint32_t info_type,
                                void **msg_out, void **mask_out);
/* The same request for a unicast next hop (nh_type 2, else EINVAL), whose answer is read and
 * dropped: the outputs are always NULL, and the end of the wait (success too) is reported on the
 * error stream.  Use tarvik_rnhsm_get to receive the counters. */
TLK_EXPORT int tarvik_rnhsm_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t ifidx,
                                         uint32_t nh_type, uint32_t af, const struct tagp *labels,
                                         const void *gateway, uint32_t kind, uint32_t op,
                                         void **msg_out, void **mask_out);
/* tarvik_rnhsm_get with everything taken from a next hop record just read: type, family,
 * indexes, filter index, gateway, labels and info. */
TLK_EXPORT int tarvik_rnhsm_get_by_nexthop(tarvik_cookie *cookie, uint32_t kind, uint32_t op,
                                           const struct rnh_msg *nh, void **msg_out,
                                           void **mask_out);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_RNH_STATS_H */
