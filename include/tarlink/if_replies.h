/*
 * tarlink/if_replies.h - the raw replies to interface statistics and alarm reads.
 *
 * tarvik_iflsm_get and kin ("iflstats", type 16) and tarvik_ifdalm_get ("ifdalarm", type 20) hand
 * over the kernel's raw reply.  These are the fixed parts the simulated kernel answers with and
 * the trace line reads, little-endian: the request's fixed part as it was sent, then the values.
 *
 * For example:
 *
 *   const struct tarvik_iflstats_body *s = reply;
 *   printf("ifl %u in %llu out %llu\n", s->iflidx, (unsigned long long)s->rx_packets,
 *          (unsigned long long)s->tx_packets);
 *   tarvik_msg_free(c, reply);
 */
#ifndef TARLINK_IF_REPLIES_H
#define TARLINK_IF_REPLIES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* "iflstats" reply: the 72-byte request (unit at 28, index at 32), then the packet counters. */
struct tarvik_iflstats_body {
  uint8_t hdr[24];
  uint8_t pad[4];      /* */
  uint32_t unit;       /* at 28 */
  uint32_t iflidx;     /* at 32 */
  uint8_t rest[36];    /* to 72: the request's name length and flags */
  uint64_t rx_packets; /* at 72 */
  uint64_t tx_packets; /* at 80 */
};

/* "ifdalarm" reply: the 48-byte request (index at 24, name length at 36), then the alarm word at
 * 48; a name, if the kernel sends one, follows at 52 (name_len bytes with the end byte). */
struct tarvik_ifdalarm_body {
  uint8_t hdr[24];
  uint16_t index;    /* at 24 */
  uint16_t type;     /* at 26: the alarm type */
  uint32_t mask;     /* at 28: the alarms asked about */
  uint8_t pad[4];    /* */
  uint16_t name_len; /* at 36 */
  uint8_t rest[10];  /* to 48 */
  uint32_t alarms;   /* at 48 */
};

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IF_REPLIES_H */
