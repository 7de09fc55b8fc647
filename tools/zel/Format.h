// What one message looks like in a line of the user's own: the --format texts of sub and listen.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "Text.h"

namespace zeltool {

// A publication on a topic, or a message on a port.
struct Message {
  bool routed = false;
  uint16_t port = 0;
  std::string topic;
  uint32_t group = 0;
  uint32_t offset = 0;
  Bytes data;
  std::chrono::system_clock::time_point time;
};

// What is wrong with a format; empty when nothing is.
std::string CheckFormat(const std::string& format);

//   %t  topic           %p  port            %T  time             %n  line feed
//   %d  data as it is   %x  data as hex     %s  data printable   %l  length of the data
//   %g  index group     %o  index offset    %%  a percent sign
// and \n, \t, \0 and \\.
// `clock` writes the time.
using ClockText = std::function<std::string(std::chrono::system_clock::time_point)>;
std::string FormatMessage(const std::string& format, const Message& message, const ClockText& clock);

// The line that is shown without a format: where it came from and what it is.
std::string DefaultLine(const Message& message);

}  // namespace zeltool
