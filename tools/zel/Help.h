// What --help says, and the documents' page of a command: made from the command line's own definitions.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace zeltool {

// What of an application is told to people: options and commands that are not hidden, and of a command not
// the options that every command has.
std::vector<const CLI::Option*> VisibleOptions(const CLI::App& app);
std::vector<const CLI::App*> VisibleCommands(const CLI::App& app);

// The command with those that it is a part of: "zel id get".
std::string PathOf(const CLI::App& command);
// "-s,--seconds", or an argument's name.
std::string NameOf(const CLI::Option& option);
// "DEVICE [TEXT]"
std::string ArgumentsOf(const CLI::App& command);

// Fit for a line of so many characters.
std::string MakeHelp(const CLI::App& app, size_t columns);
// In Markdown.
std::string MakePage(const CLI::App& command);

// Lets an application show that help, as wide as the terminal is.
std::shared_ptr<CLI::FormatterBase> MakeFormatter();

}  // namespace zeltool
