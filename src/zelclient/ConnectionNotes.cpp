#include "zelclient/ConnectionNotes.h"

#include <set>

#include "platform/Platform.h"
#include "utils/Forever.h"

namespace libzel {

namespace {

// The notes of all connections there are, and what was counted by those that are gone.
struct Registry {
  Mutex mutex;
  std::set<const ConnectionNotes*> present ZEL_GUARDED_BY(mutex);
  Counts gone ZEL_GUARDED_BY(mutex);
};

Registry& AllNotes() {
  static Forever<Registry> registry;
  return *registry;
}

}  // namespace

ConnectionNotes::ConnectionNotes() {
  Registry& all = AllNotes();
  const MutexLock lock(all.mutex);
  all.present.insert(this);
}

ConnectionNotes::~ConnectionNotes() {
  Registry& all = AllNotes();
  const MutexLock lock(all.mutex);
  all.present.erase(this);
  all.gone += Read();
}

Counts ConnectionNotes::Read() const {
  Counts counts = counters_.Read();
  return counts += loopCounters_.Read();
}

Counts ConnectionNotes::ReadAll() {
  Registry& all = AllNotes();
  const MutexLock lock(all.mutex);
  Counts counts = all.gone;
  for (const auto* notes : all.present) counts += notes->Read();
  return counts;
}

void ConnectionNotes::AddFailedRead(const FrameReader& reader, FrameReader::Outcome outcome) {
  AddFrames(Count::kFramesIn, Count::kBytesIn, 0, uint64_t{reader.headerSize()} + reader.bodySize());
  if (outcome == FrameReader::Outcome::kClosed) return;
  if (reader.headerSize() != 0 && reader.headerSize() != kZelHeaderSize) {
    Add(Count::kShortHeaders);
  } else if (outcome == FrameReader::Outcome::kBadLength) {
    Add(Count::kBadLengths);
  } else if (outcome == FrameReader::Outcome::kShortBody) {
    Add(Count::kShortBodies);
  }
}

void ConnectionNotes::FailedConnect(int32_t error) {
  Add(Count::kFailedConnects);
  SetFailure("connect", error != 0 ? platform::ReasonText(error) : "timed out");
}

void ConnectionNotes::Lost(SocketLink& link, std::string_view doing, std::string_view reason) {
  if (!link.TakeLoss()) return;
  Add(Count::kLosses);
  SetFailure(doing, reason);
}

void ConnectionNotes::Lost(SocketLink& link, std::string_view doing) {
  const int32_t error = link.endError();
  Lost(link, doing, error != 0 ? platform::ReasonText(error) : "closed by the peer");
}

void ConnectionNotes::LostByRead(SocketLink& link, const FailedRead& read) {
  using Outcome = FrameReader::Outcome;
  constexpr std::string_view kReceive = "receive from";
  const bool isCut = read.endsLink && link.connected();
  const bool isBadLength = read.outcome == Outcome::kBadLength;
  if ((isBadLength || isCut) && read.reader.headerSize() != kZelHeaderSize) {
    Lost(link, kReceive, "short header");
  } else if (isBadLength) {
    Lost(link, kReceive, "bad length " + std::to_string(read.reader.header().nMsgLen));
  } else if (read.outcome == Outcome::kFailed) {
    Lost(link, kReceive, platform::ReasonText(read.error));
  } else if (!link.connected()) {
    Lost(link, kReceive);
  } else if (isCut) {
    Lost(link, kReceive, "short body");
  }
}

std::string ConnectionNotes::Failure() {
  const MutexLock lock(mutex_);
  return failure_;
}

void ConnectionNotes::SetPeer(std::string peer) {
  const MutexLock lock(mutex_);
  peer_ = std::move(peer);
}

void ConnectionNotes::SetFailure(std::string_view doing, std::string_view reason) {
  const MutexLock lock(mutex_);
  failure_ = std::string(doing) + " " + peer_ + ": " + std::string(reason);
}

}  // namespace libzel
