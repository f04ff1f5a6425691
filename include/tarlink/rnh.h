/*
 * tarlink/rnh.h - next hops ("nexthop", "NH-comp", "residx").
 *
 * A next hop is a kernel object of its own, found by its 32-bit index.  A daemon reads one by
 * index or walks them with getnext (TLK_OP_GETNEXT from the last index seen), and creates and
 * removes the special kinds: service next hops (a 388-byte service block naming the owner and
 * the logical interfaces), their L2TP form, interface next hops and subunit next hops.  An add
 * sends the platform's null_nh_idx and the reply carries the index the kernel chose.  Reserved
 * indexes travel as a raw 32-byte "residx" message, composites as "NH-comp".  Replies of the
 * framed reads are decoded into one arena: release them with tarvik_msg_idl_release, the raw
 * "residx" replies with tarvik_msg_free.  Notifications of changes: tarvik_rnhm_async_register
 * (tarlink/async.h).
 *
 * For example, every next hop in index order:
 *
 *   uint32_t idx = 0;
 *   void *got = NULL, *mask = NULL;
 *   while (tarvik_rnhm_get_by_index(c, idx, 0, TLK_OP_GETNEXT, &got, &mask) == 0) {
 *     const rnh_msg *nh = got;
 *     printf("%u type %u on %u\n", nh->idx.idx, nh->nh, nh->ifidx.idx);
 *     idx = nh->idx.idx;
 *     tarvik_msg_idl_release(c, got, mask);
 *   }
 */
#ifndef TARLINK_RNH_H
#define TARLINK_RNH_H

#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Reads ---- */

/* Reads the next hop at (op 4) or after (op 5) `idx`; *mask_out is written only on failure. */
TLK_EXPORT int tarvik_rnhm_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af,
                                        uint32_t op, void **msg_out, void **mask_out);
/* Makes this session's next hop reads ask for a composite's children too (non-zero `enable`). */
TLK_EXPORT int tarvik_rnh_enable_comp_nh_retrieval(tarvik_cookie *cookie, uint32_t enable);
/* Reads the composite next hop at (op 4) or after (op 5) `idx`; other ops are EINVAL. */
TLK_EXPORT int tarvik_rnh_comp_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t op,
                                            void **msg_out, void **mask_out);

/* ---- Service next hops ---- */

/* Adds a service next hop over `count` logical interfaces (1 to 256, 1 for service kind 5, none
 * null_ifl_idx); `token` is 12 bytes, `extension` a 72-byte name area and two bytes, both may be
 * NULL.  The reply, with the new index, goes to *msg_out. */
TLK_EXPORT int tarvik_rnhm_service_add(tarvik_cookie *cookie, const uint32_t *ifls, uint32_t count,
                                       uint32_t af, uint32_t owner_kind, const char *name,
                                       uint32_t owner_id, uint32_t service_kind,
                                       uint32_t service_flags, const uint8_t *token, void **msg_out,
                                       void **mask_out, uint32_t service_arg1,
                                       uint32_t service_arg2, uint32_t service_has_extension,
                                       const uint8_t *extension, uint32_t service_arg3);
/* Reads the first service next hop after `idx` (a getnext that steps over other kinds). */
TLK_EXPORT int tarvik_rnhm_service_get_by_owner(tarvik_cookie *cookie, uint32_t idx, uint32_t af,
                                                uint32_t owner_kind, uint32_t service_kind,
                                                void **msg_out, void **mask_out);
/* Reads a service next hop by index (op 4), or the next service next hop (op 5). */
TLK_EXPORT int tarvik_rnhm_service_get_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af,
                                                uint32_t op, void **msg_out, void **mask_out);
/* Deletes a service next hop; nothing answers. */
TLK_EXPORT int tarvik_rnhm_service_delete_by_index(tarvik_cookie *cookie, uint32_t idx,
                                                   uint32_t af);
/* Adds an L2TP service next hop on the list's first interface, named
 * "<base>-<owner>-<tunnel>-<session>". */
TLK_EXPORT int tarvik_rnhm_l2tp_service_add(tarvik_cookie *cookie, const uint32_t *ifls,
                                            uint32_t af, uint32_t owner_kind, const char *base_name,
                                            uint32_t owner_id, uint32_t service_flags,
                                            uint32_t tunnel_id, uint32_t session_id, void **msg_out,
                                            void **mask_out);
/* Reads an L2TP service next hop by index (op 4), or the next service next hop (op 5). */
TLK_EXPORT int tarvik_rnhm_l2tp_service_get_by_index(tarvik_cookie *cookie, uint32_t idx,
                                                     uint32_t af, uint32_t op, void **msg_out,
                                                     void **mask_out);
/* Deletes an L2TP service next hop; nothing answers. */
TLK_EXPORT int tarvik_rnhm_l2tp_service_delete_by_index(tarvik_cookie *cookie, uint32_t idx,
                                                        uint32_t af);

/* ---- Interface and subunit next hops ---- */

/* Adds an interface next hop on `ifidx` in table `tid`: `count` must be 1 and *addr_kind 0 to 4
 * (else EOPNOTSUPP); the new index goes to *idx_out when given. */
TLK_EXPORT int tarvik_rnhm_iflnh_add(tarvik_cookie *cookie, uint32_t ifidx, uint32_t af,
                                     uint32_t tid, uint32_t count, const uint8_t *addr_kind,
                                     uint32_t *idx_out, uint32_t uflags);
/* Reads an interface next hop; the reply is handed over only when both out pointers are given.
 * A getnext that lands on another kind ends in an error at its first step. */
TLK_EXPORT int tarvik_rnhm_iflnh_get_by_index(tarvik_cookie *cookie, uint32_t op, uint32_t idx,
                                              uint32_t af, void **msg_out, void **mask_out);
/* Deletes an interface next hop; nothing answers. */
TLK_EXPORT int tarvik_rnhm_iflnh_delete_by_index(tarvik_cookie *cookie, uint32_t idx, uint32_t af);
/* Adds a subunit next hop on the list's first logical interface; the reply goes to *msg_out. */
TLK_EXPORT int tarvik_rnhm_subunit_nhadd(tarvik_cookie *cookie, const uint32_t *ifls, uint32_t af,
                                         void **msg_out, void **mask_out);
/* Deletes a subunit next hop; nothing answers. */
TLK_EXPORT int tarvik_rnhm_subunit_nhdelete_by_index(tarvik_cookie *cookie, uint32_t idx,
                                                     uint32_t af);

/* ---- Reserved indexes (raw "residx"; failures also print an "NHACK: " line to stderr) ---- */

/* Reserves indexes; the raw reply (freed with tarvik_msg_free) goes to *msg_out. */
TLK_EXPORT int tarvik_nhidx_get(tarvik_cookie *cookie, void **msg_out, uint32_t reserve_count,
                                uint32_t reserve_word);
/* Reads the reserved index after `idx` into a raw reply. */
TLK_EXPORT int tarvik_nhidx_getnext(tarvik_cookie *cookie, void **msg_out, uint32_t idx);
/* Gives every reserved index back; nothing answers. */
TLK_EXPORT int tarvik_nhidx_delete_all(tarvik_cookie *cookie);

/* ---- Trace helpers (one shared static buffer: not reentrant) ---- */

/* The text of an EVPN indirect label kind (10 to 12), in a static 64-byte buffer. */
TLK_EXPORT const char *get_indr_nh_evpn_tlv_str(uint32_t tlv_type);
/* Renders the EVPN items of an indirect next hop's opaque area (`nh_type` 3 or 5) into `buffer`
 * (2048 bytes), the last item's line winning; other items and types leave it untouched. */
TLK_EXPORT void rnh_decode_opaque_tlv(const void *data, uint32_t length, char *buffer,
                                      uint32_t nh_type);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_RNH_H */
