// Reads what zel record writes, line by line.
#pragma once

#include <fstream>
#include <istream>
#include <optional>
#include <string>

#include "Format.h"

namespace zeltool {

// The publication that a line describes; nothing for one that tells how zel sub ended. Throws
// std::invalid_argument, which says what is wrong with the line.
std::optional<Message> ReadPublication(const std::string& line);

class RecordFile {
 public:
  // "-" is standard input. A file that can be read twice is read to its end here, so that nothing of a broken
  // record is published. Throws UsageFailure, as Next does.
  explicit RecordFile(const std::string& path);

  // The next publication; nothing at the end. Throws UsageFailure when a line is none, with its number and
  // what is wrong, and when the file cannot be read.
  std::optional<Message> Next();

 private:
  void Check();
  bool ReadLine(std::string& text);

  std::string name_;
  std::ifstream file_;
  std::istream& in_;
  size_t line_ = 0;
};

}  // namespace zeltool
