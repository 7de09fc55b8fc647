// LIBZELX_JITTER_PERCENT: whether connections that lose their server together call it together.
#include <gtest/gtest.h>
#include <libzel/libzelx.h>

#include <algorithm>
#include <chrono>
#include <vector>

#include "support/OptionLink.h"

namespace zeltest {
namespace {

constexpr uint32_t kIntervalSec = 1;
constexpr int64_t kIntervalMs = kIntervalSec * 1000;
constexpr size_t kLinks = 16;

class ReconnectJitterTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(StartLibrary().result, 0); }

  // How long each connection pauses between its first two calls of a server that has gone, sorted.
  static std::vector<int64_t> PausesMs(int64_t jitterPercent) {
    std::vector<OptionLink> links(kLinks);
    for (OptionLink& link : links) {
      link.Set(LIBZELX_JITTER_PERCENT, jitterPercent);
      EXPECT_EQ(libzel_reconnect_delay_set(link.instance, kIntervalSec), 0);
      link.server.StopListening();
      link.Start();
      link.peer.Close();
    }
    std::vector<int64_t> pausesMs;
    for (const OptionLink& link : links) pausesMs.push_back(FirstPauseMs(link.link.instance.events));
    std::sort(pausesMs.begin(), pausesMs.end());
    return pausesMs;
  }

 private:
  static int64_t FirstPauseMs(const EventRecorder& events) {
    EXPECT_TRUE(events.AwaitEvent(ZEL_EVENT_FAILED, 2));
    std::vector<std::chrono::steady_clock::time_point> failures;
    for (const SeenEvent& seen : events.All()) {
      if (seen.event == ZEL_EVENT_FAILED) failures.push_back(seen.when);
    }
    if (failures.size() < 2) return 0;
    return std::chrono::duration_cast<std::chrono::milliseconds>(failures[1] - failures[0]).count();
  }
};

TEST_F(ReconnectJitterTest, ByTheLetterTheyCallTogether) {
  const std::vector<int64_t> pausesMs = PausesMs(0);
  EXPECT_GE(pausesMs.front(), kIntervalMs - 10);
  EXPECT_LT(pausesMs[kLinks / 2], kIntervalMs * 13 / 10);
}

TEST_F(ReconnectJitterTest, OtherwiseTheirCallsAreSpread) {
  const std::vector<int64_t> pausesMs = PausesMs(100);
  EXPECT_GE(pausesMs.front(), kIntervalMs - 10);
  EXPECT_GT(pausesMs.back(), kIntervalMs * 14 / 10);
}

}  // namespace
}  // namespace zeltest
