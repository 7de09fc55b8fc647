#include "utils/Fork.h"

#include "platform/Platform.h"
#include "utils/Log.h"

namespace libzel::fork_internal {

namespace {

std::atomic<bool> g_isWatched{false};

void MarkChild() {
  g_process.store(Process::kChild, std::memory_order_relaxed);
  log_internal::AfterForkInChild();
}

}  // namespace

// No one-time initialisation that a child could find half done.
bool BeginToWatch() {
  if (!g_isWatched.exchange(true)) {
    platform::WatchForks(log_internal::BeforeFork, log_internal::AfterForkInParent, MarkChild);
  }
  Process unwatched = Process::kUnwatched;
  return !g_process.compare_exchange_strong(unwatched, Process::kParent) && unwatched == Process::kChild;
}

}  // namespace libzel::fork_internal
