/*
 * tarlink_platform.h - the one seam between libtarlink and the operating system.
 *
 * Every OS service that the library calls goes through the table below.  The default table calls
 * the host; a simulated kernel, a test harness or a port installs its own (usually a copy of the
 * current table with a few entries replaced) with tlk_platform_set.  The table is process-wide
 * and unlocked: install it before sessions exist and from one thread.
 */
#ifndef TARLINK_PLATFORM_H
#define TARLINK_PLATFORM_H

#include <stddef.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include "tarlink.h"

#ifdef __cplusplus
extern "C" {
#endif

struct hostent;

typedef struct tlk_platform {
  /* The routing socket and its I/O. */
  int (*socket)(int domain, int type, int protocol);
  ssize_t (*read)(int fd, void *buf, size_t len);
  ssize_t (*write)(int fd, const void *buf, size_t len);
  ssize_t (*recv)(int fd, void *buf, size_t len, int flags);
  int (*close)(int fd);
  int (*fcntl)(int fd, int cmd, int arg);
  int (*getsockopt)(int fd, int level, int name, void *value, socklen_t *len);
  int (*setsockopt)(int fd, int level, int name, const void *value, socklen_t len);
  /* Kernel values.  The host default answers ENOENT: Linux has no such names. */
  int (*sysctl)(const int *name, unsigned namelen, void *oldp, size_t *oldlenp, const void *newp,
                size_t newlen);
  int (*sysctlbyname)(const char *name, void *oldp, size_t *oldlenp, const void *newp,
                      size_t newlen);
  /* Waiting. */
  int (*select)(int nfds, fd_set *readfds, fd_set *writefds, fd_set *exceptfds,
                struct timeval *timeout);
  int (*usleep)(unsigned usec);
  /* Reporting and ending.  syslog receives the finished text; the host default logs it with a
   * trailing newline.  exit and assert_fail are expected not to return; if a replacement does
   * return, exit is taken as survived, and a failed assertion still aborts. */
  void (*syslog)(int priority, const char *text);
  void (*print_stderr)(const char *text);
  void (*exit)(int status);
  void (*assert_fail)(const char *expr, const char *file, int line, const char *func);
  /* The event loop (evContext, evFileID and evFileFunc are described in tarlink/async.h).  The
   * default is the library's own loop on poll(2); a port plugs its system's loop here.  All give
   * 0, or -1 with errno.  evMainLoop runs until evBreak or until nothing is watched;
   * evMainLoopSyncSighdl is the same loop with signals held back while callbacks run, so that a
   * signal handler never interrupts one.  evBreak is this library's addition: it makes the running
   * loop return once the current callback is done, and is safe from a signal handler. */
  int (*evCreate)(evContext *ctx);
  int (*evSelectFD)(evContext ctx, int fd, int eventmask, evFileFunc func, void *uap, evFileID *id);
  int (*evDeselectFD)(evContext ctx, evFileID id);
  int (*evMainLoop)(evContext ctx);
  int (*evMainLoopSyncSighdl)(evContext ctx);
  int (*evDestroy)(evContext ctx);
  int (*evBreak)(evContext ctx);
  /* The product the library runs on: a record whose second u16 is the model number, or NULL
   * when unknown (the host default); and whether the platform is of the variant family (0 on the
   * host). */
  const void *(*product_info_data)(void);
  int (*product_is_platform_varn)(int a, int b);
  /* The running program's short name, for diagnostics; never NULL (the host default gives ""
   * where the system keeps no name).  A NULL entry reads as "".  Entries are added at the end
   * of this table only, so that the earlier ones keep their places. */
  const char *(*program_name)(void);
  /* The process identifier, which the session statistics requests carry as their sender. */
  pid_t (*getpid)(void);
  /* One pass of MD5 over `length` bytes at `data` (processed in blocks of `block_length`) into the
   * 16 bytes at `digest`; `context` is the importer's and passed as 0.  The filter heads' master
   * hash is made with it. */
  void (*md5_cksum)(const void *data, size_t length, size_t block_length, uint8_t *digest,
                    void *context);
  /* The kernel's "none" indexes: no next hop and no logical interface.  An add of a next hop
   * sends `null_nh_idx` and the kernel answers with the index it chose; a list of logical
   * interfaces may not name `null_ifl_idx`.  Both are 0 on the host. */
  uint32_t null_nh_idx;
  uint32_t null_ifl_idx;
  /* The name of an address, for the socket address formatter: as gethostbyaddr(3), with the
   * family in the library's numbering (2 inet, 28 inet6); NULL when nothing is found.  The host
   * default may block in a name lookup. */
  struct hostent *(*gethostbyaddr)(const void *addr, socklen_t len, int family);
  /* This host's name, as gethostname(2): 0, or -1 with errno.  The socket address formatter
   * takes its local domain from it once per process. */
  int (*gethostname)(char *name, size_t len);
  /* An address as text, as inet_ntop(3), with the family in the library's numbering: 2 inet,
   * 28 inet6; the host default refuses any other with EAFNOSUPPORT.  NULL with errno on failure. */
  const char *(*inet_ntop)(int family, const void *src, char *dst, socklen_t size);
  /* The local address of a socket, laid out as the router's stack lays it out: byte 0 the
   * length, byte 1 the family in the library's numbering (2 inet, 28 inet6), the rest as the
   * family has it.  0, or -1 with errno; *len is the length stored.  The host default converts
   * the host's own layout; a family it has no number for shows as 255. */
  int (*getsockname)(int fd, void *addr, socklen_t *len);
  /* The router stack's options at levels 0 (IP) and 41 (IPv6), by the router's option numbers:
   * 107 and 64 name the interface that a socket sends through.  The host default maps these two
   * to the host's nearest options where it has them and refuses every other with ENOPROTOOPT. */
  int (*setsockopt_ip)(int fd, int level, int name, const void *value, socklen_t len);
  /* The platform's interface library, behind the device info cache (tarlink/ifcache.h):
   * parse_interface fills a tarvik_ifd_info_t from a device name (0, or non-zero for a name it
   * refuses; the three ints after `info` and the first after the name are the importer's and
   * passed as 0); interface_info_by_pfx_match finds the kind of a name by its prefix (NULL for
   * none) and interface_info_index gives that kind's number.  interface_mask_table has
   * interface_mask_rows rows of three u64, one per kind, and is written by the cache. */
  int (*parse_interface)(const char *name, int flags, int unit, void *info, int a, int b);
  const void *(*interface_info_by_pfx_match)(const char *name, int flags);
  int (*interface_info_index)(const void *kind);
  uint64_t (*interface_mask_table)[3];
  size_t interface_mask_rows;
  /* Writes `text` to standard output as it stands (it carries its own line feed).  A few
   * operations report their refusals there rather than through the session's diagnostics. */
  void (*print_stdout)(const char *text);
} tlk_platform;

/* The table in force. */
TLK_EXPORT const tlk_platform *tlk_platform_get(void);
/* The host's own table. */
TLK_EXPORT const tlk_platform *tlk_platform_host(void);
/* Installs a table (copied); NULL puts the host's table back. */
TLK_EXPORT void tlk_platform_set(const tlk_platform *table);

#ifdef __cplusplus
}
#endif

#endif /* TARLINK_PLATFORM_H */
