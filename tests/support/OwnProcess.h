// For what happens once in a process, or ends it: a part of a test that runs in a process of its own.
//
//   IN_OWN_PROCESS({ ... });   the expectations in the braces are the test's; what they print goes to
//   standard error EXPECT_ENDS_PROCESS({ ... });   the braces must end the process in the manner of a fault
//   that nobody catches
//
// The test's fixture is set up there too, so that it must not start the library itself.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#ifndef _WIN32
#include <sys/wait.h>
#include <csignal>
#endif

namespace zeltest {

// Starts the program anew for the part, in place of forking: the library has threads.
inline void UseFreshProcesses() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

[[noreturn]] inline void EndOwnProcess() {
  const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int i = 0; i < result.total_part_count(); ++i) {
    const testing::TestPartResult& part = result.GetTestPartResult(i);
    if (part.failed()) (void)fprintf(stderr, "line %d: %s\n", part.line_number(), part.message());
  }
  std::exit(result.Failed() ? 1 : 0);
}

#ifdef _WIN32
inline bool EndedByAbort(int status) { return status == 3; }
#else
inline bool EndedByAbort(int status) { return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT; }
#endif

}  // namespace zeltest

#define IN_OWN_PROCESS(...)       \
  EXPECT_EXIT(                    \
      {                           \
        [&] __VA_ARGS__();        \
        zeltest::EndOwnProcess(); \
      },                          \
      testing::ExitedWithCode(0), "")

#define EXPECT_ENDS_PROCESS(...)  \
  EXPECT_EXIT(                    \
      {                           \
        [&] __VA_ARGS__();        \
        zeltest::EndOwnProcess(); \
      },                          \
      zeltest::EndedByAbort, "")
