// The way to the port of a device that takes files: one message, and its answer.
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
  // When the whole has to be over, and how long a peer may take to read a message.
  struct Bounds {
    TimePoint end = SocketLink::kNoEnd;
    int64_t writeMs = INT64_MAX;
  };

  // When a transfer's time is over whose turn comes now.
  static TimePoint EndFromNow();
  // True when an exchange that failed had no time left.
  static bool IsOver(TimePoint end);

  explicit FileLink(uint16_t port) : port_(port) {}
  void SetConnection(std::weak_ptr<IZelPeerConnection> connection) { connection_ = std::move(connection); }

  // Sends the message and takes its answer, whose missing bytes stay as they are; each has a second at most, for
  // connecting or waiting. False when that failed. The connection's life is looked at anew for both.
  bool Exchange(std::span<const uint8_t> message, FileAnswerBuffer& answer, const Bounds& bounds);
  // The error word in the header of the last answer, also of one that had nothing else and so counts as failed; 0 without
  // one.
  uint32_t answerError() const { return answerError_; }

 private:
  int32_t Send(std::span<const uint8_t> message, const Bounds& bounds) const;
  int32_t Receive(FileAnswerBuffer& answer, const Bounds& bounds);

  const uint16_t port_;
  std::weak_ptr<IZelPeerConnection> connection_;
  uint32_t answerError_ = 0;
};

}  // namespace libzel
