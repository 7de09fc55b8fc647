// The connections over which files go to devices: one for each device, made when it is first wanted, and anew when the one
// before was released.
//
// Any thread may ask. The mutex is never held during a connect.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "libzel/libzel.h"
#include "utils/Mutex.h"
#include "zelclient/ZelPeerConn.h"

namespace libzel {

class DeviceConnections {
 public:
  // Threads that want a device at the same time wait for the one of them that connects.
  std::weak_ptr<IZelPeerConnection> ConnectionTo(const ZelDeviceId& device, int64_t timeoutMs);
  // The same, for requests alone: connected anew if its link was lost.
  std::weak_ptr<IZelPeerConnection> RequestsTo(const ZelDeviceId& device, int64_t timeoutMs);

 private:
  // A device's connection; while `isCreating`, one thread makes it and the others wait.
  struct Entry {
    std::weak_ptr<IZelPeerConnection> connection;
    bool isCreating = false;
  };

  enum class Use { kAny, kRequests };

  std::weak_ptr<IZelPeerConnection> Get(const ZelDeviceId& device, int64_t timeoutMs, Use use);
  bool Begin(const std::string& device, std::weak_ptr<IZelPeerConnection>& connection);
  void End(const std::string& device, const std::weak_ptr<IZelPeerConnection>& connection);

  Mutex mutex_;
  CondVar created_;
  std::map<std::string, Entry> connections_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
