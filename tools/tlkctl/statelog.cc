// tlkctl show statelog [--follow]: the embedded kernel's interface state log, each record by the
// library's printer; tlkctl ifindex NAME and ifname INDEX: the name helpers; and the demo step
// that shows the last records of the log after the device steps.
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

constexpr size_t kLine = 2048;

// The changes the command makes to the embedded kernel, so that the log has something to show.
void make_changes(tarsim::Kernel &kernel) {
  printf("the kernel takes ge0 down and up, and removes the unit xe1.300\n");
  kernel.devices().set_link("ge0", false);
  kernel.devices().set_link("ge0", true);
  kernel.ifls().destroy(83);
}

void print_record(const void *msg) {
  char line[kLine];
  tarvik_ifsm_print(msg, line, sizeof line, 2);
  fputs(line, stdout);
}

// Every record of the chain in sequence order, by getnext from 0.
std::vector<std::vector<uint8_t>> read_chain(tarvik_cookie *c) {
  std::vector<std::vector<uint8_t>> out;
  uint64_t seq = 0;
  void *m = nullptr;
  while (tarvik_ifsm_get(c, 0, seq, TLK_OP_GETNEXT, &m) == 0) {
    const auto *b = static_cast<const uint8_t *>(m);
    const bool record = b[5] == TLK_MSG_IFSTATE;  // the end shows as the kernel's refusal
    if (record) {
      memcpy(&seq, b + 32, sizeof seq);
      const uint32_t len = reinterpret_cast<const tlk_hdr *>(b)->tlkh_msglen;
      out.emplace_back(b, b + len);
    }
    tarvik_msg_free(c, m);
    if (!record) break;
  }
  return out;
}

struct Follow {
  unsigned heard = 0;
  bool ended = false;
};

int record_heard(tarvik_cookie *c, void *arg, void *msg, uintptr_t) {
  print_record(msg);
  tarvik_msg_free(c, msg);
  ++static_cast<Follow *>(arg)->heard;
  return 0;
}

int end_heard(tarvik_cookie *c, void *arg, void *msg, uintptr_t) {
  char line[kLine];
  tarvik_ifsclim_print(msg, line, sizeof line);
  fputs(line, stdout);
  tarvik_msg_free(c, msg);
  auto *f = static_cast<Follow *>(arg);
  ++f->heard;
  f->ended = true;
  return 0;
}

int follow(tarsim::Kernel &kernel, tarvik_cookie *c) {
  Follow f;
  if (tarvik_create_async_context(c) != 0 || tarvik_ifsm_async_register(c, &f, record_heard) != 0 ||
      tarvik_ifstate_eochain_register(c, &f, end_heard) != 0) {
    fprintf(stderr, "tlkctl: listening for the state log failed\n");
    return 1;
  }
  make_changes(kernel);
  kernel.state_log().end_of_chain("tlkctl");
  if (run_until_quiet(c, &f.heard) != 0 || !f.ended) {
    fprintf(stderr, "tlkctl: the end of the chain was not heard\n");
    return 1;
  }
  return 0;
}

}  // namespace

int run_show_statelog(int argc, char **argv) {
  const bool following = argc == 2 && strcmp(argv[1], "--follow") == 0;
  if (argc > 1 && !following) return usage_error("show statelog");
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  int rc = 0;
  if (following) {
    rc = follow(kernel, c);
  } else {
    make_changes(kernel);
    const auto chain = read_chain(c);
    for (const auto &r : chain) print_record(r.data());
    printf("%zu records\n", chain.size());
  }
  tarvik_close(c);
  return rc;
}

int run_ifindex(int argc, char **argv) {
  if (argc != 2) return usage_error("ifindex");
  tarsim::Kernel kernel;
  const int index = ifl_getindexbyifname(argv[1]);
  if (index == -1) {
    fprintf(stderr, "tlkctl ifindex: %s: %s\n", argv[1], strerror(errno));
    return 1;
  }
  printf("%d\n", index);
  return 0;
}

int run_ifname(int argc, char **argv) {
  char *end = nullptr;
  const unsigned long index = argc == 2 ? strtoul(argv[1], &end, 10) : 0;
  if (argc != 2 || end == argv[1] || *end != '\0' || index > UINT32_MAX)
    return usage_error("ifname");
  tarsim::Kernel kernel;
  char name[64];
  if (ifl_getnamebyifindex(static_cast<uint32_t>(index), name, sizeof name) != 0) {
    fprintf(stderr, "tlkctl ifname: %lu: %s\n", index, strerror(errno));
    return 1;
  }
  printf("%s\n", name);
  return 0;
}

int demo_statelog(tarsim::Kernel &, tarvik_cookie *c) {
  const auto chain = read_chain(c);
  printf("  the state log holds %zu record%s; the last of them:\n", chain.size(),
         chain.size() == 1 ? "" : "s");
  const size_t first = chain.size() > 3 ? chain.size() - 3 : 0;
  for (size_t i = first; i < chain.size(); ++i) {
    char line[kLine];
    tarvik_ifsm_print(chain[i].data(), line, sizeof line, 2);
    // Indented a line at a time, as the demo's other output.
    for (const char *p = line; *p != '\0';) {
      const char *nl = strchr(p, '\n');
      const int n = nl ? static_cast<int>(nl - p) : static_cast<int>(strlen(p));
      printf("    %.*s\n", n, p);
      p += n + (nl ? 1 : 0);
    }
  }
  return chain.empty() ? 1 : 0;
}

}  // namespace tlkctl
