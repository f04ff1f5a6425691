// Asynchronous contexts and registration: the session's asynchronous record, the three ways of
// tying the socket to a loop, handler slots, listen masks, mode, subtypes, filters and teardown.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>

#include "async/register_table.h"
#include "cookie.h"
#include "platform/platform.h"
#include "wire.h"

namespace {

using tlk::platform::ops;

constexpr uint32_t kNumSlots = TLK_NUM_MSG_TYPES + 1;  // types 0 to 110
constexpr uint32_t kModeAccepted = 0x1ff9f;            // bits 5, 6 and 17 up are refused
constexpr uint32_t kDefaultReadsPerEvent = 10;
constexpr socklen_t kFilterRecordLen = 8 + TLK_ASYNC_FILTER_LEN;

bool has_async(const tarvik_cookie *cookie) {
  return cookie != nullptr && cookie->async_info != nullptr;
}

// A socket option at the kernel's level; on failure logs "<what> <error text>" at TLK_LEVEL_ERROR
// and gives -1 with errno as the call left it.
int set_route_option(tarvik_cookie *cookie, int name, const void *value, socklen_t len,
                     const char *what) {
  if (ops().setsockopt(cookie->fd, TLK_SOL_ROUTE, name, value, len) == 0) return 0;
  tarvik_err(cookie, TLK_LEVEL_ERROR, "%s %s", what, strerror(errno));
  return -1;
}

int send_listen_mask(tarvik_cookie *cookie, uint32_t low, uint32_t high, const char *what) {
  const uint32_t mask[2] = {low, high};
  return set_route_option(cookie, TLK_SO_LISTEN, mask, sizeof mask, what);
}

// Puts the session's socket on its loop, once, in plain form: the session's descriptor, read
// events, the engine's callback.  The loop's answer is not looked at.
void select_plain(tarvik_cookie *cookie, tarvik_async_info_t *info) {
  (void)ops().evSelectFD(info->context, cookie->fd, TLK_EV_READ, tarvik_async_event_callback,
                         cookie, &info->select_id);
  info->flags |= TARVIK_ASYNC_SELECTED;
}

bool needs_select(const tarvik_async_info_t *info) {
  return (info->flags & (TARVIK_ASYNC_SELECTED | TARVIK_ASYNC_NO_CONTEXT)) == 0;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_alloc_async_info(tarvik_cookie *cookie) {
  if (cookie == nullptr || cookie->async_info != nullptr) return EINVAL;
  auto *info = static_cast<tarvik_async_info_t *>(
      tarvik_malloc(MEMID_TARVIK_ASYNC_CTX, sizeof(tarvik_async_info_t)));
  if (info == nullptr) {
    errno = ENOMEM;
    tarvik_err(cookie, TLK_LEVEL_FATAL, "async info allocation failed %s\n", strerror(errno));
    return -1;
  }
  memset(info, 0, sizeof *info);
  cookie->async_info = info;
  return 0;
}

TLK_EXPORT int tarvik_set_async_context(tarvik_cookie *cookie, evContext context) {
  const int result = tarvik_alloc_async_info(cookie);
  if (result != 0) return result;
  cookie->async_info->context = context;
  cookie->async_info->cleanup = tarvik_async_context_cleanup;
  tarvik_async_set_num_read_msg(cookie, kDefaultReadsPerEvent);
  return 0;
}

TLK_EXPORT int tarvik_create_async_context(tarvik_cookie *cookie) {
  if (cookie == nullptr || cookie->async_info != nullptr) return EINVAL;
  evContext context{};
  if (ops().evCreate(&context) != 0) {
    // The format ends in a lone '%', which printf drops; the error text is passed and never shown.
    tarvik_err(cookie, TLK_LEVEL_FATAL, "%s", "async context creation failed ");
    return -1;
  }
  const int result = tarvik_set_async_context(cookie, context);
  if (result != 0) {
    (void)ops().evDestroy(context);
    return result;
  }
  cookie->async_info->flags |= TARVIK_ASYNC_OWN_CONTEXT;
  return tarvik_get_async_seq_num(cookie, &cookie->seq);
}

TLK_EXPORT int tarvik_set_async_info_nocontext(tarvik_cookie *cookie, int *fd_out) {
  const int result = tarvik_alloc_async_info(cookie);
  if (result != 0) return result;
  cookie->async_info->flags |= TARVIK_ASYNC_NO_CONTEXT;
  if (fd_out != nullptr) *fd_out = cookie->fd;
  return 0;
}

TLK_EXPORT int tarvik_get_async_context(tarvik_cookie *cookie, evContext *context_out) {
  if (!has_async(cookie) || context_out == nullptr) return EINVAL;
  if (cookie->async_info->flags & TARVIK_ASYNC_NO_CONTEXT) return EINVAL;
  *context_out = cookie->async_info->context;
  return 0;
}

TLK_EXPORT int tarvik_async_context_cleanup(tarvik_cookie *cookie) {
  if (!has_async(cookie)) return EINVAL;
  tarvik_async_info_t *info = cookie->async_info;
  if (info->flags & TARVIK_ASYNC_SELECTED) {
    (void)ops().evDeselectFD(info->context, info->select_id);
    info->flags &= ~TARVIK_ASYNC_SELECTED;
  }
  if (info->flags & TARVIK_ASYNC_OWN_CONTEXT) {
    if (ops().evDestroy(info->context) != 0) {
      // As at creation: a trailing lone '%' and an error text that is never shown.
      tarvik_err(cookie, TLK_LEVEL_ERROR, "%s", "async context destruction failed ");
      return -1;
    }
    info->flags &= ~TARVIK_ASYNC_OWN_CONTEXT;
  }
  return 0;
}

// Teardown.  Two things stay allocated on purpose, and callers' leak accounting knows them: the
// entry table of a subtype slot (only its record is freed) and a slot at type 110, which the walk
// below never visits.
TLK_EXPORT int tarvik_destroy_async_context(tarvik_cookie *cookie) {
  if (cookie == nullptr) return EINVAL;
  tarvik_async_info_t *info = cookie->async_info;
  if (info == nullptr) return 0;
  if (info->cleanup != nullptr) {
    const int result = info->cleanup(cookie);
    if (result != 0) return result;  // the record and every slot stay as they were
  }
  for (uint32_t type = 0; type <= TLK_ASYNC_MAX_TYPE; ++type) {
    tarvik_async_reg_t *slot = info->reg[type];
    if (slot == nullptr) continue;
    if (slot->handler == tarvik_async_subtype_handler) {
      tarvik_free(MEMID_TARVIK_SUBTYPE, slot->arg);
      slot->arg = nullptr;
    }
    tarvik_free(MEMID_TARVIK_ASYNC_REG, slot);
    info->reg[type] = nullptr;
  }
  tarvik_free(MEMID_TARVIK_ASYNC_CTX, info);
  cookie->async_info = nullptr;
  return 0;
}

TLK_EXPORT int tarvik_setup_async_registration(tarvik_cookie *cookie, uint32_t msg_type,
                                               uint32_t mask_low, uint32_t mask_high, void *arg,
                                               tarvik_async_handler_t handler) {
  if (!has_async(cookie) || msg_type >= kNumSlots || handler == nullptr) return EINVAL;
  tarvik_async_info_t *info = cookie->async_info;
  if (info->reg[msg_type] != nullptr) return EINVAL;
  const bool hooked = (info->mode & TLK_ASYNC_HOOKED) != 0;
  if (hooked && needs_select(info) && cookie->event_hooks == nullptr) return EINVAL;

  // The first registration puts the session on its loop; a later mode change doesn't move it.
  if (needs_select(info)) {
    if (hooked) {
      const tarvik_event_hooks_t *hooks = cookie->event_hooks;
      (void)ops().evSelectFD(info->context, hooks->fd, TLK_EV_READ | TLK_EV_EXCEPT, hooks->callback,
                             cookie, &info->select_id);
      info->flags |= TARVIK_ASYNC_SELECTED;
    } else {
      select_plain(cookie, info);
    }
  }

  // The kernel is always sent the whole union, so a refusal leaves both sides as they were.
  // Bits never leave by this path.
  if ((mask_low & ~info->listen_mask[0]) != 0 || (mask_high & ~info->listen_mask[1]) != 0) {
    const uint32_t low = info->listen_mask[0] | mask_low;
    const uint32_t high = info->listen_mask[1] | mask_high;
    if (send_listen_mask(cookie, low, high, "failed to set listen bit") != 0) return -1;
    info->listen_mask[0] = low;
    info->listen_mask[1] = high;
  }

  auto *slot = static_cast<tarvik_async_reg_t *>(
      tarvik_malloc(MEMID_TARVIK_ASYNC_REG, sizeof(tarvik_async_reg_t)));
  if (slot == nullptr) {
    // The listen bits and the loop registration above stay.
    errno = ENOMEM;
    tarvik_err(cookie, TLK_LEVEL_ERROR, "async registration allocation failed %s\n",
               strerror(errno));
    return -1;
  }
  slot->arg = arg;
  slot->handler = handler;
  info->reg[msg_type] = slot;
  return 0;
}

TLK_EXPORT int tarvik_setup_async_registration_idl(tarvik_cookie *cookie, uint32_t msg_type,
                                                   uint32_t mask_low, uint32_t mask_high, void *arg,
                                                   tarvik_async_handler_t handler) {
  return tarvik_setup_async_registration(cookie, msg_type, mask_low, mask_high, arg, handler);
}

TLK_EXPORT int tarvik_async_subtype_handler_register(tarvik_cookie *cookie, uint32_t msg_type,
                                                     uint32_t subtype, uint32_t count,
                                                     uint32_t offset, int all_subtypes,
                                                     uint32_t mask_low, uint32_t mask_high,
                                                     void *arg, tarvik_async_handler_t handler) {
  if (!has_async(cookie) || handler == nullptr) return EINVAL;
  // A taken slot makes this a quiet no-op: a second subtype of the same type can't be added.
  if (msg_type < kNumSlots && cookie->async_info->reg[msg_type] != nullptr) return 0;

  auto *record = static_cast<tarvik_async_subtype_info_t *>(
      tarvik_calloc(MEMID_TARVIK_SUBTYPE, 1, sizeof(tarvik_async_subtype_info_t)));
  auto *table = static_cast<tarvik_async_reg_t *>(
      tarvik_calloc(MEMID_TARVIK_ASYNC_REG, count, sizeof(tarvik_async_reg_t)));
  if (record == nullptr || table == nullptr) {
    if (record != nullptr) tarvik_free(MEMID_TARVIK_SUBTYPE, record);
    if (table != nullptr) tarvik_free(MEMID_TARVIK_ASYNC_REG, table);
    return ENOMEM;
  }
  if (all_subtypes == 0) {
    if (subtype >= count) {
      tarvik_free(MEMID_TARVIK_SUBTYPE, record);
      tarvik_free(MEMID_TARVIK_ASYNC_REG, table);
      return EINVAL;
    }
    table[subtype] = {arg, handler};
  } else {
    for (uint32_t i = 0; i < count; ++i) table[i] = {arg, handler};
  }
  record->count = static_cast<uint8_t>(count);
  record->offset = offset;
  record->table = table;
  const int result = tarvik_setup_async_registration(cookie, msg_type, mask_low, mask_high, record,
                                                     tarvik_async_subtype_handler);
  if (result != 0) {
    // No slot holds the record: nothing else could ever free it.
    tarvik_free(MEMID_TARVIK_SUBTYPE, record);
    tarvik_free(MEMID_TARVIK_ASYNC_REG, table);
  }
  return result;
}

TLK_EXPORT int tarvik_input_async_register(tarvik_cookie *cookie) {
  if (!has_async(cookie)) return EINVAL;
  tarvik_async_info_t *info = cookie->async_info;
  // Plain selection whatever the mode: this path never uses the hook table.
  if (needs_select(info)) select_plain(cookie, info);
  if (info->listen_mask[1] & TLKO_INPUT) return 0;
  const uint32_t high = info->listen_mask[1] | TLKO_INPUT;
  if (send_listen_mask(cookie, info->listen_mask[0], high, "failed to set TLKO_INPUT listen bit") !=
      0) {
    return -1;
  }
  info->listen_mask[1] = high;
  return 0;
}

TLK_EXPORT int tarvik_set_async_msg_subtype(tarvik_cookie *cookie, const uint8_t *subtype_mask) {
  if (!has_async(cookie) || subtype_mask == nullptr) return EINVAL;
  return set_route_option(cookie, TLK_SO_SUBTYPES, subtype_mask, TLK_ASYNC_SUBTYPE_LEN,
                          "failed to set listen subtypes");
}

TLK_EXPORT int tarvik_get_async_msg_subtype(tarvik_cookie *cookie, uint8_t *subtype_mask) {
  if (!has_async(cookie) || subtype_mask == nullptr) return EINVAL;
  // Byte 0 chooses the listen bit; the rest carries nothing going in.
  uint8_t buf[TLK_ASYNC_SUBTYPE_LEN] = {subtype_mask[0]};
  socklen_t len = sizeof buf;
  const int result = ops().getsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_SUBTYPES, buf, &len);
  if (result != 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "failed to get listen subtypes %s", strerror(errno));
    return result;
  }
  memcpy(subtype_mask, buf, sizeof buf);
  return 0;
}

//   0        4        8                                                   736
//   +--------+--------+---------------------------------------------------+
//   | listen | listen |  filter record (728 bytes, the kernel's meaning)  |
//   |  low   |  high  |                                                   |
//   +--------+--------+---------------------------------------------------+
TLK_EXPORT int tarvik_async_register_filters(tarvik_cookie *cookie, const void *filter) {
  if (!has_async(cookie) || filter == nullptr) return EINVAL;
  uint8_t record[kFilterRecordLen];
  memcpy(record, cookie->async_info->listen_mask, 8);
  memcpy(record + 8, filter, TLK_ASYNC_FILTER_LEN);
  return set_route_option(cookie, TLK_SO_FILTERS, record, sizeof record,
                          "failed to set listen bit");
}

TLK_EXPORT int tarvik_set_async_mode(tarvik_cookie *cookie, uint32_t mode) {
  if (!has_async(cookie)) return EINVAL;
  if ((mode & ~kModeAccepted) != 0 || (mode != 0 && (mode & TLK_ASYNC_BULK) == 0)) return EINVAL;
  if (ops().setsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_ASYNC_MODE, &mode, sizeof mode) != 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "failed to set async mode bits=0x%x, error=%s", mode,
               strerror(errno));
    return -1;
  }
  cookie->async_info->mode = mode;
  return 0;
}

TLK_EXPORT int tarvik_get_async_seq_num(tarvik_cookie *cookie, uint32_t *seq_out) {
  if (!has_async(cookie) || seq_out == nullptr) return EINVAL;
  uint32_t seq = 0;
  socklen_t len = sizeof seq;
  const int result = ops().getsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_ASYNC_SEQ, &seq, &len);
  if (result != 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "failed to get tarlink sequence number %s",
               strerror(errno));
    return result;
  }
  *seq_out = seq;
  return 0;
}

}  // extern "C"

namespace {

// Drops a family's listen bits and slot, then tells the kernel through a filter record that
// carries the dropped bits.  The filter's result is not looked at.
//
//   filter record: 0..7 zero | 8..11 dropped low | 12..15 dropped high | rest zero
int unregister(tarvik_cookie *cookie, uint32_t type, uint32_t dropped_low) {
  if (!has_async(cookie)) return EINVAL;
  tarvik_async_info_t *info = cookie->async_info;
  info->listen_mask[0] &= ~dropped_low;
  if (info->reg[type] != nullptr) tarvik_free(MEMID_TARVIK_ASYNC_REG, info->reg[type]);
  info->reg[type] = nullptr;
  uint8_t filter[TLK_ASYNC_FILTER_LEN] = {};
  tlk::wire::store_u32(filter + 8, dropped_low);
  (void)tarvik_async_register_filters(cookie, filter);
  return 0;
}

}  // namespace

extern "C" {

// Also drops 0x200000, which the route class family shares: its slot stays and its messages stop.
TLK_EXPORT int tarvik_rtm_async_unregister(tarvik_cookie *cookie) {
  return unregister(cookie, TLK_MSG_ROUTE, tlk::async::kRtmLow);
}

TLK_EXPORT int tarvik_rnhm_async_unregister(tarvik_cookie *cookie) {
  return unregister(cookie, TLK_MSG_NEXTHOP, tlk::async::kRnhmLow);
}

TLK_EXPORT int tlk_async_set_event_hooks(tarvik_cookie *cookie, tarvik_event_hooks_t *hooks) {
  if (cookie == nullptr) return EINVAL;
  cookie->event_hooks = hooks;
  return 0;
}

}  // extern "C"
