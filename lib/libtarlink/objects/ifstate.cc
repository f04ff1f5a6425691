// The interface state log: the read of one chain record by sequence number, and the printers that
// render records for traces.
//
// A chain record is raw, behind the 24-byte header:
//
//    24  u8   kind            40  u64  add mask (first word)   64  u16  refs
//    32  u64  sequence        48  u64  change mask             66  u8   rt_sid
//                             56  u64  delete mask             68  i32  pid
//                                                              72  u16  info length
//   tlkh_fixedlen: the object record, laid out per kind.
//
// The object records of kinds 0 to 3 have the offsets their printers name below; the others
// are laid out field by field in the order their format shows them, each at its natural
// alignment: %d, %u and %x take a u32, %ll forms a u64, %p a 64-bit word and %s a 64-byte name.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "objects/request.h"
#include "platform/platform.h"
#include "tarlink.h"
#include "tarlink/ifstate.h"
#include "wire.h"

uint32_t ifs_max_clients = 0;

namespace {

constexpr uint16_t kIfsmFixed = 80;
constexpr size_t kKind = 24, kSeq = 32, kAdd = 40, kRefs = 64, kRtSid = 66, kPid = 68,
                 kInfoLen = 72;
constexpr size_t kSubtype = 24, kClientLen = 28;
constexpr int kLastKindWithDetail = 53;
constexpr size_t kNameBytes = 64;

template <typename T>
T at(const void *base, size_t offset) {
  T v;
  memcpy(&v, static_cast<const uint8_t *>(base) + offset, sizeof v);
  return v;
}

// A string field of `max` bytes, which need not end inside it.
const char *str_at(const void *base, size_t offset, size_t max, char *buf) {
  const auto *p = reinterpret_cast<const char *>(static_cast<const uint8_t *>(base) + offset);
  const size_t n = strnlen(p, max);
  memcpy(buf, p, n);
  buf[n] = 0;
  return buf;
}

// The writer of the printers: after each write the position advances by the count, or by all
// that was left when the text was cut, and then nothing is left.
struct Cursor {
  char *pos;
  int left;
  TLK_PRINTF(2, 3) void add(const char *format, ...) {
    if (left <= 0) return;
    va_list ap;
    va_start(ap, format);
    const int n = vsnprintf(pos, static_cast<size_t>(left), format, ap);
    va_end(ap);
    if (n < 0) return;
    if (n >= left) {
      pos += left;
      left = 0;
    } else {
      pos += n;
      left -= n;
    }
  }
};

// ---- Object records laid out in format order ----

// Prints `format`, taking each conversion's argument from the record in order, each field at its
// natural alignment.  One conversion at a time, so the record decides the types and not varargs.
void print_in_order(Cursor &out, const char *format, const uint8_t *rec) {
  size_t off = 0;
  const char *p = format;
  while (*p != 0 && out.left > 0) {
    const char *pct = strchr(p, '%');
    const char *end = pct != nullptr ? pct : p + strlen(p);
    if (end > p) out.add("%.*s", static_cast<int>(end - p), p);
    if (pct == nullptr) break;
    // The conversion: flags and width, an optional "ll", and its letter.
    const char *q = pct + 1;
    while (*q != 0 && strchr("#-0123456789", *q) != nullptr) ++q;
    const bool wide = q[0] == 'l' && q[1] == 'l';
    if (wide) q += 2;
    const char conv = *q;
    char one[16];  // this conversion alone, as its own format
    const size_t one_len = static_cast<size_t>(q - pct + 1);
    if (conv == 0 || one_len >= sizeof one) break;
    memcpy(one, pct, one_len);
    one[one_len] = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (conv == 's') {
      char name[kNameBytes + 1];
      out.add(one, str_at(rec, off, kNameBytes, name));
      off += kNameBytes;
    } else if (wide || conv == 'p') {
      off = (off + 7) & ~size_t{7};
      const uint64_t v = at<uint64_t>(rec, off);
      if (conv == 'p')
        out.add(one, reinterpret_cast<void *>(static_cast<uintptr_t>(v)));
      else
        out.add(one, static_cast<unsigned long long>(v));
      off += 8;
    } else {
      off = (off + 3) & ~size_t{3};
      out.add(one, at<uint32_t>(rec, off));
      off += 4;
    }
#pragma GCC diagnostic pop
    p = q + 1;
  }
}

// The formats of the kinds printed in field order; null for kinds with no detail or with a
// printer of their own.
const char *const kInOrder[kLastKindWithDetail + 1] = {
    nullptr,
    nullptr,
    nullptr,
    nullptr,
    "\trtb name %s tid %d af %d flags 0x%x prflags 0x%x off %d\n",
    nullptr,  // 5: route
    nullptr,  // 6: next hop
    "\t\t dfw  af %d filter %u flav %d\n",
    "ntbl \ttable %d idx %d name %s\n",
    "\tnum_entries %d\n",
    nullptr,
    "\tprofile_id %d num_entries %d\n",
    "\ttable_id %d table_type %d num_entries %d\n",
    "\tiflidx %u table_id %d table_type %d proto %d ifdidx %d ifdnic %d\n",
    "\ttable_id %d table_type %d num_entries %d\n",
    "\tiflidx %u table_id %d table_type %d ifdidx %d ifdnic %d\n",
    "\tiflidx %u ipol_bwidth %d ipol_burst %d ifdidx %d ifdnic %d\n",
    "\tiflidx %u osha_bwidth %d osha_burst %d ifdidx %d ifdnic %d\n",
    nullptr,
    "\tname %s %d src_port %d grp_idx %d act %u inact %u tcp_fin %u agg exp_int %d eng_type %d, "
    "service %u\n",
    "\trtcos index %d",
    nullptr,
    "\tifvp vpi %d\n",
    "\tsadb index %d channel %d spi %d direc %d proto %d ifl %u name %s\n",
    "\tifvc vcdlci %d, ifl_index %u, ifvc_ipdst %d nh_idx %u\n",
    nullptr,
    "\tcommit peer_type %d peer_index = %d peer_vksid = %d seq no = 0x%x\n",
    "\tcommit_prop peer_type %d peer_index = %d peer_vksid = %d flags = 0x%x seq 0x%x \n",
    "\t type (%u) idx (%u) len (%u) picidx (%u)\n",
    "\t num_entries %d\n",
    nullptr,
    nullptr,
    nullptr,
    "\t cp_name (%s) mo_name (%s) iif_name (%s) fspec_name (%s)\n",
    "\tpic idx 0x%x i2c_id 0x%x\n",
    "\tseqno 0x%x flags 0x%x cp_cookie 0x%p\n",
    nullptr,
    "\ttable_id %d num_entries %d\n",
    "\tiflidx %u table_id %d ifdidx %d ifdnic %d\n",
    nullptr,  // 39: generic config
    "\t id (%d) ipaddr (%d) pic/nic (%d/%d) name (%s)\n",
    nullptr,  // 41: STP
    "\t Vlan inst %d, Vlan index %d, Vlan tag %d, Vlan HW token %d\n",
    nullptr,
    "\t Meshgroup name %s, Meshgroup family %dMeshgroup rtb_id %d, Meshgroup index %d\n",
    "\t Analyzer name %s, Analyzer index %u, Input Ingress NH %u, Input Egress NH %u, Output NH "
    "%u\n",
    "\t Bridge Domain name %s, index %u, Virtual switch rtb %u\n",
    nullptr,  // 47: IfBD
    nullptr,
    nullptr,
    "\t Fabric inst %d, Fabric name %s, Fabric index %d, Fabric tag %d, Fabric flags %d, Fabric "
    "L3domain ID %d\n",
    nullptr,  // 51: DDOS
    nullptr,  // 52: NOTIFY
    "\tMarker seq %u alias_seqno %u flags = 0x%x \n",
};

// ---- Kinds with printers of their own ----

void print_ifd(Cursor &out, const uint8_t *r) {
  char name[61];
  out.add("\tifd idx %d name %s gen %u snmp-id = %u devflags = 0x%x flags = 0x%x\n",
          at<uint16_t>(r, 4), str_at(r, 6, 60, name), at<uint32_t>(r, 0), at<uint32_t>(r, 68),
          at<uint16_t>(r, 72), at<uint32_t>(r, 76));
}

void print_ifl(Cursor &out, const uint8_t *r) {
  char name[61];
  out.add("\tifl idx %u devidx %d unit %d name %s gen %u flags 0x%x\n", at<uint32_t>(r, 8),
          at<uint16_t>(r, 12), at<uint32_t>(r, 16), str_at(r, 20, 60, name), at<uint32_t>(r, 4),
          at<uint32_t>(r, 0));
}

void print_iff(Cursor &out, const uint8_t *r) {
  out.add("\tiff iflidx %u devidx %d unit %d af %d table %d gen %u flags 0x%x\n",
          at<uint32_t>(r, 4), at<uint16_t>(r, 8), at<uint32_t>(r, 12), at<uint8_t>(r, 20),
          at<uint16_t>(r, 18), at<uint32_t>(r, 0), at<uint16_t>(r, 16));
}

void print_ifa(Cursor &out, const uint8_t *r) {
  const uint8_t af = at<uint8_t>(r, 62);
  out.add("\tifa iflidx %u devidx %d unit %d af %d gen %u flags 0x%x\n", at<uint32_t>(r, 4),
          at<uint16_t>(r, 8), at<uint32_t>(r, 12), af, at<uint32_t>(r, 0), at<uint16_t>(r, 16));
  // The prefix printer reads 32 bytes at least; the record holds 20 per prefix.
  uint8_t local[32] = {}, dest[32] = {};
  memcpy(local, r + 18, 20);
  memcpy(dest, r + 38, 20);
  char lp[128], dp[128];
  out.add("\tlocal prefix %s dest prefix %s\n",
          tarvik_format_prefix(lp, sizeof lp, local, at<uint16_t>(r, 58), af, 0),
          tarvik_format_prefix(dp, sizeof dp, dest, at<uint16_t>(r, 60), af, 0));
}

// Route: u32 type, u32 af, then proto, tid, lrid, featureid, nhidx, ifidx, fwdnhidx,
// iflistnhidx, p2mpnhid and ign as u32, 16 prefix bytes, then plen, flags, kflags and refcnt.
void print_route(Cursor &out, const uint8_t *r) {
  const uint32_t type = at<uint32_t>(r, 0), af = at<uint32_t>(r, 4);
  uint8_t pfx[32] = {};
  memcpy(pfx, r + 56, 16);
  char text[128];
  const uint32_t plen = at<uint32_t>(r, 72);
  out.add(
      "\troute type %s (%d) af %s proto %d tid %d lrid %d featureid %d nhidx %d ifidx %d "
      "fwdnhidx %d iflistnhidx %d p2mpnhid %d ign %d prefix %s plen %d flags 0x%x kflags 0x%x "
      "refcnt %d\n",
      tarvik_format_route_type(static_cast<int>(type)), type,
      tarvik_format_af(static_cast<int>(af)), at<uint32_t>(r, 8), at<uint32_t>(r, 12),
      at<uint32_t>(r, 16), at<uint32_t>(r, 20), at<uint32_t>(r, 24), at<uint32_t>(r, 28),
      at<uint32_t>(r, 32), at<uint32_t>(r, 36), at<uint32_t>(r, 40), at<uint32_t>(r, 44),
      tarvik_format_prefix(text, sizeof text, pfx, plen, static_cast<int>(af), 0), plen,
      at<uint32_t>(r, 76), at<uint32_t>(r, 80), at<uint32_t>(r, 84));
}

// Next hop: idx, subnh_idx, hw_id, type, pfe, af, ref, flags, kflags as u32, fwd_flags u64 at
// 40, af_ifl, tid, lr_id, parent_nh_idx, user flags as u32, adders u64 at 72; a composite (type
// 24) then has its child count at 80 and the children from 84.
void print_nexthop(Cursor &out, const uint8_t *r) {
  const uint32_t type = at<uint32_t>(r, 12);
  const char *word = tarvik_format_nexthop_type(static_cast<int>(type));
  out.add(
      "\t\trnh idx %u subnh_idx %u hw_id 0x%x type %s (%d) pfe %d af %d ref %d flags 0x%x "
      "kflags 0x%x fwd_flags 0x%llx af_ifl %u tid %u lr_id %u parent_nh_idx %u rnh_user flags "
      "0x%x adders 0x%llx\n",
      at<uint32_t>(r, 0), at<uint32_t>(r, 4), at<uint32_t>(r, 8), word != nullptr ? word : "", type,
      at<uint32_t>(r, 16), at<uint32_t>(r, 20), at<uint32_t>(r, 24), at<uint32_t>(r, 28),
      at<uint32_t>(r, 32), static_cast<unsigned long long>(at<uint64_t>(r, 40)),
      at<uint32_t>(r, 48), at<uint32_t>(r, 52), at<uint32_t>(r, 56), at<uint32_t>(r, 60),
      at<uint32_t>(r, 64), static_cast<unsigned long long>(at<uint64_t>(r, 72)));
  if (type != 24) return;
  const uint32_t children = at<uint32_t>(r, 80);
  out.add("Composite Child NH info\n");
  out.add("Num of Child NHs = %d\n", children);
  for (uint32_t i = 0; i < children && out.left > 0; ++i)
    out.add("idx=%d\n", at<uint32_t>(r, 84 + 4 * i));
}

// Generic config: major, minor, kid, flags as u32, and with flag 0x2 the key length at 16 and
// the key from 20.
void print_gencfg(Cursor &out, const uint8_t *r) {
  const uint32_t flags = at<uint32_t>(r, 12);
  out.add("\tmajor 0x%x minor 0x%x kid 0x%x flags 0x%x", at<uint32_t>(r, 0), at<uint32_t>(r, 4),
          at<uint32_t>(r, 8), flags);
  if ((flags & 0x2) != 0) {
    const uint32_t len = at<uint32_t>(r, 16);
    out.add(" keylen %d key 0x", len);
    for (uint32_t i = 0; i < len && out.left > 0; ++i) out.add("%02x", r[20 + i]);
  }
  out.add("\n");
}

// STP: index, state, generation, epoch and learning as u32.
void print_stp(Cursor &out, const uint8_t *r) {
  static const char *const kStates[] = {"Disabled", "Blocking",   "Listening",
                                        "Learning", "Forwarding", "Discarding"};
  const uint32_t state = at<uint32_t>(r, 4);
  out.add("\t STP index %u STP state %s\nTC genertion %u STP epoch %u HW learning %s\n",
          at<uint32_t>(r, 0), state < 6 ? kStates[state] : "Invalid", at<uint32_t>(r, 8),
          at<uint32_t>(r, 12), at<uint32_t>(r, 16) != 0 ? "Enabled" : "Disabled");
}

// IfBD: device index, unit, type, bridge index as u32.
void print_ifbd(Cursor &out, const uint8_t *r) {
  static const char *const kTypes[] = {"IFL", "IFD", "VLAN"};
  const uint32_t type = at<uint32_t>(r, 8);
  out.add("\t IfBD <Index>%u.%u Type %s<-> %u \n", at<uint32_t>(r, 0), at<uint32_t>(r, 4),
          type < 3 ? kTypes[type] : "Unknown", at<uint32_t>(r, 12));
}

// DDOS: the first word chooses the form, the values follow as u32.
void print_ddos(Cursor &out, const uint8_t *r) {
  switch (at<uint32_t>(r, 0)) {
    case 0:
      return out.add("\t\t global ctrl flag 0x%x\n", at<uint32_t>(r, 4));
    case 1:
      return out.add("\t\t global states 0x%x\n", at<uint32_t>(r, 4));
    case 2:
      return out.add("\t\t proto 0x%x\n", at<uint32_t>(r, 4));
    case 3:
      return out.add("\t\t proto 0x%x, states 0x%x\n", at<uint32_t>(r, 4), at<uint32_t>(r, 8));
    default:
      return;
  }
}

// NOTIFY: u32 form at 0; form 0 is a peer index and a length at 4 and 8 and the data bytes from
// 12; form 1 or 2 an entry count at 4 and (nh_index, version or OAM id) pairs from 8.
void print_notify(Cursor &out, const uint8_t *r) {
  const uint32_t form = at<uint32_t>(r, 0);
  if (form == 0) {
    const uint32_t len = at<uint32_t>(r, 8);
    out.add("\t\t Sender peer index %d, length = %d\n\t\t data = ", at<uint32_t>(r, 4), len);
    for (uint32_t i = 0; i < len && out.left > 0; ++i) out.add("%02x", r[12 + i]);
    out.add("\n");
    return;
  }
  const uint32_t n = at<uint32_t>(r, 4);
  out.add("\t\t nh_entries = %d\n", n);
  for (uint32_t i = 0; i < n && out.left > 0; ++i) {
    const uint32_t idx = at<uint32_t>(r, 8 + 8 * i), id = at<uint32_t>(r, 12 + 8 * i);
    if (form == 1)
      out.add("\t\t nh_index %8u version_id %8u \n", idx, id);
    else
      out.add("\t\t nh_index %8u oam_id %8u \n", idx, id);
  }
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_ifsm_get(tarvik_cookie *cookie, uint32_t, uint64_t seq, uint32_t op,
                               void **out) {
  if (out != nullptr) *out = nullptr;
  if (cookie == nullptr || out == nullptr) return EINVAL;
  tlk::request::Block reply(cookie);
  if (!reply) return ENOMEM;
  uint8_t request[kIfsmFixed] = {};
  (void)tlk::request::fill_raw_header(request, TLK_MSG_IFSTATE, op, tlk::request::next_seq(cookie),
                                      kIfsmFixed, 0);
  memcpy(request + kSeq, &seq, sizeof seq);
  return tlk::request::raw_exchange(cookie, request, reply, out).code();
}

TLK_EXPORT void tarvik_ifsm_info_print(int kind, const void *info, char **position, int *left) {
  if (kind < 0 || kind > kLastKindWithDetail || info == nullptr || position == nullptr ||
      left == nullptr)
    return;
  Cursor out{*position, *left};
  const auto *r = static_cast<const uint8_t *>(info);
  switch (kind) {
    case 0:
      print_ifd(out, r);
      break;
    case 1:
      print_ifl(out, r);
      break;
    case 2:
      print_iff(out, r);
      break;
    case 3:
      print_ifa(out, r);
      break;
    case 5:
      print_route(out, r);
      break;
    case 6:
      print_nexthop(out, r);
      break;
    case 39:
      print_gencfg(out, r);
      break;
    case 41:
      print_stp(out, r);
      break;
    case 47:
      print_ifbd(out, r);
      break;
    case 51:
      print_ddos(out, r);
      break;
    case 52:
      print_notify(out, r);
      break;
    default:
      if (kInOrder[kind] != nullptr) print_in_order(out, kInOrder[kind], r);
      break;
  }
  *position = out.pos;
  *left = out.left;
}

TLK_EXPORT int tarvik_ifsm_print(const void *message, char *buffer, size_t size, int detail) {
  if (message == nullptr || buffer == nullptr || size == 0) return 0;
  const auto *m = static_cast<const uint8_t *>(message);
  Cursor out{buffer, size > INT32_MAX ? INT32_MAX : static_cast<int>(size)};
  out.add("%s seq %lld ", tarvik_format_ifstate_type(m[kKind]),
          static_cast<long long>(at<uint64_t>(m, kSeq)));
  if (out.left == 0) return static_cast<int>(out.pos - buffer);
  // The result isn't tested: a failed read keeps the value of the last one.
  size_t len = sizeof ifs_max_clients;
  (void)tlk::platform::ops().sysctlbyname("hw.product.ifs_max_clients", &ifs_max_clients, &len,
                                          nullptr, 0);
  // Each mask is (ifs_max_clients + 1) / 64 words, so fewer than 63 clients print none.  Words
  // past the fixed record are not read.
  size_t words = (static_cast<size_t>(ifs_max_clients) + 1) / 64;
  static const char *const kLabels[3] = {"add ", "chg ", "del "};
  for (int i = 0; i < 3; ++i) {
    const size_t first = kAdd + 8 * static_cast<size_t>(i);
    const size_t n = words < (kIfsmFixed - first) / 8 ? words : (kIfsmFixed - first) / 8;
    bool any = false;
    for (size_t w = 0; w < n; ++w) any = any || at<uint64_t>(m, first + 8 * w) != 0;
    // The format is 32 bits wide and the word 64: the number shown is only the low half, and
    // trace readers go by the label.
    if (any) out.add("%s%#x ", kLabels[i], static_cast<unsigned>(at<uint64_t>(m, first)));
  }
  const uint16_t refs = at<uint16_t>(m, kRefs);
  if (refs != 0) out.add("refs %d", refs);  // no space before "pid": the trace has always so
  out.add("pid %d rt_sid %d", at<int32_t>(m, kPid), at<uint8_t>(m, kRtSid));
  out.add("\n");
  const uint16_t fixed = at<uint16_t>(m, 20);
  if (detail == 2 && at<uint16_t>(m, kInfoLen) != 0 && out.left > 0) {
    tarvik_ifsm_info_print(m[kKind], m + fixed, &out.pos, &out.left);
  }
  return static_cast<int>(out.pos - buffer);
}

TLK_EXPORT int tarvik_ifsclim_print(const void *message, char *buffer, size_t size) {
  if (message == nullptr || buffer == nullptr) return 0;
  const auto *m = static_cast<const uint8_t *>(message);
  int n = snprintf(buffer, size, "%s ", tarvik_format_ifsclim_subtype(m[kSubtype]));
  if (n < 0 || static_cast<size_t>(n) >= size) return n;
  size_t used = static_cast<size_t>(n);
  if (at<uint32_t>(m, kClientLen) != 0) {
    const char *client = reinterpret_cast<const char *>(m + at<uint16_t>(m, 20));
    n = snprintf(buffer + used, size - used, "client %s", client);
    if (n < 0) return n;
    used += static_cast<size_t>(n) < size - used ? static_cast<size_t>(n) : size - used - 1;
  }
  return snprintf(buffer + used, size - used, "\n");
}

}  // extern "C"
