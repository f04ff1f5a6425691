// Unnumbered address donors: per session and address family, which borrowers depend on which
// donors, and the report of a donor's "ifaddr" event to each of them.
//
// The event engine saves an "ifaddr" message of a donor that somebody borrows from
// (tarvik_unnum_ifa_save_msg) and reports it (tarvik_unnum_ifa_report) before or after the
// message's handler, from its in-line work table.  Between the two the event lives in the
// pending fields of the session's tarvik_unnum_info_t, with a private copy of the local prefix.
#include <errno.h>
#include <string.h>

#include "cookie.h"
#include "platform/itable32.h"

namespace {

constexpr uint32_t kAfInet = 2;
constexpr uint32_t kAfInet6 = 28;

// The donor table of a family: 0 for AF_INET, 1 for AF_INET6, 2 for any other.
unsigned family_slot(uint32_t af) {
  return af == kAfInet ? 0 : af == kAfInet6 ? 1 : 2;
}

itable32_t *new_table(const uint16_t *memid) {
  return itable32_create_ext(tarvik_malloc_itable, tarvik_free_itable, memid);
}

tarvik_unnum_donor_t *find_donor(const tarvik_unnum_info_t *info, uint32_t af, uint32_t donor) {
  return static_cast<tarvik_unnum_donor_t *>(
      itable32_lookup(info->donors[family_slot(af)], &donor));
}

int add_interest(tarvik_unnum_info_t *info, uint32_t borrower, uint32_t donor, uint32_t af,
                 void *value) {
  itable32_t *&donors = info->donors[family_slot(af)];
  if (donors != nullptr) {
    if (auto *record = static_cast<tarvik_unnum_donor_t *>(itable32_lookup(donors, &donor))) {
      const int result = itable32_insert(record->borrowers, value, &borrower);
      if (result != 0) return result;  // EEXIST for a borrower already there
      ++record->count;
      return 0;
    }
  } else {
    donors = new_table(&memid_tarvik_itable_donor);
    if (donors == nullptr) return ENOMEM;
  }
  auto *record = static_cast<tarvik_unnum_donor_t *>(
      tarvik_malloc(MEMID_TARVIK_UNNUM_DONOR, sizeof(tarvik_unnum_donor_t)));
  if (record == nullptr) return ENOMEM;
  record->borrowers = new_table(&memid_tarvik_itable_borrower);
  if (record->borrowers == nullptr) {
    tarvik_free(MEMID_TARVIK_UNNUM_DONOR, record);
    return ENOMEM;
  }
  int result = itable32_insert(record->borrowers, value, &borrower);
  if (result == 0) result = itable32_insert(donors, record, &donor);
  if (result != 0) {
    itable32_destroy(record->borrowers);
    tarvik_free(MEMID_TARVIK_UNNUM_DONOR, record);
    return result;
  }
  record->count = 1;
  return 0;
}

int drop_interest(tarvik_unnum_info_t *info, uint32_t borrower, uint32_t donor, uint32_t af) {
  tarvik_unnum_donor_t *record = find_donor(info, af, donor);
  if (record == nullptr || itable32_remove(record->borrowers, &borrower) != 0) return ENOENT;
  --record->count;  // the record stays in its table, silent once the count is 0
  return 0;
}

}  // namespace

extern "C" {

TLK_EXPORT int tarvik_unnum_ifa_register_callback(tarvik_cookie *cookie,
                                                  tarvik_unnum_report_fn callback) {
  if (cookie == nullptr || cookie->async_info == nullptr) return EINVAL;
  if (cookie->unnum_info == nullptr) {
    cookie->unnum_info = static_cast<tarvik_unnum_info_t *>(
        tarvik_calloc(MEMID_TARVIK_UNNUM_INFO, 1, sizeof(tarvik_unnum_info_t)));
    if (cookie->unnum_info == nullptr) return ENOMEM;
  }
  cookie->unnum_info->callback = callback;
  return 0;
}

TLK_EXPORT int tarvik_unnum_ifa_register_interest(tarvik_cookie *cookie, uint32_t borrower,
                                                  uint32_t donor, uint32_t af, int add,
                                                  void *value) {
  if (cookie == nullptr || cookie->unnum_info == nullptr) return EINVAL;
  if (af != kAfInet && af != kAfInet6) return EINVAL;
  tarvik_unnum_info_t *info = cookie->unnum_info;
  if (info->session == nullptr) {
    info->session = tarvik_open(3);
    if (info->session == nullptr) return -1;
  }
  return add != 0 ? add_interest(info, borrower, donor, af, value)
                  : drop_interest(info, borrower, donor, af);
}

TLK_EXPORT int tarvik_unnum_get_donor_ifl_idx(tarvik_cookie *cookie, uint32_t index, uint32_t af,
                                              uint32_t *donor_out) {
  if (donor_out == nullptr) return EINVAL;
  void *reply = nullptr;
  void *mask = nullptr;
  const int err = tarvik_iffm_get_by_index(cookie, index, af & 0xFF, TLK_OP_GET, &reply, &mask);
  if (err != 0) return err;
  if (reply == nullptr) return ENOENT;
  const auto *family = static_cast<const iff_msg *>(reply);
  int result = EINVAL;  // not unnumbered
  if ((static_cast<uint32_t>(family->iffm_flags) & TLK_IFF_UNNUMBERED) != 0) {
    result = 0;  // with or without an attachment naming the donor; the last one wins
    const tlk_hdr &hdr = family->iffm_hdr;
    for (uint32_t i = 0; hdr.tlkh_info != nullptr && i < hdr.tlkh_info_len; ++i) {
      const tlk_msg_info *a = hdr.tlkh_info[i];
      if (a != nullptr && a->tlkmi_type == TLK_IFF_TLV_UNNUM_INFO)
        *donor_out = a->tlkmi_u.iff_tlv_unnum_info.itui_index;
    }
  }
  tarvik_msg_idl_release(cookie, reply, mask);
  return result;
}

TLK_EXPORT int tarvik_unnum_ifa_save_msg(tarvik_cookie *cookie, const ifa_msg *msg) {
  if (cookie == nullptr || cookie->unnum_info == nullptr || msg == nullptr) return -1;
  tarvik_unnum_info_t *info = cookie->unnum_info;
  const uint32_t af = msg->ifam_af;
  if (af != kAfInet && af != kAfInet6) return -1;
  if (info->pending) {
    // The first event goes on waiting; this one reaches its handler without a report.
    tarvik_err(cookie, TLK_LEVEL_WARNING,
               "Async event arrived while processing pending for a previous event\n");
    return -1;
  }
  const uint32_t donor = msg->ifam_iflidx.idx;
  const tarvik_unnum_donor_t *record = find_donor(info, af, donor);
  if (record == nullptr || record->count == 0) return -1;  // nobody is interested
  info->pending_index = donor;
  info->pending_op = msg->ifam_hdr.tlkh_op;
  info->pending_af = af;
  const uint32_t bytes = msg->ifam_local.prefix_len;
  auto *addr = static_cast<uint8_t *>(tarvik_size_alloc(cookie, bytes));
  if (addr == nullptr) return -1;
  if (bytes != 0 && msg->ifam_local.prefix != nullptr) memcpy(addr, msg->ifam_local.prefix, bytes);
  info->pending_addr = addr;
  info->pending_plen = msg->ifam_dest.plen;
  info->pending_flags = msg->ifam_flags;
  info->pending = 1;
  return 0;
}

TLK_EXPORT void tarvik_unnum_ifa_report(tarvik_cookie *cookie) {
  if (cookie == nullptr || cookie->unnum_info == nullptr) return;
  tarvik_unnum_info_t *info = cookie->unnum_info;
  if (!info->pending) return;
  const tarvik_unnum_donor_t *record = find_donor(info, info->pending_af, info->pending_index);
  if (record != nullptr && record->count != 0) {
    // By key, so that a report function that drops borrowers doesn't lose its place.
    const uint32_t *from = nullptr;
    uint32_t key = 0;
    while (void *value = itable32_getnext(record->borrowers, from, &key)) {
      if (info->callback != nullptr) {
        (void)info->callback(value, info->pending_op, info->pending_af, info->pending_addr,
                             info->pending_plen, info->pending_flags);
      }
      from = &key;
    }
    tarvik_free(MEMID_TARVIK_MSG, info->pending_addr);
    info->pending_addr = nullptr;
  }
  // If the donor's borrowers all left meanwhile, the copy is deliberately not freed.
  info->pending = 0;
}

TLK_EXPORT void tarvik_unnum_ifa_cleanup(tarvik_cookie *cookie) {
  if (cookie == nullptr || cookie->unnum_info == nullptr) return;
  tarvik_unnum_info_t *info = cookie->unnum_info;
  for (itable32_t *donors : info->donors) {
    if (donors == nullptr) continue;
    const uint32_t *from = nullptr;
    uint32_t key = 0;
    while (void *value = itable32_getnext(donors, from, &key)) {
      // Each record's borrower table goes; the donor records themselves are deliberately not
      // freed here and stay outstanding under MEMID_TARVIK_UNNUM_DONOR.
      itable32_destroy(static_cast<tarvik_unnum_donor_t *>(value)->borrowers);
      from = &key;
    }
    itable32_destroy(donors);
  }
  // An event still saved (hooked mode, never reported) owns its copy of the prefix.
  if (info->pending) tarvik_free(MEMID_TARVIK_MSG, info->pending_addr);
  tarvik_close(info->session);
  tarvik_free(MEMID_TARVIK_UNNUM_INFO, info);
  cookie->unnum_info = nullptr;
}

}  // extern "C"
