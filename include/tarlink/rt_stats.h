/*
 * tarlink/rt_stats.h - route statistics and route class statistics.
 *
 * Route statistics (raw type 4) are a route's fourteen counters, which the kernel answers late:
 * tarvik_rtstats_get waits for them, at most eleven rounds of the caller's time-out.  Route
 * class statistics (raw type 29) are read as one raw reply, freed with tarvik_msg_free, and
 * cleared fire and forget.  The counters' meaning is the kernel's; they are copied as they come.
 *
 * For example:
 *
 *   uint8_t net[] = {10, 1, 0, 0};
 *   uint32_t counters[TLK_RTSTATS_WORDS];
 *   struct timeval wait = {1, 0};
 *   if (tarvik_rtstats_get(c, 2, 0, 0, 0, 16, net, counters, &wait) == 0) use(counters);
 *
 *   void *reply = NULL;
 *   if (tarvik_rtcsm_get_by_name(c, 0, "gold", 2, 0, 0, &reply) == 0) tarvik_msg_free(c, reply);
 */
#ifndef TARLINK_RT_STATS_H
#define TARLINK_RT_STATS_H

#include <stdint.h>
#include <sys/time.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Route statistics (raw type 4) and route class statistics (raw type 29)                  */
/* ======================================================================================== */

/* Counter words a route statistics reply gives. */
#define TLK_RTSTATS_WORDS 14

/* Reads the counters of the route (af, tid, addr/plen) into stats_out[TLK_RTSTATS_WORDS].
 * Waits for the reply: select with a fresh copy of *timeout (NULL: until readable) and a read,
 * eleven times at most; then the sequence error callback, if set, and EAGAIN.  ENOENT for a
 * reply of the wrong length or without counters; errno of a failed select; EINVAL without
 * cookie, addr or stats_out. */
TLK_EXPORT int tarvik_rtstats_get(tarvik_cookie *cookie, uint32_t af, uint32_t tid, uint32_t type,
                                  uint32_t flags, uint32_t plen, const void *addr,
                                  uint32_t *stats_out, const struct timeval *timeout);

/* Route class counters of a class on a logical interface; *msg_out is the raw reply. */
TLK_EXPORT int tarvik_rtcsm_get_by_index(tarvik_cookie *cookie, uint32_t class_index,
                                         uint32_t ifl_index, uint32_t af, uint32_t class_kind,
                                         uint32_t flags, void **msg_out);
/* The same for a class by name (cut at 63 characters). */
TLK_EXPORT int tarvik_rtcsm_get_by_name(tarvik_cookie *cookie, uint32_t class_index,
                                        const char *name, uint32_t af, uint32_t class_kind,
                                        uint32_t flags, void **msg_out);
/* Every class of the logical interface with the given SNMP index, in one reply. */
TLK_EXPORT int tarvik_rtcsm_get_block_by_ifl_snmp_index(tarvik_cookie *cookie,
                                                        uint32_t ifl_snmp_index, uint32_t af,
                                                        uint32_t class_kind, uint32_t flags,
                                                        void **msg_out);
/* Clears a class's counters; nothing answers.  0 or the write's errno. */
TLK_EXPORT int tarvik_rtcsm_clear_by_index(tarvik_cookie *cookie, uint32_t class_index,
                                           uint32_t ifl_index, uint32_t af, uint32_t class_kind);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_RT_STATS_H */
