// tlkctl: shows libtarlink at work against the embedded simulated kernel.
#include <stdio.h>
#include <string.h>

#include "commands.h"

namespace {

constexpr char kUsage[] =
    "usage: tlkctl <command> [arguments]\n"
    "\n"
    "Commands (all run against the embedded simulated kernel):\n"
    "  demo      open a session, negotiate versions, exchange a raw request and reply,\n"
    "            show the memory accounting, close in order\n"
    "  monitor   print notifications as they arrive; --demo N: a second session makes N changes\n"
    "  gencfg    add, get, walk and delete configuration blobs (zlib with --compress);\n"
    "            'tlkctl gencfg --help' for the details\n"
    "  show devices  list the simulated chassis: name, index, flags, media kind, addresses\n"
    "  help      this text (also -h, --help)\n";

struct Command {
  const char *name;
  int (*run)(int argc, char **argv);
};

constexpr Command kCommands[] = {
    {"demo", tlkctl::run_demo},
    {"monitor", tlkctl::run_monitor},
    {"gencfg", tlkctl::run_gencfg},
    {"show", tlkctl::run_show},
};

}  // namespace

int main(int argc, char **argv) {
  if (argc < 2) {
    fputs(kUsage, stderr);
    return 2;
  }
  const char *name = argv[1];
  if (strcmp(name, "help") == 0 || strcmp(name, "-h") == 0 || strcmp(name, "--help") == 0) {
    fputs(kUsage, stdout);
    return 0;
  }
  for (const Command &c : kCommands) {
    if (strcmp(c.name, name) == 0) return c.run(argc - 1, argv + 1);
  }
  fprintf(stderr, "tlkctl: unknown command '%s' (try 'tlkctl --help')\n", name);
  return 2;
}
