// Internal access to the platform seam: one indirect call per OS service.
#pragma once

#include "tarlink_platform.h"

namespace tlk::platform {

extern tlk_platform g_ops;

inline const tlk_platform &ops() { return g_ops; }

// Stops the process on a failed assertion that is part of the library's contract.  Goes through
// the seam and holds in release builds.
[[noreturn]] void assert_fail(const char *expr, const char *file, int line, const char *func);

}  // namespace tlk::platform

// An assertion whose texts are fixed by the library's contract: the expression text, source file
// name and line are those that the diagnostics must show, whatever the build.
#define TLK_ASSERT_AT(cond, expr_text, file_text, line_no, func_text)                 \
  do {                                                                                \
    if (!(cond)) ::tlk::platform::assert_fail(expr_text, file_text, line_no, func_text); \
  } while (0)
