// How long a lease holds: by the holder's own clock, and by the clocks of those who wait for its end. Nobody
// compares clocks of two machines: the holder counts from before it asked for the renewal, the others from
// when they saw it. So the holder always stops first. Pure.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace zelgate {

// Goes on while the process is stopped and while the machine sleeps, and never jumps.
struct GateClock {
  using duration = std::chrono::nanoseconds;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::time_point<GateClock>;
  static constexpr bool is_steady = true;
  static time_point now() noexcept;
};

inline constexpr std::chrono::milliseconds kRenewEvery{1000};
inline constexpr std::chrono::milliseconds kHolds{3000};      // for the holder
inline constexpr std::chrono::milliseconds kOverAfter{4000};  // for the others

// The holder's side. Any thread may ask; one thread renews.
class LeaseTerm {
 public:
  // A renewal that was asked for at that time has been granted.
  void Renew(GateClock::time_point askedAt) { validUntil_ = (askedAt + kHolds).time_since_epoch().count(); }
  void End() { validUntil_ = 0; }
  bool IsValid(GateClock::time_point now) const { return now.time_since_epoch().count() < validUntil_; }
  // What is left of it; zero when it is over.
  std::chrono::milliseconds Left(GateClock::time_point now) const;

 private:
  std::atomic<int64_t> validUntil_ = 0;
};

// The others' side: when which key was last seen to change. One thread uses it.
class LeaseWatch {
 public:
  // Also of a revision that is known already, which changes nothing.
  void See(const std::string& key, uint64_t revision, GateClock::time_point now);
  void Forget(const std::string& key) { keys_.erase(key); }
  // The keys that have not changed for so long that they may be taken.
  std::vector<std::string> Over(GateClock::time_point now) const;
  // The last revision that was seen.
  std::optional<uint64_t> RevisionOf(const std::string& key) const;
  std::vector<std::string> Keys() const;

 private:
  struct Seen {
    uint64_t revision = 0;
    GateClock::time_point at;
  };
  std::map<std::string, Seen> keys_;
};

}  // namespace zelgate
