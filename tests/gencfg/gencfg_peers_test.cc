// Peer masks, dependency blocks and statistics values: the mask bits over every slot and sub-unit
// against a reference of their own, the limits as rows, and the statistics through the kernel.
#include <errno.h>
#include <string.h>

#include <array>
#include <optional>

#include "gencfg_support.h"

namespace tlktest {
namespace {

using Mask = std::array<uint32_t, 8>;

// The reference: a slot stands at word s / 6, bit 5s mod 30; sub-unit i (unit u of slot i / 8)
// at word i / 48, bit 1 + u + (5 (i / 8) mod 30).  A bit past 31 does not exist in a u32 word.
void ref_set(Mask &m, uint32_t word, uint32_t bit) {
  if (bit < 32) m[word] |= 1u << bit;
}
bool ref_has(const Mask &m, uint32_t word, uint32_t bit) {
  return bit < 32 && (m[word] >> bit & 1u);
}
uint32_t ref_sub_bit(uint32_t i) {
  return 1 + i % 8 + (i / 8 * 5) % 30;
}
Mask mask_words(const uint8_t *bytes) {
  Mask m;
  memcpy(m.data(), bytes, sizeof m);
  return m;
}

std::string last_syslog(const OsCapture &os) {
  return os.syslog.empty() ? std::string() : os.syslog.back().text;
}

class GencfgPeersTest : public GencfgTest {
 protected:
  // A record of `major` with room for `n` peers in the fixture's storage.
  gencfg_t with_room(uint16_t major, uint32_t n) {
    gencfg_t r{};
    r.major = major;
    EXPECT_EQ(tarvik_gencfg_add_peerinfo_storage(&r, n, storage_, sizeof storage_), 0);
    return r;
  }
  gencfg_peerinfo_t storage_[TLK_GENCFG_PEERS_MAX] = {};
};

TEST_F(GencfgPeersTest, EverySlotAndSubUnitSetsAndFindsTheBitsOfTheRule) {
  struct Form {
    uint8_t type;
    uint32_t count;
  };
  for (const Form form : {Form{16, 48}, Form{1, 384}, Form{17, 384}}) {
    for (uint32_t i = 0; i < form.count; ++i) {
      SCOPED_TRACE(testing::Message() << "type " << int{form.type} << " index " << i);
      gencfg_t r = with_room(15, 1);
      const gencfg_peer_t p = {form.type, TLK_GENCFG_OBJECT_PEER, static_cast<uint16_t>(i)};
      ASSERT_EQ(tarvik_gencfg_add_peerinfo(&r, &p), 0);
      Mask want{};
      if (form.type == 16) ref_set(want, i / 6, i * 5 % 30);
      if (form.type == 17) ref_set(want, i / 48, i / 8 * 5 % 30);
      if (form.type != 16) ref_set(want, i / 48, ref_sub_bit(i));
      const uint8_t *mask = storage_[0].index.idx.gencfg_type_peer_mask.peer_mask;
      ASSERT_EQ(mask_words(mask), want);
      EXPECT_EQ(r.peer_count, 1);
      EXPECT_EQ(storage_[0].index.index_type, TLK_GENCFG_INDEX_MASK);

      const bool slot = form.type == 16;
      const uint32_t word = slot ? i / 6 : i / 48, bit = slot ? i * 5 % 30 : ref_sub_bit(i);
      const uint8_t probe = slot ? 16 : 1;
      const uint32_t s = slot ? i : i / 8, u = slot ? 0 : i % 8;
      const int expect_present = ref_has(want, word, bit) ? 1 : 0;
      EXPECT_EQ(tarvik_gencfg_is_peer_present_in_peerinfo(&r, probe, i), expect_present);
      EXPECT_EQ(tarvik_gencfg_get_peer_index_from_peer_mask(mask, probe, s, u),
                expect_present ? static_cast<int>(i) : -1);
      // The walk answers with the first slot, or the first sub-unit in slot-then-unit order,
      // whose bit the mask holds: with the fields overlapping, not always the one added.
      int lowest = -1;
      for (uint32_t j = 0; j < (slot ? 48u : 384u) && lowest < 0; ++j) {
        if (slot ? ref_has(want, j / 6, j * 5 % 30) : ref_has(want, j / 48, ref_sub_bit(j))) {
          lowest = static_cast<int>(j);
        }
      }
      gencfg_msg m{};
      m.peers = storage_;
      m.peer_count = 1;
      EXPECT_EQ(tarvik_gencfg_get_peer_index(&m, 0), lowest);
      EXPECT_EQ(tarvik_gencfg_get_peer_info(&m),
                storage_[0].index.idx.gencfg_type_peer_mask.peer_mask);
    }
  }
}

// Adding one peer to a fresh record: the answer, the count, the form stored, the diagnostic.
struct AddRow {
  const char *what;
  uint16_t major;
  uint32_t room;
  gencfg_peer_t peer;
  int want;
  uint8_t count;
  uint32_t index_type;
  const char *line = nullptr;
};
const AddRow kAdds[] = {
    {"sub-unit 383", 15, 1, {1, 0, 383}, 0, 1, 2},
    {"sub-unit 384", 15, 1, {1, 0, 384}, -1, 0, 0, "Creation of gencfg peer mask failed \n"},
    {"slot 47", 73, 1, {16, 0, 47}, 0, 1, 2},
    {"slot 48", 73, 1, {16, 0, 48}, -1, 0, 0, "Creation of gencfg peer mask failed \n"},
    {"both at 384", 85, 1, {17, 0, 384}, -1, 0, 0, "Creation of gencfg peer mask failed \n"},
    {"type 2 in a mask", 85, 1, {2, 0, 3}, -1, 0, 0, "Creation of gencfg peer mask failed \n"},
    {"index 65532: an empty mask", 15, 1, {16, 0, 65532}, 0, 1, 2},
    {"a plain major: one index", 40, 1, {16, 0, 9000}, 0, 1, 0},
    {"an interface device", 15, 1, {1, 1, 7}, 0, 1, 1},
    {"an unknown object", 15, 1, {1, 2, 7}, -1, 0, 0, "OBJECT TYPE invalid\n"},
    {"no room", 15, 0, {1, 0, 1}, -1, 0, 0, "Number of gencfg peers exceeds 0\n"},
};

TEST_F(GencfgPeersTest, OnePeerAddedToAFreshRecord) {
  for (const AddRow &row : kAdds) {
    SCOPED_TRACE(row.what);
    memset(storage_, 0, sizeof storage_);
    os.syslog.clear();
    gencfg_t r = with_room(row.major, row.room);
    EXPECT_EQ(tarvik_gencfg_add_peerinfo(&r, &row.peer), row.want);
    EXPECT_EQ(r.peer_count, row.count);
    if (row.count != 0) {
      EXPECT_EQ(storage_[0].index.index_type, row.index_type);
    }
    if (row.peer.index >= TLK_GENCFG_PEER_INDEX_NONE) {
      EXPECT_EQ(mask_words(storage_[0].index.idx.gencfg_type_peer_mask.peer_mask), Mask{});
    }
    EXPECT_EQ(last_syslog(os), row.line ? std::string("tarvik: ERROR ") + row.line : "");
  }
}

TEST_F(GencfgPeersTest, OneMaskEntryTakesManyPeersAndARecordNeverMixesForms) {
  gencfg_t r = with_room(15, 2);
  for (uint16_t i : {uint16_t{3}, uint16_t{200}, uint16_t{376}}) {
    const gencfg_peer_t p = {1, 0, i};
    ASSERT_EQ(tarvik_gencfg_add_peerinfo(&r, &p), 0);
  }
  EXPECT_EQ(r.peer_count, 1);
  for (uint32_t i : {3u, 200u, 376u})
    EXPECT_EQ(tarvik_gencfg_is_peer_present_in_peerinfo(&r, 1, i), 1);
  // A failed add leaves the bits, but the type it named stays written.
  const gencfg_peer_t slot99 = {16, 0, 99};
  EXPECT_EQ(tarvik_gencfg_add_peerinfo(&r, &slot99), -1);
  EXPECT_EQ(storage_[0].peer_type, 16);
  EXPECT_EQ(r.peer_count, 1);
  const gencfg_peer_t device = {1, 1, 5};
  EXPECT_EQ(tarvik_gencfg_add_peerinfo(&r, &device), -1);
  EXPECT_EQ(last_syslog(os),
            "tarvik: ERROR tarvik_gencfg_add_peerinfo: Peer Index choice mismatch, Existing: 2 "
            "New: 1\n");
}

// Major 4 takes the mask only where the system control reads one u32 of value 1.
TEST_F(GencfgPeersTest, MajorFourFollowsThePeerMaskControl) {
  struct Setting {
    const char *what;
    std::function<void(tarsim::Kernel &)> apply;
    uint32_t index_type;
  };
  const Setting settings[] = {
      {"the kernel's default", [](tarsim::Kernel &) {}, 0},
      {"the kernel's control at 1", [](tarsim::Kernel &k) { k.gencfg().set_peermask(1); }, 2},
      {"the control at 2", [](tarsim::Kernel &k) { k.gencfg().set_peermask(2); }, 0},
      {"a value set at 1",
       [](tarsim::Kernel &k) { k.set_sysctl_u32(TLK_GENCFG_PEERMASK_SYSCTL, 1); }, 2},
      {"a one-byte value",
       [](tarsim::Kernel &k) { k.set_sysctl(TLK_GENCFG_PEERMASK_SYSCTL, Bytes{1}); }, 0},
  };
  for (const Setting &s : settings) {
    SCOPED_TRACE(s.what);
    s.apply(kernel);
    gencfg_t r = with_room(4, 1);
    const gencfg_peer_t p = {16, 0, 3};
    ASSERT_EQ(tarvik_gencfg_add_peerinfo(&r, &p), 0);
    EXPECT_EQ(storage_[0].index.index_type, s.index_type);
  }
}

// Without a simulated kernel the host's table answers: Linux has no such control.
TEST(GencfgPeersHost, MajorFourOnASystemWithoutTheControlStoresSingleIndexes) {
  gencfg_peerinfo_t peers[2] = {};
  gencfg_t r{};
  r.major = 4;
  ASSERT_EQ(tarvik_gencfg_add_peerinfo_storage(&r, 2, peers, sizeof peers), 0);
  for (uint16_t i : {uint16_t{7}, uint16_t{9}}) {
    const gencfg_peer_t p = {16, 0, i};
    ASSERT_EQ(tarvik_gencfg_add_peerinfo(&r, &p), 0);
  }
  EXPECT_EQ(r.peer_count, 2);
  gencfg_msg m{};
  m.peers = peers;
  m.peer_count = 2;
  EXPECT_EQ(tarvik_gencfg_get_peer_index(&m, 1), 9);
  EXPECT_EQ(tarvik_gencfg_get_peer_info(&m), nullptr);
}

TEST_F(GencfgPeersTest, PeerStorageLimits) {
  gencfg_t r{};
  EXPECT_EQ(tarvik_gencfg_add_peerinfo_storage(&r, 65, storage_, sizeof storage_), -1);
  EXPECT_EQ(last_syslog(os), "tarvik: ERROR Number of peers exceeds 64\n");
  EXPECT_EQ(tarvik_gencfg_add_peerinfo_storage(&r, 3, storage_, 119), -1);
  EXPECT_EQ(last_syslog(os), "tarvik: ERROR buffer space too small for number of peers 3\n");
  EXPECT_EQ(tarvik_gencfg_create_peerinfo(&r, 65), -1);
  ASSERT_EQ(tarvik_gencfg_create_peerinfo(&r, 64), 0);
  EXPECT_EQ(r.peer_max, 64);
  tarvik_gencfg_delete_peerinfo(&r);
  EXPECT_EQ(r.peers, nullptr);
  EXPECT_EQ(r.peer_max, 64) << "kept";
}

TEST_F(GencfgPeersTest, MasksCompareWholeAndOnlyAsMasks) {
  gencfg_peerinfo_t a[2] = {}, b[2] = {};
  for (auto *p : {&a[0], &a[1], &b[0], &b[1]}) p->index.index_type = TLK_GENCFG_INDEX_MASK;
  b[1].peer_type = 17;  // not compared
  EXPECT_EQ(tarvik_gencfg_peer_info_compare(a, 2, b, 2), 0);
  EXPECT_EQ(tarvik_gencfg_peer_info_compare(a, 0, b, 0), 0);
  EXPECT_EQ(tarvik_gencfg_peer_info_compare(a, 2, b, 1), 1);
  EXPECT_EQ(tarvik_gencfg_peer_info_compare(a, 2, nullptr, 2), 1);
  b[1].index.idx.gencfg_type_peer_mask.peer_mask[31] = 0x80;
  EXPECT_EQ(tarvik_gencfg_peer_info_compare(a, 2, b, 2), 1);
  b[1] = a[1];
  a[0].index.index_type = TLK_GENCFG_INDEX_DEFAULT;
  EXPECT_EQ(tarvik_gencfg_peer_info_compare(a, 2, b, 2), 1);
}

TEST_F(GencfgPeersTest, DependencyBlockLimits) {
  gencfg_t r = keyed(40, 1, "k");
  alignas(8) static uint8_t block[TLK_GENCFG_DEP_BLOCK_SIZE];
  EXPECT_EQ(tarvik_gencfg_add_depend_storage(&r, block, sizeof block - 1), -1);
  ASSERT_EQ(tarvik_gencfg_add_depend_storage(&r, block, sizeof block), 0);
  EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_DEPS);
  const uint8_t key[] = "abcdefgh";
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 55, 1, 1, 1, key, 0), -1);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 54, 1, 1, 0, key, 0), -1);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 54, 1, 1, 1, nullptr, 0), -1);
  EXPECT_EQ(r.dep_count, 0);
  // Three bytes take four of the data area.
  ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 54, 7, 8, 3, key, 9), 0);
  ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 1, 7, 8, 1, key + 3, 0), 0);
  EXPECT_EQ(r.deps[1].dep_key, r.deps[0].dep_key + 4);
  EXPECT_EQ(r.deps[0].dep_key_len, 3u);
  for (int i = 2; i < TLK_GENCFG_DEPS_MAX; ++i)
    ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 2, 1, 1, 8, key, 0), 0);
  const gencfg_depinfo_t first = r.deps[0];
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 2, 1, 1, 1, key, 0), -1) << "the 73rd";
  EXPECT_EQ(r.dep_count, TLK_GENCFG_DEPS_MAX);
  EXPECT_EQ(memcmp(&first, &r.deps[0], sizeof first), 0);
  EXPECT_EQ(memcmp(r.deps[0].dep_key, "abc", 3), 0);
}

// The key area fills to its last byte and no further: 6462 bytes where an entry is 24 bytes.
TEST_F(GencfgPeersTest, DependencyKeysFillTheDataArea) {
  const size_t room =
      TLK_GENCFG_DEP_BLOCK_SIZE - TLK_GENCFG_DEPS_MAX * sizeof(gencfg_depinfo_t) - 2;
  if (sizeof(void *) == 4) {
    EXPECT_EQ(room, 6462u);
  }
  gencfg_t r{};
  ASSERT_EQ(tarvik_gencfg_create_depend(&r), 0);
  static uint8_t key[8192];
  memset(key, 'z', sizeof key);
  // Keys count rounded up to four: with six bytes of the area left, five bytes no longer fit,
  // four do, and then not even one.
  const auto big = static_cast<uint32_t>(room / 4 * 4 - 4);
  ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 0, 1, 1, big, key, 0), 0);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 0, 1, 1, 5, key, 0), -1);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 0, 1, 1, 4, key, 0), 0);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 0, 1, 1, 1, key, 0), -1);
  EXPECT_EQ(r.dep_count, 2);
  EXPECT_EQ(tarvik_gencfg_delete_depend(&r), 0);
  EXPECT_EQ(r.deps, nullptr);
  EXPECT_TRUE(r.flags & TLK_GENCFG_DEPS) << "left set";
  r.flags |= TLK_GENCFG_KID;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EINVAL) << "refused until the flag is cleared";
}

// Peers and dependencies made by the helpers reach the kernel and come back in a get.
TEST_F(GencfgPeersTest, PeersAndDependenciesRoundTripThroughTheKernel) {
  gencfg_t r = with_room(15, 2);  // a full record refuses even a peer its mask would take
  r.flags = TLK_GENCFG_KEY;
  r.key = const_cast<uint8_t *>(reinterpret_cast<const uint8_t *>("blob-1"));
  r.key_len = 6;
  for (uint16_t i : {uint16_t{3}, uint16_t{300}}) {
    const gencfg_peer_t p = {1, 0, i};
    ASSERT_EQ(tarvik_gencfg_add_peerinfo(&r, &p), 0);
  }
  ASSERT_EQ(tarvik_gencfg_create_depend(&r), 0);
  ASSERT_EQ(
      tarvik_gencfg_add_depinfo(&r, 3, 40, 2, 5, reinterpret_cast<const uint8_t *>("vpn-a"), 1), 0);
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  const Mask sent = mask_words(storage_[0].index.idx.gencfg_type_peer_mask.peer_mask);
  ASSERT_EQ(tarvik_gencfg_delete_depend(&r), 0);

  gencfg_t q = keyed(15, 0, "blob-1");
  void *reply = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &reply, nullptr), 0);
  const auto *m = static_cast<const gencfg_msg *>(reply);
  const uint8_t *mask = tarvik_gencfg_get_peer_info(m);
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(mask_words(mask), sent);
  EXPECT_EQ(tarvik_gencfg_get_peer_index(m, 0), 3);
  EXPECT_EQ(tarvik_gencfg_get_peer_index_from_peer_mask(mask, 1, 37, 4), 300);
  ASSERT_EQ(q.dep_count, 1);
  EXPECT_EQ(q.deps[0].dep_major, 40);
  EXPECT_EQ(bytes_of(q.deps[0].dep_key, q.deps[0].dep_key_len), (Bytes{'v', 'p', 'n', '-', 'a'}));
  tarvik_msg_free(c, reply);
}

// ---- Statistics ----

struct StatsRefusal {
  const char *what;
  uint32_t op;
  bool msg_out;
  uint32_t flags;
  uint16_t key_len;
};
const StatsRefusal kStatsRefusals[] = {
    {"op 2, a change", TLK_OP_CHANGE, true, 0, 0},
    {"op 5, a getnext", TLK_OP_GETNEXT, true, 0, 0},
    {"a get without msg_out", TLK_OP_GET, false, 0, 0},
    {"a key flag with no key", TLK_OP_GET, true, TLK_GENCFG_KEY, 0},
};

TEST_F(GencfgPeersTest, StatisticsRefusalsSendNothing) {
  for (const StatsRefusal &row : kStatsRefusals) {
    SCOPED_TRACE(row.what);
    gencfg_t r = keyed(40, 1, "k");
    r.flags = row.flags;
    r.key_len = row.key_len;
    void *out = &r;
    EXPECT_EQ(tarvik_gencfg_stats_get(c, &r, nullptr, row.op, 1, row.msg_out ? &out : nullptr,
                                      nullptr, nullptr),
              EINVAL);
    if (row.msg_out) {
      EXPECT_EQ(out, nullptr);
    }
  }
  gencfg_t r = keyed(40, 1, "k");
  EXPECT_EQ(tarvik_gencfg_stats_set(c, &r, nullptr, TLK_OP_CHANGE, 1, "v", 1), EINVAL);
  EXPECT_EQ(requests_seen(), 0u);
}

TEST_F(GencfgPeersTest, StatisticsRequestLayout) {
  gencfg_t r = with_room(15, 1);
  const gencfg_peer_t p = {16, 0, 2};
  ASSERT_EQ(tarvik_gencfg_add_peerinfo(&r, &p), 0);
  r.minor = 3, r.sub_id = 0x77, r.kid = 0xAABBCCDD;
  r.flags = TLK_GENCFG_KEY | TLK_GENCFG_KID;
  r.key = const_cast<uint8_t *>(reinterpret_cast<const uint8_t *>("abcde"));
  r.key_len = 5;
  ASSERT_EQ(tarvik_gencfg_stats_set(c, &r, nullptr, TLK_OP_ADD, 9, "xyz", 3), 0);
  const Bytes b = last_sent(kernel);
  ASSERT_EQ(b.size(), 68u + 40 + 8 + 4);
  EXPECT_EQ(Bytes(b.begin() + 4, b.begin() + 8), (Bytes{'i', 'V', TLK_OP_ADD, 0}));
  EXPECT_EQ(get_u32(b.data(), 8), b.size());
  EXPECT_EQ(get_u16(b.data(), 20), 68);
  EXPECT_EQ(get_u16(b.data(), 24), 15);
  EXPECT_EQ(get_u16(b.data(), 26), 3);
  EXPECT_EQ(get_u16(b.data(), 28), 5);
  EXPECT_EQ(get_u16(b.data(), 30), 108);
  EXPECT_EQ(get_u16(b.data(), 32), 0x77);
  EXPECT_EQ(b[34], 9);
  EXPECT_EQ(get_u16(b.data(), 42), 3);
  EXPECT_EQ(get_u16(b.data(), 44), 116);
  EXPECT_EQ(get_u32(b.data(), 48), r.flags);
  EXPECT_EQ(get_u32(b.data(), 52), 0xAABBCCDDu);
  EXPECT_EQ(b[56], 1);
  EXPECT_EQ(get_u16(b.data(), 58), 68);
  EXPECT_EQ(b[64], 255) << "no peer byte";
  EXPECT_EQ(memcmp(&b[68], storage_, 40), 0);
  EXPECT_EQ(Bytes(b.begin() + 108, b.end()),
            (Bytes{'a', 'b', 'c', 'd', 'e', 0, 0, 0, 'x', 'y', 'z', 0}));

  const uint16_t id = 0x1234;
  const uint8_t peer_byte = 6;
  void *reply = nullptr;
  ASSERT_EQ(tarvik_gencfg_stats_get(c, &r, nullptr, TLK_OP_GET, 9, &reply, &id, &peer_byte), 0);
  tarvik_msg_free(c, reply);
  const Bytes g = last_sent(kernel);
  EXPECT_EQ(g[7], 16);
  EXPECT_EQ(get_u16(g.data(), 32), 0x1234);
  EXPECT_EQ(g[64], 6);
  EXPECT_EQ(g.size(), 68u + 40 + 8);
}

// The value a get reads back, or nothing when the kernel's refusal ("tlk-err", ENOENT) is the
// reply: the library hands the raw reply on as it came.
std::optional<Bytes> stat_value(tarvik_cookie *c, const gencfg_t &r, uint8_t kind) {
  void *reply = nullptr;
  EXPECT_EQ(tarvik_gencfg_stats_get(c, &r, nullptr, TLK_OP_GET, kind, &reply, nullptr, nullptr), 0);
  if (reply == nullptr) return Bytes{'?'};
  const auto *m = static_cast<const uint8_t *>(reply);
  std::optional<Bytes> v;
  if (m[5] == TLK_MSG_TLK_ERR) {
    EXPECT_EQ(get_u32(m, 24 + offsetof(tarsim::TlkErr, final_err)), uint32_t{ENOENT});
  } else {
    v = Bytes(m + get_u16(m, 44), m + get_u16(m, 44) + get_u16(m, 42));
  }
  tarvik_msg_free(c, reply);
  return v;
}

TEST_F(GencfgPeersTest, StatisticsSetGetClearDeleteThroughTheKernel) {
  gencfg_t r = keyed(40, 1, "blob");
  const uint8_t packets[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_EQ(tarvik_gencfg_stats_set(c, &r, nullptr, TLK_OP_ADD, 1, packets, 8), 0);
  ASSERT_EQ(tarvik_gencfg_stats_set(c, &r, nullptr, TLK_OP_ADD, 2, "ab", 2), 0);
  EXPECT_EQ(kernel.gencfg_stats().size(), 2u);
  EXPECT_EQ(stat_value(c, r, 1), Bytes(packets, packets + 8));
  EXPECT_EQ(stat_value(c, r, 3), std::nullopt) << "an unknown kind";
  ASSERT_EQ(tarvik_gencfg_stats_clear(c, &r, nullptr, 1), 0);
  EXPECT_EQ(stat_value(c, r, 1), Bytes(8, 0));
  ASSERT_EQ(tarvik_gencfg_stats_delete(c, &r, nullptr, 1), 0);
  EXPECT_EQ(stat_value(c, r, 1), std::nullopt);
  EXPECT_EQ(stat_value(c, r, 2), (Bytes{'a', 'b'}));
  EXPECT_EQ(stat_value(c, keyed(40, 1, "blob2"), 2), std::nullopt) << "another key";
  // Clearing or deleting what isn't there changes nothing and leaves nothing to read.
  EXPECT_EQ(tarvik_gencfg_stats_delete(c, &r, nullptr, 7), 0);
  EXPECT_EQ(tarvik_gencfg_stats_clear(c, &r, nullptr, 7), 0);
  EXPECT_EQ(kernel.gencfg_stats().size(), 1u);
  EXPECT_EQ(stat_value(c, r, 2), (Bytes{'a', 'b'}));
}

}  // namespace
}  // namespace tlktest
