// tlkctl's commands and the small printing helpers they share.
#pragma once

#include <stdint.h>
#include <stdio.h>

#include <span>
#include <string>
#include <vector>

#include "tarlink.h"

namespace tarsim {
class Kernel;
}

namespace tlkctl {

// A command: `tlkctl <name> [arguments]`.  A name of two words ("show devices") takes the
// first two arguments.  `run` gets the arguments after the name, the name's last word first.
struct Command {
  const char *name;
  const char *args;  // what follows the name in the usage text
  const char *help;
  int (*run)(int argc, char **argv);
  // Whether `run` answers "--help" (given as its only argument) with a usage of its own; for
  // the others main prints the row.
  bool own_help = false;
};
// A step of `tlkctl demo` that a family contributes: its title and what it shows, 0 if it went
// as it should.  `c` is the demo's first session.
struct DemoStep {
  const char *title;
  int (*run)(tarsim::Kernel &kernel, tarvik_cookie *c);
};

// ---- Commands, one row each in main.cc ----
int run_demo(int argc, char **argv);
// tlkctl monitor [--demo N] [--bulk] [--timestamp] [--save FILE]: prints notifications as they
// arrive, as trace lines.
int run_monitor(int argc, char **argv);
// tlkctl decode FILE [--full]: every message of a capture file as a trace line.
int run_decode(int argc, char **argv);
// tlkctl gencfg add|get|walk|delete ...: configuration blobs in the embedded kernel's store.
int run_gencfg(int argc, char **argv);
// tlkctl firewall add|show|counters ...: filters, their heads and counters.
int run_firewall(int argc, char **argv);
// tlkctl show devices: the simulated chassis in an aligned table.
int run_show_devices(int argc, char **argv);
// tlkctl show interfaces: logical interfaces with their families and addresses.
int run_show_interfaces(int argc, char **argv);
// tlkctl show addresses: every address, one a line.
int run_show_addresses(int argc, char **argv);
// tlkctl show tables: route tables, one a line.
int run_show_tables(int argc, char **argv);
// tlkctl table add NAME TID [inet|inet6]: adds a route table and lists them all.
int run_table(int argc, char **argv);
// tlkctl route add|delete|get|match <prefix> [nh N] [table T]: one route request.
int run_route(int argc, char **argv);
// tlkctl show routes [table]: a table's routes in prefix order, inet then inet6.
int run_show_routes(int argc, char **argv);
// tlkctl show nexthops: the next hop table, aligned.
int run_show_nexthops(int argc, char **argv);
// tlkctl nexthop add service|add interface|delete ...: one change, then the table.
int run_nexthop(int argc, char **argv);
// tlkctl sim fault|stats: faults and state of a running tarsimd.
int run_sim(int argc, char **argv);
// tlkctl show statelog [--follow]: the interface state log, record by record.
int run_show_statelog(int argc, char **argv);
// tlkctl ifindex NAME / ifname INDEX: a logical interface's index by name, and name by index.
int run_ifindex(int argc, char **argv);
int run_ifname(int argc, char **argv);
// tlkctl show cos: forwarding classes, policers, shapers, classifiers, rewrites, fragment maps.
int run_show_cos(int argc, char **argv);
// tlkctl show sa [name]: security associations, or one by name with its trace line.
int run_show_sa(int argc, char **argv);
// tlkctl show bridges / show vlans / show macs [bd]: bridging objects, aligned (bridge.cc).
int run_show_bridges(int argc, char **argv);
int run_show_vlans(int argc, char **argv);
int run_show_macs(int argc, char **argv);

// tlkctl raw TYPE OP [HEXBYTES]: one request of any type, the answer as its trace line.
int run_raw(int argc, char **argv);
// tlkctl show pics: the PICs by slot and port.
int run_show_pics(int argc, char **argv);

// Misuse of command `name`: its usage line from the table on stderr; returns 2.
int usage_error(const char *name);

// ---- Trace lines and capture files (trace.cc, decode.cc) ----
// The trace line of one message: a frame is decoded through the library's envelope and shown by
// its record, anything else by its raw header; `full` adds the header's other fields and the
// bytes, on lines of their own.  `bytes` may be a raw record in memory (then `len` is at least
// the 24-byte header).
std::string trace_line(const uint8_t *bytes, size_t len, bool full);
// The length of the message at the start of `rest` (a frame or a raw message), 0 when no whole
// message stands there.  A packed read holds several back to back.
size_t message_length(const uint8_t *rest, size_t left);
// The line of trace_line, appended to `out`: what a loop over many messages uses, reusing one string.
void append_trace_line(std::string &out, const uint8_t *bytes, size_t len, bool full);

struct DecodeOptions {
  bool full = false;
  uint64_t max_lines = UINT64_MAX;  // messages printed; the rest are only counted
};
struct DecodeResult {
  uint64_t records = 0;   // capture records read
  uint64_t messages = 0;  // messages in them (a packed read holds several)
  std::string error;      // the reader's one line when the capture is damaged or not one
};
// Decodes a capture held in memory, one line per message to `out`: the time since the capture's
// start, the session, the direction ("->" to the kernel, "<-" from it) and the trace line.  On
// damage, the messages before it are printed and `error` says what is wrong.
DecodeResult decode_capture(const uint8_t *data, size_t size, const DecodeOptions &options,
                            FILE *out);
// The whole file at `path`; false with `error` set ("strerror" text) when it can't be read.
bool read_whole_file(const char *path, std::vector<uint8_t> *bytes, std::string *error);

// ---- Demo steps of the families, one row each in demo.cc ----
// A second session hears a change that a first one makes; a third doesn't.
int demo_async(tarsim::Kernel &kernel, tarvik_cookie *c);
// The kernel takes a device's link down and a listening session hears it.
int demo_device_down(tarsim::Kernel &kernel, tarvik_cookie *c);
// An address added to a donor and deleted again reaches the unnumbered interface that borrows it.
int demo_unnumbered(tarsim::Kernel &kernel, tarvik_cookie *c);
// A filter's counters read, moved by the kernel, and read again.
int demo_firewall(tarsim::Kernel &kernel, tarvik_cookie *c);
// A large compressed blob stored and read back, sizes on the wire and after.
int demo_gencfg(tarsim::Kernel &kernel, tarvik_cookie *c);
// 100,000 objects in bulk and as many one by one, rates side by side.
int demo_bulk(tarsim::Kernel &kernel, tarvik_cookie *c);
// A route table created and read back by name.
int demo_tables(tarsim::Kernel &kernel, tarvik_cookie *c);
// A table of 100,000 routes programmed in bulk, then a few destinations resolved in it.
int demo_routes(tarsim::Kernel &kernel, tarvik_cookie *c);
// A service and an interface next hop added, a composite made of them, all read back.
int demo_nexthops(tarsim::Kernel &kernel, tarvik_cookie *c);
// The last records of the interface state log (statelog.cc).
int demo_statelog(tarsim::Kernel &kernel, tarvik_cookie *c);
// A bridge domain with attributes, a VLAN and two interfaces, then the domains (bridge.cc).
int demo_bridging(tarsim::Kernel &kernel, tarvik_cookie *c);

// `n` bytes of configuration-like text, the same every time: it compresses several times over.
std::vector<uint8_t> pattern_blob(size_t n);

// One notification on one line: "notify seq=N type=NAME(T) op=OP len=L".
void print_notification(FILE *out, const void *msg);
// A route notification's route on one line: "  route PREFIX table T type TYPE nh N".
void print_route(FILE *out, const void *msg);
// Writes one raw change (a header and 8 bytes of `tag`) with the session's next sequence number.
int write_change(tarvik_cookie *writer, uint8_t type, uint8_t op, uint8_t tag);
// Runs the session's own loop turn by turn until a turn brings nothing new for `*heard`.
int run_until_quiet(tarvik_cookie *cookie, const unsigned *heard);

// One line per memory identifier with any activity: allocations, failures, frees, outstanding.
void print_memory(FILE *out);
// Prints rows of cells as a table: every column but the last padded to its widest cell, two
// spaces between columns, column `right` (numbers), if given, aligned to the right.
inline constexpr size_t kNoRightColumn = SIZE_MAX;
void print_columns(const std::vector<std::vector<std::string>> &rows,
                   size_t right = kNoRightColumn);
// The fields of a raw message header on one line.
void print_raw_header(FILE *out, std::span<const uint8_t> msg);
// Diagnostics callback that prints each line indented, as the operator would see it in a log.
void print_diagnostic(tarvik_cookie *cookie, void *arg, int level, const char *text);

}  // namespace tlkctl
