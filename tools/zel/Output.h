// What the program says on standard output: lines for people, or one JSON object a line for programs.
#pragma once

#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Failure.h"
#include "platform/Console.h"

namespace zeltool {

// The members of one JSON object, in their order.
class Record {
 public:
  using Value = std::variant<std::string, int64_t, double, bool>;

  Record& Text(std::string name, std::string_view value);
  Record& Number(std::string name, int64_t value);
  Record& Real(std::string name, double value);
  Record& Flag(std::string name, bool value);
  // "length", and the bytes as "text" when they are text, as "hex" when not.
  Record& Payload(std::span<const uint8_t> bytes);
  // The same with "base64" for what is no text, which takes less room.
  Record& CompactPayload(std::span<const uint8_t> bytes);

  const std::vector<std::pair<std::string, Value>>& Members() const { return members_; }

 private:
  std::vector<std::pair<std::string, Value>> members_;
};

// How much is said beside the results.
enum class Remarks { kShown, kHidden };

// Belongs to the main thread. Does not own the stream.
class Output {
 public:
  Output(std::FILE* stream, bool json, Remarks remarks);

  bool IsJson() const { return json_; }
  // A terminal that a person looks at: lines may be drawn again.
  bool IsLive() const { return live_; }
  TerminalSize Size() const { return GetTerminalSize(stream_); }
  // False once what was written could not be taken.
  bool IsGood() const { return error_ == 0; }
  // Why, in the system's numbers.
  int Error() const { return error_; }

  // One line, out at once.
  void Line(std::string_view text);
  // One line, or on a terminal as many as the words need.
  void Words(std::string_view text);
  // As it is, out at once.
  void Raw(std::string_view bytes);
  void Object(const Record& record);

  // A line that the next one replaces, on a terminal only.
  void Status(std::string_view text);
  void ClearStatus();
  // Takes the last `lines` lines away, on a terminal only.
  void Unwrite(size_t lines);

  // A remark beside the output, on standard error, unless nobody wants any.
  void Note(std::string_view text);
  // Why the command fails, on standard error; as an object, too, for programs.
  void Fail(const Failure& failure);

 private:
  void Write(std::string_view bytes);
  void Flush();
  void Remark(std::string_view text);

  std::FILE* stream_;
  bool json_;
  Remarks remarks_;
  bool live_;
  bool status_ = false;
  int error_ = 0;
};

}  // namespace zeltool
