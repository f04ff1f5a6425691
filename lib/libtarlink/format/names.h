// Name tables that the message formatter reads directly, with caps of its own.
#ifndef TARLINK_FORMAT_NAMES_H
#define TARLINK_FORMAT_NAMES_H

#include <stddef.h>

namespace tlk::format {

// Route types 0 to 15, 15 being "unknown"; tarvik_format_route_type stops at 14 ("ifcl").
inline constexpr size_t kRouteTypeRows = 16;
extern const char *const kRouteTypeWords[kRouteTypeRows];

// Next hop types 0 to 34 and a NULL entry 35 for anything out of range.
inline constexpr size_t kNexthopTypeRows = 36;
extern const char *const kNexthopTypeWords[kNexthopTypeRows];

}  // namespace tlk::format

#endif  // TARLINK_FORMAT_NAMES_H
