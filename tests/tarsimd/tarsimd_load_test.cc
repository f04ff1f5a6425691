// tarsimd under load: 32 client processes, each a stream of request-replies and a bulk of route
// adds and deletes, while 4 listener processes count the device changes that the clients also
// make.  No reply may be lost or reach the wrong session, every notification must be heard, and
// the daemon's heap must be back where it started once everyone has gone.
//
// The counts of the ctest run are scaled down to fit a shared machine; --full runs 20,000
// request-replies and a bulk of 100,000 routes per client.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string.h>

#include <chrono>
#include <functional>
#include <string>

#include "rig.h"
#include "tarsim.h"

namespace {

using namespace tarsimd_rig;

struct Counts {
  unsigned clients = 32;
  unsigned listeners = 4;
  unsigned round_trips = 4000;
  unsigned bulk = 20000;
  unsigned changes = 50;  // device changes per client, heard by every listener
  unsigned rounds = 2;    // the heap after the last must be where the first left it
};
Counts g_counts;
// Every client's bulk is in before any is taken out, so that the kernel's stores reach the same
// peak in every round: a client says "added" on the first pipe and waits for a byte on the
// second.
int g_added[2] = {-1, -1};
int g_go[2] = {-1, -1};

constexpr uint32_t kWindow = 4096;

// Adds (or deletes) `count` /32 routes (20 + client).x.y.z in table 0, in bulk: 0, or the number
// the kernel refused, plus one for a failed write.
int bulk_routes(tarvik_cookie *c, unsigned client, unsigned count, uint8_t op) {
  std::vector<rt_msg> msgs(kWindow);
  std::vector<uint8_t> prefixes(size_t{kWindow} * 4);
  std::vector<tarvik_msg_iov_t> iov(kWindow);
  int bad = 0;
  for (uint32_t first = 0; first < count; first += kWindow) {
    const uint32_t n = std::min<uint32_t>(kWindow, count - first);
    for (uint32_t i = 0; i < n; ++i) {
      const uint32_t k = first + i;
      uint8_t *b = &prefixes[size_t{i} * 4];
      const uint32_t address = htonl((20 + client) << 24 | k);
      memcpy(b, &address, 4);
      rt_msg &m = msgs[i];
      m = rt_msg{};
      m.rt_hdr.tlkh_version = TARVIK_VERSION_TABLE[TLK_MSG_ROUTE];
      m.rt_hdr.tlkh_type = TLK_MSG_ROUTE;
      m.rt_hdr.tlkh_op = op;
      m.rt_hdr.tlkh_fixedlen = sizeof(rt_msg);
      tarvik_seq_get_next(c, &m.rt_hdr.tlkh_seq);
      m.af = TLK_AF_INET;
      m.type = 1;
      m.nh_type = 2;
      m.nhidx.idx = 1000;
      m.plen = 32;
      m.prefix = b;
      m.prefix_len = 4;
      iov[i] = tarvik_msg_iov_t{&m, nullptr, 0, 0};
    }
    bad += tarvik_msg_writev_idl(c, n, iov.data(), nullptr) != 0;
    for (uint32_t i = 0; i < n; ++i) bad += iov[i].write_err != 0;
  }
  return bad;
}

// A client makes a device change every this many round trips, one in all at the first.
unsigned change_step() {
  return g_counts.round_trips / g_counts.changes + 1;
}
unsigned changes_per_client() {
  return (g_counts.round_trips + change_step() - 1) / change_step();
}

// One client: its route, then round trips that must each come back with it, device changes, and
// a bulk in and out.  The exit status counts what went wrong (capped).
int client(unsigned i) {
  const uint8_t mine = static_cast<uint8_t>(100 + i);
  tarvik_cookie *c = open_session(static_cast<uint8_t>(20 + i));
  if (c == nullptr || add_route(c, mine) != 0) return 100;
  unsigned bad = 0;
  for (unsigned n = 0; n < g_counts.round_trips; ++n) {
    bad += get_route(c, mine) != 0;
    if (n % change_step() == 0) bad += write_change(c, static_cast<uint8_t>(n)) != 0;
  }
  tarvik_cookie *b = open_session(static_cast<uint8_t>(60 + i));
  if (b == nullptr || tarvik_set_sync_mode(b, 1) != 0) return 101;
  bad += static_cast<unsigned>(bulk_routes(b, i, g_counts.bulk, TLK_OP_ADD));
  char go;
  if (write(g_added[1], "a", 1) != 1 || read(g_go[0], &go, 1) != 1) ++bad;
  bad += static_cast<unsigned>(bulk_routes(b, i, g_counts.bulk, TLK_OP_DELETE));
  tarvik_close(b);
  const uint8_t net[4] = {10, mine, 0, 0};
  bad += tarvik_rtm_delete_prefix(c, 0, TLK_AF_INET, 1, 0, net, 16, 0) != 0;
  tarvik_close(c);
  return static_cast<int>(std::min(bad, 99u));
}

pid_t fork_connected(const Daemon &d, const std::function<int()> &body) {
  const pid_t pid = fork();
  if (pid == 0) {
    if (tarsim_connect(d.c_path()) != 0) _exit(120);
    const int rc = body();
    tarsim_disconnect();
    _exit(rc);
  }
  return pid;
}

int exit_status(pid_t pid) {
  int st = 0;
  waitpid(pid, &st, 0);
  return WIFEXITED(st) ? WEXITSTATUS(st) : -1;
}

tarsim_remote_stats_t daemon_stats(const Daemon &d) {
  tarsim_remote_stats_t st{};
  EXPECT_EQ(tarsim_connect(d.c_path()), 0);
  for (int i = 0; i < 100; ++i) {
    EXPECT_EQ(tarsim_remote_stats(&st), 0);
    if (st.connections == 1) break;  // the one asking: the others are gone
    usleep(10000);
  }
  tarsim_disconnect();
  return st;
}

// One round: the listeners, then the clients; whether every reply and notification arrived.
void round(const Daemon &d) {
  const auto began = std::chrono::steady_clock::now();
  const unsigned expected = g_counts.clients * changes_per_client();
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  std::vector<pid_t> listeners;
  for (unsigned l = 0; l < g_counts.listeners; ++l) {
    listeners.push_back(fork_connected(d, [&] {
      Listener me;
      if (!me.start()) return 1;
      (void)!write(ready[1], "r", 1);
      me.wait_for(expected, 20000);
      me.wait_for(expected + 1, 200);  // and not one more
      return me.heard == expected ? 0 : 2;
    }));
  }
  for (unsigned l = 0; l < g_counts.listeners; ++l) {
    char r;
    ASSERT_EQ(read(ready[0], &r, 1), 1);
  }
  ASSERT_EQ(pipe(g_added), 0);
  ASSERT_EQ(pipe(g_go), 0);
  std::vector<pid_t> clients;
  for (unsigned i = 0; i < g_counts.clients; ++i) {
    clients.push_back(fork_connected(d, [i] { return client(i); }));
  }
  close(g_added[1]);  // a client that dies early must not leave the count waiting forever
  g_added[1] = -1;
  for (unsigned i = 0; i < g_counts.clients; ++i) {
    char added;
    if (read(g_added[0], &added, 1) != 1) break;
  }
  const std::string go(g_counts.clients, 'g');
  EXPECT_EQ(write(g_go[1], go.data(), go.size()), static_cast<ssize_t>(go.size()));
  for (int fd : {g_added[0], g_go[0], g_go[1]}) close(fd);
  for (unsigned i = 0; i < clients.size(); ++i) EXPECT_EQ(exit_status(clients[i]), 0) << i;
  for (pid_t l : listeners) EXPECT_EQ(exit_status(l), 0);
  close(ready[0]);
  close(ready[1]);
  fprintf(stderr,
          "%u clients x %u round trips + bulk %u in and out, %u listeners x %u notifications: "
          "%.2f s\n",
          g_counts.clients, g_counts.round_trips, g_counts.bulk, g_counts.listeners, expected,
          std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count());
}

TEST(TarsimdLoad, ManyClientsAndListenersLoseNothingAndLeaveNothing) {
  Daemon d({"--quiet"});
  ASSERT_TRUE(d.listening());
  const tarsim_remote_stats_t fresh = daemon_stats(d);
  round(d);
  const tarsim_remote_stats_t first = daemon_stats(d);
  // The first round leaves what the kernel keeps for reuse (buffers, its stores' room at their
  // peak); later ones must find it all and leave the heap where the first left it.
  for (unsigned r = 1; r < g_counts.rounds; ++r) round(d);
  const tarsim_remote_stats_t second = daemon_stats(d);
  fprintf(stderr, "daemon heap: %llu at the start, %llu after a round, %llu after the last\n",
          static_cast<unsigned long long>(fresh.heap_bytes),
          static_cast<unsigned long long>(first.heap_bytes),
          static_cast<unsigned long long>(second.heap_bytes));
  EXPECT_EQ(second.sessions, 0u);
  EXPECT_EQ(second.connections, 1u);
  EXPECT_LE(second.heap_bytes, first.heap_bytes + 4096);
}

}  // namespace

int main(int argc, char **argv) {
  ::testing::InitGoogleTest(&argc, argv);
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--full") {
      g_counts.round_trips = 20000;
      g_counts.bulk = 100000;
      g_counts.changes = 200;
    } else if (i + 1 < argc && arg == "--round-trips") {
      g_counts.round_trips = static_cast<unsigned>(atoi(argv[++i]));
    } else if (i + 1 < argc && arg == "--bulk") {
      g_counts.bulk = static_cast<unsigned>(atoi(argv[++i]));
    } else if (i + 1 < argc && arg == "--rounds") {
      g_counts.rounds = static_cast<unsigned>(atoi(argv[++i]));
    }
  }
  return RUN_ALL_TESTS();
}
