// tarsim/dfw.hpp - the simulated kernel's firewall filters.
//
// Programs are kept per (filter index, address family).  A raw firewall message (type 14) of op
// add or change carries one fragment: tlkh_seq is its number, the fixed fields give the whole
// length and the fragment's offset.  Fragments may come in any order; the program is stored
// when every byte up to the whole length has come, and a program with a fragment missing is
// never stored.  Op delete drops the program.  A get answers the program's header (its first
// 344 bytes, or all of a shorter program) behind the 80-byte fixed part; a getnext the next
// filter of the same family in index order; an unknown filter is refused with "tlk-err".
// Filter heads are gencfg blobs (major 15, minor 21, key the index in network order).
//
// A fresh kernel holds filter 10 "protect-re" (head and program), 20 "count-all" (a legacy
// head only) and 30 "police-v6" (a program only, family 1), all for address family 2.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <map>
#include <string>
#include <utility>

#include "tarsim/gencfg.hpp"
#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class DfwFamily;
}

// What a program's header says, for building one.
struct DfwProgramInfo {
  std::string name;
  std::string ifname;
  uint8_t family = 0;       // dfh_family
  uint8_t family_code = 1;  // 1 and 2 map to head families 0 and 1
  uint8_t kind = 0;
  uint8_t flags = 0;
  std::array<uint8_t, 16> hash{};
  uint32_t body = 0;  // bytes behind the 344-byte header
};

// What a filter head says, for seeding one.
struct DfwHeadInfo {
  uint32_t index = 0;
  std::string name;
  std::string ifname;
  uint8_t family = 0;
  std::array<uint8_t, 16> hash{};
  bool legacy = false;  // the fixed 296-byte form instead of TLV
};

class TARSIM_EXPORT Dfw {
 public:
  // A program of 344 + info.body bytes whose header gives that total.
  static Bytes program(const DfwProgramInfo &info);
  // A head blob in either form.
  static Bytes head_blob(const DfwHeadInfo &info);

  // Stores a program as if it had been sent, and a head blob (the gencfg listeners hear it).
  void seed_program(uint32_t filter, uint8_t af, const uint8_t *program, size_t size);
  void seed_program(uint32_t filter, uint8_t af, const Bytes &program) {
    seed_program(filter, af, program.data(), program.size());
  }
  void seed_head(const DfwHeadInfo &info);
  // The program stored for (filter, af), or null.
  const Bytes *find(uint32_t filter, uint8_t af) const;
  // Every stored program.
  const std::map<std::pair<uint32_t, uint8_t>, Bytes> &programs() const;
  // Bytes held for a program still missing fragments (0 if none).
  size_t pending_bytes(uint32_t filter, uint8_t af) const;
  // The fragment numbers received so far, in arrival order, across all programs.
  const std::vector<uint32_t> &fragments_seen() const;

 private:
  friend class Kernel;
  Dfw(internal::DfwFamily *family, Gencfg gencfg) : family_(family), gencfg_(gencfg) {}
  internal::DfwFamily *family_;
  Gencfg gencfg_;
};

}  // namespace tarsim
