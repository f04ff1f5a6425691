// The host's platform table and the process-wide pointer to the table in force.
#include "platform/platform.h"

#include "platform/eventlib.h"
#include "platform/ifinfo.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#ifdef TARLINK_HAVE_NETTLE
#include <nettle/md5.h>
#endif
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

namespace tlk::platform {
namespace {

int host_socket(int domain, int type, int protocol) {
  return ::socket(domain, type, protocol);
}
ssize_t host_read(int fd, void *buf, size_t len) {
  return ::read(fd, buf, len);
}
ssize_t host_write(int fd, const void *buf, size_t len) {
  return ::write(fd, buf, len);
}
ssize_t host_recv(int fd, void *buf, size_t len, int flags) {
  return ::recv(fd, buf, len, flags);
}
int host_close(int fd) {
  return ::close(fd);
}
int host_fcntl(int fd, int cmd, int arg) {
  return ::fcntl(fd, cmd, arg);
}
int host_getsockopt(int fd, int level, int name, void *value, socklen_t *len) {
  return ::getsockopt(fd, level, name, value, len);
}
int host_setsockopt(int fd, int level, int name, const void *value, socklen_t len) {
  return ::setsockopt(fd, level, name, value, len);
}
// Linux keeps none of the kernel values that the library reads by name or number.
int host_sysctl(const int *, unsigned, void *, size_t *, const void *, size_t) {
  errno = ENOENT;
  return -1;
}
int host_sysctlbyname(const char *, void *, size_t *, const void *, size_t) {
  errno = ENOENT;
  return -1;
}
int host_select(int nfds, fd_set *r, fd_set *w, fd_set *e, struct timeval *t) {
  return ::select(nfds, r, w, e, t);
}
int host_usleep(unsigned usec) {
  return ::usleep(usec);
}
void host_syslog(int priority, const char *text) {
  ::syslog(priority, "%s\n", text);
}
void host_print_stderr(const char *text) {
  ::fprintf(stderr, "%s\n", text);
}
void host_print_stdout(const char *text) {
  ::fputs(text, stdout);
}
void host_exit(int status) {
  ::exit(status);
}
void host_assert_fail(const char *expr, const char *file, int line, const char *func) {
  ::fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", expr, func, file,
            line);
  ::abort();
}

// A Linux host is no router: no product record, no variant.
const void *host_product_info_data() {
  return nullptr;
}
int host_product_is_platform_varn(int, int) {
  return 0;
}

// The program's short name, for diagnostics.
const char *host_program_name() {
#if defined(__GLIBC__)
  return program_invocation_short_name;
#elif defined(__FreeBSD__) || defined(__NetBSD__) || defined(__OpenBSD__) || \
    defined(__DragonFly__) || defined(__APPLE__)
  const char *name = ::getprogname();
  return name != nullptr ? name : "";
#else
  return "";
#endif
}

pid_t host_getpid() {
  return ::getpid();
}

#ifdef TARLINK_HAVE_NETTLE
// The block length is the importer's business; a single pass over the bytes gives the digest.
void host_md5_cksum(const void *data, size_t length, size_t, uint8_t *digest, void *) {
  md5_ctx ctx;
  md5_init(&ctx);
  md5_update(&ctx, length, static_cast<const uint8_t *>(data));
  md5_digest(&ctx, MD5_DIGEST_SIZE, digest);
}
#else
constexpr auto host_md5_cksum = nullptr;  // a build without nettle has no MD5 in its seam
#endif

// The library numbers address families as the target does; the host's numbers may differ.
int host_family(int family) {
  switch (family) {
    case 2:
      return AF_INET;
    case 28:
      return AF_INET6;
    default:
      return -1;
  }
}

struct hostent *host_gethostbyaddr(const void *addr, socklen_t len, int family) {
  const int af = host_family(family);
  if (af < 0) return nullptr;
  return ::gethostbyaddr(addr, len, af);
}
int host_gethostname(char *name, size_t len) {
  return ::gethostname(name, len);
}
const char *host_inet_ntop(int family, const void *src, char *dst, socklen_t size) {
  const int af = host_family(family);
  if (af < 0) {
    errno = EAFNOSUPPORT;
    return nullptr;
  }
  if (af != AF_INET) return ::inet_ntop(af, src, dst, size);
  // Dotted IPv4 by hand: the C library's goes through sprintf, and a trace of routes prints one
  // per line.  Same result and the same ENOSPC for a short buffer.
  const auto *b = static_cast<const uint8_t *>(src);
  char text[INET_ADDRSTRLEN];
  size_t n = 0;
  for (int i = 0; i < 4; ++i) {
    const unsigned v = b[i];
    if (v >= 100) text[n++] = static_cast<char>('0' + v / 100);
    if (v >= 10) text[n++] = static_cast<char>('0' + v / 10 % 10);
    text[n++] = static_cast<char>('0' + v % 10);
    text[n++] = i < 3 ? '.' : 0;
  }
  if (n > size) {
    errno = ENOSPC;
    return nullptr;
  }
  memcpy(dst, text, n);
  return dst;
}

// The local address in the router's layout: length byte, family byte, then the family's bytes
// (port and address) as the host keeps them after its own family word.
int host_getsockname(int fd, void *addr, socklen_t *len) {
  if (addr == nullptr || len == nullptr) {
    errno = EFAULT;
    return -1;
  }
  sockaddr_storage ss{};
  socklen_t got = sizeof ss;
  if (::getsockname(fd, reinterpret_cast<sockaddr *>(&ss), &got) != 0) return -1;
  uint8_t out[sizeof ss] = {};
  out[0] = static_cast<uint8_t>(got > 255 ? 255 : got);
  switch (ss.ss_family) {
    case AF_INET:
      out[1] = 2;
      break;
    case AF_INET6:
      out[1] = 28;
      break;
    case AF_UNIX:
      out[1] = 1;
      break;
    default:
      out[1] = 255;
      break;
  }
  if (got > 2) memcpy(out + 2, reinterpret_cast<const uint8_t *>(&ss) + 2, got - 2);
  const socklen_t n = got < *len ? got : *len;
  memcpy(addr, out, n);
  *len = n;
  return 0;
}

// The router's send-interface options by its numbers.  The host's nearest are IP_UNICAST_IF,
// which takes the index in network order, and IPV6_UNICAST_IF, which takes it as it is; any
// other option has no host equivalent.
int host_setsockopt_ip(int fd, int level, int name, const void *value, socklen_t len) {
#if defined(IP_UNICAST_IF) && defined(IPV6_UNICAST_IF)
  if (value != nullptr && len == 4) {
    uint32_t index;
    memcpy(&index, value, 4);
    if (level == 0 && name == 107) {
      const uint32_t net = htonl(index);
      return ::setsockopt(fd, IPPROTO_IP, IP_UNICAST_IF, &net, sizeof net);
    }
    if (level == 41 && name == 64) {
      const int v = static_cast<int>(index);
      return ::setsockopt(fd, IPPROTO_IPV6, IPV6_UNICAST_IF, &v, sizeof v);
    }
  }
#else
  (void)fd, (void)level, (void)name, (void)value, (void)len;
#endif
  errno = ENOPROTOOPT;
  return -1;
}

// Entries by name, so that adding one touches no other.
constexpr tlk_platform kHost = {
    .socket = host_socket,
    .read = host_read,
    .write = host_write,
    .recv = host_recv,
    .close = host_close,
    .fcntl = host_fcntl,
    .getsockopt = host_getsockopt,
    .setsockopt = host_setsockopt,
    .sysctl = host_sysctl,
    .sysctlbyname = host_sysctlbyname,
    .select = host_select,
    .usleep = host_usleep,
    .syslog = host_syslog,
    .print_stderr = host_print_stderr,
    .exit = host_exit,
    .assert_fail = host_assert_fail,
    // The event loop: the library's own (platform/eventlib.cc).
    .evCreate = evlib::create,
    .evSelectFD = evlib::select_fd,
    .evDeselectFD = evlib::deselect_fd,
    .evMainLoop = evlib::main_loop,
    .evMainLoopSyncSighdl = evlib::main_loop_sync_sighdl,
    .evDestroy = evlib::destroy,
    .evBreak = evlib::brk,
    .product_info_data = host_product_info_data,
    .product_is_platform_varn = host_product_is_platform_varn,
    .program_name = host_program_name,
    .getpid = host_getpid,
    .md5_cksum = host_md5_cksum,
    .null_nh_idx = 0,
    .null_ifl_idx = 0,
    .gethostbyaddr = host_gethostbyaddr,
    .gethostname = host_gethostname,
    .inet_ntop = host_inet_ntop,
    .getsockname = host_getsockname,
    .setsockopt_ip = host_setsockopt_ip,
    .parse_interface = host_parse_interface,
    .interface_info_by_pfx_match = host_interface_info_by_pfx_match,
    .interface_info_index = host_interface_info_index,
    .interface_mask_table = g_interface_masks.rows,
    .interface_mask_rows = kInterfaceMaskRows,
    .print_stdout = host_print_stdout,
};

}  // namespace

tlk_platform g_ops = kHost;

void assert_fail(const char *expr, const char *file, int line, const char *func) {
  g_ops.assert_fail(expr, file, line, func);
  ::abort();  // a replacement that returns must not let the library run on
}

}  // namespace tlk::platform

extern "C" {

TLK_EXPORT const tlk_platform *tlk_platform_get(void) {
  return &tlk::platform::g_ops;
}
TLK_EXPORT const tlk_platform *tlk_platform_host(void) {
  return &tlk::platform::kHost;
}
TLK_EXPORT void tlk_platform_set(const tlk_platform *table) {
  tlk::platform::g_ops = table ? *table : tlk::platform::kHost;
}

}  // extern "C"
