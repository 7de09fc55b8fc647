// Ends the process if the object still lives when its time has come: a call that never returns is a failure,
// and must not hold up what runs beside it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace zeltest {

class Deadline {
 public:
  explicit Deadline(int seconds) : thread_([this, seconds] { Watch(seconds); }) {}
  ~Deadline() {
    {
      const std::lock_guard lock(mutex_);
      isMet_ = true;
    }
    met_.notify_one();
    thread_.join();
  }
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

 private:
  void Watch(int seconds) {
    std::unique_lock lock(mutex_);
    if (met_.wait_until(lock, std::chrono::steady_clock::now() + std::chrono::seconds(seconds),
                        [this] { return isMet_; })) {
      return;
    }
    (void)fprintf(stderr, "Not done after %d s: something waits for ever.\n", seconds);
    std::_Exit(1);
  }

  std::mutex mutex_;
  std::condition_variable met_;
  bool isMet_ = false;
  std::thread thread_;
};

}  // namespace zeltest
