// IPv4 addresses and networks as people write them.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace libzel {

// Four decimal numbers from 0 to 255 with points between; nothing for any other text.
inline std::optional<uint32_t> ParseIpv4(std::string_view text) {
  uint32_t address = 0;
  for (int i = 0; i < 4; ++i) {
    uint8_t part = 0;
    const size_t digits = text.find_first_not_of("0123456789");
    const char* const end = text.data() + std::min(digits, text.size());
    const auto read = std::from_chars(text.data(), end, part);
    if (read.ec != std::errc() || read.ptr != end || end - text.data() > 3) return std::nullopt;
    address = address << 8 | part;
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    if (i == 3) break;
    if (!text.starts_with('.')) return std::nullopt;
    text.remove_prefix(1);
  }
  return text.empty() ? std::optional(address) : std::nullopt;
}

inline std::string Ipv4Text(uint32_t address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    if (!text.empty()) text += '.';
    text += std::to_string(address >> shift & 0xFF);
  }
  return text;
}

struct Ipv4Network {
  uint32_t address = 0;
  uint32_t mask = 0;

  bool Contains(uint32_t host) const { return ((host ^ address) & mask) == 0; }
};

// "10.0.0.0/8", or one host's address.
inline std::optional<Ipv4Network> ParseIpv4Network(std::string_view text) {
  const size_t slash = text.find('/');
  const auto address = ParseIpv4(text.substr(0, slash));
  if (!address) return std::nullopt;
  if (slash == std::string_view::npos) return Ipv4Network{*address, UINT32_MAX};
  const std::string_view bits = text.substr(slash + 1);
  uint8_t length = 0;
  const auto read = std::from_chars(bits.data(), bits.data() + bits.size(), length);
  if (read.ec != std::errc() || read.ptr != bits.data() + bits.size() || length > 32) return std::nullopt;
  return Ipv4Network{*address, length == 0 ? 0 : UINT32_MAX << (32 - length)};
}

}  // namespace libzel
