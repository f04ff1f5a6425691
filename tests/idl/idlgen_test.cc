// idlgen refuses a bad schema with the file, the line and what is wrong, and a non-zero exit.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
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

// What a record's head words change in the generated header and in the export list.
TEST(Idlgen, InnerTagOnlyAndSystemRecordsExportAndDeclareLess) {
  const std::string dir = ::testing::TempDir();
  const std::string schema = dir + "/heads.schema", header = dir + "/heads.h",
                    exports = dir + "/heads.exports";
  {
    std::FILE *f = std::fopen(schema.c_str(), "w");
    ASSERT_NE(f, nullptr);
    std::fputs(
        "record plain host\n  u32 a tag=1\nend\n"
        "record part host inner\n  u16 b tag=1\nend\n"
        "record word host tagonly tlvonly\n  u8 c tag=1\n  nested part p tag=2\nend\n"
        "record timeval host system=sys/time.h\n  growlong tv_sec tag=1\n"
        "  growlong tv_usec tag=2\nend\n",
        f);
    std::fclose(f);
  }
  std::string cmd = std::string(IDLGEN_PATH) + " --header " + header + " --source /dev/null" +
                    " --guard G --exports " + exports + " " + schema + " 2>&1";
  ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
  auto slurp = [](const std::string &path) {
    std::string text;
    std::FILE *f = std::fopen(path.c_str(), "r");
    if (f == nullptr) return text;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, f)) > 0;) text.append(buf, n);
    std::fclose(f);
    return text;
  };
  const std::string h = slurp(header), x = slurp(exports);
  struct Case {
    const std::string *text;
    const char *needle;
    bool present;
  } cases[] = {
      {&x, "tlv_encode_plain_0\n", true},
      {&x, "idr_rtti_sizeof_plain_0\n", true},
      {&x, "_part_0", false},
      {&x, "tlv_rtti_sizeof_map_word_0\n", true},
      {&x, "idr_encode_word_0", false},
      {&x, "tlv_decode_timeval_0\n", true},
      {&h, "typedef struct plain plain;", true},
      {&h, "typedef struct part part;", true},
      {&h, "struct part {", true},
      {&h, "typedef struct word word;", false},
      {&h, "struct word {", true},
      {&h, "#include <sys/time.h>", true},
      {&h, "struct timeval {", false},
      {&h, "struct timeval_tlvmap {", true},
  };
  for (const Case &c : cases) {
    EXPECT_EQ(c.text->find(c.needle) != std::string::npos, c.present) << c.needle;
  }
}

}  // namespace
