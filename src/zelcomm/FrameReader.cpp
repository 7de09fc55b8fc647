#include "zelcomm/FrameReader.h"

#include <algorithm>
#include <utility>

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
  Begin(link, terms);
  if (const Outcome outcome = ReadHeader(link, terms, leftMs()); outcome != Outcome::kFrame) return outcome;
  if (terms.bodySilenceMs != 0) return ReadBodySoFar(link, terms);
  return ReadBody(link, std::min(terms.bodyMs, leftMs()));
}

// Goes on with the frame that was left with the link, if there is one.
void FrameReader::Begin(SocketLink& link, const Terms& terms) {
  quietSince_ = kNotQuiet;
  if (!link.HasUnfinished()) return;
  auto unfinished = link.TakeUnfinished();
  decoder_ = std::move(unfinished.decoder);
  decoder_.SetLongestBody(terms.limits.longestBody);
  bodySize_ = decoder_.bodySize();
  quietSince_ = unfinished.quietSince;
}

// Leaves the frame with the link, unless nothing has come for too long: then false.
bool FrameReader::Leave(SocketLink& link, int64_t silenceMs) {
  const auto silence = std::chrono::milliseconds(silenceMs);
  const auto now = CondVar::Clock::now();
  if (quietSince_ == kNotQuiet) quietSince_ = now;
  if (now - quietSince_ >= silence) return false;
  link.LeaveUnfinished({std::exchange(decoder_, {}), quietSince_, quietSince_ + silence});
  bodySize_ = 0;  // they are told of when it is whole
  return true;
}

void FrameReader::Took(size_t count) {
  decoder_.Took(count);
  quietSince_ = kNotQuiet;
}

// kFrame when the header is whole and its length good.
FrameReader::Outcome FrameReader::ReadHeader(SocketLink& link, const Terms& terms, int64_t allMs) {
  const Stopwatch watch;
  while (!decoder_.HasHeader()) {
    const auto room = decoder_.Room();
    const int32_t got = link.readFull(room.data(), static_cast<int32_t>(room.size()));
    if (got == 0) return Outcome::kClosed;
    const bool mayCome = platform::SocketError() == platform::kSocketWouldBlock;
    if (got > 0) Took(static_cast<size_t>(got));
    if (decoder_.HasHeader()) break;
    if (decoder_.headerSize() == 0) return mayCome ? Outcome::kNothing : Outcome::kFailed;
    if (mayCome && terms.headerSilenceMs != 0 && Leave(link, terms.headerSilenceMs)) return Outcome::kNothing;
    const int64_t leftMs = allMs - static_cast<int64_t>(watch.ElapsedMs());
    if (!mayCome || terms.headerSilenceMs != 0 || !link.AwaitBytes(std::min(terms.headerGapMs, leftMs))) {
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

// Without a wait.
FrameReader::Outcome FrameReader::ReadBodySoFar(SocketLink& link, const Terms& terms) {
  while (decoder_.verdict() == FrameDecoder::Verdict::kMore) {
    const auto room = decoder_.Room();
    const uint32_t count = link.readn(room.data(), static_cast<uint32_t>(room.size()), 0);
    if (count == 0 && !link.connected()) {
      bodySize_ = 0;
      return Outcome::kShortBody;
    }
    if (count == 0) return Leave(link, terms.bodySilenceMs) ? Outcome::kNothing : Outcome::kShortBody;
    Took(count);
    bodySize_ = decoder_.bodySize();
  }
  return Outcome::kFrame;
}

}  // namespace libzel
