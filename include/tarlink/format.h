/*
 * tarlink/format.h - value formatters and name tables for traces and logs.
 *
 * Traces print numbers as the words operators know.  The table functions take any integer and
 * never fail: a value out of range gives the table's fixed "unknown" word (told per entry), so
 * they are safe on whatever a message carries.  They return constant strings, except
 * tarvik_format_ifstate_client_mask, which writes into one static buffer: its text lasts until
 * the next call and the function is not safe for concurrent use.  tarvik_format_prefix and
 * tarvik_format_sockaddr write into the caller's buffer, cut to its size; the socket address
 * formatter keeps the local domain in a static buffer, filled once per process, and without its
 * numeric flag it may block in a name lookup.
 *
 * For example:
 *
 *   const tlk_hdr *h = message;
 *   char pfx[257];
 *   printf("%s %s from %s\n", tarvik_format_rtm_type(h->tlkh_type),
 *          tarvik_format_op(h->tlkh_op), tarvik_format_msg_sender_id(h->tlkh_id));
 *   printf("%s %s\n", tarvik_format_af(af),
 *          tarvik_format_prefix(pfx, sizeof pfx, bytes, plen, af, 0));  // "10.0.0.1"
 *   printf("clients %s\n", tarvik_format_ifstate_client_mask(5));       // "DAEMON/PFE"
 */
#ifndef TARLINK_FORMAT_H
#define TARLINK_FORMAT_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

struct gencfg_msg;
struct ifdev_msg;

/* ======================================================================================== */
/* Name tables                                                                               */
/* ======================================================================================== */

/* Address family name of the low 8 bits of `af`; "unknown" for a number without a name. */
TLK_EXPORT const char *tarvik_format_af(int af);
/* rtm_ops entry; "unknown" above 9 or below 0. */
TLK_EXPORT const char *tarvik_format_op(int op);
/* rtm_types entry; "unknown" above 109 or below 0. */
TLK_EXPORT const char *tarvik_format_rtm_type(int type);
/* Route type word, "" for types without one; anything outside 0 to 14 gives "ifcl". */
TLK_EXPORT const char *tarvik_format_route_type(int type);
/* Next hop type word; NULL (not a word) outside 0 to 34, so print it through a checked path. */
TLK_EXPORT const char *tarvik_format_nexthop_type(int type);
/* Class of service message type; "Invalid message type" outside 0 to 45. */
TLK_EXPORT const char *tarvik_format_cos_type(int type);
/* Interface state object type; "UNKNOWN" outside 0 to 54. */
TLK_EXPORT const char *tarvik_format_ifstate_type(int type);
/* Chassis in-service upgrade state; "UNKNOWN" outside 0 to 7. */
TLK_EXPORT const char *tarvik_format_chassisd_issu_state(int state);
/* Daemon in-service upgrade state; "UNKNOWN" outside 0 to 5. */
TLK_EXPORT const char *tarvik_format_daemon_issu_state(int state);
/* Receive mode of a message type; "Invalid" outside 0 to 4. */
TLK_EXPORT const char *tarvik_format_mtype_rcv(int mtype);
/* Interface state log event; "Max" above 9. */
TLK_EXPORT const char *tarvik_format_ifstate_event(unsigned event);
/* Interface state client limit subtype: "IFS EndOfChain" for 0, "Unknown" for any other. */
TLK_EXPORT const char *tarvik_format_ifsclim_subtype(int subtype);
/* Execution context of a log entry; "Invd" above 2. */
TLK_EXPORT const char *tarvik_format_context(unsigned context);
/* Periodic packet management protocol; "Invalid" outside 0 to 2. */
TLK_EXPORT const char *tarvik_format_ppm_type(int type);
/* Load balancing attribute of an MPLS label; "Unknown" above 8 and for 3 and 5 to 7. */
TLK_EXPORT const char *tarvik_format_lb_attr(unsigned attr);
/* Short program name of a sender identifier: "self", "kernel", "user", "unknown" for 0 to 3,
 * "sender-N" for the product's rows 4 to 146, and "unknown" for 147 and above and below 0. */
TLK_EXPORT const char *tarvik_format_msg_sender_id(int sender);
/* Clients of an interface state mask (bits 0 to 3, higher ones ignored): "None" for 0, "ALL"
 * for exactly 15, else the set bits' words joined by "/".  Static buffer: see above. */
TLK_EXPORT const char *tarvik_format_ifstate_client_mask(uint32_t mask);

/* ======================================================================================== */
/* Generic configuration names                                                               */
/* ======================================================================================== */

/* IPsec blob type; "not_support" outside 0 to 6. */
TLK_EXPORT const char *tarvik_gencfg_format_ipsectype(int type);
/* Layer 2 token type; "Invalid" outside 0 to 3. */
TLK_EXPORT const char *tarvik_gencfg_format_l2token_type(int type);
/* Major blob type: any type with bit 15 (0x8000) set is "SDK"; "Unknown" for 105 and above,
 * below 0 and for numbers without a word (the product's daemon rows among them). */
TLK_EXPORT const char *tarvik_gencfg_format_majortype(int type);
/* Name of a USP blob subtype ("USP_N" for the rows the product names); NULL for 159 and above
 * and below 0. */
TLK_EXPORT const char *tarvik_gencfg_format_usptype(int subtype);
/* Runs the printer of a USP subtype's row, if the row has one, with `dst` (257 bytes) and `msg`:
 * 1 if it ran, else 0 (also for a subtype outside the table). */
TLK_EXPORT int tarvik_gencfg_format_usptype_blobinfo(int subtype, struct gencfg_msg *msg,
                                                     char *dst);

/* ======================================================================================== */
/* Addresses and prefixes                                                                    */
/* ======================================================================================== */

/* Prints the prefix of `bits` bits at `data` in family `family` into `dst` (cut to `size`) and
 * returns `dst`.  Mode 0 gives each family's natural form, 2 the hexadecimal fallback
 * ("0x0a0102/24"), any other the decimal one ("10.1.2/24").  NULL data or 0 bits give "".
 * `data` holds at least (bits + 7) / 8 bytes and never fewer than 32: some natural forms read
 * fixed fields.  Families 75 and 91 leave `dst` as it was unless their marker word is 1. */
TLK_EXPORT char *tarvik_format_prefix(char *dst, size_t size, const void *data, uint32_t bits,
                                      int family, int mode);
/* Prints a BSD socket address (length byte, family byte, data) of `length` bytes into `dst`
 * (cut to `size`) and returns `dst`.  Inet addresses are looked up by name unless the low 8
 * bits of `numeric` are set; their branch clears the first 257 bytes of `dst` (as far as
 * `size` goes).  Other families without a form of their own print " af=N" and hex bytes. */
TLK_EXPORT char *tarvik_format_sockaddr(char *dst, size_t size, const void *address, size_t length,
                                        int numeric);

/* ======================================================================================== */
/* Message trace lines                                                                       */
/* ======================================================================================== */

/* Mode bit of the message formatters: numeric addresses, no name lookups. */
#define TARVIK_FORMAT_NUMERIC 0x4

/* printf of `format` at `pos` into the `*left` bytes behind it: takes the printed length (cut or
 * not) off `*left`, and gives `pos` moved on, or NULL once `*left` went negative; NULL in, NULL out. */
TLK_EXPORT char *tarvik_fill_format_buf(char *pos, int *left, const char *format, ...)
    TLK_PRINTF(3, 4);
/* One trace line of a raw or decoded message into `buf` (zeroed first): 0, or -1 (and a level 2
 * diagnostic) when it did not fit.  Type 26 gives its statistics rows instead, with no line feed. */
TLK_EXPORT int tarvik_format_output(tarvik_cookie *cookie, char *buf, size_t size, int mode,
                                    const void *message);
/* tarvik_format_output into a 128-byte `buf` with mode 1. */
TLK_EXPORT int tarvik_format_brief_output(tarvik_cookie *cookie, char *buf, const void *message);
/* The title above the columns of a trace line (a static string). */
TLK_EXPORT const char *tarvik_brief_output_header(void);
/* Writes the trace line of `message` to `stream` (used as a printf format) and flushes it. */
TLK_EXPORT void tarvik_print_msg_to_file(tarvik_cookie *cookie, FILE *stream, int mode,
                                         const void *message);
/* A device message field by field into a 2048-byte `buf`: 0, or -1 when it did not fit. */
TLK_EXPORT int tarvik_ifdm_format_full_output(tarvik_cookie *cookie, char *buf, int mode,
                                              const struct ifdev_msg *message);
/* A statistics message (type 26) op by op into a 2048-byte `buf`: 0, or -1 when it did not fit. */
TLK_EXPORT int tarvik_tlkm_format_full_output(tarvik_cookie *cookie, char *buf,
                                              const void *message);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_FORMAT_H */
