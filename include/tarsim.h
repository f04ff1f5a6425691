/*
 * tarsim.h - the simulated kernel from C.
 *
 * A small C face of the simulator in tarsim.hpp, enough for a C program to run against it:
 * start it (it takes over libtarlink's routing socket until stopped), program a raw answer, push
 * bytes to a session, and stop it.  Link with -ltarsim (pkg-config: tarsim).
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

/* Starts a simulated kernel behind libtarlink's platform seam.  One at a time. */
TARSIM_API tarsim_kernel *tarsim_start(void);
/* Stops it and gives the platform back to the host. */
TARSIM_API void tarsim_stop(tarsim_kernel *kernel);
/* Answers every raw request of (type, op) with `reply`, the request's tlkh_seq copied into it.
 * 0, or -1 for bad arguments. */
TARSIM_API int tarsim_reply_raw(tarsim_kernel *kernel, uint8_t type, uint8_t op, const void *reply,
                                size_t length);
/* Queues bytes to the session whose library descriptor is `fd`.  0, or -1. */
TARSIM_API int tarsim_push(tarsim_kernel *kernel, int fd, const void *bytes, size_t length);

/* Queues a notification of `type` to every session listening for it (see tarsim.hpp) and sends
 * it; the number of sessions reached, or -1 for bad arguments. */
TARSIM_API int tarsim_notify(tarsim_kernel *kernel, uint8_t type, const void *bytes, size_t length);

#ifdef __cplusplus
}
#endif

#endif /* TARSIM_H */
