// What callbacks brought, for a test to wait for; any thread may add.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>
#include <vector>

namespace zeltest {

inline constexpr std::chrono::seconds kPatience{20};

template <typename Item>
class Gathered {
 public:
  void Add(Item item) {
    const std::lock_guard<std::mutex> lock(mutex_);
    items_.push_back(std::move(item));
    added_.notify_all();
  }
  std::vector<Item> All() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return items_;
  }
  // Whether at least `count` items are there in time.
  bool Await(size_t count) const {
    return AwaitThat([count](const std::vector<Item>& items) { return items.size() >= count; });
  }
  template <typename Condition>
  bool AwaitThat(Condition condition) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return added_.wait_for(lock, kPatience, [&] { return condition(items_); });
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable added_;
  std::vector<Item> items_;
};

}  // namespace zeltest
