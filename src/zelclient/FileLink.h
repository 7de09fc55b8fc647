// The way of the old queue's files to the port of a device: one message, and its answer, by the calls that any program
// makes.
//
// Used by one thread at a time, on a connection that nobody else receives from.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "libzel/libzel.h"
#include "zelclient/FileMessages.h"
#include "zelclient/ZelPeerConn.h"
#include "zelcomm/SocketLink.h"

namespace libzel {

class FileLink {
 public:
  using TimePoint = CondVar::Clock::time_point;
  // When a transfer's time is over whose turn comes now.
  static TimePoint EndFromNow();
  // True when an exchange that failed had no time left.
  static bool IsOver(TimePoint end);

  explicit FileLink(uint16_t port) : port_(port) {}
  void SetConnection(std::weak_ptr<IZelPeerConnection> connection) { connection_ = std::move(connection); }

  // Sends the message and takes its answer, whose missing bytes stay as they are; each has a second at most, for
  // connecting or waiting. False when that failed. The connection's life is looked at anew for both.
  bool Exchange(std::span<const uint8_t> message, FileAnswerBuffer& answer, TimePoint end);

 private:
  int32_t Send(std::span<const uint8_t> message, TimePoint end) const;
  int32_t Receive(FileAnswerBuffer& answer, TimePoint end) const;

  const uint16_t port_;
  std::weak_ptr<IZelPeerConnection> connection_;
};

}  // namespace libzel
