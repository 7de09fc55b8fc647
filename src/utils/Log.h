// The process-wide logger: one levelled, time-stamped, coloured line per event on standard output.
//
// Any thread may log at any time. A line is put together outside the lock but for its time stamp, and written in one
// piece under it, so lines never mix and stand in the order in which their callers took the lock. The log's mutex is a
// leaf: nothing called under it logs or takes another lock. Nothing here reports failure to the caller.
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
// library's own outer namespace is left out, that of the XML reader is part of its name.
constexpr std::string_view QualifiedName(std::string_view decorated) {
  const std::string_view upToArguments = decorated.substr(0, decorated.find('('));
  std::string_view name = upToArguments.substr(upToArguments.find_last_of(" *&") + 1);
  constexpr std::string_view kOuter = "libzel::";
  constexpr std::string_view kXml = "libzel::xml::";
  if (name.substr(0, kOuter.size()) == kOuter && name.substr(0, kXml.size()) != kXml) {
    name.remove_prefix(kOuter.size());
  }
  return name;
}

constexpr std::string_view FileName(std::string_view path) { return path.substr(path.find_last_of("/\\") + 1); }

// Where a call site stands, "file,function,line", put together at compile time.
class Location {
 public:
  constexpr Location(std::string_view file, std::string_view function, int32_t line) {
    Append(file);
    Append(",");
    Append(function);
    Append(",");
    AppendNumber(line);
  }
  constexpr std::string_view text() const { return {text_.data(), size_}; }

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

  std::array<char, 128> text_{};
  size_t size_ = 0;
};

[[gnu::format(printf, 3, 4)]] void Write(LogLevel level, std::string_view location, const char* format, ...);
}  // namespace log_internal

inline bool IsLogged(LogLevel level) {
  return static_cast<int32_t>(level) >= log_internal::g_threshold.load(std::memory_order_relaxed);
}

// Writes one line if `level` is at or above the threshold (signed). `file` is a path with backslash separators, of
// which the part behind the last one is printed; a path without any prints "(null)". A message is cut to 8191
// characters.
[[gnu::format(printf, 5, 6)]] void LogPrint(int32_t level, const char* file, const char* function, int32_t line, const char* format, ...);

// Stores the threshold; lines that start afterwards obey it.
inline void SetLogLevel(int32_t threshold) {
  log_internal::g_threshold.store(threshold, std::memory_order_relaxed);
}

// "2025-01-16 18:09:37.123": UTC with 8 added to the hour and no carry, so the hour reads 8 to 31. Deliberate.
std::string GetTimeStampText();
std::string FormatTimeStamp(std::chrono::system_clock::time_point when);

// The build's date and time, "2025-01-16 10:09:37". FormatBuildTime takes the compiler's two texts.
std::string GetBuildTimeText();
std::string FormatBuildTime(const char* date, const char* time);

}  // namespace libzel

// Logs from the function that it stands in.
#define ZEL_LOG(level, ...) ZEL_LOG_AS(::libzel::log_internal::QualifiedName(__PRETTY_FUNCTION__), level, __VA_ARGS__)

// Logs under the name of the operation that the calling helper is a step of.
#define ZEL_LOG_AS(function, level, ...) \
  ZEL_LOG_FROM(::libzel::log_internal::FileName(__FILE__), function, level, __VA_ARGS__)

#define ZEL_LOG_FROM(file, function, level, ...)                                          \
  do {                                                                                    \
    if (::libzel::IsLogged(::libzel::LogLevel::level)) {                                  \
      static constexpr ::libzel::log_internal::Location kLocation(file, function, __LINE__); \
      ::libzel::log_internal::Write(::libzel::LogLevel::level, kLocation.text(), __VA_ARGS__); \
    }                                                                                     \
  } while (false)
