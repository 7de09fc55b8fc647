#include "zelcomm/CancelToken.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/ElapsedTime.h"

namespace libzel {
namespace {

class CancelTokenTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(platform::StartSockets(), 0); }

  bool IsWoken(int64_t timeoutMs) { return platform::WaitReadable(token.waker().handle(), timeoutMs) == 1; }

  CancelToken token;
};

TEST_F(CancelTokenTest, IsNotCancelledAtFirst) {
  EXPECT_FALSE(token.IsCancelled());
  EXPECT_FALSE(IsWoken(0));
}

TEST_F(CancelTokenTest, WakesEveryWaitFromThenOn) {
  token.Cancel();
  EXPECT_TRUE(token.IsCancelled());
  EXPECT_TRUE(IsWoken(0));
  EXPECT_TRUE(IsWoken(0));
}

TEST_F(CancelTokenTest, WakesAWaitThatHasBegun) {
  std::thread canceller([&] { token.Cancel(); });
  const zeltest::ElapsedTime time;
  EXPECT_TRUE(IsWoken(10000));
  EXPECT_LT(time.AwakeMs(), 5000);
  canceller.join();
}

}  // namespace
}  // namespace libzel
