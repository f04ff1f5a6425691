// Firewall filter programs and heads against the simulated kernel: fragmenting and
// reassembly, the joined header and its master hash, the name walks, and the head blob forms.
#include <errno.h>
#include <string.h>

#include <string>
#include <vector>

#include "support/harness.h"

namespace {

using tarsim::Bytes;
using tarsim::Dfw;

std::string hex(const uint8_t *d, size_t n) {
  static const char k[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) s += {k[d[i] >> 4], k[d[i] & 15]};
  return s;
}

// The platform's MD5 on RFC 1321 vectors (the empty block, one block, two), and the master hash
// as MD5 of its two 16-byte halves joined (digests from coreutils md5sum).
TEST(DfwMasterHash, IsMd5OfBothHashes) {
  if (tlk_platform_host()->md5_cksum == nullptr) GTEST_SKIP() << "built without MD5 (nettle)";
  struct Case {
    std::string input;
    const char *md5;
  } const kCases[] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
  };
  uint8_t digest[16];
  for (const Case &c : kCases) {
    tlk_platform_host()->md5_cksum(c.input.data(), c.input.size(), c.input.size(), digest, nullptr);
    EXPECT_EQ(hex(digest, 16), c.md5) << c.input;
  }
  const auto *in = reinterpret_cast<const uint8_t *>("abcdefghijklmnopqrstuvwxyzABCDEF");
  tarvik_dfw_compute_master_hash(in, in + 16, digest);
  EXPECT_EQ(hex(digest, 16), "dd2596a4d6ab3b9da8e7b19d448cf35a");
}

class DfwTest : public tlktest::OneSessionTest {};

TEST_F(DfwTest, UpdateFragmentsAtTheLimitAndChecksItsArguments) {
  struct Row {
    uint32_t body;
    std::vector<uint32_t> fragments;
  } const kRows[] = {
      {16300 - 344, {1}},     // exactly one full fragment
      {16301 - 344, {1, 2}},  // one byte over: a second fragment of 1 byte
      {40000, {1, 2, 3}},
  };
  uint32_t filter = 100;
  for (const Row &r : kRows) {
    tarsim::DfwProgramInfo info;
    info.body = r.body;
    const Bytes prog = Dfw::program(info);
    const size_t before = kernel.dfw().fragments_seen().size();
    ASSERT_EQ(tarvik_dfwm_update(c, filter, 2, TLK_OP_ADD, prog.data()), 0);
    const auto &seen = kernel.dfw().fragments_seen();
    EXPECT_EQ(std::vector<uint32_t>(seen.begin() + static_cast<long>(before), seen.end()),
              r.fragments);
    const Bytes *stored = kernel.dfw().find(filter, 2);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(*stored, prog);
    ++filter;
  }
  EXPECT_EQ(tarvik_dfwm_update(c, 100, 2, TLK_OP_DELETE, nullptr), 0);
  EXPECT_EQ(kernel.dfw().find(100, 2), nullptr);
  const Bytes small = Dfw::program({});  // a get is no update; add and change need a program
  EXPECT_EQ(tarvik_dfwm_update(c, 5, 2, TLK_OP_GET, small.data()), EOPNOTSUPP);
  EXPECT_EQ(tarvik_dfwm_update(c, 5, 2, TLK_OP_ADD, nullptr), EINVAL);
  EXPECT_EQ(tarvik_dfwm_update(c, 5, 2, TLK_OP_CHANGE, nullptr), EINVAL);
  EXPECT_EQ(tarvik_dfwm_update(c, 5, 2, TLK_OP_CHANGE, small.data()), 0);
}

// The seeded filters: 10 has both sides, 20 a head only, 30 a program only.
TEST_F(DfwTest, JoinedHeaderRows) {
  const uint8_t head10[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  uint8_t prog10[16] = {0xAA, 0xBB}, joined[16];
  tarvik_dfw_compute_master_hash(prog10, head10, joined);
  const uint8_t head20[16] = {0xC0, 0xFF, 0xEE};
  const uint8_t prog30[16] = {0x66};
  struct Row {
    uint32_t filter, op;
    int want;
    uint32_t index;
    const char *name;
    const uint8_t *hash;
  } const kRows[] = {
      {10, TLK_OP_GET, 0, 10, "protect-re", joined},
      {20, TLK_OP_GET, 0, 20, "count-all", head20},
      {30, TLK_OP_GET, 0, 30, "police-v6", prog30},
      {0, TLK_OP_GETNEXT, 0, 10, "protect-re", joined},
      {10, TLK_OP_GETNEXT, 0, 20, "count-all", head20},
      {20, TLK_OP_GETNEXT, 0, 30, "police-v6", prog30},
      {31, TLK_OP_GET, ENOENT, 0, nullptr, nullptr},
      {10, TLK_OP_ADD, EINVAL, 0, nullptr, nullptr},
  };
  for (const Row &r : kRows) {
    SCOPED_TRACE(r.filter);
    _dfw_filter_head h{};
    ASSERT_EQ(tarvik_dfw_get_fheader_by_index(c, r.filter, r.op, &h), r.want);
    if (r.want == 0) {
      EXPECT_EQ(h.dfh_index.dfh_key_index, r.index);
      EXPECT_STREQ(reinterpret_cast<char *>(h.dfh_name), r.name);
      EXPECT_EQ(hex(h.dfh_hash, 16), hex(r.hash, 16));
      EXPECT_EQ(h.dfh_valid & 1, 1);
    }
    tarvik_free_dfh_var(&h);
  }
  // A program without a head maps its family code.
  _dfw_filter_head h{};
  ASSERT_EQ(tarvik_dfw_get_fheader_by_index(c, 30, TLK_OP_GET, &h), 0);
  EXPECT_EQ(h.dfh_family_code, 1);  // code 2
  EXPECT_EQ(h.dfh_family, 1);
  EXPECT_EQ(h.dfh_af, 2);
  tarvik_free_dfh_var(&h);
}

TEST_F(DfwTest, NameLookupRows) {
  struct Row {
    const char *name;
    uint32_t family, start, heads, programs, joined;
  } const kRows[] = {
      {"protect-re", 0, 0, 10, 10, 10}, {"count-all", 0, 0, 20, 0, 20},
      {"police-v6", 1, 0, 0, 30, 30},   {"police-v6", 0, 0, 0, 0, 0},
      {"protect-re", 0, 10, 0, 0, 0},   {"nothing", 0, 0, 0, 0, 0},
  };
  for (const Row &r : kRows) {
    SCOPED_TRACE(r.name);
    EXPECT_EQ(tarvik_dfwfhm_get_index_by_name(c, r.name, r.family, r.start), r.heads);
    EXPECT_EQ(tarvik_dfwm_get_index_by_name(c, r.name, r.family, r.start), r.programs);
    EXPECT_EQ(tarvik_dfw_get_findex_by_name(c, r.name, r.family, r.start), r.joined);
  }
}

TEST(DfwHeadDecode, BothFormsAndBadBlobs) {
  tarsim::DfwHeadInfo info{.index = 77,
                           .name = "edge",
                           .ifname = "xe-1/0/0.5",
                           .family = 3,
                           .hash = {9, 8, 7},
                           .legacy = false};
  for (bool legacy : {false, true}) {
    info.legacy = legacy;
    const Bytes blob = Dfw::head_blob(info);
    _dfw_filter_head h{};
    ASSERT_EQ(tarvik_dfwfhm_decode(blob.data(), static_cast<uint32_t>(blob.size()), &h), 0);
    EXPECT_EQ(h.dfh_index.dfh_key_index, 77u);
    EXPECT_STREQ(reinterpret_cast<char *>(h.dfh_name), "edge");
    EXPECT_STREQ(reinterpret_cast<char *>(h.dfh_ifname), "xe-1/0/0.5");
    EXPECT_EQ(h.dfh_family, 3);
    EXPECT_EQ(h.dfh_hash[2], 7);
    EXPECT_EQ(h.dfh_extra != nullptr, legacy);
    tarvik_free_dfh_var(&h);
    EXPECT_EQ(h.dfh_name, nullptr);
  }
  const uint8_t garbage[] = {0, 0, 0, 2, 0xFF, 0xFF, 0xFF, 0xFF, 1, 2, 3};
  // A TLV head whose name (tag 13) is one byte without its end byte: found by the fuzzer.
  const uint8_t unterminated[] = {0x2b, 0, 1, 2, 0, 0x0d, 0, 1, 0x96, 0, 0, 0, 0};
  struct Row {
    const uint8_t *blob;
    uint32_t len;
    int want;
  } const kRows[] = {
      {garbage, 0, EINVAL},
      {garbage, 3, EINVAL},
      {nullptr, 8, EINVAL},
      {garbage, 11, EINVAL},      // TLV form with a broken item
      {garbage + 1, 10, EINVAL},  // legacy form, shorter than 296 bytes
      {unterminated, sizeof unterminated, EINVAL},
  };
  for (const Row &r : kRows) {
    _dfw_filter_head h{};
    EXPECT_EQ(tarvik_dfwfhm_decode(r.blob, r.len, &h), r.want) << r.len;
    EXPECT_EQ(h.dfh_name, nullptr);
  }
}

TEST(DfwStateDecode, Forms) {
  gencfg_msg m{};
  uint8_t fixed[12] = {0, 0, 0, 1, 0, 0, 0, 42, 7, 0, 0, 0};
  m.blob = fixed;
  m.blob_len = sizeof fixed;
  _dfw_filter_state *s = tarvik_dfwfsm_decode(&m);
  ASSERT_NE(s, nullptr);
  EXPECT_EQ(s->dfs_state, 42u);
  EXPECT_EQ(s->dfs_value, 7u);
  tarvik_free_cb(s);
  m.blob_len = 3;
  EXPECT_EQ(tarvik_dfwfsm_decode(&m), nullptr);
}

}  // namespace
