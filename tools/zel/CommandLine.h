// The command line: its common options, its commands, and what is said of a wrong one.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>
#include <vector>

#include "Commands.h"

namespace zeltool {

struct CommonOptions {
  bool json = false;
  bool quiet = false;
  bool verbose = false;
  std::string log;
  std::string generate;
};

// What the options say is left in `common`, and what is to be done in `task`; both must outlive it.
std::unique_ptr<CLI::App> MakeCommandLine(CommonOptions& common, Task& task);

// Throws UsageFailure when the first argument that is no option is no command.
void CheckCommandName(const CLI::App& app, const std::vector<std::string>& arguments);

// What is wrong, all that is missing included.
std::string ExplainParse(const CLI::App& app, const CLI::ParseError& problem);

// Says it, and where help is. Gives kUsage.
int ReportUsage(const CLI::App& app, const std::vector<std::string>& arguments, const std::string& what);

}  // namespace zeltool
