/*
 * tarlink/base.h - what every part of the library shares.
 *
 * The export macro, the constants of the routing socket (protocol, socket options, buffer
 * sizes, frame magics), operation codes, diagnostic levels, memory identifiers, the layout of
 * the raw message header, the session handle, and the message type numbers (tarlink/msg_types.h)
 * with their expected versions and printable names.  Every other area header includes this one.
 *
 * For example:
 *
 *   const uint8_t *m = message;   // a raw message: version, type and op at bytes 4, 5, 6
 *   if (m[5] < TLK_NUM_MSG_TYPES && m[4] != TARVIK_VERSION_TABLE[m[5]])
 *     warn("%s in another version", tarvik_msg_type_name(m[5]));
 *   printf("%s %s\n", tarvik_msg_type_name(m[5]), rtm_ops[m[6] < 10 ? m[6] : 10]);
 */
#ifndef TARLINK_BASE_H
#define TARLINK_BASE_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/msg_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#ifndef TLK_EXPORT
#if defined(TARLINK_BUILDING)
#define TLK_EXPORT __attribute__((visibility("default")))
#else
#define TLK_EXPORT
#endif
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

#define TLK_PF_ROUTE 17      /* protocol family of the routing socket */
#define TLK_SOCK_SEQPACKET 5 /* socket type of the routing socket */
#define TLK_SOL_ROUTE 17     /* socket option level of the kernel's own options */

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

#define TLK_MAGIC_TLV 0x5011u /* first word of a TLV frame */
#define TLK_MAGIC_IDR 0x5022u /* first word of an IDR frame */

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
#define MEMID_TARVIK_UNNUM_DONOR 73 /* unnumbered donor records */
#define MEMID_TARVIK_UNNUM_INFO 74  /* the unnumbered donor state of a session */
#define MEMID_TARVIK_MSG 75

/* The session record, opaque to clients; every operation starts from it. */
typedef struct tarvik_cookie tarvik_cookie;

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
/* The record itself, tlk_hdr, is one of the message records (tarlink/frame.h). */
#define TLK_RAW_HDR_LEN 24

/* The version letter in the low byte and the type in the high byte, as one 16-bit store. */
#define TLK_VERSION_TYPE_WORD(version, type) ((((type) << 8) | (version)) & 0xFFFFu)

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

#endif /* TARLINK_BASE_H */
