// Reads what zel record writes, line by line.
#pragma once

#include <chrono>
#include <fstream>
#include <istream>
#include <optional>
#include <string>

#include "Format.h"

namespace zeltool {

// The time of an RFC 3339 text; nothing for anything else.
std::optional<std::chrono::system_clock::time_point> ParseTimeStamp(const std::string& text);

class RecordFile {
 public:
  // "-" is standard input. Throws UsageFailure when the file cannot be opened.
  explicit RecordFile(const std::string& path);

  // The next publication; nothing at the end. Throws UsageFailure, with the line's number, when it is none.
  std::optional<Message> Next();

 private:
  std::string path_;
  std::ifstream file_;
  std::istream& in_;
  size_t line_ = 0;
};

}  // namespace zeltool
