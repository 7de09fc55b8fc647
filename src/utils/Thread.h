// A thread of the library. Every one is started here, so that each leaves the host's signals to the host's own threads,
// carries a name, and knows what an exception means that leaves its body.
//
// Any thread may call any member. A thread that is held must be joined before its object is destroyed, or the process
// ends.
#pragma once

#include <cstdint>
#include <functional>
#include <thread>

#include "utils/Mutex.h"

namespace libzel {

class Thread {
 public:
  struct Work {
    const char* name;  // at most 15 characters
    std::function<void()> body;
    // Told that the body ran out of memory; the body then begins anew. Without it that ends the process, as every other
    // exception does that leaves the body.
    std::function<void()> onNoMemory;
  };

  // Starts the thread and gives true, or false when one is held already: once, however many ask. A thread that the
  // system cannot make throws std::system_error.
  bool Start(Work work);
  // True from the start until the end of the join.
  bool IsHeld();
  // True on the thread itself.
  bool IsCurrent();
  // Waits for the thread to end and lets go of it. Several may wait. A thread that joins itself throws
  // std::system_error.
  void Join();

 private:
  bool BeginJoin() ZEL_EXCLUDES(mutex_);
  void EndJoin() ZEL_EXCLUDES(mutex_);

  Mutex mutex_;
  CondVar joined_;
  std::thread thread_;  // touched by the one that starts and the one that joins
  std::thread::id id_ ZEL_GUARDED_BY(mutex_);
  bool isHeld_ ZEL_GUARDED_BY(mutex_) = false;
  bool isJoining_ ZEL_GUARDED_BY(mutex_) = false;
  uint64_t joins_ ZEL_GUARDED_BY(mutex_) = 0;
};

}  // namespace libzel
