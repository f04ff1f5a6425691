/*
 * tarlink/dfw.h - firewall filter programs and filter heads.
 *
 * A filter lives in the kernel in two places: its compiled program, a firewall message (type 14)
 * per filter and address family, sent in fragments of at most TLK_DFW_FRAGMENT bytes behind the
 * message's fixed part; and its head (names, flags and a hash), a gencfg blob of major 15, minor
 * 21 keyed by the filter index in network order.  The blob is the TLV form of _dfw_filter_head
 * when its first word's low byte is 2, else the legacy fixed form.  The joined header reads both
 * and, when both exist, replaces the head's hash by the MD5 of the program's hash followed by the
 * head's, so that one value changes when either side does.  Firewall messages travel in their
 * raw layout (TLK_DFW_* offsets below); a reply is freed with tarvik_msg_free.
 *
 * For example:
 *
 *   struct _dfw_filter_head h;
 *   uint32_t idx = tarvik_dfw_get_findex_by_name(c, "protect-re", 0, 0);
 *   if (idx != 0 && tarvik_dfw_get_fheader_by_index(c, idx, TLK_OP_GET, &h) == 0) {
 *     use_hash(h.dfh_hash);
 *     tarvik_free_dfh_var(&h);
 *   }
 *   tarvik_dfwm_update(c, idx, 2, TLK_OP_CHANGE, program);   // fragmented as needed
 */
#ifndef TARLINK_DFW_H
#define TARLINK_DFW_H

#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Firewall filter programs and heads                                                       */
/* ======================================================================================== */

/* The raw firewall message: the 24-byte header, then these fields; the fragment (on the way in)
 * or the program's header (on the way out) behind the fixed part. */
#define TLK_DFW_FIXED_LEN 80u       /* tlkh_fixedlen */
#define TLK_DFW_AF_AT 32u           /* u8 address family */
#define TLK_DFW_TOTAL_AT 48u        /* u32 total program length */
#define TLK_DFW_OFFSET_AT 52u       /* u32 offset of this fragment */
#define TLK_DFW_FILTER_AT 56u       /* u32 filter index */
#define TLK_DFW_FLAV_AT 64u         /* u8 filter flavour */
#define TLK_DFW_FRAGMENT 16300u     /* most program bytes in one message */
#define TLK_DFW_PROGRAM_HEADER 344u /* fixed part of a program's header */
#define TLK_DFW_NAME_MAX 128u       /* filter and interface names, with the end byte */
#define TLK_DFW_HEAD_MAJOR 15u      /* gencfg key of a filter head */
#define TLK_DFW_HEAD_MINOR 21u
#define TLK_DFW_LEGACY_HEAD_LEN 296u /* bytes of the legacy head blob */

/* Reads the program of `filter` (op get) or of the next filter (op getnext) into *msg_out, a raw
 * firewall message; *mask_out (if given) is set to NULL.  EINVAL for another op. */
TLK_EXPORT int tarvik_dfwm_get_by_index(tarvik_cookie *cookie, uint32_t filter, uint32_t af,
                                        uint32_t op, void **msg_out, void **mask_out);
/* Sends `program` (add, change) in fragments numbered from 1 in tlkh_seq, or a delete with no body;
 * EINVAL for add or change without a program, EOPNOTSUPP for another op. */
TLK_EXPORT int tarvik_dfwm_update(tarvik_cookie *cookie, uint32_t filter, uint32_t af, uint32_t op,
                                  const uint8_t *program);
/* The index of the first program after `start` whose name and family match, or 0. */
TLK_EXPORT uint32_t tarvik_dfwm_get_index_by_name(tarvik_cookie *cookie, const char *name,
                                                  uint32_t dfh_family, uint32_t start);
/* Reads the head blob of `filter` (get) or the next one (getnext) and decodes it into `head`. */
TLK_EXPORT int tarvik_dfwfhm_get_by_index(tarvik_cookie *cookie, uint32_t filter, uint32_t op,
                                          struct _dfw_filter_head *head);
/* The index of the first head after `start` whose name and family match, or 0. */
TLK_EXPORT uint32_t tarvik_dfwfhm_get_index_by_name(tarvik_cookie *cookie, const char *name,
                                                    uint32_t dfh_family, uint32_t start);
/* The joined header of `filter` (get) or of the next filter (getnext): head, program or both. */
TLK_EXPORT int tarvik_dfw_get_fheader_by_index(tarvik_cookie *cookie, uint32_t filter, uint32_t op,
                                               struct _dfw_filter_head *head);
/* The index of the first joined header after `start` whose name and family match, or 0. */
TLK_EXPORT uint32_t tarvik_dfw_get_findex_by_name(tarvik_cookie *cookie, const char *name,
                                                  uint32_t dfh_family, uint32_t start);
/* Fills `head` from a firewall reply; its name pointers must hold TLK_DFW_NAME_MAX bytes each. */
TLK_EXPORT int tarvik_dfwm_to_dfwfhm(const void *msg, struct _dfw_filter_head *head);
/* digest = MD5 of the 16 bytes of `first` followed by the 16 bytes of `second` (through the
 * platform's md5_cksum; all zero where the platform has none). */
TLK_EXPORT void tarvik_dfw_compute_master_hash(const uint8_t *first, const uint8_t *second,
                                               uint8_t *digest);
/* Releases the head's name, interface name and extra bytes and sets them to NULL. */
TLK_EXPORT void tarvik_free_dfh_var(struct _dfw_filter_head *head);
/* A new filter state from a gencfg message's blob (free with tarvik_free_cb), or NULL. */
TLK_EXPORT struct _dfw_filter_state *tarvik_dfwfsm_decode(const struct gencfg_msg *msg);
/* Decodes a head blob of either form into `head`: 0, EINVAL or ENOMEM. */
TLK_EXPORT int tarvik_dfwfhm_decode(const uint8_t *blob, uint32_t length,
                                    struct _dfw_filter_head *head);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_DFW_H */
