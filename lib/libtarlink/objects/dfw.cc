// Firewall filter programs (raw type 14) and filter heads (gencfg blobs), and the joined header
// that gives one hash for both.
#include <arpa/inet.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include "objects/request.h"
#include "platform/platform.h"
#include "tarlink.h"
#include "wire.h"

namespace {

using tlk::request::Block;
using tlk::wire::load_u32;

// Offsets in a program's header, as the kernel returns it behind the fixed part.
constexpr size_t kProgFamilyCode = 4;
constexpr size_t kProgKind = 6;
constexpr size_t kProgNameLen = 7;
constexpr size_t kProgIfnameLen = 8;
constexpr size_t kProgFamily = 9;
constexpr size_t kProgFlags = 10;
constexpr size_t kProgName = 11;
constexpr size_t kProgHash = 139;
constexpr size_t kProgIfname = 155;
constexpr size_t kProgHashEnd = kProgIfname + TLK_DFW_NAME_MAX;  // the names and hash end here
constexpr uint8_t kKindShortForm = 0x10;                         // only two length words count

constexpr uint32_t kHeadTlvFormat = 2;
constexpr uint32_t kWalkStall = 10;  // steps without progress before a name walk gives up

void log_text(const char *text) {
  tlk::platform::ops().syslog(LOG_ERR, text);
}

bool is_get_op(uint32_t op) {
  return op == TLK_OP_GET || op == TLK_OP_GETNEXT;
}

void *head_alloc(uint32_t size, void *) {
  return tarvik_malloc_cb(size);
}
void head_free(void *p, void *) {
  tarvik_free_cb(p);
}

// Total length of a program from the length words of its header (host order).
uint32_t program_total(const uint8_t *p) {
  const auto w = [p](size_t at) { return load_u32(p + at); };
  if ((p[kProgKind] & kKindShortForm) != 0) return TLK_DFW_PROGRAM_HEADER + w(288) + w(328);
  uint32_t total = TLK_DFW_PROGRAM_HEADER + w(284) + w(288) + w(328) + w(332);
  for (size_t i = 0; i < 6; ++i) total += w(300 + 4 * i);
  return total;
}

// A raw firewall request in `block`: the header and the fixed fields; returns tlkh_msglen.
uint32_t fill_dfw(uint8_t *b, uint32_t op, uint32_t seq, uint32_t filter, uint32_t af,
                  uint32_t total, uint32_t offset, uint32_t var_len) {
  const uint32_t len =
      tlk::request::fill_raw_header(b, TLK_MSG_FIREWALL, op, seq, TLK_DFW_FIXED_LEN, var_len);
  b[TLK_DFW_AF_AT] = static_cast<uint8_t>(af);
  tlk::wire::store_u32(b + TLK_DFW_TOTAL_AT, total);
  tlk::wire::store_u32(b + TLK_DFW_OFFSET_AT, offset);
  tlk::wire::store_u32(b + TLK_DFW_FILTER_AT, filter);
  return len;
}

// The parts of a raw firewall reply.
struct DfwReply {
  const uint8_t *bytes = nullptr;
  uint32_t filter = 0;
  const uint8_t *program = nullptr;  // the program's header, when the reply carries one
};

// Whether `msg` is a firewall message; fills `out`.  A program counts only if its names and
// hash are all there.
bool parse_reply(const void *msg, DfwReply &out) {
  const auto *b = static_cast<const uint8_t *>(msg);
  if (b == nullptr || b[tlk::wire::kTypeAt] != TLK_MSG_FIREWALL) return false;
  const uint32_t len = load_u32(b + tlk::wire::kMsglenAt);
  const uint16_t fixed = tlk::wire::load_u16(b + tlk::wire::kFixedlenAt);
  if (len < TLK_DFW_FIXED_LEN || fixed < TLK_DFW_FIXED_LEN || fixed > len) return false;
  out.bytes = b;
  out.filter = load_u32(b + TLK_DFW_FILTER_AT);
  out.program = len - fixed >= kProgHashEnd ? b + fixed : nullptr;
  return true;
}

// One raw get or getnext of a program; a reply that is not a firewall message (the kernel's
// refusal) gives ENOENT.
int dfw_read(tarvik_cookie *cookie, uint32_t filter, uint32_t af, uint32_t op, void **out) {
  *out = nullptr;
  Block req(cookie);
  if (!req) return ENOMEM;
  fill_dfw(req.bytes(), op, tlk::request::next_seq(cookie), filter, af, 0, 0, 0);
  const int err = tlk::request::raw_exchange_long(req, out).code();
  if (err != 0) return err;
  DfwReply r;
  if (!parse_reply(*out, r)) {
    tarvik_msg_free(cookie, *out);
    *out = nullptr;
    return ENOENT;
  }
  return 0;
}

uint8_t family_map(uint8_t code) {
  if (code == 1) return 0;
  if (code == 2) return 1;
  return 5;
}

// Fills `head` from a program reply into fresh 128-byte name buffers; the failure texts are
// the caller's.  The buffers are the head's.
int head_from_program(const void *msg, _dfw_filter_head *head, const char *name_fail,
                      const char *ifname_fail) {
  head->dfh_name = static_cast<uint8_t *>(tarvik_malloc_cb(TLK_DFW_NAME_MAX));
  if (head->dfh_name == nullptr) {
    log_text(name_fail);
    return ENOMEM;
  }
  head->dfh_ifname = static_cast<uint8_t *>(tarvik_malloc_cb(TLK_DFW_NAME_MAX));
  if (head->dfh_ifname == nullptr) {
    log_text(ifname_fail);
    tarvik_free_dfh_var(head);
    return ENOMEM;
  }
  return tarvik_dfwm_to_dfwfhm(msg, head);
}

uint32_t copy_name(uint8_t *to, const uint8_t *from, uint8_t length) {
  const size_t n = length + 1u < TLK_DFW_NAME_MAX ? length + 1u : TLK_DFW_NAME_MAX;
  strncpy(reinterpret_cast<char *>(to), reinterpret_cast<const char *>(from), n);
  to[TLK_DFW_NAME_MAX - 1] = 0;
  return static_cast<uint32_t>(strlen(reinterpret_cast<char *>(to)) + 1);
}

bool name_matches(const uint8_t *have, const char *want) {
  return have != nullptr &&
         strncmp(reinterpret_cast<const char *>(have), want, TLK_DFW_NAME_MAX) == 0;
}

// The gencfg key of a head: the index in network order.
struct HeadKey {
  uint8_t bytes[4];
  explicit HeadKey(uint32_t filter) {
    const uint32_t be = htonl(filter);
    memcpy(bytes, &be, 4);
  }
};

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_dfwm_get_by_index(tarvik_cookie *cookie, uint32_t filter, uint32_t af,
                                        uint32_t op, void **msg_out, void **mask_out) {
  tlk::request::clear_outs(msg_out, mask_out);
  if (cookie == nullptr || msg_out == nullptr || !is_get_op(op)) return EINVAL;
  return dfw_read(cookie, filter, af, op, msg_out);
}

TLK_EXPORT int tarvik_dfwm_update(tarvik_cookie *cookie, uint32_t filter, uint32_t af, uint32_t op,
                                  const uint8_t *program) {
  if (op != TLK_OP_ADD && op != TLK_OP_CHANGE && op != TLK_OP_DELETE) return EOPNOTSUPP;
  if (cookie == nullptr) return EINVAL;
  if (op != TLK_OP_DELETE && program == nullptr) return EINVAL;
  Block req(cookie);
  if (!req) return ENOMEM;
  if (op == TLK_OP_DELETE) {
    fill_dfw(req.bytes(), op, 1, filter, af, 0, 0, 0);
    return tlk::request::raw_send(cookie, req.bytes()).code();
  }
  // Fragment n (from 1) goes in tlkh_seq: the kernel puts the program together by it.
  const uint32_t total = program_total(program);
  uint32_t n = 1;
  for (uint32_t off = 0; off < total || (total == 0 && n == 1); ++n) {
    const uint32_t part = total - off < TLK_DFW_FRAGMENT ? total - off : TLK_DFW_FRAGMENT;
    memset(req.bytes(), 0, TLK_DFW_FIXED_LEN + TLK_DFW_FRAGMENT + 4);
    fill_dfw(req.bytes(), op, n, filter, af, total, off, part);
    memcpy(req.bytes() + TLK_DFW_FIXED_LEN, program + off, part);
    const int err = tlk::request::raw_send(cookie, req.bytes()).code();
    if (err != 0) return err;
    off += part;
    if (part == 0) break;
  }
  return 0;
}

TLK_EXPORT uint32_t tarvik_dfwm_get_index_by_name(tarvik_cookie *cookie, const char *name,
                                                  uint32_t dfh_family, uint32_t start) {
  if (cookie == nullptr || name == nullptr) return 0;
  uint32_t cur = start;
  for (;;) {
    void *msg = nullptr;
    if (dfw_read(cookie, cur, AF_INET, TLK_OP_GETNEXT, &msg) != 0) return 0;
    DfwReply r;
    (void)parse_reply(msg, r);
    const bool match = r.program != nullptr && r.program[kProgFamily] == dfh_family &&
                       name_matches(r.program + kProgName, name);
    const uint32_t next = r.filter;
    tarvik_msg_free(cookie, msg);
    if (match && next != 0) return next;
    if (next <= cur && !(match && next == 0)) return 0;  // the kernel's walk did not advance
    cur = next;
  }
}

TLK_EXPORT int tarvik_dfwfhm_get_by_index(tarvik_cookie *cookie, uint32_t filter, uint32_t op,
                                          struct _dfw_filter_head *head) {
  if (!is_get_op(op) || head == nullptr) return EINVAL;
  if (cookie == nullptr) return EINVAL;
  HeadKey key(filter);
  gencfg_t g{};
  g.major = TLK_DFW_HEAD_MAJOR;
  g.minor = TLK_DFW_HEAD_MINOR;
  g.flags = TLK_GENCFG_KEY;
  g.key = key.bytes;
  g.key_len = sizeof key.bytes;
  void *reply = nullptr;
  int err = tarvik_gencfg_get(cookie, &g, op, &reply, nullptr);
  if (err == 0) err = tarvik_dfwfhm_decode(g.blob, g.blob_len, head);
  tarvik_msg_idl_release(cookie, reply, nullptr);
  return err;
}

TLK_EXPORT uint32_t tarvik_dfwfhm_get_index_by_name(tarvik_cookie *cookie, const char *name,
                                                    uint32_t dfh_family, uint32_t start) {
  if (cookie == nullptr || name == nullptr) return 0;
  uint32_t cur = start;
  for (;;) {
    _dfw_filter_head h{};
    if (tarvik_dfwfhm_get_by_index(cookie, cur, TLK_OP_GETNEXT, &h) != 0) return 0;
    const bool match = h.dfh_family == dfh_family && name_matches(h.dfh_name, name);
    const uint32_t idx = h.dfh_index.dfh_key_index;
    tarvik_free_dfh_var(&h);
    if (match) return idx;
    if (idx <= cur) return 0;
    cur = idx;
  }
}

TLK_EXPORT int tarvik_dfw_get_fheader_by_index(tarvik_cookie *cookie, uint32_t filter, uint32_t op,
                                               struct _dfw_filter_head *head) {
  if (!is_get_op(op) || head == nullptr) return EINVAL;
  uint32_t cur = filter;
  bool got = false;
  for (;;) {
    memset(head, 0, sizeof *head);
    if (tarvik_dfwfhm_get_by_index(cookie, cur, op, head) == 0) got = true;
    if (cookie == nullptr) return got ? 0 : EINVAL;
    void *msg = nullptr;
    const int err = dfw_read(cookie, cur, AF_INET, op, &msg);
    if (err != 0) return got ? 0 : err;
    DfwReply r;
    (void)parse_reply(msg, r);
    const uint32_t head_index = head->dfh_index.dfh_key_index;
    if (got && r.filter == head_index && r.program != nullptr) {
      // The join: one hash from the program's and the head's.
      head->dfh_valid |= 1;
      _dfw_filter_head compiled{};
      const int jerr =
          head_from_program(msg, &compiled, "Could not allocate memory for compiled dfh_name",
                            "Could not allocate memory for compiled dfh_ifname");
      if (jerr != 0) {
        tarvik_msg_free(cookie, msg);
        return jerr;
      }
      uint8_t digest[16];
      tarvik_dfw_compute_master_hash(compiled.dfh_hash, head->dfh_hash, digest);
      memcpy(head->dfh_hash, digest, sizeof digest);
      tarvik_free_dfh_var(&compiled);
      tarvik_msg_free(cookie, msg);
      return 0;
    }
    if (got && r.filter == head_index) {
      tarvik_msg_free(cookie, msg);
      tarvik_free_dfh_var(head);
      if (op != TLK_OP_GETNEXT) return ENOENT;
      cur = r.filter;
      continue;
    }
    if (got && r.filter > head_index) {
      tarvik_msg_free(cookie, msg);
      return 0;  // the gencfg head stands alone
    }
    // No head, or a program of a lower index: the program's side is the answer.
    tarvik_free_dfh_var(head);
    if (r.program != nullptr) {
      memset(head, 0, sizeof *head);
      const int ferr = head_from_program(msg, head, "Could not re-allocate memory for dfh_name",
                                         "Could not re-allocate memory for dfh_ifname");
      tarvik_msg_free(cookie, msg);
      return ferr;
    }
    const uint32_t next = r.filter;
    tarvik_msg_free(cookie, msg);
    if (op != TLK_OP_GETNEXT) return ENOENT;
    if (next <= cur) return got ? 0 : ENOENT;  // nothing further on either side
    cur = next;
    got = false;
  }
}

TLK_EXPORT uint32_t tarvik_dfw_get_findex_by_name(tarvik_cookie *cookie, const char *name,
                                                  uint32_t dfh_family, uint32_t start) {
  if (cookie == nullptr || name == nullptr) return 0;
  uint32_t highest = start;
  uint32_t stalled = 0;
  for (;;) {
    _dfw_filter_head h{};
    if (tarvik_dfw_get_fheader_by_index(cookie, highest, TLK_OP_GETNEXT, &h) != 0) return 0;
    const uint32_t idx = h.dfh_index.dfh_key_index;
    const bool match = h.dfh_family == dfh_family && name_matches(h.dfh_name, name);
    tarvik_free_dfh_var(&h);
    if (match) return idx;
    if (idx > highest) {
      highest = idx;
      stalled = 0;
    } else if (++stalled > kWalkStall) {
      return 0;
    }
  }
}

TLK_EXPORT int tarvik_dfwm_to_dfwfhm(const void *msg, struct _dfw_filter_head *head) {
  DfwReply r;
  if (head == nullptr || !parse_reply(msg, r) || r.program == nullptr) return EINVAL;
  if (head->dfh_name == nullptr || head->dfh_ifname == nullptr) return EINVAL;
  const uint8_t *p = r.program;
  head->dfh_valid = 1;
  head->dfh_index.dfh_key_index = r.filter;
  head->dfh_family_code = family_map(p[kProgFamilyCode]);
  head->dfh_spare = 0;
  head->dfh_kind = p[kProgKind];
  head->dfh_family = p[kProgFamily];
  head->dfh_flags = p[kProgFlags];
  head->dfh_af = r.bytes[TLK_DFW_AF_AT];
  head->dfh_name_len = copy_name(head->dfh_name, p + kProgName, p[kProgNameLen]);
  head->dfh_ifname_len = copy_name(head->dfh_ifname, p + kProgIfname, p[kProgIfnameLen]);
  memcpy(head->dfh_hash, p + kProgHash, sizeof head->dfh_hash);
  return 0;
}

TLK_EXPORT void tarvik_dfw_compute_master_hash(const uint8_t *first, const uint8_t *second,
                                               uint8_t *digest) {
  uint8_t block[32];
  memcpy(block, first, 16);
  memcpy(block + 16, second, 16);
  const auto md5 = tlk::platform::ops().md5_cksum;
  if (md5 == nullptr) {  // a seam without MD5 (the 32-bit layout build): no hash to give
    memset(digest, 0, 16);
    return;
  }
  md5(block, sizeof block, sizeof block, digest, nullptr);
}

TLK_EXPORT void tarvik_free_dfh_var(struct _dfw_filter_head *head) {
  if (head == nullptr) return;
  tlv_release__dfw_filter_head_0(head, nullptr, head_free, nullptr);
  head->dfh_name = nullptr;
  head->dfh_ifname = nullptr;
  head->dfh_extra = nullptr;
}

TLK_EXPORT struct _dfw_filter_state *tarvik_dfwfsm_decode(const struct gencfg_msg *msg) {
  auto *state = static_cast<_dfw_filter_state *>(tarvik_malloc_cb(sizeof(_dfw_filter_state)));
  if (state == nullptr) {
    log_text("Cannot allocate memory");
    return nullptr;
  }
  memset(state, 0, sizeof *state);
  if (msg == nullptr || msg->blob == nullptr || msg->blob_len <= 3) {
    log_text("idl_peek_magic failed!!");
    tarvik_free_cb(state);
    return nullptr;
  }
  const uint8_t *b = msg->blob;
  if ((ntohl(load_u32(b)) & 0xFF) == kHeadTlvFormat) {
    const int32_t got = tlv_decode__dfw_filter_state_0(state, nullptr, b + 4, msg->blob_len - 4);
    if (got < 1) {
      char text[64];
      snprintf(text, sizeof text, "Error in decoding filter state, errorcode = %d", got);
      log_text(text);
      tarvik_free_cb(state);
      return nullptr;
    }
    return state;
  }
  if (msg->blob_len < 12) {  // the fixed form's two words are not all there
    log_text("idl_peek_magic failed!!");
    tarvik_free_cb(state);
    return nullptr;
  }
  state->dfs_state = ntohl(load_u32(b + 4));
  state->dfs_value = load_u32(b + 8);
  return state;
}

TLK_EXPORT int tarvik_dfwfhm_decode(const uint8_t *blob, uint32_t length,
                                    struct _dfw_filter_head *head) {
  if (blob == nullptr || head == nullptr || length < 4) return EINVAL;
  memset(head, 0, sizeof *head);
  if ((ntohl(load_u32(blob)) & 0xFF) == kHeadTlvFormat) {
    // A name from the wire is a C string for the caller only if it ends within its bytes and
    // its limit: a head whose names don't is refused like any other undecodable one.
    const auto terminated = [](const uint8_t *name, uint32_t len) {
      return name == nullptr ||
             (len != 0 && len <= TLK_DFW_NAME_MAX && memchr(name, 0, len) != nullptr);
    };
    if (tlv_decode__dfw_filter_head_0(head, nullptr, blob + 4, length - 4, head_alloc, nullptr) <
            1 ||
        !terminated(head->dfh_name, head->dfh_name_len) ||
        !terminated(head->dfh_ifname, head->dfh_ifname_len)) {
      tarvik_free_dfh_var(head);
      return EINVAL;
    }
    return 0;
  }
  // The legacy fixed form.  A shorter blob is refused rather than read past its end.
  if (length < TLK_DFW_LEGACY_HEAD_LEN) return EINVAL;
  const uint8_t *b = blob;
  head->dfh_index.dfh_key_index = ntohl(load_u32(b + 4));
  head->dfh_valid = b[8];
  head->dfh_family_code = b[9];
  head->dfh_spare = b[10];
  head->dfh_kind = b[11];
  head->dfh_legacy_a = b[12];
  head->dfh_legacy_b = b[13];
  head->dfh_family = b[14];
  head->dfh_af = b[15];
  head->dfh_flags = b[16];
  memcpy(head->dfh_hash, b + 275, sizeof head->dfh_hash);
  const auto take = [](const uint8_t *from, size_t n, uint8_t **to, uint32_t *len) {
    *to = static_cast<uint8_t *>(tarvik_malloc_cb(n));
    if (*to == nullptr) return false;
    memcpy(*to, from, n);
    *len = static_cast<uint32_t>(n);
    return true;
  };
  const auto take_name = [](const uint8_t *from, uint8_t n, uint8_t **to, uint32_t *len) {
    *to = static_cast<uint8_t *>(tarvik_malloc_cb(TLK_DFW_NAME_MAX));
    if (*to == nullptr) return false;
    const size_t keep = n < TLK_DFW_NAME_MAX ? n : TLK_DFW_NAME_MAX - 1;
    memcpy(*to, from, keep);  // strlcpy of 128: the length byte bounds it, the end byte follows
    (*to)[keep] = 0;
    *len = static_cast<uint32_t>(strlen(reinterpret_cast<char *>(*to)) + 1);
    return true;
  };
  if (!take_name(b + 18, b[17], &head->dfh_name, &head->dfh_name_len) ||
      !take_name(b + 147, b[146], &head->dfh_ifname, &head->dfh_ifname_len) ||
      !take(b + 291, 5, &head->dfh_extra, &head->dfh_extra_len)) {
    tarvik_free_dfh_var(head);
    return ENOMEM;
  }
  return 0;
}

}  // extern "C"
