#include <sstream>

#include "CompletionWords.h"
#include "Generate.h"

namespace zeltool {
namespace {

std::string QuotedForFish(const std::string& text) {
  std::string out = "'";
  for (const char character : text) {
    if (character == '\'' || character == '\\') out += '\\';
    out += character;
  }
  return out + "'";
}

void CollectFishPaths(const CompletionCommand& command, std::ostream& out) {
  if (!command.path.empty()) out << " '" << command.path << "'";
  for (const CompletionCommand& part : command.parts) CollectFishPaths(part, out);
}

void WriteOption(std::ostream& out, const CompletionOption& option, const std::string& condition) {
  out << "complete -c zel" << condition;
  for (const std::string& name : option.names) {
    const bool isLong = name.starts_with("--");
    out << (isLong ? " -l " : " -s ") << name.substr(isLong ? 2 : 1);
  }
  if (!option.value.empty()) out << (IsFile(option.value) ? " -r -F" : " -x");
  out << " -d " << QuotedForFish(option.description) << "\n";
}

void WriteCommand(std::ostream& out, const CompletionCommand& command) {
  const std::string condition = " -n '__zel_is \"" + command.path + "\"'";
  for (const CompletionCommand& part : command.parts) {
    out << "complete -c zel" << condition << " -a " << part.name << " -d " << QuotedForFish(part.description)
        << "\n";
  }
  for (const CompletionOption& option : command.options) {
    WriteOption(out, option, command.path.empty() ? "" : condition);
  }
  for (const CompletionArgument& argument : command.arguments) {
    if (IsFile(argument.name)) out << "complete -c zel" << condition << " -F\n";
  }
  for (const CompletionCommand& part : command.parts) WriteCommand(out, part);
}

}  // namespace

std::string MakeFishCompletion(const CLI::App& app) {
  const CompletionCommand program = ReadCompletion(app);
  std::ostringstream out;
  out << "# fish completion for zel\n\n"
         "# The command that the line has so far is $argv[1].\n"
         "function __zel_is\n"
         "    set -l path\n"
         "    for word in (commandline -opc)[2..]\n"
         "        set -l longer (string join ' ' -- $path $word)\n"
         "        contains -- $longer";
  CollectFishPaths(program, out);
  out << "\n        and set path $longer\n"
         "    end\n"
         "    test \"$path\" = \"$argv[1]\"\n"
         "end\n\n"
         "complete -c zel -f\n";
  WriteCommand(out, program);
  return out.str();
}

}  // namespace zeltool
