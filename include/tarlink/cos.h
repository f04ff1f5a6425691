/*
 * tarlink/cos.h - class-of-service and collector queries.
 *
 * Class-of-service state (forwarding classes, fabric, classifiers, policies, policers, shapers,
 * rewrites, fragmentation maps) and the collector PIC's configuration and statistics are read
 * with small raw requests of fixed size.  Each read sends one request and hands over the kernel's
 * raw reply as it came, in one message block that the caller frees with tarvik_msg_free.  The
 * only writers of this state are the kernel's notifications (tarvik_cos_async_register,
 * tarvik_cp_config_async_register, tarvik_cp_pic_async_register in tarlink/async.h).
 *
 * For example:
 *
 *   void *reply = NULL;
 *   if (tarvik_cpom_get(c, 7, TLK_OP_GET, &reply) == 0) {
 *     const struct tarvik_cos_policer_body *p = reply;
 *     printf("bandwidth %u burst %u\n", p->bandwidth, p->burst);
 *     tarvik_msg_free(c, reply);
 *   }
 */
#ifndef TARLINK_COS_H
#define TARLINK_COS_H

#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ======================================================================================== */
/* Reply layouts                                                                            */
/* ======================================================================================== */

/* The replies are the kernel's; these are the fixed parts that the simulated kernel gives and the
 * trace line reads (its fields in the trace's order), little-endian, behind the 24-byte raw
 * header.  Anything a reply carries beyond its fixed part follows it, as tlkh_fixedlen says. */

/* "cos info" (type 31), 28 bytes. */
struct tarvik_cos_info_body {
  uint8_t hdr[24];
  uint32_t num_fcs; /* forwarding classes */
};
/* "cos fabric" (type 32), 40 bytes. */
struct tarvik_cos_fabric_body {
  uint8_t hdr[24];
  uint32_t entries;
  uint8_t reserved[12];
};
/* "cos class" (type 34), 48 bytes; the keys stand where a request puts them. */
struct tarvik_cos_class_body {
  uint8_t hdr[24];
  uint8_t reserved[8];
  uint32_t ifl;     /* at 32 */
  uint32_t table;   /* at 36: the classifier object */
  uint8_t type;     /* at 40 */
  uint8_t pad;      /* */
  uint8_t selector; /* at 42: 1 by object, 0 by interface */
  uint8_t pad2;     /* */
  uint32_t entries; /* at 44 */
};
/* "cos red" (type 36), 36 bytes: a drop profile. */
struct tarvik_cos_red_body {
  uint8_t hdr[24];
  uint32_t id;
  uint32_t num_entries;
  uint32_t datasize;
};
/* "cos rewrt" (type 37), 56 bytes. */
struct tarvik_cos_rewrite_body {
  uint8_t hdr[24];
  uint8_t reserved[8];
  uint32_t ifl;     /* at 32 */
  uint32_t id;      /* at 36: the rewrite object */
  uint32_t type;    /* at 40: the rewrite kind */
  uint8_t selector; /* at 44: 1 by object, 0 by interface */
  uint8_t pad[3];   /* */
  uint32_t num;     /* at 48: entries */
  uint32_t size;    /* at 52: bytes of entries behind the fixed part */
};
/* "cos policer" and "cos shaper" (types 38 and 39), 48 bytes. */
struct tarvik_cos_policer_body {
  uint8_t hdr[24];
  uint8_t reserved[8];
  uint32_t ifl; /* at 32: the object asked for */
  uint32_t bandwidth;
  uint32_t burst;
  uint32_t reserved2;
};
/* "cos fragmap" (type 71), 56 bytes. */
struct tarvik_cos_fragmap_body {
  uint8_t hdr[24];
  uint8_t reserved[8];
  uint32_t ifl;         /* at 32 */
  uint32_t frag_map_id; /* at 36: the map object */
  uint32_t entries;     /* at 40 */
  uint8_t is_object;    /* at 44 */
  uint8_t pad[3];       /* */
  uint32_t data_size;   /* at 48 */
  uint32_t reserved2;
};

/* ======================================================================================== */
/* Class of service                                                                         */
/* ======================================================================================== */

/* Each read: EINVAL for a NULL session or out pointer (unless told), ENOMEM, the I/O's errno, or
 * 0 with the raw reply in *msg_out (NULL on every failure). */

/* The forwarding classes ("cos info"). */
TLK_EXPORT int tarvik_cim_get(tarvik_cookie *cookie, uint32_t op, void **msg_out);
/* The fabric priorities ("cos fabric"). */
TLK_EXPORT int tarvik_cfm_get(tarvik_cookie *cookie, uint32_t op, void **msg_out);
/* A classifier by its object index ("cos class"). */
TLK_EXPORT int tarvik_ccm_get_object(tarvik_cookie *cookie, uint32_t object, uint32_t op,
                                     void **msg_out);
/* The classifier of a logical interface and unit. */
TLK_EXPORT int tarvik_ccm_get_ifl(tarvik_cookie *cookie, uint32_t ifl, uint8_t unit, uint32_t op,
                                  void **msg_out);
/* A fabric or chassis policy ("cos policy"); with mode 2, a and b go as 0xFFFFFFFF.  No argument
 * checks: a NULL session gives ENOMEM, and *msg_out must be valid. */
TLK_EXPORT int tarvik_cpm_fab_chass_get(tarvik_cookie *cookie, uint32_t a, uint32_t b, uint32_t c,
                                        uint32_t mode, uint32_t op, void **msg_out);
/* A policer by its object index ("cos policer"). */
TLK_EXPORT int tarvik_cpom_get(tarvik_cookie *cookie, uint32_t object, uint32_t op, void **msg_out);
/* A shaper by its object index ("cos shaper"). */
TLK_EXPORT int tarvik_csm_get(tarvik_cookie *cookie, uint32_t object, uint32_t op, void **msg_out);
/* A rewrite rule by its object index ("cos rewrt"). */
TLK_EXPORT int tarvik_crwm_get_object(tarvik_cookie *cookie, uint32_t object, uint32_t op,
                                      void **msg_out);
/* The rewrite rule of a logical interface, unit and rewrite kind. */
TLK_EXPORT int tarvik_crwm_get_ifl(tarvik_cookie *cookie, uint32_t ifl, uint8_t unit,
                                   uint32_t rewrite_kind, uint32_t op, void **msg_out);
/* The forwarding class to queue map ("cos_fc_q"); op must be TLK_OP_GET, else EINVAL. */
TLK_EXPORT int tarvik_cglb_get(tarvik_cookie *cookie, uint32_t op, void **msg_out);
/* A fragmentation map ("cos fragmap") by object (is_object 1) or by interface (0). */
TLK_EXPORT int tarvik_cfragmap_get(tarvik_cookie *cookie, uint32_t ifl, uint32_t object,
                                   uint32_t op, void **msg_out, uint8_t is_object);
/* tarvik_cfragmap_get by object, with ifl 0. */
TLK_EXPORT int tarvik_cfragm_get_object(tarvik_cookie *cookie, uint32_t object, uint32_t op,
                                        void **msg_out);
/* tarvik_cfragmap_get by interface, with object 0. */
TLK_EXPORT int tarvik_cfragm_get_ifl(tarvik_cookie *cookie, uint32_t ifl, uint32_t op,
                                     void **msg_out);
/* Virtual output queue statistics of a device's queue, a framed read (type 95).  No argument
 * checks; a write error other than ENOENT prints "Error = <text>" on standard output. */
TLK_EXPORT int tarvik_cvoqstats_get(tarvik_cookie *cookie, uint32_t ifd, uint32_t queue,
                                    void **msg_out);
/* 1 if a class-of-service policy blob (generic configuration 8/16) exists for ifl, else 0. */
TLK_EXPORT int inf_ifl_is_cos_policy_attached(uint32_t ifl, tarvik_cookie *cookie);

/* ======================================================================================== */
/* Collector PIC                                                                            */
/* ======================================================================================== */

/* Names are cut at 59 characters. */

/* The collector parameters ("cpic params"); op get or getnext. */
TLK_EXPORT int tarvik_cp_params_get(tarvik_cookie *cookie, uint32_t op, void **msg_out);
/* The collector's file description (sent as type 60); op must be TLK_OP_GET. */
TLK_EXPORT int tarvik_cp_fspec_get(tarvik_cookie *cookie, uint32_t op, void **msg_out);
/* An input interface's collector map (sent as type 59); op get or getnext. */
TLK_EXPORT int tarvik_iif_cp_map_get(tarvik_cookie *cookie, uint32_t op, const char *name,
                                     void **msg_out);
/* An input interface's map to file descriptions; the first name is required. */
TLK_EXPORT int tarvik_iif_fspec_map_get(tarvik_cookie *cookie, uint32_t op, const char *name,
                                        const char *name2, void **msg_out);
/* Collector statistics by index; index 0 or op getnext gives EINVAL. */
TLK_EXPORT int tarvik_cp_stats_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                            void **msg_out);
/* Collector statistics by name; op get or getnext. */
TLK_EXPORT int tarvik_cp_stats_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                           void **msg_out);
/* Asks for a file's statistics; nothing is read (they come as a "cpic file_stats" notification).
 * op must be TLK_OP_GET. */
TLK_EXPORT int tarvik_cp_file_stats_get_by_name(tarvik_cookie *cookie, const char *name,
                                                uint32_t op);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_COS_H */
