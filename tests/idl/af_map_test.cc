// The address family maps of the TLV wire, and their out-of-range diagnostics.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tarlink.h"
#include "tarlink_platform.h"

namespace {

std::vector<std::pair<int, std::string>> g_lines;
void capture(int priority, const char *text) {
  g_lines.emplace_back(priority, text);
}

TEST(AfMap, EncodeTable) {
  struct {
    uint32_t in, out;
  } rows[] = {{0, 0},    {2, 2},    {20, 20},  {21, 0},   {22, 0},  {23, 23},  {36, 36},
              {37, 150}, {38, 0},   {39, 37},  {40, 151}, {41, 38}, {42, 152}, {43, 39},
              {44, 0},   {45, 40},  {46, 0},   {47, 41},  {48, 0},  {49, 43},  {50, 0},
              {51, 44},  {139, 88}, {141, 89}, {142, 0},  {143, 0}, {253, 0}};
  for (auto &r : rows) EXPECT_EQ(tlk_encode_af(r.in), r.out) << r.in;
}

TEST(AfMap, DecodeTable) {
  struct {
    uint32_t in, out;
  } rows[] = {{0, 0},    {21, 21}, {22, 22}, {36, 36},  {37, 39},  {38, 41},
              {39, 43},  {40, 45}, {41, 47}, {42, 0},   {43, 49},  {44, 51},
              {89, 141}, {90, 0},  {149, 0}, {150, 37}, {151, 40}, {152, 42}};
  for (auto &r : rows) EXPECT_EQ(tlk_decode_af(r.in), r.out) << r.in;
}

TEST(AfMap, NoWireNumberIs42) {
  for (uint32_t af = 0; af < 254; ++af) EXPECT_NE(tlk_encode_af(af), 42u) << af;
}

TEST(AfMap, OutOfRangeIsLoggedAndPassedOn) {
  tlk_platform p = *tlk_platform_get();
  tlk_platform saved = p;
  p.syslog = capture;
  tlk_platform_set(&p);
  g_lines.clear();
  EXPECT_EQ(tlk_encode_af(254), 254u);
  EXPECT_EQ(tlk_decode_af(153), 153u);
  EXPECT_EQ(tlk_decode_af(152), 42u);
  tlk_platform_set(&saved);
  ASSERT_EQ(g_lines.size(), 2u);
  EXPECT_EQ(g_lines[0].first, 2);
  EXPECT_EQ(g_lines[0].second, "tlk_encode_af: Invalid address family 254");
  EXPECT_EQ(g_lines[1].second, "tlk_decode_af: Invalid address family 153");
}

}  // namespace
