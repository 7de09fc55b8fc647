// What is said on a device's link subject: a JSON object a message, so that a consumer of the stream knows
// what it may have missed. Pure.
#pragma once

#include <string>

#include "RouteQueue.h"

namespace zelgate {

// Who says it, of what, and when.
struct LinkNote {
  std::string device;  // the identifier
  std::string holder;
  std::string time;  // RFC 3339
};

// {"event": KIND, ...}; `reason` is left out when empty. Kinds: "serving" and "released" (this process has
// the device from here on, or not any more), "up", "down".
std::string LinkEventText(const LinkNote& note, const std::string& kind, const std::string& reason);

// {"event": "gap", "route": "t/state", "reason": ..., "count": ..., "first": ..., "last": ..., "bytes": ...}:
// `first` and `last` are values of Zel-Seq.
std::string GapText(const LinkNote& note, const Gap& gap);

}  // namespace zelgate
