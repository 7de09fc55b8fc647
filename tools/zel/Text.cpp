#include "Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

namespace zeltool {
namespace {

constexpr char kDigits[] = "0123456789abcdef";

bool IsContinuation(uint8_t byte) { return (byte & 0xC0U) == 0x80U; }

// Bytes of the well-formed UTF-8 character that `bytes` begins with, 0 when there is none.
size_t CharacterLength(std::span<const uint8_t> bytes) {
  const uint8_t first = bytes[0];
  const size_t length = first < 0x80 ? 1 : first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (length == 0 || first > 0xF4 || bytes.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if (!IsContinuation(bytes[i])) return 0;
  }
  if (length < 3) return length;
  const uint8_t second = bytes[1];
  const bool wrong = (first == 0xE0 && second < 0xA0) || (first == 0xED && second >= 0xA0) ||
                     (first == 0xF0 && second < 0x90) || (first == 0xF4 && second >= 0x90);
  return wrong ? 0 : length;
}

// C0, DEL and the two-byte C1 controls, some of which terminals obey.
bool IsControl(std::span<const uint8_t> character) {
  if (character.size() == 1) return character[0] < 0x20 || character[0] == 0x7F;
  return character.size() == 2 && character[0] == 0xC2 && character[1] < 0xA0;
}

void AppendHex(std::string& out, uint8_t byte) {
  out += kDigits[byte >> 4U];
  out += kDigits[byte & 15U];
}

std::span<const uint8_t> AsBytes(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

int DigitValue(char character) {
  if (character >= '0' && character <= '9') return character - '0';
  if (character >= 'a' && character <= 'f') return character - 'a' + 10;
  if (character >= 'A' && character <= 'F') return character - 'A' + 10;
  return -1;
}

std::string DumpLine(size_t offset, std::span<const uint8_t> bytes, size_t perLine) {
  std::array<char, 24> number{};
  (void)std::snprintf(number.data(), number.size(), "%08lx", static_cast<unsigned long>(offset));
  std::string line = number.data();
  std::string characters;
  for (size_t i = 0; i < perLine; ++i) {
    line += i == 8 ? "  " : " ";
    if (i >= bytes.size()) {
      line += "  ";
      continue;
    }
    AppendHex(line, bytes[i]);
    characters += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
  }
  return line + "  |" + characters + "|\n";
}

}  // namespace

Bytes ToBytes(std::string_view text) { return {text.begin(), text.end()}; }

std::string_view AsText(std::span<const uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool IsUtf8(std::string_view text) {
  for (std::span<const uint8_t> bytes = AsBytes(text); !bytes.empty();) {
    const size_t length = CharacterLength(bytes);
    if (length == 0) return false;
    bytes = bytes.subspan(length);
  }
  return true;
}

bool IsText(std::span<const uint8_t> bytes) {
  while (!bytes.empty()) {
    const size_t length = CharacterLength(bytes);
    if (length == 0) return false;
    const bool layout = bytes[0] == '\t' || bytes[0] == '\n' || bytes[0] == '\r';
    if (!layout && IsControl(bytes.first(length))) return false;
    bytes = bytes.subspan(length);
  }
  return true;
}

std::string Printable(std::string_view text) {
  std::string out;
  std::span<const uint8_t> bytes = AsBytes(text);
  while (!bytes.empty()) {
    const size_t length = CharacterLength(bytes);
    const auto character = bytes.first(std::max<size_t>(length, 1));
    if (length == 0 || IsControl(character)) {
      for (const uint8_t byte : character) {
        out += "\\x";
        AppendHex(out, byte);
      }
    } else {
      out += AsText(character);
    }
    bytes = bytes.subspan(character.size());
  }
  return out;
}

size_t DisplayWidth(std::string_view text) {
  const auto bytes = AsBytes(text);
  return static_cast<size_t>(
      std::count_if(bytes.begin(), bytes.end(), [](uint8_t byte) { return !IsContinuation(byte); }));
}

std::string PadRight(std::string_view text, size_t width) {
  const size_t used = DisplayWidth(text);
  return std::string(text) + std::string(width > used ? width - used : 0, ' ');
}

std::string PadLeft(std::string_view text, size_t width) {
  const size_t used = DisplayWidth(text);
  return std::string(width > used ? width - used : 0, ' ') + std::string(text);
}

std::string Fixed(double value, int digits) {
  std::array<char, 400> text{};
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed, digits);
  return {text.data(), end.ptr};
}

std::string Brief(double value) {
  std::array<char, 400> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr;
  return {text.data(), end};
}

std::string ReadableSize(double bytes) {
  static constexpr std::array<const char*, 5> kUnits = {"B", "KiB", "MiB", "GiB", "TiB"};
  size_t unit = 0;
  while (bytes >= 1024 && unit + 1 < kUnits.size()) {
    bytes /= 1024;
    ++unit;
  }
  return Fixed(bytes, unit == 0 ? 0 : 1) + " " + kUnits[unit];
}

std::string ReadableDuration(double seconds) {
  const auto total = static_cast<uint64_t>(std::ceil(std::max(seconds, 0.0)));
  const uint64_t hours = total / 3600;
  const std::string minutes = std::to_string(total / 60 % 60);
  const std::string rest = std::to_string(total % 60);
  const std::string tail = ":" + std::string(rest.size() < 2 ? "0" : "") + rest;
  if (hours == 0) return minutes + tail;
  return std::to_string(hours) + ":" + (minutes.size() < 2 ? "0" : "") + minutes + tail;
}

std::string Wrapped(std::string_view text, size_t width, size_t indent) {
  std::string out;
  size_t column = indent;
  while (!text.empty()) {
    const size_t end = std::min(text.find(' '), text.size());
    const std::string_view word = text.substr(0, end);
    if (column > indent && column + 1 + DisplayWidth(word) > width) {
      out += "\n" + std::string(indent, ' ');
      column = indent;
    } else if (column > indent) {
      out += ' ';
      ++column;
    }
    out += word;
    column += DisplayWidth(word);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return out;
}

std::string Counted(uint64_t count, std::string_view thing) {
  return std::to_string(count) + " " + std::string(thing) + (count == 1 ? "" : "s");
}

std::string HexBytes(std::span<const uint8_t> bytes) {
  std::string out;
  for (const uint8_t byte : bytes) {
    if (!out.empty()) out += ' ';
    AppendHex(out, byte);
  }
  return out;
}

std::string HexDump(std::span<const uint8_t> bytes, size_t perLine) {
  std::string out;
  for (size_t offset = 0; offset < bytes.size(); offset += perLine) {
    out += DumpLine(offset, bytes.subspan(offset, std::min(perLine, bytes.size() - offset)), perLine);
  }
  return out;
}

std::optional<Bytes> ParseHex(std::string_view text) {
  Bytes out;
  size_t at = 0;
  while (at < text.size()) {
    const std::string_view rest = text.substr(at);
    if (rest[0] == ' ' || rest[0] == ':' || rest[0] == '\t' || rest[0] == '\n') {
      ++at;
      continue;
    }
    if (rest.size() > 2 && rest[0] == '0' && (rest[1] == 'x' || rest[1] == 'X')) {
      at += 2;
      continue;
    }
    if (rest.size() < 2 || DigitValue(rest[0]) < 0 || DigitValue(rest[1]) < 0) return std::nullopt;
    out.push_back(static_cast<uint8_t>(DigitValue(rest[0]) * 16 + DigitValue(rest[1])));
    at += 2;
  }
  return out;
}

std::optional<double> ParseReal(std::string_view text) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (result.ec != std::errc() || result.ptr != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t limit) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
    base = 16;
  }
  uint64_t value = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value, base);
  if (result.ec != std::errc() || result.ptr != end || value > limit) return std::nullopt;
  return value;
}

namespace {

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string Base64(std::span<const uint8_t> bytes) {
  std::string out;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const size_t count = std::min<size_t>(3, bytes.size() - i);
    uint32_t bits = 0;
    for (size_t j = 0; j < 3; ++j) bits = bits << 8 | (j < count ? bytes[i + j] : 0U);
    for (size_t j = 0; j < 4; ++j) out += j <= count ? kBase64[bits >> (18 - 6 * j) & 63] : '=';
  }
  return out;
}

std::optional<Bytes> ParseBase64(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  Bytes bytes;
  for (size_t i = 0; i < text.size(); i += 4) {
    const bool isLast = i + 4 == text.size();
    size_t padding = 0;
    if (isLast && text[i + 3] == '=') padding = text[i + 2] == '=' ? 2 : 1;
    uint32_t bits = 0;
    for (size_t j = 0; j < 4; ++j) {
      const size_t value = j < 4 - padding ? kBase64.find(text[i + j]) : 0;
      if (value == std::string_view::npos) return std::nullopt;
      bits = bits << 6 | static_cast<uint32_t>(value);
    }
    for (size_t j = 0; j < 3 - padding; ++j) bytes.push_back(static_cast<uint8_t>(bits >> (16 - 8 * j)));
  }
  return bytes;
}

}  // namespace zeltool
