#include "zelclient/Routes.h"

#include <algorithm>

#include "utils/Options.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelclient/routetable/RouterTable.h"
#include "zelcomm/DeviceId.h"

namespace libzel {

namespace {

bool IsConnected(const std::string& deviceId) {
  const ZelDeviceId device = ParseDeviceId(deviceId);
  const auto all = CPeerConnMgr::Instance().AllInstances();
  return std::ranges::any_of(all, [&](const auto& one) {
    const ZelDeviceId& other = one->remoteDeviceId();
    return std::ranges::equal(other.bytes, device.bytes) && one->IsConnected();
  });
}

}  // namespace

void LearnRoute(const std::string& deviceId, const std::string& host) {
  CRouterTable& table = CRouterTable::Instance();
  const auto known = table.Find(deviceId);
  if (known && known->host == host) return;
  using Pinned = CRouterTable::Pinned;
  const bool keeps = OptionsOfProcess().keepRoutes != 0;
  if (keeps && ((known && known->isPinned) || IsConnected(deviceId))) return;
  (void)table.Set(deviceId, {host, false}, keeps ? Pinned::kKept : Pinned::kReplaced);
}

bool PinRoute(const ZelDeviceId& device, const std::string& host) {
  return CRouterTable::Instance().Set(DeviceIdText(device), {host, true});
}

void ForgetRoute(const ZelDeviceId& device) { CRouterTable::Instance().Erase(DeviceIdText(device)); }

}  // namespace libzel
