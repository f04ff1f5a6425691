/*
 * tarlink/ifd.h - devices ("ifdev"), their statistics and alarms.
 *
 * Physical devices: reads by index, name or SNMP id, the list of all devices, creation, the
 * read-modify-write changes of flags, addresses and attachments, and the point change that
 * writes without reading.  Their statistics ("ifdstats") and alarms ("ifdalarm") are raw
 * messages, read synchronously, cleared, or answered as a notification on products that have
 * them.  Notifications of device changes: tarvik_ifdm_async_register (tarlink/async.h).
 *
 * For example:
 *
 *   void *got = NULL;
 *   int err = tarvik_ifdm_get_by_name(c, "ge-0/0/1", TLK_OP_GET, &got, NULL);
 *   if (err == 0) {
 *     const ifdev_msg *d = got;
 *     printf("index %u, flags 0x%x\n", d->ifdm_index, d->ifdm_flags);
 *     tarvik_msg_idl_release(c, got, NULL);
 *   }
 *   err = tarvik_ifdm_change_flags(c, index, 0x1, 0);   // read, set bit 0x1, write
 */
#ifndef TARLINK_IFD_H
#define TARLINK_IFD_H

#include <stdint.h>

#include "tarlink/async.h"
#include "tarlink/base.h"
#include "tarlink/frame.h"
#include "tarlink/msg_list.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Devices                                                                                   */
/* ======================================================================================== */

/* Reads one device (op TLK_OP_GET) or the one after the key (TLK_OP_GETNEXT).  On success *out
 * is a decoded ifdev_msg, released with tarvik_msg_idl_release; on failure NULL.  The request
 * goes out in IDR; `mask` receives the reply's presence map when it comes in TLV. */
TLK_EXPORT int tarvik_ifdm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                        void **out, void **mask);
/* By name, cut at 59 characters. */
TLK_EXPORT int tarvik_ifdm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                       void **out, void **mask);
/* By SNMP id; `op` must be TLK_OP_GET, else EINVAL and nothing is sent. */
TLK_EXPORT int tarvik_ifdm_get_by_snmp_index(tarvik_cookie *cookie, uint32_t snmp_id, uint32_t op,
                                             void **out, void **mask);
/* Every device (selector 1) or logical interface (selector 2), read through the system control
 * { CTL_NET, PF_ROUTE, 0, 0, NET_RT_IFLIST, selector } into a message list, freed with
 * tarvik_msg_list_free.  0, or errno of the control, ENOMEM, a fill's result; *list_out is then
 * NULL. */
TLK_EXPORT int tarvik_ifxm_get_all(tarvik_cookie *cookie, struct tarvik_msg_list **list_out,
                                   uint32_t selector);
TLK_EXPORT int tarvik_ifdm_get_all(tarvik_cookie *cookie, struct tarvik_msg_list **list_out);
/* Reads the device, sets `flags` (or clears them when `clear` is not 0) and writes the change,
 * keeping the device flags word and its alternative address as read. */
TLK_EXPORT int tarvik_ifdm_change_flags(tarvik_cookie *cookie, uint32_t index, uint32_t flags,
                                        int clear);
/* Creates a device (op add, no sequence number): the name (required, cut at 59 characters), an
 * address and a hardware address (socket addresses whose first byte is their length; NULL or a
 * zero length for none), the media record (always sent, zeroed when NULL), `flags` as ifdm_flags,
 * `info` as ifdm_sflags, and a run of input records turned into attachments: each record is u16
 * type, u16 length (with these 4 bytes) and data, the next at the length rounded up to 4. */
TLK_EXPORT int tarvik_ifdm_add_with_tlvs(tarvik_cookie *cookie, const char *name, uint32_t index,
                                         uint16_t class_word, uint32_t flags, uint32_t info,
                                         const struct ifmedia *media, const void *addr,
                                         const void *haddr, const void *tlvs, uint32_t tlvs_len);
TLK_EXPORT int tarvik_ifdm_add(tarvik_cookie *cookie, const char *name, uint32_t index,
                               uint16_t class_word, const struct ifmedia *media, const void *addr,
                               const void *haddr);
/* Read, change, write: new addresses (EINVAL if both are NULL), the alternative address kept.
 * `flags` has no effect on the wire: the flags are those read. */
TLK_EXPORT int tarvik_ifdm_change_addr(tarvik_cookie *cookie, uint32_t index, uint32_t flags,
                                       const void *addr, const void *haddr);
/* Read, change, write: a run of input records as attachments (EINVAL if NULL). */
TLK_EXPORT int tarvik_ifdm_change_tlvs(tarvik_cookie *cookie, uint32_t index, uint32_t flags,
                                       const void *tlvs, uint32_t tlvs_len);
/* Called by tarvik_ifdm_pointchange to set further fields of the request. */
typedef void (*tarvik_ifdm_filler_t)(tarvik_cookie *cookie, void *msg);
/* A change without a read: ifdm_change 0x2000, `flags` as a point change of flags, then the
 * filler.  `data` starting with the u16 438 attaches the 592 bytes behind its first 4; other
 * non-empty data travels as one attachment of type 0x70000FF.  EINVAL for NULL data. */
TLK_EXPORT int tarvik_ifdm_pointchange(tarvik_cookie *cookie, uint32_t index, uint32_t flags,
                                       tarvik_ifdm_filler_t filler, const void *data,
                                       uint32_t length);

/* ---- Device statistics and alarms (raw types 15 "ifdstats" and 20 "ifdalarm") ---- */

/* Reads a device's statistics of class `stat_type`; *out is the raw reply, any length, freed
 * with tarvik_msg_free.  By name the index is 0 and the name is cut at 60 characters. */
TLK_EXPORT int tarvik_ifdsm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint8_t stat_type,
                                         uint32_t op, void **out);
TLK_EXPORT int tarvik_ifdsm_get_by_name(tarvik_cookie *cookie, const char *name, uint8_t stat_type,
                                        uint32_t op, void **out);
/* The same with the caller's stat_flags (buffer statistics), or 256 (virtual output queues). */
TLK_EXPORT int tarvik_ifdsm_buffer_stats_get_by_index(tarvik_cookie *cookie, uint32_t index,
                                                      uint8_t stat_type, uint32_t op, void **out,
                                                      uint16_t stat_flags);
TLK_EXPORT int tarvik_ifdsm_voq_get_by_index(tarvik_cookie *cookie, uint32_t index,
                                             uint8_t stat_type, uint32_t op, void **out);
/* Clears the statistics (op 6); nothing is read back. */
TLK_EXPORT int tarvik_ifdsm_clear_by_index(tarvik_cookie *cookie, uint32_t index,
                                           uint8_t stat_type);
/* Reads a device's alarms; *out is the raw reply in a tarvik_msg_malloc block.  A sequence
 * mismatch is -2. */
TLK_EXPORT int tarvik_ifdalm_get_by_if_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                             void **out);
TLK_EXPORT int tarvik_ifdalm_get_by_if_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                            void **out);
/* Asks for statistics whose answer comes as a type-15 notification carrying `caller_cookie`.
 * EINVAL for a NULL cookie or name; EOPNOTSUPP unless op is get or getnext, the name starts with
 * one of xle ae af et fe ge xe sxe mge ot, and reply_flag is 128 or 64. */
TLK_EXPORT int async_tarvik_ifdsm_get_by_index_kernel(tarvik_cookie *cookie, uint16_t reply_flag,
                                                      uint32_t index, const char *name,
                                                      uint8_t stat_type, uint32_t op,
                                                      uint32_t caller_cookie);
/* Registers the handler of asynchronous device statistics (type 15), on products that have them:
 * EINVAL without a product record, cookie, handler or asynchronous setup; EOPNOTSUPP on other
 * products. */
TLK_EXPORT int tarvik_ifdsm_async_kernel_register(tarvik_cookie *cookie, void *arg,
                                                  tarvik_async_handler_t handler);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IFD_H */
