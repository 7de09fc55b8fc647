// How long a connection pauses between the reconnects that it makes by itself: the interval, which doubles while they
// fail and is spread at random, as the options say. It knows no clock. Any thread may use it.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <random>

#include "utils/Options.h"

namespace libzel {

class ReconnectPace {
 public:
  ReconnectPace() { DrawShare(); }

  double PauseSec(uint32_t intervalSec, const InstanceOptions& options) const {
    const double pauseSec = std::max<double>(intervalSec, Doubled(intervalSec, options));
    return pauseSec * (1 + share_ * static_cast<double>(options.jitterPercent) / 100);
  }

  // Takes in how an attempt ended.
  void NoteAttempt(bool isUp) {
    failures_ = isUp ? 0 : std::min(failures_ + 1, kMostDoublings);
    DrawShare();
  }

 private:
  static constexpr uint32_t kMostDoublings = 32;
  static constexpr double kShortestSec = 0.5;  // of what doubles

  double Doubled(uint32_t intervalSec, const InstanceOptions& options) const {
    const auto mostSec = static_cast<double>(options.reconnectMaxSec);
    const uint32_t failures = failures_;
    if (mostSec == 0 || failures == 0) return 0;
    const double firstSec = std::max<double>(intervalSec, kShortestSec);
    return std::min(std::ldexp(firstSec, static_cast<int>(failures)), mostSec);
  }

  // Many hosts may start in the same instant, and a host has many connections: they must not draw the same.
  void DrawShare() {
    const auto now = std::chrono::system_clock::now().time_since_epoch().count();
    std::seed_seq seed{static_cast<uint32_t>(now), static_cast<uint32_t>(now >> 32),
                       static_cast<uint32_t>(reinterpret_cast<uintptr_t>(this) >> 4)};
    std::minstd_rand random(seed);
    share_ = std::uniform_real_distribution<double>(0, 1)(random);
  }

  std::atomic<uint32_t> failures_{0};
  std::atomic<double> share_{0};
};

}  // namespace libzel
