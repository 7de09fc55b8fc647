#include "zelclient/ZelTcpclient.h"

#include <array>
#include <optional>
#include <vector>

#include "utils/Log.h"
#include "utils/Stopwatch.h"
#include "zelclient/routetable/RouterTable.h"
#include "zelcomm/ErrorCode.h"
#include "zelcomm/RequestFrame.h"

namespace libzel {

namespace {

constexpr const char* kLocalServerPath = "/var/tmp/zel/zelserver";
constexpr int64_t kReceiveWaitMs = 1000;
constexpr int64_t kIdleWaitMs = 30000;  // of a quiet link: whoever changes it wakes the receive thread
constexpr int64_t kDownPauseMs = 100;
constexpr int64_t kReceiveReconnectMs = 1500;
constexpr uint32_t kTopicTimeoutMs = 1000;

int64_t MsBetween(CondVar::Clock::time_point start, CondVar::Clock::time_point end) {
  return std::chrono::ceil<std::chrono::milliseconds>(end - start).count();
}

}  // namespace

CTcpclient::CTcpclient(const ZelDeviceId& remote, const std::string& parameters, bool isDomain)
    : IZelPeerConnection(remote, parameters), isDomain_(isDomain) {
  std::string hostName = ParseParameters(parameters);
  if (isDomain_) {
    if (hostName.empty()) hostName = kLocalServerPath;
    socket_ = std::make_unique<DomainTcpSocket>(hostName.c_str(), port_, Socket::kStream, true);
    notes().SetPeer(hostName);
    ZEL_LOG(kDebug, "Create Unix Domain TCP Socket,Ready HostName:%s", hostName.c_str());
  } else {
    socket_ = std::make_unique<TcpSocket>(hostName.c_str(), port_, Socket::kStream, false);
    notes().SetPeer(hostName + ":" + std::to_string(port_));
    ZEL_LOG(kDebug, "Create  TCP Socket,Ready HostName:%s,port:%d", hostName.c_str(), port_);
  }
}

CTcpclient::~CTcpclient() {
  CTcpclient::Cancel();
  End();
}

void CTcpclient::BeginClose() {
  if (options().closeWaitMs == 0) {
    Cancel();
    return;
  }
  IZelPeerConnection::Cancel();
  requests_.Close(LIBZELX_E_CANCELLED);
  socket_->link()->FinishSending();
}

void CTcpclient::AwaitDelivery(CondVar::Clock::time_point start) {
  const int64_t waitMs = options().closeWaitMs;
  if (waitMs != 0) socket_->link()->AwaitDelivery(start + std::chrono::milliseconds(waitMs));
}

void CTcpclient::Cancel() {
  IZelPeerConnection::Cancel();
  requests_.Close(LIBZELX_E_CANCELLED);  // first: the end of the link is not their reason
  socket_->Cancel();
}

void CTcpclient::Close() {
  socket_->Shutdown();
  LinkChanged();
}

std::string CTcpclient::ParseParameters(const std::string& parameters) {
  std::string hostName;
  std::string_view rest = parameters;
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find(';'));
    rest.remove_prefix(std::min(pair.size() + 1, rest.size()));
    const size_t equals = pair.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = pair.substr(0, equals);
    const std::string value(pair.substr(equals + 1));
    if (key == (isDomain_ ? "hostname" : "ip")) hostName = value;
    if (key == "port" && !isDomain_) port_ = static_cast<uint16_t>(std::stoi(value));
  }
  return hostName;
}

// ---- Connecting -------------------------------------------------------------------------------------------

void CTcpclient::OptionsChanged() { socket_->SetDeadPeerTime(options().deadPeerMs); }

bool CTcpclient::Connect(int64_t timeoutMs) {
  ZEL_LOG(kInfo, "tcpclient ready connect  HostName:%s,port:%d,timeoutms:%d,isDomain:%d",
          socket_->host().c_str(), port_, static_cast<int>(timeoutMs), isDomain_);
  if (attempts_.IsInOne()) return IsConnected();
  ConnectAttempts::Attempt attempt(attempts_);
  attempt.Begin();
  if (!TryConnect({timeoutMs})) return false;
  ZEL_LOG(kInfo, "Connect HostName:%s,port:%d Success,isDomain:%d", socket_->host().c_str(), port_,
          isDomain_);
  return true;
}

bool CTcpclient::Reconnect(int64_t timeoutMs) {
  if (attempts_.IsInOne()) return IsConnected();
  ConnectAttempts::Attempt attempt(attempts_);
  attempt.Begin();
  return TryReconnect({timeoutMs});
}

void CTcpclient::ConnectInBackground() {
  connectAtOnce_ = true;
  (void)loop_start();
}

void CTcpclient::KeepForRequests() {
  isForRequestsAlone_ = true;
  SetReconnectDelay(reconnectIntervalSec(), false);
}

bool CTcpclient::WrapReconnect(int64_t timeoutMs) { return TryPaced({timeoutMs}); }

bool CTcpclient::TryPaced(const Patience& patience) {
  if (!IsAutoReconnect() || !IsLive() || IsCancelled()) return false;
  ConnectAttempts::Attempt attempt(attempts_);
  const auto elapsedSec = attempt.BeginPaced(pace_.PauseSec(reconnectIntervalSec(), options()));
  if (!elapsedSec) return false;
  if (IsConnected()) return true;  // another thread brought it up meanwhile
  ZEL_LOG(kDebug, "trigger Reconnect  HostName:%s,port:%d,isDomain:%d,IntercalSec:%.2f sec",
          socket_->host().c_str(), port_, isDomain_, *elapsedSec);
  return TryReconnect(patience);
}

bool CTcpclient::TryReconnect(const Patience& patience) {
  if (!TryConnect(patience)) return false;
  ZEL_LOG(kInfo, "Reconnect  HostName:%s,port:%d Success,isDomain:%d,timeout:%d ms", socket_->host().c_str(),
          port_, isDomain_, static_cast<int>(patience.connectMs));
  return true;
}

bool CTcpclient::TryConnect(const Patience& patience) {
  const auto before = IsConnected() ? socket_->link() : nullptr;
  FireEvent(ZEL_EVENT_PENDING);
  const Brought brought = BringUp(patience, before);
  if (!IsCancelled()) {
    if (before != nullptr && !before->connected()) notes().Lost(*before, "receive from");
    NoteConnect(brought);
  }
  LinkChanged();  // the link of the receive thread and of requests is another one now, or none
  if (IsCancelled()) {
    (void)FailDisconnected();
    return false;
  }
  FireEvent(brought == Brought::kNothing ? ZEL_EVENT_FAILED : ZEL_EVENT_CONNECTED);
  if (brought == Brought::kOurs) SubscribeAgain(patience.end);
  return brought != Brought::kNothing;
}

// `before` is the link that was up when the attempt began, if one was.
CTcpclient::Brought CTcpclient::BringUp(const Patience& patience, const std::shared_ptr<SocketLink>& before) {
  const auto isUp = [&] { return IsConnected() ? Brought::kTheirs : Brought::kNothing; };
  if (!connectMutex_.try_lock_for(patience.connectMs)) return isUp();
  const AdoptedLock lock(connectMutex_);
  if (IsConnected() && socket_->link() != before) return Brought::kTheirs;
  OptionsChanged();
  FollowRoute();
  const int64_t leftMs = std::min(patience.connectMs, MsUntil(patience.end));
  if (!socket_->Connect(leftMs)) return Brought::kNothing;
  requests_.ForgetGone();
  return Brought::kOurs;
}

// A link that is up stays where it is.
void CTcpclient::FollowRoute() {
  if (options().followRoute == 0 || isDomain_) return;
  const auto present = socket_->link();
  if (present->connected() && !platform::HasPeerEnded(present->handle())) return;
  const std::string host = CRouterTable::Instance().GetHostIpFromDeviceId(remoteDeviceId());
  socket_->SetHost(host);
  notes().SetPeer(host + ":" + std::to_string(port_));
}

void CTcpclient::NoteConnect(Brought brought) {
  pace_.NoteAttempt(brought != Brought::kNothing);
  if (brought == Brought::kOurs) {
    notes().Add(Count::kConnects);
  } else if (brought == Brought::kNothing) {
    notes().FailedConnect(socket_->connectError());
  }
}

int32_t CTcpclient::FailDisconnected() {
  SetErrno(ZEL_E_DISCONNECTED);
  return -1;
}

bool CTcpclient::EnsureConnected(int64_t timeoutMs) {
  if (IsConnected() || WrapReconnect(timeoutMs)) return true;
  (void)FailDisconnected();
  return false;
}

// Only what is still subscribed when its turn comes is sent again; a send that fails is made good by the next connect.
void CTcpclient::SubscribeAgain(CondVar::Clock::time_point end) {
  for (const auto& [topic, subscriber] : GetSubscribes()) {
    // Another thread may change the table meanwhile: what the server hears last is what the table says.
    bool told = false;
    for (bool wanted = topics().Contains(topic); wanted != told; wanted = topics().Contains(topic)) {
      (void)SendTopicRecord({wanted ? "sub" : "unsub", topic, {}, 0, 0}, end);
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
                               std::span<const platform::ConstBytes> pieces, uint32_t timeoutMs,
                               CondVar::Clock::time_point end) {
  auto link = socket_->link();
  if (!link->connected()) {
    if (!EnsureConnected(timeoutMs)) return -1;
    link = socket_->link();
    if (!link->connected()) return FailDisconnected();  // lost again meanwhile
  }
  const uint32_t invokeId = GenInvokeId();
  lastInvokeId_ = invokeId;
  return WriteFrame(*link, RequestFrame(port, invokeId, address, pieces).pieces(), end);
}

int32_t CTcpclient::WriteFrame(SocketLink& link, std::span<const platform::ConstBytes> pieces,
                               CondVar::Clock::time_point end) {
  const bool endsInTime = end != SocketLink::kNoEnd || options().writeStallMs != 0;
  if (endsInTime && !SocketLink::IsTooLong(pieces)) return WriteBefore(link, pieces, end);
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

// What could not be sent in time takes the link with it, so that the next connect makes it good.
int32_t CTcpclient::WriteBefore(SocketLink& link, std::span<const platform::ConstBytes> pieces,
                                CondVar::Clock::time_point end) {
  using End = SocketLink::Written::End;
  const auto start = CondVar::Clock::now();
  const int64_t stallMs = options().writeStallMs;
  const auto written = link.writeBefore(pieces, end, stallMs);
  const bool isWhole = written.end == End::kWhole;
  notes().AddFrames(Count::kFramesOut, Count::kBytesOut, isWhole ? 1 : 0, written.bytes);
  if (isWhole) return static_cast<int32_t>(written.bytes);
  const bool takesLink = written.end != End::kFailed || written.bytes != 0;
  NoteUnsent(link, written, takesLink, MsUntil(end) <= 0 ? MsBetween(start, end) : stallMs);
  return FailDisconnected();
}

int32_t CTcpclient::SendTopicRecord(const TopicRecord& record, CondVar::Clock::time_point end) {
  return SendPieces(kTopicPort, {record.IdGroup, record.IdOffset}, TopicRecordPieces(record).pieces(),
                    kTopicTimeoutMs, end);
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
  if (!link.connected() && !IsCancelled()) notes().Lost(link, "send to");
  LinkChanged();  // the receive thread restores the link
}

void CTcpclient::NoteUnsent(SocketLink& link, const SocketLink::Written& written, bool takesLink,
                            int64_t waitedMs) {
  const bool hasFailed = written.end == SocketLink::Written::End::kFailed;
  if (hasFailed) WriteFailed(link);
  if (!takesLink || (hasFailed && !link.connected())) return;
  if (!hasFailed) notes().Add(Count::kStalledWrites);
  notes().Lost(
      link, "send to",
      hasFailed ? "a frame left in part" : "peer did not read for " + std::to_string(waitedMs) + " ms");
  ShutdownLink(link);
}

std::shared_ptr<SocketLink> CTcpclient::LinkBefore(CondVar::Clock::time_point end) {
  if (!IsConnected()) {
    const int64_t leftMs = MsUntil(end);
    if (leftMs <= 0 || !TryPaced({leftMs, end})) return nullptr;
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
    if (!readTurn_.IsOwn()) {
      PauseWhileLent();
      continue;
    }
    if (link->connected()) {
      ReceiveFrames(*link, reader);
      continue;
    }
    requests_.FailLost();
    if (connectAtOnce_.exchange(false) && IsLive()) {
      (void)Reconnect(kReceiveReconnectMs);
      continue;
    }
    const bool isLeftAlone = !IsAutoReconnect() && loopWaker().IsOpen();
    PauseUnlessWoken(std::min(isLeftAlone ? kIdleWaitMs : kDownPauseMs, requests_.MsUntilDue()));
    if (!IsStopped() && !IsConnected()) (void)WrapReconnect(kReceiveReconnectMs);
  }
  requests_.Close(LIBZELX_E_CANCELLED);
  requests_.RunDue();
  ZEL_LOG(kDebug, "Stop Loop Success");
  return 0;
}

void CTcpclient::ReceiveFrames(SocketLink& link, FrameReader& reader) {
  if (DispatchWhole(link)) return;
  if (loopWaker().IsOpen() && !link.HasReadAhead() && readTurn_.Lend()) return;
  if (!AwaitFrame(link, reader)) return;
  const Outcome outcome = reader.Read(link, receiveTerms());
  if (outcome == Outcome::kFrame) {
    Dispatch(reader.frame());
    requests_.WakeAnswered();
  } else if (!IsCancelled()) {
    HandleFailure(link, outcome, reader);
  }
}

void CTcpclient::PauseWhileLent() {
  PauseUnlessWoken(std::min(readTurn_.LentMs(), requests_.MsUntilDue()));
  readTurn_.Reclaim();
}

// False when nothing came. A link that stays quiet gives its memory back and is then left alone.
bool CTcpclient::AwaitFrame(SocketLink& link, FrameReader& reader) {
  const int64_t waitMs = std::min(std::max(idleWaitMs_, kReceiveWaitMs), requests_.MsUntilDue());
  if (link.Select(std::min(waitMs, link.MsUntilOverdue()), &loopWaker()) || link.MsUntilOverdue() <= 0) {
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
  const uint32_t longestBody = ReadTerms(options()).LongestBody(kMaxReceivedBody);
  bool any = false;
  while (!IsStopped() && link.connected()) {
    const auto frame = link.TakeWhole(longestBody);
    if (!frame) break;
    Dispatch(*frame);
    any = true;
  }
  requests_.WakeAnswered();
  return any;
}

void CTcpclient::Dispatch(const FrameView& frame) {
  using Taken = RequestTable::Taken;
  notes().AddFrameOfLoop(frame);
  const Taken taken = requests_.Take(frame, RequestTable::Reader::kReceiveThread);
  if (taken == Taken::kLastAnswer) {
    readTurn_.NoteAnswer();
  } else {
    readTurn_.NoteOther();
  }
  if (taken == Taken::kLate) notes().Add(Count::kLateAnswers);
  if (taken != Taken::kNo) return;
  requests_.WakeAnswered();
  if (isForRequestsAlone_) {
    notes().Add(Count::kNoPort);
    return;
  }
  const auto length = static_cast<uint32_t>(frame.body.size());
  if (router().call(frame.header, frame.body.data(), length, this) == ZEL_E_NO_ROUTER)
    notes().Add(Count::kNoPort);
}

void CTcpclient::HandleFailure(SocketLink& link, Outcome outcome, const FrameReader& reader) {
  constexpr std::string_view kSvc = "CTcpclient::svc";
  const int32_t error = platform::RuntimeError();  // of the read that failed
  const auto length = static_cast<int>(reader.header().nMsgLen);
  notes().AddFailedRead(reader, outcome);
  const bool endsLink = ReadTerms(options()).EndsLink(outcome);
  notes().LostByRead(link, {reader, outcome, error, endsLink});
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
  if (endsLink) {
    ShutdownLink(link);
    ReportEnd(link);
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
  if (link->TakeLoss()) notes().Add(Count::kLosses);  // to tell of it takes memory
  ShutdownLink(*link);
  ReportEnd(*link);
}

}  // namespace libzel
