// What other families of the simulated kernel ask of the next hop store.
#pragma once

#include <stdint.h>

#include "../family.h"

namespace tarsim::internal {

// Whether the kernel behind `host` holds a next hop with this index.
bool nexthop_exists(Host &host, uint32_t idx);

}  // namespace tarsim::internal
