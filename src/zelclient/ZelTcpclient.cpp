#include "zelclient/ZelTcpclient.h"

#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <vector>

#include "utils/Log.h"
#include "zelcomm/ErrorCode.h"
#include "zelcomm/RequestFrame.h"

namespace libzel {

namespace {

constexpr const char* kLocalServerPath = "/var/tmp/zel/zelserver";
constexpr int64_t kReceiveWaitMs = 1000;
constexpr int64_t kIdleWaitMs = 30000;  // of a quiet link: whoever changes it wakes the receive thread
constexpr int64_t kDownPauseMs = 100;
constexpr int64_t kHeaderGapMs = 20;
constexpr int64_t kBodyTimeoutMs = 1000;
constexpr int64_t kReceiveReconnectMs = 1500;
// A synchronous receive may be in the middle of a frame for as long as its caller has time; a stop must not wait.
constexpr int64_t kTurnWaitMs = 50;
constexpr uint32_t kTopicTimeoutMs = 1000;

constexpr FrameReader::Terms kReceiveThreadTerms{
    {.longestBody = kMaxReceivedBody}, kTurnWaitMs, INT64_MAX, kHeaderGapMs, kBodyTimeoutMs};

int64_t WholeMs(const Stopwatch& watch) {
  // Some time has always passed, even where the clock is too coarse to show it.
  return std::max<int64_t>(static_cast<int64_t>(std::ceil(watch.ElapsedMs())), 1);
}

int32_t FailDisconnected() {
  SetErrno(ZEL_E_DISCONNECTED);
  return -1;
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
  CTcpclient::Cancel();
  End();
}

void CTcpclient::Cancel() {
  IZelPeerConnection::Cancel();
  socket_->Cancel();
  requests_.Close(LIBZELX_E_CANCELLED);
}

void CTcpclient::Close() {
  socket_->Shutdown();
  LinkChanged();
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
  if (attempts_.IsInOne()) return IsConnected();
  ConnectAttempts::Attempt attempt(attempts_);
  attempt.Begin();
  if (!TryConnect(timeoutMs)) return false;
  ZEL_LOG(kInfo, "Connect HostName:%s,port:%d Success,isDomain:%d", hostName_.c_str(), port_, isDomain_);
  return true;
}

bool CTcpclient::Reconnect(int64_t timeoutMs) {
  if (attempts_.IsInOne()) return IsConnected();
  ConnectAttempts::Attempt attempt(attempts_);
  attempt.Begin();
  return TryReconnect(timeoutMs);
}

void CTcpclient::ConnectInBackground() {
  connectAtOnce_ = true;
  (void)loop_start();
}

bool CTcpclient::WrapReconnect(int64_t timeoutMs) {
  if (!IsAutoReconnect() || IsCancelled()) return false;
  ConnectAttempts::Attempt attempt(attempts_);
  const auto elapsedSec = attempt.BeginPaced(reconnectIntervalSec());
  if (!elapsedSec) return false;
  if (IsConnected()) return true;  // another thread brought it up meanwhile
  ZEL_LOG(kDebug, "trigger Reconnect  HostName:%s,port:%d,isDomain:%d,IntercalSec:%.2f sec",
          hostName_.c_str(), port_, isDomain_, *elapsedSec);
  return TryReconnect(timeoutMs);
}

bool CTcpclient::TryReconnect(int64_t timeoutMs) {
  if (!TryConnect(timeoutMs)) return false;
  ZEL_LOG(kInfo, "Reconnect  HostName:%s,port:%d Success,isDomain:%d,timeout:%d ms", hostName_.c_str(), port_,
          isDomain_, static_cast<int>(timeoutMs));
  return true;
}

bool CTcpclient::TryConnect(int64_t timeoutMs) {
  const auto before = IsConnected() ? socket_->link() : nullptr;
  FireEvent(ZEL_EVENT_PENDING);
  const Brought brought = BringUp(timeoutMs, before);
  if (!IsCancelled()) NoteConnect(brought);
  LinkChanged();  // the link of the receive thread and of requests is another one now, or none
  if (IsCancelled()) {
    (void)FailDisconnected();
    return false;
  }
  FireEvent(brought == Brought::kNothing ? ZEL_EVENT_FAILED : ZEL_EVENT_CONNECTED);
  if (brought == Brought::kOurs) SubscribeAgain();
  return brought != Brought::kNothing;
}

// `before` is the link that was up when the attempt began, if one was.
CTcpclient::Brought CTcpclient::BringUp(int64_t timeoutMs, const std::shared_ptr<SocketLink>& before) {
  if (!connectMutex_.try_lock_for(timeoutMs)) return IsConnected() ? Brought::kTheirs : Brought::kNothing;
  const AdoptedLock lock(connectMutex_);
  if (IsConnected() && socket_->link() != before) return Brought::kTheirs;
  return socket_->Connect(timeoutMs) ? Brought::kOurs : Brought::kNothing;
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
    for (bool wanted = topics().Contains(topic); wanted != told; wanted = topics().Contains(topic)) {
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
  auto link = socket_->link();
  if (!link->connected()) {
    if (!EnsureConnected(timeoutMs)) return -1;
    link = socket_->link();
    if (!link->connected()) return FailDisconnected();  // lost again meanwhile
  }
  const uint32_t invokeId = GenInvokeId();
  lastInvokeId_ = invokeId;
  return WriteFrame(*link, RequestFrame(port, invokeId, address, pieces).pieces());
}

int32_t CTcpclient::WriteFrame(SocketLink& link, std::span<const platform::ConstBytes> pieces) {
  const int32_t sent = link.writeFrame(pieces);
  if (sent > 0) {
    notes().AddFrames(Count::kFramesOut, Count::kBytesOut, 1, static_cast<uint64_t>(sent));
  } else if (sent == 0) {
    notes().Add(Count::kTooLong);
  } else {
    WriteFailed(link);
  }
  return sent;
}

int32_t CTcpclient::SendTopicRecord(const TopicRecord& record) {
  return SendPieces(kTopicPort, {record.IdGroup, record.IdOffset}, TopicRecordPieces(record).pieces(),
                    kTopicTimeoutMs);
}

int32_t CTcpclient::Publish(const char* topic, uint32_t idGroup, uint32_t idOffset, const uint8_t* data,
                            uint32_t length) {
  const int32_t sent = SendTopicRecord({"pub", topic, {data, length}, idGroup, idOffset});
  return sent >= 1 ? ZEL_OK : GetErrno();
}

int32_t CTcpclient::Subscribe(const char* topic, ZelTopicCallback callback, void* user) {
  topics().Set(topic, {callback, user});
  return SendTopicRecord({"sub", topic, {}, 0, 0}) > 0 ? ZEL_OK : GetErrno();
}

int32_t CTcpclient::UnSubscribe(const char* topic) {
  if (!topics().Erase(topic)) {
    ZEL_LOG(kError, "topic:%s no subscribe", topic);
    SetErrno(ZEL_E_TOPIC);
    return ZEL_E_TOPIC;
  }
  return SendTopicRecord({"unsub", topic, {}, 0, 0}) > 0 ? ZEL_OK : GetErrno();
}

int32_t CTcpclient::Write(const uint8_t* data, uint32_t length, int64_t timeoutMs) {
  const auto link = socket_->link();
  const int32_t sent = socket_->write(data, length, timeoutMs);
  if (sent < 0) WriteFailed(*link);
  return sent;
}

int32_t CTcpclient::SendBuffer(const FrameBuffer& message) {
  const platform::ConstBytes piece = message.content();
  return WriteFrame(*socket_->link(), {&piece, 1});
}

void CTcpclient::LinkChanged() {
  requests_.FailLost();
  WakeReceiveThread();
}

void CTcpclient::WriteFailed(SocketLink& link) {
  if (!link.connected()) NoteLoss(link, "send to");
  LinkChanged();  // the receive thread restores the link
}

void CTcpclient::DropStalled(SocketLink& link, uint32_t waitedMs) {
  notes().Add(Count::kStalledWrites);
  NoteDrop(link, "send to " + Peer() + ": peer did not read for " + std::to_string(waitedMs) + " ms");
  ShutdownLink(link);
}

std::shared_ptr<SocketLink> CTcpclient::LinkBefore(CondVar::Clock::time_point end) {
  if (!IsConnected()) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - CondVar::Clock::now());
    if (!WrapReconnect(std::max<int64_t>(left.count(), 0))) return nullptr;
  }
  auto link = socket_->link();
  return link->connected() ? link : nullptr;
}

uint32_t CTcpclient::GenInvokeId() {
  uint32_t id = IZelPeerConnection::GenInvokeId();
  while (requests_.Waits(id)) id = IZelPeerConnection::GenInvokeId();
  return id;
}

// ---- Receive thread ---------------------------------------------------------------------------------------

int32_t CTcpclient::svc() {
  FrameReader reader;
  std::shared_ptr<SocketLink> link;
  std::optional<SocketLink::Reader> counted;
  while (!IsStopped()) {
    if (auto present = socket_->link(); present != link) {
      counted.emplace(present);
      link = std::move(present);
    }
    requests_.RunDue();
    if (link->connected()) {
      ReceiveFrames(*link, reader);
      continue;
    }
    requests_.FailLost();
    if (connectAtOnce_.exchange(false)) {
      (void)Reconnect(kReceiveReconnectMs);
      continue;
    }
    PauseUnlessWoken(std::min(kDownPauseMs, requests_.MsUntilDue()));
    if (!IsStopped() && !IsConnected()) (void)WrapReconnect(kReceiveReconnectMs);
  }
  requests_.Close(LIBZELX_E_CANCELLED);
  requests_.RunDue();
  ZEL_LOG(kDebug, "Stop Loop Success");
  return 0;
}

void CTcpclient::ReceiveFrames(SocketLink& link, FrameReader& reader) {
  if (DispatchWhole(link) || !AwaitFrame(link, reader)) return;
  const Outcome outcome = reader.Read(link, kReceiveThreadTerms);
  if (outcome == Outcome::kFrame) {
    Dispatch(reader.frame());
  } else if (!IsCancelled()) {
    HandleFailure(link, outcome, reader);
  }
}

// False when nothing came. A link that stays quiet gives its memory back and is then left alone.
bool CTcpclient::AwaitFrame(SocketLink& link, FrameReader& reader) {
  if (link.Select(std::min(std::max(idleWaitMs_, kReceiveWaitMs), requests_.MsUntilDue()), &loopWaker())) {
    idleWaitMs_ = 0;
    return true;
  }
  TakeWakes();
  link.TrimReadAhead();
  reader.Trim();
  if (loopWaker().IsOpen()) idleWaitMs_ = kIdleWaitMs;
  return false;
}

// Frames that have been read ahead whole are handed over where they lie. True when there was one.
bool CTcpclient::DispatchWhole(SocketLink& link) {
  bool any = false;
  while (!IsStopped() && link.connected()) {
    const auto frame = link.TakeWhole(kMaxReceivedBody);
    if (!frame) break;
    Dispatch(*frame);
    any = true;
  }
  return any;
}

void CTcpclient::Dispatch(const FrameView& frame) {
  NoteFrameIn(frame);
  const auto taken = requests_.Take(frame, true);
  if (taken == RequestTable::Taken::kLate) notes().Add(Count::kLateAnswers);
  if (taken != RequestTable::Taken::kNo) return;
  const auto length = static_cast<uint32_t>(frame.body.size());
  if (router().call(frame.header, frame.body.data(), length, this) == ZEL_E_NO_ROUTER)
    notes().Add(Count::kNoPort);
}

// What a frame that could not be read means to the receive thread.
void CTcpclient::HandleFailure(SocketLink& link, Outcome outcome, const FrameReader& reader) {
  constexpr std::string_view kSvc = "CTcpclient::svc";
  const auto length = static_cast<int>(reader.header().nMsgLen);
  NoteFailedRead(link, outcome, reader);
  if (!link.connected()) requests_.FailLost();
  switch (outcome) {
    case Outcome::kClosed:
      ZEL_LOG_AS(kSvc, kError, "connection is close");
      ReportEnd(link);
      ShutdownLink(link);
      break;
    case Outcome::kBadLength:
    case Outcome::kFailed:
      ZEL_LOG_AS(kSvc, kError, "zel header len is error,nPacketLen:%d", length);
      NoteDrop(link, "receive from " + Peer() + ": bad length " + std::to_string(reader.header().nMsgLen));
      ShutdownLink(link);
      ReportEnd(link);
      break;
    case Outcome::kShortBody:
      ZEL_LOG_AS(kSvc, kError, "recv size!=header.nMsgLen:%d,but recv size:%d", length,
                 static_cast<int>(reader.bodySize()));
      break;
    case Outcome::kShortHeader:  // its bytes are lost, and with them the framing; the next bad length closes
    case Outcome::kNothing:
    case Outcome::kFrame: break;
  }
}

void CTcpclient::ReportEnd(SocketLink& link) {
  if (link.TakeEndReport()) FireEvent(ZEL_EVENT_DISCONNECTED);
}

void CTcpclient::ShutdownLink(const SocketLink& link) {
  socket_->ShutdownLink(link);
  LinkChanged();
}

void CTcpclient::OnNoMemory() {
  const auto link = socket_->link();
  if (!link->connected() || IsCancelled()) return;
  ZEL_LOG_AS("CTcpclient::svc", kError, "no memory to receive with,connection is closed");
  ShutdownLink(*link);
  ReportEnd(*link);
}

// ---- Reasons and figures ----------------------------------------------------------------------------------

void CTcpclient::NoteConnect(Brought brought) {
  using std::chrono::steady_clock;
  if (brought == Brought::kOurs) {
    notes().Add(Count::kConnects);
    upSinceMs_ =
        std::chrono::floor<std::chrono::milliseconds>(steady_clock::now().time_since_epoch()).count();
  } else if (brought == Brought::kNothing) {
    notes().Add(Count::kFailedConnects);
    const int32_t error = socket_->connectError();
    notes().SetFailure("connect " + Peer() + ": " + (error != 0 ? platform::ReasonText(error) : "timed out"));
  }
}

int64_t CTcpclient::ConnectedMs() {
  using std::chrono::steady_clock;
  if (!IsConnected()) return 0;
  return std::chrono::floor<std::chrono::milliseconds>(steady_clock::now().time_since_epoch()).count() -
         upSinceMs_;
}

// A link that was up and is lost, counted and told of once.
void CTcpclient::NoteDrop(SocketLink& link, std::string reason) {
  if (!link.TakeLoss()) return;
  notes().Add(Count::kLosses);
  notes().SetFailure(std::move(reason));
}

void CTcpclient::NoteLoss(SocketLink& link, std::string_view what) {
  const int32_t error = link.endError();
  NoteDrop(link, std::string(what) + " " + Peer() + ": " +
                     (error != 0 ? platform::ReasonText(error) : "closed by the peer"));
}

void CTcpclient::NoteFrameIn(const FrameView& frame) {
  notes().AddFrames(Count::kFramesIn, Count::kBytesIn, 1, kZelHeaderSize + frame.header.nMsgLen);
}

void CTcpclient::NoteFailedRead(SocketLink& link, Outcome outcome, const FrameReader& reader) {
  notes().Add(Count::kBytesIn, reader.headerSize() + reader.bodySize());
  const bool isShortHeader = reader.headerSize() != 0 && reader.headerSize() != kZelHeaderSize;
  switch (outcome) {
    case Outcome::kBadLength: notes().Add(isShortHeader ? Count::kShortHeaders : Count::kBadLengths); break;
    case Outcome::kShortHeader: notes().Add(Count::kShortHeaders); break;
    case Outcome::kShortBody: notes().Add(Count::kShortBodies); break;
    default: break;
  }
  if (!link.connected()) NoteLoss(link, "receive from");
}

// ---- Synchronous receive ----------------------------------------------------------------------------------

int32_t CTcpclient::Recv(void* /*context*/, uint8_t* buffer, uint32_t size, uint32_t timeoutMs) {
  if (IsCancelled()) return FailDisconnected();
  if (!IsConnected()) {
    ZEL_LOG(kError, "connection is lost,ready reconnect");
    if (!EnsureConnected(timeoutMs)) return -1;
  }
  const Stopwatch watch;
  const SocketLink::Reader link(socket_->link());
  if (!link->connected()) return FailDisconnected();  // lost again meanwhile
  const int32_t result = AwaitAnswer(*link, {buffer, size}, timeoutMs, watch);
  return result < 0 && IsCancelled() ? FailDisconnected() : result;
}

int32_t CTcpclient::AwaitAnswer(SocketLink& link, std::span<uint8_t> out, uint32_t timeoutMs,
                                const Stopwatch& watch) {
  int64_t remainingMs = int64_t{timeoutMs} - WholeMs(watch);
  FrameReader reader;
  // What the caller has no room for is not held.
  const auto held =
      static_cast<uint32_t>(std::min<uint64_t>(uint64_t{out.size()} + kZoeHeaderSize, UINT32_MAX));
  while (remainingMs >= 1 && link.SelectEagerly(remainingMs)) {
    const FrameReader::Terms terms{{.heldBody = held}, remainingMs, remainingMs, kHeaderGapMs, remainingMs};
    const Outcome outcome = ReadOrClose(link, reader, terms);
    if (outcome != Outcome::kFrame) return FailAnswer(link, outcome, reader, timeoutMs);
    NoteFrameIn(reader.frame());
    int32_t result = 0;
    if (TakeAnswer(reader.frame(), out, result)) return result;
    // The stopwatch goes on, so every answer that is skipped costs the whole time so far. Deliberate.
    remainingMs -= WholeMs(watch);
  }
  SetErrno(ZEL_E_TIMEOUT);
  return -1;
}

// A frame that there is no memory for leaves the stream without its framing.
CTcpclient::Outcome CTcpclient::ReadOrClose(SocketLink& link, FrameReader& reader,
                                            const FrameReader::Terms& terms) {
  try {
    return reader.Read(link, terms);
  } catch (const std::bad_alloc&) {
    ShutdownLink(link);
    throw;
  }
}

int32_t CTcpclient::FailAnswer(SocketLink& link, Outcome outcome, const FrameReader& reader,
                               uint32_t timeoutMs) {
  if (IsCancelled()) return FailDisconnected();
  NoteFailedRead(link, outcome, reader);
  constexpr std::string_view kRecv = "CTcpclient::Recv";
  const auto length = static_cast<int>(reader.header().nMsgLen);
  switch (outcome) {
    case Outcome::kClosed:
      ZEL_LOG_AS(kRecv, kError, "connection is close");
      ReportEnd(link);
      ShutdownLink(link);
      SetErrno(ZEL_E_DISCONNECTED);
      break;
    case Outcome::kBadLength:
    case Outcome::kShortHeader:
      ZEL_LOG_AS(kRecv, kError, "recv size!=header.nMsgLen,size:%d,nMsgLen:%d",
                 static_cast<int>(reader.headerSize()), length);
      SetErrno(ZEL_E_LENGTH);
      break;
    case Outcome::kShortBody:
      ZEL_LOG_AS(kRecv, kError, "recv:%d,MsgLen:%d error", static_cast<int>(reader.bodySize()), length);
      ShutdownLink(link);
      SetErrno(ZEL_E_LENGTH);
      break;
    case Outcome::kNothing:
    case Outcome::kFailed:
    case Outcome::kFrame:
      ZEL_LOG_AS(kRecv, kTrace, "recv message timeout %d ms", static_cast<int>(timeoutMs));
      SetErrno(ZEL_E_TIMEOUT);
      break;
  }
  return -1;
}

// True when the message is the one that is waited for; `result` is then the call's.
bool CTcpclient::TakeAnswer(const FrameView& frame, std::span<uint8_t> out, int32_t& result) {
  std::span<const uint8_t> payload = frame.body;
  uint32_t error = 0;
  if (frame.header.version == kVersionZoe) {
    const auto zoe = ZoeHeader::Read(payload);
    if (!zoe) {
      result = static_cast<int32_t>(payload.size());
      return true;
    }
    if (zoe->invokeId != lastInvokeId_ && requests_.Take(frame, false) != RequestTable::Taken::kNo) {
      WakeReceiveThread();
      return false;
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
