#include "Stopper.h"

namespace zeltool {

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
