/*
 * tarlink.h - client library for the kernel's private routing socket.
 *
 * A daemon opens a session (a cookie), the library negotiates message versions with the kernel,
 * and from then on requests go out and replies and notifications come back on one non-blocking
 * socket that the caller may put into its own event loop.  The library creates no thread and
 * holds no lock: a cookie belongs to one thread at a time.
 *
 * Results: 0 for success, otherwise a positive errno value (EINVAL, EAGAIN, EIO, ...), -2 for a
 * sequence mismatch where told, -1 for the setup calls that wrap socket options.  Constructors
 * give a pointer or NULL.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef TARLINK_H
#define TARLINK_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/msg_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(TARLINK_BUILDING)
#define TLK_EXPORT __attribute__((visibility("default")))
#else
#define TLK_EXPORT
#endif

#if defined(__GNUC__)
#define TLK_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define TLK_PRINTF(fmt, args)
#endif

/* ======================================================================================== */
/* Constants                                                                                 */
/* ======================================================================================== */

#define TARLINK_VERSION_MAJOR 0
#define TARLINK_VERSION_MINOR 1

#define TLK_PF_ROUTE 17            /* protocol family of the routing socket */
#define TLK_SOCK_SEQPACKET 5       /* socket type of the routing socket */
#define TLK_SOL_ROUTE 17           /* socket option level of the kernel's own options */

/* Socket options at level TLK_SOL_ROUTE. */
#define TLK_SO_LISTEN 1            /* set: two u32 listen masks */
#define TLK_SO_ASYNC_SEQ 3         /* get: u32 sequence of the asynchronous stream */
#define TLK_SO_SENDER_ID 4         /* set: 1 byte, ROUTE_SENDER_ID */
#define TLK_SO_VERSION 5           /* get: version reply, up to 131 bytes */
#define TLK_SO_ASYNC_MODE 7        /* set: u32 asynchronous mode bits */
#define TLK_SO_SLAVE_MODE 8        /* set: u32 */
#define TLK_SO_SUBTYPES 9          /* get and set: 16-byte subtype mask */
#define TLK_SO_FILTERS 10          /* set: 736-byte filter record */
#define TLK_SO_MASTER_MODE 11      /* set: u32 */
#define TLK_SO_LOCAL_SLAVE_MODE 16 /* set: u32 */
#define TLK_SO_LR_ID 20            /* set: 2 bytes, logical router identifier */
#define TLK_SO_SYNC_ELAPSE 22      /* set: u32 minimum time between synchronous sends */
#define TLK_SO_ASYNC_ELAPSE 23     /* set: u32 minimum time between asynchronous receives */
#define TLK_SO_SYNC_MODE 24        /* set: u32 sync mode */
#define TLK_SO_BULKW_INFO 25       /* get: 12-byte bulk write information */

#define TLK_VERSION_REPLY_MAX 131  /* bytes asked for when reading the version reply */
#define TLK_INTERFACE_VERSION 98   /* 'b': the interface version this library speaks */
#define TLK_NUM_MSG_TYPES 110      /* message types the library knows (0 to 109) */
#define TLK_MSG_BUF_SIZE 16384     /* size of a tarvik_msg_malloc block, largest fixed read */
#define TLK_READ_BUF_SIZE 16385    /* one more, so that an overlong read shows itself */
#define TLK_MIN_MSG_LEN 24         /* no message on the socket is shorter */
#define TLK_DEFAULT_SOCKBUF 524288 /* both socket buffers after connecting */

#define TLK_MAGIC_TLV 0x5011u      /* first word of a TLV frame */
#define TLK_MAGIC_IDR 0x5022u      /* first word of an IDR frame */

/* Operations, the values of tlkh_op. */
#define TLK_OP_NOP 0
#define TLK_OP_ADD 1
#define TLK_OP_CHANGE 2
#define TLK_OP_DELETE 3
#define TLK_OP_GET 4
#define TLK_OP_GETNEXT 5
#define TLK_OP_CLEAR 6
#define TLK_OP_DELETEALL 7
#define TLK_OP_ADD_GET 8
#define TLK_OP_CHG_GET 9

/* Diagnostic levels of tarvik_err. */
#define TLK_LEVEL_DEBUG 0
#define TLK_LEVEL_INFO 1
#define TLK_LEVEL_WARNING 2
#define TLK_LEVEL_ERROR 3
#define TLK_LEVEL_FATAL 4 /* ends the process under the default callback */

/* Bits of the session's sync mode. */
#define TLK_SYNC_BULK_ENABLE 0x1u

/* Asynchronous mode bits that the library itself looks at. */
#define TLK_ASYNC_BULK 0x1u
#define TLK_ASYNC_ONE_MSG 0x400u
#define TLK_ASYNC_HOOKED 0x4000u

/* Memory identifiers: every allocation names the submodule that makes it. */
#define MEMID_TARVIK_MAX 76
#define MEMID_TARVIK_SUBTYPE 5
#define MEMID_TARVIK_ASYNC_CTX 6
#define MEMID_TARVIK_READ_BUFFER 7
#define MEMID_TARVIK_COOKIE 8
#define MEMID_TARVIK_DECODE 58
#define MEMID_TARVIK_ASYNC_REG 59
#define MEMID_TARVIK_IFD_INFO 60
#define MEMID_TARVIK_NAMEINDEX 61
#define MEMID_TARVIK_ITABLE_MIN 62
#define MEMID_TARVIK_ITABLE_MAX 65
#define MEMID_TARVIK_PKT_INJECT 71
#define MEMID_TARVIK_MSG 75

/* ======================================================================================== */
/* Raw message header                                                                        */
/* ======================================================================================== */

/*
 * Every raw message starts with these 24 bytes, little-endian on the wire:
 *
 *    0       4   5   6   7   8           12          16          20      22  23  24
 *    +-------+---+---+---+---+-----------+-----------+-----------+-------+---+---+
 *    | magic |ver|typ|op |flg|  msglen   |    seq    |    id     |fixedln|ax1|ax2|
 *    +-------+---+---+---+---+-----------+-----------+-----------+-------+---+---+
 *
 * A zero magic tells a raw message from a frame.  In records that go through the IDL codecs the
 * in-memory header goes on with the attachment list (tlkh_info, tlkh_info_len).
 */
/* The records of the message schema (tlk_hdr among them), their presence maps, size constants
 * and codecs, generated from the schema at build time. */
#include "tarlink_records.h"

#define TLK_RAW_HDR_LEN 24

/* The version letter in the low byte and the type in the high byte, as one 16-bit store. */
#define TLK_VERSION_TYPE_WORD(version, type) ((((type) << 8) | (version)) & 0xFFFFu)

/* ======================================================================================== */
/* Memory accounting                                                                         */
/* ======================================================================================== */

/* The four allocator pointers.  Replace them before the first use of the library, if at all. */
extern TLK_EXPORT void *(*tarvik_malloc)(unsigned memid, size_t size);
extern TLK_EXPORT void (*tarvik_free)(unsigned memid, void *block);
extern TLK_EXPORT void *(*tarvik_calloc)(unsigned memid, size_t count, size_t size);
extern TLK_EXPORT void *(*tarvik_realloc)(unsigned memid, void *block, size_t size);

/* One counter entry per memory identifier.  A check byte is the XOR of its counter's four bytes,
 * or 0xBE where that XOR is zero, so a valid check byte is never zero. */
typedef struct tarvik_mem_cnt {
  uint8_t chk[4];      /* check bytes: allocations, failures, frees, outstanding */
  uint32_t allocs;     /* successful allocations */
  uint32_t fails;      /* failed allocations */
  uint32_t frees;      /* frees */
  int32_t outstanding; /* allocations minus frees */
} tarvik_mem_cnt_t;

typedef struct tarvik_mem_record_t {
  tarvik_mem_cnt_t *cnts;       /* 77 entries; NULL until the first counted event */
  uint16_t submod_max;          /* MEMID_TARVIK_MAX once set */
  tarvik_mem_cnt_t *cnts_saved; /* second copy of cnts, to catch a damaged root */
} tarvik_mem_record_t;

extern TLK_EXPORT tarvik_mem_record_t tarvik_mem_record;   /* root of the accounting */
extern TLK_EXPORT int32_t tarvik_mem_rec_enabled;         /* non-zero: accounting is on */
extern TLK_EXPORT void (*tarvik_mem_rec_lock)(void);      /* called before a counter changes */
extern TLK_EXPORT void (*tarvik_mem_rec_unlock)(void);    /* called after */
extern TLK_EXPORT const uint16_t memid_tarvik_itable_borrower; /* 63 */
extern TLK_EXPORT const uint16_t memid_tarvik_itable_donor;    /* 64 */

/* Turns accounting on for good, with optional lock functions around each counter change. */
TLK_EXPORT void tarvik_mem_rec_enable(void (*lock)(void), void (*unlock)(void));

typedef struct tarvik_cookie tarvik_cookie;

/* Zero-filled block of `size` bytes (identifier 75); NULL for a NULL cookie or no memory. */
TLK_EXPORT void *tarvik_size_alloc(tarvik_cookie *cookie, size_t size);
/* Zero-filled message block of TLK_MSG_BUF_SIZE bytes (identifier 75). */
TLK_EXPORT void *tarvik_msg_malloc(tarvik_cookie *cookie);
/* Gives back a message block or a decoded message; NULL cookie or block is a no-op. */
TLK_EXPORT void tarvik_msg_free(tarvik_cookie *cookie, void *block);
/* The allocator pair handed to the IDL decoders (identifier 58). */
TLK_EXPORT void *tarvik_malloc_cb(size_t size);
TLK_EXPORT void tarvik_free_cb(void *block);
/* The allocator pair handed to integer tables; the identifier must lie in 62 to 65. */
TLK_EXPORT void *tarvik_malloc_itable(const uint16_t *memid, size_t size);
TLK_EXPORT void tarvik_free_itable(const uint16_t *memid, void *block);

/* ======================================================================================== */
/* Diagnostics                                                                               */
/* ======================================================================================== */

/* Receives every diagnostic of a session: "tarvik: " and the level word, then the message,
 * cut at 255 characters. */
typedef void (*tarvik_lib_error_cb)(tarvik_cookie *cookie, void *arg, int level, const char *text);

/* Emits a diagnostic through the cookie's callback, or to the system log without a cookie. */
TLK_EXPORT void tarvik_err(tarvik_cookie *cookie, int level, const char *format, ...) TLK_PRINTF(3, 4);
/* The default callback: system log at priority 7, 6, 4, 3; level 4 logs at 2 and calls exit(1). */
TLK_EXPORT void tarvik_lib_error(tarvik_cookie *cookie, void *arg, int level, const char *text);
/* Sets the session's diagnostics callback (NULL silences the session).  22 for a NULL cookie. */
TLK_EXPORT int tarvik_lib_error_register(tarvik_cookie *cookie, void *arg, tarvik_lib_error_cb cb);

/* ======================================================================================== */
/* Sessions                                                                                  */
/* ======================================================================================== */

/* Called on a sequence mismatch instead of the diagnostic: the cookie's value, then the
 * message's. */
typedef void (*tarvik_seq_error_cb)(tarvik_cookie *cookie, void *arg, uint32_t expected,
                                    uint32_t got);

/* A new, unconnected cookie, or NULL.  Makes no system call. */
TLK_EXPORT tarvik_cookie *tarvik_cookie_create(void);
/* The same as tarvik_cookie_create, for a caller that changes the cookie before connecting. */
TLK_EXPORT tarvik_cookie *tarvik_open_nc(void);
/* Connects: socket, flags, version negotiation, sender, buffers.  NULL after releasing the
 * cookie on failure; do not touch the cookie after a NULL return. */
TLK_EXPORT tarvik_cookie *tarvik_set_defaults(tarvik_cookie *cookie, uint32_t sender_id);
/* Creates and connects a session. */
TLK_EXPORT tarvik_cookie *tarvik_open(uint32_t sender_id);
/* Creates a session whose own callback also hears the failures of connecting. */
TLK_EXPORT tarvik_cookie *tarvik_open_set_liberr(uint32_t sender_id, void *arg,
                                                 tarvik_lib_error_cb cb);
/* Closes the socket first, then releases all that the session holds.  NULL is a no-op. */
TLK_EXPORT void tarvik_close(tarvik_cookie *cookie);
TLK_EXPORT void tarvik_cookie_destroy(tarvik_cookie *cookie);
/* Sets both socket buffers (and keeps the bulk read buffer in step).  0, 22, 12 or errno. */
TLK_EXPORT int tarvik_set_buffers(tarvik_cookie *cookie, int32_t send_size, int32_t recv_size);
/* Tells the kernel the sender identifier (low 8 bits).  0, or 22 for a NULL cookie. */
TLK_EXPORT int tarvik_set_sender_id(tarvik_cookie *cookie, uint32_t sender_id);
/* Sets the logical router identifier (low 16 bits).  0, or 22 for a NULL cookie. */
TLK_EXPORT int tarvik_set_lr_id(tarvik_cookie *cookie, uint32_t lr_id);
/* Passes a socket option through at level TLK_SOL_ROUTE. */
TLK_EXPORT int tarvik_setsockopt(tarvik_cookie *cookie, int option, const void *value,
                                 uint32_t length);
/* The session's descriptor, for the caller's event loop; 22 for a NULL cookie. */
TLK_EXPORT int tarvik_getsockfd(tarvik_cookie *cookie);
/* The kernel's version reply as kept by the session (borrowed), or NULL. */
TLK_EXPORT const uint8_t *tarvik_get_tarlink_version_info(tarvik_cookie *cookie);
/* Master, slave and local slave modes: 0, -1 after a diagnostic, 22 for a NULL cookie. */
TLK_EXPORT int tarvik_setup_master_mode(tarvik_cookie *cookie, uint32_t value);
TLK_EXPORT int tarvik_setup_slave_mode(tarvik_cookie *cookie, uint32_t value);
TLK_EXPORT int tarvik_setup_local_slave_mode(tarvik_cookie *cookie, uint32_t value);
/* Marks an asynchronous session that also carries statistics replies with sequence 0. */
TLK_EXPORT void tarvik_set_used_by_stats(tarvik_cookie *cookie, uint32_t flag);
/* Sets the sequence mismatch callback.  22 for a NULL cookie. */
TLK_EXPORT int tarvik_seq_error_register(tarvik_cookie *cookie, void *arg, tarvik_seq_error_cb cb);

/* ======================================================================================== */
/* Synchronous message I/O                                                                   */
/* ======================================================================================== */

/* Sends the buffer in one write.  0, or the write's errno. */
TLK_EXPORT int tarvik_write(tarvik_cookie *cookie, const void *buffer, size_t length);
/* Reads one message of up to TLK_MSG_BUF_SIZE bytes into `dest`.  0, errno, EIO or -2. */
TLK_EXPORT int tarvik_msg_read(tarvik_cookie *cookie, void *dest, size_t *length);
/* Reads one message of any length into a new block, freed with tarvik_msg_free. */
TLK_EXPORT int tarvik_long_msg_read(tarvik_cookie *cookie, void **buffer, size_t *length);
/* Whole length of the next message on `fd`, or -1 with errno set (EAGAIN when none). */
TLK_EXPORT int tarvik_peek_pkt_len(int fd);
/* Applies the sequence rule to a message read by another path: 0 or -2. */
TLK_EXPORT int tarvik_check_read_seq(tarvik_cookie *cookie, const void *msg);
/* Advances the session's counter and stores the new value.  22 if either pointer is NULL. */
TLK_EXPORT int tarvik_seq_get_next(tarvik_cookie *cookie, uint32_t *seq);

/* ======================================================================================== */
/* Bulk transfer: many messages per system call                                              */
/* ======================================================================================== */

/* One entry of a bulk vector.  `reply` holding its own address marks an entry that expects a
 * reply; afterwards it holds the decoded reply, which the caller owns (tarvik_msg_idl_release).
 * The caller zeroes both error words beforehand; the library never clears them. */
typedef struct tarvik_msg_iov {
  void *msg;         /* the request, a raw message */
  void *reply;       /* in: &reply to expect one; out: the decoded reply */
  int32_t write_err; /* why the message wasn't taken */
  int32_t read_err;  /* why its reply wasn't obtained */
} tarvik_msg_iov_t;

/* What the kernel says of the last bulk write (option 25). */
typedef struct tarvik_bulkw_info {
  uint32_t err;   /* error of the message at which the kernel stopped; 0 if none */
  uint32_t count; /* messages of the last write that the kernel took */
  uint32_t third; /* the kernel's own; not interpreted */
} tarvik_bulkw_info_t;

/* Turns bulk mode on (1) or off (0).  On: the send and receive buffers, as large as the socket's
 * buffers.  0, or -1 after a diagnostic (and for a NULL cookie). */
TLK_EXPORT int tarvik_set_sync_mode(tarvik_cookie *cookie, uint32_t mode);
/* Resizes the bulk send buffer.  0; EINVAL without bulk mode; ENOMEM. */
TLK_EXPORT int tarvik_set_bulk_buffer(tarvik_cookie *cookie, uint32_t size);
/* Reads the bulk write information.  0; EINVAL for a NULL pointer; else getsockopt's result. */
TLK_EXPORT int tarvik_get_bulkw_info(tarvik_cookie *cookie, tarvik_bulkw_info_t *info);
/* Paces the kernel's side: type 0 synchronous sends, type 1 asynchronous receives.  0 or -1. */
TLK_EXPORT int tarvik_set_io_min_elapse(tarvik_cookie *cookie, uint32_t value, int type);
/* Sends `count` requests in as few writes as the send buffer allows and reads their replies.
 * `masks` (may be NULL) holds one word per entry: 0 for IDR, else the address of the entry's TLV
 * mask; it receives the masks of TLV replies.  EINVAL for a NULL cookie, else 0: the outcome of
 * each entry is in the entry. */
TLK_EXPORT int tarvik_msg_writev_idl(tarvik_cookie *cookie, uint32_t count, tarvik_msg_iov_t *iov,
                                     uintptr_t *masks);
/* Stores an entry's write (is_write non-zero) or read error: `value`, or errno when it is 0. */
TLK_EXPORT void tarvik_set_iov_err(tarvik_cookie *cookie, tarvik_msg_iov_t *iov, uint32_t count,
                                   uint32_t index, int is_write, int value);

/* ======================================================================================== */
/* Frames: the IDL envelope                                                                  */
/* ======================================================================================== */

/*
 * A structured message crosses the socket as one frame: a 12-byte head, then the record in TLV
 * (magic 0x5011) or IDR (magic 0x5022) form.
 *
 *    0        4                8             12
 *    +--------+----------------+-------------+------------------------+
 *    | magic  | payload length |    type     | record (payload length)|
 *    +--------+----------------+-------------+------------------------+
 */

/* Length of the frame last produced by tarvik_msg_idl_encode (a diagnostic; nothing reads it). */
extern TLK_EXPORT uint32_t tarvik_msglen;

/* Encodes a raw message into a new frame (freed with tarvik_msg_free): TLV under `mask` when it
 * is non-NULL, IDR otherwise.  0, or ENOMEM. */
TLK_EXPORT int tarvik_msg_idl_encode(tarvik_cookie *cookie, const void *rawmsg, const void *mask,
                                     void **out_buffer, size_t *out_length);
/* Decodes a frame into one new arena, released whole with tarvik_msg_idl_release.  0; EOPNOTSUPP
 * when the data is not a frame (a raw message); EINVAL or ENOMEM when the frame is bad. */
TLK_EXPORT int tarvik_msg_idl_decode(tarvik_cookie *cookie, const void *data, size_t length,
                                     void **out_msg, void **out_mask);
/* Gives back a decoded message (and its mask, which lives in the same arena). */
TLK_EXPORT void tarvik_msg_idl_release(tarvik_cookie *cookie, void *msg, void *mask);
/* Encodes into the caller's buffer, always IDR; *in_out_length becomes the frame's full size.
 * 0, ENOMEM when it did not fit, EINVAL for a NULL buffer or zero length. */
TLK_EXPORT int tarvik_msg_idl_encode_pa(tarvik_cookie *cookie, const void *rawmsg, void *buffer,
                                        size_t *in_out_length);
/* Decodes into the caller's area, with no growth and no retry. */
TLK_EXPORT int tarvik_msg_idl_decode_pa(tarvik_cookie *cookie, const void *data, size_t length,
                                        void **out_msg, void **out_mask, void *arena,
                                        size_t arena_size);
/* The whole length of the frame at `data` (word 1 + 12), or NULL under 8 bytes. */
TLK_EXPORT uint32_t *tarvik_idl_peek_length(uint32_t *out, const void *data, size_t length);
/* The first word of `data`, or NULL under 4 bytes. */
TLK_EXPORT uint32_t *tarvik_idl_peek_magic(uint32_t *out, const void *data, size_t length);

/* Encodes a raw message in place at the session's bulk write cursor (TLV under `mask`, IDR
 * without), into the room left in the send buffer; the cursor is not moved.  0 with the frame's
 * length, or ENOMEM with length 0 when it does not fit (nothing logged). */
TLK_EXPORT int tarvik_bulkmsg_idl_encode(tarvik_cookie *cookie, uint32_t *out_length,
                                         const void *rawmsg, const void *mask);
/* Decodes the frame at the session's bulk read cursor into a new arena, stored in *in_out_msg;
 * the cursor is not moved.  0 with the frame's length; on failure *in_out_msg is as it was. */
TLK_EXPORT int tarvik_bulkmsg_idl_decode(tarvik_cookie *cookie, uint32_t *out_decoded_length,
                                         void **in_out_msg, void **out_mask);

/* Appends an attachment to a raw message under construction.  The first call carves a list of
 * 128 pointer slots at *in_out_cursor (in the message's variable area) and advances the cursor.
 * 0; ENOMEM for the 129th attachment or a NULL cursor value; EINVAL for NULL arguments. */
TLK_EXPORT int tlkm_info_user_add(void *rawmsg, struct tlk_msg_info *info, void **in_out_cursor);

/* ---- Framed read and write ---- */

/* Encodes (IDR when `mask` is NULL, TLV under it otherwise) and writes one frame. */
TLK_EXPORT int tarvik_msg_write_idl(tarvik_cookie *cookie, const void *rawmsg, const void *mask);
/* Reads one message of up to 16384 bytes and decodes it: 0, the read's result, EINVAL for a
 * garbled frame, or the decoder's errno. */
TLK_EXPORT int tarvik_msg_read_idl(tarvik_cookie *cookie, void **msg, void **mask);
/* The same into the caller's area. */
TLK_EXPORT int tarvik_msg_read_idl_pa(tarvik_cookie *cookie, void **msg, void **mask, void *area,
                                      size_t area_size);
/* Reads one message of any length and decodes it; decoder results are returned as they are. */
TLK_EXPORT int tarvik_long_msg_read_idl(tarvik_cookie *cookie, void **msg, void **mask);
/* The same into the caller's area: a decoder's errno reads as 0, a garbled frame as EINVAL. */
TLK_EXPORT int tarvik_long_msg_read_idl_pa(tarvik_cookie *cookie, void **msg, void **mask,
                                           void *area, size_t area_size);

/* ======================================================================================== */
/* Record codecs                                                                             */
/* ======================================================================================== */

/*
 * For every record type X of the schema (tarlink_records.h):
 *   tlv_encode_X_0(record, map, buffer, length)    size needed; writes nothing at or past length
 *   tlv_decode_X_0(record, map, data, length[, alloc, context])
 *                                                  bytes consumed, or 0, -1, -2, -3
 *   tlv_release_X_0(record, map, release, context) gives back the decoder's allocations
 *   idr_encode_X_0, idr_decode_X_0, idr_release_X_0: the same without a map (not for TLV-only X)
 *   tlv_rtti_sizeof_X_0, tlv_rtti_sizeof_map_X_0, idr_rtti_sizeof_X_0: record and map sizes
 * A NULL map encodes every field; a decoder given a map sets the bit of every field it read.
 * Only decoders of records with allocating fields take the alloc arguments.
 */

/* Address family of the host -> number on the TLV wire; 254 and above are logged (LOG_CRIT)
 * and returned unchanged. */
TLK_EXPORT uint32_t tlk_encode_af(uint32_t family);
/* Number on the TLV wire -> address family of the host; 153 and above are logged and returned
 * unchanged. */
TLK_EXPORT uint32_t tlk_decode_af(uint32_t family);

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
struct tarvik_msg_list; /* tarvik_msg_list_t, under Asynchronous notifications */
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
/* tarvik_ifdsm_async_kernel_register, under Registration, takes those notifications. */

/* ======================================================================================== */
/* Logical interfaces                                                                        */
/* ======================================================================================== */

/* Reads one logical interface (op TLK_OP_GET) or the one after the key (TLK_OP_GETNEXT).  On
 * success *out is a decoded ifl_msg, released with tarvik_msg_idl_release; on failure NULL.  The
 * request goes out in IDR; `mask` receives the reply's presence map when it comes in TLV. */
TLK_EXPORT int tarvik_iflm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                        void **out, void **mask);
TLK_EXPORT int tarvik_iflm_get_by_snmp_index(tarvik_cookie *cookie, uint32_t snmp_id, uint32_t op,
                                             void **out, void **mask);
TLK_EXPORT int tarvik_iflm_get_by_device(tarvik_cookie *cookie, uint32_t devidx, uint32_t unit,
                                         uint32_t op, void **out, void **mask);
/* `name` is the device part alone (cut at 59 characters), `unit` the number behind the point. */
TLK_EXPORT int tarvik_iflm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t unit,
                                       uint32_t op, void **out, void **mask);

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
#define TLK_GENCFG_KID 0x1u               /* kid is valid */
#define TLK_GENCFG_KEY 0x2u               /* key and key_len are valid */
#define TLK_GENCFG_DEPS 0x4u              /* deps and dep_count are valid */
#define TLK_GENCFG_COMPRESSED 0x20000u    /* the blob is compressed (the on-wire marker) */
#define TLK_GENCFG_BULK_DELETE 0x400000u  /* bulk delete */
#define TLK_GENCFG_PREFIX_DELETE 0x800000u /* delete every key that starts with the given one */

#define TLK_GENCFG_TYPE TLK_MSG_GENCFG    /* message type ('H'), version 'i' */
#define TLK_GENCFG_KEY_MAX 250            /* longest key */
#define TLK_GENCFG_WIRE_MAX 0x80000u      /* a blob on the wire must stay below this */
#define TLK_GENCFG_DECOMPRESSED_MAX 0x300000u /* room offered to the decompress callback */

/* One dependency and one peer entry: the wire records gencfg_depinfo and gencfg_peerinfo. */
typedef struct gencfg_depinfo gencfg_depinfo_t;
typedef struct gencfg_peerinfo gencfg_peerinfo_t;

/* The record that the caller fills; blob, key, deps and peers stay the caller's memory. */
typedef struct gencfg_t {
  uint16_t major;            /* major blob type */
  uint16_t minor;            /* minor blob type */
  uint32_t blob_len;         /* length of the blob in bytes */
  uint16_t dep_count;        /* dependency entries */
  uint16_t key_len;          /* length of the key in bytes */
  uint8_t lrid;              /* logical router id; sent only when non-zero */
  uint16_t sub_id;           /* carried as it is */
  uint8_t peer_count;        /* peer entries in use */
  uint8_t peer_max;          /* peer entries available */
  uint8_t *blob;             /* the blob bytes */
  uint8_t *key;              /* the key bytes */
  uint32_t kid;              /* numeric key, with TLK_GENCFG_KID */
  uint32_t flags;            /* TLK_GENCFG_* */
  gencfg_depinfo_t *deps;    /* dep_count entries, with TLK_GENCFG_DEPS */
  gencfg_peerinfo_t *peers;  /* peer_count entries */
  uint16_t tag;              /* carried as it is */
} gencfg_t;

/* The two compression callbacks have the form of zlib's compress and uncompress, which can be
 * passed as they are: (destination, destination length in and out, source, source length),
 * 0 for success.  A compressor must fit its output in the source's length, so a blob that does
 * not shrink is the compressor's failure. */
typedef int (*tarvik_blob_codec_fn)(unsigned char *dest, unsigned long *dest_len,
                                    const unsigned char *src, unsigned long src_len);

/* Replaceable parts of tarvik_gencfg_op_export; NULL picks the library's own. */
typedef void *(*tarvik_gencfg_alloc_fn)(size_t size);   /* the request message */
typedef void (*tarvik_gencfg_free_fn)(void *msg);       /* gives it back */
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
TLK_EXPORT int tarvik_gencfg_change_and_get(tarvik_cookie *cookie, gencfg_t *record,
                                            void **msg_out, void **mask_out);
/* Sets TLK_GENCFG_BULK_DELETE in the record (even with a NULL cookie) and leaves it set. */
TLK_EXPORT int tarvik_gencfg_bulk_delete(tarvik_cookie *cookie, gencfg_t *record, void **msg_out,
                                         void **mask_out);
/* Sets TLK_GENCFG_PREFIX_DELETE; EOPNOTSUPP for a record with a numeric key. */
TLK_EXPORT int tarvik_gencfg_delete_prefix_key(tarvik_cookie *cookie, gencfg_t *record,
                                               void **msg_out, void **mask_out);
/* Installs the session's compression pair.  A NULL cookie or callback changes nothing. */
TLK_EXPORT void tarvik_init_blob_compression(tarvik_cookie *cookie, tarvik_blob_codec_fn compress_fn,
                                             tarvik_blob_codec_fn decompress_fn);
/* The asynchronous path's step for each received gencfg_msg: a compressed blob is decompressed
 * into a copy that replaces *msg.  0 when nothing was to be done or on success; else the failure,
 * and *msg keeps the received message. */
TLK_EXPORT int tarvik_gencfg_async(tarvik_cookie *cookie, void **msg);

/* ======================================================================================== */
/* Session statistics ("tarlink stats", raw type 26)                                        */
/* ======================================================================================== */

/* Fire and forget: one write, no reply, sequence 0.  0 or the write's errno. */
TLK_EXPORT int tarvik_tlk_stat_add(tarvik_cookie *cookie);
TLK_EXPORT int tarvik_tlk_stat_delete(tarvik_cookie *cookie);
TLK_EXPORT int tarvik_tlk_stat_clear(tarvik_cookie *cookie);
TLK_EXPORT int tarvik_tlk_proxy_stat_add(tarvik_cookie *cookie, uint32_t proxy_id);
TLK_EXPORT int tarvik_tlk_proxy_stat_delete(tarvik_cookie *cookie, uint32_t proxy_id);
TLK_EXPORT int tarvik_tlk_proxy_stat_clear(tarvik_cookie *cookie, uint32_t proxy_id);
/* Reads the counters: *msg_out is a raw reply in a message block freed with tarvik_msg_free. */
TLK_EXPORT int tarvik_tlk_stat_get(tarvik_cookie *cookie, uint8_t sel_a, uint8_t sel_b,
                                   void **msg_out);
TLK_EXPORT int tarvik_tlk_proxy_stat_get(tarvik_cookie *cookie, uint32_t proxy_id, uint8_t sel_a,
                                         uint8_t sel_b, void **msg_out);

/* ======================================================================================== */
/* Message types and names                                                                   */
/* ======================================================================================== */

/* Expected version byte of each message type, 0 where the library keeps no version. */
extern TLK_EXPORT const uint8_t TARVIK_VERSION_TABLE[TLK_NUM_MSG_TYPES];
/* Names of message types 0 to 109, then "unknown" for anything at or above 110. */
extern TLK_EXPORT const char *const rtm_types[TLK_NUM_MSG_TYPES + 1];
/* Names of operations 0 to 9, then "unknown". */
extern TLK_EXPORT const char *const rtm_ops[11];
extern TLK_EXPORT const char *const rtm_ops_brief[11];
/* rtm_types of any type number, "unknown" out of range. */
TLK_EXPORT const char *tarvik_msg_type_name(uint32_t type);

/* ======================================================================================== */
/* Asynchronous sessions                                                                     */
/* ======================================================================================== */

/*
 * A session becomes asynchronous in one of three ways, exactly one per session:
 *   tarvik_create_async_context      the library makes its own event loop context;
 *   tarvik_set_async_context         the session joins the caller's context (several sessions
 *                                    may share one);
 *   tarvik_set_async_info_nocontext  no loop at all: the caller polls the descriptor and calls
 *                                    tarvik_async_event_process when it turns readable.
 * Then each tarvik_<family>_async_register fills the handler slot of its message types and adds
 * its listen bits; the kernel sends a notification of every change under those bits.  A handler
 * runs synchronously from tarvik_async_event_process and owns the message it is given: it frees
 * it with tarvik_msg_free.
 */

/* Event loop handles.  Opaque values: an evContext names one loop, an evFileID one watched
 * descriptor of it.  A null `opaque` means none.  The library reaches the loop only through the
 * platform table (tarlink_platform.h), whose default is a small poll(2) loop of its own; a build
 * that brings another implementation of these types defines TLK_EXTERNAL_EVLIB before including
 * this header and plugs its functions into the table. */
#ifndef TLK_EXTERNAL_EVLIB
typedef struct {
  void *opaque;
} evContext;
typedef struct {
  void *opaque;
} evFileID;
/* Called when a watched descriptor is ready; `eventmask` holds the TLK_EV_* bits seen. */
typedef void (*evFileFunc)(evContext ctx, void *uap, int fd, int eventmask);
#endif

#define TLK_EV_READ 1   /* readable */
#define TLK_EV_WRITE 2  /* writable */
#define TLK_EV_EXCEPT 4 /* exceptional condition (out-of-band data) */

/* The loop that the platform table provides (the library's own unless replaced).
 * 0 on success, -1 with errno otherwise. */
TLK_EXPORT int tlk_ev_create(evContext *ctx);
/* Destroys a context; its descriptors are dropped, not closed.  Not from inside its loop. */
TLK_EXPORT int tlk_ev_destroy(evContext ctx);
/* Calls `func` whenever `fd` shows one of the `eventmask` conditions. */
TLK_EXPORT int tlk_ev_select_fd(evContext ctx, int fd, int eventmask, evFileFunc func, void *uap,
                                evFileID *id);
TLK_EXPORT int tlk_ev_deselect_fd(evContext ctx, evFileID id);
/* Runs the loop until tlk_ev_break, or until no descriptor is left to watch. */
TLK_EXPORT int tlk_ev_main_loop(evContext ctx);
/* Makes the running loop of `ctx` return 0 once the current callback returns.  Safe from a
 * callback and from a signal handler.  A break asked for while the loop isn't running stops its
 * next run at once. */
TLK_EXPORT int tlk_ev_break(evContext ctx);

/* A handler: the session, the registrant's word, the message (owned by the handler, freed with
 * tarvik_msg_free), and a word that is 0 for decoded messages and carries nothing for raw ones.
 * The result is ignored. */
typedef int (*tarvik_async_handler_t)(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t word);

/* One handler slot. */
typedef struct tarvik_async_reg_t {
  void *arg;
  tarvik_async_handler_t handler;
} tarvik_async_reg_t;

/* What `arg` points to when a slot dispatches on a subtype byte (tarvik_async_subtype_handler). */
typedef struct tarvik_async_subtype_info_t {
  uint8_t count;              /* entries in `table` */
  uint32_t offset;            /* byte offset of the subtype byte inside the message */
  tarvik_async_reg_t *table;  /* `count` entries */
} tarvik_async_subtype_info_t;

/* Hooked event mode (TLK_ASYNC_HOOKED): the client's table that replaces direct dispatch and
 * direct descriptor selection.  Store it with tlk_async_set_event_hooks before registering. */
typedef struct tarvik_event_hooks_t {
  /* Takes a message instead of its handler: 0 when it took it, else an errno value. */
  int (*dispatch)(tarvik_cookie *cookie, tarvik_async_reg_t *slot, void *msg, uintptr_t word,
                  int is_idl);
  /* Called by tarvik_cookie_destroy after the socket is closed, to drain what the hook holds. */
  void (*destroy)(tarvik_cookie *cookie);
  /* The function and the descriptor that the loop watches instead of the session's socket. */
  evFileFunc callback;
  int fd;
} tarvik_event_hooks_t;

/* Listen mask bit of the high word that asks for input errors (type 109). */
#define TLKO_INPUT 0x200000u
/* Size of the filter record given to tarvik_async_register_filters. */
#define TLK_ASYNC_FILTER_LEN 728
/* Size of the subtype mask of socket option 9. */
#define TLK_ASYNC_SUBTYPE_LEN 16
/* Highest message type that event processing dispatches. */
#define TLK_ASYNC_MAX_TYPE 109

/* ---- Contexts ---- */

/* The library makes its own loop context; 22 if the session is already asynchronous; -1 if the
 * context can't be made.  Loads the kernel's notification sequence into the session. */
TLK_EXPORT int tarvik_create_async_context(tarvik_cookie *cookie);
/* Joins the caller's context, which outlives the session.  Leaves the session's sequence as is. */
TLK_EXPORT int tarvik_set_async_context(tarvik_cookie *cookie, evContext context);
/* No loop: the caller polls the descriptor (stored in *fd_out if given). */
TLK_EXPORT int tarvik_set_async_info_nocontext(tarvik_cookie *cookie, int *fd_out);
/* Creates the session's asynchronous record; the three above call it. */
TLK_EXPORT int tarvik_alloc_async_info(tarvik_cookie *cookie);
/* The session's context; 22 in the no-context kind. */
TLK_EXPORT int tarvik_get_async_context(tarvik_cookie *cookie, evContext *context_out);
/* Tears the asynchronous record down (tarvik_cookie_destroy calls it).  0 without a record. */
TLK_EXPORT int tarvik_destroy_async_context(tarvik_cookie *cookie);
/* The teardown step that leaves the loop: deselects, and destroys a context of the library's. */
TLK_EXPORT int tarvik_async_context_cleanup(tarvik_cookie *cookie);

/* ---- Registration ---- */

/* Fills the slot of `msg_type` (0 to 110) and adds the listen bits.  22 for a taken slot. */
TLK_EXPORT int tarvik_setup_async_registration(tarvik_cookie *cookie, uint32_t msg_type,
                                               uint32_t mask_low, uint32_t mask_high, void *arg,
                                               tarvik_async_handler_t handler);
/* The same routine under the name used for message types that exist only as frames. */
TLK_EXPORT int tarvik_setup_async_registration_idl(tarvik_cookie *cookie, uint32_t msg_type,
                                                   uint32_t mask_low, uint32_t mask_high, void *arg,
                                                   tarvik_async_handler_t handler);
/* A slot that dispatches on the byte at `offset`: entry `subtype` (or every entry when
 * `all_subtypes`) gets `arg` and `handler`.  0 and no change if the type's slot is taken. */
TLK_EXPORT int tarvik_async_subtype_handler_register(tarvik_cookie *cookie, uint32_t msg_type,
                                                     uint32_t subtype, uint32_t count,
                                                     uint32_t offset, int all_subtypes,
                                                     uint32_t mask_low, uint32_t mask_high,
                                                     void *arg, tarvik_async_handler_t handler);
/* Asks for TLKO_INPUT without installing a handler (see tarvik_error_async_register). */
TLK_EXPORT int tarvik_input_async_register(tarvik_cookie *cookie);
/* Registers "async opaque" (type 79); a non-NULL 16-byte `subtype_mask` is then sent too. */
TLK_EXPORT int tarvik_async_opaque_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler, uint8_t *subtype_mask);
/* Socket option 9: byte 0 names the listen bit (0 to 63), bytes 1 to 15 its subtype bits. */
TLK_EXPORT int tarvik_set_async_msg_subtype(tarvik_cookie *cookie, const uint8_t *subtype_mask);
TLK_EXPORT int tarvik_get_async_msg_subtype(tarvik_cookie *cookie, uint8_t *subtype_mask);
/* Sends the session's listen mask with a TLK_ASYNC_FILTER_LEN-byte filter record (option 10). */
TLK_EXPORT int tarvik_async_register_filters(tarvik_cookie *cookie, const void *filter);
/* Kernel-side mode word: only bits of 0x1ff9f, and bit 0 in any non-zero word; else 22. */
TLK_EXPORT int tarvik_set_async_mode(tarvik_cookie *cookie, uint32_t mode);
/* The sequence number that the next notification will bear (option 3). */
TLK_EXPORT int tarvik_get_async_seq_num(tarvik_cookie *cookie, uint32_t *seq_out);
/* The only way back: drop the route (type 2) or next hop (type 10) slot and listen bits. */
TLK_EXPORT int tarvik_rtm_async_unregister(tarvik_cookie *cookie);
TLK_EXPORT int tarvik_rnhm_async_unregister(tarvik_cookie *cookie);
/* Stores the hooked event mode table (the library never assigns it otherwise).  22 for a NULL
 * cookie. */
TLK_EXPORT int tlk_async_set_event_hooks(tarvik_cookie *cookie, tarvik_event_hooks_t *hooks);
/* The listen bits under which the kernel sends notifications of `type`: the union of every
 * register row that names it.  0 when the type has a row, -1 when it has none (both words 0). */
TLK_EXPORT int tlk_async_listen_bits(uint32_t type, uint32_t *mask_low, uint32_t *mask_high);

/* Per-family registration: 22 for a NULL cookie, NULL handler or no asynchronous record; else
 * the result of the setup routine, type after type in the family's order. */
#define TLK_ASYNC_REGISTER_DECL(family)                                                   \
  TLK_EXPORT int tarvik_##family##_async_register(tarvik_cookie *cookie, void *arg,       \
                                                  tarvik_async_handler_t handler)
TLK_ASYNC_REGISTER_DECL(aggr_config);     /* 73-77 flow aggregation */
TLK_ASYNC_REGISTER_DECL(analyzer);        /* 88 */
TLK_ASYNC_REGISTER_DECL(asp_cfg);         /* 53 */
TLK_ASYNC_REGISTER_DECL(asp_ipsec);       /* 54 */
TLK_ASYNC_REGISTER_DECL(bd);              /* 89 bridge domain */
TLK_ASYNC_REGISTER_DECL(cos);             /* 31, 32, 34, 38, 39, 35, 36, 37, 55, 71 */
TLK_ASYNC_REGISTER_DECL(cp_config);       /* 58, 60, 61, 59 */
TLK_ASYNC_REGISTER_DECL(cp_pic);          /* 62, 63, 64, 66, 67, 65 */
TLK_ASYNC_REGISTER_DECL(ddos);            /* 97 */
TLK_ASYNC_REGISTER_DECL(dfwm);            /* 14 firewall */
TLK_ASYNC_REGISTER_DECL(dfwstatsm);       /* 22, no listen bit */
TLK_ASYNC_REGISTER_DECL(error);           /* 109, TLKO_INPUT */
TLK_ASYNC_REGISTER_DECL(fc_fabric);       /* 94 */
TLK_ASYNC_REGISTER_DECL(gencfg);          /* 72 */
TLK_ASYNC_REGISTER_DECL(ifbd);            /* 90 */
TLK_ASYNC_REGISTER_DECL(ifdalm);          /* 20 */
TLK_ASYNC_REGISTER_DECL(ifdest);          /* 18 */
TLK_ASYNC_REGISTER_DECL(ifdm);            /* 5 devices */
TLK_ASYNC_REGISTER_DECL(iflm);            /* 6 logical interfaces */
TLK_ASYNC_REGISTER_DECL(ifsm);            /* 47 */
TLK_ASYNC_REGISTER_DECL(ifvcm);           /* 27 */
TLK_ASYNC_REGISTER_DECL(ifvpm);           /* 46 */
TLK_ASYNC_REGISTER_DECL(ksyncm);          /* 69 */
TLK_ASYNC_REGISTER_DECL(l2tp);            /* 57 */
TLK_ASYNC_REGISTER_DECL(marker);          /* 102 */
TLK_ASYNC_REGISTER_DECL(mesh_group);      /* 87 */
TLK_ASYNC_REGISTER_DECL(mgrm);            /* 13 */
TLK_ASYNC_REGISTER_DECL(monitor);         /* 43 */
TLK_ASYNC_REGISTER_DECL(monitor_state);   /* 44 */
TLK_ASYNC_REGISTER_DECL(nh_comp);         /* 83 */
TLK_ASYNC_REGISTER_DECL(notify);          /* 98 */
TLK_ASYNC_REGISTER_DECL(pfe_dwn_map);     /* 81 */
TLK_ASYNC_REGISTER_DECL(pfeinfo);         /* 24 */
TLK_ASYNC_REGISTER_DECL(picm);            /* 68 */
TLK_ASYNC_REGISTER_DECL(pkcs_reply);      /* 45 */
TLK_ASYNC_REGISTER_DECL(pktinject);       /* 96 */
TLK_ASYNC_REGISTER_DECL(rnhm);            /* 10 next hops */
TLK_ASYNC_REGISTER_DECL(rtbm);            /* 1 route tables */
TLK_ASYNC_REGISTER_DECL(rtclass);         /* 28 */
TLK_ASYNC_REGISTER_DECL(rtm);             /* 2 routes */
TLK_ASYNC_REGISTER_DECL(sadbm);           /* 41 */
TLK_ASYNC_REGISTER_DECL(sample);          /* 40 */
TLK_ASYNC_REGISTER_DECL(stp);             /* 82 */
TLK_ASYNC_REGISTER_DECL(vlan);            /* 84 */
#undef TLK_ASYNC_REGISTER_DECL
/* Families of another shape.  Flags 1 and 4 choose between two listen bits each. */
TLK_EXPORT int tarvik_iffm_async_register(tarvik_cookie *cookie, uint32_t flags, void *arg,
                                          tarvik_async_handler_t handler);
TLK_EXPORT int tarvik_ifam_async_register(tarvik_cookie *cookie, uint32_t flags, void *arg,
                                          tarvik_async_handler_t handler);
TLK_EXPORT int tarvik_sysstatsm_async_register(tarvik_cookie *cookie, uint32_t flags, void *arg,
                                               tarvik_async_handler_t handler);
TLK_EXPORT int tarvik_qsr_async_register(tarvik_cookie *cookie, void *arg,
                                         tarvik_async_handler_t handler, uint32_t extra);
TLK_EXPORT int tarvik_kuack_async_register(tarvik_cookie *cookie, uint32_t unused, void *arg,
                                           tarvik_async_handler_t handler);
/* Registers the handler of asynchronous device statistics (type 15), on products that have them:
 * EINVAL without a product record, cookie, handler or asynchronous setup; EOPNOTSUPP on other
 * products. */
TLK_EXPORT int tarvik_ifdsm_async_kernel_register(tarvik_cookie *cookie, void *arg,
                                                  tarvik_async_handler_t handler);
/* Subtype 0 of "ifsclinfo" (type 85); whichever of the two comes second does nothing. */
TLK_EXPORT int tarvik_ifsclim_async_register(tarvik_cookie *cookie, void *arg,
                                             tarvik_async_handler_t handler);
TLK_EXPORT int tarvik_ifstate_eochain_register(tarvik_cookie *cookie, void *arg,
                                               tarvik_async_handler_t handler);

/* ---- Message lists ---- */

/* A run of messages handed over as one container (tarvik_ifxm_get_all and the firewall readers).
 * One block from tarvik_size_alloc; `msgs` is another. */
typedef struct tarvik_msg_list {
  uint8_t version; /* tlkh_version of the messages */
  uint8_t type;    /* tlkh_type of the messages */
  uint8_t kind;    /* TARVIK_MSG_LIST_*: how the entries are released */
  uint16_t count;  /* messages held */
  uint16_t spare; /* built by adding: free places when the table last grew; filled: still to take */
  void **msgs;    /* the table of messages */
  uintptr_t *arenas; /* kind TARVIK_MSG_LIST_DECODED: per message, the mask word of its decode */
} tarvik_msg_list_t;

#define TARVIK_MSG_LIST_FRESH 0   /* nothing held */
#define TARVIK_MSG_LIST_BLOCK 1   /* filled from a block under 4 bytes: msgs[0] is the block */
#define TARVIK_MSG_LIST_ADDED 2   /* built by adding: each entry a block of its own */
#define TARVIK_MSG_LIST_DECODED 3 /* filled from a block of 4 bytes or more */

/* A zeroed list; NULL without a cookie or memory. */
TLK_EXPORT tarvik_msg_list_t *tarvik_msg_list_alloc(tarvik_cookie *cookie);
/* Appends a message (a block of its own, freed with the list).  EINVAL for a NULL argument or a
 * message of another type or version than the list's; ENOMEM.  A list built so holds at most 16. */
TLK_EXPORT int tarvik_msg_list_add(tarvik_cookie *cookie, tarvik_msg_list_t *list, void *message);
/* Fills the list from a block of messages back to back: frames are decoded (the caller then frees
 * the block), raw messages point into the block.  EINVAL for NULL arguments, a zero length or a
 * block that is not a whole run of messages; ENOMEM; a decoder's result.  A list that failed part
 * way is released with tarvik_msg_list_free. */
TLK_EXPORT int tarvik_msg_list_fillin(tarvik_cookie *cookie, tarvik_msg_list_t *list, size_t length,
                                      void *block);
/* Entry `index` (not negative), or NULL past the end or without a table. */
TLK_EXPORT void *tarvik_msg_list_get_by_index(const tarvik_msg_list_t *list, int index);
/* Releases the entries by the list's kind, the tables and the list.  NULL is accepted. */
TLK_EXPORT void tarvik_msg_list_free(tarvik_cookie *cookie, tarvik_msg_list_t *list);

/* ---- Event processing ---- */

/* Diagnostic switch of the asynchronous reader: non-zero logs each read at LOG_DEBUG. */
extern TLK_EXPORT int tarvik_async_io_debug;
TLK_EXPORT void tarvik_async_set_io_debug(int value);
/* Reads per event (0 and 1 both mean one).  No check of any kind: the cookie must be valid. */
TLK_EXPORT void tarvik_async_set_num_read_msg(tarvik_cookie *cookie, uint32_t count);
/* Reads what the socket holds and hands each message to its slot's handler.  0, or -1 with errno
 * (EAGAIN on an empty socket). */
TLK_EXPORT int tarvik_async_event_process(tarvik_cookie *cookie);
/* The loop callback: tarvik_async_event_process with the cookie as `uap`. */
TLK_EXPORT void tarvik_async_event_callback(evContext ctx, void *cookie, int fd, int eventmask);
/* Runs the session's loop until it stops; 22 without a context. */
TLK_EXPORT int tarvik_async_event_loop(tarvik_cookie *cookie);
/* The same, with signal handlers run only between callbacks. */
TLK_EXPORT int tarvik_async_event_loop_sighdl(tarvik_cookie *cookie);
/* The handler installed by subtype registration. */
TLK_EXPORT int tarvik_async_subtype_handler(tarvik_cookie *cookie, void *record, void *msg,
                                            uintptr_t word);
/* Sends one "async opaque" request and, with `flags` bit 0, reads its reply into *reply_out
 * (freed with tarvik_msg_free). */
TLK_EXPORT int tarvik_async_opaque_handle(tarvik_cookie *cookie, uint8_t op, const void *data,
                                          uint32_t length, void **reply_out, uint8_t opaque_type,
                                          uint16_t flags);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_H */
