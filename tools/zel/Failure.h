// How a command ends.
#pragma once

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

namespace zeltool {

// Exit statuses.
constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kUsage = 2;
constexpr int kNothingArrived = 27;
constexpr int kInterrupted = 130;

// Their table, for the help, the manual and, held against it by a test, docs/tool.md.
struct ExitStatus {
  int status;
  const char* meaning;
};
inline constexpr std::array<ExitStatus, 5> kExitStatuses = {{
    {kDone, "done"},
    {kFailed,
     "the library or the device reported an error (zel errors explains its number), the device cannot be "
     "reached, or the "
     "results could not be written"},
    {kUsage,
     "the command line is wrong, or a file that it names cannot be used: missing, too long, no record"},
    {kNothingArrived,
     "nothing arrived in time, or less than --count; not all left in time; the device is silent"},
    {kInterrupted, "interrupted by Ctrl-C"},
}};

// Ends the command. What went wrong is one sentence; the advice, which may be empty, is what to try.
class Failure : public std::runtime_error {
 public:
  Failure(int status, const std::string& what, std::string advice = {}, int32_t code = 0)
      : std::runtime_error(what), status_(status), advice_(std::move(advice)), code_(code) {}

  int Status() const { return status_; }
  const std::string& Advice() const { return advice_; }
  // The library's or the device's error number, 0 when there is none.
  int32_t Code() const { return code_; }

 private:
  int status_;
  std::string advice_;
  int32_t code_;
};

// The library, or a device through it, answered with an error code. Ends the command with kNothingArrived for
// a time-out, with kFailed for all others.
class LibraryFailure : public Failure {
 public:
  LibraryFailure(const std::string& what, int32_t code, std::string advice = {});
};

// What was asked for makes no sense, or an input cannot be read: ends the command with kUsage.
class UsageFailure : public Failure {
 public:
  explicit UsageFailure(const std::string& what) : Failure(kUsage, what) {}
};

// Nothing arrived in the time that the user gave: ends the command with kNothingArrived.
class NothingArrived : public Failure {
 public:
  explicit NothingArrived(const std::string& what, std::string advice = {})
      : Failure(kNothingArrived, what, std::move(advice)) {}
};

// Several devices answer to a name; another look does not change that.
class SeveralDevices : public Failure {
 public:
  explicit SeveralDevices(const std::string& what)
      : Failure(kFailed, what, "Name the device by its address.") {}
};

// "recv message timeout"
const char* TextOf(int32_t code);
// "error 4104: recv message timeout"
std::string ErrorText(int32_t code);

}  // namespace zeltool
