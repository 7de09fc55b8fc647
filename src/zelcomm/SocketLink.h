// One open handle of a socket: its connected flag, its read-ahead, and the loops that read and write it.
//
// A link is shared by the threads that use it and closes its handle when the last of them lets go, so a handle is never
// closed under a call that uses it. A thread that still works on an old link of a reconnected socket cannot disturb the
// new one. All members may be called from any thread.
//
// Time-outs are in ms; negative ones are 0.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>

#include "platform/Platform.h"
#include "utils/Mutex.h"
#include "zelcomm/SpinChoice.h"

namespace libzel {

class SocketLink {
 public:
  explicit SocketLink(platform::SocketHandle handle) : handle_(handle) {}
  ~SocketLink();
  SocketLink(const SocketLink&) = delete;
  SocketLink& operator=(const SocketLink&) = delete;

  platform::SocketHandle handle() const { return handle_; }
  bool connected() const { return connected_.load(std::memory_order_acquire); }
  void setConnected(bool connected) { connected_.store(connected, std::memory_order_release); }

  // True when there is something to read (bytes, the peer's close or an error), false on time-out, a wake, or a failed
  // wait, which is logged.
  bool Select(int64_t timeoutMs, const platform::Waker* waker = nullptr);
  // As Select, but looks again and again for a short while before it sleeps, when that has been quicker of late.
  bool SelectEagerly(int64_t timeoutMs);

  // Reads exactly `size` bytes or until the time-out; gives the bytes read, 0 when the connection ended.
  uint32_t readn(uint8_t* buffer, uint32_t size, int64_t timeoutMs);
  // Reads `size` bytes without a time-out; gives `size`, 0 when the connection ended, else the bytes read before
  // another error (would-block among them) or -1 when there were none.
  int32_t readFull(uint8_t* buffer, int32_t size);
  // Writes all pieces as one frame that no other thread's frame mixes with. Gives the bytes written, or -1 with the
  // thread's error number 5 (connection ended) or the runtime's own number. A peer that does not read is waited for.
  int32_t write(std::span<const platform::ConstBytes> pieces);

  // Held by a reader from a frame's header to its end, so that two readers never share out one frame.
  TimedMutex& frameMutex() { return frameMutex_; }

  // True for the first one who asks: of the threads that see the link's end, one tells the application. A link that
  // was replaced has nothing left to tell.
  bool TakeEndReport() { return !endReported_.exchange(true); }

  // Takes the next frame if all of it has been read ahead and the caller is the sole reader; else nothing. `frameSize`
  // tells the size of the frame that begins with the given bytes, 0 when it cannot tell or the frame is not to be taken.
  // The bytes stay where they are until the caller reads again: only a sole reader reads ahead.
  std::span<const uint8_t> TakeBuffered(size_t (*frameSize)(std::span<const uint8_t> bytes));

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

 private:
  static constexpr size_t kReadAheadSize = size_t{16} * 1024;

  enum class Look { kIfBusy, kAlways };

  bool HasInput(Look look);
  int64_t FillReadAhead() ZEL_REQUIRES(receiveMutex_);
  int64_t Receive(uint8_t* buffer, size_t size);
  bool MayReadOn(int64_t received, int64_t remainingMs);
  bool MayWriteOn(int64_t result);

  const platform::SocketHandle handle_;
  std::atomic<bool> connected_{false};
  std::atomic<bool> endReported_{false};
  SpinChoice spinChoice_;

  TimedMutex frameMutex_;
  Mutex sendMutex_;
  Mutex receiveMutex_;
  int readers_ ZEL_GUARDED_BY(receiveMutex_) = 0;
  std::unique_ptr<uint8_t[]> ahead_ ZEL_GUARDED_BY(receiveMutex_);
  size_t aheadBegin_ ZEL_GUARDED_BY(receiveMutex_) = 0;
  size_t aheadEnd_ ZEL_GUARDED_BY(receiveMutex_) = 0;
};

// The readability wait of every socket: true when ready; a time-out, a wake or a failure gives false, the failure with
// its log line. `connected` is cleared when the handle is not a socket.
bool SelectSocket(platform::SocketHandle handle, int64_t timeoutMs, const platform::Waker* waker,
                  std::atomic<bool>& connected);

}  // namespace libzel
