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

/* ======================================================================================== */
/* Generic configuration peers and dependencies                                             */
/* ======================================================================================== */

/*
 * A record may name the peers that are to receive its blob (peers, peer_count, peer_max) and the
 * blobs it depends on (deps, dep_count, TLK_GENCFG_DEPS).  The helpers below fill both arrays;
 * they take no session, give 0 or -1, and report failures at level 3 without a cookie.
 *
 * A peer entry holds one index (a peer or an interface device) or, for the majors that use it,
 * a mask of 48 slots of eight sub-units each: eight u32 words in host order, slot s at word
 * s / 6, bit (s * 5) % 30, sub-unit i (= 8 * slot + unit) at word i / 48, bit
 * 1 + unit + ((i / 8) * 5) % 30.  The fields overlap on purpose, so masks are compared whole.
 * A sub-unit whose bit would lie past bit 31 of its word has no bit: it is set and found nowhere.
 *
 *   gencfg_peerinfo_t peers[4];
 *   r.major = 15;
 *   tarvik_gencfg_add_peerinfo_storage(&r, 4, peers, sizeof peers);
 *   gencfg_peer_t p = {TLK_GENCFG_PEER_SUB_UNIT, TLK_GENCFG_OBJECT_PEER, 17};
 *   tarvik_gencfg_add_peerinfo(&r, &p);                       // slot 2, unit 1
 *   tarvik_gencfg_create_depend(&r);
 *   tarvik_gencfg_add_depinfo(&r, 3, 40, 2, 5, (const uint8_t *)"vpn-a", 0);
 *   ... tarvik_gencfg_add(c, &r) ...
 *   tarvik_gencfg_delete_depend(&r), tarvik_gencfg_delete_peerinfo(&r);
 */

#define TLK_GENCFG_PEERS_MAX 64          /* peer entries a record may have */
#define TLK_GENCFG_DEPS_MAX 72           /* dependencies a record may have */
#define TLK_GENCFG_DEP_BLOCK_SIZE 8192   /* the dependency block: entries, tail, key data */
#define TLK_GENCFG_DEP_TYPE_MAX 54       /* highest dep_type */
#define TLK_GENCFG_PEER_SLOTS 48         /* slots of a peer mask */
#define TLK_GENCFG_PEER_SUB_UNITS 384    /* sub-units of a peer mask, eight a slot */
#define TLK_GENCFG_PEER_INDEX_NONE 65532 /* an index from here on sets no mask bit */
#define TLK_GENCFG_PEERMASK_SYSCTL "kern.gencfg_cfg2_peermask" /* 1: major 4 uses the mask */

/* peer_type values; 17 names a sub-unit and its slot at once. */
#define TLK_GENCFG_PEER_SUB_UNIT 1u
#define TLK_GENCFG_PEER_SLOT 16u
#define TLK_GENCFG_PEER_BOTH 17u

/* gencfg_peerinfo_t.index.index_type: which arm of the index is in force. */
#define TLK_GENCFG_INDEX_DEFAULT 0u /* a single peer index */
#define TLK_GENCFG_INDEX_IFD 1u     /* a single interface device index */
#define TLK_GENCFG_INDEX_MASK 2u    /* the 32-byte peer mask */

/* gencfg_peer_t.object_type */
#define TLK_GENCFG_OBJECT_PEER 0u
#define TLK_GENCFG_OBJECT_IFD 1u

/* One peer to add to a record. */
typedef struct gencfg_peer_t {
  uint8_t peer_type;    /* TLK_GENCFG_PEER_* */
  uint32_t object_type; /* TLK_GENCFG_OBJECT_* */
  uint16_t index;       /* peer, sub-unit, slot or device index */
} gencfg_peer_t;

/* Points the record's peers at the caller's buffer of `count` entries (at most 64, fitting `size`
 * bytes); peer_count 0, peer_max `count`.  0 or -1. */
TLK_EXPORT int tarvik_gencfg_add_peerinfo_storage(gencfg_t *record, uint32_t count, void *buffer,
                                                  size_t size);
/* The same with `count` zeroed entries allocated by the library.  0 or -1 (peers then NULL). */
TLK_EXPORT int tarvik_gencfg_create_peerinfo(gencfg_t *record, uint32_t count);
/* Frees what tarvik_gencfg_create_peerinfo allocated; peers NULL, peer_count 0, peer_max kept. */
TLK_EXPORT void tarvik_gencfg_delete_peerinfo(gencfg_t *record);
/* Adds a peer: a single index or, for majors 15, 73, 85 (and 4 when the peer mask control reads
 * 1), a bit of the record's one mask entry.  0 or -1. */
TLK_EXPORT int tarvik_gencfg_add_peerinfo(gencfg_t *record, const gencfg_peer_t *peer);
/* The first peer mask of a received gencfg_msg, or NULL. */
TLK_EXPORT uint8_t *tarvik_gencfg_get_peer_info(const struct gencfg_msg *msg);
/* 1 if the record's mask holds the slot (type 16) or sub-unit (type 1) `index`, else 0. */
TLK_EXPORT int tarvik_gencfg_is_peer_present_in_peerinfo(const gencfg_t *record, uint8_t peer_type,
                                                         uint32_t index);
/* Entry `entry` of a received gencfg_msg: its index, or the lowest slot or sub-unit of a mask;
 * -1 when there is none. */
TLK_EXPORT int tarvik_gencfg_get_peer_index(const struct gencfg_msg *msg, uint32_t entry);
/* Slot `slot` (type 16) or sub-unit slot * 8 + `sub_unit` (type with bit 0) if its bit is set in
 * `mask`, else -1.  `slot` must be below 48. */
TLK_EXPORT int tarvik_gencfg_get_peer_index_from_peer_mask(const uint8_t *mask, uint8_t peer_type,
                                                           uint32_t slot, uint32_t sub_unit);
/* 0 when both arrays are masks with equal counts and equal words, else 1. */
TLK_EXPORT int tarvik_gencfg_peer_info_compare(const gencfg_peerinfo_t *a, uint32_t count_a,
                                               const gencfg_peerinfo_t *b, uint32_t count_b);
/* Makes the caller's buffer (at least 8192 bytes, zeroed here) the dependency block; sets
 * TLK_GENCFG_DEPS.  0 or -1. */
TLK_EXPORT int tarvik_gencfg_add_depend_storage(gencfg_t *record, void *buffer, size_t size);
/* The same with a block allocated by the library.  0 or -1 (deps then NULL). */
TLK_EXPORT int tarvik_gencfg_create_depend(gencfg_t *record);
/* Frees the allocated block; deps NULL and dep_count 0, TLK_GENCFG_DEPS left set.  0. */
TLK_EXPORT int tarvik_gencfg_delete_depend(gencfg_t *record);
/* Appends a dependency, its key copied into the block's data area.  0 or -1. */
TLK_EXPORT int tarvik_gencfg_add_depinfo(gencfg_t *record, uint8_t dep_type, uint16_t dep_major,
                                         uint16_t dep_minor, uint32_t key_len, const uint8_t *key,
                                         uint8_t dep_flags);

/* ======================================================================================== */
/* Generic configuration statistics ("gencfg-stats", type 86)                                */
/* ======================================================================================== */

/*
 * A small value kept beside a blob, addressed by the record's major, minor, key and peers and by
 * a kind.  Raw messages of their own, written with tarvik_write; a get reads the kernel's raw
 * reply, which the caller frees with tarvik_msg_free.  The third argument of each is unused.
 *
 *   uint64_t packets = 12;
 *   tarvik_gencfg_stats_set(c, &r, NULL, TLK_OP_ADD, 1, &packets, sizeof packets);
 *   void *reply = NULL;
 *   if (tarvik_gencfg_stats_get(c, &r, NULL, TLK_OP_GET, 1, &reply, NULL, NULL) == 0)
 *     tarvik_msg_free(c, reply);
 */

#define TLK_GENCFG_STATS_FIXED 68         /* fixed part of the request */
#define TLK_GENCFG_STATS_HAS_ID 16u       /* header flags byte: stats_id was passed */
#define TLK_GENCFG_STATS_NO_PEER_BYTE 255 /* byte 64 when no peer byte is passed */

/* Sends `op` (1, 3, 4 or 6; 4 needs msg_out, whose reply is read).  `stats_id` replaces the
 * record's sub_id; `peer_byte` goes to byte 64.  0 or an errno value. */
TLK_EXPORT int tarvik_gencfg_stats_get(tarvik_cookie *cookie, const gencfg_t *record, void *unused,
                                       uint32_t op, uint8_t stats_kind, void **msg_out,
                                       const uint16_t *stats_id, const uint8_t *peer_byte);
/* Sends `op` (1, 3 or 6) with `value_len` bytes of `value`.  0 or an errno value. */
TLK_EXPORT int tarvik_gencfg_stats_set(tarvik_cookie *cookie, const gencfg_t *record, void *unused,
                                       uint32_t op, uint8_t stats_kind, const void *value,
                                       uint32_t value_len);
/* Clears the value of `stats_kind` (op 6).  0 or an errno value. */
TLK_EXPORT int tarvik_gencfg_stats_clear(tarvik_cookie *cookie, const gencfg_t *record,
                                         void *unused, uint8_t stats_kind);
/* Deletes the value of `stats_kind` (op 3).  0 or an errno value. */
TLK_EXPORT int tarvik_gencfg_stats_delete(tarvik_cookie *cookie, const gencfg_t *record,
                                          void *unused, uint8_t stats_kind);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_GENCFG_H */
