#include <algorithm>
#include <set>
#include <sstream>

#include "Generate.h"

namespace zeltool {

std::vector<const CLI::Option*> VisibleOptions(const CLI::App& app) {
  std::vector<const CLI::Option*> options;
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_group().empty()) options.push_back(option);
  }
  // Arguments first, as they are written.
  std::stable_partition(options.begin(), options.end(),
                        [](const CLI::Option* option) { return option->get_positional(); });
  return options;
}

std::vector<const CLI::App*> VisibleCommands(const CLI::App& app) {
  std::vector<const CLI::App*> commands;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) commands.push_back(command);
  }
  return commands;
}

namespace {

std::vector<std::string> Flags(const CLI::App& app) {
  std::vector<std::string> flags;
  for (const CLI::Option* option : VisibleOptions(app)) {
    for (const std::string& name : option->get_snames()) flags.push_back("-" + name);
    for (const std::string& name : option->get_lnames()) flags.push_back("--" + name);
  }
  return flags;
}

std::string Joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

// Options whose value is a file.
void CollectFileOptions(const CLI::App& app, std::set<std::string>& names) {
  for (const CLI::Option* option : VisibleOptions(app)) {
    if (option->get_type_name() != "FILE") continue;
    for (const std::string& name : option->get_snames()) names.insert("-" + name);
    for (const std::string& name : option->get_lnames()) names.insert("--" + name);
  }
  for (const CLI::App* command : VisibleCommands(app)) CollectFileOptions(*command, names);
}

void WriteCases(std::ostream& out, const CLI::App& app, const std::string& path,
                const std::vector<std::string>& common) {
  std::vector<std::string> words;
  for (const CLI::App* command : VisibleCommands(app)) words.push_back(command->get_name());
  std::vector<std::string> all = Flags(app);
  for (const std::string& flag : common) {
    if (!path.empty() && std::find(all.begin(), all.end(), flag) == all.end()) all.push_back(flag);
  }
  const std::string flags = Joined(all);
  out << "    '" << path << "') words='" << Joined(words) << "' flags='" << flags << "' ;;\n";
  for (const CLI::App* command : VisibleCommands(app)) {
    WriteCases(out, *command, path + (path.empty() ? "" : " ") + command->get_name(), common);
  }
}

void CollectPaths(const CLI::App& app, const std::string& path, std::vector<std::string>& paths) {
  for (const CLI::App* command : VisibleCommands(app)) {
    paths.push_back(path + (path.empty() ? "" : " ") + command->get_name());
    CollectPaths(*command, paths.back(), paths);
  }
}

}  // namespace

std::string MakeCompletion(const CLI::App& app) {
  std::vector<std::string> paths;
  CollectPaths(app, "", paths);
  std::string pattern;
  for (const std::string& path : paths) pattern += (pattern.empty() ? "'" : "|'") + path + "'";
  std::set<std::string> files;
  CollectFileOptions(app, files);
  const std::string filePattern = Joined({files.begin(), files.end()});

  std::ostringstream out;
  out << "# bash completion for zel\n"
         "_zel() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD-1]} path= longer word "
         "words= flags=\n"
         "  COMPREPLY=()\n"
         "  for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
         "    longer=${path:+$path }$word\n"
         "    case $longer in\n    "
      << pattern
      << ") path=$longer ;;\n    esac\n  done\n"
         "  case ' "
      << filePattern
      << " ' in\n    *\" $before \"*) mapfile -t COMPREPLY < <(compgen -f -- \"$current\"); return ;;\n  "
         "esac\n"
         "  case $path in\n";
  WriteCases(out, app, "", Flags(app));
  out << "  esac\n"
         "  if [[ $current == -* ]]; then words=$flags; fi\n"
         "  mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
         "  if [[ $path == send && $current != -* ]]; then\n"
         "    mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
         "  fi\n"
         "}\n"
         "complete -o filenames -F _zel zel\n";
  return out.str();
}

}  // namespace zeltool
