// Request-reply operations end to end through the simulated kernel: logical interface reads
// (structured, IDR request, long read), session statistics (raw request and reply, and a request
// without reply).
#include <errno.h>
#include <string.h>

#include <string>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

class IflTest : public OneSessionTest {
 protected:
  static const ifl_msg &ifl(void *m) { return *static_cast<const ifl_msg *>(m); }
  static std::string name_of(void *m) {
    const ifl_msg &r = ifl(m);
    return r.iflm_name ? std::string(reinterpret_cast<const char *>(r.iflm_name)) : "";
  }
  // The last request the kernel saw, decoded.
  ifl_msg *last_request() {
    const auto &rec = kernel.recorded();
    for (auto it = rec.rbegin(); it != rec.rend(); ++it) {
      if (!it->to_kernel) continue;
      void *m = nullptr;
      if (tarvik_msg_idl_decode(c, it->bytes.data(), it->bytes.size(), &m, nullptr) != 0) return nullptr;
      return static_cast<ifl_msg *>(m);
    }
    return nullptr;
  }
};

// Reads by every key, walks, names, bad arguments and failures are rows of the family suite.
TEST_F(IflTest, AReadGivesTheWholeUnit) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_iflm_get_by_index(c, 71, TLK_OP_GET, &m, nullptr), 0);
  EXPECT_EQ(ifl(m).iflm_index.idx, 71u);
  EXPECT_EQ(ifl(m).iflm_unit, 100u);
  EXPECT_EQ(ifl(m).iflm_devidx, 130u);
  EXPECT_EQ(name_of(m), "ge0");
  EXPECT_EQ(ifl(m).iflm_hdr.tlkh_type, TLK_MSG_IFLOGICAL);
  EXPECT_EQ(ifl(m).iflm_hdr.tlkh_seq, c->seq) << "the kernel copies the request's number";
  tarvik_msg_idl_release(c, m, nullptr);
}

TEST_F(IflTest, RequestsGoOutInIdrWithTheDocumentedHeader) {
  kernel.record(true);
  void *m = nullptr;
  const uint32_t before = c->seq;
  ASSERT_EQ(tarvik_iflm_get_by_index(c, 16, TLK_OP_GET, &m, nullptr), 0);
  tarvik_msg_idl_release(c, m, nullptr);
  uint32_t magic;
  memcpy(&magic, kernel.recorded().front().bytes.data(), 4);
  EXPECT_EQ(magic, TLK_MAGIC_IDR);
  ifl_msg *req = last_request();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(TLK_VERSION_TYPE_WORD(req->iflm_hdr.tlkh_version, req->iflm_hdr.tlkh_type), 0x066Bu);
  EXPECT_EQ(req->iflm_hdr.tlkh_seq, before + 1);
  EXPECT_EQ(req->iflm_hdr.tlkh_fixedlen, tlv_rtti_sizeof_ifl_msg_0);
  EXPECT_EQ(req->iflm_index.idx, 16u);
  EXPECT_EQ(req->iflm_name, nullptr);
  tarvik_msg_idl_release(c, req, nullptr);
}

TEST_F(IflTest, TlvRequestIsAnsweredInTlvWithItsMap) {
  auto *req = static_cast<ifl_msg *>(tarvik_msg_malloc(c));
  req->iflm_hdr.tlkh_type = 6;
  req->iflm_hdr.tlkh_version = 'k';
  req->iflm_hdr.tlkh_op = TLK_OP_GET;
  req->iflm_hdr.tlkh_seq = ++c->seq;
  req->iflm_index.idx = 80;
  ifl_msg_tlvmap map{};  // the header and the fields up to the index
  map._w0 = 1;
  map.iflm_hdr._w0 = 0x7FF;
  map._w1 = 0x1F;
  map.iflm_index._w0 = 1;
  ASSERT_EQ(tarvik_msg_write_idl(c, req, &map), 0);
  void *m = nullptr, *mask = nullptr;
  ASSERT_EQ(tarvik_long_msg_read_idl(c, &m, &mask), 0);
  EXPECT_EQ(ifl(m).iflm_index.idx, 80u);
  EXPECT_EQ(name_of(m), "xe0");
  EXPECT_NE(mask, nullptr) << "a TLV reply comes with the map of what it held";
  tarvik_msg_idl_release(c, m, mask);
  tarvik_msg_free(c, req);
}

TEST_F(IflTest, SessionStatisticsGetClearAndSequence) {
  void *reply = nullptr;
  const uint32_t before = c->seq;
  ASSERT_EQ(tarvik_tlk_stat_get(c, 1, 2, &reply), 0);
  ASSERT_NE(reply, nullptr);
  const auto *bytes = static_cast<const uint8_t *>(reply);
  uint32_t seq, requests;
  memcpy(&seq, bytes + 12, 4);
  memcpy(&requests, bytes + 24, 4);
  EXPECT_EQ(seq, before + 1);
  EXPECT_EQ(requests, 1u);
  tarvik_msg_free(c, reply);

  kernel.record(true);
  EXPECT_EQ(tarvik_tlk_stat_clear(c), 0);
  EXPECT_EQ(tarvik_tlk_proxy_stat_add(c, 0xABCD), 0);
  ASSERT_EQ(kernel.recorded().size(), 2u);
  const Bytes &clear = kernel.recorded()[0].bytes;
  ASSERT_EQ(clear.size(), 36u);
  EXPECT_EQ(clear[6], TLK_OP_CLEAR);
  uint32_t clear_seq, proxy;
  memcpy(&clear_seq, &clear[12], 4);
  memcpy(&proxy, &kernel.recorded()[1].bytes[32], 4);
  EXPECT_EQ(clear_seq, 0u) << "nothing answers a clear: it takes no number";
  EXPECT_EQ(proxy, 0xABCDu);
  EXPECT_EQ(c->seq, before + 1);
  EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "and nothing came back";
  EXPECT_EQ(tarvik_tlk_stat_get(c, 0, 0, nullptr), EINVAL);
}

TEST_F(IflTest, StatisticsGetWithoutReplyFreesItsBuffer) {
  kernel.no_reply(26, TLK_OP_GET);
  void *reply = reinterpret_cast<void *>(1);
  EXPECT_EQ(tarvik_tlk_stat_get(c, 0, 0, &reply), EAGAIN);
  EXPECT_EQ(reply, nullptr);
}

}  // namespace
}  // namespace tlktest
