/* Linked with libtarlink: if_nametoindex is the library's, answered by the simulated kernel from
 * its logical interfaces ("ge0" unit 0 is index 70), and the host's own interfaces are unknown. */
#include <errno.h>
#include <stdio.h>

#include "tarlink.h"
#include "tarsim.h"

int main(void) {
  tarsim_kernel *kernel = tarsim_start();
  unsigned ge0, lo;
  if (kernel == NULL) return 2;
  ge0 = if_nametoindex("ge0");
  errno = 0;
  lo = if_nametoindex("lo");
  tarsim_stop(kernel);
  if (ge0 != 70 || lo != 0 || errno != ENXIO) {
    fprintf(stderr, "if_nametoindex: ge0 %u, lo %u: not the library's\n", ge0, lo);
    return 1;
  }
  return 0;
}
