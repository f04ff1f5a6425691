// tarsim/chassis.hpp - the simulated kernel's PICs, sampling instances, synchronisation state,
// system statistics, fabrics and the other chassis objects.
//
// Framed requests are answered in the encoding they came in:
//   "pic" (68)        kept by key (port | slot * 8): add (1) stores (the type, id, flags and byte,
//                     the "other options" byte and MSP bytes of its attachments), change (2) sets
//                     the attribute its attachment names, delete (3) removes; get (4) answers the
//                     PIC, getnext (5) the next by key.  Each change goes to every other session
//                     listening for "pic".  Starts with PICs 1/0 (key 8), 1/2 (10) and 2/1 (17).
//   "sampling" (40)   kept by (a, b, c) with the instance name; add, delete, get and getnext as
//                     PICs.  Starts with (1, 0, 0) "sample-1" and (2, 0, 0) "sample-2".
//   "ksync" (69)      one state: get answers it, change sets a, b, c and the flags (bit 0 clears
//                     the state first) and tells the listeners.
//   "sysstats" (101)  a get answers counters; with request 4 (interface accounting) the
//                     accounting entries.  The system control "net.sysstats_enable" reads 1
//                     until set_sysstats_enabled(false).
//   "fc fabric" (94)  by index or, with an index of 0, by name; getnext by index.  Starts with
//                     fabrics 1 "fabric-a" and 2 "fabric-b".
//   "fabric mc group" (93) by group index; getnext by index.  Starts with groups 10 and 20.
//   "pkt inject" (96) counted; nothing is answered.
//   "ddos" (97)       a get or getnext answers the request's object, kind, group and flags with
//                     ddm_index 1; other ops draw no answer.
// A key the store doesn't hold is refused with the raw "tlk-err" (ENOENT), for change and delete
// too.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tarsim/kernel.hpp"

namespace tarsim {

struct Pic {
  uint16_t key = 0;  // port | slot * 8
  uint16_t type = 0, id = 0;
  uint32_t flags = 0;
  uint8_t byte = 0;
  uint8_t app_mode = 0, presence = 0;
  uint32_t bounces = 0;  // "bounce" changes received
  uint8_t other = 0;     // the "other options" byte of the add
  uint8_t msp[28] = {};  // the MSP bytes of the add
  bool has_msp = false;
};

struct Sample {
  uint32_t a = 0, b = 0, c = 0;
  char name[65] = {};
  uint32_t flags = 0;
};

struct KsyncState {
  uint32_t a = 0, b = 0, c = 0, flags = 0;
};

// Kernel::chassis().
class TARSIM_EXPORT Chassis {
 public:
  // PICs in key order: how many, the i-th (null past the end), one by key (null if absent).
  size_t pic_count() const;
  const Pic *pic_at(size_t i) const;
  const Pic *pic(uint16_t key) const;
  // Adds or replaces a PIC and tells the listeners.
  void add_pic(const Pic &pic);

  size_t sample_count() const;
  const Sample *sample_at(size_t i) const;

  KsyncState ksync() const;

  // The "net.sysstats_enable" control.
  void set_sysstats_enabled(bool enabled);
  // Packets injected so far, and the length of the last one.
  size_t injected() const;
  uint32_t last_injected_len() const;

 private:
  friend class Kernel;
  explicit Chassis(internal::Core *core) : core_(core) {}
  internal::Core *core_;
};

}  // namespace tarsim
