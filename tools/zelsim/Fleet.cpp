#include "Fleet.h"

#include "Text.h"

namespace zelsim {

std::optional<Device> ParseDevice(std::string_view text) {
  const auto sides = SplitOnce(text, '@');
  const auto id = ParseDeviceId(sides ? sides->first : text);
  if (!id) return std::nullopt;
  Device device{.id = *id};
  if (!sides) return device;
  const auto address = ParseAddress(sides->second);
  if (!address || address->is_unspecified()) return std::nullopt;
  device.address = *address;
  device.ownSocket = true;
  return device;
}

void Fleet::Add(Device device) {
  device.number = devices_.size() + 1;
  byAddress_.emplace(device.address, devices_.size());
  devices_.push_back(device);
}

void Fleet::AddRange(size_t count, const asio::ip::address_v4& base) {
  for (size_t i = 0; i < count; ++i) {
    const asio::ip::address_v4 address(base.to_uint() + static_cast<uint32_t>(i));
    Add({.id = IdFromAddress(address), .address = address});
  }
}

Device* Fleet::At(const asio::ip::address_v4& address) {
  auto found = byAddress_.find(address);
  if (found == byAddress_.end()) found = byAddress_.find(asio::ip::address_v4::any());
  return found == byAddress_.end() ? nullptr : &devices_[found->second];
}

}  // namespace zelsim
