/*
 * tarlink/gencfg.h - generic configuration ("gencfg"): keyed blobs.
 *
 * Opaque blobs stored in the kernel under (major, minor, key) and handed on to other daemons and
 * to the forwarding plane, optionally compressed by a pair of the caller's callbacks.
 * Notifications: tarvik_gencfg_async_register (tarlink/async.h); the library inflates a
 * compressed blob before the handler sees it.
 *
 * For example:
 *
 *   tarvik_init_blob_compression(c, compress, uncompress);    // zlib's pair fits
 *   gencfg_t r = {0};
 *   r.major = 40, r.minor = 2, r.flags = TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED;
 *   r.key = (uint8_t *)"vpn-a", r.key_len = 5, r.blob = blob, r.blob_len = blob_len;
 *   int err = tarvik_gencfg_add(c, &r);
 *   void *msg = NULL;
 *   r.flags = TLK_GENCFG_KEY;
 *   if (tarvik_gencfg_get(c, &r, TLK_OP_GET, &msg, NULL) == 0)
 *     use(r.blob, r.blob_len), tarvik_msg_free(c, msg);  // r points into msg
 */
#ifndef TARLINK_GENCFG_H
#define TARLINK_GENCFG_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Generic configuration ("gencfg", type 72)                                                 */
/* ======================================================================================== */

/*
 * Opaque blobs stored in the kernel under (major, minor, key), where the key is either bytes
 * (TLK_GENCFG_KEY) or a number (TLK_GENCFG_KID), and handed on to other daemons and to the
 * forwarding plane.  The caller fills a gencfg_t; the operations build a gencfg_msg from it, send
 * it in IDR and, for get, getnext, add-and-get and change-and-get, read the reply into a decoded
 * gencfg_msg that the caller releases with tarvik_msg_free.
 *
 * Compression is the caller's choice per record (TLK_GENCFG_COMPRESSED) and its algorithm the
 * caller's pair of callbacks (tarvik_init_blob_compression).  Add and change compress before
 * sending; a compressed reply or notification is decompressed into a copy of the message, which
 * then replaces the received one.  Add-and-get and change-and-get send the blob as given.
 */

/* Bits of gencfg_t.flags, sent on the wire as they stand. */
#define TLK_GENCFG_KID 0x1u                /* kid is valid */
#define TLK_GENCFG_KEY 0x2u                /* key and key_len are valid */
#define TLK_GENCFG_DEPS 0x4u               /* deps and dep_count are valid */
#define TLK_GENCFG_COMPRESSED 0x20000u     /* the blob is compressed (the on-wire marker) */
#define TLK_GENCFG_BULK_DELETE 0x400000u   /* bulk delete */
#define TLK_GENCFG_PREFIX_DELETE 0x800000u /* delete every key that starts with the given one */

#define TLK_GENCFG_TYPE TLK_MSG_GENCFG        /* message type ('H'), version 'i' */
#define TLK_GENCFG_KEY_MAX 250                /* longest key */
#define TLK_GENCFG_WIRE_MAX 0x80000u          /* a blob on the wire must stay below this */
#define TLK_GENCFG_DECOMPRESSED_MAX 0x300000u /* room offered to the decompress callback */

/* One dependency and one peer entry: the wire records gencfg_depinfo and gencfg_peerinfo. */
typedef struct gencfg_depinfo gencfg_depinfo_t;
typedef struct gencfg_peerinfo gencfg_peerinfo_t;

/* The record that the caller fills; blob, key, deps and peers stay the caller's memory. */
typedef struct gencfg_t {
  uint16_t major;           /* major blob type */
  uint16_t minor;           /* minor blob type */
  uint32_t blob_len;        /* length of the blob in bytes */
  uint16_t dep_count;       /* dependency entries */
  uint16_t key_len;         /* length of the key in bytes */
  uint8_t lrid;             /* logical router id; sent only when non-zero */
  uint16_t sub_id;          /* carried as it is */
  uint8_t peer_count;       /* peer entries in use */
  uint8_t peer_max;         /* peer entries available */
  uint8_t *blob;            /* the blob bytes */
  uint8_t *key;             /* the key bytes */
  uint32_t kid;             /* numeric key, with TLK_GENCFG_KID */
  uint32_t flags;           /* TLK_GENCFG_* */
  gencfg_depinfo_t *deps;   /* dep_count entries, with TLK_GENCFG_DEPS */
  gencfg_peerinfo_t *peers; /* peer_count entries */
  uint16_t tag;             /* carried as it is */
} gencfg_t;

/* The two compression callbacks have the form of zlib's compress and uncompress, which can be
 * passed as they are: (destination, destination length in and out, source, source length),
 * 0 for success.  A compressor must fit its output in the source's length, so a blob that does
 * not shrink is the compressor's failure. */
typedef int (*tarvik_blob_codec_fn)(unsigned char *dest, unsigned long *dest_len,
                                    const unsigned char *src, unsigned long src_len);

/* Replaceable parts of tarvik_gencfg_op_export; NULL picks the library's own. */
typedef void *(*tarvik_gencfg_alloc_fn)(size_t size); /* the request message */
typedef void (*tarvik_gencfg_free_fn)(void *msg);     /* gives it back */
typedef int (*tarvik_gencfg_write_fn)(void *io_ctx, void *msg);
typedef int (*tarvik_gencfg_read_fn)(void *io_ctx, void **msg_out, void **mask_out);

/* The routine behind every operation below.  `seq_counter` (the cookie's counter when NULL) is
 * bumped for tlkh_seq.  Ops 4, 5, 8 and 9 read a reply into *msg_out (and its presence map into
 * *mask_out, if given, for a TLV reply); a successful get or getnext, and any op of a record
 * with TLK_GENCFG_BULK_DELETE, copy the reply's fields into the record, pointing into the reply.
 * 0 or an errno value (EINVAL, ENOSPC, ENOMEM, EOPNOTSUPP, the I/O's), or a compression
 * callback's own result. */
TLK_EXPORT int tarvik_gencfg_op_export(tarvik_cookie *cookie, gencfg_t *record, uint32_t op,
                                       void **msg_out, void **mask_out, uint32_t *seq_counter,
                                       void *io_ctx, tarvik_gencfg_alloc_fn alloc_fn,
                                       tarvik_gencfg_free_fn free_fn,
                                       tarvik_gencfg_write_fn write_fn,
                                       tarvik_gencfg_read_fn read_fn);
/* Add, change and delete: one write, no reply.  EINVAL for a NULL cookie. */
TLK_EXPORT int tarvik_gencfg_add(tarvik_cookie *cookie, gencfg_t *record);
TLK_EXPORT int tarvik_gencfg_change(tarvik_cookie *cookie, gencfg_t *record);
TLK_EXPORT int tarvik_gencfg_delete(tarvik_cookie *cookie, gencfg_t *record);
/* Get (TLK_OP_GET) or getnext (TLK_OP_GETNEXT).  A getnext with TLK_GENCFG_KEY, key_len 0 and a
 * NULL key starts a walk. */
TLK_EXPORT int tarvik_gencfg_get(tarvik_cookie *cookie, gencfg_t *record, uint32_t op,
                                 void **msg_out, void **mask_out);
TLK_EXPORT int tarvik_gencfg_add_and_get(tarvik_cookie *cookie, gencfg_t *record, void **msg_out,
                                         void **mask_out);
TLK_EXPORT int tarvik_gencfg_change_and_get(tarvik_cookie *cookie, gencfg_t *record, void **msg_out,
                                            void **mask_out);
/* Sets TLK_GENCFG_BULK_DELETE in the record (even with a NULL cookie) and leaves it set. */
TLK_EXPORT int tarvik_gencfg_bulk_delete(tarvik_cookie *cookie, gencfg_t *record, void **msg_out,
                                         void **mask_out);
/* Sets TLK_GENCFG_PREFIX_DELETE; EOPNOTSUPP for a record with a numeric key. */
TLK_EXPORT int tarvik_gencfg_delete_prefix_key(tarvik_cookie *cookie, gencfg_t *record,
                                               void **msg_out, void **mask_out);
/* Installs the session's compression pair.  A NULL cookie or callback changes nothing. */
TLK_EXPORT void tarvik_init_blob_compression(tarvik_cookie *cookie,
                                             tarvik_blob_codec_fn compress_fn,
                                             tarvik_blob_codec_fn decompress_fn);
/* The asynchronous path's step for each received gencfg_msg: a compressed blob is decompressed
 * into a copy that replaces *msg.  0 when nothing was to be done or on success; else the failure,
 * and *msg keeps the received message. */
TLK_EXPORT int tarvik_gencfg_async(tarvik_cookie *cookie, void **msg);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_GENCFG_H */
