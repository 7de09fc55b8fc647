// Notices that the process stood still (stopped, or its host asleep): what arrives right after may have
// waited meanwhile, in buffers that tell no time. Pure; one lock of the user's guards it.
#pragma once

#include <chrono>
#include <optional>

#include "LeaseTerm.h"

namespace zelgate {

class StallWatch {
 public:
  static constexpr std::chrono::milliseconds kTickEvery{50};
  static constexpr std::chrono::milliseconds kNoticed{300};  // a busy machine is that late now and then

  explicit StallWatch(GateClock::time_point now) : lastTick_(now) {}

  // To be called at least every kTickEvery.
  void Tick(GateClock::time_point now) {
    if (now - lastTick_ >= kNoticed) {
      lastStall_ = now - lastTick_;
      stallEnd_ = now;
    }
    lastTick_ = now;
  }

  // How old what arrives now may be at most, before it arrived.
  GateClock::duration AgeAtArrival(GateClock::time_point now) const {
    if (now - lastTick_ >= kNoticed) return now - lastTick_;
    const bool isJustOver = stallEnd_ && now - *stallEnd_ < kNoticed;
    return isJustOver ? lastStall_ + (now - *stallEnd_) : GateClock::duration::zero();
  }

 private:
  GateClock::time_point lastTick_;
  std::optional<GateClock::time_point> stallEnd_;
  GateClock::duration lastStall_{};
};

}  // namespace zelgate
