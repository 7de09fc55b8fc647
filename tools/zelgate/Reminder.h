// A warning that stays true for a while: said at once, and again now and then, not with every try.
#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>

#include "Journal.h"
#include "LeaseTerm.h"

namespace zelgate {

// Any thread.
class Reminder {
 public:
  static constexpr std::chrono::seconds kEvery{30};

  // Says a text that is another one than the last at once, and the same again after kEvery.
  void Warn(const std::string& text) {
    const auto now = GateClock::now();
    {
      const std::lock_guard lock(mutex_);
      if (text == text_ && saidAt_ && now - *saidAt_ < kEvery) return;
      text_ = text;
      saidAt_ = now;
    }
    Say(Priority::kWarning, text);
  }

 private:
  std::mutex mutex_;
  std::string text_;
  std::optional<GateClock::time_point> saidAt_;
};

}  // namespace zelgate
