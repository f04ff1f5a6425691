// Message lists: a run of messages handed to the caller as one container, with one rule for how
// its entries are released.
//
//   kind 0  fresh, nothing held
//   kind 1  filled from a block under 4 bytes: msgs[0] is the caller's block, freed once
//   kind 2  built by adding: each entry is a block of its own
//   kind 3  filled from a block of 4 bytes or more: each decoded entry is an arena of its own
//
// A block is a run of messages back to back.  Its first word tells the form of all of them: a
// frame (TLV or IDR magic) is decoded into an arena per message; anything else is a run of raw
// messages, which stay inside the caller's block.
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "idl/envelope.h"
#include "wire.h"

namespace {

constexpr uint16_t kFirstTable = 16;    // entries of the first table of a list built by adding
constexpr uint32_t kFirstIdlStep = 22;  // the step an IDL count takes when too few bytes remain
constexpr size_t kRawHead = 12;         // a raw message's whole length is its third word

using tlk::wire::is_frame_magic;
using tlk::wire::load_u32;

// Counts the messages of a block.  The form of the first message speaks for all.  A block that
// is not an exact run of whole messages is refused with EINVAL: it did not come whole from the
// kernel.
int count_messages(const uint8_t *block, size_t length, uint32_t magic, uint32_t *count) {
  size_t left = length;
  uint32_t step = kFirstIdlStep;
  uint32_t n = 0;
  while (left != 0) {
    const uint8_t *p = block + (length - left);
    if (is_frame_magic(magic)) {
      // Frame length: payload length plus the 12-byte head; with under 8 bytes left the
      // previous step stands.
      if (left >= 8) {
        const uint64_t whole = tlk::wire::frame_length(p);  // no wrap: a huge claim stays huge
        if (whole > left) return EINVAL;
        step = static_cast<uint32_t>(whole);
      }
    } else {
      // A raw message shorter than its head is the rest of the block.
      step = left >= kRawHead ? load_u32(p + tlk::wire::kMsglenAt) : static_cast<uint32_t>(left);
    }
    if (step == 0 || step > left) return EINVAL;
    left -= step;
    ++n;
  }
  *count = n;
  return 0;
}

// Whether entry `i` of a kind-3 list lies inside the caller's block (a raw fill): its arena
// word then holds the entry's own address, which no decoded message's word can be.
bool inside_block(const tarvik_msg_list_t *list, uint32_t i) {
  return list->arenas != nullptr && list->arenas[i] == reinterpret_cast<uintptr_t>(list->msgs[i]);
}

}  // namespace

extern "C" {

TLK_EXPORT tarvik_msg_list_t *tarvik_msg_list_alloc(tarvik_cookie *cookie) {
  if (cookie == nullptr) return nullptr;
  auto *list =
      static_cast<tarvik_msg_list_t *>(tarvik_size_alloc(cookie, sizeof(tarvik_msg_list_t)));
  if (list != nullptr) memset(list, 0, sizeof *list);
  return list;
}

TLK_EXPORT int tarvik_msg_list_add(tarvik_cookie *cookie, tarvik_msg_list_t *list, void *message) {
  if (cookie == nullptr || list == nullptr || message == nullptr) return EINVAL;
  const auto *h = static_cast<const tlk_hdr *>(message);
  if (list->count != 0 && (h->tlkh_type != list->type || h->tlkh_version != list->version))
    return EINVAL;
  list->kind = TARVIK_MSG_LIST_ADDED;
  if (list->spare == 0) {
    // The free places are measured only when the table grows; an add doesn't consume them, so
    // the first table of 16 is the only one this path ever allocates.
    const uint32_t size = list->count == 0 ? kFirstTable : 2u * list->count;
    auto **table = static_cast<void **>(tarvik_size_alloc(cookie, size * sizeof(void *)));
    if (table == nullptr) return ENOMEM;
    if (list->count != 0) memcpy(table, list->msgs, list->count * sizeof(void *));
    tarvik_msg_free(cookie, list->msgs);
    list->msgs = table;
    list->spare = static_cast<uint16_t>(size - list->count);
  }
  if (list->count == 0) {
    list->version = h->tlkh_version;
    list->type = h->tlkh_type;
  }
  list->msgs[list->count++] = message;
  return 0;
}

TLK_EXPORT int tarvik_msg_list_fillin(tarvik_cookie *cookie, tarvik_msg_list_t *list, size_t length,
                                      void *block) {
  if (cookie == nullptr || list == nullptr || block == nullptr || length == 0) return EINVAL;
  const auto *bytes = static_cast<const uint8_t *>(block);
  memset(list, 0, sizeof *list);
  const uint32_t magic = length >= 4 ? load_u32(bytes) : 0;
  list->kind = length >= 4 ? TARVIK_MSG_LIST_DECODED : TARVIK_MSG_LIST_BLOCK;

  uint32_t count = 0;
  int err = count_messages(bytes, length, magic, &count);
  if (err != 0) return err;
  list->spare = static_cast<uint16_t>(count);
  list->msgs = static_cast<void **>(tarvik_size_alloc(cookie, count * sizeof(void *)));
  if (list->msgs == nullptr) return ENOMEM;
  if (list->kind == TARVIK_MSG_LIST_DECODED) {
    list->arenas = static_cast<uintptr_t *>(tarvik_size_alloc(cookie, count * sizeof(uintptr_t)));
    if (list->arenas == nullptr) return ENOMEM;
    memset(list->arenas, 0, count * sizeof(uintptr_t));
  }

  size_t off = 0;
  for (uint32_t i = 0; i < count; ++i) {
    --list->spare;
    const uint8_t *p = bytes + off;
    const size_t left = length - off;
    if (is_frame_magic(magic)) {
      if (left < 8) return EINVAL;
      const size_t whole = static_cast<size_t>(tlk::wire::frame_length(p));
      if (whole > left) return EINVAL;
      void *msg = nullptr;
      void *arena = nullptr;
      // Every message of the block stays alive at once: first arenas sized to the frame.
      uint32_t frame = 0;
      err = tlk::idl::decode_with_growth(cookie, p, whole, &msg, &arena, &frame, /*tight=*/true);
      if (err != 0) return err;
      const auto *h = static_cast<const tlk_hdr *>(msg);
      list->version = h->tlkh_version;
      list->type = h->tlkh_type;
      list->msgs[list->count] = msg;
      list->arenas[list->count] = reinterpret_cast<uintptr_t>(arena);
      ++list->count;
      off += whole;
    } else {
      const size_t whole = left >= kRawHead ? load_u32(p + tlk::wire::kMsglenAt) : left;
      if (left > tlk::wire::kTypeAt) {
        list->version = p[tlk::wire::kVersionAt];
        list->type = p[tlk::wire::kTypeAt];
      }
      list->msgs[list->count] = const_cast<uint8_t *>(p);
      if (list->arenas != nullptr) list->arenas[list->count] = reinterpret_cast<uintptr_t>(p);
      ++list->count;
      off += whole;
    }
  }
  return 0;
}

TLK_EXPORT void *tarvik_msg_list_get_by_index(const tarvik_msg_list_t *list, int index) {
  if (list == nullptr || list->msgs == nullptr) return nullptr;
  if (static_cast<unsigned>(index) >= list->count) return nullptr;
  return list->msgs[index];
}

TLK_EXPORT void tarvik_msg_list_free(tarvik_cookie *cookie, tarvik_msg_list_t *list) {
  if (list == nullptr) return;
  if (list->msgs != nullptr) {
    switch (list->kind) {
      case TARVIK_MSG_LIST_BLOCK:
        tarvik_msg_free(cookie, list->msgs[0]);
        break;
      case TARVIK_MSG_LIST_DECODED:
        for (uint32_t i = 0; i < list->count; ++i) {
          // Raw entries of a kind-3 list lie inside the caller's block, which stays the caller's.
          if (!inside_block(list, i))
            tarvik_msg_idl_release(cookie, list->msgs[i],
                                   reinterpret_cast<void *>(list->arenas[i]));
        }
        break;
      default:  // fresh or built by adding: each entry is a block of its own
        for (uint32_t i = 0; i < list->count; ++i) tarvik_msg_free(cookie, list->msgs[i]);
        break;
    }
    tarvik_msg_free(cookie, list->msgs);
    if (list->kind == TARVIK_MSG_LIST_DECODED && list->arenas != nullptr)
      tarvik_msg_free(cookie, list->arenas);
  }
  tarvik_msg_free(cookie, list);
}

}  // extern "C"
