// tarvik_format_sockaddr: a BSD socket address (length byte, family byte, data) as text, with a
// name lookup for inet addresses unless the caller asks for numbers.
#include <netdb.h>
#include <string.h>
#include <strings.h>

#include <algorithm>

#include "format/text.h"
#include "tarlink/format.h"
#include "tarlink_platform.h"

namespace tlk::format {
namespace {

constexpr int kInet = 2;
constexpr int kInet6 = 28;
constexpr int kTnp = 41;
constexpr size_t kInetClear = 257;  // the inet branch clears this much of the destination
constexpr size_t kNameCopy = 256;   // and copies a name in with strncpy of this much

// The local domain: what follows the first "." of this host's name, asked for once per process
// and kept.  Empty if the name has no dot or cannot be had.  Not safe for concurrent first use.
char g_hostname[256];
const char *g_domain = nullptr;

const char *local_domain() {
  if (g_domain != nullptr) return g_domain;
  g_domain = "";
  const tlk_platform &os = *tlk_platform_get();
  if (os.gethostname != nullptr && os.gethostname(g_hostname, sizeof g_hostname) == 0) {
    g_hostname[sizeof g_hostname - 1] = 0;
    if (const char *dot = strchr(g_hostname, '.')) g_domain = dot + 1;
  }
  return g_domain;
}

// Cuts the local domain off a host name in place: at the first dot whose remainder is the
// domain, case aside.
void cut_local_domain(char *name) {
  const char *domain = local_domain();
  if (*domain == 0) return;
  for (char *dot = strchr(name, '.'); dot != nullptr; dot = strchr(dot + 1, '.')) {
    if (strcasecmp(dot + 1, domain) == 0) {
      *dot = 0;
      return;
    }
  }
}

void inet(char *dst, size_t size, const uint8_t *a, int numeric) {
  memset(dst, 0, std::min(size, kInetClear));
  Text t(dst, size);
  const uint8_t *addr = a + 4;
  if ((numeric & 0xFF) == 0) {
    const tlk_platform &os = *tlk_platform_get();
    const hostent *h = os.gethostbyaddr != nullptr ? os.gethostbyaddr(addr, 4, kInet) : nullptr;
    if (h != nullptr && h->h_name != nullptr) {
      const size_t n = std::min(size - 1, kNameCopy);
      strncpy(dst, h->h_name, n);
      dst[n] = 0;
      cut_local_domain(dst);
      return;
    }
  }
  t.add("%u.%u.%u.%u", addr[0], addr[1], addr[2], addr[3]);
}

// Any other family: " af=N" and the bytes after the family, two to a group, as long as a whole
// group still fits.
void other(Text &t, const uint8_t *a, size_t end) {
  t.add(" af=%u", a[1]);
  constexpr size_t kGroup = 5;  // " xxxx"
  for (size_t i = 2; i < end && t.room() >= kGroup; i += 2) {
    t.add(" %02x", a[i]);
    if (i + 1 < end) t.add("%02x", a[i + 1]);
  }
}

}  // namespace
}  // namespace tlk::format

extern "C" TLK_EXPORT char *tarvik_format_sockaddr(char *dst, size_t size, const void *address,
                                                   size_t length, int numeric) {
  using namespace tlk::format;
  if (dst == nullptr || size == 0) return dst;
  const auto *a = static_cast<const uint8_t *>(address);
  Text t(dst, size);
  t.clear();
  // An address without its family byte is empty too.
  if (a == nullptr || length < 2) return dst;
  // A family's fields are read only if the given length holds them; an address too short for
  // them prints as any other family.  The bytes dumped stop at the address's own length byte,
  // and at the given length.
  switch (a[1]) {
    case kTnp:
      if (length < 8) break;
      {
        uint32_t word;
        memcpy(&word, a + 4, sizeof word);
        t.add("0x%02x/8", word);
      }
      return dst;
    case kInet6:
      if (length < 24) break;
      return tarvik_format_prefix(dst, size, a + 8, 128, kInet6, 0);
    case kInet:
      if (length < 8) break;
      inet(dst, size, a, numeric);
      return dst;
    default:
      break;
  }
  other(t, a, std::min<size_t>(a[0], length));
  return dst;
}
