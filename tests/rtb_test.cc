// Route tables and table classes against the simulated kernel: the name rules and fixed values of
// the writes as they go out, the services channel attachment, which class ops read a reply, and
// what the kernel keeps.  The reads every family repeats are rows of the family suite.
#include <errno.h>
#include <string.h>

#include <functional>
#include <string>
#include <tuple>

#include "harness.h"

namespace tlktest {
namespace {

std::string text(const uint8_t *p) {
  return p ? std::string(reinterpret_cast<const char *>(p)) : "";
}

const std::string k200(200, 't'), k127(127, 't');

class RouteTableTest : public OneSessionTest {
 protected:
  void SetUp() override {
    OneSessionTest::SetUp();
    kernel.record(true);
  }
};

// Each table write, decoded from what reached the kernel; a null name is one the write left
// out, a name carries its end byte.
struct TableWrite {
  const char *what;
  std::function<int(tarvik_cookie *)> call;
  uint8_t op, hdr_flags;
  const char *name, *lrname;
  uint8_t lrid;
  uint16_t rtb_flags;
  uint64_t prflags;
  uint32_t index, arg_a;
  uint16_t arg_b;
};

const TableWrite kTableWrites[] = {
    {"an empty name is its end byte alone",
     [](auto *c) { return tarvik_rtbm_add(c, "", 5, TLK_AF_INET, 0); }, TLK_OP_ADD, 0, "", "null",
     0, 0, 1, 0, 0, 0},
    {"a null name is the default table",
     [](auto *c) { return tarvik_rtbm_add(c, nullptr, 5, TLK_AF_INET, 0); }, TLK_OP_ADD, 0,
     "default", "null", 0, TLK_RTB_DEFAULT, 1, 0, 0, 0},
    {"add_prflag: the caller's flags, logical router null",
     [](auto *c) { return tarvik_rtbm_add_prflag(c, "blue", 5, TLK_AF_INET, 0x40, 0x10); },
     TLK_OP_ADD, 0x40, "blue", "null", 0, 0, 0x10, 0, 0, 0},
    {"add_lr: the logical router's name",
     [](auto *c) { return tarvik_rtbm_add_lr(c, "abcde", 5, TLK_AF_INET, "lr1", 3, 0, 7); },
     TLK_OP_ADD, 0, "abcde", "lr1", 3, 0, 7, 0, 0, 0},
    {"add_lr without a logical router name",
     [](auto *c) { return tarvik_rtbm_add_lr(c, "blue", 5, TLK_AF_INET, nullptr, 0, 0, 7); },
     TLK_OP_ADD, 0, "blue", nullptr, 0, 0, 7, 0, 0, 0},
    {"long names are cut to 127",
     [](auto *c) {
       return tarvik_rtbm_add_lr(c, k200.c_str(), 5, TLK_AF_INET, k200.c_str(), 1, 0, 7);
     },
     TLK_OP_ADD, 0, k127.c_str(), k127.c_str(), 1, 0, 7, 0, 0, 0},
    {"update: the op as passed, index and values",
     [](auto *c) {
       return tarvik_rtbm_update(c, 5, TLK_AF_INET, 9, "blue", 0x1234, 77, TLK_OP_CHANGE);
     },
     TLK_OP_CHANGE, 0, "blue", nullptr, 0, 0, 0, 9, 0x1234, 77},
    {"update without a name",
     [](auto *c) { return tarvik_rtbm_update(c, 5, TLK_AF_INET, 9, nullptr, 1, 2, TLK_OP_DELETE); },
     TLK_OP_DELETE, 0, nullptr, nullptr, 0, 0, 0, 9, 1, 2},
    // Last: its attachment is checked after the loop.
    {"the services channel: an add with the update's values",
     [](auto *c) {
       return tarvik_rtbm_update_svcs_chan(c, 5, TLK_AF_INET, 12, "svc", 0x55, 3, 4242, 0x20);
     },
     TLK_OP_ADD, 0, "svc", nullptr, 0, 0, 0x20, 12, 0x55, 3},
};

std::tuple<std::string, uint32_t> name_and_len(const char *name) {
  return {name ? name : "", name ? static_cast<uint32_t>(strlen(name) + 1) : 0u};
}

TEST_F(RouteTableTest, TableWritesGoOutByTheNameRule) {
  for (const TableWrite &w : kTableWrites) {
    SCOPED_TRACE(w.what);
    const uint32_t seq = c->seq;
    ASSERT_EQ(w.call(c), 0);
    auto req = last_request_as<rtb_msg>();
    ASSERT_NE(req, nullptr);
    const tlk_hdr &h = req->rtb_hdr;
    EXPECT_EQ(std::tuple(h.tlkh_type, h.tlkh_version, h.tlkh_op, h.tlkh_flags, h.tlkh_seq),
              std::tuple(TLK_MSG_RTTABLE, 'b', w.op, w.hdr_flags, seq + 1));
    EXPECT_EQ(std::tuple(req->tid, req->af), std::tuple(uint16_t{5}, uint8_t{TLK_AF_INET}));
    EXPECT_EQ(std::tuple(text(req->rtb_name), req->rtb_name_len), name_and_len(w.name));
    EXPECT_EQ(std::tuple(text(req->lrname), req->lrname_len), name_and_len(w.lrname));
    EXPECT_EQ(std::tuple(req->lrid, req->rtb_flags, req->prflags),
              std::tuple(w.lrid, w.rtb_flags, w.prflags));
    EXPECT_EQ(std::tuple(req->rtb_index.idx, req->rtb_arg_a.idx, req->rtb_arg_b),
              std::tuple(w.index, w.arg_a, w.arg_b));
    EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "no reply is read or queued";
  }
  // The services channel travels as attachment 104: its arm zero but for the last three words.
  auto req = last_request_as<rtb_msg>();
  ASSERT_NE(req, nullptr);
  ASSERT_EQ(req->rtb_hdr.tlkh_info_len, 1u);
  const tlk_msg_info &item = *req->rtb_hdr.tlkh_info[0];
  const iftlv_type_id_idx_seq &arm = item.tlkmi_u.iftlv_type_id_idx_seq;
  EXPECT_EQ(item.tlkmi_type, 104u);
  EXPECT_EQ(std::tuple(arm.itiis_type, arm.itiis_id, arm.itiis_idx), std::tuple(2u, 10u, 4242u));
  EXPECT_EQ(std::string(reinterpret_cast<const char *>(arm.itiis_data), sizeof arm.itiis_data),
            std::string(128, '\0'));
}

// A read by name asks for the table by its name alone: the by-name id and no index.
TEST_F(RouteTableTest, AReadByNameSendsTheByNameId) {
  void *m = nullptr;
  ASSERT_EQ(tarvik_rtbm_get_by_name(c, TLK_AF_INET, "default", &m, nullptr), 0);
  tarvik_msg_idl_release(c, m, nullptr);
  auto req = last_request_as<rtb_msg>();
  ASSERT_NE(req, nullptr);
  EXPECT_EQ(std::tuple(req->tid, req->rtb_index.idx, text(req->rtb_name)),
            std::tuple(uint16_t{TLK_RTB_TID_BY_NAME}, 0u, std::string("default")));
}

// Class ops: every op but add (1) and delete (3) reads one message.
TEST_F(RouteTableTest, ClassGetsReadForEveryOpButAddAndDelete) {
  const struct {
    uint32_t op;
    int result;
    const char *got;  // the name of the class read, NULL for none
  } rows[] = {
      {TLK_OP_GET, 0, "gold"},          {TLK_OP_GETNEXT, 0, "silver"},
      {TLK_OP_CHANGE, EAGAIN, nullptr}, {TLK_OP_DELETEALL, EAGAIN, nullptr},
      {TLK_OP_ADD, 0, nullptr},         {TLK_OP_DELETE, 0, nullptr},
  };
  for (const auto &r : rows) {
    SCOPED_TRACE(r.op);
    const size_t sent = sent_count(kernel);
    void *m = reinterpret_cast<void *>(1);
    EXPECT_EQ(tarvik_ntblm_get_by_name(c, "gold", TLK_AF_INET, r.op, &m, nullptr), r.result);
    EXPECT_EQ(sent_count(kernel), sent + 1);
    EXPECT_EQ(m != nullptr ? text(static_cast<const ntbl_msg *>(m)->ntbl_name) : "",
              r.got != nullptr ? r.got : "");
    tarvik_msg_idl_release(c, m, nullptr);
    EXPECT_EQ(tarvik_peek_pkt_len(tarvik_getsockfd(c)), -1) << "nothing left unread";
  }
  EXPECT_EQ(kernel.route_tables().find_class_name("gold"), nullptr) << "the op 3 deleted it";
  // The class routine doesn't test the out pointer: the request goes, and the read refuses.
  const size_t sent = sent_count(kernel);
  EXPECT_EQ(tarvik_ntblm_get_by_index(c, 1, TLK_AF_INET, TLK_OP_GET, nullptr, nullptr), EINVAL);
  EXPECT_EQ(sent_count(kernel), sent + 1);
  EXPECT_GT(tarvik_peek_pkt_len(tarvik_getsockfd(c)), 0) << "the reply stays on the socket";
  EXPECT_EQ(tarvik_rtbm_get_by_index(c, TLK_AF_INET, 0, TLK_OP_GET, nullptr, nullptr), EINVAL);
  EXPECT_EQ(sent_count(kernel), sent + 1) << "the table reads test theirs";
}

TEST_F(RouteTableTest, ClassNamesKeep253AndIndexesGoAsGiven) {
  const std::string long_name(300, 'k');
  ASSERT_EQ(tarvik_ntblm_add(c, long_name.c_str(), TLK_AF_INET), 0);
  auto req = last_request_as<ntbl_msg>();
  EXPECT_EQ(std::tuple(req->ntbl_hdr.tlkh_op, req->idx, req->ntbl_name_len),
            std::tuple(uint8_t{TLK_OP_ADD}, uint16_t{0}, 254u));
  EXPECT_EQ(text(req->ntbl_name), long_name.substr(0, 253));
  ASSERT_EQ(tarvik_ntblm_add_by_index(c, "bronze", 9, TLK_AF_INET6), 0);
  ASSERT_NE(kernel.route_tables().find_class(9), nullptr);
  EXPECT_EQ(kernel.route_tables().find_class(9)->af, TLK_AF_INET6);
  ASSERT_EQ(tarvik_ntblm_delete_by_index(c, 9, TLK_AF_INET6), 0);
  auto del = last_request_as<ntbl_msg>();
  EXPECT_EQ(std::tuple(del->ntbl_hdr.tlkh_op, del->idx, del->ntbl_name_len),
            std::tuple(uint8_t{TLK_OP_DELETE}, uint16_t{9}, 0u));
  EXPECT_EQ(kernel.route_tables().find_class(9), nullptr);
  ASSERT_EQ(tarvik_ntblm_delete_by_name(c, "silver", TLK_AF_INET), 0);
  EXPECT_EQ(kernel.route_tables().find_class(2), nullptr);
}

// A second session that listens hears table and class changes; the writer doesn't.
TEST_F(RouteTableTest, ListenersHearTableAndClassChanges) {
  tarvik_cookie *l = open_session(9);
  ASSERT_NE(l, nullptr);
  std::vector<uint32_t> heard;
  auto hear = [](tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
    static_cast<std::vector<uint32_t> *>(arg)->push_back(static_cast<tlk_hdr *>(msg)->tlkh_type);
    tarvik_msg_idl_release(cookie, msg, nullptr);
    return 0;
  };
  ASSERT_EQ(tarvik_create_async_context(l), 0);
  ASSERT_EQ(tarvik_rtbm_async_register(l, &heard, hear), 0);
  ASSERT_EQ(tarvik_rtclass_async_register(l, &heard, hear), 0);
  ASSERT_EQ(tarvik_rtbm_add(c, "red", 40, TLK_AF_INET, 0), 0);
  ASSERT_EQ(tarvik_ntblm_add(c, "copper", TLK_AF_INET), 0);
  drain(l);
  EXPECT_EQ(heard, (std::vector<uint32_t>{TLK_MSG_RTTABLE, TLK_MSG_RT_CLASS}));
  tarvik_close(l);
}

}  // namespace
}  // namespace tlktest
