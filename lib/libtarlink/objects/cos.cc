// Class-of-service and collector queries: small raw requests of fixed size, one per kind of
// object, each answered by one raw reply that the caller gets unread.  They all share one
// template (fixed_get): a zeroed request and a zeroed reply block, the header with the type's
// first word, the size in both tlkh_msglen and tlkh_fixedlen, the session's next sequence number
// and tlkh_id 0, then the member's own fields.
//
//    0      4    6    8          12        16    20      24                      size
//   +------+----+----+----------+---------+-----+-------+----- member fields ----+
//   |  0   |word| op | size     |   seq   |  0  | size  |  (offsets from 24 on)  |
//   +------+----+----+----------+---------+-----+-------+------------------------+
//
// The first word holds the version letter (low byte) and the type (high byte).  Two collector
// types are used crosswise to their catalogue names (the file description read goes as type 60, the
// interface map read as type 59): those numbers are the ones the kernel answers, and stay.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "wire.h"

namespace {

using tlk::request::Block;
using tlk::request::next_seq;
using tlk::request::raw_exchange;
using tlk::request::raw_send;
using tlk::request::Status;
using tlk::wire::store_u16;
using tlk::wire::store_u32;

// First word and size of each member.
struct Shape {
  uint16_t word;
  uint16_t size;
};
constexpr Shape kCosInfo{0x1F62, 28}, kCosFabric{0x2062, 40}, kCosClass{0x2262, 48},
    kCosPolicy{0x2363, 152}, kCosPolicer{0x2662, 48}, kCosShaper{0x2762, 48},
    kCosRewrite{0x2563, 56}, kCosFcQueue{0x3762, 40}, kCosFragmap{0x4762, 56},
    kCpParams{0x3A65, 1984}, kCpFileSpec{0x3C64, 40}, kCpIifMap{0x3B64, 168},
    kCpIifFspecMap{0x3D64, 416}, kCpStats{0x4264, 624}, kCpFileStats{0x4364, 288};

constexpr size_t kNameChars = 59;  // a collector name: 59 characters, then a forced end byte
constexpr uint32_t kAllOnes = 0xFFFFFFFF;
constexpr uint32_t kChassisMode = 2;  // fabric policy by chassis: the first two words go as ~0

// The header of a fixed-size query in a zeroed block.
void fill_fixed(uint8_t *m, Shape shape, uint32_t op, uint32_t seq) {
  store_u16(m + tlk::wire::kVersionAt, shape.word);
  m[tlk::wire::kOpAt] = static_cast<uint8_t>(op);
  store_u32(m + tlk::wire::kMsglenAt, shape.size);
  store_u32(m + tlk::wire::kSeqAt, seq);
  store_u32(m + tlk::wire::kIdAt, 0);
  store_u16(m + tlk::wire::kFixedlenAt, shape.size);
}

// A collector name at `at`: strncpy to 59 characters, the 60th byte forced to 0.
void put_name(uint8_t *at, const char *name) {
  if (name != nullptr) strncpy(reinterpret_cast<char *>(at), name, kNameChars);
  at[kNameChars] = 0;
}

// The template: request and reply blocks, the header, the member's fields (`fill`), one write
// and one read into the reply block.  On failure both go and *out is NULL.
template <typename Fill>
int fixed_get(tarvik_cookie *cookie, Shape shape, uint32_t op, void **out, Fill fill) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  Block request(cookie), reply(cookie);
  if (!request || !reply) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_fixed(m, shape, op, next_seq(cookie));
  fill(m);
  return raw_exchange(cookie, m, reply, out).code();
}

int fixed_get(tarvik_cookie *cookie, Shape shape, uint32_t op, void **out) {
  return fixed_get(cookie, shape, op, out, [](uint8_t *) {});
}

bool get_or_next(uint32_t op) {
  return op == TLK_OP_GET || op == TLK_OP_GETNEXT;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_cim_get(tarvik_cookie *cookie, uint32_t op, void **msg_out) {
  return fixed_get(cookie, kCosInfo, op, msg_out);
}

TLK_EXPORT int tarvik_cfm_get(tarvik_cookie *cookie, uint32_t op, void **msg_out) {
  return fixed_get(cookie, kCosFabric, op, msg_out);
}

TLK_EXPORT int tarvik_ccm_get_object(tarvik_cookie *cookie, uint32_t object, uint32_t op,
                                     void **msg_out) {
  return fixed_get(cookie, kCosClass, op, msg_out, [&](uint8_t *m) {
    store_u32(m + 36, object);
    m[42] = 1;
  });
}

TLK_EXPORT int tarvik_ccm_get_ifl(tarvik_cookie *cookie, uint32_t ifl, uint8_t unit, uint32_t op,
                                  void **msg_out) {
  return fixed_get(cookie, kCosClass, op, msg_out, [&](uint8_t *m) {
    store_u32(m + 32, ifl);
    m[38] = unit;
    m[42] = 0;
  });
}

// No argument checks here: a null session fails the block allocation (ENOMEM), and the out
// pointer takes NULL on every failure.
TLK_EXPORT int tarvik_cpm_fab_chass_get(tarvik_cookie *cookie, uint32_t a, uint32_t b, uint32_t c,
                                        uint32_t mode, uint32_t op, void **msg_out) {
  *msg_out = nullptr;
  Block request(cookie), reply(cookie);
  if (!request || !reply) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_fixed(m, kCosPolicy, op, next_seq(cookie));
  store_u32(m + 32, 0);
  store_u32(m + 40, mode == kChassisMode ? kAllOnes : a);
  store_u32(m + 44, mode == kChassisMode ? kAllOnes : b);
  store_u32(m + 48, c);
  store_u32(m + 52, mode);
  return raw_exchange(cookie, m, reply, msg_out).code();
}

TLK_EXPORT int tarvik_cpom_get(tarvik_cookie *cookie, uint32_t object, uint32_t op,
                               void **msg_out) {
  return fixed_get(cookie, kCosPolicer, op, msg_out,
                   [&](uint8_t *m) { store_u32(m + 32, object); });
}

TLK_EXPORT int tarvik_csm_get(tarvik_cookie *cookie, uint32_t object, uint32_t op, void **msg_out) {
  return fixed_get(cookie, kCosShaper, op, msg_out, [&](uint8_t *m) { store_u32(m + 32, object); });
}

TLK_EXPORT int tarvik_crwm_get_object(tarvik_cookie *cookie, uint32_t object, uint32_t op,
                                      void **msg_out) {
  return fixed_get(cookie, kCosRewrite, op, msg_out, [&](uint8_t *m) {
    store_u32(m + 36, object);
    m[44] = 1;
  });
}

TLK_EXPORT int tarvik_crwm_get_ifl(tarvik_cookie *cookie, uint32_t ifl, uint8_t unit,
                                   uint32_t rewrite_kind, uint32_t op, void **msg_out) {
  return fixed_get(cookie, kCosRewrite, op, msg_out, [&](uint8_t *m) {
    store_u32(m + 32, ifl);
    m[38] = unit;
    store_u32(m + 40, rewrite_kind);
    m[44] = 0;
  });
}

TLK_EXPORT int tarvik_cglb_get(tarvik_cookie *cookie, uint32_t op, void **msg_out) {
  if (op != TLK_OP_GET) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return fixed_get(cookie, kCosFcQueue, op, msg_out);
}

TLK_EXPORT int tarvik_cfragmap_get(tarvik_cookie *cookie, uint32_t ifl, uint32_t object,
                                   uint32_t op, void **msg_out, uint8_t is_object) {
  return fixed_get(cookie, kCosFragmap, op, msg_out, [&](uint8_t *m) {
    store_u32(m + 32, ifl);
    store_u32(m + 36, object);
    m[44] = is_object;
  });
}

TLK_EXPORT int tarvik_cfragm_get_object(tarvik_cookie *cookie, uint32_t object, uint32_t op,
                                        void **msg_out) {
  return tarvik_cfragmap_get(cookie, 0, object, op, msg_out, 1);
}

TLK_EXPORT int tarvik_cfragm_get_ifl(tarvik_cookie *cookie, uint32_t ifl, uint32_t op,
                                     void **msg_out) {
  return tarvik_cfragmap_get(cookie, ifl, 0, op, msg_out, 0);
}

// ---- Collector PIC ----

TLK_EXPORT int tarvik_cp_params_get(tarvik_cookie *cookie, uint32_t op, void **msg_out) {
  if (!get_or_next(op)) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return fixed_get(cookie, kCpParams, op, msg_out);
}

TLK_EXPORT int tarvik_cp_fspec_get(tarvik_cookie *cookie, uint32_t op, void **msg_out) {
  if (op != TLK_OP_GET) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return fixed_get(cookie, kCpFileSpec, op, msg_out);
}

TLK_EXPORT int tarvik_iif_cp_map_get(tarvik_cookie *cookie, uint32_t op, const char *name,
                                     void **msg_out) {
  if (!get_or_next(op)) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return fixed_get(cookie, kCpIifMap, op, msg_out, [&](uint8_t *m) { put_name(m + 40, name); });
}

TLK_EXPORT int tarvik_iif_fspec_map_get(tarvik_cookie *cookie, uint32_t op, const char *name,
                                        const char *name2, void **msg_out) {
  if (!get_or_next(op) || name == nullptr) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return fixed_get(cookie, kCpIifFspecMap, op, msg_out, [&](uint8_t *m) {
    put_name(m + 36, name);
    put_name(m + 96, name2);
  });
}

TLK_EXPORT int tarvik_cp_stats_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                            void **msg_out) {
  if (index == 0 || op == TLK_OP_GETNEXT) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return fixed_get(cookie, kCpStats, op, msg_out, [&](uint8_t *m) { store_u32(m + 544, index); });
}

TLK_EXPORT int tarvik_cp_stats_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                           void **msg_out) {
  if (!get_or_next(op)) {
    if (msg_out != nullptr) *msg_out = nullptr;
    return EINVAL;
  }
  return fixed_get(cookie, kCpStats, op, msg_out, [&](uint8_t *m) { put_name(m + 560, name); });
}

// A request whose answer, if any, comes as a notification: nothing is read.
TLK_EXPORT int tarvik_cp_file_stats_get_by_name(tarvik_cookie *cookie, const char *name,
                                                uint32_t op) {
  if (cookie == nullptr || op != TLK_OP_GET) return EINVAL;
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  fill_fixed(m, kCpFileStats, op, next_seq(cookie));
  put_name(m + 224, name);
  return raw_send(cookie, m).code();
}

// ---- Virtual output queue statistics: the one structured member ----

// The request record: the header, then the device and the queue.  tlkh_id carries 3, the kind of
// statistics asked for.  The record catalogue has no arm for type 95 yet, so until it does the
// envelope sends the frame with its type and no payload, and the device and queue stay behind.
TLK_EXPORT int tarvik_cvoqstats_get(tarvik_cookie *cookie, uint32_t ifd, uint32_t queue,
                                    void **msg_out) {
  constexpr uint16_t kWord = 0x5F62, kSize = 68;
  constexpr uint32_t kVoqKind = 3;
  Block request(cookie);
  if (!request) return ENOMEM;
  uint8_t *m = request.bytes();
  tlk_hdr &h = *reinterpret_cast<tlk_hdr *>(m);
  store_u16(m + tlk::wire::kVersionAt, kWord);
  h.tlkh_op = TLK_OP_GET;
  h.tlkh_msglen = kSize;
  h.tlkh_fixedlen = kSize;
  h.tlkh_seq = next_seq(cookie);
  h.tlkh_id = kVoqKind;
  uint32_t keys[2] = {ifd, queue};
  memcpy(m + sizeof(tlk_hdr), keys, sizeof keys);
  const int err = tarvik_msg_write_idl(cookie, m, nullptr);
  if (err != 0 && err != ENOENT) {
    char line[64];
    snprintf(line, sizeof line, "Error = %s\n", strerror(err));
    if (tlk::platform::ops().print_stdout != nullptr) tlk::platform::ops().print_stdout(line);
    return err;
  }
  request.free_now();
  const int read = tarvik_msg_read_idl(cookie, msg_out, nullptr);
  if (read != 0) {
    tarvik_msg_idl_release(cookie, *msg_out, nullptr);
    *msg_out = nullptr;
  }
  return read;
}

// Whether a class-of-service policy blob exists for `ifl`: a generic configuration get of major
// 8, minor 16, keyed by the interface and the policy marker.
TLK_EXPORT int inf_ifl_is_cos_policy_attached(uint32_t ifl, tarvik_cookie *cookie) {
  constexpr uint16_t kMajor = 8, kMinor = 16;
  constexpr uint32_t kKeyFlags = 0x2, kPolicyMarker = 0x40000000;
  uint32_t key[2] = {ifl, kPolicyMarker};
  gencfg_t record{};
  record.major = kMajor;
  record.minor = kMinor;
  record.flags = kKeyFlags;
  record.key_len = sizeof key;
  record.key = reinterpret_cast<uint8_t *>(key);
  void *reply = nullptr;
  const int err = tarvik_gencfg_get(cookie, &record, TLK_OP_GET, &reply, nullptr);
  tarvik_msg_idl_release(cookie, reply, nullptr);
  return err == 0 ? 1 : 0;
}

}  // extern "C"
