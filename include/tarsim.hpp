// tarsim.hpp - an in-process simulated kernel for libtarlink.
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
// Tests and tools drive it through this class: the version reply, socket options, system
// controls, programmable responders, pushes of any bytes, fault injection and a record of every
// message both ways.  One Kernel is active at a time; it runs on the caller's thread.
#pragma once

#include <stdint.h>

#include <compare>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "tarlink_platform.h"

#define TARSIM_EXPORT __attribute__((visibility("default")))

struct tlk_msg;

namespace tarsim {

using Bytes = std::vector<uint8_t>;

// One message as the kernel saw it cross the socket.
struct Recorded {
  int session;        // the library's descriptor of the session
  bool to_kernel;     // true: written by the library; false: queued by the kernel
  uint64_t when_ns;   // CLOCK_REALTIME
  Bytes bytes;
};

// A request handed to a responder.
struct Request {
  int session;                      // the library's descriptor of the session
  std::span<const uint8_t> bytes;   // the whole message as written
  uint8_t type;
  uint8_t op;
  uint32_t seq;
};

class Kernel;
// Answers a raw request; it calls Kernel::send (or reply_with_seq) as often as it likes.
using Responder = std::function<void(Kernel &, const Request &)>;
// Takes a framed (TLV or IDR) message written by a session.
using FrameHandler = std::function<void(Kernel &, int session, std::span<const uint8_t> frame)>;

// Builds a raw message: a 24-byte header (tlkh_msglen = 24 + body size, tlkh_fixedlen = 24 unless
// given) followed by the body.
TARSIM_EXPORT Bytes raw_message(uint8_t type, uint8_t op, uint32_t seq, std::span<const uint8_t> body = {},
                  uint8_t version = 0);

class TARSIM_EXPORT Kernel {
 public:
  Kernel();   // installs itself behind the platform seam
  ~Kernel();  // closes what the sessions left open and puts the previous table back
  Kernel(const Kernel &) = delete;
  Kernel &operator=(const Kernel &) = delete;

  // --- Version negotiation ----------------------------------------------------------------
  // What the library expects: count 110, interface version 98, then one byte per type 1..109.
  static Bytes default_version_reply();
  void set_version_reply(Bytes reply);
  const Bytes &version_reply() const { return version_reply_; }

  // --- System controls --------------------------------------------------------------------
  void set_sysctl(const std::string &name, Bytes value);
  void set_sysctl_u32(const std::string &name, uint32_t value);
  void set_sysctl(const std::vector<int> &mib, Bytes value);
  void erase_sysctl(const std::string &name);

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
  // Raw requests are answered by (type, op).  Without a responder a request draws no reply,
  // except the built-in answer to a "tarlink stats" get (type 26, op 4): the session's counters,
  // four u32 words after the header (requests, replies, open sessions, dropped messages).
  void on_raw(uint8_t type, uint8_t op, Responder responder);
  void reply_raw(uint8_t type, uint8_t op, Bytes reply);          // one reply, seq copied
  void reply_raw_many(uint8_t type, uint8_t op, std::vector<Bytes> replies);
  void no_reply(uint8_t type, uint8_t op);
  void on_frame(FrameHandler handler);

  // --- Delivery ---------------------------------------------------------------------------
  // Queues bytes to a session exactly as given (faults of the next reply applied).  False if the
  // session is unknown or its receive queue is full.
  bool send(int fd, std::span<const uint8_t> bytes);
  // Queues a raw reply after storing `seq` in its tlkh_seq word.
  bool reply_with_seq(int fd, std::span<const uint8_t> bytes, uint32_t seq);
  // Queues bytes without applying any fault: a push is what a test asked for to the byte.
  bool push(int fd, std::span<const uint8_t> bytes);
  // Takes whatever a client wrote straight onto its descriptor, bypassing the seam.
  void pump();

  // --- Notifications (sim/notify.cc) -----------------------------------------------------
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
  size_t notify(uint8_t type, std::span<const uint8_t> bytes, int except_fd = -1);
  // Whether any session (but `except_fd`) listens for `type`: a change nobody hears need not be
  // encoded.
  bool has_listener(uint8_t type, int except_fd = -1) const;
  // Queues `bytes` to one session, whatever it listens to.  False for an unknown session.
  bool notify_session(int fd, std::span<const uint8_t> bytes);
  // Sends what is queued; the number of messages sent.  What doesn't fit in the session's socket
  // stays queued for the next flush.
  size_t flush();
  void set_auto_flush(bool on) { auto_flush_ = on; }
  size_t queued(int fd) const;
  // Makes a gap: the session's next notification number jumps by `count`.
  void skip_notify_seq(int fd, uint32_t count);
  // Notifications sent to the session, and reads they took.
  uint64_t notifications(int fd) const;
  uint64_t notify_reads(int fd) const;
  // The listen mask in force for the session, low word first.
  std::pair<uint32_t, uint32_t> listen_mask(int fd) const;
  // Hooks of the core: a write taken, an option set, a session gone.
  void notify_after_write(int fd, std::span<const uint8_t> bytes);
  void notify_option_set(int fd, int level, int name);
  void notify_forget(int fd);

  // --- Object store (sim/objects.cc) -------------------------------------------------------
  // Framed requests are decoded with the library's own codecs and answered in the encoding they
  // came in, unless on_frame() installed a handler of the test's own.  A get or getnext of a
  // logical interface (type 6) is answered from the store below, which starts with a small
  // chassis: ge0 units 0 and 100, ge1 unit 0, xe0 units 0 and 200, lo0 unit 0.
  // A key the store doesn't hold is refused with a raw "tlk-err" (type 109) whose body is a
  // TlkErr with final_err ENOENT; a client's framed read then gives EOPNOTSUPP, the answer
  // for "a raw message in hand".  A marker (type 102) with op get is sent back as it came.
  struct Ifl {
    uint32_t index = 0;
    uint32_t snmp_id = 0;
    uint16_t devidx = 0;
    uint32_t unit = 0;
    std::string device;  // the device part of the name, without the unit
    uint32_t flags = 0;
    uint32_t generation = 0;
    uint8_t lr = 0;
  };
  // The body of a "tlk-err" message, behind its 24-byte header.
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
  void add_ifl(const Ifl &ifl);
  void clear_ifls() { ifls_.clear(); }
  const std::vector<Ifl> &ifls() const { return ifls_; }
  const Ifl *find_ifl(uint32_t index) const;

  // --- Bulk mode (sim/bulk.cc) --------------------------------------------------------------
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
  void set_timing(bool on) { timing_ = on; }
  bool timing() const { return timing_; }
  uint64_t busy_ns() const { return busy_ns_; }
  void add_busy_ns(uint64_t ns) { busy_ns_ += ns; }

  // --- Generic configuration store (sim/gencfg.cc) ----------------------------------------
  // Blobs keyed by (major, minor, key), where the key is the request's byte key (flag 0x2), else
  // its numeric key (flag 0x1), else nothing (one blob per major and minor).  A blob is stored as
  // it arrives, compressed or not: the kernel never looks inside it.  Framed gencfg requests
  // (type 72) are answered in the encoding they came in:
  //   add, change            store (replacing what the key held), no reply
  //   delete                 remove, no reply
  //   get                    the stored blob
  //   getnext                the next blob of the same major and minor in key order; a request
  //                          with flag 0x2 and an empty key, or with no key flag, starts the walk
  //   add_get, chg_get       store, then reply with what is stored
  //   chg_get + 0x400000     bulk delete: every blob of the major and minor; the request echoed
  //   chg_get + 0x800000     delete every byte key of the major and minor that starts with the
  //                          request's key; the request echoed
  //   deleteall              every blob of the major and minor, no reply
  // A get, getnext or chg_get that finds nothing is refused with a raw "tlk-err" (ENOENT), which a
  // client's framed read reports as EOPNOTSUPP.  Every change that stores or removes a blob is
  // sent to every other session listening for "gencfg", as an IDR gencfg_msg of op add, change or
  // delete (one delete per blob removed); the writer does not hear its own change.
  struct GencfgKey {
    uint16_t major = 0;
    uint16_t minor = 0;
    uint8_t kind = 0;  // 0 none, 1 numeric, 2 bytes: the order of kinds within a major and minor
    uint32_t kid = 0;
    Bytes key;
    std::strong_ordering operator<=>(const GencfgKey &other) const;
    bool operator==(const GencfgKey &other) const = default;
  };
  struct GencfgDep {
    gencfg_depinfo info{};  // dep_key and dep_key_len are rebuilt from `key` when sent
    Bytes key;
  };
  struct GencfgEntry {
    GencfgKey id;
    uint32_t flags = 0;  // as the writer sent them
    uint16_t sub_id = 0;
    uint16_t tag = 0;
    uint8_t lrid = 0;
    Bytes blob;
    std::vector<gencfg_peerinfo> peers;
    std::vector<GencfgDep> deps;
  };
  static GencfgKey gencfg_bytes_key(uint16_t major, uint16_t minor, std::span<const uint8_t> key);
  static GencfgKey gencfg_numeric_key(uint16_t major, uint16_t minor, uint32_t kid);
  const GencfgEntry *find_gencfg(const GencfgKey &key) const;
  const std::map<GencfgKey, GencfgEntry> &gencfg_store() const { return gencfg_; }
  void clear_gencfg() { gencfg_.clear(); }
  // A change made by the kernel itself: op add or change stores `entry`, op delete removes its
  // key; either way every listening session hears it.  The number of sessions reached.
  size_t gencfg_change(uint8_t op, const GencfgEntry &entry);
  // --- Devices (sim/devices.cc) -------------------------------------------------------------
  // Devices start as a small chassis: mgmt0 (1), lo0 (6), ge0 to ge3 (130 to 133),
  // xe0 and xe1 (140, 141), et0 (150), ae0 and ae1 (160, 161), sonet0 (170), each
  // with a media record, a hardware address (not lo0) and, on some, an IPv4 address.  A framed
  // device request (type 5) is answered from this store:
  // - a get or getnext by index (getnext: the next index), by SNMP id or by name; an unknown key
  //   draws the raw "tlk-err" of the logical interfaces;
  // - an add (op 1) of a free index creates the device from the request (name, flags, media kind
  //   and MTU, addresses);
  // - a change (op 2) takes the request's flags and device flags (and with ifdm_dinfotype 1 the
  //   addresses it carries), or with ifdm_change 0x2000 and bit 0 of ifdm_point_mask ORs
  //   ifdm_point_flags into the flags.
  // Adds and changes draw no reply: they move the device's generation on and are sent as "ifdev"
  // notifications (IDR) to every other listening session.  The system control
  // { 4, 17, 0, 0, 3, 1 } reads every device as IDR frames back to back (unless set_sysctl
  // installed a value of its own).  The media kind travels in the media record's first field.
  enum MediaKind : uint16_t {
    kMediaEthernet = 1,
    kMediaSonet = 2,
    kMediaAggregate = 3,
    kMediaLoopback = 4
  };
  struct Device {
    uint16_t index = 0;
    uint32_t snmp_id = 0;
    std::string name;
    uint32_t flags = 0;  // IFF_UP (0x1) and friends
    uint16_t devflags = 0;
    uint32_t generation = 1;
    uint16_t media = kMediaEthernet;
    uint32_t mtu = 1514;
    std::array<uint8_t, 6> mac{};  // all zero: no hardware address
    uint32_t inet = 0;             // IPv4 address in host order, 0 for none
    uint64_t in_packets = 0, out_packets = 0;
    uint32_t alarms = 0;
  };
  void add_device(const Device &d);
  void clear_devices() { devices_.clear(); }
  const std::vector<Device> &devices() const { return devices_; }
  const Device *find_device(uint16_t index) const;
  const Device *find_device(const std::string &name) const;
  // Changes a device as the kernel would on its own (a link going down, a flag set by another
  // agent): the flags change, the generation moves on, and every listening session hears it.
  // False for an unknown device.
  bool change_device_flags(uint16_t index, uint32_t set, uint32_t clear);
  bool set_link(const std::string &name, bool up);
  // Raw device requests: "ifdstats" (type 15) get or getnext by index (offset 26) or by name
  // (offset 72) is answered with the request's 72 bytes, the whole length made 88, and the
  // device's input and output packet counts as two u64; a clear (op 6) zeroes them, without a
  // reply.  With reply flag 128 or 64 in stat_flags (offset 58) the answer comes as a
  // notification to the asking session instead, stat_flags and caller's cookie kept.
  // "ifdalarm" (type 20) get by index (offset 24) or name (offset 48) is answered with the
  // request's 48 bytes and the device's alarm word.  Unknown devices draw the "tlk-err".
  bool set_device_counters(uint16_t index, uint64_t in, uint64_t out, uint32_t alarms);
  // The product record the platform reports (model number in its second u16), none with
  // nullopt; the default is model 2.  And whether the platform is of the variant family.
  void set_product_model(std::optional<uint16_t> model);
  void set_platform_varn(bool on) { varn_ = on; }
  const void *product_record() const { return product_ ? product_->data() : nullptr; }
  bool platform_varn() const { return varn_; }
  // Device replies go out in TLV with every field present, whatever the request's encoding.
  void set_device_replies_tlv(bool on) { device_tlv_ = on; }
  // One device as the kernel sends it: a frame of an ifdev_msg with `op` and `seq`.
  Bytes device_frame(const Device &d, uint8_t op, uint32_t seq, bool tlv) const;

  // --- Faults -----------------------------------------------------------------------------
  void fail_socket(int err);                              // the next socket() fails
  void fail_fcntl(int cmd, int err);                      // the next fcntl(cmd) fails
  void fail_option(int level, int name, int err);         // every get and set of it fails
  void clear_option_failure(int level, int name);
  void inject_write_errno(int err);                       // the next write fails
  void inject_short_write(size_t count);                  // the next write takes `count` bytes
                                                          // (in bulk: the messages within them)
  void inject_read_errno(int err, unsigned after = 0);    // a read fails after `after` good ones
  void inject_reply_truncate(size_t bytes);               // the next reply is cut to `bytes`
  void inject_reply_extra(size_t bytes);                  // the next reply has `bytes` more
  void inject_wrong_seq(uint32_t delta);                  // the next reply's seq is off by delta
  void clear_faults();

  // --- Traffic record ---------------------------------------------------------------------
  void record(bool on) { recording_ = on; }
  const std::vector<Recorded> &recorded() const { return recorded_; }
  void clear_recorded() { recorded_.clear(); }

  // The seam's entry points; public for the table only.
  struct Session;
  Session *find(int fd) const;
  ssize_t take_write(Session &s, const uint8_t *buf, size_t len);
  int get_option(Session &s, int level, int name, void *value, socklen_t *len);
  int set_option(Session &s, int level, int name, const void *value, socklen_t len);
  int open_session();
  void close_session(int fd);
  ssize_t read_session(Session &s, void *buf, size_t len);
  int fcntl_fault(int cmd);
  int sysctl_by_name(const char *name, void *oldp, size_t *oldlenp, const void *newp, size_t newlen);
  int sysctl_by_mib(const int *mib, unsigned len, void *oldp, size_t *oldlenp, const void *newp,
                    size_t newlen);
  const tlk_platform &previous() const { return previous_; }
  void charge_system_call(const void *buf, size_t len);

 private:
  bool deliver(Session &s, std::span<const uint8_t> bytes, bool apply_faults);
  void answer_builtin(Session &s, const Request &req);
  void take_message(Session &s, std::span<const uint8_t> msg);
  bool bulk_mode(const Session &s) const;
  ssize_t take_bulk_write(Session &s, const uint8_t *buf, size_t len);
  void send_packed(Session &s, std::vector<Bytes> &replies);
  bool send_block(Session &s, std::span<const uint8_t> block);
  void seed_default_objects();
  void answer_frame(Session &s, std::span<const uint8_t> frame);
  void answer_not_found(Session &s, uint8_t type, uint8_t op, uint32_t seq,
                        const char *function = "ifl_get");
  const Ifl *lookup_ifl(const ifl_msg &req) const;
  std::vector<Ifl> ifls_;
  void answer_gencfg(Session &s, const gencfg_msg &req, bool tlv);
  void gencfg_notify(uint8_t op, const GencfgEntry &entry, int except_fd);
  std::map<GencfgKey, GencfgEntry> gencfg_;
  void seed_default_devices();
  void answer_device(Session &s, const tlk_msg &choice, bool request_tlv);
  void device_changed(const Device &d, int except_fd);
  Bytes device_list() const;
  std::vector<Device> devices_;
  bool device_tlv_ = false;
  bool answer_device_raw(Session &s, const Request &req);
  std::optional<std::array<uint16_t, 2>> product_ = std::array<uint16_t, 2>{0, 2};
  bool varn_ = false;
  void note(int fd, bool to_kernel, std::span<const uint8_t> bytes);

  tlk_platform previous_{};
  int null_fd_ = -1;  // where each write's system call goes
  Bytes version_reply_;
  std::map<std::string, Bytes> sysctl_names_;
  std::map<std::vector<int>, Bytes> sysctl_mibs_;
  std::vector<std::unique_ptr<Session>> by_fd_;
  std::map<uint16_t, Responder> responders_;
  FrameHandler frame_handler_;
  std::map<std::pair<int, int>, int> option_faults_;
  std::map<int, int> fcntl_faults_;
  int socket_fault_ = 0;
  int write_errno_ = 0;
  std::optional<size_t> short_write_;
  int read_errno_ = 0;
  unsigned read_errno_after_ = 0;
  std::optional<size_t> reply_truncate_;
  std::optional<size_t> reply_extra_;
  std::optional<uint32_t> wrong_seq_;
  struct BulkStop {
    unsigned after;
    int err;
    bool report_err;
  };
  std::optional<BulkStop> bulk_stop_;
  int bulk_reply_fault_ = 0;  // +1: one reply too many, -1: one too few
  bool timing_ = false;
  uint64_t busy_ns_ = 0;
  struct NotifyState {
    std::vector<Bytes> queue;    // waiting for flush
    uint64_t listen_stamp = 0;   // when option 1 was last set (0: never)
    uint64_t filter_stamp = 0;   // when option 10 was last set
    uint64_t sent = 0;
    uint64_t reads = 0;
  };
  std::map<int, NotifyState> notify_;
  uint64_t option_clock_ = 0;
  bool auto_flush_ = true;
  bool recording_ = false;
  std::vector<Recorded> recorded_;
  Bytes scratch_;
};

}  // namespace tarsim
