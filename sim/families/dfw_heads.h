// The filter heads that a fresh kernel's gencfg store starts with (defined with the firewall
// program family, which seeds the matching programs).
#pragma once

#include <map>

#include "tarsim/gencfg.hpp"

namespace tarsim::internal {

void seed_filter_heads(GencfgStore &store);

}  // namespace tarsim::internal
