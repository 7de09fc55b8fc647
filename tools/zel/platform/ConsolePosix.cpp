#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <thread>
#include <utility>

#include "platform/Console.h"

namespace zeltool {

void WriteOutputAsBytes() {}

bool IsTerminal(std::FILE* stream) { return isatty(fileno(stream)) == 1; }

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

std::string TimeOfDay(std::chrono::system_clock::time_point time) {
  using std::chrono::system_clock;
  const auto second = std::chrono::floor<std::chrono::seconds>(time);
  const std::time_t seconds = system_clock::to_time_t(second);
  tm local{};
  (void)localtime_r(&seconds, &local);
  char text[32];
  const size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &local);
  const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - second).count();
  (void)std::snprintf(text + length, sizeof text - length, ".%03d", static_cast<int>(rest));
  return text;
}

std::optional<std::string> LookUpHost(const std::string& name) {
  addrinfo wanted{};
  wanted.ai_family = AF_INET;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (getaddrinfo(name.c_str(), nullptr, &wanted, &found) != 0) return std::nullopt;
  char text[INET_ADDRSTRLEN] = {};
  (void)getnameinfo(found->ai_addr, found->ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST);
  freeaddrinfo(found);
  return text;
}

}  // namespace zeltool
