// The requests of one connection that wait for their answers, found by their invoke identifiers. Each ends once: with its
// answer, when its time is over, when it is cancelled, or when its link is lost.
//
// Any thread enters, cancels and ends requests. Callbacks run on the receive thread alone. No lock is held in a callback
// or while a long answer is copied, and callers are woken without one.
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

  // Topics are published on a port of their own, under identifiers of the server's choice: they are no answers, unless
  // it was there that was asked.
  bool MayGetAnswerFrom(uint16_t answerPort) const { return answerPort != kTopicPort || port == kTopicPort; }

  uint16_t port = 0;
  CondVar::Clock::time_point end;          // of its time
  std::shared_ptr<const SocketLink> link;  // that it leaves on
  std::span<uint8_t> room;                 // for the answer of a caller that waits
  libzelx_AnswerCallback callback = nullptr;
  void* user = nullptr;

  uint64_t ticket = 0;     // of one with a callback
  bool isWritten = false;  // the same

  // The table's.
  uint32_t invokeId = 0;
  State state = State::kWaiting;
  CondVar* ended = nullptr;  // of one that its caller waits for
  int32_t result = 0;
  uint32_t deviceError = 0;
  uint32_t answerLength = 0;
  std::vector<uint8_t> kept;  // an answer that another thread than the receive thread has read
  PendingRequest* nextDue = nullptr;
};

class RequestTable {
 public:
  using Clock = CondVar::Clock;

  enum class Entry {
    kDone,
    kTaken,   // another request waits under this identifier
    kClosed,  // the table is
  };
  // Enters a request that its caller waits for, and who calls Leave in the end.
  Entry Enter(PendingRequest& request, uint32_t invokeId);
  // A ticket of its own for a request with a callback.
  static uint64_t NextTicket();
  // Enters one with a callback, whose time runs from NoteSent on: as long as it is being written, its end is the
  // writer's to tell. The request is the table's once that is done.
  Entry Enter(std::unique_ptr<PendingRequest>& request, uint32_t invokeId);
  // True when the receive thread has to be woken: it would look too late.
  bool NoteSent(uint64_t ticket);
  // Takes out a request that was not sent whole. False when it has ended; the callback of one that has not run yet never
  // will.
  bool Withdraw(PendingRequest& request);
  bool WithdrawTicket(uint64_t ticket);
  // Waits until the request of a caller ends or its time is over (4104). From here on it is out of the table.
  void Await(PendingRequest& request);
  bool HasEnded(const PendingRequest& request);
  // Takes the request of a caller out, if it has not ended, and whatever its caller has come to.
  void Leave(PendingRequest& request);

  // True for a ticket that some table has given.
  static bool WasGiven(uint64_t ticket) { return ticket != 0 && ticket <= lastTicket_.load(); }
  // 0: the callback has not run and never will. 1: it ran, or it runs on another thread and was waited for.
  int32_t Cancel(uint64_t ticket);
  // True until the callback of a ticket of this table's has ended.
  bool Holds(uint64_t ticket);
  // Ends every request whose link is not connected any more, with 5.
  void FailLost();
  // Ends all with this result; nothing can be entered until the table is opened again.
  void Close(int32_t result);
  void Open();

  bool Waits(uint32_t invokeId);
  // True when a frame may be an answer of the table's.
  bool MayTake() const { return mayTake_.load(std::memory_order_acquire); }
  uint32_t InFlight();

  enum class Reader { kReceiveThread, kCaller, kSynchronousReceive };
  enum class Taken {
    kNo,
    kAnswer,
    kLastAnswer,  // of a caller that waited, and no other request waits
    kLate,        // to a request that has ended without it
  };
  // Gives the frame to the request whose answer it is, whose callback then runs on the receive thread. For a callback a
  // caller that reads takes nothing, and what a synchronous receive has read is kept: the receive thread has to be woken.
  // A body that is not held whole is nobody's answer.
  Taken Take(const FrameView& frame, Reader reader);
  // The receive thread's: wakes the callers whose answers it has taken. Many in a row are woken together; before anything
  // that takes time this has to be called.
  void WakeAnswered();
  // Forgets the requests that have ended: what comes from now on is no late answer to one of them.
  void ForgetGone();

  // The receive thread's: runs the callbacks of requests that ended without their answers, or whose answers were kept.
  void RunDue();
  // Milliseconds until RunDue has something to do; INT64_MAX when nothing waits.
  int64_t MsUntilDue() const;

 private:
  // Requests that ended without an answer, which may still come, by their identifiers' last bits.
  static constexpr size_t kRemembered = 1024;
  // An answer up to here is copied under the lock: that is quicker than to take the lock once more.
  static constexpr size_t kShortAnswer = 2048;
  struct Gone {
    uint32_t invokeId = 0;  // 0 is nobody's
    uint16_t port = 0;
  };
  // When RunDue has something to do, in the clock's ticks.
  static constexpr int64_t kDueNow = INT64_MIN;
  static constexpr int64_t kNothingDue = INT64_MAX;

  Entry Insert(PendingRequest& request, uint32_t invokeId) ZEL_REQUIRES(mutex_);
  void AddWaiter() ZEL_REQUIRES(mutex_);
  void ReturnWaiter(PendingRequest& request) ZEL_REQUIRES(mutex_);
  void TakeOut(const PendingRequest& request) ZEL_REQUIRES(mutex_);
  void NoteChange() ZEL_REQUIRES(mutex_);
  void End(PendingRequest& request, int32_t result) ZEL_REQUIRES(mutex_);
  void MakeDue(PendingRequest& request) ZEL_REQUIRES(mutex_);
  void TakeOutOfDue(const PendingRequest& request) ZEL_REQUIRES(mutex_);
  bool Discard(uint64_t ticket) ZEL_REQUIRES(mutex_);
  void EndOverdue() ZEL_REQUIRES(mutex_);
  bool TakeGone(uint32_t invokeId, uint16_t port) ZEL_REQUIRES(mutex_);
  void Remember(const PendingRequest& request) ZEL_REQUIRES(mutex_);

  // A request whose answer has come: its caller has it and is to be woken, or waits for a long one; or its callback is
  // to be run.
  struct Claimed {
    CondVar* answered = nullptr;
    PendingRequest* waiting = nullptr;
    std::unique_ptr<PendingRequest> called;
  };
  Taken Claim(const FrameView& frame, const ZoeHeader& zoe, Reader reader, Claimed& claimed);
  static void Copy(std::span<const uint8_t> payload, const PendingRequest& request);
  CondVar* GiveToCaller(PendingRequest& request, std::span<const uint8_t> payload);
  void WakeCaller(CondVar* answered, Reader reader);
  std::unique_ptr<PendingRequest> BeginCallback(uint64_t ticket) ZEL_REQUIRES(mutex_);
  std::unique_ptr<PendingRequest> BeginDueCallback();
  void RunCallback(const PendingRequest& request, const uint8_t* answer);

  inline static std::atomic<uint64_t> lastTicket_{0};  // of the process

  Mutex mutex_;
  CondVar callbackEnded_;
  bool isClosed_ ZEL_GUARDED_BY(mutex_) = false;
  std::unordered_map<uint32_t, PendingRequest*> waiting_ ZEL_GUARDED_BY(mutex_);
  std::map<uint64_t, std::unique_ptr<PendingRequest>> owned_ ZEL_GUARDED_BY(mutex_);  // by ticket
  // Those that ended and whose callbacks are to be run, in this order. A list of their own links: ending a request never
  // fails for want of memory.
  PendingRequest* firstDue_ ZEL_GUARDED_BY(mutex_) = nullptr;
  PendingRequest* lastDue_ ZEL_GUARDED_BY(mutex_) = nullptr;
  uint64_t runningTicket_ ZEL_GUARDED_BY(mutex_) = 0;
  std::thread::id runner_ ZEL_GUARDED_BY(mutex_);
  std::vector<Gone> gone_ ZEL_GUARDED_BY(mutex_);  // empty until the first request
  size_t goneCount_ ZEL_GUARDED_BY(mutex_) = 0;
  // What callers wait on: theirs from Enter to Leave, and never destroyed before the table is, so that whoever wakes one
  // needs no lock.
  std::vector<std::unique_ptr<CondVar>> waiters_ ZEL_GUARDED_BY(mutex_);
  std::vector<CondVar*> spareWaiters_ ZEL_GUARDED_BY(mutex_);
  // The receive thread's: whom WakeAnswered wakes.
  std::array<CondVar*, 64> answered_{};
  size_t answeredCount_ = 0;

  std::atomic<int64_t> nextDue_{kNothingDue};
  std::atomic<bool> mayTake_{false};  // a request waits, or one has gone whose answer may come
};

}  // namespace libzel
