#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <thread>
#include <utility>

#include "platform/Console.h"

namespace zeltool {
namespace {

int OpenLog(LogTarget target, const std::string& logFile) {
  if (target == LogTarget::kStandardError) return dup(STDERR_FILENO);
  const char* path = target == LogTarget::kNowhere ? "/dev/null" : logFile.c_str();
  return open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
}

}  // namespace

std::FILE* SeparateOutputFromLog(LogTarget target, const std::string& logFile) {
  const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  if (output < 0) return nullptr;
  const int log = OpenLog(target, logFile);
  if (log < 0 || dup2(log, STDOUT_FILENO) < 0) {
    (void)close(output);
    return nullptr;
  }
  (void)close(log);
  return fdopen(output, "wb");
}

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

bool IsErrorTerminal() { return isatty(STDERR_FILENO) == 1; }

TerminalSize GetTerminalSize(std::FILE* stream) {
  winsize size{};
  TerminalSize result;
  if (ioctl(fileno(stream), TIOCGWINSZ, &size) != 0) return result;
  if (size.ws_col > 0) result.columns = size.ws_col;
  if (size.ws_row > 0) result.rows = size.ws_row;
  return result;
}

void PrepareTerminal(std::FILE*) {}

void ReadInputAsBytes() {}

void OnInterrupt(std::function<void()> handler) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGHUP);
  (void)pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread([signals, handler = std::move(handler)] {
    int signal = 0;
    while (sigwait(&signals, &signal) == 0) handler();
  }).detach();
}

unsigned long ProcessNumber() { return static_cast<unsigned long>(getpid()); }

std::string TimeOfDay() {
  timespec now{};
  (void)clock_gettime(CLOCK_REALTIME, &now);
  tm local{};
  (void)localtime_r(&now.tv_sec, &local);
  char text[32];
  const size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &local);
  (void)std::snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>(now.tv_nsec / 1000000));
  return text;
}

}  // namespace zeltool
