// What a connection notes of itself: why its link last failed, and what it has counted. Any thread may note and ask.
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

// How often what was counted, at one time.
struct Counts {
  static constexpr size_t kSize = static_cast<size_t>(Count::kNumber);

  uint64_t Of(Count what) const { return values[static_cast<size_t>(what)]; }
  Counts& operator+=(const Counts& other) {
    for (size_t i = 0; i < kSize; ++i) values[i] += other.values[i];
    return *this;
  }

  std::array<uint64_t, kSize> values{};
};

// A count for each kind, which one thread after the other or many at the same time may add to.
class Counters {
 public:
  void Add(Count what, uint64_t count) { At(what).fetch_add(count, std::memory_order_relaxed); }
  // Costs no lock of the memory. For counters that no other thread adds to meanwhile.
  void AddAlone(Count what, uint64_t count) {
    At(what).store(At(what).load(std::memory_order_relaxed) + count, std::memory_order_relaxed);
  }
  Counts Read() const {
    Counts counts;
    for (size_t i = 0; i < Counts::kSize; ++i) counts.values[i] = values_[i].load(std::memory_order_relaxed);
    return counts;
  }

 private:
  std::atomic<uint64_t>& At(Count what) { return values_[static_cast<size_t>(what)]; }

  std::array<std::atomic<uint64_t>, Counts::kSize> values_{};
};

class ConnectionNotes {
 public:
  ConnectionNotes();
  ~ConnectionNotes();
  ConnectionNotes(const ConnectionNotes&) = delete;
  ConnectionNotes& operator=(const ConnectionNotes&) = delete;

  // Whom the sentences name from now on, "10.0.0.9:9999".
  void SetPeer(std::string peer);

  // ---- Counting

  void Add(Count what, uint64_t count = 1) { counters_.Add(what, count); }
  void AddFrames(Count frames, Count bytes, uint64_t frameCount, uint64_t byteCount) {
    if (frameCount != 0) Add(frames, frameCount);
    if (byteCount != 0) Add(bytes, byteCount);
  }
  void AddFrameIn(const FrameView& frame) { AddFrames(Count::kFramesIn, Count::kBytesIn, 1, SizeOf(frame)); }
  // The same, by the receive thread.
  void AddFrameOfLoop(const FrameView& frame) {
    loopCounters_.AddAlone(Count::kFramesIn, 1);
    loopCounters_.AddAlone(Count::kBytesIn, SizeOf(frame));
  }
  // What a reader got that is no frame. The link's own fate is told elsewhere.
  void AddFailedRead(const FrameReader& reader, FrameReader::Outcome outcome);
  Counts Read() const;
  // Of all connections that there are and ever were.
  static Counts ReadAll();

  // ---- Reasons

  // `error` is the runtime's number, 0 when the time was over.
  void FailedConnect(int32_t error);
  // A link that was up and is lost is counted and told of once, whoever sees it first: "receive from 10.0.0.9:9999:
  // closed by the peer".
  void Lost(SocketLink& link, std::string_view doing, std::string_view reason);
  // The same, for the reason that the link itself knows.
  void Lost(SocketLink& link, std::string_view doing);
  // A read that was no frame, and whether the reader lets go of the link although that is up.
  struct FailedRead {
    const FrameReader& reader;
    FrameReader::Outcome outcome;
    int32_t error;  // the runtime's number
    bool endsLink;
  };
  // Tells of the link if that is lost by it.
  void LostByRead(SocketLink& link, const FailedRead& read);
  // One sentence; empty when nothing ever failed.
  std::string Failure();

 private:
  static uint64_t SizeOf(const FrameView& frame) { return kZelHeaderSize + uint64_t{frame.header.nMsgLen}; }
  void SetFailure(std::string_view doing, std::string_view reason);

  Counters counters_;
  Counters loopCounters_;  // what the receive thread alone adds to
  Mutex mutex_;
  std::string peer_ ZEL_GUARDED_BY(mutex_);
  std::string failure_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
