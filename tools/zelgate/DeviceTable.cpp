#include "DeviceTable.h"

#include <nlohmann/json.hpp>

#include <array>
#include <utility>

#include "Subjects.h"

namespace zelgate {
namespace {

using nlohmann::json;

constexpr std::string_view kFoundPrefix = "found.";
constexpr std::string_view kLinkPrefix = "link.";

constexpr std::array<std::pair<LinkState, const char*>, 4> kStates = {{{LinkState::kConnecting, "connecting"},
                                                                       {LinkState::kUp, "up"},
                                                                       {LinkState::kTwins, "twins"},
                                                                       {LinkState::kRefused, "refused"}}};

// Devices send what they like; the bucket has UTF-8.
std::string Write(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

// Takes members out of an object; a missing one keeps what it was, one of another type makes the whole wrong.
class MemberReader {
 public:
  explicit MemberReader(std::string_view text) : object_(json::parse(text, nullptr, false)) {
    isGood_ = object_.is_object();
  }

  template <typename Value>
  void Read(const char* name, Value& value) {
    if (!isGood_ || !object_.contains(name)) return;
    try {
      object_.at(name).get_to(value);
    } catch (const json::exception&) {
      isGood_ = false;
    }
  }
  bool IsGood() const { return isGood_; }

 private:
  json object_;
  bool isGood_ = false;
};

}  // namespace

const char* NameOf(LinkState state) {
  for (const auto& [known, name] : kStates) {
    if (known == state) return name;
  }
  return "";
}

std::string FindingKey(std::string_view device) { return std::string(kFoundPrefix).append(device); }

std::string LinkKey(std::string_view device) { return std::string(kLinkPrefix).append(device); }

std::string ToJson(const DeviceFinding& finding) {
  json object = {
      {"id", finding.id}, {"address", finding.address}, {"name", finding.name}, {"serial", finding.serial}};
  if (finding.isFixed) object["fixed"] = true;
  if (!finding.twins.empty()) object["twins"] = finding.twins;
  return Write(object);
}

std::string ToJson(const DeviceLink& link) {
  json object = {{"state", NameOf(link.state)}, {"since", link.since}, {"servedBy", link.servedBy}};
  if (!link.why.empty()) object["why"] = link.why;
  return Write(object);
}

std::optional<DeviceFinding> ParseFinding(std::string_view text) {
  MemberReader reader(text);
  DeviceFinding finding;
  reader.Read("id", finding.id);
  reader.Read("address", finding.address);
  reader.Read("name", finding.name);
  reader.Read("serial", finding.serial);
  reader.Read("fixed", finding.isFixed);
  reader.Read("twins", finding.twins);
  if (!reader.IsGood() || !DeviceToken(finding.id)) return {};
  return finding;
}

std::optional<DeviceLink> ParseLink(std::string_view text) {
  MemberReader reader(text);
  DeviceLink link;
  std::string state;
  reader.Read("state", state);
  reader.Read("since", link.since);
  reader.Read("servedBy", link.servedBy);
  reader.Read("why", link.why);
  for (const auto& [known, name] : kStates) {
    if (state != name) continue;
    link.state = known;
    return reader.IsGood() ? std::optional(link) : std::nullopt;
  }
  return {};
}

bool DeviceTable::Apply(std::string_view key, std::optional<std::string_view> value) {
  const bool isFinding = key.starts_with(kFoundPrefix);
  if (!isFinding && !key.starts_with(kLinkPrefix)) return false;
  const std::string device(key.substr(isFinding ? kFoundPrefix.size() : kLinkPrefix.size()));
  const auto id = DeviceOfToken(device);
  if (!id) return false;
  if (!value) return Erase(device, isFinding);
  if (!isFinding) {
    auto link = ParseLink(*value);
    const bool isLink = link.has_value();
    if (isLink) rows_[device].link = std::move(link);
    return isLink;
  }
  auto finding = ParseFinding(*value);
  if (!finding || finding->id != *id) return false;
  rows_[device].finding = std::move(finding);
  return true;
}

bool DeviceTable::Erase(const std::string& device, bool isFinding) {
  const auto row = rows_.find(device);
  if (row == rows_.end()) return true;
  if (isFinding) {
    row->second.finding.reset();
  } else {
    row->second.link.reset();
  }
  if (!row->second.finding && !row->second.link) rows_.erase(row);
  return true;
}

const DeviceTable::Row* DeviceTable::Find(std::string_view device) const {
  const auto row = rows_.find(device);
  return row == rows_.end() ? nullptr : &row->second;
}

}  // namespace zelgate
