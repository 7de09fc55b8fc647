#include <sstream>

#include "CompletionWords.h"
#include "Generate.h"

namespace zeltool {
namespace {

std::string Joined(const std::vector<std::string>& words, const char* separator = " ") {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : separator) + word;
  return line;
}

std::vector<std::string> FlagsOf(const CompletionCommand& command) {
  std::vector<std::string> flags;
  for (const CompletionOption& option : command.options) {
    flags.insert(flags.end(), option.names.begin(), option.names.end());
  }
  return flags;
}

void CollectPaths(const CompletionCommand& command, std::vector<std::string>& paths) {
  if (!command.path.empty()) paths.push_back("'" + command.path + "'");
  for (const CompletionCommand& part : command.parts) CollectPaths(part, paths);
}

// Patterns for options behind which a value stands, of a command and an option: "'send --log'".
void CollectValues(const CompletionCommand& command, bool wantsFiles, std::vector<std::string>& patterns) {
  for (const CompletionOption& option : command.options) {
    if (option.value.empty() || IsFile(option.value) != wantsFiles) continue;
    for (const std::string& name : option.names) {
      patterns.push_back(command.path.empty() ? "*' " + name + "'" : "'" + command.path + " " + name + "'");
    }
  }
  for (const CompletionCommand& part : command.parts) CollectValues(part, wantsFiles, patterns);
}

void WriteCases(std::ostream& out, const CompletionCommand& command, const std::string& common) {
  std::vector<std::string> words;
  for (const CompletionCommand& part : command.parts) words.push_back(part.name);
  bool takesFile = false;
  for (const CompletionArgument& argument : command.arguments) takesFile = takesFile || IsFile(argument.name);
  std::string flags = Joined(FlagsOf(command));
  if (!command.path.empty()) flags += (flags.empty() ? "" : " ") + common;
  out << "    '" << command.path << "') words='" << Joined(words) << "' flags='" << flags << "'"
      << (takesFile ? " files=1" : "") << " ;;\n";
  for (const CompletionCommand& part : command.parts) WriteCases(out, part, common);
}

}  // namespace

std::string MakeBashCompletion(const CLI::App& app) {
  const CompletionCommand program = ReadCompletion(app);
  std::vector<std::string> paths;
  std::vector<std::string> fileOptions;
  std::vector<std::string> otherOptions;
  CollectPaths(program, paths);
  CollectValues(program, true, fileOptions);
  CollectValues(program, false, otherOptions);
  std::ostringstream out;
  out << "# bash completion for zel\n"
         "_zel() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  local path= longer word words= flags= files=\n"
         "  COMPREPLY=()\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    longer=${path:+$path }$word\n"
         "    case $longer in\n"
         "      "
      << Joined(paths, "|")
      << ") path=$longer ;;\n"
         "    esac\n"
         "  done\n"
         "  case $path in\n";
  WriteCases(out, program, Joined(FlagsOf(program)));
  out << "  esac\n"
         "  case \"$path $before\" in\n"
         "    "
      << Joined(fileOptions, "|") << ") words= flags= files=1 ;;\n    " << Joined(otherOptions, "|")
      << ") return ;;\n"
         "    *) if [[ $current == -* ]]; then words=$flags files=; fi ;;\n"
         "  esac\n"
         "  if [[ $files ]]; then\n"
         "    compopt -o filenames 2>/dev/null\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "  else\n"
         "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "  fi\n"
         "}\n"
         "complete -F _zel zel\n";
  return out.str();
}

}  // namespace zeltool
