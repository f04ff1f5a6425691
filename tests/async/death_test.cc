// Where the process must end: the EMSGSIZE assertion of the asynchronous reader, and level 4
// diagnostics under the default callback.
#include <errno.h>

#include "async_support.h"

namespace tlktest {
namespace {

using tarsim::Bytes;

// Puts the host's process ends back in place of the harness's capture.
void real_endings() {
  tlk_platform t = *tlk_platform_get();
  t.exit = tlk_platform_host()->exit;
  t.assert_fail = tlk_platform_host()->assert_fail;
  t.print_stderr = tlk_platform_host()->print_stderr;
  tlk_platform_set(&t);
}

class AsyncDeathTest : public SimTest {};

TEST_F(AsyncDeathTest, MessageTooLargeForTheBufferStopsOnTheAssertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  kernel.inject_read_errno(EMSGSIZE);
  EXPECT_DEATH(
      {
        real_endings();
        tarvik_async_event_process(c);
      },
      "errno != EMSGSIZE.*tarvik_async_event_process");
  kernel.clear_faults();
  tarvik_close(c);
}

TEST_F(AsyncDeathTest, CorruptedStreamEndsAClientWithTheDefaultCallback) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(tarvik_lib_error_register(c, nullptr, tarvik_lib_error), 0);
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  Bytes bad = tarsim::raw_message(5, 1, c->seq, Bytes(8, 0));
  const uint32_t huge = 4096;
  memcpy(&bad[8], &huge, 4);
  ASSERT_TRUE(kernel.push(tarvik_getsockfd(c), bad));
  EXPECT_EXIT(
      {
        real_endings();
        tarvik_async_event_process(c);
      },
      ::testing::ExitedWithCode(1), "");
  tarvik_close(c);
}

TEST_F(AsyncDeathTest, WithItsOwnCallbackTheClientSurvives) {
  tarvik_cookie *c = open_session();
  ASSERT_NE(c, nullptr);
  ASSERT_EQ(tarvik_set_async_info_nocontext(c, nullptr), 0);
  Bytes bad = tarsim::raw_message(5, 1, c->seq, Bytes(8, 0));
  const uint32_t huge = 4096;
  memcpy(&bad[8], &huge, 4);
  ASSERT_TRUE(kernel.push(tarvik_getsockfd(c), bad));
  real_endings();
  errno = 0;
  EXPECT_EQ(tarvik_async_event_process(c), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(log.count(TLK_LEVEL_FATAL), 1u);
  tarvik_close(c);
}

}  // namespace
}  // namespace tlktest
