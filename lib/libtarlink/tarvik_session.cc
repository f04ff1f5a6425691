// Session lifecycle: create, connect with version negotiation, tune, destroy.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>

#include "cookie.h"
#include "platform/platform.h"

namespace {

constexpr char kConnect[] = "tarvik_connect";
constexpr uint8_t kExpectedTypes = TLK_NUM_MSG_TYPES;

int set_u32_option(tarvik_cookie *cookie, int option, uint32_t value) {
  return tlk::platform::ops().setsockopt(cookie->fd, TLK_SOL_ROUTE, option, &value, sizeof value);
}

// A mode setter: 0, or -1 after a level 3 line naming the mode.
int setup_mode(tarvik_cookie *cookie, int option, uint32_t value, const char *what) {
  if (cookie == nullptr) return EINVAL;
  if (set_u32_option(cookie, option, value) < 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "failed to set %s mode %s", what, strerror(errno));
    return -1;
  }
  return 0;
}

// The connect path's common failure exit.  It frees the record alone, on purpose: an open
// descriptor stays open and the read buffer is not released.  The caller must not touch the
// cookie after the null return.
tarvik_cookie *connect_fail(tarvik_cookie *cookie) {
  tarvik_free(MEMID_TARVIK_COOKIE, cookie);
  return nullptr;
}

// Compares the kernel's version reply with what this library expects.  Only another interface
// version refuses the session; other differences are logged and the session opens, so that a
// client of an unaffected message goes on working.
bool negotiate_versions(tarvik_cookie *cookie, const uint8_t *reply) {
  if (reply[1] != TLK_INTERFACE_VERSION) {
    tarvik_err(cookie, TLK_LEVEL_FATAL,
               "interface version mismatch: kernel=%d library=%d,a reboot or software upgrade may "
               "be required\n",
               reply[1], TLK_INTERFACE_VERSION);
    errno = ECONNREFUSED;
    return false;
  }
  if (reply[0] > kExpectedTypes) {
    tarvik_err(cookie, TLK_LEVEL_WARNING,
               "kernel has new unknown messages: expected %d got %d,a reboot or software upgrade "
               "may be required\n",
               kExpectedTypes, reply[0]);
  } else if (reply[0] < kExpectedTypes) {
    tarvik_err(cookie, TLK_LEVEL_ERROR,
               "kernel does not support all messages: expected %d got %d,a reboot or software "
               "upgrade may be required\n",
               kExpectedTypes, reply[0]);
  }
  // Every type is compared, whatever count the kernel gave.
  for (unsigned t = 1; t < TLK_NUM_MSG_TYPES; ++t) {
    if (reply[1 + t] != TARVIK_VERSION_TABLE[t]) {
      tarvik_err(cookie, TLK_LEVEL_WARNING,
                 "version mismatch for msg %s (%d): expected %d got %d,a reboot or software "
                 "upgrade may be required\n",
                 rtm_types[t], t, TARVIK_VERSION_TABLE[t], reply[1 + t]);
    }
  }
  return true;
}

}  // namespace

extern "C" {

TLK_EXPORT tarvik_cookie *tarvik_cookie_create(void) {
  auto *cookie =
      static_cast<tarvik_cookie *>(tarvik_malloc(MEMID_TARVIK_COOKIE, sizeof(tarvik_cookie)));
  if (cookie == nullptr) {
    tarvik_err(nullptr, TLK_LEVEL_ERROR, "Failed to allocate memory for tarvik_cookie\n");
    return nullptr;
  }
  memset(cookie, 0, sizeof *cookie);
  cookie->fd = -1;
  cookie->seq = 1;
  cookie->lib_error_cb = tarvik_lib_error;
  cookie->read_buffer =
      static_cast<uint8_t *>(tarvik_malloc(MEMID_TARVIK_READ_BUFFER, TLK_READ_BUF_SIZE));
  if (cookie->read_buffer == nullptr) {
    tarvik_err(nullptr, TLK_LEVEL_ERROR,
               "Failed to allocate memory for tarvik cookie read_buffer\n");
    tarvik_free(MEMID_TARVIK_COOKIE, cookie);
    return nullptr;
  }
  return cookie;
}

TLK_EXPORT tarvik_cookie *tarvik_open_nc(void) {
  return tarvik_cookie_create();
}

TLK_EXPORT tarvik_cookie *tarvik_set_defaults(tarvik_cookie *cookie, uint32_t sender_id) {
  if (cookie == nullptr || cookie->fd != -1) return connect_fail(cookie);
  const tlk_platform &os = tlk::platform::ops();

  const int fd = os.socket(TLK_PF_ROUTE, TLK_SOCK_SEQPACKET, 0);
  if (fd < 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "%s(): Failed to open a new routing socket with errno %u\n",
               kConnect, errno);
    return connect_fail(cookie);
  }
  cookie->fd = fd;
  if (os.fcntl(fd, F_SETFL, O_NONBLOCK) < 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR,
               "%s(): Failed to set nonblocking behaviour on the socket with errno %u\n", kConnect,
               errno);
    return connect_fail(cookie);
  }
  if (os.fcntl(fd, F_SETFD, FD_CLOEXEC) < 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR,
               "%s(): Failed to set close-on-exec flag on the socket with errno %u\n", kConnect,
               errno);
    return connect_fail(cookie);
  }
  if (cookie->version_info != nullptr) return connect_fail(cookie);

  // A short reply leaves zeros behind it: a kernel that says too little is judged on zeros,
  // never on stack garbage.
  uint8_t reply[TLK_VERSION_REPLY_MAX] = {};
  socklen_t len = sizeof reply;
  if (os.getsockopt(fd, TLK_SOL_ROUTE, TLK_SO_VERSION, reply, &len) < 0) {
    tarvik_err(cookie, TLK_LEVEL_FATAL, "version sockopt failed: %s", strerror(errno));
    return connect_fail(cookie);
  }
  if (len > sizeof reply) len = sizeof reply;
  if (!negotiate_versions(cookie, reply)) return connect_fail(cookie);

  cookie->version_info = static_cast<uint8_t *>(tarvik_size_alloc(cookie, len));
  if (cookie->version_info == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, "Malloc failure for version_info");
    return connect_fail(cookie);
  }
  memcpy(cookie->version_info, reply, len);
  cookie->version_info_len = len;

  (void)tarvik_set_sender_id(cookie, sender_id);
  if (tarvik_set_buffers(cookie, TLK_DEFAULT_SOCKBUF, TLK_DEFAULT_SOCKBUF) != 0) {
    tarvik_cookie_destroy(cookie);
    return nullptr;
  }
  return cookie;
}

TLK_EXPORT tarvik_cookie *tarvik_open(uint32_t sender_id) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  return cookie ? tarvik_set_defaults(cookie, sender_id) : nullptr;
}

TLK_EXPORT tarvik_cookie *tarvik_open_set_liberr(uint32_t sender_id, void *arg,
                                                 tarvik_lib_error_cb cb) {
  tarvik_cookie *cookie = tarvik_cookie_create();
  if (cookie == nullptr) return nullptr;
  tarvik_lib_error_register(cookie, arg, cb);
  return tarvik_set_defaults(cookie, sender_id);
}

TLK_EXPORT void tarvik_cookie_destroy(tarvik_cookie *cookie) {
  if (cookie == nullptr) return;
  // The socket closes first, so that nothing can arrive during the teardown.
  if (cookie->fd != -1) {
    tlk::platform::ops().close(cookie->fd);
    cookie->fd = -1;
  }
  if (cookie->async_info != nullptr && (cookie->async_info->mode & TLK_ASYNC_HOOKED) &&
      cookie->event_hooks != nullptr && cookie->event_hooks->destroy != nullptr) {
    cookie->event_hooks->destroy(cookie);
  }
  if (cookie->version_info) tarvik_free(MEMID_TARVIK_MSG, cookie->version_info);
  if (cookie->read_buffer) tarvik_free(MEMID_TARVIK_READ_BUFFER, cookie->read_buffer);
  cookie->version_info = nullptr;
  cookie->read_buffer = nullptr;
  // The asynchronous context outlives the version and read buffers and must not need them.
  if (cookie->async_info != nullptr) (void)tarvik_destroy_async_context(cookie);
  if (cookie->unnum_info != nullptr) tarvik_unnum_ifa_cleanup(cookie);
  if (cookie->wbuf) tarvik_free(MEMID_TARVIK_MSG, cookie->wbuf);
  if (cookie->rbuf_data) tarvik_free(MEMID_TARVIK_MSG, cookie->rbuf_data);
  tarvik_free(MEMID_TARVIK_COOKIE, cookie);
}

TLK_EXPORT void tarvik_close(tarvik_cookie *cookie) {
  tarvik_cookie_destroy(cookie);
}

TLK_EXPORT int tarvik_set_buffers(tarvik_cookie *cookie, int32_t send_size, int32_t recv_size) {
  if (cookie == nullptr) return EINVAL;
  if (send_size < 1) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Attempted to set an invalid send buffer size %d\n",
               send_size);
    return EINVAL;
  }
  if (recv_size < 1) {
    // Two blanks after the first word, as the diagnostic has always read.
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Attempted  to set an invalid receive buffer size %d\n",
               recv_size);
    return EINVAL;
  }
  const tarvik_async_info_t *async = cookie->async_info;
  if (async != nullptr && (async->mode & TLK_ASYNC_BULK) &&
      (send_size < TLK_DEFAULT_SOCKBUF || recv_size < TLK_DEFAULT_SOCKBUF)) {
    tarvik_err(cookie, TLK_LEVEL_ERROR,
               "Attempted to set an invalid buffer size(send size: %d, recv size: %d)\n", send_size,
               recv_size);
    return EINVAL;
  }
  const tlk_platform &os = tlk::platform::ops();
  if (os.setsockopt(cookie->fd, SOL_SOCKET, SO_SNDBUF, &send_size, sizeof send_size) < 0)
    return errno;
  if (os.setsockopt(cookie->fd, SOL_SOCKET, SO_RCVBUF, &recv_size, sizeof recv_size) < 0)
    return errno;

  // The bulk read buffer follows the receive buffer, so one read always fits it.
  if ((cookie->sync_mode & TLK_SYNC_BULK_ENABLE) ||
      (async != nullptr && cookie->rbuf_data != nullptr)) {
    void *grown =
        tarvik_realloc(MEMID_TARVIK_MSG, cookie->rbuf_data, static_cast<size_t>(recv_size));
    if (grown == nullptr) {
      tarvik_err(cookie, TLK_LEVEL_ERROR, "%s: Failed to re-allocate rbuf %s", "tarvik_set_buffers",
                 strerror(errno));
      return ENOMEM;
    }
    cookie->rbuf_data = static_cast<uint8_t *>(grown);
    cookie->rbuf_sz = static_cast<uint32_t>(recv_size);
  }
  return 0;
}

TLK_EXPORT int tarvik_set_sender_id(tarvik_cookie *cookie, uint32_t sender_id) {
  if (cookie == nullptr) return EINVAL;
  const uint8_t id = static_cast<uint8_t>(sender_id);
  if (tlk::platform::ops().setsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_SENDER_ID, &id, 1) < 0) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, "setsockopt(ROUTE_SENDER_ID) failed, %s",
               strerror(errno));
  }
  return 0;
}

// Deliberately reports with the sender identifier's words: operators grep for that line.
TLK_EXPORT int tarvik_set_lr_id(tarvik_cookie *cookie, uint32_t lr_id) {
  if (cookie == nullptr) return EINVAL;
  const uint16_t id = static_cast<uint16_t>(lr_id);
  if (tlk::platform::ops().setsockopt(cookie->fd, TLK_SOL_ROUTE, TLK_SO_LR_ID, &id, 2) < 0) {
    tarvik_err(cookie, TLK_LEVEL_WARNING, "setsockopt(ROUTE_SENDER_ID) failed, %s",
               strerror(errno));
  }
  return 0;
}

TLK_EXPORT int tarvik_setsockopt(tarvik_cookie *cookie, int option, const void *value,
                                 uint32_t length) {
  if (cookie == nullptr) return EINVAL;
  return tlk::platform::ops().setsockopt(cookie->fd, TLK_SOL_ROUTE, option, value, length);
}

TLK_EXPORT int tarvik_getsockfd(tarvik_cookie *cookie) {
  return cookie ? cookie->fd : EINVAL;
}

TLK_EXPORT const uint8_t *tarvik_get_tarlink_version_info(tarvik_cookie *cookie) {
  return cookie ? cookie->version_info : nullptr;
}

TLK_EXPORT int tarvik_setup_master_mode(tarvik_cookie *cookie, uint32_t value) {
  return setup_mode(cookie, TLK_SO_MASTER_MODE, value, "master");
}

TLK_EXPORT int tarvik_setup_slave_mode(tarvik_cookie *cookie, uint32_t value) {
  return setup_mode(cookie, TLK_SO_SLAVE_MODE, value, "slave");
}

TLK_EXPORT int tarvik_setup_local_slave_mode(tarvik_cookie *cookie, uint32_t value) {
  return setup_mode(cookie, TLK_SO_LOCAL_SLAVE_MODE, value, "local slave");
}

// The one setter without a cookie check: a NULL cookie is ignored here rather than dereferenced.
TLK_EXPORT void tarvik_set_used_by_stats(tarvik_cookie *cookie, uint32_t flag) {
  if (cookie != nullptr) cookie->used_by_stats = static_cast<uint8_t>(flag);
}

TLK_EXPORT int tarvik_seq_error_register(tarvik_cookie *cookie, void *arg, tarvik_seq_error_cb cb) {
  if (cookie == nullptr) return EINVAL;
  cookie->seq_error_cb = cb;
  cookie->seq_error_arg = arg;
  return 0;
}

}  // extern "C"
