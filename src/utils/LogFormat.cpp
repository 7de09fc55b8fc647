#include "utils/LogFormat.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace libzel {

namespace {

class Output {
 public:
  Output(char* begin, size_t capacity) : begin_(begin), at_(begin), end_(begin + capacity) {}

  void Append(char character) {
    if (at_ != end_) *at_++ = character;
  }
  void Append(std::string_view text) {
    const size_t count = std::min(text.size(), static_cast<size_t>(end_ - at_));
    std::memcpy(at_, text.data(), count);
    at_ += count;
  }
  template <typename T>
  void AppendNumber(T number, int base = 10) {
    if (const auto result = std::to_chars(at_, end_, number, base); result.ec == std::errc()) {
      at_ = result.ptr;
      return;
    }
    char digits[16];
    const auto result = std::to_chars(digits, digits + sizeof digits, number, base);
    Append({digits, static_cast<size_t>(result.ptr - digits)});
  }
  size_t size() const { return static_cast<size_t>(at_ - begin_); }

 private:
  char* begin_;
  char* at_;
  char* end_;
};

size_t FormatByRuntime(char* out, size_t capacity, const char* format, va_list arguments) {
  // The runtime wants room for its terminator, which a log line has behind the message anyway.
  const int length = std::vsnprintf(out, capacity + 1, format, arguments);
  return length < 0 ? 0 : std::min(static_cast<size_t>(length), capacity);
}

// A va_list that a helper can take from, whatever kind of type the system's is.
struct Arguments {
  explicit Arguments(va_list from) { va_copy(list, from); }
  ~Arguments() { va_end(list); }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;

  va_list list;
};

void AppendArgument(Output& output, char conversion, Arguments& arguments) {
  switch (conversion) {
    case 's': {
      const char* text = va_arg(arguments.list, const char*);
      output.Append(std::string_view(text != nullptr ? text : "(null)"));
      break;
    }
    case 'd': output.AppendNumber(va_arg(arguments.list, int)); break;
    case 'u': output.AppendNumber(va_arg(arguments.list, unsigned)); break;
    case 'x': output.AppendNumber(va_arg(arguments.list, unsigned), 16); break;
    case 'c': output.Append(static_cast<char>(va_arg(arguments.list, int))); break;
    case '%': output.Append('%'); break;
    default: break;
  }
}

}  // namespace

size_t FormatMessage(char* out, size_t capacity, const MessageFormat& format, va_list arguments) {
  if (!format.simple()) return FormatByRuntime(out, capacity, format.text(), arguments);
  Output output(out, capacity);
  Arguments left(arguments);
  const char* at = format.text();
  for (const auto& piece : format.pieces()) {
    output.Append(std::string_view(at, piece.literal));
    AppendArgument(output, piece.conversion, left);
    at += piece.literal + 2;
  }
  return output.size();
}

size_t FormatMessage(char* out, size_t capacity, const char* format, va_list arguments) {
  return FormatMessage(out, capacity, MessageFormat(format), arguments);
}

}  // namespace libzel
