#include <winsock2.h>
// The IP helper's header needs the sockets' one before it.
#include <iphlpapi.h>

#include <algorithm>
#include <cstddef>

#include "platform/Platform.h"

namespace libzel::platform {

namespace {

// The first try has room for one adapter; the system then tells what it needs.
constexpr ULONG kFirstSize = 704;
static_assert(sizeof(IP_ADAPTER_INFO) == kFirstSize);

using Table = std::vector<IP_ADAPTER_INFO>;

// The system's table, its entries linked; null when it has none or cannot tell.
const IP_ADAPTER_INFO* ReadTable(Table& table) {
  ULONG size = kFirstSize;
  table.resize(1);
  ULONG result = GetAdaptersInfo(table.data(), &size);
  if (result == ERROR_BUFFER_OVERFLOW) {
    table.resize((size + kFirstSize - 1) / kFirstSize);
    result = GetAdaptersInfo(table.data(), &size);
  }
  return result == ERROR_SUCCESS ? table.data() : nullptr;
}

std::vector<uint8_t> HardwareAddress(const IP_ADAPTER_INFO& entry) {
  return {entry.Address, entry.Address + std::min<size_t>(entry.AddressLength, sizeof entry.Address)};
}

}  // namespace

std::vector<Adapter> ListAdapters() {
  Table table;
  std::vector<Adapter> adapters;
  for (const IP_ADAPTER_INFO* entry = ReadTable(table); entry != nullptr; entry = entry->Next) {
    adapters.push_back(
        {entry->Type, HardwareAddress(*entry), entry->AdapterName, entry->IpAddressList.IpAddress.String});
  }
  return adapters;
}

}  // namespace libzel::platform
