#include "zelclient/ZelTcpclient.h"

#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <vector>

#include "utils/Log.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {

namespace {

constexpr const char* kLocalServerPath = "/var/tmp/zel/zelserver";
constexpr int64_t kReceiveWaitMs = 1000;
constexpr int64_t kDownPauseMs = 100;
constexpr int64_t kBodyTimeoutMs = 1000;
constexpr int64_t kReceiveReconnectMs = 1500;
constexpr int64_t kFrameWaitMs = 50;
constexpr int64_t kShortestConnectMs = 50;
constexpr uint32_t kTopicTimeoutMs = 1000;

// The connections that the calling thread is connecting at this moment, innermost first. A send from inside (a
// re-subscription, a callback) must not start another attempt.
class ConnectScope {
 public:
  explicit ConnectScope(const CTcpclient* connection) : connection_(connection), outer_(t_innermost) {
    t_innermost = this;
  }
  ~ConnectScope() { t_innermost = outer_; }
  ConnectScope(const ConnectScope&) = delete;
  ConnectScope& operator=(const ConnectScope&) = delete;

  static bool Holds(const CTcpclient* connection) {
    for (const ConnectScope* scope = t_innermost; scope != nullptr; scope = scope->outer_) {
      if (scope->connection_ == connection) return true;
    }
    return false;
  }

 private:
  static thread_local const ConnectScope* t_innermost;
  const CTcpclient* connection_;
  const ConnectScope* outer_;
};

thread_local const ConnectScope* ConnectScope::t_innermost = nullptr;

int64_t WholeMs(const Stopwatch& watch) {
  // Some time has always passed, even where the clock is too coarse to show it.
  return std::max<int64_t>(static_cast<int64_t>(std::ceil(watch.ElapsedMs())), 1);
}

int32_t FailDisconnected() {
  SetErrno(ZEL_E_DISCONNECTED);
  return -1;
}

// Reads `size` body bytes or until the time-out; 0 when the connection ended.
uint32_t ReadBody(SocketLink& link, ReceiveBuffer& body, uint32_t size, int64_t timeoutMs) {
  uint32_t got = 0;
  const Stopwatch watch;
  while (got < size) {
    const auto room = body.Room(got, size - got);
    const int64_t remainingMs = got == 0 ? timeoutMs : timeoutMs - static_cast<int64_t>(watch.ElapsedMs());
    const uint32_t count = link.readn(room.data(), static_cast<uint32_t>(room.size()), remainingMs);
    if (count == 0 && !link.connected()) return 0;
    got += count;
    if (count < room.size()) break;
  }
  return got;
}

}  // namespace

CTcpclient::CTcpclient(const ZelDeviceId& remote, const std::string& parameters, bool isDomain)
    : IZelPeerConnection(remote, parameters), isDomain_(isDomain) {
  ParseParameters(parameters);
  if (isDomain_) {
    if (hostName_.empty()) hostName_ = kLocalServerPath;
    socket_ = std::make_unique<DomainTcpSocket>(hostName_.c_str(), port_, Socket::kStream, true);
    ZEL_LOG(kDebug, "Create Unix Domain TCP Socket,Ready HostName:%s", hostName_.c_str());
  } else {
    socket_ = std::make_unique<TcpSocket>(hostName_.c_str(), port_, Socket::kStream, false);
    ZEL_LOG(kDebug, "Create  TCP Socket,Ready HostName:%s,port:%d", hostName_.c_str(), port_);
  }
}

CTcpclient::~CTcpclient() {
  SetEventCallback(nullptr, nullptr);
  (void)loop_stop();
}

void CTcpclient::ParseParameters(const std::string& parameters) {
  std::string_view rest = parameters;
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find(';'));
    rest.remove_prefix(std::min(pair.size() + 1, rest.size()));
    const size_t equals = pair.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = pair.substr(0, equals);
    const std::string value(pair.substr(equals + 1));
    if (key == (isDomain_ ? "hostname" : "ip")) hostName_ = value;
    if (key == "port" && !isDomain_) port_ = static_cast<uint16_t>(std::stoi(value));
  }
}

// ---- Connecting -------------------------------------------------------------------------------------------

bool CTcpclient::Connect(int64_t timeoutMs) {
  ZEL_LOG(kInfo, "tcpclient ready connect  HostName:%s,port:%d,timeoutms:%d,isDomain:%d", hostName_.c_str(),
          port_, static_cast<int>(timeoutMs), isDomain_);
  if (!TryConnect(timeoutMs)) return false;
  ZEL_LOG(kInfo, "Connect HostName:%s,port:%d Success,isDomain:%d", hostName_.c_str(), port_, isDomain_);
  return true;
}

bool CTcpclient::Reconnect(int64_t timeoutMs) {
  // An event of this connection's own attempt: another one from inside would never come to an end.
  if (ConnectScope::Holds(this)) return IsConnected();
  const Stopwatch watch;
  int64_t leftMs = timeoutMs;
  if (!TimedLock(reconnectMutex_, 0)) {
    // Another thread is connecting: what it brings up serves this one too.
    const TimedLock lock(reconnectMutex_, timeoutMs);
    leftMs -= static_cast<int64_t>(watch.ElapsedMs());
    if (!lock || IsConnected() || leftMs < kShortestConnectMs) return IsConnected();
  }
  if (!TryConnect(leftMs)) return false;
  ZEL_LOG(kInfo, "Reconnect  HostName:%s,port:%d Success,isDomain:%d,timeout:%d ms", hostName_.c_str(), port_,
          isDomain_, static_cast<int>(timeoutMs));
  return true;
}

bool CTcpclient::TryConnect(int64_t timeoutMs) {
  const ConnectScope scope(this);
  const auto before = socket_->link();
  FireEvent(ZEL_EVENT_PENDING);
  bool connected = false;
  bool isOurs = true;
  {
    const Stopwatch watch;
    const TimedLock lock(reconnectMutex_, timeoutMs);
    const int64_t leftMs = timeoutMs - static_cast<int64_t>(watch.ElapsedMs());
    if (lock && leftMs >= std::min(timeoutMs, kShortestConnectMs) &&
        (!IsConnected() || socket_->link() == before)) {
      connected = socket_->Connect(leftMs);
    } else {
      isOurs = false;  // another thread brought it up during the event, or is still at it
      connected = IsConnected();
    }
  }
  FireEvent(connected ? ZEL_EVENT_CONNECTED : ZEL_EVENT_FAILED);
  if (connected && isOurs) SubscribeAgain();
  return connected;
}

bool CTcpclient::WrapReconnect(int64_t timeoutMs) {
  if (!IsAutoReconnect() || ConnectScope::Holds(this)) return false;
  const Stopwatch watch;
  double elapsedSec = 0;
  {
    const TimedLock lock(reconnectMutex_, timeoutMs);
    if (!lock || IsConnected()) return IsConnected();  // another thread is at it, or brought it up meanwhile
    elapsedSec = reconnectTimer_.ElapsedSec();
    if (!(elapsedSec > reconnectIntervalSec())) return false;
    reconnectTimer_.Restart();
  }
  ZEL_LOG(kDebug, "trigger Reconnect  HostName:%s,port:%d,isDomain:%d,IntercalSec:%.2f sec",
          hostName_.c_str(), port_, isDomain_, elapsedSec);
  return Reconnect(timeoutMs - static_cast<int64_t>(watch.ElapsedMs()));
}

bool CTcpclient::EnsureConnected(int64_t timeoutMs) {
  if (IsConnected() || WrapReconnect(timeoutMs)) return true;
  (void)FailDisconnected();
  return false;
}

// Only what is still subscribed when its turn comes is sent again; a send that fails is made good by the next connect.
void CTcpclient::SubscribeAgain() {
  for (const auto& [topic, subscriber] : GetSubscribes()) {
    // Another thread may change the table meanwhile: what the server hears last is what the table says.
    bool told = false;
    for (bool wanted = HasSubscriber(topic); wanted != told; wanted = HasSubscriber(topic)) {
      (void)SendTopicRecord({wanted ? "sub" : "unsub", topic, {}, 0, 0});
      told = wanted;
    }
  }
}

// ---- Sending ----------------------------------------------------------------------------------------------

int32_t CTcpclient::Send(uint16_t port, uint32_t idGroup, uint32_t idOffset, const uint8_t* data,
                         uint32_t length, uint32_t timeoutMs) {
  const platform::ConstBytes payload(data, length);
  return SendPieces(port, {idGroup, idOffset}, {&payload, 1}, timeoutMs);
}

int32_t CTcpclient::SendPieces(uint16_t port, const AddressBlock& address,
                               std::span<const platform::ConstBytes> pieces, uint32_t timeoutMs) {
  // Up to here a copy is cheaper than a gathered send.
  constexpr size_t kCopiedFrame = size_t{8} * 1024;

  auto link = socket_->link();
  if (!link->connected()) {
    if (!EnsureConnected(timeoutMs)) return -1;
    link = socket_->link();
    if (!link->connected()) return FailDisconnected();  // lost again meanwhile
  }
  const uint32_t invokeId = GenInvokeId();
  lastInvokeId_ = invokeId;

  size_t size = 0;
  for (const auto& piece : pieces) size += piece.size();
  std::array<uint8_t, kCopiedFrame> frame;
  WriteRequestHead(frame.data(), port, invokeId, address, static_cast<uint32_t>(size));
  std::array<platform::ConstBytes, platform::kMaxPieces> parts;
  if (size + kRequestOverhead > kCopiedFrame) {
    parts[0] = std::span(frame).first(kRequestOverhead);
    std::copy(pieces.begin(), pieces.end(), parts.begin() + 1);
    return Socket::writeFrame(*link, std::span(parts).first(pieces.size() + 1));
  }
  size_t at = kRequestOverhead;
  for (const auto& piece : pieces) {
    if (!piece.empty()) std::memcpy(frame.data() + at, piece.data(), piece.size());
    at += piece.size();
  }
  parts[0] = std::span(frame).first(at);
  return Socket::writeFrame(*link, std::span(parts).first(1));
}

int32_t CTcpclient::SendTopicRecord(const TopicRecord& record) {
  std::array<uint8_t, 512> shortHead;
  std::vector<uint8_t> longHead;
  std::span<uint8_t> head(shortHead);
  if (const size_t size = TopicRecordHeadSize(record); size <= shortHead.size()) {
    head = head.first(size);
  } else {
    longHead.resize(size);
    head = longHead;
  }
  std::array<uint8_t, kTopicRecordTailSize> tail;
  WriteTopicRecordHead(head.data(), record);
  WriteTopicRecordTail(tail.data(), record);
  const std::array<platform::ConstBytes, 3> pieces{head, record.data, tail};
  return SendPieces(kTopicPort, {record.IdGroup, record.IdOffset}, pieces, kTopicTimeoutMs);
}

int32_t CTcpclient::Publish(const char* topic, uint32_t idGroup, uint32_t idOffset, const uint8_t* data,
                            uint32_t length) {
  const int32_t sent = SendTopicRecord({"pub", topic, {data, length}, idGroup, idOffset});
  return sent >= 1 ? ZEL_OK : GetErrno();
}

int32_t CTcpclient::Subscribe(const char* topic, ZelTopicCallback callback, void* user) {
  StoreSubscriber(topic, {callback, user});
  return SendTopicRecord({"sub", topic, {}, 0, 0}) > 0 ? ZEL_OK : GetErrno();
}

int32_t CTcpclient::UnSubscribe(const char* topic) {
  if (!RemoveSubscriber(topic)) {
    ZEL_LOG(kError, "topic:%s no subscribe", topic);
    SetErrno(ZEL_E_TOPIC);
    return ZEL_E_TOPIC;
  }
  return SendTopicRecord({"unsub", topic, {}, 0, 0}) > 0 ? ZEL_OK : GetErrno();
}

int32_t CTcpclient::Write(const uint8_t* data, uint32_t length, int64_t timeoutMs) {
  return socket_->write(data, length, timeoutMs);
}

int32_t CTcpclient::SendBuffer(const FrameBuffer& message) { return socket_->write(message, 1000); }

// ---- Receive thread ---------------------------------------------------------------------------------------

int32_t CTcpclient::svc() {
  ReceiveBuffer body;
  std::shared_ptr<SocketLink> link;
  std::optional<SocketLink::Reader> reader;
  while (!IsStopped()) {
    if (auto present = socket_->link(); present != link) {
      reader.emplace(present);
      link = std::move(present);
    }
    if (link->connected()) {
      ReceiveOnce(*link, body);
      continue;
    }
    PauseUnlessStopped(kDownPauseMs);
    if (!IsStopped()) (void)WrapReconnect(kReceiveReconnectMs);
  }
  ZEL_LOG(kDebug, "Stop Loop Success");
  return 0;
}

// Frames that have been read ahead whole are handed over where they lie. True when there was one.
bool CTcpclient::DispatchBuffered(SocketLink& link) {
  bool any = false;
  while (!IsStopped() && link.connected()) {
    const auto frame = link.TakeBuffered(ReceivedFrameSize);
    if (frame.empty()) break;
    const auto body = frame.subspan(kZelHeaderSize);
    (void)router().call(ZelHeader::Read(frame.data()), body.data(), static_cast<uint32_t>(body.size()), this);
    any = true;
  }
  return any;
}

void CTcpclient::ReceiveOnce(SocketLink& link, ReceiveBuffer& body) {
  if (DispatchBuffered(link)) return;
  if (!link.Select(kReceiveWaitMs, &stopWaker())) {
    link.TrimReadAhead();
    body.Trim();
    return;
  }
  Incoming incoming;
  switch (ReadFrame(link, body, incoming)) {
    case Outcome::kFrame: (void)router().call(incoming.header, body.data(), incoming.bodySize, this); break;
    case Outcome::kClosed: CloseByPeer(link); break;
    case Outcome::kBadLength:
      ZEL_LOG_AS("CTcpclient::svc", kError, "zel header len is error,nPacketLen:%d",
                 static_cast<int>(incoming.header.nMsgLen));
      socket_->ShutdownLink(link);
      ReportEnd(link);
      break;
    case Outcome::kShort:
      ZEL_LOG_AS("CTcpclient::svc", kError, "recv size!=header.nMsgLen:%d,but recv size:%d",
                 static_cast<int>(incoming.header.nMsgLen), static_cast<int>(incoming.bodySize));
      break;
    case Outcome::kNothing: break;
  }
}

CTcpclient::Outcome CTcpclient::ReadFrame(SocketLink& link, ReceiveBuffer& body, Incoming& incoming) {
  // A synchronous receive may be in the middle of a frame for as long as its caller has time; a stop must not wait.
  const TimedLock lock(link.frameMutex(), kFrameWaitMs);
  if (!lock) return Outcome::kNothing;
  uint8_t header[kZelHeaderSize] = {0, kVersionZoe};
  const int32_t size = link.readFull(header, sizeof header);
  if (size == 0) return Outcome::kClosed;
  // The other reader was quicker.
  if (size < 0 && platform::SocketError() == platform::kSocketWouldBlock) return Outcome::kNothing;
  incoming.header = ZelHeader::Read(header);
  const uint32_t length = incoming.header.nMsgLen;
  if (length == 0 || length > kMaxReceivedBody) return Outcome::kBadLength;
  // The bytes of a header that came in two halves are lost, and with them the framing; the next bad length closes.
  if (size != static_cast<int32_t>(sizeof header)) return Outcome::kNothing;
  incoming.bodySize = ReadBody(link, body, length, kBodyTimeoutMs);
  return incoming.bodySize == length ? Outcome::kFrame : Outcome::kShort;
}

void CTcpclient::CloseByPeer(SocketLink& link) {
  ZEL_LOG_AS("CTcpclient::svc", kError, "connection is close");
  ReportEnd(link);
  socket_->ShutdownLink(link);
}

void CTcpclient::ReportEnd(SocketLink& link) {
  if (link.TakeEndReport()) FireEvent(ZEL_EVENT_DISCONNECTED);
}

// ---- Synchronous receive ----------------------------------------------------------------------------------

int32_t CTcpclient::Recv(void* /*context*/, uint8_t* buffer, uint32_t size, uint32_t timeoutMs) {
  if (!IsConnected()) {
    ZEL_LOG(kError, "connection is lost,ready reconnect");
    if (!EnsureConnected(timeoutMs)) return -1;
  }
  const Stopwatch watch;
  const SocketLink::Reader link(socket_->link());
  if (!link->connected()) return FailDisconnected();  // lost again meanwhile
  ReceiveBuffer body;
  int64_t remainingMs = int64_t{timeoutMs} - WholeMs(watch);
  while (remainingMs >= 1 && link->SelectEagerly(remainingMs)) {
    Incoming incoming;
    const Outcome outcome = ReadAnswer(*link, body, incoming, remainingMs);
    if (outcome != Outcome::kFrame) return FailAnswer(*link, outcome, incoming, timeoutMs);
    int32_t result = 0;
    if (TakeAnswer(incoming, body.data(), {buffer, size}, result)) return result;
    // The stopwatch goes on, so every answer that is skipped costs the whole time so far. Deliberate.
    remainingMs -= WholeMs(watch);
  }
  SetErrno(ZEL_E_TIMEOUT);
  return -1;
}

CTcpclient::Outcome CTcpclient::ReadAnswer(SocketLink& link, ReceiveBuffer& body, Incoming& incoming,
                                           int64_t remainingMs) {
  const Stopwatch watch;
  const TimedLock lock(link.frameMutex(), remainingMs);
  remainingMs -= static_cast<int64_t>(watch.ElapsedMs());
  if (!lock || remainingMs < 1) return Outcome::kNothing;
  uint8_t header[kZelHeaderSize] = {0, kVersionZoe};
  incoming.headerSize = link.readFull(header, sizeof header);
  if (incoming.headerSize == 0) return Outcome::kClosed;
  if (incoming.headerSize < 0) return Outcome::kNothing;
  incoming.header = ZelHeader::Read(header);
  const uint32_t length = incoming.header.nMsgLen;
  if (incoming.headerSize != static_cast<int32_t>(sizeof header) || length == 0) return Outcome::kBadLength;
  incoming.bodySize = ReadBody(link, body, length, remainingMs);
  return incoming.bodySize == length ? Outcome::kFrame : Outcome::kShort;
}

int32_t CTcpclient::FailAnswer(SocketLink& link, Outcome outcome, const Incoming& incoming,
                               uint32_t timeoutMs) {
  constexpr std::string_view kRecv = "CTcpclient::Recv";
  switch (outcome) {
    case Outcome::kClosed:
      ZEL_LOG_AS(kRecv, kError, "connection is close");
      ReportEnd(link);
      socket_->ShutdownLink(link);
      SetErrno(ZEL_E_DISCONNECTED);
      break;
    case Outcome::kBadLength:
      ZEL_LOG_AS(kRecv, kError, "recv size!=header.nMsgLen,size:%d,nMsgLen:%d", incoming.headerSize,
                 static_cast<int>(incoming.header.nMsgLen));
      SetErrno(ZEL_E_LENGTH);
      break;
    case Outcome::kShort:
      ZEL_LOG_AS(kRecv, kError, "recv:%d,MsgLen:%d error", static_cast<int>(incoming.bodySize),
                 static_cast<int>(incoming.header.nMsgLen));
      socket_->ShutdownLink(link);
      SetErrno(ZEL_E_LENGTH);
      break;
    default:
      ZEL_LOG_AS(kRecv, kTrace, "recv message timeout %d ms", static_cast<int>(timeoutMs));
      SetErrno(ZEL_E_TIMEOUT);
      break;
  }
  return -1;
}

// True when the message is the one that is waited for; `result` is then the call's.
bool CTcpclient::TakeAnswer(const Incoming& incoming, const uint8_t* body, std::span<uint8_t> out,
                            int32_t& result) {
  std::span<const uint8_t> payload(body, incoming.bodySize);
  uint32_t error = 0;
  if (incoming.header.version == kVersionZoe) {
    const auto zoe = ZoeHeader::Read(payload);
    if (!zoe) {
      result = static_cast<int32_t>(payload.size());
      return true;
    }
    error = zoe->error;
    SetErrno(static_cast<int32_t>(error));
    if (zoe->invokeId != lastInvokeId_) {
      ZEL_LOG_AS("CTcpclient::Recv", kError, "LastinvokeId:%d !=recv invokeId:%d",
                 static_cast<int>(lastInvokeId_.load()), static_cast<int>(zoe->invokeId));
      return false;
    }
    payload = payload.subspan(kZoeHeaderSize);
  }
  const size_t count = std::min(payload.size(), out.size());
  if (count != 0) std::memcpy(out.data(), payload.data(), count);
  result = count == 0 && error != 0 ? -1 : static_cast<int32_t>(count);
  return true;
}

}  // namespace libzel
