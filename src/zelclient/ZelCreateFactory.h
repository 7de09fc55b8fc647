// From a device identifier to a live connection: the factory and registry of all instances, and the cache of one
// shared, running connection per device. Both are process-wide; any thread may use them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "libzel/libzel.h"
#include "utils/Mutex.h"
#include "zelclient/ZelPeerConn.h"
#include "zelcomm/DeviceId.h"

namespace libzel {

class CPeerConnMgr {
 public:
  using Connection = std::shared_ptr<IZelPeerConnection>;

  static CPeerConnMgr& Instance();

  // A new connection to the server of a device, not yet connected nor registered. Null, with the thread's error number
  // 4097, for a null identifier.
  static Connection CreateTcpClientConnection(const ZelDeviceId* device);
  // As above, registered. Null with error number 4107 for connection types 1 to 4.
  Connection CreateInstance(const ZelDeviceId* device, uint32_t type);
  // The live instance of a handle, kept alive while the caller holds it; null for one that is not live.
  Connection FindInstance(ZelInstance handle);
  // The connection if it is still a live instance, else null. (A handle alone cannot tell: a later instance may have got
  // the same one.)
  static Connection IfLive(const std::weak_ptr<IZelPeerConnection>& connection);
  // Forgets the instance, lets its unsent data get out if it is to, then ends it: every call on it that is under way
  // fails within 100 ms, and once this returns none of its callbacks runs on another thread. The registry's mutex is not held meanwhile. An instance that another
  // thread is releasing is not waited for.
  void ReleaseInstance(ZelInstance handle);
  // The same for all: first all are cancelled, in ascending order of their handles, then one after the other is waited
  // for.
  void ReleaseAll();

  std::vector<Connection> AllInstances();

  static ZelInstance HandleOf(const Connection& connection);

 private:
  using Instances = std::map<ZelInstance, Connection>;

  Instances::node_type Extract(ZelInstance handle);
  Instances ExtractAll();

  Mutex mutex_;
  Instances live_ ZEL_GUARDED_BY(mutex_);
};

// The library's own connections, one for each device it was asked about. The mutex is never held during a connect.
class CDeviceConnectionCache {
 public:
  static CDeviceConnectionCache& Instance();

  // The device's connection, with its receive thread running; made anew when there is none or it was released. Two
  // threads that miss the same device each make one; the one stored last stays.
  CPeerConnMgr::Connection GetConnection(const ZelDeviceId& device);

 private:
  CPeerConnMgr::Connection Find(const ZelDeviceId& device);

  Mutex mutex_;
  std::map<ZelDeviceId, std::weak_ptr<IZelPeerConnection>, DeviceIdLess> connections_ ZEL_GUARDED_BY(mutex_);
};

// How long the creation of an instance waits for its connect, in ms.
inline constexpr int64_t kCreateTimeoutMs = 1500;

}  // namespace libzel
