#include "zelclient/DeviceConnections.h"

#include <exception>

#include "utils/Log.h"
#include "zelclient/ZelCreateFactory.h"
#include "zelclient/ZelTcpclient.h"
#include "zelcomm/DeviceId.h"

namespace libzel {

std::weak_ptr<IZelPeerConnection> DeviceConnections::ConnectionTo(const ZelDeviceId& device,
                                                                  int64_t timeoutMs) {
  return Get(device, timeoutMs, Use::kAny);
}

std::weak_ptr<IZelPeerConnection> DeviceConnections::RequestsTo(const ZelDeviceId& device,
                                                                int64_t timeoutMs) {
  return Get(device, timeoutMs, Use::kRequests);
}

std::weak_ptr<IZelPeerConnection> DeviceConnections::Get(const ZelDeviceId& device, int64_t timeoutMs,
                                                         Use use) {
  const std::string text = DeviceIdText(device);
  std::weak_ptr<IZelPeerConnection> known;
  if (!Begin(text, known)) {
    const auto live = use == Use::kRequests ? CPeerConnMgr::IfLive(known) : nullptr;
    if (live != nullptr && !live->IsConnected()) (void)live->Connect(timeoutMs);
    return known;
  }
  CPeerConnMgr::Connection connection;
  try {
    connection = CPeerConnMgr::Instance().CreateInstance(&device, 0);
    if (use == Use::kRequests) static_cast<CTcpclient&>(*connection).KeepForRequests();
    (void)connection->Connect(timeoutMs);  // the first message reconnects, or fails the transfer
  } catch (const std::exception& fault) {
    // Whoever waits for the connection must not wait for ever; without one the transfers fail.
    ZEL_LOG_AS("CFileThread::ConnectionTo", kError, "cannot connect %s:%s", text.c_str(), fault.what());
  }
  End(text, connection);
  return connection;
}

// True when the caller is the one to make the connection; else it is there.
bool DeviceConnections::Begin(const std::string& device, std::weak_ptr<IZelPeerConnection>& connection) {
  const MutexLock lock(mutex_);
  Entry& entry = connections_[device];
  while (entry.isCreating) created_.Wait(mutex_);
  connection = entry.connection;
  if (CPeerConnMgr::IfLive(connection) != nullptr) return false;
  entry.isCreating = true;
  return true;
}

void DeviceConnections::End(const std::string& device, const std::weak_ptr<IZelPeerConnection>& connection) {
  const MutexLock lock(mutex_);
  connections_[device] = {connection, false};
  created_.NotifyAll();
}

}  // namespace libzel
