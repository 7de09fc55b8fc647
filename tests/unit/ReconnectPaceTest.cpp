#include "zelclient/ReconnectPace.h"

#include <gtest/gtest.h>

namespace libzel {
namespace {

class ReconnectPaceTest : public testing::Test {
 protected:
  double PauseBehindFailures(int failures, uint32_t intervalSec = 2) {
    for (int i = 0; i < failures; ++i) pace.NoteAttempt(false);
    return pace.PauseSec(intervalSec, options);
  }

  InstanceOptions options;
  ReconnectPace pace;
};

TEST_F(ReconnectPaceTest, ByTheLetterAPauseIsTheInterval) {
  EXPECT_EQ(pace.PauseSec(2, options), 2);
  EXPECT_EQ(PauseBehindFailures(10), 2);
  EXPECT_EQ(PauseBehindFailures(10, 0), 0);
}

TEST_F(ReconnectPaceTest, PausesDoubleUpToTheMost) {
  options.reconnectMaxSec.Set(60);
  EXPECT_EQ(pace.PauseSec(2, options), 2);
  for (const double expected : {4, 8, 16, 32, 60, 60}) EXPECT_EQ(PauseBehindFailures(1), expected);
}

TEST_F(ReconnectPaceTest, AnIntervalOf0DoublesToo) {
  options.reconnectMaxSec.Set(60);
  EXPECT_EQ(pace.PauseSec(0, options), 0);
  for (const double expected : {1, 2, 4}) EXPECT_EQ(PauseBehindFailures(1, 0), expected);
}

TEST_F(ReconnectPaceTest, AnIntervalAboveTheMostStays) {
  options.reconnectMaxSec.Set(60);
  EXPECT_EQ(PauseBehindFailures(3, 100), 100);
}

TEST_F(ReconnectPaceTest, FailuresWithoutEndAreNoMatter) {
  options.reconnectMaxSec.Set(INT32_MAX);
  EXPECT_EQ(PauseBehindFailures(10000), INT32_MAX);
}

TEST_F(ReconnectPaceTest, ASuccessBeginsAnew) {
  options.reconnectMaxSec.Set(60);
  EXPECT_EQ(PauseBehindFailures(5), 60);
  pace.NoteAttempt(true);
  EXPECT_EQ(pace.PauseSec(2, options), 2);
}

TEST_F(ReconnectPaceTest, PausesAreSpreadAtRandom) {
  options.jitterPercent.Set(50);
  double least = 10, most = 0;
  for (int i = 0; i < 1000; ++i) {
    const double pause = PauseBehindFailures(1, 10) - 10;
    least = std::min(least, pause);
    most = std::max(most, pause);
  }
  EXPECT_GE(least, 0);
  EXPECT_LE(most, 5);
  EXPECT_GT(most - least, 4);
}

TEST_F(ReconnectPaceTest, OfAPauseItIsTheSameWheneverItIsAsked) {
  options.jitterPercent.Set(100);
  EXPECT_EQ(pace.PauseSec(10, options), pace.PauseSec(10, options));
}

TEST_F(ReconnectPaceTest, ConnectionsDoNotDrawTheSame) {
  options.jitterPercent.Set(100);
  const ReconnectPace others[20];
  int same = 0;
  for (const ReconnectPace& other : others) {
    same += other.PauseSec(1000, options) == pace.PauseSec(1000, options) ? 1 : 0;
  }
  EXPECT_LT(same, 2);
}

}  // namespace
}  // namespace libzel
