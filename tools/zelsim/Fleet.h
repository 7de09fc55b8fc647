// The devices that this process simulates.
#pragma once

#include <asio/ip/address_v4.hpp>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "DeviceId.h"

namespace zelsim {

struct Device {
  DeviceId id{};
  // The address that it answers from; unspecified (0.0.0.0) for whatever address it was asked at.
  asio::ip::address_v4 address{};
  // True when the device has its direct-request socket to itself (--device ID@ADDRESS).
  bool ownSocket = false;
  size_t number = 0;      // from 1, in the order of the command line
  uint64_t requests = 0;  // direct requests so far
  uint64_t scans = 0;     // discovery requests so far
};

// "ID" or "ID@A.B.C.D".
std::optional<Device> ParseDevice(std::string_view text);

// Not to be changed in length after the first look-up: devices are handed out by reference.
class Fleet {
 public:
  void Add(Device device);
  // `count` devices on consecutive addresses, each named after its address.
  void AddRange(size_t count, const asio::ip::address_v4& base);

  bool Empty() const { return devices_.empty(); }
  std::vector<Device>& Devices() { return devices_; }
  // The device at this address, else the first one that answers at every address, else null.
  Device* At(const asio::ip::address_v4& address);

 private:
  std::vector<Device> devices_;
  std::map<asio::ip::address_v4, size_t> byAddress_;
};

}  // namespace zelsim
