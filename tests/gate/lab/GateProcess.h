// The zelgate program, run as its user runs it, on a host of the lab.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace gatelab {

// A configuration file for zelgate at a site of the lab; gives its path. `more` is TOML that is added.
std::string WriteSiteConfig(const std::string& site, const std::string& more = "",
                            const std::string& user = "gate");

class GateProcess {
 public:
  // On a host as Servers names them, with standard output and error in files. $ZEL_GATE names the program.
  explicit GateProcess(const std::vector<std::string>& arguments, const std::string& host = "command");
  // Kills it if it still runs.
  ~GateProcess();
  GateProcess(const GateProcess&) = delete;
  GateProcess& operator=(const GateProcess&) = delete;

  // SIGTERM, SIGKILL, SIGSTOP, SIGCONT.
  void Signal(int number) const;
  // The exit status, 1000 and its number for a signal; -1 when it does not end within 40 s.
  int Wait();
  bool IsRunning();
  // True once it has said this, or has ended with it; false after 40 s.
  bool Says(const std::string& text);

  std::string Output() const;
  std::string Errors() const;
  pid_t Id() const { return process_; }

 private:
  std::string prefix_;
  pid_t process_ = -1;
  int status_ = -1;
};

struct GateResult {
  int status;
  std::string output;
  std::string errors;
};
GateResult RunGate(const std::vector<std::string>& arguments);

}  // namespace gatelab
