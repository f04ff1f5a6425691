/*
 * tarlink/chassis.h - PICs, kernel synchronisation, markers, sampling, system statistics, packet
 * injection and the fabric's objects.
 *
 * These objects travel as records ("pic" pic_msg, "ksync" ksync_msg, "marker" tlk_marker_msg,
 * "sampling" sample_msg, "sysstats" sysstats_msg, "pkt inject" pktinject_msg, "fc fabric"
 * fc_fabric_msg, "fabric mc group" fmgrp_msg).  Gets give a decoded message, released with
 * tarvik_msg_idl_release; changes are sent and not answered.  A PIC is keyed by slot and port
 * (port | slot * 8 at 32).  System statistics need the system control "net.sysstats_enable".
 *
 * For example:
 *
 *   void *m = NULL;
 *   if (tarvik_pic_get(c, 1, 0, TLK_OP_GET, &m, NULL) == 0) {
 *     const pic_msg *p = m;
 *     printf("pic 0x%x id 0x%x\n", p->picm_idx, p->picm_id);
 *     tarvik_msg_idl_release(c, m, NULL);
 *   }
 */
#ifndef TARLINK_CHASSIS_H
#define TARLINK_CHASSIS_H

#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The attributes tarvik_pic_change sets. */
#define TARVIK_PIC_APP_MODE 1
#define TARVIK_PIC_PRESENCE 2
#define TARVIK_PIC_BOUNCE 4
/* Item types of the stream tarvik_pic_add_with_tlvs takes: a type byte, a length byte and the
 * value.  "Other options" gives its first byte; "MSP options" the first 28 bytes of its value. */
#define TARVIK_PIC_TLV_MSP_OPTIONS 3
#define TARVIK_PIC_TLV_OTHER_OPTIONS 5

/* A packet to inject and its metadata. */
struct tarvik_pktinject {
  const void *packet;
  uint32_t packet_len;
  const void *meta;
  uint32_t meta_len;
};

/* Adds a PIC: type at 34, id at 42, flags at 36, the byte at 73, attachments from the stream. */
TLK_EXPORT int tarvik_pic_add_with_tlvs(tarvik_cookie *cookie, uint32_t pic_slot, uint32_t pic_port,
                                        uint16_t pic_type, uint16_t pic_id, uint32_t pic_flags,
                                        uint8_t pic_byte, const uint8_t *tlvs, uint32_t tlv_len);
/* Deletes a PIC. */
TLK_EXPORT int tarvik_pic_delete(tarvik_cookie *cookie, uint32_t pic_slot, uint32_t pic_port);
/* Reads a PIC (op 4) or the next one (op 5); ops 8 and 9 give EOPNOTSUPP, others EINVAL. */
TLK_EXPORT int tarvik_pic_get(tarvik_cookie *cookie, uint32_t pic_slot, uint32_t pic_port,
                              uint32_t op, void **msg_out, void **mask_out);
/* Sets one attribute of a PIC (TARVIK_PIC_*; BOUNCE ignores the value); others give EINVAL. */
TLK_EXPORT int tarvik_pic_change(tarvik_cookie *cookie, uint32_t pic_slot, uint32_t pic_port,
                                 uint32_t pic_attr, uint8_t value);

/* Reads the kernel synchronisation state. */
TLK_EXPORT int tarvik_ksync_get(tarvik_cookie *cookie, void **msg_out, void **mask_out);
/* Changes it; with bit 0 of the flags (a reset) the three values must be 0. */
TLK_EXPORT int tarvik_ksync_change(tarvik_cookie *cookie, uint32_t ksync_a, uint32_t ksync_b,
                                   uint32_t ksync_c, uint32_t ksync_flags);

/* Asks for a marker: the kernel answers when all written before it is done. */
TLK_EXPORT int tarvik_marker_get(tarvik_cookie *cookie, void **msg_out, void **mask_out);
/* Adds a marker: a to alias_seq, b to flags, c to cookie, d to seq, e to kind. */
TLK_EXPORT int tarvik_marker_add(tarvik_cookie *cookie, uint32_t marker_a, uint32_t marker_b,
                                 uint32_t marker_c, uint32_t marker_d, uint8_t marker_e);

/* Reads a sampling instance by its three keys. */
TLK_EXPORT int tarvik_sample_get(tarvik_cookie *cookie, uint32_t op, uint32_t sample_a,
                                 uint32_t sample_b, uint32_t sample_c, void **msg_out,
                                 void **mask_out);
/* Adds a sampling instance named `name` (64 characters at most). */
TLK_EXPORT int tarvik_sample_add(tarvik_cookie *cookie, uint32_t sample_a, uint32_t sample_b,
                                 uint32_t sample_c, const char *name);
/* Deletes one. */
TLK_EXPORT int tarvik_sample_delete(tarvik_cookie *cookie, uint32_t sample_a, uint32_t sample_b,
                                    uint32_t sample_c, const char *name);

/* Reads the system statistics: EINVAL without the setting, EOPNOTSUPP when it is 0. */
TLK_EXPORT int tarvik_get_systemstats(tarvik_cookie *cookie, uint32_t op, void **msg_out,
                                      void **mask_out);
/* Reads the interface accounting. */
TLK_EXPORT int tarvik_ifl_get_accounting(tarvik_cookie *cookie, uint32_t op, void **msg_out,
                                         void **mask_out);

/* Injects a packet; `id` goes in the header's sender word. */
TLK_EXPORT int tarvik_pktinject_add(tarvik_cookie *cookie, uint32_t id,
                                    const struct tarvik_pktinject *pkt);

/* Reads a fabric by index (op 4 or 5). */
TLK_EXPORT int tarvik_fc_fabric_get_by_index(tarvik_cookie *cookie, uint16_t fabric_index,
                                             uint32_t op, void **msg_out);
/* Reads a fabric by name (128 characters at most; op 4 or 5). */
TLK_EXPORT int tarvik_fc_fabric_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                            void **msg_out);
/* Reads a fabric multicast group (op 4 or 5); stores the presence map on success. */
TLK_EXPORT int tarvik_fmgrpm_get_by_index(tarvik_cookie *cookie, uint32_t group_index, uint32_t op,
                                          void **msg_out, void **mask_out);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_CHASSIS_H */
