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

  void Append(std::string_view text) {
    const size_t count = std::min(text.size(), static_cast<size_t>(end_ - at_));
    std::memcpy(at_, text.data(), count);
    at_ += count;
  }
  template <typename T>
  void AppendNumber(T number, int base = 10) {
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

bool IsSimple(const char* format) {
  for (const char* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at + 2, '%')) {
    if (at[1] == '\0' || std::strchr("sduxc%", at[1]) == nullptr) return false;
  }
  return true;
}

size_t FormatByRuntime(char* out, size_t capacity, const char* format, va_list arguments) {
  // The runtime wants room for its terminator, which a log line has behind the message anyway.
  const int length = std::vsnprintf(out, capacity + 1, format, arguments);
  return length < 0 ? 0 : std::min(static_cast<size_t>(length), capacity);
}

}  // namespace

size_t FormatMessage(char* out, size_t capacity, const char* format, va_list arguments) {
  if (!IsSimple(format)) return FormatByRuntime(out, capacity, format, arguments);

  Output output(out, capacity);
  while (const char* percent = std::strchr(format, '%')) {
    output.Append({format, static_cast<size_t>(percent - format)});
    switch (percent[1]) {
      case 's': {
        const char* text = va_arg(arguments, const char*);
        output.Append(text != nullptr ? text : "(null)");
        break;
      }
      case 'd': output.AppendNumber(va_arg(arguments, int)); break;
      case 'u': output.AppendNumber(va_arg(arguments, unsigned)); break;
      case 'x': output.AppendNumber(va_arg(arguments, unsigned), 16); break;
      case 'c': {
        const char character = static_cast<char>(va_arg(arguments, int));
        output.Append({&character, 1});
        break;
      }
      default: output.Append("%"); break;
    }
    format = percent + 2;
  }
  output.Append(format);
  return output.size();
}

}  // namespace libzel
