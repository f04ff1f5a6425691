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
struct tlk_msg_info;

typedef struct tlk_hdr {
  uint32_t tlkh_magic;              /* 0 in every raw message */
  uint8_t tlkh_version;             /* version letter of the message type */
  uint8_t tlkh_type;                /* message type */
  uint8_t tlkh_op;                  /* operation, TLK_OP_* */
  uint8_t tlkh_flags;               /* per-operation modifier */
  uint32_t tlkh_msglen;             /* whole length in bytes */
  uint32_t tlkh_seq;                /* sequence number */
  uint32_t tlkh_id;                 /* sender identification word */
  uint16_t tlkh_fixedlen;           /* size of the fixed record; variable data starts here */
  uint8_t tlkh_aux1;                /* creator byte */
  uint8_t tlkh_aux2;                /* operand byte */
  struct tlk_msg_info **tlkh_info;  /* attachments (never on the wire as a pointer) */
  uint32_t tlkh_info_len;           /* number of attachments */
} tlk_hdr;

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

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_H */
