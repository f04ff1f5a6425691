// tlkctl demo: the library's main path from open to close, against the embedded simulated kernel.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <vector>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

constexpr uint8_t kTarlinkStats = 26;
constexpr uint32_t kSenderId = 2;  // "user"

void section(int number, const char *title) {
  printf("\n== %d. %s\n", number, title);
}

// What the object families show, in order, after the session's own steps.
constexpr DemoStep kFamilySteps[] = {
    {"A second session hears a change, a third that doesn't listen doesn't", demo_async},
    {"A device goes down and a listening session hears it", demo_device_down},
    {"The interface state log records the change: its last records", demo_statelog},
    {"An unnumbered interface hears the addresses of its donor", demo_unnumbered},
    {"A firewall filter's counters, read before and after they move", demo_firewall},
    {"Next hops added as a daemon adds them, a composite of them, read back", demo_nexthops},
    {"A large configuration blob, compressed by the caller's callbacks", demo_gencfg},
    {"A route table created and read back by name", demo_tables},
    {"Many objects: one write per batch against one write per object", demo_bulk},
    {"A table of routes programmed in bulk, and destinations resolved in it", demo_routes},
    {"A bridge domain with a VLAN and two interfaces, then the domains", demo_bridging},
};

void show_negotiation(tarvik_cookie *c) {
  const uint8_t *v = tarvik_get_tarlink_version_info(c);
  unsigned agreeing = 0;
  for (unsigned t = 1; t < TLK_NUM_MSG_TYPES; ++t)
    agreeing += (v[1 + t] == TARVIK_VERSION_TABLE[t]);
  printf(
      "  kernel knows %u message types, interface version '%c' (%u); library expects %u and '%c'\n",
      v[0], v[1], v[1], TLK_NUM_MSG_TYPES, TLK_INTERFACE_VERSION);
  printf(
      "  per-type versions agreeing: %u of %u (route '%c', ifdev '%c', iflogical '%c', gencfg "
      "'%c')\n",
      agreeing, TLK_NUM_MSG_TYPES - 1, v[1 + 2], v[1 + 5], v[1 + 6], v[1 + 72]);
}

int raw_exchange(tarsim::Kernel &kernel, tarvik_cookie *c) {
  uint32_t seq = 0;
  tarvik_seq_get_next(c, &seq);
  // A fixed-size raw request of the "tarlink stats" family: a header and a 12-byte body.
  std::vector<uint8_t> req =
      tarsim::raw_message(kTarlinkStats, TLK_OP_GET, seq, std::vector<uint8_t>(12, 0));
  printf("  request:\n");
  print_raw_header(stdout, req);
  int err = tarvik_write(c, req.data(), req.size());
  if (err != 0) {
    printf("  write failed: %s\n", strerror(err));
    return 1;
  }
  void *reply = nullptr;
  size_t len = 0;
  err = tarvik_long_msg_read(c, &reply, &len);
  if (err != 0) {
    printf("  read failed: %d %s\n", err, err > 0 ? strerror(err) : "sequence mismatch");
    return 1;
  }
  const std::span<const uint8_t> bytes(static_cast<const uint8_t *>(reply), len);
  printf("  reply (%zu bytes, queued before the write returned):\n", len);
  print_raw_header(stdout, bytes);
  if (len >= TLK_RAW_HDR_LEN + 16) {
    uint32_t counters[4];
    memcpy(counters, &bytes[TLK_RAW_HDR_LEN], sizeof counters);
    printf(
        "  kernel's counters for this session: requests=%u replies=%u open sessions=%u "
        "dropped=%u\n",
        counters[0], counters[1], counters[2], counters[3]);
  }
  tarvik_msg_free(c, reply);
  printf("  sessions open in the kernel: %zu, messages recorded both ways: %zu\n",
         kernel.sessions().size(), kernel.recorded().size());
  return 0;
}

void print_ifl(void *msg) {
  const auto &m = *static_cast<const ifl_msg *>(msg);
  printf("  %s.%u  index=%u snmp=%u device=%u flags=0x%x gen=%u lr=%u\n",
         m.iflm_name ? reinterpret_cast<const char *>(m.iflm_name) : "?", m.iflm_unit,
         m.iflm_index.idx, m.iflm_snmp_id.idx, m.iflm_devidx, m.iflm_flags, m.iflm_generation,
         m.iflm_lr);
}

int read_logical_interfaces(tarvik_cookie *c) {
  void *msg = nullptr;
  printf("  by index 70 (an IDR request, the reply read whole and decoded into one arena):\n");
  int err = tarvik_iflm_get_by_index(c, 70, TLK_OP_GET, &msg, nullptr);
  if (err != 0) {
    printf("  failed: %d\n", err);
    return 1;
  }
  print_ifl(msg);
  tarvik_msg_idl_release(c, msg, nullptr);
  printf("  by name xe0 unit 200:\n");
  err = tarvik_iflm_get_by_name(c, "xe0", 200, TLK_OP_GET, &msg, nullptr);
  if (err != 0) {
    printf("  failed: %d\n", err);
    return 1;
  }
  print_ifl(msg);
  tarvik_msg_idl_release(c, msg, nullptr);
  err = tarvik_iflm_get_by_index(c, 9999, TLK_OP_GET, &msg, nullptr);
  printf("  by index 9999: %s (the kernel refuses an unknown key with a raw tlk-err)\n",
         err == EOPNOTSUPP ? "not found" : strerror(err));
  return 0;
}

// The kernel's record of the run saved as a capture file and decoded as `tlkctl decode` would:
// the first lines, and how many messages there were.
int decode_own_capture(const tarsim::Kernel &kernel) {
  char path[] = "/tmp/tlkctl-demo-XXXXXX";
  const int fd = mkstemp(path);
  if (fd < 0) {
    printf("  no temporary file: %s\n", strerror(errno));
    return 1;
  }
  close(fd);
  int err = kernel.save_record(path);
  std::vector<uint8_t> bytes;
  std::string error;
  if (err == 0 && !read_whole_file(path, &bytes, &error)) err = EIO;
  unlink(path);
  if (err != 0) {
    printf("  saving the capture failed: %s\n", strerror(err));
    return 1;
  }
  printf("  %zu messages recorded, saved as a capture of %zu bytes; its first lines:\n",
         kernel.recorded().size(), bytes.size());
  DecodeOptions options;
  options.max_lines = 6;
  const DecodeResult r = decode_capture(bytes.data(), bytes.size(), options, stdout);
  printf("  ... %llu messages in %llu records decoded%s%s\n",
         static_cast<unsigned long long>(r.messages), static_cast<unsigned long long>(r.records),
         r.error.empty() ? "" : "; error: ", r.error.c_str());
  return r.error.empty() && r.records == kernel.recorded().size() ? 0 : 1;
}

}  // namespace

int run_demo(int, char **) {
  tarvik_mem_rec_enable(nullptr, nullptr);
  tarsim::Kernel kernel;
  kernel.record(true);
  printf("tlkctl demo: libtarlink against the embedded simulated kernel\n");

  section(1, "Open a session and negotiate versions");
  tarvik_cookie *c = tarvik_open_set_liberr(kSenderId, nullptr, print_diagnostic);
  if (c == nullptr) {
    printf("  open failed (errno %d)\n", errno);
    return 1;
  }
  printf("  session open on descriptor %d (non-blocking, close-on-exec), sender id %u\n",
         tarvik_getsockfd(c), kSenderId);
  show_negotiation(c);

  section(2, "A kernel with one message at another version (the session still opens)");
  tarsim::Bytes older = tarsim::Kernel::default_version_reply();
  older[1 + 2] = 'c';
  kernel.set_version_reply(older);
  printf("  the kernel now answers version 'c' for \"route\"; the library logs:\n");
  tarvik_cookie *c2 = tarvik_open_set_liberr(kSenderId, nullptr, print_diagnostic);
  printf("  second session %s\n", c2 ? "opened" : "refused");
  tarvik_close(c2);
  kernel.set_version_reply(tarsim::Kernel::default_version_reply());

  section(3, "A raw request and its reply");
  if (raw_exchange(kernel, c) != 0) return 1;

  section(4, "Logical interfaces read by index and by name");
  if (read_logical_interfaces(c) != 0) return 1;

  int step = 5;
  for (const DemoStep &s : kFamilySteps) {
    section(step++, s.title);
    if (s.run(kernel, c) != 0) return 1;
  }

  section(step++, "Memory accounting while the session is open");
  print_memory(stdout);

  section(step, "Close in order: socket first, then everything the session holds");
  tarvik_close(c);
  print_memory(stdout);
  // The unnumbered teardown destroys the borrower tables but, by its contract, not the donor
  // records themselves: those are counted apart.
  const int32_t donors = tarvik_mem_record.cnts[MEMID_TARVIK_UNNUM_DONOR].outstanding;
  int32_t outstanding = -donors;
  for (unsigned id = 1; id < MEMID_TARVIK_MAX; ++id)
    outstanding += tarvik_mem_record.cnts[id].outstanding;
  printf("  outstanding blocks of the library after close: %d%s\n", outstanding,
         outstanding == 0 ? " (none)" : " (LEAK)");
  if (donors != 0)
    printf("  donor records that the unnumbered teardown leaves by design: %d\n", donors);

  section(step + 1, "The run's traffic, saved as a capture file and decoded");
  const int decoded = decode_own_capture(kernel);
  return outstanding == 0 && decoded == 0 ? 0 : 1;
}

}  // namespace tlkctl
