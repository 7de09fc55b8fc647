// A call into the library on a thread of its own: how it ended, and when. Time-outs are in ms.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>
#include <utility>

#include "libzel/libzel.h"
#include "support/Recorders.h"

namespace zeltest {

class OngoingCall {
 public:
  struct End {
    int64_t result;
    int32_t error;
    std::chrono::steady_clock::time_point when;

    int64_t MsSince(std::chrono::steady_clock::time_point start) const {
      return std::chrono::duration_cast<std::chrono::milliseconds>(when - start).count();
    }
  };

  explicit OngoingCall(std::function<int64_t()> call)
      : thread_([this, call = std::move(call)] {
          const int64_t result = call();
          const int32_t error = libzel_get_errno();
          ends_.Add({result, error, std::chrono::steady_clock::now()});
        }) {}
  ~OngoingCall() { thread_.join(); }
  OngoingCall(const OngoingCall&) = delete;
  OngoingCall& operator=(const OngoingCall&) = delete;

  bool Await(int timeoutMs = kRecorderPatienceMs) const { return ends_.Await(1, timeoutMs); }
  // Of a call that has ended.
  End end() const { return ends_.All().at(0); }
  std::thread::id thread() const { return thread_.get_id(); }

 private:
  Recorder<End> ends_;
  std::thread thread_;
};

// What is to end at once ends within this time.
inline constexpr int64_t kPromptMs = 100;

// The quickest of up to three rounds, in ms: a busy machine makes one round late, a wait that nobody ends
// makes all of them late.
template <typename Round>
int64_t QuickestMs(Round round) {
  int64_t quickest = round();
  for (int i = 1; i < 3 && quickest >= kPromptMs; ++i) quickest = std::min<int64_t>(quickest, round());
  return quickest;
}

}  // namespace zeltest
