// What rounds of discovery say of the devices of a site: which are there, where, and which identifiers
// several claim. Pure.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Config.h"
#include "DeviceTable.h"

namespace zelgate {

class Findings {
 public:
  // Whoever answers may call itself anything, so there is an end.
  static constexpr size_t kMostDevices = 100000;
  // An address that has not answered in so many rounds is no claim to an identifier any more.
  static constexpr uint64_t kForgottenAfter = 3;

  // Devices of the list are there from the beginning, and stay at their addresses.
  explicit Findings(const std::vector<FixedDevice>& fixed);

  // What somebody has written before.
  void Restore(const DeviceFinding& written);
  // An answer in the present round. False when there are too many devices, or the identifier is none.
  bool Note(const DeviceFinding& answer);
  // Ends the round. Devices that answered no more stay as they were: that they are silent is their link's
  // affair.
  void EndRound();
  // Those that are not as they were written.
  std::vector<DeviceFinding> Unwritten() const;
  void Wrote(const DeviceFinding& finding);
  size_t Count() const { return devices_.size(); }

 private:
  struct Claim {
    DeviceFinding answer;
    uint64_t round = 0;
  };
  struct Device {
    std::map<std::string, Claim> claims;  // by address
    DeviceFinding present;
    DeviceFinding written;
    bool hasTwins = false;
  };

  void Judge(Device& device) const;
  static void TakeFirst(Device& device);

  std::map<std::string, Device> devices_;  // by identifier
  uint64_t round_ = 1;
};

}  // namespace zelgate
