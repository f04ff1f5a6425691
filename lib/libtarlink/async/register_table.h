// The per-family register table: which message types a family's registration fills, and under
// which listen bits the kernel sends them.  The bits are wire values shared with the kernel.
#pragma once

#include <stdint.h>

#include <initializer_list>

namespace tlk::async {

struct RegisterRow {
  const char *family;   // tarvik_<family>_async_register
  uint8_t types[10];    // registered in this order, stopping at the first failure
  uint8_t ntypes;
  uint32_t low;         // listen mask, low word (for the rows that take flags: every bit they can ask)
  uint32_t high;        // listen mask, high word
};

constexpr RegisterRow row(const char *family, uint32_t low, uint32_t high,
                          std::initializer_list<uint8_t> types) {
  RegisterRow r{family, {}, 0, low, high};
  for (uint8_t t : types) r.types[r.ntypes++] = t;
  return r;
}

// X(family, low, high, types...) for every row whose entry point is (cookie, arg, handler) and
// whose masks are constants.
#define TLK_ASYNC_PLAIN_ROWS(X)                                   \
  X(aggr_config, 0, 0x2, 73, 74, 75, 76, 77)                      \
  X(analyzer, 0, 0x800, 88)                                       \
  X(asp_cfg, 0, 0x4, 53)                                          \
  X(asp_ipsec, 0x2000000, 0, 54)                                  \
  X(bd, 0, 0x1000, 89)                                            \
  X(cos, 0x10000, 0, 31, 32, 34, 38, 39, 35, 36, 37, 55, 71)      \
  X(cp_config, 0x20000000, 0, 58, 60, 61, 59)                     \
  X(cp_pic, 0x10000000, 0, 62, 63, 64, 66, 67, 65)                \
  X(ddos, 0, 0x80000, 97)                                         \
  X(dfwm, 0x8000, 0, 14)                                          \
  X(dfwstatsm, 0, 0, 22)                                          \
  X(error, 0, 0x200000, 109)                                      \
  X(fc_fabric, 0, 0x40000, 94)                                    \
  X(gencfg, 0, 0x1, 72)                                           \
  X(ifbd, 0, 0x2000, 90)                                          \
  X(ifdalm, 0x1000, 0, 20)                                        \
  X(ifdest, 0, 0x20000, 18)                                       \
  X(ifdm, 0x1, 0, 5)                                              \
  X(iflm, 0x2, 0, 6)                                              \
  X(ifsm, 0x1000000, 0, 47)                                       \
  X(ifvcm, 0x40000, 0, 27)                                        \
  X(ifvpm, 0x400000, 0, 46)                                       \
  X(ksyncm, 0x80000000, 0, 69)                                    \
  X(l2tp, 0x8000000, 0, 57)                                       \
  X(marker, 0, 0x2000000, 102)                                    \
  X(mesh_group, 0, 0x400, 87)                                     \
  X(mgrm, 0x400, 0, 13)                                           \
  X(monitor, 0x100000, 0, 43)                                     \
  X(monitor_state, 0x800000, 0, 44)                               \
  X(nh_comp, 0, 0x80, 83)                                         \
  X(notify, 0, 0x400000, 98)                                      \
  X(pfe_dwn_map, 0, 0x20, 81)                                     \
  X(pfeinfo, 0, 0x100000, 24)                                     \
  X(picm, 0x40000000, 0, 68)                                      \
  X(pkcs_reply, 0x20000, 0x40000000, 45)                          \
  X(pktinject, 0, 0x800000, 96)                                   \
  X(rnhm, 0x40, 0, 10)                                            \
  X(rtbm, 0x2000, 0, 1)                                           \
  X(rtclass, 0x200000, 0, 28)                                     \
  X(rtm, 0x200380, 0, 2)                                          \
  X(sadbm, 0x4000000, 0, 41)                                      \
  X(sample, 0x80000, 0, 40)                                       \
  X(stp, 0, 0x40, 82)                                             \
  X(vlan, 0, 0x100, 84)

// Rows of another shape.  Their masks here are the bits the type can be sent under (for the
// kernel's side of the table); the entry points compute the bits they ask for from their flags.
inline constexpr uint32_t kIffmType = 7, kIfamType = 8, kSysstatsType = 101, kQsrType = 80,
                          kKuackType = 99, kOpaqueType = 79, kIfsclinfoType = 85;
inline constexpr uint32_t kOpaqueHigh = 0x8;
inline constexpr uint32_t kQsrHigh = 0x10, kQsrExtraHigh = 0x40000000;
inline constexpr uint32_t kRtmLow = 0x200380, kRnhmLow = 0x40;

#define TLK_ASYNC_ROW_ENTRY(family, low, high, ...) row(#family, low, high, {__VA_ARGS__}),
inline constexpr RegisterRow kRegisterTable[] = {
    TLK_ASYNC_PLAIN_ROWS(TLK_ASYNC_ROW_ENTRY)
    row("iffm", 0x10 | 0x4, 0, {7}),
    row("ifam", 0x20 | 0x8, 0, {8}),
    row("sysstatsm", 0, 0x1000000, {101}),
    row("qsr", 0, 0x10, {80}),
    row("kuack", 0, 0, {99}),
    row("async_opaque", 0, 0x8, {79}),
    row("ifsclim", 0, 0, {85}),
};
#undef TLK_ASYNC_ROW_ENTRY

}  // namespace tlk::async
