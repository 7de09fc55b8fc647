// The program's commands. Each function adds one to the command line; what it is to do is left in `task` when
// the user names it.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

#include "Config.h"

namespace zelgate {

// Exit statuses.
inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
inline constexpr int kUsage = 2;

struct Task {
  // Gets what the configuration file says. Result: the exit status. What went wrong it has said.
  std::function<int(const Config& config)> run;
};

void AddRun(CLI::App& app, Task& task);
void AddFind(CLI::App& app, Task& task);
void AddStatus(CLI::App& app, Task& task);
void AddAsk(CLI::App& app, Task& task);
void AddCheck(CLI::App& app, Task& task);
void AddHub(CLI::App& app, Task& task);

}  // namespace zelgate
