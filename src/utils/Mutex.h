// Names for clang's thread-safety analysis: which lock guards a member, which one a function wants held. They say
// nothing to other compilers.
#pragma once

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

// std::mutex and its guard, known to the analysis.
class ZEL_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  void lock() ZEL_THREAD_ANNOTATION(acquire_capability()) { mutex_.lock(); }
  void unlock() ZEL_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  bool try_lock() ZEL_THREAD_ANNOTATION(try_acquire_capability(true)) { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

// A mutex that is not waited for longer than the caller has time. Its waits do not follow the wall clock.
class ZEL_THREAD_ANNOTATION(capability("mutex")) TimedMutex {
 public:
  // False when it was not to be had in `timeoutMs`; 0 and less only look.
  bool try_lock_for(int64_t timeoutMs) ZEL_THREAD_ANNOTATION(try_acquire_capability(true)) {
    std::unique_lock lock(mutex_);
    if (!unlocked_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return !isLocked_; }))
      return false;
    isLocked_ = true;
    return true;
  }
  void unlock() ZEL_THREAD_ANNOTATION(release_capability()) {
    {
      const std::lock_guard lock(mutex_);
      isLocked_ = false;
    }
    unlocked_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable unlocked_;
  bool isLocked_ = false;
};

// Holds a TimedMutex if it was to be had in time: ask before touching what it guards.
class TimedLock {
 public:
  TimedLock(TimedMutex& mutex, int64_t timeoutMs) : mutex_(mutex), isHeld_(mutex.try_lock_for(timeoutMs)) {}
  ~TimedLock() {
    if (isHeld_) mutex_.unlock();
  }
  TimedLock(const TimedLock&) = delete;
  TimedLock& operator=(const TimedLock&) = delete;
  explicit operator bool() const { return isHeld_; }

 private:
  TimedMutex& mutex_;
  const bool isHeld_;
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

}  // namespace libzel
