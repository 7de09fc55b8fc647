#include "utils/Log.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "platform/Platform.h"
#include "utils/Forever.h"
#include "utils/LogFormat.h"

namespace libzel {

namespace {

constexpr std::string_view kTag = "libzel";
constexpr size_t kMaxMessage = 8191;
constexpr size_t kStampRoom = 48;
constexpr size_t kHeadRoom = 1024;

constexpr std::array<std::string_view, 4> kColours = {"\x1b[31m", "\x1b[33m", "\x1b[37m", "\x1b[32m"};
constexpr std::string_view kRed = kColours[0];
constexpr std::string_view kYellow = kColours[1];
constexpr std::string_view kWhite = kColours[2];

struct LevelStyle {
  std::string_view colour;
  std::string_view name;
};

LevelStyle StyleOf(LogLevel level) {
  switch (level) {
    case LogLevel::kTrace: return {kYellow, "TRACE"};
    case LogLevel::kDebug: return {kYellow, "DEBUG"};
    case LogLevel::kInfo: return {kYellow, "INFO"};
    case LogLevel::kWarning: return {kRed, "WARNING"};
    case LogLevel::kError: return {kRed, "ERROR"};
    case LogLevel::kCritical: return {kYellow, "CRITICAL"};
    case LogLevel::kNotice: return {kYellow, "NOTICE"};
    case LogLevel::kComm: return {kYellow, "COMM"};
  }
  return {kYellow, "UNKNOWN"};
}

// The calling thread's id as text, made once per thread.
std::string_view ThreadIdText() {
  struct Text {
    char digits[10];
    size_t size;
    Text() : size(static_cast<size_t>(
                 std::to_chars(digits, digits + sizeof digits, platform::ThreadId()).ptr - digits)) {}
  };
  static thread_local const Text text;
  return {text.digits, text.size};
}

char* PutDigits(char* at, uint32_t number, int count) {
  for (int i = count - 1; i >= 0; --i, number /= 10) at[i] = static_cast<char>('0' + number % 10);
  return at + count;
}

// Time stamps in a row share all but their milliseconds, so the text of the last second is kept.
class TimeStamper {
 public:
  std::string_view Text(std::chrono::system_clock::time_point when) {
    const auto sinceEpoch = std::chrono::floor<std::chrono::milliseconds>(when.time_since_epoch());
    const auto second = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
    if (second != second_) FormatSecond(second);
    PutDigits(text_.data() + kMillisecondsAt, static_cast<uint32_t>((sinceEpoch - second).count()), 3);
    return {text_.data(), kMillisecondsAt + 3};
  }

 private:
  static constexpr size_t kMillisecondsAt = 20;

  void FormatSecond(std::chrono::seconds second) {
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
    second_ = second;
  }

  std::chrono::seconds second_ = std::chrono::seconds::min();
  std::array<char, kMillisecondsAt + 3> text_{};
};

struct Sink {
  std::mutex mutex;
  TimeStamper stamper;
};

Sink& LogSink() {
  static Forever<Sink> sink;
  return *sink;
}

// One line in the making. The message stands at a fixed place; its head is put in front of it, part by part from the
// right, so that the whole is one run of bytes without a second copy.
class Line {
 public:
  Line(const char* format, va_list arguments) {
    const size_t size = FormatMessage(Message(), kMaxMessage, format, arguments);
    end_ = Message() + size;
    *end_++ = '\n';
  }

  void PutInFront(std::string_view part) {
    const size_t room = static_cast<size_t>(begin_ - text_) - kStampRoom;
    const size_t size = std::min(part.size(), room);
    begin_ -= size;
    std::memcpy(begin_, part.data(), size);
  }

  void PutTimeStamp(std::string_view stamp) {
    *--begin_ = ' ';
    begin_ -= stamp.size();
    std::memcpy(begin_, stamp.data(), stamp.size());
  }

  void Write() const { platform::WriteStandardOutput(begin_, static_cast<size_t>(end_ - begin_)); }

 private:
  char* Message() { return text_ + kHeadRoom; }

  // Left as it is on purpose: zeroing 8 KiB would cost more than the rest of the line.
  char text_[kHeadRoom + kMaxMessage + 2];
  char* begin_ = Message();
  char* end_ = nullptr;
};

void WriteLine(Line& line, LogLevel level, std::string_view location) {
  const LevelStyle style = StyleOf(level);
  line.PutInFront("]:");
  line.PutInFront(kWhite);
  line.PutInFront(ThreadIdText());
  line.PutInFront(",");
  line.PutInFront(location);
  line.PutInFront(",");
  line.PutInFront(style.name);
  line.PutInFront(",");
  line.PutInFront(kTag);
  line.PutInFront("[");
  line.PutInFront(style.colour);

  Sink& sink = LogSink();
  const std::lock_guard lock(sink.mutex);
  line.PutTimeStamp(sink.stamper.Text(std::chrono::system_clock::now()));
  line.Write();
}

}  // namespace

void log_internal::Write(LogLevel level, std::string_view location, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Line line(format, arguments);
  va_end(arguments);
  WriteLine(line, level, location);
}

void LogPrint(int32_t level, const char* file, const char* function, int32_t line, const char* format, ...) {
  if (!IsLogged(static_cast<LogLevel>(level))) return;
  const char* backslash = std::strrchr(file, '\\');
  const std::string location = std::string(backslash != nullptr ? backslash + 1 : "(null)") + ',' + function + ',' +
                               std::to_string(line);
  va_list arguments;
  va_start(arguments, format);
  Line text(format, arguments);
  va_end(arguments);
  WriteLine(text, static_cast<LogLevel>(level), location);
}

std::string FormatTimeStamp(std::chrono::system_clock::time_point when) { return std::string(TimeStamper().Text(when)); }

std::string GetTimeStampText() { return FormatTimeStamp(std::chrono::system_clock::now()); }

std::string FormatBuildTime(const char* date, const char* time) {
  static constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  const int month = static_cast<int>(kMonths.find(std::string_view(date).substr(0, 3)) / 3) + 1;
  char text[128];
  (void)std::snprintf(text, sizeof text, "%04d-%02d-%02d %s", std::atoi(date + 7), month, std::atoi(date + 4), time);
  return text;
}

std::string GetBuildTimeText() { return FormatBuildTime(__DATE__, __TIME__); }

}  // namespace libzel
