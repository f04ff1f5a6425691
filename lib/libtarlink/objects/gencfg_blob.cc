// gencfg blob compression: the caller's callbacks applied to requests and received messages.
//
// The library never looks at the bytes.  A request's blob is compressed into a copy of the
// original's length, so the output can never be larger than the input, and a blob that does not
// shrink is a failure that only the callback reports.  A received compressed blob is inflated
// into a duplicate of its message, made in one block that holds everything the caller may read:
//
//   +------------+-----+-------+------+----------+---------+--------------------------------+
//   | gencfg_msg | key | peers | deps | dep keys | TLV map | blob area, 0x300000 bytes      |
//   +------------+-----+-------+------+----------+---------+--------------------------------+
//
// Every part starts on an 8-byte boundary.  The duplicate carries the header words, keys, peers,
// dependencies and the named scalars; what else the received message held (lrid among it) reads 0,
// and the compressed flag stays set, so a reader can tell that the blob came compressed.
#include "objects/gencfg_blob.h"

#include <errno.h>
#include <string.h>

namespace tlk::gencfg {
namespace {

constexpr size_t kAlign = 8;

constexpr size_t align_up(size_t n) {
  return (n + kAlign - 1) & ~(kAlign - 1);
}

// The parts of the duplicate, as offsets from the block's start.
struct DupLayout {
  size_t key = 0, peers = 0, deps = 0, dep_keys = 0, map = 0, blob = 0, total = 0;
};

DupLayout layout_for(const gencfg_msg &m) {
  DupLayout l;
  l.key = align_up(sizeof(gencfg_msg));
  l.peers = l.key + align_up(m.key_len);
  l.deps = l.peers + size_t{m.peer_count} * sizeof(gencfg_peerinfo);
  l.dep_keys = align_up(l.deps + size_t{m.dep_count} * sizeof(gencfg_depinfo));
  size_t dep_key_bytes = 0;
  for (uint32_t i = 0; m.deps != nullptr && i < m.dep_count; ++i) {
    if (m.deps[i].dep_key != nullptr) dep_key_bytes += align_up(m.deps[i].dep_key_len);
  }
  l.map = l.dep_keys + dep_key_bytes;
  l.blob = l.map + align_up(sizeof(gencfg_msg_tlvmap));
  l.total = l.blob + TLK_GENCFG_DECOMPRESSED_MAX;
  return l;
}

// Copies what a reader of the duplicate may need; the blob area is filled by the callback.
void fill_duplicate(uint8_t *block, const DupLayout &l, const gencfg_msg &src) {
  auto *dup = reinterpret_cast<gencfg_msg *>(block);
  memset(dup, 0, sizeof *dup);
  tlk_hdr &h = dup->gencfg_hdr;
  h.tlkh_version = src.gencfg_hdr.tlkh_version;
  h.tlkh_type = src.gencfg_hdr.tlkh_type;
  h.tlkh_op = src.gencfg_hdr.tlkh_op;
  h.tlkh_msglen = src.gencfg_hdr.tlkh_msglen;
  h.tlkh_seq = src.gencfg_hdr.tlkh_seq;
  h.tlkh_id = src.gencfg_hdr.tlkh_id;
  dup->key = block + l.key;  // set even without a key: the key always starts right behind
  dup->key_len = src.key_len;
  if (src.key != nullptr && src.key_len != 0) memcpy(dup->key, src.key, src.key_len);
  if (src.peers != nullptr && src.peer_count != 0) {
    dup->peers = reinterpret_cast<gencfg_peerinfo *>(block + l.peers);
    memcpy(dup->peers, src.peers, size_t{src.peer_count} * sizeof(gencfg_peerinfo));
    dup->peer_count = src.peer_count;
  }
  if (src.deps != nullptr && src.dep_count != 0) {
    dup->deps = reinterpret_cast<gencfg_depinfo *>(block + l.deps);
    memcpy(dup->deps, src.deps, size_t{src.dep_count} * sizeof(gencfg_depinfo));
    dup->dep_count = src.dep_count;
    // The dependency keys lived in the received message, which goes away: they move along.
    uint8_t *keys = block + l.dep_keys;
    for (uint32_t i = 0; i < src.dep_count; ++i) {
      gencfg_depinfo &d = dup->deps[i];
      if (d.dep_key == nullptr) continue;
      if (d.dep_key_len != 0) memcpy(keys, src.deps[i].dep_key, d.dep_key_len);
      d.dep_key = keys;
      keys += align_up(d.dep_key_len);
    }
  }
  dup->major = src.major;
  dup->minor = src.minor;
  dup->kid = src.kid;
  dup->flags = src.flags;
  dup->sub_id = src.sub_id;
  dup->tag = src.tag;
}

// The presence map of the duplicate: the received one's words.  Its pointers to per-element
// maps pointed into the received message and are cleared.
void copy_map(void *to, const void *from) {
  auto *map = static_cast<gencfg_msg_tlvmap *>(to);
  memcpy(map, from, sizeof *map);
  map->gencfg_hdr.tlkh_info = nullptr;
  map->deps = nullptr;
  map->peers = nullptr;
}

}  // namespace

int compress_record_blob(tarvik_cookie *cookie, gencfg_t *record, uint8_t **original,
                         uint32_t *original_len) {
  if (cookie == nullptr || cookie->blob_compress_cb == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Compression was not initialized for tarvik\n");
    return EOPNOTSUPP;
  }
  auto *dest = static_cast<uint8_t *>(tarvik_malloc(kBlobMemid, record->blob_len));
  if (dest == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to allocate memory for compressed blob\n");
    return ENOMEM;
  }
  unsigned long dest_len = record->blob_len;  // the output may not outgrow the input
  const int rc = cookie->blob_compress_cb(dest, &dest_len, record->blob, record->blob_len);
  if (rc != 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to compress gencfg blob of %d bytes (rc %d)\n",
               static_cast<int>(record->blob_len), rc);
    tarvik_free(kBlobMemid, dest);
    return rc;
  }
  tarvik_err(cookie, TLK_LEVEL_DEBUG, "Gencfg blob was compressed from %ld to %ld bytes (rc %d)\n",
             static_cast<long>(record->blob_len), static_cast<long>(dest_len), rc);
  *original = record->blob;
  *original_len = record->blob_len;
  record->blob = dest;
  record->blob_len = static_cast<uint32_t>(dest_len);
  return 0;
}

int decompress_message(tarvik_cookie *cookie, void **msg, void **mask) {
  auto *received = static_cast<gencfg_msg *>(*msg);
  if (cookie == nullptr || cookie->blob_decompress_cb == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Compression was not initialized for tarvik\n");
    received->blob_len = 0;
    return EOPNOTSUPP;
  }
  const DupLayout l = layout_for(*received);
  auto *block = static_cast<uint8_t *>(tarvik_malloc(kBlobMemid, l.total));
  if (block == nullptr) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to allocate memory for duplicated gencfg_msg\n");
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to duplicate msg for decompressed blob\n");
    received->blob_len = 0;
    return ENOMEM;
  }
  fill_duplicate(block, l, *received);
  unsigned long out_len = TLK_GENCFG_DECOMPRESSED_MAX;
  const int rc =
      cookie->blob_decompress_cb(block + l.blob, &out_len, received->blob, received->blob_len);
  tarvik_err(cookie, TLK_LEVEL_DEBUG,
             "Gencfg blob was decompressed from %ld to %ld bytes (rc %d)\n",
             static_cast<long>(received->blob_len), static_cast<long>(out_len), rc);
  if (rc != 0) {
    tarvik_err(cookie, TLK_LEVEL_ERROR, "Failed to decompress blob (rc %d)\n", rc);
    tarvik_free(kBlobMemid, block);
    received->blob_len = 0;
    return rc;
  }
  auto *dup = reinterpret_cast<gencfg_msg *>(block);
  dup->blob = block + l.blob;
  dup->blob_len = static_cast<uint32_t>(out_len);
  if (mask != nullptr && *mask != nullptr) {
    copy_map(block + l.map, *mask);
    *mask = block + l.map;
  }
  *msg = dup;
  // The received message was decoded into one arena; the duplicate is given back the same way,
  // with tarvik_msg_free.
  tarvik_msg_free(cookie, received);
  return 0;
}

}  // namespace tlk::gencfg

extern "C" {

TLK_EXPORT void tarvik_init_blob_compression(tarvik_cookie *cookie,
                                             tarvik_blob_codec_fn compress_fn,
                                             tarvik_blob_codec_fn decompress_fn) {
  if (cookie == nullptr || compress_fn == nullptr || decompress_fn == nullptr) return;
  cookie->blob_compress_cb = compress_fn;
  cookie->blob_decompress_cb = decompress_fn;
}

TLK_EXPORT int tarvik_gencfg_async(tarvik_cookie *cookie, void **msg) {
  if (cookie == nullptr || msg == nullptr || *msg == nullptr) return EINVAL;
  const auto *received = static_cast<const gencfg_msg *>(*msg);
  if ((received->flags & TLK_GENCFG_COMPRESSED) == 0) return 0;
  return tlk::gencfg::decompress_message(cookie, msg, nullptr);
}

}  // extern "C"
