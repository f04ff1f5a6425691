// tlkctl firewall add|show|counters: firewall filters in the embedded simulated kernel, through
// the library's filter program, filter head and counter calls; and the demo step in which a
// filter's counters move between two reads.  Commands separated by "--" work on one kernel.
#include <string.h>

#include <fstream>
#include <string>
#include <vector>

#include "commands.h"
#include "tarlink_platform.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

constexpr uint8_t kAfInet = 2;
constexpr uint8_t kAnyType = 5;  // counter type that selects every counter of a filter

const char kUsage[] =
    "usage: tlkctl firewall COMMAND [-- COMMAND ...]\n"
    "  add FILE            program a filter from a text file and store its head:\n"
    "                        filter NAME        (required)\n"
    "                        interface NAME     (optional)\n"
    "                        index N            (optional; else one past the highest)\n"
    "                        any other line     a line of the program's body (# starts a comment)\n"
    "  show                list the filters: index, name, interface, what the kernel holds, hash\n"
    "  counters [FILTER] [--clear]\n"
    "                      read (or clear, then read) the counters of one filter, or of all\n"
    "Commands separated by \"--\" run in order against one simulated kernel.\n";

std::string hex(const uint8_t *p, size_t n) {
  static const char k[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) s += {k[p[i] >> 4], k[p[i] & 15]};
  return s;
}

std::string text(const uint8_t *p) {
  return p != nullptr && p[0] != 0 ? reinterpret_cast<const char *>(p) : "-";
}

// The joined headers of every filter, in index order.
std::vector<uint32_t> filter_indexes(tarvik_cookie *c) {
  std::vector<uint32_t> out;
  _dfw_filter_head h{};
  for (uint32_t at = 0; tarvik_dfw_get_fheader_by_index(c, at, TLK_OP_GETNEXT, &h) == 0;) {
    at = h.dfh_index.dfh_key_index;
    tarvik_free_dfh_var(&h);
    if (!out.empty() && at <= out.back()) break;  // a kernel that doesn't move on
    out.push_back(at);
  }
  return out;
}

int show(tarvik_cookie *c) {
  printf("%-6s %-16s %-10s %-15s %s\n", "INDEX", "NAME", "INTERFACE", "HELD", "HASH");
  for (uint32_t index : filter_indexes(c)) {
    _dfw_filter_head h{};
    if (tarvik_dfw_get_fheader_by_index(c, index, TLK_OP_GET, &h) != 0) continue;
    // Which side the kernel holds: the program, the head blob, or both (then the hash is the
    // master hash of the two).
    void *msg = nullptr;
    const bool program =
        tarvik_dfwm_get_by_index(c, index, kAfInet, TLK_OP_GET, &msg, nullptr) == 0;
    tarvik_msg_free(c, msg);
    _dfw_filter_head head_only{};
    const bool head = tarvik_dfwfhm_get_by_index(c, index, TLK_OP_GET, &head_only) == 0;
    if (head) tarvik_free_dfh_var(&head_only);
    printf("%-6u %-16s %-10s %-15s %s\n", index, text(h.dfh_name).c_str(),
           text(h.dfh_ifname).c_str(),
           program && head ? "program, head"
           : program       ? "program"
                           : "head",
           hex(h.dfh_hash, sizeof h.dfh_hash).c_str());
    tarvik_free_dfh_var(&h);
  }
  return 0;
}

// Prints the counters of one filter; 1 if they can't be read.
int print_counters(tarvik_cookie *c, uint32_t filter) {
  tarvik_msg_list_t *list = nullptr;
  int err = tarvik_dfwsm_get_by_index(c, filter, kAfInet, TLK_OP_GET, 0, kAnyType, 0, &list);
  if (err != 0) {
    printf("  filter %u: no counters (%s)\n", filter, err > 0 ? strerror(err) : "bad reply");
    return 1;
  }
  void *data = nullptr;
  uint32_t len = 0;
  err = tarvik_dfwsm_list_get_counters(c, list, &data, &len);
  tarvik_msg_list_free(c, list);
  if (err != 0) return 1;
  const auto *rec = static_cast<const tarsim::CounterRecord *>(data);
  for (uint32_t i = 0; i < len / sizeof *rec; ++i) {
    printf("  filter %-4u %-16.32s type %u  %12llu packets %14llu bytes\n", rec[i].filter,
           rec[i].name, rec[i].type, static_cast<unsigned long long>(rec[i].packets),
           static_cast<unsigned long long>(rec[i].bytes));
  }
  tarvik_msg_free(c, data);
  return 0;
}

int counters(tarvik_cookie *c, const std::vector<std::string> &args) {
  bool clear = false;
  std::vector<uint32_t> filters;
  for (size_t i = 1; i < args.size(); ++i) {
    if (args[i] == "--clear") {
      clear = true;
    } else {
      filters.push_back(static_cast<uint32_t>(strtoul(args[i].c_str(), nullptr, 0)));
    }
  }
  if (filters.empty()) filters = filter_indexes(c);
  int result = 0;
  for (uint32_t f : filters) {
    if (clear && tarvik_dfwsm_clear_by_index(c, kAfInet, f, nullptr) != 0) result = 1;
    result |= print_counters(c, f);
  }
  return result;
}

// Reads the text form of a filter into a program and a head, and stores both.
int add(tarsim::Kernel &kernel, tarvik_cookie *c, const std::string &file) {
  std::ifstream in(file);
  if (!in) {
    fprintf(stderr, "tlkctl firewall: cannot read %s\n", file.c_str());
    return 1;
  }
  tarsim::DfwProgramInfo info;
  uint32_t index = 0;
  std::string body;
  for (std::string line; std::getline(in, line);) {
    const size_t space = line.find(' ');
    const std::string key = line.substr(0, space);
    const std::string value = space == std::string::npos ? "" : line.substr(space + 1);
    if (line.empty() || line[0] == '#') continue;
    if (key == "filter") {
      info.name = value;
    } else if (key == "interface") {
      info.ifname = value;
    } else if (key == "index") {
      index = static_cast<uint32_t>(strtoul(value.c_str(), nullptr, 0));
    } else {
      body += line + "\n";
    }
  }
  if (info.name.empty() || info.name.size() >= TLK_DFW_NAME_MAX) {
    fprintf(stderr, "tlkctl firewall: %s: a 'filter NAME' line (under 128 characters) is needed\n",
            file.c_str());
    return 1;
  }
  if (index == 0) {
    const std::vector<uint32_t> known = filter_indexes(c);
    index = known.empty() ? 1 : known.back() + 1;
  }
  // The program: its header, then the body; its hash is the MD5 of the body.
  info.body = static_cast<uint32_t>(body.size());
  if (const auto md5 = tlk_platform_host()->md5_cksum; md5 != nullptr)
    md5(body.data(), body.size(), body.size(), info.hash.data(), nullptr);
  tarsim::Bytes program = tarsim::Dfw::program(info);
  memcpy(program.data() + TLK_DFW_PROGRAM_HEADER, body.data(), body.size());
  int err = tarvik_dfwm_update(c, index, kAfInet, TLK_OP_ADD, program.data());
  if (err != 0) {
    fprintf(stderr, "tlkctl firewall: programming filter %u failed: %s\n", index, strerror(err));
    return 1;
  }
  // The head, as the daemon that owns the filter stores it: a gencfg blob keyed by the index.
  tarsim::DfwHeadInfo head;
  head.index = index;
  head.name = info.name;
  head.ifname = info.ifname;
  head.hash = info.hash;
  tarsim::Bytes blob = tarsim::Dfw::head_blob(head);
  const uint8_t key[4] = {static_cast<uint8_t>(index >> 24), static_cast<uint8_t>(index >> 16),
                          static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index)};
  gencfg_t g{};
  g.major = TLK_DFW_HEAD_MAJOR;
  g.minor = TLK_DFW_HEAD_MINOR;
  g.flags = TLK_GENCFG_KEY;
  g.key = const_cast<uint8_t *>(key);
  g.key_len = sizeof key;
  g.blob = blob.data();
  g.blob_len = static_cast<uint32_t>(blob.size());
  err = tarvik_gencfg_add(c, &g);
  if (err != 0) {
    fprintf(stderr, "tlkctl firewall: storing the head of filter %u failed: %s\n", index,
            strerror(err));
    return 1;
  }
  const tarsim::Bytes *stored = kernel.dfw().find(index, kAfInet);
  printf("filter %u \"%s\" programmed: %zu bytes in %zu fragment(s), body hash %s\n", index,
         info.name.c_str(), program.size(),
         (program.size() + TLK_DFW_FRAGMENT - 1) / TLK_DFW_FRAGMENT,
         hex(info.hash.data(), info.hash.size()).c_str());
  return stored != nullptr && *stored == program ? 0 : 1;
}

}  // namespace

int run_firewall(int argc, char **argv) {
  std::vector<std::vector<std::string>> commands(1);
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "-h") == 0 || strcmp(argv[i], "--help") == 0) {
      fputs(kUsage, stdout);
      return 0;
    }
    if (strcmp(argv[i], "--") == 0) {
      commands.emplace_back();
    } else {
      commands.back().push_back(argv[i]);
    }
  }
  for (const auto &cmd : commands) {
    const bool known = !cmd.empty() && (cmd[0] == "show" || cmd[0] == "counters" ||
                                        (cmd[0] == "add" && cmd.size() == 2));
    if (!known) {
      fputs(kUsage, stderr);
      return 2;
    }
  }
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl firewall: open failed\n");
    return 1;
  }
  int result = 0;
  for (const auto &cmd : commands) {
    int r = 0;
    if (cmd[0] == "add") {
      r = add(kernel, c, cmd[1]);
    } else if (cmd[0] == "show") {
      r = show(c);
    } else {
      r = counters(c, cmd);
    }
    if (r > result) result = r;
  }
  tarvik_close(c);
  return result;
}

int demo_firewall(tarsim::Kernel &kernel, tarvik_cookie *c) {
  constexpr uint32_t kFilter = 10;  // "protect-re" in the default kernel
  printf("  the counters of filter %u, read as one run of \"dfwstats\" messages:\n", kFilter);
  if (print_counters(c, kFilter) != 0) return 1;
  printf("  the kernel counts 25 more packets on ssh-from-mgmt; read again:\n");
  kernel.dfw_counters().bump(kFilter, kAfInet, "ssh-from-mgmt", 0, 25, 2000);
  return print_counters(c, kFilter);
}

}  // namespace tlkctl
