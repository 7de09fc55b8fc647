// The stream of events and the buckets of a site, and the hub's stream: made when they are missing, brought
// in line with the configuration when they are there. Everything waits for the server's answer, at most a few
// seconds.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Config.h"
#include "Lease.h"
#include "Nats.h"

namespace zelgate {

inline constexpr const char* kDeviceBucket = "zel_devices";
inline constexpr const char* kProfileBucket = "zel_profiles";
inline constexpr const char* kHubStream = "ZEL_ALL";

// Named after the site: the servers' flow control goes by the stream's name, and a hub's account takes such a
// subject from one other account only.
std::string EventStreamName(const std::string& site);

struct StreamUse {
  uint64_t messages = 0;
  uint64_t bytes = 0;
  uint64_t maxBytes = 0;

  // From here on somebody should do something: a full stream takes no event.
  bool IsNearlyFull() const { return maxBytes != 0 && bytes >= maxBytes / 10 * 8; }
};
// "the stream ZEL_EV_north is full to 83 % (...); ..."
std::string NearlyFullText(const std::string& stream, const StreamUse& use);

// May be called from several processes at the same time. Fails over a stream that is there and takes other
// subjects.
NatsResult MakeSiteStreams(Nats& nats, const Config& config);

// The stream kHubStream, which takes no subjects of its own, but everything from the streams of the sites.
// Sites that it has already and that are not named any more are taken out; what came from them stays.
NatsResult MakeHubStream(Nats& nats, const std::vector<std::string>& sites, const StreamConfig& config);

// NATS_NOT_FOUND: there is no such stream.
NatsResult ReadStreamUse(Nats& nats, const std::string& stream, StreamUse& use);

}  // namespace zelgate
