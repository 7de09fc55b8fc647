#include "Stopper.h"

#include <algorithm>

namespace zeltool {

Clock::time_point After(double seconds) {
  // More would not fit into the clock's numbers, at the latest when today is added.
  constexpr double kLongestSec = 1e9;
  const double bounded = seconds < kLongestSec ? std::max(seconds, 0.0) : kLongestSec;
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(bounded));
}

void Stopper::Request() {
  Update([this] { requested_ = true; });
}

bool Stopper::IsRequested() {
  const std::lock_guard lock(mutex_);
  return requested_;
}

bool Stopper::Sleep(double seconds) {
  return Wait(After(seconds), [this] { return requested_; });
}

}  // namespace zeltool
