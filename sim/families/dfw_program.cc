// Firewall filter programs (raw type 14), put together from their fragments, and the filter
// heads a fresh kernel starts with.
#include <arpa/inet.h>
#include <string.h>

#include <algorithm>
#include <map>

#include "../family.h"
#include "../session.h"
#include "dfw_heads.h"
#include "tarsim/dfw.hpp"

namespace tarsim::internal {
namespace {

constexpr size_t kNameAt = 11, kHashAt = 139, kIfnameAt = 155;
constexpr uint8_t kVersion = 'd';

uint32_t load32(const uint8_t *p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}
void store32(uint8_t *p, uint32_t v) {
  memcpy(p, &v, 4);
}

struct Pending {
  uint32_t total = 0;
  std::map<uint32_t, Bytes> parts;  // by offset
};

const DfwHeadInfo kSeedHeads[] = {
    {10, "protect-re", "lo0.0", 0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}, false},
    {20, "count-all", "ge-0/0/0.0", 0, {0xC0, 0xFF, 0xEE}, true},
};

}  // namespace

void seed_filter_heads(GencfgStore &store) {
  for (const DfwHeadInfo &h : kSeedHeads) {
    const uint32_t be = htonl(h.index);
    GencfgEntry e;
    e.id = Gencfg::bytes_key(TLK_DFW_HEAD_MAJOR, TLK_DFW_HEAD_MINOR,
                             std::span(reinterpret_cast<const uint8_t *>(&be), 4));
    e.flags = TLK_GENCFG_KEY;
    e.blob = Dfw::head_blob(h);
    store.put(std::move(e));
  }
}

class DfwFamily final : public Family {
 public:
  explicit DfwFamily(Host &host) : host_(host) {
    DfwProgramInfo p;
    p.name = "protect-re";
    p.ifname = "lo0.0";
    p.hash = {0xAA, 0xBB};
    p.body = 100;
    programs[{10, 2}] = Dfw::program(p);
    p.name = "police-v6";
    p.ifname = "";
    p.family = 1;
    p.family_code = 2;
    p.hash = {0x66};
    programs[{30, 2}] = Dfw::program(p);
    host.answer_raw(TLK_MSG_FIREWALL, [this](Session &s, const Request &req) { answer(s, req); });
  }

  std::map<std::pair<uint32_t, uint8_t>, Bytes> programs;
  std::map<std::pair<uint32_t, uint8_t>, Pending> pending;
  std::vector<uint32_t> seen;

 private:
  void answer(Session &s, const Request &req) {
    const uint8_t *b = req.bytes.data();
    if (req.bytes.size() < TLK_DFW_FIXED_LEN) return;
    const uint32_t filter = load32(b + TLK_DFW_FILTER_AT);
    const uint8_t af = b[TLK_DFW_AF_AT];
    const std::pair key{filter, af};
    switch (req.op) {
      case TLK_OP_ADD:
      case TLK_OP_CHANGE:
        fragment(key, req);
        return;
      case TLK_OP_DELETE:
        programs.erase(key);
        pending.erase(key);
        return;
      case TLK_OP_GET:
      case TLK_OP_GETNEXT: {
        auto it = programs.end();
        if (req.op == TLK_OP_GET) {
          it = programs.find(key);
        } else {
          it = std::find_if(programs.upper_bound({filter, 0xFF}), programs.end(),
                            [af](const auto &kv) { return kv.first.second == af; });
        }
        if (it == programs.end()) {
          host_.refuse_not_found(s, TLK_MSG_FIREWALL, req.op, req.seq, "dfw_get");
          return;
        }
        host_.reply(s, reply_of(req, it->first, it->second));
        return;
      }
      default:
        return;
    }
  }

  void fragment(std::pair<uint32_t, uint8_t> key, const Request &req) {
    const uint8_t *b = req.bytes.data();
    const uint32_t msglen =
        std::min<uint32_t>(load32(b + 8), static_cast<uint32_t>(req.bytes.size()));
    const uint32_t total = load32(b + TLK_DFW_TOTAL_AT);
    const uint32_t offset = load32(b + TLK_DFW_OFFSET_AT);
    const uint32_t len = std::min(msglen - TLK_DFW_FIXED_LEN, total - std::min(total, offset));
    seen.push_back(req.seq);
    Pending &p = pending[key];
    if (p.total != total) p = Pending{total, {}};
    p.parts[offset] = Bytes(b + TLK_DFW_FIXED_LEN, b + TLK_DFW_FIXED_LEN + len);
    // Complete when the parts run without a gap from 0 to the whole length.
    uint32_t end = 0;
    for (const auto &[off, bytes] : p.parts) {
      if (off > end) return;
      end = std::max<uint32_t>(end, off + static_cast<uint32_t>(bytes.size()));
    }
    if (end < total) return;
    Bytes whole(total);
    for (const auto &[off, bytes] : p.parts)
      std::copy(bytes.begin(), bytes.end(), whole.begin() + off);
    programs[key] = std::move(whole);
    pending.erase(key);
  }

  static Bytes reply_of(const Request &req, std::pair<uint32_t, uint8_t> key, const Bytes &prog) {
    const size_t shown = std::min<size_t>(prog.size(), TLK_DFW_PROGRAM_HEADER);
    Bytes m(TLK_DFW_FIXED_LEN + shown, 0);
    m[4] = kVersion;
    m[5] = TLK_MSG_FIREWALL;
    m[6] = req.op;
    store32(m.data() + 8, static_cast<uint32_t>(m.size()));
    store32(m.data() + 12, req.seq);
    const uint16_t fixed = TLK_DFW_FIXED_LEN;
    memcpy(m.data() + 20, &fixed, 2);
    m[TLK_DFW_AF_AT] = key.second;
    store32(m.data() + TLK_DFW_TOTAL_AT, static_cast<uint32_t>(prog.size()));
    store32(m.data() + TLK_DFW_FILTER_AT, key.first);
    std::copy(prog.begin(), prog.begin() + static_cast<long>(shown), m.begin() + TLK_DFW_FIXED_LEN);
    return m;
  }

  Host &host_;
};

namespace {
const FamilySlot<DfwFamily> kDfw("dfw_program");
}  // namespace

}  // namespace tarsim::internal

namespace tarsim {

Dfw Kernel::dfw() {
  return Dfw(&internal::kDfw.in(*impl_), gencfg());
}

Bytes Dfw::program(const DfwProgramInfo &info) {
  Bytes p(TLK_DFW_PROGRAM_HEADER + info.body, 0);
  p[4] = info.family_code;
  p[6] = info.kind & 0xEF;  // the long form: every length word counts
  p[7] = static_cast<uint8_t>(std::min<size_t>(info.name.size(), 127));
  p[8] = static_cast<uint8_t>(std::min<size_t>(info.ifname.size(), 127));
  p[9] = info.family;
  p[10] = info.flags;
  memcpy(p.data() + internal::kNameAt, info.name.data(), p[7]);
  memcpy(p.data() + internal::kHashAt, info.hash.data(), 16);
  memcpy(p.data() + internal::kIfnameAt, info.ifname.data(), p[8]);
  internal::store32(p.data() + 284, info.body);
  for (size_t i = 0; i < info.body; ++i)
    p[TLK_DFW_PROGRAM_HEADER + i] = static_cast<uint8_t>(i * 7);
  return p;
}

Bytes Dfw::head_blob(const DfwHeadInfo &info) {
  if (info.legacy) {
    Bytes b(TLK_DFW_LEGACY_HEAD_LEN, 0);
    internal::store32(b.data(), htonl(1));
    internal::store32(b.data() + 4, htonl(info.index));
    b[8] = 1;
    b[14] = info.family;
    b[17] = static_cast<uint8_t>(std::min<size_t>(info.name.size(), 127));
    memcpy(b.data() + 18, info.name.data(), b[17]);
    b[146] = static_cast<uint8_t>(std::min<size_t>(info.ifname.size(), 127));
    memcpy(b.data() + 147, info.ifname.data(), b[146]);
    memcpy(b.data() + 275, info.hash.data(), 16);
    for (int i = 0; i < 5; ++i) b[291 + i] = static_cast<uint8_t>(0xE0 + i);
    return b;
  }
  _dfw_filter_head h{};
  h.dfh_index.dfh_key_index = info.index;
  h.dfh_valid = 1;
  h.dfh_family = info.family;
  std::string name = info.name, ifname = info.ifname;
  h.dfh_name = reinterpret_cast<uint8_t *>(name.data());
  h.dfh_name_len = static_cast<uint32_t>(name.size() + 1);
  h.dfh_ifname = reinterpret_cast<uint8_t *>(ifname.data());
  h.dfh_ifname_len = static_cast<uint32_t>(ifname.size() + 1);
  memcpy(h.dfh_hash, info.hash.data(), 16);
  Bytes b(4 + tlv_encode__dfw_filter_head_0(&h, nullptr, nullptr, 0));
  internal::store32(b.data(), htonl(2));
  (void)tlv_encode__dfw_filter_head_0(&h, nullptr, b.data() + 4,
                                      static_cast<uint32_t>(b.size() - 4));
  return b;
}

void Dfw::seed_program(uint32_t filter, uint8_t af, const uint8_t *program, size_t size) {
  family_->programs[{filter, af}] = Bytes(program, program + size);
}
void Dfw::seed_head(const DfwHeadInfo &info) {
  const uint32_t be = htonl(info.index);
  GencfgEntry e;
  e.id = Gencfg::bytes_key(TLK_DFW_HEAD_MAJOR, TLK_DFW_HEAD_MINOR,
                           std::span(reinterpret_cast<const uint8_t *>(&be), 4));
  e.flags = TLK_GENCFG_KEY;
  e.blob = head_blob(info);
  (void)gencfg_.change(TLK_OP_ADD, e);
}
const Bytes *Dfw::find(uint32_t filter, uint8_t af) const {
  auto it = family_->programs.find({filter, af});
  return it == family_->programs.end() ? nullptr : &it->second;
}
const std::map<std::pair<uint32_t, uint8_t>, Bytes> &Dfw::programs() const {
  return family_->programs;
}
size_t Dfw::pending_bytes(uint32_t filter, uint8_t af) const {
  auto it = family_->pending.find({filter, af});
  if (it == family_->pending.end()) return 0;
  size_t n = 0;
  for (const auto &[off, bytes] : it->second.parts) n += bytes.size();
  return n;
}
const std::vector<uint32_t> &Dfw::fragments_seen() const {
  return family_->seen;
}

}  // namespace tarsim
