#include "zelclient/ZelCreateFactory.h"

#include <string>
#include <utility>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "zelclient/ZelTcpclient.h"
#include "zelclient/routetable/RouterTable.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {

namespace {
constexpr uint16_t kServerPort = 9999;
}

CPeerConnMgr& CPeerConnMgr::Instance() {
  static Forever<CPeerConnMgr> manager;
  return *manager;
}

ZelInstance CPeerConnMgr::HandleOf(const Connection& connection) {
  return reinterpret_cast<ZelInstance>(connection.get());
}

CPeerConnMgr::Connection CPeerConnMgr::CreateTcpClientConnection(const ZelDeviceId* device) {
  if (device == nullptr) {
    SetErrno(ZEL_E_DEVICE_ID);
    return nullptr;
  }
  const std::string host = CRouterTable::Instance().GetHostIpFromDeviceId(*device);
  const std::string parameters = "ip=" + host + ";port=" + std::to_string(kServerPort);
  auto connection = std::make_shared<CTcpclient>(*device, parameters, false);
  ZEL_LOG(kTrace, "create tcp client <param:%s>", parameters.c_str());
  return connection;
}

CPeerConnMgr::Connection CPeerConnMgr::CreateInstance(const ZelDeviceId* device, uint32_t type) {
  if (type >= 1 && type <= 4) {
    SetErrno(ZEL_E_PROTOCOL);
    return nullptr;
  }
  Connection connection = CreateTcpClientConnection(device);
  if (connection == nullptr) return nullptr;
  const MutexLock lock(mutex_);
  live_.emplace(HandleOf(connection), connection);
  return connection;
}

CPeerConnMgr::Connection CPeerConnMgr::FindInstance(ZelInstance handle) {
  const MutexLock lock(mutex_);
  const auto entry = live_.find(handle);
  return entry != live_.end() ? entry->second : nullptr;
}

std::vector<CPeerConnMgr::Connection> CPeerConnMgr::AllInstances() {
  const MutexLock lock(mutex_);
  std::vector<Connection> all;
  for (const auto& [handle, connection] : live_) all.push_back(connection);
  return all;
}

CPeerConnMgr::Connection CPeerConnMgr::IfLive(const std::weak_ptr<IZelPeerConnection>& connection) {
  auto held = connection.lock();
  return held != nullptr && held->IsLive() ? held : nullptr;
}

CPeerConnMgr::Instances::node_type CPeerConnMgr::Extract(ZelInstance handle) {
  const MutexLock lock(mutex_);
  return live_.extract(handle);
}

CPeerConnMgr::Instances CPeerConnMgr::ExtractAll() {
  const MutexLock lock(mutex_);
  return std::exchange(live_, {});
}

void CPeerConnMgr::ReleaseInstance(ZelInstance handle) {
  const auto node = Extract(handle);
  if (node.empty()) return;
  node.mapped()->BeginClose();
  node.mapped()->AwaitDelivery(CondVar::Clock::now());
  node.mapped()->Cancel();
  node.mapped()->End();
}

void CPeerConnMgr::ReleaseAll() {
  const Instances instances = ExtractAll();
  for (const auto& [handle, connection] : instances) connection->BeginClose();
  // All of them at the same time: what one waits for, the others do not have to.
  const auto start = CondVar::Clock::now();
  for (const auto& [handle, connection] : instances) connection->AwaitDelivery(start);
  for (const auto& [handle, connection] : instances) connection->Cancel();
  for (const auto& [handle, connection] : instances) connection->End();
}

CDeviceConnectionCache& CDeviceConnectionCache::Instance() {
  static Forever<CDeviceConnectionCache> cache;
  return *cache;
}

CPeerConnMgr::Connection CDeviceConnectionCache::Find(const ZelDeviceId& device) {
  std::weak_ptr<IZelPeerConnection> connection;
  {
    const MutexLock lock(mutex_);
    const auto entry = connections_.find(device);
    if (entry == connections_.end()) return nullptr;
    connection = entry->second;
  }
  return CPeerConnMgr::IfLive(connection);
}

CPeerConnMgr::Connection CDeviceConnectionCache::GetConnection(const ZelDeviceId& device) {
  if (auto connection = Find(device)) return connection;
  auto connection = CPeerConnMgr::Instance().CreateInstance(&device, 0);
  if (connection == nullptr) return nullptr;
  (void)connection->Connect(
      kCreateTimeoutMs);  // a server that is away is no error: the receive thread finds it later
  (void)connection->loop_start();
  const MutexLock lock(mutex_);
  connections_.insert_or_assign(device, connection);
  return connection;
}

}  // namespace libzel
