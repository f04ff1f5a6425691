// Generic configuration: blobs keyed by major, minor and key, kept as they arrive and handed
// back in key order.  See tarsim/gencfg.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <vector>

#include "../family.h"
#include "../session.h"
#include "dfw_heads.h"
#include "tarsim/gencfg.hpp"
#include "tarsim/ifl.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr char kRefuser[] = "gencfg_get";

GencfgKey key_of(const gencfg_msg &m) {
  GencfgKey k;
  k.major = m.major;
  k.minor = m.minor;
  if (m.flags & TLK_GENCFG_KEY) {
    k.kind = 2;
    if (m.key != nullptr) k.key.assign(m.key, m.key + m.key_len);
  } else if (m.flags & TLK_GENCFG_KID) {
    k.kind = 1;
    k.kid = m.kid;
  }
  return k;
}

GencfgEntry entry_of(const gencfg_msg &m) {
  GencfgEntry e;
  e.id = key_of(m);
  e.flags = m.flags;
  e.sub_id = m.sub_id;
  e.tag = m.tag;
  e.lrid = m.lrid;
  if (m.blob != nullptr) e.blob.assign(m.blob, m.blob + m.blob_len);
  if (m.peers != nullptr) e.peers.assign(m.peers, m.peers + m.peer_count);
  for (uint32_t i = 0; m.deps != nullptr && i < m.dep_count; ++i) {
    GencfgDep d;
    d.info = m.deps[i];
    if (d.info.dep_key != nullptr)
      d.key.assign(d.info.dep_key, d.info.dep_key + d.info.dep_key_len);
    d.info.dep_key = nullptr;
    d.info.dep_key_len = 0;
    e.deps.push_back(std::move(d));
  }
  return e;
}

// A gencfg_msg that points into `e` (and into `deps`, the dependency list with its key pointers
// rebuilt); valid while both live.
gencfg_msg message_of(const GencfgEntry &e, uint8_t op, uint32_t seq,
                      std::vector<gencfg_depinfo> &deps) {
  gencfg_msg m{};
  m.gencfg_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_GENCFG];
  m.gencfg_hdr.tlkh_type = TLK_MSG_GENCFG;
  m.gencfg_hdr.tlkh_op = op;
  m.gencfg_hdr.tlkh_seq = seq;
  m.gencfg_hdr.tlkh_fixedlen = static_cast<uint16_t>(sizeof(gencfg_msg));
  m.gencfg_hdr.tlkh_msglen = sizeof(gencfg_msg);
  m.major = e.id.major;
  m.minor = e.id.minor;
  m.flags = e.flags;
  m.sub_id = e.sub_id;
  m.tag = e.tag;
  m.lrid = e.lrid;
  if (e.id.kind == 1) m.kid = e.id.kid;
  if (!e.id.key.empty()) {
    m.key = const_cast<uint8_t *>(e.id.key.data());
    m.key_len = static_cast<uint32_t>(e.id.key.size());
  }
  if (!e.blob.empty()) {
    m.blob = const_cast<uint8_t *>(e.blob.data());
    m.blob_len = static_cast<uint32_t>(e.blob.size());
  }
  if (!e.peers.empty()) {
    m.peers = const_cast<gencfg_peerinfo *>(e.peers.data());
    m.peer_count = static_cast<uint32_t>(e.peers.size());
  }
  deps.clear();
  for (const GencfgDep &d : e.deps) {
    gencfg_depinfo info = d.info;
    if (!d.key.empty()) {
      info.dep_key = const_cast<uint8_t *>(d.key.data());
      info.dep_key_len = static_cast<uint32_t>(d.key.size());
    }
    deps.push_back(info);
  }
  if (!deps.empty()) {
    m.deps = deps.data();
    m.dep_count = static_cast<uint32_t>(deps.size());
  }
  return m;
}

// The interface sets the store starts with: blobs of major 10, minor 0, keyed by the set's index
// in network order, each the TLV form of an iflset_blob.
void seed_iflsets(GencfgStore &store) {
  constexpr uint16_t kIflsetMajor = 10, kIflsetMinor = 0;
  for (const IflsetSeed &seed : iflset_seeds()) {
    iflset_blob set{};
    set.iflset_index = seed.index;
    set.iflset_devidx = seed.devidx;
    set.iflset_dynamic = seed.dynamic ? 1 : 0;
    strncpy(reinterpret_cast<char *>(set.iflset_name), seed.name, sizeof set.iflset_name - 1);
    strncpy(reinterpret_cast<char *>(set.iflset_ifname), seed.ifname, sizeof set.iflset_ifname - 1);
    GencfgEntry e;
    const uint8_t key[4] = {
        static_cast<uint8_t>(seed.index >> 24), static_cast<uint8_t>(seed.index >> 16),
        static_cast<uint8_t>(seed.index >> 8), static_cast<uint8_t>(seed.index)};
    e.id = Gencfg::bytes_key(kIflsetMajor, kIflsetMinor, key);
    e.flags = TLK_GENCFG_KEY;
    e.blob.resize(tlv_encode_iflset_blob_0(&set, nullptr, nullptr, 0));
    (void)tlv_encode_iflset_blob_0(&set, nullptr, e.blob.data(),
                                   static_cast<uint32_t>(e.blob.size()));
    store.put(std::move(e));
  }
}

bool same_type(const GencfgKey &a, const GencfgKey &b) {
  return a.major == b.major && a.minor == b.minor;
}

// A walk starts from nothing when the request names no key: an empty byte key, or no key flag.
bool walk_start(const gencfg_msg &m) {
  if (m.flags & TLK_GENCFG_KEY) return m.key_len == 0;
  return (m.flags & TLK_GENCFG_KID) == 0;
}

}  // namespace

class GencfgFamily final : public Family {
 public:
  explicit GencfgFamily(Host &host) : host_(host) {
    seed_iflsets(store);
    seed_filter_heads(store);
    host.answer_sysctl(TLK_GENCFG_PEERMASK_SYSCTL, [this] {
      Bytes value(sizeof peermask);
      memcpy(value.data(), &peermask, sizeof peermask);
      return value;
    });
    host.answer_frames(TLK_MSG_GENCFG, [this](Session &s, const Frame &f) {
      answer(s, f.as<gencfg_msg>(), f.tlv);
    });
  }

  const GencfgEntry *find(const GencfgKey &key) const { return store.find(key); }
  size_t change(uint8_t op, const GencfgEntry &entry);

  GencfgStore store;
  uint32_t peermask = 0;

 private:
  void notify(uint8_t op, const GencfgEntry &entry, int except_fd);
  void answer(Session &s, const gencfg_msg &req, bool tlv);

  Host &host_;
};

void GencfgFamily::notify(uint8_t op, const GencfgEntry &entry, int except_fd) {
  if (!host_.has_listener(TLK_MSG_GENCFG, except_fd)) return;
  std::vector<gencfg_depinfo> deps;
  GencfgEntry sent;
  const GencfgEntry *what = &entry;
  if (op == TLK_OP_DELETE) {
    // A delete names the blob; the blob itself is gone.
    sent.id = entry.id;
    sent.flags = entry.flags;
    sent.sub_id = entry.sub_id;
    sent.tag = entry.tag;
    sent.lrid = entry.lrid;
    what = &sent;
  }
  const gencfg_msg m = message_of(*what, op, 0, deps);
  host_.notify(TLK_MSG_GENCFG, encode_frame(TLK_MSG_GENCFG, &m, false), except_fd);
}

size_t GencfgFamily::change(uint8_t op, const GencfgEntry &entry) {
  if (op == TLK_OP_DELETE) {
    store.erase(entry.id);
  } else if (op == TLK_OP_ADD || op == TLK_OP_CHANGE) {
    store.put(GencfgEntry(entry));
  } else {
    return 0;
  }
  std::vector<gencfg_depinfo> deps;
  GencfgEntry sent = entry;
  if (op == TLK_OP_DELETE) sent.blob.clear();
  const gencfg_msg m = message_of(sent, op, 0, deps);
  return host_.notify(TLK_MSG_GENCFG, encode_frame(TLK_MSG_GENCFG, &m, false), -1);
}

void GencfgFamily::answer(Session &s, const gencfg_msg &req, bool tlv) {
  const uint8_t op = req.gencfg_hdr.tlkh_op;
  const uint32_t seq = req.gencfg_hdr.tlkh_seq;
  const int fd = s.lib_fd;
  std::vector<gencfg_depinfo> deps;
  auto reply = [&](const GencfgEntry &e) {
    const gencfg_msg m = message_of(e, op, seq, deps);
    host_.reply(s, encode_frame(TLK_MSG_GENCFG, &m, tlv));
  };
  // Removes every blob of the request's major and minor that `match` accepts, each heard by the
  // listeners as a delete.
  auto remove_if = [&](auto match) {
    std::vector<GencfgEntry> gone;
    for (auto it = store.lower_bound(GencfgKey{req.major, req.minor, 0, 0, {}});
         it != store.end() && it->first.major == req.major && it->first.minor == req.minor; ++it) {
      if (match(it->first)) gone.push_back(it->second);
    }
    for (const GencfgEntry &e : gone) store.erase(e.id);
    for (const GencfgEntry &e : gone) notify(TLK_OP_DELETE, e, fd);
  };

  switch (op) {
    case TLK_OP_ADD:
    case TLK_OP_CHANGE: {
      GencfgEntry e = entry_of(req);
      notify(op, e, fd);
      store.put(std::move(e));
      return;
    }
    case TLK_OP_DELETE: {
      GencfgEntry gone;
      if (!store.erase(key_of(req), &gone)) return;
      notify(TLK_OP_DELETE, gone, fd);
      return;
    }
    case TLK_OP_DELETEALL:
      remove_if([](const GencfgKey &) { return true; });
      return;
    case TLK_OP_GET: {
      const GencfgEntry *e = find(key_of(req));
      if (e == nullptr) {
        host_.refuse_not_found(s, TLK_MSG_GENCFG, op, seq, kRefuser);
      } else {
        reply(*e);
      }
      return;
    }
    case TLK_OP_GETNEXT: {
      const GencfgKey from = key_of(req);
      auto it = walk_start(req) ? store.lower_bound(GencfgKey{req.major, req.minor, 0, 0, {}})
                                : store.upper_bound(from);
      if (it == store.end() || !same_type(it->first, from)) {
        host_.refuse_not_found(s, TLK_MSG_GENCFG, op, seq, kRefuser);
      } else {
        reply(it->second);
      }
      return;
    }
    case TLK_OP_ADD_GET:
    case TLK_OP_CHG_GET: {
      if (op == TLK_OP_CHG_GET && (req.flags & TLK_GENCFG_BULK_DELETE)) {
        remove_if([](const GencfgKey &) { return true; });
        reply(entry_of(req));
        return;
      }
      if (op == TLK_OP_CHG_GET && (req.flags & TLK_GENCFG_PREFIX_DELETE)) {
        const Bytes prefix = key_of(req).key;
        remove_if([&](const GencfgKey &k) {
          return k.kind == 2 && k.key.size() >= prefix.size() &&
                 std::equal(prefix.begin(), prefix.end(), k.key.begin());
        });
        reply(entry_of(req));
        return;
      }
      GencfgEntry e = entry_of(req);
      notify(op == TLK_OP_ADD_GET ? TLK_OP_ADD : TLK_OP_CHANGE, e, fd);
      const GencfgEntry &stored = store.put(std::move(e));
      reply(stored);
      return;
    }
    default:
      return;  // nop and clear change nothing here
  }
}

namespace {
const FamilySlot<GencfgFamily> kGencfg("gencfg");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

// --- The store ----------------------------------------------------------------------------

// The numeric key is added, not mixed in: consecutive numbers, the common way a writer numbers
// its blobs, then land in consecutive buckets, and a run of adds touches memory in order instead
// of one cold bucket and node each.
size_t GencfgStore::Hash::operator()(const GencfgKey &k) const {
  uint64_t h = uint64_t{k.major} | uint64_t{k.minor} << 16 | uint64_t{k.kind} << 32;
  for (uint8_t b : k.key) h = (h ^ b) * 0x100000001B3ull;
  h ^= h >> 29;
  h *= 0xBF58476D1CE4E5B9ull;
  h ^= h >> 32;
  return static_cast<size_t>(h + k.kid);
}

const std::vector<GencfgStore::Slot> &GencfgStore::index() const {
  auto before = [](const Slot &a, const Slot &b) { return a.pair->first < b.pair->first; };
  if (!indexed_) {
    order_.clear();
    order_.reserve(map_.size());
    for (const value_type &p : map_) order_.push_back({&p, false});
    std::sort(order_.begin(), order_.end(), before);
    new_.clear();
    indexed_ = true;
  } else if (!new_.empty()) {
    const size_t old = order_.size();
    for (const value_type *p : new_) order_.push_back({p, false});
    new_.clear();
    std::sort(order_.begin() + static_cast<std::ptrdiff_t>(old), order_.end(), before);
    std::inplace_merge(order_.begin(), order_.begin() + static_cast<std::ptrdiff_t>(old),
                       order_.end(), before);
  }
  return order_;
}

size_t GencfgStore::first_not_below(const GencfgKey &key) const {
  const std::vector<Slot> &o = index();
  return static_cast<size_t>(
      std::lower_bound(o.begin(), o.end(), key,
                       [](const Slot &s, const GencfgKey &k) { return s.pair->first < k; }) -
      o.begin());
}

GencfgStore::const_iterator GencfgStore::begin() const {
  const std::vector<Slot> &o = index();
  return const_iterator(o.data(), o.data() + o.size());
}
GencfgStore::const_iterator GencfgStore::end() const {
  const std::vector<Slot> &o = index();
  return const_iterator(o.data() + o.size(), o.data() + o.size());
}
GencfgStore::const_iterator GencfgStore::lower_bound(const GencfgKey &key) const {
  const size_t at = first_not_below(key);
  return const_iterator(order_.data() + at, order_.data() + order_.size());
}
GencfgStore::const_iterator GencfgStore::upper_bound(const GencfgKey &key) const {
  const std::vector<Slot> &o = index();
  const auto at = std::upper_bound(
      o.begin(), o.end(), key, [](const GencfgKey &k, const Slot &s) { return k < s.pair->first; });
  return const_iterator(o.data() + (at - o.begin()), o.data() + o.size());
}

const GencfgEntry *GencfgStore::find(const GencfgKey &key) const {
  auto it = map_.find(key);
  return it == map_.end() ? nullptr : &it->second;
}

GencfgEntry &GencfgStore::put(GencfgEntry &&entry) {
  // The pair's key is copied from the entry before the entry is moved into it; an existing key
  // leaves `entry` untouched for the assignment.
  auto [it, fresh] = map_.try_emplace(entry.id, std::move(entry));
  if (!fresh) it->second = std::move(entry);
  if (fresh && indexed_) new_.push_back(&*it);
  return it->second;
}

bool GencfgStore::erase(const GencfgKey &key, GencfgEntry *out) {
  auto it = map_.find(key);
  if (it == map_.end()) return false;
  if (out != nullptr) *out = std::move(it->second);
  if (!indexed_) {
    map_.erase(it);
    return true;
  }
  // The pair stays alive, set aside, while its slot in the index is a hole: the slot's key is
  // still compared by searches.
  for (size_t i = first_not_below(key); i < order_.size(); ++i) {
    if (order_[i].pair == &*it) {
      order_[i].gone = true;
      break;
    }
  }
  removed_.push_back(map_.extract(it));
  if (removed_.size() * 2 > order_.size()) {
    std::erase_if(order_, [](const Slot &s) { return s.gone; });
    removed_.clear();
  }
  return true;
}

void GencfgStore::clear() {
  order_.clear();
  new_.clear();
  removed_.clear();
  map_.clear();
  indexed_ = false;
}

Gencfg Kernel::gencfg() {
  return Gencfg(&internal::kGencfg.in(*impl_));
}
const Gencfg Kernel::gencfg() const {
  return Gencfg(&internal::kGencfg.in(*impl_));
}

const GencfgEntry *Gencfg::find(const GencfgKey &key) const {
  return family_->find(key);
}
const GencfgStore &Gencfg::store() const {
  return family_->store;
}
size_t Gencfg::size() const {
  return family_->store.size();
}
void Gencfg::clear() {
  family_->store.clear();
}
size_t Gencfg::change(uint8_t op, const GencfgEntry &entry) {
  return family_->change(op, entry);
}
void Gencfg::set_peermask(uint32_t value) {
  family_->peermask = value;
}
uint32_t Gencfg::peermask() const {
  return family_->peermask;
}

}  // namespace tarsim
