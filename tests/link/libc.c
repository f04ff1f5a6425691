/* Not linked with libtarlink: if_nametoindex is the C library's, which knows the host's loopback
 * and no router interface. */
#define _POSIX_C_SOURCE 200112L
#include <net/if.h>
#include <stdio.h>

int main(void) {
  const unsigned lo = if_nametoindex("lo"), ge0 = if_nametoindex("ge0");
  if (lo == 0 || ge0 == 70) {
    fprintf(stderr, "if_nametoindex: lo %u, ge0 %u: not the C library's\n", lo, ge0);
    return 1;
  }
  return 0;
}
