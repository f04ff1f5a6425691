// tlkctl: shows libtarlink at work against the embedded simulated kernel.
#include <stdio.h>
#include <string.h>

#include <string>

#include "commands.h"
#include "socket_path.h"
#include "tarsim.h"

namespace {

constexpr tlkctl::Command kCommands[] = {
    {"demo", "",
     "open a session, negotiate versions, exchange requests and replies, hear\n"
     "notifications, store blobs, batch, show the memory accounting, close in order",
     tlkctl::run_demo},
    {"monitor", "[--demo N] [--bulk] [--timestamp] [--save FILE]",
     "print notifications as they arrive, one trace line each behind the session's label;\n"
     "--demo N: a second session makes N changes; --timestamp: each line starts with the time\n"
     "it was heard; --save FILE: also write what is heard to a capture file",
     tlkctl::run_monitor},
    {"decode", "FILE [--full]",
     "print every message of a capture file (from 'monitor --save' or the simulated kernel's\n"
     "record) as a trace line: time since the start, session, direction; --full adds the\n"
     "header's fields and the bytes",
     tlkctl::run_decode},
    {"gencfg", "add|get|walk|delete ...",
     "configuration blobs (zlib with --compress); 'tlkctl gencfg --help' for the details",
     tlkctl::run_gencfg, true},
    {"firewall", "add FILE|show|counters [FILTER] [--clear] [-- ...]",
     "firewall filters: program one from a text file, list them with their hash, read or\n"
     "clear counters; 'tlkctl firewall --help' for the details",
     tlkctl::run_firewall, true},
    {"show devices", "", "list the simulated chassis: name, index, flags, media kind, addresses",
     tlkctl::run_show_devices},
    {"show interfaces", "",
     "list the logical interfaces with their families and addresses (and the donor of an\n"
     "unnumbered one)",
     tlkctl::run_show_interfaces},
    {"show addresses", "", "list every address: interface, index, family, address",
     tlkctl::run_show_addresses},
    {"show tables", "", "list the route tables: id, family, name, logical router, flags",
     tlkctl::run_show_tables},
    {"table", "add NAME TID [inet|inet6]", "add a route table, then list them all",
     tlkctl::run_table},
    {"route", "add|delete|get <prefix>/<len> [nh <idx>] [table <tid>] | match <address>",
     "add, delete or read one route; resolve an address to its longest matching route",
     tlkctl::run_route},
    {"show routes", "[table]",
     "list a table's routes (0 unless given): prefix, type, next hop, interface, flags",
     tlkctl::run_show_routes},
    {"show nexthops", "", "list the next hops: index, type, family, interface, flags, detail",
     tlkctl::run_show_nexthops},
    {"nexthop", "add service NAME IFL [IFL...]|add interface IFL|delete INDEX",
     "add a service or interface next hop, or delete one, then list the next hops",
     tlkctl::run_nexthop},
    {"sim", "fault KIND [ARG...]|stats",
     "against a running tarsimd: arm a fault of the simulated kernel (clear, socket ERR,\n"
     "fcntl CMD ERR, option LEVEL NAME ERR, clear-option LEVEL NAME, write-errno ERR,\n"
     "short-write N, read-errno ERR [AFTER], reply-truncate N, reply-extra N, wrong-seq D,\n"
     "bulk-stop N ERR), or print what the daemon holds",
     tlkctl::run_sim},
    {"show statelog", "[--follow]",
     "the kernel changes a device and removes a unit, then the interface state log is read\n"
     "record by record and printed with its object records; --follow: heard as notifications\n"
     "up to the end of the chain",
     tlkctl::run_show_statelog},
    {"ifindex", "NAME", "the index of a logical interface by its name (device.unit)",
     tlkctl::run_ifindex},
    {"ifname", "INDEX", "the name (device.unit) of a logical interface by its index",
     tlkctl::run_ifname},
    {"show cos", "",
     "list the class-of-service objects: forwarding classes, policers and shapers with their\n"
     "rates, classifiers, rewrite rules and fragmentation maps with their interfaces",
     tlkctl::run_show_cos},
    {"show pics", "", "list the PICs by slot and port with their type, id and flags",
     tlkctl::run_show_pics},
    {"raw", "TYPE OP [HEXBYTES]",
     "send one request of message type TYPE and op OP (a zeroed frame if the type has a record\n"
     "and no HEXBYTES are given, else a raw message with HEXBYTES behind its 24-byte header)\n"
     "and print each answer as its trace line",
     tlkctl::run_raw},
    {"show sa", "[name]",
     "list the security associations (index, name, SPI, direction, protocol, interface), or\n"
     "one by name with its trace line",
     tlkctl::run_show_sa},
    {"show bridges", "",
     "list the bridge domains: index, name, tag, VLAN, MAC limit, interfaces, attributes",
     tlkctl::run_show_bridges},
    {"show vlans", "", "list the VLANs: index, name, tag, bridge domain, layer 3 interface",
     tlkctl::run_show_vlans},
    {"show macs", "[bd]",
     "list the MAC table of every bridge domain, or of one by index or name: domain, MAC,\n"
     "VLAN, interface, flags",
     tlkctl::run_show_macs},
};

// A command's row: its name and arguments, then its help text indented a line at a time.
void describe(FILE *out, const tlkctl::Command &c, const char *indent) {
  fprintf(out, "%s%s%s\n", c.name, *c.args ? " " : "", c.args);
  for (const char *line = c.help; *line != '\0';) {
    const char *end = strchr(line, '\n');
    const int n = end ? static_cast<int>(end - line) : static_cast<int>(strlen(line));
    fprintf(out, "%s%.*s\n", indent, n, line);
    line += n + (end ? 1 : 0);
  }
}

void usage(FILE *out) {
  fputs(
      "usage: tlkctl <command> [arguments]\n"
      "       tlkctl --kernel PATH <command> [arguments]\n\n"
      "Commands run against the tarsimd at PATH, or at its default path when one listens\n"
      "there, and otherwise against the embedded simulated kernel (demo and decode always):\n",
      out);
  for (const tlkctl::Command &c : kCommands) {
    fputs("  ", out);
    describe(out, c, "      ");
  }
  fputs("  help\n      this text (also -h, --help; '<command> --help' for one command)\n", out);
}

void command_usage(FILE *out, const tlkctl::Command &c) {
  fputs("usage: tlkctl ", out);
  describe(out, c, "  ");
}

bool is_help(const char *arg) {
  return strcmp(arg, "--help") == 0 || strcmp(arg, "-h") == 0;
}

// Whether the command line names `c`: its one word, or its two words in the first two arguments.
bool names(const tlkctl::Command &c, int argc, char **argv) {
  const char *space = strchr(c.name, ' ');
  if (space == nullptr) return strcmp(c.name, argv[1]) == 0;
  const size_t first = static_cast<size_t>(space - c.name);
  return strlen(argv[1]) == first && strncmp(c.name, argv[1], first) == 0 && argc > 2 &&
         strcmp(space + 1, argv[2]) == 0;
}

}  // namespace

int tlkctl::usage_error(const char *name) {
  for (const tlkctl::Command &c : kCommands) {
    if (strcmp(c.name, name) == 0) command_usage(stderr, c);
  }
  return 2;
}

int main(int argc, char **argv) {
  // --kernel PATH names a running tarsimd; without it, one at the default path is used if it is
  // there.  The demo and decode keep to the embedded kernel.
  const bool named = argc > 2 && strcmp(argv[1], "--kernel") == 0;
  const std::string kernel = named ? argv[2] : tarsimd::default_socket_path();
  if (named) {
    argv[2] = argv[0];
    argv += 2;
    argc -= 2;
  }
  const bool embedded_only =
      argc >= 2 && (strcmp(argv[1], "demo") == 0 || strcmp(argv[1], "decode") == 0);
  if (argc >= 2 && !embedded_only && tarsim_connect(kernel.c_str()) != 0 && named) {
    fprintf(stderr, "tlkctl: no simulated kernel at %s\n", kernel.c_str());
    return 1;
  }
  if (argc < 2) {
    usage(stderr);
    return 2;
  }
  const char *name = argv[1];
  if (strcmp(name, "help") == 0 || strcmp(name, "-h") == 0 || strcmp(name, "--help") == 0) {
    usage(stdout);
    return 0;
  }
  for (const tlkctl::Command &c : kCommands) {
    if (!names(c, argc, argv)) continue;
    const int words = strchr(c.name, ' ') ? 2 : 1;
    // Every command answers --help, anywhere among its arguments, on stdout.
    for (int i = words + 1; i < argc; ++i) {
      if (!is_help(argv[i])) continue;
      if (c.own_help) {
        char help[] = "--help";
        char *own[] = {argv[words], help, nullptr};
        return c.run(2, own);
      }
      command_usage(stdout, c);
      return 0;
    }
    // A command that takes no arguments given some.
    if (*c.args == '\0' && argc > words + 1) {
      command_usage(stderr, c);
      return 2;
    }
    return c.run(argc - words, argv + words);
  }
  // A first word of two-word commands without (or with an unknown) second word; with --help,
  // the usage of each of them.
  const bool help = argc > 2 && is_help(argv[2]);
  bool listed = false;
  for (const tlkctl::Command &c : kCommands) {
    const char *space = strchr(c.name, ' ');
    if (space == nullptr || strncmp(c.name, name, static_cast<size_t>(space - c.name)) != 0 ||
        name[space - c.name] != '\0') {
      continue;
    }
    if (help) {
      command_usage(stdout, c);
      listed = true;
      continue;
    }
    if (!listed) fprintf(stderr, "tlkctl: '%s' takes one of:", name);
    fprintf(stderr, " %s", space + 1);
    listed = true;
  }
  if (listed && help) return 0;
  if (listed) {
    fputc('\n', stderr);
  } else {
    fprintf(stderr, "tlkctl: unknown command '%s' (try 'tlkctl --help')\n", name);
  }
  return 2;
}
