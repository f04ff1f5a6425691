// Sessions: creating, connecting with version negotiation, tuning and destroying.
#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include "harness.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

class SessionTest : public SimTest {};

TEST_F(SessionTest, CreateMakesUnconnectedCookieWithDefaults) {
  const auto before = outstanding();
  tarvik_cookie *c = tarvik_cookie_create();
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(c->fd, -1);
  EXPECT_EQ(c->seq, 1u);
  EXPECT_EQ(c->lib_error_cb, tarvik_lib_error);
  EXPECT_NE(c->read_buffer, nullptr);
  EXPECT_EQ(c->version_info, nullptr);
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

TEST_F(SessionTest, NewerKernelWithMoreTypesWarnsOnce) {
  Bytes reply = tarsim::Kernel::default_version_reply();
  reply[0] = 111;
  kernel.set_version_reply(reply);
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_WARNING);
  EXPECT_EQ(log.lines[0].text,
            "tarvik: WARNING kernel has new unknown messages: expected 110 got 111,a reboot or "
            "software upgrade may be required\n");
  tarvik_close(c);
}

TEST_F(SessionTest, OlderKernelWithFewerTypesStillComparesAll) {
  Bytes reply = tarsim::Kernel::default_version_reply();
  reply[0] = 109;
  reply.push_back(0);  // a byte for type 110, beyond the table: never compared
  reply[1 + 109] = 'x';  // type 109 still compared although the count stops at 109
  kernel.set_version_reply(reply);
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_ERROR);
  EXPECT_TRUE(log.contains("kernel does not support all messages: expected 110 got 109,"));
  EXPECT_TRUE(log.contains("version mismatch for msg tlk-err (109): expected 0 got 120,"));
  tarvik_close(c);
}

TEST_F(SessionTest, OneMessageVersionDiffersOnlyWarns) {
  Bytes reply = tarsim::Kernel::default_version_reply();
  reply[1 + 2] = 'c';  // the route message
  kernel.set_version_reply(reply);
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_WARNING);
  EXPECT_EQ(log.lines[0].text,
            "tarvik: WARNING version mismatch for msg route (2): expected 104 got 99,a reboot or "
            "software upgrade may be required\n");
  tarvik_close(c);
}

TEST_F(SessionTest, UnversionedTypeWithVersionDrawsWarning) {
  Bytes reply = tarsim::Kernel::default_version_reply();
  reply[1 + 9] = 'a';  // "ifstats" is kept at 0 by the library
  reply[1 + 91] = 'b';
  kernel.set_version_reply(reply);
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(log.count(TLK_LEVEL_WARNING), 2u);
  EXPECT_TRUE(log.contains("msg ifstats (9): expected 0 got 97"));
  EXPECT_TRUE(log.contains("msg ksdb (91): expected 0 got 98"));
  tarvik_close(c);
}

TEST_F(SessionTest, InterfaceMismatchRefusedThroughRegisteredCallback) {
  Bytes reply = tarsim::Kernel::default_version_reply();
  reply[1] = 99;
  kernel.set_version_reply(reply);
  errno = 0;
  tarvik_cookie *c = tarvik_open_set_liberr(3, &log, ErrLog::callback);
  EXPECT_EQ(c, nullptr);
  EXPECT_EQ(errno, ECONNREFUSED);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_FATAL);
  EXPECT_EQ(log.lines[0].text,
            "tarvik: FATAL ERROR interface version mismatch: kernel=99 library=98,a reboot or "
            "software upgrade may be required\n");
  EXPECT_TRUE(os.exits.empty());
  // The common exit frees the record alone: the descriptor and read buffer stay behind, on
  // purpose.  Give them back here so that the leak check sees only what this test expects.
  ASSERT_EQ(kernel.sessions().size(), 1u);
  close(kernel.sessions()[0]);
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
}

TEST_F(SessionTest, InterfaceMismatchWithDefaultCallbackLogsCriticalAndExits) {
  Bytes reply = tarsim::Kernel::default_version_reply();
  reply[1] = 99;
  kernel.set_version_reply(reply);
  // Captured exit returns, so the connect path runs to its end as a surviving process would.
  tarvik_cookie *c = tarvik_open(3);
  EXPECT_EQ(c, nullptr);
  ASSERT_EQ(os.exits.size(), 1u);
  EXPECT_EQ(os.exits[0], 1);
  ASSERT_EQ(os.syslog.size(), 1u);
  EXPECT_EQ(os.syslog[0].priority, LOG_CRIT);
  close(kernel.sessions()[0]);
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
}

TEST_F(SessionTest, VersionQueryFailureIsFatal) {
  kernel.fail_option(TLK_SOL_ROUTE, TLK_SO_VERSION, EOPNOTSUPP);
  EXPECT_EQ(tarvik_open_set_liberr(1, &log, ErrLog::callback), nullptr);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_FATAL);
  EXPECT_EQ(log.lines[0].text,
            std::string("tarvik: FATAL ERROR version sockopt failed: ") + strerror(EOPNOTSUPP));
  close(kernel.sessions()[0]);
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
}

TEST_F(SessionTest, ShortVersionReplyIsJudgedOnZeros) {
  kernel.set_version_reply(Bytes{110});
  EXPECT_EQ(tarvik_open_set_liberr(1, &log, ErrLog::callback), nullptr);
  EXPECT_TRUE(log.contains("interface version mismatch: kernel=0 library=98"));
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
                     "tarvik_connect(): Failed to open a new routing socket with errno 93\n", false},
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

TEST_F(SessionTest, NullCookieConnectFailsQuietly) {
  EXPECT_EQ(tarvik_set_defaults(nullptr, 1), nullptr);
  EXPECT_TRUE(os.syslog.empty());
}

TEST_F(SessionTest, SocketBufferFailureDestroysWholeSession) {
  kernel.fail_option(SOL_SOCKET, SO_RCVBUF, ENOBUFS);
  EXPECT_EQ(tarvik_open_set_liberr(1, &log, ErrLog::callback), nullptr);
  EXPECT_TRUE(kernel.sessions().empty()) << "unlike the common exit, everything is released";
}

TEST_F(SessionTest, HostWithoutRoutingSocketFailsAtSocketStep) {
  // Without the simulator, Linux has no routing socket family: the connect path's first exit.
  const tlk_platform sim = *tlk_platform_get();
  tlk_platform host = *tlk_platform_host();
  host.syslog = sim.syslog;
  host.exit = sim.exit;
  tlk_platform_set(&host);
  tarvik_cookie *c = tarvik_open_set_liberr(1, &log, ErrLog::callback);
  tlk_platform_set(&sim);
  EXPECT_EQ(c, nullptr);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_TRUE(log.contains("tarvik_connect(): Failed to open a new routing socket with errno "));
  expect_abandoned(MEMID_TARVIK_READ_BUFFER, 1);
}

TEST_F(SessionTest, SetBuffersRefusesSizesBelowOneWithDistinctWords) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  const int fd = tarvik_getsockfd(c);
  EXPECT_EQ(tarvik_set_buffers(c, 0, 100), EINVAL);
  EXPECT_EQ(tarvik_set_buffers(c, 100, 0), EINVAL);
  ASSERT_EQ(log.lines.size(), 2u);
  EXPECT_EQ(log.lines[0].text, "tarvik: ERROR Attempted to set an invalid send buffer size 0\n");
  EXPECT_EQ(log.lines[1].text, "tarvik: ERROR Attempted  to set an invalid receive buffer size 0\n");
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_SNDBUF), 524288u) << "socket untouched";
  EXPECT_EQ(tarvik_set_buffers(nullptr, 1, 1), EINVAL);
  EXPECT_EQ(tarvik_set_buffers(c, 4096, 8192), 0);
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_SNDBUF), 4096u);
  EXPECT_EQ(kernel.option_u32(fd, SOL_SOCKET, SO_RCVBUF), 8192u);
  EXPECT_EQ(c->rbuf_data, nullptr) << "no bulk read buffer without sync or async mode";
  tarvik_close(c);
}

TEST_F(SessionTest, SetBuffersInAsyncBulkModeNeedsHalfMegabyte) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  c->async_info = static_cast<tarvik_async_info_t *>(
      tarvik_calloc(MEMID_TARVIK_ASYNC_CTX, 1, sizeof(tarvik_async_info_t)));
  c->async_info->mode = TLK_ASYNC_BULK;
  EXPECT_EQ(tarvik_set_buffers(c, 524287, 1000000), EINVAL);
  EXPECT_EQ(log.lines.back().text,
            "tarvik: ERROR Attempted to set an invalid buffer size(send size: 524287, recv size: "
            "1000000)\n");
  EXPECT_EQ(tarvik_set_buffers(c, 524288, 524288), 0);
  tarvik_close(c);  // releases the asynchronous record too
}

TEST_F(SessionTest, SetBuffersKeepsBulkReadBufferInStep) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  c->sync_mode = TLK_SYNC_BULK_ENABLE;
  EXPECT_EQ(tarvik_set_buffers(c, 65536, 300000), 0);
  ASSERT_NE(c->rbuf_data, nullptr);
  EXPECT_EQ(c->rbuf_sz, 300000u);
  EXPECT_EQ(tarvik_set_buffers(c, 65536, 600000), 0);
  EXPECT_EQ(c->rbuf_sz, 600000u);
  tarvik_close(c);
}

TEST_F(SessionTest, SetBuffersReallocFailureKeepsOldBuffer) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  c->sync_mode = TLK_SYNC_BULK_ENABLE;
  ASSERT_EQ(tarvik_set_buffers(c, 65536, 4096), 0);
  uint8_t *old = c->rbuf_data;
  auto saved = tarvik_realloc;
  tarvik_realloc = [](unsigned, void *, size_t) -> void * {
    errno = ENOMEM;
    return nullptr;
  };
  EXPECT_EQ(tarvik_set_buffers(c, 65536, 8192), ENOMEM);
  tarvik_realloc = saved;
  EXPECT_EQ(c->rbuf_data, old);
  EXPECT_EQ(c->rbuf_sz, 4096u);
  EXPECT_EQ(kernel.option_u32(tarvik_getsockfd(c), SOL_SOCKET, SO_RCVBUF), 8192u)
      << "the socket options stay changed";
  EXPECT_EQ(log.lines.back().text,
            std::string("tarvik: ERROR tarvik_set_buffers: Failed to re-allocate rbuf ") +
                strerror(ENOMEM));
  tarvik_close(c);
}

TEST_F(SessionTest, SenderAndLogicalRouterRefusalsSpeakOfSenderId) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
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
  EXPECT_EQ(kernel.option(tarvik_getsockfd(c), TLK_SOL_ROUTE, TLK_SO_LR_ID), (Bytes{0x45, 0x23}));
  EXPECT_EQ(tarvik_set_lr_id(nullptr, 1), EINVAL);
  EXPECT_EQ(tarvik_set_sender_id(nullptr, 1), EINVAL);
  tarvik_close(c);
}

struct ModeSetter {
  const char *name;
  int (*set)(tarvik_cookie *, uint32_t);
  int option;
  const char *words;
};

class ModeTest : public SimTest, public ::testing::WithParamInterface<ModeSetter> {};

TEST_P(ModeTest, PassesValueOrFailsWithMinusOne) {
  const ModeSetter &m = GetParam();
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(m.set(c, 0xA5A5), 0);
  EXPECT_EQ(kernel.option_u32(tarvik_getsockfd(c), TLK_SOL_ROUTE, m.option), 0xA5A5u);
  kernel.fail_option(TLK_SOL_ROUTE, m.option, EPERM);
  EXPECT_EQ(m.set(c, 1), -1);
  ASSERT_EQ(log.lines.size(), 1u);
  EXPECT_EQ(log.lines[0].level, TLK_LEVEL_ERROR);
  EXPECT_EQ(log.lines[0].text, std::string("tarvik: ERROR ") + m.words + strerror(EPERM));
  EXPECT_EQ(m.set(nullptr, 1), EINVAL);
  tarvik_close(c);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, ModeTest,
    ::testing::Values(ModeSetter{"master", tarvik_setup_master_mode, 11, "failed to set master mode "},
                      ModeSetter{"slave", tarvik_setup_slave_mode, 8, "failed to set slave mode "},
                      ModeSetter{"local_slave", tarvik_setup_local_slave_mode, 16,
                                 "failed to set local slave mode "}),
    [](const auto &p) { return std::string(p.param.name); });

TEST_F(SessionTest, NullCookieAnswers) {
  tarvik_cookie_destroy(nullptr);
  tarvik_close(nullptr);
  EXPECT_EQ(tarvik_getsockfd(nullptr), EINVAL);
  EXPECT_EQ(tarvik_get_tarlink_version_info(nullptr), nullptr);
  EXPECT_EQ(tarvik_setsockopt(nullptr, 1, nullptr, 0), EINVAL);
  EXPECT_EQ(tarvik_lib_error_register(nullptr, nullptr, nullptr), EINVAL);
  EXPECT_EQ(tarvik_seq_error_register(nullptr, nullptr, nullptr), EINVAL);
  tarvik_set_used_by_stats(nullptr, 1);
}

TEST_F(SessionTest, SetsockoptPassesThroughAtKernelLevel) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  const uint32_t masks[2] = {0x10, 0x200000};
  EXPECT_EQ(tarvik_setsockopt(c, TLK_SO_LISTEN, masks, sizeof masks), 0);
  EXPECT_EQ(kernel.option(tarvik_getsockfd(c), TLK_SOL_ROUTE, TLK_SO_LISTEN),
            (Bytes{0x10, 0, 0, 0, 0, 0, 0x20, 0}));
  errno = 0;
  EXPECT_EQ(tarvik_setsockopt(c, TLK_SO_LISTEN, masks, 4), -1) << "the kernel checks lengths";
  EXPECT_EQ(errno, EINVAL);
  tarvik_set_used_by_stats(c, 0x101);
  EXPECT_EQ(c->used_by_stats, 1);
  tarvik_close(c);
}

TEST_F(SessionTest, DestroyReleasesEverythingInOrder) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  c->sync_mode = TLK_SYNC_BULK_ENABLE;
  ASSERT_EQ(tarvik_set_buffers(c, 524288, 524288), 0);
  c->wbuf = static_cast<uint8_t *>(tarvik_size_alloc(c, 64));
  static bool hook_saw_closed_socket;
  static tarvik_event_hooks_t hooks{};
  hooks.destroy = [](tarvik_cookie *cookie) {
    hook_saw_closed_socket = (cookie->fd == -1 && cookie->read_buffer != nullptr);
  };
  c->event_hooks = &hooks;
  c->async_info = static_cast<tarvik_async_info_t *>(
      tarvik_calloc(MEMID_TARVIK_ASYNC_CTX, 1, sizeof(tarvik_async_info_t)));
  c->async_info->mode = TLK_ASYNC_BULK | TLK_ASYNC_HOOKED;
  hook_saw_closed_socket = false;
  tarvik_cookie_destroy(c);
  EXPECT_TRUE(hook_saw_closed_socket) << "the hook runs after the close, before the buffers go";
  EXPECT_TRUE(kernel.sessions().empty());
}

}  // namespace
}  // namespace tlktest
