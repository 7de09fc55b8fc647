#include "TimeStamp.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace zeltool {
namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;

bool IsDigit(char character) { return character >= '0' && character <= '9'; }

// Each of these takes something off the text's front, and gives false or nothing when it is not there.

bool TakeAnyOf(std::string_view& text, std::string_view characters) {
  if (text.empty() || characters.find(text.front()) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

std::optional<int> TakeDigits(std::string_view& text, size_t count, int most) {
  if (text.size() < count || !std::all_of(text.begin(), text.begin() + count, IsDigit)) return std::nullopt;
  int value = 0;
  for (size_t i = 0; i < count; ++i) value = value * 10 + (text[i] - '0');
  text.remove_prefix(count);
  return value <= most ? std::optional(value) : std::nullopt;
}

// The clock's numbers end in 2262.
std::optional<std::chrono::sys_days> TakeDate(std::string_view& text) {
  const auto year = TakeDigits(text, 4, 2261);
  if (!year || *year < 1970 || !TakeAnyOf(text, "-")) return std::nullopt;
  const auto month = TakeDigits(text, 2, 12);
  if (!month || !TakeAnyOf(text, "-")) return std::nullopt;
  const auto day = TakeDigits(text, 2, 31);
  if (!day) return std::nullopt;
  const std::chrono::year_month_day date{std::chrono::year(*year),
                                         std::chrono::month(static_cast<unsigned>(*month)),
                                         std::chrono::day(static_cast<unsigned>(*day))};
  return date.ok() ? std::optional(std::chrono::sys_days(date)) : std::nullopt;
}

std::optional<minutes> TakeHourAndMinute(std::string_view& text) {
  const auto hour = TakeDigits(text, 2, 23);
  if (!hour || !TakeAnyOf(text, ":")) return std::nullopt;
  const auto minute = TakeDigits(text, 2, 59);
  return minute ? std::optional(minutes(*hour * 60 + *minute)) : std::nullopt;
}

// With its fraction, if it has one. 60 is a leap second.
std::optional<milliseconds> TakeSecond(std::string_view& text) {
  const auto second = TakeDigits(text, 2, 60);
  if (!second) return std::nullopt;
  milliseconds time = std::chrono::seconds(*second);
  if (!TakeAnyOf(text, ".")) return time;
  if (text.empty() || !IsDigit(text.front())) return std::nullopt;
  for (int scale = 100; !text.empty() && IsDigit(text.front()); scale /= 10) {
    time += milliseconds((text.front() - '0') * scale);
    text.remove_prefix(1);
  }
  return time;
}

// How far the zone is ahead of UTC.
std::optional<minutes> TakeZone(std::string_view& text) {
  if (TakeAnyOf(text, "Zz")) return minutes(0);
  const bool isBehind = text.starts_with('-');
  if (!TakeAnyOf(text, "+-")) return std::nullopt;
  const auto offset = TakeHourAndMinute(text);
  return offset && isBehind ? std::optional(-*offset) : offset;
}

}  // namespace

std::string TimeStamp(std::chrono::system_clock::time_point time) {
  using std::chrono::floor;
  const auto day = floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(floor<milliseconds>(time - day));
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                      static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                      static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                      static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                      static_cast<int>(clock.subseconds().count()));
  return text.data();
}

std::optional<std::chrono::system_clock::time_point> ParseTimeStamp(std::string_view text) {
  const auto date = TakeDate(text);
  if (!date || !TakeAnyOf(text, "Tt")) return std::nullopt;
  const auto minute = TakeHourAndMinute(text);
  if (!minute || !TakeAnyOf(text, ":")) return std::nullopt;
  const auto second = TakeSecond(text);
  if (!second) return std::nullopt;
  const auto zone = TakeZone(text);
  if (!zone || !text.empty()) return std::nullopt;
  return *date + *minute + *second - *zone;
}

}  // namespace zeltool
