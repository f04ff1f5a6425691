// Address family numbers of the TLV wire.  TLV carries families in numbers of its own; IDR
// carries the host's number as it stands.
//
// The two tables are deliberately not inverses: host 21 and 22 go out as 0, while wire 21 and 22
// come back as themselves.  Wire number 42 is never produced.
#include <array>
#include <cstdio>

#include "platform/platform.h"
#include "tarlink.h"

namespace {

constexpr std::array<uint8_t, 254> make_encode() {
  std::array<uint8_t, 254> t{};
  for (unsigned i = 0; i <= 36; ++i) t[i] = static_cast<uint8_t>(i);
  t[21] = 0;
  t[22] = 0;
  constexpr uint8_t k37to48[] = {150, 0, 37, 151, 38, 152, 39, 0, 40, 0, 41, 0};
  for (unsigned i = 0; i < 12; ++i) t[37 + i] = k37to48[i];
  // Odd numbers 49..141 pack down to 43..89; even numbers and all above 141 have no wire number.
  for (unsigned k = 0; 49 + 2 * k <= 141; ++k) t[49 + 2 * k] = static_cast<uint8_t>(43 + k);
  return t;
}

constexpr std::array<uint8_t, 153> make_decode() {
  std::array<uint8_t, 153> t{};
  for (unsigned i = 0; i <= 36; ++i) t[i] = static_cast<uint8_t>(i);
  constexpr uint8_t k37to42[] = {39, 41, 43, 45, 47, 0};
  for (unsigned i = 0; i < 6; ++i) t[37 + i] = k37to42[i];
  for (unsigned k = 0; 43 + k <= 89; ++k) t[43 + k] = static_cast<uint8_t>(49 + 2 * k);
  t[150] = 37;
  t[151] = 40;
  t[152] = 42;
  return t;
}

constexpr auto kEncode = make_encode();
constexpr auto kDecode = make_decode();
static_assert(kEncode[141] == 89 && kEncode[50] == 0 && kEncode[142] == 0 && kEncode[40] == 151);
static_assert(kDecode[89] == 141 && kDecode[90] == 0 && kDecode[149] == 0 && kDecode[42] == 0);

void invalid(const char *func, uint32_t family) {
  char text[96];
  std::snprintf(text, sizeof text, "%s: Invalid address family %d", func, static_cast<int>(family));
  tlk::platform::ops().syslog(2, text);  // LOG_CRIT
}

}  // namespace

extern "C" {

TLK_EXPORT uint32_t tlk_encode_af(uint32_t family) {
  if (family >= kEncode.size()) {
    invalid("tlk_encode_af", family);
    return family;
  }
  return kEncode[family];
}

TLK_EXPORT uint32_t tlk_decode_af(uint32_t family) {
  if (family >= kDecode.size()) {
    invalid("tlk_decode_af", family);
    return family;
  }
  return kDecode[family];
}

}  // extern "C"
