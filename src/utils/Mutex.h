// Names for clang's thread-safety analysis: which lock guards a member, which one a function wants held. They say
// nothing to other compilers.
#pragma once

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

class ZEL_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ZEL_THREAD_ANNOTATION(acquire_capability(mutex)) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() ZEL_THREAD_ANNOTATION(release_capability()) { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

}  // namespace libzel
