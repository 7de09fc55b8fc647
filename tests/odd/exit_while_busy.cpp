// Ends a hundred times, or as often as the argument says, each time in a process of its own, while every
// thread of the library and of the application is at work, with nothing released.
#include <libzel/libzel.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "support/Deadline.h"
#include "support/TemporaryFolder.h"

namespace {

constexpr ZelDeviceId kDevice{{127, 0, 0, 1, 0, 1}};
constexpr ZelDeviceId kNobody{{10, 77, 0, 99, 0, 1}};

// Written by threads that go on while the process ends.
std::atomic<int> messages{0};
std::atomic<int> answers{0};
std::atomic<int> chunks{0};
std::atomic<int> attempts{0};

void CountMessage(uint16_t, const uint8_t*, uint32_t, void*) { ++messages; }
void CountAttempt(const ZelDeviceId*, void*, int32_t) { ++attempts; }
int32_t CountChunk(const ZelDeviceId*, uint32_t, float, uint32_t, uint8_t, void*) { return ++chunks; }
void IgnoreDevice(ZelScanResult, void*) {}

void AskForEver(ZelInstance instance) {
  for (uint8_t byte = 0;; ++byte) {
    uint8_t answer[8];
    (void)libzel_sync_send(instance, 600, 1, 2, &byte, 1, 1000);
    if (libzel_sync_recv(instance, nullptr, answer, sizeof answer, 1000) == 1) ++answers;
  }
}

void WaitForEver(ZelInstance instance) {
  for (uint8_t byte = 0;;) (void)libzel_sync_recv(instance, nullptr, &byte, 1, 10000);
}

void ReconnectForEver(ZelInstance instance) {
  for (;;) (void)libzel_reconnect(instance, 1000);
}

ZelInstance NewInstance(const ZelDeviceId& device, int32_t timeoutMs) {
  return libzel_createInstanceEx(&device, 0, timeoutMs, CountAttempt, nullptr);
}

int KeepAllBusy(const char* path) {
  if (libzel_init() != 0) return 11;
  if (libzel_registerZelScanEvent(IgnoreDevice, nullptr) != 0 || libzel_startZelScan() != 0) return 12;
  const ZelInstance listening = NewInstance(kDevice, 1500);
  if (libzel__registerRouterEvent(listening, 700, CountMessage, nullptr) != 0) return 13;
  if (libzel_loop_start(listening) != 0) return 14;
  const ZelInstance searching = NewInstance(kNobody, 100);
  if (libzel_reconnect_delay_set(searching, 0) != 0 || libzel_loop_start(searching) != 0) return 15;
  (void)ZelFileTransfer({kDevice, 701}, 0, 0, path, "to", CountChunk, nullptr);
  std::thread(AskForEver, NewInstance(kDevice, 1500)).detach();
  std::thread(WaitForEver, NewInstance(kDevice, 1500)).detach();
  std::thread(ReconnectForEver, NewInstance(kDevice, 1500)).detach();
  return 0;
}

bool IsAllBusy() { return messages > 3 && answers > 3 && chunks > 3 && attempts > 20; }

int StatusOf(const char* program, const char* path) {
  char* const arguments[] = {const_cast<char*>(program), const_cast<char*>("once"), const_cast<char*>(path),
                             nullptr};
  pid_t child = 0;
  if (posix_spawn(&child, program, nullptr, nullptr, arguments, environ) != 0) return -1;
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  return status;
}

int RunOnce(const char* path) {
  [[maybe_unused]] static const auto* const deadline = new zeltest::Deadline(20);  // watches the end, too
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 10;
  if (const int failure = KeepAllBusy(path)) return failure;
  while (!IsAllBusy()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::string(argv[1]) == "once") return RunOnce(argv[2]);
  const int times = argc == 2 ? std::atoi(argv[1]) : 100;
  const zeltest::TemporaryFolder folder;
  const std::string path = folder.Write("file", std::string(4 << 20, 'x'));
  for (int i = 0; i < times; ++i) {
    const int status = StatusOf(argv[0], path.c_str());
    if (status == 0) continue;
    (void)fprintf(stderr, "run %d ended with status %d\n", i, status);
    return 1;
  }
  return 0;
}
