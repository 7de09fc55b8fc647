#include "zelclient/ZelScanClient.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

#include "utils/Forever.h"
#include "utils/Log.h"
#include "utils/Options.h"
#include "zelclient/Routes.h"
#include "zelclient/ScanLimits.h"
#include "zelclient/ScanMessage.h"

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
  do {
    OpenSockets();
    while (!IsStopped() && RunCycle()) {
    }
  } while (AwaitRetry());
  ZEL_LOG(kDebug, "Zel Scan Client End");
  return 0;
}

bool CZelScanClient::StartAndAwait() {
  const MutexLock lock(startMutex_);
  if (hasEnded_.exchange(false)) {
    JoinEnded();
    CloseSockets();
    state_.Begin();
  }
  (void)start();
  return state_.AwaitStart();
}

AdapterTable CZelScanClient::AdaptersToAskOn() const {
  using Adapters = CZelDeviceIdGenerator::Adapters;
  ScanLimits& limits = ScanLimits::Instance();
  const bool wantsAll = OptionsOfProcess().allAdapters != 0;
  const bool readsAnew = isRestart_ && !DeviceIdGenerator().IsFromFile();
  if (!wantsAll && !limits.LimitsAdapters() && !readsAnew) return DeviceIdGenerator().GetAdapterTable();
  AdapterTable table =
      CZelDeviceIdGenerator::BuildAdapterTable(wantsAll ? Adapters::kAll : Adapters::kOneOfEachHardware);
  std::erase_if(table, [&](const AdapterRecord& adapter) { return !limits.MayAsk(adapter); });
  return table;
}

// One adapter that cannot be asked on must not keep the others from it again and again.
bool CZelScanClient::LeavesOut() { return OptionsOfProcess().discoveryRetryMs != 0; }

// What cannot be opened ends the first wait.
void CZelScanClient::OpenSockets() {
  failure_.clear();
  const AdapterTable table = AdaptersToAskOn();
  if (ScanLimits::Instance().LimitsAdapters()) {
    if (table.empty()) {
      failure_ = "none of the adapters to ask on is there";
      return;
    }
    SetMainInterface(table.front().ip);
  }
  if (initMutilCastSocket() != 0) failure_ = mainFailure();
  for (const AdapterRecord& adapter : table) (void)addBroadcastSocket(adapter);
  uint32_t adapters = 0;
  std::string names;
  for (const ScanInterface& interface : interfaces_) {
    if (interface.multicastSocket == platform::kNoSocket) {
      if (failure_.empty() && !LeavesOut()) failure_ = "adapter " + interface.name + " cannot be asked on";
      continue;
    }
    ++adapters;
    names += (names.empty() ? "" : ",") + interface.name;
  }
  if (failure_.empty()) state_.NoteRunning(adapters, std::move(names));
}

void CZelScanClient::CloseSockets() {
  CloseMainSocket();
  for (const ScanInterface& interface : interfaces_) {
    for (const auto socket : {interface.multicastSocket, interface.broadcastSocket}) {
      if (socket != platform::kNoSocket) platform::CloseSocket(socket);
    }
  }
  interfaces_.clear();
}

// True when discovery is to begin anew, adapters included. Whoever hears that it is down may start it at once.
bool CZelScanClient::AwaitRetry() {
  const auto retryMs = [] { return static_cast<int64_t>(OptionsOfProcess().discoveryRetryMs); };
  const bool isLast = IsStopped() || retryMs() == 0;
  hasEnded_ = isLast;
  state_.NoteDown(IsStopped() ? "stopped" : failure_);
  if (isLast) return false;
  const Stopwatch watch;
  while (!IsStopped() && retryMs() != 0) {
    if (watch.ElapsedMs() >= static_cast<double>(retryMs())) {
      CloseSockets();
      state_.NoteRestart();
      isRestart_ = true;
      return true;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(std::min<int64_t>(retryMs(), 20)));
  }
  hasEnded_ = true;
  return false;
}

// False when the wait failed, which ends the thread for good.
bool CZelScanClient::RunCycle() {
  Watched watched = WatchedSockets();
  const int ready = platform::WaitReadableSet(std::span(watched.sockets).first(watched.count),
                                              std::span(watched.ready).first(watched.count), kCycleWaitMs);
  if (ready < 0) {
    if (failure_.empty()) failure_ = "wait: " + platform::ErrorText(platform::RuntimeError());
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
    if (LeavesOut() && interface.multicastSocket == platform::kNoSocket) continue;
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
  if (datagram.size() < kScanHeaderSize && OptionsOfProcess().dropBadAnswers != 0) {
    state_.DropAnswer(sender.host, "too short");
    return Received::kExamined;
  }
  if (datagram.size() < kScanHeaderSize) {
    ZEL_LOG_AS("CZelScanClient::svc", kError, "reav data len:%d < sizeof(ZelScanHeader)%d",
               static_cast<int>(received), static_cast<int>(kScanHeaderSize));
    return Received::kTooShort;
  }
  if (!IsAcceptedAnswer(ZelScanHeader::Read(datagram))) return Received::kExamined;
  if (ScanLimits::Instance().MayAnswer(sender.host)) {
    const auto payload = datagram.subspan(kScanHeaderSize);
    (void)notify(payload.data(), payload.size(), sender.host);
  } else {
    state_.DropAnswer(sender.host, "its network may not answer");
  }
  return Received::kExamined;
}

int32_t CZelScanClient::notify(const uint8_t* payload, size_t length, const std::string& senderIp) {
  const std::string document(reinterpret_cast<const char*>(payload), length);
  const bool mayDrop = OptionsOfProcess().dropBadAnswers != 0;
  const auto record = mayDrop ? ReadOrDrop(document, senderIp) : ReadScanAnswer(document, senderIp);
  if (!record) {
    if (!mayDrop) ZEL_LOG(kError, "not json:%s", document.c_str());
    return -1;
  }
  state_.CountAnswer();
  Listener listener;
  {
    const MutexLock lock(listenerMutex_);
    listener = listener_;
  }
  if (listener.callback == nullptr || !scanning_) return 0;
  LearnRoute(record->zelDeviceId, record->ip);
  listener.callback(*record, listener.context);
  return 0;
}

std::optional<ZelScanResult> CZelScanClient::ReadOrDrop(const std::string& document,
                                                        const std::string& senderIp) {
  std::optional<ZelScanResult> record;
  try {
    record = ReadScanAnswer(document, senderIp);
    if (!record) state_.DropAnswer(senderIp, "no object");
  } catch (const std::exception& fault) {
    state_.DropAnswer(senderIp, fault.what());
  }
  return record;
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
