#include "utils/Thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <system_error>
#include <thread>
#include <vector>

#include "support/Recorders.h"

namespace libzel {
namespace {

class ThreadTest : public testing::Test {
 protected:
  Thread thread;
  std::atomic<int> runs{0};
};

TEST_F(ThreadTest, RunsItsBodyOnce) {
  EXPECT_TRUE(thread.Start({"test", [&] { ++runs; }, {}}));
  thread.Join();
  EXPECT_EQ(runs, 1);
}

TEST_F(ThreadTest, StartsOnceHoweverManyAsk) {
  std::atomic<bool> goOn{false};
  std::atomic<int> started{0};
  std::vector<std::thread> askers;
  for (int i = 0; i < 8; ++i) {
    askers.emplace_back([&] {
      const bool mine = thread.Start({"test",
                                      [&] {
                                        ++runs;
                                        (void)zeltest::Eventually([&] { return goOn.load(); });
                                      },
                                      {}});
      if (mine) ++started;
    });
  }
  for (std::thread& asker : askers) asker.join();
  EXPECT_EQ(started, 1);
  goOn = true;
  thread.Join();
  EXPECT_EQ(runs, 1);
}

TEST_F(ThreadTest, IsHeldUntilItIsJoined) {
  EXPECT_FALSE(thread.IsHeld());
  EXPECT_TRUE(thread.Start({"test", [] {}, {}}));
  EXPECT_TRUE(thread.IsHeld());
  thread.Join();
  EXPECT_FALSE(thread.IsHeld());
}

TEST_F(ThreadTest, StartsAgainAfterAJoin) {
  for (int i = 1; i <= 3; ++i) {
    EXPECT_TRUE(thread.Start({"test", [&] { ++runs; }, {}}));
    thread.Join();
    EXPECT_EQ(runs, i);
  }
}

TEST_F(ThreadTest, JoinWithoutAThreadReturns) { thread.Join(); }

TEST_F(ThreadTest, ManyMayJoin) {
  std::atomic<bool> goOn{false};
  EXPECT_TRUE(thread.Start({"test", [&] { (void)zeltest::Eventually([&] { return goOn.load(); }); }, {}}));
  std::vector<std::thread> joiners;
  for (int i = 0; i < 4; ++i) {
    joiners.emplace_back([&] {
      thread.Join();
      EXPECT_TRUE(goOn);
    });
  }
  goOn = true;
  for (std::thread& joiner : joiners) joiner.join();
  EXPECT_FALSE(thread.IsHeld());
}

TEST_F(ThreadTest, ThatJoinsItselfThrows) {
  std::atomic<bool> threw{false};
  EXPECT_TRUE(thread.Start({"test",
                            [&] {
                              try {
                                thread.Join();
                              } catch (const std::system_error& error) {
                                threw = error.code() == std::errc::resource_deadlock_would_occur;
                              }
                            },
                            {}}));
  thread.Join();
  EXPECT_TRUE(threw);
}

TEST_F(ThreadTest, BodyBeginsAnewAfterItRanOutOfMemory) {
  std::atomic<int> told{0};
  EXPECT_TRUE(thread.Start({"test",
                            [&] {
                              if (++runs < 3) throw std::bad_alloc();
                            },
                            [&] { ++told; }}));
  thread.Join();
  EXPECT_EQ(runs, 3);
  EXPECT_EQ(told, 2);
}

void RunAndThrow(std::function<void()> body, std::function<void()> onNoMemory) {
  Thread thread;
  (void)thread.Start({"test", std::move(body), std::move(onNoMemory)});
  thread.Join();
}

TEST_F(ThreadTest, OutOfMemoryEndsTheProcessWhenNobodyIsToldOfIt) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(RunAndThrow([] { throw std::bad_alloc(); }, {}), "");
}

TEST_F(ThreadTest, EveryOtherExceptionEndsTheProcess) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(RunAndThrow([] { throw std::runtime_error("fault"); }, [] {}), "");
}

}  // namespace
}  // namespace libzel
