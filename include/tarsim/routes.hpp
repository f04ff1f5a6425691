// tarsim/routes.hpp - the simulated kernel's routes.
//
// One store per (table, address family), keyed by prefix: up to 32 bits for inet (2), up to 128
// for inet6 (28), any other family up to 128.  A route keeps what an add carried: type, next hop
// type, flags and indexes, the interface slot (rtm_idx), route flags, the next hop information's
// selector, the gateway address and the opaque block, and the index the kernel gave it on add
// (1, 2, ... in the order of adds, 16 bits, never 0).  Prefix order is that of the prefix bytes,
// the bits past the length cleared, then the length: a prefix comes before every longer prefix
// within it.  The store starts with the routes of the seeded addresses in table 0:
// 10.0.0.0/24 on ge0.0 (70), 10.0.0.1/32 local, 10.1.0.0/24 on xe0.0 (80), 10.1.0.1/32 local,
// 127.0.0.1/32 on lo0.0 (16), and for inet6 2001:db8::/64 on 70, 2001:db8:1::/64 on 80 and ::1/128
// on 16.
//
// Framed route requests ("route", type 2) are answered in the encoding they came in:
//   add (1)          store the route (replacing one of its prefix), no reply
//   add_get (8)      the same, then the stored route with ack_index set to its index
//   delete (3)       remove it, no reply; an unknown prefix changes nothing
//   get (4)          the route of exactly the request's prefix; a request without a prefix and
//                    with a type names the first route of that type
//   getnext (5)      the route after the request's prefix in prefix order; a request without a
//                    prefix starts after the default route (which a get without a prefix reads);
//                    a type, when given, skips routes of other types
// An add naming a next hop (nhidx not 0) that the kernel does not hold is refused, as a get of
// an unknown prefix is, with a raw "tlk-err" (ENOENT); a framed read reports EOPNOTSUPP.  Route
// match requests ("rtmatch", type 12) are answered with the route whose prefix is the longest
// that covers the request's prefix, as a "route" frame (op get), or refused the same way.  Each
// add and delete is sent to every other session listening for "route" (an IDR rt_msg, op add
// or delete); the writer does not hear its own change.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class RouteFamily;
}

struct Route {
  uint16_t tid = 0;
  uint8_t af = 0;
  uint16_t plen = 0;
  uint8_t prefix[16] = {};  // (plen + 7) / 8 bytes count, the bits past plen 0
  uint8_t type = 0;
  uint8_t nh_type = 0;
  uint32_t nhflags = 0;
  uint32_t nhidx = 0;
  uint32_t fwdnhidx = 0;
  uint32_t ifidx = 0;  // the interface slot (rtm_idx)
  uint32_t flags = 0;
  uint32_t nh_info_kind = 0;
  uint8_t opaque_kind = 0;
  uint16_t dflags = 0;
  uint16_t index = 0;  // given by the kernel on add
  // The gateway (a flat socket address, its first byte its length) and the opaque block, as
  // sent; null when absent.  In a route the kernel hands out they point into its store and stay
  // valid until the route changes; in a route handed in they are copied.
  const uint8_t *gateway = nullptr;
  const uint8_t *opaque = nullptr;
  uint32_t opaque_len = 0;
};

// A route of `af` for the first `plen` bits of `bytes` (at least (plen + 7) / 8 of them).
TARSIM_EXPORT Route route_of(uint16_t tid, uint8_t af, const void *bytes, uint16_t plen);
// An inet route from a host-order address.
TARSIM_EXPORT Route route_inet(uint16_t tid, uint32_t addr, uint16_t plen);

// The kernel's routes: Kernel::routes().
class TARSIM_EXPORT Routes {
 public:
  using Visit = void (*)(const Route &route, void *arg);

  // Stores a route quietly (the kernel tells nobody); false if it replaced one of its prefix.
  bool add(const Route &r);
  // Stores a route as an add would: listening sessions hear it.
  bool create(const Route &r);
  // Removes the route of a prefix; listeners hear a delete.  False for an unknown prefix.
  bool destroy(uint16_t tid, uint8_t af, const void *prefix, uint16_t plen);
  // The route of exactly this prefix, or null.
  const Route *find(uint16_t tid, uint8_t af, const void *prefix, uint16_t plen) const;
  // The route with the longest prefix that covers the first `bits` bits of `addr`, or null.
  const Route *match(uint16_t tid, uint8_t af, const void *addr, uint16_t bits) const;
  // Routes of one table and family, and of all.
  size_t count(uint16_t tid, uint8_t af) const;
  size_t count() const;
  // Visits the routes of one table and family in prefix order; every route, by table, family
  // and prefix, with walk_all.
  void walk(uint16_t tid, uint8_t af, Visit visit, void *arg) const;
  void walk_all(Visit visit, void *arg) const;
  template <class F>
  void walk(uint16_t tid, uint8_t af, F &&f) const {
    walk(
        tid, af, [](const Route &r, void *a) { (*static_cast<F *>(a))(r); }, &f);
  }
  template <class F>
  void walk_all(F &&f) const {
    walk_all([](const Route &r, void *a) { (*static_cast<F *>(a))(r); }, &f);
  }
  // Forgets every route; the kernel tells nobody.
  void clear();

 private:
  friend class Kernel;
  explicit Routes(internal::RouteFamily *family) : family_(family) {}
  internal::RouteFamily *family_;
};

}  // namespace tarsim
