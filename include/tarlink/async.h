/*
 * tarlink/async.h - asynchronous sessions: contexts, registration, event processing.
 *
 * A session hears the kernel's notifications once it is asynchronous: with a loop context of
 * the library's own, with the caller's context, or with none (the caller polls).  Each family's
 * registration fills the handler slot of its message types and adds its listen bits; when the
 * descriptor turns readable, tarvik_async_event_process reads what the socket holds, decodes
 * frames, runs the library's own in-line work for the type, and calls the handler, which owns the
 * message.  The event loop itself is reached through the platform seam (tarlink_platform.h).
 *
 * For example:
 *
 *   static int on_unit(tarvik_cookie *c, void *arg, void *msg, uintptr_t word) {
 *     use((const tlk_hdr *)msg);
 *     tarvik_msg_free(c, msg);                    // the handler owns the message
 *     return 0;
 *   }
 *   tarvik_set_async_info_nocontext(c, &fd);      // the caller polls fd
 *   tarvik_iflm_async_register(c, NULL, on_unit);
 *   while (poll_readable(fd)) tarvik_async_event_process(c);
 */
#ifndef TARLINK_ASYNC_H
#define TARLINK_ASYNC_H

#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

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
  uint8_t count;             /* entries in `table` */
  uint32_t offset;           /* byte offset of the subtype byte inside the message */
  tarvik_async_reg_t *table; /* `count` entries */
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
/* 73-77 flow aggregation */
TLK_EXPORT int tarvik_aggr_config_async_register(tarvik_cookie *cookie, void *arg,
                                                 tarvik_async_handler_t handler);
/* 88 */
TLK_EXPORT int tarvik_analyzer_async_register(tarvik_cookie *cookie, void *arg,
                                              tarvik_async_handler_t handler);
/* 53 */
TLK_EXPORT int tarvik_asp_cfg_async_register(tarvik_cookie *cookie, void *arg,
                                             tarvik_async_handler_t handler);
/* 54 */
TLK_EXPORT int tarvik_asp_ipsec_async_register(tarvik_cookie *cookie, void *arg,
                                               tarvik_async_handler_t handler);
/* 89 bridge domain */
TLK_EXPORT int tarvik_bd_async_register(tarvik_cookie *cookie, void *arg,
                                        tarvik_async_handler_t handler);
/* 31, 32, 34, 38, 39, 35, 36, 37, 55, 71 */
TLK_EXPORT int tarvik_cos_async_register(tarvik_cookie *cookie, void *arg,
                                         tarvik_async_handler_t handler);
/* 58, 60, 61, 59 */
TLK_EXPORT int tarvik_cp_config_async_register(tarvik_cookie *cookie, void *arg,
                                               tarvik_async_handler_t handler);
/* 62, 63, 64, 66, 67, 65 */
TLK_EXPORT int tarvik_cp_pic_async_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler);
/* 97 */
TLK_EXPORT int tarvik_ddos_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 14 firewall */
TLK_EXPORT int tarvik_dfwm_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 22, no listen bit */
TLK_EXPORT int tarvik_dfwstatsm_async_register(tarvik_cookie *cookie, void *arg,
                                               tarvik_async_handler_t handler);
/* 109, TLKO_INPUT */
TLK_EXPORT int tarvik_error_async_register(tarvik_cookie *cookie, void *arg,
                                           tarvik_async_handler_t handler);
/* 94 */
TLK_EXPORT int tarvik_fc_fabric_async_register(tarvik_cookie *cookie, void *arg,
                                               tarvik_async_handler_t handler);
/* 72 */
TLK_EXPORT int tarvik_gencfg_async_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler);
/* 90 */
TLK_EXPORT int tarvik_ifbd_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 20 */
TLK_EXPORT int tarvik_ifdalm_async_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler);
/* 18 */
TLK_EXPORT int tarvik_ifdest_async_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler);
/* 5 devices */
TLK_EXPORT int tarvik_ifdm_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 6 logical interfaces */
TLK_EXPORT int tarvik_iflm_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 47 */
TLK_EXPORT int tarvik_ifsm_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 27 */
TLK_EXPORT int tarvik_ifvcm_async_register(tarvik_cookie *cookie, void *arg,
                                           tarvik_async_handler_t handler);
/* 46 */
TLK_EXPORT int tarvik_ifvpm_async_register(tarvik_cookie *cookie, void *arg,
                                           tarvik_async_handler_t handler);
/* 69 */
TLK_EXPORT int tarvik_ksyncm_async_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler);
/* 57 */
TLK_EXPORT int tarvik_l2tp_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 102 */
TLK_EXPORT int tarvik_marker_async_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler);
/* 87 */
TLK_EXPORT int tarvik_mesh_group_async_register(tarvik_cookie *cookie, void *arg,
                                                tarvik_async_handler_t handler);
/* 13 */
TLK_EXPORT int tarvik_mgrm_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 43 */
TLK_EXPORT int tarvik_monitor_async_register(tarvik_cookie *cookie, void *arg,
                                             tarvik_async_handler_t handler);
/* 44 */
TLK_EXPORT int tarvik_monitor_state_async_register(tarvik_cookie *cookie, void *arg,
                                                   tarvik_async_handler_t handler);
/* 83 */
TLK_EXPORT int tarvik_nh_comp_async_register(tarvik_cookie *cookie, void *arg,
                                             tarvik_async_handler_t handler);
/* 98 */
TLK_EXPORT int tarvik_notify_async_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler);
/* 81 */
TLK_EXPORT int tarvik_pfe_dwn_map_async_register(tarvik_cookie *cookie, void *arg,
                                                 tarvik_async_handler_t handler);
/* 24 */
TLK_EXPORT int tarvik_pfeinfo_async_register(tarvik_cookie *cookie, void *arg,
                                             tarvik_async_handler_t handler);
/* 68 */
TLK_EXPORT int tarvik_picm_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 45 */
TLK_EXPORT int tarvik_pkcs_reply_async_register(tarvik_cookie *cookie, void *arg,
                                                tarvik_async_handler_t handler);
/* 96 */
TLK_EXPORT int tarvik_pktinject_async_register(tarvik_cookie *cookie, void *arg,
                                               tarvik_async_handler_t handler);
/* 10 next hops */
TLK_EXPORT int tarvik_rnhm_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 1 route tables */
TLK_EXPORT int tarvik_rtbm_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
/* 28 */
TLK_EXPORT int tarvik_rtclass_async_register(tarvik_cookie *cookie, void *arg,
                                             tarvik_async_handler_t handler);
/* 2 routes */
TLK_EXPORT int tarvik_rtm_async_register(tarvik_cookie *cookie, void *arg,
                                         tarvik_async_handler_t handler);
/* 41 */
TLK_EXPORT int tarvik_sadbm_async_register(tarvik_cookie *cookie, void *arg,
                                           tarvik_async_handler_t handler);
/* 40 */
TLK_EXPORT int tarvik_sample_async_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler);
/* 82 */
TLK_EXPORT int tarvik_stp_async_register(tarvik_cookie *cookie, void *arg,
                                         tarvik_async_handler_t handler);
/* 84 */
TLK_EXPORT int tarvik_vlan_async_register(tarvik_cookie *cookie, void *arg,
                                          tarvik_async_handler_t handler);
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
/* Subtype 0 of "ifsclinfo" (type 85); whichever of the two comes second does nothing. */
TLK_EXPORT int tarvik_ifsclim_async_register(tarvik_cookie *cookie, void *arg,
                                             tarvik_async_handler_t handler);
TLK_EXPORT int tarvik_ifstate_eochain_register(tarvik_cookie *cookie, void *arg,
                                               tarvik_async_handler_t handler);

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

#endif /* TARLINK_ASYNC_H */
