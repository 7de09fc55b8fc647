#include "CompletionWords.h"

#include "Help.h"

namespace zeltool {
namespace {

std::vector<std::string> NamesOf(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

CompletionCommand ReadCommand(const CLI::App& command, const std::string& parentPath) {
  CompletionCommand out;
  out.name = command.get_name();
  if (command.get_parent() != nullptr) out.path = parentPath + (parentPath.empty() ? "" : " ") + out.name;
  out.description = command.get_description();
  for (const CLI::Option* option : VisibleOptions(command)) {
    if (option->get_positional()) {
      out.arguments.push_back(
          {option->get_name(true), option->get_required(), option->get_items_expected_max() > 1});
    } else {
      out.options.push_back({NamesOf(*option), option->get_description(), option->get_type_name()});
    }
  }
  for (const CLI::App* part : VisibleCommands(command)) out.parts.push_back(ReadCommand(*part, out.path));
  return out;
}

}  // namespace

CompletionCommand ReadCompletion(const CLI::App& app) { return ReadCommand(app, ""); }

bool IsFile(const std::string& value) { return value == "FILE"; }

}  // namespace zeltool
