#include "DeviceId.h"

#include "Text.h"

namespace zelsim {

std::optional<DeviceId> ParseDeviceId(std::string_view text) {
  const auto parts = Split(text, '.');
  if (parts.size() != kDeviceIdSize) return std::nullopt;
  DeviceId id{};
  for (size_t i = 0; i < kDeviceIdSize; ++i) {
    const auto number = ParseNumber(parts[i], UINT8_MAX);
    if (!number) return std::nullopt;
    id[i] = static_cast<uint8_t>(*number);
  }
  return id;
}

std::string ToText(const DeviceId& id) {
  std::string text;
  for (const uint8_t byte : id) {
    if (!text.empty()) text += '.';
    text += std::to_string(byte);
  }
  return text;
}

DeviceId IdFromAddress(const asio::ip::address_v4& address) {
  const auto bytes = address.to_bytes();
  return {bytes[0], bytes[1], bytes[2], bytes[3], 0, 1};
}

}  // namespace zelsim
