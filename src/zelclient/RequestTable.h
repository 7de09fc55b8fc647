// The requests of one connection that wait for their answers, found by their invoke identifiers. Each ends once: with its
// answer, when its time is over, when it is cancelled, or when its link is lost.
//
// Any thread enters, cancels and ends requests. Callbacks run on the receive thread alone. No lock is held in a callback
// or while an answer is copied.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <thread>
#include <unordered_map>
#include <vector>

#include "libzel/libzelx.h"
#include "utils/Mutex.h"
#include "zelcomm/FrameDecoder.h"
#include "zelcomm/SocketLink.h"

namespace libzel {

// A request that waits: on the stack of a caller that waits for it, or, with a callback, in the table.
struct PendingRequest {
  enum class State { kWaiting, kClaimed, kEnded };

  uint16_t port = 0;
  CondVar::Clock::time_point end;          // of its time
  std::shared_ptr<const SocketLink> link;  // that it leaves on
  std::span<uint8_t> room;                 // for the answer of a caller that waits
  libzelx_AnswerCallback callback = nullptr;
  void* user = nullptr;

  uint64_t ticket = 0;  // of one with a callback

  // The table's.
  uint32_t invokeId = 0;
  State state = State::kWaiting;
  CondVar ended;
  int32_t result = 0;
  uint32_t deviceError = 0;
  uint32_t answerLength = 0;
  std::vector<uint8_t> kept;  // an answer that another thread than the receive thread has read
};

class RequestTable {
 public:
  using Clock = CondVar::Clock;

  // Enters a request that its caller waits for. False when the table is closed.
  bool Enter(PendingRequest& request, uint32_t invokeId);
  // A ticket of its own for a request with a callback.
  static uint64_t NextTicket();
  // Enters one with a callback and gives its ticket; 0 when the table is closed. `isNextDue` tells that the receive
  // thread has to be woken: it would look too late.
  uint64_t Enter(std::unique_ptr<PendingRequest> request, uint32_t invokeId, bool& isNextDue);
  // Takes out a request that was not sent. False when it has ended; the callback of one that has not run yet never will.
  bool Withdraw(uint32_t invokeId);
  bool WithdrawTicket(uint64_t ticket);
  // Waits until the request of a caller ends or its time is over (4104). From here on it is out of the table.
  void Await(PendingRequest& request);

  // True for a ticket that some table has given.
  static bool WasGiven(uint64_t ticket) { return ticket != 0 && ticket <= lastTicket_.load(); }
  // 0: the callback has not run and never will. 1: it ran, or it runs on another thread and was waited for.
  int32_t Cancel(uint64_t ticket);
  // Ends every request whose link is not connected any more, with 5.
  void FailLost();
  // Ends all with this result; nothing can be entered until the table is opened again.
  void Close(int32_t result);
  void Open();

  bool Waits(uint32_t invokeId);
  // True when a frame may be an answer of the table's.
  bool MayTake() const { return mayTake_.load(std::memory_order_acquire); }
  uint32_t InFlight();

  enum class Taken { kNo, kAnswer, kLate };
  // Gives the frame to the request whose answer it is. On the receive thread that runs the callback; what another thread
  // has read is kept for it, and kAnswer means that it has to be woken.
  Taken Take(const FrameView& frame, bool isReceiveThread);

  // The receive thread's: runs the callbacks of requests that ended without their answers, or whose answers were kept.
  void RunDue();
  // Milliseconds until RunDue has something to do; INT64_MAX when nothing waits.
  int64_t MsUntilDue() const;

 private:
  // Requests that ended without an answer, which may still come.
  static constexpr size_t kRemembered = 256;
  struct Gone {
    uint32_t invokeId = 0;
    uint16_t port = 0;
  };
  // When RunDue has something to do, in the clock's ticks.
  static constexpr int64_t kDueNow = INT64_MIN;
  static constexpr int64_t kNothingDue = INT64_MAX;

  void Insert(PendingRequest& request, uint32_t invokeId) ZEL_REQUIRES(mutex_);
  void TakeOut(const PendingRequest& request) ZEL_REQUIRES(mutex_);
  void End(PendingRequest& request, int32_t result) ZEL_REQUIRES(mutex_);
  void MakeDue(PendingRequest& request) ZEL_REQUIRES(mutex_);
  void EndOverdue() ZEL_REQUIRES(mutex_);
  bool IsGone(uint32_t invokeId, uint16_t port) const ZEL_REQUIRES(mutex_);
  void Remember(const PendingRequest& request) ZEL_REQUIRES(mutex_);

  // A request whose answer has come: its caller waits, or its callback is to be run.
  struct Claimed {
    PendingRequest* waiting = nullptr;
    std::unique_ptr<PendingRequest> called;
  };
  Taken Claim(const FrameView& frame, const ZoeHeader& zoe, bool isReceiveThread, Claimed& claimed);
  void GiveToCaller(PendingRequest& request, std::span<const uint8_t> payload);
  std::unique_ptr<PendingRequest> BeginCallback(uint64_t ticket) ZEL_REQUIRES(mutex_);
  void RunCallback(const PendingRequest& request, const uint8_t* answer);
  void RunCallbackOf(uint64_t ticket);

  inline static std::atomic<uint64_t> lastTicket_{0};  // of the process

  Mutex mutex_;
  CondVar callbackEnded_;
  bool isClosed_ ZEL_GUARDED_BY(mutex_) = false;
  std::unordered_map<uint32_t, PendingRequest*> waiting_ ZEL_GUARDED_BY(mutex_);
  std::map<uint64_t, std::unique_ptr<PendingRequest>> owned_ ZEL_GUARDED_BY(mutex_);  // by ticket
  std::vector<uint64_t> due_ ZEL_GUARDED_BY(mutex_);  // tickets that ended, their callbacks to be run
  uint64_t runningTicket_ ZEL_GUARDED_BY(mutex_) = 0;
  std::thread::id runner_ ZEL_GUARDED_BY(mutex_);
  std::array<Gone, kRemembered> gone_ ZEL_GUARDED_BY(mutex_){};
  size_t goneCount_ ZEL_GUARDED_BY(mutex_) = 0;
  std::atomic<int64_t> nextDue_{kNothingDue};
  std::atomic<bool> mayTake_{false};  // a request waits, or one has gone whose answer may come
};

}  // namespace libzel
