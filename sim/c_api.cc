// The simulator's C face: a thin wrapper over tarsim::Kernel.
#include "tarsim.h"

#include <new>

#include "tarsim.hpp"

struct tarsim_kernel {
  tarsim::Kernel kernel;
};

extern "C" {

tarsim_kernel *tarsim_start(void) { return new (std::nothrow) tarsim_kernel(); }

void tarsim_stop(tarsim_kernel *kernel) { delete kernel; }

int tarsim_reply_raw(tarsim_kernel *kernel, uint8_t type, uint8_t op, const void *reply,
                     size_t length) {
  if (kernel == nullptr || (reply == nullptr && length != 0)) return -1;
  const auto *bytes = static_cast<const uint8_t *>(reply);
  kernel->kernel.reply_raw(type, op, tarsim::Bytes(bytes, bytes + length));
  return 0;
}

int tarsim_push(tarsim_kernel *kernel, int fd, const void *bytes, size_t length) {
  if (kernel == nullptr || (bytes == nullptr && length != 0)) return -1;
  const auto *b = static_cast<const uint8_t *>(bytes);
  return kernel->kernel.push(fd, {b, length}) ? 0 : -1;
}

int tarsim_notify(tarsim_kernel *kernel, uint8_t type, const void *bytes, size_t length) {
  if (kernel == nullptr || (bytes == nullptr && length != 0)) return -1;
  const auto *b = static_cast<const uint8_t *>(bytes);
  return static_cast<int>(kernel->kernel.notify(type, {b, length}));
}

}  // extern "C"
