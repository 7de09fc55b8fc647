#include "zelclient/ScanState.h"

#include <utility>

#include "utils/Log.h"

namespace libzel {

void ScanState::NoteRunning(uint32_t adapters, std::string adapterList) {
  const MutexLock lock(mutex_);
  phase_ = Phase::kRunning;
  snapshot_.isRunning = true;
  snapshot_.adapters = adapters;
  snapshot_.adapterList = std::move(adapterList);
  snapshot_.reason.clear();
  changed_.NotifyAll();
}

void ScanState::NoteDown(std::string reason) {
  const MutexLock lock(mutex_);
  phase_ = Phase::kDown;
  snapshot_.isRunning = false;
  snapshot_.adapters = 0;
  snapshot_.adapterList.clear();
  snapshot_.reason = std::move(reason);
  changed_.NotifyAll();
}

void ScanState::NoteRestart() {
  const MutexLock lock(mutex_);
  ++snapshot_.restarts;
}

void ScanState::CountAnswer() {
  const MutexLock lock(mutex_);
  ++snapshot_.answers;
}

void ScanState::DropAnswer(const std::string& sender, const char* reason) {
  uint64_t dropped = 0;
  {
    const MutexLock lock(mutex_);
    dropped = ++snapshot_.dropped;
    const auto now = CondVar::Clock::now();
    if (lastWarning_ && now - *lastWarning_ < std::chrono::minutes(1)) return;
    lastWarning_ = now;
  }
  ZEL_LOG_AS("CZelScanClient::notify", kWarning, "scan answer of %s dropped:%s,%llu so far", sender.c_str(),
             reason, static_cast<unsigned long long>(dropped));
}

ScanState::Snapshot ScanState::Get() {
  const MutexLock lock(mutex_);
  return snapshot_;
}

bool ScanState::AwaitStart() {
  const MutexLock lock(mutex_);
  while (phase_ == Phase::kNone) changed_.Wait(mutex_);
  return phase_ == Phase::kRunning;
}

void ScanState::Begin() {
  const MutexLock lock(mutex_);
  phase_ = Phase::kNone;
}

}  // namespace libzel
