#include "Text.h"

#include <charconv>
#include <fstream>
#include <iterator>

namespace zelsim {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

std::optional<Bytes> ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  return Bytes(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

std::vector<std::string_view> Split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  size_t begin = 0;
  for (size_t end; (end = text.find(separator, begin)) != text.npos; begin = end + 1) {
    parts.push_back(text.substr(begin, end - begin));
  }
  parts.push_back(text.substr(begin));
  return parts;
}

std::optional<std::pair<std::string_view, std::string_view>> SplitOnce(std::string_view text,
                                                                       char separator) {
  const size_t at = text.find(separator);
  if (at == text.npos) return std::nullopt;
  return std::pair{text.substr(0, at), text.substr(at + 1)};
}

std::optional<uint64_t> ParseNumber(std::string_view text, uint64_t limit) {
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc{} || end != text.data() + text.size() || value > limit) return std::nullopt;
  return value;
}

std::optional<uint16_t> ParsePort(std::string_view text) {
  const auto value = ParseNumber(text, UINT16_MAX);
  if (!value) return std::nullopt;
  return static_cast<uint16_t>(*value);
}

std::optional<asio::ip::address_v4> ParseAddress(std::string_view text) {
  asio::error_code error;
  const auto address = asio::ip::make_address_v4(std::string(text), error);
  if (error) return std::nullopt;
  return address;
}

std::optional<Bytes> ParseBytes(std::string_view text) {
  if (text.starts_with('@')) return ReadWholeFile(std::string(text.substr(1)));
  if (text.size() % 2 != 0) return std::nullopt;
  Bytes bytes(text.size() / 2);
  for (size_t i = 0; i < bytes.size(); ++i) {
    const char* at = text.data() + 2 * i;
    const auto [end, error] = std::from_chars(at, at + 2, bytes[i], 16);
    if (error != std::errc{} || end != at + 2) return std::nullopt;
  }
  return bytes;
}

std::string ToHex(ByteView bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const uint8_t byte : bytes) {
    text += kHexDigits[byte >> 4];
    text += kHexDigits[byte & 15];
  }
  return text;
}

std::string Escape(std::string_view text) {
  std::string escaped;
  for (const char letter : text) {
    const auto byte = static_cast<uint8_t>(letter);
    if (byte > ' ' && byte < 0x7f && byte != '%' && byte != '=' && byte != '"') {
      escaped += letter;
    } else {
      escaped += '%';
      escaped += kHexDigits[byte >> 4];
      escaped += kHexDigits[byte & 15];
    }
  }
  return escaped;
}

}  // namespace zelsim
