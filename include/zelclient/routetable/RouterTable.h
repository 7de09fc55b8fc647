// The process-wide table from device identifier to the host that its server is reached at.
// Any thread may use it.
#pragma once

#include <cstdio>
#include <map>
#include <string>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "utils/Mutex.h"
#include "zelcomm/DeviceId.h"

namespace libzel {

class CRouterTable {
 public:
  static CRouterTable& Instance() {
    static Forever<CRouterTable> table;
    return *table;
  }

  // The host of an identifier: the entry's, else the identifier's first four bytes as an IPv4 address.
  std::string GetHostIpFromDeviceId(const ZelDeviceId& id) {
    const std::string key = DeviceIdText(id);
    std::string host = Find(key);
    if (!host.empty()) {
      ZEL_LOG_FROM(kFile, kGetHost, kTrace, "from router table ZelDeviceId:%s Get Host Ip:%s", key.c_str(),
                   host.c_str());
      return host;
    }
    char fallback[16];
    (void)std::snprintf(fallback, sizeof fallback, "%u.%u.%u.%u", id.bytes[0], id.bytes[1], id.bytes[2],
                        id.bytes[3]);
    ZEL_LOG_FROM(kFile, kGetHost, kTrace, "ZelDeviceId:%s not find router table,generate Host Ip:%s",
                 key.c_str(), fallback);
    return fallback;
  }

  // Sets or replaces the host of the identifier with this text, which a device may have written
  // as it likes. Gives 0.
  int32_t SetHostIp(const std::string& deviceIdText, const std::string& host) {
    const MutexLock lock(mutex_);
    hosts_.insert_or_assign(deviceIdText, host);
    return 0;
  }
  int32_t SetHostIp(const ZelDeviceId& id, const std::string& host) {
    return SetHostIp(DeviceIdText(id), host);
  }

 private:
  // A log line shows this header's path from the include folder on.
  static constexpr std::string_view kFile = "include/zelclient/routetable/RouterTable.h";
  static constexpr std::string_view kGetHost = "CRouterTable::GetHostIpFromDeviceId";

  std::string Find(const std::string& key) {
    const MutexLock lock(mutex_);
    const auto entry = hosts_.find(key);
    return entry != hosts_.end() ? entry->second : std::string();
  }

  Mutex mutex_;
  std::map<std::string, std::string> hosts_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
