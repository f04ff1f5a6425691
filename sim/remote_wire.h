// The conversation between a process and tarsimd, the simulated kernel run as a process of its
// own.  One stream connection per process; each call is a head and `length` bytes, each answer
// likewise.  The process waits for the answer before the next call, so a write's answer, sent
// after the kernel took the message, promises that the reply is already queued on the session.
//
//   call:   | op u32 | session i32 | a i32 | b i32 | length u32 | length bytes ...
//   answer: | result i32 | err i32 | read_errno i32 | read_after u32 | size u64 | length u32 |
//           | 4 bytes zero | length bytes ...
//
// Both ends run on one host: fields are in host order.  An open's answer carries the library's
// end of the session's socketpair as SCM_RIGHTS; replies and notifications travel on that pair,
// straight from the daemon's end to the process, and the daemon keeps its own copy of the
// library's end, whose number names the session.
#pragma once

#include <stdint.h>

namespace tarsim::remote {

enum Op : uint32_t {
  kOpen = 1,    // a new session; the answer's result is its name
  kClose,       // session
  kWrite,       // session; the message bytes
  kGetOption,   // session, a = level, b = name; u32 room wanted; the answer's bytes the value
  kSetOption,   // session, a = level, b = name; the value
  kFcntl,       // session, a = cmd: gives the armed fault of the command, if any
  kSysctlName,  // a = room (-1: size only), b = new length; the name, a zero, the new bytes
  kSysctlMib,   // a = room (-1: size only), b = mib count; the mib as i32s, then the new bytes
  kWait,        // a = a WaitKind; the sessions watched, as i32s
  kFault,       // a = a FaultKind, b = first argument; u64 second and third arguments
  kStats,       // the answer's bytes: a Stats
  kLastOp = kStats,
};

enum WaitKind : int32_t { kSelectTimed = 0, kSelectForever = 1, kSleep = 2 };

enum FaultKind : int32_t {
  kFaultClear = 0,
  kFaultSocket,         // b = errno
  kFaultFcntl,          // b = cmd, x = errno
  kFaultOption,         // b = level, x = name, y = errno
  kFaultClearOption,    // b = level, x = name
  kFaultWriteErrno,     // b = errno
  kFaultShortWrite,     // x = bytes
  kFaultReadErrno,      // b = errno, x = good reads before it
  kFaultReplyTruncate,  // x = bytes
  kFaultReplyExtra,     // x = bytes
  kFaultWrongSeq,       // x = delta
  kFaultBulkStop,       // b = errno, x = messages taken first
  kFaultLast = kFaultBulkStop,
};

struct Call {
  uint32_t op;
  int32_t session;
  int32_t a;
  int32_t b;
  uint32_t length;
};

struct Answer {
  int32_t result;
  int32_t err;
  // A read fault armed in the daemon travels with the next answer and strikes the process's
  // next reads, since reads never pass through the daemon.
  int32_t read_errno;
  uint32_t read_after;
  uint64_t size;
  uint32_t length;
  uint32_t zero;
};

struct FaultArgs {
  uint64_t x;
  uint64_t y;
};

struct Stats {
  uint64_t sessions;     // open now
  uint64_t connections;  // processes connected now
  uint64_t calls;        // served since the start
  uint64_t heap_bytes;   // the daemon's heap in use
};

// The largest body a call may carry: a bulk write of many messages fits well within it.
constexpr uint32_t kMaxBody = 64u << 20;

}  // namespace tarsim::remote
