/*
 * tarlink/sadb.h - security associations and public-key requests.
 *
 * An IPsec security association travels as a raw "sa info" message (type 41): a 96-byte fixed
 * part and, behind it, the name, the keys, the identity block, two sockaddrs and two strings,
 * each padded to four bytes.  Reads hand over the kernel's raw reply (freed with
 * tarvik_msg_free); changes are fire and forget, and other sessions hear them through
 * tarvik_sadbm_async_register.  A public-key request ("pkcs info", type 42) is answered later, as
 * a "pk-crypto-sys reply" notification (tarvik_pkcs_reply_async_register).  Key bytes pass
 * through unread.
 *
 * For example:
 *
 *   uint8_t key[4 + 16] = {1, 0, 128, 0};              // kind 1, 128 bits, then the key
 *   sadb_sa_t sa = {.sa_id = 5, .sa_spi = 0x1001, .sa_byte0 = TARVIK_SA_OUTBOUND, .sa_key1 = key};
 *   tarvik_sadbm_modify(c, TLK_OP_ADD, "tunnel-a", &sa);
 *   void *reply = NULL;
 *   if (tarvik_sadbm_get(c, TLK_OP_GET, "tunnel-a", 5, 0, 0, &reply) == 0)
 *     tarvik_msg_free(c, reply);
 */
#ifndef TARLINK_SADB_H
#define TARLINK_SADB_H

#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Security associations ("sa info", raw type 41)                                          */
/* ======================================================================================== */

/* The direction byte (sa_byte0) as the trace names it. */
#define TARVIK_SA_INBOUND 1
#define TARVIK_SA_OUTBOUND 2

/* The caller's association.  The library copies the fields; their meaning is the kernel's.  The
 * trace line reads sa_byte0 as the direction, sa_byte1 as the protocol, sa_id as the index and
 * sa_value as the logical interface index. */
typedef struct sadb_sa_t {
  uint32_t sa_id;             /* at 32 */
  uint32_t sa_value;          /* at 40 */
  uint32_t sa_spi;            /* at 36 */
  uint8_t sa_byte0;           /* at 48 */
  uint8_t sa_byte1;           /* at 49 */
  uint8_t sa_byte2;           /* at 50 */
  uint16_t sa_half0;          /* at 52 */
  uint16_t sa_half1;          /* at 54 */
  uint16_t sa_half2;          /* at 56 */
  uint8_t sa_byte3;           /* at 72 */
  uint32_t sa_word0;          /* at 60 */
  uint32_t sa_word1;          /* at 64 */
  uint32_t sa_word2;          /* at 68 */
  const uint8_t *sa_key1;     /* u16 kind, u16 length in bits, the key; or NULL */
  const uint8_t *sa_key2;     /* the same */
  const uint8_t *sa_identity; /* u32 length of what follows, then that; or NULL */
  const uint8_t *sa_addr1;    /* a sockaddr, its first byte its length; or NULL */
  const uint8_t *sa_addr2;    /* the same */
  const char *sa_string1;     /* or NULL */
  const char *sa_string2;     /* or NULL */
} sadb_sa_t;

/* Reads an association (op get or getnext) by name, index and two key words (the u16 at 56 and
 * the u32 at 60); a NULL name sends none.  EMSGSIZE for a name that passes the message block. */
TLK_EXPORT int tarvik_sadbm_get(tarvik_cookie *cookie, uint32_t op, const char *name,
                                uint32_t sa_id, uint16_t key_word0, uint32_t key_word1,
                                void **msg_out);
/* tarvik_sadbm_get with index 0. */
TLK_EXPORT int tarvik_sadbm_get_by_name(tarvik_cookie *cookie, uint32_t op, const char *name,
                                        uint16_t key_word0, uint32_t key_word1, void **msg_out);
/* Adds (op 1), changes (2) or deletes (3) an association; keys, identity, addresses and strings
 * go with ops 1 and 2 only.  Nothing answers: 0 or the write's errno. */
TLK_EXPORT int tarvik_sadbm_modify(tarvik_cookie *cookie, uint32_t op, const char *name,
                                   const sadb_sa_t *sa);
/* Association statistics (raw type 50) selected by a key and a kind; key and key_len required. */
TLK_EXPORT int tarvik_sadbstats_get(tarvik_cookie *cookie, uint32_t op, const void *key,
                                    uint16_t key_len, uint8_t stats_kind, void **msg_out);

/* ======================================================================================== */
/* Public-key requests ("pkcs info", raw type 42)                                          */
/* ======================================================================================== */

#define TARVIK_PKCS_PARTS 12

/* One data part of a request: `len` bytes at `data` (nothing when either is 0). */
typedef struct pkcs_part_t {
  const void *data;
  uint16_t len;
} pkcs_part_t;

/* A public-key request: its identifier and kind, twelve data parts and a name (required). */
typedef struct pkcs_req_t {
  uint32_t pkcs_id;
  uint32_t pkcs_kind;
  pkcs_part_t pkcs_part[TARVIK_PKCS_PARTS];
  const char *pkcs_name;
} pkcs_req_t;

/* Sends a request; op must be TLK_OP_ADD.  The answer comes as a "pk-crypto-sys reply"
 * notification.  EINVAL (with a line on standard output), ENOMEM, or the write's errno. */
TLK_EXPORT int tarvik_pkcsm_modify(tarvik_cookie *cookie, uint32_t op, const pkcs_req_t *req);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_SADB_H */
