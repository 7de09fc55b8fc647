// Keeps every thread of the library busy and then waits for a signal as services do: the main thread blocks
// it, and takes it by asking. No thread of the library may take it, whatever was blocked when it was made.
#include <libzel/libzel.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/FileDevice.h"
#include "support/Instance.h"
#include "support/TemporaryFolder.h"

namespace {

using namespace zeltest;

constexpr int kFaults[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT};

constexpr uint64_t Bit(int signal) { return uint64_t{1} << (signal - 1); }

constexpr uint64_t FaultMask() {
  uint64_t mask = 0;
  for (const int signal : kFaults) mask |= Bit(signal);
  return mask;
}

// What can be blocked but the faults, up to the runtime's own ones.
constexpr uint64_t kOthers = (Bit(32) - 1) & ~FaultMask() & ~Bit(SIGKILL) & ~Bit(SIGSTOP);

std::string StatusOf(const std::filesystem::path& task, const std::string& key) {
  std::ifstream file(task / "status");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(key + ":\t")) return line.substr(key.size() + 2);
  }
  return {};
}

// The threads with names of their own, which are the library's, as long as all of them
// block what they should.
int WellBehavedThreads() {
  const std::string own = StatusOf("/proc/self", "Name");
  int count = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (StatusOf(task.path(), "Name") == own) continue;
    const uint64_t blocked = std::stoull(StatusOf(task.path(), "SigBlk"), nullptr, 16);
    if ((blocked & kOthers) != kOthers || (blocked & FaultMask()) != 0) return -1;
    ++count;
  }
  return count;
}

void SetBlocked(bool blocked) {
  sigset_t all;
  (void)sigfillset(&all);
  (void)pthread_sigmask(blocked ? SIG_BLOCK : SIG_UNBLOCK, &all, nullptr);
}

bool TakesSignal(int signal) {
  sigset_t wanted;
  (void)sigemptyset(&wanted);
  (void)sigaddset(&wanted, signal);
  (void)pthread_sigmask(SIG_BLOCK, &wanted, nullptr);
  (void)kill(getpid(), signal);
  const timespec patience{5, 0};
  return sigtimedwait(&wanted, nullptr, &patience) == signal;
}

}  // namespace

int main() {
  SetBlocked(true);  // in the device's thread
  const FileDevice device;
  SetBlocked(false);
  if (libzel_init() != 0) return 1;
  const TemporaryFolder folder;
  const std::string path = folder.Write("file", "content");
  static ProgressRecorder progress;
  (void)ZelFileTransfer(device.Target(), 0, 0, path.c_str(), "to", ProgressRecorder::Callback, &progress);
  if (!progress.Await(3)) return 2;
  ScriptedServer server;
  const Link link(server);
  if (libzel_loop_start(link.instance) != 0) return 3;
  for (const int signal : {SIGTERM, SIGINT, SIGCHLD, SIGALRM, SIGUSR1, SIGHUP}) {
    if (!TakesSignal(signal)) return 4;
  }
  // A thread gives itself its name, and so a little after it was made.
  return Eventually([] { return WellBehavedThreads() == 3; }) ? 0 : 5;
}
