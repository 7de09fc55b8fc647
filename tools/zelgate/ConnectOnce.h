// A connection for a command that somebody waits for: it is there soon, or it is told why not.
#pragma once

#include <string>

#include "Config.h"
#include "Nats.h"

namespace zelgate {

// Waits for at most 5 s. What failed, with whom, why, and what to do is in the result.
NatsResult ConnectOnce(Nats& nats, const Config& config, const std::string& name);

}  // namespace zelgate
