/// @file
/// Device identifiers. Included by libzel.hpp.
#pragma once

#include <libzel/hpp/basics.hpp>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace zel {

/// A device's identifier: six bytes, ordered from the first to the last. Zero by default.
class DeviceId {
 public:
  constexpr DeviceId() = default;
  /// From its six bytes, in the order in which they are written.
  constexpr DeviceId(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3, uint8_t b4, uint8_t b5)
      : id_{{b0, b1, b2, b3, b4, b5}} {}
  /// From the structure of libzel.h.
  constexpr explicit DeviceId(const ZelDeviceId& id) : id_(id) {}

  /// Six decimals from 0 to 255 joined by ".", and nothing else. Stricter than libzel_makeZelDeviceId, which
  /// takes anything.
  static constexpr std::optional<DeviceId> Parse(std::string_view text) {
    DeviceId parsed;
    for (size_t i = 0; i < 6; ++i) {
      const size_t size = (std::min)(text.find('.'), text.size());
      if ((i < 5) == (size == text.size()) || !ParseByte(text.substr(0, size), parsed.id_.bytes[i]))
        return {};
      text.remove_prefix((std::min)(size + 1, text.size()));
    }
    return parsed;
  }
  /// This machine's identifier (libzel_getLocalZelDeviceId).
  static ValueOf<DeviceId> Local() {
    DeviceId id;
    const Result result(libzel_getLocalZelDeviceId(&id.id_));
    return {result, id};
  }
  /// Asks the host (dotted IPv4) for its identifier (libzel_getRemoteZelDeviceId).
  static ValueOf<DeviceId> Of(const std::string& host, Milliseconds timeout) {
    DeviceId id;
    if (detail::IsNegative(timeout)) return {Result(ZEL_E_PARAM), id};
    const Result result(libzel_getRemoteZelDeviceId(host.c_str(), detail::Clamp<int32_t>(timeout), &id.id_));
    return {result, result ? id : DeviceId()};
  }
  /// Gives the host this identifier (libzel_setRemoteZelDeviceId).
  Result AssignTo(const std::string& host, Milliseconds timeout) const {
    if (detail::IsNegative(timeout)) return Result(ZEL_E_PARAM);
    return Result(
        libzel_setRemoteZelDeviceId(host.c_str(), ToString().c_str(), detail::Clamp<int32_t>(timeout)));
  }

  /// Six decimals joined by ".".
  std::string ToString() const {
    std::string text;
    for (const uint8_t byte : id_.bytes) {
      if (!text.empty()) text += '.';
      text += std::to_string(byte);
    }
    return text;
  }
  /// Writes it as ToString gives it.
  friend std::ostream& operator<<(std::ostream& out, const DeviceId& id) { return out << id.ToString(); }
  /// For the functions of libzel.h.
  constexpr const ZelDeviceId& Raw() const { return id_; }

  /// @name Order
  /// @{

  /// Compares byte by byte, from the first to the last.
  friend bool operator==(const DeviceId& left, const DeviceId& right) { return left.Compare(right) == 0; }
  friend bool operator!=(const DeviceId& left, const DeviceId& right) { return left.Compare(right) != 0; }
  friend bool operator<(const DeviceId& left, const DeviceId& right) { return left.Compare(right) < 0; }
  friend bool operator>(const DeviceId& left, const DeviceId& right) { return left.Compare(right) > 0; }
  friend bool operator<=(const DeviceId& left, const DeviceId& right) { return left.Compare(right) <= 0; }
  friend bool operator>=(const DeviceId& left, const DeviceId& right) { return left.Compare(right) >= 0; }
  /// @}

 private:
  static constexpr bool ParseByte(std::string_view digits, uint8_t& byte) {
    if (digits.empty() || digits.size() > 3) return false;
    unsigned value = 0;
    for (const char digit : digits) {
      if (digit < '0' || digit > '9') return false;
      value = value * 10 + static_cast<unsigned>(digit - '0');
    }
    byte = static_cast<uint8_t>(value);
    return value <= 255;
  }
  int Compare(const DeviceId& other) const {
    return std::memcmp(id_.bytes, other.id_.bytes, sizeof id_.bytes);
  }

  ZelDeviceId id_{};
};

}  // namespace zel

namespace std {

template <>
struct hash<zel::DeviceId> {
  size_t operator()(const zel::DeviceId& id) const noexcept {
    uint64_t bits = 0;
    for (const uint8_t byte : id.Raw().bytes) bits = bits << 8 | byte;
    return hash<uint64_t>()(bits * 0x9E3779B97F4A7C15U);
  }
};

}  // namespace std
