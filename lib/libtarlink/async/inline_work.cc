// The in-line work table.  Built from explicit rows rather than by families registering
// themselves at start-up: the library is also a static archive, and an archive member that only
// registers itself is one that nothing references, so the linker would drop it and its row.
#include "async/inline_work.h"

#include <array>

namespace tlk::async {
namespace {

struct InlineRow {
  uint32_t type;
  InlineWork work;
};

// One row per family, by message type.
constexpr InlineRow kInlineRows[] = {
    // A compressed blob is inflated into a copy that replaces the received message.
    {TLK_MSG_GENCFG, {tarvik_gencfg_async, nullptr}},
};

constexpr std::array<InlineWork, TLK_ASYNC_MAX_TYPE + 1> build_table() {
  std::array<InlineWork, TLK_ASYNC_MAX_TYPE + 1> table{};
  for (const InlineRow &row : kInlineRows) table[row.type] = row.work;
  return table;
}

constexpr std::array<InlineWork, TLK_ASYNC_MAX_TYPE + 1> kInlineTable = build_table();
constexpr InlineWork kNone{};

}  // namespace

const InlineWork &inline_work(uint32_t type) {
  return type < kInlineTable.size() ? kInlineTable[type] : kNone;
}

}  // namespace tlk::async
