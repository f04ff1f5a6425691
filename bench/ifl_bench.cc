// Logical interfaces and addresses through libtarlink and the simulated kernel:
// - the whole list of 10,000 logical interfaces through the system control, and 10,000 address
//   reads by index in a row, both per object against the bare socketpair round trip of the same
//   sizes measured in the same binary;
// - "ifaddr" notifications delivered (read, decoded, saved, handled and reported) to a session on which 1,000 unnumbered borrowers have
//   registered their interest (each with a donor of its own; every notification names one donor
//   and so reaches one borrower's report), against decoding the same messages alone.
#include <benchmark/benchmark.h>
#include <errno.h>

#include <string>
#include <vector>

#include "floor.h"
#include "tarlink.h"
#include "tarsim.hpp"

namespace {

constexpr uint32_t kUnits = 10000;
constexpr uint32_t kFirstIndex = 1000;  // logical interface indexes kFirstIndex ...
constexpr uint32_t kBorrowers = 1000;
constexpr uint8_t kAfInet = 2;

tarsim::Ifa address_of(uint32_t index) {
  tarsim::Ifa a;
  a.iflidx = index;
  a.af = kAfInet;
  a.local = tarsim::ifa_inet(0x0A000000u + index, 32);
  a.dest = tarsim::ifa_inet((0x0A000000u + index) & ~0xFFu, 24);
  return a;
}

struct Chassis {
  tarsim::Kernel kernel;
  tarvik_cookie *cookie = nullptr;
  Chassis() {
    kernel.ifls().clear();
    kernel.ifas().clear();
    for (uint32_t i = 0; i < kUnits; ++i) {
      tarsim::Ifl u;
      u.index = kFirstIndex + i;
      u.snmp_id = 100000u + i;
      u.devidx = static_cast<uint16_t>(200 + i / 100);
      u.unit = i % 100;
      u.device = "ge-" + std::to_string(i / 4800) + "/" + std::to_string(i / 480 % 10) + "/" +
                 std::to_string(i / 100 % 48);
      u.flags = 0x8001;
      kernel.ifls().add(u);
      kernel.ifas().add(address_of(u.index));
    }
    cookie = tarvik_open(2);
  }
  ~Chassis() { tarvik_close(cookie); }
};

Chassis &chassis() {
  static Chassis c;
  return c;
}

void per_object(benchmark::State &state, uint32_t objects) {
  state.counters["per_object"] = benchmark::Counter(
      objects, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The floors: one request and one reply of a logical interface's (or an address's) sizes.
void BM_BareRoundTripIfl(benchmark::State &state) {
  const auto &k = chassis().kernel;
  const size_t reply = k.ifls().frame(k.ifls().list()[0], TLK_OP_GET, 1, false).size();
  tlkbench::bare_round_trip(state, 260, reply);
  per_object(state, 1);
}
BENCHMARK(BM_BareRoundTripIfl);

void BM_BareRoundTripIfa(benchmark::State &state) {
  const auto &k = chassis().kernel;
  const size_t reply = k.ifas().frame(k.ifas().list()[0], TLK_OP_GET, 1, false).size();
  tlkbench::bare_round_trip(state, 180, reply);
  per_object(state, 1);
}
BENCHMARK(BM_BareRoundTripIfa);

void BM_IflmGetAll(benchmark::State &state) {
  Chassis &c = chassis();
  for (auto _ : state) {
    tarvik_msg_list_t *list = nullptr;
    if (tarvik_iflm_get_all(c.cookie, &list) != 0 || list->count != static_cast<int>(kUnits)) {
      state.SkipWithError("get_all failed");
      break;
    }
    tarvik_msg_list_free(c.cookie, list);
  }
  per_object(state, kUnits);
}
BENCHMARK(BM_IflmGetAll)->Unit(benchmark::kMillisecond);

void BM_IfamGetByIndexInARow(benchmark::State &state) {
  Chassis &c = chassis();
  for (auto _ : state) {
    for (uint32_t i = 0; i < kUnits; ++i) {
      void *m = nullptr;
      if (tarvik_ifam_get_by_index(c.cookie, kFirstIndex + i, kAfInet, TLK_OP_GET, &m, nullptr) !=
          0) {
        state.SkipWithError("ifam_get_by_index failed");
        return;
      }
      tarvik_msg_idl_release(c.cookie, m, nullptr);
    }
  }
  per_object(state, kUnits);
}
BENCHMARK(BM_IfamGetByIndexInARow)->Unit(benchmark::kMillisecond);

// ---- "ifaddr" notifications and unnumbered borrowers ----------------------------------------

struct Heard {
  size_t messages = 0, reports = 0;
};

int count_and_release(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  ++static_cast<Heard *>(arg)->messages;
  tarvik_msg_idl_release(cookie, msg, nullptr);
  return 0;
}

Heard *g_heard = nullptr;  // the report function has no argument of its own but the borrower's

int count_report(void *, uint32_t, uint32_t, uint8_t *, uint16_t, uint16_t) {
  ++g_heard->reports;
  return 0;
}

// Change notifications of the addresses of donors kFirstIndex ... + kBorrowers, as the kernel
// sends them, one per donor.
std::vector<std::vector<uint8_t>> donor_notes(const tarsim::Kernel &kernel) {
  std::vector<std::vector<uint8_t>> notes;
  for (uint32_t i = 0; i < kBorrowers; ++i)
    notes.push_back(kernel.ifas().frame(address_of(kFirstIndex + i), TLK_OP_CHANGE, 0, false));
  return notes;
}

// A second session on the chassis's kernel (one kernel is active at a time).
struct Listener {
  tarsim::Kernel &kernel = chassis().kernel;
  tarvik_cookie *cookie = nullptr;
  Heard heard;
  std::vector<std::vector<uint8_t>> notes;
  std::vector<uint32_t> values;
  bool ok = false;
  Listener() : values(kBorrowers) {
    g_heard = &heard;
    cookie = tarvik_open(2);
    notes = donor_notes(kernel);
    tarvik_set_async_info_nocontext(cookie, nullptr);
    tarvik_set_async_mode(cookie, TLK_ASYNC_BULK);
    tarvik_async_set_num_read_msg(cookie, 64);
    ok = tarvik_ifam_async_register(cookie, 1, &heard, count_and_release) == 0 &&
         tarvik_unnum_ifa_register_callback(cookie, count_report) == 0;
    // Borrower 50000 + i borrows from donor kFirstIndex + i.
    for (uint32_t i = 0; ok && i < kBorrowers; ++i) {
      ok = tarvik_unnum_ifa_register_interest(cookie, 50000 + i, kFirstIndex + i, kAfInet, 1,
                                              &values[i]) == 0;
    }
    kernel.set_auto_flush(false);
    kernel.set_async_seq(tarvik_getsockfd(cookie), 1);
  }
  ~Listener() {
    tarvik_close(cookie);
    kernel.set_auto_flush(true);
  }
  void queue() {
    for (const auto &n : notes) kernel.notify(TLK_MSG_IFADDR, n);
  }
  bool deliver() {
    const size_t target = heard.messages + notes.size();
    while (heard.messages < target) {
      kernel.flush();
      if (tarvik_async_event_process(cookie) < 0 && errno != EAGAIN) return false;
    }
    return true;
  }
};

void BM_IfaddrToBorrowers(benchmark::State &state) {
  Listener l;
  if (!l.ok) {
    state.SkipWithError("registration failed");
    return;
  }
  for (auto _ : state) {
    state.PauseTiming();  // the kernel's queueing is not the library's work
    l.queue();
    state.ResumeTiming();
    if (!l.deliver()) {
      state.SkipWithError("event processing failed");
      break;
    }
  }
  if (l.heard.reports != l.heard.messages) state.SkipWithError("a report went missing");
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kBorrowers);
}
BENCHMARK(BM_IfaddrToBorrowers);

// The floor: the same messages decoded into an arena and released, with no socket and no kernel.
void BM_IfaddrDecodeOnly(benchmark::State &state) {
  tarvik_cookie *cookie = chassis().cookie;
  const auto notes = donor_notes(chassis().kernel);
  size_t decoded = 0;
  for (auto _ : state) {
    for (const auto &n : notes) {
      void *msg = nullptr;
      if (tarvik_msg_idl_decode(cookie, n.data(), n.size(), &msg, nullptr) != 0) {
        state.SkipWithError("decode failed");
        return;
      }
      tarvik_msg_idl_release(cookie, msg, nullptr);
      ++decoded;
    }
  }
  benchmark::DoNotOptimize(decoded);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kBorrowers);
}
BENCHMARK(BM_IfaddrDecodeOnly);

}  // namespace
