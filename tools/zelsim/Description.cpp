#include "Description.h"

#include <cstdio>
#include <fstream>

#include "Text.h"

namespace zelsim {
namespace {

constexpr std::string_view kSelf = "self";

std::string FillNumber(std::string text, size_t number) {
  constexpr std::string_view kMark = "{n}";
  for (size_t at; (at = text.find(kMark)) != text.npos;)
    text.replace(at, kMark.size(), std::to_string(number));
  return text;
}

void FillNumbers(Json& value, size_t number) {
  if (value.is_string()) {
    value = FillNumber(value.get<std::string>(), number);
  } else if (value.is_structured()) {
    for (Json& element : value) FillNumbers(element, number);
  }
}

void FillSelf(Json& object, const char* member, const std::string& own) {
  if (!object.is_object()) return;
  const auto found = object.find(member);
  if (found != object.end() && *found == kSelf) *found = own;
}

Json OwnDocument(const DescriptionOptions& options) {
  Json device = {{"zelDeviceId", kSelf}, {"zelVersion", "1.0.0"},    {"rteVersion", "2.1.0"},
                 {"serialNo", "ZS-{n}"}, {"vorlinVersion", "3.2.1"}, {"hostName", "zelsim-{n}"},
                 {"sn", "SN-{n}"}};
  for (const auto& [name, value] : options.members) device[name] = value;
  Json frames = Json::array();
  for (const auto& [address, mac] : options.frames)
    frames.push_back({{"frameIp", address}, {"frameMacAddr", mac}});
  if (frames.empty()) frames.push_back({{"frameIp", kSelf}, {"frameMacAddr", kSelf}});
  return {{"device", std::move(device)}, {"frames", std::move(frames)}};
}

}  // namespace

std::optional<std::pair<std::string, std::string>> ParseFrameOption(std::string_view text) {
  const auto sides = SplitOnce(text, '=');
  if (!sides || sides->first.empty()) return std::nullopt;
  return std::pair(std::string(sides->first), std::string(sides->second));
}

std::optional<Json> ReadDescriptionFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) return std::nullopt;
  Json document = Json::parse(file, nullptr, false);
  if (document.is_discarded()) return std::nullopt;
  return document;
}

Json Describe(const DescriptionOptions& options, const Device& device, const asio::ip::address_v4& address) {
  Json document = options.document ? *options.document : OwnDocument(options);
  FillNumbers(document, device.number);
  if (!document.is_object()) return document;
  if (document.contains("device")) FillSelf(document["device"], "zelDeviceId", ToText(device.id));
  if (!document.contains("frames") || !document["frames"].is_array()) return document;
  for (Json& frame : document["frames"]) {
    FillSelf(frame, "frameIp", address.to_string());
    FillSelf(frame, "frameMacAddr", HardwareAddress(address));
  }
  return document;
}

std::string HardwareAddress(const asio::ip::address_v4& address) {
  const auto bytes = address.to_bytes();
  char text[18];
  std::snprintf(text, sizeof text, "02:00:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2], bytes[3]);
  return text;
}

}  // namespace zelsim
