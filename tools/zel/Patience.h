// How long a command waits.
#pragma once

#include <libzel/libzel.hpp>

#include <algorithm>
#include <cstdint>
#include <string>

#include "Failure.h"
#include "Stopper.h"

namespace zeltool {

// What the user says about it.
struct Patience {
  uint32_t timeoutMs = 0;  // for all of it; 0 when not given: then each step has its own
  uint32_t connectMs = 1500;
};

// The time for finding, connecting and asking, which begins now.
class Budget {
 public:
  // 0 for no bound.
  explicit Budget(double totalSec) {
    if (totalSec > 0) end_ = After(totalSec);
  }
  explicit Budget(const Patience& patience) : Budget(patience.timeoutMs / 1000.0) {}

  // What is left, at most so much. Throws LibraryFailure when nothing is; `what` cannot be done then.
  zel::Milliseconds Take(zel::Milliseconds most, const std::string& what) const {
    if (!end_) return most;
    const auto left = std::chrono::ceil<zel::Milliseconds>(*end_ - Clock::now());
    if (left.count() <= 0) throw LibraryFailure("no time is left to " + what, ZEL_E_TIMEOUT);
    return std::min(left, most);
  }

 private:
  Deadline end_;
};

}  // namespace zeltool
