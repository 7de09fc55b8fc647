#include "utils/Stopwatch.h"

#include <gtest/gtest.h>

namespace libzel {
namespace {

void WaitUntilItShows(const Stopwatch& watch, double ms) {
  while (watch.ElapsedMs() < ms) {
  }
}

TEST(StopwatchTest, RunsFromItsMaking) {
  const Stopwatch watch;
  const double early = watch.ElapsedMs();
  EXPECT_GE(early, 0);
  WaitUntilItShows(watch, early + 2);
}

TEST(StopwatchTest, SecondsAreAThousandMilliseconds) {
  const Stopwatch watch;
  WaitUntilItShows(watch, 5);
  const double before = watch.ElapsedMs();
  const double sec = watch.ElapsedSec();
  EXPECT_GE(sec * 1000, before);
  EXPECT_LE(sec * 1000, watch.ElapsedMs());
}

TEST(StopwatchTest, RestartBeginsAnew) {
  const Stopwatch older;
  Stopwatch watch = older;
  WaitUntilItShows(watch, 5);
  watch.Restart();
  const double sinceRestart = watch.ElapsedMs();
  EXPECT_LE(sinceRestart + 5, older.ElapsedMs());
}

}  // namespace
}  // namespace libzel
