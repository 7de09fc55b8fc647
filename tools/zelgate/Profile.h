// Profiles: which topics and ports of which devices are delivered, and what happens to their messages when
// NATS is slower than the devices. Pure.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zelgate {

// What happens to a route's messages when too many wait for their acknowledgement.
enum class Policy {
  kBlock,       // the device waits: nothing is lost, and the order is kept
  kDropOldest,  // the oldest that waits is dropped
  kLatestOnly,  // only the newest waits
};
// "block", "drop-oldest", "latest-only".
std::string NameOf(Policy policy);

// A topic or a port of a device.
struct Route {
  bool isTopic = true;
  std::string topic;
  uint16_t port = 0;

  // "t/state" or "p/700": for people and for gaps.
  std::string Name() const { return isTopic ? "t/" + topic : "p/" + std::to_string(port); }
  // NOLINTNEXTLINE(modernize-use-nullptr): the checker means the 0 that the compiler compares with
  friend auto operator<=>(const Route&, const Route&) = default;
};

using Routes = std::map<Route, Policy>;

// What is known of a device before it is served.
struct DeviceFacts {
  std::string id;  // six decimals joined by "."
  std::string address;
  std::string name;
  std::string serial;
  bool hasTwins = false;  // several devices have the identifier: none of them is served

  friend bool operator==(const DeviceFacts&, const DeviceFacts&) = default;
};

struct Profile {
  // Patterns with * (any text) and ? (any byte); an empty one matches everything. A device must match all.
  std::string name;
  std::string serial;
  std::string id;
  Routes routes;
};

// True when the whole text is as the pattern says.
bool MatchesPattern(std::string_view pattern, std::string_view text);
bool Matches(const Profile& profile, const DeviceFacts& device);

// Reads the JSON object of one profile:
//   {"devices": {"name": "press-*", "serial": "S1*", "id": "10.20.*"},
//    "topics": ["state", {"topic": "alarm", "policy": "drop-oldest"}],
//    "ports": [700, {"port": 701, "policy": "block"}]}
// True, or `why` says what is wrong and what to write.
bool ParseProfile(const std::string& json, Profile& profile, std::string& why);

// What is delivered of a device: what all profiles that match it name. When two name a route the first one's
// policy holds, in the order of their names.
Routes RoutesOf(const std::map<std::string, Profile>& profiles, const DeviceFacts& device);

}  // namespace zelgate
