// Trace text for the opaque area of an indirect next hop: the EVPN label kinds and the items the
// routing daemon leaves in the area.  Both entries share one static text buffer: neither is
// reentrant.
#include <stdio.h>

#include "tarlink.h"
#include "wire.h"

namespace {

char g_text[64];

// An item of the area:
//
//   0 type (u16)   2 length (u16, from the item's start; the next item is at it rounded to 4)
//   4 body:  0 rtb-id (u32)   4 label kind (u16)   8 peer id (IPv4, u32 as sent)
//           12 ESI (10 bytes)  24 tag kind (2: isid, else vlan)  25 tag value (u32, LE)
constexpr size_t kHeadLen = 4, kBodyLen = 29;
constexpr size_t kRtbAt = 0, kKindAt = 4, kPeerAt = 8, kEsiAt = 12, kTagKindAt = 24, kTagAt = 25;
constexpr uint16_t kFirstEvpn = 10, kLastEvpn = 12;
constexpr uint8_t kTagIsid = 2;
constexpr size_t kLineMax = 2048;

}  // namespace

extern "C" {

TLK_EXPORT const char *get_indr_nh_evpn_tlv_str(uint32_t tlv_type) {
  switch (tlv_type) {
    case 10:
      snprintf(g_text, sizeof g_text, "indr for Control Plane learned MAC");
      break;
    case 11:
      snprintf(g_text, sizeof g_text, "indr for BUM traffic");
      break;
    case 12:
      snprintf(g_text, sizeof g_text, "indr for BUM Traffic with SH Label");
      break;
    default:
      snprintf(g_text, sizeof g_text, "Error: indr for Unknown TLV type =%d",
               static_cast<int>(tlv_type));
      break;
  }
  return g_text;
}

TLK_EXPORT void rnh_decode_opaque_tlv(const void *data, uint32_t length, char *buffer,
                                      uint32_t nh_type) {
  if ((nh_type != 3 && nh_type != 5) || data == nullptr || length == 0 || buffer == nullptr) {
    return;
  }
  const auto *area = static_cast<const uint8_t *>(data);
  uint16_t off = 0;
  while (off < length) {
    if (length - off < kHeadLen) break;  // no whole item head left
    const uint16_t type = tlk::wire::load_u16(area + off);
    const uint16_t stride =
        static_cast<uint16_t>((tlk::wire::load_u16(area + off + 2) + 3) & 0xFFFC);
    const uint8_t *body = area + off + kHeadLen;
    if (type >= kFirstEvpn && type <= kLastEvpn && length - off - kHeadLen >= kBodyLen) {
      char esi[30];
      snprintf(esi, sizeof esi, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", body[kEsiAt],
               body[kEsiAt + 1], body[kEsiAt + 2], body[kEsiAt + 3], body[kEsiAt + 4],
               body[kEsiAt + 5], body[kEsiAt + 6], body[kEsiAt + 7], body[kEsiAt + 8],
               body[kEsiAt + 9]);
      const char *kind = get_indr_nh_evpn_tlv_str(tlk::wire::load_u16(body + kKindAt));
      const uint32_t tag = static_cast<uint32_t>(body[kTagAt]) |
                           static_cast<uint32_t>(body[kTagAt + 1]) << 8 |
                           static_cast<uint32_t>(body[kTagAt + 2]) << 16 |
                           static_cast<uint32_t>(body[kTagAt + 3]) << 24;
      char peer[16];
      snprintf(peer, sizeof peer, "%u.%u.%u.%u", body[kPeerAt], body[kPeerAt + 1],
               body[kPeerAt + 2], body[kPeerAt + 3]);
      snprintf(buffer, kLineMax, "rpd-tlv: %s, rtb-id %d, esi %s, %s %d, peer-id %s ", kind,
               static_cast<int>(tlk::wire::load_u32(body + kRtbAt)), esi,
               body[kTagKindAt] == kTagIsid ? "isid" : "vlan", static_cast<int>(tag), peer);
    }
    // A zero stride would never move on, and the 16-bit offset must not wrap back into the area.
    if (stride == 0 || off + stride > 0xFFFF) break;
    off = static_cast<uint16_t>(off + stride);
  }
}

}  // extern "C"
