/*
 * tarsim.h - the simulated kernel from C.
 *
 * The C face of the simulator of tarsim.hpp, for daemons written in C: start it (it takes over
 * libtarlink's routing socket until stopped), program raw answers, push bytes and notifications,
 * set system controls, seed and change the kernel's objects, inject faults, hold replies for
 * waits, read the record of traffic, and stop it.  Every call takes the handle that tarsim_start
 * gave.  Calls that do something give 0, or -1 for a null handle, bad arguments or an unknown
 * session or object; calls that count give the count, or -1.  A session is named by the
 * library's descriptor of it (tarvik_getsockfd).  Link with -ltarsim (pkg-config: tarsim).
 */
#ifndef TARSIM_H
#define TARSIM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define TARSIM_API __attribute__((visibility("default")))

typedef struct tarsim_kernel tarsim_kernel;

/* ======================================================================================== */
/* The kernel                                                                                */
/* ======================================================================================== */

/* Starts a simulated kernel behind libtarlink's platform seam.  One at a time. */
TARSIM_API tarsim_kernel *tarsim_start(void);
/* Stops it and gives the platform back to the host. */
TARSIM_API void tarsim_stop(tarsim_kernel *kernel);

/* ======================================================================================== */
/* Answers, deliveries and notifications                                                    */
/* ======================================================================================== */

/* Answers every raw request of (type, op) with `reply`, the request's tlkh_seq copied into it. */
TARSIM_API int tarsim_reply_raw(tarsim_kernel *kernel, uint8_t type, uint8_t op, const void *reply,
                                size_t length);
/* Makes raw requests of (type, op) draw no reply at all. */
TARSIM_API int tarsim_no_reply(tarsim_kernel *kernel, uint8_t type, uint8_t op);
/* Queues bytes to a session as a reply: the faults armed for the next reply apply. */
TARSIM_API int tarsim_send(tarsim_kernel *kernel, int fd, const void *bytes, size_t length);
/* Queues bytes to a session exactly as given. */
TARSIM_API int tarsim_push(tarsim_kernel *kernel, int fd, const void *bytes, size_t length);
/* Queues a notification of `type` to every session listening for it (see tarsim/kernel.hpp) and
 * sends it; the number of sessions reached. */
TARSIM_API int tarsim_notify(tarsim_kernel *kernel, uint8_t type, const void *bytes, size_t length);

/* ======================================================================================== */
/* System controls                                                                           */
/* ======================================================================================== */

/* Sets what a read of the named control gets (a write by the library replaces it). */
TARSIM_API int tarsim_set_sysctl(tarsim_kernel *kernel, const char *name, const void *value,
                                 size_t length);
/* The same with a u32 value. */
TARSIM_API int tarsim_set_sysctl_u32(tarsim_kernel *kernel, const char *name, uint32_t value);
/* Sets what a read of the numbered control gets; `count` numbers in `mib`. */
TARSIM_API int tarsim_set_sysctl_mib(tarsim_kernel *kernel, const int *mib, size_t count,
                                     const void *value, size_t length);
/* Forgets a value set by name: reads of the control then fail with ENOENT. */
TARSIM_API int tarsim_erase_sysctl(tarsim_kernel *kernel, const char *name);

/* ======================================================================================== */
/* Devices (tarsim/devices.hpp)                                                              */
/* ======================================================================================== */

/* Media kinds of a device. */
#define TARSIM_MEDIA_ETHERNET 1
#define TARSIM_MEDIA_SONET 2
#define TARSIM_MEDIA_AGGREGATE 3
#define TARSIM_MEDIA_LOOPBACK 4

/* Adds a device (SNMP id 500 + index, no addresses), or replaces the one with its index. */
TARSIM_API int tarsim_device_add(tarsim_kernel *kernel, uint16_t index, const char *name,
                                 uint32_t flags, uint16_t media, uint32_t mtu);
/* Takes a device's link up (flag 0x1) or down as the kernel would: listeners hear it. */
TARSIM_API int tarsim_device_set_link(tarsim_kernel *kernel, const char *name, int up);
/* Sets and clears device flags as the kernel would: the generation moves on, listeners hear it. */
TARSIM_API int tarsim_device_change_flags(tarsim_kernel *kernel, uint16_t index, uint32_t set,
                                          uint32_t clear);
/* Sets the packet counters and the alarm word that statistics and alarm reads answer with. */
TARSIM_API int tarsim_device_set_counters(tarsim_kernel *kernel, uint16_t index,
                                          uint64_t in_packets, uint64_t out_packets,
                                          uint32_t alarms);
/* Reads a device's flags into *flags. */
TARSIM_API int tarsim_device_flags(tarsim_kernel *kernel, uint16_t index, uint32_t *flags);
/* The number of devices. */
TARSIM_API int64_t tarsim_device_count(tarsim_kernel *kernel);

/* ======================================================================================== */
/* Logical interfaces (tarsim/ifl.hpp)                                                       */
/* ======================================================================================== */

/* Adds a logical interface `device`.`unit` (SNMP id 500 + index, generation 1), or replaces the
 * one with its index. */
TARSIM_API int tarsim_ifl_add(tarsim_kernel *kernel, uint32_t index, const char *device,
                              uint16_t devidx, uint32_t unit, uint32_t flags);
/* The number of logical interfaces. */
TARSIM_API int64_t tarsim_ifl_count(tarsim_kernel *kernel);

/* ======================================================================================== */
/* Generic configuration (tarsim/gencfg.hpp)                                                 */
/* ======================================================================================== */

/* Stores a blob under (major, minor, byte key) as the kernel would: listeners hear an add; the
 * number of sessions that heard it. */
TARSIM_API int tarsim_gencfg_store(tarsim_kernel *kernel, uint16_t major, uint16_t minor,
                                   const void *key, size_t key_length, const void *blob,
                                   size_t blob_length);
/* Deletes the blob under (major, minor, byte key): listeners hear a delete; the number of
 * sessions that heard it, or -1 when no such blob is stored. */
TARSIM_API int tarsim_gencfg_delete(tarsim_kernel *kernel, uint16_t major, uint16_t minor,
                                    const void *key, size_t key_length);
/* Points *blob at the stored blob (valid until the store changes) and sets *length. */
TARSIM_API int tarsim_gencfg_find(tarsim_kernel *kernel, uint16_t major, uint16_t minor,
                                  const void *key, size_t key_length, const void **blob,
                                  size_t *length);
/* The number of blobs stored. */
TARSIM_API int64_t tarsim_gencfg_count(tarsim_kernel *kernel);

/* ======================================================================================== */
/* Faults                                                                                    */
/* ======================================================================================== */

/* The next socket() fails with `err`. */
TARSIM_API int tarsim_fail_socket(tarsim_kernel *kernel, int err);
/* Every get and set of the socket option (level, name) fails with `err` until cleared. */
TARSIM_API int tarsim_fail_option(tarsim_kernel *kernel, int level, int name, int err);
/* Clears the failure of a socket option. */
TARSIM_API int tarsim_clear_option_failure(tarsim_kernel *kernel, int level, int name);
/* The next write fails with `err`. */
TARSIM_API int tarsim_inject_write_errno(tarsim_kernel *kernel, int err);
/* A read fails with `err` after `after` good ones. */
TARSIM_API int tarsim_inject_read_errno(tarsim_kernel *kernel, int err, unsigned after);
/* The next write takes only `count` bytes (in bulk mode: the messages within them). */
TARSIM_API int tarsim_inject_short_write(tarsim_kernel *kernel, size_t count);
/* The next reply is cut to `bytes`. */
TARSIM_API int tarsim_inject_reply_truncate(tarsim_kernel *kernel, size_t bytes);
/* The next reply has `bytes` zero bytes more. */
TARSIM_API int tarsim_inject_reply_extra(tarsim_kernel *kernel, size_t bytes);
/* The next reply's tlkh_seq is off by `delta`. */
TARSIM_API int tarsim_inject_wrong_seq(tarsim_kernel *kernel, uint32_t delta);
/* Clears every armed fault. */
TARSIM_API int tarsim_clear_faults(tarsim_kernel *kernel);

/* ======================================================================================== */
/* Waits                                                                                     */
/* ======================================================================================== */

/* Keeps whatever is queued to the session from now on until it has waited `waits` more times
 * (a select with its descriptor in the read set, or any usleep, through libtarlink's seam); the
 * last of those waits releases it.  0 releases what is held now. */
TARSIM_API int tarsim_hold_replies(tarsim_kernel *kernel, int fd, unsigned waits);
/* The waits counted for the session so far. */
TARSIM_API int64_t tarsim_waits(tarsim_kernel *kernel, int fd);

/* ======================================================================================== */
/* Traffic record                                                                            */
/* ======================================================================================== */

/* Starts (on != 0) or stops recording every message both ways. */
TARSIM_API int tarsim_record(tarsim_kernel *kernel, int on);
/* The number of messages recorded. */
TARSIM_API int64_t tarsim_recorded_count(tarsim_kernel *kernel);
/* Message `index` of the record: its session, whether the library wrote it (1) or the kernel
 * queued it (0), and its bytes, valid until the record changes.  Null out pointers are skipped. */
TARSIM_API int tarsim_recorded(tarsim_kernel *kernel, size_t index, int *session, int *to_kernel,
                               const void **bytes, size_t *length);
/* Forgets what was recorded. */
TARSIM_API int tarsim_clear_recorded(tarsim_kernel *kernel);
/* Saves the record as a capture file (tarsim/capture.h, which reads it back): 0, or -1 for a
 * null handle or path, or the errno of a failed write. */
TARSIM_API int tarsim_save_record(tarsim_kernel *kernel, const char *path);

/* ======================================================================================== */
/* The kernel in another process (tarsimd)                                                  */
/* ======================================================================================== */

/* Sends libtarlink's routing sockets of this process to the tarsimd listening at `path`: each
 * socket is a session of that kernel, shared with every other process connected to it.  Reads
 * stay local; a write returns once the daemon took the message, its reply queued.  0, or the
 * errno of the failed connection (ENOENT or ECONNREFUSED: no daemon there; EBUSY: connected
 * already).  If the daemon dies, reads and writes of its sessions fail with ECONNRESET after
 * one line on stderr.  A tarsim::Kernel made while connected stays out of the platform seam. */
TARSIM_API int tarsim_connect(const char *path);
/* Gives the platform back; the daemon closes the sessions still open. */
TARSIM_API void tarsim_disconnect(void);
/* 1 while connected to a daemon that is still there, else 0. */
TARSIM_API int tarsim_connected(void);

/* The faults of the section above, armed in the connected daemon: they strike the next session
 * of any process that meets them.  `arg`, `x` and `y` as each kind says. */
#define TARSIM_FAULT_CLEAR 0          /* clears every armed fault */
#define TARSIM_FAULT_SOCKET 1         /* arg = errno of the next socket() */
#define TARSIM_FAULT_FCNTL 2          /* arg = cmd, x = errno */
#define TARSIM_FAULT_OPTION 3         /* arg = level, x = name, y = errno, until cleared */
#define TARSIM_FAULT_CLEAR_OPTION 4   /* arg = level, x = name */
#define TARSIM_FAULT_WRITE_ERRNO 5    /* arg = errno of the next write */
#define TARSIM_FAULT_SHORT_WRITE 6    /* x = bytes the next write takes */
#define TARSIM_FAULT_READ_ERRNO 7     /* arg = errno, x = good reads before it */
#define TARSIM_FAULT_REPLY_TRUNCATE 8 /* x = bytes the next reply is cut to */
#define TARSIM_FAULT_REPLY_EXTRA 9    /* x = zero bytes added to the next reply */
#define TARSIM_FAULT_WRONG_SEQ 10     /* x = what the next reply's seq is off by */
#define TARSIM_FAULT_BULK_STOP 11     /* arg = errno, x = messages the next bulk write takes */
/* 0, or EINVAL for an unknown kind or argument, ENOTCONN when not connected, ECONNRESET. */
TARSIM_API int tarsim_remote_fault(int kind, int arg, uint64_t x, uint64_t y);

/* What the connected daemon holds now. */
typedef struct tarsim_remote_stats_t {
  uint64_t sessions;    /* sessions open, of every process */
  uint64_t connections; /* processes connected */
  uint64_t calls;       /* calls served since the daemon started */
  uint64_t heap_bytes;  /* the daemon's heap in use */
} tarsim_remote_stats_t;
/* 0, or ENOTCONN, ECONNRESET, EINVAL for a null pointer. */
TARSIM_API int tarsim_remote_stats(tarsim_remote_stats_t *out);

#ifdef __cplusplus
}
#endif

#endif /* TARSIM_H */
