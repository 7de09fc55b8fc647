// How long a wait should look again and again before it sleeps: as long as that has paid of late. A wake-up costs more
// than a short look, but only where another core can make the answer meanwhile.
//
// Any thread may use it; a race costs at most a budget that is a little off.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

#include "platform/Platform.h"

namespace libzel {

class SpinBudget {
 public:
  // Looks until it finds something, for at most the budget and `timeoutMs`. True when it found something.
  template <typename Look>
  bool Spin(int64_t timeoutMs, Look look) {
    const int32_t budgetUs = Next();
    if (budgetUs == 0) return false;
    const std::chrono::microseconds longest(std::min<int64_t>(budgetUs, timeoutMs * 1000));
    const auto end = std::chrono::steady_clock::now() + longest;
    bool found = false;
    do {
      found = look();
    } while (!found && std::chrono::steady_clock::now() < end);
    budgetUs_.store(found ? std::min(budgetUs * 2, kLongestUs) : budgetUs / 2, std::memory_order_relaxed);
    return found;
  }

 private:
  static constexpr int32_t kFirstUs = 50;
  static constexpr int32_t kLongestUs = 100;
  static constexpr uint32_t kWaitsBetweenTrials = 64;

  // A budget that shrank to nothing is tried anew once in a while: the peer may have become quick.
  int32_t Next() {
    static const bool canSpin = platform::CoreCount() > 1;
    if (!canSpin) return 0;
    const int32_t budgetUs = budgetUs_.load(std::memory_order_relaxed);
    if (budgetUs != 0) return budgetUs;
    const uint32_t waits = waits_.fetch_add(1, std::memory_order_relaxed) + 1;
    return waits % kWaitsBetweenTrials == 0 ? kFirstUs : 0;
  }

  std::atomic<int32_t> budgetUs_{kFirstUs};
  std::atomic<uint32_t> waits_{0};
};

}  // namespace libzel
