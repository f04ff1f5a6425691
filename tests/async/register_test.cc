// The per-family register table, row by row: the slots each entry point fills, in order, and the
// listen bits it sends.  The expectations are written out here independently of the library's
// own table, so that a wrong constant there shows.
#include <errno.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "async_support.h"

namespace tlktest {
namespace {

using RegisterFn = std::function<int(tarvik_cookie *, void *, tarvik_async_handler_t)>;

struct Row {
  const char *name;
  RegisterFn fn;
  std::vector<uint8_t> types;
  uint32_t low;
  uint32_t high;
};

#define PLAIN(family, low, high, ...)                                    \
  Row {                                                                  \
#family, tarvik_##family##_async_register, {__VA_ARGS__ }, low, high \
  }

// The entries of another shape, with their extra argument fixed.
using FlagsFirst = int (*)(tarvik_cookie *, uint32_t, void *, tarvik_async_handler_t);
template <FlagsFirst Register, uint32_t Flags>
int with(tarvik_cookie *c, void *arg, tarvik_async_handler_t h) {
  return Register(c, Flags, arg, h);
}
template <uint32_t Flags>
int qsr(tarvik_cookie *c, void *arg, tarvik_async_handler_t h) {
  return tarvik_qsr_async_register(c, arg, h, Flags);
}
int async_opaque(tarvik_cookie *c, void *arg, tarvik_async_handler_t h) {
  return tarvik_async_opaque_register(c, arg, h, nullptr);
}

std::vector<Row> rows() {
  return {
      PLAIN(aggr_config, 0, 0x2, 73, 74, 75, 76, 77),
      PLAIN(analyzer, 0, 0x800, 88),
      PLAIN(asp_cfg, 0, 0x4, 53),
      PLAIN(asp_ipsec, 0x2000000, 0, 54),
      PLAIN(bd, 0, 0x1000, 89),
      PLAIN(cos, 0x10000, 0, 31, 32, 34, 38, 39, 35, 36, 37, 55, 71),
      PLAIN(cp_config, 0x20000000, 0, 58, 60, 61, 59),
      PLAIN(cp_pic, 0x10000000, 0, 62, 63, 64, 66, 67, 65),
      PLAIN(ddos, 0, 0x80000, 97),
      PLAIN(dfwm, 0x8000, 0, 14),
      PLAIN(dfwstatsm, 0, 0, 22),
      PLAIN(error, 0, 0x200000, 109),
      PLAIN(fc_fabric, 0, 0x40000, 94),
      PLAIN(gencfg, 0, 0x1, 72),
      PLAIN(ifbd, 0, 0x2000, 90),
      PLAIN(ifdalm, 0x1000, 0, 20),
      PLAIN(ifdest, 0, 0x20000, 18),
      PLAIN(ifdm, 0x1, 0, 5),
      PLAIN(iflm, 0x2, 0, 6),
      PLAIN(ifsm, 0x1000000, 0, 47),
      PLAIN(ifvcm, 0x40000, 0, 27),
      PLAIN(ifvpm, 0x400000, 0, 46),
      PLAIN(ksyncm, 0x80000000, 0, 69),
      PLAIN(l2tp, 0x8000000, 0, 57),
      PLAIN(marker, 0, 0x2000000, 102),
      PLAIN(mesh_group, 0, 0x400, 87),
      PLAIN(mgrm, 0x400, 0, 13),
      PLAIN(monitor, 0x100000, 0, 43),
      PLAIN(monitor_state, 0x800000, 0, 44),
      PLAIN(nh_comp, 0, 0x80, 83),
      PLAIN(notify, 0, 0x400000, 98),
      PLAIN(pfe_dwn_map, 0, 0x20, 81),
      PLAIN(pfeinfo, 0, 0x100000, 24),
      PLAIN(picm, 0x40000000, 0, 68),
      PLAIN(pkcs_reply, 0x20000, 0x40000000, 45),
      PLAIN(pktinject, 0, 0x800000, 96),
      PLAIN(rnhm, 0x40, 0, 10),
      PLAIN(rtbm, 0x2000, 0, 1),
      PLAIN(rtclass, 0x200000, 0, 28),
      PLAIN(rtm, 0x200380, 0, 2),
      PLAIN(sadbm, 0x4000000, 0, 41),
      PLAIN(sample, 0x80000, 0, 40),
      PLAIN(stp, 0, 0x40, 82),
      PLAIN(vlan, 0, 0x100, 84),
      // The rows of another shape, at each value of their extra argument.
      Row{"iffm(1)", with<tarvik_iffm_async_register, 1>, {7}, 0x10, 0},
      Row{"iffm(4)", with<tarvik_iffm_async_register, 4>, {7}, 0x4, 0},
      Row{"iffm(0xfa)", with<tarvik_iffm_async_register, 0xfa>, {7}, 0, 0},
      Row{"ifam(1)", with<tarvik_ifam_async_register, 1>, {8}, 0x20, 0},
      Row{"ifam(5)", with<tarvik_ifam_async_register, 5>, {8}, 0x28, 0},
      Row{"sysstatsm(4)", with<tarvik_sysstatsm_async_register, 4>, {101}, 0, 0x1000000},
      Row{"sysstatsm(3)", with<tarvik_sysstatsm_async_register, 3>, {101}, 0, 0},
      Row{"qsr(0)", qsr<0>, {80}, 0, 0x10},
      Row{"qsr(9)", qsr<9>, {80}, 0, 0x40000010},
      Row{"kuack", with<tarvik_kuack_async_register, 0xffff>, {99}, 0, 0},
      Row{"async_opaque", async_opaque, {79}, 0, 0x8},
  };
}

class RegisterTest : public SimTest, public ::testing::WithParamInterface<size_t> {};

TEST_P(RegisterTest, FillsItsSlotsAndSendsItsBits) {
  const Row row = rows()[GetParam()];
  SCOPED_TRACE(row.name);
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  const int fd = tarvik_getsockfd(c);
  Recorder r;
  // Refused before any record exists.
  EXPECT_EQ(row.fn(c, &r, Recorder::handler), EINVAL);
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  EXPECT_EQ(row.fn(c, &r, nullptr), EINVAL);

  ASSERT_EQ(row.fn(c, &r, Recorder::handler), 0);
  for (unsigned t = 0; t <= 110; ++t) {
    const bool mine = std::find(row.types.begin(), row.types.end(), t) != row.types.end();
    tarvik_async_reg_t *slot = c->async_info->reg[t];
    if (!mine) {
      EXPECT_EQ(slot, nullptr) << "type " << t;
      continue;
    }
    ASSERT_NE(slot, nullptr) << "type " << t;
    EXPECT_EQ(slot->arg, &r);
    EXPECT_EQ(slot->handler, Recorder::handler);
  }
  if (row.low == 0 && row.high == 0) {
    EXPECT_FALSE(kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_LISTEN).has_value());
  } else {
    EXPECT_EQ(sent_listen_mask(kernel, fd), std::make_pair(row.low, row.high));
  }
  // Again: the first type is taken.
  EXPECT_EQ(row.fn(c, &r, Recorder::handler), EINVAL);
  tarvik_close(c);
}

INSTANTIATE_TEST_SUITE_P(EveryRow, RegisterTest, ::testing::Range<size_t>(0, rows().size()));

// The bits under which the kernel sends each type: the union over the type's rows (7 is sent
// under both of its rows' bits), none for a row without one, -1 for a type without a row.
TEST(ListenBits, KernelSideOfTheTable) {
  const struct {
    uint32_t type;
    int result;
    uint32_t low, high;
  } rows[] = {{2, 0, 0x200380, 0}, {45, 0, 0x20000, 0x40000000},
              {7, 0, 0x14, 0},     {79, 0, 0, 0x8},
              {22, 0, 0, 0},       {30, -1, 0, 0}};
  for (const auto &row : rows) {
    uint32_t low = 1, high = 1;
    EXPECT_EQ(tlk_async_listen_bits(row.type, &low, &high), row.result) << row.type;
    EXPECT_EQ(low, row.low) << row.type;
    EXPECT_EQ(high, row.high) << row.type;
  }
  EXPECT_EQ(tlk_async_listen_bits(200, nullptr, nullptr), -1);
}

}  // namespace
}  // namespace tlktest
