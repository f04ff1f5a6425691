/*
 * tarlink/msg_list.h - message lists.
 *
 * A run of messages handed over as one container, with one rule for how its entries are
 * released: built by adding messages one by one, or filled from a block of messages back to back
 * (frames are decoded into an arena each, raw messages point into the block).  Readers that return
 * many objects at once (every device, every filter) return a list.
 *
 * For example:
 *
 *   tarvik_msg_list_t *list = NULL;
 *   if (tarvik_ifdm_get_all(c, &list) == 0) {
 *     for (int i = 0; i < list->count; ++i) {
 *       const ifdev_msg *d = tarvik_msg_list_get_by_index(list, i);
 *       use(d);
 *     }
 *     tarvik_msg_list_free(c, list);              // the entries go with it
 *   }
 */
#ifndef TARLINK_MSG_LIST_H
#define TARLINK_MSG_LIST_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

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

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_MSG_LIST_H */
