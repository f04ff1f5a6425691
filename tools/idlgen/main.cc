// idlgen: reads record schema files and writes the record header and the descriptor source.
//
//   idlgen --header OUT.h --source OUT.cc --guard NAME [--export MACRO] [--exports OUT.txt]
//          [--parts N] [--core] [--include FILE]... [--import SCHEMA]... SCHEMA...
//
// --parts N writes the source as N files, OUT.cc and OUT_1.cc to OUT_<N-1>.cc, the records dealt
// round among them, so that the build compiles them in parallel.
// --exports writes the names of the symbols that the header declares, one a line: the build
// makes the library's linker version script from it.
// Imported schema files are known for references (a test schema nesting a library record) but
// nothing is emitted for them.  Any schema error stops with "file:line: error: ..." and exit 1.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "emit.h"
#include "schema.h"

namespace {

int usage() {
  std::fprintf(stderr,
               "usage: idlgen --header OUT.h --source OUT.cc --guard NAME [--export MACRO]\n"
               "              [--exports OUT.txt] [--parts N] [--core] [--include FILE]...\n"
               "              [--import SCHEMA]...\n"
               "              SCHEMA...\n");
  return 2;
}

bool write_file(const std::string &path, const std::string &text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  if (!out) {
    std::fprintf(stderr, "idlgen: cannot write %s\n", path.c_str());
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  idlgen::Options o;
  std::string header, source, exports;
  size_t parts = 1;
  std::vector<std::string> imports, inputs;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto next = [&]() -> const char * { return i + 1 < argc ? argv[++i] : nullptr; };
    const char *v = nullptr;
    if (a == "--core") {
      o.core = true;
      continue;
    }
    if (a == "--parts") {
      const char *n = next();
      parts = n == nullptr ? 0 : std::strtoul(n, nullptr, 10);
      if (parts < 1 || parts > 64) return usage();
      continue;
    }
    if (a == "--header" || a == "--source" || a == "--guard" || a == "--export" ||
        a == "--exports" || a == "--include" || a == "--import") {
      v = next();
      if (v == nullptr) return usage();
      if (a == "--header")
        header = v;
      else if (a == "--source")
        source = v;
      else if (a == "--guard")
        o.guard = v;
      else if (a == "--export")
        o.export_macro = v;
      else if (a == "--exports")
        exports = v;
      else if (a == "--include")
        o.includes.push_back(v);
      else
        imports.push_back(v);
      continue;
    }
    if (a.rfind("--", 0) == 0) return usage();
    inputs.push_back(a);
  }
  if (header.empty() || source.empty() || o.guard.empty() || inputs.empty()) return usage();
  auto slash = header.find_last_of('/');
  o.header_name = slash == std::string::npos ? header : header.substr(slash + 1);

  idlgen::Schema schema;
  bool ok = true;
  for (auto &f : imports) ok = idlgen::parse_file(f, true, schema) && ok;
  for (auto &f : inputs) ok = idlgen::parse_file(f, false, schema) && ok;
  if (!ok || !idlgen::check(schema)) return 1;
  if (!write_file(header, idlgen::emit_header(schema, o))) return 1;
  const std::vector<std::string> sources = idlgen::emit_source(schema, o, parts);
  const std::string stem = source.size() > 3 && source.compare(source.size() - 3, 3, ".cc") == 0
                               ? source.substr(0, source.size() - 3)
                               : source;
  for (size_t k = 0; k < sources.size(); ++k) {
    if (!write_file(k == 0 ? source : stem + "_" + std::to_string(k) + ".cc", sources[k])) return 1;
  }
  if (!exports.empty() && !write_file(exports, idlgen::emit_exports(schema, o))) return 1;
  return 0;
}
