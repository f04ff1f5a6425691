// tlkctl route add|delete|get|match and show routes: routes in the embedded kernel's tables, as a
// client programs and reads them; the line the monitor prints for a route; and the demo step that
// programs a table in bulk and resolves a few destinations in it.
#include <arpa/inet.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

constexpr uint32_t kUser = 1;  // route type "user"
constexpr uint32_t kUcst = 2;  // next hop type "ucst"

struct Prefix {
  uint32_t af = 0;
  uint8_t bytes[16] = {};
  uint32_t plen = 0;
};

// "10.1.0.0/16", "2001:db8::/32", or an address alone (its full length).
bool parse_prefix(const char *text, Prefix *p) {
  std::string addr = text;
  long len = -1;
  if (const size_t slash = addr.find('/'); slash != std::string::npos) {
    char *end = nullptr;
    len = strtol(addr.c_str() + slash + 1, &end, 10);
    if (end == addr.c_str() + slash + 1 || *end != '\0') return false;
    addr.resize(slash);
  }
  if (inet_pton(AF_INET, addr.c_str(), p->bytes) == 1) {
    p->af = TLK_AF_INET;
    p->plen = len < 0 ? 32 : static_cast<uint32_t>(len);
    return len <= 32;
  }
  if (inet_pton(AF_INET6, addr.c_str(), p->bytes) == 1) {
    p->af = TLK_AF_INET6;
    p->plen = len < 0 ? 128 : static_cast<uint32_t>(len);
    return len <= 128;
  }
  return false;
}

std::string prefix_text(uint32_t af, const uint8_t *bytes, uint32_t count, uint32_t plen) {
  uint8_t full[16] = {};
  if (bytes != nullptr) memcpy(full, bytes, std::min<size_t>(count, sizeof full));
  char text[INET6_ADDRSTRLEN];
  if (inet_ntop(af == TLK_AF_INET6 ? AF_INET6 : AF_INET, full, text, sizeof text) == nullptr)
    return "?";
  return std::string(text) + "/" + std::to_string(plen);
}

const char *type_word(uint32_t type) {
  static const char *const kTypes[] = {"", "user", "ignr", "dynm", "",     "perm", "",    "intf",
                                       "", "dest", "ifdn", "",     "iddn", "clon", "ifcl"};
  return type < sizeof kTypes / sizeof kTypes[0] ? kTypes[type] : "unknown";
}

std::string hex(uint64_t v) {
  char buf[24];
  snprintf(buf, sizeof buf, "0x%llx", static_cast<unsigned long long>(v));
  return buf;
}

// One route's cells: prefix, type, next hop, interface, flags.
std::vector<std::string> route_cells(const rt_msg &r) {
  return {prefix_text(r.af, r.prefix, r.prefix_len, r.plen), type_word(r.type),
          r.nhidx.idx != 0 ? std::to_string(r.nhidx.idx) : "-",
          r.rtm_idx.idx != 0 ? std::to_string(r.rtm_idx.idx) : "-", hex(r.flags)};
}

const std::vector<std::string> kHeader = {"PREFIX", "TYPE", "NEXT HOP", "INTERFACE", "FLAGS"};

// Every route of one table and family: the default route by a get, the rest by getnext.
void read_table(tarvik_cookie *c, uint32_t tid, uint32_t af,
                std::vector<std::vector<std::string>> *rows) {
  void *m = nullptr;
  if (tarvik_rtm_get(c, tid, af, nullptr, 0, 0, 0, 0, 0, TLK_OP_GET, &m, nullptr) == 0) {
    rows->push_back(route_cells(*static_cast<rt_msg *>(m)));
    tarvik_msg_idl_release(c, m, nullptr);
  }
  int err = tarvik_rtm_get(c, tid, af, nullptr, 0, 0, 0, 0, 0, TLK_OP_GETNEXT, &m, nullptr);
  while (err == 0) {
    rows->push_back(route_cells(*static_cast<rt_msg *>(m)));
    // The reply names its route's type, and a getnext that names a type walks that type only:
    // the walk over every route asks with none.
    static_cast<rt_msg *>(m)->type = 0;
    void *next = nullptr;
    err = tarvik_rtm_get_with_msg(c, static_cast<rt_msg *>(m), TLK_OP_GETNEXT, &next, nullptr);
    tarvik_msg_idl_release(c, m, nullptr);
    m = next;
  }
}

int usage() {
  fprintf(stderr,
          "usage: tlkctl route add <prefix>/<len> [nh <idx>] [table <tid>]\n"
          "       tlkctl route delete|get <prefix>/<len> [table <tid>]\n"
          "       tlkctl route match <address> [table <tid>]\n"
          "       tlkctl show routes [table]\n");
  return 2;
}

// Runs one route subcommand in session `c`.
int route_command(tarvik_cookie *c, const char *verb, const Prefix &p, uint32_t nh, uint32_t tid) {
  void *m = nullptr;
  int err = 0;
  if (strcmp(verb, "add") == 0) {
    uint32_t index = 0;
    err = tarvik_rtm_add(c, tid, p.af, kUser, 0, kUcst, 0, 0, 0, 0, nh, 0, nullptr, p.bytes, p.plen,
                         nullptr, &index);
    if (err == 0)
      printf("added %s in table %u, index %u\n", prefix_text(p.af, p.bytes, 16, p.plen).c_str(),
             tid, index);
  } else if (strcmp(verb, "delete") == 0) {
    err = tarvik_rtm_delete_prefix(c, tid, p.af, kUser, 0, p.bytes, p.plen, 0);
    if (err == 0)
      printf("deleted %s in table %u\n", prefix_text(p.af, p.bytes, 16, p.plen).c_str(), tid);
  } else if (strcmp(verb, "get") == 0 || strcmp(verb, "match") == 0) {
    err = strcmp(verb, "get") == 0
              ? tarvik_rtm_get(c, tid, p.af, p.bytes, p.plen, 0, 0, 0, 0, TLK_OP_GET, &m, nullptr)
              : tarvik_rtmatch_by_prefix(c, tid, p.af, 0, p.bytes, p.plen, &m, nullptr);
    if (err == 0) {
      print_columns({kHeader, route_cells(*static_cast<rt_msg *>(m))});
      tarvik_msg_idl_release(c, m, nullptr);
    }
  } else {
    return usage();
  }
  if (err != 0) {
    fprintf(stderr, "tlkctl route %s: %s\n", verb,
            err == EOPNOTSUPP ? "no such route" : strerror(err));
    return 1;
  }
  return 0;
}

double seconds_now() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

}  // namespace

void print_route(FILE *out, const void *msg) {
  const auto &r = *static_cast<const rt_msg *>(msg);
  fprintf(out, "  route %s table %u type %s nh %u\n",
          prefix_text(r.af, r.prefix, r.prefix_len, r.plen).c_str(), r.tid, type_word(r.type),
          r.nhidx.idx);
}

int run_route(int argc, char **argv) {
  // argv[0] is "route"; then the verb, the prefix and options.
  if (argc < 3) return usage();
  Prefix p;
  if (!parse_prefix(argv[2], &p)) {
    fprintf(stderr, "tlkctl route: not a prefix: %s\n", argv[2]);
    return 2;
  }
  uint32_t nh = 0, tid = 0;
  for (int i = 3; i + 1 < argc; i += 2) {
    const uint32_t v = static_cast<uint32_t>(strtoul(argv[i + 1], nullptr, 10));
    if (strcmp(argv[i], "nh") == 0)
      nh = v;
    else if (strcmp(argv[i], "table") == 0)
      tid = v;
    else
      return usage();
  }
  if ((argc - 3) % 2 != 0) return usage();
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  const int rc = route_command(c, argv[1], p, nh, tid);
  tarvik_close(c);
  return rc;
}

int run_show_routes(int argc, char **argv) {
  if (argc > 2) return usage();
  const uint32_t tid = argc == 2 ? static_cast<uint32_t>(strtoul(argv[1], nullptr, 10)) : 0;
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  std::vector<std::vector<std::string>> rows = {kHeader};
  read_table(c, tid, TLK_AF_INET, &rows);
  read_table(c, tid, TLK_AF_INET6, &rows);
  tarvik_close(c);
  print_columns(rows);
  return 0;
}

int demo_routes(tarsim::Kernel &kernel, tarvik_cookie *reader) {
  constexpr uint32_t kRoutes = 100000, kWindow = 4096, kTid = 5;
  tarvik_cookie *c = tarvik_open(2);
  if (c == nullptr || tarvik_set_sync_mode(c, 1) != 0) {
    printf("  bulk mode could not be turned on\n");
    tarvik_close(c);
    return 1;
  }
  // Route i is (11 + i / 65536).x.y.0/24 from i's bits, next hop 1000 + i % 64; then 12.0.0.0/8
  // and 12.200.0.0/16 (next hop 7) go in beside them.
  std::vector<rt_msg> msgs(kWindow);
  std::vector<uint8_t> prefixes(size_t{kWindow} * 4);
  std::vector<tarvik_msg_iov_t> iov(kWindow);
  uint32_t refused = 0;
  const double start = seconds_now();
  for (uint32_t first = 0; first < kRoutes; first += kWindow) {
    const uint32_t n = std::min(kWindow, kRoutes - first);
    for (uint32_t i = 0; i < n; ++i) {
      const uint32_t k = first + i;
      uint8_t *b = &prefixes[size_t{i} * 4];
      b[0] = static_cast<uint8_t>(11 + (k >> 16));
      b[1] = static_cast<uint8_t>(k >> 8);
      b[2] = static_cast<uint8_t>(k);
      b[3] = 0;
      rt_msg &m = msgs[i];
      m = rt_msg{};
      m.rt_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_ROUTE];
      m.rt_hdr.tlkh_type = TLK_MSG_ROUTE;
      m.rt_hdr.tlkh_op = TLK_OP_ADD;
      m.rt_hdr.tlkh_fixedlen = sizeof(rt_msg);
      tarvik_seq_get_next(c, &m.rt_hdr.tlkh_seq);
      m.tid = kTid;
      m.af = TLK_AF_INET;
      m.type = kUser;
      m.nh_type = kUcst;
      m.nhidx.idx = 1000 + k % 2;  // the kernel's two unicast next hops
      m.plen = 24;
      m.prefix = b;
      m.prefix_len = 4;
      iov[i] = tarvik_msg_iov_t{&m, nullptr, 0, 0};
    }
    tarvik_msg_writev_idl(c, n, iov.data(), nullptr);
    for (uint32_t i = 0; i < n; ++i) refused += iov[i].write_err != 0;
  }
  const double took = seconds_now() - start;
  tarvik_close(c);
  kernel.routes().add(tarsim::route_inet(kTid, 0x0C000000, 8));
  tarsim::Route wide = tarsim::route_inet(kTid, 0x0CC80000, 16);
  wide.nhidx = 1001;
  kernel.routes().add(wide);
  printf(
      "  %u routes in bulk into table %u: %.3f s, %.0f routes/s, %u refused; the table holds "
      "%zu\n",
      kRoutes, kTid, took, kRoutes / took, refused, kernel.routes().count(kTid, TLK_AF_INET));

  // A /24 of the bulk, the last one, one under the /16 alone, one under the /8 alone, none.
  static const char *const kDestinations[] = {"11.0.5.9", "12.134.159.1", "12.200.1.1",
                                              "12.250.0.1", "13.0.0.1"};
  int rc = refused == 0 && kernel.routes().count(kTid, TLK_AF_INET) == kRoutes + 2 ? 0 : 1;
  std::vector<std::vector<std::string>> rows = {{"DESTINATION", "ROUTE", "NEXT HOP"}};
  for (const char *d : kDestinations) {
    Prefix p;
    (void)parse_prefix(d, &p);
    void *m = nullptr;
    const int err = tarvik_rtmatch_by_prefix(reader, kTid, p.af, 0, p.bytes, p.plen, &m, nullptr);
    if (err != 0) {
      rows.push_back({d, err == EOPNOTSUPP ? "no route" : strerror(err), "-"});
      continue;
    }
    const auto &r = *static_cast<rt_msg *>(m);
    rows.push_back({d, prefix_text(r.af, r.prefix, r.prefix_len, r.plen),
                    r.nhidx.idx != 0 ? std::to_string(r.nhidx.idx) : "-"});
    tarvik_msg_idl_release(reader, m, nullptr);
  }
  for (auto &row : rows) row[0] = "  " + row[0];
  print_columns(rows);
  return rc;
}

}  // namespace tlkctl
