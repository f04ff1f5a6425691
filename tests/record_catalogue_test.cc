// The record catalogue against the schema the library is built from, and the codec names that
// the shared library exports against the schema.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Entry {
  std::string form;  // "host" or "net"
  bool tlv_only = false;
  bool custom = false;  // hand-written codec: functions of both encodings, no size constants
  bool operator==(const Entry &o) const { return form == o.form && tlv_only == o.tlv_only; }
};
using Records = std::map<std::string, Entry>;

std::vector<std::string> split(const std::string &text, char sep) {
  std::vector<std::string> out;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, sep);) {
    if (!part.empty()) out.push_back(part);
  }
  return out;
}

Records catalogue() {
  Records out;
  std::ifstream in(TLK_RECORD_CATALOGUE);
  EXPECT_TRUE(in) << TLK_RECORD_CATALOGUE;
  for (std::string line; std::getline(in, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> w = split(line, ' ');
    Entry e{w.at(1), w.size() > 2 && w[2] == "tlvonly"};
    EXPECT_TRUE(out.emplace(w[0], e).second) << "listed twice: " << w[0];
  }
  return out;
}

// The records, choices and hand-written records of the schema, as the generator reads their
// heads; inner records export nothing and are left out.
Records schema() {
  Records out;
  for (const std::string &file : split(TLK_SCHEMA_FILES, ',')) {
    std::ifstream in(file);
    EXPECT_TRUE(in) << file;
    for (std::string line; std::getline(in, line);) {
      if (line.empty() || std::isspace(static_cast<unsigned char>(line[0]))) continue;  // a field
      std::string head = line.substr(0, line.find('#'));
      std::istringstream words(head);
      std::vector<std::string> w;
      for (std::string s; words >> s;) w.push_back(s);
      if (w.size() < 3 || (w[0] != "record" && w[0] != "choice" && w[0] != "custom")) continue;
      std::set<std::string> flags(w.begin() + 3, w.end());
      if (flags.count("inner")) continue;
      Entry e{w[2], flags.count("tlvonly") != 0, w[0] == "custom"};
      EXPECT_TRUE(out.emplace(w[1], e).second) << "defined twice: " << w[1];
    }
  }
  return out;
}

std::set<std::string> codec_names(const Records &records) {
  struct Name {
    const char *prefix;
    bool idr, constant;
  };
  static const Name kNames[] = {
      {"tlv_encode_", false, false},         {"tlv_decode_", false, false},
      {"tlv_release_", false, false},        {"tlv_rtti_sizeof_", false, true},
      {"tlv_rtti_sizeof_map_", false, true}, {"idr_encode_", true, false},
      {"idr_decode_", true, false},          {"idr_release_", true, false},
      {"idr_rtti_sizeof_", true, true}};
  std::set<std::string> out;
  for (const auto &[name, e] : records) {
    for (const Name &n : kNames) {
      if ((n.idr && e.tlv_only) || (n.constant && e.custom)) continue;
      out.insert(n.prefix + name + "_0");
    }
  }
  return out;
}

bool is_codec_name(const std::string &s) {
  static const char *const kPrefixes[] = {"tlv_encode_",      "tlv_decode_",     "tlv_release_",
                                          "tlv_rtti_sizeof_", "idr_encode_",     "idr_decode_",
                                          "idr_release_",     "idr_rtti_sizeof_"};
  if (s.size() < 2 || s.compare(s.size() - 2, 2, "_0") != 0) return false;
  for (const char *p : kPrefixes) {
    if (s.rfind(p, 0) == 0) return true;
  }
  return false;
}

// The defined dynamic symbols of the shared library, through nm as the install check reads them.
std::set<std::string> exported_codecs() {
  std::set<std::string> out;
  std::string cmd = std::string("nm -D --defined-only '") + TLK_SHARED_LIBRARY + "' 2>/dev/null";
  FILE *p = popen(cmd.c_str(), "r");
  if (p == nullptr) return out;
  char line[512];
  while (std::fgets(line, sizeof line, p) != nullptr) {
    // "ADDRESS TYPE NAME[@VERSION]"
    std::istringstream words(line);
    std::string address, type, name;
    if (!(words >> address >> type >> name)) continue;
    name = name.substr(0, name.find('@'));
    if (is_codec_name(name)) out.insert(name);
  }
  EXPECT_EQ(pclose(p), 0) << cmd;
  return out;
}

template <typename Set>
std::string listed(const Set &names) {
  std::string out;
  for (const auto &n : names) out += " " + n;
  return out;
}

TEST(RecordCatalogue, HoldsTheFullVocabularyOnce) {
  Records c = catalogue();
  size_t host = 0, tlv_only = 0;
  for (const auto &[name, e] : c) {
    host += e.form == "host";
    tlv_only += e.tlv_only;
  }
  EXPECT_EQ(c.size(), 905u);
  EXPECT_EQ(host, 651u);
  EXPECT_EQ(c.size() - host, 254u);
  EXPECT_EQ(tlv_only, 86u);
  // Sizes of the constant table: every type's TLV pair and the IDR size, sockaddr_idl aside.
  EXPECT_EQ(2 * (c.size() - 1) + (c.size() - tlv_only - 1), 2626u);
}

TEST(RecordCatalogue, SchemaHoldsExactlyTheCatalogue) {
  Records want = catalogue(), have = schema();
  std::set<std::string> missing, extra, differ;
  for (const auto &[name, e] : want) {
    auto it = have.find(name);
    if (it == have.end())
      missing.insert(name);
    else if (!(it->second == e))
      differ.insert(name);
  }
  for (const auto &[name, e] : have) {
    if (!want.count(name)) extra.insert(name);
  }
  EXPECT_TRUE(missing.empty()) << missing.size() << " missing:" << listed(missing);
  EXPECT_TRUE(extra.empty()) << extra.size() << " not in the catalogue:" << listed(extra);
  EXPECT_TRUE(differ.empty()) << "form or IDR differs:" << listed(differ);
}

TEST(RecordCatalogue, SharedLibraryExportsTheSchemasCodecsAndNoOthers) {
  std::set<std::string> want = codec_names(schema()), have = exported_codecs();
  ASSERT_FALSE(have.empty()) << "no codec names read from " << TLK_SHARED_LIBRARY;
  std::set<std::string> missing, extra;
  for (const std::string &n : want) {
    if (!have.count(n)) missing.insert(n);
  }
  for (const std::string &n : have) {
    if (!want.count(n)) extra.insert(n);
  }
  EXPECT_TRUE(missing.empty()) << missing.size() << " not exported:" << listed(missing);
  EXPECT_TRUE(extra.empty()) << extra.size() << " exported beyond the schema:" << listed(extra);
}

}  // namespace
