// The name and index helpers and the device info cache: the edge cases of each, as table rows
// where cases differ only in data.  The standard names and the kept session of the cached look-up
// live for the whole process, so their cases each run in a process of their own.
#include <errno.h>

#include <functional>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

class IflHelpers : public SimTest {};

struct IndexRow {
  const char *tail;  // the name, behind `pad` x's
  size_t pad;
  int want;
  int err;  // errno on failure
};

TEST_F(IflHelpers, IndexByNameSplitsAtTheLastPointAndLimitsTheLength) {
  const IndexRow rows[] = {
      {"ge0.100", 0, 71, 0},
      {"ge0", 0, 70, 0},                          // no point: unit 0
      {"ge0.99999999999999999999999", 0, 70, 0},  // a saturated unit counts as 0
      {"", 0, -1, EINVAL},
      {".1", 58, -1, EOPNOTSUPP},  // 60 characters are sent
      {".1", 59, -1, EINVAL},      // 61 are not
      {"nosuch.0", 0, -1, EOPNOTSUPP},
  };
  for (const IndexRow &r : rows) {
    const std::string name = std::string(r.pad, 'x') + r.tail;
    SCOPED_TRACE(name);
    errno = 0;
    EXPECT_EQ(ifl_getindexbyifname(name.c_str()), r.want);
    if (r.want == -1) {
      EXPECT_EQ(errno, r.err);
    }
  }
  errno = 0;
  EXPECT_EQ(ifl_getindexbyifname(nullptr), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_TRUE(kernel.sessions().empty()) << "every private session is closed";
}

TEST_F(IflHelpers, ReadersGiveTheFieldOrMinusOne) {
  const struct {
    const char *what;
    std::function<int()> call;
    int want;
  } rows[] = {
      {"tenant", [] { return ifl_gettenantidbyifname("ge0.100"); }, 7},
      {"tenant, no point", [] { return ifl_gettenantidbyifname("xe1.300"); }, 9},
      {"index by snmp", [] { return ifl_getindexbysnmpifindex(571); }, 71},
      {"unknown snmp", [] { return ifl_getindexbysnmpifindex(9); }, -1},
      {"lr by index", [] { return ifl_getlrindexbyifindex(71); }, 0},
      {"lr by unknown index", [] { return ifl_getlrindexbyifindex(999); }, -1},
      {"lr by name", [] { return ifl_getlrindexbyifname("ge1.0"); }, 0},
      {"lr by unknown name", [] { return ifl_getlrindexbyifname("nosuch.1"); }, -1},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    EXPECT_EQ(r.call(), r.want);
  }
}

TEST_F(IflHelpers, NamesComeBackAsDeviceDotUnit) {
  const struct {
    const char *what;
    int (*call)(uint32_t, char *, size_t);
    uint32_t index;
    size_t size;
    int want;
    const char *text;  // the buffer afterwards
  } rows[] = {
      {"by index", ifl_getnamebyifindex, 83, 64, 0, "xe1.300"},
      {"by snmp", ifl_getnamebysnmpifindex, 583, 64, 0, "xe1.300"},
      {"cut", ifl_getnamebyifindex, 71, 4, 0, "ge0"},
      {"unknown", ifl_getnamebyifindex, 999, 64, -1, "="},
      {"unknown snmp", ifl_getnamebysnmpifindex, 9, 64, -1, "="},
      {"underlying of a stacked unit", ifl_get_underlying_device_byifindex, 83, 64, 0, "xe1"},
      {"underlying of a plain unit", ifl_get_underlying_device_byifindex, 70, 64, 0, "ge0"},
      {"underlying of index 0", ifl_get_underlying_device_byifindex, 0, 64, 0, "="},
      {"underlying of an unknown index", ifl_get_underlying_device_byifindex, 999, 64, -1, "="},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    char buf[64] = "=";
    EXPECT_EQ(r.call(r.index, buf, r.size), r.want);
    EXPECT_STREQ(buf, r.text);
  }
  EXPECT_TRUE(kernel.sessions().empty());
}

TEST_F(IflHelpers, DeviceNameIsCutAtTheLastPoint) {
  const struct {
    const char *name;
    size_t size;
    int want;
    const char *device;
    int unit;
  } rows[] = {
      {"ge0.100", 16, 0, "ge0", 100}, {"ge0", 16, 0, "ge0", -1}, {"a.b.7", 16, 0, "a.b", 7},
      {"ge0.100", 7, 0, "ge0", 10},   // as long as the buffer: copied cut to it
      {"ge0.100", 6, -1, "=", 1234},  // longer than the buffer
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.name);
    char buf[16] = "=";
    int unit = 1234;
    EXPECT_EQ(ifl_get_device_name(r.name, buf, r.size, &unit), r.want);
    EXPECT_STREQ(buf, r.device);
    EXPECT_EQ(unit, r.unit);
  }
  char buf[16];
  EXPECT_EQ(ifl_get_device_name("ge0.1", buf, sizeof buf, nullptr), 0) << "the unit is optional";
}

TEST_F(IflHelpers, SubsetBitsAreReadAndWritten) {
  const struct {
    uint32_t index, subset;
    int want, state;
  } reads[] = {
      {71, 0, 0, 1},
      {71, 1, 0, 1},
      {71, 2, 0, 0},
      {83, 3, 0, 1},
      {71, 16, EINVAL, -5},      // refused before a session is opened
      {999, 0, EOPNOTSUPP, -5},  // a failed read leaves the state alone
  };
  kernel.record(true);
  for (const auto &r : reads) {
    SCOPED_TRACE(testing::Message() << r.index << "/" << r.subset);
    int state = -5;
    EXPECT_EQ(ifl_get_subset_iif(r.index, r.subset, &state), r.want);
    EXPECT_EQ(state, r.state);
  }
  kernel.clear_recorded();
  EXPECT_EQ(ifl_set_subset_iif(71, 16, 1), EINVAL);
  EXPECT_TRUE(kernel.recorded().empty()) << "no session for a subset above 15";
  EXPECT_EQ(ifl_set_subset_iif(72, 4, 1), 0);
  const tarsim::Ifl *ifl = kernel.ifls().find(72);
  ASSERT_NE(ifl, nullptr);
  EXPECT_EQ(ifl->attachments, std::vector<uint32_t>{225})
      << "one subset attachment, a point change";
  EXPECT_TRUE(kernel.sessions().empty());
}

// The socket calls of the send-interface helpers, answered by the test.
struct FakeSocket {
  static inline int family = 2;
  static inline int name_result = 0;
  static inline socklen_t name_len = 16;
  static inline std::vector<std::vector<int>> options;  // level, name, value
  static int getsockname(int, void *addr, socklen_t *len) {
    if (name_result != 0) {
      errno = EBADF;
      return -1;
    }
    auto *a = static_cast<uint8_t *>(addr);
    a[0] = 16;
    a[1] = static_cast<uint8_t>(family);
    *len = name_len;
    return 0;
  }
  static int setsockopt_ip(int, int level, int name, const void *value, socklen_t len) {
    uint32_t v = 0;
    if (len == 4) memcpy(&v, value, 4);
    options.push_back({level, name, static_cast<int>(v)});
    return 0;
  }
};

TEST_F(IflHelpers, SendInterfaceGoesByTheSocketsFamily) {
  tlk_platform patched = *tlk_platform_get();
  const tlk_platform saved = patched;
  patched.getsockname = FakeSocket::getsockname;
  patched.setsockopt_ip = FakeSocket::setsockopt_ip;
  tlk_platform_set(&patched);
  const auto by_index = [] { return ifl_setsendifbyifindex(5, 71); };
  const auto by_name = [] { return ifl_setsendifbyifname(5, "xe0.200"); };
  const auto by_unknown_name = [] { return ifl_setsendifbyifname(5, "nosuch.0"); };
  const auto by_snmp = [] { return ifl_setsendifbysnmpifindex(5, 572); };
  const struct {
    const char *what;
    int family, name_result;
    socklen_t len;
    std::function<int()> call;
    int want, err;
    std::vector<std::vector<int>> options;
  } rows[] = {
      {"inet", 2, 0, 16, by_index, 0, 0, {{0, 107, 71}}},
      {"inet6", 28, 0, 16, by_index, 0, 0, {{41, 64, 71}}},
      {"other family", 1, 0, 16, by_index, -1, EPROTONOSUPPORT, {}},
      {"no address", 2, 0, 0, by_index, -1, EPROTONOSUPPORT, {}},
      {"getsockname fails", 2, -1, 16, by_index, -1, EPROTONOSUPPORT, {}},
      {"by name", 2, 0, 16, by_name, 0, 0, {{0, 107, 81}}},
      {"by unknown name", 2, 0, 16, by_unknown_name, -1, EOPNOTSUPP, {}},
      {"by snmp", 28, 0, 16, by_snmp, 0, 0, {{41, 64, 72}}},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    FakeSocket::family = r.family;
    FakeSocket::name_result = r.name_result;
    FakeSocket::name_len = r.len;
    FakeSocket::options.clear();
    errno = 0;
    EXPECT_EQ(r.call(), r.want);
    if (r.want == -1) {
      EXPECT_EQ(errno, r.err);
    }
    EXPECT_EQ(FakeSocket::options, r.options);
  }
  tlk_platform_set(&saved);
}

// ---- The kept sessions (a process each) ----

TEST_F(IflHelpers, StandardNamesShareOneSessionThatStaysOpen) {
  const auto before = kernel.sessions().size();
  EXPECT_EQ(if_nametoindex("ge0"), 70u);
  errno = 0;
  EXPECT_EQ(if_nametoindex("ge0.100"), 0u) << "the whole string is the device name";
  EXPECT_EQ(errno, ENXIO);
  errno = 0;
  EXPECT_EQ(if_nametoindex(nullptr), 0u);
  EXPECT_EQ(errno, ENXIO);
  char buf[IF_NAMESIZE + 60];
  EXPECT_STREQ(if_indextoname(81, buf), "xe0.200");
  errno = 0;
  EXPECT_EQ(if_indextoname(999, buf), nullptr);
  EXPECT_EQ(errno, ENXIO);
  struct if_nameindex *all = if_nameindex();
  ASSERT_NE(all, nullptr);
  std::vector<std::pair<unsigned, std::string>> got, want;
  for (const struct if_nameindex *p = all; p->if_index != 0 || p->if_name != nullptr; ++p)
    got.emplace_back(p->if_index, p->if_name);
  for (const tarsim::Ifl &i : kernel.ifls().list()) want.emplace_back(i.index, i.device);
  EXPECT_EQ(got, want);
  EXPECT_EQ(kernel.sessions().size(), before + 1) << "one session for all, left open";
  tarvik_free(MEMID_TARVIK_NAMEINDEX, all);
  // Left behind by contract: the session (its record, read buffer and read buffer) and, in
  // message blocks, the two replies and the list that the names point into.
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
  expect_abandoned(MEMID_TARVIK_COOKIE, 1);
  expect_abandoned(MEMID_TARVIK_MSG, 16);
}

TEST_F(IflHelpers, CachedLookupKeepsItsSessionUntilAReadFails) {
  kernel.record(true);
  EXPECT_EQ(ifl_getindexbyifname_cachesocket("ge0.100"), 71);
  const std::vector<int> first = kernel.sessions();
  ASSERT_EQ(first.size(), 1u);
  EXPECT_EQ(ifl_getindexbyifname_cachesocket("ge1"), 72);
  EXPECT_EQ(kernel.sessions(), first) << "the same session";
  errno = 0;
  kernel.clear_recorded();
  EXPECT_EQ(ifl_getindexbyifname_cachesocket(""), -1) << "an empty name is sent";
  EXPECT_FALSE(kernel.recorded().empty());
  EXPECT_EQ(errno, EOPNOTSUPP);
  EXPECT_TRUE(kernel.sessions().empty()) << "a failed read closes it";
  EXPECT_EQ(ifl_getindexbyifname_cachesocket("xe1.300"), 83);
  EXPECT_EQ(kernel.sessions().size(), 1u) << "the next call opens a new one";
  errno = 0;
  EXPECT_EQ(ifl_getindexbyifname_cachesocket(std::string(61, 'x').c_str()), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(kernel.sessions().size(), 1u) << "a refused name isn't read: the session stays";
  EXPECT_EQ(ifl_getindexbyifname_cachesocket("nosuch.0"), -1);
  EXPECT_TRUE(kernel.sessions().empty()) << "closed by the failed read, nothing left behind";
}

// ---- Device info cache ----

class IfdInfo : public SimTest {
 protected:
  // An "ifdev" message with a media record whose location tags are `loc`.
  struct Msg {
    ifdev_msg m{};
    ifmedia media{};
    std::string name;
    Msg(const char *n, uint32_t gen, uint8_t a, uint8_t b, uint16_t c, bool with_media = true)
        : name(n) {
      m.ifdm_name = reinterpret_cast<uint8_t *>(name.data());
      m.ifdm_name_len = static_cast<uint32_t>(name.size() + 1);
      m.ifdm_generation = gen;
      media.ifm_f13 = a;
      media.ifm_f15 = b;
      media.ifm_f16 = c;
      if (with_media) {
        m.ifdm_media = &media;
        m.ifdm_media_len = 1;
      }
    }
  };
  static std::vector<uint32_t> where(const char *name, int fetch = 0) {
    tarvik_ifd_info_t info;
    if (tarvik_ifd_info_get(name, &info, fetch) != 0) return {};
    return {info.location[0], info.location[1], info.location[2]};
  }
  void SetUp() override {
    SimTest::SetUp();
    const int err = tarvik_ifd_info_init();
    ASSERT_TRUE(err == 0 || err == EEXIST);
  }
};

TEST_F(IfdInfo, AddUpdateAndDeleteFollowTheGeneration) {
  const struct {
    const char *what;
    Msg msg;
    uint32_t op;
    int want;
    std::vector<uint32_t> after;  // what a get without fetch answers then
  } rows[] = {
      {"parsed before any add", Msg("ge-1/2/3", 1, 0, 0, 0), 0, 0, {1, 2, 3}},
      {"add takes the media", Msg("ge-1/2/3", 1, 7, 8, 9), TLK_OP_ADD, 0, {7, 8, 9}},
      {"change of the same generation", Msg("ge-1/2/3", 1, 4, 5, 6), TLK_OP_CHANGE, 0, {4, 5, 6}},
      {"a new generation is refused", Msg("ge-1/2/3", 2, 1, 1, 1), TLK_OP_ADD, EINVAL, {4, 5, 6}},
      {"delete, another generation", Msg("ge-1/2/3", 2, 0, 0, 0), TLK_OP_DELETE, EINVAL, {4, 5, 6}},
      {"delete of the same", Msg("ge-1/2/3", 1, 0, 0, 0), TLK_OP_DELETE, 0, {1, 2, 3}},
      {"then the new generation", Msg("ge-1/2/3", 2, 3, 3, 3), TLK_OP_ADD, 0, {3, 3, 3}},
      {"delete of an unknown name", Msg("ge-9/9/9", 1, 0, 0, 0), TLK_OP_DELETE, 0, {9, 9, 9}},
      {"no media: kept, parsed", Msg("xe-4/0/1", 1, 0, 0, 0, false), TLK_OP_ADD, EINVAL, {4, 0, 1}},
      {"a kind outside the filter", Msg("lo-5/5/5", 1, 1, 1, 1), TLK_OP_ADD, 0, {5, 5, 5}},
      {"a name the parser refuses", Msg("ge-0/0/x", 1, 1, 1, 1), TLK_OP_ADD, EINVAL, {}},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.what);
    if (r.op != 0) {
      EXPECT_EQ(tarvik_ifd_info_update(&r.msg.m, r.op), r.want);
    }
    EXPECT_EQ(where(r.msg.name.c_str()), r.after);
  }
  // Nodes made: ge-1/2/3 twice and xe-4/0/1; the deleted one isn't given back, by contract.
  expect_abandoned(MEMID_TARVIK_IFD_INFO, 3);
}

TEST_F(IfdInfo, AnEmptyMaskLetsEveryKindPass) {
  const uint64_t none[3] = {0, 0, 0};
  ASSERT_EQ(tarvik_ifd_info_set_mask(none), 0);
  Msg lo("lo-6/6/6", 1, 2, 2, 2);
  EXPECT_EQ(tarvik_ifd_info_update(&lo.m, TLK_OP_ADD), 0);
  EXPECT_EQ(where("lo-6/6/6"), (std::vector<uint32_t>{2, 2, 2}));
  const uint64_t *row67 = tlk_platform_get()->interface_mask_table[67];
  ASSERT_EQ(tarvik_ifd_info_set_mask(row67), 0);
  EXPECT_EQ(tarvik_ifd_info_init(), EEXIST) << "a second init changes nothing";
  expect_abandoned(MEMID_TARVIK_IFD_INFO, 1);
}

TEST_F(IfdInfo, AFetchingMissOrAReadFromAMessageKeepsNothing) {
  kernel.record(true);
  EXPECT_EQ(where("ge1", 0), (std::vector<uint32_t>{1, 0, 0}));
  EXPECT_TRUE(kernel.recorded().empty()) << "no fetch, no read";
  EXPECT_EQ(where("ge1", 1), (std::vector<uint32_t>{0, 0, 0})) << "the kernel's media record";
  EXPECT_FALSE(kernel.recorded().empty());
  EXPECT_TRUE(kernel.sessions().empty());
  kernel.clear_recorded();
  EXPECT_EQ(where("lo0", 1), (std::vector<uint32_t>{0, 0, 0}));
  EXPECT_TRUE(kernel.recorded().empty()) << "a kind outside the filter isn't fetched";
  tarvik_ifd_info_t info;
  EXPECT_EQ(tarvik_ifd_info_get("bogus", &info, 1), EINVAL);
  // A read from a message leaves the cache alone.
  Msg m("et-2/1/0", 1, 5, 6, 7);
  ASSERT_EQ(tarvik_ifd_info_get_from_ifd_msg("et-2/1/0", &info, &m.m), 0);
  EXPECT_STREQ(info.name, "et-2/1/0");
  EXPECT_EQ(std::vector<uint32_t>(info.location, info.location + 3),
            (std::vector<uint32_t>{5, 6, 7}));
  EXPECT_EQ(where("et-2/1/0"), (std::vector<uint32_t>{2, 1, 0}));
  EXPECT_EQ(tarvik_ifd_info_get_from_ifd_msg("??", &info, &m.m), EINVAL);
}

TEST(IfdInfoAlone, BeforeInitUpdatesAreRefusedAndGetsParse) {
  ifdev_msg m{};
  EXPECT_EQ(tarvik_ifd_info_update(&m, TLK_OP_ADD), EINVAL);
  const uint64_t mask[3] = {};
  EXPECT_EQ(tarvik_ifd_info_set_mask(mask), EINVAL);
  tarvik_ifd_info_t info;
  EXPECT_EQ(tarvik_ifd_info_get("xe-3/2/1", &info, 0), 0);
  EXPECT_EQ(info.location[0] * 100 + info.location[1] * 10 + info.location[2], 321u);
  EXPECT_EQ(tarvik_ifd_info_init(), 0);
}

TEST(IfdInfoDeath, AnOverlongNameStopsTheProcess) {
  ASSERT_TRUE(tarvik_ifd_info_init() == 0 || tarvik_ifd_info_init() == EEXIST);
  std::string name(60, 'g');
  ifdev_msg m{};
  m.ifdm_name = reinterpret_cast<uint8_t *>(name.data());
  m.ifdm_name_len = 61;
  EXPECT_DEATH(tarvik_ifd_info_update(&m, TLK_OP_ADD), "name_len <= IFNAMELEN");
}

}  // namespace
}  // namespace tlktest
