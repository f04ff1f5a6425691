/*
 * gencfg_blob: store a configuration blob in the kernel compressed with zlib, read it back, and
 * hear it arrive in a second session, decompressed before the handler sees it.
 *
 *   gencfg_blob          talks to the kernel's routing socket (on the router)
 *   gencfg_blob --sim    runs against the embedded simulated kernel (anywhere)
 *
 * Compression is the caller's: zlib's compress and uncompress have the form the library wants,
 * so they are installed as they are.  The library compresses a blob on add and change when the
 * record carries TLK_GENCFG_COMPRESSED, and inflates any compressed blob it receives.
 *
 * Build: cc gencfg_blob.c $(pkg-config --cflags --libs tarsim) -lz
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zlib.h>

#include "tarlink.h"
#include "tarsim.h"

enum { MAJOR = 40, MINOR = 2, BLOB_LEN = 256 * 1024 };

static int heard_len = -1;

static int on_gencfg(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t word) {
  const gencfg_msg *m = (const gencfg_msg *)msg;
  (void)arg;
  (void)word;
  heard_len = (int)m->blob_len;
  printf("listener heard: %s of %u/%u, %u bytes (arrived %s)\n", rtm_ops[m->gencfg_hdr.tlkh_op],
         m->major, m->minor, m->blob_len,
         (m->flags & TLK_GENCFG_COMPRESSED) ? "compressed, inflated by the library" : "as is");
  tarvik_msg_free(cookie, msg);
  return 0;
}

static void on_diagnostic(tarvik_cookie *cookie, void *arg, int level, const char *text) {
  (void)cookie;
  (void)arg;
  if (level > TLK_LEVEL_DEBUG) fprintf(stderr, "%s", text);
}

int main(int argc, char **argv) {
  tarsim_kernel *sim = NULL;
  static char key[] = "example/blob";
  unsigned char *blob = malloc(BLOB_LEN);
  int i, err, ok = 0;
  if (argc > 1 && strcmp(argv[1], "--sim") == 0) sim = tarsim_start();

  tarvik_cookie *writer = tarvik_open_set_liberr(2, NULL, on_diagnostic);
  tarvik_cookie *listener = tarvik_open_set_liberr(3, NULL, on_diagnostic);
  if (blob == NULL || writer == NULL || listener == NULL) {
    fprintf(stderr, "cannot open the sessions\n");
    return 1;
  }
  tarvik_init_blob_compression(writer, compress, uncompress);
  tarvik_init_blob_compression(listener, compress, uncompress);
  tarvik_set_async_info_nocontext(listener, NULL);
  tarvik_gencfg_async_register(listener, NULL, on_gencfg);

  /* Some configuration text: it compresses well. */
  for (i = 0; i < BLOB_LEN; ++i)
    blob[i] = (unsigned char)("iface ge0 mtu 1500 state up;  \n"[i % 32]);

  gencfg_t record;
  memset(&record, 0, sizeof record);
  record.major = MAJOR;
  record.minor = MINOR;
  record.flags = TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED;
  record.key = (uint8_t *)key;
  record.key_len = (uint16_t)strlen(key);
  record.blob = blob;
  record.blob_len = BLOB_LEN;
  err = tarvik_gencfg_add(writer, &record);
  printf("add: %d; the record has its own blob back: %s\n", err,
         record.blob == blob && record.blob_len == BLOB_LEN ? "yes" : "no");

  /* Read it back: the reply comes compressed and is inflated into a copy that we free. */
  gencfg_t query;
  void *reply = NULL;
  memset(&query, 0, sizeof query);
  query.major = MAJOR;
  query.minor = MINOR;
  query.flags = TLK_GENCFG_KEY;
  query.key = (uint8_t *)key;
  query.key_len = record.key_len;
  if (err == 0) err = tarvik_gencfg_get(writer, &query, TLK_OP_GET, &reply, NULL);
  if (err == 0) {
    ok = query.blob_len == BLOB_LEN && memcmp(query.blob, blob, BLOB_LEN) == 0;
    printf("read back %u bytes, %s\n", query.blob_len, ok ? "identical" : "DIFFERENT");
  } else {
    fprintf(stderr, "get failed: %d\n", err);
  }
  if (reply != NULL) tarvik_msg_free(writer, reply);

  /* The listener's socket holds the add; process it. */
  while (tarvik_async_event_process(listener) == 0) {
  }
  if (heard_len != BLOB_LEN) ok = 0;

  tarvik_gencfg_delete(writer, &record);
  tarvik_close(listener);
  tarvik_close(writer);
  tarsim_stop(sim);
  free(blob);
  return ok ? 0 : 1;
}
