#include "StallWatch.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using zelgate::GateClock;
using zelgate::StallWatch;

constexpr GateClock::time_point kBegin{1000s};

TEST(StallWatchTest, WhoTicksIsNotLate) {
  StallWatch watch(kBegin);
  watch.Tick(kBegin + 50ms);
  EXPECT_EQ(watch.AgeAtArrival(kBegin + 90ms), 0ms);
}

TEST(StallWatchTest, WhatComesBeforeTheFirstTickAfterAStallMayHaveWaitedAllOfIt) {
  StallWatch watch(kBegin);
  EXPECT_EQ(watch.AgeAtArrival(kBegin + 2s), 2s);
}

TEST(StallWatchTest, SoMayWhatComesRightAfterIt) {
  StallWatch watch(kBegin);
  watch.Tick(kBegin + 2s);
  EXPECT_EQ(watch.AgeAtArrival(kBegin + 2s + 100ms), 2s + 100ms);
}

TEST(StallWatchTest, ThenItIsOver) {
  StallWatch watch(kBegin);
  watch.Tick(kBegin + 2s);
  watch.Tick(kBegin + 2s + 250ms);
  EXPECT_EQ(watch.AgeAtArrival(kBegin + 2s + 300ms), 0ms);
}

}  // namespace
