// What can be completed, for every shell.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace zeltool {

struct CompletionOption {
  std::vector<std::string> names;  // "-s", "--seconds"
  std::string description;
  std::string value;  // what it takes, "N"; empty for nothing
};

struct CompletionArgument {
  std::string name;
  bool isRequired = false;
  bool isRepeated = false;
};

struct CompletionCommand {
  std::string path;  // "id get"; empty for the program
  std::string name;
  std::string description;
  std::vector<CompletionOption> options;  // without those of every command, but for the program
  std::vector<CompletionArgument> arguments;
  std::vector<CompletionCommand> parts;
};

// The program with all its commands. Every option is there once.
CompletionCommand ReadCompletion(const CLI::App& app);

// The value of an option, or an argument, that is a file here.
bool IsFile(const std::string& value);

}  // namespace zeltool
