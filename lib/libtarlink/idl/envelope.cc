// The envelope: a raw message becomes a frame and a frame becomes a decoded message in one arena.
//
// Encoding starts with a 16384-byte buffer (the size of a message block, so nearly every message
// takes one pass) and, when the encoder reports more, retries once at the exact size it asked
// for.  Decoding starts with an arena of the same size and grows it by 1024 bytes for as long as
// the decoder runs out: the decoded form of a message may be larger than its frame.
#include <errno.h>
#include <string.h>

#include <algorithm>

#include "cookie.h"
#include "idl/envelope.h"
#include "wire.h"

namespace tlk::idl {
namespace {

constexpr uint32_t kFirstSize = TLK_MSG_BUF_SIZE;
constexpr uint32_t kGrowStep = 1024;
constexpr uint64_t kMaxArena = 64u << 20;
constexpr unsigned kLinearRounds = 8;
constexpr uint64_t kTightMin = 512;

// Words and error numbers of the decoder results, indexed by the result negated.
struct ResultRow {
  const char *word;
  int tlv_errno;
  int idr_errno;
};
constexpr ResultRow kResults[] = {
    {"Invalid Buffer Size", EINVAL, EINVAL}, {"Garbled Message", EINVAL, EINVAL},
    {"Allocation Failure", ENOMEM, ENOMEM},  {"Invalid Magic", EINVAL, EINVAL},
    {"Invalid Choice", EINVAL, EINVAL},      {"HOMOGENEOUS", EINVAL, EINVAL},
};
// The IDR table stops one row earlier: -5 is "Unknown" there.
constexpr int kTlvRows = 6;
constexpr int kIdrRows = 5;

// The decoders' allocation callback: bump allocation from the arena, never freed.  Sizes round
// to 4-byte granules; each block starts on an 8-byte boundary, since records hold pointers and
// 64-bit fields (the arena's base is a heap block, aligned at least as much).
void *arena_alloc(uint32_t size, void *context) {
  auto *arena = static_cast<Arena *>(context);
  const uint64_t rounded = tlk::wire::round4(uint64_t{size});
  const uint64_t at = (static_cast<uint64_t>(arena->used) + 7u) & ~uint64_t{7};
  if (at + rounded > arena->size) {
    if (arena->wanted < at + rounded) arena->wanted = at + rounded;
    return nullptr;
  }
  void *p = arena->base + at;
  arena->used = static_cast<uint32_t>(at + rounded);
  return p;
}

}  // namespace

uint32_t encode_frame(const void *raw, const void *mask, uint8_t *buf, uint32_t length) {
  tlk_msg choice{};
  choice.tlkm_type = static_cast<const uint8_t *>(raw)[tlk::wire::kTypeAt];
  choice.tlkm_msg = const_cast<void *>(raw);  // the encoder only reads through it
  if (mask != nullptr) {
    tlk_msg_tlvmap choice_map{};
    choice_map.tlkm_msg = const_cast<void *>(mask);
    return tlv_encode_tlk_msg_0(&choice, &choice_map, buf, length);
  }
  return idr_encode_tlk_msg_0(&choice, buf, length);
}

int decode_into_arena(tarvik_cookie *cookie, const void *data, size_t length, void **out_msg,
                      void **out_mask, uint8_t *arena_base, uint32_t arena_size, bool retrying,
                      uint64_t *wanted) {
  if (length < 4) return EINVAL;
  Arena arena{arena_base, arena_size, 0, 0};
  const uint32_t magic = tlk::wire::load_u32(data);
  const auto *bytes = static_cast<const uint8_t *>(data);
  const uint32_t len = length > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(length);
  tlk_msg choice{};
  tlk_msg_tlvmap choice_map{};
  int32_t result;
  bool tlv;
  if (magic == TLK_MAGIC_IDR) {
    tlv = false;
    result = idr_decode_tlk_msg_0(&choice, bytes, len, arena_alloc, &arena);
  } else if (magic == TLK_MAGIC_TLV) {
    tlv = true;
    result = tlv_decode_tlk_msg_0(&choice, out_mask ? &choice_map : nullptr, bytes, len,
                                  arena_alloc, &arena);
  } else {
    return EOPNOTSUPP;  // a raw message: the caller handles it as such
  }
  if (result <= 0) {
    const int index = -result;
    const bool known = index < (tlv ? kTlvRows : kIdrRows);
    const char *word = known ? kResults[index].word : "Unknown";
    const int err = known ? (tlv ? kResults[index].tlv_errno : kResults[index].idr_errno) : EINVAL;
    if (wanted != nullptr) *wanted = arena.wanted;
    if (retrying && result == -2) return ENOMEM;
    tarvik_err(cookie, TLK_LEVEL_DEBUG, "IDL %s Decode Error %d(%s)", tlv ? "TLV" : "IDR", result,
               word);
    return err;
  }
  if (choice.tlkm_msg == nullptr) {
    // A frame of a type that has no record carries nothing to hand back: it is refused rather
    // than given to the caller as a message without a body.
    tarvik_err(cookie, TLK_LEVEL_DEBUG, "IDL %s frame of type %u carries no record",
               tlv ? "TLV" : "IDR", choice.tlkm_type);
    return EINVAL;
  }
  // A decoded message's length is what was received, not what the sender wrote.
  static_cast<tlk_hdr *>(choice.tlkm_msg)->tlkh_msglen = len;
  *out_msg = choice.tlkm_msg;
  if (tlv && out_mask != nullptr) *out_mask = choice_map.tlkm_msg;
  return 0;
}

int decode_with_growth(tarvik_cookie *cookie, const void *data, size_t length, void **out_msg,
                       void **out_mask, uint32_t *frame_length, bool tight) {
  if (frame_length == nullptr) return EINVAL;
  *frame_length = 0;
  if (length < 4) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to peek magic");
    return EOPNOTSUPP;
  }
  if (tlk::wire::load_u32(data) == 0) return EOPNOTSUPP;  // a raw message, not a frame
  if (length < 8) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to peek message");
    return EOPNOTSUPP;
  }
  const uint64_t frame = tlk::wire::frame_length(data);
  *frame_length = static_cast<uint32_t>(frame);
  // A frame that claims more than the data holds fails before anything is allocated: it gets the
  // standard first arena rather than one sized by its claim.
  uint64_t size = (frame <= kFirstSize || frame > length) ? kFirstSize : frame + kGrowStep;
  // A block of bulk replies keeps all its messages alive at once: there the first arena is a
  // small multiple of the frame, and the usual growth covers the rare message that needs more.
  if (tight && frame <= length)
    size = std::min<uint64_t>(size, std::max<uint64_t>(kTightMin, frame * 4));
  // A decoded message may take at most 64 MiB or 64 times its frame, whichever is more.  The
  // rules let a short frame ask for much more (a list count whose elements decode from no bytes
  // at all), and without a bound such a frame would grow the arena until memory runs out.
  const uint64_t cap = std::max<uint64_t>(kMaxArena, frame * 64);
  for (unsigned attempt = 0;; ++attempt) {
    if (size > cap || size > UINT32_MAX) {
      tarvik_err(cookie, TLK_LEVEL_ERROR, "Allocation Failure");
      return ENOMEM;
    }
    auto *arena = static_cast<uint8_t *>(tarvik_size_alloc(cookie, static_cast<size_t>(size)));
    if (arena == nullptr) {
      tarvik_err(cookie, TLK_LEVEL_ERROR, "Allocation Failure");
      return ENOMEM;
    }
    uint64_t wanted = 0;
    const int err = decode_into_arena(cookie, data, length, out_msg, out_mask, arena,
                                      static_cast<uint32_t>(size), true, &wanted);
    if (err == 0) return 0;  // the arena is the message now: the record is its first block
    tarvik_msg_free(cookie, arena);
    if (err != ENOMEM) return err;
    tarvik_err(cookie, TLK_LEVEL_DEBUG, "Insufficient buffer. Growing the buffer and retrying");
    // Steps of 1024, but at once past the request that failed, and doubling after a few rounds,
    // so that a message of many small blocks costs a handful of decodes, not thousands.
    uint64_t next = size + kGrowStep;
    if (wanted > next) next = (wanted + kGrowStep - 1) / kGrowStep * kGrowStep;
    if (attempt >= kLinearRounds) next = std::max(next, size * 2);
    size = next;
  }
}

}  // namespace tlk::idl

extern "C" {

TLK_EXPORT uint32_t tarvik_msglen = 0;

TLK_EXPORT int tarvik_msg_idl_encode(tarvik_cookie *cookie, const void *rawmsg, const void *mask,
                                     void **out_buffer, size_t *out_length) {
  if (out_buffer != nullptr) *out_buffer = nullptr;
  if (out_length != nullptr) *out_length = 0;
  if (cookie == nullptr || rawmsg == nullptr || out_buffer == nullptr || out_length == nullptr) {
    return EINVAL;
  }
  uint32_t size = tlk::idl::kFirstSize;
  for (;;) {
    // A message block, as tarvik_size_alloc gives it, but not cleared first: the encoder writes
    // every byte of the frame, its pads included, and nothing past the frame is handed out.
    auto *buf = static_cast<uint8_t *>(tarvik_malloc(MEMID_TARVIK_MSG, size));
    if (buf == nullptr) {
      tarvik_err(cookie, TLK_LEVEL_ERROR, "Allocation Failure for (%d) bytes",
                 static_cast<int>(size));
      return ENOMEM;
    }
    const uint32_t need = tlk::idl::encode_frame(rawmsg, mask, buf, size);
    if (need <= size) {
      *out_buffer = buf;
      *out_length = need;
      tarvik_msglen = need;
      return 0;
    }
    tarvik_msg_free(cookie, buf);
    size = need;  // the encoder reported the exact size: the next pass fits
  }
}

TLK_EXPORT int tarvik_msg_idl_decode(tarvik_cookie *cookie, const void *data, size_t length,
                                     void **out_msg, void **out_mask) {
  if (out_msg == nullptr || data == nullptr) return EINVAL;
  uint32_t frame_length = 0;
  return tlk::idl::decode_with_growth(cookie, data, length, out_msg, out_mask, &frame_length);
}

TLK_EXPORT void tarvik_msg_idl_release(tarvik_cookie *cookie, void *msg, void *) {
  tarvik_msg_free(cookie, msg);
}

TLK_EXPORT int tarvik_msg_idl_encode_pa(tarvik_cookie *cookie, const void *rawmsg, void *buffer,
                                        size_t *in_out_length) {
  if (buffer == nullptr || in_out_length == nullptr || *in_out_length == 0 || rawmsg == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Invalid parameters");
    return EINVAL;
  }
  const uint32_t room =
      *in_out_length > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(*in_out_length);
  const uint32_t need =
      tlk::idl::encode_frame(rawmsg, nullptr, static_cast<uint8_t *>(buffer), room);
  *in_out_length = need;
  return need > room ? ENOMEM : 0;
}

TLK_EXPORT int tarvik_msg_idl_decode_pa(tarvik_cookie *cookie, const void *data, size_t length,
                                        void **out_msg, void **out_mask, void *arena,
                                        size_t arena_size) {
  if (out_msg == nullptr || data == nullptr || arena == nullptr) return EINVAL;
  const uint32_t size = arena_size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(arena_size);
  return tlk::idl::decode_into_arena(cookie, data, length, out_msg, out_mask,
                                     static_cast<uint8_t *>(arena), size, false);
}

TLK_EXPORT uint32_t *tarvik_idl_peek_length(uint32_t *out, const void *data, size_t length) {
  if (out == nullptr || data == nullptr || length < 8) return nullptr;
  // In 32 bits: a claim near 4 GiB wraps, as the peek has always reported it.
  *out = static_cast<uint32_t>(tlk::wire::frame_length(data));
  return out;
}

TLK_EXPORT uint32_t *tarvik_idl_peek_magic(uint32_t *out, const void *data, size_t length) {
  if (out == nullptr || data == nullptr || length < 4) return nullptr;
  *out = tlk::wire::load_u32(data);
  return out;
}

// The attachments of a raw message under construction live in a list of 128 pointer slots carved
// from the message's own variable area, at the caller's cursor, on the first attachment.
TLK_EXPORT int tlkm_info_user_add(void *rawmsg, struct tlk_msg_info *info, void **in_out_cursor) {
  constexpr uint32_t kSlots = 128;
  if (rawmsg == nullptr || in_out_cursor == nullptr) return EINVAL;
  auto *hdr = static_cast<tlk_hdr *>(rawmsg);
  if (hdr->tlkh_info != nullptr && hdr->tlkh_info_len > kSlots - 1) return ENOMEM;
  if (hdr->tlkh_info == nullptr) {
    auto *slots = static_cast<tlk_msg_info **>(*in_out_cursor);
    // The cursor moves past the slots even when it held no address (then the call fails); the
    // arithmetic is done on the integer so that a null cursor stays defined.
    *in_out_cursor = reinterpret_cast<void *>(reinterpret_cast<uintptr_t>(*in_out_cursor) +
                                              kSlots * sizeof(tlk_msg_info *));
    if (slots == nullptr) return ENOMEM;
    hdr->tlkh_info = slots;
    hdr->tlkh_info_len = 0;
  }
  hdr->tlkh_info[hdr->tlkh_info_len++] = info;
  return 0;
}

}  // extern "C"
