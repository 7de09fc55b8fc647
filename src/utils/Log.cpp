#include "utils/Log.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>

#include "platform/Platform.h"
#include "utils/Forever.h"
#include "utils/LogFormat.h"

namespace libzel {

namespace {

constexpr size_t kMaxMessage = 8191;
constexpr size_t kStampSize = 23;
constexpr size_t kHeadRoom = 1024;

// What follows the location in every line of the calling thread, "12345ESC[37m]:", made once per thread.
std::string_view ThreadText() {
  struct Text {
    char characters[24];
    size_t size;
    Text() {
      char* end = std::to_chars(characters, characters + sizeof characters, platform::ThreadId()).ptr;
      for (const std::string_view part : {log_internal::kWhite, std::string_view("]:")}) {
        end = std::copy(part.begin(), part.end(), end);
      }
      size = static_cast<size_t>(end - characters);
    }
  };
  static thread_local const Text text;
  return {text.characters, text.size};
}

char* PutDigits(char* at, uint32_t number, int count) {
  for (int i = count - 1; i >= 0; --i, number /= 10) at[i] = static_cast<char>('0' + number % 10);
  return at + count;
}

// Time stamps in a row share all but their milliseconds, so the text of the last second is kept.
class TimeStamper {
 public:
  // Writes kStampSize characters.
  void Put(char* at, std::chrono::system_clock::time_point when) {
    const int64_t now = std::chrono::nanoseconds(when.time_since_epoch()).count();
    if (static_cast<uint64_t>(now - secondBegin_) >= kNanosecondsPerSecond) FormatSecond(when);
    std::memcpy(at, text_.data(), kMillisecondsAt);
    const auto sinceSecond = static_cast<uint32_t>(now - secondBegin_);
    PutDigits(at + kMillisecondsAt, sinceSecond / 1000000, 3);
  }

 private:
  static constexpr uint64_t kNanosecondsPerSecond = 1000000000;
  static constexpr size_t kMillisecondsAt = kStampSize - 3;

  void FormatSecond(std::chrono::system_clock::time_point when) {
    const auto second = std::chrono::floor<std::chrono::seconds>(when.time_since_epoch());
    const auto day = std::chrono::floor<std::chrono::days>(second);
    const std::chrono::year_month_day date{std::chrono::sys_days{day}};
    const std::chrono::hh_mm_ss time{second - day};
    char* at = PutDigits(text_.data(), static_cast<uint32_t>(static_cast<int>(date.year())), 4);
    *at++ = '-';
    at = PutDigits(at, static_cast<unsigned>(date.month()), 2);
    *at++ = '-';
    at = PutDigits(at, static_cast<unsigned>(date.day()), 2);
    *at++ = ' ';
    at = PutDigits(at, static_cast<uint32_t>(time.hours().count() + 8), 2);
    *at++ = ':';
    at = PutDigits(at, static_cast<uint32_t>(time.minutes().count()), 2);
    *at++ = ':';
    at = PutDigits(at, static_cast<uint32_t>(time.seconds().count()), 2);
    *at = '.';
    secondBegin_ = std::chrono::nanoseconds(second).count();
  }

  int64_t secondBegin_ = std::numeric_limits<int64_t>::min() / 2;
  std::array<char, kMillisecondsAt> text_{};
};

struct Sink {
  std::mutex mutex;
  TimeStamper stamper;
};

Sink& LogSink() {
  static Forever<Sink> sink;
  return *sink;
}

// Puts a line together from the left, behind the place of its time stamp, which is the last to be filled in.
void WriteLine(std::string_view head, const MessageFormat& format, va_list arguments) {
  // Left as it is on purpose: zeroing 8 KiB would cost more than the rest of the line.
  char text[kStampSize + 1 + kHeadRoom + kMaxMessage + 2];
  char* at = text + kStampSize;
  *at++ = ' ';
  const std::string_view thread = ThreadText();
  for (const std::string_view part : {head.substr(0, kHeadRoom - thread.size()), thread}) {
    std::memcpy(at, part.data(), part.size());
    at += part.size();
  }
  at += FormatMessage(at, kMaxMessage, format, arguments);
  *at++ = '\n';

  Sink& sink = LogSink();
  const std::lock_guard lock(sink.mutex);
  sink.stamper.Put(text, std::chrono::system_clock::now());
  platform::WriteStandardOutput(text, static_cast<size_t>(at - text));
}

}  // namespace

void log_internal::Write(const CallSite& site, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  WriteLine(site.text(), site.format(), arguments);
  va_end(arguments);
}

void LogPrint(int32_t level, const char* file, const char* function, int32_t line, const char* format, ...) {
  if (!IsLogged(static_cast<LogLevel>(level))) return;
  const auto style = log_internal::StyleOf(static_cast<LogLevel>(level));
  const char* backslash = std::strrchr(file, '\\');
  std::string head(style.colour);
  head.append("[libzel,")
      .append(style.name)
      .append(",")
      .append(backslash != nullptr ? backslash + 1 : "(null)");
  head.append(",").append(function).append(",").append(std::to_string(line)).append(",");
  va_list arguments;
  va_start(arguments, format);
  WriteLine(head, MessageFormat(format), arguments);
  va_end(arguments);
}

std::string FormatTimeStamp(std::chrono::system_clock::time_point when) {
  std::array<char, kStampSize> text;
  TimeStamper().Put(text.data(), when);
  return {text.data(), text.size()};
}

std::string GetTimeStampText() { return FormatTimeStamp(std::chrono::system_clock::now()); }

std::string FormatBuildTime(const char* date, const char* time) {
  static constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  const int month = static_cast<int>(kMonths.find(std::string_view(date).substr(0, 3)) / 3) + 1;
  char text[128];
  (void)std::snprintf(text, sizeof text, "%04d-%02d-%02d %s", std::atoi(date + 7), month, std::atoi(date + 4),
                      time);
  return text;
}

std::string GetBuildTimeText() { return FormatBuildTime(__DATE__, __TIME__); }

}  // namespace libzel
