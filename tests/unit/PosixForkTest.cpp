// Children that a process with threads forks off.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "libzel/Guard.h"
#include "support/CapturedLog.h"
#include "support/ForkedChild.h"
#include "utils/Fork.h"

namespace libzel {
namespace {

using zeltest::StatusOfChild;

TEST(PosixForkTest, AChildIsToldFromItsParent) {
  EXPECT_FALSE(IsForkedChild());
  EXPECT_EQ(StatusOfChild([] { return IsForkedChild() ? 1 : 0; }), 1);
  EXPECT_FALSE(IsForkedChild());
}

TEST(PosixForkTest, AChildsChildIsOneToo) {
  EXPECT_FALSE(IsForkedChild());
  EXPECT_EQ(StatusOfChild([] { return StatusOfChild([] { return IsForkedChild() ? 1 : 0; }); }), 1);
}

TEST(PosixForkTest, AGuardedBodyDoesNotRunInAChild) {
  EXPECT_FALSE(IsForkedChild());
  const int status = StatusOfChild([] {
    const int32_t result = Guard(kTheCode, []() -> int32_t { _exit(3); });
    return result == 8193 && GetErrno() == 8193 ? 0 : 1;
  });
  EXPECT_EQ(status, 0);
}

TEST(PosixForkTest, TheLogIsFreeInEveryChild) {
  const zeltest::CapturedLog log;
  EXPECT_FALSE(IsForkedChild());
  std::atomic<bool> done{false};
  std::thread logger([&] {
    while (!done) ZEL_LOG(kError, "line");
  });
  int hung = 0;
  for (int i = 0; i < 200; ++i) {
    hung += StatusOfChild([] {
      ZEL_LOG(kError, "line of a child");
      return 0;
    });
  }
  done = true;
  logger.join();
  EXPECT_EQ(hung, 0);
}

TEST(PosixForkTest, TheLogIsFreeInTheParentToo) {
  const zeltest::CapturedLog log;
  EXPECT_FALSE(IsForkedChild());
  for (int i = 0; i < 3; ++i) EXPECT_EQ(StatusOfChild([] { return 0; }), 0);
  ZEL_LOG(kError, "line behind a fork");
  EXPECT_TRUE(log.Has("ERROR", "line behind a fork"));
}

}  // namespace
}  // namespace libzel
