// The printers of the USP blob rows.  Each blob is a fixed layout in network byte order:
//
//   ZONE, LSYS            name[64] | id
//   IDS                   name[64] | id | lsys id
//   IFL_EXT               name[64] | id | zone id
//   IFL_EXT_ALL           zone id
//   SSL_*_PROFILE         key | profile[64] | id
//   SSL_CERT              cert[64]
//   IPSEC_PERF_ACCELERATION, POWER_MODE_IPSEC   one word, non-zero for on
//
// The words are swapped to host order in place before they print, so a message prints once:
// a second print swaps them back.  A blob shorter than its layout, or no message at all, prints
// as no blob.
#include <arpa/inet.h>
#include <stdio.h>
#include <string.h>

#include "format/usp_rows.h"
#include "tarlink.h"

namespace tlk::format {
namespace {

constexpr size_t kDst = 257;
constexpr size_t kName = 64;

// Swaps `count` words from `at` in place and hands back the blob, or null if it is too short.
uint8_t *swapped(gencfg_msg *m, size_t at, size_t count) {
  if (m == nullptr || m->blob == nullptr || m->blob_len < at + 4 * count) return nullptr;
  for (size_t i = 0; i < count; ++i) {
    uint32_t w;
    memcpy(&w, m->blob + at + 4 * i, 4);
    w = ntohl(w);
    memcpy(m->blob + at + 4 * i, &w, 4);
  }
  return m->blob;
}
uint32_t word(const uint8_t *b, size_t at) {
  uint32_t w;
  memcpy(&w, b + at, 4);
  return w;
}
// A name field of 64 bytes, cut at its first zero.
struct Name {
  char s[kName + 1];
  explicit Name(const uint8_t *b) {
    memcpy(s, b, kName);
    s[kName] = 0;
  }
};

// The named layouts: a name, then `words` words.
template <size_t kWords>
uint8_t *named(gencfg_msg *m) {
  if (m == nullptr || m->blob == nullptr || m->blob_len < kName + 4 * kWords) return nullptr;
  return swapped(m, kName, kWords);
}

}  // namespace

void usp_print_zone(char *dst, gencfg_msg *m) {
  const uint8_t *b = named<1>(m);
  if (b == nullptr) {
    snprintf(dst, kDst, "No zone data.");
    return;
  }
  snprintf(dst, kDst, "name %s, id %d", Name(b).s, static_cast<int>(word(b, kName)));
}

void usp_print_ids(char *dst, gencfg_msg *m) {
  const uint8_t *b = named<2>(m);
  if (b == nullptr) {
    snprintf(dst, kDst, "No screen data.");
    return;
  }
  snprintf(dst, kDst, "name %s, id %d, lsys id %d", Name(b).s, static_cast<int>(word(b, kName)),
           static_cast<int>(word(b, kName + 4)));
}

void usp_print_ifl_ext(char *dst, gencfg_msg *m) {
  const uint8_t *b = named<2>(m);
  if (b == nullptr) {
    snprintf(dst, kDst, "No Ifl ext data.");
    return;
  }
  snprintf(dst, kDst, "name %s, id %d, zone_id %d", Name(b).s, static_cast<int>(word(b, kName)),
           static_cast<int>(word(b, kName + 4)));
}

void usp_print_ifl_ext_all(char *dst, gencfg_msg *m) {
  const uint8_t *b = swapped(m, 0, 1);
  if (b == nullptr) {
    snprintf(dst, kDst, "No Ifl ext all data.");
    return;
  }
  snprintf(dst, kDst, "zone_id %d", static_cast<int>(word(b, 0)));
}

void usp_print_ssl_profile(char *dst, gencfg_msg *m) {
  if (m == nullptr || m->blob == nullptr || m->blob_len < 4 + kName + 4) {
    // Without a blob the key is the message's own.
    snprintf(dst, kDst, "key %d, no profile data.", m != nullptr ? static_cast<int>(m->kid) : 0);
    return;
  }
  swapped(m, 0, 1);
  const uint8_t *b = swapped(m, 4 + kName, 1);
  snprintf(dst, kDst, "key %d, profile %s, id %d", static_cast<int>(word(b, 0)), Name(b + 4).s,
           static_cast<int>(word(b, 4 + kName)));
}

void usp_print_ssl_cert(char *dst, gencfg_msg *m) {
  if (m == nullptr || m->blob == nullptr || m->blob_len < kName) {
    snprintf(dst, kDst, "No cert data.");
    return;
  }
  snprintf(dst, kDst, "cert %s", Name(m->blob).s);
}

void usp_print_lsys(char *dst, gencfg_msg *m) {
  const uint8_t *b = named<1>(m);
  if (b == nullptr) {
    snprintf(dst, kDst, "No lsys data.");
    return;
  }
  snprintf(dst, kDst, "name %s, id %d", Name(b).s, static_cast<int>(word(b, kName)));
}

void usp_print_ipsec_perf(char *dst, gencfg_msg *m) {
  const uint8_t *b = swapped(m, 0, 1);
  snprintf(dst, kDst, "%s", b == nullptr ? "No flow_ipa data." : word(b, 0) != 0 ? "on" : "off");
}

void usp_print_power_mode(char *dst, gencfg_msg *m) {
  const uint8_t *b = swapped(m, 0, 1);
  snprintf(dst, kDst, "%s",
           b == nullptr      ? "No flow_pmi data."
           : word(b, 0) != 0 ? "Enabled"
                             : "Disabled");
}

}  // namespace tlk::format
