// The JSON document that a device answers a discovery request with.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Fleet.h"

namespace zelsim {

using Json = nlohmann::ordered_json;

// In every text, "{n}" stands for the device's number, counted from 1.
struct DescriptionOptions {
  // Members of "device", by their names, that replace the simulator's own values.
  std::vector<std::pair<std::string, std::string>> members;
  // Address and hardware address of each element of "frames"; empty for one frame made from the device's
  // address.
  std::vector<std::pair<std::string, std::string>> frames;
  // The whole document, when it comes from a file: it goes out as it is, but that "self" as the value of
  // zelDeviceId, frameIp or frameMacAddr stands for the device's own.
  std::optional<Json> document;
};

// "ADDRESS=MAC"; either side may be "self".
std::optional<std::pair<std::string, std::string>> ParseFrameOption(std::string_view text);

// Nothing when the file cannot be read or is not JSON.
std::optional<Json> ReadDescriptionFile(const std::string& path);

// What the device says when it answers from `address`.
Json Describe(const DescriptionOptions& options, const Device& device, const asio::ip::address_v4& address);

// 02:00 and the four address bytes: a locally administered address that no real card has.
std::string HardwareAddress(const asio::ip::address_v4& address);

}  // namespace zelsim
