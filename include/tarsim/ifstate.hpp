// tarsim/ifstate.hpp - the simulated kernel's interface state log, the "ifstate" chain.
//
// The chain is a run of records in sequence, numbered from 1.  Each holds an object's kind (0
// device, 1 logical interface, ... 54, as the library's tarvik_format_ifstate_type names them),
// the first word of the client masks of pending adds, changes and deletes, the references, the
// process id, rt_sid, and the object's own record.  Every device and logical interface that the
// kernel adds, changes or deletes (through a session or through the facets) appends a record of
// kind 0 or 1, whose object record has the layout the library's printer reads; the op sets the
// matching mask to 0xf (every client) and refs to 1 (0 for a delete).  Tests append records of
// any kind with append().
//
// Raw "ifstate" requests (type 47, 80 bytes, the sequence number as a u64 at 32): a get (op 4)
// answers with the record of that number, a getnext (op 5) with the first record after it;
// either draws the "tlk-err" refusal (final_err ENOENT) when there is none.  Every record
// appended is sent as an "ifstate" notification (sequence 0) to each session listening for the
// type; end_of_chain() sends those sessions the "ifsclinfo" (type 85) "IFS EndOfChain" message.
//
// The system control "hw.product.ifs_max_clients" (a u32) reads set_max_clients' value, 63 at
// start: one 64-bit word per mask.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "tarsim/kernel.hpp"

namespace tarsim {

namespace internal {
class IfstateFamily;
}

class TARSIM_EXPORT StateLog {
 public:
  // Appends a record of `kind` with the object record `info` of `length` bytes and sends it to
  // the listeners; gives its sequence number.
  uint64_t append(uint8_t kind, const void *info, size_t length, uint64_t add_mask = 0,
                  uint64_t chg_mask = 0, uint64_t del_mask = 0, uint16_t refs = 0, int32_t pid = 0,
                  uint8_t rt_sid = 0);
  uint64_t append(uint8_t kind, const Bytes &info, uint64_t add_mask = 0, uint64_t chg_mask = 0,
                  uint64_t del_mask = 0) {
    return append(kind, info.data(), info.size(), add_mask, chg_mask, del_mask);
  }
  // Records held, and the number of the last (0 when none).
  size_t size() const;
  uint64_t last_seq() const;
  // The i-th record as the raw message a get answers with: copies up to `length` bytes and gives
  // the message's whole length (0 past the end).
  size_t message(size_t i, void *buffer, size_t length) const;
  Bytes message(size_t i) const {
    Bytes b(message(i, nullptr, 0));
    (void)message(i, b.data(), b.size());
    return b;
  }
  // Drops every record; numbering goes on from the last.
  void clear();
  // What "hw.product.ifs_max_clients" reads.
  void set_max_clients(uint32_t n);
  // Sends "IFS EndOfChain" (subtype 0), naming `client` if not null, to every session listening
  // for "ifstate"; gives how many it reached.
  size_t end_of_chain(const char *client = nullptr);

 private:
  friend class Kernel;
  explicit StateLog(internal::IfstateFamily *family) : family_(family) {}
  internal::IfstateFamily *family_;
};

}  // namespace tarsim
