// tlkctl monitor: prints notifications as they arrive, one line each.  tlkctl's demo step that
// shows a second session hearing a change lives in demo_async.cc and shares the printing here.
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <time.h>

#include <vector>

#include "commands.h"
#include "tarsim.hpp"
#include "tarsim/capture.h"

namespace tlkctl {

void print_notification(FILE *out, const void *msg) {
  const auto *h = static_cast<const tlk_hdr *>(msg);
  fprintf(out, "notify seq=%u type=%s(%u) op=%s len=%u\n", h->tlkh_seq,
          tarvik_msg_type_name(h->tlkh_type), h->tlkh_type,
          rtm_ops[h->tlkh_op < 10 ? h->tlkh_op : 10], h->tlkh_msglen);
}

int write_change(tarvik_cookie *writer, uint8_t type, uint8_t op, uint8_t tag) {
  uint32_t seq = 0;
  tarvik_seq_get_next(writer, &seq);
  std::vector<uint8_t> body(8, tag);
  std::vector<uint8_t> m = tarsim::raw_message(type, op, seq, body);
  return tarvik_write(writer, m.data(), m.size());
}

namespace {

struct Monitor {
  tarsim::Kernel *kernel = nullptr;
  tarvik_cookie *cookie = nullptr;
  int fd = -1;  // the session's descriptor: its label, and its messages in the kernel's record
  unsigned heard = 0;
  bool timestamp = false;
  tarsim_capture_writer *save = nullptr;
};

uint64_t realtime_ns() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  return static_cast<uint64_t>(ts.tv_sec) * 1000000000u + static_cast<uint64_t>(ts.tv_nsec);
}

// What the kernel queued to the monitor's session since the last call, to the capture file: the
// bytes as they crossed the socket (a packed read whole), not the decoded records.
void save_heard(Monitor &m) {
  if (m.save == nullptr) {
    m.kernel->clear_recorded();
    return;
  }
  for (const tarsim::Recorded &r : m.kernel->recorded()) {
    if (r.session == m.fd && !r.to_kernel) {
      tarsim_capture_write(m.save, TARSIM_CAPTURE_FROM_KERNEL, r.session, r.when_ns, r.bytes.data(),
                           r.bytes.size());
    }
  }
  m.kernel->clear_recorded();
}

// One notification: "[time] " with --timestamp, the session's label, the trace line.  The lines
// are made from the bytes the kernel queued to the session, as `tlkctl decode` makes them, since
// a handler cannot tell a decoded record from a raw message: the first handler of a packed read
// prints the whole read, the others find nothing new.
int print_handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  auto &m = *static_cast<Monitor *>(arg);
  char stamp[64] = "";
  if (m.timestamp) {
    const uint64_t now = realtime_ns();
    const time_t secs = static_cast<time_t>(now / 1000000000u);
    tm local{};
    localtime_r(&secs, &local);
    char date[32];
    strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
    snprintf(stamp, sizeof stamp, "[%s.%06u] ", date,
             static_cast<unsigned>(now % 1000000000u / 1000u));
  }
  if (tarsim_connected()) {
    // The kernel is another process: its bytes are not seen here, and the handler cannot tell a
    // decoded record from a raw message, so the line shows the header.
    const std::string line = trace_line(static_cast<const uint8_t *>(msg), TLK_RAW_HDR_LEN, false);
    printf("%s[session %d] %s\n", stamp, m.fd, line.c_str());
  }
  for (const tarsim::Recorded &r : m.kernel->recorded()) {
    if (r.session != m.fd || r.to_kernel) continue;
    for (size_t off = 0; off < r.bytes.size();) {
      size_t len = message_length(r.bytes.data() + off, r.bytes.size() - off);
      if (len == 0) len = r.bytes.size() - off;
      const std::string line = trace_line(r.bytes.data() + off, len, false);
      printf("%s[session %d] %s\n", stamp, m.fd, line.c_str());
      off += len;
    }
  }
  save_heard(m);
  tarvik_msg_free(cookie, msg);
  ++m.heard;
  return 0;
}

// One change of the demo: routes as a client programs them, anything else as a raw change.  A
// round of changes adds a route and deletes it again: its prefix is the round's.
int make_change(tarvik_cookie *writer, uint8_t type, uint8_t op, uint8_t tag) {
  if (type != TLK_MSG_ROUTE) return write_change(writer, type, op, tag);
  const uint8_t net[4] = {10, 99, static_cast<uint8_t>(tag / 8), 0};
  if (op == TLK_OP_DELETE)
    return tarvik_rtm_delete_prefix(writer, 0, TLK_AF_INET, 1, 0, net, 24, 0);
  return tarvik_rtm_add(writer, 0, TLK_AF_INET, 1, 0, 2, 0, 0, 0, 0, 0, 0, nullptr, net, 24,
                        nullptr, nullptr);
}

evContext g_interrupt_ctx{};
void on_interrupt(int) {
  tlk_ev_break(g_interrupt_ctx);
}

// One turn of the session's loop: the session's callback runs, then a marker watch (selected
// after it) stops the loop.  Leaves the loop when everything queued has been handled.
void marker(evContext ctx, void *uap, int, int) {
  tlk_ev_deselect_fd(ctx, *static_cast<evFileID *>(uap));
  tlk_ev_break(ctx);
}

int one_turn(tarvik_cookie *cookie) {
  evContext ctx{};
  if (tarvik_get_async_context(cookie, &ctx) != 0) return -1;
  int p[2];
  if (pipe(p) != 0) return -1;
  (void)!write(p[1], "x", 1);
  evFileID id{};
  tlk_ev_select_fd(ctx, p[0], TLK_EV_READ, marker, &id, &id);
  const int result = tarvik_async_event_loop(cookie);
  close(p[0]);
  close(p[1]);
  return result;
}

// The families the monitor listens to: devices, logical interfaces, families and addresses (both
// flags), route tables, routes, next hops, firewall filters.
int listen_all(tarvik_cookie *c, Monitor *m) {
  int err = tarvik_ifdm_async_register(c, m, print_handler);
  if (!err) err = tarvik_iflm_async_register(c, m, print_handler);
  if (!err) err = tarvik_iffm_async_register(c, 5, m, print_handler);
  if (!err) err = tarvik_ifam_async_register(c, 5, m, print_handler);
  if (!err) err = tarvik_rtbm_async_register(c, m, print_handler);
  if (!err) err = tarvik_rtm_async_register(c, m, print_handler);
  if (!err) err = tarvik_rnhm_async_register(c, m, print_handler);
  if (!err) err = tarvik_dfwm_async_register(c, m, print_handler);
  return err;
}

}  // namespace

int run_until_quiet(tarvik_cookie *cookie, const unsigned *heard) {
  for (;;) {
    const unsigned before = *heard;
    if (one_turn(cookie) != 0) return -1;
    if (*heard == before) return 0;
  }
}

int run_monitor(int argc, char **argv) {
  long changes = -1;
  bool bulk = false;
  Monitor m;
  const char *save_path = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (strcmp(argv[i], "--demo") == 0 && i + 1 < argc) {
      changes = strtol(argv[++i], nullptr, 10);
    } else if (strcmp(argv[i], "--bulk") == 0) {
      bulk = true;
    } else if (strcmp(argv[i], "--timestamp") == 0) {
      m.timestamp = true;
    } else if (strcmp(argv[i], "--save") == 0 && i + 1 < argc) {
      save_path = argv[++i];
    } else {
      return usage_error("monitor");
    }
  }
  tarsim::Kernel kernel;
  m.kernel = &kernel;
  tarsim_capture_writer capture;
  if (save_path != nullptr) {
    const int err = tarsim_capture_writer_open(&capture, save_path, realtime_ns());
    if (err != 0) {
      fprintf(stderr, "tlkctl monitor: %s: %s\n", save_path, strerror(err));
      return 1;
    }
    m.save = &capture;
  }
  kernel.record(true);  // the bytes the lines are made from
  m.cookie = tarvik_open_set_liberr(9, nullptr, print_diagnostic);
  m.fd = tarvik_getsockfd(m.cookie);
  if (m.cookie == nullptr || tarvik_create_async_context(m.cookie) != 0 ||
      (bulk && tarvik_set_async_mode(m.cookie, TLK_ASYNC_BULK) != 0) ||
      listen_all(m.cookie, &m) != 0) {
    fprintf(stderr, "tlkctl monitor: cannot listen\n");
    tarvik_close(m.cookie);
    if (m.save != nullptr) tarsim_capture_writer_close(m.save);
    return 1;
  }
  int result = 0;
  if (changes >= 0) {
    // A second session changes things; the kernel sends each change to the listening monitor.
    static const struct {
      uint8_t type, op;
    } kChanges[] = {{5, TLK_OP_CHANGE}, {6, TLK_OP_ADD},    {8, TLK_OP_ADD},    {2, TLK_OP_ADD},
                    {10, TLK_OP_ADD},   {2, TLK_OP_DELETE}, {6, TLK_OP_DELETE}, {1, TLK_OP_CHANGE}};
    tarvik_cookie *writer = tarvik_open_set_liberr(10, nullptr, print_diagnostic);
    for (long i = 0; writer != nullptr && i < changes; ++i) {
      const auto &ch = kChanges[static_cast<size_t>(i) % (sizeof kChanges / sizeof kChanges[0])];
      make_change(writer, ch.type, ch.op, static_cast<uint8_t>(i));
    }
    tarvik_close(writer);
    result = run_until_quiet(m.cookie, &m.heard);
    printf("%u notifications\n", m.heard);
    if (m.heard != static_cast<unsigned>(changes)) result = 1;
  } else {
    // Until interrupted; signal handlers run between callbacks.
    tarvik_get_async_context(m.cookie, &g_interrupt_ctx);
    signal(SIGINT, on_interrupt);
    signal(SIGTERM, on_interrupt);
    result = tarvik_async_event_loop_sighdl(m.cookie);
  }
  tarvik_close(m.cookie);
  if (m.save != nullptr) {
    save_heard(m);
    const int err = tarsim_capture_writer_close(m.save);
    if (err != 0) {
      fprintf(stderr, "tlkctl monitor: %s: %s\n", save_path, strerror(err));
      result = 1;
    }
  }
  return result == 0 ? 0 : 1;
}

}  // namespace tlkctl
