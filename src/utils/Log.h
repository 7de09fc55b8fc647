// The process-wide logger: one levelled, time-stamped, coloured line per event on standard output, or a call
// of the application's sink.
//
// Any thread may log at any time. A line is put together outside the lock but for its time stamp, and written
// in one piece under it, so lines never mix and stand in the order in which their callers took the lock. The
// log's mutex is a leaf: nothing called under it takes another lock, but for what an application's sink does.
// Nothing here reports failure to the caller.
//
// A line that the threshold suppresses costs one comparison; its arguments are not evaluated.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "utils/LogFormat.h"

namespace libzel {

enum class LogLevel : int32_t {
  kTrace = 0,
  kDebug = 1,
  kInfo = 2,
  kWarning = 4,
  kError = 8,
  kCritical = 16,
  kNotice = 32,
  kComm = 256,
};

namespace log_internal {
inline std::atomic<int32_t> g_threshold{0};

// The function's qualified name, cut from the compiler's decorated one ("int libzel::Socket::readn(...)"). The
// library's own outer namespace and unnamed ones are left out, that of the XML reader is part of its name.
constexpr std::string_view QualifiedName(std::string_view decorated) {
  for (const std::string_view unnamed : {"(anonymous namespace)::", "{anonymous}::"}) {
    const size_t at = decorated.find(unnamed);
    if (at < decorated.find('(') + 1) decorated.remove_prefix(at + unnamed.size());
  }
  const std::string_view upToArguments = decorated.substr(0, decorated.find('('));
  std::string_view name = upToArguments.substr(upToArguments.find_last_of(" *&") + 1);
  constexpr std::string_view kOuter = "libzel::";
  constexpr std::string_view kXml = "libzel::xml::";
  if (name.substr(0, kOuter.size()) == kOuter && name.substr(0, kXml.size()) != kXml) {
    name.remove_prefix(kOuter.size());
  }
  return name;
}

constexpr std::string_view FileName(std::string_view path) {
  return path.substr(path.find_last_of("/\\") + 1);
}

struct LevelStyle {
  std::string_view colour;
  std::string_view name;
};

inline constexpr std::array<std::string_view, 4> kColours = {"\x1b[31m", "\x1b[33m", "\x1b[37m", "\x1b[32m"};
inline constexpr std::string_view kRed = kColours[0];
inline constexpr std::string_view kYellow = kColours[1];
inline constexpr std::string_view kWhite = kColours[2];

constexpr LevelStyle StyleOf(LogLevel level) {
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

// What is the same in every line of a call site, put together at compile time: its text
// "ESC[33m[libzel,INFO,file,function,line," and its format, and for sinks the parts of the text. A NUL must
// follow `file`.
class CallSite {
 public:
  constexpr CallSite(LogLevel level, std::string_view file, std::string_view function, int32_t line,
                     const char* format)
      : format_(format), level_(static_cast<int32_t>(level)), line_(line), file_(file.data()) {
    for (size_t i = 0; i < function.size() && i + 1 < function_.size(); ++i) function_[i] = function[i];
    const LevelStyle style = StyleOf(level);
    for (const std::string_view part : {style.colour, std::string_view("[libzel,"), style.name,
                                        std::string_view(","), file, std::string_view(","), function}) {
      Append(part);
    }
    Append(",");
    AppendNumber(line);
    Append(",");
  }
  constexpr std::string_view text() const { return {text_.data(), size_}; }
  constexpr const MessageFormat& format() const { return format_; }
  constexpr int32_t level() const { return level_; }
  constexpr int32_t line() const { return line_; }
  constexpr const char* file() const { return file_; }
  constexpr const char* function() const { return function_.data(); }

 private:
  constexpr void Append(std::string_view part) {
    for (const char c : part) {
      if (size_ < text_.size()) text_[size_++] = c;
    }
  }
  constexpr void AppendNumber(int32_t number) {
    if (number >= 10) AppendNumber(number / 10);
    const char digit = static_cast<char>('0' + number % 10);
    Append({&digit, 1});
  }

  MessageFormat format_;
  std::array<char, 160> text_{};
  size_t size_ = 0;
  int32_t level_;
  int32_t line_;
  const char* file_;
  std::array<char, 100> function_{};
};

// `format` is the call site's own; it stands here for the compiler's checks.
[[gnu::format(printf, 2, 3)]] void Write(const CallSite& site, const char* format, ...);

// Around a fork: no line is half written in the child, and its log is not locked. A fork waits a short while at most for
// a line that cannot be written because nobody reads it.
void BeforeFork();
void AfterForkInParent();
void AfterForkInChild();
}  // namespace log_internal

inline bool IsLogged(LogLevel level) {
  return static_cast<int32_t>(level) >= log_internal::g_threshold.load(std::memory_order_relaxed);
}

// Writes one line if `level` is at or above the threshold (signed). `file` is a path with backslash separators, of
// which the part behind the last one is printed; a path without any prints "(null)". A message is cut to 8191
// characters.
[[gnu::format(printf, 5, 6)]] void LogPrint(int32_t level, const char* file, const char* function,
                                            int32_t line, const char* format, ...);

// Stores the threshold; lines that start afterwards obey it.
inline void SetLogLevel(int32_t threshold) {
  log_internal::g_threshold.store(threshold, std::memory_order_relaxed);
}
// The application's choice: SetDefaultLogLevel leaves it alone from then on.
void ChooseLogLevel(int32_t threshold);
void SetDefaultLogLevel(int32_t threshold);

// Takes a line in place of standard output: its level, its time in nanoseconds since 1970 (UTC), the thread's
// number, where it comes from, and the message. The texts are NUL-terminated and valid during the call. One
// call at a time, on the logging thread, under the log's mutex; must not throw. What it logs itself is
// dropped.
using LogSinkFunction = void (*)(int32_t level, int64_t unixNs, uint32_t thread, const char* file,
                                 const char* function, int32_t line, const char* message, void* user);

// The default: writes to standard output. May be called from a sink and from anywhere else. `user` is not
// looked at.
void WriteLogLine(int32_t level, int64_t unixNs, uint32_t thread, const char* file, const char* function,
                  int32_t line, const char* message, void* user) noexcept;

// Hands the lines to another sink from now on; null drops them. No call of the earlier sink runs any more
// when this returns. From within a sink this would wait for itself: it changes nothing and gives false.
bool SetLogSink(LogSinkFunction function, void* user);

// "2025-01-16 18:09:37.123": UTC with 8 added to the hour and no carry, so the hour reads 8 to 31. Deliberate.
std::string GetTimeStampText();
std::string FormatTimeStamp(std::chrono::system_clock::time_point when);

// The build's date and time, "2025-01-16 10:09:37". FormatBuildTime takes the compiler's two texts.
std::string GetBuildTimeText();
std::string FormatBuildTime(const char* date, const char* time);

}  // namespace libzel

// Logs from the function that it stands in.
#define ZEL_LOG(level, ...) \
  ZEL_LOG_AS(::libzel::log_internal::QualifiedName(__PRETTY_FUNCTION__), level, __VA_ARGS__)

// Logs under the name of the operation that the calling helper is a step of.
#define ZEL_LOG_AS(function, level, ...) \
  ZEL_LOG_FROM(::libzel::log_internal::FileName(__FILE__), function, level, __VA_ARGS__)

#define ZEL_LOG_FROM(file, function, level, format, ...)                                                 \
  do {                                                                                                   \
    if (::libzel::IsLogged(::libzel::LogLevel::level)) {                                                 \
      static constexpr ::libzel::log_internal::CallSite kSite(::libzel::LogLevel::level, file, function, \
                                                              __LINE__, format);                         \
      ::libzel::log_internal::Write(kSite, format __VA_OPT__(, ) __VA_ARGS__);                           \
    }                                                                                                    \
  } while (false)
