#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netpacket/packet.h>

#include <memory>
#include <string_view>

#include "platform/Platform.h"
#include "platform/posix/Descriptors.h"

namespace libzel::platform {

namespace {

constexpr uint32_t kEthernet = 6;

// An address may carry a label of its own: "eth0:1" is one of eth0.
std::string_view InterfaceName(const ifaddrs& entry) {
  const std::string_view label = entry.ifa_name;
  return label.substr(0, label.find(':'));
}

std::vector<uint8_t> HardwareAddress(const ifaddrs* list, std::string_view name) {
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_PACKET || name != entry->ifa_name)
      continue;
    const auto* link = reinterpret_cast<const sockaddr_ll*>(entry->ifa_addr);
    return {link->sll_addr, link->sll_addr + std::min<size_t>(link->sll_halen, sizeof link->sll_addr)};
  }
  return {};
}

bool IsListed(const std::vector<Adapter>& adapters, std::string_view name) {
  for (const Adapter& adapter : adapters) {
    if (adapter.name == name) return true;
  }
  return false;
}

// The system's call opens a socket of its own for a moment.
ifaddrs* ReadInterfaces() {
  const StandardDescriptorsTaken taken;
  ifaddrs* list = nullptr;
  return getifaddrs(&list) == 0 ? list : nullptr;
}

}  // namespace

std::vector<Adapter> ListAdapters() {
  ifaddrs* const list = ReadInterfaces();
  if (list == nullptr) return {};
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);

  std::vector<Adapter> adapters;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    const std::string_view name = InterfaceName(*entry);
    if ((entry->ifa_flags & IFF_LOOPBACK) != 0 || IsListed(adapters, name)) continue;
    char ip[INET_ADDRSTRLEN] = "";
    const auto* address = reinterpret_cast<const sockaddr_in*>(entry->ifa_addr);
    if (inet_ntop(AF_INET, &address->sin_addr, ip, sizeof ip) == nullptr) continue;
    adapters.push_back({kEthernet, HardwareAddress(list, name), std::string(name), ip});
  }
  return adapters;
}

}  // namespace libzel::platform
