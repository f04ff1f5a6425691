/*
 * tarlink/ifname.h - name and index helpers.
 *
 * For programs without a session of their own: the three standard names if_nametoindex,
 * if_indextoname and if_nameindex, answered from the router's logical interfaces (a program
 * linked with libtarlink gets these in place of the C library's), and the ifl_* helpers, which
 * turn a logical interface's name ("device.unit"), index or SNMP id into another, bind a socket to
 * a send interface, and read or write a subset bit.  Every session here has sender id 3: the
 * standard names share one opened on first use and never closed, ifl_getindexbyifname_cachesocket
 * keeps one until a read fails, and every other ifl_* helper opens and closes one per call.
 * Single-threaded: the kept sessions are unlocked.  Successful if_nametoindex and if_indextoname
 * calls each leave their reply allocated, and if_nameindex's array has no free function.
 *
 * For example:
 *
 *   int index = ifl_getindexbyifname("ge0.100");
 *   char name[64];
 *   if (index != -1 && ifl_getnamebyifindex(index, name, sizeof name) == 0)
 *     printf("%d is %s\n", index, name);
 *   int s = socket(AF_INET, SOCK_DGRAM, 0);
 *   if (ifl_setsendifbyifname(s, "ge0.100") != 0) perror("send interface");
 */
#ifndef TARLINK_IFNAME_H
#define TARLINK_IFNAME_H

#include <net/if.h>
#include <stdint.h>

#include "tarlink/base.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The C library declares the standard names as not throwing; so must a redeclaration. */
#if defined(__cplusplus) && defined(__GLIBC__)
#define TLK_IFNAME_NOTHROW noexcept(true)
#else
#define TLK_IFNAME_NOTHROW
#endif
/* ... and, in C, spells its buffer as an array; the library writes up to 60 bytes into it. */
#if defined(__GLIBC__) && !defined(__cplusplus)
#define TLK_IFNAME_BUFFER(name) name[IF_NAMESIZE]
#else
#define TLK_IFNAME_BUFFER(name) *name
#endif

/* ======================================================================================== */
/* Name and index helpers                                                                    */
/* ======================================================================================== */

/* The index of the logical interface read by the whole string as device name, unit 0; 0 with
 * errno ENXIO on failure. */
TLK_EXPORT unsigned int if_nametoindex(const char *name) TLK_IFNAME_NOTHROW;
/* `buffer` filled with "device.unit" (cut at 60 bytes), or NULL with errno ENXIO. */
TLK_EXPORT char *if_indextoname(unsigned int index,
                                char TLK_IFNAME_BUFFER(buffer)) TLK_IFNAME_NOTHROW;
/* Every logical interface as (index, device name) pairs ended by a pair of zeros, or NULL. */
TLK_EXPORT struct if_nameindex *if_nameindex(void) TLK_IFNAME_NOTHROW;

/* Copies `name` to `buffer`, cut at its last point, with the unit after the point in *unit (-1
 * without a point; `unit` may be NULL): 0, or -1 if the name is longer than `size`. */
TLK_EXPORT int ifl_get_device_name(const char *name, char *buffer, size_t size, int *unit);
/* The index of "device.unit" (no point: unit 0), or -1; errno EINVAL for a NULL or empty name or
 * one of 61 characters or more, else the read's result. */
TLK_EXPORT int ifl_getindexbyifname(const char *name);
/* The same on the kept session, which a failed read closes; an empty name is sent as it is. */
TLK_EXPORT int ifl_getindexbyifname_cachesocket(const char *name);
/* The tenant of "device.unit", or -1 as ifl_getindexbyifname. */
TLK_EXPORT int ifl_gettenantidbyifname(const char *name);
/* The index of the logical interface with this SNMP id, or -1. */
TLK_EXPORT int ifl_getindexbysnmpifindex(uint32_t snmp_id);
/* "device.unit" of an index into `buffer` (snprintf to `size`): 0, or -1. */
TLK_EXPORT int ifl_getnamebyifindex(uint32_t index, char *buffer, size_t size);
/* "device.unit" of an SNMP id: 0, or -1. */
TLK_EXPORT int ifl_getnamebysnmpifindex(uint32_t snmp_id, char *buffer, size_t size);
/* The logical router of an index, or -1. */
TLK_EXPORT int ifl_getlrindexbyifindex(uint32_t index);
/* The logical router of "device.unit", or -1. */
TLK_EXPORT int ifl_getlrindexbyifname(const char *name);
/* The device name under a stack of logical interfaces (following each one's underlying index to
 * the bottom) into `buffer`: 0, or -1; index 0 leaves the buffer as it was and gives 0. */
TLK_EXPORT int ifl_get_underlying_device_byifindex(uint32_t index, char *buffer, size_t size);
/* Makes `socket` (IPv4 or IPv6) send through the logical interface `index`: the socket option's
 * result, or -1 with errno EPROTONOSUPPORT for a socket of another family. */
TLK_EXPORT int ifl_setsendifbyifindex(int socket, uint32_t index);
/* The same by "device.unit"; -1 if the name isn't found. */
TLK_EXPORT int ifl_setsendifbyifname(int socket, const char *name);
/* The same by SNMP id; -1 if the id isn't found. */
TLK_EXPORT int ifl_setsendifbysnmpifindex(int socket, uint32_t snmp_id);
/* Sets subset bit `subset` (0 to 15) of an index to `state`: 0, EINVAL, ENOMEM, the write's
 * errno, or -1 when no session opens. */
TLK_EXPORT int ifl_set_subset_iif(uint32_t index, uint32_t subset, uint32_t state);
/* Reads subset bit `subset` of an index into *state (1 or 0): 0, EINVAL, the read's result (with
 * *state untouched), or -1 when no session opens. */
TLK_EXPORT int ifl_get_subset_iif(uint32_t index, uint32_t subset, int *state);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_IFNAME_H */
