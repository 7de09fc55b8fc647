#include "zelclient/ZelScanClient.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "zelclient/ScanMessage.h"
#include "zelclient/routetable/RouterTable.h"

namespace libzel {

namespace {

constexpr const char* kBroadcastAddress = "255.255.255.255";
constexpr uint16_t kBroadcastPort = 38896;
constexpr int64_t kCycleWaitMs = 1000;
constexpr double kScanPeriodMs = 1000;
constexpr double kIdlePeriodMs = 10000;
constexpr size_t kReceiveBufferSize = 2048;

uint32_t SecondsSinceEpoch() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::seconds>(now).count());
}

}  // namespace

CZelScanClient& CZelScanClient::Instance() {
  static Forever<CZelScanClient> client;
  return *client;
}

int32_t CZelScanClient::registerScanEvent(ZelScanEventCallback callback, void* context) {
  const MutexLock lock(listenerMutex_);
  listener_ = {callback, context};
  return 0;
}

int32_t CZelScanClient::startScan() {
  scanning_ = true;
  return 0;
}

int32_t CZelScanClient::stopScan() {
  scanning_ = false;
  return 0;
}

// ---- The thread -------------------------------------------------------------------------------------------

int32_t CZelScanClient::svc() {
  ZEL_LOG(kDebug, "Zel Scan Client Start");
  (void)platform::
      StartSockets();  // its own, for good: the end of the library's use of them must not close its sockets
  (void)initMutilCastSocket();  // a failure ends the first wait
  for (const AdapterRecord& adapter : DeviceIdGenerator().GetAdapterTable())
    (void)addBroadcastSocket(adapter);
  while (!IsStopped() && RunCycle()) {
  }
  ZEL_LOG(kDebug, "Zel Scan Client End");
  return 0;
}

// False when the wait failed, which ends the thread for good.
bool CZelScanClient::RunCycle() {
  Watched watched = WatchedSockets();
  const int ready = platform::WaitReadableSet(std::span(watched.sockets).first(watched.count),
                                              std::span(watched.ready).first(watched.count), kCycleWaitMs);
  if (ready < 0) {
    ZEL_LOG_AS("CZelScanClient::svc", kError, "Select error!");
    return false;
  }
  (void)sendScanReqPacket();
  // What arrives on a broadcast socket is never read, so from then on each wait returns at once; a short pause when
  // nothing else came keeps that from taking a core.
  if (ready > 0 && !ReceiveReady(watched)) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return true;
}

CZelScanClient::Watched CZelScanClient::WatchedSockets() const {
  const bool scanning = scanning_;
  Watched watched;
  watched.Add(mainSocket());
  for (const ScanInterface& interface : interfaces_) {
    watched.Add(interface.multicastSocket);
    if (scanning) watched.Add(interface.broadcastSocket);
  }
  return watched;
}

void CZelScanClient::Watched::Add(platform::SocketHandle socket) {
  if (count == sockets.size()) return;
  const auto end = sockets.begin() + static_cast<std::ptrdiff_t>(count);
  if (std::find(sockets.begin(), end, socket) == end) sockets[count++] = socket;
}

bool CZelScanClient::Watched::IsReady(platform::SocketHandle socket) const {
  for (size_t i = 0; i < count; ++i) {
    if (sockets[i] == socket) return ready[i];
  }
  return false;
}

// One datagram from each ready socket; false when there was none to read.
bool CZelScanClient::ReceiveReady(const Watched& watched) {
  std::array<uint8_t, kReceiveBufferSize> buffer{};
  bool any = false;
  if (watched.IsReady(mainSocket())) {
    any = true;
    if (ReceiveOne(mainSocket(), buffer) == Received::kTooShort) return any;
  }
  for (const ScanInterface& interface : interfaces_) {
    if (!watched.IsReady(interface.multicastSocket)) continue;
    any = true;
    (void)ReceiveOne(interface.multicastSocket, buffer);
  }
  return any;
}

CZelScanClient::Received CZelScanClient::ReceiveOne(platform::SocketHandle socket,
                                                    std::span<uint8_t> buffer) {
  platform::Endpoint sender;
  const int64_t received = platform::ReceiveDatagram(socket, buffer.data(), buffer.size(), &sender);
  if (received < 0) return Received::kFailed;
  const auto datagram = buffer.first(static_cast<size_t>(received));
  if (datagram.size() < kScanHeaderSize) {
    ZEL_LOG_AS("CZelScanClient::svc", kError, "reav data len:%d < sizeof(ZelScanHeader)%d",
               static_cast<int>(received), static_cast<int>(kScanHeaderSize));
    return Received::kTooShort;
  }
  if (IsAcceptedAnswer(ZelScanHeader::Read(datagram))) {
    const auto payload = datagram.subspan(kScanHeaderSize);
    (void)notify(payload.data(), payload.size(), sender.host);
  }
  return Received::kExamined;
}

int32_t CZelScanClient::notify(const uint8_t* payload, size_t length, const std::string& senderIp) {
  const std::string document(reinterpret_cast<const char*>(payload), length);
  const auto record = ReadScanAnswer(document, senderIp);
  if (!record) {
    ZEL_LOG(kError, "not json:%s", document.c_str());
    return -1;
  }
  Listener listener;
  {
    const MutexLock lock(listenerMutex_);
    listener = listener_;
  }
  if (listener.callback == nullptr || !scanning_) return 0;
  (void)CRouterTable::Instance().SetHostIp(record->zelDeviceId, record->ip);
  listener.callback(*record, listener.context);
  return 0;
}

// ---- Requests ---------------------------------------------------------------------------------------------

int32_t CZelScanClient::sendScanReqPacket() {
  const bool scanning = scanning_;
  if (!(requestTimer_.ElapsedMs() > (scanning ? kScanPeriodMs : kIdlePeriodMs))) return 0;
  requestTimer_.Restart();
  const ZelScanHeader multicast{kScanMulticastRequest, 0, SecondsSinceEpoch()};
  const ZelScanHeader broadcast{kScanBroadcastRequest, 0, SecondsSinceEpoch()};
  SendRequest(mainSocket(), multicast);
  for (const ScanInterface& interface : interfaces_) {
    if (interface.multicastSocket != platform::kNoSocket) SendRequest(interface.multicastSocket, multicast);
    if (scanning && interface.broadcastSocket != platform::kNoSocket) {
      SendRequest(interface.broadcastSocket, broadcast);
    }
  }
  return 0;
}

void CZelScanClient::SendRequest(platform::SocketHandle socket, const ZelScanHeader& header) {
  const auto request = header.Bytes();
  const bool isBroadcast = header.type == kScanBroadcastRequest;
  const int64_t sent = platform::SendDatagram(socket, isBroadcast ? kBroadcastAddress : kMulticastGroup,
                                              isBroadcast ? kBroadcastPort : ZEL_MUTILCAST_PORT, request);
  if (sent < 0) ZEL_LOG_AS("CZelScanClient::sendScanReqPacket", kError, "send zel search packet fail");
}

// ---- Interfaces -------------------------------------------------------------------------------------------

int32_t CZelScanClient::addBroadcastSocket(const AdapterRecord& adapter) {
  ScanInterface interface { adapter.ip, adapter.name };
  (void)joinMutilCastSocket(interface);  // the interface is kept either way
  interface.broadcastSocket = OpenBroadcastSocket(interface.ip);
  interfaces_.push_back(std::move(interface));
  return 0;
}

int32_t CZelScanClient::joinMutilCastSocket(ScanInterface& interface) {
  interface.multicastSocket = OpenMulticastSocket({.function = "CZelScanClient::joinMutilCastSocket",
                                                   .ip = interface.ip.c_str(),
                                                   .port = 0,
                                                   .hearsOwnHost = false,
                                                   .bindStep = "ip:" + interface.ip + " bind"});
  if (interface.multicastSocket == platform::kNoSocket) return -1;
  ZEL_LOG(kDebug, "iframe:%s,IP:%s,Join mutil cast Ip:%s,port:%d Success", interface.name.c_str(),
          interface.ip.c_str(), kMulticastGroup, ZEL_MUTILCAST_PORT);
  return 0;
}

// A handle on which broadcasting cannot be switched on is left open. Deliberate.
platform::SocketHandle CZelScanClient::OpenBroadcastSocket(const std::string& ip) {
  constexpr std::string_view kFunction = "CZelScanClient::addBroadcastSocket";
  const platform::SocketHandle socket = platform::OpenDatagramSocket();
  if (!platform::SetBroadcast(socket, true)) {
    ZEL_LOG_AS(kFunction, kError, "broadcast setsockopt fail");
    return platform::kNoSocket;
  }
  if (!platform::Bind(socket, ip.c_str(), 0))
    ZEL_LOG_AS(kFunction, kError, "bind failed.ip=[%s]", ip.c_str());
  return socket;
}

}  // namespace libzel
