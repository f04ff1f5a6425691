// Helpers of the gencfg tests: records with keys that live as long as the test, blobs that do and
// don't compress, zlib as the compression pair, and the last request as the kernel decoded it.
#pragma once

#include <zlib.h>

#include <algorithm>
#include <deque>
#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {

using tarsim::Bytes;

// Text that zlib shrinks several times over; the same `n` and `seed` give the same bytes.
Bytes text_blob(size_t n, uint32_t seed = 1);
// Bytes that no compressor shrinks.
Bytes random_blob(size_t n, uint32_t seed = 1);
// zlib's own uncompress of `data`, at most `limit` bytes out; empty on failure.
Bytes inflate(const uint8_t *data, size_t len, size_t limit = TLK_GENCFG_DECOMPRESSED_MAX);
// zlib's own compress of `data`.
Bytes deflate(const Bytes &data);
inline Bytes bytes_of(const uint8_t *p, size_t n) {
  return p ? Bytes(p, p + n) : Bytes();
}

class GencfgTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
    // These tests count and walk their own blobs: the interface sets the kernel starts with go.
    kernel.gencfg().clear();
  }
  void TearDown() override {
    tarvik_close(c);
    c = nullptr;
    if (freed_duplicates_ != 0) {
      expect_abandoned(MEMID_TARVIK_READ_BUFFER, freed_duplicates_);
      expect_abandoned(MEMID_TARVIK_MSG, -freed_duplicates_);
    }
    OneSessionTest::TearDown();
  }
  // A record of one major and minor with a byte key (and TLK_GENCFG_KEY).  The key text lives
  // as long as the fixture.
  gencfg_t keyed(uint16_t major, uint16_t minor, const std::string &key);
  // The same with `blob` (which must outlive the call that uses it) to be sent compressed.
  gencfg_t compressed(uint16_t major, uint16_t minor, const std::string &key, const Bytes &blob) {
    gencfg_t r = keyed(major, minor, key);
    attach(r, blob);
    r.flags |= TLK_GENCFG_COMPRESSED;
    return r;
  }
  // A record with a numeric key (TLK_GENCFG_KID).
  static gencfg_t numbered(uint16_t major, uint16_t minor, uint32_t kid);
  // The record's blob set to `blob` (which must outlive the call that uses it).
  static void attach(gencfg_t &r, const Bytes &blob) {
    r.blob = const_cast<uint8_t *>(blob.data());
    r.blob_len = static_cast<uint32_t>(blob.size());
  }
  // Two dependencies ("parent" of major 11, then "x") and two peers (type 16 by index 40, type 17
  // by a mask with byte 5 0xA5), kept by the fixture, named in `r` with TLK_GENCFG_DEPS.
  void add_deps_and_peers(gencfg_t &r);
  gencfg_depinfo_t deps_[2] = {};
  gencfg_peerinfo_t peers_[2] = {};
  void use_zlib(tarvik_cookie *cookie) {
    tarvik_init_blob_compression(cookie, compress, uncompress);
  }
  // The last message the library wrote, decoded and released when it goes out of scope; null if
  // none.
  auto last_request() { return last_request_as<gencfg_msg>(); }
  size_t requests_seen() const { return sent_count(kernel); }
  // A decompressed message is a block of identifier 7 that its reader gives back with
  // tarvik_msg_free, which counts under identifier 75.  The test declares `n` such blocks freed,
  // and the leak check, once the session is closed, expects the counts moved by exactly that.
  void accept_freed_duplicates(int n) { freed_duplicates_ += n; }
  int freed_duplicates_ = 0;
  // Whether the session's callback received exactly this line at this level ("ERROR", "DEBUG").
  bool logged(const char *level_word, const std::string &text) const {
    return std::any_of(log.lines.begin(), log.lines.end(), [&](const auto &l) {
      return l.text == std::string("tarvik: ") + level_word + " " + text;
    });
  }

  std::deque<std::string> keys_;
};

}  // namespace tlktest
