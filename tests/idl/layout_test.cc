// In-memory sizes: the target's numbers in a 32-bit build, natural layout in a 64-bit one.
#include <gtest/gtest.h>

#include <cstddef>

#include "codec_support.h"

namespace codec_test {
namespace {

TEST(Layout, TargetSizes) {
  if constexpr (sizeof(void *) == 4) {
    // The router's numbers: each record's size and its map's size.
    const struct {
      const char *name;
      uint32_t size, map, want_size, want_map;
    } rows[] = {
        {"tlk_hdr", tlv_rtti_sizeof_tlk_hdr_0, tlv_rtti_sizeof_map_tlk_hdr_0, 32, 8},
        {"tlk_base", tlv_rtti_sizeof_tlk_base_0, tlv_rtti_sizeof_map_tlk_base_0, 32, 12},
        {"tlk_msg", tlv_rtti_sizeof_tlk_msg_0, tlv_rtti_sizeof_map_tlk_msg_0, 8, 4},
        {"tlk_msg_info", tlv_rtti_sizeof_tlk_msg_info_0, tlv_rtti_sizeof_map_tlk_msg_info_0, 368,
         184},
        {"prefix", tlv_rtti_sizeof_prefix_0, tlv_rtti_sizeof_map_prefix_0, 12, 4},
        {"acc_cntl_msg_ifl_status", tlv_rtti_sizeof_acc_cntl_msg_ifl_status_0,
         tlv_rtti_sizeof_map_acc_cntl_msg_ifl_status_0, 8, 4},
        {"sdl_info", tlv_rtti_sizeof_sdl_info_0, tlv_rtti_sizeof_map_sdl_info_0, 192, 72},
        {"gencfg_msg", tlv_rtti_sizeof_gencfg_msg_0, tlv_rtti_sizeof_map_gencfg_msg_0, 112, 32},
        {"gencfg_depinfo", tlv_rtti_sizeof_gencfg_depinfo_0, tlv_rtti_sizeof_map_gencfg_depinfo_0,
         24, 8},
        {"gencfg_peerinfo", tlv_rtti_sizeof_gencfg_peerinfo_0,
         tlv_rtti_sizeof_map_gencfg_peerinfo_0, 40, 8},
        {"dfw_msg", tlv_rtti_sizeof_dfw_msg_0, tlv_rtti_sizeof_map_dfw_msg_0, 80, 16},
        {"ifdev_msg", tlv_rtti_sizeof_ifdev_msg_0, tlv_rtti_sizeof_map_ifdev_msg_0, 184, 72},
        {"ifl_msg", tlv_rtti_sizeof_ifl_msg_0, tlv_rtti_sizeof_map_ifl_msg_0, 232, 72},
        {"iff_msg", tlv_rtti_sizeof_iff_msg_0, tlv_rtti_sizeof_map_iff_msg_0, 304, 40},
        {"ifa_msg", tlv_rtti_sizeof_ifa_msg_0, tlv_rtti_sizeof_map_ifa_msg_0, 152, 56},
        {"ifmedia", tlv_rtti_sizeof_ifmedia_0, tlv_rtti_sizeof_map_ifmedia_0, 160, 20},
        {"iffilter", tlv_rtti_sizeof_iffilter_0, tlv_rtti_sizeof_map_iffilter_0, 124, 4},
        {"rtb_msg", tlv_rtti_sizeof_rtb_msg_0, tlv_rtti_sizeof_map_rtb_msg_0, 208, 64},
        {"route_table_stats", tlv_rtti_sizeof_route_table_stats_0,
         tlv_rtti_sizeof_map_route_table_stats_0, 40, 4},
        {"rttable_tlvs", tlv_rtti_sizeof_rttable_tlvs_0, tlv_rtti_sizeof_map_rttable_tlvs_0, 40, 4},
        {"rt_msg", tlv_rtti_sizeof_rt_msg_0, tlv_rtti_sizeof_map_rt_msg_0, 248, 132},
        {"rtm_idx", tlv_rtti_sizeof_rtm_idx_0, tlv_rtti_sizeof_map_rtm_idx_0, 4, 8},
        {"rtm_msg", tlv_rtti_sizeof_rtm_msg_0, tlv_rtti_sizeof_map_rtm_msg_0, 52, 28},
        {"rnh_msg", tlv_rtti_sizeof_rnh_msg_0, tlv_rtti_sizeof_map_rnh_msg_0, 736, 640},
        {"rnh_info", tlv_rtti_sizeof_rnh_info_0, tlv_rtti_sizeof_map_rnh_info_0, 20, 16},
        {"ntbl_msg", tlv_rtti_sizeof_ntbl_msg_0, tlv_rtti_sizeof_map_ntbl_msg_0, 72, 16},
    };
    for (auto &row : rows) {
      EXPECT_EQ(row.size, row.want_size) << row.name;
      EXPECT_EQ(row.map, row.want_map) << row.name;
    }
    EXPECT_EQ(sizeof(sockaddr_idl), 36u);
    EXPECT_EQ(tlv_rtti_sizeof_tlk_marker_msg_0, 64u);
    EXPECT_EQ(offsetof(tlk_marker_msg, tlkmk_stamp), 56u);  // 64-bit fields 8-aligned, also on i386
    EXPECT_EQ(offsetof(tlk_msg_info, tlkmi_u), 8u);
    EXPECT_EQ(offsetof(gencfg_msg, blob), 60u);
    EXPECT_EQ(offsetof(gencfg_msg, tag), 92u);
    EXPECT_EQ(offsetof(gencfg_msg, lrid), 104u);
    EXPECT_EQ(offsetof(gencfg_depinfo, dep_key), 16u);
    EXPECT_EQ(offsetof(gencfg_depinfo, dep_key_len), 20u);
    EXPECT_EQ(offsetof(gencfg_peerinfo, peer_type), 2u);
    EXPECT_EQ(offsetof(gencfg_peerinfo, index) + offsetof(gencfg_peer_index_type, index_type), 4u);
    EXPECT_EQ(offsetof(gencfg_peerinfo, index) + offsetof(gencfg_peer_index_type, idx), 8u);
    EXPECT_EQ(offsetof(dfw_msg, flav), 64u);
    EXPECT_EQ(offsetof(rtm_msg, prefix), 40u);
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

}  // namespace
}  // namespace codec_test
