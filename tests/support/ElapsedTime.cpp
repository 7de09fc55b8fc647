#include "support/ElapsedTime.h"

#include <atomic>
#include <thread>

namespace zeltest {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTick(10);
constexpr milliseconds kUsualOversleep(20);  // some systems' clocks tick that slowly

std::atomic<int64_t> g_stalledMs{0};

[[noreturn]] void WatchStalls() {
  for (auto before = Clock::now();;) {
    std::this_thread::sleep_for(kTick);
    const auto now = Clock::now();
    const auto over = std::chrono::duration_cast<milliseconds>(now - before - kTick);
    if (over > kUsualOversleep) g_stalledMs += over.count();
    before = now;
  }
}

}  // namespace

int64_t ElapsedTime::StalledMs() {
  // Never ended: a process that a test forked off has no such thread to wait for.
  [[maybe_unused]] static const bool watched = (std::thread(WatchStalls).detach(), true);
  return g_stalledMs;
}

}  // namespace zeltest
