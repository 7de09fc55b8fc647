// Times as texts.
#pragma once

#include <chrono>
#include <string>

namespace zelgate {

// "2026-11-21T20:37:04.123Z": RFC 3339, in UTC.
std::string TimeText(std::chrono::system_clock::time_point time);

}  // namespace zelgate
