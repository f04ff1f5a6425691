// gencfg blob compression, shared by the request routine and the asynchronous path.
#pragma once

#include <stdint.h>

#include "cookie.h"

namespace tlk::gencfg {

// Blob copies (the compressed copy of a request, the decompressed duplicate of a message) are
// counted under identifier 7.
inline constexpr unsigned kBlobMemid = MEMID_TARVIK_READ_BUFFER;

// Replaces the record's blob by a compressed copy for the rest of a call.  The original pointer
// and length go to `original` and `original_len`.  0, EOPNOTSUPP, ENOMEM, or the callback's own
// non-zero result; on failure the record is unchanged.
int compress_record_blob(tarvik_cookie *cookie, gencfg_t *record, uint8_t **original,
                         uint32_t *original_len);

// Decompresses the blob of a received gencfg_msg into a duplicate of the message that takes its
// place in *msg (and the duplicate's presence map in *mask, when *mask holds one).  The received
// message is then freed.  On failure the received message stays, with its blob length set to 0,
// and the result is EOPNOTSUPP, ENOMEM or the callback's own.
int decompress_message(tarvik_cookie *cookie, void **msg, void **mask);

}  // namespace tlk::gencfg
