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

// The reference: slot s at word s / 6, bit 5s mod 30; sub-unit i (unit i mod 8 of slot i / 8) at
// word i / 48, bit 1 + (i mod 8) + (5 (i / 8) mod 30).  A u32 word has no bit past 31.
bool ref_bit(Mask &m, bool slot, uint32_t i, bool set = false) {
  const uint32_t word = slot ? i / 6 : i / 48, bit = slot ? i * 5 % 30 : 1 + i % 8 + i / 8 * 5 % 30;
  if (bit > 31) return false;
  if (set) m[word] |= 1u << bit;
  return (m[word] >> bit & 1u) != 0;
}
Mask words(const gencfg_peerinfo_t &p) {
  Mask m;
  memcpy(m.data(), p.index.idx.gencfg_type_peer_mask.peer_mask, sizeof m);
  return m;
}
const uint8_t *bytes(const char *s) {
  return reinterpret_cast<const uint8_t *>(s);
}

class GencfgPeersTest : public GencfgTest {
 protected:
  // A record of `major` with room for `n` peers in the fixture's storage, emptied.
  gencfg_t with_room(uint16_t major, uint32_t n) {
    memset(peers_, 0, sizeof peers_);
    gencfg_t r{};
    r.major = major;
    EXPECT_EQ(tarvik_gencfg_add_peerinfo_storage(&r, n, peers_, sizeof peers_), 0);
    return r;
  }
  int add(gencfg_t &r, uint8_t type, uint16_t index, uint32_t object = 0) {
    const gencfg_peer_t p = {type, object, index};
    return tarvik_gencfg_add_peerinfo(&r, &p);
  }
  std::string last_line() const { return os.syslog.empty() ? "" : os.syslog.back().text; }
  gencfg_peerinfo_t peers_[TLK_GENCFG_PEERS_MAX] = {};
};

TEST_F(GencfgPeersTest, EverySlotAndSubUnitSetsAndFindsTheBitsOfTheRule) {
  for (const uint8_t type : {uint8_t{16}, uint8_t{1}, uint8_t{17}}) {
    const bool slot = type == 16;
    for (uint32_t i = 0; i < (slot ? 48u : 384u); ++i) {
      SCOPED_TRACE(testing::Message() << "type " << int{type} << " index " << i);
      gencfg_t r = with_room(15, 1);
      ASSERT_EQ(add(r, type, static_cast<uint16_t>(i)), 0);
      Mask want{};
      if (type == 17) ref_bit(want, true, i / 8, true);
      const bool present = ref_bit(want, slot, i, true);
      ASSERT_EQ(words(peers_[0]), want);
      EXPECT_EQ(r.peer_count, 1);
      const uint8_t probe = slot ? 16 : 1;
      EXPECT_EQ(tarvik_gencfg_is_peer_present_in_peerinfo(&r, probe, i), present ? 1 : 0);
      const uint8_t *mask = peers_[0].index.idx.gencfg_type_peer_mask.peer_mask;
      EXPECT_EQ(tarvik_gencfg_get_peer_index_from_peer_mask(mask, probe, slot ? i : i / 8, i % 8),
                present ? static_cast<int>(i) : -1);
      // The walk gives the first slot, or sub-unit in slot-then-unit order, whose bit is set:
      // with the fields overlapping, not always the one added.
      int lowest = -1;
      for (uint32_t j = 0; j < (slot ? 48u : 384u) && lowest < 0; ++j) {
        if (ref_bit(want, slot, j)) lowest = static_cast<int>(j);
      }
      gencfg_msg m{};
      m.peers = peers_;
      m.peer_count = 1;
      EXPECT_EQ(tarvik_gencfg_get_peer_index(&m, 0), lowest);
      EXPECT_EQ(tarvik_gencfg_get_peer_info(&m), mask);
    }
  }
}

// One peer added to an empty record: the answer, the entries, the form stored, the diagnostic.
struct AddRow {
  const char *what;
  uint16_t major;
  uint32_t room;
  gencfg_peer_t peer;
  int want;
  uint8_t count;
  uint32_t index_type;
  const char *line = "";
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

TEST_F(GencfgPeersTest, OnePeerAddedToAnEmptyRecord) {
  for (const AddRow &row : kAdds) {
    SCOPED_TRACE(row.what);
    os.syslog.clear();
    gencfg_t r = with_room(row.major, row.room);
    EXPECT_EQ(tarvik_gencfg_add_peerinfo(&r, &row.peer), row.want);
    EXPECT_EQ(r.peer_count, row.count);
    if (row.count != 0) {
      EXPECT_EQ(peers_[0].index.index_type, row.index_type);
    }
    if (row.peer.index >= TLK_GENCFG_PEER_INDEX_NONE) {
      EXPECT_EQ(words(peers_[0]), Mask{});
    }
    EXPECT_EQ(last_line(), row.want == 0 ? "" : std::string("tarvik: ERROR ") + row.line);
  }
}

TEST_F(GencfgPeersTest, OneMaskEntryTakesManyPeersAndARecordNeverMixesForms) {
  gencfg_t r = with_room(15, 2);
  for (uint16_t i : {uint16_t{3}, uint16_t{200}, uint16_t{376}}) ASSERT_EQ(add(r, 1, i), 0);
  EXPECT_EQ(r.peer_count, 1);
  for (uint32_t i : {3u, 200u, 376u})
    EXPECT_EQ(tarvik_gencfg_is_peer_present_in_peerinfo(&r, 1, i), 1);
  EXPECT_EQ(add(r, 16, 99), -1);
  EXPECT_EQ(peers_[0].peer_type, 16) << "written before the range test, and kept";
  EXPECT_EQ(add(r, 1, 5, TLK_GENCFG_OBJECT_IFD), -1);
  EXPECT_EQ(last_line(),
            "tarvik: ERROR tarvik_gencfg_add_peerinfo: Peer Index choice mismatch, "
            "Existing: 2 New: 1\n");
  // A full record refuses even a peer that its mask entry would take.
  r.peer_max = 1;
  EXPECT_EQ(add(r, 1, 4), -1);
}

// Major 4 takes the mask only where the system control reads one u32 of value 1.
TEST_F(GencfgPeersTest, MajorFourFollowsThePeerMaskControl) {
  gencfg_t r = with_room(4, 1);
  ASSERT_EQ(add(r, 16, 3), 0);
  EXPECT_EQ(peers_[0].index.index_type, TLK_GENCFG_INDEX_DEFAULT) << "the kernel's default";
  const std::pair<Bytes, uint32_t> values[] = {
      {{2, 0, 0, 0}, 0}, {{1}, 0}, {{1, 0, 0, 0}, 2}, {{1, 0, 0, 0, 0}, 0}};
  for (const auto &[value, index_type] : values) {
    kernel.set_sysctl(TLK_GENCFG_PEERMASK_SYSCTL, value);
    r = with_room(4, 1);
    ASSERT_EQ(add(r, 16, 3), 0);
    EXPECT_EQ(peers_[0].index.index_type, index_type) << value.size() << " bytes";
  }
}

// Without a simulated kernel the host's table answers, and Linux has no such control.
TEST(GencfgPeersHost, MajorFourOnASystemWithoutTheControlStoresSingleIndexes) {
  gencfg_peerinfo_t peers[2] = {};
  gencfg_t r{};
  r.major = 4;
  ASSERT_EQ(tarvik_gencfg_add_peerinfo_storage(&r, 2, peers, sizeof peers), 0);
  const gencfg_peer_t a = {16, 0, 7}, b = {16, 0, 9};
  ASSERT_EQ(tarvik_gencfg_add_peerinfo(&r, &a), 0);
  ASSERT_EQ(tarvik_gencfg_add_peerinfo(&r, &b), 0);
  EXPECT_EQ(r.peer_count, 2);
  EXPECT_EQ(peers[1].index.idx.gencfg_type_default.peer_index, 9);
}

TEST_F(GencfgPeersTest, PeerStorageLimitsAndComparison) {
  gencfg_t r{};
  EXPECT_EQ(tarvik_gencfg_add_peerinfo_storage(&r, 65, peers_, sizeof peers_), -1);
  EXPECT_EQ(last_line(), "tarvik: ERROR Number of peers exceeds 64\n");
  EXPECT_EQ(tarvik_gencfg_add_peerinfo_storage(&r, 3, peers_, 119), -1);
  EXPECT_EQ(last_line(), "tarvik: ERROR buffer space too small for number of peers 3\n");
  EXPECT_EQ(tarvik_gencfg_create_peerinfo(&r, 65), -1);
  ASSERT_EQ(tarvik_gencfg_create_peerinfo(&r, 64), 0);
  tarvik_gencfg_delete_peerinfo(&r);
  EXPECT_EQ(r.peers, nullptr);
  EXPECT_EQ(r.peer_max, 64) << "kept";

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
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 55, 1, 1, 1, bytes("k"), 0), -1);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 54, 1, 1, 0, bytes("k"), 0), -1);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 54, 1, 1, 1, nullptr, 0), -1);
  // Three bytes take four of the data area.
  ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 54, 7, 8, 3, bytes("abc"), 9), 0);
  ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 1, 7, 8, 1, bytes("d"), 0), 0);
  EXPECT_EQ(r.deps[1].dep_key, r.deps[0].dep_key + 4);
  for (int i = 2; i < TLK_GENCFG_DEPS_MAX; ++i) {
    ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 2, 1, 1, 8, bytes("12345678"), 0), 0);
  }
  const gencfg_depinfo_t first = r.deps[0];
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 2, 1, 1, 1, bytes("x"), 0), -1) << "the 73rd";
  EXPECT_EQ(r.dep_count, TLK_GENCFG_DEPS_MAX);
  EXPECT_EQ(memcmp(&first, &r.deps[0], sizeof first), 0);
  EXPECT_EQ(bytes_of(r.deps[0].dep_key, r.deps[0].dep_key_len), (Bytes{'a', 'b', 'c'}));

  // The key area: 6462 bytes where an entry is 24 bytes.  With six bytes left, five don't fit,
  // four do, and then not even one.
  const size_t room = sizeof block - TLK_GENCFG_DEPS_MAX * sizeof(gencfg_depinfo_t) - 2;
  EXPECT_TRUE(sizeof(void *) != 4 || room == 6462) << room;
  static const uint8_t big[8192] = {};
  ASSERT_EQ(tarvik_gencfg_add_depend_storage(&r, block, sizeof block), 0);
  ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 0, 1, 1, static_cast<uint32_t>(room - 6), big, 0), 0);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 0, 1, 1, 5, big, 0), -1);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 0, 1, 1, 4, big, 0), 0);
  EXPECT_EQ(tarvik_gencfg_add_depinfo(&r, 0, 1, 1, 1, big, 0), -1);
}

// Peers and dependencies made by the helpers reach the kernel and come back in a get; a record
// whose dependency block was deleted is refused until its flag is cleared.
TEST_F(GencfgPeersTest, PeersAndDependenciesRoundTripThroughTheKernel) {
  gencfg_t r = with_room(15, 2);
  r.flags = TLK_GENCFG_KEY;
  r.key = const_cast<uint8_t *>(bytes("blob-1"));
  r.key_len = 6;
  ASSERT_EQ(add(r, 1, 3), 0);
  ASSERT_EQ(add(r, 1, 300), 0);
  ASSERT_EQ(tarvik_gencfg_create_depend(&r), 0);
  ASSERT_EQ(tarvik_gencfg_add_depinfo(&r, 3, 40, 2, 5, bytes("vpn-a"), 1), 0);
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  EXPECT_EQ(tarvik_gencfg_delete_depend(&r), 0);
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EINVAL) << "the flag stays after the block went";

  gencfg_t q = keyed(15, 0, "blob-1");
  void *reply = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &reply, nullptr), 0);
  const auto *m = static_cast<const gencfg_msg *>(reply);
  const uint8_t *mask = tarvik_gencfg_get_peer_info(m);
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(memcmp(mask, peers_[0].index.idx.gencfg_type_peer_mask.peer_mask, 32), 0);
  EXPECT_EQ(tarvik_gencfg_get_peer_index(m, 0), 3);
  EXPECT_EQ(tarvik_gencfg_get_peer_index_from_peer_mask(mask, 1, 37, 4), 300);
  ASSERT_EQ(q.dep_count, 1);
  EXPECT_EQ(bytes_of(q.deps[0].dep_key, q.deps[0].dep_key_len), (Bytes{'v', 'p', 'n', '-', 'a'}));
  tarvik_msg_free(c, reply);
}

// ---- Statistics ----

TEST_F(GencfgPeersTest, StatisticsRequestLayout) {
  gencfg_t r = with_room(15, 1);
  ASSERT_EQ(add(r, 16, 2), 0);
  r.minor = 3, r.sub_id = 0x77, r.kid = 0xAABBCCDD, r.flags = TLK_GENCFG_KEY | TLK_GENCFG_KID;
  r.key = const_cast<uint8_t *>(bytes("abcde"));
  r.key_len = 5;
  ASSERT_EQ(tarvik_gencfg_stats_set(c, &r, nullptr, TLK_OP_ADD, 9, "xyz", 3), 0);
  Bytes b = last_sent(kernel);
  ASSERT_EQ(b.size(), 68u + 40 + 8 + 4);
  EXPECT_EQ(Bytes(b.begin() + 4, b.begin() + 8), (Bytes{'i', 'V', TLK_OP_ADD, 0}));
  // Offset, width and value of each header field: length, fixed part, major, minor, key length,
  // key offset, sub-identifier, kind, value length, value offset, flags, numeric key, peer
  // count, peer offset, peer byte.
  const struct {
    size_t at;
    int width;
    uint32_t want;
  } layout[] = {{8, 4, 120},      {20, 2, 68},         {24, 2, 15}, {26, 2, 3},  {28, 2, 5},
                {30, 2, 108},     {32, 2, 0x77},       {34, 1, 9},  {42, 2, 3},  {44, 2, 116},
                {48, 4, r.flags}, {52, 4, 0xAABBCCDD}, {56, 1, 1},  {58, 2, 68}, {64, 1, 255}};
  for (const auto &f : layout) {
    const uint32_t got = f.width == 4   ? get_u32(b.data(), f.at)
                         : f.width == 2 ? get_u16(b.data(), f.at)
                                        : b[f.at];
    EXPECT_EQ(got, f.want) << "offset " << f.at;
  }
  EXPECT_EQ(memcmp(&b[68], peers_, 40), 0);
  EXPECT_EQ(Bytes(b.begin() + 108, b.end()),
            (Bytes{'a', 'b', 'c', 'd', 'e', 0, 0, 0, 'x', 'y', 'z', 0}));

  const uint16_t id = 0x1234;
  const uint8_t peer_byte = 6;
  void *reply = nullptr;
  ASSERT_EQ(tarvik_gencfg_stats_get(c, &r, nullptr, TLK_OP_GET, 9, &reply, &id, &peer_byte), 0);
  tarvik_msg_free(c, reply);
  b = last_sent(kernel);
  EXPECT_EQ((std::vector<uint32_t>{b[7], get_u16(b.data(), 32), b[64], get_u32(b.data(), 8)}),
            (std::vector<uint32_t>{16, 0x1234, 6, 116}));
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

TEST_F(GencfgPeersTest, StatisticsRefusalsThenSetGetClearDeleteThroughTheKernel) {
  gencfg_t r = keyed(40, 1, "blob");
  void *out = &r;
  for (uint32_t op : {TLK_OP_CHANGE, TLK_OP_GETNEXT, TLK_OP_NOP, TLK_OP_DELETEALL}) {
    EXPECT_EQ(tarvik_gencfg_stats_get(c, &r, nullptr, op, 1, &out, nullptr, nullptr), EINVAL);
    EXPECT_EQ(out, nullptr) << op;
  }
  EXPECT_EQ(tarvik_gencfg_stats_get(c, &r, nullptr, TLK_OP_GET, 1, nullptr, nullptr, nullptr),
            EINVAL);
  EXPECT_EQ(tarvik_gencfg_stats_set(c, &r, nullptr, TLK_OP_GET, 1, "v", 1), EINVAL);
  gencfg_t no_key = r;
  no_key.key_len = 0;
  EXPECT_EQ(tarvik_gencfg_stats_delete(c, &no_key, nullptr, 1), EINVAL);
  EXPECT_EQ(requests_seen(), 0u);
  ASSERT_EQ(tarvik_gencfg_stats_set(c, &r, nullptr, TLK_OP_ADD, 1, "12345678", 8), 0);
  ASSERT_EQ(tarvik_gencfg_stats_set(c, &r, nullptr, TLK_OP_ADD, 2, "ab", 2), 0);
  EXPECT_EQ(kernel.gencfg_stats().size(), 2u);
  EXPECT_EQ(stat_value(c, r, 1), Bytes(bytes("12345678"), bytes("12345678") + 8));
  EXPECT_EQ(stat_value(c, r, 3), std::nullopt) << "an unknown kind";
  ASSERT_EQ(tarvik_gencfg_stats_clear(c, &r, nullptr, 1), 0);
  EXPECT_EQ(stat_value(c, r, 1), Bytes(8, 0));
  ASSERT_EQ(tarvik_gencfg_stats_delete(c, &r, nullptr, 1), 0);
  EXPECT_EQ(stat_value(c, r, 1), std::nullopt);
  EXPECT_EQ(stat_value(c, keyed(40, 1, "blob2"), 2), std::nullopt) << "another key";
  // Clearing or deleting what isn't there changes nothing and leaves nothing to read.
  EXPECT_EQ(
      tarvik_gencfg_stats_delete(c, &r, nullptr, 7) | tarvik_gencfg_stats_clear(c, &r, nullptr, 7),
      0);
  EXPECT_EQ(kernel.gencfg_stats().size(), 1u);
  EXPECT_EQ(stat_value(c, r, 2), (Bytes{'a', 'b'}));
}

}  // namespace
}  // namespace tlktest
