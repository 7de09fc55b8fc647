#include "GateProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <thread>

#include "Servers.h"

namespace gatelab {
namespace {

constexpr std::chrono::seconds kPatience{40};

std::string GateFolder() {
  const char* const lab = std::getenv("ZEL_LAB");
  return lab != nullptr ? lab : "/nowhere";
}

std::string NextName() {
  static std::atomic<int> last = 0;
  return GateFolder() + "/gate" + std::to_string(++last);
}

std::string ReadAll(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

void Redirect(int descriptor, const std::string& path) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0 || dup2(file, descriptor) < 0) _exit(96);
}

}  // namespace

std::string WriteSiteConfig(const std::string& site, const std::string& more, const std::string& user) {
  const std::string path = NextName() + ".toml";
  std::ofstream(path + ".password") << user << "-pass\n";
  std::ofstream(path) << "site = \"" << site << "\"\n\n[nats]\nurls = [\"" << Servers::Url(site)
                      << "\"]\nuser = \"" << user << "\"\npassword_file = \"" << path
                      << ".password\"\n\n[nats.tls]\nca = \"" << Servers::Authority()
                      << "\"\n\n[stream]\nmax_bytes = 67108864\n\n"
                      << more;
  return path;
}

GateProcess::GateProcess(const std::vector<std::string>& arguments, const std::string& host)
    : prefix_(NextName()) {
  const char* const program = std::getenv("ZEL_GATE");
  std::vector<std::string> words;
  if (host != "command") words = {"nsenter", "--net=" + Servers::Namespace(host), "--"};
  words.emplace_back(program != nullptr ? program : "ZEL_GATE is not set");
  words.insert(words.end(), arguments.begin(), arguments.end());
  process_ = fork();
  if (process_ != 0) return;
  std::vector<char*> texts;
  for (std::string& word : words) texts.push_back(word.data());
  texts.push_back(nullptr);
  Redirect(STDOUT_FILENO, prefix_ + ".out");
  Redirect(STDERR_FILENO, prefix_ + ".err");
  (void)execvp(texts[0], texts.data());
  _exit(95);
}

GateProcess::~GateProcess() {
  if (!IsRunning()) return;
  Signal(SIGKILL);
  (void)waitpid(process_, nullptr, 0);
}

void GateProcess::Signal(int number) const { (void)kill(process_, number); }

bool GateProcess::IsRunning() {
  if (status_ != -1) return false;
  int ending = 0;
  if (waitpid(process_, &ending, WNOHANG) <= 0) return true;
  status_ = WIFEXITED(ending) ? WEXITSTATUS(ending) : 1000 + WTERMSIG(ending);
  return false;
}

int GateProcess::Wait() {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (IsRunning() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return status_;
}

bool GateProcess::Says(const std::string& text) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  const auto hasSaid = [&] {
    return Output().find(text) != std::string::npos || Errors().find(text) != std::string::npos;
  };
  while (!hasSaid()) {
    if (!IsRunning()) return hasSaid();
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

std::string GateProcess::Output() const { return ReadAll(prefix_ + ".out"); }

std::string GateProcess::Errors() const { return ReadAll(prefix_ + ".err"); }

GateResult RunGate(const std::vector<std::string>& arguments) {
  GateProcess process(arguments);
  const int status = process.Wait();
  return {status, process.Output(), process.Errors()};
}

}  // namespace gatelab
