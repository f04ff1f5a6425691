// tlkctl sim fault|stats: the fault injection and the state of a running tarsimd, for tests that
// span processes.  The faults are those of the simulated kernel's API; they strike whichever
// session of any process meets them first.
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "commands.h"
#include "tarsim.h"

namespace tlkctl {
namespace {

struct FaultKind {
  const char *name;
  int kind;
  const char *args;  // what each argument is: 'e' an errno, 'n' a number
};

constexpr FaultKind kFaults[] = {
    {"clear", TARSIM_FAULT_CLEAR, ""},
    {"socket", TARSIM_FAULT_SOCKET, "e"},
    {"fcntl", TARSIM_FAULT_FCNTL, "ne"},
    {"option", TARSIM_FAULT_OPTION, "nne"},
    {"clear-option", TARSIM_FAULT_CLEAR_OPTION, "nn"},
    {"write-errno", TARSIM_FAULT_WRITE_ERRNO, "e"},
    {"short-write", TARSIM_FAULT_SHORT_WRITE, "n"},
    {"read-errno", TARSIM_FAULT_READ_ERRNO, "en"},
    {"reply-truncate", TARSIM_FAULT_REPLY_TRUNCATE, "n"},
    {"reply-extra", TARSIM_FAULT_REPLY_EXTRA, "n"},
    {"wrong-seq", TARSIM_FAULT_WRONG_SEQ, "n"},
    {"bulk-stop", TARSIM_FAULT_BULK_STOP, "ne"},
};

constexpr struct {
  const char *name;
  int value;
} kErrnos[] = {{"EPERM", EPERM},     {"EINTR", EINTR},       {"EIO", EIO},
               {"EAGAIN", EAGAIN},   {"ENOMEM", ENOMEM},     {"EINVAL", EINVAL},
               {"ENOBUFS", ENOBUFS}, {"EMSGSIZE", EMSGSIZE}, {"ECONNRESET", ECONNRESET},
               {"ENOENT", ENOENT},   {"EEXIST", EEXIST},     {"ENOPROTOOPT", ENOPROTOOPT}};

bool parse(const char *text, char what, uint64_t *out) {
  if (what == 'e') {
    for (const auto &e : kErrnos) {
      if (strcmp(e.name, text) == 0) {
        *out = static_cast<uint64_t>(e.value);
        return true;
      }
    }
  }
  char *end = nullptr;
  const unsigned long long v = strtoull(text, &end, 0);
  if (end == text || *end != '\0') return false;
  *out = v;
  return true;
}

int fault(int argc, char **argv) {
  if (argc < 1) return usage_error("sim");
  for (const FaultKind &f : kFaults) {
    if (strcmp(f.name, argv[0]) != 0) continue;
    const int want = static_cast<int>(strlen(f.args));
    // A read fault's count of good reads may be left out.
    const int least = f.kind == TARSIM_FAULT_READ_ERRNO ? 1 : want;
    if (argc - 1 < least || argc - 1 > want) return usage_error("sim");
    uint64_t v[3] = {};
    for (int i = 0; i < argc - 1; ++i) {
      if (!parse(argv[1 + i], f.args[i], &v[i])) {
        fprintf(stderr, "tlkctl sim: bad argument '%s'\n", argv[1 + i]);
        return 2;
      }
    }
    int err;
    // The first argument travels as an int, the rest as 64-bit values.  Faults that take a
    // number first and an errno second put the errno where the daemon wants it.
    if (f.kind == TARSIM_FAULT_BULK_STOP) {
      err = tarsim_remote_fault(f.kind, static_cast<int>(v[1]), v[0], 0);
    } else {
      err = tarsim_remote_fault(f.kind, static_cast<int>(v[0]), v[1], v[2]);
    }
    if (err != 0) {
      fprintf(stderr, "tlkctl sim fault: %s\n", strerror(err));
      return 1;
    }
    printf("armed: %s\n", f.name);
    return 0;
  }
  fprintf(stderr, "tlkctl sim: unknown fault '%s'\n", argv[0]);
  return 2;
}

}  // namespace

int run_sim(int argc, char **argv) {
  if (argc < 2) return usage_error("sim");
  if (!tarsim_connected()) {
    fprintf(stderr, "tlkctl sim: needs a running tarsimd (--kernel PATH)\n");
    return 1;
  }
  if (strcmp(argv[1], "fault") == 0) return fault(argc - 2, argv + 2);
  if (strcmp(argv[1], "stats") == 0 && argc == 2) {
    tarsim_remote_stats_t st;
    if (const int err = tarsim_remote_stats(&st)) {
      fprintf(stderr, "tlkctl sim stats: %s\n", strerror(err));
      return 1;
    }
    printf("sessions %llu\nconnections %llu\ncalls %llu\nheap %llu\n",
           static_cast<unsigned long long>(st.sessions),
           static_cast<unsigned long long>(st.connections),
           static_cast<unsigned long long>(st.calls),
           static_cast<unsigned long long>(st.heap_bytes));
    return 0;
  }
  return usage_error("sim");
}

}  // namespace tlkctl
