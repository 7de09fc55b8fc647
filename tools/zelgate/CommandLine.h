// The command line: its common options and its commands.
#pragma once

#include <CLI/CLI.hpp>

#include <memory>
#include <string>

#include "Commands.h"

namespace zelgate {

// The configuration's file is left in `config`, and what is to be done in `task`; both must outlive it.
std::unique_ptr<CLI::App> MakeCommandLine(std::string& config, Task& task);

}  // namespace zelgate
