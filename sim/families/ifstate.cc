// The interface state log ("ifstate", type 47): the chain of object states, read by sequence
// number and sent as notifications, its end-of-chain message ("ifsclinfo", type 85), and the
// system control "hw.product.ifs_max_clients".  Device and logical interface changes reach the
// chain through the host's object watch.  See tarsim/ifstate.hpp for the contract.
#include <string.h>

#include <vector>

#include "../family.h"
#include "../session.h"
#include "../wire.h"
#include "tarsim/ifstate.hpp"

namespace tarsim {
namespace internal {
namespace {

constexpr uint16_t kFixed = 80;
constexpr size_t kKind = 24, kSeq = 32, kAdd = 40, kChg = 48, kDel = 56, kRefs = 64, kRtSid = 66,
                 kPid = 68, kInfoLen = 72;
constexpr uint64_t kAllClients = 0xf;
constexpr uint8_t kKindIfd = 0, kKindIfl = 1;
constexpr size_t kObjectRecord = 80;  // the device and logical interface records
constexpr size_t kClinfoFixed = 32;
constexpr char kMaxClients[] = "hw.product.ifs_max_clients";
constexpr char kRefuser[] = "ifs_get";

struct Record {
  uint64_t seq;
  uint8_t kind;
  uint64_t masks[3];
  uint16_t refs;
  uint8_t rt_sid;
  int32_t pid;
  Bytes info;
};

template <typename T>
void put(Bytes &b, size_t off, T v) {
  memcpy(&b[off], &v, sizeof v);
}

void put_name(Bytes &b, size_t off, const uint8_t *name, uint32_t len) {
  if (name == nullptr) return;
  const size_t n = strnlen(reinterpret_cast<const char *>(name), len);
  memcpy(&b[off], name, n < 59 ? n : 59);
}

// A decode arena on the stack of the watcher: the frames it reads are one device or unit each.
struct Arena {
  alignas(8) uint8_t bytes[16384];
  size_t used = 0;
  static void *alloc(uint32_t size, void *ctx) {
    auto *a = static_cast<Arena *>(ctx);
    const size_t rounded = (static_cast<size_t>(size) + 7) & ~size_t{7};
    if (a->used + rounded > sizeof a->bytes) return nullptr;
    void *p = a->bytes + a->used;
    a->used += rounded;
    return p;
  }
};

// The object record of a device: generation, index, name, SNMP id, device flags, flags.
Bytes device_record(const ifdev_msg &m) {
  Bytes r(kObjectRecord, 0);
  put<uint32_t>(r, 0, m.ifdm_generation);
  put<uint16_t>(r, 4, m.ifdm_index);
  put_name(r, 6, m.ifdm_name, m.ifdm_name_len);
  put<uint32_t>(r, 68, m.ifdm_snmp_id.idx);
  put<uint16_t>(r, 72, m.ifdm_devflags);
  put<uint32_t>(r, 76, m.ifdm_flags);
  return r;
}

// The object record of a logical interface: flags, generation, index, device index, unit, name.
Bytes ifl_record(const ifl_msg &m) {
  Bytes r(kObjectRecord, 0);
  put<uint32_t>(r, 0, m.iflm_flags);
  put<uint32_t>(r, 4, m.iflm_generation);
  put<uint32_t>(r, 8, m.iflm_index.idx);
  put<uint16_t>(r, 12, m.iflm_devidx);
  put<uint32_t>(r, 16, m.iflm_unit);
  put_name(r, 20, m.iflm_name, m.iflm_name_len);
  return r;
}

}  // namespace

class IfstateFamily final : public Family {
 public:
  explicit IfstateFamily(Host &host) : host_(host) {
    host.answer_raw(TLK_MSG_IFSTATE, [this](Session &s, const Request &req) { answer(s, req); });
    host.answer_sysctl(kMaxClients, [this] {
      Bytes v(4);
      memcpy(v.data(), &max_clients, 4);
      return v;
    });
    host.watch_objects([this](uint8_t type, uint8_t op, std::span<const uint8_t> frame) {
      watched(type, op, frame);
    });
  }

  uint64_t append(uint8_t kind, const uint8_t *info, size_t length, const uint64_t (&masks)[3],
                  uint16_t refs, int32_t pid, uint8_t rt_sid) {
    Record r{++last_seq, kind, {masks[0], masks[1], masks[2]}, refs,
             rt_sid,     pid,  Bytes(info, info + length)};
    chain.push_back(std::move(r));
    host_.notify(TLK_MSG_IFSTATE, message(chain.back(), TLK_OP_ADD, 0), -1);
    return last_seq;
  }

  Bytes message(const Record &r, uint8_t op, uint32_t seq) const {
    Bytes body(kFixed - TLK_RAW_HDR_LEN + r.info.size(), 0);
    Bytes m = raw_message(TLK_MSG_IFSTATE, op, seq, body);
    wire::store_u16(&m[wire::kRawFixedlen], kFixed);
    m[kKind] = r.kind;
    put<uint64_t>(m, kSeq, r.seq);
    put<uint64_t>(m, kAdd, r.masks[0]);
    put<uint64_t>(m, kChg, r.masks[1]);
    put<uint64_t>(m, kDel, r.masks[2]);
    put<uint16_t>(m, kRefs, r.refs);
    m[kRtSid] = r.rt_sid;
    put<int32_t>(m, kPid, r.pid);
    put<uint16_t>(m, kInfoLen, static_cast<uint16_t>(r.info.size()));
    if (!r.info.empty()) memcpy(&m[kFixed], r.info.data(), r.info.size());
    return m;
  }

  size_t end_of_chain(const char *client) {
    const size_t n = client != nullptr ? strlen(client) + 1 : 0;
    Bytes body(kClinfoFixed - TLK_RAW_HDR_LEN + ((n + 3) & ~size_t{3}), 0);
    Bytes m = raw_message(TLK_MSG_IFSCLINFO, TLK_OP_ADD, 0, body);
    wire::store_u16(&m[wire::kRawFixedlen], kClinfoFixed);
    m[24] = 0;  // subtype: IFS EndOfChain
    put<uint32_t>(m, 28, static_cast<uint32_t>(n));
    if (n != 0) memcpy(&m[kClinfoFixed], client, n);
    // Delivered to those who listen for the chain itself.
    return host_.notify(TLK_MSG_IFSTATE, m, -1);
  }

  std::vector<Record> chain;  // in sequence order
  uint64_t last_seq = 0;
  uint32_t max_clients = 63;

 private:
  void answer(Session &s, const Request &req) {
    uint64_t seq = 0;
    if (req.bytes.size() >= kSeq + 8) memcpy(&seq, &req.bytes[kSeq], 8);
    const Record *found = nullptr;
    for (const Record &r : chain) {
      if ((req.op == TLK_OP_GET && r.seq == seq) || (req.op == TLK_OP_GETNEXT && r.seq > seq)) {
        found = &r;
        break;
      }
    }
    if (found == nullptr) {
      host_.refuse_not_found(s, TLK_MSG_IFSTATE, req.op, req.seq, kRefuser);
      return;
    }
    host_.reply_with_seq(s, message(*found, req.op, req.seq), req.seq);
  }

  // A device or logical interface changed: its record joins the chain.
  void watched(uint8_t type, uint8_t op, std::span<const uint8_t> frame) {
    if (type != TLK_MSG_IFDEV && type != TLK_MSG_IFLOGICAL) return;
    static Arena arena;
    arena.used = 0;
    tlk_msg choice{};
    if (idr_decode_tlk_msg_0(&choice, frame.data(), static_cast<uint32_t>(frame.size()),
                             Arena::alloc, &arena) <= 0 ||
        choice.tlkm_msg == nullptr)
      return;
    const bool dev = type == TLK_MSG_IFDEV;
    const Bytes info = dev ? device_record(*static_cast<const ifdev_msg *>(choice.tlkm_msg))
                           : ifl_record(*static_cast<const ifl_msg *>(choice.tlkm_msg));
    uint64_t masks[3] = {};
    const int which = op == TLK_OP_ADD ? 0 : op == TLK_OP_DELETE ? 2 : 1;
    masks[which] = kAllClients;
    (void)append(dev ? kKindIfd : kKindIfl, info.data(), info.size(), masks,
                 op == TLK_OP_DELETE ? 0 : 1, 0, 0);
  }

  Host &host_;
};

const FamilySlot<IfstateFamily> kIfstate("ifstate");

}  // namespace internal

uint64_t StateLog::append(uint8_t kind, const void *info, size_t length, uint64_t add_mask,
                          uint64_t chg_mask, uint64_t del_mask, uint16_t refs, int32_t pid,
                          uint8_t rt_sid) {
  const uint64_t masks[3] = {add_mask, chg_mask, del_mask};
  return family_->append(kind, static_cast<const uint8_t *>(info), info != nullptr ? length : 0,
                         masks, refs, pid, rt_sid);
}
size_t StateLog::size() const {
  return family_->chain.size();
}
uint64_t StateLog::last_seq() const {
  return family_->chain.empty() ? 0 : family_->chain.back().seq;
}
size_t StateLog::message(size_t i, void *buffer, size_t length) const {
  if (i >= family_->chain.size()) return 0;
  const Bytes m = family_->message(family_->chain[i], TLK_OP_GET, 0);
  if (buffer != nullptr) memcpy(buffer, m.data(), m.size() < length ? m.size() : length);
  return m.size();
}
void StateLog::clear() {
  family_->chain.clear();
}
void StateLog::set_max_clients(uint32_t n) {
  family_->max_clients = n;
}
size_t StateLog::end_of_chain(const char *client) {
  return family_->end_of_chain(client);
}

StateLog Kernel::state_log() {
  return StateLog(&internal::kIfstate.in(*impl_));
}

}  // namespace tarsim
