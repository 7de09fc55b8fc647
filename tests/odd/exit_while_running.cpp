// Ends while a receive thread delivers messages, with nothing released.
#include <libzel/libzel.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace {

std::atomic<int> received{0};

void CountMessage(uint16_t, const uint8_t*, uint32_t, void*) { ++received; }

bool MessagesArrive() {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (received < 3) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace

int main() {
  if (libzel_init() != 0) return 1;
  const ZelDeviceId device{{127, 0, 0, 1, 0, 1}};
  const ZelInstance instance = libzel_createInstance(&device, 0);
  if (instance == 0) return 2;
  if (libzel__registerRouterEvent(instance, 700, CountMessage, nullptr) != 0) return 3;
  if (libzel_loop_start(instance) != 0) return 4;
  return MessagesArrive() ? 0 : 5;
}
