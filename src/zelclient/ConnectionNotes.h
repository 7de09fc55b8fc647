// What a connection notes of itself: why its link last failed, and what it has counted. Any thread may note and ask. The
// process's own counters take in every connection's.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "utils/Mutex.h"

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

  void Add(Count what, uint64_t count = 1) {
    counters_.Add(what, count);
    OfProcess().Add(what, count);
  }
  void AddFrames(Count frames, Count bytes, uint64_t frameCount, uint64_t byteCount) {
    Add(frames, frameCount);
    Add(bytes, byteCount);
  }
  const Counters& counters() const { return counters_; }

  // One sentence, "connect 10.0.0.9:9999: refused".
  void SetFailure(std::string text) {
    const MutexLock lock(mutex_);
    failure_ = std::move(text);
  }
  // Empty when nothing ever failed.
  std::string Failure() {
    const MutexLock lock(mutex_);
    return failure_;
  }

 private:
  Counters counters_;
  Mutex mutex_;
  std::string failure_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
