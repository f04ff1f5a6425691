// The simulated kernel's blob store through the library: walks in key order, large compressed
// blobs both ways, and the notifications that listening sessions get, decompressed on arrival.
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <set>

#include "gencfg_support.h"

namespace tlktest {
namespace {

// Everything a gencfg handler was given, copied before the message is freed.
struct Heard {
  uint8_t op;
  uint32_t flags;
  std::string key;
  uint32_t kid;
  Bytes blob;
  uint32_t msglen;
};
struct Listener {
  std::vector<Heard> heard;
  static int handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    const auto *m = static_cast<const gencfg_msg *>(msg);
    static_cast<Listener *>(arg)->heard.push_back(
        {m->gencfg_hdr.tlkh_op, m->flags,
         m->key ? std::string(reinterpret_cast<const char *>(m->key), m->key_len) : std::string(),
         m->kid, bytes_of(m->blob, m->blob_len), m->gencfg_hdr.tlkh_msglen});
    tarvik_msg_free(cookie, msg);
    return 0;
  }
};

class GencfgStoreTest : public GencfgTest {
 protected:
  // A second session that listens for gencfg and polls by itself.
  tarvik_cookie *listening_session(Listener *l, bool with_zlib) {
    tarvik_cookie *s = open_session(9);
    if (s == nullptr) return nullptr;
    EXPECT_EQ(tarvik_set_async_info_nocontext(s, nullptr), 0);
    EXPECT_EQ(tarvik_gencfg_async_register(s, l, Listener::handler), 0);
    if (with_zlib) use_zlib(s);
    return s;
  }
  // Runs the session's event processing until the socket is empty.
  static void drain(tarvik_cookie *s) {
    while (tarvik_async_event_process(s) == 0) {
    }
  }
  // Walks major/minor from the start with getnext; the keys in the order they came.
  std::vector<std::string> walk(uint16_t major, uint16_t minor, int *end_result) {
    std::vector<std::string> keys;
    gencfg_t r = keyed(major, minor, "");
    r.key = nullptr;
    for (;;) {
      void *m = nullptr;
      const int err = tarvik_gencfg_get(c, &r, TLK_OP_GETNEXT, &m, nullptr);
      if (err != 0) {
        *end_result = err;
        return keys;
      }
      keys.emplace_back(reinterpret_cast<const char *>(r.key), r.key_len);
      // The next request starts from this key; it must outlive the reply.
      keys_.push_back(keys.back());
      r.key = reinterpret_cast<uint8_t *>(keys_.back().data());
      r.blob = nullptr;
      r.blob_len = 0;
      tarvik_msg_free(c, m);
    }
  }
};

TEST_F(GencfgStoreTest, AWalkOverHundredsOfBlobsReturnsThemAllInKeyOrder) {
  std::mt19937 rng(42);
  std::set<std::string> want;
  while (want.size() < 300) {
    std::string k(1 + rng() % 24, 'a');
    for (auto &ch : k) ch = static_cast<char>('0' + rng() % 75);
    want.insert(k);
  }
  std::vector<std::string> order(want.begin(), want.end());
  std::shuffle(order.begin(), order.end(), rng);
  for (const std::string &k : order) {
    gencfg_t r = keyed(20, 3, k);
    const Bytes blob(k.begin(), k.end());
    attach(r, blob);
    ASSERT_EQ(tarvik_gencfg_add(c, &r), 0) << k;
  }
  // Neighbours of another minor and another major stay out of the walk.
  gencfg_t before = keyed(20, 2, "zzz"), after = keyed(21, 3, "000");
  ASSERT_EQ(tarvik_gencfg_add(c, &before), 0);
  ASSERT_EQ(tarvik_gencfg_add(c, &after), 0);

  int end = 0;
  const std::vector<std::string> got = walk(20, 3, &end);
  EXPECT_EQ(end, EOPNOTSUPP) << "the kernel's refusal after the last blob, a raw message";
  EXPECT_EQ(got, std::vector<std::string>(want.begin(), want.end()));
}

TEST_F(GencfgStoreTest, NumericKeysWalkInNumberOrder) {
  for (uint32_t kid : {900u, 5u, 70000u, 6u, 1u}) {
    gencfg_t r = numbered(22, 1, kid);
    ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  }
  std::vector<uint32_t> got;
  gencfg_t r = numbered(22, 1, 0);
  r.flags = 0;  // no key at all: the walk starts at the beginning
  void *m = nullptr;
  while (tarvik_gencfg_get(c, &r, TLK_OP_GETNEXT, &m, nullptr) == 0) {
    got.push_back(r.kid);
    EXPECT_EQ(r.flags, TLK_GENCFG_KID) << "the record took the reply's flags";
    tarvik_msg_free(c, m);
  }
  EXPECT_EQ(got, (std::vector<uint32_t>{1, 5, 6, 900, 70000}));
}

TEST_F(GencfgStoreTest, ChangeReplacesDeleteRemoves) {
  gencfg_t r = keyed(23, 1, "k");
  const Bytes one = {1}, two = {2, 2};
  attach(r, one);
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  attach(r, two);
  ASSERT_EQ(tarvik_gencfg_change(c, &r), 0);
  gencfg_t q = keyed(23, 1, "k");
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(bytes_of(q.blob, q.blob_len), two);
  tarvik_msg_free(c, m);
  ASSERT_EQ(tarvik_gencfg_delete(c, &r), 0);
  q = keyed(23, 1, "k");
  EXPECT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(m, nullptr);
  EXPECT_TRUE(kernel.gencfg().store().empty());
}

TEST_F(GencfgStoreTest, ATwoMiBBlobRoundTripsCompressedThroughKernelAndNotification) {
  Listener heard;
  tarvik_cookie *other = listening_session(&heard, true);
  ASSERT_NE(other, nullptr);
  use_zlib(c);
  const Bytes blob = text_blob(2u << 20, 11);
  gencfg_t r = keyed(30, 1, "two-mib");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);

  // The kernel holds the compressed bytes, as they came.
  const auto *stored =
      kernel.gencfg().find(tarsim::Gencfg::bytes_key(30, 1, Bytes(r.key, r.key + r.key_len)));
  ASSERT_NE(stored, nullptr);
  EXPECT_LT(stored->blob.size(), TLK_GENCFG_WIRE_MAX);
  EXPECT_EQ(stored->flags & TLK_GENCFG_COMPRESSED, TLK_GENCFG_COMPRESSED);
  EXPECT_EQ(inflate(stored->blob.data(), stored->blob.size()), blob);

  // Back through a get.
  gencfg_t q = keyed(30, 1, "two-mib");
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(q.blob_len, blob.size());
  EXPECT_TRUE(bytes_of(q.blob, q.blob_len) == blob);
  EXPECT_LT(static_cast<gencfg_msg *>(m)->gencfg_hdr.tlkh_msglen, stored->blob.size() + 1024)
      << "the frame on the wire was about the compressed size";
  tarvik_msg_free(c, m);

  // And to the second session, decompressed before its handler sees it.
  drain(other);
  ASSERT_EQ(heard.heard.size(), 1u);
  EXPECT_EQ(heard.heard[0].op, TLK_OP_ADD);
  EXPECT_EQ(heard.heard[0].key, "two-mib");
  EXPECT_EQ(heard.heard[0].flags, TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED);
  EXPECT_TRUE(heard.heard[0].blob == blob);
  tarvik_close(other);
  accept_freed_duplicates(2);
}

TEST_F(GencfgStoreTest, ListenersHearEveryChangeButNotTheirOwn) {
  Listener heard, own;
  tarvik_cookie *other = listening_session(&heard, false);
  ASSERT_NE(other, nullptr);
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_gencfg_async_register(c, &own, Listener::handler), 0);

  const Bytes blob = {4, 5, 6};
  gencfg_t a = keyed(31, 1, "a"), b = keyed(31, 1, "b");
  attach(a, blob);
  ASSERT_EQ(tarvik_gencfg_add(c, &a), 0);
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_change_and_get(c, &b, &m, nullptr), 0);
  tarvik_msg_free(c, m);
  ASSERT_EQ(tarvik_gencfg_delete(c, &a), 0);
  gencfg_t gone = keyed(31, 1, "nothing");
  ASSERT_EQ(tarvik_gencfg_delete(c, &gone), 0);  // nothing removed: nothing heard
  gencfg_t bulk = keyed(31, 1, "");
  ASSERT_EQ(tarvik_gencfg_bulk_delete(c, &bulk, &m, nullptr), 0);
  tarvik_msg_free(c, m);
  // A change the kernel makes by itself reaches every listener, the writer's session too.
  tarsim::GencfgEntry e;
  e.id = tarsim::Gencfg::numeric_key(31, 2, 8);
  e.flags = TLK_GENCFG_KID;
  e.blob = {7};
  EXPECT_EQ(kernel.gencfg().change(TLK_OP_CHANGE, e), 2u);

  drain(other);
  ASSERT_EQ(heard.heard.size(), 5u);
  EXPECT_EQ(heard.heard[0].op, TLK_OP_ADD);
  EXPECT_EQ(heard.heard[0].blob, blob);
  EXPECT_EQ(heard.heard[1].op, TLK_OP_CHANGE) << "a change-and-get is heard as a change";
  EXPECT_EQ(heard.heard[1].key, "b");
  EXPECT_EQ(heard.heard[2].op, TLK_OP_DELETE);
  EXPECT_EQ(heard.heard[2].key, "a");
  EXPECT_TRUE(heard.heard[2].blob.empty());
  EXPECT_EQ(heard.heard[3].op, TLK_OP_DELETE) << "the bulk delete, blob by blob";
  EXPECT_EQ(heard.heard[3].key, "b");
  EXPECT_EQ(heard.heard[4].kid, 8u);
  // The writer heard only the kernel's own change.
  while (tarvik_async_event_process(c) == 0) {
  }
  ASSERT_EQ(own.heard.size(), 1u);
  EXPECT_EQ(own.heard[0].kid, 8u);
  tarvik_close(other);
}

TEST_F(GencfgStoreTest, ANotificationThatCannotBeDecompressedIsDroppedAlone) {
  Listener heard;
  tarvik_cookie *other = listening_session(&heard, false);  // no callbacks
  ASSERT_NE(other, nullptr);
  use_zlib(c);
  const Bytes blob = text_blob(5000);
  gencfg_t packed = keyed(32, 1, "packed"), plain = keyed(32, 1, "plain");
  attach(packed, blob);
  attach(plain, blob);
  packed.flags |= TLK_GENCFG_COMPRESSED;
  ASSERT_EQ(tarvik_gencfg_add(c, &packed), 0);
  ASSERT_EQ(tarvik_gencfg_add(c, &plain), 0);
  tarvik_async_set_num_read_msg(other, 1);  // one read: the failed message's result stays in errno
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(other), 0);
  EXPECT_EQ(errno, EOPNOTSUPP) << "the failed message's result";
  drain(other);
  ASSERT_EQ(heard.heard.size(), 1u);
  EXPECT_EQ(heard.heard[0].key, "plain");
  EXPECT_EQ(heard.heard[0].blob, blob);
  EXPECT_TRUE(logged(line("ERROR", "Compression was not initialized for tarvik\n")));
  tarvik_close(other);
}

TEST_F(GencfgStoreTest, TheAsyncStepTouchesOnlyCompressedMessages) {
  gencfg_msg plain{};
  void *p = &plain;
  EXPECT_EQ(tarvik_gencfg_async(c, &p), 0);
  EXPECT_EQ(p, &plain);
  EXPECT_EQ(tarvik_gencfg_async(nullptr, &p), EINVAL);
  EXPECT_EQ(tarvik_gencfg_async(c, nullptr), EINVAL);
  // Compressed, but the bytes are not zlib's: the callback fails, the message stays.
  uint8_t junk[] = {1, 2, 3, 4};
  gencfg_msg bad{};
  bad.flags = TLK_GENCFG_COMPRESSED;
  bad.blob = junk;
  bad.blob_len = sizeof junk;
  use_zlib(c);
  p = &bad;
  EXPECT_EQ(tarvik_gencfg_async(c, &p), Z_DATA_ERROR);
  EXPECT_EQ(p, &bad);
  EXPECT_EQ(bad.blob_len, 0u);
  EXPECT_TRUE(logged(line("ERROR", "Failed to decompress blob (rc -3)\n")));
  // zlib reports how much it wrote before it failed: nothing.
  EXPECT_TRUE(logged(line("DEBUG", "Gencfg blob was decompressed from 4 to 0 bytes (rc -3)\n")))
      << "reported whatever the result";
}

}  // namespace
}  // namespace tlktest
