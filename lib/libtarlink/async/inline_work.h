// The event engine's in-line work: what the library itself does with a decoded notification of
// a given type before (and after) the registrant's handler sees it.  One row per family that
// needs any, in one constant table indexed by message type (inline_work.cc); a type without a
// row goes straight to its handler.  Raw notifications have no in-line work.
//
// A family adds its row to kInlineRows and nothing else: the engine looks the type up and runs
// whatever the row holds.
#pragma once

#include <stdint.h>

#include "tarlink.h"

namespace tlk::async {

struct InlineWork {
  // Runs before dispatch, on every decoded message of the row's type.  May replace *message with
  // another block (releasing the old one itself); the engine then dispatches the replacement.
  // 0 to go on; any other value drops the message (the engine releases *message) and is the
  // message's failure.
  int (*before)(tarvik_cookie *cookie, void **message);
  // Runs once the handler has returned, in direct dispatch only (a hooked dispatch keeps the
  // message beyond this call).  The message belongs to the handler by then and is not passed.
  void (*after)(tarvik_cookie *cookie);
};

// The in-line work of `type` (rows with both entries null for types that have none, and for
// types above TLK_ASYNC_MAX_TYPE).
const InlineWork &inline_work(uint32_t type);

}  // namespace tlk::async
