// idlgen refuses a bad schema with the file, the line and what is wrong, and a non-zero exit.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

namespace {

struct GenRun {
  int status;
  std::string output;
};

GenRun run_idlgen(const std::string &schema) {
  std::string cmd = std::string(IDLGEN_PATH) + " --header /dev/null --source /dev/null --guard G " +
                    schema + " 2>&1";
  GenRun r{-1, ""};
  FILE *p = popen(cmd.c_str(), "r");
  if (p == nullptr) return r;
  char buf[512];
  while (std::fgets(buf, sizeof buf, p) != nullptr) r.output += buf;
  r.status = pclose(p);
  return r;
}

TEST(Idlgen, SchemaErrorsNameFileAndLine) {
  struct Case {
    const char *file;
    const char *want;
  } cases[] = {
      {"unknown_kind.schema", "unknown_kind.schema:3: error: unknown field kind 'float'"},
      {"duplicate_tag.schema", "duplicate_tag.schema:4: error: duplicate tag 7: 'c' and 'b'"},
      {"bad_bound.schema", "bad_bound.schema:2: error: bound of 'name' must be 1 to 65535"},
      {"unknown_type.schema", "unknown_type.schema:2: error: unknown record type 'nowhere'"},
      {"bits_outside.schema",
       "bits_outside.schema:3: error: bits 'b' (at 6, width 3) do not fit their 8-bit storage "
       "word"},
      {"missing_end.schema", "missing_end.schema:2: error: record 'r' (line 1) lacks its 'end'"},
      {"duplicate_selector.schema",
       "duplicate_selector.schema:3: error: selector 1 already has an arm (line 2)"},
      {"bad_reserve.schema", "bad_reserve.schema:2: error: reserve needs a name and a byte count"},
      {"bits_in_reserve.schema",
       "bits_in_reserve.schema:3: error: storage word 'gap' is not declared before 'b'"},
      {"bad_mapspare.schema", "bad_mapspare.schema:1: error: mapspare must be 1 to 64 words"},
  };
  for (auto &c : cases) {
    GenRun r = run_idlgen(std::string(IDL_BAD_SCHEMA_DIR) + "/" + c.file);
    EXPECT_NE(r.status, 0) << c.file;
    EXPECT_NE(r.output.find(c.want), std::string::npos) << c.file << " said: " << r.output;
  }
}

TEST(Idlgen, ReferencesNeedTheirImports) {
  GenRun r = run_idlgen(std::string(IDL_BAD_SCHEMA_DIR) + "/../schema/test.schema");
  // The test schema nests the library's tlk_hdr: without the library schema imported it is unknown.
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.output.find("unknown record type 'tlk_hdr'"), std::string::npos) << r.output;
}

}  // namespace
