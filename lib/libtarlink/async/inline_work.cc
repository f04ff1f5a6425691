// The in-line work table.  Built from explicit rows rather than by families registering
// themselves at start-up: the library is also a static archive, and an archive member that only
// registers itself is one that nothing references, so the linker would drop it and its row.
#include "async/inline_work.h"

#include <array>

#include "cookie.h"

namespace tlk::async {
namespace {

// "ifaddr": an event of a donor that somebody borrows from is saved for its borrowers' report.
// A delete is reported at once, before the handler runs; any other operation is reported once
// the handler has returned (ifaddr_after), which in hooked mode the engine doesn't do: the
// hook's owner reports it through tarvik_unnum_ifa_report.
int ifaddr_before(tarvik_cookie *cookie, void **message) {
  if (cookie->unnum_info == nullptr) return 0;
  const auto *msg = static_cast<const ifa_msg *>(*message);
  if (tarvik_unnum_ifa_save_msg(cookie, msg) == 0 && msg->ifam_hdr.tlkh_op == TLK_OP_DELETE) {
    tarvik_unnum_ifa_report(cookie);
  }
  return 0;  // the message goes on to its handler whatever happened here
}

void ifaddr_after(tarvik_cookie *cookie) {
  if (cookie->unnum_info != nullptr && cookie->unnum_info->pending) tarvik_unnum_ifa_report(cookie);
}

struct InlineRow {
  uint32_t type;
  InlineWork work;
};

// One row per family, by message type.
constexpr InlineRow kInlineRows[] = {
    {TLK_MSG_IFADDR, {ifaddr_before, ifaddr_after}},
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
