#include "zelcomm/FrameReader.h"

#include <algorithm>

#include "utils/Stopwatch.h"

namespace libzel {

FrameReader::Outcome FrameReader::Read(SocketLink& link, const Terms& terms) {
  // What a sole reader has whole needs no turn and no clock.
  if (const auto whole = link.TakeWhole(terms.limits.longestBody)) {
    frame_ = *whole;
    return Outcome::kFrame;
  }
  const Outcome outcome = ReadInPieces(link, terms);
  if (outcome == Outcome::kFrame) frame_ = decoder_.frame();
  return outcome;
}

FrameReader::Outcome FrameReader::ReadInPieces(SocketLink& link, const Terms& terms) {
  const Stopwatch watch;
  const auto leftMs = [&] { return terms.allMs - static_cast<int64_t>(watch.ElapsedMs()); };
  decoder_.Begin(terms.limits);
  bodySize_ = 0;
  if (!link.frameMutex().try_lock_for(terms.turnMs)) return Outcome::kNothing;
  const AdoptedLock turn(link.frameMutex());
  if (leftMs() < 1) return Outcome::kNothing;
  const Outcome outcome = ReadHeader(link, terms.headerGapMs, leftMs());
  return outcome == Outcome::kFrame ? ReadBody(link, std::min(terms.bodyMs, leftMs())) : outcome;
}

// kFrame when the header is whole and its length good.
FrameReader::Outcome FrameReader::ReadHeader(SocketLink& link, int64_t gapMs, int64_t allMs) {
  const Stopwatch watch;
  for (;;) {
    const auto room = decoder_.Room();
    const int32_t got = link.readFull(room.data(), static_cast<int32_t>(room.size()));
    if (got == 0) return Outcome::kClosed;
    const bool mayCome = platform::SocketError() == platform::kSocketWouldBlock;
    if (got > 0) decoder_.Took(static_cast<size_t>(got));
    if (decoder_.HasHeader()) break;
    if (decoder_.headerSize() == 0) return mayCome ? Outcome::kNothing : Outcome::kFailed;
    const int64_t leftMs = allMs - static_cast<int64_t>(watch.ElapsedMs());
    if (!mayCome || !link.AwaitBytes(std::min(gapMs, leftMs))) {
      decoder_.EndHeader();
      break;
    }
  }
  if (decoder_.verdict() == FrameDecoder::Verdict::kBadLength) return Outcome::kBadLength;
  return decoder_.HasHeader() ? Outcome::kFrame : Outcome::kShortHeader;
}

FrameReader::Outcome FrameReader::ReadBody(SocketLink& link, int64_t timeoutMs) {
  const Stopwatch watch;
  while (decoder_.verdict() == FrameDecoder::Verdict::kMore) {
    const auto room = decoder_.Room();
    const int64_t leftMs = timeoutMs - (bodySize_ == 0 ? 0 : static_cast<int64_t>(watch.ElapsedMs()));
    const uint32_t count = link.readn(room.data(), static_cast<uint32_t>(room.size()), leftMs);
    if (count == 0 && !link.connected()) {
      bodySize_ = 0;
      return Outcome::kShortBody;
    }
    decoder_.Took(count);
    bodySize_ = decoder_.bodySize();
    if (count < room.size()) break;
  }
  return decoder_.verdict() == FrameDecoder::Verdict::kFrame ? Outcome::kFrame : Outcome::kShortBody;
}

}  // namespace libzel
