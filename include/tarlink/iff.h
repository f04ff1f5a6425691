/*
 * tarlink/iff.h - protocol families ("iffamily") and addresses ("ifaddr") of logical interfaces.
 *
 * A logical interface carries protocol families, and a family carries addresses.  A family is
 * found by logical interface index and address family, or by device name and unit; an address by
 * its logical interface and family, with a destination prefix, a local prefix, or both.  A
 * getnext walks each store in key order.  Replies are small and read into one 16384-byte block.
 * Family statistics ("iff vpls_stats") are raw.  Notifications of changes:
 * tarvik_iffm_async_register and tarvik_ifam_async_register (tarlink/async.h).
 *
 * A prefix is given as its length in bits and its bytes; the request carries
 * ((bits + 31) / 32) * 4 bytes of it, the first (bits + 7) / 8 copied and the rest zero.  A length
 * of 0 sends no prefix, whatever the pointer says.
 *
 * For example:
 *
 *   const uint8_t local[4] = {10, 0, 0, 1};
 *   void *got = NULL;
 *   int err = tarvik_ifam_get_by_local(c, 70, TLK_AF_INET, local, 32, TLK_OP_GET, &got, NULL);
 *   if (err == 0) {
 *     const ifa_msg *a = got;
 *     printf("/%u on %u\n", a->ifam_dest.plen, a->ifam_iflidx.idx);
 *     tarvik_msg_idl_release(c, got, NULL);
 *   }
 */
#ifndef TARLINK_IFF_H
#define TARLINK_IFF_H

#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Address family numbers as the kernel counts them (and as iffm_af and ifam_af carry them). */
#define TLK_AF_INET 2
#define TLK_AF_INET6 28

/* Family flag (low word of iffm_flags): the logical interface has no address of its own and
 * borrows a donor's, named by an attachment of selector TLK_IFF_TLV_UNNUM_INFO whose first arm
 * word (itui_index) is the donor's logical interface index. */
#define TLK_IFF_UNNUMBERED 0x20000000u
#define TLK_IFF_TLV_UNNUM_INFO 183
/* ifam_flags of a point change of an address. */
#define TLK_IFA_POINTCHANGE 0x1000u
/* iffm_filter_len when a filter travels with a family. */
#define TLK_IFF_FILTER_LEN 124

/* ======================================================================================== */
/* Families                                                                                  */
/* ======================================================================================== */

/* Reads the family `af` of a logical interface (op TLK_OP_GET) or the one after that key
 * (TLK_OP_GETNEXT).  On success *out is a decoded iff_msg, released with tarvik_msg_idl_release;
 * on failure NULL. */
TLK_EXPORT int tarvik_iffm_get_by_index(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                        uint32_t op, void **out, void **mask);
/* The same by device name (cut at 59 characters; EINVAL if NULL) and unit, with index 0. */
TLK_EXPORT int tarvik_iffm_get_by_dev_name(tarvik_cookie *cookie, uint32_t af, const char *name,
                                           uint32_t unit, uint32_t op, void **out, void **mask);
/* Writes a family (op as given, no reply read): flags, a 32-bit and a 16-bit value, and a filter
 * (NULL for none).  The filter's last 8 bytes (iffl_f29) name its variable data: an address word
 * and a byte count.  Both non-zero: the bytes are copied into the request and its copy of the
 * address word points at them (a 64-bit host can't address through a 32-bit word, and sends the
 * pair as given); otherwise both go out cleared. */
TLK_EXPORT int tarvik_iffm_update(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                  uint64_t flags, uint32_t word, uint16_t short_value,
                                  const struct iffilter *filter, uint32_t op);
/* Reads a family's statistics of class `stat_type` (raw, 48-byte request); *out is the raw reply
 * in a tarvik_msg_malloc block, freed with tarvik_msg_free.  On failure *out is NULL, except for
 * ENOMEM before anything was had, which leaves *out as it was.  A sequence mismatch is -2. */
TLK_EXPORT int tarvik_iffsm_get_by_index(tarvik_cookie *cookie, uint32_t iflidx, uint8_t af,
                                         uint8_t stat_type, uint32_t op, void **out);

/* ======================================================================================== */
/* Addresses                                                                                 */
/* ======================================================================================== */

/* Reads an address of a logical interface's family by no prefix (the first, or with
 * TLK_OP_GETNEXT the one after the interface and family), by destination, by local prefix, or
 * by both.  *out is a decoded ifa_msg, released with tarvik_msg_idl_release; NULL on failure. */
TLK_EXPORT int tarvik_ifam_get_by_index(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                        uint32_t op, void **out, void **mask);
/* By destination prefix (`length` in bits). */
TLK_EXPORT int tarvik_ifam_get_by_dest(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                       const void *dest, uint32_t length, uint32_t op, void **out,
                                       void **mask);
/* By local prefix. */
TLK_EXPORT int tarvik_ifam_get_by_local(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                        const void *local, uint32_t length, uint32_t op, void **out,
                                        void **mask);
/* By both; the destination's bytes come first in the request. */
TLK_EXPORT int tarvik_ifam_get_by_local_dest(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                             const void *dest, uint32_t dest_length,
                                             const void *local, uint32_t local_length, uint32_t op,
                                             void **out, void **mask);
/* Writes an address (op TLK_OP_ADD, TLK_OP_CHANGE, TLK_OP_DELETE, ...); no reply is read. */
TLK_EXPORT int tarvik_ifam_update(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                  const void *dest, uint32_t dest_length, const void *local,
                                  uint32_t local_length, uint32_t op);
/* Changes the attachments of one address without a read: a change with ifam_flags 0x1000, the
 * local prefix `address`/`length`, and each input record (u16 type, u16 length with these 4
 * bytes, data; the next at the length rounded up to 4) as one inline attachment.  EINVAL for a
 * NULL cookie or records, a records length of 0, or a prefix length of 0. */
TLK_EXPORT int tarvik_ifa_pointchange(tarvik_cookie *cookie, uint32_t iflidx, uint32_t af,
                                      const void *address, uint32_t length, const void *records,
                                      uint32_t records_length);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IFF_H */
