// The connection to a Zel server over TCP, or over the server's local stream socket: its receive thread, the
// synchronous receive of an answer, and reconnection that is paced by the reconnect interval.
//
// Threads: as IZelPeerConnection says. One thread at a time connects; others may wait for it, but never for a callback.
// The receive thread and a synchronous receive read the same stream; whichever reads a frame first consumes it.
// Time-outs are in ms.
#pragma once

#include <memory>
#include <string>

#include "utils/Mutex.h"
#include "utils/Stopwatch.h"
#include "zelclient/ConnectAttempts.h"
#include "zelclient/ReadTerms.h"
#include "zelclient/ReadTurn.h"
#include "zelclient/ReconnectPace.h"
#include "zelclient/RequestTable.h"
#include "zelclient/ZelPeerConn.h"
#include "zelcomm/Frame.h"
#include "zelcomm/FrameReader.h"
#include "zelcomm/Socket.h"

namespace libzel {

class CTcpclient : public IZelPeerConnection {
 public:
  // `parameters` are key=value pairs separated by ";": "ip" and "port", or "hostname" for the local path. A port that
  // is no number throws as std::stoi does.
  CTcpclient(const ZelDeviceId& remote, const std::string& parameters, bool isDomain);
  ~CTcpclient() override;

  // All three make an attempt, by itself each: event 2, the connect within the time-out, event 1 or 6, and after a
  // success the subscriptions again. From a callback of an attempt they make none and tell how things stand.
  bool Connect(int64_t timeoutMs) override;
  // Waits at most `timeoutMs` for another thread's connect; what that brings up serves this attempt as well. If it
  // brings nothing up, connects with the full time-out.
  bool Reconnect(int64_t timeoutMs) override;
  // Only if that is switched on, no other attempt is under way, and more than the reconnect interval has passed since
  // the last paced attempt; else false at once.
  bool WrapReconnect(int64_t timeoutMs);
  bool IsConnected() override { return socket_->isConnected(); }
  void Close() override;
  void BeginClose() override;
  void AwaitDelivery(CondVar::Clock::time_point start) override;
  void Cancel() override;

  int32_t Send(uint16_t port, uint32_t idGroup, uint32_t idOffset, const uint8_t* data, uint32_t length,
               uint32_t timeoutMs) override;
  int32_t Recv(void* context, uint8_t* buffer, uint32_t size, uint32_t timeoutMs) override;
  int32_t Write(const uint8_t* data, uint32_t length, int64_t timeoutMs) override;
  int32_t SendBuffer(const FrameBuffer& message) override;
  int32_t Publish(const char* topic, uint32_t idGroup, uint32_t idOffset, const uint8_t* data,
                  uint32_t length) override;
  int32_t Subscribe(const char* topic, ZelTopicCallback callback, void* user) override;
  int32_t UnSubscribe(const char* topic) override;
  int32_t svc() override;

  // As Send. A peer that has not read the message by `end` loses the link.
  int32_t SendBefore(uint16_t port, const AddressBlock& address, platform::ConstBytes payload,
                     uint32_t timeoutMs, CondVar::Clock::time_point end) {
    return SendPieces(port, address, {&payload, 1}, timeoutMs, end);
  }
  // To be told when one of its options was set.
  void OptionsChanged();

  // Starts the receive thread, which connects at once.
  void ConnectInBackground();
  // From here on a lost link is restored by a Connect alone, and messages that are no answers are dropped without a line.
  void KeepForRequests();

  // ---- For calls that end in time

  // The link, brought up by one paced attempt if it is down; null when it stays down. Without time there is no attempt.
  std::shared_ptr<SocketLink> LinkBefore(CondVar::Clock::time_point end);
  std::shared_ptr<SocketLink> PresentLink() { return socket_->link(); }
  RequestTable& requests() { return requests_; }
  // Takes in that a write did not end whole. With `takesLink` the link goes, too: the stream has lost its framing.
  void NoteUnsent(SocketLink& link, const SocketLink::Written& written, bool takesLink, int64_t waitedMs);
  // Makes the receive thread look for what is due.
  void LookAgain() { WakeReceiveThread(); }
  ReadTurn& readTurn() { return readTurn_; }
  // As the base's; identifiers of requests that still wait are left out.
  uint32_t GenInvokeId() override;
  uint32_t NextInvokeId() { return IZelPeerConnection::GenInvokeId(); }

  // ---- For a caller that reads in the receive thread's place

  FrameReader::Terms receiveTerms() { return ReadTerms(options()).OfReceiveThread(); }
  // A frame that there is no memory for leaves the stream without its framing.
  FrameReader::Outcome ReadOrClose(SocketLink& link, FrameReader& reader, const FrameReader::Terms& terms);
  // What a frame that could not be read means to the receive thread.
  void HandleFailure(SocketLink& link, FrameReader::Outcome outcome, const FrameReader& reader);

 protected:
  void OnLoopStart() override { requests_.Open(); }
  void OnNoMemory() override;

 private:
  enum class Brought { kNothing, kTheirs, kOurs };
  using Outcome = FrameReader::Outcome;

  // Gives the host, and takes the port.
  std::string ParseParameters(const std::string& parameters);
  // How long an attempt may take: the connect, and, for calls that end in time, everything.
  struct Patience {
    int64_t connectMs;
    CondVar::Clock::time_point end = SocketLink::kNoEnd;
  };
  bool TryConnect(const Patience& patience);
  Brought BringUp(const Patience& patience, const std::shared_ptr<SocketLink>& before);
  bool TryReconnect(const Patience& patience);
  bool TryPaced(const Patience& patience);
  void SubscribeAgain(CondVar::Clock::time_point end);
  void FollowRoute();
  bool EnsureConnected(int64_t timeoutMs);
  // Leaves error number 5, and gives -1.
  static int32_t FailDisconnected();
  bool IsCancelled() const { return socket_->IsCancelled(); }

  int32_t SendPieces(uint16_t port, const AddressBlock& address, std::span<const platform::ConstBytes> pieces,
                     uint32_t timeoutMs, CondVar::Clock::time_point end = SocketLink::kNoEnd);
  int32_t WriteFrame(SocketLink& link, std::span<const platform::ConstBytes> pieces,
                     CondVar::Clock::time_point end = SocketLink::kNoEnd);
  int32_t WriteBefore(SocketLink& link, std::span<const platform::ConstBytes> pieces,
                      CondVar::Clock::time_point end);
  void WriteFailed(SocketLink& link);
  int32_t SendTopicRecord(const TopicRecord& record, CondVar::Clock::time_point end = SocketLink::kNoEnd);

  void ReceiveFrames(SocketLink& link, FrameReader& reader);
  void PauseWhileLent();
  bool AwaitFrame(SocketLink& link, FrameReader& reader);
  bool DispatchWhole(SocketLink& link);
  void Dispatch(const FrameView& frame);
  void ReportEnd(SocketLink& link);
  void ShutdownLink(const SocketLink& link);
  void LinkChanged();
  void NoteConnect(Brought brought);

  int32_t AwaitAnswer(SocketLink& link, std::span<uint8_t> out, uint32_t timeoutMs, const Stopwatch& watch);
  static bool AwaitInput(SocketLink& link, int64_t timeoutMs);
  Outcome ReadWhole(SocketLink& link, FrameReader& reader, uint32_t heldBody, int64_t timeoutMs);
  int32_t FailAnswer(SocketLink& link, Outcome outcome, const FrameReader& reader, uint32_t timeoutMs);
  bool IsTakenByRequest(const FrameView& frame);
  bool TakeAnswer(const FrameView& frame, std::span<uint8_t> out, int32_t& result);

  uint16_t port_ = 0;
  const bool isDomain_;
  std::unique_ptr<Socket> socket_;

  RequestTable requests_;
  ReadTurn readTurn_;
  TimedMutex connectMutex_;  // one connect at a time
  ConnectAttempts attempts_;
  ReconnectPace pace_;
  std::atomic<bool> connectAtOnce_{false};
  std::atomic<bool> isForRequestsAlone_{false};
  int64_t idleWaitMs_ = 0;  // the receive thread's own
};

}  // namespace libzel
