#include "DeviceList.h"

namespace zeltool {

DeviceChange DeviceList::Note(const FoundDevice& device, TimePoint now) {
  const auto [place, isNew] =
      devices_.try_emplace({device.identifier, device.address}, Entry{device, now, false});
  if (isNew) return DeviceChange::kFound;
  Entry& entry = place->second;
  const bool wasSilent = std::exchange(entry.silent, false);
  entry.lastAnswer = now;
  if (entry.device != device) {
    entry.device = device;
    return DeviceChange::kChanged;
  }
  return wasSilent ? DeviceChange::kBack : DeviceChange::kNone;
}

std::vector<FoundDevice> DeviceList::TakeSilent(TimePoint now, std::chrono::seconds patience) {
  std::vector<FoundDevice> silent;
  for (auto& [key, entry] : devices_) {
    if (entry.silent || now - entry.lastAnswer < patience) continue;
    entry.silent = true;
    silent.push_back(entry.device);
  }
  return silent;
}

std::vector<std::string> DeviceList::Twins() const {
  std::vector<std::string> sentences;
  for (auto place = devices_.begin(); place != devices_.end();) {
    const std::string& identifier = place->first.first;
    std::string addresses;
    size_t count = 0;
    for (; place != devices_.end() && place->first.first == identifier; ++place, ++count) {
      addresses += (count == 0 ? "" : ", ") + place->first.second;
    }
    if (count > 1)
      sentences.push_back("several devices have the identifier " + identifier + ": " + addresses);
  }
  return sentences;
}

}  // namespace zeltool
