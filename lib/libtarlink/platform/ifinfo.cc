// The host default of the platform's interface library: the kinds of device that a name's prefix
// names, a parser of device names, and the table of kind masks behind the device info cache.
//
// A name is a prefix of lower-case letters, an optional "-", and up to three decimal numbers
// separated by "/": "ge-1/2/3" is kind "ge" at 1, 2, 3, and "xe0" is kind "xe" at 0, 0, 0.  The
// router's own library knows far more kinds and rules; this one knows enough to run the cache on
// a host and against the simulated kernel.
#include "platform/ifinfo.h"

#include <ctype.h>
#include <errno.h>
#include <string.h>

#include "tarlink/ifcache.h"

namespace tlk::platform {
namespace {

struct Kind {
  const char *prefix;
  int index;
};

// Physical kinds first; the default filter (row 67) lets these through.
constexpr Kind kKinds[] = {
    {"ge", 1},  {"xe", 2},  {"et", 3},  {"fe", 4},   {"so", 5},    {"at", 6},  {"em", 7},
    {"fxp", 8}, {"lo", 20}, {"ae", 21}, {"irb", 22}, {"vlan", 23}, {"gr", 24}, {"ip", 25},
};
constexpr int kPhysicalKinds = 8;  // the first eight rows of kKinds

// Row 67, the library's default filter, counts the physical kinds; every other row is empty and
// gets its own bit the first time the cache uses it.
constexpr InterfaceMasks default_masks() {
  InterfaceMasks m{};
  for (int i = 0; i < kPhysicalKinds; ++i) {
    const int k = kKinds[i].index;
    m.rows[kDefaultFilterRow][k / 64] |= uint64_t{1} << (k % 64);
  }
  return m;
}

size_t prefix_length(const char *name) {
  size_t n = 0;
  while (name[n] >= 'a' && name[n] <= 'z') ++n;
  return n;
}

}  // namespace

const void *host_interface_info_by_pfx_match(const char *name, int) {
  if (name == nullptr) return nullptr;
  const size_t n = prefix_length(name);
  for (const Kind &k : kKinds) {
    if (strlen(k.prefix) == n && strncmp(k.prefix, name, n) == 0) return &k;
  }
  return nullptr;
}

int host_interface_info_index(const void *kind) {
  return kind != nullptr ? static_cast<const Kind *>(kind)->index : -1;
}

int host_parse_interface(const char *name, int, int, void *out, int, int) {
  const auto *kind = static_cast<const Kind *>(host_interface_info_by_pfx_match(name, 0));
  if (kind == nullptr || out == nullptr || strlen(name) >= sizeof(tarvik_ifd_info_t::name)) {
    errno = EINVAL;
    return -1;
  }
  tarvik_ifd_info_t info{};
  const char *p = name + strlen(kind->prefix);
  if (*p == '-') ++p;
  for (int i = 0; i < 3 && isdigit(static_cast<unsigned char>(*p)); ++i) {
    uint32_t v = 0;
    while (isdigit(static_cast<unsigned char>(*p))) v = v * 10 + static_cast<uint32_t>(*p++ - '0');
    info.location[i] = v;
    if (*p == '/' && i < 2) ++p;
  }
  if (*p != '\0') {  // anything left over is not a device name
    errno = EINVAL;
    return -1;
  }
  strcpy(info.name, name);
  info.kind = static_cast<uint32_t>(kind->index);
  strcpy(info.prefix, kind->prefix);
  memcpy(out, &info, sizeof info);
  return 0;
}

InterfaceMasks g_interface_masks = default_masks();

}  // namespace tlk::platform
