// The library's log lines while an object of this kind lives: standard output goes to a file that is read
// back line by line. One at a time per process.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace zeltest {

struct LogLine {
  std::string level;
  std::string file;
  std::string function;
  std::string message;

  bool operator==(const LogLine&) const = default;
};

class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::vector<LogLine> Lines() const;
  // How often a line of this level and message stands in the log.
  int Count(std::string_view level, std::string_view message) const;
  bool Has(std::string_view level, std::string_view message) const { return Count(level, message) > 0; }
  // Waits until it does, at most 10 s.
  bool Await(std::string_view level, std::string_view message, int times = 1) const;
  // Whether a line of this level begins so.
  bool HasStart(std::string_view level, std::string_view start) const;
  // The function field of the first line with the message; empty without one.
  std::string FunctionOf(std::string_view message) const;
  std::string FileOf(std::string_view message) const;

 private:
  std::string path_;
  int saved_ = -1;
};

}  // namespace zeltest
