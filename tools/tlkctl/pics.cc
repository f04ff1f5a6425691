// tlkctl show pics: the PICs a client reads by a getnext walk over slot and port, and the trace
// line of each.
#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {

int run_show_pics(int argc, char **) {
  if (argc > 1) return usage_error("show pics");
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  std::vector<std::vector<std::string>> rows = {{"SLOT", "PORT", "TYPE", "ID", "FLAGS"}};
  uint32_t key = 0;
  bool first = true;
  for (;;) {
    void *m = nullptr;
    // The walk starts with a get of key 0, then asks for the PIC after the last one.
    const uint32_t op = first ? TLK_OP_GET : TLK_OP_GETNEXT;
    if (tarvik_pic_get(c, key / 8, key % 8, op, &m, nullptr) != 0) {
      if (!first) break;
      first = false;
      continue;
    }
    first = false;
    const auto *p = static_cast<const pic_msg *>(m);
    rows.push_back({std::to_string(p->picm_idx / 8), std::to_string(p->picm_idx % 8),
                    "0x" +
                        [&] {
                          char b[16];
                          snprintf(b, sizeof b, "%x", p->picm_type);
                          return std::string(b);
                        }(),
                    std::to_string(p->picm_id), std::to_string(p->picm_flags)});
    const uint32_t next = p->picm_idx;
    tarvik_msg_idl_release(c, m, nullptr);
    if (next < key || rows.size() > 1000) break;
    key = next;
  }
  tarvik_close(c);
  print_columns(rows);
  return 0;
}

}  // namespace tlkctl
