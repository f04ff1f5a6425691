// In-memory sizes: the target's numbers in a 32-bit build, natural layout in a 64-bit one; and
// the exported constants agree with the structures.
#include <gtest/gtest.h>

#include <cstddef>

#include "codec_support.h"

namespace codec_test {
namespace {

struct Row {
  const char *name;
  uint32_t tlv, map, idr;  // idr 0: TLV only
};

// The constants as exported for each record of the library schema.
const Row kRows[] = {
    {"tlk_hdr", tlv_rtti_sizeof_tlk_hdr_0, tlv_rtti_sizeof_map_tlk_hdr_0,
     idr_rtti_sizeof_tlk_hdr_0},
    {"tlk_base", tlv_rtti_sizeof_tlk_base_0, tlv_rtti_sizeof_map_tlk_base_0,
     idr_rtti_sizeof_tlk_base_0},
    {"tlk_msg", tlv_rtti_sizeof_tlk_msg_0, tlv_rtti_sizeof_map_tlk_msg_0,
     idr_rtti_sizeof_tlk_msg_0},
    {"tlk_msg_info", tlv_rtti_sizeof_tlk_msg_info_0, tlv_rtti_sizeof_map_tlk_msg_info_0,
     idr_rtti_sizeof_tlk_msg_info_0},
    {"tlk_marker_msg", tlv_rtti_sizeof_tlk_marker_msg_0, tlv_rtti_sizeof_map_tlk_marker_msg_0,
     idr_rtti_sizeof_tlk_marker_msg_0},
    {"prefix", tlv_rtti_sizeof_prefix_0, tlv_rtti_sizeof_map_prefix_0, idr_rtti_sizeof_prefix_0},
    {"rtb_seq", tlv_rtti_sizeof_rtb_seq_0, tlv_rtti_sizeof_map_rtb_seq_0,
     idr_rtti_sizeof_rtb_seq_0},
    {"rtb_rpf_info", tlv_rtti_sizeof_rtb_rpf_info_0, tlv_rtti_sizeof_map_rtb_rpf_info_0,
     idr_rtti_sizeof_rtb_rpf_info_0},
    {"acc_cntl_msg_ifl_status", tlv_rtti_sizeof_acc_cntl_msg_ifl_status_0,
     tlv_rtti_sizeof_map_acc_cntl_msg_ifl_status_0, 0},
    {"sdl_info", tlv_rtti_sizeof_sdl_info_0, tlv_rtti_sizeof_map_sdl_info_0,
     idr_rtti_sizeof_sdl_info_0},
    {"idl_sockaddr_dl", tlv_rtti_sizeof_idl_sockaddr_dl_0, tlv_rtti_sizeof_map_idl_sockaddr_dl_0,
     idr_rtti_sizeof_idl_sockaddr_dl_0},
    {"gencfg_msg", tlv_rtti_sizeof_gencfg_msg_0, tlv_rtti_sizeof_map_gencfg_msg_0, idr_rtti_sizeof_gencfg_msg_0},
    {"gencfg_depinfo", tlv_rtti_sizeof_gencfg_depinfo_0, tlv_rtti_sizeof_map_gencfg_depinfo_0,
     idr_rtti_sizeof_gencfg_depinfo_0},
    {"gencfg_peerinfo", tlv_rtti_sizeof_gencfg_peerinfo_0, tlv_rtti_sizeof_map_gencfg_peerinfo_0,
     idr_rtti_sizeof_gencfg_peerinfo_0},
    {"gencfg_peer_index_type", tlv_rtti_sizeof_gencfg_peer_index_type_0,
     tlv_rtti_sizeof_map_gencfg_peer_index_type_0, idr_rtti_sizeof_gencfg_peer_index_type_0},
    {"dfw_msg", tlv_rtti_sizeof_dfw_msg_0, tlv_rtti_sizeof_map_dfw_msg_0, idr_rtti_sizeof_dfw_msg_0},
    {"ifdev_msg", tlv_rtti_sizeof_ifdev_msg_0, tlv_rtti_sizeof_map_ifdev_msg_0,
     idr_rtti_sizeof_ifdev_msg_0},
    {"ifl_msg", tlv_rtti_sizeof_ifl_msg_0, tlv_rtti_sizeof_map_ifl_msg_0,
     idr_rtti_sizeof_ifl_msg_0},
    {"iff_msg", tlv_rtti_sizeof_iff_msg_0, tlv_rtti_sizeof_map_iff_msg_0,
     idr_rtti_sizeof_iff_msg_0},
    {"ifa_msg", tlv_rtti_sizeof_ifa_msg_0, tlv_rtti_sizeof_map_ifa_msg_0,
     idr_rtti_sizeof_ifa_msg_0},
    {"ifmedia", tlv_rtti_sizeof_ifmedia_0, tlv_rtti_sizeof_map_ifmedia_0,
     idr_rtti_sizeof_ifmedia_0},
    {"iffilter", tlv_rtti_sizeof_iffilter_0, tlv_rtti_sizeof_map_iffilter_0,
     idr_rtti_sizeof_iffilter_0},
    {"if_opcode", tlv_rtti_sizeof_if_opcode_0, tlv_rtti_sizeof_map_if_opcode_0,
     idr_rtti_sizeof_if_opcode_0},
};

TEST(Layout, ConstantsMatchTheDescriptors) {
  for (auto &row : kRows) {
    const tlk::idl::Record *r = record_named(row.name);
    ASSERT_NE(r, nullptr) << row.name;
    EXPECT_EQ(row.tlv, r->size) << row.name;
    EXPECT_EQ(row.map, r->map_size) << row.name;
    EXPECT_NE(row.map, 0u) << row.name;
    if (row.idr != 0) {
      EXPECT_EQ(row.idr, row.tlv) << row.name;
    }
    EXPECT_EQ(row.idr != 0, r->has_idr) << row.name;
  }
  EXPECT_EQ(sizeof(tlk_hdr), tlv_rtti_sizeof_tlk_hdr_0);
}

TEST(Layout, TargetSizes) {
  if constexpr (sizeof(void *) == 4) {
    // The router's numbers.
    EXPECT_EQ(tlv_rtti_sizeof_tlk_hdr_0, 32u);
    EXPECT_EQ(tlv_rtti_sizeof_map_tlk_hdr_0, 8u);
    EXPECT_EQ(tlv_rtti_sizeof_tlk_base_0, 32u);
    EXPECT_EQ(tlv_rtti_sizeof_map_tlk_base_0, 12u);
    EXPECT_EQ(tlv_rtti_sizeof_tlk_msg_0, 8u);
    EXPECT_EQ(tlv_rtti_sizeof_map_tlk_msg_0, 4u);
    EXPECT_EQ(tlv_rtti_sizeof_tlk_msg_info_0, 368u);
    EXPECT_EQ(tlv_rtti_sizeof_map_tlk_msg_info_0, 184u);
    EXPECT_EQ(tlv_rtti_sizeof_prefix_0, 12u);
    EXPECT_EQ(tlv_rtti_sizeof_map_prefix_0, 4u);
    EXPECT_EQ(tlv_rtti_sizeof_acc_cntl_msg_ifl_status_0, 8u);
    EXPECT_EQ(tlv_rtti_sizeof_map_acc_cntl_msg_ifl_status_0, 4u);
    EXPECT_EQ(tlv_rtti_sizeof_sdl_info_0, 192u);
    EXPECT_EQ(tlv_rtti_sizeof_map_sdl_info_0, 72u);
    EXPECT_EQ(sizeof(sockaddr_idl), 36u);
    EXPECT_EQ(tlv_rtti_sizeof_tlk_marker_msg_0, 64u);
    EXPECT_EQ(offsetof(tlk_marker_msg, tlkmk_stamp), 56u);  // 64-bit fields 8-aligned, also on i386
    EXPECT_EQ(offsetof(tlk_msg_info, tlkmi_u), 8u);
    // Generic configuration and the firewall message.
    EXPECT_EQ(tlv_rtti_sizeof_gencfg_msg_0, 112u);
    EXPECT_EQ(tlv_rtti_sizeof_map_gencfg_msg_0, 32u);
    EXPECT_EQ(offsetof(gencfg_msg, blob), 60u);
    EXPECT_EQ(offsetof(gencfg_msg, tag), 92u);
    EXPECT_EQ(offsetof(gencfg_msg, lrid), 104u);
    EXPECT_EQ(tlv_rtti_sizeof_gencfg_depinfo_0, 24u);
    EXPECT_EQ(tlv_rtti_sizeof_map_gencfg_depinfo_0, 8u);
    EXPECT_EQ(offsetof(gencfg_depinfo, dep_key), 16u);
    EXPECT_EQ(offsetof(gencfg_depinfo, dep_key_len), 20u);
    EXPECT_EQ(tlv_rtti_sizeof_gencfg_peerinfo_0, 40u);
    EXPECT_EQ(tlv_rtti_sizeof_map_gencfg_peerinfo_0, 8u);
    EXPECT_EQ(offsetof(gencfg_peerinfo, peer_type), 2u);
    EXPECT_EQ(offsetof(gencfg_peerinfo, index) + offsetof(gencfg_peer_index_type, index_type), 4u);
    EXPECT_EQ(offsetof(gencfg_peerinfo, index) + offsetof(gencfg_peer_index_type, idx), 8u);
    EXPECT_EQ(tlv_rtti_sizeof_dfw_msg_0, 80u);
    EXPECT_EQ(tlv_rtti_sizeof_map_dfw_msg_0, 16u);
    EXPECT_EQ(offsetof(dfw_msg, flav), 64u);
    // The interface records.
    const struct {
      uint32_t size, map, want_size, want_map;
      const char *name;
    } ifrows[] = {
        {tlv_rtti_sizeof_ifdev_msg_0, tlv_rtti_sizeof_map_ifdev_msg_0, 184, 72, "ifdev_msg"},
        {tlv_rtti_sizeof_ifl_msg_0, tlv_rtti_sizeof_map_ifl_msg_0, 232, 72, "ifl_msg"},
        {tlv_rtti_sizeof_iff_msg_0, tlv_rtti_sizeof_map_iff_msg_0, 304, 40, "iff_msg"},
        {tlv_rtti_sizeof_ifa_msg_0, tlv_rtti_sizeof_map_ifa_msg_0, 152, 56, "ifa_msg"},
        {tlv_rtti_sizeof_ifmedia_0, tlv_rtti_sizeof_map_ifmedia_0, 160, 20, "ifmedia"},
        {tlv_rtti_sizeof_iffilter_0, tlv_rtti_sizeof_map_iffilter_0, 124, 4, "iffilter"},
    };
    for (auto &row : ifrows) {
      EXPECT_EQ(row.size, row.want_size) << row.name;
      EXPECT_EQ(row.map, row.want_map) << row.name;
    }
  } else {
    // Natural host layout: pointers of 8 bytes.
    EXPECT_EQ(tlv_rtti_sizeof_tlk_hdr_0, 40u);
    EXPECT_EQ(tlv_rtti_sizeof_map_tlk_hdr_0, 16u);
    EXPECT_EQ(tlv_rtti_sizeof_tlk_msg_0, 16u);
    EXPECT_EQ(tlv_rtti_sizeof_map_tlk_msg_0, 8u);
    EXPECT_EQ(tlv_rtti_sizeof_prefix_0, 16u);
    EXPECT_EQ(tlv_rtti_sizeof_acc_cntl_msg_ifl_status_0, 8u);
  }
  EXPECT_EQ(offsetof(tlk_hdr, tlkh_info), 24u);
}

// The presence map mirrors the record: every field's bit lies inside the map, and the composite
// fields' maps follow their bit words.
TEST(Layout, MapSlotsLieInsideTheMap) {
  for (auto *r : all_records()) {
    for (uint16_t i = 0; i < r->nfields; ++i) {
      const tlk::idl::Field &f = r->fields[i];
      EXPECT_LE(f.map_word + 4, r->map_size) << r->name << " field " << i;
      EXPECT_LT(f.bit, 32) << r->name;
      if (f.sub != nullptr) {
        EXPECT_GT(f.map_sub, f.map_word) << r->name << " field " << i;
      }
      EXPECT_EQ(r->tag_index[f.tag], i + 1) << r->name;
    }
  }
}

}  // namespace
}  // namespace codec_test
