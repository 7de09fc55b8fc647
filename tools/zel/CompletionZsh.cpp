#include <sstream>

#include "CompletionWords.h"
#include "Generate.h"

namespace zeltool {
namespace {

// Inside single quotes, for _arguments.
std::string Quoted(const std::string& text) {
  std::string out = "'";
  for (const char character : text) {
    if (character == '\'') {
      out += "'\\''";
    } else {
      out += character;
    }
  }
  return out + "'";
}

std::string WithoutColons(const std::string& text) {
  std::string out;
  for (const char character : text) {
    if (character == ':' || character == '[' || character == ']' || character == '\\') out += '\\';
    out += character;
  }
  return out;
}

std::string ActionFor(const std::string& value) { return IsFile(value) ? "_files" : " "; }

// "'(-s --seconds)'{-s,--seconds}'[How long]:N: '"
std::string Entry(const CompletionOption& option) {
  std::string all;
  for (const std::string& name : option.names) all += (all.empty() ? "" : ",") + name;
  std::string rest = "[" + WithoutColons(option.description) + "]";
  if (!option.value.empty()) rest += ":" + option.value + ":" + ActionFor(option.value);
  if (option.names.size() == 1) return Quoted(all + rest);
  std::string exclusive = all;
  for (char& character : exclusive) character = character == ',' ? ' ' : character;
  return Quoted("(" + exclusive + ")") + "{" + all + "}" + Quoted(rest);
}

std::string Entry(const CompletionArgument& argument) {
  return Quoted(std::string(argument.isRepeated   ? "*:"
                            : argument.isRequired ? ":"
                                                  : "::") +
                argument.name + ":" + ActionFor(argument.name));
}

std::string FunctionOf(const CompletionCommand& command) {
  std::string name = "_zel";
  if (!command.path.empty()) name += "_" + command.path;
  for (char& character : name) character = character == ' ' ? '_' : character;
  return name;
}

void WriteFunction(std::ostream& out, const CompletionCommand& command) {
  for (const CompletionCommand& part : command.parts) WriteFunction(out, part);
  out << FunctionOf(command) << "() {\n";
  if (!command.parts.empty()) out << "  local curcontext=$curcontext state line\n  typeset -A opt_args\n";
  out << "  _arguments -s" << (command.parts.empty() ? "" : " -C");
  if (!command.path.empty()) out << " \"${_zel_common[@]}\"";
  for (const CompletionOption& option : command.options) out << " \\\n    " << Entry(option);
  for (const CompletionArgument& argument : command.arguments) out << " \\\n    " << Entry(argument);
  if (!command.parts.empty()) out << " \\\n    ':command:->command' \\\n    '*::argument:->argument'";
  out << "\n";
  if (!command.parts.empty()) {
    out << "  case $state in\n    command)\n      local -a commands=(\n";
    for (const CompletionCommand& part : command.parts) {
      out << "        " << Quoted(part.name + ":" + WithoutColons(part.description)) << "\n";
    }
    out << "      )\n      _describe command commands ;;\n    argument)\n      case $words[1] in\n";
    for (const CompletionCommand& part : command.parts) {
      out << "        " << part.name << ") " << FunctionOf(part) << " ;;\n";
    }
    out << "      esac ;;\n  esac\n";
  }
  out << "}\n\n";
}

}  // namespace

std::string MakeZshCompletion(const CLI::App& app) {
  const CompletionCommand program = ReadCompletion(app);
  std::ostringstream out;
  out << "#compdef zel\n# zsh completion for zel\n\ntypeset -ga _zel_common=(\n";
  for (const CompletionOption& option : program.options) out << "  " << Entry(option) << "\n";
  out << ")\n\n";
  WriteFunction(out, program);
  // The file is the function's body when zsh loads it by itself, and defines it when it is sourced.
  out << "if [[ $zsh_eval_context[-1] == loadautofunc ]]; then\n  _zel \"$@\"\nelse\n  compdef _zel "
         "zel\nfi\n";
  return out.str();
}

}  // namespace zeltool
