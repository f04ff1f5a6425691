// Where the process must end: the EMSGSIZE assertion of the asynchronous reader, and level 4
// diagnostics under the default callback.
#include <errno.h>

#include "async_support.h"

namespace tlktest {
namespace {

// Puts the host's process ends back in place of the harness's capture.
void real_endings() {
  tlk_platform t = *tlk_platform_get();
  t.exit = tlk_platform_host()->exit;
  t.assert_fail = tlk_platform_host()->assert_fail;
  t.print_stderr = tlk_platform_host()->print_stderr;
  tlk_platform_set(&t);
}

class AsyncDeathTest : public AsyncTest {
 protected:
  // A context-less session with a message whose length word claims 4096 of its 32 bytes.
  void push_corrupted() {
    nocontext();
    Bytes bad = raw(5);
    put_u32(bad, 8, 4096);
    ASSERT_TRUE(kernel.push(fd, bad));
  }
};

TEST_F(AsyncDeathTest, MessageTooLargeForTheBufferStopsOnTheAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  nocontext();
  kernel.inject_read_errno(EMSGSIZE);
  EXPECT_DEATH(
      {
        real_endings();
        tarvik_async_event_process(c);
      },
      "errno != EMSGSIZE.*tarvik_async_event_process");
  kernel.clear_faults();
}

TEST_F(AsyncDeathTest, CorruptedStreamEndsAClientWithTheDefaultCallback) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  ASSERT_EQ(tarvik_lib_error_register(c, nullptr, tarvik_lib_error), 0);
  push_corrupted();
  EXPECT_EXIT(
      {
        real_endings();
        tarvik_async_event_process(c);
      },
      ::testing::ExitedWithCode(1), "");
}

TEST_F(AsyncDeathTest, WithItsOwnCallbackTheClientSurvives) {
  push_corrupted();
  real_endings();
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.count(TLK_LEVEL_FATAL), 1u);
}

}  // namespace
}  // namespace tlktest
