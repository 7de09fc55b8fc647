// How the two readers of a connection read: by the letter, or as the instance's options say.
#pragma once

#include <algorithm>
#include <cstdint>

#include "utils/Options.h"
#include "zelcomm/FrameReader.h"

namespace libzel {

class ReadTerms {
 public:
  explicit ReadTerms(const InstanceOptions& options) : options_(options) {}

  FrameReader::Terms OfReceiveThread() const {
    return {{.longestBody = LongestBody(kMaxReceivedBody)},
            kTurnWaitMs,
            INT64_MAX,
            kHeaderGapMs,
            kBodyTimeoutMs,
            HeaderSilenceMs(),
            options_.bodyWaitMs};
  }

  // What the caller has no room for is not held, unless another reader may have to go on with it.
  FrameReader::Terms OfSynchronousReceive(uint32_t heldBody, int64_t remainingMs) const {
    const int64_t headerSilenceMs = HeaderSilenceMs();
    const int64_t bodySilenceMs = options_.bodyWaitMs;
    const bool mayStay = headerSilenceMs != 0 || bodySilenceMs != 0;
    return {{.longestBody = LongestBody(UINT32_MAX), .heldBody = mayStay ? UINT32_MAX : heldBody},
            remainingMs,
            remainingMs,
            kHeaderGapMs,
            remainingMs,
            headerSilenceMs,
            bodySilenceMs};
  }

  // The longest body that is taken, where `letter` is what the reader takes by itself.
  uint32_t LongestBody(uint32_t letter) const {
    const int64_t chosen = options_.maxBody;
    return chosen != 0 ? static_cast<uint32_t>(chosen) : letter;
  }

  // True when the framing of the stream is lost by an outcome after which the letter reads on.
  bool EndsLink(FrameReader::Outcome outcome) const {
    using Outcome = FrameReader::Outcome;
    return (outcome == Outcome::kShortHeader && HeaderSilenceMs() != 0) ||
           (outcome == Outcome::kShortBody && options_.bodyWaitMs != 0);
  }
  // The same of a synchronous receive, for a header whose length is `length`.
  bool EndsLink(FrameReader::Outcome outcome, uint32_t headerSize, uint32_t length) const {
    using Outcome = FrameReader::Outcome;
    if (outcome != Outcome::kBadLength) return EndsLink(outcome);
    const bool isShort = headerSize < kZelHeaderSize;
    return isShort ? HeaderSilenceMs() != 0 : length > LongestBody(UINT32_MAX);
  }

 private:
  static constexpr int64_t kHeaderGapMs = 20;
  static constexpr int64_t kBodyTimeoutMs = 1000;
  // A synchronous receive may be in the middle of a frame for as long as its caller has time; a stop must not wait.
  static constexpr int64_t kTurnWaitMs = 50;

  int64_t HeaderSilenceMs() const {
    const int64_t waitMs = options_.headerWaitMs;
    return waitMs == kHeaderGapMs ? 0 : waitMs;
  }

  const InstanceOptions& options_;
};

}  // namespace libzel
