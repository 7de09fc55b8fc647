// libzel_init from several threads at once, each time in a fresh process.
#include <gtest/gtest.h>
#include <libzel/libzel.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "support/OwnProcess.h"

namespace zeltest {
namespace {

class InitTest : public testing::TestWithParam<int> {
 protected:
  void SetUp() override { UseFreshProcesses(); }

  static void InitAtOnce() {
    std::atomic<int> waiting{GetParam()};
    std::vector<std::thread> threads;
    for (int i = 0; i < GetParam(); ++i) {
      threads.emplace_back([&] {
        --waiting;
        while (waiting > 0) {
        }
        EXPECT_EQ(libzel_init(), 0);
        EXPECT_EQ(libzel_get_errno(), 0);
      });
    }
    for (std::thread& thread : threads) thread.join();
  }

  static constexpr int kProcesses = 5;
};

TEST_P(InitTest, OfSeveralThreadsEndsWell) {
  for (int i = 0; i < kProcesses; ++i) {
    IN_OWN_PROCESS({
      const CapturedLog log;
      InitAtOnce();
    });
  }
}

TEST_P(InitTest, OfSeveralThreadsStartsDiscoveryOnce) {
  IN_OWN_PROCESS({
    const CapturedLog log;
    InitAtOnce();
    EXPECT_TRUE(log.Await("DEBUG", "Zel Scan Client Start"));
    EXPECT_EQ(log.Count("DEBUG", "Zel Scan Client Start"), 1);
  });
}

INSTANTIATE_TEST_SUITE_P(Threads, InitTest, testing::Values(2, 4, 8));

}  // namespace
}  // namespace zeltest
