// tlkctl show bridges, show vlans and show macs [bd]: bridging objects as a client reads them,
// getnext walks over the domains, their interfaces and the VLANs, and the raw MAC table replies;
// and the demo step that builds a bridge domain with a VLAN and two interfaces.
#include <stdlib.h>
#include <string.h>

#include <map>
#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

constexpr size_t kMacFixed = 64, kMacEntry = 16, kMacCountAt = 40;

using Rows = std::vector<std::vector<std::string>>;

std::string text_of(const uint8_t *p) {
  return p != nullptr && *p != 0 ? reinterpret_cast<const char *>(p) : "-";
}

uint32_t u32_at(const uint8_t *m, size_t at) {
  uint32_t v;
  memcpy(&v, m + at, sizeof v);
  return v;
}

tarvik_cookie *open_session() {
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) fprintf(stderr, "tlkctl: open failed\n");
  return c;
}

// How many interfaces each domain holds: one walk over the interface keys.
std::map<uint32_t, unsigned> interfaces_per_domain(tarvik_cookie *c) {
  std::map<uint32_t, unsigned> count;
  char key[16] = {};
  void *m = nullptr;
  while (tarvik_ifbd_get(c, TLK_OP_GETNEXT, key, &m, nullptr) == 0) {
    const auto &i = *static_cast<const ifbd_msg *>(m);
    ++count[i.ibm_bd_index];
    memcpy(key, i.ibm_key.ibk_name, sizeof key);
    tarvik_msg_idl_release(c, m, nullptr);
  }
  return count;
}

// The domains in index order, each as its decoded reply handed to `each`.
template <class Each>
void walk_domains(tarvik_cookie *c, Each each) {
  uint32_t index = 0;
  void *m = nullptr;
  while (tarvik_bd_get(c, 0, TLK_OP_GETNEXT, index, &m, nullptr) == 0) {
    const auto &d = *static_cast<const bd_msg *>(m);
    index = d.bdm_index;
    each(d);
    tarvik_msg_idl_release(c, m, nullptr);
  }
}

void show_bridges(tarvik_cookie *c) {
  const std::map<uint32_t, unsigned> members = interfaces_per_domain(c);
  Rows rows = {{"INDEX", "NAME", "TAG", "VLAN", "MAC LIMIT", "INTERFACES", "ATTRIBUTES"}};
  walk_domains(c, [&](const bd_msg &d) {
    auto it = members.find(d.bdm_index);
    rows.push_back({std::to_string(d.bdm_index), text_of(d.bdm_name), std::to_string(d.bdm_tag),
                    std::to_string(d.bdm_vlan_id), std::to_string(d.bdm_mac_limit),
                    std::to_string(it != members.end() ? it->second : 0),
                    std::to_string(d.bdm_hdr.tlkh_info_len)});
  });
  print_columns(rows, 0);
}

std::string mac_text(const uint8_t *mac) {
  char s[20];
  snprintf(s, sizeof s, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
           mac[5]);
  return s;
}

// The entries of one raw MAC table reply, as rows; false if the kernel refused the domain.
bool add_macs(const uint8_t *m, const std::string &domain, Rows &rows) {
  if (m[5] != TLK_MAC_TABLE_TYPE) return false;
  const uint32_t length = u32_at(m, 8), count = u32_at(m, kMacCountAt);
  for (uint32_t i = 0; i < count && kMacFixed + (i + 1) * kMacEntry <= length; ++i) {
    const uint8_t *e = m + kMacFixed + i * kMacEntry;
    uint16_t vlan;
    memcpy(&vlan, e + 6, sizeof vlan);
    rows.push_back({domain, mac_text(e), std::to_string(vlan), std::to_string(u32_at(e, 8)),
                    std::to_string(u32_at(e, 12))});
  }
  return true;
}

// One domain's table, by index when `which` is a number and by name otherwise.
bool show_one_domain(tarvik_cookie *c, const char *which, Rows &rows) {
  char *end = nullptr;
  const unsigned long index = strtoul(which, &end, 10);
  const bool by_index = *which != '\0' && *end == '\0';
  void *m = nullptr;
  const int err =
      by_index ? tarvik_mac_db_get_by_index(c, 0, static_cast<uint32_t>(index), 0, 0, 0, 0, &m)
               : tarvik_mac_db_get_by_name(c, 0, which, 0, 0, 0, 0, &m);
  if (err != 0) return false;
  const auto *b = static_cast<const uint8_t *>(m);
  const bool ok = add_macs(b, which, rows);
  tarvik_msg_free(c, m);
  return ok;
}

}  // namespace

int run_show_bridges(int argc, char **) {
  if (argc > 1) return usage_error("show bridges");
  tarsim::Kernel kernel;
  tarvik_cookie *c = open_session();
  if (c == nullptr) return 1;
  show_bridges(c);
  tarvik_close(c);
  return 0;
}

int run_show_vlans(int argc, char **) {
  if (argc > 1) return usage_error("show vlans");
  tarsim::Kernel kernel;
  tarvik_cookie *c = open_session();
  if (c == nullptr) return 1;
  Rows rows = {{"INDEX", "NAME", "TAG", "DOMAIN", "L3 INTERFACE"}};
  uint32_t index = 0;
  void *m = nullptr;
  while (tarvik_vlanm_get_by_index(c, index, TLK_OP_GETNEXT, &m) == 0) {
    const auto &v = *static_cast<const vlan_msg *>(m);
    rows.push_back({std::to_string(v.vlm_index), text_of(v.vlm_name), std::to_string(v.vlm_tag),
                    std::to_string(v.vlm_bd_index), std::to_string(v.vlm_l3_ifl)});
    index = v.vlm_index;
    tarvik_msg_idl_release(c, m, nullptr);
  }
  print_columns(rows, 0);
  tarvik_close(c);
  return 0;
}

int run_show_macs(int argc, char **argv) {
  if (argc > 2) return usage_error("show macs");
  tarsim::Kernel kernel;
  tarvik_cookie *c = open_session();
  if (c == nullptr) return 1;
  Rows rows = {{"DOMAIN", "MAC", "VLAN", "INTERFACE", "FLAGS"}};
  int status = 0;
  if (argc == 2) {
    if (!show_one_domain(c, argv[1], rows)) {
      fprintf(stderr, "tlkctl: no bridge domain '%s'\n", argv[1]);
      status = 1;
    }
  } else {
    std::vector<std::string> names;
    walk_domains(c, [&](const bd_msg &d) { names.push_back(text_of(d.bdm_name)); });
    for (const std::string &name : names) (void)show_one_domain(c, name.c_str(), rows);
  }
  if (status == 0) print_columns(rows);
  tarvik_close(c);
  return status;
}

int demo_bridging(tarsim::Kernel &kernel, tarvik_cookie *c) {
  bd_config_t cfg{};
  cfg.bdc_vlan_id = 300;
  cfg.bdc_mac_limit = 4096;
  strcpy(cfg.bdc_descr, "lab floor 3");
  void *m = nullptr;
  int err = tarvik_bd_add(c, 0, "lab", 30, &cfg, &m, nullptr);
  if (err != 0) {
    fprintf(stderr, "  adding bridge domain \"lab\" failed: %s\n", strerror(err));
    return 1;
  }
  const uint32_t index = static_cast<const bd_msg *>(m)->bdm_index;
  tarvik_msg_idl_release(c, m, nullptr);
  // Attributes as a stream: MAC aging time 300 s (item 15), sequence number 1 (item 2).
  const uint8_t stream[] = {15, 0, 8, 0, 0x2c, 1, 0, 0, 2, 0, 6, 0, 1, 0, 0, 0};
  err = tarvik_bd_pointchange(c, index, stream, sizeof stream);
  for (const char *name : {"ge-0/0/5.0", "ge-0/0/6.0"}) {
    char key[16] = {};
    strncpy(key, name, sizeof key - 1);
    ifbd_config_t member{};
    member.ifbdc_bd_index = index;
    member.ifbdc_vlan_id = 300;
    if (err == 0) err = tarvik_ifbd_add(c, key, 0, &member);
  }
  if (err != 0) {
    fprintf(stderr, "  configuring the domain failed: %s\n", strerror(err));
    return 1;
  }
  // The VLAN appears as the kernel would make it.
  tarsim::BridgeVlan v;
  v.index = 3;
  strcpy(v.name, "v300");
  v.tag = 300;
  v.bd_index = index;
  kernel.bridging().put_vlan(v);
  printf("  added bridge domain %u \"lab\" (tag 30, VLAN 300), two attributes, two interfaces:\n",
         index);
  show_bridges(c);
  err = tarvik_vlanm_get_by_name(c, 0, "v300", TLK_OP_GET, &m);
  if (err != 0) {
    fprintf(stderr, "  reading VLAN \"v300\" back failed: %s\n", strerror(err));
    return 1;
  }
  const auto &got = *static_cast<const vlan_msg *>(m);
  printf("  VLAN \"v300\" read back by name: index %u, tag %u, bridge domain %u\n", got.vlm_index,
         got.vlm_tag, got.vlm_bd_index);
  const bool same = got.vlm_bd_index == index;
  tarvik_msg_idl_release(c, m, nullptr);
  return same ? 0 : 1;
}

}  // namespace tlkctl
