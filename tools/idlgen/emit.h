// Output of idlgen.
#pragma once

#include <string>
#include <vector>

#include "schema.h"

namespace idlgen {

struct Options {
  std::string guard;                  // include guard of the header
  std::string header_name;            // how the source includes the header
  std::string export_macro;           // put before every exported declaration, may be empty
  std::vector<std::string> includes;  // extra includes of the header
  bool core = false;                  // the library's own schema: also emits the callback types
};

std::string emit_header(const Schema &s, const Options &o);
// The descriptor source, in `parts` files (at least one).
std::vector<std::string> emit_source(const Schema &s, const Options &o, size_t parts);
// The names of the symbols the header declares (size constants and codec functions), one a
// line, sorted.
std::string emit_exports(const Schema &s, const Options &o);

}  // namespace idlgen
