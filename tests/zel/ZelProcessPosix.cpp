#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "ZelProcessSystem.h"

namespace {

void Replace(int descriptor, const std::string& path, int flags) {
  const int file = open(path.c_str(), flags, 0666);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(96);
  (void)close(file);
}

// Of a thread: the time on a processor, then the time it waited for one.
void NoteHeldUp(const std::filesystem::path& thread, std::map<std::string, int64_t>& heldUp) {
  std::ifstream file(thread / "schedstat");
  int64_t running = 0;
  int64_t waiting = 0;
  if (file >> running >> waiting) heldUp[thread.string()] = waiting;
}

}  // namespace

ZelProcess::System::System(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& prefix, const std::string& output) {
  std::vector<char*> texts = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments) texts.push_back(const_cast<char*>(argument.c_str()));
  texts.push_back(nullptr);
  process_ = fork();
  if (process_ != 0) return;
  Replace(STDIN_FILENO, prefix + ".in", O_RDONLY);
  Replace(STDOUT_FILENO, output, O_WRONLY | O_CREAT | O_TRUNC);
  Replace(STDERR_FILENO, prefix + ".err", O_WRONLY | O_CREAT | O_TRUNC);
  (void)execv(texts[0], texts.data());
  _exit(95);
}

ZelProcess::System::~System() = default;

bool ZelProcess::System::HasEnded(int& status) {
  int ending = 0;
  if (waitpid(static_cast<pid_t>(process_), &ending, WNOHANG) <= 0) return false;
  status = WIFEXITED(ending) ? WEXITSTATUS(ending) : 1000 + WTERMSIG(ending);
  return true;
}

std::chrono::nanoseconds ZelProcess::System::HeldUp() {
  namespace fs = std::filesystem;
  std::error_code problem;
  for (const auto& thread : fs::directory_iterator("/proc/" + std::to_string(process_) + "/task", problem)) {
    NoteHeldUp(thread.path(), heldUp_);
  }
  NoteHeldUp("/proc/thread-self", heldUp_);
  int64_t sum = 0;
  for (const auto& [thread, time] : heldUp_) sum += time;
  return std::chrono::nanoseconds(sum);
}

void ZelProcess::System::Interrupt() { (void)kill(static_cast<pid_t>(process_), SIGINT); }

void ZelProcess::System::End() {
  (void)kill(static_cast<pid_t>(process_), SIGKILL);
  (void)waitpid(static_cast<pid_t>(process_), nullptr, 0);
}

HeldUdpPort::HeldUdpPort(uint16_t port) : socket_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in here{};
  here.sin_family = AF_INET;
  here.sin_port = htons(port);
  isHeld_ = bind(static_cast<int>(socket_), reinterpret_cast<const sockaddr*>(&here), sizeof here) == 0;
}

HeldUdpPort::~HeldUdpPort() { (void)close(static_cast<int>(socket_)); }

std::string HeldUdpPort::Holder() { return "zel_tests (process " + std::to_string(getpid()) + ")"; }
