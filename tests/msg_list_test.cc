// Message lists: building by adding, filling from a block of frames or raw messages, look-up by
// index and release by kind (the fixture's leak check sees every block come back).
#include <errno.h>
#include <string.h>

#include <tuple>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

class MsgListTest : public OneSessionTest {
 protected:
  // A decoded-message-sized block whose header says `type` and `version`.
  void *message(uint8_t type, uint8_t version) {
    auto *h = static_cast<tlk_hdr *>(tarvik_msg_malloc(c));
    h->tlkh_type = type;
    h->tlkh_version = version;
    return h;
  }
  // One frame of an ifl_msg with `index`, in TLV (all fields) or IDR.
  Bytes ifl_frame(uint32_t index, bool tlv) {
    auto *m = static_cast<ifl_msg *>(tarvik_msg_malloc(c));
    m->iflm_hdr.tlkh_type = 6;
    m->iflm_hdr.tlkh_version = 'q';
    m->iflm_index.idx = index;
    ifl_msg_tlvmap mask;
    memset(&mask, 0xFF, sizeof mask);
    mask.iflm_hdr.tlkh_info = nullptr;
    mask.iflm_addr = nullptr;
    Bytes out = frame_of(c, m, tlv ? &mask : nullptr);
    tarvik_msg_free(c, m);
    return out;
  }
  // A fresh list filled from `b` in a tarvik_size_alloc block of its own (left in *block), as a
  // kernel read would leave it; the fill's result.
  int fill(tarvik_msg_list_t **list, const Bytes &b, void **block) {
    *block = tarvik_size_alloc(c, b.size());
    memcpy(*block, b.data(), b.size());
    *list = tarvik_msg_list_alloc(c);
    return tarvik_msg_list_fillin(c, *list, b.size(), *block);
  }
};

TEST_F(MsgListTest, AFreshListHoldsNothingAndAddingKeepsOneTypeAndVersion) {
  tarvik_msg_list_t *l = tarvik_msg_list_alloc(c);
  ASSERT_NE(l, nullptr);
  EXPECT_EQ(std::tuple(l->kind, l->count, l->msgs), std::tuple(TARVIK_MSG_LIST_FRESH, 0, nullptr));
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 0), nullptr);
  EXPECT_EQ(tarvik_msg_list_get_by_index(nullptr, 0), nullptr);
  tarvik_msg_list_free(c, nullptr);
  void *first = message(5, 'j');
  EXPECT_EQ(tarvik_msg_list_add(c, nullptr, first), EINVAL);
  EXPECT_EQ(tarvik_msg_list_add(c, l, nullptr), EINVAL);
  ASSERT_EQ(tarvik_msg_list_add(c, l, first), 0);
  EXPECT_EQ(std::tuple(l->kind, l->type, l->version, l->spare),
            std::tuple(TARVIK_MSG_LIST_ADDED, 5, 'j', 16));

  // Only a message of the list's type and version joins it.
  std::vector<void *> added = {first};
  for (void *m : {message(6, 'j'), message(5, 'k'), message(5, 'j'), message(5, 'j')}) {
    const auto *h = static_cast<const tlk_hdr *>(m);
    const int err = tarvik_msg_list_add(c, l, m);
    EXPECT_EQ(err, h->tlkh_type == 5 && h->tlkh_version == 'j' ? 0 : EINVAL);
    if (err == 0) added.push_back(m);
    if (err != 0) tarvik_msg_free(c, m);
    // The spare places are measured only when the table grows.
    EXPECT_EQ(std::tuple(l->count, l->spare), std::tuple(added.size(), 16));
  }
  for (size_t i = 0; i <= added.size(); ++i) {
    EXPECT_EQ(tarvik_msg_list_get_by_index(l, static_cast<int>(i)),
              i < added.size() ? added[i] : nullptr);
  }
  tarvik_msg_list_free(c, l);  // frees the three messages and the table
}

TEST_F(MsgListTest, FillingFromFramesDecodesEachMessage) {
  for (size_t n : {1u, 3u}) {
    for (bool tlv : {true, false}) {
      Bytes all;
      for (uint32_t i = 0; i < n; ++i) all = cat({all, ifl_frame(100 + i, tlv)});
      SCOPED_TRACE(testing::Message() << n << " frames, tlv " << tlv);
      tarvik_msg_list_t *l = nullptr;
      void *block = nullptr;
      ASSERT_EQ(fill(&l, all, &block), 0);
      tarvik_msg_free(c, block);  // decoded messages don't need it
      EXPECT_EQ(std::tuple(l->kind, l->count, l->spare, l->type, l->version),
                std::tuple(TARVIK_MSG_LIST_DECODED, n, 0, 6, 'q'));
      for (uint32_t i = 0; i < n && i < l->count; ++i) {
        const void *m = tarvik_msg_list_get_by_index(l, static_cast<int>(i));
        EXPECT_EQ(static_cast<const ifl_msg *>(m)->iflm_index.idx, 100 + i);
      }
      EXPECT_EQ(tarvik_msg_list_get_by_index(l, static_cast<int>(n)), nullptr);
      tarvik_msg_list_free(c, l);
    }
  }
}

TEST_F(MsgListTest, RawAndShortBlocksAreKeptAndBadFillsRefused) {
  Bytes f = ifl_frame(7, false);
  const Bytes raw = tarsim::raw_message(20, TLK_OP_GET, 1);
  Bytes raw_zero = raw;
  put_u32(raw_zero, 8, 0);
  const std::pair<const char *, Bytes> cases[] = {
      {"frame cut short", Bytes(f.begin(), f.end() - 4)},
      // A second frame whose length word wraps to 4 in 32 bits: its claim is checked in full.
      {"frame length that wraps", cat({f, frame_head(TLK_MAGIC_IDR, 0xFFFFFFF8u, 6)})},
      {"raw message of length 0", raw_zero},
      // A second raw message claiming more than is left.
      {"raw run with a tail", cat({raw, {0, 0, 0, 0, 0, 0, 0, 0, 99, 0, 0, 0}})},
  };
  tarvik_msg_list_t *l = nullptr;
  void *block = nullptr;
  for (const auto &[what, bytes] : cases) {
    EXPECT_EQ(fill(&l, bytes, &block), EINVAL) << what;
    tarvik_msg_list_free(c, l);
    tarvik_msg_free(c, block);
  }
  // Raw messages: the list points into the caller's block.
  Bytes a = tarsim::raw_message(20, TLK_OP_GET, 1, Bytes(8, 0xA1), 'e');
  Bytes all = cat({a, tarsim::raw_message(20, TLK_OP_GET, 2, Bytes(20, 0xB2), 'f')});
  ASSERT_EQ(fill(&l, all, &block), 0);
  // The kind goes by the block's size alone; the version is the last message's.
  EXPECT_EQ(std::tuple(l->kind, l->count, l->spare, l->version),
            std::tuple(TARVIK_MSG_LIST_DECODED, 2, 0, 'f'));
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 0), block);
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 1), static_cast<uint8_t *>(block) + a.size());
  tarvik_msg_list_free(c, l);
  tarvik_msg_free(c, block);  // still the caller's
  // Under four bytes, the block is the list's one entry, and the list frees it.
  ASSERT_EQ(fill(&l, Bytes{1, 2, 3}, &block), 0);
  EXPECT_EQ(std::tuple(l->kind, l->count), std::tuple(TARVIK_MSG_LIST_BLOCK, 1));
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 0), block);
  tarvik_msg_list_free(c, l);
  // A fill that fails part way keeps what it decoded, and the list releases it: here a second
  // frame of a type that has no record.
  EXPECT_NE(fill(&l, cat({f, frame_head(TLK_MAGIC_IDR, 0, 3)}), &block), 0);
  EXPECT_EQ(std::tuple(l->count, l->spare), std::tuple(1, 0));
  // Nothing to fill from.
  EXPECT_EQ(tarvik_msg_list_fillin(c, l, 0, f.data()), EINVAL);
  EXPECT_EQ(tarvik_msg_list_fillin(c, l, f.size(), nullptr), EINVAL);
  tarvik_msg_free(c, block);
  tarvik_msg_list_free(c, l);
}

}  // namespace
}  // namespace tlktest
