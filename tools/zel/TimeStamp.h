// Times as programs exchange them: RFC 3339. Everything here is a pure function.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace zeltool {

// "2026-11-21T20:37:04.123Z", in UTC.
std::string TimeStamp(std::chrono::system_clock::time_point time);

// The time, to the millisecond, of such a text with any zone and any fraction of a second, from 1970 to 2261;
// nothing for anything else.
std::optional<std::chrono::system_clock::time_point> ParseTimeStamp(std::string_view text);

}  // namespace zeltool
