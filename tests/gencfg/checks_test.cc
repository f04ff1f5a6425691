// The request routine's checks, in their order, and the request it builds: what is refused before
// anything is written, and what reaches the kernel.
#include <errno.h>
#include <string.h>

#include "gencfg_support.h"

namespace tlktest {
namespace {

// The plain null-session answers are rows of the null-argument table; these are the quirks.
TEST_F(GencfgTest, WithANullCookieSomeChecksComeFirst) {
  gencfg_t r = keyed(1, 1, "k");
  void *m = nullptr;
  EXPECT_EQ(tarvik_gencfg_bulk_delete(nullptr, &r, &m, nullptr), EINVAL);
  EXPECT_EQ(r.flags, TLK_GENCFG_KEY | TLK_GENCFG_BULK_DELETE)
      << "set before the cookie is looked at";
  // A numeric key has no prefix: refused before the cookie is looked at.
  gencfg_t n = numbered(1, 1, 5);
  EXPECT_EQ(tarvik_gencfg_delete_prefix_key(nullptr, &n, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(tarvik_gencfg_delete_prefix_key(c, &n, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(n.flags, TLK_GENCFG_KID);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(requests_seen(), 0u);
}

TEST_F(GencfgTest, AWriteNeedsAFlagAReadDoesNot) {
  gencfg_t r{};
  r.major = 3;
  r.minor = 4;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EINVAL);
  EXPECT_EQ(tarvik_gencfg_change(c, &r), EINVAL);
  EXPECT_EQ(tarvik_gencfg_delete(c, &r), EINVAL);
  void *m = nullptr;
  EXPECT_EQ(tarvik_gencfg_add_and_get(c, &r, &m, nullptr), EINVAL);
  EXPECT_EQ(requests_seen(), 0u);

  // A blob without any key, stored by the kernel itself: a get with no flags at all reads it.
  tarsim::GencfgEntry e;
  e.id.major = 3;
  e.id.minor = 4;
  e.blob = Bytes{1, 2, 3};
  kernel.gencfg().change(TLK_OP_ADD, e);
  ASSERT_EQ(tarvik_gencfg_get(c, &r, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(requests_seen(), 1u);
  EXPECT_EQ(bytes_of(r.blob, r.blob_len), (Bytes{1, 2, 3}));
  tarvik_msg_free(c, m);
}

TEST_F(GencfgTest, DependenciesAndPeersMustBeThereWhenNamed) {
  gencfg_depinfo_t deps[2] = {};
  gencfg_t r = keyed(1, 2, "dep");
  r.flags |= TLK_GENCFG_DEPS;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EINVAL) << "no dependency array";
  r.deps = deps;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EINVAL) << "a dependency array of no entries";
  r.dep_count = 1;
  r.peer_count = 1;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), EINVAL) << "a peer count without peers";
  EXPECT_EQ(requests_seen(), 0u);
  gencfg_peerinfo_t peer{};
  r.peers = &peer;
  EXPECT_EQ(tarvik_gencfg_add(c, &r), 0);
  EXPECT_EQ(requests_seen(), 1u);
  // Without the flag, the dependency fields are neither checked nor sent.
  gencfg_t plain = keyed(1, 2, "plain");
  plain.dep_count = 3;
  EXPECT_EQ(tarvik_gencfg_add(c, &plain), 0);
  gencfg_msg *req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->dep_count, 0u);
  EXPECT_EQ(req->deps, nullptr);
  tarvik_msg_free(c, req);
}

TEST_F(GencfgTest, KeysUpTo250BytesPass) {
  gencfg_t r = keyed(9, 9, std::string(250, 'k'));
  EXPECT_EQ(tarvik_gencfg_add(c, &r), 0);
  EXPECT_NE(kernel.gencfg().find(tarsim::Gencfg::bytes_key(9, 9, Bytes(250, 'k'))), nullptr);
  EXPECT_EQ(log.count(TLK_LEVEL_ERROR), 0u);

  gencfg_t too_long = keyed(9, 9, std::string(251, 'k'));
  EXPECT_EQ(tarvik_gencfg_add(c, &too_long), EINVAL);
  EXPECT_TRUE(logged(line("ERROR", "Gencfg blob key length (251) is greater than 250 bytes\n")));
  EXPECT_EQ(requests_seen(), 1u);
  // The length is only looked at when the key is named.
  too_long.flags = TLK_GENCFG_KID;
  EXPECT_EQ(tarvik_gencfg_add(c, &too_long), 0);
}

TEST_F(GencfgTest, BlobsBelow512KiBPassOnTheWire) {
  const Bytes largest(0x7FFFF, 0x5A);
  gencfg_t r = keyed(2, 1, "big");
  attach(r, largest);
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  const auto *stored = kernel.gencfg().find(tarsim::Gencfg::bytes_key(2, 1, Bytes{'b', 'i', 'g'}));
  ASSERT_NE(stored, nullptr);
  EXPECT_EQ(stored->blob.size(), 0x7FFFFu);

  const Bytes too_large(0x80000, 0x5A);
  attach(r, too_large);
  EXPECT_EQ(tarvik_gencfg_add(c, &r), ENOSPC);
  EXPECT_TRUE(logged(line("ERROR", "Gencfg blob is too large (524288 bytes)\n")));
  EXPECT_EQ(requests_seen(), 1u);

  // Compression brings it below the limit, and it passes.
  use_zlib(c);
  r.flags |= TLK_GENCFG_COMPRESSED;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  EXPECT_EQ(r.blob, too_large.data());
  EXPECT_EQ(r.blob_len, 0x80000u);
  ASSERT_NE(stored, nullptr);
  EXPECT_LT(stored->blob.size(), 0x80000u);
  EXPECT_EQ(inflate(stored->blob.data(), stored->blob.size()), too_large);
}

TEST_F(GencfgTest, AnEmptyOrMissingBlobGoesOutWithLengthZero) {
  uint8_t byte = 7;
  gencfg_t r = keyed(1, 1, "a");
  r.blob = &byte;
  r.blob_len = 0;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  gencfg_msg *req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->blob_len, 0u);
  EXPECT_EQ(req->blob, nullptr);
  tarvik_msg_free(c, req);

  r.blob = nullptr;
  r.blob_len = 5;  // a length without bytes is not sent either
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
  req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->blob_len, 0u);
  tarvik_msg_free(c, req);
}

TEST_F(GencfgTest, AWalkStartsFromAnEmptyKeyAndNothingElse) {
  gencfg_t start = keyed(4, 4, "");
  start.key = nullptr;
  void *m = nullptr;
  // The store is empty: the kernel refuses with a raw message, which the framed read reports.
  EXPECT_EQ(tarvik_gencfg_get(c, &start, TLK_OP_GETNEXT, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(requests_seen(), 1u);
  EXPECT_EQ(m, nullptr);

  gencfg_t odd = keyed(4, 4, "x");
  odd.key_len = 0;  // a key pointer without a length is no start
  EXPECT_EQ(tarvik_gencfg_get(c, &odd, TLK_OP_GETNEXT, &m, nullptr), EINVAL);
  gencfg_t missing = keyed(4, 4, "xyz");
  missing.key = nullptr;  // a length without a key
  EXPECT_EQ(tarvik_gencfg_get(c, &missing, TLK_OP_GETNEXT, &m, nullptr), EINVAL);
  // Any other op needs both.
  EXPECT_EQ(tarvik_gencfg_get(c, &start, TLK_OP_GET, &m, nullptr), EINVAL);
  EXPECT_EQ(tarvik_gencfg_add(c, &start), EINVAL);
  EXPECT_EQ(tarvik_gencfg_delete(c, &missing), EINVAL);
  EXPECT_EQ(requests_seen(), 1u);
  // A bulk delete may name no key.
  EXPECT_EQ(tarvik_gencfg_bulk_delete(c, &start, &m, nullptr), 0);
  EXPECT_EQ(requests_seen(), 2u);
  tarvik_msg_free(c, m);
}

TEST_F(GencfgTest, TheRequestCarriesWhatItsFlagsName) {
  gencfg_t r = keyed(0x1234, 0x5678, "key-1");
  uint8_t dep_key[] = {'d', 'k'};
  gencfg_depinfo_t deps[1] = {};
  deps[0].dep_type = 3;
  deps[0].dep_major = 11;
  deps[0].dep_minor = 12;
  deps[0].dep_key = dep_key;
  deps[0].dep_key_len = sizeof dep_key;
  gencfg_peerinfo_t peers[2] = {};
  peers[0].peer_type = 16;
  peers[0].index.index_type = 0;
  peers[0].index.idx.gencfg_type_default.peer_index = 40;
  peers[1].peer_type = 1;
  peers[1].index.index_type = 0;
  peers[1].index.idx.gencfg_type_default.peer_index = 41;
  const Bytes blob = {9, 8, 7, 6};
  attach(r, blob);
  r.flags |= TLK_GENCFG_DEPS;
  r.deps = deps;
  r.dep_count = 1;
  r.peers = peers;
  r.peer_count = 2;
  r.peer_max = 4;
  r.kid = 77;  // without its flag: not sent
  r.sub_id = 0xABCD;
  r.tag = 0x4321;
  r.lrid = 3;
  const uint32_t seq = c->seq;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);

  gencfg_msg *req = last_request();
  ASSERT_NE(req, nullptr);
  const tlk_hdr &h = req->gencfg_hdr;
  EXPECT_EQ(TLK_VERSION_TYPE_WORD(h.tlkh_version, h.tlkh_type), TLK_VERSION_TYPE_WORD('i', 'H'));
  EXPECT_EQ(h.tlkh_op, TLK_OP_ADD);
  EXPECT_EQ(h.tlkh_seq, seq + 1);
  EXPECT_EQ(c->seq, seq + 1);
  EXPECT_EQ(h.tlkh_fixedlen, tlv_rtti_sizeof_gencfg_msg_0);
  EXPECT_EQ(req->major, 0x1234);
  EXPECT_EQ(req->minor, 0x5678);
  EXPECT_EQ(req->flags, TLK_GENCFG_KEY | TLK_GENCFG_DEPS);
  EXPECT_EQ(bytes_of(req->key, req->key_len), (Bytes{'k', 'e', 'y', '-', '1'}));
  EXPECT_EQ(req->kid, 0u);
  EXPECT_EQ(req->sub_id, 0xABCD);
  EXPECT_EQ(req->tag, 0x4321);
  EXPECT_EQ(req->lrid, 3);
  EXPECT_EQ(bytes_of(req->blob, req->blob_len), blob);
  ASSERT_EQ(req->dep_count, 1u);
  EXPECT_EQ(req->deps[0].dep_major, 11);
  EXPECT_EQ(bytes_of(req->deps[0].dep_key, req->deps[0].dep_key_len), (Bytes{'d', 'k'}));
  ASSERT_EQ(req->peer_count, 2u);
  EXPECT_EQ(req->peers[1].peer_type, 1);
  EXPECT_EQ(req->peers[1].index.idx.gencfg_type_default.peer_index, 41);
  tarvik_msg_free(c, req);

  // The numeric key travels only with its flag.
  gencfg_t n = numbered(1, 2, 4242);
  ASSERT_EQ(tarvik_gencfg_delete(c, &n), 0);
  req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->kid, 4242u);
  EXPECT_EQ(req->key, nullptr);
  EXPECT_EQ(req->gencfg_hdr.tlkh_op, TLK_OP_DELETE);
  EXPECT_EQ(req->lrid, 0);
  tarvik_msg_free(c, req);
}

TEST_F(GencfgTest, OnlyGetGetnextAndTheGetFormsReadAReply) {
  // A kernel that answers every frame with a raw message: an op that reads takes it (and a
  // framed read of a raw message gives EOPNOTSUPP); an op that doesn't leaves it on the socket.
  kernel.on_frame([this](tarsim::Kernel &k, int fd, std::span<const uint8_t>) {
    k.push(fd,
           tarsim::raw_message(26, TLK_OP_GET, c->seq, Bytes(4, 0)));  // passes the sequence rule
  });
  auto left_on_socket = [&] {
    void *stray = nullptr;
    size_t len = 0;
    const int err = tarvik_long_msg_read(c, &stray, &len);
    tarvik_msg_free(c, stray);
    return err == 0;
  };
  gencfg_t r = keyed(5, 5, "one");
  void *m = nullptr;
  for (uint32_t op :
       {TLK_OP_NOP, TLK_OP_ADD, TLK_OP_CHANGE, TLK_OP_DELETE, TLK_OP_CLEAR, TLK_OP_DELETEALL, 10}) {
    EXPECT_EQ(tarvik_gencfg_op_export(c, &r, op, &m, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr),
              0)
        << op;
    EXPECT_TRUE(left_on_socket()) << op;
  }
  for (uint32_t op : {TLK_OP_GET, TLK_OP_GETNEXT, TLK_OP_ADD_GET, TLK_OP_CHG_GET}) {
    EXPECT_EQ(tarvik_gencfg_op_export(c, &r, op, &m, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr),
              EOPNOTSUPP)
        << op;
    EXPECT_EQ(m, nullptr);
    EXPECT_FALSE(left_on_socket()) << op;
  }
}

}  // namespace
}  // namespace tlktest
