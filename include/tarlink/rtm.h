/*
 * tarlink/rtm.h - routes ("route"), route match ("rtmatch"), multicast groups ("mgroup").
 *
 * A route lives in a table (tid) of one address family and is keyed by its prefix: a bit count
 * and the bytes, of which the request carries ((bits + 31) / 32) * 4, the first (bits + 7) / 8
 * copied from the caller as they are and the rest zero.  Routes are added and deleted without a
 * reply, unless the add asks for the kernel's acknowledgement, which brings back the index the
 * kernel gave the route.  A get reads one route, a getnext the one after it in prefix order, and
 * a route match (an rtm_msg) asks which route a destination resolves to and is answered with that
 * route.  Flags of routes and next hops pass through unread.  Replies are decoded rt_msg records
 * that the caller releases with tarvik_msg_idl_release.  Notifications of changes: tarvik_rtm_async_register (tarlink/async.h).
 *
 * For example:
 *
 *   const uint8_t net[4] = {10, 1, 0, 0}, dst[4] = {10, 1, 2, 3};
 *   uint32_t index = 0;
 *   int err = tarvik_rtm_add(c, 0, TLK_AF_INET, 1, 0, 2, 0, 0, 0, 0, nh, 0, NULL, net, 16, NULL,
 *                            &index);
 *   void *m = NULL;
 *   if (err == 0 && tarvik_rtmatch_by_prefix(c, 0, TLK_AF_INET, 0, dst, 32, &m, NULL) == 0) {
 *     printf("via next hop %u\n", ((const rt_msg *)m)->nhidx.idx);
 *     tarvik_msg_idl_release(c, m, NULL);
 *   }
 */
#ifndef TARLINK_RTM_H
#define TARLINK_RTM_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Adds a route (op 1).  A gateway is a flat socket address whose first byte is its length (NULL
 * or length 0 for none); opaque_type non-zero attaches opaque_data encoded as rt_opaque_info.
 * With ack_index_out the add asks for the kernel's acknowledgement (op 8, req_ack) and stores the
 * index it answers; a failed read of that answer is logged and returned, *ack_index_out kept. */
TLK_EXPORT int tarvik_rtm_add(tarvik_cookie *cookie, uint32_t tid, uint32_t af, uint32_t type,
                              uint32_t flags, uint32_t nh_type, uint32_t nhflags,
                              uint32_t nh_info_kind, uint32_t fwdnhidx, uint32_t rtm_idx,
                              uint32_t nhidx, uint32_t opaque_type, const void *opaque_data,
                              const uint8_t *prefix, uint32_t plen, const uint8_t *gateway,
                              uint32_t *ack_index_out);
/* Deletes the route of a prefix (op 3); no next hop fields are sent. */
TLK_EXPORT int tarvik_rtm_delete_prefix(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                        uint32_t type, uint32_t flags, const uint8_t *prefix,
                                        uint32_t plen, uint32_t rtm_idx);
/* Deletes the route a record the caller holds names (one just read, say): its op becomes 3. */
TLK_EXPORT int tarvik_rtm_delete(tarvik_cookie *cookie, rt_msg *msg);
/* Sends a route request of any op; get and getnext (op & 0xFE == 4) read one rt_msg into *out.
 * plen 0 sends no prefix. */
TLK_EXPORT int tarvik_rtm_get(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                              const uint8_t *prefix, uint32_t plen, uint32_t type, uint32_t flags,
                              uint32_t fwdnhidx, uint32_t opaque_kind, uint32_t op, void **out,
                              void **mask);
/* tarvik_rtm_get in table 0 with type, flags and the next hop and opaque selectors all 0. */
TLK_EXPORT int tarvik_rtm_get_by_prefix(tarvik_cookie *cookie, uint32_t af, const uint8_t *prefix,
                                        uint32_t plen, uint32_t op, void **out, void **mask);
/* tarvik_rtm_get in table 0 with no prefix, by route type. */
TLK_EXPORT int tarvik_rtm_get_by_type(tarvik_cookie *cookie, uint32_t af, uint32_t type,
                                      uint32_t op, void **out, void **mask);
/* Sends the caller's record with op and a fresh sequence number (the rest as it is): a walk goes
 * on from the last record read.  The record must not be NULL. */
TLK_EXPORT int tarvik_rtm_get_with_msg(tarvik_cookie *cookie, rt_msg *msg, uint32_t op, void **out,
                                       void **mask);
/* The same, the reply decoded into the caller's area (tarvik_long_msg_read_idl_pa). */
TLK_EXPORT int tarvik_rtm_get_with_msg_pa(tarvik_cookie *cookie, rt_msg *msg, uint32_t op,
                                          void **out, void **mask, void *area, size_t area_size);
/* Asks which route `prefix` resolves to in table tid: that route, one rt_msg, into *out. */
TLK_EXPORT int tarvik_rtmatch_by_prefix(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                        uint32_t type, const uint8_t *prefix, uint32_t plen,
                                        void **out, void **mask);
/* The match, then its next hop's interface index into the reply's rtm_idx slot.  A failed match
 * gives its error; any later failure (no next hop, say) -1, the reply still the caller's. */
TLK_EXPORT int tarvik_rtmatch_fwding_nh_ifindex(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                                                uint32_t type, const uint8_t *prefix, uint32_t plen,
                                                void **out, void **mask);

/*
 * Multicast groups ("mgroup", type 13, mgr_msg).  A table (tid) of one address family holds its
 * multicast groups keyed by the group prefix; a get reads one, a getnext the one after it in
 * group order.  The group travels as ((group_bits + 31) / 32) * 4 bytes read from `group`, which
 * must hold that many; group_bits 0 sends no group (the start of a walk).  The reply is one
 * mgr_msg, released with tarvik_msg_idl_release.
 *
 *   const uint8_t grp[4] = {224, 1, 1, 1};
 *   void *m = NULL;
 *   if (tarvik_mgrm_get(c, 0, TLK_AF_INET, grp, 32, TLK_OP_GET, &m, NULL) == 0) {
 *     printf("next hop %u\n", ((const mgr_msg *)m)->mgr_nhidx.idx);
 *     tarvik_msg_idl_release(c, m, NULL);
 *   }
 */
/* Sends a multicast group request of any op (version 'c'); get and getnext read one mgr_msg into
 * *out, which is NULL after a failure. */
TLK_EXPORT int tarvik_mgrm_get(tarvik_cookie *cookie, uint32_t tid, uint32_t af,
                               const uint8_t *group, uint32_t group_bits, uint32_t op, void **out,
                               void **mask);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_RTM_H */
