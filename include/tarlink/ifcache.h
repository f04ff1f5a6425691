/*
 * tarlink/ifcache.h - the device info cache.
 *
 * What a device name means (its kind and where it sits) comes partly from parsing the name and
 * partly from the device's media record in the kernel.  The library keeps one process-wide cache
 * of these answers keyed by device name, fed by the caller from device notifications or messages,
 * with a filter over device kinds that says which are worth keeping (by default row 67 of the
 * platform's interface mask table).  A miss falls back to the parser, or with `fetch` to one
 * read from the kernel on a private session.  The cache is unlocked: one thread.
 *
 * For example (in the "ifdev" notification handler):
 *
 *   tarvik_ifd_info_init();                            // once
 *   tarvik_ifd_info_update(ifdm, ifdm->ifdm_hdr.tlkh_op);
 *   ...
 *   tarvik_ifd_info_t info;
 *   if (tarvik_ifd_info_get("ge-0/0/1", &info, 1) == 0)
 *     printf("at %u/%u/%u\n", info.location[0], info.location[1], info.location[2]);
 */
#ifndef TARLINK_IFCACHE_H
#define TARLINK_IFCACHE_H

#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Device info cache                                                                         */
/* ======================================================================================== */

/* What the cache answers for one device: 120 bytes. */
typedef struct tarvik_ifd_info_t {
  char name[60];        /* the device name, the cache's key */
  uint32_t location[3]; /* from the name, overridden by the media record's tags 13, 15, 16 */
  uint32_t kind;        /* the kind's number in the interface library */
  char prefix[16];      /* the kind's name prefix */
  uint8_t spare[28];    /* further fields of the interface library */
} tarvik_ifd_info_t;

/* Sets the cache up: 0, or EEXIST if it already was (nothing changes). */
TLK_EXPORT int tarvik_ifd_info_init(void);
/* Replaces the kind filter (three u64; all zero lets every kind pass): EINVAL before init. */
TLK_EXPORT int tarvik_ifd_info_set_mask(const uint64_t *mask);
/* Adds, refreshes (op other than 3) or deletes (op 3) the device of an "ifdev" message: 0,
 * ENOMEM, or EINVAL (no init, another generation held, no media record, a name the parser
 * refuses).  A name over 59 characters stops the process. */
TLK_EXPORT int tarvik_ifd_info_update(const struct ifdev_msg *ifdm, uint32_t op);
/* The cached answer for `name`, else the parser's, else (with `fetch`) the parser's with the
 * kernel's media record: 0, EINVAL, ENOMEM or the errno of a failed open. */
TLK_EXPORT int tarvik_ifd_info_get(const char *name, tarvik_ifd_info_t *info, int fetch);
/* The parser's answer with the media record of `ifdm`; the cache isn't touched: 0 or EINVAL. */
TLK_EXPORT int tarvik_ifd_info_get_from_ifd_msg(const char *name, tarvik_ifd_info_t *info,
                                                const struct ifdev_msg *ifdm);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IFCACHE_H */
