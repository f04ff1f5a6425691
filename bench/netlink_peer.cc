#include "netlink_peer.h"

#include <errno.h>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sched.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tlkbench {

namespace {

constexpr size_t kBatch = 64 * 1024;  // bytes of messages per sendto

// Counts the error replies waiting on the socket.  rtnetlink handles each message inside the
// sendto that carried it, so by the time a batch is sent its refusals are already queued.
long drain_errors(int fd) {
  long refused = 0;
  char rbuf[64 * 1024];
  for (;;) {
    const ssize_t n = recv(fd, rbuf, sizeof rbuf, MSG_DONTWAIT);
    if (n <= 0) return refused;
    int left = static_cast<int>(n);
    for (auto *h = reinterpret_cast<const nlmsghdr *>(rbuf); mnl_nlmsg_ok(h, left);
         h = mnl_nlmsg_next(h, &left)) {
      if (h->nlmsg_type != NLMSG_ERROR) continue;
      const auto *err = static_cast<const nlmsgerr *>(mnl_nlmsg_get_payload(h));
      if (err->error != 0) ++refused;
    }
  }
}

}  // namespace

NetlinkPeer::~NetlinkPeer() {
  if (nl_) mnl_socket_close(nl_);
}

bool NetlinkPeer::available(std::string *why) {
  const pid_t child = fork();
  if (child < 0) {
    *why = std::string("fork: ") + strerror(errno);
    return false;
  }
  if (child == 0) _exit(unshare(CLONE_NEWNET) == 0 ? 0 : errno);
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status)) {
    *why = "the probe for network namespaces did not finish";
    return false;
  }
  if (WEXITSTATUS(status) != 0) {
    *why = std::string("cannot make a network namespace: ") + strerror(WEXITSTATUS(status));
    return false;
  }
  return true;
}

bool NetlinkPeer::open(std::string *why) {
  auto fail = [why](const char *what) {
    *why = std::string(what) + ": " + strerror(errno);
    return false;
  };
  if (unshare(CLONE_NEWNET) != 0) return fail("unshare(CLONE_NEWNET)");
  const int s = socket(AF_INET, SOCK_DGRAM, 0);
  if (s < 0) return fail("socket");
  ifreq ifr{};
  strncpy(ifr.ifr_name, "lo", IFNAMSIZ - 1);
  const bool up = ioctl(s, SIOCGIFFLAGS, &ifr) == 0 &&
                  (ifr.ifr_flags |= IFF_UP, ioctl(s, SIOCSIFFLAGS, &ifr) == 0);
  // The host's index by ioctl: this binary links libtarlink, whose if_nametoindex asks the
  // simulated kernel (it takes the C library's name, as programs that link it expect).
  const bool indexed = up && ioctl(s, SIOCGIFINDEX, &ifr) == 0;
  close(s);
  if (!indexed) return fail("bringing lo up");
  lo_index_ = static_cast<unsigned>(ifr.ifr_ifindex);
  nl_ = mnl_socket_open(NETLINK_ROUTE);
  if (!nl_) return fail("mnl_socket_open");
  if (mnl_socket_bind(nl_, 0, MNL_SOCKET_AUTOPID) < 0) return fail("mnl_socket_bind");
  const int size = 8 << 20;
  setsockopt(mnl_socket_get_fd(nl_), SOL_SOCKET, SO_SNDBUFFORCE, &size, sizeof size);
  setsockopt(mnl_socket_get_fd(nl_), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  buf_.assign(2 * kBatch, 0);  // a batch may run one message past its limit
  return true;
}

long NetlinkPeer::program(const std::vector<Prefix4> &routes, bool del) {
  const int fd = mnl_socket_get_fd(nl_);
  long refused = 0;
  mnl_nlmsg_batch *b = mnl_nlmsg_batch_start(buf_.data(), kBatch);
  auto flush = [&]() -> bool {
    if (mnl_nlmsg_batch_is_empty(b)) return true;
    if (mnl_socket_sendto(nl_, mnl_nlmsg_batch_head(b), mnl_nlmsg_batch_size(b)) < 0) return false;
    mnl_nlmsg_batch_reset(b);
    refused += drain_errors(fd);
    return true;
  };
  for (const Prefix4 &p : routes) {
    nlmsghdr *h = mnl_nlmsg_put_header(mnl_nlmsg_batch_current(b));
    h->nlmsg_type = del ? RTM_DELROUTE : RTM_NEWROUTE;
    h->nlmsg_flags = NLM_F_REQUEST | (del ? 0 : NLM_F_CREATE | NLM_F_EXCL);
    h->nlmsg_seq = seq_++;
    auto *rtm = static_cast<rtmsg *>(mnl_nlmsg_put_extra_header(h, sizeof(rtmsg)));
    rtm->rtm_family = AF_INET;
    rtm->rtm_dst_len = p.plen;
    rtm->rtm_table = RT_TABLE_MAIN;
    rtm->rtm_protocol = del ? RTPROT_UNSPEC : RTPROT_STATIC;
    rtm->rtm_scope = del ? RT_SCOPE_NOWHERE : RT_SCOPE_LINK;
    rtm->rtm_type = RTN_UNICAST;
    mnl_attr_put(h, RTA_DST, sizeof p.bytes, p.bytes);
    mnl_attr_put_u32(h, RTA_OIF, lo_index_);
    if (!mnl_nlmsg_batch_next(b) && !flush()) {
      mnl_nlmsg_batch_stop(b);
      return -1;
    }
  }
  const bool ok = flush();
  mnl_nlmsg_batch_stop(b);
  return ok ? refused : -1;
}

}  // namespace tlkbench
