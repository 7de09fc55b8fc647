#include "Log.h"

#include <array>
#include <mutex>
#include <utility>

namespace zeltool {

std::string TimeStamp(std::chrono::system_clock::time_point time) {
  using std::chrono::floor;
  const auto day = floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(floor<std::chrono::milliseconds>(time - day));
  std::array<char, 64> text{};
  (void)std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ",
                      static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                      static_cast<unsigned>(date.day()), static_cast<int>(clock.hours().count()),
                      static_cast<int>(clock.minutes().count()), static_cast<int>(clock.seconds().count()),
                      static_cast<int>(clock.subseconds().count()));
  return text.data();
}

namespace {

struct AnswerWarnings {
  std::mutex mutex;
  std::vector<std::string> texts;
};

AnswerWarnings& Warnings() {
  static auto* const warnings = new AnswerWarnings;
  return *warnings;
}

void KeepAnswerWarning(const zel::LogLine& line) {
  if (line.level != zel::LogLevel::kWarning || !line.message.starts_with("scan answer of ")) return;
  const std::lock_guard lock(Warnings().mutex);
  Warnings().texts.emplace_back(line.message);
}

}  // namespace

zel::LogSink MakeLogSink(std::FILE* stream) {
  return [stream](const zel::LogLine& line) {
    KeepAnswerWarning(line);
    if (stream == nullptr) return;
    std::string text = TimeStamp(line.time) + " " + zel::NameOf(line.level) + " ";
    text.append(line.function).append(": ").append(line.message) += '\n';
    (void)std::fwrite(text.data(), 1, text.size(), stream);
    (void)std::fflush(stream);
  };
}

std::vector<std::string> TakeAnswerWarnings() {
  const std::lock_guard lock(Warnings().mutex);
  return std::exchange(Warnings().texts, {});
}

}  // namespace zeltool
