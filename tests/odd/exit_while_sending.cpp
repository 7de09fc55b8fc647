// Ends while files are being sent and others wait: just so, or with a handler that ends the library. The
// handler must leave no file without its end; without it nobody is told.
#include <libzel/libzelx.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "support/Deadline.h"
#include "support/TemporaryFolder.h"

namespace {

constexpr int kDevices = 4;
constexpr int kFiles = 20;

// Used by threads that go on while the process ends.
std::atomic<int> events{0};
std::atomic<int> ends{0};

int32_t Count(const libzelx_FileEvent* event, void*) {
  ++events;
  if (event->ended != 0) ++ends;
  return 0;
}

// Runs behind the one that ends the library.
void ExpectAllEnds() {
  if (ends == kFiles) return;
  (void)fprintf(stderr, "%d ends\n", ends.load());
  std::_Exit(4);
}
void Destroy() { (void)libzel_destory(); }

}  // namespace

int main(int argc, char** argv) {
  [[maybe_unused]] static const auto* const deadline = new zeltest::Deadline(20);  // watches the end, too
  const bool endsLibrary = argc == 2 && std::string(argv[1]) == "destroy";
  static const zeltest::TemporaryFolder folder;
  const std::string path = folder.Write("file", std::string(8 << 20, 'x'));
  if (endsLibrary && (std::atexit(ExpectAllEnds) != 0 || std::atexit(Destroy) != 0)) return 1;
  if (libzel_init() != 0 || libzelx_setOption(0, LIBZELX_FILE_WORKERS, kDevices) != 0) return 2;
  for (int i = 0; i < kFiles; ++i) {
    const ZelDeviceAddr device{{{127, 0, 0, static_cast<uint8_t>(1 + i % kDevices), 0, 1}}, 701};
    const std::string remote = "to" + std::to_string(i);
    if (libzelx_sendFile(&device, path.c_str(), remote.c_str(), Count, nullptr, nullptr) != 0) return 3;
  }
  while (events < 100) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return 0;
}
