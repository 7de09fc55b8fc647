#include "Findings.h"

#include <algorithm>
#include <iterator>

#include "Subjects.h"

namespace zelgate {
namespace {

// "10.20.0.7" of "10.20.0.7.0.1".
std::string FirstFour(const std::string& id) {
  const size_t fifth = id.rfind('.', id.rfind('.') - 1);
  return id.substr(0, fifth);
}

}  // namespace

Findings::Findings(const std::vector<FixedDevice>& fixed) {
  for (const FixedDevice& device : fixed) {
    const std::string address = device.address.empty() ? FirstFour(device.id) : device.address;
    devices_[device.id].present = {device.id, address, device.name, "", true, {}};
  }
}

void Findings::Restore(const DeviceFinding& written) {
  Device& device = devices_[written.id];
  device.written = written;
  if (device.present.isFixed) return;
  device.present = written;
  device.present.isFixed = false;  // it is in the list no more
  device.hasTwins = !written.twins.empty();
  for (const std::string& address : written.twins) device.claims[address] = {written, round_};
}

bool Findings::Note(const DeviceFinding& answer) {
  if (!DeviceToken(answer.id)) return false;
  if (devices_.size() >= kMostDevices && !devices_.contains(answer.id)) return false;
  devices_[answer.id].claims[answer.address] = {answer, round_};
  return true;
}

void Findings::EndRound() {
  for (auto& [id, device] : devices_) Judge(device);
  ++round_;
}

void Findings::Judge(Device& device) const {
  if (device.claims.empty()) return;
  const auto isNow = [this](const auto& claim) { return claim.second.round == round_; };
  // Two that answer at the same time are two; one that answers elsewhere than before has moved.
  if (std::count_if(device.claims.begin(), device.claims.end(), isNow) > 1) device.hasTwins = true;
  std::erase_if(device.claims, [&](const auto& claim) {
    const uint64_t age = round_ - claim.second.round;
    return age >= kForgottenAfter || (!device.hasTwins && age != 0);
  });
  device.hasTwins = device.hasTwins && device.claims.size() > 1;
  device.present.twins.clear();
  if (!device.hasTwins || device.present.id.empty()) TakeFirst(device);
  if (device.hasTwins) {
    for (const auto& [address, claim] : device.claims) device.present.twins.push_back(address);
  }
}

// Without twins there is one claim at most.
void Findings::TakeFirst(Device& device) {
  if (device.claims.empty()) return;
  const DeviceFinding& answer = device.claims.begin()->second.answer;
  DeviceFinding& present = device.present;
  if (!present.isFixed || present.name.empty()) present.name = answer.name;
  present.serial = answer.serial;
  present.id = answer.id;
  if (!present.isFixed) present.address = answer.address;
}

std::vector<DeviceFinding> Findings::Unwritten() const {
  std::vector<DeviceFinding> unwritten;
  for (const auto& [id, device] : devices_) {
    if (!device.present.id.empty() && device.present != device.written) unwritten.push_back(device.present);
  }
  return unwritten;
}

void Findings::Wrote(const DeviceFinding& finding) { devices_[finding.id].written = finding; }

}  // namespace zelgate
