// Message lists: building by adding, filling from a block of frames or raw messages, look-up by
// index and release by kind (the fixture's leak check sees every block come back).
#include <errno.h>
#include <string.h>

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
  // The bytes in a tarvik_size_alloc block, as a kernel read would leave them.
  void *block_of(const Bytes &b) {
    void *p = tarvik_size_alloc(c, b.size());
    memcpy(p, b.data(), b.size());
    return p;
  }
  // A fresh list filled from `b` in a block of its own (left in *block); the fill's result.
  int fill(tarvik_msg_list_t **list, const Bytes &b, void **block) {
    *block = block_of(b);
    *list = tarvik_msg_list_alloc(c);
    return tarvik_msg_list_fillin(c, *list, b.size(), *block);
  }
};

TEST_F(MsgListTest, FreshListHoldsNothing) {
  tarvik_msg_list_t *l = tarvik_msg_list_alloc(c);
  ASSERT_NE(l, nullptr);
  EXPECT_EQ(l->kind, TARVIK_MSG_LIST_FRESH);
  EXPECT_EQ(l->count, 0);
  EXPECT_EQ(l->msgs, nullptr);
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 0), nullptr);
  EXPECT_EQ(tarvik_msg_list_get_by_index(nullptr, 0), nullptr);
  tarvik_msg_list_free(c, l);
  tarvik_msg_list_free(c, nullptr);
}

TEST_F(MsgListTest, AddingKeepsOneTypeAndVersion) {
  tarvik_msg_list_t *l = tarvik_msg_list_alloc(c);
  void *first = message(5, 'j');
  EXPECT_EQ(tarvik_msg_list_add(c, nullptr, first), EINVAL);
  EXPECT_EQ(tarvik_msg_list_add(c, l, nullptr), EINVAL);
  ASSERT_EQ(tarvik_msg_list_add(c, l, first), 0);
  EXPECT_EQ(l->kind, TARVIK_MSG_LIST_ADDED);
  EXPECT_EQ(l->type, 5);
  EXPECT_EQ(l->version, 'j');
  EXPECT_EQ(l->spare, 16);

  const struct {
    uint8_t type, version;
    int want;
  } rows[] = {{6, 'j', EINVAL}, {5, 'k', EINVAL}, {5, 'j', 0}, {5, 'j', 0}};
  uint16_t count = 1;
  for (auto &row : rows) {
    void *m = message(row.type, row.version);
    EXPECT_EQ(tarvik_msg_list_add(c, l, m), row.want);
    if (row.want == 0) {
      ++count;
      EXPECT_EQ(tarvik_msg_list_get_by_index(l, count - 1), m);
    } else {
      tarvik_msg_free(c, m);
    }
    EXPECT_EQ(l->count, count);
    EXPECT_EQ(l->spare, 16);  // measured only when the table grows
  }
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 0), first);
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, l->count), nullptr);
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
      EXPECT_EQ(l->kind, TARVIK_MSG_LIST_DECODED);
      EXPECT_EQ(l->count, n);
      EXPECT_EQ(l->spare, 0);
      EXPECT_EQ(l->type, 6);
      EXPECT_EQ(l->version, 'q');
      for (uint32_t i = 0; i < n; ++i) {
        auto *m = static_cast<ifl_msg *>(tarvik_msg_list_get_by_index(l, static_cast<int>(i)));
        ASSERT_NE(m, nullptr);
        EXPECT_EQ(m->iflm_index.idx, 100 + i);
      }
      EXPECT_EQ(tarvik_msg_list_get_by_index(l, static_cast<int>(n)), nullptr);
      tarvik_msg_list_free(c, l);
    }
  }
}

TEST_F(MsgListTest, RawMessagesStayInsideTheCallersBlock) {
  Bytes a = tarsim::raw_message(20, TLK_OP_GET, 1, Bytes(8, 0xA1), 'e');
  Bytes all = cat({a, tarsim::raw_message(20, TLK_OP_GET, 2, Bytes(20, 0xB2), 'f')});
  tarvik_msg_list_t *l = nullptr;
  void *block = nullptr;
  ASSERT_EQ(fill(&l, all, &block), 0);
  EXPECT_EQ(l->kind, TARVIK_MSG_LIST_DECODED);  // the kind goes by the block's size alone
  EXPECT_EQ(l->count, 2);
  EXPECT_EQ(l->spare, 0);
  EXPECT_EQ(l->version, 'f');  // the last message's
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 0), block);
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 1), static_cast<uint8_t *>(block) + a.size());
  tarvik_msg_list_free(c, l);
  tarvik_msg_free(c, block);  // still the caller's
}

TEST_F(MsgListTest, BlockUnderFourBytesIsKeptWhole) {
  tarvik_msg_list_t *l = nullptr;
  void *block = nullptr;
  ASSERT_EQ(fill(&l, Bytes{1, 2, 3}, &block), 0);
  EXPECT_EQ(l->kind, TARVIK_MSG_LIST_BLOCK);
  EXPECT_EQ(l->count, 1);
  EXPECT_EQ(tarvik_msg_list_get_by_index(l, 0), block);
  tarvik_msg_list_free(c, l);  // frees the block once
}

TEST_F(MsgListTest, BadFillsAreRefused) {
  Bytes f = ifl_frame(7, false);
  struct Case {
    const char *what;
    Bytes bytes;
    int want;
  };
  Bytes cut(f.begin(), f.end() - 4);
  Bytes raw = tarsim::raw_message(20, TLK_OP_GET, 1);
  Bytes raw_zero = raw;
  put_u32(raw_zero, 8, 0);
  Bytes tail(12, 0);
  tail[8] = 99;  // a second raw message claiming more than is left
  // A second frame of a type that has no record: the first decodes, the second is refused.
  const Bytes garbled = cat({f, frame_head(TLK_MAGIC_IDR, 0, 3)});
  const Case cases[] = {
      {"frame cut short", cut, EINVAL},
      // A second frame whose length word wraps to 4 in 32 bits: its claim is checked in full.
      {"frame length that wraps", cat({f, frame_head(TLK_MAGIC_IDR, 0xFFFFFFF8u, 6)}), EINVAL},
      {"raw message of length 0", raw_zero, EINVAL},
      {"raw run with a tail", cat({raw, tail}), EINVAL},
  };
  tarvik_msg_list_t *l = nullptr;
  void *block = nullptr;
  for (auto &cs : cases) {
    EXPECT_EQ(fill(&l, cs.bytes, &block), cs.want) << cs.what;
    tarvik_msg_list_free(c, l);
    tarvik_msg_free(c, block);
  }
  // A fill that fails part way keeps what it decoded, and the list releases it.
  EXPECT_NE(fill(&l, garbled, &block), 0);
  EXPECT_EQ(l->count, 1);
  EXPECT_EQ(l->spare, 0);
  // Nothing to fill from.
  EXPECT_EQ(tarvik_msg_list_fillin(c, l, 0, f.data()), EINVAL);
  EXPECT_EQ(tarvik_msg_list_fillin(c, l, f.size(), nullptr), EINVAL);
  tarvik_msg_free(c, block);
  tarvik_msg_list_free(c, l);
}

}  // namespace
}  // namespace tlktest
