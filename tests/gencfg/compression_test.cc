// Blob compression on add and change, decompression of replies, and the places where a failure
// leaves the caller's record as the routine has always left it.
#include <errno.h>
#include <string.h>

#include "gencfg_support.h"

namespace tlktest {
namespace {

// A compressor that always fails, and one that "compresses" by keeping 9 bytes in 16.
int failing_codec(unsigned char *, unsigned long *, const unsigned char *, unsigned long) {
  return -3;
}
int nine_in_sixteen(unsigned char *dest, unsigned long *dest_len, const unsigned char *src,
                    unsigned long len) {
  const unsigned long out = len / 16 * 9;
  if (out > *dest_len) return -5;
  memcpy(dest, src, out);
  *dest_len = out;
  return 0;
}

TEST_F(GencfgTest, ACompressedAddSendsTheCompressedBytesAndGivesTheOriginalBack) {
  const Bytes blob = text_blob(100000);
  gencfg_t r = compressed(6, 1, "cfg", blob);
  // A session without a pair refuses to compress; a pair is installed whole or not at all, and a
  // later pair replaces an earlier one.
  tarvik_init_blob_compression(c, compress, nullptr);
  tarvik_init_blob_compression(c, nullptr, uncompress);
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EOPNOTSUPP);
  tarvik_init_blob_compression(c, failing_codec, failing_codec);
  tarvik_init_blob_compression(c, compress, nullptr);
  EXPECT_EQ(tarvik_gencfg_add(c, &r), -3);
  EXPECT_EQ(r.blob, blob.data());
  use_zlib(c);
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  EXPECT_EQ(r.blob, blob.data());
  EXPECT_EQ(r.blob_len, blob.size());
  EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED);

  auto req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->flags & TLK_GENCFG_COMPRESSED, TLK_GENCFG_COMPRESSED);
  const Bytes wire = bytes_of(req->blob, req->blob_len);
  EXPECT_EQ(wire, deflate(blob)) << "the callback's output, as it came";
  EXPECT_TRUE(logged("DEBUG", "Gencfg blob was compressed from 100000 to " +
                                  std::to_string(wire.size()) + " bytes (rc 0)\n"));

  // A change compresses too; add-and-get and change-and-get send the blob as given.
  ASSERT_EQ(tarvik_gencfg_change(c, &r), 0);
  req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(bytes_of(req->blob, req->blob_len), wire);
  void *m = nullptr;
  attach(r, wire);
  ASSERT_EQ(tarvik_gencfg_add_and_get(c, &r, &m, nullptr), 0);
  req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(bytes_of(req->blob, req->blob_len), wire);
  // The reply carries the compressed blob back, and it is inflated for the caller.
  const auto *reply = static_cast<const gencfg_msg *>(m);
  EXPECT_EQ(bytes_of(reply->blob, reply->blob_len), blob);
  tarvik_msg_free(c, m);
  accept_freed_duplicates(1);
}

// Failures once the blob was compressed, one row each.  Most put the caller's blob back; a key
// or allocation failure leaves the compressed copy in the record, the caller's to free with
// identifier 7, as the routine has always done.
TEST_F(GencfgTest, AFailureAfterCompressionLeavesTheRecordAsItAlwaysHas) {
  enum Fault { kNone, kWriteFails, kNoKeyBytes, kNoMemory };
  const struct {
    const char *what;
    tarvik_blob_codec_fn compressor;
    Bytes blob;
    Fault fault;
    int want;
    const char *line;  // the ERROR line, if any
    bool leaves_copy;
  } rows[] = {
      // clang-format off
      // zlib needs more room than the input for bytes it cannot shrink, and the routine offers
      // only the input's length: zlib says Z_BUF_ERROR, and that is the result.
      {"a blob that does not shrink", compress, random_blob(4096), kNone, Z_BUF_ERROR,
       "Failed to compress gencfg blob of 4096 bytes (rc -5)\n", false},
      {"still too large: 1 MiB in, 576 KiB out", nine_in_sixteen, Bytes(0x100000, 0x11), kNone,
       ENOSPC, "Gencfg blob is too large (589824 bytes)\n", false},
      {"a failed write", compress, text_blob(5000), kWriteFails, ENOBUFS, nullptr, false},
      {"a named key without its bytes", compress, text_blob(20000), kNoKeyBytes, EINVAL, nullptr,
       true},
      {"a failed message allocation", compress, text_blob(20000), kNoMemory, ENOMEM, nullptr, true},
      // clang-format on
  };
  auto no_memory = [](size_t) -> void * { return nullptr; };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    tarvik_init_blob_compression(c, row.compressor, uncompress);
    gencfg_t r = compressed(6, 2, "k", row.blob);
    if (row.fault == kWriteFails) kernel.inject_write_errno(ENOBUFS);
    if (row.fault == kNoKeyBytes) r.key = nullptr;
    const int32_t blobs = outstanding()[MEMID_TARVIK_READ_BUFFER];
    const size_t sent = requests_seen();
    EXPECT_EQ(tarvik_gencfg_op_export(c, &r, TLK_OP_ADD, nullptr, nullptr, nullptr, nullptr,
                                      row.fault == kNoMemory ? +no_memory : nullptr, nullptr,
                                      nullptr, nullptr),
              row.want);
    if (row.line != nullptr) {
      EXPECT_TRUE(logged("ERROR", row.line));
    }
    EXPECT_EQ(requests_seen(), sent);
    EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED);
    if (!row.leaves_copy) {
      EXPECT_EQ(r.blob, row.blob.data());
      EXPECT_EQ(r.blob_len, row.blob.size());
      EXPECT_EQ(outstanding()[MEMID_TARVIK_READ_BUFFER], blobs);
      continue;
    }
    ASSERT_NE(r.blob, row.blob.data());
    EXPECT_LT(r.blob_len, row.blob.size());
    EXPECT_EQ(inflate(r.blob, r.blob_len), row.blob);
    EXPECT_EQ(outstanding()[MEMID_TARVIK_READ_BUFFER], blobs + 1);
    tarvik_free(MEMID_TARVIK_READ_BUFFER, r.blob);
  }
}

TEST_F(GencfgTest, GetDecompressesIntoACopyThatKeepsTheCompressedFlagOrFails) {
  use_zlib(c);
  const Bytes blob = text_blob(300000, 7);
  gencfg_t r = compressed(8, 1, "blob", blob);
  r.lrid = 4;
  r.tag = 0x77;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  const size_t wire = kernel.gencfg().store().begin()->second.blob.size();

  gencfg_t q = keyed(8, 1, "blob");
  q.tag = 0x55;
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), 0);
  const auto *got = static_cast<const gencfg_msg *>(m);
  EXPECT_EQ(bytes_of(got->blob, got->blob_len), blob);
  EXPECT_EQ(got->flags, TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED);
  EXPECT_EQ(got->gencfg_hdr.tlkh_op, TLK_OP_GET);
  EXPECT_EQ(got->gencfg_hdr.tlkh_seq, c->seq);
  EXPECT_EQ(got->tag, 0x77);
  EXPECT_EQ(got->lrid, 0) << "not carried into the decompressed copy";
  EXPECT_EQ(bytes_of(got->key, got->key_len), (Bytes{'b', 'l', 'o', 'b'}));
  EXPECT_TRUE(logged("DEBUG", "Gencfg blob was decompressed from " + std::to_string(wire) +
                                  " to 300000 bytes (rc 0)\n"));
  // The record takes the reply's fields, pointing into it; tag is not among them.
  EXPECT_EQ(q.blob, got->blob);
  EXPECT_EQ(q.blob_len, 300000u);
  EXPECT_EQ(q.key, got->key);
  EXPECT_EQ(q.flags, got->flags);
  EXPECT_EQ(q.tag, 0x55);
  tarvik_msg_free(c, m);
  accept_freed_duplicates(1);

  // A decompression failure fails a get but not a walk.
  tarvik_init_blob_compression(c, compress, failing_codec);
  q = keyed(8, 1, "blob");
  EXPECT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), -3);
  EXPECT_TRUE(logged("ERROR", "Failed to decompress blob (rc -3)\n"));
  // The received message stays with the caller, its blob length cleared; the record is untouched.
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(static_cast<gencfg_msg *>(m)->blob_len, 0u);
  EXPECT_EQ(q.blob, nullptr);
  tarvik_msg_free(c, m);

  gencfg_t walk = keyed(8, 1, "");
  walk.key = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &walk, TLK_OP_GETNEXT, &m, nullptr), 0);
  EXPECT_EQ(walk.blob, nullptr);
  EXPECT_EQ(walk.blob_len, 0u);
  EXPECT_EQ(bytes_of(walk.key, walk.key_len), (Bytes{'b', 'l', 'o', 'b'}))
      << "the walk can go on from here";
  tarvik_msg_free(c, m);
}

TEST_F(GencfgTest, BulkDeleteLeavesItsFlagInTheRecordAndPrefixDeleteTakesTheKeysUnderIt) {
  for (const char *k : {"a", "b", "c"}) {
    gencfg_t r = keyed(10, 1, k);
    ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  }
  gencfg_t other = keyed(10, 2, "a");
  ASSERT_EQ(tarvik_gencfg_add(c, &other), 0);
  ASSERT_EQ(kernel.gencfg().store().size(), 4u);

  gencfg_t r = keyed(10, 1, "b");
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_bulk_delete(c, &r, &m, nullptr), 0);
  EXPECT_EQ(kernel.gencfg().store().size(), 1u) << "every blob of 10/1, none of 10/2";
  // The record took the reply's fields (the request echoed) and keeps the flag.
  EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_BULK_DELETE);
  tarvik_msg_free(c, m);

  // A later change-and-get on the same record is a bulk delete again.
  gencfg_t fresh = keyed(10, 1, "d");
  ASSERT_EQ(tarvik_gencfg_add(c, &fresh), 0);
  ASSERT_EQ(kernel.gencfg().store().size(), 2u);
  const Bytes blob = {1, 2, 3};
  r.key = reinterpret_cast<uint8_t *>(keys_.back().data());
  r.key_len = 1;
  attach(r, blob);
  ASSERT_EQ(tarvik_gencfg_change_and_get(c, &r, &m, nullptr), 0);
  const auto req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->flags & TLK_GENCFG_BULK_DELETE, TLK_GENCFG_BULK_DELETE);
  EXPECT_EQ(kernel.gencfg().store().size(), 1u) << "10/1 \"d\" went too";
  tarvik_msg_free(c, m);

  // A prefix delete removes the keys that start with it.
  for (const char *k : {"eth0/0", "eth0/1", "eth1/0", "ten0/0", "eth0"}) {
    gencfg_t e = keyed(11, 1, k);
    ASSERT_EQ(tarvik_gencfg_add(c, &e), 0);
  }
  r = keyed(11, 1, "eth0/");
  ASSERT_EQ(tarvik_gencfg_delete_prefix_key(c, &r, &m, nullptr), 0);
  EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_PREFIX_DELETE);
  EXPECT_EQ(r.key_len, 5) << "no copy back: the request had no bulk flag";
  tarvik_msg_free(c, m);
  std::vector<std::string> left;
  for (const auto &[k, e] : kernel.gencfg().store()) left.emplace_back(k.key.begin(), k.key.end());
  EXPECT_EQ(left, (std::vector<std::string>{"a", "eth0", "eth1/0", "ten0/0"}));
}

// The read and write layer, the allocator and the counter, all the caller's.
struct FakeIo {
  tarvik_cookie *cookie = nullptr;
  std::vector<uint32_t> written_seqs;
  std::vector<size_t> alloc_sizes;
  std::vector<void *> allocated, freed;
  unsigned reads = 0;
  int read_result = 0;
  gencfg_msg *canned = nullptr;  // what the read hands back (also on failure)
};
FakeIo *g_io = nullptr;

void *fake_alloc(size_t size) {
  g_io->alloc_sizes.push_back(size);
  void *p = tarvik_size_alloc(g_io->cookie, size);
  g_io->allocated.push_back(p);
  return p;
}
void fake_free(void *msg) {
  g_io->freed.push_back(msg);
  tarvik_msg_free(g_io->cookie, msg);
}
int fake_write(void *io_ctx, void *msg) {
  auto *io = static_cast<FakeIo *>(io_ctx);
  io->written_seqs.push_back(static_cast<gencfg_msg *>(msg)->gencfg_hdr.tlkh_seq);
  return 0;
}
int fake_read(void *io_ctx, void **msg_out, void **mask_out) {
  auto *io = static_cast<FakeIo *>(io_ctx);
  ++io->reads;
  *msg_out = io->canned;
  if (mask_out != nullptr) *mask_out = nullptr;
  return io->read_result;
}

TEST_F(GencfgTest, TheCallerMayReplaceAllocatorCounterAndIo) {
  FakeIo io;
  io.cookie = c;
  g_io = &io;
  gencfg_msg canned{};
  canned.major = 99;
  canned.minor = 98;
  canned.flags = TLK_GENCFG_KID;
  canned.kid = 1234;
  canned.lrid = 6;
  io.canned = &canned;
  uint32_t counter = 500;
  const uint32_t cookie_seq = c->seq;
  void *m = nullptr;
  auto run = [&](gencfg_t &r, uint32_t op) {
    return tarvik_gencfg_op_export(c, &r, op, &m, nullptr, &counter, &io, fake_alloc, fake_free,
                                   fake_write, fake_read);
  };
  gencfg_t r = numbered(1, 1, 1);
  ASSERT_EQ(run(r, TLK_OP_ADD), 0);
  EXPECT_EQ(io.reads, 0u);
  ASSERT_EQ(run(r, TLK_OP_GET), 0);
  EXPECT_EQ(io.reads, 1u);
  EXPECT_EQ(io.written_seqs, (std::vector<uint32_t>{501, 502}));
  EXPECT_EQ(counter, 502u);
  EXPECT_EQ(c->seq, cookie_seq) << "the session's counter is not touched";
  EXPECT_EQ(io.alloc_sizes, (std::vector<size_t>{sizeof(gencfg_msg), sizeof(gencfg_msg)}));
  EXPECT_EQ(io.freed, io.allocated);
  EXPECT_EQ(requests_seen(), 0u) << "nothing reached the socket";
  // A successful get copies the reply into the record.
  EXPECT_EQ(m, &canned);
  EXPECT_EQ(r.major, 99);
  EXPECT_EQ(r.kid, 1234u);
  EXPECT_EQ(r.lrid, 6);

  // A failed read on a bulk delete: the record still takes what the read left.
  canned.major = 77;
  io.read_result = EIO;
  gencfg_t bulk = numbered(1, 1, 1);
  EXPECT_EQ(run(bulk, TLK_OP_CHG_GET), EIO);
  EXPECT_EQ(bulk.major, 1) << "no bulk flag, no copy";
  bulk.flags |= TLK_GENCFG_BULK_DELETE;
  EXPECT_EQ(run(bulk, TLK_OP_CHG_GET), EIO);
  EXPECT_EQ(bulk.major, 77);
  EXPECT_EQ(bulk.flags, TLK_GENCFG_KID) << "the reply's flags replace the record's";
  g_io = nullptr;
}

// A write layer that sends TLV with every field present, so that the kernel answers in TLV and
// the reply comes with a presence map.
int write_tlv(void *io_ctx, void *msg) {
  static gencfg_msg_tlvmap all;
  memset(&all, 0xFF, sizeof all);
  all.gencfg_hdr.tlkh_info = nullptr;
  all.deps = nullptr;
  all.peers = nullptr;
  all.gencfg_hdr._w0 &= ~(1u << 11);  // no attachment list
  return tarvik_msg_write_idl(static_cast<tarvik_cookie *>(io_ctx), msg, &all);
}

TEST_F(GencfgTest, ADecompressedCopyIsOneBlockWithItsMapDependenciesAndPeers) {
  use_zlib(c);
  const Bytes blob = text_blob(40000, 3);
  gencfg_t r = compressed(12, 1, "tlv", blob);
  add_deps_and_peers(r);
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);

  gencfg_t q = keyed(12, 1, "tlv");
  void *m = nullptr, *mask = nullptr;
  ASSERT_EQ(tarvik_gencfg_op_export(c, &q, TLK_OP_GET, &m, &mask, nullptr, c, nullptr, nullptr,
                                    write_tlv, nullptr),
            0);
  EXPECT_EQ(get_u32(kernel.recorded().back().bytes.data()), TLK_MAGIC_TLV)
      << "the kernel answered in TLV";
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(bytes_of(q.blob, q.blob_len), blob);
  ASSERT_EQ(q.dep_count, 2);
  EXPECT_EQ(bytes_of(q.deps[0].dep_key, q.deps[0].dep_key_len),
            (Bytes{'p', 'a', 'r', 'e', 'n', 't'}));
  EXPECT_EQ(bytes_of(q.deps[1].dep_key, q.deps[1].dep_key_len), Bytes{'x'});
  EXPECT_EQ(q.deps[1].dep_type, 2);
  ASSERT_EQ(q.peer_count, 2);
  EXPECT_EQ(q.peers[1].peer_type, 17);
  EXPECT_EQ(q.peers[1].index.index_type, 2u);
  EXPECT_EQ(q.peers[1].index.idx.gencfg_type_peer_mask.peer_mask[5], 0xA5);
  // Everything lies in the copy's block, ahead of the blob.
  auto in_copy = [&](const void *p) { return p > m && p < static_cast<void *>(q.blob); };
  const void *parts[] = {q.key, q.peers, q.deps, q.deps[0].dep_key, mask};
  for (size_t i = 0; i < 5; ++i)
    EXPECT_TRUE(in_copy(parts[i])) << "key, peers, deps, dep key, map: " << i;
  // The map says which fields the reply held; its per-element maps are not carried over.
  const auto *map = static_cast<const gencfg_msg_tlvmap *>(mask);
  const uint32_t blob_bit = 1u << 9, key_bit = 1u << 10;  // fields 10 and 11 of word 1
  EXPECT_EQ(map->_w1 & (blob_bit | key_bit), blob_bit | key_bit);
  EXPECT_EQ(map->deps, nullptr);
  EXPECT_EQ(map->peers, nullptr);
  tarvik_msg_free(c, m);
  accept_freed_duplicates(1);
}

}  // namespace
}  // namespace tlktest
