/* A daemon that knows nothing of the simulator: it adds 10.<argv[1]>.0.0/16 via next hop 1000
 * and exits 0 if the kernel took it.  Linked with the shared libtarlink only. */
#include <stdio.h>
#include <stdlib.h>

#include "tarlink.h"

int main(int argc, char **argv) {
  if (argc != 2) return 2;
  tarvik_cookie *c = tarvik_open_set_liberr(3, NULL, NULL);
  if (c == NULL) {
    fprintf(stderr, "preload_probe: no routing socket\n");
    return 1;
  }
  uint8_t net[4] = {10, (uint8_t)atoi(argv[1]), 0, 0};
  uint32_t index = 0;
  const int err =
      tarvik_rtm_add(c, 0, TLK_AF_INET, 1, 0, 2, 0, 0, 0, 0, 1000, 0, NULL, net, 16, NULL, &index);
  tarvik_close(c);
  return err == 0 ? 0 : 1;
}
