// tarsim/gencfg.hpp - the simulated kernel's generic configuration store.
//
// Blobs keyed by (major, minor, key), where the key is the request's byte key (flag 0x2), else
// its numeric key (flag 0x1), else nothing (one blob per major and minor).  A blob is stored as
// it arrives, compressed or not: the kernel never looks inside it.  Framed gencfg requests
// (type 72) are answered in the encoding they came in:
//   add, change            store (replacing what the key held), no reply
//   delete                 remove, no reply
//   get                    the stored blob
//   getnext                the next blob of the same major and minor in key order; a request
//                          with flag 0x2 and an empty key, or with no key flag, starts the walk
//   add_get, chg_get       store, then reply with what is stored
//   chg_get + 0x400000     bulk delete: every blob of the major and minor; the request echoed
//   chg_get + 0x800000     delete every byte key of the major and minor that starts with the
//                          request's key; the request echoed
//   deleteall              every blob of the major and minor, no reply
// A get, getnext or chg_get that finds nothing is refused with a raw "tlk-err" (ENOENT), which a
// client's framed read reports as EOPNOTSUPP.  Every change that stores or removes a blob is
// sent to every other session listening for "gencfg", as an IDR gencfg_msg of op add, change or
// delete (one delete per blob removed); the writer does not hear its own change.
//
// The system control "kern.gencfg_cfg2_peermask" reads as one u32 (0 unless set_peermask says
// otherwise); a value of 1 makes the library put the peers of major 4 into a mask.  A value set
// with Kernel::set_sysctl takes its place.
//
// Statistics ("gencfg-stats", raw type 86) are kept beside the blobs, each under the request's
// major, minor, key (its bytes with flag 0x2, else its number with flag 0x1), peer entries and
// kind, whether or not such a blob is stored:
//   add (1)     store the request's value (replacing what the key held), no reply
//   get (4)     the request's fixed part, peers and key, followed by the stored value (length at
//               42, offset at 44, rounded up to four); an unknown key is refused with "tlk-err"
//   clear (6)   the stored value's bytes set to zero, its length kept, no reply
//   delete (3)  the value forgotten, no reply
// A clear or delete of an unknown key changes nothing and draws no reply, as the writer reads
// none.  A request too short for its own offsets is dropped.
#pragma once

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <compare>
#include <map>
#include <span>
#include <vector>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class GencfgFamily;
class GencfgStatsFamily;
}  // namespace internal

struct GencfgKey {
  uint16_t major = 0;
  uint16_t minor = 0;
  uint8_t kind = 0;  // 0 none, 1 numeric, 2 bytes: the order of kinds within a major and minor
  uint32_t kid = 0;
  Bytes key;

  // Major, minor, kind, numeric key, then the key bytes, a shorter key before any longer one
  // that it begins.
  std::strong_ordering operator<=>(const GencfgKey &o) const {
    if (major != o.major) return major <=> o.major;
    if (minor != o.minor) return minor <=> o.minor;
    if (kind != o.kind) return kind <=> o.kind;
    if (kid != o.kid) return kid <=> o.kid;
    const size_t n = std::min(key.size(), o.key.size());
    const int d = n == 0 ? 0 : memcmp(key.data(), o.key.data(), n);
    if (d != 0) return d < 0 ? std::strong_ordering::less : std::strong_ordering::greater;
    return key.size() <=> o.key.size();
  }
  bool operator==(const GencfgKey &other) const = default;
};

struct GencfgDep {
  gencfg_depinfo info{};  // dep_key and dep_key_len are rebuilt from `key` when sent
  Bytes key;
};

struct GencfgEntry {
  GencfgKey id;
  uint32_t flags = 0;  // as the writer sent them
  uint16_t sub_id = 0;
  uint16_t tag = 0;
  uint8_t lrid = 0;
  Bytes blob;
  std::vector<gencfg_peerinfo> peers;
  std::vector<GencfgDep> deps;
};

// The kernel's blobs: Kernel::gencfg().
class TARSIM_EXPORT Gencfg {
 public:
  static GencfgKey bytes_key(uint16_t major, uint16_t minor, std::span<const uint8_t> key) {
    GencfgKey k;
    k.major = major;
    k.minor = minor;
    k.kind = 2;
    k.key.assign(key.begin(), key.end());
    return k;
  }
  static GencfgKey numeric_key(uint16_t major, uint16_t minor, uint32_t kid) {
    GencfgKey k;
    k.major = major;
    k.minor = minor;
    k.kind = 1;
    k.kid = kid;
    return k;
  }

  const GencfgEntry *find(const GencfgKey &key) const;
  // Every blob, in key order.
  const std::map<GencfgKey, GencfgEntry> &store() const;
  size_t size() const;
  // Forgets every blob; the kernel tells nobody.
  void clear();
  // A change made by the kernel itself: op add or change stores `entry`, op delete removes its
  // key; either way every listening session hears it.  The number of sessions reached.
  size_t change(uint8_t op, const GencfgEntry &entry);
  // What "kern.gencfg_cfg2_peermask" reads.
  void set_peermask(uint32_t value);
  uint32_t peermask() const;

 private:
  friend class Kernel;
  explicit Gencfg(internal::GencfgFamily *family) : family_(family) {}
  internal::GencfgFamily *family_;
};

// What addresses one statistics value.
struct GencfgStatKey {
  uint16_t major = 0;
  uint16_t minor = 0;
  uint8_t kind = 0;  // as GencfgKey: 0 none, 1 numeric, 2 bytes
  uint32_t kid = 0;
  Bytes key;
  Bytes peers;  // the request's peer entries, 40 bytes each, as sent
  uint8_t stats_kind = 0;

  auto operator<=>(const GencfgStatKey &) const = default;
  bool operator==(const GencfgStatKey &) const = default;
};

struct GencfgStat {
  Bytes value;
  uint16_t stats_id = 0;  // the id (or sub_id) the last add carried
};

// The kernel's statistics values: Kernel::gencfg_stats().
class TARSIM_EXPORT GencfgStats {
 public:
  const GencfgStat *find(const GencfgStatKey &key) const;
  const std::map<GencfgStatKey, GencfgStat> &store() const;
  size_t size() const;
  // Stores a value as an add would.
  void set(const GencfgStatKey &key, const GencfgStat &stat);
  void clear();

 private:
  friend class Kernel;
  explicit GencfgStats(internal::GencfgStatsFamily *family) : family_(family) {}
  internal::GencfgStatsFamily *family_;
};

}  // namespace tarsim
