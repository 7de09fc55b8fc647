// How a command ends.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

namespace zeltool {

// Exit statuses.
constexpr int kDone = 0;
constexpr int kLibraryFailed = 1;
constexpr int kUsage = 2;
constexpr int kNothingArrived = 27;
constexpr int kInterrupted = 130;

// The library, or a device through it, answered with an error code. Ends the command with kNothingArrived for
// a time-out, with kLibraryFailed for all others.
class LibraryFailure : public std::runtime_error {
 public:
  LibraryFailure(const std::string& what, int32_t code) : std::runtime_error(what), code_(code) {}
  int32_t Code() const { return code_; }

 private:
  int32_t code_;
};

// What was asked for makes no sense, or an input cannot be read: ends the command with kUsage.
class UsageFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Nothing arrived in the time that the user gave: ends the command with kNothingArrived.
class NothingArrived : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace zeltool
