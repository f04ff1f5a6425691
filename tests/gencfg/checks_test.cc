// The request routine's checks and the request it builds: what is refused before anything is
// written, the limits, and what reaches the kernel.
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

// Records the routine refuses before anything is written, one row each: the operation, the
// record as the caller filled it, the answer and the diagnostic it logs, if any.
uint8_t kKey[] = {'k'}, kLongKey[251] = {}, kTooLarge[0x80000] = {};
gencfg_depinfo_t kNoDeps[1] = {};
constexpr uint32_t kKeyed = TLK_GENCFG_KEY, kCompressed = TLK_GENCFG_COMPRESSED;

struct Refusal {
  const char *what;
  uint32_t op;
  gencfg_t record;
  int want;
  const char *line = nullptr;
};

// The rows name only the fields that matter; the others are zero, as designated.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
// clang-format off
const Refusal kRefusals[] = {
    {"an add without a flag", TLK_OP_ADD, {.major = 1}, EINVAL},
    {"a change without a flag", TLK_OP_CHANGE, {.major = 1}, EINVAL},
    {"a delete without a flag", TLK_OP_DELETE, {.major = 1}, EINVAL},
    {"an add-and-get without a flag", TLK_OP_ADD_GET, {.major = 1}, EINVAL},
    {"dependencies named without an array", TLK_OP_ADD,
     {.key_len = 1, .key = kKey, .flags = kKeyed | TLK_GENCFG_DEPS}, EINVAL},
    {"a dependency array of no entries", TLK_OP_ADD,
     {.key_len = 1, .key = kKey, .flags = kKeyed | TLK_GENCFG_DEPS, .deps = kNoDeps}, EINVAL},
    {"a peer count without peers", TLK_OP_ADD,
     {.key_len = 1, .peer_count = 1, .key = kKey, .flags = kKeyed}, EINVAL},
    {"a key of 251 bytes", TLK_OP_ADD, {.key_len = 251, .key = kLongKey, .flags = kKeyed},
     EINVAL, "Gencfg blob key length (251) is greater than 250 bytes\n"},
    {"a blob of 512 KiB", TLK_OP_ADD,
     {.blob_len = 0x80000, .key_len = 1, .blob = kTooLarge, .key = kKey, .flags = kKeyed},
     ENOSPC, "Gencfg blob is too large (524288 bytes)\n"},
    {"compression without callbacks", TLK_OP_ADD,
     {.blob_len = 1, .key_len = 1, .blob = kKey, .key = kKey, .flags = kKeyed | kCompressed},
     EOPNOTSUPP, "Compression was not initialized for tarvik\n"},
    // A walk may start from nothing, but not from half a key; every other op needs both.
    {"a walk from a key without a length", TLK_OP_GETNEXT, {.key = kKey, .flags = kKeyed},
     EINVAL},
    {"a walk from a length without a key", TLK_OP_GETNEXT, {.key_len = 1, .flags = kKeyed},
     EINVAL},
    {"a get without a key", TLK_OP_GET, {.flags = kKeyed}, EINVAL},
    {"an add without a key", TLK_OP_ADD, {.flags = kKeyed}, EINVAL},
    {"a delete with a length but no key", TLK_OP_DELETE, {.key_len = 1, .flags = kKeyed},
     EINVAL},
};
// clang-format on
#pragma GCC diagnostic pop

TEST_F(GencfgTest, RefusedRecordsSendNothing) {
  for (const Refusal &row : kRefusals) {
    SCOPED_TRACE(row.what);
    gencfg_t r = row.record;
    const size_t sent = requests_seen();
    void *m = nullptr;
    EXPECT_EQ(tarvik_gencfg_op_export(c, &r, row.op, &m, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr, nullptr),
              row.want);
    EXPECT_EQ(m, nullptr);
    if (row.line != nullptr) {
      EXPECT_TRUE(logged("ERROR", row.line));
    }
    EXPECT_EQ(requests_seen(), sent);
  }
}

TEST_F(GencfgTest, TheLimitsPassAndABlobIsMeasuredAfterCompression) {
  const Bytes largest(0x7FFFF, 0x5A);
  gencfg_t big = keyed(2, 1, "big");
  attach(big, largest);
  ASSERT_EQ(tarvik_gencfg_add(c, &big), 0);
  const auto big_key = tarsim::Gencfg::bytes_key(2, 1, Bytes{'b', 'i', 'g'});
  ASSERT_NE(kernel.gencfg().find(big_key), nullptr);
  EXPECT_EQ(kernel.gencfg().find(big_key)->blob.size(), 0x7FFFFu);
  gencfg_t longest = keyed(9, 9, std::string(250, 'k'));
  EXPECT_EQ(tarvik_gencfg_add(c, &longest), 0);
  EXPECT_NE(kernel.gencfg().find(tarsim::Gencfg::bytes_key(9, 9, Bytes(250, 'k'))), nullptr);
  // The key's length is only looked at when the key is named.
  gencfg_t unnamed = keyed(9, 9, std::string(251, 'k'));
  unnamed.flags = TLK_GENCFG_KID;
  EXPECT_EQ(tarvik_gencfg_add(c, &unnamed), 0);
  EXPECT_EQ(log.count(TLK_LEVEL_ERROR), 0u);

  // Compression brings a blob over the limit below it, and it passes.
  use_zlib(c);
  const Bytes too_large(0x80000, 0x5A);
  gencfg_t packed = compressed(2, 1, "big", too_large);
  ASSERT_EQ(tarvik_gencfg_add(c, &packed), 0);
  EXPECT_LT(kernel.gencfg().find(big_key)->blob.size(), 0x80000u);
}

TEST_F(GencfgTest, AReadNeedsNoFlagAndAWalkOrABulkDeleteNoKey) {
  // A blob without any key, stored by the kernel itself: a get with no flags at all reads it.
  tarsim::GencfgEntry e;
  e.id.major = 3;
  e.id.minor = 4;
  e.blob = Bytes{1, 2, 3};
  kernel.gencfg().change(TLK_OP_ADD, e);
  gencfg_t r{};
  r.major = 3;
  r.minor = 4;
  void *m = nullptr;
  ASSERT_EQ(tarvik_gencfg_get(c, &r, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(bytes_of(r.blob, r.blob_len), (Bytes{1, 2, 3}));
  tarvik_msg_free(c, m);

  // Nothing of 4/4 is stored: the kernel refuses with a raw message, which the framed read
  // reports.
  gencfg_t start = keyed(4, 4, "");
  start.key = nullptr;
  m = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_gencfg_get(c, &start, TLK_OP_GETNEXT, &m, nullptr), EOPNOTSUPP);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(tarvik_gencfg_bulk_delete(c, &start, &m, nullptr), 0);
  tarvik_msg_free(c, m);
  EXPECT_EQ(requests_seen(), 3u);
}

TEST_F(GencfgTest, AnEmptyOrMissingBlobGoesOutWithLengthZero) {
  uint8_t byte = 7;
  // A pointer without a length, and a length without bytes.
  const std::pair<uint8_t *, uint32_t> blobs[] = {{&byte, 0}, {nullptr, 5}};
  for (const auto &[blob, len] : blobs) {
    SCOPED_TRACE(len);
    gencfg_t r = keyed(1, 1, "a");
    r.blob = blob;
    r.blob_len = len;
    ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);
    const auto req = last_request();
    ASSERT_NE(req, nullptr);
    EXPECT_EQ(req->blob_len, 0u);
    EXPECT_EQ(req->blob, nullptr);
  }
}

TEST_F(GencfgTest, TheRequestCarriesWhatItsFlagsName) {
  gencfg_t r = keyed(0x1234, 0x5678, "key-1");
  const Bytes blob = {9, 8, 7, 6};
  attach(r, blob);
  add_deps_and_peers(r);
  r.kid = 77;  // without its flag: not sent
  r.sub_id = 0xABCD;
  r.tag = 0x4321;
  r.lrid = 3;
  const uint32_t seq = c->seq;
  ASSERT_EQ(tarvik_gencfg_add(c, &r), 0);

  auto req = last_request();
  ASSERT_NE(req, nullptr);
  const tlk_hdr &h = req->gencfg_hdr;
  EXPECT_EQ(TLK_VERSION_TYPE_WORD(h.tlkh_version, h.tlkh_type), TLK_VERSION_TYPE_WORD('i', 'H'));
  EXPECT_EQ(h.tlkh_op, TLK_OP_ADD);
  EXPECT_EQ(h.tlkh_seq, seq + 1);
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
  // The dependency keys and the mask peer come back whole in the decompressed copy's test.
  ASSERT_EQ(req->dep_count, 2u);
  EXPECT_EQ(req->deps[0].dep_major, 11);
  ASSERT_EQ(req->peer_count, 2u);
  EXPECT_EQ(req->peers[0].index.idx.gencfg_type_default.peer_index, 40);

  // The numeric key travels only with its flag, and dependencies only with theirs: without it
  // they are neither checked nor sent.
  gencfg_t n = numbered(1, 2, 4242);
  n.dep_count = 3;
  ASSERT_EQ(tarvik_gencfg_delete(c, &n), 0);
  req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->gencfg_hdr.tlkh_op, TLK_OP_DELETE);
  EXPECT_EQ(req->kid, 4242u);
  EXPECT_EQ(req->key, nullptr);
  EXPECT_EQ(req->dep_count, 0u);
  EXPECT_EQ(req->deps, nullptr);
  EXPECT_EQ(req->lrid, 0);
}

TEST_F(GencfgTest, OnlyGetGetnextAndTheGetFormsReadAReply) {
  // A kernel that answers every frame with a raw message (that passes the sequence rule): an op
  // that reads takes it, and a framed read of a raw message gives EOPNOTSUPP; an op that doesn't
  // leaves it on the socket.
  kernel.on_frame([this](tarsim::Kernel &k, int fd, std::span<const uint8_t>) {
    k.push(fd, tarsim::raw_message(26, TLK_OP_GET, c->seq, Bytes(4, 0)));
  });
  auto left_on_socket = [&] {
    void *stray = nullptr;
    size_t len = 0;
    const int err = tarvik_long_msg_read(c, &stray, &len);
    tarvik_msg_free(c, stray);
    return err == 0;
  };
  const struct {
    uint32_t op;
    bool reads;
  } ops[] = {
      // clang-format off
      {TLK_OP_NOP, false}, {TLK_OP_ADD, false}, {TLK_OP_CHANGE, false}, {TLK_OP_DELETE, false},
      {TLK_OP_CLEAR, false}, {TLK_OP_DELETEALL, false}, {10, false},
      {TLK_OP_GET, true}, {TLK_OP_GETNEXT, true}, {TLK_OP_ADD_GET, true}, {TLK_OP_CHG_GET, true},
      // clang-format on
  };
  gencfg_t r = keyed(5, 5, "one");
  void *m = nullptr;
  for (const auto &[op, reads] : ops) {
    SCOPED_TRACE(op);
    EXPECT_EQ(tarvik_gencfg_op_export(c, &r, op, &m, nullptr, nullptr, nullptr, nullptr, nullptr,
                                      nullptr, nullptr),
              reads ? EOPNOTSUPP : 0);
    EXPECT_EQ(m, nullptr);
    EXPECT_EQ(left_on_socket(), !reads);
  }
  // A get whose write fails doesn't read what is already waiting on the socket.
  ASSERT_TRUE(kernel.push(tarvik_getsockfd(c), tarsim::raw_message(26, TLK_OP_GET, c->seq + 1)));
  kernel.inject_write_errno(EIO);
  EXPECT_EQ(tarvik_gencfg_get(c, &r, TLK_OP_GET, &m, nullptr), EIO);
  EXPECT_EQ(m, nullptr);
  EXPECT_TRUE(left_on_socket());
}

}  // namespace
}  // namespace tlktest
