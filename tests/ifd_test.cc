// Device operations against the simulated kernel: a read in both reply encodings, the list of all
// devices, the read-modify-write changes, the point change and the add, and the changes another
// session hears.  The reads every family repeats are rows of the family suite.
#include <errno.h>
#include <string.h>

#include <string>
#include <tuple>
#include <vector>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

// Device notifications heard by a session: index, flags, generation and operation of each.
using Heard = std::vector<std::tuple<uint16_t, uint32_t, uint32_t, uint8_t>>;
int hear(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  const auto &m = *static_cast<const ifdev_msg *>(msg);
  static_cast<Heard *>(arg)->emplace_back(m.ifdm_index, m.ifdm_flags, m.ifdm_generation,
                                          m.ifdm_hdr.tlkh_op);
  tarvik_msg_idl_release(cookie, msg, nullptr);
  return 0;
}

class IfdTest : public OneSessionTest {};

// Every key goes through the same read, so the whole device is checked once per reply encoding.
TEST_F(IfdTest, AReadGivesTheWholeDeviceInBothReplyEncodings) {
  for (bool tlv : {false, true}) {
    SCOPED_TRACE(tlv);
    kernel.devices().set_replies_tlv(tlv);
    void *m = nullptr, *mask = nullptr;
    ASSERT_EQ(tarvik_ifdm_get_by_name(c, "xe0", TLK_OP_GET, &m, &mask), 0);
    const auto &d = *static_cast<const ifdev_msg *>(m);
    EXPECT_EQ(d.ifdm_index, 140);
    EXPECT_STREQ(reinterpret_cast<const char *>(d.ifdm_name), "xe0");
    ASSERT_EQ(d.ifdm_media_len, 1u);
    EXPECT_EQ(d.ifdm_media[0].ifm_mtu, 9192u);
    ASSERT_EQ(d.ifdm_addr_len, 1u);
    const Bytes inet = {16, 2, 0, 0, 10, 1, 0, 1};
    EXPECT_EQ(memcmp(d.ifdm_addr[0].sai_addr, inet.data(), inet.size()), 0);
    ASSERT_EQ(d.ifdm_haddr_len, 1u);
    EXPECT_EQ(d.ifdm_haddr[0].sai_addr[1], 18);
    EXPECT_EQ(d.ifdm_haddr[0].sai_addr[17], 140);  // the MAC's last byte
    EXPECT_EQ(mask != nullptr, tlv);               // a map only comes with a TLV reply
    tarvik_msg_idl_release(c, m, mask);
  }
  // No getnext by SNMP index: refused before anything is sent.
  void *m = &m;
  const uint64_t before = kernel.requests(tarvik_getsockfd(c));
  EXPECT_EQ(tarvik_ifdm_get_by_snmp_index(c, 640, TLK_OP_GETNEXT, &m, nullptr), EINVAL);
  EXPECT_EQ(m, nullptr);
  EXPECT_EQ(kernel.requests(tarvik_getsockfd(c)), before);
}

TEST_F(IfdTest, GetAllListsTheChassis) {
  EXPECT_EQ(tarvik_ifdm_get_all(c, nullptr), EINVAL);
  tarvik_msg_list_t *list = nullptr;
  ASSERT_EQ(tarvik_ifdm_get_all(c, &list), 0);
  ASSERT_NE(list, nullptr);
  EXPECT_EQ(list->kind, TARVIK_MSG_LIST_DECODED);
  EXPECT_EQ(list->type, 5);
  ASSERT_EQ(list->count, kernel.devices().list().size());
  for (int i = 0; i < list->count; ++i) {
    const auto &d = *static_cast<const ifdev_msg *>(tarvik_msg_list_get_by_index(list, i));
    const auto &want = kernel.devices().list()[static_cast<size_t>(i)];
    EXPECT_EQ(d.ifdm_index, want.index);
    EXPECT_EQ(reinterpret_cast<const char *>(d.ifdm_name), want.name);
  }
  tarvik_msg_list_free(c, list);

  // A selector the kernel has no list for: the control's errno comes back.
  list = reinterpret_cast<tarvik_msg_list_t *>(1);
  EXPECT_EQ(tarvik_ifxm_get_all(c, &list, 9), ENOENT);
  EXPECT_EQ(list, nullptr);
}

TEST_F(IfdTest, ChangesByASessionOrByTheKernelReachAListener) {
  Heard heard;
  tarvik_cookie *l = open_session(8);
  ASSERT_EQ(tarvik_set_async_info_nocontext(l, nullptr), 0);
  ASSERT_EQ(tarvik_ifdm_async_register(l, &heard, hear), 0);
  Heard want;
  for (const auto &[flags, clear] : {std::pair{0x1u, 1}, {0x10u, 0}, {0x1u, 0}}) {
    const uint32_t before = kernel.devices().find(130)->flags;
    ASSERT_EQ(tarvik_ifdm_change_flags(c, 130, flags, clear), 0);
    const auto *d = kernel.devices().find(130);
    EXPECT_EQ(d->flags, clear ? (before & ~flags) : (before | flags));
    want.emplace_back(130, d->flags, d->generation, TLK_OP_CHANGE);
  }
  EXPECT_EQ(tarvik_ifdm_change_flags(c, 999, 1, 0), EOPNOTSUPP);
  // The kernel's own link change comes last.
  ASSERT_TRUE(kernel.devices().set_link("et0", false));
  want.emplace_back(150, kernel.devices().find(150)->flags, 2, TLK_OP_CHANGE);
  drain(l);
  EXPECT_EQ(heard, want);
  // The writer doesn't hear its own change: its socket is empty.
  void *m = nullptr;
  EXPECT_EQ(tarvik_long_msg_read_idl(c, &m, nullptr), EAGAIN);
  tarvik_close(l);
}

void set_lr_bits(tarvik_cookie *, void *msg) {
  static_cast<ifdev_msg *>(msg)->ifdm_f21 = 0x77;
}

TEST_F(IfdTest, ChangesSendOnlyWhatIsGiven) {
  kernel.record(true);
  EXPECT_EQ(tarvik_ifdm_pointchange(c, 130, 1, nullptr, nullptr, 0), EINVAL);
  EXPECT_EQ(tarvik_ifdm_change_addr(c, 131, 0, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tarvik_ifdm_change_tlvs(c, 140, 0, nullptr, 0), EINVAL);
  Bytes run = {0xF4, 0x01, 8, 0, 1, 2, 3, 4};  // one input record of type 500
  ASSERT_EQ(tarvik_ifdm_pointchange(c, 133, 0x1, set_lr_bits, run.data(),
                                    static_cast<uint32_t>(run.size())),
            0);
  auto req = last_request_as<ifdev_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->ifdm_change, 0x2000u);
  EXPECT_EQ(req->ifdm_point_mask, 1u);
  EXPECT_EQ(req->ifdm_point_flags, 1u);
  EXPECT_EQ(req->ifdm_flags, 1u);
  EXPECT_EQ(req->ifdm_f21, 0x77);
  EXPECT_EQ(req->ifdm_dinfotype, 1);
  ASSERT_EQ(req->ifdm_hdr.tlkh_info_len, 1u);
  EXPECT_EQ(req->ifdm_hdr.tlkh_info[0]->tlkmi_type, 0x70000FFu);  // no arm: the bare head

  // A forwarding-engine record: the 592 bytes behind the first four travel as arm 438.
  Bytes fe(596, 0);
  fe[0] = 438 & 0xFF;
  fe[1] = 438 >> 8;
  for (size_t i = 4; i < fe.size(); ++i) fe[i] = static_cast<uint8_t>(i);
  ASSERT_EQ(
      tarvik_ifdm_pointchange(c, 133, 0, nullptr, fe.data(), static_cast<uint32_t>(fe.size())), 0);
  req = last_request_as<ifdev_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->ifdm_point_mask, 0u);
  ASSERT_EQ(req->ifdm_hdr.tlkh_info_len, 1u);
  const auto &arm = req->ifdm_hdr.tlkh_info[0]->tlkmi_u.af_fe;
  ASSERT_EQ(arm.af_len, 592u);
  EXPECT_EQ(memcmp(arm.af_data, fe.data() + 4, 592), 0);
  EXPECT_EQ(tarvik_ifdm_pointchange(c, 133, 0, nullptr, fe.data(), 100), EINVAL);  // cut short
  // The address and attachment changes send the flags as read, whatever the argument, and only
  // what was given.
  const Bytes link = {20, 18, 0,    0,    0,    0,    0,    0,    0, 0,
                      6,  0,  0x02, 0x99, 0x88, 0x77, 0x66, 0x55, 0, 0};
  ASSERT_EQ(tarvik_ifdm_change_addr(c, 131, 0x4, nullptr, link.data()), 0);
  req = last_request_as<ifdev_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->ifdm_addr_len, 0u);
  ASSERT_EQ(req->ifdm_haddr_len, 1u);
  EXPECT_EQ(req->ifdm_dinfotype, 1);
  EXPECT_EQ(req->ifdm_flags, 0x8001u);
  EXPECT_EQ(kernel.devices().find(131)->mac[1], 0x99);
  run = {26, 0, 8, 0, 5, 0, 0, 0};
  ASSERT_EQ(tarvik_ifdm_change_tlvs(c, 140, 0x2, run.data(), static_cast<uint32_t>(run.size())), 0);
  req = last_request_as<ifdev_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->ifdm_hdr.tlkh_op, TLK_OP_CHANGE);
  EXPECT_EQ(req->ifdm_flags, 0x8001u);
  ASSERT_EQ(req->ifdm_hdr.tlkh_info_len, 1u);
  EXPECT_EQ(req->ifdm_hdr.tlkh_info[0]->tlkmi_type, 26u);
  EXPECT_EQ(req->ifdm_hdr.tlkh_info[0]->tlkmi_u.if_opcode.io_words[0], 5u);
}

TEST_F(IfdTest, AddSendsTheAttachmentsItKnowsAndCreatesTheDevice) {
  kernel.record(true);
  const Bytes inet = {16, 2, 0, 0, 192, 0, 2, 7, 0, 0, 0, 0, 0, 0, 0, 0};
  const Bytes link = {20, 18, 0,    0,    0,    0,    0,    0,    0, 0,
                      6,  0,  0x02, 0x11, 0x22, 0x33, 0x44, 0x55, 0, 0};
  ifmedia media{};
  media.ifm_mtu = 1600;
  media.ifm_f48 = tarsim::kMediaEthernet;
  // Input records: u16 type, u16 length with the header, the data padded to four bytes.
  const Bytes runs = {
      1,    0,    12, 0, 1,    0,    0, 0, 2, 0, 0, 0,  // a word list
      4,    0,    12, 0, 9,    9,    9, 9, 7, 0, 0, 0,  // inline options
      0xF4, 0x01, 6,  0, 0xAA, 0xBB, 0, 0,              // type 500: unknown
      10,   0,    12, 0, 1,    1,    1, 1, 1, 1, 1, 1,  // a structure: dropped
      0xC3, 0x01, 5,  0, 0xCC, 0,    0, 0,              // type 451: unknown
  };
  ASSERT_EQ(tarvik_ifdm_add_with_tlvs(c, "ge50", 300, 0x12, 0x8001, 0x40, &media, inet.data(),
                                      link.data(), runs.data(), static_cast<uint32_t>(runs.size())),
            0);
  auto req = last_request_as<ifdev_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(req->ifdm_hdr.tlkh_op, TLK_OP_ADD);
  EXPECT_EQ(req->ifdm_hdr.tlkh_seq, 0u);  // an add draws no sequence number
  EXPECT_EQ(req->ifdm_class_word, 0x12);
  EXPECT_EQ(req->ifdm_sflags, 0x40u);
  EXPECT_EQ(req->ifdm_dinfotype, 1);
  ASSERT_EQ(req->ifdm_media_len, 1u);
  EXPECT_EQ(req->ifdm_media[0].ifm_mtu, 1600u);
  // Word list, inline, then the two unknown records gathered behind one 0x70000FF attachment;
  // the structure of type 10 is dropped.
  ASSERT_EQ(req->ifdm_hdr.tlkh_info_len, 3u);
  const tlk_msg_info *const *info = req->ifdm_hdr.tlkh_info;
  EXPECT_EQ(info[0]->tlkmi_type, 1u);
  ASSERT_EQ(info[0]->tlkmi_u.if_opcode.io_count, 2u);
  EXPECT_EQ(info[0]->tlkmi_u.if_opcode.io_words[1], 2u);
  EXPECT_EQ(info[1]->tlkmi_type, 4u);
  EXPECT_EQ(info[1]->tlkmi_u.if_pfe_options.ipo_flags, 0x09090909u);
  EXPECT_EQ(info[1]->tlkmi_u.if_pfe_options.ipo_value, 7u);
  EXPECT_EQ(info[2]->tlkmi_type, 0x70000FFu);

  const auto *d = kernel.devices().find(300);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d->name, "ge50");
  EXPECT_EQ(d->inet, 0xC0000207u);
  EXPECT_EQ(d->mac[5], 0x55);
  EXPECT_EQ(tarvik_ifdm_add(c, nullptr, 301, 0, nullptr, nullptr, nullptr), EINVAL);
  ASSERT_EQ(tarvik_ifdm_add(c, "ge51", 301, 0, nullptr, nullptr, nullptr), 0);
  EXPECT_NE(kernel.devices().find(301), nullptr);
}

}  // namespace
}  // namespace tlktest
