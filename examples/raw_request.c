/*
 * raw_request: open a session, send one raw request, print the reply, close.
 *
 *   raw_request          talks to the kernel's routing socket (on the router)
 *   raw_request --sim    runs against the embedded simulated kernel (anywhere)
 *
 * The request is a "tarlink stats" get: a 24-byte header and a 12-byte body, the header's
 * sequence number drawn from the session.  The kernel queues the reply before the write returns,
 * so the read straight after it finds the reply on the non-blocking socket.
 */
#include <stdio.h>
#include <string.h>

#include "tarlink.h"
#include "tarsim.h"

enum { STATS_TYPE = 26, REQUEST_LEN = 36 };

static void on_diagnostic(tarvik_cookie *cookie, void *arg, int level, const char *text) {
  (void)cookie;
  (void)arg;
  fprintf(stderr, "level %d: %s", level, text);
}

int main(int argc, char **argv) {
  tarsim_kernel *sim = NULL;
  if (argc > 1 && strcmp(argv[1], "--sim") == 0) sim = tarsim_start();

  /* Our own diagnostics callback: the library then reports instead of ending the process. */
  tarvik_cookie *cookie = tarvik_open_set_liberr(2, NULL, on_diagnostic);
  if (cookie == NULL) {
    fprintf(stderr, "cannot open a session\n");
    tarsim_stop(sim);
    return 1;
  }

  /* The raw wire layout: the header's first 24 bytes, then the body.  The union gives the bytes
   * the header's alignment and room for the whole in-memory header. */
  union {
    tlk_hdr hdr;
    unsigned char bytes[64];
  } request;
  memset(&request, 0, sizeof request);
  tlk_hdr *hdr = &request.hdr;
  hdr->tlkh_version = TARVIK_VERSION_TABLE[STATS_TYPE];
  hdr->tlkh_type = STATS_TYPE;
  hdr->tlkh_op = TLK_OP_GET;
  hdr->tlkh_msglen = REQUEST_LEN;
  hdr->tlkh_fixedlen = REQUEST_LEN;
  tarvik_seq_get_next(cookie, &hdr->tlkh_seq);

  int err = tarvik_write(cookie, request.bytes, REQUEST_LEN);
  void *reply = NULL;
  size_t length = 0;
  if (err == 0) err = tarvik_long_msg_read(cookie, &reply, &length);
  if (err == 0) {
    const tlk_hdr *r = (const tlk_hdr *)reply;
    printf("reply: %zu bytes, type %u (%s), op %s, seq %u\n", length, r->tlkh_type,
           tarvik_msg_type_name(r->tlkh_type), rtm_ops[r->tlkh_op < 10 ? r->tlkh_op : 10],
           r->tlkh_seq);
    tarvik_msg_free(cookie, reply);
  } else {
    fprintf(stderr, "request failed: %d\n", err);
  }
  tarvik_close(cookie);
  tarsim_stop(sim);
  return err == 0 ? 0 : 1;
}
