// The read operations that every object family repeats, run once per family: a get by each key
// finds the same object, a getnext walk visits the kernel's store in its order, a name is cut at
// its limit, bad arguments send nothing, a silent kernel gives EAGAIN, an unknown key gives the
// kernel's refusal, and a failed write skips the read.  A new family joins with a row in
// kFamilies; its own quirks stay in its own tests.
#include <errno.h>
#include <string.h>

#include <functional>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using Get = std::function<int(tarvik_cookie *, uint32_t op, void **out, void **mask)>;
// A walk key: one word for a plain index, several for keys of several parts.
using Key = std::vector<uint32_t>;

struct Family {
  const char *name;
  Key known;  // a key the default store holds, and one it does not
  Key unknown;
  // Gets of the object `known` by each of the family's keys.
  std::vector<std::pair<const char *, Get>> keys;
  // A get by the walk key (a getnext with `op` TLK_OP_GETNEXT), and the walk key of a reply.
  std::function<int(tarvik_cookie *, const Key &key, uint32_t op, void **out)> by_key;
  std::function<Key(const void *msg)> key_of;
  // The walk keys of the kernel's store, in order.
  std::function<std::vector<Key>(const tarsim::Kernel &)> store;
  // A get by name, and the name and length a request carried; empty for a family without a name
  // key.
  std::function<int(tarvik_cookie *, const char *name, void **out)> by_name = nullptr;
  size_t name_max = 0;
  std::function<std::pair<std::string, uint32_t>(const void *request)> sent_name = nullptr;
  // Whether a get refuses a null out pointer before it sends anything.
  bool tests_out = true;
  // For a raw family, the types of its requests: a silent kernel leaves their gets unanswered.
  std::vector<uint8_t> raw_types = {};
};

std::string text(const uint8_t *p) {
  return p ? reinterpret_cast<const char *>(p) : "";
}

const ifl_msg &ifl(const void *m) {
  return *static_cast<const ifl_msg *>(m);
}
const ifdev_msg &ifd(const void *m) {
  return *static_cast<const ifdev_msg *>(m);
}
const iff_msg &iff(const void *m) {
  return *static_cast<const iff_msg *>(m);
}
const ifa_msg &ifa(const void *m) {
  return *static_cast<const ifa_msg *>(m);
}
const rtb_msg &rtb(const void *m) {
  return *static_cast<const rtb_msg *>(m);
}
const ntbl_msg &ntbl(const void *m) {
  return *static_cast<const ntbl_msg *>(m);
}
const rt_msg &route(const void *m) {
  return *static_cast<const rt_msg *>(m);
}

// A route's walk key in table 0: its length, then its (plen + 7) / 8 bytes, one byte a word.
Key route_key(uint16_t plen, const uint8_t *bytes) {
  Key k{plen};
  for (size_t i = 0; i < (plen + 7u) / 8; ++i) k.push_back(bytes[i]);
  return k;
}

int route_by_key(tarvik_cookie *c, const Key &k, uint32_t op, void **out) {
  uint8_t bytes[16] = {};
  for (size_t i = 1; i < k.size() && i <= 16; ++i) bytes[i - 1] = static_cast<uint8_t>(k[i]);
  return tarvik_rtm_get(c, 0, TLK_AF_INET, bytes, k.at(0), 0, 0, 0, 0, op, out, nullptr);
}
const rnh_msg &rnh(const void *m) {
  return *static_cast<const rnh_msg *>(m);
}
const rnhc_msg &rnhc(const void *m) {
  return *static_cast<const rnhc_msg *>(m);
}

// A multicast group's walk key: table, family, length, then its (bits + 7) / 8 bytes, one byte a
// word.
Key group_key(uint16_t tid, uint8_t af, uint16_t bits, const uint8_t *bytes) {
  Key k{tid, af, bits};
  for (size_t i = 0; i < (bits + 7u) / 8; ++i) k.push_back(bytes[i]);
  return k;
}

int group_by_key(tarvik_cookie *c, const Key &k, uint32_t op, void **out) {
  uint8_t bytes[16] = {};
  for (size_t i = 3; i < k.size() && i < 3 + sizeof bytes; ++i)
    bytes[i - 3] = static_cast<uint8_t>(k[i]);
  return tarvik_mgrm_get(c, k.at(0), k.at(1), bytes, k.at(2), op, out, nullptr);
}
const mgr_msg &mgr(const void *m) {
  return *static_cast<const mgr_msg *>(m);
}

// An address's walk key: index, family, the two prefix lengths, then the destination's bytes and
// the local prefix's, one byte a word.
Key address_key(uint32_t iflidx, uint8_t af, uint16_t dest_plen, const uint8_t *dest,
                uint16_t local_plen, const uint8_t *local) {
  Key k{iflidx, af, dest_plen, local_plen};
  for (size_t i = 0; i < (dest_plen + 7u) / 8; ++i) k.push_back(dest[i]);
  for (size_t i = 0; i < (local_plen + 7u) / 8; ++i) k.push_back(local[i]);
  return k;
}

int address_by_key(tarvik_cookie *c, const Key &k, uint32_t op, void **out) {
  const size_t dest_bytes = (k.at(2) + 7) / 8, local_bytes = (k.at(3) + 7) / 8;
  std::vector<uint8_t> dest(16, 0), local(16, 0);
  for (size_t i = 0; i < dest_bytes; ++i) dest[i] = static_cast<uint8_t>(k.at(4 + i));
  for (size_t i = 0; i < local_bytes; ++i)
    local[i] = static_cast<uint8_t>(k.at(4 + dest_bytes + i));
  return tarvik_ifam_get_by_local_dest(c, k[0], k[1], dest.data(), k[2], local.data(), k[3], op,
                                       out, nullptr);
}

const uint8_t kNet[] = {10, 0, 0, 0}, kHost[] = {10, 0, 0, 1}, kElsewhere[] = {192, 168, 1, 1};
const uint8_t kInNet[] = {10, 0, 0, 7};
const uint8_t kGroup[] = {224, 1, 1, 1}, kNoGroup[] = {239, 9, 9, 9};

// A raw reply's u32 at `off`: the object index of the class-of-service and association
// families.
uint32_t raw_u32(const void *m, size_t off) {
  uint32_t v;
  memcpy(&v, static_cast<const uint8_t *>(m) + off, sizeof v);
  return v;
}

// A raw family hands the kernel's refusal over as the reply, a raw "tlk-err" message: the rows
// read it as the refusal the suite expects.
int raw_get(tarvik_cookie *c, int err, void **out) {
  if (err == 0 && out != nullptr && *out != nullptr &&
      static_cast<const uint8_t *>(*out)[5] == TLK_MSG_TLK_ERR) {
    tarvik_msg_free(c, *out);
    *out = nullptr;
    return EOPNOTSUPP;
  }
  return err;
}

// The object indexes of a class-of-service kind, in order.
template <class Items>
std::vector<Key> object_keys(const Items &items) {
  std::vector<Key> keys;
  for (const auto &i : items) keys.push_back({i.object});
  return keys;
}

// Bridging: a name as a walk key, one character a word (a 16-byte interface key as 16 words).
Key chars_key(const char *s, size_t n) {
  Key k;
  for (size_t i = 0; i < n; ++i) k.push_back(static_cast<unsigned char>(s[i]));
  return k;
}
Key name_key(const uint8_t *name, uint32_t len) {
  const auto *s = reinterpret_cast<const char *>(name);
  return name ? chars_key(s, strnlen(s, len)) : Key{};
}
std::string key_text(const Key &k) {
  std::string s;
  for (uint32_t w : k) s.push_back(static_cast<char>(w));
  return s.substr(0, s.find('\0'));
}
Key ifbd_key(const char *name) {
  char key[16] = {};
  strncpy(key, name, sizeof key - 1);
  return chars_key(key, sizeof key);
}
int ifbd_by_key(tarvik_cookie *c, const Key &k, uint32_t op, void **out) {
  char key[16] = {};
  for (size_t i = 0; i < k.size() && i < sizeof key; ++i) key[i] = static_cast<char>(k[i]);
  return tarvik_ifbd_get(c, op, key, out, nullptr);
}
int stp_by_key(tarvik_cookie *c, const Key &k, uint32_t op, void **out) {
  stp_if_inst inst{};
  inst.sii_ifl_index = k.at(0);
  inst.sii_instance = static_cast<uint16_t>(k.at(1));
  return tarvik_stp_get(c, op, TLK_STP_KIND_IF, 0, &inst, k.at(2), out, nullptr);
}
const bd_msg &bd(const void *m) {
  return *static_cast<const bd_msg *>(m);
}
const ifbd_msg &ifbdm(const void *m) {
  return *static_cast<const ifbd_msg *>(m);
}
const stp_msg &stpm(const void *m) {
  return *static_cast<const stp_msg *>(m);
}
const vlan_msg &vlan(const void *m) {
  return *static_cast<const vlan_msg *>(m);
}
const mesh_group_msg &mesh(const void *m) {
  return *static_cast<const mesh_group_msg *>(m);
}
const analyzer_msg &analyzer(const void *m) {
  return *static_cast<const analyzer_msg *>(m);
}

const Family kFamilies[] = {
    {
        "logical interfaces",
        {71},
        {4242},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **m) { return tarvik_iflm_get_by_index(c, 71, op, o, m); }},
         {"snmp index", [](auto *c, uint32_t op, void **o,
                           void **m) { return tarvik_iflm_get_by_snmp_index(c, 571, op, o, m); }},
         {"device and unit",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_iflm_get_by_device(c, 130, 100, op, o, m);
          }},
         {"name and unit",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_iflm_get_by_name(c, "ge0", 100, op, o, m);
          }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_iflm_get_by_index(c, key.at(0), op, o, nullptr);
        },
        [](const void *m) { return Key{ifl(m).iflm_index.idx}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &i : k.ifls().list()) keys.push_back({i.index});
          return keys;
        },
        [](auto *c, const char *name, void **o) {
          return tarvik_iflm_get_by_name(c, name, 0, TLK_OP_GET, o, nullptr);
        },
        59,
        [](const void *r) {
          return std::pair{text(ifl(r).iflm_name), ifl(r).iflm_name_len};
        },
    },
    {
        "devices",
        {140},
        {999},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **m) { return tarvik_ifdm_get_by_index(c, 140, op, o, m); }},
         {"name", [](auto *c, uint32_t op, void **o,
                     void **m) { return tarvik_ifdm_get_by_name(c, "xe0", op, o, m); }},
         {"snmp index", [](auto *c, uint32_t op, void **o,
                           void **m) { return tarvik_ifdm_get_by_snmp_index(c, 640, op, o, m); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_ifdm_get_by_index(c, key.at(0), op, o, nullptr);
        },
        [](const void *m) { return Key{ifd(m).ifdm_index}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &d : k.devices().list()) keys.push_back({d.index});
          return keys;
        },
        [](auto *c, const char *name, void **o) {
          return tarvik_ifdm_get_by_name(c, name, TLK_OP_GET, o, nullptr);
        },
        59,
        [](const void *r) {
          return std::pair{text(ifd(r).ifdm_name), ifd(r).ifdm_name_len};
        },
    },
    {
        "families",
        {80, TLK_AF_INET6},
        {80, 17},
        {{"index and family",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_iffm_get_by_index(c, 80, TLK_AF_INET6, op, o, m);
          }},
         {"device name and unit",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_iffm_get_by_dev_name(c, TLK_AF_INET6, "xe0", 0, op, o, m);
          }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_iffm_get_by_index(c, key.at(0), key.at(1), op, o, nullptr);
        },
        [](const void *m) { return Key{iff(m).iffm_iflidx.idx, iff(m).iffm_af}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &f : k.iffs().list()) keys.push_back({f.iflidx, f.af});
          return keys;
        },
        [](auto *c, const char *name, void **o) {
          return tarvik_iffm_get_by_dev_name(c, TLK_AF_INET, name, 0, TLK_OP_GET, o, nullptr);
        },
        59,
        [](const void *r) {
          return std::pair{text(iff(r).iffm_name), iff(r).iffm_name_len};
        },
    },
    {
        "addresses",
        address_key(70, TLK_AF_INET, 24, kNet, 32, kHost),
        address_key(70, TLK_AF_INET, 24, kNet, 32, kNet),
        {{"index and family",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_ifam_get_by_index(c, 70, TLK_AF_INET, op, o, m);
          }},
         {"destination",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_ifam_get_by_dest(c, 70, TLK_AF_INET, kNet, 24, op, o, m);
          }},
         {"local prefix",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_ifam_get_by_local(c, 70, TLK_AF_INET, kHost, 32, op, o, m);
          }},
         {"local prefix and destination",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_ifam_get_by_local_dest(c, 70, TLK_AF_INET, kNet, 24, kHost, 32, op, o, m);
          }}},
        address_by_key,
        [](const void *m) {
          const ifa_msg &a = ifa(m);
          return address_key(a.ifam_iflidx.idx, a.ifam_af, a.ifam_dest.plen, a.ifam_dest.prefix,
                             a.ifam_local.plen, a.ifam_local.prefix);
        },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &a : k.ifas().list()) {
            keys.push_back(address_key(a.iflidx, a.af, a.dest.plen, a.dest.bytes.data(),
                                       a.local.plen, a.local.bytes.data()));
          }
          return keys;
        },
    },
    {
        "route tables",
        {0, TLK_AF_INET6},
        {77, TLK_AF_INET},
        {{"table id and family",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_rtbm_get_by_index(c, TLK_AF_INET6, 0, op, o, m);
          }},
         {"name", [](auto *c, uint32_t, void **o,
                     void **m) { return tarvik_rtbm_get_by_name(c, TLK_AF_INET6, "default", o, m); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_rtbm_get_by_index(c, key.at(1), key.at(0), op, o, nullptr);
        },
        [](const void *m) { return Key{rtb(m).tid, rtb(m).af}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &t : k.route_tables().list()) keys.push_back({t.tid, t.af});
          return keys;
        },
        [](auto *c, const char *name, void **o) {
          return tarvik_rtbm_get_by_name(c, TLK_AF_INET, name, o, nullptr);
        },
        127,
        [](const void *r) {
          return std::pair{text(rtb(r).rtb_name), rtb(r).rtb_name_len};
        },
    },
    {
        "table classes",
        {2},
        {99},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **m) { return tarvik_ntblm_get_by_index(c, 2, TLK_AF_INET, op, o, m); }},
         {"name", [](auto *c, uint32_t op, void **o,
                     void **m) { return tarvik_ntblm_get_by_name(c, "silver", TLK_AF_INET, op, o, m); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_ntblm_get_by_index(c, key.at(0), TLK_AF_INET, op, o, nullptr);
        },
        [](const void *m) { return Key{ntbl(m).idx}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &t : k.route_tables().classes()) keys.push_back({t.idx});
          return keys;
        },
        [](auto *c, const char *name, void **o) {
          return tarvik_ntblm_get_by_name(c, name, TLK_AF_INET, TLK_OP_GET, o, nullptr);
        },
        253,
        [](const void *r) {
          return std::pair{text(ntbl(r).ntbl_name), ntbl(r).ntbl_name_len};
        },
        false,
    },
    {
        "routes",
        route_key(24, kNet),
        route_key(32, kElsewhere),
        {{"prefix",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_rtm_get_by_prefix(c, TLK_AF_INET, kNet, 24, op, o, m);
          }},
         {"table, prefix and type",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_rtm_get(c, 0, TLK_AF_INET, kNet, 24, 7, 0, 0, 0, op, o, m);
          }},
         {"a destination it covers",
          [](auto *c, uint32_t, void **o, void **m) {
            return tarvik_rtmatch_by_prefix(c, 0, TLK_AF_INET, 0, kInNet, 32, o, m);
          }}},
        route_by_key,
        [](const void *m) { return route_key(route(m).plen, route(m).prefix); },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          k.routes().walk(0, TLK_AF_INET,
                          [&](const tarsim::Route &r) { keys.push_back(route_key(r.plen, r.prefix)); });
          return keys;
        },
    },
    {
        "next hops",
        {1001},
        {4242},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **m) { return tarvik_rnhm_get_by_index(c, 1001, 2, op, o, m); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_rnhm_get_by_index(c, key.at(0), 2, op, o, nullptr);
        },
        [](const void *m) { return Key{rnh(m).idx.idx}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &n : k.nexthops().list()) keys.push_back({n.index});
          return keys;
        },
    },
    {
        "composite next hops",
        {1003},
        {1000},  // a next hop, but not a composite
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **m) { return tarvik_rnh_comp_get_by_index(c, 1003, op, o, m); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_rnh_comp_get_by_index(c, key.at(0), op, o, nullptr);
        },
        [](const void *m) { return Key{rnhc(m).idx.idx}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &n : k.nexthops().list()) {
            if (n.type == tarsim::kNhComposite) keys.push_back({n.index});
          }
          return keys;
        },
    },
    {
        "multicast groups",
        group_key(0, TLK_AF_INET, 32, kGroup),
        group_key(0, TLK_AF_INET, 32, kNoGroup),
        {{"table, family and group",
          [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_mgrm_get(c, 0, TLK_AF_INET, kGroup, 32, op, o, m);
          }}},
        group_by_key,
        [](const void *m) {
          return group_key(mgr(m).tid, mgr(m).af, mgr(m).group.plen, mgr(m).group.prefix);
        },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          const tarsim::MulticastGroups groups = k.multicast_groups();
          for (size_t i = 0; i < groups.size(); ++i) {
            const tarsim::MulticastGroup *g = groups.at(i);
            keys.push_back(group_key(g->tid, g->af, g->bits, g->group));
          }
          return keys;
        },
    },
    {
        "cos policers",
        {7},
        {8},
        {{"object", [](auto *c, uint32_t op, void **o,
                       void **) { return raw_get(c, tarvik_cpom_get(c, 7, op, o), o); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return raw_get(c, tarvik_cpom_get(c, key.at(0), op, o), o);
        },
        [](const void *m) { return Key{raw_u32(m, 32)}; },
        [](const tarsim::Kernel &k) { return object_keys(k.cos().rates(tarsim::Cos::kPolicer)); },
        nullptr,
        0,
        nullptr,
        true,
        {TLK_MSG_COS_POLICER},
    },
    {
        "cos shapers",
        {3},
        {5},
        {{"object", [](auto *c, uint32_t op, void **o,
                       void **) { return raw_get(c, tarvik_csm_get(c, 3, op, o), o); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return raw_get(c, tarvik_csm_get(c, key.at(0), op, o), o);
        },
        [](const void *m) { return Key{raw_u32(m, 32)}; },
        [](const tarsim::Kernel &k) { return object_keys(k.cos().rates(tarsim::Cos::kShaper)); },
        nullptr,
        0,
        nullptr,
        true,
        {TLK_MSG_COS_SHAPER},
    },
    {
        "cos classifiers",
        {2},
        {3},
        {{"object", [](auto *c, uint32_t op, void **o,
                       void **) { return raw_get(c, tarvik_ccm_get_object(c, 2, op, o), o); }},
         {"interface and unit", [](auto *c, uint32_t op, void **o,
                                   void **) { return raw_get(c, tarvik_ccm_get_ifl(c, 71, 0, op, o), o); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return raw_get(c, tarvik_ccm_get_object(c, key.at(0), op, o), o);
        },
        [](const void *m) { return Key{raw_u32(m, 36)}; },
        [](const tarsim::Kernel &k) { return object_keys(k.cos().maps(tarsim::Cos::kClassifier)); },
        nullptr,
        0,
        nullptr,
        true,
        {TLK_MSG_COS_CLASS},
    },
    {
        "cos rewrites",
        {5},
        {6},
        {{"object", [](auto *c, uint32_t op, void **o,
                       void **) { return raw_get(c, tarvik_crwm_get_object(c, 5, op, o), o); }},
         {"interface, unit and kind",
          [](auto *c, uint32_t op, void **o, void **) {
            return raw_get(c, tarvik_crwm_get_ifl(c, 71, 0, 1, op, o), o);
          }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return raw_get(c, tarvik_crwm_get_object(c, key.at(0), op, o), o);
        },
        [](const void *m) { return Key{raw_u32(m, 36)}; },
        [](const tarsim::Kernel &k) { return object_keys(k.cos().maps(tarsim::Cos::kRewrite)); },
        nullptr,
        0,
        nullptr,
        true,
        {TLK_MSG_COS_REWRT},
    },
    {
        "cos fragmentation maps",
        {11},
        {13},
        {{"object", [](auto *c, uint32_t op, void **o,
                       void **) { return raw_get(c, tarvik_cfragm_get_object(c, 11, op, o), o); }},
         {"interface", [](auto *c, uint32_t op, void **o,
                          void **) { return raw_get(c, tarvik_cfragm_get_ifl(c, 72, op, o), o); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return raw_get(c, tarvik_cfragm_get_object(c, key.at(0), op, o), o);
        },
        [](const void *m) { return Key{raw_u32(m, 36)}; },
        [](const tarsim::Kernel &k) { return object_keys(k.cos().maps(tarsim::Cos::kFragmap)); },
        nullptr,
        0,
        nullptr,
        true,
        {TLK_MSG_COS_FRAGMAP},
    },
    {
        "security associations",
        {1},
        {99},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **) { return raw_get(c, tarvik_sadbm_get(c, op, nullptr, 1, 0, 0, o), o); }},
         {"name", [](auto *c, uint32_t op, void **o,
                     void **) { return raw_get(c, tarvik_sadbm_get_by_name(c, op, "tunnel-a", 0, 0, o), o); }},
         {"index and key words", [](auto *c, uint32_t op, void **o, void **) {
            return raw_get(c, tarvik_sadbm_get(c, op, "tunnel-a", 1, 0, 0, o), o);
          }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return raw_get(c, tarvik_sadbm_get(c, op, nullptr, key.at(0), 0, 0, o), o);
        },
        [](const void *m) { return Key{raw_u32(m, 32)}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (const auto &sa : k.security_associations().list()) keys.push_back({sa.id});
          return keys;
        },
        nullptr,
        0,
        nullptr,
        true,
        {TLK_MSG_SA_INFO},
    },
    {
        "pics",
        {8},
        {9},
        {{"slot and port", [](auto *c, uint32_t op, void **o,
                              void **m) { return tarvik_pic_get(c, 1, 0, op, o, m); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_pic_get(c, key.at(0) / 8, key.at(0) % 8, op, o, nullptr);
        },
        [](const void *m) { return Key{static_cast<const pic_msg *>(m)->picm_idx}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (size_t i = 0; i < k.chassis().pic_count(); ++i) keys.push_back({k.chassis().pic_at(i)->key});
          return keys;
        },
    },
    {
        "sampling instances",
        {1, 0, 0},
        {7, 0, 0},
        {{"keys", [](auto *c, uint32_t op, void **o,
                     void **m) { return tarvik_sample_get(c, op, 1, 0, 0, o, m); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_sample_get(c, op, key.at(0), key.at(1), key.at(2), o, nullptr);
        },
        [](const void *m) {
          const auto &s = *static_cast<const sample_msg *>(m);
          return Key{s.sample_a, s.sample_b, s.sample_c};
        },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (size_t i = 0; i < k.chassis().sample_count(); ++i) {
            const tarsim::Sample *s = k.chassis().sample_at(i);
            keys.push_back({s->a, s->b, s->c});
          }
          return keys;
        },
    },
    {
        "fc fabrics",
        {1},
        {5},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **) { return tarvik_fc_fabric_get_by_index(c, 1, op, o); }},
         {"name", [](auto *c, uint32_t op, void **o,
                     void **) { return tarvik_fc_fabric_get_by_name(c, "fabric-a", op, o); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_fc_fabric_get_by_index(c, static_cast<uint16_t>(key.at(0)), op, o);
        },
        [](const void *m) { return Key{static_cast<const fc_fabric_msg *>(m)->fcm_fabric_index}; },
        [](const tarsim::Kernel &) { return std::vector<Key>{{1}, {2}}; },
        [](auto *c, const char *name, void **o) {
          return tarvik_fc_fabric_get_by_name(c, name, TLK_OP_GET, o);
        },
        128,
        [](const void *req) {
          const auto &m = *static_cast<const fc_fabric_msg *>(req);
          return std::make_pair(text(m.fcm_name), m.fcm_name_len);
        },
    },
    {
        "fabric multicast groups",
        {10},
        {15},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **m) { return tarvik_fmgrpm_get_by_index(c, 10, op, o, m); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_fmgrpm_get_by_index(c, key.at(0), op, o, nullptr);
        },
        [](const void *m) { return Key{static_cast<const fmgrp_msg *>(m)->fgm_group_index}; },
        [](const tarsim::Kernel &) { return std::vector<Key>{{10}, {20}}; },
    },
    {
        "bridge domains",
        {1},
        {77},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **m) { return tarvik_bd_get(c, 9, op, 1, o, m); }},
         {"name and tag", [](auto *c, uint32_t op, void **o,
                             void **m) { return tarvik_bd_get_by_name(c, 9, op, "vlan-100", 1, o, m); }},
         {"name, any tag", [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_bd_get_by_name(c, 9, op, "vlan-100", TLK_BD_TAG_ANY, o, m);
          }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_bd_get(c, 0, op, key.at(0), o, nullptr);
        },
        [](const void *m) { return Key{bd(m).bdm_index}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (size_t i = 0; i < k.bridging().domain_count(); ++i)
            keys.push_back({k.bridging().domain_at(i)->index});
          return keys;
        },
        [](auto *c, const char *name, void **o) {
          return tarvik_bd_get_by_name(c, 0, TLK_OP_GET, name, TLK_BD_TAG_ANY, o, nullptr);
        },
        127,
        [](const void *r) { return std::pair{text(bd(r).bdm_name), bd(r).bdm_name_len}; },
    },
    {
        "interfaces in a domain",
        ifbd_key("ge-0/0/1.0"),
        ifbd_key("ge-9/9/9.0"),
        {{"key", [](auto *c, uint32_t op, void **o, void **m) {
            char key[16] = "ge-0/0/1.0";
            return tarvik_ifbd_get(c, op, key, o, m);
          }}},
        ifbd_by_key,
        [](const void *m) {
          return chars_key(reinterpret_cast<const char *>(ifbdm(m).ibm_key.ibk_name), 16);
        },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (size_t i = 0; i < k.bridging().interface_count(); ++i)
            keys.push_back(chars_key(k.bridging().interface_at(i)->key, 16));
          return keys;
        },
    },
    {
        "spanning tree",
        {71, 0, 100},
        {999, 0, 0},
        {{"interface instance", [](auto *c, uint32_t op, void **o, void **m) {
            stp_if_inst inst{};
            inst.sii_ifl_index = 71;
            return tarvik_stp_get(c, op, TLK_STP_KIND_IF, 0, &inst, 100, o, m);
          }}},
        stp_by_key,
        [](const void *m) {
          return Key{stpm(m).stpm_inst.sii_ifl_index, stpm(m).stpm_inst.sii_instance,
                     stpm(m).stpm_inst_vlan};
        },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (size_t i = 0; i < k.bridging().stp_count(); ++i) {
            const tarsim::SpanningTree *t = k.bridging().stp_at(i);
            keys.push_back({t->ifl, t->instance, t->vlan});
          }
          return keys;
        },
    },
    {
        "vlans",
        {1},
        {77},
        {{"index", [](auto *c, uint32_t op, void **o,
                      void **) { return tarvik_vlanm_get_by_index(c, 1, op, o); }},
         {"name", [](auto *c, uint32_t op, void **o,
                     void **) { return tarvik_vlanm_get_by_name(c, 0, "v100", op, o); }},
         {"layer 3 interface", [](auto *c, uint32_t op, void **o,
                                  void **) { return tarvik_vlanm_get_by_l3ifl(c, 71, op, o); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_vlanm_get_by_index(c, key.at(0), op, o);
        },
        [](const void *m) { return Key{vlan(m).vlm_index}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (size_t i = 0; i < k.bridging().vlan_count(); ++i)
            keys.push_back({k.bridging().vlan_at(i)->index});
          return keys;
        },
        [](auto *c, const char *name, void **o) {
          return tarvik_vlanm_get_by_name(c, 0, name, TLK_OP_GET, o);
        },
        127,
        [](const void *r) { return std::pair{text(vlan(r).vlm_name), vlan(r).vlm_name_len}; },
    },
    {
        "mesh groups",
        {1},
        {77},
        {{"id", [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_mesh_group_op(c, op, 0, 1, o, m, nullptr, 0, 0, 0, 0, 0);
          }},
         {"name", [](auto *c, uint32_t op, void **o, void **m) {
            return tarvik_mesh_group_op(c, op, 0, 0, o, m, "__ves__", 64, 0, 0, 0, 0);
          }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_mesh_group_op(c, op, 0, key.at(0), o, nullptr, nullptr, 0, 0, 0, 0, 0);
        },
        [](const void *m) { return Key{mesh(m).mgm_id}; },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (size_t i = 0; i < k.bridging().mesh_group_count(); ++i)
            keys.push_back({k.bridging().mesh_group_at(i)->id});
          return keys;
        },
    },
    {
        "analyzers",
        chars_key("mirror-a", 8),
        chars_key("nope", 4),
        {{"name", [](auto *c, uint32_t op, void **o,
                     void **) { return tarvik_analyzer_get(c, op, o, "mirror-a"); }}},
        [](auto *c, const Key &key, uint32_t op, void **o) {
          return tarvik_analyzer_get(c, op, o, key_text(key).c_str());
        },
        [](const void *m) { return name_key(analyzer(m).anm_name, analyzer(m).anm_name_len); },
        [](const tarsim::Kernel &k) {
          std::vector<Key> keys;
          for (size_t i = 0; i < k.bridging().analyzer_count(); ++i) {
            const char *n = k.bridging().analyzer_at(i)->name;
            keys.push_back(chars_key(n, strlen(n)));
          }
          return keys;
        },
        [](auto *c, const char *name, void **o) {
          return tarvik_analyzer_get(c, TLK_OP_GET, o, name);
        },
        128,
        [](const void *r) {
          return std::pair{text(analyzer(r).anm_name), analyzer(r).anm_name_len};
        },
    },
};

class FamilyTest : public OneSessionTest, public ::testing::WithParamInterface<const Family *> {
 protected:
  const Family &f = *GetParam();
  // A poisoned out pointer, so that a test sees the operation clear it.
  void *poisoned() { return reinterpret_cast<void *>(1); }
};

TEST_P(FamilyTest, AGetByEachKeyFindsTheSameObject) {
  for (const auto &[how, get] : f.keys) {
    SCOPED_TRACE(how);
    void *m = nullptr;
    ASSERT_EQ(get(c, TLK_OP_GET, &m, nullptr), 0);
    EXPECT_EQ(f.key_of(m), f.known);
    tarvik_msg_idl_release(c, m, nullptr);
  }
}

TEST_P(FamilyTest, AGetnextWalkVisitsTheStoreInOrder) {
  std::vector<Key> seen;
  Key key(f.known.size(), 0);
  for (;;) {
    void *m = poisoned();
    const int err = f.by_key(c, key, TLK_OP_GETNEXT, &m);
    if (err != 0) {
      EXPECT_EQ(err, EOPNOTSUPP) << "the walk ends on the kernel's raw refusal";
      EXPECT_EQ(m, nullptr);
      break;
    }
    key = f.key_of(m);
    seen.push_back(key);
    tarvik_msg_idl_release(c, m, nullptr);
    ASSERT_LE(seen.size(), 100000u) << "the walk does not end";
  }
  EXPECT_EQ(seen, f.store(kernel));
  EXPECT_GT(seen.size(), 1u);
}

TEST_P(FamilyTest, ANameIsCutAtItsLimitAndCountsItsEndByte) {
  if (!f.by_name) GTEST_SKIP() << "no name key";
  kernel.record(true);
  const size_t max = f.name_max;
  for (const std::string &name :
       {std::string(max, 'a'), std::string(max + 1, 'b'), std::string(200, 'c'), std::string()}) {
    SCOPED_TRACE(name.size());
    void *m = poisoned();
    EXPECT_EQ(f.by_name(c, name.c_str(), &m), EOPNOTSUPP) << "no such object";
    EXPECT_EQ(m, nullptr);
    void *req = last_framed_request();
    ASSERT_NE(req, nullptr);
    const auto [sent, length] = f.sent_name(req);
    EXPECT_EQ(sent, name.substr(0, max));
    EXPECT_EQ(length, std::min(name.size(), max) + 1);
    tarvik_msg_idl_release(c, req, nullptr);
  }
}

TEST_P(FamilyTest, BadArgumentsSendNothing) {
  kernel.record(true);
  for (const auto &[how, get] : f.keys) {
    SCOPED_TRACE(how);
    if (f.tests_out) {
      EXPECT_EQ(get(c, TLK_OP_GET, nullptr, nullptr), EINVAL);
    }
    void *m = poisoned();
    EXPECT_EQ(get(nullptr, TLK_OP_GET, &m, nullptr), EINVAL);
    EXPECT_EQ(m, nullptr) << "the out pointer is cleared even then";
  }
  if (f.by_name) {
    void *m = poisoned();
    EXPECT_EQ(f.by_name(c, nullptr, &m), EINVAL);
    EXPECT_EQ(m, nullptr);
  }
  EXPECT_TRUE(kernel.recorded().empty());
}

TEST_P(FamilyTest, AnUnknownKeyGetsTheKernelsRefusal) {
  void *m = poisoned();
  EXPECT_EQ(f.by_key(c, f.unknown, TLK_OP_GET, &m), EOPNOTSUPP) << "a raw tlk-err in hand";
  EXPECT_EQ(m, nullptr);
}

TEST_P(FamilyTest, ASilentKernelGivesEagainAndLeavesNothing) {
  kernel.on_frame([](tarsim::Kernel &, int, std::span<const uint8_t>) {});
  for (uint8_t type : f.raw_types) kernel.no_reply(type, TLK_OP_GET);
  void *m = poisoned();
  EXPECT_EQ(f.by_key(c, f.known, TLK_OP_GET, &m), EAGAIN);
  EXPECT_EQ(m, nullptr);
}

TEST_P(FamilyTest, AFailedWriteSkipsTheRead) {
  const int fd = tarvik_getsockfd(c);
  ASSERT_TRUE(kernel.push(fd, tarsim::raw_message(TLK_MSG_TARLINK_STATS, TLK_OP_GET, c->seq + 1)));
  kernel.inject_write_errno(ENOBUFS);
  void *m = poisoned();
  EXPECT_EQ(f.by_key(c, f.known, TLK_OP_GET, &m), ENOBUFS);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(tarvik_peek_pkt_len(fd), TLK_RAW_HDR_LEN) << "the queued message was not read";
}

INSTANTIATE_TEST_SUITE_P(Families, FamilyTest, ::testing::ValuesIn([] {
                           std::vector<const Family *> rows;
                           for (const Family &f : kFamilies) rows.push_back(&f);
                           return rows;
                         }()),
                         [](const auto &row) {
                           std::string name = row.param->name;
                           for (char &ch : name)
                             ch = isalnum(static_cast<unsigned char>(ch)) ? ch : '_';
                           return name;
                         });

}  // namespace
}  // namespace tlktest
