// One client of the server: reads its frames, sends what it gets, and plays the faults.
//
// Lives on the event loop's thread. The server owns it by shared_ptr; pending operations keep it alive too.
// After the host has been told that it is closed, every send is ignored.
#pragma once

#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <memory>
#include <optional>
#include <string>

#include "Burst.h"
#include "Fault.h"
#include "Frame.h"
#include "FrameReader.h"
#include "Trace.h"
#include "Writer.h"

namespace zelsim {

class Connection;

class ConnectionHost {
 public:
  virtual ~ConnectionHost() = default;
  // `frame` counts the frames of the connection from 1. False refuses the request as a bad frame.
  virtual bool OnRequest(Connection& connection, const Request& request, uint64_t frame) = 0;
  // Called once, never from inside a call on the connection.
  virtual void OnClosed(Connection& connection) = 0;
};

struct ConnectionSettings {
  uint64_t id = 0;    // number in the trace, unique in the process
  std::string local;  // where it was accepted, for the trace
  FaultPlan faults;
  std::chrono::microseconds spin{0};  // how long to poll for the next request before sleeping
};

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(asio::ip::tcp::socket socket, ConnectionSettings settings, ConnectionHost& host, Trace& trace);

  void Start();
  uint64_t Id() const { return settings_.id; }
  // A trace line that names the connection.
  TraceLine Line(std::string_view event) const;

  // Answers the request that came with frame number `frame`, as the faults make it.
  void Answer(uint64_t frame, const AnswerHead& head, ByteView payload);
  void AnswerLater(std::chrono::milliseconds delay, uint64_t frame, const AnswerHead& head, ByteView payload);
  // Sends a message that answers nothing; `frame` is the whole frame.
  void SendMessage(ByteView frame);
  void StartBurst(const BurstRule& rule);
  // Ends a burst on this topic, if one runs.
  void StopBurst(std::string_view topic);
  // Sends everything queued, then ends the connection in an orderly way.
  void CloseAfterFlush(std::string_view reason);
  // Ends the connection now.
  void Close(std::string_view reason);

 private:
  enum class State { kOpen, kStalled, kFlushing, kLingering, kClosed };

  void ReadMore();
  void OnRead(const asio::error_code& error, size_t count);
  void OnPeerEnd(const asio::error_code& error);
  void TakeBytes(size_t count);
  void Spin();
  void ProcessFrames();
  void ProcessFrame();
  void RefuseFrame(std::string_view reason);
  void PlayFrameFaults();
  void Reset();
  void Stall();
  void Greet();
  bool Refill(Bytes& buffer);
  void OnDrained();
  void FinishClose();
  void SendShaped(uint64_t frame, const AnswerHead& head, ByteView payload);

  asio::ip::tcp::socket socket_;
  ConnectionSettings settings_;
  ConnectionHost& host_;
  Trace& trace_;
  std::string peer_;
  FrameReader reader_;
  Writer writer_;
  asio::steady_timer lingerTimer_;
  std::optional<Burst> burst_;
  uint64_t frames_ = 0;
  State state_ = State::kOpen;
  bool reading_ = false;
  bool readingPaused_ = false;
  bool peerEnded_ = false;
};

}  // namespace zelsim
