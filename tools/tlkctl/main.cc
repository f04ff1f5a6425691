// tlkctl: shows libtarlink at work against the embedded simulated kernel.
#include <stdio.h>
#include <string.h>

#include "commands.h"

namespace {

constexpr tlkctl::Command kCommands[] = {
    {"demo", "",
     "open a session, negotiate versions, exchange requests and replies, hear\n"
     "notifications, store blobs, batch, show the memory accounting, close in order",
     tlkctl::run_demo},
    {"monitor", "[--demo N] [--bulk]",
     "print notifications as they arrive; --demo N: a second session makes N changes",
     tlkctl::run_monitor},
    {"gencfg", "add|get|walk|delete ...",
     "configuration blobs (zlib with --compress); 'tlkctl gencfg --help' for the details",
     tlkctl::run_gencfg},
    {"firewall", "add FILE|show|counters [FILTER] [--clear] [-- ...]",
     "firewall filters: program one from a text file, list them with their hash, read or\n"
     "clear counters; 'tlkctl firewall --help' for the details",
     tlkctl::run_firewall},
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
};

void usage(FILE *out) {
  fputs(
      "usage: tlkctl <command> [arguments]\n\n"
      "Commands (all run against the embedded simulated kernel):\n",
      out);
  for (const tlkctl::Command &c : kCommands) {
    fprintf(out, "  %s%s%s\n", c.name, *c.args ? " " : "", c.args);
    // The help text, indented, a line at a time.
    for (const char *line = c.help; *line != '\0';) {
      const char *end = strchr(line, '\n');
      const int n = end ? static_cast<int>(end - line) : static_cast<int>(strlen(line));
      fprintf(out, "      %.*s\n", n, line);
      line += n + (end ? 1 : 0);
    }
  }
  fputs("  help\n      this text (also -h, --help)\n", out);
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

int main(int argc, char **argv) {
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
    return c.run(argc - words, argv + words);
  }
  // A first word of two-word commands without (or with an unknown) second word.
  bool listed = false;
  for (const tlkctl::Command &c : kCommands) {
    const char *space = strchr(c.name, ' ');
    if (space == nullptr || strncmp(c.name, name, static_cast<size_t>(space - c.name)) != 0 ||
        name[space - c.name] != '\0') {
      continue;
    }
    if (!listed) fprintf(stderr, "tlkctl: '%s' takes one of:", name);
    fprintf(stderr, " %s", space + 1);
    listed = true;
  }
  if (listed) {
    fputc('\n', stderr);
  } else {
    fprintf(stderr, "tlkctl: unknown command '%s' (try 'tlkctl --help')\n", name);
  }
  return 2;
}
