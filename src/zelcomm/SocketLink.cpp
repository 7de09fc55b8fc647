#include "zelcomm/SocketLink.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <thread>

#include "utils/Log.h"
#include "utils/Stopwatch.h"
#include "zelcomm/ErrorCode.h"

namespace libzel {

namespace {

bool IsConnectionEnded(int32_t socketError) {
  return socketError == platform::kSocketAborted || socketError == platform::kSocketReset ||
         socketError == platform::kSocketShutDown;
}

void Advance(std::span<platform::ConstBytes>& pieces, size_t count) {
  while (count >= pieces.front().size()) {
    count -= pieces.front().size();
    pieces = pieces.subspan(1);
  }
  pieces.front() = pieces.front().subspan(count);
}

// Interrupted, in either numbering. (The socket layer's own would-block is not among these.)
bool IsTryAgain(int32_t socketError) {
  return socketError == 11 || socketError == 140 || socketError == platform::kSocketInterrupted;
}

}  // namespace

SocketLink::~SocketLink() {
  if (handle_ != platform::kNoSocket) platform::CloseSocket(handle_);
}

bool SocketLink::Select(int64_t timeoutMs, const platform::Waker* waker) {
  return HasInput(Look::kIfBusy) || SelectSocket(handle_, timeoutMs, waker, connected_);
}

bool SocketLink::SelectEagerly(int64_t timeoutMs) {
  return spinChoice_.Wait(
      timeoutMs, [this] { return HasInput(Look::kAlways); },
      [&] { return SelectSocket(handle_, timeoutMs, nullptr, connected_); });
}

// Looks without waiting. For a sole reader the look is the receive itself, and so costs nothing when it succeeds. A
// link without a read-ahead has been quiet: there a wait comes first.
bool SocketLink::HasInput(Look look) {
  const MutexLock lock(receiveMutex_);
  if (aheadBegin_ != aheadEnd_) return true;
  if (readers_ != 1 || (look == Look::kIfBusy && ahead_ == nullptr)) return false;
  const int64_t received = FillReadAhead();
  return received >= 0 || IsConnectionEnded(platform::SocketError());
}

int64_t SocketLink::FillReadAhead() {
  if (ahead_ == nullptr) ahead_ = std::make_unique_for_overwrite<uint8_t[]>(kReadAheadSize);
  const int64_t received = platform::Receive(handle_, ahead_.get(), kReadAheadSize);
  aheadBegin_ = 0;
  aheadEnd_ = static_cast<size_t>(std::max<int64_t>(received, 0));
  return received;
}

int64_t SocketLink::Receive(uint8_t* buffer, size_t size) {
  const MutexLock lock(receiveMutex_);
  if (aheadBegin_ == aheadEnd_) {
    // A large body goes straight to its place.
    if (readers_ != 1 || size >= kReadAheadSize) return platform::Receive(handle_, buffer, size);
    const int64_t received = FillReadAhead();
    if (received <= 0) return received;
  }
  const size_t count = std::min(size, aheadEnd_ - aheadBegin_);
  std::memcpy(buffer, ahead_.get() + aheadBegin_, count);
  aheadBegin_ += count;
  return static_cast<int64_t>(count);
}

std::span<const uint8_t> SocketLink::TakeBuffered(size_t (*frameSize)(std::span<const uint8_t> bytes)) {
  const MutexLock lock(receiveMutex_);
  if (readers_ != 1) return {};
  const std::span<const uint8_t> buffered(ahead_.get() + aheadBegin_, aheadEnd_ - aheadBegin_);
  const size_t size = frameSize(buffered);
  if (size > buffered.size()) return {};
  aheadBegin_ += size;
  return buffered.first(size);
}

void SocketLink::TrimReadAhead() {
  const MutexLock lock(receiveMutex_);
  if (aheadBegin_ == aheadEnd_) ahead_.reset();
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
  if (received == 0) {
    setConnected(false);
    ZEL_LOG_AS("Socket::readn", kError, "recv %d disconnect", 0);
    return false;
  }
  const int32_t error = platform::SocketError();
  if (IsConnectionEnded(error)) {
    setConnected(false);
    ZEL_LOG_AS("Socket::readn", kError, "recv %d disconnect,lasterror:%d", static_cast<int>(received), error);
    return false;
  }
  if (error == platform::kSocketWouldBlock) {
    (void)platform::WaitReadable(handle_, remainingMs);
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
      setConnected(false);
      return 0;
    }
    if (received > 0) {
      got += static_cast<int32_t>(received);
      continue;
    }
    const int32_t error = platform::SocketError();
    if (IsTryAgain(error)) continue;
    if (IsConnectionEnded(error)) {
      setConnected(false);
      return 0;
    }
    return got > 0 ? got : -1;
  }
  return size;
}

int32_t SocketLink::write(std::span<const platform::ConstBytes> pieces) {
  size_t left = 0;
  for (const auto& piece : pieces) left += piece.size();
  const auto total = static_cast<int32_t>(left);
  std::array<platform::ConstBytes, platform::kMaxPieces> copy{};
  std::copy(pieces.begin(), pieces.end(), copy.begin());
  auto rest = std::span(copy).first(pieces.size());

  const MutexLock lock(sendMutex_);
  for (;;) {
    const int64_t result = platform::Send(handle_, rest);
    if (result < 0) {
      if (MayWriteOn(result)) continue;
      return -1;
    }
    left -= static_cast<size_t>(result);
    if (left == 0) return total;
    Advance(rest, static_cast<size_t>(result));
  }
}

// What a failed send means to write: true when it may be tried again, after a pause that fits.
bool SocketLink::MayWriteOn(int64_t result) {
  const int32_t runtimeError = platform::RuntimeError();
  const int32_t socketError = platform::SocketError();
  if (runtimeError == platform::kRuntimeInterrupted) {
    ZEL_LOG_AS("Socket::write", kTrace, "send error EINTR:result:%d,continue", static_cast<int>(result));
    return true;
  }
  if (runtimeError == platform::kRuntimeTryAgain) {
    // As long as the sleep of 1 ms, and shorter when the peer reads sooner.
    (void)platform::WaitWritable(handle_, 1);
    ZEL_LOG_AS("Socket::write", kTrace, "send error again: usleep 1ms");
    return true;
  }
  ZEL_LOG_AS("Socket::write", kError, "send error %d,%s result:%d break", runtimeError,
             platform::ErrorText(runtimeError).c_str(), static_cast<int>(result));
  if (runtimeError == platform::kRuntimeBrokenPipe || IsConnectionEnded(socketError)) {
    SetErrno(ZEL_E_DISCONNECTED);
    setConnected(false);
  } else {
    SetErrno(runtimeError);
  }
  return false;
}

SocketLink::Reader::Reader(std::shared_ptr<SocketLink> link) : link_(std::move(link)) {
  const MutexLock lock(link_->receiveMutex_);
  ++link_->readers_;
}

SocketLink::Reader::~Reader() {
  const MutexLock lock(link_->receiveMutex_);
  --link_->readers_;
}

bool SelectSocket(platform::SocketHandle handle, int64_t timeoutMs, const platform::Waker* waker,
                  std::atomic<bool>& connected) {
  const int result = platform::WaitReadable(handle, timeoutMs, waker);
  if (result == 1) return true;
  if (result == 0) return false;
  const int32_t error = platform::SocketError();
  const std::string text = platform::ErrorText(error);
  if (error == platform::kSocketNotASocket) {
    connected = false;
    ZEL_LOG_AS("Socket::Select", kError, "connection closed,socket:%d", static_cast<int>(handle));
  } else {
    ZEL_LOG_AS("Socket::Select", kError,
               "something strange happen while waiting for socket in state:%d with error:%s ", result,
               text.c_str());
  }
  return false;
}

}  // namespace libzel
