#include "zelcomm/ZelScan.h"

#include <gtest/gtest.h>

#include <atomic>
#include <system_error>
#include <thread>

#include "support/CapturedLog.h"
#include "support/Recorders.h"

namespace libzel {
namespace {

// Its thread has nothing to do but to be there.
class IdleScan : public CZelScan {
 public:
  ~IdleScan() override {
    if (runs_ > 0) (void)stop();
  }

  int32_t svc() override {
    ++runs_;
    while (!IsStopped() && !mayEnd_) std::this_thread::yield();
    return 0;
  }

  int runs() const { return runs_; }
  void End() { mayEnd_ = true; }

 private:
  std::atomic<int> runs_{0};
  std::atomic<bool> mayEnd_{false};
};

class SelfStoppingScan : public CZelScan {
 public:
  int32_t svc() override {
    try {
      (void)stop();
    } catch (const std::system_error& fault) {
      deadlock_ = fault.code() == std::errc::resource_deadlock_would_occur;
    }
    return 0;
  }
  bool deadlock() const { return deadlock_; }

 private:
  std::atomic<bool> deadlock_{false};
};

TEST(ZelScanTest, StartRunsTheBodyOnAThreadOfItsOwn) {
  IdleScan scan;
  EXPECT_EQ(scan.start(), 0);
  EXPECT_TRUE(zeltest::Eventually([&] { return scan.runs() == 1; }));
}

TEST(ZelScanTest, ASecondStartOnlyLogs) {
  IdleScan scan;
  const zeltest::CapturedLog log;
  EXPECT_EQ(scan.start(), 0);
  ASSERT_TRUE(zeltest::Eventually([&] { return scan.runs() == 1; }));
  EXPECT_EQ(scan.start(), 0);
  EXPECT_EQ(log.Count("INFO", "ZelScan Thread Start"), 2);
  EXPECT_EQ(log.FunctionOf("ZelScan Thread Start"), "CZelScan::start");
  EXPECT_EQ(scan.stop(), 0);
  EXPECT_EQ(scan.runs(), 1);
}

TEST(ZelScanTest, StopWithoutAThreadIsFine) {
  IdleScan scan;
  const zeltest::CapturedLog log;
  EXPECT_EQ(scan.stop(), 0);
  EXPECT_TRUE(log.Has("INFO", "ZelScan thread stop"));
}

TEST(ZelScanTest, AStoppedScanStartsAgain) {
  IdleScan scan;
  for (int round = 1; round <= 3; ++round) {
    EXPECT_EQ(scan.start(), 0);
    ASSERT_TRUE(zeltest::Eventually([&] { return scan.runs() == round; }));
    EXPECT_EQ(scan.stop(), 0);
  }
}

TEST(ZelScanTest, AThreadThatEndedByItselfIsHeldUntilStop) {
  IdleScan scan;
  EXPECT_EQ(scan.start(), 0);
  ASSERT_TRUE(zeltest::Eventually([&] { return scan.runs() == 1; }));
  scan.End();
  EXPECT_EQ(scan.start(), 0);
  EXPECT_EQ(scan.stop(), 0);
  EXPECT_EQ(scan.runs(), 1);
}

TEST(ZelScanTest, StopOnTheScanThreadWouldWaitForItself) {
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
  GTEST_SKIP() << "the sanitizer itself does not survive a thread that joins itself";
#endif
#endif
  SelfStoppingScan scan;
  EXPECT_EQ(scan.start(), 0);
  EXPECT_TRUE(zeltest::Eventually([&] { return scan.deadlock(); }));
  EXPECT_EQ(scan.stop(), 0);
}

}  // namespace
}  // namespace libzel
