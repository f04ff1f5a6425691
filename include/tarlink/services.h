/*
 * tarlink/services.h - service PIC configuration, monitoring and denial-of-service protection.
 *
 * Service PIC configuration ("asp config"), L2TP tunnels and sessions ("l2tp config"), the
 * "qsr" objects, flow monitoring ("monitoring", "mon stats") travel as raw messages of fixed
 * size; a read hands over the kernel's raw reply in a message block freed with tarvik_msg_free.
 * Denial-of-service protection ("ddos") travels as a record and its gets give a decoded message.
 * Changes made by others arrive as notifications (tarvik_asp_cfg_async_register,
 * tarvik_l2tp_async_register, tarvik_qsr_async_register, tarvik_monitor_async_register,
 * tarvik_ddos_async_register in tarlink/async.h).
 *
 * For example:
 *
 *   void *reply = NULL;
 *   if (tarvik_asp_cfg_get(c, 3, 0, 42, 7, TLK_OP_GET, &reply) == 0) {
 *     const struct tarvik_asp_body *a = reply;
 *     printf("pic %u type %u index %u\n", a->asp_a, a->asp_kind, a->asp_id);
 *     tarvik_msg_free(c, reply);
 *   }
 */
#ifndef TARLINK_SERVICES_H
#define TARLINK_SERVICES_H

#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Layouts                                                                                  */
/* ======================================================================================== */

/* "asp config" (type 53), 48 bytes, little-endian: request and reply alike. */
struct tarvik_asp_body {
  uint8_t hdr[24];
  uint32_t asp_id;    /* at 24: the configuration index */
  uint8_t pad[4];     /* */
  uint32_t asp_key;   /* at 32: the key reads need */
  uint8_t pad2[4];    /* */
  uint16_t asp_kind;  /* at 40: the configuration type */
  uint16_t asp_a;     /* at 42: the PIC index */
  uint16_t asp_b;     /* at 44 */
  uint16_t asp_owner; /* at 46: 128 in every request but an add */
};

/* "monitoring" (type 43), 280 bytes, then the name (name_len bytes with its end byte) and the
 * group name (group_len bytes), each section padded to 4.  The request's mon_b is the header's
 * last byte (offset 23). */
struct tarvik_mon_body {
  uint8_t hdr[24];
  uint32_t unit;      /* at 24: the interface unit */
  uint8_t af;         /* at 28 */
  uint8_t set;        /* at 29: TARVIK_MON_DST and TARVIK_MON_SRC, the addresses present */
  uint16_t dst_port;  /* at 30 */
  uint32_t mon_a;     /* at 32: the service */
  uint32_t active;    /* at 36: active time-out */
  uint32_t inactive;  /* at 40: inactive time-out */
  uint32_t agg_int;   /* at 44: aggregation interval */
  uint32_t aggr;      /* at 48: aggregation flags */
  uint8_t dst[16];    /* at 52 */
  uint16_t src_port;  /* at 68 */
  uint8_t pad[6];     /* */
  uint32_t mon_c;     /* at 76 */
  uint8_t pad2[8];    /* */
  uint16_t name_len;  /* at 88 */
  uint16_t group_len; /* at 90 */
  uint8_t src[16];    /* at 92 */
  uint8_t rest[172];  /* to 280 */
};
#define TARVIK_MON_DST 0x1
#define TARVIK_MON_SRC 0x2

/* The L2TP objects, by the kind byte at 24 of an "l2tp config" request. */
#define TARVIK_L2TP_TUNNEL 1
#define TARVIK_L2TP_SESSION 2
#define TARVIK_L2TP_TUNNEL_GROUP 3
#define TARVIK_L2TP_GLOBAL 4
#define TARVIK_L2TP_LAC_SESSION 5
#define TARVIK_L2TP_LNS_SESSION 6

/* What an L2TP request carries: 88 bytes (group u16 at 42, data_len at 44, tunnel at 46, peer at
 * 48, session at 50, value at 52, key at 56, af at 40, the interface at 76 when `ifl` is given),
 * then the two 16-byte addresses and the data bytes. */
struct tarvik_l2tp_cfg {
  uint16_t group, tunnel, peer, session;
  uint32_t value;
  uint32_t key; /* required by reads */
  uint8_t af;
  const uint8_t *local;  /* 16 bytes; required by adds and by every session request */
  const uint8_t *remote; /* 16 bytes; required by adds */
  const void *data;
  uint8_t data_len;
  const uint32_t *ifl;
};

/* A "qsr" key: two words at 48 and 52, the third widened with its sign to 64 bits at 56. */
struct tarvik_qsr_key {
  uint32_t first, second;
  int32_t third;
};

/* ======================================================================================== */
/* Operations                                                                               */
/* ======================================================================================== */

/* Service PIC configuration.  Reads (ops 4, 5, 8, 9) need a non-zero key and msg_out. */
TLK_EXPORT int tarvik_asp_cfg_add(tarvik_cookie *cookie, uint16_t asp_owner, uint16_t asp_kind,
                                  uint16_t asp_a, uint16_t asp_b, uint32_t asp_key,
                                  uint32_t asp_id);
/* Changes a configuration entry (owner 128). */
TLK_EXPORT int tarvik_asp_cfg_change(tarvik_cookie *cookie, uint16_t asp_kind, uint16_t asp_a,
                                     uint16_t asp_b, uint32_t asp_key, uint32_t asp_id);
/* Deletes one (owner 128, kind 0). */
TLK_EXPORT int tarvik_asp_cfg_delete(tarvik_cookie *cookie, uint16_t asp_a, uint16_t asp_b,
                                     uint32_t asp_key, uint32_t asp_id);
/* Sends `op`; reads the raw reply for ops 4, 5, 8 and 9. */
TLK_EXPORT int tarvik_asp_cfg_get(tarvik_cookie *cookie, uint16_t asp_a, uint16_t asp_b,
                                  uint32_t asp_key, uint32_t asp_id, uint32_t op, void **msg_out);

/* L2TP tunnels (kind 1): add (both addresses), change, delete, and get (reads need key, out). */
TLK_EXPORT int tarvik_l2tp_tunnel_cfg_add(tarvik_cookie *cookie, const struct tarvik_l2tp_cfg *cfg);
/* Changes a tunnel. */
TLK_EXPORT int tarvik_l2tp_tunnel_cfg_change(tarvik_cookie *cookie,
                                             const struct tarvik_l2tp_cfg *cfg);
/* Deletes a tunnel. */
TLK_EXPORT int tarvik_l2tp_tunnel_cfg_delete(tarvik_cookie *cookie,
                                             const struct tarvik_l2tp_cfg *cfg);
/* Sends `op` for a tunnel, reading the raw reply for ops 4, 5, 8 and 9. */
TLK_EXPORT int tarvik_l2tp_tunnel_cfg_get(tarvik_cookie *cookie, const struct tarvik_l2tp_cfg *cfg,
                                          uint32_t op, void **msg_out);
/* L2TP sessions (kind 2), which need the local address in every request. */
TLK_EXPORT int tarvik_l2tp_session_cfg_add(tarvik_cookie *cookie,
                                           const struct tarvik_l2tp_cfg *cfg);
/* Changes a session. */
TLK_EXPORT int tarvik_l2tp_session_cfg_change(tarvik_cookie *cookie,
                                              const struct tarvik_l2tp_cfg *cfg);
/* Deletes a session. */
TLK_EXPORT int tarvik_l2tp_session_cfg_delete(tarvik_cookie *cookie,
                                              const struct tarvik_l2tp_cfg *cfg);
/* Sends `op` for a session. */
TLK_EXPORT int tarvik_l2tp_session_cfg_get(tarvik_cookie *cookie, const struct tarvik_l2tp_cfg *cfg,
                                           uint32_t op, void **msg_out);
/* L2TP tunnel groups (kind 3). */
TLK_EXPORT int tarvik_l2tp_tunnel_group_add(tarvik_cookie *cookie,
                                            const struct tarvik_l2tp_cfg *cfg);
/* Changes a tunnel group. */
TLK_EXPORT int tarvik_l2tp_tunnel_group_change(tarvik_cookie *cookie,
                                               const struct tarvik_l2tp_cfg *cfg);
/* Deletes a tunnel group. */
TLK_EXPORT int tarvik_l2tp_tunnel_group_delete(tarvik_cookie *cookie,
                                               const struct tarvik_l2tp_cfg *cfg);
/* Sends `op` for a tunnel group. */
TLK_EXPORT int tarvik_l2tp_tunnel_group_get(tarvik_cookie *cookie,
                                            const struct tarvik_l2tp_cfg *cfg, uint32_t op,
                                            void **msg_out);
/* The global L2TP settings (kind 4). */
TLK_EXPORT int tarvik_l2tp_global_add(tarvik_cookie *cookie, const struct tarvik_l2tp_cfg *cfg);
/* Changes the global settings. */
TLK_EXPORT int tarvik_l2tp_global_change(tarvik_cookie *cookie, const struct tarvik_l2tp_cfg *cfg);
/* Deletes the global settings. */
TLK_EXPORT int tarvik_l2tp_global_delete(tarvik_cookie *cookie, const struct tarvik_l2tp_cfg *cfg);
/* Sends `op` for the global settings. */
TLK_EXPORT int tarvik_l2tp_global_get(tarvik_cookie *cookie, const struct tarvik_l2tp_cfg *cfg,
                                      uint32_t op, void **msg_out);
/* LAC sessions (kind 5): the u16 values at 80 are x, y, p | q << 8 and r. */
TLK_EXPORT int tarvik_l2tp_lac_session_cfg_add(tarvik_cookie *cookie,
                                               const struct tarvik_l2tp_cfg *cfg, uint16_t x,
                                               uint16_t y, uint8_t p, uint8_t q, uint8_t r);
/* Deletes a LAC session. */
TLK_EXPORT int tarvik_l2tp_lac_session_cfg_delete(tarvik_cookie *cookie,
                                                  const struct tarvik_l2tp_cfg *cfg, uint16_t x,
                                                  uint16_t y, uint8_t p, uint8_t q, uint8_t r);
/* LNS sessions (kind 6), laid out as the LAC form. */
TLK_EXPORT int tarvik_l2tp_lns_session_cfg_add(tarvik_cookie *cookie,
                                               const struct tarvik_l2tp_cfg *cfg, uint16_t x,
                                               uint16_t y, uint8_t p, uint8_t q, uint8_t r);
/* Deletes an LNS session. */
TLK_EXPORT int tarvik_l2tp_lns_session_cfg_delete(tarvik_cookie *cookie,
                                                  const struct tarvik_l2tp_cfg *cfg, uint16_t x,
                                                  uint16_t y, uint8_t p, uint8_t q, uint8_t r);

/* A "qsr" request (96 bytes): a at 24, b at 36, c at 40, the key at 48, v1 and v2 (all ones when
 * NULL) at 64 and 72.  Ops 4, 5, 8 and 9 read the raw reply into msg_out. */
TLK_EXPORT int tarvik_qsrm_op(tarvik_cookie *cookie, uint32_t op, uint32_t qsr_a, uint32_t qsr_b,
                              uint32_t qsr_c, const struct tarvik_qsr_key *qsr_key,
                              const uint64_t *qsr_v1, const uint64_t *qsr_v2, void **msg_out);

/* Reads a monitoring entry by interface name (cut at 60 characters): a raw reply. */
TLK_EXPORT int tarvik_mon_get(tarvik_cookie *cookie, uint32_t op, void **msg_out, const char *name,
                              uint32_t mon_a, uint8_t mon_b, uint32_t mon_c);
/* Reads monitoring statistics (index at 24, mask at 28); the mask chooses the reply's sections. */
TLK_EXPORT int tarvik_monstats_get_by_index(tarvik_cookie *cookie, uint32_t mon_index,
                                            uint32_t mon_mask, uint32_t op, void **msg_out);

/* Denial-of-service protection.  Change and delete take object 1, 2 (data: 8 words), 3 (5 words)
 * or 8 (data: `count` ddos_protocol_params); clear takes object 6 and two u16 values; other ops a
 * group 1-4 or 8 and `count` data words.  Gets and getnexts read a decoded ddos_msg. */
TLK_EXPORT int tarvik_ddos_request(tarvik_cookie *cookie, const void *data, uint32_t count,
                                   uint32_t op, uint8_t ddos_obj, uint8_t ddos_kind,
                                   uint8_t ddos_group, uint8_t ddos_flags, void **msg_out,
                                   void **mask_out);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_SERVICES_H */
