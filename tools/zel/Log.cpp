#include "Log.h"

#include <mutex>
#include <utility>

#include "TimeStamp.h"

namespace zeltool {

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
