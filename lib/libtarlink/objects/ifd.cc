// Device operations: reads of one device by index, name or SNMP id; the list of all devices
// through the numeric system control; the read-modify-write change of flags and the point change.
//
// Requests go out in IDR; a reply is read whole and decoded into one arena that the caller owns
// and gives back with tarvik_msg_idl_release.  Operations that only change something stop after
// the write: the kernel sends no reply to a change, and tells the other sessions instead.
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "objects/request.h"
#include "platform/platform.h"
#include "wire.h"

#include <algorithm>

namespace {

using tlk::platform::ops;
using tlk::request::clear_outs;
using tlk::request::exchange;
using tlk::request::put_name;
using tlk::request::Reply;
using tlk::request::send;
using tlk::request::Seq;
using tlk::request::Status;
using tlk::request::write_framed;
using tlk::wire::load_u16;
using tlk::wire::round4;

using IfdRequest = tlk::request::Request<ifdev_msg>;

constexpr size_t kNameMax = 59;            // characters kept of a name; the end byte makes 60
constexpr uint32_t kPointChange = 0x2000;  // ifdm_change of a point change
constexpr uint16_t kAfFeType = 438;        // the one structure attachment built here
constexpr size_t kAfFeBytes = 592;
constexpr uint32_t kRawRunType = 0x70000FF;  // attachment carrying input records as they came
constexpr int kListMib[5] = {4 /* CTL_NET */, 17 /* PF_ROUTE */, 0, 0, 3 /* NET_RT_IFLIST */};

// Where a record may start: 8-aligned, as records with 64-bit fields are on every target (and
// records with pointers on a 64-bit host).  Bytes and names need only 4.
uint8_t *record_at(uint8_t *p) {
  return reinterpret_cast<uint8_t *>((reinterpret_cast<uintptr_t>(p) + 7) & ~uintptr_t{7});
}

struct IfdKeys {
  uint16_t index = 0;
  uint32_t snmp_id = 0;
  const char *name = nullptr;
};

int ifdm_get(tarvik_cookie *cookie, const IfdKeys &keys, uint32_t op, void **out, void **mask) {
  clear_outs(out, mask);
  if (cookie == nullptr || out == nullptr) return EINVAL;
  IfdRequest req(cookie, TLK_MSG_IFDEV, op, Seq::kDraw);
  if (!req) return ENOMEM;
  req->ifdm_index = keys.index;
  req->ifdm_snmp_id.idx = keys.snmp_id;
  if (keys.name != nullptr) {
    (void)put_name(req.variable_area(), keys.name, kNameMax, &req->ifdm_name, &req->ifdm_name_len);
  }
  return exchange(req, out, mask).code();
}

// Copies the reply's alternative address behind `cursor` into the request, so that a change
// doesn't lose it: a 36-byte (target) sockaddr_idl, then the address, each rounded up to 4.  An
// entry with no data or a zero length byte leaves the field empty.
uint8_t *keep_altaddr(ifdev_msg *req, const ifdev_msg *reply, uint8_t *cursor) {
  req->ifdm_altaddr = nullptr;
  req->ifdm_altaddr_len = 0;
  if (reply->ifdm_altaddr == nullptr || reply->ifdm_altaddr_len == 0) return cursor;
  const sockaddr_idl &from = reply->ifdm_altaddr[0];
  if (from.sai_addr == nullptr || from.sai_addr[0] == 0) return cursor;
  cursor = record_at(cursor);
  auto *sa = reinterpret_cast<sockaddr_idl *>(cursor);
  memset(sa, 0, sizeof *sa);
  cursor += round4(sizeof *sa);
  memcpy(cursor, from.sai_addr, from.sai_addr[0]);
  sa->sai_addr = cursor;
  cursor += round4(from.sai_addr[0]);
  req->ifdm_altaddr = sa;
  req->ifdm_altaddr_len = 1;
  return cursor;
}

// Places a socket address behind `cursor` as its own sockaddr_idl and the address bytes (its
// first byte is its length), each rounded up to 4; a null address or a zero length byte leaves
// the field empty.
uint8_t *put_address(const uint8_t *addr, sockaddr_idl **field, uint32_t *count, uint8_t *cursor) {
  *field = nullptr;
  *count = 0;
  if (addr == nullptr || addr[0] == 0) return cursor;
  cursor = record_at(cursor);
  auto *sa = reinterpret_cast<sockaddr_idl *>(cursor);
  memset(sa, 0, sizeof *sa);
  cursor += round4(sizeof *sa);
  memcpy(cursor, addr, addr[0]);
  sa->sai_addr = cursor;
  cursor += round4(addr[0]);
  *field = sa;
  *count = 1;
  return cursor;
}

// The attachment classes of input records, by type.
enum class TlvClass { kWordList, kInline, kStructure, kUnknown };

TlvClass class_of(uint16_t type) {
  static const uint16_t kWordList[] = {1, 2, 3, 8, 14, 26, 32, 43, 47, 51, 58, 73, 91, 228, 261};
  static const uint16_t kInline[] = {
      4,   9,   15,  19,  20,  21,  22,  27,  33,  37,  48,  52,  69,  70,  71,  74,  92,  93,
      94,  101, 102, 106, 109, 112, 113, 114, 118, 132, 133, 134, 138, 143, 147, 169, 170, 176,
      177, 185, 197, 198, 202, 213, 221, 222, 229, 237, 238, 239, 240, 241, 245, 246, 253, 254,
      257, 260, 265, 269, 270, 279, 280, 281, 282, 283, 284, 285, 293, 298, 301, 305, 306, 307,
      310, 317, 319, 321, 322, 324, 325, 326, 337, 352, 353, 354, 366, 367, 369, 376, 377, 378,
      379, 385, 389, 392, 398, 399, 400, 407, 412, 413, 415, 421, 428, 429, 431, 444, 450};
  static const uint16_t kStructure[] = {10, 230, 231, 355, 363, 438, 439};
  for (uint16_t t : kWordList) {
    if (t == type) return TlvClass::kWordList;
  }
  for (uint16_t t : kInline) {
    if (t == type) return TlvClass::kInline;
  }
  for (uint16_t t : kStructure) {
    if (t == type) return TlvClass::kStructure;
  }
  return TlvClass::kUnknown;
}

// Turns a run of input records (u16 type, u16 length with its 4 header bytes, data; the next at
// the length rounded up to 4) into attachments of `req`, laid out from `cursor` on: the 128
// pointer slots, then each attachment and its data.  Records of unknown types are gathered, in
// input order and whole, into one attachment of type 0x70000FF after the walk.  Sets
// ifdm_dinfotype to 1 in every case.  EMSGSIZE when the message block runs out.
int build_attachments(ifdev_msg *req, const uint8_t *tlvs, uint32_t total, uint8_t *cursor) {
  req->ifdm_dinfotype = 1;
  if (tlvs == nullptr || total == 0) return 0;
  uint8_t *const end = reinterpret_cast<uint8_t *>(req) + TLK_MSG_BUF_SIZE;
  cursor = record_at(cursor);
  void *slots = cursor;
  cursor += 128 * sizeof(void *);
  // The encoder reads a whole tlk_msg_info, so each attachment needs that much room in the block.
  auto room_for = [&](size_t own) { return cursor + std::max(own, sizeof(tlk_msg_info)) <= end; };
  size_t unknown_bytes = 0;
  int err = 0;
  for (uint32_t off = 0; off + 4 <= total && err == 0;) {
    const uint16_t type = load_u16(tlvs + off);
    const uint16_t length = load_u16(tlvs + off + 2);
    if (length == 0) break;
    if (length < 4 || off + length > total) return EINVAL;  // a record past the run's end
    const uint8_t *data = tlvs + off + 4;
    const size_t data_len = length - 4u;
    cursor = record_at(cursor);
    auto *info = reinterpret_cast<tlk_msg_info *>(cursor);
    switch (type < 1 || type > 450 ? TlvClass::kUnknown : class_of(type)) {
      case TlvClass::kWordList: {
        const size_t own = round4(sizeof *info) + round4(data_len);
        if (!room_for(own)) return EMSGSIZE;
        memset(info, 0, sizeof *info);
        info->tlkmi_type = type;
        uint8_t *words = cursor + round4(sizeof *info);
        memcpy(words, data, data_len);
        info->tlkmi_u.if_opcode.io_words = reinterpret_cast<uint32_t *>(words);
        info->tlkmi_u.if_opcode.io_count = static_cast<uint32_t>(data_len / 4);
        cursor += own;
        err = tlkm_info_user_add(req, info, &slots);
        break;
      }
      case TlvClass::kInline: {
        const size_t own = (size_t{length} + 7) & ~size_t{3};
        if (!room_for(own)) return EMSGSIZE;
        memset(info, 0, std::max(own, sizeof *info));
        info->tlkmi_type = type;
        memcpy(&info->tlkmi_u, data, std::min(data_len, sizeof info->tlkmi_u));
        cursor += own;
        err = tlkm_info_user_add(req, info, &slots);
        break;
      }
      case TlvClass::kStructure:
        if (type == kAfFeType) {
          const size_t own = round4(sizeof *info) + kAfFeBytes;
          if (!room_for(own)) return EMSGSIZE;
          memset(info, 0, sizeof *info);
          info->tlkmi_type = type;
          uint8_t *copy = cursor + round4(sizeof *info);
          memset(copy, 0, kAfFeBytes);
          memcpy(copy, data, std::min(data_len, kAfFeBytes));
          info->tlkmi_u.af_fe.af_data = copy;
          info->tlkmi_u.af_fe.af_len = kAfFeBytes;
          cursor += own;
          err = tlkm_info_user_add(req, info, &slots);
        }
        break;  // the other structures are not built here
      case TlvClass::kUnknown:
        unknown_bytes += length;
        break;
    }
    off += static_cast<uint32_t>(round4(length));
  }
  if (err != 0 || unknown_bytes == 0) return err;
  // The unknown records, header included, one after another behind one attachment.
  cursor = record_at(cursor);
  auto *info = reinterpret_cast<tlk_msg_info *>(cursor);
  const size_t own = round4(sizeof *info) + round4(unknown_bytes);
  if (!room_for(own)) return EMSGSIZE;
  memset(info, 0, sizeof *info);
  info->tlkmi_type = kRawRunType;
  uint8_t *copy = cursor + round4(sizeof *info);
  size_t at = 0;
  for (uint32_t off = 0; off + 4 <= total;) {
    const uint16_t type = load_u16(tlvs + off);
    const uint16_t length = load_u16(tlvs + off + 2);
    if (length == 0) break;
    if (type < 1 || type > 450 || class_of(type) == TlvClass::kUnknown) {
      memcpy(copy + at, tlvs + off, length);
      at += length;
    }
    off += static_cast<uint32_t>(round4(length));
  }
  struct RawRun {
    void *data;
    uint32_t count;
  } run{copy, static_cast<uint32_t>(unknown_bytes)};
  memcpy(&info->tlkmi_u, &run, sizeof run);
  return tlkm_info_user_add(req, info, &slots);
}

// The read of a read-modify-write: the device as it stands, or an error (ENOMEM for no reply).
Status fetch(tarvik_cookie *cookie, uint32_t index, Reply &got) {
  const int err = tarvik_ifdm_get_by_index(cookie, index, TLK_OP_GET, got.out(), nullptr);
  if (err == 0 && got.as<ifdev_msg>() == nullptr) return ENOMEM;
  return err;
}

// The read half of a read-modify-write change: `req` (a change request, its sequence number
// drawn before the read's) gets the index and the device's current flags; `got` holds the device
// as it stands for the caller's changes.
Status start_change(IfdRequest &req, uint32_t index, uint32_t flags, Reply &got) {
  req->ifdm_index = static_cast<uint16_t>(index);
  if (flags != 0) req->ifdm_flags = flags;  // overwritten by the read below, as it always was
  const Status status = fetch(req.cookie(), index, got);
  if (!status.ok()) return status;
  const auto *cur = got.as<ifdev_msg>();
  req->ifdm_devflags = cur->ifdm_devflags;
  req->ifdm_flags = cur->ifdm_flags;
  return status;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_ifdm_get_by_index(tarvik_cookie *cookie, uint32_t index, uint32_t op,
                                        void **out, void **mask) {
  IfdKeys k;
  k.index = static_cast<uint16_t>(index);
  return ifdm_get(cookie, k, op, out, mask);
}

TLK_EXPORT int tarvik_ifdm_get_by_name(tarvik_cookie *cookie, const char *name, uint32_t op,
                                       void **out, void **mask) {
  if (name == nullptr) {
    if (out != nullptr) *out = nullptr;
    return EINVAL;
  }
  IfdKeys k;
  k.name = name;
  return ifdm_get(cookie, k, op, out, mask);
}

TLK_EXPORT int tarvik_ifdm_get_by_snmp_index(tarvik_cookie *cookie, uint32_t snmp_id, uint32_t op,
                                             void **out, void **mask) {
  if (op != TLK_OP_GET) {  // an SNMP id has no order to walk
    if (out != nullptr) *out = nullptr;
    return EINVAL;
  }
  IfdKeys k;
  k.snmp_id = snmp_id;
  return ifdm_get(cookie, k, op, out, mask);
}

TLK_EXPORT int tarvik_ifxm_get_all(tarvik_cookie *cookie, tarvik_msg_list_t **list_out,
                                   uint32_t selector) {
  if (cookie == nullptr || list_out == nullptr) return EINVAL;
  const int mib[6] = {kListMib[0], kListMib[1], kListMib[2],
                      kListMib[3], kListMib[4], static_cast<int>(selector)};
  size_t size = 0;
  tarvik_msg_list_t *list = nullptr;
  void *block = nullptr;
  int err = 0;
  if (ops().sysctl(mib, 6, nullptr, &size, nullptr, 0) != 0) {
    err = errno;
  } else if ((list = tarvik_msg_list_alloc(cookie)) == nullptr) {
    err = ENOMEM;
  } else if ((block = tarvik_size_alloc(cookie, size == 0 ? 1 : size)) == nullptr) {
    err = ENOMEM;
  } else if (ops().sysctl(mib, 6, block, &size, nullptr, 0) != 0) {
    err = errno;
  } else {
    err = tarvik_msg_list_fillin(cookie, list, size, block);
  }
  if (err != 0) {
    tarvik_msg_list_free(cookie, list);
    tarvik_msg_free(cookie, block);
    *list_out = nullptr;
    return err;
  }
  // Decoded messages no longer need the block; a list of another kind keeps it.
  if (list->kind == TARVIK_MSG_LIST_DECODED) tarvik_msg_free(cookie, block);
  *list_out = list;
  return 0;
}

TLK_EXPORT int tarvik_ifdm_get_all(tarvik_cookie *cookie, tarvik_msg_list_t **list_out) {
  return tarvik_ifxm_get_all(cookie, list_out, 1);
}

TLK_EXPORT int tarvik_ifdm_change_flags(tarvik_cookie *cookie, uint32_t index, uint32_t flags,
                                        int clear) {
  if (cookie == nullptr) return EINVAL;
  IfdRequest req(cookie, TLK_MSG_IFDEV, TLK_OP_CHANGE, Seq::kDraw);
  if (!req) return ENOMEM;
  Reply got(cookie);
  const Status status = start_change(req, index, 0, got);
  if (!status.ok()) return status.code();
  const auto *cur = got.as<ifdev_msg>();
  req->ifdm_flags = clear != 0 ? (cur->ifdm_flags & ~flags) : (cur->ifdm_flags | flags);
  (void)keep_altaddr(req.get(), cur, req.variable_area());
  return write_framed(cookie, req.get()).code();
}

TLK_EXPORT int tarvik_ifdm_pointchange(tarvik_cookie *cookie, uint32_t index, uint32_t flags,
                                       tarvik_ifdm_filler_t filler, const void *data,
                                       uint32_t length) {
  if (cookie == nullptr || data == nullptr) return EINVAL;
  IfdRequest req(cookie, TLK_MSG_IFDEV, TLK_OP_CHANGE, Seq::kDraw);
  if (!req) return ENOMEM;
  req->ifdm_index = static_cast<uint16_t>(index);
  req->ifdm_change = kPointChange;
  if (flags != 0) {
    req->ifdm_flags |= flags;
    req->ifdm_point_flags |= flags;
    req->ifdm_point_mask |= 1;
  }
  if (filler != nullptr) filler(cookie, req.get());

  // Attachments behind the fixed part: the pointer slots, then the attachment, then its data.
  uint8_t *area = req.variable_area();
  void *cursor = area;
  auto *info = reinterpret_cast<tlk_msg_info *>(area + 128 * sizeof(void *));
  uint8_t *payload = reinterpret_cast<uint8_t *>(info) + round4(sizeof *info);
  memset(info, 0, sizeof *info);
  const uint16_t first = length >= 2 ? load_u16(data) : 0;
  const size_t room = static_cast<size_t>(req.block_end() - payload);
  int err = 0;
  if (first == kAfFeType) {
    if (length < 4 + kAfFeBytes)
      err = EINVAL;  // the record isn't all there
    else {
      info->tlkmi_type = kAfFeType;
      memcpy(payload, static_cast<const uint8_t *>(data) + 4, kAfFeBytes);
      info->tlkmi_u.af_fe.af_data = payload;
      info->tlkmi_u.af_fe.af_len = kAfFeBytes;
      err = tlkm_info_user_add(req.get(), info, &cursor);
    }
  } else if (length != 0) {
    if (length > room)
      err = EMSGSIZE;
    else {
      // The run as it came: a pointer to its bytes and their count in the arm's first words.
      req->ifdm_dinfotype = 1;
      info->tlkmi_type = kRawRunType;
      memcpy(payload, data, length);
      struct RawRun {
        void *data;
        uint32_t count;
      } run{payload, length};
      memcpy(&info->tlkmi_u, &run, sizeof run);
      err = tlkm_info_user_add(req.get(), info, &cursor);
    }
  }
  if (err != 0) return err;
  return send(req).code();
}

TLK_EXPORT int tarvik_ifdm_add_with_tlvs(tarvik_cookie *cookie, const char *name, uint32_t index,
                                         uint16_t class_word, uint32_t flags, uint32_t info,
                                         const ifmedia *media, const void *addr, const void *haddr,
                                         const void *tlvs, uint32_t tlvs_len) {
  if (cookie == nullptr || name == nullptr) return EINVAL;
  // No sequence number: nothing answers an add.
  IfdRequest req(cookie, TLK_MSG_IFDEV, TLK_OP_ADD, Seq::kZero);
  if (!req) return ENOMEM;
  req->ifdm_index = static_cast<uint16_t>(index);
  req->ifdm_class_word = class_word;
  req->ifdm_flags = flags;
  req->ifdm_sflags = info;
  uint8_t *cursor = req.variable_area();
  cursor += round4(put_name(cursor, name, kNameMax, &req->ifdm_name, &req->ifdm_name_len));
  cursor =
      put_address(static_cast<const uint8_t *>(addr), &req->ifdm_addr, &req->ifdm_addr_len, cursor);
  cursor = put_address(static_cast<const uint8_t *>(haddr), &req->ifdm_haddr, &req->ifdm_haddr_len,
                       cursor);
  // The media record is always sent; without one, a zeroed record.
  cursor = record_at(cursor);
  auto *m = reinterpret_cast<ifmedia *>(cursor);
  if (media != nullptr) {
    memcpy(m, media, sizeof *m);
  } else {
    memset(m, 0, sizeof *m);
  }
  req->ifdm_media = m;
  req->ifdm_media_len = 1;
  cursor += round4(sizeof *m);
  if (tlvs != nullptr && tlvs_len != 0) {
    const int err =
        build_attachments(req.get(), static_cast<const uint8_t *>(tlvs), tlvs_len, cursor);
    if (err != 0) return err;
  }
  return send(req).code();
}

TLK_EXPORT int tarvik_ifdm_add(tarvik_cookie *cookie, const char *name, uint32_t index,
                               uint16_t class_word, const ifmedia *media, const void *addr,
                               const void *haddr) {
  return tarvik_ifdm_add_with_tlvs(cookie, name, index, class_word, 0, 0, media, addr, haddr,
                                   nullptr, 0);
}

TLK_EXPORT int tarvik_ifdm_change_addr(tarvik_cookie *cookie, uint32_t index, uint32_t flags,
                                       const void *addr, const void *haddr) {
  if (cookie == nullptr || (addr == nullptr && haddr == nullptr)) return EINVAL;
  IfdRequest req(cookie, TLK_MSG_IFDEV, TLK_OP_CHANGE, Seq::kDraw);
  if (!req) return ENOMEM;
  Reply got(cookie);
  const Status status = start_change(req, index, flags, got);
  if (!status.ok()) return status.code();
  uint8_t *cursor = req.variable_area();
  cursor =
      put_address(static_cast<const uint8_t *>(addr), &req->ifdm_addr, &req->ifdm_addr_len, cursor);
  cursor = put_address(static_cast<const uint8_t *>(haddr), &req->ifdm_haddr, &req->ifdm_haddr_len,
                       cursor);
  (void)keep_altaddr(req.get(), got.as<ifdev_msg>(), cursor);
  req->ifdm_dinfotype = 1;
  return write_framed(cookie, req.get()).code();
}

TLK_EXPORT int tarvik_ifdm_change_tlvs(tarvik_cookie *cookie, uint32_t index, uint32_t flags,
                                       const void *tlvs, uint32_t tlvs_len) {
  if (cookie == nullptr || tlvs == nullptr) return EINVAL;
  IfdRequest req(cookie, TLK_MSG_IFDEV, TLK_OP_CHANGE, Seq::kDraw);
  if (!req) return ENOMEM;
  Reply got(cookie);
  const Status status = start_change(req, index, flags, got);
  if (!status.ok()) return status.code();
  const auto *cur = got.as<ifdev_msg>();
  req->ifdm_sflags = cur->ifdm_sflags;
  uint8_t *cursor = keep_altaddr(req.get(), cur, req.variable_area());
  const int err =
      build_attachments(req.get(), static_cast<const uint8_t *>(tlvs), tlvs_len, cursor);
  if (err != 0) return err;
  return write_framed(cookie, req.get()).code();
}

}  // extern "C"
