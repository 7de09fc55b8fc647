// Works with the standard streams closed, as services are often started: the library's sockets and files take
// none of their descriptors, so that no line of the log gets into one.
#include <fcntl.h>
#include <libzel/libzel.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>

#include "support/TemporaryFolder.h"

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace {

constexpr ZelDeviceId kDevice{{127, 0, 0, 1, 0, 1}};
constexpr int kStreams = 3;

#ifdef _WIN32
void IgnoreBadDescriptor(const wchar_t*, const wchar_t*, const wchar_t*, unsigned, uintptr_t) {}
void Prepare() { (void)_set_invalid_parameter_handler(IgnoreBadDescriptor); }
void CloseStream(int descriptor) { (void)_close(descriptor); }
bool IsFree(int descriptor) { return _get_osfhandle(descriptor) < 0; }
#else
void Prepare() {}
void CloseStream(int descriptor) { (void)close(descriptor); }
bool IsFree(int descriptor) { return fcntl(descriptor, F_GETFD) < 0; }
#endif

bool AreFree() {
  for (int i = 0; i < kStreams; ++i) {
    if (!IsFree(i)) return false;
  }
  return true;
}

bool IsAnswered(ZelInstance instance) {
  const uint8_t question[] = {'a', 's', 'k'};
  uint8_t answer[8];
  return libzel_sync_send(instance, 600, 1, 2, question, sizeof question, 5000) == 32 &&
         libzel_sync_recv(instance, nullptr, answer, sizeof answer, 5000) == 3 &&
         std::memcmp(answer, question, sizeof question) == 0;
}

struct Transfer {
  std::atomic<bool> areFree{true};
  std::atomic<int> state{0};

  static int32_t Tell(const ZelDeviceId*, uint32_t, float, uint32_t, uint8_t state, void* user) {
    auto& mine = *static_cast<Transfer*>(user);
    if (!AreFree()) mine.areFree = false;
    mine.state = state;
    return 0;
  }
};

bool IsOver(const Transfer& transfer) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (transfer.state < 2) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return transfer.state == 2;
}

}  // namespace

int main() {
  const zeltest::TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  static Transfer transfer;
  Prepare();
  for (int i = 0; i < kStreams; ++i) CloseStream(i);
  if (libzel_init() != 0) return 1;
  const ZelInstance instance = libzel_createInstance(&kDevice, 0);
  if (libzel_loop_start(instance) != 0 || libzel_loop_stop(instance) != 0 || !AreFree()) return 2;
  // Lines enough to fill the stream's buffer many times.
  for (int i = 0; i < 200; ++i) {
    if (!libzel_reconnect(instance, 5000) || !IsAnswered(instance)) return 3;
  }
  (void)ZelFileTransfer({kDevice, 700}, 0, 0, path.c_str(), "to", Transfer::Tell, &transfer);
  if (!IsOver(transfer) || !transfer.areFree) return 4;
  ZelDeviceId answer;
  (void)libzel_getRemoteZelDeviceId("127.0.0.1", 1, &answer);
  return AreFree() ? 0 : 5;
}
