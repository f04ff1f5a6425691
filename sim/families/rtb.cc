// Route tables and named table classes: the stores, the answers to framed "rttable" and
// "rt class" requests, and the notifications of each change.  See tarsim/rtb.hpp for the
// contract.
#include <string.h>

#include <algorithm>
#include <tuple>

#include "../family.h"
#include "../session.h"
#include "tarsim/rtb.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint8_t kInet = 2, kInet6 = 28;
constexpr uint16_t kTidByName = 65535;
constexpr uint16_t kDefaultTable = 8;
constexpr uint32_t kSvcsChanType = 104;
constexpr char kTableRefuser[] = "rtb_get";
constexpr char kClassRefuser[] = "ntbl_get";

std::string text_of(const uint8_t *p, uint32_t len) {
  if (p == nullptr || len == 0) return {};
  const auto *s = reinterpret_cast<const char *>(p);
  return std::string(s, strnlen(s, len));
}

bool before(const RouteTable &a, uint16_t tid, uint8_t af) {
  return std::tuple(a.tid, a.af) < std::tuple(tid, af);
}

// The services channel of a request's attachments: the last word of a selector 104 item.
bool channel_of(const rtb_msg &req, uint32_t *channel) {
  const tlk_hdr &h = req.rtb_hdr;
  for (uint32_t i = 0; h.tlkh_info != nullptr && i < h.tlkh_info_len; ++i) {
    const tlk_msg_info *item = h.tlkh_info[i];
    if (item != nullptr && item->tlkmi_type == kSvcsChanType) {
      *channel = item->tlkmi_u.iftlv_type_id_idx_seq.itiis_idx;
      return true;
    }
  }
  return false;
}

}  // namespace

class RtbFamily final : public Family {
 public:
  explicit RtbFamily(Host &host);

  void add(const RouteTable &t);
  bool remove(uint16_t tid, uint8_t af);
  RouteTable *find(uint16_t tid, uint8_t af);
  RouteTable *find_name(uint8_t af, const std::string &name);
  void add_class(const RouteClass &k);
  bool remove_class(uint16_t idx);
  RouteClass *find_class(uint16_t idx);
  RouteClass *find_class_name(const std::string &name);

  void table_changed(const RouteTable &t, uint8_t op, int except_fd);
  void class_changed(const RouteClass &k, uint8_t op, int except_fd);

  std::vector<RouteTable> tables;   // in (tid, af) order
  std::vector<RouteClass> classes;  // in index order

 private:
  Bytes table_frame(const RouteTable &t, uint8_t op, uint32_t seq, bool tlv) const;
  Bytes class_frame(const RouteClass &k, uint8_t op, uint32_t seq, bool tlv) const;
  void answer_table(Session &s, const Frame &f);
  void write_table(Session &s, const rtb_msg &req);
  void answer_class(Session &s, const Frame &f);
  void write_class(Session &s, const ntbl_msg &req);
  const RouteClass *next_class(const ntbl_msg &req);

  Host &host_;
};

RtbFamily::RtbFamily(Host &host) : host_(host) {
  for (const uint8_t af : {kInet, kInet6}) {
    RouteTable t;
    t.tid = 0;
    t.af = af;
    t.name = "default";
    t.lrname = "null";
    t.flags = kDefaultTable;
    t.prflags = 1;
    add(t);
  }
  add_class({1, kInet, "gold"});
  add_class({2, kInet, "silver"});
  host.answer_frames(TLK_MSG_RTTABLE, [this](Session &s, const Frame &f) { answer_table(s, f); });
  host.answer_frames(TLK_MSG_RT_CLASS, [this](Session &s, const Frame &f) { answer_class(s, f); });
}

void RtbFamily::add(const RouteTable &t) {
  auto it = std::lower_bound(
      tables.begin(), tables.end(), t,
      [](const RouteTable &x, const RouteTable &y) { return before(x, y.tid, y.af); });
  if (it != tables.end() && it->tid == t.tid && it->af == t.af) {
    *it = t;
  } else {
    tables.insert(it, t);
  }
}

bool RtbFamily::remove(uint16_t tid, uint8_t af) {
  auto it = std::find_if(tables.begin(), tables.end(),
                         [&](const RouteTable &t) { return t.tid == tid && t.af == af; });
  if (it == tables.end()) return false;
  tables.erase(it);
  return true;
}

RouteTable *RtbFamily::find(uint16_t tid, uint8_t af) {
  for (RouteTable &t : tables)
    if (t.tid == tid && t.af == af) return &t;
  return nullptr;
}

RouteTable *RtbFamily::find_name(uint8_t af, const std::string &name) {
  for (RouteTable &t : tables)
    if (t.af == af && t.name == name) return &t;
  return nullptr;
}

void RtbFamily::add_class(const RouteClass &k) {
  auto it = std::lower_bound(classes.begin(), classes.end(), k.idx,
                             [](const RouteClass &x, uint16_t idx) { return x.idx < idx; });
  if (it != classes.end() && it->idx == k.idx) {
    *it = k;
  } else {
    classes.insert(it, k);
  }
}

bool RtbFamily::remove_class(uint16_t idx) {
  auto it = std::find_if(classes.begin(), classes.end(),
                         [&](const RouteClass &k) { return k.idx == idx; });
  if (it == classes.end()) return false;
  classes.erase(it);
  return true;
}

RouteClass *RtbFamily::find_class(uint16_t idx) {
  for (RouteClass &k : classes)
    if (k.idx == idx) return &k;
  return nullptr;
}

RouteClass *RtbFamily::find_class_name(const std::string &name) {
  for (RouteClass &k : classes)
    if (k.name == name) return &k;
  return nullptr;
}

Bytes RtbFamily::table_frame(const RouteTable &t, uint8_t op, uint32_t seq, bool tlv) const {
  rtb_msg m{};
  m.rtb_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_RTTABLE];
  m.rtb_hdr.tlkh_type = TLK_MSG_RTTABLE;
  m.rtb_hdr.tlkh_op = op;
  m.rtb_hdr.tlkh_seq = seq;
  m.rtb_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_rtb_msg_0);
  m.tid = t.tid;
  m.af = t.af;
  m.rtb_flags = t.flags;
  m.prflags = t.prflags;
  m.lrid = t.lrid;
  m.rtb_index.idx = t.index;
  m.rtb_arg_a.idx = t.arg_a;
  m.rtb_arg_b = t.arg_b;
  std::string name = t.name, lrname = t.lrname;
  name.push_back('\0');
  lrname.push_back('\0');
  m.rtb_name = reinterpret_cast<uint8_t *>(name.data());
  m.rtb_name_len = static_cast<uint32_t>(name.size());
  m.lrname = reinterpret_cast<uint8_t *>(lrname.data());
  m.lrname_len = static_cast<uint32_t>(lrname.size());
  return encode_frame(TLK_MSG_RTTABLE, &m, tlv);
}

Bytes RtbFamily::class_frame(const RouteClass &k, uint8_t op, uint32_t seq, bool tlv) const {
  ntbl_msg m{};
  m.ntbl_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_RT_CLASS];
  m.ntbl_hdr.tlkh_type = TLK_MSG_RT_CLASS;
  m.ntbl_hdr.tlkh_op = op;
  m.ntbl_hdr.tlkh_seq = seq;
  m.ntbl_hdr.tlkh_fixedlen = static_cast<uint16_t>(tlv_rtti_sizeof_ntbl_msg_0);
  m.idx = k.idx;
  m.af = k.af;
  std::string name = k.name;
  name.push_back('\0');
  m.ntbl_name = reinterpret_cast<uint8_t *>(name.data());
  m.ntbl_name_len = static_cast<uint32_t>(name.size());
  return encode_frame(TLK_MSG_RT_CLASS, &m, tlv);
}

void RtbFamily::table_changed(const RouteTable &t, uint8_t op, int except_fd) {
  if (!host_.has_listener(TLK_MSG_RTTABLE, except_fd)) return;
  host_.notify(TLK_MSG_RTTABLE, table_frame(t, op, 0, false), except_fd);
}

void RtbFamily::class_changed(const RouteClass &k, uint8_t op, int except_fd) {
  if (!host_.has_listener(TLK_MSG_RT_CLASS, except_fd)) return;
  host_.notify(TLK_MSG_RT_CLASS, class_frame(k, op, 0, false), except_fd);
}

void RtbFamily::write_table(Session &s, const rtb_msg &req) {
  const uint8_t op = req.rtb_hdr.tlkh_op;
  if (op == TLK_OP_DELETE) {
    const RouteTable *t = find(req.tid, req.af);
    if (t == nullptr) return;
    const RouteTable gone = *t;
    remove(gone.tid, gone.af);
    table_changed(gone, TLK_OP_DELETE, s.lib_fd);
    return;
  }
  if (op != TLK_OP_ADD && op != TLK_OP_CHANGE) return;
  const std::string name = text_of(req.rtb_name, req.rtb_name_len);
  const std::string lrname = text_of(req.lrname, req.lrname_len);
  RouteTable *t = find(req.tid, req.af);
  if (t == nullptr) {
    if (op != TLK_OP_ADD) return;  // nothing to change, and nothing answers
    RouteTable fresh;
    fresh.tid = req.tid;
    fresh.af = req.af;
    add(fresh);
    t = find(req.tid, req.af);
    t->name = name;
    t->lrname = lrname;
    t->lrid = req.lrid;
    t->flags = req.rtb_flags;
    t->prflags = req.prflags;
    t->hdr_flags = req.rtb_hdr.tlkh_flags;
    t->index = req.rtb_index.idx;
    t->arg_a = req.rtb_arg_a.idx;
    t->arg_b = req.rtb_arg_b;
    (void)channel_of(req, &t->channel);
    table_changed(*t, TLK_OP_ADD, s.lib_fd);
    return;
  }
  if (req.rtb_name != nullptr) t->name = name;
  if (req.lrname != nullptr) t->lrname = lrname;
  if (req.prflags != 0) t->prflags = req.prflags;
  if (req.lrid != 0) t->lrid = req.lrid;
  if (req.rtb_index.idx != 0 || req.rtb_arg_a.idx != 0 || req.rtb_arg_b != 0) {
    t->index = req.rtb_index.idx;
    t->arg_a = req.rtb_arg_a.idx;
    t->arg_b = req.rtb_arg_b;
  }
  (void)channel_of(req, &t->channel);
  table_changed(*t, TLK_OP_CHANGE, s.lib_fd);
}

void RtbFamily::answer_table(Session &s, const Frame &f) {
  const auto &req = f.as<rtb_msg>();
  const tlk_hdr &hdr = f.hdr();
  if (hdr.tlkh_op == TLK_OP_ADD || hdr.tlkh_op == TLK_OP_CHANGE || hdr.tlkh_op == TLK_OP_DELETE) {
    write_table(s, req);
    return;
  }
  if (hdr.tlkh_op != TLK_OP_GET && hdr.tlkh_op != TLK_OP_GETNEXT) return;
  const RouteTable *t = nullptr;
  if (hdr.tlkh_op == TLK_OP_GETNEXT) {
    for (const RouteTable &x : tables) {
      if (before(x, req.tid, req.af) || (x.tid == req.tid && x.af == req.af)) continue;
      t = &x;
      break;
    }
  } else if (req.tid == kTidByName) {
    t = find_name(req.af, text_of(req.rtb_name, req.rtb_name_len));
  } else {
    t = find(req.tid, req.af);
  }
  if (t == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_RTTABLE, hdr.tlkh_op, hdr.tlkh_seq, kTableRefuser);
    return;
  }
  host_.reply(s, table_frame(*t, hdr.tlkh_op, hdr.tlkh_seq, f.tlv));
}

void RtbFamily::write_class(Session &s, const ntbl_msg &req) {
  const std::string name = text_of(req.ntbl_name, req.ntbl_name_len);
  if (req.ntbl_hdr.tlkh_op == TLK_OP_DELETE) {
    const RouteClass *k = req.ntbl_name != nullptr ? find_class_name(name) : find_class(req.idx);
    if (k == nullptr) return;
    const RouteClass gone = *k;
    remove_class(gone.idx);
    class_changed(gone, TLK_OP_DELETE, s.lib_fd);
    return;
  }
  RouteClass k{req.idx, req.af, name};
  if (k.idx == 0) {
    if (find_class_name(name) != nullptr) return;  // already held under its own index
    k.idx = 1;
    while (find_class(k.idx) != nullptr) ++k.idx;  // the lowest free index
  }
  const bool known = find_class(k.idx) != nullptr;
  add_class(k);
  class_changed(k, known ? TLK_OP_CHANGE : TLK_OP_ADD, s.lib_fd);
}

const RouteClass *RtbFamily::next_class(const ntbl_msg &req) {
  if (req.ntbl_name == nullptr) {
    for (const RouteClass &k : classes)
      if (k.idx > req.idx) return &k;
    return nullptr;
  }
  const std::string name = text_of(req.ntbl_name, req.ntbl_name_len);
  const RouteClass *best = nullptr;
  for (const RouteClass &k : classes) {
    if (k.name > name && (best == nullptr || k.name < best->name)) best = &k;
  }
  return best;
}

void RtbFamily::answer_class(Session &s, const Frame &f) {
  const auto &req = f.as<ntbl_msg>();
  const tlk_hdr &hdr = f.hdr();
  if (hdr.tlkh_op == TLK_OP_ADD || hdr.tlkh_op == TLK_OP_DELETE) {
    write_class(s, req);
    return;
  }
  if (hdr.tlkh_op != TLK_OP_GET && hdr.tlkh_op != TLK_OP_GETNEXT) return;
  const RouteClass *k = nullptr;
  if (hdr.tlkh_op == TLK_OP_GETNEXT) {
    k = next_class(req);
  } else if (req.ntbl_name != nullptr) {
    k = find_class_name(text_of(req.ntbl_name, req.ntbl_name_len));
  } else {
    k = find_class(req.idx);
  }
  if (k == nullptr) {
    host_.refuse_not_found(s, TLK_MSG_RT_CLASS, hdr.tlkh_op, hdr.tlkh_seq, kClassRefuser);
    return;
  }
  host_.reply(s, class_frame(*k, hdr.tlkh_op, hdr.tlkh_seq, f.tlv));
}

namespace {
const FamilySlot<RtbFamily> kRtb("rtb");
}  // namespace

}  // namespace internal

// --- The facet ----------------------------------------------------------------------------

RouteTables Kernel::route_tables() {
  return RouteTables(&internal::kRtb.in(*impl_));
}
const RouteTables Kernel::route_tables() const {
  return RouteTables(&internal::kRtb.in(*impl_));
}

void RouteTables::add(const RouteTable &t) {
  family_->add(t);
}
void RouteTables::add_class(const RouteClass &k) {
  family_->add_class(k);
}
void RouteTables::create(const RouteTable &t) {
  const bool known = family_->find(t.tid, t.af) != nullptr;
  family_->add(t);
  family_->table_changed(t, known ? TLK_OP_CHANGE : TLK_OP_ADD, -1);
}
bool RouteTables::destroy(uint16_t tid, uint8_t af) {
  const RouteTable *t = family_->find(tid, af);
  if (t == nullptr) return false;
  const RouteTable gone = *t;
  family_->remove(tid, af);
  family_->table_changed(gone, TLK_OP_DELETE, -1);
  return true;
}
void RouteTables::create_class(const RouteClass &k) {
  const bool known = family_->find_class(k.idx) != nullptr;
  family_->add_class(k);
  family_->class_changed(k, known ? TLK_OP_CHANGE : TLK_OP_ADD, -1);
}
bool RouteTables::destroy_class(uint16_t idx) {
  const RouteClass *k = family_->find_class(idx);
  if (k == nullptr) return false;
  const RouteClass gone = *k;
  family_->remove_class(idx);
  family_->class_changed(gone, TLK_OP_DELETE, -1);
  return true;
}
const std::vector<RouteTable> &RouteTables::list() const {
  return family_->tables;
}
const std::vector<RouteClass> &RouteTables::classes() const {
  return family_->classes;
}
const RouteTable *RouteTables::find(uint16_t tid, uint8_t af) const {
  return family_->find(tid, af);
}
const RouteTable *RouteTables::find_name(uint8_t af, const char *name) const {
  return name != nullptr ? family_->find_name(af, name) : nullptr;
}
const RouteClass *RouteTables::find_class(uint16_t idx) const {
  return family_->find_class(idx);
}
const RouteClass *RouteTables::find_class_name(const char *name) const {
  return name != nullptr ? family_->find_class_name(name) : nullptr;
}

}  // namespace tarsim
