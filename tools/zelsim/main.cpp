#include <sys/resource.h>

#include <csignal>
#include <iostream>

#include "Options.h"
#include "Simulator.h"

namespace {

// A fleet and many clients need more descriptors than the usual soft limit.
void RaiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);  // the soft limit serves as well when this fails
}

}  // namespace

int main(int argc, char** argv) {
  int exitCode = 0;
  const auto options = zelsim::ParseOptions(argc, argv, std::cout, std::cerr, exitCode);
  if (!options) return exitCode;
  std::signal(SIGPIPE, SIG_IGN);
  RaiseDescriptorLimit();
  zelsim::Simulator simulator(*options);
  const std::string problem = simulator.Start();
  if (!problem.empty()) {
    std::cerr << "zelsim: " << problem << std::endl;
    return 1;
  }
  simulator.StopOnSignals();
  std::cout << "ready" << std::endl;
  simulator.Run();
  return 0;
}
