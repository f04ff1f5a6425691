// tlkctl show cos: the class-of-service objects as a client reads them: the number of
// forwarding classes, then policers and shapers, classifiers, rewrite rules and fragmentation
// maps, each a getnext walk over object indexes that ends at the kernel's refusal.
#include <string.h>

#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

using Rows = std::vector<std::vector<std::string>>;
using Get = int (*)(tarvik_cookie *, uint32_t object, uint32_t op, void **out);

// A reply that is the kernel's refusal ends a walk; the library hands it over as it came.
bool is_refusal(const void *m) {
  return static_cast<const uint8_t *>(m)[5] == TLK_MSG_TLK_ERR;
}

// Walks one kind by getnext, calling `row` for each reply; `key_at` is where a reply holds its
// object index.
template <typename Row>
void walk(tarvik_cookie *c, Get get, size_t key_at, Row row) {
  uint32_t object = 0;
  void *m = nullptr;
  while (get(c, object, TLK_OP_GETNEXT, &m) == 0) {
    if (is_refusal(m)) {
      tarvik_msg_free(c, m);
      return;
    }
    uint32_t next;
    memcpy(&next, static_cast<const uint8_t *>(m) + key_at, sizeof next);
    row(m);
    tarvik_msg_free(c, m);
    if (next <= object) return;  // a kernel that does not move on
    object = next;
  }
}

void show_rates(tarvik_cookie *c, const char *kind, Get get, Rows &rows) {
  walk(c, get, 32, [&](const void *m) {
    const auto *b = static_cast<const tarvik_cos_policer_body *>(m);
    rows.push_back({kind, std::to_string(b->ifl), "-", std::to_string(b->bandwidth) + " bit/s",
                    "burst " + std::to_string(b->burst)});
  });
}

void show_maps(tarvik_cookie *c, Rows &rows) {
  walk(c, tarvik_ccm_get_object, 36, [&](const void *m) {
    const auto *b = static_cast<const tarvik_cos_class_body *>(m);
    rows.push_back({"classifier", std::to_string(b->table), std::to_string(b->ifl),
                    "type " + std::to_string(b->type), std::to_string(b->entries) + " entries"});
  });
  walk(c, tarvik_crwm_get_object, 36, [&](const void *m) {
    const auto *b = static_cast<const tarvik_cos_rewrite_body *>(m);
    rows.push_back({"rewrite", std::to_string(b->id), std::to_string(b->ifl),
                    "kind " + std::to_string(b->type), std::to_string(b->num) + " entries"});
  });
  walk(c, tarvik_cfragm_get_object, 36, [&](const void *m) {
    const auto *b = static_cast<const tarvik_cos_fragmap_body *>(m);
    rows.push_back({"fragmap", std::to_string(b->frag_map_id), std::to_string(b->ifl),
                    std::to_string(b->data_size) + " bytes",
                    std::to_string(b->entries) + " entries"});
  });
}

}  // namespace

int run_show_cos(int argc, char **) {
  if (argc > 1) return usage_error("show cos");
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  void *m = nullptr;
  if (tarvik_cim_get(c, TLK_OP_GET, &m) == 0) {
    if (!is_refusal(m))
      printf("forwarding classes: %u\n", static_cast<const tarvik_cos_info_body *>(m)->num_fcs);
    tarvik_msg_free(c, m);
  }
  Rows rows = {{"KIND", "OBJECT", "INTERFACE", "RATE/DETAIL", "SIZE"}};
  show_rates(c, "policer", tarvik_cpom_get, rows);
  show_rates(c, "shaper", tarvik_csm_get, rows);
  show_maps(c, rows);
  tarvik_close(c);
  print_columns(rows);
  return 0;
}

}  // namespace tlkctl
