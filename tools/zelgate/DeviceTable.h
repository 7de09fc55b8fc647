// What the bucket zel_devices says of the site's devices. Each key has one writer: zelgate find writes
// found.DEV, the process that serves the device writes link.DEV. Values are JSON objects. Pure.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zelgate {

// What discovery, or the list of the configuration, says of a device. Texts of devices are as they sent them,
// but bytes that are no UTF-8 are replaced when they are written.
struct DeviceFinding {
  std::string id;       // six decimals joined by "."
  std::string address;  // dotted IPv4, where the device is asked
  std::string name;
  std::string serial;
  bool isFixed = false;            // from the list of the configuration
  std::vector<std::string> twins;  // all addresses that claim the identifier, sorted; empty when there is one

  bool operator==(const DeviceFinding&) const = default;
};

enum class LinkState {
  kConnecting,  // not connected yet, or not any more
  kUp,
  kTwins,   // not served: there are several devices with this identifier
  kRefused  // not served: this process serves as many devices as it may
};
const char* NameOf(LinkState state);

struct DeviceLink {
  LinkState state = LinkState::kConnecting;
  std::string since;     // RFC 3339
  std::string servedBy;  // who serves it: "host/process"
  std::string why;       // why it is not up; may be empty

  bool operator==(const DeviceLink&) const = default;
};

// Keys of the bucket; `device` is a token, "10-20-0-7-0-1".
std::string FindingKey(std::string_view device);
std::string LinkKey(std::string_view device);

std::string ToJson(const DeviceFinding& finding);
std::string ToJson(const DeviceLink& link);
// Nothing for what ToJson cannot have written.
std::optional<DeviceFinding> ParseFinding(std::string_view json);
std::optional<DeviceLink> ParseLink(std::string_view json);

// All of the bucket, as its watcher tells it.
class DeviceTable {
 public:
  struct Row {
    std::optional<DeviceFinding> finding;
    std::optional<DeviceLink> link;
  };

  // One entry of the bucket; no value: it was deleted. False for an entry that is none of ours, which changes
  // nothing.
  bool Apply(std::string_view key, std::optional<std::string_view> value);
  // By token.
  const std::map<std::string, Row, std::less<>>& Rows() const { return rows_; }
  // Null when it is not there.
  const Row* Find(std::string_view device) const;

 private:
  bool Erase(const std::string& device, bool isFinding);

  std::map<std::string, Row, std::less<>> rows_;
};

}  // namespace zelgate
