#include "utils/Log.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <thread>

#include "platform/Platform.h"
#include "utils/Forever.h"
#include "utils/LogFormat.h"
#include "utils/Mutex.h"

namespace libzel {

namespace {

constexpr size_t kMaxMessage = 8191;
constexpr size_t kStampSize = 23;
constexpr size_t kHeadRoom = 1024;

// What follows the location, "12345ESC[37m]:".
class ThreadText {
 public:
  explicit ThreadText(uint32_t thread) {
    char* end = std::to_chars(text_, text_ + sizeof text_, thread).ptr;
    for (const std::string_view part : {log_internal::kWhite, std::string_view("]:")}) {
      end = std::copy(part.begin(), part.end(), end);
    }
    size_ = static_cast<size_t>(end - text_);
  }
  std::string_view view() const { return {text_, size_}; }

 private:
  char text_[24];
  size_t size_;
};

// That of the calling thread, made once per thread.
std::string_view OwnThreadText() {
  static thread_local const ThreadText text(platform::ThreadId());
  return text.view();
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
  Mutex mutex;
  TimeStamper stamper ZEL_GUARDED_BY(mutex);
};

Sink& LogSink() {
  static Forever<Sink> sink;
  return *sink;
}

// Whom the lines are for. The function may be looked at without the log's mutex, the pair only under it.
struct Receiver {
  std::atomic<LogSinkFunction> function{WriteLogLine};
  void* user = nullptr;
};
constinit Receiver g_receiver;
// The calling thread is in a call of the application's sink.
thread_local bool t_isInSink = false;

bool IsWanted() {
  const LogSinkFunction function = g_receiver.function.load(std::memory_order_relaxed);
  return function == WriteLogLine || (function != nullptr && !t_isInSink);
}

// Room for a line; its pieces are put in from the left, but for the time stamp, which is the last to be
// filled in. Left as it is on purpose: zeroing 8 KiB would cost more than the rest of the line.
using LineRoom = char[kStampSize + 1 + kHeadRoom + kMaxMessage + 1];

// Puts in what is between the time stamp and the message, and gives the message's place.
char* PutHead(LineRoom& room, std::string_view head, std::string_view thread) {
  char* at = room + kStampSize;
  *at++ = ' ';
  for (const std::string_view part : {head.substr(0, kHeadRoom - thread.size()), thread}) {
    std::memcpy(at, part.data(), part.size());
    at += part.size();
  }
  return at;
}

// `end` is that of the message.
void Print(LineRoom& room, char* end, TimeStamper& stamper, std::chrono::system_clock::time_point when) {
  *end++ = '\n';
  stamper.Put(room, when);
  platform::WriteStandardOutput(room, static_cast<size_t>(end - room));
}

// noexcept: a sink that throws ends the process.
template <typename Site>
[[gnu::cold, gnu::noinline]] void HandOver(const Site& site, std::chrono::system_clock::time_point when,
                                           const char* message) noexcept {
  const LogSinkFunction function = g_receiver.function.load(std::memory_order_relaxed);
  if (function == nullptr) return;
  t_isInSink = true;
  function(site.level(), std::chrono::nanoseconds(when.time_since_epoch()).count(), platform::ThreadId(),
           site.file(), site.function(), site.line(), message, g_receiver.user);
  t_isInSink = false;
}

template <typename Site>
void WriteLine(const Site& site, const MessageFormat& format, va_list arguments) {
  if (!IsWanted()) [[unlikely]]
    return;
  LineRoom room;
  char* const message = PutHead(room, site.text(), OwnThreadText());
  char* const end = message + FormatMessage(message, kMaxMessage, format, arguments);

  Sink& sink = LogSink();
  const MutexLock lock(sink.mutex);
  const auto now = std::chrono::system_clock::now();
  if (g_receiver.function.load(std::memory_order_relaxed) == WriteLogLine) [[likely]] {
    Print(room, end, sink.stamper, now);
  } else {
    *end = '\0';
    HandOver(site, now, message);
  }
}

// A call site that is known at run time only; its text has room for any that is printed.
class RuntimeSite {
 public:
  RuntimeSite(int32_t level, const char* file, const char* function, int32_t line)
      : level_(level), line_(line), file_(OrNull(file)), function_(OrNull(function)) {
    const auto style = log_internal::StyleOf(static_cast<LogLevel>(level));
    char digits[16];
    const char* end = std::to_chars(digits, digits + sizeof digits, line).ptr;
    for (const std::string_view part :
         {style.colour, std::string_view("[libzel,"), style.name, std::string_view(","),
          std::string_view(file_), std::string_view(","), std::string_view(function_), std::string_view(","),
          std::string_view(digits, end), std::string_view(",")}) {
      Append(part);
    }
  }
  std::string_view text() const { return {text_, size_}; }
  int32_t level() const { return level_; }
  int32_t line() const { return line_; }
  const char* file() const { return file_; }
  const char* function() const { return function_; }

 private:
  // As the runtime prints a null text.
  static const char* OrNull(const char* text) { return text != nullptr ? text : "(null)"; }
  void Append(std::string_view part) {
    const size_t count = std::min(part.size(), sizeof text_ - size_);
    std::memcpy(text_ + size_, part.data(), count);
    size_ += count;
  }

  int32_t level_;
  int32_t line_;
  const char* file_;
  const char* function_;
  char text_[kHeadRoom];
  size_t size_ = 0;
};

// Whether the threshold is the application's.
struct LevelChoice {
  Mutex mutex;
  bool isMade ZEL_GUARDED_BY(mutex) = false;
};

LevelChoice& LogLevelChoice() {
  static Forever<LevelChoice> choice;
  return *choice;
}

}  // namespace

void log_internal::Write(const CallSite& site, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  WriteLine(site, site.format(), arguments);
  va_end(arguments);
}

// The mutex is taken in one function and given back in another, which the analysis cannot follow.
#define ZEL_UNANALYSED ZEL_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace {
// The forking thread's own, from before the fork to behind it.
thread_local bool t_holdsSink = false;
}  // namespace

ZEL_UNANALYSED void log_internal::BeforeFork() {
  constexpr int kPatienceMs = 20;
  Sink& sink = LogSink();
  t_holdsSink = sink.mutex.try_lock();
  for (int i = 0; i < kPatienceMs && !t_holdsSink; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    t_holdsSink = sink.mutex.try_lock();
  }
}

ZEL_UNANALYSED void log_internal::AfterForkInParent() {
  if (t_holdsSink) LogSink().mutex.unlock();
  t_holdsSink = false;
}

void log_internal::AfterForkInChild() { ::new (static_cast<void*>(&LogSink())) Sink; }

void LogPrint(int32_t level, const char* file, const char* function, int32_t line, const char* format, ...) {
  if (!IsLogged(static_cast<LogLevel>(level))) return;
  const char* backslash = std::strrchr(file, '\\');
  const RuntimeSite site(level, backslash != nullptr ? backslash + 1 : nullptr, function, line);
  va_list arguments;
  va_start(arguments, format);
  WriteLine(site, MessageFormat(format), arguments);
  va_end(arguments);
}

void WriteLogLine(int32_t level, int64_t unixNs, uint32_t thread, const char* file, const char* function,
                  int32_t line, const char* message, void* /*user*/) noexcept {
  const RuntimeSite site(level, file, function, line);
  LineRoom room;
  char* end = PutHead(room, site.text(), ThreadText(thread).view());
  const std::string_view text =
      std::string_view(message != nullptr ? message : "(null)").substr(0, kMaxMessage);
  end = std::copy(text.begin(), text.end(), end);
  TimeStamper stamper;
  using Clock = std::chrono::system_clock;
  Print(room, end, stamper,
        Clock::time_point(std::chrono::floor<Clock::duration>(std::chrono::nanoseconds(unixNs))));
}

bool SetLogSink(LogSinkFunction function, void* user) {
  if (t_isInSink) return false;
  const MutexLock lock(LogSink().mutex);
  g_receiver.user = user;
  g_receiver.function.store(function, std::memory_order_relaxed);
  return true;
}

void ChooseLogLevel(int32_t threshold) {
  LevelChoice& choice = LogLevelChoice();
  const MutexLock lock(choice.mutex);
  choice.isMade = true;
  SetLogLevel(threshold);
}

void SetDefaultLogLevel(int32_t threshold) {
  LevelChoice& choice = LogLevelChoice();
  const MutexLock lock(choice.mutex);
  if (!choice.isMade) SetLogLevel(threshold);
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
