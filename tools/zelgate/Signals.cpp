#include "Signals.h"

#include <csignal>
#include <ctime>

namespace zelgate {
namespace {

sigset_t StopSignals() {
  sigset_t signals;
  (void)sigemptyset(&signals);
  (void)sigaddset(&signals, SIGTERM);
  (void)sigaddset(&signals, SIGINT);
  return signals;
}

}  // namespace

void HoldStopSignals() {
  const sigset_t signals = StopSignals();
  (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // only a wrong number fails
}

bool WaitForStop(std::chrono::milliseconds timeout) {
  const sigset_t signals = StopSignals();
  timespec time{};
  time.tv_sec = timeout.count() / 1000;
  time.tv_nsec = timeout.count() % 1000 * 1000000;
  return sigtimedwait(&signals, nullptr, &time) > 0;
}

}  // namespace zelgate
