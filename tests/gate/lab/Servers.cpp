#include "Servers.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

namespace gatelab {
namespace {

const std::vector<std::string> kHosts = {"command", "hub-1",   "hub-2",   "hub-3",  "north",
                                         "south",   "north-1", "north-2", "north-3"};

size_t HostOf(const std::string& name) {
  for (size_t host = 0; host < kHosts.size(); ++host) {
    if (kHosts[host] == name) return host;
  }
  std::cerr << "there is no host " << name << "\n";
  std::abort();
}

std::string Folder() {
  const char* const lab = std::getenv("ZEL_LAB");
  return std::string(lab != nullptr ? lab : "/nowhere") + "/nats";
}

// A lab that does not do what it is told makes every result worthless.
void Run(const std::string& command) {
  if (std::system(command.c_str()) == 0) return;
  std::cerr << "this failed: " << command << "\n";
  std::abort();
}

void Blackhole(const std::string& verb, const std::string& from, const std::string& to) {
  const std::string inside = from == "command" ? "" : "nsenter --net=" + Servers::Namespace(from) + " -- ";
  Run(inside + "ip route " + verb + " blackhole " + Servers::Address(to) + "/32");
}

}  // namespace

Servers::~Servers() {
  while (!running_.empty()) Kill(running_.begin()->first);
}

void Servers::Start(const std::string& name, const std::string& change) {
  const std::string log = Folder() + "/" + name + "/log";
  const std::string program = std::string(ZEL_GATE_LAB) + "/server.sh";
  const pid_t child = fork();
  if (child == 0) {
    const int file = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (file < 0 || dup2(file, STDOUT_FILENO) < 0 || dup2(file, STDERR_FILENO) < 0) _exit(96);
    if (!change.empty() && setenv("ZEL_SERVER_CHANGE", change.c_str(), 1) != 0) _exit(96);
    (void)execl(program.c_str(), program.c_str(), name.c_str(), nullptr);
    _exit(95);
  }
  running_[name] = child;
}

void Servers::StartAll() {
  for (const char* const name : {"hub-1", "hub-2", "hub-3", "north", "south"}) Start(name);
}

void Servers::Kill(const std::string& name) {
  const auto found = running_.find(name);
  if (found == running_.end()) return;
  (void)kill(found->second, SIGKILL);
  (void)waitpid(found->second, nullptr, 0);
  running_.erase(found);
}

void Servers::Part(const std::string& one, const std::string& other) {
  Blackhole("add", one, other);
  Blackhole("add", other, one);
}

void Servers::Join(const std::string& one, const std::string& other) {
  Blackhole("del", one, other);
  Blackhole("del", other, one);
}

void Servers::PartFromHub(const std::string& site) {
  for (const char* const hub : {"hub-1", "hub-2", "hub-3"}) Part(site, hub);
}

void Servers::JoinToHub(const std::string& site) {
  for (const char* const hub : {"hub-1", "hub-2", "hub-3"}) Join(site, hub);
}

std::string Servers::Log(const std::string& name) {
  std::ostringstream text;
  text << std::ifstream(Folder() + "/" + name + "/log").rdbuf();
  return text.str();
}

std::string Servers::Namespace(const std::string& name) {
  return "/run/netns/device" + std::to_string(HostOf(name));
}

std::string Servers::Address(const std::string& name) {
  return "10.77.0." + std::to_string(HostOf(name) + 1);
}

std::string Servers::Url(const std::string& name) { return "nats://" + name + ".zel.example:4222"; }

std::string Servers::Authority(const std::string& name) { return Folder() + "/" + name + ".pem"; }

void Servers::ForgeCertificate(const std::string& name, const std::string& host) {
  Run(std::string(ZEL_GATE_LAB) + "/forge.sh " + name + " " + host);
}

}  // namespace gatelab
