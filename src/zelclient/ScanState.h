// The state of discovery, and what it has counted. Any thread may note and ask.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "utils/Mutex.h"

namespace libzel {

class ScanState {
 public:
  struct Snapshot {
    bool isRunning = false;
    uint32_t adapters = 0;
    std::string adapterList;  // names, joined by commas
    std::string reason;       // why it does not run; empty while it does, and before it was started
    uint32_t restarts = 0;
    uint64_t answers = 0;
    uint64_t dropped = 0;
  };

  // ---- The scan thread's

  void NoteRunning(uint32_t adapters, std::string adapterList);
  void NoteDown(std::string reason);
  void NoteRestart();
  void CountAnswer();
  // Of a malformed answer, or one that may not be given: counts it, with one WARNING a minute.
  void DropAnswer(const std::string& sender, const char* reason);

  // ---- Anybody's

  Snapshot Get();
  // Waits until a start has come to its end, whatever that is; true when discovery runs.
  bool AwaitStart();
  // Makes a start that is to come one to wait for.
  void Begin();

 private:
  enum class Phase { kNone, kRunning, kDown };

  Mutex mutex_;
  CondVar changed_;
  Phase phase_ ZEL_GUARDED_BY(mutex_) = Phase::kNone;
  Snapshot snapshot_ ZEL_GUARDED_BY(mutex_);
  std::optional<CondVar::Clock::time_point> lastWarning_ ZEL_GUARDED_BY(mutex_);
};

}  // namespace libzel
