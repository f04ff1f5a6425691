// async_loop: listen for route and next hop notifications with the library's own event loop.
//
//   async_loop          listens on the kernel's routing socket (on the router) until interrupted
//   async_loop --sim    runs against the embedded simulated kernel: a second session adds and
//                       deletes routes and a next hop, and the loop stops after five notifications
//
// tarvik_create_async_context gives the session a loop of its own; the first registration puts
// the socket on it, and tarvik_async_event_loop runs it.  Handlers run synchronously from the loop
// and own the messages they get.
#include <stdio.h>
#include <string.h>

#include <vector>

#include "tarlink.h"
#include "tarsim.hpp"

namespace {

struct Listener {
  tarvik_cookie *cookie = nullptr;
  int heard = 0;
  int stop_after = 0;  // 0: run until interrupted
};

int on_notification(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  auto *l = static_cast<Listener *>(arg);
  const auto *h = static_cast<const tlk_hdr *>(msg);
  printf("heard: %s %s, %u bytes, seq %u\n", tarvik_msg_type_name(h->tlkh_type),
         rtm_ops[h->tlkh_op < 10 ? h->tlkh_op : 10], h->tlkh_msglen, h->tlkh_seq);
  tarvik_msg_free(cookie, msg);
  if (l->stop_after != 0 && ++l->heard >= l->stop_after) {
    evContext ctx{};
    if (tarvik_get_async_context(cookie, &ctx) == 0) tlk_ev_break(ctx);
  }
  return 0;
}

void on_diagnostic(tarvik_cookie *, void *, int level, const char *text) {
  fprintf(stderr, "level %d: %s\n", level, text);
}

// The simulated kernel's other client: one raw change per call, which the kernel sends on to
// every session listening for its type.
void change(tarvik_cookie *writer, uint8_t type, uint8_t op) {
  std::vector<uint8_t> m(TLK_RAW_HDR_LEN + 8, 0);
  m[4] = TARVIK_VERSION_TABLE[type];
  m[5] = type;
  m[6] = op;
  const uint32_t len = static_cast<uint32_t>(m.size());
  memcpy(&m[8], &len, 4);
  uint32_t seq = 0;
  tarvik_seq_get_next(writer, &seq);
  memcpy(&m[12], &seq, 4);
  tarvik_write(writer, m.data(), m.size());
}

}  // namespace

int main(int argc, char **argv) {
  const bool sim = argc > 1 && strcmp(argv[1], "--sim") == 0;
  tarsim::Kernel *kernel = sim ? new tarsim::Kernel() : nullptr;

  Listener l;
  l.stop_after = sim ? 5 : 0;
  l.cookie = tarvik_open_set_liberr(5, nullptr, on_diagnostic);
  if (l.cookie == nullptr || tarvik_create_async_context(l.cookie) != 0 ||
      tarvik_set_async_mode(l.cookie, TLK_ASYNC_BULK) != 0 ||  // several notifications per read
      tarvik_rtm_async_register(l.cookie, &l, on_notification) != 0 ||
      tarvik_rnhm_async_register(l.cookie, &l, on_notification) != 0) {
    fprintf(stderr, "cannot listen\n");
    tarvik_close(l.cookie);
    delete kernel;
    return 1;
  }

  tarvik_cookie *writer = nullptr;
  if (sim) {
    writer = tarvik_open_set_liberr(6, nullptr, on_diagnostic);
    change(writer, 2, TLK_OP_ADD);  // route
    change(writer, 2, TLK_OP_ADD);
    change(writer, 10, TLK_OP_ADD);  // next hop
    change(writer, 2, TLK_OP_DELETE);
    change(writer, 2, TLK_OP_DELETEALL);
    change(writer, 5, TLK_OP_CHANGE);  // a device: not listened for, not heard
  }

  const int result = tarvik_async_event_loop(l.cookie);
  printf("%d notifications, loop result %d\n", l.heard, result);
  tarvik_close(writer);
  tarvik_close(l.cookie);
  delete kernel;
  return (!sim || l.heard == 5) ? 0 : 1;
}
