#include "Scanner.h"

#include "Findings.h"
#include "Journal.h"

namespace zelgate {
namespace {

void SayLine(const zel::LogLine& line) {
  const bool isError = line.level == zel::LogLevel::kError;
  if (line.level == zel::LogLevel::kNotice) return;  // the library's version
  Say(isError ? Priority::kError : Priority::kWarning, "libzel: " + std::string(line.message));
}

}  // namespace

Scanner::Scanner() : library_(zel::Options().Log(SayLine)) {
  library_.OnDevice([this](const zel::Device& device) { Note(device); }).Ignore();
}

Scanner::~Scanner() {
  library_.StopScan().Ignore();
  library_.OnDevice(nullptr).Ignore();
}

std::string Scanner::BeginRound() {
  if (!library_.Start()) return std::string("the library does not start: ") + library_.Start().Text();
  const zel::Result started = library_.StartScan();
  if (started) return {};
  const std::string reason = library_.Discovery().reason;
  return reason.empty() ? started.Text() : reason;
}

std::vector<DeviceFinding> Scanner::EndRound() {
  library_.StopScan().Ignore();
  const std::lock_guard lock(mutex_);
  std::vector<DeviceFinding> found;
  for (auto& [key, answer] : answers_) found.push_back(std::move(answer));
  answers_.clear();
  return found;
}

void Scanner::Note(const zel::Device& device) {
  if (!device.id) return;
  const std::string& serial = device.serialNumber.empty() ? device.secondSerialNumber : device.serialNumber;
  const std::string id = device.id->ToString();
  const std::lock_guard lock(mutex_);
  if (answers_.size() >= 2 * Findings::kMostDevices) return;
  answers_[{id, device.address}] = {id, device.address, device.hostName, serial, false, {}};
}

}  // namespace zelgate
