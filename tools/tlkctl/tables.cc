// tlkctl show tables and table add: route tables as a client reads them (a getnext walk over
// (tid, family)), and an add followed by a read of the new table; and the demo step that creates
// a table and reads it back by name.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

const char *family_word(uint32_t af) {
  return af == TLK_AF_INET ? "inet" : af == TLK_AF_INET6 ? "inet6" : "other";
}

std::string text_of(const uint8_t *p) {
  return p != nullptr && *p != 0 ? reinterpret_cast<const char *>(p) : "-";
}

std::vector<std::string> row_of(const rtb_msg &t) {
  char flags[16];
  snprintf(flags, sizeof flags, "0x%x", t.rtb_flags);
  return {std::to_string(t.tid), family_word(t.af), text_of(t.rtb_name), text_of(t.lrname), flags};
}

// The walk ends at the kernel's refusal of the key after the last table.
void show_tables(tarvik_cookie *c) {
  std::vector<std::vector<std::string>> rows = {
      {"TID", "FAMILY", "NAME", "LOGICAL ROUTER", "FLAGS"}};
  uint32_t tid = 0, af = 0;
  void *m = nullptr;
  while (tarvik_rtbm_get_by_index(c, af, tid, TLK_OP_GETNEXT, &m, nullptr) == 0) {
    const auto &t = *static_cast<const rtb_msg *>(m);
    rows.push_back(row_of(t));
    tid = t.tid;
    af = t.af;
    tarvik_msg_idl_release(c, m, nullptr);
  }
  print_columns(rows, 0);
}

}  // namespace

int run_show_tables(int, char **) {
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  show_tables(c);
  tarvik_close(c);
  return 0;
}

// tlkctl table add NAME TID [inet|inet6]: adds the table, then lists every table.
int run_table(int argc, char **argv) {
  if (argc < 4 || strcmp(argv[1], "add") != 0 ||
      (argc > 4 && strcmp(argv[4], "inet") != 0 && strcmp(argv[4], "inet6") != 0)) {
    fprintf(stderr, "usage: tlkctl table add <name> <tid> [inet|inet6]\n");
    return 2;
  }
  char *end = nullptr;
  const unsigned long tid = strtoul(argv[3], &end, 10);
  if (*argv[3] == '\0' || *end != '\0' || tid >= 65535) {
    fprintf(stderr, "tlkctl: bad table id '%s' (0 to 65534)\n", argv[3]);
    return 2;
  }
  const uint32_t af = argc > 4 && strcmp(argv[4], "inet6") == 0 ? TLK_AF_INET6 : TLK_AF_INET;
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  const int err = tarvik_rtbm_add(c, argv[2], static_cast<uint32_t>(tid), af, 0);
  if (err != 0) fprintf(stderr, "tlkctl: adding the table failed: %s\n", strerror(err));
  if (err == 0) show_tables(c);
  tarvik_close(c);
  return err == 0 ? 0 : 1;
}

int demo_tables(tarsim::Kernel &kernel, tarvik_cookie *c) {
  int err = tarvik_rtbm_add_lr(c, "customer-blue", 21, TLK_AF_INET, "lr-east", 1, 0, 1);
  if (err != 0) {
    fprintf(stderr, "  adding table 21 failed: %s\n", strerror(err));
    return 1;
  }
  printf(
      "  added table 21 \"customer-blue\" (inet) in logical router \"lr-east\"; the kernel holds "
      "%zu tables\n",
      kernel.route_tables().list().size());
  void *m = nullptr;
  err = tarvik_rtbm_get_by_name(c, TLK_AF_INET, "customer-blue", &m, nullptr);
  if (err != 0) {
    fprintf(stderr, "  reading it back by name failed: %s\n", strerror(err));
    return 1;
  }
  const auto &t = *static_cast<const rtb_msg *>(m);
  printf(
      "  read back by name (table id 65535 in the request): tid %u, logical router \"%s\", prflags "
      "0x%llx\n",
      t.tid, text_of(t.lrname).c_str(), static_cast<unsigned long long>(t.prflags));
  const bool same = t.tid == 21;
  tarvik_msg_idl_release(c, m, nullptr);
  return same ? 0 : 1;
}

}  // namespace tlkctl
