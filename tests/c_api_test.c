/* The public header compiles as C99 and the library works from C.  On a host without a routing
 * socket (plain Linux, no simulated kernel) connecting fails at its first step, and a client with
 * its own diagnostics callback hears why and gets NULL back. */
#include <stdio.h>
#include <string.h>

#include "tarlink.h"

static char last_line[256];
static int last_level = -1;

static void record(tarvik_cookie *cookie, void *arg, int level, const char *text) {
  (void)cookie;
  (void)arg;
  last_level = level;
  snprintf(last_line, sizeof last_line, "%s", text);
}

int main(void) {
  tlk_hdr hdr;
  memset(&hdr, 0, sizeof hdr);
  hdr.tlkh_type = 6;
  if (TLK_VERSION_TYPE_WORD('k', 6) != 0x066B) return 1;
  if (strcmp(tarvik_msg_type_name(hdr.tlkh_type), "iflogical") != 0) return 2;
  if (tarvik_open_set_liberr(1, NULL, record) != NULL) return 3;
  if (last_level != TLK_LEVEL_ERROR) return 4;
  if (strstr(last_line, "tarvik_connect(): Failed to open a new routing socket with errno") == NULL) {
    return 5;
  }
  printf("c api ok: %s", last_line);
  return 0;
}
