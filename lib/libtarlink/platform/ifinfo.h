// The host default of the platform's interface library (ifinfo.cc), for the seam's table.
#pragma once

#include <stddef.h>
#include <stdint.h>

namespace tlk::platform {

constexpr size_t kInterfaceMaskRows = 96;
constexpr int kDefaultFilterRow = 67;

int host_parse_interface(const char *name, int flags, int unit, void *info, int a, int b);
const void *host_interface_info_by_pfx_match(const char *name, int flags);
int host_interface_info_index(const void *kind);
// The table of kind masks that the host's entries hand out (and the cache writes).
struct InterfaceMasks {
  uint64_t rows[kInterfaceMaskRows][3];
};
extern InterfaceMasks g_interface_masks;

}  // namespace tlk::platform
