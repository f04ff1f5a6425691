// The simulated kernel's blob store through the library: walks in key order, change and delete,
// and the notifications that listening sessions get, decompressed on arrival.
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <set>
#include <tuple>

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
    ASSERT_EQ(tarvik_gencfg_add(c, &r), 0) << k;
  }
  // Neighbours of another minor and another major stay out of the walk.
  gencfg_t before = keyed(20, 2, "zzz"), after = keyed(21, 3, "000");
  ASSERT_EQ(tarvik_gencfg_add(c, &before), 0);
  ASSERT_EQ(tarvik_gencfg_add(c, &after), 0);

  // From the start of 20/3, each getnext from the key the last one gave.
  std::vector<std::string> got;
  gencfg_t r = keyed(20, 3, "");
  r.key = nullptr;
  void *m = nullptr;
  int err;
  while ((err = tarvik_gencfg_get(c, &r, TLK_OP_GETNEXT, &m, nullptr)) == 0) {
    got.emplace_back(reinterpret_cast<const char *>(r.key), r.key_len);
    r.key = reinterpret_cast<uint8_t *>(keys_.emplace_back(got.back()).data());  // outlives m
    tarvik_msg_free(c, m);
  }
  EXPECT_EQ(err, EOPNOTSUPP) << "the kernel's refusal after the last blob, a raw message";
  EXPECT_EQ(got, std::vector<std::string>(want.begin(), want.end()));
}

TEST_F(GencfgStoreTest, NumericKeysWalkInNumberOrderChangeReplacesDeleteRemoves) {
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

  // A change replaces the blob, a delete removes it.
  r = numbered(22, 1, 6);
  const Bytes two = {2, 2};
  attach(r, two);
  ASSERT_EQ(tarvik_gencfg_change(c, &r), 0);
  gencfg_t q = numbered(22, 1, 6);
  ASSERT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(bytes_of(q.blob, q.blob_len), two);
  tarvik_msg_free(c, m);
  ASSERT_EQ(tarvik_gencfg_delete(c, &r), 0);
  q = numbered(22, 1, 6);
  EXPECT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(kernel.gencfg().store().size(), 4u);
}

// A walk's key order holds through adds and deletes made between walks: new keys merged in,
// removed ones skipped, a removed key added again, and more than half removed at once.
TEST_F(GencfgStoreTest, WalksStayInKeyOrderAcrossAddsAndDeletesBetweenThem) {
  std::minstd_rand rng(7);
  std::set<uint32_t> want;
  auto change = [&](uint8_t op, uint32_t kid) {
    tarsim::GencfgEntry e;
    e.id = tarsim::Gencfg::numeric_key(22, 2, kid);
    e.flags = TLK_GENCFG_KID;
    kernel.gencfg().change(op, e);
    if (op == TLK_OP_ADD) {
      want.insert(kid);
    } else {
      want.erase(kid);
    }
  };
  auto walked = [&] {  // the library's getnext walk over 22/2, checked for order on the way
    std::set<uint32_t> seen;
    gencfg_t r = numbered(22, 2, 0);
    r.flags = 0;
    void *m = nullptr;
    while (tarvik_gencfg_get(c, &r, TLK_OP_GETNEXT, &m, nullptr) == 0) {
      EXPECT_TRUE(seen.empty() || r.kid > *seen.rbegin()) << r.kid << " after " << *seen.rbegin();
      seen.insert(r.kid);
      tarvik_msg_free(c, m);
    }
    return seen;
  };
  for (int i = 0; i < 200; ++i) change(TLK_OP_ADD, static_cast<uint32_t>(rng() % 1000));
  EXPECT_EQ(walked(), want);
  for (int i = 0; i < 50; ++i) change(TLK_OP_ADD, static_cast<uint32_t>(rng() % 1000));
  change(TLK_OP_DELETE, *want.begin());
  EXPECT_EQ(walked(), want);
  const std::vector<uint32_t> all(want.begin(), want.end());
  for (size_t i = 0; i < all.size(); i += 3) change(TLK_OP_DELETE, all[i]);
  EXPECT_EQ(walked(), want);
  for (size_t i = 1; i < all.size(); i += 3) change(TLK_OP_DELETE, all[i]);  // past half
  change(TLK_OP_ADD, all[0]);
  EXPECT_EQ(walked(), want);
}

// The size the decompressed copy must hold; a get takes the same decompression as the
// notification (GetDecompressesIntoACopyThatKeepsTheCompressedFlagOrFails).
TEST_F(GencfgStoreTest, ATwoMiBBlobReachesAListenerDecompressed) {
  Listener heard;
  tarvik_cookie *other = listening_session(&heard, true);
  ASSERT_NE(other, nullptr);
  use_zlib(c);
  const Bytes blob = text_blob(2u << 20, 11);
  gencfg_t r = compressed(30, 1, "two-mib", blob);
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);

  drain(other);
  ASSERT_EQ(heard.heard.size(), 1u);
  EXPECT_EQ(heard.heard[0].op, TLK_OP_ADD);
  EXPECT_EQ(heard.heard[0].key, "two-mib");
  EXPECT_EQ(heard.heard[0].flags, TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED);
  EXPECT_TRUE(heard.heard[0].blob == blob);
  EXPECT_LT(heard.heard[0].msglen, TLK_GENCFG_WIRE_MAX) << "the header keeps the wire's length";
  tarvik_close(other);
  accept_freed_duplicates(1);
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
  // A change-and-get is heard as a change, the bulk delete blob by blob.
  std::vector<std::tuple<uint8_t, std::string, Bytes>> seen;
  for (const Heard &h : heard.heard) seen.emplace_back(h.op, h.key, h.blob);
  EXPECT_EQ(seen, (decltype(seen){{TLK_OP_ADD, "a", blob},
                                  {TLK_OP_CHANGE, "b", {}},
                                  {TLK_OP_DELETE, "a", {}},
                                  {TLK_OP_DELETE, "b", {}},
                                  {TLK_OP_CHANGE, "", {7}}}));
  EXPECT_EQ(heard.heard[4].kid, 8u);
  // The writer heard only the kernel's own change.
  drain(c);
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
  gencfg_t packed = compressed(32, 1, "packed", blob), plain = keyed(32, 1, "plain");
  attach(plain, blob);
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
  EXPECT_TRUE(logged("ERROR", "Compression was not initialized for tarvik\n"));
  tarvik_close(other);
}

// A plain message passes the asynchronous step untouched (the test above hears it whole).
TEST_F(GencfgStoreTest, TheAsyncStepKeepsAMessageItCannotDecompress) {
  EXPECT_EQ(tarvik_gencfg_async(c, nullptr), EINVAL);
  // Compressed, but the bytes are not zlib's: the callback fails, the message stays.
  uint8_t junk[] = {1, 2, 3, 4};
  gencfg_msg bad{};
  bad.flags = TLK_GENCFG_COMPRESSED;
  bad.blob = junk;
  bad.blob_len = sizeof junk;
  use_zlib(c);
  void *p = &bad;
  EXPECT_EQ(tarvik_gencfg_async(c, &p), Z_DATA_ERROR);
  EXPECT_EQ(p, &bad);
  EXPECT_EQ(bad.blob_len, 0u);
  EXPECT_TRUE(logged("ERROR", "Failed to decompress blob (rc -3)\n"));
  // zlib reports how much it wrote before it failed: nothing.
  EXPECT_TRUE(logged("DEBUG", "Gencfg blob was decompressed from 4 to 0 bytes (rc -3)\n"))
      << "reported whatever the result";
}

}  // namespace
}  // namespace tlktest
