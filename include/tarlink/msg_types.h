/*
 * tarlink/msg_types.h - the message type numbers, one name each.
 *
 * The number travels in byte 5 of a raw message (tlkh_type) and in a frame's head.  Each
 * constant is named after the type's printable name in rtm_types (upper case, other characters
 * made underscores).  The library, the simulated kernel, tlkctl and the tests all use these
 * names; no source spells a type as a bare number.
 */
#ifndef TARLINK_MSG_TYPES_H
#define TARLINK_MSG_TYPES_H

enum tlk_msg_type {
  TLK_MSG_NOP = 0,                  /* "nop" */
  TLK_MSG_RTTABLE = 1,              /* "rttable" */
  TLK_MSG_ROUTE = 2,                /* "route" */
  TLK_MSG_REDIRECT = 3,             /* "redirect" */
  TLK_MSG_RTSTATS = 4,              /* "rtstats" */
  TLK_MSG_IFDEV = 5,                /* "ifdev" */
  TLK_MSG_IFLOGICAL = 6,            /* "iflogical" */
  TLK_MSG_IFFAMILY = 7,             /* "iffamily" */
  TLK_MSG_IFADDR = 8,               /* "ifaddr" */
  TLK_MSG_IFSTATS = 9,              /* "ifstats" */
  TLK_MSG_NEXTHOP = 10,             /* "nexthop" */
  TLK_MSG_RESOLVE = 11,             /* "resolve" */
  TLK_MSG_RTMATCH = 12,             /* "rtmatch" */
  TLK_MSG_MGROUP = 13,              /* "mgroup" */
  TLK_MSG_FIREWALL = 14,            /* "firewall" */
  TLK_MSG_IFDSTATS = 15,            /* "ifdstats" */
  TLK_MSG_IFLSTATS = 16,            /* "iflstats" */
  TLK_MSG_IFDADD = 17,              /* "ifdadd" */
  TLK_MSG_IFDEST = 18,              /* "ifdest" */
  TLK_MSG_IFMISMATCH = 19,          /* "ifmismatch" */
  TLK_MSG_IFDALARM = 20,            /* "ifdalarm" */
  TLK_MSG_NHOPSTATS = 21,           /* "nhopstats" */
  TLK_MSG_DFWSTATS = 22,            /* "dfwstats" */
  TLK_MSG_FIREWALL_LOG = 23,        /* "firewall log" */
  TLK_MSG_PFE_INFO = 24,            /* "pfe info" */
  TLK_MSG_PFE_STATS = 25,           /* "pfe stats" */
  TLK_MSG_TARLINK_STATS = 26,       /* "tarlink stats" */
  TLK_MSG_IFVC = 27,                /* "ifvc" */
  TLK_MSG_RT_CLASS = 28,            /* "rt class" */
  TLK_MSG_RT_CLASS_STATS = 29,      /* "rt class stats" */
  TLK_MSG_IFTABLE = 30,             /* "iftable" */
  TLK_MSG_COS_INFO = 31,            /* "cos info" */
  TLK_MSG_COS_FABRIC = 32,          /* "cos fabric" */
  TLK_MSG_COS_FQSTATS = 33,         /* "cos fqstats" */
  TLK_MSG_COS_CLASS = 34,           /* "cos class" */
  TLK_MSG_COS_POLICY = 35,          /* "cos policy" */
  TLK_MSG_COS_RED = 36,             /* "cos red" */
  TLK_MSG_COS_REWRT = 37,           /* "cos rewrt" */
  TLK_MSG_COS_POLICER = 38,         /* "cos policer" */
  TLK_MSG_COS_SHAPER = 39,          /* "cos shaper" */
  TLK_MSG_SAMPLING = 40,            /* "sampling" */
  TLK_MSG_SA_INFO = 41,             /* "sa info" */
  TLK_MSG_PKCS_INFO = 42,           /* "pkcs info" */
  TLK_MSG_MONITORING = 43,          /* "monitoring" */
  TLK_MSG_MON_STATS = 44,           /* "mon stats" */
  TLK_MSG_PK_CRYPTO_SYS_REPLY = 45, /* "pk-crypto-sys reply" */
  TLK_MSG_IFVP = 46,                /* "ifvp" */
  TLK_MSG_IFSTATE = 47,             /* "ifstate" */
  TLK_MSG_SYSCONF = 48,             /* "sysconf" */
  TLK_MSG_COMMIT = 49,              /* "commit" */
  TLK_MSG_MAC_DB = 50,              /* "mac_db" */
  TLK_MSG_MAC_STATS = 51,           /* "mac_stats" */
  TLK_MSG_SADB_STATS = 52,          /* "sadb_stats" */
  TLK_MSG_ASP_CONFIG = 53,          /* "asp config" */
  TLK_MSG_ASP_IPSEC = 54,           /* "asp ipsec" */
  TLK_MSG_COS_FC_Q = 55,            /* "cos_fc_q" */
  TLK_MSG_L2TP_CONFIG = 56,         /* "l2tp config" */
  TLK_MSG_L2TP_ASYNC = 57,          /* "l2tp async" */
  TLK_MSG_CPIC_PARAMS = 58,         /* "cpic params" */
  TLK_MSG_CPIC_FILE_SPEC = 59,      /* "cpic file spec" */
  TLK_MSG_CPIC_IIF_CP_MAP = 60,     /* "cpic iif_cp_map" */
  TLK_MSG_CPIC_IIF_FSPEC_MAP = 61,  /* "cpic iif_fspec_map" */
  TLK_MSG_CPIC_DST_UNAVAIL = 62,    /* "cpic dst_unavail" */
  TLK_MSG_CPIC_FILE_FAIL = 63,      /* "cpic file_fail" */
  TLK_MSG_CPIC_OVLOAD = 64,         /* "cpic ovload" */
  TLK_MSG_CPIC_MEM_OVLOAD = 65,     /* "cpic mem_ovload" */
  TLK_MSG_CPIC_STATS = 66,          /* "cpic stats" */
  TLK_MSG_CPIC_FILE_STATS = 67,     /* "cpic file_stats" */
  TLK_MSG_PIC = 68,                 /* "pic" */
  TLK_MSG_KSYNC = 69,               /* "ksync" */
  TLK_MSG_IFF_VPLS_STATS = 70,      /* "iff vpls_stats" */
  TLK_MSG_COS_FRAGMAP = 71,         /* "cos fragmap" */
  TLK_MSG_GENCFG = 72,              /* "gencfg" */
  TLK_MSG_FLOW_AGGR_HIST = 73,      /* "flow_aggr_hist" */
  TLK_MSG_FLOW_AGGR_INST = 74,      /* "flow_aggr_inst" */
  TLK_MSG_FLOW_AGGR_FLT = 75,       /* "flow_aggr_flt" */
  TLK_MSG_FLOW_AGGR_FLT_FST = 76,   /* "flow_aggr_flt_fst" */
  TLK_MSG_FLOW_AGGR_CFG = 77,       /* "flow_aggr_cfg" */
  TLK_MSG_FLOW_AGGR_STATS = 78,     /* "flow_aggr_stats" */
  TLK_MSG_ASYNC_OPAQUE = 79,        /* "async opaque" */
  TLK_MSG_QSR = 80,                 /* "qsr" */
  TLK_MSG_PFE_DWN_MAP = 81,         /* "pfe dwn map" */
  TLK_MSG_STP = 82,                 /* "stp" */
  TLK_MSG_NH_COMP = 83,             /* "NH-comp" */
  TLK_MSG_VLAN = 84,                /* "vlan" */
  TLK_MSG_IFSCLINFO = 85,           /* "ifsclinfo" */
  TLK_MSG_GENCFG_STATS = 86,        /* "gencfg-stats" */
  TLK_MSG_MESH_GROUP = 87,          /* "mesh-group" */
  TLK_MSG_ANALYZER = 88,            /* "analyzer" */
  TLK_MSG_BRIDGE_DOMAIN = 89,       /* "bridge-domain" */
  TLK_MSG_IFBDMESG = 90,            /* "ifbdmesg" */
  TLK_MSG_KSDB = 91,                /* "ksdb" */
  TLK_MSG_BULKSTATS = 92,           /* "bulkstats" */
  TLK_MSG_FABRIC_MC_GROUP = 93,     /* "fabric mc group" */
  TLK_MSG_FC_FABRIC = 94,           /* "fc fabric" */
  TLK_MSG_VOQ_STATS = 95,           /* "voq stats" */
  TLK_MSG_PKT_INJECT = 96,          /* "pkt inject" */
  TLK_MSG_DDOS = 97,                /* "ddos" */
  TLK_MSG_NOTIFY_MSG = 98,          /* "notify msg" */
  TLK_MSG_KUACK_MESSAGES = 99,      /* "kuack messages" */
  TLK_MSG_RESIDX = 100,             /* "residx" */
  TLK_MSG_SYSSTATS = 101,           /* "sysstats" */
  TLK_MSG_MARKER = 102,             /* "marker" */
  TLK_MSG_MACSEC = 103,             /* "macsec" */
  TLK_MSG_MAC_PINNING = 104,        /* "mac-pinning" */
  TLK_MSG_LIBCOS_FCINFO = 105,      /* "libcos-fcinfo" */
  TLK_MSG_LIBCOS_MISC_INFO = 106,   /* "libcos-misc-info" */
  TLK_MSG_LIBCOS_INTF_INFO = 107,   /* "libcos-intf-info" */
  TLK_MSG_RR_ASPATH = 108,          /* "rr-aspath" */
  TLK_MSG_TLK_ERR = 109,            /* "tlk-err" */
};

#endif /* TARLINK_MSG_TYPES_H */
