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
  use_zlib(c);
  const Bytes blob = text_blob(100000);
  gencfg_t r = keyed(6, 1, "cfg");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  EXPECT_EQ(r.blob, blob.data());
  EXPECT_EQ(r.blob_len, blob.size());
  EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED);

  gencfg_msg *req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->flags & TLK_GENCFG_COMPRESSED, TLK_GENCFG_COMPRESSED);
  const Bytes wire = bytes_of(req->blob, req->blob_len);
  tarvik_msg_free(c, req);
  EXPECT_EQ(wire, deflate(blob)) << "the callback's output, as it came";
  const std::string debug = "Gencfg blob was compressed from 100000 to " +
                            std::to_string(wire.size()) + " bytes (rc 0)\n";
  EXPECT_TRUE(logged(line("DEBUG", debug)));

  // A change compresses too; add-and-get and change-and-get send the blob as given.
  ASSERT_EQ(tarvik_gencfg_change(c, &r), 0);
  req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->blob_len, wire.size());
  tarvik_msg_free(c, req);
  void *m = nullptr;
  const Bytes already = deflate(blob);
  attach(r, already);
  ASSERT_EQ(tarvik_gencfg_add_and_get(c, &r, &m, nullptr), 0);
  req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(bytes_of(req->blob, req->blob_len), already);
  tarvik_msg_free(c, req);
  // The reply carries the compressed blob back, and it is inflated for the caller.
  const auto *reply = static_cast<const gencfg_msg *>(m);
  EXPECT_EQ(bytes_of(reply->blob, reply->blob_len), blob);
  tarvik_msg_free(c, m);
  accept_freed_duplicates(1);
}

TEST_F(GencfgTest, WithoutCallbacksCompressionIsRefused) {
  const Bytes blob = text_blob(1000);
  gencfg_t r = keyed(6, 1, "cfg");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EOPNOTSUPP);
  EXPECT_TRUE(logged(line("ERROR", "Compression was not initialized for tarvik\n")));
  EXPECT_EQ(requests_seen(), 0u);
  // A half pair or a null cookie installs nothing.
  tarvik_init_blob_compression(c, compress, nullptr);
  tarvik_init_blob_compression(c, nullptr, uncompress);
  tarvik_init_blob_compression(nullptr, compress, uncompress);
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EOPNOTSUPP);
  // A later pair replaces an earlier one; a null one keeps it.
  tarvik_init_blob_compression(c, failing_codec, failing_codec);
  tarvik_init_blob_compression(c, compress, nullptr);
  EXPECT_EQ(tarvik_gencfg_add(c, &r), -3);
  use_zlib(c);
  EXPECT_EQ(tarvik_gencfg_add(c, &r), 0);
}

TEST_F(GencfgTest, ABlobThatDoesNotShrinkIsTheCompressorsFailure) {
  use_zlib(c);
  const Bytes noise = random_blob(4096);
  gencfg_t r = keyed(6, 2, "noise");
  attach(r, noise);
  r.flags |= TLK_GENCFG_COMPRESSED;
  // zlib needs more room than the input for bytes it cannot shrink, and the routine offers only
  // the input's length: zlib says Z_BUF_ERROR, and that is the result.
  EXPECT_EQ(tarvik_gencfg_add(c, &r), Z_BUF_ERROR);
  EXPECT_TRUE(logged(line("ERROR", "Failed to compress gencfg blob of 4096 bytes (rc -5)\n")));
  EXPECT_EQ(r.blob, noise.data());
  EXPECT_EQ(r.blob_len, 4096u);
  EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_COMPRESSED);
  EXPECT_EQ(requests_seen(), 0u);
  // The same bytes without the flag go out as they are.
  r.flags &= ~TLK_GENCFG_COMPRESSED;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), 0);
}

TEST_F(GencfgTest, StillTooLargeAfterCompressionRestoresTheCallersBlob) {
  tarvik_init_blob_compression(c, nine_in_sixteen, uncompress);
  const Bytes blob(0x100000, 0x11);  // 1 MiB in, 576 KiB out: still over the limit
  gencfg_t r = keyed(6, 3, "x");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), ENOSPC);
  EXPECT_TRUE(logged(line("ERROR", "Gencfg blob is too large (589824 bytes)\n")));
  EXPECT_EQ(r.blob, blob.data());
  EXPECT_EQ(r.blob_len, blob.size());
  EXPECT_EQ(requests_seen(), 0u);
}

TEST_F(GencfgTest, AKeyFailureAfterCompressionLeavesTheCompressedCopyInTheRecord) {
  use_zlib(c);
  const Bytes blob = text_blob(20000);
  gencfg_t r = keyed(6, 4, "k");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  r.key = nullptr;  // a named key without its bytes fails after the blob was compressed
  const int32_t blobs_before = outstanding()[MEMID_TARVIK_READ_BUFFER];
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EINVAL);
  EXPECT_EQ(requests_seen(), 0u);
  ASSERT_NE(r.blob, blob.data());
  EXPECT_LT(r.blob_len, blob.size());
  EXPECT_EQ(inflate(r.blob, r.blob_len), blob);
  // The copy is the caller's now: one block of identifier 7, which the caller gives back.
  EXPECT_EQ(outstanding()[MEMID_TARVIK_READ_BUFFER], blobs_before + 1);
  tarvik_free(MEMID_TARVIK_READ_BUFFER, r.blob);
  EXPECT_EQ(outstanding()[MEMID_TARVIK_READ_BUFFER], blobs_before);
}

TEST_F(GencfgTest, AFailedMessageAllocationAlsoLeavesTheCompressedCopy) {
  use_zlib(c);
  const Bytes blob = text_blob(20000);
  gencfg_t r = keyed(6, 5, "k");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  auto no_memory = [](size_t) -> void * { return nullptr; };
  EXPECT_EQ(tarvik_gencfg_op_export(c, &r, TLK_OP_ADD, nullptr, nullptr, nullptr, nullptr,
                                    no_memory, nullptr, nullptr, nullptr),
            ENOMEM);
  ASSERT_NE(r.blob, blob.data());
  EXPECT_EQ(inflate(r.blob, r.blob_len), blob);
  tarvik_free(MEMID_TARVIK_READ_BUFFER, r.blob);
}

TEST_F(GencfgTest, AFailedWriteGivesItsErrnoReadsNothingAndRestoresTheBlob) {
  use_zlib(c);
  const Bytes blob = text_blob(5000);
  gencfg_t r = keyed(6, 6, "w");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  kernel.inject_write_errno(ENOBUFS);
  EXPECT_EQ(tarvik_gencfg_add(c, &r), ENOBUFS);
  EXPECT_EQ(r.blob, blob.data());
  EXPECT_EQ(r.blob_len, blob.size());

  // A get whose write fails doesn't read what is already waiting on the socket.
  ASSERT_TRUE(kernel.push(tarvik_getsockfd(c), tarsim::raw_message(26, TLK_OP_GET, c->seq + 1)));
  kernel.inject_write_errno(EIO);
  void *m = nullptr;
  EXPECT_EQ(tarvik_gencfg_get(c, &r, TLK_OP_GET, &m, nullptr), EIO);
  EXPECT_EQ(m, nullptr);
  void *waiting = nullptr;
  size_t len = 0;
  EXPECT_EQ(tarvik_long_msg_read(c, &waiting, &len), 0);
  tarvik_msg_free(c, waiting);
}

TEST_F(GencfgTest, GetDecompressesIntoACopyThatKeepsTheCompressedFlag) {
  use_zlib(c);
  const Bytes blob = text_blob(300000, 7);
  gencfg_t r = keyed(8, 1, "blob");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
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
  EXPECT_TRUE(logged(line("DEBUG", "Gencfg blob was decompressed from " + std::to_string(wire) +
                                       " to 300000 bytes (rc 0)\n")));
  // The record takes the reply's fields, pointing into it; tag is not among them.
  EXPECT_EQ(q.blob, got->blob);
  EXPECT_EQ(q.blob_len, 300000u);
  EXPECT_EQ(q.key, got->key);
  EXPECT_EQ(q.flags, got->flags);
  EXPECT_EQ(q.tag, 0x55);
  tarvik_msg_free(c, m);
  accept_freed_duplicates(1);
}

TEST_F(GencfgTest, ADecompressionFailureFailsAGetButNotAWalk) {
  use_zlib(c);
  const Bytes blob = text_blob(9000);
  gencfg_t r = keyed(8, 2, "a");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  tarvik_init_blob_compression(c, compress, failing_codec);

  gencfg_t q = keyed(8, 2, "a");
  void *m = nullptr;
  EXPECT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), -3);
  EXPECT_TRUE(logged(line("ERROR", "Failed to decompress blob (rc -3)\n")));
  // The received message stays with the caller, its blob length cleared; the record is untouched.
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(static_cast<gencfg_msg *>(m)->blob_len, 0u);
  EXPECT_EQ(q.blob, nullptr);
  tarvik_msg_free(c, m);

  gencfg_t walk = keyed(8, 2, "");
  walk.key = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &walk, TLK_OP_GETNEXT, &m, nullptr), 0);
  EXPECT_EQ(walk.blob, nullptr);
  EXPECT_EQ(walk.blob_len, 0u);
  EXPECT_EQ(bytes_of(walk.key, walk.key_len), Bytes{'a'}) << "the walk can go on from here";
  tarvik_msg_free(c, m);

  // A session without callbacks can't read the blob either.
  tarvik_cookie *other = open_session(8);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(tarvik_gencfg_get(other, &q, TLK_OP_GET, &m, nullptr), EOPNOTSUPP);
  EXPECT_TRUE(logged(line("ERROR", "Compression was not initialized for tarvik\n")));
  ASSERT_NE(m, nullptr);
  EXPECT_EQ(static_cast<gencfg_msg *>(m)->blob_len, 0u);
  tarvik_msg_free(other, m);
  tarvik_close(other);
}

TEST_F(GencfgTest, BulkDeleteLeavesItsFlagInTheRecord) {
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
  gencfg_msg *req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->flags & TLK_GENCFG_BULK_DELETE, TLK_GENCFG_BULK_DELETE);
  tarvik_msg_free(c, req);
  EXPECT_EQ(kernel.gencfg().store().size(), 1u) << "10/1 \"d\" went too";
  tarvik_msg_free(c, m);
}

TEST_F(GencfgTest, PrefixDeleteRemovesTheKeysThatStartWithIt) {
  for (const char *k : {"eth0/0", "eth0/1", "eth1/0", "ten0/0", "eth0"}) {
    gencfg_t r = keyed(11, 1, k);
    ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  }
  gencfg_t r = keyed(11, 1, "eth0/");
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_delete_prefix_key(c, &r, &m, nullptr), 0);
  EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_PREFIX_DELETE);
  EXPECT_EQ(r.key_len, 5) << "no copy back: the request had no bulk flag";
  tarvik_msg_free(c, m);
  std::vector<std::string> left;
  for (const auto &[k, e] : kernel.gencfg().store()) left.emplace_back(k.key.begin(), k.key.end());
  EXPECT_EQ(left, (std::vector<std::string>{"eth0", "eth1/0", "ten0/0"}));
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
  gencfg_t r = numbered(1, 1, 1);
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_op_export(c, &r, TLK_OP_ADD, &m, nullptr, &counter, &io, fake_alloc,
                                    fake_free, fake_write, fake_read),
            0);
  EXPECT_EQ(io.reads, 0u);
  ASSERT_EQ(tarvik_gencfg_op_export(c, &r, TLK_OP_GET, &m, nullptr, &counter, &io, fake_alloc,
                                    fake_free, fake_write, fake_read),
            0);
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
  EXPECT_EQ(tarvik_gencfg_op_export(c, &bulk, TLK_OP_CHG_GET, &m, nullptr, &counter, &io,
                                    fake_alloc, fake_free, fake_write, fake_read),
            EIO);
  EXPECT_EQ(bulk.major, 1) << "no bulk flag, no copy";
  bulk.flags |= TLK_GENCFG_BULK_DELETE;
  EXPECT_EQ(tarvik_gencfg_op_export(c, &bulk, TLK_OP_CHG_GET, &m, nullptr, &counter, &io,
                                    fake_alloc, fake_free, fake_write, fake_read),
            EIO);
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

TEST_F(GencfgTest, ADecompressedTlvReplyComesWithItsMapCopied) {
  use_zlib(c);
  const Bytes blob = text_blob(40000, 3);
  gencfg_t r = keyed(12, 1, "tlv");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);

  gencfg_t q = keyed(12, 1, "tlv");
  void *m = nullptr, *mask = nullptr;
  ASSERT_EQ(tarvik_gencfg_op_export(c, &q, TLK_OP_GET, &m, &mask, nullptr, c, nullptr, nullptr,
                                    write_tlv, nullptr),
            0);
  uint32_t magic = 0;
  memcpy(&magic, kernel.recorded().back().bytes.data(), 4);
  EXPECT_EQ(magic, TLK_MAGIC_TLV) << "the kernel answered in TLV";
  ASSERT_NE(mask, nullptr);
  const auto *got = static_cast<const gencfg_msg *>(m);
  EXPECT_EQ(bytes_of(got->blob, got->blob_len), blob);
  // The map lives in the copy's block, and says which fields the reply held.
  const auto *base = static_cast<const uint8_t *>(m);
  const auto *map = static_cast<const gencfg_msg_tlvmap *>(mask);
  EXPECT_GT(static_cast<const uint8_t *>(mask), base);
  EXPECT_LT(static_cast<const uint8_t *>(mask), got->blob);
  const uint32_t blob_bit = 1u << 9, key_bit = 1u << 10;  // fields 10 and 11 of word 1
  EXPECT_EQ(map->_w1 & (blob_bit | key_bit), blob_bit | key_bit);
  EXPECT_EQ(map->deps, nullptr);
  EXPECT_EQ(map->peers, nullptr);
  tarvik_msg_free(c, m);
  accept_freed_duplicates(1);
}

TEST_F(GencfgTest, DependenciesAndPeersSurviveDecompression) {
  use_zlib(c);
  const Bytes blob = text_blob(12000, 5);
  gencfg_t r = keyed(13, 1, "deps");
  attach(r, blob);
  r.flags |= TLK_GENCFG_COMPRESSED | TLK_GENCFG_DEPS;
  uint8_t k1[] = {'p', 'a', 'r', 'e', 'n', 't'}, k2[] = {'x'};
  gencfg_depinfo_t deps[2] = {};
  deps[0].dep_type = 1;
  deps[0].dep_major = 13;
  deps[0].dep_key = k1;
  deps[0].dep_key_len = sizeof k1;
  deps[1].dep_type = 2;
  deps[1].dep_key = k2;
  deps[1].dep_key_len = sizeof k2;
  r.deps = deps;
  r.dep_count = 2;
  gencfg_peerinfo_t peer{};
  peer.peer_type = 17;
  peer.index.index_type = 2;
  peer.index.idx.gencfg_type_peer_mask.peer_mask[5] = 0xA5;
  r.peers = &peer;
  r.peer_count = 1;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);

  gencfg_t q = keyed(13, 1, "deps");
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &q, TLK_OP_GET, &m, nullptr), 0);
  ASSERT_EQ(q.dep_count, 2);
  ASSERT_NE(q.deps, nullptr);
  EXPECT_EQ(bytes_of(q.deps[0].dep_key, q.deps[0].dep_key_len), bytes_of(k1, sizeof k1));
  EXPECT_EQ(bytes_of(q.deps[1].dep_key, q.deps[1].dep_key_len), bytes_of(k2, sizeof k2));
  EXPECT_EQ(q.deps[1].dep_type, 2);
  // Everything points into the copy, which is one block.
  const auto *base = static_cast<const uint8_t *>(m);
  const auto *end = q.blob + q.blob_len;
  EXPECT_TRUE(q.deps[0].dep_key > base && q.deps[0].dep_key < end);
  ASSERT_EQ(q.peer_count, 1);
  EXPECT_EQ(q.peers[0].peer_type, 17);
  EXPECT_EQ(q.peers[0].index.index_type, 2u);
  EXPECT_EQ(q.peers[0].index.idx.gencfg_type_peer_mask.peer_mask[5], 0xA5);
  EXPECT_EQ(bytes_of(q.blob, q.blob_len), blob);
  tarvik_msg_free(c, m);
  accept_freed_duplicates(1);
}

}  // namespace
}  // namespace tlktest
