// Internal access to the platform seam: one indirect call per OS service.
#pragma once

#include "tarlink_platform.h"

namespace tlk::platform {

extern tlk_platform g_ops;

inline const tlk_platform &ops() {
  return g_ops;
}

// The running program's short name through the seam; "" when the table has no entry for it.
inline const char *program_name() {
  const char *name = g_ops.program_name != nullptr ? g_ops.program_name() : nullptr;
  return name != nullptr ? name : "";
}

// Stops the process on a failed assertion that is part of the library's contract.  Goes through
// the seam and holds in release builds.
[[noreturn]] void assert_fail(const char *expr, const char *file, int line, const char *func);

}  // namespace tlk::platform

// An assertion whose texts are fixed by the library's contract: the expression text, source file
// name and line are those that the diagnostics must show, whatever the build.
#define TLK_ASSERT_AT(cond, expr_text, file_text, line_no, func_text)                    \
  do {                                                                                   \
    if (!(cond)) ::tlk::platform::assert_fail(expr_text, file_text, line_no, func_text); \
  } while (0)
