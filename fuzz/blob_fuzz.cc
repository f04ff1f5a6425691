// Fuzzes the decoders of blobs that arrive inside gencfg messages: the firewall filter head (both
// its TLV and its legacy fixed form) and the filter state; and the trace decoder of a next hop's
// opaque area.  Input: byte 0 picks the decoder (0xF0 and up: the opaque area, with the next hop
// type 3, 5 or another one by its low bits), the rest is the blob.  Whatever the bytes, a decode either fails cleanly or gives a record whose
// parts are released whole.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "tarlink.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  const uint8_t pick = data[0];
  // A copy of exactly the blob's length, so that reading past it is caught.
  std::vector<uint8_t> blob(data + 1, data + size);
  if (pick >= 0xF0) {
    static const uint32_t kTypes[] = {3, 5, 2, 3};
    std::vector<char> text(2048, '#');
    text[0] = 0;
    rnh_decode_opaque_tlv(blob.empty() ? nullptr : blob.data(), static_cast<uint32_t>(blob.size()),
                          text.data(), kTypes[pick & 3]);
    // The line ends within its 2048 bytes.
    if (memchr(text.data(), 0, text.size()) == nullptr) abort();
  } else if ((pick & 1) == 0) {
    _dfw_filter_head head;
    memset(&head, 0, sizeof head);
    if (tarvik_dfwfhm_decode(blob.data(), static_cast<uint32_t>(blob.size()), &head) == 0) {
      // A decoded head's names are C strings within their bytes (read to the end byte).
      for (const uint8_t *name : {head.dfh_name, head.dfh_ifname}) {
        if (name != nullptr && strlen(reinterpret_cast<const char *>(name)) >= TLK_DFW_NAME_MAX)
          abort();
      }
    }
    tarvik_free_dfh_var(&head);
  } else {
    gencfg_msg msg;
    memset(&msg, 0, sizeof msg);
    msg.blob = blob.data();
    msg.blob_len = static_cast<uint32_t>(blob.size());
    if (_dfw_filter_state *state = tarvik_dfwfsm_decode(&msg)) tarvik_free_cb(state);
  }
  return 0;
}
