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
#include <unordered_map>
#include <utility>
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

// The blobs by key.  Look-ups and changes go through a hash table; walks in key order through an
// index of the stored pairs, built on the first walk and kept from then on: keys added since the
// last walk are sorted and merged in at the next one, and a removed key stays in the index as a
// hole (its pair kept aside) until holes make up half of it.  So a million adds cost a hash
// insert each, and walking stays ordered without an ordered tree's miss per level.
class TARSIM_EXPORT GencfgStore {
 public:
  using value_type = std::pair<const GencfgKey, GencfgEntry>;

 private:
  struct Slot {
    const value_type *pair;
    bool gone;
  };

 public:
  class const_iterator {
   public:
    using value_type = GencfgStore::value_type;
    using reference = const value_type &;
    using pointer = const value_type *;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::forward_iterator_tag;
    const_iterator() = default;
    reference operator*() const { return *at_->pair; }
    pointer operator->() const { return at_->pair; }
    const_iterator &operator++() {
      ++at_;
      skip();
      return *this;
    }
    const_iterator operator++(int) {
      const_iterator old = *this;
      ++*this;
      return old;
    }
    bool operator==(const const_iterator &o) const { return at_ == o.at_; }

   private:
    friend class GencfgStore;
    const_iterator(const Slot *at, const Slot *end) : at_(at), end_(end) { skip(); }
    void skip() {
      while (at_ != end_ && at_->gone) ++at_;
    }
    const Slot *at_ = nullptr;
    const Slot *end_ = nullptr;
  };

  GencfgStore() = default;
  GencfgStore(const GencfgStore &) = delete;
  GencfgStore &operator=(const GencfgStore &) = delete;

  // In key order.
  const_iterator begin() const;
  const_iterator end() const;
  // The first blob at or after `key`, and the first after it.
  const_iterator lower_bound(const GencfgKey &key) const;
  const_iterator upper_bound(const GencfgKey &key) const;

  size_t size() const { return map_.size(); }
  bool empty() const { return map_.empty(); }
  const GencfgEntry *find(const GencfgKey &key) const;
  // Stores `entry` under its id, replacing what the key held; the stored entry.
  GencfgEntry &put(GencfgEntry &&entry);
  // Removes the key, moving its entry to `out` if given; false if it was not there.
  bool erase(const GencfgKey &key, GencfgEntry *out = nullptr);
  void clear();

 private:
  struct Hash {
    size_t operator()(const GencfgKey &k) const;
  };
  using Map = std::unordered_map<GencfgKey, GencfgEntry, Hash>;
  const std::vector<Slot> &index() const;
  size_t first_not_below(const GencfgKey &key) const;

  Map map_;
  mutable std::vector<Slot> order_;              // sorted by key; valid while indexed_
  mutable std::vector<const value_type *> new_;  // added since the last walk, unsorted
  mutable std::vector<Map::node_type> removed_;  // the pairs of the holes in order_
  mutable bool indexed_ = false;
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
  const GencfgStore &store() const;
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
