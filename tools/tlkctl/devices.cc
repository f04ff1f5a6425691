// tlkctl show devices: the simulated chassis as a client reads it, one device a line; and the
// demo step in which a device goes down and a listening session hears it.
#include <string.h>

#include <string>
#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

const char *media_word(const ifdev_msg &m) {
  if (m.ifdm_media == nullptr || m.ifdm_media_len == 0) return "-";
  switch (m.ifdm_media[0].ifm_f48) {
    case tarsim::kMediaEthernet:
      return "ethernet";
    case tarsim::kMediaSonet:
      return "sonet";
    case tarsim::kMediaAggregate:
      return "aggregate";
    case tarsim::kMediaLoopback:
      return "loopback";
    default:
      return "other";
  }
}

// "inet 10.0.0.1" for an IPv4 address, "mac 02:54:4c:71:00:82" for a link-level one.
std::string address_text(const sockaddr_idl *list, uint32_t count) {
  std::string out;
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t *sa = list[i].sai_addr;
    if (sa == nullptr) continue;
    char buf[64];
    if (sa[1] == 2 && sa[0] >= 8) {
      snprintf(buf, sizeof buf, "inet %u.%u.%u.%u", sa[4], sa[5], sa[6], sa[7]);
    } else if (sa[1] == 18 && sa[0] >= 18 && sa[10] == 6) {
      snprintf(buf, sizeof buf, "mac %02x:%02x:%02x:%02x:%02x:%02x", sa[12], sa[13], sa[14], sa[15],
               sa[16], sa[17]);
    } else {
      snprintf(buf, sizeof buf, "family %u", sa[1]);
    }
    if (!out.empty()) out += ", ";
    out += buf;
  }
  return out;
}

std::string flags_text(uint32_t flags) {
  char buf[32];
  snprintf(buf, sizeof buf, "0x%04x %s", flags, (flags & 1u) != 0 ? "up" : "down");
  return buf;
}

struct Row {
  std::string name, index, flags, media, addresses;
};

void print_table(const std::vector<Row> &rows) {
  Row head{"NAME", "INDEX", "FLAGS", "MEDIA", "ADDRESSES"};
  size_t w[4] = {head.name.size(), head.index.size(), head.flags.size(), head.media.size()};
  for (const Row &r : rows) {
    w[0] = std::max(w[0], r.name.size());
    w[1] = std::max(w[1], r.index.size());
    w[2] = std::max(w[2], r.flags.size());
    w[3] = std::max(w[3], r.media.size());
  }
  auto line = [&](const Row &r) {
    printf("%-*s  %*s  %-*s  %-*s  %s\n", static_cast<int>(w[0]), r.name.c_str(),
           static_cast<int>(w[1]), r.index.c_str(), static_cast<int>(w[2]), r.flags.c_str(),
           static_cast<int>(w[3]), r.media.c_str(), r.addresses.c_str());
  };
  line(head);
  for (const Row &r : rows) line(r);
}

int show_devices(tarvik_cookie *c) {
  tarvik_msg_list_t *list = nullptr;
  const int err = tarvik_ifdm_get_all(c, &list);
  if (err != 0) {
    fprintf(stderr, "tlkctl: reading the devices failed: %s\n", strerror(err));
    return 1;
  }
  std::vector<Row> rows;
  for (int i = 0; i < list->count; ++i) {
    const auto &m = *static_cast<const ifdev_msg *>(tarvik_msg_list_get_by_index(list, i));
    std::string addrs = address_text(m.ifdm_addr, m.ifdm_addr_len);
    const std::string hw = address_text(m.ifdm_haddr, m.ifdm_haddr_len);
    if (!hw.empty()) addrs += addrs.empty() ? hw : ", " + hw;
    rows.push_back({m.ifdm_name ? reinterpret_cast<const char *>(m.ifdm_name) : "?",
                    std::to_string(m.ifdm_index), flags_text(m.ifdm_flags), media_word(m),
                    addrs.empty() ? "-" : addrs});
  }
  tarvik_msg_list_free(c, list);
  print_table(rows);
  return 0;
}

struct Ear {
  unsigned heard = 0;
};

int device_heard(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  const auto &m = *static_cast<const ifdev_msg *>(msg);
  printf("  listener hears \"ifdev\" %s: %s index %u flags %s gen %u\n",
         m.ifdm_hdr.tlkh_op == TLK_OP_CHANGE ? "change" : "message",
         m.ifdm_name ? reinterpret_cast<const char *>(m.ifdm_name) : "?", m.ifdm_index,
         flags_text(m.ifdm_flags).c_str(), m.ifdm_generation);
  tarvik_msg_idl_release(cookie, msg, nullptr);
  ++static_cast<Ear *>(arg)->heard;
  return 0;
}

}  // namespace

int run_show_devices(int, char **) {
  tarsim::Kernel kernel;
  tarvik_cookie *c = tarvik_open_set_liberr(2, nullptr, print_diagnostic);
  if (c == nullptr) {
    fprintf(stderr, "tlkctl: open failed\n");
    return 1;
  }
  const int rc = show_devices(c);
  tarvik_close(c);
  return rc;
}

int demo_device_down(tarsim::Kernel &kernel, tarvik_cookie *) {
  Ear ear;
  tarvik_cookie *l = tarvik_open_set_liberr(14, nullptr, print_diagnostic);
  int result = 1;
  if (l != nullptr && tarvik_create_async_context(l) == 0 &&
      tarvik_ifdm_async_register(l, &ear, device_heard) == 0) {
    void *m = nullptr;
    if (tarvik_ifdm_get_by_name(l, "ge0", TLK_OP_GET, &m, nullptr) == 0) {
      const auto &d = *static_cast<const ifdev_msg *>(m);
      printf("  ge0 read by name: index %u flags %s gen %u\n", d.ifdm_index,
             flags_text(d.ifdm_flags).c_str(), d.ifdm_generation);
      tarvik_msg_idl_release(l, m, nullptr);
    }
    printf("  the kernel takes the link of ge0 down\n");
    kernel.devices().set_link("ge0", false);
    run_until_quiet(l, &ear.heard);
    result = ear.heard == 1 ? 0 : 1;
  }
  tarvik_close(l);
  return result;
}

}  // namespace tlkctl
