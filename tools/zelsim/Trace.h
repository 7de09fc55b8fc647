// One line per frame, datagram and event, for people and for test programs.
//
// A line is a row of key=value pairs separated by one blank, beginning with t= (CLOCK_MONOTONIC in
// milliseconds, three decimals) and event=. Texts are escaped (see Escape in Text.h), so a value holds no
// blank. Each line goes out with one write, so several processes may append to one file. Not for use by two
// threads at once.
#pragma once

#include <string>
#include <string_view>
#include <type_traits>

namespace zelsim {

class TraceLine {
 public:
  explicit TraceLine(std::string_view event);

  TraceLine& Text(std::string_view key, std::string_view value);
  TraceLine& Hex(std::string_view key, uint64_t value);
  template <typename T>
  requires std::is_integral_v<T> TraceLine& Number(std::string_view key, T value) {
    return Plain(key, std::to_string(value));
  }

  const std::string& Line() const { return line_; }

 private:
  TraceLine& Plain(std::string_view key, std::string_view value);

  std::string line_;
};

class Trace {
 public:
  Trace() = default;
  ~Trace();
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;

  // "-" is standard output; a file is appended to. False when the file cannot be opened.
  bool Open(const std::string& path);
  // Ask before building a line: tracing is off until Open() succeeded.
  bool On() const { return descriptor_ >= 0; }
  void Write(const TraceLine& line);

 private:
  int descriptor_ = -1;
};

}  // namespace zelsim
