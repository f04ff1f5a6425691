// The library's own event loop: the least that the asynchronous engine needs from one (a callback
// per ready descriptor, a main loop that runs until told to stop, and a form that runs signal
// handlers only between callbacks), on poll(2).  It is the host default of the seam's ev* entries;
// a port replaces those entries with its system's loop.
#pragma once

#include "tarlink_platform.h"

namespace tlk::evlib {

int create(evContext *ctx);
int select_fd(evContext ctx, int fd, int eventmask, evFileFunc func, void *uap, evFileID *id);
int deselect_fd(evContext ctx, evFileID id);
int main_loop(evContext ctx);
int main_loop_sync_sighdl(evContext ctx);
int destroy(evContext ctx);
int brk(evContext ctx);

}  // namespace tlk::evlib
