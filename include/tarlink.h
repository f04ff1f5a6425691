/*
 * tarlink.h - client library for the kernel's private routing socket.
 *
 * A daemon opens a session (a cookie), the library negotiates message versions with the kernel,
 * and from then on requests go out and replies and notifications come back on one non-blocking
 * socket that the caller may put into its own event loop.  The library creates no thread and
 * holds no lock: a cookie belongs to one thread at a time.
 *
 * Results: 0 for success, otherwise a positive errno value (EINVAL, EAGAIN, EIO, ...), -2 for a
 * sequence mismatch where told, -1 for the setup calls that wrap socket options.  Constructors
 * give a pointer or NULL.
 *
 * This header includes one header per area, each of which also stands on its own:
 *
 *   tarlink/base.h       constants, operations, levels, memory identifiers, the raw header,
 *                        message type numbers (tarlink/msg_types.h), versions and names
 *   tarlink/memory.h     memory accounting and diagnostics
 *   tarlink/session.h    sessions: open, tune, close
 *   tarlink/io.h         synchronous message I/O
 *   tarlink/bulk.h       bulk transfer
 *   tarlink/frame.h      frames, the envelope, the message records and their codecs
 *   tarlink/async.h      asynchronous sessions: contexts, registration, event processing
 *   tarlink/msg_list.h   message lists
 *   tarlink/ifd.h        devices, their statistics and alarms
 *   tarlink/ifl.h        logical interfaces
 *   tarlink/iff.h        protocol families and addresses of logical interfaces
 *   tarlink/ifname.h     name and index helpers (if_nametoindex and the ifl_* helpers)
 *   tarlink/ifcache.h    the device info cache
 *   tarlink/ifstate.h    the interface state log
 *   tarlink/rtm.h        routes, route match and multicast groups
 *   tarlink/rnh.h        next hops, reserved next hop indexes, composites
 *   tarlink/gencfg.h     generic configuration blobs
 *   tarlink/rtb.h        route tables and named table classes
 *   tarlink/tlk_stat.h   session statistics
 *   tarlink/rt_stats.h   route statistics and route class statistics
 *   tarlink/rnh_stats.h  next hop statistics
 *   tarlink/dfw_stats.h  firewall counters and the firewall log
 *   tarlink/unnum.h      unnumbered address donors
 *   tarlink/bridge.h     bridge domains, spanning tree, VLANs, mesh groups, MAC tables
 *   tarlink/format.h     value formatters and name tables for traces
 *
 * All of them compile as C99 and as C++.
 */
#ifndef TARLINK_H
#define TARLINK_H

#include "tarlink/async.h"
#include "tarlink/base.h"
#include "tarlink/bridge.h"
#include "tarlink/bulk.h"
#include "tarlink/chassis.h"
#include "tarlink/cos.h"
#include "tarlink/dfw.h"
#include "tarlink/dfw_stats.h"
#include "tarlink/format.h"
#include "tarlink/frame.h"
#include "tarlink/gencfg.h"
#include "tarlink/if_replies.h"
#include "tarlink/ifcache.h"
#include "tarlink/ifd.h"
#include "tarlink/iff.h"
#include "tarlink/ifl.h"
#include "tarlink/ifname.h"
#include "tarlink/ifstate.h"
#include "tarlink/io.h"
#include "tarlink/memory.h"
#include "tarlink/msg_list.h"
#include "tarlink/pfe.h"
#include "tarlink/rnh.h"
#include "tarlink/rnh_stats.h"
#include "tarlink/rt_stats.h"
#include "tarlink/rtb.h"
#include "tarlink/rtm.h"
#include "tarlink/sadb.h"
#include "tarlink/services.h"
#include "tarlink/session.h"
#include "tarlink/tlk_stat.h"
#include "tarlink/unnum.h"

#endif /* TARLINK_H */
