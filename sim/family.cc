// The family registry, and the frame encoder that families answer with.
#include "family.h"

#include "core.h"

namespace tarsim::internal {
namespace {

// Filled at static initialisation, from every family's source, in whatever order the linker
// runs them: each family finds itself by the slot it was given, never by position.
std::vector<RegisteredFamily> &registry() {
  static std::vector<RegisteredFamily> families;
  return families;
}

}  // namespace

size_t register_family(const char *name, FamilyMaker make) {
  registry().push_back({name, make});
  return registry().size() - 1;
}

const std::vector<RegisteredFamily> &registered_families() {
  return registry();
}

Family &family_in(Core &core, size_t slot) {
  return *core.families[slot];
}

Bytes encode_frame(uint8_t type, const void *record, bool tlv) {
  tlk_msg out{};
  out.tlkm_type = type;
  out.tlkm_msg = const_cast<void *>(record);  // the encoders only read through it
  // One pass into room kept between frames; the encoder's exact size decides whether a second,
  // into more room, is needed.
  static thread_local Bytes room(4096);
  for (;;) {
    const auto len = static_cast<uint32_t>(room.size());
    const uint32_t need = tlv ? tlv_encode_tlk_msg_0(&out, nullptr, room.data(), len)
                              : idr_encode_tlk_msg_0(&out, room.data(), len);
    if (need <= len) return Bytes(room.begin(), room.begin() + need);
    room.resize(need);
  }
}

}  // namespace tarsim::internal
