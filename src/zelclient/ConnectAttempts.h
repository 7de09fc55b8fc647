// The attempts to connect that are under way on one connection, and the pace of those that it makes by itself. An
// attempt lasts from its first event to its last re-subscription. Any thread may use it.
#pragma once

#include <cstdint>
#include <optional>
#include <thread>

#include "utils/Mutex.h"
#include "utils/Stopwatch.h"

namespace libzel {

class ConnectAttempts {
 public:
  // One thread's attempt, for as long as it lives.
  class Attempt {
   public:
    explicit Attempt(ConnectAttempts& attempts) : attempts_(attempts) {}
    ~Attempt() { attempts_.End(*this); }
    Attempt(const Attempt&) = delete;
    Attempt& operator=(const Attempt&) = delete;

    void Begin() { attempts_.Begin(*this); }
    // Begins if no attempt is under way and more than the pause has passed since the last one that began here. Gives
    // the seconds since then.
    std::optional<double> BeginPaced(double pauseSec) { return attempts_.BeginPaced(*this, pauseSec); }

   private:
    friend class ConnectAttempts;

    ConnectAttempts& attempts_;
    const std::thread::id thread_ = std::this_thread::get_id();
    Attempt* next_ = nullptr;
  };

  // True when the calling thread is in an attempt: in a callback of it.
  bool IsInOne() {
    const MutexLock lock(mutex_);
    for (const Attempt* attempt = first_; attempt != nullptr; attempt = attempt->next_) {
      if (attempt->thread_ == std::this_thread::get_id()) return true;
    }
    return false;
  }

 private:
  void Begin(Attempt& attempt) {
    const MutexLock lock(mutex_);
    Insert(attempt);
  }

  std::optional<double> BeginPaced(Attempt& attempt, double pauseSec) {
    const MutexLock lock(mutex_);
    const double elapsedSec = timer_.ElapsedSec();
    if (first_ != nullptr || !(elapsedSec > pauseSec)) return std::nullopt;
    timer_.Restart();
    Insert(attempt);
    return elapsedSec;
  }

  void Insert(Attempt& attempt) ZEL_REQUIRES(mutex_) {
    attempt.next_ = first_;
    first_ = &attempt;
  }

  // Does nothing for one that has not begun.
  void End(const Attempt& attempt) {
    const MutexLock lock(mutex_);
    for (Attempt** at = &first_; *at != nullptr; at = &(*at)->next_) {
      if (*at != &attempt) continue;
      *at = attempt.next_;
      return;
    }
  }

  Mutex mutex_;
  Attempt* first_ ZEL_GUARDED_BY(mutex_) = nullptr;
  Stopwatch timer_ ZEL_GUARDED_BY(mutex_);  // since the last paced attempt, or since the connection was made
};

}  // namespace libzel
