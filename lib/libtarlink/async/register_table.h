// The per-family register table: which message types a family's registration fills, and under
// which listen bits the kernel sends them.  The bits are wire values shared with the kernel.
#pragma once

#include <stdint.h>

#include <initializer_list>

#include "tarlink/msg_types.h"

namespace tlk::async {

struct RegisterRow {
  const char *family;  // tarvik_<family>_async_register
  uint8_t types[10];   // registered in this order, stopping at the first failure
  uint8_t ntypes;
  uint32_t low;   // listen mask, low word (for the rows that take flags: every bit they can ask)
  uint32_t high;  // listen mask, high word
};

constexpr RegisterRow row(const char *family, uint32_t low, uint32_t high,
                          std::initializer_list<uint8_t> types) {
  RegisterRow r{family, {}, 0, low, high};
  for (uint8_t t : types) r.types[r.ntypes++] = t;
  return r;
}

// X(family, low, high, types...) for every row whose entry point is (cookie, arg, handler) and
// whose masks are constants.
#define TLK_ASYNC_PLAIN_ROWS(X)                                                                    \
  X(aggr_config, 0, 0x2, TLK_MSG_FLOW_AGGR_HIST, TLK_MSG_FLOW_AGGR_INST, TLK_MSG_FLOW_AGGR_FLT,    \
    TLK_MSG_FLOW_AGGR_FLT_FST, TLK_MSG_FLOW_AGGR_CFG)                                              \
  X(analyzer, 0, 0x800, TLK_MSG_ANALYZER)                                                          \
  X(asp_cfg, 0, 0x4, TLK_MSG_ASP_CONFIG)                                                           \
  X(asp_ipsec, 0x2000000, 0, TLK_MSG_ASP_IPSEC)                                                    \
  X(bd, 0, 0x1000, TLK_MSG_BRIDGE_DOMAIN)                                                          \
  X(cos, 0x10000, 0, TLK_MSG_COS_INFO, TLK_MSG_COS_FABRIC, TLK_MSG_COS_CLASS, TLK_MSG_COS_POLICER, \
    TLK_MSG_COS_SHAPER, TLK_MSG_COS_POLICY, TLK_MSG_COS_RED, TLK_MSG_COS_REWRT, TLK_MSG_COS_FC_Q,  \
    TLK_MSG_COS_FRAGMAP)                                                                           \
  X(cp_config, 0x20000000, 0, TLK_MSG_CPIC_PARAMS, TLK_MSG_CPIC_IIF_CP_MAP,                        \
    TLK_MSG_CPIC_IIF_FSPEC_MAP, TLK_MSG_CPIC_FILE_SPEC)                                            \
  X(cp_pic, 0x10000000, 0, TLK_MSG_CPIC_DST_UNAVAIL, TLK_MSG_CPIC_FILE_FAIL, TLK_MSG_CPIC_OVLOAD,  \
    TLK_MSG_CPIC_STATS, TLK_MSG_CPIC_FILE_STATS, TLK_MSG_CPIC_MEM_OVLOAD)                          \
  X(ddos, 0, 0x80000, TLK_MSG_DDOS)                                                                \
  X(dfwm, 0x8000, 0, TLK_MSG_FIREWALL)                                                             \
  X(dfwstatsm, 0, 0, TLK_MSG_DFWSTATS)                                                             \
  X(error, 0, 0x200000, TLK_MSG_TLK_ERR)                                                           \
  X(fc_fabric, 0, 0x40000, TLK_MSG_FC_FABRIC)                                                      \
  X(gencfg, 0, 0x1, TLK_MSG_GENCFG)                                                                \
  X(ifbd, 0, 0x2000, TLK_MSG_IFBDMESG)                                                             \
  X(ifdalm, 0x1000, 0, TLK_MSG_IFDALARM)                                                           \
  X(ifdest, 0, 0x20000, TLK_MSG_IFDEST)                                                            \
  X(ifdm, 0x1, 0, TLK_MSG_IFDEV)                                                                   \
  X(iflm, 0x2, 0, TLK_MSG_IFLOGICAL)                                                               \
  X(ifsm, 0x1000000, 0, TLK_MSG_IFSTATE)                                                           \
  X(ifvcm, 0x40000, 0, TLK_MSG_IFVC)                                                               \
  X(ifvpm, 0x400000, 0, TLK_MSG_IFVP)                                                              \
  X(ksyncm, 0x80000000, 0, TLK_MSG_KSYNC)                                                          \
  X(l2tp, 0x8000000, 0, TLK_MSG_L2TP_ASYNC)                                                        \
  X(marker, 0, 0x2000000, TLK_MSG_MARKER)                                                          \
  X(mesh_group, 0, 0x400, TLK_MSG_MESH_GROUP)                                                      \
  X(mgrm, 0x400, 0, TLK_MSG_MGROUP)                                                                \
  X(monitor, 0x100000, 0, TLK_MSG_MONITORING)                                                      \
  X(monitor_state, 0x800000, 0, TLK_MSG_MON_STATS)                                                 \
  X(nh_comp, 0, 0x80, TLK_MSG_NH_COMP)                                                             \
  X(notify, 0, 0x400000, TLK_MSG_NOTIFY_MSG)                                                       \
  X(pfe_dwn_map, 0, 0x20, TLK_MSG_PFE_DWN_MAP)                                                     \
  X(pfeinfo, 0, 0x100000, TLK_MSG_PFE_INFO)                                                        \
  X(picm, 0x40000000, 0, TLK_MSG_PIC)                                                              \
  X(pkcs_reply, 0x20000, 0x40000000, TLK_MSG_PK_CRYPTO_SYS_REPLY)                                  \
  X(pktinject, 0, 0x800000, TLK_MSG_PKT_INJECT)                                                    \
  X(rnhm, 0x40, 0, TLK_MSG_NEXTHOP)                                                                \
  X(rtbm, 0x2000, 0, TLK_MSG_RTTABLE)                                                              \
  X(rtclass, 0x200000, 0, TLK_MSG_RT_CLASS)                                                        \
  X(rtm, 0x200380, 0, TLK_MSG_ROUTE)                                                               \
  X(sadbm, 0x4000000, 0, TLK_MSG_SA_INFO)                                                          \
  X(sample, 0x80000, 0, TLK_MSG_SAMPLING)                                                          \
  X(stp, 0, 0x40, TLK_MSG_STP)                                                                     \
  X(vlan, 0, 0x100, TLK_MSG_VLAN)

// Rows of another shape.  Their masks here are the bits the type can be sent under (for the
// kernel's side of the table); the entry points compute the bits they ask for from their flags.
inline constexpr uint32_t kOpaqueHigh = 0x8;
inline constexpr uint32_t kQsrHigh = 0x10, kQsrExtraHigh = 0x40000000;
inline constexpr uint32_t kRtmLow = 0x200380, kRnhmLow = 0x40;

#define TLK_ASYNC_ROW_ENTRY(family, low, high, ...) row(#family, low, high, {__VA_ARGS__}),
inline constexpr RegisterRow kRegisterTable[] = {
    TLK_ASYNC_PLAIN_ROWS(TLK_ASYNC_ROW_ENTRY) row("iffm", 0x10 | 0x4, 0, {TLK_MSG_IFFAMILY}),
    row("ifam", 0x20 | 0x8, 0, {TLK_MSG_IFADDR}),
    row("sysstatsm", 0, 0x1000000, {TLK_MSG_SYSSTATS}),
    row("qsr", 0, 0x10, {TLK_MSG_QSR}),
    row("kuack", 0, 0, {TLK_MSG_KUACK_MESSAGES}),
    row("async_opaque", 0, 0x8, {TLK_MSG_ASYNC_OPAQUE}),
    row("ifsclim", 0, 0, {TLK_MSG_IFSCLINFO}),
};
#undef TLK_ASYNC_ROW_ENTRY

}  // namespace tlk::async
