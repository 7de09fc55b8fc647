#include "Help.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "HelpText.h"
#include "Text.h"
#include "platform/Console.h"

namespace zeltool {
namespace {

constexpr size_t kWidestName = 24;

std::vector<HelpRow> OptionRows(const CLI::App& app, bool isArgument) {
  std::vector<HelpRow> rows;
  for (const CLI::Option* option : VisibleOptions(app)) {
    if (option->get_positional() == isArgument) rows.push_back({NameOf(*option), option->get_description()});
  }
  return rows;
}

std::vector<HelpRow> CommandRows(const CLI::App& app) {
  std::vector<HelpRow> rows;
  for (const CLI::App* command : VisibleCommands(app)) {
    rows.push_back({command->get_name(), command->get_description()});
  }
  return rows;
}

std::string Usage(const CLI::App& app) {
  std::string line = PathOf(app) + " [options]" + ArgumentsOf(app);
  if (!VisibleCommands(app).empty()) line += app.get_require_subcommand_min() > 0 ? " COMMAND" : " [COMMAND]";
  return line;
}

std::string Titled(const std::string& title, const std::vector<HelpRow>& rows, size_t columns) {
  return rows.empty() ? ""
                      : "\n" + title + ":\n" + ShowRows(rows, columns, std::min(kWidestName, columns / 2));
}

std::string TableInMarkdown(const std::string& title, const std::vector<HelpRow>& rows) {
  if (rows.empty()) return {};
  std::string out = "\n| " + title + " | |\n|---|---|\n";
  for (const HelpRow& row : rows) out += "| `" + row.left + "` | " + EscapeForMarkdown(row.right) + " |\n";
  return out;
}

std::string SectionOf(const CLI::App& command) {
  return "\n" + command.get_description() + ".\n\n```\n" + Usage(command) + "\n```\n" +
         TableInMarkdown("Argument", OptionRows(command, true)) +
         TableInMarkdown("Option", OptionRows(command, false));
}

class Formatter : public CLI::FormatterBase {
 public:
  std::string make_help(const CLI::App* app, std::string, CLI::AppFormatMode) const override {
    constexpr size_t kWidest = 80;
    const size_t columns = IsTerminal(stdout) ? GetTerminalSize(stdout).columns - 1 : kWidest;
    return MakeHelp(*app, std::min(columns, kWidest));
  }
};

}  // namespace

std::vector<const CLI::Option*> VisibleOptions(const CLI::App& app) {
  std::vector<const CLI::Option*> options;
  for (const CLI::Option* option : app.get_options()) {
    const bool isCommon = app.get_parent() != nullptr && option == app.get_help_ptr();
    if (!option->get_group().empty() && !isCommon) options.push_back(option);
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

std::string PathOf(const CLI::App& command) {
  const CLI::App* parent = command.get_parent();
  return parent == nullptr ? command.get_name() : PathOf(*parent) + " " + command.get_name();
}

std::string NameOf(const CLI::Option& option) {
  if (option.get_positional()) return option.get_name(true);
  const std::string value = option.get_type_name();
  return option.get_name(false, true) + (value.empty() ? "" : " " + value);
}

std::string ArgumentsOf(const CLI::App& command) {
  std::string words;
  for (const CLI::Option* option : VisibleOptions(command)) {
    if (!option->get_positional()) continue;
    const std::string name = option->get_name(true) + (option->get_items_expected_max() > 1 ? "..." : "");
    words += option->get_required() ? " " + name : " [" + name + "]";
  }
  return words;
}

std::string MakeHelp(const CLI::App& app, size_t columns) {
  std::string out = ShowParagraph(app.get_description() + ".", columns);
  out += "\nUsage: " + Wrapped(Usage(app), columns, 7) + "\n";
  out += Titled("Arguments", OptionRows(app, true), columns);
  out += Titled("Options", OptionRows(app, false), columns);
  out += Titled("Commands", CommandRows(app), columns);
  if (!app.get_footer().empty()) out += "\n" + ShowHelp(app.get_footer(), columns);
  if (app.get_parent() != nullptr)
    out += "\n" + ShowParagraph("Every command takes the options of zel --help, too.", columns);
  return out;
}

std::string MakePage(const CLI::App& command) {
  std::string out = "# " + PathOf(command) + "\n" + SectionOf(command) +
                    "\nIt takes the options of [every command](../tool.md#options-of-every-command), too.\n" +
                    ShowHelpInMarkdown(command.get_footer());
  for (const CLI::App* part : VisibleCommands(command))
    out += "\n## " + PathOf(*part) + "\n" + SectionOf(*part);
  return out;
}

std::shared_ptr<CLI::FormatterBase> MakeFormatter() { return std::make_shared<Formatter>(); }

}  // namespace zeltool
