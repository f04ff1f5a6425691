// tarsimd: one simulated kernel shared by processes, reached through tarsim_connect, tlkctl
// --kernel and the preload library; its faults across processes; and what a dying client or a
// dying daemon costs.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "../../sim/remote_wire.h"
#include "rig.h"
#include "tarlink_platform.h"
#include "tarsim.h"

namespace {

using namespace tarsimd_rig;

// The exit status of `body` run in a child process that connects on its own.
template <class Fn>
int in_child(const Daemon &d, Fn body) {
  const pid_t pid = fork();
  if (pid == 0) {
    tarsim_disconnect();  // the parent's connection is the parent's
    if (tarsim_connect(d.c_path()) != 0) _exit(90);
    const int rc = body();
    tarsim_disconnect();
    _exit(rc);
  }
  int st = 0;
  waitpid(pid, &st, 0);
  return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

// A connection of the test's own to the daemon's socket, past the client library; -1 if refused.
int raw_connection(const Daemon &d) {
  const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  snprintf(a.sun_path, sizeof a.sun_path, "%s", d.c_path());
  return connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0 ? fd : -1;
}

int run(const std::string &command) {
  const int st = system(command.c_str());
  return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

tarsim_remote_stats_t stats() {
  tarsim_remote_stats_t st{};
  EXPECT_EQ(tarsim_remote_stats(&st), 0);
  return st;
}

class Tarsimd : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(tarsim_connect(daemon.c_path()), 0); }
  void TearDown() override { tarsim_disconnect(); }
  Daemon daemon;
};

TEST_F(Tarsimd, NotificationsReachListenersOfOtherProcesses) {
  Listener a, b;
  ASSERT_TRUE(a.start());
  ASSERT_TRUE(b.start());
  for (int child = 0; child < 2; ++child) {
    EXPECT_EQ(in_child(daemon,
                       [] {
                         tarvik_cookie *w = open_session(10);
                         int bad = w == nullptr;
                         for (uint8_t i = 0; i < 25 && w != nullptr; ++i)
                           bad += write_change(w, i) != 0;
                         tarvik_close(w);
                         return bad;
                       }),
              0);
  }
  EXPECT_EQ(a.wait_for(50), 50u);
  EXPECT_EQ(b.wait_for(50), 50u);
  // And nothing more than that.
  EXPECT_EQ(a.wait_for(51, 100), 50u);
}

TEST_F(Tarsimd, SocketOptionsAndSystemControlsAnswerAsTheEmbeddedKernel) {
  // The interface list control and the peer mask, read through the seam.
  const int mib[] = {4, 17, 0, 0, 3, 1};
  const tlk_platform *p = tlk_platform_get();
  const auto read_controls = [&] {
    std::vector<uint8_t> list(1 << 16);
    size_t len = list.size(), mask_len = 4;
    uint32_t mask = 0xdead;
    EXPECT_EQ(p->sysctl(mib, 6, list.data(), &len, nullptr, 0), 0);
    EXPECT_EQ(p->sysctlbyname("kern.gencfg_cfg2_peermask", &mask, &mask_len, nullptr, 0), 0);
    list.resize(len);
    return std::pair(list, mask);
  };
  // What the embedded kernel answers, read first, without the daemon.
  tarsim_disconnect();
  std::pair<std::vector<uint8_t>, uint32_t> local;
  {
    tarsim::Kernel k;
    local = read_controls();
  }
  ASSERT_EQ(tarsim_connect(daemon.c_path()), 0);
  EXPECT_EQ(read_controls(), local);
  size_t size_only = 0;
  ASSERT_EQ(p->sysctl(mib, 6, nullptr, &size_only, nullptr, 0), 0);
  EXPECT_EQ(size_only, local.first.size());
  uint8_t small[3];
  size_only = sizeof small;
  EXPECT_EQ(p->sysctl(mib, 6, small, &size_only, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOMEM);
  size_only = sizeof small;
  EXPECT_EQ(p->sysctlbyname("no.such.name", small, &size_only, nullptr, 0), -1);
  EXPECT_EQ(errno, ENOENT);
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(tarvik_set_buffers(c, 100000, 200000), 0);
  int rcvbuf = 0;
  socklen_t len = sizeof rcvbuf;
  ASSERT_EQ(p->getsockopt(tarvik_getsockfd(c), SOL_SOCKET, SO_RCVBUF, &rcvbuf, &len), 0);
  EXPECT_EQ(rcvbuf, 200000);  // as set, as on the router
  // An option of the wrong length is refused there as here.
  const uint32_t word = 1;
  EXPECT_EQ(p->setsockopt(tarvik_getsockfd(c), TLK_SOL_ROUTE, TLK_SO_LR_ID, &word, 4), -1);
  EXPECT_EQ(errno, EINVAL);
  tarvik_close(c);
}

// tlkctl --kernel reaches the daemon's stores and arms its faults; named but absent, the daemon
// is refused (the embedded kernel is for when none is named).
TEST_F(Tarsimd, TlkctlAndFaultsArmedFromAnyProcessReachTheDaemon) {
  const std::string tlkctl = std::string(TLKCTL_PATH) + " --kernel " + daemon.path();
  ASSERT_EQ(run(tlkctl + " route add 10.66.0.0/16 nh 1000 >/dev/null"), 0);
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(get_route(c, 66), 0);
  EXPECT_EQ(run(tlkctl + " route get 10.66.0.0/16 >/dev/null"), 0);
  EXPECT_EQ(run(std::string(TLKCTL_PATH) +
                " --kernel /nonexistent/tarsimd.sock show devices >/dev/null 2>&1"),
            1);
  // A fault armed from another process strikes the next session to meet it.
  ASSERT_EQ(run(tlkctl + " sim fault write-errno EIO >/dev/null"), 0);
  EXPECT_EQ(write_change(c, 1), EIO);
  EXPECT_EQ(write_change(c, 2), 0);
  // A read fault travels with the next answer and strikes this process's read.
  ASSERT_EQ(tarsim_remote_fault(TARSIM_FAULT_READ_ERRNO, ENOBUFS, 0, 0), 0);
  EXPECT_EQ(add_route(c, 5), ENOBUFS);
  EXPECT_EQ(get_route(c, 5), 0);  // the route went in; only the read failed
  ASSERT_EQ(tarsim_remote_fault(TARSIM_FAULT_SOCKET, EMFILE, 0, 0), 0);
  EXPECT_EQ(open_session(), nullptr);
  EXPECT_EQ(tarsim_remote_fault(99, 0, 0, 0), EINVAL);
  tarvik_close(c);
}

TEST_F(Tarsimd, AClientThatDiesOrSpeaksGarbageCostsOnlyItself) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  const uint64_t before = stats().sessions;
  // Dies with a session open and half of a large write sent.
  EXPECT_EQ(in_child(daemon,
                     [&] {
                       tarvik_cookie *mine = open_session();
                       const int fd = raw_connection(daemon);
                       if (mine == nullptr || fd < 0) return 1;
                       const tarsim::remote::Call head{tarsim::remote::kOpen, 0, 0, 0, 1 << 20};
                       std::vector<uint8_t> half(4096, 0x5a);
                       (void)!write(fd, &head, sizeof head);
                       (void)!write(fd, half.data(), half.size());
                       kill(getpid(), SIGKILL);
                       return 2;
                     }),
            -1);
  // Garbage on a connection of its own.
  const int fd = raw_connection(daemon);
  ASSERT_GE(fd, 0);
  const char junk[] = "GET / HTTP/1.1\r\nHost: tarsimd\r\n\r\n";
  ASSERT_EQ(write(fd, junk, sizeof junk), static_cast<ssize_t>(sizeof junk));
  char buf[16];
  EXPECT_EQ(read(fd, buf, sizeof buf), 0);  // dropped without an answer
  close(fd);
  for (int i = 0; i < 100 && stats().connections > 1; ++i) usleep(10000);
  EXPECT_EQ(std::tuple(stats().sessions, stats().connections), std::tuple(before, 1u));
  EXPECT_EQ(add_route(c, 9), 0);
  EXPECT_EQ(get_route(c, 9), 0);
  tarvik_close(c);
}

TEST_F(Tarsimd, WhenTheDaemonDiesReadsAndWritesFailWithConnectionReset) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  daemon.stop(SIGKILL);
  testing::internal::CaptureStderr();
  EXPECT_EQ(write_change(c, 1), ECONNRESET);
  std::vector<uint8_t> buf(16384);
  EXPECT_EQ(tarvik_msg_read(c, buf.data(), nullptr), ECONNRESET);
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_NE(said.find("lost the simulated kernel at " + daemon.path()), std::string::npos) << said;
  EXPECT_EQ(said.find("lost", said.find("lost") + 1), std::string::npos) << "said once: " << said;
  EXPECT_EQ(tarsim_connected(), 0);
  tarvik_close(c);
}

// State lasts between processes and, saved, into the next daemon; each session is logged, and a
// stopped daemon takes its socket file with it.
TEST(TarsimdState, StateLastsBetweenProcessesAndIntoTheNextDaemon) {
  const std::string file = unique_path("state.cap");
  {
    Daemon first({"--save", file});
    ASSERT_EQ(tarsim_connect(first.c_path()), 0);
    tarvik_cookie *c = open_session();
    ASSERT_NE(c, nullptr);
    ASSERT_EQ(add_route(c, 77), 0);
    tarvik_close(c);
    EXPECT_EQ(in_child(first,
                       [] {
                         tarvik_cookie *r = open_session();
                         const int a = r ? get_route(r, 77) : 99, b = r ? get_route(r, 78) : 0;
                         tarvik_close(r);
                         return a == 0 && b != 0 ? 0 : 1;
                       }),
              0);
    tarsim_disconnect();
    ASSERT_EQ(first.stop(), 0);
    const std::string log = first.log();
    for (const char *what : {" opened (pid ", " closed (pid "}) {
      size_t n = 0;
      for (size_t at = 0; (at = log.find(what, at)) != std::string::npos; ++at) ++n;
      EXPECT_EQ(n, 2u) << what << log;
    }
    EXPECT_NE(log.find("tarsimd: stopped after"), std::string::npos) << log;
    ASSERT_EQ(tarsim_connect(first.c_path()), ENOENT);  // the socket file is gone too
  }
  Daemon second({"--load", file});
  ASSERT_EQ(tarsim_connect(second.c_path()), 0);
  tarvik_cookie *c = open_session();
  EXPECT_EQ(get_route(c, 77), 0);
  tarvik_close(c);
  tarsim_disconnect();
  EXPECT_NE(second.log().find("replayed"), std::string::npos) << second.log();
  unlink(file.c_str());
}

TEST_F(Tarsimd, AnUnchangedProgramReachesTheDaemonThroughThePreloadLibrary) {
  const std::string probe = std::string(PRELOAD_PROBE_PATH) + " 61";
  // Without the preload library the probe finds no routing socket on this host.
  EXPECT_NE(run(probe + " 2>/dev/null"), 0);
  EXPECT_EQ(run("LD_PRELOAD=" PRELOAD_LIB_PATH " TARSIM_SOCKET=" + daemon.path() + " " + probe), 0);
  tarvik_cookie *c = open_session();
  EXPECT_EQ(get_route(c, 61), 0);
  tarvik_close(c);
}

}  // namespace
