/*
 * tarlink/dfw_stats.h - firewall counters and the firewall log.
 *
 * A filter's counters travel as raw "dfwstats" messages (type 22): a read is answered by a run of
 * messages, each carrying part of the counters behind its 64-byte fixed part, and every message
 * but the last says that more follow.  The readers hand the run over as a message list, and
 * tarvik_dfwsm_list_get_counters makes one flat copy of the counters data.  A read may also be
 * asynchronous: the kernel then answers on the session's notification stream, the registered
 * "dfwstats" handler gets the first message and passes it to tarvik_dfwsm_get_async_cb, which
 * reads the rest.  Clears are fire and forget.  The firewall log (type 23) is read the same way,
 * as a run of raw messages with their own "more follows" byte.
 *
 * For example:
 *
 *   tarvik_msg_list_t *list = NULL;
 *   if (tarvik_dfwsm_get_by_index(c, filter, 2, TLK_OP_GET, 0, 5, 0, &list) == 0) {
 *     void *counters = NULL;
 *     uint32_t len = 0;
 *     if (tarvik_dfwsm_list_get_counters(c, list, &counters, &len) == 0 && counters != NULL) {
 *       use(counters, len);                        // the kernel's counter records, in order
 *       tarvik_msg_free(c, counters);
 *     }
 *     tarvik_msg_list_free(c, list);
 *   }
 */
#ifndef TARLINK_DFW_STATS_H
#define TARLINK_DFW_STATS_H

#include <stdint.h>
#include <sys/time.h>

#include "tarlink/base.h"
#include "tarlink/msg_list.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Firewall counters ("dfwstats", raw type 22)                                              */
/* ======================================================================================== */

/* Counter type 5 selects a filter's counters by its index; 4 selects counters by name (clears). */
#define TARVIK_DFW_COUNTER_BY_INDEX 5
#define TARVIK_DFW_COUNTER_BY_NAME 4

/* Reads the counters of `filter` (op get or getnext) into a new list, *list_out. */
TLK_EXPORT int tarvik_dfwsm_get_by_index(tarvik_cookie *cookie, uint32_t filter, uint8_t af,
                                         uint32_t op, uint32_t stats_arg_a, uint8_t counter_type,
                                         uint16_t stats_flag, tarvik_msg_list_t **list_out);
/* Reads one named counter of `filter`; with `async` nothing is read (the answer comes as
 * notifications) and *list_out is NULL.  *seq_out, if given, takes the sequence number sent. */
TLK_EXPORT int tarvik_dfwsm_get_by_filter_index_counter_name(
    tarvik_cookie *cookie, uint32_t filter, const char *name, uint8_t af, uint8_t counter_type,
    tarvik_msg_list_t **list_out, int async, uint16_t stats_flag, uint32_t *seq_out);
/* Reads counters selected by a second name and two kernel arguments. */
TLK_EXPORT int tarvik_dfwsm_get_psa_by_index(tarvik_cookie *cookie, uint32_t filter, uint8_t af,
                                             uint32_t op, const char *name2, uint32_t stats_arg_a,
                                             uint32_t stats_arg_b, uint8_t counter_type,
                                             tarvik_msg_list_t **list_out);
/* Asks for the counters of `filter` as notifications, with sequence 0 and `user_data` echoed;
 * *seq_out, if given, is set to 0. */
TLK_EXPORT int tarvik_dfwsm_get_by_index_async(tarvik_cookie *cookie, uint32_t filter, uint8_t af,
                                               uint32_t op, uint32_t stats_arg_a,
                                               uint8_t counter_type, uint16_t stats_flag,
                                               uint32_t *seq_out, uint32_t user_data);
/* The same for one named counter (op get). */
TLK_EXPORT int tarvik_dfwsm_get_by_filter_index_counter_name_async(
    tarvik_cookie *cookie, uint32_t filter, const char *name, uint8_t af, uint8_t counter_type,
    uint32_t *seq_out, uint16_t stats_flag, uint32_t user_data);
/* Takes the first message of an asynchronous answer (which it owns from then on), reads the rest
 * and hands over the list, the message's sequence number, flags word and low user data word. */
TLK_EXPORT int tarvik_dfwsm_get_async_cb(tarvik_cookie *cookie, void *msg,
                                         tarvik_msg_list_t **list_out, uint32_t *seq_out,
                                         uint16_t *flags_out, uint32_t *user_data_out);
/* Reads the answer to a request the caller has already sent; *user_data_out takes the echo. */
TLK_EXPORT int tarvik_get_dfwsm_list(tarvik_cookie *cookie, tarvik_msg_list_t **list_out,
                                     uint64_t *user_data_out);
/* Clears every counter of the family (op clear, counter type 5, no reply). */
TLK_EXPORT int tarvik_dfwsm_clear_all(tarvik_cookie *cookie, uint8_t af);
/* Clears the counters of `filter`, or the one named when `name` is given. */
TLK_EXPORT int tarvik_dfwsm_clear_by_index(tarvik_cookie *cookie, uint8_t af, uint32_t filter,
                                           const char *name);
/* Clears by counter type; the name goes only with type 4. */
TLK_EXPORT int tarvik_dfwsm_clear_by_counter_type(tarvik_cookie *cookie, uint8_t af,
                                                  const char *name, uint8_t counter_type);
/* Bytes of counters data a list holds; 0 for NULL or a list that is not of "dfwstats". */
TLK_EXPORT uint32_t tarvik_dfwsm_list_to_counter_len(const tarvik_msg_list_t *list);
/* One copy of the counters data of every message in list order, freed with tarvik_msg_free; a
 * list without data gives 0 and NULL. */
TLK_EXPORT int tarvik_dfwsm_list_get_counters(tarvik_cookie *cookie, const tarvik_msg_list_t *list,
                                              void **buffer_out, uint32_t *len_out);

/* ======================================================================================== */
/* Firewall log ("firewall log", raw type 23)                                                */
/* ======================================================================================== */

/* Log entries selected by time (required) and selector; op get or getnext. */
TLK_EXPORT int tarvik_dfwlm_get_by_time(tarvik_cookie *cookie, uint8_t af, uint32_t op,
                                        uint8_t selector, const struct timeval *time,
                                        tarvik_msg_list_t **list_out);
/* Log entries of one filter. */
TLK_EXPORT int tarvik_dfwlm_get_by_filter_index(tarvik_cookie *cookie, uint8_t af, uint32_t op,
                                                uint32_t filter, tarvik_msg_list_t **list_out);
/* Log entries of one interface. */
TLK_EXPORT int tarvik_dfwlm_get_by_if_index(tarvik_cookie *cookie, uint8_t af, uint32_t op,
                                            uint32_t ifindex, tarvik_msg_list_t **list_out);
/* Every log entry of the family. */
TLK_EXPORT int tarvik_dfwlm_get_all(tarvik_cookie *cookie, uint8_t af,
                                    tarvik_msg_list_t **list_out);
/* Empties the log of the family; nothing is read. */
TLK_EXPORT int tarvik_dfwlm_clear_all(tarvik_cookie *cookie, uint8_t af);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_DFW_STATS_H */
