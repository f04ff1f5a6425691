// Diagnostics: one entry point with five levels.
//
// A line is "tarvik: ", the level word, then the message, cut at 255 characters.  It goes to the
// session's callback, or to the system log without a session.  Level 4 under the default callback
// ends the process: it marks what the library holds to be a broken contract with the kernel or the
// caller.  A daemon that must survive registers its own callback.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <syslog.h>

#include "cookie.h"
#include "platform/platform.h"

namespace {

constexpr size_t kLineSize = 256;

const char *level_word(int level) {
  static const char *const kWords[] = {"DEBUG ", "INFO ", "WARNING ", "ERROR ", "FATAL ERROR "};
  return (level >= 0 && level <= TLK_LEVEL_FATAL) ? kWords[level] : "";
}

}  // namespace

extern "C" {

TLK_EXPORT void tarvik_lib_error(tarvik_cookie *, void *, int level, const char *text) {
  static const int kPriority[] = {LOG_DEBUG, LOG_INFO, LOG_WARNING, LOG_ERR};
  const tlk_platform &os = tlk::platform::ops();
  if (level >= 0 && level < TLK_LEVEL_FATAL) {
    os.syslog(kPriority[level], text);
  } else if (level == TLK_LEVEL_FATAL) {
    os.syslog(LOG_CRIT, text);
    os.exit(1);
  } else {
    os.print_stderr(text);
  }
}

TLK_EXPORT void tarvik_err(tarvik_cookie *cookie, int level, const char *format, ...) {
  const int saved_errno = errno;
  if (cookie != nullptr && cookie->lib_error_cb == nullptr) return;  // silenced: not even formatted

  char line[kLineSize];
  const int head = snprintf(line, sizeof line, "%s%s", "tarvik: ", level_word(level));
  if (head >= 0 && head <= 254) {
    va_list args;
    va_start(args, format);
    vsnprintf(line + head, sizeof line - static_cast<size_t>(head), format, args);
    va_end(args);
  }
  if (cookie != nullptr) {
    cookie->lib_error_cb(cookie, cookie->lib_error_arg, level, line);
  } else {
    tarvik_lib_error(nullptr, nullptr, level, line);
  }
  errno = saved_errno;
}

TLK_EXPORT int tarvik_lib_error_register(tarvik_cookie *cookie, void *arg, tarvik_lib_error_cb cb) {
  if (cookie == nullptr) return EINVAL;
  cookie->lib_error_cb = cb;
  cookie->lib_error_arg = arg;
  return 0;
}

}  // extern "C"
