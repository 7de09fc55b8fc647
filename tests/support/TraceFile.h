// The simulator's trace, read while it grows. Time-outs are in ms.
#pragma once

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "support/Recorders.h"

namespace zeltest {

class TraceLine : public std::map<std::string, std::string> {
 public:
  // The value of a key, empty without one.
  std::string Of(const std::string& key) const {
    const auto entry = find(key);
    return entry != end() ? entry->second : "";
  }
  double Ms() const { return std::strtod(Of("t").c_str(), nullptr); }
};

class TraceFile {
 public:
  // That of the lab's n-th simulator, from 1.
  explicit TraceFile(int number) {
    const char* path = std::getenv(("ZEL_TRACE_" + std::to_string(number)).c_str());
    if (path != nullptr) path_ = path;
  }

  // Whole lines that have all of these values.
  std::vector<TraceLine> Lines(const std::map<std::string, std::string>& values) const {
    std::ifstream file(path_, std::ios::binary);
    std::vector<TraceLine> lines;
    for (std::string text; std::getline(file, text) && !file.eof();) {
      TraceLine line = Parse(text);
      bool fits = true;
      for (const auto& [key, value] : values) fits = fits && line.Of(key) == value;
      if (fits) lines.push_back(std::move(line));
    }
    return lines;
  }
  bool Await(const std::map<std::string, std::string>& values, size_t count = 1,
             int timeoutMs = 20000) const {
    return Eventually([&] { return Lines(values).size() >= count; }, timeoutMs);
  }

 private:
  static TraceLine Parse(const std::string& text) {
    TraceLine line;
    for (size_t at = 0; at < text.size();) {
      const size_t end = std::min(text.find(' ', at), text.size());
      const size_t equals = text.find('=', at);
      if (equals < end) line[text.substr(at, equals - at)] = text.substr(equals + 1, end - equals - 1);
      at = end + 1;
    }
    return line;
  }

  std::string path_;
};

}  // namespace zeltest
