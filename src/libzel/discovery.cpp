// Beyond the letter: discovery when it is wanted, its state, and the hosts of identifiers.
#include <stdexcept>
#include <string>

#include "libzel/CodeGuard.h"
#include "libzel/Structures.h"
#include "libzel/libzelx.h"
#include "platform/Platform.h"
#include "utils/Options.h"
#include "zelclient/Routes.h"
#include "zelclient/ScanLimits.h"
#include "zelclient/ZelScanClient.h"
#include "zelclient/routetable/RouterTable.h"
#include "zelcomm/Ipv4.h"

using namespace libzel;

namespace {

constexpr size_t kFirstDiscoverySize = 712;

// As libzel_init does, which may be still to come; what it logs, it logs then.
void ReadAdapters() {
  try {
    (void)LocalDeviceIdSource();
  } catch (const std::logic_error&) {
  }
}

libzelx_Discovery StateOfDiscovery() {
  const auto state = CZelScanClient::Instance().state().Get();
  libzelx_Discovery out{};
  out.running = state.isRunning ? 1 : 0;
  out.adapters = state.adapters;
  out.restarts = state.restarts;
  out.answers = state.answers;
  out.dropped = state.dropped;
  CopyText(state.adapterList, out.adapterList, sizeof out.adapterList);
  CopyText(state.reason, out.reason, sizeof out.reason);
  return out;
}

}  // namespace

int32_t libzelx_setNetworks(const char* peers, const char* adapters) {
  return GuardCode([&]() -> int32_t {
    if (OptionsOfProcess().hasStarted) return LIBZELX_E_TOO_LATE;
    return ScanLimits::Instance().Set(peers, adapters) ? ZEL_OK : ZEL_E_PARAM;
  });
}

int32_t libzelx_startDiscovery() {
  return GuardCode([]() -> int32_t {
    platform::KeepLoaded();
    ReadAdapters();
    return CZelScanClient::Instance().StartAndAwait() ? ZEL_OK : ZEL_E_RESOURCE;
  });
}

int32_t libzelx_getDiscovery(libzelx_Discovery* out) {
  return GuardCode([&]() -> int32_t {
    return FillStructure(StateOfDiscovery(), kFirstDiscoverySize, out) ? ZEL_OK : ZEL_E_PARAM;
  });
}

int32_t libzelx_setRoute(const ZelDeviceId* device, const char* host) {
  return GuardCode([&]() -> int32_t {
    if (device == nullptr) return ZEL_E_DEVICE_ID;
    if (host == nullptr) {
      ForgetRoute(*device);
      return ZEL_OK;
    }
    const auto address = ParseIpv4(host);
    return address && PinRoute(*device, Ipv4Text(*address)) ? ZEL_OK : ZEL_E_PARAM;
  });
}

int32_t libzelx_getRoute(const ZelDeviceId* device, char* host, size_t size) {
  return GuardCode([&]() -> int32_t {
    if (device == nullptr) return ZEL_E_DEVICE_ID;
    const std::string known = CRouterTable::Instance().GetHostIpFromDeviceId(*device);
    if (host == nullptr || size <= known.size()) return ZEL_E_PARAM;
    CopyText(known, host, size);
    return ZEL_OK;
  });
}
