// Markers ("marker", type 102): a marker asked for (op get) comes back as it was sent, which
// tells the writer that everything it wrote before it is done.
#include "../family.h"

namespace tarsim::internal {
namespace {

class MarkerFamily final : public Family {
 public:
  explicit MarkerFamily(Host &host) {
    host.answer_frames(TLK_MSG_MARKER, [&host](Session &s, const Frame &f) {
      if (f.hdr().tlkh_op == TLK_OP_GET) host.reply(s, f.bytes);
    });
  }
};

const FamilySlot<MarkerFamily> kMarkers("markers");

}  // namespace
}  // namespace tarsim::internal
