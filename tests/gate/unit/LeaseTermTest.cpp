#include "LeaseTerm.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using zelgate::GateClock;
using zelgate::LeaseTerm;
using zelgate::LeaseWatch;

constexpr GateClock::time_point kStart{1000s};

TEST(LeaseTermTest, ATermThatWasNeverRenewedIsNotValid) { EXPECT_FALSE(LeaseTerm().IsValid(kStart)); }

TEST(LeaseTermTest, ItHoldsThreeSecondsFromTheAsking) {
  LeaseTerm term;
  term.Renew(kStart);
  EXPECT_TRUE(term.IsValid(kStart + 2999ms));
  EXPECT_FALSE(term.IsValid(kStart + 3000ms));
}

TEST(LeaseTermTest, ItTellsWhatIsLeft) {
  LeaseTerm term;
  term.Renew(kStart);
  EXPECT_EQ(term.Left(kStart + 1000ms), 2000ms);
  EXPECT_EQ(term.Left(kStart + 5000ms), 0ms);
}

TEST(LeaseTermTest, AnEndedTermIsNotValid) {
  LeaseTerm term;
  term.Renew(kStart);
  term.End();
  EXPECT_FALSE(term.IsValid(kStart));
}

TEST(LeaseTermTest, TheHolderStopsBeforeOthersBegin) { EXPECT_LT(zelgate::kHolds, zelgate::kOverAfter); }

TEST(LeaseTermTest, TheClockNeverGoesBack) {
  const auto first = GateClock::now();
  EXPECT_LE(first, GateClock::now());
}

TEST(LeaseWatchTest, AKeyIsOverFourSecondsAfterItsLastChange) {
  LeaseWatch watch;
  watch.See("a", 1, kStart);
  EXPECT_TRUE(watch.Over(kStart + 3999ms).empty());
  EXPECT_EQ(watch.Over(kStart + 4000ms), std::vector<std::string>{"a"});
}

TEST(LeaseWatchTest, AChangeBeginsAnew) {
  LeaseWatch watch;
  watch.See("a", 1, kStart);
  watch.See("a", 2, kStart + 3s);
  EXPECT_TRUE(watch.Over(kStart + 6s).empty());
  EXPECT_EQ(watch.RevisionOf("a"), 2U);
}

TEST(LeaseWatchTest, TheSameRevisionIsNoChange) {
  LeaseWatch watch;
  watch.See("a", 1, kStart);
  watch.See("a", 1, kStart + 3s);
  EXPECT_EQ(watch.Over(kStart + 4s).size(), 1U);
}

TEST(LeaseWatchTest, AForgottenKeyIsNotOver) {
  LeaseWatch watch;
  watch.See("a", 1, kStart);
  watch.Forget("a");
  EXPECT_TRUE(watch.Over(kStart + 1h).empty());
  EXPECT_FALSE(watch.RevisionOf("a"));
}

}  // namespace
