// sockaddr_idl: the one record type with a hand-written codec.  In memory it is the generated
// choice sockaddr_idl_int followed by a pointer to a socket address in its usual flat form; on
// the wire it is the choice alone.
//
// Encoding starts from the flat address when the pointer is set: an ordinary family travels
// whole as arm 0 (a blob of its first-byte length); a link-level address (family 18) is taken
// apart into arm 1:
//
//    0     1     2     3     4           8     9    10    11    12
//    +-----+-----+-----+-----+-----------+-----+-----+-----+-----+------------------+---------+
//    | len | fam |info |     |   word    |  four bytes: 10 = address length,      | data ... | trailer |
//    |     |     |type |     |           |  11 = selector length)  |              |         |
//    +-----+-----+-----+-----+-----------+-----+-----+-----+-----+------------------+---------+
//
// The info type says what trailer ends the data; the trailer becomes the list of sdl_info
// entries, the rest of the data the blob.  Decoding rebuilds the flat address into one
// allocation, sized by a first pass of the same routine that writes it in the second.
#include <cstring>

#include "idl/engine.h"
#include "tarlink.h"
#include "wire.h"

namespace tlk::idl::gen {
extern const Record rec_sockaddr_idl_int;
}

namespace {

using tlk::idl::internal::Writer;

constexpr uint8_t kAfLink = 18;
constexpr uint8_t kInfoVlanMap = 6;
constexpr uint8_t kInfoAtmRepl = 18;
constexpr uint32_t kSelVpci = 11;

// Trailer bytes of the fixed-size sdl_info arms, by selector; 0 for none.
uint32_t trailer_size(uint32_t selector) {
  switch (selector) {
    case 1:
      return 4;  // tunnel_vrf_parms
    case 2:
      return 16;  // tcc_ether_info
    case 3:
      return 6;  // ppp_ifl_sdl_info
    case 4:
      return 4;  // ifka_conf
    case 8:
      return 40;  // ml_ifl_opt
    case 9:
      return 146;  // mlopt
    case 10:
      return 88;  // agg_opt
    case 11:
      return 160;  // vpci_info
    case 12:
      return 8;  // iflmi_conf
    case 14:
      return 40;  // ifmfr_conf
    case 15:
      return 180;  // sdl_ae_lacp_opt
    case 18:
      return 8;  // atm_mpt_repl_info
    default:
      return 0;
  }
}

// The fixed-size arms are byte arrays at the start of the arm union.
uint8_t *arm_bytes(sdl_info &e) {
  return reinterpret_cast<uint8_t *>(&e.sdl_u);
}
const uint8_t *arm_bytes(const sdl_info &e) {
  return reinterpret_cast<const uint8_t *>(&e.sdl_u);
}

using tlk::wire::load_u16;

// The unpacked form of one link-level address, on the stack of the encoder.
struct Scratch {
  sockaddr_idl_int choice;
  sdl_info info[4];
  vlan_tag_idl pair_a[2];
  vlan_tag_idl pair_b[2];
  vlan_map_idl map[32];
  uint8_t data[256];
};

// The record that goes on the wire: the caller's choice, or the one unpacked from the address.
const sockaddr_idl_int *prepare(const sockaddr_idl *rec, Scratch &s) {
  if (rec->sai_addr == nullptr) return &rec->sai_int;
  const uint8_t *sa = rec->sai_addr;
  std::memset(&s.choice, 0, sizeof s.choice);
  if (sa[1] != kAfLink) {
    s.choice.sai_type = 0;
    s.choice.sai_u.idl_sockaddr_gen.isg_addr = const_cast<uint8_t *>(sa);
    s.choice.sai_u.idl_sockaddr_gen.isg_len = sa[0];
    return &s.choice;
  }
  if (sa[0] < 12) {
    // Too short for a link-level head: the caller's bytes are read no further than they claim.
    std::memset(s.data, 0, 12);
    std::memcpy(s.data, sa, sa[0]);
    sa = s.data;
  }
  idl_sockaddr_dl &dl = s.choice.sai_u.idl_sockaddr_dl;
  s.choice.sai_type = 1;
  dl.isd_family = sa[1];
  dl.isd_word = tlk::wire::load_u32(sa + 4);
  std::memcpy(dl.isd_bytes, sa + 8, 4);
  const uint8_t info_type = sa[2];
  const uint8_t *data = sa + 12;
  uint32_t datalen = sa[0] > 12 ? sa[0] - 12u : 0u;
  uint32_t n = 0;
  if (info_type == kInfoVlanMap) {
    // The tag map's fields lie at the head of the data, not in a trailer.
    if (datalen >= 20) {
      std::memset(&s.info[0], 0, sizeof s.info[0]);
      s.info[0].sdl_type = kInfoVlanMap;
      vlan_tag_map_idl &vm = s.info[0].sdl_u.vlan_tag_map_idl;
      s.pair_a[0].vti_tag = load_u16(data + 0);
      s.pair_a[1].vti_tag = load_u16(data + 2);
      vm.vtm_word0 = load_u16(data + 4);
      vm.vtm_word1 = load_u16(data + 6);
      vm.vtm_word2 = load_u16(data + 8);
      s.pair_b[0].vti_tag = load_u16(data + 10);
      s.pair_b[1].vti_tag = load_u16(data + 12);
      vm.vtm_word3 = load_u16(data + 14);
      vm.vtm_word4 = load_u16(data + 16);
      vm.vtm_word5 = load_u16(data + 18);
      vm.vtm_pair_a = s.pair_a;
      vm.vtm_pair_a_cnt = 2;
      vm.vtm_pair_b = s.pair_b;
      vm.vtm_pair_b_cnt = 2;
      data += 20;
      datalen -= 20;
      dl.isd_bytes[2] = static_cast<uint8_t>(dl.isd_bytes[2] - 20);
      // Behind the address bytes, whole 8-byte map entries if the length allows them; what
      // is left stays data.
      uint32_t alen = dl.isd_bytes[2];
      uint32_t entries = datalen > alen ? (datalen - alen) / 8 : 0;
      if (entries > 0) {
        std::memcpy(s.map, data + alen, entries * 8);
        vm.vtm_map = s.map;
        vm.vtm_map_cnt = entries;
        std::memcpy(s.data, data, alen);
        std::memcpy(s.data + alen, data + alen + entries * 8, datalen - alen - entries * 8);
        data = s.data;
        datalen -= entries * 8;
      }
      n = 1;
    }
  } else if (info_type == kInfoAtmRepl) {
    // One vpci_info (160 bytes) and three 8-byte replication entries.
    if (datalen >= 184) {
      datalen -= 184;
      const uint8_t *t = data + datalen;
      for (uint32_t k = 0; k < 4; ++k) {
        std::memset(&s.info[k], 0, sizeof s.info[k]);
        s.info[k].sdl_type = k == 0 ? kSelVpci : kInfoAtmRepl;
        std::memcpy(arm_bytes(s.info[k]), k == 0 ? t : t + 160 + 8 * (k - 1), k == 0 ? 160 : 8);
      }
      n = 4;
    }
  } else if (uint32_t ts = trailer_size(info_type); ts != 0 && info_type != kInfoAtmRepl) {
    if (datalen >= ts) {
      datalen -= ts;
      std::memset(&s.info[0], 0, sizeof s.info[0]);
      s.info[0].sdl_type = info_type;
      std::memcpy(arm_bytes(s.info[0]), data + datalen, ts);
      if (info_type == 1) dl.isd_bytes[3] = static_cast<uint8_t>(dl.isd_bytes[3] - 4);
      n = 1;
    }
  }
  dl.isd_data = const_cast<uint8_t *>(data);
  dl.isd_data_len = datalen;
  dl.isd_info = n != 0 ? s.info : nullptr;
  dl.isd_info_len = n;
  return &s.choice;
}

// The info type that the trailer list stands for.
uint8_t info_type_of(const idl_sockaddr_dl &dl) {
  if (dl.isd_info == nullptr || dl.isd_info_len == 0) return 0;
  for (uint32_t k = 0; k < dl.isd_info_len; ++k) {
    if (dl.isd_info[k].sdl_type == kInfoAtmRepl) return kInfoAtmRepl;
  }
  return static_cast<uint8_t>(dl.isd_info[0].sdl_type);
}

// Writes the flat address through `w` and returns its size; with a size-only writer it only
// measures.  Both passes run this same routine.
uint32_t rebuild(const idl_sockaddr_dl &dl, const Writer &w) {
  const uint8_t info_type = info_type_of(dl);
  uint8_t head[12] = {};
  head[1] = dl.isd_family;
  head[2] = info_type;
  tlk::wire::store_u32(head + 4, dl.isd_word);
  std::memcpy(head + 8, dl.isd_bytes, 4);
  uint64_t end = 12;
  uint64_t cur = 12;
  auto put = [&](uint64_t off, const void *src, uint32_t n) {
    w.put(off, src, n);
    if (off + n > end) end = off + n;
  };
  if (info_type == kInfoVlanMap) {
    const vlan_tag_map_idl &vm = dl.isd_info[0].sdl_u.vlan_tag_map_idl;
    head[10] = static_cast<uint8_t>(head[10] + 20);
    uint16_t fixed[10] = {0, 0, vm.vtm_word0, vm.vtm_word1, vm.vtm_word2,
                          0, 0, vm.vtm_word3, vm.vtm_word4, vm.vtm_word5};
    for (uint32_t k = 0; k < 2 && vm.vtm_pair_a != nullptr && k < vm.vtm_pair_a_cnt; ++k)
      fixed[k] = vm.vtm_pair_a[k].vti_tag;
    for (uint32_t k = 0; k < 2 && vm.vtm_pair_b != nullptr && k < vm.vtm_pair_b_cnt; ++k)
      fixed[5 + k] = vm.vtm_pair_b[k].vti_tag;
    put(12, fixed, 20);
    cur = 32;
    uint32_t alen = dl.isd_bytes[2] < dl.isd_data_len ? dl.isd_bytes[2] : dl.isd_data_len;
    if (dl.isd_data != nullptr) put(cur, dl.isd_data, alen);
    cur += alen;
    for (uint32_t k = 0; vm.vtm_map != nullptr && k < vm.vtm_map_cnt; ++k) {
      put(cur, vm.vtm_map[k].vmi_entry, 8);
      cur += 8;
    }
    if (dl.isd_data != nullptr) put(cur, dl.isd_data + alen, dl.isd_data_len - alen);
    cur += dl.isd_data_len - alen;
    if (cur > end) end = cur;
    if (end < 64) end = 64;  // a tag map address is never shorter than 64 bytes
  } else {
    if (info_type == 1) head[11] = static_cast<uint8_t>(head[11] + 4);
    if (dl.isd_data != nullptr) put(cur, dl.isd_data, dl.isd_data_len);
    cur += dl.isd_data_len;
    const uint64_t data_end = cur;
    uint32_t atm = 0;
    for (uint32_t k = 0; dl.isd_info != nullptr && k < dl.isd_info_len; ++k) {
      const sdl_info &e = dl.isd_info[k];
      uint32_t ts = trailer_size(e.sdl_type);
      if (info_type == kInfoAtmRepl && e.sdl_type == kInfoAtmRepl && atm < 3) {
        // The replication entries have fixed places: 172, 180, 188.
        put(172 + 8 * atm++, arm_bytes(e), 8);
        continue;
      }
      put(cur, arm_bytes(e), ts);
      cur += ts;
    }
    if (cur > end) end = cur;
    // A family-18 address without trailers, under 64 bytes, with byte 8 of 135 is made 64 bytes
    // long with an address length of 20, as the kernel expects of these.
    if (dl.isd_info_len == 0 && end < 64 && head[8] == 135) {
      end = 64;
      head[10] = 20;
    }
    (void)data_end;
  }
  head[0] = static_cast<uint8_t>(end);
  w.put(0, head, 12);
  return static_cast<uint32_t>(end);
}

// After the generated choice: point or rebuild the flat address.
int32_t finish(sockaddr_idl *s, int32_t rc, tlk_idl_alloc_fn alloc, void *ctx) {
  if (rc <= 0) return rc;
  if (s->sai_int.sai_type == 0) {
    // The flat form is offered only when the bytes hold what their own length byte claims (and
    // a link-level head, for family 18); anything else stays in the choice, where it re-encodes
    // as it came.
    const idl_sockaddr_gen &g = s->sai_int.sai_u.idl_sockaddr_gen;
    if (g.isg_addr != nullptr && g.isg_len >= 2 && g.isg_addr[0] <= g.isg_len &&
        (g.isg_addr[1] != kAfLink || g.isg_addr[0] >= 12)) {
      s->sai_addr = g.isg_addr;
    }
  } else if (s->sai_int.sai_type == 1) {
    const idl_sockaddr_dl &dl = s->sai_int.sai_u.idl_sockaddr_dl;
    uint32_t size = rebuild(dl, Writer{nullptr, 0});
    if (alloc == nullptr) return -2;
    auto *p = static_cast<uint8_t *>(alloc(size, ctx));
    if (p == nullptr) return -2;
    std::memset(p, 0, size);
    rebuild(dl, Writer{p, size});
    s->sai_addr = p;
  }
  return rc;
}

const tlk::idl::Record &choice_rec() {
  return tlk::idl::gen::rec_sockaddr_idl_int;
}

}  // namespace

extern "C" {

TLK_EXPORT uint32_t tlv_encode_sockaddr_idl_0(const struct sockaddr_idl *record,
                                              const struct sockaddr_idl_tlvmap *map,
                                              uint8_t *buffer, uint32_t length) {
  Scratch s;
  return tlk::idl::tlv_encode(choice_rec(), prepare(record, s),
                              map == nullptr ? nullptr : &map->sai_int, buffer, length);
}

TLK_EXPORT int32_t tlv_decode_sockaddr_idl_0(struct sockaddr_idl *record,
                                             struct sockaddr_idl_tlvmap *map, const uint8_t *data,
                                             uint32_t length, tlk_idl_alloc_fn alloc,
                                             void *alloc_context) {
  record->sai_addr = nullptr;
  int32_t rc =
      tlk::idl::tlv_decode(choice_rec(), &record->sai_int, map == nullptr ? nullptr : &map->sai_int,
                           data, length, alloc, alloc_context);
  return finish(record, rc, alloc, alloc_context);
}

TLK_EXPORT void tlv_release_sockaddr_idl_0(struct sockaddr_idl *record,
                                           struct sockaddr_idl_tlvmap *map, tlk_idl_free_fn release,
                                           void *context) {
  if (record->sai_int.sai_type == 1 && record->sai_addr != nullptr)
    release(record->sai_addr, context);
  tlk::idl::tlv_release(choice_rec(), &record->sai_int, map == nullptr ? nullptr : &map->sai_int,
                        release, context);
}

TLK_EXPORT uint32_t idr_encode_sockaddr_idl_0(const struct sockaddr_idl *record, uint8_t *buffer,
                                              uint32_t length) {
  Scratch s;
  return tlk::idl::idr_encode(choice_rec(), prepare(record, s), buffer, length);
}

TLK_EXPORT int32_t idr_decode_sockaddr_idl_0(struct sockaddr_idl *record, const uint8_t *data,
                                             uint32_t length, tlk_idl_alloc_fn alloc,
                                             void *alloc_context) {
  record->sai_addr = nullptr;
  int32_t rc =
      tlk::idl::idr_decode(choice_rec(), &record->sai_int, data, length, alloc, alloc_context);
  return finish(record, rc, alloc, alloc_context);
}

TLK_EXPORT void idr_release_sockaddr_idl_0(struct sockaddr_idl *record, tlk_idl_free_fn release,
                                           void *context) {
  if (record->sai_int.sai_type == 1 && record->sai_addr != nullptr)
    release(record->sai_addr, context);
  tlk::idl::idr_release(choice_rec(), &record->sai_int, release, context);
}

}  // extern "C"

namespace tlk::idl::gen {

namespace {
uint32_t hook_tlv_encode(const void *rec, const void *map, uint8_t *buf, uint32_t len) {
  return tlv_encode_sockaddr_idl_0(static_cast<const sockaddr_idl *>(rec),
                                   static_cast<const sockaddr_idl_tlvmap *>(map), buf, len);
}
int32_t hook_tlv_decode(void *rec, void *map, const uint8_t *data, uint32_t len, AllocFn alloc,
                        void *ctx) {
  return tlv_decode_sockaddr_idl_0(static_cast<sockaddr_idl *>(rec),
                                   static_cast<sockaddr_idl_tlvmap *>(map), data, len, alloc, ctx);
}
void hook_tlv_release(void *rec, void *map, FreeFn release, void *ctx) {
  tlv_release_sockaddr_idl_0(static_cast<sockaddr_idl *>(rec),
                             static_cast<sockaddr_idl_tlvmap *>(map), release, ctx);
}
uint32_t hook_idr_encode(const void *rec, uint8_t *buf, uint32_t len) {
  return idr_encode_sockaddr_idl_0(static_cast<const sockaddr_idl *>(rec), buf, len);
}
int32_t hook_idr_decode(void *rec, const uint8_t *data, uint32_t len, AllocFn alloc, void *ctx) {
  return idr_decode_sockaddr_idl_0(static_cast<sockaddr_idl *>(rec), data, len, alloc, ctx);
}
void hook_idr_release(void *rec, FreeFn release, void *ctx) {
  idr_release_sockaddr_idl_0(static_cast<sockaddr_idl *>(rec), release, ctx);
}
}  // namespace

extern const Hooks hooks_sockaddr_idl = {hook_tlv_encode, hook_tlv_decode, hook_tlv_release,
                                         hook_idr_encode, hook_idr_decode, hook_idr_release};

}  // namespace tlk::idl::gen
