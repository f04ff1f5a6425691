// Session statistics ("tarlink stats", raw type 26): a get is answered with the asking
// session's counters, four u32 words after the header: requests, replies, open sessions and
// dropped messages.  Other ops draw no reply.
#include "../family.h"
#include "../session.h"

namespace tarsim::internal {
namespace {

class TlkStatsFamily final : public Family {
 public:
  explicit TlkStatsFamily(Host &host) {
    host.answer_raw(TLK_MSG_TARLINK_STATS, [&host](Session &s, const Request &req) {
      if (req.op != TLK_OP_GET) return;
      const uint32_t counters[4] = {
          static_cast<uint32_t>(s.requests), static_cast<uint32_t>(s.replies),
          static_cast<uint32_t>(host.open_sessions()), static_cast<uint32_t>(s.dropped)};
      host.reply(s, raw_message(req.type, req.op, req.seq, counters, sizeof counters, 0));
    });
  }
};

const FamilySlot<TlkStatsFamily> kTlkStats("tlk_stats");

}  // namespace
}  // namespace tarsim::internal
