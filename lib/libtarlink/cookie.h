// The session record.  Opaque to clients; every operation starts from it.
#pragma once

#include <stdint.h>

#include "tarlink.h"

// Kept for the asynchronous engine; its operations arrive with the notification work.
struct tarvik_async_reg_t;

struct tarvik_async_info_t {
  void *context;                         // event loop context driving this session
  tarvik_async_reg_t *reg[TLK_NUM_MSG_TYPES + 1];  // handler slot per message type
  uint32_t listen_mask[2];               // listen bits the kernel accepted, low word first
  void *select_id;                       // the loop's handle for our descriptor
  uint32_t flags;                        // own context, selected, no context
  uint32_t mode;                         // last asynchronous mode word the kernel accepted
  int (*cleanup)(tarvik_cookie *cookie); // run first on teardown
};

// Hooked event mode: a client-provided table that replaces direct dispatch.
struct tarvik_event_hooks_t {
  void (*dispatch)(tarvik_cookie *cookie, void *msg);
  void (*destroy)(tarvik_cookie *cookie);
  void (*callback)(void *ctx, void *arg, int fd, int events);
  int fd;
};

struct tarvik_cookie {
  int32_t fd;                       // -1 while not connected
  uint32_t seq;                     // the session's sequence counter
  uint8_t *version_info;            // copy of the kernel's version reply (identifier 75)
  uint8_t *read_buffer;             // TLK_READ_BUF_SIZE landing zone (identifier 7)
  tarvik_async_info_t *async_info;  // present once the session is asynchronous
  uint32_t sync_mode;               // TLK_SYNC_* bits
  tarvik_lib_error_cb lib_error_cb; // diagnostics; NULL silences the session
  void *lib_error_arg;
  tarvik_seq_error_cb seq_error_cb; // sequence mismatches instead of the diagnostic
  void *seq_error_arg;
  uint32_t comp_nh_retrieval;
  void *unnum_info;                 // unnumbered address donor state
  void *blob_compress_cb;           // gencfg blob compression pair
  void *blob_decompress_cb;
  uint32_t num_read_msg;            // messages read per asynchronous event
  uint8_t used_by_stats;            // statistics replies with sequence 0 pass an async session
  uint8_t *wbuf;                    // bulk write buffer (identifier 75)
  uint8_t *wbuf_cur;
  uint32_t wbuf_sz;
  uint8_t *rbuf_data;               // bulk read buffer (identifier 75)
  uint8_t *rbuf_cur;
  uint8_t *rbuf_end;
  uint32_t rbuf_sz;
  tarvik_event_hooks_t *event_hooks;
  uint32_t version_info_len;        // bytes of version_info the kernel returned
};

// Releases the asynchronous context of a session (owned by the notification engine).
void tarvik_destroy_async_context_internal(tarvik_cookie *cookie);
