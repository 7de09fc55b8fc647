// The library's locks and its condition variable, known to clang's thread-safety analysis, and the names that tell it
// which lock guards a member and which one a function wants held. They say nothing to other compilers.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#if defined(__clang__)
#define ZEL_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZEL_THREAD_ANNOTATION(x)
#endif

#define ZEL_GUARDED_BY(mutex) ZEL_THREAD_ANNOTATION(guarded_by(mutex))
#define ZEL_REQUIRES(mutex) ZEL_THREAD_ANNOTATION(requires_capability(mutex))
#define ZEL_EXCLUDES(mutex) ZEL_THREAD_ANNOTATION(locks_excluded(mutex))

namespace libzel {

class ZEL_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  void lock() ZEL_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() ZEL_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  bool try_lock() ZEL_THREAD_ANNOTATION(try_acquire_capability(true)) { return mutex_.try_lock(); }

 private:
  friend class CondVar;

  std::mutex mutex_;
};

class ZEL_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ZEL_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) {
    mutex_.lock();
  }
  ~MutexLock() ZEL_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// Waits for what a mutex guards. A wait may end without a notification, so it stands in a loop that asks for the
// condition. Waits with an end do not follow the wall clock.
class CondVar {
 public:
  using Clock = std::chrono::steady_clock;

  void Wait(Mutex& mutex) ZEL_REQUIRES(mutex) {
    std::unique_lock lock(mutex.mutex_, std::adopt_lock);
    condition_.wait(lock);
    (void)lock.release();
  }
  // False once the time is over.
  bool WaitUntil(Mutex& mutex, Clock::time_point end) ZEL_REQUIRES(mutex) {
    std::unique_lock lock(mutex.mutex_, std::adopt_lock);
    const auto status = condition_.wait_until(lock, end);
    (void)lock.release();
    return status == std::cv_status::no_timeout;
  }
  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

// A mutex that is not waited for longer than the caller has time:
//
//   if (!mutex.try_lock_for(timeoutMs)) return false;
//   const AdoptedLock lock(mutex);
//
// One that nobody waits for costs one change of the state to lock and one to unlock.
class ZEL_THREAD_ANNOTATION(capability("mutex")) TimedMutex {
 public:
  void lock() ZEL_THREAD_ANNOTATION(acquire_capability()) {
    if (TryLock()) return;
    const MutexLock lock(mutex_);
    while (!LockOrMark()) unlocked_.Wait(mutex_);
  }
  // False when it was not to be had in `timeoutMs`; 0 and less only look.
  bool try_lock_for(int64_t timeoutMs) ZEL_THREAD_ANNOTATION(try_acquire_capability(true)) {
    return TryLock() || (timeoutMs > 0 && LockBefore(timeoutMs));
  }
  void unlock() ZEL_THREAD_ANNOTATION(release_capability()) {
    if (state_.exchange(State::kUnlocked, std::memory_order_release) != State::kAwaited) return;
    const MutexLock lock(mutex_);  // whoever marked it waits by now
    unlocked_.NotifyOne();
  }

 private:
  enum class State { kUnlocked, kLocked, kAwaited };  // awaited: locked, and some thread may wait

  bool TryLock() {
    State unlocked = State::kUnlocked;
    return state_.compare_exchange_strong(unlocked, State::kLocked, std::memory_order_acquire,
                                          std::memory_order_relaxed);
  }
  // Locks it as one that may be awaited, since others may wait, too; false when it was locked, which is marked.
  bool LockOrMark() ZEL_REQUIRES(mutex_) {
    return state_.exchange(State::kAwaited, std::memory_order_acquire) == State::kUnlocked;
  }
  bool LockBefore(int64_t timeoutMs) {
    const auto end = CondVar::Clock::now() + std::chrono::milliseconds(timeoutMs);
    const MutexLock lock(mutex_);
    while (!LockOrMark()) {
      if (!unlocked_.WaitUntil(mutex_, end)) return LockOrMark();
    }
    return true;
  }

  std::atomic<State> state_{State::kUnlocked};
  Mutex mutex_;
  CondVar unlocked_;
};

// Unlocks a TimedMutex that the caller has got.
class ZEL_THREAD_ANNOTATION(scoped_lockable) AdoptedLock {
 public:
  explicit AdoptedLock(TimedMutex& mutex) ZEL_REQUIRES(mutex) : mutex_(mutex) {}
  ~AdoptedLock() ZEL_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  AdoptedLock(const AdoptedLock&) = delete;
  AdoptedLock& operator=(const AdoptedLock&) = delete;

 private:
  TimedMutex& mutex_;
};

}  // namespace libzel
