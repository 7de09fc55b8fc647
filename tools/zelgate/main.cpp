#include <csignal>
#include <iostream>

#include "CommandLine.h"
#include "Journal.h"
#include "Signals.h"

namespace zelgate {
namespace {

int RunTask(const Task& task, const std::string& path) {
  try {
    return task.run(ReadConfig(path));
  } catch (const ConfigError& problem) {
    Say(Priority::kError, problem.what());
    return kUsage;
  } catch (const std::exception& problem) {
    Say(Priority::kError, std::string("ended by an error: ") + problem.what() + "; start it again");
    return kFailed;
  }
}

int Main(int argc, char** argv) {
  // A thread of libnats must not end the process by writing to a connection that is gone.
  (void)std::signal(SIGPIPE, SIG_IGN);
  HoldStopSignals();
  std::string path;
  Task task;
  const auto app = MakeCommandLine(path, task);
  try {
    app->parse(argc, argv);
  } catch (const CLI::ParseError& end) {
    return app->exit(end, std::cout, std::cerr) == 0 ? kDone : kUsage;
  }
  return RunTask(task, path);
}

}  // namespace
}  // namespace zelgate

int main(int argc, char** argv) { return zelgate::Main(argc, argv); }
