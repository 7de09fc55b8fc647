// What a connection notes of itself: why its link last failed, and what it has counted. Any thread may note and ask. The
// process's own counters take in every connection's.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "utils/Mutex.h"
#include "zelcomm/FrameReader.h"

namespace libzel {

enum class Count : size_t {
  kFramesIn,
  kFramesOut,
  kBytesIn,
  kBytesOut,
  kConnects,
  kFailedConnects,
  kLosses,
  kLateAnswers,
  kShortHeaders,
  kBadLengths,
  kShortBodies,
  kBadRecords,
  kNoPort,
  kNoTopic,
  kTooLong,
  kStalledWrites,
  kNumber,  // of the others
};

class Counters {
 public:
  void Add(Count what, uint64_t count) {
    counts_[static_cast<size_t>(what)].fetch_add(count, std::memory_order_relaxed);
  }
  uint64_t Of(Count what) const { return counts_[static_cast<size_t>(what)].load(std::memory_order_relaxed); }

 private:
  std::array<std::atomic<uint64_t>, static_cast<size_t>(Count::kNumber)> counts_{};
};

class ConnectionNotes {
 public:
  static Counters& OfProcess();

  // Whom the sentences name, "10.0.0.9:9999". Before any other thread knows the connection.
  void SetPeer(std::string peer) { peer_ = std::move(peer); }

  // ---- Counting

  void Add(Count what, uint64_t count = 1) {
    counters_.Add(what, count);
    OfProcess().Add(what, count);
  }
  void AddFrames(Count frames, Count bytes, uint64_t frameCount, uint64_t byteCount) {
    if (frameCount != 0) Add(frames, frameCount);
    if (byteCount != 0) Add(bytes, byteCount);
  }
  void AddFrameIn(const FrameView& frame) {
    AddFrames(Count::kFramesIn, Count::kBytesIn, 1, kZelHeaderSize + uint64_t{frame.header.nMsgLen});
  }
  // What a reader got that is no frame. The link's own fate is told elsewhere.
  void AddFailedRead(const FrameReader& reader, FrameReader::Outcome outcome);
  const Counters& counters() const { return counters_; }

  // ---- Reasons

  // `error` is the runtime's number, 0 when the time was over.
  void FailedConnect(int32_t error);
  // A link that was up and is lost is counted and told of once, whoever sees it first: "receive from 10.0.0.9:9999:
  // closed by the peer".
  void Lost(SocketLink& link, std::string_view doing, std::string_view reason);
  // The same, for the reason that the link itself knows.
  void Lost(SocketLink& link, std::string_view doing);
  // One sentence; empty when nothing ever failed.
  std::string Failure();

 private:
  void SetFailure(std::string text);

  std::string peer_;
  Counters counters_;
  Mutex mutex_;
  std::string failure_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
