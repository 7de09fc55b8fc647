#include "utils/Thread.h"

#include <new>
#include <system_error>
#include <utility>

#include "platform/Platform.h"

namespace libzel {

namespace {

// Not noexcept: a callback's runtime may end the thread in its own way, by unwinding it.
void Run(const Thread::Work& work) {
  for (;;) {
    try {
      work.body();
      return;
    } catch (const std::bad_alloc&) {
      if (!work.onNoMemory) throw;
      work.onNoMemory();
    }
  }
}

}  // namespace

bool Thread::Start(Work work) {
  const MutexLock lock(mutex_);
  if (isHeld_) return false;
  const platform::AsyncSignalBlock signalsAreTheHosts;
  thread_ = std::thread([this, mine = std::move(work)] {
    { const MutexLock held(mutex_); }  // what the body calls may join: it begins once the thread is held
    platform::NameThread(mine.name);
    Run(mine);
  });
  id_ = thread_.get_id();
  isHeld_ = true;
  return true;
}

bool Thread::IsHeld() {
  const MutexLock lock(mutex_);
  return isHeld_;
}

bool Thread::IsCurrent() {
  const MutexLock lock(mutex_);
  return isHeld_ && id_ == std::this_thread::get_id();
}

void Thread::Join() {
  if (!BeginJoin()) return;
  thread_.join();
  EndJoin();
}

// True for the one that has to join; the others wait for it here.
bool Thread::BeginJoin() {
  const MutexLock lock(mutex_);
  if (!isHeld_) return false;
  if (id_ == std::this_thread::get_id()) {
    throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur));
  }
  const uint64_t before = joins_;
  while (isJoining_ && joins_ == before) joined_.Wait(mutex_);
  if (joins_ != before) return false;
  isJoining_ = true;
  return true;
}

void Thread::EndJoin() {
  const MutexLock lock(mutex_);
  isHeld_ = false;
  isJoining_ = false;
  ++joins_;
  joined_.NotifyAll();
}

}  // namespace libzel
