// The six-byte device identifier and its text of six decimal numbers, "192.168.1.20.0.1".
#pragma once

#include <array>
#include <asio/ip/address_v4.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "Bytes.h"

namespace zelsim {

inline constexpr size_t kDeviceIdSize = 6;
using DeviceId = std::array<uint8_t, kDeviceIdSize>;

// Strict: exactly six decimal numbers from 0 to 255, so that a typing error shows.
std::optional<DeviceId> ParseDeviceId(std::string_view text);
std::string ToText(const DeviceId& id);
// The identifier of a device that is named after its address: the four address bytes, then 0 and 1.
DeviceId IdFromAddress(const asio::ip::address_v4& address);

}  // namespace zelsim
