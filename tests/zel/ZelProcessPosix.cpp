#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "ZelProcessSystem.h"

namespace {

void Replace(int descriptor, const std::string& path, int flags) {
  const int file = open(path.c_str(), flags, 0666);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(96);
  (void)close(file);
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

void ZelProcess::System::Interrupt() { (void)kill(static_cast<pid_t>(process_), SIGINT); }

void ZelProcess::System::End() {
  (void)kill(static_cast<pid_t>(process_), SIGKILL);
  (void)waitpid(static_cast<pid_t>(process_), nullptr, 0);
}
