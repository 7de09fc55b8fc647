#include "zelcomm/SpinChoice.h"

#include <gtest/gtest.h>

namespace libzel {
namespace {

// Waits that take as long as they are told to, of which it counts those that look again and again.
class Waits {
 public:
  int SpunOf(int count, int64_t spinNs, int64_t sleepNs) {
    int spun = 0;
    for (int i = 0; i < count; ++i) {
      const bool spins = choice_.Next();
      choice_.Learn(spins, spins ? spinNs : sleepNs);
      if (spins) ++spun;
    }
    return spun;
  }

 private:
  SpinChoice choice_;
};

constexpr int kMost = SpinChoice::kMostWaitsBetweenTrials + SpinChoice::kTrialWaits;

TEST(SpinChoiceTest, LooksFromTheStartAndTriesSleepingEverLessOften) {
  Waits waits;
  EXPECT_EQ(waits.SpunOf(32, 15'000, 25'000), 32);
  EXPECT_EQ(waits.SpunOf(32, 15'000, 25'000), 0);
  EXPECT_EQ(waits.SpunOf(64, 15'000, 25'000), 64);
  EXPECT_EQ(waits.SpunOf(32, 15'000, 25'000), 0);
  EXPECT_EQ(waits.SpunOf(128, 15'000, 25'000), 128);
  (void)waits.SpunOf(20 * kMost, 15'000, 25'000);
  EXPECT_EQ(waits.SpunOf(kMost, 15'000, 25'000), kMost - 32);
}

TEST(SpinChoiceTest, SleepsWhenLookingTakesLonger) {
  Waits waits;
  (void)waits.SpunOf(64, 25'000, 9'000);
  EXPECT_EQ(waits.SpunOf(32, 25'000, 9'000), 0);
}

TEST(SpinChoiceTest, SleepsWhenLookingSavesNextToNothing) {
  Waits waits;
  (void)waits.SpunOf(64, 95'000, 100'000);
  EXPECT_EQ(waits.SpunOf(32, 95'000, 100'000), 0);
}

TEST(SpinChoiceTest, SleepsWhenThePeerTakesLongEitherWay) {
  Waits waits;
  (void)waits.SpunOf(64, 5'000'000, 9'000'000);
  EXPECT_EQ(waits.SpunOf(32, 5'000'000, 9'000'000), 0);
}

TEST(SpinChoiceTest, FollowsAMachineThatBecomesBusyAndQuietAgain) {
  Waits waits;
  (void)waits.SpunOf(20 * kMost, 15'000, 25'000);
  (void)waits.SpunOf(2 * kMost, 18'000, 9'000);
  EXPECT_LE(waits.SpunOf(kMost, 18'000, 9'000), kMost / 8);
  (void)waits.SpunOf(20 * kMost, 18'000, 9'000);
  (void)waits.SpunOf(2 * kMost, 15'000, 25'000);
  EXPECT_GE(waits.SpunOf(kMost, 15'000, 25'000), kMost * 7 / 8);
}

TEST(SpinChoiceTest, OneVeryLongWaitCountsForTwoMilliseconds) {
  Waits waits;
  (void)waits.SpunOf(31, 15'000, 150'000);
  EXPECT_EQ(waits.SpunOf(1, 900'000'000, 900'000'000), 1);
  (void)waits.SpunOf(32, 15'000, 150'000);
  EXPECT_EQ(waits.SpunOf(1, 15'000, 150'000), 1);
}

TEST(SpinChoiceTest, WaitLooksFirstAndSleepsLast) {
  SpinChoice choice;
  bool slept = false;
  const auto sleep = [&] { return slept = true; };
  EXPECT_TRUE(choice.Wait(
      1000, [] { return true; }, sleep));
  EXPECT_FALSE(slept);
  EXPECT_TRUE(choice.Wait(
      1000, [] { return false; }, sleep));
  EXPECT_TRUE(slept);
}

TEST(SpinChoiceTest, WaitWithoutATimeLooksOnceAndAsksTheSleep) {
  SpinChoice choice;
  int looks = 0;
  EXPECT_FALSE(choice.Wait(
      -5, [&] { return ++looks < 0; }, [] { return false; }));
  EXPECT_EQ(looks, 1);
}

}  // namespace
}  // namespace libzel
