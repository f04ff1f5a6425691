// tlkctl show nexthops, nexthop add and nexthop delete: the next hop table as a client walks it,
// service and interface next hops added the way a daemon adds them, and the demo step that adds a
// few next hops and reads them back.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

// Next hop type names, by the kernel's number; "unknown" past the table and in its gaps.
const char *type_name(uint8_t nh) {
  static const char *const kNames[] = {
      "dscd",   "rjct",   "ucst",   "ulst",  "idxd",    "indr",  "hold", "rslv", "locl",
      "recv",   "mcrt",   "bcst",   "mcst",  "mgrp",    "mdsc",  "rtbl", "deny", "aggr",
      "crypto", "iflist", "sample", "flood", "service", "mcrtc", "comp"};
  if (nh < sizeof kNames / sizeof kNames[0]) return kNames[nh];
  return nh == 31 ? "le" : "unknown";
}

const char *family_word(uint8_t af) {
  return af == TLK_AF_INET ? "inet" : af == TLK_AF_INET6 ? "inet6" : "-";
}

struct Row {
  uint32_t index = 0;
  uint8_t nh = 0, af = 0;
  uint32_t ifl = 0;
  uint64_t flags = 0;
  std::string detail;
};

// The walk: getnext from 0 until the kernel's refusal of the index after the last.
std::vector<Row> read_nexthops(tarvik_cookie *c) {
  std::vector<Row> rows;
  uint32_t idx = 0;
  void *m = nullptr;
  while (tarvik_rnhm_get_by_index(c, idx, 0, TLK_OP_GETNEXT, &m, nullptr) == 0) {
    const auto &n = *static_cast<const rnh_msg *>(m);
    Row r{n.idx.idx, n.nh, n.af, n.ifidx.idx, n.flags, {}};
    const auto &g = n.rnh_info.rnhi_u.rnh_info_generic;
    if (n.rnh_info.rnhi_type == 5 && g.rnig_data != nullptr && g.rnig_data_len >= 204) {
      // A service next hop has no interface of its own: show the block's first one (at 4), and
      // the block's name (at 140).
      memcpy(&r.ifl, g.rnig_data + 4, sizeof r.ifl);
      r.detail =
          "service " + std::string(reinterpret_cast<const char *>(g.rnig_data) + 140,
                                   strnlen(reinterpret_cast<const char *>(g.rnig_data) + 140, 64));
    } else if (n.rnh_info.rnhi_type == 17) {
      r.detail = "interface next hop";
    }
    rows.push_back(r);
    idx = n.idx.idx;
    tarvik_msg_idl_release(c, m, nullptr);
  }
  // The composites' members, from their own read.
  idx = 0;
  while (tarvik_rnh_comp_get_by_index(c, idx, TLK_OP_GETNEXT, &m, nullptr) == 0) {
    const auto &cm = *static_cast<const rnhc_msg *>(m);
    std::string kids;
    for (uint32_t i = 0; i < cm.child_count; ++i)
      kids += (kids.empty() ? "" : ", ") + std::to_string(cm.children[i]);
    for (Row &r : rows)
      if (r.index == cm.idx.idx) r.detail = "members " + kids;
    idx = cm.idx.idx;
    tarvik_msg_idl_release(c, m, nullptr);
  }
  return rows;
}

// Logical interface names by index, from the kernel's list.
std::string ifl_name(tarvik_cookie *c, uint32_t index) {
  if (index == 0) return "-";
  void *m = nullptr;
  if (tarvik_iflm_get_by_index(c, index, TLK_OP_GET, &m, nullptr) != 0)
    return "index " + std::to_string(index);
  const auto &u = *static_cast<const ifl_msg *>(m);
  std::string name = u.iflm_name ? reinterpret_cast<const char *>(u.iflm_name) : "?";
  name += "." + std::to_string(u.iflm_unit);
  tarvik_msg_idl_release(c, m, nullptr);
  return name;
}

// A logical interface named "ge0.0" (or given by its index) as its index; 0 if unknown.
uint32_t ifl_index(tarvik_cookie *c, const char *text) {
  const char *dot = strrchr(text, '.');
  if (dot == nullptr) return static_cast<uint32_t>(strtoul(text, nullptr, 10));
  const std::string device(text, dot);
  void *m = nullptr;
  if (tarvik_iflm_get_by_name(c, device.c_str(), static_cast<uint32_t>(atoi(dot + 1)), TLK_OP_GET,
                              &m, nullptr) != 0)
    return 0;
  const uint32_t index = static_cast<const ifl_msg *>(m)->iflm_index.idx;
  tarvik_msg_idl_release(c, m, nullptr);
  return index;
}

void show(tarvik_cookie *c) {
  std::vector<std::vector<std::string>> table = {
      {"INDEX", "TYPE", "FAMILY", "INTERFACE", "FLAGS", "DETAIL"}};
  for (const Row &r : read_nexthops(c)) {
    char flags[24];
    snprintf(flags, sizeof flags, "0x%04llx", static_cast<unsigned long long>(r.flags));
    table.push_back({std::to_string(r.index), type_name(r.nh), family_word(r.af),
                     ifl_name(c, r.ifl), flags, r.detail.empty() ? "-" : r.detail});
  }
  print_columns(table, 0);
}

// "nexthop add service NAME IFL [IFL...]", "nexthop add interface IFL", "nexthop delete INDEX";
// then the table.  0, or 1 with a line on stderr.
int change(tarvik_cookie *c, int argc, char **argv) {
  const std::string verb = argc > 0 ? argv[0] : "";
  if (verb == "add" && argc >= 4 && strcmp(argv[1], "service") == 0) {
    std::vector<uint32_t> ifls;
    for (int i = 3; i < argc; ++i) ifls.push_back(ifl_index(c, argv[i]));
    void *m = nullptr;
    const int err =
        tarvik_rnhm_service_add(c, ifls.data(), static_cast<uint32_t>(ifls.size()), TLK_AF_INET, 1,
                                argv[2], 1, 1, 0, nullptr, &m, nullptr, 0, 0, 0, nullptr, 0);
    if (err != 0) {
      fprintf(stderr, "tlkctl: adding service next hop %s failed: %s\n", argv[2], strerror(err));
      return 1;
    }
    printf("added service next hop %u\n", static_cast<const rnh_msg *>(m)->idx.idx);
    tarvik_msg_idl_release(c, m, nullptr);
    return 0;
  }
  if (verb == "add" && argc == 3 && strcmp(argv[1], "interface") == 0) {
    const uint8_t kind = 1;
    uint32_t idx = 0;
    const int err =
        tarvik_rnhm_iflnh_add(c, ifl_index(c, argv[2]), TLK_AF_INET, 0, 1, &kind, &idx, 0);
    if (err != 0) {
      fprintf(stderr, "tlkctl: adding an interface next hop on %s failed: %s\n", argv[2],
              strerror(err));
      return 1;
    }
    printf("added interface next hop %u\n", idx);
    return 0;
  }
  if (verb == "delete" && argc == 2) {
    const uint32_t idx = static_cast<uint32_t>(strtoul(argv[1], nullptr, 10));
    void *m = nullptr;
    if (tarvik_rnhm_get_by_index(c, idx, 0, TLK_OP_GET, &m, nullptr) != 0) {
      fprintf(stderr, "tlkctl: no next hop %u\n", idx);
      return 1;
    }
    // Each kind has its own delete; the kernel finds the next hop by index alone.
    const auto &n = *static_cast<const rnh_msg *>(m);
    const bool service = n.nh == 22, iflnh = n.rnh_info.rnhi_type == 17;
    tarvik_msg_idl_release(c, m, nullptr);
    const int err = service ? tarvik_rnhm_service_delete_by_index(c, idx, 0)
                    : iflnh ? tarvik_rnhm_iflnh_delete_by_index(c, idx, 0)
                            : tarvik_rnhm_subunit_nhdelete_by_index(c, idx, 0);
    if (err != 0) {
      fprintf(stderr, "tlkctl: deleting next hop %u failed: %s\n", idx, strerror(err));
      return 1;
    }
    printf("deleted next hop %u\n", idx);
    return 0;
  }
  fprintf(stderr,
          "usage: tlkctl nexthop add service NAME IFL [IFL...]\n"
          "       tlkctl nexthop add interface IFL\n"
          "       tlkctl nexthop delete INDEX\n");
  return 2;
}

template <class F>
int with_session(F &&run) {
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  const int rc = run(c);
  tarvik_close(c);
  return rc;
}

}  // namespace

int run_show_nexthops(int, char **) {
  return with_session([](tarvik_cookie *c) {
    show(c);
    return 0;
  });
}

int run_nexthop(int argc, char **argv) {
  // argv[0] is "nexthop"; the kernel lives for this one command, so the table follows.
  return with_session([&](tarvik_cookie *c) {
    const int rc = change(c, argc - 1, argv + 1);
    if (rc == 0) show(c);
    return rc;
  });
}

int demo_nexthops(tarsim::Kernel &kernel, tarvik_cookie *c) {
  const uint32_t ifls[] = {72};
  void *m = nullptr;
  int err = tarvik_rnhm_service_add(c, ifls, 1, TLK_AF_INET, 1, "demo-nat", 3, 1, 0, nullptr, &m,
                                    nullptr, 0, 0, 0, nullptr, 0);
  if (err != 0) {
    printf("  service add failed: %s\n", strerror(err));
    return 1;
  }
  const uint32_t service = static_cast<const rnh_msg *>(m)->idx.idx;
  tarvik_msg_idl_release(c, m, nullptr);
  const uint8_t kind = 1;
  uint32_t iflnh = 0;
  err = tarvik_rnhm_iflnh_add(c, 80, TLK_AF_INET, 0, 1, &kind, &iflnh, 0);
  if (err != 0) {
    printf("  interface next hop add failed: %s\n", strerror(err));
    return 1;
  }
  const uint32_t members[] = {service, iflnh};
  const uint32_t comp = kernel.nexthops().make_composite(members);
  printf("  added service next hop %u and interface next hop %u; the kernel made composite %u\n",
         service, iflnh, comp);
  printf("  the table as a client walks it:\n");
  show(c);
  // The owner walk finds the service next hops alone.
  uint32_t idx = 0;
  printf("  service next hops:");
  while (tarvik_rnhm_service_get_by_owner(c, idx, TLK_AF_INET, 1, 1, &m, nullptr) == 0) {
    idx = static_cast<const rnh_msg *>(m)->idx.idx;
    printf(" %u", idx);
    tarvik_msg_idl_release(c, m, nullptr);
  }
  printf("\n");
  return comp != 0 ? 0 : 1;
}

}  // namespace tlkctl
