#include "Device.h"

#include <vector>

#include "Failure.h"
#include "Text.h"

namespace zeltool {
namespace {

// The numbers of `text` when it is exactly `count` of them, joined by points.
std::optional<Bytes> ParseNumbers(std::string_view text, size_t count) {
  Bytes numbers;
  while (true) {
    const size_t point = text.find('.');
    const std::string_view part = text.substr(0, point);
    const auto number = ParseNumber(part, 255);
    if (!number || part.size() > 3) return std::nullopt;
    numbers.push_back(static_cast<uint8_t>(*number));
    if (point == std::string_view::npos) break;
    text.remove_prefix(point + 1);
  }
  if (numbers.size() != count) return std::nullopt;
  return numbers;
}

}  // namespace

std::optional<ZelDeviceId> ParseDeviceId(std::string_view text) {
  const auto numbers = ParseNumbers(text, 6);
  if (!numbers) return std::nullopt;
  ZelDeviceId device{};
  for (size_t i = 0; i < 6; ++i) device.bytes[i] = (*numbers)[i];
  return device;
}

bool IsAddress(std::string_view text) { return ParseNumbers(text, 4).has_value(); }

std::string ToText(const ZelDeviceId& device) {
  std::string text;
  for (const uint8_t byte : device.bytes) text += (text.empty() ? "" : ".") + std::to_string(byte);
  return text;
}

std::string CheckDevice(const std::string& text) {
  if (ParseDeviceId(text) || IsAddress(text)) return {};
  return "'" + text + "' is neither an identifier (192.168.1.20.0.1) nor an address (192.168.1.20)";
}

std::string CheckDeviceId(const std::string& text) {
  if (ParseDeviceId(text)) return {};
  return "'" + text +
         "' is no identifier: six numbers from 0 to 255 joined by points, as in 192.168.1.20.0.1";
}

std::string CheckAddress(const std::string& text) {
  if (IsAddress(text)) return {};
  return "'" + text + "' is no IPv4 address, as in 192.168.1.20";
}

std::string ErrorText(int32_t code) { return "error " + std::to_string(code) + ": " + libzel_strerror(code); }

ZelDeviceId FindDevice(const std::string& device, int32_t timeoutMs) {
  if (const auto id = ParseDeviceId(device)) return *id;
  ZelDeviceId id{};
  const int32_t code = libzel_getRemoteZelDeviceId(device.c_str(), timeoutMs, &id);
  if (code != ZEL_OK) throw LibraryFailure(device + " does not tell its identifier", code);
  return id;
}

}  // namespace zeltool
