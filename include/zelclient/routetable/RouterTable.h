// The process-wide table from device identifier to the host that its server is reached at.
// Any thread may use it.
#pragma once

#include <cstdio>
#include <map>
#include <optional>
#include <string>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "utils/Mutex.h"
#include "utils/Options.h"
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
    const auto known = Find(key);
    if (known && !known->host.empty()) {
      ZEL_LOG_FROM(kFile, kGetHost, kTrace, "from router table ZelDeviceId:%s Get Host Ip:%s", key.c_str(),
                   known->host.c_str());
      return known->host;
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
    (void)Set(deviceIdText, {host, false});
    return 0;
  }
  int32_t SetHostIp(const ZelDeviceId& id, const std::string& host) {
    return SetHostIp(DeviceIdText(id), host);
  }

  struct Route {
    std::string host;
    bool isPinned;  // by the application
  };
  enum class Pinned { kReplaced, kKept };
  // False when as many are known as there may be. A route that nobody pinned may leave a pinned one as it is.
  bool Set(const std::string& deviceIdText, const Route& route, Pinned pinned = Pinned::kReplaced) {
    const auto most = static_cast<size_t>(OptionsOfProcess().maxRoutes);
    const MutexLock lock(mutex_);
    const auto entry = routes_.find(deviceIdText);
    if (entry != routes_.end()) {
      const bool isKept = pinned == Pinned::kKept && entry->second.isPinned && !route.isPinned;
      if (!isKept) entry->second = route;
    } else if (most == 0 || routes_.size() < most) {
      routes_.emplace(deviceIdText, route);
    } else {
      return false;
    }
    return true;
  }
  void Erase(const std::string& deviceIdText) {
    const MutexLock lock(mutex_);
    routes_.erase(deviceIdText);
  }
  std::optional<Route> Find(const std::string& deviceIdText) {
    const MutexLock lock(mutex_);
    const auto entry = routes_.find(deviceIdText);
    return entry != routes_.end() ? std::optional(entry->second) : std::nullopt;
  }

 private:
  // A log line shows this header's path from the include folder on.
  static constexpr std::string_view kFile = "include/zelclient/routetable/RouterTable.h";
  static constexpr std::string_view kGetHost = "CRouterTable::GetHostIpFromDeviceId";

  Mutex mutex_;
  std::map<std::string, Route> routes_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
