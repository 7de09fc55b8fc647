#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Console.h"

namespace zeltool {

std::vector<std::string> ProgramArguments(int argc, char** argv) {
  return argc > 0 ? std::vector<std::string>(argv + 1, argv + argc) : std::vector<std::string>();
}

std::FILE* OpenFile(const std::string& path, const char* mode) { return std::fopen(path.c_str(), mode); }

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

namespace {

// As /proc has them, of the sockets that are bound to a port: "socket:[123]".
std::set<std::string> SocketsOfUdpPort(uint16_t port) {
  std::set<std::string> sockets;
  for (const char* path : {"/proc/net/udp", "/proc/net/udp6"}) {
    std::ifstream table(path);
    std::string line;
    (void)std::getline(table, line);
    while (std::getline(table, line)) {
      std::istringstream words(line);
      std::vector<std::string> fields(std::istream_iterator<std::string>(words), {});
      if (fields.size() < 10) continue;
      const size_t colon = fields[1].find(':');
      if (std::strtoul(fields[1].c_str() + colon + 1, nullptr, 16) == port) {
        sockets.insert("socket:[" + fields[9] + "]");
      }
    }
  }
  return sockets;
}

bool HoldsOneOf(const std::filesystem::path& process, const std::set<std::string>& sockets) {
  std::error_code problem;
  for (const auto& entry : std::filesystem::directory_iterator(process / "fd", problem)) {
    std::error_code unreadable;
    if (sockets.count(std::filesystem::read_symlink(entry.path(), unreadable).string()) > 0) return true;
  }
  return false;
}

}  // namespace

std::string HoldersOfUdpPort(uint16_t port) {
  const auto sockets = SocketsOfUdpPort(port);
  if (sockets.empty()) return {};
  std::string holders;
  std::error_code problem;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", problem)) {
    const std::string number = entry.path().filename().string();
    const bool isProcess = number.find_first_not_of("0123456789") == std::string::npos;
    if (!isProcess || !HoldsOneOf(entry.path(), sockets)) continue;
    std::ifstream file(entry.path() / "comm");
    std::string name;
    (void)std::getline(file, name);
    holders += (holders.empty() ? "" : ", ") + name + " (process " + number + ")";
  }
  // Only its own user and the administrator may know.
  return holders.empty() ? "a program of another user" : holders;
}

}  // namespace zeltool
