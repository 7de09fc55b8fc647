// The wish to end, and what waits for it or for something else, whichever comes first.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

namespace zeltool {

using Clock = std::chrono::steady_clock;
using Deadline = std::optional<Clock::time_point>;

// That many seconds from now. What is longer than 30 years never ends, what is no number neither.
Clock::time_point After(double seconds);

// Any thread may use it.
class Stopper {
 public:
  void Request();
  bool IsRequested();

  // Waits for `ready` (called under the lock), the wish to end or the deadline. True when ready.
  template <typename Ready>
  bool Wait(Deadline deadline, Ready ready) {
    std::unique_lock lock(mutex_);
    return WaitLocked(lock, deadline, ready);
  }

  // Changes something that Wait looks at.
  template <typename Change>
  void Update(Change change) {
    {
      const std::lock_guard lock(mutex_);
      change();
    }
    changed_.notify_all();
  }

  // Waits for the wish to end, at most so long. True when it came.
  bool Sleep(double seconds);

 private:
  template <typename Ready>
  bool WaitLocked(std::unique_lock<std::mutex>& lock, Deadline deadline, Ready ready) {
    const auto over = [&] { return requested_ || ready(); };
    if (deadline) {
      (void)changed_.wait_until(lock, *deadline, over);
    } else {
      changed_.wait(lock, over);
    }
    return ready();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  bool requested_ = false;
};

// Carries what callbacks bring to the main thread. Put waits while the mailbox is full, which slows the
// sender down instead of filling the memory.
template <typename T>
class Mailbox {
 public:
  explicit Mailbox(Stopper& stopper) : stopper_(stopper) {}

  void Put(T item) {
    (void)stopper_.Wait(std::nullopt, [this] { return closed_ || items_.size() < kCapacity; });
    stopper_.Update([&] {
      if (!closed_) items_.push_back(std::move(item));
    });
  }

  // Nothing at the deadline and when the program is to end.
  std::optional<T> Take(Deadline deadline) {
    std::optional<T> item;
    (void)stopper_.Wait(deadline, [this] { return !items_.empty(); });
    stopper_.Update([&] {
      if (items_.empty()) return;
      item = std::move(items_.front());
      items_.pop_front();
    });
    return item;
  }

  // From now on, what is put is dropped, and nobody waits to put.
  void Close() {
    stopper_.Update([this] { closed_ = true; });
  }

 private:
  static constexpr size_t kCapacity = 4096;

  Stopper& stopper_;
  std::deque<T> items_;
  bool closed_ = false;
};

}  // namespace zeltool
