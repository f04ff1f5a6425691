// Routes: one prefix store per (table, address family) over a path-compressed trie, the answers
// to framed "route" and "rtmatch" requests, and "route" notifications of adds and deletes.  See
// tarsim/routes.hpp for the contract.
#include <string.h>

#include <algorithm>
#include <map>
#include <unordered_map>

#include "../family.h"
#include "../lpm.h"
#include "../session.h"
#include "nexthops.h"
#include "tarsim/routes.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint8_t kAfInet = 2;
constexpr char kRefuser[] = "rt_get";
constexpr char kMatchRefuser[] = "rt_match";

unsigned max_bits(uint8_t af) {
  return af == kAfInet ? 32 : Lpm::kMaxBits;
}

uint32_t table_key(uint16_t tid, uint8_t af) {
  return uint32_t{tid} << 8 | af;
}

// Whole 32-bit words of a prefix, as requests carry it.
uint32_t wire_len(uint16_t plen) {
  return ((uint32_t{plen} + 31) / 32) * 4;
}

// A route's prefix from a request's bytes: bytes that the request lacks count as zero.
bool prefix_from(Route &r, const uint8_t *bytes, uint32_t len, uint32_t plen) {
  if (plen > max_bits(r.af)) return false;
  uint8_t buf[16] = {};
  if (bytes != nullptr) memcpy(buf, bytes, std::min<size_t>(len, sizeof buf));
  const Route clean = route_of(r.tid, r.af, buf, static_cast<uint16_t>(plen));
  r.plen = clean.plen;
  memcpy(r.prefix, clean.prefix, sizeof r.prefix);
  return true;
}

}  // namespace

class RouteFamily final : public Family {
 public:
  explicit RouteFamily(Host &host);

  // The route of exactly this prefix, or null.
  const Route *find(uint16_t tid, uint8_t af, const uint8_t *prefix, uint16_t plen) const;
  const Route *match(uint16_t tid, uint8_t af, const uint8_t *addr, uint16_t bits) const;
  // Stores `r` (its blobs copied); false if it replaced the route of its prefix.
  bool put(const Route &r, const Route **stored = nullptr);
  bool remove(uint16_t tid, uint8_t af, const uint8_t *prefix, uint16_t plen, int except_fd);
  void changed(const Route &r, uint8_t op, int except_fd);
  Bytes frame(const Route &r, uint8_t op, uint32_t seq, bool tlv) const;
  void walk(uint32_t key, Routes::Visit visit, void *arg) const;
  void walk_all(Routes::Visit visit, void *arg) const;
  size_t count(uint16_t tid, uint8_t af) const;
  size_t count() const { return routes_.size() - free_.size(); }
  void clear();

 private:
  // The blobs of the few routes that carry a gateway or an opaque block.
  struct Extra {
    Bytes gateway;
    Bytes opaque;
  };

  // Whether the kernel holds next hop `idx`: a forwarding table refuses a route to nowhere.
  bool next_hop_known(uint32_t idx) const { return nexthop_exists(host_, idx); }

  void seed();
  void answer_route(Session &s, const Frame &f);
  void answer_match(Session &s, const Frame &f);
  const Route *first_of_type(uint32_t key, uint8_t type) const;
  const Route *next_after(const Route &key, uint8_t type) const;

  Host &host_;
  std::map<uint32_t, Lpm> tables_;  // by table_key
  std::vector<Route> routes_;       // slots, named by the tries' values
  std::vector<uint32_t> free_;
  std::unordered_map<uint32_t, Extra> extras_;  // by slot
  uint16_t next_index_ = 0;
};

RouteFamily::RouteFamily(Host &host) : host_(host) {
  seed();
  host.answer_frames(TLK_MSG_ROUTE, [this](Session &s, const Frame &f) { answer_route(s, f); });
  host.answer_frames(TLK_MSG_RTMATCH, [this](Session &s, const Frame &f) { answer_match(s, f); });
}

void RouteFamily::seed() {
  constexpr uint8_t kIntf = 7, kUcst = 2, kLocl = 8, kInet6 = 28;
  auto inet = [&](uint32_t addr, uint16_t plen, uint8_t nh_type, uint32_t ifidx) {
    Route r = route_inet(0, addr, plen);
    r.type = kIntf;
    r.nh_type = nh_type;
    r.ifidx = ifidx;
    (void)put(r);
  };
  inet(0x0A000000, 24, kUcst, 70);
  inet(0x0A000001, 32, kLocl, 70);
  inet(0x0A010000, 24, kUcst, 80);
  inet(0x0A010001, 32, kLocl, 80);
  inet(0x7F000001, 32, kLocl, 16);
  auto inet6 = [&](std::initializer_list<uint8_t> bytes, uint16_t plen, uint8_t nh_type,
                   uint32_t ifidx) {
    uint8_t b[16] = {};
    std::copy(bytes.begin(), bytes.end(), b);
    Route r = route_of(0, kInet6, b, plen);
    r.type = kIntf;
    r.nh_type = nh_type;
    r.ifidx = ifidx;
    (void)put(r);
  };
  inet6({0x20, 0x01, 0x0d, 0xb8}, 64, kUcst, 70);
  inet6({0x20, 0x01, 0x0d, 0xb8, 0, 1}, 64, kUcst, 80);
  inet6({0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}, 128, kLocl, 16);
}

const Route *RouteFamily::find(uint16_t tid, uint8_t af, const uint8_t *prefix,
                               uint16_t plen) const {
  auto t = tables_.find(table_key(tid, af));
  if (t == tables_.end()) return nullptr;
  const uint32_t slot = t->second.find(prefix, plen);
  return slot == Lpm::kNone ? nullptr : &routes_[slot];
}

const Route *RouteFamily::match(uint16_t tid, uint8_t af, const uint8_t *addr,
                                uint16_t bits) const {
  auto t = tables_.find(table_key(tid, af));
  if (t == tables_.end()) return nullptr;
  const uint32_t slot = t->second.longest_match(addr, std::min<unsigned>(bits, max_bits(af)));
  return slot == Lpm::kNone ? nullptr : &routes_[slot];
}

bool RouteFamily::put(const Route &in, const Route **stored) {
  const Route clean = route_of(in.tid, in.af, in.prefix,
                               static_cast<uint16_t>(std::min<unsigned>(in.plen, max_bits(in.af))));
  Route r = in;
  r.plen = clean.plen;
  memcpy(r.prefix, clean.prefix, sizeof r.prefix);
  Lpm &trie = tables_[table_key(r.tid, r.af)];
  // The slot a new route would take, offered to the trie in the same walk that looks for the
  // prefix.
  uint32_t slot = free_.empty() ? static_cast<uint32_t>(routes_.size()) : free_.back();
  const uint32_t there = trie.emplace(r.prefix, r.plen, slot);
  const bool fresh = there == Lpm::kNone;
  if (fresh) {
    if (!free_.empty())
      free_.pop_back();
    else
      routes_.emplace_back();
    if (++next_index_ == 0) next_index_ = 1;
    r.index = next_index_;
  } else {
    slot = there;
    r.index = routes_[slot].index;
  }
  r.gateway = nullptr;
  r.opaque = nullptr;
  r.opaque_len = 0;
  if ((in.gateway != nullptr && in.gateway[0] != 0) || (in.opaque != nullptr && in.opaque_len)) {
    Extra &x = extras_[slot];
    x.gateway.assign(in.gateway, in.gateway + (in.gateway ? in.gateway[0] : 0));
    x.opaque.assign(in.opaque, in.opaque + (in.opaque ? in.opaque_len : 0));
    if (!x.gateway.empty()) r.gateway = x.gateway.data();
    if (!x.opaque.empty()) {
      r.opaque = x.opaque.data();
      r.opaque_len = static_cast<uint32_t>(x.opaque.size());
    }
  } else {
    extras_.erase(slot);
  }
  routes_[slot] = r;
  if (stored != nullptr) *stored = &routes_[slot];
  return fresh;
}

bool RouteFamily::remove(uint16_t tid, uint8_t af, const uint8_t *prefix, uint16_t plen,
                         int except_fd) {
  auto t = tables_.find(table_key(tid, af));
  if (t == tables_.end()) return false;
  const uint32_t slot = t->second.erase(prefix, plen);
  if (slot == Lpm::kNone) return false;
  changed(routes_[slot], TLK_OP_DELETE, except_fd);
  extras_.erase(slot);
  routes_[slot] = Route{};
  free_.push_back(slot);
  return true;
}

void RouteFamily::changed(const Route &r, uint8_t op, int except_fd) {
  if (!host_.has_listener(TLK_MSG_ROUTE, except_fd)) return;
  host_.notify(TLK_MSG_ROUTE, frame(r, op, 0, false), except_fd);
}

Bytes RouteFamily::frame(const Route &r, uint8_t op, uint32_t seq, bool tlv) const {
  rt_msg m{};
  m.rt_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_ROUTE];
  m.rt_hdr.tlkh_type = TLK_MSG_ROUTE;
  m.rt_hdr.tlkh_op = op;
  m.rt_hdr.tlkh_seq = seq;
  m.rt_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_rt_msg_0);
  m.tid = r.tid;
  m.af = r.af;
  m.type = r.type;
  m.nh_type = r.nh_type;
  m.nhflags = r.nhflags;
  m.opaque_kind = r.opaque_kind;
  m.ack_index = r.index;
  m.fwdnhidx.idx = r.fwdnhidx;
  m.nhidx.idx = r.nhidx;
  m.rtm_idx.idx = r.ifidx;
  m.flags = r.flags;
  m.rnh_info.rnhi_type = r.nh_info_kind;
  m.dflags = r.dflags;
  uint8_t bytes[16];
  memcpy(bytes, r.prefix, sizeof bytes);
  m.plen = r.plen;
  m.prefix = bytes;
  m.prefix_len = wire_len(r.plen);
  sockaddr_idl gw{};
  Bytes gw_bytes;
  if (r.gateway != nullptr) {
    gw_bytes.assign(r.gateway, r.gateway + r.gateway[0]);
    gw.sai_addr = gw_bytes.data();
    m.gateway = &gw;
    m.gateway_count = 1;
  }
  if (r.opaque != nullptr) {
    m.opaque = const_cast<uint8_t *>(r.opaque);
    m.opaque_len = r.opaque_len;
  }
  return encode_frame(TLK_MSG_ROUTE, &m, tlv);
}

size_t RouteFamily::count(uint16_t tid, uint8_t af) const {
  auto t = tables_.find(table_key(tid, af));
  return t == tables_.end() ? 0 : t->second.size();
}

void RouteFamily::walk(uint32_t key, Routes::Visit visit, void *arg) const {
  auto t = tables_.find(key);
  if (t == tables_.end()) return;
  struct Ctx {
    const RouteFamily *self;
    Routes::Visit visit;
    void *arg;
  } ctx{this, visit, arg};
  t->second.walk(
      [](uint32_t slot, void *a) {
        auto *c = static_cast<Ctx *>(a);
        c->visit(c->self->routes_[slot], c->arg);
      },
      &ctx);
}

void RouteFamily::walk_all(Routes::Visit visit, void *arg) const {
  for (const auto &[key, trie] : tables_) walk(key, visit, arg);
}

void RouteFamily::clear() {
  tables_.clear();
  routes_.clear();
  free_.clear();
  extras_.clear();
}

const Route *RouteFamily::first_of_type(uint32_t key, uint8_t type) const {
  auto t = tables_.find(key);
  if (t == tables_.end()) return nullptr;
  // In prefix order the default route, if any, comes first, then what follows it.
  const uint8_t zero[16] = {};
  uint32_t slot = t->second.find(zero, 0);
  if (slot == Lpm::kNone) slot = t->second.next(zero, 0);
  for (; slot != Lpm::kNone; slot = t->second.next(routes_[slot].prefix, routes_[slot].plen)) {
    if (routes_[slot].type == type) return &routes_[slot];
  }
  return nullptr;
}

const Route *RouteFamily::next_after(const Route &key, uint8_t type) const {
  auto t = tables_.find(table_key(key.tid, key.af));
  if (t == tables_.end()) return nullptr;
  uint32_t slot = t->second.next(key.prefix, key.plen);
  while (slot != Lpm::kNone) {
    const Route &r = routes_[slot];
    if (type == 0 || r.type == type) return &r;
    slot = t->second.next(r.prefix, r.plen);
  }
  return nullptr;
}

void RouteFamily::answer_route(Session &s, const Frame &f) {
  const auto &req = f.as<rt_msg>();
  const tlk_hdr &h = req.rt_hdr;
  Route key;
  key.tid = req.tid;
  key.af = req.af;
  const bool has_prefix = req.plen != 0 || req.prefix_len != 0;
  if (!prefix_from(key, req.prefix, req.prefix_len, req.plen)) {
    if (h.tlkh_op != TLK_OP_DELETE && h.tlkh_op != TLK_OP_ADD)
      host_.refuse_not_found(s, TLK_MSG_ROUTE, h.tlkh_op, h.tlkh_seq, kRefuser);
    return;
  }
  switch (h.tlkh_op) {
    case TLK_OP_ADD:
    case TLK_OP_ADD_GET: {
      if (req.nhidx.idx != tlk_platform_get()->null_nh_idx && !next_hop_known(req.nhidx.idx)) {
        host_.refuse_not_found(s, TLK_MSG_ROUTE, h.tlkh_op, h.tlkh_seq, kRefuser);
        return;
      }
      Route r = key;
      r.type = req.type;
      r.nh_type = req.nh_type;
      r.nhflags = static_cast<uint32_t>(req.nhflags);
      r.nhidx = req.nhidx.idx;
      r.fwdnhidx = req.fwdnhidx.idx;
      r.ifidx = req.rtm_idx.idx;
      r.flags = static_cast<uint32_t>(req.flags);
      r.nh_info_kind = req.rnh_info.rnhi_type;
      r.opaque_kind = req.opaque_kind;
      r.dflags = req.dflags;
      if (req.gateway != nullptr && req.gateway_count > 0) r.gateway = req.gateway[0].sai_addr;
      r.opaque = req.opaque;
      r.opaque_len = req.opaque_len;
      const Route *stored = nullptr;
      (void)put(r, &stored);
      const Route copy = *stored;
      changed(copy, TLK_OP_ADD, s.lib_fd);
      if (h.tlkh_op == TLK_OP_ADD_GET) host_.reply(s, frame(copy, h.tlkh_op, h.tlkh_seq, f.tlv));
      return;
    }
    case TLK_OP_DELETE:
      (void)remove(key.tid, key.af, key.prefix, key.plen, s.lib_fd);
      return;
    case TLK_OP_GET:
    case TLK_OP_GETNEXT: {
      const Route *found = nullptr;
      if (h.tlkh_op == TLK_OP_GETNEXT)
        found = next_after(key, req.type);
      else if (!has_prefix && req.type != 0)
        found = first_of_type(table_key(key.tid, key.af), req.type);
      else
        found = find(key.tid, key.af, key.prefix, key.plen);
      if (found == nullptr) {
        host_.refuse_not_found(s, TLK_MSG_ROUTE, h.tlkh_op, h.tlkh_seq, kRefuser);
        return;
      }
      host_.reply(s, frame(*found, h.tlkh_op, h.tlkh_seq, f.tlv));
      return;
    }
    default:
      return;  // other ops change nothing here and draw no reply
  }
}

void RouteFamily::answer_match(Session &s, const Frame &f) {
  const auto &req = f.as<rtm_msg>();
  const tlk_hdr &h = req.rtm_hdr;
  Route key;
  key.tid = req.tid;
  key.af = req.af;
  const Route *found = nullptr;
  if (prefix_from(key, req.prefix.prefix, req.prefix.prefix_len, req.prefix.plen))
    found = match(key.tid, key.af, key.prefix, key.plen);
  if (found == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_RTMATCH, h.tlkh_op, h.tlkh_seq, kMatchRefuser);
    return;
  }
  host_.reply(s, frame(*found, h.tlkh_op, h.tlkh_seq, f.tlv));
}

namespace {
const FamilySlot<RouteFamily> kRoutes("routes");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

Route route_of(uint16_t tid, uint8_t af, const void *bytes, uint16_t plen) {
  Route r;
  r.tid = tid;
  r.af = af;
  r.plen = std::min<uint16_t>(plen, internal::Lpm::kMaxBits);
  const size_t n = (size_t{r.plen} + 7) / 8;
  if (bytes != nullptr && n != 0) memcpy(r.prefix, bytes, n);
  if (r.plen % 8 != 0) r.prefix[n - 1] &= static_cast<uint8_t>(0xFF << (8 - r.plen % 8));
  return r;
}

Route route_inet(uint16_t tid, uint32_t addr, uint16_t plen) {
  const uint8_t b[4] = {static_cast<uint8_t>(addr >> 24), static_cast<uint8_t>(addr >> 16),
                        static_cast<uint8_t>(addr >> 8), static_cast<uint8_t>(addr)};
  return route_of(tid, internal::kAfInet, b, std::min<uint16_t>(plen, 32));
}

Routes Kernel::routes() {
  return Routes(&internal::kRoutes.in(*impl_));
}
const Routes Kernel::routes() const {
  return Routes(&internal::kRoutes.in(*impl_));
}

bool Routes::add(const Route &r) {
  return family_->put(r);
}

bool Routes::create(const Route &r) {
  const Route *stored = nullptr;
  const bool fresh = family_->put(r, &stored);
  family_->changed(*stored, TLK_OP_ADD, -1);
  return fresh;
}

bool Routes::destroy(uint16_t tid, uint8_t af, const void *prefix, uint16_t plen) {
  const Route key = route_of(tid, af, prefix, plen);
  return family_->remove(tid, af, key.prefix, key.plen, -1);
}

const Route *Routes::find(uint16_t tid, uint8_t af, const void *prefix, uint16_t plen) const {
  const Route key = route_of(tid, af, prefix, plen);
  return family_->find(tid, af, key.prefix, key.plen);
}

const Route *Routes::match(uint16_t tid, uint8_t af, const void *addr, uint16_t bits) const {
  const Route key = route_of(tid, af, addr, bits);
  return family_->match(tid, af, key.prefix, key.plen);
}

size_t Routes::count(uint16_t tid, uint8_t af) const {
  return family_->count(tid, af);
}
size_t Routes::count() const {
  return family_->count();
}
void Routes::walk(uint16_t tid, uint8_t af, Visit visit, void *arg) const {
  family_->walk(internal::table_key(tid, af), visit, arg);
}
void Routes::walk_all(Visit visit, void *arg) const {
  family_->walk_all(visit, arg);
}
void Routes::clear() {
  family_->clear();
}

}  // namespace tarsim
