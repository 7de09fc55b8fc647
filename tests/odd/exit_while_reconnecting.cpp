// Ends while a receive thread tries to reach a server that is not there, with nothing released.
#include <libzel/libzel.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

std::atomic<int> attempts{0};

void CountFailure(const ZelDeviceId*, void*, int32_t event) {
  if (event == ZEL_EVENT_FAILED) ++attempts;
}

bool TriesAgain() {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
  while (attempts < 2) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace

int main() {
  if (libzel_init() != 0) return 1;
  const ZelDeviceId device{{127, 0, 0, 1, 0, 1}};
  const ZelInstance instance = libzel_createInstanceEx(&device, 0, 100, CountFailure, nullptr);
  if (instance == 0) return 2;
  if (libzel_reconnect_delay_set(instance, 1) != 0) return 3;
  if (libzel_loop_start(instance) != 0) return 4;
  return TriesAgain() ? 0 : 5;
}
