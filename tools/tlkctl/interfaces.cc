// tlkctl show interfaces and show addresses: logical interfaces with their families and
// addresses, as a client reads them (three walks: the interface list, then every family and every
// address by getnext); and the demo step in which an address added to a donor reaches the
// unnumbered interface that borrows from it.
#include <arpa/inet.h>
#include <string.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

constexpr uint32_t kAfInet = TLK_AF_INET, kAfInet6 = TLK_AF_INET6;

const char *family_word(uint32_t af) {
  return af == kAfInet ? "inet" : af == kAfInet6 ? "inet6" : "other";
}

// "10.0.0.1" or "2001:db8::1" from a prefix's bytes (fewer than a whole address: zero-filled).
std::string address_of(uint32_t af, const uint8_t *bytes, uint32_t count) {
  uint8_t full[16] = {};
  memcpy(full, bytes, std::min<size_t>(count, sizeof full));
  char text[INET6_ADDRSTRLEN];
  if (inet_ntop(af == kAfInet6 ? AF_INET6 : AF_INET, full, text, sizeof text) == nullptr)
    return "?";
  return text;
}

// An address as a person writes it: the local address with the destination's prefix length
// ("10.0.0.1/24"), the local prefix alone ("127.0.0.1/32"), or the destination alone.
std::string address_text(const ifa_msg &a) {
  const prefix &local = a.ifam_local, &dest = a.ifam_dest;
  if (local.plen != 0 && local.prefix != nullptr) {
    const uint16_t len = dest.plen != 0 ? dest.plen : local.plen;
    return address_of(a.ifam_af, local.prefix, local.prefix_len) + "/" + std::to_string(len);
  }
  if (dest.plen != 0 && dest.prefix != nullptr)
    return address_of(a.ifam_af, dest.prefix, dest.prefix_len) + "/" + std::to_string(dest.plen);
  return "-";
}

std::string flags_text(uint32_t flags) {
  char buf[32];
  snprintf(buf, sizeof buf, "0x%04x %s", flags, (flags & 1u) != 0 ? "up" : "down");
  return buf;
}

struct Unit {
  std::string name;  // "ge0.100"
  uint32_t index = 0, flags = 0;
};
struct Family {
  uint32_t iflidx = 0, af = 0;
  uint64_t flags = 0;
};
struct Address {
  uint32_t iflidx = 0, af = 0;
  std::string text;
};

// The three walks.  Each ends at the kernel's refusal of the key after the last.
int read_units(tarvik_cookie *c, std::vector<Unit> *units) {
  tarvik_msg_list_t *list = nullptr;
  const int err = tarvik_iflm_get_all(c, &list);
  if (err != 0) return err;
  for (int i = 0; i < list->count; ++i) {
    const auto &m = *static_cast<const ifl_msg *>(tarvik_msg_list_get_by_index(list, i));
    const std::string device = m.iflm_name ? reinterpret_cast<const char *>(m.iflm_name) : "?";
    units->push_back({device + "." + std::to_string(m.iflm_unit), m.iflm_index.idx, m.iflm_flags});
  }
  tarvik_msg_list_free(c, list);
  return 0;
}

void read_families(tarvik_cookie *c, std::vector<Family> *families) {
  uint32_t index = 0, af = 0;
  void *m = nullptr;
  while (tarvik_iffm_get_by_index(c, index, af, TLK_OP_GETNEXT, &m, nullptr) == 0) {
    const auto &f = *static_cast<const iff_msg *>(m);
    index = f.iffm_iflidx.idx;
    af = f.iffm_af;
    families->push_back({index, af, f.iffm_flags});
    tarvik_msg_idl_release(c, m, nullptr);
  }
}

void read_addresses(tarvik_cookie *c, std::vector<Address> *addresses) {
  void *m = nullptr;
  int err = tarvik_ifam_get_by_index(c, 0, 0, TLK_OP_GETNEXT, &m, nullptr);
  while (err == 0) {
    const auto &a = *static_cast<const ifa_msg *>(m);
    addresses->push_back({a.ifam_iflidx.idx, a.ifam_af, address_text(a)});
    // The next one after this address's whole key.
    const std::vector<uint8_t> dest(a.ifam_dest.prefix,
                                    a.ifam_dest.prefix + a.ifam_dest.prefix_len);
    const std::vector<uint8_t> local(a.ifam_local.prefix,
                                     a.ifam_local.prefix + a.ifam_local.prefix_len);
    const uint32_t index = a.ifam_iflidx.idx, af = a.ifam_af;
    const uint16_t dlen = a.ifam_dest.plen, llen = a.ifam_local.plen;
    tarvik_msg_idl_release(c, m, nullptr);
    m = nullptr;
    err = tarvik_ifam_get_by_local_dest(c, index, af, dest.data(), dlen, local.data(), llen,
                                        TLK_OP_GETNEXT, &m, nullptr);
  }
}

int with_session(int (*show)(tarvik_cookie *)) {
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  const int rc = show(c);
  tarvik_close(c);
  return rc;
}

std::string name_of(const std::vector<Unit> &units, uint32_t index) {
  for (const Unit &u : units)
    if (u.index == index) return u.name;
  return "index " + std::to_string(index);
}

int show_interfaces(tarvik_cookie *c) {
  std::vector<Unit> units;
  if (const int err = read_units(c, &units); err != 0) {
    fprintf(stderr, "tlkctl: reading the logical interfaces failed: %s\n", strerror(err));
    return 1;
  }
  std::vector<Family> families;
  std::vector<Address> addresses;
  read_families(c, &families);
  read_addresses(c, &addresses);

  std::vector<std::vector<std::string>> rows = {
      {"INTERFACE", "INDEX", "FLAGS", "FAMILY", "ADDRESSES"}};
  for (const Unit &u : units) {
    std::vector<std::string> row = {u.name, std::to_string(u.index), flags_text(u.flags), "-", "-"};
    bool first = true;
    for (const Family &f : families) {
      if (f.iflidx != u.index) continue;
      std::string text;
      for (const Address &a : addresses) {
        if (a.iflidx == f.iflidx && a.af == f.af) text += (text.empty() ? "" : ", ") + a.text;
      }
      if ((f.flags & TLK_IFF_UNNUMBERED) != 0) {
        uint32_t donor = 0;
        text = "unnumbered";
        if (tarvik_unnum_get_donor_ifl_idx(c, f.iflidx, f.af, &donor) == 0 && donor != 0)
          text += ", borrows from " + name_of(units, donor);
      }
      if (!first) row = {"", "", "", "", ""};
      row[3] = family_word(f.af);
      row[4] = text.empty() ? "-" : text;
      rows.push_back(row);
      first = false;
    }
    if (first) rows.push_back(row);
  }
  print_columns(rows, 1);
  return 0;
}

int show_addresses(tarvik_cookie *c) {
  std::vector<Unit> units;
  if (const int err = read_units(c, &units); err != 0) {
    fprintf(stderr, "tlkctl: reading the logical interfaces failed: %s\n", strerror(err));
    return 1;
  }
  std::vector<Address> addresses;
  read_addresses(c, &addresses);
  std::vector<std::vector<std::string>> rows = {{"INTERFACE", "INDEX", "FAMILY", "ADDRESS"}};
  for (const Address &a : addresses)
    rows.push_back({name_of(units, a.iflidx), std::to_string(a.iflidx), family_word(a.af), a.text});
  print_columns(rows, 1);
  return 0;
}

// The demo's listener: the "ifaddr" handler and the borrowers' report function print what they
// hear, in the order they hear it.
struct Ear {
  unsigned heard = 0;
};

const char *op_word(uint32_t op) {
  return op == TLK_OP_ADD ? "add" : op == TLK_OP_DELETE ? "delete" : "change";
}

int address_heard(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  const auto &a = *static_cast<const ifa_msg *>(msg);
  printf("  \"ifaddr\" handler: %s %s on index %u\n", op_word(a.ifam_hdr.tlkh_op),
         address_text(a).c_str(), a.ifam_iflidx.idx);
  tarvik_msg_idl_release(cookie, msg, nullptr);
  ++static_cast<Ear *>(arg)->heard;
  return 0;
}

int borrower_heard(void *value, uint32_t op, uint32_t af, uint8_t *addr, uint16_t, uint16_t) {
  printf("  borrower %s hears its donor: %s %s\n", static_cast<const char *>(value), op_word(op),
         addr != nullptr ? address_of(af, addr, af == kAfInet6 ? 16 : 4).c_str() : "-");
  return 0;
}

}  // namespace

int run_show_interfaces(int, char **) {
  return with_session(show_interfaces);
}

int run_show_addresses(int, char **) {
  return with_session(show_addresses);
}

int demo_unnumbered(tarsim::Kernel &kernel, tarvik_cookie *c) {
  // ge1.0 (72) is unnumbered in the default chassis; ask the kernel whose address it borrows.
  constexpr uint32_t kBorrower = 72;
  uint32_t donor = 0;
  int err = tarvik_unnum_get_donor_ifl_idx(c, kBorrower, kAfInet, &donor);
  if (err != 0) {
    fprintf(stderr, "  reading the donor of ge1.0 failed: %s\n", strerror(err));
    return 1;
  }
  printf("  ge1.0 inet is unnumbered and borrows from logical interface %u\n", donor);

  Ear ear;
  char borrower_name[] = "ge1.0";
  tarvik_cookie *l = tarvik_open_set_liberr(15, nullptr, print_diagnostic);
  int result = 1;
  if (l != nullptr && tarvik_create_async_context(l) == 0 &&
      tarvik_ifam_async_register(l, 1, &ear, address_heard) == 0 &&
      tarvik_unnum_ifa_register_callback(l, borrower_heard) == 0 &&
      tarvik_unnum_ifa_register_interest(l, kBorrower, donor, kAfInet, 1, borrower_name) == 0) {
    tarsim::Ifa added;
    added.iflidx = donor;
    added.af = kAfInet;
    added.local = tarsim::ifa_inet(0xC0000202, 32);  // 192.0.2.2/32
    printf(
        "  the kernel adds 192.0.2.2/32 to the donor (the handler runs first, then the report)\n");
    kernel.ifas().create(added);
    run_until_quiet(l, &ear.heard);
    printf("  the kernel deletes it again (a delete is reported before the handler)\n");
    kernel.ifas().destroy(added);
    run_until_quiet(l, &ear.heard);
    result = ear.heard == 2 ? 0 : 1;
  }
  tarvik_close(l);
  return result;
}

}  // namespace tlkctl
