#include <string.h>

#include <algorithm>

#include <string>

#include "commands.h"

namespace tlkctl {

namespace {

// What the library's fixed memory identifiers hold.
const char *memid_name(unsigned id) {
  switch (id) {
    case 0:
      return "accounting table";
    case MEMID_TARVIK_SUBTYPE:
      return "subtype tables";
    case MEMID_TARVIK_ASYNC_CTX:
      return "async context";
    case MEMID_TARVIK_READ_BUFFER:
      return "read bufs, blob copies";
    case MEMID_TARVIK_COOKIE:
      return "sessions";
    case MEMID_TARVIK_DECODE:
      return "decoder blocks";
    case MEMID_TARVIK_ASYNC_REG:
      return "async registrations";
    case MEMID_TARVIK_MSG:
      return "messages and buffers";
    default:
      return "";
  }
}

}  // namespace

void print_memory(FILE *out) {
  const tarvik_mem_cnt_t *cnts = tarvik_mem_record.cnts;
  if (cnts == nullptr) {
    fprintf(out, "  (accounting off)\n");
    return;
  }
  fprintf(out, "  %-6s %-22s %8s %8s %8s %12s\n", "memid", "holds", "allocs", "fails", "frees",
          "outstanding");
  for (unsigned id = 0; id < MEMID_TARVIK_MAX; ++id) {
    const tarvik_mem_cnt_t &e = cnts[id];
    if (e.allocs == 0 && e.fails == 0 && e.frees == 0) continue;
    fprintf(out, "  %-6u %-22s %8u %8u %8u %12d\n", id, memid_name(id), e.allocs, e.fails, e.frees,
            e.outstanding);
  }
}

void print_raw_header(FILE *out, std::span<const uint8_t> msg) {
  if (msg.size() < TLK_RAW_HDR_LEN) {
    fprintf(out, "  (%zu bytes: shorter than a header)\n", msg.size());
    return;
  }
  uint32_t msglen, seq, id;
  uint16_t fixedlen;
  memcpy(&msglen, &msg[8], 4);
  memcpy(&seq, &msg[12], 4);
  memcpy(&id, &msg[16], 4);
  memcpy(&fixedlen, &msg[20], 2);
  const unsigned op = msg[6] < 10 ? msg[6] : 10;
  fprintf(out, "  type=%u (%s) version='%c' op=%s msglen=%u seq=%u fixedlen=%u\n", msg[5],
          tarvik_msg_type_name(msg[5]), msg[4] ? msg[4] : '-', rtm_ops[op], msglen, seq, fixedlen);
}

void print_diagnostic(tarvik_cookie *, void *, int, const char *text) {
  std::string line(text);
  while (!line.empty() && line.back() == '\n') line.pop_back();
  printf("    | %s\n", line.c_str());
}

void print_columns(const std::vector<std::vector<std::string>> &rows, size_t right) {
  if (rows.empty()) return;
  std::vector<size_t> w(rows[0].size(), 0);
  for (const auto &r : rows)
    for (size_t i = 0; i < r.size() && i < w.size(); ++i) w[i] = std::max(w[i], r[i].size());
  for (const auto &r : rows) {
    std::string line;
    for (size_t i = 0; i < r.size(); ++i) {
      const bool last = i + 1 == r.size();
      const std::string pad(last || i >= w.size() ? 0 : w[i] - r[i].size(), ' ');
      line += i == right ? pad + r[i] : r[i] + pad;
      if (!last) line += "  ";
    }
    while (!line.empty() && line.back() == ' ') line.pop_back();
    printf("%s\n", line.c_str());
  }
}

}  // namespace tlkctl
