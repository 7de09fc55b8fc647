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
  // How often a device that is not found or reached is tried again.
  uint32_t retries = 0;
  bool isEndless = false;
};

// The time that the user gave is over.
class NoTimeLeft : public LibraryFailure {
 public:
  explicit NoTimeLeft(const std::string& what)
      : LibraryFailure("no time is left to " + what, ZEL_E_TIMEOUT) {}
};

// The time for finding, connecting and asking, which begins now.
class Budget {
 public:
  // 0 for no bound.
  explicit Budget(double totalSec) {
    if (totalSec > 0) end_ = After(totalSec);
  }
  explicit Budget(const Patience& patience) : Budget(patience.timeoutMs / 1000.0) {}

  // True when less than so much is left.
  bool IsBelow(double seconds) const { return end_ && After(seconds) > *end_; }

  // What is left, at most so much. Throws NoTimeLeft when nothing is; `what` cannot be done then.
  zel::Milliseconds Take(zel::Milliseconds most, const std::string& what) const {
    if (!end_) return most;
    const auto left = std::chrono::ceil<zel::Milliseconds>(*end_ - Clock::now());
    if (left.count() <= 0) throw NoTimeLeft(what);
    return std::min(left, most);
  }

 private:
  Deadline end_;
};

}  // namespace zeltool
