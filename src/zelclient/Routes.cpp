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
  const bool isKept =
      OptionsOfProcess().keepRoutes != 0 && ((known && known->isPinned) || IsConnected(deviceId));
  if (!isKept) (void)table.Set(deviceId, {host, false});
}

bool PinRoute(const ZelDeviceId& device, const std::string& host) {
  return CRouterTable::Instance().Set(DeviceIdText(device), {host, true});
}

void ForgetRoute(const ZelDeviceId& device) { CRouterTable::Instance().Erase(DeviceIdText(device)); }

}  // namespace libzel
