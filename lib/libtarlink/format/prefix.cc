// tarvik_format_prefix: a prefix of any family as text.  Each family with a form of its own has
// one row in kForms; every other family, and the families of mode 0 only in another mode, print
// the bytes that the prefix length covers.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "format/text.h"
#include "tarlink/format.h"
#include "tarlink_platform.h"

namespace tlk::format {
namespace {

constexpr int kInet = 2;
constexpr int kInet6 = 28;
constexpr int kModeNatural = 0;
constexpr int kModeHex = 2;

size_t covered_bytes(uint32_t bits) {
  return static_cast<size_t>((static_cast<uint64_t>(bits) + 7) / 8);
}

// "0x0a0102/24" in mode 2, "10.1.2/24" in any other.
void fallback(Text &t, const uint8_t *b, uint32_t bits, int mode) {
  const size_t n = covered_bytes(bits);
  if (mode == kModeHex) t.add("0x");
  for (size_t i = 0; i < n && !t.full(); ++i) {
    if (mode == kModeHex) {
      t.add("%02x", b[i]);
    } else {
      t.add(i == 0 ? "%d" : ".%d", b[i]);
    }
  }
  t.add("/%u", bits);
}

void ipv4(Text &t, const uint8_t *b) {
  t.add("%u.%u.%u.%u", b[0], b[1], b[2], b[3]);
}

// An address of the inet families through the platform's inet_ntop, with the family as given: a
// prefix longer than the family's width is a source and group pair, "S,G".  False, after saying
// why on the standard error for inet and inet6 alone, if inet_ntop refuses either address.
bool inet_natural(Text &t, const uint8_t *b, uint32_t bits, int family) {
  const size_t width = family == kInet6 ? 128 : 32;
  const tlk_platform &os = *tlk_platform_get();
  char first[64] = "", second[64] = "";
  bool ok = os.inet_ntop != nullptr && os.inet_ntop(family, b, first, sizeof first) != nullptr;
  if (ok && bits > width) {
    ok = os.inet_ntop(family, b + width / 8, second, sizeof second) != nullptr;
  }
  if (!ok) {
    if ((family == kInet || family == kInet6) && os.print_stderr != nullptr) {
      char line[128];
      snprintf(line, sizeof line, "inet_ntop failed: %s", strerror(errno));
      os.print_stderr(line);
    }
    return false;
  }
  t.add("%s", first);
  if (bits > width) t.add(",%s", second);
  return true;
}

// 39 "mpls", mode 0 and 20 bits or more only: a 32-bit number, or a 20-bit label at the offset
// that the length tells, with the bottom-of-stack bit for 40 and 56 bits.
bool mpls(Text &t, const uint8_t *b, uint32_t bits, int mode) {
  if (mode != kModeNatural || bits < 20) return false;
  if (bits == 32) {
    t.add("%u", be32(b));
    return true;
  }
  const size_t at = bits == 36 || bits == 40 ? 2 : bits == 52 || bits == 56 ? 4 : 0;
  const uint8_t *l = b + at;
  const uint32_t label =
      static_cast<uint32_t>(l[0]) << 12 | static_cast<uint32_t>(l[1]) << 4 | l[2] >> 4;
  if (bits == 40 || bits == 56) {
    t.add("%u(S=%d)", label, l[2] & 1);
  } else {
    t.add("%u", label);
  }
  return true;
}

// 63 "vpls", 127 "satellite-vpls".
bool vpls(Text &t, const uint8_t *b, uint32_t bits, int) {
  if (bits == 32) {
    t.add("%u", be32(b));
    return true;
  }
  const size_t n = covered_bytes(bits);
  for (size_t i = 0; i < n && !t.full(); ++i) t.add(i == 0 ? "%x" : ".%x", b[i]);
  return true;
}

// 73 "ethernet-switching": the VLAN, then a group of the length's kind.
bool ethernet_switching(Text &t, const uint8_t *b, uint32_t bits, int) {
  t.add("%u", be16(b));
  switch (bits) {
    case 20:
      t.add(", %u.0.0.0", b[2] & 0xF0u);  // the top four bits where they stand
      break;
    case 48:
      t.add(", ");
      ipv4(t, b + 2);
      break;
    case 64:
      t.add(", %02x:%02x:%02x:%02x:%02x:%02x", b[2], b[3], b[4], b[5], b[6], b[7]);
      break;
    default:
      t.add(", *");
      break;
  }
  return true;
}

// 75 "vmembers", 91 "fc-fmembers": text only when the marker word at byte 4 is 1.  Otherwise the
// destination stays as it was, deliberately.
bool members(Text &t, const uint8_t *b, uint32_t, int) {
  if (be16(b + 4) == 1) t.add("%u, %d", be32(b), static_cast<int>(be16(b + 8)));
  return true;
}

// 83 "MSTI".
bool msti(Text &t, const uint8_t *b, uint32_t, int) {
  t.add("%u, %d", be32(b), static_cast<int>(be16(b + 4)));
  return true;
}

void mac_slash(Text &t, uint32_t vlan, const uint8_t *mac) {
  t.add("%u/%02x:%02x:%02x:%02x:%02x:%02x/", vlan, mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
}

// 85 "dhcp-snooping": VLAN at 10, MAC at 0, IPv4 at 6.
bool dhcp_snooping(Text &t, const uint8_t *b, uint32_t, int) {
  mac_slash(t, be16(b + 10), b);
  ipv4(t, b + 6);
  return true;
}

// 123 "dhcpv6-snooping": VLAN at 22, MAC at 0, IPv6 at 6 (nothing if inet_ntop refuses it).
bool dhcpv6_snooping(Text &t, const uint8_t *b, uint32_t, int) {
  mac_slash(t, be16(b + 22), b);
  const tlk_platform &os = *tlk_platform_get();
  char addr[64];
  if (os.inet_ntop != nullptr && os.inet_ntop(kInet6, b + 6, addr, sizeof addr) != nullptr) {
    t.add("%s", addr);
  }
  return true;
}

// 89 "fibre-channel".  The bytes go through a signed char, so 0x80 and above print sign-extended
// ("ffffff80"), as the form always has.
bool fibre_channel(Text &t, const uint8_t *b, uint32_t bits, int) {
  t.add("%u", be16(b));
  if (bits < 3) {
    t.add(", *");
    return true;
  }
  auto s = [b](size_t i) { return static_cast<int>(static_cast<int8_t>(b[i])); };
  t.add(", %02x, %02x:%02x:%02x", s(2), s(3), s(4), s(5));
  return true;
}

// 93 "fabric-multicast", 95 "fabric-replication".
bool fabric_multicast(Text &t, const uint8_t *b, uint32_t, int) {
  t.add("%u:%u", be32(b), be32(b + 4));
  return true;
}
bool fabric_replication(Text &t, const uint8_t *b, uint32_t, int) {
  t.add("%u:%u:%u", be32(b), be32(b + 4), be32(b + 8));
  return true;
}

struct Form {
  int family;
  bool (*print)(Text &t, const uint8_t *b, uint32_t bits, int mode);  // false: use the fallback
  bool may_keep;  // may leave the destination as it was
};
constexpr Form kForms[] = {
    {39, mpls, false},
    {63, vpls, false},
    {73, ethernet_switching, false},
    {75, members, true},
    {83, msti, false},
    {85, dhcp_snooping, false},
    {89, fibre_channel, false},
    {91, members, true},
    {93, fabric_multicast, false},
    {95, fabric_replication, false},
    {123, dhcpv6_snooping, false},
    {127, vpls, false},
};

// The families printed by inet_ntop in mode 0.
constexpr int kInetFamilies[] = {kInet, kInet6, 119, 121, 129, 131, 139, 141};

}  // namespace
}  // namespace tlk::format

extern "C" TLK_EXPORT char *tarvik_format_prefix(char *dst, size_t size, const void *data,
                                                 uint32_t bits, int family, int mode) {
  using namespace tlk::format;
  Text t(dst, size);
  const auto *b = static_cast<const uint8_t *>(data);
  if (b == nullptr || bits == 0) {
    t.clear();
    return dst;
  }
  // A form that declines has written nothing, and the fallback follows.
  for (int f : kInetFamilies) {
    if (f != family) continue;
    t.clear();
    if (mode == kModeNatural && inet_natural(t, b, bits, family)) return dst;
    fallback(t, b, bits, mode);
    return dst;
  }
  for (const Form &form : kForms) {
    if (form.family != family) continue;
    if (!form.may_keep) t.clear();
    if (form.print(t, b, bits, mode)) return dst;
    break;
  }
  t.clear();
  fallback(t, b, bits, mode);
  return dst;
}
