// The synchronous receive of a connection: the answer to its last request, read on the caller's thread.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>

#include "utils/Log.h"
#include "zelclient/ReadTerms.h"
#include "zelclient/ZelTcpclient.h"
#include "zelcomm/ErrorCode.h"

// Its lines are the connection's.
#define ZEL_LOG_CLIENT(function, level, ...) ZEL_LOG_FROM("ZelTcpclient.cpp", function, level, __VA_ARGS__)

namespace libzel {

namespace {

int64_t WholeMs(const Stopwatch& watch) {
  // Some time has always passed, even where the clock is too coarse to show it.
  return std::max<int64_t>(static_cast<int64_t>(std::ceil(watch.ElapsedMs())), 1);
}

}  // namespace

int32_t CTcpclient::Recv(void* /*context*/, uint8_t* buffer, uint32_t size, uint32_t timeoutMs) {
  if (IsCancelled()) return FailDisconnected();
  if (!IsConnected()) {
    ZEL_LOG_CLIENT("CTcpclient::Recv", kError, "connection is lost,ready reconnect");
    if (!EnsureConnected(timeoutMs)) return -1;
  }
  const Stopwatch watch;
  const SocketLink::Reader link(socket_->link());
  if (!link->connected()) return FailDisconnected();  // lost again meanwhile
  const int32_t result = AwaitAnswer(*link, {buffer, size}, timeoutMs, watch);
  return result < 0 && IsCancelled() ? FailDisconnected() : result;
}

int32_t CTcpclient::AwaitAnswer(SocketLink& link, std::span<uint8_t> out, uint32_t timeoutMs,
                                const Stopwatch& watch) {
  int64_t remainingMs = int64_t{timeoutMs} - 1;  // some time has passed
  FrameReader reader;
  // What the caller has no room for is not held.
  const auto room =
      static_cast<uint32_t>(std::min<uint64_t>(uint64_t{out.size()} + kZoeHeaderSize, UINT32_MAX));
  while (remainingMs >= 1 && AwaitInput(link, remainingMs)) {
    // The answer of another thread's request is held whole: the room for it is elsewhere.
    const uint32_t held = requests_.MayTake() ? std::max(room, kMaxReceivedBody) : room;
    const Outcome outcome = ReadWhole(link, reader, held, remainingMs);
    if (outcome != Outcome::kFrame) return FailAnswer(link, outcome, reader, timeoutMs);
    notes().AddFrameIn(reader.frame());
    int32_t result = 0;
    if (TakeAnswer(reader.frame(), out, result)) return result;
    // The stopwatch goes on, so every answer that is skipped costs the whole time so far. Deliberate.
    remainingMs -= WholeMs(watch);
  }
  SetErrno(ZEL_E_TIMEOUT);
  return -1;
}

bool CTcpclient::AwaitInput(SocketLink& link, int64_t timeoutMs) {
  return link.SelectEagerly(std::min(timeoutMs, link.MsUntilOverdue())) || link.MsUntilOverdue() <= 0;
}

// A frame that stays with the link while it comes is read on; kNothing when it is not whole in time.
CTcpclient::Outcome CTcpclient::ReadWhole(SocketLink& link, FrameReader& reader, uint32_t heldBody,
                                          int64_t timeoutMs) {
  std::optional<Stopwatch> watch;  // most frames come whole, and need none
  int64_t leftMs = timeoutMs;
  for (;;) {
    const auto terms = ReadTerms(options()).OfSynchronousReceive(heldBody, leftMs);
    const Outcome outcome = ReadOrClose(link, reader, terms);
    if (outcome != Outcome::kNothing || !link.HasUnfinished() || !link.connected()) return outcome;
    if (!watch) watch.emplace();
    leftMs = timeoutMs - WholeMs(*watch);
    if (leftMs < 1 || !AwaitInput(link, leftMs)) return outcome;
  }
}

CTcpclient::Outcome CTcpclient::ReadOrClose(SocketLink& link, FrameReader& reader,
                                            const FrameReader::Terms& terms) {
  try {
    return reader.Read(link, terms);
  } catch (const std::bad_alloc&) {
    if (link.TakeLoss()) notes().Add(Count::kLosses);
    ShutdownLink(link);
    throw;
  }
}

int32_t CTcpclient::FailAnswer(SocketLink& link, Outcome outcome, const FrameReader& reader,
                               uint32_t timeoutMs) {
  if (IsCancelled()) return FailDisconnected();
  notes().AddFailedRead(reader, outcome);
  constexpr std::string_view kRecv = "CTcpclient::Recv";
  const auto length = static_cast<int>(reader.header().nMsgLen);
  switch (outcome) {
    case Outcome::kClosed:
      ZEL_LOG_CLIENT(kRecv, kError, "connection is close");
      notes().Lost(link, "receive from");
      ReportEnd(link);
      ShutdownLink(link);
      SetErrno(ZEL_E_DISCONNECTED);
      break;
    case Outcome::kBadLength:
    case Outcome::kShortHeader:
      ZEL_LOG_CLIENT(kRecv, kError, "recv size!=header.nMsgLen,size:%d,nMsgLen:%d",
                     static_cast<int>(reader.headerSize()), length);
      SetErrno(ZEL_E_LENGTH);
      break;
    case Outcome::kShortBody:
      ZEL_LOG_CLIENT(kRecv, kError, "recv:%d,MsgLen:%d error", static_cast<int>(reader.bodySize()), length);
      if (link.connected()) {
        notes().Lost(link, "receive from", "short body");
      } else {
        notes().Lost(link, "receive from");
      }
      ShutdownLink(link);
      SetErrno(ZEL_E_LENGTH);
      break;
    case Outcome::kNothing:
    case Outcome::kFailed:
    case Outcome::kFrame:
      ZEL_LOG_CLIENT(kRecv, kTrace, "recv message timeout %d ms", static_cast<int>(timeoutMs));
      SetErrno(ZEL_E_TIMEOUT);
      break;
  }
  if (ReadTerms(options()).EndsLink(outcome, reader.headerSize(), reader.header().nMsgLen)) {
    notes().LostByRead(link, {reader, outcome, 0, true});
    ShutdownLink(link);
    ReportEnd(link);
    SetErrno(ZEL_E_LENGTH);
  }
  return -1;
}

bool CTcpclient::IsTakenByRequest(const FrameView& frame) {
  const auto taken = requests_.Take(frame, RequestTable::Reader::kSynchronousReceive);
  if (taken == RequestTable::Taken::kLate) notes().Add(Count::kLateAnswers);
  if (taken == RequestTable::Taken::kAnswer) WakeReceiveThread();
  return taken != RequestTable::Taken::kNo;
}

// True when the message is the one that is waited for; `result` is then the call's.
bool CTcpclient::TakeAnswer(const FrameView& frame, std::span<uint8_t> out, int32_t& result) {
  std::span<const uint8_t> payload = frame.body;
  uint32_t error = 0;
  if (frame.header.version == kVersionZoe) {
    const auto zoe = ZoeHeader::Read(payload);
    if (!zoe) {
      result = static_cast<int32_t>(payload.size());
      return true;
    }
    if (zoe->invokeId != lastInvokeId_ && IsTakenByRequest(frame)) return false;
    error = zoe->error;
    SetErrno(static_cast<int32_t>(error));
    if (zoe->invokeId != lastInvokeId_) {
      ZEL_LOG_CLIENT("CTcpclient::Recv", kError, "LastinvokeId:%d !=recv invokeId:%d",
                     static_cast<int>(lastInvokeId_.load()), static_cast<int>(zoe->invokeId));
      if (frame.header.port != kTopicPort) notes().Add(Count::kLateAnswers);
      return false;
    }
    payload = payload.subspan(kZoeHeaderSize);
  }
  const size_t count = std::min(payload.size(), out.size());
  if (count != 0) std::memcpy(out.data(), payload.data(), count);
  result = count == 0 && error != 0 ? -1 : static_cast<int32_t>(count);
  return true;
}

}  // namespace libzel
