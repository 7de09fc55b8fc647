/// @file
/// What becomes of a request. Included by libzel.hpp.
#pragma once

#include <libzel/hpp/basics.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zel {

/// What became of a request. The value is the answer's payload, whole. The code is 0 when the device
/// answered without an error, else the device's own error word (IsAnswered tells), else the library's code:
/// what libzelx_requestEx gives, kErrorTooLong, or ZEL_E_PARAM for a negative time-out.
class [[nodiscard]] Answer : public LinkValueOf<std::vector<uint8_t>> {
 public:
  /// From what the library tells.
  Answer(const libzelx_Outcome& outcome, std::vector<uint8_t> payload, std::string reason)
      : LinkValueOf(Result(CodeOf(outcome)), std::move(payload), std::move(reason)),
        isAnswered_(outcome.result == ZEL_OK),
        mayBeSent_(outcome.maySent != 0),
        deviceError_(outcome.deviceError) {}

  /// True when an answer came, whatever its error word says.
  bool IsAnswered() const { return isAnswered_; }
  /// The device's own error word, 0 when it has none and without an answer.
  uint32_t DeviceError() const { return deviceError_; }
  /// False when nothing of the request has left, so that asking again is safe. Nothing is ever sent twice by
  /// itself.
  bool MayBeSent() const { return mayBeSent_; }

 private:
  static int32_t CodeOf(const libzelx_Outcome& outcome) {
    return outcome.result != ZEL_OK ? outcome.result : static_cast<int32_t>(outcome.deviceError);
  }

  bool isAnswered_;
  bool mayBeSent_;
  uint32_t deviceError_;
};

/// On the connection's receive thread, or on the thread that stops or releases the connection. Called once.
using AnswerCallback = std::function<void(Answer answer)>;

/// A request whose answer is not waited for: Connection::Cancel takes it.
class Ticket {
 public:
  Ticket() = default;
  /// The library's number of it, counted from 1 in a process.
  uint64_t Number() const { return number_; }

 private:
  friend class Connection;
  uint64_t number_ = 0;
  uintptr_t key_ = 0;
};

/// The future of an answer that is not waited for, with the ticket to cancel it by.
class PendingAnswer : public std::future<Answer> {
 public:
  PendingAnswer() = default;
  /// From its parts.
  PendingAnswer(std::future<Answer> answer, zel::Ticket ticket)
      : std::future<Answer>(std::move(answer)), ticket_(ticket) {}
  /// For Connection::Cancel: the future then has an answer with kErrorCancelled.
  const zel::Ticket& Ticket() const { return ticket_; }

 private:
  zel::Ticket ticket_;
};

namespace detail {

/// Room for the longest answer that there can be, so that none has to be asked for twice. A thread keeps one
/// from request to request. Only those pages that an answer fills are ever real memory; after a large answer
/// they are given back.
class AnswerRoom {
 public:
  static constexpr uint32_t kSize = 10485760;

  /// Not the kept one when a callback in a request of this thread asks, too.
  AnswerRoom() : bytes_(std::move(Kept())) {
    if (bytes_ == nullptr) bytes_.reset(new uint8_t[kSize]);
  }
  ~AnswerRoom() {
    if (used_ <= kMostKept) Kept() = std::move(bytes_);
  }
  AnswerRoom(const AnswerRoom&) = delete;
  AnswerRoom& operator=(const AnswerRoom&) = delete;

  uint8_t* data() { return bytes_.get(); }
  std::vector<uint8_t> Copy(size_t size) {
    used_ = size;
    return {bytes_.get(), bytes_.get() + size};
  }

 private:
  static constexpr size_t kMostKept = 262144;

  static std::unique_ptr<uint8_t[]>& Kept() {
    static thread_local std::unique_ptr<uint8_t[]> kept;
    return kept;
  }

  std::unique_ptr<uint8_t[]> bytes_;
  size_t used_ = 0;
};

inline std::string LastFailure(ZelInstance instance) {
  char text[512] = {};
  (void)libzelx_lastFailure(instance, text, sizeof text);
  return text;
}

inline bool IsUp(ZelInstance instance) {
  libzelx_Stats stats{};
  stats.size = sizeof stats;
  return libzelx_getStats(instance, &stats) == ZEL_OK && stats.connected != 0;
}

/// Why the link failed, if that is what the code of a request tells of. A request that ran out of time while
/// it was written has dropped its link.
inline std::string ReasonOf(ZelInstance instance, int32_t code) {
  const bool isLinks = code == ZEL_E_DISCONNECTED || (code == ZEL_E_TIMEOUT && !IsUp(instance));
  return isLinks ? LastFailure(instance) : std::string();
}

inline Answer Unsent(int32_t code) {
  libzelx_Outcome outcome{};
  outcome.result = code;
  return Answer(outcome, {}, {});
}

/// Of a request that was to be sent without waiting: whether bytes have left is not told by these two.
inline Answer NotAsked(ZelInstance instance, int32_t code) {
  libzelx_Outcome outcome{};
  outcome.result = code;
  outcome.maySent = code == ZEL_E_DISCONNECTED || code == ZEL_E_TIMEOUT ? 1 : 0;
  return Answer(outcome, {}, ReasonOf(instance, code));
}

/// Keeps the promise of an answer, also when nobody gives one any more.
class PromisedAnswer {
 public:
  PromisedAnswer() = default;
  ~PromisedAnswer() {
    if (isKept_) return;
    libzelx_Outcome outcome{};
    outcome.result = kErrorCancelled;
    outcome.maySent = 1;
    promise_.set_value(Answer(outcome, {}, {}));
  }
  PromisedAnswer(const PromisedAnswer&) = delete;
  PromisedAnswer& operator=(const PromisedAnswer&) = delete;

  std::future<Answer> Future() { return promise_.get_future(); }
  void Keep(Answer answer) {
    isKept_ = true;
    promise_.set_value(std::move(answer));
  }

 private:
  std::promise<Answer> promise_;
  bool isKept_ = false;
};

/// The callbacks of requests that nobody waits for, by the number that the library is given in place of a
/// pointer.
class AnswerCallbacks {
 public:
  struct Entry {
    ZelInstance instance;
    AnswerCallback callback;
  };

  static AnswerCallbacks& Instance() {
    static auto* const callbacks = new AnswerCallbacks;
    return *callbacks;
  }

  uintptr_t Add(Entry entry) {
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.emplace(++last_, std::move(entry));
    return last_;
  }
  /// It is let go of outside the lock, by the caller.
  std::optional<Entry> Take(uintptr_t key) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto found = entries_.find(key);
    if (found == entries_.end()) return {};
    std::optional<Entry> entry(std::move(found->second));
    entries_.erase(found);
    return entry;
  }

  static void Call(uint64_t /*ticket*/, const libzelx_Outcome* outcome, const void* answer, void* user) {
    (void)Contain([&] {
      const auto entry = Instance().Take(reinterpret_cast<uintptr_t>(user));
      if (!entry) return;
      const auto* const bytes = static_cast<const uint8_t*>(answer);
      std::vector<uint8_t> payload;
      if (bytes != nullptr) payload.assign(bytes, bytes + outcome->answerLength);
      entry->callback(Answer(*outcome, std::move(payload), ReasonOf(entry->instance, outcome->result)));
    });
  }

 private:
  std::mutex mutex_;
  std::map<uintptr_t, Entry> entries_;
  uintptr_t last_ = 0;
};

}  // namespace detail

}  // namespace zel
