// Fuzzes the decoders of blobs that arrive inside gencfg messages: the firewall filter head (both
// its TLV and its legacy fixed form) and the filter state; the trace decoder of a next hop's
// opaque area; and the prefix and socket address formatters.  Input: byte 0 picks the decoder
// (0xF0 and up: the opaque area, with the next hop type 3, 5 or another one by its low bits;
// 0xE0 to 0xEF: the formatters, see format_case; 0xD0 to 0xDF: a statistics message through the
// trace line and its full form, see stats_case), the rest is the blob.  Whatever the bytes, a
// decode either fails cleanly or gives a record whose parts are released whole.
#include <netdb.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "tarlink.h"
#include "tarlink_platform.h"

namespace {

// The formatters: low bit 0, tarvik_format_prefix with the family, mode and a 16-bit length from
// bytes 1 to 4 over the rest, in a buffer of exactly the bytes that the length and the natural
// forms may read; low bit 1, tarvik_format_sockaddr of the rest, exactly as long, into a buffer
// whose size comes from byte 1.  Name lookups go to a seam that answers from the input, never to
// the host's resolver.
void format_case(uint8_t pick, const std::vector<uint8_t> &blob) {
  static const bool seam_installed = [] {
    tlk_platform table = *tlk_platform_get();
    table.gethostbyaddr = [](const void *addr, socklen_t, int) -> struct hostent * {
      static char name[] = "host.sub.example.org";
      static struct hostent entry;
      entry.h_name = name;
      return (static_cast<const uint8_t *>(addr)[0] & 1) != 0 ? &entry : nullptr;
    };
    table.gethostname = [](char *name, size_t len) {
      snprintf(name, len, "me.example.org");
      return 0;
    };
    table.print_stderr = [](const char *) {};
    tlk_platform_set(&table);
    return true;
  }();
  (void)seam_installed;
  if (blob.size() < 5) return;
  if ((pick & 1) == 0) {
    const int family = blob[0];
    const int mode = blob[1] & 3;
    const uint32_t bits = static_cast<uint32_t>(blob[2] | blob[3] << 8);
    std::vector<uint8_t> data(std::max<size_t>(32, (bits + 7) / 8), 0);
    std::copy(blob.begin() + 4, blob.begin() + 4 + std::min(blob.size() - 4, data.size()),
              data.begin());
    std::vector<char> text(257, '#');
    tarvik_format_prefix(text.data(), text.size(), data.data(), bits, family, mode);
    // A family that leaves the destination alone leaves the '#' bytes; any other text ends.
    if (text[0] != '#' && memchr(text.data(), 0, text.size()) == nullptr) abort();
  } else {
    const size_t size = blob[0];
    std::vector<uint8_t> address(blob.begin() + 1, blob.end());
    std::vector<char> text(size + 1, '#');
    tarvik_format_sockaddr(text.data(), size, address.data(), address.size(), blob[1] & 0x80);
    if (text[size] != '#') abort();  // nothing past the size
    if (size > 0 && memchr(text.data(), 0, size) == nullptr) abort();
  }
}

// A statistics message (type 26) of exactly the blob's bytes, its length word saying so: the
// trace line (low bit 0, into a buffer whose size comes from byte 4) or the full form (low bit
// 1).  The counters lie where the message's own fixed length says; nothing may be read past the
// message or written past the buffer.
void stats_case(uint8_t pick, std::vector<uint8_t> &blob) {
  // A line that does not fit is reported at level 2: to a quiet seam, not the host's log.
  static const bool quiet = [] {
    tlk_platform table = *tlk_platform_get();
    table.syslog = [](int, const char *) {};
    tlk_platform_set(&table);
    return true;
  }();
  (void)quiet;
  if (blob.size() < 28) return;
  blob[5] = 26;
  const uint32_t len = static_cast<uint32_t>(blob.size());
  memcpy(&blob[8], &len, sizeof len);
  if ((pick & 1) == 0) {
    const size_t size = blob[4];
    std::vector<char> text(size + 1, '#');
    const int rc = tarvik_format_output(nullptr, text.data(), size, 0, blob.data());
    if (text[size] != '#') abort();
    if (rc != 0 && rc != -1) abort();
  } else {
    std::vector<char> text(2049, '#');
    const int rc = tarvik_tlkm_format_full_output(nullptr, text.data(), blob.data());
    // Text, if any was written, ends within the 2048 bytes.
    if (rc == 0 && text[0] != '#' && memchr(text.data(), 0, 2048) == nullptr) abort();
    if (text[2048] != '#') abort();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  const uint8_t pick = data[0];
  // A copy of exactly the blob's length, so that reading past it is caught.
  std::vector<uint8_t> blob(data + 1, data + size);
  if (pick >= 0xD0 && pick < 0xE0) {
    stats_case(pick, blob);
  } else if (pick >= 0xE0 && pick < 0xF0) {
    format_case(pick, blob);
  } else if (pick >= 0xF0) {
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
