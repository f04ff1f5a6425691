/*
 * tarlink/bridge.h - bridging: bridge domains, interfaces in a domain, spanning tree, VLANs, mesh
 * groups, port analyzers, and MAC tables with their counters.
 *
 * Layer 2 forwarding is configured object by object.  A bridge domain ("bridge-domain", bd_msg)
 * has an index, a tag and a name of at most 127 characters; its attributes change through an
 * attribute stream that the library turns into attachments (selectors 0x8000001 to 0x800000F).
 * An interface joins a domain under a 16-byte key, its name ("ifbdmesg", ifbd_msg).  Spanning
 * tree state ("stp", stp_msg) is keyed by an interface instance block; VLANs ("vlan", vlan_msg),
 * mesh groups ("mesh-group", mesh_group_msg) and analyzers ("analyzer", analyzer_msg) are read
 * by their keys.  Framed reads give a decoded message, released with tarvik_msg_idl_release; the
 * MAC table (raw type 51) and MAC statistics (raw type 52) give the kernel's raw reply, freed
 * with tarvik_msg_free.  Writes are fire and forget; other sessions hear of them through
 * tarvik_bd_async_register, tarvik_ifbd_async_register, tarvik_stp_async_register and their
 * kin (tarlink/async.h).
 *
 * For example:
 *
 *   bd_config_t cfg = {.bdc_vlan_id = 100, .bdc_mac_limit = 1024};
 *   void *bd = NULL;
 *   if (tarvik_bd_add(c, 0, "office", 7, &cfg, &bd, NULL) == 0) {
 *     uint8_t seq[8] = {2, 0, 6, 0, 42, 0};         // item 2 (sequence number), length 6, 42
 *     tarvik_bd_pointchange(c, ((const bd_msg *)bd)->bdm_index, seq, sizeof seq);
 *     tarvik_msg_idl_release(c, bd, NULL);
 *   }
 */
#ifndef TARLINK_BRIDGE_H
#define TARLINK_BRIDGE_H

#include <stddef.h>
#include <stdint.h>

#include "tarlink/base.h"
#include "tarlink/frame.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The bridge domain index that makes a read look the domain up by name and tag. */
#define TLK_BD_INDEX_BY_NAME 32768
/* The tag that a read by index sends. */
#define TLK_BD_TAG_ANY 65535
/* The attachment selectors of bridge domain attributes: 0x8000000 + the stream's item type. */
#define TLK_BD_INFO_BASE 0x8000000u
/* The spanning tree peer address that add, delete and get send: the bytes of 10.255.255.255. */
#define TLK_STP_NO_PEER 0xFFFFFF0Au
/* The spanning tree kind of add, change and delete. */
#define TLK_STP_KIND_IF 1
/* The MAC table's and MAC statistics' raw message types (numbers in use, not rtm_types rows). */
#define TLK_MAC_TABLE_TYPE 51
#define TLK_MAC_STATS_TYPE 52
/* The fixed parts of the MAC requests, behind which the name stands. */
#define TLK_MAC_TABLE_FIXED 64
#define TLK_MAC_STATS_FIXED 360

/* A daemon's view of a bridge domain's configuration, copied into an add at the offsets shown. */
typedef struct bd_config_t {
  uint8_t bdc_block[8];          /* at 60 */
  uint16_t bdc_vlan_id;          /* at 68 */
  uint32_t bdc_mac_limit;        /* at 88 */
  uint32_t bdc_mac_aging;        /* at 92 */
  uint32_t bdc_rtb;              /* at 80 */
  uint16_t bdc_mac_limit_action; /* at 84 */
  char bdc_descr[384];           /* the second string: at most 383 characters */
  uint32_t bdc_irb_ifl;          /* at 108 */
  uint32_t bdc_vlan_token;       /* at 120 */
  uint32_t bdc_ownership;        /* at 128 */
  uint8_t bdc_prefix1[16];       /* the first byte string */
  uint32_t bdc_prefix1_len;      /* its length in bytes (at most 16) */
  uint32_t bdc_vni;              /* at 144 */
  uint8_t bdc_prefix2[16];       /* the second byte string */
  uint32_t bdc_prefix2_len;      /* its length in bytes (at most 16) */
  uint8_t bdc_pbb[2];            /* at 160 */
  uint32_t bdc_l2_domain;        /* at 164 */
  uint16_t bdc_pvlan_group;      /* at 168 */
} bd_config_t;

/* A daemon's view of an interface in a domain, copied at the offsets shown. */
typedef struct ifbd_config_t {
  uint32_t ifbdc_bd_index;   /* at 64 */
  uint32_t ifbdc_index;      /* at 68 */
  uint16_t ifbdc_inner_vlan; /* at 72 */
  uint16_t ifbdc_outer_vlan; /* at 74 */
  uint16_t ifbdc_vlan_id;    /* at 40 */
  uint32_t ifbdc_isid;       /* at 76 */
  uint32_t ifbdc_stp_index;  /* at 80 */
  uint16_t ifbdc_tpid;       /* at 92 */
  uint8_t ifbdc_block[8];    /* at 96 */
  uint32_t ifbdc_vmap_in;    /* at 104 */
  uint32_t ifbdc_vmap_out;   /* at 108 */
  uint8_t ifbdc_mac[6];      /* at 112, sent by the add only */
  uint8_t ifbdc_peer_mac[6]; /* at 124, sent by the add only */
} ifbd_config_t;

/* ======================================================================================== */
/* Bridge domains ("bridge-domain", type 89)                                                 */
/* ======================================================================================== */

/* Reads the domain `bd_index` (tag 65535) with the caller's op; sender_id goes in tlkh_id. */
TLK_EXPORT int tarvik_bd_get(tarvik_cookie *cookie, uint32_t sender_id, uint32_t op,
                             uint32_t bd_index, void **msg_out, void **mask_out);
/* Reads the domain of that name (at most 127 characters) and tag; index 32768. */
TLK_EXPORT int tarvik_bd_get_by_name(tarvik_cookie *cookie, uint32_t sender_id, uint32_t op,
                                     const char *name, uint32_t bd_tag, void **msg_out,
                                     void **mask_out);
/* Adds a domain (op add_get) and reads the kernel's record of it; a NULL config is all zero. */
TLK_EXPORT int tarvik_bd_add(tarvik_cookie *cookie, uint32_t sender_id, const char *name,
                             uint32_t bd_tag, const bd_config_t *config, void **msg_out,
                             void **mask_out);
/* Changes a domain's attributes from a stream of (u16 type, u16 length, value) items, each
 * padded to four; every item becomes one attachment.  A bad item anywhere sends nothing and
 * gives EINVAL; an empty stream sends nothing and gives 0. */
TLK_EXPORT int tarvik_bd_pointchange(tarvik_cookie *cookie, uint32_t bd_index, const void *stream,
                                     size_t length);
/* Deletes the domain `bd_index`; nothing answers. */
TLK_EXPORT int tarvik_bd_delete(tarvik_cookie *cookie, uint32_t sender_id, uint32_t bd_index);

/* ======================================================================================== */
/* Interfaces in a domain ("ifbdmesg", type 90)                                              */
/* ======================================================================================== */
/* Each entry forces the last of the key's 16 bytes to 0, in the caller's own key. */

/* Reads the interface of that key with the caller's op. */
TLK_EXPORT int tarvik_ifbd_get(tarvik_cookie *cookie, uint32_t op, char *key, void **msg_out,
                               void **mask_out);
/* Adds an interface to a domain (op add_get, nothing read); flags go at 60. */
TLK_EXPORT int tarvik_ifbd_add(tarvik_cookie *cookie, char *key, uint32_t flags,
                               const ifbd_config_t *config);
/* Changes an interface's configuration; the two MAC fields are not sent. */
TLK_EXPORT int tarvik_ifbd_change(tarvik_cookie *cookie, char *key, const ifbd_config_t *config);
/* Takes an interface out of its domain. */
TLK_EXPORT int tarvik_ifbd_delete(tarvik_cookie *cookie, char *key);

/* ======================================================================================== */
/* Spanning tree ("stp", type 82)                                                            */
/* ======================================================================================== */

/* Adds spanning tree state for an interface instance (16 bytes, with its VLAN and a byte) and
 * reads the kernel's record, which carries the index it gave. */
TLK_EXPORT int tarvik_stp_add(tarvik_cookie *cookie, uint32_t sender_id, const stp_if_inst *inst,
                              uint32_t inst_vlan, uint32_t inst_byte, void **msg_out,
                              void **mask_out);
/* Changes the state at `idx`: state, action, epoch, the clear epoch (52), hardware learning
 * (55), the flags word (40) and the peer address. */
TLK_EXPORT int tarvik_stp_change(tarvik_cookie *cookie, uint32_t sender_id, uint32_t idx,
                                 uint32_t state, uint32_t action, uint32_t epoch,
                                 uint32_t clear_epoch, uint32_t hw_learn, uint32_t flags,
                                 uint32_t peer_ip);
/* Deletes the state at `idx`. */
TLK_EXPORT int tarvik_stp_delete(tarvik_cookie *cookie, uint32_t sender_id, uint32_t idx);
/* Reads the state of an interface instance (NULL: none) with `kind`; ops 4, 5, 8, 9 read. */
TLK_EXPORT int tarvik_stp_get(tarvik_cookie *cookie, uint32_t op, uint32_t kind, uint32_t sender_id,
                              const stp_if_inst *inst, uint32_t inst_vlan, void **msg_out,
                              void **mask_out);

/* ======================================================================================== */
/* VLANs ("vlan", type 84): op get or getnext only, and msg_out required                    */
/* ======================================================================================== */

/* Reads the VLAN `vlan_index`. */
TLK_EXPORT int tarvik_vlanm_get_by_index(tarvik_cookie *cookie, uint32_t vlan_index, uint32_t op,
                                         void **msg_out);
/* Reads the VLAN of that name (at most 127 characters) under `vlan_key`. */
TLK_EXPORT int tarvik_vlanm_get_by_name(tarvik_cookie *cookie, uint32_t vlan_key, const char *name,
                                        uint32_t op, void **msg_out);
/* Reads the VLAN whose layer 3 interface is `ifl`. */
TLK_EXPORT int tarvik_vlanm_get_by_l3ifl(tarvik_cookie *cookie, uint32_t ifl, uint32_t op,
                                         void **msg_out);

/* ======================================================================================== */
/* Mesh groups ("mesh-group", type 87) and analyzers ("analyzer", type 88)                   */
/* ======================================================================================== */

/* Any op on a mesh group; ops 4, 5, 8 and 9 read and need msg_out.  The name is cut to
 * name_limit bytes with its end byte; a NULL name or a limit of 0 sends none. */
TLK_EXPORT int tarvik_mesh_group_op(tarvik_cookie *cookie, uint32_t op, uint32_t unused,
                                    uint32_t mesh_id, void **msg_out, void **mask_out,
                                    const char *name, size_t name_limit, uint32_t mesh_key,
                                    uint32_t af, uint32_t rtb_id, uint32_t flags);
/* Reads the analyzer of that name (at most 128 characters) with the caller's op. */
TLK_EXPORT int tarvik_analyzer_get(tarvik_cookie *cookie, uint32_t op, void **msg_out,
                                   const char *name);

/* ======================================================================================== */
/* MAC tables (raw type 51) and MAC statistics (raw type 52)                                 */
/* ======================================================================================== */
/* Gets print "Error in tarvik_write %d\n" or "Error in tarvik_long_msg_read %d\n" on standard
 * output when they fail; clears (op clear) write only.  A name keeps at most 60 characters. */

/* Reads the MAC table of the domain `mac_index`: selector at 28, the four values at 54 to 60. */
TLK_EXPORT int tarvik_mac_db_get_by_index(tarvik_cookie *cookie, uint32_t mac_selector,
                                          uint32_t mac_index, uint32_t mac_byte_a,
                                          uint32_t mac_byte_b, uint32_t mac_word_a,
                                          uint32_t mac_word_b, void **msg_out);
/* Reads the MAC table of the domain of that name. */
TLK_EXPORT int tarvik_mac_db_get_by_name(tarvik_cookie *cookie, uint32_t mac_selector,
                                         const char *name, uint32_t mac_byte_a, uint32_t mac_byte_b,
                                         uint32_t mac_word_a, uint32_t mac_word_b, void **msg_out);
/* Clears the MAC table of the domain `mac_index`; `value` goes at 36. */
TLK_EXPORT int tarvik_mac_db_clear_by_index(tarvik_cookie *cookie, uint32_t mac_selector,
                                            uint32_t mac_index, uint32_t value);
/* Clears the MAC table of the domain of that name; `first` (u16) at 52, `second` at 36. */
TLK_EXPORT int tarvik_mac_db_clear_by_name(tarvik_cookie *cookie, uint32_t mac_selector,
                                           const char *name, uint32_t first, uint32_t second);
/* Reads the MAC counters of the domain `mac_index`: the two words go at 48 and 52. */
TLK_EXPORT int tarvik_mac_stats_get_by_index(tarvik_cookie *cookie, uint32_t mac_selector,
                                             uint32_t mac_index, uint32_t mac_word_a,
                                             uint32_t mac_word_b, void **msg_out);
/* Reads the MAC counters of the domain of that name. */
TLK_EXPORT int tarvik_mac_stats_get_by_name(tarvik_cookie *cookie, uint32_t mac_selector,
                                            const char *name, uint32_t mac_word_a,
                                            uint32_t mac_word_b, void **msg_out);
/* Clears the MAC counters of the domain `mac_index`; `value` goes at 32. */
TLK_EXPORT int tarvik_mac_stats_clear_by_index(tarvik_cookie *cookie, uint32_t mac_selector,
                                               uint32_t mac_index, uint32_t value);
/* Clears the MAC counters of the domain of that name; `value` goes at 32. */
TLK_EXPORT int tarvik_mac_stats_clear_by_name(tarvik_cookie *cookie, uint32_t mac_selector,
                                              const char *name, uint32_t value);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_BRIDGE_H */
