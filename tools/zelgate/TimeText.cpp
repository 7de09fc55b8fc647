#include "TimeText.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace zelgate {

std::string TimeText(std::chrono::system_clock::time_point time) {
  using std::chrono::duration_cast;
  const auto sinceEpoch = duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
  const std::time_t seconds = sinceEpoch / 1000;
  std::tm parts{};
  (void)gmtime_r(&seconds, &parts);  // only a year beyond int fails
  std::array<char, 96> text{};
  (void)std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", parts.tm_year + 1900,
                      parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec,
                      static_cast<int>(sinceEpoch % 1000));
  return text.data();
}

}  // namespace zelgate
