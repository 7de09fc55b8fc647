// Bounded printf-style formatting for log messages. The conversions that the library's messages use (%s %d %u
// %x %c and %%, without flags) are done here, everything else by the runtime.
#pragma once

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace libzel {

// A format taken apart, at compile time where the format is a literal. It points into the format.
class MessageFormat {
 public:
  // A run of characters to copy and the conversion behind it; at the end of the format there is none ('\0').
  struct Piece {
    uint16_t literal = 0;
    char conversion = '\0';
  };

  constexpr explicit MessageFormat(const char* format) : text_(format) {
    for (const char* at = format; count_ < pieces_.size(); ++count_) {
      const char* begin = at;
      while (*at != '\0' && *at != '%') ++at;
      if (at - begin > UINT16_MAX) return;
      Piece& piece = pieces_[count_];
      piece.literal = static_cast<uint16_t>(at - begin);
      if (*at == '\0') {
        ++count_;
        simple_ = true;
        return;
      }
      piece.conversion = at[1];
      if (!IsDoneHere(piece.conversion)) return;
      at += 2;
    }
  }

  constexpr const char* text() const { return text_; }
  // False when the format is the runtime's to do.
  constexpr bool simple() const { return simple_; }
  constexpr std::span<const Piece> pieces() const { return std::span(pieces_).first(count_); }

 private:
  static constexpr bool IsDoneHere(char conversion) {
    return conversion != '\0' && std::string_view("sduxc%").find(conversion) != std::string_view::npos;
  }

  const char* text_;
  std::array<Piece, 12> pieces_{};
  size_t count_ = 0;
  bool simple_ = false;
};

// Writes at most `capacity` characters, without a terminator, and gives their number; the rest is cut
// silently. A null %s prints "(null)". `capacity` is at least 1.
size_t FormatMessage(char* out, size_t capacity, const MessageFormat& format, va_list arguments);
size_t FormatMessage(char* out, size_t capacity, const char* format, va_list arguments);

}  // namespace libzel
