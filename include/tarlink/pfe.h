/*
 * tarlink/pfe.h - forwarding engine information, statistics and down maps.
 *
 * The forwarding engines are asked with small raw messages: "pfe info" (36 bytes: the index at
 * 24, the id at 32, a byte at 23 for the "vks" form), "pfe stats" (36 bytes: kind, sub, a and b
 * as the bytes 23 to 26, the user data's length as u16 at 28, the user data at 36) and "pfe dwn
 * map" (40 bytes: the map id at 24, the data length as u16 at 28, an 8-byte key at 32, the data
 * at 40).  Reads hand over the raw reply, freed with tarvik_msg_free; the down map is answered
 * later, by a notification (tarvik_pfe_dwn_map_async_register in tarlink/async.h).
 *
 * For example:
 *
 *   void *reply = NULL;
 *   if (tarvik_pfeinfo_get_by_index(c, 0, 0, TLK_OP_GETNEXT, &reply) == 0) {
 *     printf("%u bytes\n", ((const struct tlk_hdr *)reply)->tlkh_msglen);
 *     tarvik_msg_free(c, reply);
 *   }
 */
#ifndef TARLINK_PFE_H
#define TARLINK_PFE_H

#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads the information of a forwarding engine: a raw reply of any length. */
TLK_EXPORT int tarvik_pfeinfo_get_by_index(tarvik_cookie *cookie, uint32_t pfe_index,
                                           uint32_t pfe_id, uint32_t op, void **msg_out);
/* The same, with the "vks" byte. */
TLK_EXPORT int tarvik_pfeinfo_get_by_index_vks(tarvik_cookie *cookie, uint32_t pfe_index,
                                               uint32_t pfe_id, uint8_t vks, uint32_t op,
                                               void **msg_out);
/* Reads statistics (ops 4, 5, 8, 9 read the raw reply).  User data that takes the message past
 * 16383 bytes is refused with EMSGSIZE and a diagnostic. */
TLK_EXPORT int tarvik_pfestat_get_by_index(tarvik_cookie *cookie, uint8_t pfe_a, uint8_t pfe_b,
                                           uint32_t op, uint8_t pfe_kind, uint8_t pfe_sub,
                                           void **msg_out, const void *data, uint32_t len);
/* Clears statistics: the same form, usually with op 6 and no reply. */
TLK_EXPORT int tarvik_pfestat_clear(tarvik_cookie *cookie, uint8_t pfe_a, uint8_t pfe_b,
                                    uint32_t op, uint8_t pfe_kind, uint8_t pfe_sub, void **msg_out,
                                    const void *data, uint32_t len);
/* Asks for a down map (op 4); nothing is read.  EMSGSIZE for data of 16345 bytes or more. */
TLK_EXPORT int tarvik_pfe_dwn_map_send_req(tarvik_cookie *cookie, uint32_t pfe_map_id,
                                           const uint8_t key[8], uint32_t len, const void *data);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_PFE_H */
