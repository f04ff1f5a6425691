/*
 * async_poll: listen for interface notifications in your own poll(2) loop.
 *
 *   async_poll          listens on the kernel's routing socket (on the router) until interrupted
 *   async_poll --sim    runs against the embedded simulated kernel: a second session changes
 *                       three logical interfaces, and the listener prints what it hears
 *
 * The session is asynchronous without an event loop context: the library never touches a loop,
 * the program polls the descriptor and calls tarvik_async_event_process when it turns readable.
 * Each notification reaches the handler as a message the handler owns and frees.
 */
#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>

#include "tarlink.h"
#include "tarsim.h"

enum { IFL_TYPE = 6, BODY_LEN = 16 };

static int heard;

static int on_notification(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t word) {
  const tlk_hdr *h = (const tlk_hdr *)msg;
  (void)arg;
  (void)word;
  ++heard;
  printf("heard: %s %s, %u bytes, seq %u\n", tarvik_msg_type_name(h->tlkh_type),
         rtm_ops[h->tlkh_op < 10 ? h->tlkh_op : 10], h->tlkh_msglen, h->tlkh_seq);
  tarvik_msg_free(cookie, msg);
  return 0;
}

static void on_diagnostic(tarvik_cookie *cookie, void *arg, int level, const char *text) {
  (void)cookie;
  (void)arg;
  fprintf(stderr, "level %d: %s\n", level, text);
}

/* The simulated kernel's other client: writes a change of a logical interface, which the kernel
 * sends to every session listening for logical interfaces. */
static int change_interface(tarvik_cookie *writer, unsigned unit) {
  union {
    tlk_hdr hdr;
    unsigned char bytes[64];
  } m;
  memset(&m, 0, sizeof m);
  m.hdr.tlkh_version = TARVIK_VERSION_TABLE[IFL_TYPE];
  m.hdr.tlkh_type = IFL_TYPE;
  m.hdr.tlkh_op = TLK_OP_CHANGE;
  m.hdr.tlkh_msglen = TLK_RAW_HDR_LEN + BODY_LEN;
  m.hdr.tlkh_fixedlen = TLK_RAW_HDR_LEN + BODY_LEN;
  tarvik_seq_get_next(writer, &m.hdr.tlkh_seq);
  m.bytes[TLK_RAW_HDR_LEN] = (unsigned char)unit;
  return tarvik_write(writer, m.bytes, TLK_RAW_HDR_LEN + BODY_LEN);
}

int main(int argc, char **argv) {
  tarsim_kernel *sim = NULL;
  if (argc > 1 && strcmp(argv[1], "--sim") == 0) sim = tarsim_start();

  tarvik_cookie *listener = tarvik_open_set_liberr(3, NULL, on_diagnostic);
  int fd = -1;
  if (listener == NULL || tarvik_set_async_info_nocontext(listener, &fd) != 0 ||
      tarvik_iflm_async_register(listener, NULL, on_notification) != 0) {
    fprintf(stderr, "cannot listen\n");
    tarvik_close(listener);
    tarsim_stop(sim);
    return 1;
  }
  /* Where the kernel's stream stands: the session expects it from here (without a context the
   * library doesn't ask; a first notification that disagrees is reported once and resynchronises). */
  uint32_t seq = 0;
  if (tarvik_get_async_seq_num(listener, &seq) == 0) printf("stream at %u\n", seq);

  tarvik_cookie *writer = NULL;
  const int wanted = sim ? 3 : -1;
  if (sim) {
    writer = tarvik_open_set_liberr(4, NULL, on_diagnostic);
    for (unsigned unit = 0; writer != NULL && unit < 3; ++unit) change_interface(writer, unit);
  }

  struct pollfd p = {fd, POLLIN, 0};
  while (wanted < 0 || heard < wanted) {
    const int n = poll(&p, 1, sim ? 1000 : -1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break; /* with the simulator, a second of silence ends the wait */
    /* Reads until the socket is empty (EAGAIN), delivering each message to its handler. */
    if (tarvik_async_event_process(listener) < 0 && errno != EAGAIN) {
      fprintf(stderr, "event processing failed: %s\n", strerror(errno));
      break;
    }
  }
  printf("%d notifications\n", heard);
  tarvik_close(writer);
  tarvik_close(listener);
  tarsim_stop(sim);
  return (wanted < 0 || heard == wanted) ? 0 : 1;
}
