#include "ZelProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "ZelProcessSystem.h"

namespace {

constexpr std::chrono::seconds kPatience{30};
constexpr std::chrono::milliseconds kPause{10};

template <typename Condition>
bool WaitUntil(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

int Count(const std::string& text, const std::string& part) {
  int count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
  return count;
}

std::string FromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::filesystem::path AsPath(const std::string& utf8) { return {std::u8string(utf8.begin(), utf8.end())}; }

}  // namespace

std::string ZelProgram() { return FromEnvironment("ZEL_PROGRAM"); }

std::string ScratchFile(const std::string& name) { return FromEnvironment("ZEL_LAB") + "/" + name; }

std::string ReadWhole(const std::string& path) {
  std::ifstream file(AsPath(path), std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

void WriteWhole(const std::string& path, const std::string& content) {
  std::ofstream(AsPath(path), std::ios::binary) << content;
}

ZelProcess::ZelProcess(const std::vector<std::string>& arguments, const std::string& input,
                       const std::string& outputTo, const std::string& program) {
  static int number = 0;
  prefix_ = ScratchFile("zel" + std::to_string(++number));
  WriteWhole(prefix_ + ".in", input);
  system_ =
      std::make_unique<System>(program, arguments, prefix_, outputTo.empty() ? prefix_ + ".out" : outputTo);
}

ZelProcess::~ZelProcess() {
  if (!Poll()) system_->End();
}

bool ZelProcess::Poll() { return status_ != -1 || system_->HasEnded(status_); }

int ZelProcess::Wait() {
  if (WaitUntil([this] { return Poll(); })) return status_;
  ADD_FAILURE() << "the program still runs; it has written \"" << Output() << "\" and \"" << Errors() << "\"";
  return -1;
}

bool ZelProcess::Says(const std::string& path, const std::string& text, int times) {
  bool ended = false;
  return WaitUntil([&] {
           // In this order, so that the last words are read.
           const bool endedBefore = Poll();
           if (Count(ReadWhole(path), text) >= times) return true;
           ended = endedBefore;
           return ended;
         }) &&
         !ended;
}

bool ZelProcess::SaysOutput(const std::string& text, int times) {
  return Says(prefix_ + ".out", text, times);
}
bool ZelProcess::SaysError(const std::string& text, int times) { return Says(prefix_ + ".err", text, times); }
void ZelProcess::Interrupt() { system_->Interrupt(); }
bool ZelProcess::EndsSoonAfterInterrupt(std::chrono::milliseconds time) {
  const auto before = system_->HeldUp();
  const auto start = std::chrono::steady_clock::now();
  Interrupt();
  auto heldUp = before;
  const bool ended = WaitUntil([&] {
    heldUp = system_->HeldUp();
    return Poll();
  });
  const auto taken = std::chrono::steady_clock::now() - start - (heldUp - before);
  return ended && status_ == 130 && taken <= time;
}
std::string ZelProcess::Output() const { return ReadWhole(prefix_ + ".out"); }
std::string ZelProcess::Errors() const { return ReadWhole(prefix_ + ".err"); }

ZelResult RunZel(const std::vector<std::string>& arguments, const std::string& input) {
  ZelProcess process(arguments, input);
  const int status = process.Wait();
  return {status, process.Output(), process.Errors()};
}

ZelResult RunZelTo(const std::string& outputTo, const std::vector<std::string>& arguments) {
  ZelProcess process(arguments, "", outputTo);
  const int status = process.Wait();
  return {status, "", process.Errors()};
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

std::string Unwrapped(const std::string& text) {
  std::string out;
  for (const std::string& line : Lines(text)) {
    out += line.substr(std::min(line.find_first_not_of(' '), line.size())) + " ";
  }
  return out;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}
