#include "zelcomm/SocketLink.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <thread>
#include <utility>

#include "utils/Log.h"
#include "utils/Stopwatch.h"
#include "zelcomm/ErrorCode.h"

// The lines of a link are its socket's.
#define ZEL_LOG_SOCKET(function, level, ...) ZEL_LOG_FROM("Socket.cpp", function, level, __VA_ARGS__)

namespace libzel {

namespace {

int64_t CeilMs(CondVar::Clock::time_point when) {
  return std::chrono::ceil<std::chrono::milliseconds>(when.time_since_epoch()).count();
}

int64_t NowMs() {
  return std::chrono::floor<std::chrono::milliseconds>(CondVar::Clock::now().time_since_epoch()).count();
}

bool IsConnectionEnded(int32_t socketError) {
  return socketError == platform::kSocketAborted || socketError == platform::kSocketReset ||
         socketError == platform::kSocketShutDown;
}

uint64_t SizeOf(std::span<const platform::ConstBytes> pieces) {
  uint64_t size = 0;
  for (const auto& piece : pieces) size += piece.size();
  return size;
}

void Advance(std::span<platform::ConstBytes>& pieces, size_t count) {
  while (!pieces.empty() && count >= pieces.front().size()) {
    count -= pieces.front().size();
    pieces = pieces.subspan(1);
  }
  if (!pieces.empty()) pieces.front() = pieces.front().subspan(count);
}

// The runtime's numbers for "try again" and "would block", and the socket layer's for "interrupted". Its own number for
// "would block" is not among these.
bool IsTryAgain(int32_t socketError) {
  return socketError == 11 || socketError == 140 || socketError == platform::kSocketInterrupted;
}

}  // namespace

SocketLink::~SocketLink() {
  if (handle_ != platform::kNoSocket) platform::CloseSocket(handle_);
}

void SocketLink::setConnected(bool connected) {
  if (connected && !this->connected()) upSinceMs_ = NowMs();
  connected_.store(connected, std::memory_order_release);
}

int64_t SocketLink::ConnectedMs() const { return connected() ? NowMs() - upSinceMs_ : 0; }

// ---- Waiting ----------------------------------------------------------------------------------------------

bool SocketLink::Select(int64_t timeoutMs, const platform::Waker* waker) {
  return HasInput(Look::kIfBusy) || SelectHandle(timeoutMs, waker != nullptr ? waker : this->waker());
}

bool SocketLink::SelectEagerly(int64_t timeoutMs) {
  return spinChoice_.Wait(
      timeoutMs, [this] { return HasInput(Look::kAlways); },
      [&] {
        if (!SelectHandle(timeoutMs, waker())) return false;
        (void)HasInput(Look::kAlways);
        return true;
      });
}

bool SocketLink::AwaitBytes(int64_t timeoutMs) const {
  return platform::WaitReadable(handle_, timeoutMs, waker()) == 1;
}

void SocketLink::Pause(int64_t timeoutMs) const {
  if (token_ != nullptr && token_->waker().IsOpen()) {
    (void)platform::WaitReadable(token_->waker().handle(), timeoutMs);
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(timeoutMs));
  }
}

bool SocketLink::AwaitWritable(int64_t timeoutMs) const {
  return platform::WaitWritable(handle_, timeoutMs, waker()) == 1 && !IsCancelled();
}

bool SocketLink::SelectHandle(int64_t timeoutMs, const platform::Waker* waker) {
  const int result = platform::WaitReadable(handle_, timeoutMs, waker);
  if (result == 1) return true;
  if (result == 0 || IsCancelled()) return false;
  const int32_t error = platform::SocketError();
  if (error == platform::kSocketNotASocket) {
    setConnected(false);
    ZEL_LOG_SOCKET("Socket::Select", kError, "connection closed,socket:%d", static_cast<int>(handle_));
  } else {
    ZEL_LOG_SOCKET("Socket::Select", kError,
                   "something strange happen while waiting for socket in state:%d with error:%s ", result,
                   platform::ErrorText(error).c_str());
  }
  return false;
}

// Looks without waiting. For a sole reader the look is the receive itself, and so costs nothing when it succeeds. A
// link without a read-ahead has been quiet: there a wait comes first.
bool SocketLink::HasInput(Look look) {
  const MutexLock lock(receiveMutex_);
  if (!ahead_.IsEmpty() || heldError_ != 0) return true;
  if (readers_ != 1 || (look == Look::kIfBusy && !ahead_.HasBlock())) return false;
  return FillReadAhead() >= 0 || heldError_ != 0;
}

// ---- Reading ----------------------------------------------------------------------------------------------

// A socket tells its error once, so one that comes here is held for the read that asks for it.
int64_t SocketLink::FillReadAhead() {
  const auto room = ahead_.Room();
  const int64_t received = platform::Receive(handle_, room.data(), room.size());
  ahead_.Received(static_cast<size_t>(std::max<int64_t>(received, 0)));
  if (received >= 0) return received;
  const int32_t error = platform::SocketError();
  if (error != platform::kSocketWouldBlock && error != platform::kSocketInterrupted) {
    heldError_ = platform::SystemError();
  }
  return received;
}

int64_t SocketLink::Receive(uint8_t* buffer, size_t size) {
  const MutexLock lock(receiveMutex_);
  if (ahead_.IsEmpty()) {
    if (heldError_ != 0) {
      platform::SetSystemError(std::exchange(heldError_, 0));
      return -1;
    }
    // A large body goes straight to its place.
    if (readers_ != 1 || size >= ReadAhead::kSize) return platform::Receive(handle_, buffer, size);
    const int64_t received = FillReadAhead();
    heldError_ = 0;  // it is asked for here
    if (received <= 0) return received;
  }
  return static_cast<int64_t>(ahead_.Read({buffer, size}));
}

int64_t SocketLink::MsUntilOverdue() const {
  const int64_t endMs = unfinishedEndMs_.load(std::memory_order_acquire);
  return endMs == INT64_MAX ? INT64_MAX : endMs - NowMs();
}

void SocketLink::LeaveUnfinished(Unfinished unfinished) {
  unfinished_ = std::move(unfinished);
  unfinishedEndMs_.store(CeilMs(unfinished_.end), std::memory_order_release);
}

SocketLink::Unfinished SocketLink::TakeUnfinished() {
  unfinishedEndMs_.store(INT64_MAX, std::memory_order_release);
  return std::exchange(unfinished_, {});
}

std::optional<FrameView> SocketLink::TakeWhole(uint32_t longestBody) {
  if (HasUnfinished()) return std::nullopt;
  const MutexLock lock(receiveMutex_);
  if (readers_ != 1) return std::nullopt;
  const auto frame = FrameDecoder::Whole(ahead_.bytes(), longestBody);
  if (frame) ahead_.Skip(kZelHeaderSize + frame->body.size());
  return frame;
}

std::optional<FrameView> SocketLink::PeekFrame() {
  if (HasUnfinished()) return std::nullopt;
  const MutexLock lock(receiveMutex_);
  if (readers_ != 1) return std::nullopt;
  if (ahead_.IsEmpty() && (heldError_ != 0 || FillReadAhead() <= 0)) return std::nullopt;
  return FrameDecoder::Front(ahead_.bytes());
}

void SocketLink::SkipWhole(const FrameView& frame) {
  const MutexLock lock(receiveMutex_);
  ahead_.Skip(kZelHeaderSize + frame.body.size());
}

bool SocketLink::HasReadAhead() {
  const MutexLock lock(receiveMutex_);
  return !ahead_.IsEmpty() || HasUnfinished();
}

void SocketLink::TrimReadAhead() {
  const MutexLock lock(receiveMutex_);
  ahead_.Trim();
}

uint32_t SocketLink::readn(uint8_t* buffer, uint32_t size, int64_t timeoutMs) {
  int64_t received = Receive(buffer, size);
  if (received == size) return size;  // all was there: no clock is read

  const Stopwatch watch;
  for (uint32_t got = 0;;) {
    if (received > 0) {
      got += static_cast<uint32_t>(received);
    } else if (!MayReadOn(received, timeoutMs - static_cast<int64_t>(watch.ElapsedMs()))) {
      return 0;
    }
    if (got >= size || watch.ElapsedMs() >= static_cast<double>(timeoutMs)) return got;
    received = Receive(buffer + got, size - got);
  }
}

// What a receive that gave nothing means to readn: false when the connection ended, else true, after a pause that fits.
bool SocketLink::MayReadOn(int64_t received, int64_t remainingMs) {
  const int32_t error = received < 0 ? platform::SocketError() : 0;
  if (IsCancelled() || received == 0 || IsConnectionEnded(error)) {
    NoteEnd(received == 0 ? 0 : platform::RuntimeError());
    if (IsCancelled()) return false;
    if (received == 0) {
      ZEL_LOG_SOCKET("Socket::readn", kError, "recv %d disconnect", 0);
    } else {
      ZEL_LOG_SOCKET("Socket::readn", kError, "recv %d disconnect,lasterror:%d", static_cast<int>(received),
                     error);
    }
    return false;
  }
  if (error == platform::kSocketWouldBlock) {
    (void)AwaitBytes(remainingMs);
  } else {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

int32_t SocketLink::readFull(uint8_t* buffer, int32_t size) {
  if (size < 1) return size;
  int32_t got = 0;
  while (got < size) {
    const int64_t received = Receive(buffer + got, static_cast<size_t>(size - got));
    if (received == 0) {
      NoteEnd(0);
      return 0;
    }
    if (received > 0) {
      got += static_cast<int32_t>(received);
      continue;
    }
    const int32_t error = platform::SocketError();
    if (IsTryAgain(error)) continue;
    if (IsConnectionEnded(error)) {
      NoteEnd(platform::RuntimeError());
      return 0;
    }
    return got > 0 ? got : -1;
  }
  return size;
}

void SocketLink::NoteEnd(int32_t runtimeError) {
  endError_ = runtimeError;
  setConnected(false);
}

SocketLink::Reader::Reader(std::shared_ptr<SocketLink> link) : link_(std::move(link)) {
  const MutexLock lock(link_->receiveMutex_);
  ++link_->readers_;
}

SocketLink::Reader::~Reader() {
  const MutexLock lock(link_->receiveMutex_);
  --link_->readers_;
}

// ---- Writing ----------------------------------------------------------------------------------------------

bool SocketLink::IsTooLong(std::span<const platform::ConstBytes> pieces) {
  return SizeOf(pieces) > kMaxSentFrame;
}

int32_t SocketLink::writeFrame(std::span<const platform::ConstBytes> pieces) {
  if (IsTooLong(pieces)) {
    ZEL_LOG_SOCKET("Socket::write", kError, "frame length: %d  exceeds maximum length for sockets",
                   static_cast<int>(SizeOf(pieces)));
    return 0;
  }
  return write(pieces);
}

int32_t SocketLink::write(std::span<const platform::ConstBytes> pieces) {
  const Written written = writeBefore(pieces, kNoEnd);
  return written.end == Written::End::kWhole ? static_cast<int32_t>(written.bytes) : -1;
}

SocketLink::Written SocketLink::writeBefore(std::span<const platform::ConstBytes> pieces,
                                            CondVar::Clock::time_point end, int64_t stallMs) {
  std::array<platform::ConstBytes, platform::kMaxPieces> copy{};
  std::copy(pieces.begin(), pieces.end(), copy.begin());
  if (end == kNoEnd) {
    sendTurn_.lock();
  } else if (!sendTurn_.try_lock_for(MsUntil(end))) {
    return {Written::End::kNoTurn};
  }
  if (isCut_) {
    sendTurn_.unlock();
    SetErrno(ZEL_E_DISCONNECTED);
    return {Written::End::kFailed};
  }
  FailedSend failed;
  const Written written = WriteAll(std::span(copy).first(pieces.size()), {end, stallMs}, failed);
  const bool endsInTime = end != kNoEnd || stallMs != 0;
  isCut_ = endsInTime && written.end != Written::End::kWhole && written.bytes != 0;
  sendTurn_.unlock();
  if (written.end == Written::End::kFailed) NoteFailedWrite(failed);
  return written;
}

void SocketLink::ForgetCut() {
  sendTurn_.lock();
  const AdoptedLock lock(sendTurn_);
  isCut_ = false;
}

bool SocketLink::Patience::IsOver() {
  if (end == kNoEnd && stallMs == 0) return false;
  const auto now = CondVar::Clock::now();
  if (stalledSince == kNoEnd) stalledSince = now;
  return now >= end || (stallMs != 0 && now - stalledSince >= std::chrono::milliseconds(stallMs));
}

SocketLink::Written SocketLink::WriteAll(std::span<platform::ConstBytes> pieces, Patience patience,
                                         FailedSend& failed) {
  Written written;
  while (!IsCancelled()) {
    const int64_t result = platform::Send(handle_, pieces);
    if (result >= 0) {
      written.bytes += static_cast<size_t>(result);
      Advance(pieces, static_cast<size_t>(result));
      if (pieces.empty()) return written;
      patience.stalledSince = kNoEnd;
      continue;
    }
    failed = {result, platform::RuntimeError(), platform::SocketError()};
    if (!MayWriteOn(failed)) return {Written::End::kFailed, written.bytes};
    if (patience.IsOver()) return {Written::End::kStalled, written.bytes};
  }
  return {Written::End::kFailed, written.bytes};
}

// True when a failed send may be tried again, after a pause that fits.
bool SocketLink::MayWriteOn(const FailedSend& send) {
  if (send.runtimeError == platform::kRuntimeInterrupted) {
    ZEL_LOG_SOCKET("Socket::write", kTrace, "send error EINTR:result:%d,continue",
                   static_cast<int>(send.result));
    return true;
  }
  if (send.runtimeError != platform::kRuntimeTryAgain) return false;
  // As long as the sleep of 1 ms, and shorter when the peer reads sooner.
  (void)platform::WaitWritable(handle_, 1);
  ZEL_LOG_SOCKET("Socket::write", kTrace, "send error again: usleep 1ms");
  return true;
}

void SocketLink::FinishSending() {
  if (!sendTurn_.try_lock_for(0)) return;
  const AdoptedLock lock(sendTurn_);
  platform::FinishSending(handle_);
}

void SocketLink::AwaitDelivery(CondVar::Clock::time_point end) {
  if (!sendTurn_.try_lock_for(MsUntil(end))) return;
  const AdoptedLock lock(sendTurn_);
  platform::FinishSending(handle_);
  while (connected() && !IsCancelled() && !platform::HasDelivered(handle_) && MsUntil(end) > 0) {
    if (!LetGoOfInput()) Pause(1);
  }
}

// Receives what no reader will, as it may stand before the peer's end. False when there was nothing.
bool SocketLink::LetGoOfInput() {
  const MutexLock lock(receiveMutex_);
  if (readers_ != 0) return false;
  std::array<uint8_t, 4096> unread;
  return platform::Receive(handle_, unread.data(), unread.size()) > 0;
}

// Leaves the thread's error number; what failed is logged.
void SocketLink::NoteFailedWrite(const FailedSend& send) {
  if (IsCancelled()) {
    setConnected(false);
    SetErrno(ZEL_E_DISCONNECTED);
    return;
  }
  ZEL_LOG_SOCKET("Socket::write", kError, "send error %d,%s result:%d break", send.runtimeError,
                 platform::ErrorText(send.runtimeError).c_str(), static_cast<int>(send.result));
  if (send.runtimeError == platform::kRuntimeBrokenPipe || IsConnectionEnded(send.socketError)) {
    SetErrno(ZEL_E_DISCONNECTED);
    NoteEnd(send.runtimeError);
  } else {
    SetErrno(send.runtimeError);
  }
}

}  // namespace libzel
