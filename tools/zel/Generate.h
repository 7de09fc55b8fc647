// The manual page and the shells' completions, made from the command line's own definitions.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace zeltool {

// A page of section 1, for man.
std::string MakeManual(const CLI::App& app);

// Scripts for the shells.
std::string MakeBashCompletion(const CLI::App& app);
std::string MakeZshCompletion(const CLI::App& app);
std::string MakeFishCompletion(const CLI::App& app);

// What `kind` names: "man", "bash", "zsh", "fish", or "page:scan" for the documents' page of a command.
// Throws UsageFailure for anything else.
std::string Generate(const CLI::App& app, const std::string& kind);

}  // namespace zeltool
