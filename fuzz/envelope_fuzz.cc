// Fuzzes the envelope decoders: the ordinary one, the one into a caller's area and the bulk one
// at the session's read cursor.  Input: byte 0 holds flags, then either a whole frame as it came
// off the socket (flag 2) or a type byte and a payload, for which the driver writes a sound head
// with the TLV (flag 1) or IDR magic, so that every type of both encodings is reached.  A decoded
// message is encoded again in both encodings and released; the session's accounting must end
// where it started.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "cookie.h"
#include "tarlink.h"

namespace {

constexpr uint8_t kTlv = 1;
constexpr uint8_t kWholeFrame = 2;

// A callback of the session's own: level 4 lines (a short block) then don't end the process, and
// the fuzzer doesn't drown in lines.
void quiet(tarvik_cookie *, void *, int, const char *) {}

// Decode arenas may legitimately grow to 64 MiB for a short frame with a huge list count, which
// costs the fuzzer a second per input.  A daemon whose allocator refuses large blocks is as real
// a setting, and it takes the allocation-failure paths: blocks above 1 MiB are refused here.
void *(*g_system_malloc)(unsigned, size_t) = nullptr;
void *capped_malloc(unsigned memid, size_t size) {
  return size > (1u << 20) ? nullptr : g_system_malloc(memid, size);
}

tarvik_cookie *session() {
  static tarvik_cookie *cookie = [] {
    g_system_malloc = tarvik_malloc;
    tarvik_malloc = capped_malloc;
    tarvik_mem_rec_enable(nullptr, nullptr);
    tarvik_cookie *c = tarvik_cookie_create();
    tarvik_lib_error_register(c, nullptr, quiet);
    return c;
  }();
  return cookie;
}

void reencode(tarvik_cookie *c, void *msg, void *mask) {
  void *frame = nullptr;
  size_t len = 0;
  if (tarvik_msg_idl_encode(c, msg, nullptr, &frame, &len) != 0) std::abort();
  tarvik_msg_free(c, frame);
  if (mask != nullptr) {
    if (tarvik_msg_idl_encode(c, msg, mask, &frame, &len) != 0) std::abort();
    tarvik_msg_free(c, frame);
  }
}

int32_t outstanding() {
  int32_t n = 0;
  if (tarvik_mem_record.cnts == nullptr) return 0;
  for (unsigned id = 0; id < MEMID_TARVIK_MAX; ++id) n += tarvik_mem_record.cnts[id].outstanding;
  return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2) return 0;
  tarvik_cookie *c = session();
  const int32_t before = outstanding();
  const uint8_t flags = data[0];
  std::vector<uint8_t> frame;
  if (flags & kWholeFrame) {
    frame.assign(data + 1, data + size);
  } else {
    const uint32_t head[3] = {(flags & kTlv) ? TLK_MAGIC_TLV : TLK_MAGIC_IDR,
                              static_cast<uint32_t>(size - 2), data[1]};
    frame.resize(12);
    std::memcpy(frame.data(), head, 12);
    frame.insert(frame.end(), data + 2, data + size);
  }

  void *msg = nullptr, *mask = nullptr;
  if (tarvik_msg_idl_decode(c, frame.data(), frame.size(), &msg, &mask) == 0) {
    // The encoder picks the record by the header's type; a body whose header names another type
    // than its frame (legal: types 11 and 19 share a body) is not a message of either to encode.
    uint32_t frame_type;
    std::memcpy(&frame_type, frame.data() + 8, 4);
    if (static_cast<const tlk_hdr *>(msg)->tlkh_type == frame_type) reencode(c, msg, mask);
    tarvik_msg_idl_release(c, msg, mask);
  }

  alignas(8) static uint8_t area[2048];
  msg = mask = nullptr;
  (void)tarvik_msg_idl_decode_pa(c, frame.data(), frame.size(), &msg, &mask, area, sizeof area);

  // The bulk reader sees the frame at the start of a block that ends with the data.
  if (frame.size() >= 1) {
    std::vector<uint8_t> block(frame);
    c->rbuf_data = block.data();
    c->rbuf_sz = static_cast<uint32_t>(block.size());
    c->rbuf_cur = block.data();
    c->rbuf_end = block.data() + block.size() - 1;
    void *slot = &slot;
    uint32_t decoded = 0;
    if (tarvik_bulkmsg_idl_decode(c, &decoded, &slot, &mask) == 0) {
      if (decoded == 0 || decoded > block.size()) std::abort();
      tarvik_msg_idl_release(c, slot, nullptr);
    } else if (slot != static_cast<void *>(&slot)) {
      std::abort();  // a failed decode must leave the slot alone
    }
    c->rbuf_data = c->rbuf_cur = c->rbuf_end = nullptr;
    c->rbuf_sz = 0;
  }
  if (outstanding() != before) std::abort();  // a message was not released whole
  return 0;
}
