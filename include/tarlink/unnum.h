/*
 * tarlink/unnum.h - unnumbered address donors.
 *
 * An unnumbered logical interface has no address of its own and borrows that of a donor
 * interface.  A daemon that cares about a borrower registers its interest in the donor's
 * addresses, per address family (AF_INET 2 or AF_INET6 28); when an "ifaddr" notification for
 * that donor goes through the session's event processing, the library calls the session's
 * report function once for each borrower, with the word the borrower was registered with.  A
 * delete is reported before the "ifaddr" handler runs, any other operation after it; in hooked
 * event mode only a delete is reported by the library, and the hook's owner calls
 * tarvik_unnum_ifa_report for the others.
 *
 * For example (on an asynchronous session with an "ifaddr" handler):
 *
 *   int report(void *value, uint32_t op, uint32_t af, uint8_t *addr, uint16_t plen,
 *              uint16_t flags) {
 *     borrower_address_changed(value, op, af, addr, plen);   // addr: the donor's local prefix
 *     return 0;
 *   }
 *   tarvik_ifam_async_register(c, 1, &state, ifaddr_handler);
 *   tarvik_unnum_ifa_register_callback(c, report);
 *   tarvik_unnum_ifa_register_interest(c, borrower_idx, donor_idx, 2, 1, &borrower_state);
 *   ...
 *   tarvik_unnum_ifa_register_interest(c, borrower_idx, donor_idx, 2, 0, NULL);   // drop it
 */
#ifndef TARLINK_UNNUM_H
#define TARLINK_UNNUM_H

#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Unnumbered address donors                                                                 */
/* ======================================================================================== */

/* The platform's sparse table of 32-bit keys; opaque. */
struct itable32;

/* The report function: the registered word of one borrower, then the saved event's operation,
 * address family, local prefix bytes, destination prefix length and ifam_flags.  Its result is
 * ignored. */
typedef int (*tarvik_unnum_report_fn)(void *value, uint32_t op, uint32_t af, uint8_t *addr,
                                      uint16_t plen, uint16_t flags);

/* The session's donor state (memory identifier 74), from the first register_callback on. */
typedef struct tarvik_unnum_info_t {
  struct itable32 *donors[3];      /* by family: 0 AF_INET, 1 AF_INET6, 2 any other */
  tarvik_unnum_report_fn callback; /* the registrant's report function */
  tarvik_cookie *session;          /* private session, opened on the first interest */
  uint32_t pending_index;          /* donor of the saved event */
  uint32_t pending_op;             /* tlkh_op of the saved event */
  uint32_t pending_af;             /* address family of the saved event */
  uint8_t *pending_addr;           /* copy of the local prefix bytes (identifier 75) */
  uint16_t pending_plen;           /* destination prefix length */
  uint16_t pending_flags;          /* ifam_flags of the saved event */
  uint8_t pending;                 /* 1 while an event is saved */
} tarvik_unnum_info_t;

/* One donor (memory identifier 73): its borrowers, keyed by logical interface index, each
 * holding the word it was registered with, and how many there are. */
typedef struct tarvik_unnum_donor_t {
  struct itable32 *borrowers;
  uint32_t count;
} tarvik_unnum_donor_t;

/* Sets the session's report function (a second call replaces it): 0, 22 if the session isn't
 * asynchronous, 12 with no memory. */
TLK_EXPORT int tarvik_unnum_ifa_register_callback(tarvik_cookie *cookie,
                                                  tarvik_unnum_report_fn callback);
/* Adds (add non-zero) or drops the interest of `borrower` in the addresses of `donor` in family
 * `af`: 0; 22 without register_callback, for a family other than 2 and 28, or a NULL value;
 * 17 if the borrower is already registered with that donor; 2 if a drop finds nothing; 12 with no
 * memory; -1 if the private session cannot be opened.  A donor keeps its record after its last
 * borrower is dropped, and is silent from then on. */
TLK_EXPORT int tarvik_unnum_ifa_register_interest(tarvik_cookie *cookie, uint32_t borrower,
                                                  uint32_t donor, uint32_t af, int add,
                                                  void *value);
/* The donor of an unnumbered logical interface's family `af`, read from the kernel into
 * *donor_out (the last attachment iff_tlv_unnum_info of the family wins; none leaves *donor_out
 * as it was): 0; EINVAL for a NULL donor_out or a family that isn't unnumbered; ENOENT for no
 * reply; else the read's failure. */
TLK_EXPORT int tarvik_unnum_get_donor_ifl_idx(tarvik_cookie *cookie, uint32_t index, uint32_t af,
                                              uint32_t *donor_out);
/* Saves a decoded "ifaddr" message for a report: 0 if a report is now pending, -1 otherwise (no
 * donor state, another family, nobody interested, or an earlier event still pending, which is
 * logged at TLK_LEVEL_WARNING). */
TLK_EXPORT int tarvik_unnum_ifa_save_msg(tarvik_cookie *cookie, const ifa_msg *msg);
/* Reports the pending event to each borrower of its donor, in index order, and clears it. */
TLK_EXPORT void tarvik_unnum_ifa_report(tarvik_cookie *cookie);
/* Tears the donor state down and closes the private session; tarvik_close calls it. */
TLK_EXPORT void tarvik_unnum_ifa_cleanup(tarvik_cookie *cookie);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_UNNUM_H */
