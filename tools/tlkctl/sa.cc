// tlkctl show sa [name]: security associations as a client reads them, a getnext walk over
// their indexes, or one association by name with its trace line.
#include <string.h>

#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

constexpr size_t kFixed = 96;

uint32_t u32_at(const void *m, size_t at) {
  uint32_t v;
  memcpy(&v, static_cast<const uint8_t *>(m) + at, sizeof v);
  return v;
}

std::vector<std::string> row_of(const void *m) {
  const auto *b = static_cast<const uint8_t *>(m);
  const size_t name_len = b[73];
  const std::string name =
      name_len != 0 ? std::string(reinterpret_cast<const char *>(b + kFixed),
                                  strnlen(reinterpret_cast<const char *>(b + kFixed), name_len))
                    : "-";
  char spi[16];
  snprintf(spi, sizeof spi, "0x%x", u32_at(m, 36));
  const char *direction = b[48] == TARVIK_SA_INBOUND    ? "inbound"
                          : b[48] == TARVIK_SA_OUTBOUND ? "outbound"
                                                        : "-";
  return {std::to_string(u32_at(m, 32)), name, spi, direction, std::to_string(b[49]),
          std::to_string(u32_at(m, 40))};
}

bool is_association(const void *m) {
  return static_cast<const uint8_t *>(m)[5] == TLK_MSG_SA_INFO;
}

}  // namespace

int run_show_sa(int argc, char **argv) {
  if (argc > 2) return usage_error("show sa");
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  std::vector<std::vector<std::string>> rows = {
      {"INDEX", "NAME", "SPI", "DIRECTION", "PROTOCOL", "INTERFACE"}};
  void *m = nullptr;
  int status = 0;
  if (argc == 2) {
    if (tarvik_sadbm_get_by_name(c, TLK_OP_GET, argv[1], 0, 0, &m) == 0 && is_association(m)) {
      rows.push_back(row_of(m));
      print_columns(rows);
      printf("%s\n", trace_line(static_cast<const uint8_t *>(m), u32_at(m, 8), false).c_str());
    } else {
      fprintf(stderr, "tlkctl: no security association named '%s'\n", argv[1]);
      status = 1;
    }
    tarvik_msg_free(c, m);
  } else {
    uint32_t index = 0;
    while (tarvik_sadbm_get(c, TLK_OP_GETNEXT, nullptr, index, 0, 0, &m) == 0) {
      const bool more = is_association(m) && u32_at(m, 32) > index;
      if (more) {
        rows.push_back(row_of(m));
        index = u32_at(m, 32);
      }
      tarvik_msg_free(c, m);
      if (!more) break;
    }
    print_columns(rows);
  }
  tarvik_close(c);
  return status;
}

}  // namespace tlkctl
