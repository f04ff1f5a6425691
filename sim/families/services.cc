// The raw service and forwarding engine families: "asp config", "l2tp config", "qsr",
// "monitoring", "pfe info" and "pfe stats" answer a reading op with the request's fixed part (the
// kernel's contents of these objects are not modelled); "mon stats" with a reply of the size its
// mask asks for; "pfe dwn map" with a notification on the asking session's stream.  One family
// per type.
#include <string.h>

#include <algorithm>

#include "../family.h"
#include "../session.h"
#include "../wire.h"

namespace tarsim {
namespace internal {
namespace {

bool reads(uint8_t op) {
  return op == TLK_OP_GET || op == TLK_OP_GETNEXT || op == TLK_OP_ADD_GET || op == TLK_OP_CHG_GET;
}

// The request's fixed part (and, for monitoring, its name) as the reply.
Bytes echo(const Request &req, size_t fixed, bool with_variable) {
  const size_t n = std::min(req.bytes.size(), with_variable ? req.bytes.size() : fixed);
  Bytes reply(req.bytes.begin(), req.bytes.begin() + static_cast<std::ptrdiff_t>(n));
  if (reply.size() < fixed) reply.resize(fixed, 0);
  wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
  return reply;
}

template <uint8_t Type, size_t Fixed, bool WithVariable = false>
class EchoFamily final : public Family {
 public:
  explicit EchoFamily(Host &host) : host_(host) {
    host.answer_raw(Type, [this](Session &s, const Request &r) {
      if (reads(r.op)) host_.reply_with_seq(s, echo(r, Fixed, WithVariable), r.seq);
    });
  }

 private:
  Host &host_;
};

constexpr size_t kMonStatsFixed = 44, kDwnMapFixed = 40;

// The reply size a statistics mask asks for.
size_t monstats_size(uint32_t mask) {
  size_t size = (mask & 1) != 0 ? 68 : kMonStatsFixed;
  if ((mask & 2) != 0) size += 40;
  if ((mask & 4) != 0) size += 48;
  if ((mask & 8) != 0) size += 48;
  if ((mask & 16) != 0) size += 24;
  return size;
}

class MonStatsFamily final : public Family {
 public:
  explicit MonStatsFamily(Host &host) : host_(host) {
    host.answer_raw(TLK_MSG_MON_STATS, [this](Session &s, const Request &r) {
      if (!reads(r.op) || r.bytes.size() < kMonStatsFixed) return;
      Bytes reply = echo(r, kMonStatsFixed, false);
      reply.resize(monstats_size(wire::load_u32(&r.bytes[28])), 0);
      wire::store_u32(&reply[wire::kRawMsglen], static_cast<uint32_t>(reply.size()));
      host_.reply_with_seq(s, reply, r.seq);
    });
  }

 private:
  Host &host_;
};

// A down map request is answered later: as a notification of its type on the asker's stream,
// the request's key and map id with op get.
class DwnMapFamily final : public Family {
 public:
  explicit DwnMapFamily(Host &host) : host_(host) {
    host.answer_raw(TLK_MSG_PFE_DWN_MAP, [this](Session &s, const Request &r) {
      if (r.bytes.size() < kDwnMapFixed) return;
      Bytes answer = echo(r, kDwnMapFixed, false);
      wire::store_u32(&answer[wire::kRawSeq], 0);
      host_.notify_session(s, answer);
    });
  }

 private:
  Host &host_;
};

const FamilySlot<EchoFamily<TLK_MSG_ASP_CONFIG, 48>> kAsp("asp config");
const FamilySlot<EchoFamily<TLK_MSG_L2TP_CONFIG, 88, true>> kL2tp("l2tp config");
const FamilySlot<EchoFamily<TLK_MSG_QSR, 96>> kQsr("qsr");
const FamilySlot<EchoFamily<TLK_MSG_MONITORING, 280, true>> kMon("monitoring");
const FamilySlot<EchoFamily<TLK_MSG_PFE_INFO, 36>> kPfeInfo("pfe info");
const FamilySlot<EchoFamily<TLK_MSG_PFE_STATS, 36>> kPfeStats("pfe stats");
const FamilySlot<MonStatsFamily> kMonStats("mon stats");
const FamilySlot<DwnMapFamily> kDwnMap("pfe dwn map");

}  // namespace
}  // namespace internal
}  // namespace tarsim
