// The program's commands. Each function adds one to the command line; what it is to do is left in `task` when
// the user names it.
#pragma once

#include <CLI/CLI.hpp>
#include <libzel/libzel.hpp>

#include <functional>

#include "Output.h"
#include "Stopper.h"

namespace zeltool {

struct Context {
  Output& output;
  Stopper& stopper;
  zel::Library* library;  // null for commands that do not use it
};

struct Task {
  bool usesLibrary = true;
  // Result: the exit status. Throws failures (Failure.h).
  std::function<int(Context&)> run;
};

void AddScan(CLI::App& app, Task& task);
void AddId(CLI::App& app, Task& task);
void AddRequest(CLI::App& app, Task& task);
void AddPub(CLI::App& app, Task& task);
void AddSub(CLI::App& app, Task& task);
void AddRecord(CLI::App& app, Task& task);
void AddReplay(CLI::App& app, Task& task);
void AddListen(CLI::App& app, Task& task);
void AddSend(CLI::App& app, Task& task);
void AddWatch(CLI::App& app, Task& task);
void AddDoctor(CLI::App& app, Task& task);
void AddErrors(CLI::App& app, Task& task);
void AddVersion(CLI::App& app, Task& task);

}  // namespace zeltool
