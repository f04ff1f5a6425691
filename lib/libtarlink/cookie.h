// The session record.  Opaque to clients; every operation starts from it.
#pragma once

#include <stdint.h>

#include "tarlink.h"

// The asynchronous record of a session (identifier 6, zero-filled), owned by the cookie.
struct tarvik_async_info_t {
  evContext context;                               // loop driving the session; null without one
  tarvik_async_reg_t *reg[TLK_NUM_MSG_TYPES + 1];  // handler slot per message type, 0 to 110
  uint32_t listen_mask[2];                         // bits the kernel accepted, low word first
  evFileID select_id;                              // valid while TARVIK_ASYNC_SELECTED
  uint32_t flags;                                  // TARVIK_ASYNC_* (low byte)
  uint32_t mode;                                   // last mode word the kernel accepted
  int (*cleanup)(tarvik_cookie *cookie);           // run first on teardown
};

// Values of tarvik_async_info_t::flags.
constexpr uint32_t TARVIK_ASYNC_OWN_CONTEXT = 1;  // the library made the context and destroys it
constexpr uint32_t TARVIK_ASYNC_SELECTED = 2;     // the descriptor is on the loop
constexpr uint32_t TARVIK_ASYNC_NO_CONTEXT = 4;   // the caller polls; the loop is never touched

struct tarvik_cookie {
  int32_t fd;                        // -1 while not connected
  uint32_t seq;                      // the session's sequence counter
  uint8_t *version_info;             // copy of the kernel's version reply (identifier 75)
  uint8_t *read_buffer;              // TLK_READ_BUF_SIZE landing zone (identifier 7)
  tarvik_async_info_t *async_info;   // present once the session is asynchronous
  uint32_t sync_mode;                // TLK_SYNC_* bits
  tarvik_lib_error_cb lib_error_cb;  // diagnostics; NULL silences the session
  void *lib_error_arg;
  tarvik_seq_error_cb seq_error_cb;  // sequence mismatches instead of the diagnostic
  void *seq_error_arg;
  uint32_t comp_nh_retrieval;
  tarvik_unnum_info_t *unnum_info;        // unnumbered address donor state
  tarvik_blob_codec_fn blob_compress_cb;  // gencfg blob compression pair
  tarvik_blob_codec_fn blob_decompress_cb;
  uint32_t num_read_msg;  // messages read per asynchronous event
  uint8_t used_by_stats;  // statistics replies with sequence 0 pass an async session
  uint8_t *wbuf;          // bulk write buffer (identifier 75)
  uint8_t *wbuf_cur;
  uint32_t wbuf_sz;
  uint8_t *rbuf_data;  // bulk read buffer (identifier 75)
  uint8_t *rbuf_cur;
  uint8_t *rbuf_end;
  uint32_t rbuf_sz;
  tarvik_event_hooks_t *event_hooks;
  uint32_t version_info_len;  // bytes of version_info the kernel returned
};
