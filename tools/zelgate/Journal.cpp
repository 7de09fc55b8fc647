#include "Journal.h"

#include <unistd.h>

#include <array>
#include <cstdio>

namespace zelgate {
namespace {

// How many bytes the character at the front has; 0 when it is none, or one that controls something.
size_t CharacterSize(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < size) return 0;
  for (size_t i = 1; i < size; ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) return 0;
  }
  const auto second = static_cast<unsigned char>(text[1]);
  const bool isControl = first == 0xC2 && second < 0xA0;
  const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
  const bool isBeyond = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
  return isControl || isOverlong || isBeyond ? 0 : size;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const size_t size = CharacterSize(text);
    if (size != 0) {
      shown += text.substr(0, size);
    } else {
      std::array<char, 8> escaped{};
      (void)std::snprintf(escaped.data(), escaped.size(), "\\x%02x", static_cast<unsigned char>(text[0]));
      shown += escaped.data();
    }
    text.remove_prefix(size == 0 ? 1 : size);
  }
  return shown;
}

void Say(Priority priority, std::string_view text) {
  const std::string line = "<" + std::to_string(static_cast<int>(priority)) + ">" + Printable(text) + "\n";
  const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
  (void)written;  // nobody is left to tell
}

}  // namespace zelgate
