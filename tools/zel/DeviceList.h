// The devices that a scan has found, and what became of them.
#pragma once

#include <array>
#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace zeltool {

struct FoundDevice {
  std::string identifier;
  std::string address;
  std::string hostName;
  std::string hardwareAddress;
  std::string zelVersion;
  std::string rteVersion;
  std::string vorlinVersion;
  std::string serialNo;
  std::string sn;

  bool operator==(const FoundDevice&) const = default;
};

enum class DeviceChange { kNone, kFound, kChanged, kBack, kSilent };

// A device is known by its identifier and its address: one identifier at two addresses is two lines, which is
// what somebody who looks for a mistake wants to see.
class DeviceList {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  DeviceChange Note(const FoundDevice& device, TimePoint now);
  // Those that have not answered for `patience` and were not silent before.
  std::vector<FoundDevice> TakeSilent(TimePoint now, std::chrono::seconds patience);
  size_t Count() const { return devices_.size(); }
  // A sentence for each identifier that more than one address has.
  std::vector<std::string> Twins() const;

 private:
  struct Entry {
    FoundDevice device;
    TimePoint lastAnswer;
    bool silent = false;
  };
  std::map<std::pair<std::string, std::string>, Entry> devices_;
};

}  // namespace zeltool
