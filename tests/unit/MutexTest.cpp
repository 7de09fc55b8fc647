#include "utils/Mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "support/Recorders.h"

namespace libzel {
namespace {

// `if (!mutex.try_lock_for(...)) FAIL();` is ASSERT_TRUE in words that the thread-safety
// analysis understands.

TEST(TimedMutexTest, IsHeldByOne) {
  TimedMutex mutex;
  if (!mutex.try_lock_for(0)) FAIL();
  std::thread other([&] { EXPECT_FALSE(mutex.try_lock_for(0)); });
  other.join();
  mutex.unlock();
}

TEST(TimedMutexTest, NegativeTimesOnlyLook) {
  TimedMutex mutex;
  if (!mutex.try_lock_for(-5)) FAIL();
  std::thread other([&] { EXPECT_FALSE(mutex.try_lock_for(-5)); });
  other.join();
  mutex.unlock();
}

TEST(TimedMutexTest, IsWaitedForNoLongerThanAsked) {
  TimedMutex mutex;
  mutex.lock();
  std::thread other([&] {
    const zeltest::ElapsedTime time;
    EXPECT_FALSE(mutex.try_lock_for(50));
    EXPECT_GE(time.Ms(), 49);
    EXPECT_LT(time.AwakeMs(), 3000);
  });
  other.join();
  mutex.unlock();
}

TEST(TimedMutexTest, IsHandedOnWhenItIsUnlocked) {
  TimedMutex mutex;
  mutex.lock();
  std::thread other([&] {
    if (!mutex.try_lock_for(10000)) FAIL();
    const AdoptedLock lock(mutex);
  });
  mutex.unlock();
  other.join();
  if (!mutex.try_lock_for(0)) FAIL();
  mutex.unlock();
}

TEST(TimedMutexTest, KeepsThreadsApart) {
  TimedMutex mutex;
  int count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 1000; ++k) {
        mutex.lock();
        const AdoptedLock lock(mutex);
        ++count;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, 4000);
}

TEST(TimedMutexTest, IsHandedOnWhenAnotherGaveUpWaiting) {
  TimedMutex mutex;
  mutex.lock();
  std::thread patient([&] {
    mutex.lock();
    const AdoptedLock lock(mutex);
  });
  std::thread hasty([&] { EXPECT_FALSE(mutex.try_lock_for(20)); });
  hasty.join();
  mutex.unlock();
  patient.join();
}

TEST(TimedMutexTest, KeepsThreadsApartThatWaitForDifferentTimes) {
  TimedMutex mutex;
  int count = 0;
  std::atomic<int> given{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&, i] {
      for (int k = 0; k < 1000; ++k) {
        if (!mutex.try_lock_for(i)) continue;
        const AdoptedLock lock(mutex);
        ++count;
        ++given;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(count, given);
}

TEST(CondVarTest, WakesTheOneThatWaits) {
  Mutex mutex;
  CondVar changed;
  bool isSet = false;
  std::thread waiter([&] {
    const MutexLock lock(mutex);
    while (!isSet) changed.Wait(mutex);
  });
  {
    const MutexLock lock(mutex);
    isSet = true;
  }
  changed.NotifyAll();
  waiter.join();
}

TEST(CondVarTest, WaitsNoLongerThanAsked) {
  Mutex mutex;
  CondVar changed;
  const auto end = CondVar::Clock::now() + std::chrono::milliseconds(30);
  const MutexLock lock(mutex);
  while (changed.WaitUntil(mutex, end)) {
  }
  EXPECT_GE(CondVar::Clock::now(), end);
}

}  // namespace
}  // namespace libzel
