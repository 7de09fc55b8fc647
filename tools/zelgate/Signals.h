// The wish to end (SIGTERM, SIGINT), taken by one thread in place of a handler.
#pragma once

#include <chrono>

namespace zelgate {

// Before any thread is started: all of them then leave these signals to WaitForStop.
void HoldStopSignals();

// True when one came within the time.
bool WaitForStop(std::chrono::milliseconds timeout);

}  // namespace zelgate
