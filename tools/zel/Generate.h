// The manual page and the shell completion, made from the command line's own definitions.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace zeltool {

// What of an application is told to people: options and commands that are not hidden.
std::vector<const CLI::Option*> VisibleOptions(const CLI::App& app);
std::vector<const CLI::App*> VisibleCommands(const CLI::App& app);

// A page of section 1, for man.
std::string MakeManual(const CLI::App& app);
// A script for bash.
std::string MakeCompletion(const CLI::App& app);
// What `kind` names: "man" or "completion".
std::string Generate(const CLI::App& app, const std::string& kind);

}  // namespace zeltool
