// Sessions: creating, connecting with version negotiation, tuning and destroying.
#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "harness.h"

namespace tlktest {
namespace {

class SessionTest : public SimTest {};

TEST_F(SessionTest, CreateMakesUnconnectedCookieWithDefaults) {
  const auto before = outstanding();
  tarvik_cookie *c = tarvik_cookie_create();
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(tarvik_getsockfd(c), -1);
  EXPECT_EQ(tarvik_get_tarlink_version_info(c), nullptr);
  EXPECT_TRUE(kernel.sessions().empty()) << "creating a cookie makes no system call";
  EXPECT_EQ(outstanding()[MEMID_TARVIK_COOKIE] - before[MEMID_TARVIK_COOKIE], 1);
  EXPECT_EQ(outstanding()[MEMID_TARVIK_READ_BUFFER] - before[MEMID_TARVIK_READ_BUFFER], 1);
  tarvik_cookie_destroy(c);
}

TEST_F(SessionTest, OpenNegotiatesAndSetsSenderAndBuffers) {
  tarvik_cookie *c = open_session(42);
  ASSERT_NE(c, nullptr);
  const int fd = tarvik_getsockfd(c);
  EXPECT_TRUE(kernel.has_session(fd));
  EXPECT_EQ(kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_SENDER_ID), Bytes{42});
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_SNDBUF), 524288u);
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_RCVBUF), 524288u);
  EXPECT_TRUE(fcntl(fd, F_GETFL) & O_NONBLOCK);
  EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
  const uint8_t *info = tarvik_get_tarlink_version_info(c);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info[0], 110);
  EXPECT_EQ(info[1], 98);
  EXPECT_EQ(info[1 + 6], 'k');
  EXPECT_TRUE(log.lines.empty()) << log.lines.front().text;
  tarvik_close(c);
  EXPECT_FALSE(kernel.has_session(fd));
}

// Version negotiation: what each kind of difference in the kernel's reply draws.  Only another
// interface version (or no usable reply) refuses the session.
const std::string kUpgrade = ",a reboot or software upgrade may be required\n";

struct VersionCase {
  const char *name;
  void (*edit)(Bytes &reply);  // on the default reply
  bool opens;
  std::vector<ErrLog::Line> lines;
  int err = 0;  // errno after a refusal, where it is promised
};

const VersionCase kVersionCases[] = {
    {"NewerKernelWithMoreTypes",
     [](Bytes &r) { r[0] = 111; },
     true,
     {{TLK_LEVEL_WARNING,
       "tarvik: WARNING kernel has new unknown messages: expected 110 got 111" + kUpgrade}}},
    // A count of 109 still has type 109 compared; a byte for type 110 is beyond the table.
    {"OlderKernelWithFewerTypes",
     [](Bytes &r) {
       r[0] = 109;
       r.push_back(0);
       r[1 + 109] = 'x';
     },
     true,
     {{TLK_LEVEL_ERROR,
       "tarvik: ERROR kernel does not support all messages: expected 110 got 109" + kUpgrade},
      {TLK_LEVEL_WARNING,
       "tarvik: WARNING version mismatch for msg tlk-err (109): expected 0 got 120" + kUpgrade}}},
    {"OneMessageVersionDiffers",
     [](Bytes &r) { r[1 + 2] = 'c'; },
     true,
     {{TLK_LEVEL_WARNING,
       "tarvik: WARNING version mismatch for msg route (2): expected 104 got 99" + kUpgrade}}},
    // "ifstats" and "ksdb" are kept at 0 by the library: a version there is a difference too.
    {"UnversionedTypeWithVersion",
     [](Bytes &r) {
       r[1 + 9] = 'a';
       r[1 + 91] = 'b';
     },
     true,
     {{TLK_LEVEL_WARNING,
       "tarvik: WARNING version mismatch for msg ifstats (9): expected 0 got 97" + kUpgrade},
      {TLK_LEVEL_WARNING,
       "tarvik: WARNING version mismatch for msg ksdb (91): expected 0 got 98" + kUpgrade}}},
    {"InterfaceMismatch",
     [](Bytes &r) { r[1] = 99; },
     false,
     {{TLK_LEVEL_FATAL,
       "tarvik: FATAL ERROR interface version mismatch: kernel=99 library=98" + kUpgrade}},
     ECONNREFUSED},
    // A reply of one byte is judged on zeros.
    {"ShortReply",
     [](Bytes &r) { r = Bytes{110}; },
     false,
     {{TLK_LEVEL_FATAL,
       "tarvik: FATAL ERROR interface version mismatch: kernel=0 library=98" + kUpgrade}},
     ECONNREFUSED},
    {"QueryFails",
     nullptr,
     false,
     {{TLK_LEVEL_FATAL,
       std::string("tarvik: FATAL ERROR version sockopt failed: ") + strerror(EOPNOTSUPP)}}},
};

class VersionTest : public SimTest, public ::testing::WithParamInterface<VersionCase> {};

TEST_P(VersionTest, LogsEachDifferenceThroughTheRegisteredCallback) {
  const VersionCase &v = GetParam();
  if (v.edit == nullptr) {
    kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_VERSION, EOPNOTSUPP);
  } else {
    Bytes reply = tarsim::Kernel::default_version_reply();
    v.edit(reply);
    kernel.set_version_reply(reply);
  }
  errno = 0;
  tarvik_cookie *c = tarvik_open_set_liberr(3, &log, ErrLog::callback);
  ASSERT_EQ(c != nullptr, v.opens);
  ASSERT_EQ(log.lines.size(), v.lines.size());
  for (size_t i = 0; i < v.lines.size(); ++i) {
    EXPECT_EQ(log.lines[i].level, v.lines[i].level) << i;
    EXPECT_EQ(log.lines[i].text, v.lines[i].text) << i;
  }
  EXPECT_TRUE(os.exits.empty());
  if (c != nullptr) {
    tarvik_close(c);
    return;
  }
  if (v.err != 0) {
    EXPECT_EQ(errno, v.err);
  }
  // The common exit frees the record alone: the descriptor and read buffer stay behind, on
  // purpose.  Give them back here so that the leak check sees only what this test expects.
  ASSERT_EQ(kernel.sessions().size(), 1u);
  close(kernel.sessions()[0]);
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
}

INSTANTIATE_TEST_SUITE_P(Replies, VersionTest, ::testing::ValuesIn(kVersionCases),
                         [](const auto &p) { return std::string(p.param.name); });

TEST_F(SessionTest, InterfaceMismatchWithDefaultCallbackLogsCriticalAndExits) {
  Bytes reply = tarsim::Kernel::default_version_reply();
  reply[1] = 99;
  kernel.set_version_reply(reply);
  // Captured exit returns, so the connect path runs to its end as a surviving process would.
  tarvik_cookie *c = tarvik_open(3);
  EXPECT_EQ(c, nullptr);
  EXPECT_EQ(os.exits, std::vector<int>{1});
  ASSERT_EQ(os.syslog.size(), 1u);
  EXPECT_EQ(os.syslog[0].priority, LOG_CRIT);
  close(kernel.sessions()[0]);
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
}

struct ConnectFault {
  const char *name;
  void (*arm)(tarsim::Kernel &);
  const char *words;
  bool socket_opened;
};

class ConnectFaultTest : public SimTest, public ::testing::WithParamInterface<ConnectFault> {};

TEST_P(ConnectFaultTest, TakesCommonExitWithItsDiagnostic) {
  GetParam().arm(kernel);
  EXPECT_EQ(tarvik_open_set_liberr(1, &log, ErrLog::callback), nullptr);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_ERROR);
  EXPECT_EQ(log.lines[0].text, std::string("tarvik: ERROR ") + GetParam().words);
  EXPECT_EQ(kernel.sessions().size(), GetParam().socket_opened ? 1u : 0u);
  for (int fd : kernel.sessions()) close(fd);
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
}

INSTANTIATE_TEST_SUITE_P(
    Steps, ConnectFaultTest,
    ::testing::Values(
        ConnectFault{"socket", [](tarsim::Kernel &k) { k.fail_socket(EPROTONOSUPPORT); },
                     "tarvik_connect(): Failed to open a new routing socket with errno 93\n",
                     false},
        ConnectFault{"nonblock", [](tarsim::Kernel &k) { k.fail_fcntl(F_SETFL, EBADF); },
                     "tarvik_connect(): Failed to set nonblocking behaviour on the socket with "
                     "errno 9\n",
                     true},
        ConnectFault{"cloexec", [](tarsim::Kernel &k) { k.fail_fcntl(F_SETFD, EBADF); },
                     "tarvik_connect(): Failed to set close-on-exec flag on the socket with errno "
                     "9\n",
                     true}),
    [](const auto &p) { return std::string(p.param.name); });

TEST_F(SessionTest, ConnectingAConnectedCookieFreesItButLeavesTheSocket) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  const int fd = tarvik_getsockfd(c);
  EXPECT_EQ(tarvik_set_defaults(c, 1), nullptr);
  EXPECT_TRUE(kernel.has_session(fd)) << "the descriptor stays open";
  close(fd);
  // What the freed record held stays allocated: the version copy and the read buffer.
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
  expect_abandoned(MEMID_TARVIK_MSG, 1);
}

TEST_F(SessionTest, SocketBufferFailureDestroysWholeSession) {
  kernel.fail_option(SOL_SOCKET, SO_RCVBUF, ENOBUFS);
  EXPECT_EQ(tarvik_open_set_liberr(1, &log, ErrLog::callback), nullptr);
  EXPECT_TRUE(kernel.sessions().empty()) << "unlike the common exit, everything is released";
}

// The tests below work on one open session, `c`.
using OpenSessionTest = OneSessionTest;

// Buffer sizes below one are refused with words of their own.
TEST_F(OpenSessionTest, BufferSenderAndRouterOptions) {
  const int fd = tarvik_getsockfd(c);
  EXPECT_EQ(tarvik_set_buffers(c, 0, 100), EINVAL);
  EXPECT_EQ(tarvik_set_buffers(c, 100, 0), EINVAL);
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0].text, "tarvik: ERROR Attempted to set an invalid send buffer size 0\n");
  EXPECT_EQ(log.lines[1].text,
            "tarvik: ERROR Attempted  to set an invalid receive buffer size 0\n");
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_SNDBUF), 524288u) << "socket untouched";
  EXPECT_EQ(tarvik_set_buffers(c, 4096, 8192), 0);
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_SNDBUF), 4096u);
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_RCVBUF), 8192u);

  // Both the sender and the logical router refusals speak of the sender id.
  log.lines.clear();
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_LR_ID, ENOPROTOOPT);
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_SENDER_ID, ENOPROTOOPT);
  EXPECT_EQ(tarvik_set_lr_id(c, 0x12345), 0);
  EXPECT_EQ(tarvik_set_sender_id(c, 9), 0);
  ASSERT_EQ(log.lines.size(), 2u);
  const std::string words =
      std::string("tarvik: WARNING setsockopt(ROUTE_SENDER_ID) failed, ") + strerror(ENOPROTOOPT);
  EXPECT_EQ(log.lines[0].text, words);
  EXPECT_EQ(log.lines[1].text, words);
  kernel.clear_faults();
  EXPECT_EQ(tarvik_set_lr_id(c, 0x12345), 0);
  EXPECT_EQ(kernel.option(fd, TLK_SOL_ROUTE, TLK_SO_LR_ID), (Bytes{0x45, 0x23}));
}

// The three mode setters pass their value to the kernel, or fail with -1 and their own words.
TEST_F(OpenSessionTest, ModeSettersPassTheValueOrFailWithMinusOne) {
  const struct {
    int (*set)(tarvik_cookie *, uint32_t);
    int option;
    const char *words;
  } setters[] = {
      {tarvik_setup_master_mode, 11, "failed to set master mode "},
      {tarvik_setup_slave_mode, 8, "failed to set slave mode "},
      {tarvik_setup_local_slave_mode, 16, "failed to set local slave mode "},
  };
  for (const auto &m : setters) {
    SCOPED_TRACE(m.words);
    log.lines.clear();
    kernel.clear_faults();
    EXPECT_EQ(m.set(c, 0xA5A5), 0);
    EXPECT_EQ(kernel.option_u32(tarvik_getsockfd(c), TLK_SOL_ROUTE, m.option), 0xA5A5u);
    kernel.fail_option(TLK_SOL_ROUTE, m.option, EPERM);
    EXPECT_EQ(m.set(c, 1), -1);
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0].level, TLK_LEVEL_ERROR);
    EXPECT_EQ(log.lines[0].text, std::string("tarvik: ERROR ") + m.words + strerror(EPERM));
  }
}

TEST_F(OpenSessionTest, SetsockoptPassesThroughAtKernelLevel) {
  const uint32_t masks[2] = {0x10, 0x200000};
  EXPECT_EQ(tarvik_setsockopt(c, TLK_SO_LISTEN, masks, sizeof masks), 0);
  EXPECT_EQ(kernel.option(tarvik_getsockfd(c), TLK_SOL_ROUTE, TLK_SO_LISTEN),
            (Bytes{0x10, 0, 0, 0, 0, 0, 0x20, 0}));
  errno = 0;
  EXPECT_EQ(tarvik_setsockopt(c, TLK_SO_LISTEN, masks, 4), -1) << "the kernel checks lengths";
  EXPECT_EQ(errno, EINVAL);
}

// The socket closes first, then the close hook runs, then the buffers go.
TEST_F(SessionTest, DestroyRunsTheCloseHookBetweenSocketAndBuffers) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(tarvik_set_sync_mode(c, 1), 0);  // the bulk buffers, to be released too
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  ASSERT_EQ(tarvik_set_async_mode(c, TLK_ASYNC_BULK | TLK_ASYNC_HOOKED), 0);
  static bool hook_saw_closed_socket;
  static tarvik_event_hooks_t hooks{};
  hooks.destroy = [](tarvik_cookie *cookie) {
    hook_saw_closed_socket =
        tarvik_getsockfd(cookie) == -1 && tarvik_get_tarlink_version_info(cookie) != nullptr;
  };
  ASSERT_EQ(tlk_async_set_event_hooks(c, &hooks), 0);
  hook_saw_closed_socket = false;
  tarvik_cookie_destroy(c);
  EXPECT_TRUE(hook_saw_closed_socket);
  EXPECT_TRUE(kernel.sessions().empty());
}

}  // namespace
}  // namespace tlktest
