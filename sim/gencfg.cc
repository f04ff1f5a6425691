// The simulated kernel's generic configuration store: blobs keyed by major, minor and key, kept
// as they arrive and handed back in key order.  See the store's section of tarsim.hpp.
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "session.h"
#include "tarsim.hpp"

namespace tarsim {
namespace {

constexpr uint8_t kGencfgType = TLK_GENCFG_TYPE;
constexpr char kRefuser[] = "gencfg_get";

Kernel::GencfgKey key_of(const gencfg_msg &m) {
  Kernel::GencfgKey k;
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

Kernel::GencfgEntry entry_of(const gencfg_msg &m) {
  Kernel::GencfgEntry e;
  e.id = key_of(m);
  e.flags = m.flags;
  e.sub_id = m.sub_id;
  e.tag = m.tag;
  e.lrid = m.lrid;
  if (m.blob != nullptr) e.blob.assign(m.blob, m.blob + m.blob_len);
  if (m.peers != nullptr) e.peers.assign(m.peers, m.peers + m.peer_count);
  for (uint32_t i = 0; m.deps != nullptr && i < m.dep_count; ++i) {
    Kernel::GencfgDep d;
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
gencfg_msg message_of(const Kernel::GencfgEntry &e, uint8_t op, uint32_t seq,
                      std::vector<gencfg_depinfo> &deps) {
  gencfg_msg m{};
  m.gencfg_hdr.tlkh_version = TARVIK_VERSION_TABLE[kGencfgType];
  m.gencfg_hdr.tlkh_type = kGencfgType;
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
  for (const Kernel::GencfgDep &d : e.deps) {
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

bool same_type(const Kernel::GencfgKey &a, const Kernel::GencfgKey &b) {
  return a.major == b.major && a.minor == b.minor;
}

// A walk starts from nothing when the request names no key: an empty byte key, or no key flag.
bool walk_start(const gencfg_msg &m) {
  if (m.flags & TLK_GENCFG_KEY) return m.key_len == 0;
  return (m.flags & TLK_GENCFG_KID) == 0;
}

}  // namespace

// Major, minor, kind, numeric key, then the key bytes, a shorter key before any longer one that
// it begins.
std::strong_ordering Kernel::GencfgKey::operator<=>(const GencfgKey &o) const {
  if (major != o.major) return major <=> o.major;
  if (minor != o.minor) return minor <=> o.minor;
  if (kind != o.kind) return kind <=> o.kind;
  if (kid != o.kid) return kid <=> o.kid;
  const size_t n = std::min(key.size(), o.key.size());
  const int d = n == 0 ? 0 : memcmp(key.data(), o.key.data(), n);
  if (d != 0) return d < 0 ? std::strong_ordering::less : std::strong_ordering::greater;
  return key.size() <=> o.key.size();
}

Kernel::GencfgKey Kernel::gencfg_bytes_key(uint16_t major, uint16_t minor,
                                           std::span<const uint8_t> key) {
  GencfgKey k;
  k.major = major;
  k.minor = minor;
  k.kind = 2;
  k.key.assign(key.begin(), key.end());
  return k;
}

Kernel::GencfgKey Kernel::gencfg_numeric_key(uint16_t major, uint16_t minor, uint32_t kid) {
  GencfgKey k;
  k.major = major;
  k.minor = minor;
  k.kind = 1;
  k.kid = kid;
  return k;
}

const Kernel::GencfgEntry *Kernel::find_gencfg(const GencfgKey &key) const {
  auto it = gencfg_.find(key);
  return it == gencfg_.end() ? nullptr : &it->second;
}

void Kernel::gencfg_notify(uint8_t op, const GencfgEntry &entry, int except_fd) {
  if (!has_listener(kGencfgType, except_fd)) return;
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
  notify(kGencfgType, encode_frame(kGencfgType, &m, false), except_fd);
}

size_t Kernel::gencfg_change(uint8_t op, const GencfgEntry &entry) {
  if (op == TLK_OP_DELETE) {
    gencfg_.erase(entry.id);
  } else if (op == TLK_OP_ADD || op == TLK_OP_CHANGE) {
    gencfg_[entry.id] = entry;
  } else {
    return 0;
  }
  std::vector<gencfg_depinfo> deps;
  GencfgEntry sent = entry;
  if (op == TLK_OP_DELETE) sent.blob.clear();
  const gencfg_msg m = message_of(sent, op, 0, deps);
  return notify(kGencfgType, encode_frame(kGencfgType, &m, false));
}

void Kernel::answer_gencfg(Session &s, const gencfg_msg &req, bool tlv) {
  const uint8_t op = req.gencfg_hdr.tlkh_op;
  const uint32_t seq = req.gencfg_hdr.tlkh_seq;
  const int fd = s.lib_fd;
  std::vector<gencfg_depinfo> deps;
  auto reply = [&](const GencfgEntry &e) {
    const gencfg_msg m = message_of(e, op, seq, deps);
    deliver(s, encode_frame(kGencfgType, &m, tlv), true);
  };
  // Removes every blob of the request's major and minor that `match` accepts, each heard by the
  // listeners as a delete.
  auto remove_if = [&](auto match) {
    std::vector<GencfgEntry> gone;
    for (auto it = gencfg_.begin(); it != gencfg_.end();) {
      if (it->first.major == req.major && it->first.minor == req.minor && match(it->first)) {
        gone.push_back(std::move(it->second));
        it = gencfg_.erase(it);
      } else {
        ++it;
      }
    }
    for (const GencfgEntry &e : gone) gencfg_notify(TLK_OP_DELETE, e, fd);
  };

  switch (op) {
    case TLK_OP_ADD:
    case TLK_OP_CHANGE: {
      GencfgEntry e = entry_of(req);
      gencfg_notify(op, e, fd);
      gencfg_[e.id] = std::move(e);
      return;
    }
    case TLK_OP_DELETE: {
      auto it = gencfg_.find(key_of(req));
      if (it == gencfg_.end()) return;
      GencfgEntry gone = std::move(it->second);
      gencfg_.erase(it);
      gencfg_notify(TLK_OP_DELETE, gone, fd);
      return;
    }
    case TLK_OP_DELETEALL:
      remove_if([](const GencfgKey &) { return true; });
      return;
    case TLK_OP_GET: {
      const GencfgEntry *e = find_gencfg(key_of(req));
      if (e == nullptr) {
        answer_not_found(s, kGencfgType, op, seq, kRefuser);
      } else {
        reply(*e);
      }
      return;
    }
    case TLK_OP_GETNEXT: {
      const GencfgKey from = key_of(req);
      auto it = walk_start(req) ? gencfg_.lower_bound(GencfgKey{req.major, req.minor, 0, 0, {}})
                                : gencfg_.upper_bound(from);
      if (it == gencfg_.end() || !same_type(it->first, from)) {
        answer_not_found(s, kGencfgType, op, seq, kRefuser);
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
      gencfg_notify(op == TLK_OP_ADD_GET ? TLK_OP_ADD : TLK_OP_CHANGE, e, fd);
      const GencfgEntry &stored = gencfg_[e.id] = std::move(e);
      reply(stored);
      return;
    }
    default:
      return;  // nop and clear change nothing here
  }
}

}  // namespace tarsim
