#include "zelclient/ConnectAttempts.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace libzel {
namespace {

using Attempt = ConnectAttempts::Attempt;

class ConnectAttemptsTest : public testing::Test {
 protected:
  bool MayBeginPaced(uint32_t intervalSec) {
    Attempt attempt(attempts);
    return attempt.BeginPaced(intervalSec).has_value();
  }

  ConnectAttempts attempts;
};

TEST_F(ConnectAttemptsTest, ThreadIsInItsOwnAttemptOnly) {
  EXPECT_FALSE(attempts.IsInOne());
  {
    Attempt attempt(attempts);
    EXPECT_FALSE(attempts.IsInOne());
    attempt.Begin();
    EXPECT_TRUE(attempts.IsInOne());
    std::thread other([&] { EXPECT_FALSE(attempts.IsInOne()); });
    other.join();
  }
  EXPECT_FALSE(attempts.IsInOne());
}

TEST_F(ConnectAttemptsTest, PacedOneWaitsForTheInterval) {
  EXPECT_FALSE(MayBeginPaced(3600));
  EXPECT_TRUE(MayBeginPaced(0));
}

TEST_F(ConnectAttemptsTest, PacedOneTellsTheTimeSinceTheLast) {
  Attempt first(attempts);
  const auto elapsed = first.BeginPaced(0);
  ASSERT_TRUE(elapsed);
  EXPECT_GT(*elapsed, 0.0);
}

TEST_F(ConnectAttemptsTest, PacedOneDoesNotBeginBesideAnother) {
  Attempt attempt(attempts);
  attempt.Begin();
  EXPECT_FALSE(MayBeginPaced(0));
  std::thread other([&] { EXPECT_FALSE(MayBeginPaced(0)); });
  other.join();
}

TEST_F(ConnectAttemptsTest, RefusedOneDoesNotRestartTheTimer) {
  Attempt attempt(attempts);
  EXPECT_FALSE(attempt.BeginPaced(3600));
  EXPECT_FALSE(attempts.IsInOne());
  EXPECT_TRUE(attempt.BeginPaced(0));
  EXPECT_TRUE(attempts.IsInOne());
}

TEST_F(ConnectAttemptsTest, AttemptsEndInAnyOrder) {
  auto first = std::make_unique<Attempt>(attempts);
  auto second = std::make_unique<Attempt>(attempts);
  auto third = std::make_unique<Attempt>(attempts);
  for (auto* attempt : {&first, &second, &third}) (*attempt)->Begin();
  second.reset();
  EXPECT_TRUE(attempts.IsInOne());
  third.reset();
  first.reset();
  EXPECT_FALSE(attempts.IsInOne());
  EXPECT_TRUE(MayBeginPaced(0));
}

}  // namespace
}  // namespace libzel
