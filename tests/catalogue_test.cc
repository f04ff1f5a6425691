// Message type names and the expected version of each type.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "idl/type_catalogue.h"
#include "tarlink.h"

namespace {

TEST(Catalogue, VersionTableAgreesWithTheTypeRows) {
  struct Row {
    unsigned type;
    const char *name;
    char version;
  };
  // A sample across every run of the table, including the unversioned types.
  const Row rows[] = {{0, "nop", 'b'},          {2, "route", 'h'},
                      {5, "ifdev", 'j'},        {6, "iflogical", 'k'},
                      {8, "ifaddr", 'e'},       {9, "ifstats", 0},
                      {10, "nexthop", 'm'},     {27, "ifvc", 'q'},
                      {56, "l2tp config", 'i'}, {72, "gencfg", 'i'},
                      {90, "ifbdmesg", 'c'},    {91, "ksdb", 0},
                      {92, "bulkstats", 0},     {93, "fabric mc group", 'b'},
                      {97, "ddos", 'c'},        {103, "macsec", 'c'},
                      {104, "mac-pinning", 0},  {109, "tlk-err", 0}};
  for (const Row &r : rows) {
    EXPECT_EQ(TARVIK_VERSION_TABLE[r.type], static_cast<uint8_t>(r.version)) << r.type;
    EXPECT_STREQ(rtm_types[r.type], r.name) << r.type;
  }
  int versioned = 0;
  for (unsigned t = 0; t < TLK_NUM_MSG_TYPES; ++t) versioned += TARVIK_VERSION_TABLE[t] != 0;
  EXPECT_EQ(versioned, 9 + 81 + 11);
}

TEST(Catalogue, NamesEndInUnknown) {
  EXPECT_STREQ(rtm_types[110], "unknown");
  EXPECT_STREQ(tarvik_msg_type_name(110), "unknown");
  EXPECT_STREQ(tarvik_msg_type_name(0xFFFFFFFF), "unknown");
  EXPECT_STREQ(tarvik_msg_type_name(26), "tarlink stats");
  EXPECT_STREQ(rtm_ops[5], "getnext");
  EXPECT_STREQ(rtm_ops_brief[5], "get_nxt");
  EXPECT_STREQ(rtm_ops[10], "unknown");
  EXPECT_STREQ(rtm_ops_brief[10], "ukn");
  EXPECT_EQ(TLK_VERSION_TYPE_WORD('h', 2), 0x0268u);
  EXPECT_EQ(TLK_VERSION_TYPE_WORD(TARVIK_VERSION_TABLE[26], 26u), 0x1A63u);
}

TEST(Catalogue, FortyFiveTypesHaveARecordAndTheRestTravelRaw) {
  unsigned with_record = 0, with_frame_record = 0;
  for (unsigned t = 0; t <= 255; ++t) {
    with_record += tlk::idl::catalogue_record(t) != nullptr;
    with_frame_record += tlk::idl::frame_record(t) != nullptr;
  }
  EXPECT_EQ(with_record, 45u);
  EXPECT_EQ(with_frame_record, 45u);
  EXPECT_STREQ(tlk::idl::catalogue_record(11), "res_msg_evo");
  EXPECT_STREQ(tlk::idl::catalogue_record(19), "res_msg_evo");
  for (unsigned raw : {3u, 4u, 9u, 26u, 92u, 109u, 110u}) {
    EXPECT_EQ(tlk::idl::catalogue_record(raw), nullptr) << raw;
    EXPECT_EQ(tlk::idl::frame_record(raw), nullptr) << raw;
  }
}

TEST(Catalogue, EveryRecordOfTheCatalogueIsBuiltUnderItsOwnName) {
  std::set<unsigned> missing;
  for (const tlk::idl::TypeRecord &row : tlk::idl::kTypeRecords) {
    const tlk::idl::Record *built = tlk::idl::frame_record(row.type);
    if (built == nullptr) {
      missing.insert(row.type);
      continue;
    }
    EXPECT_STREQ(built->name, row.record) << "type " << unsigned{row.type};
  }
  EXPECT_TRUE(missing.empty()) << missing.size() << " types without their frame record";
  // The frame codecs hold no record that the catalogue doesn't name.
  for (unsigned t = 0; t <= 255; ++t) {
    if (tlk::idl::frame_record(t) != nullptr) {
      EXPECT_NE(tlk::idl::catalogue_record(t), nullptr) << t;
    }
  }
}

}  // namespace
