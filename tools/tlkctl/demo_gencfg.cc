// tlkctl demo, configuration blob step: a large blob stored compressed and read back.
#include <errno.h>
#include <string.h>
#include <zlib.h>

#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

unsigned long g_compressed = 0;
int zlib_compress(unsigned char *dest, unsigned long *dest_len, const unsigned char *src,
                  unsigned long src_len) {
  const int rc = compress(dest, dest_len, src, src_len);
  g_compressed = rc == Z_OK ? *dest_len : 0;
  return rc;
}

size_t last_frame(const tarsim::Kernel &kernel, bool to_kernel) {
  const auto &rec = kernel.recorded();
  for (auto it = rec.rbegin(); it != rec.rend(); ++it) {
    if (it->to_kernel == to_kernel) return it->bytes.size();
  }
  return 0;
}

}  // namespace

int demo_gencfg(tarsim::Kernel &kernel, tarvik_cookie *c) {
  tarvik_init_blob_compression(c, zlib_compress, uncompress);
  const std::vector<uint8_t> blob = pattern_blob(2u << 20);
  static char key[] = "chassis/config";
  gencfg_t r{};
  r.major = 40;
  r.minor = 1;
  r.flags = TLK_GENCFG_KEY;
  r.key = reinterpret_cast<uint8_t *>(key);
  r.key_len = static_cast<uint16_t>(strlen(key));
  r.blob = const_cast<uint8_t *>(blob.data());
  r.blob_len = static_cast<uint32_t>(blob.size());

  printf("  a %zu-byte blob sent as it is is over the wire limit of %u bytes:\n", blob.size(),
         TLK_GENCFG_WIRE_MAX);
  int err = tarvik_gencfg_add(c, &r);
  printf("  add: %s\n", strerror(err));

  r.flags |= TLK_GENCFG_COMPRESSED;
  err = tarvik_gencfg_add(c, &r);
  if (err != 0) {
    printf("  compressed add failed: %d\n", err);
    return 1;
  }
  printf("  with TLK_GENCFG_COMPRESSED the caller's zlib callback made it %lu bytes (%.1f%%);\n",
         g_compressed,
         100.0 * static_cast<double>(g_compressed) / static_cast<double>(blob.size()));
  printf("  request frame on the wire: %zu bytes; the kernel stores the blob as it came\n",
         last_frame(kernel, true));

  gencfg_t q{};
  q.major = 40;
  q.minor = 1;
  q.flags = TLK_GENCFG_KEY;
  q.key = r.key;
  q.key_len = r.key_len;
  void *msg = nullptr;
  err = tarvik_gencfg_get(c, &q, TLK_OP_GET, &msg, nullptr);
  if (err != 0) {
    printf("  get failed: %d\n", err);
    return 1;
  }
  const bool same = q.blob_len == blob.size() && memcmp(q.blob, blob.data(), blob.size()) == 0;
  printf("  get: reply frame on the wire %zu bytes, %u bytes after decompression, %s\n",
         last_frame(kernel, false), q.blob_len,
         same ? "identical to what was stored" : "DIFFERENT");
  tarvik_msg_free(c, msg);

  // A class-of-service blob as a trace shows it: the printer decodes the blob's own record.
  static uint8_t dscp[] = "dscp";
  cos_msg_class_to_ifl bind{};
  bind.ifl = 71;
  bind.table_type = dscp;
  bind.table_type_len = sizeof dscp;
  bind.table_id = 4;
  uint8_t cos[64];
  gencfg_msg traced{};
  traced.gencfg_hdr.tlkh_type = TLK_MSG_GENCFG;
  traced.gencfg_hdr.tlkh_op = TLK_OP_ADD;
  traced.major = 8;
  traced.minor = 6;
  traced.blob = cos;
  traced.blob_len = tlv_encode_cos_msg_class_to_ifl_0(&bind, nullptr, cos, sizeof cos);
  char line[512];
  if (tarvik_format_output(c, line, sizeof line, 0, &traced) == 0) printf("  trace: %s", line);

  // Bytes that don't shrink: zlib can't fit them in their own length, and says so.
  static const unsigned char noise[] = {0x9e, 0x37, 0x79, 0xb9, 0x7f, 0x4a, 0x7c, 0x15,
                                        0xf3, 0x9c, 0xc0, 0x60, 0x5c, 0xed, 0xc8, 0x34};
  gencfg_t n = r;
  n.blob = const_cast<uint8_t *>(noise);
  n.blob_len = sizeof noise;
  printf("  16 random bytes with TLK_GENCFG_COMPRESSED:\n");
  err = tarvik_gencfg_add(c, &n);
  printf(
      "  add: %d (zlib's Z_BUF_ERROR: a blob that does not shrink is the compressor's failure)\n",
      err);
  printf("  (the decompressed copy was made under memory identifier 7 and given back under 75)\n");
  return same ? 0 : 1;
}

}  // namespace tlkctl
