#include "LeaseTerm.h"

#include <algorithm>
#include <ctime>

namespace zelgate {

GateClock::time_point GateClock::now() noexcept {
  timespec time{};
  (void)clock_gettime(CLOCK_BOOTTIME, &time);  // only a wrong clock fails
  return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

std::chrono::milliseconds LeaseTerm::Left(GateClock::time_point now) const {
  const auto left = std::chrono::nanoseconds(validUntil_ - now.time_since_epoch().count());
  return std::max(std::chrono::duration_cast<std::chrono::milliseconds>(left), std::chrono::milliseconds(0));
}

void LeaseWatch::See(const std::string& key, uint64_t revision, GateClock::time_point now) {
  Seen& seen = keys_[key];
  if (seen.revision == revision) return;
  seen = {revision, now};
}

std::vector<std::string> LeaseWatch::Over(GateClock::time_point now) const {
  std::vector<std::string> over;
  for (const auto& [key, seen] : keys_) {
    if (now - seen.at >= kOverAfter) over.push_back(key);
  }
  return over;
}

std::optional<uint64_t> LeaseWatch::RevisionOf(const std::string& key) const {
  const auto found = keys_.find(key);
  if (found == keys_.end()) return {};
  return found->second.revision;
}

std::vector<std::string> LeaseWatch::Keys() const {
  std::vector<std::string> keys;
  for (const auto& [key, seen] : keys_) keys.push_back(key);
  return keys;
}

}  // namespace zelgate
