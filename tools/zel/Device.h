// Devices as the user names them.
#pragma once

#include <libzel/libzel.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zeltool {

// Six numbers from 0 to 255 joined by points. (The library's own reader refuses nothing.)
std::optional<ZelDeviceId> ParseDeviceId(std::string_view text);
// Four such numbers.
bool IsAddress(std::string_view text);
std::string ToText(const ZelDeviceId& device);

// Empty when `text` is an identifier or an address, else what is wrong: for the command line's checks.
std::string CheckDevice(const std::string& text);
std::string CheckDeviceId(const std::string& text);
std::string CheckAddress(const std::string& text);

// "error 4104: recv message timeout"
std::string ErrorText(int32_t code);

// The identifier of a device that is given by its identifier, or by its address: then the device is asked,
// and LibraryFailure thrown when it does not answer.
ZelDeviceId FindDevice(const std::string& device, int32_t timeoutMs);

}  // namespace zeltool
