// Who reads the stream of a connection: its receive thread, or for a short while a caller that waits for an answer. That
// saves the switch from thread to thread which an answer costs otherwise, and is worth it while nothing but answers
// comes, one at a time. The receive thread then lends its turn and looks now and then whether it is still wanted.
//
// The receive thread's members are its own; Borrow and Return are for any other thread.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace libzel {

class ReadTurn {
 public:
  // Answers in a row, with nothing else between, after which the turn is lent.
  static constexpr int kAnswersBeforeLending = 8;
  // How often the receive thread looks whether the turn that it lent is still used, in ms: the more seldom the longer it
  // has been, since each look disturbs those who read. What comes while nobody reads waits for that long at most.
  static constexpr int64_t kFirstLentMs = 2;
  static constexpr int64_t kMostLentMs = 16;
  // How long a caller may keep it: what comes later is worth the switch.
  static constexpr int64_t kBorrowedMs = 20;

  // ---- The receive thread's

  bool IsOwn() const { return state_.load(std::memory_order_acquire) == State::kOwn; }
  void NoteAnswer() { ++answersInARow_; }
  void NoteOther() { answersInARow_ = 0; }
  // True when the turn is lent from here on.
  bool Lend() {
    if (answersInARow_ < kAnswersBeforeLending) return false;
    wasUsed_.store(false, std::memory_order_relaxed);
    lentMs_ = kFirstLentMs;
    state_.store(State::kLent, std::memory_order_release);
    return true;
  }
  // How long to wait before the next look at a turn that is lent.
  int64_t LentMs() const { return lentMs_; }
  // Takes the turn back when a caller has found something that is not its own, or when none has used it since the last
  // look; not while a caller has it.
  void Reclaim() {
    const bool isWanted = isWanted_.exchange(false, std::memory_order_acquire);
    if (wasUsed_.exchange(false, std::memory_order_relaxed) && !isWanted) {
      lentMs_ = std::min(2 * lentMs_, kMostLentMs);
      return;
    }
    State lent = State::kLent;
    const bool isOwn = state_.compare_exchange_strong(lent, State::kOwn, std::memory_order_acquire);
    if (isOwn) answersInARow_ = 0;
    if (!isOwn && isWanted) isWanted_.store(true, std::memory_order_relaxed);
  }

  // ---- A caller's

  // True when the caller reads from here on, until it returns the turn.
  bool Borrow() {
    State lent = State::kLent;
    if (!state_.compare_exchange_strong(lent, State::kBorrowed)) return false;
    wasUsed_.store(true, std::memory_order_relaxed);
    return true;
  }
  void Return() { state_.store(State::kLent); }
  // Says that the receive thread has to read again; it has to be woken, too.
  void Want() { isWanted_.store(true, std::memory_order_release); }

 private:
  enum class State { kOwn, kLent, kBorrowed };

  std::atomic<State> state_{State::kOwn};
  std::atomic<bool> wasUsed_{false};
  std::atomic<bool> isWanted_{false};
  int answersInARow_ = 0;
  int64_t lentMs_ = kFirstLentMs;
};

}  // namespace libzel
