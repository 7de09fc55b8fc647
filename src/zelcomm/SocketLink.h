// One open handle of a socket: its connected flag, its waits, the loops that read and write it, and what was read ahead.
//
// A link is shared by the threads that use it and closes its handle when the last of them lets go, so a handle is never
// closed under a call that uses it. A thread that still works on an old link of a reconnected socket cannot disturb the
// new one. All members may be called from any thread. Once its token is cancelled, a link waits for nothing, writes
// nothing, and logs no errors.
//
// Time-outs are in ms; negative ones are 0.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "platform/Platform.h"
#include "utils/Mutex.h"
#include "zelcomm/CancelToken.h"
#include "zelcomm/FrameDecoder.h"
#include "zelcomm/ReadAhead.h"
#include "zelcomm/SpinChoice.h"

namespace libzel {

class SocketLink {
 public:
  // The end of a write that has all the time.
  static constexpr auto kNoEnd = CondVar::Clock::time_point::max();

  // `token` may be null: then nothing cancels the link.
  explicit SocketLink(platform::SocketHandle handle, std::shared_ptr<const CancelToken> token = nullptr)
      : handle_(handle), token_(std::move(token)) {}
  ~SocketLink();
  SocketLink(const SocketLink&) = delete;
  SocketLink& operator=(const SocketLink&) = delete;

  platform::SocketHandle handle() const { return handle_; }
  bool connected() const { return connected_.load(std::memory_order_acquire); }
  void setConnected(bool connected);
  // For how long the link has been up, in ms; 0 while it is down.
  int64_t ConnectedMs() const;
  bool IsCancelled() const { return token_ != nullptr && token_->IsCancelled(); }

  // ---- Waiting

  // True when there is something to read (bytes, the peer's close or an error), false on time-out, a wake, or a failed
  // wait, which is logged. `waker` takes the token's place.
  bool Select(int64_t timeoutMs, const platform::Waker* waker = nullptr);
  // As Select, but looks again and again for a short while before it sleeps, when that has been quicker of late.
  bool SelectEagerly(int64_t timeoutMs);
  // As Select, of bytes that the system holds, and without a line.
  bool AwaitBytes(int64_t timeoutMs) const;
  // Does nothing for this time, or until the link is cancelled.
  void Pause(int64_t timeoutMs) const;
  // True when bytes can be written, or a connect has come to its end, whatever that is.
  bool AwaitWritable(int64_t timeoutMs) const;

  // ---- Reading

  // Reads exactly `size` bytes or until the time-out; gives the bytes read, 0 when the connection ended.
  uint32_t readn(uint8_t* buffer, uint32_t size, int64_t timeoutMs);
  // Reads `size` bytes without a time-out; gives `size`, 0 when the connection ended, else the bytes read before
  // another error (would-block among them) or -1 when there were none.
  int32_t readFull(uint8_t* buffer, int32_t size);

  // Held by a reader from a frame's header to its end, so that two readers never share out one frame.
  TimedMutex& frameMutex() ZEL_THREAD_ANNOTATION(lock_returned(frameMutex_)) { return frameMutex_; }

  // What has come of a frame that nobody waits for inside. What is received next belongs to it.
  struct Unfinished {
    FrameDecoder decoder;
    CondVar::Clock::time_point quietSince;  // when nothing more had come of it
    CondVar::Clock::time_point end;         // until when it may stay like that
  };
  bool HasUnfinished() const { return unfinishedEndMs_.load(std::memory_order_acquire) != INT64_MAX; }
  // 0 and less when it has to be read on, although nothing may have come.
  int64_t MsUntilOverdue() const;
  void LeaveUnfinished(Unfinished unfinished) ZEL_REQUIRES(frameMutex_);
  Unfinished TakeUnfinished() ZEL_REQUIRES(frameMutex_);

  // Takes the next frame if all of it has been read ahead, its length is good and the caller is the sole reader. Its
  // bytes stay where they are until the caller reads again: only a sole reader reads ahead.
  std::optional<FrameView> TakeWhole(uint32_t longestBody);
  // The next frame's header and as much of its body as has been read ahead, received first when nothing has been; for
  // whoever reads in the sole reader's place. It is left where it is until SkipWhole, if it is whole.
  std::optional<FrameView> PeekFrame();
  void SkipWhole(const FrameView& frame);
  // True also when a frame has been read in part.
  bool HasReadAhead();

  // Gives the read-ahead's memory back while it is empty.
  void TrimReadAhead();

  // Counts a thread among the link's readers for as long as it lives. Only a sole reader reads ahead: what it took
  // from the system would be hidden from another one that waits there.
  class Reader {
   public:
    explicit Reader(std::shared_ptr<SocketLink> link);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    SocketLink* operator->() const { return link_.get(); }
    SocketLink& operator*() const { return *link_; }

   private:
    std::shared_ptr<SocketLink> link_;
  };

  // ---- Writing

  // Writes all pieces as one frame that no other thread's frame mixes with. Gives the bytes written; 0 for more than
  // 10485760 bytes, which are refused; or -1 with the thread's error number 5 (connection ended, or cancelled) or the
  // runtime's own number. A peer that does not read is waited for.
  int32_t writeFrame(std::span<const platform::ConstBytes> pieces);
  static bool IsTooLong(std::span<const platform::ConstBytes> pieces);
  // The same without a limit.
  int32_t write(std::span<const platform::ConstBytes> pieces);

  // A write that ends in time.
  struct Written {
    enum class End {
      kWhole,
      kNoTurn,   // another thread's frame took all the time; nothing left
      kStalled,  // the time was over, or nothing moved for too long; a part may have left
      kFailed,   // as writeFrame's -1
    };
    End end = End::kWhole;
    size_t bytes = 0;  // that left
  };
  // With a `stallMs` other than 0 it also ends when not a byte moved for so long.
  Written writeBefore(std::span<const platform::ConstBytes> pieces, CondVar::Clock::time_point end,
                      int64_t stallMs = 0);

  // Says that what left of the last write ended with a frame.
  void ForgetCut();

  // Nothing more is to be written: makes it known at once, unless a frame is being written.
  void FinishSending();
  // Waits until the peer has got what was written, and the end of a frame that is being written.
  void AwaitDelivery(CondVar::Clock::time_point end);

  // Why the stream ended: the runtime's number, 0 when the peer closed it.
  int32_t endError() const { return endError_; }
  // True for the first one who asks: a loss is counted once.
  bool TakeLoss() { return !lossTaken_.exchange(true); }

  // True for the first one who asks: of the threads that see the link's end, one tells the application. A link that
  // was replaced has nothing left to tell.
  bool TakeEndReport() { return !endReported_.exchange(true); }

 private:
  enum class Look { kIfBusy, kAlways };

  const platform::Waker* waker() const { return token_ != nullptr ? &token_->waker() : nullptr; }
  bool HasInput(Look look);
  bool SelectHandle(int64_t timeoutMs, const platform::Waker* waker);
  int64_t FillReadAhead() ZEL_REQUIRES(receiveMutex_);
  int64_t Receive(uint8_t* buffer, size_t size);
  bool MayReadOn(int64_t received, int64_t remainingMs);
  struct FailedSend {
    int64_t result = 0;
    int32_t runtimeError = 0;
    int32_t socketError = 0;
  };
  // What ends a write that the peer has no room for.
  struct Patience {
    CondVar::Clock::time_point end;
    int64_t stallMs;
    CondVar::Clock::time_point stalledSince = kNoEnd;

    bool IsOver();
  };
  Written WriteAll(std::span<platform::ConstBytes> pieces, Patience patience, FailedSend& failed)
      ZEL_REQUIRES(sendTurn_);
  bool MayWriteOn(const FailedSend& send);
  void NoteFailedWrite(const FailedSend& send);
  void NoteEnd(int32_t runtimeError);
  bool LetGoOfInput();

  const platform::SocketHandle handle_;
  const std::shared_ptr<const CancelToken> token_;
  std::atomic<bool> connected_{false};
  std::atomic<int64_t> upSinceMs_{0};  // by the steady clock
  std::atomic<bool> endReported_{false};
  std::atomic<bool> lossTaken_{false};
  std::atomic<int32_t> endError_{0};
  SpinChoice spinChoice_;

  TimedMutex frameMutex_;
  Unfinished unfinished_ ZEL_GUARDED_BY(frameMutex_){};
  std::atomic<int64_t> unfinishedEndMs_{INT64_MAX};  // by the steady clock; the most when there is none
  TimedMutex sendTurn_;
  // A write that ends in time has left a part of a frame: whatever came behind it would be taken for the rest.
  bool isCut_ ZEL_GUARDED_BY(sendTurn_) = false;
  Mutex receiveMutex_;
  int readers_ ZEL_GUARDED_BY(receiveMutex_) = 0;
  ReadAhead ahead_ ZEL_GUARDED_BY(receiveMutex_);
  int32_t heldError_ ZEL_GUARDED_BY(receiveMutex_) = 0;  // the system's, that a look ahead was given
};

}  // namespace libzel
