/// @file
/// How the library is set up: its options and its log. Included by libzel.hpp.
#pragma once

#include <libzel/hpp/protection.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zel {

/// The levels of the log. A line is written when its level is not below the set one. Note the order: kNotice
/// stands above kError.
enum class LogLevel : int32_t {
  kTrace = LIBZELX_LOG_TRACE,      ///< every step
  kDebug = LIBZELX_LOG_DEBUG,      ///< each message
  kInfo = LIBZELX_LOG_INFO,        ///< connects
  kWarning = LIBZELX_LOG_WARNING,  ///< what is wrong and was survived
  kError = LIBZELX_LOG_ERROR,      ///< failures
  kNotice = LIBZELX_LOG_NOTICE,    ///< the version, at the start
  kNothing = LIBZELX_LOG_NOTHING,  ///< no line at all, as a level to set
};

/// The level's name, "WARNING".
inline const char* NameOf(LogLevel level) {
  switch (level) {
    case LogLevel::kTrace: return "TRACE";
    case LogLevel::kDebug: return "DEBUG";
    case LogLevel::kInfo: return "INFO";
    case LogLevel::kWarning: return "WARNING";
    case LogLevel::kError: return "ERROR";
    case LogLevel::kNotice: return "NOTICE";
    default: return "OTHER";
  }
}

/// One line of the library's log.
struct LogLine {
  LogLevel level = LogLevel::kTrace;           ///< how bad it is
  std::chrono::system_clock::time_point time;  ///< when
  uint32_t thread = 0;                         ///< the system's number of the thread that logs
  std::string_view file;                       ///< the place in the library's sources
  std::string_view function;                   ///< the function there
  int32_t line = 0;                            ///< the line there
  std::string_view message;                    ///< what, without a line end
};

/// Takes one line. Runs on the thread that logs, one call at a time in the process: all others that log wait
/// meanwhile. So let it be quick. It must not call the library, and must not wait for a thread that may be in
/// the library.
using LogSink = std::function<void(const LogLine&)>;

/// A sink: writes "libzel WARNING CTcpclient::Connect: message" to std::clog, in one piece.
inline void ClogSink(const LogLine& line) {
  std::string text = "libzel ";
  text.append(NameOf(line.level)).append(" ").append(line.function).append(": ").append(line.message);
  text += '\n';
  std::clog << text << std::flush;
}

namespace detail {

/// The sink of those who choose none: failures on std::clog. Some come with each message, of a port that
/// nobody asked for, say. So of those from one place in the library only one is written in a while.
class FailureSink {
 public:
  void operator()(const LogLine& line) {
    if (line.level == LogLevel::kNotice) return;  // the version is no failure
    Place& place = places_[{std::string(line.file), line.line}];
    const bool isRepeated = place.wasWritten && line.time - place.written < kPause;
    place.heldBack = isRepeated ? place.heldBack + 1 : place.heldBack;
    if (isRepeated) return;
    if (place.heldBack != 0) {
      LogLine more = line;
      const std::string text = std::to_string(place.heldBack) + " more like the next one";
      more.message = text;
      ClogSink(more);
    }
    ClogSink(line);
    place = {true, line.time, 0};
  }

 private:
  static constexpr std::chrono::seconds kPause{10};
  struct Place {
    bool wasWritten = false;
    std::chrono::system_clock::time_point written;
    uint64_t heldBack = 0;
  };
  std::map<std::pair<std::string, int32_t>, Place> places_;
};

}  // namespace detail

/// How a Library is set up. By default, it has the protective values (libzelx_protect): no peer ends the
/// process or holds it up for ever, and discovery starts with the first scan. Warnings and errors go to
/// std::clog, repeated ones now and then, and nothing to standard output.
///
///     using namespace std::chrono_literals;
///     zel::Library library(zel::Options().Set(zel::TimeOption::kWriteStall, 2s).Log(mySink));
class Options {
 public:
  /// @name Protection
  /// They hold for the process, from its first Library on.
  /// @{

  /// Everything as in libzel.h, its dangers included. Single options may be set all the same.
  Options& ByTheLetter() {
    protection_.isByTheLetter = true;
    return *this;
  }
  /// One option, in place of its protective value, or of that by the letter. The last one of its name holds.
  Options& Set(Option option, int64_t value) {
    protection_.values.emplace_back(static_cast<int32_t>(option), value);
    return *this;
  }
  Options& Set(TimeOption option, Milliseconds time) {
    protection_.values.emplace_back(static_cast<int32_t>(option), detail::OptionValue(option, time));
    return *this;
  }
  /// Limits discovery to answers from the networks in `peers` ("10.0.0.0/8,192.168.1.0/24"), and to asking on
  /// the adapters in `adapters` (addresses or names, "eth0,10.0.0.5"). Empty: all.
  Options& Networks(std::string peers, std::string adapters = {}) {
    protection_.hasNetworks = true;
    protection_.peers = std::move(peers);
    protection_.adapters = std::move(adapters);
    return *this;
  }
  /// @}

  /// @name Log
  /// @{

  /// Hands the lines from this level up to the sink; an empty one drops them all. The Library keeps a copy of
  /// it, and lets go of it when it ends.
  Options& Log(LogSink sink, LogLevel level = LogLevel::kWarning) {
    sink_ = std::move(sink);
    level_ = level;
    toStdout_ = false;
    return *this;
  }
  /// The log as a C program has it: standard output, in colour, every message. It stays so after the Library.
  Options& LogToStdout(LogLevel level = LogLevel::kDebug) {
    sink_ = nullptr;
    level_ = level;
    toStdout_ = true;
    return *this;
  }
  /// @}

  /// @name What was chosen
  /// @{

  /// For the Library.
  const LogSink& Sink() const { return sink_; }
  LogLevel Level() const { return level_; }
  bool IsLogToStdout() const { return toStdout_; }
  const detail::Protection& Protection() const { return protection_; }
  /// @}

 private:
  detail::Protection protection_;
  LogSink sink_ = detail::FailureSink();
  LogLevel level_ = LogLevel::kWarning;
  bool toStdout_ = false;
};

namespace detail {

/// The log as one Library wants it, for as long as that lives and no later one wants it otherwise. With the
/// last one it goes nowhere, unless that is standard output: threads of the library log until the process
/// ends, and a sink may refer to what goes.
class LogChoice {
 public:
  explicit LogChoice(const Options& options)
      : sink_(options.Sink()), level_(options.Level()), toStdout_(options.IsLogToStdout()) {
    const std::lock_guard<std::mutex> lock(Mutex());
    Living().push_back(this);
    Apply();
  }
  ~LogChoice() {
    const std::lock_guard<std::mutex> lock(Mutex());
    const bool isInForce = Living().back() == this;
    Living().erase(std::find(Living().begin(), Living().end(), this));
    if (!isInForce) return;
    if (!Living().empty()) {
      Living().back()->Apply();
    } else if (!toStdout_) {
      (void)libzelx_setLogSink(nullptr, nullptr);
    }
  }
  LogChoice(const LogChoice&) = delete;
  LogChoice& operator=(const LogChoice&) = delete;

 private:
  /// Both are never destroyed: a Library may be a static object.
  static std::mutex& Mutex() {
    static auto* const mutex = new std::mutex;
    return *mutex;
  }
  static std::vector<LogChoice*>& Living() {
    static auto* const living = new std::vector<LogChoice*>;
    return *living;
  }

  /// The earlier sink does not run any more when this returns.
  void Apply() {
    (void)libzelx_setLogLevel(static_cast<int32_t>(level_));
    const libzelx_LogSink own = sink_ ? Call : nullptr;
    (void)libzelx_setLogSink(toStdout_ ? libzelx_stdoutSink : own, this);
  }

  static void Call(int32_t level, int64_t unixNs, uint32_t thread, const char* file, const char* function,
                   int32_t line, const char* message, void* user) {
    using Clock = std::chrono::system_clock;
    const auto sinceEpoch = std::chrono::duration_cast<Clock::duration>(std::chrono::nanoseconds(unixNs));
    (void)Contain([&] {
      static_cast<const LogChoice*>(user)->sink_({static_cast<LogLevel>(level), Clock::time_point(sinceEpoch),
                                                  thread, file, function, line, message});
    });
  }

  LogSink sink_;
  LogLevel level_;
  bool toStdout_;
};

}  // namespace detail

}  // namespace zel
