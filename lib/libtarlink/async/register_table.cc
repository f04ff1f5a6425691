// The thin per-family entry points: each checks its arguments and hands its row's constants to
// the one setup routine.
#include <errno.h>

#include "async/register_table.h"
#include "cookie.h"

namespace tlk::async {
namespace {

enum class Row : unsigned {
#define TLK_ASYNC_ROW_ID(family, ...) family,
  TLK_ASYNC_PLAIN_ROWS(TLK_ASYNC_ROW_ID)
#undef TLK_ASYNC_ROW_ID
};

bool refused(tarvik_cookie *cookie, tarvik_async_handler_t handler) {
  return cookie == nullptr || handler == nullptr || cookie->async_info == nullptr;
}

// Types are registered in the row's order with one arg and handler; the first failure ends the
// walk and the slots already filled stay.
int register_types(tarvik_cookie *cookie, const RegisterRow &r, uint32_t low, uint32_t high,
                   void *arg, tarvik_async_handler_t handler) {
  for (uint8_t i = 0; i < r.ntypes; ++i) {
    const int result = tarvik_setup_async_registration(cookie, r.types[i], low, high, arg, handler);
    if (result != 0) return result;
  }
  return 0;
}

int register_row(tarvik_cookie *cookie, Row id, void *arg, tarvik_async_handler_t handler) {
  if (refused(cookie, handler)) return EINVAL;
  const RegisterRow &r = kRegisterTable[static_cast<unsigned>(id)];
  return register_types(cookie, r, r.low, r.high, arg, handler);
}

int register_one(tarvik_cookie *cookie, uint32_t type, uint32_t low, uint32_t high, void *arg,
                 tarvik_async_handler_t handler) {
  if (refused(cookie, handler)) return EINVAL;
  return tarvik_setup_async_registration(cookie, type, low, high, arg, handler);
}

}  // namespace
}  // namespace tlk::async

using tlk::async::register_one;
using tlk::async::register_row;
using tlk::async::Row;

extern "C" {

#define TLK_ASYNC_ROW_FN(family, ...)                                               \
  TLK_EXPORT int tarvik_##family##_async_register(tarvik_cookie *cookie, void *arg, \
                                                  tarvik_async_handler_t handler) { \
    return register_row(cookie, Row::family, arg, handler);                         \
  }
TLK_ASYNC_PLAIN_ROWS(TLK_ASYNC_ROW_FN)
#undef TLK_ASYNC_ROW_FN

// Flag 1 asks for 0x10 and flag 4 for 0x4; other bits of the caller's word are ignored.
TLK_EXPORT int tarvik_iffm_async_register(tarvik_cookie *cookie, uint32_t flags, void *arg,
                                          tarvik_async_handler_t handler) {
  return register_one(cookie, TLK_MSG_IFFAMILY, (flags & 4) | ((flags & 1) << 4), 0, arg, handler);
}

// The same two flag values choose 0x20 (flag 1) and 0x8 (flag 4) for address messages.
TLK_EXPORT int tarvik_ifam_async_register(tarvik_cookie *cookie, uint32_t flags, void *arg,
                                          tarvik_async_handler_t handler) {
  return register_one(cookie, TLK_MSG_IFADDR, ((flags & 4) << 1) | ((flags & 1) << 5), 0, arg,
                      handler);
}

// Flag 4 asks for 0x1000000 in the high word; without it the slot takes what comes unasked.
TLK_EXPORT int tarvik_sysstatsm_async_register(tarvik_cookie *cookie, uint32_t flags, void *arg,
                                               tarvik_async_handler_t handler) {
  return register_one(cookie, TLK_MSG_SYSSTATS, 0, (flags & 4) << 22, arg, handler);
}

TLK_EXPORT int tarvik_qsr_async_register(tarvik_cookie *cookie, void *arg,
                                         tarvik_async_handler_t handler, uint32_t extra) {
  const uint32_t high = tlk::async::kQsrHigh | (extra != 0 ? tlk::async::kQsrExtraHigh : 0);
  return register_one(cookie, TLK_MSG_QSR, 0, high, arg, handler);
}

TLK_EXPORT int tarvik_kuack_async_register(tarvik_cookie *cookie, uint32_t, void *arg,
                                           tarvik_async_handler_t handler) {
  return register_one(cookie, TLK_MSG_KUACK_MESSAGES, 0, 0, arg, handler);
}

// Subtype 0 ("IFS EndOfChain") of type 85 at offset 24, one entry, no listen bits.  With one
// entry, all_subtypes changes nothing, and whichever of the two comes second finds the slot taken.
TLK_EXPORT int tarvik_ifsclim_async_register(tarvik_cookie *cookie, void *arg,
                                             tarvik_async_handler_t handler) {
  return tarvik_async_subtype_handler_register(cookie, TLK_MSG_IFSCLINFO, 0, 1, 24, 1, 0, 0, arg,
                                               handler);
}

TLK_EXPORT int tarvik_ifstate_eochain_register(tarvik_cookie *cookie, void *arg,
                                               tarvik_async_handler_t handler) {
  return tarvik_async_subtype_handler_register(cookie, TLK_MSG_IFSCLINFO, 0, 1, 24, 0, 0, 0, arg,
                                               handler);
}

TLK_EXPORT int tarvik_async_opaque_register(tarvik_cookie *cookie, void *arg,
                                            tarvik_async_handler_t handler, uint8_t *subtype_mask) {
  const int result =
      register_one(cookie, TLK_MSG_ASYNC_OPAQUE, 0, tlk::async::kOpaqueHigh, arg, handler);
  if (result != 0 || subtype_mask == nullptr) return result;
  subtype_mask[0] = 35;  // the listen bit number of "async opaque": bit 3 of the high word
  return tarvik_set_async_msg_subtype(cookie, subtype_mask);
}

TLK_EXPORT int tlk_async_listen_bits(uint32_t type, uint32_t *mask_low, uint32_t *mask_high) {
  uint32_t low = 0, high = 0;
  bool found = false;
  for (const auto &r : tlk::async::kRegisterTable) {
    for (uint8_t i = 0; i < r.ntypes; ++i) {
      if (r.types[i] != type) continue;
      found = true;
      low |= r.low;
      high |= r.high;
    }
  }
  if (mask_low != nullptr) *mask_low = low;
  if (mask_high != nullptr) *mask_high = high;
  return found ? 0 : -1;
}

}  // extern "C"
