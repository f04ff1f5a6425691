// Teardown of a session's asynchronous record.  The registration and event engine that fill the
// record build on this; until they do, a session's record holds only what the caller set.
#include "cookie.h"

void tarvik_destroy_async_context_internal(tarvik_cookie *cookie) {
  tarvik_async_info_t *info = cookie->async_info;
  if (info == nullptr) return;
  if (info->cleanup != nullptr) info->cleanup(cookie);
  for (tarvik_async_reg_t *&slot : info->reg) {
    tarvik_free(MEMID_TARVIK_ASYNC_REG, slot);
    slot = nullptr;
  }
  tarvik_free(MEMID_TARVIK_ASYNC_CTX, info);
  cookie->async_info = nullptr;
}
