// The connection to a Zel server over TCP, or over the server's local stream socket: its receive thread, the
// synchronous receive of an answer, and reconnection that is paced by the reconnect interval.
//
// Threads: as IZelPeerConnection says. One thread at a time connects; others wait for it, but never for a callback. The
// receive thread and a synchronous receive read the same stream; whichever reads a frame first consumes it.
// Time-outs are in ms.
#pragma once

#include <memory>
#include <string>

#include "utils/Mutex.h"
#include "utils/Stopwatch.h"
#include "zelclient/ReceiveBuffer.h"
#include "zelclient/ZelPeerConn.h"
#include "zelcomm/Frame.h"
#include "zelcomm/Socket.h"

namespace libzel {

class CTcpclient : public IZelPeerConnection {
 public:
  // `parameters` are key=value pairs separated by ";": "ip" and "port", or "hostname" for the local path. A port that
  // is no number throws as std::stoi does.
  CTcpclient(const ZelDeviceId& remote, const std::string& parameters, bool isDomain);
  ~CTcpclient() override;

  bool Connect(int64_t timeoutMs) override;
  bool Reconnect(int64_t timeoutMs) override;
  // Reconnects if that is switched on and more than the reconnect interval has passed since the last paced attempt.
  bool WrapReconnect(int64_t timeoutMs);
  bool IsConnected() override { return socket_->isConnected(); }
  void Close() override { socket_->Shutdown(); }

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

 private:
  enum class Outcome { kFrame, kNothing, kClosed, kBadLength, kShort };
  struct Incoming {
    ZelHeader header;
    int32_t headerSize = 0;
    uint32_t bodySize = 0;
  };

  void ParseParameters(const std::string& parameters);
  bool TryConnect(int64_t timeoutMs);
  void SubscribeAgain();
  bool EnsureConnected(int64_t timeoutMs);

  int32_t SendPieces(uint16_t port, const AddressBlock& address, std::span<const platform::ConstBytes> pieces,
                     uint32_t timeoutMs);
  int32_t SendTopicRecord(const TopicRecord& record);

  void ReceiveOnce(SocketLink& link, ReceiveBuffer& body);
  bool DispatchBuffered(SocketLink& link);
  Outcome ReadFrame(SocketLink& link, ReceiveBuffer& body, Incoming& incoming);
  void CloseByPeer(SocketLink& link);
  void ReportEnd(SocketLink& link);

  Outcome ReadAnswer(SocketLink& link, ReceiveBuffer& body, Incoming& incoming, int64_t remainingMs);
  int32_t FailAnswer(SocketLink& link, Outcome outcome, const Incoming& incoming, uint32_t timeoutMs);
  bool TakeAnswer(const Incoming& incoming, const uint8_t* body, std::span<uint8_t> out, int32_t& result);

  std::string hostName_;
  uint16_t port_ = 0;
  const bool isDomain_;
  std::unique_ptr<Socket> socket_;

  TimedMutex reconnectMutex_;  // a connect in progress, and the timer
  Stopwatch reconnectTimer_;
};

}  // namespace libzel
