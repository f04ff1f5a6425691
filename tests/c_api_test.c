/* The public headers compile as C99 and the libraries work from C.  On a host without a routing
 * socket (plain Linux, no simulated kernel) connecting fails at its first step, and a client with
 * its own diagnostics callback hears why and gets NULL back.  Then, with the simulated kernel
 * started through its C face, a C program seeds and changes the kernel's objects and reads them
 * back through the library, injects faults, holds a reply for waits and reads the record. */
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/select.h>

#include "tarlink.h"
#include "tarlink_platform.h"
#include "tarsim.h"

static char last_line[256];
static int last_level = -1;

static void record(tarvik_cookie *cookie, void *arg, int level, const char *text) {
  (void)cookie;
  (void)arg;
  last_level = level;
  snprintf(last_line, sizeof last_line, "%s", text);
}

#define CHECK(cond)                                                            \
  do {                                                                         \
    if (!(cond)) {                                                             \
      fprintf(stderr, "c_api_test.c:%d: check failed: %s\n", __LINE__, #cond); \
      return 1;                                                                \
    }                                                                          \
  } while (0)

/* A raw "tarlink stats" get with the session's next number, written through the library. */
static int write_stats_get(tarvik_cookie *s) {
  uint8_t req[TLK_RAW_HDR_LEN];
  const uint32_t msglen = sizeof req;
  const uint16_t fixedlen = TLK_RAW_HDR_LEN;
  uint32_t seq;
  memset(req, 0, sizeof req);
  if (tarvik_seq_get_next(s, &seq) != 0) return -1;
  req[4] = TARVIK_VERSION_TABLE[TLK_MSG_TARLINK_STATS];
  req[5] = TLK_MSG_TARLINK_STATS;
  req[6] = TLK_OP_GET;
  memcpy(&req[8], &msglen, 4);
  memcpy(&req[12], &seq, 4);
  memcpy(&req[20], &fixedlen, 2);
  return tarvik_write(s, req, sizeof req);
}

/* One select on the session's descriptor through the seam, with a short timeout. */
static int select_readable(int fd) {
  fd_set readable;
  struct timeval timeout;
  FD_ZERO(&readable);
  FD_SET(fd, &readable);
  timeout.tv_sec = 0;
  timeout.tv_usec = 100000;
  return tlk_platform_get()->select(fd + 1, &readable, NULL, NULL, &timeout);
}

static int objects(tarsim_kernel *k, tarvik_cookie *s) {
  void *m = NULL;
  uint32_t flags = 0;
  const void *blob = NULL;
  size_t blob_len = 0;
  const int64_t devices = tarsim_device_count(k);
  const int64_t ifls = tarsim_ifl_count(k);
  const int64_t blobs = tarsim_gencfg_count(k); /* the seeded ones */

  /* A device seeded from C, read by the library, taken down and flagged as the kernel would. */
  CHECK(devices > 0);
  CHECK(tarsim_device_add(k, 300, "ge9", 0x8001, TARSIM_MEDIA_ETHERNET, 1514) == 0);
  CHECK(tarsim_device_count(k) == devices + 1);
  CHECK(tarvik_ifdm_get_by_name(s, "ge9", TLK_OP_GET, &m, NULL) == 0);
  CHECK(((ifdev_msg *)m)->ifdm_index == 300);
  CHECK(((ifdev_msg *)m)->ifdm_flags == 0x8001);
  tarvik_msg_idl_release(s, m, NULL);
  CHECK(tarsim_device_set_link(k, "ge9", 0) == 0);
  CHECK(tarsim_device_flags(k, 300, &flags) == 0 && flags == 0x8000);
  CHECK(tarsim_device_change_flags(k, 300, 0x10, 0) == 0);
  CHECK(tarvik_ifdm_get_by_index(s, 300, TLK_OP_GET, &m, NULL) == 0);
  CHECK(((ifdev_msg *)m)->ifdm_flags == 0x8010);
  CHECK(((ifdev_msg *)m)->ifdm_generation == 3);
  tarvik_msg_idl_release(s, m, NULL);
  CHECK(tarsim_device_set_counters(k, 300, 11, 22, 0) == 0);
  CHECK(tarsim_device_set_link(k, "nosuch0", 1) == -1);
  CHECK(tarsim_device_set_counters(k, 299, 1, 2, 3) == -1);
  CHECK(tarsim_device_flags(k, 299, &flags) == -1);

  /* A logical interface on it. */
  CHECK(tarsim_ifl_add(k, 90, "ge9", 300, 5, 0x8001) == 0);
  CHECK(tarsim_ifl_count(k) == ifls + 1);
  CHECK(tarvik_iflm_get_by_name(s, "ge9", 5, TLK_OP_GET, &m, NULL) == 0);
  CHECK(((ifl_msg *)m)->iflm_index.idx == 90);
  CHECK(((ifl_msg *)m)->iflm_devidx == 300);
  tarvik_msg_idl_release(s, m, NULL);

  /* A blob stored by the kernel, read by the library, deleted. */
  CHECK(tarsim_gencfg_count(k) == blobs);
  CHECK(tarsim_gencfg_store(k, 40, 1, "k1", 2, "blob", 4) == 0); /* nobody listens */
  CHECK(tarsim_gencfg_count(k) == blobs + 1);
  CHECK(tarsim_gencfg_find(k, 40, 1, "k1", 2, &blob, &blob_len) == 0);
  CHECK(blob_len == 4 && memcmp(blob, "blob", 4) == 0);
  {
    gencfg_t r;
    memset(&r, 0, sizeof r);
    r.major = 40;
    r.minor = 1;
    r.flags = TLK_GENCFG_KEY;
    r.key = (uint8_t *)"k1";
    r.key_len = 2;
    CHECK(tarvik_gencfg_get(s, &r, TLK_OP_GET, &m, NULL) == 0);
    CHECK(((gencfg_msg *)m)->blob_len == 4 && memcmp(((gencfg_msg *)m)->blob, "blob", 4) == 0);
    tarvik_msg_free(s, m);
  }
  CHECK(tarsim_gencfg_delete(k, 40, 1, "k1", 2) == 0);
  CHECK(tarsim_gencfg_count(k) == blobs);
  CHECK(tarsim_gencfg_delete(k, 40, 1, "k1", 2) == -1);
  CHECK(tarsim_gencfg_find(k, 40, 1, "k1", 2, &blob, &blob_len) == -1);

  /* A system control. */
  {
    uint32_t value = 0;
    size_t len = sizeof value;
    CHECK(tarsim_set_sysctl_u32(k, "net.tarsim.c_test", 77) == 0);
    CHECK(tlk_platform_get()->sysctlbyname("net.tarsim.c_test", &value, &len, NULL, 0) == 0);
    CHECK(len == 4 && value == 77);
    CHECK(tarsim_erase_sysctl(k, "net.tarsim.c_test") == 0);
    CHECK(tlk_platform_get()->sysctlbyname("net.tarsim.c_test", &value, &len, NULL, 0) == -1);
    CHECK(errno == ENOENT);
  }
  return 0;
}

static int faults(tarsim_kernel *k, tarvik_cookie *s) {
  void *m = NULL;
  uint32_t mask[2] = {0, 0};
  CHECK(tarsim_inject_write_errno(k, EIO) == 0);
  CHECK(tarvik_ifdm_get_by_index(s, 130, TLK_OP_GET, &m, NULL) == EIO);
  CHECK(m == NULL);
  CHECK(tarsim_inject_read_errno(k, ECONNRESET, 0) == 0);
  CHECK(tarvik_ifdm_get_by_index(s, 130, TLK_OP_GET, &m, NULL) == ECONNRESET);
  tlk_platform_get()->read(tarvik_getsockfd(s), last_line, sizeof last_line); /* the reply left */
  CHECK(tarsim_fail_option(k, TLK_SOL_ROUTE, TLK_SO_LISTEN, EPERM) == 0);
  CHECK(tlk_platform_get()->setsockopt(tarvik_getsockfd(s), TLK_SOL_ROUTE, TLK_SO_LISTEN, mask,
                                       sizeof mask) == -1);
  CHECK(errno == EPERM);
  CHECK(tarsim_clear_option_failure(k, TLK_SOL_ROUTE, TLK_SO_LISTEN) == 0);
  CHECK(tlk_platform_get()->setsockopt(tarvik_getsockfd(s), TLK_SOL_ROUTE, TLK_SO_LISTEN, mask,
                                       sizeof mask) == 0);
  CHECK(tarsim_fail_socket(k, EMFILE) == 0);
  CHECK(tarvik_open_set_liberr(3, NULL, record) == NULL);
  CHECK(tarsim_inject_write_errno(k, EIO) == 0);
  CHECK(tarsim_clear_faults(k) == 0);
  CHECK(tarvik_ifdm_get_by_index(s, 130, TLK_OP_GET, &m, NULL) == 0);
  tarvik_msg_idl_release(s, m, NULL);
  CHECK(tarsim_inject_write_errno(NULL, EIO) == -1);
  return 0;
}

static int waits_and_record(tarsim_kernel *k, tarvik_cookie *s) {
  const int fd = tarvik_getsockfd(s);
  uint8_t buf[TLK_MSG_BUF_SIZE];
  size_t len = sizeof buf;
  int session = -1, to_kernel = -1;
  const void *bytes = NULL;
  size_t bytes_len = 0;
  const int64_t waited = tarsim_waits(k, fd);

  /* The reply comes with the second wait and not before. */
  CHECK(waited >= 0);
  CHECK(tarsim_hold_replies(k, fd, 2) == 0);
  CHECK(write_stats_get(s) == 0);
  CHECK(tarvik_msg_read(s, buf, &len) == EAGAIN);
  CHECK(select_readable(fd) == 0);
  CHECK(tarvik_msg_read(s, buf, &len) == EAGAIN);
  CHECK(select_readable(fd) == 1);
  CHECK(tarvik_msg_read(s, buf, &len) == 0);
  CHECK(len == TLK_RAW_HDR_LEN + 16 && buf[5] == TLK_MSG_TARLINK_STATS);
  CHECK(tarsim_waits(k, fd) == waited + 2);
  CHECK(tarsim_hold_replies(k, fd + 1000, 1) == -1);
  CHECK(tarsim_waits(k, fd + 1000) == -1);

  /* The record: one request and its reply. */
  CHECK(tarsim_record(k, 1) == 0);
  CHECK(write_stats_get(s) == 0);
  len = sizeof buf;
  CHECK(tarvik_msg_read(s, buf, &len) == 0);
  CHECK(tarsim_record(k, 0) == 0);
  CHECK(tarsim_recorded_count(k) == 2);
  CHECK(tarsim_recorded(k, 0, &session, &to_kernel, &bytes, &bytes_len) == 0);
  CHECK(session == fd && to_kernel == 1 && bytes_len == TLK_RAW_HDR_LEN);
  CHECK(tarsim_recorded(k, 1, &session, &to_kernel, &bytes, &bytes_len) == 0);
  CHECK(to_kernel == 0 && bytes_len == len && memcmp(bytes, buf, len) == 0);
  CHECK(tarsim_recorded(k, 2, &session, &to_kernel, &bytes, &bytes_len) == -1);
  CHECK(tarsim_clear_recorded(k) == 0);
  CHECK(tarsim_recorded_count(k) == 0);
  return 0;
}

static int with_kernel(void) {
  tarsim_kernel *k = tarsim_start();
  tarvik_cookie *s;
  int failed;
  CHECK(k != NULL);
  s = tarvik_open_set_liberr(2, NULL, record);
  CHECK(s != NULL);
  failed = objects(k, s) || faults(k, s) || waits_and_record(k, s);
  tarvik_close(s);
  tarsim_stop(k);
  return failed;
}

int main(void) {
  tlk_hdr hdr;
  memset(&hdr, 0, sizeof hdr);
  hdr.tlkh_type = 6;
  if (TLK_VERSION_TYPE_WORD('k', 6) != 0x066B) return 1;
  if (strcmp(tarvik_msg_type_name(hdr.tlkh_type), "iflogical") != 0) return 2;
  if (tarvik_open_set_liberr(1, NULL, record) != NULL) return 3;
  if (last_level != TLK_LEVEL_ERROR) return 4;
  if (strstr(last_line, "tarvik_connect(): Failed to open a new routing socket with errno") ==
      NULL) {
    return 5;
  }
  printf("c api ok: %s", last_line);
  if (with_kernel() != 0) return 6;
  printf("c api with the simulated kernel ok\n");
  return 0;
}
