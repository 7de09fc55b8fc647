#include "zelcomm/DeviceId.h"

#include <cstring>
#include <span>

namespace libzel {

namespace {

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Only the low 8 bits are kept, so arithmetic modulo 256 is enough, however long the number.
uint8_t ParseComponent(std::string_view text) {
  size_t at = 0;
  while (at < text.size() && IsBlank(text[at])) ++at;
  const bool negative = at < text.size() && text[at] == '-';
  if (at < text.size() && (text[at] == '-' || text[at] == '+')) ++at;
  uint32_t value = 0;
  for (; at < text.size() && IsDigit(text[at]); ++at)
    value = value * 10 + static_cast<uint32_t>(text[at] - '0');
  return static_cast<uint8_t>(negative ? 0 - value : value);
}

// Splits at "." from the left into exactly as many components as there are bytes. A "." that ends the text starts no
// further component.
bool ParseDotted(std::string_view text, std::span<uint8_t> bytes) {
  for (uint8_t& byte : bytes) {
    if (text.empty()) return false;
    const size_t dot = text.find('.');
    byte = ParseComponent(text.substr(0, dot));
    text.remove_prefix(dot == std::string_view::npos ? text.size() : dot + 1);
  }
  return text.empty();
}

}  // namespace

std::string DeviceIdText(const ZelDeviceId& id) {
  std::string text;
  text.reserve(24);
  for (const uint8_t byte : id.bytes) {
    if (byte >= 100) text += static_cast<char>('0' + byte / 100);
    if (byte >= 10) text += static_cast<char>('0' + byte / 10 % 10);
    text += static_cast<char>('0' + byte % 10);
    text += '.';
  }
  text.pop_back();
  return text;
}

ZelDeviceId ParseDeviceId(std::string_view text) {
  ZelDeviceId id{};
  return ParseDotted(text, id.bytes) ? id : ZelDeviceId{};
}

ZelDeviceId DeviceIdFromAdapterIp(std::string_view ip) {
  ZelDeviceId id{};
  if (!ParseDotted(ip, std::span(id.bytes).first(4))) id = {};
  id.bytes[4] = 1;
  id.bytes[5] = 1;
  return id;
}

bool DeviceIdLess::operator()(const ZelDeviceId& left, const ZelDeviceId& right) const {
  return std::memcmp(left.bytes, right.bytes, sizeof left.bytes) < 0;
}

}  // namespace libzel
