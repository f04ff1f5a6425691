// tarsim/kernel.hpp - the simulated kernel's core.
//
// A Kernel installs itself behind libtarlink's platform seam.  Each routing socket that the
// library opens becomes one socketpair(AF_UNIX, SOCK_SEQPACKET): the library keeps a real,
// non-blocking descriptor (so select, poll and any event loop work unchanged), and the kernel
// keeps the other end.  A write on a session is handed to the kernel synchronously, so that the
// reply is queued before the write returns, as on the router.  Replies to raw requests carry the
// request's tlkh_seq.
//
// On the router a write is one system call, in which the kernel also takes the message.  Here
// the kernel takes it inside the seam, so that each write still enters the host kernel once, the
// simulator hands the same bytes to write(2) on /dev/null first: a program pays per write what it
// would pay on the router, and batching shows its worth in timings as it would there.
//
// This class is the core: the version reply, socket options, system controls, programmable
// responders, pushes of any bytes, notifications, bulk mode, fault injection, waits and a record
// of every message both ways.  The objects the kernel keeps are grouped by family, one facet
// each, reached through the accessors below (kernel.devices(), kernel.gencfg(), ...) and declared
// in a header of their own beside this one.  One Kernel is active at a time; it runs on the
// caller's thread.
//
// The exported functions take plain types (pointers and lengths, C strings); the overloads that
// take standard-library types are inline and forward to them.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "tarlink_platform.h"

#define TARSIM_EXPORT __attribute__((visibility("default")))

namespace tarsim {

using Bytes = std::vector<uint8_t>;

// One message as the kernel saw it cross the socket.
struct Recorded {
  int session;       // the library's descriptor of the session
  bool to_kernel;    // true: written by the library; false: queued by the kernel
  uint64_t when_ns;  // CLOCK_REALTIME
  Bytes bytes;
};

// A request handed to a responder.
struct Request {
  int session;                     // the library's descriptor of the session
  std::span<const uint8_t> bytes;  // the whole message as written
  uint8_t type;
  uint8_t op;
  uint32_t seq;
};

// The body of a "tlk-err" message (type TLK_MSG_TLK_ERR), behind its 24-byte header: the
// kernel's refusal of a request.
struct TlkErr {
  char function[32];
  uint32_t line;
  uint32_t seq_no;
  uint8_t rtm_type;
  uint8_t rtm_op;
  uint16_t sender_id;
  uint32_t mproc_err;
  uint32_t final_err;
};

class Kernel;
class Devices;   // tarsim/devices.hpp
class Ifls;      // tarsim/ifl.hpp
class Gencfg;    // tarsim/gencfg.hpp
class Dfw;       // tarsim/dfw.hpp
class Iffs;      // tarsim/iff.hpp
class Ifas;      // tarsim/ifa.hpp
class Routes;    // tarsim/routes.hpp
class Nexthops;  // tarsim/rnh.hpp
// tarsim/dfw_stats.hpp
class DfwCounters;
// tarsim/rtb.hpp
class RouteTables;
class MulticastGroups;  // tarsim/mgroup.hpp
class StateLog;         // tarsim/ifstate.hpp
namespace internal {
class Core;
}

class GencfgStats;  // tarsim/gencfg.hpp
class NhStats;      // tarsim/nh_stats.hpp
class RtStats;      // tarsim/rt_stats.hpp

// tarsim/cos.hpp
class Cos;
// tarsim/chassis.hpp
class Chassis;
// tarsim/sa.hpp
class SecurityAssociations;
// tarsim/bridge.hpp
class Bridging;

// Answers a raw request; it calls Kernel::send (or reply_with_seq) as often as it likes.
using Responder = std::function<void(Kernel &, const Request &)>;
// Takes a framed (TLV or IDR) message written by a session.
using FrameHandler = std::function<void(Kernel &, int session, std::span<const uint8_t> frame)>;

// The plain forms of the two: a function, the context it is called with, and what releases the
// context when the kernel lets go of it (may be null).
using RawCallback = void (*)(void *context, Kernel &kernel, const Request &request);
using FrameCallback = void (*)(void *context, Kernel &kernel, int session, const uint8_t *frame,
                               size_t length);
using ReleaseCallback = void (*)(void *context);

// Builds a raw message: a 24-byte header (tlkh_msglen = 24 + body size, tlkh_fixedlen = 24)
// followed by the body; the version letter is the library's for the type unless given.
TARSIM_EXPORT Bytes raw_message(uint8_t type, uint8_t op, uint32_t seq, const void *body,
                                size_t body_length, uint8_t version);
inline Bytes raw_message(uint8_t type, uint8_t op, uint32_t seq, std::span<const uint8_t> body = {},
                         uint8_t version = 0) {
  return raw_message(type, op, seq, body.data(), body.size(), version);
}

class TARSIM_EXPORT Kernel {
 public:
  Kernel();   // installs itself behind the platform seam
  ~Kernel();  // closes what the sessions left open and puts the previous table back
  Kernel(const Kernel &) = delete;
  Kernel &operator=(const Kernel &) = delete;

  // --- Object families --------------------------------------------------------------------
  // Handles on the kernel's stores, valid while the kernel lives; through a const kernel, handles
  // that only read.
  Devices devices();    // physical devices, their counters, the product record
  Ifls ifls();          // logical interfaces
  Gencfg gencfg();      // generic configuration blobs
  Dfw dfw();            // firewall filter programs and heads
  Iffs iffs();          // protocol families of logical interfaces
  Ifas ifas();          // addresses of the families
  Routes routes();      // routes of every table, with longest-prefix match
  Nexthops nexthops();  // next hops, composites and reserved next hop indexes
  const Devices devices() const;
  const Ifls ifls() const;
  const Gencfg gencfg() const;
  const Iffs iffs() const;
  const Ifas ifas() const;
  const Routes routes() const;
  const Nexthops nexthops() const;
  // Firewall counters and the firewall log.
  DfwCounters dfw_counters();
  const DfwCounters dfw_counters() const;
  // Route tables and named table classes.
  RouteTables route_tables();
  const RouteTables route_tables() const;
  // Multicast groups of the route tables.
  MulticastGroups multicast_groups();
  const MulticastGroups multicast_groups() const;
  // The interface state log, the "ifstate" chain.
  StateLog state_log();

  // Statistics values kept beside the generic configuration blobs.
  GencfgStats gencfg_stats();
  const GencfgStats gencfg_stats() const;

  // Next hop statistics, route statistics and route class statistics.
  NhStats nh_stats();
  RtStats rt_stats();

  // Class-of-service objects and the collector PIC.
  Cos cos();
  const Cos cos() const;
  // Security associations, their counters and the public-key service.
  SecurityAssociations security_associations();
  const SecurityAssociations security_associations() const;
  // PICs, sampling instances, the synchronisation state, system statistics and fabrics.
  Chassis chassis();
  const Chassis chassis() const;
  // Bridge domains, their interfaces, spanning tree, VLANs, mesh groups, analyzers, MAC tables.
  Bridging bridging();
  const Bridging bridging() const;

  // --- Version negotiation ----------------------------------------------------------------
  // What the library expects: count 110, interface version 98, then one byte per type 1..109.
  static Bytes default_version_reply();
  void set_version_reply(const void *reply, size_t length);
  void set_version_reply(const Bytes &reply) { set_version_reply(reply.data(), reply.size()); }
  const Bytes &version_reply() const;

  // --- System controls --------------------------------------------------------------------
  // A value set here is what a read gets (and a write replaces), by name or by number; it
  // takes the place of any value that a family computes for the same control.
  void set_sysctl(const char *name, const void *value, size_t length);
  void set_sysctl(const int *mib, size_t count, const void *value, size_t length);
  void set_sysctl_u32(const char *name, uint32_t value);
  void erase_sysctl(const char *name);
  void set_sysctl(const std::string &name, Bytes value) {
    set_sysctl(name.c_str(), value.data(), value.size());
  }
  void set_sysctl(const std::vector<int> &mib, Bytes value) {
    set_sysctl(mib.data(), mib.size(), value.data(), value.size());
  }
  void set_sysctl_u32(const std::string &name, uint32_t value) {
    set_sysctl_u32(name.c_str(), value);
  }
  void erase_sysctl(const std::string &name) { erase_sysctl(name.c_str()); }

  // --- Sessions ---------------------------------------------------------------------------
  std::vector<int> sessions() const;
  bool has_session(int fd) const;
  // The last value the session set for an option (level TLK_SOL_ROUTE, or SOL_SOCKET for the
  // two buffer sizes), or nothing if it never set it.
  std::optional<Bytes> option(int fd, int level, int name) const;
  std::optional<uint32_t> option_u32(int fd, int level, int name) const;
  // Next sequence number of the session's notification stream (what option 3 reads).
  void set_async_seq(int fd, uint32_t seq);
  uint32_t async_seq(int fd) const;
  // Requests the session has written, and messages queued to it.
  uint64_t requests(int fd) const;
  uint64_t replies(int fd) const;

  // --- Responders -------------------------------------------------------------------------
  // Raw requests are answered by (type, op).  A responder set here takes the place of the
  // answer of the family that keeps the type, if any; without either a request draws no reply.
  // A null `call` makes requests of (type, op) draw no reply at all.
  void on_raw(uint8_t type, uint8_t op, RawCallback call, void *context, ReleaseCallback release);
  void on_raw(uint8_t type, uint8_t op, Responder responder) {
    if (!responder) return on_raw(type, op, nullptr, nullptr, nullptr);
    on_raw(
        type, op,
        [](void *c, Kernel &k, const Request &r) { (*static_cast<Responder *>(c))(k, r); },
        new Responder(std::move(responder)), [](void *c) { delete static_cast<Responder *>(c); });
  }
  // One reply, seq copied.
  void reply_raw(uint8_t type, uint8_t op, const void *reply, size_t length);
  void reply_raw(uint8_t type, uint8_t op, const Bytes &reply) {
    reply_raw(type, op, reply.data(), reply.size());
  }
  void reply_raw_many(uint8_t type, uint8_t op, std::vector<Bytes> replies) {
    on_raw(type, op, [replies = std::move(replies)](Kernel &k, const Request &req) {
      for (const Bytes &r : replies) k.reply_with_seq(req.session, r, req.seq);
    });
  }
  void no_reply(uint8_t type, uint8_t op);
  // Framed requests go to `call` instead of the families; a null `call` gives them back.
  void on_frame(FrameCallback call, void *context, ReleaseCallback release);
  void on_frame(FrameHandler handler) {
    if (!handler) return on_frame(nullptr, nullptr, nullptr);
    on_frame(
        [](void *c, Kernel &k, int fd, const uint8_t *frame, size_t length) {
          (*static_cast<FrameHandler *>(c))(k, fd, {frame, length});
        },
        new FrameHandler(std::move(handler)),
        [](void *c) { delete static_cast<FrameHandler *>(c); });
  }

  // --- Delivery ---------------------------------------------------------------------------
  // Queues bytes to a session exactly as given (faults of the next reply applied).  False if the
  // session is unknown or its receive queue is full.
  bool send(int fd, const void *bytes, size_t length);
  bool send(int fd, std::span<const uint8_t> bytes) { return send(fd, bytes.data(), bytes.size()); }
  // Queues a raw reply after storing `seq` in its tlkh_seq word.
  bool reply_with_seq(int fd, const void *bytes, size_t length, uint32_t seq);
  bool reply_with_seq(int fd, std::span<const uint8_t> bytes, uint32_t seq) {
    return reply_with_seq(fd, bytes.data(), bytes.size(), seq);
  }
  // Queues bytes without applying any fault: a push is what a test asked for to the byte.
  bool push(int fd, const void *bytes, size_t length);
  bool push(int fd, std::span<const uint8_t> bytes) { return push(fd, bytes.data(), bytes.size()); }
  // Takes whatever a client wrote straight onto its descriptor, bypassing the seam.
  void pump();

  // --- Notifications ----------------------------------------------------------------------
  // Each session has its own notification stream.  A notification goes to a session when the
  // session's listen mask holds any bit under which its type is sent (tlk_async_listen_bits);
  // types sent under no bit (for example 22, 99, 85) and types the table doesn't know reach nobody
  // this way, only through notify_session.  The listen mask is the last one the session set with
  // option 1, or, when the session set a filter record (option 10) since then, the filter's mask
  // less the bits the filter drops.  A subtype mask (option 9) for listen bit 35 ("async opaque")
  // is honoured on raw messages of type 79: the byte at offset 24 must name a set bit (bit i is
  // byte 1 + i / 8, bit i % 8).  Other subtype masks are recorded and read back only.
  //
  // Raw notifications get the session's next sequence number in tlkh_seq; frames are sent as
  // given.  Either kind advances the session's sequence (what option 3 reads), since the library
  // counts both.  Notifications are queued per session and sent by flush(): with mode bit 0
  // (option 7) as many as fit in the session's receive buffer go into one read, with mode bit
  // 0x400 or without bit 0 each goes alone.  With auto flush on (the default) every notify call
  // and every write that makes notifications flushes before returning.
  //
  // Changes: a raw add, change, delete or deleteall (ops 1, 2, 3, 7) written by a session is
  // sent, as written, as a notification to every other listening session.  The writer does not
  // hear its own change: it has the reply.
  //
  // Queues `bytes` to every listening session (except `except_fd`); the number of sessions.
  size_t notify(uint8_t type, const void *bytes, size_t length, int except_fd);
  size_t notify(uint8_t type, std::span<const uint8_t> bytes, int except_fd = -1) {
    return notify(type, bytes.data(), bytes.size(), except_fd);
  }
  // Whether any session (but `except_fd`) listens for `type`: a change nobody hears need not be
  // encoded.
  bool has_listener(uint8_t type, int except_fd = -1) const;
  // Queues `bytes` to one session, whatever it listens to.  False for an unknown session.
  bool notify_session(int fd, const void *bytes, size_t length);
  bool notify_session(int fd, std::span<const uint8_t> bytes) {
    return notify_session(fd, bytes.data(), bytes.size());
  }
  // Sends what is queued; the number of messages sent.  What doesn't fit in the session's socket
  // stays queued for the next flush.
  size_t flush();
  void set_auto_flush(bool on);
  size_t queued(int fd) const;
  // Makes a gap: the session's next notification number jumps by `count`.
  void skip_notify_seq(int fd, uint32_t count);
  // Notifications sent to the session, and reads they took.
  uint64_t notifications(int fd) const;
  uint64_t notify_reads(int fd) const;
  // The listen mask in force for the session, low word first.
  std::pair<uint32_t, uint32_t> listen_mask(int fd) const;

  // --- Bulk mode --------------------------------------------------------------------------
  // A session that set sync mode bit 0 (option 24) writes batches: the kernel takes the frames
  // and raw messages of one write in order, as if each were written alone, and queues their
  // replies packed into blocks of at most the session's receive size (SO_RCVBUF as set, 512 KiB
  // after connecting), one block per read.  Option 25 then reads {error, messages taken, 0}.
  // A block that this host's socket can't carry (AF_UNIX buffers are capped by
  // net.core.wmem_max unless the process may force them) is split at a frame boundary, so the
  // reads may be more than the receive size implies, never fewer; tests count on neither.
  //
  // Writes, library reads and packed reply blocks of a session so far.
  uint64_t writes(int fd) const;
  uint64_t reads(int fd) const;
  uint64_t reply_blocks(int fd) const;
  // The next bulk write takes `after` messages, then fails with `err`; option 25 reports `err`,
  // or 0 with report_err false (the library then keeps the write's errno).
  void inject_bulk_stop(unsigned after, int err, bool report_err = true);
  // The replies of the next bulk write get one copy of their last reply more, or lose it.
  void inject_bulk_reply_extra();
  void inject_bulk_reply_missing();

  // Time spent taking writes (decoding, answering, queueing replies), while timing is on: the
  // simulated kernel's share of a run, for benchmarks.
  void set_timing(bool on);
  bool timing() const;
  uint64_t busy_ns() const;

  // --- Faults -----------------------------------------------------------------------------
  void fail_socket(int err);                       // the next socket() fails
  void fail_fcntl(int cmd, int err);               // the next fcntl(cmd) fails
  void fail_option(int level, int name, int err);  // every get and set of it fails
  void clear_option_failure(int level, int name);
  void inject_write_errno(int err);                     // the next write fails
  void inject_short_write(size_t count);                // the next write takes `count` bytes
                                                        // (in bulk: the messages within them)
  void inject_read_errno(int err, unsigned after = 0);  // a read fails after `after` good ones
  void inject_reply_truncate(size_t bytes);             // the next reply is cut to `bytes`
  void inject_reply_extra(size_t bytes);                // the next reply has `bytes` more
  void inject_wrong_seq(uint32_t delta);                // the next reply's seq is off by delta
  void clear_faults();

  // --- Waits ------------------------------------------------------------------------------
  // The seam's select and usleep go through the kernel, which counts the waits of each session:
  // a select counts one for every session whose descriptor is in its read set; a usleep counts
  // one for every open session (the process sleeps on all it has asked for).
  //
  // hold_replies(fd, n): whatever is queued to the session from now on (replies, notifications,
  // bulk blocks, in order) is kept back until the session has waited n more times, and released
  // by the n-th wait, so that the select which makes it sees the descriptor readable.  While a
  // session's queue is held, a select on it and any usleep take no time: a select returns at
  // once (0 when nothing is readable, as if its timeout had passed), and a select without a
  // timeout takes the waits it needs to the release.  n = 0 releases what is held now.  False
  // for an unknown session.
  bool hold_replies(int fd, unsigned waits);
  uint64_t waits(int fd) const;  // waits counted for the session so far
  size_t held(int fd) const;     // messages (bulk: blocks) kept back now

  // --- Traffic record ---------------------------------------------------------------------
  void record(bool on);
  const std::vector<Recorded> &recorded() const;
  void clear_recorded();
  // Saves the record as a capture file (tarsim/capture.h), its start the time of the first
  // message (of the save, when nothing was recorded): 0, or the errno of the failure.
  int save_record(const char *path) const;
  int save_record(const std::string &path) const { return save_record(path.c_str()); }

 private:
  internal::Core *impl_;
};

}  // namespace tarsim
