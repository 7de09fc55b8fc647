// A monotonic stopwatch. Not for use by several threads at once.
#pragma once

#include <chrono>
#include <cstdint>

namespace libzel {

class Stopwatch {
 public:
  void Restart() { start_ = Clock::now(); }
  double ElapsedMs() const {
    return std::chrono::duration<double, std::milli>(Clock::now() - start_).count();
  }
  double ElapsedSec() const { return std::chrono::duration<double>(Clock::now() - start_).count(); }

 private:
  using Clock = std::chrono::steady_clock;
  Clock::time_point start_ = Clock::now();
};

// Whole ms until then, rounded up; 0 and less when it is over.
inline int64_t MsUntil(std::chrono::steady_clock::time_point end) {
  return std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
}

}  // namespace libzel
