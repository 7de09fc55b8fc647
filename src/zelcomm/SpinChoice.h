// Whether a wait should look again and again for a short while before it sleeps. Looking saves the wake-up where another
// core makes the answer meanwhile; where every core is busy it keeps the peer from running. So the waits are timed: the
// kind that was quicker is kept, and the other one tried for a few waits now and then, the more seldom the longer it has
// been the slower one.
//
// Any thread may use it; a race costs at most a choice that is a little off.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

#include "platform/Platform.h"

namespace libzel {

class SpinChoice {
 public:
  static constexpr uint32_t kTrialWaits = 32;
  static constexpr uint32_t kMostWaitsBetweenTrials = 64 * kTrialWaits;

  // Waits by `look`, which tells at once, and `sleep`, which tells when there is something or the time is over. True
  // when either found something.
  template <typename Look, typename Sleep>
  bool Wait(int64_t timeoutMs, Look look, Sleep sleep) {
    if (look()) return true;
    static const bool canSpin = platform::CoreCount() > 1;
    if (!canSpin) return sleep();
    const bool spins = Next();
    const auto start = Clock::now();
    const auto spinEnd =
        start + std::min<Clock::duration>(kLongestSpin, std::chrono::milliseconds(timeoutMs));
    const bool spun = spins && LookUntil(spinEnd, look);
    const bool found = spun || sleep();
    Learn(spins, std::chrono::nanoseconds(Clock::now() - start).count());
    return found;
  }

  // True when the next wait is one that looks again and again.
  bool Next() {
    if (waits_.load(std::memory_order_relaxed) >= beforeTrial_.load(std::memory_order_relaxed) + kTrialWaits)
      Decide();
    const uint32_t wait = waits_.fetch_add(1, std::memory_order_relaxed);
    return prefersSpin_.load(std::memory_order_relaxed) ==
           (wait < beforeTrial_.load(std::memory_order_relaxed));
  }

  // Takes in how long a wait of one kind took.
  void Learn(bool spun, int64_t waitNs) {
    (spun ? spins_ : sleeps_).Add(std::min(waitNs, kLongestCountedNs));
  }

 private:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::microseconds kLongestSpin{100};
  // One wait for a peer that paused must not decide.
  static constexpr int64_t kLongestCountedNs = 2'000'000;

  struct Waits {
    std::atomic<int64_t> sumNs{0};
    std::atomic<int64_t> count{0};

    void Add(int64_t waitNs) {
      sumNs.fetch_add(waitNs, std::memory_order_relaxed);
      count.fetch_add(1, std::memory_order_relaxed);
    }

    // Their mean; the count begins anew.
    double TakeMeanNs() {
      const int64_t waits = count.exchange(0, std::memory_order_relaxed);
      const auto sum = static_cast<double>(sumNs.exchange(0, std::memory_order_relaxed));
      return waits == 0 ? 0 : sum / static_cast<double>(waits);
    }
  };

  template <typename Look>
  static bool LookUntil(Clock::time_point end, Look look) {
    bool found = false;
    while (!found && Clock::now() < end) found = look();
    return found;
  }

  // At the end of a trial. Looking costs a core, so it has to save an eighth at least.
  void Decide() {
    const double spinNs = spins_.TakeMeanNs();
    const double sleepNs = sleeps_.TakeMeanNs();
    const bool spin = spinNs < sleepNs * 7 / 8;
    const bool isNews = prefersSpin_.exchange(spin, std::memory_order_relaxed) != spin;
    const uint32_t before = beforeTrial_.load(std::memory_order_relaxed);
    beforeTrial_.store(isNews ? kTrialWaits : std::min(before * 2, kMostWaitsBetweenTrials),
                       std::memory_order_relaxed);
    waits_.store(0, std::memory_order_relaxed);
  }

  Waits spins_;
  Waits sleeps_;
  std::atomic<uint32_t> waits_{0};
  std::atomic<uint32_t> beforeTrial_{kTrialWaits};
  std::atomic<bool> prefersSpin_{true};
};

}  // namespace libzel
